#include "collector/report_judge.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>

namespace zln::collector {
namespace {

// Stored dates are single-precision numbers, which from here on are this far apart.
constexpr double kCoarseFrom = 1024.0 * 1024 * 1024;
constexpr double kCoarseStep = 128;

// What tells the keys of different things apart.
constexpr char kEventDomain = 'e';
constexpr char kUserDomain = 'u';

bool begins(ReportKind kind) {
  return kind == ReportKind::kSessionFirst || kind == ReportKind::kSessionStart;
}

bool isCoarse(double date) { return date >= kCoarseFrom && std::fmod(date, kCoarseStep) == 0; }

void addStopBeforeStart(const ReportFacts& facts, std::vector<Finding>& findings) {
  if (facts.kind == ReportKind::kSessionStop && facts.start && facts.stop &&
      *facts.stop < *facts.start) {
    findings.push_back({"stop-before-start", Severity::kError,
                        "\"stopTime\" is before \"startTime\": the session ends before it begins"});
  }
}

void addRoundedDate(const std::optional<double>& date, const std::string& name,
                    std::vector<Finding>& findings) {
  if (date && isCoarse(*date)) {
    findings.push_back({"rounded-date", Severity::kNotice,
                        "\"" + name +
                            "\" is a multiple of 128 seconds: the report was stored before it was "
                            "sent, and storing rounds its dates"});
  }
}

}  // namespace

std::vector<Finding> ReportJudge::judge(const ReportFacts& facts) const {
  std::vector<Finding> findings;
  addDuplicate(facts, findings);
  addSecondFirst(facts, findings);
  addStopWithoutStart(facts, findings);
  addStopBeforeStart(facts, findings);
  if (isSession(facts.kind)) {
    addRoundedDate(facts.start, "startTime", findings);
    addRoundedDate(facts.stop, "stopTime", findings);
  }
  return findings;
}

void ReportJudge::addDuplicate(const ReportFacts& facts, std::vector<Finding>& findings) const {
  if (const auto before = earlier(facts)) {
    findings.push_back({"duplicate", Severity::kNotice,
                        "this report came before, as number " + std::to_string(*before)});
  }
}

// A first session that is sent again is no second one.
void ReportJudge::addSecondFirst(const ReportFacts& facts, std::vector<Finding>& findings) const {
  const auto key = firstKey(facts);
  if (!key || earlier(facts)) return;
  if (const auto before = firsts_.find(*key); before != firsts_.end()) {
    findings.push_back({"second-first-session", Severity::kError,
                        "this installation has reported another first session before, as number " +
                            std::to_string(before->second)});
  }
}

void ReportJudge::addStopWithoutStart(const ReportFacts& facts,
                                      std::vector<Finding>& findings) const {
  if (facts.kind == ReportKind::kSessionStop && facts.session && !hasStart(facts)) {
    findings.push_back({"stop-without-start", Severity::kWarning,
                        "the start of this session has not arrived yet"});
  }
}

std::optional<std::int64_t> ReportJudge::earlier(const ReportFacts& facts) const {
  const auto key = sameKey(facts);
  const auto found = key ? latest_.find(*key) : latest_.end();
  return found == latest_.end() ? std::nullopt : std::optional(found->second);
}

bool ReportJudge::hasStart(const ReportFacts& stop) const {
  return latest_.contains(sameKey(ReportKind::kSessionFirst, *stop.session)) ||
         latest_.contains(sameKey(ReportKind::kSessionStart, *stop.session));
}

std::vector<std::int64_t> ReportJudge::remember(std::int64_t id, const ReportFacts& facts) {
  const Remembered report{id, sameKey(facts), firstKey(facts)};
  if (facts.kind == ReportKind::kSessionStop && facts.session && !hasStart(facts)) {
    lonelyStops_[*report.same].push_back(id);
  }
  if (report.same) latest_[*report.same] = id;
  if (report.firstOf) firsts_[*report.firstOf] = id;
  if (report.same || report.firstOf) remembered_.push_back(report);
  return takeStopsOf(facts);
}

std::vector<std::int64_t> ReportJudge::takeStopsOf(const ReportFacts& start) {
  if (!begins(start.kind) || !start.session) return {};
  const auto stops = lonelyStops_.find(sameKey(ReportKind::kSessionStop, *start.session));
  if (stops == lonelyStops_.end()) return {};
  std::vector<std::int64_t> ids = std::move(stops->second);
  lonelyStops_.erase(stops);
  return ids;
}

void ReportJudge::forgetThrough(std::int64_t id) {
  while (!remembered_.empty() && remembered_.front().id <= id) {
    forget(remembered_.front());
    remembered_.pop_front();
  }
}

void ReportJudge::forget(const Remembered& report) {
  const auto forgetIn = [&](auto& map, const std::optional<Key>& key) {
    if (!key) return;
    const auto found = map.find(*key);
    if (found != map.end() && found->second == report.id) map.erase(found);
  };
  forgetIn(latest_, report.same);
  forgetIn(firsts_, report.firstOf);
  if (!report.same) return;
  if (const auto stops = lonelyStops_.find(*report.same); stops != lonelyStops_.end()) {
    std::erase(stops->second, report.id);
    if (stops->second.empty()) lonelyStops_.erase(stops);
  }
}

void ReportJudge::forgetAll() { *this = {}; }

std::optional<ReportJudge::Key> ReportJudge::sameKey(const ReportFacts& facts) {
  if (isSession(facts.kind) && facts.session) return sameKey(facts.kind, *facts.session);
  if (isAd(facts.kind) && facts.event) return keyOf(kEventDomain, *facts.event);
  return std::nullopt;
}

ReportJudge::Key ReportJudge::sameKey(ReportKind kind, const std::string& session) {
  return keyOf(static_cast<char>('0' + static_cast<int>(kind)), session);
}

std::optional<ReportJudge::Key> ReportJudge::firstKey(const ReportFacts& facts) {
  if (facts.kind != ReportKind::kSessionFirst || !facts.user) return std::nullopt;
  return keyOf(kUserDomain, *facts.user);
}

// Of one size, however long the text is.
ReportJudge::Key ReportJudge::keyOf(char domain, const std::string& text) {
  const std::string input = domain + text;
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(input.data()), input.size(), digest);
  Key key;
  std::copy_n(digest, key.size(), key.begin());
  return key;
}

std::size_t ReportJudge::KeyHash::operator()(const Key& key) const {
  std::size_t hash;
  std::memcpy(&hash, key.data(), sizeof hash);
  return hash;
}

}  // namespace zln::collector
