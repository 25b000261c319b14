#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <functional>
#include <future>

#include "tests/host/stored_files.h"

namespace zln {
namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;

// A small disk that only this process and its children see.
class PrivateDisk {
 public:
  explicit PrivateDisk(std::string path) : path_(std::move(path)) {
    isMounted_ = unshare(CLONE_NEWNS) == 0 &&
                 mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount("none", path_.c_str(), "tmpfs", 0, "size=1m") == 0;
  }
  ~PrivateDisk() {
    if (isMounted_) umount2(path_.c_str(), MNT_DETACH);
  }
  PrivateDisk(const PrivateDisk&) = delete;
  PrivateDisk& operator=(const PrivateDisk&) = delete;

  bool isMounted() const { return isMounted_; }

  void fill() const {
    const int file = open(fillerPath().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string piece(4096, 'x');
    while (::write(file, piece.data(), piece.size()) > 0) continue;
    close(file);
  }
  void makeRoom() const { unlink(fillerPath().c_str()); }

  // Lays the same disk over itself, for reading only: files that are open for writing do not keep
  // it from that.
  bool setReadOnly() const {
    return mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
  }
  bool setWritable() const { return umount2(path_.c_str(), MNT_DETACH) == 0; }

 private:
  std::string fillerPath() const { return path_ + "/filler"; }

  std::string path_;
  bool isMounted_ = false;
};

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
  void release() { release_.set_value(); }

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
  std::promise<void> release_;
  const std::shared_future<void> released_ = release_.get_future().share();
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
