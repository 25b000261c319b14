#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "reports/ZLNReportFactory.h"
#include "session/ZLNReportBackgroundMonitor.h"
#include "session/ZLNSessionManager.h"
#include "support/ZLNDirectories.h"
#include "support/log.h"
#include "tests/support/file_contents.h"
#include "tests/transport/manager_fixture.h"
#include "transport/ZLNReportOperationPost.h"

namespace zln {
namespace {

using testing::IsEmpty;

// A process of its own, and what it may go through. Settings are fresh and nothing is stored.
class Scene : public ManagerTest {
 public:
  using Play = void (Scene::*)();

  static std::vector<std::string> linesOf(Play play, LogLevel threshold) {
    Scene scene;
    scene.setLevel(static_cast<std::uint64_t>(threshold));
    (scene.*play)();
    return scene.newLines();
  }

  void visit() {
    env.http.always([](const HttpRequest&) { return okReply(kAccepted); });
    env.backgroundTasks.remainingTime = 5;
    ZLNInitializeReporting("4.5.6");
    ZLNStartSessionReporting();
    env.dispatch.runAll();
    env.app.resignActive();
    env.app.becomeActive();
    env.app.resignActive();
    env.app.enterBackground();
    env.dispatch.runAll();
    env.app.enterForeground();
  }

  void oddVisit() {
    const auto sessions = ZLNSessionManager::sharedManager();
    env.dispatch.runMain();
    env.app.becomeActive();
    env.app.resignActive();
    env.app.resignActive();
    sessions->session()->setLastPauseTime(std::nullopt);
    env.app.becomeActive();
    env.app.resignActive();
    env.clock.set(1699999999);
    env.app.becomeActive();
    sessions->reportBackgroundMonitorTimerExpired(
        ZLNReportBackgroundMonitor::initWithDelegate(nullptr));
  }

  // A monitor is cancelled in its wait, the next one's task expires, and the last one is cancelled
  // before its worker begins and then released.
  void endsOfMonitors() {
    const std::function<void(ZLNReportBackgroundMonitor&)> ends[] = {
        [&](auto& monitor) { env.clock.at(0.5, [&] { monitor.cancel(); }); },
        [&](auto&) { env.clock.at(0.5, [&] { env.backgroundTasks.expire(2); }); },
        [](auto& monitor) { monitor.cancel(); }};
    for (const auto& end : ends) {
      const auto monitor = ZLNReportBackgroundMonitor::initWithDelegate(nullptr);
      env.app.enterBackground();
      end(*monitor);
      env.dispatch.runGlobal();
    }
  }

  void oddSessions() {
    ZLNSession::initWithDictionary({});
    ZLNSession::initWithDictionary({{"sessionId", "S"}});
    const auto session = ZLNSession::initWithStartTime(Date{1700000000});
    session->dictionaryForReportType("other");
    session->setLastResumeTime(std::nullopt);
    session->pause(Date{1700000010});
    session->setRunning(false);
    session->setTotalDuration(16);
    session->stop(Date{1700000010});
    session->setTotalDuration(-1);
    session->stop(Date{1700000010});
    session->resume(Date{1700000010});
  }

  void folders() {
    env.files.remove("/support", nullptr);
    env.files.failCreate("/support");
    ZLNDirectories::makeDirectories();
    env.files.put("/folder/a", "1");
    env.files.failRemove("/folder/a");
    ZLNDirectories::clearFolder("/folder/");
  }

  void storedReports() {
    env.files.put(kReportsFile,
                  *property_list::write(Array{Dictionary{{"type", "ReportTypeAdAttempt"}},
                                              Dictionary{{"type", "other"}}, Dictionary{}}));
    manager();
    env.dispatch.runGlobal();
  }

  void outcomes() {
    settings().setReportTemporaryFailureLimit(1);
    for (const char* network : {"late", "refused", "accepted"}) queue(network);
    env.dispatch.runGlobal();
    env.http.fail(0, -1001);
    env.http.fail(1, -1011);
    env.http.reply(2, kAccepted);
  }

