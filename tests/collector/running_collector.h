#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "collector/certificates.h"
#include "collector/report_desk.h"
#include "collector/report_row.h"
#include "collector/transfer_times.h"
#include "tests/collector/json_text.h"

namespace httplib {
class Client;
class SSLClient;
}  // namespace httplib

namespace zln::collector {

// The body of a reply that accepts a report.
inline constexpr char kSuccess[] = R"({"success":true})";

// What must happen at all happens within this; what must happen soon, within that.
inline constexpr auto kPatience = std::chrono::seconds(60);
inline constexpr std::chrono::duration<double> kSoon = std::chrono::seconds(20);

class OperatorServer;

// How a test wants its collector.
struct CollectorWish {
  bool separatePorts = false;
  bool rejectInvalid = false;
  int firstPort = 0;
  TransferTimes times = {};
};

using Headers = std::multimap<std::string, std::string>;

struct HttpRequest {
  std::string method = "GET";
  std::string path = "/api/status";
  std::string body = {};
  std::string type = "application/json";
  Headers headers = {};
};

// The status is 0 and the body says why when there is no answer.
struct HttpAnswer {
  int status = 0;
  std::string body;
  Headers headers;

  JsonText json() const { return JsonText(body); }
  // "" for none.
  std::string header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
  }
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
  int pagePort() const;
  const CertificateFiles& certificates() const;
  std::filesystem::path database() const;

  // A client of the games' side that trusts the collector's authority.
  std::unique_ptr<httplib::SSLClient> game(const std::string& host = "127.0.0.1",
                                           const std::string& type = "config") const;
  std::unique_ptr<httplib::Client> page() const;
  HttpAnswer askPage(const HttpRequest& request) const;

  // Posts a body to the games' side. The body of the answer, or "no answer: ...".
  std::string answerTo(const std::string& path, const std::string& body) const;
  int statusOf(const Headers& headers, const std::string& body) const;

  // From its JSON.
  int addFault(const std::string& fault);
  std::vector<ReportRow> rows();
  // Wait until a fault has acted so often, or the outcome of the last report is this one.
  void waitForHits(int fault, int hits = 1);
  void waitForOutcome(Answer::Outcome outcome);
  // Posts a report, and leaves when the first part of the answer has come.
  void leaveDuringAnswer() const;

  OperatorServer& operators();
  CollectorParts& parts();
  ReportDesk& desk();

 private:
  struct Servers;

  // Events tell of everything that can be waited for.
  void waitUntil(const std::function<bool()>& isSo);

  const std::unique_ptr<Servers> servers_;
};

// A report that is in order; `changes`, a JSON object, is merged into it.
std::string adAttempt(const std::string& changes = "{}");

}  // namespace zln::collector
