#include "session/ZLNSession.h"

#include "reports/report_types.h"
#include "support/ZLNReportingUtils.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {
namespace {

constexpr char kSessionIdKey[] = "sessionId";
constexpr char kStartTimeKey[] = "startTime";
constexpr char kStopTimeKey[] = "stopTime";
constexpr char kLastPauseTimeKey[] = "lastPauseTime";
constexpr char kLastResumeTimeKey[] = "lastResumeTime";
constexpr char kTotalDurationKey[] = "totalDuration";
constexpr char kDeviceKey[] = "device";
constexpr char kOsKey[] = "os";
constexpr char kSdkVersionKey[] = "sdkVersion";
constexpr char kMwVersionKey[] = "mwVersion";
constexpr char kAppVersionKey[] = "appVersion";
constexpr char kReportingVersionKey[] = "reportingVersion";
constexpr char kBundleIdKey[] = "bundleId";
constexpr char kPlatformKey[] = "platform";

// By how many seconds the accumulated time may exceed the time on the wall.
constexpr double kDurationTolerance = 5.0;

void setDate(Dictionary& dictionary, const char* key, std::optional<Date> date) {
  if (date) dictionary.set(key, Number::float64(date->secondsSince1970));
}

std::optional<Date> storedDate(const Dictionary& dictionary, const char* key) {
  const Number* seconds = dictionary.findNumber(key);
  if (seconds == nullptr) return std::nullopt;
  return Date::fromStored(*seconds);
}

std::optional<std::string> storedText(const Dictionary& dictionary, const char* key) {
  const std::string* text = dictionary.findString(key);
  if (text == nullptr) return std::nullopt;
  return *text;
}

}  // namespace

std::shared_ptr<ZLNSession> ZLNSession::initWithStartTime(Date date) {
  std::shared_ptr<ZLNSession> session(new ZLNSession);
  Environment& facts = environment();
  session->setUid(facts.uuids.next());
  session->setStartTime(date);
  session->setStopTime(std::nullopt);
  session->setLastPauseTime(date);
  session->setLastResumeTime(date);
  session->setTotalDuration(0.0f);
  session->setDevice(ZLNReportingUtils::getDeviceName());
  session->setOs(facts.deviceFacts.systemVersion());
  // Kept: a fixed text; the library's own version is the reporting version.
  session->setSdkVersion("0.0.0");
  session->setMwVersion(ZLNReportingUtils::getMarlwickVersion());
  session->setAppVersion(facts.deviceFacts.mainBundleValue(kBundleShortVersionKey));
  session->setReportingVersion(ZLNReportingUtils::getReportingVersion());
  session->setBundleid(facts.deviceFacts.mainBundleValue(kBundleIdentifierKey));
  session->setPlatform("iOS");
  session->setRunning(true);
  return session;
}

std::shared_ptr<ZLNSession> ZLNSession::initWithDictionary(const Dictionary& dictionary) {
  std::shared_ptr<ZLNSession> session(new ZLNSession);
  const std::string* uid = dictionary.findString(kSessionIdKey);
  if (uid == nullptr) {
    logError("session dict has no id");
    return nullptr;
  }
  session->setUid(*uid);
  const std::optional<Date> start = storedDate(dictionary, kStartTimeKey);
  if (!start) {
    logError("session dict has no start time");
    return nullptr;
  }
  session->setStartTime(*start);
  session->setStopTime(storedDate(dictionary, kStopTimeKey));
  session->setLastPauseTime(storedDate(dictionary, kLastPauseTimeKey));
  session->setLastResumeTime(storedDate(dictionary, kLastResumeTimeKey));
  if (const Number* duration = dictionary.findNumber(kTotalDurationKey)) {
    session->setTotalDuration(duration->floatValue());
  }
  session->setDevice(storedText(dictionary, kDeviceKey));
  session->setOs(storedText(dictionary, kOsKey));
  session->setSdkVersion(storedText(dictionary, kSdkVersionKey));
  session->setMwVersion(storedText(dictionary, kMwVersionKey));
  session->setAppVersion(storedText(dictionary, kAppVersionKey));
  session->setReportingVersion(storedText(dictionary, kReportingVersionKey));
  session->setBundleid(storedText(dictionary, kBundleIdKey));
  session->setPlatform(storedText(dictionary, kPlatformKey));
  // Kept: also when the dictionary carries a stop time. Such a session is only read.
  session->setRunning(true);
  return session;
}

