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

// A file whose content is replaced as a whole, again and again, mostly by one with the same
// beginning. One thread at a time uses it.
class AtomicFile {
 public:
  virtual ~AtomicFile() = default;

  // Puts this content in place of the old one: a reader sees all of the old or all of the new. On
  // failure the old content stays. The first `unchangedPrefix` bytes are those of the last content
  // that was put in place successfully here, so they need not be written again; 0 is always right.
  // When it is all of both contents and the file is still there, nothing is written.
  virtual bool replace(std::string_view content, std::size_t unchangedPrefix, Error* error) = 0;
};

// The errors, in kCocoaErrorDomain, of reading a file that is not there or is too large.
inline constexpr std::int64_t kReadNoSuchFile = 260;
inline constexpr std::int64_t kReadTooLarge = 263;
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
  // The file at `path`, there or not. `sparePath` belongs to this file alone: it may have the
  // content before the last one, until the disk has the last one.
  virtual std::shared_ptr<AtomicFile> atomicFile(const std::string& path,
                                                 const std::string& sparePath) = 0;
  // Marks an existing item so that backups leave it out.
  virtual bool excludeFromBackup(const std::string& path, Error* error) = 0;
};

}  // namespace zln
