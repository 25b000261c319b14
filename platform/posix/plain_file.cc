#include "platform/posix/plain_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/file_descriptor.h"

namespace zln {

namespace {

constexpr std::size_t kPieceSize = 64 * 1024;

// Reads to the end or until there are more than `limit` bytes: a file may grow meanwhile, and some
// files of the system do not know their size.
bool readToEnd(int file, std::string& content, std::size_t limit) {
  while (content.size() <= limit) {
    const std::size_t before = content.size();
    content.resize(before + std::min(kPieceSize, limit + 1 - before));
    const ssize_t count = read(file, content.data() + before, content.size() - before);
    content.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
    if (count == 0) return true;
    if (count < 0 && errno != EINTR) return false;
  }
  return false;
}

}  // namespace

std::optional<std::string> readPlainFile(const std::string& path, std::size_t limit) {
  // Opening without blocking keeps a pipe that nobody writes to from holding the caller.
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return std::nullopt;
  struct stat facts {};
  if (fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
  if (facts.st_size > 0 && static_cast<std::size_t>(facts.st_size) > limit) return std::nullopt;

  std::string content;
  if (!readToEnd(file.get(), content, limit)) return std::nullopt;
  return content;
}

}  // namespace zln
