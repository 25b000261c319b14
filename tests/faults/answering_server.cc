#include "tests/faults/answering_server.h"

#include <algorithm>

namespace zln::faults {
namespace {

using Json = nlohmann::json;

constexpr int kTemporaryFailures = 3;

// Settings are stale at once, so that each activation fetches and saves them.
constexpr char kSettings[] = R"({"ConfigSerializationKeyConfigUpdateInterval":-1,)"
                             R"("ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds":45})";

ServerReply silence() { return ServerReply{.pieces = {}, .end = ServerReply::End::kStall}; }

}  // namespace

std::string identityOf(const std::string& type, const std::string& event,
                       const std::string& session) {
  return type + " " + (event.empty() ? session : event);
}

AnsweringServer::AnsweringServer() {
  https_.answer([this](const ReceivedRequest& request) { return answer(request); });
}

void AnsweringServer::forget() {
  std::lock_guard lock(mutex_);
  reports_.clear();
  failures_.clear();
  settled_.clear();
  settingsRequests_ = 0;
  isSilent_ = false;
}

std::vector<ReceivedReport> AnsweringServer::reports() const {
  std::lock_guard lock(mutex_);
  return reports_;
}

int AnsweringServer::countOf(const std::string& network) const {
  std::lock_guard lock(mutex_);
  return static_cast<int>(std::count_if(
      reports_.begin(), reports_.end(),
      [&](const ReceivedReport& report) { return report.body.value("network", "") == network; }));
}

bool AnsweringServer::isSettled(const std::string& network) const {
  std::lock_guard lock(mutex_);
  return settled_.contains(network);
}

std::uint16_t AnsweringServer::port() const {
  const std::string authority = https_.authority();
  return static_cast<std::uint16_t>(std::stoi(authority.substr(authority.find(':') + 1)));
}

ServerReply AnsweringServer::answer(const ReceivedRequest& request) {
  if (isSilent_) return silence();
  if (request.target == "/session") return answerReport(Json::parse(request.body));
  ++settingsRequests_;
  return replyWith(200, kSettings);
}

ServerReply AnsweringServer::answerReport(const Json& body) {
  const std::string network = body.value("network", "");
  std::lock_guard lock(mutex_);
  reports_.push_back({life_, body});
  if (network.starts_with("thrice") && ++failures_[network] <= kTemporaryFailures) {
    return replyWith(200, R"({"success":false})");
  }
  settled_.insert(network);
  return replyWith(200, network == "refused"
                            ? R"({"success":false,"errorIsPermanent":true,"error":"no"})"
                            : R"({"success":true})");
}

}  // namespace zln::faults