  void replies() {
    for (const char* reply : {"", "{}", R"({"success":false})"}) {
      const auto operation = ZLNReportOperationPost::initWithReport(adReport(), true, nullptr);
      operation->start();
      env.http.reply(env.http.requests().size() - 1, reply);
    }
    ZLNReportOperationPost::initWithReport(nullptr, true, nullptr)->start();
    const auto odd = std::make_shared<OddReport>(std::nullopt);
    ZLNReportOperationPost::initWithReport(odd, true, nullptr)->start();
  }

  void refusals() {
    manager().queueReportForTransmission(nullptr);
    manager().queueReportForTransmission(ZLNReportBase::initWithURLString("https://a.invalid"));
    for (int count = 0; count < 1001; ++count) {
      manager().reportQueue().addOperation(std::make_shared<ForeignOperation>());
    }
    queue();
  }

  // One is held without a dictionary, the other is an operation without its report.
  void unsavableReports() {
    settings().setReportTemporaryFailureLimit(1);
    const auto held = std::make_shared<OddReport>(Dictionary{});
    manager().queueReportForTransmission(held);
    env.dispatch.runGlobal();
    timeOut();
    held->base = std::nullopt;
    queue();
    firstOperation()->setReport(nullptr);
    manager().reportQueue().addOperation(std::make_shared<ForeignOperation>());
    env.files.failWrites();
    manager().saveReports();
  }

  void oddSettings() {
    env.files.put(kSettingsFile,
                  *property_list::write(
                      Dictionary{{"ConfigSerializationKeyConfigUpdateInterval", Number::int32(-1)},
                                 {"lastUpdate", "odd"}}));
    env.files.failRemove(kSettingsFile);
    env.files.failWrites();
    settings();
    env.app.becomeActive();
    env.app.becomeActive();
    env.http.fail(0, -1001);
    env.http.reply(1, "");
    env.http.reply(2, "[]");
    settings().setConfigUpdateInterval(1);
    env.app.becomeActive();
  }

  void incompleteHooks() {
    const ZLNHostBackgroundTaskHooks none{};
    ZLNHostSetBackgroundTaskHooks(&none);
  }

  void lateIdentifier() {
    portEnvironment().files.applicationSupportPath();
    ZLNHostSetApplicationInfo("com.example.late", nullptr);
    ZLNHostSetApplicationInfo(nullptr, nullptr);
  }

  void unreadableDefaults() {
    env.defaults.failReads(Error{kCocoaErrorDomain, 256, std::nullopt, {}});
    ZLNSessionManager::sharedManager();
  }

