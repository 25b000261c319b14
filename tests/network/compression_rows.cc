// Replies that are compressed, well, badly or with bad intentions.

#include "tests/network/scene.h"

namespace zln {

namespace {

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// The body in the format deflate, without anything around it.
std::string deflated() {
  return {"\xab\x56\x2a\x2e\x4d\x4e\x4e\x2d\x2e\x56\xb2\x2a\x29\x2a\x4d\xad\x05\0", 18};
}

std::string gzipHead() { return {"\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03", 10}; }

std::string gzipped() {
  return gzipHead() + deflated() + std::string("\xdf\xf7\xf6\x66\x10\0\0\0", 8);
}

std::string inZlib() { return "\x78\x9c" + deflated() + std::string("\x33\x6f\x06\x30", 4); }

std::string inBrotli() {
  return {"\x1b\x0f\x00\xf8\xa5\x45\x74\xf6\xfa\xa4\x22\x92\x54\x52\x1b\x18\x71\x08\x1b", 19};
}

// A block of 16 kB of zeros in 37 bytes, which any number may follow.
std::string packedZeros() {
  return std::string("\xec\xc1\x31\x01\0\0\0\xc2\xa0\xf5\x4f\x6d\x0c\x1f\xa0", 15) +
         std::string(15, '\0') + std::string("\x80\xb7\x01\0\0\xff\xff", 7);
}

// A block of nothing.
std::string packedNothing() { return {"\0\0\0\xff\xff", 5}; }

std::string head(const std::string& encoding) {
  return "HTTP/1.1 200 OK\r\nContent-Encoding: " + encoding + "\r\n";
}

Row packed(const std::string& what, const std::string& encoding, const std::string& body,
           const Outcome& outcome) {
  const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  return {what, serverPlays(takeRequest() + say(head(encoding) + length + body) + stall()),
          outcome};
}

Row packedForEver(const std::string& what, const std::string& encoding, const std::string& first,
                  const std::string& again) {
  return {what,
          serverPlays(takeRequest() + say(head(encoding) + "\r\n" + first) + sayForEver(again)),
          temporaryError(-1103)};
}

}  // namespace

std::vector<Row> compressionRows() {
  std::string wrongChecksum = gzipped();
  wrongChecksum[wrongChecksum.size() - 8] ^= 1;
  const std::string bomb = gzipHead() + repeated(packedZeros(), 64 * 100);
  return {
      packed("gzip", "gzip", gzipped(), response(200, kBody)),
      packed("deflate", "deflate", inZlib(), response(200, kBody)),
      packed("deflate without its head", "deflate", deflated(), response(200, kBody)),
      packed("brotli", "br", inBrotli(), response(200, kBody)),
      packed("no compression by name", "identity", kBody, response(200, kBody)),
      packed("gzip that is none", "gzip", kBody, temporaryError(-1016)),
      packed("gzip with a wrong checksum", "gzip", wrongChecksum, temporaryError(-1016)),
      packed("compression unknown", "rot13", kBody, temporaryError(-1016)),
      packed("compressed six times over", "gzip, gzip, gzip, gzip, gzip, gzip", gzipped(),
             temporaryError(-1016)),
      packed("bomb of a hundred megabytes", "gzip", bomb, temporaryError(-1103)),
      packedForEver("bomb without an end", "gzip", gzipHead(), repeated(packedZeros(), 64)),
      packedForEver("gzip of nothing without an end", "gzip", gzipHead(),
                    repeated(packedNothing(), 5000)),
      packedForEver("gzip name without an end", "gzip",
                    std::string("\x1f\x8b\x08\x08\0\0\0\0\x02\x03", 10), std::string(65536, 'x')),
      packedForEver("brotli of nothing without an end", "br", "\x0c", std::string(65536, '\x06')),
  };
}

}  // namespace zln
