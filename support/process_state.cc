#include "support/process_state.h"

namespace zln {

ProcessState& processState() {
  static ProcessState& state = *new ProcessState(portEnvironment());
  return state;
}

}  // namespace zln
