// Single-point insertion through the facade: the three states of a
// triangulation, degenerate positions (edges, vertices, hull lines, cocircular
// points), box growth, exactness on tiny differences and extreme magnitudes,
// and refusal of non-finite input.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include <cfenv>
#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <algorithm>
#include <limits>
#include <random>
#include <vector>

using namespace KIRO_VASK2D;
using vask_test::validate;

TEST(Insertion, NewTriangulationIsEmpty) {
  Vask_2D dt;
  EXPECT_EQ(dt.numberOfPoints(), 0u);
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_FALSE(dt.hasArea());
  EXPECT_FALSE(dt.is2D());
  std::vector<Triangle2*> vT(1, nullptr);
  dt.getTrianglePointers(vT);
  EXPECT_TRUE(vT.empty());
  EXPECT_TRUE(dt.checkValidity(true, "empty"));
}

TEST(Insertion, EqualPointsInCollinearStateShareTheFirstHandle) {
  Vask_2D dt;
  Point2* p0(dt.insert(Point2(1, 2)));
  Point2* p1(dt.insert(Point2(1, 2)));
  EXPECT_EQ(p0, p1);
  EXPECT_EQ(dt.numberOfPoints(), 1u);
  Point2* p2(dt.insert(Point2(3, 4)));
  EXPECT_NE(p2, p0);
  EXPECT_EQ(dt.insert(Point2(3, 4)), p2);
  EXPECT_EQ(dt.numberOfPoints(), 2u);
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
}

TEST(Insertion, CollinearPointsWaitUntilAPointOffTheLineArrives) {
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  for (int i = 0; i < 3; ++i) vHandles.push_back(dt.insert(Point2(i, 2 * i)));
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_FALSE(dt.hasArea());
  EXPECT_TRUE(dt.checkValidity(true, "collinear"));
  Point2* pOff(dt.insert(Point2(0, 1)));
  EXPECT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfPoints(), 4u);
  EXPECT_EQ(dt.numberOfTriangles(), 2u);
  EXPECT_VALID(dt);
  for (Point2* p : vHandles) EXPECT_NE(p->getIncidentTriangle(), nullptr);
  EXPECT_NE(pOff->getIncidentTriangle(), nullptr);
}

TEST(Insertion, SlopedCollinearSetWithInexactCoordinatesNeverGetsATriangle) {
  // Points on y = x / 3 with rounded coordinates are, exactly, not collinear
  // in general; these multiples of 3 are.
  Vask_2D dt;
  for (int i = 0; i < 500; ++i) dt.insert(Point2(3.0 * i, 1.0 * i));
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_EQ(dt.numberOfPoints(), 500u);
  // Rounded thirds: (0,0), (1, 1/3), (3,1) is not collinear.
  Vask_2D dt2;
  dt2.insert(Point2(0, 0));
  dt2.insert(Point2(3, 1));
  dt2.insert(Point2(1, 1.0 / 3.0));
  EXPECT_TRUE(dt2.hasArea());
  EXPECT_EQ(dt2.numberOfTriangles(), 1u);
}

TEST(Insertion, DuplicateInFullDimensionalStateReturnsTheOldHandle) {
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  for (const Point2& p : vask_test::randomPoints(200, 5)) vHandles.push_back(dt.insert(p));
  const unsigned numT(dt.numberOfTriangles()), numP(dt.numberOfPoints());
  for (Point2* p : vHandles) EXPECT_EQ(dt.insert(Point2(p->x(), p->y())), p);
  EXPECT_EQ(dt.numberOfTriangles(), numT);
  EXPECT_EQ(dt.numberOfPoints(), numP);
  EXPECT_VALID(dt);
}

TEST(Insertion, PointOnAnInnerEdgeAddsTwoTrianglesAndOnAHullEdgeOne) {
  Vask_2D dt;
  dt.insert(Point2(0, 0));
  dt.insert(Point2(4, 0));
  dt.insert(Point2(4, 4));
  dt.insert(Point2(0, 4));
  ASSERT_EQ(dt.numberOfTriangles(), 2u);
  dt.insert(Point2(2, 2)); // on the diagonal, whichever it is
  EXPECT_EQ(dt.numberOfTriangles(), 4u);
  EXPECT_VALID(dt);
  dt.insert(Point2(2, 0)); // on a hull edge
  EXPECT_EQ(dt.numberOfTriangles(), 5u);
  EXPECT_VALID(dt);
  dt.insert(Point2(1, 1)); // on the inner edge (0,0)-(2,2)
  EXPECT_EQ(dt.numberOfTriangles(), 7u);
  EXPECT_VALID(dt);
}

