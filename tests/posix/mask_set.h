#pragma once

#include <sys/stat.h>
#include <sys/types.h>

namespace zln {

// A file creation mask, as a game may have set it.
class MaskSet {
 public:
  explicit MaskSet(mode_t mask) : before_(umask(mask)) {}
  ~MaskSet() { umask(before_); }
  MaskSet(const MaskSet&) = delete;
  MaskSet& operator=(const MaskSet&) = delete;

 private:
  const mode_t before_;
};

}  // namespace zln
