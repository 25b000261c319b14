#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/http.h"
#include "platform/posix/http_curl.h"
#include "platform/posix/trust_store.h"

namespace zln {

// One request on its way to its reply, over all redirects. Each hop is a transfer of its own:
// `prepare`, the transfer by way of `handle`, `finish`. Belongs to the thread that carries it.
class HttpTransfer {
 public:
  using Clock = std::chrono::steady_clock;
  using Completion = std::function<void(HttpReply)>;

  // The body of a reply, both as it is received and decompressed, and all the header lines that
  // come with it.
  static constexpr std::size_t kMaxBodyBytes = 8 * 1024 * 1024;
  static constexpr std::size_t kMaxHeaderBytes = 256 * 1024;
  static constexpr std::size_t kMaxHeaderLines = 1000;
  static constexpr int kMaxRedirects = 20;

  // `trustStore` outlives the transfer.
  HttpTransfer(HttpRequest request, Completion completion, const HttpTimeouts& timeouts,
               TrustStore& trustStore);
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  // Makes the handle ready for the URL that is to be asked next. Otherwise the code of the error.
  std::optional<int> prepare(const std::string& userAgent);
  CURL* handle() const { return easy_.get(); }
  // The moment at which the transfer has timed out if nothing moves until then.
  Clock::time_point deadline() const;
  // Takes the end of a hop. Absent when a redirect leads on and the next hop is to be prepared.
  std::optional<HttpReply> finish(CURLcode result);
  // The reply that says why there is none.
  HttpReply failed(int code) const;
  Completion takeCompletion() { return std::move(completion_); }

 private:
  struct EasyCleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };
  struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };

  static std::size_t bodyCame(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t headerLineCame(char* bytes, std::size_t size, std::size_t count, void* self);
  static int bytesMoved(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent);
  static CURLcode contextCame(CURL*, void* context, void* self);
  static int connectionStands(void* self, char*, char*, int, int);

  void beginHop();
  bool setAuthorities();
  bool makeHeaders();
  bool addHeader(const std::string& line);
  bool callerSets(const char* name) const;
  bool setOptions(const std::string& userAgent);
  // Ends the transfer because the reply is too large.
  std::size_t refuse();
  void restartIdleClock() { lastMove_ = Clock::now(); }
  bool isLengthClear() const;
  bool isRedirect() const;
  void follow();
  HttpReply reply() const;
  HttpHeaders responseHeaders() const;
  long info(CURLINFO what) const;

  HttpRequest request_;
  Completion completion_;
  const HttpTimeouts timeouts_;
  TrustStore& trustStore_;
  const Clock::time_point end_;
  int redirects_ = 0;
  std::string authoritiesFile_;

  // Of the hop under way. The clock of idleness stands still until there is a connection.
  std::optional<Clock::time_point> lastMove_;
  curl_off_t moved_ = 0;
  std::size_t headerBytes_ = 0;
  std::size_t headerLines_ = 0;
  bool headComplete_ = false;
  std::string body_;
  bool tooLarge_ = false;

  // The handle points into what stands above it, so it is the first to go.
  std::unique_ptr<curl_slist, ListCleanup> headers_;
  std::unique_ptr<CURL, EasyCleanup> easy_;
};

}  // namespace zln
