#include "collector/report_kinds.h"

#include <gtest/gtest.h>

namespace zln::collector {
namespace {

TEST(ReportKindsTest, AreToldByTheType) {
  EXPECT_EQ(ReportKind::kSessionFirst, kindOfType("ReportTypeSessionFirst"));
  EXPECT_EQ(ReportKind::kSessionStart, kindOfType("ReportTypeSessionStart"));
  EXPECT_EQ(ReportKind::kSessionStop, kindOfType("ReportTypeSessionStop"));
  EXPECT_EQ(ReportKind::kAdAttempt, kindOfType("ReportTypeAdAttempt"));
  EXPECT_EQ(ReportKind::kAdZoneAttempt, kindOfType("ReportTypeAdZoneAttempt"));
  EXPECT_EQ(ReportKind::kUnknown, kindOfType("ReportTypeAd"));
  EXPECT_EQ(ReportKind::kUnknown, kindOfType(""));
}

TEST(ReportKindsTest, HaveNames) {
  EXPECT_EQ("session-first", nameOf(ReportKind::kSessionFirst));
  EXPECT_EQ("session-start", nameOf(ReportKind::kSessionStart));
  EXPECT_EQ("session-stop", nameOf(ReportKind::kSessionStop));
  EXPECT_EQ("ad-attempt", nameOf(ReportKind::kAdAttempt));
  EXPECT_EQ("ad-zone-attempt", nameOf(ReportKind::kAdZoneAttempt));
  EXPECT_EQ("unknown", nameOf(ReportKind::kUnknown));
}

TEST(ReportKindsTest, AreFoundByTheirNames) {
  for (const ReportKind kind : kReportKinds) EXPECT_EQ(kind, kindNamed(nameOf(kind)));
  EXPECT_EQ(ReportKind::kUnknown, kindNamed("unknown"));
  EXPECT_EQ(std::nullopt, kindNamed("ReportTypeAdAttempt"));
}

TEST(ReportKindsTest, AreOfSessionsOrOfAds) {
  EXPECT_TRUE(isSession(ReportKind::kSessionStop));
  EXPECT_FALSE(isSession(ReportKind::kAdAttempt));
  EXPECT_TRUE(isAd(ReportKind::kAdZoneAttempt));
  EXPECT_FALSE(isAd(ReportKind::kSessionFirst));
  EXPECT_FALSE(isSession(ReportKind::kUnknown) || isAd(ReportKind::kUnknown));
}

}  // namespace
}  // namespace zln::collector
