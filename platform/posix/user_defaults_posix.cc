#include "platform/posix/user_defaults_posix.h"

#include <cstddef>
#include <utility>

#include "platform/property_list.h"

namespace zln {

namespace {

// Far more than a game keeps here; whoever asks first waits for the reading.
constexpr std::size_t kLargestFile = std::size_t{1} << 20;

Dictionary dictionaryIn(const std::optional<std::string>& document) {
  if (!document) return {};
  const auto root = property_list::read(*document);
  const Dictionary* dictionary = root ? root->dictionary() : nullptr;
  return dictionary == nullptr ? Dictionary() : *dictionary;
}

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

}  // namespace

UserDefaultsPosix::UserDefaultsPosix(Files& files, std::function<std::string()> path)
    : files_(files), pathProvider_(std::move(path)) {}

std::optional<Value> UserDefaultsPosix::get(const std::string& key) {
  std::lock_guard lock(mutex_);
  loadOnce();
  const Value* value = values_.find(key);
  return value == nullptr ? std::nullopt : std::optional<Value>(*value);
}

void UserDefaultsPosix::set(const std::string& key, Value value) {
  std::lock_guard lock(mutex_);
  loadOnce();
  Dictionary changed = values_;
  changed.set(key, std::move(value));
  const auto document = property_list::write(changed);
  if (!document) return;
  values_ = std::move(changed);
  unsaved_ = !save(*document);
}

bool UserDefaultsPosix::synchronize() {
  std::lock_guard lock(mutex_);
  if (!unsaved_) return true;
  const auto document = property_list::write(values_);
  unsaved_ = !document || !save(*document);
  return !unsaved_;
}

void UserDefaultsPosix::loadOnce() {
  if (path_) return;
  path_ = pathProvider_();
  values_ = dictionaryIn(files_.read(*path_, kLargestFile));
}

bool UserDefaultsPosix::save(const std::string& document) {
  return files_.createDirectory(folderOf(*path_), nullptr) &&
         files_.writeAtomically(*path_, document, nullptr);
}

}  // namespace zln
