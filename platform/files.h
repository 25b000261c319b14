#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"

namespace zln {

// A file whose content is put in its place whole, again and again. One thread at a time replaces
// it; another may read the old content meanwhile.
class AtomicFile {
 public:
  // How many bytes of a content, at its beginning and at its end, are those of the last content
  // that was put here successfully, so that they need not be written again; 0 is always right.
  // Those at the end count between contents of the same size.
  struct Unchanged {
    std::size_t head = 0;
    std::size_t tail = 0;
  };

  virtual ~AtomicFile() = default;

  // Puts this content in place of the old one: a reader sees all of the old or all of the new. On
  // failure the old content stays.
  virtual bool replace(std::string_view content, Unchanged unchanged, Error* error) = 0;

  // Does ahead what the first replacement has to do besides writing; a thread that may wait calls
  // it before. Nothing is to be seen of it in the file.
  virtual void prepare() = 0;

  // Offers what stood there when this object was made, whatever has been put there since, and, if
  // that is declined, what stood there one replacement earlier, where the system has kept it.
  // Absent and unreadable content, and content beyond `limit` bytes, is passed over. Once only. It
  // counts as taken up when this returns; until then it is kept as by keep().
  virtual void offerOldContent(std::size_t limit,
                               const std::function<bool(const std::string& content)>& accept) = 0;

  // From here to release() what lies in place now is kept for the next process, whatever replaces
  // it: for one who takes out all and puts it back piece by piece. Should this process be killed
  // before, the next one is offered it first, and after it what lies in place then, in which some
  // of it may stand again. Several may do so at once. Where the system cannot, nothing is kept.
  virtual void keep() = 0;
  virtual void release() = 0;
};

// The error of reading a file that is not there.
inline constexpr std::int64_t kReadNoSuchFile = 260;
inline bool isFileMissing(const Error& error) {
  return error.domain == kCocoaErrorDomain && error.code == kReadNoSuchFile;
}

// Whether a power cut may still undo a write after its return.
enum class Durability { eventual, immediate };

// The file system. Paths are absolute. Any thread may call it.
class Files {
 public:
  virtual ~Files() = default;

  // The folder in which the application keeps its own files; it need not exist yet.
  virtual std::string applicationSupportPath() = 0;

  virtual bool exists(const std::string& path) = 0;
  // Creates the folder and all that is missing above it. An existing folder is a success.
  virtual bool createDirectory(const std::string& path, Error* error) = 0;
  // Visits everything below the folder, a folder before its contents, with paths relative to it.
  // What a visit removes is not entered. Symbolic links are visited, never followed.
  virtual void enumerate(const std::string& path,
                         const std::function<void(const std::string& relativePath)>& visit) = 0;
  // Removes a file, or a folder with its contents.
  virtual bool remove(const std::string& path, Error* error) = 0;

  // The whole content. Absent, with an error, when there is no plain file, which isFileMissing()
  // tells, and when it is larger than `limit` bytes or cannot be read now.
  virtual std::optional<std::string> read(const std::string& path, std::size_t limit,
                                          Error* error) = 0;
  // Puts a file with these bytes in place of the old one: a reader sees all of the old content or
  // all of the new. On failure the old file stays, unless the disk just did not confirm the new
  // one.
  virtual bool writeAtomically(const std::string& path, std::string_view bytes,
                               Durability durability, Error* error) = 0;
  // The file at `path`, there or not. `sparePath` belongs to this file alone; what lies there is
  // the system's own aid, which may come and go.
  virtual std::unique_ptr<AtomicFile> atomicFile(const std::string& path,
                                                 const std::string& sparePath) = 0;
  // Marks an existing item so that backups leave it out.
  virtual bool excludeFromBackup(const std::string& path, Error* error) = 0;
};

}  // namespace zln
