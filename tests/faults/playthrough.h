#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "tests/faults/fault_plan.h"
#include "tests/support/child_process.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/https_server.h"
#include "tests/support/installation_files.h"
#include "tests/support/report_identity.h"
#include "tests/support/temporary_folder.h"

namespace zln::faults {

inline constexpr std::size_t kCallKinds = static_cast<std::size_t>(Call::kCount);

// What one playthrough is put to.
struct Trial {
  Disk disk = Disk::kOrdinary;
  Fault fault = Fault::kNone;
  Call call = Call::kNone;
  std::uint32_t ordinal = 0;
  std::uint8_t part = 128;
  // Whether the first life waits until what it has written is flushed.
  bool isQuiet = false;
};

struct Outcome {
  bool isStruck = false;
  // What is not as it should be; empty when all is right.
  std::vector<std::string> wrongs;
  // How many calls of each kind the lives with the fault have made.
  std::array<std::uint32_t, kCallKinds> calls{};
  // The end of the game's error output.
  std::string log;
};

// The driver's side of a plan: a file at `path`, for the games that are to keep to it.
class SharedPlan {
 public:
  SharedPlan(const std::string& path, const std::string& home) {
    const FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    void* memory = MAP_FAILED;
    if (file && ftruncate(file.get(), sizeof(FaultPlan)) == 0) {
      memory = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    }
    if (memory == MAP_FAILED || home.size() >= FaultPlan::kLongestPath) {
      throw std::runtime_error("No plan at " + path);
    }
    plan_ = new (memory) FaultPlan();
    std::copy(home.begin(), home.end(), plan_->home);
  }
  ~SharedPlan() { munmap(plan_, sizeof(FaultPlan)); }
  SharedPlan(const SharedPlan&) = delete;
  SharedPlan& operator=(const SharedPlan&) = delete;

  FaultPlan* operator->() { return plan_; }
  const FaultPlan* operator->() const { return plan_; }

 private:
  FaultPlan* plan_;
};

using Identities = std::set<ReportIdentity>;

inline constexpr int kLives = 3;
// Far more than anything takes that does not hang, under a sanitizer on a busy machine.
inline constexpr auto kPatience = std::chrono::seconds(60);
inline constexpr auto kPollPause = std::chrono::milliseconds(1);
inline constexpr int kLooks = 4;
inline constexpr int kExitCode = 7;
inline constexpr std::size_t kLogEnd = 4000;

inline constexpr char kFirst[] = "ReportTypeSessionFirst";

inline std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline bool isSessionStart(const nlohmann::json& body) {
  return textIn(body, "type") == kFirst || textIn(body, "type") == "ReportTypeSessionStart";
}

// Settings are stale at once, so that each activation fetches and saves them.
inline constexpr char kSettings[] =
    R"({"ConfigSerializationKeyConfigUpdateInterval":-1,)"
    R"("ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds":45})";
inline constexpr int kTemporaryFailures = 3;

// A report that came to the server, and in which of the game's lives.
struct ReceivedReport {
  int life = 0;
  nlohmann::json body;
};

// The reporting service through the lives of a game. It takes every report at once but attempts
// whose network says otherwise: "refused" fails permanently, one that begins with "thrice" fails
// three times for now.
class Service {
 public:
  // In the order of coming.
  std::vector<ReceivedReport> reports() const {
    std::lock_guard lock(mutex_);
    return reports_;
  }
  // Whether the attempt of that network is settled with the server.
  bool isSettled(const std::string& network) const {
    std::lock_guard lock(mutex_);
    return settled_.contains(network);
  }

  ServerReply answer(const ReceivedRequest& request) {
    if (isSilent) return ServerReply{.pieces = {}, .end = ServerReply::End::kStall};
    if (request.target == "/session") return answerReport(nlohmann::json::parse(request.body));
    ++settingsRequests;
    return replyWith(200, kSettings);
  }

