#include "platform/posix/files_posix.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/fsuid.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

#include "tests/contract/files_contract.h"
#include "tests/posix/mask_set.h"
#include "tests/support/file_size_limited.h"
#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

// Of the files that a test reads.
constexpr std::size_t kLimit = std::size_t{1} << 20;

class PosixFiles {
 public:
  Files& files() { return files_; }
  std::string root() { return folder_.path(); }

 private:
  TemporaryFolder folder_;
  FilesPosix files_{[] { return std::string("/unused"); }};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Posix, FilesContract, PosixFiles);

// Takes from this thread the right of the superuser to do everything with files.
class OrdinaryUser {
 public:
  OrdinaryUser() : before_(static_cast<uid_t>(setfsuid(kNobody))) {}
  ~OrdinaryUser() { setfsuid(before_); }

 private:
  static constexpr uid_t kNobody = 65534;
  uid_t before_;
};

class FilesPosixTest : public testing::Test {
 protected:
  std::string path(const std::string& relativePath) { return folder.path() + "/" + relativePath; }

  void put(const std::string& relativePath, const std::string& bytes) {
    std::ofstream(path(relativePath), std::ios::binary) << bytes;
  }

  std::string contents(const std::string& relativePath) {
    std::ifstream file(path(relativePath), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  // The permission bits of an item itself.
  mode_t mode(const std::string& relativePath) {
    struct stat facts {};
    EXPECT_EQ(0, lstat(path(relativePath).c_str(), &facts));
    return facts.st_mode & 07777;
  }

  bool isThere(const std::string& relativePath) {
    struct stat facts {};
    return lstat(path(relativePath).c_str(), &facts) == 0;
  }

  std::vector<std::string> namesIn(const std::string& folderPath) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folderPath)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  std::size_t openFiles() { return namesIn("/proc/self/fd").size(); }

  std::vector<std::string> visited(const std::string& folderPath) {
    std::vector<std::string> paths;
    files.enumerate(folderPath,
                    [&](const std::string& relativePath) { paths.push_back(relativePath); });
    return paths;
  }

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
    std::string deepest = folder.path();
    for (int level = 0; level < depth; ++level) {
      deepest += "/d";
      ASSERT_EQ(0, mkdir(deepest.c_str(), 0700));
    }
  }

  TemporaryFolder folder;
  FilesPosix files{[] { return std::string("/data/com.example.game"); }};
};

TEST_F(FilesPosixTest, TheProviderNamesTheFolderOfTheApplication) {
  EXPECT_EQ("/data/com.example.game", files.applicationSupportPath());
}

TEST_F(FilesPosixTest, NewFoldersBelongToTheUserAlone) {
  const MaskSet mask(0);

  EXPECT_TRUE(files.createDirectory(path("a/b"), nullptr));

  EXPECT_EQ(0700u, mode("a"));
  EXPECT_EQ(0700u, mode("a/b"));
}

TEST_F(FilesPosixTest, AnExistingFolderKeepsItsMode) {
  ASSERT_EQ(0, mkdir(path("a").c_str(), 0755));

  EXPECT_TRUE(files.createDirectory(path("a"), nullptr));

  EXPECT_EQ(0755u, mode("a"));
}

TEST_F(FilesPosixTest, AFolderPathMayHaveRepeatedAndTrailingSlashes) {
  EXPECT_TRUE(files.createDirectory(path("a//b/"), nullptr));

  EXPECT_TRUE(isThere("a/b"));
}

TEST_F(FilesPosixTest, AFolderIsMadeBelowALinkToAFolder) {
  ASSERT_EQ(0, mkdir(path("real").c_str(), 0700));
  ASSERT_EQ(0, symlink("real", path("link").c_str()));

  EXPECT_TRUE(files.createDirectory(path("link/a"), nullptr));

  EXPECT_TRUE(isThere("real/a"));
}

TEST_F(FilesPosixTest, NoFolderIsMadeWhereALinkLeadsNowhere) {
  ASSERT_EQ(0, symlink("nowhere", path("link").c_str()));

  EXPECT_FALSE(files.createDirectory(path("link"), nullptr));
  EXPECT_FALSE(files.createDirectory(path("link/a"), nullptr));
}

TEST_F(FilesPosixTest, AnEmptyPathIsNoFolder) { EXPECT_FALSE(files.createDirectory("", nullptr)); }

TEST_F(FilesPosixTest, NewFilesBelongToTheUserAlone) {
  const MaskSet mask(0);

  EXPECT_TRUE(files.writeAtomically(path("file"), "1", nullptr));

  EXPECT_EQ(0600u, mode("file"));
}

