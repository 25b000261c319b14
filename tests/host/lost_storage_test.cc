#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <latch>

#include "tests/host/stored_files.h"
#include "tests/support/private_disk.h"

namespace zln {
namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;

class LostStorageTest : public StoredFilesTest {
 protected:
  // A game with two reports under way that have been stored: the first session and an ad. Only the
  // ad whose network begins with "during" is answered before release().
  void launchWithReportsUnderWay() {
    server.answer([this](const ReceivedRequest& request) {
      if (request.body.find("\"during") == std::string::npos) released_.wait();
      return replyWith(200, R"({"success":true})");
    });
    putStaleSettings();
    launchAndStart();
    tell("level 2");
    tell("banner before 1");
  }
  void release() { released_.count_down(); }

  // One more ad and an activation, while nothing can be stored.
  void playWithoutStorage(const std::string& network = "during") {
    during_ = network;
    tell("banner " + during_ + " 1");
    tell("active");
    // The ad may have been delivered before the save takes its snapshot.
    EXPECT_THAT(game->errors(),
                ContainsRegex("ZLN Session: failed to save [23] pending reports!\n"));
    EXPECT_THAT(game->errors(), HasSubstr("ZLN Session: An error occured writing config\n"));
    EXPECT_EQ(1u, waitForReportsHaving("network", during_, 1).size());
  }

  // The storage is back: files hold what is in memory, and all of it arrives.
  void expectThatNothingIsLost() {
    const std::string settings = contentsOf(settingsFile());
    tell("banner after 1");
    tell("active");

    EXPECT_THAT(storedNetworks(), Contains("before"));
    EXPECT_THAT(storedNetworks(), Contains("after"));
    EXPECT_TRUE(valueIn(settingsFile()));
    EXPECT_NE(settings, contentsOf(settingsFile()));
    release();
    EXPECT_EQ(1u, waitForReportsHaving("network", "after", 1).size());
    EXPECT_EQ(1u, having(reports(), "network", "before").size());
    EXPECT_EQ(1u, having(reports(), "network", during_).size());
    EXPECT_EQ(1u, having(reports(), "type", "ReportTypeSessionFirst").size());
  }

 private:
  std::string during_;
  std::latch released_{1};
};

TEST_F(LostStorageTest, OnAFullDiskTheOldFilesStayWholeAndNothingIsLost) {
  const PrivateDisk disk(home.path() + "/data");
  if (!disk.isMounted()) GTEST_SKIP() << "no right to mount";
  std::filesystem::create_directories(folder() + "/data");
  launchWithReportsUnderWay();
  const std::string reportsBefore = contentsOf(reportsFile());
  const std::string settingsBefore = contentsOf(settingsFile());

  disk.fill();
  // More than the room that the files have already.
  playWithoutStorage("during" + std::string(8192, 'x'));

  EXPECT_THAT(storedNetworks(), Contains("before"));
  EXPECT_EQ(reportsBefore, contentsOf(reportsFile()));
  EXPECT_EQ(settingsBefore, contentsOf(settingsFile()));
  disk.makeRoom();
  expectThatNothingIsLost();
}

TEST_F(LostStorageTest, OnAReadOnlyDiskTheOldFilesStayWholeAndNothingIsLost) {
  const PrivateDisk disk(home.path() + "/data");
  if (!disk.isMounted()) GTEST_SKIP() << "no right to mount";
  std::filesystem::create_directories(folder() + "/data");
  launchWithReportsUnderWay();
  const std::string reportsBefore = contentsOf(reportsFile());
  const std::string settingsBefore = contentsOf(settingsFile());

  ASSERT_TRUE(disk.setReadOnly());
  playWithoutStorage();

  EXPECT_THAT(storedNetworks(), Contains("before"));
  EXPECT_EQ(reportsBefore, contentsOf(reportsFile()));
  EXPECT_EQ(settingsBefore, contentsOf(settingsFile()));
  ASSERT_TRUE(disk.setWritable());
  expectThatNothingIsLost();
}

TEST_F(LostStorageTest, WhenTheFoldersGoAndComeBackNothingIsLost) {
  launchWithReportsUnderWay();

  // All at once, whatever the game is doing.
  std::filesystem::rename(folder(), home.path() + "/gone");
  playWithoutStorage();

  EXPECT_FALSE(std::filesystem::exists(folder()));
  std::filesystem::create_directories(folder() + "/reporting");
  std::filesystem::create_directories(folder() + "/data");
  expectThatNothingIsLost();
}

}  // namespace
}  // namespace zln
