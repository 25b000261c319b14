#include "support/held_log_lines.h"

#include "support/process_state.h"

namespace zln {
namespace {

thread_local HeldLogLines* current = nullptr;

}  // namespace

HeldLogLines::HeldLogLines() { current = this; }

HeldLogLines::~HeldLogLines() {
  current = nullptr;
  for (const std::string& line : lines_) environment().logSink.write(line);
}

bool HeldLogLines::take(const std::string& line) {
  if (current == nullptr) return false;
  current->lines_.push_back(line);
  return true;
}

}  // namespace zln
