#pragma once

#include <optional>

#include "config/ZLNReportingConfig.h"
#include "platform/property_list.h"
#include "tests/support/host_fixture.h"

namespace zln {

// An installation with its folders; the clock stands at 1700000000.
class ConfigTest : public HostTest {
 protected:
  static constexpr char kSettingsFile[] = "/support/com.zelnor.sdk/data/config.dat";
  static constexpr char kReadsFile[] = "read /support/com.zelnor.sdk/data/config.dat";
  static constexpr char kWritesFile[] = "write /support/com.zelnor.sdk/data/config.dat";
  static constexpr char kImmediately[] = "ConfigSerializationKeyTransmitReportsImmediately";
  static constexpr char kOnBackgrounding[] =
      "ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding";
  static constexpr char kOnForegrounding[] =
      "ConfigSerializationKeyTransmitReportsOnApplicationForegrounding";
  static constexpr char kFailureLimit[] = "ConfigSerializationKeyReportTemporaryFailureLimit";
  static constexpr char kInactivityLimit[] = "ConfigSerializationKeySessionInactivityTimeLimit";
  static constexpr char kUpdateInterval[] = "ConfigSerializationKeyConfigUpdateInterval";
  static constexpr char kBackgroundTimeout[] =
      "ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds";
  static constexpr char kSendStart[] = "ConfigSerializationKeySendStartSessionReports";
  static constexpr char kSendStop[] = "ConfigSerializationKeySendStopSessionReports";
  static constexpr char kSendFirst[] = "ConfigSerializationKeySendFirstSessionReports";

  ConfigTest() { env.files.makeFolder("/support/com.zelnor.sdk/data"); }

  // The shared object, with the log at debug from the start.
  ZLNReportingConfig& begin() {
    setLevel(3);
    return *ZLNReportingConfig::sharedConfig();
  }

  // Fetched just now, so nothing is asked of the network.
  ZLNReportingConfig& beginFresh() {
    putSettings({});
    ZLNReportingConfig& config = begin();
    newLines();
    return config;
  }

  // A file of these entries that is as fresh as can be.
  void putSettings(Dictionary entries) {
    entries.set("lastUpdate", Number::float64(1700000000));
    putFile(entries);
  }

  void putFile(const Dictionary& root) {
    env.files.put(kSettingsFile, *property_list::write(root));
  }

  // The entries of the file.
  Dictionary stored() const {
    const auto bytes = env.files.contents(kSettingsFile);
    const auto root = bytes ? property_list::read(*bytes) : std::nullopt;
    if (root && root->dictionary() != nullptr) return *root->dictionary();
    ADD_FAILURE() << "no settings are stored";
    return {};
  }

  std::optional<Value> stored(const char* key) const {
    const Dictionary entries = stored();
    const Value* value = entries.find(key);
    if (value == nullptr) return std::nullopt;
    return *value;
  }
};

}  // namespace zln
