#include "platform/posix/application_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(ApplicationInfoTest, NothingIsKnownAtFirst) {
  const ApplicationInfo info;

  EXPECT_EQ(std::nullopt, info.bundleIdentifier());
  EXPECT_EQ(std::nullopt, info.shortVersion());
}

TEST(ApplicationInfoTest, WhatWasSetLastIsKnown) {
  ApplicationInfo info;
  info.set("com.example.old", "1.0");

  info.set("com.example.game", std::nullopt);

  EXPECT_EQ("com.example.game", info.bundleIdentifier());
  EXPECT_EQ(std::nullopt, info.shortVersion());
}

TEST(ApplicationInfoTest, TheIdentifierNamesTheFolder) {
  ApplicationInfo info;
  info.set("com.example.game", "1.2.3");

  EXPECT_EQ("com.example.game", info.folderName());
}

TEST(ApplicationInfoTest, TheProgramNamesTheFolderWhileThereIsNoIdentifier) {
  ApplicationInfo info;
  EXPECT_EQ(executableName(), info.folderName());

  info.set("", "1.2.3");

  EXPECT_EQ(executableName(), info.folderName());
}

TEST(ApplicationInfoTest, TheNameOfTheProgramHasNoFolder) {
  EXPECT_THAT(executableName(), testing::Not(testing::IsEmpty()));
  EXPECT_THAT(executableName(), testing::Not(testing::HasSubstr("/")));
}

TEST(ApplicationInfoTest, AProgramKeepsItsNameWhenItsFileIsDeleted) {
  EXPECT_EQ("my game", executableName("/opt/games/my game"));
  EXPECT_EQ("my game", executableName("/opt/games/my game (deleted)"));
}

struct Row {
  std::string identifier;
  std::optional<std::string> name;
};

class AsFileNameTest : public testing::TestWithParam<Row> {};

TEST_P(AsFileNameTest, AnIdentifierIsMadeSafeAsOneName) {
  EXPECT_EQ(GetParam().name, asFileName(GetParam().identifier));
}

INSTANTIATE_TEST_SUITE_P(
    Identifiers, AsFileNameTest,
    testing::Values(Row{"com.example.game", "com.example.game"}, Row{"", std::nullopt},
                    Row{".", "_"}, Row{"..", "__"}, Row{"...", "..."},
                    Row{"../../etc/passwd", ".._.._etc_passwd"}, Row{"/", "_"},
                    Row{std::string("a\0b", 3), "a_b"}, Row{".hidden", ".hidden"},
                    Row{"spiel für alle", "spiel für alle"},
                    Row{std::string(240, 'x'), std::string(240, 'x')},
                    Row{std::string(300, 'x'), std::string(240, 'x')},
                    Row{std::string(239, 'x') + "ü" + "yz", std::string(239, 'x')}));

}  // namespace
}  // namespace zln
