// A host that calls every function of the library from many threads at once. Each line of its input
// is a command, which is answered with "ok": "storm SEED SECONDS", "foreground" when all that is
// owed shall be sent, and "end".

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/leaving_functions.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kThreads = 8;
// Between two calls of a thread, so that the network keeps up.
constexpr std::chrono::milliseconds kPause{20};

std::atomic<std::uint64_t> lastTask{0};

uint64_t beginTask(void*) { return ++lastTask; }
void endTask(uint64_t, void*) {}
double remainingTime(void*) { return std::numeric_limits<double>::max(); }

void setHooks() {
  const ZLNHostBackgroundTaskHooks hooks = {&beginTask, &endTask, &remainingTime, nullptr};
  ZLNHostSetBackgroundTaskHooks(&hooks);
}

void expireTask() { ZLNHostBackgroundTaskWillExpire(lastTask); }

void callUntil(Clock::time_point end, unsigned seed) {
  std::mt19937 random(seed);
  constexpr std::size_t kCount = std::size(zln::kPublicFunctions);
  while (Clock::now() < end) {
    const std::size_t choice = random() % (kCount + 2);
    if (choice == kCount) {
      setHooks();
    } else if (choice == kCount + 1) {
      expireTask();
    } else {
      zln::kPublicFunctions[choice].call();
    }
    std::this_thread::sleep_for(kPause);
  }
}

void storm(unsigned seed, int seconds) {
  ZLNHostSetApplicationInfo("com.example.game", "1.2.3");
  ZLNHostSetLogSink(&zln::ignoreLine, nullptr);
  ZLNInitializeReporting("engine-5");
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  std::vector<std::thread> threads;
  for (unsigned index = 0; index < kThreads; ++index) {
    threads.emplace_back(&callUntil, end, seed * kThreads + index);
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

int main() {
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::string command;
    unsigned seed = 0;
    int seconds = 0;
    words >> command >> seed >> seconds;
    if (command == "end") return 0;
    if (command == "storm") storm(seed, seconds);
    if (command == "foreground") {
      ZLNHostApplicationWillEnterForeground();
      ZLNHostApplicationDidBecomeActive();
    }
    std::puts("ok");
    std::fflush(stdout);
  }
  return 0;
}
