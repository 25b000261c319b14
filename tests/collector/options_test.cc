#include "collector/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using nlohmann::json;
using testing::HasSubstr;

Options parse(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "zln-collector");
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return parseOptions(static_cast<int>(arguments.size()), argv.data());
}

std::string complaintAbout(std::vector<std::string> arguments) {
  try {
    parse(std::move(arguments));
    return "";
  } catch (const std::invalid_argument& failure) {
    return failure.what();
  }
}

std::string fileWith(const TemporaryFolder& folder, const char* content) {
  const std::string path = folder.path() + "/settings.json";
  std::ofstream(path) << content;
  return path;
}

TEST(OptionsTest, HaveDefaults) {
  Options options = parse({});

  EXPECT_FALSE(options.help);
  EXPECT_EQ(8443, options.port);
  EXPECT_EQ("zln-collector-data", options.data);
  EXPECT_EQ(json::object(), options.settings.current());
}

TEST(OptionsTest, TakeHelpPortAndFolder) {
  const Options options = parse({"--help", "--port", "0", "--data", "/somewhere"});

  EXPECT_TRUE(options.help);
  EXPECT_EQ(0, options.port);
  EXPECT_EQ("/somewhere", options.data);
}

TEST(OptionsTest, TakeRules) {
  Options options = parse({"--reject", "Grumble", "--fail", "a=b=1"});

  EXPECT_EQ(true, options.rules.replyTo({{"network", "Grumble"}})["errorIsPermanent"]);
  EXPECT_EQ(false, options.rules.replyTo({{"network", "a=b"}})["success"]);
  EXPECT_EQ(true, options.rules.replyTo({{"network", "a=b"}})["success"]);
}

TEST(OptionsTest, TakeSettingsFromAFile) {
  const TemporaryFolder folder;

  Options options = parse({"--settings", fileWith(folder, R"({"key":3600})")});

  EXPECT_EQ(json({{"key", 3600}}), options.settings.current());
}

TEST(OptionsTest, RefuseSettingsThatAreNoObject) {
  const TemporaryFolder folder;

  EXPECT_THAT(complaintAbout({"--settings", fileWith(folder, "[1]")}), HasSubstr("no JSON object"));
  EXPECT_THAT(complaintAbout({"--settings", fileWith(folder, "{")}), HasSubstr("no JSON object"));
  EXPECT_THAT(complaintAbout({"--settings", folder.path() + "/missing"}), HasSubstr("cannot read"));
}

TEST(OptionsTest, RefuseWhatIsNoPort) {
  const std::string complaint = "--port must be a number from 0 to 65535, not ";

  EXPECT_EQ(complaint + "\"65536\"", complaintAbout({"--port", "65536"}));
  EXPECT_EQ(complaint + "\"-1\"", complaintAbout({"--port", "-1"}));
  EXPECT_EQ(complaint + "\"80x\"", complaintAbout({"--port", "80x"}));
  EXPECT_EQ(complaint + "\"\"", complaintAbout({"--port", ""}));
}

TEST(OptionsTest, RefuseFailuresWithoutNetworkOrCount) {
  EXPECT_EQ("--fail takes NETWORK=COUNT, not \"Flicker\"", complaintAbout({"--fail", "Flicker"}));
  EXPECT_EQ("--fail takes NETWORK=COUNT, not \"=1\"", complaintAbout({"--fail", "=1"}));
  EXPECT_THAT(complaintAbout({"--fail", "Flicker="}), HasSubstr("the count of --fail"));
}

TEST(OptionsTest, RefuseWhatTheyDoNotKnow) {
  EXPECT_EQ("what is \"more\"?", complaintAbout({"more"}));
  EXPECT_EQ("--help shows the options", complaintAbout({"--unknown"}));
}

}  // namespace
}  // namespace zln::collector
