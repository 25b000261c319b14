// The input is a program: each byte names a call of the public functions or something that happens
// to the game meanwhile, the bytes behind it are the call's arguments. The game has any text, keeps
// no order, is killed and comes back. At the end the server takes everything, and no report may
// have been lost on the way.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "config/ZLNReportingConfig.h"
#include "platform/posix/environment_posix.h"
#include "platform/utf8.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/fuzzed_host.h"
#include "tests/support/report_identity.h"

namespace zln::fuzz {
namespace {

constexpr std::size_t kMostSteps = 150;
constexpr std::size_t kMostReplies = 5000;

// The text of an argument; a null pointer where it is absent.
class Text {
 public:
  Text() = default;
  explicit Text(std::string text) : text_(std::move(text)) {}

  const char* pointer() const { return text_ ? text_->c_str() : nullptr; }
  const std::optional<std::string>& value() const { return text_; }

 private:
  std::optional<std::string> text_;
};

Text takeText(Input& input) {
  switch (input.takeByte() % 8) {
    case 0:
      return {};
    case 1:
      return Text("");
    case 2:
      return Text(std::string(5000, 'x'));
    case 3:
      return Text("\xED\xA0\x80\xF8\xFF\xC0\x80\xE2\x82");
    case 4:
      return Text("a\x01\x1B\xEF\xBF\xBE<&>\"\\/\r\n\xF0\x9F\x98\x80");
    default:
      return Text(std::string(input.takeUpTo('\0')));
  }
}

// What the port's own parts tell the host.
struct HostCalls {
  std::vector<std::string> lines;
  std::uint64_t begun = 0;
};

class Game {
 public:
  explicit Game(Input input) : input_(input) {}
  ~Game() {
    ZLNHostSetLogSink(nullptr, nullptr);
    ZLNHostSetBackgroundTaskHooks(nullptr);
  }

  void play() {
    for (std::size_t step = 0; step < kMostSteps && !input_.isEmpty(); ++step) takeStep();
    comeToRest();
    checkThatNothingIsLost();
  }

 private:
  void takeStep() {
    using Step = void (Game::*)();
    constexpr Step kSteps[] = {
        &Game::initialize,      &Game::startReporting,  &Game::stopReporting,
        &Game::sendAd,          &Game::sendBanner,      &Game::sendInterstitial,
        &Game::sendRewarded,    &Game::sendZone,        &Game::clearCache,
        &Game::describe,        &Game::chooseLevel,     &Game::logFormats,
        &Game::logMessage,      &Game::nameApplication, &Game::setHooks,
        &Game::expireTask,      &Game::setSink,         &Game::tellHost,
        &Game::resignActive,    &Game::becomeActive,    &Game::enterBackground,
        &Game::enterForeground, &Game::terminate,       &Game::waitAWhile,
        &Game::setClock,        &Game::runTasks,        &Game::runOneTask,
        &Game::answer,          &Game::answer,          &Game::breakStorage,
        &Game::breakFolders,    &Game::limitBackground, &Game::kill,
    };
    (this->*kSteps[input_.takeByte() % std::size(kSteps)])();
  }

  // The functions of ZLNSessionReporting.h.

  void initialize() {
    ZLNInitializeReporting(takeText(input_).pointer());
    isInitialized_ = true;
  }
  void startReporting() { ZLNStartSessionReporting(); }
  void stopReporting() { ZLNStopSessionReporting(); }

  void sendAd() {
    const Text network = takeText(input_);
    const Text type = takeText(input_);
    send(network.pointer() && type.pointer(),
         [&] { ZLNSendAdAttemptReport(network.pointer(), type.pointer(), true); });
  }

  void sendBanner() {
    sendBoth(&ZLNSendBannerAdAttemptReport, true, &ZLNSendBannerAdZoneAttemptReport, false);
  }
  void sendInterstitial() {
    sendBoth(&ZLNSendInterstitialAdAttemptReport, false, &ZLNSendInterstitialAdZoneAttemptReport,
             true);
  }
  void sendRewarded() {
    sendBoth(&ZLNSendRewardedAdAttemptReport, true, &ZLNSendRewardedAdZoneAttemptReport, true);
  }

