/*
 * Days in the life of a game, for the demonstration: it says every call that it makes and waits,
 * step by step, until the receiver has what the call sent.
 *
 * usage: game_day first-launch|next-morning|no-server|after-the-kill|new-settings|play-on PLAY PORT
 *
 * PLAY is the folder of the demonstration. In it lie the settings that the collector hands out,
 * which the game writes in the place of an operator, and the player's home folder with the files of
 * the library. PORT is where the collector answers what has arrived. play-on has no end: session
 * follows on session until the game is interrupted.
 */

#define _POSIX_C_SOURCE 200809L /* nanosleep, clock_gettime, chdir, sigaction */

#include <ZLNSessionReporting/ZLNHost.h>
#include <ZLNSessionReporting/ZLNSessionReporting.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "collector.h"

#define LIBRARY_FILES "home/.local/share/com.example.starhopper/com.zelnor.sdk/"

static const char handedOut[] = "handed-out.json";
static const char owedReports[] = LIBRARY_FILES "reporting/reports.json";
static const char keptSettings[] = LIBRARY_FILES "data/config.dat";

static long expectedReports;
static atomic_long failedAttempts;

/* ---- What the reader sees ---- */

static void chapter(const char* title, const char* explanation) {
  printf("\n--- %s ---\n%s\n", title, explanation);
}

static void say(const char* text) { printf("game     | %s\n", text); }

/* Shows a call of the library as it stands in the source and makes it. */
#define CALL(call)  \
  do {              \
    say(#call ";"); \
    call;           \
  } while (0)

/* Called by threads of the library. The ends of long lines are left out. */
static void showLogLine(const char* line, void* context) {
  (void)context;
  printf("library  | %.117s%s\n", line, strlen(line) > 117 ? "..." : "");
  if (strstr(line, "failed to submit report") != NULL) failedAttempts++;
}

static void showSession(void) {
  say("ZLNGetSessionDescription() answers:");
  char* description = ZLNGetSessionDescription();
  if (description == NULL) return;
  for (char* line = strtok(description, "\n"); line != NULL; line = strtok(NULL, "\n")) {
    printf("game     |     %s\n", line);
  }
  ZLNReleaseString(description);
}

/* ---- Waiting ---- */

static void pauseMilliseconds(long milliseconds) {
  const struct timespec pause = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&pause, NULL);
}

