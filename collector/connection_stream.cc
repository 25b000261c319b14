#include "collector/connection_stream.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zln::collector {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kBufferSize = 16 * 1024;
constexpr std::size_t kLongestRequest = 1024 * 1024 + 64 * 1024;
constexpr auto kGoodbyeTime = seconds(1);
constexpr std::size_t kLongestGoodbye = 16 * 1024 * 1024;

thread_local ConnectionStream* served = nullptr;

bool wouldBlock() { return errno == EAGAIN || errno == EINTR; }

}  // namespace

ConnectionStream& ConnectionStream::current() { return *served; }

ConnectionStream::ConnectionStream(int socket, const TransferTimes& times)
    : socket_(socket), times_(times), buffer_(kBufferSize) {
  const int yes = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  served = this;
}

ConnectionStream::~ConnectionStream() { served = nullptr; }

bool ConnectionStream::waitForRequest() {
  deadline_ = Clock::now() + times_.idle;
  sizeLeft_ = kLongestRequest;
  if (begin_ == end_ && !fill()) return false;
  deadline_ = Clock::now() + times_.request;
  return true;
}

void ConnectionStream::reset() {
  const linger atOnce{1, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  hangUp();
}

// With unread input the system would break the connection off, and the client lose the answer.
void ConnectionStream::close() {
  if (broken_) return;
  sayGoodbye();
  ::shutdown(socket_, SHUT_WR);
  if (ending_) discardInput();
}

bool ConnectionStream::isAbandoned() const {
  pollfd end{socket_, POLLRDHUP, 0};
  return ::poll(&end, 1, 0) > 0;
}

ssize_t ConnectionStream::read(char* bytes, size_t size) {
  if (begin_ == end_ && !fill()) return broken_ ? -1 : 0;
  const std::size_t taken = std::min(size, end_ - begin_);
  std::memcpy(bytes, buffer_.data() + begin_, taken);
  begin_ += taken;
  return static_cast<ssize_t>(taken);
}

ssize_t ConnectionStream::write(const char* bytes, size_t size) {
  const auto deadline = Clock::now() + times_.write;
  for (std::size_t written = 0; written < size && !broken_;) {
    const Step step = tryWrite(bytes + written, size - written);
    written += step.bytes;
    if (step.bytes == 0) broken_ = step.wait == 0 || !waitFor(step.wait, deadline);
  }
  return broken_ ? -1 : static_cast<ssize_t>(size);
}

// Nobody asks for them.
void ConnectionStream::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip.clear();
  port = 0;
}

void ConnectionStream::get_local_ip_and_port(std::string& ip, int& port) const {
  ip.clear();
  port = 0;
}

ConnectionStream::Step ConnectionStream::tryRead(char* bytes, std::size_t size) {
  const ssize_t got = ::recv(socket_, bytes, size, 0);
  if (got < 0 && wouldBlock()) return {0, POLLIN};
  return {got > 0 ? static_cast<std::size_t>(got) : 0, 0};
}

ConnectionStream::Step ConnectionStream::tryWrite(const char* bytes, std::size_t size) {
  const ssize_t sent = ::send(socket_, bytes, size, MSG_NOSIGNAL);
  if (sent < 0 && wouldBlock()) return {0, POLLOUT};
  return {sent > 0 ? static_cast<std::size_t>(sent) : 0, 0};
}

bool ConnectionStream::waitFor(short events, Clock::time_point deadline) const {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
  pollfd waiting{socket_, events, 0};
  return left > 0 && ::poll(&waiting, 1, static_cast<int>(left)) != 0;
}

// Reads what there is. False at the end of the connection, and when the request has taken its time
// or its size.
bool ConnectionStream::fill() {
  while (!broken_ && sizeLeft_ > 0) {
    const Step step = tryRead(buffer_.data(), std::min(buffer_.size(), sizeLeft_));
    begin_ = 0;
    end_ = step.bytes;
    sizeLeft_ -= step.bytes;
    if (step.bytes > 0) return true;
    if (step.wait == 0) break;
    if (!waitFor(step.wait, deadline_)) break;
  }
  ending_ = true;
  return false;
}

void ConnectionStream::discardInput() const {
  const auto deadline = Clock::now() + kGoodbyeTime;
  std::vector<char> unread(kBufferSize);
  for (std::size_t size = 0; size < kLongestGoodbye;) {
    const ssize_t got = ::recv(socket_, unread.data(), unread.size(), 0);
    if (got > 0) size += static_cast<std::size_t>(got);
    if (got == 0 || (got < 0 && (!wouldBlock() || !waitFor(POLLIN, deadline)))) return;
  }
}

}  // namespace zln::collector
