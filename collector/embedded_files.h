#pragma once

#include <string>
#include <string_view>

namespace zln::collector {

// A file that the program carries: of the page ("page/index.html"), a schema
// ("schema/ad-attempt.schema.json") or "openapi.yaml".
struct EmbeddedFile {
  std::string_view name;
  std::string_view content;
  std::string_view type;  // For a browser.
  std::string tag;        // Another one when the content is another.
};

// Nothing when there is no such file.
const EmbeddedFile* findEmbeddedFile(std::string_view name);

}  // namespace zln::collector
