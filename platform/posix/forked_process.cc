#include "platform/forked_process.h"

#include <pthread.h>

#include <atomic>

namespace zln {

namespace {

enum class Use { none, byThisProcess, byItsParent };

constinit std::atomic<Use> use{Use::none};
static_assert(std::atomic<Use>::is_always_lock_free);

// Runs in the new process. The parent may have been anywhere in the library, but for a parent that
// had not come further than the next function.
void beginForkedProcess() {
  if (use.load() == Use::byThisProcess) use.store(Use::byItsParent);
}

// Takes no lock, because a fork may come at any point. Several threads may each have the handler
// added; the library is not in use before it is there.
void beginUse() {
  if (pthread_atfork(nullptr, nullptr, &beginForkedProcess) != 0) return;
  Use before = Use::none;
  use.compare_exchange_strong(before, Use::byThisProcess);
}

}  // namespace

bool isForkedProcess() {
  const Use now = use.load(std::memory_order_relaxed);
  if (now == Use::none) beginUse();
  return now == Use::byItsParent;
}

}  // namespace zln
