#include "testkit/fake_log.h"

#include <algorithm>

namespace zln {

void FakeLog::write(std::string_view line) {
  {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
  }
  note(journal_, "log: ", line);
}

std::vector<std::string> FakeLog::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

void FakeLog::clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

bool FakeLog::contains(std::string_view line) const { return count(line) != 0; }

std::size_t FakeLog::count(std::string_view line) const {
  std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count(lines_.begin(), lines_.end(), line));
}

}  // namespace zln
