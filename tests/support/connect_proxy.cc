#include "tests/support/connect_proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string_view>

namespace zln {
namespace {

constexpr int kPollMilliseconds = 50;
constexpr std::size_t kLongestRequest = 16384;

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

void sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// Passes on what there is to read; false at the end of the stream.
bool passOn(int from, int to) {
  char bytes[16384];
  const ssize_t length = recv(from, bytes, sizeof bytes, 0);
  if (length <= 0) return false;
  sendAll(to, {bytes, static_cast<std::size_t>(length)});
  return true;
}

}  // namespace

ConnectProxy::ConnectProxy(std::uint16_t targetPort)
    : targetPort_(targetPort), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener_, 128) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("The proxy finds no port");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptTunnels(); });
}

ConnectProxy::~ConnectProxy() {
  stopping_ = true;
  acceptor_.join();
  for (std::thread& tunnel : tunnels_) tunnel.join();
  close(listener_);
}

std::string ConnectProxy::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

std::vector<std::string> ConnectProxy::hosts() const {
  std::lock_guard lock(mutex_);
  return hosts_;
}

void ConnectProxy::acceptTunnels() {
  while (!stopping_) {
    pollfd waiting{listener_, POLLIN, 0};
    if (poll(&waiting, 1, kPollMilliseconds) <= 0) continue;
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client >= 0) tunnels_.emplace_back([this, client] { serve(client); });
  }
}

void ConnectProxy::serve(int client) {
  const std::string host = readRequest(client);
  const int server = host.empty() ? -1 : connectToTarget();
  if (server >= 0) {
    {
      std::lock_guard lock(mutex_);
      hosts_.push_back(host);
    }
    sendAll(client, "HTTP/1.1 200 Connection established\r\n\r\n");
    relay(client, server);
    close(server);
  }
  close(client);
}

std::string ConnectProxy::readRequest(int client) {
  std::string request;
  while (!request.ends_with("\r\n\r\n")) {
    char byte;
    pollfd waiting{client, POLLIN, 0};
    if (stopping_ || request.size() > kLongestRequest) return {};
    if (poll(&waiting, 1, kPollMilliseconds) <= 0) continue;
    if (recv(client, &byte, 1, 0) != 1) return {};
    request += byte;
  }
  constexpr std::string_view kMethod = "CONNECT ";
  if (!request.starts_with(kMethod)) return {};
  return request.substr(kMethod.size(), request.find(' ', kMethod.size()) - kMethod.size());
}

int ConnectProxy::connectToTarget() const {
  const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(targetPort_);
  if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return server;
  }
  close(server);
  return -1;
}

void ConnectProxy::relay(int client, int server) const {
  while (!stopping_) {
    pollfd sides[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    if (poll(sides, 2, kPollMilliseconds) <= 0) continue;
    if (sides[0].revents != 0 && !passOn(client, server)) return;
    if (sides[1].revents != 0 && !passOn(server, client)) return;
  }
}

}  // namespace zln
