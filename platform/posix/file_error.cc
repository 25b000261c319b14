#include "platform/posix/file_error.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/files.h"
#include "platform/identity.h"
#include "platform/joined.h"

namespace zln {

namespace {

int readCodeOf(int number) {
  switch (number) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
      return static_cast<int>(kReadNoSuchFile);
    case EACCES:
    case EPERM:
      return file_error::kReadNoPermission;
    case EFBIG:
      return static_cast<int>(kReadTooLarge);
    default:
      return file_error::kReadUnknown;
  }
}

int writeCodeOf(int number) {
  switch (number) {
    case ENOENT:
      return file_error::kNoSuchFile;
    case EACCES:
    case EPERM:
      return file_error::kWriteNoPermission;
    case EEXIST:
      return file_error::kWriteFileExists;
    case ENOSPC:
    case EDQUOT:
      return file_error::kWriteOutOfSpace;
    case EROFS:
      return file_error::kWriteVolumeReadOnly;
    default:
      return file_error::kWriteUnknown;
  }
}

std::string quoted(std::string_view name) { return joined({"“", name, "”"}); }

std::string_view parentOf(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view nameOf(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view readingObstacle(int code) {
  switch (code) {
    case kReadNoSuchFile:
      return " because there is no such file.";
    case file_error::kReadNoPermission:
      return " because you don’t have permission to view it.";
    case kReadTooLarge:
      return " because it is too large.";
    default:
      return ".";
  }
}

std::string notSavedText(const std::string& path) {
  return joined({"The file ", quoted(nameOf(path)), " couldn’t be saved in the folder ",
                 quoted(nameOf(parentOf(path)))});
}

std::string missingText(const char* kind, std::string_view name) {
  return joined({"The ", kind, " ", quoted(name), " doesn’t exist."});
}

std::string changeText(const std::string& path, int code) {
  const std::string item = joined({"save the file ", quoted(nameOf(path))});
  switch (code) {
    case file_error::kNoSuchFile:
      return missingText("file", nameOf(path));
    case file_error::kWriteNoPermission:
      return joined({"You don’t have permission to ", item, " in the folder ",
                     quoted(nameOf(parentOf(path))), "."});
    case file_error::kWriteFileExists:
      return joined({notSavedText(path), " because a file with the same name already exists."});
    case file_error::kWriteOutOfSpace:
      return joined({"You can’t ", item, " because the volume is out of space."});
    case file_error::kWriteVolumeReadOnly:
      return joined({"You can’t ", item, " because the volume is read only."});
    default:
      return joined({notSavedText(path), "."});
  }
}

// A new item is missing nothing but its folder.
std::string saveText(const std::string& path, int code) {
  return code == file_error::kNoSuchFile ? missingText("folder", nameOf(parentOf(path)))
                                         : changeText(path, code);
}

std::string_view removalObstacle(int code) {
  switch (code) {
    case file_error::kWriteNoPermission:
      return " because you don’t have permission to access it.";
    case file_error::kWriteVolumeReadOnly:
      return " because the volume is read only.";
    default:
      return ".";
  }
}

std::string removeText(const std::string& path, int code) {
  return joined({quoted(nameOf(path)), " couldn’t be removed", removalObstacle(code)});
}

// The system's words in English, whatever language the game has set.
std::string_view systemText(int number) {
  const char* text = strerrordesc_np(number);
  return text == nullptr ? "(null)" : text;
}

// The text by which an error shows the one that lies beneath it. That one has no place in memory
// of its own; the system's text stands in for it.
std::string underlyingText(int number) {
  return joined({addressText(strerrordesc_np(number)), " {Error Domain=", kPosixErrorDomain,
                 " Code=", std::to_string(number), " \"", systemText(number), "\"}"});
}

Error fileError(const std::string& path, int number, int code, std::string text) {
  return Error{kCocoaErrorDomain,
               code,
               std::move(text),
               {{"NSFilePath", path}, {"NSUnderlyingError", underlyingText(number)}}};
}

Error writeError(const std::string& path, int number,
                 std::string (*text)(const std::string& path, int code)) {
  const int code = writeCodeOf(number);
  return fileError(path, number, code, text(path, code));
}

}  // namespace

Error readError(const std::string& path, int number) {
  const int code = readCodeOf(number);
  return fileError(
      path, number, code,
      joined({"The file ", quoted(nameOf(path)), " couldn’t be opened", readingObstacle(code)}));
}

Error saveError(const std::string& path, int number) { return writeError(path, number, &saveText); }

Error changeError(const std::string& path, int number) {
  return writeError(path, number, &changeText);
}

Error removeError(const std::string& path, int number) {
  const int code = writeCodeOf(number);
  Error error = fileError(path, number, code, removeText(path, code));
  error.userInfo.insert(error.userInfo.begin(), {"NSUserStringVariant", "(\n    Remove\n)"});
  return error;
}

}  // namespace zln
