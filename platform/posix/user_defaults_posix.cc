#include "platform/posix/user_defaults_posix.h"

#include <cstddef>
#include <utility>

#include "platform/path.h"
#include "platform/property_list.h"

namespace zln {

namespace {

// Far more than a game keeps here; the first caller waits while the file is read.
constexpr std::size_t kLargestFile = std::size_t{1} << 20;

Dictionary dictionaryIn(const std::string& document) {
  const auto root = property_list::read(document);
  const Dictionary* dictionary = root ? root->dictionary() : nullptr;
  return dictionary == nullptr ? Dictionary() : *dictionary;
}

}  // namespace

UserDefaultsPosix::UserDefaultsPosix(Files& files, std::function<std::string()> path)
    : files_(files), pathProvider_(std::move(path)) {}

std::optional<Value> UserDefaultsPosix::get(const std::string& key, Error* error) {
  std::lock_guard lock(mutex_);
  load(error);
  const Value* value = values_.find(key);
  return value == nullptr ? std::nullopt : std::optional<Value>(*value);
}

void UserDefaultsPosix::set(const std::string& key, Value value) {
  std::lock_guard lock(mutex_);
  // After a failure the caller did not know the file's value, so this one must not replace it.
  if (file_ != File::unreadable) load(nullptr);
  values_.set(key, std::move(value));
  isUnsaved_ = true;
}

bool UserDefaultsPosix::synchronize() {
  std::lock_guard lock(mutex_);
  if (isUnsaved_ && load(nullptr)) isUnsaved_ = !save();
  return !isUnsaved_;
}

bool UserDefaultsPosix::load(Error* error) {
  if (file_ == File::loaded) return true;
  if (!path_) path_ = pathProvider_();
  Error failure;
  const std::optional<std::string> document = files_.read(*path_, kLargestFile, &failure);
  if (!document && !isFileMissing(failure)) {
    file_ = File::unreadable;
    fillError(error, std::move(failure));
    return false;
  }
  Dictionary values = std::exchange(values_, document ? dictionaryIn(*document) : Dictionary());
  for (const auto& [key, value] : values.entries()) {
    if (values_.find(key) == nullptr) values_.set(key, value);
  }
  file_ = File::loaded;
  return true;
}

bool UserDefaultsPosix::save() {
  const std::optional<std::string> document = property_list::write(values_);
  return document && files_.createDirectory(folderOf(*path_), nullptr) &&
         files_.writeAtomically(*path_, *document, Durability::immediate, nullptr);
}

}  // namespace zln
