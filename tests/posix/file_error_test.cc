#include "platform/posix/file_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

namespace zln {
namespace {

struct Row {
  int number;
  std::int64_t code;
  const char* saveText;
  const char* changeText;
  const char* removeText;
};

class FileErrorTest : public testing::TestWithParam<Row> {};

TEST_P(FileErrorTest, ASaveErrorHasThePlatformsCodeAndText) {
  const Error error = saveError("/data/folder/file", GetParam().number);

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(GetParam().code, error.code);
  EXPECT_EQ(GetParam().saveText, error.localizedDescription);
}

TEST_P(FileErrorTest, AChangeErrorHasThePlatformsCodeAndText) {
  const Error error = changeError("/data/folder/file", GetParam().number);

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(GetParam().code, error.code);
  EXPECT_EQ(GetParam().changeText, error.localizedDescription);
}

TEST_P(FileErrorTest, ARemoveErrorHasThePlatformsCodeAndText) {
  const Error error = removeError("/data/folder/file", GetParam().number);

  EXPECT_EQ("NSCocoaErrorDomain", error.domain);
  EXPECT_EQ(GetParam().code, error.code);
  EXPECT_EQ(GetParam().removeText, error.localizedDescription);
}

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

INSTANTIATE_TEST_SUITE_P(
    Numbers, FileErrorTest,
    testing::Values(Row{ENOENT, 4, "The folder “folder” doesn’t exist.",
                        "The file “file” doesn’t exist.", kNotRemoved},
                    Row{EACCES, 513, kNotPermitted, kNotPermitted, kNotRemovable},
                    Row{EPERM, 513, kNotPermitted, kNotPermitted, kNotRemovable},
                    Row{EEXIST, 516, kTaken, kTaken, kNotRemoved},
                    Row{ENOSPC, 640, kOutOfSpace, kOutOfSpace, kNotRemoved},
                    Row{EDQUOT, 640, kOutOfSpace, kOutOfSpace, kNotRemoved},
                    Row{EROFS, 642, kReadOnly, kReadOnly,
                        "“file” couldn’t be removed because the volume is read only."},
                    Row{EIO, 512, kNotSaved, kNotSaved, kNotRemoved},
                    Row{EISDIR, 512, kNotSaved, kNotSaved, kNotRemoved}));

TEST(FileErrorTextTest, ANumberThatTheSystemDoesNotKnowHasNoText) {
  const Error error = removeError("/file", 99999);

  EXPECT_EQ(512, error.code);
  EXPECT_EQ("0x0 {Error Domain=NSPOSIXErrorDomain Code=99999 \"(null)\"}",
            error.userInfo.at(2).second);
}

}  // namespace
}  // namespace zln
