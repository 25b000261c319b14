#include "platform/posix/http_curl.h"

#include <curl/curl.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/joined.h"
#include "platform/posix/exit_gate.h"
#include "platform/posix/http_transfer.h"

namespace zln {

namespace {

using std::chrono::milliseconds;

// A transfer looks up at least that often.
constexpr milliseconds kLongestWait{1000};
// A wait that fails at once, for want of memory or descriptors, must not become a busy loop.
constexpr milliseconds kPauseAfterFailure{100};

struct MultiCleanup {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using Multi = std::unique_ptr<CURLM, MultiCleanup>;

// OpenSSL's own exit handler would take everything down under the threads of transfers, which run
// on while the process ends. Where the game has opened it before, the handler is there already, and
// the gate must close before it runs, also where the game did so after the client was made. The
// first opening takes milliseconds.
bool openLibraries() {
  static const bool opened = [] {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    const bool isOpen = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    ExitGate::closeAtExit();
    return isOpen;
  }();
  return opened;
}

Multi openMulti() {
  Multi multi(openLibraries() ? curl_multi_init() : nullptr);
  if (multi) {
    curl_multi_setopt(multi.get(), CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_NOTHING));
  }
  return multi;
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view kUnreserved =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (kUnreserved.find(c) != std::string_view::npos) {
      encoded += c;
    } else {
      encoded.append({'%', kHex[byte >> 4], kHex[byte & 15]});
    }
  }
  return encoded;
}

}  // namespace

// What the threads that carry transfers share. Each holds it, so it stays until all have let go.
class HttpClientCurl::Network {
 public:
  explicit Network(std::function<std::string()> userAgent) : userAgent_(std::move(userAgent)) {}
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  TrustStore& trustStore() { return trustStore_; }

  // Carries the transfer to its end and runs its completion. The connection is closed before that.
  void carry(std::shared_ptr<HttpTransfer> transfer) {
    std::optional<HttpReply> reply;
    const HttpTransfer::Completion completion = transfer->takeCompletion();
    {
      const ExitGate::Visit visit;
      reply = replyTo(*transfer);
      transfer.reset();
    }
    if (reply) completion(std::move(*reply));
  }

  // From now on there is no reply to any transfer.
  void stop() {
    std::unique_lock lock(mutex_);
    stopping_ = true;
    for (CURLM* multi : active_) curl_multi_wakeup(multi);
    left_.wait(lock, [this] { return active_.empty(); });
  }

 private:
  // Absent when the client is stopping.
  std::optional<HttpReply> replyTo(HttpTransfer& transfer) {
    const Multi multi = openMulti();
    if (!multi) return transfer.failed(url_error::kUnknown);
    if (!enter(multi.get())) return std::nullopt;
    std::optional<HttpReply> reply;
    while (!reply && !isStopping()) reply = hop(transfer, multi.get());
    if (!leave(multi.get())) return std::nullopt;
    return reply;
  }

  // Absent when a redirect leads on, or the client is stopping.
  std::optional<HttpReply> hop(HttpTransfer& transfer, CURLM* multi) {
    if (const std::optional<int> error = transfer.prepare(userAgent_())) {
      return transfer.failed(*error);
    }
    if (curl_multi_add_handle(multi, transfer.handle()) != CURLM_OK) {
      return transfer.failed(url_error::kUnknown);
    }
    const std::optional<CURLcode> result = perform(transfer, multi);
    std::optional<HttpReply> reply;
    if (result) {
      reply = transfer.finish(*result);
    } else if (!isStopping()) {
      reply = transfer.failed(url_error::kTimedOut);
    }
    curl_multi_remove_handle(multi, transfer.handle());
    return reply;
  }

  // Absent when the time is over, or the client is stopping.
  std::optional<CURLcode> perform(const HttpTransfer& transfer, CURLM* multi) {
    while (!isStopping()) {
      int count = 0;
      curl_multi_perform(multi, &count);
      const CURLMsg* const message = curl_multi_info_read(multi, &count);
      if (message != nullptr && message->msg == CURLMSG_DONE) return message->data.result;
      const HttpTransfer::Clock::time_point now = HttpTransfer::Clock::now();
      if (transfer.deadline() <= now) break;
      wait(multi, transfer.deadline() - now);
    }
    return std::nullopt;
  }

  void wait(CURLM* multi, HttpTransfer::Clock::duration longest) {
    const auto time = std::min(std::chrono::ceil<milliseconds>(longest), kLongestWait);
    const ExitGate::Break pause;
    if (curl_multi_poll(multi, nullptr, 0, static_cast<int>(time.count()), nullptr) != CURLM_OK) {
      std::this_thread::sleep_for(kPauseAfterFailure);
    }
  }

  bool enter(CURLM* multi) {
    std::lock_guard lock(mutex_);
    if (!stopping_) active_.push_back(multi);
    return !stopping_;
  }

  // False when the client is stopping.
  bool leave(CURLM* multi) {
    std::lock_guard lock(mutex_);
    std::erase(active_, multi);
    if (active_.empty()) left_.notify_all();
    return !stopping_;
  }

  bool isStopping() {
    std::lock_guard lock(mutex_);
    return stopping_;
  }

  const std::function<std::string()> userAgent_;
  TrustStore trustStore_;
  std::mutex mutex_;
  std::condition_variable left_;
  std::vector<CURLM*> active_;
  bool stopping_ = false;
};

HttpClientCurl::HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent,
                               HttpTimeouts timeouts)
    : pool_(pool), timeouts_(timeouts), network_(std::make_shared<Network>(std::move(userAgent))) {
  // Already now: exit() may begin while the first transfer opens the libraries.
  [[maybe_unused]] static const bool closes = [] {
    ExitGate::closeAtExit();
    return true;
  }();
}

HttpClientCurl::~HttpClientCurl() { network_->stop(); }

void HttpClientCurl::upload(HttpRequest request, std::function<void(HttpReply)> completion) {
  auto transfer = std::make_shared<HttpTransfer>(std::move(request), std::move(completion),
                                                 timeouts_, network_->trustStore());
  pool_.run([network = network_, transfer = std::move(transfer)]() mutable {
    network->carry(std::move(transfer));
  });
}

std::string userAgentText(std::string_view appName, std::string_view appVersion,
                          std::string_view libraryVersion) {
  return joined({percentEncoded(appName), "/", percentEncoded(appVersion), " ZLNSessionReporting/",
                 libraryVersion, " Linux"});
}

}  // namespace zln
