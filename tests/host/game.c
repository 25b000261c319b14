/*
 * A game that does what it is told: one command a line on standard input, answered with "ok" when
 * it has been carried out. Words are parted by blanks; "%xx" in a word is a byte, "-" is NULL.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"

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

static void setApp(void) { ZLNHostSetApplicationInfo(text(1), text(2)); }
static void initialize(void) { ZLNInitializeReporting(text(1)); }
static void setLevel(void) { ZLNLogSetLevel(strtoull(words[1], NULL, 10)); }
static void logText(void) { ZLNLogError("%@", text(1)); }
static void setSink(void) { ZLNHostSetLogSink(writeLine, stdout); }
static void describe(void) {
  char* description = ZLNGetSessionDescription();
  printf("%s\n", description);
  ZLNReleaseString(description);
}
static void ad(void) { ZLNSendAdAttemptReport(text(1), text(2), filled(3)); }
static void banner(void) { ZLNSendBannerAdAttemptReport(text(1), filled(2)); }
static void interstitial(void) { ZLNSendInterstitialAdAttemptReport(text(1), filled(2)); }
static void rewarded(void) { ZLNSendRewardedAdAttemptReport(text(1), filled(2)); }
static void zone(void) { ZLNSendAdZoneAttemptReport(text(1), text(2), text(3), filled(4)); }
static void bannerZone(void) { ZLNSendBannerAdZoneAttemptReport(text(1), text(2), filled(3)); }
static void interstitialZone(void) {
  ZLNSendInterstitialAdZoneAttemptReport(text(1), text(2), filled(3));
}
static void rewardedZone(void) { ZLNSendRewardedAdZoneAttemptReport(text(1), text(2), filled(3)); }

static const struct {
  const char* name;
  void (*run)(void);
} commands[] = {
    {"app", setApp},
    {"initialize", initialize},
    {"start", ZLNStartSessionReporting},
    {"level", setLevel},
    {"log", logText},
    {"sink", setSink},
    {"describe", describe},
    {"ad", ad},
    {"banner", banner},
    {"interstitial", interstitial},
    {"rewarded", rewarded},
    {"zone", zone},
    {"banner-zone", bannerZone},
    {"interstitial-zone", interstitialZone},
    {"rewarded-zone", rewardedZone},
    {"resign", ZLNHostApplicationWillResignActive},
    {"active", ZLNHostApplicationDidBecomeActive},
    {"foreground", ZLNHostApplicationWillEnterForeground},
    {"background", ZLNHostApplicationDidEnterBackground},
    {"terminate", ZLNHostApplicationWillTerminate},
};

static bool runCommand(void) {
  for (size_t index = 0; index < sizeof commands / sizeof *commands; ++index) {
    if (is(commands[index].name)) {
      commands[index].run();
      return true;
    }
  }
  return false;
}

int main(void) {
  while (fgets(line, sizeof line, stdin) != NULL) {
    splitLine();
    if (!runCommand()) {
      if (is("exit")) exit(7);
      if (is("return")) return 7;
      printf("unknown command\n");
    }
    printf("ok\n");
    fflush(stdout);
  }
  return 1;
}
