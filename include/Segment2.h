#pragma once
#include "Point2.h"
#include "Vask2DApi.h"
#include <iosfwd>

namespace KIRO_VASK2D {

/** A segment given by two free points, source then target. */
class VASK2D_API Segment2 {
public:
  Segment2() {}
  /** Copies the points; a copy of a vertex drops its incident triangle. */
  Segment2(const Point2& src_, const Point2& trg_) : src(src_), trg(trg_) {}

  Point2 getSrc() const { return src; }
  Point2 getTrg() const { return trg; }
  double getSqLen2D() const { return sqDistance2D(src, trg); }
  void swapSrcTrg();
  /** Equal end points in either direction: (a,b) == (b,a). */
  bool operator==(const Segment2& other) const {
    return (src == other.src && trg == other.trg) || (src == other.trg && trg == other.src);
  }

private:
  Point2 src;
  Point2 trg;
};

VASK2D_API std::ostream& operator<<(std::ostream& stream, const Segment2& seg);

/** Strict order of segment pointers by source, then target (Point2::operator<).
 * It is direction-sensitive: (a,b) and (b,a) are ordered, although they
 * compare equal with Segment2::operator==. */
struct VASK2D_API Func_compareSegment {
  bool operator()(const Segment2* pSeg0, const Segment2* pSeg1) const;
};

} // namespace KIRO_VASK2D