 private:
  void TestBody() override {}
};

// A log call and what it prints for its arguments, where "*" stands for anything.
struct Line {
  LogLevel level;
  std::string format;
  std::vector<std::string> arguments = {};
};

struct Scenario {
  Scene::Play play;
  std::vector<Line> lines;
};

// Every log call of the library. A new one gets a row here, in a scenario that reaches it.
const std::vector<Scenario>& table() {
  using enum LogLevel;
  constexpr char kSession[] = "session: [2023-11-14 22:13:20 +0000 - (null)] 0.000000 sec.";
  constexpr char kStopped[] =
      "session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:20 +0000] 0.000000 sec.";
  constexpr char kStart[] = "2023-11-14 22:13:20 +0000";
  constexpr char kStop[] = "2023-11-14 22:13:30 +0000";
  constexpr char kMonitor[] = "background task monitor 0x* with task id 0";
  constexpr char kAd[] = "<ZLNReportAdAttempt: 0x*>";
  constexpr char kTimeout[] = "Error Domain=NSURLErrorDomain Code=-1001 \"(null)\"";
  constexpr char kBadReply[] = "Error Domain=NSURLErrorDomain Code=-1011 \"(null)\"";
  constexpr char kNoJson[] = "Error Domain=NSCocoaErrorDomain Code=3840 *";
  constexpr char kNotFound[] = "Error Domain=NSCocoaErrorDomain Code=4 *";
  constexpr char kNotRead[] = "Error Domain=NSCocoaErrorDomain Code=256 *";
  constexpr char kNotAllowed[] = "Error Domain=NSCocoaErrorDomain Code=513 *";
  constexpr char kSettingsFile[] = "/support/com.zelnor.sdk/data/config.dat";
  constexpr char kSettingsRequest[] =
      "{\n    ConfigSerializationKeyAppVersion = \"1.2.3\";\n"
      "    ConfigSerializationKeySDKVersion = \"7.0.0\";\n}";

  static const std::vector<Scenario> scenarios = {
      {&Scene::visit,
       {{debug, "started new session %@", {kSession}},
        {debug, "paused session %@", {kSession}},
        {debug, "paused session %@, started monitor %@", {kSession, kMonitor}},
        {debug, "Session resumed, ending background task %@", {kMonitor}},
        {debug, "resumed session %@", {kSession}},
        {debug, "Starting background task"},
        {debug, "Started background task %i", {"2"}},
        {superVerbose, "Time left: %f", {"999.000000"}},
        {superVerbose, "Sending stop report from background task %i", {"2"}},
        {debug, "Stopped session %@", {kStopped}},
        {debug, "Stopped background task %i", {"2"}},
        {debug, "temporary error\"d reports restoring"}}},
      {&Scene::oddVisit,
       {{warn, "resuming a running session?"},
        {warn, "pausing a paused session?"},
        {error, "creating another background monitor while I already have one"},
        {warn, "session has no pause time to evaluate"},
        {info, "clock change detected (1)"},
        {error, "Unexpected monitor completion: %@ (have %@)", {kMonitor, "(null)"}}}},
      {&Scene::endsOfMonitors,
       {{debug, "end monitor background task %i", {"1"}},
        {debug, "Background task is getting killed %i", {"2"}},
        {debug, "end monitor background task (on dealloc) %i", {"3"}}}},
      {&Scene::oddSessions,
       {{error, "session dict has no id"},
        {error, "session dict has no start time"},
        {error, "Unexpected report type: %@", {"other"}},
        {error, "session has no resume time"},
        {error,
         "invalid session: [%@ - %@], %f, %f sec.",
         {kStart, kStop, "10.000000", "16.000000"}},
        {error,
         "invalid session2: [%@ - %@], %f, %f sec.",
         {kStart, kStop, "10.000000", "-1.000000"}},
        {error, "refusing to resume stopped session"}}},
      {&Scene::folders,
       {{error, "unable to create root path!"},
        {error, "unable to create previews path!"},
        {error, "unable to create data path!"},
        {error, "Error: Unable to exclude directory from backup: %@", {kNotFound}},
        {error, "Failed to remove file %@: %@", {"/folder/a", kNotAllowed}}}},
      {&Scene::storedReports,
       {{verbose, "recovered report %@ to %@", {kAd, kAdAttemptUrl}},
        {error, "unknown report type %@", {"other"}},
        {error, "invalid report type value: %@ (%@)", {"(null)", "(null)"}},
        {error, "unable to recover report from %@", {"{\n}"}}}},
      {&Scene::outcomes,
       {{debug, "queue report %@", {kAd}},
        {debug, "transmit reports"},
        {verbose, "manager background task started %i", {"1"}},
        {verbose, "saving report %@ to %@", {kAd, kAdAttemptUrl}},
        {debug, "saved %i reports", {"3"}},
        {verbose, "posting report %@ to %@", {kAd, kAdAttemptUrl}},
        {error, "failed to submit report with %@", {kTimeout}},
        {warn, "report failed with temporary error: %@", {kTimeout}},
        {verbose, "report %@ to %@ failed temporarily", {kAd, kAdAttemptUrl}},
        {debug, "report added to temporary error holding"},
        {error, "report failed with permanent error: %@", {kBadReply}},
        {verbose, "report %@ to %@ failed permanently", {kAd, kAdAttemptUrl}},
        {debug, "report submitted; response %@ = %@", {"<NSHTTPURLResponse: 0x*", kAccepted}},
        {debug, "report transmitted successfully"},
        {verbose, "report %@ to %@ transmitted successfully", {kAd, kAdAttemptUrl}},
        {verbose, "manager background task stopped %i", {"1"}}}},
      {&Scene::replies,
       {{error,
         "unexpected server response from %@: %@ / error %@",
         {kAdAttemptUrl, "{length = 0, bytes = 0x}", kNoJson}},
        {error, "unexpected server response %@, expecting success code not %@", {"{\n}", "(null)"}},
        {error, "server rejected report %@", {kAd}},
        {error, "report operation with no report"},
        {error, "invalid super serialization %@ (%@)", {"(null)", "(null)"}},
        {error, "unable to prepare report for transmission with %@", {kNoJson}}}},
      {&Scene::refusals,
       {{debug, "attempted to queue nil report"},
        {error, "unexpected report type %@", {"ZLNReportBase"}},
        {error, "unable to queue report %@", {"<ZLNReportBase: 0x*>"}},
        {error, "cannot queue report, queue is full"}}},
      {&Scene::unsavableReports,
       {{info, "sending report: %@", {R"({"type":"ReportTypeSessionStop"})"}},
        {error, "unable to serialize report %@", {"<ZLNReportSessionStop: 0x*>"}},
        {error, "unable to serialize report %@", {"(null)"}},
        {error, "unexpected report in op queue: %@", {"foreign operation"}},
        {warn, "failed to save %i pending reports!", {"0"}}}},
      {&Scene::oddSettings,
       {{info, "Config timestamp was incorrect class %@", {"odd"}},
        {info, "Could not delete config %@ at %@", {kSettingsFile, kNotAllowed}},
        {debug, "Config is stale. Updating."},
        {error, "An error occured writing config"},
        {debug, "config params: %@", {kSettingsRequest}},
        {debug, "Config is not stale. Update skipped."},
        {warn, "failed to update config settings with %@", {kTimeout}},
        {warn, "unable to parse config json response with %@", {kNoJson}},
        {warn, "invalid config data response"}}},
      {&Scene::incompleteHooks,
       {{error, "Background task hooks ignored, one of begin, end and remaining is missing"}}},
      {&Scene::lateIdentifier,
       {{error,
         "Files stay in %@: call ZLNHostSetApplicationInfo before ZLNInitializeReporting, and with "
         "one identifier",
         {"*"}}}},
      {&Scene::unreadableDefaults, {{error, "unable to read user defaults: %@", {kNotRead}}}},
      // Unreachable: the parameters are strings, and every dictionary of settings is accepted.
      {nullptr,
       {{error, "config params are invalid: %@"},
        {error, "unable to serialize config params with %@"},
        {info, "loaded invalid config"},
        {warn, "unable to process incoming config: %@"}}}};
  return scenarios;
}

std::string patternOf(const Line& line) {
  std::string pattern = line.format;
  for (const std::string& argument : line.arguments) {
    const std::size_t conversion = pattern.find('%');
    if (conversion == std::string::npos) return "more arguments than conversions";
    pattern.replace(conversion, 2, argument);
  }
  return pattern;
}

// Whether the pattern is the line once each "*" is replaced by some text.
bool fits(std::string_view pattern, std::string_view line) {
  const std::size_t star = pattern.find('*');
  if (star == std::string_view::npos) return pattern == line;
  if (!line.starts_with(pattern.substr(0, star))) return false;
  for (std::size_t rest = star; rest <= line.size(); ++rest) {
    if (fits(pattern.substr(star + 1), line.substr(rest))) return true;
  }
  return false;
}

TEST(LogLinesTest, EachIsWrittenFromItsLevelOn) {
  using enum LogLevel;
  for (const auto& [play, lines] : table()) {
    if (play == nullptr) continue;
    for (const LogLevel threshold : {error, warn, info, debug, verbose, superVerbose}) {
      const std::vector<std::string> written = Scene::linesOf(play, threshold);
      for (const Line& line : lines) {
        const std::string pattern = patternOf(line);
        const bool isWritten = std::any_of(written.begin(), written.end(),
                                           [&](const auto& each) { return fits(pattern, each); });
        EXPECT_EQ(line.level <= threshold, isWritten)
            << pattern << " at level " << static_cast<int>(threshold) << " among "
            << testing::PrintToString(written);
      }
    }
  }
}

// The calls in the sources.

using Tokens = std::vector<std::string>;

void appendTokens(Tokens& tokens, const std::string& source) {
  static const std::regex kToken(
      R"re(//[^\n]*|"(?:[^"\\]|\\.)*"|'(?:[^'\\]|\\.[^'\n]*)'|\w+|\S)re");
  for (std::sregex_iterator at(source.begin(), source.end(), kToken), end; at != end; ++at) {
    const std::string token = at->str();
    if (!token.starts_with("//")) tokens.push_back(token);
  }
}

// All sources but the log's own, which only pass formats on.
Tokens tokensOfTheLibrary() {
  Tokens tokens;
  for (const char* folder : {"session", "support", "reports", "transport", "config", "platform"}) {
    const std::filesystem::path path = std::filesystem::path(ZLN_SOURCE_FOLDER) / folder;
    for (const auto& file : std::filesystem::recursive_directory_iterator(path)) {
      const std::string name = file.path().filename();
      if (file.is_regular_file() && name != "log.h" && name != "ZLNLog.cc") {
        appendTokens(tokens, contentsOf(file.path()));
      }
    }
  }
  return tokens;
}

// The string that the adjacent literals from there on make, if they are a whole argument.
std::string formatAt(const Tokens& tokens, std::size_t begin) {
  std::string text;
  std::size_t at = begin;
  for (; tokens.at(at).front() == '"'; ++at) text += tokens[at].substr(1, tokens[at].size() - 2);
  const bool isWhole = at != begin && (tokens[at] == "," || tokens[at] == ")");
  if (!isWhole) return "unreadable format " + tokens[begin];
  return std::regex_replace(text, std::regex(R"(\\(["\\]))"), "$1");
}

// The format of each log call, after the name of its level.
std::multiset<std::string> callsIn(const Tokens& tokens) {
  static const std::regex kFunction(
      "(?:log|ZLNLog)(Error|Warn|Info|Debug|Verbose|SuperVerbose)|logAt|writeLog|internalLog");
  std::multiset<std::string> calls;
  for (std::size_t at = 0; at + 2 < tokens.size(); ++at) {
    std::smatch function;
    if (std::regex_match(tokens[at], function, kFunction)) {
      const std::string level = function[1].matched ? function[1] : function[0];
      calls.insert(level + ": " + formatAt(tokens, at + 2));
    } else if (tokens[at] == "makeDirectory" && tokens[at + 2] != "const") {
      // A call, not a declaration. The last argument is logged as an error.
      std::size_t format = at;
      while (tokens[format + 1] != ";") ++format;
      while (tokens[format - 1] != ",") --format;
      calls.insert("Error: " + formatAt(tokens, format));
    }
  }
  return calls;
}

std::vector<std::string> difference(const std::multiset<std::string>& all,
                                    const std::multiset<std::string>& without) {
  std::vector<std::string> left;
  std::set_difference(all.begin(), all.end(), without.begin(), without.end(),
                      std::back_inserter(left));
  return left;
}

TEST(LogLinesTest, TheTableHasEveryCallOfTheLibrary) {
  constexpr const char* kLevels[] = {"Error", "Warn", "Info", "Debug", "Verbose", "SuperVerbose"};
  // The call by which makeDirectory() logs what it is given.
  std::multiset<std::string> rows = {"Error: unreadable format failureMessage"};
  for (const Scenario& scenario : table()) {
    for (const Line& line : scenario.lines) {
      rows.insert(std::string(kLevels[static_cast<int>(line.level)]) + ": " + line.format);
    }
  }

  const std::multiset<std::string> calls = callsIn(tokensOfTheLibrary());

  EXPECT_THAT(difference(calls, rows), IsEmpty()) << "calls without a row";
  EXPECT_THAT(difference(rows, calls), IsEmpty()) << "rows without a call";
}

}  // namespace
}  // namespace zln
