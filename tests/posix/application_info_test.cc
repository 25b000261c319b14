#include "platform/posix/application_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

namespace zln {
namespace {

TEST(ApplicationInfoTest, TheIdentifierNamesTheFolderOrElseTheProgram) {
  ApplicationInfo named;
  ApplicationInfo unnamed;
  named.set("com.example.game", "1.2.3");
  unnamed.set("", "1.2.3");

  EXPECT_EQ("com.example.game", named.folderName());
  EXPECT_EQ(executableName(), unnamed.folderName());
  EXPECT_EQ(executableName(), ApplicationInfo().folderName());
}

TEST(ApplicationInfoTest, TheFolderKeepsTheNameThatItHadFirst) {
  ApplicationInfo info;
  EXPECT_TRUE(info.set("com.example.first", std::nullopt));
  EXPECT_TRUE(info.set("com.example/game", std::nullopt));
  EXPECT_EQ("com.example_game", info.folderName());

  EXPECT_TRUE(info.set("com.example_game", "1.2.3"));
  EXPECT_FALSE(info.set("com.example.other", "1.2.3"));

  EXPECT_EQ("com.example_game", info.folderName());
  EXPECT_EQ("com.example.other", info.bundleIdentifier());
}

TEST(ApplicationInfoTest, TheNameOfTheProgramHasNoFolder) {
  EXPECT_THAT(executableName(), testing::Not(testing::IsEmpty()));
  EXPECT_THAT(executableName(), testing::Not(testing::HasSubstr("/")));
}

TEST(ApplicationInfoTest, AProgramKeepsItsNameWhenItsFileIsDeleted) {
  EXPECT_EQ("my game", executableName("/opt/games/my game"));
  EXPECT_EQ("my game", executableName("/opt/games/my game (deleted)"));
}

TEST(AsFileNameTest, AnIdentifierIsMadeSafeAsOneName) {
  const std::pair<std::string, std::optional<std::string>> rows[] = {
      {"com.example.game", "com.example.game"},
      {"", std::nullopt},
      {".", "_"},
      {"..", "__"},
      {"...", "..."},
      {"../../etc/passwd", ".._.._etc_passwd"},
      {"/", "_"},
      {std::string("a\0b", 3), "a_b"},
      {".hidden", ".hidden"},
      {"spiel für alle", "spiel für alle"},
      {std::string(240, 'x'), std::string(240, 'x')},
      {std::string(300, 'x'), std::string(240, 'x')},
      {std::string(239, 'x') + "ü" + "yz", std::string(239, 'x')},
  };
  for (const auto& [identifier, name] : rows) {
    EXPECT_EQ(name, asFileName(identifier)) << identifier;
  }
}

}  // namespace
}  // namespace zln
