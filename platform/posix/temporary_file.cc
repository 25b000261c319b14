#include "platform/posix/temporary_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

#include "platform/path.h"
#include "platform/posix/open_folder.h"
#include "platform/posix/plain_file.h"

namespace zln {

namespace {

constexpr std::string_view kPrefix = ".zln.dat.nosync.";
// In the place of these stand letters that no other file has.
constexpr std::string_view kLetters = "XXXXXX";
// How often a new file may be lost to somebody who removes left-overs.
constexpr int kTries = 100;

// Fails when the new file has been taken for a left-over before it could be locked. Where the
// system locks nothing, nothing is taken for a left-over either.
bool lockNewFile(int file) {
  if (flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
  struct stat facts {};
  return fstat(file, &facts) != 0 || facts.st_nlink > 0;
}

bool isHiddenName(std::string_view name) {
  return name.starts_with(kPrefix) && name.size() == kPrefix.size() + kLetters.size();
}

bool isPlainFile(int file) {
  struct stat facts {};
  return fstat(file, &facts) == 0 && S_ISREG(facts.st_mode);
}

// The lock is kept until the file is gone: who has made it just now sees that it is lost.
void removeIfLeftOver(int folder, const std::string& name) {
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const FileDescriptor file(openat(folder, name.c_str(), kFlags));
  if (!file || !isPlainFile(file.get())) return;
  if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) unlinkat(folder, name.c_str(), 0);
}

}  // namespace

TemporaryFile::TemporaryFile(std::string path) : path_(std::move(path)) {}

TemporaryFile::~TemporaryFile() {
  if (!hiddenPath_.empty()) unlink(hiddenPath_.c_str());
}

int TemporaryFile::create() {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    std::string hiddenPath = folderOf(path_).append(kPrefix).append(kLetters);
    // Makes a file that was not there before, not even as a symbolic link, with the mode 0600.
    file_ = FileDescriptor(mkostemp(hiddenPath.data(), O_CLOEXEC));
    if (!file_) return errno;
    if (!lockNewFile(file_.get())) continue;
    hiddenPath_ = std::move(hiddenPath);
    return 0;
  }
  return EBUSY;
}

int TemporaryFile::write(std::string_view bytes) {
  return writeFrom(file_.get(), bytes, 0) ? 0 : errno;
}

int TemporaryFile::flush() { return fsync(file_.get()) == 0 ? 0 : errno; }

int TemporaryFile::putInPlace() {
  // Closing tells what writing has not. The file itself stays open, and so locked, until it lies in
  // its place.
  FileDescriptor copy(fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy || (!copy.close() && errno != EINTR)) return errno;
  if (rename(hiddenPath_.c_str(), path_.c_str()) != 0) return errno;
  hiddenPath_.clear();
  return 0;
}

void TemporaryFile::removeLeftOvers(const std::string& path) {
  const FileDescriptor folder(open(folderOf(path).c_str(), kFolderFlags));
  if (!folder) return;
  for (const auto& name : namesIn(folder.get())) {
    if (isHiddenName(name)) removeIfLeftOver(folder.get(), name);
  }
}

}  // namespace zln
