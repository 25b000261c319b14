// The whole library on real threads, real files and a network that answers by itself. What these
// tests are really for shows under the thread sanitizer: a field that is no longer a Field, or a
// list touched outside its queue, is reported there.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "config/ZLNReportingConfig.h"
#include "platform/posix/background_tasks_posix.h"
#include "platform/posix/clock_posix.h"
#include "platform/posix/dispatch_posix.h"
#include "platform/posix/files_posix.h"
#include "platform/posix/thread_pool.h"
#include "platform/posix/user_defaults_posix.h"
#include "platform/posix/uuid_source_posix.h"
#include "platform/property_list.h"
#include "session/ZLNSessionManager.h"
#include "testkit/fake_device.h"
#include "testkit/fake_log.h"
#include "tests/support/process_state_for_tests.h"
#include "transport/ZLNReportingManager.h"

namespace zln {
namespace {

constexpr int kThreads = 8;
constexpr auto kLongestAwait = std::chrono::seconds(60);

// Tells the time, but does not let anybody wait.
class HastyClock : public Clock {
 public:
  Date now() override { return real_.now(); }
  void sleep(unsigned) override { std::this_thread::yield(); }

 private:
  ClockPosix real_;
};

// Answers on the pool, each way in its turn.
class AnsweringHttp : public HttpClient {
 public:
  explicit AnsweringHttp(ThreadPool& pool) : pool_(pool) {}

  void upload(HttpRequest request, std::function<void(HttpReply)> completion) override {
    const bool settings = request.url.ends_with("/config");
    pool_.run([this, settings, completion = std::move(completion)] {
      completion(settings ? settingsReply() : reportReply());
    });
  }

  // From now on every report is delivered, or put off.
  void alwaysDeliver() { manner_ = Manner::kDelivers; }
  void alwaysPutOff() { manner_ = Manner::kPutsOff; }

 private:
  enum class Manner { kChanges, kDelivers, kPutsOff };

  static HttpReply replyOf(const char* body) {
    return {body, HttpResponse{"https://service.invalid/", 200, {}}, std::nullopt};
  }

  HttpReply settingsReply() {
    return replyOf(
        turn_++ % 2 == 0
            ? R"({"ConfigSerializationKeyConfigUpdateInterval":-1,"ConfigSerializationKeyReportTemporaryFailureLimit":2})"
            : R"({"ConfigSerializationKeySessionInactivityTimeLimit":0,"ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds":3})");
  }

  HttpReply reportReply() {
    constexpr const char* kBodies[] = {R"({"success":true})", R"({"success":true})",
                                       R"({"success":false})",
                                       R"({"success":false,"errorIsPermanent":true,"error":"no"})"};
    const unsigned way = wayOf(manner_);
    if (way < std::size(kBodies)) return replyOf(kBodies[way]);
    const Error lost{kUrlErrorDomain, url_error::kNetworkConnectionLost, std::nullopt, {}};
    return {"", std::nullopt, lost};
  }

  unsigned wayOf(Manner manner) {
    if (manner == Manner::kDelivers) return 0;
    return manner == Manner::kPutsOff ? 2 : turn_++ % 5;
  }

  ThreadPool& pool_;
  std::atomic<unsigned> turn_{0};
  std::atomic<Manner> manner_{Manner::kChanges};
};

// What must be in the report file from some moment on.
struct ReportFileWatch {
  std::atomic<std::size_t> fewestAdAttempts{0};
  std::atomic<int> contents{0};
  std::atomic<int> tooFew{0};
};

std::size_t countAdAttempts(std::string_view content) {
  constexpr std::string_view kKey = "<key>adEventId</key>";
  constexpr std::size_t kValue = 60;
  std::set<std::string_view> events;
  for (std::size_t at = 0; (at = content.find(kKey, at)) != std::string_view::npos; ++at) {
    events.insert(content.substr(at + kKey.size(), kValue));
  }
  return events.size();
}

class WatchedReportFile : public AtomicFile {
 public:
  WatchedReportFile(std::shared_ptr<AtomicFile> file, ReportFileWatch& watch)
      : file_(std::move(file)), watch_(watch) {}

