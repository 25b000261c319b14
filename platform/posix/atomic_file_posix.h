#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/posix/delayed_flush.h"
#include "platform/posix/file_descriptor.h"

namespace zln {

// Two files that change places: the one that lies spare is brought up to date, which mostly takes
// the few bytes behind those that it shares with the new content, and is then exchanged with the
// one in place. That frees no blocks and makes no file, so it takes microseconds.
//
// Nobody else writes to the two, and the spare one is written to only when no process has it open:
// whoever has opened the file reads on in what he has opened. Where the system cannot do any of
// this, a new file takes the place of the old one.
//
// What is to be kept for the next process is kept under a third name.
class AtomicFilePosix : public AtomicFile {
 public:
  // `files` outlives this object. Without `flush` the system writes to the disk in its own time.
  AtomicFilePosix(Files& files, std::string path, std::string sparePath,
                  std::shared_ptr<DelayedFlush> flush);

  ~AtomicFilePosix() override;

  bool replace(std::string_view content, Unchanged unchanged, Error* error) override;
  void prepare() override;
  void offerOldContent(std::size_t limit,
                       const std::function<bool(const std::string& content)>& accept) override;
  void keep() override;
  void release() override;

 private:
  // One of the two files.
  struct Side {
    std::shared_ptr<FileDescriptor> file;
    dev_t device = 0;
    ino_t inode = 0;
    std::size_t size = 0;
    // What it has in common with the content put in place last.
    Unchanged shared;
  };

  bool replaceKept(std::string_view content, Unchanged unchanged, Error* error);
  void keepOldContent();
  void keepInPlace();
  bool exchange(std::string_view content, Unchanged unchanged);
  bool updateSpare(std::string_view content, Unchanged unchanged);
  bool spareIsThere() const;
  bool adoptSpare();
  bool makeSpare();
  bool ownSpare();
  void disownSpare();
  bool openSpare(int moreFlags);
  bool writeSpare(std::string_view content, Unchanged shared);
  bool putSpareInPlace();

  Files& files_;
  const std::string path_;
  const std::string sparePath_;
  const std::string keptPath_;
  const std::shared_ptr<DelayedFlush> flush_;
  const uid_t user_;
  // False for a path that the system's calls would take for a shorter one.
  const bool isWhole_;
  // What lay at the two paths at first, for offerOldContent().
  FileDescriptor old_;
  FileDescriptor oldSpare_;
  // What an earlier process had not taken up.
  FileDescriptor oldKept_;
  std::mutex keeping_;
  // How many have not released it. The one who is to be offered the old content is among them from
  // the beginning, but the content gets its name only when it is about to be replaced.
  int keepers_ = 1;
  bool isToBeKept_;
  bool isKept_;
  std::atomic<bool> hasFailed_{false};
  // Locked as long as this process may use the spare path.
  FileDescriptor folder_{-1};
  Side current_;
  Side spare_;
};

}  // namespace zln
