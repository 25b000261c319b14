#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "collector/owned_socket.h"

namespace zln::collector {

// A pipe that is full after a few lines.
class SmallPipe {
 public:
  SmallPipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    reading_ = OwnedSocket(ends[0]);
    writing_ = OwnedSocket(ends[1]);
    if (::fcntl(ends[1], F_SETPIPE_SZ, kSize) < kSize) throw std::runtime_error("no small pipe");
  }

  int reading() const { return reading_.get(); }
  int writing() const { return writing_.get(); }
  // Whoever takes it closes it, and with it this process's part in the pipe.
  OwnedSocket takeWriting() { return std::move(writing_); }

 private:
  static constexpr int kSize = 4096;

  OwnedSocket reading_;
  OwnedSocket writing_;
};

}  // namespace zln::collector
