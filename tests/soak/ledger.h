#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/soak/life_plan.h"
#include "tests/soak/life_story.h"
#include "tests/soak/receiver.h"
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

// Why a report has not come and will not come. The closed list; anything else is a finding.
enum class Loss { kFullQueue, kRejected, kRetryAtFullQueue, kEndedWhileTakingUp, kSwitchedOff };
// Why a report has come once more.
enum class Repeat { kReplyLost, kEndedBeforeSave, kEndedWhileTakingUp, kStoodTwice };

// What the lives of a soak add up to.
struct Tally {
  int lives = 0;
  int installations = 0;
  std::map<std::string, int> weathers;
  std::map<std::string, int> endings;
  int callsBegun = 0;
  int callsAccepted = 0;
  int adsOnce = 0;
  int adsAgain = 0;
  int adsOfCutOffCalls = 0;  // Delivered, though the call did not return.
  int adsOtherIdentifiers = 0;
  std::map<Loss, int> adsLost;
  int sessions = 0;
  int begins = 0;
  int stops = 0;
  int stopsWhoseBeginIsMissing = 0;  // With a cause.
  int firstSessions = 0;
  int firstSessionsMore = 0;  // Each after a kill before the installation's mark was written.
  std::map<Loss, int> sessionReportsLost;
  std::map<Repeat, int> repeats;
  int mostStored = 0;
  int mostCopies = 0;
  int unexplained = 0;
};

// The books of one installation: every report that the game counts on, and what became of it.
class Ledger {
 public:
  explicit Ledger(Tally& tally) : tally_(tally) {}

  // Enters a life and returns what is wrong with it.
  std::vector<std::string> enter(const LifeRecord& life);
  // Ends the books, after which nothing may be owed, and returns what is wrong with them.
  std::vector<std::string> close();

 private:
  struct Account {
    bool accepted = false;
    bool owed = false;
    std::optional<Loss> loss;
    int takings = 0;
    std::set<ReportIdentity> identities;
    Repeat nextRepeat = Repeat::kReplyLost;  // If it comes again in a later life.
    double longestDuration = 0.0;            // Of a stop report.
  };
  // What one life did to one report.
  struct Course {
    std::vector<const ReportStory*> reports;
    int taken = 0;
    int repliesLost = 0;
    int deliveries = 0;
    bool rejectedByServer = false;
  };

  void find(const std::string& what) { findings_.push_back(what); }

  std::map<std::string, Course> coursesOf() const;
  void enterArrivals();
  // Holds what the server says of it against what came before.
  void checkJudgement(const Arrival& arrival);
  void checkAd(const std::string& subject, const Arrival& arrival);
  void checkStop(const Arrival& arrival, const Account& account);
  void enterCourse(const std::string& subject, const Course& course);
  void countRepeats(const std::string& subject, const Course& course);
  void settle(const std::string& subject, const Course& course);
  // Finds out why the report is gone, or finds that it cannot be told.
  void explainLoss(const std::string& subject, const Course& course);
  void lookAtStored(const std::map<std::string, Course>& courses);
  void lookAtSessions();
  // Only the settings can have switched its report off.
  void enterSessionWithoutBegin(const std::string& begin);
  void lookAtUser();
  void closeAd(const std::string& subject, const Account& account);
  void closeSessionReport(const std::string& subject, const Account& account);

  Tally& tally_;
  std::map<std::string, Account> accounts_;
  // The life that is being entered, and how often each report was stored before and after it.
  const LifeRecord* life_ = nullptr;
  std::map<std::string, int> before_;
  std::map<std::string, int> after_;
  std::set<std::string> inPlace_;
  std::set<ReportIdentity> arrived_;
  std::set<std::string> firstSessions_;
  std::set<std::string> users_;
  int usersForgotten_ = 0;
  int marksForgotten_ = 0;
  std::vector<std::string> findings_;
};

}  // namespace zln