  void sendBoth(void (*plain)(const char*, bool), bool isFilled,
                void (*zoned)(const char*, const char*, bool), bool isZoneFilled) {
    const Text network = takeText(input_);
    const Text zone = takeText(input_);
    send(network.pointer() != nullptr, [&] { plain(network.pointer(), isFilled); });
    send(network.pointer() && zone.pointer(),
         [&] { zoned(network.pointer(), zone.pointer(), isZoneFilled); });
  }

  void sendZone() {
    const Text network = takeText(input_);
    const Text type = takeText(input_);
    const Text zone = takeText(input_);
    send(network.pointer() && type.pointer() && zone.pointer(), [&] {
      ZLNSendAdZoneAttemptReport(network.pointer(), type.pointer(), zone.pointer(), false);
    });
  }

  // One attempt. A missing text is refused with an exception, and only once the library is on.
  void send(bool isComplete, const std::function<void()>& call) {
    const std::size_t before = host_.env.uuids.issued().size();
    bool isRefused = false;
    try {
      call();
    } catch (const std::invalid_argument&) {
      isRefused = true;
    }
    require(isRefused == (isInitialized_ && !isComplete), "only an absent text is refused");
    const auto& issued = host_.env.uuids.issued();
    if (!isInitialized_) require(issued.size() == before, "before it is on, nothing happens");
    // The attempt's identifier comes first; the making of the library's own objects may follow.
    if (isInitialized_ && isComplete) attempts_.insert(issued.at(before));
  }

  void clearCache() { ZLNClearCache(); }

  void describe() {
    char* text = ZLNGetSessionDescription();
    require(text != nullptr && isValidUtf8(text), "the description is text");
    const std::string_view description = text;
    require(
        isInitialized_ ? description.starts_with("Start: ") : description == "[Encountered error]",
        "the description is that of a session, or says that there is none", description);
    if (input_.takeByte() % 2 == 0) {
      ZLNReleaseString(text);
    } else {
      std::free(text);
    }
    ZLNReleaseString(nullptr);
  }

  void chooseLevel() {
    constexpr void (*kChoices[])() = {
        &ZLNSessionReportingSetLogLevelToError,   &ZLNSessionReportingSetLogLevelToWarn,
        &ZLNSessionReportingSetLogLevelToInfo,    &ZLNSessionReportingSetLogLevelToDebug,
        &ZLNSessionReportingSetLogLevelToVerbose, &ZLNSessionReportingSetLogLevelToSuperVerbose};
    const std::size_t choice = input_.takeByte();
    if (choice < std::size(kChoices)) {
      kChoices[choice]();
    } else {
      ZLNLogSetLevel(input_.takeWord());
    }
  }

  // The functions of ZLNLog.h.

  void logFormats() {
    constexpr void (*kFunctions[])(const char*, ...) = {
        &ZLNLogError, &ZLNLogWarn, &ZLNLogInfo, &ZLNLogDebug, &ZLNLogVerbose, &ZLNLogSuperVerbose};
    const auto log = kFunctions[input_.takeByte() % std::size(kFunctions)];
    const Text text = takeText(input_);
    const std::uint64_t number = input_.takeWord();
    log(nullptr);
    log("%@ %s %lu %-12.3f|%c", text.pointer(), text.pointer(), number, static_cast<double>(number),
        static_cast<int>(number));
  }

  void logMessage() {
    const Text message = takeText(input_);
    internalLog(message.pointer(), input_.takeByte() % 8);
  }

  // The functions of ZLNHost.h. They speak to the port, beside the fakes, so what the game says of
  // itself is told to both.

  void nameApplication() {
    const Text identifier = takeText(input_);
    const Text version = takeText(input_);
    ZLNHostSetApplicationInfo(identifier.pointer(), version.pointer());
    ApplicationInfo& application = portParts().application;
    host_.env.device.bundleIdentifier = application.bundleIdentifier();
    host_.env.device.bundleShortVersion = application.shortVersion();
    const std::string folder = application.folderName();
    require(!folder.empty() && folder.size() <= 255 && folder.find('/') == std::string::npos &&
                folder != "." && folder != "..",
            "the identifier is one name of a folder", folder);
  }

  static std::uint64_t beginTask(void* context) {
    return ++static_cast<HostCalls*>(context)->begun;
  }
  static void endTask(std::uint64_t, void*) {}
  static double remainingTime(void*) { return 30; }

