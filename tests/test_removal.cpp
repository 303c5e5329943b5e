// Vertex removal: inner and hull vertices, cocircular and collinear data,
// the way down to the collinear state and back, refused handles, and CGAL
// as an oracle for the triangle set on general-position input.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "core/PoolIndex.h"
#include "helpers/TestHelpers.h"
#include <gtest/gtest.h>

#include <algorithm>
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

// Full check: topology, counts, hull, areas and the empty-circle property
// on every inner edge, by the independent validator.
// Without area: no triangle, no vertex with a triangle, all points on one
// line (exact).
::testing::AssertionResult isValidDelaunay(Vask_2D& dt, std::size_t maxEmptyCircleTests = static_cast<std::size_t>(-1)) {
  if (!dt.hasArea()) {
    std::vector<Triangle2*> vT;
    std::vector<Point2*> vVertices;
    dt.getTrianglePointers(vT);
    dt.getVertexPointers(vVertices);
    if (!vT.empty() || dt.numberOfTriangles() != 0) return ::testing::AssertionFailure() << "triangles without area";
    if (vVertices.size() != dt.numberOfPoints()) return ::testing::AssertionFailure() << "vertex count differs";
    const Point2* pFirst(vVertices.empty() ? nullptr : vVertices[0]);
    const Point2* pSecond(nullptr);
    for (const Point2* p : vVertices) {
      if (p->getIncidentTriangle() != nullptr) return ::testing::AssertionFailure() << "vertex keeps a triangle";
      if (pSecond == nullptr && *p != *pFirst) pSecond = p;
      if (pSecond != nullptr && vask_test::exactOrientation(*pFirst, *pSecond, *p) != 0)
        return ::testing::AssertionFailure() << "no area, but the points are not collinear";
    }
    return ::testing::AssertionSuccess();
  }
  const Validation v(vask_test::validate(dt, true, maxEmptyCircleTests));
  if (v.ok) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << v.numErrors << " error(s), first: " << v.firstError;
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

TEST(Removal, InnerVertexOfDegreeThreeMergesItsTriangles) {
  Vask_2D dt;
  dt.insert(Point2(0, 0));
  dt.insert(Point2(10, 0));
  dt.insert(Point2(0, 10));
  Point2* pInner(dt.insert(Point2(2, 3)));
  ASSERT_EQ(dt.numberOfTriangles(), 3u);
  dt.remove(pInner);
  EXPECT_EQ(dt.numberOfTriangles(), 1u);
  EXPECT_EQ(dt.numberOfPoints(), 3u);
  EXPECT_TRUE(isValidDelaunay(dt));
  EXPECT_EQ(pInner->getIncidentTriangle(), nullptr);
}

TEST(Removal, InnerVertexOnTheEdgeOfItsRingTriangle) {
  // The inner vertex (5,0) lies on the segment between two ring corners
  // (0,0)-(10,0); after its removal the ring triangle has it on an edge.
  Vask_2D dt;
  dt.insert(Point2(0, 0));
  dt.insert(Point2(10, 0));
  dt.insert(Point2(5, 5));
  dt.insert(Point2(5, -5));
  Point2* pMid(dt.insert(Point2(5, 0)));
  ASSERT_EQ(dt.numberOfTriangles(), 4u);
  dt.remove(pMid);
  EXPECT_EQ(dt.numberOfTriangles(), 2u);
  EXPECT_TRUE(isValidDelaunay(dt));
}

TEST(Removal, HullVertexOfConvexQuadrilateralLeavesOneTriangle) {
  Vask_2D dt;
  std::vector<Point2*> vH;
  dt.insert({Point2(0, 0), Point2(4, 0), Point2(5, 3), Point2(1, 4)}, vH);
  ASSERT_EQ(dt.numberOfTriangles(), 2u);
  for (int k = 0; k < 4; ++k) {
    Vask_2D local;
    std::vector<Point2*> vL;
    local.insert({Point2(0, 0), Point2(4, 0), Point2(5, 3), Point2(1, 4)}, vL);
    local.remove(vL[k]);
    EXPECT_EQ(local.numberOfTriangles(), 1u) << "corner " << k;
    EXPECT_EQ(local.numberOfPoints(), 3u);
    EXPECT_TRUE(isValidDelaunay(local));
  }
}

TEST(Removal, LastTriangleCornerReturnsToCollinearStateAndOut) {
  Vask_2D dt;
  Point2* a(dt.insert(Point2(0, 0)));
  Point2* b(dt.insert(Point2(1, 0)));
  Point2* c(dt.insert(Point2(0, 1)));
  ASSERT_TRUE(dt.hasArea());
  dt.remove(c);
  EXPECT_FALSE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_EQ(dt.numberOfPoints(), 2u);
  std::vector<Triangle2*> vT;
  dt.getTrianglePointers(vT);
  EXPECT_TRUE(vT.empty());
  EXPECT_EQ(a->getIncidentTriangle(), nullptr);
  EXPECT_EQ(b->getIncidentTriangle(), nullptr);
  // Points on the line wait; a point off it brings the area back.
  Point2* d(dt.insert(Point2(2, 0)));
  EXPECT_FALSE(dt.hasArea());
  EXPECT_EQ(dt.numberOfPoints(), 3u);
  Point2* e(dt.insert(Point2(1, 1)));
  ASSERT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfPoints(), 4u);
  EXPECT_EQ(dt.numberOfTriangles(), 2u);
  EXPECT_TRUE(isValidDelaunay(dt));
  EXPECT_NE(a->getIncidentTriangle(), nullptr);
  EXPECT_NE(d->getIncidentTriangle(), nullptr);
  EXPECT_NE(e->getIncidentTriangle(), nullptr);
}

