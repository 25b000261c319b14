#include "testkit/fake_dispatch.h"

#include <utility>

namespace zln {

void FakeDispatch::mainAsync(std::function<void()> task) {
  note(journal_, "main async");
  main_.push_back(std::move(task));
}

void FakeDispatch::mainSync(std::function<void()> task) {
  note(journal_, "main sync");
  if (!onMain_) runMain();
  run(task, true);
}

void FakeDispatch::globalAsync(std::function<void()> task) {
  note(journal_, "global async");
  global_.push_back(std::move(task));
}

void FakeDispatch::runMain() {
  while (runNextMain()) {
  }
}

void FakeDispatch::runGlobal() {
  while (runNextGlobal()) {
  }
}

void FakeDispatch::runAll() {
  while (!main_.empty() || !global_.empty()) {
    runMain();
    runGlobal();
  }
}

bool FakeDispatch::runNextMain() { return runNext(main_, true); }

bool FakeDispatch::runNextGlobal() { return runNext(global_, false); }

void FakeDispatch::dropAll() {
  // What a dropped task held may add tasks as it goes.
  while (!main_.empty() || !global_.empty()) {
    Tasks dropped;
    dropped.swap(main_);
    dropped.clear();
    dropped.swap(global_);
  }
}

void FakeDispatch::asMain(const std::function<void()>& call) { run(call, true); }

bool FakeDispatch::runNext(Tasks& tasks, bool onMain) {
  if (tasks.empty()) return false;
  const auto task = std::move(tasks.front());
  tasks.pop_front();
  run(task, onMain);
  return true;
}

void FakeDispatch::run(const std::function<void()>& task, bool onMain) {
  // Also restored when the task throws: a failed test is not to mislead those after it.
  struct Restore {
    bool& flag;
    bool before;
    ~Restore() { flag = before; }
  } restore{onMain_, onMain_};
  onMain_ = onMain;
  task();
}

}  // namespace zln
