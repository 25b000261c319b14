#include "platform/posix/files_posix.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>
#include <vector>

#include "platform/path.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/file_error.h"
#include "platform/posix/open_folder.h"
#include "platform/posix/plain_file.h"
#include "platform/posix/temporary_file.h"

namespace zln {

namespace {

constexpr mode_t kFolderMode = 0700;
// Folders are entered down to this depth, each with one open file at most. The library's own
// folders are two levels deep.
constexpr int kDepthLimit = 128;

// "May be backed up: no", as backup programs of this system read it.
constexpr char kBackupAttribute[] = "user.xdg.robots.backup";
constexpr std::string_view kBackupNo = "false";

bool isFolder(const std::string& path) {
  struct stat facts {};
  return stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

// Zero when the folder is there afterwards, else an errno.
int createFolder(const std::string& path) {
  return mkdir(path.c_str(), kFolderMode) == 0 || errno == EEXIST ? 0 : errno;
}

// Where the path ends that leads to the folder above; 0 when there is none.
std::size_t parentEnd(const std::string& path, std::size_t end) {
  const auto slash = path.rfind('/', end - 1);
  return slash == std::string::npos ? 0 : slash;
}

// Looks upward for the first folder that is there or can be made, then makes those below it.
int createFolders(const std::string& path) {
  std::vector<std::size_t> ends;
  std::size_t end = path.size();
  int failure = ENOENT;
  while (end > 0 && failure == ENOENT) {
    ends.push_back(end);
    failure = createFolder(path.substr(0, end));
    end = parentEnd(path, end);
  }
  while (failure == 0 && ends.size() > 1) {
    ends.pop_back();
    failure = createFolder(path.substr(0, ends.back()));
  }
  return failure == 0 && !isFolder(path) ? EEXIST : failure;
}

using Visit = std::function<void(const std::string& relativePath)>;

// Opening an entry as a folder fails for all that must not be entered: files, symbolic links, and
// what the visit has removed.
void enumerateBelow(int folder, const std::string& prefix, int depth, const Visit& visit) {
  for (const auto& name : namesIn(folder)) {
    const std::string relativePath = prefix + name;
    visit(relativePath);
    if (depth == kDepthLimit) continue;
    const FileDescriptor below(openat(folder, name.c_str(), kFolderFlags));
    if (below) enumerateBelow(below.get(), relativePath + '/', depth + 1, visit);
  }
}

int removeBelow(int folder, int depth);

// Zero when the item is gone, else an errno. Entry by entry from open folders, so that a symbolic
// link in the place of a folder is removed itself, at whatever moment it came there.
int removeItem(int folder, const char* name, int depth) {
  if (unlinkat(folder, name, 0) == 0) return 0;
  if (errno != EISDIR) return errno;
  if (depth == kDepthLimit) return ELOOP;
  {
    const FileDescriptor below(openat(folder, name, kFolderFlags));
    if (!below) return errno;
    if (const int failure = removeBelow(below.get(), depth + 1); failure != 0) return failure;
  }
  return unlinkat(folder, name, AT_REMOVEDIR) == 0 ? 0 : errno;
}

int removeBelow(int folder, int depth) {
  for (const auto& name : namesIn(folder)) {
    const int failure = removeItem(folder, name.c_str(), depth);
    if (failure != 0 && failure != ENOENT) return failure;
  }
  return 0;
}

int flushFolderOf(const std::string& path) {
  const FileDescriptor folder(open(folderOf(path).c_str(), kFolderFlags & ~O_NOFOLLOW));
  return folder && fsync(folder.get()) == 0 ? 0 : errno;
}

// Zero, or an errno; no temporary file is left then.
int replaceFile(const std::string& path, std::string_view bytes, Durability durability) {
  const bool isFlushed = durability == Durability::immediate;
  TemporaryFile::removeLeftOvers(path);
  TemporaryFile file(path);
  if (const int failure = file.create(); failure != 0) return failure;
  if (const int failure = file.write(bytes); failure != 0) return failure;
  const int flushFailure = isFlushed ? file.flush() : 0;
  if (const int failure = file.putInPlace(); failure != 0) return failure;
  return isFlushed && flushFailure == 0 ? flushFolderOf(path) : flushFailure;
}

int setBackupAttribute(const std::string& path) {
  return setxattr(path.c_str(), kBackupAttribute, kBackupNo.data(), kBackupNo.size(), 0) == 0
             ? 0
             : errno;
}

// False for a path that the system's calls would take for a shorter one.
bool isWhole(const std::string& path) { return path.find('\0') == std::string::npos; }

bool succeeded(int failure, const std::string& path, Error* error,
               Error (*makeError)(const std::string&, int)) {
  if (failure != 0) fillError(error, makeError(path, failure));
  return failure == 0;
}

}  // namespace

FilesPosix::FilesPosix(std::function<std::string()> applicationSupportPath,
                       AtomicFilePosix::RunLater runLater)
    : applicationSupportPath_(std::move(applicationSupportPath)), runLater_(std::move(runLater)) {}

std::string FilesPosix::applicationSupportPath() { return applicationSupportPath_(); }

bool FilesPosix::exists(const std::string& path) {
  struct stat facts {};
  return isWhole(path) && stat(path.c_str(), &facts) == 0;
}

bool FilesPosix::createDirectory(const std::string& path, Error* error) {
  const int failure = isWhole(path) ? createFolders(path) : EINVAL;
  return succeeded(failure, path, error, &saveError);
}

void FilesPosix::enumerate(const std::string& path, const Visit& visit) {
  if (!isWhole(path)) return;
  const FileDescriptor folder(open(path.c_str(), kFolderFlags));
  if (folder) enumerateBelow(folder.get(), "", 1, visit);
}

bool FilesPosix::remove(const std::string& path, Error* error) {
  const int failure = isWhole(path) ? removeItem(AT_FDCWD, path.c_str(), 0) : EINVAL;
  return succeeded(failure, path, error, &removeError);
}

std::optional<std::string> FilesPosix::read(const std::string& path, std::size_t limit,
                                            Error* error) {
  errno = EINVAL;
  std::optional<std::string> content;
  if (isWhole(path)) content = readPlainFile(path, limit);
  if (!content) fillError(error, readError(path, errno));
  return content;
}

bool FilesPosix::writeAtomically(const std::string& path, std::string_view bytes,
                                 Durability durability, Error* error) {
  const int failure = isWhole(path) ? replaceFile(path, bytes, durability) : EINVAL;
  return succeeded(failure, path, error, &saveError);
}

std::shared_ptr<AtomicFile> FilesPosix::atomicFile(const std::string& path,
                                                   const std::string& sparePath) {
  // It mostly puts no new files in place, so no write would remove them.
  TemporaryFile::removeLeftOvers(path);
  return std::make_shared<AtomicFilePosix>(*this, path, sparePath, runLater_);
}

bool FilesPosix::excludeFromBackup(const std::string& path, Error* error) {
  const int failure = isWhole(path) ? setBackupAttribute(path) : EINVAL;
  return succeeded(failure, path, error, &changeError);
}

}  // namespace zln
