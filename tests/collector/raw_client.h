#pragma once

#include <string_view>

#include "collector/owned_socket.h"

namespace zln::collector {

// Connects to a port of this machine and sends some bytes. Reading from the socket waits at most a
// minute.
OwnedSocket connectTo(int port, std::string_view firstBytes = "");

}  // namespace zln::collector
