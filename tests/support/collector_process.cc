#include "tests/support/collector_process.h"

#include <httplib.h>
#include <sys/wait.h>

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string_view>

#include "tests/support/file_contents.h"

namespace zln {
namespace {

using std::chrono::seconds;

constexpr seconds kPatience{60};
constexpr seconds kReadPatience{90};  // A wait of the collector's lasts for a minute.
constexpr std::chrono::milliseconds kGlance{2};
constexpr char kHost[] = "127.0.0.1";
constexpr char kJson[] = "application/json";
constexpr int kTimeIsOver = 408;

// Starts a program that is killed when the one that has started it ends, however that ends.
constexpr char kKeeper[] = "/usr/bin/setpriv";

const char* const kGameHosts[] = {"session-first.invalid",   "session-start.invalid",
                                  "session-stop.invalid",    "ad-attempt.invalid",
                                  "ad-zone-attempt.invalid", "config.invalid"};

std::vector<std::string> argumentsFor(const std::string& folder) {
  std::vector<std::string> arguments = {"--pdeathsig", "KILL", ZLN_COLLECTOR, "--port",        "0",
                                        "--page-port", "0",    "--data",      folder + "/data"};
  for (const char* host : kGameHosts) arguments.insert(arguments.end(), {"--host", host});
  return arguments;
}

// Nothing but what a sanitizer is told.
std::map<std::string, std::string> environment() {
  std::map<std::string, std::string> variables;
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) variables[name] = value;
  }
  return variables;
}

std::uint16_t portIn(std::string_view address) {
  std::uint16_t port = 0;
  const std::string_view digits = address.substr(address.rfind(':') + 1);
  std::from_chars(digits.data(), digits.data() + digits.size(), port);
  return port;
}

}  // namespace

CollectorProcess::CollectorProcess(const std::string& folder) : folder_(folder) {
  std::filesystem::create_directories(folder_);
  start();
}

CollectorProcess::~CollectorProcess() { end(); }

// ---- Reports ----

std::vector<CollectorProcess::Json> CollectorProcess::reports(std::int64_t after) const {
  std::vector<Json> all;
  for (Json page{{"more", true}}; page["more"];) {
    page = get("/api/reports?limit=1000&after=" + std::to_string(after));
    for (const Json& report : page["reports"]) all.push_back(report);
    if (!all.empty()) after = all.back()["id"];
  }
  return all;
}

std::vector<CollectorProcess::Json> CollectorProcess::reportsJudged(
    const std::string& verdict) const {
  return get("/api/reports?limit=1000&verdict=" + verdict)["reports"];
}

std::int64_t CollectorProcess::latestReport() const {
  const Json reports = get("/api/reports?limit=1&order=desc")["reports"];
  return reports.empty() ? 0 : reports[0]["id"].get<std::int64_t>();
}

std::vector<CollectorProcess::Json> CollectorProcess::waitFor(std::size_t count,
                                                              const Json& match) const {
  const Json wish{{"count", count}, {"match", match}, {"timeout", kPatience.count()}};
  return send("POST", "/api/wait", wish)["reports"];
}

// ---- Faults and settings ----

int CollectorProcess::addFault(const Json& fault) {
  return send("POST", "/api/faults", fault)["id"];
}

void CollectorProcess::removeFault(int id) { send("DELETE", "/api/faults/" + std::to_string(id)); }

std::int64_t CollectorProcess::hitsOf(int fault) const {
  const Json list = get("/api/faults");
  for (const Json& entry : list["faults"]) {
    if (entry["id"] == fault) return entry["hits"];
  }
  throw std::runtime_error("The collector has no fault " + std::to_string(fault));
}

void CollectorProcess::setSettings(const Json& values) {
  send("PUT", "/api/settings", {{"values", values}});
}

// ---- Begin and end ----

bool CollectorProcess::end() {
  if (process_->pid() < 0) return true;
  process_->interrupt();
  const int status = process_->waitForEnd(kPatience);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 && process_->errors().empty();
}

void CollectorProcess::start() {
  ++starts_;
  const ChildStart start{kKeeper, argumentsFor(folder_), environment(), fileFor("errors"),
                         fileFor("output")};
  std::filesystem::remove(start.errorFile);
  std::filesystem::remove(start.outputFile);
  process_ = std::make_unique<ChildProcess>(start);
  client_ = std::make_unique<httplib::Client>(kHost, portIn(awaitPageAddress()));
  client_->set_tcp_nodelay(true);
  client_->set_read_timeout(kReadPatience);
  const Json status = get("/api/status");
  gamePort_ = status["ports"]["config"];
  caFile_ = status["authority"];
}

std::string CollectorProcess::fileFor(const std::string& what) const {
  return folder_ + "/" + what + std::to_string(starts_);
}

// "http://localhost:4711".
std::string CollectorProcess::awaitPageAddress() const {
  constexpr std::string_view kAnnouncement = "The page is at ";
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < deadline) {
    const std::string output = contentsOf(fileFor("output"));
    const std::size_t found = output.find(kAnnouncement);
    const std::size_t end = output.find("/\n", found);
    if (found != std::string::npos && end != std::string::npos) {
      const std::size_t begin = found + kAnnouncement.size();
      return output.substr(begin, end - begin);
    }
    if (process_->waitForEnd(kGlance) != -1) break;
  }
  throw std::runtime_error("The collector does not start: " + process_->errors());
}

// ---- The interface ----

CollectorProcess::Json CollectorProcess::get(const std::string& path) const {
  return send("GET", path);
}

CollectorProcess::Json CollectorProcess::send(const char* method, const std::string& path,
                                              const Json& body) const {
  httplib::Request request;
  request.method = method;
  request.path = path;
  if (!body.is_null()) {
    request.body = body.dump();
    request.set_header("Content-Type", kJson);
  }
  const httplib::Result result = client_->send(request);
  const std::string what = std::string(method) + " " + path;
  if (!result) throw std::runtime_error(what + ": " + httplib::to_string(result.error()));
  if (result->status >= 300 && result->status != kTimeIsOver) {
    throw std::runtime_error(what + ": " + std::to_string(result->status) + " " + result->body);
  }
  return result->body.empty() ? Json() : Json::parse(result->body);
}

}  // namespace zln
