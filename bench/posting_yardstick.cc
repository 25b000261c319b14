// What delivering reports costs with nothing but libcurl: three threads, for each report a new easy
// handle and thus a new connection with a full handshake, the server verified against one
// authority.
//
// usage: posting_yardstick COUNT URL CA-FILE
#include <curl/curl.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "bench/file_watch.h"
#include "bench/sample_report.h"

namespace zln::bench {
namespace {

constexpr unsigned kThreads = 3;

std::size_t keepReply(char* bytes, std::size_t size, std::size_t count, void* reply) {
  static_cast<std::string*>(reply)->append(bytes, size * count);
  return size * count;
}

struct Server {
  const char* url;
  const char* caFile;
  curl_slist* headers;
};

bool post(const Server& server, const std::string& body) {
  std::string reply;
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, server.url);
  curl_easy_setopt(easy, CURLOPT_CAINFO, server.caFile);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, server.headers);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, keepReply);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &reply);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  const CURLcode result = curl_easy_perform(easy);
  curl_easy_cleanup(easy);
  return result == CURLE_OK && reply == "{\"success\":true}";
}

unsigned postAll(const Server& server, const std::vector<std::string>& bodies) {
  std::atomic<std::size_t> next = 0;
  std::atomic<unsigned> taken = 0;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (std::size_t turn = next++; turn < bodies.size(); turn = next++) {
        if (post(server, bodies[turn])) ++taken;
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

int run(unsigned count, const char* url, const char* caFile) {
  if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) return 1;
  std::vector<std::string> bodies;
  for (unsigned number = 0; number < count; ++number) bodies.push_back(SampleReport(number).json());
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
  const double processorBefore = processorUs();
  const auto begin = std::chrono::steady_clock::now();
  const unsigned taken = postAll({url, caFile, headers}, bodies);
  const std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - begin;
  std::printf("delivery_us %.0f\nprocessor_us %.0f\n", spent.count(),
              processorUs() - processorBefore);
  curl_slist_free_all(headers);
  std::printf("resident_kb %ld\n", residentKb());
  if (taken == count) return 0;
  std::fprintf(stderr, "posting_yardstick: only %u of %u reports were taken\n", taken, count);
  return 1;
}

}  // namespace
}  // namespace zln::bench

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  return zln::bench::run(static_cast<unsigned>(std::stoul(argv[1])), argv[2], argv[3]);
}
