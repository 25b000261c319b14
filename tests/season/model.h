#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tests/season/machine.h"

namespace zln::season {

enum class Kind : std::uint8_t { first, start, stop, adAttempt, adZoneAttempt };

// What tells reports apart: the number of the session's or the attempt's identifier, and the kind.
using Key = std::uint64_t;
inline Key keyOf(std::uint64_t number, Kind kind) {
  return number * 8 + static_cast<std::uint64_t>(kind);
}
inline std::uint64_t numberOf(Key key) { return key / 8; }
inline Kind kindOf(Key key) { return static_cast<Kind>(key % 8); }

// The ten settings, by their place in this order.
enum Setting : std::size_t {
  transmitImmediately,
  transmitOnBackgrounding,
  transmitOnForegrounding,
  failureLimit,
  inactivityLimit,
  updateInterval,
  backgroundTimeout,
  sendStart,
  sendStop,
  sendFirst,
  settingCount
};
using Settings = std::array<double, settingCount>;
constexpr std::array<const char*, settingCount> kSettingKeys = {
    "ConfigSerializationKeyTransmitReportsImmediately",
    "ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding",
    "ConfigSerializationKeyTransmitReportsOnApplicationForegrounding",
    "ConfigSerializationKeyReportTemporaryFailureLimit",
    "ConfigSerializationKeySessionInactivityTimeLimit",
    "ConfigSerializationKeyConfigUpdateInterval",
    "ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds",
    "ConfigSerializationKeySendStartSessionReports",
    "ConfigSerializationKeySendStopSessionReports",
    "ConfigSerializationKeySendFirstSessionReports",
};
constexpr Settings kDefaultSettings = {1, 1, 1, 3, 600, 86400, 60, 1, 1, 1};

// A stored time comes back as a 32-bit float. In an optimized build GCC 12 takes out the narrowing
// of two neighbors in a struct; this one it has to keep.
inline double restoredTime(double seconds) {
  const volatile float stored = static_cast<float>(seconds);
  return static_cast<double>(stored);
}

struct Report {
  Key key = 0;
  std::string userId;
  double startTime = 0;
  double stopTime = 0;
  double duration = 0;
  std::string network;
  std::string adType;
  std::string zone;
  bool filled = false;
  int failures = 0;
  // The report file has had it.
  bool isStored = false;
};
using ReportPtr = std::shared_ptr<Report>;

struct Session {
  std::uint64_t number = 0;
  double startTime = 0;
  double lastPause = 0;
  double lastResume = 0;
  float total = 0;
  bool running = true;
  // By a clock that nobody sets: how long the game was in use.
  double played = 0;
  int pauses = 0;
  // Neither the clock was set nor did the events come in an odd order.
  bool isRegular = true;
};

struct SettingsFile {
  Settings settings{};
  double lastUpdate = 0;
  bool lastUpdateIsText = false;
  bool isReadable = true;
};

// How often things have come about, or for how many seconds. Of reports that the library accepted:
// what has become of them, and why they are lost.
using Counts = std::map<std::string_view, double>;

struct Operation {
  ReportPtr report;
  bool started = false;
};
using OperationPtr = std::shared_ptr<Operation>;

struct Monitor {
  bool isProcessing = true;
  bool hasTask = false;
};
using MonitorPtr = std::shared_ptr<Monitor>;

// One of the three.
struct PoolTask {
  bool loadsStored = false;
  OperationPtr operation;
  MonitorPtr monitor;
};

// What has to follow from the event that is being played, in order.
struct Expected {
  std::deque<std::vector<ReportPtr>> reportSaves;
  std::deque<SettingsFile> settingsSaves;
  int settingsRequests = 0;
  OperationPtr request;
};

struct Wait {
  MonitorPtr monitor;
  double limit = 0;
  double elapsed = 0;
  double timeLeft = 999;
  bool goesOn = false;
};

// What is new with each process.
struct ProcessModel {
  bool gameIsActive = true;
  bool followsEvents = false;
  bool hasConfig = false;
  bool hasReportingManager = false;
  bool hasSessionManager = false;
  bool firstSent = false;
  bool synchronizingFailed = false;
  std::string userId;
  Settings settings{};
  std::optional<double> updateTime;
  bool settingsAreUnread = false;
  std::optional<Session> session;
  MonitorPtr monitor;
  std::vector<std::weak_ptr<Monitor>> monitors;
  std::deque<OperationPtr> queue;
  std::vector<ReportPtr> held;
  // Loaded or restored, and not queued yet.
  std::deque<ReportPtr> waiting;
  bool isSuspended = false;
  std::size_t runningRequests = 0;
  std::size_t mainTasks = 0;
  std::deque<PoolTask> poolTasks;
  std::vector<Wait> waits;
  // What an earlier process has left, from when it is read until it is loaded.
  bool isRead = false;
  std::vector<ReportPtr> stored;
  // What this very call adds.
  std::set<Key> brought;
  // Whether the file has all pending reports: the last save succeeded.
  bool isSaved = true;
  bool hasSaved = false;
  // What has happened since the last save: reports have begun to wait, or a waiting one was
  // dropped.
  bool hasNewWaiting = false;
  bool hasDropped = false;
  // In the order of the model, which plays an event before the library does.
  bool lastSaveFails = false;
  // Each save writes, and logs every report.
  bool isVerbose = false;
  Expected expected;
};

// What the library has to do, modelled independently and in small: of each event it knows which
// saves, requests and tasks must follow. The season plays every event here first, then on the
// library.
class Model : public ProcessModel {
 public:
  enum class Outcome { delivered, failedForGood, failedForNow };
  using SettingsReply = std::map<Setting, double>;

