// Plays a season: many sessions of one installation, with all that can go wrong, in a short time.
//
// usage: season [--seed N] [--sessions N]
//   --seed      decides what happens (1)
//   --sessions  how many there are (100000)

#include <malloc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "platform/json.h"
#include "platform/property_list.h"
#include "session/ZLNSessionManager.h"
#include "support/endpoints.h"
#include "support/log.h"
#include "support/process_state.h"
#include "tests/season/machine.h"
#include "tests/season/model.h"
#include "tests/season/replies.h"
#include "tests/support/command_line.h"
#include "tests/support/dice.h"
#include "tests/support/process_state_for_tests.h"
#include "tests/support/report_identity.h"
#include "transport/ZLNReportingManager.h"

namespace zln::season {
namespace {

constexpr double kBegin = 1700000000;
constexpr double kDay = 86400;
constexpr std::size_t kMostRequests = 3;
constexpr int kStormAttempts = 1300;
// Sessions between two storms, each of which costs as much as thousands of sessions.
constexpr std::uint64_t kSessionsPerStorm = 12000;
constexpr std::uint64_t kSessionsBeforeStorms = 1000;
// Queues up to this length are compared whole after every step.
constexpr std::size_t kShortQueue = 40;

constexpr const char* kTypes[] = {"ReportTypeSessionFirst", "ReportTypeSessionStart",
                                  "ReportTypeSessionStop", "ReportTypeAdAttempt",
                                  "ReportTypeAdZoneAttempt"};
constexpr const char* kUrls[] = {kSessionFirstUrl, kSessionStartUrl, kSessionStopUrl, kAdAttemptUrl,
                                 kAdZoneAttemptUrl};
// How many members the body of each kind has.
constexpr std::size_t kMembers[] = {13, 13, 15, 10, 11};

constexpr const char* kNetworks[] = {"Sunrise", "Nightfall", "Ünïcode & <Söhne>", ""};
constexpr const char* kZones[] = {"main menu", "level \"2\"", "", "end]]>"};
constexpr const char* kAdTypes[] = {"banner", "interstitial", "rewarded", "game's own"};

// The key of one report's element in the file; 0 when it has none.
Key keyIn(std::string_view element) {
  const ReportIdentity identity = reportIdentityInElement(element);
  const auto* type = std::find(std::begin(kTypes), std::end(kTypes), identity.type);
  const std::uint64_t number = Uuids::numberOf(identity.id);
  if (type == std::end(kTypes) || number == 0) return 0;
  return keyOf(number, static_cast<Kind>(type - std::begin(kTypes)));
}

// So many bytes, or less than a block more, both texts begin with.
std::size_t commonLength(std::string_view a, std::string_view b) {
  constexpr std::size_t kBlock = 256;
  std::size_t length = 0;
  while (length + kBlock <= std::min(a.size(), b.size()) &&
         a.substr(length, kBlock) == b.substr(length, kBlock)) {
    length += kBlock;
  }
  return length;
}

std::string textOf(const std::vector<Key>& keys) {
  std::string text;
  for (const Key key : keys) {
    text += ' ' + std::to_string(numberOf(key)) + '/' +
            (kTypes[static_cast<std::size_t>(kindOf(key))] + sizeof "ReportType" - 1);
  }
  return text;
}

std::vector<Key> keysOf(const std::vector<ReportPtr>& reports) {
  std::vector<Key> keys;
  for (const auto& report : reports) keys.push_back(report->key);
  return keys;
}

// The life of one installation, played at random on a machine of fakes: launches and kills, breaks
// and long stays in the background, servers and disks that fail for a while, a clock that jumps.
// After every step it compares what the library has done with the model. Everything follows from
// the seed.
class Season : private MachineWatcher {
 public:
  Season(std::uint64_t seed, std::uint64_t sessions)
      : seed_(seed), sessions_(sessions), dice_(seed), machine_(*this) {
    machine_.clock.set(kBegin + dice_.between(0, 1000));
    model_.setClock(machine_.clock.now().secondsSince1970);
  }

  ~Season() override {
    if (state_ != nullptr) endProcess(true);
  }

  // Plays all sessions, or until something is wrong. `ended` is told, each time the process has
  // ended and nothing of it is left, how many sessions there have been.
  bool play(const std::function<void(std::uint64_t sessions)>& ended) {
    while (model_.sessions < sessions_ && !failed()) {
      playProcess();
      if (failed()) break;
      ended(model_.sessions);
      playBetweenProcesses();
    }
    return !failed();
  }

