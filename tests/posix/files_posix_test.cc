#include "platform/posix/files_posix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/posix/flushed_files.h"
#include "tests/posix/folder_fixture.h"
#include "tests/support/sanitizers.h"

namespace zln {

std::vector<std::string> flushedFiles;
bool isDiskBroken = false;
std::function<void()> whileFlushing;

}  // namespace zln

extern "C" int fsync(int file) {
  const std::string link = "/proc/self/fd/" + std::to_string(file);
  zln::flushedFiles.push_back(std::filesystem::read_symlink(link));
  if (const auto step = std::exchange(zln::whileFlushing, nullptr)) step();
  if (zln::isDiskBroken) errno = EIO;
  return zln::isDiskBroken ? -1 : 0;
}

namespace zln {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

// Of the files that a test reads.
constexpr std::size_t kReadLimit = std::size_t{1} << 20;

// Takes from this thread the right of the superuser to do everything with files.
class OrdinaryUser {
 public:
  OrdinaryUser() : before_(static_cast<uid_t>(setfsuid(kNobody))) {}
  ~OrdinaryUser() { setfsuid(before_); }

 private:
  static constexpr uid_t kNobody = 65534;
  uid_t before_;
};

class FilesPosixTest : public FolderTest {
 protected:
  // What has happened in a watched folder, each with the name of the item.
  std::vector<std::pair<int, std::string>> eventsOf(int changes) {
    alignas(inotify_event) std::array<char, 4096> buffer;
    const ssize_t size = read(changes, buffer.data(), buffer.size());
    std::vector<std::pair<int, std::string>> events;
    for (ssize_t position = 0; position < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + position);
      events.emplace_back(static_cast<int>(event->mask), event->name);
      position += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    close(changes);
    return events;
  }

  // A chain of so many folders called "d", one in the other.
  void makeChain(int depth) {
    std::string deepest;
    for (int level = 0; level < depth; ++level) makeFolder(deepest += "d/");
  }

