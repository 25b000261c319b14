#include "collector/request_guard.h"

#include <arpa/inet.h>
#include <httplib.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace zln::collector {
namespace {

bool isNumeric(const std::string& host) {
  unsigned char address[sizeof(in6_addr)];
  return ::inet_pton(AF_INET, host.c_str(), address) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), address) == 1;
}

// The name or address of a Host header, without brackets and port.
std::string hostOf(const std::string& header) {
  if (header.starts_with('[')) return header.substr(1, header.find(']') - 1);
  return header.substr(0, header.find(':'));
}

// Changes nothing, so that it needs no guard against the pages of others: they cannot read it.
bool onlyReads(const std::string& method) { return method == "GET" || method == "HEAD"; }

bool hasBody(const httplib::Request& request) {
  const std::string length = request.get_header_value("Content-Length");
  return !length.empty() && length != "0";
}

// A page of somebody else cannot send it without asking first.
bool isJson(const httplib::Request& request) {
  std::string type = request.get_header_value("Content-Type");
  type = type.substr(0, type.find(';'));
  type.erase(type.find_last_not_of(" \t") + 1);
  std::ranges::transform(type, type.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return type == "application/json";
}

}  // namespace

RequestGuard::RequestGuard(std::string address)
    : address_(std::move(address)), anywhere_(address_ == "0.0.0.0" || address_ == "::") {}

std::optional<std::string> RequestGuard::refusalOf(const httplib::Request& request) const {
  const std::string host = request.get_header_value("Host");
  if (!isOwnHost(hostOf(host))) return "this is not the host that was asked for";
  if (onlyReads(request.method)) return std::nullopt;
  if (request.has_header("Origin") && request.get_header_value("Origin") != "http://" + host) {
    return "a page of another origin may not do this";
  }
  if (hasBody(request) && !isJson(request)) return "the body must come as application/json";
  return std::nullopt;
}

// A name of somebody else could be made to lead here; an address is what it is.
bool RequestGuard::isOwnHost(const std::string& host) const {
  return host == "localhost" || host == "127.0.0.1" || host == "::1" || host == address_ ||
         (anywhere_ && isNumeric(host));
}

}  // namespace zln::collector