  // What was wrong, with the steps that led to it; empty when nothing was.
  std::string failure() const {
    if (!failed()) return "";
    std::ostringstream text;
    text << "seed " << seed_ << ", step " << steps_ << ": " << model_.problem() << '\n';
    for (std::uint64_t back = std::min<std::uint64_t>(steps_, records_.size()); back != 0; --back) {
      const Record& record = records_[(steps_ - back) % records_.size()];
      text << "  " << record.number << (record.isNested ? "   inside: " : " ") << record.step << ' '
           << record.detail << " at " << std::to_string(record.time) << '\n';
    }
    return text.str();
  }

  std::string summary() const {
    std::ostringstream text;
    text.precision(15);
    text << "sessions " << model_.sessions << ", steps " << steps_ << ", still owed "
         << model_.liveReports() << '\n';
    for (const auto& [what, count] : model_.counts) text << what << ": " << count << '\n';
    return text.str();
  }

 private:
  enum class Life { active, inactive, background, ended };

  struct Record {
    std::uint64_t number = 0;
    const char* step = "";
    double detail = 0;
    double time = 0;
    bool isNested = false;
  };

  // The process.
  void beginProcess() {
    ++model_.counts["processes"];
    machine_.power.restore();
    if (dice_.perMille(100)) machine_.power.failAfter(1 + dice_.below(80));
    model_.beginProcess();
    found_.clear();
    for (const auto& report : model_.reportFile) ++found_[report->key];
    storedText_ = storedText();
    life_ = Life::active;
    state_ = new ProcessState(machine_.environment());
    model_.isVerbose = dice_.perMille(20);
    if (model_.isVerbose)
      state_->currentLogLevel.set(static_cast<std::uint64_t>(LogLevel::superVerbose));
    setProcessStateForTests(state_);
  }

  void endProcess(bool inACall) {
    if (machine_.power.isOff()) ++model_.counts["kills"];
    if (inACall) ++model_.counts["kills in a call"];
    machine_.endProcess();
    delete state_;
    state_ = nullptr;
    setProcessStateForTests(nullptr);
    machine_.endProcess();
    requests_.clear();
    model_.endProcess(inACall);
    model_.lastNumber = machine_.uuids.count();
    // A kill between the decision to remove the settings and the removal.
    if (!model_.settingsFile) machine_.files.remove(kSettingsFile, nullptr);
  }

  void playProcess() {
    beginProcess();
    play("launch");
    while (!machine_.power.isOff() && life_ != Life::ended && !failed()) play(chooseStep());
    if (!failed()) endProcess(machine_.power.failedInACall());
  }

  void playBetweenProcesses() {
    const double seconds =
        dice_.perMille(700) ? dice_.between(0, 3600) : dice_.between(0, 3 * kDay);
    machine_.clock.advance(seconds);
    model_.pass(0, machine_.clock.now().secondsSince1970);
    if (dice_.perMille(10)) setClock();
    if (dice_.perMille(1)) {
      record("lose the storage");
      machine_.loseStorage();
      model_.loseStorage();
    }
    if (dice_.perMille(5)) damageFiles();
  }

  // One step: the model's part, the library's, the comparison.
  void play(const char* step) {
    record(step);
    ++depth_;
    perform(step);
    --depth_;
    if (machine_.power.isOff() || failed()) return;
    compare();
    model_.callReturned();
  }

  void perform(const std::string& step) {
    static const auto& steps = *new std::map<std::string, void (Season::*)()>{
        {"launch", &Season::launch},
        {"main task", &Season::runMainTask},
        {"pool task", &Season::runPoolTask},
        {"answer", &Season::answer},
        {"ad attempt", &Season::attemptAd},
        {"time passes", &Season::passTime},
        {"resign active", &Season::resignActive},
        {"become active", &Season::becomeActive},
        {"enter background", &Season::enterBackground},
        {"enter foreground", &Season::enterForeground},
        {"terminate", &Season::terminate},
        {"stop reporting", &Season::stopReporting},
        {"describe", &Season::describe},
        {"clear cache", &Season::clearCache},
        {"expire a task", &Season::expireTask},
        {"change the server", &Season::changeServer},
        {"change the faults", &Season::changeFaults},
        {"set the clock", &Season::setClock},
        {"storm of attempts", &Season::storm},
        {"arm a kill", &Season::armKill},
        {"kill", &Season::kill},
        {"exit", &Season::exit},
    };
    (this->*steps.at(step))();
  }

