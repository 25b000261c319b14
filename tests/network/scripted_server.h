#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/network/certificate_chain.h"

namespace zln {

class ScriptedServer;

// One connection in the hands of its script. Until the handshake it is plain, then encrypted.
class ServerConnection {
 public:
  static constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

  ServerConnection(ScriptedServer& server, int socket, SSL_CTX* context);

  // All of these are false at the end of the connection.

  // Until something lies there to be read.
  bool awaitBytes();
  // Sends `limit` bytes of what the handshake has the server send, with a pause after each piece,
  // and leaves the handshake there.
  bool handshake(std::size_t limit, std::size_t pieceSize, std::chrono::milliseconds pause);
  // Some bytes of what comes, which goes to `received()`.
  bool read();
  bool readHead();
  // The head and as much of a body as it announces, or all that HTTP/2 sends of a request.
  bool readRequest();
  bool readHttp2Request();
  bool say(std::string_view bytes);
  // As it is, also after the handshake.
  bool sayUnencrypted(std::string_view bytes);
  bool pause(std::chrono::milliseconds time);

  // From now on the connection is reset when it is closed.
  void resetWhenClosed();
  // Says that nothing more will come, and waits until the client goes.
  void finish();
  // The same with the farewell of TLS before it.
  void finishWithFarewell();
  // Waits until the client goes, reading what comes or leaving it.
  void drain();
  void leaveUnread();

  const std::string& received() const { return received_; }

 private:
  bool receive();
  bool flush();
  bool sendAll(std::string_view bytes);
  bool isSecure() const;

  ScriptedServer& server_;
  const int socket_;
  const std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  std::size_t mayFlush_ = kAll;
  std::size_t pieceSize_ = kAll;
  std::chrono::milliseconds flushPause_{0};
  std::string received_;
};

// One thing that a server does. False ends the script.
using Step = std::function<bool(ServerConnection&)>;
// What a server does with a connection. At its end the connection is closed.
using Script = std::vector<Step>;

// The steps.
Step awaitBytes();
Step readSome();
Step readHead();
Step readRequest();
Step readHttp2Request();
Step handshake();
Step handshakeUpTo(std::size_t bytes);
Step handshakeByteByByte(std::chrono::milliseconds pause);
Step say(std::string bytes);
Step sayUnencrypted(std::string bytes);
Step sayByteByByte(std::string bytes, std::chrono::milliseconds pause);
Step sayForEver(std::string bytes, std::chrono::milliseconds pause = {});
Step reset();
Step finish();
Step finishWithFarewell();
Step stall();
Step stallUnread();

// A script that goes on.
Script operator+(Script script, Step step);
Script operator+(Script script, const Script& more);

// A server on the loopback interface that does with each connection what a script says, badly if
// need be. Any thread may call it.
class ScriptedServer {
 public:
  enum class Family { kIpv4, kIpv6 };

  // Throws when there is no such port to be had.
  explicit ScriptedServer(Family family = Family::kIpv4);
  // Closes all connections.
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::uint16_t port() const { return port_; }
  // "127.0.0.1:4711", and a URL there.
  std::string authority() const;
  std::string url(const std::string& target) const;

  // What the server shows of itself in connections to come, whose TLS is ordinary otherwise.
  void show(const ShownCertificates& certificates);
  // Sets more of the TLS of connections to come.
  void configure(const std::function<void(SSL_CTX*)>& settings);
  // The first connection from now on has the first script; the last one is for all others.
  void play(std::vector<Script> scripts);
  void play(Script script) { play(std::vector<Script>{std::move(script)}); }

  // What came over each connection, decrypted. Waits until so many have come and all have ended,
  // but at most a minute.
  std::vector<std::string> received(std::size_t count);
  int connections() const;
  // Waits while the server is there. False when it goes.
  bool pauseUnlessStopping(std::chrono::milliseconds time);

 private:
  struct Connection {
    int socket = -1;
    Script script;
    std::shared_ptr<SSL_CTX> context;
    std::string received;
    bool done = false;
    std::thread thread;
  };

  void acceptConnections();
  void serve(Connection& connection);

  const Family family_;
  int listener_ = -1;
  std::uint16_t port_ = 0;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  std::shared_ptr<SSL_CTX> context_;
  std::vector<Script> scripts_;
  std::size_t played_ = 0;
  int accepted_ = 0;
  std::list<Connection> connections_;
  std::thread acceptor_;
};

}  // namespace zln
