#include "tests/host/stored_files.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <fstream>
#include <functional>
#include <ostream>

#include "tests/support/sanitizers.h"

namespace zln {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// Sanitizers need room of their own.
constexpr long kMostKilobytes = kSanitized ? 4000000 : 300000;

// The most memory that the process has had at once, in kilobytes.
long peakMemory(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
  }
  ADD_FAILURE() << "no peak memory";
  return 0;
}

constexpr std::size_t kMegabyte = 1000000;

using DoDamage = std::function<void(const std::string& path)>;

struct Damage {
  const char* name;
  DoDamage apply;
};

void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.name; }

DoDamage holds(const std::string& bytes) {
  return [=](const std::string& path) { writeFile(path, bytes); };
}

// After the head the piece again and again, up to this size or a little more.
DoDamage repeats(const std::string& piece, std::size_t size, const std::string& head = "") {
  return [=](const std::string& path) {
    std::string block;
    while (block.size() < kMegabyte) block += piece;
    std::ofstream file(path, std::ios::binary);
    file << head;
    for (std::size_t written = 0; written < size; written += block.size()) file << block;
  };
}

void makeUnreadable(const std::string& path) {
  writeFile(path, "garbage, for whom no mode keeps out");
  chmod(path.c_str(), 0);
}

const Damage kDamages[] = {
    {"Empty", holds("")},
    {"CutOff",
     holds("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<array>\n"
           "\t<dict>\n\t\t<key>adType</key>\n\t\t<stri")},
    {"CutOffBinary", holds("bplist00\xA2\x01\x02\x51")},
    {"Garbage", repeats(std::string("\x8f\0\xff<\x01>", 6), kMegabyte)},
    {"Json", holds("[{\"type\": \"ReportTypeAdAttempt\"}]")},
    {"WrongRoot", holds("<plist><string>a</string></plist>")},
    {"Nested100000Deep", repeats("<array>", 100000 * 7)},
    {"NestedDictionaries100000Deep", repeats("<dict><key>a</key>", 100000 * 18)},
    {"HundredMegabytesOfNothing",
     [](const std::string& path) {
       writeFile(path, "");
       std::filesystem::resize_file(path, 100 * kMegabyte);
     }},
    {"HundredMegabytesOfNesting", repeats("<array>", 100 * kMegabyte)},
    {"SixtyMegabytesOfNesting", repeats("<array>", 60 * kMegabyte)},
    {"SixtyMegabytesOfValues", repeats("<true/>", 60 * kMegabyte, "<array>")},
    {"Unreadable", &makeUnreadable},
    {"DanglingLink",
     [](const std::string& path) { std::filesystem::create_symlink(path + ".missing", path); }},
    {"LinkLoop", [](const std::string& path) { std::filesystem::create_symlink(path, path); }},
    {"Pipe", [](const std::string& path) { mkfifo(path.c_str(), 0600); }},
};

class DamagedFilesTest : public StoredFilesTest, public testing::WithParamInterface<Damage> {
 protected:
  static bool isPlainFile(const std::string& path) {
    return std::filesystem::is_regular_file(std::filesystem::symlink_status(path));
  }
};

INSTANTIATE_TEST_SUITE_P(Damages, DamagedFilesTest, testing::ValuesIn(kDamages),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(DamagedFilesTest, TheStartGoesOnAndGoodFilesTakeTheirPlace) {
  for (const std::string& path : storedFiles) GetParam().apply(path);
  // Settings and user defaults that are too large to be read are not replaced.
  std::error_code failure;
  const auto size = std::filesystem::file_size(settingsFile(), failure);
  const bool isTooLarge = !failure && size > kMegabyte;

  launchAndStart();
  tell("banner fresh 1");

  expectOneReportHaving("type", "ReportTypeSessionFirst");
  expectOneReportHaving("network", "fresh");
  waitUntilAtRest();
  EXPECT_LT(peakMemory(game->pid()), kMostKilobytes);
  for (const std::string& path : storedFiles) {
    EXPECT_TRUE(isPlainFile(path)) << path;
    EXPECT_FALSE(std::filesystem::exists(path + ".missing")) << path;
    EXPECT_TRUE((isTooLarge && path != reportsFile()) || valueIn(path)) << path;
  }
  if (isTooLarge) return;
  const std::optional<Value> defaults = valueIn(defaultsFile());
  ASSERT_TRUE(defaults && defaults->dictionary() != nullptr);
  EXPECT_EQ(reports().at(0)["userId"],
            *defaults->dictionary()->findString("com.zelnor.sessionUserId"));
}

TEST_F(StoredFilesTest, FoldersInTheFilesPlacesStayAndReportsAreSent) {
  for (const std::string& path : storedFiles) {
    std::filesystem::create_directory(path);
    put(path + "/kept", std::string("1"));
  }
  launch();
  tell("level 2");
  start();

  tell("banner brave 1");

  expectOneReportHaving("type", "ReportTypeSessionFirst");
  expectOneReportHaving("network", "brave");
  // The ad may be queued before or after the session is.
  EXPECT_THAT(game->errors(), ContainsRegex("ZLN Session: failed to save [12] pending reports!\n"));
  EXPECT_THAT(game->errors(), HasSubstr("ZLN Session: An error occured writing config\n"));
  for (const std::string& path : storedFiles) {
    EXPECT_EQ("1", contentsOf(path + "/kept"));
  }
}

TEST_F(StoredFilesTest, ValidReportsAreSentAndInvalidElementsAreGone) {
  put(reportsFile(),
      Array{adReport("one"), "text", Number::int64(3), Dictionary{},
            Dictionary{{"type", "ReportTypeUnknown"}}, Dictionary{{"type", Number::int64(1)}},
            adReport("two"), Array{}, adReport("three")});
  launch();
  tell("level 1");
  start();

  expectOneReportHaving("network", "one");
  expectOneReportHaving("network", "two");
  expectOneReportHaving("network", "three");
  expectOneReportHaving("type", "ReportTypeSessionFirst");
  for (const std::string element : {"text", "3", "(\n)"}) {
    EXPECT_THAT(game->errors(),
                HasSubstr("ZLN Session: unable to recover report from " + element + "\n"));
  }
  EXPECT_THAT(contentsOf(reportsFile()), Not(HasSubstr("Unknown")));
}

TEST_F(StoredFilesTest, ATextThatXmlCannotHoldIsMendedInTheFileAndCostsNoOtherReport) {
  silenceServer();
  launchAndStart();
  tell("banner before 1");
  tell("banner a%01b%1b%ef%bf%bec 1");
  tell("banner after 1");
  game->kill();
  const std::vector<std::string> stored = storedNetworks();
  letServerTalk();

  launchAndStart();

  EXPECT_THAT(stored, ElementsAre("before", "a\uFFFDb\uFFFD\uFFFDc", "after"));
  expectOneReportHaving("network", "a\uFFFDb\uFFFD\uFFFDc");
  expectOneReportHaving("network", "before");
  expectOneReportHaving("network", "after");
}

}  // namespace
}  // namespace zln
