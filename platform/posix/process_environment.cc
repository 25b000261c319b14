#include "platform/posix/process_environment.h"

#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <vector>

#include "platform/path.h"

namespace zln {

namespace {

constexpr std::size_t kLargestUserEntry = std::size_t{1} << 20;

bool isAbsolute(const std::optional<std::string>& path) {
  return path.has_value() && path->starts_with('/');
}

std::optional<std::string> homeFromUserDatabase() {
  for (std::size_t size = 1024; size <= kLargestUserEntry; size *= 4) {
    std::vector<char> texts(size);
    passwd entry{};
    passwd* found = nullptr;
    const int failure = getpwuid_r(getuid(), &entry, texts.data(), texts.size(), &found);
    if (failure == ERANGE) continue;
    if (failure != 0 || found == nullptr || found->pw_dir == nullptr) return std::nullopt;
    return std::string(found->pw_dir);
  }
  return std::nullopt;
}

std::string folder(const VariableLookup& variable, const char* name, const char* inHome) {
  const auto given = variable(name);
  return isAbsolute(given) ? *given : appendPathComponent(homeFolder(variable), inHome);
}

}  // namespace

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

std::string homeFolder(const VariableLookup& variable) {
  if (const auto home = variable("HOME"); isAbsolute(home)) return *home;
  if (const auto home = homeFromUserDatabase(); isAbsolute(home)) return *home;
  return "/";
}

std::string dataFolder(const VariableLookup& variable) {
  return folder(variable, "XDG_DATA_HOME", ".local/share");
}

std::string configFolder(const VariableLookup& variable) {
  return folder(variable, "XDG_CONFIG_HOME", ".config");
}

}  // namespace zln
