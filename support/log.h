#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "support/text_format.h"

namespace zln {

enum class LogLevel : std::uint64_t { error, warn, info, debug, verbose, superVerbose };

// True when the process-wide threshold lets lines of this level through.
bool isLogged(LogLevel level);

// Formats the message and writes it as one line with the library's prefix, unfiltered.
void writeLog(std::string_view format, std::span<const FormatArgument> arguments);

// The log functions of the library's own code. "%@" takes anything that objectText() knows, the
// other conversions take numbers. Objects are described during the call, and only for a line that
// will be written: describing one only reads it, so a description that is left out goes unnoticed.
template <typename... Arguments>
void logAt(LogLevel level, std::string_view format, const Arguments&... arguments) {
  if (!isLogged(level)) return;
  const std::array<FormatArgument, sizeof...(Arguments)> list{formatArgument(arguments)...};
  writeLog(format, list);
}

template <typename... Arguments>
void logError(std::string_view format, const Arguments&... arguments) {
  logAt(LogLevel::error, format, arguments...);
}

template <typename... Arguments>
void logWarn(std::string_view format, const Arguments&... arguments) {
  logAt(LogLevel::warn, format, arguments...);
}

template <typename... Arguments>
void logInfo(std::string_view format, const Arguments&... arguments) {
  logAt(LogLevel::info, format, arguments...);
}

template <typename... Arguments>
void logDebug(std::string_view format, const Arguments&... arguments) {
  logAt(LogLevel::debug, format, arguments...);
}

template <typename... Arguments>
void logVerbose(std::string_view format, const Arguments&... arguments) {
  logAt(LogLevel::verbose, format, arguments...);
}

template <typename... Arguments>
void logSuperVerbose(std::string_view format, const Arguments&... arguments) {
  logAt(LogLevel::superVerbose, format, arguments...);
}

}  // namespace zln
