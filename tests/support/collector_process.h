#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace httplib {
class Client;
}

namespace zln {

// A zln-collector in a process of its own, on free ports, certified for the hosts of a library that
// is built without any, and a client of its interface for programs. Whatever the collector refuses,
// or does not do within a minute, is thrown as a std::runtime_error.
class CollectorProcess {
 public:
  using Json = nlohmann::json;

  // Starts it. All its files lie in the folder, which is made if need be.
  explicit CollectorProcess(const std::string& folder);
  // Ends it if it still runs.
  ~CollectorProcess();
  CollectorProcess(const CollectorProcess&) = delete;
  CollectorProcess& operator=(const CollectorProcess&) = delete;

  // Where games reach it, and the certificate of its authority.
  std::uint16_t gamePort() const { return gamePort_; }
  const std::string& caFile() const { return caFile_; }

  // The reports with greater identifiers, in the order of coming, as the collector describes them.
  std::vector<Json> reports(std::int64_t after = 0) const;
  std::vector<Json> reportsJudged(const std::string& verdict) const;
  // The identifier of the latest one; 0 when there is none.
  std::int64_t latestReport() const;
  // Waits until so many have come whose bodies have these members, and returns the first ones;
  // fewer after a minute.
  std::vector<Json> waitFor(std::size_t count, const Json& match = Json::object()) const;

  // Returns its identifier.
  int addFault(const Json& fault);
  void removeFault(int id);
  // On how many requests it has acted.
  std::int64_t hitsOf(int fault) const;
  void setSettings(const Json& values);

  // Ends it as Ctrl-C does. False when it does not end in time, well and without a complaint.
  bool end();
  // Starts it again with the files that it has left. Its ports are other ones, its faults and
  // settings are gone.
  void start();
  std::string complaints() const { return process_->errors(); }

 private:
  // A file of this start.
  std::string fileFor(const std::string& what) const;
  std::string awaitPageAddress() const;
  Json get(const std::string& path) const;
  Json send(const char* method, const std::string& path, const Json& body = nullptr) const;

  std::string folder_;
  int starts_ = 0;
  std::unique_ptr<ChildProcess> process_;
  std::unique_ptr<httplib::Client> client_;
  std::uint16_t gamePort_ = 0;
  std::string caFile_;
};

}  // namespace zln
