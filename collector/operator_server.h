#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "collector/connection_threads.h"
#include "collector/listening_port.h"
#include "collector/report_desk.h"
#include "collector/transfer_times.h"

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace zln::collector {

class OperatorApi;
class RequestServer;
struct CollectorFacts;

// The side that people and programs of this machine see: the page and the interface for programs,
// over plain HTTP. Faults do not touch it.
class OperatorServer {
 public:
  // A method and a pattern of paths, such as "GET /api/reports/([0-9]+)".
  struct Route {
    std::string method;
    std::string path;
  };

  // `address` is the one that the port listens on.
  OperatorServer(std::unique_ptr<ListeningPort> port, const std::string& address,
                 const CollectorParts& parts, ReportDesk& desk, const CollectorFacts& facts,
                 std::filesystem::path database, const TransferTimes& times = {});
  ~OperatorServer();

  void start();
  // Ends within a moment, whatever clients are at. The events must have ended.
  void stop();

  // All of the interface for programs.
  const std::vector<Route>& routes() const { return routes_; }

 private:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  void guard(const std::string& address);
  void routeReports();
  void routeFaults();
  void routeSettings();
  void add(const char* method, const char* path, const Handler& handler);
  void respondWithExport(const httplib::Request& request, httplib::Response& response);
  void completeError(const httplib::Request& request, httplib::Response& response) const;
  bool isKnownPath(const std::string& path) const;

  const CollectorParts parts_;
  const std::unique_ptr<OperatorApi> api_;
  const std::filesystem::path database_;
  std::unique_ptr<ListeningPort> port_;
  std::vector<Route> routes_;
  const std::unique_ptr<RequestServer> requests_;
  const TransferTimes times_;
  ConnectionThreads threads_;
};

}  // namespace zln::collector