TEST(Insertion, PointOnTheHullLineBeyondTheEndSeesOnlyStrictlyVisibleEdges) {
  Vask_2D dt;
  dt.insert(Point2(0, 0));
  dt.insert(Point2(1, 0));
  dt.insert(Point2(0, 1));
  dt.insert(Point2(2, 0)); // collinear with the hull edge (0,0)-(1,0)
  EXPECT_EQ(dt.numberOfTriangles(), 2u);
  EXPECT_VALID(dt);
  dt.insert(Point2(0, 3)); // collinear with (0,0)-(0,1), sees (0,1)-(2,0)
  EXPECT_VALID(dt);
  dt.insert(Point2(-1, -1)); // collinear with no edge, sees two
  EXPECT_VALID(dt);
  EXPECT_EQ(dt.numberOfPoints(), 6u);
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

TEST(Insertion, FarPointsDoubleTheBoxAndEarlierHandlesStayValid) {
  Vask_2D dt;
  std::vector<Point2> vPoints(vask_test::randomPoints(300, 9));
  std::vector<Point2*> vHandles;
  for (const Point2& p : vPoints) vHandles.push_back(dt.insert(p));
  // Each point far beyond the box: the box doubles many times over.
  for (int k = 1; k <= 60; ++k) {
    const double far(std::ldexp(1.0, k));
    vHandles.push_back(dt.insert(Point2(far, 0.5 * far)));
    vPoints.emplace_back(far, 0.5 * far);
  }
  ASSERT_EQ(vHandles.size(), vPoints.size());
  for (size_t i = 0; i < vHandles.size(); ++i) {
    ASSERT_NE(vHandles[i], nullptr);
    EXPECT_EQ(*vHandles[i], vPoints[i]);
    EXPECT_NE(vHandles[i]->getIncidentTriangle(), nullptr);
  }
  EXPECT_VALID(dt);
  EXPECT_TRUE(dt.checkValidity(true, "far points"));
}

TEST(Insertion, RandomSingleInsertionsStayDelaunayAfterEveryStep) {
  Vask_2D dt;
  const std::vector<Point2> vPoints(vask_test::randomPoints(400, 11));
  for (size_t i = 0; i < vPoints.size(); ++i) {
    dt.insert(vPoints[i]);
    if (i % 37 == 0 || i + 1 == vPoints.size()) {
      const vask_test::Validation v(validate(dt));
      ASSERT_TRUE(v.ok) << "after " << i + 1 << ": " << v.firstError;
    }
  }
  EXPECT_EQ(dt.numberOfPoints(), 400u);
}

TEST(Insertion, HullGrowsCorrectlyWhenEveryPointLiesOutside) {
  // Points on a parabola in increasing x: each new one is beyond the hull,
  // collinear with no edge. Then on an expanding spiral.
  Vask_2D dt;
  for (int i = 0; i < 300; ++i) dt.insert(Point2(i, double(i) * i));
  EXPECT_VALID(dt);
  Vask_2D spiral;
  for (int i = 0; i < 400; ++i) {
    const double a(0.3 * i), r(1.0 + 0.05 * i);
    spiral.insert(Point2(r * std::cos(a), r * std::sin(a)));
  }
  EXPECT_VALID(spiral);
}

TEST(Insertion, PointsOneUlpApartAreDistinctAndExact) {
  Vask_2D dt;
  const double base(1.0);
  std::vector<Point2> vPoints;
  double x(base);
  for (int i = 0; i < 8; ++i) {
    double y(base);
    for (int j = 0; j < 8; ++j) {
      vPoints.emplace_back(x, y);
      y = std::nextafter(y, 2.0);
    }
    x = std::nextafter(x, 2.0);
  }
  for (const Point2& p : vPoints) dt.insert(p);
  EXPECT_EQ(dt.numberOfPoints(), 64u);
  EXPECT_VALID(dt);
  // A far point seen from the tiny grid, and points one ulp off a line.
  dt.insert(Point2(2.0, 3.0));
  Vask_2D line;
  for (int i = 0; i < 50; ++i) line.insert(Point2(i, i));
  line.insert(Point2(25.0, std::nextafter(25.0, 26.0)));
  line.insert(Point2(std::nextafter(10.0, 11.0), 10.0));
  EXPECT_VALID(dt);
  EXPECT_VALID(line);
  EXPECT_EQ(line.numberOfPoints(), 52u);
}

TEST(Insertion, ExtremeMagnitudesAreTriangulatedExactly) {
  for (double scale : {1e150, 1e-150, 1e300, 1e-300}) {
    Vask_2D dt;
    for (const Point2& p : vask_test::randomPoints(300, 13)) dt.insert(Point2(p.x() * scale, p.y() * scale));
    // A grid (cocircular cells) at the same scale.
    for (int i = 0; i < 6; ++i)
      for (int j = 0; j < 6; ++j) dt.insert(Point2((2 + i) * scale, (2 + j) * scale));
    const vask_test::Validation v(validate(dt));
    EXPECT_TRUE(v.ok) << "scale " << scale << ": " << v.firstError;
    EXPECT_EQ(dt.numberOfPoints(), 336u);
    EXPECT_TRUE(dt.checkValidity(true, "extreme"));
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

// Points on an inner edge beside a corner of degree 3 (one outer triangle
// borders both split triangles), and near-collinear runs that land points
// on inner edges beside nearly flat triangles: valid Delaunay meshes in
// single and batch insertion alike.
TEST(Insertion, PointsOnEdgesBesideDegree3CornersAndFlatTrianglesKeepTheMeshValid) {
  const std::vector<std::vector<Point2> > vCases = {
      {Point2(0, 0), Point2(4, 0), Point2(0, 4), Point2(1, 1), Point2(2.5, 0.5)},
      {Point2(-14.99, -4.8966666666666665), Point2(-14.970000000000001, 15.779),
       Point2(-14.81, 15.666999999999998), Point2(-15, -4.9000000000000004), Point2(-14.82, -4.8399999999999999),
       Point2(-14.92, -4.8733333333333331)}};
  for (const std::vector<Point2>& vPoints : vCases) {
    Vask_2D single;
    for (const Point2& p : vPoints) {
      single.insert(p);
      EXPECT_VALID(single);
    }
    Vask_2D batch;
    batch.insert(vPoints);
    EXPECT_VALID(batch);
  }
}

TEST(Insertion, ShuffledPointsOnFewLinesWithUlpNudgesGiveValidMeshes) {
  for (unsigned seed = 0; seed < 12; ++seed) {
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
    Vask_2D dt;
    if (seed % 2 == 0) {
      dt.insert(vPoints);
    } else {
      for (const Point2& p : vPoints) dt.insert(p);
    }
    EXPECT_VALID(dt);
  }
}

namespace {

void expectValidEvery(Vask_2D& dt, size_t i, size_t every, const char* what) {
  if (i % every != 0) return;
  const vask_test::Validation v(validate(dt));
  ASSERT_TRUE(v.ok) << what << ", after " << i + 1 << ": " << v.firstError;
}

} // namespace

TEST(Insertion, SortedCurveAndLineOrdersStayValidAndKeepTheirHandles) {
  // Orders in which the vault's start is poor and the last vertex is the
  // right start: a parabola (every point beyond the hull, a fan around the
  // first point), two parallel lines in turn, a line that stays collinear
  // and then receives one point off it. Every handle must stay the first
  // one's for a repeated point.
  const size_t n(1500);
  Vask_2D parabola, twoLines, line;
  std::vector<Point2*> vParabola, vLine;
  for (size_t i = 0; i < n; ++i) {
    const double x(static_cast<double>(i));
    vParabola.push_back(parabola.insert(Point2(x, x * x)));
    twoLines.insert(Point2(double(i / 2), (i % 2) ? 1.0 : 0.0));
    vLine.push_back(line.insert(Point2(x, 3 * x - 7)));
    EXPECT_EQ(line.insert(Point2(x, 3 * x - 7)), vLine.back());
    EXPECT_EQ(parabola.insert(Point2(x, x * x)), vParabola.back());
    expectValidEvery(parabola, i, 97, "parabola");
    expectValidEvery(twoLines, i, 97, "two lines");
  }
  EXPECT_EQ(parabola.numberOfPoints(), n);
  EXPECT_EQ(twoLines.numberOfPoints(), n);
  EXPECT_EQ(line.numberOfPoints(), n);
  EXPECT_EQ(line.numberOfTriangles(), 0u);
  for (size_t i = 0; i < n; i += 11) EXPECT_EQ(line.insert(Point2(double(i), 3.0 * double(i) - 7)), vLine[i]);
  line.insert(Point2(3.0, -5.0));
  EXPECT_EQ(line.numberOfPoints(), n + 1);
  EXPECT_VALID(parabola);
  EXPECT_VALID(twoLines);
  EXPECT_VALID(line);
}

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
      for (const Point2& p : vSets[s]) {
        vCoords.push_back(p.x());
        vCoords.push_back(p.y());
      }
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
