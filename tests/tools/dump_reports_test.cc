#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

// What the program does with the file "file" of a folder of the test's own.
class DumpReportsTest : public testing::Test {
 protected:
  void put(const std::string& bytes) const {
    std::ofstream(path("file"), std::ios::binary) << bytes;
  }

  // Runs the program and compares its exit status, its output and its error output.
  void expectDump(int status, const std::string& output, const std::string& errors,
                  const std::string& arguments = "file") {
    const std::string command = "cd '" + folder_.path() + "' && " + ZLN_DUMP_REPORTS_PROGRAM + " " +
                                arguments + " >output 2>errors";
    const int end = std::system(command.c_str());
    EXPECT_EQ(status, WIFEXITED(end) ? WEXITSTATUS(end) : -1);
    EXPECT_EQ(output, contentsOf("output"));
    EXPECT_EQ(errors, contentsOf("errors"));
  }

  std::string path(const std::string& name) const { return folder_.path() + "/" + name; }

 private:
  std::string contentsOf(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  TemporaryFolder folder_;
};

TEST_F(DumpReportsTest, ShowsReportsWithDatesBesideTheSeconds) {
  put("<plist><array><dict><key>type</key><string>ReportTypeSessionFirst</string>"
      "<key>sessionId</key><string>S</string><key>startTime</key><real>1700000000.5</real></dict>"
      "<dict><key>type</key><string>ReportTypeAdAttempt</string><key>fill</key><true/></dict>"
      "</array></plist>");

  expectDump(0, R"([
  {
    "type": "ReportTypeSessionFirst",
    "sessionId": "S",
    "startTime": 1700000000.5,
    "startTime as a date": "2023-11-14 22:13:20 +0000"
  },
  {
    "type": "ReportTypeAdAttempt",
    "fill": true
  }
]
)",
             "");
}

TEST_F(DumpReportsTest, ShowsSettings) {
  put("<dict><key>lastUpdate</key><real>1700000000</real>"
      "<key>ConfigSerializationKeyConfigUpdateInterval</key><integer>3600</integer>"
      "<key>ConfigSerializationKeySendStopSessionReports</key><false/></dict>");

  expectDump(0, R"({
  "lastUpdate": 1700000000.0,
  "lastUpdate as a date": "2023-11-14 22:13:20 +0000",
  "ConfigSerializationKeyConfigUpdateInterval": 3600,
  "ConfigSerializationKeySendStopSessionReports": false
}
)",
             "");
}

TEST_F(DumpReportsTest, ShowsAnEmptyListOfReportsAlsoInTheBinaryForm) {
  put("<array/>");
  expectDump(0, "[]\n", "");

  put(std::string(
      "bplist00\xA0\x08\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
      "\0\x09",
      42));
  expectDump(0, "[]\n", "");
}

TEST_F(DumpReportsTest, SaysWhatBecomesOfABadReportAndShowsIt) {
  put("<array><string>a</string><dict/>"
      "<dict><key>type</key><string>X</string></dict>"
      "<dict><key>type</key><string>ReportTypeSessionStop</string></dict></array>");

  expectDump(
      1, R"([
  "a",
  {},
  {
    "type": "X"
  },
  {
    "type": "ReportTypeSessionStop"
  }
]
)",
      "file: report 1: it is no dictionary; it will be dropped\n"
      "file: report 2: it has no \"type\"; it will be dropped\n"
      "file: report 3: \"X\" is no type; it will be dropped\n"
      "file: report 4: it has no \"sessionId\" or \"startTime\"; it will be sent without its "
      "session\n");
}

TEST_F(DumpReportsTest, NamesSettingsThatAreNoNumbers) {
  put("<dict><key>lastUpdate</key><string>soon</string>"
      "<key>ConfigSerializationKeyConfigUpdateInterval</key><string>5</string></dict>");

  expectDump(
      1, R"({
  "lastUpdate": "soon",
  "ConfigSerializationKeyConfigUpdateInterval": "5"
}
)",
      "file: lastUpdate: it is no number; it will be ignored\n"
      "file: ConfigSerializationKeyConfigUpdateInterval: it is no number; it will be ignored\n");
}

TEST_F(DumpReportsTest, SaysWhyAFileIsNoPropertyList) {
  struct Row {
    std::string bytes;
    const char* reason;
  };
  std::string nested;
  for (int level = 0; level < 100000; ++level) nested += "<array>";
  for (const auto& [bytes, reason] :
       std::vector<Row>{{"", "no element found in line 1"},
                        {"words", "syntax error in line 1"},
                        {"[]", "syntax error in line 1"},
                        {"<array>\n<dict>\n", "no element found in line 3"},
                        {"<array>\n<real>1,5</real></array>", "a malformed value in line 2"},
                        {"bplist00", "a damaged binary form"},
                        {nested, "too many levels in line 1"}}) {
    SCOPED_TRACE(reason);
    put(bytes);

    expectDump(1, "", std::string("file: no property list: ") + reason + "\n");
  }
}

TEST_F(DumpReportsTest, SaysThatTheRootIsOfTheWrongKind) {
  put("<string>a</string>");

  expectDump(1, "\"a\"\n", "file: neither a list of reports nor settings\n");
}

TEST_F(DumpReportsTest, DoesNotReadWhatIsNoFileOrTooLarge) {
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink("nowhere", path("dangling"));
  mkfifo(path("pipe").c_str(), 0600);
  put("");
  std::filesystem::copy_file(path("file"), path("large"));
  std::filesystem::resize_file(path("large"), 67108865);

  for (const std::string name : {"missing", "folder", "dangling", "pipe", "large"}) {
    expectDump(1, "", name + ": cannot be read, or is larger than 64 MB\n", name);
  }
}

TEST_F(DumpReportsTest, WantsOneFile) { expectDump(2, "", "usage: dump_reports FILE\n", ""); }

}  // namespace
}  // namespace zln