  void setHooks() {
    ZLNHostBackgroundTaskHooks hooks = {&beginTask, &endTask, &remainingTime, &calls_};
    const unsigned choice = input_.takeByte();
    if (choice & 1) hooks.begin = nullptr;
    if (choice & 2) hooks.end = nullptr;
    if (choice & 4) hooks.remaining = nullptr;
    ZLNHostSetBackgroundTaskHooks(choice & 8 ? nullptr : &hooks);
    const BackgroundTaskId task = portParts().backgroundTasks.begin([] {});
    require(task != kBackgroundTaskInvalid, "the system grants time in the background");
    portParts().backgroundTasks.end(task);
  }

  void expireTask() {
    ZLNHostBackgroundTaskWillExpire(input_.takeWord());
    host_.env.backgroundTasks.expire(input_.takeByte());
  }

  static void keepLine(const char* line, void* context) {
    static_cast<HostCalls*>(context)->lines.emplace_back(line);
  }

  void setSink() {
    calls_.lines.clear();
    ZLNHostSetLogSink(&keepLine, &calls_);
    const Text line = takeText(input_);
    portParts().logSink.write(line.value().value_or(""));
    require(calls_.lines == std::vector<std::string>{line.value().value_or("")},
            "a line reaches the host's sink as it is");
    ZLNHostSetLogSink(nullptr, &calls_);
  }

  void tellHost() {
    constexpr void (*kEvents[])() = {
        &ZLNHostApplicationWillResignActive, &ZLNHostApplicationDidBecomeActive,
        &ZLNHostApplicationWillEnterForeground, &ZLNHostApplicationDidEnterBackground,
        &ZLNHostApplicationWillTerminate};
    kEvents[input_.takeByte() % std::size(kEvents)]();
  }

  // What happens to the game.

  void resignActive() { host_.env.app.resignActive(); }
  void becomeActive() { host_.env.app.becomeActive(); }
  void enterBackground() { host_.env.app.enterBackground(); }
  void enterForeground() { host_.env.app.enterForeground(); }
  void terminate() { host_.env.app.terminate(); }

  void waitAWhile() {
    constexpr double kWaits[] = {0, 0.5, 1, 61, 601, 86401};
    host_.env.clock.advance(kWaits[input_.takeByte() % std::size(kWaits)]);
  }

  // Also where no clock stands.
  void setClock() {
    constexpr double kTimes[] = {0, 1.7e9, -1e9, 4e9, 1e18, -1e300, 1e300};
    host_.env.clock.set(kTimes[input_.takeByte() % std::size(kTimes)]);
  }

  void runTasks() {
    limitWaiting();
    host_.env.dispatch.runAll();
    hasLoaded_ = hasWritten();
  }

  void runOneTask() {
    limitWaiting();
    if (input_.takeByte() % 2 == 0) {
      host_.env.dispatch.runNextMain();
    } else {
      host_.env.dispatch.runNextGlobal();
    }
  }

  // However long a session is let wait in the background, the system does not.
  void limitWaiting() {
    host_.env.clock.at(100, [this] { host_.env.backgroundTasks.remainingTime = 5; });
  }

  void answer() {
    limitWaiting();
    const auto request = host_.firstOutstanding();
    if (!request) return;
    switch (input_.takeByte() % 8) {
      case 0:
        host_.fail(*request, -1001);
        break;
      case 1:
        settle(*request);
        host_.fail(*request, -1002);
        break;
      case 2:
        settle(*request);
        host_.reply(*request, R"({"success":0,"errorIsPermanent":1,"error":"\ud83d\ude00"})");
        break;
      case 3:
        host_.reply(*request, R"({"success":false})");
        break;
      case 4:
        answerWithAnything(*request);
        break;
      case 5:
        host_.reply(*request, settingsReply());
        break;
      default:
        settle(*request);
        host_.reply(*request, R"({"success":true})");
    }
  }

  void answerWithAnything(std::size_t request) {
    const std::string body(input_.takeUpTo('\0'));
    // Whatever it is, it may have the report taken.
    settle(request);
    host_.reply(request, body);
  }

