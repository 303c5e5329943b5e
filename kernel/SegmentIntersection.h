#pragma once
// Exact tests on pairs of segments: the class of their intersection and
// their meeting point. Internal to the library.
#include "SegmentChecker.h"
#include "kernel/KiroTest.h"
#include <cmath>

namespace KIRO_VASK2D {

/** Exact orientation of (a, b, c) behind a filter whose error bound follows
 * the operands, so that the answer stays cheap for small coordinates even
 * when the static bound of kiroTest has been raised by far-away points.
 * What the filter leaves open, kiroTest decides exactly; the caller keeps
 * kiroTest's bound raised over the points it asks about.
 *
 * With l = (ax-cx)*(by-cy) and r = (ay-cy)*(bx-cx) as computed, the
 * computed det = l - r differs from the exact one by at most
 * (3u + 16u^2) * (|l| + |r|), u the unit roundoff of the rounding mode
 * (Shewchuk's ccwerrboundA with u = 2^-53 in round-to-nearest, u = 2^-52
 * in the directed modes). 2^-50 = 8 * 2^-53 covers 6 * 2^-53 + 64 * 2^-106
 * of every mode. Products in the subnormal range add an absolute error of
 * at most 2^-1074 each, which underflowFloor (2^-1000) covers. The bound
 * needs finite intermediates: in the directed modes an overflow yields
 * DBL_MAX instead of infinity and would look finite, so the differences
 * must stay at most 2^1000 and the products' sum at most 2^1020; beyond,
 * and for NaN, the filter declines. */
inline Orientation2 orientationFiltered(KiroTest& kiroTest, const Point2& a, const Point2& b, const Point2& c) {
  const double acx(a.x() - c.x()), bcy(b.y() - c.y()), acy(a.y() - c.y()), bcx(b.x() - c.x());
  const double l(acx * bcy), r(acy * bcx);
  const double det(l - r);
  const double sum(std::fabs(l) + std::fabs(r));
  const double maxDiff(std::fmax(std::fmax(std::fabs(acx), std::fabs(bcy)), std::fmax(std::fabs(acy), std::fabs(bcx))));
  if (maxDiff <= 0x1p1000 && sum <= 0x1p1020) {
    const double err(0x1p-50 * sum + KiroTest::underflowFloor);
    if (det > err) return ORIENTATION2_CCW;
    if (-err > det) return ORIENTATION2_CW;
  }
  return kiroTest.getOrientation2(&a, &b, &c);
}

/** Shewchuk's ccwerrboundA, (3 + 16 eps) eps with eps = 2^-53, rounded up:
 * in round-to-nearest an orientation determinant of input points errs by at
 * most this much times the sum of the magnitudes of its two products. The
 * crossing points in doubles rest on it. */
constexpr double SEGMENT_DET_ERR_NEAREST = 3.3306690738754746e-16;

/** For c on the line through a != b: does c lie strictly between a and b?
 * Exact: on the line, either coordinate in which a and b differ orders the
 * points, so no length is computed. */
inline bool strictlyBetween(const Point2& a, const Point2& b, const Point2& c) {
  if (a.x() != b.x()) return a.x() < b.x() ? (a.x() < c.x() && c.x() < b.x()) : (b.x() < c.x() && c.x() < a.x());
  return a.y() < b.y() ? (a.y() < c.y() && c.y() < b.y()) : (b.y() < c.y() && c.y() < a.y());
}

/** Exact class of the closed segments p1p2 and p3p4, finite coordinates
 * required; a degenerate segment (p1 == p2) is a point. Segments with equal
 * end points in either direction are SIT_SEGMENT, two equal points are
 * SIT_ENDPOINT. kiroTest's static bound must cover the four points. */
SegmentIntersectionType classifySegmentPair(KiroTest& kiroTest, const Point2& p1, const Point2& p2, const Point2& p3,
                                            const Point2& p4);

/** True when the segment has two finite end points. */
inline bool isFiniteSegment(const Segment2& seg) {
  const Point2 src(seg.getSrc()), trg(seg.getTrg());
  return std::isfinite(src.x()) && std::isfinite(src.y()) && std::isfinite(trg.x()) && std::isfinite(trg.y());
}

/** The one common point of a pair of class SIT_POINT: an end point of one
 * segment that lies on the other as it is, otherwise the crossing of the
 * two lines with each coordinate truncated to a double, which is one of the
 * two doubles next to the exact value (faithful rounding). The class is the
 * caller's to establish; kiroTest's bound must cover the four points. */
Point2 getSinglePointOfCrossing(KiroTest& kiroTest, const Point2& p1, const Point2& p2, const Point2& p3,
                                const Point2& p4);

/** The crossing of two segments that cross properly (each has its end
 * points strictly on both sides of the other's line), within one unit of
 * the last place of the exact crossing per coordinate: the double formula
 * where its error bound proves that, else the exact rational crossing
 * rounded to the nearest double. kiroTest's bound must cover the points. */
Point2 getProperCrossing(KiroTest& kiroTest, const Point2& p1, const Point2& p2, const Point2& p3, const Point2& p4);

} // namespace KIRO_VASK2D
