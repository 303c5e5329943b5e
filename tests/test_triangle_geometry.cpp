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

TEST(TriangleGeometry, MetricsOfSmallTrianglesWithTiesGoingToTheLowestIndex) {
  // Each row: corners, area, longest and shortest edge index, the angles and
  // the circumcentre (right triangles have it on the hypotenuse).
  struct Case {
    Point2 a, b, c;
    double area;
    int maxIndex, minIndex;
    double angle0, angle1, angle2;
    Point2 centre;
  };
  const double o(1e9), r3(std::sqrt(3.0));
  const Case aCase[] = {
      {Point2(0, 0), Point2(1, 0), Point2(0, 1), 0.5, 0, 1, 90, 45, 45, Point2(0.5, 0.5)}, // edges 1 and 2 tie
      {Point2(0, 0), Point2(2, 0), Point2(1, 5), 5, 0, 2, 78.69006752597979, 78.69006752597979, 22.619864948040426,
       Point2(1, 2.4)}, // edges 0 and 1 tie
      {Point2(0, 0), Point2(4, 0), Point2(2, 3), 6, 2, 0, 56.309932474020215, 56.309932474020215, 67.38013505195957,
       Point2(2, 5.0 / 6.0)},
      {Point2(0, 0), Point2(2, 0), Point2(1, r3), r3, 0, 0, 60, 60, 60, Point2(1, 1 / r3)},
      {Point2(0, 0), Point2(4, 0), Point2(0, 3), 6, 0, 1, 90, 36.86989764584402, 53.13010235415598, Point2(2, 1.5)},
      {Point2(0, 0), Point2(3, 4), Point2(-4, 3), 12.5, 0, 1, 90, 45, 45, Point2(-0.5, 3.5)},
      {Point2(o, o), Point2(o + 3, o + 4), Point2(o - 4, o + 3), 12.5, 0, 1, 90, 45, 45, Point2(o - 0.5, o + 3.5)},
  };
  for (const Case& c : aCase) {
    Tri tri(c.a, c.b, c.c);
    SCOPED_TRACE(streamed(tri.t));
    EXPECT_NEAR(tri.t.getArea2D(), c.area, 1e-12 * c.area * (c.a.x() == o ? 1e6 : 1));
    if (c.area != r3) { // the equilateral one has three ties of rounded lengths
      EXPECT_EQ(tri.t.getMaxIndex(), c.maxIndex);
      EXPECT_EQ(tri.t.getMinIndex(), c.minIndex);
    }
    const double aAngle[3] = {c.angle0, c.angle1, c.angle2};
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(tri.t.getInteriorAngle2D(i), aAngle[i], 1e-6) << i;
    const std::pair<Point2, bool> dual(tri.t.getDual());
    EXPECT_NEAR(dual.first.x(), c.centre.x(), 1e-12 * std::fabs(c.centre.x()) + 1e-15);
    EXPECT_NEAR(dual.first.y(), c.centre.y(), 1e-12 * std::fabs(c.centre.y()) + 1e-15);
    EXPECT_TRUE(dual.second);
  }
  Tri unit(Point2(0, 0), Point2(1, 0), Point2(0, 1));
  EXPECT_EQ(unit.t.getSquaredEdgeLength2D(0), 2.0);
  EXPECT_EQ(unit.t.getSquaredEdgeLength(1), 1.0);
  EXPECT_EQ(unit.t.getMaxSqEdgeLen2D(), 2.0);
  EXPECT_DOUBLE_EQ(unit.t.getBarycenter().x(), 1.0 / 3.0);
}

TEST(TriangleGeometry, AreaMatchesExactAndAnglesSumTo180IncludingFarFromOrigin) {
  std::mt19937_64 gen(5);
  for (const double centre : {0.0, 1e6, 1e9, -3e9}) {
    for (int n = 0; n < 300; ++n) {
      Point2 c[3];
      randomCorners(gen, centre, -centre, 10, c);
      Tri tri(c[0], c[1], c[2]);
      if (centre == 0.0)
        EXPECT_NEAR(tri.t.getInteriorAngle2D(0) + tri.t.getInteriorAngle2D(1) + tri.t.getInteriorAngle2D(2), 180.0, 1e-6);
      if (minAngleDegree(tri) < 2.0) continue; // Heron loses digits on needles
      const double exact(exactDoubleArea(c[0], c[1], c[2]) / 2.0);
      // Corner differences at 3e9 carry ~4.8e-7 absolute error each.
      const double tol(1e-12 * exact + (centre == 0.0 ? 0.0 : 1e-5));
      EXPECT_NEAR(tri.t.getArea2D(), exact, tol) << centre;
    }
  }
}

