#include "testkit/fake_device.h"

namespace zln {

std::optional<std::string> FakeDevice::mainBundleValue(std::string_view key) {
  if (key == kBundleIdentifierKey) return bundleIdentifier;
  if (key == kBundleShortVersionKey) return bundleShortVersion;
  return std::nullopt;
}

std::optional<std::string> FakeDevice::libraryBundleValue(std::string_view key) {
  if (key == kBundleShortVersionKey) return libraryVersion;
  return std::nullopt;
}

}  // namespace zln
