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
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_FALSE(operation->isFinished());
}

TEST_F(ZLNReportOperationBaseTest, IsMadeAlsoOfNothing) {
  const auto operation = ZLNReportOperationBase::initWithReport(nullptr, false, nullptr);

  EXPECT_EQ(nullptr, operation->report());
  EXPECT_EQ(nullptr, operation->delegate());
  EXPECT_FALSE(operation->validateResponse());
}

TEST_F(ZLNReportOperationBaseTest, KeepsTheReportAlive) {
  std::weak_ptr<ZLNReportBase> report;
  std::shared_ptr<ZLNReportOperationBase> operation;
  {
    const auto made = adReport();
    report = made;
    operation = ZLNReportOperationBase::initWithReport(made, true, delegate);
  }

  EXPECT_FALSE(report.expired());

  operation.reset();

  EXPECT_TRUE(report.expired());
}

TEST_F(ZLNReportOperationBaseTest, DoesNotKeepTheDelegateAlive) {
  const auto operation = ZLNReportOperationBase::initWithReport(adReport(), true, delegate);

  delegate.reset();

  EXPECT_EQ(nullptr, operation->delegate());
}

TEST_F(ZLNReportOperationBaseTest, ADelegateInUseStaysAlive) {
  const auto operation = ZLNReportOperationBase::initWithReport(adReport(), true, delegate);

  const auto used = operation->delegate();
  delegate.reset();

  EXPECT_EQ(used, operation->delegate());
}

TEST_F(ZLNReportOperationBaseTest, ItsFieldsCanBeSet) {
  const auto operation = ZLNReportOperationBase::initWithReport(nullptr, false, nullptr);
  const auto report = adReport();

  operation->setReport(report);
  operation->setDelegate(delegate);
  operation->setValidateResponse(true);

  EXPECT_EQ(report, operation->report());
  EXPECT_EQ(delegate, operation->delegate());
  EXPECT_TRUE(operation->validateResponse());
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

TEST_F(ZLNReportOperationBaseTest, ItsTextShowsThatTheReportIsAbsent) {
  const auto operation = ZLNReportOperationBase::initWithReport(nullptr, true, delegate);

  EXPECT_EQ("report operation with report (null), isExecuting 0", operation->description());
}

}  // namespace
}  // namespace zln
