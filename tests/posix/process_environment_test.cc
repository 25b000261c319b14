#include "platform/posix/process_environment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/posix/variable_lookup_in.h"
#include "tests/support/environment_variable.h"

namespace zln {
namespace {

TEST(ProcessEnvironmentTest, AVariableIsRead) {
  const EnvironmentVariable variable("ZLN_TEST_VARIABLE", "value");

  EXPECT_EQ("value", environmentVariable("ZLN_TEST_VARIABLE"));
}

TEST(ProcessEnvironmentTest, AnEmptyVariableIsAbsent) {
  const EnvironmentVariable variable("ZLN_TEST_VARIABLE", "");

  EXPECT_EQ(std::nullopt, environmentVariable("ZLN_TEST_VARIABLE"));
}

TEST(ProcessEnvironmentTest, AMissingVariableIsAbsent) {
  EXPECT_EQ(std::nullopt, environmentVariable("ZLN_TEST_VARIABLE_THAT_NOBODY_SETS"));
}

TEST(ProcessEnvironmentTest, FoldersLieInTheHomeFolder) {
  const auto variable = lookupIn({{"HOME", "/home/player"}});

  EXPECT_EQ("/home/player/.local/share", dataFolder(variable));
  EXPECT_EQ("/home/player/.config", configFolder(variable));
}

TEST(ProcessEnvironmentTest, FoldersLieWhereTheUserWantsThem) {
  const auto variable = lookupIn(
      {{"HOME", "/home/player"}, {"XDG_DATA_HOME", "/data"}, {"XDG_CONFIG_HOME", "/config"}});

  EXPECT_EQ("/data", dataFolder(variable));
  EXPECT_EQ("/config", configFolder(variable));
}

TEST(ProcessEnvironmentTest, AFolderThatIsNotAbsoluteDoesNotCount) {
  const auto variable = lookupIn(
      {{"HOME", "/home/player"}, {"XDG_DATA_HOME", "data"}, {"XDG_CONFIG_HOME", "./config"}});

  EXPECT_EQ("/home/player/.local/share", dataFolder(variable));
  EXPECT_EQ("/home/player/.config", configFolder(variable));
}

TEST(ProcessEnvironmentTest, WithoutHomeTheUserDatabaseNamesTheFolder) {
  EXPECT_THAT(homeFolder(lookupIn({})), testing::StartsWith("/"));
  EXPECT_EQ(homeFolder(lookupIn({})), homeFolder(lookupIn({{"HOME", "player"}})));
}

}  // namespace
}  // namespace zln
