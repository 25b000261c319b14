#include "tests/support/https_server.h"

#include <openssl/err.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <limits>
#include <string_view>
#include <utility>

#include "tests/support/safety_limit.h"

namespace zln {

using std::chrono::milliseconds;

namespace {

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();
constexpr std::string_view kEndOfHead = "\r\n\r\n";
constexpr std::string_view kHttp2Preface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n";
constexpr std::size_t kFrameHead = 9;

// The offset behind the frame that ends a request; absent as long as it has not come.
std::optional<std::size_t> endOfHttp2Request(std::string_view bytes) {
  constexpr unsigned char kData = 0;
  constexpr unsigned char kHeaders = 1;
  constexpr unsigned char kEndOfStream = 1;
  std::size_t at = kHttp2Preface.size();
  while (bytes.size() >= at + kFrameHead) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[at + i]); };
    const std::size_t length = std::size_t{byte(0)} << 16 | std::size_t{byte(1)} << 8 | byte(2);
    const bool carriesRequest = byte(3) == kData || byte(3) == kHeaders;
    const bool ends = (byte(4) & kEndOfStream) != 0;
    at += kFrameHead + length;
    if (carriesRequest && ends && bytes.size() >= at) return at;
  }
  return std::nullopt;
}

// Takes the first line off the front, without its end.
std::string_view nextLine(std::string_view& lines) {
  const std::string_view line = lines.substr(0, lines.find("\r\n"));
  lines.remove_prefix(std::min(lines.size(), line.size() + 2));
  return line;
}

ReceivedRequest parseHead(const std::string& head) {
  ReceivedRequest request;
  request.head = head;
  std::string_view lines = request.head;
  const std::string_view first = nextLine(lines);
  const std::size_t blank = first.find(' ');
  request.method = first.substr(0, blank);
  request.target = first.substr(blank + 1, first.rfind(' ') - blank - 1);
  while (!lines.empty()) {
    const std::string_view line = nextLine(lines);
    const std::size_t colon = line.find(':');
    const std::size_t value = std::min(line.find_first_not_of(' ', colon + 1), line.size());
    request.headers.emplace_back(line.substr(0, colon), line.substr(value));
  }
  return request;
}

std::size_t bodyLength(const ReceivedRequest& request) {
  const std::string length = request.header("Content-Length");
  std::size_t size = 0;
  std::from_chars(length.data(), length.data() + length.size(), size);
  return size;
}

auto findHeader(const HttpHeaders& headers, const std::string& name) {
  return std::find_if(headers.begin(), headers.end(), [&](const auto& header) {
    return strcasecmp(header.first.c_str(), name.c_str()) == 0;
  });
}

std::shared_ptr<SSL_CTX> newContext(const CertificateChain& chain) {
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
  chain.useIn(context.get());
  return context;
}

}  // namespace

std::string ReceivedRequest::header(const std::string& name) const {
  const auto found = findHeader(headers, name);
  return found == headers.end() ? "" : found->second;
}

bool ReceivedRequest::hasHeader(const std::string& name) const {
  return findHeader(headers, name) != headers.end();
}

// The connection.

// Until the handshake it is plain, then encrypted. What returns a bool returns false at the end of
// the connection.
class ServerConnection {
 public:
  using Record = std::function<void(const ReceivedRequest&)>;

