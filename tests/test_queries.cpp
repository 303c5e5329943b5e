// Read-only operations: locate, adjacency, incident lists, hull, box, the
// validity check and its reports, statistics, timing, and the facade's
// small services.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "core/StraightWalk.h"
#include "helpers/ExactOracle.h"
#include "helpers/TestHelpers.h"
#include "support/Histogram.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <thread>

using namespace KIRO_VASK2D;

namespace {

// A square (0,0)-(4,4) with its centre and the midpoint of the bottom side.
void makeSquare(Vask_2D& dt, std::vector<Point2*>& vHandles) {
  const Point2 aPoints[] = {Point2(0, 0), Point2(4, 0), Point2(4, 4), Point2(0, 4), Point2(2, 2), Point2(2, 0)};
  for (const Point2& p : aPoints) vHandles.push_back(dt.insert(p));
}

bool triangleContains(const Triangle2* pT, const Point2& q) {
  for (int i = 0; i < 3; ++i)
    if (vask_test::exactOrientation(*pT->getCorner((i + 1) % 3), *pT->getCorner((i + 2) % 3), q) < 0) return false;
  return true;
}

} // namespace

TEST(Queries, LocateFindsTheContainingTriangleOrNull) {
  Vask_2D dt;
  EXPECT_EQ(dt.locate(Point2(0, 0)), nullptr); // no area yet
  dt.insert(vask_test::randomPoints(5000, 3));
  for (const Point2& q : vask_test::randomPoints(2000, 4)) {
    Triangle2* pT(dt.locate(q));
    if (pT == nullptr) continue; // outside the hull near the corners
    EXPECT_TRUE(triangleContains(pT, q));
  }
  std::vector<Point2*> vHandles;
  Vask_2D square;
  makeSquare(square, vHandles);
  EXPECT_EQ(square.locate(Point2(5, 1)), nullptr);
  EXPECT_EQ(square.locate(Point2(6, 0)), nullptr);   // on the hull's line beyond its end
  EXPECT_EQ(square.locate(Point2(-1e200, 3)), nullptr); // far away, beyond the static bound
  for (const Point2& q : {Point2(1, 0), Point2(4, 2.5), Point2(2, 2), Point2(0, 4), Point2(1, 1), Point2(3.9, 0.1)}) {
    Triangle2* pT(square.locate(q));
    ASSERT_NE(pT, nullptr) << q;
    EXPECT_TRUE(triangleContains(pT, q)) << q;
  }
}

// Where a walk ended, judged exactly: p equals a corner, lies in the closed
// triangle (on the named inner edge, or strictly inside), or on or beyond
// the named hull edge.
::testing::AssertionResult isRightEnd(const Triangle2* pT, LocateResult r, int edgeIdx, const Point2& p) {
  auto side = [&](int e) { return vask_test::exactOrientation(*pT->getCorner((e + 1) % 3), *pT->getCorner((e + 2) % 3), p); };
  if (r == LR_VERTEX) {
    for (int i = 0; i < 3; ++i)
      if (*pT->getCorner(i) == p) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "no corner is " << p;
  }
  if (isHullResult(r)) {
    if (pT->getOppositeTriangle(r) != nullptr || side(r) > 0) return ::testing::AssertionFailure() << "hull " << r;
    return ::testing::AssertionSuccess();
  }
  for (int e = 0; e < 3; ++e) {
    const int s(side(e));
    if (s < 0 || (s == 0) != (e == edgeIdx)) return ::testing::AssertionFailure() << "edge " << e << " side " << s;
  }
  if (edgeIdx >= 0 && pT->getOppositeTriangle(edgeIdx) == nullptr) return ::testing::AssertionFailure() << "hull edge";
  return ::testing::AssertionSuccess();
}

