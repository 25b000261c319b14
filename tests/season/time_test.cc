#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "config/ZLNReportingConfig.h"
#include "platform/property_list.h"
#include "session/ZLNSessionManager.h"
#include "tests/support/host_fixture.h"
#include "tests/support/report_identity.h"
#include "tests/support/sent_reports.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kReportsFile[] = "/support/com.zelnor.sdk/reporting/reports.json";
constexpr char kSettingsFile[] = "/support/com.zelnor.sdk/data/config.dat";

constexpr char kFirst[] = "ReportTypeSessionFirst";
constexpr char kStart[] = "ReportTypeSessionStart";
constexpr char kStop[] = "ReportTypeSessionStop";

// The session of a report that a test has put into the file.
constexpr char kAbsurdId[] = "ABSURD";

constexpr double kNow = 1700000000;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

// The name of a parameter that has one.
const auto nameOf = [](const auto& info) { return std::string(info.param.name); };

// More rounds of tasks than anything here needs: an endless loop ends as a failed test.
constexpr int kMostRounds = 10000;

// A time as it comes back from a file.
double restored(double seconds) {
  const volatile float stored = static_cast<float>(seconds);
  return static_cast<double>(stored);
}

double secondsAt(const Dictionary& report, const char* key) { return numberOf(report, key); }

// A game on a machine whose clock goes wrong. Every line of the log is made, so that dates of any
// size are also written out. The test ends with all that was sent and stored being sound.
class TimeTest : public HostTest {
 protected:
  TimeTest() {
    setLevel(5);
    serverWorks(true);
  }

  void TearDown() override {
    expectSoundBodies();
    expectReadableFiles();
  }

  void serverWorks(bool works) {
    env.http.always([works](const HttpRequest&) {
      return okReply(works ? "{\"success\":true}" : "{\"success\":false}");
    });
  }

  void launch() {
    ZLNInitializeReporting("2.5.1");
    ZLNStartSessionReporting();
    run();
  }

  void launchAgain() {
    restart();
    setLevel(5);
    launch();
  }

  // Runs all tasks of both queues.
  void run() {
    int rounds = 0;
    while ((env.dispatch.runNextMain() || env.dispatch.runNextGlobal()) && ++rounds < kMostRounds) {
    }
    EXPECT_LT(rounds, kMostRounds) << "tasks without end";
  }

  void pass(double seconds) { env.clock.advance(seconds); }
  double now() { return env.clock.now().secondsSince1970; }

  void resign() { env.app.resignActive(); }
  void become() {
    env.app.becomeActive();
    run();
  }
  // Without the background monitor's wait: the process stands still there.
  void leave() {
    env.app.resignActive();
    env.app.enterBackground();
  }
  void comeBack() {
    env.app.enterForeground();
    become();
  }
  // With a last look at the text for the host, which shows all times.
  void end() {
    ZLNReleaseString(ZLNGetSessionDescription());
    resign();
    ZLNReleaseString(ZLNGetSessionDescription());
    env.app.terminate();
    run();
  }

  std::shared_ptr<ZLNSession> session() { return ZLNSessionManager::sharedManager()->session(); }

  std::vector<Dictionary> sent(const char* type) {
    std::vector<Dictionary> reports;
    for (const SentReport& report : sentReports(env.http)) {
      if (textOf(report.body, "type") == type) reports.push_back(report.body);
    }
    return reports;
  }

  // One session has ended; its times are seconds after `begin`.
  void expectOneStop(double start, double stop, double duration, double begin = kNow) {
    const std::vector<Dictionary> stops = sent(kStop);
    ASSERT_EQ(1u, stops.size());
    EXPECT_EQ(begin + start, secondsAt(stops[0], "startTime"));
    EXPECT_EQ(begin + stop, secondsAt(stops[0], "stopTime"));
    EXPECT_EQ(duration, secondsAt(stops[0], "totalDuration"));
  }

  std::size_t settingsFetches() const {
    return env.http.requests().size() - sentReports(env.http).size();
  }

  void expectSoundBodies() {
    for (const HttpRequest& request : env.http.requests()) {
      // Strict: it takes neither "nan" nor numbers beyond a double.
      const auto body = nlohmann::json::parse(request.body, nullptr, false);
      ASSERT_TRUE(body.is_object()) << request.body;
      // What somebody else wrote into the file goes out as it is.
      if (!body.contains("totalDuration") || body["sessionId"] == kAbsurdId) continue;
      const double duration = body["totalDuration"];
      EXPECT_GE(duration, 0.0) << request.body;
      EXPECT_TRUE(std::isfinite(duration)) << request.body;
    }
  }

