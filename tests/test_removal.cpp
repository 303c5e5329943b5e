// Vertex removal: inner and hull vertices, cocircular and collinear data,
// the way down to the collinear state and back, refused handles, and CGAL
// as an oracle for the triangle set on general-position input.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "core/PoolIndex.h"
#include "helpers/TestHelpers.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <cmath>
#include <cstdint>
#include <new>
#include <random>
#include <set>
#include <string>
#include <vector>

#ifdef VASK2D_TEST_WITH_CGAL
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include "helpers/CgalCanonical.h"
#endif

using namespace KIRO_VASK2D;
using vask_test::Validation;

namespace {

// Full check by the independent validator: topology, counts, hull, areas
// and the empty-circle property on every inner edge; without area, the
// points collinear and distinct, and no vertex keeping a triangle.
::testing::AssertionResult isValidDelaunay(Vask_2D& dt, std::size_t maxEmptyCircleTests = static_cast<std::size_t>(-1)) {
  const Validation v(vask_test::validate(dt, true, maxEmptyCircleTests));
  if (!v.ok) return ::testing::AssertionFailure() << v.numErrors << " error(s), first: " << v.firstError;
  std::vector<Point2*> vVertices;
  dt.getVertexPointers(vVertices);
  for (const Point2* p : vVertices)
    if (!dt.hasArea() && p->getIncidentTriangle() != nullptr) return ::testing::AssertionFailure() << "vertex keeps a triangle";
  return ::testing::AssertionSuccess();
}

// Everything a refused call must leave as it was.
struct Snapshot {
  unsigned numPoints;
  unsigned numTriangles;
  bool bArea;
  std::vector<vask_test::CanonicalTriangle> vTriangles;
  std::vector<Point2*> vVertices;
  explicit Snapshot(Vask_2D& dt)
      : numPoints(dt.numberOfPoints()), numTriangles(dt.numberOfTriangles()), bArea(dt.hasArea()),
        vTriangles(vask_test::canonicalTriangles(dt)) {
    dt.getVertexPointers(vVertices);
    std::sort(vVertices.begin(), vVertices.end());
  }
  bool operator==(const Snapshot& o) const {
    return numPoints == o.numPoints && numTriangles == o.numTriangles && bArea == o.bArea &&
           vTriangles == o.vTriangles && vVertices == o.vVertices;
  }
};

// The handles still in use must be exactly the triangulation's vertices,
// with unchanged coordinates.
::testing::AssertionResult handlesIntact(Vask_2D& dt, const std::vector<Point2*>& vHandles,
                                         const std::vector<Point2>& vCoords) {
  std::vector<Point2*> vVertices;
  dt.getVertexPointers(vVertices);
  std::sort(vVertices.begin(), vVertices.end());
  std::vector<Point2*> vExpected(vHandles);
  std::sort(vExpected.begin(), vExpected.end());
  if (vVertices != vExpected)
    return ::testing::AssertionFailure() << vVertices.size() << " vertices, " << vExpected.size() << " handles kept";
  for (std::size_t i = 0; i < vHandles.size(); ++i)
    if (!(*vHandles[i] == vCoords[i])) return ::testing::AssertionFailure() << "handle " << i << " moved";
  if (dt.hasArea())
    for (Point2* pVtx : vHandles)
      if (pVtx->getIncidentTriangle() == nullptr || !pVtx->getIncidentTriangle()->hasVertex(pVtx))
        return ::testing::AssertionFailure() << "handle without a valid incident triangle";
  return ::testing::AssertionSuccess();
}

// Inserts the points with handles, then removes them in a random order,
// checking after every step (or every checkEvery steps) validity, the
// Delaunay property, the counts and all remaining handles.
void removeAllInRandomOrder(const std::vector<Point2>& vPoints, unsigned seed, std::size_t checkEvery = 1) {
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  ASSERT_TRUE(isValidDelaunay(dt));
  // Distinct handles only: equal input points share one.
  std::vector<Point2*> vLive(vHandles);
  std::sort(vLive.begin(), vLive.end());
  vLive.erase(std::unique(vLive.begin(), vLive.end()), vLive.end());
  std::shuffle(vLive.begin(), vLive.end(), std::mt19937(seed));
  std::vector<Point2> vCoords;
  for (Point2* p : vLive) vCoords.push_back(*p);
  ASSERT_EQ(dt.numberOfPoints(), vLive.size());
  std::size_t step(0);
  while (!vLive.empty()) {
    dt.remove(vLive.back());
    vLive.pop_back();
    vCoords.pop_back();
    ++step;
    ASSERT_EQ(dt.numberOfPoints(), vLive.size()) << "step " << step;
    if (step % checkEvery == 0 || vLive.size() < 4) {
      ASSERT_TRUE(isValidDelaunay(dt)) << "step " << step << ", " << vLive.size() << " left";
      ASSERT_TRUE(handlesIntact(dt, vLive, vCoords)) << "step " << step;
    }
  }
  EXPECT_FALSE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
}

std::string captureRemove(Vask_2D& dt, Point2* pVtx) {
  ::testing::internal::CaptureStdout();
  dt.remove(pVtx);
  return ::testing::internal::GetCapturedStdout();
}

} // namespace

