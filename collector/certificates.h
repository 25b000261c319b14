#pragma once

#include <filesystem>

namespace zln::collector {

// The files of the receiver's identity, all PEM.
struct CertificateFiles {
  std::filesystem::path authority;    // The throw-away authority that games are told to trust.
  std::filesystem::path certificate;  // The server's, for localhost and 127.0.0.1.
  std::filesystem::path key;          // The server's private key, readable by its owner only.
};

// The certificate files in `folder`: those that lie there, or new ones when they are missing, do
// not fit together or expire within a day. The authority's key is never kept, so nothing else can
// be signed with it. Throws std::runtime_error when they cannot be made.
CertificateFiles certificateFiles(const std::filesystem::path& folder);

}  // namespace zln::collector
