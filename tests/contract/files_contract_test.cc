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

std::shared_ptr<AtomicFile> FilesContract::atomicFile(const std::string& relativePath) {
  return files.atomicFile(path(relativePath), path(".spare"));
}

void FilesContract::replace(AtomicFile& file, const std::string& content,
                            std::size_t unchangedPrefix) {
  EXPECT_TRUE(file.replace(content, unchangedPrefix, nullptr)) << content;
  EXPECT_EQ(content, read("file"));
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
      {"aaa", 0},      {"aaabbb", 3}, {"aaabbbccc", 6}, {"aaaXYZ", 3}, {"aaaXYZ", 0},
      {"aaaXYZ", 6},   {"aaaXY", 5},  {"aaa", 3},       {"a", 1},      {"aXYZ", 1},
      {"aXYZaXYZ", 4}, {"", 0},       {"a", 0}};
  for (const auto& [content, unchanged] : contents) replace(*file, content, unchanged);
}

TEST_P(FilesContract, WhatIsInPlaceAlreadyIsNotWrittenAgainUnlessItVanished) {
  const auto file = atomicFile("file");
  replace(*file, "abc");
  replace(*file, "abcd", 3);
  const std::size_t version = machine->version(path("file"));

  replace(*file, "abcd", 4);
  EXPECT_EQ(version, machine->version(path("file")));
  replace(*file, "abc", 3);
  EXPECT_NE(version, machine->version(path("file")));

  ASSERT_TRUE(files.remove(path("file"), nullptr));
  replace(*file, "abc", 3);
  replace(*file, "abcX", 3);
}

TEST_P(FilesContract, ReplacingInAMissingFolderFailsAndMakesNone) {
  const auto file = atomicFile("missing/file");

  EXPECT_FALSE(file->replace("1", 0, &error));

  EXPECT_EQ("NSCocoaErrorDomain 4: The folder “missing” doesn’t exist.", errorText());
  EXPECT_FALSE(files.exists(path("missing")));

  makeFolder("missing");
  EXPECT_TRUE(file->replace("2", 0, nullptr));
  EXPECT_EQ("2", read("missing/file"));
}

TEST_P(FilesContract, AfterAFailureUnchangedBytesAreThoseOfTheContentReplacedLast) {
  makeFolder("folder");
  const auto file = atomicFile("folder/file");
  file->replace("abc", 0, nullptr);
  file->replace("abcdef", 3, nullptr);
  files.remove(path("folder"), nullptr);
  EXPECT_FALSE(file->replace("abXYZ", 2, nullptr));
  EXPECT_FALSE(file->replace("a", 1, nullptr));
  EXPECT_FALSE(file->replace("abcdef", 6, nullptr));
  makeFolder("folder");

  EXPECT_TRUE(file->replace("abcdefghi", 6, nullptr));

  EXPECT_EQ("abcdefghi", read("folder/file"));
}

TEST_P(FilesContract, AFolderIsNotReplaced) {
  makeFolder("folder");
  makeFile("folder/kept", "1");
  const auto file = atomicFile("folder");

  EXPECT_FALSE(file->replace("2", 0, &error));

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(512, error.code);
  EXPECT_EQ("1", read("folder/kept"));
}

TEST_P(FilesContract, TheNextObjectKnowsNothingOfTheFirst) {
  replace(*atomicFile("file"), "abc");
  replace(*atomicFile("file"), "XYZdef");
  replace(*atomicFile("file"), "");
}

}  // namespace
}  // namespace zln
