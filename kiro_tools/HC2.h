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
    // Top-down: each level selects one of four sub-squares, and the state
    // records the orientation of the curve within the current square. The
    // first levels go one by one until the rest is a multiple of four, which
    // the step table then takes four at a time (one dependent load instead of
    // four; the loop is bound by that chain).
    uint32_t key(0);
    unsigned state(0);
    int level(numBits / 2);
    for (int single = level % 4; single > 0; --single) {
      --level;
      const unsigned quadrant((((ix >> level) & 1u) << 1) | ((iy >> level) & 1u));
      key = (key << 2) | VALUE[state][quadrant];
      state = NEXT[state][quadrant];
    }
    while (level > 0) {
      level -= 4;
      const unsigned entry(STEP4.entry[state][(((ix >> level) & 15u) << 4) | ((iy >> level) & 15u)]);
      key = (key << 8) | (entry & 255u);
      state = entry >> 8;
    }
    return key;
  }

  /** The plain one-level-per-step form of getKey, kept as the reference. */
  uint32_t getKeyByLevels(double x, double y) const;

  int getNumBits() const { return numBits; }
  double getMinX() const { return minX; }
  double getMinY() const { return minY; }
  double getMaxX() const { return maxX; }
  double getMaxY() const { return maxY; }
  double getRangeX() const { return rangeX; }
  double getRangeY() const { return rangeY; }
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
  /** Four levels at once, by state and (x nibble << 4 | y nibble): the 8
   * key bits in the low byte, the state after the fourth level above. */
  struct Step4 {
    uint16_t entry[4][256];
  };
  static const Step4 STEP4;
  static constexpr Step4 buildStep4();

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