  const char* chooseStep() {
    if (!model_.poolTasks.empty() && dice_.perMille(450)) return "pool task";
    if (model_.mainTasks != 0 && dice_.perMille(300)) return "main task";
    if (machine_.network.outstanding() != 0 && server_ != Server::silent && dice_.perMille(600)) {
      return "answer";
    }
    const std::uint64_t dice = dice_.below(1000);
    if (dice < 150) return "ad attempt";
    if (dice < 400) return "time passes";
    if (dice < 925) return chooseLifecycle();
    if (dice < 950) return "change the server";
    if (dice < 960) return "change the faults";
    if (dice < 964) return "set the clock";
    if (dice < 967) return "stop reporting";
    if (dice < 972) return "describe";
    if (dice < 973) return "clear cache";
    if (dice < 977) return "expire a task";
    if (dice < 981) return "arm a kill";
    if (dice < 984) return "kill";
    if (dice < 985 && model_.sessions >= kSessionsBeforeStorms &&
        storms_ <= model_.sessions / kSessionsPerStorm) {
      return "storm of attempts";
    }
    // What comes in no order.
    constexpr const char* kOdd[] = {"resign active", "become active", "enter background",
                                    "enter foreground", "terminate"};
    return kOdd[dice_.below(std::size(kOdd))];
  }

  const char* chooseLifecycle() {
    switch (life_) {
      case Life::active:
        return dice_.perMille(20) ? "exit" : "resign active";
      case Life::inactive:
        return dice_.perMille(500) ? "become active" : "enter background";
      case Life::background:
        if (dice_.perMille(850)) return "enter foreground";
        return dice_.perMille(700) ? "terminate" : "exit";
      case Life::ended:
        break;
    }
    return "exit";
  }

  const char* chooseNested() {
    const std::uint64_t dice = dice_.below(100);
    if (dice < 25 && machine_.network.outstanding() != 0 && server_ != Server::silent) {
      return "answer";
    }
    if (dice < 45 && !model_.poolTasks.empty() && depth_ < 3) return "pool task";
    if (dice < 60) return "ad attempt";
    if (dice < 75) return "enter foreground";
    if (dice < 90) return "become active";
    if (dice < 92) return "expire a task";
    if (dice < 94) return "set the clock";
    if (dice < 96) return "arm a kill";
    if (dice < 97) return "kill";
    return "stop reporting";
  }

  void launch() {
    ZLNInitializeReporting("2.5.1");
    if (dice_.perMille(50)) attemptAd();
    if (machine_.power.isOff()) return;
    model_.makeConfig();
    model_.makeReportingManager();
    model_.makeSessionManager();
    ZLNStartSessionReporting();
  }

  void resignActive() {
    if (life_ == Life::active) life_ = Life::inactive;
    model_.resignActive();
    machine_.app.resignActive();
  }

  void becomeActive() {
    life_ = Life::active;
    model_.becomeActive();
    machine_.app.becomeActive();
  }

  void enterBackground() {
    life_ = Life::background;
    model_.enterBackground();
    machine_.app.enterBackground();
  }

  void enterForeground() {
    if (life_ == Life::background) life_ = Life::inactive;
    model_.enterForeground();
    machine_.app.enterForeground();
  }

  void terminate() {
    model_.terminate();
    machine_.app.terminate();
  }

  void stopReporting() {
    model_.stopReporting();
    ZLNStopSessionReporting();
  }

  // It clears nothing.
  void clearCache() { ZLNClearCache(); }
  void armKill() { machine_.power.failAfter(1 + dice_.below(60)); }
  void kill() { machine_.power.cut(); }
  void exit() { life_ = Life::ended; }

  void runMainTask() {
    model_.runMainTask();
    machine_.dispatch.runNextMain();
  }

  void runPoolTask() {
    const PoolTask task = model_.takePoolTask();
    if (task.loadsStored) {
      model_.loadStored();
      detail(static_cast<double>(model_.reportFile.size()));
    } else if (task.operation) {
      model_.startOperation(task.operation);
    } else {
      model_.beginWait(task.monitor);
    }
    machine_.dispatch.runNextGlobal();
    if (task.monitor && !machine_.power.isOff()) {
      if (model_.isWaiting()) model_.fail("a background monitor gives up too early");
      model_.endWait();
    }
  }

