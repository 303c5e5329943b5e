#pragma once
// Geometric tools of the library: exact intersection with filtered stages,
// points moved onto lines within the grid of doubles, ulps and angles.
// The functions that keep a function-local predicates object are not for
// concurrent use; they belong to the thread that drives the triangulation.
#include "Point2.h"
#include "Vector2.h"

namespace KIRO_VASK2D {

/** Intersection of segments p0p1 and p2p3: a shared end point as it is,
 * otherwise the double formula on shifted coordinates when the segments
 * are well conditioned and the result lies on both, else the rational
 * stage; an exact result that rounding puts off either segment is replaced
 * by the nearest of the four end points. Collinear input gets a warning and
 * then, as parallel lines, VaskException. Not for concurrent use. */
void getIntersectionCoordsNoRounding(const Point2& p0, const Point2& p1, const Point2& p2, const Point2& p3, double& x,
                                     double& y);
/** The same; writes the coordinates into out and leaves its other fields. */
void getIntersectionCoordsNoRounding(const Point2& p0, const Point2& p1, const Point2& p2, const Point2& p3,
                                     Point2& out);

/** For p known to lie near line ab: is it within the segment? True at the
 * end points; otherwise neither end is farther from p than a is from b.
 * Collinearity is not tested. */
bool approxHasOn(const Point2& a, const Point2& b, const Point2& p);

/** 2^(ceil(log2 |v|) - 52): the unit in the last place of |v| for a power of
 * two, of the next binade otherwise; never below 2^-1074, the spacing of the
 * subnormals (so 2^-1074 for 0). NaN stays NaN, an infinity gives +infinity. */
double getUlp(double v);

/** Foot of q on line p0p1; requires p0 != p1 ("p1!=p0"). When the distance
 * of p0 and p1 underflows to 0 the result is (-999, -999) after a warning. */
Point2 getFootPoint(const Point2& p0, const Point2& p1, const Point2& q);
/** Distance of q from line p0p1; for p0 == p1 a warning and the distance of q from p0. */
double getPointLineDistance2D(const Point2& p0, const Point2& p1, const Point2& q);

/** An x within p.x +- range for which (x, p.y) lies on line ab or as close to
 * it as the doubles allow, found by bisection with exact orientations; p.x
 * when the range does not bracket the line. */
double getBetterX(const Point2& a, const Point2& b, const Point2& p, double range);
/** The same for y along the vertical line through p. */
double getBetterY(const Point2& a, const Point2& b, const Point2& p, double range);

/** Angle in degrees between two unit vectors. A length that differs from
 * 1.0 by more than 0.1 (or a NaN) is a broken invariant: VaskException. */
double getAngleDegree(const Vector2& v0, const Vector2& v1);
/** Cosine of the angle between two unit vectors, with the same check. */
double getCosPhi(const Vector2& v0, const Vector2& v1);

/** Where c stands relative to segment p0p1, in units of the segment: t is
 * the parameter of its foot (0 at p0, 1 at p1) and r its distance from the
 * line divided by the segment's length. The coordinates are shifted to p0
 * and divided by the larger difference first, so nothing overflows or
 * underflows at any scale; both values carry a relative error of a few
 * units in the last place. False when the segment's extent is zero or not
 * finite, or c lies too far away to be placed. */
bool getRelativePlacement(const Point2& p0, const Point2& p1, const Point2& c, double& t, double& r);

} // namespace KIRO_VASK2D
