#include "platform/posix/detached_thread.h"

#include <pthread.h>
#include <signal.h>

#include <memory>
#include <utility>

namespace zln {

namespace {

// Signals that a thread brings upon itself. A blocked one would end the process without the
// handler that the game, or a sanitizer, has set for it.
constexpr int kFaultSignals[] = {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP};

// Blocks all other signals while it lives. A thread inherits the mask of its maker, so that no
// handler of the game ever runs on a thread of the library, not even at its start.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : kFaultSignals) sigdelset(&signals, fault);
    pthread_sigmask(SIG_BLOCK, &signals, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

// What a thread begins with.
struct Beginning {
  const char* name;
  std::function<void()> body;
};

void* begin(void* argument) {
  const std::unique_ptr<Beginning> beginning(static_cast<Beginning*>(argument));
  pthread_setname_np(pthread_self(), beginning->name);
  beginning->body();
  return nullptr;
}

}  // namespace

bool startDetachedThread(const char* name, std::function<void()> body) {
  const SignalsBlocked blocked;
  auto beginning = std::make_unique<Beginning>(Beginning{name, std::move(body)});
  pthread_t thread;
  if (pthread_create(&thread, nullptr, &begin, beginning.get()) != 0) return false;
  static_cast<void>(beginning.release());
  pthread_detach(thread);
  return true;
}

}  // namespace zln