// The straight walk, which takes over from long visibility walks, ends right
// from any start in a constrained (non-Delaunay) mesh: for corners, points on
// edges, inner points and points outside the hull, also on its lines.
TEST(Queries, StraightWalksEndRightFromAnyStartInConstrainedMeshes) {
  Vask_2D dt;
  std::vector<Point2> vGrid;
  for (int i = 0; i < 25; ++i)
    for (int j = 0; j < 25; ++j) vGrid.push_back(Point2(2.0 * i, 2.0 * j));
  dt.insert(vGrid);
  std::mt19937_64 gen(11);
  std::vector<Segment2> vSeg;
  for (int k = 0; k < 30; ++k) {
    const Point2 a(vask_test::uniform(gen, 0, 48), vask_test::uniform(gen, 0, 48));
    const Point2 b(vask_test::uniform(gen, 0, 48), vask_test::uniform(gen, 0, 48));
    vSeg.push_back(Segment2(a, b));
  }
  ASSERT_NE(dt.createConstraint(vSeg, CIS_CONSTRAINED_DELAUNAY), nullptr);
  std::vector<Triangle2*> vT;
  dt.getTrianglePointers(vT);
  std::vector<Point2> vQuery;
  for (const Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) {
      const Point2 &a(*pT->getCorner(i)), &b(*pT->getCorner((i + 1) % 3));
      vQuery.push_back(a);
      vQuery.push_back(Point2(a.x() / 2 + b.x() / 2, a.y() / 2 + b.y() / 2));
    }
  for (int k = 0; k < 300; ++k) vQuery.push_back(Point2(vask_test::uniform(gen, -20, 70), vask_test::uniform(gen, -20, 70)));
  for (double t : {-3.0, 17.0, 50.0, 60.0}) {
    vQuery.push_back(Point2(t, 0.0));
    vQuery.push_back(Point2(48.0, t));
  }
  Dt2* pDt2(dt.getImpl());
  for (std::size_t k = 0; k < vQuery.size(); ++k) {
    const Point2& p(vQuery[k]);
    Triangle2* pStart(vT[gen() % vT.size()]);
    Triangle2* pT(pStart);
    int edgeIdx(-1);
    const StraightWalkEnd end(walkStraight(pDt2->getKiroTest(), p, pT, static_cast<int>(gen() % 3), edgeIdx,
                                           [](const Triangle2*) {}));
    // The walk's own ends are strict beyond the hull; on a hull edge it ends
    // inside with that edge named.
    if (end == SWE_INSIDE && edgeIdx >= 0 && pT->getOppositeTriangle(edgeIdx) == nullptr)
      ASSERT_EQ(vask_test::exactOrientation(*pT->getCorner((edgeIdx + 1) % 3), *pT->getCorner((edgeIdx + 2) % 3), p), 0);
    else if (end == SWE_INSIDE || end == SWE_VERTEX)
      ASSERT_TRUE(isRightEnd(pT, end == SWE_VERTEX ? LR_VERTEX : LR_INSIDE, edgeIdx, p)) << p;
    else
      ASSERT_LT(vask_test::exactOrientation(*pT->getCorner((end + 1) % 3), *pT->getCorner((end + 2) % 3), p), 0) << p;
    pT = pStart;
    const LocateResult r(pDt2->locateStraight(p, pT, edgeIdx));
    ASSERT_TRUE(isRightEnd(pT, r, edgeIdx, p)) << p;
  }
}

TEST(Queries, AdjacencyAndIncidentListsNameEachNeighbourOnce) {
  Vask_2D dt;
  std::vector<Point2*> v;
  makeSquare(dt, v);
  // v: 0 (0,0), 1 (4,0), 2 (4,4), 3 (0,4), 4 centre, 5 (2,0)
  Triangle2* pT(dt.getAdjacentTriangle(v[5], v[1]));
  ASSERT_NE(pT, nullptr);
  EXPECT_TRUE(pT->hasVertex(v[4]));
  EXPECT_EQ(dt.getAdjacentTriangle(v[1], v[5]), nullptr); // hull edge against its direction
  EXPECT_EQ(dt.getAdjacentTriangle(v[0], v[2]), nullptr); // no edge
  EXPECT_THROW(dt.getAdjacentTriangle(v[0], v[0]), VaskException);
  EXPECT_THROW(dt.getAdjacentTriangle(nullptr, v[0]), VaskException);
  Dt2* pDt2(dt.getImpl());
  EXPECT_TRUE(pDt2->isAdjacent(v[4], v[0]));
  EXPECT_FALSE(pDt2->isAdjacent(v[0], v[2]));
  EXPECT_EQ(pDt2->findVertex(Point2(2, 2)), v[4]);
  EXPECT_EQ(pDt2->findVertex(Point2(2, 2.5)), nullptr);
  EXPECT_FALSE(pDt2->isDegenerate(pT));
  std::vector<Point2*> vInc;
  dt.getIncidentVertices(v[4], vInc);
  EXPECT_EQ(vInc.size(), 5u);
  std::vector<Triangle2*> vIncT;
  dt.getIncidentTriangles(v[4], vIncT);
  EXPECT_EQ(vIncT.size(), 5u);
  vIncT.clear();
  dt.getIncidentTriangles(v[5], vIncT); // a hull vertex: the gap is skipped
  EXPECT_EQ(vIncT.size(), 2u);
  dt.getIncidentVertices(v[0], vInc); // appends without clearing
  EXPECT_EQ(vInc.size(), 5u + 3u);
}

