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
#include <functional>
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

// ---------------------------------------------------------------------------
// Filtered intersection of segments

TEST(SegmentIntersection, SmallCasesGiveTheCrossingOrTheRightEndPoint) {
  struct Case {
    const char* name;
    Point2 p0, p1, p2, p3, expected;
  };
  const Point2 a(0.1, 0.7), b(3.3, -1.9), c(-2.2, 5.5);
  const Case aCase[] = {
      {"diagonals of a square", Point2(0, 0), Point2(2, 2), Point2(0, 2), Point2(2, 0), Point2(1, 1)},
      {"shared end point", a, b, a, c, a},
      {"shared end point", a, b, c, a, a},
      {"shared end point", b, a, a, c, a},
      {"shared end point", b, a, c, a, a},
      // The lines cross at x = 1.01005 on y = 0, beyond p1 = (1, 0): the
      // nearest of the four end points stands in.
      {"lines meeting beyond a segment", Point2(0, 0), Point2(1, 0), Point2(-1, 0.01), Point2(3, -0.0099), Point2(1, 0)},
      {"the same, exchanged and reversed", Point2(3, -0.0099), Point2(-1, 0.01), Point2(1, 0), Point2(0, 0), Point2(1, 0)},
  };
  for (const Case& c : aCase) {
    double x(0), y(0);
    getIntersectionCoordsNoRounding(c.p0, c.p1, c.p2, c.p3, x, y);
    EXPECT_TRUE(c.expected == Point2(x, y)) << c.name << ": " << x << " " << y;
  }
  // The point form keeps the custom index of the output point.
  Point2 out(7, 7);
  out.setCustomIndex(5);
  getIntersectionCoordsNoRounding(Point2(0, 0), Point2(2, 2), Point2(0, 2), Point2(2, 0), out);
  EXPECT_TRUE(Point2(1, 1) == out);
  EXPECT_EQ(5, out.getCustomIndex());
  // Nearly parallel long segments: the rational stage's result, the truncated exact crossing.
  const Point2 p0(-1e6, -1.0), p1(1e6, 1.0), p2(-1e6, 1.0 + 1e-9), p3(1e6, -1.0 + 3e-9);
  double ex(0), ey(0), x(0), y(0);
  ASSERT_TRUE(exactLineIntersection(p0, p1, p2, p3, ex, ey));
  getIntersectionCoordsNoRounding(p0, p1, p2, p3, x, y);
  EXPECT_EQ(ex, x);
  EXPECT_EQ(ey, y);
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

TEST(SegmentIntersection, ParallelAndNonFiniteInputThrowsAndDoesNotPoisonLaterCalls) {
  // Each row: a call that must throw, and its warning (empty: any). Both
  // forms must answer exactly afterwards: no mutex stays locked, no
  // rational stays poisoned (a NaN must not reach GMP, which would abort).
  KiroTest kiroTest;
  const Point2 a(0, 0), b(2, 2), c(0, 2), d(2, 0), e(1, 1), f(3, 3), bad(NaN, 0), inf(1, INF);
  double x(0), y(0);
  const std::pair<std::function<void()>, const char*> aCase[] = {
      {[&] { kiroTest.getIntersectionCoords_gmp_MT(&a, &b, &e, &f, x, y); },
       "KiroTest::getIntersectionCoords(), WARNING: denom=0 -> parallel segments"},
      {[&] { kiroTest.getIntersectionCoords_gmp_MT(&a, &b, &c, &bad, x, y); }, ""},
      {[&] { kiroTest.getIntersectionCoords_gmp_MT(&inf, &b, &c, &a, x, y); }, ""},
      {[&] { getIntersectionCoordsNoRounding(a, b, e, f, x, y); },
       "getIntersectionCoordsNoRounding(), WARNING: has been called for collinear segments"},
      {[&] { getIntersectionCoordsNoRounding(a, Point2(INF, 2), c, d, x, y); }, ""},
      {[&] { getIntersectionCoordsNoRounding(a, Point2(2, NaN), c, d, x, y); }, ""},
  };
  for (const auto& row : aCase) {
    testing::internal::CaptureStdout();
    EXPECT_THROW(row.first(), VaskException) << row.second;
    const std::string out(testing::internal::GetCapturedStdout());
    EXPECT_NE(std::string::npos, out.find(row.second)) << out;
    kiroTest.getIntersectionCoords_gmp_MT(&a, &b, &c, &d, x, y);
    EXPECT_TRUE(x == 1.0 && y == 1.0);
    getIntersectionCoordsNoRounding(a, b, c, d, x, y);
    EXPECT_TRUE(x == 1.0 && y == 1.0);
  }
}

// ---------------------------------------------------------------------------
// Quick segment test

TEST(IntersectionState, ClassifiesCrossingTouchingDisjointAndCollinearExactly) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(10.0);
  const Point2 a(0, 0), b(2, 2), c(0, 2), d(2, 0), e(3, 3), f(4, 4), g(1, 1), h(5, 0), k(2, 3);
  // p lies one rounding below the line from a to q, r and s above it.
  const Point2 q(3, 1), p(1, 1.0 / 3.0), r(2, ulpShift(2.0 / 3.0, 1)), s(1, ulpShift(1.0 / 3.0, 2));
  struct Case {
    const char* name;
    const Point2 *p0, *p1, *p2, *p3;
    IntersectionState2 expected;
  };
  const Case aCase[] = {
      {"crossing", &a, &b, &c, &d, IST_REGULAR},
      {"touching end point", &a, &b, &g, &h, IST_REGULAR},
      {"apart", &a, &g, &c, &k, IST_NOIS},
      {"same side", &a, &b, &d, &h, IST_NOIS},
      {"line crossed beyond the segment", &a, &h, &c, &k, IST_NOIS},
      {"overlap", &a, &b, &g, &e, IST_COLLINEAR},
      {"containment", &a, &e, &g, &b, IST_COLLINEAR},
      {"touching end to end", &a, &b, &b, &e, IST_COLLINEAR},
      {"collinear and apart", &a, &g, &e, &f, IST_NOIS},
      {"nearly collinear, crossing", &a, &q, &p, &r, IST_REGULAR},
      {"nearly collinear, same side", &a, &q, &r, &s, IST_NOIS},
  };
  for (const Case& c : aCase) EXPECT_EQ(c.expected, kiroTest.getIntersectionState(c.p0, c.p1, c.p2, c.p3)) << c.name;
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
  for (const Point2& p : {a, b, Point2(2, 0), Point2(2, 1)}) EXPECT_TRUE(approxHasOn(a, b, p)) << p; // no collinearity test
  for (const Point2& p : {Point2(4.5, 0), Point2(-1e-9, 0), Point2(NaN, 0)}) EXPECT_FALSE(approxHasOn(a, b, p)) << p;
}

