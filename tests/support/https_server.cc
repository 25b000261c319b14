#include "tests/support/https_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace zln {

namespace {

using End = ServerReply::End;
using SslPointer = std::unique_ptr<SSL, decltype(&SSL_free)>;

constexpr std::chrono::minutes kPatience{1};

void require(bool worked, const char* what) {
  if (!worked) throw std::runtime_error(what);
}

std::string writeTemporaryFile(const std::string& text) {
  std::string path = (std::filesystem::temp_directory_path() / "zln-test-ca-XXXXXX").string();
  const int file = mkstemp(path.data());
  require(file >= 0, "no temporary file");
  const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(file);
  require(written, "the temporary file cannot be written");
  return path;
}

// A client that goes away is nothing that ends the test.
void blockPipeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

// The next close of the socket is a reset.
void resetOnClose(int socket) {
  const linger abrupt{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
}

void readSome(int socket) {
  char bytes[4096];
  [[maybe_unused]] const ssize_t count = recv(socket, bytes, sizeof bytes, 0);
}

void readUntilClosed(int socket) {
  char bytes[4096];
  while (recv(socket, bytes, sizeof bytes, 0) > 0) continue;
}

void readUntilClosed(SSL* ssl) {
  char bytes[4096];
  while (SSL_read(ssl, bytes, sizeof bytes) > 0) continue;
}

bool sendAll(SSL* ssl, std::string_view bytes) {
  return bytes.empty() || SSL_write(ssl, bytes.data(), static_cast<int>(bytes.size())) > 0;
}

// Adds what comes next. False at the end of the connection.
bool readMore(SSL* ssl, std::string& buffer) {
  char bytes[16384];
  const int count = SSL_read(ssl, bytes, sizeof bytes);
  if (count <= 0) return false;
  buffer.append(bytes, static_cast<std::size_t>(count));
  return true;
}

// Takes the head off the front of `buffer`, which is read on until it is whole.
std::optional<ReceivedRequest> readHead(SSL* ssl, std::string& buffer) {
  std::size_t end = 0;
  while ((end = buffer.find("\r\n\r\n")) == std::string::npos) {
    if (!readMore(ssl, buffer)) return std::nullopt;
  }
  ReceivedRequest request;
  request.head = buffer.substr(0, end);
  buffer.erase(0, end + 4);
  return request;
}

void parseHead(ReceivedRequest& request) {
  std::string_view rest = request.head;
  bool first = true;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find("\r\n"));
    rest.remove_prefix(std::min(rest.size(), line.size() + 2));
    if (first) {
      const std::size_t blank = line.find(' ');
      request.method = line.substr(0, blank);
      request.target = line.substr(blank + 1, line.rfind(' ') - blank - 1);
    } else {
      const std::size_t colon = line.find(':');
      const std::size_t value = std::min(line.find_first_not_of(' ', colon + 1), line.size());
      request.headers.emplace_back(line.substr(0, colon), line.substr(value));
    }
    first = false;
  }
}

std::size_t bodyLength(const ReceivedRequest& request) {
  const std::string length = request.header("Content-Length");
  std::size_t size = 0;
  std::from_chars(length.data(), length.data() + length.size(), size);
  return size;
}

const std::pair<std::string, std::string>* findHeader(const HttpHeaders& headers,
                                                      const std::string& name) {
  const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& header) {
    return strcasecmp(header.first.c_str(), name.c_str()) == 0;
  });
  return found == headers.end() ? nullptr : &*found;
}

}  // namespace

std::string ReceivedRequest::header(const std::string& name) const {
  const auto* found = findHeader(headers, name);
  return found == nullptr ? std::string() : found->second;
}

bool ReceivedRequest::hasHeader(const std::string& name) const {
  return findHeader(headers, name) != nullptr;
}

ServerReply replyWith(int status, const std::string& body, const HttpHeaders& headers) {
  std::string bytes = "HTTP/1.1 " + std::to_string(status) + " Text\r\n";
  for (const auto& [name, value] : headers) bytes += name + ": " + value + "\r\n";
  bytes += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  return rawReply(bytes, End::kKeepOpen);
}

ServerReply rawReply(const std::string& bytes, ServerReply::End end) {
  ServerReply reply;
  reply.pieces = {bytes};
  reply.end = end;
  return reply;
}

HttpsServer::HttpsServer(CertificateFlaw flaw, std::uint16_t port)
    : context_(nullptr, SSL_CTX_free), handler_([](const ReceivedRequest&) {
        return replyWith(200, R"({"success":true})", {{"Content-Type", "application/json"}});
      }) {
  const TestAuthority authority;
  const Identity identity = authority.issue(flaw);
  caFile_ = writeTemporaryFile(authority.certificatePem());
  context_.reset(SSL_CTX_new(TLS_server_method()));
  require(context_ != nullptr, "no TLS context");
  require(SSL_CTX_use_certificate(context_.get(), identity.certificate.get()) == 1, "certificate");
  require(SSL_CTX_use_PrivateKey(context_.get(), identity.key.get()) == 1, "private key");
  listenOn(port);
  acceptor_ = std::thread([this] { acceptConnections(); });
}

HttpsServer::~HttpsServer() {
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
  unlink(caFile_.c_str());
}

void HttpsServer::listenOn(std::uint16_t port) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  require(bind(listener_, generic, size) == 0 && listen(listener_, SOMAXCONN) == 0 &&
              getsockname(listener_, generic, &size) == 0,
          "no port to listen on");
  port_ = ntohs(address.sin_port);
}

