#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/posix/atomic_file_posix.h"

namespace zln {

// Files of a user of this machine. What it makes belongs to that user alone: folders have the mode
// 0700, files 0600.
class FilesPosix : public Files {
 public:
  // The provider is asked at every call. `runLater` is for the atomic files.
  explicit FilesPosix(std::function<std::string()> applicationSupportPath,
                      AtomicFilePosix::RunLater runLater = nullptr);

  std::string applicationSupportPath() override;
  bool exists(const std::string& path) override;
  bool createDirectory(const std::string& path, Error* error) override;
  void enumerate(const std::string& path,
                 const std::function<void(const std::string& relativePath)>& visit) override;
  bool remove(const std::string& path, Error* error) override;
  std::optional<std::string> read(const std::string& path, std::size_t limit,
                                  Error* error) override;
  bool writeAtomically(const std::string& path, std::string_view bytes, Durability durability,
                       Error* error) override;
  std::shared_ptr<AtomicFile> atomicFile(const std::string& path,
                                         const std::string& sparePath) override;
  bool excludeFromBackup(const std::string& path, Error* error) override;

 private:
  const std::function<std::string()> applicationSupportPath_;
  const AtomicFilePosix::RunLater runLater_;
};

}  // namespace zln
