#include "Vector2.h"
#include "Point2.h"
#include "Predicates2.h"
#include "support/VaskAssert.h"
#include <iostream>
#include <utility>

namespace KIRO_VASK2D {

Vector2 Vector2::orthogonalVector() const {
  // Divide by the component of larger magnitude so that the quotient stays
  // within [-1, 1]: no overflow, and w = (1, -x/y) is never shorter than 1.
  double a(valX), b(valY);
  const bool bSwapped(std::fabs(a) > std::fabs(b));
  if (bSwapped) std::swap(a, b);
  if (b == 0.0) return Vector2(0.0, 0.0);
  Vector2 w(1.0, -a / b);
  if (bSwapped) w.set(w.y(), w.x());
  w = w / w.length();

  // w is perpendicular up to rounding; the exact side test makes the result
  // stand to the left of this vector whatever sign the quotient had.
  const Point2 origin(0.0, 0.0), tip(valX, valY), tipW(w.x(), w.y());
  const Orientation2 ori(getOrientation2(&origin, &tip, &tipW));
  if (ori == ORIENTATION2_CCW) return w;
  if (ori == ORIENTATION2_CW) return -w;
  VASK_ASSERT(false);
  return Vector2();
}

std::ostream& operator<<(std::ostream& stream, const Vector2& vec) {
  stream << "Vector2: " << vec.x() << ", " << vec.y();
  return stream;
}

} // namespace KIRO_VASK2D
