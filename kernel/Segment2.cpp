#include "Segment2.h"
#include <iostream>

namespace KIRO_VASK2D {

void Segment2::swapSrcTrg() {
  const Point2 tmp(src);
  src = trg;
  trg = tmp;
}

std::ostream& operator<<(std::ostream& stream, const Segment2& seg) {
  const Point2 src(seg.getSrc()), trg(seg.getTrg());
  stream << "Segment2 (" << src.x() << ", " << src.y() << ") -> (" << trg.x() << ", " << trg.y()
         << "), sqLen=" << seg.getSqLen2D();
  return stream;
}

bool Func_compareSegment::operator()(const Segment2* pSeg0, const Segment2* pSeg1) const {
  const Point2 src0(pSeg0->getSrc()), src1(pSeg1->getSrc());
  if (src0 < src1) return true;
  if (src0 > src1) return false;
  return pSeg0->getTrg() < pSeg1->getTrg();
}

} // namespace KIRO_VASK2D
