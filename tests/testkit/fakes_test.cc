#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "testkit/fake_environment.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class FakeClockTest : public testing::Test {
 protected:
  // Schedules a call that notes its name and the time that the clock then shows.
  void noteAt(double secondsFromNow, const std::string& name) {
    clock.at(secondsFromNow, [this, name] {
      names.push_back(name);
      times.push_back(clock.now().secondsSince1970);
    });
  }

  FakeClock clock;
  std::vector<std::string> names;
  std::vector<double> times;
};

TEST_F(FakeClockTest, StandsStillAtItsFirstSecond) {
  EXPECT_EQ(Date{1700000000}, clock.now());
  EXPECT_EQ(Date{1700000000}, clock.now());
}

TEST_F(FakeClockTest, MovesOnAsToldTo) {
  clock.advance(600);
  clock.advance(0.5);

  EXPECT_EQ(Date{1700000600.5}, clock.now());
}

TEST_F(FakeClockTest, IsSetForwardAndBack) {
  clock.set(1800000000.25);

  EXPECT_EQ(Date{1800000000.25}, clock.now());

  clock.set(5);

  EXPECT_EQ(Date{5}, clock.now());
}

TEST_F(FakeClockTest, MovesOnFromWhereItWasSet) {
  clock.advance(0.1);
  clock.set(1000);

  clock.advance(60);

  EXPECT_EQ(Date{1060}, clock.now());
}

TEST_F(FakeClockTest, RunsNothingBeforeItsTime) {
  noteAt(10, "a");

  clock.advance(9.5);

  EXPECT_THAT(names, IsEmpty());
}

TEST_F(FakeClockTest, RunsWhatFallsDueInOrderOfTime) {
  noteAt(3, "third");
  noteAt(1, "first");
  noteAt(2, "second");

  clock.advance(3);

  EXPECT_THAT(names, ElementsAre("first", "second", "third"));
  EXPECT_THAT(times, ElementsAre(1700000001, 1700000002, 1700000003));
}

TEST_F(FakeClockTest, RunsWhatFallsDueTogetherInOrderOfScheduling) {
  noteAt(1, "a");
  noteAt(1, "b");
  noteAt(1, "c");

  clock.advance(1);

  EXPECT_THAT(names, ElementsAre("a", "b", "c"));
}

TEST_F(FakeClockTest, RunsEachCallOnce) {
  noteAt(1, "a");

  clock.advance(1);
  clock.advance(1);

  EXPECT_THAT(names, ElementsAre("a"));
}

TEST_F(FakeClockTest, RunsWhatACallSchedulesOnTheWay) {
  clock.at(1, [this] { noteAt(1, "in time"); });
  clock.at(1, [this] { noteAt(3, "too late"); });

  clock.advance(3);

  EXPECT_THAT(names, ElementsAre("in time"));
  EXPECT_THAT(times, ElementsAre(1700000002));
}

TEST_F(FakeClockTest, IsWhereItWasSentAfterTheCalls) {
  noteAt(0.1, "a");

  clock.advance(600);

  EXPECT_EQ(Date{1700000600}, clock.now());
}

TEST_F(FakeClockTest, ACallMaySleepPastTheEnd) {
  clock.at(1, [this] { clock.sleep(10); });
  noteAt(2, "meanwhile");

  clock.advance(3);

  EXPECT_EQ(Date{1700000011}, clock.now());
  EXPECT_THAT(names, ElementsAre("meanwhile"));
  EXPECT_THAT(times, ElementsAre(1700000002));
}

TEST_F(FakeClockTest, SettingItRunsNothing) {
  noteAt(10, "a");

  clock.set(1900000000);

  EXPECT_THAT(names, IsEmpty());
}

TEST_F(FakeClockTest, SettingItMovesNothingThatIsScheduled) {
  noteAt(10, "a");
  clock.set(1000);

  clock.advance(9);

  EXPECT_THAT(names, IsEmpty());

  clock.advance(1);

  EXPECT_THAT(names, ElementsAre("a"));
  EXPECT_THAT(times, ElementsAre(1010));
}

TEST_F(FakeClockTest, SchedulesByWhatPassesHoweverItWasSet) {
  clock.set(1000);
  noteAt(10, "a");

  clock.advance(10);

  EXPECT_THAT(names, ElementsAre("a"));
  EXPECT_THAT(times, ElementsAre(1010));
}

TEST_F(FakeClockTest, ACallMaySetTheClock) {
  clock.at(1, [this] { clock.set(50); });

  clock.advance(3);

  EXPECT_EQ(Date{52}, clock.now());
}

TEST_F(FakeClockTest, SleepingMovesOnAndRunsWhatFallsDue) {
  noteAt(1, "a");

  clock.sleep(1);

  EXPECT_EQ(Date{1700000001}, clock.now());
  EXPECT_THAT(names, ElementsAre("a"));
}

