#pragma once

#include <string>

#include "platform/error.h"

namespace zln {

// Codes of the platform's file errors, in kCocoaErrorDomain.
namespace file_error {
inline constexpr int kNoSuchFile = 4;
inline constexpr int kReadUnknown = 256;
inline constexpr int kReadNoPermission = 257;
inline constexpr int kWriteUnknown = 512;
inline constexpr int kWriteNoPermission = 513;
inline constexpr int kWriteFileExists = 516;
inline constexpr int kWriteOutOfSpace = 640;
inline constexpr int kWriteVolumeReadOnly = 642;
}  // namespace file_error

// What the platform says when an item cannot be read, made in its folder, changed in its place, or
// removed. `number` is an errno.
Error readError(const std::string& path, int number);
Error saveError(const std::string& path, int number);
Error changeError(const std::string& path, int number);
Error removeError(const std::string& path, int number);

}  // namespace zln
