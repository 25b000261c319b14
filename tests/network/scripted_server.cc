#include "tests/network/scripted_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace zln {

namespace {

using std::chrono::milliseconds;

// So little of what a client sends is taken that it notices a server that does not read.
constexpr int kReceiveBuffer = 64 * 1024;
constexpr int kPollMilliseconds = 20;
constexpr std::string_view kHttp2Preface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n";
constexpr std::size_t kFrameHead = 9;

void require(bool worked, const char* what) {
  if (!worked) throw std::runtime_error(what);
}

int listenOn(ScriptedServer::Family family) {
  const bool isIpv6 = family == ScriptedServer::Family::kIpv6;
  const int listener = socket(isIpv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  require(listener >= 0, "no socket");
  setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  sockaddr_in6 address6{};
  address6.sin6_family = AF_INET6;
  address6.sin6_addr = in6addr_loopback;
  const int bound =
      isIpv6 ? bind(listener, reinterpret_cast<const sockaddr*>(&address6), sizeof address6)
             : bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (bound != 0 || listen(listener, SOMAXCONN) != 0) {
    close(listener);
    throw std::runtime_error("no port to listen on");
  }
  return listener;
}

std::uint16_t portOf(int listener) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  require(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) == 0, "no port");
  // The port stands at the same place in the addresses of both families.
  return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

std::shared_ptr<SSL_CTX> newContext() { return {SSL_CTX_new(TLS_server_method()), SSL_CTX_free}; }

std::size_t announcedLength(const std::string& head) {
  constexpr std::string_view kName = "\r\nContent-Length: ";
  const std::size_t start = head.find(kName);
  std::size_t length = 0;
  if (start != std::string::npos) {
    std::from_chars(head.data() + start + kName.size(), head.data() + head.size(), length);
  }
  return length;
}

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

}  // namespace

// The connection.

