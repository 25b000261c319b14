#include "ZLNSessionReporting/ZLNSessionReporting.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "ZLNSessionReporting/ZLNLog.h"
#include "config/ZLNReportingConfig.h"
#include "platform/forked_process.h"
#include "platform/utf8.h"
#include "reports/ZLNReportAdAttempt.h"
#include "reports/ZLNReportAdZoneAttempt.h"
#include "session/ZLNSessionManager.h"
#include "support/ZLNDirectories.h"
#include "support/ZLNReportingUtils.h"
#include "transport/ZLNReportingManager.h"

using zln::sanitizedText;
using zln::ZLNDirectories;
using zln::ZLNReportAdAttempt;
using zln::ZLNReportAdZoneAttempt;
using zln::ZLNReportingConfig;
using zln::ZLNReportingManager;
using zln::ZLNReportingUtils;
using zln::ZLNSessionManager;

const unsigned char ZLNSessionReportingVersionString[] =
    "@(#)PROGRAM:ZLNSessionReporting  PROJECT:ZLNSessionReporting-7\n";
const double ZLNSessionReportingVersionNumber = 7.0;

namespace {

constexpr char kBanner[] = "banner";
constexpr char kInterstitial[] = "interstitial";
constexpr char kRewarded[] = "rewarded";

bool isUsable() { return !zln::isForkedProcess() && ZLNReportingUtils::isEnabled(); }

void queue(const std::shared_ptr<zln::ZLNReportBase>& report) {
  ZLNReportingManager::sharedManager()->queueReportForTransmission(report);
}

}  // namespace

void ZLNInitializeReporting(const char* mwVersion) {
  if (zln::isForkedProcess()) return;
  ZLNReportingUtils::enable();
  ZLNDirectories::makeDirectories();
  ZLNReportingUtils::setMarlwickVersion(sanitizedText(mwVersion));
}

void ZLNStartSessionReporting() {
  if (!isUsable()) return;
  ZLNReportingConfig::sharedConfig();
  ZLNReportingManager::sharedManager();
  ZLNSessionManager::sharedManager();
}

void ZLNStopSessionReporting() {
  if (!isUsable()) return;
  ZLNSessionManager::sharedManager()->stopSession();
}

void ZLNSendAdAttemptReport(const char* network, const char* adType, bool filled) {
  if (!isUsable()) return;
  queue(
      ZLNReportAdAttempt::reportWithNetwork(sanitizedText(network), sanitizedText(adType), filled));
}

void ZLNSendBannerAdAttemptReport(const char* network, bool filled) {
  ZLNSendAdAttemptReport(network, kBanner, filled);
}

void ZLNSendInterstitialAdAttemptReport(const char* network, bool filled) {
  ZLNSendAdAttemptReport(network, kInterstitial, filled);
}

void ZLNSendRewardedAdAttemptReport(const char* network, bool filled) {
  ZLNSendAdAttemptReport(network, kRewarded, filled);
}

void ZLNSendAdZoneAttemptReport(const char* network, const char* adType, const char* zone,
                                bool filled) {
  if (!isUsable()) return;
  queue(ZLNReportAdZoneAttempt::reportWithNetwork(sanitizedText(network), sanitizedText(adType),
                                                  sanitizedText(zone), filled));
}

void ZLNSendBannerAdZoneAttemptReport(const char* network, const char* zone, bool filled) {
  ZLNSendAdZoneAttemptReport(network, kBanner, zone, filled);
}

void ZLNSendInterstitialAdZoneAttemptReport(const char* network, const char* zone, bool filled) {
  ZLNSendAdZoneAttemptReport(network, kInterstitial, zone, filled);
}

void ZLNSendRewardedAdZoneAttemptReport(const char* network, const char* zone, bool filled) {
  ZLNSendAdZoneAttemptReport(network, kRewarded, zone, filled);
}

void ZLNClearCache() {
  if (!isUsable()) return;
  ZLNDirectories::clear();
}

char* ZLNGetSessionDescription() {
  const std::string text =
      isUsable() ? ZLNSessionManager::sharedManager()->sessionDescription() : "[Encountered error]";
  return strdup(text.c_str());
}

void ZLNReleaseString(char* text) { std::free(text); }

void ZLNSessionReportingSetLogLevelToError() { ZLNLogSetLevel(ZLNLogLevelError); }
void ZLNSessionReportingSetLogLevelToWarn() { ZLNLogSetLevel(ZLNLogLevelWarn); }
void ZLNSessionReportingSetLogLevelToInfo() { ZLNLogSetLevel(ZLNLogLevelInfo); }
void ZLNSessionReportingSetLogLevelToDebug() { ZLNLogSetLevel(ZLNLogLevelDebug); }
void ZLNSessionReportingSetLogLevelToVerbose() { ZLNLogSetLevel(ZLNLogLevelVerbose); }
void ZLNSessionReportingSetLogLevelToSuperVerbose() { ZLNLogSetLevel(ZLNLogLevelSuperVerbose); }
