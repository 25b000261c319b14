#pragma once

#include "platform/background_tasks.h"
#include "platform/clock.h"
#include "platform/device_facts.h"
#include "platform/dispatch.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/log_sink.h"
#include "platform/notification_center.h"
#include "platform/user_defaults.h"
#include "platform/uuid_source.h"

namespace zln {

// Everything the library knows of the machine that it runs on.
struct Environment {
  Clock& clock;
  Dispatch& dispatch;
  HttpClient& http;
  Files& files;
  UserDefaults& userDefaults;
  DeviceFacts& deviceFacts;
  BackgroundTasks& backgroundTasks;
  UuidSource& uuids;
  LogSink& logSink;
  NotificationCenter& notificationCenter;
};

// The environment of the port that this build links in. Lives as long as the process.
Environment& portEnvironment();

}  // namespace zln