TEST(Queries, ConvexHullInBothFormsIsCounterClockwiseFromTheLeftmostPoint) {
  Vask_2D dt;
  std::vector<Point2*> v;
  makeSquare(dt, v);
  std::vector<Point2*> vAll, vCorners;
  dt.getConvexHull(true, vAll);
  dt.getConvexHull(false, vCorners);
  ASSERT_EQ(vAll.size(), 5u);
  ASSERT_EQ(vCorners.size(), 4u);
  EXPECT_EQ(vAll[0], v[0]);
  EXPECT_EQ(vAll[1], v[5]);
  EXPECT_EQ(vAll[2], v[1]);
  EXPECT_EQ(vCorners[0], v[0]);
  EXPECT_EQ(vCorners[1], v[1]);
  EXPECT_EQ(vCorners[2], v[2]);
  EXPECT_EQ(vCorners[3], v[3]);
  std::vector<std::pair<Triangle2*, int> > vEdges;
  dt.getImpl()->getConvexHullEdges(vEdges);
  ASSERT_EQ(vEdges.size(), 5u);
  for (size_t i = 0; i < vEdges.size(); ++i) {
    const std::pair<Triangle2*, int>& e(vEdges[i]);
    const std::pair<Triangle2*, int>& next(vEdges[(i + 1) % vEdges.size()]);
    EXPECT_EQ(e.first->getOppositeTriangle(e.second), nullptr);
    // Each edge ends where the next begins.
    EXPECT_EQ(e.first->getCorner((e.second + 2) % 3), next.first->getCorner((next.second + 1) % 3));
  }
  // Random points: the hull of the library equals an independent hull.
  Vask_2D rnd;
  rnd.insert(vask_test::randomPoints(3000, 17));
  std::vector<Point2*> vHull;
  rnd.getConvexHull(false, vHull);
  for (size_t i = 0; i < vHull.size(); ++i)
    EXPECT_EQ(vask_test::exactOrientation(*vHull[i], *vHull[(i + 1) % vHull.size()], *vHull[(i + 2) % vHull.size()]), 1);
  // Without area: a warning and nothing.
  Vask_2D empty;
  std::vector<Point2*> vNone;
  testing::internal::CaptureStdout();
  empty.getConvexHull(true, vNone);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_TRUE(vNone.empty());
  EXPECT_NE(out.find("Dt2::getConvexHull(), WARNING: the triangulation has no area yet"), std::string::npos);
}

TEST(Queries, CheckValidityReportsBrokenLinksAndEmptyCircleFaults) {
  Vask_2D dt;
  testing::internal::CaptureStdout();
  EXPECT_TRUE(dt.checkValidity(true, "none"));
  std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("checkValidity(none), INFO: not fulldimensional yet (empty or all points collinear), Returning true"),
            std::string::npos);
  std::vector<Point2*> v;
  makeSquare(dt, v);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(dt.checkValidity(true, "square"));
  out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Vask_2D::CheckValidity(square), INFO: Valid triangulation"), std::string::npos);
  // Flip a Delaunay edge: still a valid mesh, no longer Delaunay.
  Triangle2* pT(dt.getAdjacentTriangle(v[4], v[1]));
  ASSERT_NE(pT, nullptr);
  Dt2* pDt2(dt.getImpl());
  const int i(pT->getIntraTriangleIndex(v[4], v[1]));
  ASSERT_TRUE(pDt2->canBeFlipped(pT, i));
  pDt2->flip(pT, i);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(dt.checkValidity(false, "flipped"));
  EXPECT_FALSE(dt.checkValidity(true, "flipped"));
  out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Sphere inclusion test failed"), std::string::npos);
  EXPECT_NE(out.find("checkValidity, bug, name=flipped"), std::string::npos);
  EXPECT_FALSE(vask_test::validate(dt).ok);
  // bfsFlipIncident repairs it.
  pDt2->bfsFlipIncident(v[4]);
  pDt2->bfsFlipIncident(v[1]);
  EXPECT_TRUE(vask_test::validate(dt).ok);
  // A one-sided link.
  Triangle2* pN(pT->getOppositeTriangle(0) ? pT->getOppositeTriangle(0) : pT->getOppositeTriangle(1));
  ASSERT_NE(pN, nullptr);
  const int back(pN->getIntraTriangleIndex(pT));
  pN->setOppTriangle(back, nullptr);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(dt.checkValidity(true, "broken"));
  out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Inconsistent neighborships:"), std::string::npos);
  pN->setOppTriangle(back, pT);
}

