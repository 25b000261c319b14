#include "platform/posix/user_defaults_posix.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testkit/fake_files.h"

namespace zln {
namespace {

constexpr char kPath[] = "/config/com.example.game.plist";
constexpr char kDocumentHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr char kDocumentTail[] = "</plist>\n";

std::string document(const std::string& root) { return kDocumentHead + root + kDocumentTail; }

const std::string kKeyIsText =
    document("<dict>\n\t<key>key</key>\n\t<string>text</string>\n</dict>\n");

class UserDefaultsPosixTest : public testing::Test {
 protected:
  FakeFiles files;
  UserDefaultsPosix defaults{files, [] { return std::string(kPath); }};
};

TEST_F(UserDefaultsPosixTest, AFileOfMoreThanOneMegabyteCountsAsEmpty) {
  const std::string bytes = document("<dict><key>a</key><string>1</string></dict>\n");
  UserDefaultsPosix others{files, [] { return std::string("/larger"); }};

  files.put(kPath, bytes + std::string(1048576 - bytes.size(), '\n'));
  files.put("/larger", bytes + std::string(1048577 - bytes.size(), '\n'));

  EXPECT_EQ(Value("1"), defaults.get("a"));
  EXPECT_EQ(std::nullopt, others.get("a"));
}

TEST_F(UserDefaultsPosixTest, OnlyASetMakesTheFileAndOnlyOnce) {
  defaults.get("key");
  defaults.synchronize();
  EXPECT_FALSE(files.exists("/config"));

  defaults.set("key", "text");
  EXPECT_EQ(kKeyIsText, files.contents(kPath));
  defaults.synchronize();

  EXPECT_EQ(1u, files.writeCount(kPath));
}

TEST_F(UserDefaultsPosixTest, TheFileIsReadAtFirstUseAndNotAgain) {
  files.put(kPath, document("<dict>\n<key>key</key><string>first</string>\n</dict>\n"));
  const auto first = defaults.get("key");
  files.put(kPath, document("<dict>\n<key>key</key><string>second</string>\n</dict>\n"));

  EXPECT_EQ(Value("first"), first);
  EXPECT_EQ(Value("first"), defaults.get("key"));
}

TEST_F(UserDefaultsPosixTest, ThePathIsAskedForOnce) {
  int asked = 0;
  UserDefaultsPosix counted(files, [&] {
    ++asked;
    return std::string(kPath);
  });
  EXPECT_EQ(0, asked);

  counted.get("key");
  counted.set("key", "text");

  EXPECT_EQ(1, asked);
}

TEST_F(UserDefaultsPosixTest, ValuesOfOthersInTheFileAreKept) {
  files.put(kPath, document("<dict><key>other</key><integer>7</integer></dict>"));

  defaults.set("key", "text");

  EXPECT_EQ(document("<dict>\n\t<key>key</key>\n\t<string>text</string>\n"
                     "\t<key>other</key>\n\t<integer>7</integer>\n</dict>\n"),
            files.contents(kPath));
}

TEST_F(UserDefaultsPosixTest, ABrokenFileCountsAsEmptyAndIsReplacedByTheNextSet) {
  for (const char* broken :
       {"", "no property list", "<plist version=\"1.0\"><dict><key>key</key></dict>",
        "<plist version=\"1.0\"><string>key</string></plist>"}) {
    files.put(kPath, broken);
    UserDefaultsPosix next{files, [] { return std::string(kPath); }};

    EXPECT_EQ(std::nullopt, next.get("key")) << broken;
    EXPECT_EQ(broken, files.contents(kPath));
    next.set("key", "text");
    EXPECT_EQ(kKeyIsText, files.contents(kPath));
  }
}

TEST_F(UserDefaultsPosixTest, SynchronizingWritesWhatCouldNotBeWrittenBefore) {
  files.failWrites();
  defaults.set("key", "text");

  EXPECT_EQ(Value("text"), defaults.get("key"));
  EXPECT_FALSE(defaults.synchronize());
  files.failWrites(false);
  EXPECT_TRUE(defaults.synchronize());

  EXPECT_EQ(kKeyIsText, files.contents(kPath));
}

TEST_F(UserDefaultsPosixTest, ALaterSetWritesWhatAnEarlierOneCouldNot) {
  files.failWrites();
  defaults.set("one", "1");
  files.failWrites(false);

  defaults.set("two", "2");

  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(document("<dict>\n\t<key>one</key>\n\t<string>1</string>\n"
                     "\t<key>two</key>\n\t<string>2</string>\n</dict>\n"),
            files.contents(kPath));
}

TEST_F(UserDefaultsPosixTest, AValueThatAPropertyListCannotHoldIsNotKept) {
  defaults.set("key", "text");

  defaults.set("key", Null{});

  EXPECT_EQ(Value("text"), defaults.get("key"));
  EXPECT_TRUE(defaults.synchronize());
}

TEST_F(UserDefaultsPosixTest, ValuesThatSeveralThreadsSetAreAllKept) {
  std::vector<std::thread> threads;
  for (const char* key : {"a", "b", "c", "d"}) {
    threads.emplace_back([this, key] {
      for (int round = 0; round < 20; ++round) defaults.set(key, Number::int32(round));
    });
  }
  for (auto& thread : threads) thread.join();

  for (const char* key : {"a", "b", "c", "d"}) {
    EXPECT_EQ(Value(Number::int32(19)), defaults.get(key)) << key;
  }
}

}  // namespace
}  // namespace zln