// ------------------------------------------------------------ small cases

TEST(Removal, SmallConfigurationsStayDelaunayWithTheRightCounts) {
  // Each row: points, the indices of the vertices to remove in order, points
  // inserted afterwards, and the triangles that must remain. Removing the
  // last point off a line leaves the collinear state, where removals lower
  // the count and the next point off the line brings every vertex back.
  struct Case {
    const char* name;
    std::vector<Point2> vPoints;
    std::vector<int> vRemove;
    unsigned numTriangles;
    std::vector<Point2> vAfter;
  };
  std::vector<Point2> vLine, vLineAndOff;
  for (int i = 0; i < 50; ++i)
    vLine.emplace_back(i * 0.5, i * 0.25);
  vLineAndOff = vLine;
  vLineAndOff.emplace_back(3, 7);
  std::vector<Point2> vCircleAndCentre(vask_test::circlePoints(200, 0.0, 0.0, 1.0));
  vCircleAndCentre.emplace_back(0.0, 0.0); // an inner vertex of degree 200: the ear search runs long
  const std::vector<Point2> vQuad{Point2(0, 0), Point2(4, 0), Point2(5, 3), Point2(1, 4)};
  const std::vector<Point2> vStraightBottom{Point2(0, 0), Point2(1, 0), Point2(2, 0), Point2(3, 0), Point2(4, 0), Point2(2, 3)};
  const Case aCase[] = {
      {"inner vertex of degree three", {Point2(0, 0), Point2(10, 0), Point2(0, 10), Point2(2, 3)}, {3}, 1},
      {"inner vertex on the line of two ring corners",
       {Point2(0, 0), Point2(10, 0), Point2(5, 5), Point2(5, -5), Point2(5, 0)},
       {4},
       2},
      {"hull corner 0 of a quadrilateral", vQuad, {0}, 1},
      {"hull corner 1 of a quadrilateral", vQuad, {1}, 1},
      {"hull corner 2 of a quadrilateral", vQuad, {2}, 1},
      {"hull corner 3 of a quadrilateral", vQuad, {3}, 1},
      {"both ends of a straight hull edge", vStraightBottom, {0, 4}, 2},
      {"centre of a circle", vCircleAndCentre, {200}, 198},
      {"the only point off a line", vLineAndOff, {50}, 0},
      {"points of a collinear set, then one off the line", vLineAndOff, {50, 10, 0}, 47, {Point2(3, -7)}},
      {"a line down to empty, then a triangle",
       {Point2(0, 0), Point2(1, 1), Point2(2, 2), Point2(3, 3)},
       {0, 1, 2, 3},
       1,
       {Point2(0, 0), Point2(1, 0), Point2(0, 1)}},
  };
  for (const Case& c : aCase) {
    SCOPED_TRACE(c.name);
    Vask_2D dt;
    std::vector<Point2*> vH;
    for (const Point2& p : c.vPoints) vH.push_back(dt.insert(p));
    for (int k : c.vRemove) {
      dt.remove(vH[k]);
      ASSERT_TRUE(isValidDelaunay(dt));
      EXPECT_EQ(vH[k]->getIncidentTriangle(), nullptr);
    }
    EXPECT_EQ(dt.numberOfPoints(), c.vPoints.size() - c.vRemove.size());
    dt.insert(c.vAfter);
    EXPECT_TRUE(isValidDelaunay(dt)); // every vertex has its triangle again
    EXPECT_EQ(dt.numberOfTriangles(), c.numTriangles);
  }
}

