// Replies over HTTP/1 that are cut, framed wrongly, too large, or no HTTP.

#include "tests/network/scene.h"

namespace zln {

namespace {

constexpr char kOk[] = "HTTP/1.1 200 OK\r\n";
constexpr char kChunked[] = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

std::string withHeaders(const std::string& lines) { return kOk + lines + "\r\n" + kBody; }

// The server sends these bytes and nothing more, but stays there.
Row stays(const std::string& what, const std::string& bytes, const Outcome& outcome) {
  return {what, serverPlays(takeRequest() + say(bytes) + stall()), outcome};
}

// The server sends these bytes and closes.
Row closes(const std::string& what, const std::string& bytes, const Outcome& outcome) {
  return {what, serverPlays(takeRequest() + say(bytes) + finishWithFarewell()), outcome};
}

// The server sends the first bytes, and then the others again and again.
Row goesOn(const std::string& what, const std::string& first, const std::string& again,
           const Outcome& outcome) {
  return {what, serverPlays(takeRequest() + say(first) + sayForEver(again)), outcome};
}

std::vector<Row> lengths() {
  return {
      closes("length longer than the body", withHeaders("Content-Length: 17\r\n"),
             temporaryError(-1005)),
      stays("length shorter than the body", withHeaders("Content-Length: 7\r\n"),
            response(200, R"({"succe)")),
      closes("length negative", withHeaders("Content-Length: -16\r\n"), temporaryError(-1017)),
      stays("length of a hundred megabytes", withHeaders("Content-Length: 104857600\r\n"),
            temporaryError(-1103)),
      stays("length beyond all numbers", withHeaders("Content-Length: 99999999999999999999\r\n"),
            temporaryError(-1103)),
      stays("length that is no number", withHeaders("Content-Length: many\r\n"),
            temporaryError(-1017)),
      stays("length empty", withHeaders("Content-Length:\r\n"), temporaryError(-1017)),
      stays("two lengths that differ, the longer first",
            withHeaders("Content-Length: 16\r\nContent-Length: 7\r\n"), temporaryError(-1017)),
      stays("two lengths that differ, the shorter first",
            withHeaders("Content-Length: 7\r\nContent-Length: 16\r\n"), temporaryError(-1017)),
      stays("two lengths alike", withHeaders("Content-Length: 16\r\nContent-Length: 16\r\n"),
            response(200, kBody)),
      closes("body until the close", withHeaders(""), response(200, kBody)),
      closes("body of HTTP 1.0 until the close", "HTTP/1.0 200 OK\r\n\r\n" + std::string(kBody),
             response(200, kBody)),
      stays("two lengths in one line", withHeaders("Content-Length: 7, 16\r\n"),
            temporaryError(-1017)),
      stays("length with something behind it", withHeaders("Content-Length: 7 bytes\r\n"),
            temporaryError(-1017)),
      // Many servers close like this. Half an object is no JSON, so the report is sent again.
      {"body until the close, cut off",
       serverPlays(takeRequest() + say("HTTP/1.1 200 OK\r\n\r\n{\"succ") + finish()),
       response(200, "{\"succ")},
  };
}

std::vector<Row> chunks() {
  return {
      stays("chunks", std::string(kChunked) + "a\r\n{\"success\"\r\n6;x=y\r\n:true}\r\n0\r\n\r\n",
            response(200, kBody)),
      stays("chunks beside a length",
            std::string(kOk) + "Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n" +
                "10\r\n" + kBody + "\r\n0\r\n\r\n",
            response(200, kBody)),
      closes("chunks without the last", std::string(kChunked) + "10\r\n" + kBody + "\r\n",
             temporaryError(-1005)),
      stays("chunk without a size", std::string(kChunked) + "\r\n" + kBody + "\r\n0\r\n\r\n",
            temporaryError(-1005)),
      stays("chunk with a size that is no number",
            std::string(kChunked) + "size\r\n" + kBody + "\r\n0\r\n\r\n", temporaryError(-1005)),
      stays("chunk with a negative size", std::string(kChunked) + "-10\r\n" + kBody + "\r\n",
            temporaryError(-1005)),
      stays("chunk larger than its size", std::string(kChunked) + "5\r\n" + kBody + "\r\n0\r\n\r\n",
            temporaryError(-1005)),
      stays("chunk with a size beyond all numbers",
            std::string(kChunked) + "fffffffffffffffffff\r\n" + kBody, temporaryError(-1005)),
      stays("transfer encoding unknown",
            std::string(kOk) + "Transfer-Encoding: rot13\r\n\r\n" + kBody, temporaryError(-1016)),
      goesOn("chunks for ever", kChunked, "8000\r\n" + std::string(0x8000, 'x') + "\r\n",
             temporaryError(-1103)),
      goesOn("chunk for ever", std::string(kChunked) + "7fffffffffffffff\r\n",
             std::string(65536, 'x'), temporaryError(-1103)),
      {"name of a chunk for ever",
       serverPlays(takeRequest() + say(std::string(kChunked) + "5;") +
                   sayForEver(std::string(4096, 'x'), std::chrono::milliseconds(5))),
       temporaryError(-1001), shortTimeouts()},
      goesOn("trailers for ever", std::string(kChunked) + "0\r\n", "X: 1\r\n",
             temporaryError(-1103)),
  };
}

std::vector<Row> sizes() {
  return {
      goesOn("body without an end", "HTTP/1.1 200 OK\r\n\r\n", std::string(65536, 'x'),
             temporaryError(-1103)),
      goesOn("body of a hundred megabytes", "HTTP/1.1 200 OK\r\nContent-Length: 104857600\r\n\r\n",
             std::string(65536, 'x'), temporaryError(-1103)),
      goesOn("headers without an end", kOk, "X-A-Header: with a value\r\n", temporaryError(-1103)),
      goesOn("header line without an end", std::string(kOk) + "X: ", std::string(4096, 'x'),
             temporaryError(-1)),
      goesOn("status line without an end", "HTTP/1.1 200 ", std::string(4096, 'x'),
             temporaryError(-1)),
      goesOn("interim replies without an end", "HTTP/1.1 100 Continue\r\n\r\n",
             "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n", temporaryError(-1103)),
  };
}

std::vector<Row> statuses() {
  const std::string length = "Content-Length: 16\r\n\r\n";
  return {
      stays(
          "interim replies before the reply",
          "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\n\r\n" + (kOk + length) + kBody,
          response(200, kBody)),
      closes("interim reply alone", "HTTP/1.1 100 Continue\r\n\r\n", temporaryError(-1005)),
      closes("interim reply before half a head",
             "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nX: 1\r\n", temporaryError(-1005)),
      stays("204 with a body", "HTTP/1.1 204 No Content\r\n" + length + kBody, response(204, "")),
      stays("304 with a body", "HTTP/1.1 304 Not Modified\r\n" + length + kBody, response(304, "")),
      stays("500 that takes the report", "HTTP/1.1 500 Oops\r\n" + length + kBody,
            response(500, kBody)),
      stays("200 with an empty body", std::string(kOk) + "Content-Length: 0\r\n\r\n",
            response(200, "")),
      stays("status 999", "HTTP/1.1 999 Odd\r\n" + length + kBody, response(999, kBody)),
      closes("status of two digits", "HTTP/1.1 20 OK\r\n" + length + kBody, temporaryError(-1017)),
      closes("status of four digits", "HTTP/1.1 2000 OK\r\n" + length + kBody,
             temporaryError(-1017)),
      closes("status missing", "HTTP/1.1 OK\r\n" + length + kBody, temporaryError(-1017)),
      closes("HTTP of an unknown version", "HTTP/7.7 200 OK\r\n" + length + kBody,
             temporaryError(-1017)),
      closes("HTTP 0.9", kBody, temporaryError(-1017)),
      closes("another protocol", "220 mail.invalid ESMTP\r\n", temporaryError(-1017)),
      goesOn("garbage for ever", "", std::string(4096, '\x01'), temporaryError(-1017)),
      closes("header without a colon", std::string(kOk) + "garbage\r\n" + length + kBody,
             temporaryError(-1017)),
      closes("header with a zero byte", kOk + std::string("X: a\0b\r\n", 8) + length + kBody,
             temporaryError(-1017)),
      closes("line feeds alone", "HTTP/1.1 200 OK\nContent-Length: 16\n\n" + std::string(kBody),
             response(200, kBody)),
  };
}

}  // namespace

std::vector<Row> replyRows() {
  std::vector<Row> rows;
  for (const std::vector<Row>& part : {lengths(), chunks(), sizes(), statuses()}) {
    rows.insert(rows.end(), part.begin(), part.end());
  }
  return rows;
}

}  // namespace zln