  bool replace(std::string_view content, std::size_t unchangedPrefix, Error* error) override {
    const std::size_t fewest = watch_.fewestAdAttempts;
    if (fewest > 0) {
      ++watch_.contents;
      if (countAdAttempts(content) < fewest) ++watch_.tooFew;
    }
    return file_->replace(content, unchangedPrefix, error);
  }

 private:
  const std::shared_ptr<AtomicFile> file_;
  ReportFileWatch& watch_;
};

class WatchedFiles : public FilesPosix {
 public:
  using FilesPosix::FilesPosix;

  std::shared_ptr<AtomicFile> atomicFile(const std::string& path,
                                         const std::string& sparePath) override {
    return std::make_shared<WatchedReportFile>(FilesPosix::atomicFile(path, sparePath), watch);
  }

  ReportFileWatch watch;
};

// A machine whose threads and files are real. Never destroyed, as in a game.
struct BusyMachine {
  std::string folder = makeFolder();
  HastyClock clock;
  ThreadPool pool;
  DispatchPosix dispatch{pool};
  AnsweringHttp http{pool};
  WatchedFiles files{[this] { return folder; },
                     [this](std::function<void()> flush) { pool.runLater(std::move(flush)); }};
  UserDefaultsPosix userDefaults{files, [this] { return folder + "/defaults.plist"; }};
  FakeDevice device;
  BackgroundTasksPosix backgroundTasks{dispatch};
  UuidSourcePosix uuids;
  FakeLog log;
  NotificationCenter notificationCenter;
  Environment environment{clock,  dispatch,        http,  files, userDefaults,
                          device, backgroundTasks, uuids, log,   notificationCenter};

  void post(Notification notification) {
    dispatch.mainSync([&] { notificationCenter.post(notification); });
  }

  static std::string makeFolder() {
    std::string path = std::filesystem::temp_directory_path() / "zln-threads-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) std::abort();
    return path;
  }
};

class ThreadsTest : public testing::Test {
 protected:
  ThreadsTest() : machine(*new BusyMachine) {
    setProcessStateForTests(new ProcessState(machine.environment));
  }
  // Threads of the machine may still be writing.
  ~ThreadsTest() override {
    EXPECT_TRUE(await([this] {
      std::error_code problem;
      std::filesystem::remove_all(machine.folder, problem);
      return !problem;
    }));
  }

  // Runs `body` on several threads at once and returns when all have ended.
  template <typename Body>
  static void onAllThreads(Body body) {
    std::vector<std::thread> threads;
    for (int index = 0; index < kThreads; ++index) threads.emplace_back([=] { body(index); });
    for (std::thread& thread : threads) thread.join();
  }

  // On every second thread `write`, which is told the round, on the others `read`.
  template <typename Write, typename Read>
  static void writeAndRead(Write write, Read read) {
    onAllThreads([=](int index) {
      for (int round = 0; round < 500; ++round) index % 2 == 0 ? write(round) : read();
    });
  }

  // Gives the other threads their turn until `condition` holds; false when it does not come to
  // that.
  template <typename Condition>
  static bool await(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + kLongestAwait;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::yield();
    }
    return true;
  }