TEST(Removal, MiddleVertexOfStraightHullEdgeKeepsTheEdgeStraight) {
  Vask_2D dt;
  std::vector<Point2*> vBottom;
  for (int i = 0; i <= 6; ++i) vBottom.push_back(dt.insert(Point2(i, 0)));
  dt.insert(Point2(3, 4));
  dt.insert(Point2(1, 2));
  dt.insert(Point2(5, 2.5));
  std::vector<Point2*> vCornersBefore;
  dt.getConvexHull(false, vCornersBefore);
  for (int idx : {3, 1, 5, 2}) {
    dt.remove(vBottom[idx]);
    ASSERT_TRUE(isValidDelaunay(dt)) << "after removing (" << idx << ",0)";
    // The remaining points of the bottom line stay on the hull and its corners are unchanged.
    std::vector<Point2*> vHull, vCorners;
    dt.getConvexHull(true, vHull);
    for (int k : {0, 4, 6})
      EXPECT_NE(std::find(vHull.begin(), vHull.end(), vBottom[k]), vHull.end()) << "(" << k << ",0) left the hull";
    dt.getConvexHull(false, vCorners);
    EXPECT_EQ(vCorners, vCornersBefore);
  }
}

// ---------------------------------------------------------------- refusals

TEST(RemovalRefusal, ForeignStaleAndNullHandlesWarnAndChangeNothing) {
  // Each row builds a triangulation (and maybe another one) and names
  // handles that are not vertices of the first: each refused call must leave
  // both exactly as they were.
  const std::string notMine("Dt2::remove(..), WARNING: vertex does not belong to the triangulation, return");
  const std::string nullText("Dt2::remove(), WARNING: pVtx==NULL, illegal, return.");
  struct Case {
    const char* name;
    std::function<std::vector<Point2*>(Vask_2D& dt, Vask_2D& other)> setup;
    std::string text;
  };
  static Point2 freeCopy;
  const Case aCase[] = {
      {"null pointer on an empty triangulation", [](Vask_2D&, Vask_2D&) { return std::vector<Point2*>{nullptr}; },
       nullText},
      {"removed inner and hull vertices",
       [](Vask_2D& dt, Vask_2D&) {
         std::vector<Point2*> vH, vHull;
         dt.insert(vask_test::randomPoints(300, 2), vH);
         dt.getConvexHull(true, vHull);
         Point2* pInner(nullptr);
         for (Point2* p : vH)
           if (std::find(vHull.begin(), vHull.end(), p) == vHull.end()) pInner = p;
         dt.remove(pInner);
         dt.remove(vHull[0]);
         return std::vector<Point2*>{pInner, vHull[0], pInner};
       },
       notMine},
      {"removed handle whose coordinates came back",
       [](Vask_2D& dt, Vask_2D&) {
         dt.insert(vask_test::randomPoints(200, 3));
         Point2* p(dt.insert(Point2(0.5, 0.5)));
         dt.remove(p);
         EXPECT_NE(dt.insert(Point2(0.5, 0.5)), p); // a new handle
         return std::vector<Point2*>{p};
       },
       notMine},
      {"removed handle in the collinear state",
       [](Vask_2D& dt, Vask_2D&) {
         std::vector<Point2*> vH;
         dt.insert({Point2(0, 0), Point2(1, 0), Point2(2, 0)}, vH);
         dt.remove(vH[1]);
         dt.remove(vH[0]);
         EXPECT_NE(dt.insert(Point2(0, 0)), vH[0]); // a new handle
         return std::vector<Point2*>{vH[1], vH[0]};
       },
       notMine},
      {"handles of another triangulation and a free copy",
       [](Vask_2D& dt, Vask_2D& other) {
         std::vector<Point2*> vH, vOther;
         dt.insert(vask_test::randomPoints(200, 4), vH);
         other.insert(vask_test::randomPoints(200, 4), vOther);
         freeCopy = *vH[7];
         vOther.resize(20);
         vOther.push_back(&freeCopy);
         return vOther;
       },
       notMine},
      {"duplicates share one handle which goes once",
       [](Vask_2D& dt, Vask_2D&) {
         dt.insert(vask_test::randomPoints(100, 5));
         Point2* p(dt.insert(Point2(0.25, 0.75)));
         EXPECT_EQ(dt.insert(Point2(0.25, 0.75)), p);
         std::vector<Point2*> vH;
         dt.insert({Point2(0.6, 0.6), Point2(0.6, 0.6)}, vH);
         EXPECT_EQ(vH[0], vH[1]);
         dt.remove(p);
         dt.remove(vH[0]);
         return std::vector<Point2*>{p, vH[1]};
       },
       notMine},
  };
  for (const Case& c : aCase) {
    SCOPED_TRACE(c.name);
    Vask_2D dt, other;
    const std::vector<Point2*> vRefused(c.setup(dt, other));
    const Snapshot before(dt), beforeOther(other);
    for (Point2* p : vRefused) {
      EXPECT_NE(captureRemove(dt, p).find(c.text), std::string::npos);
      EXPECT_TRUE(Snapshot(dt) == before);
    }
    EXPECT_TRUE(Snapshot(other) == beforeOther);
    EXPECT_TRUE(isValidDelaunay(dt));
  }
}

