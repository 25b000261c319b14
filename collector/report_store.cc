#include "collector/report_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "collector/json_object.h"
#include "collector/report_database.h"
#include "collector/report_judge.h"
#include "collector/report_overview.h"
#include "collector/report_writer.h"

namespace zln::collector {
namespace {

constexpr std::size_t kMostIdleReaders = 4;

// Keeps a second collector off the file. The lock lies on its folder: closing a file that SQLite
// has open would take away SQLite's own locks.
class FolderLock {
 public:
  explicit FolderLock(const std::filesystem::path& file) {
    const auto folder = std::filesystem::absolute(file).parent_path();
    descriptor_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor_ < 0) {
      throw std::runtime_error("cannot open " + folder.string() + ": " + std::strerror(errno));
    }
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
      ::close(descriptor_);
      throw std::runtime_error(folder.string() + " is in use by another collector");
    }
  }
  ~FolderLock() { ::close(descriptor_); }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int descriptor_;
};

// Connections for reading, each lent to one thread at a time.
class Readers {
 public:
  explicit Readers(std::filesystem::path file) : file_(std::move(file)) {}

  // Runs `read` with one of them, which is given up when it fails.
  template <typename Read>
  auto with(Read read) {
    Database database = take();
    auto result = read(database);
    giveBack(std::move(database));
    return result;
  }

 private:
  Database take() {
    const std::lock_guard lock(mutex_);
    if (idle_.empty()) return openForReading(file_);
    Database database = std::move(idle_.back());
    idle_.pop_back();
    return database;
  }

  void giveBack(Database database) {
    const std::lock_guard lock(mutex_);
    if (idle_.size() < kMostIdleReaders) idle_.push_back(std::move(database));
  }

  const std::filesystem::path file_;
  std::mutex mutex_;
  std::vector<Database> idle_;
};

double now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(sinceEpoch).count();
}

Finding unreadable() {
  return {"unreadable", Severity::kError, "the body is no JSON object, or one nested too deep"};
}

}  // namespace

class ReportStore::Parts {
 public:
  Parts(const std::filesystem::path& file, const KeepLimits& keep, ReportSchemas schemas)
      : lock_(file),
        schemas_(std::move(schemas)),
        kept_(keep),
        writer_(openForWriting(file)),
        readers_(file) {
    remember(file);
    put(Trimming{forgetGone()});
  }

  Added add(std::string body, const AnswerTo& answerTo) {
    Added added;
    Insertion insertion;
    ReportRow& row = insertion.row;
    examine(std::move(body), row, insertion.facts, added.report);
    {
      const std::lock_guard lock(mutex_);
      writer_.waitForRoom();
      judge(row, insertion.facts);
      row.answer = answerTo(row, added.report);
      takeIn(insertion);
      added.row = row;
      writer_.put(insertion);
    }
    for (const std::int64_t stop : insertion.stops) addAmended(stop, added.amended);
    return added;
  }

  void setAnswer(std::int64_t id, const Answer& answer) { put(AnswerChange{id, answer}); }

  void clear() {
    put(Clearing{});
    flush();
  }

  void flush() { writer_.flush(); }

  template <typename Read>
  auto read(Read read) {
    flush();
    return readers_.with(read);
  }

 private:
  // What was there before this store was made.
  void remember(const std::filesystem::path& file) {
    Database database = openForReading(file);
    forEachReport(database, [this](const StoredReport& report) {
      judge_.remember(report.id, report.facts);
      kept_.take(report.id, report.size);
    });
    lastId_ = highestId(database);
  }

  // What can be said without knowing the others.
  void examine(std::string body, ReportRow& row, ReportFacts& facts, nlohmann::json& report) {
    row.body = std::move(body);
    if (auto object = parseObject(row.body)) {
      report = std::move(*object);
      facts = factsOf(report);
      row.findings = schemas_.check(facts.kind, report);
    } else {
      row.findings = {unreadable()};
    }
    row.kind = facts.kind;
    row.user = facts.user;
    row.session = facts.session;
    row.event = facts.event;
  }

  void judge(ReportRow& row, const ReportFacts& facts) {
    row.id = lastId_ + 1;
    row.arrived = now();
    for (Finding& finding : judge_.judge(facts)) row.findings.push_back(std::move(finding));
    row.verdict = verdictOn(row.findings);
  }

  void takeIn(Insertion& insertion) {
    lastId_ = insertion.row.id;
    insertion.stops = judge_.remember(lastId_, insertion.facts);
    kept_.take(lastId_, std::ssize(insertion.row.body));
    insertion.lastGone = forgetGone();
  }

  // What goes from the file is nothing to judge by any longer.
  std::int64_t forgetGone() {
    judge_.forgetThrough(kept_.lastGone());
    return kept_.lastGone();
  }

  // It may be gone by now.
  void addAmended(std::int64_t id, std::vector<ReportRow>& amended) {
    auto row = read([id](Database& database) { return findReport(database, id); });
    if (row) amended.push_back(std::move(*row));
  }

  void put(Change change) {
    const std::lock_guard lock(mutex_);
    writer_.waitForRoom();
    if (std::holds_alternative<Clearing>(change)) {
      judge_.forgetAll();
      kept_.forgetAll();
    }
    writer_.put(std::move(change));
  }

  const FolderLock lock_;
  const ReportSchemas schemas_;
  std::mutex mutex_;  // The order of reports: identifiers, what is remembered, the writer's queue.
  ReportJudge judge_;
  KeptReports kept_;
  std::int64_t lastId_ = 0;
  ReportWriter writer_;
  Readers readers_;
};

ReportStore::ReportStore(const std::filesystem::path& file, const KeepLimits& keep,
                         ReportSchemas schemas)
    : parts_(std::make_unique<Parts>(file, keep, std::move(schemas))) {}

ReportStore::~ReportStore() = default;

Added ReportStore::add(std::string body, const AnswerTo& answerTo) {
  return parts_->add(std::move(body), answerTo);
}

void ReportStore::setAnswer(std::int64_t id, const Answer& answer) {
  parts_->setAnswer(id, answer);
}

void ReportStore::clear() { parts_->clear(); }

void ReportStore::flush() { parts_->flush(); }

ReportList ReportStore::list(const ReportQuery& query) {
  return parts_->read([&](Database& database) { return listReports(database, query); });
}

std::optional<ReportRow> ReportStore::find(std::int64_t id) {
  return parts_->read([id](Database& database) { return findReport(database, id); });
}

nlohmann::json ReportStore::summary() {
  return parts_->read([](Database& database) { return summaryOf(database); });
}

nlohmann::json ReportStore::timeline(const std::optional<std::string>& user, int limit) {
  return parts_->read([&](Database& database) { return timelineOf(database, user, limit); });
}

}  // namespace zln::collector
