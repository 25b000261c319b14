#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/installation_files.h"

namespace zln {

// Where a report met a full queue.
enum class FullQueue { kNot, kNew, kRetry, kRestored };

// What became of one report object of a process, by the library's log.
struct ReportStory {
  std::string subject;  // Empty when it is not known.
  bool stored = false;  // It comes from an earlier process.
  // The game may count on it: the call has returned, or a session report's save.
  bool accepted = false;
  bool queued = false;
  bool saved = false;  // After it was queued.
  int deliveries = 0;
  bool rejected = false;
  // The last word on it was a temporary failure, without being queued again or held.
  bool unsettled = false;
  FullQueue fullQueue = FullQueue::kNot;
  // Delivered, and saves that knew of it have ended.
  bool departed = false;
};

// What a life's diary tells.
struct LifeStory {
  std::vector<ReportStory> reports;
  int callsBegun = 0;
  int callsDone = 0;
  int sessions = 0;
  int firstSessions = 0;
  // An event of the application has been handled, and before it all that the start brings.
  bool isSettled = false;
  // Session reports of sessions whose identifier the game had no time to ask for.
  int unnamedReports = 0;
  // Sessions that have begun without a report, and how many of them have no name either.
  std::set<std::string> sessionsWithoutBegin;
  int unnamedWithoutBegin = 0;
  // Stored reports that the process has come to, in the file's order.
  std::size_t recovered = 0;
  bool killedItself = false;
  // What should not be in a diary.
  std::vector<std::string> complaints;
};

// `name` is the life's, `before` the files at its beginning.
LifeStory readLifeStory(const std::string& diary, const std::string& name,
                        const StoredState& before);

}  // namespace zln
