#include "platform/http.h"

#include "platform/identity.h"
#include "platform/number_text.h"
#include "platform/value.h"

namespace zln {
namespace {

// Every name with the list of its values.
Dictionary headerLists(const HttpHeaders& headers) {
  Dictionary lists;
  for (const auto& [name, value] : headers) {
    const Value* known = lists.find(name);
    Array values = known == nullptr ? Array{} : *known->array();
    values.push_back(value);
    lists.set(name, std::move(values));
  }
  return lists;
}

}  // namespace

std::string HttpResponse::description() const {
  std::string text = identityText("NSHTTPURLResponse", this);
  text.append(" { URL: ").append(url).append(" } { Status Code: ");
  appendNumber(text, std::int64_t{statusCode});
  text.append(", Headers ").append(headerLists(headers).description()).append(" }");
  return text;
}

}  // namespace zln
