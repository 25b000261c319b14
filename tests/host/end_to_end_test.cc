#include <sys/stat.h>
#include <sys/xattr.h>

#include <regex>
#include <string>

#include "tests/host/played_game.h"

namespace zln {
namespace {

class EndToEndTest : public PlayedGameTest {
 protected:
  static unsigned modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
    return status.st_mode & 0777u;
  }

  static std::string attributeOf(const std::string& path) {
    char value[64] = {};
    getxattr(path.c_str(), "user.xdg.robots.backup", value, sizeof value - 1);
    return value;
  }
};

TEST_F(EndToEndTest, FilesArePrivateToTheUserAndKeptOutOfBackups) {
  launchAndStart();
  waitForReports(1);

  for (const char* part : {"", "/reporting", "/data"}) {
    EXPECT_EQ(0700u, modeOf(folder() + part));
    EXPECT_EQ("false", attributeOf(folder() + part));
  }
  EXPECT_EQ(0600u, modeOf(folder() + "/reporting/reports.json"));
  EXPECT_EQ(0600u, modeOf(folder() + "/data/config.dat"));
  EXPECT_EQ(0600u, modeOf(home.path() + "/config/com.example.game.plist"));
}

TEST_F(EndToEndTest, LogLinesGoToTheErrorOutputInThePlatformsFormatOrToTheSink) {
  launch();
  tell("log to-stderr");
  tell("sink");
  const std::string answer = tell("log to-sink");

  EXPECT_TRUE(std::regex_match(
      game->errors(),
      std::regex(
          R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}[+-]\d{4} game\[\d+:\d+\] ZLN Session: to-stderr)"
          "\n")))
      << game->errors();
  EXPECT_EQ("sink: ZLN Session: to-sink\n", answer);
}

}  // namespace
}  // namespace zln
