#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/delayed_flush.h"
#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

using File = std::shared_ptr<FileDescriptor>;

class DelayedFlushTest : public testing::Test {
 protected:
  File openFile(const std::string& name) {
    const std::string path = folder.path() + "/" + name;
    return std::make_shared<FileDescriptor>(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  }

  // Runs what waits, oldest first.
  void runTasks() {
    const auto due = std::exchange(tasks, {});
    for (const auto& task : due) task();
  }

  TemporaryFolder folder;
  std::vector<std::function<void()>> tasks;
  std::shared_ptr<DelayedFlush> flush = std::make_shared<DelayedFlush>(
      [this](std::function<void()> task) { tasks.push_back(std::move(task)); },
      [] { return false; });
};

TEST_F(DelayedFlushTest, NothingWaitsAtFirst) { EXPECT_EQ(0u, tasks.size()); }

TEST_F(DelayedFlushTest, AWriteHasOneTaskWait) {
  flush->wrote(openFile("file"));

  EXPECT_EQ(1u, tasks.size());
}

TEST_F(DelayedFlushTest, ManyWritesHaveOneTaskWait) {
  const File file = openFile("file");

  for (int round = 0; round < 1000; ++round) flush->wrote(file);

  EXPECT_EQ(1u, tasks.size());
}

TEST_F(DelayedFlushTest, TheTaskHasAnotherOneWaitForNoWrite) {
  flush->wrote(openFile("file"));

  runTasks();

  EXPECT_EQ(0u, tasks.size());
}

TEST_F(DelayedFlushTest, AWriteAfterTheTaskHasTheNextTaskWait) {
  flush->wrote(openFile("file"));
  runTasks();

  flush->wrote(openFile("file"));
  flush->wrote(openFile("file"));

  EXPECT_EQ(1u, tasks.size());
}

TEST_F(DelayedFlushTest, TheFileStaysOpenUntilTheTaskHasRun) {
  File file = openFile("file");
  const std::weak_ptr<FileDescriptor> watched = file;
  flush->wrote(std::exchange(file, nullptr));

  EXPECT_FALSE(watched.expired());

  runTasks();

  EXPECT_TRUE(watched.expired());
}

TEST_F(DelayedFlushTest, OnlyTheNewestFileIsKept) {
  File older = openFile("older");
  File newer = openFile("newer");
  const std::weak_ptr<FileDescriptor> watchedOlder = older;
  const std::weak_ptr<FileDescriptor> watchedNewer = newer;

  flush->wrote(std::exchange(older, nullptr));
  flush->wrote(std::exchange(newer, nullptr));

  EXPECT_TRUE(watchedOlder.expired());
  EXPECT_FALSE(watchedNewer.expired());
}

TEST_F(DelayedFlushTest, AFileThatCannotBeFlushedDoesNoHarm) {
  flush->wrote(std::make_shared<FileDescriptor>(-1));

  runTasks();
  flush->wrote(openFile("file"));

  EXPECT_EQ(1u, tasks.size());
}

TEST_F(DelayedFlushTest, TheTaskKeepsTheFlushAlive) {
  const std::weak_ptr<DelayedFlush> watched = flush;
  flush->wrote(openFile("file"));

  flush.reset();

  EXPECT_FALSE(watched.expired());

  runTasks();

  EXPECT_TRUE(watched.expired());
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
