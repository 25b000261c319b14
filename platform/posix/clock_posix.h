#pragma once

#include "platform/clock.h"

namespace zln {

class ClockPosix : public Clock {
 public:
  Date now() override;
  void sleep(unsigned seconds) override;
};

}  // namespace zln
