// Metric operations of Triangle2: area, angles, edge lengths and the
// circumcentre, checked against exact rational arithmetic on adversarial
// triangles (far from the origin, flat, right-angled).
#include "Point2.h"
#include "Predicates2.h"
#include "Triangle2.h"
#include "VaskException.h"
#include "helpers/ExactOracle.h"
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <string>

using namespace KIRO_VASK2D;
using vask_test::exactCircumcentre;
using vask_test::exactDoubleArea;

namespace {

/** Exposes the protected steps of the circumcentre computation. */
class TriangleProbe : public Triangle2 {
public:
  using Triangle2::computeArea;
  using Triangle2::getCC_strategy1;
  using Triangle2::getCC_strategy2;
  using Triangle2::getCommonOffset;
  using Triangle2::isAccurateCC;
  using Triangle2::Triangle2;
};

/** Three corners and a triangle over them; not copyable, the triangle points into it. */
struct Tri {
  Point2 p[3];
  TriangleProbe t;
  Tri(const Point2& a, const Point2& b, const Point2& c) : p{a, b, c}, t(&p[0], &p[1], &p[2]) {}
  Tri(const Tri&) = delete;
  Tri& operator=(const Tri&) = delete;
};

double ulp(double v) {
  return std::nextafter(std::fabs(v), 1e308) - std::fabs(v);
}

double distance(const Point2& a, const Point2& b) {
  return std::sqrt(sqDistance2D(a, b));
}

double minAngleDegree(const Tri& tri) {
  double minAngle(180.0);
  for (int i = 0; i < 3; ++i)
    minAngle = std::min(minAngle, tri.t.getInteriorAngle2D(i));
  return minAngle;
}

/** A random counter-clockwise triangle: corners uniform in a square of the given size around a centre. */
void randomCorners(std::mt19937_64& gen, double cx, double cy, double size, Point2 out[3]) {
  std::uniform_real_distribution<double> dist(-size / 2, size / 2);
  while (true) {
    for (int i = 0; i < 3; ++i)
      out[i] = Point2(cx + dist(gen), cy + dist(gen));
    const Orientation2 ori(getOrientation2(&out[0], &out[1], &out[2]));
    if (ori == ORIENTATION2_COLLINEAR) continue;
    if (ori == ORIENTATION2_CW) std::swap(out[1], out[2]);
    return;
  }
}

std::string streamed(const Triangle2& t) {
  std::ostringstream oss;
  oss << t;
  return oss.str();
}

} // namespace

// ---------------------------------------------------------------- basic metrics

