#include "collector/receiver.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>

#include "collector/report_line.h"

namespace zln::collector {
namespace {

constexpr char kAddress[] = "127.0.0.1";
constexpr char kJson[] = "application/json";
constexpr std::size_t kLongestBody = 1024 * 1024;
constexpr int kDeepestNesting = 32;
constexpr int kLengthRequired = 411;
constexpr int kUnsupportedMediaType = 415;

// Two receivers must not share a port, which httplib's own choice would allow.
void setSocketOptions(socket_t socket) {
  const int yes = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

// The limit holds for bodies that say their length beforehand: others could grow without bound, in
// chunks or when they are decompressed.
int refusalOf(const httplib::Request& request) {
  if (request.has_header("Transfer-Encoding")) return kLengthRequired;
  if (request.has_header("Content-Encoding")) return kUnsupportedMediaType;
  return 0;
}

httplib::Server::HandlerResponse refuseUnbounded(const httplib::Request& request,
                                                 httplib::Response& response) {
  const int refusal = refusalOf(request);
  if (refusal == 0) return httplib::Server::HandlerResponse::Unhandled;
  response.status = refusal;
  return httplib::Server::HandlerResponse::Handled;
}

// Absent when the body is no JSON object, or one too deep to be a report.
std::optional<nlohmann::json> parseObject(const std::string& body) {
  bool tooDeep = false;
  const auto watchDepth = [&](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
    tooDeep = tooDeep || depth > kDeepestNesting;
    return !tooDeep;
  };
  nlohmann::json object = nlohmann::json::parse(body, watchDepth, /*allow_exceptions=*/false);
  if (tooDeep || !object.is_object()) return std::nullopt;
  return object;
}

nlohmann::json unreadable() {
  return {{"success", false}, {"errorIsPermanent", true}, {"error", "the body is no JSON object"}};
}

std::string timeOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[16];
  return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", &local));
}

}  // namespace

Receiver::Receiver(const CertificateFiles& certificate, const std::filesystem::path& reports,
                   ReplyRules rules, SettingsFile settings)
    : server_(certificate.certificate.c_str(), certificate.key.c_str()),
      reports_(reports, std::ios::app),
      rules_(std::move(rules)),
      settings_(std::move(settings)) {
  if (!server_.is_valid()) throw std::runtime_error("cannot use " + certificate.key.string());
  if (!reports_) throw std::runtime_error("cannot write " + reports.string());
  limitRequests();
  routeRequests();
}

int Receiver::bind(int port) {
  const bool any = port == 0;
  if (any) port = server_.bind_to_any_port(kAddress);
  if (port < 0 || (!any && !server_.bind_to_port(kAddress, port))) {
    throw std::runtime_error("cannot listen on port " + std::to_string(port) + " of " + kAddress +
                             ": " + std::strerror(errno));
  }
  return port;
}

bool Receiver::serve() { return server_.listen_after_bind(); }

void Receiver::limitRequests() {
  server_.set_socket_options(setSocketOptions);
  server_.set_payload_max_length(kLongestBody);
  server_.set_keep_alive_timeout(1);
  server_.set_pre_routing_handler(refuseUnbounded);
}

void Receiver::routeRequests() {
  server_.Post("/session", [this](const httplib::Request& request, httplib::Response& response) {
    response.set_content(answerReport(request.body), kJson);
  });
  server_.Post("/config", [this](const httplib::Request& request, httplib::Response& response) {
    response.set_content(answerSettings(request.body), kJson);
  });
  server_.set_error_handler([this](const httplib::Request& request, httplib::Response& response) {
    if (request.method.empty()) return;  // The unread rest of a refused request.
    const std::lock_guard lock(mutex_);
    print("refused a request: " + printable(request.method + " " + request.path) + "  -> HTTP " +
          std::to_string(response.status));
  });
}

std::string Receiver::answerReport(const std::string& body) {
  const auto report = parseObject(body);
  const std::lock_guard lock(mutex_);
  if (report) return takeReport(*report).dump();
  print("no report: " + std::to_string(body.size()) + " bytes that are no JSON object");
  return unreadable().dump();
}

nlohmann::json Receiver::takeReport(const nlohmann::json& report) {
  nlohmann::json reply = rules_.replyTo(report);
  print(reportLine(report, reply));
  // Written last: who sees the report in the file has its line as well.
  reports_ << report.dump() << std::endl;
  return reply;
}

std::string Receiver::answerSettings(const std::string& body) {
  const auto request = parseObject(body);
  const std::lock_guard lock(mutex_);
  const nlohmann::json& settings = settings_.current();
  print(settingsLine(request.value_or(nlohmann::json::object()), settings));
  return settings.dump();
}

void Receiver::print(const std::string& line) {
  std::cout << timeOfDay() << "  " << line << std::endl;
}

}  // namespace zln::collector
