#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "collector/json.h"
#include "collector/kept_reports.h"
#include "collector/report_queries.h"
#include "collector/report_row.h"
#include "collector/report_schemas.h"

namespace zln::collector {

// A report that was taken in.
struct Added {
  ReportRow row;
  nlohmann::json report;           // The body parsed; null when it is no JSON object.
  std::vector<ReportRow> amended;  // Earlier reports that this one sheds another light on.
};

// Makes the answer to a judged report. It runs while the store is locked, in the order of the
// identifiers: it must be quick and must not call the store.
using AnswerTo = std::function<Answer(const ReportRow& row, const nlohmann::json& report)>;

// What has arrived, in a database that survives restarts and kills. Any thread may call it. While
// the file cannot be written, all but the constructor throw std::runtime_error with a text for
// people; what was taken in before is kept and tried again.
class ReportStore {
 public:
  // Throws std::runtime_error with a text for people when the file cannot be used; the file is then
  // left as it is. Reports beyond the limits go, the oldest first.
  ReportStore(const std::filesystem::path& file, const KeepLimits& keep, ReportSchemas schemas);
  // Writes what is not yet written.
  ~ReportStore();
  ReportStore(const ReportStore&) = delete;
  ReportStore& operator=(const ReportStore&) = delete;

  // Takes a report in with its identifier, time, findings and answer. It is written with the next
  // group, at most a moment later; nobody waits for the disk, unless too much is unwritten.
  Added add(std::string body, const AnswerTo& answerTo);
  // What became of the answer in the end, such as that its connection was cut.
  void setAnswer(std::int64_t id, const Answer& answer);
  // Forgets all reports.
  void clear();
  // Returns when all that was added before is in the file.
  void flush();

  // These see all that was added before.
  ReportList list(const ReportQuery& query);
  std::optional<ReportRow> find(std::int64_t id);
  nlohmann::json summary();
  // The installations with the latest reports, at most `limit` of them; or the one of `user`.
  nlohmann::json timeline(const std::optional<std::string>& user, int limit);

 private:
  class Parts;

  std::unique_ptr<Parts> parts_;
};

}  // namespace zln::collector
