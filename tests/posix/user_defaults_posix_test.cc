#include "platform/posix/user_defaults_posix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testkit/fake_files.h"
#include "tests/posix/flushed_files.h"
#include "tests/posix/folder_fixture.h"
#include "tests/support/sanitizers.h"

namespace zln {
namespace {

constexpr char kPath[] = "/config/com.example.game.plist";

std::string document(const std::string& root) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n" +
         root + "</plist>\n";
}

const std::string kKeyIsText =
    document("<dict>\n\t<key>key</key>\n\t<string>text</string>\n</dict>\n");

class UserDefaultsPosixTest : public testing::Test {
 protected:
  FakeFiles files;
  UserDefaultsPosix defaults{files, [] { return std::string(kPath); }};
};

TEST_F(UserDefaultsPosixTest, OnlySynchronizingAChangeMakesTheFile) {
  defaults.get("key", nullptr);
  defaults.synchronize();
  defaults.set("key", "text");
  EXPECT_FALSE(files.exists("/config"));

  EXPECT_TRUE(defaults.synchronize());
  EXPECT_TRUE(defaults.synchronize());

  EXPECT_EQ(kKeyIsText, files.contents(kPath));
  EXPECT_EQ(1u, files.writeCount(kPath));
}

TEST_F(UserDefaultsPosixTest, TheFileIsReadAtFirstUseAndNotAgain) {
  files.put(kPath, document("<dict>\n<key>key</key><string>first</string>\n</dict>\n"));
  const auto first = defaults.get("key", nullptr);
  files.put(kPath, document("<dict>\n<key>key</key><string>second</string>\n</dict>\n"));

  EXPECT_EQ(Value("first"), first);
  EXPECT_EQ(Value("first"), defaults.get("key", nullptr));
}

TEST_F(UserDefaultsPosixTest, ThePathIsAskedForOnce) {
  int asked = 0;
  UserDefaultsPosix counted(files, [&] {
    ++asked;
    return std::string(kPath);
  });
  EXPECT_EQ(0, asked);

  counted.get("key", nullptr);
  counted.set("key", "text");

  EXPECT_EQ(1, asked);
}

TEST_F(UserDefaultsPosixTest, ValuesOfOthersInTheFileAreKept) {
  files.put(kPath, document("<dict><key>other</key><integer>7</integer></dict>"));

  defaults.set("key", "text");
  defaults.synchronize();

  EXPECT_EQ(document("<dict>\n\t<key>key</key>\n\t<string>text</string>\n"
                     "\t<key>other</key>\n\t<integer>7</integer>\n</dict>\n"),
            files.contents(kPath));
}

TEST_F(UserDefaultsPosixTest, ABrokenFileCountsAsEmptyAndIsReplaced) {
  for (const char* broken :
       {"", "no property list", "<plist version=\"1.0\"><dict><key>key</key></dict>",
        "<plist version=\"1.0\"><string>key</string></plist>"}) {
    files.put(kPath, broken);
    UserDefaultsPosix next{files, [] { return std::string(kPath); }};

    EXPECT_EQ(std::nullopt, next.get("key", nullptr)) << broken;
    EXPECT_EQ(broken, files.contents(kPath));
    next.set("key", "text");
    EXPECT_TRUE(next.synchronize());
    EXPECT_EQ(kKeyIsText, files.contents(kPath));
  }
}

TEST_F(UserDefaultsPosixTest, SynchronizingWritesWhatCouldNotBeWrittenBefore) {
  files.failWrites();
  defaults.set("key", "text");

  EXPECT_FALSE(defaults.synchronize());
  files.failWrites(false);
  EXPECT_TRUE(defaults.synchronize());

  EXPECT_EQ(kKeyIsText, files.contents(kPath));
}

TEST_F(UserDefaultsPosixTest, AFileThatCannotBeReadStaysAndItsValuesCountOnceItCan) {
  const std::string stored =
      document("<dict>\n\t<key>key</key>\n\t<string>stored</string>\n</dict>\n");
  files.put(kPath, stored);
  files.failRead(kPath);
  Error error;

  EXPECT_EQ(std::nullopt, defaults.get("key", &error));
  EXPECT_EQ(
      "The file “com.example.game.plist” couldn’t be opened because you don’t have "
      "permission to view it.",
      error.localizedDescription);
  defaults.set("key", "text");
  defaults.set("new", "2");
  EXPECT_EQ(Value("text"), defaults.get("key", nullptr));
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(stored, files.contents(kPath));

  files.failRead(kPath, false);
  Error none;
  EXPECT_EQ(Value("stored"), defaults.get("key", &none));
  EXPECT_EQ(Error(), none);
  EXPECT_EQ(Value("2"), defaults.get("new", nullptr));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(document("<dict>\n\t<key>key</key>\n\t<string>stored</string>\n"
                     "\t<key>new</key>\n\t<string>2</string>\n</dict>\n"),
            files.contents(kPath));
}

TEST_F(UserDefaultsPosixTest, AFileOfMoreThanOneMegabyteCannotBeRead) {
  const std::string bytes = document("<dict><key>a</key><string>1</string></dict>\n");
  UserDefaultsPosix others{files, [] { return std::string("/larger"); }};
  Error error;

  files.put(kPath, bytes + std::string(1048576 - bytes.size(), '\n'));
  files.put("/larger", bytes + std::string(1048577 - bytes.size(), '\n'));

  EXPECT_EQ(Value("1"), defaults.get("a", nullptr));
  EXPECT_EQ(std::nullopt, others.get("a", &error));
  EXPECT_EQ(263, error.code);
}

TEST_F(UserDefaultsPosixTest, ValuesThatSeveralThreadsSetAreAllKept) {
  std::vector<std::thread> threads;
  for (const char* key : {"a", "b", "c", "d"}) {
    threads.emplace_back([this, key] {
      for (int round = 0; round < 20; ++round) {
        defaults.set(key, Number::int32(round));
        defaults.synchronize();
      }
    });
  }
  for (auto& thread : threads) thread.join();

  UserDefaultsPosix next{files, [] { return std::string(kPath); }};
  for (const char* key : {"a", "b", "c", "d"}) {
    EXPECT_EQ(Value(Number::int64(19)), next.get(key, nullptr)) << key;
  }
}

class UserDefaultsOnDiskTest : public FolderTest {};

TEST_F(UserDefaultsOnDiskTest, ADescriptorShortageCostsNoStoredValue) {
  if (kAddressSanitized) GTEST_SKIP() << "the sanitizer needs descriptors";
  put("game.plist", document("<dict><key>key</key><string>stored</string></dict>"));
  UserDefaultsPosix defaults{files, [this] { return path("game.plist"); }};
  {
    const NoMoreDescriptors none;
    EXPECT_EQ(std::nullopt, defaults.get("key", nullptr));
  }

  defaults.set("key", "fresh");
  EXPECT_TRUE(defaults.synchronize());

  EXPECT_EQ(Value("stored"), defaults.get("key", nullptr));
  EXPECT_EQ(document("<dict>\n\t<key>key</key>\n\t<string>stored</string>\n</dict>\n"),
            contents("game.plist"));
}

TEST_F(UserDefaultsOnDiskTest, WhatIsSynchronizedIsOnTheDisk) {
  UserDefaultsPosix defaults{files, [this] { return path("game.plist"); }};
  flushedFiles.clear();

  defaults.set("key", "text");
  EXPECT_THAT(flushedFiles, testing::IsEmpty());
  defaults.synchronize();

  EXPECT_THAT(flushedFiles, testing::SizeIs(2));
}

}  // namespace
}  // namespace zln
