// Plays a game again and again, and each time one of its calls to the file system fails, falls
// short or is the last one. Prints what came of it; the exit status is 1 when something was wrong.
//
// usage: faults [--every K] [--seed N] [--jobs N] [--trial DISK,FAULT,CALL,N]
//   --every   plays one trial in K of each row of the table (1)
//   --seed    which trials these are, in which order, and where writes are cut (1)
//   --jobs    how many games are played at a time (2)
//   --trial   plays this one alone and shows the game's log
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/faults/playthrough.h"
#include "tests/support/command_line.h"
#include "tests/support/https_server.h"

namespace zln::faults {
namespace {

constexpr std::array<const char*, kCallKinds> kCallNames = {
    "none",   "open",        "write",     "truncate", "close",        "rename", "exchange",
    "unlink", "make folder", "attribute", "flush",    "open to read", "read"};
constexpr std::array<const char*, 11> kFaultNames = {"none",
                                                     "kill",
                                                     "kill half way",
                                                     "write short",
                                                     "EIO",
                                                     "ENOSPC",
                                                     "EROFS",
                                                     "EACCES",
                                                     "full from here on",
                                                     "read-only from here on",
                                                     "no descriptors from here on"};
constexpr std::array kDiskNames = {"ordinary", "no exchange", "no locks", "no attributes",
                                   "no flush"};

// Without the one of the quiet trials.
constexpr Disk kDisks[] = {Disk::kOrdinary, Disk::kNoExchange, Disk::kNoLocks, Disk::kNoAttributes};

constexpr int kErrorsOnly = 1;
constexpr int kAllSteps = 4;
// Of the trials whose call is not reached, since threads have taken another order.
constexpr int kMostMissedInHundred = 25;

const char* nameOf(Call call) { return kCallNames[static_cast<std::size_t>(call)]; }
const char* nameOf(Fault fault) { return kFaultNames[static_cast<std::size_t>(fault)]; }
const char* nameOf(Disk disk) { return kDiskNames[static_cast<std::size_t>(disk)]; }

std::string nameOf(const Trial& trial) {
  return std::string(nameOf(trial.disk)) + "," + nameOf(trial.fault) + "," + nameOf(trial.call) +
         "," + std::to_string(trial.ordinal);
}

struct Options {
  std::size_t every = 1;
  std::uint32_t seed = 1;
  unsigned jobs = 2;
  std::optional<Trial> trial;
};

// One row of the table.
struct Row {
  int played = 0;
  int struck = 0;
  int failed = 0;
};
using Rows = std::map<std::pair<Disk, Fault>, Row>;

using Calls = std::array<std::uint32_t, kCallKinds>;

void tell(const Trial& trial, const Outcome& outcome) {
  std::string text = "FAILED " + nameOf(trial) + "\n";
  for (const std::string& wrong : outcome.wrongs) text += "       " + wrong + "\n";
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

// Plays trials, several at a time. The outcomes are in the order of the trials.
std::vector<Outcome> play(const std::vector<Trial>& trials, unsigned jobs, int level) {
  std::vector<Outcome> outcomes(trials.size());
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> players;
  for (unsigned job = 0; job < jobs; ++job) {
    players.emplace_back([&] {
      HttpsServer server;
      for (std::size_t index = next++; index < trials.size(); index = next++) {
        outcomes[index] = Playthrough(server, trials[index], level).play();
        if (!outcomes[index].wrongs.empty()) tell(trials[index], outcomes[index]);
      }
    });
  }
  for (std::thread& player : players) player.join();
  return outcomes;
}

bool mayBefall(Fault fault, Call call) {
  // Flushing has trials of its own, in which the game is quiet for so long.
  if (call == Call::kFlush) return false;
  switch (fault) {
    case Fault::kKillHalf:
    case Fault::kShorten:
      return call == Call::kWrite;
    case Fault::kKill:
    case Fault::kEio:
    case Fault::kEacces:
      return true;
    case Fault::kNoDescriptorsFromHere:
      return call == Call::kOpen || call == Call::kOpenToRead;
    default:
      return call != Call::kOpenToRead && call != Call::kRead;
  }
}

// How often each kind of call is made on each disk when nothing fails, at most. Absent when
// something is wrong even so.
std::optional<std::map<Disk, Calls>> countCalls(unsigned jobs) {
  std::vector<Trial> trials;
  for (const Disk disk : kDisks) trials.insert(trials.end(), 2, Trial{.disk = disk});
  const std::vector<Outcome> outcomes = play(trials, jobs, kErrorsOnly);
  std::map<Disk, Calls> most;
  for (std::size_t index = 0; index < trials.size(); ++index) {
    if (!outcomes[index].wrongs.empty()) return std::nullopt;
    Calls& calls = most[trials[index].disk];
    for (std::size_t kind = 0; kind < kCallKinds; ++kind) {
      calls[kind] = std::max(calls[kind], outcomes[index].calls[kind]);
    }
  }
  return most;
}

// A fault at every call that it may befall.
void addTrials(std::vector<Trial>& trials, Disk disk, Fault fault, const Calls& calls) {
  for (std::size_t kind = 1; kind < kCallKinds; ++kind) {
    const Call call = static_cast<Call>(kind);
    if (!mayBefall(fault, call)) continue;
    for (std::uint32_t ordinal = 1; ordinal <= calls[kind]; ++ordinal) {
      trials.push_back({.disk = disk, .fault = fault, .call = call, .ordinal = ordinal});
    }
  }
}

void addFlushTrials(std::vector<Trial>& trials) {
  for (const Fault fault :
       {Fault::kKill, Fault::kEio, Fault::kEnospc, Fault::kErofs, Fault::kEacces}) {
    for (std::uint32_t ordinal = 1; ordinal <= kFlushes; ++ordinal) {
      trials.push_back({.fault = fault, .call = Call::kFlush, .ordinal = ordinal, .isQuiet = true});
    }
  }
  trials.push_back({.disk = Disk::kNoFlush, .fault = Fault::kNone, .isQuiet = true});
}

std::vector<Trial> allTrials(const std::map<Disk, Calls>& calls) {
  std::vector<Trial> trials;
  for (const auto& [disk, counts] : calls) {
    for (const Fault fault : {Fault::kKill, Fault::kKillHalf}) {
      addTrials(trials, disk, fault, counts);
    }
  }
  for (const Fault fault :
       {Fault::kShorten, Fault::kEio, Fault::kEnospc, Fault::kErofs, Fault::kEacces,
        Fault::kFullFromHere, Fault::kReadOnlyFromHere, Fault::kNoDescriptorsFromHere}) {
    addTrials(trials, Disk::kOrdinary, fault, calls.at(Disk::kOrdinary));
  }
  addFlushTrials(trials);
  return trials;
}

// One in so many of each row.
std::vector<Trial> chosen(std::vector<Trial> trials, const Options& options) {
  std::mt19937 random(options.seed);
  std::shuffle(trials.begin(), trials.end(), random);
  std::map<std::pair<Disk, Fault>, std::size_t> seen;
  std::vector<Trial> taken;
  for (Trial& trial : trials) {
    trial.part = static_cast<std::uint8_t>(random() % 256);
    if (seen[{trial.disk, trial.fault}]++ % options.every == 0) taken.push_back(trial);
  }
  return taken;
}

void printCalls(const std::map<Disk, Calls>& calls) {
  std::printf("%-16s", "calls");
  for (const auto& [disk, counts] : calls) std::printf("%15s", nameOf(disk));
  for (std::size_t kind = 1; kind < kCallKinds; ++kind) {
    std::printf("\n%-16s", kCallNames[kind]);
    for (const auto& [disk, counts] : calls) std::printf("%15u", counts[kind]);
  }
  std::printf("\n\n");
}

void add(Row& row, const Trial& trial, const Outcome& outcome) {
  ++row.played;
  if (outcome.isStruck || trial.fault == Fault::kNone) ++row.struck;
  if (!outcome.wrongs.empty()) ++row.failed;
}

void printRow(const char* disk, const char* fault, const Row& row) {
  std::printf("%-16s%-28s%8d%8d%14d%8d\n", disk, fault, row.played, row.struck,
              row.played - row.struck, row.failed);
}

// True when all is well.
bool printRows(const std::vector<Trial>& trials, const std::vector<Outcome>& outcomes) {
  Rows rows;
  Row sum;
  for (std::size_t index = 0; index < trials.size(); ++index) {
    const Trial& trial = trials[index];
    for (Row* row : {&rows[{trial.disk, trial.fault}], &sum}) add(*row, trial, outcomes[index]);
  }
  std::printf("%-16s%-28s%8s%8s%14s%8s\n", "disk", "fault", "played", "struck", "not reached",
              "failed");
  for (const auto& [kind, row] : rows) printRow(nameOf(kind.first), nameOf(kind.second), row);
  printRow("", "all", sum);
  const bool isOftenMissed = (sum.played - sum.struck) * 100 > sum.played * kMostMissedInHundred;
  if (isOftenMissed) std::printf("\nToo many calls were not reached.\n");
  std::printf("\n%d passed, %d failed\n", sum.played - sum.failed, sum.failed);
  return sum.failed == 0 && !isOftenMissed;
}

int playAll(const Options& options) {
  std::printf("seed %u, one trial in %zu\n\n", options.seed, options.every);
  const auto calls = countCalls(options.jobs);
  if (!calls) return EXIT_FAILURE;
  printCalls(*calls);
  const std::vector<Trial> trials = chosen(allTrials(*calls), options);
  const std::vector<Outcome> outcomes = play(trials, options.jobs, kErrorsOnly);
  return printRows(trials, outcomes) ? EXIT_SUCCESS : EXIT_FAILURE;
}

int playOne(const Options& options) {
  const Outcome outcome = play({*options.trial}, 1, kAllSteps).front();
  std::printf("%s\n%s: %s, %s\n", outcome.log.c_str(), nameOf(*options.trial).c_str(),
              outcome.isStruck ? "struck" : "not reached",
              outcome.wrongs.empty() ? "passed" : "failed");
  return outcome.wrongs.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

template <typename Kind, typename Names>
bool readName(const std::string& text, const Names& names, Kind& kind) {
  const auto found = std::find(names.begin(), names.end(), text);
  if (found == names.end()) return false;
  kind = static_cast<Kind>(found - names.begin());
  return true;
}

bool readTrial(const std::string& text, std::optional<Trial>& trial) {
  std::istringstream parts(text);
  std::string disk, fault, call, ordinal;
  std::getline(parts, disk, ',');
  std::getline(parts, fault, ',');
  std::getline(parts, call, ',');
  std::getline(parts, ordinal);
  trial.emplace();
  const bool isRead =
      readName(disk, kDiskNames, trial->disk) && readName(fault, kFaultNames, trial->fault) &&
      readName(call, kCallNames, trial->call) && CommandLine::readNumber(ordinal, trial->ordinal);
  trial->isQuiet = trial->call == Call::kFlush || trial->disk == Disk::kNoFlush;
  return isRead;
}

}  // namespace
}  // namespace zln::faults

int main(int count, char** words) {
  using namespace zln::faults;
  Options options;
  zln::CommandLine("faults [--every K] [--seed N] [--jobs N] [--trial DISK,FAULT,CALL,N]")
      .option("--every", options.every)
      .option("--seed", options.seed)
      .option("--jobs", options.jobs)
      .option("--trial", [&](const auto& text) { return readTrial(text, options.trial); })
      .read(count, words);
  return options.trial ? playOne(options) : playAll(options);
}
