#pragma once

namespace zln {

// Keeps the threads of transfers away while the process ends. A game that has opened OpenSSL before
// the library has it taken down by exit(), under every thread that is inside it.
class ExitGate {
 public:
  // Inside while one of these stands. Who comes when the process is ending waits for its end.
  class Visit {
   public:
    Visit() { enter(); }
    ~Visit() { leave(); }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
  };
  // Outside while one of these stands in a visit.
  class Break {
   public:
    Break() { leave(); }
    ~Break() { enter(); }
    Break(const Break&) = delete;
    Break& operator=(const Break&) = delete;
  };

  // Has exit() close the gate and wait for the visits, before it undoes what was done before this
  // call. A visit takes a few milliseconds at most; exit() does not wait much longer for any.
  static void closeAtExit();

 private:
  struct State;
  static State& state();
  static void enter();
  static void leave();
  static void close();
};

}  // namespace zln
