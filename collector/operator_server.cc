#include "collector/operator_server.h"

#include <httplib.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "collector/api_error.h"
#include "collector/connection_stream.h"
#include "collector/embedded_files.h"
#include "collector/event_feed.h"
#include "collector/export.h"
#include "collector/http_status.h"
#include "collector/json.h"
#include "collector/json_object.h"
#include "collector/operator_api.h"
#include "collector/report_store.h"
#include "collector/request_guard.h"
#include "collector/request_server.h"

namespace zln::collector {
namespace {

using httplib::Request;
using httplib::Response;
using nlohmann::json;

constexpr std::size_t kMostOperators = 128;
constexpr std::size_t kMostRequestsOfOne = 1000;

// In the path of a route, whose last part it is then, and what it stands for.
constexpr std::string_view kIdentifier = "{id}";
constexpr char kIdentifierPattern[] = "([0-9]{1,15})";
constexpr std::size_t kMostDigits = 15;

constexpr char kContentPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self' data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

std::string textOf(const json& body) {
  return body.dump(-1, ' ', false, json::error_handler_t::replace);
}

void respond(Response& response, int status, const json& body) {
  response.status = status;
  response.set_content(textOf(body), kJson);
}

void respondWithError(Response& response, int status, const std::string& text) {
  respond(response, status, {{"error", text}});
}

json bodyOf(const Request& request) {
  auto object = parseObject(request.body);
  if (!object) throw ApiError(kBadRequest, "the body is no JSON object");
  return *std::move(object);
}

// 0, which nothing has, for one that does not fit.
template <typename Id>
Id identifierOf(const Request& request) {
  const std::string digits = request.matches[1];
  Id id = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), id);
  return id;
}

// Runs a handler and answers with what went wrong in it.
void attempt(const std::function<void()>& handler, Response& response) {
  try {
    handler();
  } catch (const ApiError& failure) {
    respondWithError(response, failure.status(), failure.what());
  } catch (const std::invalid_argument& failure) {
    respondWithError(response, kBadRequest, failure.what());
  } catch (const std::exception& failure) {
    respondWithError(response, kUnavailable, failure.what());
  }
}

// The name of a file of the page, or of a schema, in the program.
std::string embeddedNameOf(const std::string& path) {
  if (path == "/") return "page/index.html";
  if (path.starts_with("/schema/")) return path.substr(1);
  return "page" + path;
}

void respondWithFile(const EmbeddedFile& file, const Request& request, Response& response) {
  const std::string tag = "\"" + file.tag + "\"";
  response.set_header("ETag", tag);
  response.set_header("Cache-Control", "no-cache");
  if (request.get_header_value("If-None-Match") == tag) {
    response.status = kNotModified;
    return;
  }
  response.set_content(file.content.data(), file.content.size(), std::string(file.type));
}

void respondWithFileAt(const std::string& name, const Request& request, Response& response) {
  const EmbeddedFile* file = findEmbeddedFile(name);
  if (file == nullptr) throw ApiError(kNotFound, "there is no such page");
  respondWithFile(*file, request, response);
}

// The pages need no patterns, which a long path would be hard on.
httplib::Server::HandlerResponse respondWithPage(const Request& request, Response& response) {
  const bool isRead = request.method == "GET" || request.method == "HEAD";
  if (!isRead || request.path.starts_with("/api/")) {
    return httplib::Server::HandlerResponse::Unhandled;
  }
  attempt([&] { respondWithFileAt(embeddedNameOf(request.path), request, response); }, response);
  return httplib::Server::HandlerResponse::Handled;
}

std::string textOfStatus(int status) {
  switch (status) {
    case kNotFound:
      return "there is no such page";
    case kMethodNotAllowed:
      return "this page has no such method";
    case kRequestTimeout:
      return "the request took too long";
    case kServerError:
      return "the collector has failed";
    default:
      return "the request cannot be used: HTTP " + std::to_string(status);
  }
}

bool isPath(std::string_view path, std::string_view route) {
  if (!route.ends_with(kIdentifier)) return path == route;
  route.remove_suffix(kIdentifier.size());
  if (!path.starts_with(route)) return false;
  const std::string_view digits = path.substr(route.size());
  return !digits.empty() && digits.size() <= kMostDigits &&
         digits.find_first_not_of("0123456789") == std::string_view::npos;
}

ExportFormat formatOf(const Request& request) {
  const std::string name = request.get_param_value("format");
  if (name.empty() || name == "jsonl") return ExportFormat::kJsonLines;
  if (name == "csv") return ExportFormat::kCsv;
  throw ApiError(kBadRequest, "\"format\" must be jsonl or csv");
}

}  // namespace

OperatorServer::OperatorServer(std::unique_ptr<ListeningPort> port, const std::string& address,
                               const CollectorParts& parts, ReportDesk& desk,
                               const CollectorFacts& facts, std::filesystem::path database,
                               const TransferTimes& times)
    : parts_(parts),
      api_(std::make_unique<OperatorApi>(parts, desk, facts)),
      database_(std::move(database)),
      port_(std::move(port)),
      requests_(std::make_unique<RequestServer>()),
      times_(times),
      threads_(kMostOperators) {
  requests_->set_keep_alive_max_count(kMostRequestsOfOne);
  requests_->set_default_headers({{"Content-Security-Policy", kContentPolicy},
                                  {"X-Content-Type-Options", "nosniff"},
                                  {"Referrer-Policy", "no-referrer"}});
  guard(address);
  routeReports();
  routeFaults();
  routeSettings();
  add("GET", "/api/openapi.yaml", [](const Request& request, Response& response) {
    respondWithFileAt("openapi.yaml", request, response);
  });
}

OperatorServer::~OperatorServer() { stop(); }

