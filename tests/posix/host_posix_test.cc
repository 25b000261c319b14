#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ZLNSessionReporting/ZLNHost.h"
#include "platform/environment.h"
#include "platform/posix/environment_posix.h"
#include "tests/support/environment_variable.h"
#include "tests/support/process_state_for_tests.h"
#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Notes what it hears, and on which thread.
class Listener {
 public:
  void resign() { hear("resign active"); }
  void become() { hear("become active"); }
  void foreground() { hear("enter foreground"); }
  void background() { hear("enter background"); }
  void terminate() { hear("terminate"); }

  std::vector<std::string> heard;
  std::thread::id thread;

 private:
  void hear(const char* what) {
    heard.push_back(what);
    thread = std::this_thread::get_id();
  }
};

// The port as a host meets it. What a test sets is taken back, for tests may share the process.
class ZLNHostTest : public testing::Test {
 protected:
  void SetUp() override {
    setProcessStateForTests(&state);
    auto& center = port.notificationCenter;
    center.addObserver(listener, Notification::applicationWillResignActive, &Listener::resign);
    center.addObserver(listener, Notification::applicationDidBecomeActive, &Listener::become);
    center.addObserver(listener, Notification::applicationWillEnterForeground,
                       &Listener::foreground);
    center.addObserver(listener, Notification::applicationDidEnterBackground,
                       &Listener::background);
    center.addObserver(listener, Notification::applicationWillTerminate, &Listener::terminate);
    ZLNHostSetLogSink(
        [](const char* line, void* kept) {
          static_cast<std::vector<std::string>*>(kept)->emplace_back(line);
        },
        &lines);
  }
  void TearDown() override {
    ZLNHostSetApplicationInfo(nullptr, nullptr);
    ZLNHostSetBackgroundTaskHooks(nullptr);
    ZLNHostSetLogSink(nullptr, nullptr);
    setProcessStateForTests(nullptr);
  }

  Environment& port = portEnvironment();
  ProcessState state{port};
  std::shared_ptr<Listener> listener = std::make_shared<Listener>();
  std::vector<std::string> lines;
};

TEST_F(ZLNHostTest, EachEventIsHeardOnTheCallingThreadBeforeTheCallReturns) {
  ZLNHostApplicationWillResignActive();
  ZLNHostApplicationDidEnterBackground();
  ZLNHostApplicationWillEnterForeground();
  ZLNHostApplicationDidBecomeActive();
  ZLNHostApplicationWillTerminate();

  EXPECT_THAT(listener->heard, ElementsAre("resign active", "enter background", "enter foreground",
                                           "become active", "terminate"));
  EXPECT_EQ(std::this_thread::get_id(), listener->thread);
}

TEST_F(ZLNHostTest, TheApplicationIsAsTheHostSaysInValidUtf8) {
  const auto value = [this](const char* key) { return port.deviceFacts.mainBundleValue(key); };

  ZLNHostSetApplicationInfo("com.example.game", "1.2.3");
  EXPECT_EQ("com.example.game", value(kBundleIdentifierKey));
  EXPECT_EQ("1.2.3", value(kBundleShortVersionKey));

  ZLNHostSetApplicationInfo("com.\xff.game", "1.\xff");
  EXPECT_EQ("com.\uFFFD.game", value(kBundleIdentifierKey));
  EXPECT_EQ("1.\uFFFD", value(kBundleShortVersionKey));

  ZLNHostSetApplicationInfo(nullptr, nullptr);
  EXPECT_EQ(std::nullopt, value(kBundleIdentifierKey));
  EXPECT_EQ(std::nullopt, value(kBundleShortVersionKey));
}

// On parts of their own, because a process has one place for its files.

TEST_F(ZLNHostTest, TheIdentifierNamesFolderAndDefaultsWhicheverComesFirst) {
  const TemporaryFolder folder;
  const EnvironmentVariable data("XDG_DATA_HOME", "/data");
  const EnvironmentVariable config("XDG_CONFIG_HOME", folder.path());
  PortParts parts;
  EXPECT_TRUE(parts.application.set("com.example.game", std::nullopt));

  EXPECT_EQ("/data/com.example.game", parts.files.applicationSupportPath());
  EXPECT_FALSE(parts.application.set("com.example.other", "1.2.3"));
  parts.userDefaults.set("key", "text");
  parts.userDefaults.synchronize();

  EXPECT_EQ("/data/com.example.game", parts.files.applicationSupportPath());
  EXPECT_TRUE(parts.files.exists(folder.path() + "/com.example.game.plist"));
  EXPECT_EQ("com.example.other", parts.deviceFacts.mainBundleValue(kBundleIdentifierKey));
}

TEST_F(ZLNHostTest, AnIdentifierThatComesTooLateIsLoggedWithThePathAndTheRemedy) {
  const std::string path = port.files.applicationSupportPath();

  ZLNHostSetApplicationInfo("com.example.late", nullptr);

  EXPECT_THAT(lines, ElementsAre("ZLN Session: Files stay in " + path +
                                 ": call ZLNHostSetApplicationInfo before ZLNInitializeReporting, "
                                 "and with one identifier"));
}

TEST_F(ZLNHostTest, TheLibraryHasTheVersionOfTheBuild) {
  EXPECT_EQ("7.0.0", port.deviceFacts.libraryBundleValue(kBundleShortVersionKey));
}

TEST_F(ZLNHostTest, HooksAnswerForBackgroundTasks) {
  const ZLNHostBackgroundTaskHooks hooks = {[](void*) { return uint64_t{40}; },
                                            [](uint64_t, void*) {}, [](void*) { return 12.5; },
                                            nullptr};

  ZLNHostSetBackgroundTaskHooks(&hooks);

  EXPECT_EQ(12.5, port.backgroundTasks.remaining());
  EXPECT_EQ(40u, port.backgroundTasks.begin(nullptr));
  port.backgroundTasks.end(40);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(ZLNHostTest, IncompleteHooksAreIgnoredAndLogged) {
  const ZLNHostBackgroundTaskHooks hooks = {[](void*) { return uint64_t{40}; },
                                            [](uint64_t, void*) {}, nullptr, nullptr};

  ZLNHostSetBackgroundTaskHooks(&hooks);

  EXPECT_EQ(DBL_MAX, port.backgroundTasks.remaining());
  EXPECT_THAT(lines, ElementsAre("ZLN Session: Background task hooks ignored, one of begin, end "
                                 "and remaining is missing"));
}

TEST_F(ZLNHostTest, ATaskIsToldOfItsExpiryWhenTheCallReturns) {
  bool told = false;
  const auto id = port.backgroundTasks.begin([&] { told = true; });

  ZLNHostBackgroundTaskWillExpire(id);

  EXPECT_TRUE(told);
  port.backgroundTasks.end(id);
}

}  // namespace
}  // namespace zln
