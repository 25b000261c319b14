#pragma once

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <string>

struct x509_store_st;

namespace zln {

// The certificate authorities of a file, read once for all connections: reading the system's takes
// longer than the rest of a request. A file that has changed is read again.
class TrustStore {
 public:
  using Authorities = std::shared_ptr<x509_store_st>;

  // Null when there is none in the file. Any thread may call it; they wait for the one that reads.
  Authorities of(const std::string& file);

 private:
  std::mutex mutex_;
  std::string file_;
  struct stat facts_ {};
  Authorities authorities_;
};

}  // namespace zln
