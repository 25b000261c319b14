#pragma once

#include <cstdint>
#include <functional>

namespace zln {

using BackgroundTaskId = std::uint64_t;
inline constexpr BackgroundTaskId kBackgroundTaskInvalid = 0;

// Time that the system grants to an application in the background. Any thread may call it.
class BackgroundTasks {
 public:
  virtual ~BackgroundTasks() = default;
  // Whether the device, and the application object, know these operations at all.
  virtual bool offersMultitaskingSupport() = 0;
  virtual bool offersBegin() = 0;
  virtual bool offersEnd() = 0;

  // Asks for time. `expired` runs in the main queue shortly before the time is up, unless the task
  // has been ended. kBackgroundTaskInvalid when the system refuses.
  virtual BackgroundTaskId begin(std::function<void()> expired) = 0;
  // An identifier that is invalid or ended already is ignored.
  virtual void end(BackgroundTaskId id) = 0;
  // Seconds left; a very large number while nothing limits them.
  virtual double remaining() = 0;
};

}  // namespace zln
