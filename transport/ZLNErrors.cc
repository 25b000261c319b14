#include "transport/ZLNErrors.h"

#include "platform/http.h"

namespace zln {

bool ZLNErrors::isNetworkErrorPermanent(const Error& error) {
  return error.code == url_error::kCancelled || error.code == url_error::kUnsupportedUrl ||
         error.code == url_error::kBadServerResponse || error.code == kUserCancelledError;
}

}  // namespace zln