  void answer() {
    if (machine_.network.outstanding() == 0) return;
    const std::size_t index = dice_.below(machine_.network.outstanding());
    const std::uint64_t number = machine_.network.numberAt(index);
    detail(static_cast<double>(number));
    const auto request = requests_.find(number);
    if (request == requests_.end()) {
      auto [reply, settings] = settingsReply(server_, dice_);
      if (settings) model_.answerSettings(*settings);
      machine_.network.answer(index, std::move(reply));
      return;
    }
    auto [reply, outcome] = reportReply(server_, dice_);
    const OperationPtr operation = request->second;
    requests_.erase(request);
    retried_ = outcome == Model::Outcome::failedForNow ? operation->report->key : 0;
    model_.answer(operation, outcome);
    machine_.network.answer(index, std::move(reply));
    retried_ = 0;
  }

  void attemptAd() {
    Report report;
    report.network = kNetworks[dice_.below(std::size(kNetworks))];
    const std::size_t type = dice_.below(std::size(kAdTypes));
    report.adType = kAdTypes[type];
    report.filled = dice_.perMille(500);
    const bool hasZone = dice_.perMille(500);
    if (hasZone) report.zone = kZones[dice_.below(std::size(kZones))];
    report.key = keyOf(model_.newNumber(), hasZone ? Kind::adZoneAttempt : Kind::adAttempt);
    detail(static_cast<double>(numberOf(report.key)));
    model_.adAttempt(report);

    const char* network = report.network.c_str();
    const char* zone = report.zone.c_str();
    const bool filled = report.filled;
    switch (type) {
      case 0:
        return hasZone ? ZLNSendBannerAdZoneAttemptReport(network, zone, filled)
                       : ZLNSendBannerAdAttemptReport(network, filled);
      case 1:
        return hasZone ? ZLNSendInterstitialAdZoneAttemptReport(network, zone, filled)
                       : ZLNSendInterstitialAdAttemptReport(network, filled);
      case 2:
        return hasZone ? ZLNSendRewardedAdZoneAttemptReport(network, zone, filled)
                       : ZLNSendRewardedAdAttemptReport(network, filled);
      default:
        return hasZone ? ZLNSendAdZoneAttemptReport(network, kAdTypes[type], zone, filled)
                       : ZLNSendAdAttemptReport(network, kAdTypes[type], filled);
    }
  }

  void passTime() {
    const double limit = model_.settings[inactivityLimit];
    double seconds = dice_.between(0, 60);
    const std::uint64_t dice = dice_.below(10);
    if (dice == 0) seconds = dice_.between(0, 900);
    if (dice == 1 && limit >= 0 && limit < kDay) seconds = limit;
    if (dice == 2 && limit >= 0 && limit < kDay) seconds = limit + dice_.between(-2, 2);
    if (dice == 3 && life_ != Life::active) seconds = dice_.between(0, kDay);
    seconds = std::max(0.0, seconds);
    detail(seconds);
    machine_.clock.advance(seconds);
    model_.pass(seconds, machine_.clock.now().secondsSince1970);
  }

  void expireTask() {
    const bool ofManager = dice_.perMille(500);
    BackgroundTaskId id = kBackgroundTaskInvalid;
    if (ofManager && model_.hasReportingManager) {
      id = ZLNReportingManager::sharedManager()->backgroundTaskId();
      if (id != kBackgroundTaskInvalid) model_.expireTaskOfManager();
    } else if (!ofManager && model_.monitor) {
      id = ZLNSessionManager::sharedManager()->monitor()->uploadTask();
      if (id != kBackgroundTaskInvalid) Model::expireTaskOf(*model_.monitor);
    }
    machine_.backgroundTasks->expire(id);
  }

  void changeServer() {
    server_ = dice_.perMille(600) ? Server::good : static_cast<Server>(dice_.below(7));
    machine_.backgroundTasks->remainingTime = dice_.perMille(900) ? 1e9 : dice_.between(0, 40);
    detail(static_cast<double>(server_));
  }

  void changeFaults() {
    const bool anything = dice_.perMille(400);
    machine_.faults.reportWrites = anything && dice_.perMille(400);
    machine_.faults.settingsWrites = anything && dice_.perMille(400);
    machine_.faults.reads = anything && dice_.perMille(200);
    machine_.faults.removals = anything && dice_.perMille(400);
    machine_.faults.synchronizing = anything && dice_.perMille(200);
    model_.readsFail = machine_.faults.reads;
    model_.writesFail = machine_.faults.reportWrites;
    model_.removalsFail = machine_.faults.removals;
    model_.synchronizingFails = machine_.faults.synchronizing;
    detail(machine_.faults.reportWrites + 2 * machine_.faults.reads);
  }

