#include "platform/posix/atomic_file_posix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "platform/posix/plain_file.h"
#include "tests/posix/flushed_files.h"
#include "tests/posix/folder_fixture.h"
#include "tests/support/file_size_limited.h"
#include "tests/support/private_disk.h"

namespace {

// Makes the file systems of this process exchange no files.
bool isExchangeRefused = false;

}  // namespace

extern "C" int renameat2(int oldFolder, const char* oldPath, int newFolder, const char* newPath,
                         unsigned flags) noexcept {
  if (!isExchangeRefused) {
    return static_cast<int>(syscall(SYS_renameat2, oldFolder, oldPath, newFolder, newPath, flags));
  }
  errno = EINVAL;
  return -1;
}

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

// Of the contents that a test reads.
constexpr std::size_t kLongest = std::size_t{1} << 20;

// A child that has a copy of all that is open here.
class IdleChild {
 public:
  IdleChild() : pid_(fork()) {
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) pause();
  }
  ~IdleChild() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  IdleChild(const IdleChild&) = delete;
  IdleChild& operator=(const IdleChild&) = delete;

 private:
  const pid_t pid_;
};

// The file is in the folder "place", the spare one above it.
class AtomicFilePosixTest : public FolderTest {
 protected:
  static constexpr char kFile[] = "place/file";
  static constexpr char kSpare[] = ".spare";

  void SetUp() override {
    flushedFiles.clear();
    makeFolder("place");
  }
  void TearDown() override {
    isDiskBroken = false;
    isExchangeRefused = false;
  }

  std::shared_ptr<AtomicFilePosix> openFile(const std::string& spare = kSpare) {
    return std::make_shared<AtomicFilePosix>(
        files, path(kFile), path(spare),
        [this](std::function<void()> task) { tasks.push_back(std::move(task)); });
  }

  ino_t inode(const std::string& relativePath) { return factsOf(relativePath).st_ino; }
  void unlinkItem(const std::string& relativePath) {
    ASSERT_EQ(0, unlink(path(relativePath).c_str()));
  }
  void renameItem(const std::string& from, const std::string& to) {
    ASSERT_EQ(0, rename(path(from).c_str(), path(to).c_str()));
  }
  std::vector<std::string> itemsBelow() { return visited(folder.path()); }

  // Replaces and expects to read it there.
  void replace(AtomicFile& file, const std::string& content, std::size_t unchanged = 0) {
    EXPECT_TRUE(file.replace(content, unchanged, nullptr)) << content;
    EXPECT_EQ(content, contents(kFile));
  }
  // Some replacements, each with unchanged bytes. The last contents are "ab" and "abcdefg".
  void replaceSome(AtomicFile& file) {
    replace(file, "abc", 0);
    replace(file, "abcdef", 3);
    replace(file, "abcXYZ123", 3);
    replace(file, "ab", 2);
    replace(file, "abcdefg", 2);
  }
  // What comes after replaceSome(), with unchanged bytes of its last content.
  void replaceFurther(AtomicFile& file) {
    replace(file, "abXYZ", 2);
    replace(file, "abXYZ1", 5);
    replace(file, "abXYZ12", 6);
  }
  std::shared_ptr<AtomicFilePosix> openUsedFile() {
    auto file = openFile();
    replaceSome(*file);
    return file;
  }
  void expectTheTwoChangePlaces(AtomicFile& file) {
    const ino_t first = inode(kFile);
    const ino_t second = inode(kSpare);
    for (int round = 0; round < 2; ++round) {
      replace(file, "odd");
      EXPECT_EQ(second, inode(kFile));
      EXPECT_EQ(first, inode(kSpare));
      replace(file, "even");
      EXPECT_EQ(first, inode(kFile));
      EXPECT_EQ(second, inode(kSpare));
    }
    EXPECT_THAT(itemsBelow(), UnorderedElementsAre("place", "place/file", ".spare"));
  }

