#include "tests/season/model.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tests/season/machine.h"

namespace zln::season {

const std::array<const char*, settingCount> kSettingKeys = {
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

namespace {

constexpr Settings kDefaults = {1, 1, 1, 3, 600, 86400, 60, 1, 1, 1};
constexpr std::size_t kConcurrentRequests = 3;
constexpr std::size_t kFullQueue = 1001;
constexpr double kTolerance = 5;

// A stored time comes back as a 32-bit float. In an optimized build GCC 12 takes out the narrowing
// of two neighbors in a struct; this one it has to keep.
double restoredTime(double seconds) {
  const volatile float stored = static_cast<float>(seconds);
  return static_cast<double>(stored);
}

}  // namespace

// The installation.

void Model::loseStorage() {
  for (auto& [key, fate] : live_) {
    fate.loss = &fates.storageLost;
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

void Model::damageReportFile() {
  for (const auto& report : reportFile) {
    const auto fate = live_.find(report->key);
    if (fate == live_.end()) continue;
    fate->second.loss = &fates.storageLost;
    settle(fate->first, fate->second);
    live_.erase(fate);
  }
  reportFile.clear();
}

// The process.

void Model::beginProcess() {
  gameIsActive = true;
  followsEvents = hasConfig_ = hasReportingManager_ = hasSessionManager_ = false;
  userId.clear();
  firstSent_ = storedFirstSent_;
  synchronizingFailed_ = false;
  updateTime_.reset();
  session.reset();
  monitor.reset();
  monitors_.clear();
  queue.clear();
  held.clear();
  isSuspended_ = false;
  running_ = 0;
  mainTasks = 0;
  poolTasks.clear();
  waits_.clear();
  isOpen_ = false;
  old_.clear();
  unreadable_.clear();
  isSaved_ = true;
  hasSaved_ = false;
  expected = {};
  callReturned();
}

void Model::endProcess(bool inACall) {
  const bool isExcused = inACall || synchronizingFailed_;
  if (hasSessionManager_ && storedUserId != userId && !isExcused) {
    fail("the user identifier was not stored");
  }
  if (firstSent_ && !storedFirstSent_) {
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

std::uint64_t* Model::lossAtTheEnd(Key key, bool inACall) {
  const auto isIn = [key](const std::vector<ReportPtr>& reports) {
    return std::any_of(reports.begin(), reports.end(),
                       [key](const auto& report) { return report->key == key; });
  };
  if (unreadable_.contains(key)) return &fates.fileNotRead;
  if (isIn(old_)) return &fates.killedWhileTakenUp;
  if (inACall && takenUp_.contains(key)) return &fates.killedWhileTakenUp;
  if (inACall && brought_.contains(key)) return &fates.killedInTheCall;
  if (!isSaved_) return &fates.fileNotWritten;
  return nullptr;
}

// The settings.

void Model::makeConfig() {
  if (std::exchange(hasConfig_, true)) return;
  settings = kDefaults;
  loadSettings();
  updateIfNeeded();
}

void Model::loadSettings() {
  if (!settingsFile || !settingsFile->isReadable || readsFail) return;
  settings = settingsFile->settings;
  if (!settingsFile->lastUpdateIsText) {
    updateTime_ = restoredTime(settingsFile->lastUpdate);
  } else if (!removalsFail) {
    settingsFile.reset();
  }
}

void Model::updateIfNeeded() {
  const double due = updateTime_ ? *updateTime_ + settings[updateInterval] : 0;
  if (!(now - due > 0)) return;
  updateTime_ = now;
  saveSettings();
  ++expected.settingsRequests;
}

void Model::saveSettings() {
  expected.settingsSaves.push_back({settings, updateTime_.value_or(0), false, true});
}

void Model::answerSettings(const SettingsReply& reply) {
  for (const auto& [setting, value] : reply) settings[setting] = value;
  saveSettings();
}

// The sessions.

void Model::makeSessionManager() {
  if (std::exchange(hasSessionManager_, true)) return;
  userId = storedUserId;
  if (userId.empty()) {
    userId = Uuids::textOf(newNumber());
    synchronizingFailed_ |= synchronizingFails;
  }
  ++mainTasks;
}

void Model::runMainTask() {
  --mainTasks;
  startNewSession();
  followsEvents = true;
}

void Model::startNewSession() {
  ++totals.sessions;
  session = Session{};
  session->number = newNumber();
  session->startTime = session->lastPause = session->lastResume = now;
  session->isRegular = gameIsActive;
  const Kind kind = firstSent_ ? Kind::start : Kind::first;
  const Key key = keyOf(session->number, kind);
  if (kind == Kind::first) {
    ++totals.firstSessions;
    firstSessions_.insert(key);
    if (firstSessions_.size() > 1) {
      if (!flagIsMissing_) fail("a second first session");
      ++totals.firstSessionsAgain;
    }
    firstSent_ = true;
    synchronizingFailed_ |= synchronizingFails;
  }
  Report report = newReport(kind, session->number);
  report.startTime = now;
  accept(report);
}

void Model::stopSession() {
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
    ++totals.implausibleStops;
    if (session->isRegular) fail("a session that went by the rules has no plausible duration");
  } else {
    ++totals.stops;
    countRegularStop();
    Report report = newReport(Kind::stop, session->number);
    report.startTime = session->startTime;
    report.stopTime = end;
    report.duration = total;
    accept(report);
  }
  session.reset();
}

void Model::countRegularStop() {
  if (!session->isRegular) return;
  const double total = static_cast<double>(session->total);
  // Each pause rounds the total to a 32-bit float.
  const double tolerance = 0.001 + session->pauses * total * 6e-8;
  if (std::abs(total - session->played) > tolerance) {
    fail("a session of " + std::to_string(session->played) + " s of play counts " +
         std::to_string(total) + " s");
  }
  ++totals.regularStops;
  totals.played += session->played;
  totals.reported += total;
}

void Model::stopReporting() {
  makeSessionManager();
  stopSession();
}

void Model::terminate() {
  if (followsEvents) stopSession();
}

void Model::pause() {
  if (!session || !session->running) return;
  session->lastPause = now;
  session->total =
      static_cast<float>((now - session->lastResume) + static_cast<double>(session->total));
  session->running = false;
  ++session->pauses;
}

void Model::resignActive() {
  gameIsActive = false;
  if (!followsEvents) return;
  pause();
  cancelMonitor();
  monitor = std::make_shared<Monitor>();
  monitors_.push_back(monitor);
}

void Model::becomeActive() {
  gameIsActive = true;
  if (hasConfig_) updateIfNeeded();
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

bool Model::mustStartNewSession() const {
  if (!session) return true;
  if (session->running) return false;
  return session->startTime > now || now - session->lastPause > settings[inactivityLimit];
}

void Model::cancelMonitor() {
  if (!monitor) return;
  monitor->isProcessing = false;
  monitor->hasTask = false;
  monitor.reset();
}

void Model::enterBackground() {
  if (hasReportingManager_) {
    if (settings[transmitOnBackgrounding] != 0) transmit();
    save();
  }
  std::erase_if(monitors_, [](const auto& weak) { return weak.expired(); });
  for (const auto& weak : monitors_) poolTasks.push_back({false, nullptr, weak.lock()});
}

void Model::beginWait(const MonitorPtr& waiting) {
  waits_.push_back({waiting, settings[backgroundTimeout]});
  waiting->hasTask = true;
  if (waiting->isProcessing) topOfWait();
}

void Model::topOfWait() {
  Wait& wait = waits_.back();
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

void Model::waitStep(double timeLeft) {
  Wait& wait = waits_.back();
  wait.elapsed += 1;
  wait.timeLeft = timeLeft;
  wait.goesOn = false;
  if (wait.monitor->isProcessing) topOfWait();
}

// The reports.

Report Model::newReport(Kind kind, std::uint64_t number) const {
  Report report;
  report.key = keyOf(number, kind);
  report.userId = userId;
  return report;
}

void Model::adAttempt(Report report) {
  makeSessionManager();
  report.userId = userId;
  accept(report);
}

void Model::makeReportingManager() {
  if (std::exchange(hasReportingManager_, true)) return;
  makeConfig();
  isSuspended_ = settings[transmitImmediately] == 0;
  poolTasks.push_back({true, nullptr, nullptr});
}

void Model::openReportFile() {
  if (std::exchange(isOpen_, true)) return;
  if (readsFail) {
    for (const auto& report : reportFile) unreadable_.insert(report->key);
  } else {
    old_ = reportFile;
  }
}

void Model::accept(const Report& report) {
  ++fates.accepted;
  live_[report.key] = {};
  brought_.insert(report.key);
  makeReportingManager();
  enqueue(std::make_shared<Report>(report), fates.queueFull);
  const auto fate = live_.find(report.key);
  if (fate != live_.end() && fate->second.copies == 0) {
    settle(fate->first, fate->second);
    live_.erase(fate);
  }
}

bool Model::isSwitchedOff(Kind kind) const {
  return (kind == Kind::start && settings[sendStart] == 0) ||
         (kind == Kind::stop && settings[sendStop] == 0) ||
         (kind == Kind::first && settings[sendFirst] == 0);
}

void Model::enqueue(const ReportPtr& report, std::uint64_t& lossWhenFull) {
  if (isSwitchedOff(kindOf(report->key))) {
    live_[report->key].loss = &fates.switchedOff;
    return;
  }
  if (queue.size() >= kFullQueue) {
    live_[report->key].loss = &lossWhenFull;
    return;
  }
  ++live_[report->key].copies;
  queue.push_back(std::make_shared<Operation>(Operation{report}));
  startReady();
  if (settings[transmitImmediately] != 0) transmit();
  save();
}

void Model::transmit() {
  if (queue.empty()) return;
  isSuspended_ = false;
  startReady();
}

void Model::startReady() {
  if (isSuspended_) return;
  for (auto operation = queue.begin(); operation != queue.end() && running_ < kConcurrentRequests;
       ++operation) {
    if (std::exchange((*operation)->started, true)) continue;
    ++running_;
    poolTasks.push_back({false, *operation, nullptr});
  }
}

Model::PoolTask Model::takePoolTask() {
  PoolTask task = std::move(poolTasks.front());
  poolTasks.pop_front();
  return task;
}

void Model::takeUpStored() {
  openReportFile();
  for (const auto& stored : std::exchange(old_, {})) {
    const auto report = std::make_shared<Report>(*stored);
    report->failures = 0;
    report->startTime = restoredTime(report->startTime);
    report->stopTime = restoredTime(report->stopTime);
    takenUp_.insert(report->key);
    enqueue(report, fates.queueFull);
    dropCopy(report->key);
  }
  if (settings[transmitImmediately] != 0) transmit();
}

void Model::startOperation(const OperationPtr& operation) { expected.request = operation; }

void Model::answer(const OperationPtr& operation, Outcome outcome) {
  const ReportPtr report = operation->report;
  Fate& fate = live_[report->key];
  if (outcome == Outcome::failedForNow) {
    save();
    if (++report->failures < settings[failureLimit]) {
      enqueue(report, fates.retryMetFullQueue);
    } else {
      ++fate.copies;
      held.push_back(report);
      rest();
    }
  } else {
    if (outcome == Outcome::failedForGood) {
      fate.isRejected = true;
    } else if (std::exchange(fate.isDelivered, true)) {
      ++fates.deliveredAgain;
    }
    save(report.get());
    rest();
  }
  complete(operation);
}

void Model::rest() {
  if (settings[transmitImmediately] == 0 && queue.size() < 2) isSuspended_ = true;
}

void Model::complete(const OperationPtr& operation) {
  queue.erase(std::find(queue.begin(), queue.end(), operation));
  --running_;
  dropCopy(operation->report->key);
  startReady();
}

void Model::enterForeground() {
  if (!hasReportingManager_) return;
  for (const auto& report : held) takenUp_.insert(report->key);
  for (const auto& report : std::exchange(held, {})) {
    report->failures = 0;
    enqueue(report, fates.queueFull);
    dropCopy(report->key);
  }
  if (settings[transmitOnForegrounding] != 0) transmit();
}

void Model::expireTaskOfManager() { save(); }

std::vector<ReportPtr> Model::owedReports(const Report* left) const {
  std::vector<ReportPtr> reports = held;
  for (const auto& operation : queue) {
    if (operation->report.get() != left) reports.push_back(operation->report);
  }
  return reports;
}

void Model::save(const Report* left) {
  openReportFile();
  expected.reportSaves.push_back(owedReports(left));
}

void Model::dropCopy(Key key) {
  const auto fate = live_.find(key);
  if (--fate->second.copies > 0) return;
  settle(key, fate->second);
  live_.erase(fate);
}

void Model::settle(Key key, const Fate& fate) {
  if (fate.isCounted) return;
  if (fate.isDelivered) {
    ++fates.delivered;
  } else if (fate.isRejected) {
    ++fates.rejected;
  } else if (fate.loss != nullptr) {
    ++*fate.loss;
  } else {
    fail("the report " + Uuids::textOf(numberOf(key)) + " is lost");
  }
}

// Time.

void Model::pass(double seconds, double time) {
  now = time;
  if (session && gameIsActive) session->played += seconds;
}

void Model::setClock(double time) {
  now = time;
  if (session) session->isRegular = false;
}

// What has been done.

void Model::reportFileSaved(bool succeeded) {
  isSaved_ = succeeded;
  hasSaved_ |= succeeded;
  if (succeeded) reportFile = std::move(expected.reportSaves.front());
  expected.reportSaves.pop_front();
}

void Model::settingsFileSaved(bool succeeded) {
  if (succeeded) settingsFile = expected.settingsSaves.front();
  expected.settingsSaves.pop_front();
}

void Model::defaultsStored(std::string user, bool hasFirstSent) {
  if (!storedUserId.empty() && user != storedUserId) fail("the user identifier has changed");
  storedUserId = std::move(user);
  storedFirstSent_ = hasFirstSent;
}

void Model::callReturned() {
  takenUp_.clear();
  brought_.clear();
}

}  // namespace zln::season
