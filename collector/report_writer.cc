#include "collector/report_writer.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>

#include "collector/json.h"
#include "collector/report_database.h"

namespace zln::collector {
namespace {

constexpr std::uint64_t kMostUnwritten = 10000;
constexpr std::size_t kMostUnwrittenBytes = std::size_t{64} * 1024 * 1024;
constexpr std::chrono::seconds kPauseAfterFailure{1};

constexpr char kInsert[] = R"(
INSERT INTO reports (id, arrived, kind, user, session, event, verdict, findings, outcome, status,
                     fault, body, repeats, bundle, version, start, stop, played, network, ad_type,
                     zone, fill)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?))";

std::size_t sizeOf(const Change& change) {
  const auto* insertion = std::get_if<Insertion>(&change);
  return insertion == nullptr ? 0 : insertion->row.body.size();
}

std::size_t sizeOf(const std::vector<Change>& group) {
  std::size_t size = 0;
  for (const Change& change : group) size += sizeOf(change);
  return size;
}

bool isReadable(const ReportRow& row) { return !hasFinding(row.findings, "unreadable"); }

}  // namespace

// The statements that change the table.
class ReportWriter::Table {
 public:
  explicit Table(Database database)
      : database_(std::move(database)),
        insert_(database_.prepare(kInsert)),
        setAnswer_(database_.prepare(
            "UPDATE reports SET outcome = ?, status = ?, fault = ? WHERE id = ?")),
        findings_(database_.prepare("SELECT findings FROM reports WHERE id = ?")),
        setFindings_(
            database_.prepare("UPDATE reports SET verdict = ?, findings = ? WHERE id = ?")),
        trim_(database_.prepare("DELETE FROM reports WHERE id <= ?")),
        clear_(database_.prepare("DELETE FROM reports")) {}

  void apply(const std::vector<Change>& group) {
    Transaction transaction(database_, /*writes=*/true);
    for (const Change& change : group) {
      std::visit([this](const auto& it) { apply(it); }, change);
    }
    transaction.commit();
  }

 private:
  void apply(const Insertion& insertion) {
    insert(insertion.row, insertion.facts);
    for (const std::int64_t stop : insertion.stops) giveStart(stop);
    apply(Trimming{insertion.lastGone});
  }

  void insert(const ReportRow& row, const ReportFacts& facts) {
    insert_.with(row.id, row.arrived, nameOf(row.kind), row.user, row.session, row.event,
                 nameOf(row.verdict), toJson(row.findings).dump(), nameOf(row.answer.outcome),
                 row.answer.status, row.answer.fault, Bytes{row.body},
                 hasFinding(row.findings, "duplicate"), facts.bundle, facts.version, facts.start,
                 facts.stop, facts.played, facts.network, facts.adType, facts.zone, facts.fill);
    if (isReadable(row)) insert_.bind(kBody, row.body);
    insert_.run();
  }

  void giveStart(std::int64_t stop) {
    if (!findings_.with(stop).step()) return;
    auto findings = findingsFrom(findings_.text(0));
    findings_.reset();
    std::erase_if(findings, [](const Finding& it) { return it.code == "stop-without-start"; });
    setFindings_.with(nameOf(verdictOn(findings)), toJson(findings).dump(), stop).run();
  }

  void apply(const AnswerChange& change) {
    const Answer& answer = change.answer;
    setAnswer_.with(nameOf(answer.outcome), answer.status, answer.fault, change.id).run();
  }

  void apply(const Trimming& trimming) { trim_.with(trimming.lastGone).run(); }

  void apply(const Clearing&) { clear_.with().run(); }

  static constexpr int kBody = 12;

  Database database_;
  Statement insert_;
  Statement setAnswer_;
  Statement findings_;
  Statement setFindings_;
  Statement trim_;
  Statement clear_;
};

ReportWriter::ReportWriter(Database database)
    : thread_([this, table = Table(std::move(database))]() mutable {
        writeGroups(std::move(table));
      }) {}

ReportWriter::~ReportWriter() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void ReportWriter::waitForRoom() {
  std::unique_lock lock(mutex_);
  progress_.wait(lock, [this] { return hasRoom() || !failure_.empty(); });
  requireWorking();
}

bool ReportWriter::hasRoom() const {
  return put_ - written_ < kMostUnwritten && unwrittenBytes_ < kMostUnwrittenBytes;
}

void ReportWriter::requireWorking() const {
  if (!failure_.empty()) throw std::runtime_error(failure_);
}

void ReportWriter::put(Change change) {
  {
    const std::lock_guard lock(mutex_);
    unwrittenBytes_ += sizeOf(change);
    waiting_.push_back(std::move(change));
    ++put_;
  }
  wake_.notify_all();
}

void ReportWriter::flush() {
  std::unique_lock lock(mutex_);
  const std::uint64_t wanted = put_;
  progress_.wait(lock, [&] { return written_ >= wanted || !failure_.empty(); });
  if (written_ < wanted) requireWorking();
}

void ReportWriter::writeGroups(Table table) {
  std::vector<Change> group;
  while (takeGroup(group)) {
    if (!writeGroup(table, group)) return;
    finishGroup(group.size(), sizeOf(group));
  }
}

// False when the end has come and nothing is left to write.
bool ReportWriter::takeGroup(std::vector<Change>& group) {
  group.clear();
  std::unique_lock lock(mutex_);
  wake_.wait(lock, [this] { return !waiting_.empty() || ending_; });
  group.swap(waiting_);
  return !group.empty();
}

// False when the end has come and it still cannot be written.
bool ReportWriter::writeGroup(Table& table, const std::vector<Change>& group) {
  while (true) {
    std::string failure;
    try {
      table.apply(group);
      return true;
    } catch (const std::exception& error) {
      failure = error.what();
    }
    std::unique_lock lock(mutex_);
    failure_ = failure;
    progress_.notify_all();
    if (wake_.wait_for(lock, kPauseAfterFailure, [this] { return ending_; })) return false;
  }
}

void ReportWriter::finishGroup(std::size_t count, std::size_t size) {
  {
    const std::lock_guard lock(mutex_);
    written_ += count;
    unwrittenBytes_ -= size;
    failure_.clear();
  }
  progress_.notify_all();
}

}  // namespace zln::collector
