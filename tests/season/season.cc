#include "tests/season/season.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <utility>

#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "platform/json.h"
#include "platform/property_list.h"
#include "session/ZLNSessionManager.h"
#include "support/endpoints.h"
#include "support/log.h"
#include "tests/support/process_state_for_tests.h"
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

constexpr const char* kStepNames[] = {
    "launch",
    "main task",
    "pool task",
    "answer",
    "ad attempt",
    "time passes",
    "resign active",
    "become active",
    "enter background",
    "enter foreground",
    "terminate",
    "stop reporting",
    "describe",
    "clear cache",
    "expire a task",
    "change the server",
    "change the faults",
    "set the clock",
    "storm of attempts",
    "arm a kill",
    "kill",
    "exit",
    "lose the storage",
    "damage files",
};

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

// A value of a settings reply, and what it makes of the setting, if it counts.
struct Choice {
  const char* json;
  std::optional<double> value;
};

std::vector<Choice> choicesFor(Setting setting) {
  switch (setting) {
    case failureLimit:
      return {{"3", 3}, {"5", 5}, {"1", 1}, {"0", 0}, {"-1", -1}, {"2.9", 2}, {"\"5\"", {}}};
    case inactivityLimit:
      return {{"600", 600}, {"30", 30},   {"0", 0},     {"-1.5", -1.5},
              {"2.5", 2.5}, {"1e6", 1e6}, {"null", {}}, {"true", 1}};
    case updateInterval:
      return {{"86400", 86400}, {"3600", 3600}, {"60", 60}, {"0", 0}, {"-1", -1}, {"[60]", {}}};
    case backgroundTimeout:
      return {{"60", 60}, {"3", 3}, {"0", 0}, {"-5", -5}, {"2.5", 2.5}, {"10", 10}, {"{}", {}}};
    default:
      return {{"true", 1}, {"1", 1},     {"true", 1}, {"true", 1},   {"0.5", 1},  {"true", 1},
              {"1", 1},    {"false", 0}, {"0", 0},    {"\"0\"", {}}, {"null", {}}};
  }
}

std::string_view textAfter(std::string_view text, std::string_view mark) {
  const std::size_t at = text.find(mark);
  if (at == std::string_view::npos) return {};
  text.remove_prefix(at + mark.size());
  return text.substr(0, text.find('<'));
}

// The key of one report's element in the file; 0 when it has none.
Key keyIn(std::string_view element) {
  const std::string_view type = textAfter(element, "<key>type</key>\n\t\t<string>");
  const auto* known = std::find(std::begin(kTypes), std::end(kTypes), type);
  if (known == std::end(kTypes)) return 0;
  const auto kind = static_cast<Kind>(known - std::begin(kTypes));
  const bool isAd = kind == Kind::adAttempt || kind == Kind::adZoneAttempt;
  const std::uint64_t number = Uuids::numberOf(textAfter(
      element, isAd ? "<key>adEventId</key>\n\t\t<string>" : "<key>sessionId</key>\n\t\t<string>"));
  return number == 0 ? 0 : keyOf(number, kind);
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

// Where a report has gone from a long list, such lines are left.
std::string withoutBlankLines(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, std::min(text.find('\n'), text.size()) + 1);
    if (line.find_first_not_of(" \n") != std::string_view::npos) result += line;
    text.remove_prefix(line.size());
  }
  return result;
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

}  // namespace

Season::Season(std::uint64_t seed, std::uint64_t sessions)
    : seed_(seed), sessions_(sessions), random_(seed), machine_(*this) {
  machine_.clock.set(kBegin + between(0, 1000));
  model_.setClock(machine_.clock.now().secondsSince1970);
}

Season::~Season() {
  if (state_ != nullptr) endProcess(true);
}

bool Season::play(const std::function<void(std::uint64_t)>& ended) {
  while (model_.totals.sessions < sessions_ && !failed()) {
    playProcess();
    if (failed()) break;
    ended(model_.totals.sessions);
    playBetweenProcesses();
  }
  return !failed();
}

