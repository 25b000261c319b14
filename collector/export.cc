#include "collector/export.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "collector/json.h"
#include "collector/report_database.h"
#include "collector/report_row.h"

namespace zln::collector {
namespace {

// Between so many rows nothing of the database is held, however slowly they are taken.
constexpr int kRowsAtOnce = 100;

constexpr char kHeader[] =
    "id,arrived,kind,user,session,event,verdict,findings,outcome,status,fault,body\r\n";

// A text that is there is quoted where need be; one that is not there is nothing at all.
std::string field(std::string_view text) {
  if (!text.empty() && text.find_first_of("\",\r\n") == std::string_view::npos) {
    return std::string(text);
  }
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

std::string fieldIfAny(const std::optional<std::string>& text) { return text ? field(*text) : ""; }

std::string field(double number) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  return {digits, end};
}

std::string csvLine(const ReportRow& row) {
  return std::to_string(row.id) + ',' + field(row.arrived) + ',' + field(nameOf(row.kind)) + ',' +
         fieldIfAny(row.user) + ',' + fieldIfAny(row.session) + ',' + fieldIfAny(row.event) + ',' +
         field(nameOf(row.verdict)) + ',' + field(toJson(row.findings).dump()) + ',' +
         field(nameOf(row.answer.outcome)) + ',' + std::to_string(row.answer.status) + ',' +
         (row.answer.fault ? std::to_string(*row.answer.fault) : "") + ',' + field(row.body) +
         "\r\n";
}

std::string line(const ReportRow& row, ExportFormat format) {
  return format == ExportFormat::kCsv ? csvLine(row) : toJson(row).dump() + '\n';
}

std::vector<ReportRow> readRows(Statement& statement, std::int64_t after, std::int64_t last) {
  statement.with(after, last, kRowsAtOnce);
  std::vector<ReportRow> rows;
  while (statement.step()) rows.push_back(rowOf(statement));
  statement.reset();
  return rows;
}

}  // namespace

void exportReports(const std::filesystem::path& file, ExportFormat format,
                   const std::function<bool(std::string_view)>& write) {
  Database database = openForReading(file);
  Statement statement =
      database.prepare(std::string(kSelectRows) + "WHERE id > ? AND id <= ? ORDER BY id LIMIT ?");
  const std::int64_t last = highestId(database);
  if (format == ExportFormat::kCsv && !write(kHeader)) return;
  for (std::int64_t after = 0; after < last;) {
    const auto rows = readRows(statement, after, last);
    for (const ReportRow& row : rows) {
      if (!write(line(row, format))) return;
    }
    after = rows.empty() ? last : rows.back().id;
  }
}

}  // namespace zln::collector
