#include "kernel/SegmentIntersection.h"
#include "support/VaskAssert.h"
#include <utility>

namespace KIRO_VASK2D {

SegmentIntersectionType classifySegmentPair(KiroTest& kiroTest, const Point2& p1In, const Point2& p2In,
                                            const Point2& p3In, const Point2& p4In) {
  // The end points are swapped as pointers; the caller's points stay as they are.
  const Point2 *p1(&p1In), *p2(&p2In), *p3(&p3In), *p4(&p4In);
  if (*p1 == *p2) {
    // A degenerate segment stands second from here on.
    std::swap(p1, p3);
    std::swap(p2, p4);
    if (*p1 == *p2) return *p1 == *p3 ? SIT_ENDPOINT : SIT_NONE;
  }
  if (*p3 == *p4) {
    if (*p3 == *p1 || *p3 == *p2) return SIT_ENDPOINT;
    if (orientationFiltered(kiroTest, *p1, *p2, *p3) != ORIENTATION2_COLLINEAR) return SIT_NONE;
    return strictlyBetween(*p1, *p2, *p3) ? SIT_POINT : SIT_NONE;
  }

  // Both have positive length. A common end point goes to the front (p1 == p3).
  if (*p1 == *p4)
    std::swap(p3, p4);
  else if (*p2 == *p3)
    std::swap(p1, p2);
  else if (*p2 == *p4) {
    std::swap(p1, p2);
    std::swap(p3, p4);
  }
  if (*p1 == *p3) {
    if (*p2 == *p4) return SIT_SEGMENT;
    if (orientationFiltered(kiroTest, *p1, *p2, *p4) != ORIENTATION2_COLLINEAR) return SIT_ENDPOINT;
    // Collinear from a common end: they overlap unless they leave it in
    // opposite directions, and then one far end lies within the other segment.
    if (strictlyBetween(*p1, *p2, *p4) || strictlyBetween(*p3, *p4, *p2)) return SIT_SEGMENT;
    return SIT_ENDPOINT;
  }

  // No common end point.
  const Orientation2 ori123(orientationFiltered(kiroTest, *p1, *p2, *p3));
  const Orientation2 ori124(orientationFiltered(kiroTest, *p1, *p2, *p4));
  if (ori123 == ORIENTATION2_COLLINEAR && ori124 == ORIENTATION2_COLLINEAR) {
    // On one line, an end point strictly inside the other segment means an
    // overlap of positive length; touching without a common end point is
    // impossible.
    if (strictlyBetween(*p1, *p2, *p3) || strictlyBetween(*p1, *p2, *p4) || strictlyBetween(*p3, *p4, *p1) ||
        strictlyBetween(*p3, *p4, *p2))
      return SIT_SEGMENT;
    return SIT_NONE;
  }
  if (ori123 == ORIENTATION2_COLLINEAR) return strictlyBetween(*p1, *p2, *p3) ? SIT_POINT : SIT_NONE;
  if (ori124 == ORIENTATION2_COLLINEAR) return strictlyBetween(*p1, *p2, *p4) ? SIT_POINT : SIT_NONE;
  if (ori123 == ori124) return SIT_NONE;
  const Orientation2 ori341(orientationFiltered(kiroTest, *p3, *p4, *p1));
  const Orientation2 ori342(orientationFiltered(kiroTest, *p3, *p4, *p2));
  if (ori341 != ori342) return SIT_POINT;
  // p3 and p4 lie strictly on both sides of line p1p2, so p1 and p2 cannot
  // both lie on line p3p4.
  VASK_ASSERT(ori341!=ORIENTATION2_COLLINEAR);
  return SIT_NONE;
}

Point2 getSinglePointOfCrossing(KiroTest& kiroTest, const Point2& p1, const Point2& p2, const Point2& p3,
                                const Point2& p4) {
  // A degenerate segment is its own meeting point.
  if (p1 == p2) return Point2(p1.x(), p1.y());
  if (p3 == p4) return Point2(p3.x(), p3.y());
  // For a single common point of segments that are not collinear, an end
  // point on the other line is on the other segment too: the lines meet
  // only there.
  if (orientationFiltered(kiroTest, p1, p2, p3) == ORIENTATION2_COLLINEAR) return Point2(p3.x(), p3.y());
  if (orientationFiltered(kiroTest, p1, p2, p4) == ORIENTATION2_COLLINEAR) return Point2(p4.x(), p4.y());
  if (orientationFiltered(kiroTest, p3, p4, p1) == ORIENTATION2_COLLINEAR) return Point2(p1.x(), p1.y());
  if (orientationFiltered(kiroTest, p3, p4, p2) == ORIENTATION2_COLLINEAR) return Point2(p2.x(), p2.y());
  // A proper crossing: the rational intersection, truncated toward zero per
  // coordinate, lies within one unit of the last place of the exact value
  // and on its side of zero, so it is one of the two neighbouring doubles.
  double x(0.0), y(0.0);
  kiroTest.getIntersectionCoords_gmp_MT(&p1, &p2, &p3, &p4, x, y);
  return Point2(x, y);
}

} // namespace KIRO_VASK2D
