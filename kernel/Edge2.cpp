#include "Edge2.h"
#include <iostream>

namespace KIRO_VASK2D {

std::ostream& operator<<(std::ostream& stream, const Edge2& edge) {
  stream << "Edge2 (triangle " << static_cast<const void*>(edge.getTriangle()) << ", index " << edge.getIndex() << ")";
  if (edge.getTriangle() != nullptr && edge.getIndex() >= 0 && edge.getIndex() < 3) {
    const Point2* pSrc(edge.getSrc());
    const Point2* pTrg(edge.getTrg());
    if (pSrc != nullptr && pTrg != nullptr)
      stream << ": (" << pSrc->x() << ", " << pSrc->y() << ") -> (" << pTrg->x() << ", " << pTrg->y() << ")";
  }
  return stream;
}

} // namespace KIRO_VASK2D
