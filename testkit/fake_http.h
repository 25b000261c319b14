#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/http.h"
#include "testkit/fake_dispatch.h"
#include "testkit/journal.h"

namespace zln {

// A reply of status 200 with that body. Its URL is that of the request that it answers.
HttpReply okReply(std::string body);

// A network that keeps every request until a test answers it. Requests are numbered from 0 in the
// order in which they were made. Answering one that does not exist, has been answered or has been
// forgotten is a mistake of the test and throws std::logic_error.
class FakeHttp : public HttpClient {
 public:
  using Handler = std::function<std::optional<HttpReply>(const HttpRequest&)>;

  explicit FakeHttp(FakeDispatch& dispatch, Journal* journal = nullptr)
      : dispatch_(dispatch), journal_(journal) {}

  void upload(HttpRequest request, std::function<void(HttpReply)> completion) override;

  // All requests ever made.
  const std::vector<HttpRequest>& requests() const { return requests_; }
  // How many wait for an answer.
  std::size_t outstanding() const;

  // Each answers one request and runs its completion before it returns.
  void reply(std::size_t index, std::string body);
  void reply(std::size_t index, int status, std::string body);
  void fail(std::size_t index, int urlErrorCode);  // Without a text of its own.
  void fail(std::size_t index, Error error);

  // Answers each later request with what `handler` says, in a task on the global queue; a request
  // for which it says nothing waits. An empty handler ends this.
  void always(Handler handler) { always_ = std::move(handler); }

  // Forgets what is outstanding: those completions never run.
  void forgetOutstanding();

 private:
  using Completion = std::function<void(HttpReply)>;

  void answerByItself(std::size_t index, const Handler& handler);
  void complete(std::size_t index, HttpReply reply);

  FakeDispatch& dispatch_;
  Journal* const journal_;
  std::vector<HttpRequest> requests_;
  std::vector<Completion> completions_;  // By index; empty once answered.
  Handler always_;
};

}  // namespace zln
