#pragma once

#include <poll.h>
#include <sys/socket.h>

#include <cstdint>
#include <stdexcept>

#include "tests/support/loopback_server.h"

namespace zln {

// A TCP port of this machine whose program accepts nothing: the one connection that the system
// keeps for it is taken, so another one is never established.
class FullPort {
 public:
  FullPort() : listener_(boundSocket()) {
    listen(listener_.get(), 0);
    taken_ = connectTo(port());
    // Only when the system has put it into the queue is there no more room.
    pollfd queued{listener_.get(), POLLIN, 0};
    if (poll(&queued, 1, -1) != 1) throw std::runtime_error("the port is not full");
  }

  std::uint16_t port() const { return portOf(listener_); }

 private:
  const FileDescriptor listener_;
  FileDescriptor taken_{-1};
};

}  // namespace zln
