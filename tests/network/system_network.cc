#include "tests/network/system_network.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace zln {
namespace {

// What is in the system's place just now. Look-ups that were left behind may outlive every test.
struct Replacement {
  std::mutex mutex;
  std::condition_variable changed;
  std::string host;
  int lookUpResult = 0;
  bool held = false;
  std::uint16_t port = 0;
  int connectError = 0;

  // Absent when the system is to be asked.
  std::optional<int> lookUp(const char* name) {
    std::unique_lock lock(mutex);
    if (name == nullptr || host.empty() || host != name) return std::nullopt;
    const int result = lookUpResult;
    changed.wait(lock, [this] { return !held; });
    return result;
  }

  // 0 when the system is to be asked.
  int connect(const sockaddr* address, socklen_t size) {
    if (address->sa_family != AF_INET || size < sizeof(sockaddr_in)) return 0;
    std::lock_guard lock(mutex);
    const auto target = ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port);
    return port != 0 && target == port ? connectError : 0;
  }
};

Replacement& replacement() {
  static Replacement& only = *new Replacement;
  return only;
}

}  // namespace

NameWithoutAddress::NameWithoutAddress(const std::string& host, int result, When when) {
  std::lock_guard lock(replacement().mutex);
  replacement().host = host;
  replacement().lookUpResult = result;
  replacement().held = when == When::kWhenThisGoes;
}

NameWithoutAddress::~NameWithoutAddress() {
  std::lock_guard lock(replacement().mutex);
  replacement().host.clear();
  replacement().held = false;
  replacement().changed.notify_all();
}

PortWithoutRoute::PortWithoutRoute(std::uint16_t port, int error) {
  std::lock_guard lock(replacement().mutex);
  replacement().port = port;
  replacement().connectError = error;
}

PortWithoutRoute::~PortWithoutRoute() {
  std::lock_guard lock(replacement().mutex);
  replacement().port = 0;
}

}  // namespace zln

// libcurl finds these before those of the C library.
extern "C" {

__attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                       const addrinfo* hints, addrinfo** found) {
  static const auto next =
      reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if (const std::optional<int> result = zln::replacement().lookUp(node)) return *result;
  return next(node, service, hints, found);
}

__attribute__((visibility("default"))) int connect(int socket, const sockaddr* address,
                                                   socklen_t size) {
  static const auto next = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"));
  if (const int error = zln::replacement().connect(address, size)) {
    errno = error;
    return -1;
  }
  return next(socket, address, size);
}

}  // extern "C"