TEST(Removal, ManyCollinearPointsRemainAfterTheLastOffLinePointLeaves) {
  Vask_2D dt;
  std::vector<Point2> vLine;
  for (int i = 0; i < 50; ++i) vLine.emplace_back(i * 0.5, i * 0.25);
  std::vector<Point2*> vH;
  dt.insert(vLine, vH);
  ASSERT_FALSE(dt.hasArea());
  Point2* pOff(dt.insert(Point2(3, 7)));
  ASSERT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 49u);
  dt.remove(pOff);
  EXPECT_FALSE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_EQ(dt.numberOfPoints(), 50u);
  for (Point2* p : vH) EXPECT_EQ(p->getIncidentTriangle(), nullptr);
  // Removing in the collinear state lowers the count, and the points come
  // back into a triangulation with the next point off the line.
  dt.remove(vH[10]);
  dt.remove(vH[0]);
  EXPECT_EQ(dt.numberOfPoints(), 48u);
  dt.insert(Point2(3, -7));
  ASSERT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfPoints(), 49u);
  EXPECT_EQ(dt.numberOfTriangles(), 47u);
  EXPECT_TRUE(isValidDelaunay(dt));
}

TEST(Removal, CollinearStateRemovalDownToEmpty) {
  Vask_2D dt;
  std::vector<Point2*> vH;
  dt.insert({Point2(0, 0), Point2(1, 1), Point2(2, 2), Point2(3, 3)}, vH);
  ASSERT_FALSE(dt.hasArea());
  for (unsigned k = 0; k < 4; ++k) {
    dt.remove(vH[k]);
    EXPECT_EQ(dt.numberOfPoints(), 3 - k);
    EXPECT_FALSE(dt.hasArea());
  }
  dt.insert({Point2(0, 0), Point2(1, 0), Point2(0, 1)});
  EXPECT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 1u);
  EXPECT_TRUE(isValidDelaunay(dt));
}

TEST(Removal, MiddleVertexOfStraightHullEdgeKeepsTheEdgeStraight) {
  Vask_2D dt;
  std::vector<Point2*> vBottom;
  for (int i = 0; i <= 6; ++i) vBottom.push_back(dt.insert(Point2(i, 0)));
  dt.insert(Point2(3, 4));
  dt.insert(Point2(1, 2));
  dt.insert(Point2(5, 2.5));
  ASSERT_TRUE(isValidDelaunay(dt));
  std::vector<Point2*> vCornersBefore;
  dt.getConvexHull(false, vCornersBefore);
  for (int idx : {3, 1, 5, 2}) {
    dt.remove(vBottom[idx]);
    ASSERT_TRUE(isValidDelaunay(dt)) << "after removing (" << idx << ",0)";
    std::vector<Point2*> vHull;
    dt.getConvexHull(true, vHull);
    // All remaining points of the bottom line are still on the hull, and the
    // hull's corners are unchanged: the edge stays straight.
    for (int k : {0, 4, 6})
      EXPECT_NE(std::find(vHull.begin(), vHull.end(), vBottom[k]), vHull.end()) << "(" << k << ",0) left the hull";
    std::vector<Point2*> vCorners;
    dt.getConvexHull(false, vCorners);
    EXPECT_EQ(vCorners, vCornersBefore);
  }
}

