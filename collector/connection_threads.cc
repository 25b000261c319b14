#include "collector/connection_threads.h"

#include <sys/socket.h>

#include <system_error>
#include <utility>

namespace zln::collector {

void ConnectionThreads::serve(OwnedSocket connection, std::function<void(int socket)> work) {
  const std::lock_guard lock(mutex_);
  if (stopping_ || open_.size() >= most_) return;
  if (idle_ <= waiting_.size() && !addThread()) return;
  open_.insert(connection.get());
  waiting_.push_back({std::move(connection), std::move(work)});
  changed_.notify_one();
}

// False when the system has none left.
bool ConnectionThreads::addThread() {
  try {
    threads_.emplace_back([this] { run(); });
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void ConnectionThreads::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const int socket : open_) ::shutdown(socket, SHUT_RDWR);
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
}

// A connection is forgotten before it is closed: its number may be another's from then on.
void ConnectionThreads::run() {
  std::unique_lock lock(mutex_);
  while (true) {
    ++idle_;
    changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    --idle_;
    if (waiting_.empty()) return;
    const Job job = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    job.work(job.connection.get());
    lock.lock();
    open_.erase(job.connection.get());
  }
}

}  // namespace zln::collector