// ------------------------------------------------ sequences, every step checked

TEST(RemovalSequence, EveryVertexOfAdversarialFamiliesOneByOne) {
  // A grid moved by single ulps: cocircular and collinear tests sit right
  // at zero and only the exact stage can decide them.
  std::vector<Point2> vUlpGrid;
  std::mt19937 gen(51);
  for (int i = 0; i < 18; ++i)
    for (int j = 0; j < 18; ++j) {
      double x(0.1 * i), y(0.1 * j);
      const unsigned r(gen() % 5);
      if (r == 1 || r == 3) x = std::nextafter(x, r == 1 ? 2.0 : -2.0);
      if (r == 2 || r == 3) y = std::nextafter(y, r == 2 ? -2.0 : 2.0);
      vUlpGrid.emplace_back(x, y);
    }
  // Many collinear triples and cocircular quadruples at once.
  std::vector<Point2> vLinesAndCircle;
  for (int i = 0; i < 60; ++i) vLinesAndCircle.emplace_back(i, 0);
  for (int i = 0; i < 60; ++i) vLinesAndCircle.emplace_back(i, 30);
  for (int i = 1; i < 30; ++i) vLinesAndCircle.emplace_back(30, i);
  const std::vector<Point2> vCircle(vask_test::circlePoints(64, 30, 15, 10));
  vLinesAndCircle.insert(vLinesAndCircle.end(), vCircle.begin(), vCircle.end());
  const std::pair<const char*, std::vector<Point2>> aFamily[] = {
      {"random", vask_test::randomPoints(400, 11)},
      {"random", vask_test::randomPoints(400, 12)},
      {"grid with all cells cocircular", vask_test::gridPoints(20)},
      {"circle, all on the hull", vask_test::circlePoints(300, 0.5, 0.5, 0.5)},
      {"grid perturbed by single ulps", vUlpGrid},
      {"few lines and a circle", vLinesAndCircle},
  };
  unsigned seed(21);
  for (const auto& family : aFamily) {
    SCOPED_TRACE(family.first);
    removeAllInRandomOrder(family.second, ++seed);
    if (HasFatalFailure()) return;
  }
}

TEST(RemovalSequence, RecordsFoundAlsoWhenVertexAndRecordPoolsDiverge) {
  // A vertex taken from the pool without a vault record shifts the pools'
  // lockstep: every later record must then be found by its key.
  Vask_2D dt;
  std::vector<Point2*> vFirst, vSecond;
  dt.insert(vask_test::randomPoints(300, 111), vFirst);
  new (dt.getImpl()->newVertex()) Point2(5.0, 5.0);
  dt.insert(vask_test::randomPoints(300, 112), vSecond);
  for (Point2* p : vSecond) dt.insert(Point2(p->x() + 0.5, p->y()));
  std::vector<Point2*> vAll;
  dt.getVertexPointers(vAll);
  std::shuffle(vAll.begin(), vAll.end(), std::mt19937(113));
  for (std::size_t k = 0; k < vAll.size(); ++k) {
    dt.remove(vAll[k]);
    ASSERT_EQ(dt.numberOfPoints(), vAll.size() - k - 1);
    if (k % 50 == 0) ASSERT_TRUE(isValidDelaunay(dt)) << "step " << k;
  }
  EXPECT_FALSE(dt.hasArea());
}

// ------------------------------------------------------------ pool positions

TEST(PoolIndex, PositionsRoundTripOverGrowingBlocks) {
  SimplePool<Point2> pool;
  pool.init(3, -1);
  PoolIndex<Point2> index;
  std::vector<Point2*> vElements;
  for (int i = 0; i < 5000; ++i) {
    vElements.push_back(pool.get());
    // Lookups between allocations: the table must follow every new block.
    if (i % 97 == 0) {
      size_t pos(0);
      ASSERT_TRUE(index.getIndex(pool, vElements.back(), pos));
      EXPECT_EQ(pos, static_cast<size_t>(i));
    }
  }
  ASSERT_GT(pool.getNumContainers(), 5);
  for (size_t i = 0; i < vElements.size(); ++i) {
    size_t pos(0);
    ASSERT_TRUE(index.getIndex(pool, vElements[i], pos));
    ASSERT_EQ(pos, i);
    ASSERT_EQ(index.getElement(pool, i), vElements[i]);
  }
  EXPECT_EQ(index.getElement(pool, vElements.size()), nullptr);
  // Foreign, misaligned and not yet handed out addresses are no elements.
  Point2 local;
  size_t pos(0);
  EXPECT_FALSE(index.getIndex(pool, &local, pos));
  EXPECT_FALSE(index.getIndex(pool, reinterpret_cast<Point2*>(reinterpret_cast<char*>(vElements[10]) + 8), pos));
  EXPECT_FALSE(index.getIndex(pool, vElements.back() + 1, pos));
  EXPECT_FALSE(index.getIndex(pool, nullptr, pos));
}

