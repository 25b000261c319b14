#pragma once

#include "ZLNSessionReporting/ZLNHost.h"
#include "ZLNSessionReporting/ZLNLog.h"
#include "ZLNSessionReporting/ZLNSessionReporting.h"

namespace zln {

// What a game that leaves, or forks, calls of the library: every function of the public headers,
// which a test compares with the headers. The order is that of a game.
struct PublicFunction {
  const char* name;
  void (*call)();
};

inline void ignoreLine(const char*, void*) {}

inline constexpr PublicFunction kPublicFunctions[] = {
    {"ZLNHostSetApplicationInfo", [] { ZLNHostSetApplicationInfo("com.example.game", "1.2.3"); }},
    {"ZLNHostSetLogSink", [] { ZLNHostSetLogSink(&ignoreLine, nullptr); }},
    {"ZLNHostSetBackgroundTaskHooks", [] { ZLNHostSetBackgroundTaskHooks(nullptr); }},
    {"ZLNLogSetLevel", [] { ZLNLogSetLevel(ZLNLogLevelSuperVerbose); }},
    {"ZLNSessionReportingSetLogLevelToWarn", &ZLNSessionReportingSetLogLevelToWarn},
    {"ZLNSessionReportingSetLogLevelToInfo", &ZLNSessionReportingSetLogLevelToInfo},
    {"ZLNSessionReportingSetLogLevelToDebug", &ZLNSessionReportingSetLogLevelToDebug},
    {"ZLNSessionReportingSetLogLevelToVerbose", &ZLNSessionReportingSetLogLevelToVerbose},
    {"ZLNSessionReportingSetLogLevelToSuperVerbose", &ZLNSessionReportingSetLogLevelToSuperVerbose},
    {"ZLNLogError", [] { ZLNLogError("%@ %d", "text", 1); }},
    {"ZLNLogWarn", [] { ZLNLogWarn("%@ %d", "text", 2); }},
    {"ZLNLogInfo", [] { ZLNLogInfo("%@ %d", "text", 3); }},
    {"ZLNLogDebug", [] { ZLNLogDebug("%@ %d", "text", 4); }},
    {"ZLNLogVerbose", [] { ZLNLogVerbose("%@ %d", "text", 5); }},
    {"ZLNLogSuperVerbose", [] { ZLNLogSuperVerbose("%@ %d", "text", 6); }},
    {"internalLog", [] { internalLog("text", 0); }},
    {"ZLNSessionReportingSetLogLevelToError", &ZLNSessionReportingSetLogLevelToError},
    {"ZLNInitializeReporting", [] { ZLNInitializeReporting("engine-5"); }},
    {"ZLNStartSessionReporting", &ZLNStartSessionReporting},
    {"ZLNHostApplicationDidBecomeActive", &ZLNHostApplicationDidBecomeActive},
    {"ZLNSendAdAttemptReport", [] { ZLNSendAdAttemptReport("n", "native", true); }},
    {"ZLNSendBannerAdAttemptReport", [] { ZLNSendBannerAdAttemptReport("n", true); }},
    {"ZLNSendInterstitialAdAttemptReport", [] { ZLNSendInterstitialAdAttemptReport("n", true); }},
    {"ZLNSendRewardedAdAttemptReport", [] { ZLNSendRewardedAdAttemptReport("n", true); }},
    {"ZLNSendAdZoneAttemptReport", [] { ZLNSendAdZoneAttemptReport("n", "native", "z", true); }},
    {"ZLNSendBannerAdZoneAttemptReport", [] { ZLNSendBannerAdZoneAttemptReport("n", "z", true); }},
    {"ZLNSendInterstitialAdZoneAttemptReport",
     [] { ZLNSendInterstitialAdZoneAttemptReport("n", "z", true); }},
    {"ZLNSendRewardedAdZoneAttemptReport",
     [] { ZLNSendRewardedAdZoneAttemptReport("n", "z", true); }},
    {"ZLNGetSessionDescription", [] { ZLNReleaseString(ZLNGetSessionDescription()); }},
    {"ZLNReleaseString", [] { ZLNReleaseString(nullptr); }},
    {"ZLNHostBackgroundTaskWillExpire", [] { ZLNHostBackgroundTaskWillExpire(1); }},
    {"ZLNClearCache", &ZLNClearCache},
    {"ZLNHostApplicationWillResignActive", &ZLNHostApplicationWillResignActive},
    {"ZLNHostApplicationDidEnterBackground", &ZLNHostApplicationDidEnterBackground},
    {"ZLNHostApplicationWillEnterForeground", &ZLNHostApplicationWillEnterForeground},
    {"ZLNStopSessionReporting", &ZLNStopSessionReporting},
    {"ZLNHostApplicationWillTerminate", &ZLNHostApplicationWillTerminate},
};

// The usual first steps of a game.
inline void beginGame() {
  ZLNHostSetApplicationInfo("com.example.game", "1.2.3");
  ZLNInitializeReporting("engine-5");
  ZLNStartSessionReporting();
  ZLNHostApplicationDidBecomeActive();
}

inline void callEveryFunction() {
  for (const PublicFunction& function : kPublicFunctions) function.call();
}

}  // namespace zln
