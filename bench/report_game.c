/*
 * A game that does one thing that is to be measured, and says on standard output what it took: a
 * name and a number a line. It knows the library by its public headers alone.
 *
 * usage: report_game COMMAND FILE [COUNT [CALLS [PAUSE]]]     FILE is the library's file of reports
 *   fill       records COUNT ad attempts and leaves
 *   calls      the same, then times CALLS further ones, each PAUSE milliseconds after another
 *   start      times the two calls by which reporting starts
 *   load       times from the start until the last stored report is queued
 *   first-attempt  times the first ad attempt after a start
 *   saves      counts these saves by their log lines, untimed
 *   deliver    the same with a server that takes the reports: time, processor time, threads
 *   lifecycle  records COUNT, times CALLS further ones, then the events of the application's life
 *   restore    records COUNT with no server, which holds them, then times the return to the
 *              foreground
 *   rest       records COUNT, waits until nothing goes on any more: resident memory, threads
 */
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "bench/file_watch.h"

enum { CYCLES = 5 };

static const char* file;
static unsigned count;
static unsigned calls;
static unsigned pauseMs;

static void fail(const char* what) {
  fprintf(stderr, "report_game: %s\n", what);
  exit(1);
}

static void tell(const char* name, double value) { printf("%s %.3f\n", name, value); }

static void tellTime(const char* name, uint64_t fromNs, uint64_t toNs) {
  tell(name, (double)(toNs - fromNs) / 1000);
}

/* ---- What a game does ---- */

static void startReporting(void) {
  ZLNHostSetApplicationInfo("com.example.bench", "1.0.0");
  ZLNInitializeReporting("2.5.1");
  ZLNStartSessionReporting();
}

static void start(void) {
  startReporting();
  ZLNHostApplicationDidBecomeActive();
}

static void recordAttempt(unsigned number) {
  if (number % 2 == 0) {
    ZLNSendAdAttemptReport("Sunrise Ads & Partners", "interstitial", true);
  } else {
    ZLNSendAdZoneAttemptReport("Sunrise Ads & Partners", "interstitial", "level complete", false);
  }
}

static void recordAttempts(unsigned attempts) {
  for (unsigned number = 0; number < attempts; ++number) recordAttempt(number);
}

/* ---- What is measured ---- */

/* A call that leaves no longer file was refused or has not saved, and must not be counted. */
static void timeAttempt(unsigned number) {
  const long long before = fileSize(file);
  const uint64_t begin = nowNs();
  recordAttempt(number);
  const uint64_t end = nowNs();
  if (fileSize(file) <= before) fail("an ad attempt is not in the file when its call returns");
  tellTime("call_us", begin, end);
}

/* The three requests that stall are on their way before the first call. */
static void timeBurst(void) {
  sleepMs(50);
  for (unsigned number = 0; number < calls; ++number) {
    if (pauseMs > 0) sleepMs(pauseMs);
    timeAttempt(number);
  }
}

static void fill(void) {
  start();
  recordAttempts(count);
}

static void measureCalls(void) {
  fill();
  timeBurst();
}

static void measureStart(void) {
  const uint64_t begin = nowNs();
  startReporting();
  tellTime("start_us", begin, nowNs());
}

static atomic_uint saves;
static atomic_uint held;
static atomic_ullong lastSaveNs;

static void watchLine(const char* line, void* context) {
  (void)context;
  if (strstr(line, "report added to temporary error holding") != NULL) ++held;
  if (strstr(line, "saved ") == NULL) return;
  lastSaveNs = nowNs();
  ++saves;
}

/* The last save of what is stored is told of in the log: it changes nothing in the file. */
static void measureLoad(void) {
  ZLNLogSetLevel(ZLNLogLevelDebug);
  ZLNHostSetLogSink(watchLine, NULL);
  const uint64_t begin = nowNs();
  start();
  waitUntilStill(file, 500, 500);
  tellTime("load_us", begin, lastSaveNs);
}

static void measureFirstAttempt(void) {
  start();
  timeAttempt(0);
}

static void measureRestoring(void) {
  ZLNLogSetLevel(ZLNLogLevelDebug);
  ZLNHostSetLogSink(watchLine, NULL);
  fill();
  while (held < count) sleepMs(1);
  ZLNLogSetLevel(ZLNLogLevelError);
  ZLNHostApplicationWillResignActive();
  ZLNHostApplicationDidEnterBackground();
  const uint64_t begin = nowNs();
  ZLNHostApplicationWillEnterForeground();
  tellTime("restore_us", begin, nowNs());
}

static void countSaves(void) {
  ZLNLogSetLevel(ZLNLogLevelDebug);
  ZLNHostSetLogSink(watchLine, NULL);
  start();
  waitUntilStill(file, 5000, 500);
  tell("saves", saves);
}

static void measureDelivery(void) {
  const uint64_t begin = nowNs();
  const uint64_t processorBefore = processorUs();
  start();
  const StillFile end = waitUntilStill(file, 5000, 1000);
  tellTime("delivery_us", begin, end.lastChangeNs);
  tell("processor_us", (double)(end.processorUs - processorBefore));
  tell("threads", (double)end.mostThreads);
}

static void timeEvent(const char* name, void (*happen)(void)) {
  const uint64_t begin = nowNs();
  happen();
  tellTime(name, begin, nowNs());
}

static void measureLifecycle(void) {
  fill();
  timeBurst();
  for (int cycle = 0; cycle < CYCLES; ++cycle) {
    timeEvent("WillResignActive", ZLNHostApplicationWillResignActive);
    timeEvent("DidEnterBackground", ZLNHostApplicationDidEnterBackground);
    timeEvent("WillEnterForeground", ZLNHostApplicationWillEnterForeground);
    timeEvent("DidBecomeActive", ZLNHostApplicationDidBecomeActive);
  }
  timeEvent("WillTerminate", ZLNHostApplicationWillTerminate);
}

/* Threads without work end after a second. */
static void measureRest(void) {
  fill();
  waitUntilStill(file, 50000, 2500);
  tell("resident_kb", (double)residentKb());
  tell("threads", (double)threadCount());
}

static const struct {
  const char* name;
  void (*run)(void);
} commands[] = {{"fill", fill},
                {"calls", measureCalls},
                {"start", measureStart},
                {"load", measureLoad},
                {"first-attempt", measureFirstAttempt},
                {"saves", countSaves},
                {"deliver", measureDelivery},
                {"lifecycle", measureLifecycle},
                {"restore", measureRestoring},
                {"rest", measureRest}};

int main(int argc, char** argv) {
  if (argc < 3) fail("usage: report_game COMMAND FILE [COUNT [CALLS [PAUSE]]]");
  file = argv[2];
  if (argc > 3) count = (unsigned)strtoul(argv[3], NULL, 10);
  if (argc > 4) calls = (unsigned)strtoul(argv[4], NULL, 10);
  if (argc > 5) pauseMs = (unsigned)strtoul(argv[5], NULL, 10);
  for (size_t i = 0; i < sizeof commands / sizeof commands[0]; ++i) {
    if (strcmp(commands[i].name, argv[1]) != 0) continue;
    commands[i].run();
    return 0;
  }
  fail("unknown command");
}
