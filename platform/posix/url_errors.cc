#include "platform/posix/url_errors.h"

#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/http.h"
#include "platform/joined.h"

namespace zln {

namespace {

struct CodePair {
  CURLcode result;
  int code;
};

// An unsupported protocol, too, means a reply that is not HTTP: URLs of other schemes are refused
// before a transfer starts. An empty reply is a connection lost, which is worth another try.
constexpr CodePair kCodes[] = {
    {CURLE_URL_MALFORMAT, url_error::kBadUrl},
    {CURLE_OPERATION_TIMEDOUT, url_error::kTimedOut},
    {CURLE_COULDNT_RESOLVE_PROXY, url_error::kCannotFindHost},
    {CURLE_COULDNT_RESOLVE_HOST, url_error::kCannotFindHost},
    {CURLE_COULDNT_CONNECT, url_error::kCannotConnectToHost},
    {CURLE_HTTP2, url_error::kNetworkConnectionLost},
    {CURLE_PARTIAL_FILE, url_error::kNetworkConnectionLost},
    {CURLE_GOT_NOTHING, url_error::kNetworkConnectionLost},
    {CURLE_SEND_ERROR, url_error::kNetworkConnectionLost},
    {CURLE_RECV_ERROR, url_error::kNetworkConnectionLost},
    {CURLE_SEND_FAIL_REWIND, url_error::kNetworkConnectionLost},
    {CURLE_HTTP2_STREAM, url_error::kNetworkConnectionLost},
    {CURLE_BAD_CONTENT_ENCODING, url_error::kCannotDecodeContentData},
    {CURLE_UNSUPPORTED_PROTOCOL, url_error::kCannotParseResponse},
    {CURLE_WEIRD_SERVER_REPLY, url_error::kCannotParseResponse},
    {CURLE_FILESIZE_EXCEEDED, url_error::kDataLengthExceedsMaximum},
    {CURLE_SSL_CONNECT_ERROR, url_error::kSecureConnectionFailed},
    {CURLE_SSL_CERTPROBLEM, url_error::kSecureConnectionFailed},
    {CURLE_SSL_SHUTDOWN_FAILED, url_error::kSecureConnectionFailed},
    {CURLE_SSL_CLIENTCERT, url_error::kSecureConnectionFailed},
    {CURLE_PEER_FAILED_VERIFICATION, url_error::kServerCertificateUntrusted},
};

struct CodeText {
  int code;
  std::string_view text;
};

constexpr CodeText kTexts[] = {
    {url_error::kCancelled, "cancelled"},
    {url_error::kBadUrl, "bad URL"},
    {url_error::kTimedOut, "The request timed out."},
    {url_error::kUnsupportedUrl, "unsupported URL"},
    {url_error::kCannotFindHost, "A server with the specified hostname could not be found."},
    {url_error::kCannotConnectToHost, "Could not connect to the server."},
    {url_error::kNetworkConnectionLost, "The network connection was lost."},
    {url_error::kTooManyRedirects, "too many HTTP redirects"},
    {url_error::kNotConnectedToInternet, "The Internet connection appears to be offline."},
    {url_error::kBadServerResponse, "There was a bad response from the server."},
    {url_error::kCannotDecodeContentData, "cannot decode content data"},
    {url_error::kCannotParseResponse, "cannot parse response"},
    {url_error::kSecureConnectionRequired,
     "The resource could not be loaded because the App Transport Security policy requires "
     "the use of a secure connection."},
    {url_error::kDataLengthExceedsMaximum, "resource exceeds maximum size"},
    {url_error::kSecureConnectionFailed,
     "An SSL error has occurred and a secure connection to the server cannot be made."},
};

std::string hostOf(const std::string& url) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parts(curl_url(), curl_url_cleanup);
  if (!parts || curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return {};
  char* text = nullptr;
  if (curl_url_get(parts.get(), CURLUPART_HOST, &text, 0) != CURLUE_OK) return {};
  std::string host = text;
  curl_free(text);
  return host;
}

std::string_view fixedText(int code) {
  for (const CodeText& entry : kTexts) {
    if (entry.code == code) return entry.text;
  }
  return "unknown error";
}

std::string textOf(int code, const std::string& url) {
  if (code != url_error::kServerCertificateUntrusted) return std::string(fixedText(code));
  return joined(
      {"The certificate for this server is invalid. You might be connecting to a server "
       "that is pretending to be “",
       hostOf(url), "” which could put your confidential information at risk."});
}

}  // namespace

int urlErrorCode(CURLcode result, long osError) {
  if (result == CURLE_COULDNT_CONNECT && (osError == ENETUNREACH || osError == ENETDOWN)) {
    return url_error::kNotConnectedToInternet;
  }
  for (const CodePair& pair : kCodes) {
    if (pair.result == result) return pair.code;
  }
  return url_error::kUnknown;
}

Error urlError(int code, const std::string& url) {
  Error error{kUrlErrorDomain, code, textOf(code, url), {}};
  if (!url.empty()) {
    error.userInfo = {{"NSErrorFailingURLStringKey", url}, {"NSErrorFailingURLKey", url}};
  }
  return error;
}

}  // namespace zln
