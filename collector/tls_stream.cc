#include "collector/tls_stream.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <new>

namespace zln::collector {

TlsStream::TlsStream(int socket, SSL_CTX& context, const TransferTimes& times)
    : ConnectionStream(socket, times),
      handshakeTime_(times.handshake),
      tls_(SSL_new(&context), &SSL_free) {
  if (!tls_ || SSL_set_fd(tls_.get(), socket) != 1) throw std::bad_alloc();
}

bool TlsStream::shakeHands() {
  const auto deadline = Clock::now() + handshakeTime_;
  while (true) {
    ERR_clear_error();
    const int result = SSL_accept(tls_.get());
    if (result == 1) return true;
    const Step step = outcome(result, 0);
    if (step.wait == 0 || !waitFor(step.wait, deadline)) return false;
  }
}

ConnectionStream::Step TlsStream::tryRead(char* bytes, std::size_t size) {
  std::size_t got = 0;
  ERR_clear_error();
  const int result = SSL_read_ex(tls_.get(), bytes, size, &got);
  return outcome(result, got);
}

ConnectionStream::Step TlsStream::tryWrite(const char* bytes, std::size_t size) {
  std::size_t written = 0;
  ERR_clear_error();
  const int result = SSL_write_ex(tls_.get(), bytes, size, &written);
  return outcome(result, written);
}

void TlsStream::sayGoodbye() { SSL_shutdown(tls_.get()); }

ConnectionStream::Step TlsStream::outcome(int result, std::size_t bytes) {
  if (result == 1) return {bytes, 0};
  switch (SSL_get_error(tls_.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return {0, POLLIN};
    case SSL_ERROR_WANT_WRITE:
      return {0, POLLOUT};
    default:
      return {};
  }
}

}  // namespace zln::collector