  void runTasks() {
    for (const auto& task : std::exchange(tasks, {})) task();
  }

  // What is to be run later.
  std::vector<std::function<void()>> tasks;
};

// Changing places.

TEST_F(AtomicFilePosixTest, TwoFilesChangePlaces) {
  const auto file = openFile();
  replace(*file, "1");
  EXPECT_THAT(itemsBelow(), ElementsAre("place", "place/file"));
  replace(*file, "2");

  expectTheTwoChangePlaces(*file);

  EXPECT_EQ("odd", contents(kSpare));
  EXPECT_EQ(0600u, mode(kFile));
  EXPECT_EQ(0600u, mode(kSpare));
}

TEST_F(AtomicFilePosixTest, OnlyWhatTheSpareFileDoesNotShareIsWritten) {
  const auto file = openFile();
  replace(*file, "abc");
  replace(*file, "abcdef", 3);
  put(kSpare, "ABC");

  EXPECT_TRUE(file->replace("abcdXY", 4, nullptr));

  EXPECT_EQ("ABCdXY", contents(kFile));
}

TEST_F(AtomicFilePosixTest, ALongContentThatShrinksLeavesNoBytesBehind) {
  const auto file = openFile();
  replace(*file, std::string(100'000, 'a'));
  replace(*file, std::string(200'000, 'b'));

  replace(*file, "short");
  replace(*file, "");

  EXPECT_EQ("short", contents(kSpare));
}

TEST_F(AtomicFilePosixTest, ItKeepsNoMoreFilesOpenFromReplacementToReplacementAndNoneWhenItGoes) {
  const std::size_t before = openDescriptors();
  auto file = openUsedFile();
  const std::size_t inUse = openDescriptors();

  unlinkItem(kSpare);
  replaceSome(*file);

  EXPECT_EQ(inUse, openDescriptors());
  file = nullptr;
  EXPECT_EQ(before, openDescriptors());
}

TEST_F(AtomicFilePosixTest, WhereTheSystemExchangesNothingANewFileReplacesTheOldOne) {
  isExchangeRefused = true;
  const auto file = openUsedFile();

  EXPECT_THAT(itemsBelow(), ElementsAre("place", "place/file"));
  isExchangeRefused = false;
  replaceFurther(*file);
  EXPECT_TRUE(isThere(kSpare));
}

TEST_F(AtomicFilePosixTest, NothingIsWrittenWhileTheSameContentIsInPlace) {
  const auto file = openUsedFile();
  const ino_t inPlace = inode(kFile);
  runTasks();

  replace(*file, "abcdefg", 7);

  EXPECT_EQ(inPlace, inode(kFile));
  EXPECT_THAT(tasks, IsEmpty());
  replace(*file, "abcdefg", 6);
  EXPECT_NE(inPlace, inode(kFile));
  EXPECT_THAT(tasks, SizeIs(1));
}

// Several objects for the same file, and children.

TEST_F(AtomicFilePosixTest, TheNextObjectGoesOnWithTheSameTwoFiles) {
  openUsedFile();

  expectTheTwoChangePlaces(*openFile());
}

TEST_F(AtomicFilePosixTest, TwoObjectsReplaceInTurnAndTheFirstHasTheSpareFileUntilItGoes) {
  auto first = openUsedFile();
  const auto second = openFile();
  const ino_t spare = inode(kSpare);

  replaceSome(*second);
  EXPECT_EQ("ab", contents(kSpare));
  EXPECT_EQ(spare, inode(kSpare));
  for (int round = 0; round < 3; ++round) {
    replaceFurther(*first);
    replaceFurther(*second);
    replace(*first, "abXYZ12 again", 7);
    replace(*second, "abXYZ12 too", 7);
  }

  const IdleChild child;
  first = nullptr;
  expectTheTwoChangePlaces(*second);
}

TEST_F(AtomicFilePosixTest, AChildOfTheGameDoesNotKeepTheTwoFilesFromChangingPlaces) {
  const auto file = openUsedFile();
  const IdleChild child;

  expectTheTwoChangePlaces(*file);
}

// Flushing.

TEST_F(AtomicFilePosixTest, AfterWritesTheFileIsFlushedOnceAndThenTheSpareOneEmptied) {
  const auto file = openUsedFile();
  ASSERT_THAT(tasks, SizeIs(1));
  std::string spareWhileFlushing;
  whileFlushing = [&] { spareWhileFlushing = contents(kSpare); };

  runTasks();

  EXPECT_THAT(flushedFiles, ElementsAre(path(kFile)));
  EXPECT_EQ("ab", spareWhileFlushing);
  EXPECT_EQ("abcdefg", contents(kFile));
  EXPECT_EQ("", contents(kSpare));
  EXPECT_THAT(tasks, IsEmpty());
  replaceFurther(*file);
  EXPECT_THAT(tasks, SizeIs(1));
}

TEST_F(AtomicFilePosixTest, TheSpareFileIsNotEmptiedWhenTheFlushFails) {
  const auto file = openUsedFile();
  isDiskBroken = true;
  runTasks();
  isDiskBroken = false;

  EXPECT_EQ("ab", contents(kSpare));
  EXPECT_THAT(tasks, IsEmpty());
  replaceFurther(*file);
  runTasks();
  EXPECT_EQ("", contents(kSpare));
}

TEST_F(AtomicFilePosixTest, AWriteDuringAFlushHasAFlushOfItsOwnThatEmptiesTheSpareFile) {
  const auto file = openUsedFile();
  whileFlushing = [&] { replace(*file, "abXYZ", 2); };

  runTasks();

  EXPECT_EQ("abcdefg", contents(kSpare));
  EXPECT_THAT(tasks, SizeIs(1));
  runTasks();
  EXPECT_EQ("", contents(kSpare));
  EXPECT_THAT(flushedFiles, ElementsAre(path(kFile), path(kFile)));
  replace(*file, "abXYZ1", 5);
}

TEST_F(AtomicFilePosixTest, ASpareFileThatIsLockedOrHasAnotherNameIsNotEmptied) {
  for (const bool isLocked : {true, false}) {
    const auto file = openUsedFile();
    const FileDescriptor reader = openPlainFile(path(kSpare));
    ASSERT_EQ(0, isLocked ? flock(reader.get(), LOCK_SH)
                          : link(path(kSpare).c_str(), path("other").c_str()));

    runTasks();

    EXPECT_EQ("ab", contents(kSpare)) << isLocked;
  }
}

TEST_F(AtomicFilePosixTest, NothingIsFlushedAfterAFailureOrWhenTheObjectIsGone) {
  auto file = openUsedFile();
  renameItem("place", "gone");
  EXPECT_FALSE(file->replace("1", 0, nullptr));
  runTasks();
  renameItem("gone", "place");

  replaceSome(*file);
  EXPECT_THAT(tasks, SizeIs(1));
  file = nullptr;
  runTasks();

  EXPECT_THAT(flushedFiles, IsEmpty());
}

// What may happen to the two.

TEST_F(AtomicFilePosixTest, InAFolderThatTookThePlaceOfItsOwnItLeavesTheSpareFileToItsUser) {
  makeFolder("own");
  const auto file = openFile("own/.spare");
  replaceSome(*file);
  renameItem("own", "gone");
  makeFolder("own");
  const auto user = openFile("own/.spare");
  replaceSome(*user);
  const ino_t spare = inode("own/.spare");

  replaceFurther(*file);

  EXPECT_EQ(spare, inode("own/.spare"));
  EXPECT_EQ("ab", contents("own/.spare"));
}

TEST_F(AtomicFilePosixTest, WhatReadersHaveLockedIsNotWrittenTo) {
  std::vector<FileDescriptor> readers;
  const auto file = openFile();

  for (char letter = 'a'; letter <= 'z'; ++letter) {
    replace(*file, std::string("head") + letter, letter == 'a' ? 0 : 4);
    readers.push_back(openPlainFile(path(kFile)));
    ASSERT_EQ(0, flock(readers.back().get(), LOCK_SH | LOCK_NB));
  }

  for (char letter = 'a'; letter <= 'z'; ++letter) {
    const int reader = readers[static_cast<std::size_t>(letter - 'a')].get();
    EXPECT_EQ(std::string("head") + letter, readToEnd(reader, kLongest));
  }
  EXPECT_THAT(itemsBelow(), UnorderedElementsAre("place", "place/file", ".spare"));
}

TEST_F(AtomicFilePosixTest, WhateverHappensToTheTwoEveryContentIsRightAndNoOtherFileIsWrittenTo) {
  constexpr uid_t kNobody = 65534;
  const auto linkTo = [this](const char* name, const char* target) {
    put("other", "kept");
    unlinkItem(name);
    makeLink(target, name);
  };
  const auto nameAgain = [this](const char* name) {
    ASSERT_EQ(0, link(path(name).c_str(), path("other").c_str()));
  };
  const auto write = [this](const char* name) {
    const std::string content = "a strange content that is long";
    ASSERT_TRUE(files.writeAtomically(path(name), content, Durability::eventual, nullptr));
  };
  struct Row {
    const char* what;
    std::function<void()> happens;
    // Not to be written to any more.
    const char* kept = nullptr;
  };
  std::vector<Row> rows = {
      {"spare removed", [&] { unlinkItem(kSpare); }},
      {"file removed", [&] { unlinkItem(kFile); }},
      {"both removed", [&] { unlinkItem(kSpare), unlinkItem(kFile); }},
      {"spare moved", [&] { renameItem(kSpare, "other"); }, "other"},
      {"file moved", [&] { renameItem(kFile, "other"); }, "other"},
      {"spare replaced", [&] { write(kSpare); }},
      {"file replaced", [&] { write(kFile); }},
      {"spare with another name", [&] { nameAgain(kSpare); }, kSpare},
      {"file with another name", [&] { nameAgain(kFile); }, kFile},
      {"spare a link", [&] { linkTo(kSpare, "other"); }, kSpare},
      {"file a link", [&] { linkTo(kFile, "../other"); }, kFile},
      {"spare that others may read", [&] { unlinkItem(kSpare), put(kSpare, "1", 0644); }, kSpare},
      {"spare a pipe", [&] { unlinkItem(kSpare), mkfifo(path(kSpare).c_str(), 0600); }},
  };
  if (geteuid() == 0) {
    const auto putOfAnother = [&] {
      write(kSpare);
      ASSERT_EQ(0, chown(path(kSpare).c_str(), kNobody, 0));
    };
    rows.push_back({"spare of another user", putOfAnother, kSpare});
  }
  for (const Row& row : rows) {
    for (const bool isNextObject : {false, true}) {
      SCOPED_TRACE(std::string(row.what) + (isNextObject ? ", next object" : ""));
      auto file = openUsedFile();
      if (isNextObject) file = nullptr;
      row.happens();
      const FileDescriptor kept = openPlainFile(path(row.kept != nullptr ? row.kept : kFile));
      const std::string before = row.kept != nullptr ? contents(row.kept) : "";

      if (isNextObject) file = openFile();
      replace(*file, "abcdefg", isNextObject ? 0 : 7);
      replaceFurther(*file);

      if (row.kept != nullptr) {
        EXPECT_EQ(before, readToEnd(kept.get(), kLongest));
      }
      EXPECT_TRUE(S_ISREG(factsOf(kFile).st_mode));
      EXPECT_EQ(0600u, mode(kFile));
      EXPECT_EQ(geteuid(), factsOf(kFile).st_uid);
      std::filesystem::remove(path("other"));
      std::filesystem::remove(path(kSpare));
    }
  }
}

TEST_F(AtomicFilePosixTest, AFolderInAPlaceOfTheTwoKeepsItsContents) {
  const auto file = openUsedFile();
  unlinkItem(kFile);
  makeFolder(kFile);
  put("place/file/kept", "1");

  replaceFurther(*file);
  replaceFurther(*openFile());

  EXPECT_THAT(itemsBelow(), UnorderedElementsAre("place", "place/file", ".spare", ".spare/kept"));
  EXPECT_EQ("1", contents(".spare/kept"));
  std::filesystem::remove_all(path(kSpare));
  replaceFurther(*file);
  expectTheTwoChangePlaces(*file);
}

TEST_F(AtomicFilePosixTest, WithoutAFolderForTheSpareFileReplacingWorks) {
  const auto file = openFile("late/.spare");
  replaceSome(*file);
  EXPECT_THAT(itemsBelow(), ElementsAre("place", "place/file"));
  makeFolder("late");

  replaceSome(*file);

  EXPECT_TRUE(isThere("late/.spare"));
}

TEST_F(AtomicFilePosixTest, ContentsAreRightWhenAllFoldersComeBackOrOthersTakeTheirPlace) {
  AtomicFilePosix file(files, path("root/place/file"), path("root/.spare"), nullptr);
  const auto makeRoot = [&] { ASSERT_TRUE(files.createDirectory(path("root/place"), nullptr)); };
  const auto expectReplaced = [&](const std::string& content, std::size_t unchanged) {
    EXPECT_TRUE(file.replace(content, unchanged, nullptr)) << content;
    EXPECT_EQ(content, contents("root/place/file"));
  };
  makeRoot();
  expectReplaced("abc", 0);
  expectReplaced("abcdef", 3);

  renameItem("root", "gone");
  EXPECT_FALSE(file.replace("abXYZ", 2, nullptr));
  renameItem("gone", "root");
  EXPECT_EQ("abcdef", contents("root/place/file"));
  expectReplaced("abcdefghi", 6);
  expectReplaced("abcdefghiJKL", 9);

  renameItem("root", "gone");
  makeRoot();
  expectReplaced("abXYZ", 2);
  expectReplaced("abXYZ1", 5);
  EXPECT_EQ("abcdefghiJKL", contents("gone/place/file"));
  const ino_t spare = inode("root/.spare");
  AtomicFilePosix second(files, path("root/place/file"), path("root/.spare"), nullptr);
  EXPECT_TRUE(second.replace("second", 0, nullptr));
  EXPECT_EQ(spare, inode("root/.spare"));

  std::filesystem::remove_all(path("root"));
  renameItem("gone", "root");
  expectReplaced("abXYZ12", 6);
  expectReplaced("abXYZ123", 7);
}

TEST_F(AtomicFilePosixTest, AfterEachOfManyWritesThatStopHalfWayTheOldContentStays) {
  const auto file = openFile();
  replace(*file, "");

  std::string last;
  for (int round = 0; round < 20; ++round) {
    {
      const FileSizeLimited limited(static_cast<rlim_t>(4096 + 100 * round));
      EXPECT_FALSE(file->replace(last + std::string(9000, 'x'), last.size(), nullptr));
    }
    EXPECT_EQ(last, contents(kFile));
    const std::size_t unchanged = round % 3 == 0 ? last.size() / 2 : last.size();
    last = last.substr(0, unchanged) + "round " + std::to_string(round);
    replace(*file, last, unchanged);
    if (round % 2 == 0) replace(*file, last, last.size() - 1);
  }
}

TEST_F(AtomicFilePosixTest, OnAFullDiskAContentThatNeedsNoMoreRoomIsReplaced) {
  const PrivateDisk disk(folder.path());
  if (!disk.isMounted()) GTEST_SKIP() << "no right to mount";
  makeFolder("place");
  const auto file = openUsedFile();
  disk.fill();

  replaceSome(*file);
}

}  // namespace
}  // namespace zln
