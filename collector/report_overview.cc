#include "collector/report_overview.h"

#include <cstdint>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "collector/json.h"
#include "collector/json_object.h"
#include "collector/report_kinds.h"
#include "collector/report_row.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr std::int64_t kMostReports = 2000;  // Of an installation in a timeline.

json zeroFor(const std::vector<std::string_view>& names) {
  json counts = json::object();
  for (const std::string_view name : names) counts[std::string(name)] = 0;
  return counts;
}

std::vector<std::string_view> kindNames() {
  std::vector<std::string_view> names;
  for (const ReportKind kind : kReportKinds) names.push_back(nameOf(kind));
  names.push_back(nameOf(ReportKind::kUnknown));
  return names;
}

std::vector<std::string_view> verdictNames() {
  return {nameOf(Verdict::kValid), nameOf(Verdict::kDuplicate), nameOf(Verdict::kSuspect),
          nameOf(Verdict::kInvalid)};
}

std::vector<std::string_view> outcomeNames() {
  using enum Answer::Outcome;
  return {nameOf(kAccepted), nameOf(kRetry), nameOf(kDropped), nameOf(kOther), nameOf(kCut)};
}

void increase(json& count, std::int64_t by) { count = count.get<std::int64_t>() + by; }

json zeroSummary() {
  json summary = {{"reports", 0},
                  {"duplicates", 0},
                  {"byKind", zeroFor(kindNames())},
                  {"byVerdict", zeroFor(verdictNames())},
                  {"byOutcome", zeroFor(outcomeNames())}};
  for (const std::string_view kind : kindNames()) {
    summary["verdicts"][std::string(kind)] = zeroFor(verdictNames());
  }
  return summary;
}

void addCounts(Database& database, json& summary) {
  Statement groups = database.prepare(
      "SELECT kind, verdict, outcome, repeats, count(*) FROM reports "
      "GROUP BY kind, verdict, outcome, repeats");
  while (groups.step()) {
    const std::int64_t count = groups.integer(4);
    increase(summary["reports"], count);
    increase(summary["byKind"][groups.text(0)], count);
    increase(summary["byVerdict"][groups.text(1)], count);
    increase(summary["byOutcome"][groups.text(2)], count);
    increase(summary["verdicts"][groups.text(0)][groups.text(1)], count);
    if (groups.integer(3) != 0) increase(summary["duplicates"], count);
  }
}

json fillOf(Database& database) {
  json fill = json::array();
  Statement groups = database.prepare(
      "SELECT network, ad_type, count(*), sum(fill) FROM reports "
      "WHERE network IS NOT NULL AND ad_type IS NOT NULL AND fill IS NOT NULL AND NOT repeats "
      "GROUP BY network, ad_type");
  while (groups.step()) {
    fill.push_back({{"network", groups.text(0)},
                    {"adType", groups.text(1)},
                    {"attempts", groups.integer(2)},
                    {"filled", groups.integer(3)}});
  }
  return fill;
}

// What the reports of one installation tell, gathered from the newest to the oldest.
class Installation {
 public:
  Installation(std::string user, double firstSeen) {
    shown_ = {{"user", std::move(user)}, {"bundleId", nullptr}, {"appVersion", nullptr},
              {"firstSeen", firstSeen},  {"sessions", nullptr}, {"ads", nullptr}};
  }

  void add(const Statement& row) {
    keepNewest("bundleId", row.optionalText(kBundle));
    keepNewest("appVersion", row.optionalText(kVersion));
    const ReportKind kind = kindNamed(row.text(kKind)).value_or(ReportKind::kUnknown);
    if (isSession(kind)) addSession(kind, row);
    if (isAd(kind)) addAd(row);
  }

  json take() {
    json& sessions = shown_["sessions"] = json::array();
    for (auto& [start, session] : sessionsInOrder()) sessions.push_back(std::move(*session));
    shown_["ads"] = json::array_t(ads_.rbegin(), ads_.rend());
    return std::move(shown_);
  }

  static constexpr char kColumns[] =
      "id, arrived, kind, session, bundle, version, start, stop, played, network, ad_type, zone, "
      "fill";

 private:
  enum Column {
    kId,
    kArrived,
    kKind,
    kSession,
    kBundle,
    kVersion,
    kStart,
    kStop,
    kPlayed,
    kNetwork,
    kAdType,
    kZone,
    kFill
  };

