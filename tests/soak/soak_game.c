/*
 * A game that plays the commands on its standard input and keeps a diary of it: every call of the
 * library before and after, every line of the library's log. The diary is only added to, line by
 * line, so it holds all that happened before a kill.
 *
 * usage: soak_game        with the environment's SOAK_DIARY, a file, and SOAK_NAME, of its ads
 *
 * A line of the diary: microseconds, thread, a letter, the rest. The letters: B call begins, D call
 * is done, U identifier of the current session, L line of the log, K the game kills itself.
 */
#include <fcntl.h>
#include <inttypes.h>
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"

enum { LONGEST_LINE = 4096, MOST_THREADS = 8, EXIT_STATUS = 7 };

static int diary = -1;
static const char* name;

/* The game kills itself at this many more log lines that begin with this text. */
static char lastLine[LONGEST_LINE];
static atomic_int linesToLive = -1;

static long threadNumber(void) { return syscall(SYS_gettid); }

static int64_t microseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

static void enter(char letter, const char* text) {
  char line[LONGEST_LINE];
  int length = snprintf(line, sizeof line - 1, "%" PRId64 " %ld %c %s", microseconds(),
                        threadNumber(), letter, text);
  if (length < 0) abort();
  if (length > (int)sizeof line - 2) length = (int)sizeof line - 2;
  for (int at = 0; at < length; ++at) {
    if (line[at] == '\n') line[at] = ' ';
  }
  line[length] = '\n';
  if (write(diary, line, (size_t)length + 1) != length + 1) abort();
}

static bool begins(const char* text, const char* beginning) {
  return strncmp(text, beginning, strlen(beginning)) == 0;
}

/* What a save has listed says nothing that the file does not say, and is long. */
static void takeLogLine(const char* line, void* context) {
  (void)context;
  const char* text = line + strlen("ZLN Session: ");
  if (begins(text, "saving report")) return;
  enter('L', text);
  if (atomic_load(&linesToLive) <= 0 || !begins(text, lastLine)) return;
  if (atomic_fetch_sub(&linesToLive, 1) != 1) return;
  enter('K', text);
  kill(getpid(), SIGKILL);
}

/* The kinds of call take turns; soak_reports.h knows which number makes which. */
static void sendAd(int number) {
  static void (*const kPlain[])(const char*, bool) = {ZLNSendBannerAdAttemptReport,
                                                      ZLNSendInterstitialAdAttemptReport,
                                                      ZLNSendRewardedAdAttemptReport};
  static void (*const kZoned[])(const char*, const char*, bool) = {
      ZLNSendBannerAdZoneAttemptReport, ZLNSendInterstitialAdZoneAttemptReport,
      ZLNSendRewardedAdZoneAttemptReport};
  char network[64];
  char zone[64];
  const bool filled = number % 3 == 0;
  const int type = number % 4;
  snprintf(network, sizeof network, "%s.%d", name, number);
  snprintf(zone, sizeof zone, "zone <%d> & \xc3\xbc", number);
  if (number % 8 < 4) {
    type < 3 ? kPlain[type](network, filled) : ZLNSendAdAttemptReport(network, "own kind", filled);
  } else {
    type < 3 ? kZoned[type](network, zone, filled)
             : ZLNSendAdZoneAttemptReport(network, "own kind", zone, filled);
  }
}

typedef struct Share {
  int from;
  int count;
} Share;

static void* sendShare(void* argument) {
  const Share share = *(const Share*)argument;
  for (int number = share.from; number < share.from + share.count; ++number) {
    char text[32];
    snprintf(text, sizeof text, "ad %d", number);
    enter('B', text);
    sendAd(number);
    enter('D', text);
  }
  return NULL;
}

/* Sends `each` ads from each of so many threads. */
static void sendAds(int threads, int from, int each) {
  pthread_t others[MOST_THREADS];
  Share shares[MOST_THREADS];
  if (threads > MOST_THREADS) abort();
  for (int at = 0; at < threads; ++at) {
    shares[at].from = from + at * each;
    shares[at].count = each;
    if (at != 0 && pthread_create(&others[at], NULL, sendShare, &shares[at]) != 0) abort();
  }
  sendShare(&shares[0]);
  for (int at = 1; at < threads; ++at) pthread_join(others[at], NULL);
}

static void enterSession(void) {
  static const char key[] = "UUID: ";
  char* description = ZLNGetSessionDescription();
  char* identifier = strstr(description, key);
  if (identifier != NULL) {
    identifier += strlen(key);
    identifier[strcspn(identifier, "\n")] = '\0';
    if (*identifier != '\0') enter('U', identifier);
  }
  ZLNReleaseString(description);
}

static bool runEvent(const char* event) {
  static const struct {
    const char* name;
    void (*run)(void);
  } kEvents[] = {{"start", ZLNStartSessionReporting},
                 {"stop", ZLNStopSessionReporting},
                 {"resign", ZLNHostApplicationWillResignActive},
                 {"active", ZLNHostApplicationDidBecomeActive},
                 {"foreground", ZLNHostApplicationWillEnterForeground},
                 {"background", ZLNHostApplicationDidEnterBackground},
                 {"terminate", ZLNHostApplicationWillTerminate}};
  for (size_t at = 0; at < sizeof kEvents / sizeof kEvents[0]; ++at) {
    if (strcmp(event, kEvents[at].name) != 0) continue;
    kEvents[at].run();
    return true;
  }
  return false;
}

static void pauseFor(int milliseconds) {
  const struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
  nanosleep(&time, NULL);
}

static void dieAt(const char* command) {
  int length = 0;
  int count = 0;
  if (sscanf(command, "die %d %n", &count, &length) != 1) abort();
  snprintf(lastLine, sizeof lastLine, "%s", command + length);
  atomic_store(&linesToLive, count);
}

static void leave(const char* command) {
  if (strcmp(command, "exit") == 0) exit(EXIT_STATUS);
  if (strcmp(command, "_exit") == 0) _exit(EXIT_STATUS);
}

static void run(const char* command) {
  int threads;
  int from;
  int each;
  int milliseconds;
  if (begins(command, "die ")) {
    dieAt(command);
  } else if (sscanf(command, "ads %d %d %d", &threads, &from, &each) == 3) {
    sendAds(threads, from, each);
  } else if (sscanf(command, "pause %d", &milliseconds) == 1) {
    pauseFor(milliseconds);
  } else {
    enter('B', command);
    if (!runEvent(command)) abort();
    enter('D', command);
    enterSession();
  }
}

int main(void) {
  static char command[LONGEST_LINE];
  const char* path = getenv("SOAK_DIARY");
  name = getenv("SOAK_NAME");
  if (path == NULL || name == NULL) return 2;
  diary = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (diary < 0) return 2;
  ZLNHostSetLogSink(takeLogLine, NULL);
  ZLNSessionReportingSetLogLevelToSuperVerbose();
  ZLNHostSetApplicationInfo("com.example.soak", "1.2.3");
  ZLNInitializeReporting("engine-5");
  while (fgets(command, sizeof command, stdin) != NULL) {
    command[strcspn(command, "\n")] = '\0';
    if (strcmp(command, "return") == 0) return EXIT_STATUS;
    leave(command);
    run(command);
  }
  return 1;
}
