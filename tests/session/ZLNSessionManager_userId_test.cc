#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "reports/ZLNReportBase.h"
#include "session/ZLNSessionManager.h"
#include "support/ZLNDirectories.h"
#include "tests/support/host_fixture.h"
#include "tests/support/sent_reports.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kUserIdKey[] = "com.zelnor.sessionUserId";

class ZLNSessionManagerUserIdTest : public HostTest {
 protected:
  void SetUp() override { ZLNDirectories::makeDirectories(); }

  static Value userId() { return ZLNSessionManager::sharedManager()->sessionUserId(); }
};

TEST_F(ZLNSessionManagerUserIdTest, TheFirstRunMakesAnIdentifierForThisAndTheNextProcesses) {
  setLevel(5);
  for (int process = 0; process < 2; ++process) {
    EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), userId());

    EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), env.defaults.get(kUserIdKey, nullptr));
    EXPECT_THAT(env.defaults.values(), SizeIs(1));
    EXPECT_THAT(env.uuids.issued(), SizeIs(1));
    EXPECT_EQ(1u, env.defaults.syncCount());
    expectLines({});

    restart();
  }
}

TEST_F(ZLNSessionManagerUserIdTest, ADeletedIdentifierIsReplacedInTheNextProcess) {
  userId();

  env.defaults.erase(kUserIdKey);

  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), userId());
  EXPECT_EQ(std::nullopt, env.defaults.get(kUserIdKey, nullptr));

  restart();

  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000002"), userId());
  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000002"), env.defaults.get(kUserIdKey, nullptr));
}

TEST_F(ZLNSessionManagerUserIdTest, AStoredIdentifierIsTakenAsItIs) {
  for (const Value& stored :
       {Value("anything"), Value(""), Value(Number::int32(42)), Value(Array{Value("a")})}) {
    SCOPED_TRACE(stored.description());
    env.defaults.set(kUserIdKey, stored);

    restart();

    EXPECT_EQ(stored, userId());
    EXPECT_EQ(stored, env.defaults.get(kUserIdKey, nullptr));
  }
  EXPECT_THAT(env.uuids.issued(), IsEmpty());
  EXPECT_EQ(0u, env.defaults.syncCount());
}

TEST_F(ZLNSessionManagerUserIdTest, AStoreThatCannotBeReadIsLoggedOnce) {
  env.defaults.failReads(Error{kCocoaErrorDomain, 256, "The file couldn’t be opened.", {}});

  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), userId());
  env.dispatch.runMain();

  expectLines(
      {"unable to read user defaults: Error Domain=NSCocoaErrorDomain Code=256 \"The file "
       "couldn’t be opened.\" UserInfo={NSLocalizedDescription=The file couldn’t be "
       "opened.}"});
}

TEST_F(ZLNSessionManagerUserIdTest, ReportsCarryTheIdentifierAsItIs) {
  env.http.always([](const HttpRequest&) { return okReply("{\"success\":true}"); });
  for (const Value& stored : {Value("U"), Value(Number::int32(42))}) {
    env.defaults.set(kUserIdKey, stored);
    restart();
    ZLNSessionManager::sharedManager();

    env.dispatch.runAll();

    const Dictionary sent = sentReports(env.http).back().body;
    EXPECT_EQ(stored.description(), sent.find("userId")->description());
  }
}

TEST_F(ZLNSessionManagerUserIdTest, AReportBringsTheManagerAndASessionToLife) {
  const auto report = ZLNReportBase::initWithURLString("https://example.invalid/session");

  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), report->userId());
  EXPECT_EQ(1u, env.dispatch.mainCount());

  env.dispatch.runMain();

  EXPECT_NE(nullptr, ZLNSessionManager::sharedManager()->session());
}

TEST_F(ZLNSessionManagerUserIdTest, ThreadsThatAskAtTheSameTimeGetOneManagerAndOneIdentifier) {
  std::latch ready(4);
  std::array<std::shared_ptr<ZLNSessionManager>, 4> managers;
  std::vector<std::thread> threads;

  for (auto& manager : managers) {
    threads.emplace_back([&] {
      ready.arrive_and_wait();
      manager = ZLNSessionManager::sharedManager();
    });
  }
  for (std::thread& thread : threads) thread.join();

  for (const auto& manager : managers) EXPECT_EQ(managers[0], manager);
  EXPECT_THAT(env.uuids.issued(), SizeIs(1));
  EXPECT_EQ(1u, env.dispatch.mainCount());
}

}  // namespace
}  // namespace zln