std::string Season::failure() const {
  if (!failed()) return "";
  std::ostringstream text;
  text << "seed " << seed_ << ", step " << steps_ << ": " << model_.problem() << '\n';
  for (std::uint64_t back = std::min<std::uint64_t>(steps_, records_.size()); back != 0; --back) {
    const Record& record = records_[(steps_ - back) % records_.size()];
    text << "  " << record.number << (record.isNested ? "   inside: " : " ")
         << kStepNames[static_cast<std::size_t>(record.step)] << ' ' << record.detail << " at "
         << std::to_string(record.time) << '\n';
  }
  return text.str();
}

std::string Season::summary() const {
  const Fates& fates = model_.fates;
  const Totals& totals = model_.totals;
  std::ostringstream text;
  text << "sessions " << totals.sessions << ", first ones " << totals.firstSessions
       << " (again after a lost flag " << totals.firstSessionsAgain << "), stops " << totals.stops
       << ", without a plausible duration " << totals.implausibleStops << '\n'
       << "steps " << steps_ << ", processes " << processes_ << ", killed between calls "
       << kills_ - killsInACall_ << ", killed in a call " << killsInACall_ << '\n'
       << "requests " << posts_ << " (at most " << mostAtOnce_ << " at once), saves " << saves_
       << " of " << savedReports_ << " reports (failed " << failedSaves_ << "), longest queue "
       << longestQueue_ << '\n'
       << "stops by the rules " << totals.regularStops << ": played "
       << std::to_string(totals.played) << " s, reported " << std::to_string(totals.reported)
       << " s\n"
       << "accepted " << fates.accepted << ": delivered " << fates.delivered << " (again "
       << fates.deliveredAgain << "), rejected " << fates.rejected << ", switched off "
       << fates.switchedOff << ", still owed " << model_.liveReports() << ", lost " << fates.lost()
       << '\n'
       << "lost: queue full " << fates.queueFull << ", full at a retry " << fates.retryMetFullQueue
       << ", killed while taken up " << fates.killedWhileTakenUp << ", killed in the call "
       << fates.killedInTheCall << ", file not written " << fates.fileNotWritten
       << ", file not read " << fates.fileNotRead << ", storage lost " << fates.storageLost << '\n';
  return text.str();
}

// The process.

void Season::playProcess() {
  beginProcess();
  play(Step::launch);
  while (!machine_.power.isOff() && life_ != Life::ended && !failed()) play(chooseStep());
  if (!failed()) endProcess(machine_.power.failedInACall());
}

void Season::beginProcess() {
  ++processes_;
  machine_.power.restore();
  if (chance(100)) machine_.power.failAfter(1 + below(80));
  model_.beginProcess();
  found_.clear();
  for (const auto& report : model_.reportFile) ++found_[report->key];
  life_ = Life::active;
  state_ = new ProcessState(machine_.environment());
  if (chance(20)) state_->currentLogLevel.set(static_cast<std::uint64_t>(LogLevel::superVerbose));
  setProcessStateForTests(state_);
}

