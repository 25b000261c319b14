#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/http.h"
#include "tests/support/loopback_server.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_certificates.h"

namespace zln {

// A request as it came over the wire.
struct ReceivedRequest {
  std::string head;  // Raw, without the empty line that ends it.
  std::string method;
  std::string target;
  HttpHeaders headers;
  std::string body;
  int connection = 0;      // Connections are counted from 1.
  bool isResumed = false;  // Its connection has resumed the TLS session of an earlier one.

  // The value of the first such header, whatever its case; empty when there is none.
  std::string header(const std::string& name) const;
  bool hasHeader(const std::string& name) const;
};

// The bytes of an answer and what becomes of the connection after them.
struct ServerReply {
  enum class End {
    kKeepOpen,  // Ready for the next request, as a good server is.
    kCut,       // Closed without the farewell of TLS.
    kStall,     // Nothing more is sent, until the client goes.
  };

  std::vector<std::string> pieces;
  End end = End::kKeepOpen;
};

// A whole reply; Content-Length is added.
ServerReply replyWith(int status, const std::string& body, const HttpHeaders& headers = {});
// The bytes as they are.
ServerReply rawReply(const std::string& bytes, ServerReply::End end);
// What a service says that takes everything: {"success":true}.
ServerReply successReply();

// One thing that a server does with a connection; false ends the script.
class ServerConnection;
using Step = std::function<bool(ServerConnection&)>;
// What a server does with a connection. At its end the connection is closed.
using Script = std::vector<Step>;

// The steps. Before a handshake they are unencrypted.
Step awaitBytes();
Step readSome();
Step readHead();
// A request of HTTP/1, which is recorded. With a pause after each piece of the body but the last
// quarter: that the client has handed over to its system and can see no more of its way.
Step readRequest(std::chrono::milliseconds pauseInBody = {});
// All that HTTP/2 sends of a request.
Step readHttp2Request();
Step handshake();
// Leaves the handshake when the server has sent so many bytes of it.
Step handshakeUpTo(std::size_t bytes);
Step handshakeByteByByte(std::chrono::milliseconds pause);
Step say(std::string bytes);
Step sayUnencrypted(std::string bytes);
Step sayByteByByte(std::string bytes, std::chrono::milliseconds pause);
Step sayForEver(std::string bytes, std::chrono::milliseconds pause = {});
Step reset();
// Says that nothing more will come, without and with the farewell of TLS, and waits until the
// client goes.
Step finish();
Step finishWithFarewell();
// Waits until the client goes, reading what comes or leaving it.
Step stall();
Step stallUnread();

// A script that goes on.
Script operator+(Script script, Step step);
Script operator+(Script script, const Script& more);

// A TLS server on the loopback interface that records the requests it receives and does with each
// connection what it is told, badly if need be. By default it answers every request with
// successReply(). Any thread may call it.
class HttpsServer {
 public:
  // Runs on the connection's own thread, so it may block.
  using Handler = std::function<ServerReply(const ReceivedRequest&)>;

  explicit HttpsServer(CertificateFlaw flaw = CertificateFlaw::kNone,
                       IpFamily family = IpFamily::kIpv4);

  std::uint16_t port() const { return loopback_.port(); }
  // "127.0.0.1:4711", and a URL there.
  std::string authority() const { return loopback_.authority(); }
  std::string url(const std::string& target) const { return "https://" + authority() + target; }
  // Whom the server's certificate leads to, and the file with that root. It goes with the server.
  const CertificateChain& chain() const { return chain_; }
  const std::string& caFile() const { return caFile_; }

  // All of these are about connections to come.

  // What the server shows of itself. Its TLS is ordinary again.
  void show(const CertificateChain& chain);
  void configure(const std::function<void(SSL_CTX*)>& settings);
  // The first connection has the first script; the last one is for all others.
  void play(std::vector<Script> scripts);
  void play(Script script) { play(std::vector<Script>{std::move(script)}); }
  void answer(Handler handler);
  void answer(const ServerReply& reply);

  std::vector<ReceivedRequest> requests() const;
  int connections() const { return loopback_.connections(); }
  // Waits until so many requests or connections have come, or all connections are closed. False
  // after kSafetyLimit.
  bool waitForRequests(std::size_t count);
  bool waitForConnections(int count) { return loopback_.waitForConnections(count); }
  bool waitUntilDeserted() { return loopback_.waitUntilDeserted(); }

 private:
  void serve(int socket, int number);

  const TemporaryFolder folder_;
  const std::string caFile_ = folder_.path() + "/authority.pem";
  const CertificateChain chain_;

  mutable std::mutex mutex_;
  std::condition_variable received_;
  std::shared_ptr<SSL_CTX> context_;
  std::vector<Script> scripts_;
  std::size_t played_ = 0;
  std::vector<ReceivedRequest> requests_;
  LoopbackServer loopback_;  // Last: its threads use what is above.
};

}  // namespace zln
