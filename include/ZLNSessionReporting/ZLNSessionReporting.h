#ifndef ZLNSESSIONREPORTING_ZLNSESSIONREPORTING_H
#define ZLNSESSIONREPORTING_ZLNSESSIONREPORTING_H

#include <stdbool.h>

#include "ZLNSessionReporting/ZLNExport.h"

ZLN_EXTERN_C_BEGIN

/*
 * Session reporting for a game.
 *
 * Call ZLNInitializeReporting once, then ZLNStartSessionReporting; from then on the library
 * follows the application's life by itself (where the system does not tell it, see ZLNHost.h).
 *
 * All functions may be called from any thread, normally the game's main thread, but not from a
 * signal handler: one that interrupts the library may deadlock. None waits for the network. Strings
 * are zero-terminated UTF-8 and are copied during the call; invalid UTF-8 is replaced by U+FFFD.
 * Before ZLNInitializeReporting every function does nothing, except where it says otherwise.
 * Failures are not returned; they are logged (see ZLNLog.h).
 *
 * After ZLNInitializeReporting alone, the functions that stop reporting, send a report or describe
 * the session start a session themselves, and with it, on a new installation, report the first
 * session.
 *
 * The library stays with the process that first calls any of its functions. In a process that is
 * forked off later all of them, those of ZLNHost.h and ZLNLog.h included, do nothing, and texts are
 * those before ZLNInitializeReporting; the parent goes on unharmed.
 */

/* "@(#)PROGRAM:ZLNSessionReporting  PROJECT:ZLNSessionReporting-7" and a line feed: a mark that
 * file tools find in a binary. */
ZLN_EXPORT extern const unsigned char ZLNSessionReportingVersionString[];
/* 7.0 */
ZLN_EXPORT extern const double ZLNSessionReportingVersionNumber;

/*
 * Switches the library on for the rest of the process, creates its folders and keeps the version
 * of the game engine, which new sessions carry. NULL is an absent version. May be called again:
 * missing folders are made again and the version is replaced.
 */
ZLN_EXPORT void ZLNInitializeReporting(const char* mwVersion);

/*
 * Starts session reporting: settings, sending of reports (also of those that an earlier process
 * left behind) and the first session. The session begins a moment later, on a thread of the
 * library; a ZLNStopSessionReporting that comes before stops nothing. Calling it again has no
 * effect.
 */
ZLN_EXPORT void ZLNStartSessionReporting(void);

/*
 * Stops the current session and queues its stop report. The next time the application becomes
 * active a new session starts.
 *
 * A session always stops at the moment of its last pause. In one that is running, the time since
 * the last resume is not counted and the pause before it is subtracted; if the result is negative,
 * the session is not reported. A session that was never paused is reported with a duration of 0.
 * For the whole duration, call ZLNHostApplicationWillResignActive before (see ZLNHost.h).
 */
ZLN_EXPORT void ZLNStopSessionReporting(void);

/*
 * Records one attempt to show an advertisement and queues its report. `network` names the ad
 * network, `adType` the kind of advertisement, `zone` the ad zone; `filled` says whether the
 * network had something to show. Each call is an attempt of its own.
 *
 * NULL for network, adType or zone is an error of the caller: nothing is queued and a C++
 * std::invalid_argument leaves the function, which ends a program that does not catch it.
 */
ZLN_EXPORT void ZLNSendAdAttemptReport(const char* network, const char* adType, bool filled);
/* The same with the ad types "banner", "interstitial" and "rewarded". */
ZLN_EXPORT void ZLNSendBannerAdAttemptReport(const char* network, bool filled);
ZLN_EXPORT void ZLNSendInterstitialAdAttemptReport(const char* network, bool filled);
ZLN_EXPORT void ZLNSendRewardedAdAttemptReport(const char* network, bool filled);

ZLN_EXPORT void ZLNSendAdZoneAttemptReport(const char* network, const char* adType,
                                           const char* zone, bool filled);
ZLN_EXPORT void ZLNSendBannerAdZoneAttemptReport(const char* network, const char* zone,
                                                 bool filled);
ZLN_EXPORT void ZLNSendInterstitialAdZoneAttemptReport(const char* network, const char* zone,
                                                       bool filled);
ZLN_EXPORT void ZLNSendRewardedAdZoneAttemptReport(const char* network, const char* zone,
                                                   bool filled);

/*
 * Runs the clearing of the library's two folders, "reporting" and "data". The files in them,
 * reports.json with the pending reports and config.dat with the settings, stay: the path that is
 * removed for an entry is that of its folder and its name without a separator
 * ("reportingreports.json"). Something beside the two folders that has such a name is removed, a
 * folder with its contents. What cannot be removed is logged at error level, so normally each file
 * is.
 */
ZLN_EXPORT void ZLNClearCache(void);

/*
 * Nine lines of text about the current session: its times in seconds since 1970, its duration, the
 * current time, its identifier and versions. Without a session every value is empty; before
 * ZLNInitializeReporting the text is "[Encountered error]". The caller owns the string and releases
 * it with ZLNReleaseString or free. NULL only when memory is exhausted.
 */
ZLN_EXPORT char* ZLNGetSessionDescription(void);
/* Releases a string of this library. NULL is allowed. */
ZLN_EXPORT void ZLNReleaseString(char* text);

/* Set the log threshold; they work before ZLNInitializeReporting as well. */
ZLN_EXPORT void ZLNSessionReportingSetLogLevelToError(void);
ZLN_EXPORT void ZLNSessionReportingSetLogLevelToWarn(void);
ZLN_EXPORT void ZLNSessionReportingSetLogLevelToInfo(void);
ZLN_EXPORT void ZLNSessionReportingSetLogLevelToDebug(void);
ZLN_EXPORT void ZLNSessionReportingSetLogLevelToVerbose(void);
ZLN_EXPORT void ZLNSessionReportingSetLogLevelToSuperVerbose(void);

ZLN_EXTERN_C_END

#endif /* ZLNSESSIONREPORTING_ZLNSESSIONREPORTING_H */
