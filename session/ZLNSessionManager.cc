#include "session/ZLNSessionManager.h"

#include "config/ZLNReportingConfig.h"
#include "reports/ZLNReportSessionFirst.h"
#include "reports/ZLNReportSessionStart.h"
#include "reports/ZLNReportSessionStop.h"
#include "support/log.h"
#include "support/process_state.h"
#include "transport/ZLNReportingManager.h"

namespace zln {
namespace {

constexpr char kSessionUserIdKey[] = "com.zelnor.sessionUserId";
constexpr char kFirstSessionSentKey[] = "com.zelnor.firstSessionSent";

// Kept: the third label has a blank, the fourth has none.
constexpr char kDescriptionFormat[] =
    "Start: %@\nStop: %@\nLast Pause: %@\nLastResume: %@\nTotal Duration: %@\nCurrent Time: %@\nUUID: %@\nOS: %@\nMWVersion: %@";

void queue(const std::shared_ptr<ZLNReportBase>& report) {
  ZLNReportingManager::sharedManager()->queueReportForTransmission(report);
}

// Seconds with six decimals; an absent date counts as 0 seconds.
std::string secondsText(double seconds) {
  const FormatArgument arguments[] = {formatArgument(seconds)};
  return renderFormat("%f", arguments);
}

std::string secondsText(std::optional<Date> date) {
  return secondsText(date.value_or(Date{}).secondsSince1970);
}

}  // namespace

std::shared_ptr<ZLNSessionManager> ZLNSessionManager::sharedManager() {
  return processState().sessionManager.get(&ZLNSessionManager::init);
}

std::shared_ptr<ZLNSessionManager> ZLNSessionManager::init() {
  std::shared_ptr<ZLNSessionManager> manager(new ZLNSessionManager);
  environment().dispatch.mainAsync([manager] {
    manager->startNewSession();
    manager->registerForNotifications();
  });
  return manager;
}

ZLNSessionManager::ZLNSessionManager() : sessionUserId_(getUserId()) {}

Value ZLNSessionManager::getUserId() {
  if (std::optional<Value> stored = storedValue(kSessionUserIdKey)) return *stored;
  UserDefaults& defaults = environment().userDefaults;
  Value fresh = environment().uuids.next();
  defaults.set(kSessionUserIdKey, fresh);
  defaults.synchronize();
  return fresh;
}

std::optional<Value> ZLNSessionManager::storedValue(const char* key) {
  Error error;
  std::optional<Value> value = environment().userDefaults.get(key, &error);
  if (!error.domain.empty() && !readFailureIsLogged_.get()) {
    readFailureIsLogged_.set(true);
    logError("unable to read user defaults: %@", error);
  }
  return value;
}

void ZLNSessionManager::registerForNotifications() {
  NotificationCenter& center = environment().notificationCenter;
  center.addObserver(shared_from_this(), Notification::applicationWillResignActive,
                     &ZLNSessionManager::appBackgrounding);
  center.addObserver(shared_from_this(), Notification::applicationDidBecomeActive,
                     &ZLNSessionManager::appForegrounding);
  center.addObserver(shared_from_this(), Notification::applicationWillTerminate,
                     &ZLNSessionManager::appTerminating);
}

std::optional<std::string> ZLNSessionManager::currentSessionId() const {
  const auto current = session();
  if (!current) return std::nullopt;
  return current->uid();
}

void ZLNSessionManager::startNewSession() {
  const auto started = ZLNSession::initWithStartTime(environment().clock.now());
  session_.set(started);
  logDebug("started new session %@", started);
  if (storedValue(kFirstSessionSentKey)) {
    queue(ZLNReportSessionStart::reportWithSession(started));
    return;
  }
  queue(ZLNReportSessionFirst::reportWithSession(started));
  // Set whatever became of the report: it is offered once.
  UserDefaults& defaults = environment().userDefaults;
  defaults.set(kFirstSessionSentKey, Number::boolean(true));
  defaults.synchronize();
}

void ZLNSessionManager::pauseSession() {
  const auto current = session();
  if (current) current->pause(environment().clock.now());
  logDebug("paused session %@", current);
}

void ZLNSessionManager::resumeSession() {
  const auto current = session();
  if (current) current->resume(environment().clock.now());
  logDebug("resumed session %@", current);
}

void ZLNSessionManager::stopSession() {
  const auto current = session();
  // Kept: the session stops at its last pause, not now, also when it is running.
  if (current && current->stop(current->lastPauseTime().value_or(Date{}))) {
    queue(ZLNReportSessionStop::reportWithSession(current));
  }
  logDebug("Stopped session %@", current);
  session_.set(nullptr);
}

bool ZLNSessionManager::shouldStartNewSession() const {
  const auto current = session();
  if (!current) return true;
  if (current->running()) return false;
  const Date now = environment().clock.now();
  if (current->startTime() - now > 0.0) {
    logInfo("clock change detected (1)");
    return true;
  }
  const std::optional<Date> paused = current->lastPauseTime();
  if (!paused) {
    logWarn("session has no pause time to evaluate");
    return false;
  }
  const double limit =
      static_cast<double>(ZLNReportingConfig::sharedConfig()->sessionInactivityTimeLimit());
  return now - *paused > limit;
}

void ZLNSessionManager::appBackgrounding() {
  pauseSession();
  if (const auto old = monitor()) {
    logError("creating another background monitor while I already have one");
    old->cancel();
    monitor_.set(nullptr);
  }
  monitor_.set(ZLNReportBackgroundMonitor::initWithDelegate(shared_from_this()));
  logDebug("paused session %@, started monitor %@", session(), monitor());
}

void ZLNSessionManager::appForegrounding() {
  if (const auto old = monitor()) {
    logDebug("Session resumed, ending background task %@", old);
    old->cancel();
    monitor_.set(nullptr);
  }
  if (shouldStartNewSession()) {
    if (session()) stopSession();
    startNewSession();
  } else {
    resumeSession();
  }
}

void ZLNSessionManager::appTerminating() { stopSession(); }

void ZLNSessionManager::reportBackgroundMonitorTimerExpired(
    const std::shared_ptr<ZLNReportBackgroundMonitor>& expired) {
  const auto current = monitor();
  if (expired != current) {
    logError("Unexpected monitor completion: %@ (have %@)", expired, current);
    return;
  }
  stopSession();
  monitor_.set(nullptr);
}

std::string ZLNSessionManager::sessionDescription() const {
  std::string start, stop, lastPause, lastResume, duration, now, uuid;
  std::optional<std::string> os = "", mwVersion = "";
  if (const auto current = session()) {
    start = secondsText(current->startTime());
    stop = secondsText(current->stopTime());
    lastPause = secondsText(current->lastPauseTime());
    lastResume = secondsText(current->lastResumeTime());
    duration = secondsText(static_cast<double>(current->totalDuration()));
    now = secondsText(environment().clock.now());
    uuid = current->uid();
    os = current->os();
    mwVersion = current->mwVersion();
  }
  const FormatArgument arguments[] = {
      formatArgument(start),      formatArgument(stop),     formatArgument(lastPause),
      formatArgument(lastResume), formatArgument(duration), formatArgument(now),
      formatArgument(uuid),       formatArgument(os),       formatArgument(mwVersion)};
  return renderFormat(kDescriptionFormat, arguments);
}

}  // namespace zln
