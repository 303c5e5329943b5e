// Single-point insertion through the facade: the three states of a
// triangulation, degenerate positions (edges, vertices, hull lines, cocircular
// points), box growth, exactness on tiny differences and extreme magnitudes,
// and refusal of non-finite input.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include <algorithm>
#include <cfenv>
#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

using namespace KIRO_VASK2D;
using vask_test::validate;

namespace {

/** Inserts the points one by one. After every step (every checkEvery-th on
 * long sequences) the independent validator must pass; each insertion of
 * an equal point must return the first handle and change nothing; at the
 * end every handle holds its point and, with area, has its triangle. */
::testing::AssertionResult insertOneByOne(Vask_2D& dt, const std::vector<Point2>& vPoints, std::size_t checkEvery) {
  std::vector<Point2*> vHandles;
  for (std::size_t i = 0; i < vPoints.size(); ++i) {
    vHandles.push_back(dt.insert(vPoints[i]));
    if (i % checkEvery == 0 || i + 1 == vPoints.size()) {
      const unsigned numPoints(dt.numberOfPoints()), numTriangles(dt.numberOfTriangles());
      if (dt.insert(Point2(vPoints[i].x(), vPoints[i].y())) != vHandles.back() || dt.numberOfPoints() != numPoints ||
          dt.numberOfTriangles() != numTriangles)
        return ::testing::AssertionFailure() << "a repeated point changed the mesh after " << i + 1;
      const vask_test::Validation v(validate(dt));
      if (!v.ok) return ::testing::AssertionFailure() << "after " << i + 1 << ": " << v.firstError;
    }
  }
  for (std::size_t i = 0; i < vPoints.size(); ++i) {
    if (vHandles[i] == nullptr || !(*vHandles[i] == vPoints[i]))
      return ::testing::AssertionFailure() << "handle " << i << " does not hold its point";
    if (dt.hasArea() &&
        (vHandles[i]->getIncidentTriangle() == nullptr || !vHandles[i]->getIncidentTriangle()->hasVertex(vHandles[i])))
      return ::testing::AssertionFailure() << "handle " << i << " without its triangle";
  }
  return ::testing::AssertionSuccess();
}

std::vector<Point2> ulpGrid(double x0, double y0, int side) {
  std::vector<Point2> v;
  double x(x0);
  for (int i = 0; i < side; ++i, x = std::nextafter(x, 1e300)) {
    double y(y0);
    for (int j = 0; j < side; ++j, y = std::nextafter(y, 1e300))
      v.emplace_back(x, y);
  }
  return v;
}

/** Points on two or three lines of random slope, some moved by an ulp or two, shuffled. */
std::vector<Point2> fewLinesWithUlpNudges(unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> start(-20, 20), step(-1, 1);
  std::vector<Point2> vPoints;
  for (unsigned line = 0; line < 2 + seed % 2; ++line) {
    const double x0(start(gen)), y0(start(gen)), dx(step(gen) / 3), dy(step(gen) / 7);
    for (int i = 0; i < 400; ++i) {
      double x(x0 + i * dx), y(y0 + i * dy);
      if (gen() % 5 == 0) x = std::nextafter(x, gen() % 2 ? DBL_MAX : -DBL_MAX);
      if (gen() % 7 == 0) y = std::nextafter(std::nextafter(y, DBL_MAX), DBL_MAX);
      vPoints.emplace_back(x, y);
    }
  }
  std::shuffle(vPoints.begin(), vPoints.end(), gen);
  return vPoints;
}

} // namespace

TEST(Insertion, StatesGoFromEmptyThroughCollinearToFullDimensional) {
  Vask_2D dt;
  EXPECT_EQ(dt.numberOfPoints(), 0u);
  EXPECT_FALSE(dt.hasArea());
  EXPECT_FALSE(dt.is2D());
  std::vector<Triangle2*> vT(1, nullptr);
  dt.getTrianglePointers(vT);
  EXPECT_TRUE(vT.empty());
  EXPECT_TRUE(dt.checkValidity(true, "empty"));
  // Points on y = x / 3 wait without triangles: these multiples of 3 are
  // exactly collinear, and equal points share the first handle.
  ASSERT_TRUE(insertOneByOne(dt, {Point2(3, 1), Point2(3, 1), Point2(0, 0), Point2(6, 2)}, 1));
  for (int i = 0; i < 500; ++i)
    dt.insert(Point2(3.0 * i, 1.0 * i));
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_EQ(dt.numberOfPoints(), 500u);
  EXPECT_TRUE(dt.checkValidity(true, "collinear"));
  // 1/3 rounds down: (1, 1/3) is off the line and every waiting point joins the mesh.
  ASSERT_TRUE(insertOneByOne(dt, {Point2(1, 1.0 / 3.0)}, 1));
  EXPECT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfPoints(), 501u);
  EXPECT_TRUE(dt.checkValidity(true, "full"));
}