void OperatorServer::start() {
  port_->start([this](OwnedSocket connection) {
    threads_.serve(std::move(connection), [this](int socket) {
      ConnectionStream stream(socket, times_);
      requests_->serve(stream);
      stream.close();
    });
  });
}

void OperatorServer::stop() {
  requests_->endBodies();
  port_.reset();
  threads_.stop();
}

void OperatorServer::guard(const std::string& address) {
  requests_->set_pre_routing_handler(
      [guard = RequestGuard(address)](const Request& request, Response& response) {
        response.status = refusalOfUnbounded(request);
        if (response.status != 0) return httplib::Server::HandlerResponse::Handled;
        response.status = -1;
        if (const auto refusal = guard.refusalOf(request)) {
          respondWithError(response, kForbidden, *refusal);
          return httplib::Server::HandlerResponse::Handled;
        }
        return respondWithPage(request, response);
      });
  requests_->set_error_handler([this](const Request& request, Response& response) {
    ConnectionStream::current().endAfterAnswer();
    response.set_header("Connection", "close");
    completeError(request, response);
  });
}

void OperatorServer::routeReports() {
  add("GET", "/api/status",
      [this](const Request&, Response& response) { respond(response, kOk, api_->status()); });
  add("GET", "/api/reports", [this](const Request& request, Response& response) {
    respond(response, kOk, api_->reports(request.params));
  });
  add("GET", "/api/reports/{id}", [this](const Request& request, Response& response) {
    respond(response, kOk, api_->report(identifierOf<std::int64_t>(request)));
  });
  add("DELETE", "/api/reports", [this](const Request&, Response& response) {
    api_->clearReports();
    response.status = kNoContent;
  });
  add("POST", "/api/wait", [this](const Request& request, Response& response) {
    const json result = api_->wait(bodyOf(request));
    respond(response, result.at("satisfied") ? kOk : kRequestTimeout, result);
  });
  add("GET", "/api/summary",
      [this](const Request&, Response& response) { respond(response, kOk, api_->summary()); });
  add("GET", "/api/timeline", [this](const Request& request, Response& response) {
    respond(response, kOk, api_->timeline(request.params));
  });
  add("GET", "/api/export",
      [this](const Request& request, Response& response) { respondWithExport(request, response); });
  add("GET", "/api/events", [this](const Request& request, Response& response) {
    if (!respondWithEvents(request, response, parts_.store, parts_.events)) {
      throw ApiError(kUnavailable, "too many follow the events");
    }
  });
}

void OperatorServer::routeFaults() {
  add("GET", "/api/faults",
      [this](const Request&, Response& response) { respond(response, kOk, api_->faults()); });
  add("POST", "/api/faults", [this](const Request& request, Response& response) {
    respond(response, kCreated, api_->addFault(bodyOf(request)));
  });
  add("DELETE", "/api/faults", [this](const Request&, Response& response) {
    api_->clearFaults();
    response.status = kNoContent;
  });
  add("DELETE", "/api/faults/{id}", [this](const Request& request, Response& response) {
    api_->removeFault(identifierOf<int>(request));
    response.status = kNoContent;
  });
}

void OperatorServer::routeSettings() {
  add("GET", "/api/settings",
      [this](const Request&, Response& response) { respond(response, kOk, api_->settings()); });
  add("PUT", "/api/settings", [this](const Request& request, Response& response) {
    respond(response, kOk, api_->setSettings(bodyOf(request)));
  });
  add("DELETE", "/api/settings", [this](const Request&, Response& response) {
    respond(response, kOk, api_->resetSettings());
  });
  add("POST", "/api/settings/lint", [this](const Request& request, Response& response) {
    respond(response, kOk, api_->lint(bodyOf(request)));
  });
}

void OperatorServer::add(const char* method, const char* path, const Handler& handler) {
  routes_.push_back({method, path});
  std::string pattern = path;
  if (pattern.ends_with(kIdentifier)) {
    pattern.replace(pattern.size() - kIdentifier.size(), kIdentifier.size(), kIdentifierPattern);
  }
  const auto guarded = [handler](const Request& request, Response& response) {
    attempt([&] { handler(request, response); }, response);
  };
  const std::string_view name = method;
  if (name == "GET") requests_->Get(pattern, guarded);
  if (name == "POST") requests_->Post(pattern, guarded);
  if (name == "PUT") requests_->Put(pattern, guarded);
  if (name == "DELETE") requests_->Delete(pattern, guarded);
}

void OperatorServer::respondWithExport(const Request& request, Response& response) {
  const ExportFormat format = formatOf(request);
  const bool isCsv = format == ExportFormat::kCsv;
  parts_.store.flush();
  response.set_header("Content-Disposition", std::string("attachment; filename=\"reports.") +
                                                 (isCsv ? "csv" : "jsonl") + "\"");
  const auto writeAll = [format, database = database_](std::size_t, httplib::DataSink& sink) {
    try {
      exportReports(database, format,
                    [&](std::string_view piece) { return sink.write(piece.data(), piece.size()); });
      sink.done();
      return true;
    } catch (const std::exception&) {
      return false;  // The answer breaks off, so that nobody takes it for whole.
    }
  };
  response.set_chunked_content_provider(isCsv ? "text/csv; charset=utf-8" : "application/x-ndjson",
                                        writeAll);
}

void OperatorServer::completeError(const Request& request, Response& response) const {
  if (!response.body.empty()) return;
  const bool isMisused = response.status == kNotFound && isKnownPath(request.path);
  const int status = isMisused ? kMethodNotAllowed : response.status;
  respondWithError(response, status, textOfStatus(status));
}

bool OperatorServer::isKnownPath(const std::string& path) const {
  return std::ranges::any_of(routes_, [&](const Route& route) { return isPath(path, route.path); });
}

}  // namespace zln::collector
