#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/date.h"
#include "platform/http.h"
#include "platform/value.h"
#include "support/field.h"

namespace zln {

// The settings that govern sessions and sending: built-in defaults, overlaid by the settings file,
// refreshed from the settings endpoint. Readers ask for a setting at the moment of each decision.
// Any thread may call it; an update is seen setting by setting.
class ZLNReportingConfig : public std::enable_shared_from_this<ZLNReportingConfig> {
 public:
  // The one object of the process, made on the first call.
  static std::shared_ptr<ZLNReportingConfig> sharedConfig();
  // Follows the application's activation, sets the defaults, loads what is stored and refreshes it
  // when it is stale. For sharedConfig().
  static std::shared_ptr<ZLNReportingConfig> init();

  ZLNReportingConfig(const ZLNReportingConfig&) = delete;
  ZLNReportingConfig& operator=(const ZLNReportingConfig&) = delete;

  // Temporary failures after which a report is held instead of sent again at once.
  std::int32_t reportTemporaryFailureLimit() const { return reportTemporaryFailureLimit_.get(); }
  void setReportTemporaryFailureLimit(std::int32_t count) {
    reportTemporaryFailureLimit_.set(count);
  }
  // Seconds. Kept: nothing reads it.
  float jsonTransferTimeout() const { return jsonTransferTimeout_.get(); }
  void setJsonTransferTimeout(float seconds) { jsonTransferTimeout_.set(seconds); }
  // Seconds of pause after which a session is not resumed.
  float sessionInactivityTimeLimit() const { return sessionInactivityTimeLimit_.get(); }
  void setSessionInactivityTimeLimit(float seconds) { sessionInactivityTimeLimit_.set(seconds); }
  // Seconds between two fetches of the settings.
  std::int32_t configUpdateInterval() const { return configUpdateInterval_.get(); }
  void setConfigUpdateInterval(std::int32_t seconds) { configUpdateInterval_.set(seconds); }
  // Seconds in the background after which the session is stopped.
  float userSessionBackgroundTimeoutSeconds() const {
    return userSessionBackgroundTimeoutSeconds_.get();
  }
  void setUserSessionBackgroundTimeoutSeconds(float seconds) {
    userSessionBackgroundTimeoutSeconds_.set(seconds);
  }
  // Whether reports of these kinds are sent at all.
  bool sendStartSessionReports() const { return sendStartSessionReports_.get(); }
  void setSendStartSessionReports(bool send) { sendStartSessionReports_.set(send); }
  bool sendStopSessionReports() const { return sendStopSessionReports_.get(); }
  void setSendStopSessionReports(bool send) { sendStopSessionReports_.set(send); }
  bool sendFirstSessionReports() const { return sendFirstSessionReports_.get(); }
  void setSendFirstSessionReports(bool send) { sendFirstSessionReports_.set(send); }
  // Whether a report is sent as soon as it is queued.
  bool transmitReportsImmediately() const { return transmitReportsImmediately_.get(); }
  void setTransmitReportsImmediately(bool transmit) { transmitReportsImmediately_.set(transmit); }
  // Kept: nothing reads it.
  bool sendPartialReportsOnBackgrounding() const {
    return sendPartialReportsOnBackgrounding_.get();
  }
  void setSendPartialReportsOnBackgrounding(bool send) {
    sendPartialReportsOnBackgrounding_.set(send);
  }
  // Whether pending reports are sent when the application goes to the background, or returns.
  bool transmitReportsOnApplicationBackgrounding() const {
    return transmitReportsOnApplicationBackgrounding_.get();
  }
  void setTransmitReportsOnApplicationBackgrounding(bool transmit) {
    transmitReportsOnApplicationBackgrounding_.set(transmit);
  }
  bool transmitReportsOnApplicationForegrounding() const {
    return transmitReportsOnApplicationForegrounding_.get();
  }
  void setTransmitReportsOnApplicationForegrounding(bool transmit) {
    transmitReportsOnApplicationForegrounding_.set(transmit);
  }
  // Kept: nothing reads it.
  bool attemptToEnforceOrientation() const { return attemptToEnforceOrientation_.get(); }
  void setAttemptToEnforceOrientation(bool attempt) { attemptToEnforceOrientation_.set(attempt); }

  // Gives every setting its built-in value.
  void loadDefaultConfig();
  // The ten settings that files and the endpoint know, under their keys.
  Dictionary configToDictionary() const;
  // Takes every known setting that the dictionary, if there is one, holds as a number, without
  // range checks. Always true.
  bool processConfigDictionary(const Dictionary* dictionary);

  // The settings file. One that cannot be read is not replaced, so that a passing failure costs no
  // settings; it is read again before the next check and before a reply is applied.
  static std::string savePath();
  // Writes the settings and the time of the last fetch.
  void saveConfig() const;
  // Applies the file. True when there is one and it was accepted.
  bool loadStoredConfig();
  // Removes the file, if there is one.
  void deleteConfig() const;

  // True when the last fetch lies longer back than the update interval.
  bool shouldUpdateFromRemote() const;
  // Fetches the settings when they are stale.
  void updateIfNeeded();
  // Starts one fetch and returns; its outcome arrives on the network's thread.
  void updateConfigFromRemote();
  // What the settings request says of this application.
  static Dictionary configParameters();

  // The time of the last fetch.
  std::optional<Date> configUpdateTime() const { return configUpdateTime_.get(); }
  void setConfigUpdateTime(std::optional<Date> date) { configUpdateTime_.set(date); }

 private:
  ZLNReportingConfig() = default;

  void registerForNotifications();
  // The application is active again.
  void returnToApp();
  void receiveRemoteConfig(const HttpReply& reply);

  Field<std::int32_t> reportTemporaryFailureLimit_;
  Field<float> jsonTransferTimeout_;
  Field<float> sessionInactivityTimeLimit_;
  Field<std::int32_t> configUpdateInterval_;
  Field<float> userSessionBackgroundTimeoutSeconds_;
  Field<bool> sendStartSessionReports_;
  Field<bool> sendStopSessionReports_;
  Field<bool> sendFirstSessionReports_;
  Field<bool> transmitReportsImmediately_;
  Field<bool> sendPartialReportsOnBackgrounding_;
  Field<bool> transmitReportsOnApplicationBackgrounding_;
  Field<bool> transmitReportsOnApplicationForegrounding_;
  Field<bool> attemptToEnforceOrientation_;
  Field<std::optional<Date>> configUpdateTime_;
  // Whether there is a settings file that could not be read.
  Field<bool> isFileUnread_{false};
};

}  // namespace zln
