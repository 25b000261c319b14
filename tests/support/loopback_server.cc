#include "tests/support/loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "tests/support/safety_limit.h"

namespace zln {
namespace {

// So little of what a client sends is taken that it notices a server that does not read.
constexpr int kReceiveBuffer = 64 * 1024;

sockaddr_in loopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

template <typename Address>
bool bindTo(int socket, const Address& address) {
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

FileDescriptor listeningSocket(IpFamily family) {
  FileDescriptor socket = boundSocket(family);
  setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  if (listen(socket.get(), SOMAXCONN) != 0) throw std::runtime_error("cannot listen");
  return socket;
}

}  // namespace

FileDescriptor boundSocket(IpFamily family) {
  const bool isIpv6 = family == IpFamily::kIpv6;
  FileDescriptor result(socket(isIpv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in6 address6{};
  address6.sin6_family = AF_INET6;
  address6.sin6_addr = in6addr_loopback;
  const bool isBound =
      isIpv6 ? bindTo(result.get(), address6) : bindTo(result.get(), loopbackAddress(0));
  if (!isBound) throw std::runtime_error("no free port");
  return result;
}

std::uint16_t portOf(const FileDescriptor& socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
  // The port is at the same place in the addresses of both families.
  return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

FileDescriptor connectTo(std::uint16_t port) {
  FileDescriptor result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopbackAddress(port);
  if (connect(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    result.close();
  }
  return result;
}

bool sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

LoopbackServer::LoopbackServer(Serve serve, IpFamily family)
    : serve_(std::move(serve)),
      family_(family),
      listener_(listeningSocket(family)),
      port_(portOf(listener_)),
      acceptor_([this] { acceptConnections(); }) {}

LoopbackServer::~LoopbackServer() {
  {
    std::lock_guard lock(mutex_);
    isStopping_ = true;
    shutdown(listener_.get(), SHUT_RDWR);
    for (const Connection& connection : connections_) {
      if (!connection.isDone) shutdown(connection.socket, SHUT_RDWR);
    }
    changed_.notify_all();
  }
  acceptor_.join();
  for (Connection& connection : connections_) connection.thread.join();
}

std::string LoopbackServer::authority() const {
  return (family_ == IpFamily::kIpv6 ? "[::1]:" : "127.0.0.1:") + std::to_string(port_);
}

int LoopbackServer::connections() const {
  std::lock_guard lock(mutex_);
  return accepted_;
}

bool LoopbackServer::waitForConnections(int count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kSafetyLimit, [&] { return accepted_ >= count; });
}

bool LoopbackServer::waitUntilDeserted() {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kSafetyLimit, [this] {
    return std::all_of(connections_.begin(), connections_.end(),
                       [](const Connection& connection) { return connection.isDone; });
  });
}

bool LoopbackServer::pauseUnlessStopping(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, time, [this] { return isStopping_; });
}

void LoopbackServer::acceptConnections() {
  while (true) {
    const int socket = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
    std::lock_guard lock(mutex_);
    if (isStopping_ || socket < 0) {
      if (socket >= 0) close(socket);
      return;
    }
    start(socket);
  }
}

void LoopbackServer::start(int socket) {
  connections_.remove_if([](Connection& connection) {
    if (connection.isDone) connection.thread.join();
    return connection.isDone;
  });
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  Connection& connection = connections_.emplace_back();
  connection.socket = socket;
  connection.thread =
      std::thread([this, &connection, number = ++accepted_] { run(connection, number); });
  changed_.notify_all();
}

void LoopbackServer::run(Connection& connection, int number) {
  serve_(connection.socket, number);
  std::lock_guard lock(mutex_);
  close(connection.socket);
  connection.isDone = true;
  changed_.notify_all();
}

}  // namespace zln