ServerConnection::ServerConnection(ScriptedServer& server, int socket, SSL_CTX* context)
    : server_(server), socket_(socket), ssl_(SSL_new(context), SSL_free) {
  require(ssl_ != nullptr, "no TLS");
  SSL_set_bio(ssl_.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
  SSL_set_accept_state(ssl_.get());
}

bool ServerConnection::isSecure() const { return SSL_is_init_finished(ssl_.get()) == 1; }

bool ServerConnection::awaitBytes() {
  pollfd waiting{socket_, POLLIN, 0};
  while (server_.pauseUnlessStopping({})) {
    if (poll(&waiting, 1, kPollMilliseconds) > 0) return true;
  }
  return false;
}

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
    if (!sendAll(piece)) return false;
    if (flushPause_ > milliseconds(0) && !pause(flushPause_)) return false;
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

bool ServerConnection::sendAll(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool ServerConnection::read() {
  char bytes[16384];
  if (!isSecure()) {
    const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
    if (count > 0) received_.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
  }
  for (;;) {
    ERR_clear_error();
    const int count = SSL_read(ssl_.get(), bytes, sizeof bytes);
    if (count > 0) {
      received_.append(bytes, static_cast<std::size_t>(count));
      return true;
    }
    if (SSL_get_error(ssl_.get(), count) != SSL_ERROR_WANT_READ || !receive()) return false;
  }
}

bool ServerConnection::readHead() {
  while (received_.find("\r\n\r\n") == std::string::npos) {
    if (!read()) return false;
  }
  return true;
}

bool ServerConnection::readRequest() {
  if (!readHead()) return false;
  const std::size_t end = received_.find("\r\n\r\n") + 4;
  const std::size_t length = announcedLength(received_.substr(0, end));
  while (received_.size() < end + length) {
    if (!read()) return false;
  }
  return true;
}

bool ServerConnection::readHttp2Request() {
  while (!endOfHttp2Request(received_)) {
    if (!read()) return false;
  }
  return true;
}

bool ServerConnection::say(std::string_view bytes) {
  if (bytes.empty() || !isSecure()) return sendAll(bytes);
  ERR_clear_error();
  return SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0 && flush();
}

bool ServerConnection::sayUnencrypted(std::string_view bytes) { return sendAll(bytes); }

bool ServerConnection::pause(milliseconds time) { return server_.pauseUnlessStopping(time); }

void ServerConnection::resetWhenClosed() {
  const linger abrupt{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
}

void ServerConnection::finish() {
  shutdown(socket_, SHUT_WR);
  drain();
}

void ServerConnection::finishWithFarewell() {
  SSL_shutdown(ssl_.get());
  if (flush()) finish();
}

void ServerConnection::drain() {
  char bytes[16384];
  while (recv(socket_, bytes, sizeof bytes, 0) > 0) continue;
}

void ServerConnection::leaveUnread() {
  pollfd waiting{socket_, POLLRDHUP, 0};
  while (server_.pauseUnlessStopping({}) && poll(&waiting, 1, kPollMilliseconds) == 0) continue;
}

// The steps.

namespace {

Step end(void (ServerConnection::*how)()) {
  return [how](ServerConnection& connection) {
    (connection.*how)();
    return false;
  };
}

Step handshakeBy(std::size_t limit, std::size_t pieceSize, milliseconds pause) {
  return
      [=](ServerConnection& connection) { return connection.handshake(limit, pieceSize, pause); };
}

}  // namespace

Step awaitBytes() { return &ServerConnection::awaitBytes; }
Step readSome() { return &ServerConnection::read; }
Step readHead() { return &ServerConnection::readHead; }
Step readRequest() { return &ServerConnection::readRequest; }
Step readHttp2Request() { return &ServerConnection::readHttp2Request; }
Step reset() { return end(&ServerConnection::resetWhenClosed); }
Step finish() { return end(&ServerConnection::finish); }
Step finishWithFarewell() { return end(&ServerConnection::finishWithFarewell); }
Step stall() { return end(&ServerConnection::drain); }
Step stallUnread() { return end(&ServerConnection::leaveUnread); }

Step handshake() {
  return handshakeBy(ServerConnection::kAll, ServerConnection::kAll, milliseconds(0));
}

Step handshakeUpTo(std::size_t bytes) {
  return handshakeBy(bytes, ServerConnection::kAll, milliseconds(0));
}

Step handshakeByteByByte(milliseconds pause) {
  return handshakeBy(ServerConnection::kAll, 1, pause);
}

Step say(std::string bytes) {
  return [bytes = std::move(bytes)](ServerConnection& connection) { return connection.say(bytes); };
}

Step sayUnencrypted(std::string bytes) {
  return [bytes = std::move(bytes)](ServerConnection& connection) {
    return connection.sayUnencrypted(bytes);
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

Script operator+(Script script, Step step) {
  script.push_back(std::move(step));
  return script;
}

Script operator+(Script script, const Script& more) {
  script.insert(script.end(), more.begin(), more.end());
  return script;
}

// The server.

ScriptedServer::ScriptedServer(Family family)
    : family_(family),
      listener_(listenOn(family)),
      port_(portOf(listener_)),
      context_(newContext()),
      acceptor_([this] { acceptConnections(); }) {}

ScriptedServer::~ScriptedServer() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    shutdown(listener_, SHUT_RDWR);
    for (const Connection& connection : connections_) {
      if (!connection.done) shutdown(connection.socket, SHUT_RDWR);
    }
    changed_.notify_all();
  }
  acceptor_.join();
  for (Connection& connection : connections_) connection.thread.join();
  close(listener_);
}

std::string ScriptedServer::authority() const {
  const std::string host = family_ == Family::kIpv6 ? "[::1]" : "127.0.0.1";
  return host + ":" + std::to_string(port_);
}

std::string ScriptedServer::url(const std::string& target) const {
  return "https://" + authority() + target;
}

void ScriptedServer::show(const ShownCertificates& certificates) {
  {
    std::lock_guard lock(mutex_);
    context_ = newContext();
  }
  configure([&](SSL_CTX* context) {
    SSL_CTX_use_certificate(context, certificates.server.certificate.get());
    SSL_CTX_use_PrivateKey(context, certificates.server.key.get());
    for (const CertificatePointer& other : certificates.others) {
      SSL_CTX_add1_chain_cert(context, other.get());
    }
  });
}

void ScriptedServer::configure(const std::function<void(SSL_CTX*)>& settings) {
  std::lock_guard lock(mutex_);
  settings(context_.get());
}

void ScriptedServer::play(std::vector<Script> scripts) {
  std::lock_guard lock(mutex_);
  scripts_ = std::move(scripts);
  played_ = 0;
}

std::vector<std::string> ScriptedServer::received(std::size_t count) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::minutes(1), [&] {
    return connections_.size() >= count &&
           std::all_of(connections_.begin(), connections_.end(),
                       [](const Connection& connection) { return connection.done; });
  });
  std::vector<std::string> all;
  for (const Connection& connection : connections_) all.push_back(connection.received);
  return all;
}

int ScriptedServer::connections() const {
  std::lock_guard lock(mutex_);
  return accepted_;
}

bool ScriptedServer::pauseUnlessStopping(milliseconds time) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, time, [this] { return stopping_; });
}

void ScriptedServer::acceptConnections() {
  for (;;) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    std::lock_guard lock(mutex_);
    if (stopping_ || socket < 0) {
      if (socket >= 0) close(socket);
      return;
    }
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ++accepted_;
    Connection& connection = connections_.emplace_back();
    connection.socket = socket;
    connection.context = context_;
    if (!scripts_.empty()) connection.script = scripts_[std::min(played_++, scripts_.size() - 1)];
    connection.thread = std::thread([this, &connection] { serve(connection); });
  }
}

void ScriptedServer::serve(Connection& connection) {
  std::string received;
  {
    ServerConnection hands(*this, connection.socket, connection.context.get());
    for (const Step& step : connection.script) {
      if (!step(hands)) break;
    }
    received = hands.received();
  }
  std::lock_guard lock(mutex_);
  connection.received = std::move(received);
  close(connection.socket);
  connection.done = true;
  changed_.notify_all();
}

}  // namespace zln