static double secondsNow(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

/* The beginning of a file, zero-terminated and valid until the next call; "" when there is none. */
static const char* contentOf(const char* path) {
  static char content[256 * 1024];
  FILE* file = fopen(path, "r");
  size_t length = 0;
  if (file != NULL) {
    length = fread(content, 1, sizeof content - 1, file);
    fclose(file);
  }
  content[length] = '\0';
  return content;
}

static void giveUp(const char* why) {
  say(why);
  exit(EXIT_FAILURE);
}

static long countReceived(void) {
  const long arrived = collectorReportCount();
  if (arrived < 0) giveUp("the collector does not answer; giving up");
  return arrived;
}

/* Asks again and again whether it is so; gives up after ten seconds. */
static void await(bool (*isSo)(const void*), const void* what, const char* complaint) {
  for (int tries = 0; !isSo(what); tries++) {
    if (tries == 100) giveUp(complaint);
    pauseMilliseconds(100);
  }
  pauseMilliseconds(200); /* The answer travels back, and the reader follows. */
}

static bool haveArrived(const void* reports) { return countReceived() >= *(const long*)reports; }

/* Waits until so many more reports have arrived. */
static void awaitReports(int more) {
  expectedReports += more;
  await(haveArrived, &expectedReports, "no report arrives within ten seconds; giving up");
}

static void awaitNoReport(void) {
  pauseMilliseconds(1500);
  if (countReceived() != expectedReports) giveUp("a report arrives that should not; giving up");
  say("(a moment later: no report has arrived)");
}

static bool haveFailed(const void* attempts) { return failedAttempts >= *(const long*)attempts; }

/* Waits until the library has tried to send one more report as often as it does. */
static void awaitFailedReport(void) {
  static long expectedFailures;
  expectedFailures += 3;
  await(haveFailed, &expectedFailures, "the library does not try three times; giving up");
}

static bool isKept(const void* setting) { return strstr(contentOf(keptSettings), setting) != NULL; }

/* Waits until the library has taken settings and stored them. `setting` is one as it is stored. */
static void awaitSetting(const char* setting) {
  await(isKept, setting, "the settings do not arrive within ten seconds; giving up");
}

/* ---- What surrounds the game ---- */

static void handOut(const char* settings) {
  FILE* file = fopen(handedOut, "w");
  if (file == NULL || fputs(settings, file) == EOF || fclose(file) == EOF) {
    giveUp("the settings cannot be written; giving up");
  }
  printf("operator | from now on the server answers requests for settings with\n");
  printf("operator |     %s\n", settings);
}

/* A report whose tries overlap may stand in the file twice, and is owed once. */
static long countOwedReports(const char* file) {
  long owed = 0;
  const char* end;
  while ((file = strstr(file, "<dict>")) != NULL && (end = strstr(file, "</dict>")) != NULL) {
    const size_t length = (size_t)(end - file);
    const char* next = strstr(end, "<dict>");
    const bool isRepeated = next != NULL && strncmp(file, next, length) == 0;
    if (!isRepeated) owed++;
    file = end;
  }
  return owed;
}

static void showOwedReports(void) {
  printf("file     | reports.json: the library owes the server %ld report(s)\n",
         countOwedReports(contentOf(owedReports)));
}

static void playFor(int seconds) {
  printf("game     | (the player plays for %d s)\n", seconds);
  pauseMilliseconds(1000L * seconds);
}

/* ---- The days ---- */

static void start(void) {
  CALL(ZLNHostSetApplicationInfo("com.example.starhopper", "1.4.2"));
  CALL(ZLNInitializeReporting("3.2.1"));
  CALL(ZLNStartSessionReporting());
  CALL(ZLNHostApplicationDidBecomeActive());
}

static void launch(void) {
  start();
  awaitReports(1);
}

static void showAdsOfEveryKind(void) {
  chapter("Advertisements", "Each attempt to show one is reported, filled or not.");
  CALL(ZLNSendBannerAdAttemptReport("Sunrise", true));
  awaitReports(1);
  CALL(ZLNSendInterstitialAdAttemptReport("Sunrise", false));
  awaitReports(1);
  CALL(ZLNSendRewardedAdAttemptReport("Meteor", true));
  awaitReports(1);
  CALL(ZLNSendAdAttemptReport("Meteor", "playable", true));
  awaitReports(1);
  CALL(ZLNSendBannerAdZoneAttemptReport("Sunrise", "main menu", true));
  awaitReports(1);
  CALL(ZLNSendInterstitialAdZoneAttemptReport("Meteor", "between levels", true));
  awaitReports(1);
  CALL(ZLNSendRewardedAdZoneAttemptReport("Meteor", "extra life", false));
  awaitReports(1);
  CALL(ZLNSendAdZoneAttemptReport("Sunrise", "native", "shop", true));
  awaitReports(1);
}

static void takePhoneCall(void) {
  chapter(
      "A phone call covers the game",
      "The session is paused and then goes on: nothing is sent, and the call does not count as\n"
      "play (\"Total Duration\" holds what was played before it).");
  playFor(1);
  CALL(ZLNHostApplicationWillResignActive());
  say("(the player talks for 2 s)");
  pauseMilliseconds(2000);
  CALL(ZLNHostApplicationDidBecomeActive());
  showSession();
}

static void sendRefusedReport(void) {
  chapter("A report that the server refuses for good",
          "It is dropped: the server sees it once. The library says so in its log.");
  CALL(ZLNSendBannerAdAttemptReport("Grumble", true));
  awaitReports(1);
}

static void sendUnluckyReport(void) {
  chapter("A report that the server cannot take just now",
          "It is sent again at once, and this time it is taken: two arrivals, one report.");
  CALL(ZLNSendBannerAdAttemptReport("Flicker", true));
  awaitReports(2);
}

static void goAwayAndComeBack(void) {
  chapter("To the background and back",
          "Back within a minute, so the session goes on as after the phone call.");
  CALL(ZLNHostApplicationWillResignActive());
  CALL(ZLNHostApplicationDidEnterBackground());
  say("(the player is elsewhere for 1 s)");
  pauseMilliseconds(1000);
  CALL(ZLNHostApplicationWillEnterForeground());
  CALL(ZLNHostApplicationDidBecomeActive());
  playFor(1);
}

static void end(void) {
  chapter("The game ends",
          "The session is stopped at its last pause, and its stop report goes out.");
  CALL(ZLNHostApplicationWillResignActive());
  CALL(ZLNHostApplicationDidEnterBackground());
  CALL(ZLNHostApplicationWillTerminate());
  awaitReports(1);
  say("(the system gives the game another second)");
  pauseMilliseconds(1000);
}

static void firstLaunch(void) {
  chapter("The game is started for the first time",
          "It says who it is and switches the library on. The first session ever is reported.");
  launch();
  showAdsOfEveryKind();
  takePhoneCall();
  sendRefusedReport();
  sendUnluckyReport();
  goAwayAndComeBack();
  end();
}

static void nextMorning(void) {
  chapter("The next morning",
          "A new process on the same installation: the same user, now an ordinary session start.");
  launch();
  playFor(1);
  end();
}

static void launchWithoutServer(void) {
  chapter(
      "The server is gone",
      "The game plays on. Each report is tried three times and then held, and the library keeps\n"
      "in a file what it owes.");
  start();
  awaitFailedReport();
  showOwedReports();
  CALL(ZLNSendBannerAdAttemptReport("Nightfall", true));
  awaitFailedReport();
  showOwedReports();
  CALL(ZLNSendInterstitialAdAttemptReport("Nightfall", false));
  awaitFailedReport();
  showOwedReports();
  CALL(ZLNSendRewardedAdZoneAttemptReport("Nightfall", "extra life", true));
  awaitFailedReport();
  showOwedReports();
}

static void beKilled(void) {
  chapter("The game is killed",
          "The player looks at something else, and the system needs the memory: SIGKILL.");
  CALL(ZLNHostApplicationWillResignActive());
  CALL(ZLNHostApplicationDidEnterBackground());
  showOwedReports();
  CALL(raise(SIGKILL));
}

static void withoutServer(void) {
  launchWithoutServer();
  beKilled();
}

static void afterTheKill(void) {
  chapter("The server is back, and the game is started again",
          "What the killed game owed arrives now, besides the start of the new session.");
  start();
  awaitReports(4 + 1);
  end();
}

static void takeShortLimit(void) {
  chapter(
      "The server hands out settings",
      "The time of the last fetch lies long back, so the library asks for settings when it starts.\n"
      "It gets a limit of 3 seconds in the background in place of 60, and an update interval\n"
      "below zero: from now on it asks whenever the game becomes active.");
  handOut(
      "{\"ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds\":3,"
      "\"ConfigSerializationKeyConfigUpdateInterval\":-1}");
  launch();
  awaitSetting("UserSessionBackgroundTimeoutSeconds</key>\n\t<real>3</real>");
  say("(config.dat holds the 3 seconds: they are in force)");
}

static void stayAwayForTheLimit(void) {
  chapter("To the background under the new limit",
          "The session is stopped after 3 seconds there, while the game is still running.");
  playFor(1);
  CALL(ZLNHostApplicationWillResignActive());
  CALL(ZLNHostApplicationDidEnterBackground());
  const double left = secondsNow();
  while (countReceived() == expectedReports && secondsNow() - left < 20) pauseMilliseconds(20);
  printf("game     | (%.1f s in the background)\n", secondsNow() - left);
  awaitReports(1);
}

static void playWithoutStopReports(void) {
  chapter(
      "Stop reports are switched off",
      "Back in the game a new session begins, and the library asks for settings again. When that\n"
      "session is stopped, no report says so.");
  handOut("{\"ConfigSerializationKeySendStopSessionReports\":false}");
  CALL(ZLNHostApplicationWillEnterForeground());
  CALL(ZLNHostApplicationDidBecomeActive());
  awaitReports(1);
  awaitSetting("SendStopSessionReports</key>\n\t<false/>");
  say("(config.dat holds it: stop reports are off)");
  playFor(1);
  CALL(ZLNStopSessionReporting());
  awaitNoReport();
}

static void switchStopReportsOnAgain(void) {
  chapter("And on again", "The next session is reported like the first ones, its stop included.");
  handOut("{\"ConfigSerializationKeySendStopSessionReports\":true}");
  CALL(ZLNHostApplicationWillResignActive());
  CALL(ZLNHostApplicationDidBecomeActive());
  awaitReports(1);
  awaitSetting("SendStopSessionReports</key>\n\t<true/>");
  say("(config.dat holds it: stop reports are on)");
  playFor(1);
}

static void newSettings(void) {
  takeShortLimit();
  stayAwayForTheLimit();
  playWithoutStopReports();
  switchStopReportsOnAgain();
  end();
}

/* ---- A player without an end ---- */

static volatile sig_atomic_t isOver;

static void endPlay(int signal) {
  (void)signal;
  isOver = 1;
}

static void heedInterruptions(void) {
  struct sigaction action = {.sa_handler = endPlay};
  sigaction(SIGINT, &action, NULL);
  sigaction(SIGTERM, &action, NULL);
}

/* From `least` to twice as long, unless the game is to end. */
static void passTime(long leastMilliseconds) {
  long left = leastMilliseconds + rand() % leastMilliseconds;
  for (; left > 0 && !isOver; left -= 100) pauseMilliseconds(100);
}

static void attemptAnyAd(void) {
  static const char* const networks[] = {"Sunrise", "Meteor", "Nightfall", "Flicker"};
  static const char* const zones[] = {"main menu", "between levels", "shop"};
  const char* network = networks[rand() % 4];
  const char* zone = zones[rand() % 3];
  const bool isFilled = rand() % 3 > 0;
  printf("game     | %s %s advertisement in zone %s\n", network, isFilled ? "shows an" : "has no",
         zone);
  switch (rand() % 4) {
    case 0:
      ZLNSendBannerAdZoneAttemptReport(network, zone, isFilled);
      break;
    case 1:
      ZLNSendInterstitialAdZoneAttemptReport(network, zone, isFilled);
      break;
    case 2:
      ZLNSendRewardedAdZoneAttemptReport(network, zone, isFilled);
      break;
    default:
      ZLNSendBannerAdAttemptReport(network, isFilled);
  }
}

static void playARound(void) {
  say("the player plays");
  for (int attempts = 2 + rand() % 4; attempts > 0 && !isOver; attempts--) {
    passTime(1500);
    attemptAnyAd();
  }
}

static void lookAway(void) {
  say("the player looks away for a moment: the session is paused");
  ZLNHostApplicationWillResignActive();
  passTime(1500);
  ZLNHostApplicationDidBecomeActive();
}

/* Longer than the settings of the days before allow, so the session is stopped there. */
static void putTheGameAway(void) {
  say("the player puts the game away: the session is stopped");
  ZLNHostApplicationWillResignActive();
  ZLNHostApplicationDidEnterBackground();
  passTime(5000);
  ZLNHostApplicationWillEnterForeground();
  ZLNHostApplicationDidBecomeActive();
}

static void leaveTheGame(void) {
  ZLNHostApplicationWillResignActive();
  ZLNHostApplicationDidEnterBackground();
  ZLNHostApplicationWillTerminate();
  pauseMilliseconds(1000);
}

static void playOn(void) {
  heedInterruptions();
  srand((unsigned)getpid());
  start();
  while (!isOver) {
    playARound();
    lookAway();
    playARound();
    putTheGameAway();
  }
  leaveTheGame();
}

typedef void (*Launch)(void);

static const struct {
  const char* name;
  Launch play;
} launches[] = {
    {"first-launch", firstLaunch},    {"next-morning", nextMorning}, {"no-server", withoutServer},
    {"after-the-kill", afterTheKill}, {"new-settings", newSettings}, {"play-on", playOn},
};

static Launch findLaunch(const char* name) {
  for (size_t at = 0; at < sizeof launches / sizeof *launches; at++) {
    if (strcmp(launches[at].name, name) == 0) return launches[at].play;
  }
  return NULL;
}

int main(int argc, char* argv[]) {
  const Launch play = argc == 4 ? findLaunch(argv[1]) : NULL;
  if (play == NULL || chdir(argv[2]) != 0 || !collectorIsAt(argv[3])) {
    fprintf(stderr, "usage: game_day LAUNCH PLAY PORT\n");
    return EXIT_FAILURE;
  }
  /* Without a collector nothing is awaited. */
  expectedReports = collectorReportCount();
  setvbuf(stdout, NULL, _IOLBF, 0);
  ZLNHostSetLogSink(showLogLine, NULL);

  play();
  return EXIT_SUCCESS;
}
