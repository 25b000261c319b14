#include "tests/soak/life_plan.h"

#include "tests/support/dice.h"

namespace zln {
namespace {

using std::chrono::milliseconds;

// At which lines a game may die: before and after each step that a report takes.
const std::vector<std::string> kLastLines = {"",
                                             "recovered report",
                                             "queue report",
                                             "posting report",
                                             "sending report",
                                             "report submitted",
                                             "report transmitted successfully",
                                             "server rejected report",
                                             "report failed with temporary error",
                                             "report added to temporary error holding",
                                             "temporary error\"d reports restoring",
                                             "cannot queue report",
                                             "started new session",
                                             "Stopped session",
                                             "saved"};

// Of the server, for every connection or every request.
const std::vector<nlohmann::json> kFaults = {{{"effect", "cut-before"}},
                                             {{"effect", "cut-during"}},
                                             {{"effect", "cut-during"}, {"seconds", kForever}},
                                             {{"effect", "cut-after"}},
                                             {{"effect", "expired-certificate"}},
                                             {{"effect", "wrong-host-certificate"}},
                                             {{"effect", "redirect"}, {"to", "https"}}};

Weather drawBadWeather(Dice& dice) {
  Weather weather;
  switch (dice.from(0, 6)) {
    case 0:
      weather.name = "dead";
      weather.dead = true;
      break;
    case 1:
      weather.fault = dice.oneOf(kFaults);
      weather.name = "fault " + weather.fault["effect"].get<std::string>();
      weather.faultEnds = milliseconds(dice.percent(60) ? dice.from(20, 400) : 0);
      break;
    case 2:
      weather = {.name = "refusing", .taken = 0, .refused = 100};
      break;
    case 3:
      weather = {.name = "stalling", .taken = 60, .refused = 10, .stalled = 30};
      break;
    case 4:
      weather = {.name = "rejecting", .taken = 50, .refused = 10, .rejected = 40};
      break;
    case 5:
      weather = {.name = "cutting", .taken = 20, .takenAndCut = 40, .cut = 40};
      break;
    default:
      weather = {.name = "cut off"};
      weather.cutOff = milliseconds(dice.from(5, 300));
      break;
  }
  return weather;
}

Weather drawWeather(Dice& dice) {
  Weather weather{.name = "good"};
  if (dice.percent(35)) {
    weather = {.name = "mixed",
               .taken = 55,
               .takenAndCut = 10,
               .refused = 20,
               .rejected = 4,
               .cut = 10,
               .stalled = 1};
  } else if (dice.percent(55)) {
    weather = drawBadWeather(dice);
  }
  weather.longestDelay = milliseconds(dice.oneOf<int>({0, 0, 5, 40}));
  return weather;
}

nlohmann::json drawSettings(Dice& dice) {
  const std::string prefix = "ConfigSerializationKey";
  return {{prefix + "ConfigUpdateInterval", -1},
          {prefix + "TransmitReportsImmediately", dice.percent(85)},
          {prefix + "TransmitReportsOnApplicationBackgrounding", dice.percent(80)},
          {prefix + "TransmitReportsOnApplicationForegrounding", dice.percent(80)},
          {prefix + "ReportTemporaryFailureLimit", dice.oneOf<int>({1, 2, 3, 3, 5})},
          {prefix + "SessionInactivityTimeLimit", dice.oneOf<double>({0, 0.02, 600})},
          {prefix + "UserSessionBackgroundTimeoutSeconds", dice.oneOf<int>({0, 0, 1, 60})},
          {prefix + "SendStartSessionReports", dice.percent(85)},
          {prefix + "SendStopSessionReports", dice.percent(85)},
          {prefix + "SendFirstSessionReports", dice.percent(90)}};
}

// The commands of a life, put together step by step.
class Script {
 public:
  Script(LifePlan& plan, Dice& dice) : plan_(plan), dice_(dice) {}

  void begin() {
    if (dice_.percent(15)) playAds();
    tell("start");
    if (dice_.percent(92)) tell("active");
  }
  void play() {
    for (int step = dice_.from(2, 14); step > 0; --step) playSomething();
  }
  void flood() {
    const int threads = dice_.percent(50) ? 1 : 4;
    sendAds(threads, dice_.from(1005, 1120) / threads);
  }
  void leave() {
    if (dice_.percent(70)) {
      goToBackground();
      tell("terminate");
    }
    pauseFor(dice_.oneOf<int>({0, 0, 3, 60}));
    tell(dice_.oneOf<std::string>({"exit", "_exit", "return"}));
  }