  std::atomic<int> life{0};
  std::atomic<int> settingsRequests{0};
  // A silent one answers nothing, and what it receives does not count.
  std::atomic<bool> isSilent{false};

 private:
  ServerReply answerReport(const nlohmann::json& body) {
    const std::string network = body.value("network", "");
    std::lock_guard lock(mutex_);
    reports_.push_back({life, body});
    if (network.starts_with("thrice") && ++failures_[network] <= kTemporaryFailures) {
      return replyWith(200, R"({"success":false})");
    }
    settled_.insert(network);
    return replyWith(200, network == "refused"
                              ? R"({"success":false,"errorIsPermanent":true,"error":"no"})"
                              : R"({"success":true})");
  }

  mutable std::mutex mutex_;
  std::vector<ReceivedReport> reports_;
  std::map<std::string, int> failures_;
  std::set<std::string> settled_;
};

inline bool isKill(Fault fault) { return fault == Fault::kKill || fault == Fault::kKillHalf; }

// In a quiet life: of the user identifier, of the first session's mark, and of the list of reports.
inline constexpr std::uint32_t kFlushes = 3;

inline bool isLasting(Fault fault) {
  return fault == Fault::kFullFromHere || fault == Fault::kReadOnlyFromHere ||
         fault == Fault::kNoDescriptorsFromHere;
}

// Plays a game through two lives with a fault and a last one without, on a fresh installation, and
// holds what is stored and sent against what must be. `level` is the game's log level.
//
// The first life is an installation's first: settings, delivery, a refusal, failures up to the
// holding, the way to the background and back, reports that nobody answers. The second takes these
// up again. The game does one step after the other, each when the one before has had its effect.
class Playthrough {
 public:
  Playthrough(HttpsServer& server, const Trial& trial, int level)
      : server_(server), trial_(trial), level_(level), proxy_(server.port()) {
    plan_->call = trial.call;
    plan_->ordinal = trial.ordinal;
    plan_->fault = trial.fault;
    plan_->disk = trial.disk;
    plan_->part = trial.part;
    std::filesystem::create_directory(home_);
    // A connection may outlive the playthrough.
    server.answer(
        [service = service_](const ReceivedRequest& request) { return service->answer(request); });
  }

  Outcome play() {
    playLife(1, [this] { trial_.isQuiet ? quietLife() : firstLife(); });
    playLife(2, [this] { secondLife(); });
    outcome_.isStruck = plan_->isStruck;
    std::copy(std::begin(plan_->calls), std::end(plan_->calls), outcome_.calls.begin());
    plan_->fault = Fault::kNone;
    plan_->disk = Disk::kOrdinary;
    playLife(kLives, [this] { lastLife(); });
    for (int life = 1; life < kLives; ++life) checkSent(life);
    checkFirstSessions();
    checkLastState();
    const std::string log = contentsOf(errorFile());
    outcome_.log = log.substr(log.size() - std::min(log.size(), kLogEnd));
    return outcome_;
  }

 private:
  // The fault has ended the game, as it should.
  struct Killed {};

  // The lives.

  template <typename Steps>
  void playLife(int life, Steps steps) {
    life_ = life;
    const int settingsRequests = service_->settingsRequests;
    service_->life = life;
    service_->isSilent = false;
    launch();
    try {
      steps();
    } catch (const Killed&) {
      expectKill();
    } catch (const std::exception& problem) {
      isKilledByPlan() ? expectKill() : wrong(problem.what());
    }
    game_->kill();
    if (!server_.waitUntilDeserted()) wrong("connections outlive the game");
    wroteSettingsInLastLife_ = service_->settingsRequests > settingsRequests;
    checkStored();
  }

