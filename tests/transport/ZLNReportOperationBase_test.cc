#include "transport/ZLNReportOperationBase.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/transport/reporting_test.h"

namespace zln {
namespace {

class DeafDelegate : public ZLNReportOperationDelegate {
 public:
  void reportFailedWithTemporaryError(const std::shared_ptr<ZLNReportBase>&,
                                      const Error&) override {}
  void reportFailedWithPermanentError(const std::shared_ptr<ZLNReportBase>&,
                                      const Error&) override {}
  void reportTransmittedSuccessfully(const std::shared_ptr<ZLNReportBase>&) override {}
};

class ZLNReportOperationBaseTest : public ReportingTest {
 protected:
  std::shared_ptr<DeafDelegate> delegate = std::make_shared<DeafDelegate>();
};

TEST_F(ZLNReportOperationBaseTest, KeepsWhatItIsMadeWith) {
  const auto report = adReport();

  const auto operation = ZLNReportOperationBase::initWithReport(report, true, delegate);

  EXPECT_EQ(report, operation->report());
  EXPECT_EQ(delegate, operation->delegate());
  EXPECT_TRUE(operation->validateResponse());
}

TEST_F(ZLNReportOperationBaseTest, IsMadeAlsoOfNothingAndGetsItLater) {
  const auto operation = ZLNReportOperationBase::initWithReport(nullptr, false, nullptr);
  const auto report = adReport();

  EXPECT_EQ("report operation with report (null), isExecuting 0", operation->description());
  EXPECT_EQ(nullptr, operation->report());
  EXPECT_EQ(nullptr, operation->delegate());
  EXPECT_FALSE(operation->validateResponse());

  operation->setReport(report);
  operation->setDelegate(delegate);
  operation->setValidateResponse(true);

  EXPECT_EQ(report, operation->report());
  EXPECT_EQ(delegate, operation->delegate());
  EXPECT_TRUE(operation->validateResponse());
}

TEST_F(ZLNReportOperationBaseTest, KeepsTheReportAlive) {
  auto operation = ZLNReportOperationBase::initWithReport(adReport(), true, delegate);
  const std::weak_ptr<ZLNReportBase> report = operation->report();

  EXPECT_FALSE(report.expired());

  operation.reset();

  EXPECT_TRUE(report.expired());
}

TEST_F(ZLNReportOperationBaseTest, DoesNotKeepTheDelegateAliveUnlessItIsInUse) {
  const auto operation = ZLNReportOperationBase::initWithReport(adReport(), true, delegate);

  auto used = operation->delegate();
  delegate.reset();

  EXPECT_EQ(used, operation->delegate());

  used.reset();

  EXPECT_EQ(nullptr, operation->delegate());
}

TEST_F(ZLNReportOperationBaseTest, ItsTextNamesTheReportAndWhetherItIsExecuting) {
  const auto report = adReport();
  const auto operation = ZLNReportOperationBase::initWithReport(report, true, delegate);

  EXPECT_EQ("report operation with report " + report->description() + ", isExecuting 0",
            operation->description());

  operation->start();

  EXPECT_EQ("report operation with report " + report->description() + ", isExecuting 1",
            operation->description());
}

}  // namespace
}  // namespace zln
