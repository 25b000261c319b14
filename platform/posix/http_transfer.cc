#include "platform/posix/http_transfer.h"

#include <curl/curl.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/posix/exit_gate.h"
#include "platform/posix/url_errors.h"

namespace zln {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// The body of a reply, both as it is received and decompressed, and all the header lines that come
// with it.
constexpr std::size_t kMaxBodyBytes = std::size_t{8} << 20;
constexpr std::size_t kMaxHeaderBytes = std::size_t{256} << 10;
constexpr std::size_t kMaxHeaderLines = 1000;
constexpr int kMaxRedirects = 20;
// A transfer looks up at least that often.
constexpr milliseconds kLongestWait{1000};
// A wait that fails at once, for want of memory or descriptors, must not become a busy loop.
constexpr milliseconds kPauseAfterFailure{100};

// How a message is framed follows from its body. A caller's word on it would stay behind when a
// redirect drops the body, and the server would wait for bytes that never come.
constexpr const char* kFramingHeaders[] = {"Content-Length", "Transfer-Encoding", "Expect"};

bool hasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

// A method or the name of a header. Anything else could end the line and begin another request.
bool isToken(std::string_view text) {
  constexpr std::string_view kTokenCharacters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!#$%&'*+-.^_`|~";
  return !text.empty() && text.find_first_not_of(kTokenCharacters) == std::string_view::npos;
}

bool isHeaderValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool sameName(const std::string& a, const char* b) { return curl_strequal(a.c_str(), b) != 0; }

bool isFramingHeader(const std::string& name) {
  return std::any_of(std::begin(kFramingHeaders), std::end(kFramingHeaders),
                     [&](const char* framing) { return sameName(name, framing); });
}

bool startsWith(const std::string& url, const char* prefix) {
  return curl_strnequal(url.c_str(), prefix, std::string_view(prefix).size()) != 0;
}

// Why the URL must not be asked, if so.
std::optional<int> refusal(const std::string& url) {
  if (startsWith(url, "http:")) return url_error::kSecureConnectionRequired;
  if (!startsWith(url, "https:")) return url_error::kUnsupportedUrl;
  if (!startsWith(url, "https://") || hasControl(url)) return url_error::kBadUrl;
  return std::nullopt;
}

// Sets options one after the other until one fails.
class Options {
 public:
  explicit Options(CURL* easy) : easy_(easy) {}

  template <typename T>
  void set(CURLoption option, T value) {
    if (result_ == CURLE_OK) result_ = curl_easy_setopt(easy_, option, value);
  }
  bool allSet() const { return result_ == CURLE_OK; }

