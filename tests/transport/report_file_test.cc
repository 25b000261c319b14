#include "transport/report_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/dice.h"
#include "tests/transport/reporting_test.h"

namespace zln {
namespace {

using Report = std::shared_ptr<ZLNReportBase>;

class ReportFileTest : public ReportingTest {
 protected:
  // Lists the reports as the manager does: asks for each what is kept, until one is not.
  bool write(const std::vector<Report>& reports, const ReportFile::Reports& left = {}) {
    file.begin();
    bool isKept = true;
    for (const Report& report : reports) {
      isKept = isKept && file.keep(report.get(), left);
      const bool isLeft = std::find(left.begin(), left.end(), report) != left.end();
      if (!isKept && !isLeft) file.add(report, report);
    }
    return file.write();
  }

  void expectStored(const std::vector<Report>& reports) {
    Array list;
    for (const Report& report : reports) list.push_back(*report->toDictionary());
    EXPECT_EQ(property_list::write(list), env.files.contents(kReportsFile));
  }

  std::size_t writeCount() const { return env.files.writeCount(kReportsFile); }

  ReportFile file{kReportsFile, "/support/com.zelnor.sdk/spare"};
  const Report a = adReport("a");
  const Report b = adReport("b");
  const Report c = adReport("c");
};

TEST_F(ReportFileTest, AListFollowsAnother) {
  const std::vector<std::vector<Report>> lists = {
      {}, {a}, {a, b, c}, {b, c}, {c}, {c, a}, {a, c}, {a, b}, {a, a}, {}, {b, a, c}, {b, c}};
  for (const auto& list : lists) {
    EXPECT_TRUE(write(list));
    EXPECT_EQ(list.size(), file.count());
    expectStored(list);
  }
}

TEST_F(ReportFileTest, AListThatIsTheSameIsNotWritten) {
  for (const auto& list : std::vector<std::vector<Report>>{{}, {a, b}}) {
    write(list);
    const std::size_t before = writeCount();

    EXPECT_TRUE(write(list));

    EXPECT_EQ(before, writeCount());
  }
}

TEST_F(ReportFileTest, WhatIsLeftIsNotListed) {
  write({a, b, c});

  EXPECT_TRUE(write({a, b, c}, {b}));
  expectStored({a, c});
  EXPECT_TRUE(write({a, b, c}));
  expectStored({a, b, c});
}

TEST_F(ReportFileTest, AChangedReportIsMadeAgain) {
  write({a, b, c});

  b->setCountry("AT");

  EXPECT_TRUE(write({a, b, c}));
  expectStored({a, b, c});
}

TEST_F(ReportFileTest, AReportThatTheFileCannotHoldKeepsTheListFromBeingWritten) {
  const auto odd = std::make_shared<OddReport>(Dictionary{{"odd", Null{}}});
  write({a});

  EXPECT_FALSE(write({a, odd, b}));
  EXPECT_EQ(3u, file.count());
  expectStored({a});

  EXPECT_TRUE(write({a, b}));
  expectStored({a, b});
}

TEST_F(ReportFileTest, AfterAFailedWriteTheNextOneIsWhole) {
  for (const auto& between : std::vector<std::vector<Report>>{{}, {a}, {b}, {a, b, c}, {c, b, a}}) {
    write({a, b});
    env.files.failWrites();
    EXPECT_FALSE(write(between));
    EXPECT_FALSE(write({b, c}));
    env.files.failWrites(false);

    EXPECT_TRUE(write({a, b, c}));

    expectStored({a, b, c});
  }
}

TEST_F(ReportFileTest, AFileThatIsGoneIsWrittenAgain) {
  write({a});
  env.files.remove(kReportsFile, nullptr);

  EXPECT_TRUE(write({a}));

  expectStored({a});
}

TEST_F(ReportFileTest, WhatAnEarlierProcessLeftFollowsUntilItIsForgotten) {
  env.files.put(kReportsFile, *property_list::write(Array{*c->toDictionary()}));

  EXPECT_TRUE(write({}));
  expectStored({c});
  EXPECT_TRUE(write({a, b}));
  expectStored({a, b, c});
  EXPECT_EQ(Array{*c->toDictionary()}, ReportFile::listIn(file.stored()));
  EXPECT_TRUE(write({b}));
  expectStored({b, c});

  file.forgetStored();

  EXPECT_TRUE(write({b}));
  expectStored({b});
}

// Long lists that grow, shrink, change and cannot always be written.
TEST_F(ReportFileTest, EveryListIsWhatItWouldBeIfWrittenWhole) {
  Dice dice(1);
  std::vector<Report> reports;
  for (int round = 0; round < 3000; ++round) {
    const int change = dice.from(0, 9);
    if (change < 5) {
      reports.push_back(adReport(std::string(dice.below(200), 'n')));
    } else if (change < 8 && !reports.empty()) {
      reports.erase(reports.begin() + static_cast<std::ptrdiff_t>(dice.below(reports.size())));
    } else if (change == 8 && !reports.empty()) {
      dice.oneOf(reports)->setCountry(std::string(dice.below(9), 'C'));
    } else if (dice.percent(10)) {
      reports.clear();
    }
    env.files.failWrites(dice.percent(20));

    if (write(reports)) expectStored(reports);
  }
}

}  // namespace
}  // namespace zln
