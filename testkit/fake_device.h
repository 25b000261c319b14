#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/device_facts.h"

namespace zln {

// A device that is whatever a test says it is.
class FakeDevice : public DeviceFacts {
 public:
  std::string machine() override { return machineName; }
  std::string systemVersion() override { return systemVersionText; }
  std::optional<std::string> mainBundleValue(std::string_view key) override;
  std::optional<std::string> libraryBundleValue(std::string_view key) override;
  std::optional<std::string> countryCode() override { return country; }

  std::string machineName = "iPhone14,5";
  std::string systemVersionText = "17.5.1";
  std::optional<std::string> bundleIdentifier = "com.example.game";
  std::optional<std::string> bundleShortVersion = "1.2.3";
  std::optional<std::string> libraryVersion = "7.0.0";
  std::optional<std::string> country = "DE";
};

}  // namespace zln
