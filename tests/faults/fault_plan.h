#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace zln::faults {

// The calls that change files below the home folder, and those that read the library's files.
enum class Call : std::uint8_t {
  kNone,
  kOpen,      // for writing, or making the file
  kWrite,     // write or pwrite
  kTruncate,  // ftruncate
  kClose,     // of a file that was open for writing
  kRename,
  kExchange,  // renameat2
  kUnlink,    // of a file or a folder
  kMakeFolder,
  kAttribute,  // setxattr
  kFlush,      // fsync
  kOpenToRead,
  kRead,
  kCount,
};

// What befalls the call that is struck.
enum class Fault : std::uint8_t {
  kNone,
  kKill,      // the process ends before the call
  kKillHalf,  // the process ends when a part has been written
  kShorten,   // a part is written
  kEio,
  kEnospc,
  kErofs,
  kEacces,
  // This call and all later ones of the same process fail.
  kFullFromHere,
  kReadOnlyFromHere,
  kNoDescriptorsFromHere,  // nothing can be opened: EMFILE
};

// What the file system cannot do.
enum class Disk : std::uint8_t {
  kOrdinary,
  kNoExchange,    // renameat2: EINVAL
  kNoLocks,       // flock: ENOLCK
  kNoAttributes,  // setxattr: ENOTSUP
  kNoFlush,       // fsync: EIO
};

// What the driver and the library under the shim share: a file that both have mapped. It outlives
// the processes that are killed.
struct FaultPlan {
  static constexpr std::size_t kLongestPath = 512;

  // Set by the driver before a process starts. The call is the `ordinal`th of its kind, from 1.
  char home[kLongestPath];
  Call call;
  std::uint32_t ordinal;
  Fault fault;
  Disk disk;
  // Which part of the bytes is written, in 256ths.
  std::uint8_t part;

  // Set by the shim, over all processes.
  std::atomic<std::uint32_t> calls[static_cast<std::size_t>(Call::kCount)];
  std::atomic<bool> isStruck;
  // The process in which that was.
  std::atomic<int> struckProcess;
};

// The environment variable that names the file.
inline constexpr char kPlanVariable[] = "ZLN_FAULT_PLAN";

}  // namespace zln::faults
