#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <ostream>

namespace zln {

// How a suite gets a machine for each of its tests.
template <typename Machine>
struct MachineMaker {
  const char* name;
  std::unique_ptr<Machine> (*make)();

  friend std::ostream& operator<<(std::ostream& out, const MachineMaker& maker) {
    return out << maker.name;
  }
};

template <typename Machine, typename Made>
MachineMaker<Machine> makerOf(const char* name) {
  return {name, []() -> std::unique_ptr<Machine> { return std::make_unique<Made>(); }};
}

// What holds for every machine of a kind, of the fakes and of each port. contracts.h names the
// suites, *_contract_test.cc hold their tests, *_machines_test.cc run them on machines.
template <typename Machine>
class Contract : public testing::TestWithParam<MachineMaker<Machine>> {
 protected:
  const std::unique_ptr<Machine> machine = this->GetParam().make();
};

}  // namespace zln
