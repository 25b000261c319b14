#include "tests/support/host_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace zln {
namespace {

using testing::ElementsAre;

class HostTestTest : public HostTest {
 protected:
  // Writes the log level of the process that it dies in.
  struct LastWords {
    ~LastWords() {
      const auto level = processState().currentLogLevel.get();
      environment().logSink.write("gone at level " + std::to_string(level));
    }
  };
};

TEST_F(HostTestTest, TheProcessRunsOnTheFakes) { EXPECT_EQ(&env.environment(), &environment()); }

TEST_F(HostTestTest, EachProcessBeginsWithAStateOfItsOwn) {
  setLevel(5);
  processState().enabled.set(true);

  restart();

  EXPECT_EQ(0u, processState().currentLogLevel.get());
  EXPECT_FALSE(processState().enabled.get());
}

TEST_F(HostTestTest, SetsTheLogLevel) {
  setLevel(3);

  EXPECT_EQ(3u, processState().currentLogLevel.get());
}

TEST_F(HostTestTest, TheLogIsThatOfTheEnvironment) {
  environment().logSink.write("line");

  EXPECT_THAT(log().lines(), ElementsAre("line"));
}

TEST_F(HostTestTest, TheInstallationOutlivesAProcess) {
  env.files.put("/support/file", "bytes");
  env.defaults.set("key", "value");

  restart();

  EXPECT_EQ("bytes", environment().files.read("/support/file", 1024));
  EXPECT_EQ(Value("value"), environment().userDefaults.get("key"));
}

TEST_F(HostTestTest, WhatWaitsDiesWithItsProcess) {
  bool ran = false;
  environment().dispatch.mainAsync([&] { ran = true; });
  environment().http.upload(HttpRequest{}, [&](HttpReply) { ran = true; });

  restart();
  env.dispatch.runAll();

  EXPECT_FALSE(ran);
  EXPECT_EQ(0u, env.http.outstanding());
}

TEST_F(HostTestTest, ASharedObjectDiesWhileItsProcessStillAnswers) {
  setLevel(4);
  processState().config.get(
      [] { return std::shared_ptr<ZLNReportingConfig>(std::make_shared<LastWords>(), nullptr); });

  restart();

  EXPECT_THAT(log().lines(), ElementsAre("gone at level 4"));
}

TEST_F(HostTestTest, AWaitingTaskDiesWhileItsProcessStillAnswers) {
  setLevel(2);
  environment().dispatch.globalAsync([words = std::make_shared<LastWords>()] {});

  restart();

  EXPECT_THAT(log().lines(), ElementsAre("gone at level 2"));
}

TEST_F(HostTestTest, WhatADyingObjectPostsDoesNotReachTheNextProcess) {
  bool ran = false;
  const auto postAsItGoes = [&](int*) { environment().dispatch.mainAsync([&] { ran = true; }); };
  processState().config.get([&] {
    const std::shared_ptr<int> dying(nullptr, postAsItGoes);
    return std::shared_ptr<ZLNReportingConfig>(dying, nullptr);
  });

  restart();
  env.dispatch.runAll();

  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace zln
