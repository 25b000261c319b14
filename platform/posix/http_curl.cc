#include "platform/posix/http_curl.h"

#include <curl/curl.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/detached_thread.h"
#include "platform/posix/http_transfer.h"

namespace zln {

namespace {

using Clock = HttpTransfer::Clock;
using std::chrono::milliseconds;

// The network thread ends after this time without a request, and looks up at least that often.
constexpr milliseconds kLongestWait{1000};
// A wait that fails at once, for want of memory or descriptors, must not become a busy loop.
constexpr milliseconds kPauseAfterFailure{100};

bool startNetworkThread(std::function<void()> body) {
  return startDetachedThread("ZLN net", std::move(body));
}

// OpenSSL's own exit handler would take everything down under the network thread, which runs on
// while the process ends.
CURLM* openMulti() {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return nullptr;
  CURLM* multi = curl_multi_init();
  if (multi != nullptr) {
    curl_multi_setopt(multi, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_NOTHING));
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

// The requests and the thread that drives them. The thread holds it as well as the client, so it
// stays until both have let go.
class HttpClientCurl::Network : public std::enable_shared_from_this<Network> {
 public:
  using Transfers = std::vector<std::unique_ptr<HttpTransfer>>;

  Network(ThreadPool& pool, std::function<std::string()> userAgent,
          ThreadPool::ThreadStarter startThread)
      : pool_(pool), userAgent_(std::move(userAgent)), startThread_(std::move(startThread)) {}

  ~Network() {
    if (multi_ != nullptr) curl_multi_cleanup(multi_);
  }

  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  void add(std::unique_ptr<HttpTransfer> transfer) {
    std::unique_lock lock(mutex_);
    if (!running_ && !startThread_([self = shared_from_this()] { self->run(); })) {
      lock.unlock();
      return fail(std::move(transfer), url_error::kUnknown);
    }
    running_ = true;
    incoming_.push_back(std::move(transfer));
    if (multi_ != nullptr) curl_multi_wakeup(multi_);
  }

  void stop() {
    Transfers unstarted;
    std::unique_lock lock(mutex_);
    stopping_ = true;
    unstarted.swap(incoming_);
    if (multi_ != nullptr) curl_multi_wakeup(multi_);
    ended_.wait(lock, [this] { return !running_; });
  }

 private:
  void run() {
    quietSince_ = Clock::now();
    while (!ends()) {
      takeIncoming();
      perform();
      endOverdue();
      wait();
    }
  }

  // True when the thread is through. Once the lock is open again it touches nothing of this any
  // more: a new request makes a new thread. What completions hold is let go outside the lock.
  bool ends() {
    std::unique_lock lock(mutex_);
    if (stopping_) {
      lock.unlock();
      cancelAll();
      lock.lock();
    } else if (!incoming_.empty() || !isQuiet()) {
      return false;
    }
    running_ = false;
    ended_.notify_all();
    return true;
  }

  bool isQuiet() const { return active_.empty() && Clock::now() - quietSince_ >= kLongestWait; }

  // The first opening takes milliseconds, which nobody who adds a request is to wait for.
  void takeIncoming() {
    CURLM* multi = multi_ == nullptr ? openMulti() : multi_;
    Transfers incoming;
    {
      std::lock_guard lock(mutex_);
      multi_ = multi;
      incoming.swap(incoming_);
    }
    for (auto& transfer : incoming) start(std::move(transfer));
  }

  void start(std::unique_ptr<HttpTransfer> transfer) {
    std::optional<int> error = transfer->prepare(userAgent_());
    if (!error && curl_multi_add_handle(multi_, transfer->handle()) != CURLM_OK) {
      error = url_error::kUnknown;
    }
    if (error) return fail(std::move(transfer), *error);
    active_.push_back(std::move(transfer));
  }

  void perform() {
    if (!active_.empty()) quietSince_ = Clock::now();
    int count = 0;
    curl_multi_perform(multi_, &count);
    while (const CURLMsg* message = curl_multi_info_read(multi_, &count)) {
      if (message->msg != CURLMSG_DONE) continue;
      finish(message->easy_handle, message->data.result);
    }
  }

  void finish(CURL* handle, CURLcode result) {
    std::unique_ptr<HttpTransfer> transfer = takeActive(handle);
    if (std::optional<HttpReply> reply = transfer->finish(result)) {
      complete(std::move(transfer), std::move(*reply));
    } else {
      start(std::move(transfer));
    }
  }

  std::unique_ptr<HttpTransfer> takeActive(CURL* handle) {
    curl_multi_remove_handle(multi_, handle);
    const auto place = std::find_if(active_.begin(), active_.end(), [&](const auto& transfer) {
      return transfer->handle() == handle;
    });
    std::unique_ptr<HttpTransfer> transfer = std::move(*place);
    active_.erase(place);
    return transfer;
  }

  void endOverdue() {
    const Clock::time_point now = Clock::now();
    std::vector<CURL*> overdue;
    for (const auto& transfer : active_) {
      if (transfer->deadline() <= now) overdue.push_back(transfer->handle());
    }
    for (CURL* handle : overdue) {
      fail(takeActive(handle), url_error::kTimedOut);
    }
  }

  void fail(std::unique_ptr<HttpTransfer> transfer, int code) {
    HttpReply reply = transfer->failed(code);
    complete(std::move(transfer), std::move(reply));
  }

  // The connection is closed before the completion runs.
  void complete(std::unique_ptr<HttpTransfer> transfer, HttpReply reply) {
    HttpTransfer::Completion completion = transfer->takeCompletion();
    transfer.reset();
    pool_.run([completion = std::move(completion), reply = std::move(reply)]() mutable {
      completion(std::move(reply));
    });
  }

  void wait() {
    const Clock::time_point now = Clock::now();
    Clock::time_point until = quietSince_ + kLongestWait;
    for (const auto& transfer : active_) until = std::min(until, transfer->deadline());
    const auto time = std::chrono::ceil<milliseconds>(std::max(until - now, Clock::duration(0)));
    if (curl_multi_poll(multi_, nullptr, 0, static_cast<int>(time.count()), nullptr) != CURLM_OK) {
      std::this_thread::sleep_for(kPauseAfterFailure);
    }
  }

  void cancelAll() {
    for (const auto& transfer : active_) curl_multi_remove_handle(multi_, transfer->handle());
    active_.clear();
  }

  ThreadPool& pool_;
  const std::function<std::string()> userAgent_;
  const ThreadPool::ThreadStarter startThread_;

  std::mutex mutex_;
  std::condition_variable ended_;
  Transfers incoming_;
  bool running_ = false;
  bool stopping_ = false;
  // Made and used by the network thread; others wake it, under the lock. It outlives the thread,
  // because it keeps the certificate authorities that it has read. Null when it cannot be made.
  CURLM* multi_ = nullptr;

  // Of the network thread alone.
  Transfers active_;
  Clock::time_point quietSince_;
};

HttpClientCurl::HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent,
                               HttpTimeouts timeouts)
    : HttpClientCurl(pool, std::move(userAgent), timeouts, startNetworkThread) {}

HttpClientCurl::HttpClientCurl(ThreadPool& pool, std::function<std::string()> userAgent,
                               HttpTimeouts timeouts, ThreadPool::ThreadStarter startThread)
    : timeouts_(timeouts),
      network_(std::make_shared<Network>(pool, std::move(userAgent), std::move(startThread))) {}

HttpClientCurl::~HttpClientCurl() { network_->stop(); }

void HttpClientCurl::upload(HttpRequest request, std::function<void(HttpReply)> completion) {
  network_->add(
      std::make_unique<HttpTransfer>(std::move(request), std::move(completion), timeouts_));
}

std::string userAgentText(std::string_view appName, std::string_view appVersion,
                          std::string_view libraryVersion) {
  return percentEncoded(appName) + "/" + percentEncoded(appVersion) + " ZLNSessionReporting/" +
         std::string(libraryVersion) + " Linux";
}

}  // namespace zln
