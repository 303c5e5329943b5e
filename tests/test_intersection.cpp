// Exact segment intersection, the quick segment test, and the tools that
// place new points on lines: foot points, distances, midpoints moved onto
// their segment, ulps and angles.
#include "Predicates2.h"
#include "VaskException.h"
#include "freeFunctions.h"
#include "helpers/ExactOracle.h"
#include "kernel/KiroTest.h"
#include "kernel/tools.h"
#include <gtest/gtest.h>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>

using namespace KIRO_VASK2D;
using vask_test::compareLineDistance;
using vask_test::exactLineIntersection;
using vask_test::exactOrientationSign;
using vask_test::INF;
using vask_test::NaN;
using vask_test::randomMagnitude;
using vask_test::uniform;
using vask_test::ulpShift;

namespace {

/** |a - b| in units of the last place of the larger magnitude. */
double ulpDistance(double a, double b) {
  const double scale(std::max(std::fabs(a), std::fabs(b)));
  if (scale == 0.0) return 0.0;
  return std::fabs(a - b) / (std::nextafter(scale, INF) - scale);
}

/** Two crossing segments through a common random point: nearly parallel
 * (angle down to 1e-12), long, and far from the origin in some cases. */
void crossingSegments(std::mt19937_64& gen, Point2& p0, Point2& p1, Point2& p2, Point2& p3) {
  const double offset(gen() % 2 ? randomMagnitude(gen, 0, 60) : 0.0);
  const double cx(offset + uniform(gen, -1, 1)), cy(offset + uniform(gen, -1, 1));
  const double angle(uniform(gen, 0, 3.14159));
  const double delta(std::pow(10.0, -uniform(gen, 0, 12))) ;
  const double len(std::pow(10.0, uniform(gen, -3, 6)));
  const double ux(std::cos(angle)), uy(std::sin(angle)), vx(std::cos(angle + delta)), vy(std::sin(angle + delta));
  const double s0(uniform(gen, 0.1, 1)), s1(uniform(gen, 0.1, 1)), s2(uniform(gen, 0.1, 1)), s3(uniform(gen, 0.1, 1));
  p0 = Point2(cx - s0 * len * ux, cy - s0 * len * uy);
  p1 = Point2(cx + s1 * len * ux, cy + s1 * len * uy);
  p2 = Point2(cx - s2 * len * vx, cy - s2 * len * vy);
  p3 = Point2(cx + s3 * len * vx, cy + s3 * len * vy);
}
} // namespace

// ---------------------------------------------------------------------------
// Exact line intersection

TEST(ExactIntersection, EqualsTheRationalResultTruncatedToDoubles) {
  KiroTest kiroTest;
  std::mt19937_64 gen(21);
  int numTested(0);
  for (int i = 0; i < 20000; ++i) {
    Point2 a, b, c, d;
    crossingSegments(gen, a, b, c, d);
    if (i % 3 == 0) // mixed magnitudes of all eight coordinates
      for (Point2* p : {&a, &b, &c, &d}) p->change(randomMagnitude(gen, -900, 500), randomMagnitude(gen, -900, 500));
    double ex(0), ey(0), x(0), y(0);
    if (!exactLineIntersection(a, b, c, d, ex, ey)) continue;
    kiroTest.getIntersectionCoords_gmp_MT(&a, &b, &c, &d, x, y);
    ASSERT_EQ(ex, x);
    ASSERT_EQ(ey, y);
    ++numTested;
  }
  EXPECT_GT(numTested, 19000);
}

