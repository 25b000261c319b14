#include "testkit/fake_files.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace zln {
namespace {

constexpr std::int64_t kNoSuchFile = 4;
constexpr std::int64_t kReadNoPermission = 257;
constexpr std::int64_t kCannotWrite = 512;
constexpr std::int64_t kNoPermission = 513;
constexpr std::int64_t kFileExists = 516;

constexpr char kNotFoundReason[] = "No such file or directory";
constexpr std::int64_t kNotFoundErrno = 2;
constexpr char kPermissionReason[] = "Permission denied";
constexpr std::int64_t kPermissionErrno = 13;
constexpr char kIsFolderReason[] = "Is a directory";
constexpr std::int64_t kIsFolderErrno = 21;
constexpr char kTooLargeReason[] = "File too large";
constexpr std::int64_t kTooLargeErrno = 27;
constexpr char kExistsReason[] = "File exists";
constexpr std::int64_t kExistsErrno = 17;

// Without repeated separators and without one at the end; the root is "".
std::string plainPath(std::string_view path) {
  std::string plain;
  for (const char character : path) {
    if (character != '/' || plain.empty() || plain.back() != '/') plain += character;
  }
  if (!plain.empty() && plain.back() == '/') plain.pop_back();
  return plain;
}

std::string folderOf(const std::string& plain) { return plain.substr(0, plain.find_last_of('/')); }

std::string nameOf(const std::string& plain) { return plain.substr(plain.find_last_of('/') + 1); }

std::string quoted(const std::string& name) { return "“" + name + "”"; }

bool isBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(folder + "/");
}

Error fileError(const std::string& path, std::int64_t code, std::string text,
                std::int64_t systemCode, const char* systemText) {
  const std::string reason = std::string("{Error Domain=") + kPosixErrorDomain +
                             " Code=" + std::to_string(systemCode) + " \"" + systemText + "\"}";
  return Error{kCocoaErrorDomain,
               code,
               std::move(text),
               {{"NSFilePath", path}, {"NSUnderlyingError", "0x600003a1c2c0 " + reason}}};
}

Error removalError(const std::string& path, std::int64_t code, std::string text,
                   std::int64_t systemCode, const char* systemText) {
  Error error = fileError(path, code, std::move(text), systemCode, systemText);
  error.userInfo.insert(error.userInfo.begin(), {"NSUserStringVariant", "(\n    Remove\n)"});
  return error;
}

Error cannotBeRemoved(const std::string& path, const std::string& name) {
  return removalError(path, kNoSuchFile, quoted(name) + " couldn’t be removed.", kNotFoundErrno,
                      kNotFoundReason);
}

Error mayNotBeRemoved(const std::string& path, const std::string& name) {
  const std::string text =
      quoted(name) + " couldn’t be removed because you don’t have permission to access it.";
  return removalError(path, kNoPermission, text, kPermissionErrno, kPermissionReason);
}

Error mayNotBeSaved(const std::string& plain) {
  const std::string text = "You don’t have permission to save the file " + quoted(nameOf(plain)) +
                           " in the folder " + quoted(nameOf(folderOf(plain))) + ".";
  return fileError(plain, kNoPermission, text, kPermissionErrno, kPermissionReason);
}

Error fileMissing(const std::string& plain) {
  const std::string text = "The file " + quoted(nameOf(plain)) + " doesn’t exist.";
  return fileError(plain, kNoSuchFile, text, kNotFoundErrno, kNotFoundReason);
}

Error folderMissing(const std::string& plain) {
  const std::string text = "The folder " + quoted(nameOf(folderOf(plain))) + " doesn’t exist.";
  return fileError(plain, kNoSuchFile, text, kNotFoundErrno, kNotFoundReason);
}

std::string notSavedText(const std::string& plain) {
  return "The file " + quoted(nameOf(plain)) + " couldn’t be saved in the folder " +
         quoted(nameOf(folderOf(plain)));
}