  ServerConnection(LoopbackServer& server, int socket, SSL_CTX* context, Record record)
      : server_(server), socket_(socket), ssl_(SSL_new(context), SSL_free), record_(record) {
    SSL_set_bio(ssl_.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_accept_state(ssl_.get());
  }

  int socket() const { return socket_; }
  // What has come and is not part of a whole request.
  const std::string& unread() const { return unread_; }

  // Sends `limit` bytes of what the handshake has the server send, with a pause after each piece,
  // and leaves the handshake there.
  bool handshake(std::size_t limit, std::size_t pieceSize, milliseconds pause);
  bool readSome();
  bool readHead();
  std::optional<ReceivedRequest> readRequest(milliseconds pauseInBody);
  bool say(std::string_view bytes);
  bool sayFarewell();
  bool pause(milliseconds time);

 private:
  bool receive();
  bool flush();
  bool isSecure() const { return SSL_is_init_finished(ssl_.get()) == 1; }

  LoopbackServer& server_;
  const int socket_;
  const std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  const Record record_;
  std::size_t mayFlush_ = kAll;
  std::size_t pieceSize_ = kAll;
  milliseconds flushPause_{0};
  std::string unread_;
};

bool ServerConnection::handshake(std::size_t limit, std::size_t pieceSize, milliseconds pause) {
  mayFlush_ = limit;
  pieceSize_ = pieceSize;
  flushPause_ = pause;
  while (!isSecure() && mayFlush_ > 0) {
    ERR_clear_error();
    const int result = SSL_do_handshake(ssl_.get());
    const bool failed = result != 1 && SSL_get_error(ssl_.get(), result) != SSL_ERROR_WANT_READ;
    // What is to be said is said also when it is an alert.
    if (!flush() || failed) return false;
    if (!isSecure() && mayFlush_ > 0 && !receive()) return false;
  }
  return true;
}

// Hands on what TLS has to send.
bool ServerConnection::flush() {
  char* bytes = nullptr;
  const long pending = BIO_get_mem_data(SSL_get_wbio(ssl_.get()), &bytes);
  std::string_view rest(bytes, std::min(static_cast<std::size_t>(pending), mayFlush_));
  if (mayFlush_ != kAll) mayFlush_ -= rest.size();
  while (!rest.empty()) {
    const std::string_view piece = rest.substr(0, pieceSize_);
    rest.remove_prefix(piece.size());
    if (!sendAll(socket_, piece) || !pause(flushPause_)) return false;
  }
  BIO_reset(SSL_get_wbio(ssl_.get()));
  return true;
}

// Takes what comes over the wire to where it belongs: to TLS.
bool ServerConnection::receive() {
  char bytes[16384];
  const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
  return count > 0 && BIO_write(SSL_get_rbio(ssl_.get()), bytes, static_cast<int>(count)) == count;
}

bool ServerConnection::readSome() {
  char bytes[16384];
  if (!isSecure()) {
    const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
    if (count > 0) unread_.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
  }
  while (true) {
    ERR_clear_error();
    const int count = SSL_read(ssl_.get(), bytes, sizeof bytes);
    if (count > 0) {
      unread_.append(bytes, static_cast<std::size_t>(count));
      return true;
    }
    if (SSL_get_error(ssl_.get(), count) != SSL_ERROR_WANT_READ || !receive()) return false;
  }
}

bool ServerConnection::readHead() {
  while (unread_.find(kEndOfHead) == std::string::npos) {
    if (!readSome()) return false;
  }
  return true;
}

std::optional<ReceivedRequest> ServerConnection::readRequest(milliseconds pauseInBody) {
  if (!readHead()) return std::nullopt;
  const std::size_t end = unread_.find(kEndOfHead);
  ReceivedRequest request = parseHead(unread_.substr(0, end));
  unread_.erase(0, end + kEndOfHead.size());
  const std::size_t size = bodyLength(request);
  while (unread_.size() < size) {
    if (!readSome()) return std::nullopt;
    if (unread_.size() < size / 4 * 3 && !pause(pauseInBody)) return std::nullopt;
  }
  request.body = unread_.substr(0, size);
  request.isResumed = SSL_session_reused(ssl_.get()) == 1;
  unread_.erase(0, size);
  record_(request);
  return request;
}

bool ServerConnection::say(std::string_view bytes) {
  if (bytes.empty() || !isSecure()) return sendAll(socket_, bytes);
  ERR_clear_error();
  return SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0 && flush();
}

bool ServerConnection::sayFarewell() {
  SSL_shutdown(ssl_.get());
  return flush();
}

bool ServerConnection::pause(milliseconds time) {
  return time == milliseconds(0) || server_.pauseUnlessStopping(time);
}

// The steps.

namespace {

// The last step of a script.
template <typename Act>
Step last(Act act) {
  return [act](ServerConnection& connection) {
    act(connection);
    return false;
  };
}

Step handshakeBy(std::size_t limit, std::size_t pieceSize, milliseconds pause) {
  return
      [=](ServerConnection& connection) { return connection.handshake(limit, pieceSize, pause); };
}

// Waits until the client goes.
void drain(ServerConnection& connection) {
  char bytes[16384];
  while (recv(connection.socket(), bytes, sizeof bytes, 0) > 0) continue;
}

void closeAndDrain(ServerConnection& connection) {
  shutdown(connection.socket(), SHUT_WR);
  drain(connection);
}

}  // namespace

Step awaitBytes() {
  return [](ServerConnection& connection) {
    char byte;
    return recv(connection.socket(), &byte, 1, MSG_PEEK) == 1;
  };
}

Step readSome() { return &ServerConnection::readSome; }
Step readHead() { return &ServerConnection::readHead; }

Step readRequest(milliseconds pauseInBody) {
  return
      [=](ServerConnection& connection) { return connection.readRequest(pauseInBody).has_value(); };
}

Step readHttp2Request() {
  return [](ServerConnection& connection) {
    while (!endOfHttp2Request(connection.unread())) {
      if (!connection.readSome()) return false;
    }
    return true;
  };
}

Step handshake() { return handshakeBy(kAll, kAll, milliseconds(0)); }
Step handshakeUpTo(std::size_t bytes) { return handshakeBy(bytes, kAll, milliseconds(0)); }
Step handshakeByteByByte(milliseconds pause) { return handshakeBy(kAll, 1, pause); }

Step say(std::string bytes) {
  return [bytes = std::move(bytes)](ServerConnection& connection) { return connection.say(bytes); };
}

Step sayUnencrypted(std::string bytes) {
  return [bytes = std::move(bytes)](ServerConnection& connection) {
    return sendAll(connection.socket(), bytes);
  };
}

Step sayByteByByte(std::string bytes, milliseconds pause) {
  return [bytes = std::move(bytes), pause](ServerConnection& connection) {
    return std::all_of(bytes.begin(), bytes.end(), [&](char c) {
      return connection.say({&c, 1}) && connection.pause(pause);
    });
  };
}

Step sayForEver(std::string bytes, milliseconds pause) {
  return [bytes = std::move(bytes), pause](ServerConnection& connection) {
    while (connection.say(bytes) && connection.pause(pause)) continue;
    return false;
  };
}

Step reset() {
  return last([](ServerConnection& connection) {
    const linger abrupt{1, 0};
    setsockopt(connection.socket(), SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
  });
}

Step finish() { return last(&closeAndDrain); }

Step finishWithFarewell() {
  return last([](ServerConnection& connection) {
    if (connection.sayFarewell()) closeAndDrain(connection);
  });
}

Step stall() { return last(&drain); }

Step stallUnread() {
  return last([](ServerConnection& connection) {
    pollfd waiting{connection.socket(), POLLRDHUP, 0};
    poll(&waiting, 1, -1);
  });
}

Script operator+(Script script, Step step) {
  script.push_back(std::move(step));
  return script;
}

Script operator+(Script script, const Script& more) {
  script.insert(script.end(), more.begin(), more.end());
  return script;
}

// Replies.

ServerReply replyWith(int status, const std::string& body, const HttpHeaders& headers) {
  std::string bytes = "HTTP/1.1 " + std::to_string(status) + " Text\r\n";
  for (const auto& [name, value] : headers) bytes += name + ": " + value + "\r\n";
  bytes += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  return rawReply(bytes, ServerReply::End::kKeepOpen);
}

ServerReply rawReply(const std::string& bytes, ServerReply::End end) { return {{bytes}, end}; }

ServerReply successReply() {
  return replyWith(200, R"({"success":true})", {{"Content-Type", "application/json"}});
}

namespace {

Script scriptOf(const ServerReply& reply) {
  Script script;
  for (const std::string& piece : reply.pieces) script.push_back(say(piece));
  switch (reply.end) {
    case ServerReply::End::kKeepOpen:
      return script;
    case ServerReply::End::kCut:
      return script + finish();
    case ServerReply::End::kStall:
      return script + stall();
  }
  return script;
}

bool run(const Script& script, ServerConnection& connection) {
  return std::all_of(script.begin(), script.end(),
                     [&](const Step& step) { return step(connection); });
}

Script answering(HttpsServer::Handler handler) {
  return {handshake(), [handler = std::move(handler)](ServerConnection& connection) {
            while (const auto request = connection.readRequest(milliseconds(0))) {
              if (!run(scriptOf(handler(*request)), connection)) return false;
            }
            return false;
          }};
}

}  // namespace

// The server.

HttpsServer::HttpsServer(CertificateFlaw flaw, IpFamily family)
    : chain_(flaw),
      context_(newContext(chain_)),
      loopback_([this](int socket, int number) { serve(socket, number); }, family) {
  std::ofstream(caFile_) << chain_.rootPem();
  answer(successReply());
}

void HttpsServer::show(const CertificateChain& chain) {
  std::lock_guard lock(mutex_);
  context_ = newContext(chain);
}

void HttpsServer::configure(const std::function<void(SSL_CTX*)>& settings) {
  std::lock_guard lock(mutex_);
  settings(context_.get());
}

void HttpsServer::play(std::vector<Script> scripts) {
  std::lock_guard lock(mutex_);
  scripts_ = std::move(scripts);
  played_ = 0;
}

void HttpsServer::answer(Handler handler) { play(answering(std::move(handler))); }

void HttpsServer::answer(const ServerReply& reply) {
  answer([reply](const ReceivedRequest&) { return reply; });
}

std::vector<ReceivedRequest> HttpsServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

bool HttpsServer::waitForRequests(std::size_t count) {
  std::unique_lock lock(mutex_);
  return received_.wait_for(lock, kSafetyLimit, [&] { return requests_.size() >= count; });
}

void HttpsServer::serve(int socket, int number) {
  std::shared_ptr<SSL_CTX> context;
  Script script;
  {
    std::lock_guard lock(mutex_);
    context = context_;
    script = scripts_[std::min(played_++, scripts_.size() - 1)];
  }
  ServerConnection connection(loopback_, socket, context.get(), [&](ReceivedRequest request) {
    request.connection = number;
    std::lock_guard lock(mutex_);
    requests_.push_back(std::move(request));
    received_.notify_all();
  });
  run(script, connection);
}

}  // namespace zln