  void setClock() {
    if (depth_ == 0) record("set the clock");
    constexpr double kSteps[] = {1, 30, 700, kDay, 400 * kDay, 15000 * kDay};
    double time = machine_.clock.now().secondsSince1970;
    const double step = kSteps[dice_.below(std::size(kSteps))] * dice_.between(0, 1);
    time += dice_.perMille(500) ? step : -step;
    if (time < kBegin || dice_.perMille(50)) time = kBegin + dice_.between(0, 400 * kDay);
    if (time > 5e9) time = kBegin;
    detail(time);
    machine_.clock.set(time);
    model_.setClock(machine_.clock.now().secondsSince1970);
  }

  void storm() {
    ++storms_;
    machine_.faults.reportWrites = model_.writesFail = false;
    for (int count = 0; count < kStormAttempts && !machine_.power.isOff() && !failed(); ++count) {
      play("ad attempt");
      if (dice_.perMille(20) && !model_.poolTasks.empty()) play("pool task");
    }
    server_ = dice_.perMille(300) ? Server::failing : Server::good;
  }

  void describe() {
    model_.makeSessionManager();
    char* text = ZLNGetSessionDescription();
    const std::string description = text;
    ZLNReleaseString(text);
    if (machine_.power.isOff()) return;
    const std::string uuid = model_.session ? Uuids::textOf(model_.session->number) : "";
    if (description.find("\nUUID: " + uuid + "\n") == std::string::npos) {
      model_.fail("the description is of another session: " + description);
    }
  }

  void damageFiles() {
    record("damage files");
    constexpr const char* kDamage[] = {"", "{}", "<plist", "bplist00", "<plist><dict/></plist>"};
    if (dice_.perMille(500)) {
      return damageReportFile(kDamage[dice_.below(std::size(kDamage))]);
    }
    if (!model_.settingsFile) return;
    if (dice_.perMille(500)) {
      machine_.files.put(kSettingsFile, "no list");
      model_.settingsFile->isReadable = false;
      return;
    }
    Dictionary stored;
    for (std::size_t setting = 0; setting < settingCount; ++setting) {
      stored.set(kSettingKeys[setting], Number::float64(model_.settingsFile->settings[setting]));
    }
    stored.set("lastUpdate", "yesterday");
    machine_.files.put(kSettingsFile, *property_list::write(stored));
    model_.settingsFile->lastUpdateIsText = true;
    model_.settingsFile->isReadable = true;
  }

  // The spare file may still have all of it.
  void damageReportFile(const char* damage) {
    const std::string whole = storedText();
    machine_.files.put(kReportsFile, damage);
    if (dice_.perMille(500)) {
      machine_.files.put(kSpareReportsFile, whole);
      ++model_.counts["damaged report files with a spare file"];
    } else {
      machine_.files.remove(kSpareReportsFile, nullptr);
      model_.damageReportFile();
    }
  }

  // What the next process finds.
  std::string storedText() const {
    for (const char* path : {kReportsFile, kSpareReportsFile}) {
      std::string text = machine_.files.contents(path).value_or("");
      const std::optional<Value> root = property_list::read(text);
      if (root && root->array() != nullptr) return text;
    }
    return "";
  }

  // After every step.
  void compare() {
    if (!model_.expected.reportSaves.empty()) {
      return model_.fail("the report file was not written:" +
                         textOf(keysOf(model_.expected.reportSaves.front())));
    }
    if (!model_.expected.settingsSaves.empty()) model_.fail("the settings were not written");
    if (model_.expected.settingsRequests != 0) model_.fail("the settings were not asked for");
    if (model_.expected.request) model_.fail("a report was not sent when its turn had come");
    compareCount("tasks of the main thread", machine_.dispatch.mainCount(), model_.mainTasks);
    compareCount("tasks of the pool", machine_.dispatch.globalCount(), model_.poolTasks.size());
    compareCount("identifiers", machine_.uuids.count(), model_.lastNumber);
    most("longest queue", model_.queue.size());
    compareSession();
    if (model_.queue.size() + model_.held.size() < kShortQueue || dice_.below(64) == 0) {
      compareWithManager();
    }
  }

