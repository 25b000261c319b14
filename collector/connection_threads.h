#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "collector/owned_socket.h"

namespace zln::collector {

// The threads that serve connections, one connection each from its begin to its end. They are made
// on demand, and the open connections are never more than a bound, so that many clients take no
// more than there is. Silent clients take nothing from others: they give way. Any thread may call
// it.
class ConnectionThreads {
 public:
  explicit ConnectionThreads(std::size_t most) : most_(most) {}
  ~ConnectionThreads() { stop(); }
  ConnectionThreads(const ConnectionThreads&) = delete;
  ConnectionThreads& operator=(const ConnectionThreads&) = delete;

  // Has a thread do the work on a connection. When as many are open as may be, the oldest of those
  // that have never said a word is ended in its favor; when all have, or when there is no further
  // thread to be had, it is closed at once.
  void serve(OwnedSocket connection, std::function<void(int socket)> work);
  // Shuts all connections down, so that nobody waits on one of them any longer, and waits for the
  // threads.
  void stop();

 private:
  struct Job {
    OwnedSocket connection;
    std::function<void(int)> work;
  };

  bool addThread();
  void run();
  bool makeRoom();

  const std::size_t most_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> waiting_;
  std::vector<int> open_;  // In the order of their arrival.
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool stopping_ = false;
};

}  // namespace zln::collector
