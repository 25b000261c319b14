#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/property_list.h"
#include "platform/value.h"
#include "reports/ZLNReportAdAttempt.h"
#include "reports/ZLNReportSessionStop.h"
#include "tests/support/host_fixture.h"

namespace zln {

// A session-stop report to whose dictionary the test gives the base: nothing, or what a property
// list cannot hold.
class OddReport : public ZLNReportSessionStop {
 public:
  explicit OddReport(std::optional<Value> baseAtFirst)
      : ZLNReportSessionStop(std::shared_ptr<ZLNSession>()), base(std::move(baseAtFirst)) {}

  std::optional<std::uint64_t> revision() const override { return std::nullopt; }

  std::optional<Value> base;

 protected:
  std::optional<Value> superSerialization() const override { return base; }
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

  // The lines of the log since it was last asked, with "0x*" in place of every address.
  std::vector<std::string> newLines() {
    std::vector<std::string> lines = log().lines();
    log().clear();
    for (std::string& line : lines) line = withoutAddresses(line);
    return lines;
  }

 private:
  // An address is the last thing in the text of an object: "<ZLNReportAdAttempt: 0x5581f0>".
  static std::string withoutAddresses(std::string_view line) {
    std::string text;
    while (!line.empty()) {
      const std::size_t start = std::min(line.find("0x"), line.size());
      const std::size_t end = line.find_first_not_of("0123456789abcdef", start + 2);
      const bool isAddress = end != std::string_view::npos && line[end] == '>';
      text += line.substr(0, start);
      if (start == line.size()) break;
      text += isAddress ? "0x*" : "0x";
      line.remove_prefix(isAddress ? end : start + 2);
    }
    return text;
  }
};

}  // namespace zln