  void most(const char* what, std::size_t count) {
    double& most = model_.counts[what];
    most = std::max(most, static_cast<double>(count));
  }

  void compareCount(const char* what, std::uint64_t found, std::uint64_t expected) {
    if (found == expected) return;
    model_.fail("there are " + std::to_string(found) + ' ' + what + ", not " +
                std::to_string(expected));
  }

  // The report file has all that the manager still has to send, then what an earlier process left
  // and is not loaded: byte for byte, unless the list has changed since in a way that is not saved
  // at once.
  void compareWithManager() {
    if (!model_.hasReportingManager || !model_.isSaved) return;
    const auto manager = ZLNReportingManager::sharedManager();
    std::vector<std::shared_ptr<ZLNReportBase>> reports = manager->temporaryErrorReports();
    const auto operations = manager->reportQueue().operations();
    for (const auto& operation : operations) {
      reports.push_back(dynamic_cast<const ZLNReportOperationBase&>(*operation).report());
    }
    if (reports.size() != model_.held.size() + model_.queue.size()) {
      return model_.fail("the manager has " + std::to_string(reports.size()) + " reports, not " +
                         std::to_string(model_.held.size() + model_.queue.size()));
    }
    if (!model_.hasSaved) return;
    const std::vector<Key> pending = keysOf(model_.pendingReports());
    const std::vector<Key> saved = keysOf(model_.reportFile);
    for (const Key key : pending) {
      if (std::find(saved.begin(), saved.end(), key) == saved.end()) {
        return model_.fail("a pending report is not in the file:" + textOf({key}));
      }
    }
    if (pending != saved || dice_.below(16) != 0) return;
    Array elements;
    for (const auto& report : reports) elements.emplace_back(*report->toDictionary());
    if (!model_.stored.empty()) {
      const Value found = *property_list::read(storedText_);
      elements.insert(elements.end(), found.array()->begin(), found.array()->end());
      ++model_.counts["looks at a file with carried reports"];
    }
    if (machine_.files.contents(kReportsFile) != property_list::write(elements)) {
      model_.fail("the report file is not the list of the pending reports");
    }
  }

  void compareSession() {
    if (!model_.followsEvents) return;
    const auto session = ZLNSessionManager::sharedManager()->session();
    if ((session != nullptr) != model_.session.has_value()) {
      return model_.fail(session ? "there is a session" : "there is no session");
    }
    if (!session) return;
    if (session->uid() != Uuids::textOf(model_.session->number)) model_.fail("another session");
    if (session->running() != model_.session->running) {
      model_.fail(session->running() ? "the session runs" : "the session is paused");
    }
    if (session->totalDuration() != model_.session->total) {
      model_.fail("the session counts " + std::to_string(session->totalDuration()) + " s, not " +
                  std::to_string(model_.session->total));
    }
  }

  // What the library does.
  void reportFileWritten(std::string_view text, bool succeeded) override {
    ++model_.counts["saves"];
    if (!succeeded) ++model_.counts["failed saves"];
    const std::vector<Key>& keys = keysIn(text);
    model_.counts["saved reports"] += static_cast<double>(keys.size());
    if (model_.expected.reportSaves.empty()) {
      return model_.fail("the report file was written without need:" + textOf(keys));
    }
    const std::vector<Key> expected = keysOf(model_.expected.reportSaves.front());
    if (keys != expected) {
      return model_.fail("the report file has" + textOf(keys) + ", not" + textOf(expected));
    }
    checkRepeats(keys);
    model_.reportFileSaved(succeeded);
  }

  void settingsFileWritten(std::string_view text, bool succeeded) override {
    if (model_.expected.settingsSaves.empty()) {
      return model_.fail("the settings were written without need");
    }
    const SettingsFile& expected = model_.expected.settingsSaves.front();
    const auto root = property_list::read(text);
    const Dictionary* dictionary = root ? root->dictionary() : nullptr;
    if (dictionary == nullptr || dictionary->size() != settingCount + 1) {
      return model_.fail("no settings file: " + std::string(text));
    }
    for (std::size_t setting = 0; setting < settingCount; ++setting) {
      const Number* number = dictionary->findNumber(kSettingKeys[setting]);
      if (number == nullptr || number->doubleValue() != expected.settings[setting]) {
        model_.fail(std::string("in the settings file: ") + kSettingKeys[setting]);
      }
    }
    const Number* time = dictionary->findNumber("lastUpdate");
    if (time == nullptr || time->doubleValue() != expected.lastUpdate) {
      model_.fail("in the settings file: the time of the last update");
    }
    model_.settingsFileSaved(succeeded);
  }