TEST_F(FakeClockTest, AddsUpTheSecondsSlept) {
  clock.sleep(1);
  clock.advance(100);
  clock.sleep(2);

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

TEST_F(FakeDispatchTest, RunsNothingByItself) {
  dispatch.mainAsync(note("main"));
  dispatch.globalAsync(note("global"));

  EXPECT_THAT(ran, IsEmpty());
  EXPECT_EQ(1u, dispatch.mainCount());
  EXPECT_EQ(1u, dispatch.globalCount());
}

TEST_F(FakeDispatchTest, RunsMainTasksInOrderAndNoOthers) {
  dispatch.mainAsync(note("a"));
  dispatch.globalAsync(note("global"));
  dispatch.mainAsync(note("b"));

  dispatch.runMain();

  EXPECT_THAT(ran, ElementsAre("a", "b"));
  EXPECT_EQ(1u, dispatch.globalCount());
}

TEST_F(FakeDispatchTest, RunsGlobalTasksInOrderAndNoOthers) {
  dispatch.globalAsync(note("a"));
  dispatch.mainAsync(note("main"));
  dispatch.globalAsync(note("b"));

  dispatch.runGlobal();

  EXPECT_THAT(ran, ElementsAre("a", "b"));
  EXPECT_EQ(1u, dispatch.mainCount());
}

TEST_F(FakeDispatchTest, RunsWhatTheTasksOfAQueueAddToIt) {
  dispatch.mainAsync([this] { dispatch.mainAsync(note("main")); });
  dispatch.globalAsync([this] { dispatch.globalAsync(note("global")); });

  dispatch.runMain();

  EXPECT_THAT(ran, ElementsAre("main"));

  dispatch.runGlobal();

  EXPECT_THAT(ran, ElementsAre("main", "global"));
}

TEST_F(FakeDispatchTest, AMainTaskAddedByAMainTaskRunsAfterIt) {
  dispatch.mainAsync([this] {
    dispatch.mainAsync(note("added"));
    ran.push_back("adding");
  });

  dispatch.runMain();

  EXPECT_THAT(ran, ElementsAre("adding", "added"));
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

TEST_F(FakeDispatchTest, RunsASingleTaskOfEachQueue) {
  dispatch.mainAsync(note("m1"));
  dispatch.mainAsync(note("m2"));
  dispatch.globalAsync(note("g1"));
  dispatch.globalAsync(note("g2"));

  EXPECT_TRUE(dispatch.runNextGlobal());
  EXPECT_TRUE(dispatch.runNextMain());

  EXPECT_THAT(ran, ElementsAre("g1", "m1"));
}

TEST_F(FakeDispatchTest, SaysWhenNoTaskWaits) {
  EXPECT_FALSE(dispatch.runNextMain());
  EXPECT_FALSE(dispatch.runNextGlobal());
}

TEST_F(FakeDispatchTest, MainSyncRunsWhatWaitsOnMainFirst) {
  dispatch.mainAsync(note("waiting"));
  dispatch.globalAsync(note("global"));

  dispatch.mainSync(note("sync"));

  EXPECT_THAT(ran, ElementsAre("waiting", "sync"));
}

TEST_F(FakeDispatchTest, MainSyncOfAGlobalTaskRunsWhatWaitsOnMainFirst) {
  dispatch.globalAsync([this] { dispatch.mainSync(note("sync")); });
  dispatch.mainAsync(note("waiting"));

  dispatch.runGlobal();

  EXPECT_THAT(ran, ElementsAre("waiting", "sync"));
}

TEST_F(FakeDispatchTest, MainSyncInsideAMainTaskRunsDirectly) {
  dispatch.mainAsync([this] { dispatch.mainSync(note("nested")); });
  dispatch.mainAsync(note("waiting"));

  dispatch.runMain();

  EXPECT_THAT(ran, ElementsAre("nested", "waiting"));
}

TEST_F(FakeDispatchTest, MainSyncInsideMainSyncRunsDirectly) {
  dispatch.mainSync([this] {
    dispatch.mainAsync(note("waiting"));
    dispatch.mainSync(note("nested"));
  });

  EXPECT_THAT(ran, ElementsAre("nested"));
}

TEST_F(FakeDispatchTest, MainSyncInsideACallAsMainRunsDirectly) {
  dispatch.mainAsync(note("waiting"));

  dispatch.asMain([this] { dispatch.mainSync(note("nested")); });

  EXPECT_THAT(ran, ElementsAre("nested"));
}

TEST_F(FakeDispatchTest, ATaskThatThrowsLeavesTheMainThread) {
  dispatch.mainAsync([] { throw std::runtime_error("failed"); });
  EXPECT_THROW(dispatch.runMain(), std::runtime_error);
  dispatch.mainAsync(note("waiting"));

  dispatch.mainSync(note("sync"));

  EXPECT_THAT(ran, ElementsAre("waiting", "sync"));
}

TEST_F(FakeDispatchTest, ForgetsWhatWaits) {
  dispatch.mainAsync(note("main"));
  dispatch.globalAsync(note("global"));

  dispatch.dropAll();
  dispatch.runAll();

  EXPECT_THAT(ran, IsEmpty());
}

TEST_F(FakeDispatchTest, ForgetsWhatDroppedTasksAddAsTheyGo) {
  const auto addAsItGoes = [this](int*) { dispatch.mainAsync(note("added")); };
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

TEST_F(FakeHttpTest, KeepsEveryRequest) {
  send("https://a/");
  send("https://b/");

  ASSERT_EQ(2u, http.requests().size());
  EXPECT_EQ("POST", http.requests()[0].method);
  EXPECT_EQ("https://a/", http.requests()[0].url);
  EXPECT_THAT(http.requests()[0].headers, ElementsAre(Pair("Name", "value")));
  EXPECT_EQ("body of https://a/", http.requests()[0].body);
  EXPECT_EQ("https://b/", http.requests()[1].url);
}

TEST_F(FakeHttpTest, AnswersNothingByItself) {
  send("https://a/");
  dispatch.runAll();

  EXPECT_THAT(replies, IsEmpty());
  EXPECT_EQ(1u, http.outstanding());
}

TEST_F(FakeHttpTest, AReplyIsTakenForASuccess) {
  send("https://a/");

  http.reply(0, "hello");

  ASSERT_EQ(1u, replies.size());
  EXPECT_EQ("hello", replies[0].body);
  EXPECT_EQ(200, replies[0].response->statusCode);
  EXPECT_EQ("https://a/", replies[0].response->url);
  EXPECT_EQ(std::nullopt, replies[0].error);
  EXPECT_EQ(0u, http.outstanding());
}

TEST_F(FakeHttpTest, AReplyMayHaveAnyStatus) {
  send("https://a/");

  http.reply(0, 503, "busy");

  ASSERT_EQ(1u, replies.size());
  EXPECT_EQ("busy", replies[0].body);
  EXPECT_EQ(503, replies[0].response->statusCode);
}

TEST_F(FakeHttpTest, FailsWithACodeOfTheTransport) {
  send("https://a/");

  http.fail(0, -1011);

  ASSERT_EQ(1u, replies.size());
  EXPECT_EQ("", replies[0].body);
  EXPECT_FALSE(replies[0].response.has_value());
  EXPECT_EQ((Error{"NSURLErrorDomain", -1011, std::nullopt, {}}), replies[0].error);
}

TEST_F(FakeHttpTest, FailsWithAnyError) {
  send("https://a/");

  http.fail(0, Error{"NSCocoaErrorDomain", 3072, "The operation was cancelled.", {}});

  ASSERT_EQ(1u, replies.size());
  EXPECT_EQ((Error{"NSCocoaErrorDomain", 3072, "The operation was cancelled.", {}}),
            replies[0].error);
}

TEST_F(FakeHttpTest, AnswersRequestsInWhateverOrder) {
  send("https://a/");
  send("https://b/");

  http.reply(1, "second");
  http.reply(0, "first");

  ASSERT_EQ(2u, replies.size());
  EXPECT_EQ("second", replies[0].body);
  EXPECT_EQ("https://b/", replies[0].response->url);
  EXPECT_EQ("first", replies[1].body);
}

TEST_F(FakeHttpTest, ACompletionMayMakeTheNextRequest) {
  http.upload(HttpRequest{"POST", "https://a/", {}, ""}, [this](HttpReply) { send("https://b/"); });

  http.reply(0, "");

  EXPECT_EQ(2u, http.requests().size());
  EXPECT_EQ(1u, http.outstanding());
}

TEST_F(FakeHttpTest, LetsGoOfACompletionThatHasRun) {
  const auto held = std::make_shared<int>(1);
  http.upload(HttpRequest{}, [held](HttpReply) {});

  http.reply(0, "");

  EXPECT_EQ(1, held.use_count());
}

TEST_F(FakeHttpTest, AnswersARequestOnlyOnce) {
  send("https://a/");
  http.reply(0, "first");

  EXPECT_THROW(http.reply(0, "second"), std::logic_error);
  EXPECT_THROW(http.fail(0, -1), std::logic_error);
  EXPECT_EQ(1u, replies.size());
}

TEST_F(FakeHttpTest, CannotAnswerARequestThatWasNeverMade) {
  EXPECT_THROW(http.reply(0, "body"), std::logic_error);
}

TEST_F(FakeHttpTest, AnswersForAlwaysOnTheGlobalQueue) {
  http.always([](const HttpRequest& request) { return okReply("to " + request.url); });

  send("https://a/");

  EXPECT_THAT(replies, IsEmpty());
  EXPECT_EQ(1u, dispatch.globalCount());

  dispatch.runGlobal();

  ASSERT_EQ(1u, replies.size());
  EXPECT_EQ("to https://a/", replies[0].body);
  EXPECT_EQ(200, replies[0].response->statusCode);
  EXPECT_EQ("https://a/", replies[0].response->url);
}

TEST_F(FakeHttpTest, LeavesARequestWaitingForWhichNothingIsSaid) {
  http.always([](const HttpRequest&) { return std::nullopt; });

  send("https://a/");
  dispatch.runAll();

  EXPECT_THAT(replies, IsEmpty());
  EXPECT_EQ(1u, http.outstanding());
}

TEST_F(FakeHttpTest, AnswersForAlwaysOnlyLaterRequests) {
  send("https://a/");

  http.always([](const HttpRequest&) { return okReply(""); });
  dispatch.runAll();

  EXPECT_EQ(1u, http.outstanding());
}

TEST_F(FakeHttpTest, StopsAnsweringForAlways) {
  http.always([](const HttpRequest&) { return okReply(""); });
  http.always(nullptr);

  send("https://a/");
  dispatch.runAll();

  EXPECT_EQ(1u, http.outstanding());
}

TEST_F(FakeHttpTest, AnAnswerOfTheTestGoesBeforeTheOneForAlways) {
  http.always([](const HttpRequest&) { return okReply("always"); });
  send("https://a/");

  http.reply(0, "by hand");
  dispatch.runAll();

  ASSERT_EQ(1u, replies.size());
  EXPECT_EQ("by hand", replies[0].body);
}

TEST_F(FakeHttpTest, ForgetsWhatIsOutstanding) {
  send("https://a/");

  http.forgetOutstanding();

  EXPECT_EQ(0u, http.outstanding());
  EXPECT_EQ(1u, http.requests().size());
  EXPECT_THROW(http.reply(0, "late"), std::logic_error);
}

class FakeFilesTest : public testing::Test {
 protected:
  std::vector<std::string> pathsBelow(const std::string& folder) {
    std::vector<std::string> paths;
    files.enumerate(folder, [&](const std::string& path) { paths.push_back(path); });
    return paths;
  }

  FakeFiles files;
  Error error;
};

TEST_F(FakeFilesTest, NamesAFolderThatIsNotThereYet) {
  EXPECT_EQ("/support", files.applicationSupportPath());
  EXPECT_FALSE(files.exists("/support"));
}

TEST_F(FakeFilesTest, AlwaysHasTheRoot) { EXPECT_TRUE(files.exists("/")); }

TEST_F(FakeFilesTest, CreatesAFolderAndAllAboveIt) {
  EXPECT_TRUE(files.createDirectory("/a/b/c", &error));

  EXPECT_TRUE(files.exists("/a"));
  EXPECT_TRUE(files.exists("/a/b"));
  EXPECT_TRUE(files.exists("/a/b/c"));
}

TEST_F(FakeFilesTest, CreatesAnExistingFolderWithSuccessAndKeepsItsContents) {
  files.put("/a/file", "bytes");

  EXPECT_TRUE(files.createDirectory("/a", &error));

  EXPECT_EQ("bytes", files.contents("/a/file"));
}

TEST_F(FakeFilesTest, CreatesNoFolderWhereAFileIs) {
  files.put("/a/file", "bytes");

  EXPECT_FALSE(files.createDirectory("/a/file", &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(516, error.code);
  EXPECT_EQ(
      "The file “file” couldn’t be saved in the folder “a” because a file with the same name "
      "already exists.",
      error.localizedDescription);
  EXPECT_EQ("bytes", files.contents("/a/file"));
}

TEST_F(FakeFilesTest, FailsToCreateTheFolderThatIsToFail) {
  files.failCreate("/a/b");

  EXPECT_FALSE(files.createDirectory("/a/b", &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(513, error.code);
  EXPECT_EQ("You don’t have permission to save the file “b” in the folder “a”.",
            error.localizedDescription);
  EXPECT_FALSE(files.exists("/a/b"));
}

TEST_F(FakeFilesTest, FailsToCreateAFolderBelowTheOneThatIsToFail) {
  files.failCreate("/a");

  EXPECT_FALSE(files.createDirectory("/a/b", nullptr));

  EXPECT_FALSE(files.exists("/a/b"));
}

TEST_F(FakeFilesTest, CreatesTheFolderThatIsToFailNoLonger) {
  files.failCreate("/a");
  files.failCreate("/a", false);

  EXPECT_TRUE(files.createDirectory("/a", nullptr));
}

TEST_F(FakeFilesTest, TakesPathsWithSpareSeparators) {
  files.put("/a//b/file", "bytes");

  EXPECT_TRUE(files.exists("/a/b/"));
  EXPECT_EQ("bytes", files.read("//a/b//file", 1024));
}

TEST_F(FakeFilesTest, EnumeratesAFolderBeforeItsContentsInOrderOfName) {
  files.put("/root/b/inner", "");
  files.put("/root/b/a", "");
  files.put("/root/b.txt", "");
  files.put("/root/a", "");
  files.put("/root/.hidden", "");
  files.put("/rooted", "");
  files.makeFolder("/root/c");

  EXPECT_THAT(pathsBelow("/root"),
              ElementsAre(".hidden", "a", "b", "b/a", "b/inner", "b.txt", "c"));
}

TEST_F(FakeFilesTest, EnumeratesNothingWhereNoFolderIs) {
  files.put("/a/file", "");

  EXPECT_THAT(pathsBelow("/missing"), IsEmpty());
  EXPECT_THAT(pathsBelow("/a/file"), IsEmpty());
}

TEST_F(FakeFilesTest, DoesNotEnterWhatAVisitRemoves) {
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

TEST_F(FakeFilesTest, RemovesAFile) {
  files.put("/a/file", "bytes");
  files.put("/a/file2", "bytes");

  EXPECT_TRUE(files.remove("/a/file", &error));

  EXPECT_FALSE(files.exists("/a/file"));
  EXPECT_TRUE(files.exists("/a/file2"));
  EXPECT_THAT(files.removed(), ElementsAre("/a/file"));
}

TEST_F(FakeFilesTest, RemovesAFolderWithItsContents) {
  files.put("/a/b/file", "bytes");
  files.put("/a/bc", "bytes");

  EXPECT_TRUE(files.remove("/a/b", &error));

  EXPECT_FALSE(files.exists("/a/b/file"));
  EXPECT_FALSE(files.exists("/a/b"));
  EXPECT_TRUE(files.exists("/a/bc"));
}

TEST_F(FakeFilesTest, RemovesNothingThatIsMissing) {
  EXPECT_FALSE(files.remove("/a/reportingreports.json", &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(4, error.code);
  EXPECT_EQ("“reportingreports.json” couldn’t be removed.", error.localizedDescription);
  EXPECT_THAT(
      error.userInfo,
      ElementsAre(
          Pair("NSUserStringVariant", "(\n    Remove\n)"),
          Pair("NSFilePath", "/a/reportingreports.json"),
          Pair(
              "NSUnderlyingError",
              "0x600003a1c2c0 {Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"}")));
  EXPECT_THAT(files.removed(), IsEmpty());
}

TEST_F(FakeFilesTest, FailsToRemoveWhatIsToFail) {
  files.put("/a/file", "bytes");
  files.failRemove("/a/file");

  EXPECT_FALSE(files.remove("/a/file", &error));

  EXPECT_EQ(513, error.code);
  EXPECT_EQ("“file” couldn’t be removed because you don’t have permission to access it.",
            error.localizedDescription);
  EXPECT_EQ("bytes", files.contents("/a/file"));
  EXPECT_THAT(files.removed(), IsEmpty());
}

TEST_F(FakeFilesTest, FailsToRemoveAFolderInWhichAnythingIsToFail) {
  files.put("/a/file", "bytes");
  files.put("/a/other", "bytes");
  files.failRemove("/a/file");

  EXPECT_FALSE(files.remove("/a", nullptr));

  EXPECT_TRUE(files.exists("/a/file"));
  EXPECT_TRUE(files.exists("/a/other"));
}

TEST_F(FakeFilesTest, RemovesAFolderInWhichWhatIsToFailIsMissing) {
  files.makeFolder("/a");
  files.failRemove("/a/file");

  EXPECT_TRUE(files.remove("/a", nullptr));
}

TEST_F(FakeFilesTest, DoesNotRemoveTheRoot) {
  files.put("/a/file", "bytes");

  EXPECT_FALSE(files.remove("/", &error));

  EXPECT_EQ(513, error.code);
  EXPECT_TRUE(files.exists("/a/file"));
}

TEST_F(FakeFilesTest, RemovesWhatIsToFailNoLonger) {
  files.put("/a/file", "bytes");
  files.failRemove("/a/file");
  files.failRemove("/a/file", false);

  EXPECT_TRUE(files.remove("/a/file", nullptr));
}

TEST_F(FakeFilesTest, ReadsWhatWasWritten) {
  files.makeFolder("/a");

  EXPECT_TRUE(files.writeAtomically("/a/file", std::string_view("one\0two", 7), &error));

  EXPECT_EQ(std::string("one\0two", 7), files.read("/a/file", 1024));
  EXPECT_EQ(std::string("one\0two", 7), files.contents("/a/file"));
}

TEST_F(FakeFilesTest, ReadsNothingWhereNoFileIs) {
  files.makeFolder("/a");

  EXPECT_EQ(std::nullopt, files.read("/missing", 1024));
  EXPECT_EQ(std::nullopt, files.read("/a", 1024));
}

TEST_F(FakeFilesTest, ReplacesTheOldContent) {
  files.put("/a/file", "a long old content");

  EXPECT_TRUE(files.writeAtomically("/a/file", "new", &error));

  EXPECT_EQ("new", files.read("/a/file", 1024));
}

TEST_F(FakeFilesTest, WritesOnlyIntoAFolder) {
  EXPECT_FALSE(files.writeAtomically("/missing/file", "bytes", &error));

  EXPECT_EQ(4, error.code);
  EXPECT_EQ("The folder “missing” doesn’t exist.", error.localizedDescription);
  EXPECT_FALSE(files.exists("/missing/file"));
}

TEST_F(FakeFilesTest, WritesOverNoFolder) {
  files.put("/a/b/file", "bytes");

  EXPECT_FALSE(files.writeAtomically("/a/b", "bytes", &error));

  EXPECT_EQ(512, error.code);
  EXPECT_EQ("The file “b” couldn’t be saved in the folder “a”.", error.localizedDescription);
  EXPECT_EQ("bytes", files.contents("/a/b/file"));
}

TEST_F(FakeFilesTest, KeepsTheOldContentWhenWritesFail) {
  files.put("/a/file", "old");
  files.failWrites();

  EXPECT_FALSE(files.writeAtomically("/a/file", "new", &error));

  EXPECT_EQ(513, error.code);
  EXPECT_EQ("You don’t have permission to save the file “file” in the folder “a”.",
            error.localizedDescription);
  EXPECT_EQ("old", files.read("/a/file", 1024));
}

TEST_F(FakeFilesTest, WritesAgainWhenWritesFailNoLonger) {
  files.makeFolder("/a");
  files.failWrites();
  files.failWrites(false);

  EXPECT_TRUE(files.writeAtomically("/a/file", "new", nullptr));
}

TEST_F(FakeFilesTest, CountsTheSuccessfulWritesOfEachFile) {
  files.put("/a/file", "by the test");
  files.writeAtomically("/a/file", "1", nullptr);
  files.writeAtomically("/a/file", "2", nullptr);
  files.writeAtomically("/a/other", "1", nullptr);
  files.failWrites();
  files.writeAtomically("/a/file", "3", nullptr);

  EXPECT_EQ(2u, files.writeCount("/a/file"));
  EXPECT_EQ(1u, files.writeCount("/a/other"));
  EXPECT_EQ(0u, files.writeCount("/a/none"));
}

TEST_F(FakeFilesTest, MarksWhatBackupsLeaveOut) {
  files.makeFolder("/a");

  EXPECT_TRUE(files.excludeFromBackup("/a/", &error));

  EXPECT_THAT(files.excluded(), ElementsAre("/a"));
}

TEST_F(FakeFilesTest, MarksNothingThatIsMissing) {
  EXPECT_FALSE(files.excludeFromBackup("/a", &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(4, error.code);
  EXPECT_EQ("The file “a” doesn’t exist.", error.localizedDescription);
  EXPECT_THAT(files.excluded(), IsEmpty());
}

TEST_F(FakeFilesTest, FailsToMarkWhatIsToFail) {
  files.makeFolder("/a");
  files.failExclude("/a");

  EXPECT_FALSE(files.excludeFromBackup("/a", &error));

  EXPECT_EQ(513, error.code);
  EXPECT_THAT(files.excluded(), IsEmpty());
}

TEST_F(FakeFilesTest, MarksWhatIsToFailNoLonger) {
  files.makeFolder("/a");
  files.failExclude("/a");
  files.failExclude("/a", false);

  EXPECT_TRUE(files.excludeFromBackup("/a", nullptr));
}

TEST_F(FakeFilesTest, TheMarkGoesWithTheItem) {
  files.put("/a/b/file", "");
  files.excludeFromBackup("/a", nullptr);
  files.excludeFromBackup("/a/b", nullptr);

  files.remove("/a/b", nullptr);

  EXPECT_THAT(files.excluded(), ElementsAre("/a"));
}

TEST_F(FakeFilesTest, AFileWrittenAnewHasLostItsMark) {
  files.put("/a/file", "old");
  files.excludeFromBackup("/a/file", nullptr);

  files.writeAtomically("/a/file", "new", nullptr);

  EXPECT_THAT(files.excluded(), IsEmpty());
}

TEST_F(FakeFilesTest, FailsAlsoWhenNobodyAsksForTheError) {
  EXPECT_FALSE(files.remove("/a", nullptr));
  EXPECT_FALSE(files.excludeFromBackup("/a", nullptr));
  EXPECT_FALSE(files.writeAtomically("/a/b", "", nullptr));
}

class FakeDefaultsTest : public testing::Test {
 protected:
  FakeDefaults defaults;
};

TEST_F(FakeDefaultsTest, HasNothingAtFirst) {
  EXPECT_EQ(std::nullopt, defaults.get("key"));
  EXPECT_TRUE(defaults.values().empty());
}

TEST_F(FakeDefaultsTest, GivesWhatWasSetLast) {
  defaults.set("key", "first");
  defaults.set("key", Number::int32(2));

  EXPECT_EQ(Value(Number::int32(2)), defaults.get("key"));
  EXPECT_EQ(1u, defaults.values().size());
}

TEST_F(FakeDefaultsTest, ErasesAKey) {
  defaults.set("key", "value");
  defaults.set("other", "value");

  defaults.erase("key");
  defaults.erase("missing");

  EXPECT_EQ(std::nullopt, defaults.get("key"));
  EXPECT_EQ(Value("value"), defaults.get("other"));
}

TEST_F(FakeDefaultsTest, CountsSynchronizations) {
  EXPECT_EQ(0u, defaults.syncCount());

  EXPECT_TRUE(defaults.synchronize());
  EXPECT_TRUE(defaults.synchronize());

  EXPECT_EQ(2u, defaults.syncCount());
}

class FakeDeviceTest : public testing::Test {
 protected:
  FakeDevice device;
};

TEST_F(FakeDeviceTest, SaysItsFacts) {
  EXPECT_EQ("iPhone14,5", device.machine());
  EXPECT_EQ("17.5.1", device.systemVersion());
  EXPECT_EQ("com.example.game", device.mainBundleValue("CFBundleIdentifier"));
  EXPECT_EQ("1.2.3", device.mainBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ("7.0.0", device.libraryBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ("DE", device.countryCode());
}

TEST_F(FakeDeviceTest, KnowsNoOtherKeys) {
  EXPECT_EQ(std::nullopt, device.mainBundleValue("CFBundleName"));
  EXPECT_EQ(std::nullopt, device.libraryBundleValue("CFBundleIdentifier"));
}

TEST_F(FakeDeviceTest, SaysWhatATestMakesItSay) {
  device.machineName = "x86_64";
  device.bundleIdentifier = std::nullopt;
  device.libraryVersion = "8";
  device.country = std::nullopt;

  EXPECT_EQ("x86_64", device.machine());
  EXPECT_EQ(std::nullopt, device.mainBundleValue("CFBundleIdentifier"));
  EXPECT_EQ("8", device.libraryBundleValue("CFBundleShortVersionString"));
  EXPECT_EQ(std::nullopt, device.countryCode());
}

class FakeBackgroundTasksTest : public testing::Test {
 protected:
  BackgroundTaskId begin() {
    return tasks.begin([this] { ++expirations; });
  }

  FakeDispatch dispatch;
  FakeBackgroundTasks tasks{dispatch};
  int expirations = 0;
};

TEST_F(FakeBackgroundTasksTest, OffersEverythingAndAllTheTimeAtFirst) {
  EXPECT_TRUE(tasks.offersMultitaskingSupport());
  EXPECT_TRUE(tasks.offersBegin());
  EXPECT_TRUE(tasks.offersEnd());
  EXPECT_EQ(DBL_MAX, tasks.remaining());
}

TEST_F(FakeBackgroundTasksTest, OffersWhatATestLeavesIt) {
  tasks.offersMultitasking = false;

  EXPECT_FALSE(tasks.offersMultitaskingSupport());
  EXPECT_TRUE(tasks.offersBegin());

  tasks.offersBeginTask = false;

  EXPECT_FALSE(tasks.offersBegin());
  EXPECT_TRUE(tasks.offersEnd());

  tasks.offersEndTask = false;

  EXPECT_FALSE(tasks.offersEnd());
}

TEST_F(FakeBackgroundTasksTest, HasTheTimeThatATestGivesIt) {
  tasks.remainingTime = 8;

  EXPECT_EQ(8, tasks.remaining());
}

TEST_F(FakeBackgroundTasksTest, CountsItsTasksUpFromOne) {
  EXPECT_EQ(1u, begin());
  EXPECT_EQ(2u, begin());
  EXPECT_EQ(2u, tasks.begun());
  EXPECT_THAT(tasks.open(), ElementsAre(1u, 2u));
}

TEST_F(FakeBackgroundTasksTest, ATaskIsOpenUntilItEnds) {
  begin();
  begin();

  tasks.end(1);

  EXPECT_THAT(tasks.open(), ElementsAre(2u));
  EXPECT_THAT(tasks.ended(), ElementsAre(1u));
}

TEST_F(FakeBackgroundTasksTest, NotesAlsoTheEndsThatItIgnores) {
  begin();

  tasks.end(1);
  tasks.end(1);
  tasks.end(kBackgroundTaskInvalid);

  EXPECT_THAT(tasks.ended(), ElementsAre(1u, 1u, 0u));
}

TEST_F(FakeBackgroundTasksTest, RefusesTheNextTaskOnly) {
  tasks.nextInvalid = true;

  EXPECT_EQ(kBackgroundTaskInvalid, begin());
  EXPECT_EQ(1u, begin());
  EXPECT_EQ(2u, tasks.begun());
  EXPECT_THAT(tasks.open(), ElementsAre(1u));
}

TEST_F(FakeBackgroundTasksTest, TellsATaskThatItsTimeIsUpAndLeavesItOpen) {
  begin();

  tasks.expire(1);

  EXPECT_EQ(1, expirations);
  EXPECT_THAT(tasks.open(), ElementsAre(1u));
}

TEST_F(FakeBackgroundTasksTest, ATaskMayEndInsideItsExpiration) {
  tasks.begin([this] { tasks.end(1); });

  tasks.expire(1);

  EXPECT_THAT(tasks.open(), IsEmpty());
}

TEST_F(FakeBackgroundTasksTest, TellsNothingToATaskThatHasEnded) {
  begin();
  tasks.end(1);

  tasks.expire(1);
  tasks.expire(7);

  EXPECT_EQ(0, expirations);
}

TEST_F(FakeBackgroundTasksTest, TellsAsTheMainThread) {
  std::vector<std::string> ran;
  dispatch.mainAsync([&] { ran.push_back("waiting"); });
  tasks.begin([&] { dispatch.mainSync([&] { ran.push_back("expired"); }); });

  tasks.expire(1);

  EXPECT_THAT(ran, ElementsAre("expired"));
}

TEST_F(FakeBackgroundTasksTest, ForgetsItsOpenTasks) {
  begin();

  tasks.forgetOpen();
  tasks.expire(1);

  EXPECT_THAT(tasks.open(), IsEmpty());
  EXPECT_EQ(0, expirations);
}

TEST(FakeUuidsTest, CountsUpInUpperCaseHexadecimal) {
  FakeUuids uuids;

  EXPECT_EQ("00000000-0000-4000-8000-000000000001", uuids.next());
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", uuids.next());
  for (int count = 3; count <= 25; ++count) uuids.next();
  EXPECT_EQ("00000000-0000-4000-8000-00000000001A", uuids.next());
}

TEST(FakeUuidsTest, KeepsWhatItGave) {
  FakeUuids uuids;
  uuids.next();
  uuids.next();

  EXPECT_THAT(uuids.issued(), ElementsAre("00000000-0000-4000-8000-000000000001",
                                          "00000000-0000-4000-8000-000000000002"));
}

TEST(FakeLogTest, KeepsTheLinesInOrder) {
  FakeLog log;

  log.write("first");
  log.write("second");

  EXPECT_THAT(log.lines(), ElementsAre("first", "second"));
}

TEST(FakeLogTest, FindsWholeLinesOnly) {
  FakeLog log;
  log.write("line");
  log.write("a longer line");
  log.write("line");

  EXPECT_TRUE(log.contains("line"));
  EXPECT_FALSE(log.contains("longer"));
  EXPECT_EQ(2u, log.count("line"));
  EXPECT_EQ(0u, log.count(""));
}

TEST(FakeLogTest, ForgetsItsLines) {
  FakeLog log;
  log.write("line");

  log.clear();

  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(FakeLogTest, ThreadsMayWriteAtTheSameTime) {
  FakeLog log;
  std::vector<std::thread> threads;

  for (const char* name : {"a", "b"}) {
    threads.emplace_back([&log, name] {
      for (int round = 0; round < 1000; ++round) log.write(name);
    });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(1000u, log.count("a"));
  EXPECT_EQ(1000u, log.count("b"));
}

class FakeAppTest : public testing::Test {
 protected:
  struct Observer {
    void hear() { told(); }
    std::function<void()> told;
  };

  std::shared_ptr<Observer> observe(Notification notification, std::function<void()> told) {
    auto observer = std::make_shared<Observer>();
    observer->told = std::move(told);
    center.addObserver(observer, notification, &Observer::hear);
    return observer;
  }

  FakeDispatch dispatch;
  NotificationCenter center;
  FakeApp app{center, dispatch};
};

TEST_F(FakeAppTest, EachCallAnnouncesItsEvent) {
  std::vector<std::string> heard;
  const auto note = [&](const char* name) { return [&heard, name] { heard.push_back(name); }; };
  const auto a = observe(Notification::applicationWillResignActive, note("resign"));
  const auto b = observe(Notification::applicationDidBecomeActive, note("active"));
  const auto c = observe(Notification::applicationDidEnterBackground, note("background"));
  const auto d = observe(Notification::applicationWillEnterForeground, note("foreground"));
  const auto e = observe(Notification::applicationWillTerminate, note("terminate"));

  app.resignActive();
  app.enterBackground();
  app.enterForeground();
  app.becomeActive();
  app.terminate();

  EXPECT_THAT(heard, ElementsAre("resign", "background", "foreground", "active", "terminate"));
}

TEST_F(FakeAppTest, AnnouncesAsTheMainThread) {
  std::vector<std::string> ran;
  dispatch.mainAsync([&] { ran.push_back("waiting"); });
  const auto observer = observe(Notification::applicationDidBecomeActive,
                                [&] { dispatch.mainSync([&] { ran.push_back("told"); }); });

  app.becomeActive();

  EXPECT_THAT(ran, ElementsAre("told"));
}

class FakeEnvironmentTest : public testing::Test {
 protected:
  struct Observer {
    void hear() { ++heard; }
    int heard = 0;
  };

  FakeEnvironment env;
};

TEST_F(FakeEnvironmentTest, RefersToEachOfItsFakes) {
  const Environment& environment = env.environment();

  EXPECT_EQ(&env.clock, &environment.clock);
  EXPECT_EQ(&env.dispatch, &environment.dispatch);
  EXPECT_EQ(&env.http, &environment.http);
  EXPECT_EQ(&env.files, &environment.files);
  EXPECT_EQ(&env.defaults, &environment.userDefaults);
  EXPECT_EQ(&env.device, &environment.deviceFacts);
  EXPECT_EQ(&env.backgroundTasks, &environment.backgroundTasks);
  EXPECT_EQ(&env.uuids, &environment.uuids);
  EXPECT_EQ(&env.log, &environment.logSink);
  EXPECT_EQ(&env.notificationCenter, &environment.notificationCenter);
}

TEST_F(FakeEnvironmentTest, ItsApplicationIsHeardInItsNotificationCenter) {
  const auto observer = std::make_shared<Observer>();
  env.environment().notificationCenter.addObserver(
      observer, Notification::applicationDidBecomeActive, &Observer::hear);

  env.app.becomeActive();

  EXPECT_EQ(1, observer->heard);
}

TEST_F(FakeEnvironmentTest, WhatDiesWithAProcessIsGoneWhenItEnds) {
  bool ran = false;
  const auto observer = std::make_shared<Observer>();
  env.notificationCenter.addObserver(observer, Notification::applicationDidBecomeActive,
                                     &Observer::hear);
  env.dispatch.mainAsync([&] { ran = true; });
  env.dispatch.globalAsync([&] { ran = true; });
  env.http.upload(HttpRequest{}, [&](HttpReply) { ran = true; });
  env.backgroundTasks.begin([&] { ran = true; });

  env.endProcess();
  env.dispatch.runAll();
  env.app.becomeActive();
  env.backgroundTasks.expire(1);

  EXPECT_FALSE(ran);
  EXPECT_EQ(0, observer->heard);
  EXPECT_EQ(0u, env.http.outstanding());
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(FakeEnvironmentTest, TheNextProcessIsHeardAgain) {
  env.endProcess();
  const auto observer = std::make_shared<Observer>();
  env.environment().notificationCenter.addObserver(
      observer, Notification::applicationDidBecomeActive, &Observer::hear);

  env.app.becomeActive();

  EXPECT_EQ(1, observer->heard);
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
  EXPECT_EQ(Value("value"), env.defaults.get("key"));
  EXPECT_THAT(env.log.lines(), ElementsAre("line"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", env.uuids.next());
  EXPECT_EQ(1u, env.http.requests().size());
}

}  // namespace
}  // namespace zln
