#include "support/ZLNDirectories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRoot[] = "/support/com.zelnor.sdk";
constexpr char kReporting[] = "/support/com.zelnor.sdk/reporting";
constexpr char kData[] = "/support/com.zelnor.sdk/data";

std::string notExcluded(const std::string& name, const std::string& path) {
  const std::string text = "The file “" + name + "” doesn’t exist.";
  return "Error: Unable to exclude directory from backup: Error Domain=NSCocoaErrorDomain Code=4 "
         "\"" +
         text + "\" UserInfo={NSLocalizedDescription=" + text + ", NSFilePath=" + path +
         ", NSUnderlyingError=0x600003a1c2c0 {Error Domain=NSPOSIXErrorDomain Code=2 \"No such "
         "file or directory\"}}";
}

std::string notRemoved(const std::string& name) {
  const std::string text = "“" + name + "” couldn’t be removed.";
  return "Failed to remove file /support/com.zelnor.sdk/" + name +
         ": Error Domain=NSCocoaErrorDomain Code=4 \"" + text +
         "\" UserInfo={NSLocalizedDescription=" + text +
         ", NSUserStringVariant=(\n    Remove\n), NSFilePath=/support/com.zelnor.sdk/" + name +
         ", NSUnderlyingError=0x600003a1c2c0 {Error Domain=NSPOSIXErrorDomain Code=2 \"No such "
         "file or directory\"}}";
}

class ZLNDirectoriesTest : public HostTest {
 protected:
  ZLNDirectoriesTest() { setLevel(5); }
};

TEST_F(ZLNDirectoriesTest, TheFoldersLieBelowTheApplicationsOwn) {
  EXPECT_EQ("/support/com.zelnor.sdk", ZLNDirectories::rootPath());
  EXPECT_EQ("/support/com.zelnor.sdk/reporting", ZLNDirectories::reportingPath());
  EXPECT_EQ("/support/com.zelnor.sdk/data", ZLNDirectories::dataPath());
}

TEST_F(ZLNDirectoriesTest, AFreshInstallationGetsThreeFoldersThatAreKeptOutOfTheBackup) {
  ZLNDirectories::makeDirectories();

  for (const char* folder : {"/support", kRoot, kReporting, kData}) {
    EXPECT_TRUE(env.files.exists(folder)) << folder;
  }
  EXPECT_THAT(env.files.excluded(), ElementsAre(kRoot, kData, kReporting));
  expectLines({});
}

TEST_F(ZLNDirectoriesTest, FoldersThatExistAreLeftAsTheyAre) {
  env.files.makeFolder(kReporting);
  env.files.makeFolder(kData);
  for (const char* folder : {kRoot, kReporting, kData}) {
    env.files.failCreate(folder);
    env.files.failExclude(folder);
  }

  ZLNDirectories::makeDirectories();

  EXPECT_THAT(env.files.excluded(), IsEmpty());
  expectLines({});
}

TEST_F(ZLNDirectoriesTest, OnlyTheMissingFolderIsMadeAndMarked) {
  env.files.makeFolder(kReporting);

  ZLNDirectories::makeDirectories();

  EXPECT_TRUE(env.files.exists(kData));
  EXPECT_THAT(env.files.excluded(), ElementsAre(kData));
}

TEST_F(ZLNDirectoriesTest, AFileInAFoldersPlaceIsLeftAlone) {
  env.files.put(kData, "bytes");

  ZLNDirectories::makeDirectories();

  EXPECT_EQ("bytes", env.files.contents(kData));
  EXPECT_THAT(env.files.excluded(), ElementsAre(kReporting));
  expectLines({});
}

TEST_F(ZLNDirectoriesTest, EachFolderThatCannotBeMadeIsAnErrorAndItsMarkingStillTried) {
  setLevel(0);
  env.files.failCreate("/support");

  ZLNDirectories::makeDirectories();

  expectLines({"unable to create root path!",
               notExcluded("com.zelnor.sdk", "/support/com.zelnor.sdk"),
               "unable to create previews path!",
               notExcluded("reporting", "/support/com.zelnor.sdk/reporting"),
               "unable to create data path!", notExcluded("data", "/support/com.zelnor.sdk/data")});
}

TEST_F(ZLNDirectoriesTest, AReportingFolderThatCannotBeMadeKeepsNoOtherFromBeingMade) {
  env.files.failCreate(kReporting);

  ZLNDirectories::makeDirectories();

  expectLines({"unable to create previews path!",
               notExcluded("reporting", "/support/com.zelnor.sdk/reporting")});
  EXPECT_TRUE(env.files.exists(kData));
}

