#include "Circle2.h"
#include <iostream>

namespace KIRO_VASK2D {

std::ostream& operator<<(std::ostream& stream, const Circle2& circle) {
  const Point2 center(circle.getCenter());
  stream << "Circle2: " << center << ", r=" << circle.getRadius();
  return stream;
}

} // namespace KIRO_VASK2D
