#include "collector/listening_port.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

namespace zln::collector {
namespace {

constexpr int kWaitingConnections = 256;
constexpr int kPauseMilliseconds = 20;

using Addresses = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

Addresses resolve(const std::string& address, int port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
    throw std::runtime_error("\"" + address + "\" is no numeric address to listen on");
  }
  return Addresses(found, &::freeaddrinfo);
}

// Two servers must not share a port; a port whose last owner has just gone is free.
bool take(int socket, const addrinfo& address) {
  const int yes = 1;
  return ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
         ::bind(socket, address.ai_addr, address.ai_addrlen) == 0 &&
         ::listen(socket, kWaitingConnections) == 0;
}

OwnedSocket listenOn(const std::string& address, int port) {
  const Addresses resolved = resolve(address, port);
  OwnedSocket socket(
      ::socket(resolved->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
  if (!socket || !take(socket.get(), *resolved)) {
    throw std::runtime_error("cannot listen on port " + std::to_string(port) + " of " + address +
                             ": " + std::strerror(errno));
  }
  return socket;
}

int numberOf(int socket) {
  sockaddr_storage own{};
  socklen_t size = sizeof own;
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
  return ntohs(own.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(own).sin6_port
                                         : reinterpret_cast<const sockaddr_in&>(own).sin_port);
}

bool isReadable(int descriptor, int milliseconds) {
  pollfd waiting{descriptor, POLLIN, 0};
  return ::poll(&waiting, 1, milliseconds) > 0;
}

}  // namespace

ListeningPort::ListeningPort(const std::string& address, int port)
    : socket_(listenOn(address, port)),
      end_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      number_(numberOf(socket_.get())) {
  if (!end_) throw std::runtime_error(std::string("no descriptor: ") + std::strerror(errno));
}

ListeningPort::~ListeningPort() {
  if (!thread_.joinable()) return;
  ::eventfd_write(end_.get(), 1);
  thread_.join();
}

void ListeningPort::start(std::function<void(OwnedSocket)> take) {
  thread_ = std::thread([this, take = std::move(take)] { acceptAll(take); });
}

// A connection that cannot be accepted, for want of descriptors, waits a moment.
void ListeningPort::acceptAll(const std::function<void(OwnedSocket)>& take) const {
  pollfd waiting[] = {{socket_.get(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
  while (::poll(waiting, 2, -1) < 0 || waiting[1].revents == 0) {
    OwnedSocket client(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client) {
      take(std::move(client));
    } else if (errno != EAGAIN && isReadable(end_.get(), kPauseMilliseconds)) {
      return;
    }
  }
}

}  // namespace zln::collector
