#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

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
extern const std::array<const char*, settingCount> kSettingKeys;

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

// What has become of the reports that the library accepted. From `switchedOff` on: why they are
// lost.
struct Fates {
  std::uint64_t accepted = 0;
  std::uint64_t delivered = 0;
  std::uint64_t deliveredAgain = 0;
  std::uint64_t rejected = 0;
  // Not wanted: the settings switch their kind off.
  std::uint64_t switchedOff = 0;
  // Lost.
  std::uint64_t queueFull = 0;
  std::uint64_t retryMetFullQueue = 0;
  std::uint64_t killedWhileTakenUp = 0;
  std::uint64_t killedInTheCall = 0;
  std::uint64_t fileNotWritten = 0;
  std::uint64_t fileNotRead = 0;
  std::uint64_t storageLost = 0;

  std::uint64_t lost() const {
    return queueFull + retryMetFullQueue + killedWhileTakenUp + killedInTheCall + fileNotWritten +
           fileNotRead + storageLost;
  }
};

struct Totals {
  std::uint64_t sessions = 0;
  std::uint64_t firstSessions = 0;
  // First sessions beyond the one of an installation, each explained by a flag that was not stored.
  std::uint64_t firstSessionsAgain = 0;
  std::uint64_t stops = 0;
  std::uint64_t regularStops = 0;
  std::uint64_t implausibleStops = 0;
  // Of the regular stops: seconds by a clock that nobody sets, and by the reports.
  double played = 0;
  double reported = 0;
};

// What the library has to do, thought out anew and in small: of each event it knows which saves,
// requests and tasks must follow. The season plays every event here first, then on the library.
class Model {
 public:
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
    bool takesUpStored = false;
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

  enum class Outcome { delivered, failedForGood, failedForNow };
  using SettingsReply = std::map<Setting, double>;

  // The installation, while no process runs.
  void loseStorage();
  void damageReportFile();

  void beginProcess();
  // `inACall`: it was killed inside a call, and not between two.
  void endProcess(bool inACall);

  // The game's calls.
  void makeConfig();
  void makeReportingManager();
  void makeSessionManager();
  // The identifier of an attempt is made before all else.
  std::uint64_t newNumber() { return ++lastNumber; }
  void adAttempt(Report report);
  void stopReporting();

  // The main thread.
  void runMainTask();
  void resignActive();
  void becomeActive();
  void enterBackground();
  void enterForeground();
  void terminate();
  void expireTaskOfManager();
  static void expireTaskOf(Monitor& monitor) { monitor.hasTask = false; }

  // The pool: the first task is taken and run. A background monitor's goes on step by step.
  PoolTask takePoolTask();
  void takeUpStored();
  void startOperation(const OperationPtr& operation);
  void beginWait(const MonitorPtr& monitor);
  bool isWaiting() const { return !waits_.empty() && waits_.back().goesOn; }
  void waitStep(double timeLeft);
  void endWait() { waits_.pop_back(); }

  // The network.
  void answer(const OperationPtr& operation, Outcome outcome);
  void answerSettings(const SettingsReply& reply);

  // Time passes, up to `time`, or the clock is set to it.
  void pass(double seconds, double time);
  void setClock(double time);

  // What the library has done to the machine.
  void reportFileSaved(bool succeeded);
  void settingsFileSaved(bool succeeded);
  void defaultsStored(std::string user, bool hasFirstSent);
  // The call has returned to the game: what it brought is accepted.
  void callReturned();

  // The first thing that must not be, if anything.
  const std::string& problem() const { return problem_; }
  void fail(std::string problem) {
    if (problem_.empty()) problem_ = std::move(problem);
  }
  // Whether the file holds what is owed: the last save succeeded.
  bool isSaved() const { return isSaved_; }
  bool hasSaved() const { return hasSaved_; }
  bool hasReportingManager() const { return hasReportingManager_; }
  std::vector<ReportPtr> owedReports(const Report* left = nullptr) const;
  std::size_t liveReports() const { return live_.size(); }

  // The machine.
  double now = 0;
  bool readsFail = false;
  bool removalsFail = false;
  bool synchronizingFails = false;

  // The installation.
  std::uint64_t lastNumber = 0;  // Of all identifiers.
  std::vector<ReportPtr> reportFile;
  std::optional<SettingsFile> settingsFile;
  std::string storedUserId;

  // The process.
  bool gameIsActive = true;
  bool followsEvents = false;
  std::string userId;
  Settings settings{};
  std::optional<Session> session;
  MonitorPtr monitor;
  std::deque<OperationPtr> queue;
  std::vector<ReportPtr> held;
  std::size_t mainTasks = 0;
  std::deque<PoolTask> poolTasks;

  Expected expected;
  Fates fates;
  Totals totals;

 private:
  struct Wait {
    MonitorPtr monitor;
    double limit = 0;
    double elapsed = 0;
    double timeLeft = 999;
    bool goesOn = false;
  };

  // Of an accepted report that is still somewhere.
  struct Fate {
    int copies = 0;
    bool isDelivered = false;
    bool isRejected = false;
    // It was killed before the file knew what had become of the report, which goes out again.
    bool isCounted = false;
    std::uint64_t* loss = nullptr;
  };

  void loadSettings();
  void updateIfNeeded();
  void saveSettings();

  void startNewSession();
  void stopSession();
  bool mustStartNewSession() const;
  void pause();
  void cancelMonitor();
  void topOfWait();
  void countRegularStop();

  bool isSwitchedOff(Kind kind) const;
  Report newReport(Kind kind, std::uint64_t number) const;
  void accept(const Report& report);
  void enqueue(const ReportPtr& report, std::uint64_t& lossWhenFull);
  void transmit();
  void startReady();
  void save(const Report* left = nullptr);
  void rest();
  void complete(const OperationPtr& operation);
  void openReportFile();

  void dropCopy(Key key);
  void settle(Key key, const Fate& fate);
  std::uint64_t* lossAtTheEnd(Key key, bool inACall);

  std::string problem_;

  bool storedFirstSent_ = false;
  bool flagIsMissing_ = false;
  std::set<Key> firstSessions_;

  bool hasConfig_ = false;
  bool hasReportingManager_ = false;
  bool hasSessionManager_ = false;
  bool firstSent_ = false;
  bool synchronizingFailed_ = false;
  std::optional<double> updateTime_;
  std::vector<std::weak_ptr<Monitor>> monitors_;
  bool isSuspended_ = false;
  std::size_t running_ = 0;
  std::vector<Wait> waits_;

  // No longer held and not yet queued.
  // What an earlier process has left, until it is taken up; what could not be read; and what this
  // very call brings or takes up.
  bool isOpen_ = false;
  std::vector<ReportPtr> old_;
  std::set<Key> unreadable_;
  std::set<Key> brought_;
  std::set<Key> takenUp_;
  bool isSaved_ = true;
  bool hasSaved_ = false;

  std::unordered_map<Key, Fate> live_;
};

}  // namespace zln::season
