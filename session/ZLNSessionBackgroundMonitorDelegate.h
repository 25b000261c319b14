#pragma once

#include <memory>

namespace zln {

class ZLNReportBackgroundMonitor;

// Is told that the time in the background is up.
class ZLNSessionBackgroundMonitorDelegate {
 public:
  virtual ~ZLNSessionBackgroundMonitorDelegate() = default;
  // Called on the monitor's worker thread.
  virtual void reportBackgroundMonitorTimerExpired(
      const std::shared_ptr<ZLNReportBackgroundMonitor>& monitor) = 0;
};

}  // namespace zln
