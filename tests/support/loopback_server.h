#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "platform/posix/file_descriptor.h"

namespace zln {

enum class IpFamily { kIpv4, kIpv6 };

// A TCP socket that is bound to a free port of the loopback interface. Throws when there is none.
FileDescriptor boundSocket(IpFamily family = IpFamily::kIpv4);
std::uint16_t portOf(const FileDescriptor& socket);
// A connection to the port of 127.0.0.1; invalid when it is refused.
FileDescriptor connectTo(std::uint16_t port);
// False when the other side is gone.
bool sendAll(int socket, std::string_view bytes);

// Accepts connections on a free port of this machine, and serves each on a thread of its own. Any
// thread may call it.
class LoopbackServer {
 public:
  // The socket is closed when it returns. Connections are counted from 1.
  using Serve = std::function<void(int socket, int number)>;

  explicit LoopbackServer(Serve serve, IpFamily family = IpFamily::kIpv4);
  // Shuts all connections down and joins their threads.
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  std::uint16_t port() const { return port_; }
  // "127.0.0.1:4711".
  std::string authority() const;

  // How many have been accepted.
  int connections() const;
  // Waits until so many have been accepted, or all are closed. False after kPatience.
  bool waitForConnections(int count);
  bool waitUntilDeserted();
  // False at once when the server goes.
  bool pauseUnlessStopping(std::chrono::milliseconds time);

 private:
  struct Connection {
    int socket = -1;
    bool isDone = false;
    std::thread thread;
  };

  void acceptConnections();
  void start(int socket);
  void run(Connection& connection, int number);

  const Serve serve_;
  const IpFamily family_;
  const FileDescriptor listener_;
  const std::uint16_t port_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool isStopping_ = false;
  int accepted_ = 0;
  std::list<Connection> connections_;
  std::thread acceptor_;
};

}  // namespace zln