  // The installation, while no process runs.
  void loseStorage() {
    for (auto& [key, fate] : live_) {
      fate.loss = "lost: storage lost";
      settle(key, fate);
    }
    live_.clear();
    reportFile.clear();
    settingsFile.reset();
    storedUserId.clear();
    storedFirstSent_ = false;
    flagIsMissing_ = false;
    firstSessions_.clear();
  }

  void damageReportFile() {
    for (const auto& report : reportFile) {
      const auto fate = live_.find(report->key);
      if (fate == live_.end()) continue;
      fate->second.loss = "lost: storage lost";
      settle(fate->first, fate->second);
      live_.erase(fate);
    }
    reportFile.clear();
  }

  void beginProcess() {
    static_cast<ProcessModel&>(*this) = {};
    firstSent = storedFirstSent_;
  }

  // `inACall`: it was killed inside a call, and not between two.
  void endProcess(bool inACall) {
    const bool isExcused = inACall || synchronizingFailed;
    if (hasSessionManager && storedUserId != userId && !isExcused) {
      fail("the user identifier was not stored");
    }
    if (firstSent && !storedFirstSent_) {
      if (!isExcused) fail("that the first session was reported was not stored");
      flagIsMissing_ = true;
    }
    std::unordered_map<Key, int> copies;
    for (const auto& report : reportFile) {
      ++copies[report->key];
      if (!live_.contains(report->key)) live_[report->key] = {0, true, false, true, nullptr};
    }
    for (auto entry = live_.begin(); entry != live_.end();) {
      auto& [key, fate] = *entry;
      const auto found = copies.find(key);
      fate.copies = found == copies.end() ? 0 : found->second;
      fate.loss = fate.copies == 0 ? lossAtTheEnd(key, inACall) : nullptr;
      if (fate.copies == 0) {
        settle(key, fate);
        entry = live_.erase(entry);
      } else {
        ++entry;
      }
    }
    beginProcess();
  }

  // The game's calls.
  void makeConfig() {
    if (std::exchange(hasConfig, true)) return;
    settings = kDefaultSettings;
    loadSettings();
    updateIfNeeded();
  }

