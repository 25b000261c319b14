#include "tests/support/file_contents.h"

#include <poll.h>
#include <sys/inotify.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/posix/file_descriptor.h"
#include "tests/support/safety_limit.h"

namespace zln {

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

bool awaitContents(const std::string& path,
                   const std::function<bool(const std::string& contents)>& isWanted) {
  const FileDescriptor changes(inotify_init1(IN_CLOEXEC));
  // Of the folder, because a file may be replaced.
  const std::string folder = std::filesystem::path(path).parent_path();
  inotify_add_watch(changes.get(), folder.c_str(), IN_MODIFY | IN_MOVED_TO);
  while (!isWanted(contentsOf(path))) {
    pollfd waiting{changes.get(), POLLIN, 0};
    char events[4096];
    const int limit = static_cast<int>(std::chrono::milliseconds(kSafetyLimit).count());
    if (poll(&waiting, 1, limit) != 1 || read(changes.get(), events, sizeof events) <= 0) {
      return false;
    }
  }
  return true;
}

}  // namespace zln
