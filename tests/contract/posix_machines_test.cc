#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/posix/background_tasks_posix.h"
#include "platform/posix/clock_posix.h"
#include "platform/posix/device_facts_posix.h"
#include "platform/posix/dispatch_posix.h"
#include "platform/posix/files_posix.h"
#include "platform/posix/log_sink_posix.h"
#include "platform/posix/user_defaults_posix.h"
#include "platform/posix/uuid_source_posix.h"
#include "testkit/fake_clock.h"
#include "tests/contract/contracts.h"
#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

class PosixBackgroundTasksMachine : public BackgroundTasksMachine {
 public:
  BackgroundTasks& tasks() override { return tasks_; }
  void expire(BackgroundTaskId id) override { tasks_.willExpire(id); }

 private:
  ThreadPool pool_;
  DispatchPosix dispatch_{pool_};
  BackgroundTasksPosix tasks_{dispatch_};
};

class PosixClockMachine : public ClockMachine {
 public:
  Clock& clock() override { return clock_; }
  double elapsed() override {
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceStart).count();
  }

 private:
  ClockPosix clock_;
};

class PosixDeviceFactsMachine : public DeviceFactsMachine {
 public:
  PosixDeviceFactsMachine() {
    application_.set("com.example.game", "1.2.3");
    make("7.0.0", "de_DE.UTF-8");
  }
  DeviceFacts& facts() override { return *facts_; }
  void forget() override {
    application_.set(std::nullopt, std::nullopt);
    make("", std::nullopt);
  }

 private:
  void make(std::string version, std::optional<std::string> locale) {
    const auto variable = [locale](const char* name) {
      return std::string(name) == "LANG" ? locale : std::nullopt;
    };
    facts_ = std::make_unique<DeviceFactsPosix>(
        application_,
        DeviceFactsPosix::Sources{.libraryVersion = std::move(version), .variable = variable});
  }

  ApplicationInfo application_;
  std::unique_ptr<DeviceFacts> facts_;
};

class PosixDispatchMachine : public DispatchMachine {
 public:
  Dispatch& dispatch() override { return dispatch_; }
  void await(std::future<void> done) override { done.wait(); }

 private:
  ThreadPool pool_;
  DispatchPosix dispatch_{pool_};
};

class PosixFilesMachine : public FilesMachine {
 public:
  Files& files() override { return files_; }
  std::string root() override { return folder_.path(); }
  // Each write puts another file in place than the one that was there.
  std::size_t version(const std::string& path) override {
    struct stat facts {};
    EXPECT_EQ(0, stat(path.c_str(), &facts));
    return facts.st_ino;
  }

 private:
  TemporaryFolder folder_;
  FilesPosix files_{[] { return std::string("/unused"); }};
};

// Its lines go to a game's own sink.
class PosixLogMachine : public LogSinkMachine {
 public:
  PosixLogMachine() { sink_.setHostSink(&PosixLogMachine::take, this); }
  LogSink& sink() override { return sink_; }
  std::vector<std::string> lines() override { return lines_; }

 private:
  static void take(const char* line, void* self) {
    auto& machine = *static_cast<PosixLogMachine*>(self);
    std::lock_guard lock(machine.mutex_);
    machine.lines_.emplace_back(line);
  }

  std::mutex mutex_;
  std::vector<std::string> lines_;
  FakeClock clock_;
  LogSinkPosix sink_{clock_, "App", -1};
};

class PosixUserDefaultsMachine : public UserDefaultsMachine {
 public:
  PosixUserDefaultsMachine() { restart(); }
  UserDefaults& defaults() override { return *defaults_; }
  void restart() override {
    defaults_ = std::make_unique<UserDefaultsPosix>(
        files_, [this] { return folder_.path() + "/config/com.example.game.plist"; });
  }

 private:
  TemporaryFolder folder_;
  FilesPosix files_{[] { return std::string("/unused"); }};
  std::unique_ptr<UserDefaultsPosix> defaults_;
};

class PosixUuidsMachine : public UuidSourceMachine {
 public:
  UuidSource& uuids() override { return uuids_; }

 private:
  UuidSourcePosix uuids_;
};

// One machine of this kind.
template <typename Machine, typename Made>
auto posix() {
  return testing::Values(makerOf<Machine, Made>("posix"));
}

INSTANTIATE_TEST_SUITE_P(Posix, BackgroundTasksContract,
                         (posix<BackgroundTasksMachine, PosixBackgroundTasksMachine>()));
INSTANTIATE_TEST_SUITE_P(Posix, ClockContract, (posix<ClockMachine, PosixClockMachine>()));
INSTANTIATE_TEST_SUITE_P(Posix, DeviceFactsContract,
                         (posix<DeviceFactsMachine, PosixDeviceFactsMachine>()));
INSTANTIATE_TEST_SUITE_P(Posix, DispatchContract, (posix<DispatchMachine, PosixDispatchMachine>()));
INSTANTIATE_TEST_SUITE_P(Posix, FilesContract, (posix<FilesMachine, PosixFilesMachine>()));
INSTANTIATE_TEST_SUITE_P(Posix, LogSinkContract, (posix<LogSinkMachine, PosixLogMachine>()));
INSTANTIATE_TEST_SUITE_P(Posix, UserDefaultsContract,
                         (posix<UserDefaultsMachine, PosixUserDefaultsMachine>()));
INSTANTIATE_TEST_SUITE_P(Posix, UuidSourceContract,
                         (posix<UuidSourceMachine, PosixUuidsMachine>()));

}  // namespace
}  // namespace zln