  void makeReportingManager() {
    if (std::exchange(hasReportingManager, true)) return;
    makeConfig();
    isSuspended = settings[transmitImmediately] == 0;
    poolTasks.push_back({true, nullptr, nullptr});
  }

  void makeSessionManager() {
    if (std::exchange(hasSessionManager, true)) return;
    userId = storedUserId;
    if (userId.empty()) {
      userId = Uuids::textOf(newNumber());
      synchronizingFailed |= synchronizingFails;
    }
    ++mainTasks;
  }

  // The identifier of an attempt is made before all else.
  std::uint64_t newNumber() { return ++lastNumber; }
  void adAttempt(Report report) {
    makeSessionManager();
    report.userId = userId;
    accept(report);
  }

  void stopReporting() {
    makeSessionManager();
    stopSession();
  }

  // The main thread.
  void runMainTask() {
    --mainTasks;
    startNewSession();
    followsEvents = true;
  }

  void resignActive() {
    gameIsActive = false;
    if (!followsEvents) return;
    pause();
    cancelMonitor();
    monitor = std::make_shared<Monitor>();
    monitors.push_back(monitor);
  }

  void becomeActive() {
    gameIsActive = true;
    if (hasConfig) updateIfNeeded();
    if (!followsEvents) return;
    cancelMonitor();
    if (mustStartNewSession()) {
      stopSession();
      startNewSession();
    } else if (!session->running) {
      session->lastResume = now;
      session->running = true;
    }
  }

  void enterBackground() {
    if (hasReportingManager) {
      if (settings[transmitOnBackgrounding] != 0) transmit();
      save();
    }
    std::erase_if(monitors, [](const auto& weak) { return weak.expired(); });
    for (const auto& weak : monitors) poolTasks.push_back({false, nullptr, weak.lock()});
  }

  void enterForeground() {
    if (!hasReportingManager) return;
    for (const auto& report : held) report->failures = 0;
    enqueueAgain(std::exchange(held, {}));
    if (settings[transmitOnForegrounding] != 0) transmit();
  }

  void terminate() {
    if (followsEvents) stopSession();
  }

  void expireTaskOfManager() { save(); }

  static void expireTaskOf(Monitor& monitor) { monitor.hasTask = false; }

  // The pool: the first task is taken and run. A background monitor's goes on step by step.
  PoolTask takePoolTask() {
    PoolTask task = std::move(poolTasks.front());
    poolTasks.pop_front();
    return task;
  }

  void loadStored() {
    readReportFile();
    std::vector<ReportPtr> loaded;
    for (const auto& left : std::exchange(stored, {})) {
      const auto report = std::make_shared<Report>(*left);
      report->failures = 0;
      report->startTime = restoredTime(report->startTime);
      report->stopTime = restoredTime(report->stopTime);
      loaded.push_back(report);
    }
    enqueueAgain(loaded);
    if (settings[transmitImmediately] != 0) transmit();
  }

  void startOperation(const OperationPtr& operation) { expected.request = operation; }

  void beginWait(const MonitorPtr& waiter) {
    waits.push_back({waiter, settings[backgroundTimeout]});
    waiter->hasTask = true;
    if (waiter->isProcessing) topOfWait();
  }

  bool isWaiting() const { return !waits.empty() && waits.back().goesOn; }
  void waitStep(double timeLeft) {
    Wait& wait = waits.back();
    wait.elapsed += 1;
    wait.timeLeft = timeLeft;
    wait.goesOn = false;
    if (wait.monitor->isProcessing) topOfWait();
  }

  void endWait() { waits.pop_back(); }

  // The network.
  void answer(const OperationPtr& operation, Outcome outcome) {
    const ReportPtr report = operation->report;
    Fate& fate = live_[report->key];
    if (outcome == Outcome::failedForNow) {
      save();
      if (++report->failures < settings[failureLimit]) {
        enqueue(report, "lost: full at a retry");
      } else {
        ++fate.copies;
        held.push_back(report);
        rest();
      }
    } else {
      if (outcome == Outcome::failedForGood) {
        fate.isRejected = true;
      } else if (std::exchange(fate.isDelivered, true)) {
        ++counts["delivered again"];
      }
      save(report.get());
      rest();
    }
    complete(operation);
  }

