#include "platform/posix/plain_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace zln {

namespace {

constexpr std::size_t kPieceSize = 4096;
// How often another file may come in place while one is being opened.
constexpr int kOpenings = 100;

bool isAt(const FileDescriptor& file, const std::string& path) {
  struct stat opened {};
  struct stat inPlace {};
  return fstat(file.get(), &opened) == 0 && stat(path.c_str(), &inPlace) == 0 &&
         opened.st_dev == inPlace.st_dev && opened.st_ino == inPlace.st_ino;
}

// The file that is in place, which an AtomicFile of this library does not write to while it is open
// here. Where the system locks nothing, it is opened all the same.
FileDescriptor openLocked(const std::string& path) {
  for (int attempt = 0;; ++attempt) {
    FileDescriptor file = openPlainFile(path);
    if (!file || attempt == kOpenings) return file;
    const bool isBeingWritten = flock(file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (!isBeingWritten && isAt(file, path)) return file;
  }
}

}  // namespace

FileDescriptor openPlainFile(const std::string& path) {
  // Opening without blocking keeps a pipe that nobody writes to from holding the caller.
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  FileDescriptor file(open(path.c_str(), kFlags));
  struct stat facts {};
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

bool writeFrom(int file, std::string_view content, std::size_t at) {
  while (at < content.size()) {
    const ssize_t count =
        pwrite(file, content.data() + at, content.size() - at, static_cast<off_t>(at));
    if (count >= 0) {
      at += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

std::optional<std::string> readPlainFile(const std::string& path, std::size_t limit) {
  const FileDescriptor file = openLocked(path);
  return file ? readToEnd(file.get(), limit) : std::nullopt;
}

}  // namespace zln
