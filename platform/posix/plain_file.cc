#include "platform/posix/plain_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace zln {

namespace {

constexpr std::size_t kPieceSize = 4096;

}  // namespace

FileDescriptor openPlainFile(const std::string& path) {
  // Opening without blocking keeps a pipe that nobody writes to from holding the caller.
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
  FileDescriptor file(open(path.c_str(), kFlags | O_NONBLOCK));
  struct stat facts {};
  if (!file && errno == EWOULDBLOCK && stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode)) {
    // Somebody has the file for himself for a moment.
    file = FileDescriptor(open(path.c_str(), kFlags));
  }
  if (file && (fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode))) {
    file.close();
    errno = ENOENT;
  }
  return file;
}

// Reads on to the end, whatever size the system names: a file may grow meanwhile, and some files of
// the system do not know their size.
std::optional<std::string> readToEnd(int file, std::size_t limit) {
  struct stat facts {};
  if (fstat(file, &facts) != 0) return std::nullopt;
  std::size_t wanted = static_cast<std::size_t>(std::max<off_t>(facts.st_size, 0));
  std::string content;
  while (wanted <= limit && content.size() <= limit) {
    const std::size_t before = content.size();
    wanted = std::min(std::max(wanted, kPieceSize), limit + 1 - before);
    content.resize(before + wanted);
    const ssize_t count = read(file, content.data() + before, wanted);
    content.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
    if (count == 0) return content;
    if (count < 0 && errno != EINTR) return std::nullopt;
    wanted = 0;
  }
  errno = EFBIG;
  return std::nullopt;
}

std::optional<std::string> readPlainFile(const std::string& path, std::size_t limit) {
  const FileDescriptor file = openPlainFile(path);
  return file ? readToEnd(file.get(), limit) : std::nullopt;
}

}  // namespace zln
