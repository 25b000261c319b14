#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zln {

// What the device, the system and the bundles say of themselves. Any thread may call it.
class DeviceFacts {
 public:
  virtual ~DeviceFacts() = default;
  // The machine field of uname, as the raw bytes that the system gives.
  virtual std::string machine() = 0;
  virtual std::string systemVersion() = 0;
  // A value of the application's information dictionary.
  virtual std::optional<std::string> mainBundleValue(std::string_view key) = 0;
  // A value of the information dictionary of this library.
  virtual std::optional<std::string> libraryBundleValue(std::string_view key) = 0;
  // The region of the current locale: two letters, or three digits for a larger area.
  virtual std::optional<std::string> countryCode() = 0;
};

// Keys of the information dictionaries.
inline constexpr char kBundleIdentifierKey[] = "CFBundleIdentifier";
inline constexpr char kBundleShortVersionKey[] = "CFBundleShortVersionString";

}  // namespace zln
