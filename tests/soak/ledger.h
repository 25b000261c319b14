#pragma once

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/soak/life_plan.h"
#include "tests/soak/life_story.h"
#include "tests/soak/receiver.h"
#include "tests/soak/soak_reports.h"
#include "tests/support/installation_files.h"

namespace zln {

// All that is known of a life when it is over.
struct LifeRecord {
  const LifePlan* plan = nullptr;
  StoredState before;
  StoredState after;
  LifeStory story;
  std::vector<Arrival> arrivals;
  bool handedOutSettings = false;
  double seconds = 0.0;
};

using Cause = std::string_view;

// Why a report has not come and will not come. The closed list; anything else is a finding.
namespace loss {
inline constexpr Cause kFullQueue = "the queue was full";
inline constexpr Cause kRejected = "the server rejected it for good";
inline constexpr Cause kRetryAtFullQueue = "a retry met a full queue";
inline constexpr Cause kSwitchedOff = "switched off by the settings";
}  // namespace loss

// Why a report has come once more.
namespace repeat {
inline constexpr Cause kReplyLost = "the reply was lost, or the process ended before it came";
inline constexpr Cause kEndedBeforeSave = "the process ended between the delivery and the save";
inline constexpr Cause kStoodTwice = "the report stood in the file twice";
}  // namespace repeat

// What the lives of a soak add up to: a table with titles.
class Tally {
 public:
  void count(std::string_view title, std::string_view what, int more = 1) {
    counts_[std::string(title)][std::string(what)] += more;
  }
  void most(const std::string& what, int count) {
    int& most = counts_["Other"][what];
    most = std::max(most, count);
  }
  int played(const char* what) { return counts_["Played"][what]; }

  void print() const {
    for (const auto& [title, rows] : counts_) {
      std::printf("\n%s\n", title.c_str());
      for (const auto& [what, count] : rows) std::printf("  %-62s %7d\n", what.c_str(), count);
    }
  }

 private:
  std::map<std::string, std::map<std::string, int>> counts_;
};

// Times that were stored are rounded to multiples of 128 seconds.
inline constexpr double kRounding = 64.5;
// By how many seconds a session's duration may exceed the time on the wall.
inline constexpr double kDurationTolerance = 5.0;
// More than that a life does not take longer than its diary says.
inline constexpr double kLifeTolerance = 2.0;
// A report that is retried is in the file twice for a moment; killed at such moments in
// over many lives there could be more copies. More than so many copies are not by chance.
inline constexpr int kMostCopies = 8;

inline bool isAd(const std::string& subject) { return subject.starts_with("ad "); }
inline bool isStop(const std::string& subject) { return subject.starts_with("stop "); }

inline std::string beginOf(const std::string& stop) {
  return "begin" + stop.substr(stop.find(' '));
}

inline bool mayBeOff(const LifeRecord& life, const std::string& setting) {
  const std::string key = "ConfigSerializationKey" + setting;
  const Number* before = life.before.settings ? life.before.settings->findNumber(key) : nullptr;
  const bool wasOff = before != nullptr && !before->boolValue();
  return wasOff || (life.handedOutSettings && !life.plan->settings.value(key, true));
}

// The settings of the life may have switched this kind of session report off.
inline bool mayBeSwitchedOff(const LifeRecord& life, const std::string& subject) {
  if (isAd(subject)) return false;
  if (isStop(subject)) return mayBeOff(life, "SendStopSessionReports");
  return mayBeOff(life, "SendStartSessionReports") || mayBeOff(life, "SendFirstSessionReports");
}

// What the evidence says of one object of a report that is gone; absent when it says nothing.
inline std::optional<Cause> lossOf(const ReportStory& report, bool rejectedByServer,
                                   bool mayBeOff) {
  if (report.deliveries > 0) return std::nullopt;
  if (report.rejected) {
    return rejectedByServer ? std::optional(loss::kRejected) : std::nullopt;
  }
  if (report.fullQueue == FullQueue::kRetry) return loss::kRetryAtFullQueue;
  if (report.fullQueue != FullQueue::kNot) return loss::kFullQueue;
  if (mayBeOff && (report.unsettled || (report.stored && !report.queued))) {
    return loss::kSwitchedOff;
  }
  return std::nullopt;
}

inline double numberIn(const nlohmann::json& body, const char* key) {
  const auto found = body.find(key);
  return found == body.end() || !found->is_number() ? -1.0 : found->get<double>();
}

inline std::string endingOf(const LifeRecord& life) {
  switch (life.plan->ending) {
    case Ending::kKilledAfter:
      return "killed at a moment";
    case Ending::kKilledAtLine:
      return life.story.killedItself ? "killed at a log line" : "killed at a moment";
    case Ending::kLeaves:
      return life.plan->commands.back();
    case Ending::kDrained:
      break;
  }
  return "drained";
}

// The books of one installation: every report that the game counts on, and what became of it.
class Ledger {
 public:
  explicit Ledger(Tally& tally) : tally_(tally) {}

