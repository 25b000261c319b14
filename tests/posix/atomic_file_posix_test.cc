#include "platform/posix/atomic_file_posix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <latch>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "platform/posix/plain_file.h"
#include "tests/posix/folder_fixture.h"
#include "tests/support/file_size_limited.h"
#include "tests/support/private_disk.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// Of the contents that a test reads.
constexpr std::size_t kLimit = std::size_t{1} << 20;

// How the process answers to SIGURG while this object lives.
class UrgentSignal {
 public:
  explicit UrgentSignal(sighandler_t handler) : before_(signal(SIGURG, handler)) {}
  ~UrgentSignal() { signal(SIGURG, before_); }

 private:
  sighandler_t before_;
};

// Holds on to an item without opening it, so that its number is given to no other.
class HeldItem {
 public:
  explicit HeldItem(const std::string& path)
      : file_(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC)) {}

  ino_t inode() const {
    struct stat facts {};
    EXPECT_EQ(0, fstat(file_.get(), &facts));
    return facts.st_ino;
  }
  std::string content() const { return contentsOf("/proc/self/fd/" + std::to_string(file_.get())); }

 private:
  FileDescriptor file_;
};

// Another process, which does one thing again and again as long as this one lives.
class BusyChild {
 public:
  explicit BusyChild(const std::function<void()>& step) : pid_(fork()) {
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) step();
  }
  ~BusyChild() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  BusyChild(const BusyChild&) = delete;
  BusyChild& operator=(const BusyChild&) = delete;

 private:
  const pid_t pid_;
};

// Contents that a reader can tell whole from torn: a head that never changes, and a letter as often
// as the number before it says.
constexpr std::size_t kHead = 5000;
constexpr std::size_t kDigits = 6;

std::string numberedContent(int round) {
  const std::size_t size = static_cast<std::size_t>(round % 977) * 13;
  std::string digits = std::to_string(size);
  digits.insert(0, kDigits - digits.size(), '0');
  return std::string(kHead, '-') + digits + std::string(size, static_cast<char>('a' + round % 26));
}

bool isWhole(const std::string& content) {
  if (content.size() < kHead + kDigits) return false;
  const std::string letters = content.substr(kHead + kDigits);
  return content.substr(0, kHead) == std::string(kHead, '-') &&
         std::stoul(content.substr(kHead, kDigits)) == letters.size() &&
         (letters.empty() || letters == std::string(letters.size(), letters[0]));
}

// The file is in the folder "place", the spare one above it.
class AtomicFilePosixTest : public FolderTest {
 protected:
  static constexpr char kFile[] = "place/file";
  static constexpr char kSpare[] = ".spare";

  void SetUp() override { makeFolder("place"); }

  std::unique_ptr<AtomicFilePosix> openFile(std::shared_ptr<DelayedFlush> flush = nullptr) {
    return std::make_unique<AtomicFilePosix>(files, path(kFile), path(kSpare), std::move(flush));
  }

  ino_t inode(const std::string& relativePath) { return factsOf(relativePath).st_ino; }
  bool isPlainFile(const std::string& relativePath) {
    return S_ISREG(factsOf(relativePath).st_mode);
  }
  void unlinkItem(const std::string& relativePath) {
    ASSERT_EQ(0, unlink(path(relativePath).c_str()));
  }
  void renameItem(const std::string& from, const std::string& to) {
    ASSERT_EQ(0, rename(path(from).c_str(), path(to).c_str()));
  }

  std::vector<std::string> itemsBelow() { return visited(folder.path()); }
  void expectTheTwoFilesAlone() {
    EXPECT_THAT(itemsBelow(), UnorderedElementsAre("place", "place/file", ".spare"));
  }

  // Replaces and expects to read it there.
  void replace(AtomicFile& file, const std::string& content, std::size_t unchanged = 0) {
    EXPECT_TRUE(file.replace(content, {unchanged}, nullptr)) << content;
    EXPECT_EQ(content, contents(kFile));
  }

  // Some replacements, each with unchanged bytes.
  void replaceSome(AtomicFile& file) {
    replace(file, "abc", 0);
    replace(file, "abcdef", 3);
    replace(file, "abcXYZ123", 3);
    replace(file, "ab", 2);
    replace(file, "abcdefg", 2);
  }

  std::unique_ptr<AtomicFilePosix> openUsedFile() {
    auto file = openFile();
    replaceSome(*file);
    return file;
  }

