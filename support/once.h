#pragma once

#include <memory>
#include <mutex>

namespace zln {

// An object that is made on first use, once, whichever threads ask for it at the same time.
template <typename T>
class Once {
 public:
  template <typename Factory>
  std::shared_ptr<T> get(Factory&& factory) {
    std::call_once(made_, [&] { object_ = factory(); });
    return object_;
  }

 private:
  std::once_flag made_;
  std::shared_ptr<T> object_;
};

}  // namespace zln