  // Enters a life and returns what is wrong with it.
  std::vector<std::string> enter(const LifeRecord& life) {
    life_ = &life;
    findings_ = life.story.complaints;
    before_.clear();
    after_.clear();
    for (const StoredReport& stored : life.before.reports) ++before_[subjectOf(stored)];
    for (const StoredReport& stored : life.after.reports) ++after_[subjectOf(stored)];
    for (const std::string& problem : life.before.problems) find("before: " + problem);
    for (const std::string& problem : life.after.problems) find("after: " + problem);
    for (const ReportStory& report : life.story.reports) {
      if (report.subject.empty()) continue;
      Account& account = accounts_[report.subject];
      if (report.accepted) account.accepted = true;
      if (report.accepted || report.stored) account.owed = true;
      if (!report.stored) account.longestDuration = life.seconds + kLifeTolerance;
    }
    const std::map<std::string, Course> courses = coursesOf();
    enterArrivals();
    for (const auto& [subject, course] : courses) enterCourse(subject, course);
    lookAtStored(courses);
    lookAtSessions();
    lookAtUser();

    tally_.count("Played", "lives");
    const std::string& weather = life.plan->weather.name;
    tally_.count("Servers", weather.substr(0, weather.find(' ')));
    tally_.count("Endings", endingOf(life));
    tally_.count("Ad attempts", "calls begun", life.story.callsBegun);
    tally_.count("Sessions", "sessions begun", life.story.sessions);
    tally_.most("most reports in the file after a life",
                static_cast<int>(life.after.reports.size()));
    return std::move(findings_);
  }

  // Ends the books, after which nothing may be owed, and returns what is wrong with them.
  std::vector<std::string> close() {
    findings_.clear();
    for (const auto& [subject, account] : accounts_) {
      if (account.owed) find(subject + " is still owed");
      isAd(subject) ? closeAd(subject, account) : closeSessionReport(subject, account);
    }
    const int firsts = static_cast<int>(firstSessions_.size());
    if (firsts > 1 + marksForgotten_) find(std::to_string(firsts) + " first sessions");
    if (static_cast<int>(users_.size()) > 1 + usersForgotten_) find("more than one user");
    tally_.count("Sessions", "installations with a first session", std::min(firsts, 1));
    tally_.count("Sessions", "further first sessions, after a kill before the mark was kept",
                 std::max(firsts - 1, 0));
    tally_.count("Played", "installations");
    return std::move(findings_);
  }

 private:
  struct Account {
    bool accepted = false;
    bool owed = false;
    std::optional<Cause> loss;
    int takings = 0;
    std::set<ReportIdentity> identities;
    Cause nextRepeat = repeat::kReplyLost;  // If it comes again in a later life.
    double longestDuration = 0.0;           // Of a stop report.
  };
  // What one life did to one report.
  struct Course {
    std::vector<const ReportStory*> reports;
    int storedBefore = 0;
    int taken = 0;
    int repliesLost = 0;
    int deliveries = 0;
    bool rejectedByServer = false;
  };

  void find(const std::string& what) { findings_.push_back(what); }

  std::map<std::string, Course> coursesOf() const {
    std::map<std::string, Course> courses;
    for (const auto& [subject, count] : before_) courses[subject].storedBefore = count;
    for (const ReportStory& report : life_->story.reports) {
      if (report.subject.empty()) continue;
      Course& course = courses[report.subject];
      course.reports.push_back(&report);
      course.deliveries += report.deliveries;
    }
    for (const Arrival& arrival : life_->arrivals) {
      Course& course = courses[arrival.subject];
      if (arrival.verdict == Verdict::kTaken) {
        ++course.taken;
        if (!arrival.replied) ++course.repliesLost;
      }
      if (arrival.verdict == Verdict::kRejected) course.rejectedByServer = true;
    }
    return courses;
  }

  // ---- What came ----

  void enterArrivals() {
    for (const Arrival& arrival : life_->arrivals) {
      const auto found = accounts_.find(arrival.subject);
      if (found == accounts_.end()) {
        find("a report from nowhere came: " + arrival.body.dump());
        continue;
      }
      checkJudgement(arrival);
      users_.insert(textIn(arrival.body, "userId"));
      if (isAd(arrival.subject)) {
        found->second.identities.insert(reportIdentity(arrival.body));
        checkAd(arrival.subject, arrival);
      } else if (isStop(arrival.subject)) {
        checkStop(arrival, found->second);
      } else if (textIn(arrival.body, "type") == "ReportTypeSessionFirst") {
        firstSessions_.insert(arrival.subject);
      }
    }
  }

