#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/device_facts.h"
#include "platform/posix/application_info.h"
#include "platform/posix/process_environment.h"

namespace zln {

class DeviceFactsPosix : public DeviceFacts {
 public:
  // Where this machine's facts come from. Of the release files the first that can be read counts;
  // an empty library version is an absent one.
  struct Sources {
    std::string libraryVersion;
    std::vector<std::string> releaseFiles = {"/etc/os-release", "/usr/lib/os-release"};
    VariableLookup variable = &environmentVariable;
  };

  DeviceFactsPosix(const ApplicationInfo& application, Sources sources);

  std::string machine() override;
  // The VERSION_ID of the distribution, else the release of the kernel.
  std::string systemVersion() override;
  std::optional<std::string> mainBundleValue(std::string_view key) override;
  std::optional<std::string> libraryBundleValue(std::string_view key) override;
  // From the first that is set of LC_ALL, LC_MESSAGES and LANG.
  std::optional<std::string> countryCode() override;

 private:
  const ApplicationInfo& application_;
  const Sources sources_;
};

}  // namespace zln
