#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "testkit/fake_environment.h"

// What only the fakes promise to tests: that nothing happens before a test wants it, the order in
// which it happens then, what fails on demand and what is recorded. tests/contract/ has what they
// promise as the interfaces that they implement.

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

class FakeClockTest : public testing::Test {
 protected:
  // Schedules a call that notes its name and the seconds that have passed on the clock since the
  // start of the test.
  void noteAt(double secondsFromNow, const std::string& name) {
    clock.at(secondsFromNow, [this, name] { calls.emplace_back(name, elapsed()); });
  }
  double elapsed() { return clock.now().secondsSince1970 - 1700000000; }

  FakeClock clock;
  std::vector<std::pair<std::string, double>> calls;
};

TEST_F(FakeClockTest, RunsWhatFallsDueOnceInOrderOfTimeAndThenOfScheduling) {
  noteAt(3, "third");
  noteAt(1, "first");
  noteAt(2, "a");
  noteAt(2, "b");
  noteAt(10, "later");

  clock.advance(9.5);

  EXPECT_THAT(calls, ElementsAre(Pair("first", 1), Pair("a", 2), Pair("b", 2), Pair("third", 3)));
  EXPECT_EQ(9.5, elapsed());
}

TEST_F(FakeClockTest, RunsWhatACallSchedulesOnTheWay) {
  clock.at(1, [this] { noteAt(1, "in time"); });
  clock.at(1, [this] { noteAt(3, "too late"); });

  clock.advance(3);

  EXPECT_THAT(calls, ElementsAre(Pair("in time", 2)));
}

TEST_F(FakeClockTest, SettingItRunsAndMovesNothingThatIsScheduled) {
  noteAt(10, "a");
  clock.set(1700001000);
  EXPECT_THAT(calls, IsEmpty());

  clock.advance(9);
  EXPECT_THAT(calls, IsEmpty());
  clock.advance(1);

  EXPECT_THAT(calls, ElementsAre(Pair("a", 1010)));
}

TEST_F(FakeClockTest, SleepingMovesOnRunsWhatFallsDueAndAddsUp) {
  noteAt(1, "a");

  clock.sleep(1);
  clock.advance(100);
  clock.sleep(2);

  EXPECT_EQ(103, elapsed());
  EXPECT_THAT(calls, ElementsAre(Pair("a", 1)));
  EXPECT_EQ(3, clock.slept());
}

class FakeDispatchTest : public testing::Test {
 protected:
  std::function<void()> note(const std::string& name) {
    return [this, name] { ran.push_back(name); };
  }

  FakeDispatch dispatch;
  std::vector<std::string> ran;
};

TEST_F(FakeDispatchTest, RunsTheTasksOfAQueueInOrderWhenItIsToldTo) {
  for (const char* name : {"1", "2"}) {
    dispatch.mainAsync(note(name + std::string(" main")));
    dispatch.globalAsync(note(name + std::string(" global")));
  }
  EXPECT_THAT(ran, IsEmpty());
  EXPECT_EQ(2u, dispatch.mainCount());
  EXPECT_EQ(2u, dispatch.globalCount());

  dispatch.runMain();
  EXPECT_THAT(ran, ElementsAre("1 main", "2 main"));
  EXPECT_EQ(2u, dispatch.globalCount());
  dispatch.runGlobal();

  EXPECT_THAT(ran, ElementsAre("1 main", "2 main", "1 global", "2 global"));
}

TEST_F(FakeDispatchTest, RunAllRunsUntilNothingWaits) {
  dispatch.globalAsync(
      [this] { dispatch.mainAsync([this] { dispatch.globalAsync(note("deep")); }); });
  dispatch.mainAsync(note("main"));

  dispatch.runAll();

  EXPECT_THAT(ran, ElementsAre("main", "deep"));
  EXPECT_EQ(0u, dispatch.mainCount());
  EXPECT_EQ(0u, dispatch.globalCount());
}