void Season::endProcess(bool inACall) {
  if (machine_.power.isOff()) ++kills_;
  if (inACall) ++killsInACall_;
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

void Season::playBetweenProcesses() {
  const double seconds = chance(700) ? between(0, 3600) : between(0, 3 * kDay);
  machine_.clock.advance(seconds);
  model_.pass(0, machine_.clock.now().secondsSince1970);
  if (chance(10)) setClock();
  if (chance(1)) {
    record(Step::loseStorage);
    machine_.loseStorage();
    model_.loseStorage();
  }
  if (chance(5)) damageFiles();
}

void Season::damageFiles() {
  record(Step::damageFiles);
  constexpr const char* kDamage[] = {"", "{}", "<plist", "bplist00", "<plist><dict/></plist>"};
  if (chance(500)) {
    machine_.files.put(kReportsFile, kDamage[below(std::size(kDamage))]);
    model_.damageReportFile();
    return;
  }
  if (!model_.settingsFile) return;
  if (chance(500)) {
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

// One step.

void Season::play(Step step) {
  record(step);
  ++depth_;
  perform(step);
  --depth_;
  if (machine_.power.isOff() || failed()) return;
  compare();
  model_.callReturned();
}

void Season::record(Step step) {
  records_[steps_ % records_.size()] = {steps_ + 1, step, 0, model_.now, depth_ != 0};
  ++steps_;
}

void Season::perform(Step step) {
  switch (step) {
    case Step::launch:
      return launch();
    case Step::mainTask:
      return runMainTask();
    case Step::poolTask:
      return runPoolTask();
    case Step::answer:
      return answer();
    case Step::adAttempt:
      return attemptAd();
    case Step::passTime:
      return passTime();
    case Step::resignActive:
      if (life_ == Life::active) life_ = Life::inactive;
      model_.resignActive();
      return machine_.app.resignActive();
    case Step::becomeActive:
      life_ = Life::active;
      model_.becomeActive();
      return machine_.app.becomeActive();
    case Step::enterBackground:
      life_ = Life::background;
      model_.enterBackground();
      return machine_.app.enterBackground();
    case Step::enterForeground:
      if (life_ == Life::background) life_ = Life::inactive;
      model_.enterForeground();
      return machine_.app.enterForeground();
    case Step::terminate:
      model_.terminate();
      return machine_.app.terminate();
    case Step::stopReporting:
      model_.stopReporting();
      return ZLNStopSessionReporting();
    case Step::describe:
      return describe();
    case Step::clearCache:
      // It clears nothing.
      return ZLNClearCache();
    case Step::expireTask:
      return expireTask();
    case Step::changeServer:
      return changeServer();
    case Step::changeFaults:
      return changeFaults();
    case Step::setClock:
      return setClock();
    case Step::storm:
      return storm();
    case Step::armKill:
      return machine_.power.failAfter(1 + below(60));
    case Step::kill:
      return machine_.power.cut();
    case Step::exit:
      life_ = Life::ended;
      return;
    case Step::loseStorage:
    case Step::damageFiles:
      return;
  }
}

Season::Step Season::chooseStep() {
  if (!model_.poolTasks.empty() && chance(450)) return Step::poolTask;
  if (model_.mainTasks != 0 && chance(300)) return Step::mainTask;
  if (machine_.network.outstanding() != 0 && server_ != Server::silent && chance(600)) {
    return Step::answer;
  }
  const std::uint64_t dice = below(1000);
  if (dice < 150) return Step::adAttempt;
  if (dice < 400) return Step::passTime;
  if (dice < 925) return chooseLifecycle();
  if (dice < 950) return Step::changeServer;
  if (dice < 960) return Step::changeFaults;
  if (dice < 964) return Step::setClock;
  if (dice < 967) return Step::stopReporting;
  if (dice < 972) return Step::describe;
  if (dice < 973) return Step::clearCache;
  if (dice < 977) return Step::expireTask;
  if (dice < 981) return Step::armKill;
  if (dice < 984) return Step::kill;
  if (dice < 985 && model_.totals.sessions >= kSessionsBeforeStorms &&
      storms_ <= model_.totals.sessions / kSessionsPerStorm) {
    return Step::storm;
  }
  // What comes in no order.
  constexpr Step kOdd[] = {Step::resignActive, Step::becomeActive, Step::enterBackground,
                           Step::enterForeground, Step::terminate};
  return kOdd[below(std::size(kOdd))];
}

Season::Step Season::chooseLifecycle() {
  switch (life_) {
    case Life::active:
      return chance(20) ? Step::exit : Step::resignActive;
    case Life::inactive:
      return chance(500) ? Step::becomeActive : Step::enterBackground;
    case Life::background:
      if (chance(850)) return Step::enterForeground;
      return chance(700) ? Step::terminate : Step::exit;
    case Life::ended:
      break;
  }
  return Step::exit;
}

Season::Step Season::chooseNested() {
  const std::uint64_t dice = below(100);
  if (dice < 25 && machine_.network.outstanding() != 0 && server_ != Server::silent) {
    return Step::answer;
  }
  if (dice < 45 && !model_.poolTasks.empty() && depth_ < 3) return Step::poolTask;
  if (dice < 60) return Step::adAttempt;
  if (dice < 75) return Step::enterForeground;
  if (dice < 90) return Step::becomeActive;
  if (dice < 92) return Step::expireTask;
  if (dice < 94) return Step::setClock;
  if (dice < 96) return Step::armKill;
  if (dice < 97) return Step::kill;
  return Step::stopReporting;
}

void Season::launch() {
  ZLNInitializeReporting("2.5.1");
  if (chance(50)) attemptAd();
  if (machine_.power.isOff()) return;
  model_.makeConfig();
  model_.makeReportingManager();
  model_.makeSessionManager();
  ZLNStartSessionReporting();
}

void Season::runMainTask() {
  model_.runMainTask();
  machine_.dispatch.runNextMain();
}

void Season::runPoolTask() {
  const Model::PoolTask task = model_.takePoolTask();
  if (task.takesUpStored) {
    model_.takeUpStored();
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

void Season::answer() {
  if (machine_.network.outstanding() == 0) return;
  const std::size_t index = below(machine_.network.outstanding());
  const std::uint64_t number = machine_.network.numberAt(index);
  detail(static_cast<double>(number));
  const auto request = requests_.find(number);
  if (request == requests_.end()) {
    auto [reply, settings] = settingsReply();
    if (settings) model_.answerSettings(*settings);
    machine_.network.answer(index, std::move(reply));
    return;
  }
  auto [reply, outcome] = reportReply();
  const Model::OperationPtr operation = request->second;
  requests_.erase(request);
  retried_ = outcome == Model::Outcome::failedForNow ? operation->report->key : 0;
  model_.answer(operation, outcome);
  machine_.network.answer(index, std::move(reply));
  retried_ = 0;
}

std::pair<HttpReply, Model::Outcome> Season::reportReply() {
  const auto body = [this](auto&... texts) {
    const char* list[] = {texts...};
    HttpResponse head;
    head.statusCode = chance(800) ? 200 : 500;
    return HttpReply{list[below(sizeof...(texts))], head, std::nullopt};
  };
  Server server = server_;
  if (server == Server::mixed) server = static_cast<Server>(below(6));
  if (server == Server::mixed) server = Server::good;
  switch (server) {
    case Server::failing:
      return {body("{\"success\":false}", "{\"success\":0,\"error\":\"later\"}",
                   "{\"success\":false,\"errorIsPermanent\":\"yes\"}",
                   "{\"success\":false,\"errorIsPermanent\":0}"),
              Model::Outcome::failedForNow};
    case Server::rejecting:
      return {body("{\"success\":false,\"errorIsPermanent\":true,\"error\":\"no\"}",
                   "{\"success\":0,\"errorIsPermanent\":1}",
                   "{\"success\":false,\"errorIsPermanent\":true,\"error\":5}"),
              Model::Outcome::failedForGood};
    case Server::nonsense:
      return {body("", "<html>", "[true]", "{\"success\":\"true\"}", "5", "{", "null", "{}",
                   "\xFF\xFE"),
              Model::Outcome::failedForNow};
    case Server::unreachable: {
      constexpr int kCodes[] = {-1001, -1003, -1004, -1005, -1009, -1200, -1, -999, -1002, -1011};
      const std::size_t code = below(std::size(kCodes));
      const Error error{kUrlErrorDomain, kCodes[code], std::nullopt, {}};
      return {HttpReply{"", std::nullopt, error},
              code < 7 ? Model::Outcome::failedForNow : Model::Outcome::failedForGood};
    }
    default:
      return {body("{\"success\":true}", "{\"success\":1}", "{\"success\":-0.5,\"more\":[{}]}"),
              Model::Outcome::delivered};
  }
}

std::pair<HttpReply, std::optional<Model::SettingsReply>> Season::settingsReply() {
  HttpReply reply{"", HttpResponse{"", 200, {}}, std::nullopt};
  if (server_ == Server::unreachable) {
    reply = {"", std::nullopt, Error{kUrlErrorDomain, -1009, std::nullopt, {}}};
    return {reply, std::nullopt};
  }
  if (server_ == Server::nonsense) {
    constexpr const char* kBodies[] = {"", "[{}]", "<html>", "5", "{\"a\":"};
    reply.body = kBodies[below(std::size(kBodies))];
    return {reply, std::nullopt};
  }
  Model::SettingsReply values;
  reply.body = "{\"unknown\":1";
  for (std::size_t setting = 0; setting < settingCount; ++setting) {
    if (chance(600)) continue;
    const auto choices = choicesFor(static_cast<Setting>(setting));
    const Choice& choice = choices[below(choices.size())];
    reply.body += std::string(",\"") + kSettingKeys[setting] + "\":" + choice.json;
    if (choice.value) values[static_cast<Setting>(setting)] = *choice.value;
  }
  reply.body += '}';
  return {reply, values};
}

void Season::attemptAd() {
  Report report;
  report.network = kNetworks[below(std::size(kNetworks))];
  const std::size_t type = below(std::size(kAdTypes));
  report.adType = kAdTypes[type];
  report.filled = chance(500);
  const bool hasZone = chance(500);
  if (hasZone) report.zone = kZones[below(std::size(kZones))];
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

void Season::passTime() {
  const double limit = model_.settings[inactivityLimit];
  double seconds = between(0, 60);
  const std::uint64_t dice = below(10);
  if (dice == 0) seconds = between(0, 900);
  if (dice == 1 && limit >= 0 && limit < kDay) seconds = limit;
  if (dice == 2 && limit >= 0 && limit < kDay) seconds = limit + between(-2, 2);
  if (dice == 3 && life_ != Life::active) seconds = between(0, kDay);
  seconds = std::max(0.0, seconds);
  detail(seconds);
  machine_.clock.advance(seconds);
  model_.pass(seconds, machine_.clock.now().secondsSince1970);
}

void Season::setClock() {
  if (depth_ == 0) record(Step::setClock);
  constexpr double kSteps[] = {1, 30, 700, kDay, 400 * kDay, 15000 * kDay};
  double time = machine_.clock.now().secondsSince1970;
  const double step = kSteps[below(std::size(kSteps))] * between(0, 1);
  time += chance(500) ? step : -step;
  if (time < kBegin || chance(50)) time = kBegin + between(0, 400 * kDay);
  if (time > 5e9) time = kBegin;
  detail(time);
  machine_.clock.set(time);
  model_.setClock(machine_.clock.now().secondsSince1970);
}

void Season::expireTask() {
  const bool ofManager = chance(500);
  BackgroundTaskId id = kBackgroundTaskInvalid;
  if (ofManager && model_.hasReportingManager()) {
    id = ZLNReportingManager::sharedManager()->backgroundTaskId();
    if (id != kBackgroundTaskInvalid) model_.expireTaskOfManager();
  } else if (!ofManager && model_.monitor) {
    id = ZLNSessionManager::sharedManager()->monitor()->uploadTask();
    if (id != kBackgroundTaskInvalid) Model::expireTaskOf(*model_.monitor);
  }
  machine_.backgroundTasks->expire(id);
}

void Season::changeServer() {
  server_ = chance(600) ? Server::good : static_cast<Server>(below(7));
  machine_.backgroundTasks->remainingTime = chance(900) ? 1e9 : between(0, 40);
  detail(static_cast<double>(server_));
}

void Season::changeFaults() {
  const bool anything = chance(400);
  machine_.faults.reportWrites = anything && chance(400);
  machine_.faults.settingsWrites = anything && chance(400);
  machine_.faults.reads = anything && chance(200);
  machine_.faults.removals = anything && chance(400);
  machine_.faults.synchronizing = anything && chance(200);
  model_.readsFail = machine_.faults.reads;
  model_.removalsFail = machine_.faults.removals;
  model_.synchronizingFails = machine_.faults.synchronizing;
  detail(machine_.faults.reportWrites + 2 * machine_.faults.reads);
}

void Season::storm() {
  ++storms_;
  machine_.faults.reportWrites = false;
  for (int count = 0; count < kStormAttempts && !machine_.power.isOff() && !failed(); ++count) {
    play(Step::adAttempt);
    if (chance(20) && !model_.poolTasks.empty()) play(Step::poolTask);
  }
  server_ = chance(300) ? Server::failing : Server::good;
}

void Season::describe() {
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

double Season::between(double from, double to) {
  return from + (to - from) * static_cast<double>(below(1u << 20)) / (1u << 20);
}

// After every step.

void Season::compare() {
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
  longestQueue_ = std::max<std::uint64_t>(longestQueue_, model_.queue.size());
  compareSession();
  if (model_.queue.size() + model_.held.size() < kShortQueue || below(64) == 0) {
    compareWithManager();
  }
}

void Season::compareCount(const char* what, std::uint64_t found, std::uint64_t expected) {
  if (found == expected) return;
  model_.fail("there are " + std::to_string(found) + ' ' + what + ", not " +
              std::to_string(expected));
}

void Season::compareSession() {
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

// The report file holds all that the manager still has to send; it is the manager's own list, byte
// for byte, unless the list has changed since in a way that is not saved at once.
void Season::compareWithManager() {
  if (!model_.hasReportingManager() || !model_.isSaved()) return;
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
  if (!model_.hasSaved()) return;
  const std::vector<Key> owed = keysOf(model_.owedReports());
  const std::vector<Key> stored = keysOf(model_.reportFile);
  for (const Key key : owed) {
    if (std::find(stored.begin(), stored.end(), key) == stored.end()) {
      return model_.fail("a report that is owed is not in the file:" + textOf({key}));
    }
  }
  if (owed != stored || below(16) != 0) return;
  Array elements;
  for (const auto& report : reports) elements.emplace_back(*report->toDictionary());
  const std::string text = machine_.files.contents(kReportsFile).value_or("");
  if (withoutBlankLines(text) != property_list::write(elements)) {
    model_.fail("the report file is not the list of what is owed");
  }
}

// What the library does.

void Season::reportFileWritten(std::string_view text, bool succeeded) {
  ++saves_;
  if (!succeeded) ++failedSaves_;
  const std::vector<Key>& keys = keysIn(text);
  savedReports_ += keys.size();
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

// Looks only at what differs from the text before.
const std::vector<Key>& Season::keysIn(std::string_view text) {
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

void Season::checkRepeats(const std::vector<Key>& keys) {
  std::vector<Key> sorted = keys;
  std::sort(sorted.begin(), sorted.end());
  for (auto key = sorted.begin(); key != sorted.end();) {
    const auto end = std::upper_bound(key, sorted.end(), *key);
    const auto found = found_.find(*key);
    const int allowed =
        std::max(1, found == found_.end() ? 1 : found->second) + (*key == retried_ ? 1 : 0);
    if (end - key > allowed) model_.fail("a report is in the file again:" + textOf({*key}));
    key = end;
  }
}

void Season::settingsFileWritten(std::string_view text, bool succeeded) {
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

void Season::requested(std::uint64_t number, const HttpRequest& request) {
  if (request.url == kConfigUrl) {
    if (--model_.expected.settingsRequests < 0)
      model_.fail("the settings were asked for too often");
    return;
  }
  ++posts_;
  const Model::OperationPtr operation = std::exchange(model_.expected.request, nullptr);
  if (!operation) return model_.fail("a report was sent out of turn: " + request.body);
  checkBody(request, *operation->report);
  requests_.emplace(number, operation);
  mostAtOnce_ = std::max<std::uint64_t>(mostAtOnce_, requests_.size());
  if (requests_.size() > kMostRequests) model_.fail("more than three requests at once");
}

void Season::checkBody(const HttpRequest& request, const Report& report) {
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
      model_.fail(std::string(key) + " is not " + std::to_string(expected) + " in " + request.body);
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

void Season::defaultsStored(const std::map<std::string, Value>& values) {
  const auto user = values.find("com.zelnor.sessionUserId");
  const std::string* text = user == values.end() ? nullptr : user->second.string();
  model_.defaultsStored(text == nullptr ? "" : *text,
                        values.contains("com.zelnor.firstSessionSent"));
}

void Season::slept() {
  model_.pass(1, machine_.clock.now().secondsSince1970);
  if (!model_.isWaiting()) model_.fail("a background monitor waits that should not");
  if (chance(40)) play(chooseNested());
  // Or else it may wait for ever.
  if (failed()) machine_.power.cut();
}

void Season::waitsForMain() {
  while (model_.mainTasks != 0 && !machine_.power.isOff() && !failed()) play(Step::mainTask);
}

void Season::askedRemaining(double seconds) {
  if (model_.isWaiting()) {
    model_.waitStep(seconds);
  } else {
    model_.fail("a background monitor asks for the time when it does not wait");
  }
}

}  // namespace zln::season
