#include "config/ZLNReportingConfig.h"

#include "support/process_state.h"

namespace zln {
namespace {

constexpr char kTransmitReportsImmediatelyKey[] =
    "ConfigSerializationKeyTransmitReportsImmediately";
constexpr char kTransmitReportsOnApplicationBackgroundingKey[] =
    "ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding";
constexpr char kTransmitReportsOnApplicationForegroundingKey[] =
    "ConfigSerializationKeyTransmitReportsOnApplicationForegrounding";
constexpr char kReportTemporaryFailureLimitKey[] =
    "ConfigSerializationKeyReportTemporaryFailureLimit";
constexpr char kSessionInactivityTimeLimitKey[] =
    "ConfigSerializationKeySessionInactivityTimeLimit";
constexpr char kConfigUpdateIntervalKey[] = "ConfigSerializationKeyConfigUpdateInterval";
constexpr char kUserSessionBackgroundTimeoutSecondsKey[] =
    "ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds";
constexpr char kSendStartSessionReportsKey[] = "ConfigSerializationKeySendStartSessionReports";
constexpr char kSendStopSessionReportsKey[] = "ConfigSerializationKeySendStopSessionReports";
constexpr char kSendFirstSessionReportsKey[] = "ConfigSerializationKeySendFirstSessionReports";

}  // namespace

std::shared_ptr<ZLNReportingConfig> ZLNReportingConfig::sharedConfig() {
  return processState().config.get(&ZLNReportingConfig::init);
}

std::shared_ptr<ZLNReportingConfig> ZLNReportingConfig::init() {
  std::shared_ptr<ZLNReportingConfig> config(new ZLNReportingConfig);
  config->registerForNotifications();
  config->loadDefaultConfig();
  config->loadStoredConfig();
  config->updateIfNeeded();
  return config;
}

void ZLNReportingConfig::registerForNotifications() {
  environment().notificationCenter.addObserver(shared_from_this(),
                                               Notification::applicationDidBecomeActive,
                                               &ZLNReportingConfig::returnToApp);
}

void ZLNReportingConfig::returnToApp() { updateIfNeeded(); }

void ZLNReportingConfig::loadDefaultConfig() {
  setTransmitReportsImmediately(true);
  setTransmitReportsOnApplicationBackgrounding(true);
  setTransmitReportsOnApplicationForegrounding(true);
  setSendPartialReportsOnBackgrounding(true);
  setAttemptToEnforceOrientation(true);
  setJsonTransferTimeout(10.0f);
  setReportTemporaryFailureLimit(3);
  setSessionInactivityTimeLimit(600.0f);
  setConfigUpdateInterval(86400);
  setUserSessionBackgroundTimeoutSeconds(60.0f);
  setSendStartSessionReports(true);
  setSendStopSessionReports(true);
  setSendFirstSessionReports(true);
}

Dictionary ZLNReportingConfig::configToDictionary() const {
  Dictionary dictionary;
  dictionary.set(kTransmitReportsImmediatelyKey, Number::boolean(transmitReportsImmediately()));
  dictionary.set(kTransmitReportsOnApplicationBackgroundingKey,
                 Number::boolean(transmitReportsOnApplicationBackgrounding()));
  dictionary.set(kTransmitReportsOnApplicationForegroundingKey,
                 Number::boolean(transmitReportsOnApplicationForegrounding()));
  dictionary.set(kReportTemporaryFailureLimitKey, Number::int32(reportTemporaryFailureLimit()));
  dictionary.set(kSessionInactivityTimeLimitKey, Number::float32(sessionInactivityTimeLimit()));
  dictionary.set(kConfigUpdateIntervalKey, Number::int32(configUpdateInterval()));
  dictionary.set(kUserSessionBackgroundTimeoutSecondsKey,
                 Number::float32(userSessionBackgroundTimeoutSeconds()));
  dictionary.set(kSendStartSessionReportsKey, Number::boolean(sendStartSessionReports()));
  dictionary.set(kSendStopSessionReportsKey, Number::boolean(sendStopSessionReports()));
  dictionary.set(kSendFirstSessionReportsKey, Number::boolean(sendFirstSessionReports()));
  return dictionary;
}

bool ZLNReportingConfig::processConfigDictionary(const Dictionary* dictionary) {
  const auto take = [dictionary](const char* key, auto&& store) {
    const Number* number = dictionary == nullptr ? nullptr : dictionary->findNumber(key);
    if (number != nullptr) store(*number);
  };
  take(kTransmitReportsImmediatelyKey,
       [this](Number number) { setTransmitReportsImmediately(number.boolValue()); });
  take(kTransmitReportsOnApplicationBackgroundingKey,
       [this](Number number) { setTransmitReportsOnApplicationBackgrounding(number.boolValue()); });
  take(kTransmitReportsOnApplicationForegroundingKey,
       [this](Number number) { setTransmitReportsOnApplicationForegrounding(number.boolValue()); });
  take(kReportTemporaryFailureLimitKey,
       [this](Number number) { setReportTemporaryFailureLimit(number.intValue()); });
  take(kSessionInactivityTimeLimitKey,
       [this](Number number) { setSessionInactivityTimeLimit(number.floatValue()); });
  take(kConfigUpdateIntervalKey,
       [this](Number number) { setConfigUpdateInterval(number.intValue()); });
  take(kUserSessionBackgroundTimeoutSecondsKey,
       [this](Number number) { setUserSessionBackgroundTimeoutSeconds(number.floatValue()); });
  take(kSendStartSessionReportsKey,
       [this](Number number) { setSendStartSessionReports(number.boolValue()); });
  take(kSendStopSessionReportsKey,
       [this](Number number) { setSendStopSessionReports(number.boolValue()); });
  take(kSendFirstSessionReportsKey,
       [this](Number number) { setSendFirstSessionReports(number.boolValue()); });
  return true;
}

}  // namespace zln
