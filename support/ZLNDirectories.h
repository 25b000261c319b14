#pragma once

#include <string>

namespace zln {

// Where the library keeps its files. Has no state; all operations are class-level and may be called
// from any thread. Failures are logged.
class ZLNDirectories {
 public:
  // Folder paths, without a separator at the end.
  static std::string rootPath();
  static std::string reportingPath();
  static std::string dataPath();

  // Creates the folders that are missing and keeps each that it creates out of the backup.
  static void makeDirectories();

  // Runs clearFolder on the reporting and the data folder.
  static void clear();
  // Removes what the folder holds. The path must end in a separator for that.
  static void clearFolder(const std::string& folder);

 private:
  static void makeDirectory(const std::string& path, const char* failureMessage);
};

}  // namespace zln