  void keepNewest(const char* key, const std::optional<std::string>& value) {
    if (value && shown_[key].is_null()) shown_[key] = *value;
  }

  // Of a session that only its stop has told of, the stop knows the start.
  void addSession(ReportKind kind, const Statement& row) {
    if (row.isNull(kSession) || row.isNull(kStart)) return;
    json& session = sessions_[row.text(kSession)];
    if (session.is_null()) {
      session = {{"session", row.text(kSession)},
                 {"first", false},
                 {"start", row.real(kStart)},
                 {"stop", nullptr},
                 {"played", nullptr},
                 {"stopArrived", nullptr}};
    }
    if (kind == ReportKind::kSessionStop) {
      session["stop"] = valueOrNull(row.optionalReal(kStop));
      session["played"] = valueOrNull(row.optionalReal(kPlayed));
      session["stopArrived"] = row.real(kArrived);
    } else {
      session["start"] = row.real(kStart);
      session["first"] = kind == ReportKind::kSessionFirst;
    }
  }

  void addAd(const Statement& row) {
    if (row.isNull(kNetwork) || row.isNull(kAdType) || row.isNull(kFill)) return;
    ads_.push_back({{"id", row.integer(kId)},
                    {"arrived", row.real(kArrived)},
                    {"network", row.text(kNetwork)},
                    {"adType", row.text(kAdType)},
                    {"zoneId", valueOrNull(row.optionalText(kZone))},
                    {"fill", row.integer(kFill) != 0}});
  }

  std::multimap<double, json*> sessionsInOrder() {
    std::multimap<double, json*> ordered;
    for (auto& [name, session] : sessions_) ordered.emplace(session["start"], &session);
    return ordered;
  }

  json shown_;
  std::map<std::string, json> sessions_;
  std::vector<json> ads_;
};

std::vector<std::string> latestUsers(Database& database, std::int64_t most) {
  Statement groups = database.prepare(
      "SELECT user FROM reports WHERE user IS NOT NULL GROUP BY user ORDER BY max(id) DESC LIMIT ?");
  groups.bind(1, most);
  std::vector<std::string> users;
  while (groups.step()) users.push_back(groups.text(0));
  return users;
}

// Absent when the user has sent nothing.
std::optional<double> firstSeen(Database& database, const std::string& user) {
  Statement first =
      database.prepare("SELECT arrived FROM reports WHERE user = ? ORDER BY id LIMIT 1");
  return first.with(user).step() ? std::optional(first.real(0)) : std::nullopt;
}

// Sets `truncated` when there are more reports than are looked at.
json installationOf(Database& database, const std::string& user, double firstSeen,
                    bool& truncated) {
  Statement rows = database.prepare(std::string("SELECT ") + Installation::kColumns +
                                    " FROM reports WHERE user = ? AND NOT repeats "
                                    "ORDER BY id DESC LIMIT ?");
  rows.with(user, kMostReports + 1);
  Installation installation(user, firstSeen);
  std::int64_t seen = 0;
  while (seen < kMostReports && rows.step()) {
    installation.add(rows);
    ++seen;
  }
  truncated = truncated || (seen == kMostReports && rows.step());
  return installation.take();
}

}  // namespace

json summaryOf(Database& database) {
  const Transaction reading(database, /*writes=*/false);
  json summary = zeroSummary();
  addCounts(database, summary);
  summary["installations"] = database.integer("SELECT count(DISTINCT user) FROM reports");
  summary["sessions"] = database.integer("SELECT count(DISTINCT session) FROM reports");
  summary["fill"] = fillOf(database);
  return summary;
}

json timelineOf(Database& database, const std::optional<std::string>& user, int limit) {
  const Transaction reading(database, /*writes=*/false);
  auto users = user ? std::vector{*user} : latestUsers(database, std::int64_t{limit} + 1);
  bool truncated = !user && std::ssize(users) > limit;
  if (truncated) users.pop_back();
  json installations = json::array();
  for (const std::string& each : users) {
    if (const auto first = firstSeen(database, each)) {
      installations.push_back(installationOf(database, each, *first, truncated));
    }
  }
  return {{"installations", std::move(installations)}, {"truncated", truncated}};
}

}  // namespace zln::collector
