#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "collector/owned_socket.h"

namespace zln::collector {

// The threads that serve connections, one connection each from its begin to its end. They are made
// on demand and never more than a bound, so that silent clients take none from others and many
// clients take no more than there is. Any thread may call it.
class ConnectionThreads {
 public:
  explicit ConnectionThreads(std::size_t most) : most_(most) {}
  ~ConnectionThreads() { stop(); }
  ConnectionThreads(const ConnectionThreads&) = delete;
  ConnectionThreads& operator=(const ConnectionThreads&) = delete;

  // Has a thread do the work on a connection. Closes the connection at once instead when as many
  // are open as may be, or when there is no further thread to be had.
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

  const std::size_t most_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> waiting_;
  std::set<int> open_;
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool stopping_ = false;
};

}  // namespace zln::collector