// Degenerate positions (on inner and hull edges, on a hull line beyond its
// end, beside corners of degree 3 and nearly flat triangles, one ulp apart),
// hulls that grow with every point, far points that double the box many
// times, extreme magnitudes: every step leaves a valid Delaunay mesh, the
// validator's count 2n - 2 - h included.
TEST(Insertion, AdversarialSequencesStayDelaunayAfterEveryStep) {
  struct Case {
    std::string name;
    std::vector<Point2> vPoints;
    std::size_t checkEvery;
  };
  std::vector<Case> vCases = {
      {"square, its centre on the diagonal, a hull edge point, an inner edge point",
       {Point2(0, 0), Point2(4, 0), Point2(4, 4), Point2(0, 4), Point2(2, 2), Point2(2, 0), Point2(1, 1)},
       1},
      {"points on hull lines beyond their ends",
       {Point2(0, 0), Point2(1, 0), Point2(0, 1), Point2(2, 0), Point2(0, 3), Point2(-1, -1)},
       1},
      {"on an inner edge beside a corner of degree 3",
       {Point2(0, 0), Point2(4, 0), Point2(0, 4), Point2(1, 1), Point2(2.5, 0.5)},
       1},
      {"on inner edges beside nearly flat triangles",
       {Point2(-14.99, -4.8966666666666665), Point2(-14.970000000000001, 15.779), Point2(-14.81, 15.666999999999998),
        Point2(-15, -4.9000000000000004), Point2(-14.82, -4.8399999999999999), Point2(-14.92, -4.8733333333333331)},
       1},
      {"random", vask_test::randomPoints(400, 11), 37},
      {"grid one ulp apart, then a far point", ulpGrid(1.0, 1.0, 8), 1},
  };
  vCases.back().vPoints.emplace_back(2.0, 3.0);
  std::vector<Point2> vLine, vParabola, vSpiral, vFar(vask_test::randomPoints(300, 9)), vTwoLines;
  for (int i = 0; i < 50; ++i)
    vLine.emplace_back(i, i);
  vLine.emplace_back(25.0, std::nextafter(25.0, 26.0));
  vLine.emplace_back(std::nextafter(10.0, 11.0), 10.0);
  for (int i = 0; i < 1500; ++i)
    vParabola.emplace_back(i, double(i) * i);
  for (int i = 0; i < 400; ++i)
    vSpiral.emplace_back((1.0 + 0.05 * i) * std::cos(0.3 * i), (1.0 + 0.05 * i) * std::sin(0.3 * i));
  for (int k = 1; k <= 60; ++k)
    vFar.emplace_back(std::ldexp(1.0, k), std::ldexp(1.0, k - 1));
  for (int i = 0; i < 1500; ++i)
    vTwoLines.emplace_back(double(i / 2), (i % 2) ? 1.0 : 0.0);
  vCases.push_back({"line, then points one ulp off it", vLine, 1});
  vCases.push_back({"parabola: every point beyond the hull", vParabola, 97});
  vCases.push_back({"expanding spiral", vSpiral, 13});
  vCases.push_back({"far points doubling the box", vFar, 7});
  vCases.push_back({"two parallel lines in turn", vTwoLines, 97});
  for (unsigned seed = 0; seed < 6; ++seed)
    vCases.push_back({"few lines with ulp nudges", fewLinesWithUlpNudges(seed), 199});
  for (double scale : {1e150, 1e-150, 1e300, 1e-300}) {
    std::vector<Point2> v;
    for (const Point2& p : vask_test::randomPoints(300, 13))
      v.emplace_back(p.x() * scale, p.y() * scale);
    for (int i = 0; i < 6; ++i)
      for (int j = 0; j < 6; ++j)
        v.emplace_back((2 + i) * scale, (2 + j) * scale); // cocircular cells
    vCases.push_back({"random and grid at an extreme magnitude", v, 47});
  }
  for (const Case& c : vCases) {
    SCOPED_TRACE(c.name);
    Vask_2D dt;
    ASSERT_TRUE(insertOneByOne(dt, c.vPoints, c.checkEvery));
    EXPECT_TRUE(dt.checkValidity(true, "sequence"));
  }
}

