#ifndef QOV_ENDURE_ONE_REFUSAL_H
#define QOV_ENDURE_ONE_REFUSAL_H

namespace qov::endure {

/// Counts what the threads of the process allocate by operator new, all but those that are left
/// out, and refuses one of these allocations. A program with one_refusal.cpp has its own operators
/// new. Neither counted nor refused is what libraries take from malloc() itself, and what ACE's own
/// code asks for by the operators that give null: some of its places do not look at what they were
/// given.
///
/// Thread: any; begin() and end() one after the other.
class OneRefusal {
 public:
  /// The `number`th allocation from now on is refused; none with 0. Who asked for it is told on
  /// the descriptor `trace`, a line for each caller.
  static void begin(long number, int trace);
  /// How many allocations there were.
  static long end();

  /// While it lives, the calling thread is left out.
  class Exempt {
   public:
    Exempt();
    ~Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;
  };
};

}  // namespace qov::endure

#endif
