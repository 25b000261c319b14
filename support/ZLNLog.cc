#include "ZLNSessionReporting/ZLNLog.h"

#include <cstdarg>
#include <optional>
#include <string>

#include "platform/forked_process.h"
#include "platform/utf8.h"
#include "support/held_log_lines.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {
namespace {

void writeLine(std::string_view message) {
  std::string line = "ZLN Session: ";
  line += message;
  if (!HeldLogLines::take(line)) environment().logSink.write(line);
}

// The message is always made, also when the line is then filtered out: a caller of the C functions
// may count on its arguments being read.
void logList(LogLevel level, const char* format, std::va_list arguments) {
  if (isForkedProcess()) return;
  const std::optional<std::string> message = renderFormatList(format, arguments);
  if (message && isLogged(level)) writeLine(*message);
}

}  // namespace

bool isLogged(LogLevel level) {
  return processState().currentLogLevel.get() >= static_cast<std::uint64_t>(level);
}

void writeLog(std::string_view format, std::span<const FormatArgument> arguments) {
  writeLine(renderFormat(format, arguments));
}

}  // namespace zln

void ZLNLogSetLevel(uint64_t level) {
  if (!zln::isForkedProcess()) zln::processState().currentLogLevel.set(level);
}

void ZLNLogError(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  zln::logList(zln::LogLevel::error, format, arguments);
  va_end(arguments);
}

void ZLNLogWarn(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  zln::logList(zln::LogLevel::warn, format, arguments);
  va_end(arguments);
}

void ZLNLogInfo(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  zln::logList(zln::LogLevel::info, format, arguments);
  va_end(arguments);
}

void ZLNLogDebug(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  zln::logList(zln::LogLevel::debug, format, arguments);
  va_end(arguments);
}

void ZLNLogVerbose(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  zln::logList(zln::LogLevel::verbose, format, arguments);
  va_end(arguments);
}

void ZLNLogSuperVerbose(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  zln::logList(zln::LogLevel::superVerbose, format, arguments);
  va_end(arguments);
}

void internalLog(const char* message, uint64_t level) {
  if (zln::isForkedProcess() || zln::processState().currentLogLevel.get() < level) return;
  zln::writeLine(message == nullptr ? zln::kAbsentText : zln::mendUtf8(message));
}
