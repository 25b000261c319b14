#pragma once

#include <unistd.h>

#include <utility>

namespace zln::collector {

// A descriptor that is closed when its owner goes.
class OwnedSocket {
 public:
  OwnedSocket() = default;
  explicit OwnedSocket(int descriptor) : descriptor_(descriptor) {}
  OwnedSocket(OwnedSocket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  OwnedSocket& operator=(OwnedSocket&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~OwnedSocket() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }

 private:
  int descriptor_ = -1;
};

}  // namespace zln::collector
