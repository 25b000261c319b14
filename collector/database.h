#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace zln::collector {

// What SQLite says went wrong, with the file's name and, where it helps, what to do.
class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Bytes that need not be a text.
struct Bytes {
  std::string_view value;
};

// An SQL statement that may run many times. All but the destructor throw DatabaseError.
class Statement {
 public:
  // Begins anew, with these values for its parameters.
  template <typename... Values>
  Statement& with(const Values&... values) {
    reset();
    int index = 0;
    (bind(++index, values), ...);
    return *this;
  }

  void reset();
  void bind(int index, std::nullptr_t);
  void bind(int index, std::int64_t value);
  void bind(int index, int value) { bind(index, std::int64_t{value}); }
  void bind(int index, bool value) { bind(index, std::int64_t{value}); }
  void bind(int index, double value);
  void bind(int index, std::string_view value);
  void bind(int index, const std::string& value) { bind(index, std::string_view(value)); }
  void bind(int index, const char* value) { bind(index, std::string_view(value)); }
  void bind(int index, Bytes value);
  template <typename Value>
  void bind(int index, const std::optional<Value>& value) {
    value ? bind(index, *value) : bind(index, nullptr);
  }
  // For a function of the program's own; `kind` must live as long as the program.
  void bindPointer(int index, void* value, const char* kind);

  // True when there is a row, whose columns can then be asked for.
  bool step();
  void run() {
    while (step()) {
    }
  }

  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  double real(int column) const;
  std::string text(int column) const;
  std::optional<std::int64_t> optionalInteger(int column) const;
  std::optional<double> optionalReal(int column) const;
  std::optional<std::string> optionalText(int column) const;

 private:
  friend class Database;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}
  void require(bool done) const;

  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// A connection to an SQLite database. One thread at a time.
class Database {
 public:
  // The file must exist. Throws DatabaseError.
  explicit Database(const std::filesystem::path& file);

  // Runs statements that give no rows. Throws DatabaseError.
  void run(const char* statements);
  // Throws DatabaseError.
  Statement prepare(std::string_view statement);
  // The one value of a statement that gives one row.
  std::int64_t integer(std::string_view statement);

  sqlite3* handle() { return connection_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* connection) const;
  };

  std::unique_ptr<sqlite3, Close> connection_;
};

// All or nothing: what is not committed is undone.
class Transaction {
 public:
  // Takes the right to write at once when `writes`.
  Transaction(Database& database, bool writes);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

 private:
  Database& database_;
  bool open_ = true;
};

}  // namespace zln::collector
