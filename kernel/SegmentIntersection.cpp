#include "kernel/SegmentIntersection.h"
#include "support/VaskAssert.h"
#include <cfenv>
#include <utility>

namespace KIRO_VASK2D {

namespace {
/** True when every non-zero |v| lies in [2^-400, 2^400]: products of two
 * such values neither underflow nor overflow. */
bool inSafeRange(double v) {
  const double a(std::fabs(v));
  return a == 0.0 || (a >= 0x1p-400 && a <= 0x1p400);
}

/** One coordinate base + t * d of the crossing, accepted only when its
 * error bound proves it faithful: the exact value lies strictly between the
 * neighbours of the result. e is the bound on |t~ - t| (see below). */
bool faithfulCoordinate(double base, double d, double t, double eT, double& out) {
  const double step(t * d);
  if (!(step == 0.0 || std::fabs(step) >= 0x1p-900)) return false;
  const double x(base + step);
  // The product's rounding (2^-53 |step|) and the rounding of d (one more);
  // 2^-51 covers both with room. Then the error of t carried by |d|.
  const double errBeforeSum(std::fabs(step) * 0x1p-51 + eT * std::fabs(d) * (1.0 + 0x1p-50));
  // In round-to-nearest the sum lands within half a gap of x on either side,
  // so x is faithful when the remaining error stays below half the smaller gap.
  const double gap(std::fmin(x - std::nextafter(x, -HUGE_VAL), std::nextafter(x, HUGE_VAL) - x));
  if (!(errBeforeSum * (1.0 + 0x1p-40) < 0.5 * gap)) return false;
  out = x;
  return true;
}

/** The crossing p1 + t (p2 - p1) in doubles, accepted only with a proof of
 * faithful rounding; false leaves it to the caller. Meant for proper
 * crossings (no end point on the other line), where t lies in (0, 1).
 *
 * With e = p3 - p1, d1 = p2 - p1, d2 = p4 - p3: t = (e x d2) / (d1 x d2).
 * Numerator and denominator are orientation determinants of input points,
 * so each errs by at most SEGMENT_DET_ERR_NEAREST times its product sum. With rn,
 * rd those errors relative to the computed values,
 * |t~ - t| <= |t~| (1 + 2^-50) (2^-53 + (rn + rd) / (1 - rd)), the 2^-53
 * for the division. Requires round-to-nearest and magnitudes in the safe
 * range, where nothing underflows or overflows. */
bool crossingFrom(const Point2& p1, const Point2& p2, const Point2& p3, const Point2& p4, double& x, double& y) {
  const double ex(p3.x() - p1.x()), ey(p3.y() - p1.y());
  const double d1x(p2.x() - p1.x()), d1y(p2.y() - p1.y()), d2x(p4.x() - p3.x()), d2y(p4.y() - p3.y());
  if (!(inSafeRange(ex) && inSafeRange(ey) && inSafeRange(d1x) && inSafeRange(d1y) && inSafeRange(d2x) &&
        inSafeRange(d2y) && std::fabs(p1.x()) <= 0x1p400 && std::fabs(p1.y()) <= 0x1p400))
    return false;
  const double n1(ex * d2y), n2(ey * d2x), q1(d1x * d2y), q2(d1y * d2x);
  const double num(n1 - n2), den(q1 - q2);
  if (num == 0.0 || den == 0.0) return false;
  const double rn(SEGMENT_DET_ERR_NEAREST * (std::fabs(n1) + std::fabs(n2)) / std::fabs(num));
  const double rd(SEGMENT_DET_ERR_NEAREST * (std::fabs(q1) + std::fabs(q2)) / std::fabs(den));
  if (!(rd < 0.5 && rn < 0.5)) return false;
  const double t(num / den);
  // A quotient near the subnormal range loses the relative error bound.
  if (!(std::fabs(t) >= 0x1p-900)) return false;
  const double eT(std::fabs(t) * (1.0 + 0x1p-50) * (0x1p-53 + (rn + rd) * (1.0 + 0x1p-50) / (1.0 - rd)));
  return faithfulCoordinate(p1.x(), d1x, t, eT, x) && faithfulCoordinate(p1.y(), d1y, t, eT, y);
}

/** The crossing in doubles from each of the four end points in turn: the
 * error is proportional to the distance travelled from the base point, so
 * one of them usually succeeds where another fails. */
bool crossingInDoubles(const Point2& p1, const Point2& p2, const Point2& p3, const Point2& p4, double& x, double& y) {
  if (std::fegetround() != FE_TONEAREST) return false;
  return crossingFrom(p1, p2, p3, p4, x, y) || crossingFrom(p2, p1, p3, p4, x, y) ||
         crossingFrom(p3, p4, p1, p2, x, y) || crossingFrom(p4, p3, p1, p2, x, y);
}
} // namespace

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
  // A proper crossing: the double formula where its error bound proves the
  // result faithful. Otherwise the rational intersection, truncated toward
  // zero per coordinate: that lies within one unit of the last place of the
  // exact value and on its side of zero, so it is one of the two
  // neighbouring doubles as well.
  double x(0.0), y(0.0);
  if (crossingInDoubles(p1, p2, p3, p4, x, y)) return Point2(x, y);
  kiroTest.getIntersectionCoords_gmp_MT(&p1, &p2, &p3, &p4, x, y);
  return Point2(x, y);
}

Point2 getProperCrossing(KiroTest& kiroTest, const Point2& p1, const Point2& p2, const Point2& p3, const Point2& p4) {
  double x(0.0), y(0.0);
  if (crossingInDoubles(p1, p2, p3, p4, x, y)) return Point2(x, y);
  kiroTest.getIntersectionCoords_gmp_MT(&p1, &p2, &p3, &p4, x, y, true);
  return Point2(x, y);
}

} // namespace KIRO_VASK2D
