// What delivering reports costs without the library: three threads, for each report a new
// connection, the server verified against one authority.
//
// usage: posting_yardstick libcurl|resumed|openssl COUNT PORT CA-FILE
//   libcurl  a new handle for each report, with a full handshake
//   resumed  the same with the TLS sessions of earlier connections
//   openssl  OpenSSL and a socket, with the TLS sessions of earlier connections
#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/file_watch.h"
#include "bench/sample_report.h"

namespace zln::bench {
namespace {

constexpr unsigned kThreads = 3;
constexpr char kHost[] = "127.0.0.1";
constexpr char kSuccess[] = "{\"success\":true}";

class Poster {
 public:
  virtual ~Poster() = default;
  // True when the server has taken the report. Three threads call it.
  virtual bool post(const std::string& body) = 0;
};

// ---- libcurl ----

std::size_t keepReply(char* bytes, std::size_t size, std::size_t count, void* reply) {
  static_cast<std::string*>(reply)->append(bytes, size * count);
  return size * count;
}

using Locks = std::array<std::mutex, CURL_LOCK_DATA_LAST>;

class CurlPoster : public Poster {
 public:
  CurlPoster(unsigned short port, const char* caFile, bool resumes)
      : url_("https://" + std::string(kHost) + ":" + std::to_string(port) + "/session"),
        caFile_(caFile) {
    curl_global_init(CURL_GLOBAL_ALL);
    headers_ = curl_slist_append(nullptr, "Content-Type: application/json");
    if (!resumes) return;
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_USERDATA, &locks_);
    curl_share_setopt(
        share_, CURLSHOPT_LOCKFUNC, +[](CURL*, curl_lock_data data, curl_lock_access, void* locks) {
          (*static_cast<Locks*>(locks))[data].lock();
        });
    curl_share_setopt(
        share_, CURLSHOPT_UNLOCKFUNC, +[](CURL*, curl_lock_data data, void* locks) {
          (*static_cast<Locks*>(locks))[data].unlock();
        });
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  ~CurlPoster() override {
    if (share_ != nullptr) curl_share_cleanup(share_);
    curl_slist_free_all(headers_);
  }

  bool post(const std::string& body) override {
    std::string reply;
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(easy, CURLOPT_CAINFO, caFile_);
    curl_easy_setopt(easy, CURLOPT_SHARE, share_);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, keepReply);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    const CURLcode result = curl_easy_perform(easy);
    curl_easy_cleanup(easy);
    return result == CURLE_OK && reply == kSuccess;
  }

 private:
  const std::string url_;
  const char* const caFile_;
  curl_slist* headers_ = nullptr;
  Locks locks_;
  CURLSH* share_ = nullptr;
};

// ---- OpenSSL ----

class OpenSslPoster : public Poster {
 public:
  OpenSslPoster(unsigned short port, const char* caFile)
      : port_(port), context_(SSL_CTX_new(TLS_client_method()), SSL_CTX_free) {
    SSL_CTX_load_verify_file(context_.get(), caFile);
    SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_session_cache_mode(context_.get(),
                                   SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_set_app_data(context_.get(), this);
    SSL_CTX_sess_set_new_cb(context_.get(), [](SSL* ssl, SSL_SESSION* session) {
      static_cast<OpenSslPoster*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)))->keep(session);
      return 1;
    });
  }

  bool post(const std::string& body) override {
    const int connection = connectToServer();
    const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context_.get()), SSL_free);
    SSL_set_fd(ssl.get(), connection);
    X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), kHost);
    {
      std::lock_guard lock(mutex_);
      if (session_) SSL_set_session(ssl.get(), session_.get());
    }
    std::string reply;
    if (SSL_connect(ssl.get()) == 1) reply = replyTo(ssl.get(), body);
    SSL_shutdown(ssl.get());
    close(connection);
    return reply.ends_with(kSuccess);
  }

 private:
  int connectToServer() const {
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_);
    inet_pton(AF_INET, kHost, &address.sin_addr);
    if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      std::perror("connect");
    }
    return connection;
  }

  std::string replyTo(SSL* ssl, const std::string& body) const {
    const std::string request =
        "POST /session HTTP/1.1\r\nHost: " + std::string(kHost) + ":" + std::to_string(port_) +
        "\r\nConnection: close\r\nContent-Type: application/json\r\n" +
        "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    SSL_write(ssl, request.data(), static_cast<int>(request.size()));
    std::string reply;
    char bytes[4096];
    for (int count; (count = SSL_read(ssl, bytes, sizeof bytes)) > 0;) {
      reply.append(bytes, static_cast<std::size_t>(count));
    }
    return reply;
  }

  void keep(SSL_SESSION* session) {
    std::lock_guard lock(mutex_);
    session_.reset(session, SSL_SESSION_free);
  }

  const unsigned short port_;
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::mutex mutex_;
  std::shared_ptr<SSL_SESSION> session_;
};

// ---- Measuring ----

unsigned postAll(Poster& poster, const std::vector<std::string>& bodies) {
  std::atomic<std::size_t> next = 0;
  std::atomic<unsigned> taken = 0;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (std::size_t turn = next++; turn < bodies.size(); turn = next++) {
        if (poster.post(bodies[turn])) ++taken;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return taken;
}

double processorUs() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  const auto microseconds = [](timeval time) {
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
  };
  return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

std::unique_ptr<Poster> posterOf(const std::string& kind, unsigned short port, const char* caFile) {
  if (kind == "openssl") return std::make_unique<OpenSslPoster>(port, caFile);
  return std::make_unique<CurlPoster>(port, caFile, kind == "resumed");
}

int run(const std::string& kind, unsigned count, unsigned short port, const char* caFile) {
  std::vector<std::string> bodies;
  for (unsigned number = 0; number < count; ++number) bodies.push_back(SampleReport(number).json());
  const double processorBefore = processorUs();
  const auto begin = std::chrono::steady_clock::now();
  const std::unique_ptr<Poster> poster = posterOf(kind, port, caFile);
  const unsigned taken = postAll(*poster, bodies);
  const std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - begin;
  std::printf("delivery_us %.0f\nprocessor_us %.0f\n", spent.count(),
              processorUs() - processorBefore);
  std::printf("resident_kb %ld\n", residentKb());
  if (taken == count) return 0;
  std::fprintf(stderr, "posting_yardstick: only %u of %u reports were taken\n", taken, count);
  return 1;
}

}  // namespace
}  // namespace zln::bench

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  return zln::bench::run(argv[1], static_cast<unsigned>(std::stoul(argv[2])),
                         static_cast<unsigned short>(std::stoul(argv[3])), argv[4]);
}
