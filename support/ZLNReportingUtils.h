#pragma once

#include <optional>
#include <string>

namespace zln {

// Small facts that sessions, reports and the settings request carry, and the on-switch. All
// operations are class-level and may be called from any thread.
class ZLNReportingUtils {
 public:
  // The hardware model, asked anew each time; absent when the system's bytes are not UTF-8.
  static std::optional<std::string> getDeviceName();

  // The version of the game engine: "0.0.0" until it is set, absent when it was set to absent.
  static void setMarlwickVersion(std::optional<std::string> version);
  static std::optional<std::string> getMarlwickVersion();

  // The version of this library; absent when its bundle names none.
  static std::optional<std::string> getReportingVersion();

  // Switches the library on for the rest of the process.
  static void enable();
  static bool isEnabled();
};

}  // namespace zln
