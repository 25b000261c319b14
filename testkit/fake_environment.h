#pragma once

#include "platform/environment.h"
#include "testkit/fake_app.h"
#include "testkit/fake_background_tasks.h"
#include "testkit/fake_clock.h"
#include "testkit/fake_defaults.h"
#include "testkit/fake_device.h"
#include "testkit/fake_dispatch.h"
#include "testkit/fake_files.h"
#include "testkit/fake_http.h"
#include "testkit/fake_log.h"
#include "testkit/fake_uuids.h"
#include "testkit/journal.h"

namespace zln {

// A whole machine of fakes. Everything happens on the thread of the test and only when the test
// makes it happen; the log alone may be written from any thread.
struct FakeEnvironment {
  FakeEnvironment() = default;
  FakeEnvironment(const FakeEnvironment&) = delete;
  FakeEnvironment& operator=(const FakeEnvironment&) = delete;

  Journal journal;
  FakeClock clock{&journal};
  FakeDispatch dispatch{&journal};
  FakeHttp http{dispatch, &journal};
  FakeFiles files{&journal};
  FakeDefaults defaults{&journal};
  FakeDevice device;
  FakeBackgroundTasks backgroundTasks{dispatch, &journal};
  FakeUuids uuids;
  FakeLog log{&journal};
  NotificationCenter notificationCenter;
  FakeApp app{notificationCenter, dispatch};

  Environment& environment() { return environment_; }

  // Takes away what dies with a process: waiting tasks, outstanding requests, observers and
  // background time. The clock, the files, the user defaults, the log and all records stay.
  void endProcess();

 private:
  Environment environment_{clock,  dispatch,        http,  files, defaults,
                           device, backgroundTasks, uuids, log,   notificationCenter};
};

}  // namespace zln