  void answerSettings(const SettingsReply& reply) {
    if (settingsAreUnread) {
      const auto updated = updateTime;
      loadSettings();
      updateTime = updated;
    }
    for (const auto& [setting, value] : reply) settings[setting] = value;
    saveSettings();
  }

  // Time passes, up to `time`, or the clock is set to it.
  void pass(double seconds, double time) {
    now = time;
    if (session && gameIsActive) session->played += seconds;
  }

  void setClock(double time) {
    now = time;
    if (session) session->isRegular = false;
  }

  // What the library has done to the machine.
  void reportFileSaved(bool succeeded) {
    isSaved = succeeded;
    hasSaved |= succeeded;
    if (succeeded) reportFile = std::move(expected.reportSaves.front());
    expected.reportSaves.pop_front();
    if (!succeeded) return;
    for (const auto& report : reportFile) report->isStored = true;
  }

  void settingsFileSaved(bool succeeded) {
    if (succeeded) settingsFile = expected.settingsSaves.front();
    expected.settingsSaves.pop_front();
  }

  void defaultsStored(std::string user, bool hasFirstSent) {
    if (!storedUserId.empty() && user != storedUserId) fail("the user identifier has changed");
    storedUserId = std::move(user);
    storedFirstSent_ = hasFirstSent;
  }

  // The call has returned to the game: what it brought is accepted.
  void callReturned() { brought.clear(); }

  // The first thing that must not be, if anything.
  const std::string& problem() const { return problem_; }
  void fail(std::string problem) {
    if (problem_.empty()) problem_ = std::move(problem);
  }
  std::vector<ReportPtr> pendingReports(const Report* left = nullptr) const {
    std::vector<ReportPtr> reports = held;
    for (const auto& operation : queue) {
      if (operation->report.get() != left) reports.push_back(operation->report);
    }
    reports.insert(reports.end(), waiting.begin(), waiting.end());
    reports.insert(reports.end(), stored.begin(), stored.end());
    return reports;
  }

  std::size_t liveReports() const { return live_.size(); }

  // The machine.
  double now = 0;
  bool readsFail = false;
  bool writesFail = false;  // Of the report file.
  bool removalsFail = false;
  bool synchronizingFails = false;

  // The installation.
  std::uint64_t lastNumber = 0;  // Of all identifiers.
  std::vector<ReportPtr> reportFile;
  std::optional<SettingsFile> settingsFile;
  std::string storedUserId;

  Counts counts;
  std::uint64_t sessions = 0;

 private:
  static constexpr std::size_t kConcurrentRequests = 3;
  static constexpr std::size_t kFullQueue = 1001;
  // In seconds: how much longer than the time on the wall a session may have been in use.
  static constexpr double kTolerance = 5;

  // Of an accepted report that is still somewhere.
  struct Fate {
    int copies = 0;
    bool isDelivered = false;
    bool isRejected = false;
    // It was killed before the file knew what had become of the report, which goes out again.
    bool isCounted = false;
    const char* loss = nullptr;
  };

  void loadSettings() {
    settingsAreUnread = readsFail;
    if (!settingsFile || !settingsFile->isReadable || readsFail) return;
    settings = settingsFile->settings;
    if (!settingsFile->lastUpdateIsText) {
      updateTime = restoredTime(settingsFile->lastUpdate);
    } else if (!removalsFail) {
      settingsFile.reset();
    }
  }

  void updateIfNeeded() {
    if (settingsAreUnread) loadSettings();
    const double due = updateTime ? *updateTime + settings[updateInterval] : 0;
    if (!(now - due > 0)) return;
    updateTime = now;
    saveSettings();
    ++expected.settingsRequests;
  }

