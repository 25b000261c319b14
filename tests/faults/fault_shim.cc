// Stands between a program and the system's calls that change files. Preloaded into a game it
// counts them, by kind, and has the one that the plan names fail, fall short or be the last.
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "tests/faults/fault_plan.h"

namespace zln::faults {
namespace {

constexpr int kMostFiles = 4096;

FaultPlan* plan = nullptr;
// Files below the home folder that are open for writing, and those that are open to be read.
std::atomic<bool> isWatched[kMostFiles];
std::atomic<bool> isRead[kMostFiles];

__attribute__((constructor)) void mapPlan() {
  const char* path = getenv(kPlanVariable);
  if (path == nullptr) return;
  const long file = syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0);
  void* memory = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED,
                      static_cast<int>(file), 0);
  if (memory == MAP_FAILED) abort();
  syscall(SYS_close, file);
  plan = static_cast<FaultPlan*>(memory);
}

bool isBelowHome(std::string_view path) {
  return plan != nullptr && path.starts_with(std::string_view(plan->home));
}

// Of a path that may be relative to an open folder.
bool isBelowHome(int folder, const char* path) {
  if (plan == nullptr || path == nullptr) return false;
  if (path[0] == '/' || folder == AT_FDCWD) return isBelowHome(std::string_view(path));
  char link[64];
  char target[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", folder);
  const ssize_t size = readlink(link, target, sizeof target);
  return size > 0 && isBelowHome(std::string_view(target, static_cast<std::size_t>(size)));
}

bool isWatchedFile(int file) { return file >= 0 && file < kMostFiles && isWatched[file]; }

void watch(long file, bool isWritten) {
  if (file >= 0 && file < kMostFiles) isWatched[file] = isWritten;
}

[[noreturn]] void endProcess() {
  syscall(SYS_kill, getpid(), SIGKILL);
  for (;;) pause();
}

// Counts a call; true when it is the one to strike.
bool isStruck(Call call) {
  const std::uint32_t ordinal = ++plan->calls[static_cast<std::size_t>(call)];
  if (plan->fault == Fault::kNone || call != plan->call || ordinal != plan->ordinal) return false;
  plan->struckProcess = getpid();
  plan->isStruck = true;
  return true;
}

// The errno of a file system that has broken for good; zero when it has not, in this process.
int lastingFailure() {
  if (plan->struckProcess != getpid()) return 0;
  if (plan->fault == Fault::kFullFromHere) return ENOSPC;
  if (plan->fault == Fault::kNoDescriptorsFromHere) return EMFILE;
  return plan->fault == Fault::kReadOnlyFromHere ? EROFS : 0;
}

// A full disk still takes what makes nothing larger, and without descriptors what opens nothing.
bool isAffected(Call call, int lasting) {
  if (lasting == EMFILE) return call == Call::kOpen || call == Call::kOpenToRead;
  if (lasting == ENOSPC) {
    return call == Call::kOpen || call == Call::kWrite || call == Call::kMakeFolder;
  }
  return call != Call::kClose && call != Call::kOpenToRead && call != Call::kRead;
}

int failureOf(Fault fault) {
  switch (fault) {
    case Fault::kEio:
      return EIO;
    case Fault::kEnospc:
      return ENOSPC;
    case Fault::kErofs:
      return EROFS;
    case Fault::kEacces:
      return EACCES;
    default:
      return 0;
  }
}

// Zero when the call is to be made; it does not return when the process is to end.
int failureFor(Call call, bool isHit) {
  if (isHit && plan->fault == Fault::kKill) endProcess();
  if (isHit && failureOf(plan->fault) != 0) return failureOf(plan->fault);
  const int lasting = lastingFailure();
  return isAffected(call, lasting) ? lasting : 0;
}

int failed(int failure) {
  errno = failure;
  return -1;
}

// Whether a call that changes files is to fail, with errno set: it is struck, or the disk cannot do
// such a thing.
bool isRefused(bool isOurs, Call call, Disk unable = Disk::kOrdinary, int unableFailure = 0) {
  if (!isOurs) return false;
  int failure = failureFor(call, isStruck(call));
  if (failure == 0 && plan->disk == unable) failure = unableFailure;
  if (failure != 0) errno = failure;
  return failure != 0;
}

// The number of bytes that the struck call writes.
std::size_t partOf(std::size_t size) {
  const std::size_t part = size * plan->part / 256;
  return part == 0 && plan->fault == Fault::kShorten ? 1 : part;
}

// `step` writes so many of the bytes.
template <typename Step>
ssize_t writeThrough(int file, std::size_t size, Step step) {
  if (!isWatchedFile(file)) return step(size);
  const bool isHit = isStruck(Call::kWrite);
  if (const int failure = failureFor(Call::kWrite, isHit); failure != 0) return failed(failure);
  const bool isCut =
      isHit && (plan->fault == Fault::kKillHalf || plan->fault == Fault::kShorten) && size > 0;
  const ssize_t written = step(isCut ? partOf(size) : size);
  if (isHit && plan->fault == Fault::kKillHalf) endProcess();
  return written;
}

// The reports and their spare file, the settings, the user defaults.
bool isReadHere(int folder, std::string_view path, int flags) {
  if ((flags & O_DIRECTORY) != 0 || !isBelowHome(folder, path.data())) return false;
  return path.ends_with("/reports.json") || path.ends_with("/.reports.json.spare") ||
         path.ends_with("/config.dat") || path.ends_with(".plist");
}

int openThrough(int folder, const char* path, int flags, mode_t mode) {
  const bool isWritten =
      ((flags & O_ACCMODE) != O_RDONLY || (flags & O_CREAT) != 0) && isBelowHome(folder, path);
  const bool isToBeRead = !isWritten && isReadHere(folder, path, flags);
  if (isRefused(isWritten, Call::kOpen) || isRefused(isToBeRead, Call::kOpenToRead)) return -1;
  const long file = syscall(SYS_openat, folder, path, flags, mode);
  watch(file, isWritten);
  if (file >= 0 && file < kMostFiles) isRead[file] = isToBeRead;
  return static_cast<int>(file);
}

// The mode among the arguments of a call that may make a file.
mode_t modeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace
}  // namespace zln::faults

