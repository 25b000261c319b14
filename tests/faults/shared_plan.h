#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>

#include "platform/posix/file_descriptor.h"
#include "tests/faults/fault_plan.h"

namespace zln::faults {

// The driver's side of a plan: a file at `path`, for the games that are to keep to it.
class SharedPlan {
 public:
  SharedPlan(const std::string& path, const std::string& home) {
    const FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    void* memory = MAP_FAILED;
    if (file && ftruncate(file.get(), sizeof(FaultPlan)) == 0) {
      memory = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    }
    if (memory == MAP_FAILED || home.size() >= FaultPlan::kLongestPath) {
      throw std::runtime_error("No plan at " + path);
    }
    plan_ = new (memory) FaultPlan();
    std::copy(home.begin(), home.end(), plan_->home);
  }
  ~SharedPlan() { munmap(plan_, sizeof(FaultPlan)); }
  SharedPlan(const SharedPlan&) = delete;
  SharedPlan& operator=(const SharedPlan&) = delete;

  FaultPlan* operator->() { return plan_; }
  const FaultPlan* operator->() const { return plan_; }

 private:
  FaultPlan* plan_;
};

}  // namespace zln::faults
