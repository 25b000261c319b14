#include "collector/report_queries.h"

#include <sqlite3.h>

#include <cstddef>
#include <string_view>
#include <utility>
#include <variant>

#include "collector/json_object.h"
#include "collector/report_database.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr char kWantedKind[] = "zln wanted members";

// Of bodies: a list ends with the one that reaches it, so that it fits into memory many times.
constexpr std::int64_t kLongestList = std::int64_t{16} * 1024 * 1024;

// The members that a body must have.
class WantedMembers {
 public:
  explicit WantedMembers(const std::map<std::string, json>& members) : members_(members) {
    for (const auto& [name, value] : members_) {
      necessary_.push_back(json(name).dump());
      if (value.is_string()) necessary_.push_back(value.dump());
    }
  }

  bool areIn(std::string_view body) const {
    if (!canBeIn(body)) return false;
    const auto object = parseObject(body);
    if (!object) return false;
    for (const auto& [name, value] : members_) {
      const auto member = object->find(name);
      if (member == object->end() || *member != value) return false;
    }
    return true;
  }

 private:
  // Spares most bodies the parsing: in one without escapes, names and texts stand as they are.
  bool canBeIn(std::string_view body) const {
    if (body.find('\\') != std::string_view::npos) return true;
    for (const std::string& text : necessary_) {
      if (body.find(text) == std::string_view::npos) return false;
    }
    return true;
  }

  const std::map<std::string, json>& members_;
  std::vector<std::string> necessary_;
};

std::string_view bytesOf(sqlite3_value* value) {
  const auto* data = static_cast<const char*>(sqlite3_value_blob(value));
  return {data != nullptr ? data : "", static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

// has_members(body, wanted) for SQL.
void hasMembers(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const auto* wanted =
      static_cast<const WantedMembers*>(sqlite3_value_pointer(values[1], kWantedKind));
  try {
    sqlite3_result_int(context, wanted != nullptr && wanted->areIn(bytesOf(values[0])));
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  }
}

void defineHasMembers(Database& database) {
  sqlite3_create_function_v2(database.handle(), "has_members", 2, SQLITE_UTF8, nullptr, hasMembers,
                             nullptr, nullptr, nullptr);
}

// The condition of a query, with its values.
class Condition {
 public:
  explicit Condition(const ReportQuery& query) : wanted_(query.match) {
    add("id > ?", query.after);
    add("id < ?", query.before);
    if (query.kind) add("kind = ?", std::optional(std::string(nameOf(*query.kind))));
    if (query.verdict) add("verdict = ?", std::optional(std::string(nameOf(*query.verdict))));
    add("user = ?", query.user);
    add("session = ?", query.session);
    add("instr(CAST(body AS BLOB), CAST(? AS BLOB))", query.text);
    if (!query.match.empty()) append("has_members(body, ?)");
    matches_ = !query.match.empty();
  }

  const std::string& sql() const { return sql_; }

  // Answers the index of the next parameter.
  int bindTo(Statement& statement) {
    int index = 0;
    for (const Value& value : values_) {
      std::visit([&](const auto& it) { statement.bind(++index, it); }, value);
    }
    if (matches_) statement.bindPointer(++index, &wanted_, kWantedKind);
    return index + 1;
  }

 private:
  using Value = std::variant<std::int64_t, std::string>;

  template <typename T>
  void add(const char* condition, const std::optional<T>& value) {
    if (!value) return;
    append(condition);
    values_.emplace_back(*value);
  }

  void append(const char* condition) {
    sql_ += sql_.empty() ? "WHERE " : " AND ";
    sql_ += condition;
  }

  std::string sql_;
  std::vector<Value> values_;
  WantedMembers wanted_;
  bool matches_ = false;
};

// One row more than wanted tells whether there are more.
ReportList readPage(Database& database, const ReportQuery& query, Condition& condition) {
  Statement rows = database.prepare(kSelectRows + condition.sql() + " ORDER BY id" +
                                    (query.newestFirst ? " DESC" : "") + " LIMIT ?");
  rows.bind(condition.bindTo(rows), std::int64_t{query.limit} + 1);
  ReportList list;
  std::int64_t size = 0;
  while (!list.more && rows.step()) {
    list.more = std::ssize(list.reports) == query.limit || size >= kLongestList;
    if (list.more) break;
    list.reports.push_back(rowOf(rows));
    size += std::ssize(list.reports.back().body);
  }
  return list;
}

std::int64_t count(Database& database, Condition& condition) {
  Statement counted = database.prepare("SELECT count(*) FROM reports " + condition.sql());
  condition.bindTo(counted);
  counted.step();
  return counted.integer(0);
}

}  // namespace

ReportList listReports(Database& database, const ReportQuery& query) {
  defineHasMembers(database);
  const Transaction reading(database, /*writes=*/false);
  Condition condition(query);
  ReportList list = readPage(database, query, condition);
  list.total = list.more ? count(database, condition) : std::ssize(list.reports);
  return list;
}

std::optional<ReportRow> findReport(Database& database, std::int64_t id) {
  Statement row = database.prepare(std::string(kSelectRows) + "WHERE id = ?");
  row.bind(1, id);
  return row.step() ? std::optional(rowOf(row)) : std::nullopt;
}

}  // namespace zln::collector