using namespace zln::faults;

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openThrough(AT_FDCWD, path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openThrough(folder, path, flags, mode);
}

int mkostemp(char* path, int flags) {
  static const auto real = reinterpret_cast<int (*)(char*, int)>(dlsym(RTLD_NEXT, "mkostemp"));
  const bool isWritten = isBelowHome(AT_FDCWD, path);
  if (isRefused(isWritten, Call::kOpen)) return -1;
  const int file = real(path, flags);
  watch(file, isWritten);
  return file;
}

ssize_t read(int file, void* bytes, size_t size) {
  const bool isWatchedRead = file >= 0 && file < kMostFiles && isRead[file];
  if (isRefused(isWatchedRead, Call::kRead)) return -1;
  return syscall(SYS_read, file, bytes, size);
}

ssize_t write(int file, const void* bytes, size_t size) {
  return writeThrough(file, size,
                      [&](std::size_t part) { return syscall(SYS_write, file, bytes, part); });
}

ssize_t pwrite(int file, const void* bytes, size_t size, off_t at) {
  return writeThrough(
      file, size, [&](std::size_t part) { return syscall(SYS_pwrite64, file, bytes, part, at); });
}

int ftruncate(int file, off_t size) noexcept {
  if (isRefused(isWatchedFile(file), Call::kTruncate)) return -1;
  return static_cast<int>(syscall(SYS_ftruncate, file, size));
}

// The file is closed also when that fails.
int close(int file) {
  if (!isWatchedFile(file)) return static_cast<int>(syscall(SYS_close, file));
  const bool isFailing = isRefused(true, Call::kClose);
  const int failure = errno;
  watch(file, false);
  const long result = syscall(SYS_close, file);
  return isFailing ? failed(failure) : static_cast<int>(result);
}

// All that is asked for here takes a number or nothing.
int fcntl(int file, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  const long result = syscall(SYS_fcntl, file, command, argument);
  if (command == F_DUPFD_CLOEXEC) watch(result, isWatchedFile(file));
  return static_cast<int>(result);
}

int flock(int file, int operation) noexcept {
  if (plan != nullptr && plan->disk == Disk::kNoLocks) return failed(ENOLCK);
  return static_cast<int>(syscall(SYS_flock, file, operation));
}

int rename(const char* from, const char* to) noexcept {
  if (isRefused(isBelowHome(AT_FDCWD, to), Call::kRename)) return -1;
  return static_cast<int>(syscall(SYS_rename, from, to));
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
              unsigned flags) noexcept {
  if (isRefused(isBelowHome(toFolder, to), Call::kExchange, Disk::kNoExchange, EINVAL)) return -1;
  return static_cast<int>(syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

int unlinkat(int folder, const char* path, int flags) noexcept {
  if (isRefused(isBelowHome(folder, path), Call::kUnlink)) return -1;
  return static_cast<int>(syscall(SYS_unlinkat, folder, path, flags));
}

int unlink(const char* path) noexcept { return unlinkat(AT_FDCWD, path, 0); }

int mkdir(const char* path, mode_t mode) noexcept {
  if (isRefused(isBelowHome(AT_FDCWD, path), Call::kMakeFolder)) return -1;
  return static_cast<int>(syscall(SYS_mkdir, path, mode));
}

int setxattr(const char* path, const char* name, const void* value, size_t size,
             int flags) noexcept {
  if (isRefused(isBelowHome(AT_FDCWD, path), Call::kAttribute, Disk::kNoAttributes, ENOTSUP))
    return -1;
  return static_cast<int>(syscall(SYS_setxattr, path, name, value, size, flags));
}

int fsync(int file) {
  if (isRefused(isWatchedFile(file), Call::kFlush, Disk::kNoFlush, EIO)) return -1;
  return static_cast<int>(syscall(SYS_fsync, file));
}

// The same calls under the names that they have where files may be large.
int open64(const char* path, int flags, ...) __attribute__((alias("open")));
int openat64(int folder, const char* path, int flags, ...) __attribute__((alias("openat")));
int mkostemp64(char* path, int flags) __attribute__((alias("mkostemp")));
ssize_t pwrite64(int file, const void* bytes, size_t size, off_t at)
    __attribute__((alias("pwrite")));
int ftruncate64(int file, off_t size) noexcept __attribute__((alias("ftruncate")));
int fcntl64(int file, int command, ...) __attribute__((alias("fcntl")));

}  // extern "C"