TEST(ExactIntersection, ParallelLinesWarnAndThrow) {
  KiroTest kiroTest;
  const Point2 a(0, 0), b(1, 1), c(0, 1), d(2, 3);
  double x(0), y(0);
  testing::internal::CaptureStdout();
  EXPECT_THROW(kiroTest.getIntersectionCoords_gmp_MT(&a, &b, &c, &d, x, y), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(std::string::npos, out.find("KiroTest::getIntersectionCoords(), WARNING: denom=0 -> parallel segments"));
  // The object stays usable after the exception: its mutex was released.
  const Point2 e(0, 1), f(1, 0);
  kiroTest.getIntersectionCoords_gmp_MT(&a, &b, &e, &f, x, y);
  EXPECT_EQ(0.5, x);
  EXPECT_EQ(0.5, y);
}

TEST(ExactIntersection, NonFiniteInputThrowsInsteadOfAbortingInGmp) {
  KiroTest kiroTest;
  const Point2 a(0, 0), b(1, 1), c(0, 1), bad(NaN, 0), inf(1, INF);
  double x(0), y(0);
  testing::internal::CaptureStdout();
  EXPECT_THROW(kiroTest.getIntersectionCoords_gmp_MT(&a, &b, &c, &bad, x, y), VaskException);
  EXPECT_THROW(kiroTest.getIntersectionCoords_gmp_MT(&inf, &b, &c, &a, x, y), VaskException);
  testing::internal::GetCapturedStdout();
}

// ---------------------------------------------------------------------------
// Filtered intersection of segments

TEST(SegmentIntersection, DiagonalsOfASquareMeetInTheCentre) {
  double x(0), y(0);
  getIntersectionCoordsNoRounding(Point2(0, 0), Point2(2, 2), Point2(0, 2), Point2(2, 0), x, y);
  EXPECT_EQ(1.0, x);
  EXPECT_EQ(1.0, y);
  Point2 out(7, 7);
  out.setCustomIndex(5);
  getIntersectionCoordsNoRounding(Point2(0, 0), Point2(2, 2), Point2(0, 2), Point2(2, 0), out);
  EXPECT_TRUE(Point2(1, 1) == out);
  EXPECT_EQ(5, out.getCustomIndex());
}

TEST(SegmentIntersection, SharedEndPointIsReturnedAsItIs) {
  const Point2 a(0.1, 0.7), b(3.3, -1.9), c(-2.2, 5.5);
  for (int k = 0; k < 4; ++k) {
    double x(0), y(0);
    const Point2 &p0(k < 2 ? a : b), &p1(k < 2 ? b : a), &p2(k % 2 ? a : c), &p3(k % 2 ? c : a);
    getIntersectionCoordsNoRounding(p0, p1, p2, p3, x, y);
    EXPECT_TRUE(a == Point2(x, y)) << k;
  }
}

TEST(SegmentIntersection, NearlyParallelAndFarAwayCrossingsLandOnBothSegments) {
  // Whatever stage decides, the result lies within both segments and
  // within a few ulps of the exact crossing (or is an end point).
  std::mt19937_64 gen(22);
  int numTested(0), numEndPoints(0);
  for (int i = 0; i < 20000; ++i) {
    Point2 p0, p1, p2, p3;
    crossingSegments(gen, p0, p1, p2, p3);
    if (exactOrientationSign(p0, p1, p2) * exactOrientationSign(p0, p1, p3) >= 0) continue;
    if (exactOrientationSign(p2, p3, p0) * exactOrientationSign(p2, p3, p1) >= 0) continue;
    double ex(0), ey(0), x(0), y(0);
    ASSERT_TRUE(exactLineIntersection(p0, p1, p2, p3, ex, ey));
    getIntersectionCoordsNoRounding(p0, p1, p2, p3, x, y);
    const Point2 result(x, y);
    ASSERT_TRUE(approxHasOn(p0, p1, result) && approxHasOn(p2, p3, result)) << i;
    const bool bEndPoint(result == p0 || result == p1 || result == p2 || result == p3);
    numEndPoints += bEndPoint;
    if (!bEndPoint) {
      // The double stage is accepted within the segments; conditioning keeps it close.
      ASSERT_LT(std::fabs(x - ex), 1e-6 * (1.0 + std::fabs(ex))) << i;
      ASSERT_LT(std::fabs(y - ey), 1e-6 * (1.0 + std::fabs(ey))) << i;
    }
    ++numTested;
  }
  EXPECT_GT(numTested, 15000);
  EXPECT_LT(numEndPoints, numTested / 100);
}

TEST(SegmentIntersection, NearlyParallelLongSegmentsUseTheRationalResult) {
  // Slope difference below 0.01: the rational stage; its result is the
  // truncated exact crossing whenever that lies on both segments.
  const Point2 p0(-1e6, -1.0), p1(1e6, 1.0), p2(-1e6, 1.0 + 1e-9), p3(1e6, -1.0 + 3e-9);
  double ex(0), ey(0), x(0), y(0);
  ASSERT_TRUE(exactLineIntersection(p0, p1, p2, p3, ex, ey));
  getIntersectionCoordsNoRounding(p0, p1, p2, p3, x, y);
  EXPECT_EQ(ex, x);
  EXPECT_EQ(ey, y);
  EXPECT_TRUE(approxHasOn(p0, p1, Point2(x, y)));
  EXPECT_TRUE(approxHasOn(p2, p3, Point2(x, y)));
}

TEST(SegmentIntersection, NearlyParallelLinesMeetingBeyondASegmentGiveTheNearestEndPoint) {
  // The lines cross at x = 1.01005 on y = 0, beyond p1 = (1, 0): the rational
  // stage's result lies off p0p1, so the nearest of the four end points stands in.
  const Point2 p0(0.0, 0.0), p1(1.0, 0.0), p2(-1.0, 0.01), p3(3.0, -0.0099);
  double x(0), y(0);
  getIntersectionCoordsNoRounding(p0, p1, p2, p3, x, y);
  EXPECT_TRUE(p1 == Point2(x, y)) << x << " " << y;
  // The same with the segments exchanged and reversed.
  getIntersectionCoordsNoRounding(p3, p2, p1, p0, x, y);
  EXPECT_TRUE(p1 == Point2(x, y)) << x << " " << y;
}

TEST(SegmentIntersection, CollinearSegmentsWarnAndThrow) {
  double x(0), y(0);
  testing::internal::CaptureStdout();
  EXPECT_THROW(getIntersectionCoordsNoRounding(Point2(0, 0), Point2(2, 2), Point2(1, 1), Point2(3, 3), x, y),
               VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(std::string::npos,
            out.find("getIntersectionCoordsNoRounding(), WARNING: has been called for collinear segments"));
}

TEST(SegmentIntersection, NonFiniteInputThrowsAndDoesNotPoisonLaterCalls) {
  double x(0), y(0);
  testing::internal::CaptureStdout();
  EXPECT_THROW(getIntersectionCoordsNoRounding(Point2(0, 0), Point2(INF, 2), Point2(0, 2), Point2(2, 0), x, y),
               VaskException);
  EXPECT_THROW(getIntersectionCoordsNoRounding(Point2(0, 0), Point2(2, NaN), Point2(0, 2), Point2(2, 0), x, y),
               VaskException);
  testing::internal::GetCapturedStdout();
  getIntersectionCoordsNoRounding(Point2(0, 0), Point2(2, 2), Point2(0, 2), Point2(2, 0), x, y);
  EXPECT_EQ(1.0, x);
  EXPECT_EQ(1.0, y);
}

// ---------------------------------------------------------------------------
// Quick segment test

TEST(IntersectionState, ClassifiesCrossingTouchingDisjointAndCollinear) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(10.0);
  const Point2 a(0, 0), b(2, 2), c(0, 2), d(2, 0), e(3, 3), f(4, 4), g(1, 1), h(5, 0), k(2, 3);
  EXPECT_EQ(IST_REGULAR, kiroTest.getIntersectionState(&a, &b, &c, &d));
  EXPECT_EQ(IST_REGULAR, kiroTest.getIntersectionState(&a, &b, &g, &h)) << "touching end point";
  EXPECT_EQ(IST_NOIS, kiroTest.getIntersectionState(&a, &g, &c, &k));
  EXPECT_EQ(IST_NOIS, kiroTest.getIntersectionState(&a, &b, &d, &h)) << "same side";
  EXPECT_EQ(IST_NOIS, kiroTest.getIntersectionState(&a, &h, &c, &k)) << "line crossed beyond the segment";
  EXPECT_EQ(IST_COLLINEAR, kiroTest.getIntersectionState(&a, &b, &g, &e)) << "overlap";
  EXPECT_EQ(IST_COLLINEAR, kiroTest.getIntersectionState(&a, &e, &g, &b)) << "containment";
  EXPECT_EQ(IST_COLLINEAR, kiroTest.getIntersectionState(&a, &b, &b, &e)) << "touching end to end";
  EXPECT_EQ(IST_NOIS, kiroTest.getIntersectionState(&a, &g, &e, &f)) << "collinear and apart";
}

TEST(IntersectionState, NearlyCollinearSegmentsAreClassifiedExactly) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(10.0);
  const Point2 a(0, 0), b(3, 1), c(1, 1.0 / 3.0), d(2, ulpShift(2.0 / 3.0, 1)), e(1, ulpShift(1.0 / 3.0, 2));
  // c lies one rounding below the line ab, d and e above it.
  EXPECT_EQ(IST_REGULAR, kiroTest.getIntersectionState(&a, &b, &c, &d));
  EXPECT_EQ(IST_NOIS, kiroTest.getIntersectionState(&a, &b, &d, &e));
}

