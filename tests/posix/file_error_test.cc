#include "platform/posix/file_error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <utility>

namespace zln {
namespace {

constexpr char kNotPermitted[] =
    "You don’t have permission to save the file “file” in the folder “folder”.";
constexpr char kNotRemovable[] =
    "“file” couldn’t be removed because you don’t have permission to access it.";
constexpr char kOutOfSpace[] = "You can’t save the file “file” because the volume is out of space.";
constexpr char kNotSaved[] = "The file “file” couldn’t be saved in the folder “folder”.";
constexpr char kTaken[] =
    "The file “file” couldn’t be saved in the folder “folder” because a file with the same name "
    "already exists.";
constexpr char kReadOnly[] = "You can’t save the file “file” because the volume is read only.";
constexpr char kNotRemoved[] = "“file” couldn’t be removed.";

struct Row {
  int number;
  std::int64_t code;
  const char* saveText;
  const char* changeText;
  const char* removeText;
};

TEST(FileErrorTest, AnErrorHasThePlatformsCodeAndText) {
  const Row rows[] = {
      {ENOENT, 4, "The folder “folder” doesn’t exist.", "The file “file” doesn’t exist.",
       kNotRemoved},
      {EACCES, 513, kNotPermitted, kNotPermitted, kNotRemovable},
      {EPERM, 513, kNotPermitted, kNotPermitted, kNotRemovable},
      {EEXIST, 516, kTaken, kTaken, kNotRemoved},
      {ENOSPC, 640, kOutOfSpace, kOutOfSpace, kNotRemoved},
      {EDQUOT, 640, kOutOfSpace, kOutOfSpace, kNotRemoved},
      {EROFS, 642, kReadOnly, kReadOnly,
       "“file” couldn’t be removed because the volume is read only."},
      {EIO, 512, kNotSaved, kNotSaved, kNotRemoved},
      {EISDIR, 512, kNotSaved, kNotSaved, kNotRemoved},
  };
  for (const auto& [number, code, saveText, changeText, removeText] : rows) {
    const std::pair<Error, const char*> errors[] = {
        {saveError("/data/folder/file", number), saveText},
        {changeError("/data/folder/file", number), changeText},
        {removeError("/data/folder/file", number), removeText}};
    for (const auto& [error, text] : errors) {
      EXPECT_EQ("NSCocoaErrorDomain", error.domain);
      EXPECT_EQ(code, error.code) << number;
      EXPECT_EQ(text, error.localizedDescription);
    }
  }
}

TEST(FileErrorTest, ANumberThatTheSystemDoesNotKnowHasNoText) {
  const Error error = removeError("/file", 99999);

  EXPECT_EQ(512, error.code);
  EXPECT_EQ("0x0 {Error Domain=NSPOSIXErrorDomain Code=99999 \"(null)\"}",
            error.userInfo.at(2).second);
}

}  // namespace
}  // namespace zln