  // Settings by which reports go out sooner or later.
  std::string settingsReply() {
    constexpr const char* kNames[] = {"ReportTemporaryFailureLimit", "SessionInactivityTimeLimit",
                                      "ConfigUpdateInterval", "UserSessionBackgroundTimeoutSeconds",
                                      "SendStartSessionReports"};
    constexpr const char* kValues[] = {"-1",  "0", "1", "2.5", "1e300", "-9223372036854775808",
                                       "true"};
    return std::string("{\"ConfigSerializationKey") +
           kNames[input_.takeByte() % std::size(kNames)] +
           "\":" + kValues[input_.takeByte() % std::size(kValues)] + "}";
  }

  // The server, or the transport, has the last word on the attempt that this request carries.
  void settle(std::size_t request) {
    const std::string& body = host_.env.http.requests()[request].body;
    settled_.insert(reportIdentity(nlohmann::json::parse(body, nullptr, false)).id);
  }

  void breakStorage() {
    mayLose_ = true;
    host_.env.files.failWrites(input_.takeByte() % 2 == 0);
  }

  void breakFolders() {
    mayLose_ = true;
    const bool fails = input_.takeByte() % 2 == 0;
    host_.env.files.failCreate("/support/com.zelnor.sdk/reporting", fails);
    host_.env.files.failExclude("/support/com.zelnor.sdk", fails);
    host_.env.files.failRemove("/support/com.zelnor.sdk/data", fails);
  }

  void limitBackground() {
    FakeBackgroundTasks& tasks = host_.env.backgroundTasks;
    const unsigned choice = input_.takeByte();
    tasks.nextInvalid = choice & 1;
    tasks.offersBeginTask = !(choice & 2);
    tasks.offersEndTask = !(choice & 4);
    tasks.offersMultitasking = !(choice & 8);
    tasks.remainingTime = choice & 16   ? 5
                          : choice & 32 ? std::numeric_limits<double>::quiet_NaN()
                                        : 600;
  }

  void kill() {
    // Until a process has read what earlier ones left, the fake file has it in memory alone; the
    // port's keeps it on the disk.
    if (hasWritten() && !hasLoaded_) attempts_ = attemptsOfThisProcess();
    earlierAttempts_ = attempts_;
    host_.restart();
    isInitialized_ = false;
    hasLoaded_ = false;
    writesBefore_ = host_.env.files.writeCount(kReportsFile);
  }

  // Whether this process has written the report file.
  bool hasWritten() const { return host_.env.files.writeCount(kReportsFile) > writesBefore_; }

  std::set<std::string> attemptsOfThisProcess() const {
    std::set<std::string> own;
    std::set_difference(attempts_.begin(), attempts_.end(), earlierAttempts_.begin(),
                        earlierAttempts_.end(), std::inserter(own, own.end()));
    return own;
  }

  // A last process of the game, in which everything works.
  void comeToRest() {
    limitWaiting();
    host_.env.files.failWrites(false);
    host_.env.files.failCreate("/support/com.zelnor.sdk/reporting", false);
    host_.env.backgroundTasks.remainingTime = 5;
    kill();
    host_.start();
    require(host_.answerAll(kMostReplies,
                            [this](std::size_t request) {
                              settle(request);
                              host_.reply(request, R"({"success":true})");
                            }),
            "sending comes to its end");
    require(host_.storedReports() == Array{}, "nothing is owed any more",
            host_.env.files.contents(kReportsFile).value_or("no file"));
  }

  void checkThatNothingIsLost() {
    if (mayLose_) return;
    for (const std::string& attempt : attempts_) {
      require(settled_.contains(attempt), "no report is lost", attempt);
    }
  }

  Input input_;
  FuzzedHost host_{0};
  HostCalls calls_;
  bool isInitialized_ = false;
  // How often earlier processes have written the report file, and whether this one has read it.
  std::size_t writesBefore_ = 0;
  bool hasLoaded_ = false;
  // Whether the storage has been out of order.
  bool mayLose_ = false;
  // The identifiers of all attempts, and of reports that need not be sent any more.
  std::set<std::string> attempts_;
  std::set<std::string> earlierAttempts_;
  std::set<std::string> settled_;
};

}  // namespace
}  // namespace zln::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zln::fuzz::Game(zln::fuzz::Input(data, size)).play();
  return 0;
}
