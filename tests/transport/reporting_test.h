#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/property_list.h"
#include "platform/value.h"
#include "reports/ZLNReportAdAttempt.h"
#include "reports/ZLNReportSessionStop.h"
#include "tests/support/host_fixture.h"
#include "transport/ZLNAsynchronousOperation.h"

namespace zln {

// A session-stop report to whose dictionary the test gives the base: nothing, or what a property
// list cannot hold.
class OddReport : public ZLNReportSessionStop {
 public:
  explicit OddReport(std::optional<Value> baseAtFirst)
      : ZLNReportSessionStop(std::shared_ptr<ZLNSession>()), base(std::move(baseAtFirst)) {}

  // Never the same, because a test changes the base without a word.
  std::uint64_t revision() const override { return ++asked_; }

  std::optional<Value> base;
  // Happens once, while its dictionary is made.
  mutable std::function<void()> whenSerialized;

 protected:
  std::optional<Value> superSerialization() const override {
    if (const auto act = std::exchange(whenSerialized, nullptr)) act();
    return base;
  }

 private:
  mutable std::uint64_t asked_ = 0;
};

// A place in the queue that is no report's.
class ForeignOperation : public ZLNAsynchronousOperation {
 public:
  std::string description() const override { return "foreign operation"; }
};

// An installation with its folders, a user identifier and settings that are not stale. The first ad
// report made has the identifier 00000000-0000-4000-8000-000000000001, and they count on.
class ReportingTest : public HostTest {
 protected:
  static constexpr char kReportsFile[] = "/support/com.zelnor.sdk/reporting/reports.json";
  static constexpr char kSettingsFile[] = "/support/com.zelnor.sdk/data/config.dat";

  ReportingTest() {
    env.defaults.set("com.zelnor.sessionUserId", "USER");
    env.files.makeFolder("/support/com.zelnor.sdk/reporting");
    putSettings({});
  }

  // Settings for the next creation of the settings object.
  void putSettings(Dictionary settings) {
    settings.set("lastUpdate", Number::float64(1700000000));
    env.files.put(kSettingsFile, *property_list::write(settings));
  }

  static std::shared_ptr<ZLNReportAdAttempt> adReport(const std::string& network = "net") {
    return ZLNReportAdAttempt::reportWithNetwork(network, "banner", false);
  }
};

}  // namespace zln