TEST(TriangleGeometry, DegenerateAndInvalidTriangles) {
  testing::internal::CaptureStdout();
  Tri collinear(Point2(0, 0), Point2(1, 0), Point2(3, 0));
  EXPECT_EQ(collinear.t.getArea2D(), 0.0);
  // Side lengths with rounded roots leave Heron's rule a residue of about
  // sqrt(eps) * length^2 on a collinear triangle, silently.
  Tri diagonal(Point2(0, 0), Point2(1, 1), Point2(3, 3));
  EXPECT_LT(diagonal.t.getArea2D(), 1e-6);
  EXPECT_EQ(collinear.t.computeArea(1, 2, 3.0000000001), 0.0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  // Only large negative values warn.
  testing::internal::CaptureStdout();
  EXPECT_EQ(collinear.t.computeArea(1, 1, 10), 0.0);
  std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Numeric issue in Triangle::getArea()"), std::string::npos) << out;
  // A NaN corner makes the area raise; an angle at duplicate corners as well.
  Tri nan(Point2(0, 0), Point2(std::numeric_limits<double>::quiet_NaN(), 0), Point2(0, 1));
  Tri duplicate(Point2(1, 1), Point2(1, 1), Point2(3, 0));
  testing::internal::CaptureStdout();
  EXPECT_THROW(nan.t.getArea2D(), VaskException);
  EXPECT_THROW(duplicate.t.getInteriorAngle2D(0), VaskException);
  out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("invalid value, no area for this triangle"), std::string::npos) << out;
  EXPECT_NE(out.find("len0="), std::string::npos) << out;
}

TEST(TriangleGeometry, HasOnEdgeIsExactAndClosed) {
  const double o(1e9);
  Tri tri(Point2(0, 0), Point2(4, 0), Point2(0, 4));
  Tri far(Point2(o, o), Point2(o + 4, o + 2), Point2(o, o + 8));
  struct Case {
    const Tri* pTri;
    int edge;
    Point2 p;
    bool bOn;
  };
  // Edge 2 runs from corner 0 to corner 1, edge 0 is the diagonal from (4,0) to (0,4).
  const Case aCase[] = {
      {&tri, 2, Point2(0, 0), true},          {&tri, 2, Point2(4, 0), true},
      {&tri, 2, Point2(2, 0), true},          {&tri, 2, Point2(5, 0), false},
      {&tri, 2, Point2(-1e-300, 0), false},   {&tri, 2, Point2(2, 1e-300), false},
      {&tri, 2, Point2(2, -1e-300), false},   {&tri, 1, Point2(2, 0), false},
      {&tri, 0, Point2(1, 3), true},          {&tri, 0, Point2(0.25, 3.75), true},
      {&tri, 0, Point2(5, -1), false},        {&tri, 0, Point2(std::nextafter(1.0, 2.0), 3), false},
      {&far, 2, Point2(o + 2, o + 1), true},  {&far, 2, Point2(o + 2, std::nextafter(o + 1, 0.0)), false},
      {&far, 2, Point2(o + 6, o + 3), false},
  };
  for (const Case& c : aCase) EXPECT_EQ(c.pTri->t.hasOnEdge(c.edge, c.p), c.bOn) << c.edge << " " << c.p;
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

TEST(TriangleGeometry, CollinearAndTooFlatTrianglesGiveAFlaggedPoint) {
  Tri tri(Point2(0, 0), Point2(1, 0), Point2(2, 0));
  Point2 out(7, 7);
  EXPECT_FALSE(tri.t.getCC_strategy1(0.0, 0.0, out));
  EXPECT_EQ(out, Point2(7, 7));
  const std::pair<Point2, bool> dual(tri.t.getDual());
  EXPECT_FALSE(dual.second);
  EXPECT_TRUE(std::isfinite(dual.first.x()) && std::isfinite(dual.first.y()));
  Tri same(Point2(1, 1), Point2(1, 1), Point2(1, 1));
  EXPECT_FALSE(same.t.getDual().second);
  // Circumradius 0.25 / (2 * 1e-14) = 1.25e13, beyond the search range of 1e13.
  Tri flat(Point2(0, 0), Point2(1, 0), Point2(0.5, 1e-14));
  const std::pair<Point2, bool> flatDual(flat.t.getDual());
  EXPECT_FALSE(flatDual.second);
  EXPECT_NEAR(flatDual.first.x(), 0.5, 1e-6);
  EXPECT_NEAR(flatDual.first.y(), -1e13, 1e4);
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
  const std::string text(streamed(ccw.t));
  EXPECT_EQ(text.rfind("Triangle(", 0), 0u) << text;
  for (const char* part : {"): area2D=0.5", "CCW", "\t oppTriangle: "}) EXPECT_NE(text.find(part), std::string::npos) << part;
  Tri cw(Point2(0, 0), Point2(0, 1), Point2(1, 0)), col(Point2(0, 0), Point2(1, 1), Point2(2, 2));
  EXPECT_NE(streamed(cw.t).find("ATTENTION, CLOCKWISE CORNERS!"), std::string::npos);
  EXPECT_NE(streamed(col.t).find("ATTENTION, COLLINEAR CORNERS"), std::string::npos);
  EXPECT_EQ(streamed(Triangle2()).rfind("Triangle(", 0), 0u);
}
