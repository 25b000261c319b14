#include "platform/posix/log_sink_posix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "testkit/fake_clock.h"
#include "tests/support/environment_variable.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Adds a line to the vector that is its context.
void takeLine(const char* line, void* lines) {
  static_cast<std::vector<std::string>*>(lines)->emplace_back(line);
}

// "[123:4567] ", as this thread's lines carry it.
std::string numbers() {
  return "[" + std::to_string(getpid()) + ":" + std::to_string(gettid()) + "] ";
}

// A zone of the local time while it lives.
class LocalZone {
 public:
  explicit LocalZone(const std::string& zone) : variable_("TZ", zone) { tzset(); }

 private:
  EnvironmentVariable variable_;
};

class LogSinkPosixTest : public testing::Test {
 protected:
  // Keeps each write apart from the others.
  void SetUp() override { ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_.data())); }
  void TearDown() override {
    close(ends_[0]);
    close(ends_[1]);
  }

  int file() { return ends_[1]; }

  // What the writes since the last call wrote, each for itself.
  std::vector<std::string> writes() {
    std::vector<std::string> all;
    std::array<char, 65536> buffer;
    ssize_t size;
    while ((size = recv(ends_[0], buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
      all.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    }
    return all;
  }

  // The first 31 characters of the line that is written at this moment.
  std::string stampAt(double secondsSince1970) {
    clock.set(secondsSince1970);
    LogSinkPosix(clock, "App", file()).write("text");
    return writes().at(0).substr(0, 31);
  }

  FakeClock clock;
  LocalZone zone{"UTC0"};

 private:
  std::array<int, 2> ends_{};
};

TEST_F(LogSinkPosixTest, EachLineIsWrittenAtOnce) {
  clock.set(0);
  LogSinkPosix sink(clock, "App", file());
  const std::string large(40000, 'x');

  sink.write("a\nb");
  sink.write(large);

  EXPECT_THAT(writes(),
              ElementsAre("1970-01-01 00:00:00.000000+0000 App" + numbers() + "a\nb\n",
                          "1970-01-01 00:00:00.000000+0000 App" + numbers() + large + "\n"));
}

TEST_F(LogSinkPosixTest, TheStampIsInLocalTimeWithMicroseconds) {
  const struct {
    const char* zone;
    double secondsSince1970;
    const char* stamp;
  } rows[] = {
      {"<+0530>-5:30", 1700000000, "2023-11-15 03:43:20.000000+0530"},
      {"<-0330>3:30", 1700000000, "2023-11-14 18:43:20.000000-0330"},
      {"UTC0", 1700000000.000001, "2023-11-14 22:13:20.000001+0000"},
      {"UTC0", 1700000000.999999, "2023-11-14 22:13:20.999999+0000"},
      {"UTC0", 1700000000.123456, "2023-11-14 22:13:20.123456+0000"},
      {"UTC0", 1700000000.5, "2023-11-14 22:13:20.500000+0000"},
      {"UTC0", 2200000000.000003, "2039-09-18 23:06:40.000003+0000"},
      {"UTC0", -0.25, "1969-12-31 23:59:59.750000+0000"},
      // Moments that no calendar knows.
      {"UTC0", 1e300, "1970-01-01 00:00:00.000000+0000"},
      {"UTC0", 0.0 / 0.0, "1970-01-01 00:00:00.000000+0000"},
  };
  for (const auto& [zoneName, secondsSince1970, stamp] : rows) {
    const LocalZone local(zoneName);

    EXPECT_EQ(stamp, stampAt(secondsSince1970));
  }
}

TEST_F(LogSinkPosixTest, WhileThereIsAHostsSinkItTakesTheLineBare) {
  std::vector<std::string> lines;
  clock.set(0);
  LogSinkPosix sink(clock, "App", file());
  sink.setHostSink(&takeLine, &lines);

  sink.write("text");
  sink.write(std::string_view("a\0b", 3));

  EXPECT_THAT(lines, ElementsAre("text", "a\uFFFDb"));
  EXPECT_THAT(writes(), IsEmpty());
  sink.setHostSink(nullptr, nullptr);
  sink.write("text");
  EXPECT_THAT(lines, SizeIs(2));
  EXPECT_THAT(writes(), ElementsAre("1970-01-01 00:00:00.000000+0000 App" + numbers() + "text\n"));
}

TEST_F(LogSinkPosixTest, TheHostsSinkMaySetAnother) {
  LogSinkPosix sink(clock, "App", file());
  sink.setHostSink(
      [](const char*, void* context) {
        static_cast<LogSinkPosix*>(context)->setHostSink(nullptr, nullptr);
      },
      &sink);

  sink.write("first");
  sink.write("second");

  EXPECT_THAT(writes(), SizeIs(1));
}

TEST_F(LogSinkPosixTest, TheSinkAndItsContextAreReadTogether) {
  // Each sink is right only with its own context.
  static std::atomic<int> wrong;
  wrong = 0;
  int one = 1;
  int two = 2;
  LogSinkPosix sink(clock, "App", file());
  const auto expectOne = [](const char*, void* context) {
    if (*static_cast<int*>(context) != 1) ++wrong;
  };
  const auto expectTwo = [](const char*, void* context) {
    if (*static_cast<int*>(context) != 2) ++wrong;
  };
  sink.setHostSink(expectOne, &one);
  std::thread setter([&] {
    for (int round = 0; round < 2000; ++round) {
      sink.setHostSink(expectTwo, &two);
      sink.setHostSink(expectOne, &one);
    }
  });

  for (int round = 0; round < 4000; ++round) sink.write("text");
  setter.join();

  EXPECT_EQ(0, wrong.load());
}

// A pipe in place of the socket: the file that a game's starter may have closed.
class LogSinkPosixPipeTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, pipe2(ends_.data(), O_CLOEXEC)); }
  void TearDown() override {
    closeReader();
    close(ends_[1]);
  }

  void closeReader() {
    if (ends_[0] >= 0) close(ends_[0]);
    ends_[0] = -1;
  }
  int writer() { return ends_[1]; }

  FakeClock clock;

 private:
  std::array<int, 2> ends_{};
};

TEST_F(LogSinkPosixPipeTest, AReaderThatIsGoneSignalsNothingToTheProcess) {
  static std::atomic<int> signals;
  signals = 0;
  const auto before = signal(SIGPIPE, [](int) { ++signals; });
  closeReader();

  LogSinkPosix(clock, "App", writer()).write("text");

  signal(SIGPIPE, before);
  EXPECT_EQ(0, signals.load());
  sigset_t blocked;
  sigset_t pending;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  sigpending(&pending);
  EXPECT_EQ(0, sigismember(&blocked, SIGPIPE));
  EXPECT_EQ(0, sigismember(&pending, SIGPIPE));
}

TEST_F(LogSinkPosixPipeTest, AFullPipeThatDoesNotBlockAndAClosedFileLoseTheLine) {
  ASSERT_EQ(0, fcntl(writer(), F_SETFL, O_NONBLOCK));
  const std::string large(1024 * 1024, 'x');
  LogSinkPosix sink(clock, "App", writer());

  sink.write(large);
  sink.write("text");
  LogSinkPosix(clock, "App", -1).write("text");
}

}  // namespace
}  // namespace zln
