#include "platform/posix/atomic_file_posix.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/path.h"
#include "platform/posix/open_folder.h"
#include "platform/posix/plain_file.h"

namespace zln {
namespace {

constexpr int kSpareFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr mode_t kPrivate = 0600;
constexpr mode_t kModeBits = 07777;

bool isFolder(const std::string& path) {
  struct stat facts {};
  return lstat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

// Ours alone: whatever else is there must not be written to.
bool isOurs(const struct stat& facts, uid_t user) {
  return S_ISREG(facts.st_mode) && facts.st_nlink == 1 && facts.st_uid == user &&
         (facts.st_mode & kModeBits) == kPrivate;
}

}  // namespace

AtomicFilePosix::AtomicFilePosix(Files& files, std::string path, std::string sparePath,
                                 RunLater runLater)
    : files_(files),
      path_(std::move(path)),
      sparePath_(std::move(sparePath)),
      runLater_(std::move(runLater)),
      user_(geteuid()) {}

// A child of the game may have the folder open as well, so closing it alone would not do.
AtomicFilePosix::~AtomicFilePosix() {
  if (folder_) flock(folder_.get(), LOCK_UN);
}

bool AtomicFilePosix::replace(std::string_view content, std::size_t unchangedPrefix, Error* error) {
  std::lock_guard lock(mutex_);
  const bool isSame = unchangedPrefix == content.size() && unchangedPrefix == current_.size;
  if (isSame && isAt(current_, path_)) return true;
  if (exchange(content, unchangedPrefix)) {
    if (runLater_ && !std::exchange(isFlushDue_, true)) {
      runLater_([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->flush();
      });
    }
    return true;
  }
  current_ = {};
  spare_ = {};
  return files_.writeAtomically(path_, content, Durability::eventual, error);
}

bool AtomicFilePosix::exchange(std::string_view content, std::size_t unchangedPrefix) {
  const bool isUpToDate =
      ((isAt(spare_, sparePath_) || openSpare(0)) && update(content, unchangedPrefix)) ||
      (openSpare(O_CREAT | O_EXCL) && update(content, 0));
  if (!isUpToDate || !putSpareInPlace()) return false;
  current_.shared = content.size();
  spare_.shared = std::min(spare_.shared, unchangedPrefix);
  return true;
}

bool AtomicFilePosix::isAt(const Side& side, const std::string& path) {
  struct stat facts {};
  return side.file && lstat(path.c_str(), &facts) == 0 && facts.st_dev == side.device &&
         facts.st_ino == side.inode && facts.st_nlink == 1;
}

// Opens what is there, which is what was in place before or what an earlier process left, or makes
// a new file in its place.
bool AtomicFilePosix::openSpare(int moreFlags) {
  spare_ = {};
  const bool isNew = (moreFlags & O_CREAT) != 0;
  if (!ownSpare()) return false;
  if (isNew) unlink(sparePath_.c_str());
  auto file =
      std::make_shared<FileDescriptor>(open(sparePath_.c_str(), kSpareFlags | moreFlags, kPrivate));
  struct stat facts {};
  if (!*file || fstat(file->get(), &facts) != 0 || !isOurs(facts, user_)) return false;
  spare_ = {std::move(file), facts.st_dev, facts.st_ino, static_cast<std::size_t>(facts.st_size),
            0};
  return true;
}

// Of several processes with the same folder one at a time has the spare path. The folder may be
// another one than the last time.
bool AtomicFilePosix::ownSpare() {
  if (folder_) flock(folder_.get(), LOCK_UN);
  folder_ = FileDescriptor(open(folderOf(sparePath_).c_str(), kFolderFlags & ~O_NOFOLLOW));
  if (folder_ && flock(folder_.get(), LOCK_EX | LOCK_NB) != 0) folder_.close();
  return static_cast<bool>(folder_);
}

bool AtomicFilePosix::update(std::string_view content, std::size_t unchangedPrefix) {
  const int file = spare_.file->get();
  if (flock(file, LOCK_EX | LOCK_NB) != 0) return false;
  const std::size_t from = std::min(std::exchange(spare_.shared, 0), unchangedPrefix);
  const bool isCut =
      spare_.size <= content.size() || ftruncate(file, static_cast<off_t>(content.size())) == 0;
  const bool isWritten = isCut && writeFrom(file, content, from);
  spare_.size = isWritten ? content.size() : SIZE_MAX;
  flock(file, LOCK_UN);
  return isWritten;
}

bool AtomicFilePosix::putSpareInPlace() {
  if (!current_.file && isFolder(path_)) return false;
  if (renameat2(AT_FDCWD, sparePath_.c_str(), AT_FDCWD, path_.c_str(), RENAME_EXCHANGE) == 0) {
    std::swap(current_, spare_);
    return true;
  }
  // There is nothing in place yet, or this file system exchanges nothing.
  if (rename(sparePath_.c_str(), path_.c_str()) != 0) return false;
  current_ = std::exchange(spare_, {});
  return true;
}

// The disk is waited for without the lock. What is written meanwhile has a flush of its own.
void AtomicFilePosix::flush() {
  std::shared_ptr<FileDescriptor> file;
  {
    std::lock_guard lock(mutex_);
    isFlushDue_ = false;
    file = current_.file;
  }
  if (!file || fsync(file->get()) != 0) return;
  std::lock_guard lock(mutex_);
  if (isFlushDue_ || !isAt(spare_, sparePath_) || flock(spare_.file->get(), LOCK_EX | LOCK_NB) != 0)
    return;
  const bool isEmpty = ftruncate(spare_.file->get(), 0) == 0;
  spare_.size = isEmpty ? 0 : SIZE_MAX;
  spare_.shared = 0;
  flock(spare_.file->get(), LOCK_UN);
}

}  // namespace zln
