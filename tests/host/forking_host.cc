// A host that forks. Each line of its input is a command, which is answered with "ok"; before that
// stands what there is to say. A child that was forked off says what came of it by its status.

#include <dirent.h>
#include <linux/close_range.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/leaving_functions.h"

extern char** environ;

namespace {

// No child takes so long, however slow the machine; one that hangs is ended then, before the test
// gives up.
constexpr unsigned kPatienceSeconds = 40;
constexpr int kThreads = 4;
constexpr int kForksOfAThread = 25;

constexpr int kAllWell = 7;
constexpr int kWrongText = 8;
constexpr int kLineWritten = 9;
constexpr int kWorked = 10;

char* program = nullptr;
std::atomic<bool> lineWasWritten{false};

void noteLine(const char*, void*) { lineWasWritten = true; }

bool hasNoSession() {
  char* text = ZLNGetSessionDescription();
  const bool isSo = std::strcmp(text, "[Encountered error]") == 0;
  ZLNReleaseString(text);
  return isSo;
}

// Calls everything in a child and returns the status that tells what came of it.
int callInChild() {
  alarm(kPatienceSeconds);
  ZLNHostSetLogSink(&noteLine, nullptr);
  zln::callEveryFunction();
  ZLNHostSetLogSink(&noteLine, nullptr);
  ZLNLogError("a line");
  ZLNSendAdAttemptReport(nullptr, nullptr, true);
  if (lineWasWritten) return kLineWritten;
  return hasNoSession() ? kAllWell : kWrongText;
}

// As in a host that starts to use the library only when it has forked.
int useInChild() {
  alarm(kPatienceSeconds);
  zln::beginGame();
  ZLNSendBannerAdAttemptReport("child", true);
  return hasNoSession() ? kWrongText : kWorked;
}

// Goes on as this program anew, which does what it is given.
void become(const char* task) {
  char* arguments[] = {program, const_cast<char*>(task), nullptr};
  execv(program, arguments);
}

[[noreturn]] void leaveChild(const std::string& way, int status) {
  if (way == "exit") std::exit(status);
  if (way == "quick_exit") std::quick_exit(status);
  if (way == "abort") std::abort();
  if (way == "exec") become("nothing");
  if (way == "list-after-exec") become("list");
  _exit(status);
}

int statusOf(pid_t child) {
  int status = 0;
  return waitpid(child, &status, 0) != child ? -1
         : WIFEXITED(status)                 ? WEXITSTATUS(status)
                                             : 1000 + WTERMSIG(status);
}

// The status of a child that does this and ends with what it returns.
template <typename Body>
int inChild(Body body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  return statusOf(child);
}

int forkAndCall(const std::string& way) {
  const pid_t child = fork();
  if (child == 0) leaveChild(way, callInChild());
  return statusOf(child);
}

// The child goes on when this process has ended. It ends when nobody writes to its input any more.
void forkAndLeaveAlone() {
  if (fork() != 0) return;
  const int status = callInChild();
  alarm(0);
  char byte;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
  }
  _exit(status);
}

int spawn() {
  pid_t child = 0;
  char* arguments[] = {program, const_cast<char*>("nothing"), nullptr};
  if (posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0) return -1;
  return statusOf(child);
}

int forkVirtually() {
  const pid_t child = vfork();
  if (child == 0) {
    become("nothing");
    _exit(127);
  }
  return statusOf(child);
}

// The first of the statuses that is not the expected one.
template <typename ForkOnce>
int forkOften(ForkOnce forkOnce) {
  for (int count = 0; count < kForksOfAThread; ++count) {
    const int status = forkOnce();
    if (status != kAllWell) return status;
  }
  return kAllWell;
}

// Runs `body` on threads of their own, and `meanwhile` on this one.
template <typename Body, typename Meanwhile>
int besideThreads(Body body, Meanwhile meanwhile) {
  std::vector<std::thread> threads;
  for (int index = 0; index < kThreads; ++index) threads.emplace_back(body);
  const int status = meanwhile();
  for (std::thread& thread : threads) thread.join();
  return status;
}

// Forks while other threads are inside the library.
int forkBesideCalls() {
  std::atomic<bool> isOver{false};
  const auto call = [&isOver] {
    while (!isOver) {
      ZLNSendBannerAdAttemptReport("storm", true);
      ZLNReleaseString(ZLNGetSessionDescription());
      ZLNHostApplicationWillResignActive();
      ZLNLogDebug("%@", "storm");
      ZLNHostApplicationDidBecomeActive();
    }
  };
  return besideThreads(call, [&isOver] {
    const int status = forkOften([] { return inChild(&callInChild); });
    isOver = true;
    return status;
  });
}

int forkOnAllThreads() {
  std::atomic<int> wrong{kAllWell};
  const auto forkAll = [&wrong] {
    const int status = forkOften([] {
      ZLNSendBannerAdAttemptReport("storm", true);
      return inChild(&callInChild);
    });
    if (status != kAllWell) wrong = status;
  };
  besideThreads(forkAll, [] { return 0; });
  return wrong;
}

// Forks while other threads call the library for the first time. A child may come too early to
// know of them: then it may use the library itself.
int forkBesideFirstCalls() {
  std::atomic<int> missing{kThreads + 1};
  // All go on at the very same time.
  const auto meet = [&missing] {
    --missing;
    while (missing > 0) std::this_thread::yield();
  };
  const auto callFirst = [&meet] {
    meet();
    zln::beginGame();
  };
  return besideThreads(callFirst, [&meet] {
    meet();
    return inChild([] {
      alarm(kPatienceSeconds);
      ZLNInitializeReporting("engine-5");
      return kAllWell;
    });
  });
}

int run(const std::string& command) {
  if (command == "begin") return zln::beginGame(), 0;
  if (command == "banner") return ZLNSendBannerAdAttemptReport("parent", true), 0;
  if (command == "leave-child-alone") return forkAndLeaveAlone(), 0;
  if (command == "use-in-child") return inChild(&useInChild);
  if (command == "grandchild") return inChild([] { return forkAndCall("exit"); });
  if (command == "spawn") return spawn();
  if (command == "vfork") return forkVirtually();
  if (command == "beside-calls") return forkBesideCalls();
  if (command == "on-all-threads") return forkOnAllThreads();
  if (command == "beside-first-calls") return forkBesideFirstCalls();
  return forkAndCall(command);
}

void printFunctions() {
  for (const zln::PublicFunction& function : zln::kPublicFunctions) std::puts(function.name);
}

// Each descriptor beyond the usual three, and what it is.
int listDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(folder)) {
    const int number = std::atoi(entry->d_name);
    if (number <= STDERR_FILENO || number == dirfd(folder)) continue;
    const std::string link = std::string("/proc/self/fd/") + entry->d_name;
    char target[256] = {};
    if (readlink(link.c_str(), target, sizeof target - 1) > 0) std::puts(target);
  }
  std::fflush(stdout);
  return kAllWell;
}

}  // namespace

int main(int count, char** arguments) {
  program = arguments[0];
  // What the host has been given by others is none of the library's.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  if (count > 1) return std::strcmp(arguments[1], "list") == 0 ? listDescriptors() : kAllWell;
  std::string command;
  while (std::getline(std::cin, command)) {
    if (command == "functions") {
      printFunctions();
    } else {
      std::printf("%d\n", run(command));
    }
    std::puts("ok");
    std::fflush(stdout);
  }
  return 0;
}
