#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/user_defaults.h"
#include "platform/value.h"

namespace zln {

// The store is one property list in the XML form, read at first use and written whole by
// synchronize(). Of two processes that share it the last writer wins. A file that is no property
// list counts as empty and is replaced.
//
// A file that cannot be read is never replaced: it is read again at later uses. Until that succeeds
// the store has what was set in this process; then that is added to the file's values, without
// replacing any.
class UserDefaultsPosix : public UserDefaults {
 public:
  // The path is asked for once, at first use.
  UserDefaultsPosix(Files& files, std::function<std::string()> path);

  std::optional<Value> get(const std::string& key, Error* error) override;
  void set(const std::string& key, Value value) override;
  bool synchronize() override;

 private:
  enum class File { unread, unreadable, loaded };

  bool load(Error* error);
  bool save();

  Files& files_;
  const std::function<std::string()> pathProvider_;
  std::mutex mutex_;
  std::optional<std::string> path_;
  Dictionary values_;
  File file_ = File::unread;
  // Whether the file lacks something that was set.
  bool isUnsaved_ = false;
};

}  // namespace zln
