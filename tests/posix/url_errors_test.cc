#include "platform/posix/url_errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>
#include <vector>

namespace zln {
namespace {

TEST(UrlErrorsTest, EveryEndOfATransferHasItsCode) {
  const std::pair<int, std::vector<CURLcode>> rows[] = {
      {-1,
       {CURLE_FAILED_INIT, CURLE_WRITE_ERROR, CURLE_OUT_OF_MEMORY, CURLE_ABORTED_BY_CALLBACK,
        CURLE_BAD_FUNCTION_ARGUMENT}},
      {-1000, {CURLE_URL_MALFORMAT}},
      {-1001, {CURLE_OPERATION_TIMEDOUT}},
      {-1003, {CURLE_COULDNT_RESOLVE_PROXY, CURLE_COULDNT_RESOLVE_HOST}},
      {-1004, {CURLE_COULDNT_CONNECT}},
      {-1005,
       {CURLE_HTTP2, CURLE_PARTIAL_FILE, CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR,
        CURLE_SEND_FAIL_REWIND, CURLE_HTTP2_STREAM}},
      {-1016, {CURLE_BAD_CONTENT_ENCODING}},
      {-1017, {CURLE_UNSUPPORTED_PROTOCOL, CURLE_WEIRD_SERVER_REPLY}},
      {-1103, {CURLE_FILESIZE_EXCEEDED}},
      {-1200,
       {CURLE_SSL_CONNECT_ERROR, CURLE_SSL_CERTPROBLEM, CURLE_SSL_SHUTDOWN_FAILED,
        CURLE_SSL_CLIENTCERT}},
      {-1202, {CURLE_PEER_FAILED_VERIFICATION}},
  };
  for (const auto& [code, results] : rows) {
    for (const CURLcode result : results) {
      EXPECT_EQ(code, urlErrorCode(result, 0)) << "result " << result;
    }
  }
}

TEST(UrlErrorsTest, NoEndOfATransferIsPermanent) {
  for (int result = 0; result < CURL_LAST; ++result) {
    const int code = urlErrorCode(static_cast<CURLcode>(result), 0);

    EXPECT_TRUE(code != -999 && code != -1002 && code != -1011 && code != 3072)
        << "result " << result << " is code " << code;
  }
}

TEST(UrlErrorsTest, AMachineWithoutNetworkIsOffline) {
  EXPECT_EQ(-1009, urlErrorCode(CURLE_COULDNT_CONNECT, ENETUNREACH));
  EXPECT_EQ(-1009, urlErrorCode(CURLE_COULDNT_CONNECT, ENETDOWN));
  EXPECT_EQ(-1004, urlErrorCode(CURLE_COULDNT_CONNECT, ECONNREFUSED));
}

TEST(UrlErrorsTest, EveryCodeHasItsText) {
  const struct {
    int code;
    const char* text;
  } cases[] = {
      {-1, "unknown error"},
      {-999, "cancelled"},
      {-1000, "bad URL"},
      {-1001, "The request timed out."},
      {-1002, "unsupported URL"},
      {-1003, "A server with the specified hostname could not be found."},
      {-1004, "Could not connect to the server."},
      {-1005, "The network connection was lost."},
      {-1007, "too many HTTP redirects"},
      {-1009, "The Internet connection appears to be offline."},
      {-1011, "There was a bad response from the server."},
      {-1016, "cannot decode content data"},
      {-1017, "cannot parse response"},
      {-1022,
       "The resource could not be loaded because the App Transport Security policy requires the "
       "use of a secure connection."},
      {-1103, "resource exceeds maximum size"},
      {-1200, "An SSL error has occurred and a secure connection to the server cannot be made."},
      {-1202,
       "The certificate for this server is invalid. You might be connecting to a server that is "
       "pretending to be “reports.invalid” which could put your confidential information at risk."},
  };

  for (const auto& [code, text] : cases) {
    EXPECT_EQ(text, urlError(code, "https://user@reports.invalid:8443/a?b").localizedDescription)
        << "code " << code;
  }
}

TEST(UrlErrorsTest, AnErrorNamesTheUrlThatFailed) {
  const Error timeout{"NSURLErrorDomain",
                      -1001,
                      "The request timed out.",
                      {{"NSErrorFailingURLStringKey", "https://reports.invalid/a"},
                       {"NSErrorFailingURLKey", "https://reports.invalid/a"}}};
  const Error noUrl{"NSURLErrorDomain", -1002, "unsupported URL", {}};

  EXPECT_EQ(timeout, urlError(-1001, "https://reports.invalid/a"));
  EXPECT_EQ(noUrl, urlError(-1002, ""));
}

}  // namespace
}  // namespace zln
