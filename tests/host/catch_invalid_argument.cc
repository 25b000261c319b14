#include "tests/host/catch_invalid_argument.h"

#include <stdexcept>

#include "ZLNSessionReporting/ZLNSessionReporting.h"

bool bannerIsRefused(const char* network) {
  try {
    ZLNSendBannerAdAttemptReport(network, true);
  } catch (const std::invalid_argument&) {
    return true;
  }
  return false;
}
