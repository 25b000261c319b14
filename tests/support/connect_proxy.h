#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/loopback_server.h"

namespace zln {

// An HTTP proxy on 127.0.0.1 that leads every tunnel, whatever host it asks for, to one port of
// this machine. Through it a finished library with its built-in hosts reaches a test's server.
class ConnectProxy {
 public:
  explicit ConnectProxy(std::uint16_t targetPort);

  // "http://127.0.0.1:4711", as the environment variable https_proxy names a proxy.
  std::string url() const { return "http://" + server_.authority(); }
  // The "host:port" of all tunnels that were asked for.
  std::vector<std::string> hosts() const;

 private:
  void serve(int client);

  const std::uint16_t targetPort_;
  mutable std::mutex mutex_;
  std::vector<std::string> hosts_;
  LoopbackServer server_;  // Last: its threads use what is above.
};

}  // namespace zln