TEST_F(FilesPosixTest, AFileThatOthersCouldReadBelongsToTheUserAloneOnceWritten) {
  put("file", "old");
  ASSERT_EQ(0, chmod(path("file").c_str(), 0644));

  EXPECT_TRUE(files.writeAtomically(path("file"), "new", nullptr));

  EXPECT_EQ(0600u, mode("file"));
}

TEST_F(FilesPosixTest, WritingReplacesALinkAndNotItsTarget) {
  put("target", "kept");
  ASSERT_EQ(0, symlink("target", path("link").c_str()));

  EXPECT_TRUE(files.writeAtomically(path("link"), "new", nullptr));

  EXPECT_EQ("kept", contents("target"));
  EXPECT_EQ("new", contents("link"));
}

TEST_F(FilesPosixTest, AFileIsWrittenBesideItsPlaceUnderAHiddenNameAndMovedThere) {
  const int changes = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_LE(0, inotify_add_watch(changes, folder.path().c_str(), IN_CREATE | IN_MOVE));

  ASSERT_TRUE(files.writeAtomically(path("file"), "1", nullptr));

  const auto events = eventsOf(changes);
  ASSERT_THAT(events, SizeIs(3));
  EXPECT_EQ(IN_CREATE, events[0].first);
  EXPECT_THAT(events[0].second, testing::MatchesRegex("\\.zln\\.dat\\.nosync\\.[A-Za-z0-9]{6}"));
  EXPECT_EQ(IN_MOVED_FROM, events[1].first);
  EXPECT_EQ(events[0].second, events[1].second);
  EXPECT_EQ(IN_MOVED_TO, events[2].first);
  EXPECT_EQ("file", events[2].second);
}

TEST_F(FilesPosixTest, AFailedWriteLeavesTheOldFileAndNoTemporaryOne) {
  put("file", "old");
  Error error;
  bool written = true;
  {
    const FileSizeLimited limited(16);
    written = files.writeAtomically(path("file"), std::string(100, 'x'), &error);
  }

  EXPECT_FALSE(written);
  EXPECT_EQ(512, error.code);
  EXPECT_EQ("old", contents("file"));
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(FilesPosixTest, AFailedRenameLeavesNoTemporaryFile) {
  ASSERT_EQ(0, mkdir(path("folder").c_str(), 0700));

  EXPECT_FALSE(files.writeAtomically(path("folder"), "1", nullptr));

  EXPECT_THAT(namesIn(folder.path()), ElementsAre("folder"));
}

TEST_F(FilesPosixTest, ReadersSeeWholeContentsWhileSeveralWrite) {
  const std::string ones(200'000, '1');
  const std::string twos(300'000, '2');
  ASSERT_TRUE(files.writeAtomically(path("file"), ones, nullptr));
  std::atomic<int> failures{0};
  const auto writeMany = [&](const std::string& bytes) {
    for (int round = 0; round < 50; ++round) {
      if (!files.writeAtomically(path("file"), bytes, nullptr)) ++failures;
    }
  };
  std::thread first(writeMany, ones);
  std::thread second(writeMany, twos);

  int mixed = 0;
  for (int round = 0; round < 100; ++round) {
    const auto content = files.read(path("file"), kLimit);
    if (content != ones && content != twos) ++mixed;
  }
  first.join();
  second.join();

  EXPECT_EQ(0, mixed);
  EXPECT_EQ(0, failures.load());
  EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST_F(FilesPosixTest, APipeDoesNotReadAndDoesNotHoldTheReader) {
  ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));

  EXPECT_EQ(std::nullopt, files.read(path("pipe"), kLimit));
}

TEST_F(FilesPosixTest, ADeviceDoesNotRead) {
  EXPECT_EQ(std::nullopt, files.read("/dev/zero", kLimit));
}

TEST_F(FilesPosixTest, AFileBehindALinkReads) {
  put("target", "1");
  ASSERT_EQ(0, symlink("target", path("link").c_str()));

  EXPECT_EQ("1", files.read(path("link"), kLimit));
}

TEST_F(FilesPosixTest, AFileThatDoesNotKnowItsSizeReads) {
  EXPECT_THAT(files.read("/proc/self/status", kLimit), testing::Optional(StartsWith("Name:")));
}

TEST_F(FilesPosixTest, LinksAreVisitedAndNotFollowed) {
  ASSERT_EQ(0, mkdir(path("folder").c_str(), 0700));
  put("folder/file", "1");
  ASSERT_EQ(0, mkdir(path("other").c_str(), 0700));
  ASSERT_EQ(0, symlink("../folder", path("other/link").c_str()));

  EXPECT_THAT(visited(path("other")), ElementsAre("link"));
}

TEST_F(FilesPosixTest, ALinkInThePlaceOfTheFolderIsNotFollowed) {
  ASSERT_EQ(0, mkdir(path("folder").c_str(), 0700));
  put("folder/file", "1");
  ASSERT_EQ(0, symlink("folder", path("link").c_str()));

  EXPECT_THAT(visited(path("link")), IsEmpty());
}

TEST_F(FilesPosixTest, PipesAreVisitedAndDoNotHoldTheVisitor) {
  ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));

  EXPECT_THAT(visited(folder.path()), ElementsAre("pipe"));
}