  // A folder with a file in it, and a link to the folder in another one.
  void makeFolderAndLinkToIt() {
    makeFolder("folder");
    put("folder/file", "1");
    makeFolder("other");
    makeLink("../folder", "other/link");
  }
};

TEST_F(FilesPosixTest, NewFoldersAndWrittenFilesBelongToTheUserAloneAndOldFoldersKeepTheirMode) {
  ASSERT_EQ(0, mkdir(path("old").c_str(), 0755));
  put("file", "old", 0644);

  EXPECT_TRUE(files.createDirectory(path("a/b"), nullptr));
  EXPECT_TRUE(files.createDirectory(path("old"), nullptr));
  EXPECT_TRUE(files.writeAtomically(path("file"), "1", Durability::eventual, nullptr));

  EXPECT_EQ(0700u, mode("a"));
  EXPECT_EQ(0700u, mode("a/b"));
  EXPECT_EQ(0755u, mode("old"));
  EXPECT_EQ(0600u, mode("file"));
}

TEST_F(FilesPosixTest, AFolderIsMadeBelowALinkToAFolder) {
  makeFolder("real");
  makeLink("real", "link");

  EXPECT_TRUE(files.createDirectory(path("link//a/"), nullptr));

  EXPECT_TRUE(isThere("real/a"));
}

TEST_F(FilesPosixTest, NoFolderIsMadeWhereALinkLeadsNowhereOrThePathIsEmpty) {
  makeLink("nowhere", "link");

  EXPECT_FALSE(files.createDirectory(path("link"), nullptr));
  EXPECT_FALSE(files.createDirectory(path("link/a"), nullptr));
  EXPECT_FALSE(files.createDirectory("", nullptr));
}

TEST_F(FilesPosixTest, WritingReplacesALinkAndNotItsTarget) {
  put("target", "kept");
  makeLink("target", "link");
  EXPECT_EQ("kept", files.read(path("link"), kReadLimit, nullptr));

  EXPECT_TRUE(files.writeAtomically(path("link"), "new", Durability::eventual, nullptr));

  EXPECT_EQ("kept", contents("target"));
  EXPECT_EQ("new", contents("link"));
}

TEST_F(FilesPosixTest, AFileIsWrittenBesideItsPlaceUnderAHiddenNameAndMovedThere) {
  const int changes = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_LE(0, inotify_add_watch(changes, folder.path().c_str(), IN_CREATE | IN_MOVE));

  ASSERT_TRUE(files.writeAtomically(path("file"), "1", Durability::eventual, nullptr));

  const auto events = eventsOf(changes);
  const auto hidden = MatchesRegex("\\.zln\\.dat\\.nosync\\.[A-Za-z0-9]{6}");
  ASSERT_THAT(events, ElementsAre(Pair(IN_CREATE, hidden), Pair(IN_MOVED_FROM, hidden),
                                  Pair(IN_MOVED_TO, "file")));
  EXPECT_EQ(events[0].second, events[1].second);
}

TEST_F(FilesPosixTest, ReadersSeeWholeContentsWhileSeveralWrite) {
  const std::string ones(200'000, '1');
  const std::string twos(300'000, '2');
  ASSERT_TRUE(files.writeAtomically(path("file"), ones, Durability::eventual, nullptr));
  std::atomic<int> failures{0};
  const auto writeMany = [&](const std::string& bytes) {
    for (int round = 0; round < 50; ++round) {
      if (!files.writeAtomically(path("file"), bytes, Durability::eventual, nullptr)) ++failures;
    }
  };
  std::thread first(writeMany, ones);
  std::thread second(writeMany, twos);

  int mixed = 0;
  for (int round = 0; round < 100; ++round) {
    const auto content = files.read(path("file"), kReadLimit, nullptr);
    if (content != ones && content != twos) ++mixed;
  }
  first.join();
  second.join();

  EXPECT_EQ(0, mixed);
  EXPECT_EQ(0, failures.load());
  EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(FilesPosixTest, APipeDoesNotBlockTheReader) {
  ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));

  EXPECT_EQ(std::nullopt, files.read(path("pipe"), kReadLimit, nullptr));
  EXPECT_THAT(visited(folder.path()), ElementsAre("pipe"));
  EXPECT_TRUE(files.remove(path("pipe"), nullptr));

  EXPECT_FALSE(isThere("pipe"));
}

TEST_F(FilesPosixTest, ADeviceDoesNotReadAndAFileThatDoesNotKnowItsSizeDoes) {
  EXPECT_EQ(std::nullopt, files.read("/dev/zero", kReadLimit, nullptr));
  EXPECT_THAT(files.read("/proc/self/status", kReadLimit, nullptr),
              testing::Optional(StartsWith("Name:")));
  EXPECT_EQ(std::nullopt, files.read("/proc/self/status", 4, nullptr));
}

TEST_F(FilesPosixTest, LinksAreVisitedAndNotFollowed) {
  makeFolderAndLinkToIt();

  EXPECT_THAT(visited(path("other")), ElementsAre("link"));
  EXPECT_THAT(visited(path("other/link")), IsEmpty());
}

TEST_F(FilesPosixTest, FoldersAreVisitedAndRemovedDownToTheLimitOfDepth) {
  Error error;
  makeChain(128);
  EXPECT_TRUE(files.remove(path("d"), nullptr));
  EXPECT_FALSE(isThere("d"));
  makeChain(200);

  EXPECT_THAT(visited(folder.path()), SizeIs(128));
  EXPECT_FALSE(files.remove(path("d"), &error));

  EXPECT_EQ(512, error.code);
}

TEST_F(FilesPosixTest, AFolderThatIsReplacedByALinkDuringTheVisitIsNotEntered) {
  makeFolder("elsewhere");
  put("elsewhere/file", "1");
  makeFolder("tree");
  makeFolder("tree/a");
  std::vector<std::string> paths;

  files.enumerate(path("tree"), [&](const std::string& relativePath) {
    paths.push_back(relativePath);
    ASSERT_EQ(0, rmdir(path("tree/a").c_str()));
    makeLink("../elsewhere", "tree/a");
  });

  EXPECT_THAT(paths, ElementsAre("a"));
}

TEST_F(FilesPosixTest, RemovingALinkOrItsFolderLeavesItsTarget) {
  makeFolderAndLinkToIt();
  makeLink("folder", "link");
  makeLink("nowhere", "lost");

  EXPECT_TRUE(files.remove(path("link"), nullptr));
  EXPECT_TRUE(files.remove(path("lost"), nullptr));
  EXPECT_TRUE(files.remove(path("other"), nullptr));

  EXPECT_THAT(visited(folder.path()), ElementsAre("folder", "folder/file"));
}

TEST_F(FilesPosixTest, NoOperationLeavesAFileOpen) {
  const std::size_t before = openDescriptors();

  files.createDirectory(path("a/b"), nullptr);
  files.writeAtomically(path("a/b/file"), "1", Durability::eventual, nullptr);
  files.writeAtomically(path("a/b"), "1", Durability::eventual, nullptr);
  files.read(path("a/b/file"), kReadLimit, nullptr);
  files.read(path("a/b"), kReadLimit, nullptr);
  visited(folder.path());
  files.excludeFromBackup(path("a"), nullptr);
  files.remove(path("a"), nullptr);

  EXPECT_EQ(before, openDescriptors());
}

TEST_F(FilesPosixTest, TheBackupMarkIsAnExtendedAttribute) {
  makeFolder("folder");

  ASSERT_TRUE(files.excludeFromBackup(path("folder"), nullptr));

  std::array<char, 16> value{};
  ASSERT_EQ(5, getxattr(path("folder").c_str(), "user.xdg.robots.backup", value.data(), 16));
  EXPECT_STREQ("false", value.data());
}

TEST_F(FilesPosixTest, APathWithAZeroByteOrThatIsTooLongLeadsNowhere) {
  put("file", "1");
  for (const std::string& broken :
       {path("file") + std::string("\0/x", 3), path(std::string(300, 'x'))}) {
    EXPECT_FALSE(files.exists(broken));
    EXPECT_EQ(std::nullopt, files.read(broken, kReadLimit, nullptr));
    EXPECT_FALSE(files.writeAtomically(broken, "2", Durability::eventual, nullptr));
    EXPECT_FALSE(files.createDirectory(broken, nullptr));
    EXPECT_FALSE(files.excludeFromBackup(broken, nullptr));
    EXPECT_FALSE(files.remove(broken, nullptr));
    EXPECT_EQ("1", contents("file"));
  }
  EXPECT_THAT(visited(folder.path() + std::string("\0", 1)), IsEmpty());
}

TEST_F(FilesPosixTest, AFileThatIsNotThereIsToldFromOneThatCannotBeRead) {
  put("file", "1234");
  put("secret", "1", 0000);
  ASSERT_EQ(0, chmod(folder.path().c_str(), 0711));
  makeLink("loop", "loop");
  const auto codeOf = [this](const std::string& item, std::size_t limit = kReadLimit) {
    Error error;
    EXPECT_EQ(std::nullopt, files.read(path(item), limit, &error)) << item;
    EXPECT_EQ("NSCocoaErrorDomain", error.domain);
    return error.code;
  };

  EXPECT_EQ(260, codeOf("missing"));
  EXPECT_EQ(260, codeOf("missing/file"));
  EXPECT_EQ(260, codeOf("file/below"));
  EXPECT_EQ(263, codeOf("file", 3));
  EXPECT_EQ(260, codeOf(""));
  EXPECT_EQ(260, codeOf("loop"));
  {
    const OrdinaryUser user;
    EXPECT_EQ(257, codeOf("secret"));
  }
  if (kAddressSanitized) GTEST_SKIP() << "the sanitizer needs descriptors";
  const NoMoreDescriptors none;
  EXPECT_EQ(256, codeOf("file"));
}

// The file before it has its name, so that the name never leads to a file without its bytes.
TEST_F(FilesPosixTest, ADurableWriteFlushesTheFileThenItsFolder) {
  flushedFiles.clear();

  EXPECT_TRUE(files.writeAtomically(path("file"), "1", Durability::immediate, nullptr));
  EXPECT_TRUE(files.writeAtomically(path("other"), "1", Durability::eventual, nullptr));

  EXPECT_THAT(flushedFiles, ElementsAre(StartsWith(path(".zln.dat.nosync.")), folder.path()));
}

TEST_F(FilesPosixTest, AFileIsInItsPlaceAlsoWhenTheDiskDoesNotConfirmIt) {
  isDiskBroken = true;
  EXPECT_FALSE(files.writeAtomically(path("file"), "1", Durability::immediate, nullptr));
  isDiskBroken = false;

  EXPECT_EQ("1", contents("file"));
}

TEST_F(FilesPosixTest, AnErrorNamesItemAndReason) {
  const auto noSuchFile =
      AllOf(StartsWith("0x"), EndsWith(" {Error Domain=NSPOSIXErrorDomain Code=2 \"No such file "
                                       "or directory\"}"));
  Error ofRemoval;
  Error ofWrite;

  EXPECT_FALSE(files.remove(path("reportingreports.json"), &ofRemoval));
  EXPECT_FALSE(files.writeAtomically(path("missing/file"), "1", Durability::eventual, &ofWrite));

  EXPECT_THAT(ofRemoval.userInfo, ElementsAre(Pair("NSUserStringVariant", "(\n    Remove\n)"),
                                              Pair("NSFilePath", path("reportingreports.json")),
                                              Pair("NSUnderlyingError", noSuchFile)));
  EXPECT_THAT(ofWrite.userInfo, ElementsAre(Pair("NSFilePath", path("missing/file")),
                                            Pair("NSUnderlyingError", noSuchFile)));
}

class FilesPosixPermissionTest : public FilesPosixTest {
 protected:
  // A folder with a file in it, which an ordinary user may read and not change.
  void SetUp() override {
    ASSERT_EQ(0, chmod(folder.path().c_str(), 0755));
    ASSERT_EQ(0, mkdir(path("locked").c_str(), 0755));
    put("locked/file", "old", 0644);
    if (geteuid() != 0) makeReadOnly();
  }
  void TearDown() override { chmod(path("locked").c_str(), 0755); }

  void makeReadOnly() { ASSERT_EQ(0, chmod(path("locked").c_str(), 0555)); }

  // Does it as an ordinary user and expects that it fails for lack of permission.
  void expectNotPermitted(const std::function<bool(Error*)>& operation) {
    Error error;
    bool done = true;
    {
      const OrdinaryUser user;
      done = operation(&error);
    }
    EXPECT_FALSE(done);
    EXPECT_EQ(513, error.code);
    EXPECT_THAT(namesIn(path("locked")), ElementsAre("file"));
    EXPECT_EQ("old", contents("locked/file"));
  }
};

TEST_F(FilesPosixPermissionTest, NothingChangesInAFolderOfAnotherUser) {
  expectNotPermitted([this](Error* error) {
    return files.writeAtomically(path("locked/file"), "new", Durability::eventual, error);
  });
  expectNotPermitted([this](Error* error) { return files.remove(path("locked/file"), error); });
  expectNotPermitted(
      [this](Error* error) { return files.createDirectory(path("locked/a/b"), error); });
}

}  // namespace
}  // namespace zln
