#include "collector/line_printer.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

namespace zln::collector {
namespace {

constexpr std::size_t kMostWaiting = 1024 * 1024;
constexpr auto kLongestEnd = std::chrono::seconds(1);

// Whether a write that has failed is to be tried again; a descriptor may be one that does not
// block.
bool mayGoOn(int descriptor) {
  pollfd waiting{descriptor, POLLOUT, 0};
  return errno == EINTR || (errno == EAGAIN && ::poll(&waiting, 1, -1) > 0);
}

// False when the descriptor takes nothing any longer.
bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && !mayGoOn(descriptor)) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

class LinePrinter::Queue {
 public:
  explicit Queue(int descriptor) : descriptor_(descriptor) {}

  void put(std::string_view line) {
    {
      const std::lock_guard lock(mutex_);
      if (waiting_.size() >= kMostWaiting) {
        ++leftOut_;
        return;
      }
      waiting_.append(line).append("\n");
    }
    changed_.notify_all();
  }

  // Until the end, or until nobody takes any more.
  void printAll() {
    for (std::string text; take(text);) {
      if (!writeAll(descriptor_, text)) break;
    }
    const std::lock_guard lock(mutex_);
    done_ = true;
    changed_.notify_all();
  }

  // Waits until all is printed. False when that takes too long.
  bool end() {
    std::unique_lock lock(mutex_);
    ending_ = true;
    changed_.notify_all();
    return changed_.wait_for(lock, kLongestEnd, [this] { return done_; });
  }

 private:
  // False when there will be nothing more.
  bool take(std::string& text) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !waiting_.empty() || ending_; });
    text = std::exchange(waiting_, {});
    if (const auto count = std::exchange(leftOut_, 0); count > 0) text += noticeOf(count);
    return !text.empty();
  }

  static std::string noticeOf(std::uint64_t count) {
    return "(left out here, because nobody took them: " + std::to_string(count) +
           (count == 1 ? " line)\n" : " lines)\n");
  }

  const int descriptor_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string waiting_;
  std::uint64_t leftOut_ = 0;  // Since the last of those that wait.
  bool ending_ = false;
  bool done_ = false;
};

LinePrinter::LinePrinter(int descriptor)
    : queue_(std::make_shared<Queue>(descriptor)),
      thread_([queue = queue_] { queue->printAll(); }) {}

// A thread that is stuck in writing cannot be hurried: it is left to the end of the program, with
// the queue, which it owns as well.
LinePrinter::~LinePrinter() { queue_->end() ? thread_.join() : thread_.detach(); }

void LinePrinter::print(std::string_view line) { queue_->put(line); }

}  // namespace zln::collector
