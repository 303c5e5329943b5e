#pragma once
#include <cfenv>

namespace KIRO_VASK2D {

/** Saves the rounding mode of the calling thread on construction and
 * restores it on destruction, so that every path out of a directed-rounding
 * computation, early returns included, hands the caller its own mode back.
 * Combine with fpBarrier: the compiler must not evaluate an operation
 * under another mode than the one the code states. */
class RoundingModeGuard {
public:
  RoundingModeGuard() : savedMode(std::fegetround()) {}
  ~RoundingModeGuard() { std::fesetround(savedMode); }
  RoundingModeGuard(const RoundingModeGuard&) = delete;
  RoundingModeGuard& operator=(const RoundingModeGuard&) = delete;

  /** FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO or FE_TONEAREST. */
  void set(int mode) { std::fesetround(mode); }
  int getSavedMode() const { return savedMode; }

private:
  int savedMode;
};

/** Pins a double to this point of the program. Even with -frounding-math
 * GCC may move or fold arithmetic across a call of fesetround; a value that
 * passes through this barrier after a mode change is computed afresh, and
 * a result that passes through it before the next change is complete by
 * then. The "memory" clobber keeps the barrier on its side of the calls. */
inline double fpBarrier(double value) {
  asm volatile("" : "+x"(value) : : "memory");
  return value;
}

// Every entry that computes (keys, box growth, filters, circumcentres, the
// walk) runs under round-to-nearest, whatever mode the caller has set: the
// filters' error bounds assume it, and so does every result being the same
// for the same input. The caller's mode is back in place on every return,
// exceptions included.
// Under the usual mode nothing is set or restored: a single insertion is too
// short to pay for two mode switches it does not need.
class NearestRounding {
public:
  NearestRounding() : savedMode(std::fegetround()) {
    if (savedMode != FE_TONEAREST) std::fesetround(FE_TONEAREST);
  }
  ~NearestRounding() {
    if (savedMode != FE_TONEAREST) std::fesetround(savedMode);
  }
  NearestRounding(const NearestRounding&) = delete;
  NearestRounding& operator=(const NearestRounding&) = delete;

private:
  int savedMode;
};


} // namespace KIRO_VASK2D