TEST(FootPoint, LiesOnTheLinePerpendicularAndDegenerateLinesWarn) {
  const Point2 p0(1, 1), p1(5, 3);
  const Point2 foot(getFootPoint(p0, p1, Point2(3, 2)));
  EXPECT_NEAR(3.0, foot.x(), 1e-15);
  EXPECT_NEAR(2.0, foot.y(), 1e-15);
  const Point2 q(0, 5);
  const Point2 f(getFootPoint(p0, p1, q));
  EXPECT_NEAR(0.0, (q - f) * (p1 - p0), 1e-12);
  EXPECT_NEAR(std::sqrt(sqDistance2D(q, f)), getPointLineDistance2D(p0, p1, q), 1e-15);
  EXPECT_NEAR(std::sqrt(20.0), getPointLineDistance2D(p0, p1, Point2(3, 2) + Vector2(-2, 4)), 1e-13);
  testing::internal::CaptureStdout();
  EXPECT_THROW(getFootPoint(Point2(1, 1), Point2(1, 1), Point2(0, 0)), VaskException);
  const Point2 far(getFootPoint(Point2(0, 0), Point2(1e-200, 0), Point2(1, 1)));
  const double dist(getPointLineDistance2D(Point2(1, 1), Point2(1, 1), Point2(4, 5)));
  const std::string out(testing::internal::GetCapturedStdout());
  for (const char* text : {"Condition [ p1!=p0 failed ]", "getFootPoint(), WARNING: p0==p1, invalid parameters",
                           "getPointLineDistance2D(..), WARNING: p0==p1"})
    EXPECT_NE(std::string::npos, out.find(text)) << text;
  EXPECT_TRUE(Point2(-999, -999) == far);
  EXPECT_EQ(5.0, dist); // measured to the point
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
  // On y = 1/3 rounded the line from (0,0) to (3,1) is crossed near x = 1.
  const Point2 a(0, 0), b(3, 1), p(1.001, 1.0 / 3.0);
  EXPECT_NEAR(1.0, getBetterX(a, b, p, 0.01), 1e-15);
  EXPECT_EQ(0.5, getBetterY(a, b, Point2(1.5, 0.4), 0.2));
  EXPECT_EQ(1.001, getBetterX(a, b, p, 1e-6)) << "range does not bracket the line";
  EXPECT_EQ(7.0, getBetterX(Point2(0, 0), Point2(0, 1), Point2(7, 0.5), 0.0));
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
  // Exact midpoints stay, vertical segments keep their x, huge coordinates do not overflow.
  EXPECT_TRUE(Point2(0.5, 0.5) == centerWithShift(Point2(0, 0), Point2(1, 1)));
  EXPECT_TRUE(Point2(0.3, 0.75) == centerWithShift(Point2(0.3, -1.0), Point2(0.3, 2.5)));
  EXPECT_EQ(0.75 * DBL_MAX, centerWithShift(Point2(DBL_MAX, DBL_MAX), Point2(DBL_MAX / 2, DBL_MAX / 2)).x());
}

TEST(Angles, UnitVectorsGiveDegreesAndOthersBreakTheAssertion) {
  EXPECT_NEAR(90.0, getAngleDegree(Vector2(1, 0), Vector2(0, 1)), 1e-9);
  EXPECT_NEAR(180.0, getAngleDegree(Vector2(1, 0), Vector2(-1, 0)), 1e-9);
  EXPECT_EQ(0.0, getAngleDegree(Vector2(1, 0), Vector2(1, 0)));
  EXPECT_NEAR(0.5, getCosPhi(Vector2(1, 0), Vector2(0.5, std::sqrt(0.75))), 1e-15);
  // A dot product just beyond 1 by rounding is limited, not NaN.
  const Vector2 v(0.6, 0.8);
  EXPECT_FALSE(std::isnan(getAngleDegree(v, v * 1.0000000000000002)));
  testing::internal::CaptureStdout();
  EXPECT_THROW(getAngleDegree(Vector2(2, 0), Vector2(0, 1)), VaskException);
  EXPECT_THROW(getCosPhi(Vector2(1, 0), Vector2(0, 0)), VaskException);
  EXPECT_THROW(getAngleDegree(Vector2(NaN, 0), Vector2(0, 1)), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  for (const char* text : {"getAngleDegree has been called for vectors with length!=1.0:", "  Lengths are: len0=2   len1=1",
                           "getCosPhi has been called for vectors with length!=1.0:"})
    EXPECT_NE(std::string::npos, out.find(text)) << text;
}
