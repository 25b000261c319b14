#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/posix/file_descriptor.h"

namespace zln {

// Two files that change places: the spare one is brought up to date, which takes the bytes behind
// those that it shares with the new content, and is then exchanged with the one in place. That
// frees no blocks and makes no file, so it takes microseconds. Where the system cannot do this, a
// new file replaces the old one.
//
// About a second after a write the one in place is flushed to the disk, and the spare one emptied.
// Readers of this library lock the file that they read; one that is locked is not written to.
class AtomicFilePosix : public AtomicFile, public std::enable_shared_from_this<AtomicFilePosix> {
 public:
  // Runs a task in about a second, on a thread that may wait for the disk.
  using RunLater = std::function<void(std::function<void()> task)>;

  // `files` outlives this object. Without `runLater` the system writes to the disk in its own time.
  AtomicFilePosix(Files& files, std::string path, std::string sparePath, RunLater runLater);
  ~AtomicFilePosix() override;

  bool replace(std::string_view content, std::size_t unchangedPrefix, Error* error) override;

 private:
  struct Side {
    std::shared_ptr<FileDescriptor> file;
    dev_t device = 0;
    ino_t inode = 0;
    std::size_t size = 0;
    // How many bytes it shares with the content put in place last.
    std::size_t shared = 0;
  };

  // The lock is held for all of these.
  bool exchange(std::string_view content, std::size_t unchangedPrefix);
  bool openSpare(int moreFlags);
  bool ownSpare();
  bool update(std::string_view content, std::size_t unchangedPrefix);
  bool putSpareInPlace();
  static bool isAt(const Side& side, const std::string& path);

  void flush();

  Files& files_;
  const std::string path_;
  const std::string sparePath_;
  const RunLater runLater_;
  const uid_t user_;

  std::mutex mutex_;
  // Locked as long as this process may use the spare path.
  FileDescriptor folder_{-1};
  Side current_;
  Side spare_;
  bool isFlushDue_ = false;
};

}  // namespace zln
