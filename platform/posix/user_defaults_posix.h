#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/user_defaults.h"
#include "platform/value.h"

namespace zln {

// The store is one property list in the XML form, read at first use and written whole at every
// change. Of two processes that share it the last writer wins. A file that cannot be understood
// counts as empty; the next change replaces it. A value that a property list cannot hold is not
// kept.
class UserDefaultsPosix : public UserDefaults {
 public:
  // The path is asked for once, at first use.
  UserDefaultsPosix(Files& files, std::function<std::string()> path);

  std::optional<Value> get(const std::string& key) override;
  void set(const std::string& key, Value value) override;
  bool synchronize() override;

 private:
  void loadOnce();
  bool save(const std::string& document);

  Files& files_;
  const std::function<std::string()> pathProvider_;
  std::mutex mutex_;
  std::optional<std::string> path_;
  Dictionary values_;
  // Whether the file lacks something that was set.
  bool unsaved_ = false;
};

}  // namespace zln