// ---------------------------------------------------------------------------
// Tools

TEST(Ulp, IsTwoToTheExponentMinus52AndExactAtEveryPowerOfTwo) {
  EXPECT_EQ(std::ldexp(1.0, -52), getUlp(1.0));
  EXPECT_EQ(std::ldexp(1.0, -51), getUlp(2.0));
  EXPECT_EQ(std::ldexp(1.0, -50), getUlp(3.0)) << "the ulp of the next binade";
  EXPECT_EQ(std::ldexp(1.0, -52), getUlp(-1.0));
  for (int e = -1022; e <= 1023; ++e) ASSERT_EQ(std::ldexp(1.0, e - 52), getUlp(std::ldexp(1.0, e))) << e;
  EXPECT_EQ(std::ldexp(1.0, -1074), getUlp(0.0));
  EXPECT_EQ(std::ldexp(1.0, -1074), getUlp(std::ldexp(1.0, -1070)));
  EXPECT_TRUE(std::isnan(getUlp(NaN)));
  EXPECT_EQ(INF, getUlp(-INF));
}

TEST(ApproxHasOn, AcceptsEndPointsAndInnerPointsOnly) {
  const Point2 a(0, 0), b(4, 0);
  EXPECT_TRUE(approxHasOn(a, b, a));
  EXPECT_TRUE(approxHasOn(a, b, b));
  EXPECT_TRUE(approxHasOn(a, b, Point2(2, 0)));
  EXPECT_TRUE(approxHasOn(a, b, Point2(2, 1))) << "collinearity is not tested";
  EXPECT_FALSE(approxHasOn(a, b, Point2(4.5, 0)));
  EXPECT_FALSE(approxHasOn(a, b, Point2(-1e-9, 0)));
  EXPECT_FALSE(approxHasOn(a, b, Point2(NaN, 0)));
}

