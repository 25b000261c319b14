#pragma once

#include "platform/environment.h"
#include "platform/notification_center.h"
#include "platform/posix/application_info.h"
#include "platform/posix/background_tasks_posix.h"
#include "platform/posix/clock_posix.h"
#include "platform/posix/device_facts_posix.h"
#include "platform/posix/dispatch_posix.h"
#include "platform/posix/files_posix.h"
#include "platform/posix/http_curl.h"
#include "platform/posix/log_sink_posix.h"
#include "platform/posix/thread_pool.h"
#include "platform/posix/user_defaults_posix.h"
#include "platform/posix/uuid_source_posix.h"

namespace zln {

// All parts of the port, wired to this machine. A part stands below those it uses at once.
struct PortParts {
  PortParts();
  PortParts(const PortParts&) = delete;
  PortParts& operator=(const PortParts&) = delete;

  ApplicationInfo application;
  ClockPosix clock;
  // The main thread starts its threads, so that a game's never spends the time.
  ThreadPool pool;
  DispatchPosix dispatch;
  HttpClientCurl http;
  FilesPosix files;
  UserDefaultsPosix userDefaults;
  DeviceFactsPosix deviceFacts;
  BackgroundTasksPosix backgroundTasks;
  UuidSourcePosix uuids;
  LogSinkPosix logSink;
  NotificationCenter notificationCenter;
  Environment environment;
};

// The parts of this process. They are never destroyed: threads may use them to the very end.
PortParts& portParts();

}  // namespace zln
