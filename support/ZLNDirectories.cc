#include "support/ZLNDirectories.h"

#include "platform/path.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {

std::string ZLNDirectories::rootPath() {
  return appendPathComponent(environment().files.applicationSupportPath(), "/com.zelnor.sdk/");
}

std::string ZLNDirectories::reportingPath() {
  return appendPathComponent(rootPath(), "reporting/");
}

std::string ZLNDirectories::dataPath() { return appendPathComponent(rootPath(), "data/"); }

void ZLNDirectories::makeDirectories() {
  makeDirectory(rootPath(), "unable to create root path!");
  // Kept: the message names another folder than the one it is about.
  makeDirectory(reportingPath(), "unable to create previews path!");
  makeDirectory(dataPath(), "unable to create data path!");
}

void ZLNDirectories::makeDirectory(const std::string& path, const char* failureMessage) {
  Files& files = environment().files;
  if (files.exists(path)) return;
  if (!files.createDirectory(path, nullptr)) logError(failureMessage);
  Error error;
  if (!files.excludeFromBackup(path, &error)) {
    logError("Error: Unable to exclude directory from backup: %@", error);
  }
}

void ZLNDirectories::clear() {
  clearFolder(reportingPath());
  clearFolder(dataPath());
}

void ZLNDirectories::clearFolder(const std::string& folder) {
  Files& files = environment().files;
  if (!files.exists(folder)) return;
  files.enumerate(folder, [&](const std::string& relativePath) {
    // Kept: no separator is inserted, so a folder path without one at its end clears nothing.
    const std::string path = folder + relativePath;
    Error error;
    if (!files.remove(path, &error)) logError("Failed to remove file %@: %@", path, error);
  });
}

}  // namespace zln
