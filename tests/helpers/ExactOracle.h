#pragma once
// An exact reference for the predicates, written independently of the
// library: GMP rationals, other expansion orders, no filter. Plus generators
// of near-degenerate input.
#include "Point2.h"
#include <limits>
#include <random>

namespace vask_test {

/** Sign of the orientation determinant of (p0, p1, p2): 1 CCW, -1 CW, 0 collinear. */
int exactOrientationSign(const KIRO_VASK2D::Point2& p0, const KIRO_VASK2D::Point2& p1, const KIRO_VASK2D::Point2& p2);
/** Sign of the in-circle determinant: 1 when d lies inside the circle through
 * the counter-clockwise a, b, c; -1 outside; 0 on it. */
int exactIncircleSign(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                      const KIRO_VASK2D::Point2& d);
/** Intersection of lines ab and cd, each coordinate as mpq_get_d gives it; false for parallel lines. */
bool exactLineIntersection(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                           const KIRO_VASK2D::Point2& d, double& x, double& y);
/** |orientation determinant of (a, b, p)| compared for two points: -1, 0, 1 as p is nearer, equal, farther
 * from line ab than q (exactly, in multiples of the same factor |ab|). */
int compareLineDistance(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& p,
                        const KIRO_VASK2D::Point2& q);

/** Distance of p from the line through a and b (a != b) in multiples of
 * unit, computed exactly and rounded once (then the square root). */
double lineDeviation(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& p,
                     double unit);
/** Sign of the dot product (b - a) . (d - c), exactly. */
int exactDotSign(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                 const KIRO_VASK2D::Point2& d);
/** The spacing of doubles at |v|: nextafter(|v|) - |v|; the smallest
 * subnormal for 0. One ulp of the largest coordinate is the scale of the
 * error a correctly rounded point can have. */
double ulpOf(double v);

/** The exact circumcentre of a, b, c, each coordinate rounded by mpq_get_d; false for a collinear triangle. */
bool exactCircumcentre(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                       KIRO_VASK2D::Point2& out);
/** Twice the exact signed area of a, b, c, rounded by mpq_get_d. */
double exactDoubleArea(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c);

/** v moved by steps units in the last place (nextafter, either direction). */
double ulpShift(double v, int steps);

const double NaN(std::numeric_limits<double>::quiet_NaN());
const double INF(std::numeric_limits<double>::infinity());

/** A uniformly random double in [lo, hi). */
inline double uniform(std::mt19937_64& gen, double lo, double hi) {
  return std::uniform_real_distribution<double>(lo, hi)(gen);
}

/** A random double with uniformly random binary exponent in [minExp, maxExp] and random sign. */
double randomMagnitude(std::mt19937_64& gen, int minExp, int maxExp);

} // namespace vask_test