TEST_F(FakeDispatchTest, MainSyncRunsWhatWaitsOnMainFirst) {
  dispatch.mainAsync(note("waiting"));
  dispatch.globalAsync([this] { dispatch.mainSync(note("of a global task")); });

  dispatch.mainSync(note("of the test"));
  dispatch.mainAsync(note("waiting again"));
  dispatch.runGlobal();

  EXPECT_THAT(ran, ElementsAre("waiting", "of the test", "waiting again", "of a global task"));
}

TEST_F(FakeDispatchTest, MainSyncOnTheMainThreadRunsDirectly) {
  const auto nest = [this] { dispatch.mainSync(note("nested")); };
  const std::function<void()> waysToMain[] = {
      [&] {
        dispatch.mainAsync(nest);
        dispatch.mainAsync(note("waiting"));
        dispatch.runNextMain();
      },
      [&] {
        dispatch.mainSync([&] {
          dispatch.mainAsync(note("waiting"));
          nest();
        });
      },
      [&] {
        dispatch.mainAsync(note("waiting"));
        dispatch.asMain(nest);
      },
  };
  for (const auto& way : waysToMain) {
    ran.clear();

    way();
    EXPECT_THAT(ran, ElementsAre("nested"));
    dispatch.runMain();

    EXPECT_THAT(ran, ElementsAre("nested", "waiting"));
  }
}

TEST_F(FakeDispatchTest, ATaskThatThrowsLeavesTheMainThread) {
  dispatch.mainAsync([] { throw std::runtime_error("failed"); });
  EXPECT_THROW(dispatch.runMain(), std::runtime_error);
  dispatch.mainAsync(note("waiting"));

  dispatch.mainSync(note("sync"));

  EXPECT_THAT(ran, ElementsAre("waiting", "sync"));
}

TEST_F(FakeDispatchTest, ForgetsWhatWaitsAndWhatDroppedTasksAddAsTheyGo) {
  const auto addAsItGoes = [this](int*) { dispatch.mainAsync(note("added")); };
  dispatch.mainAsync(note("main"));
  dispatch.globalAsync([held = std::shared_ptr<int>(nullptr, addAsItGoes)] {});

  dispatch.dropAll();
  dispatch.runAll();

  EXPECT_THAT(ran, IsEmpty());
}

class FakeHttpTest : public testing::Test {
 protected:
  void send(const std::string& url) {
    http.upload(HttpRequest{"POST", url, {{"Name", "value"}}, "body of " + url},
                [this](HttpReply reply) { replies.push_back(std::move(reply)); });
  }

  FakeDispatch dispatch;
  FakeHttp http{dispatch};
  std::vector<HttpReply> replies;
};

TEST_F(FakeHttpTest, ACompletionMayMakeTheNextRequestAndIsReleased) {
  const auto held = std::make_shared<int>(1);
  http.upload(HttpRequest{}, [this, held](HttpReply) { send("https://b/"); });

  http.reply(0, "");

  EXPECT_THAT(http.requests(), SizeIs(2));
  EXPECT_EQ(1u, http.outstanding());
  EXPECT_EQ(1, held.use_count());
}

TEST_F(FakeHttpTest, AnswersOnlyWhatIsOutstanding) {
  EXPECT_THROW(http.reply(0, "never made"), std::logic_error);
  send("https://a/");
  http.reply(0, "first");

  EXPECT_THROW(http.reply(0, "second"), std::logic_error);
  EXPECT_THROW(http.fail(0, -1), std::logic_error);
  EXPECT_THAT(replies, SizeIs(1));

  send("https://b/");
  http.forgetOutstanding();

  EXPECT_THROW(http.reply(1, "late"), std::logic_error);
  EXPECT_EQ(0u, http.outstanding());
  EXPECT_THAT(http.requests(), SizeIs(2));
}

TEST_F(FakeHttpTest, AnswersLaterRequestsForAlwaysOnTheGlobalQueue) {
  send("https://before/");
  http.always([](const HttpRequest& request) { return okReply("to " + request.url); });

  send("https://a/");

  EXPECT_THAT(replies, IsEmpty());
  EXPECT_EQ(1u, dispatch.globalCount());
  dispatch.runGlobal();
  ASSERT_THAT(replies, SizeIs(1));
  EXPECT_EQ("to https://a/", replies[0].body);
  EXPECT_EQ(200, replies[0].response->statusCode);
  EXPECT_EQ("https://a/", replies[0].response->url);
  EXPECT_EQ(1u, http.outstanding());
}

