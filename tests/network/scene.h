#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/http.h"
#include "platform/posix/http_curl.h"
#include "tests/network/system_network.h"
#include "tests/support/environment_variable.h"
#include "tests/support/https_server.h"
#include "tests/support/sanitizers.h"
#include "tests/support/temporary_folder.h"

namespace zln {

// The body of a reply that accepts a report.
inline constexpr char kBody[] = R"({"success":true})";

// How long a row that is about a time-out lets the client wait.
inline constexpr std::chrono::milliseconds kShort{kSanitized ? 1000 : 300};

// A server that is as it should be, an environment that trusts it, and what a row makes of them.
class Scene {
 public:
  Scene();

  HttpsServer& server() { return server_; }
  // A second one that is as it should be.
  HttpsServer& otherServer(IpFamily family = IpFamily::kIpv4);
  // One that the client does not reach: the connections that wait for it are too many.
  std::uint16_t portThatIsFull();
  std::uint16_t portThatIsClosed();

  // The server shows a certificate with such a flaw from now on. Its root is trusted.
  void show(CertificateFlaw flaw);
  // What the file of authorities holds from now on; it is not there without a text.
  void trust(const std::optional<std::string>& authorities);
  void setVariable(const std::string& name, const std::string& value);
  void keep(std::shared_ptr<void> what) { kept_.push_back(std::move(what)); }
  // Makes everything as it should be.
  void mend();

 private:
  const TemporaryFolder folder_;
  const std::string authorities_ = folder_.path() + "/authorities.pem";
  HttpsServer server_;
  std::unique_ptr<HttpsServer> otherServer_;
  std::map<std::string, EnvironmentVariable> variables_;
  std::vector<std::shared_ptr<void>> kept_;
};

// What a good server does: it answers with `body` and waits for the client to go.
Script goodScript(const std::string& body = R"({"success":true})");
// What it does before the bytes of an answer: it takes the whole request.
Script takeRequest();

// What a request comes to: a response, or an error with one of several codes.
struct Outcome {
  std::vector<std::int64_t> codes;
  bool permanent = false;
  int status = 0;
  std::string body;
};
Outcome temporaryError(int code);
Outcome temporaryErrorOf(std::vector<std::int64_t> codes);
Outcome permanentError(int code);
Outcome response(int status, const std::string& body);

// One way to fail, or to come through.
struct Row {
  // A few plain words. They are the test's name as well.
  std::string what;
  // Makes the scene as the row has it, and says which URL is to be asked.
  std::function<std::string(Scene&)> arrange;
  Outcome outcome;
  HttpTimeouts timeouts = {};
  // Bytes of the request's body, when it is not the usual small one.
  std::size_t bodySize = 0;
  bool needsIpv6 = false;
  // The same client has come through to the same server before.
  bool afterGoodRequest = false;
  // What else must hold afterwards.
  std::function<void(Scene&)> check = nullptr;
};

// The server follows this script, or these in sequence.
std::function<std::string(Scene&)> serverPlays(Script script);
std::function<std::string(Scene&)> serverPlays(std::vector<Script> scripts);
// The usual server is asked in this environment.
std::function<std::string(Scene&)> withVariable(const std::string& name, const std::string& value);
// Both the time for connecting and that of a silence are short.
HttpTimeouts shortTimeouts();

std::vector<Row> connectionRows();
std::vector<Row> replyRows();
std::vector<Row> compressionRows();
std::vector<Row> http2Rows();
std::vector<Row> redirectRows();
std::vector<Row> trustRows();
std::vector<Row> proxyRows();

}  // namespace zln
