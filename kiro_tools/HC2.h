#pragma once
// Hilbert curve keys: a 2D position becomes one integer, and sorting by it
// keeps neighbours close, both in the walk and in memory.
#include <cstdint>

namespace KIRO_VASK2D {

/** The key computation shared by GSS_HC2 and HC2, which differ only in how
 * they report invalid parameters. */
class HilbertCurve2 {
public:
  /** Key of the cell that contains (x, y): numBits bits, 2 per level of the
   * curve. Points below the area fall into the first cell of that axis, on
   * or beyond its far edge into the last one; NaN counts as below. */
  uint32_t getKey(double x, double y) const {
    const unsigned ix(quantise(x - minX, scaleX)), iy(quantise(y - minY, scaleY));
    uint32_t key(0);
    unsigned state(0);
    int shift(startShift);
    // Top-down: each level selects one of four sub-squares, and the state
    // records the orientation of the curve within the current square.
    for (unsigned bit = unsigned(cells) >> 1;; bit >>= 1) {
      const unsigned quadrant(((ix & bit) != 0 ? 2u : 0u) + ((iy & bit) != 0 ? 1u : 0u));
      key += uint32_t(VALUE[state][quadrant]) << shift;
      if (shift == 0) break;
      shift -= 2;
      state = NEXT[state][quadrant];
    }
    return key;
  }

  int getNumBits() const { return numBits; }
  int getCells() const { return cells; }

protected:
  HilbertCurve2();
  /** False, with nothing changed, unless numBits is even and in [2, 32]. */
  bool setup(double minX_, double minY_, double maxX_, double maxY_, int numBits_);

private:
  unsigned quantise(double offset, double scale) const {
    const double cell(offset * scale);
    if (!(cell >= 0.0)) return 0u;
    if (cell >= double(cells)) return unsigned(cells) - 1u;
    return unsigned(cell);
  }

  // Position of the sub-square in curve order, and the next state, by
  // state (row) and quadrant (column: 2 * xbit + ybit).
  static constexpr unsigned char VALUE[4][4] = {{0, 1, 3, 2}, {0, 3, 1, 2}, {2, 1, 3, 0}, {2, 3, 1, 0}};
  static constexpr unsigned char NEXT[4][4] = {{1, 0, 2, 0}, {0, 3, 1, 1}, {2, 2, 0, 3}, {3, 1, 3, 2}};

  int numBits;
  int startShift;
  double minX, minY, maxX, maxY;
  double rangeX, rangeY;
  double scaleX, scaleY;
  int cells;
};

/** Hilbert keys for the spatial trees; invalid parameters end the process
 * with exit code 1. */
class GSS_HC2 : public HilbertCurve2 {
public:
  GSS_HC2(double minX_, double minY_, double maxX_, double maxY_, int numBits_);
  void init(double minX_, double minY_, double maxX_, double maxY_, int numBits_);
};

/** Hilbert keys of the triangulation's vertices; invalid parameters throw
 * VaskException. The default covers the unit square with 30 bits. */
class HC2 : public HilbertCurve2 {
public:
  HC2();
  HC2(double minX_, double minY_, double maxX_, double maxY_, int numBits_);
  void init(double minX_, double minY_, double maxX_, double maxY_, int numBits_);
};

} // namespace KIRO_VASK2D
