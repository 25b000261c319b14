#include "platform/posix/log_sink_posix.h"

#include <pthread.h>
#include <signal.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <utility>

#include "platform/number_text.h"
#include "platform/utf8.h"

namespace zln {

namespace {

constexpr char32_t kReplacement = 0xfffd;
// The largest moment, in seconds from 1970 either way, whose microseconds are still counted well.
constexpr double kFarthestSecond = 9e9;
constexpr long long kMicrosecondsPerSecond = 1'000'000;

void appendOffset(std::string& out, long secondsEast) {
  const long minutes = (secondsEast < 0 ? -secondsEast : secondsEast) / 60;
  out += secondsEast < 0 ? '-' : '+';
  appendPaddedNumber(out, minutes / 60, 2);
  appendPaddedNumber(out, minutes % 60, 2);
}

// "2023-11-14 22:13:20.123456+0000".
void appendStamp(std::string& out, Date date) {
  const double seconds = date.secondsSince1970;
  const bool isUsable = std::abs(seconds) < kFarthestSecond;
  const long long microseconds = isUsable ? std::llround(seconds * kMicrosecondsPerSecond) : 0;
  long long fraction = microseconds % kMicrosecondsPerSecond;
  if (fraction < 0) fraction += kMicrosecondsPerSecond;
  const auto second = static_cast<time_t>((microseconds - fraction) / kMicrosecondsPerSecond);
  tm local{};
  localtime_r(&second, &local);

  appendPaddedNumber(out, local.tm_year + 1900LL, 4);
  appendPaddedNumber(out += '-', local.tm_mon + 1LL, 2);
  appendPaddedNumber(out += '-', local.tm_mday, 2);
  appendPaddedNumber(out += ' ', local.tm_hour, 2);
  appendPaddedNumber(out += ':', local.tm_min, 2);
  appendPaddedNumber(out += ':', local.tm_sec, 2);
  appendPaddedNumber(out += '.', fraction, 6);
  appendOffset(out, local.tm_gmtoff);
}

// Keeps a write to a pipe that nobody reads from ending the process: the signal is held back while
// this lives, and taken away if it came.
class PipeSignalHeld {
 public:
  PipeSignalHeld() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    wasPending_ = isPending();
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~PipeSignalHeld() {
    const timespec atOnce{};
    if (!wasPending_ && isPending()) {
      while (sigtimedwait(&pipe_, nullptr, &atOnce) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  PipeSignalHeld(const PipeSignalHeld&) = delete;
  PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;

 private:
  static bool isPending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  }

  sigset_t pipe_;
  sigset_t before_;
  bool wasPending_;
};

// One call writes the line, so that lines of several threads do not mix; more calls only when the
// file takes it in pieces. What it does not take at all is lost.
void writeAtOnce(int file, std::string_view text) {
  const PipeSignalHeld held;
  while (!text.empty()) {
    const ssize_t count = ::write(file, text.data(), text.size());
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return;
    }
  }
}

std::string withoutZeroBytes(std::string_view line) {
  std::string text;
  text.reserve(line.size());
  for (const char byte : line) {
    if (byte == '\0') {
      appendUtf8(text, kReplacement);
    } else {
      text += byte;
    }
  }
  return text;
}

}  // namespace

LogSinkPosix::LogSinkPosix(Clock& clock, std::string applicationName, int file)
    : clock_(clock), applicationName_(std::move(applicationName)), file_(file) {}

void LogSinkPosix::setHostSink(HostSink sink, void* context) {
  std::lock_guard lock(mutex_);
  receiver_ = {sink, context};
}

void LogSinkPosix::write(std::string_view line) {
  if (const auto [sink, context] = receiver(); sink != nullptr) {
    sink(withoutZeroBytes(line).c_str(), context);
  } else {
    writeAtOnce(file_, stamped(line));
  }
}

LogSinkPosix::Receiver LogSinkPosix::receiver() {
  std::lock_guard lock(mutex_);
  return receiver_;
}

std::string LogSinkPosix::stamped(std::string_view line) {
  std::string text;
  text.reserve(line.size() + applicationName_.size() + 64);
  appendStamp(text, clock_.now());
  text.append(" ").append(applicationName_).append("[");
  appendNumber(text, std::int64_t{getpid()});
  appendNumber(text += ':', std::int64_t{gettid()});
  text.append("] ").append(line).append("\n");
  return text;
}

}  // namespace zln
