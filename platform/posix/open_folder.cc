#include "platform/posix/open_folder.h"

#include <dirent.h>

#include <memory>
#include <utility>

#include "platform/posix/file_descriptor.h"

namespace zln {

std::vector<std::string> namesIn(int folder) {
  std::vector<std::string> names;
  // The stream takes a file of its own and closes it.
  FileDescriptor file(openat(folder, ".", kFolderFlags));
  if (!file) return names;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(file.get()), &closedir);
  if (stream == nullptr) return names;
  file.release();
  while (const dirent* entry = readdir(stream.get())) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  return names;
}

}  // namespace zln
