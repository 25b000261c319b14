#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>

#include "tests/host/stored_files.h"
#include "tests/support/private_disk.h"

namespace zln {
namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::SizeIs;

class LostStorageTest : public StoredFilesTest {
 protected:
  void TearDown() override {
    release();
    StoredFilesTest::TearDown();
  }

  // A game with two reports under way that have been stored: the first session and an ad. Only the
  // ad whose network begins with "during" is answered before release().
  void launchWithReportsUnderWay() {
    server.answer([this](const ReceivedRequest& request) {
      if (request.body.find("\"during") == std::string::npos) released_.wait(false);
      return successReply();
    });
    putStaleSettings();
    launchAndStart();
    tell("level 2");
    tell("banner before 1");
    ASSERT_THAT(waitForReports(2), SizeIs(2));
  }
  void release() {
    released_ = true;
    released_.notify_all();
  }

  // One more ad and an activation, while nothing can be stored.
  void playWithoutStorage(const std::string& network = "during") {
    during_ = network;
    tell("banner " + during_ + " 1");
    tell("active");
    // The ad may have been delivered before the save takes its snapshot.
    EXPECT_THAT(game->errors(),
                ContainsRegex("ZLN Session: failed to save [23] pending reports!\n"));
    EXPECT_THAT(game->errors(), HasSubstr("ZLN Session: An error occured writing config\n"));
    expectOneReportHaving("network", during_);
  }

  // The storage is back: files hold what is in memory, and all of it arrives, once.
  void expectThatNothingIsLost() {
    const std::string settings = contentsOf(settingsFile());
    tell("banner after 1");
    tell("active");

    EXPECT_THAT(storedNetworks(), Contains("before"));
    EXPECT_THAT(storedNetworks(), Contains("after"));
    EXPECT_TRUE(valueIn(settingsFile()));
    EXPECT_NE(settings, contentsOf(settingsFile()));
    release();
    expectOneReportHaving("network", "after");
    EXPECT_THAT(reportsHaving("network", "before"), SizeIs(1));
    EXPECT_THAT(reportsHaving("network", during_), SizeIs(1));
    EXPECT_THAT(reportsHaving("type", "ReportTypeSessionFirst"), SizeIs(1));
  }

 private:
  std::string during_;
  std::atomic<bool> released_{false};
};

// A disk of its own holds the data.
class LostDiskTest : public LostStorageTest {
 protected:
  void SetUp() override {
    if (!disk.isMounted()) GTEST_SKIP() << "no right to mount";
    std::filesystem::create_directories(folder() + "/data");
    launchWithReportsUnderWay();
    reportsBefore_ = contentsOf(reportsFile());
    settingsBefore_ = contentsOf(settingsFile());
  }

  void expectThatTheOldFilesAreWhole() const {
    EXPECT_THAT(storedNetworks(), Contains("before"));
    EXPECT_EQ(reportsBefore_, contentsOf(reportsFile()));
    EXPECT_EQ(settingsBefore_, contentsOf(settingsFile()));
  }

  const PrivateDisk disk{home.path() + "/data"};

 private:
  std::string reportsBefore_;
  std::string settingsBefore_;
};

TEST_F(LostDiskTest, WhenFullTheOldFilesStayWholeAndNothingIsLost) {
  disk.fill();
  // More than the room that the files have already.
  playWithoutStorage("during" + std::string(8192, 'x'));

  expectThatTheOldFilesAreWhole();
  disk.makeRoom();
  expectThatNothingIsLost();
}

TEST_F(LostDiskTest, WhenReadOnlyTheOldFilesStayWholeAndNothingIsLost) {
  ASSERT_TRUE(disk.setReadOnly());
  playWithoutStorage();

  expectThatTheOldFilesAreWhole();
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
