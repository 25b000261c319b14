#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zln {

// An HTTP proxy on 127.0.0.1 that leads every tunnel, whatever host it asks for, to one port of
// this machine. Through it a finished library with its built-in hosts reaches a test's server.
class ConnectProxy {
 public:
  explicit ConnectProxy(std::uint16_t targetPort);
  // Closes all tunnels.
  ~ConnectProxy();
  ConnectProxy(const ConnectProxy&) = delete;
  ConnectProxy& operator=(const ConnectProxy&) = delete;

  // "http://127.0.0.1:4711", as the environment variable https_proxy names a proxy.
  std::string url() const;
  // The "host:port" of all tunnels that were asked for.
  std::vector<std::string> hosts() const;

 private:
  void acceptTunnels();
  void serve(int client);
  // The "host:port" of the client's request; empty when it makes none.
  std::string readRequest(int client);
  int connectToTarget() const;
  void relay(int client, int server) const;

  std::uint16_t targetPort_;
  int listener_;
  std::uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> hosts_;
  std::list<std::thread> tunnels_;
  std::thread acceptor_;
};

}  // namespace zln
