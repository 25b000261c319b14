#pragma once

#include <cstdint>
#include <string>

namespace zln {

// What the system says in place of its own answer while such an object lives. The test program has
// the functions of the system that this takes over, getaddrinfo() and connect(), and they ask it
// first. At most one of each kind lives at a time.

// The look-up of `host` fails with `result`, one of the EAI_ codes, at once or when this goes.
class NameWithoutAddress {
 public:
  enum class When { kAtOnce, kWhenThisGoes };

  NameWithoutAddress(const std::string& host, int result, When when = When::kAtOnce);
  ~NameWithoutAddress();
  NameWithoutAddress(const NameWithoutAddress&) = delete;
  NameWithoutAddress& operator=(const NameWithoutAddress&) = delete;
};

// A connection to `port` of this machine fails at once with `error`, an errno.
class PortWithoutRoute {
 public:
  PortWithoutRoute(std::uint16_t port, int error);
  ~PortWithoutRoute();
  PortWithoutRoute(const PortWithoutRoute&) = delete;
  PortWithoutRoute& operator=(const PortWithoutRoute&) = delete;
};

}  // namespace zln
