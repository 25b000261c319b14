#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zln {

// The library's calls to its machine, in order. The fakes add one entry for each call: "write
// /path", "begin 1", "log: line". Any thread may add.
class Journal {
 public:
  // Called by a fake inside the call, and by a test for steps of its own.
  void add(const std::string& call);

  // Starts recording from scratch; nothing is recorded before.
  void begin();
  // The calls recorded so far, which are then forgotten.
  std::vector<std::string> take();

  // Calls `act` once, inside the next call whose entry begins like this.
  void when(std::string beginning, std::function<void()> act);
  // Drops what has not been called yet and returns its beginnings.
  std::vector<std::string> dropHooks();

 private:
  std::function<void()> takeHook(const std::string& call);

  std::mutex mutex_;
  bool isRecording_ = false;
  std::vector<std::string> calls_;
  std::vector<std::pair<std::string, std::function<void()>>> hooks_;
};

// Adds a call of a fake, which may be on its own, without a machine and its journal.
inline void note(Journal* journal, std::string_view operation, std::string_view argument = {}) {
  if (journal != nullptr) journal->add(std::string(operation).append(argument));
}

}  // namespace zln
