#include "collector/connection_stream.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <string>
#include <thread>

#include "collector/owned_socket.h"

namespace zln::collector {
namespace {

using std::chrono::milliseconds;

constexpr auto kNever = std::chrono::minutes(10);
constexpr auto kTick = milliseconds(20);

class ConnectionStreamTest : public testing::Test {
 protected:
  ConnectionStreamTest() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
    own_ = OwnedSocket(ends[0]);
    client_ = OwnedSocket(ends[1]);
  }

  void say(const std::string& bytes) const {
    ::send(client_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  OwnedSocket own_;
  OwnedSocket client_;
};

TEST_F(ConnectionStreamTest, ReadsWhatTheClientSends) {
  ConnectionStream stream(own_.get());
  say("GET");
  char bytes[8] = "";

  EXPECT_TRUE(stream.waitForRequest());
  EXPECT_EQ(3, stream.read(bytes, sizeof bytes));

  EXPECT_STREQ("GET", bytes);
}

TEST_F(ConnectionStreamTest, WaitsForARequestNoLongerThanAskedTo) {
  ConnectionStream stream(own_.get(), {.idle = milliseconds(1)});

  EXPECT_FALSE(stream.waitForRequest());

  EXPECT_TRUE(stream.isEnding());
}

TEST_F(ConnectionStreamTest, GivesARequestItsTimeAsAWhole) {
  ConnectionStream stream(own_.get(),
                          {.idle = kNever, .request = milliseconds(200), .write = kNever});
  std::atomic<bool> ended = false;
  std::atomic<int> said = 0;
  std::thread slow([&] {
    for (; !ended && said < 1000; ++said) {
      say("a");
      std::this_thread::sleep_for(kTick);
    }
    ::shutdown(client_.get(), SHUT_WR);
  });
  EXPECT_TRUE(stream.waitForRequest());

  char byte = 0;
  while (stream.read(&byte, 1) == 1) continue;
  ended = true;
  slow.join();

  EXPECT_GT(1000, said);
}

TEST_F(ConnectionStreamTest, GivesUpAClientThatTakesNoAnswer) {
  ConnectionStream stream(own_.get(), {.request = kNever, .write = milliseconds(50)});
  const std::string answer(16 * 1024 * 1024, 'a');

  EXPECT_EQ(-1, stream.write(answer.data(), answer.size()));

  EXPECT_TRUE(stream.isBroken());
}

TEST_F(ConnectionStreamTest, TakesARequestOfABoundedSize) {
  ConnectionStream stream(own_.get());
  say("a");
  EXPECT_TRUE(stream.waitForRequest());
  std::thread endless([this] {
    const std::string piece(64 * 1024, 'a');
    for (int i = 0; i < 32 * 16; ++i) {
      say(piece);
      std::this_thread::yield();
    }
    ::shutdown(client_.get(), SHUT_WR);
  });

  std::size_t size = 0;
  char bytes[4096];
  for (ssize_t got = 0; (got = stream.read(bytes, sizeof bytes)) > 0;) {
    size += static_cast<std::size_t>(got);
  }
  own_ = OwnedSocket();
  endless.join();

  EXPECT_GE(1024u * 1024 + 64 * 1024, size);
}

}  // namespace
}  // namespace zln::collector
