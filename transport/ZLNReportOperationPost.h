#pragma once

#include <memory>
#include <string>

#include "platform/http.h"
#include "platform/value.h"
#include "transport/ZLNReportOperationBase.h"

namespace zln {

// Posts its report as JSON to the report's endpoint, sorts the reply into delivered, failed for now
// and failed for good, and tells its delegate. Of the reply only the body counts, never the status.
class ZLNReportOperationPost : public ZLNReportOperationBase {
 public:
  static std::shared_ptr<ZLNReportOperationPost> initWithReport(
      std::shared_ptr<ZLNReportBase> report, bool validateResponse,
      const std::shared_ptr<ZLNReportOperationDelegate>& delegate);

  // Starts the request and returns; the operation ends with the reply.
  void main() override;

 protected:
  using ZLNReportOperationBase::ZLNReportOperationBase;

 private:
  void upload(const std::string& url, std::string body);
  void receive(const HttpReply& reply, const std::string& url);
  void receiveTransportError(const Error& error);
  void receiveRejection(const Dictionary& reply);

  // Each tells the delegate, if it is still there, and completes the operation.
  void finishDelivered(const HttpReply& reply);
  void finishFailedTemporarily(const Error& error);
  void finishFailedPermanently(const Error& error);
};

}  // namespace zln
