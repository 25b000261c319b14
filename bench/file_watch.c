#include "bench/file_watch.h"

#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

static uint64_t microseconds(struct timeval time) {
  return (uint64_t)time.tv_sec * 1000000 + (uint64_t)time.tv_usec;
}

uint64_t nowNs(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (uint64_t)now.tv_sec * 1000000000 + (uint64_t)now.tv_nsec;
}

static void sleepUs(unsigned us) {
  const struct timespec time = {us / 1000000, (long)(us % 1000000) * 1000};
  nanosleep(&time, NULL);
}

void sleepMs(unsigned milliseconds) { sleepUs(milliseconds * 1000); }

uint64_t processorUs(void) {
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

long residentKb(void) {
  FILE* status = fopen("/proc/self/status", "re");
  char line[256];
  long kb = 0;
  if (status == NULL) return 0;
  while (kb == 0 && fgets(line, sizeof line, status) != NULL) sscanf(line, "VmRSS: %ld", &kb);
  fclose(status);
  return kb;
}

/* The folder has a link for each, besides its own two: cheaper to look at than to read. */
long threadCount(void) {
  struct stat tasks;
  return stat("/proc/self/task", &tasks) == 0 ? (long)tasks.st_nlink - 2 : 0;
}

long long fileSize(const char* path) {
  struct stat file;
  return stat(path, &file) == 0 ? (long long)file.st_size : -1;
}

static bool isSame(const struct stat* a, const struct stat* b) {
  return a->st_ino == b->st_ino && a->st_size == b->st_size &&
         a->st_ctim.tv_sec == b->st_ctim.tv_sec && a->st_ctim.tv_nsec == b->st_ctim.tv_nsec;
}

StillFile waitUntilStill(const char* path, unsigned stepUs, unsigned restMs) {
  StillFile still = {nowNs(), processorUs(), 0};
  struct stat before;
  struct stat now;
  memset(&before, 0, sizeof before);
  memset(&now, 0, sizeof now);
  while (nowNs() - still.lastChangeNs < (uint64_t)restMs * 1000000) {
    const long threads = threadCount();
    if (threads > still.mostThreads) still.mostThreads = threads;
    if (stat(path, &now) == 0 && !isSame(&before, &now)) {
      before = now;
      still.lastChangeNs = nowNs();
      still.processorUs = processorUs();
    }
    sleepUs(stepUs);
  }
  return still;
}
