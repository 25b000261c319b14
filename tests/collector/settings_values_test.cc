#include "collector/settings_values.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/collector/shown.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

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

  EXPECT_EQ(R"({"lint":[],"source":"none","values":{}})", shown(settings).text());
}

TEST_F(SettingsValuesTest, FollowsItsFileUntilOthersAreSet) {
  SettingsValues settings{SettingsFile(fileWith(R"({"key":1})"))};
  EXPECT_EQ("file", shown(settings)["source"]);
  fileWith(R"({"key":2})");
  EXPECT_EQ(R"({"key":2})", currentOf(settings));

  set(settings, R"({"key":3})");
  fileWith(R"({"key":4})");

  EXPECT_EQ(R"({"key":3})", currentOf(settings));
  EXPECT_EQ("api", shown(settings)["source"]);
  settings.reset();
  EXPECT_EQ(R"({"key":4})", currentOf(settings));
}

TEST_F(SettingsValuesTest, TakesNoOtherThanObjectsOfABoundedSize) {
  SettingsValues settings{SettingsFile()};

  EXPECT_THROW(set(settings, "[1]"), std::invalid_argument);
  EXPECT_THROW(set(settings, R"({"key":")" + std::string(65536, 'a') + R"("})"),
               std::invalid_argument);
  EXPECT_EQ("{}", currentOf(settings));
}

TEST_F(SettingsValuesTest, SaysThatItsFileIsBroken) {
  SettingsValues settings{SettingsFile(fileWith("{}"))};
  fileWith("{");

  EXPECT_EQ("the settings file holds no JSON object now; what it held before is handed out",
            shown(settings)["lint/0/text"]);

  fileWith("{}");
  EXPECT_EQ("[]", shown(settings)["lint"]);
}

}  // namespace
}  // namespace zln::collector
