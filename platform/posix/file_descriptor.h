#pragma once

#include <unistd.h>

#include <utility>

namespace zln {

// An open file that closes itself.
class FileDescriptor {
 public:
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      close();
      number_ = other.release();
    }
    return *this;
  }
  ~FileDescriptor() { close(); }

  // False when opening failed.
  explicit operator bool() const { return number_ >= 0; }
  int get() const { return number_; }
  // Hands the open file to the caller.
  int release() { return std::exchange(number_, -1); }
  // False when bytes that were written could not be stored.
  bool close() {
    const int number = release();
    return number < 0 || ::close(number) == 0;
  }

 private:
  int number_;
};

}  // namespace zln
