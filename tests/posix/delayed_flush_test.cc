#include "platform/posix/delayed_flush.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/posix/flushed_files.h"
#include "tests/support/temporary_folder.h"

namespace zln {

std::vector<std::string> flushedFiles;
bool isDiskBroken = false;

}  // namespace zln

using zln::isDiskBroken;

extern "C" int fsync(int file) {
  const std::string link = "/proc/self/fd/" + std::to_string(file);
  zln::flushedFiles.push_back(std::filesystem::read_symlink(link));
  if (isDiskBroken) errno = EIO;
  return isDiskBroken ? -1 : 0;
}

namespace zln {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using File = std::shared_ptr<FileDescriptor>;

class DelayedFlushTest : public testing::Test {
 protected:
  void SetUp() override {
    flushedFiles.clear();
    isDiskBroken = false;
  }

  std::string path(const std::string& name) const { return folder.path() + "/" + name; }

  File openFile(const std::string& name) {
    return std::make_shared<FileDescriptor>(
        open(path(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  }

  // Runs what waits, oldest first.
  void runTasks() {
    const auto due = std::exchange(tasks, {});
    for (const auto& task : due) task();
  }

  // Lets a write wait for this long at most.
  std::shared_ptr<DelayedFlush> flushAfter(milliseconds longestDelay) {
    return std::make_shared<DelayedFlush>(
        [this](std::function<void()> task) { tasks.push_back(std::move(task)); },
        [this] { return mayWait; }, longestDelay);
  }

  TemporaryFolder folder;
  std::vector<std::function<void()>> tasks;
  // Whether the thread of the test may wait for the disk.
  bool mayWait = false;
  std::shared_ptr<DelayedFlush> flush = flushAfter(std::chrono::hours(1));
};

TEST_F(DelayedFlushTest, AllWritesUntilTheTaskRunsHaveOneTaskWait) {
  const File file = openFile("file");
  EXPECT_EQ(0u, tasks.size());

  for (int burst = 0; burst < 3; ++burst) {
    for (int round = 0; round < 10; ++round) flush->wrote(file);
    EXPECT_EQ(1u, tasks.size());
    runTasks();
    EXPECT_EQ(0u, tasks.size());
  }

  EXPECT_THAT(flushedFiles, ElementsAre(path("file"), path("file"), path("file")));
}

TEST_F(DelayedFlushTest, OnlyTheNewestFileStaysOpenAndIsFlushed) {
  File older = openFile("older");
  File newer = openFile("newer");
  const std::weak_ptr<FileDescriptor> watchedOlder = older;
  const std::weak_ptr<FileDescriptor> watchedNewer = newer;
  flush->wrote(std::exchange(older, nullptr));
  flush->wrote(std::exchange(newer, nullptr));

  EXPECT_TRUE(watchedOlder.expired());
  EXPECT_FALSE(watchedNewer.expired());
  EXPECT_THAT(flushedFiles, IsEmpty());
  runTasks();

  EXPECT_TRUE(watchedNewer.expired());
  EXPECT_THAT(flushedFiles, ElementsAre(path("newer")));
}

TEST_F(DelayedFlushTest, TheTaskKeepsTheFlushAlive) {
  const std::weak_ptr<DelayedFlush> watched = flush;
  flush->wrote(openFile("file"));

  flush.reset();

  EXPECT_FALSE(watched.expired());

  runTasks();

  EXPECT_TRUE(watched.expired());
}

TEST_F(DelayedFlushTest, AFlushThatFailsIsNotTriedAgainUntilTheNextWrite) {
  const File file = openFile("file");
  isDiskBroken = true;
  flush->wrote(file);
  runTasks();
  runTasks();
  EXPECT_THAT(flushedFiles, ElementsAre(path("file")));
  isDiskBroken = false;

  flush->wrote(file);
  runTasks();

  EXPECT_THAT(flushedFiles, ElementsAre(path("file"), path("file")));
}

TEST_F(DelayedFlushTest, AThreadThatMayWaitFlushesItselfWhenTheWritingDoesNotEnd) {
  flush = flushAfter(milliseconds(0));
  mayWait = true;
  const File file = openFile("file");

  flush->wrote(file);

  EXPECT_THAT(flushedFiles, ElementsAre(path("file")));
  runTasks();
  EXPECT_THAT(flushedFiles, ElementsAre(path("file")));
}

TEST_F(DelayedFlushTest, AThreadFlushesNeitherWhenItMayNotWaitNorEarly) {
  const auto late = flushAfter(milliseconds(0));
  for (int round = 0; round < 100; ++round) late->wrote(openFile("file"));
  mayWait = true;

  for (int round = 0; round < 100; ++round) flush->wrote(openFile("file"));

  EXPECT_THAT(flushedFiles, IsEmpty());
}

// The first write after a flush is never late, however slow the machine is.
TEST_F(DelayedFlushTest, TheTimeOfAWriteBeginsAgainAfterAFlush) {
  flush = flushAfter(milliseconds(1));
  const File file = openFile("file");
  flush->wrote(file);
  runTasks();
  std::this_thread::sleep_for(milliseconds(1));
  mayWait = true;

  flush->wrote(file);
  EXPECT_THAT(flushedFiles, SizeIs(1));
  std::this_thread::sleep_for(milliseconds(1));
  flush->wrote(file);
  EXPECT_THAT(flushedFiles, SizeIs(2));
  flush->wrote(file);

  EXPECT_THAT(flushedFiles, SizeIs(2));
}

TEST_F(DelayedFlushTest, ThreadsThatWriteTogetherHaveOneTaskWait) {
  const File file = openFile("file");
  std::vector<std::thread> threads;

  for (int count = 0; count < 4; ++count) {
    threads.emplace_back([&] {
      for (int round = 0; round < 500; ++round) flush->wrote(file);
    });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(1u, tasks.size());
}

}  // namespace
}  // namespace zln
