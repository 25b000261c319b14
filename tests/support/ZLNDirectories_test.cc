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

class ZLNDirectoriesTest : public HostTest {
 protected:
  void SetUp() override { setLevel(5); }
};

TEST_F(ZLNDirectoriesTest, TheFoldersLieBelowTheApplicationsOwn) {
  EXPECT_EQ("/support/com.zelnor.sdk", ZLNDirectories::rootPath());
  EXPECT_EQ("/support/com.zelnor.sdk/reporting", ZLNDirectories::reportingPath());
  EXPECT_EQ("/support/com.zelnor.sdk/data", ZLNDirectories::dataPath());
}

TEST_F(ZLNDirectoriesTest, AFreshInstallationGetsAllThreeFolders) {
  ZLNDirectories::makeDirectories();

  EXPECT_TRUE(env.files.exists("/support"));
  EXPECT_TRUE(env.files.exists(kRoot));
  EXPECT_TRUE(env.files.exists(kReporting));
  EXPECT_TRUE(env.files.exists(kData));
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNDirectoriesTest, EachNewFolderIsKeptOutOfTheBackupAndNothingElse) {
  ZLNDirectories::makeDirectories();

  EXPECT_THAT(env.files.excluded(), ElementsAre(kRoot, kData, kReporting));
}

TEST_F(ZLNDirectoriesTest, FoldersThatExistAreLeftAsTheyAre) {
  env.files.makeFolder(kReporting);
  env.files.makeFolder(kData);

  ZLNDirectories::makeDirectories();

  EXPECT_THAT(env.files.excluded(), IsEmpty());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNDirectoriesTest, TheSecondRunTriesNothing) {
  ZLNDirectories::makeDirectories();
  for (const char* folder : {kRoot, kReporting, kData}) {
    env.files.failCreate(folder);
    env.files.failExclude(folder);
  }

  ZLNDirectories::makeDirectories();

  EXPECT_THAT(log().lines(), IsEmpty());
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
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNDirectoriesTest, EachFolderThatCannotBeMadeIsLoggedAndItsMarkingStillTried) {
  env.files.failCreate("/support");

  ZLNDirectories::makeDirectories();

  EXPECT_THAT(
      log().lines(),
      ElementsAre(
          "ZLN Session: unable to create root path!",
          "ZLN Session: Error: Unable to exclude directory from backup: Error "
          "Domain=NSCocoaErrorDomain Code=4 \"The file “com.zelnor.sdk” doesn’t exist.\" "
          "UserInfo={NSLocalizedDescription=The file “com.zelnor.sdk” doesn’t exist., "
          "NSFilePath=/support/com.zelnor.sdk, NSUnderlyingError=0x600003a1c2c0 {Error "
          "Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"}}",
          "ZLN Session: unable to create previews path!",
          "ZLN Session: Error: Unable to exclude directory from backup: Error "
          "Domain=NSCocoaErrorDomain Code=4 \"The file “reporting” doesn’t exist.\" "
          "UserInfo={NSLocalizedDescription=The file “reporting” doesn’t exist., "
          "NSFilePath=/support/com.zelnor.sdk/reporting, NSUnderlyingError=0x600003a1c2c0 "
          "{Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"}}",
          "ZLN Session: unable to create data path!",
          "ZLN Session: Error: Unable to exclude directory from backup: Error "
          "Domain=NSCocoaErrorDomain Code=4 \"The file “data” doesn’t exist.\" "
          "UserInfo={NSLocalizedDescription=The file “data” doesn’t exist., "
          "NSFilePath=/support/com.zelnor.sdk/data, NSUnderlyingError=0x600003a1c2c0 {Error "
          "Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"}}"));
}

TEST_F(ZLNDirectoriesTest, AReportingFolderThatCannotBeMadeIsCalledTheOneForPreviews) {
  env.files.failCreate(kReporting);

  ZLNDirectories::makeDirectories();

  ASSERT_EQ(2u, log().lines().size());
  EXPECT_EQ("ZLN Session: unable to create previews path!", log().lines()[0]);
  EXPECT_TRUE(env.files.exists(kData));
}

