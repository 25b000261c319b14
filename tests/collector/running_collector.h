#pragma once

#include <fcntl.h>
#include <httplib.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "collector/certificates.h"
#include "collector/event_stream.h"
#include "collector/fault_list.h"
#include "collector/game_server.h"
#include "collector/line_printer.h"
#include "collector/operator_server.h"
#include "collector/owned_socket.h"
#include "collector/report_desk.h"
#include "collector/report_store.h"
#include "collector/settings_values.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {

// How a test wants its collector.
struct CollectorWish {
  bool separatePorts = false;
  bool rejectInvalid = false;
  int firstPort = 0;
};

// A collector in the process of a test, on free ports, with clients for both of its sides. What it
// prints is not shown.
class RunningCollector {
 public:
  explicit RunningCollector(const CollectorWish& wish = {});
  ~RunningCollector();

  // Ends both servers, and answers how long that took.
  std::chrono::duration<double> stop();

  int gamePort(const std::string& type = "config") const;
  int pagePort() const { return pagePort_; }
  const CertificateFiles& certificates() const { return certificates_; }
  std::filesystem::path database() const;

  // A client of the games' side that trusts the collector's authority.
  std::unique_ptr<httplib::SSLClient> game(const std::string& host = "127.0.0.1",
                                           const std::string& type = "config") const;
  std::unique_ptr<httplib::Client> page() const;

  // Posts a body to the games' side. The body of the answer, or "no answer: ...".
  std::string answerTo(const std::string& path, const std::string& body) const;
  int statusOf(const httplib::Headers& headers, const std::string& body) const;

  int addFault(const nlohmann::json& fault);
  std::vector<ReportRow> rows();
  // The outcome of the last report, waited for until it is this one.
  Answer::Outcome outcomeOnce(Answer::Outcome expected);

  OperatorServer& operators() { return *operators_; }
  CollectorParts& parts() { return parts_; }
  ReportDesk& desk() { return desk_; }

 private:
  const TemporaryFolder folder_;
  const CertificateFiles certificates_;
  ReportStore store_;
  FaultList faults_;
  SettingsValues settings_;
  EventStream events_;
  CollectorParts parts_;
  const OwnedSocket nowhere_{::open("/dev/null", O_WRONLY | O_CLOEXEC)};
  LinePrinter lines_;
  ReportDesk desk_;
  GameServer games_;
  const std::map<std::string, int> gamePorts_;
  int pagePort_ = 0;
  std::unique_ptr<OperatorServer> operators_;
};

// A report that is in order; `changes` is merged into it.
std::string adAttempt(const nlohmann::json& changes = nlohmann::json::object());

}  // namespace zln::collector
