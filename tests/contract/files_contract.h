#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
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

  std::unique_ptr<AtomicFile> atomicFile(const std::string& relativePath) {
    return files().atomicFile(path(relativePath), path(".spare"));
  }

  // What the file offers when the first offer is accepted.
  static std::vector<std::string> offered(AtomicFile& file, std::size_t limit = kLimit) {
    std::vector<std::string> contents;
    file.offerOldContent(limit, [&](const std::string& content) {
      contents.push_back(content);
      return true;
    });
    return contents;
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

// Atomic files.

TYPED_TEST_P(FilesContract, AnAtomicFileIsNotThereBeforeItIsReplaced) {
  const auto file = this->atomicFile("file");

  EXPECT_THAT(this->visited(this->path("")), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, TheFirstReplacementMakesTheFile) {
  const auto file = this->atomicFile("file");

  EXPECT_TRUE(file->replace("content", {}, nullptr));

  EXPECT_EQ("content", this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AReplacementPutsItsContentInPlaceOfAFileThatIsThere) {
  this->makeFile("file", "a long old content");
  const auto file = this->atomicFile("file");

  EXPECT_TRUE(file->replace("new", {}, nullptr));

  EXPECT_EQ("new", this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, EveryReplacedContentReadsWhole) {
  const auto file = this->atomicFile("file");

  for (const std::string content : {"first", "2nd", "the third one", "4", "fifth"}) {
    EXPECT_TRUE(file->replace(content, {}, nullptr));
    EXPECT_EQ(content, this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, AReplacedContentMayHaveAnyBytes) {
  const std::string bytes("\0\xff\r\n\x80z", 6);
  const auto file = this->atomicFile("file");

  EXPECT_TRUE(file->replace(bytes, {}, nullptr));

  EXPECT_EQ(bytes, this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, UnchangedBytesAreKept) {
  const auto file = this->atomicFile("file");
  file->replace("abcdef", {}, nullptr);

  for (const std::string content : {"abcXYZ", "abcdEF", "abc123", "abc456"}) {
    EXPECT_TRUE(file->replace(content, {3}, nullptr));
    EXPECT_EQ(content, this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, AContentGrowsBehindItsUnchangedBytes) {
  const auto file = this->atomicFile("file");
  file->replace("", {}, nullptr);
  std::string content;

  for (const char letter : {'a', 'b', 'c', 'd', 'e'}) {
    const std::size_t unchanged = content.size();
    content += std::string(3, letter);
    EXPECT_TRUE(file->replace(content, {unchanged}, nullptr));
    EXPECT_EQ(content, this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, AContentChangesBetweenItsUnchangedBytes) {
  const auto file = this->atomicFile("file");
  std::string content = "0123456789";
  file->replace(content, {}, nullptr);

  for (const std::size_t at : {2u, 3u, 7u, 3u, 9u, 0u}) {
    ++content[at];
    EXPECT_TRUE(file->replace(content, {at, content.size() - at - 1}, nullptr));
    EXPECT_EQ(content, this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, UnchangedBytesAtTheEndCountBetweenContentsOfTheSameSizeAlone) {
  const auto file = this->atomicFile("file");
  const std::vector<std::pair<std::string, AtomicFile::Unchanged>> contents = {
      {"abcdef", {}},     {"abXdef", {2, 3}}, {"abXdefg", {6, 0}}, {"aYXdefg", {1, 5}},
      {"aYXdZ", {4, 0}},  {"aYXdZ", {5, 5}},  {"1YXdZ", {0, 4}},   {"1YXdef", {4, 0}},
      {"1YX2ef", {3, 2}}, {"1YX2e3", {5, 0}}};

  for (const auto& [content, unchanged] : contents) {
    EXPECT_TRUE(file->replace(content, unchanged, nullptr));
    EXPECT_EQ(content, this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, AContentShrinksToItsUnchangedBytes) {
  const auto file = this->atomicFile("file");
  std::string content = "abcdefgh";
  file->replace(content, {}, nullptr);

  while (!content.empty()) {
    content.resize(content.size() - 2);
    EXPECT_TRUE(file->replace(content, {content.size()}, nullptr));
    EXPECT_EQ(content, this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, AContentThatIsUnchangedIsReplacedByItself) {
  const auto file = this->atomicFile("file");
  file->replace("content", {}, nullptr);

  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(file->replace("content", {7}, nullptr));
    EXPECT_EQ("content", this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, AContentThatShrankGrowsAgain) {
  const auto file = this->atomicFile("file");
  file->replace("abcdefgh", {}, nullptr);
  file->replace("abcdefgh", {8}, nullptr);
  file->replace("ab", {2}, nullptr);

  EXPECT_TRUE(file->replace("abXYZ", {2}, nullptr));

  EXPECT_EQ("abXYZ", this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AnEmptyContentMakesAnEmptyFile) {
  const auto file = this->atomicFile("file");
  file->replace("abc", {}, nullptr);
  file->replace("abc", {3}, nullptr);

  EXPECT_TRUE(file->replace("", {}, nullptr));

  EXPECT_EQ("", this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, ReplacingInAMissingFolderFailsAndMakesNone) {
  const auto file = this->atomicFile("missing/file");
  Error error;

  EXPECT_FALSE(file->replace("1", {}, &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(4, error.code);
  EXPECT_EQ("The folder “missing” doesn’t exist.", error.localizedDescription);
  EXPECT_FALSE(this->files().exists(this->path("missing")));
}

TYPED_TEST_P(FilesContract, ReplacingSucceedsOnceTheMissingFolderIsThere) {
  const auto file = this->atomicFile("folder/file");
  file->replace("1", {}, nullptr);
  this->makeFolder("folder");

  EXPECT_TRUE(file->replace("2", {}, nullptr));

  EXPECT_EQ("2", this->files().read(this->path("folder/file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AfterAFailureUnchangedBytesAreThoseOfTheContentReplacedLast) {
  this->makeFolder("folder");
  const auto file = this->atomicFile("folder/file");
  file->replace("abc", {}, nullptr);
  file->replace("abcdef", {3}, nullptr);
  this->files().remove(this->path("folder"), nullptr);
  EXPECT_FALSE(file->replace("abXYZ", {2}, nullptr));
  EXPECT_FALSE(file->replace("a", {1}, nullptr));
  this->makeFolder("folder");

  EXPECT_TRUE(file->replace("abcdefghi", {6}, nullptr));

  EXPECT_EQ("abcdefghi", this->files().read(this->path("folder/file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, AFolderIsNotReplaced) {
  this->makeFolder("folder");
  this->makeFile("folder/kept", "1");
  const auto file = this->atomicFile("folder");
  Error error;

  EXPECT_FALSE(file->replace("2", {}, &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(512, error.code);
  EXPECT_EQ("1", this->files().read(this->path("folder/kept"), this->kLimit));
}

TYPED_TEST_P(FilesContract, WhatStandsInAFileIsOfferedOnceItIsOpened) {
  this->makeFile("file", "old");
  const auto file = this->atomicFile("file");

  EXPECT_THAT(this->offered(*file), testing::ElementsAre("old"));
}

TYPED_TEST_P(FilesContract, WhatStoodInAFileIsOfferedAlthoughItWasReplacedSince) {
  this->makeFile("file", "old");
  const auto file = this->atomicFile("file");
  for (const std::string content : {"1", "22", "333", "4444"}) file->replace(content, {}, nullptr);

  EXPECT_THAT(this->offered(*file), testing::ElementsAre("old"));
  EXPECT_EQ("4444", this->files().read(this->path("file"), this->kLimit));
}

TYPED_TEST_P(FilesContract, NothingIsOfferedWhereNoFileWas) {
  const auto file = this->atomicFile("file");
  file->replace("1", {}, nullptr);
  file->replace("2", {}, nullptr);

  EXPECT_THAT(this->offered(*file), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, NothingIsOfferedWhereAFolderIs) {
  this->makeFolder("folder");
  const auto file = this->atomicFile("folder");

  EXPECT_THAT(this->offered(*file), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, AnEmptyOldContentIsOffered) {
  this->makeFile("file", "");
  const auto file = this->atomicFile("file");

  EXPECT_THAT(this->offered(*file), testing::ElementsAre(""));
}

TYPED_TEST_P(FilesContract, AnOldContentUpToTheLimitIsOffered) {
  this->makeFile("file", "1234");
  const auto file = this->atomicFile("file");

  EXPECT_THAT(this->offered(*file, 4), testing::ElementsAre("1234"));
}

TYPED_TEST_P(FilesContract, AnOldContentBeyondTheLimitIsPassedOver) {
  this->makeFile("file", "12345");
  const auto file = this->atomicFile("file");

  EXPECT_THAT(this->offered(*file, 4), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, AnOldContentIsOfferedOnceOnly) {
  this->makeFile("file", "old");
  const auto file = this->atomicFile("file");
  this->offered(*file);

  EXPECT_THAT(this->offered(*file), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, AnOldContentThatWasPassedOverIsNotOfferedAgain) {
  this->makeFile("file", "12345");
  const auto file = this->atomicFile("file");
  this->offered(*file, 4);

  EXPECT_THAT(this->offered(*file), testing::IsEmpty());
}

TYPED_TEST_P(FilesContract, AReplacementAfterTheOfferIsRight) {
  this->makeFile("file", "old");
  const auto file = this->atomicFile("file");
  file->replace("abc", {}, nullptr);
  this->offered(*file);

  for (const std::string content : {"abcd", "abce", "abcf"}) {
    EXPECT_TRUE(file->replace(content, {3}, nullptr));
    EXPECT_EQ(content, this->files().read(this->path("file"), this->kLimit));
  }
}

TYPED_TEST_P(FilesContract, TheNextObjectIsOfferedWhatWasReplacedLast) {
  {
    const auto file = this->atomicFile("file");
    for (const std::string content : {"1", "22", "333"}) file->replace(content, {}, nullptr);
  }

  const auto next = this->atomicFile("file");

  EXPECT_THAT(this->offered(*next), testing::ElementsAre("333"));
}

TYPED_TEST_P(FilesContract, PreparingShowsNothingInTheFile) {
  const auto file = this->atomicFile("file");

  file->prepare();

  EXPECT_FALSE(this->files().exists(this->path("file")));
  EXPECT_TRUE(file->replace("333", {}, nullptr));
  EXPECT_EQ("333", this->files().read(this->path("file"), this->kLimit));
}

REGISTER_TYPED_TEST_SUITE_P(
    FilesContract, PreparingShowsNothingInTheFile, NothingExistsThatWasNotMade,
    AFolderExistsOnceItIsMade, MakingAFolderMakesAllThatIsMissingAboveIt,
    MakingAFolderThatIsThereIsASuccess, AFolderIsNotMadeInThePlaceOfAFile,
    AFolderIsNotMadeBelowAFile, AFileReadsAsItWasWritten, AnEmptyFileIsPresent,
    WritingReplacesTheOldContent, WritingLeavesNothingElseInTheFolder,
    WritingIntoAMissingFolderFails, WritingInThePlaceOfAFolderFails, AMissingFileDoesNotRead,
    AFolderDoesNotRead, AFileUpToTheLimitReads, AFileBeyondTheLimitDoesNotRead,
    EveryItemIsVisitedOnce, AFolderIsVisitedBeforeItsContents, HiddenItemsAreVisited,
    AFolderThatTheVisitRemovesIsNotEntered, AMissingFolderHasNothingToVisit, AFileHasNothingToVisit,
    ARemovedFileIsGone, RemovingAFolderRemovesItsContents, RemovingAMissingItemFails,
    AnExistingItemCanBeExcludedFromBackup, AMissingItemCannotBeExcludedFromBackup,
    AnAtomicFileIsNotThereBeforeItIsReplaced, TheFirstReplacementMakesTheFile,
    AReplacementPutsItsContentInPlaceOfAFileThatIsThere, EveryReplacedContentReadsWhole,
    AReplacedContentMayHaveAnyBytes, UnchangedBytesAreKept, AContentGrowsBehindItsUnchangedBytes,
    AContentChangesBetweenItsUnchangedBytes,
    UnchangedBytesAtTheEndCountBetweenContentsOfTheSameSizeAlone,
    AContentShrinksToItsUnchangedBytes, AContentThatIsUnchangedIsReplacedByItself,
    AContentThatShrankGrowsAgain, AnEmptyContentMakesAnEmptyFile,
    ReplacingInAMissingFolderFailsAndMakesNone, ReplacingSucceedsOnceTheMissingFolderIsThere,
    AfterAFailureUnchangedBytesAreThoseOfTheContentReplacedLast, AFolderIsNotReplaced,
    WhatStandsInAFileIsOfferedOnceItIsOpened, WhatStoodInAFileIsOfferedAlthoughItWasReplacedSince,
    NothingIsOfferedWhereNoFileWas, NothingIsOfferedWhereAFolderIs, AnEmptyOldContentIsOffered,
    AnOldContentUpToTheLimitIsOffered, AnOldContentBeyondTheLimitIsPassedOver,
    AnOldContentIsOfferedOnceOnly, AnOldContentThatWasPassedOverIsNotOfferedAgain,
    AReplacementAfterTheOfferIsRight, TheNextObjectIsOfferedWhatWasReplacedLast);

}  // namespace zln