  void requested(std::uint64_t number, const HttpRequest& request) override {
    if (request.url == kConfigUrl) {
      if (--model_.expected.settingsRequests < 0)
        model_.fail("the settings were asked for too often");
      return;
    }
    ++model_.counts["report requests"];
    const OperationPtr operation = std::exchange(model_.expected.request, nullptr);
    if (!operation) return model_.fail("a report was sent out of turn: " + request.body);
    checkBody(request, *operation->report);
    requests_.emplace(number, operation);
    most("most requests at once", requests_.size());
    if (requests_.size() > kMostRequests) model_.fail("more than three requests at once");
  }

  void defaultsStored(const std::map<std::string, Value>& values) override {
    const auto user = values.find("com.zelnor.sessionUserId");
    const std::string* text = user == values.end() ? nullptr : user->second.string();
    model_.defaultsStored(text == nullptr ? "" : *text,
                          values.contains("com.zelnor.firstSessionSent"));
  }

  void slept() override {
    model_.pass(1, machine_.clock.now().secondsSince1970);
    if (!model_.isWaiting()) model_.fail("a background monitor waits that should not");
    if (dice_.perMille(40)) play(chooseNested());
    // Or else it may wait for ever.
    if (failed()) machine_.power.cut();
  }

  void askedRemaining(double seconds) override {
    if (model_.isWaiting()) {
      model_.waitStep(seconds);
    } else {
      model_.fail("a background monitor asks for the time when it does not wait");
    }
  }

  void waitsForMain() override {
    while (model_.mainTasks != 0 && !machine_.power.isOff() && !failed()) play("main task");
  }

  // Looks only at what differs from the text before.
  const std::vector<Key>& keysIn(std::string_view text) {
    const std::size_t same = commonLength(text, seenText_);
    while (!seenEnds_.empty() && seenEnds_.back() > same) {
      seenEnds_.pop_back();
      seenKeys_.pop_back();
    }
    constexpr std::string_view kEnd = "\n\t</dict>\n";
    std::size_t at = seenEnds_.empty() ? 0 : seenEnds_.back();
    for (std::size_t end; (end = text.find(kEnd, at)) != std::string_view::npos;) {
      end += kEnd.size();
      seenKeys_.push_back(keyIn(text.substr(at, end - at)));
      seenEnds_.push_back(end);
      at = end;
    }
    seenText_.assign(text);
    return seenKeys_;
  }

  // Of a report that is in the file more than once, each further one needs a cause.
  void checkRepeats(std::vector<Key> keys) {
    std::sort(keys.begin(), keys.end());
    for (auto key = keys.begin(); (key = std::adjacent_find(key, keys.end())) != keys.end();) {
      const auto end = std::upper_bound(key, keys.end(), *key);
      const auto found = found_.find(*key);
      const int allowed =
          std::max(1, found == found_.end() ? 1 : found->second) + (*key == retried_ ? 1 : 0);
      if (end - key > allowed) model_.fail("a report is in the file again:" + textOf({*key}));
      key = end;
    }
  }

  void checkBody(const HttpRequest& request, const Report& report) {
    const auto kind = static_cast<std::size_t>(kindOf(report.key));
    const auto root = json::parse(request.body, nullptr);
    const Dictionary* body = root ? root->dictionary() : nullptr;
    if (body == nullptr || request.url != kUrls[kind] || body->size() != kMembers[kind]) {
      return model_.fail("no report of this kind: " + request.url + ' ' + request.body);
    }
    const auto hasText = [&](const char* key, const std::string& text) {
      const std::string* found = body->findString(key);
      if (found == nullptr || *found != text) {
        model_.fail(std::string(key) + " is not " + text + " in " + request.body);
      }
    };
    const auto hasNumber = [&](const char* key, double expected) {
      const Number* found = body->findNumber(key);
      if (found == nullptr || found->doubleValue() != expected) {
        model_.fail(std::string(key) + " is not " + std::to_string(expected) + " in " +
                    request.body);
      }
    };
    hasText("type", kTypes[kind]);
    hasText("userId", report.userId);
    if (kindOf(report.key) == Kind::adAttempt || kindOf(report.key) == Kind::adZoneAttempt) {
      hasText("adEventId", Uuids::textOf(numberOf(report.key)));
      hasText("network", report.network);
      hasText("adType", report.adType);
      if (kindOf(report.key) == Kind::adZoneAttempt) hasText("zoneId", report.zone);
      hasNumber("fill", report.filled ? 1 : 0);
      return;
    }
    hasText("sessionId", Uuids::textOf(numberOf(report.key)));
    hasNumber("startTime", report.startTime);
    if (kindOf(report.key) != Kind::stop) return;
    hasNumber("stopTime", report.stopTime);
    hasNumber("totalDuration", report.duration);
  }