TEST(Insertion, FourCocircularPointsCauseNoFlipInEitherMode) {
  for (bool bFast : {false, true}) {
    Vask_2D dt;
    dt.setFastMode(bFast);
    Point2* a(dt.insert(Point2(0, 0)));
    Point2* b(dt.insert(Point2(1, 0)));
    Point2* c(dt.insert(Point2(0, 1)));
    Point2* d(dt.insert(Point2(1, 1)));
    EXPECT_EQ(dt.numberOfTriangles(), 2u);
    // The first triangle's edge b-c stays; no flip to a-d.
    EXPECT_NE(dt.getAdjacentTriangle(b, c), nullptr);
    EXPECT_NE(dt.getAdjacentTriangle(c, b), nullptr);
    EXPECT_EQ(dt.getAdjacentTriangle(a, d), nullptr);
    EXPECT_VALID(dt);
  }
}

TEST(Insertion, NonFinitePointsAreRefusedWithAWarning) {
  Vask_2D dt;
  dt.insert(Point2(0, 0));
  dt.insert(Point2(1, 0));
  dt.insert(Point2(0, 1));
  const double bad[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                        -std::numeric_limits<double>::infinity()};
  for (double b : bad) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(dt.insert(Point2(b, 0.5)), nullptr);
    EXPECT_EQ(dt.insert(Point2(0.5, b)), nullptr);
    const std::string out(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("      [Vask2D-Message] Vask_2D::insert(Point2), WARNING: "), std::string::npos) << out;
    EXPECT_EQ(dt.locate(Point2(b, b)), nullptr);
  }
  EXPECT_EQ(dt.numberOfPoints(), 3u);
  EXPECT_EQ(dt.numberOfTriangles(), 1u);
  EXPECT_VALID(dt);
}

TEST(Insertion, LongWalksTurnRandomAndStillArrive) {
  // A 400 x 400 grid: a walk from one corner to the other crosses far more
  // than 1000 triangles.
  Vask_2D dt;
  dt.insert(vask_test::gridPoints(400));
  Dt2* pDt2(dt.getImpl());
  Point2* pStartVtx(pDt2->findVertex(Point2(0, 0)));
  ASSERT_NE(pStartVtx, nullptr);
  const Point2 targets[] = {Point2(398.5, 398.25), Point2(399, 399), Point2(200, 123.5), Point2(500, 500)};
  for (const Point2& q : targets) {
    Triangle2* pT(pStartVtx->getIncidentTriangle());
    int edgeIdx(-1);
    const int state(pDt2->locateConflictTriangle(q, pT, edgeIdx));
    if (state == -1) {
      for (int i = 0; i < 3; ++i) EXPECT_NE(vask_test::exactOrientation(*pT->getCorner((i + 1) % 3), *pT->getCorner((i + 2) % 3), q), -1);
    } else if (state == 4) {
      EXPECT_TRUE(pT->hasVertex(q));
    } else {
      EXPECT_EQ(pT->getOppositeTriangle(state), nullptr);
      EXPECT_EQ(q.x(), 500);
    }
  }
}

namespace {

void expectValidEvery(Vask_2D& dt, size_t i, size_t every, const char* what) {
  if (i % every != 0) return;
  const vask_test::Validation v(validate(dt));
  ASSERT_TRUE(v.ok) << what << ", after " << i + 1 << ": " << v.firstError;
}

} // namespace