  // What comes after replaceSome(), with unchanged bytes of its last contents.
  void replaceFurther(AtomicFile& file) {
    replace(file, "abXYZ", 2);
    replace(file, "abXYZ1", 5);
    replace(file, "abXYZ12", 6);
  }

  // All that is offered while nothing is accepted.
  static std::vector<std::string> offeredAndDeclined(AtomicFile& file) {
    return offers(file, false, kLimit);
  }
  // All that is offered until something is accepted.
  static std::vector<std::string> offeredAndAccepted(AtomicFile& file, std::size_t limit = kLimit) {
    return offers(file, true, limit);
  }

  std::shared_ptr<DelayedFlush> collectingFlush() {
    return std::make_shared<DelayedFlush>(
        [this](std::function<void()> task) { tasks.push_back(std::move(task)); },
        [] { return false; });
  }

  // What is to be run later.
  std::vector<std::function<void()>> tasks;

 private:
  static std::vector<std::string> offers(AtomicFile& file, bool accept, std::size_t limit) {
    std::vector<std::string> offered;
    file.offerOldContent(limit, [&](const std::string& content) {
      offered.push_back(content);
      return accept;
    });
    return offered;
  }
};

// Changing places.

TEST_F(AtomicFilePosixTest, TwoFilesChangePlaces) {
  const auto file = openFile();
  replace(*file, "1");
  EXPECT_THAT(itemsBelow(), ElementsAre("place", "place/file"));
  const ino_t first = inode(kFile);
  replace(*file, "2");
  const ino_t second = inode(kFile);

  EXPECT_NE(first, second);
  EXPECT_EQ(first, inode(kSpare));
  for (int round = 0; round < 3; ++round) {
    replace(*file, "odd");
    EXPECT_EQ(first, inode(kFile));
    EXPECT_EQ(second, inode(kSpare));
    replace(*file, "even");
    EXPECT_EQ(second, inode(kFile));
    EXPECT_EQ(first, inode(kSpare));
  }
  EXPECT_EQ("odd", contents(kSpare));
  EXPECT_EQ(0600u, mode(kFile));
  EXPECT_EQ(0600u, mode(kSpare));
  expectTheTwoFilesAlone();
}