TEST(Queries, StatisticsPrintTheAngleHistogramBinnedByTheFirstLimitNotBelow) {
  Vask_2D dt;
  testing::internal::CaptureStdout();
  dt.statistics("empty");
  std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("********* MESH STATISTICS (empty) **********"), std::string::npos);
  EXPECT_NE(out.find("Empty histogram [ INTERIOR ANGLES ]"), std::string::npos);
  dt.insert(vask_test::gridPoints(3));
  testing::internal::CaptureStdout();
  dt.statistics("grid");
  out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Number of triangles: 8"), std::string::npos);
  EXPECT_NE(out.find("INTERIOR ANGLES (avg=60"), std::string::npos);
  EXPECT_NE(out.find("40 - 50: 16"), std::string::npos);
  EXPECT_NE(out.find("80 - 90: 8"), std::string::npos);
  // Values go to the first limit not below them.
  Histogram h("H", {10, 20, 30});
  for (double v : {0.0, 10.0, 10.5, 20.0, 29.0, 45.0}) h.add(v);
  EXPECT_EQ(h.getBinCount(10), 2u);
  EXPECT_EQ(h.getBinCount(20), 2u);
  EXPECT_EQ(h.getBinCount(30), 2u); // 45 lies beyond the last limit
  EXPECT_EQ(h.getCount(), 6u);
  EXPECT_DOUBLE_EQ(h.getAverage(), 114.5 / 6);
  EXPECT_EQ(h.getMax(), 45.0);
  std::ostringstream oss;
  h.print(oss);
  EXPECT_NE(oss.str().find("H (avg="), std::string::npos);
  EXPECT_NE(oss.str().find("  max: 45"), std::string::npos);
}


TEST(Queries, FacadeServices) {
  Vask_2D dt;
  dt.setName("mesh A");
  EXPECT_STREQ(dt.getName(), "mesh A");
  EXPECT_EQ(dt.setNumCPU(3), 3);
  EXPECT_EQ(dt.setNumCPU(-2), 1);
  EXPECT_EQ(dt.setNumCPU(0), static_cast<int>(std::max(1u, std::thread::hardware_concurrency())));
  dt.setDev("switch", 4, 2.5);
  int i(0);
  double d(0.0);
  EXPECT_TRUE(dt.getImpl()->getDev("switch", i, d));
  EXPECT_EQ(i, 4);
  EXPECT_EQ(d, 2.5);
  testing::internal::CaptureStdout();
  dt.internal(-7, -1000, "x");
  dt.internal(1, 2, "x");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "internal debug is disbled in your version\n");
  EXPECT_EQ(dt.getOrientation(Point2(0, 0), Point2(1, 1.0 / 3.0), Point2(3, 1)), ORIENTATION2_CCW); // 1/3 rounds down
  EXPECT_EQ(dt.getOrientation(Point2(0, 0), Point2(1, 0), Point2(2, 1)), ORIENTATION2_CCW);
  // The bounding box is the tight box of the vertices.
  for (const Point2& p : {Point2(-1, 2), Point2(3, -5), Point2(0.5, 7), Point2(0.5, 7)}) dt.insert(p);
  const Bbox2 box(dt.computeBoundingBox());
  EXPECT_EQ(box.getMinPoint(), Point2(-1, -5));
  EXPECT_EQ(box.getMaxPoint(), Point2(3, 7));
  // Measuring a triangulation time leaves the triangulation alone.
  std::vector<Point2> vPoints(vask_test::randomPoints(20000, 2));
  EXPECT_GT(dt.measureTriangulationTime(vPoints), 0.0);
  EXPECT_EQ(dt.numberOfPoints(), 3u);
}
