#include "tests/network/scene.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "platform/posix/file_descriptor.h"

namespace zln {

namespace {

constexpr const char* kProxyVariables[] = {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                           "ALL_PROXY",  "no_proxy",    "NO_PROXY"};

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

FileDescriptor newSocket(int flags) {
  return FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

std::uint16_t bindToFreePort(int socket) {
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(socket, generic, size) != 0 || getsockname(socket, generic, &size) != 0) {
    throw std::runtime_error("no port");
  }
  return ntohs(address.sin_port);
}

}  // namespace

Scene::Scene() {
  for (const char* name : kProxyVariables) variables_.try_emplace(name, name, "");
  variables_.try_emplace("SSL_CERT_FILE", "SSL_CERT_FILE", authorities_);
  mend();
}

ScriptedServer& Scene::otherServer(ScriptedServer::Family family) {
  if (!otherServer_) {
    otherServer_ = std::make_unique<ScriptedServer>(family);
    otherServer_->show(chain_.shown());
    otherServer_->play(goodScript(R"({"from":"the other"})"));
  }
  return *otherServer_;
}

std::uint16_t Scene::portThatIsFull() {
  auto listener = std::make_shared<FileDescriptor>(newSocket(0));
  const std::uint16_t port = bindToFreePort(listener->get());
  listen(listener->get(), 0);
  keep(listener);
  const sockaddr_in address = loopback(port);
  for (int i = 0; i < 4; ++i) {
    auto waiting = std::make_shared<FileDescriptor>(newSocket(SOCK_NONBLOCK));
    connect(waiting->get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    keep(waiting);
  }
  return port;
}

std::uint16_t Scene::portThatIsClosed() {
  const auto bound = std::make_shared<FileDescriptor>(newSocket(0));
  // It stays bound, so that nobody else gets it, and is never listened on.
  keep(bound);
  return bindToFreePort(bound->get());
}

void Scene::show(ChainFlaw flaw) {
  const CertificateChain chain(flaw);
  server_.show(chain.shown());
  trust(chain.rootPem());
}

void Scene::trust(const std::optional<std::string>& authorities) {
  if (!authorities) {
    std::remove(authorities_.c_str());
    return;
  }
  // Put in place whole, as a system does that renews its authorities.
  const std::string next = authorities_ + ".new";
  std::ofstream(next) << *authorities;
  std::rename(next.c_str(), authorities_.c_str());
}

void Scene::setVariable(const std::string& name, const std::string& value) {
  variables_.at(name).set(value);
}

void Scene::mend() {
  for (const char* name : kProxyVariables) setVariable(name, "");
  setVariable("SSL_CERT_FILE", authorities_);
  kept_.clear();
  trust(chain_.rootPem());
  server_.show(chain_.shown());
  server_.play(goodScript());
}

Script goodScript(const std::string& body) {
  return takeRequest() + Script{say("HTTP/1.1 200 OK\r\nContent-Length: " +
                                    std::to_string(body.size()) + "\r\n\r\n" + body),
                                stall()};
}

Script takeRequest() { return {handshake(), readRequest()}; }

Outcome temporaryError(int code) { return {{code}, false, 0, ""}; }

Outcome temporaryErrorOf(std::vector<std::int64_t> codes) {
  return {std::move(codes), false, 0, ""};
}

Outcome permanentError(int code) { return {{code}, true, 0, ""}; }

Outcome response(int status, const std::string& body) { return {{}, false, status, body}; }

std::function<std::string(Scene&)> serverPlays(Script script) {
  return serverPlays(std::vector<Script>{std::move(script)});
}

std::function<std::string(Scene&)> serverPlays(std::vector<Script> scripts) {
  return [scripts = std::move(scripts)](Scene& scene) {
    scene.server().play(scripts);
    return scene.server().url("/session");
  };
}

std::function<std::string(Scene&)> withVariable(const std::string& name, const std::string& value) {
  return [=](Scene& scene) {
    scene.setVariable(name, value);
    return scene.server().url("/session");
  };
}

HttpTimeouts shortTimeouts() { return {.connect = kShort, .idle = kShort}; }

}  // namespace zln