  void expectReadableFiles() {
    if (const auto bytes = env.files.contents(kReportsFile)) {
      const auto root = property_list::read(*bytes);
      EXPECT_TRUE(root && root->array() != nullptr) << *bytes;
    }
    if (const auto bytes = env.files.contents(kSettingsFile)) {
      const auto root = property_list::read(*bytes);
      EXPECT_TRUE(root && root->dictionary() != nullptr) << *bytes;
    }
  }
};

// What a return does when the clock was set back.

TEST_F(TimeTest, AClockBeforeTheSessionsStartBeginsANewSession) {
  launch();
  pass(100);
  resign();
  env.clock.set(kNow - 0.5);
  log().clear();
  become();

  EXPECT_TRUE(log().contains("ZLN Session: clock change detected (1)"));
  expectOneStop(0, 100, 100);
  ASSERT_EQ(1u, sent(kStart).size());
  EXPECT_EQ(kNow - 0.5, secondsAt(sent(kStart)[0], "startTime"));
}

TEST_F(TimeTest, AClockAtTheSessionsStartKeepsIt) {
  launch();
  pass(100);
  resign();
  env.clock.set(kNow);
  become();

  EXPECT_THAT(sent(kStop), IsEmpty());
  EXPECT_EQ(kNow, session()->lastResumeTime()->secondsSince1970);
}

TEST_F(TimeTest, AClockBetweenStartAndPauseKeepsTheSessionAndWhatItHasCounted) {
  launch();
  pass(100);
  resign();
  env.clock.set(kNow + 97);
  become();
  pass(50);
  end();

  expectOneStop(0, 147, 150);
  EXPECT_THAT(sent(kStart), IsEmpty());
}

TEST_F(TimeTest, MoreCountedThanTheWallAllowsIsNotReported) {
  launch();
  pass(1000);
  resign();
  env.clock.set(kNow + 10);
  become();
  pass(50);
  end();

  // 1050 seconds of use in a minute on the wall.
  EXPECT_THAT(sent(kStop), IsEmpty());
}

TEST_F(TimeTest, AClockSetBackDuringUseLessensTheDuration) {
  launch();
  pass(100);
  env.clock.set(now() - 30);
  pass(20);
  end();

  expectOneStop(0, 90, 90);
}

TEST_F(TimeTest, ADurationBelowZeroIsNotReported) {
  launch();
  pass(100);
  env.clock.set(kNow - 1);
  log().clear();
  end();

  EXPECT_THAT(sent(kStop), IsEmpty());
  EXPECT_TRUE(
      log().contains("ZLN Session: invalid session2: [2023-11-14 22:13:20 +0000 - 2023-11-14 "
                     "22:13:19 +0000], -1.000000, -1.000000 sec."));
}

TEST_F(TimeTest, AClockSetForwardDuringUseCounts) {
  launch();
  pass(100);
  env.clock.set(now() + 86400);
  end();

  expectOneStop(0, 86500, 86500);
}

TEST_F(TimeTest, AClockSetForwardDuringAPauseEndsTheSessionThere) {
  launch();
  pass(100);
  resign();
  env.clock.set(now() + 86400);
  become();

  expectOneStop(0, 100, 100);
  EXPECT_EQ(1u, sent(kStart).size());
}

// A machine that sleeps: its clock goes on and nothing runs.

TEST_F(TimeTest, AMachineThatSleepsDuringAPauseResumesTheSessionUpToTheLimit) {
  launch();
  pass(100);
  resign();
  pass(600);
  become();
  pass(5);
  end();

  expectOneStop(0, 705, 105);
}

TEST_F(TimeTest, AMachineThatSleepsLongerBeginsANewSession) {
  launch();
  pass(100);
  leave();
  pass(600.5);
  comeBack();

  expectOneStop(0, 100, 100);
  EXPECT_EQ(1u, sent(kStart).size());
}

TEST_F(TimeTest, AMachineThatSleepsInTheMonitorsWaitStopsTheSessionOnceWhenItWakes) {
  launch();
  pass(100);
  leave();
  // Falls asleep in the tenth second of the wait.
  env.clock.at(10, [&] { env.clock.set(now() + 8 * 3600); });
  run();

  expectOneStop(0, 100, 100);
  comeBack();
  EXPECT_EQ(1u, sent(kStop).size());
  EXPECT_EQ(1u, sent(kStart).size());
}

