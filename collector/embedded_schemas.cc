#include "collector/embedded_schemas.h"

#include <map>
#include <string>

#include "collector/embedded_files.h"

namespace zln::collector {

ReportSchemas embeddedSchemas() {
  std::map<ReportKind, std::string> texts;
  for (const ReportKind kind : kReportKinds) {
    const std::string name = "schema/" + std::string(nameOf(kind)) + ".schema.json";
    const EmbeddedFile* file = findEmbeddedFile(name);
    if (file != nullptr) texts[kind] = file->content;
  }
  return ReportSchemas(texts);
}

}  // namespace zln::collector
