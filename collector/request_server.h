#pragma once

#include "collector/connection_stream.h"

namespace zln::collector {

// httplib's reading of requests, choice of handlers and writing of answers, over connections that
// somebody else has accepted. Its own connections and threads are not used.
class RequestServer : public httplib::Server {
 public:
  RequestServer();

  // Answers the requests of a connection, one after the other.
  void serve(ConnectionStream& connection);
  // Ends bodies that are made piece by piece. Any thread may call it.
  void endBodies();
};

// The status that refuses a request whose body could grow beyond the limit while it is read, in
// chunks or when it is decompressed; 0 for others.
int refusalOfUnbounded(const httplib::Request& request);

}  // namespace zln::collector
