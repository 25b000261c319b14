#include "collector/database.h"

#include <sqlite3.h>

namespace zln::collector {
namespace {

// How long to wait for another process to be done with the file.
constexpr int kPatienceMs = 5000;

// The lowest byte of a code is its kind.
bool isDamage(int code) {
  return (code & 0xFF) == SQLITE_NOTADB || (code & 0xFF) == SQLITE_CORRUPT;
}

[[noreturn]] void fail(sqlite3* connection) {
  const char* file = sqlite3_db_filename(connection, "main");
  const bool damaged = isDamage(sqlite3_extended_errcode(connection));
  throw DatabaseError("cannot use " + std::string(file != nullptr ? file : "the database") + ": " +
                      sqlite3_errmsg(connection) +
                      (damaged ? "; move it away to begin a new one" : ""));
}

}  // namespace

void Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

void Statement::require(bool done) const {
  if (!done) fail(sqlite3_db_handle(statement_.get()));
}

// What it answers is how the last run ended, of which that run has told.
void Statement::reset() { sqlite3_reset(statement_.get()); }

void Statement::bind(int index, std::nullptr_t) {
  require(sqlite3_bind_null(statement_.get(), index) == SQLITE_OK);
}

void Statement::bind(int index, std::int64_t value) {
  require(sqlite3_bind_int64(statement_.get(), index, value) == SQLITE_OK);
}

void Statement::bind(int index, double value) {
  require(sqlite3_bind_double(statement_.get(), index, value) == SQLITE_OK);
}

void Statement::bind(int index, std::string_view value) {
  require(sqlite3_bind_text64(statement_.get(), index, value.data() != nullptr ? value.data() : "",
                              value.size(), SQLITE_TRANSIENT, SQLITE_UTF8) == SQLITE_OK);
}

void Statement::bind(int index, Bytes bytes) {
  const char* data = bytes.value.data() != nullptr ? bytes.value.data() : "";
  require(sqlite3_bind_blob64(statement_.get(), index, data, bytes.value.size(),
                              SQLITE_TRANSIENT) == SQLITE_OK);
}

void Statement::bindPointer(int index, void* value, const char* kind) {
  require(sqlite3_bind_pointer(statement_.get(), index, value, kind, nullptr) == SQLITE_OK);
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  require(result == SQLITE_ROW || result == SQLITE_DONE);
  return result == SQLITE_ROW;
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

double Statement::real(int column) const { return sqlite3_column_double(statement_.get(), column); }

// The bytes of a text or blob, NUL among them.
std::string Statement::text(int column) const {
  const void* data = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return data == nullptr
             ? std::string()
             : std::string(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

std::optional<std::int64_t> Statement::optionalInteger(int column) const {
  return isNull(column) ? std::nullopt : std::optional(integer(column));
}

std::optional<double> Statement::optionalReal(int column) const {
  return isNull(column) ? std::nullopt : std::optional(real(column));
}

std::optional<std::string> Statement::optionalText(int column) const {
  return isNull(column) ? std::nullopt : std::optional(text(column));
}

void Database::Close::operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }

Database::Database(const std::filesystem::path& file) {
  sqlite3* connection = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int result = sqlite3_open_v2(file.c_str(), &connection, flags, nullptr);
  connection_.reset(connection);
  if (result != SQLITE_OK) {
    throw DatabaseError("cannot open " + file.string() + ": " + sqlite3_errstr(result));
  }
  sqlite3_busy_timeout(connection, kPatienceMs);
}

void Database::run(const char* statements) {
  if (sqlite3_exec(handle(), statements, nullptr, nullptr, nullptr) != SQLITE_OK) fail(handle());
}

Statement Database::prepare(std::string_view statement) {
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(handle(), statement.data(), static_cast<int>(statement.size()), &prepared,
                         nullptr) != SQLITE_OK) {
    fail(handle());
  }
  return Statement(prepared);
}

std::int64_t Database::integer(std::string_view statement) {
  Statement prepared = prepare(statement);
  return prepared.step() ? prepared.integer(0) : 0;
}

Transaction::Transaction(Database& database, bool writes) : database_(database) {
  database_.run(writes ? "BEGIN IMMEDIATE" : "BEGIN");
}

// A rollback fails only when SQLite has rolled back already.
Transaction::~Transaction() {
  if (open_) sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database_.run("COMMIT");
  open_ = false;
}

}  // namespace zln::collector
