#include "collector/fault_effects.h"

#include <httplib.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "collector/connection_stream.h"
#include "collector/fault_list.h"
#include "collector/http_status.h"
#include "collector/report_desk.h"

namespace zln::collector {
namespace {

using Outcome = Answer::Outcome;

// A report would be delivered if somebody read all of it.
constexpr std::size_t kHugeSize = 32 * 1024 * 1024;
constexpr std::string_view kHugeBegin = R"({"success":true,"padding":")";
constexpr std::string_view kHugeEnd = "\"}";
const std::string kPadding(64 * 1024, 'a');

// Answers with these have no body.
bool isBodiless(int status) { return status == kNoContent || status == kNotModified; }

Outcome outcomeUnder(const Fault& fault) {
  switch (fault.effect) {
    case Effect::kTemporary:
      return Outcome::kRetry;
    case Effect::kPermanent:
      return Outcome::kDropped;
    case Effect::kStatus:
      return isBodiless(fault.status) ? Outcome::kOther : Outcome::kAccepted;
    case Effect::kDelay:
    case Effect::kStall:
      return Outcome::kAccepted;
    case Effect::kCutBefore:
    case Effect::kCutDuring:
    case Effect::kCutAfter:
      return Outcome::kCut;
    default:
      return Outcome::kOther;
  }
}

std::string_view hugePiece(std::size_t offset) {
  constexpr std::size_t kEndBegin = kHugeSize - kHugeEnd.size();
  if (offset < kHugeBegin.size()) return kHugeBegin.substr(offset);
  if (offset >= kEndBegin) return kHugeEnd.substr(offset - kEndBegin);
  return std::string_view(kPadding).substr(0, kEndBegin - offset);
}

void respondHugely(httplib::Response& response) {
  response.set_content_provider(kHugeSize, kJson,
                                [](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                  const std::string_view piece = hugePiece(offset);
                                  return sink.write(piece.data(), piece.size());
                                });
}

// False when the program ends or the client leaves meanwhile; the connection is over then.
bool hold(const Fault& fault, FaultList& faults) {
  ConnectionStream& connection = ConnectionStream::current();
  if (faults.hold(fault.id, fault.seconds) && !connection.isAbandoned()) return true;
  connection.hangUp();
  return false;
}

void respondHaltingly(const Reply& reply, httplib::Response& response, FaultList& faults) {
  const auto writeHalf = [body = reply.body, fault = *reply.fault, &faults](
                             std::size_t offset, std::size_t, httplib::DataSink& sink) {
    const std::size_t half = body.size() / 2;
    if (offset < half) return sink.write(body.data() + offset, half - offset);
    return hold(fault, faults) && sink.write(body.data() + offset, body.size() - offset);
  };
  response.set_content_provider(reply.body.size(), kJson, writeHalf);
}

bool holdBeforeAnswer(const Fault& fault, FaultList& faults) {
  return fault.effect == Effect::kStall || fault.seconds == 0 || hold(fault, faults);
}

void redirect(const Reply& reply, const httplib::Request& request, httplib::Response& response,
              int httpPort) {
  const std::string host = request.get_header_value("Host");
  const std::string name = host.substr(0, host.rfind(':'));
  response.status = kTemporaryRedirect;
  response.set_header("Location", reply.fault->toHttp ? "http://" + name + ":" +
                                                            std::to_string(httpPort) + request.path
                                                      : "https://" + host + request.path);
}

void respondPlainly(const Reply& reply, httplib::Response& response) {
  response.status = reply.status;
  if (!isBodiless(reply.status)) response.set_content(reply.body, kJson);
}

}  // namespace

Answer answerUnder(const Fault& fault) {
  const int status = fault.effect == Effect::kRedirect ? kTemporaryRedirect : fault.status;
  return {outcomeUnder(fault), status, fault.id};
}

void respond(const Reply& reply, const httplib::Request& request, httplib::Response& response,
             FaultList& faults, int httpPort) {
  if (!reply.fault) return respondPlainly(reply, response);
  response.status = reply.status;
  if (!holdBeforeAnswer(*reply.fault, faults)) return;
  switch (reply.fault->effect) {
    case Effect::kHuge:
      return respondHugely(response);
    case Effect::kStall:
      return respondHaltingly(reply, response, faults);
    case Effect::kRedirect:
      return redirect(reply, request, response, httpPort);
    case Effect::kCutDuring:
      return ConnectionStream::current().reset();
    case Effect::kCutAfter:
      return ConnectionStream::current().hangUp();
    default:
      return respondPlainly(reply, response);
  }
}

}  // namespace zln::collector
