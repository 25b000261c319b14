#include "tests/network/scene.h"

#include <cstdio>
#include <utility>

#include "tests/support/file_contents.h"
#include "tests/support/full_port.h"

namespace zln {

namespace {

constexpr const char* kProxyVariables[] = {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                           "ALL_PROXY",  "no_proxy",    "NO_PROXY"};

}  // namespace

Scene::Scene() {
  for (const char* name : kProxyVariables) variables_.try_emplace(name, name, "");
  variables_.try_emplace("SSL_CERT_FILE", "SSL_CERT_FILE", authorities_);
  mend();
}

HttpsServer& Scene::otherServer(IpFamily family) {
  if (!otherServer_) {
    otherServer_ = std::make_unique<HttpsServer>(CertificateFlaw::kNone, family);
    otherServer_->show(server_.chain());
    otherServer_->play(goodScript(R"({"from":"the other"})"));
  }
  return *otherServer_;
}

std::uint16_t Scene::portThatIsFull() {
  const auto port = std::make_shared<FullPort>();
  keep(port);
  return port->port();
}

std::uint16_t Scene::portThatIsClosed() {
  // It stays bound, so that nobody else gets it, and is never listened on.
  const auto bound = std::make_shared<FileDescriptor>(boundSocket());
  keep(bound);
  return portOf(*bound);
}

void Scene::show(CertificateFlaw flaw) {
  const CertificateChain chain(flaw);
  server_.show(chain);
  trust(chain.rootPem());
}

void Scene::trust(const std::optional<std::string>& authorities) {
  if (!authorities) {
    std::remove(authorities_.c_str());
    return;
  }
  // Put in place whole, as a system does that renews its authorities.
  const std::string next = authorities_ + ".new";
  writeFile(next, *authorities);
  std::rename(next.c_str(), authorities_.c_str());
}

void Scene::setVariable(const std::string& name, const std::string& value) {
  variables_.at(name).set(value);
}

void Scene::mend() {
  for (const char* name : kProxyVariables) setVariable(name, "");
  setVariable("SSL_CERT_FILE", authorities_);
  kept_.clear();
  trust(server_.chain().rootPem());
  server_.show(server_.chain());
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
