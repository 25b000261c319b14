#pragma once

#include <chrono>

namespace zln::collector {

// What a client has for the TLS handshake, for beginning a request, for the request as a whole from
// its first byte on, and for taking each piece of an answer.
struct TransferTimes {
  std::chrono::milliseconds handshake = std::chrono::seconds(10);
  std::chrono::milliseconds idle = std::chrono::seconds(10);
  std::chrono::milliseconds request = std::chrono::seconds(30);
  std::chrono::milliseconds write = std::chrono::seconds(10);
};

}  // namespace zln::collector
