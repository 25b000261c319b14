#include "platform/posix/http_curl.h"

#include <curl/curl.h>
#include <openssl/crypto.h>

#include <optional>
#include <utility>

#include "platform/joined.h"
#include "platform/posix/exit_gate.h"
#include "platform/posix/http_transfer.h"

namespace zln {

namespace {

// OpenSSL's own exit handler would take everything down under the threads of transfers, which run
// on while the process ends. Where the game has opened it before, the handler is there already, and
// the gate must close before it runs, also where the game did so after the client was made. The
// first opening takes milliseconds.
void openLibraries() {
  [[maybe_unused]] static const bool opened = [] {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    ExitGate::closeAtExit();
    return true;
  }();
}

std::string percentEncoded(std::string_view text) {
  const std::unique_ptr<char, decltype(&curl_free)> encoded(
      curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), &curl_free);
  return encoded && !text.empty() ? encoded.get() : "";
}

}  // namespace

// What the transfers share. Each holds it, so it stays until all are over.
struct HttpClientCurl::Shared {
  std::function<std::string()> userAgent;
  TrustStore trustStore;
};

HttpClientCurl::HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent,
                               HttpTimeouts timeouts)
    : pool_(pool), timeouts_(timeouts), shared_(new Shared{std::move(userAgent), {}}) {
  // Already now: exit() may begin while the first transfer opens the libraries.
  [[maybe_unused]] static const bool closes = (ExitGate::closeAtExit(), true);
}

void HttpClientCurl::upload(HttpRequest request, std::function<void(HttpReply)> completion) {
  pool_.run([shared = shared_, timeouts = timeouts_, request = std::move(request),
             completion = std::move(completion)]() mutable {
    std::optional<HttpReply> reply;
    {
      const ExitGate::Visit visit;
      openLibraries();
      reply = transfer(std::move(request), shared->userAgent(), timeouts, shared->trustStore);
    }
    completion(*std::move(reply));
  });
}

std::string userAgentText(std::string_view appName, std::string_view appVersion,
                          std::string_view libraryVersion) {
  return joined({percentEncoded(appName), "/", percentEncoded(appVersion), " ZLNSessionReporting/",
                 libraryVersion, " Linux"});
}

}  // namespace zln