TEST_F(AtomicFilePosixTest, ALongContentThatShrinksLeavesNoBytesBehind) {
  const auto file = openFile();
  replace(*file, std::string(100'000, 'a'));
  replace(*file, std::string(200'000, 'b'));

  replace(*file, "short");
  replace(*file, "");

  EXPECT_EQ(0, factsOf(kFile).st_size);
  EXPECT_EQ(5, factsOf(kSpare).st_size);
}

TEST_F(AtomicFilePosixTest, ItKeepsNoMoreFilesOpenFromReplacementToReplacementAndNoneWhenItGoes) {
  put(kFile, "old");
  put(kSpare, "older");
  const std::size_t before = openDescriptors();
  auto file = openUsedFile();
  const std::size_t inUse = openDescriptors();

  replaceSome(*file);
  FileDescriptor reader = openPlainFile(path(kFile));
  replaceSome(*file);

  EXPECT_EQ(inUse + 1, openDescriptors());
  reader.close();
  file = nullptr;
  EXPECT_EQ(before, openDescriptors());
}

TEST_F(AtomicFilePosixTest, TheNextObjectGoesOnWithTheSameTwoFiles) {
  auto file = openUsedFile();
  const ino_t inPlace = inode(kFile);
  const ino_t spare = inode(kSpare);

  file = nullptr;
  file = openFile();
  offeredAndDeclined(*file);
  replace(*file, "1");

  EXPECT_EQ(spare, inode(kFile));
  EXPECT_EQ(inPlace, inode(kSpare));
  replaceSome(*file);
  expectTheTwoFilesAlone();
}

TEST_F(AtomicFilePosixTest, AContentPutInPlaceByAnExchangeIsFlushedLaterAndAFailedOneIsNot) {
  const auto file = openFile(collectingFlush());

  replaceSome(*file);

  ASSERT_EQ(1u, tasks.size());
  tasks[0]();
  replace(*file, "next");
  EXPECT_EQ(2u, tasks.size());
  tasks[1]();
  std::filesystem::remove_all(path("place"));
  EXPECT_FALSE(file->replace("1", {}, nullptr));
  EXPECT_EQ(2u, tasks.size());
}

// Readers.

TEST_F(AtomicFilePosixTest, AFileThatIsOpenForWritingElsewhereIsNotUsedAgain) {
  const auto file = openUsedFile();
  const FileDescriptor writer(open(path(kSpare).c_str(), O_WRONLY | O_CLOEXEC));
  const ino_t written = inode(kSpare);

  replace(*file, "1");

  EXPECT_NE(written, inode(kFile));
}

TEST_F(AtomicFilePosixTest, ReplacingGoesOnWithManyReadersAtManyContents) {
  std::vector<FileDescriptor> readers;
  std::vector<std::string> written;
  const auto file = openFile();

  for (int round = 0; round < 30; ++round) {
    written.push_back("head" + std::string(static_cast<std::size_t>(round * 7 % 50), 'x') +
                      std::to_string(round));
    replace(*file, written.back(), round == 0 ? 0 : 4);
    readers.push_back(openPlainFile(path(kFile)));
  }

  for (std::size_t at = 0; at < written.size(); ++at) {
    EXPECT_EQ(written[at], readToEnd(readers[at].get(), kLimit));
  }
}

class AtomicFilePosixReaderTest : public AtomicFilePosixTest {
 protected:
  static constexpr int kReplacements = 20'000;

  // Replaces again and again while another thread reads, which must never miss a content or see a
  // torn one.
  void expectWholeContents(const std::function<std::optional<std::string>()>& read) {
    const auto file = openFile();
    ASSERT_TRUE(file->replace(numberedContent(0), {}, nullptr));
    int missed = 0;
    int torn = 0;
    int failures = 0;
    std::atomic<bool> isOver{false};
    std::latch ready(2);
    std::thread reader([&] {
      ready.arrive_and_wait();
      do {
        const std::optional<std::string> content = read();
        if (!content) {
          ++missed;
        } else if (!isWhole(*content)) {
          ++torn;
        }
      } while (!isOver.load());
    });
    ready.arrive_and_wait();
    for (int round = 1; round <= kReplacements; ++round) {
      if (!file->replace(numberedContent(round), {kHead}, nullptr)) ++failures;
    }
    isOver.store(true);
    reader.join();

    EXPECT_EQ(numberedContent(kReplacements), contents(kFile));
    EXPECT_EQ(0, missed);
    EXPECT_EQ(0, torn);
    EXPECT_EQ(0, failures);
  }
};

TEST_F(AtomicFilePosixReaderTest, AReaderSeesWholeContentsWhileTheyAreReplaced) {
  expectWholeContents([this]() -> std::optional<std::string> {
    const FileDescriptor file(open(path(kFile).c_str(), O_RDONLY | O_CLOEXEC));
    return file ? readToEnd(file.get(), kLimit) : std::nullopt;
  });
}

TEST_F(AtomicFilePosixReaderTest, AReaderOfTheLibraryMissesNoContentWhileTheyAreReplaced) {
  expectWholeContents([this] { return files.read(path(kFile), kLimit, nullptr); });
}

TEST_F(AtomicFilePosixReaderTest, TheNextProcessIsOfferedAWholeContentWhileTheyAreReplaced) {
  expectWholeContents([this]() -> std::optional<std::string> {
    const auto offers = offeredAndAccepted(*openFile());
    return offers.empty() ? std::nullopt : std::optional(offers.back());
  });
}

// What a writer does to the spare file for a few microseconds, and to the file in place when the
// two change places in the very moment in which a reader opens it.
TEST_F(AtomicFilePosixTest, AReaderOfTheLibraryWaitsForAWriterThatHasTheFileForItself) {
  put(kFile, "content");
  const UrgentSignal leftAlone(SIG_DFL);
  const FileDescriptor writer(open(path(kFile).c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(0, fcntl(writer.get(), F_SETSIG, SIGURG));
  ASSERT_EQ(0, fcntl(writer.get(), F_SETLEASE, F_WRLCK));
  std::optional<std::string> read;

  std::thread reader([&] { read = files.read(path(kFile), kLimit, nullptr); });
  while (fcntl(writer.get(), F_GETLEASE) == F_WRLCK) std::this_thread::yield();
  fcntl(writer.get(), F_SETLEASE, F_UNLCK);
  reader.join();

  EXPECT_EQ("content", read);
}

// What must not be written to.

TEST_F(AtomicFilePosixTest, ASpareFileThatIsNotOursAloneIsNotWrittenTo) {
  constexpr uid_t kNobody = 65534;
  const std::string spare = path(kSpare);
  std::map<std::string, std::function<int()>> ways = {
      {"with another name", [&] { return link(spare.c_str(), path("other").c_str()); }},
      {"others may read it", [&] { return chmod(spare.c_str(), 0644); }},
  };
  if (geteuid() == 0) ways["another user's"] = [&] { return chown(spare.c_str(), kNobody, 0); };
  for (const auto& [what, happens] : ways) {
    SCOPED_TRACE(what);
    std::filesystem::remove(spare);
    put(kSpare, "kept");
    ASSERT_EQ(0, happens());
    const HeldItem before(spare);
    const auto file = openFile();
    offeredAndDeclined(*file);

    replaceSome(*file);

    EXPECT_EQ("kept", before.content());
    for (const char* name : {kFile, kSpare}) {
      EXPECT_NE(before.inode(), inode(name));
      EXPECT_EQ(0600u, mode(name));
      EXPECT_EQ(geteuid(), factsOf(name).st_uid);
    }
  }
}

TEST_F(AtomicFilePosixTest, AFileThatGetsAnotherNameMeanwhileIsNotWrittenTo) {
  for (const std::string name : {kSpare, kFile}) {
    const auto file = openFile();
    offeredAndDeclined(*file);
    replaceSome(*file);
    const std::string before = contents(name);
    ASSERT_EQ(0, link(path(name).c_str(), path("other").c_str()));

    replaceSome(*file);

    EXPECT_EQ(before, contents("other")) << name;
    unlinkItem("other");
  }
}

TEST_F(AtomicFilePosixTest, WhatALinkInTheSparePlaceLeadsToIsNotWrittenTo) {
  put("other", "kept");
  makeLink("other", kSpare);
  const auto file = openFile();
  offeredAndDeclined(*file);

  replaceSome(*file);
  EXPECT_TRUE(isPlainFile(kFile));
  EXPECT_TRUE(isPlainFile(kSpare));
  unlinkItem(kSpare);
  makeLink("other", kSpare);
  replaceSome(*file);

  EXPECT_EQ("kept", contents("other"));
}

TEST_F(AtomicFilePosixTest, APipeInTheSparePlaceIsNotWrittenToAndDoesNotHoldTheWriter) {
  ASSERT_EQ(0, mkfifo(path(kSpare).c_str(), 0600));
  const FileDescriptor reader(open(path(kSpare).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  const auto file = openFile();

  replaceSome(*file);

  char byte = 0;
  EXPECT_EQ(0, read(reader.get(), &byte, 1));
  EXPECT_TRUE(isPlainFile(kFile));
}

TEST_F(AtomicFilePosixTest, AFolderInTheSparePlaceStaysAndReplacingWorks) {
  makeFolder(kSpare);
  put(".spare/kept", "1");
  const auto file = openFile();

  replaceSome(*file);

  EXPECT_THAT(itemsBelow(), UnorderedElementsAre("place", "place/file", ".spare", ".spare/kept"));
  EXPECT_EQ("1", contents(".spare/kept"));
  std::filesystem::remove_all(path(kSpare));
  replaceSome(*file);
  const ino_t spare = inode(kSpare);
  replace(*file, "next");
  EXPECT_EQ(spare, inode(kFile));
}

// What may happen to the two.

TEST_F(AtomicFilePosixTest, FilesThatDisappearAreMadeAgain) {
  for (const std::vector<std::string>& gone :
       {std::vector<std::string>{kSpare}, {kFile}, {kFile, kSpare}}) {
    const auto file = openFile();
    offeredAndDeclined(*file);
    replaceSome(*file);
    for (const std::string& name : gone) unlinkItem(name);

    replaceFurther(*file);

    expectTheTwoFilesAlone();
  }
}

TEST_F(AtomicFilePosixTest, AFileThatAnotherTookThePlaceOfIsReplacedWhole) {
  for (const char* name : {kSpare, kFile}) {
    const auto file = openFile();
    offeredAndDeclined(*file);
    replaceSome(*file);
    ASSERT_TRUE(files.writeAtomically(path(name), "a strange content that is long",
                                      Durability::eventual, nullptr));

    replaceFurther(*file);
  }
}

TEST_F(AtomicFilePosixTest, WhatALinkInPlaceLeadsToIsNotWrittenTo) {
  put("other", "kept");
  const auto file = openUsedFile();
  unlinkItem(kFile);
  makeLink("../other", kFile);

  replaceFurther(*file);

  EXPECT_EQ("kept", contents("other"));
  EXPECT_TRUE(isPlainFile(kFile));
}

TEST_F(AtomicFilePosixTest, AFolderThatTakesThePlaceOfTheFileIsLaidAsideWithItsContents) {
  const auto file = openUsedFile();
  unlinkItem(kFile);
  makeFolder(kFile);
  put("place/file/kept", "1");

  replace(*file, "abXYZ", 2);
  replace(*file, "abXYZ1", 5);

  EXPECT_EQ("1", contents(std::string(kSpare) + "/kept"));
  std::filesystem::remove_all(path(kSpare));
  replaceFurther(*file);
}

TEST_F(AtomicFilePosixTest, WithoutAFolderForTheSpareFileReplacingWorks) {
  AtomicFilePosix file(files, path(kFile), path("late/.spare"), nullptr);
  replaceSome(file);
  EXPECT_THAT(itemsBelow(), ElementsAre("place", "place/file"));
  makeFolder("late");

  replaceSome(file);

  const ino_t spare = inode("late/.spare");
  replace(file, "next");
  EXPECT_EQ(spare, inode(kFile));
}

TEST_F(AtomicFilePosixTest, ContentsAreRightWhenAllFoldersComeBackOrOthersTakeTheirPlace) {
  AtomicFilePosix file(files, path("root/place/file"), path("root/.spare"), nullptr);
  const auto makeRoot = [&] { ASSERT_TRUE(files.createDirectory(path("root/place"), nullptr)); };
  const auto expectReplaced = [&](const std::string& content, std::size_t unchanged) {
    EXPECT_TRUE(file.replace(content, {unchanged}, nullptr)) << content;
    EXPECT_EQ(content, contents("root/place/file"));
  };
  makeRoot();
  expectReplaced("abc", 0);
  expectReplaced("abcdef", 3);

  renameItem("root", "gone");
  EXPECT_FALSE(file.replace("abXYZ", {2}, nullptr));
  EXPECT_FALSE(isThere("root"));
  renameItem("gone", "root");
  EXPECT_EQ("abcdef", contents("root/place/file"));
  expectReplaced("abcdefghi", 6);
  expectReplaced("abcdefghiJKL", 9);

  renameItem("root", "gone");
  makeRoot();
  expectReplaced("abXYZ", 2);
  expectReplaced("abXYZ1", 5);
  EXPECT_EQ("abcdefghiJKL", contents("gone/place/file"));

  std::filesystem::remove_all(path("root"));
  renameItem("gone", "root");
  expectReplaced("abXYZ12", 6);
  expectReplaced("abXYZ123", 7);
}

// Two objects for the same file.

TEST_F(AtomicFilePosixTest, TwoObjectsReplaceInTurnAndEveryContentIsRight) {
  const auto first = openFile();
  const auto second = openFile();

  for (int round = 0; round < 5; ++round) {
    const std::string number = std::to_string(round);
    replace(*first, "one-" + number, round == 0 ? 0 : 4);
    replace(*second, "other-" + number, round == 0 ? 0 : 6);
    replace(*first, "one-" + number + "-again", 5);
    replace(*second, "other-" + number + "-again", 7);
  }
}

TEST_F(AtomicFilePosixTest, TheSecondObjectLeavesTheSpareFileToTheFirst) {
  const auto older = openFile();
  const auto first = openFile();
  replaceSome(*first);
  const auto newer = openFile();
  const HeldItem spare(path(kSpare));
  const std::string before = spare.content();

  for (AtomicFile* const second : {older.get(), newer.get()}) {
    replaceSome(*second);

    EXPECT_EQ(before, spare.content());
    EXPECT_EQ(spare.inode(), inode(kSpare));
  }
}

TEST_F(AtomicFilePosixTest, OnceTheFirstObjectIsGoneTheSecondUsesTheSpareFile) {
  auto first = openFile();
  replaceSome(*first);
  const auto second = openFile();
  offeredAndDeclined(*second);
  replaceSome(*second);
  const ino_t spare = inode(kSpare);

  first = nullptr;
  replace(*second, "abXYZ", 2);

  EXPECT_EQ(spare, inode(kFile));
  replace(*second, "abXYZ1", 5);
  EXPECT_EQ(spare, inode(kSpare));
}

TEST_F(AtomicFilePosixTest, AChildOfTheGameDoesNotKeepTheTwoFilesFromChangingPlaces) {
  const auto file = openUsedFile();
  const BusyChild child([] { pause(); });
  {
    const FileDescriptor reader = openPlainFile(path(kSpare));
    replace(*file, "abXYZ", 2);
  }
  replace(*file, "abXYZ1", 5);
  const ino_t spare = inode(kSpare);

  replace(*file, "abXYZ12", 6);

  EXPECT_EQ(spare, inode(kFile));
}

// Old contents.

TEST_F(AtomicFilePosixTest, BothOldContentsAreOfferedOnceAsTheyWereWhateverWasReplacedSince) {
  put(kFile, "torn");
  put(kSpare, "whole");
  const auto file = openUsedFile();
  replaceSome(*file);

  EXPECT_THAT(offeredAndDeclined(*file), ElementsAre("torn", "whole"));
  EXPECT_THAT(offeredAndDeclined(*file), IsEmpty());
}

TEST_F(AtomicFilePosixTest, TheSpareContentIsOfferedWhenTheOneInPlaceIsDeclinedOrTooLong) {
  put(kFile, "12345");
  put(kSpare, "1234");

  EXPECT_THAT(offeredAndDeclined(*openFile()), ElementsAre("12345", "1234"));
  EXPECT_THAT(offeredAndAccepted(*openFile()), ElementsAre("12345"));
  EXPECT_THAT(offeredAndAccepted(*openFile(), 4), ElementsAre("1234"));
}

TEST_F(AtomicFilePosixTest, NothingIsOfferedWhenNothingIsInPlaceAndWhatWasKeptGoes) {
  put(kSpare, "left over");
  put(".spare.old", "old");

  EXPECT_THAT(offeredAndDeclined(*openFile()), IsEmpty());

  EXPECT_FALSE(isThere(".spare.old"));
}

TEST_F(AtomicFilePosixTest, ThePreviousContentIsWhatTheSpareFileOffers) {
  replaceSome(*openFile());
  ASSERT_EQ(0, truncate(path(kFile).c_str(), 1));

  EXPECT_THAT(offeredAndDeclined(*openFile()), ElementsAre("a", "ab"));
}

// Taking up what was there.

TEST_F(AtomicFilePosixTest, OfProcessesThatEndBeforeTheyAskTheFirstKeepsWhatItFound) {
  put(kFile, "old");
  replace(*openFile(), "1");
  EXPECT_EQ("old", contents(".spare.old"));
  replace(*openFile(), "2");

  EXPECT_THAT(offeredAndDeclined(*openFile()), ElementsAre("old", "2", "1"));
}

TEST_F(AtomicFilePosixTest, TheOldContentIsOfferedAgainWhenAProcessEndsWhileItTakesItUp) {
  put(kFile, "old");
  const pid_t taker = fork();
  if (taker == 0) {
    const auto file = openFile();
    file->offerOldContent(kLimit, [&](const std::string&) {
      _exit(file->replace("taken up in part", {}, nullptr) ? 0 : 1);
      return true;
    });
  }
  int status = -1;
  waitpid(taker, &status, 0);
  ASSERT_EQ(0, status);

  EXPECT_THAT(offeredAndAccepted(*openFile()), ElementsAre("old", "taken up in part"));
}

TEST_F(AtomicFilePosixTest, OnceItIsTakenUpTheOldContentIsGone) {
  put(kFile, "old");
  const auto file = openFile();
  replace(*file, "1");

  file->offerOldContent(kLimit, [&](const std::string&) {
    EXPECT_EQ("old", contents(".spare.old"));
    replace(*file, "2");
    EXPECT_EQ("old", contents(".spare.old"));
    return true;
  });
  replace(*file, "3");

  expectTheTwoFilesAlone();
}

TEST_F(AtomicFilePosixTest, WhatIsKeptIsOfferedFirstWhenTheProcessEndsBeforeItIsReleased) {
  auto file = openFile();
  replace(*file, "all");
  offeredAndAccepted(*file);
  file->keep();
  for (const char* content : {"1", "12"}) replace(*file, content);
  file = nullptr;

  EXPECT_THAT(offeredAndDeclined(*openFile()), ElementsAre("all", "12", "1"));
}

TEST_F(AtomicFilePosixTest, WhatSeveralKeepIsThereUntilAllHaveReleasedIt) {
  const auto file = openFile();
  replace(*file, "all");
  offeredAndAccepted(*file);
  file->keep();
  replace(*file, "1");
  file->keep();

  file->release();
  EXPECT_EQ("all", contents(".spare.old"));
  file->release();

  expectTheTwoFilesAlone();
}

TEST_F(AtomicFilePosixTest, TheOldContentIsKeptWhenWhatWasTakenUpCouldNotBeStored) {
  put(kFile, "old");
  const auto file = openFile();

  file->offerOldContent(kLimit, [&](const std::string&) {
    replace(*file, "1");
    const FileSizeLimited limited(16);
    EXPECT_FALSE(file->replace(std::string(100, 'x'), {}, nullptr));
    return true;
  });

  EXPECT_THAT(offeredAndDeclined(*openFile()), ElementsAre("old", "1", testing::_));
}

TEST_F(AtomicFilePosixTest, WhatIsTakenUpWithoutAReplacementIsNotKept) {
  put(kFile, "old");
  const auto file = openFile();

  offeredAndDeclined(*file);
  replace(*file, "1");

  EXPECT_FALSE(isThere(".spare.old"));
}

// No room.

TEST_F(AtomicFilePosixTest,
       AfterEachOfManyWritesThatStopHalfWayTheOldContentStaysAndTheNextIsRight) {
  const auto file = openFile();
  std::string last;

  for (int round = 0; round < 20; ++round) {
    {
      const FileSizeLimited limited(static_cast<rlim_t>(4096 + 100 * round));
      EXPECT_FALSE(file->replace(last + std::string(9000, 'x'), {last.size()}, nullptr));
    }
    EXPECT_EQ(last, contents(kFile));
    const std::size_t unchanged = round % 3 == 0 ? last.size() / 2 : last.size();
    last = last.substr(0, unchanged) + "round " + std::to_string(round);
    replace(*file, last, unchanged);
    if (round % 2 == 0) replace(*file, last, last.size());
  }
  expectTheTwoFilesAlone();
}

TEST_F(AtomicFilePosixTest, OnAFullDiskAContentThatNeedsNoMoreRoomIsReplaced) {
  const PrivateDisk disk(folder.path());
  if (!disk.isMounted()) GTEST_SKIP() << "no right to mount";
  makeFolder("place");
  const auto file = openUsedFile();
  disk.fill();

  replaceSome(*file);
}

// Preparing.

TEST_F(AtomicFilePosixTest, WhatWasPreparedIsWhatTheFirstReplacementPutsInPlace) {
  put(kFile, "old");
  const auto file = openFile();

  file->prepare();

  const ino_t spare = inode(kSpare);
  file->prepare();
  EXPECT_EQ(spare, inode(kSpare));
  EXPECT_EQ("old", contents(kFile));
  replace(*file, "new");
  EXPECT_EQ(spare, inode(kFile));
}

TEST_F(AtomicFilePosixTest, WhereNothingCanBePreparedTheFirstReplacementStillWorks) {
  makeFolder(kSpare);
  const auto file = openFile();

  file->prepare();

  replace(*file, "new");
}

// Another program opens the spare file for reading as fast as it can, which breaks leases with
// SIGURG. A process that leaves its signals alone survives, and a handler of its own does no harm.
TEST_F(AtomicFilePosixTest, ContentsAreRightWhileAnotherProgramOpensTheSpareFile) {
  const std::string spare = path(kSpare);
  const BusyChild other([&] { close(open(spare.c_str(), O_RDONLY | O_CLOEXEC)); });
  const sighandler_t ignoring = [](int) {};

  for (const sighandler_t handler : {SIG_DFL, ignoring}) {
    const UrgentSignal handled(handler);
    const auto file = openFile();
    int failures = 0;
    int wrong = 0;
    for (int round = 0; round < 500; ++round) {
      const std::string content = numberedContent(round);
      if (!file->replace(content, {round == 0 ? 0 : kHead}, nullptr)) ++failures;
      if (contents(kFile) != content) ++wrong;
    }

    EXPECT_EQ(0, failures);
    EXPECT_EQ(0, wrong);
  }
}

}  // namespace
}  // namespace zln
