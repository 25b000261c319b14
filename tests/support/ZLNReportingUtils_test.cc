#include "support/ZLNReportingUtils.h"

#include <gtest/gtest.h>

#include <optional>

#include "tests/support/host_fixture.h"

namespace zln {
namespace {

class ZLNReportingUtilsTest : public HostTest {};

TEST_F(ZLNReportingUtilsTest, TheDeviceNameIsTheMachine) {
  env.device.machineName = "iPhone99,1";

  EXPECT_EQ("iPhone99,1", ZLNReportingUtils::getDeviceName());
}

TEST_F(ZLNReportingUtilsTest, TheDeviceNameIsAskedAnewEachTime) {
  ZLNReportingUtils::getDeviceName();
  env.device.machineName = "iPhone99,2";

  EXPECT_EQ("iPhone99,2", ZLNReportingUtils::getDeviceName());
}

TEST_F(ZLNReportingUtilsTest, AMachineThatIsNotUtf8IsNoDeviceName) {
  env.device.machineName = "iPhone\xFF";

  EXPECT_EQ(std::nullopt, ZLNReportingUtils::getDeviceName());
}

TEST_F(ZLNReportingUtilsTest, AnEmptyMachineIsAnEmptyDeviceName) {
  env.device.machineName = "";

  EXPECT_EQ("", ZLNReportingUtils::getDeviceName());
}

TEST_F(ZLNReportingUtilsTest, TheEngineVersionIsZeroUntilItIsSet) {
  EXPECT_EQ("0.0.0", ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNReportingUtilsTest, TheEngineVersionIsTheLastOneSet) {
  ZLNReportingUtils::setMarlwickVersion("1.0");
  ZLNReportingUtils::setMarlwickVersion("2.0");

  EXPECT_EQ("2.0", ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNReportingUtilsTest, AnAbsentEngineVersionIsKeptAsAbsent) {
  ZLNReportingUtils::setMarlwickVersion("1.0");
  ZLNReportingUtils::setMarlwickVersion(std::nullopt);

  EXPECT_EQ(std::nullopt, ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNReportingUtilsTest, TheEngineVersionDoesNotOutliveTheProcess) {
  ZLNReportingUtils::setMarlwickVersion("1.0");

  restart();

  EXPECT_EQ("0.0.0", ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNReportingUtilsTest, TheReportingVersionIsThatOfTheLibraryNotOfTheApplication) {
  env.device.bundleShortVersion = "1.2.3";
  env.device.libraryVersion = "7.0.0";

  EXPECT_EQ("7.0.0", ZLNReportingUtils::getReportingVersion());
}

TEST_F(ZLNReportingUtilsTest, ALibraryThatNamesNoVersionHasNone) {
  env.device.libraryVersion = std::nullopt;

  EXPECT_EQ(std::nullopt, ZLNReportingUtils::getReportingVersion());
}

TEST_F(ZLNReportingUtilsTest, TheLibraryIsOffAtFirst) {
  EXPECT_FALSE(ZLNReportingUtils::isEnabled());
}

TEST_F(ZLNReportingUtilsTest, OnceEnabledTheLibraryStaysOn) {
  ZLNReportingUtils::enable();

  EXPECT_TRUE(ZLNReportingUtils::isEnabled());

  ZLNReportingUtils::enable();

  EXPECT_TRUE(ZLNReportingUtils::isEnabled());
}

TEST_F(ZLNReportingUtilsTest, EachProcessIsOffAtFirst) {
  ZLNReportingUtils::enable();

  restart();

  EXPECT_FALSE(ZLNReportingUtils::isEnabled());
}

}  // namespace
}  // namespace zln
