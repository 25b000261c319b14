#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zln {

// While one of these stands, the lines that its thread logs wait; they are written, in their order,
// when it goes. Whoever logs under a lock puts one before the lock, so that no sink ever runs
// inside. A thread has one at a time.
class HeldLogLines {
 public:
  HeldLogLines();
  ~HeldLogLines();
  HeldLogLines(const HeldLogLines&) = delete;
  HeldLogLines& operator=(const HeldLogLines&) = delete;

  // The lines so far; they are no longer written when it goes.
  std::vector<std::string> release() { return std::exchange(lines_, {}); }

  // Takes the line if the calling thread holds its lines.
  static bool take(const std::string& line);

 private:
  std::vector<std::string> lines_;
};

}  // namespace zln
