#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/posix/files_posix.h"
#include "tests/support/file_contents.h"
#include "tests/support/temporary_folder.h"

namespace zln {

inline std::vector<std::string> namesIn(const std::string& folderPath) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folderPath)) {
    names.push_back(entry.path().filename());
  }
  return names;
}

// The descriptors of this process.
inline std::size_t openDescriptors() { return namesIn("/proc/self/fd").size(); }

// While one of these exists, this process can open nothing. The undefined-behavior sanitizer needs
// descriptors itself and takes every object for an invalid one without.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none{0, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

// A folder in which a test looks at what the port does with files. Paths are relative to it. The
// file creation mask withholds nothing, so the port alone decides who may use what it makes.
class FolderTest : public testing::Test {
 protected:
  FolderTest() : maskBefore_(umask(0)) {}
  ~FolderTest() override { umask(maskBefore_); }

  std::string path(const std::string& relativePath) const {
    return folder.path() + "/" + relativePath;
  }

  void put(const std::string& relativePath, const std::string& bytes, mode_t mode = 0600) {
    std::ofstream(path(relativePath), std::ios::binary) << bytes;
    ASSERT_EQ(0, chmod(path(relativePath).c_str(), mode));
  }
  void makeFolder(const std::string& relativePath) {
    ASSERT_EQ(0, mkdir(path(relativePath).c_str(), 0700));
  }
  void makeLink(const std::string& target, const std::string& relativePath) {
    std::filesystem::create_symlink(target, path(relativePath));
  }

  std::string contents(const std::string& relativePath) const {
    return contentsOf(path(relativePath));
  }
  std::vector<std::string> names() const { return namesIn(folder.path()); }

  // The facts of an item itself.
  struct stat factsOf(const std::string& relativePath) const {
    struct stat facts {};
    EXPECT_EQ(0, lstat(path(relativePath).c_str(), &facts)) << relativePath;
    return facts;
  }
  mode_t mode(const std::string& relativePath) const {
    return factsOf(relativePath).st_mode & 07777;
  }
  bool isThere(const std::string& relativePath) const {
    return std::filesystem::exists(std::filesystem::symlink_status(path(relativePath)));
  }

  std::vector<std::string> visited(const std::string& folderPath) {
    std::vector<std::string> items;
    files.enumerate(folderPath, [&](const std::string& item) { items.push_back(item); });
    return items;
  }

  TemporaryFolder folder;
  FilesPosix files{[] { return std::string("/unused"); }};

 private:
  const mode_t maskBefore_;
};

}  // namespace zln