  void saveSettings() {
    if (settingsAreUnread) return;
    expected.settingsSaves.push_back({settings, updateTime.value_or(0), false, true});
  }

  void startNewSession() {
    ++sessions;
    session = Session{};
    session->number = newNumber();
    session->startTime = session->lastPause = session->lastResume = now;
    session->isRegular = gameIsActive;
    const Kind kind = firstSent ? Kind::start : Kind::first;
    const Key key = keyOf(session->number, kind);
    if (kind == Kind::first) {
      ++counts["first sessions"];
      firstSessions_.insert(key);
      if (firstSessions_.size() > 1) {
        if (!flagIsMissing_) fail("a second first session");
        ++counts["first sessions again after a lost flag"];
      }
      firstSent = true;
      synchronizingFailed |= synchronizingFails;
    }
    Report report = newReport(kind, session->number);
    report.startTime = now;
    accept(report);
  }

  void stopSession() {
    if (!session) return;
    const double end = session->lastPause;
    const bool wasRunning = session->running;
    if (wasRunning) {
      session->isRegular = false;
      session->total =
          static_cast<float>((end - session->lastResume) + static_cast<double>(session->total));
    }
    const double total = static_cast<double>(session->total);
    if (end - session->startTime + kTolerance < total || total < 0) {
      ++counts["stops without a plausible duration"];
      if (session->isRegular) fail("a session that went by the rules has no plausible duration");
    } else {
      ++counts["stops"];
      countRegularStop();
      Report report = newReport(Kind::stop, session->number);
      report.startTime = session->startTime;
      report.stopTime = end;
      report.duration = total;
      accept(report);
    }
    session.reset();
  }

  bool mustStartNewSession() const {
    if (!session) return true;
    if (session->running) return false;
    return session->startTime > now || now - session->lastPause > settings[inactivityLimit];
  }

  void pause() {
    if (!session || !session->running) return;
    session->lastPause = now;
    session->total =
        static_cast<float>((now - session->lastResume) + static_cast<double>(session->total));
    session->running = false;
    ++session->pauses;
  }

  void cancelMonitor() {
    if (!monitor) return;
    monitor->isProcessing = false;
    monitor->hasTask = false;
    monitor.reset();
  }

  void topOfWait() {
    Wait& wait = waits.back();
    wait.goesOn = false;
    if (!wait.monitor->hasTask) return;
    if (wait.timeLeft > 10 && wait.elapsed < wait.limit) {
      wait.goesOn = true;
      return;
    }
    const MonitorPtr expired = wait.monitor;
    if (expired == monitor) {
      stopSession();
      monitor.reset();
    }
    expired->hasTask = false;
  }

  void countRegularStop() {
    if (!session->isRegular) return;
    const double total = static_cast<double>(session->total);
    // Each pause rounds the total to a 32-bit float.
    const double tolerance = 0.001 + session->pauses * total * 6e-8;
    if (std::abs(total - session->played) > tolerance) {
      fail("a session of " + std::to_string(session->played) + " s of play counts " +
           std::to_string(total) + " s");
    }
    ++counts["stops by the rules"];
    counts["seconds played"] += session->played;
    counts["seconds reported"] += total;
  }

  bool isSwitchedOff(Kind kind) const {
    return (kind == Kind::start && settings[sendStart] == 0) ||
           (kind == Kind::stop && settings[sendStop] == 0) ||
           (kind == Kind::first && settings[sendFirst] == 0);
  }

  Report newReport(Kind kind, std::uint64_t number) const {
    Report report;
    report.key = keyOf(number, kind);
    report.userId = userId;
    return report;
  }

  void accept(const Report& report) {
    ++counts["accepted"];
    live_[report.key] = {};
    brought.insert(report.key);
    makeReportingManager();
    enqueue(std::make_shared<Report>(report), "lost: queue full");
    const auto fate = live_.find(report.key);
    if (fate != live_.end() && fate->second.copies == 0) {
      settle(fate->first, fate->second);
      live_.erase(fate);
    }
  }

