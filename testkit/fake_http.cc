#include "testkit/fake_http.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace zln {

HttpReply okReply(std::string body) {
  return HttpReply{std::move(body), HttpResponse{"", 200, {}}, std::nullopt};
}

void FakeHttp::upload(HttpRequest request, std::function<void(HttpReply)> completion) {
  note(journal_, "request ", request.url);
  const std::size_t index = requests_.size();
  requests_.push_back(std::move(request));
  completions_.push_back(std::move(completion));
  if (always_) {
    dispatch_.globalAsync([this, index, handler = always_] { answerByItself(index, handler); });
  }
}

std::size_t FakeHttp::outstanding() const {
  return static_cast<std::size_t>(
      std::count_if(completions_.begin(), completions_.end(),
                    [](const Completion& completion) { return completion != nullptr; }));
}

void FakeHttp::reply(std::size_t index, std::string body) { reply(index, 200, std::move(body)); }

void FakeHttp::reply(std::size_t index, int status, std::string body) {
  complete(index, HttpReply{std::move(body), HttpResponse{"", status, {}}, std::nullopt});
}

void FakeHttp::fail(std::size_t index, int urlErrorCode) {
  fail(index, Error{kUrlErrorDomain, urlErrorCode, std::nullopt, {}});
}

void FakeHttp::fail(std::size_t index, Error error) {
  complete(index, HttpReply{"", std::nullopt, std::move(error)});
}

void FakeHttp::forgetOutstanding() {
  // What a completion held may make requests as it goes.
  for (std::size_t index = 0; index < completions_.size(); ++index) {
    const Completion forgotten = std::exchange(completions_[index], nullptr);
  }
}

void FakeHttp::answerByItself(std::size_t index, const Handler& handler) {
  // The test may have answered it meanwhile.
  if (!completions_[index]) return;
  auto reply = handler(requests_[index]);
  if (reply.has_value()) complete(index, std::move(*reply));
}

void FakeHttp::complete(std::size_t index, HttpReply reply) {
  if (index >= completions_.size()) throw std::logic_error("no request of this number was made");
  const Completion completion = std::exchange(completions_[index], nullptr);
  if (!completion) throw std::logic_error("the request is not outstanding any more");
  if (reply.response.has_value() && reply.response->url.empty()) {
    reply.response->url = requests_[index].url;
  }
  completion(std::move(reply));
}

}  // namespace zln
