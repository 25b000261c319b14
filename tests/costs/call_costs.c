/*
 * Makes ad-attempt calls on a queue of a given length, with what is counted between marks.
 *
 * usage: call_costs DEPTH CALLS
 * Prints the allocations of one call. A tracer sees getppid() before and after each counted call.
 */
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"

void* __libc_malloc(size_t size);

static __thread bool counts = false;
static __thread unsigned long allocations = 0;

void* malloc(size_t size) {
  if (counts) ++allocations;
  return __libc_malloc(size);
}

static void sendAd(void) {
  ZLNSendInterstitialAdZoneAttemptReport("network & partners", "level-complete-zone", true);
}

static void ignoreLine(const char* line, void* context) {
  (void)line;
  (void)context;
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int depth = atoi(argv[1]);
  const int calls = atoi(argv[2]);
  ZLNHostSetApplicationInfo("com.example.costs", "1.0");
  ZLNHostSetLogSink(ignoreLine, NULL);
  ZLNInitializeReporting("1.0");
  ZLNStartSessionReporting();
  /* Three reports are under way with a server that keeps silent; from here on a report waits. */
  for (int sent = 0; sent < 3 + depth; ++sent) sendAd();
  for (int call = 0; call < calls; ++call) {
    getppid();
    counts = true;
    ZLNSendRewardedAdZoneAttemptReport("network & partners", "level-complete-zone", true);
    counts = false;
    getppid();
  }
  printf("allocations %lu\n", allocations / (unsigned long)calls);
  fflush(stdout);
  _exit(0);
}
