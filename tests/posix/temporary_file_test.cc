#include "platform/posix/temporary_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "tests/posix/folder_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class TemporaryFileTest : public FolderTest {
 protected:
  // A name that a process may have given to a file that it could not finish.
  static constexpr char kLeftOver[] = ".zln.dat.nosync.a1B2c3";

  // Another process that begins to write the file and never ends; returns once the file is there.
  pid_t startEndlessWriter() {
    int ready[2];
    EXPECT_EQ(0, pipe2(ready, O_CLOEXEC));
    const pid_t writer = fork();
    if (writer == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      TemporaryFile file(path("file"));
      const bool begun = file.create() == 0 && file.write("half of the con") == 0;
      if (begun) close(ready[1]);
      for (;;) pause();
    }
    close(ready[1]);
    char nothing = 0;
    EXPECT_EQ(0, read(ready[0], &nothing, 1));
    close(ready[0]);
    return writer;
  }
  static void kill(pid_t process) {
    ::kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
};

TEST_F(TemporaryFileTest, OneThatCannotBePutInPlaceGoes) {
  makeFolder("folder");
  {
    TemporaryFile file(path("folder"));
    ASSERT_EQ(0, file.create());

    EXPECT_EQ(EISDIR, file.putInPlace());
  }

  EXPECT_THAT(names(), ElementsAre("folder"));
}

TEST_F(TemporaryFileTest, OnceInPlaceTheFileIsLockedByNobody) {
  ASSERT_TRUE(files.writeAtomically(path("file"), "1", Durability::eventual, nullptr));

  const FileDescriptor other(open(path("file").c_str(), O_RDWR | O_CLOEXEC));

  EXPECT_EQ(0, flock(other.get(), LOCK_EX | LOCK_NB));
}

// Left-overs.

TEST_F(TemporaryFileTest, WhatKilledProcessesLeaveGoesWithTheNextWriteInTheFolder) {
  const std::vector<pid_t> writers = {startEndlessWriter(), startEndlessWriter()};
  for (const pid_t writer : writers) kill(writer);
  ASSERT_THAT(names(), SizeIs(2));

  EXPECT_TRUE(files.writeAtomically(path("other"), "1", Durability::eventual, nullptr));

  EXPECT_THAT(names(), ElementsAre("other"));
}

TEST_F(TemporaryFileTest, WhatAProcessIsStillWritingStays) {
  const pid_t writer = startEndlessWriter();
  const std::vector<std::string> written = names();
  ASSERT_THAT(written, SizeIs(1));

  EXPECT_TRUE(files.writeAtomically(path("file"), "1", Durability::eventual, nullptr));

  EXPECT_THAT(names(), UnorderedElementsAre("file", written[0]));
  EXPECT_EQ("half of the con", contents(written[0]));
  kill(writer);
}

TEST_F(TemporaryFileTest, LeftOversGoWhenAFileThatChangesPlacesIsOpened) {
  put(kLeftOver, "half of the con");

  const auto file = files.atomicFile(path("file"), path(".spare"));

  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(TemporaryFileTest, LeftOversGoBeforeTheWriteThatNeedsTheirRoom) {
  put(kLeftOver, "half of the con");

  makeFolder("folder");
  EXPECT_FALSE(files.writeAtomically(path("folder"), "1", Durability::eventual, nullptr));

  EXPECT_THAT(names(), ElementsAre("folder"));
}

TEST_F(TemporaryFileTest, FilesOfOtherNamesStay) {
  const std::vector<std::string> others = {
      ".zln.dat.nosync.",        ".zln.dat.nosync.a1B2c",  ".zln.dat.nosync.a1B2c34",
      "x.zln.dat.nosync.a1B2c3", ".dat.nosync2a1B.a1B2c3", "zln.dat.nosync.a1B2c3",
  };
  for (const std::string& name : others) put(name, "1");

  TemporaryFile::removeLeftOvers(path("file"));

  EXPECT_THAT(names(), testing::UnorderedElementsAreArray(others));
}

TEST_F(TemporaryFileTest, WhatIsNoPlainFileStays) {
  put("target", "1");
  ASSERT_EQ(0, symlink("target", path(".zln.dat.nosync.aaaaaa").c_str()));
  ASSERT_EQ(0, mkdir(path(".zln.dat.nosync.bbbbbb").c_str(), 0700));
  ASSERT_EQ(0, mkfifo(path(".zln.dat.nosync.cccccc").c_str(), 0600));

  TemporaryFile::removeLeftOvers(path("file"));

  EXPECT_THAT(names(), SizeIs(4));
  EXPECT_EQ("1", contents("target"));
}

TEST_F(TemporaryFileTest, NoWriteFailsWhileOthersRemoveLeftOvers) {
  std::atomic<bool> isOver{false};
  std::vector<std::thread> removers;
  for (int count = 0; count < 2; ++count) {
    removers.emplace_back([&] {
      while (!isOver) TemporaryFile::removeLeftOvers(path("file"));
    });
  }

  int failures = 0;
  int wrong = 0;
  for (int round = 0; round < 60; ++round) {
    const std::string content = std::to_string(round);
    if (!files.writeAtomically(path("file"), content, Durability::eventual, nullptr)) ++failures;
    if (contents("file") != content) ++wrong;
  }
  isOver = true;
  for (std::thread& remover : removers) remover.join();

  EXPECT_EQ(0, failures);
  EXPECT_EQ(0, wrong);
  EXPECT_THAT(names(), ElementsAre("file"));
}

}  // namespace
}  // namespace zln
