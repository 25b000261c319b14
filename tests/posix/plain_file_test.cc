#include "platform/posix/plain_file.h"

#include <gtest/gtest.h>
#include <sys/file.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/atomic_file_posix.h"
#include "platform/posix/file_descriptor.h"
#include "tests/posix/folder_fixture.h"

namespace zln {
namespace {

// Of the contents that a test reads.
constexpr std::size_t kMostRead = std::size_t{1} << 20;

// Contents that a reader can tell whole from torn: a head that never changes, and a letter as often
// as the number between them says.
constexpr std::size_t kHead = 5000;
constexpr std::size_t kDigits = 6;

std::string numberedContent(int number) {
  std::string digits = std::to_string(number);
  digits.insert(0, kDigits - digits.size(), '0');
  const auto size = static_cast<std::size_t>(number % 977) * 13;
  return std::string(kHead, '-') + digits + std::string(size, static_cast<char>('a' + number % 26));
}

// Absent when it is torn.
std::optional<int> numberOf(const std::string& content) {
  if (content.size() < kHead + kDigits) return std::nullopt;
  const int number = std::atoi(content.substr(kHead, kDigits).c_str());
  return content == numberedContent(number) ? std::optional(number) : std::nullopt;
}

class PlainFileTest : public FolderTest {};

// The spare file is emptied now and then, as it is when the disk has the other.
TEST_F(PlainFileTest, ReadersOfAnAtomicFileSeeWholeContentsAndNeverAnEarlierOneAgain) {
  constexpr int kReplacements = 20'000;
  constexpr int kReaders = 2;
  std::vector<std::function<void()>> tasks;
  const auto file = std::make_shared<AtomicFilePosix>(
      files, path("file"), path("spare"),
      [&](std::function<void()> task) { tasks.push_back(std::move(task)); });
  ASSERT_TRUE(file->replace(numberedContent(0), 0, nullptr));
  std::atomic<int> torn{0};
  std::atomic<int> early{0};
  std::atomic<bool> isOver{false};
  std::latch ready(kReaders + 1);
  std::vector<std::thread> readers;
  for (int reader = 0; reader < kReaders; ++reader) {
    readers.emplace_back([&] {
      ready.arrive_and_wait();
      for (int last = 0; !isOver;) {
        const auto number = numberOf(readPlainFile(path("file"), kMostRead).value_or(""));
        if (!number) ++torn;
        if (number && *number < last) ++early;
        last = number.value_or(last);
      }
    });
  }

  ready.arrive_and_wait();
  int failures = 0;
  for (int number = 1; number <= kReplacements; ++number) {
    if (!file->replace(numberedContent(number), kHead, nullptr)) ++failures;
    if (number % 4 != 0) continue;
    for (const auto& task : std::exchange(tasks, {})) task();
  }
  isOver = true;
  for (std::thread& reader : readers) reader.join();

  EXPECT_EQ(numberedContent(kReplacements), contents("file"));
  EXPECT_EQ(0, torn);
  EXPECT_EQ(0, early);
  EXPECT_EQ(0, failures);
}

TEST_F(PlainFileTest, AFileThatAnotherProgramKeepsLockedIsReadAllTheSame) {
  put("file", "content");
  const FileDescriptor other = openPlainFile(path("file"));
  ASSERT_EQ(0, flock(other.get(), LOCK_EX));

  EXPECT_EQ("content", readPlainFile(path("file"), kMostRead));
}

}  // namespace
}  // namespace zln
