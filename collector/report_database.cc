#include "collector/report_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace zln::collector {
namespace {

// In the head of the file: whose it is and which version of the table it holds.
constexpr std::int64_t kApplication = 0x7A6C6E63;
constexpr std::int64_t kVersion = 1;
constexpr mode_t kPrivateMode = 0600;

// A readable body is a text, another one a blob. The columns from `repeats` on are there to be
// asked for quickly.
constexpr char kMakeTable[] = R"(
CREATE TABLE reports (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  arrived REAL NOT NULL,
  kind TEXT NOT NULL,
  user TEXT,
  session TEXT,
  event TEXT,
  verdict TEXT NOT NULL,
  findings TEXT NOT NULL,
  outcome TEXT NOT NULL,
  status INTEGER NOT NULL,
  fault INTEGER,
  body BLOB NOT NULL,
  repeats INTEGER NOT NULL,
  bundle TEXT,
  version TEXT,
  start REAL,
  stop REAL,
  played REAL,
  network TEXT,
  ad_type TEXT,
  zone TEXT,
  fill INTEGER
);
CREATE INDEX reports_by_kind ON reports (kind);
CREATE INDEX reports_by_verdict ON reports (verdict);
CREATE INDEX reports_by_user ON reports (user);
CREATE INDEX reports_by_session ON reports (session);
CREATE INDEX reports_counted ON reports (kind, verdict, outcome, repeats);
CREATE INDEX reports_filled ON reports (network, ad_type, repeats, fill) WHERE network IS NOT NULL;
PRAGMA application_id = 0x7A6C6E63;
PRAGMA user_version = 1;
)";

// Not SQLite, so that the file has its mode from the beginning on.
void makePrivateFile(const std::filesystem::path& file) {
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kPrivateMode);
  if (descriptor >= 0) {
    ::close(descriptor);
  } else if (errno != EEXIST) {
    throw std::runtime_error("cannot make " + file.string() + ": " + std::strerror(errno));
  }
}

bool isEmpty(Database& database) {
  return database.integer("PRAGMA application_id") == 0 &&
         database.integer("SELECT count(*) FROM sqlite_schema") == 0;
}

void requireOurs(Database& database, const std::filesystem::path& file) {
  if (database.integer("PRAGMA application_id") != kApplication) {
    throw std::runtime_error(file.string() + " is the database of another program");
  }
  if (database.integer("PRAGMA user_version") > kVersion) {
    throw std::runtime_error(file.string() + " was made by a newer zln-collector");
  }
}

// Once a group is committed it survives the end of the process; the disk is waited for only now and
// then, so a power cut may cost the last groups.
void tuneForWriting(Database& database) {
  database.run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;");
}

void makeTable(Database& database) {
  Transaction transaction(database, /*writes=*/true);
  if (isEmpty(database)) database.run(kMakeTable);
  transaction.commit();
}

}  // namespace

Database openForWriting(const std::filesystem::path& file) {
  makePrivateFile(file);
  Database database(file);
  if (!isEmpty(database)) requireOurs(database, file);
  tuneForWriting(database);
  makeTable(database);
  std::filesystem::permissions(file, std::filesystem::perms(kPrivateMode));
  return database;
}

Database openForReading(const std::filesystem::path& file) {
  if (!std::filesystem::exists(file)) {
    throw std::runtime_error("there are no reports: " + file.string() + " does not exist");
  }
  Database database(file);
  database.run("PRAGMA query_only = 1");
  requireOurs(database, file);
  return database;
}

const char kSelectRows[] =
    "SELECT id, arrived, kind, user, session, event, verdict, findings, outcome, status, fault, "
    "body FROM reports ";

ReportRow rowOf(const Statement& selected) {
  ReportRow row;
  row.id = selected.integer(0);
  row.arrived = selected.real(1);
  row.kind = kindNamed(selected.text(2)).value_or(ReportKind::kUnknown);
  row.user = selected.optionalText(3);
  row.session = selected.optionalText(4);
  row.event = selected.optionalText(5);
  row.verdict = verdictNamed(selected.text(6)).value_or(Verdict::kInvalid);
  row.findings = findingsFrom(selected.text(7));
  row.answer.outcome = outcomeNamed(selected.text(8)).value_or(Answer::Outcome::kOther);
  row.answer.status = static_cast<int>(selected.integer(9));
  if (!selected.isNull(10)) row.answer.fault = static_cast<int>(selected.integer(10));
  row.body = selected.text(11);
  return row;
}

std::int64_t highestId(Database& database) {
  return database.integer("SELECT seq FROM sqlite_sequence WHERE name = 'reports'");
}

void forEachReport(Database& database,
                   const std::function<void(const StoredReport& report)>& visit) {
  Statement rows = database.prepare(
      "SELECT id, kind, user, session, event, length(CAST(body AS BLOB)) FROM reports ORDER BY id");
  while (rows.step()) {
    StoredReport report{.id = rows.integer(0), .size = rows.integer(5)};
    report.facts.kind = kindNamed(rows.text(1)).value_or(ReportKind::kUnknown);
    report.facts.user = rows.optionalText(2);
    report.facts.session = rows.optionalText(3);
    report.facts.event = rows.optionalText(4);
    visit(report);
  }
}

}  // namespace zln::collector
