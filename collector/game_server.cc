#include "collector/game_server.h"

#include <httplib.h>
#include <openssl/ssl.h>

#include <array>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "collector/fault_effects.h"
#include "collector/printable_text.h"
#include "collector/request_server.h"
#include "collector/tls_stream.h"

namespace zln::collector {
namespace {

constexpr std::size_t kMostConnections = 256;

// In the order of separate ports.
constexpr std::array<std::string_view, 6> kTypes = {
    "session-first", "session-start", "session-stop", "ad-attempt", "ad-zone-attempt", kConfigType};

// A connection with what is to be answered on it at the moment.
struct GameConnection : TlsStream {
  using TlsStream::TlsStream;

  std::optional<Reply> reply;
};

GameConnection& current() { return static_cast<GameConnection&>(ConnectionStream::current()); }

auto makeContext(const std::filesystem::path& certificate, const std::filesystem::path& key) {
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                            &SSL_CTX_free);
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
      SSL_CTX_use_certificate_file(context.get(), certificate.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM) != 1) {
    throw std::runtime_error("cannot use " + certificate.string() + " with " + key.string());
  }
  SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE);
  return context;
}

std::unique_ptr<ListeningPort> listenOn(const GamePorts& ports, int offset) {
  const int number = ports.first == 0 ? 0 : ports.first + offset;
  return std::make_unique<ListeningPort>(ports.address, number);
}

}  // namespace

GameServer::GameServer(const GamePorts& ports, const CertificateFiles& files, ReportDesk& desk,
                       FaultList& faults)
    : desk_(desk),
      faults_(faults),
      sound_(makeContext(files.certificate, files.key)),
      expired_(makeContext(files.expired, files.key)),
      wrongHost_(makeContext(files.wrongHost, files.key)),
      requests_(std::make_unique<RequestServer>()),
      times_(ports.times),
      threads_(kMostConnections) {
  if (ports.separate) {
    for (const std::string_view type : kTypes) {
      ports_.push_back({type, listenOn(ports, static_cast<int>(ports_.size()))});
    }
  } else {
    ports_.push_back({std::nullopt, listenOn(ports, 0)});
  }
  route();
}

GameServer::~GameServer() { stop(); }

std::map<std::string, int> GameServer::ports() const {
  std::map<std::string, int> numbers;
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    numbers[std::string(kTypes[i])] = ports_[ports_.size() == 1 ? 0 : i].listening->number();
  }
  return numbers;
}

void GameServer::start(int httpPort) {
  httpPort_ = httpPort;
  for (const Port& port : ports_) {
    port.listening->start([this, type = port.type](OwnedSocket connection) {
      threads_.serve(std::move(connection), [this, type](int socket) { serve(type, socket); });
    });
  }
}

void GameServer::stop() {
  faults_.endHolds();
  requests_->endBodies();
  ports_.clear();
  threads_.stop();
}

void GameServer::route() {
  requests_->Post("/session", [this](const httplib::Request& request, httplib::Response& response) {
    const Reply& reply = current().reply.emplace(desk_.takeReport(request.body));
    respond(reply, request, response, faults_, httpPort_);
  });
  requests_->Post("/config", [this](const httplib::Request& request, httplib::Response& response) {
    const Reply& reply = current().reply.emplace(desk_.takeConfigRequest(request.body));
    respond(reply, request, response, faults_, httpPort_);
  });
  requests_->set_error_handler(
      [this](const httplib::Request& request, httplib::Response& response) {
        if (current().reply) return;  // Such is the fault.
        current().endAfterAnswer();
        response.set_header("Connection", "close");
        desk_.print("refused a request: " + printable(request.method + " " + request.path) +
                    "  -> HTTP " + std::to_string(response.status));
      });
  requests_->set_logger([](const httplib::Request&, const httplib::Response&) {
    if (!current().isBroken()) current().reply.reset();
  });
}

void GameServer::serve(std::optional<std::string_view> type, int socket) {
  const std::optional<Fault> fault = desk_.takeConnectionFault(type);
  GameConnection connection(socket, contextUnder(fault), times_);
  if (fault && fault->effect == Effect::kCutBefore) return connection.reset();
  if (!connection.shakeHands()) return;
  requests_->serve(connection);
  if (connection.isBroken() && connection.reply) desk_.noteLostAnswer(*connection.reply);
  connection.close();
}

SSL_CTX& GameServer::contextUnder(const std::optional<Fault>& fault) const {
  if (fault && fault->effect == Effect::kExpiredCertificate) return *expired_;
  if (fault && fault->effect == Effect::kWrongHostCertificate) return *wrongHost_;
  return *sound_;
}

}  // namespace zln::collector
