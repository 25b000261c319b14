// A host that does what a line of its input says: "tls" has it open OpenSSL for itself, "begin" has
// it use the library, and both are answered with "ok"; all else is a way to leave. It is answered
// with the moment, in nanoseconds of the monotonic clock, and "ok", and then the host leaves.

#include <openssl/ssl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/host/leaving_functions.h"

namespace {

constexpr int kStatus = 7;
constexpr int kReports = 5;

// False in a host that only shows how long its own leaving takes.
bool usesLibrary = false;

void callLibrary() {
  if (usesLibrary) zln::callEveryFunction();
}

// Calls the library when everything else of the program has gone.
struct CallsAtTheEnd {
  bool isWanted = false;
  ~CallsAtTheEnd() {
    if (isWanted) callLibrary();
  }
} lastObject;

void begin() {
  usesLibrary = true;
  zln::beginGame();
  for (int report = 0; report < kReports; ++report) ZLNSendBannerAdAttemptReport("n", true);
}

void sayWhen() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::printf("%lld\nok\n", now.tv_sec * 1'000'000'000LL + now.tv_nsec);
  std::fflush(stdout);
}

[[noreturn]] void exitBesideCalls() {
  std::thread([] {
    while (true) {
      if (usesLibrary) ZLNSendBannerAdAttemptReport("n", true);
      std::this_thread::yield();
    }
  }).detach();
  sayWhen();
  std::thread([] { std::exit(kStatus); }).detach();
  while (true) pause();
}

int leave(const std::string& way) {
  if (way == "atexit") std::atexit(&callLibrary);
  if (way == "at_quick_exit") std::at_quick_exit(&callLibrary);
  lastObject.isWanted = way == "destructor";
  if (way == "thread") exitBesideCalls();
  sayWhen();
  if (way == "exit" || way == "atexit" || way == "destructor") std::exit(kStatus);
  if (way == "_exit") _exit(kStatus);
  if (way == "quick_exit" || way == "at_quick_exit") std::quick_exit(kStatus);
  if (way == "abort") std::abort();
  if (way == "exception") throw std::runtime_error("nobody catches it");
  if (way == "signal") raise(SIGTERM);
  return kStatus;
}

}  // namespace

int main() {
  // Nobody reads what would be written of an aborted program.
  const rlimit none{};
  setrlimit(RLIMIT_CORE, &none);
  std::string line;
  while (std::getline(std::cin, line)) {
    if (line == "tls") {
      OPENSSL_init_ssl(0, nullptr);
    } else if (line == "begin") {
      begin();
    } else {
      return leave(line);
    }
    std::puts("ok");
    std::fflush(stdout);
  }
  return 2;
}