TEST_F(FakeHttpTest, LeavesARequestWaitingForWhichNothingIsSaid) {
  http.always([](const HttpRequest&) { return std::nullopt; });
  send("https://a/");
  http.always(nullptr);
  send("https://b/");

  dispatch.runAll();

  EXPECT_THAT(replies, IsEmpty());
  EXPECT_EQ(2u, http.outstanding());
}

TEST_F(FakeHttpTest, AnAnswerOfTheTestGoesBeforeTheOneForAlways) {
  http.always([](const HttpRequest&) { return okReply("always"); });
  send("https://a/");

  http.reply(0, "by hand");
  dispatch.runAll();

  ASSERT_THAT(replies, SizeIs(1));
  EXPECT_EQ("by hand", replies[0].body);
}

TEST(FakeFilesTest, EnumeratesAFolderBeforeItsContentsInOrderOfName) {
  FakeFiles files;
  for (const char* path :
       {"/root/b/inner", "/root/b/a", "/root/b.txt", "/root/a", "/root/.hidden", "/rooted"}) {
    files.put(path, "");
  }
  files.makeFolder("/root/c");
  std::vector<std::string> visited;

  files.enumerate("/root", [&](const std::string& path) { visited.push_back(path); });

  EXPECT_THAT(visited, ElementsAre(".hidden", "a", "b", "b/a", "b/inner", "b.txt", "c"));
}

TEST(FakeFilesTest, DoesNotVisitWhatAVisitRemoves) {
  FakeFiles files;
  files.put("/root/a/inner", "");
  files.put("/root/b", "");
  files.put("/root/c", "");
  std::vector<std::string> visited;

  files.enumerate("/root", [&](const std::string& path) {
    visited.push_back(path);
    files.remove("/root/" + path, nullptr);
    files.remove("/root/b", nullptr);
  });

  EXPECT_THAT(visited, ElementsAre("a", "c"));
}

TEST(FakeBackgroundTasksTest, TellsAsTheMainThread) {
  FakeDispatch dispatch;
  FakeBackgroundTasks tasks{dispatch};
  std::vector<std::string> ran;
  dispatch.mainAsync([&] { ran.push_back("waiting"); });
  tasks.begin([&] { dispatch.mainSync([&] { ran.push_back("expired"); }); });

  tasks.expire(1);

  EXPECT_THAT(ran, ElementsAre("expired"));
}

class FakeEnvironmentTest : public testing::Test {
 protected:
  struct Observer {
    void hear() { told(); }
    std::function<void()> told;
  };

  void observe(Notification notification, std::function<void()> told) {
    observers.push_back(std::make_shared<Observer>(Observer{std::move(told)}));
    env.environment().notificationCenter.addObserver(observers.back(), notification,
                                                     &Observer::hear);
  }

  FakeEnvironment env;
  std::vector<std::shared_ptr<Observer>> observers;
};

TEST_F(FakeEnvironmentTest, EachCallOfItsApplicationAnnouncesItsEventAlsoInTheNextProcess) {
  std::vector<std::string> heard;
  const auto note = [&](const char* name) { return [&heard, name] { heard.push_back(name); }; };
  env.endProcess();
  observe(Notification::applicationWillResignActive, note("resign"));
  observe(Notification::applicationDidBecomeActive, note("active"));
  observe(Notification::applicationDidEnterBackground, note("background"));
  observe(Notification::applicationWillEnterForeground, note("foreground"));
  observe(Notification::applicationWillTerminate, note("terminate"));

  env.app.resignActive();
  env.app.enterBackground();
  env.app.enterForeground();
  env.app.becomeActive();
  env.app.terminate();

  EXPECT_THAT(heard, ElementsAre("resign", "background", "foreground", "active", "terminate"));
}

