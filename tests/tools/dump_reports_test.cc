#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

// What the program does with the file "file" of a folder of the test's own.
class DumpReportsTest : public testing::Test {
 protected:
  void put(const std::string& bytes) const {
    std::ofstream(path("file"), std::ios::binary) << bytes;
  }

  // Leaves the exit status, the output and the error output.
  void dump(const std::string& arguments = "file") {
    const std::string command = "cd '" + folder_.path() + "' && " + ZLN_DUMP_REPORTS_PROGRAM + " " +
                                arguments + " >output 2>errors";
    const int end = std::system(command.c_str());
    status = WIFEXITED(end) ? WEXITSTATUS(end) : -1;
    output = contentsOf("output");
    errors = contentsOf("errors");
  }

  std::string path(const std::string& name) const { return folder_.path() + "/" + name; }

  int status = -1;
  std::string output;
  std::string errors;

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

  dump();

  EXPECT_EQ(0, status);
  EXPECT_EQ("", errors);
  EXPECT_EQ(R"([
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
            output);
}

TEST_F(DumpReportsTest, ShowsSettings) {
  put("<dict><key>lastUpdate</key><real>1700000000</real>"
      "<key>ConfigSerializationKeyConfigUpdateInterval</key><integer>3600</integer>"
      "<key>ConfigSerializationKeySendStopSessionReports</key><false/></dict>");

  dump();

  EXPECT_EQ(0, status);
  EXPECT_EQ("", errors);
  EXPECT_EQ(R"({
  "lastUpdate": 1700000000.0,
  "lastUpdate as a date": "2023-11-14 22:13:20 +0000",
  "ConfigSerializationKeyConfigUpdateInterval": 3600,
  "ConfigSerializationKeySendStopSessionReports": false
}
)",
            output);
}

TEST_F(DumpReportsTest, ShowsAnEmptyListOfReports) {
  put("<array/>");

  dump();

  EXPECT_EQ(0, status);
  EXPECT_EQ("[]\n", output);
}

TEST_F(DumpReportsTest, ShowsTheBinaryForm) {
  put(std::string(
      "bplist00\xA0\x08\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
      "\0\x09",
      42));

  dump();

  EXPECT_EQ(0, status);
  EXPECT_EQ("[]\n", output);
}

TEST_F(DumpReportsTest, SaysWhatBecomesOfABadReportAndShowsIt) {
  put("<array><string>a</string><dict/>"
      "<dict><key>type</key><string>X</string></dict>"
      "<dict><key>type</key><string>ReportTypeSessionStop</string></dict></array>");

  dump();

  EXPECT_EQ(1, status);
  EXPECT_EQ(
      "file: report 1: it is no dictionary; it will be dropped\n"
      "file: report 2: it has no \"type\"; it will be dropped\n"
      "file: report 3: \"X\" is no type; it will be dropped\n"
      "file: report 4: it has no \"sessionId\" or \"startTime\"; it will be sent without its "
      "session\n",
      errors);
  EXPECT_EQ(R"([
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
            output);
}

TEST_F(DumpReportsTest, NamesSettingsThatAreNoNumbers) {
  put("<dict><key>lastUpdate</key><string>soon</string>"
      "<key>ConfigSerializationKeyConfigUpdateInterval</key><string>5</string></dict>");

  dump();

  EXPECT_EQ(1, status);
  EXPECT_EQ(
      "file: lastUpdate: it is no number; it will be ignored\n"
      "file: ConfigSerializationKeyConfigUpdateInterval: it is no number; it will be ignored\n",
      errors);
}

TEST_F(DumpReportsTest, SaysWhyAFileIsNoPropertyList) {
  struct Row {
    const char* bytes;
    const char* errors;
  };
  constexpr Row kRows[] = {
      {"", "file: no property list: no element found in line 1\n"},
      {"words", "file: no property list: syntax error in line 1\n"},
      {"[]", "file: no property list: syntax error in line 1\n"},
      {"<array>\n<dict>\n", "file: no property list: no element found in line 3\n"},
      {"<array>\n<real>1,5</real></array>",
       "file: no property list: a malformed value in line 2\n"},
      {"bplist00", "file: no property list: a damaged binary form\n"},
  };
  for (const auto& [bytes, expected] : kRows) {
    put(bytes);

    dump();

    EXPECT_EQ(1, status) << bytes;
    EXPECT_EQ("", output) << bytes;
    EXPECT_EQ(expected, errors) << bytes;
  }
}

TEST_F(DumpReportsTest, SaysThatTheRootIsOfTheWrongKind) {
  put("<string>a</string>");

  dump();

  EXPECT_EQ(1, status);
  EXPECT_EQ("\"a\"\n", output);
  EXPECT_EQ("file: neither a list of reports nor settings\n", errors);
}

TEST_F(DumpReportsTest, SaysThatNestingIsTooDeep) {
  std::string bytes;
  for (int level = 0; level < 100000; ++level) bytes += "<array>";
  put(bytes);

  dump();

  EXPECT_EQ(1, status);
  EXPECT_EQ("file: no property list: too many levels in line 1\n", errors);
}

TEST_F(DumpReportsTest, DoesNotReadWhatIsNoFileOrTooLarge) {
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink("nowhere", path("dangling"));
  mkfifo(path("pipe").c_str(), 0600);
  put("");
  std::filesystem::copy_file(path("file"), path("large"));
  std::filesystem::resize_file(path("large"), 67108865);

  for (const std::string name : {"missing", "folder", "dangling", "pipe", "large"}) {
    dump(name);

    EXPECT_EQ(1, status) << name;
    EXPECT_EQ(name + ": cannot be read, or is larger than 64 MB\n", errors);
  }
}

TEST_F(DumpReportsTest, WantsOneFile) {
  dump("");

  EXPECT_EQ(2, status);
  EXPECT_EQ("usage: dump_reports FILE\n", errors);
}

}  // namespace
}  // namespace zln
