#include "tests/collector/raw_client.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <stdexcept>

namespace zln::collector {
namespace {

constexpr timeval kReadTimeout{60, 0};

}  // namespace

OwnedSocket connectTo(int port, std::string_view firstBytes) {
  OwnedSocket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kReadTimeout, sizeof kReadTimeout);
  if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("no connection");
  }
  ::send(socket.get(), firstBytes.data(), firstBytes.size(), MSG_NOSIGNAL);
  return socket;
}

}  // namespace zln::collector
