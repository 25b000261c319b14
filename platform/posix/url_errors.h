#pragma once

#include <curl/curl.h>

#include <string>

#include "platform/error.h"

namespace zln {

// The platform's code for the way a transfer failed. `osError` is the errno of its last system call
// that failed, or 0. Never one of the codes that make a failure permanent.
int urlErrorCode(CURLcode result, long osError);

// The error in kUrlErrorDomain with its English text and the URL that failed.
Error urlError(int code, const std::string& url);

}  // namespace zln
