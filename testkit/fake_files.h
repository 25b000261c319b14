#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/files.h"
#include "testkit/journal.h"

namespace zln {

// A file system in memory, empty at first. Folders list their entries in order of name.
class FakeFiles : public Files {
 public:
  explicit FakeFiles(Journal* journal = nullptr) : journal_(journal) {}

  std::string applicationSupportPath() override { return "/support"; }
  bool exists(const std::string& path) override;
  bool createDirectory(const std::string& path, Error* error) override;
  void enumerate(const std::string& path,
                 const std::function<void(const std::string& relativePath)>& visit) override;
  bool remove(const std::string& path, Error* error) override;
  std::optional<std::string> read(const std::string& path, std::size_t limit,
                                  Error* error) override;
  bool writeAtomically(const std::string& path, std::string_view bytes, Durability durability,
                       Error* error) override;
  // Keeps no earlier content, and corrects no wrong number of unchanged bytes.
  std::shared_ptr<AtomicFile> atomicFile(const std::string& path,
                                         const std::string& sparePath) override;
  bool excludeFromBackup(const std::string& path, Error* error) override;

  // Make operations fail, for lack of permission, until they are told otherwise. A folder fails to
  // be removed, and keeps all its contents, when anything in it does.
  void failWrites(bool fails = true) { writesFail_ = fails; }
  void failRead(const std::string& path, bool fails = true);
  void failCreate(const std::string& path, bool fails = true);
  void failRemove(const std::string& path, bool fails = true);
  void failExclude(const std::string& path, bool fails = true);

  // Put files and folders in place behind the library's back, with all folders above them. These
  // never fail and count as no write.
  void put(const std::string& path, std::string bytes);
  void makeFolder(const std::string& path);

  // The bytes of a file; absent when there is none at this path.
  std::optional<std::string> contents(const std::string& path) const;
  // The items that carry the backup mark. A file that is written anew has lost it.
  const std::set<std::string>& excluded() const { return excluded_; }
  // How many times the file has been written successfully.
  std::size_t writeCount(const std::string& path) const;
  // The paths given to successful calls of remove(), in order.
  const std::vector<std::string>& removed() const { return removed_; }

 private:
  // A folder has no bytes.
  using Items = std::map<std::string, std::optional<std::string>>;

  bool isThere(const std::string& plain) const;
  bool isFolder(const std::string& path) const;
  bool makeFolders(const std::string& plain, Error* error);
  std::vector<std::string> namesIn(const std::string& folder) const;
  void enumerateFolder(const std::string& folder, const std::string& relativePrefix,
                       const std::function<void(const std::string&)>& visit);
  bool removalFails(const std::string& path) const;
  void erase(const std::string& path);

  Journal* const journal_;
  Items items_;
  std::set<std::string> excluded_;
  std::map<std::string, std::size_t> writeCounts_;
  std::vector<std::string> removed_;
  bool writesFail_ = false;
  std::set<std::string> readFails_;
  std::set<std::string> createFails_;
  std::set<std::string> removeFails_;
  std::set<std::string> excludeFails_;
};

}  // namespace zln