  BusyMachine& machine;
};

void changeSettings(ZLNReportingConfig& settings, bool on) {
  settings.setTransmitReportsImmediately(on);
  settings.setTransmitReportsOnApplicationBackgrounding(on);
  settings.setTransmitReportsOnApplicationForegrounding(on);
  settings.setSendStartSessionReports(on);
  settings.setSendStopSessionReports(on);
  settings.setSendFirstSessionReports(on);
  settings.setReportTemporaryFailureLimit(on ? 3 : 1);
  settings.setSessionInactivityTimeLimit(on ? 600.0f : 0.0f);
  settings.setUserSessionBackgroundTimeoutSeconds(on ? 60.0f : 2.0f);
  settings.setConfigUpdateInterval(on ? 86400 : -1);
}

void callSomething(BusyMachine& machine, unsigned choice) {
  constexpr Notification kEvents[] = {
      Notification::applicationWillResignActive, Notification::applicationDidEnterBackground,
      Notification::applicationWillEnterForeground, Notification::applicationDidBecomeActive,
      Notification::applicationWillTerminate};
  const std::function<void()> calls[] = {
      [] { ZLNSendBannerAdAttemptReport("network", true); },
      [] { ZLNSendRewardedAdZoneAttemptReport("network", "zone", false); },
      [] { ZLNReleaseString(ZLNGetSessionDescription()); },
      [] { ZLNStopSessionReporting(); },
      [] { ZLNLogSetLevel(ZLNLogLevelSuperVerbose); },
      [] { ZLNLogDebug("%@ %d %f", "text", 5, 0.5); },
      [] { ZLNInitializeReporting("engine 2"); },
      [] { ZLNClearCache(); },
      [] { changeSettings(*ZLNReportingConfig::sharedConfig(), false); },
      [] { changeSettings(*ZLNReportingConfig::sharedConfig(), true); },
      [] { ZLNStartSessionReporting(); }};
  if (choice < std::size(kEvents)) return machine.post(kEvents[choice]);
  calls[choice - std::size(kEvents)]();
}

TEST_F(ThreadsTest, EveryFunctionMayBeCalledFromEveryThreadAtAnyTime) {
  ZLNInitializeReporting("engine");
  ZLNStartSessionReporting();

  onAllThreads([this](int index) {
    std::mt19937 random(static_cast<unsigned>(index));
    for (int call = 0; call < 150; ++call) callSomething(machine, random() % 16);
  });

  // Whatever the storm has left is delivered once the network does.
  machine.http.alwaysDeliver();
  changeSettings(*ZLNReportingConfig::sharedConfig(), true);
  const auto manager = ZLNReportingManager::sharedManager();
  const auto nothingIsOwed = [&] {
    machine.post(Notification::applicationWillEnterForeground);
    return manager->reportQueue().operationCount() == 0 && manager->temporaryErrorReports().empty();
  };
  EXPECT_TRUE(await(nothingIsOwed));
}

// On its way from the queue to the holding it is in both for a moment, never in none.
TEST_F(ThreadsTest, EveryReportIsInEachFileThatIsWrittenWhileReportsComeToBeHeld) {
  constexpr std::size_t kReports = 400;
  machine.http.alwaysPutOff();
  ZLNInitializeReporting("engine");
  const auto settings = ZLNReportingConfig::sharedConfig();
  settings->setReportTemporaryFailureLimit(1);
  settings->setTransmitReportsImmediately(false);
  const auto manager = ZLNReportingManager::sharedManager();
  for (std::size_t i = 0; i < kReports; ++i) ZLNSendBannerAdAttemptReport("network", true);
  machine.files.watch.fewestAdAttempts = kReports;

  const bool areHeld = await([&] {
    manager->transmitPendingReports();
    manager->saveReports();
    return manager->reportQueue().operationCount() == 0;
  });

  EXPECT_TRUE(areHeld);
  EXPECT_GE(manager->temporaryErrorReports().size(), kReports);
  EXPECT_GT(machine.files.watch.contents, static_cast<int>(kReports));
  EXPECT_EQ(0, machine.files.watch.tooFew);
}

TEST_F(ThreadsTest, TheSharedObjectsAreMadeOnceWhicheverThreadsAskFirst) {
  std::vector<std::shared_ptr<ZLNSessionManager>> sessionManagers(kThreads);
  std::vector<std::shared_ptr<ZLNReportingManager>> reportingManagers(kThreads);
  std::vector<std::shared_ptr<ZLNReportingConfig>> configs(kThreads);
  std::atomic<int> ready{0};

  onAllThreads([&](int index) {
    ++ready;
    while (ready < kThreads) std::this_thread::yield();
    const auto at = static_cast<std::size_t>(index);
    sessionManagers[at] = ZLNSessionManager::sharedManager();
    reportingManagers[at] = ZLNReportingManager::sharedManager();
    configs[at] = ZLNReportingConfig::sharedConfig();
  });

  for (std::size_t at = 1; at < kThreads; ++at) {
    EXPECT_EQ(sessionManagers[0], sessionManagers[at]);
    EXPECT_EQ(reportingManagers[0], reportingManagers[at]);
    EXPECT_EQ(configs[0], configs[at]);
  }
  EXPECT_EQ(machine.userDefaults.get("com.zelnor.sessionUserId", nullptr),
            sessionManagers[0]->sessionUserId());
}

TEST_F(ThreadsTest, ASettingIsReadWhileAnotherThreadChangesIt) {
  const auto settings = ZLNReportingConfig::sharedConfig();

  const auto write = [=](int round) {
    changeSettings(*settings, round % 2 == 0);
    settings->setConfigUpdateTime(Date{1.0});
    settings->setJsonTransferTimeout(1.0f);
    settings->setSendPartialReportsOnBackgrounding(true);
    settings->setAttemptToEnforceOrientation(true);
  };
  const auto read = [=] {
    const Dictionary seen = settings->configToDictionary();
    EXPECT_EQ(10u, seen.size());
    settings->shouldUpdateFromRemote();
    settings->jsonTransferTimeout();
    settings->sendPartialReportsOnBackgrounding();
    settings->attemptToEnforceOrientation();
  };
  writeAndRead(write, read);
}

TEST_F(ThreadsTest, ASessionIsWrittenDownWhileAnotherThreadDrivesIt) {
  const auto session = ZLNSession::initWithStartTime(Date{1000});

  onAllThreads([&](int index) {
    for (int round = 0; round < 500; ++round) {
      const Date date{1000.0 + round};
      switch ((index + round) % 6) {
        case 0:
          session->pause(date);
          break;
        case 1:
          session->resume(date);
          break;
        case 2:
          session->stop(date);
          break;
        case 3:
          session->setUid("other");
          session->setStartTime(date);
          session->setDevice("device");
          session->setOs("os");
          session->setSdkVersion("sdk");
          session->setMwVersion("mw");
          session->setAppVersion("app");
          session->setReportingVersion("reporting");
          session->setBundleid("bundle");
          session->setPlatform("platform");
          break;
        case 4:
          EXPECT_FALSE(session->toDictionary().empty());
          break;
        default:
          EXPECT_FALSE(session->description().empty());
          break;
      }
    }
  });
}

TEST_F(ThreadsTest, AMonitorIsCancelledWhileItsWorkerWaits) {
  ZLNReportingConfig::sharedConfig()->setUserSessionBackgroundTimeoutSeconds(1e9f);

  for (int round = 0; round < 100; ++round) {
    auto monitor = ZLNReportBackgroundMonitor::initWithDelegate(nullptr);
    machine.post(Notification::applicationDidEnterBackground);
    monitor->setDelegate(nullptr);
    monitor->cancel();
    EXPECT_FALSE(monitor->description().empty());
    // The worker lets go of the monitor soon after.
    EXPECT_TRUE(await([&] { return monitor.use_count() == 1; }));
  }
}

TEST_F(ThreadsTest, AMonitorsDelegateIsReadWhileAnotherThreadChangesIt) {
  const auto monitor = ZLNReportBackgroundMonitor::initWithDelegate(nullptr);
  const auto manager = ZLNSessionManager::sharedManager();

  writeAndRead([=](int round) { monitor->setDelegate(round % 4 == 0 ? nullptr : manager); },
               [=] { monitor->delegate(); });
}

TEST_F(ThreadsTest, AMonitorFiresWhileTheApplicationComesAndGoes) {
  ZLNInitializeReporting("engine");
  const auto manager = ZLNSessionManager::sharedManager();

  onAllThreads([&](int index) {
    for (int round = 0; round < 50; ++round) {
      if (index % 2 == 0) {
        manager->appBackgrounding();
        manager->appForegrounding();
      } else {
        manager->reportBackgroundMonitorTimerExpired(manager->monitor());
      }
    }
  });
}

TEST_F(ThreadsTest, AnOperationIsReadAndChangedByManyThreads) {
  const auto operation = ZLNReportOperationPost::initWithReport(nullptr, true, nullptr);
  const auto report = ZLNReportBase::initWithURLString("https://a.invalid/session");

  const auto write = [=](int round) {
    operation->setReport(report);
    operation->setDelegate(nullptr);
    operation->setValidateResponse(round % 2 == 0);
    operation->setExecuting(round % 2 == 0);
    operation->setFinished(round % 2 == 0);
    report->setTemporaryFailureCount(round);
  };
  const auto read = [=] {
    EXPECT_FALSE(operation->description().empty());
    operation->delegate();
    operation->validateResponse();
    operation->isFinished();
    report->temporaryFailureCount();
  };
  writeAndRead(write, read);
}

}  // namespace
}  // namespace zln