TEST_F(TimeTest, TheMonitorsWaitDoesNotFollowTheWallClock) {
  launch();
  leave();
  env.clock.at(30, [&] { env.clock.set(now() - 1e9); });
  run();

  EXPECT_EQ(60, env.clock.slept());
  EXPECT_EQ(nullptr, session());
}

// The clock is set before each step of a session's life, by little and by much.

using Jump = std::pair<int, double>;

class ClockJumpTest : public TimeTest, public testing::WithParamInterface<Jump> {
 protected:
  void SetUp() override {
    TimeTest::SetUp();
    const auto [step, seconds] = GetParam();
    left_ = step;
    seconds_ = seconds;
  }

  // Before each step ten seconds go by.
  void step(const std::function<void()>& act) {
    pass(10);
    if (left_-- == 0) env.clock.set(now() + seconds_);
    act();
  }

 private:
  int left_ = 0;
  double seconds_ = 0;
};

constexpr int kStepsOfALife = 14;

// Times beyond a 32-bit float come back as infinities, which cannot be sent.
bool canComeBack(const Dictionary& stop) {
  return std::isfinite(restored(secondsAt(stop, "startTime"))) &&
         std::isfinite(restored(secondsAt(stop, "stopTime")));
}

TEST_P(ClockJumpTest, LeavesSoundReportsAndFiles) {
  step([&] { launch(); });
  step([&] { become(); });
  step([&] { resign(); });
  step([&] { become(); });
  step([&] { leave(); });
  step([&] { comeBack(); });
  step([&] { leave(); });
  step([&] { run(); });
  step([&] { comeBack(); });
  // From here on the reports wait, beyond the end of the process.
  step([&] { serverWorks(false); });
  step([&] { resign(); });
  step([&] { env.app.terminate(); });
  run();
  const std::vector<Dictionary> stored = storedReports(env.files);
  step([&] { serverWorks(true); });
  step([&] { launchAgain(); });
  const double begun = session()->startTime().secondsSince1970;

  EXPECT_EQ(now(), begun);
  EXPECT_THAT(storedReports(env.files), IsEmpty());
  EXPECT_EQ(1u, sent(kFirst).size());
  const std::vector<Dictionary> stops = sent(kStop);
  for (const Dictionary& stop : stops) {
    const double span = secondsAt(stop, "stopTime") - secondsAt(stop, "startTime");
    // A restored time is up to half a step of a 32-bit float off.
    const double rounding = std::abs(secondsAt(stop, "stopTime")) / 8e6 + 128;
    EXPECT_LE(secondsAt(stop, "totalDuration"), span + 5 + rounding) << stop.description();
  }
  for (const Dictionary& report : stored) {
    if (textOf(report, "type") != kStop || !canComeBack(report)) continue;
    EXPECT_EQ(restored(secondsAt(report, "stopTime")), secondsAt(stops.back(), "stopTime"));
    EXPECT_EQ(secondsAt(report, "totalDuration"), secondsAt(stops.back(), "totalDuration"));
  }
}

std::vector<Jump> allJumps() {
  std::vector<Jump> jumps;
  for (int step = 0; step < kStepsOfALife; ++step) {
    for (const double seconds :
         {1.0, 11.0, 599.0, 86400.0, 4e8, 2.2e9, 2.6e9, 2.52e11, 1e15, 1e39, 1e300}) {
      jumps.emplace_back(step, seconds);
      jumps.emplace_back(step, -seconds);
    }
  }
  return jumps;
}

std::string jumpName(const testing::TestParamInfo<Jump>& info) {
  const auto [step, seconds] = info.param;
  return "BeforeStep" + std::to_string(step) + (seconds < 0 ? "Back" : "Forward") +
         std::to_string(info.index / 2 % (allJumps().size() / kStepsOfALife / 2));
}

INSTANTIATE_TEST_SUITE_P(Jumps, ClockJumpTest, testing::ValuesIn(allJumps()), jumpName);

// Times far from ours.

struct Year {
  const char* name;
  double seconds;
};

void PrintTo(const Year& year, std::ostream* out) { *out << year.name; }

class YearTest : public TimeTest, public testing::WithParamInterface<Year> {
 protected:
  const double begin = GetParam().seconds;
};

