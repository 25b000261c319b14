#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/log_sink.h"

namespace zln {

// Log lines go to the host's sink, or else with a stamp to a file, normally the standard error
// output: "2023-11-14 22:13:20.123456+0000 App[123:4567] text", in local time.
class LogSinkPosix : public LogSink {
 public:
  using HostSink = void (*)(const char* line, void* context);

  LogSinkPosix(Clock& clock, std::string applicationName, int file);

  // Sends all lines to `sink`; null takes it away. A line on its way may still reach the old one.
  void setHostSink(HostSink sink, void* context);

  // The host's sink takes text up to a zero byte, so zero bytes in the line become U+FFFD there.
  void write(std::string_view line) override;

 private:
  struct Receiver {
    HostSink sink = nullptr;
    void* context = nullptr;
  };

  Receiver receiver();
  std::string stamped(std::string_view line);

  Clock& clock_;
  const std::string applicationName_;
  const int file_;
  std::mutex mutex_;
  Receiver receiver_;
};

}  // namespace zln
