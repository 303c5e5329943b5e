#include "kiro_tools/HC2.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <cstdlib>
#include <iostream>

namespace KIRO_VASK2D {

// Composes VALUE and NEXT over four levels. The initialiser is a constant
// expression, so the table is ready before any other static initialisation.
constexpr HilbertCurve2::Step4 HilbertCurve2::buildStep4() {
  Step4 table{};
  for (unsigned startState = 0; startState < 4; ++startState) {
    for (unsigned nibbles = 0; nibbles < 256; ++nibbles) {
      unsigned state(startState), key(0);
      for (int level = 3; level >= 0; --level) {
        const unsigned quadrant((((nibbles >> (4 + level)) & 1u) << 1) | ((nibbles >> level) & 1u));
        key = (key << 2) | VALUE[state][quadrant];
        state = NEXT[state][quadrant];
      }
      table.entry[startState][nibbles] = uint16_t(key | (state << 8));
    }
  }
  return table;
}

const HilbertCurve2::Step4 HilbertCurve2::STEP4 = HilbertCurve2::buildStep4();

HilbertCurve2::HilbertCurve2()
    : numBits(0), startShift(0), minX(0), minY(0), maxX(0), maxY(0), rangeX(0), rangeY(0), scaleX(0), scaleY(0),
      cells(1) {}

bool HilbertCurve2::setup(double minX_, double minY_, double maxX_, double maxY_, int numBits_) {
  // Two bits per level, and the key must fit 32 bits.
  if (numBits_ < 2 || numBits_ > 32 || numBits_ % 2 != 0) return false;
  numBits = numBits_;
  startShift = numBits - 2;
  minX = minX_;
  minY = minY_;
  maxX = maxX_;
  maxY = maxY_;
  rangeX = maxX - minX;
  rangeY = maxY - minY;
  cells = 1 << (numBits / 2);
  // A flat or non-finite extent maps every point of that axis to cell 0.
  scaleX = rangeX > 0.0 ? double(cells) / rangeX : 0.0;
  scaleY = rangeY > 0.0 ? double(cells) / rangeY : 0.0;
  return true;
}

uint32_t HilbertCurve2::getKeyByLevels(double x, double y) const {
  const unsigned ix(quantise(x - minX, scaleX)), iy(quantise(y - minY, scaleY));
  uint32_t key(0);
  unsigned state(0);
  int shift(startShift);
  for (unsigned bit = unsigned(cells) >> 1;; bit >>= 1) {
    const unsigned quadrant(((ix & bit) != 0 ? 2u : 0u) + ((iy & bit) != 0 ? 1u : 0u));
    key += uint32_t(VALUE[state][quadrant]) << shift;
    if (shift == 0) break;
    shift -= 2;
    state = NEXT[state][quadrant];
  }
  return key;
}

GSS_HC2::GSS_HC2(double minX_, double minY_, double maxX_, double maxY_, int numBits_) {
  init(minX_, minY_, maxX_, maxY_, numBits_);
}

void GSS_HC2::init(double minX_, double minY_, double maxX_, double maxY_, int numBits_) {
  if (!setup(minX_, minY_, maxX_, maxY_, numBits_)) {
    std::cout << "GSS_HC2, invalid parameters" << std::endl;
    std::exit(1);
  }
}

HC2::HC2() {
  init(0.0, 0.0, 1.0, 1.0, 30);
}

HC2::HC2(double minX_, double minY_, double maxX_, double maxY_, int numBits_) {
  init(minX_, minY_, maxX_, maxY_, numBits_);
}

void HC2::init(double minX_, double minY_, double maxX_, double maxY_, int numBits_) {
  const bool bValid(setup(minX_, minY_, maxX_, maxY_, numBits_));
  if (!bValid) logError("HC2::HC2(..)", "Can't determine Hermite factors");
  VASK_ASSERT(bValid);
}

} // namespace KIRO_VASK2D
