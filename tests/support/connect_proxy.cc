#include "tests/support/connect_proxy.h"

#include <poll.h>
#include <sys/socket.h>

#include <string_view>

namespace zln {
namespace {

constexpr std::size_t kLongestRequest = 16384;

// Passes on what there is to read; false at the end of the stream.
bool passOn(int from, int to) {
  char bytes[16384];
  const ssize_t length = recv(from, bytes, sizeof bytes, 0);
  return length > 0 && sendAll(to, {bytes, static_cast<std::size_t>(length)});
}

// Until one side ends. The server's end shuts down its client.
void relay(int client, int target) {
  pollfd sides[] = {{client, POLLIN, 0}, {target, POLLIN, 0}};
  while (poll(sides, 2, -1) > 0) {
    if (sides[0].revents != 0 && !passOn(client, target)) return;
    if (sides[1].revents != 0 && !passOn(target, client)) return;
  }
}

// The "host:port" of the client's request; empty when it makes none.
std::string readRequest(int client) {
  constexpr std::string_view kMethod = "CONNECT ";
  std::string request;
  char byte;
  while (!request.ends_with("\r\n\r\n")) {
    if (request.size() > kLongestRequest || recv(client, &byte, 1, 0) != 1) return {};
    request += byte;
  }
  if (!request.starts_with(kMethod)) return {};
  return request.substr(kMethod.size(), request.find(' ', kMethod.size()) - kMethod.size());
}

}  // namespace

ConnectProxy::ConnectProxy(std::uint16_t targetPort)
    : targetPort_(targetPort), server_([this](int client, int) { serve(client); }) {}

std::vector<std::string> ConnectProxy::hosts() const {
  std::lock_guard lock(mutex_);
  return hosts_;
}

void ConnectProxy::serve(int client) {
  const std::string host = readRequest(client);
  if (host.empty()) return;
  const FileDescriptor target = connectTo(targetPort_);
  if (!target) return;
  {
    std::lock_guard lock(mutex_);
    hosts_.push_back(host);
  }
  if (sendAll(client, "HTTP/1.1 200 Connection established\r\n\r\n")) relay(client, target.get());
}

}  // namespace zln