// ------------------------------------------------------------ large random

TEST(RemovalLarge, HalfThenAllOf200000RandomPointsInsertedByTwoWorkers) {
  // The batch path with workers raises and removes temporary outer corners;
  // the vertices it leaves must remove like any others.
  const std::size_t n(200000);
  const std::vector<Point2> vPoints(vask_test::randomPoints(n, 91));
  Vask_2D dt;
  dt.setNumCPU(2);
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  ASSERT_EQ(dt.numberOfPoints(), n);
  std::vector<std::size_t> vOrder(n);
  for (std::size_t i = 0; i < n; ++i) vOrder[i] = i;
  std::shuffle(vOrder.begin(), vOrder.end(), std::mt19937(92));
  std::vector<char> vAlive(n, 1);
  auto checkHandles = [&]() {
    std::vector<Point2*> vLive;
    std::vector<Point2> vCoords;
    for (std::size_t i = 0; i < n; ++i)
      if (vAlive[i]) {
        vLive.push_back(vHandles[i]);
        vCoords.push_back(vPoints[i]);
      }
    return handlesIntact(dt, vLive, vCoords);
  };
  for (std::size_t k = 0; k < n; ++k) {
    dt.remove(vHandles[vOrder[k]]);
    vAlive[vOrder[k]] = 0;
    const std::size_t numLeft(n - k - 1);
    if (k + 1 == n / 2) {
      ASSERT_EQ(dt.numberOfPoints(), numLeft);
      ASSERT_TRUE(isValidDelaunay(dt)) << "after half";
      ASSERT_TRUE(checkHandles());
      // The library's own check agrees, and it knows what it removed.
      ::testing::internal::CaptureStdout();
      const bool bValid(dt.checkValidity(true, "after removals"));
      ::testing::internal::GetCapturedStdout();
      EXPECT_TRUE(bValid);
      EXPECT_EQ(dt.getImpl()->getRemovedVertices().size(), n / 2);
    } else if ((k + 1) % 25000 == 0 || (numLeft < 2000 && numLeft % 200 == 0)) {
      ASSERT_EQ(dt.numberOfPoints(), numLeft);
      ASSERT_TRUE(isValidDelaunay(dt, 20000)) << numLeft << " left";
    }
  }
  EXPECT_EQ(dt.numberOfPoints(), 0u);
  EXPECT_FALSE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
}

// ------------------------------------------------------------ CGAL as oracle

#ifdef VASK2D_TEST_WITH_CGAL
TEST(RemovalOracle, SameTrianglesAsCgalAfterRemovingHalf) {
  typedef CGAL::Exact_predicates_inexact_constructions_kernel K;
  typedef CGAL::Delaunay_triangulation_2<K> CgalDt;
  for (unsigned seed : {101u, 102u}) {
    const std::vector<Point2> vPoints(vask_test::randomPoints(5000, seed));
    Vask_2D dt;
    std::vector<Point2*> vHandles;
    dt.insert(vPoints, vHandles);
    CgalDt cgal;
    std::vector<CgalDt::Vertex_handle> vCgal;
    for (const Point2& p : vPoints) vCgal.push_back(cgal.insert(K::Point_2(p.x(), p.y())));
    std::vector<std::size_t> vOrder(vPoints.size());
    for (std::size_t i = 0; i < vOrder.size(); ++i) vOrder[i] = i;
    std::shuffle(vOrder.begin(), vOrder.end(), std::mt19937(seed));
    vOrder.resize(vOrder.size() / 2);
    for (std::size_t i : vOrder) {
      dt.remove(vHandles[i]);
      cgal.remove(vCgal[i]);
    }
    const std::vector<vask_test::CanonicalTriangle> vExpected(vask_test::cgalCanonicalTriangles(cgal));
    EXPECT_EQ(vask_test::canonicalTriangles(dt), vExpected) << "seed " << seed;
  }
}
#endif
