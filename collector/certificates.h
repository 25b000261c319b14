#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zln::collector {

// The files of the collector's identity, all PEM.
struct CertificateFiles {
  std::filesystem::path authority;    // The throw-away authority that games are told to trust.
  std::filesystem::path certificate;  // The server's, for localhost, 127.0.0.1 and ::1.
  std::filesystem::path expired;      // The same, but that its time is over.
  std::filesystem::path wrongHost;    // One for another host.
  std::filesystem::path key;          // The key of all three, readable by its owner only.
};

// The certificate files in `folder`: those that lie there, or new ones when they are missing, do
// not fit together, lack one of the hosts or expire within a day. The authority's key is never
// kept, so nothing else can be signed with it. Throws std::runtime_error when they cannot be made.
CertificateFiles certificateFiles(const std::filesystem::path& folder,
                                  const std::vector<std::string>& hosts = {});

}  // namespace zln::collector
