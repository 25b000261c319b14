#include "platform/posix/device_facts_posix.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "platform/posix/plain_file.h"
#include "platform/utf8.h"

namespace zln {

namespace {

constexpr std::size_t kReleaseFileLimit = std::size_t{64} * 1024;
constexpr std::string_view kVersionAssignment = "VERSION_ID=";
constexpr std::string_view kBlanks = " \t\r";

utsname systemNames() {
  utsname names{};
  uname(&names);
  return names;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The text that a shell would take from the assigned word: without its quotes, and outside single
// quotes without the backslashes.
std::string unquoted(std::string_view word) {
  const bool isQuoted = word.size() >= 2 && (word.front() == '"' || word.front() == '\'') &&
                        word.back() == word.front();
  const bool isLiteral = isQuoted && word.front() == '\'';
  if (isQuoted) word = word.substr(1, word.size() - 2);
  std::string text;
  for (std::size_t index = 0; index < word.size(); ++index) {
    if (!isLiteral && word[index] == '\\' && index + 1 < word.size()) ++index;
    text += word[index];
  }
  return text;
}

// The last assignment counts, as it would in a shell; empty when there is none.
std::string versionIn(std::string_view releaseFile) {
  std::string version;
  while (!releaseFile.empty()) {
    const auto end = std::min(releaseFile.find('\n'), releaseFile.size());
    const std::string_view line = trimmed(releaseFile.substr(0, end));
    if (line.starts_with(kVersionAssignment)) {
      version = unquoted(line.substr(kVersionAssignment.size()));
    }
    releaseFile.remove_prefix(std::min(end + 1, releaseFile.size()));
  }
  return version;
}

bool isUpperLetter(char letter) { return letter >= 'A' && letter <= 'Z'; }
bool isDigit(char digit) { return digit >= '0' && digit <= '9'; }

bool isRegion(std::string_view text) {
  return (text.size() == 2 && std::all_of(text.begin(), text.end(), isUpperLetter)) ||
         (text.size() == 3 && std::all_of(text.begin(), text.end(), isDigit));
}

// The region of a locale like "de_AT.UTF-8@euro".
std::optional<std::string> regionOf(std::string_view locale) {
  locale = locale.substr(0, locale.find_first_of(".@"));
  const auto underscore = locale.find('_');
  if (underscore == std::string_view::npos) return std::nullopt;
  const std::string_view region = locale.substr(underscore + 1);
  return isRegion(region) ? std::optional<std::string>(region) : std::nullopt;
}

}  // namespace

DeviceFactsPosix::DeviceFactsPosix(const ApplicationInfo& application, Sources sources)
    : application_(application), sources_(std::move(sources)) {}

std::string DeviceFactsPosix::machine() { return systemNames().machine; }

std::string DeviceFactsPosix::systemVersion() {
  std::string version;
  for (const auto& path : sources_.releaseFiles) {
    if (const auto content = readPlainFile(path, kReleaseFileLimit)) {
      version = versionIn(*content);
      break;
    }
  }
  return sanitizedUtf8(version.empty() ? systemNames().release : version);
}

std::optional<std::string> DeviceFactsPosix::mainBundleValue(std::string_view key) {
  if (key == kBundleIdentifierKey) return application_.bundleIdentifier();
  if (key == kBundleShortVersionKey) return application_.shortVersion();
  return std::nullopt;
}

std::optional<std::string> DeviceFactsPosix::libraryBundleValue(std::string_view key) {
  if (key != kBundleShortVersionKey || sources_.libraryVersion.empty()) return std::nullopt;
  return sources_.libraryVersion;
}

std::optional<std::string> DeviceFactsPosix::countryCode() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const auto locale = sources_.variable(name); locale && !locale->empty()) {
      return regionOf(*locale);
    }
  }
  return std::nullopt;
}

}  // namespace zln
