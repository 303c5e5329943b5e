#include "kiro_tools/HC2.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <cstdlib>
#include <iostream>

namespace KIRO_VASK2D {

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
