#include "transport/ZLNReportOperationPost.h"

#include <utility>

#include "platform/json.h"
#include "platform/utf8.h"
#include "support/log.h"
#include "support/process_state.h"
#include "transport/ZLNErrors.h"

namespace zln {
namespace {

constexpr char kServerRejectedReport[] = "server rejected report";

Error serverReplyError(std::string text) {
  return Error{kZelnorErrorDomain, kServerReplyErrorCode, std::move(text), {}};
}

std::optional<std::string> serialize(const ZLNReportBase& report, Error* error) {
  const std::optional<Dictionary> dictionary = report.toDictionary();
  if (dictionary) return json::serialize(*dictionary, error);
  fillError(error, Error{kCocoaErrorDomain,
                         json::kErrorCode,
                         std::nullopt,
                         {{"NSDebugDescription", "Invalid top-level type in JSON write"}}});
  return std::nullopt;
}

bool isTrueNumber(const Number* number) { return number != nullptr && number->boolValue(); }

}  // namespace

std::shared_ptr<ZLNReportOperationPost> ZLNReportOperationPost::initWithReport(
    std::shared_ptr<ZLNReportBase> report, bool validateResponse,
    const std::shared_ptr<ZLNReportOperationDelegate>& delegate) {
  return std::shared_ptr<ZLNReportOperationPost>(
      new ZLNReportOperationPost(std::move(report), validateResponse, delegate));
}

void ZLNReportOperationPost::main() {
  const auto sent = report();
  if (!sent) {
    logError("report operation with no report");
    finishFailedPermanently(
        Error{kZelnorErrorDomain, kNoReportErrorCode, "No report to report", {}});
    return;
  }
  logVerbose("posting report %@ to %@", sent, sent->urlString());
  Error error;
  std::optional<std::string> body = serialize(*sent, &error);
  if (!body) {
    logError("unable to prepare report for transmission with %@", error);
    finishFailedPermanently(error);
    return;
  }
  logInfo("sending report: %@", *body);
  upload(sent->urlString(), std::move(*body));
}

void ZLNReportOperationPost::upload(const std::string& url, std::string body) {
  HttpRequest request;
  request.method = "POST";
  request.url = url;
  request.headers.emplace_back("Content-Length", std::to_string(body.size()));
  request.headers.emplace_back("Content-Type", "application/json");
  request.body = std::move(body);
  auto self = std::static_pointer_cast<ZLNReportOperationPost>(shared_from_this());
  environment().http.upload(std::move(request),
                            [self, url](const HttpReply& reply) { self->receive(reply, url); });
}

void ZLNReportOperationPost::receive(const HttpReply& reply, const std::string& url) {
  if (reply.error) {
    receiveTransportError(*reply.error);
    return;
  }
  if (!validateResponse()) {
    finishDelivered(reply);
    return;
  }
  Error error;
  const std::optional<Value> parsed = json::parse(reply.body, &error);
  if (!parsed) {
    logError("unexpected server response from %@: %@ / error %@", url, Data{reply.body}, error);
    finishFailedTemporarily(serverReplyError("could not parse json response"));
    return;
  }
  // An array is a reply without "success".
  const Dictionary* members = parsed->dictionary();
  const Value* success = members == nullptr ? nullptr : members->find("success");
  const Number* successCode = success == nullptr ? nullptr : success->number();
  if (successCode == nullptr) {
    logError("unexpected server response %@, expecting success code not %@", *parsed, success);
    finishFailedTemporarily(serverReplyError("response success code not found"));
    return;
  }
  if (successCode->boolValue()) {
    finishDelivered(reply);
    return;
  }
  receiveRejection(*members);
}

void ZLNReportOperationPost::receiveTransportError(const Error& error) {
  logError("failed to submit report with %@", error);
  if (ZLNErrors::isNetworkErrorPermanent(error)) {
    finishFailedPermanently(error);
  } else {
    finishFailedTemporarily(error);
  }
}

void ZLNReportOperationPost::receiveRejection(const Dictionary& reply) {
  logError("server rejected report %@", report());
  if (!isTrueNumber(reply.findNumber("errorIsPermanent"))) {
    // Kept: the server's own text is used for permanent rejections only.
    finishFailedTemporarily(serverReplyError(kServerRejectedReport));
    return;
  }
  const std::string* text = reply.findString("error");
  finishFailedPermanently(serverReplyError(text == nullptr ? kServerRejectedReport : *text));
}

void ZLNReportOperationPost::finishDelivered(const HttpReply& reply) {
  const std::string* text = isValidUtf8(reply.body) ? &reply.body : nullptr;
  logDebug("report submitted; response %@ = %@", reply.response, text);
  if (const auto target = delegate()) target->reportTransmittedSuccessfully(report());
  completeOperation();
}

void ZLNReportOperationPost::finishFailedTemporarily(const Error& error) {
  if (const auto target = delegate()) target->reportFailedWithTemporaryError(report(), error);
  completeOperation();
}

void ZLNReportOperationPost::finishFailedPermanently(const Error& error) {
  if (const auto target = delegate()) target->reportFailedWithPermanentError(report(), error);
  completeOperation();
}

}  // namespace zln
