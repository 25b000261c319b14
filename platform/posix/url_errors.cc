#include "platform/posix/url_errors.h"

#include <cerrno>
#include <memory>

#include "platform/http.h"

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
    {CURLE_SSL_ENGINE_NOTFOUND, url_error::kSecureConnectionFailed},
    {CURLE_SSL_ENGINE_SETFAILED, url_error::kSecureConnectionFailed},
    {CURLE_SSL_CERTPROBLEM, url_error::kSecureConnectionFailed},
    {CURLE_SSL_CIPHER, url_error::kSecureConnectionFailed},
    {CURLE_SSL_ENGINE_INITFAILED, url_error::kSecureConnectionFailed},
    {CURLE_SSL_CACERT_BADFILE, url_error::kSecureConnectionFailed},
    {CURLE_SSL_SHUTDOWN_FAILED, url_error::kSecureConnectionFailed},
    {CURLE_SSL_CRL_BADFILE, url_error::kSecureConnectionFailed},
    {CURLE_SSL_ISSUER_ERROR, url_error::kSecureConnectionFailed},
    {CURLE_SSL_CLIENTCERT, url_error::kSecureConnectionFailed},
    {CURLE_PEER_FAILED_VERIFICATION, url_error::kServerCertificateUntrusted},
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

std::string textOf(int code, const std::string& url) {
  switch (code) {
    case url_error::kCancelled:
      return "cancelled";
    case url_error::kBadUrl:
      return "bad URL";
    case url_error::kTimedOut:
      return "The request timed out.";
    case url_error::kUnsupportedUrl:
      return "unsupported URL";
    case url_error::kCannotFindHost:
      return "A server with the specified hostname could not be found.";
    case url_error::kCannotConnectToHost:
      return "Could not connect to the server.";
    case url_error::kNetworkConnectionLost:
      return "The network connection was lost.";
    case url_error::kTooManyRedirects:
      return "too many HTTP redirects";
    case url_error::kNotConnectedToInternet:
      return "The Internet connection appears to be offline.";
    case url_error::kBadServerResponse:
      return "There was a bad response from the server.";
    case url_error::kCannotDecodeContentData:
      return "cannot decode content data";
    case url_error::kCannotParseResponse:
      return "cannot parse response";
    case url_error::kSecureConnectionRequired:
      return "The resource could not be loaded because the App Transport Security policy requires "
             "the use of a secure connection.";
    case url_error::kDataLengthExceedsMaximum:
      return "resource exceeds maximum size";
    case url_error::kSecureConnectionFailed:
      return "An SSL error has occurred and a secure connection to the server cannot be made.";
    case url_error::kServerCertificateUntrusted:
      return "The certificate for this server is invalid. You might be connecting to a server that "
             "is pretending to be “" +
             hostOf(url) + "” which could put your confidential information at risk.";
    default:
      return "unknown error";
  }
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
