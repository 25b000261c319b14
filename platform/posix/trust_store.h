#pragma once

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <string>

struct x509_store_st;

namespace zln {

// The certificate authorities of a file, read once for all connections. Of the hundred and more of
// a system a game meets two or three: each is looked up by its name and decoded when a server's
// certificate leads to it, for to decode them all takes longer than the rest of a request, and
// much memory. A file that has changed is read again.
class TrustStore {
 public:
  using Authorities = std::shared_ptr<x509_store_st>;

  // Null when there is none in the file. Any thread may call it; they wait for the one that reads.
  // Any thread may use the authorities.
  Authorities of(const std::string& file);

 private:
  std::mutex mutex_;
  std::string file_;
  struct stat facts_ {};
  Authorities authorities_;
};

}  // namespace zln
