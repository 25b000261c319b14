#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace zln {

// A TCP port of this machine that is bound and whose program accepts nothing: the few connections
// that the system keeps for it are taken, so another one never comes about.
class BlockedPort {
 public:
  BlockedPort() : listener_(newSocket()) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, size) != 0 || listen(listener_, 0) != 0 ||
        getsockname(listener_, generic, &size) != 0) {
      throw std::runtime_error("No port");
    }
    port_ = ntohs(address.sin_port);
    for (int count = 0; count < kConnections; ++count) {
      taken_.push_back(newSocket());
      connect(taken_.back(), generic, size);
    }
    ownConnecting_ = connecting();
  }
  ~BlockedPort() {
    for (const int socket : taken_) close(socket);
    close(listener_);
  }
  BlockedPort(const BlockedPort&) = delete;
  BlockedPort& operator=(const BlockedPort&) = delete;

  // Waits until so many others try to connect; false after a minute.
  bool awaitOthers(std::size_t count) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (connecting() < ownConnecting_ + count) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::yield();
    }
    return true;
  }

  // As the environment variable https_proxy names a proxy.
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

 private:
  // More than the system keeps for a port that asks for none.
  static constexpr int kConnections = 4;

  static int newSocket() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket < 0) throw std::runtime_error("No socket");
    return socket;
  }

  // How many connections to the port are being made, as the system's list tells.
  std::size_t connecting() const {
    char wanted[32];
    std::snprintf(wanted, sizeof wanted, " 0100007F:%04X 02 ", port_);
    std::ifstream connections("/proc/net/tcp");
    std::size_t count = 0;
    for (std::string line; std::getline(connections, line);) {
      if (line.find(wanted) != std::string::npos) ++count;
    }
    return count;
  }

  const int listener_;
  std::uint16_t port_ = 0;
  std::vector<int> taken_;
  std::size_t ownConnecting_ = 0;
};

}  // namespace zln
