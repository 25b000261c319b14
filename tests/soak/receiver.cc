#include "tests/soak/receiver.h"

#include <charconv>
#include <functional>
#include <string_view>

#include "tests/soak/soak_reports.h"

namespace zln {
namespace {

using End = ServerReply::End;

constexpr std::chrono::minutes kPatience{2};
// No server of this machine listens there.
constexpr char kDeadProxy[] = "http://127.0.0.1:1";

std::uint16_t portOf(const HttpsServer& server) {
  const std::string authority = server.authority();
  std::uint16_t port = 0;
  std::from_chars(authority.data() + authority.find(':') + 1, authority.data() + authority.size(),
                  port);
  return port;
}

// In pieces, as over a slow link.
ServerReply slowly(ServerReply reply) {
  const std::string whole = reply.pieces.front();
  const std::size_t half = whole.size() / 2;
  reply.pieces = {whole.substr(0, half), whole.substr(half)};
  reply.pause = std::chrono::milliseconds(10);
  return reply;
}

ServerReply takingReply(Dice& dice) {
  static const std::vector<ServerReply> replies = {
      replyWith(200, R"({"success":true})", {{"Content-Type", "application/json"}}),
      replyWith(500, R"({"success":true})"), replyWith(200, R"({"more":[1,"two"],"success":1})")};
  const ServerReply& reply = dice.oneOf(replies);
  return dice.chance(10) ? slowly(reply) : reply;
}

ServerReply refusingReply(Dice& dice) {
  static const std::vector<ServerReply> replies = {
      replyWith(200, R"({"success":false})"),
      replyWith(200, R"({"success":false,"errorIsPermanent":false,"error":"later"})"),
      replyWith(500, "<html><body>Internal error</body></html>"),
      replyWith(404, ""),
      replyWith(200, ""),
      replyWith(200, std::string("\x00\xff{\"success\":true", 16)),
      replyWith(200, "[]"),
      replyWith(200, R"([{"success":true}])"),
      replyWith(200, R"("success")"),
      replyWith(200, R"({"success":"yes"})"),
      replyWith(200, R"({"success":null,"errorIsPermanent":true})"),
      rawReply("SSH-2.0-something else\r\n", End::kClose)};
  return dice.oneOf(replies);
}

ServerReply rejectingReply(Dice& dice) {
  static const std::vector<ServerReply> replies = {
      replyWith(400, R"({"success":false,"errorIsPermanent":true,"error":"not wanted"})"),
      replyWith(410, R"({"success":0,"errorIsPermanent":1})"),
      replyWith(200, R"({"success":false,"errorIsPermanent":true})")};
  return dice.oneOf(replies);
}

// No whole reply.
ServerReply cutReply(Dice& dice) {
  static const std::vector<ServerReply> replies = {
      rawReply("", End::kCut), rawReply("", End::kReset), rawReply("", End::kClose),
      rawReply("HTTP/1.1 200 OK\r\nContent-Le", End::kCut),
      rawReply("HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n{\"success\":true}", End::kReset)};
  return dice.oneOf(replies);
}

}  // namespace

Receiver::Receiver(const LifePlan& plan) : plan_(plan), gateIsOpen_(!plan.weather.gated) {
  server_->setFault(plan.weather.fault);
  server_->answer([this](const ReceivedRequest& request) { return answer(request); });
  if (!plan.weather.dead) proxy_ = std::make_unique<ConnectProxy>(portOf(*server_));
}

Receiver::~Receiver() { close(); }

std::map<std::string, std::string> Receiver::environment() const {
  return {{"SSL_CERT_FILE", server_->caFile()},
          {"https_proxy", proxy_ == nullptr ? kDeadProxy : proxy_->url()}};
}

void Receiver::openGate() {
  std::lock_guard lock(mutex_);
  gateIsOpen_ = true;
  changed_.notify_all();
}

void Receiver::close() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
    changed_.notify_all();
  }
  proxy_.reset();
  server_.reset();
}

ServerReply Receiver::answer(const ReceivedRequest& request) {
  return request.target == "/config" ? answerSettings() : answerReport(request);
}

ServerReply Receiver::answerSettings() {
  if (!plan_.handsOutSettings) return replyWith(503, "[]");
  std::lock_guard lock(mutex_);
  handedOutSettings_ = true;
  return replyWith(200, plan_.settings.dump());
}

ServerReply Receiver::answerReport(const ReceivedRequest& request) {
  Arrival arrival;
  arrival.body = nlohmann::json::parse(request.body, nullptr, false);
  arrival.identity = identityOf(arrival.body);
  Dice dice = diceFor(arrival.identity);
  if (!waitAWhile(dice)) return rawReply("", End::kCut);
  ServerReply reply = draw(dice, arrival);
  std::lock_guard lock(mutex_);
  arrivals_.push_back(std::move(arrival));
  return reply;
}

Dice Receiver::diceFor(const std::string& identity) {
  std::lock_guard lock(mutex_);
  const auto attempt = static_cast<std::uint64_t>(attempts_[identity]++);
  return {plan_.seed + attempt, std::hash<std::string>()(identity)};
}

bool Receiver::waitAWhile(Dice& dice) {
  const auto longest = static_cast<int>(plan_.weather.longestDelay.count());
  const std::chrono::milliseconds delay(dice.from(0, longest));
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, delay, [this] { return closing_; });
  changed_.wait_for(lock, kPatience, [this] { return closing_ || gateIsOpen_; });
  return !closing_;
}

ServerReply Receiver::draw(Dice& dice, Arrival& arrival) const {
  const Weather& weather = plan_.weather;
  int what = dice.from(1, 100);
  if ((what -= weather.taken) <= 0) {
    arrival.verdict = Verdict::kTaken;
    return takingReply(dice);
  }
  if ((what -= weather.takenAndCut) <= 0) {
    arrival.verdict = Verdict::kTaken;
    arrival.replied = false;
    return cutReply(dice);
  }
  if ((what -= weather.refused) <= 0) return refusingReply(dice);
  if ((what -= weather.rejected) <= 0) {
    arrival.verdict = Verdict::kRejected;
    return rejectingReply(dice);
  }
  arrival.replied = false;
  if ((what -= weather.cut) <= 0) return cutReply(dice);
  if (dice.chance(50)) arrival.verdict = Verdict::kTaken;
  return rawReply("", End::kStall);
}

}  // namespace zln
