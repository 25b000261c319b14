#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"

namespace zln {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
  std::string method;
  std::string url;
  HttpHeaders headers;
  std::string body;
};

// The head of a reply.
struct HttpResponse {
  std::string url;
  int statusCode = 0;
  HttpHeaders headers;

  // "<NSHTTPURLResponse: 0x…> { URL: … } { Status Code: 200, Headers {…} }", headers sorted.
  std::string description() const;
};

// Either an error, or a response with its body, which may be empty.
struct HttpReply {
  std::string body;
  std::optional<HttpResponse> response;
  std::optional<Error> error;
};

// Sends requests. Every request runs on a session of its own: its own connection, the platform's
// default time-outs and redirect rules, nothing shared with other requests. Any thread may call it.
class HttpClient {
 public:
  virtual ~HttpClient() = default;
  // Starts the upload and returns. `completion` runs once, later, on that session's thread, also
  // when the URL cannot be used.
  virtual void upload(HttpRequest request, std::function<void(HttpReply)> completion) = 0;
};

// Codes of the platform's transport errors, in kUrlErrorDomain.
namespace url_error {
inline constexpr int kUnknown = -1;
inline constexpr int kCancelled = -999;
inline constexpr int kBadUrl = -1000;
inline constexpr int kTimedOut = -1001;
inline constexpr int kUnsupportedUrl = -1002;
inline constexpr int kCannotFindHost = -1003;
inline constexpr int kCannotConnectToHost = -1004;
inline constexpr int kNetworkConnectionLost = -1005;
inline constexpr int kTooManyRedirects = -1007;
inline constexpr int kNotConnectedToInternet = -1009;
inline constexpr int kBadServerResponse = -1011;
inline constexpr int kCannotDecodeContentData = -1016;
inline constexpr int kCannotParseResponse = -1017;
inline constexpr int kSecureConnectionRequired = -1022;
inline constexpr int kDataLengthExceedsMaximum = -1103;
inline constexpr int kSecureConnectionFailed = -1200;
inline constexpr int kServerCertificateUntrusted = -1202;
}  // namespace url_error

// In kCocoaErrorDomain: the user cancelled an operation.
inline constexpr int kUserCancelledError = 3072;

}  // namespace zln
