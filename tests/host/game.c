/*
 * A game that does what it is told: one command a line on standard input, answered with "ok" when
 * it has been carried out. Words are parted by blanks; "%xx" in a word is a byte, "-" is NULL.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"
#include "tests/host/catch_invalid_argument.h"

enum { MAX_WORDS = 6, MAX_LINE = 1 << 20 };

static char line[MAX_LINE];
static char* words[MAX_WORDS];

static void decodeBytes(char* word) {
  char* to = word;
  for (const char* from = word; *from != '\0'; ++to) {
    unsigned byte;
    if (*from == '%' && sscanf(from + 1, "%2x", &byte) == 1) {
      *to = (char)byte;
      from += 3;
    } else {
      *to = *from++;
    }
  }
  *to = '\0';
}

static void splitLine(void) {
  int count = 0;
  memset(words, 0, sizeof words);
  for (char* word = strtok(line, " \n"); word != NULL && count < MAX_WORDS;
       word = strtok(NULL, " \n")) {
    decodeBytes(word);
    words[count++] = word;
  }
}

static const char* text(int index) {
  const char* word = words[index];
  return word == NULL || strcmp(word, "-") == 0 ? NULL : word;
}

static bool is(const char* command) { return words[0] != NULL && strcmp(words[0], command) == 0; }

static bool filled(int index) { return text(index) != NULL && strcmp(words[index], "1") == 0; }

static void writeLine(const char* text, void* context) {
  fprintf((FILE*)context, "sink: %s\n", text);
}

static bool runLibraryCommand(void) {
  if (is("app")) {
    ZLNHostSetApplicationInfo(text(1), text(2));
  } else if (is("initialize")) {
    ZLNInitializeReporting(text(1));
  } else if (is("start")) {
    ZLNStartSessionReporting();
  } else if (is("stop")) {
    ZLNStopSessionReporting();
  } else if (is("clear")) {
    ZLNClearCache();
  } else if (is("level")) {
    ZLNLogSetLevel(strtoull(words[1], NULL, 10));
  } else if (is("log")) {
    ZLNLogError("%@", text(1));
  } else if (is("sink")) {
    ZLNHostSetLogSink(writeLine, stdout);
  } else if (is("describe")) {
    char* description = ZLNGetSessionDescription();
    printf("%s\n", description);
    ZLNReleaseString(description);
  } else {
    return false;
  }
  return true;
}

static bool runAdCommand(void) {
  if (is("ad")) {
    ZLNSendAdAttemptReport(text(1), text(2), filled(3));
  } else if (is("banner")) {
    ZLNSendBannerAdAttemptReport(text(1), filled(2));
  } else if (is("interstitial")) {
    ZLNSendInterstitialAdAttemptReport(text(1), filled(2));
  } else if (is("rewarded")) {
    ZLNSendRewardedAdAttemptReport(text(1), filled(2));
  } else if (is("zone")) {
    ZLNSendAdZoneAttemptReport(text(1), text(2), text(3), filled(4));
  } else if (is("banner-zone")) {
    ZLNSendBannerAdZoneAttemptReport(text(1), text(2), filled(3));
  } else if (is("interstitial-zone")) {
    ZLNSendInterstitialAdZoneAttemptReport(text(1), text(2), filled(3));
  } else if (is("rewarded-zone")) {
    ZLNSendRewardedAdZoneAttemptReport(text(1), text(2), filled(3));
  } else if (is("refused")) {
    printf("%s\n", bannerIsRefused(text(1)) ? "refused" : "accepted");
  } else {
    return false;
  }
  return true;
}

static bool runLifecycleCommand(void) {
  if (is("resign")) {
    ZLNHostApplicationWillResignActive();
  } else if (is("active")) {
    ZLNHostApplicationDidBecomeActive();
  } else if (is("foreground")) {
    ZLNHostApplicationWillEnterForeground();
  } else if (is("background")) {
    ZLNHostApplicationDidEnterBackground();
  } else if (is("terminate")) {
    ZLNHostApplicationWillTerminate();
  } else {
    return false;
  }
  return true;
}

static bool leave(void) {
  if (is("exit")) exit(7);
  if (is("_exit")) _exit(7);
  if (is("quick_exit")) quick_exit(7);
  if (is("abort")) abort();
  return is("return");
}

int main(void) {
  while (fgets(line, sizeof line, stdin) != NULL) {
    splitLine();
    if (!runLibraryCommand() && !runAdCommand() && !runLifecycleCommand()) {
      if (leave()) return 7;
      printf("unknown command\n");
    }
    printf("ok\n");
    fflush(stdout);
  }
  return 1;
}