TEST_F(FakeEnvironmentTest, ItsApplicationAnnouncesAsTheMainThread) {
  std::vector<std::string> ran;
  env.dispatch.mainAsync([&] { ran.push_back("waiting"); });
  observe(Notification::applicationDidBecomeActive,
          [&] { env.dispatch.mainSync([&] { ran.push_back("told"); }); });

  env.app.becomeActive();

  EXPECT_THAT(ran, ElementsAre("told"));
}

TEST_F(FakeEnvironmentTest, ItsJournalHasTheCallsSinceItsBeginningInOrder) {
  Environment& machine = env.environment();
  machine.userDefaults.synchronize();
  env.journal.begin();

  machine.clock.sleep(2);
  machine.dispatch.mainAsync([] {});
  machine.dispatch.mainSync([] {});
  machine.dispatch.globalAsync([] {});
  machine.http.upload(HttpRequest{"POST", "https://a/", {}, ""}, [](HttpReply) {});
  machine.files.exists("/a/b");
  machine.files.createDirectory("/a/b", nullptr);
  machine.files.excludeFromBackup("/a/b", nullptr);
  machine.files.atomicFile("/a/b/file", "")->replace("bytes", {}, nullptr);
  machine.files.read("/a/b/file", 5, nullptr);
  machine.files.remove("/a/b/file", nullptr);
  machine.userDefaults.get("key", nullptr);
  machine.userDefaults.set("key", "value");
  machine.userDefaults.synchronize();
  machine.backgroundTasks.begin([] {});
  machine.backgroundTasks.remaining();
  machine.backgroundTasks.end(1);
  machine.logSink.write("line");

  EXPECT_THAT(env.journal.take(),
              ElementsAre("sleep 2", "main async", "main sync", "global async",
                          "request https://a/", "exists /a/b", "create /a/b", "exclude /a/b",
                          "write /a/b/file", "read /a/b/file", "remove /a/b/file", "get key",
                          "set key", "synchronize", "begin 1", "remaining", "end 1", "log: line"));
  EXPECT_THAT(env.journal.take(), IsEmpty());
}

TEST_F(FakeEnvironmentTest, ItsJournalActsOnceInsideACall) {
  std::vector<std::string> linesAtThatMoment;
  env.journal.when("log: b", [&] {
    env.log.write("b again");
    linesAtThatMoment = env.log.lines();
  });
  env.journal.when("never", [] {});

  for (const char* line : {"a", "b", "b"}) env.log.write(line);

  EXPECT_THAT(linesAtThatMoment, ElementsAre("a", "b", "b again"));
  EXPECT_THAT(env.log.lines(), ElementsAre("a", "b", "b again", "b"));
  EXPECT_THAT(env.journal.dropHooks(), ElementsAre("never"));
}

TEST_F(FakeEnvironmentTest, WhatDiesWithAProcessIsGoneWhenItEnds) {
  bool ran = false;
  observe(Notification::applicationDidBecomeActive, [&] { ran = true; });
  env.dispatch.mainAsync([&] { ran = true; });
  env.dispatch.globalAsync([&] { ran = true; });
  env.http.upload(HttpRequest{}, [&](HttpReply) { ran = true; });
  env.backgroundTasks.begin([&] { ran = true; });

  env.endProcess();
  env.dispatch.runAll();
  env.app.becomeActive();
  env.backgroundTasks.expire(1);

  EXPECT_FALSE(ran);
  EXPECT_EQ(0u, env.http.outstanding());
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(FakeEnvironmentTest, TheInstallationAndTheRecordsOutliveAProcess) {
  env.clock.advance(10);
  env.files.put("/a/file", "bytes");
  env.defaults.set("key", "value");
  env.log.write("line");
  env.uuids.next();
  env.http.upload(HttpRequest{}, [](HttpReply) {});

  env.endProcess();

  EXPECT_EQ(Date{1700000010}, env.clock.now());
  EXPECT_EQ("bytes", env.files.contents("/a/file"));
  EXPECT_EQ(Value("value"), env.defaults.get("key", nullptr));
  EXPECT_THAT(env.log.lines(), ElementsAre("line"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", env.uuids.next());
  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

}  // namespace
}  // namespace zln
