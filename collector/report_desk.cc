#include "collector/report_desk.h"

#include <ctime>
#include <exception>
#include <utility>

#include "collector/fault_effects.h"
#include "collector/http_status.h"
#include "collector/json.h"
#include "collector/json_object.h"
#include "collector/report_line.h"
#include "collector/report_store.h"

namespace zln::collector {
namespace {

using nlohmann::json;
using Outcome = Answer::Outcome;

std::string_view typeOf(const json& report) {
  const auto type = report.find("type");
  if (type == report.end() || !type->is_string()) return nameOf(ReportKind::kUnknown);
  return nameOf(kindOfType(type->get_ref<const std::string&>()));
}

std::string firstError(const ReportRow& row) {
  for (const Finding& finding : row.findings) {
    if (finding.severity == Severity::kError) return finding.text;
  }
  return "the report is invalid";
}

json success(bool value) { return {{"success", value}}; }

json refusal(const std::string& error) {
  return {{"success", false}, {"errorIsPermanent", true}, {"error", error}};
}

// `ordinary` is the body of an answer that nothing is wrong with.
std::string bodyUnder(const Fault& fault, const json& ordinary) {
  switch (fault.effect) {
    case Effect::kTemporary:
      return success(false).dump();
    case Effect::kPermanent:
      return refusal(fault.error).dump();
    case Effect::kEmpty:
      return "";
    case Effect::kGarbage:
      return "<html>no JSON at all";
    case Effect::kArray:
      return json::array({ordinary}).dump();
    default:
      return ordinary.dump();
  }
}

Reply replyUnder(std::optional<Fault> fault, const json& ordinary) {
  if (!fault) return {.body = ordinary.dump()};
  std::string body = bodyUnder(*fault, ordinary);
  const int status = fault->status;
  return {.body = std::move(body), .status = status, .fault = std::move(fault)};
}

std::string timeOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[16];
  return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", &local));
}

}  // namespace

Reply ReportDesk::takeReport(const std::string& body) {
  const json report = parseObject(body).value_or(json());
  std::optional<Fault> fault = takeFault(typeOf(report), report);
  if (fault && fault->effect == Effect::kCutDuring) {
    print("cut off in its request: " + describeReport(report, body.size()));
    return {.fault = std::move(fault)};
  }
  try {
    Reply reply = store(body, std::move(fault));
    parts_.store.flush();
    return reply;
  } catch (const std::exception& failure) {
    print(std::string("cannot store a report, which is put off: ") + failure.what());
    return {.body = success(false).dump(), .status = kUnavailable};
  }
}

Reply ReportDesk::takeConfigRequest(const std::string& body) {
  const json request = parseObject(body).value_or(json::object());
  std::optional<Fault> fault = takeFault(kConfigType, request);
  const json settings = parts_.settings.current();
  print(settingsLine(request, settings) + (fault ? faultRemark(*fault) : ""));
  return replyUnder(std::move(fault), settings);
}

void ReportDesk::clear() {
  const std::lock_guard lock(order_);
  parts_.store.clear();
  parts_.events.publish("cleared", [] { return json::object(); });
}

void ReportDesk::noteLostAnswer(const Reply& reply) {
  const bool wasGood = !reply.fault || answerUnder(*reply.fault).outcome == Outcome::kAccepted;
  if (!reply.report || !wasGood) return;
  try {
    const auto fault = reply.fault ? std::optional(reply.fault->id) : std::nullopt;
    const std::lock_guard lock(order_);
    parts_.store.setAnswer(*reply.report, {Outcome::kCut, reply.status, fault});
    if (const auto row = parts_.store.find(*reply.report)) {
      parts_.events.publish("amended", [&] { return toJson(*row); });
    }
  } catch (const std::exception& failure) {
    print(std::string("cannot note that an answer was lost: ") + failure.what());
  }
}

std::optional<Fault> ReportDesk::takeConnectionFault(std::optional<std::string_view> type) {
  std::optional<Fault> fault = parts_.faults.takeForConnection(type);
  if (!fault) return fault;
  print("a connection" + faultRemark(*fault));
  parts_.events.publish("faults", [this] { return parts_.faults.list(); });
  return fault;
}

void ReportDesk::print(const std::string& line) { lines_.print(timeOfDay() + "  " + line); }

std::optional<Fault> ReportDesk::takeFault(std::string_view type, const json& body) {
  std::optional<Fault> fault = parts_.faults.takeForRequest(type, body);
  if (fault) parts_.events.publish("faults", [this] { return parts_.faults.list(); });
  return fault;
}

Reply ReportDesk::store(const std::string& body, std::optional<Fault> fault) {
  const auto answerTo = [&](const ReportRow& row, const json&) -> Answer {
    if (fault) return answerUnder(*fault);
    Answer answer;
    if (rejectInvalid_ && row.verdict == Verdict::kInvalid) answer.outcome = Outcome::kDropped;
    return answer;
  };
  const std::lock_guard lock(order_);
  const Added added = parts_.store.add(body, answerTo);
  Reply reply = replyTo(added, std::move(fault));
  print(reportLine(added.report, added.row, reply.fault));
  publish(added);
  return reply;
}

Reply ReportDesk::replyTo(const Added& added, std::optional<Fault> fault) const {
  const bool refused = !fault && added.row.answer.outcome == Outcome::kDropped;
  Reply reply =
      replyUnder(std::move(fault), refused ? refusal(firstError(added.row)) : success(true));
  reply.report = added.row.id;
  return reply;
}

void ReportDesk::publish(const Added& added) {
  parts_.events.publish(
      "report", [&] { return toJson(added.row); }, added.row.id);
  for (const ReportRow& row : added.amended) {
    parts_.events.publish("amended", [&] { return toJson(row); });
  }
}

}  // namespace zln::collector