  // Holds what the server says of it against what came before. How many first sessions there may
  // be is for the end of the books.
  void checkJudgement(const Arrival& arrival) {
    const bool cameBefore = !arrived_.insert(reportIdentity(arrival.body)).second;
    const bool isInvalid = std::any_of(arrival.errors.begin(), arrival.errors.end(),
                                       [](const auto& e) { return e != "second-first-session"; });
    if (isInvalid) find("the collector calls it invalid: " + arrival.body.dump());
    if (arrival.errors.empty() && arrival.isDuplicate != cameBefore) {
      find(std::string("the collector calls it ") + (cameBefore ? "new" : "a duplicate") + ": " +
           arrival.body.dump());
    }
  }

  // It says what the call said.
  void checkAd(const std::string& subject, const Arrival& arrival) {
    int number = 0;
    const std::size_t dot = subject.find('.');
    std::from_chars(subject.data() + dot + 1, subject.data() + subject.size(), number);
    const AdCall call = adCall(subject.substr(3, dot - 3), number);
    const bool isZone = textIn(arrival.body, "type") == "ReportTypeAdZoneAttempt";
    if (textIn(arrival.body, "network") != call.network ||
        textIn(arrival.body, "adType") != call.adType || isZone != call.zone.has_value() ||
        textIn(arrival.body, "zoneId") != call.zone.value_or("") ||
        arrival.body.value("fill", !call.filled) != call.filled ||
        textIn(arrival.body, "adEventId").size() != 36) {
      find("a report that does not say what the call said: " + arrival.body.dump());
    }
  }

  void checkStop(const Arrival& arrival, const Account& account) {
    const double duration = numberIn(arrival.body, "totalDuration");
    const double span = numberIn(arrival.body, "stopTime") - numberIn(arrival.body, "startTime");
    if (duration < 0.0 || duration > account.longestDuration || span < -2 * kRounding ||
        duration > span + kDurationTolerance + 2 * kRounding ||
        span > account.longestDuration + 2 * kRounding) {
      find("a session that cannot have lasted so long: " + arrival.body.dump());
    }
  }

  // ---- What became of it ----

  void enterCourse(const std::string& subject, const Course& course) {
    if (course.deliveries > course.taken) {
      find(subject + " counts as delivered, but the server did not take it");
    }
    for (const ReportStory* report : course.reports) {
      if (report->deliveries > 1) find(subject + " is delivered twice by one process");
    }
    countRepeats(subject, course);
    settle(subject, course);
  }

  void countRepeats(const std::string& subject, const Course& course) {
    if (course.taken == 0) return;
    Account& account = accounts_[subject];
    if (account.takings > 0) tally_.count("Repeated deliveries", account.nextRepeat);
    account.takings += course.taken;

    // What has not been delivered may have been on its way when the process ended.
    const int objects = static_cast<int>(course.reports.size());
    const int unlearned = course.taken - course.deliveries;
    if (unlearned > course.repliesLost + objects - course.deliveries) {
      find(subject + " came again although the game had the server's reply");
    }
    const int again = course.taken - 1;
    const int byLostReply = std::min(again, std::max(unlearned, 0));
    tally_.count("Repeated deliveries", repeat::kReplyLost, byLostReply);
    tally_.count("Repeated deliveries", repeat::kStoodTwice, again - byLostReply);
    account.nextRepeat = course.deliveries == 0 ? repeat::kReplyLost : repeat::kEndedBeforeSave;
    if (course.deliveries > 0 && objects > 1) account.nextRepeat = repeat::kStoodTwice;
  }

  void settle(const std::string& subject, const Course& course) {
    Account& account = accounts_[subject];
    if (!account.owed || after_.contains(subject)) return;
    account.owed = false;
    if (account.takings == 0) explainLoss(subject, course);
  }

  // Finds out why the report is gone, or finds that it cannot be told.
  void explainLoss(const std::string& subject, const Course& course) {
    const bool mayBeOff = mayBeSwitchedOff(*life_, subject);
    std::optional<Cause> loss;
    for (const ReportStory* report : course.reports) {
      loss = lossOf(*report, course.rejectedByServer, mayBeOff);
      if (!loss) break;
    }
    if (!loss) {
      find(subject + " is lost, and nothing says why");
      return;
    }
    accounts_[subject].loss = loss;
  }

  // ---- What is left ----

