#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace zln {

// The identifier as the name of one file or folder: what a name cannot hold becomes '_', and so do
// the dots of "." and "..". Cut so that a suffix like ".plist" still fits; absent when empty.
std::optional<std::string> asFileName(std::string_view identifier);

// The name of the running program's file.
std::string executableName();
// The same from the path that the system gives for it, which is marked once the file is deleted, as
// when the game is updated while it runs.
std::string executableName(std::string_view path);

// What the host has said of the application. Any thread may call it.
class ApplicationInfo {
 public:
  // False when folderName() has already answered with another name, by which it stays.
  bool set(std::optional<std::string> bundleIdentifier, std::optional<std::string> shortVersion);

  std::optional<std::string> bundleIdentifier() const;
  std::optional<std::string> shortVersion() const;

  // The name that the application's own files have in folders that all programs share: its
  // identifier, or the executable's name when there is none at the first call. It never changes, so
  // that all files of a process are in one place.
  std::string folderName();

 private:
  std::string folderNameNow() const;

  mutable std::mutex mutex_;
  std::optional<std::string> bundleIdentifier_;
  std::optional<std::string> shortVersion_;
  std::optional<std::string> folderName_;
};

}  // namespace zln