TEST_F(FilesPosixTest, FoldersAreEnteredDownToTheLimitOfDepth) {
  makeChain(200);

  EXPECT_THAT(visited(folder.path()), SizeIs(128));
}

TEST_F(FilesPosixTest, AFolderThatIsReplacedByALinkDuringTheVisitIsNotEntered) {
  ASSERT_EQ(0, mkdir(path("elsewhere").c_str(), 0700));
  put("elsewhere/file", "1");
  ASSERT_EQ(0, mkdir(path("tree").c_str(), 0700));
  ASSERT_EQ(0, mkdir(path("tree/a").c_str(), 0700));
  std::vector<std::string> paths;

  files.enumerate(path("tree"), [&](const std::string& relativePath) {
    paths.push_back(relativePath);
    ASSERT_EQ(0, rmdir(path("tree/a").c_str()));
    ASSERT_EQ(0, symlink("../elsewhere", path("tree/a").c_str()));
  });

  EXPECT_THAT(paths, ElementsAre("a"));
}

TEST_F(FilesPosixTest, RemovingALinkLeavesItsTarget) {
  ASSERT_EQ(0, mkdir(path("folder").c_str(), 0700));
  put("folder/file", "1");
  ASSERT_EQ(0, symlink("folder", path("link").c_str()));

  EXPECT_TRUE(files.remove(path("link"), nullptr));

  EXPECT_FALSE(isThere("link"));
  EXPECT_TRUE(isThere("folder/file"));
}

TEST_F(FilesPosixTest, RemovingAFolderLeavesWhatItsLinksLeadTo) {
  ASSERT_EQ(0, mkdir(path("folder").c_str(), 0700));
  put("folder/file", "1");
  ASSERT_EQ(0, mkdir(path("other").c_str(), 0700));
  ASSERT_EQ(0, symlink("../folder", path("other/link").c_str()));

  EXPECT_TRUE(files.remove(path("other"), nullptr));

  EXPECT_FALSE(isThere("other"));
  EXPECT_TRUE(isThere("folder/file"));
}

TEST_F(FilesPosixTest, ALinkThatLeadsNowhereIsRemoved) {
  ASSERT_EQ(0, symlink("nowhere", path("link").c_str()));

  EXPECT_TRUE(files.remove(path("link"), nullptr));

  EXPECT_FALSE(isThere("link"));
}

TEST_F(FilesPosixTest, PipesAreRemoved) {
  ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));

  EXPECT_TRUE(files.remove(path("pipe"), nullptr));

  EXPECT_FALSE(isThere("pipe"));
}

TEST_F(FilesPosixTest, RemovingFailsBeyondTheLimitOfDepth) {
  makeChain(200);
  Error error;

  EXPECT_FALSE(files.remove(path("d"), &error));

  EXPECT_EQ(512, error.code);
}

TEST_F(FilesPosixTest, AFolderAtTheLimitOfDepthIsRemoved) {
  makeChain(128);

  EXPECT_TRUE(files.remove(path("d"), nullptr));

  EXPECT_FALSE(isThere("d"));
}

TEST_F(FilesPosixTest, NoOperationLeavesAFileOpen) {
  const std::size_t before = openFiles();

  files.createDirectory(path("a/b"), nullptr);
  files.writeAtomically(path("a/b/file"), "1", nullptr);
  files.writeAtomically(path("a/b"), "1", nullptr);
  files.read(path("a/b/file"), kLimit);
  files.read(path("a/b"), kLimit);
  visited(folder.path());
  files.excludeFromBackup(path("a"), nullptr);
  files.remove(path("a"), nullptr);

  EXPECT_EQ(before, openFiles());
}

TEST_F(FilesPosixTest, TheBackupMarkIsAnExtendedAttribute) {
  ASSERT_EQ(0, mkdir(path("folder").c_str(), 0700));

  ASSERT_TRUE(files.excludeFromBackup(path("folder"), nullptr));

  std::array<char, 16> value{};
  ASSERT_EQ(5, getxattr(path("folder").c_str(), "user.xdg.robots.backup", value.data(), 16));
  EXPECT_STREQ("false", value.data());
}

