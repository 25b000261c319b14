#pragma once

#include <openssl/ssl.h>

#include <memory>

#include "collector/connection_stream.h"

namespace zln::collector {

// A connection under TLS, on the server's side.
class TlsStream : public ConnectionStream {
 public:
  // The identity comes from the context.
  TlsStream(int socket, SSL_CTX& context);

  // Agrees with the client on the encryption. False when that fails or takes too long.
  bool shakeHands();

 protected:
  Step tryRead(char* bytes, std::size_t size) override;
  Step tryWrite(const char* bytes, std::size_t size) override;
  void sayGoodbye() override;

 private:
  Step outcome(int result, std::size_t bytes);

  std::unique_ptr<SSL, decltype(&SSL_free)> tls_;
};

}  // namespace zln::collector
