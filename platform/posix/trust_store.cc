#include "platform/posix/trust_store.h"

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "platform/posix/open_folder.h"
#include "platform/posix/process_environment.h"

namespace zln {
namespace {

// ---- Authorities ----

// The first certificate with some hash, such as "5ed36f99.0".
bool isHashedName(std::string_view name) {
  constexpr std::size_t kHashLength = 8;
  return name.size() == kHashLength + 2 && name.ends_with(".0") &&
         name.find_first_not_of("0123456789abcdef") == kHashLength;
}

bool isHashed(const std::string& path) {
  const FileDescriptor folder(open(path.c_str(), kFolderFlags & ~O_NOFOLLOW));
  if (!folder) return false;
  const std::vector<std::string> names = namesIn(folder.get());
  return std::any_of(names.begin(), names.end(), isHashedName);
}

std::string systemFile() {
  const char* const file = curl_version_info(CURLVERSION_NOW)->cainfo;
  return file != nullptr ? file : "";
}

// Null when nothing can be read from a file that is asked for.
std::shared_ptr<X509_STORE> readAuthorities(const std::string& file, const std::string& folders) {
  std::shared_ptr<X509_STORE> store(X509_STORE_new(), &X509_STORE_free);
  const bool isRead = store && X509_STORE_load_path(store.get(), folders.c_str()) == 1 &&
                      (file.empty() || X509_STORE_load_file(store.get(), file.c_str()) == 1);
  // What OpenSSL notes for this thread must not be taken for the fault of a later connection.
  ERR_clear_error();
  return isRead ? store : nullptr;
}

// Another text when another file or folder is there, or it has changed.
std::string stateOf(std::string path) {
  struct stat facts {};
  if (stat(path.c_str(), &facts) != 0) return path;
  const std::array<std::int64_t, 5> numbers = {
      static_cast<std::int64_t>(facts.st_dev), static_cast<std::int64_t>(facts.st_ino),
      facts.st_size, facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec};
  return path.append(reinterpret_cast<const char*>(numbers.data()), sizeof numbers);
}

std::string stateOfFolders(std::string_view folders) {
  std::string state;
  while (!folders.empty()) {
    const std::size_t end = std::min(folders.find(':'), folders.size());
    state += stateOf(std::string(folders.substr(0, end)));
    folders.remove_prefix(std::min(end + 1, folders.size()));
  }
  return state;
}

// ---- Sessions ----

using Locks = std::array<std::mutex, CURL_LOCK_DATA_LAST>;

void lockData(CURL*, curl_lock_data data, curl_lock_access, void* locks) {
  (*static_cast<Locks*>(locks))[data].lock();
}

void unlockData(CURL*, curl_lock_data data, void* locks) {
  (*static_cast<Locks*>(locks))[data].unlock();
}

// Without sessions yet. Where there is no memory for them, none are kept.
std::shared_ptr<const Trust> trusting(std::shared_ptr<X509_STORE> authorities) {
  const auto locks = std::make_shared<Locks>();
  std::shared_ptr<CURLSH> sessions(curl_share_init(),
                                   [locks](CURLSH* share) { curl_share_cleanup(share); });
  curl_share_setopt(sessions.get(), CURLSHOPT_USERDATA, locks.get());
  curl_share_setopt(sessions.get(), CURLSHOPT_LOCKFUNC, &lockData);
  curl_share_setopt(sessions.get(), CURLSHOPT_UNLOCKFUNC, &unlockData);
  curl_share_setopt(sessions.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  return std::make_shared<const Trust>(Trust{std::move(authorities), std::move(sessions)});
}

}  // namespace

std::shared_ptr<const Trust> TrustStore::now() {
  const std::optional<std::string> namedFile = environmentVariable("SSL_CERT_FILE");
  const std::optional<std::string> namedFolders = environmentVariable("SSL_CERT_DIR");
  const bool isSystems = !namedFile && !namedFolders;
  const std::string file = isSystems ? systemFile() : namedFile.value_or("");
  const std::string folders = namedFolders.value_or(X509_get_default_cert_dir());

  std::lock_guard lock(mutex_);
  const std::string fileState = stateOf(file);
  const std::string state = fileState + stateOfFolders(folders);
  if (state == state_) return trust_;
  const bool isFileRead = !isSystems || !isHashed(folders);
  auto authorities = readAuthorities(isFileRead ? file : "", folders);
  // While a file is being replaced, what was read of it goes on to count.
  const bool isGone = fileState == file && file == file_;
  if (!authorities && isGone && trust_) authorities = trust_->authorities;
  trust_ = authorities ? trusting(std::move(authorities)) : nullptr;
  file_ = file;
  state_ = state;
  return trust_;
}

void TrustStore::forgetSessions(const std::shared_ptr<const Trust>& trust) {
  std::lock_guard lock(mutex_);
  if (trust == trust_) trust_ = trusting(trust->authorities);
}

}  // namespace zln