 private:
  CURL* easy_;
  CURLcode result_ = CURLE_OK;
};

// What is offered must be what can be undone.
const char* acceptedEncodings() {
  const bool brotli = (curl_version_info(CURLVERSION_NOW)->features & CURL_VERSION_BROTLI) != 0;
  return brotli ? "gzip, deflate, br" : "gzip, deflate";
}

void setSecurity(Options& options) {
  options.set(CURLOPT_PROTOCOLS_STR, "https");
  options.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  options.set(CURLOPT_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_SSL_VERIFYHOST, 2L);
}

// A program that the game starts must not hold the connection.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

// A connection for this transfer and no other.
void setConnection(Options& options) {
  options.set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
  options.set(CURLOPT_FRESH_CONNECT, 1L);
  options.set(CURLOPT_FORBID_REUSE, 1L);
  options.set(CURLOPT_FOLLOWLOCATION, 0L);
  options.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  options.set(CURLOPT_NOSIGNAL, 1L);
  options.set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  // A look-up of a name that has no end yet is left behind and does not hold up other requests.
  options.set(CURLOPT_QUICK_EXIT, 1L);
}

void setMethod(Options& options, const HttpRequest& request) {
  options.set(CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
  if (request.method == "GET" && request.body.empty()) {
    options.set(CURLOPT_HTTPGET, 1L);
  } else if (request.method == "HEAD") {
    options.set(CURLOPT_NOBODY, 1L);
  } else {
    options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    options.set(CURLOPT_POSTFIELDS, request.body.data());
    options.set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
  }
}

// The statuses that lead on. Others with a Location are ordinary replies.
bool isFollowed(long status) {
  return (status >= 301 && status <= 303) || (status >= 305 && status <= 308);
}

bool turnsIntoGet(long status, const std::string& method) {
  return status == 303 || ((status == 301 || status == 302) && method == "POST");
}

template <auto free>
struct Free {
  template <typename T>
  void operator()(T* object) const {
    free(object);
  }
};
template <typename T, auto free>
using Freed = std::unique_ptr<T, Free<free>>;

// One request on its way to its reply. Each hop is a transfer of its own.
class HttpTransfer {
 public:
  HttpTransfer(HttpRequest request, const HttpTimeouts& timeouts, TrustStore& trustStore)
      : request_(std::move(request)),
        timeouts_(timeouts),
        trustStore_(trustStore),
        end_(Clock::now() + timeouts.resource) {}

  HttpReply run(const std::string& userAgent) {
    if (!easy_ || !multi_) return failed(url_error::kUnknown);
    std::optional<HttpReply> reply;
    while (!reply) {
      if (const std::optional<int> code = prepare(userAgent)) return failed(*code);
      if (curl_multi_add_handle(multi_.get(), easy_.get()) != CURLM_OK) {
        return failed(url_error::kUnknown);
      }
      reply = finish(perform());
      curl_multi_remove_handle(multi_.get(), easy_.get());
    }
    return *std::move(reply);
  }

 private:
  // Makes the handle ready for the URL that is to be asked next. Otherwise the code of the error.
  std::optional<int> prepare(const std::string& userAgent) {
    if (const std::optional<int> code = refusal(request_.url)) return code;
    if (!isToken(request_.method)) return url_error::kUnknown;
    if (!makeHeaders() || !setOptions(userAgent)) return url_error::kUnknown;
    if (!shareTrust()) return url_error::kSecureConnectionFailed;
    lastMove_.reset();
    moved_ = 0;
    headerBytes_ = 0;
    headerLines_ = 0;
    headComplete_ = false;
    body_.clear();
    return std::nullopt;
  }

  bool makeHeaders() {
    headers_.reset();
    bool added = true;
    for (const auto& [name, value] : request_.headers) {
      if (!isToken(name) || !isHeaderValue(value) || isFramingHeader(name)) continue;
      // A name with a semicolon is a header without a value; with a colon it would take one away.
      std::string line = name;
      line += value.empty() ? ";" : ": ";
      added = added && addHeader(line += value);
    }
    if (!callerSets("Content-Type")) added = added && addHeader("Content-Type:");
    if (!callerSets("Accept-Language")) added = added && addHeader("Accept-Language: en-us");
    return added && addHeader("Expect:");
  }

  bool addHeader(const std::string& line) {
    curl_slist* list = curl_slist_append(headers_.get(), line.c_str());
    if (list == nullptr) return false;
    static_cast<void>(headers_.release());
    headers_.reset(list);
    return true;
  }

  bool callerSets(const char* name) const {
    return std::any_of(request_.headers.begin(), request_.headers.end(),
                       [&](const auto& header) { return sameName(header.first, name); });
  }

  bool setOptions(const std::string& userAgent) {
    Options options(easy_.get());
    options.set(CURLOPT_URL, request_.url.c_str());
    setSecurity(options);
    setConnection(options);
    setMethod(options, request_);
    options.set(CURLOPT_HTTPHEADER, headers_.get());
    if (isHeaderValue(userAgent)) options.set(CURLOPT_USERAGENT, userAgent.c_str());
    options.set(CURLOPT_ACCEPT_ENCODING, acceptedEncodings());
    options.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeouts_.connect.count()));
    options.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxBodyBytes));
    options.set(CURLOPT_WRITEFUNCTION, &HttpTransfer::bodyCame);
    options.set(CURLOPT_WRITEDATA, this);
    options.set(CURLOPT_HEADERFUNCTION, &HttpTransfer::headerLineCame);
    options.set(CURLOPT_HEADERDATA, this);
    options.set(CURLOPT_XFERINFOFUNCTION, &HttpTransfer::bytesMoved);
    options.set(CURLOPT_XFERINFODATA, this);
    options.set(CURLOPT_NOPROGRESS, 0L);
    options.set(CURLOPT_PREREQFUNCTION, &HttpTransfer::connectionStands);
    options.set(CURLOPT_PREREQDATA, this);
    return options.allSet();
  }

  // libcurl is told of no authorities: it would read them for this connection alone. The handle
  // releases what it has shared before that is destroyed.
  bool shareTrust() {
    std::shared_ptr<const Trust> trust = trustStore_.now();
    if (!trust) return false;
    Options options(easy_.get());
    options.set(CURLOPT_CAINFO, static_cast<const char*>(nullptr));
    options.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    options.set(CURLOPT_SSL_CTX_FUNCTION, &HttpTransfer::contextCame);
    options.set(CURLOPT_SSL_CTX_DATA, this);
    options.set(CURLOPT_SHARE, trust->sessions.get());
    trust_.swap(trust);
    return options.allSet();
  }

  CURLcode perform() {
    while (true) {
      int count = 0;
      curl_multi_perform(multi_.get(), &count);
      const CURLMsg* const message = curl_multi_info_read(multi_.get(), &count);
      if (message != nullptr && message->msg == CURLMSG_DONE) return message->data.result;
      const Clock::time_point now = Clock::now();
      if (deadline() <= now) return CURLE_OPERATION_TIMEDOUT;
      wait(deadline() - now);
    }
  }

  // The moment at which the transfer has timed out if nothing moves until then.
  Clock::time_point deadline() const {
    return lastMove_ ? std::min(end_, *lastMove_ + timeouts_.idle) : end_;
  }

  void wait(Clock::duration longest) const {
    const auto time = std::min(std::chrono::ceil<milliseconds>(longest), kLongestWait);
    const ExitGate::Break pause;
    if (curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(time.count()), nullptr) !=
        CURLM_OK) {
      std::this_thread::sleep_for(kPauseAfterFailure);
    }
  }

  // ---- What libcurl tells ----

  static HttpTransfer& of(void* self) { return *static_cast<HttpTransfer*>(self); }

  static CURLcode contextCame(CURL*, void* context, void* self) {
    SSL_CTX_set1_cert_store(static_cast<SSL_CTX*>(context), of(self).trust_->authorities.get());
    return CURLE_OK;
  }

  static int connectionStands(void* self, char*, char*, int, int) {
    of(self).restartIdleClock();
    return CURL_PREREQFUNC_OK;
  }

  static std::size_t headerLineCame(char* bytes, std::size_t size, std::size_t count, void* self) {
    HttpTransfer& transfer = of(self);
    const std::size_t length = size * count;
    transfer.restartIdleClock();
    const std::string_view line(bytes, length);
    if (line.starts_with("HTTP/")) transfer.headComplete_ = false;
    if (line == "\r\n" || line == "\n") transfer.headComplete_ = true;
    transfer.headerBytes_ += length;
    ++transfer.headerLines_;
    if (transfer.headerBytes_ > kMaxHeaderBytes || transfer.headerLines_ > kMaxHeaderLines) {
      return transfer.refuse();
    }
    return length;
  }

  static std::size_t bodyCame(char* bytes, std::size_t size, std::size_t count, void* self) {
    HttpTransfer& transfer = of(self);
    const std::size_t length = size * count;
    if (length > kMaxBodyBytes - transfer.body_.size()) return transfer.refuse();
    transfer.body_.append(bytes, length);
    return length;
  }

  static int bytesMoved(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
    HttpTransfer& transfer = of(self);
    if (transfer.moved_ != received + sent) {
      transfer.moved_ = received + sent;
      transfer.restartIdleClock();
    }
    // A body may be packed so that nothing comes of it, however much is received.
    transfer.tooLarge_ = transfer.tooLarge_ || received > static_cast<curl_off_t>(kMaxBodyBytes);
    return transfer.tooLarge_ ? 1 : 0;
  }

  // Ends the transfer because the reply is too large.
  std::size_t refuse() {
    tooLarge_ = true;
    return CURL_WRITEFUNC_ERROR;
  }

  void restartIdleClock() { lastMove_ = Clock::now(); }

  // ---- The end of a hop ----

  // Absent when a redirect leads on. A session is not tried twice with a server that may not like
  // it.
  std::optional<HttpReply> finish(CURLcode result) {
    if (result != CURLE_OK) trustStore_.forgetSessions(trust_);
    if (tooLarge_) return failed(url_error::kDataLengthExceedsMaximum);
    if (result != CURLE_OK) return failed(urlErrorCode(result, info(CURLINFO_OS_ERRNO)));
    // A connection that is closed within the head ends a transfer in good order.
    if (!headComplete_) return failed(url_error::kNetworkConnectionLost);
    if (!isLengthClear()) return failed(url_error::kCannotParseResponse);
    if (redirectTarget() == nullptr || !isFollowed(info(CURLINFO_RESPONSE_CODE))) return reply();
    if (redirects_ == kMaxRedirects) return failed(url_error::kTooManyRedirects);
    follow();
    return std::nullopt;
  }

  // libcurl takes the last of several lengths, and what a line has of digits. Nobody knows then
  // where the body ends.
  bool isLengthClear() const {
    curl_header* header = nullptr;
    std::optional<std::string> length;
    for (std::size_t i = 0;
         curl_easy_header(easy_.get(), "Content-Length", i, CURLH_HEADER, -1, &header) == CURLHE_OK;
         ++i) {
      if (!isNumber(header->value) || (length && *length != header->value)) return false;
      length = header->value;
    }
    return true;
  }

  const char* redirectTarget() const {
    const char* target = nullptr;
    curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_URL, &target);
    return target;
  }

  void follow() {
    ++redirects_;
    request_.url = redirectTarget();
    if (!turnsIntoGet(info(CURLINFO_RESPONSE_CODE), request_.method)) return;
    request_.method = "GET";
    request_.body.clear();
    std::erase_if(request_.headers,
                  [](const auto& header) { return sameName(header.first, "Content-Type"); });
  }

  HttpReply failed(int code) const { return {{}, {}, urlError(code, request_.url)}; }

  HttpReply reply() const {
    const auto status = static_cast<int>(info(CURLINFO_RESPONSE_CODE));
    return {body_, HttpResponse{request_.url, status, responseHeaders()}, {}};
  }

  HttpHeaders responseHeaders() const {
    HttpHeaders headers;
    curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(easy_.get(), CURLH_HEADER, -1, header)) != nullptr) {
      const auto known = std::find_if(headers.begin(), headers.end(), [&](const auto& other) {
        return sameName(other.first, header->name);
      });
      if (known == headers.end()) {
        headers.emplace_back(header->name, header->value);
      } else {
        known->second.append(", ").append(header->value);
      }
    }
    return headers;
  }

  long info(CURLINFO what) const {
    long value = 0;
    curl_easy_getinfo(easy_.get(), what, &value);
    return value;
  }

  HttpRequest request_;
  const HttpTimeouts& timeouts_;
  TrustStore& trustStore_;
  const Clock::time_point end_;
  int redirects_ = 0;
  std::shared_ptr<const Trust> trust_;

  // Of the hop under way. The clock of idleness stands still until there is a connection.
  std::optional<Clock::time_point> lastMove_;
  curl_off_t moved_ = 0;
  std::size_t headerBytes_ = 0;
  std::size_t headerLines_ = 0;
  bool headComplete_ = false;
  std::string body_;
  bool tooLarge_ = false;

  // The handles point into what stands above them, so they are the first to go.
  Freed<curl_slist, &curl_slist_free_all> headers_;
  Freed<CURL, &curl_easy_cleanup> easy_{curl_easy_init()};
  Freed<CURLM, &curl_multi_cleanup> multi_{curl_multi_init()};
};

}  // namespace

HttpReply transfer(HttpRequest request, const std::string& userAgent, const HttpTimeouts& timeouts,
                   TrustStore& trustStore) {
  return HttpTransfer(std::move(request), timeouts, trustStore).run(userAgent);
}

}  // namespace zln
