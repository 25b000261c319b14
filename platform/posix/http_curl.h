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

// Sends requests over https, each on a thread of the pool, which then runs its completion.
//
// Certificates are verified against the file that the environment variable SSL_CERT_FILE names when
// the request starts, else against the system's. What was read from that file is kept.
class HttpClientCurl : public HttpClient {
 public:
  // `userAgent` gives the text of the header User-Agent. It is asked for each request, on the
  // thread that carries it. `pool` outlives the client.
  HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent,
                 HttpTimeouts timeouts = {});

  // Cancels the requests under way, whose completions then never run, and returns when no thread
  // has any to do with them. The library itself keeps its client until the process ends: exit()
  // meets requests under way at any point.
  ~HttpClientCurl() override;

  HttpClientCurl(const HttpClientCurl&) = delete;
  HttpClientCurl& operator=(const HttpClientCurl&) = delete;

  void upload(HttpRequest request, std::function<void(HttpReply)> completion) override;

 private:
  class Network;

  ThreadPool& pool_;
  const HttpTimeouts timeouts_;
  const std::shared_ptr<Network> network_;
};

// "Name/1.0 ZLNSessionReporting/7.0 Linux", the app's name and version percent-encoded.
std::string userAgentText(std::string_view appName, std::string_view appVersion,
                          std::string_view libraryVersion);

}  // namespace zln
