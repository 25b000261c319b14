#include "platform/posix/atomic_file_posix.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "platform/path.h"
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

// While it stands nobody else has the file open, and who tries to open it waits the few
// microseconds. This process is told of that by a signal, which is made one that is ignored unless
// a game asks for it. Giving the file back resets that, hence each time anew.
class ExclusiveUse {
 public:
  explicit ExclusiveUse(int file)
      : file_(file),
        granted_(fcntl(file, F_SETSIG, SIGURG) == 0 && fcntl(file, F_SETLEASE, F_WRLCK) == 0) {}
  ~ExclusiveUse() {
    if (granted_) fcntl(file_, F_SETLEASE, F_UNLCK);
  }
  ExclusiveUse(const ExclusiveUse&) = delete;
  ExclusiveUse& operator=(const ExclusiveUse&) = delete;

  bool isGranted() const { return granted_; }

 private:
  const int file_;
  const bool granted_;
};

// Ours alone: whatever else lies there must not be written to.
bool isOurs(const struct stat& facts, uid_t user) {
  return S_ISREG(facts.st_mode) && facts.st_nlink == 1 && facts.st_uid == user &&
         (facts.st_mode & kModeBits) == kPrivate;
}

AtomicFile::Unchanged lesser(AtomicFile::Unchanged a, AtomicFile::Unchanged b) {
  return {std::min(a.head, b.head), std::min(a.tail, b.tail)};
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

}  // namespace

AtomicFilePosix::AtomicFilePosix(Files& files, std::string path, std::string sparePath,
                                 std::shared_ptr<DelayedFlush> flush)
    : files_(files),
      path_(std::move(path)),
      sparePath_(std::move(sparePath)),
      keptPath_(sparePath_ + ".old"),
      flush_(std::move(flush)),
      user_(geteuid()),
      isWhole_(path_.find('\0') == std::string::npos && sparePath_.find('\0') == std::string::npos),
      old_(isWhole_ ? openPlainFile(path_) : FileDescriptor(-1)),
      oldSpare_(isWhole_ ? openPlainFile(sparePath_) : FileDescriptor(-1)),
      oldKept_(isWhole_ ? openPlainFile(keptPath_) : FileDescriptor(-1)),
      isToBeKept_(old_),
      isKept_(oldKept_) {}

AtomicFilePosix::~AtomicFilePosix() { disownSpare(); }

void AtomicFilePosix::offerOldContent(
    std::size_t limit, const std::function<bool(const std::string& content)>& accept) {
  // Without a file in place the others are left-overs.
  bool isWanted = static_cast<bool>(old_);
  for (FileDescriptor* file : {&oldKept_, &old_, &oldSpare_}) {
    const auto content = isWanted && *file ? readToEnd(file->get(), limit) : std::nullopt;
    file->close();
    const bool isAccepted = content && accept(*content);
    if (isAccepted && file == &old_) isWanted = false;
  }
  {
    std::lock_guard lock(keeping_);
    isToBeKept_ = false;
  }
  release();
}

void AtomicFilePosix::prepare() {
  if (isWhole_ && !spareIsThere() && !adoptSpare()) makeSpare();
}

bool AtomicFilePosix::replace(std::string_view content, Unchanged unchanged, Error* error) {
  keepOldContent();
  const bool isReplaced = replaceKept(content, unchanged, error);
  hasFailed_ = !isReplaced;
  return isReplaced;
}

bool AtomicFilePosix::replaceKept(std::string_view content, Unchanged unchanged, Error* error) {
  if (exchange(content, unchanged)) {
    current_.shared = {content.size(), content.size()};
    if (flush_) flush_->wrote(current_.file);
  } else if (files_.writeAtomically(path_, content, Durability::eventual, error)) {
    current_ = {};
  } else {
    return false;
  }
  spare_.shared = lesser(spare_.shared, unchanged);
  return true;
}

void AtomicFilePosix::keepOldContent() {
  std::lock_guard lock(keeping_);
  if (isToBeKept_) keepInPlace();
}

void AtomicFilePosix::keep() {
  std::lock_guard lock(keeping_);
  ++keepers_;
  keepInPlace();
}

// What an earlier process or another keeper has kept is not given up for it.
void AtomicFilePosix::keepInPlace() {
  isToBeKept_ = false;
  if (!isKept_) isKept_ = isWhole_ && link(path_.c_str(), keptPath_.c_str()) == 0;
}

// Where what was taken up could not be stored, the next process finds it again.
void AtomicFilePosix::release() {
  std::lock_guard lock(keeping_);
  if (--keepers_ == 0 && isKept_ && !hasFailed_) isKept_ = unlink(keptPath_.c_str()) != 0;
}

bool AtomicFilePosix::exchange(std::string_view content, Unchanged unchanged) {
  if (!isWhole_) return false;
  const bool isUpToDate =
      updateSpare(content, unchanged) || (makeSpare() && writeSpare(content, {}));
  return isUpToDate && putSpareInPlace();
}

bool AtomicFilePosix::updateSpare(std::string_view content, Unchanged unchanged) {
  if (!spareIsThere() && !adoptSpare()) return false;
  const ExclusiveUse use(spare_.file->get());
  return use.isGranted() && writeSpare(content, lesser(spare_.shared, unchanged));
}

bool AtomicFilePosix::spareIsThere() const {
  struct stat facts {};
  return spare_.file && lstat(sparePath_.c_str(), &facts) == 0 && isOurs(facts, user_) &&
         facts.st_dev == spare_.device && facts.st_ino == spare_.inode;
}

// Takes what lies there: the file that was in place before, or one that an earlier process left.
bool AtomicFilePosix::adoptSpare() { return ownSpare() && openSpare(0); }

bool AtomicFilePosix::makeSpare() {
  spare_ = {};
  // The folder may be another one by now.
  disownSpare();
  if (!ownSpare()) return false;
  unlink(sparePath_.c_str());
  return openSpare(O_CREAT | O_EXCL);
}

// Of several processes with the same folder one at a time has the spare path.
bool AtomicFilePosix::ownSpare() {
  if (folder_) return true;
  folder_ = FileDescriptor(
      open(folderOf(sparePath_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
  if (folder_ && flock(folder_.get(), LOCK_EX | LOCK_NB) != 0) folder_.close();
  return static_cast<bool>(folder_);
}

// A child of the game may have the folder open as well, so closing it alone would not do.
void AtomicFilePosix::disownSpare() {
  if (folder_) flock(folder_.get(), LOCK_UN);
  folder_.close();
}

bool AtomicFilePosix::openSpare(int moreFlags) {
  spare_ = {};
  auto file =
      std::make_shared<FileDescriptor>(open(sparePath_.c_str(), kSpareFlags | moreFlags, kPrivate));
  struct stat facts {};
  if (!*file || fstat(file->get(), &facts) != 0 || !isOurs(facts, user_)) return false;
  spare_ = {
      std::move(file), facts.st_dev, facts.st_ino, static_cast<std::size_t>(facts.st_size), {}};
  return true;
}

bool AtomicFilePosix::writeSpare(std::string_view content, Unchanged shared) {
  const std::size_t oldSize = std::exchange(spare_.size, SIZE_MAX);
  spare_.shared = {};
  const std::size_t tail = oldSize == content.size() ? std::min(shared.tail, content.size()) : 0;
  const int file = spare_.file->get();
  if (!writeFrom(file, content.substr(0, content.size() - tail), shared.head)) return false;
  if (oldSize > content.size() && ftruncate(file, static_cast<off_t>(content.size())) != 0) {
    return false;
  }
  spare_.size = content.size();
  return true;
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

}  // namespace zln
