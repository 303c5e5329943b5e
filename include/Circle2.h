#pragma once
#include "Point2.h"
#include "Vask2DApi.h"
#include <cmath>
#include <iosfwd>

namespace KIRO_VASK2D {

/** A circle by centre and squared radius; the radius itself is not stored. */
class VASK2D_API Circle2 {
public:
  Circle2(double x, double y, double sqRadius_) : center(x, y), sqRadius(sqRadius_) {}
  Circle2(const Point2& center_, double sqRadius_) : center(center_), sqRadius(sqRadius_) {}

  Point2 getCenter() const { return center; }
  double getRadius() const { return std::sqrt(sqRadius); }
  double getSqRadius() const { return sqRadius; }

private:
  Point2 center;
  double sqRadius;
};

VASK2D_API std::ostream& operator<<(std::ostream& stream, const Circle2& circle);

} // namespace KIRO_VASK2D
