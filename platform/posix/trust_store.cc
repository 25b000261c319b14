#include "platform/posix/trust_store.h"

#include <openssl/err.h>
#include <openssl/x509.h>

namespace zln {
namespace {

bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

TrustStore::Authorities readAuthorities(const std::string& file) {
  TrustStore::Authorities authorities(X509_STORE_new(), &X509_STORE_free);
  if (authorities && X509_STORE_load_file(authorities.get(), file.c_str()) != 1) {
    authorities = nullptr;
  }
  // What OpenSSL notes for this thread must not be taken for the fault of a later connection.
  ERR_clear_error();
  return authorities;
}

}  // namespace

TrustStore::Authorities TrustStore::of(const std::string& file) {
  struct stat facts {};
  const bool isThere = stat(file.c_str(), &facts) == 0;
  std::lock_guard lock(mutex_);
  // While a file is being replaced, what was read of it goes on to count.
  if (!isThere) return file == file_ ? authorities_ : nullptr;
  if (!authorities_ || file != file_ || !isSameFile(facts, facts_)) {
    authorities_ = readAuthorities(file);
    file_ = file;
    facts_ = facts;
  }
  return authorities_;
}

}  // namespace zln
