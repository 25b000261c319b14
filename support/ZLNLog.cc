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

#define ZLN_DEFINE_LOG_FUNCTION(name, level) \
  void name(const char* format, ...) {       \
    std::va_list arguments;                  \
    va_start(arguments, format);             \
    zln::logList(level, format, arguments);  \
    va_end(arguments);                       \
  }

ZLN_DEFINE_LOG_FUNCTION(ZLNLogError, zln::LogLevel::error)
ZLN_DEFINE_LOG_FUNCTION(ZLNLogWarn, zln::LogLevel::warn)
ZLN_DEFINE_LOG_FUNCTION(ZLNLogInfo, zln::LogLevel::info)
ZLN_DEFINE_LOG_FUNCTION(ZLNLogDebug, zln::LogLevel::debug)
ZLN_DEFINE_LOG_FUNCTION(ZLNLogVerbose, zln::LogLevel::verbose)
ZLN_DEFINE_LOG_FUNCTION(ZLNLogSuperVerbose, zln::LogLevel::superVerbose)

void internalLog(const char* message, uint64_t level) {
  if (zln::isForkedProcess() || zln::processState().currentLogLevel.get() < level) return;
  zln::writeLine(zln::sanitizedText(message).value_or(zln::kAbsentText));
}
