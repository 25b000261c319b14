/* The smallest game that reports its sessions. */

#define _POSIX_C_SOURCE 200809L /* nanosleep */

#include <ZLNSessionReporting/ZLNHost.h>
#include <ZLNSessionReporting/ZLNSessionReporting.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static void drawFrame(int frame) {
  const struct timespec aSixtieth = {0, 16666667};
  printf("\rframe %d", frame);
  fflush(stdout);
  nanosleep(&aSixtieth, NULL);
}

static void play(void) {
  for (int frame = 1; frame <= 300; frame++) drawFrame(frame);
  printf("\n");
}

int main(void) {
  ZLNHostSetApplicationInfo("com.example.hello", "1.0.0");
  ZLNInitializeReporting("2.5.1"); /* The version of the game's engine. */
  ZLNStartSessionReporting();
  ZLNHostApplicationDidBecomeActive();

  ZLNSendBannerAdAttemptReport("Sunrise Ads", true);
  play();

  ZLNHostApplicationWillResignActive();
  ZLNHostApplicationDidEnterBackground();
  ZLNHostApplicationWillTerminate();
  return EXIT_SUCCESS;
}