TEST_P(YearTest, ASessionIsReportedToTheSecond) {
  env.clock.set(begin);
  launch();
  pass(30);
  resign();
  pass(20);
  become();
  pass(7);
  end();

  ASSERT_EQ(1u, sent(kFirst).size());
  EXPECT_EQ(begin, secondsAt(sent(kFirst)[0], "startTime"));
  expectOneStop(0, 57, 37, begin);
}

TEST_P(YearTest, AStoredSessionComesBackWithTheTimesOfA32BitFloat) {
  env.clock.set(begin);
  serverWorks(false);
  launch();
  pass(30);
  end();
  pass(100);
  serverWorks(true);
  env.http.forgetOutstanding();
  const std::size_t before = sent(kStop).size();
  launchAgain();

  ASSERT_EQ(before + 1, sent(kStop).size());
  EXPECT_EQ(restored(begin), secondsAt(sent(kStop).back(), "startTime"));
  EXPECT_EQ(restored(begin + 30), secondsAt(sent(kStop).back(), "stopTime"));
  EXPECT_EQ(30, secondsAt(sent(kStop).back(), "totalDuration"));
}

INSTANTIATE_TEST_SUITE_P(
    Years, YearTest,
    testing::Values(Year{"BeforeTheYear1", -62135596810.0}, Year{"Before1901", -2147483678.0},
                    Year{"Before1970", -86400.0}, Year{"InTheLastSecondBefore1970", -1.0},
                    Year{"In1970", 0.0}, Year{"Before2001", 978307170.0},
                    Year{"BeforeTheEndOfSigned32BitSeconds", 2147483618.0},
                    Year{"AfterTheEndOfSigned32BitSeconds", 2147483648.0},
                    Year{"BeforeTheEndOfUnsigned32BitSeconds", 4294967266.0},
                    Year{"AfterTheEndOfUnsigned32BitSeconds", 4294967296.0},
                    Year{"BeforeTheEndOfTheDatesInTheLog", 64092211170.0},
                    Year{"BeforeTheYear10000", 253402300770.0}, Year{"LongAfterIt", 1e12}),
    nameOf);

TEST_F(TimeTest, SettingsAreFetchedAgainOverTheEndOf32BitSeconds) {
  env.clock.set(2147483600);
  launch();
  ASSERT_EQ(1u, settingsFetches());
  pass(86400);
  become();
  EXPECT_EQ(1u, settingsFetches());
  pass(1);
  become();
  EXPECT_EQ(2u, settingsFetches());
}

TEST_F(TimeTest, SettingsOfAClockThatWasAheadWaitUntilItIsThereAgain) {
  env.clock.set(kNow + 4e8);
  launch();
  env.clock.set(kNow);
  launchAgain();
  become();
  EXPECT_EQ(1u, settingsFetches());
  env.clock.set(kNow + 4e8 + 86400 + 128);
  become();
  EXPECT_EQ(2u, settingsFetches());
}

// What the files may say.

struct Absurd {
  const char* name;
  // Absent: the key is missing.
  std::optional<Value> value;
};

const std::vector<Absurd>& absurdities() {
  static const std::vector<Absurd>& list = *new std::vector<Absurd>{
      {"NotANumber", Number::float64(kNotANumber)},
      {"Infinity", Number::float64(kInfinity)},
      {"MinusInfinity", Number::float64(-kInfinity)},
      {"Huge", Number::float64(1e300)},
      {"MinusHuge", Number::float64(-1e300)},
      {"JustBeyondAFloat", Number::float64(3.5e38)},
      {"Tiny", Number::float64(5e-324)},
      {"Negative", Number::float64(-1)},
      {"MinusZero", Number::float64(-0.0)},
      {"LongestInteger", Number::int64(std::numeric_limits<std::int64_t>::max())},
      {"LowestInteger", Number::int64(std::numeric_limits<std::int64_t>::min())},
      {"True", Number::boolean(true)},
      {"Text", "1700000000"},
      {"Date", Date{1700000000}},
      {"Data", Data{"17"}},
      {"List", Array{}},
      {"Dictionary", Dictionary{}},
      {"Missing", std::nullopt},
  };
  return list;
}

void PrintTo(const Absurd& absurd, std::ostream* out) { *out << absurd.name; }

class AbsurdFileTest : public TimeTest, public testing::WithParamInterface<Absurd> {
 protected:
  static void put(Dictionary& dictionary, const char* key) {
    if (GetParam().value) {
      dictionary.set(key, *GetParam().value);
    } else {
      dictionary.remove(key);
    }
  }

