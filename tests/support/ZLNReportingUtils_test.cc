#include "support/ZLNReportingUtils.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/support/host_fixture.h"

namespace zln {
namespace {

class ZLNReportingUtilsTest : public HostTest {};

TEST_F(ZLNReportingUtilsTest, TheDeviceNameIsTheMachineAskedForEachTime) {
  for (const char* machine : {"iPhone99,1", "iPhone99,2", ""}) {
    env.device.machineName = machine;

    EXPECT_EQ(machine, ZLNReportingUtils::getDeviceName());
  }
}

TEST_F(ZLNReportingUtilsTest, AMachineThatIsNotUtf8IsNoDeviceName) {
  env.device.machineName = "iPhone\xFF";

  EXPECT_EQ(std::nullopt, ZLNReportingUtils::getDeviceName());
}

TEST_F(ZLNReportingUtilsTest, TheEngineVersionIsTheLastOneSetOfTheProcess) {
  EXPECT_EQ("0.0.0", ZLNReportingUtils::getMarlwickVersion());

  for (const std::optional<std::string>& version :
       {std::optional<std::string>("1.0"), std::optional<std::string>("2.0"),
        std::optional<std::string>()}) {
    ZLNReportingUtils::setMarlwickVersion(version);

    EXPECT_EQ(version, ZLNReportingUtils::getMarlwickVersion());
  }

  restart();

  EXPECT_EQ("0.0.0", ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNReportingUtilsTest, TheReportingVersionIsThatOfTheLibraryNotOfTheApplication) {
  env.device.bundleShortVersion = "1.2.3";
  env.device.libraryVersion = "7.0.0";

  EXPECT_EQ("7.0.0", ZLNReportingUtils::getReportingVersion());

  env.device.libraryVersion = std::nullopt;

  EXPECT_EQ(std::nullopt, ZLNReportingUtils::getReportingVersion());
}

TEST_F(ZLNReportingUtilsTest, OnceEnabledTheLibraryStaysOnInItsProcess) {
  EXPECT_FALSE(ZLNReportingUtils::isEnabled());

  for (int times = 0; times < 2; ++times) {
    ZLNReportingUtils::enable();

    EXPECT_TRUE(ZLNReportingUtils::isEnabled());
  }

  restart();

  EXPECT_FALSE(ZLNReportingUtils::isEnabled());
}

}  // namespace
}  // namespace zln
