#pragma once

#include <string>

#include "tests/support/https_server.h"

namespace zln {

// How the request breaks its schema, one of the *.schema.json in the folder; empty when it does
// not.
std::string schemaViolation(const std::string& schemaFolder, const ReceivedRequest& request);

}  // namespace zln
