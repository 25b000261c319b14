#pragma once

#include <functional>

namespace zln {

// Starts a thread that nobody joins and runs `body` on it. `name` has at most 15 characters. False
// when the system gives no thread now; `body` has not run then.
bool startDetachedThread(const char* name, std::function<void()> body);

}  // namespace zln
