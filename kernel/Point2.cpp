#include "Point2.h"
#include <iostream>

namespace KIRO_VASK2D {

void Point2::print() const {
  const std::streamsize oldPrecision(std::cout.precision(17));
  std::cout << coordX << " " << coordY << std::endl;
  std::cout.precision(oldPrecision);
}

std::ostream& operator<<(std::ostream& stream, const Point2& pnt) {
  stream << "Point2 (" << static_cast<const void*>(&pnt) << "): " << pnt.x() << ", " << pnt.y()
         << " (customIndex=" << pnt.getCustomIndex() << ")";
  return stream;
}

} // namespace KIRO_VASK2D
