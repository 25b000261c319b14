#include "collector/settings_values.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using nlohmann::json;

class SettingsValuesTest : public testing::Test {
 protected:
  std::string fileWith(const char* content) const {
    const std::string path = folder_.path() + "/settings.json";
    std::ofstream(path) << content;
    return path;
  }

  const TemporaryFolder folder_;
};

TEST_F(SettingsValuesTest, HasNoneAtFirst) {
  SettingsValues settings{SettingsFile()};

  EXPECT_EQ(json({{"values", json::object()}, {"source", "none"}, {"lint", json::array()}}),
            settings.describe());
}

TEST_F(SettingsValuesTest, FollowsItsFileUntilOthersAreSet) {
  SettingsValues settings{SettingsFile(fileWith(R"({"key":1})"))};
  EXPECT_EQ("file", settings.describe()["source"]);
  fileWith(R"({"key":2})");
  EXPECT_EQ(json({{"key", 2}}), settings.current());

  settings.set({{"key", 3}});
  fileWith(R"({"key":4})");

  EXPECT_EQ(json({{"key", 3}}), settings.current());
  EXPECT_EQ("api", settings.describe()["source"]);
  settings.reset();
  EXPECT_EQ(json({{"key", 4}}), settings.current());
}

TEST_F(SettingsValuesTest, TakesNoOtherThanObjectsOfABoundedSize) {
  SettingsValues settings{SettingsFile()};

  EXPECT_THROW(settings.set({1}), std::invalid_argument);
  EXPECT_THROW(settings.set({{"key", std::string(65536, 'a')}}), std::invalid_argument);
  EXPECT_EQ(json::object(), settings.current());
}

TEST_F(SettingsValuesTest, SaysThatItsFileIsBroken) {
  SettingsValues settings{SettingsFile(fileWith("{}"))};
  fileWith("{");

  EXPECT_EQ("the settings file holds no JSON object now; what it held before is handed out",
            settings.describe()["lint"][0]["text"]);

  fileWith("{}");
  EXPECT_EQ(json::array(), settings.describe()["lint"]);
}

}  // namespace
}  // namespace zln::collector