  void launch() {
    const std::map<std::string, std::string> environment = {{"HOME", home_},
                                                            {"XDG_DATA_HOME", home_ + "/data"},
                                                            {"XDG_CONFIG_HOME", home_ + "/config"},
                                                            {"SSL_CERT_FILE", server_.caFile()},
                                                            {"https_proxy", proxy_.url()},
                                                            {"LD_PRELOAD", ZLN_PRELOAD},
                                                            // A race counts as a crash.
                                                            {"TSAN_OPTIONS", "halt_on_error=1"},
                                                            {kPlanVariable, planFile()}};
    game_ = std::make_unique<ChildProcess>(ZLN_GAME_PROGRAM, environment, errorFile());
    process_ = game_->pid();
  }

  void start() {
    tell("level " + std::to_string(level_));
    tell("app com.example.game 1.2.3");
    tell("initialize engine-5");
    tell("start");
    await("the report of the session's start", [this] {
      const std::vector<ReceivedReport> reports = service_->reports();
      return std::any_of(reports.begin(), reports.end(), [this](const ReceivedReport& report) {
        return report.life == life_ && isSessionStart(report.body);
      });
    });
  }

  void firstLife() {
    start();
    await("the request for settings", [this] { return service_->settingsRequests >= 1; });
    rest();
    tell("active");
    await("the second request for settings", [this] { return service_->settingsRequests >= 2; });
    rest();
    tellOfAttempt("taken", "banner taken 1");
    awaitSent("taken", 1);
    rest();
    tellOfAttempt("refused", "rewarded refused 0");
    awaitSent("refused", 1);
    rest();
    tellOfAttempt("thrice1", "zone thrice1 video z 1");
    tellOfAttempt("thrice2", "rewarded thrice2 1");
    awaitSent("thrice1", 3);
    awaitSent("thrice2", 3);
    rest();
    tell("resign");
    tell("background");
    tell("foreground");
    awaitSent("thrice1", 4);
    awaitSent("thrice2", 4);
    tell("active");
    rest();
    service_->isSilent = true;
    tellOfAttempt("waiting1", "banner waiting1 1");
    tellOfAttempt("waiting2", "interstitial waiting2 0");
    tellOfAttempt("waiting3", "zone waiting3 video z 1");
    leaveForBackground();
  }

  void quietLife() {
    start();
    tellOfAttempt("quiet1", "banner quiet1 1");
    awaitSent("quiet1", 1);
    await("the last flush",
          [this] { return plan_->calls[static_cast<std::size_t>(Call::kFlush)] >= kFlushes; });
    service_->isSilent = true;
    tellOfAttempt("quiet2", "banner quiet2 1");
    leaveForBackground();
  }

  // Saves three times at its end, so that one failure costs nothing.
  void leaveForBackground() {
    for (const char* event : {"resign", "background", "terminate", "background", "background"}) {
      tell(event);
    }
  }

  void secondLife() {
    start();
    awaitStored();
    rest();
    tell("active");
    rest();
    tellOfAttempt("second", "banner second 1");
    awaitSent("second", 1);
    rest();
    service_->isSilent = true;
    tellOfAttempt("late", "rewarded late 1");
    leaveForBackground();
    game_->send("return");
    const int status = game_->waitForEnd(kPatience);
    const bool isWell = WIFEXITED(status) && WEXITSTATUS(status) == kExitCode;
    if (!isWell && !isKilledByPlan()) wrong("the game does not end well");
  }

  void lastLife() {
    start();
    awaitStored();
    rest();
    tell("active");
    await("an empty list of reports", [this] {
      tell("background");
      return files_.owesNothing();
    });
    rest();
  }

  // The steps.

  void tell(const std::string& command) {
    if (!game_->tell(command).empty()) wrong("the game does not understand: " + command);
    if (plan_->isStruck) checkWhole(files_.read());
  }

  // An attempt's network names it; it counts as acknowledged when the game has answered.
  void tellOfAttempt(const std::string& network, const std::string& command) {
    tell(command);
    acknowledged_.push_back(network);
  }

