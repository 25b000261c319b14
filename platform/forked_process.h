#pragma once

namespace zln {

// True in a process that was forked off while its parent used the library. The threads that carry
// the work and hold the locks are not there, so nothing else of the library may be touched. Every
// function that a game calls asks this first; from the first call on the library is in use. The
// port defines it.
bool isForkedProcess();

}  // namespace zln
