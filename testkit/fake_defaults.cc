#include "testkit/fake_defaults.h"

#include <utility>

namespace zln {

std::optional<Value> FakeDefaults::get(const std::string& key, Error* error) {
  note(journal_, "get ", key);
  if (readError_) {
    fillError(error, *readError_);
    return std::nullopt;
  }
  const auto entry = values_.find(key);
  if (entry == values_.end()) return std::nullopt;
  return entry->second;
}

void FakeDefaults::set(const std::string& key, Value value) {
  note(journal_, "set ", key);
  values_.insert_or_assign(key, std::move(value));
}

bool FakeDefaults::synchronize() {
  note(journal_, "synchronize");
  ++syncCount_;
  return true;
}

void FakeDefaults::erase(const std::string& key) { values_.erase(key); }

}  // namespace zln
