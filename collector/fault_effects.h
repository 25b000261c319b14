#pragma once

#include "collector/report_row.h"

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace zln::collector {

class FaultList;
struct Fault;
struct Reply;

// What a game makes of an answer under this fault.
Answer answerUnder(const Fault& fault);

// Puts a reply into a response, spoiled as its fault has it, and waits as long as that is to take.
// `httpPort` is one that speaks no TLS.
void respond(const Reply& reply, const httplib::Request& request, httplib::Response& response,
             FaultList& faults, int httpPort);

}  // namespace zln::collector
