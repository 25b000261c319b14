#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/contract/contracts.h"

namespace zln {

void FilesContract::makeFolder(const std::string& relativePath) {
  ASSERT_TRUE(files.createDirectory(path(relativePath), nullptr));
}

void FilesContract::makeFile(const std::string& relativePath, const std::string& bytes) {
  ASSERT_TRUE(files.writeAtomically(path(relativePath), bytes, Durability::eventual, nullptr));
}

std::optional<std::string> FilesContract::read(const std::string& relativePath, std::size_t limit) {
  return files.read(path(relativePath), limit, &error);
}

std::vector<std::string> FilesContract::visited(const std::string& relativePath) {
  std::vector<std::string> paths;
  files.enumerate(path(relativePath), [&](const std::string& item) { paths.push_back(item); });
  return paths;
}

std::string FilesContract::errorText() const {
  return error.domain + " " + std::to_string(error.code) + ": " +
         error.localizedDescription.value_or("(no text)");
}

std::unique_ptr<AtomicFile> FilesContract::atomicFile(const std::string& relativePath) {
  return files.atomicFile(path(relativePath), path(".spare"));
}

void FilesContract::replace(AtomicFile& file, const std::string& content,
                            AtomicFile::Unchanged unchanged) {
  EXPECT_TRUE(file.replace(content, unchanged, nullptr)) << content;
  EXPECT_EQ(content, read("file"));
}

std::vector<std::string> FilesContract::offered(AtomicFile& file, std::size_t limit) {
  std::vector<std::string> contents;
  file.offerOldContent(limit, [&](const std::string& content) {
    contents.push_back(content);
    return true;
  });
  return contents;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// Bytes that a text file could not have.
const std::string kAnyBytes("\0\xff\r\n\x80z", 6);

// Folders.

TEST_P(FilesContract, MakingAFolderMakesAllThatIsMissingAboveIt) {
  EXPECT_FALSE(files.exists(path("a")));

  EXPECT_TRUE(files.createDirectory(path("a/b/c"), nullptr));

  EXPECT_TRUE(files.exists(path("a")));
  EXPECT_THAT(visited(), ElementsAre("a", "a/b", "a/b/c"));
}

TEST_P(FilesContract, MakingAFolderThatIsThereIsASuccess) {
  makeFolder("a");
  makeFile("a/kept", "1");

  EXPECT_TRUE(files.createDirectory(path("a"), nullptr));

  EXPECT_EQ("1", read("a/kept"));
}

TEST_P(FilesContract, AFolderIsNotMadeInThePlaceOfAFileOrBelowIt) {
  makeFolder("folder");
  makeFile("folder/taken", "1");

  EXPECT_FALSE(files.createDirectory(path("folder/taken/below"), nullptr));
  EXPECT_FALSE(files.createDirectory(path("folder/taken"), &error));

  EXPECT_EQ(
      "NSCocoaErrorDomain 516: The file “taken” couldn’t be saved in the folder “folder” because "
      "a file with the same name already exists.",
      errorText());
  EXPECT_EQ("1", read("folder/taken"));
}

TEST_P(FilesContract, EveryItemIsVisitedOnceAndAFolderBeforeItsContents) {
  makeFolder("a/b");
  makeFile("a/b/deep", "1");
  makeFile("top", "2");
  makeFolder(".hidden");
  makeFile(".hidden/.file", "3");

  EXPECT_THAT(visited(),
              UnorderedElementsAre("a", "a/b", "a/b/deep", "top", ".hidden", ".hidden/.file"));
  EXPECT_THAT(visited("a"), ElementsAre("b", "b/deep"));
}

TEST_P(FilesContract, AFolderThatTheVisitRemovesIsNotEntered) {
  makeFolder("folder");
  makeFile("folder/file", "1");
  std::vector<std::string> paths;

  files.enumerate(path(""), [&](const std::string& relativePath) {
    paths.push_back(relativePath);
    files.remove(path(relativePath), nullptr);
  });

  EXPECT_THAT(paths, ElementsAre("folder"));
  EXPECT_FALSE(files.exists(path("folder")));
}

TEST_P(FilesContract, OnlyAFolderHasSomethingToVisit) {
  makeFile("file", "1");

  EXPECT_THAT(visited("missing"), IsEmpty());
  EXPECT_THAT(visited("file"), IsEmpty());
}

// Reading and writing.

TEST_P(FilesContract, AFileReadsAsItWasWrittenLast) {
  for (const std::string& bytes : {std::string("a long old content"), kAnyBytes, std::string()}) {
    EXPECT_TRUE(files.writeAtomically(path("file"), bytes, Durability::eventual, nullptr));

    EXPECT_TRUE(files.exists(path("file")));
    EXPECT_EQ(bytes, read("file"));
    EXPECT_THAT(visited(), ElementsAre("file"));
  }
}

TEST_P(FilesContract, WritingIntoAMissingFolderFailsAndMakesNone) {
  EXPECT_FALSE(files.writeAtomically(path("missing/file"), "1", Durability::eventual, nullptr));
  EXPECT_FALSE(files.writeAtomically(path("missing/file"), "1", Durability::eventual, &error));

  EXPECT_EQ("NSCocoaErrorDomain 4: The folder “missing” doesn’t exist.", errorText());
  EXPECT_FALSE(files.exists(path("missing")));
}

TEST_P(FilesContract, WritingInThePlaceOfAFolderFails) {
  makeFolder("above/folder");
  makeFile("above/folder/kept", "1");

  EXPECT_FALSE(files.writeAtomically(path("above/folder"), "2", Durability::eventual, &error));

  EXPECT_EQ("NSCocoaErrorDomain 512: The file “folder” couldn’t be saved in the folder “above”.",
            errorText());
  EXPECT_EQ("1", read("above/folder/kept"));
}

TEST_P(FilesContract, OnlyAFileUpToTheLimitReads) {
  makeFolder("folder");
  makeFile("file", "1234");

  EXPECT_EQ("1234", read("file", 4));
  EXPECT_EQ(std::nullopt, read("file", 3));
  EXPECT_EQ("NSCocoaErrorDomain 263: The file “file” couldn’t be opened because it is too large.",
            errorText());
  EXPECT_FALSE(isFileMissing(error));
  EXPECT_EQ(std::nullopt, read("folder"));
  EXPECT_TRUE(isFileMissing(error));
  EXPECT_EQ(std::nullopt, read("missing"));
  EXPECT_EQ(
      "NSCocoaErrorDomain 260: The file “missing” couldn’t be opened because there is no such file.",
      errorText());
  EXPECT_TRUE(isFileMissing(error));
}

// Removing, and the mark for backups.

TEST_P(FilesContract, RemovingAFileLeavesTheOthers) {
  makeFile("file", "1");
  makeFile("file2", "2");

  EXPECT_TRUE(files.remove(path("file"), nullptr));

  EXPECT_FALSE(files.exists(path("file")));
  EXPECT_THAT(visited(), ElementsAre("file2"));
}

TEST_P(FilesContract, RemovingAFolderRemovesItsContents) {
  makeFolder("a/b");
  makeFile("a/b/file", "1");
  makeFile("a/.hidden", "2");
  makeFile("ab", "3");

  EXPECT_TRUE(files.remove(path("a"), nullptr));

  EXPECT_THAT(visited(), ElementsAre("ab"));
}

TEST_P(FilesContract, RemovingAMissingItemFails) {
  EXPECT_FALSE(files.remove(path("missing"), nullptr));
  EXPECT_FALSE(files.remove(path("missing"), &error));

  EXPECT_EQ("NSCocoaErrorDomain 4: “missing” couldn’t be removed.", errorText());
}

TEST_P(FilesContract, OnlyAnExistingItemCanBeExcludedFromBackup) {
  makeFolder("folder");

  EXPECT_TRUE(files.excludeFromBackup(path("folder"), nullptr));
  EXPECT_FALSE(files.excludeFromBackup(path("missing"), nullptr));
  EXPECT_FALSE(files.excludeFromBackup(path("missing"), &error));

  EXPECT_EQ("NSCocoaErrorDomain 4: The file “missing” doesn’t exist.", errorText());
  EXPECT_THAT(visited(), ElementsAre("folder"));
}

// Atomic files.

TEST_P(FilesContract, AnAtomicFileIsNotThereBeforeItIsReplaced) {
  const auto file = atomicFile("file");
  EXPECT_THAT(visited(), IsEmpty());
  file->prepare();
  EXPECT_FALSE(files.exists(path("file")));

  replace(*file, "first");
}

TEST_P(FilesContract, EveryReplacedContentReadsWhole) {
  makeFile("file", "a long old content");
  const auto file = atomicFile("file");

  for (const std::string& content : {std::string("first"), std::string("2nd"),
                                     std::string("the third one"), kAnyBytes, std::string()}) {
    replace(*file, content);
  }
}

TEST_P(FilesContract, UnchangedBytesAtTheBeginningAreKept) {
  const auto file = atomicFile("file");
  replace(*file, "");

  const std::vector<std::pair<std::string, std::size_t>> contents = {
      {"aaa", 0},      {"aaabbb", 3}, {"aaabbbccc", 6}, {"aaaXYZ", 3}, {"aaaXYZ", 6},
      {"aaaXYZ", 6},   {"aaaXY", 5},  {"aaa", 3},       {"a", 1},      {"aXYZ", 1},
      {"aXYZaXYZ", 4}, {"", 0},       {"a", 0}};
  for (const auto& [content, head] : contents) replace(*file, content, {head});
}

TEST_P(FilesContract, UnchangedBytesAroundAChangeAreKept) {
  const auto file = atomicFile("file");
  std::string content = "0123456789";
  replace(*file, content);

  for (const std::size_t at : {2u, 3u, 7u, 3u, 9u, 0u}) {
    ++content[at];
    replace(*file, content, {at, content.size() - at - 1});
  }
}

TEST_P(FilesContract, UnchangedBytesAtTheEndCountBetweenContentsOfTheSameSizeAlone) {
  const auto file = atomicFile("file");
  const std::vector<std::pair<std::string, AtomicFile::Unchanged>> contents = {
      {"abcdef", {}},     {"abXdef", {2, 3}}, {"abXdefg", {6, 0}}, {"aYXdefg", {1, 5}},
      {"aYXdZ", {4, 0}},  {"aYXdZ", {5, 5}},  {"1YXdZ", {0, 4}},   {"1YXdef", {4, 0}},
      {"1YX2ef", {3, 2}}, {"1YX2e3", {5, 0}}};

  for (const auto& [content, unchanged] : contents) replace(*file, content, unchanged);
}

TEST_P(FilesContract, ReplacingInAMissingFolderFailsAndMakesNone) {
  const auto file = atomicFile("missing/file");

  EXPECT_FALSE(file->replace("1", {}, &error));

  EXPECT_EQ("NSCocoaErrorDomain 4: The folder “missing” doesn’t exist.", errorText());
  EXPECT_FALSE(files.exists(path("missing")));

  makeFolder("missing");
  EXPECT_TRUE(file->replace("2", {}, nullptr));
  EXPECT_EQ("2", read("missing/file"));
}

TEST_P(FilesContract, AfterAFailureUnchangedBytesAreThoseOfTheContentReplacedLast) {
  makeFolder("folder");
  const auto file = atomicFile("folder/file");
  file->replace("abc", {}, nullptr);
  file->replace("abcdef", {3}, nullptr);
  files.remove(path("folder"), nullptr);
  EXPECT_FALSE(file->replace("abXYZ", {2}, nullptr));
  EXPECT_FALSE(file->replace("a", {1}, nullptr));
  makeFolder("folder");

  EXPECT_TRUE(file->replace("abcdefghi", {6}, nullptr));

  EXPECT_EQ("abcdefghi", read("folder/file"));
}

TEST_P(FilesContract, AFolderIsNeitherReplacedNorOffered) {
  makeFolder("folder");
  makeFile("folder/kept", "1");
  const auto file = atomicFile("folder");

  EXPECT_FALSE(file->replace("2", {}, &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(512, error.code);
  EXPECT_EQ("1", read("folder/kept"));
  EXPECT_THAT(offered(*atomicFile("folder")), IsEmpty());
}

TEST_P(FilesContract, WhatWasInAFileIsOfferedAlthoughItWasReplacedSince) {
  makeFile("file", "old");
  const auto file = atomicFile("file");
  for (const std::string content : {"1", "22", "333", "4444"}) replace(*file, content);

  EXPECT_THAT(offered(*file), ElementsAre("old"));

  EXPECT_EQ("4444", read("file"));
  for (const std::string content : {"4444d", "4444e", "4444f"}) replace(*file, content, {4});
}

TEST_P(FilesContract, NothingIsOfferedWhereNoFileWas) {
  const auto file = atomicFile("file");
  replace(*file, "1");
  replace(*file, "2");

  EXPECT_THAT(offered(*file), IsEmpty());
}

TEST_P(FilesContract, OnlyAnOldContentUpToTheLimitIsOfferedAndOnlyOnce) {
  for (const std::string content : {"", "1234"}) {
    makeFile("file", content);
    const auto file = atomicFile("file");

    EXPECT_THAT(offered(*file, 4), ElementsAre(content));
    EXPECT_THAT(offered(*file, 4), IsEmpty());
  }
  makeFile("file", "12345");
  const auto file = atomicFile("file");

  EXPECT_THAT(offered(*file, 4), IsEmpty());
  EXPECT_THAT(offered(*file, 5), IsEmpty());
}

TEST_P(FilesContract, TheNextObjectIsOfferedWhatWasReplacedLast) {
  {
    const auto file = atomicFile("file");
    for (const std::string content : {"1", "22", "333"}) replace(*file, content);
  }

  EXPECT_THAT(offered(*atomicFile("file")), ElementsAre("333"));
}

}  // namespace
}  // namespace zln
