#include "tests/collector/running_collector.h"

#include <thread>
#include <utility>

#include "collector/embedded_schemas.h"

namespace zln::collector {
namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr char kDatabase[] = "/reports.db";
constexpr KeepLimits kKept{.reports = 20000};
constexpr auto kPatience = std::chrono::seconds(60);
constexpr auto kGlance = std::chrono::milliseconds(5);

}  // namespace

RunningCollector::RunningCollector(const CollectorWish& wish)
    : certificates_(certificateFiles(folder_.path())),
      store_(database(), kKept, embeddedSchemas()),
      faults_(wish.separatePorts),
      settings_(SettingsFile()),
      parts_{store_, faults_, settings_, events_},
      lines_(nowhere_.get()),
      desk_(parts_, lines_, wish.rejectInvalid),
      games_({.address = kHost, .first = wish.firstPort, .separate = wish.separatePorts},
             certificates_, desk_, faults_),
      gamePorts_(games_.ports()) {
  auto port = std::make_unique<ListeningPort>(kHost, 0);
  pagePort_ = port->number();
  const CollectorFacts facts{gamePorts_, pagePort_, certificates_.authority, folder_.path(),
                             wish.rejectInvalid};
  operators_ =
      std::make_unique<OperatorServer>(std::move(port), kHost, parts_, desk_, facts, database());
  games_.start(pagePort_);
  operators_->start();
}

RunningCollector::~RunningCollector() { stop(); }

std::chrono::duration<double> RunningCollector::stop() {
  const auto begin = std::chrono::steady_clock::now();
  events_.end();
  operators_->stop();
  games_.stop();
  return std::chrono::steady_clock::now() - begin;
}

int RunningCollector::gamePort(const std::string& type) const { return gamePorts_.at(type); }

std::filesystem::path RunningCollector::database() const { return folder_.path() + kDatabase; }

std::unique_ptr<httplib::SSLClient> RunningCollector::game(const std::string& host,
                                                           const std::string& type) const {
  auto client = std::make_unique<httplib::SSLClient>(host, gamePort(type));
  client->set_ca_cert_path(certificates_.authority.c_str());
  client->enable_server_certificate_verification(true);
  client->set_read_timeout(kPatience);
  client->set_write_timeout(kPatience);
  return client;
}

std::unique_ptr<httplib::Client> RunningCollector::page() const {
  auto client = std::make_unique<httplib::Client>(kHost, pagePort_);
  client->set_read_timeout(kPatience);
  client->set_write_timeout(kPatience);
  return client;
}

std::string RunningCollector::answerTo(const std::string& path, const std::string& body) const {
  const auto result = game()->Post(path, body, "application/json");
  return result ? result->body : "no answer: " + httplib::to_string(result.error());
}

int RunningCollector::statusOf(const httplib::Headers& headers, const std::string& body) const {
  const auto result = game()->Post("/session", headers, body, "application/json");
  return result ? result->status : 0;
}

int RunningCollector::addFault(const nlohmann::json& fault) {
  return faults_.add(parseFault(fault)).id;
}

std::vector<ReportRow> RunningCollector::rows() { return store_.list({}).reports; }

Answer::Outcome RunningCollector::outcomeOnce(Answer::Outcome expected) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  Answer::Outcome outcome = Answer::Outcome::kAccepted;
  while (outcome != expected && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(kGlance);
    for (const ReportRow& row : rows()) outcome = row.answer.outcome;
  }
  return outcome;
}

std::string adAttempt(const nlohmann::json& changes) {
  nlohmann::json report = {{"userId", "06118A00-1C64-4C26-9BAA-B61A61D66420"},
                           {"type", "ReportTypeAdAttempt"},
                           {"platform", "iOS"},
                           {"network", "Sunrise"},
                           {"adType", "banner"},
                           {"fill", true}};
  report.update(changes);
  return report.dump();
}

}  // namespace zln::collector
