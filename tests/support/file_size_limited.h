#pragma once

#include <signal.h>
#include <sys/resource.h>

namespace zln {

// Lets files grow to this size and no further.
class FileSizeLimited {
 public:
  explicit FileSizeLimited(rlim_t size) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limited{size, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limited);
  }
  ~FileSizeLimited() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  FileSizeLimited(const FileSizeLimited&) = delete;
  FileSizeLimited& operator=(const FileSizeLimited&) = delete;

 private:
  sighandler_t handler_;
  rlimit before_;
};

}  // namespace zln
