#pragma once

#include "collector/report_schemas.h"

namespace zln::collector {

// The schemas of the reports, as the program carries them.
ReportSchemas embeddedSchemas();

}  // namespace zln::collector
