#include "collector/request_server.h"

#include "collector/http_status.h"

namespace zln::collector {
namespace {

constexpr std::size_t kLongestBody = 1024 * 1024;

// httplib goes on with a body that is made piece by piece while its listening socket stands. It has
// none; any number but INVALID_SOCKET says so.
constexpr socket_t kStanding = 0;

// A request that does not say how long its body is has none: httplib would read on until the client
// goes. Nothing is compressed: on the way to the same machine that takes longer than it saves.
void adjust(httplib::Request& request) {
  if (!request.has_header("Content-Length")) request.set_header("Content-Length", "0");
  request.headers.erase("Accept-Encoding");
}

}  // namespace

RequestServer::RequestServer() {
  svr_sock_ = kStanding;
  set_payload_max_length(kLongestBody);
  set_pre_routing_handler([](const httplib::Request& request, httplib::Response& response) {
    const int refusal = refusalOfUnbounded(request);
    if (refusal == 0) return HandlerResponse::Unhandled;
    response.status = refusal;
    return HandlerResponse::Handled;
  });
}

void RequestServer::serve(ConnectionStream& connection) {
  for (std::size_t left = keep_alive_max_count_; left > 0 && !connection.isEnding(); --left) {
    if (!connection.waitForRequest()) return;
    bool isLast = left == 1;
    if (!process_request(connection, isLast, isLast, adjust) || isLast) return;
  }
}

void RequestServer::endBodies() { svr_sock_ = INVALID_SOCKET; }

int refusalOfUnbounded(const httplib::Request& request) {
  if (request.has_header("Transfer-Encoding")) return kLengthRequired;
  if (request.has_header("Content-Encoding")) return kUnsupportedMediaType;
  return 0;
}

}  // namespace zln::collector