 private:
  void tell(const std::string& command) { plan_.commands.push_back(command); }
  void pauseFor(int most) {
    if (most > 0) tell("pause " + std::to_string(dice_.from(1, most)));
  }
  void goToBackground() {
    tell("resign");
    tell("background");
  }

  void playSomething() {
    const int what = dice_.from(1, 100);
    if (what <= 55) {
      playAds();
    } else if (what <= 67) {
      interrupt();
    } else if (what <= 80) {
      leaveAndReturn();
    } else if (what <= 84) {
      tell("stop");
    } else {
      pauseFor(60);
    }
  }

  // A call comes in, and is over.
  void interrupt() {
    tell("resign");
    pauseFor(30);
    tell("active");
  }

  void leaveAndReturn() {
    goToBackground();
    pauseFor(dice_.oneOf<int>({0, 20, 20, 80, 1300}));
    tell("foreground");
    tell("active");
  }

  void playAds() {
    if (dice_.percent(12)) {
      sendAds(dice_.from(2, 4), dice_.from(1, 6));
    } else {
      sendAds(1, dice_.from(1, 5));
    }
  }

  void sendAds(int threads, int each) {
    tell("ads " + std::to_string(threads) + " " + std::to_string(plan_.calls) + " " +
         std::to_string(each));
    plan_.calls += threads * each;
  }

  LifePlan& plan_;
  Dice& dice_;
};

milliseconds drawMoment(Dice& dice, int pace) {
  return pace * milliseconds(dice.percent(25) ? dice.from(0, 60) : dice.from(100, 900));
}

// From some command on.
void armDeath(LifePlan& plan, Dice& dice) {
  const std::string line = dice.oneOf(kLastLines);
  const int count = dice.from(1, line.empty() ? 400 : dice.oneOf<int>({3, 12, 60}));
  const int last = static_cast<int>(plan.commands.size()) - 1;
  const int from = dice.percent(30) ? 0 : dice.from(0, last);
  plan.commands.insert(plan.commands.begin() + from, "die " + std::to_string(count) + " " + line);
}

void drawEnding(LifePlan& plan, Script& script, Dice& dice, int pace) {
  const int how = dice.from(1, 100);
  if (how <= 70) plan.killedAfter = drawMoment(dice, pace);
  if (how <= 35) {
    plan.ending = Ending::kKilledAfter;
  } else if (how <= 70) {
    plan.ending = Ending::kKilledAtLine;
    armDeath(plan, dice);
  } else {
    plan.ending = Ending::kLeaves;
    script.leave();
  }
}

LifePlan emptyLife(std::uint64_t seed, int installation, int life) {
  LifePlan plan;
  plan.name = std::to_string(installation) + "-" + std::to_string(life);
  plan.seed = seed * 1000003 + static_cast<std::uint64_t>(installation) * 1009 +
              static_cast<std::uint64_t>(life);
  return plan;
}

}  // namespace

std::string LifePlan::description() const {
  std::string text = "weather " + weather.name + ", settings " + settings.dump() + ", ";
  if (!handsOutSettings) text += "not handed out, ";
  if (ending == Ending::kKilledAfter || ending == Ending::kKilledAtLine) {
    text += "killed after " + std::to_string(killedAfter.count()) + " ms at the latest, ";
  }
  text += "commands";
  for (const std::string& command : commands) text += " | " + command;
  return text;
}

LifePlan drawLife(std::uint64_t seed, int installation, int life, bool flood, int pace) {
  LifePlan plan = emptyLife(seed, installation, life);
  Dice dice(plan.seed, 1);
  Script script(plan, dice);
  plan.settings = drawSettings(dice);
  plan.handsOutSettings = dice.percent(80);
  plan.weather = drawWeather(dice);
  script.begin();
  if (flood) {
    plan.weather = {.name = "gated", .taken = 0, .refused = 100, .gated = true};
    script.flood();
  } else {
    script.play();
  }
  drawEnding(plan, script, dice, pace);
  return plan;
}

LifePlan lastLife(std::uint64_t seed, int installation, int life) {
  LifePlan plan = emptyLife(seed, installation, life);
  Dice dice(plan.seed, 1);
  plan.settings = drawSettings(dice);
  for (auto& [key, value] : plan.settings.items()) {
    if (value.is_boolean()) value = true;
  }
  plan.weather = {.name = "good"};
  plan.ending = Ending::kDrained;
  plan.commands = {"start", "active"};
  return plan;
}

}  // namespace zln