TEST(Removal, EndOfStraightHullEdge) {
  Vask_2D dt;
  std::vector<Point2*> vBottom;
  for (int i = 0; i <= 4; ++i) vBottom.push_back(dt.insert(Point2(i, 0)));
  dt.insert(Point2(2, 3));
  dt.remove(vBottom[0]);
  EXPECT_TRUE(isValidDelaunay(dt));
  dt.remove(vBottom[4]);
  EXPECT_TRUE(isValidDelaunay(dt));
  EXPECT_EQ(dt.numberOfTriangles(), 2u);
}

TEST(Removal, ReinsertedPointGetsANewHandle) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(200, 3));
  Point2* p(dt.insert(Point2(0.5, 0.5)));
  const unsigned numPoints(dt.numberOfPoints());
  dt.remove(p);
  EXPECT_EQ(dt.numberOfPoints(), numPoints - 1);
  Point2* q(dt.insert(Point2(0.5, 0.5)));
  EXPECT_NE(q, p);
  EXPECT_EQ(dt.numberOfPoints(), numPoints);
  EXPECT_TRUE(isValidDelaunay(dt));
  // The old handle stays refused, also now that its coordinates are back.
  const Snapshot before(dt);
  const std::string out(captureRemove(dt, p));
  EXPECT_NE(out.find("vertex does not belong to the triangulation, return"), std::string::npos);
  EXPECT_TRUE(Snapshot(dt) == before);
}

TEST(Removal, ReinsertedPointInCollinearStateGetsANewHandle) {
  Vask_2D dt;
  Point2* a(dt.insert(Point2(0, 0)));
  dt.insert(Point2(1, 0));
  dt.remove(a);
  Point2* b(dt.insert(Point2(0, 0)));
  EXPECT_NE(a, b);
  EXPECT_EQ(dt.numberOfPoints(), 2u);
  const std::string out(captureRemove(dt, a));
  EXPECT_NE(out.find("vertex does not belong to the triangulation, return"), std::string::npos);
  EXPECT_EQ(dt.numberOfPoints(), 2u);
}

// ---------------------------------------------------------------- refusals

TEST(RemovalRefusal, NullPointerWarnsAndChangesNothing) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(100, 1));
  const Snapshot before(dt);
  const std::string out(captureRemove(dt, nullptr));
  EXPECT_NE(out.find("Dt2::remove(), WARNING: pVtx==NULL, illegal, return."), std::string::npos) << out;
  EXPECT_TRUE(Snapshot(dt) == before);
  Vask_2D empty;
  EXPECT_NE(captureRemove(empty, nullptr).find("pVtx==NULL"), std::string::npos);
  EXPECT_EQ(empty.numberOfPoints(), 0u);
}

TEST(RemovalRefusal, RemovedHandleInnerAndHullWarnsAndChangesNothing) {
  Vask_2D dt;
  std::vector<Point2*> vH;
  dt.insert(vask_test::randomPoints(300, 2), vH);
  std::vector<Point2*> vHull;
  dt.getConvexHull(true, vHull);
  Point2* pHull(vHull[0]);
  Point2* pInner(nullptr);
  for (Point2* p : vH)
    if (std::find(vHull.begin(), vHull.end(), p) == vHull.end()) pInner = p;
  ASSERT_NE(pInner, nullptr);
  dt.remove(pInner);
  dt.remove(pHull);
  const Snapshot before(dt);
  for (Point2* p : {pInner, pHull, pInner}) {
    const std::string out(captureRemove(dt, p));
    EXPECT_NE(out.find("Dt2::remove(..), WARNING: vertex does not belong to the triangulation, return"),
              std::string::npos)
        << out;
    EXPECT_TRUE(Snapshot(dt) == before);
  }
  EXPECT_TRUE(isValidDelaunay(dt));
}

TEST(RemovalRefusal, RemovedHandleInCollinearStateWarnsAndChangesNothing) {
  Vask_2D dt;
  std::vector<Point2*> vH;
  dt.insert({Point2(0, 0), Point2(1, 0), Point2(2, 0)}, vH);
  dt.remove(vH[1]);
  const Snapshot before(dt);
  const std::string out(captureRemove(dt, vH[1]));
  EXPECT_NE(out.find("vertex does not belong to the triangulation, return"), std::string::npos);
  EXPECT_TRUE(Snapshot(dt) == before);
  // The same after the way down from a triangulation.
  Vask_2D dt2;
  Point2* a(dt2.insert(Point2(0, 0)));
  dt2.insert(Point2(1, 0));
  Point2* c(dt2.insert(Point2(0, 1)));
  dt2.remove(c);
  dt2.remove(a);
  ASSERT_EQ(dt2.numberOfPoints(), 1u);
  EXPECT_NE(captureRemove(dt2, c).find("does not belong"), std::string::npos);
  EXPECT_NE(captureRemove(dt2, a).find("does not belong"), std::string::npos);
  EXPECT_EQ(dt2.numberOfPoints(), 1u);
}

