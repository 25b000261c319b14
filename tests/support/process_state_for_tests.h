#pragma once

#include "support/process_state.h"

namespace zln {

// Says which state processState() answers from now on. Null: none, and asking for it aborts.
void setProcessStateForTests(ProcessState* state);

}  // namespace zln
