#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/value.h"
#include "session/ZLNReportBackgroundMonitor.h"
#include "session/ZLNSession.h"
#include "session/ZLNSessionBackgroundMonitorDelegate.h"
#include "support/field.h"

namespace zln {

// Owns the current session: turns the application's life into session operations, queues the
// session reports and keeps the installation's user identifier. Its fields are read and replaced
// whole by whichever thread an event arrives on; nothing orders events that fall together.
class ZLNSessionManager : public ZLNSessionBackgroundMonitorDelegate,
                          public std::enable_shared_from_this<ZLNSessionManager> {
 public:
  // The one object of the process, made on the first call.
  static std::shared_ptr<ZLNSessionManager> sharedManager();
  // Loads or makes the user identifier; the first session starts with the main thread's next turn.
  // For sharedManager().
  static std::shared_ptr<ZLNSessionManager> init();

  ZLNSessionManager(const ZLNSessionManager&) = delete;
  ZLNSessionManager& operator=(const ZLNSessionManager&) = delete;

  // The identifier of this installation, as it is stored.
  const Value& sessionUserId() const { return sessionUserId_; }
  std::optional<std::string> currentSessionId() const;
  // Nine lines about the current session, with empty values when there is none.
  std::string sessionDescription() const;

  // Replaces the current session, without stopping it, by a new one and queues its report.
  void startNewSession();
  void pauseSession();
  void resumeSession();
  // Stops the current session at its last pause and queues its stop report if its times are
  // plausible.
  void stopSession();
  // Whether the application's return begins a new session.
  bool shouldStartNewSession() const;

  void appBackgrounding();
  void appForegrounding();
  void appTerminating();
  void reportBackgroundMonitorTimerExpired(
      const std::shared_ptr<ZLNReportBackgroundMonitor>& monitor) override;

  std::shared_ptr<ZLNSession> session() const { return session_.get(); }
  std::shared_ptr<ZLNReportBackgroundMonitor> monitor() const { return monitor_.get(); }

 private:
  ZLNSessionManager();

  Value getUserId();
  // Says in the log, once, that the user defaults cannot be read.
  std::optional<Value> storedValue(const char* key);
  void registerForNotifications();

  Field<bool> readFailureIsLogged_{false};
  const Value sessionUserId_;
  Field<std::shared_ptr<ZLNSession>> session_;
  Field<std::shared_ptr<ZLNReportBackgroundMonitor>> monitor_;
};

}  // namespace zln
