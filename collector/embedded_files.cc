#include "collector/embedded_files.h"

#include <openssl/sha.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "collector/embedded_contents.h"

namespace zln::collector {
namespace {

constexpr std::size_t kTagBytes = 16;

struct FileType {
  std::string_view ending;
  std::string_view type;
};

constexpr FileType kTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".woff2", "font/woff2"},
    {".yaml", "application/yaml"},
};

std::string_view typeOf(std::string_view name) {
  const auto* type = std::ranges::find_if(
      kTypes, [&](const FileType& candidate) { return name.ends_with(candidate.ending); });
  return type == std::end(kTypes) ? "text/plain; charset=utf-8" : type->type;
}

std::string tagOf(std::string_view content) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), digest);
  constexpr char kDigits[] = "0123456789abcdef";
  std::string tag;
  for (std::size_t i = 0; i < kTagBytes; ++i) {
    tag += kDigits[digest[i] >> 4];
    tag += kDigits[digest[i] & 0xF];
  }
  return tag;
}

std::vector<EmbeddedFile> describeAll() {
  std::vector<EmbeddedFile> files;
  for (const EmbeddedContent& it : embeddedContents()) {
    const std::string_view content(it.begin, static_cast<std::size_t>(it.end - it.begin));
    files.push_back({it.name, content, typeOf(it.name), tagOf(content)});
  }
  return files;
}

}  // namespace

const EmbeddedFile* findEmbeddedFile(std::string_view name) {
  static const std::vector<EmbeddedFile> files = describeAll();
  const auto file = std::ranges::find(files, name, &EmbeddedFile::name);
  return file == files.end() ? nullptr : &*file;
}

}  // namespace zln::collector
