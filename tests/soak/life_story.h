#pragma once

#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/soak/soak_reports.h"
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
  // Stored reports that the process has queued, in the file's order.
  std::size_t recovered = 0;
  bool killedItself = false;
  // What should not be in a diary.
  std::vector<std::string> complaints;
};

inline constexpr int kNone = -1;

// Takes the beginning away; false when there is another one.
inline bool take(std::string_view& text, std::string_view beginning) {
  if (!text.starts_with(beginning)) return false;
  text.remove_prefix(beginning.size());
  return true;
}

inline std::string_view takeWord(std::string_view& text) {
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(text.size(), word.size() + 1));
  return word;
}

inline int numberIn(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// Reads a diary line by line and keeps what each thread and each report is at.
class DiaryReader {
 public:
  DiaryReader(const std::string& name, const StoredState& before) : name_(name), before_(before) {}

  void read(std::string_view line) {
    takeWord(line);  // The time.
    Thread& thread = threads_[std::string(takeWord(line))];
    const std::string_view letter = takeWord(line);
    if (letter == "B") beginCall(thread, line);
    if (letter == "D") endCall(thread, line);
    if (letter == "U") enterSession(std::string(line));
    if (letter == "L") readLog(thread, line);
    if (letter == "K") story_.killedItself = true;
  }

  LifeStory finish() {
    for (std::size_t report = 0; report < story_.reports.size(); ++report) {
      resolve(report);
      if (story_.reports[report].subject.empty()) ++story_.unnamedReports;
    }
    for (const Session& session : sessions_) {
      if (!session.isSettled || session.hasReport) continue;
      if (session.identifier.empty()) ++story_.unnamedWithoutBegin;
      if (!session.identifier.empty()) story_.sessionsWithoutBegin.insert(session.identifier);
    }
    story_.sessions = static_cast<int>(sessions_.size());
    return std::move(story_);
  }

 private:
  struct Thread {
    int call = kNone;      // The ad call that it is in.
    bool loads = false;    // It loads the stored reports.
    int inHand = kNone;    // The one that it has just loaded.
    int failed = kNone;    // The report that has just failed temporarily on it.
    int queueing = kNone;  // The report that it queues, until it is saved.
    int posting = kNone;
    int delivered = kNone;  // The report whose delivery it has told of.
    bool savedDelivery = false;
    FullQueue place = FullQueue::kNew;
    int expiring = kNone;  // The session that its monitor stops.
    int saves = 0;
  };
  struct Session {
    std::string identifier;
    bool hasReport = false;
    // Its report, if it has one, has been queued: an event of the application has been handled
    // since it began, or it has been stopped.
    bool isSettled = false;
  };
  // A session report, whose subject is known when its session's is.
  struct SessionReport {
    std::size_t session;
    bool isStop;
  };
  // A delivered report whose operation has left the queue: a game that ends two saves from now on
  // has begun the second one without it.
  struct Departure {
    int report;
    std::map<const Thread*, int> savesBefore;
  };

  ReportStory& at(int report) { return story_.reports[static_cast<std::size_t>(report)]; }

  void complain(std::string_view what, std::string_view text) {
    story_.complaints.push_back(std::string(what) + ": " + std::string(text));
  }

  // ---- Calls ----

  void beginCall(Thread& thread, std::string_view text) {
    if (!take(text, "ad ")) return;
    thread.call = numberIn(text);
    ++story_.callsBegun;
  }

  void endCall(Thread& thread, std::string_view text) {
    if (take(text, "ad ")) {
      endAdCall(thread, text);
    } else if (text != "start" && text != "stop") {
      for (Session& session : sessions_) session.isSettled = true;
      story_.isSettled = true;
    }
  }

  void endAdCall(Thread& thread, std::string_view text) {
    ++story_.callsDone;
    const auto made = madeByCall_.find(thread.call);
    if (made == madeByCall_.end()) {
      complain("a call that made no report", text);
    } else {
      at(made->second).accepted = true;
    }
    thread.call = kNone;
  }

  // ---- Sessions ----

  // The first session may show before the log tells of it.
  void enterSession(const std::string& identifier) {
    const bool known = std::any_of(sessions_.begin(), sessions_.end(), [&](const Session& session) {
      return session.identifier == identifier;
    });
    if (known) return;
    if (!sessions_.empty() && sessions_.back().identifier.empty()) {
      sessions_.back().identifier = identifier;
    } else {
      announced_ = identifier;
    }
  }

  void startSession() { sessions_.push_back({std::exchange(announced_, {}), false, false}); }

  void resolve(std::size_t report) {
    const auto found = sessionReports_.find(static_cast<int>(report));
    if (found == sessionReports_.end() || !story_.reports[report].subject.empty()) return;
    const std::string& identifier = sessions_[found->second.session].identifier;
    if (identifier.empty()) return;
    story_.reports[report].subject =
        found->second.isStop ? stopSubject(identifier) : beginSubject(identifier);
  }

  // ---- The log ----

  void readLog(Thread& thread, std::string_view text) {
    if (take(text, "recovered report ")) {
      recover(thread, text);
    } else if (take(text, "queue report ")) {
      queue(thread, text);
    } else if (take(text, "cannot queue report, queue is full")) {
      meetFullQueue(thread);
    } else if (take(text, "saved ")) {
      endSave(thread);
    } else if (take(text, "posting report ")) {
      post(thread, text);
    } else if (take(text, "sending report: ")) {
      send(thread, text);
    } else if (take(text, "report <")) {
      tellOutcome(thread, text);
    } else if (take(text, "report added to temporary error holding")) {
      hold(thread);
    } else if (take(text, "started new session")) {
      startSession();
    } else if (take(text, "Sending stop report from background task")) {
      thread.expiring = static_cast<int>(sessions_.size()) - 1;
    } else {
      lookForTrouble(text);
    }
  }

  void lookForTrouble(std::string_view text) {
    for (const char* trouble :
         {"failed to save", "unable to recover", "unable to serialize", "unable to queue",
          "unable to prepare", "unexpected report", "report operation with no report",
          "invalid report type", "unknown report type", "An error occured"}) {
      if (text.starts_with(trouble)) complain("in the log", text);
    }
  }

  // "<ZLNReportAdAttempt: 0x5f0>" and what follows it.
  static std::string_view takeObject(std::string_view& text) {
    take(text, "<");
    const std::size_t end = text.find('>');
    const std::string_view object = text.substr(0, end);
    text.remove_prefix(std::min(text.size(), end + 1));
    return object;
  }

  // The report object of that name that is alive; kNone when there is none.
  int known(std::string_view object) const {
    const auto found = objects_.find(std::string(object));
    return found == objects_.end() ? kNone : found->second;
  }

  int add(std::string_view object, const std::string& subject) {
    const int report = static_cast<int>(story_.reports.size());
    story_.reports.emplace_back().subject = subject;
    objects_[std::string(object)] = report;
    return report;
  }

  void recover(Thread& thread, std::string_view text) {
    const std::string_view object = takeObject(text);
    if (story_.recovered == before_.reports.size()) {
      complain("more recovered than was stored", object);
      return;
    }
    thread.inHand = add(object, subjectOf(before_.reports[story_.recovered++]));
    at(thread.inHand).stored = true;
    thread.loads = true;
  }

  void queue(Thread& thread, std::string_view text) {
    const std::string_view object = takeObject(text);
    thread.queueing = recognize(thread, object);
    if (thread.queueing == kNone) return;
    at(thread.queueing).queued = true;
    at(thread.queueing).unsettled = false;
  }

  // Which report is queued, and why.
  int recognize(Thread& thread, std::string_view object) {
    const int report = known(object);
    thread.place = FullQueue::kNew;
    if (thread.call != kNone) return addAd(thread, object);
    if (report != kNone && report == std::exchange(thread.inHand, kNone)) return report;
    if (report != kNone && report == thread.failed) {
      thread.failed = kNone;
      thread.place = FullQueue::kRetry;
      return report;
    }
    if (held_.erase(report) != 0) {
      thread.place = FullQueue::kRestored;
      return report;
    }
    return addSessionReport(thread, object);
  }

  int addAd(Thread& thread, std::string_view object) {
    const int report = add(object, adSubject(adCall(name_, thread.call).network));
    madeByCall_[thread.call] = report;
    return report;
  }

  int addSessionReport(Thread& thread, std::string_view object) {
    const bool isStop = object.starts_with("ZLNReportSessionStop");
    const bool isFirst = object.starts_with("ZLNReportSessionFirst");
    const int expiring = std::exchange(thread.expiring, kNone);
    const int current = static_cast<int>(sessions_.size()) - 1;
    const int report = add(object, {});
    if (!isStop && !isFirst && !object.starts_with("ZLNReportSessionStart")) {
      complain("a report from nowhere is queued", object);
    } else if (current == kNone) {
      complain("a report without a session", object);
    } else if (!isStop || expiring == kNone || expiring == current) {
      sessionReports_[report] = {static_cast<std::size_t>(current), isStop};
      Session& session = sessions_.back();
      session.hasReport |= !isStop;
      session.isSettled |= isStop;
    }
    if (isFirst) ++story_.firstSessions;
    return report;
  }

  void meetFullQueue(Thread& thread) {
    const int report = std::exchange(thread.queueing, kNone);
    if (report == kNone) return complain("a full queue without a report", "");
    at(report).fullQueue = thread.place;
    if (sessionReports_.contains(report)) at(report).accepted = true;
    forget(report);
  }

  void endSave(Thread& thread) {
    ++thread.saves;
    if (const int report = std::exchange(thread.queueing, kNone); report != kNone) {
      if (sessionReports_.contains(report)) at(report).accepted = true;
    }
    if (thread.delivered != kNone) thread.savedDelivery = true;
    std::erase_if(departures_, [&](Departure& departure) {
      const auto before = departure.savesBefore.try_emplace(&thread, thread.saves - 1).first;
      if (thread.saves < before->second + 2) return false;
      at(departure.report).departed = true;
      return true;
    });
  }

  void post(Thread& thread, std::string_view text) {
    const std::string_view object = takeObject(text);
    if (thread.delivered != kNone && thread.savedDelivery) {
      departures_.push_back({thread.delivered, {}});
    }
    thread.delivered = kNone;
    thread.savedDelivery = false;
    if (std::exchange(thread.loads, false) && story_.recovered < before_.reports.size()) {
      complain("stored reports are left behind", object);
    }
    thread.posting = known(object);
    if (thread.posting == kNone) complain("a report from nowhere is posted", object);
  }

  // The body says which report it is.
  void send(Thread& thread, std::string_view text) {
    const int report = std::exchange(thread.posting, kNone);
    if (report == kNone) return;
    resolve(static_cast<std::size_t>(report));
    const auto body = nlohmann::json::parse(text, nullptr, false);
    const std::string subject = subjectOf(body);
    if (at(report).subject.empty()) {
      at(report).subject = subject;
      const auto found = sessionReports_.find(report);
      if (found != sessionReports_.end()) {
        sessions_[found->second.session].identifier = textIn(body, "sessionId");
      }
    } else if (at(report).subject != subject) {
      complain("sent in place of " + at(report).subject, subject);
    }
  }

  void tellOutcome(Thread& thread, std::string_view text) {
    const std::string_view object = text.substr(0, text.find('>'));
    const int report = known(object);
    if (report == kNone) return complain("an outcome of a report from nowhere", text);
    if (text.ends_with(" transmitted successfully")) {
      ++at(report).deliveries;
      thread.delivered = report;
      thread.savedDelivery = false;
      forget(report);
    } else if (text.ends_with(" failed permanently")) {
      at(report).rejected = true;
      forget(report);
    } else if (text.ends_with(" failed temporarily")) {
      at(report).unsettled = true;
      thread.failed = report;
    }
  }

  void hold(Thread& thread) {
    const int report = std::exchange(thread.failed, kNone);
    if (report == kNone) return complain("nothing is held", "");
    at(report).unsettled = false;
    held_.insert(report);
  }

  // Its address may be another report's from now on.
  void forget(int report) {
    std::erase_if(objects_, [report](const auto& entry) { return entry.second == report; });
  }

  const std::string& name_;
  const StoredState& before_;
  LifeStory story_;
  std::map<std::string, Thread> threads_;
  std::map<std::string, int> objects_;
  std::map<int, int> madeByCall_;
  std::set<int> held_;
  std::vector<Session> sessions_;
  std::string announced_;
  std::map<int, SessionReport> sessionReports_;
  std::vector<Departure> departures_;
};

// `name` is the life's, `before` the files at its beginning.
inline LifeStory readLifeStory(const std::string& diary, const std::string& name,
                               const StoredState& before) {
  DiaryReader reader(name, before);
  std::ifstream file(diary);
  for (std::string line; std::getline(file, line);) reader.read(line);
  return reader.finish();
}

}  // namespace zln
