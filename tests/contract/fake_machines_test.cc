#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <string>
#include <vector>

#include "testkit/fake_environment.h"
#include "tests/contract/contracts.h"

namespace zln {
namespace {

class FakeBackgroundTasksMachine : public BackgroundTasksMachine {
 public:
  BackgroundTasks& tasks() override { return tasks_; }
  void expire(BackgroundTaskId id) override { tasks_.expire(id); }

 private:
  FakeDispatch dispatch_;
  FakeBackgroundTasks tasks_{dispatch_};
};

class FakeClockMachine : public ClockMachine {
 public:
  Clock& clock() override { return clock_; }
  // Nobody sets this clock, so it shows the time that has passed.
  double elapsed() override { return clock_.now().secondsSince1970; }

 private:
  FakeClock clock_;
};

class FakeDeviceFactsMachine : public DeviceFactsMachine {
 public:
  DeviceFacts& facts() override { return device_; }
  void forget() override {
    device_.bundleIdentifier = std::nullopt;
    device_.bundleShortVersion = std::nullopt;
    device_.libraryVersion = std::nullopt;
    device_.country = std::nullopt;
  }

 private:
  FakeDevice device_;
};

class FakeDispatchMachine : public DispatchMachine {
 public:
  Dispatch& dispatch() override { return dispatch_; }
  void await(std::future<void> done) override {
    dispatch_.runAll();
    EXPECT_EQ(std::future_status::ready, done.wait_for(std::chrono::seconds(0)));
  }

 private:
  FakeDispatch dispatch_;
};

class FakeFilesMachine : public FilesMachine {
 public:
  FakeFilesMachine() { files_.makeFolder(root()); }
  Files& files() override { return files_; }
  std::string root() override { return "/root"; }
  std::size_t version(const std::string& path) override { return files_.writeCount(path); }

 private:
  FakeFiles files_;
};

class FakeLogMachine : public LogSinkMachine {
 public:
  LogSink& sink() override { return log_; }
  std::vector<std::string> lines() override { return log_.lines(); }

 private:
  FakeLog log_;
};

class FakeDefaultsMachine : public UserDefaultsMachine {
 public:
  UserDefaults& defaults() override { return env_.environment().userDefaults; }
  void restart() override { env_.endProcess(); }

 private:
  FakeEnvironment env_;
};

class FakeUuidsMachine : public UuidSourceMachine {
 public:
  UuidSource& uuids() override { return uuids_; }

 private:
  FakeUuids uuids_;
};

// One machine of this kind.
template <typename Machine, typename Made>
auto fake() {
  return testing::Values(makerOf<Machine, Made>("fake"));
}

INSTANTIATE_TEST_SUITE_P(Fake, BackgroundTasksContract,
                         (fake<BackgroundTasksMachine, FakeBackgroundTasksMachine>()));
INSTANTIATE_TEST_SUITE_P(Fake, ClockContract, (fake<ClockMachine, FakeClockMachine>()));
INSTANTIATE_TEST_SUITE_P(Fake, DeviceFactsContract,
                         (fake<DeviceFactsMachine, FakeDeviceFactsMachine>()));
INSTANTIATE_TEST_SUITE_P(Fake, DispatchContract, (fake<DispatchMachine, FakeDispatchMachine>()));
INSTANTIATE_TEST_SUITE_P(Fake, FilesContract, (fake<FilesMachine, FakeFilesMachine>()));
INSTANTIATE_TEST_SUITE_P(Fake, LogSinkContract, (fake<LogSinkMachine, FakeLogMachine>()));
INSTANTIATE_TEST_SUITE_P(Fake, UserDefaultsContract,
                         (fake<UserDefaultsMachine, FakeDefaultsMachine>()));
INSTANTIATE_TEST_SUITE_P(Fake, UuidSourceContract, (fake<UuidSourceMachine, FakeUuidsMachine>()));

}  // namespace
}  // namespace zln
