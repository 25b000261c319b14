#pragma once

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace zln::collector {

class EventStream;
class ReportStore;

// Answers a request with the events from now on, until the client leaves, is too slow or the
// program ends; the reports that a client has missed come first. False when there are too many
// clients.
bool respondWithEvents(const httplib::Request& request, httplib::Response& response,
                       ReportStore& store, EventStream& events);

}  // namespace zln::collector
