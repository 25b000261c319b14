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

// Sends requests over https. One thread drives the connections of all requests. It comes with a
// request and ends when there has been none for a second. Completions run on threads of the pool,
// so a slow one holds up neither the network nor another completion.
//
// Certificates are verified against the file that the environment variable SSL_CERT_FILE names when
// the request starts, else against the system's. What was read from that file is kept for a day.
class HttpClientCurl : public HttpClient {
 public:
  // `userAgent` gives the text of the header User-Agent. It is asked for each request, on the
  // network thread. `pool` outlives the client.
  HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent,
                 HttpTimeouts timeouts = {});
  // With another maker of the network thread than the library's own.
  HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent, HttpTimeouts timeouts,
                 ThreadPool::ThreadStarter startThread);

  // Cancels the requests under way, whose completions then never run, and returns when the network
  // thread is through. Completions that are with the pool already still run. The library itself
  // keeps its client until the process ends: exit() meets requests under way at any point.
  ~HttpClientCurl() override;

  HttpClientCurl(const HttpClientCurl&) = delete;
  HttpClientCurl& operator=(const HttpClientCurl&) = delete;

  void upload(HttpRequest request, std::function<void(HttpReply)> completion) override;

 private:
  class Network;

  HttpTimeouts timeouts_;
  std::shared_ptr<Network> network_;
};

// "Name/1.0 ZLNSessionReporting/7.0 Linux", the app's name and version percent-encoded.
std::string userAgentText(std::string_view appName, std::string_view appVersion,
                          std::string_view libraryVersion);

}  // namespace zln
