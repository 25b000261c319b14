#include "platform/error.h"

#include <cerrno>
#include <span>
#include <string_view>

#include "platform/number_text.h"

namespace zln {
namespace {

struct CodeText {
  int code;
  std::string_view text;
};

constexpr CodeText kCocoaTexts[] = {
    {4, "The file doesn’t exist."},
    {256, "The file couldn’t be opened."},
    {257, "The file couldn’t be opened because you don’t have permission to view it."},
    {258, "The file couldn’t be opened because the file name is invalid."},
    {260, "The file couldn’t be opened because there is no such file."},
    {263, "The file couldn’t be opened because it is too large."},
    {512, "The file couldn’t be saved."},
    {513, "You don’t have permission."},
    {514, "The file couldn’t be saved because the file name is invalid."},
    {516, "The file couldn’t be saved because a file with the same name already exists."},
    {640, "The file couldn’t be saved because there isn’t enough space."},
    {642, "The file couldn’t be saved because the volume is read only."},
    {3072, "The operation was cancelled."},
    {3840, "The data couldn’t be read because it isn’t in the correct format."},
};

// The C library's own texts follow the locale, and asking for them is not safe in every thread.
constexpr CodeText kPosixTexts[] = {
    {EPERM, "Operation not permitted"},
    {ENOENT, "No such file or directory"},
    {EINTR, "Interrupted system call"},
    {EIO, "Input/output error"},
    {EBADF, "Bad file descriptor"},
    {EAGAIN, "Resource temporarily unavailable"},
    {ENOMEM, "Cannot allocate memory"},
    {EACCES, "Permission denied"},
    {EBUSY, "Resource busy"},
    {EEXIST, "File exists"},
    {EXDEV, "Cross-device link"},
    {ENODEV, "Operation not supported by device"},
    {ENOTDIR, "Not a directory"},
    {EISDIR, "Is a directory"},
    {EINVAL, "Invalid argument"},
    {ENFILE, "Too many open files in system"},
    {EMFILE, "Too many open files"},
    {ETXTBSY, "Text file busy"},
    {EFBIG, "File too large"},
    {ENOSPC, "No space left on device"},
    {EROFS, "Read-only file system"},
    {EMLINK, "Too many links"},
    {EPIPE, "Broken pipe"},
    {ENAMETOOLONG, "File name too long"},
    {ENOTEMPTY, "Directory not empty"},
    {ELOOP, "Too many levels of symbolic links"},
    {EDQUOT, "Disc quota exceeded"},
    {ESTALE, "Stale NFS file handle"},
    {ENOTSUP, "Operation not supported"},
    {ENETDOWN, "Network is down"},
    {ENETUNREACH, "Network is unreachable"},
    {ECONNRESET, "Connection reset by peer"},
    {ETIMEDOUT, "Operation timed out"},
    {ECONNREFUSED, "Connection refused"},
    {EHOSTUNREACH, "No route to host"},
};

std::string_view textFor(std::int64_t code, std::span<const CodeText> texts) {
  for (const CodeText& entry : texts) {
    if (entry.code == code) return entry.text;
  }
  return "(null)";
}

std::string_view shownText(const Error& error) {
  if (error.localizedDescription.has_value()) return *error.localizedDescription;
  if (error.domain == kCocoaErrorDomain) return textFor(error.code, kCocoaTexts);
  if (error.domain == kPosixErrorDomain) return textFor(error.code, kPosixTexts);
  return "(null)";
}

void appendFact(std::string& facts, std::string_view key, std::string_view value) {
  if (!facts.empty()) facts += ", ";
  facts.append(key).append("=").append(value);
}

}  // namespace

std::string Error::description() const {
  std::string text = "Error Domain=" + domain + " Code=";
  appendNumber(text, code);
  text.append(" \"").append(shownText(*this)).append("\"");

  std::string facts;
  if (localizedDescription) appendFact(facts, "NSLocalizedDescription", *localizedDescription);
  for (const auto& [key, value] : userInfo) appendFact(facts, key, value);
  if (!facts.empty()) text.append(" UserInfo={").append(facts).append("}");
  return text;
}

}  // namespace zln
