#pragma once

#include <string>

#include "platform/http.h"
#include "platform/posix/http_curl.h"
#include "platform/posix/trust_store.h"

namespace zln {

// Carries a request to its reply, over all redirects, on the calling thread, which is inside the
// exit gate. The connection is closed when it returns.
HttpReply transfer(HttpRequest request, const std::string& userAgent, const HttpTimeouts& timeouts,
                   TrustStore& trustStore);

}  // namespace zln
