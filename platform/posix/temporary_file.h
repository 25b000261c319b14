#pragma once

#include <string>
#include <string_view>

#include "platform/posix/file_descriptor.h"

namespace zln {

// A new file that is filled under a hidden name and then takes the place of another in its folder.
//
// As long as it has the hidden name it is locked. A process that is killed leaves its file behind
// and loses the lock, so a file of such a name that nobody has locked is a left-over: it goes with
// the next write in the folder, whoever writes.
class TemporaryFile {
 public:
  // For the file at this path.
  explicit TemporaryFile(std::string path);
  // Removes the file unless it has been put in its place.
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // Each is zero, or an errno.
  int create();
  int write(std::string_view bytes);
  int flush();
  int putInPlace();

  // Removes what killed processes have left in the folder of this path.
  static void removeLeftOvers(const std::string& path);

 private:
  const std::string path_;
  FileDescriptor file_{-1};
  // Empty unless the file lies there.
  std::string hiddenPath_;
};

}  // namespace zln