TEST(RemovalRefusal, HandleOfAnotherTriangulationWarnsAndChangesNothing) {
  const std::vector<Point2> vPoints(vask_test::randomPoints(200, 4));
  Vask_2D dt, other;
  std::vector<Point2*> vH, vOther;
  dt.insert(vPoints, vH);
  other.insert(vPoints, vOther);
  const Snapshot before(dt), beforeOther(other);
  for (std::size_t i = 0; i < 20; ++i) {
    const std::string out(captureRemove(dt, vOther[i]));
    EXPECT_NE(out.find("vertex does not belong to the triangulation, return"), std::string::npos);
  }
  EXPECT_TRUE(Snapshot(dt) == before);
  EXPECT_TRUE(Snapshot(other) == beforeOther);
  EXPECT_TRUE(isValidDelaunay(other));
  // A free point with the coordinates of a vertex is no handle either.
  Point2 copy(*vH[7]);
  EXPECT_NE(captureRemove(dt, &copy).find("does not belong"), std::string::npos);
  EXPECT_TRUE(Snapshot(dt) == before);
  // In the collinear state, where the vault is asked by coordinates.
  Vask_2D line, otherLine;
  std::vector<Point2*> vLine, vOtherLine;
  line.insert({Point2(0, 0), Point2(1, 0), Point2(2, 0)}, vLine);
  otherLine.insert({Point2(0, 0), Point2(1, 0), Point2(2, 0)}, vOtherLine);
  EXPECT_NE(captureRemove(line, vOtherLine[1]).find("does not belong"), std::string::npos);
  EXPECT_EQ(line.numberOfPoints(), 3u);
  EXPECT_EQ(otherLine.numberOfPoints(), 3u);
}

TEST(RemovalRefusal, DuplicateSharesOneHandleWhichGoesOnce) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(100, 5));
  Point2* p(dt.insert(Point2(0.25, 0.75)));
  Point2* pDup(dt.insert(Point2(0.25, 0.75)));
  ASSERT_EQ(p, pDup);
  std::vector<Point2*> vH;
  dt.insert({Point2(0.6, 0.6), Point2(0.6, 0.6)}, vH);
  ASSERT_EQ(vH[0], vH[1]);
  dt.remove(p);
  dt.remove(vH[0]);
  const Snapshot before(dt);
  EXPECT_NE(captureRemove(dt, pDup).find("does not belong"), std::string::npos);
  EXPECT_NE(captureRemove(dt, vH[1]).find("does not belong"), std::string::npos);
  EXPECT_TRUE(Snapshot(dt) == before);
  EXPECT_TRUE(isValidDelaunay(dt));
}

// ------------------------------------------------ sequences, every step checked

TEST(RemovalSequence, RandomPointsAllVerticesOneByOne) {
  for (unsigned seed : {11u, 12u, 13u}) {
    SCOPED_TRACE(seed);
    removeAllInRandomOrder(vask_test::randomPoints(400, seed), seed);
  }
}

TEST(RemovalSequence, GridWithAllCellsCocircular) {
  removeAllInRandomOrder(vask_test::gridPoints(20), 21);
}

TEST(RemovalSequence, PointsOnACircleAllOnTheHull) {
  removeAllInRandomOrder(vask_test::circlePoints(300, 0.5, 0.5, 0.5), 31);
}

TEST(RemovalSequence, CentreOfACircleHasHighDegree) {
  // The centre is an inner vertex of degree 200: the ear search runs long.
  std::vector<Point2> vPoints(vask_test::circlePoints(200, 0.0, 0.0, 1.0));
  Vask_2D dt;
  dt.insert(vPoints);
  Point2* pCentre(dt.insert(Point2(0.0, 0.0)));
  std::vector<Triangle2*> vIncT;
  dt.getIncidentTriangles(pCentre, vIncT);
  ASSERT_EQ(vIncT.size(), 200u);
  dt.remove(pCentre);
  EXPECT_TRUE(isValidDelaunay(dt));
  EXPECT_EQ(dt.numberOfPoints(), 200u);
  EXPECT_EQ(dt.numberOfTriangles(), 198u);
}

