#include "platform/posix/process_environment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/posix/variable_lookup_in.h"
#include "tests/support/environment_variable.h"

namespace zln {
namespace {

TEST(ProcessEnvironmentTest, AnEmptyVariableIsAbsent) {
  const EnvironmentVariable variable("ZLN_TEST_VARIABLE", "value");
  const EnvironmentVariable empty("ZLN_TEST_EMPTY", "");

  EXPECT_EQ("value", environmentVariable("ZLN_TEST_VARIABLE"));
  EXPECT_EQ(std::nullopt, environmentVariable("ZLN_TEST_EMPTY"));
  EXPECT_EQ(std::nullopt, environmentVariable("ZLN_TEST_VARIABLE_THAT_NOBODY_SETS"));
}

TEST(ProcessEnvironmentTest, FoldersAreInTheHomeFolderOrWhereTheUserWantsThem) {
  const auto home = lookupIn({{"HOME", "/home/player"}});
  const auto absolute = lookupIn(
      {{"HOME", "/home/player"}, {"XDG_DATA_HOME", "/data"}, {"XDG_CONFIG_HOME", "/config"}});
  const auto relative = lookupIn(
      {{"HOME", "/home/player"}, {"XDG_DATA_HOME", "data"}, {"XDG_CONFIG_HOME", "./config"}});

  EXPECT_EQ("/home/player/.local/share", dataFolder(home));
  EXPECT_EQ("/home/player/.config", configFolder(home));
  EXPECT_EQ("/data", dataFolder(absolute));
  EXPECT_EQ("/config", configFolder(absolute));
  EXPECT_EQ("/home/player/.local/share", dataFolder(relative));
  EXPECT_EQ("/home/player/.config", configFolder(relative));
}

TEST(ProcessEnvironmentTest, WithoutHomeTheUserDatabaseNamesTheFolder) {
  EXPECT_THAT(homeFolder(lookupIn({})), testing::StartsWith("/"));
  EXPECT_EQ(homeFolder(lookupIn({})), homeFolder(lookupIn({{"HOME", "player"}})));
}

}  // namespace
}  // namespace zln