TEST_F(ZLNDirectoriesTest, AFolderThatCannotBeMarkedIsLoggedAndStays) {
  env.files.failExclude(kReporting);

  ZLNDirectories::makeDirectories();

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: Error: Unable to exclude directory from backup: Error "
                  "Domain=NSCocoaErrorDomain Code=513 \"You don’t have permission to save the "
                  "file “reporting” in the folder “com.zelnor.sdk”.\" "
                  "UserInfo={NSLocalizedDescription=You don’t have permission to save the file "
                  "“reporting” in the folder “com.zelnor.sdk”., "
                  "NSFilePath=/support/com.zelnor.sdk/reporting, "
                  "NSUnderlyingError=0x600003a1c2c0 {Error Domain=NSPOSIXErrorDomain Code=13 "
                  "\"Permission denied\"}}"));
  EXPECT_TRUE(env.files.exists(kReporting));
  EXPECT_THAT(env.files.excluded(), ElementsAre(kRoot, kData));
}

TEST_F(ZLNDirectoriesTest, FailuresAreErrors) {
  setLevel(0);
  env.files.failCreate("/support");

  ZLNDirectories::makeDirectories();

  EXPECT_EQ(6u, log().lines().size());
}

TEST_F(ZLNDirectoriesTest, ClearingAMissingFolderDoesNothing) {
  ZLNDirectories::clearFolder("/support/com.zelnor.sdk/reporting/");

  EXPECT_THAT(env.files.removed(), IsEmpty());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNDirectoriesTest, ClearingBothFoldersFailsForEachFileAndLeavesItThere) {
  setLevel(0);
  env.files.put("/support/com.zelnor.sdk/reporting/reports.json", "reports");
  env.files.put("/support/com.zelnor.sdk/data/config.dat", "config");

  ZLNDirectories::clear();

  EXPECT_THAT(
      log().lines(),
      ElementsAre(
          "ZLN Session: Failed to remove file /support/com.zelnor.sdk/reportingreports.json: "
          "Error Domain=NSCocoaErrorDomain Code=4 \"“reportingreports.json” couldn’t be "
          "removed.\" UserInfo={NSLocalizedDescription=“reportingreports.json” couldn’t be "
          "removed., NSUserStringVariant=(\n    Remove\n), "
          "NSFilePath=/support/com.zelnor.sdk/reportingreports.json, "
          "NSUnderlyingError=0x600003a1c2c0 {Error Domain=NSPOSIXErrorDomain Code=2 \"No such "
          "file or directory\"}}",
          "ZLN Session: Failed to remove file /support/com.zelnor.sdk/dataconfig.dat: Error "
          "Domain=NSCocoaErrorDomain Code=4 \"“dataconfig.dat” couldn’t be removed.\" "
          "UserInfo={NSLocalizedDescription=“dataconfig.dat” couldn’t be removed., "
          "NSUserStringVariant=(\n    Remove\n), "
          "NSFilePath=/support/com.zelnor.sdk/dataconfig.dat, NSUnderlyingError=0x600003a1c2c0 "
          "{Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"}}"));
  EXPECT_EQ("reports", env.files.contents("/support/com.zelnor.sdk/reporting/reports.json"));
  EXPECT_EQ("config", env.files.contents("/support/com.zelnor.sdk/data/config.dat"));
}

TEST_F(ZLNDirectoriesTest, ClearingGoesByTheJoinedTextWhateverItNames) {
  env.files.put("/support/com.zelnor.sdk/reporting/old", "inside");
  env.files.put("/support/com.zelnor.sdk/reportingold", "beside");

  ZLNDirectories::clear();

  EXPECT_THAT(env.files.removed(), ElementsAre("/support/com.zelnor.sdk/reportingold"));
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
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNDirectoriesTest, AnEntryThatCannotBeRemovedIsLoggedAndTheNextIsTried) {
  env.files.put("/folder/a", "1");
  env.files.put("/folder/b", "2");
  env.files.put("/folder/c", "3");
  env.files.failRemove("/folder/b");

  ZLNDirectories::clearFolder("/folder/");

  EXPECT_THAT(env.files.removed(), ElementsAre("/folder/a", "/folder/c"));
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: Failed to remove file /folder/b: Error "
                          "Domain=NSCocoaErrorDomain Code=513 \"“b” couldn’t be removed because "
                          "you don’t have permission to access it.\" "
                          "UserInfo={NSLocalizedDescription=“b” couldn’t be removed because you "
                          "don’t have permission to access it., NSUserStringVariant=(\n    "
                          "Remove\n), NSFilePath=/folder/b, NSUnderlyingError=0x600003a1c2c0 "
                          "{Error Domain=NSPOSIXErrorDomain Code=13 \"Permission denied\"}}"));
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