TEST(FootPoint, OfAPointOnTheLineIsThatPointAndOffTheLineIsPerpendicular) {
  const Point2 p0(1, 1), p1(5, 3);
  const Point2 on(3, 2);
  const Point2 foot(getFootPoint(p0, p1, on));
  EXPECT_NEAR(3.0, foot.x(), 1e-15);
  EXPECT_NEAR(2.0, foot.y(), 1e-15);
  const Point2 q(0, 5);
  const Point2 f(getFootPoint(p0, p1, q));
  EXPECT_NEAR(0.0, (q - f) * (p1 - p0), 1e-12);
  EXPECT_NEAR(std::sqrt(sqDistance2D(q, f)), getPointLineDistance2D(p0, p1, q), 1e-15);
  EXPECT_NEAR(std::sqrt(20.0), getPointLineDistance2D(p0, p1, Point2(3, 2) + Vector2(-2, 4)), 1e-13);
}

TEST(FootPoint, EqualPointsBreakTheAssertionAndUnderflowingLengthsWarn) {
  testing::internal::CaptureStdout();
  EXPECT_THROW(getFootPoint(Point2(1, 1), Point2(1, 1), Point2(0, 0)), VaskException);
  const Point2 far(getFootPoint(Point2(0, 0), Point2(1e-200, 0), Point2(1, 1)));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(std::string::npos, out.find("Condition [ p1!=p0 failed ]"));
  EXPECT_NE(std::string::npos, out.find("getFootPoint(), WARNING: p0==p1, invalid parameters"));
  EXPECT_TRUE(Point2(-999, -999) == far);
}

