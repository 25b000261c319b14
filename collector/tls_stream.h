#pragma once

#include <memory>

#include "collector/connection_stream.h"

struct ssl_ctx_st;
struct ssl_st;

namespace zln::collector {

// A connection under TLS, on the server's side.
class TlsStream : public ConnectionStream {
 public:
  // The identity comes from the context.
  TlsStream(int socket, ssl_ctx_st& context, const TransferTimes& times);

  // Agrees with the client on the encryption. False when that fails or takes too long.
  bool shakeHands();

 protected:
  Step tryRead(char* bytes, std::size_t size) override;
  Step tryWrite(const char* bytes, std::size_t size) override;
  void sayGoodbye() override;

 private:
  Step outcome(int result, std::size_t bytes);

  const std::chrono::milliseconds handshakeTime_;
  const std::unique_ptr<ssl_st, void (*)(ssl_st*)> tls_;
};

}  // namespace zln::collector