TEST_F(ZLNDirectoriesTest, AFolderThatCannotBeMarkedIsLoggedAndStays) {
  env.files.failExclude(kReporting);

  ZLNDirectories::makeDirectories();

  expectLines(
      {"Error: Unable to exclude directory from backup: Error Domain=NSCocoaErrorDomain "
       "Code=513 \"You don’t have permission to save the file “reporting” in the folder "
       "“com.zelnor.sdk”.\" UserInfo={NSLocalizedDescription=You don’t have permission "
       "to save the file “reporting” in the folder “com.zelnor.sdk”., "
       "NSFilePath=/support/com.zelnor.sdk/reporting, NSUnderlyingError=0x600003a1c2c0 "
       "{Error Domain=NSPOSIXErrorDomain Code=13 \"Permission denied\"}}"});
  EXPECT_TRUE(env.files.exists(kReporting));
  EXPECT_THAT(env.files.excluded(), ElementsAre(kRoot, kData));
}

TEST_F(ZLNDirectoriesTest, ClearingAMissingFolderDoesNothing) {
  ZLNDirectories::clearFolder("/support/com.zelnor.sdk/reporting/");

  EXPECT_THAT(env.files.removed(), IsEmpty());
  expectLines({});
}

// By the joined text, which names something else.
TEST_F(ZLNDirectoriesTest, ClearingBothFoldersFailsForEachFileAndLeavesItThere) {
  setLevel(0);
  env.files.put("/support/com.zelnor.sdk/reporting/reports.json", "reports");
  env.files.put("/support/com.zelnor.sdk/data/config.dat", "config");
  env.files.put("/support/com.zelnor.sdk/reporting/old", "inside");
  env.files.put("/support/com.zelnor.sdk/reportingold", "beside");

  ZLNDirectories::clear();

  expectLines({notRemoved("reportingreports.json"), notRemoved("dataconfig.dat")});
  EXPECT_THAT(env.files.removed(), ElementsAre("/support/com.zelnor.sdk/reportingold"));
  EXPECT_EQ("reports", env.files.contents("/support/com.zelnor.sdk/reporting/reports.json"));
  EXPECT_EQ("config", env.files.contents("/support/com.zelnor.sdk/data/config.dat"));
  EXPECT_EQ("inside", env.files.contents("/support/com.zelnor.sdk/reporting/old"));
}

TEST_F(ZLNDirectoriesTest, AFolderPathThatEndsInASeparatorIsCleared) {
  env.files.put("/folder/a", "1");
  env.files.put("/folder/sub/b", "2");
  env.files.put("/folder/sub/deep/c", "3");
  env.files.put("/folderbeside", "4");

  ZLNDirectories::clearFolder("/folder/");

  EXPECT_TRUE(env.files.exists("/folder"));
  EXPECT_FALSE(env.files.exists("/folder/a"));
  EXPECT_FALSE(env.files.exists("/folder/sub"));
  EXPECT_TRUE(env.files.exists("/folderbeside"));
  expectLines({});
}

TEST_F(ZLNDirectoriesTest, AnEntryThatCannotBeRemovedIsLoggedAndTheNextIsTried) {
  env.files.put("/folder/a", "1");
  env.files.put("/folder/b", "2");
  env.files.put("/folder/c", "3");
  env.files.failRemove("/folder/b");

  ZLNDirectories::clearFolder("/folder/");

  EXPECT_THAT(env.files.removed(), ElementsAre("/folder/a", "/folder/c"));
  expectLines(
      {"Failed to remove file /folder/b: Error Domain=NSCocoaErrorDomain Code=513 \"“b” "
       "couldn’t be removed because you don’t have permission to access it.\" "
       "UserInfo={NSLocalizedDescription=“b” couldn’t be removed because you don’t have "
       "permission to access it., NSUserStringVariant=(\n    Remove\n), "
       "NSFilePath=/folder/b, NSUnderlyingError=0x600003a1c2c0 {Error "
       "Domain=NSPOSIXErrorDomain Code=13 \"Permission denied\"}}"});
}

TEST_F(ZLNDirectoriesTest, WhatLiesInAFolderThatCannotBeRemovedIsTriedAsWell) {
  env.files.put("/folder/sub/free", "1");
  env.files.put("/folder/sub/kept", "2");
  env.files.failRemove("/folder/sub/kept");

  ZLNDirectories::clearFolder("/folder/");

  EXPECT_THAT(env.files.removed(), ElementsAre("/folder/sub/free"));
  EXPECT_EQ(2u, log().lines().size());
}

}  // namespace
}  // namespace zln