TEST(PointLineDistance, DegenerateLineWarnsAndMeasuresToThePoint) {
  testing::internal::CaptureStdout();
  const double dist(getPointLineDistance2D(Point2(1, 1), Point2(1, 1), Point2(4, 5)));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(5.0, dist);
  EXPECT_NE(std::string::npos, out.find("getPointLineDistance2D(..), WARNING: p0==p1"));
}

TEST(BetterCoordinate, BisectionFindsTheCrossingOfTheLine) {
  const Point2 a(0, 0), b(3, 1);
  // On y = 1/3 rounded the line is crossed near x = 1; the result is as close as doubles allow.
  const Point2 p(1.001, 1.0 / 3.0);
  const double x(getBetterX(a, b, p, 0.01));
  const Point2 better(x, p.y());
  EXPECT_NEAR(1.0, x, 1e-15);
  for (int k = -2; k <= 2; ++k)
    EXPECT_LE(compareLineDistance(a, b, better, Point2(ulpShift(x, k), p.y())), 0) << k;
  const double y(getBetterY(a, b, Point2(1.5, 0.4), 0.2));
  EXPECT_EQ(0.5, y);
  EXPECT_EQ(1.001, getBetterX(a, b, p, 1e-6)) << "range does not bracket the line";
  EXPECT_EQ(7.0, getBetterX(Point2(0, 0), Point2(0, 1), Point2(7, 0.5), 0.0));
}

TEST(CenterWithShift, MidpointOfADiagonalIsExact) {
  const Point2 c(centerWithShift(Point2(0, 0), Point2(1, 1)));
  EXPECT_EQ(0.5, c.x());
  EXPECT_EQ(0.5, c.y());
}

TEST(CenterWithShift, VerticalSegmentKeepsItsX) {
  const Point2 c(centerWithShift(Point2(0.3, -1.0), Point2(0.3, 2.5)));
  EXPECT_EQ(0.3, c.x());
  EXPECT_EQ(0.75, c.y());
}

namespace {
/** x, or one of its neighbouring doubles, lies on the other side of line ab
 * than x or on it: the bisection has narrowed the crossing down to one ulp. */
bool bracketsTheLine(const Point2& a, const Point2& b, double x, double y) {
  const int side(exactOrientationSign(a, b, Point2(x, y)));
  if (side == 0) return true;
  for (double neighbour : {ulpShift(x, 1), ulpShift(x, -1)})
    if (exactOrientationSign(a, b, Point2(neighbour, y)) != side) return true;
  return false;
}
} // namespace

TEST(BetterCoordinate, EndsWithinOneUlpOfTheLineWheneverTheRangeBracketsIt) {
  std::mt19937_64 gen(24);
  int numBracketed(0);
  for (int i = 0; i < 3000; ++i) {
    const double offset(gen() % 2 ? uniform(gen, -1e4, 1e4) : 0.0);
    const Point2 a(offset + uniform(gen, -10, 10), offset + uniform(gen, -10, 10));
    const Point2 b(offset + uniform(gen, -10, 10), offset + uniform(gen, -10, 10));
    const Point2 mid((a.x() + b.x()) / 2, (a.y() + b.y()) / 2);
    const double range(std::pow(10.0, -uniform(gen, 0, 14)));
    const double x(getBetterX(a, b, mid, range));
    const bool bBracket(exactOrientationSign(a, b, Point2(mid.x() - range, mid.y())) *
                            exactOrientationSign(a, b, Point2(mid.x() + range, mid.y())) < 0);
    if (bBracket) {
      ASSERT_TRUE(bracketsTheLine(a, b, x, mid.y())) << i;
      ASSERT_LE(std::fabs(x - mid.x()), range);
      ++numBracketed;
    } else {
      ASSERT_EQ(mid.x(), x);
    }
    const double y(getBetterY(a, b, mid, range));
    ASSERT_LE(std::fabs(y - mid.y()), range);
  }
  EXPECT_GT(numBracketed, 1000);
}