  void enqueue(const ReportPtr& report, const char* lossWhenFull) {
    const bool isMoved = !waiting.empty();
    if (isMoved) waiting.pop_front();
    const char* loss = nullptr;
    if (isSwitchedOff(kindOf(report->key))) loss = "switched off";
    if (loss == nullptr && queue.size() >= kFullQueue) loss = lossWhenFull;
    if (loss != nullptr) {
      live_[report->key].loss = loss;
      hasDropped |= isMoved;
      return;
    }
    ++live_[report->key].copies;
    queue.push_back(std::make_shared<Operation>(Operation{report}));
    startReady();
    if (settings[transmitImmediately] != 0) transmit();
    isMoved ? saveMoved() : save();
  }

  // They wait together, so that the file has each of them at every moment.
  void enqueueAgain(const std::vector<ReportPtr>& reports) {
    waiting.assign(reports.begin(), reports.end());
    hasNewWaiting |= !reports.empty();
    for (const auto& report : reports) {
      enqueue(report, "lost: queue full");
      dropCopy(report->key);
    }
    if (hasDropped) save();
  }

  void transmit() {
    if (queue.empty()) return;
    isSuspended = false;
    startReady();
  }

  void startReady() {
    if (isSuspended) return;
    for (auto operation = queue.begin();
         operation != queue.end() && runningRequests < kConcurrentRequests; ++operation) {
      if (std::exchange((*operation)->started, true)) continue;
      ++runningRequests;
      poolTasks.push_back({false, *operation, nullptr});
    }
  }

  void save(const Report* left = nullptr) {
    hasNewWaiting = hasDropped = false;
    lastSaveFails = !readReportFile() || writesFail;
    if (isRead) {
      expected.reportSaves.push_back(pendingReports(left));
    } else {
      isSaved = false;
      ++counts["saves without the old file"];
    }
  }

  // The file has the list already when nothing but the move has happened since a save.
  void saveMoved() {
    if (hasNewWaiting || hasDropped || lastSaveFails || isVerbose) save();
  }

  void rest() {
    if (settings[transmitImmediately] == 0 && queue.size() < 2) isSuspended = true;
  }

  void complete(const OperationPtr& operation) {
    queue.erase(std::find(queue.begin(), queue.end(), operation));
    --runningRequests;
    dropCopy(operation->report->key);
    startReady();
  }

  // False when it cannot be read now; it is then read later, and never replaced before.
  bool readReportFile() {
    if (isRead || readsFail) return isRead;
    isRead = true;
    stored = reportFile;
    return true;
  }

  void dropCopy(Key key) {
    const auto fate = live_.find(key);
    if (--fate->second.copies > 0) return;
    settle(key, fate->second);
    live_.erase(fate);
  }

  void settle(Key key, const Fate& fate) {
    if (fate.isCounted) return;
    if (fate.isDelivered) {
      ++counts["delivered"];
    } else if (fate.isRejected) {
      ++counts["rejected"];
    } else if (fate.loss != nullptr) {
      ++counts[fate.loss];
    } else {
      fail("the report " + Uuids::textOf(numberOf(key)) + " is lost");
    }
  }

  const char* lossAtTheEnd(Key key, bool inACall) const {
    const auto pending = pendingReports();
    const bool wasStored = std::any_of(pending.begin(), pending.end(), [&](const auto& report) {
      return report->key == key && report->isStored;
    });
    if (wasStored) return nullptr;
    if (inACall && brought.contains(key)) return "lost: killed in the call";
    if (!isSaved) return "lost: file not written";
    return nullptr;
  }

  std::string problem_;

  bool storedFirstSent_ = false;
  bool flagIsMissing_ = false;
  std::set<Key> firstSessions_;

  std::unordered_map<Key, Fate> live_;
};

}  // namespace zln::season