TEST(TriangleGeometry, UnitRightTriangleAtOrigin) {
  Tri tri(Point2(0, 0), Point2(1, 0), Point2(0, 1));
  EXPECT_DOUBLE_EQ(tri.t.getArea2D(), 0.5);
  const std::pair<Point2, bool> dual(tri.t.getDual());
  EXPECT_EQ(dual.first, Point2(0.5, 0.5));
  EXPECT_TRUE(dual.second);
  EXPECT_EQ(tri.t.getMaxIndex(), 0);
  EXPECT_EQ(tri.t.getMinIndex(), 1); // edges 1 and 2 tie; the lower index wins
  EXPECT_EQ(tri.t.getSquaredEdgeLength2D(0), 2.0);
  EXPECT_EQ(tri.t.getSquaredEdgeLength(1), 1.0);
  EXPECT_EQ(tri.t.getMaxSqEdgeLen2D(), 2.0);
  EXPECT_NEAR(tri.t.getInteriorAngle2D(0), 90.0, 1e-7);
  EXPECT_NEAR(tri.t.getInteriorAngle2D(1), 45.0, 1e-7);
  EXPECT_NEAR(tri.t.getInteriorAngle2D(2), 45.0, 1e-7);
  const Point2 bary(tri.t.getBarycenter());
  EXPECT_DOUBLE_EQ(bary.x(), 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(bary.y(), 1.0 / 3.0);
}

TEST(TriangleGeometry, LongestAndShortestEdgeTiesGoToLowestIndex) {
  Tri tri(Point2(0, 0), Point2(2, 0), Point2(1, 5)); // edges 0 and 1 both have squared length 26
  EXPECT_EQ(tri.t.getMaxIndex(), 0);
  EXPECT_EQ(tri.t.getMinIndex(), 2);
  Tri equilateralIsh(Point2(0, 0), Point2(4, 0), Point2(2, 3)); // 13, 13, 16
  EXPECT_EQ(equilateralIsh.t.getMaxIndex(), 2);
  EXPECT_EQ(equilateralIsh.t.getMinIndex(), 0);
}

TEST(TriangleGeometry, AnglesSumTo180AndEquilateralHas60) {
  Tri equilateral(Point2(0, 0), Point2(2, 0), Point2(1, std::sqrt(3.0)));
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(equilateral.t.getInteriorAngle2D(i), 60.0, 1e-6);
  std::mt19937_64 gen(11);
  for (int n = 0; n < 500; ++n) {
    Point2 c[3];
    randomCorners(gen, 0, 0, 10, c);
    Tri tri(c[0], c[1], c[2]);
    const double sum(tri.t.getInteriorAngle2D(0) + tri.t.getInteriorAngle2D(1) + tri.t.getInteriorAngle2D(2));
    EXPECT_NEAR(sum, 180.0, 1e-6);
  }
}

TEST(TriangleGeometry, AngleAtDuplicateCornersRaises) {
  Tri tri(Point2(1, 1), Point2(1, 1), Point2(3, 0));
  testing::internal::CaptureStdout();
  EXPECT_THROW(tri.t.getInteriorAngle2D(0), VaskException);
  testing::internal::GetCapturedStdout();
}

TEST(TriangleGeometry, AreaMatchesExactAreaIncludingFarFromOrigin) {
  std::mt19937_64 gen(5);
  for (const double centre : {0.0, 1e6, 1e9, -3e9}) {
    for (int n = 0; n < 300; ++n) {
      Point2 c[3];
      randomCorners(gen, centre, -centre, 10, c);
      Tri tri(c[0], c[1], c[2]);
      if (minAngleDegree(tri) < 2.0) continue; // Heron loses digits on needles
      const double exact(exactDoubleArea(c[0], c[1], c[2]) / 2.0);
      // Corner differences at 3e9 carry ~4.8e-7 absolute error each.
      const double tol(1e-12 * exact + (centre == 0.0 ? 0.0 : 1e-5));
      EXPECT_NEAR(tri.t.getArea2D(), exact, tol) << centre;
    }
  }
}

TEST(TriangleGeometry, DegenerateAreaIsZeroAndOnlyLargeNegativeValuesWarn) {
  testing::internal::CaptureStdout();
  Tri collinear(Point2(0, 0), Point2(1, 0), Point2(3, 0));
  EXPECT_EQ(collinear.t.getArea2D(), 0.0);
  // Side lengths with rounded roots leave Heron's rule a residue of about
  // sqrt(eps) * length^2 on a collinear triangle, silently.
  Tri diagonal(Point2(0, 0), Point2(1, 1), Point2(3, 3));
  EXPECT_LT(diagonal.t.getArea2D(), 1e-6);
  EXPECT_EQ(collinear.t.computeArea(1, 2, 3.0000000001), 0.0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

  testing::internal::CaptureStdout();
  EXPECT_EQ(collinear.t.computeArea(1, 1, 10), 0.0);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Numeric issue in Triangle::getArea()"), std::string::npos) << out;
}

TEST(TriangleGeometry, NaNCornerMakesAreaRaise) {
  Tri tri(Point2(0, 0), Point2(std::numeric_limits<double>::quiet_NaN(), 0), Point2(0, 1));
  testing::internal::CaptureStdout();
  EXPECT_THROW(tri.t.getArea2D(), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("invalid value, no area for this triangle"), std::string::npos) << out;
  EXPECT_NE(out.find("len0="), std::string::npos) << out;
}

// ---------------------------------------------------------------- hasOnEdge

TEST(TriangleGeometry, HasOnEdgeIsExactAndClosed) {
  Tri tri(Point2(0, 0), Point2(4, 0), Point2(0, 4));
  // Edge 2 runs from corner 0 to corner 1.
  EXPECT_TRUE(tri.t.hasOnEdge(2, Point2(0, 0)));
  EXPECT_TRUE(tri.t.hasOnEdge(2, Point2(4, 0)));
  EXPECT_TRUE(tri.t.hasOnEdge(2, Point2(2, 0)));
  EXPECT_FALSE(tri.t.hasOnEdge(2, Point2(5, 0)));
  EXPECT_FALSE(tri.t.hasOnEdge(2, Point2(-1e-300, 0)));
  EXPECT_FALSE(tri.t.hasOnEdge(2, Point2(2, 1e-300)));
  EXPECT_FALSE(tri.t.hasOnEdge(2, Point2(2, -1e-300)));
  EXPECT_FALSE(tri.t.hasOnEdge(1, Point2(2, 0)));
  // Edge 0, the diagonal from (4,0) to (0,4).
  EXPECT_TRUE(tri.t.hasOnEdge(0, Point2(1, 3)));
  EXPECT_TRUE(tri.t.hasOnEdge(0, Point2(0.25, 3.75)));
  EXPECT_FALSE(tri.t.hasOnEdge(0, Point2(5, -1)));
  EXPECT_FALSE(tri.t.hasOnEdge(0, Point2(std::nextafter(1.0, 2.0), 3)));

  const double o(1e9);
  Tri far(Point2(o, o), Point2(o + 4, o + 2), Point2(o, o + 8));
  EXPECT_TRUE(far.t.hasOnEdge(2, Point2(o + 2, o + 1)));
  EXPECT_FALSE(far.t.hasOnEdge(2, Point2(o + 2, std::nextafter(o + 1, 0.0))));
  EXPECT_FALSE(far.t.hasOnEdge(2, Point2(o + 6, o + 3)));
}

// ---------------------------------------------------------------- circumcentre

TEST(TriangleGeometry, CommonOffsetHasFloatPrecisionAtAnyMagnitude) {
  Tri nearBillion(Point2(1e9 + 0.3, 1e9 + 0.7), Point2(1e9 + 12.1, 1e9 - 3.3), Point2(1e9 - 7.9, 1e9 + 5.5));
  double offX(0), offY(0);
  nearBillion.t.getCommonOffset(offX, offY);
  EXPECT_EQ(offX, static_cast<double>(static_cast<float>(offX)));
  EXPECT_EQ(offY, static_cast<double>(static_cast<float>(offY)));
  EXPECT_NEAR(offX, 1e9, 64.0);
  EXPECT_NEAR(offY, 1e9, 64.0);

  // Beyond the range of float the offset keeps the magnitude and a 24-bit mantissa.
  for (const double scale : {1e300, -1e300, 1e-300}) {
    Tri tri(Point2(scale, scale), Point2(1.5 * scale, 1.25 * scale), Point2(1.2 * scale, 1.7 * scale));
    tri.t.getCommonOffset(offX, offY);
    int e(0);
    const double mantissaBits(std::ldexp(std::frexp(offX, &e), 24));
    EXPECT_EQ(mantissaBits, std::nearbyint(mantissaBits)) << scale;
    EXPECT_NEAR(offX / scale, 1.25, 1e-6) << scale;
    EXPECT_TRUE(std::isfinite(offY));
  }
}

TEST(TriangleGeometry, RightTriangleHasCentreOnHypotenuse) {
  Tri axes(Point2(0, 0), Point2(4, 0), Point2(0, 3));
  std::pair<Point2, bool> dual(axes.t.getDual());
  EXPECT_EQ(dual.first, Point2(2, 1.5));
  EXPECT_TRUE(dual.second);

  Tri rotated(Point2(0, 0), Point2(3, 4), Point2(-4, 3));
  dual = rotated.t.getDual();
  EXPECT_EQ(dual.first, Point2(-0.5, 3.5));
  EXPECT_TRUE(dual.second);

  const double o(1e9);
  Tri far(Point2(o, o), Point2(o + 3, o + 4), Point2(o - 4, o + 3));
  dual = far.t.getDual();
  EXPECT_EQ(dual.first, Point2(o - 0.5, o + 3.5));
  EXPECT_TRUE(dual.second);
}

TEST(TriangleGeometry, CollinearTriangleGivesFlaggedPoint) {
  Tri tri(Point2(0, 0), Point2(1, 0), Point2(2, 0));
  Point2 out(7, 7);
  EXPECT_FALSE(tri.t.getCC_strategy1(0.0, 0.0, out));
  EXPECT_EQ(out, Point2(7, 7));
  const std::pair<Point2, bool> dual(tri.t.getDual());
  EXPECT_FALSE(dual.second);
  EXPECT_TRUE(std::isfinite(dual.first.x()) && std::isfinite(dual.first.y()));

  Tri same(Point2(1, 1), Point2(1, 1), Point2(1, 1));
  EXPECT_FALSE(same.t.getDual().second);
}

TEST(TriangleGeometry, ExtremelyFlatTriangleEndsAtBisectionRange) {
  // Circumradius 0.25 / (2 * 1e-14) = 1.25e13, beyond the search range of 1e13.
  Tri tri(Point2(0, 0), Point2(1, 0), Point2(0.5, 1e-14));
  const std::pair<Point2, bool> dual(tri.t.getDual());
  EXPECT_FALSE(dual.second);
  EXPECT_NEAR(dual.first.x(), 0.5, 1e-6);
  EXPECT_NEAR(dual.first.y(), -1e13, 1e4);
}

TEST(TriangleGeometry, AccuracyTestRejectsWrongSideAndSpread) {
  Tri tri(Point2(0, 0), Point2(4, 0), Point2(1, 3)); // acute, centre (2, 1)
  const int maxIdx(tri.t.getMaxIndex());
  EXPECT_TRUE(tri.t.isAccurateCC(maxIdx, Point2(2, 1)));
  EXPECT_FALSE(tri.t.isAccurateCC(maxIdx, Point2(2, 1 + 1e-5)));
  EXPECT_TRUE(tri.t.isAccurateCC(maxIdx, Point2(2, 1 + 1e-12)));
  // Obtuse at corner 2: the centre (2, -2) lies beyond the longest edge, which is allowed.
  Tri obtuse(Point2(0, 0), Point2(4, 0), Point2(2, 1));
  EXPECT_EQ(obtuse.t.getMaxIndex(), 2);
  EXPECT_TRUE(obtuse.t.isAccurateCC(2, Point2(2, -1.5)));
  // A point beyond an edge that meets at the largest corner is refused.
  Tri isosceles(Point2(0, 0), Point2(4, 0), Point2(2, 3));
  EXPECT_FALSE(isosceles.t.isAccurateCC(2, Point2(2, 3) + Vector2(-3, 2) * 10.0));
  const double nan(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(tri.t.isAccurateCC(maxIdx, Point2(nan, nan)));
}

TEST(TriangleGeometry, CircumcentreMatchesExactOnRandomTriangles) {
  std::mt19937_64 gen(2024);
  int numChecked(0), numAccurate(0);
  for (const double centre : {0.0, 1.0, 1e4, 1e9, -7e11}) {
    for (int n = 0; n < 400; ++n) {
      Point2 c[3];
      randomCorners(gen, centre, centre / 3, 2.0, c);
      Tri tri(c[0], c[1], c[2]);
      if (minAngleDegree(tri) < 1.0) continue;
      Point2 exact;
      ASSERT_TRUE(exactCircumcentre(c[0], c[1], c[2], exact));
      const std::pair<Point2, bool> dual(tri.t.getDual());
      const double radius(distance(exact, c[0]));
      // Rounding the result to the magnitude of its coordinates costs half
      // an ulp each; the arithmetic on offset corners of size ~2 costs a few
      // ulps of the radius, amplified by 1/sin of the smallest angle.
      const double tol(4 * (ulp(exact.x()) + ulp(exact.y())) +
                       1e-13 * radius / std::sin(minAngleDegree(tri) * M_PI / 180));
      EXPECT_LE(distance(dual.first, exact), tol) << "centre " << centre << " n " << n;
      // Up to 1e9 the grid of doubles (1.2e-7) is fine enough for the limit
      // of 1e-6; at 7e11 (grid 1.2e-4) only a lucky point meets it.
      if (std::fabs(centre) > 1e9) continue;
      ++numChecked;
      if (dual.second) ++numAccurate;
    }
  }
  EXPECT_EQ(numAccurate, numChecked);
  EXPECT_GT(numChecked, 1200);
}

TEST(TriangleGeometry, BisectionMatchesExactForAcuteAndObtuseTriangles) {
  std::mt19937_64 gen(99);
  int numAcute(0), numObtuse(0);
  for (int n = 0; n < 600; ++n) {
    Point2 c[3];
    randomCorners(gen, n % 2 == 0 ? 0.0 : 1e9, 0.0, 2.0, c);
    Tri tri(c[0], c[1], c[2]);
    if (minAngleDegree(tri) < 1.0) continue;
    const int maxIdx(tri.t.getMaxIndex());
    (tri.t.getInteriorAngle2D(maxIdx) < 90.0 ? numAcute : numObtuse)++;
    double offX(0), offY(0);
    tri.t.getCommonOffset(offX, offY);
    Point2 cc;
    tri.t.getCC_strategy2(maxIdx, offX, offY, cc);
    Point2 exact;
    ASSERT_TRUE(exactCircumcentre(c[0], c[1], c[2], exact));
    const double radius(distance(exact, c[0]));
    const double tol(8 * (ulp(exact.x()) + ulp(exact.y())) +
                     1e-12 * radius / std::sin(minAngleDegree(tri) * M_PI / 180));
    EXPECT_LE(distance(cc, exact), tol) << n;
    EXPECT_TRUE(tri.t.isAccurateCC(maxIdx, cc)) << n;
  }
  EXPECT_GT(numAcute, 50);
  EXPECT_GT(numObtuse, 50);
}

TEST(TriangleGeometry, FlatTrianglesGiveCentresCloseToExactOrAFalseFlag) {
  // Needles at growing flatness: a true flag must be backed by the exact centre.
  for (const double offset : {0.0, 1e9}) {
    for (double h = 1e-2; h > 1e-13; h /= 10) {
      Tri tri(Point2(offset, offset), Point2(offset + 1, offset), Point2(offset + 0.3, offset + h));
      Point2 exact;
      const bool bHasCentre(exactCircumcentre(tri.p[0], tri.p[1], tri.p[2], exact));
      const std::pair<Point2, bool> dual(tri.t.getDual());
      if (!dual.second) continue;
      ASSERT_TRUE(bHasCentre) << "a collinear triangle must not be flagged accurate";
      const double spreadExact(std::fabs(distance(dual.first, tri.p[0]) - distance(dual.first, tri.p[2])));
      EXPECT_LT(spreadExact, 1e-6) << h;
      EXPECT_LE(distance(dual.first, exact), 1e-6 * std::max(1.0, distance(exact, tri.p[0]))) << h;
    }
  }
}

// ---------------------------------------------------------------- stream output

TEST(TriangleGeometry, StreamOutputNamesOrientation) {
  Tri ccw(Point2(0, 0), Point2(1, 0), Point2(0, 1));
  const std::string s(streamed(ccw.t));
  EXPECT_EQ(s.rfind("Triangle(", 0), 0u) << s;
  EXPECT_NE(s.find("): area2D=0.5"), std::string::npos) << s;
  EXPECT_NE(s.find("CCW"), std::string::npos) << s;
  EXPECT_NE(s.find("\t oppTriangle: "), std::string::npos) << s;
  Tri cw(Point2(0, 0), Point2(0, 1), Point2(1, 0));
  EXPECT_NE(streamed(cw.t).find("ATTENTION, CLOCKWISE CORNERS!"), std::string::npos);
  Tri col(Point2(0, 0), Point2(1, 1), Point2(2, 2));
  EXPECT_NE(streamed(col.t).find("ATTENTION, COLLINEAR CORNERS"), std::string::npos);
  const Triangle2 dead;
  EXPECT_EQ(streamed(dead).rfind("Triangle(", 0), 0u);
}