std::string HttpsServer::authority() const { return "127.0.0.1:" + std::to_string(port_); }

std::string HttpsServer::url(const std::string& target) const {
  return "https://" + authority() + target;
}

void HttpsServer::answer(Handler handler) {
  std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

void HttpsServer::answer(const ServerReply& reply) {
  answer([reply](const ReceivedRequest&) { return reply; });
}

void HttpsServer::setFault(ConnectionFault fault) {
  std::lock_guard lock(mutex_);
  fault_ = fault;
}

std::vector<ReceivedRequest> HttpsServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

int HttpsServer::connections() const {
  std::lock_guard lock(mutex_);
  return accepted_;
}

bool HttpsServer::waitForRequests(std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [&] { return requests_.size() >= count; });
}

bool HttpsServer::waitUntilDeserted() {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [&] {
    return std::all_of(connections_.begin(), connections_.end(),
                       [](const Connection& connection) { return connection.done; });
  });
}

void HttpsServer::acceptConnections() {
  for (;;) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    joinFinished();
    std::lock_guard lock(mutex_);
    if (stopping_ || socket < 0) {
      if (socket >= 0) close(socket);
      return;
    }
    Connection& connection = connections_.emplace_back();
    connection.number = ++accepted_;
    connection.socket = socket;
    connection.thread = std::thread([this, &connection] { serve(connection); });
  }
}

void HttpsServer::joinFinished() {
  std::list<Connection> finished;
  {
    std::lock_guard lock(mutex_);
    for (auto connection = connections_.begin(); connection != connections_.end();) {
      const auto next = std::next(connection);
      if (connection->done) finished.splice(finished.end(), connections_, connection);
      connection = next;
    }
  }
  for (Connection& connection : finished) connection.thread.join();
}

void HttpsServer::serve(Connection& connection) {
  blockPipeSignal();
  const int on = 1;
  setsockopt(connection.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  talk(connection);
  std::lock_guard lock(mutex_);
  close(connection.socket);
  connection.done = true;
  changed_.notify_all();
}

void HttpsServer::talk(Connection& connection) {
  ConnectionFault fault;
  {
    std::lock_guard lock(mutex_);
    fault = fault_;
  }
  switch (fault) {
    case ConnectionFault::kResetOnAccept:
      return resetOnClose(connection.socket);
    case ConnectionFault::kResetInHandshake:
      readSome(connection.socket);
      return resetOnClose(connection.socket);
    case ConnectionFault::kNoHandshake:
      return readUntilClosed(connection.socket);
    case ConnectionFault::kPlainText: {
      constexpr std::string_view kText = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n";
      readSome(connection.socket);
      send(connection.socket, kText.data(), kText.size(), MSG_NOSIGNAL);
      return;
    }
    default:
      break;
  }
  const SslPointer ssl(SSL_new(context_.get()), SSL_free);
  if (!ssl || SSL_set_fd(ssl.get(), connection.socket) != 1 || SSL_accept(ssl.get()) != 1) return;
  if (fault == ConnectionFault::kResetAfterHandshake) return resetOnClose(connection.socket);
  answerRequests(ssl.get(), connection, fault);
}

void HttpsServer::answerRequests(SSL* ssl, Connection& connection, ConnectionFault fault) {
  std::string buffer;
  while (std::optional<ReceivedRequest> request = readHead(ssl, buffer)) {
    if (fault == ConnectionFault::kResetAfterHead) return resetOnClose(connection.socket);
    parseHead(*request);
    const std::chrono::milliseconds pause(fault == ConnectionFault::kSlowReader ? 2 : 0);
    if (!readBody(ssl, buffer, *request, pause)) return;
    request->connection = connection.number;
    record(*request);
    Handler handler;
    {
      std::lock_guard lock(mutex_);
      handler = handler_;
    }
    switch (sendReply(ssl, handler(*request))) {
      case End::kKeepOpen:
        break;
      case End::kClose:
        SSL_shutdown(ssl);
        return;
      case End::kCut:
        return;
      case End::kReset:
        return resetOnClose(connection.socket);
      case End::kStall:
        return readUntilClosed(ssl);
    }
  }
}

bool HttpsServer::readBody(SSL* ssl, std::string& buffer, ReceivedRequest& request,
                           std::chrono::milliseconds pause) {
  const std::size_t size = bodyLength(request);
  while (buffer.size() < size) {
    if (!readMore(ssl, buffer)) return false;
    if (buffer.size() < size / 4 * 3 && !pauseUnlessStopping(pause)) return false;
  }
  request.body = buffer.substr(0, size);
  buffer.erase(0, size);
  return true;
}

// What is to become of the connection: nothing more when the client has gone.
ServerReply::End HttpsServer::sendReply(SSL* ssl, const ServerReply& reply) {
  for (const std::string& piece : reply.pieces) {
    if (!sendAll(ssl, piece) || !pauseUnlessStopping(reply.pause)) return End::kCut;
  }
  while (reply.endless) {
    if (!sendAll(ssl, reply.pieces.back()) || !pauseUnlessStopping(reply.pause)) return End::kCut;
  }
  return reply.end;
}

bool HttpsServer::pauseUnlessStopping(std::chrono::milliseconds pause) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, pause, [this] { return stopping_; });
}

void HttpsServer::record(const ReceivedRequest& request) {
  std::lock_guard lock(mutex_);
  requests_.push_back(request);
  changed_.notify_all();
}

}  // namespace zln
