#include "support/held_log_lines.h"

#include "support/process_state.h"

namespace zln {
namespace {

thread_local HeldLogLines* innermost = nullptr;

}  // namespace

HeldLogLines::HeldLogLines() : outer_(innermost) { innermost = this; }

HeldLogLines::~HeldLogLines() {
  innermost = outer_;
  for (const std::string& line : lines_) {
    if (!take(line)) environment().logSink.write(line);
  }
}

bool HeldLogLines::take(const std::string& line) {
  if (innermost == nullptr) return false;
  innermost->lines_.push_back(line);
  return true;
}

}  // namespace zln
