#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace zln {

// A small disk that only this process and its children see.
class PrivateDisk {
 public:
  explicit PrivateDisk(std::string path) : path_(std::move(path)) {
    isMounted_ = unshare(CLONE_NEWNS) == 0 &&
                 mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount("none", path_.c_str(), "tmpfs", 0, "size=1m") == 0;
  }
  ~PrivateDisk() {
    if (isMounted_) umount2(path_.c_str(), MNT_DETACH);
  }
  PrivateDisk(const PrivateDisk&) = delete;
  PrivateDisk& operator=(const PrivateDisk&) = delete;

  bool isMounted() const { return isMounted_; }

  void fill() const {
    const int file = open(fillerPath().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string piece(4096, 'x');
    while (::write(file, piece.data(), piece.size()) > 0) continue;
    close(file);
  }
  // Gives back what fill() has taken.
  void makeRoom() const { unlink(fillerPath().c_str()); }

  // Lays the same disk over itself, for reading only: files that are open for writing do not keep
  // it from that.
  bool setReadOnly() const {
    return mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
  }
  bool setWritable() const { return umount2(path_.c_str(), MNT_DETACH) == 0; }

 private:
  std::string fillerPath() const { return path_ + "/filler"; }

  std::string path_;
  bool isMounted_ = false;
};

}  // namespace zln