  // Whether the value, as a 32-bit float, can stand in a body.
  static bool canBeSent() {
    const Number* number = GetParam().value ? GetParam().value->number() : nullptr;
    return number == nullptr || std::isfinite(restored(number->doubleValue()));
  }

  static Dictionary stop(const char* id) {
    return {{"type", kStop},
            {"sessionId", id},
            {"userId", "USER"},
            {"startTime", Number::float64(1700000000)},
            {"stopTime", Number::float64(1700000384)},
            {"totalDuration", Number::float64(300)}};
  }
};

TEST_P(AbsurdFileTest, AStoredReportWithSuchATimeHarmsNoOther) {
  for (const char* key : {"startTime", "stopTime", "totalDuration", "lastPauseTime"}) {
    Dictionary absurd = stop(kAbsurdId);
    put(absurd, key);
    env.files.put(kReportsFile, *property_list::write(Array{stop("A"), absurd, stop("B")}));
    const std::size_t before = sent(kStop).size();
    launchAgain();

    const bool isSent = canBeSent() || std::string(key) == "lastPauseTime";
    std::vector<std::string> ids;
    const std::vector<Dictionary> stops = sent(kStop);
    for (std::size_t index = before; index < stops.size(); ++index) {
      ids.push_back(textIn(stops[index], "sessionId"));
    }
    // A report without a start time goes out without its session's keys.
    const bool hasSession = std::string(key) != "startTime" ||
                            (GetParam().value && GetParam().value->number() != nullptr);
    if (!isSent) {
      EXPECT_THAT(ids, ElementsAre("A", "B")) << key;
    } else {
      EXPECT_THAT(ids, ElementsAre("A", hasSession ? kAbsurdId : "", "B")) << key;
    }
    EXPECT_THAT(storedReports(env.files), IsEmpty()) << key;
  }
}

TEST_P(AbsurdFileTest, SettingsWithSuchAnUpdateTimeAreTaken) {
  Dictionary stored = {{"ConfigSerializationKeyReportTemporaryFailureLimit", Number::int32(7)},
                       {"lastUpdate", Number::float64(0)}};
  put(stored, "lastUpdate");
  env.files.put(kSettingsFile, *property_list::write(stored));
  launch();
  pass(10);
  end();

  EXPECT_EQ(7, ZLNReportingConfig::sharedConfig()->reportTemporaryFailureLimit());
  const Number* number = GetParam().value ? GetParam().value->number() : nullptr;
  const double updated = number == nullptr ? 0 : restored(number->doubleValue());
  const bool isFetched = kNow - (updated + 86400) > 0;
  EXPECT_EQ(isFetched ? 1u : 0u, settingsFetches());
}

TEST_P(AbsurdFileTest, SettingsOfSuchValuesLeaveSessionsPossible) {
  for (const char* key : {"SessionInactivityTimeLimit", "ConfigUpdateInterval",
                          "UserSessionBackgroundTimeoutSeconds", "ReportTemporaryFailureLimit"}) {
    Dictionary stored = {{"lastUpdate", Number::float64(kNow)}};
    put(stored, (std::string("ConfigSerializationKey") + key).c_str());
    env.files.put(kSettingsFile, *property_list::write(stored));
    env.clock.set(kNow);
    const std::size_t before = sent(kStop).size();
    launchAgain();
    pass(10);
    leave();
    // A wait without end ends when the system takes its time back.
    env.clock.at(100, [&] { env.backgroundTasks.remainingTime = 0; });
    run();
    env.backgroundTasks.remainingTime = 1e9;

    ASSERT_EQ(before + 1, sent(kStop).size()) << key;
    EXPECT_EQ(10, secondsAt(sent(kStop).back(), "totalDuration")) << key;
  }
}

TEST_P(AbsurdFileTest, UserDefaultsOfSuchValuesAreTakenAsTheyAre) {
  if (GetParam().value) {
    env.defaults.set("com.zelnor.sessionUserId", *GetParam().value);
    env.defaults.set("com.zelnor.firstSessionSent", *GetParam().value);
  }
  launch();
  pass(10);
  end();

  // A user that JSON cannot hold has every report dropped; none of them waits for ever.
  EXPECT_THAT(storedReports(env.files), IsEmpty());
  EXPECT_EQ(GetParam().value ? 0u : 1u, sent(kFirst).size());
}

INSTANTIATE_TEST_SUITE_P(Values, AbsurdFileTest, testing::ValuesIn(absurdities()), nameOf);

}  // namespace
}  // namespace zln
