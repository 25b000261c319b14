#pragma once

#include "platform/date.h"

namespace zln {

class Clock {
 public:
  virtual ~Clock() = default;
  // The wall clock, which people and networks set forward and back.
  virtual Date now() = 0;
  // Holds the calling thread for whole seconds.
  virtual void sleep(unsigned seconds) = 0;
};

}  // namespace zln