Dictionary ZLNSession::toDictionary() const {
  Dictionary dictionary;
  dictionary.set(kSessionIdKey, uid());
  setDate(dictionary, kStartTimeKey, startTime());
  setDate(dictionary, kStopTimeKey, stopTime());
  setDate(dictionary, kLastPauseTimeKey, lastPauseTime());
  setDate(dictionary, kLastResumeTimeKey, lastResumeTime());
  dictionary.set(kTotalDurationKey, Number::float32(totalDuration()));
  dictionary.setIfPresent(kDeviceKey, device());
  dictionary.setIfPresent(kOsKey, os());
  dictionary.setIfPresent(kSdkVersionKey, sdkVersion());
  dictionary.setIfPresent(kMwVersionKey, mwVersion());
  dictionary.setIfPresent(kAppVersionKey, appVersion());
  dictionary.setIfPresent(kReportingVersionKey, reportingVersion());
  dictionary.setIfPresent(kBundleIdKey, bundleid());
  dictionary.setIfPresent(kPlatformKey, platform());
  return dictionary;
}

Dictionary ZLNSession::dictionaryForReportType(std::string_view reportType) const {
  Dictionary dictionary = toDictionary();
  if (reportType == kReportTypeSessionFirst || reportType == kReportTypeSessionStart) {
    dictionary.remove(kStopTimeKey);
    dictionary.remove(kLastPauseTimeKey);
    dictionary.remove(kLastResumeTimeKey);
    dictionary.remove(kTotalDurationKey);
  } else if (reportType == kReportTypeSessionStop) {
    dictionary.remove(kLastPauseTimeKey);
    dictionary.remove(kLastResumeTimeKey);
  } else {
    logError("Unexpected report type: %@", reportType);
  }
  return dictionary;
}

void ZLNSession::pause(Date date) {
  if (!running()) {
    logWarn("pausing a paused session?");
    return;
  }
  setLastPauseTime(date);
  const std::optional<Date> resumed = lastResumeTime();
  if (!resumed) {
    logError("session has no resume time");
    return;
  }
  setTotalDuration(static_cast<float>((date - *resumed) + static_cast<double>(totalDuration())));
  setRunning(false);
}

void ZLNSession::resume(Date date) {
  if (running()) {
    logWarn("resuming a running session?");
  } else if (stopTime()) {
    logError("refusing to resume stopped session");
  } else {
    setLastResumeTime(date);
    setRunning(true);
  }
}

bool ZLNSession::stop(Date date) {
  if (running()) pause(date);
  setStopTime(date);
  const Date start = startTime();
  const double span = date - start;
  const double duration = static_cast<double>(totalDuration());
  if (span + kDurationTolerance < duration) {
    logError("invalid session: [%@ - %@], %f, %f sec.", start, date, span, duration);
    return false;
  }
  if (duration < 0.0) {
    logError("invalid session2: [%@ - %@], %f, %f sec.", start, date, span, duration);
    return false;
  }
  return true;
}

std::string ZLNSession::description() const {
  const Date start = startTime();
  const std::optional<Date> stop = stopTime();
  const FormatArgument arguments[] = {formatArgument(start), formatArgument(stop),
                                      formatArgument(totalDuration())};
  return renderFormat("session: [%@ - %@] %f sec.", arguments);
}

}  // namespace zln
