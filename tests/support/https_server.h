#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/http.h"
#include "tests/support/test_certificates.h"

namespace zln {

// A request as it came over the wire.
struct ReceivedRequest {
  std::string head;  // Raw, without the empty line that ends it.
  std::string method;
  std::string target;
  HttpHeaders headers;
  std::string body;
  int connection = 0;  // Connections are counted from 1.

  // The value of the first such header, whatever its case; empty when there is none.
  std::string header(const std::string& name) const;
  bool hasHeader(const std::string& name) const;
};

// The bytes of an answer and what becomes of the connection after them.
struct ServerReply {
  enum class End {
    kKeepOpen,  // Ready for the next request, as a good server is.
    kClose,     // Closed in good order.
    kCut,       // Closed without a farewell.
    kReset,
    kStall,  // Nothing more is sent, until the client goes.
  };

  std::vector<std::string> pieces;
  std::chrono::milliseconds pause{0};  // After each piece.
  bool endless = false;  // The last piece comes again and again until the client goes.
  End end = End::kKeepOpen;
};

// A whole reply; Content-Length is added.
ServerReply replyWith(int status, const std::string& body, const HttpHeaders& headers = {});
// The bytes as they are.
ServerReply rawReply(const std::string& bytes, ServerReply::End end);

// How the server treats a connection instead of reading requests from it and answering them.
enum class ConnectionFault {
  kNone,
  kResetOnAccept,
  kResetInHandshake,  // After the client's first message.
  kNoHandshake,       // The client's first message is never answered.
  kPlainText,         // It is answered without encryption.
  kResetAfterHandshake,
  kResetAfterHead,  // The body of the request is not read.
  // It is read with a pause after each 16 kB. The last quarter is read at once: the client has
  // handed it over to its system and can see no more of its way.
  kSlowReader,
};

// An HTTPS server on 127.0.0.1 that records what it receives and answers as it is told, badly if
// need be. It speaks HTTP/1.1. Any thread may call it. By default every request is answered with
// {"success":true}.
class HttpsServer {
 public:
  // Runs on the connection's own thread, so it may block.
  using Handler = std::function<ServerReply(const ReceivedRequest&)>;

  // Port 0 is one that is free.
  explicit HttpsServer(CertificateFlaw flaw = CertificateFlaw::kNone, std::uint16_t port = 0);
  // Closes all connections.
  ~HttpsServer();
  HttpsServer(const HttpsServer&) = delete;
  HttpsServer& operator=(const HttpsServer&) = delete;

  // "127.0.0.1:4711", and a URL there.
  std::string authority() const;
  std::string url(const std::string& target) const;
  // The file with the certificate of the server's own authority. It goes with the server.
  const std::string& caFile() const { return caFile_; }

  void answer(Handler handler);
  void answer(const ServerReply& reply);
  void setFault(ConnectionFault fault);

  std::vector<ReceivedRequest> requests() const;
  int connections() const;
  // Waits until so many requests have come, or all connections are closed. False after a minute.
  bool waitForRequests(std::size_t count);
  bool waitUntilDeserted();

 private:
  struct Connection {
    int number = 0;
    int socket = -1;
    bool done = false;
    std::thread thread;
  };

  void listenOn(std::uint16_t port);
  void acceptConnections();
  void joinFinished();
  void serve(Connection& connection);
  void talk(Connection& connection);
  void answerRequests(SSL* ssl, Connection& connection, ConnectionFault fault);
  bool readBody(SSL* ssl, std::string& buffer, ReceivedRequest& request,
                std::chrono::milliseconds pause);
  ServerReply::End sendReply(SSL* ssl, const ServerReply& reply);
  bool pauseUnlessStopping(std::chrono::milliseconds pause);
  void record(const ReceivedRequest& request);

  std::string caFile_;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::thread acceptor_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  Handler handler_;
  ConnectionFault fault_ = ConnectionFault::kNone;
  std::vector<ReceivedRequest> requests_;
  int accepted_ = 0;
  std::list<Connection> connections_;
};

}  // namespace zln
