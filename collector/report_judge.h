#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <vector>

#include "collector/report_facts.h"
#include "collector/report_row.h"

namespace zln::collector {

// Finds what the schemas cannot say: what is odd about a report in the light of those before it. Of
// each it remembers a few bytes, whatever its size, until told to forget it. One thread at a time.
class ReportJudge {
 public:
  // What is to be said about a report that arrives now. Remembers nothing.
  std::vector<Finding> judge(const ReportFacts& facts) const;
  // From now on the report counts as one that came before. Answers the earlier stops that were
  // without their start until now. The identifiers must grow.
  std::vector<std::int64_t> remember(std::int64_t id, const ReportFacts& facts);
  // Forgets the reports up to this one.
  void forgetThrough(std::int64_t id);
  void forgetAll();

 private:
  using Key = std::array<unsigned char, 16>;
  struct KeyHash {
    std::size_t operator()(const Key& key) const;
  };
  // What has to be forgotten with a report.
  struct Remembered {
    std::int64_t id;
    std::optional<Key> same;
    std::optional<Key> firstOf;
  };

  static Key keyOf(char domain, const std::string& text);
  static Key sameKey(ReportKind kind, const std::string& session);
  static std::optional<Key> sameKey(const ReportFacts& facts);
  static std::optional<Key> firstKey(const ReportFacts& facts);
  std::optional<std::int64_t> earlier(const ReportFacts& facts) const;
  bool hasStart(const ReportFacts& stop) const;
  void addDuplicate(const ReportFacts& facts, std::vector<Finding>& findings) const;
  void addSecondFirst(const ReportFacts& facts, std::vector<Finding>& findings) const;
  void addStopWithoutStart(const ReportFacts& facts, std::vector<Finding>& findings) const;
  std::vector<std::int64_t> takeStopsOf(const ReportFacts& start);
  void forget(const Remembered& report);

  std::deque<Remembered> remembered_;
  std::unordered_map<Key, std::int64_t, KeyHash> latest_;  // Of the equal reports.
  std::unordered_map<Key, std::int64_t, KeyHash> firsts_;  // The latest first session of a user.
  std::unordered_map<Key, std::vector<std::int64_t>, KeyHash> lonelyStops_;
};

}  // namespace zln::collector
