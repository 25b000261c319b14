#include "collector/connection_threads.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace zln::collector {
namespace {

bool isSilent(int socket) {
  tcp_info facts{};
  socklen_t size = sizeof facts;
  return ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &facts, &size) == 0 &&
         facts.tcpi_bytes_received == 0;
}

}  // namespace

void ConnectionThreads::serve(OwnedSocket connection, std::function<void(int socket)> work) {
  const std::lock_guard lock(mutex_);
  if (stopping_ || !makeRoom()) return;
  // Half of the threads at least are idle or about to be.
  const bool isShort = idle_ <= waiting_.size() && threads_.size() < 2 * most_;
  if (isShort && !addThread()) return;
  open_.push_back(connection.get());
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

// The thread of a connection that is ended finds out by itself.
bool ConnectionThreads::makeRoom() {
  if (open_.size() < most_) return true;
  const auto silent = std::ranges::find_if(open_, isSilent);
  if (silent == open_.end()) return false;
  ::shutdown(*silent, SHUT_RDWR);
  open_.erase(silent);
  return true;
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
    std::erase(open_, job.connection.get());
  }
}

}  // namespace zln::collector
