#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "collector/certificates.h"
#include "collector/connection_threads.h"
#include "collector/listening_port.h"
#include "collector/report_desk.h"
#include "collector/transfer_times.h"

struct ssl_ctx_st;

namespace zln::collector {

class RequestServer;

// Where games reach the collector.
struct GamePorts {
  std::string address = "127.0.0.1";
  int first = 8443;       // 0 for any free port.
  bool separate = false;  // A port for each type, one after the other, or one for all.
  TransferTimes times = {};
};

// The side that games see: takes reports at /session and requests for settings at /config, over
// HTTPS, and misbehaves as the faults have it.
class GameServer {
 public:
  // Takes the ports; from then on games can connect. Throws std::runtime_error with a text for
  // people when a port is taken or the certificates cannot be used.
  GameServer(const GamePorts& ports, const CertificateFiles& files, ReportDesk& desk,
             FaultList& faults);
  ~GameServer();

  // The port of each type.
  std::map<std::string, int> ports() const;

  // Begins to serve. `httpPort` is where redirects without TLS lead.
  void start(int httpPort);
  // Ends within a moment, whatever clients and faults are at.
  void stop();

 private:
  using Context = std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)>;

  struct Port {
    std::optional<std::string_view> type;  // None for all.
    std::unique_ptr<ListeningPort> listening;
  };

  void route();
  void serve(std::optional<std::string_view> type, int socket);
  ssl_ctx_st& contextUnder(const std::optional<Fault>& fault) const;

  ReportDesk& desk_;
  FaultList& faults_;
  const Context sound_;
  const Context expired_;
  const Context wrongHost_;
  std::vector<Port> ports_;
  const std::unique_ptr<RequestServer> requests_;
  const TransferTimes times_;
  ConnectionThreads threads_;
  int httpPort_ = 0;
};

}  // namespace zln::collector
