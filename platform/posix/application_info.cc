#include "platform/posix/application_info.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace zln {

namespace {

// A name may have 255 bytes; the rest is for a suffix.
constexpr std::size_t kLongestFileName = 240;

constexpr char kUnknownProgram[] = "application";
constexpr std::string_view kDeletedMark = " (deleted)";

// Where to cut so that no UTF-8 sequence is split.
std::size_t cutPosition(std::string_view text) {
  std::size_t position = std::min(text.size(), kLongestFileName);
  if (position == text.size()) return position;
  while (position > 0 && (static_cast<unsigned char>(text[position]) & 0xc0) == 0x80) --position;
  return position;
}

}  // namespace

std::optional<std::string> asFileName(std::string_view identifier) {
  std::string name(identifier.substr(0, cutPosition(identifier)));
  if (name.empty()) return std::nullopt;
  std::replace(name.begin(), name.end(), '/', '_');
  std::replace(name.begin(), name.end(), '\0', '_');
  if (name == "." || name == "..") std::replace(name.begin(), name.end(), '.', '_');
  return name;
}

std::string executableName() {
  std::array<char, 4096> target;
  const ssize_t length = readlink("/proc/self/exe", target.data(), target.size());
  if (length <= 0) return kUnknownProgram;
  return executableName(std::string_view(target.data(), static_cast<std::size_t>(length)));
}

std::string executableName(std::string_view path) {
  if (path.ends_with(kDeletedMark)) path.remove_suffix(kDeletedMark.size());
  return std::string(path.substr(path.rfind('/') + 1));
}

bool ApplicationInfo::set(std::optional<std::string> bundleIdentifier,
                          std::optional<std::string> shortVersion) {
  std::lock_guard lock(mutex_);
  bundleIdentifier_ = std::move(bundleIdentifier);
  shortVersion_ = std::move(shortVersion);
  return !folderName_ || *folderName_ == folderNameNow();
}

std::optional<std::string> ApplicationInfo::bundleIdentifier() const {
  std::lock_guard lock(mutex_);
  return bundleIdentifier_;
}

std::optional<std::string> ApplicationInfo::shortVersion() const {
  std::lock_guard lock(mutex_);
  return shortVersion_;
}

std::string ApplicationInfo::folderName() {
  std::lock_guard lock(mutex_);
  if (!folderName_) folderName_ = folderNameNow();
  return *folderName_;
}

std::string ApplicationInfo::folderNameNow() const {
  if (const auto name = asFileName(bundleIdentifier_.value_or(""))) return *name;
  return asFileName(executableName()).value_or(kUnknownProgram);
}

}  // namespace zln
