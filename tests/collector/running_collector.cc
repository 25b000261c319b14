#include "tests/collector/running_collector.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <utility>

#include "collector/embedded_schemas.h"
#include "collector/event_stream.h"
#include "collector/fault_list.h"
#include "collector/game_server.h"
#include "collector/json.h"
#include "collector/line_printer.h"
#include "collector/operator_api.h"
#include "collector/operator_server.h"
#include "collector/owned_socket.h"
#include "collector/report_store.h"
#include "collector/settings_values.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr char kHost[] = "127.0.0.1";
constexpr char kDatabase[] = "/reports.db";
constexpr KeepLimits kKept{.reports = 20000};

}  // namespace

struct RunningCollector::Servers {
  explicit Servers(const CollectorWish& wish)
      : rejectInvalid(wish.rejectInvalid),
        faults(wish.separatePorts),
        games({.address = kHost,
               .first = wish.firstPort,
               .separate = wish.separatePorts,
               .times = wish.times},
              certificates, desk, faults) {
    const CollectorFacts facts{ports, pagePort, certificates.authority, folder.path(),
                               rejectInvalid};
    operators = std::make_unique<OperatorServer>(std::move(page), kHost, parts, desk, facts,
                                                 database, wish.times);
    games.start(pagePort);
    operators->start();
  }

  const bool rejectInvalid;
  const TemporaryFolder folder;
  const std::filesystem::path database = folder.path() + kDatabase;
  const CertificateFiles certificates = certificateFiles(folder.path());
  ReportStore store{database, kKept, embeddedSchemas()};
  FaultList faults;
  SettingsValues settings{SettingsFile()};
  EventStream events;
  CollectorParts parts{store, faults, settings, events};
  const OwnedSocket nowhere{::open("/dev/null", O_WRONLY | O_CLOEXEC)};
  LinePrinter lines{nowhere.get()};
  ReportDesk desk{parts, lines, rejectInvalid};
  GameServer games;
  const std::map<std::string, int> ports = games.ports();
  std::unique_ptr<ListeningPort> page = std::make_unique<ListeningPort>(kHost, 0);
  const int pagePort = page->number();
  std::unique_ptr<OperatorServer> operators;
};

RunningCollector::RunningCollector(const CollectorWish& wish)
    : servers_(std::make_unique<Servers>(wish)) {}

RunningCollector::~RunningCollector() { stop(); }

std::chrono::duration<double> RunningCollector::stop() {
  const auto begin = std::chrono::steady_clock::now();
  servers_->events.end();
  servers_->operators->stop();
  servers_->games.stop();
  return std::chrono::steady_clock::now() - begin;
}

int RunningCollector::gamePort(const std::string& type) const { return servers_->ports.at(type); }

int RunningCollector::pagePort() const { return servers_->pagePort; }

const CertificateFiles& RunningCollector::certificates() const { return servers_->certificates; }

std::filesystem::path RunningCollector::database() const { return servers_->database; }

std::unique_ptr<httplib::SSLClient> RunningCollector::game(const std::string& host,
                                                           const std::string& type) const {
  auto client = std::make_unique<httplib::SSLClient>(host, gamePort(type));
  client->set_ca_cert_path(certificates().authority.c_str());
  client->enable_server_certificate_verification(true);
  client->set_read_timeout(kPatience);
  client->set_write_timeout(kPatience);
  return client;
}

std::unique_ptr<httplib::Client> RunningCollector::page() const {
  auto client = std::make_unique<httplib::Client>(kHost, pagePort());
  client->set_read_timeout(kPatience);
  client->set_write_timeout(kPatience);
  return client;
}

HttpAnswer RunningCollector::askPage(const HttpRequest& request) const {
  httplib::Request sent;
  sent.method = request.method;
  sent.path = request.path;
  sent.headers.insert(request.headers.begin(), request.headers.end());
  if (!request.body.empty()) sent.set_header("Content-Type", request.type);
  sent.body = request.body;
  const auto result = page()->send(sent);
  if (!result) return {0, "no answer: " + httplib::to_string(result.error()), {}};
  return {result->status, result->body, {result->headers.begin(), result->headers.end()}};
}

std::string RunningCollector::answerTo(const std::string& path, const std::string& body) const {
  const auto result = game()->Post(path, body, "application/json");
  return result ? result->body : "no answer: " + httplib::to_string(result.error());
}

int RunningCollector::statusOf(const Headers& headers, const std::string& body) const {
  const auto result =
      game()->Post("/session", {headers.begin(), headers.end()}, body, "application/json");
  return result ? result->status : 0;
}

int RunningCollector::addFault(const std::string& fault) {
  return servers_->faults.add(parseFault(json::parse(fault))).id;
}

std::vector<ReportRow> RunningCollector::rows() {
  ReportQuery all;
  all.limit = 1000;
  return servers_->store.list(all).reports;
}

void RunningCollector::waitForHits(int fault, int hits) {
  waitUntil([&] {
    for (const json& each : servers_->faults.list()) {
      if (each["id"] == fault) return each["hits"] >= hits;
    }
    return false;
  });
}

void RunningCollector::waitForOutcome(Answer::Outcome outcome) {
  waitUntil([&] { return rows().back().answer.outcome == outcome; });
}

void RunningCollector::waitUntil(const std::function<bool()>& isSo) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (bool mayBecome = true; mayBecome;) {
    const auto seen = servers_->events.count();
    if (isSo()) return;
    mayBecome = servers_->events.waitForMoreThan(seen, deadline);
  }
  ADD_FAILURE() << "it never came to that";
}

void RunningCollector::leaveDuringAnswer() const {
  httplib::Request request;
  request.method = "POST";
  request.path = "/session";
  request.body = adAttempt();
  request.content_receiver = [](const char*, size_t, uint64_t, uint64_t) { return false; };
  EXPECT_FALSE(game()->send(request));
}

OperatorServer& RunningCollector::operators() { return *servers_->operators; }

CollectorParts& RunningCollector::parts() { return servers_->parts; }

ReportDesk& RunningCollector::desk() { return servers_->desk; }

std::string adAttempt(const std::string& changes) {
  json report = json::parse(R"({"userId": "06118A00-1C64-4C26-9BAA-B61A61D66420",
                                "type": "ReportTypeAdAttempt",
                                "platform": "iOS",
                                "network": "Sunrise",
                                "adType": "banner",
                                "fill": true})");
  report.update(json::parse(changes));
  return report.dump();
}

}  // namespace zln::collector
