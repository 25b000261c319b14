#include "tests/host/stored_files.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdlib>
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

  launchAndStart();
  tell("banner fresh 1");

  expectOneReportHaving("type", "ReportTypeSessionFirst");
  expectOneReportHaving("network", "fresh");
  waitUntilAtRest();
  EXPECT_LT(peakMemory(game->pid()), kMostKilobytes);
  for (const std::string& path : storedFiles) {
    EXPECT_TRUE(isPlainFile(path)) << path;
    EXPECT_FALSE(std::filesystem::exists(path + ".missing")) << path;
    EXPECT_TRUE(valueIn(path)) << path;
  }
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

// Files that pass through other programs.
class ExchangedFilesTest : public StoredFilesTest {
 protected:
  static bool isInstalled(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
  }

  // Runs a script to which `reports` and `settings` are the paths of the files.
  bool python(const std::string& script) const {
    put(home.path() + "/script.py", "import plistlib\nreports = '" + reportsFile() +
                                        "'\nsettings = '" + settingsFile() + "'\n" + script);
    return std::system(("python3 '" + home.path() + "/script.py'").c_str()) == 0;
  }
};

TEST_F(ExchangedFilesTest, PythonFindsTheRightKinds) {
  if (!isInstalled("python3")) GTEST_SKIP() << "python3 is not installed";
  silenceServer();
  launchAndStart();
  tell("zone network%26 video zone-1 1");
  tell("banner other 0");
  tell("resign");
  tell("terminate");
  game->kill();

  EXPECT_TRUE(python(R"(
stored = plistlib.load(open(reports, 'rb'))
assert type(stored) is list and len(stored) == 4, stored
first = [r for r in stored if r['type'] == 'ReportTypeSessionFirst'][0]
stop = [r for r in stored if r['type'] == 'ReportTypeSessionStop'][0]
zone = [r for r in stored if r['type'] == 'ReportTypeAdZoneAttempt'][0]
ad = [r for r in stored if r['type'] == 'ReportTypeAdAttempt'][0]
assert zone['network'] == 'network&' and zone['zoneId'] == 'zone-1', zone
assert zone['fill'] is True and ad['fill'] is False, stored
assert type(first['startTime']) is float, first
assert type(first['sessionId']) is str and first['sessionId'] == stop['sessionId'], stored
assert type(stop['totalDuration']) is float, stop
)"));
  EXPECT_TRUE(python(R"(
stored = plistlib.load(open(settings, 'rb'))
kinds = {key.replace('ConfigSerializationKey', ''): type(value).__name__
         for key, value in stored.items()}
assert kinds == {
    'TransmitReportsImmediately': 'bool',
    'TransmitReportsOnApplicationBackgrounding': 'bool',
    'TransmitReportsOnApplicationForegrounding': 'bool',
    'ReportTemporaryFailureLimit': 'int',
    'SessionInactivityTimeLimit': 'float',
    'ConfigUpdateInterval': 'int',
    'UserSessionBackgroundTimeoutSeconds': 'float',
    'SendStartSessionReports': 'bool',
    'SendStopSessionReports': 'bool',
    'SendFirstSessionReports': 'bool',
    'lastUpdate': 'float',
}, kinds
)"));
}

TEST_F(ExchangedFilesTest, FilesThatPythonWritesInEitherFormAreTaken) {
  if (!isInstalled("python3")) GTEST_SKIP() << "python3 is not installed";
  for (const char* form : {"FMT_XML", "FMT_BINARY"}) {
    ASSERT_TRUE(python("form = plistlib." + std::string(form) + R"(
ad = {'type': 'ReportTypeAdAttempt', 'adEventId': '00000000-0000-4000-8000-000000000000',
      'network': 'python \u20ac ' + form.name, 'adType': 'banner', 'fill': True}
with open(reports, 'wb') as file: plistlib.dump([ad], file, fmt=form)
with open(settings, 'wb') as file:
    plistlib.dump({'ConfigSerializationKeySendFirstSessionReports': False,
                   'ConfigSerializationKeySendStartSessionReports': False,
                   'lastUpdate': 4000000000.0}, file, fmt=form)
)"));
    launchAndStart();

    const std::vector<Json> sent =
        waitForReportsHaving("network", std::string("python \u20ac ") + form, 1);

    ASSERT_EQ(1u, sent.size());
    EXPECT_EQ(true, sent[0]["fill"]);
    // A game that is killed while it loads leaves what it was loading to the next one.
    waitUntilAtRest();
    game->kill();
  }
  // The settings have been taken: nothing else was sent, and none was asked for.
  EXPECT_EQ(2u, server.requests().size());
}

TEST_F(ExchangedFilesTest, FilesThatPlistutilTurnsBinaryAreSent) {
  if (!isInstalled("plistutil")) GTEST_SKIP() << "plistutil is not installed";
  silenceServer();
  launchAndStart();
  tell("banner first%c3%a9 1");
  tell("zone second video z 0");
  game->kill();
  for (const std::string& path : storedFiles) {
    const std::string command = "plistutil -i '" + path + "' -f bin -o '" + path + ".bin' && mv '" +
                                path + ".bin' '" + path + "'";
    ASSERT_EQ(0, std::system(command.c_str()));
    ASSERT_EQ("bplist00", contentsOf(path).substr(0, 8));
  }
  letServerTalk();

  launchAndStart();

  const std::vector<Json> bodies = waitForReports(4);
  EXPECT_EQ(true, having(bodies, "network", "first\u00e9").at(0)["fill"]);
  EXPECT_EQ(false, having(bodies, "network", "second").at(0)["fill"]);
  expectOneReportHaving("type", "ReportTypeSessionFirst");
  expectOneReportHaving("type", "ReportTypeSessionStart");
  // All of the same user, so the defaults have been understood as well.
  EXPECT_EQ(4u, having(bodies, "userId", bodies[0]["userId"]).size());
}

}  // namespace
}  // namespace zln