TEST(CenterWithShift, StaysNearTheMidpointAndComesCloserToTheLine) {
  std::mt19937_64 gen(23);
  long long numCloser(0), numFarther(0);
  for (int i = 0; i < 3000; ++i) {
    const double offset(gen() % 2 ? uniform(gen, -1e4, 1e4) : 0.0);
    const Point2 a(offset + uniform(gen, -10, 10), offset + uniform(gen, -10, 10));
    const Point2 b(offset + uniform(gen, -10, 10), offset + uniform(gen, -10, 10));
    const Point2 mid((a.x() + b.x()) / 2, (a.y() + b.y()) / 2);
    const Point2 c(centerWithShift(a, b));
    const double dx(std::fabs(a.x() - b.x())), dy(std::fabs(a.y() - b.y()));
    ASSERT_LE(std::fabs(c.x() - mid.x()), std::min(dx / 100, 0.001));
    ASSERT_LE(std::fabs(c.y() - mid.y()), std::min(dy / 100, 0.001));
    // The coordinate improved last ends within one ulp of the line, or stays
    // where it was when its range does not bracket the line.
    if (dy > dx)
      ASSERT_TRUE(c.y() == mid.y() || bracketsTheLine(Point2(a.y(), a.x()), Point2(b.y(), b.x()), c.y(), c.x())) << i;
    else
      ASSERT_TRUE(c.x() == mid.x() || bracketsTheLine(a, b, c.x(), c.y())) << i;
    const int cmp(compareLineDistance(a, b, c, mid));
    numCloser += cmp < 0;
    numFarther += cmp > 0;
  }
  // A bisection ends on either side of the crossing, so now and then one ulp
  // farther than a midpoint that happened to lie close; mostly it gains.
  EXPECT_GT(numCloser, 5 * numFarther);
}

TEST(CenterWithShift, HugeCoordinatesDoNotOverflow) {
  const Point2 c(centerWithShift(Point2(DBL_MAX, DBL_MAX), Point2(DBL_MAX / 2, DBL_MAX / 2)));
  EXPECT_TRUE(std::isfinite(c.x()) && std::isfinite(c.y()));
  EXPECT_EQ(0.75 * DBL_MAX, c.x());
}

TEST(Angles, UnitVectorsGiveDegreesAndCosines) {
  EXPECT_NEAR(90.0, getAngleDegree(Vector2(1, 0), Vector2(0, 1)), 1e-9);
  EXPECT_NEAR(180.0, getAngleDegree(Vector2(1, 0), Vector2(-1, 0)), 1e-9);
  EXPECT_EQ(0.0, getAngleDegree(Vector2(1, 0), Vector2(1, 0)));
  EXPECT_NEAR(0.5, getCosPhi(Vector2(1, 0), Vector2(0.5, std::sqrt(0.75))), 1e-15);
  // A dot product just beyond 1 by rounding is limited, not NaN.
  const Vector2 v(0.6, 0.8);
  EXPECT_FALSE(std::isnan(getAngleDegree(v, v * 1.0000000000000002)));
}

TEST(Angles, VectorsThatAreNotUnitBreakTheAssertion) {
  testing::internal::CaptureStdout();
  EXPECT_THROW(getAngleDegree(Vector2(2, 0), Vector2(0, 1)), VaskException);
  EXPECT_THROW(getCosPhi(Vector2(1, 0), Vector2(0, 0)), VaskException);
  EXPECT_THROW(getAngleDegree(Vector2(NaN, 0), Vector2(0, 1)), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(std::string::npos, out.find("getAngleDegree has been called for vectors with length!=1.0:"));
  EXPECT_NE(std::string::npos, out.find("  Lengths are: len0=2   len1=1"));
  EXPECT_NE(std::string::npos, out.find("getCosPhi has been called for vectors with length!=1.0:"));
}