  void lookAtStored(const std::map<std::string, Course>& courses) {
    int unnamed = life_->story.unnamedReports;
    int withoutBegin = life_->story.unnamedWithoutBegin;
    for (const StoredReport& stored : life_->after.reports) {
      const std::string subject = subjectOf(stored);
      const bool isKnown = accounts_.contains(subject);
      if (!isKnown && (isAd(subject) || unnamed-- <= 0)) {
        find("a report from nowhere is stored: " + subject);
        continue;
      }
      // The file gives a name to a session that had none.
      if (!isKnown && isStop(subject) && withoutBegin-- > 0) {
        enterSessionWithoutBegin(beginOf(subject));
      }
      Account& account = accounts_[subject];
      account.owed = true;
      account.longestDuration = std::max(account.longestDuration, life_->seconds + kLifeTolerance);
      account.identities.insert(stored.identity);
    }
    for (const auto& [subject, count] : after_) {
      if (accounts_.contains(subject)) tally_.most("most copies of one report in the file", count);
      if (count > kMostCopies) find(subject + " is stored " + std::to_string(count) + " times");
      const auto course = courses.find(subject);
      if (course == courses.end()) continue;
      // Another one that was stored may still wait for the loader to tell of it.
      const auto& reports = course->second.reports;
      if (reports.size() == 1 && reports.front()->departed && course->second.storedBefore < 2) {
        find(subject + " is still stored after its delivery and later saves");
      }
    }
  }

  void lookAtSessions() {
    for (const std::string& session : life_->story.sessionsWithoutBegin) {
      enterSessionWithoutBegin(beginSubject(session));
    }
    if (life_->story.firstSessions > 0 && life_->before.isFirstSessionSent) {
      find("a first session after the first");
    }
    if (life_->story.firstSessions > 1) find("two first sessions in one life");
    if (life_->story.firstSessions == 0 || life_->after.isFirstSessionSent) return;
    ++marksForgotten_;
    if (life_->story.isSettled) find("the first session is not marked as sent");
  }

  // Only the settings can have switched its report off.
  void enterSessionWithoutBegin(const std::string& begin) {
    accounts_[begin].loss = loss::kSwitchedOff;
    if (!mayBeSwitchedOff(*life_, begin)) find("a session without a report: " + begin);
  }

  void lookAtUser() {
    if (!life_->before.user.empty() && life_->before.user != life_->after.user) {
      find("the user has changed from " + life_->before.user + " to " + life_->after.user);
    }
    if (!life_->after.user.empty()) return;
    ++usersForgotten_;
    if (life_->story.isSettled) find("the user is not stored");
  }

  void closeAd(const std::string& subject, const Account& account) {
    if (account.identities.size() > 1) {
      tally_.count("Ad attempts", "delivered with different identifiers");
      find(subject + " came with different identifiers");
    }
    if (!account.accepted) {
      if (account.takings > 0) {
        tally_.count("Ad attempts", "calls that a kill cut off, delivered all the same");
      }
      return;
    }
    tally_.count("Ad attempts", "calls that returned");
    if (account.takings == 1) tally_.count("Ad attempts", "delivered once");
    if (account.takings > 1) {
      tally_.count("Ad attempts", "delivered more than once, with the same identifier");
    }
    if (account.takings > 0) return;
    if (account.loss) {
      tally_.count("Ad attempts that did not arrive", *account.loss);
    } else {
      tally_.count("Other", "LOST WITHOUT A CAUSE");
      find(subject + " has neither come nor been lost for a cause");
    }
  }

  void closeSessionReport(const std::string& subject, const Account& account) {
    if (account.takings == 0) {
      if (account.loss) tally_.count("Session reports that did not arrive", *account.loss);
      if (account.accepted && !account.loss) {
        tally_.count("Other", "LOST WITHOUT A CAUSE");
        find(subject + " has neither come nor been lost for a cause");
      }
      return;
    }
    if (!isStop(subject)) {
      tally_.count("Sessions", "beginnings delivered");
      return;
    }
    tally_.count("Sessions", "ends delivered");
    const auto begin = accounts_.find(beginOf(subject));
    if (begin == accounts_.end() || (begin->second.takings == 0 && !begin->second.loss)) {
      find(subject + " came, its beginning has neither come nor been lost");
    } else if (begin->second.takings == 0) {
      tally_.count("Sessions", "ends whose beginning was lost or switched off");
    }
  }

  Tally& tally_;
  std::map<std::string, Account> accounts_;
  // The life that is being entered, what was stored before it, and how often each is after it.
  const LifeRecord* life_ = nullptr;
  std::map<std::string, int> before_;
  std::map<std::string, int> after_;
  std::set<ReportIdentity> arrived_;
  std::set<std::string> firstSessions_;
  std::set<std::string> users_;
  int usersForgotten_ = 0;
  int marksForgotten_ = 0;
  std::vector<std::string> findings_;
};

}  // namespace zln