Error folderInTheWay(const std::string& plain) {
  return fileError(plain, kCannotWrite, notSavedText(plain) + ".", kIsFolderErrno, kIsFolderReason);
}

Error fileInTheWay(const std::string& plain) {
  const std::string text =
      notSavedText(plain) + " because a file with the same name already exists.";
  return fileError(plain, kFileExists, text, kExistsErrno, kExistsReason);
}

Error notOpened(const std::string& plain, std::int64_t code, const char* obstacle,
                std::int64_t systemCode, const char* systemText) {
  const std::string text = "The file " + quoted(nameOf(plain)) + " couldn’t be opened" + obstacle;
  return fileError(plain, code, text, systemCode, systemText);
}

bool failWith(Error* target, Error error) {
  fillError(target, std::move(error));
  return false;
}

void mark(std::set<std::string>& paths, const std::string& path, bool marked) {
  if (marked) {
    paths.insert(plainPath(path));
  } else {
    paths.erase(plainPath(path));
  }
}

// Writes only what it is told has changed, as the real thing does.
class FakeAtomicFile : public AtomicFile {
 public:
  FakeAtomicFile(FakeFiles& files, std::string path) : files_(files), path_(std::move(path)) {}

  bool replace(std::string_view content, std::size_t unchangedPrefix, Error* error) override {
    const bool isSame =
        last_ && unchangedPrefix == content.size() && content.size() == last_->size();
    if (isSame && files_.exists(path_)) return true;
    std::string written = last_.value_or("").substr(0, unchangedPrefix);
    written += content.substr(written.size());
    if (!files_.writeAtomically(path_, written, Durability::eventual, error)) return false;
    last_ = std::move(written);
    return true;
  }

 private:
  FakeFiles& files_;
  const std::string path_;
  // What was put in place last, if anything was.
  std::optional<std::string> last_;
};

}  // namespace

bool FakeFiles::exists(const std::string& path) {
  note(journal_, "exists ", path);
  return isThere(plainPath(path));
}

bool FakeFiles::createDirectory(const std::string& path, Error* error) {
  note(journal_, "create ", path);
  return makeFolders(plainPath(path), error);
}

bool FakeFiles::makeFolders(const std::string& plain, Error* error) {
  if (isFolder(plain)) return true;
  if (isThere(plain)) return failWith(error, fileInTheWay(plain));
  if (createFails_.contains(plain)) return failWith(error, mayNotBeSaved(plain));
  if (!makeFolders(folderOf(plain), error)) return false;
  items_[plain] = std::nullopt;
  return true;
}

void FakeFiles::enumerate(const std::string& path,
                          const std::function<void(const std::string& relativePath)>& visit) {
  enumerateFolder(plainPath(path), "", visit);
}

bool FakeFiles::remove(const std::string& path, Error* error) {
  note(journal_, "remove ", path);
  const std::string plain = plainPath(path);
  const std::string name = nameOf(plain);
  if (!isThere(plain)) return failWith(error, cannotBeRemoved(path, name));
  if (plain.empty() || removalFails(plain)) return failWith(error, mayNotBeRemoved(path, name));
  erase(plain);
  removed_.push_back(path);
  return true;
}

std::optional<std::string> FakeFiles::read(const std::string& path, std::size_t limit,
                                           Error* error) {
  note(journal_, "read ", path);
  const std::string plain = plainPath(path);
  const std::optional<std::string> bytes = contents(plain);
  if (readFails_.contains(plain)) {
    fillError(error,
              notOpened(plain, kReadNoPermission, " because you don’t have permission to view it.",
                        kPermissionErrno, kPermissionReason));
  } else if (!bytes) {
    fillError(error, notOpened(plain, kReadNoSuchFile, " because there is no such file.",
                               kNotFoundErrno, kNotFoundReason));
  } else if (bytes->size() > limit) {
    fillError(error, notOpened(plain, kReadTooLarge, " because it is too large.", kTooLargeErrno,
                               kTooLargeReason));
  } else {
    return bytes;
  }
  return std::nullopt;
}

