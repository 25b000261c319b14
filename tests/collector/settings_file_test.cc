#include "collector/settings_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/collector/json_text.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

class SettingsFileTest : public testing::Test {
 protected:
  std::string path() const { return folder_.path() + "/settings.json"; }

  void write(const char* content) const { std::ofstream(path()) << content; }

  const TemporaryFolder folder_;
};

TEST_F(SettingsFileTest, HoldsNoneWithoutAFile) {
  SettingsFile settings;

  EXPECT_EQ("{}", textOf(settings.current()));
}

// Nothing that is handed out is too deep to be written.
TEST_F(SettingsFileTest, HoldsNoObjectThatIsTooDeep) {
  write((R"({"key":)" + std::string(1000, '[') + std::string(1000, ']') + "}").c_str());

  EXPECT_THROW(SettingsFile{path()}, std::invalid_argument);
}

TEST_F(SettingsFileTest, FollowsItsFile) {
  write(R"({"key":1})");
  SettingsFile settings(path());

  write(R"({"key":2})");

  EXPECT_EQ(R"({"key":2})", textOf(settings.current()));
}

TEST_F(SettingsFileTest, KeepsTheLastSettingsOfABrokenFile) {
  write(R"({"key":1})");
  SettingsFile settings(path());

  write(R"({"key")");
  EXPECT_EQ(R"({"key":1})", textOf(settings.current()));

  std::filesystem::remove(path());
  EXPECT_EQ(R"({"key":1})", textOf(settings.current()));

  std::filesystem::create_directory(path());
  EXPECT_EQ(R"({"key":1})", textOf(settings.current()));
}

TEST_F(SettingsFileTest, RefusesToBeginWithABrokenFile) {
  EXPECT_THROW(SettingsFile{path()}, std::invalid_argument);
  EXPECT_THROW(SettingsFile{folder_.path()}, std::invalid_argument);
  write("[1]");
  EXPECT_THROW(SettingsFile{path()}, std::invalid_argument);
}

}  // namespace
}  // namespace zln::collector