TEST_F(FilesPosixTest, APathWithAZeroByteLeadsNowhere) {
  put("file", "1");
  const std::string broken = path("file") + std::string("\0/x", 3);

  EXPECT_FALSE(files.exists(broken));
  EXPECT_EQ(std::nullopt, files.read(broken, kLimit));
  EXPECT_FALSE(files.writeAtomically(broken, "2", nullptr));
  EXPECT_FALSE(files.createDirectory(broken, nullptr));
  EXPECT_FALSE(files.excludeFromBackup(broken, nullptr));
  EXPECT_FALSE(files.remove(broken, nullptr));
  EXPECT_THAT(visited(folder.path() + std::string("\0", 1)), IsEmpty());
  EXPECT_EQ("1", contents("file"));
}

TEST_F(FilesPosixTest, APathThatIsTooLongFails) {
  const std::string name(300, 'x');

  EXPECT_FALSE(files.exists(path(name)));
  EXPECT_EQ(std::nullopt, files.read(path(name), kLimit));
  EXPECT_FALSE(files.writeAtomically(path(name), "1", nullptr));
  EXPECT_FALSE(files.createDirectory(path(name), nullptr));
  EXPECT_FALSE(files.remove(path(name), nullptr));
  EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(FilesPosixTest, TheErrorOfARemovalNamesItemAndReason) {
  Error error;

  EXPECT_FALSE(files.remove(path("reportingreports.json"), &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(4, error.code);
  EXPECT_EQ("“reportingreports.json” couldn’t be removed.", error.localizedDescription);
  EXPECT_THAT(
      error.userInfo,
      ElementsAre(Pair("NSUserStringVariant", "(\n    Remove\n)"),
                  Pair("NSFilePath", path("reportingreports.json")),
                  Pair("NSUnderlyingError",
                       AllOf(StartsWith("0x"), EndsWith(" {Error Domain=NSPOSIXErrorDomain Code=2 "
                                                        "\"No such file or directory\"}")))));
}

TEST_F(FilesPosixTest, TheErrorOfAWriteNamesItemAndReason) {
  Error error;

  EXPECT_FALSE(files.writeAtomically(path("missing/file"), "1", &error));

  EXPECT_THAT(
      error.userInfo,
      ElementsAre(Pair("NSFilePath", path("missing/file")),
                  Pair("NSUnderlyingError",
                       AllOf(StartsWith("0x"), EndsWith(" {Error Domain=NSPOSIXErrorDomain Code=2 "
                                                        "\"No such file or directory\"}")))));
}

class FilesPosixPermissionTest : public FilesPosixTest {
 protected:
  // A folder with a file in it, which an ordinary user may read and not change.
  void SetUp() override {
    ASSERT_EQ(0, chmod(folder.path().c_str(), 0755));
    ASSERT_EQ(0, mkdir(path("locked").c_str(), 0755));
    put("locked/file", "old");
    if (geteuid() != 0) makeReadOnly();
  }
  void TearDown() override { chmod(path("locked").c_str(), 0755); }

  void makeReadOnly() { ASSERT_EQ(0, chmod(path("locked").c_str(), 0555)); }

  Error error;
};

TEST_F(FilesPosixPermissionTest, WritingFails) {
  bool written = true;
  {
    const OrdinaryUser user;
    written = files.writeAtomically(path("locked/file"), "new", &error);
  }

  EXPECT_FALSE(written);
  EXPECT_EQ(513, error.code);
  EXPECT_EQ("You don’t have permission to save the file “file” in the folder “locked”.",
            error.localizedDescription);
  EXPECT_EQ("old", contents("locked/file"));
}

TEST_F(FilesPosixPermissionTest, RemovingFails) {
  bool removed = true;
  {
    const OrdinaryUser user;
    removed = files.remove(path("locked/file"), &error);
  }

  EXPECT_FALSE(removed);
  EXPECT_EQ(513, error.code);
  EXPECT_EQ("“file” couldn’t be removed because you don’t have permission to access it.",
            error.localizedDescription);
  EXPECT_EQ("old", contents("locked/file"));
}

TEST_F(FilesPosixPermissionTest, MakingAFolderFails) {
  bool made = true;
  {
    const OrdinaryUser user;
    made = files.createDirectory(path("locked/a/b"), &error);
  }

  EXPECT_FALSE(made);
  EXPECT_EQ(513, error.code);
  EXPECT_THAT(namesIn(path("locked")), ElementsAre("file"));
}

}  // namespace
}  // namespace zln