  template <typename Condition>
  void await(const std::string& what, Condition isTrue) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!isTrue()) {
      if (isKilledByPlan()) throw Killed();
      if (hasEnded()) throw std::runtime_error("the game has ended by itself");
      if (std::chrono::steady_clock::now() > end)
        throw std::runtime_error("there never came " + what);
      std::this_thread::sleep_for(kPollPause);
    }
  }

  void awaitSent(const std::string& network, int times) {
    await("attempt " + network, [&] {
      const std::vector<ReceivedReport> reports = service_->reports();
      return std::count_if(reports.begin(), reports.end(), [&](const ReceivedReport& report) {
               return textIn(report.body, "network") == network;
             }) >= times;
    });
  }

  // Until all that the life before has left has been sent. A life that cannot read the list leaves
  // it to the next one.
  void awaitStored() {
    const Identities& stored = storedAtEnd_[life_ - 1];
    await("a stored report", [&] {
      if (mayHaveUnreadReports()) return true;
      const Identities sent = sentAfter(life_ - 1);
      return std::includes(sent.begin(), sent.end(), stored.begin(), stored.end());
    });
  }

  // Until the game has nothing under way to the server and no thread of it has anything to do. A
  // thread may wait for another one for a moment, so several looks must agree.
  void rest() {
    int looks = 0;
    await("rest", [this, &looks] {
      looks = !hasConnection() && isAsleep() && !hasConnection() ? looks + 1 : 0;
      return looks == kLooks;
    });
  }

  bool hasConnection() const {
    std::error_code ignored;
    const std::string files = "/proc/" + std::to_string(process_) + "/fd";
    for (const auto& file : std::filesystem::directory_iterator(files, ignored)) {
      const std::string target = std::filesystem::read_symlink(file.path(), ignored);
      if (target.starts_with("socket:")) return true;
    }
    return false;
  }

  bool isAsleep() const {
    std::error_code ignored;
    const std::string tasks = "/proc/" + std::to_string(process_) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks, ignored)) {
      const std::string facts = contentsOf(task.path().string() + "/stat");
      if (facts.find(") S ") == std::string::npos) return false;
    }
    return true;
  }

  bool hasEnded() const {
    siginfo_t facts{};
    const auto id = static_cast<id_t>(process_);
    return waitid(P_PID, id, &facts, WEXITED | WNOHANG | WNOWAIT) != 0 || facts.si_pid != 0;
  }

  // In this life.
  bool isKilledByPlan() const {
    return plan_->isStruck && isKill(plan_->fault) && plan_->struckProcess == process_;
  }

  bool mayHaveUnreadReports() const {
    const bool isOfReading = trial_.call == Call::kOpenToRead || trial_.call == Call::kRead ||
                             trial_.fault == Fault::kNoDescriptorsFromHere;
    return isOfReading && plan_->isStruck && plan_->struckProcess == process_;
  }

  void expectKill() {
    const int status = game_->waitForEnd(kPatience);
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) wrong("the game outlives its end");
  }

  // What must hold.

  void checkWhole(const StoredState& state) {
    for (const std::string& problem : state.problems) wrong("torn: " + problem);
    if (state.settings && state.settings->find("lastUpdate") == nullptr) {
      wrong("torn: the settings lack their time");
    }
  }

  // At the end of a life.
  void checkStored() {
    const StoredState state = files_.read();
    checkWhole(state);
    if (hadReports_ && !state.hasReportFile) wrong("the list of reports is gone");
    hadReports_ = state.hasReportFile;
    if (!user_.empty() && state.user != user_) wrong("the stored user is another one");
    user_ = state.user;
    if (!state.isFirstSessionSent) ++livesWithoutFirstSession_;
    for (const StoredReport& report : state.reports) storedAtEnd_[life_].insert(report.identity);
    checkAcknowledged(state);
    acknowledged_.clear();
  }

  // The game has gone on when it was told that an attempt is kept.
  void checkAcknowledged(const StoredState& state) {
    if (mayLoseWhatIsNotSent()) return;
    for (const std::string& network : acknowledged_) {
      const bool isStored =
          std::any_of(state.reports.begin(), state.reports.end(),
                      [&](const StoredReport& report) { return report.network == network; });
      if (isStored || service_->isSettled(network)) continue;
      wrong("attempt " + network + " is neither sent nor stored");
    }
  }

  // Without a folder, or on a disk that stays broken, nothing can be kept for another life.
  bool mayLoseWhatIsNotSent() const {
    return plan_->isStruck &&
           (isLasting(trial_.fault) || (trial_.call == Call::kMakeFolder && !isKill(trial_.fault)));
  }

  // All that a life has left stored is sent by a later one.
  void checkSent(int life) {
    const Identities sent = sentAfter(life);
    for (const ReportIdentity& identity : storedAtEnd_[life]) {
      if (!sent.contains(identity)) wrong("stored and never sent: " + identity.text());
    }
  }

  Identities sentAfter(int life) const {
    Identities sent;
    for (const ReceivedReport& report : service_->reports()) {
      if (report.life > life) sent.insert(reportIdentity(report.body));
    }
    return sent;
  }

  // One first session, and one more for each life that could not read or store that there was one.
  void checkFirstSessions() {
    Identities firsts = sentAfter(0);
    std::erase_if(firsts, [](const ReportIdentity& identity) { return identity.type != kFirst; });
    const bool isUnread = trial_.fault == Fault::kNoDescriptorsFromHere && plan_->isStruck;
    const auto most = static_cast<std::size_t>(1 + livesWithoutFirstSession_ + isUnread);
    if (firsts.empty()) wrong("no first session");
    if (firsts.size() > most) wrong(std::to_string(firsts.size()) + " first sessions");
  }

  void checkLastState() {
    const StoredState state = files_.read();
    checkStrangers();
    if (!state.settings) wrong("no settings are stored");
    if (!state.isFirstSessionSent) wrong("no first session is stored");
    for (const ReceivedReport& report : service_->reports()) {
      const bool isNew = report.life == kLives && isSessionStart(report.body) &&
                         !storedAtEnd_[kLives - 1].contains(reportIdentity(report.body));
      if (isNew && textIn(report.body, "userId") != state.user) wrong("a report of another user");
    }
  }

  // What a killed game leaves goes with the next write in the folder, where the system can lock
  // files. Settings that had been fetched before the kill are not written again so soon.
  void checkStrangers() {
    if (trial_.disk == Disk::kNoLocks) return;
    for (const std::string& name : files_.strangers()) {
      const bool isOfSettings = name.find("/com.zelnor.sdk/data/.zln.") != std::string::npos;
      if (!isOfSettings || wroteSettingsInLastLife_) wrong("left over: " + name);
    }
  }

  void wrong(const std::string& what) {
    outcome_.wrongs.push_back("life " + std::to_string(life_) + ": " + what);
  }

  std::string planFile() const { return folder_.path() + "/plan"; }
  std::string errorFile() const { return folder_.path() + "/errors"; }

  HttpsServer& server_;
  const std::shared_ptr<Service> service_ = std::make_shared<Service>();
  const Trial trial_;
  const int level_;
  TemporaryFolder folder_;
  const std::string home_ = folder_.path() + "/home";
  const InstallationFiles files_{home_, "com.example.game"};
  SharedPlan plan_{planFile(), home_};
  ConnectProxy proxy_;
  std::unique_ptr<ChildProcess> game_;
  int life_ = 0;
  pid_t process_ = -1;
  Outcome outcome_;

  // What the ends of the lives have shown.
  std::vector<std::string> acknowledged_;
  std::map<int, Identities> storedAtEnd_;
  bool hadReports_ = false;
  std::string user_;
  bool wroteSettingsInLastLife_ = false;
  int livesWithoutFirstSession_ = 0;
};

}  // namespace zln::faults
