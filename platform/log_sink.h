#pragma once

#include <string_view>

namespace zln {

// Takes finished log lines. Any thread may call it, several at once.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(std::string_view line) = 0;
};

}  // namespace zln