bool FakeFiles::writeAtomically(const std::string& path, std::string_view bytes, Durability,
                                Error* error) {
  note(journal_, "write ", path);
  const std::string plain = plainPath(path);
  if (writesFail_) return failWith(error, mayNotBeSaved(plain));
  if (isFolder(plain)) return failWith(error, folderInTheWay(plain));
  if (!isFolder(folderOf(plain))) return failWith(error, folderMissing(plain));
  items_[plain] = std::string(bytes);
  excluded_.erase(plain);
  ++writeCounts_[plain];
  return true;
}

std::shared_ptr<AtomicFile> FakeFiles::atomicFile(const std::string& path, const std::string&) {
  return std::make_shared<FakeAtomicFile>(*this, path);
}

bool FakeFiles::excludeFromBackup(const std::string& path, Error* error) {
  note(journal_, "exclude ", path);
  const std::string plain = plainPath(path);
  if (!isThere(plain)) return failWith(error, fileMissing(plain));
  if (excludeFails_.contains(plain)) return failWith(error, mayNotBeSaved(plain));
  excluded_.insert(plain);
  return true;
}

void FakeFiles::failRead(const std::string& path, bool fails) { mark(readFails_, path, fails); }

void FakeFiles::failCreate(const std::string& path, bool fails) { mark(createFails_, path, fails); }

void FakeFiles::failRemove(const std::string& path, bool fails) { mark(removeFails_, path, fails); }

void FakeFiles::failExclude(const std::string& path, bool fails) {
  mark(excludeFails_, path, fails);
}

void FakeFiles::put(const std::string& path, std::string bytes) {
  const std::string plain = plainPath(path);
  makeFolder(folderOf(plain));
  items_[plain] = std::move(bytes);
}

void FakeFiles::makeFolder(const std::string& path) {
  const std::string plain = plainPath(path);
  if (plain.empty()) return;
  makeFolder(folderOf(plain));
  items_[plain] = std::nullopt;
}

std::optional<std::string> FakeFiles::contents(const std::string& path) const {
  const auto item = items_.find(plainPath(path));
  return item == items_.end() ? std::nullopt : item->second;
}

std::size_t FakeFiles::writeCount(const std::string& path) const {
  const auto count = writeCounts_.find(plainPath(path));
  return count == writeCounts_.end() ? 0 : count->second;
}

bool FakeFiles::isThere(const std::string& plain) const {
  return plain.empty() || items_.contains(plain);
}

bool FakeFiles::isFolder(const std::string& path) const {
  if (path.empty()) return true;
  const auto item = items_.find(path);
  return item != items_.end() && !item->second.has_value();
}

std::vector<std::string> FakeFiles::namesIn(const std::string& folder) const {
  std::vector<std::string> names;
  for (const auto& [path, bytes] : items_) {
    if (folderOf(path) == folder) names.push_back(nameOf(path));
  }
  return names;
}

void FakeFiles::enumerateFolder(const std::string& folder, const std::string& relativePrefix,
                                const std::function<void(const std::string&)>& visit) {
  for (const std::string& name : namesIn(folder)) {
    const std::string path = folder + "/" + name;
    if (!isThere(path)) continue;
    visit(relativePrefix + name);
    enumerateFolder(path, relativePrefix + name + "/", visit);
  }
}

bool FakeFiles::removalFails(const std::string& path) const {
  return std::any_of(removeFails_.begin(), removeFails_.end(), [&](const std::string& marked) {
    return items_.contains(marked) && (marked == path || isBelow(marked, path));
  });
}

void FakeFiles::erase(const std::string& path) {
  const auto goes = [&](const std::string& other) { return other == path || isBelow(other, path); };
  std::erase_if(items_, [&](const auto& item) { return goes(item.first); });
  std::erase_if(excluded_, goes);
}

}  // namespace zln