TEST(Insertion, RemovalsBetweenInsertionsNeverLeaveAStaleStart) {
  // The last vertex and the remembered hull triangles are only guesses:
  // removing the hub of a fan, the last vertex, or everything until the
  // collinear state returns must not let a later walk start on a dead
  // triangle. A far point inserted and removed refits the Hilbert key.
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  for (int i = 0; i < 300; ++i) {
    vHandles.push_back(dt.insert(Point2(i, double(i) * i)));
    if (i % 50 == 49) {
      dt.remove(vHandles[0]);
      vHandles.erase(vHandles.begin());
      dt.remove(vHandles.back());
      vHandles.pop_back();
    }
    expectValidEvery(dt, static_cast<size_t>(i), 23, "fan with removals");
  }
  for (Point2* pVtx : vHandles) dt.remove(pVtx);
  EXPECT_FALSE(dt.hasArea());
  dt.remove(dt.insert(Point2(1e12, -1e12)));
  const std::vector<Point2> vPoints(vask_test::randomPoints(3000, 23));
  for (size_t i = 0; i < vPoints.size(); ++i) {
    dt.insert(vPoints[i]);
    expectValidEvery(dt, i, 499, "after a far point");
  }
  Point2* pFar(dt.insert(Point2(-1e15, 3e15)));
  dt.remove(pFar);
  for (size_t i = 0; i < vPoints.size(); ++i) EXPECT_NE(dt.insert(Point2(vPoints[i].x() + 1.5, vPoints[i].y())), nullptr);
  EXPECT_EQ(dt.numberOfPoints(), 2 * vPoints.size());
  EXPECT_VALID(dt);
}

TEST(Insertion, CallersRoundingModeChangesNoResultAndIsRestored) {
  // Grids (cocircular everywhere), random points, and points within an ulp
  // of a line: batch, array and single insertion under each of the four
  // modes give the same triangles as under round-to-nearest, and every call
  // hands the caller's mode back.
  std::vector<std::vector<Point2> > vSets;
  std::vector<Point2> vGrid;
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 5; ++j) vGrid.emplace_back(0.1 * i, 0.1 * j);
  vSets.push_back(vGrid);
  vSets.push_back(vask_test::randomPoints(300, 31));
  std::vector<Point2> vNear;
  for (int i = 0; i < 60; ++i) {
    double y(0.3 * i / 7.0);
    for (int k = 0; k < i % 3; ++k) y = std::nextafter(y, 1e9);
    vNear.emplace_back(0.1 * i, y);
  }
  vNear.emplace_back(1.0, 5.0);
  vSets.push_back(vNear);
  std::vector<Point2> vFar(vask_test::randomPoints(200, 37));
  vFar.emplace_back(1e100, -1e100);
  vSets.push_back(vFar);

  const int aModes[4] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
  for (size_t s = 0; s < vSets.size(); ++s) {
    std::vector<vask_test::CanonicalTriangle> vExpected, vExpectedSingle;
    for (int mode : aModes) {
      std::vector<double> vCoords;
      for (const Point2& p : vSets[s]) vCoords.insert(vCoords.end(), {p.x(), p.y()});
      std::vector<Point2*> vArrayHandles(vSets[s].size());
      Vask_2D batch, array, single;
      ASSERT_EQ(std::fesetround(mode), 0);
      batch.insert(vSets[s]);
      EXPECT_EQ(std::fegetround(), mode);
      array.insert(static_cast<int>(vSets[s].size()), vCoords.data(), vArrayHandles.data());
      EXPECT_EQ(std::fegetround(), mode);
      for (const Point2& p : vSets[s]) single.insert(p);
      EXPECT_EQ(std::fegetround(), mode);
      single.locate(Point2(0.05, 0.05));
      single.checkValidity(true, "rounding");
      EXPECT_EQ(std::fegetround(), mode);
      std::fesetround(FE_TONEAREST);
      if (mode == FE_TONEAREST) {
        vExpected = vask_test::canonicalTriangles(batch);
        vExpectedSingle = vask_test::canonicalTriangles(single);
      }
      EXPECT_EQ(vask_test::canonicalTriangles(single), vExpectedSingle) << "set " << s << ", mode " << mode;
      EXPECT_EQ(vask_test::canonicalTriangles(batch), vExpected) << "set " << s << ", mode " << mode;
      EXPECT_EQ(vask_test::canonicalTriangles(array), vExpected) << "set " << s << ", mode " << mode;
      EXPECT_VALID(batch);
      EXPECT_VALID(single);
    }
  }
}
