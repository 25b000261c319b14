#pragma once

// The package builds httplib with TLS; its own flags come from pkg-config.
#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "collector/transfer_times.h"

namespace zln::collector {

// A connection as httplib reads requests from it and writes answers to it. Its client has a bounded
// time and a bounded size for each request, and a bounded time for taking each piece of an answer.
// The socket does not block; its owner closes it.
class ConnectionStream : public httplib::Stream {
 public:
  // The one that this thread is serving.
  static ConnectionStream& current();

  explicit ConnectionStream(int socket, const TransferTimes& times = {});
  ~ConnectionStream() override;
  ConnectionStream(const ConnectionStream&) = delete;
  ConnectionStream& operator=(const ConnectionStream&) = delete;

  // Waits for the first byte of the next request. False when none comes in time.
  bool waitForRequest();
  // There is to be no further request.
  void endAfterAnswer() { ending_ = true; }
  // Ends the connection without a word to the client: nothing more is read or written.
  void hangUp() { broken_ = true; }
  // The same, and to the client it is an error.
  void reset();
  // Takes leave of the client, who gets what was written even while he is sending on.
  void close();

  // Whether the client has closed his end: what he is sent now may go nowhere unnoticed.
  bool isAbandoned() const;

  bool isEnding() const { return ending_ || broken_; }
  // Whether something could not be read or written.
  bool isBroken() const { return broken_; }

  bool is_readable() const override { return !broken_; }
  bool is_writable() const override { return !broken_; }
  ssize_t read(char* bytes, size_t size) override;
  ssize_t write(const char* bytes, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_; }

 protected:
  using Clock = std::chrono::steady_clock;

  // What a step of a transfer came to: that many bytes, or what to wait for (POLLIN, POLLOUT), or
  // the end of the connection when both are 0.
  struct Step {
    std::size_t bytes = 0;
    short wait = 0;
  };

  virtual Step tryRead(char* bytes, std::size_t size);
  virtual Step tryWrite(const char* bytes, std::size_t size);
  virtual void sayGoodbye() {}

  // False when the time is over first.
  bool waitFor(short events, Clock::time_point deadline) const;

 private:
  bool fill();
  void discardInput() const;

  const int socket_;
  const TransferTimes times_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  Clock::time_point deadline_;
  std::size_t sizeLeft_ = 0;
  bool ending_ = false;
  bool broken_ = false;
};

}  // namespace zln::collector
