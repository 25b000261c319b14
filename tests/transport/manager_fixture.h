#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/ZLNReportingConfig.h"
#include "support/endpoints.h"
#include "tests/support/sent_reports.h"
#include "tests/transport/reporting_test.h"
#include "transport/ZLNReportingManager.h"

namespace zln {

inline constexpr char kAccepted[] = R"({"success":true})";
inline constexpr char kTransmitImmediately[] = "ConfigSerializationKeyTransmitReportsImmediately";
inline constexpr char kFailureLimit[] = "ConfigSerializationKeyReportTemporaryFailureLimit";

inline const std::string kQueued = "queue report <ZLNReportAdAttempt: 0x*>";
inline const std::string kSaving =
    std::string("saving report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl;

// The shared reporting manager. The first request of a test is number 0.
class ManagerTest : public ReportingTest {
 protected:
  // Makes the manager and runs its start-up task; the log is then empty and at verbose.
  void begin(Dictionary settings = {}) {
    putSettings(std::move(settings));
    manager();
    env.dispatch.runGlobal();
    setLevel(4);
    log().clear();
  }

  // The same with its queue suspended.
  void beginSuspended(Dictionary settings = {}) {
    settings.set(kTransmitImmediately, Number::boolean(false));
    begin(std::move(settings));
  }

  static ZLNReportingManager& manager() { return *ZLNReportingManager::sharedManager(); }
  static ZLNReportingConfig& settings() { return *ZLNReportingConfig::sharedConfig(); }

  static std::shared_ptr<ZLNReportAdAttempt> queue(const std::string& network = "net") {
    const auto report = adReport(network);
    manager().queueReportForTransmission(report);
    return report;
  }

  // Queues a report and has it sent.
  std::shared_ptr<ZLNReportAdAttempt> send(const std::string& network = "net") {
    const auto report = queue(network);
    env.dispatch.runGlobal();
    return report;
  }

  // Has the newest request time out.
  void timeOut() { env.http.fail(env.http.requests().size() - 1, -1001); }

  static std::shared_ptr<ZLNReportOperationBase> firstOperation() {
    return std::dynamic_pointer_cast<ZLNReportOperationBase>(
        manager().reportQueue().operations().at(0));
  }

  std::vector<std::string> storedNetworks() const {
    std::vector<std::string> networks;
    for (const Dictionary& report : storedReports(env.files)) {
      networks.push_back(textOf(report, "network"));
    }
    return networks;
  }
};

}  // namespace zln
