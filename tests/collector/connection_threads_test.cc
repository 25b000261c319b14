#include "collector/connection_threads.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>
#include <utility>

namespace zln::collector {
namespace {

// The two ends of a connection.
struct Connection {
  Connection() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
      throw std::runtime_error("no sockets");
    }
    client = OwnedSocket(ends[0]);
    server = OwnedSocket(ends[1]);
  }

  // The byte that the server sends; 0 when it closes the connection.
  char answer() const {
    char byte = 0;
    ::read(client.get(), &byte, 1);
    return byte;
  }

  OwnedSocket client;
  OwnedSocket server;
};

// No thread can be made while it lives: each is to have a stack larger than there is memory.
class NoFurtherThreads {
 public:
  NoFurtherThreads() {
    ::pthread_getattr_default_np(&usual_);
    pthread_attr_t attributes = usual_;
    ::pthread_attr_setstacksize(&attributes, std::size_t{1} << 50);
    ::pthread_setattr_default_np(&attributes);
  }
  ~NoFurtherThreads() { ::pthread_setattr_default_np(&usual_); }
  NoFurtherThreads(const NoFurtherThreads&) = delete;
  NoFurtherThreads& operator=(const NoFurtherThreads&) = delete;

 private:
  pthread_attr_t usual_;
};

void answerYes(int socket) { EXPECT_EQ(1, ::write(socket, "y", 1)); }

TEST(ConnectionThreadsTest, ServesConnections) {
  ConnectionThreads threads(2);
  for (int i = 0; i < 10; ++i) {
    Connection connection;
    threads.serve(std::move(connection.server), answerYes);

    EXPECT_EQ('y', connection.answer());
    EXPECT_EQ(0, connection.answer());
  }
}

TEST(ConnectionThreadsTest, CloseWhatIsTooMuch) {
  ConnectionThreads threads(1);
  Connection held;
  const auto holdOn = [](int socket) {
    char byte;
    ::read(socket, &byte, 1);
  };
  threads.serve(std::move(held.server), holdOn);

  Connection other;
  threads.serve(std::move(other.server), answerYes);

  EXPECT_EQ(0, other.answer());
}

TEST(ConnectionThreadsTest, CloseWhatNoThreadCanBeMadeFor) {
  ConnectionThreads threads(2);
  {
    const NoFurtherThreads none;
    Connection connection;
    threads.serve(std::move(connection.server), answerYes);
    EXPECT_EQ(0, connection.answer());
  }

  Connection next;
  threads.serve(std::move(next.server), answerYes);
  EXPECT_EQ('y', next.answer());
}

}  // namespace
}  // namespace zln::collector
