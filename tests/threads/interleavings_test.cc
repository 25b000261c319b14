// The library on a machine of fakes, where a seed decides what comes next: a call of the game, an
// event of its life, the next task of either queue, the reply to any request that is under way, a
// while that passes, or the end of the process. After each step what is owed must stand in the file
// and nothing may be lost.
//
// With interruptions such steps also come in the middle of others, as from another thread: where a
// line is logged outside of all locks, and while the background monitor waits.
//
// ZLN_INTERLEAVING_SEEDS tells how many seeds are tried, ZLN_INTERLEAVING_SEED which is the first.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "platform/json.h"
#include "testkit/fake_environment.h"
#include "tests/support/dice.h"
#include "tests/support/process_state_for_tests.h"
#include "tests/support/report_identity.h"
#include "transport/ZLNReportingManager.h"

namespace zln {
namespace {

constexpr int kSteps = 120;
constexpr int kDeepestInterruption = 2;
// Of so many lines at which it is possible one brings an interruption.
constexpr unsigned kLinesToAnInterruption = 8;
// Far more rounds than it takes to deliver what a run leaves.
constexpr int kDeliveryRounds = 400;
constexpr std::size_t kConcurrentReports = 3;
constexpr char kReportFile[] = "/support/com.zelnor.sdk/reporting/reports.json";

constexpr std::string_view kReportReplies[] = {
    R"({"success":true})",
    R"({"success":true})",
    R"({"success":true})",
    R"({"success":false})",
    R"({"success":false,"errorIsPermanent":true,"error":"no"})",
    R"([])",
    "",
};

constexpr std::string_view kSettingsReplies[] = {
    R"({"ConfigSerializationKeyTransmitReportsImmediately":false})",
    R"({"ConfigSerializationKeyTransmitReportsImmediately":true})",
    R"({"ConfigSerializationKeyReportTemporaryFailureLimit":1})",
    R"({"ConfigSerializationKeyReportTemporaryFailureLimit":2,"ConfigSerializationKeyConfigUpdateInterval":60})",
    R"({"ConfigSerializationKeySessionInactivityTimeLimit":5})",
    R"({"ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds":7})",
    "no settings",
};

// Lines that are logged while no lock is held and no shared object is being made.
constexpr std::string_view kInterruptibleLines[] = {
    "ZLN Session: queue report ",    "ZLN Session: transmit reports",
    "ZLN Session: report submitted", "ZLN Session: report transmitted successfully",
    "ZLN Session: server rejected",  "ZLN Session: report failed with",
    "ZLN Session: saved ",           "ZLN Session: started new session",
    "ZLN Session: paused session",   "ZLN Session: Stopped session",
    "ZLN Session: resumed session",  "ZLN Session: sending report",
};

// Lines that only a mistake of the library brings.
constexpr std::string_view kWrongLines[] = {
    "ZLN Session: unable to serialize", "ZLN Session: unable to queue",
    "ZLN Session: unable to recover",   "ZLN Session: unable to prepare",
    "ZLN Session: unexpected report",   "ZLN Session: report operation with no report",
    "ZLN Session: cannot queue report",
};

template <std::size_t kCount>
bool beginsLikeOneOf(const std::string_view (&beginnings)[kCount], std::string_view line) {
  return std::any_of(std::begin(beginnings), std::end(beginnings),
                     [line](std::string_view beginning) { return line.starts_with(beginning); });
}

// How often each report is there.
using Counts = std::map<ReportIdentity, int>;

bool holdsAllOf(const Counts& some, const Counts& others) {
  return std::all_of(others.begin(), others.end(),
                     [&](const auto& entry) { return some.contains(entry.first); });
}

int countOf(const ReportIdentity& identity, const Counts& counts) {
  const auto found = counts.find(identity);
  return found == counts.end() ? 0 : found->second;
}

std::string listOf(const Counts& counts) {
  std::string text;
  for (const auto& [identity, count] : counts) {
    text += "\n  " + std::to_string(count) + " x " + identity.text();
  }
  return text;
}

// Everything that happens under one seed.
class Run : private LogSink {
 public:
  Run(unsigned seed, bool isInterrupted)
      : isInterrupted_(isInterrupted), dice_(seed), name_("seed " + std::to_string(seed)) {
    beginProcess();
  }
  ~Run() override { endProcess(); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  // The first thing that is wrong; absent when all is as it should be.
  std::optional<std::string> play() {
    for (int step = 0; step < kSteps && !wrong_; ++step) {
      takeStep();
      check();
    }
    if (!wrong_) deliverAll();
    if (!wrong_) return std::nullopt;
    return name_ + (isInterrupted_ ? " with interruptions: " : ": ") + *wrong_ +
           "\nthe last steps: " +
           steps_.substr(steps_.size() - std::min<std::size_t>(steps_.size(), 400));
  }

 private:
  using Step = void (Run::*)();
  struct Choice {
    const char* name;
    unsigned weight;
    Step step;
    // Whether another thread than the main one may take it in the middle of anything.
    bool fitsEverywhere;
  };

  const std::vector<Choice>& choices() const {
    static const std::vector<Choice>& all = *new std::vector<Choice>{
        {"ad", 8, &Run::sendAd, true},
        {"zone ad", 4, &Run::sendZoneAd, true},
        {"main task", 14, &Run::runMainTask, false},
        {"global task", 16, &Run::runGlobalTask, false},
        {"reply", 20, &Run::reply, true},
        {"resign", 4, &Run::resignActive, false},
        {"active", 4, &Run::becomeActive, false},
        {"background", 3, &Run::enterBackground, false},
        {"foreground", 4, &Run::enterForeground, false},
        {"terminate", 1, &Run::terminate, false},
        {"stop", 2, &Run::stop, true},
        {"start", 1, &Run::start, true},
        {"initialize", 1, &Run::initialize, true},
        {"describe", 1, &Run::describe, true},
        {"clear", 1, &Run::clear, true},
        {"while", 6, &Run::passTime, false},
        {"clock", 1, &Run::setClock, true},
        {"expiry", 1, &Run::expire, false},
        {"disk", 2, &Run::changeDisk, true},
        {"end", 2, &Run::restart, false},
    };
    return all;
  }

  void takeStep() {
    unsigned sum = 0;
    for (const Choice& choice : choices()) sum += choice.weight;
    unsigned number = roll(sum);
    for (const Choice& choice : choices()) {
      if (number < choice.weight) return take(choice);
      number -= choice.weight;
    }
  }

  void take(const Choice& choice) {
    steps_ += std::string(static_cast<std::size_t>(depth_), '>') + choice.name + " ";
    (this->*choice.step)();
  }

  // A step of another thread in the middle of one.
  void interrupt() {
    ++depth_;
    const Choice& choice = choices()[roll(choices().size())];
    if (choice.fitsEverywhere) take(choice);
    --depth_;
  }

  // Where the library waits, any other thread may do anything.
  void interruptWait() {
    if (!isInterrupted_ || isEnding_ || depth_ >= kDeepestInterruption) return;
    ++depth_;
    takeStep();
    --depth_;
  }

  void write(std::string_view line) override {
    if (beginsLikeOneOf(kWrongLines, line)) report("logged: " + std::string(line));
    if (!isInterrupted_ || isEnding_ || depth_ >= kDeepestInterruption) return;
    if (!beginsLikeOneOf(kInterruptibleLines, line)) return;
    if (roll(kLinesToAnInterruption) == 0) interrupt();
  }

  // The steps.

  void sendAd() { ZLNSendBannerAdAttemptReport("net", true); }
  void sendZoneAd() { ZLNSendRewardedAdZoneAttemptReport("net", "zone", false); }
  void runMainTask() { machine_.dispatch.runNextMain(); }
  void runGlobalTask() {
    // The task may be a monitor that waits.
    for (int count = 0; isInterrupted_ && count < 2; ++count) {
      machine_.clock.at(roll(60), [this] { interruptWait(); });
    }
    machine_.dispatch.runNextGlobal();
  }
  void resignActive() { machine_.app.resignActive(); }
  void becomeActive() { machine_.app.becomeActive(); }
  void enterBackground() { machine_.app.enterBackground(); }
  void enterForeground() { machine_.app.enterForeground(); }
  void terminate() { machine_.app.terminate(); }
  void stop() { ZLNStopSessionReporting(); }
  void start() { ZLNStartSessionReporting(); }
  void initialize() { ZLNInitializeReporting("engine"); }
  void describe() { ZLNReleaseString(ZLNGetSessionDescription()); }
  void clear() { ZLNClearCache(); }
  void passTime() { machine_.clock.advance(roll(100) < 90 ? roll(30) : roll(100'000)); }
  void setClock() { machine_.clock.set(1'700'000'000.0 + roll(200'000)); }
  void expire() {
    const auto open = machine_.backgroundTasks.open();
    if (!open.empty()) machine_.backgroundTasks.expire(open[roll(open.size())]);
  }
  void changeDisk() {
    isDiskFull_ = !isDiskFull_ && roll(2) == 0;
    machine_.files.failWrites(isDiskFull_);
    isFileBehind_ = true;
    writesBefore_ = machine_.files.writeCount(kReportFile);
  }

  void reply() {
    const auto open = outstanding();
    if (!open.empty()) replyTo(open[roll(open.size())]);
  }

  void replyTo(std::size_t index) {
    answered_.insert(index);
    if (!isReport(machine_.http.requests()[index])) {
      machine_.http.reply(index, std::string(dice_.oneOf(kSettingsReplies)));
    } else if (roll(8) == 0) {
      machine_.http.fail(index, url_error::kNetworkConnectionLost);
    } else {
      answer(index, dice_.oneOf(kReportReplies));
    }
  }

  void answer(std::size_t index, std::string_view body) {
    const bool isFinal = body.find("true") != std::string_view::npos;
    if (isFinal) {
      const auto root = json::parse(machine_.http.requests()[index].body, nullptr);
      const ReportIdentity identity = reportIdentity(*root->dictionary());
      --owed_[identity];
      finished_.insert(identity);
    }
    machine_.http.reply(index, std::string(body));
  }

  // A process ends at any moment but two: when the disk could not take what is owed, and when
  // stored reports have been replaced in the file and not yet been taken up.
  void restart() {
    if (depth_ > 0 || !unread_.empty() || !holdsAllOf(stored(), present())) return;
    endProcess();
    beginProcess();
  }

  void beginProcess() {
    state_ = std::make_unique<ProcessState>(environment_);
    setProcessStateForTests(state_.get());
    isEnding_ = false;
    owed_.clear();
    unread_ = stored();
    writesBefore_ = machine_.files.writeCount(kReportFile);
    isFileBehind_ = true;
    ZLNLogSetLevel(ZLNLogLevelDebug);
    ZLNInitializeReporting("engine");
    if (roll(4) > 0) ZLNStartSessionReporting();
  }

  void endProcess() {
    isEnding_ = true;
    identities_.clear();
    machine_.endProcess();
    state_.reset();
    setProcessStateForTests(nullptr);
    machine_.endProcess();
    for (std::size_t index = 0; index < machine_.http.requests().size(); ++index) {
      answered_.insert(index);
    }
  }

  // What must hold after each step.

  void check() {
    const Counts now = present();
    checkRequests();
    checkNothingIsLost(now);
    checkFile(now);
  }

  void checkRequests() {
    std::size_t reports = 0;
    for (const std::size_t index : outstanding()) {
      if (isReport(machine_.http.requests()[index])) ++reports;
    }
    if (reports > kConcurrentReports) report(std::to_string(reports) + " reports are on their way");
  }

  // Each report is there as often as it was, but for replies that end it. New ones and stored ones
  // may come.
  void checkNothingIsLost(const Counts& now) {
    for (const auto& [identity, count] : now) {
      int& before = owed_[identity];
      while (before < count) {
        if (takeUnread(identity) == 0 && finished_.contains(identity)) {
          return report("there again: " + identity.text());
        }
        ++before;
      }
    }
    for (const auto& [identity, count] : owed_) {
      if (countOf(identity, now) < count) return report("lost: " + identity.text());
    }
  }

  int takeUnread(const ReportIdentity& identity) {
    const auto found = unread_.find(identity);
    if (found == unread_.end()) return 0;
    const int count = found->second;
    if (--found->second == 0) unread_.erase(found);
    return count;
  }

  void checkFile(const Counts& now) {
    if (isDiskFull_) return;
    if (isFileBehind_ && machine_.files.writeCount(kReportFile) == writesBefore_) return;
    isFileBehind_ = false;
    const Counts file = stored();
    if (!holdsAllOf(file, now)) return report("not in the file:" + listOf(now) + listOf(file));
    for (const auto& [identity, count] : unread_) {
      if (!file.contains(identity) && !finished_.contains(identity))
        return report("stored, not loaded and not in the file: " + identity.text());
    }
    for (const auto& [identity, count] : file) {
      const int pending = countOf(identity, now) + countOf(identity, unread_);
      // A report that is retried may be there once more than it is pending.
      if (count > pending + 1)
        return report(std::to_string(count) + " in the file: " + identity.text());
      if (pending == 0 && !isInterrupted_) return report("still in the file: " + identity.text());
    }
  }

  // The end: the network, the disk and the game are kind again.
  void deliverAll() {
    isInterrupted_ = false;
    machine_.files.failWrites(false);
    isDiskFull_ = false;
    ZLNStartSessionReporting();
    for (int round = 0; round < kDeliveryRounds && !wrong_; ++round) {
      machine_.dispatch.runAll();
      enterForeground();
      for (const std::size_t index : outstanding()) {
        answered_.insert(index);
        if (isReport(machine_.http.requests()[index])) {
          answer(index, kReportReplies[0]);
        } else {
          machine_.http.reply(index, std::string(kSettingsReplies[1]));
        }
      }
      check();
      if (outstanding().empty() && present().empty() && machine_.dispatch.globalCount() == 0) break;
    }
    // What became of the last reports while the disk was full is written by the next save.
    enterBackground();
    if (wrong_) return;
    if (!present().empty()) report("never delivered:" + listOf(present()));
    if (!outstanding().empty()) report("requests without an end");
    if (!stored().empty()) report("left in the file:" + listOf(stored()));
    if (!unread_.empty()) unreadMustBeFinished();
  }

  void unreadMustBeFinished() {
    for (const auto& [identity, count] : unread_) {
      if (!finished_.contains(identity)) report("stored and never loaded: " + identity.text());
    }
  }

  // What can be seen of the library.

  static bool isReport(const HttpRequest& request) { return request.url.ends_with("/session"); }

  std::vector<std::size_t> outstanding() const {
    std::vector<std::size_t> open;
    for (std::size_t index = 0; index < machine_.http.requests().size(); ++index) {
      if (!answered_.contains(index)) open.push_back(index);
    }
    return open;
  }

  const Counts& stored() {
    const std::size_t writes = machine_.files.writeCount(kReportFile);
    if (std::exchange(storedAt_, writes) == writes) return stored_;
    stored_.clear();
    const std::string file = machine_.files.contents(kReportFile).value_or("");
    constexpr std::string_view kEnd = "</dict>";
    std::size_t begin = 0;
    for (std::size_t end; (end = file.find(kEnd, begin)) != std::string::npos;) {
      ++stored_[reportIdentityInElement(std::string_view(file).substr(begin, end - begin))];
      begin = end + kEnd.size();
    }
    return stored_;
  }

  // What is held and queued.
  Counts present() {
    Counts counts;
    const auto manager = ZLNReportingManager::sharedManager();
    std::set<const ZLNReportBase*> seen;
    const auto note = [&](const std::shared_ptr<ZLNReportBase>& one) {
      if (!seen.insert(one.get()).second) report("there twice: " + identityOf(one).text());
      ++counts[identityOf(one)];
    };
    for (const auto& held : manager->temporaryErrorReports()) note(held);
    for (const auto& operation : manager->reportQueue().operations()) {
      note(std::static_pointer_cast<ZLNReportOperationBase>(operation)->report());
    }
    return counts;
  }

  const ReportIdentity& identityOf(const std::shared_ptr<ZLNReportBase>& one) {
    const auto [found, isNew] = identities_.try_emplace(one);
    if (isNew) found->second = reportIdentityInElement(*one->toElement());
    return found->second;
  }

  void report(const std::string& what) {
    if (!wrong_) wrong_ = what;
  }

  unsigned roll(std::size_t sides) { return static_cast<unsigned>(dice_.below(sides)); }

  FakeEnvironment machine_;
  Environment environment_{machine_.clock,
                           machine_.dispatch,
                           machine_.http,
                           machine_.files,
                           machine_.defaults,
                           machine_.device,
                           machine_.backgroundTasks,
                           machine_.uuids,
                           *this,
                           machine_.notificationCenter};
  std::unique_ptr<ProcessState> state_;
  bool isInterrupted_;
  bool isEnding_ = false;
  Dice dice_;
  const std::string name_;
  int depth_ = 0;
  std::string steps_;
  std::optional<std::string> wrong_;

  std::set<std::size_t> answered_;
  // What the last step has left, and what was ever delivered or refused for good.
  Counts owed_;
  std::set<ReportIdentity> finished_;
  // What an earlier process has left and this one has not taken up yet.
  Counts unread_;
  // What the file held after so many writes.
  Counts stored_;
  std::size_t storedAt_ = 0;
  // What has been looked into; reports of an earlier process are none any more.
  std::map<std::shared_ptr<ZLNReportBase>, ReportIdentity> identities_;
  bool isDiskFull_ = false;
  // From a change of the disk, or the beginning, to the next write.
  bool isFileBehind_ = true;
  std::size_t writesBefore_ = 0;
};

unsigned given(const char* variable, unsigned otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

void playSeeds(bool isInterrupted) {
  const unsigned first = given("ZLN_INTERLEAVING_SEED", 1);
  const unsigned count = given("ZLN_INTERLEAVING_SEEDS", ZLN_INTERLEAVING_SEEDS);
  for (unsigned seed = first; seed < first + count; ++seed) {
    const auto wrong = Run(seed, isInterrupted).play();
    if (wrong) FAIL() << *wrong;
  }
  std::printf("seeds %u to %u\n", first, first + count - 1);
}

TEST(InterleavingsTest, NothingIsLostInWhateverOrderTheStepsCome) { playSeeds(false); }

TEST(InterleavingsTest, NothingIsLostWhenStepsComeInTheMiddleOfOthers) { playSeeds(true); }

}  // namespace
}  // namespace zln
