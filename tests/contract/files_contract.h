#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/files.h"

namespace zln {

// What holds for every file system. A machine has `Files& files()` and `std::string root()`, the
// path of an empty folder of the test's own.
template <typename Machine>
class FilesContract : public testing::Test {
 protected:
  // Of the files that a test reads.
  static constexpr std::size_t kLimit = 1024;

  Files& files() { return machine_.files(); }
  std::string path(const std::string& relativePath) { return machine_.root() + "/" + relativePath; }

  void makeFolder(const std::string& relativePath) {
    ASSERT_TRUE(files().createDirectory(path(relativePath), nullptr));
  }

  void makeFile(const std::string& relativePath, const std::string& bytes) {
    ASSERT_TRUE(files().writeAtomically(path(relativePath), bytes, nullptr));
  }

  std::vector<std::string> visited(const std::string& folder) {
    std::vector<std::string> paths;
    files().enumerate(folder,
                      [&](const std::string& relativePath) { paths.push_back(relativePath); });
    return paths;
  }

 private:
  Machine machine_;
};

TYPED_TEST_SUITE_P(FilesContract);

TYPED_TEST_P(FilesContract, NothingExistsThatWasNotMade) {
  EXPECT_FALSE(this->files().exists(this->path("missing")));
}

TYPED_TEST_P(FilesContract, AFolderExistsOnceItIsMade) {
  EXPECT_TRUE(this->files().createDirectory(this->path("a"), nullptr));

  EXPECT_TRUE(this->files().exists(this->path("a")));
}

TYPED_TEST_P(FilesContract, MakingAFolderMakesAllThatIsMissingAboveIt) {
  EXPECT_TRUE(this->files().createDirectory(this->path("a/b/c"), nullptr));

  EXPECT_THAT(this->visited(this->path("")), testing::ElementsAre("a", "a/b", "a/b/c"));
}

TYPED_TEST_P(FilesContract, MakingAFolderThatIsThereIsASuccess) {
  this->makeFolder("a");
  this->makeFile("a/kept", "1");

  EXPECT_TRUE(this->files().createDirectory(this->path("a"), nullptr));

  EXPECT_EQ("1", this->files().read(this->path("a/kept"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AFolderIsNotMadeInThePlaceOfAFile) {
  this->makeFile("taken", "1");
  Error error;

  EXPECT_FALSE(this->files().createDirectory(this->path("taken"), &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(516, error.code);
  EXPECT_EQ("1", this->files().read(this->path("taken"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AFolderIsNotMadeBelowAFile) {
  this->makeFile("taken", "1");

  EXPECT_FALSE(this->files().createDirectory(this->path("taken/below"), nullptr));
}

TYPED_TEST_P(FilesContract, AFileReadsAsItWasWritten) {
  const std::string bytes("\0\xff\r\n\x80z", 6);

  EXPECT_TRUE(this->files().writeAtomically(this->path("file"), bytes, nullptr));

  EXPECT_EQ(bytes, this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AnEmptyFileIsPresent) {
  this->makeFile("empty", "");

  EXPECT_TRUE(this->files().exists(this->path("empty")));
  EXPECT_EQ("", this->files().read(this->path("empty"), this->kLimit));
}

TYPED_TEST_P(FilesContract, WritingReplacesTheOldContent) {
  this->makeFile("file", "a long old content");

  EXPECT_TRUE(this->files().writeAtomically(this->path("file"), "new", nullptr));

  EXPECT_EQ("new", this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, WritingLeavesNothingElseInTheFolder) {
  this->makeFile("file", "1");
  this->makeFile("file", "2");

  EXPECT_THAT(this->visited(this->path("")), testing::ElementsAre("file"));
}

TYPED_TEST_P(FilesContract, WritingIntoAMissingFolderFails) {
  Error error;

  EXPECT_FALSE(this->files().writeAtomically(this->path("missing/file"), "1", &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(4, error.code);
  EXPECT_EQ("The folder “missing” doesn’t exist.", error.localizedDescription);
  EXPECT_FALSE(this->files().exists(this->path("missing")));
}

TYPED_TEST_P(FilesContract, WritingInThePlaceOfAFolderFails) {
  this->makeFolder("folder");
  this->makeFile("folder/kept", "1");
  Error error;

  EXPECT_FALSE(this->files().writeAtomically(this->path("folder"), "2", &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(512, error.code);
  EXPECT_EQ("1", this->files().read(this->path("folder/kept"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AMissingFileDoesNotRead) {
  EXPECT_EQ(std::nullopt, this->files().read(this->path("missing"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AFolderDoesNotRead) {
  this->makeFolder("folder");

  EXPECT_EQ(std::nullopt, this->files().read(this->path("folder"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AFileUpToTheLimitReads) {
  this->makeFile("file", "1234");

  EXPECT_EQ("1234", this->files().read(this->path("file"), 4));
}

TYPED_TEST_P(FilesContract, AFileBeyondTheLimitDoesNotRead) {
  this->makeFile("file", "12345");

  EXPECT_EQ(std::nullopt, this->files().read(this->path("file"), 4));
}

TYPED_TEST_P(FilesContract, EveryItemIsVisitedOnce) {
  this->makeFolder("a/b");
  this->makeFile("a/b/deep", "1");
  this->makeFile("a/file", "2");
  this->makeFile("top", "3");

  EXPECT_THAT(this->visited(this->path("")),
              testing::UnorderedElementsAre("a", "a/b", "a/b/deep", "a/file", "top"));
}

TYPED_TEST_P(FilesContract, AFolderIsVisitedBeforeItsContents) {
  this->makeFolder("a/b");
  this->makeFile("a/b/file", "1");

  EXPECT_THAT(this->visited(this->path("")), testing::ElementsAre("a", "a/b", "a/b/file"));
}

TYPED_TEST_P(FilesContract, HiddenItemsAreVisited) {
  this->makeFolder(".folder");
  this->makeFile(".folder/.file", "1");

  EXPECT_THAT(this->visited(this->path("")), testing::ElementsAre(".folder", ".folder/.file"));
}

TYPED_TEST_P(FilesContract, AFolderThatTheVisitRemovesIsNotEntered) {
  this->makeFolder("folder");
  this->makeFile("folder/file", "1");
  std::vector<std::string> paths;

  this->files().enumerate(this->path(""), [&](const std::string& relativePath) {
    paths.push_back(relativePath);
    this->files().remove(this->path(relativePath), nullptr);
  });

  EXPECT_THAT(paths, testing::ElementsAre("folder"));
  EXPECT_FALSE(this->files().exists(this->path("folder")));
}

TYPED_TEST_P(FilesContract, AMissingFolderHasNothingToVisit) {
  EXPECT_THAT(this->visited(this->path("missing")), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, AFileHasNothingToVisit) {
  this->makeFile("file", "1");

  EXPECT_THAT(this->visited(this->path("file")), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, ARemovedFileIsGone) {
  this->makeFile("file", "1");

  EXPECT_TRUE(this->files().remove(this->path("file"), nullptr));

  EXPECT_FALSE(this->files().exists(this->path("file")));
}

TYPED_TEST_P(FilesContract, RemovingAFolderRemovesItsContents) {
  this->makeFolder("a/b");
  this->makeFile("a/b/file", "1");
  this->makeFile("a/.hidden", "2");

  EXPECT_TRUE(this->files().remove(this->path("a"), nullptr));

  EXPECT_THAT(this->visited(this->path("")), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, RemovingAMissingItemFails) {
  Error error;

  EXPECT_FALSE(this->files().remove(this->path("missing"), &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(4, error.code);
  EXPECT_EQ("“missing” couldn’t be removed.", error.localizedDescription);
}

TYPED_TEST_P(FilesContract, AnExistingItemCanBeExcludedFromBackup) {
  this->makeFolder("folder");

  EXPECT_TRUE(this->files().excludeFromBackup(this->path("folder"), nullptr));

  EXPECT_THAT(this->visited(this->path("")), testing::ElementsAre("folder"));
}

TYPED_TEST_P(FilesContract, AMissingItemCannotBeExcludedFromBackup) {
  Error error;

  EXPECT_FALSE(this->files().excludeFromBackup(this->path("missing"), &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(4, error.code);
  EXPECT_EQ("The file “missing” doesn’t exist.", error.localizedDescription);
}

REGISTER_TYPED_TEST_SUITE_P(
    FilesContract, NothingExistsThatWasNotMade, AFolderExistsOnceItIsMade,
    MakingAFolderMakesAllThatIsMissingAboveIt, MakingAFolderThatIsThereIsASuccess,
    AFolderIsNotMadeInThePlaceOfAFile, AFolderIsNotMadeBelowAFile, AFileReadsAsItWasWritten,
    AnEmptyFileIsPresent, WritingReplacesTheOldContent, WritingLeavesNothingElseInTheFolder,
    WritingIntoAMissingFolderFails, WritingInThePlaceOfAFolderFails, AMissingFileDoesNotRead,
    AFolderDoesNotRead, AFileUpToTheLimitReads, AFileBeyondTheLimitDoesNotRead,
    EveryItemIsVisitedOnce, AFolderIsVisitedBeforeItsContents, HiddenItemsAreVisited,
    AFolderThatTheVisitRemovesIsNotEntered, AMissingFolderHasNothingToVisit, AFileHasNothingToVisit,
    ARemovedFileIsGone, RemovingAFolderRemovesItsContents, RemovingAMissingItemFails,
    AnExistingItemCanBeExcludedFromBackup, AMissingItemCannotBeExcludedFromBackup);

}  // namespace zln
