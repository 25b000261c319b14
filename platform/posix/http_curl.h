#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/http.h"
#include "platform/posix/thread_pool.h"

namespace zln {

// How long a request may take before it ends as timed out.
struct HttpTimeouts {
  // Until a connection stands, its encryption included. Begins anew with every redirect.
  std::chrono::milliseconds connect = std::chrono::seconds(60);
  // Without anything moving on a connection that stands.
  std::chrono::milliseconds idle = std::chrono::seconds(60);
  // From the start to the last byte, redirects included.
  std::chrono::milliseconds resource = std::chrono::days(7);
};

// Sends requests over https, each on a thread of the pool, which then runs its completion. A
// request that is under way outlives the client.
//
// Each has a connection of its own. Its certificates are verified against what SSL_CERT_FILE and
// SSL_CERT_DIR name at that time, else against the system's (TrustStore); a connection to a host
// and port that has been verified before may resume its TLS session.
class HttpClientCurl : public HttpClient {
 public:
  // `userAgent` gives the text of the header User-Agent. It is asked for each request, on the
  // thread that carries it. `pool` outlives the client.
  HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent,
                 HttpTimeouts timeouts = {});
  HttpClientCurl(const HttpClientCurl&) = delete;
  HttpClientCurl& operator=(const HttpClientCurl&) = delete;

  void upload(HttpRequest request, std::function<void(HttpReply)> completion) override;

 private:
  struct Shared;

  ThreadPool& pool_;
  const HttpTimeouts timeouts_;
  const std::shared_ptr<Shared> shared_;
};

// "Name/1.0 ZLNSessionReporting/7.0 Linux", the app's name and version percent-encoded.
std::string userAgentText(std::string_view appName, std::string_view appVersion,
                          std::string_view libraryVersion);

}  // namespace zln
