#include "collector/export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "collector/report_store.h"
#include "tests/collector/report_samples.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

using Table = std::vector<std::vector<std::string>>;

// Reads CSV as RFC 4180 has it, strictly.
class CsvReader {
 public:
  explicit CsvReader(std::string text) : text_(std::move(text)) {}

  Table read() {
    Table table;
    while (at_ < text_.size()) table.push_back(readLine());
    return table;
  }

 private:
  std::vector<std::string> readLine() {
    std::vector<std::string> line{readField()};
    while (peek() == ',') {
      ++at_;
      line.push_back(readField());
    }
    EXPECT_EQ("\r\n", text_.substr(at_, 2)) << "at " << at_;
    at_ += 2;
    return line;
  }

  std::string readField() { return peek() == '"' ? readQuoted() : readPlain(); }

  std::string readPlain() {
    const auto end = std::min(text_.find_first_of(",\r\n\"", at_), text_.size());
    const std::string field = text_.substr(at_, end - at_);
    at_ = end;
    return field;
  }

  std::string readQuoted() {
    std::string field;
    for (++at_; at_ < text_.size(); ++at_) {
      if (text_[at_] == '"' && text_[++at_] != '"') return field;
      field += text_[at_];
    }
    ADD_FAILURE() << "a quoted field does not end";
    return field;
  }

  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  const std::string text_;
  std::size_t at_ = 0;
};

class ExportTest : public testing::Test {
 protected:
  std::filesystem::path file() const { return folder_.path() + "/reports.db"; }

  static Answer answer(const ReportRow&, const nlohmann::json&) { return {}; }

  void add(const std::string& body) { store_.add(body, answer); }

  std::string exported(ExportFormat format) {
    store_.flush();
    std::string text;
    exportReports(file(), format, [&](std::string_view piece) {
      text += piece;
      return true;
    });
    return text;
  }

  std::vector<std::string> exportedRows() {
    std::istringstream lines(exported(ExportFormat::kJsonLines));
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) rows.push_back(line);
    return rows;
  }

  Table exportedTable() { return CsvReader(exported(ExportFormat::kCsv)).read(); }

  const TemporaryFolder folder_;
  ReportStore store_{file(), {}, ReportSchemas(schemaTexts())};
};

TEST_F(ExportTest, WritesARowALineAsProgramsSeeIt) {
  add(adAttempt(1, 1));
  add("no JSON\n");

  const auto rows = exportedRows();

  ASSERT_THAT(rows, SizeIs(2));
  EXPECT_EQ(shown(*store_.find(1)).text(), rows[0]);
  EXPECT_EQ(shown(*store_.find(2)).text(), rows[1]);
}

TEST_F(ExportTest, WritesCsvWithAHeader) {
  add(sessionFirst(1, 2));
  store_.setAnswer(1, {Answer::Outcome::kOther, 503, 4});

  const Table table = exportedTable();

  ASSERT_THAT(table, SizeIs(2));
  EXPECT_THAT(table[0], ElementsAre("id", "arrived", "kind", "user", "session", "event", "verdict",
                                    "findings", "outcome", "status", "fault", "body"));
  const std::string arrived = table[1][1];
  EXPECT_EQ(store_.find(1)->arrived, std::stod(arrived));
  EXPECT_THAT(table[1], ElementsAre("1", arrived, "session-first", uuid(1), uuid(2), "", "valid",
                                    "[]", "other", "503", "4", sessionFirst(1, 2)));
}

TEST_F(ExportTest, KeepsEveryByteOfABodyInCsv) {
  const std::vector<std::string> bodies = {
      "",        ",",    "\"",    "\"\"",       "a\r\nb",   "\n",     "\r",
      " blank ", "=1+1", "'; --", R"({"a":1})", "\xFF\xFE", "\t;|\\", std::string("\0a\0", 3)};
  for (const std::string& body : bodies) add(body);

  const Table table = exportedTable();

  ASSERT_THAT(table, SizeIs(bodies.size() + 1));
  for (std::size_t i = 0; i < bodies.size(); ++i) EXPECT_EQ(bodies[i], table[i + 1].back());
}

TEST_F(ExportTest, KeepsTheTextsOfFindingsInCsv) {
  add(with(adAttempt(1, 1), R"({"platform":"a,\"b\""})"));

  const Table table = exportedTable();

  ASSERT_THAT(table, SizeIs(2));
  EXPECT_EQ(shown(store_.find(1)->findings).text(), table[1][7]);
}

TEST_F(ExportTest, TellsAnEmptyTextFromNone) {
  add(with(adAttempt(1, 1), R"({"userId":""})"));

  EXPECT_THAT(exported(ExportFormat::kCsv), HasSubstr(",ad-attempt,\"\",,"));
}

TEST_F(ExportTest, WritesAllReportsInTheirOrder) {
  for (int i = 1; i <= 250; ++i) add(adAttempt(1, i));

  const auto rows = exportedRows();

  ASSERT_THAT(rows, SizeIs(250));
  for (int i = 1; i <= 250; ++i) {
    EXPECT_EQ(std::to_string(i), JsonText(rows[static_cast<std::size_t>(i) - 1])["id"]);
  }
}

TEST_F(ExportTest, OfNoReportsIsEmpty) {
  EXPECT_EQ("", exported(ExportFormat::kJsonLines));
  EXPECT_THAT(exportedTable(), SizeIs(1));
}

TEST_F(ExportTest, LeavesOutWhatArrivesMeanwhile) {
  for (int i = 1; i <= 150; ++i) add(adAttempt(1, i));
  store_.flush();

  int rows = 0;
  exportReports(file(), ExportFormat::kJsonLines, [&](std::string_view) {
    add(adAttempt(2, 1000 + ++rows));
    store_.flush();
    return true;
  });

  EXPECT_EQ(150, rows);
}

TEST_F(ExportTest, StopsWhenNobodyTakesIt) {
  for (int i = 1; i <= 10; ++i) add(adAttempt(1, i));
  store_.flush();

  int pieces = 0;
  exportReports(file(), ExportFormat::kCsv, [&](std::string_view) { return ++pieces < 3; });

  EXPECT_EQ(3, pieces);
}

TEST_F(ExportTest, WorksWhenTheStoreIsClosed) {
  const TemporaryFolder other;
  const std::filesystem::path path = other.path() + "/reports.db";
  { ReportStore(path, {}, ReportSchemas(schemaTexts())).add("{}", answer); }

  int rows = 0;
  exportReports(path, ExportFormat::kJsonLines, [&](std::string_view) { return ++rows > 0; });

  EXPECT_EQ(1, rows);
}

TEST_F(ExportTest, SaysThatThereIsNoFile) {
  try {
    exportReports(folder_.path() + "/other.db", ExportFormat::kCsv,
                  [](std::string_view) { return true; });
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("other.db does not exist"));
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.path() + "/other.db"));
}

TEST_F(ExportTest, RefusesAnotherFile) {
  const std::string path = folder_.path() + "/other.db";
  std::ofstream(path) << std::string(5000, 'x');

  EXPECT_THROW(exportReports(path, ExportFormat::kCsv, [](std::string_view) { return true; }),
               std::runtime_error);
}

}  // namespace
}  // namespace zln::collector