  void record(const char* step) {
    records_[steps_ % records_.size()] = {steps_ + 1, step, 0, model_.now, depth_ != 0};
    ++steps_;
  }

  void detail(double value) { records_[(steps_ - 1) % records_.size()].detail = value; }
  bool failed() const { return !model_.problem().empty(); }

  const std::uint64_t seed_;
  const std::uint64_t sessions_;
  Dice dice_;
  Machine machine_;
  Model model_;
  ProcessState* state_ = nullptr;

  Server server_ = Server::good;
  Life life_ = Life::active;
  int depth_ = 0;
  std::map<std::uint64_t, OperationPtr> requests_;
  // The list that this process has found, how often a report is in it; and which is retried now.
  std::string storedText_;
  std::map<Key, int> found_;
  Key retried_ = 0;

  // The report file as it was last looked through.
  std::string seenText_;
  std::vector<Key> seenKeys_;
  std::vector<std::size_t> seenEnds_;

  std::uint64_t steps_ = 0;
  std::array<Record, 50> records_;
  std::uint64_t storms_ = 0;
};

// The memory of the process.

// What a process may grow by between a fifth of a season and its end. A leak of a byte for each
// step would be more.
constexpr double kMostGrowth = 4.0 * 1024 * 1024;

// In a shorter season the queue may be filled for the first time after a fifth of it, which takes
// memory that the allocator then keeps.
constexpr std::uint64_t kLongSeason = 20000;

// Texts of a long queue's size go back to the system when they are freed. By default the allocator
// comes to keep them, in one piece or another, and a growth would mean nothing.
constexpr int kGivenBack = 128 * 1024;

struct Memory {
  double resident = 0;
  // As the allocator counts it; 0 where a sanitizer has taken its place.
  double allocated = 0;
};

Memory memoryNow() {
  Memory memory;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") status >> memory.resident;
  }
  memory.resident *= 1024;
  memory.allocated = static_cast<double>(mallinfo2().uordblks);
  return memory;
}

bool isGrown(const char* what, double before, double after) {
  std::printf("%s: %.2f MB at a fifth, %.2f MB at the end\n", what, before / 1048576,
              after / 1048576);
  return after - before > kMostGrowth;
}

}  // namespace
}  // namespace zln::season

int main(int count, char** words) {
  using namespace zln::season;
  std::uint64_t seed = 1;
  std::uint64_t sessionCount = 100000;
  zln::CommandLine("season [--seed N] [--sessions N]")
      .option("--seed", seed)
      .option("--sessions", sessionCount)
      .read(count, words);
  std::printf("season: seed %s, %s sessions\n", std::to_string(seed).c_str(),
              std::to_string(sessionCount).c_str());
  std::fflush(stdout);
  if (sessionCount >= kLongSeason) mallopt(M_MMAP_THRESHOLD, kGivenBack);
  std::optional<Memory> atAFifth;
  const auto begin = std::chrono::steady_clock::now();
  Season season(seed, sessionCount);
  const bool isRight = season.play([&](std::uint64_t sessions) {
    if (!atAFifth && sessions >= sessionCount / 5) atAFifth = memoryNow();
  });
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  std::printf("%.1f s\n%s", taken.count(), season.summary().c_str());
  if (!isRight) {
    std::fputs(season.failure().c_str(), stderr);
    return 1;
  }
  const Memory atTheEnd = memoryNow();
  if (!atAFifth || atTheEnd.allocated == 0) return 0;
  bool isTooMuch = isGrown("allocated", atAFifth->allocated, atTheEnd.allocated);
  const bool residentGrows = isGrown("resident", atAFifth->resident, atTheEnd.resident);
  isTooMuch |= residentGrows && sessionCount >= kLongSeason;
  if (isTooMuch) std::fputs("season: the memory grows\n", stderr);
  return isTooMuch ? 1 : 0;
}
