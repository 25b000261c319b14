#pragma once

#include <functional>
#include <string>
#include <thread>

#include "collector/owned_socket.h"

namespace zln::collector {

// A TCP port, and the thread that accepts its connections. The maker of a server owns it.
class ListeningPort {
 public:
  // Takes the port of a numeric address, 0 for any free one. From then on clients can connect, and
  // wait. Throws std::runtime_error with a text for people.
  ListeningPort(const std::string& address, int port);
  // Ends what `start` has begun.
  ~ListeningPort();
  ListeningPort(const ListeningPort&) = delete;
  ListeningPort& operator=(const ListeningPort&) = delete;

  int number() const { return number_; }
  int socket() const { return socket_.get(); }

  // Gives every connection, waiting for none, to `take`, which is called on the one thread.
  void start(std::function<void(OwnedSocket)> take);

 private:
  void acceptAll(const std::function<void(OwnedSocket)>& take) const;

  OwnedSocket socket_;
  OwnedSocket end_;  // Becomes readable when the port is to end.
  int number_ = 0;
  std::thread thread_;
};

}  // namespace zln::collector