TEST(RemovalSequence, PeelingTheHullRepeatedly) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(600, 41));
  while (dt.hasArea()) {
    std::vector<Point2*> vHull;
    dt.getConvexHull(true, vHull);
    for (Point2* p : vHull) {
      if (!dt.hasArea()) break;
      dt.remove(p);
      ASSERT_TRUE(isValidDelaunay(dt)) << dt.numberOfPoints() << " points left";
    }
  }
  EXPECT_LE(dt.numberOfPoints(), 600u);
}

TEST(RemovalSequence, NearDegenerateGridPerturbedByOneUlp) {
  // A grid whose points are moved by single ulps: cocircular and collinear
  // tests sit right at zero and only the exact stage can decide them.
  std::vector<Point2> vPoints;
  std::mt19937 gen(51);
  for (int i = 0; i < 18; ++i) {
    for (int j = 0; j < 18; ++j) {
      double x(0.1 * i), y(0.1 * j);
      const unsigned r(gen() % 5);
      if (r == 1) x = std::nextafter(x, 2.0);
      if (r == 2) y = std::nextafter(y, -2.0);
      if (r == 3) {
        x = std::nextafter(x, -2.0);
        y = std::nextafter(y, 2.0);
      }
      vPoints.emplace_back(x, y);
    }
  }
  removeAllInRandomOrder(vPoints, 52);
}

TEST(RemovalSequence, PointsOnFewLinesAndCircles) {
  // Many collinear triples and cocircular quadruples at once.
  std::vector<Point2> vPoints;
  for (int i = 0; i < 60; ++i) vPoints.emplace_back(i, 0);
  for (int i = 0; i < 60; ++i) vPoints.emplace_back(i, 30);
  for (int i = 1; i < 30; ++i) vPoints.emplace_back(30, i);
  const std::vector<Point2> vCircle(vask_test::circlePoints(64, 30, 15, 10));
  vPoints.insert(vPoints.end(), vCircle.begin(), vCircle.end());
  removeAllInRandomOrder(vPoints, 61);
}

TEST(RemovalSequence, InterleavedInsertionAndRemoval) {
  Vask_2D dt;
  std::vector<Point2*> vLive;
  std::mt19937 gen(71);
  std::uniform_real_distribution<double> dist(0.0, 1.0);
  for (int round = 0; round < 1500; ++round) {
    if (vLive.size() < 20 || gen() % 3 != 0) {
      const double x(dist(gen));
      Point2* p(dt.insert(Point2(x, dist(gen))));
      if (std::find(vLive.begin(), vLive.end(), p) == vLive.end()) vLive.push_back(p);
    } else {
      const std::size_t k(gen() % vLive.size());
      dt.remove(vLive[k]);
      vLive[k] = vLive.back();
      vLive.pop_back();
    }
    ASSERT_EQ(dt.numberOfPoints(), vLive.size());
    if (round % 25 == 0) ASSERT_TRUE(isValidDelaunay(dt)) << "round " << round;
  }
  EXPECT_TRUE(isValidDelaunay(dt));
}

TEST(RemovalSequence, LibraryCheckAgreesAfterRemovals) {
  Vask_2D dt;
  std::vector<Point2*> vH;
  dt.insert(vask_test::randomPoints(2000, 81), vH);
  for (std::size_t i = 0; i < vH.size(); i += 2) dt.remove(vH[i]);
  ::testing::internal::CaptureStdout();
  const bool bValid(dt.checkValidity(true, "after removals"));
  ::testing::internal::GetCapturedStdout();
  EXPECT_TRUE(bValid);
  EXPECT_EQ(dt.getImpl()->getRemovedVertices().size(), 1000u);
}

TEST(RemovalSequence, AfterBatchInsertionWithSeveralWorkers) {
  // The batch path with workers raises and removes temporary outer corners;
  // the vertices it leaves must remove like any others.
  Vask_2D dt;
  dt.setNumCPU(2);
  std::vector<Point2*> vH;
  dt.insert(vask_test::randomPoints(20000, 121), vH);
  ASSERT_TRUE(isValidDelaunay(dt));
  std::shuffle(vH.begin(), vH.end(), std::mt19937(122));
  for (std::size_t k = 0; k < vH.size(); ++k) {
    dt.remove(vH[k]);
    if (k % 2000 == 0) ASSERT_TRUE(isValidDelaunay(dt)) << "step " << k;
  }
  EXPECT_EQ(dt.numberOfPoints(), 0u);
  EXPECT_FALSE(dt.hasArea());
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

TEST(RemovalLarge, HalfThenAllOf200000RandomPoints) {
  const std::size_t n(200000);
  const std::vector<Point2> vPoints(vask_test::randomPoints(n, 91));
  Vask_2D dt;
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
