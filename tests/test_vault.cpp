// The vertex vault (records in Hilbert order, duplicates, start triangles,
// the fake box) and the chunk of the multi-threaded batch, driven directly.
#include "Vask_2D.h"
#include "core/Chunk.h"
#include "core/Dt2.h"
#include "core/VertexVault.h"
#include "helpers/TestHelpers.h"
#include <algorithm>
#include <cmath>
#include <random>
#include <gtest/gtest.h>

using namespace KIRO_VASK2D;
using vask_test::validate;

namespace {

bool recordsSortedByIdx(VertexVault& vault) {
  VtxRecIt first, last;
  vault.getRange(0, first, last);
  return std::is_sorted(first, last, [](const IdxVtxAct* a, const IdxVtxAct* b) { return a->idx < b->idx; });
}

} // namespace

TEST(Vault, RecordOrderPutsActiveFirstThenByIndex) {
  Point2 p(0, 0);
  IdxVtxAct a{5, true, &p}, b{7, true, &p}, c{1, false, &p}, d{2, false, &p};
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(b < c);
  EXPECT_FALSE(c < a);
  EXPECT_FALSE(c < d);
  EXPECT_FALSE(d < c);
}

TEST(Vault, ThreeInitialPointsSkipEqualAndCollinearRecords) {
  Dt2 dt2(3);
  VertexVault& vault(dt2.getVertexVault());
  Point2 *p0, *p1, *p2;
  EXPECT_THROW(vault.getThreeInitialPoints(p0, p1, p2), VaskException);
  std::vector<Point2> vPoints(50, Point2(1, 1));
  vPoints.emplace_back(2, 2);
  vPoints.emplace_back(3, 3);
  vPoints.emplace_back(4, 4.5);
  dt2.insertToVVault(std::vector<Point2>(1, Point2(1, 1)), nullptr);
  EXPECT_FALSE(vault.getThreeInitialPoints(p0, p1, p2));
  dt2.insertToVVault(vPoints, nullptr);
  ASSERT_TRUE(vault.getThreeInitialPoints(p0, p1, p2));
  EXPECT_EQ(vask_test::exactOrientation(*p0, *p1, *p2), 1);
  EXPECT_EQ(vault.numberOfPoints(), 4u);
}

TEST(Vault, BatchRecordsAreInCurveOrderAndHandlesInInputOrder) {
  for (int numCPU : {1, 2, 4}) {
    Vask_2D dt;
    dt.setNumCPU(numCPU);
    const std::vector<Point2> vPoints(vask_test::randomPoints(30000, 5));
    std::vector<Point2*> vHandles;
    dt.insert(vPoints, vHandles);
    VertexVault& vault(dt.getImpl()->getVertexVault());
    EXPECT_TRUE(recordsSortedByIdx(vault));
    EXPECT_EQ(vault.numberOfRecords(), 30000u);
    for (size_t i = 0; i < vPoints.size(); ++i) ASSERT_EQ(*vHandles[i], vPoints[i]);
    // A second batch appends; the lazy rebuild merges it in.
    dt.insert(vask_test::randomPoints(20000, 6));
    EXPECT_TRUE(recordsSortedByIdx(vault));
    EXPECT_EQ(vault.numberOfRecords(), 50000u);
  }
}

TEST(Vault, FindActiveFindsPointsThatShareAnIndex) {
  Vask_2D dt;
  std::vector<Point2> vPoints(vask_test::randomPoints(1000, 8));
  // Points a few ulps apart land in the same Hilbert cell.
  for (int i = 0; i < 20; ++i) vPoints.emplace_back(0.5 + i * 1e-15, 0.5);
  dt.insert(vPoints);
  Dt2* pDt2(dt.getImpl());
  for (const Point2& p : vPoints) {
    Point2* pFound(pDt2->findVertex(p));
    ASSERT_NE(pFound, nullptr);
    EXPECT_EQ(*pFound, p);
  }
  EXPECT_EQ(pDt2->findVertex(Point2(0.5 + 0.5e-15, 0.5)), nullptr);
  EXPECT_EQ(pDt2->findVertex(Point2(7, 7)), nullptr);
  EXPECT_EQ(pDt2->getHilbertIndex(0.5, 0.5), pDt2->getHilbertIndex(0.5 + 1e-15, 0.5));
}

TEST(Vault, CloseTriangleIsFoundThroughTheTailWhenTheSortedPartIsInactive) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(100, 9));
  Dt2* pDt2(dt.getImpl());
  VertexVault& vault(pDt2->getVertexVault());
  Point2* pTail(dt.insert(Point2(0.25, 0.75))); // appended behind the sorted part
  std::vector<Point2*> vVertices;
  vault.getVertices(vVertices);
  // Deactivate every record but the tail's: the mesh is untouched, only the
  // vault forgets them (as a removal would before it relinks triangles).
  for (Point2* p : vVertices)
    if (p != pTail) vault.removeVertexRecord(p);
  Triangle2* pT(vault.getCloseTriangle(pDt2->getHilbertIndex(0.9, 0.1)));
  ASSERT_NE(pT, nullptr);
  EXPECT_TRUE(pT->hasVertex(pTail));
  EXPECT_EQ(vault.numberOfPoints(), 1u);
}

TEST(Vault, RemovingARecordInTheCollinearStateLowersTheCount) {
  Vask_2D dt;
  Point2* p0(dt.insert(Point2(0, 0)));
  dt.insert(Point2(1, 1));
  dt.insert(Point2(2, 2));
  VertexVault& vault(dt.getImpl()->getVertexVault());
  vault.removeVertexRecord(p0);
  EXPECT_EQ(dt.numberOfPoints(), 2u);
  EXPECT_EQ(vault.numberOfRecords(), 2u);
  EXPECT_EQ(dt.insert(Point2(0, 0)) == p0, false);
}

TEST(Vault, DuplicateHandlesOfAReinsertAreReplacedByTheLiveVertex) {
  Vask_2D dt;
  const std::vector<Point2> vPoints(vask_test::randomPoints(2000, 10));
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  Dt2* pDt2(dt.getImpl());
  // Free copies stand for the duplicate vertices of a re-insert.
  std::vector<Point2> vCopies(vPoints.begin(), vPoints.begin() + 600);
  std::vector<Point2*> vProbe;
  for (Point2& p : vCopies) vProbe.push_back(&p);
  vProbe.push_back(vHandles[1999]); // a live vertex stays as it is
  testing::internal::CaptureStdout();
  pDt2->getVertexVault().replaceDuplicateVertexHandlesFullDim(vProbe);
  const std::string out(testing::internal::GetCapturedStdout());
  for (size_t i = 0; i < 600; ++i) EXPECT_EQ(vProbe[i], vHandles[i]);
  EXPECT_EQ(vProbe.back(), vHandles[1999]);
  EXPECT_NE(out.find("possible slow down due to massive duplicate vertex insertion"), std::string::npos);
}

TEST(Vault, FakeBoxAroundAMeshLeavesTheSameMeshBehind) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(3000, 12));
  const std::vector<vask_test::CanonicalTriangle> vBefore(vask_test::canonicalTriangles(dt));
  Dt2* pDt2(dt.getImpl());
  VertexVault& vault(pDt2->getVertexVault());
  vault.createFakeBox(pDt2->getBbox());
  EXPECT_EQ(dt.numberOfTriangles(), 2u * 3004u - 2u - 4u);
  EXPECT_TRUE(dt.checkValidity(true, "fake box"));
  for (size_t i = 0; i < 4; ++i) EXPECT_NE(vault.getFakeBoxCorner(i)->getIncidentTriangle(), nullptr);
  EXPECT_THROW(vault.getFakeBoxCorner(4), VaskException);
  vault.removeFakeBox();
  EXPECT_FALSE(vault.hasFakeBox());
  EXPECT_EQ(vask_test::canonicalTriangles(dt), vBefore);
  EXPECT_TRUE(validate(dt).ok);
}

TEST(Vault, FakeBoxOnCollinearPointsReturnsToTheCollinearState) {
  Vask_2D dt;
  std::vector<Point2> vLine;
  for (int i = 0; i < 10; ++i) vLine.emplace_back(i, 2 * i);
  dt.insert(vLine);
  Dt2* pDt2(dt.getImpl());
  VertexVault& vault(pDt2->getVertexVault());
  vault.createFakeBox(pDt2->getBbox());
  EXPECT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 2u);
  VtxRecIt first, last;
  vault.getRange(0, first, last);
  pDt2->triangulateRec(first, last, vault.getFakeBoxCorner(0)->getIncidentTriangle());
  EXPECT_TRUE(dt.checkValidity(true, "collinear in box"));
  vault.removeFakeBox();
  EXPECT_FALSE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_EQ(dt.numberOfPoints(), 10u);
  dt.insert(Point2(0, 5));
  EXPECT_TRUE(validate(dt).ok);
  EXPECT_EQ(dt.numberOfTriangles(), 9u);
}

TEST(Chunk, FastModeChunkRemovesTheZeroAreaTriangleOfAPointOnAnEdge) {
  Vask_2D dt;
  dt.setFastMode(true);
  dt.insert(vask_test::gridPoints(20));
  Dt2* pDt2(dt.getImpl());
  VertexVault& vault(pDt2->getVertexVault());
  // Points on grid edges, one of them very close to a vertex.
  std::vector<Point2> vNew = {Point2(3.5, 4), Point2(7, 7.5), Point2(10, 10.000000000001), Point2(0.5, 0.5)};
  vault.createFakeBox(pDt2->getBbox());
  size_t firstPos(0);
  vault.addVertices(vNew, nullptr, firstPos);
  std::vector<IdxVtxAct*> vRecords;
  VtxRecIt first, last;
  vault.getRange(0, first, last);
  vRecords.assign(first, last);
  Chunk chunk(pDt2, &pDt2->getBbox(), 1, &vRecords, static_cast<unsigned>(firstPos),
              static_cast<unsigned>(vRecords.size()));
  chunk.determineExtBox();
  chunk.triangulate();
  vault.treatDupsAndHandles(nullptr);
  vault.rebuild(false);
  vault.removeFakeBox();
  EXPECT_TRUE(validate(dt, false).ok);
  EXPECT_TRUE(dt.checkValidity(false, "fast chunk"));
}

namespace {

// Sum of the distances between consecutive vertices in vault order, over
// the vertices inside [lo, hi]^2: short when the order follows the space.
double pathLengthInside(Vask_2D& dt, double lo, double hi) {
  std::vector<Point2*> vVertices;
  dt.getVertexPointers(vVertices);
  double length(0.0);
  const Point2* pPrev(nullptr);
  for (const Point2* p : vVertices) {
    if (p->x() < lo || p->x() > hi || p->y() < lo || p->y() > hi) continue;
    if (pPrev != nullptr) length += std::hypot(p->x() - pPrev->x(), p->y() - pPrev->y());
    pPrev = p;
  }
  return length;
}

} // namespace

TEST(Vault, BatchOrderFollowsTheDataWhateverOutliersDoToTheKeyBox) {
  // One outlier makes the key's box so large that all other points share a
  // cell; clusters 1e-6 wide lie 1e6 apart. The batch must still come out in
  // a spatial order at the scale of the data (a random order of n points in
  // a square of side s has a path of about n s / 2), and valid.
  const size_t n(20000);
  std::vector<std::pair<std::vector<Point2>, double>> vCases;
  for (double far : {1e6, 1e12, 1e100, 1e300, -1e300}) {
    vCases.emplace_back(vask_test::randomPoints(n, 3), 1.0);
    vCases.back().first.emplace_back(far, far);
  }
  std::mt19937_64 gen(5);
  std::uniform_real_distribution<double> d(0.0, 1.0);
  vCases.emplace_back(std::vector<Point2>(), 1e-6);
  for (size_t c = 0; c < 20; ++c) { // the first cluster in [0, 1e-6]^2
    const double cx(c == 0 ? 0.0 : 1e6 * d(gen)), cy(c == 0 ? 0.0 : 1e6 * d(gen));
    for (size_t k = 0; k < 500; ++k)
      vCases.back().first.emplace_back(cx + 1e-6 * d(gen), cy + 1e-6 * d(gen));
  }
  for (const auto& c : vCases) {
    Vask_2D dt;
    dt.insert(c.first);
    const double numInside(c.second == 1.0 ? double(n) : 500.0);
    EXPECT_LT(pathLengthInside(dt, 0.0, c.second), 4.0 * c.second * std::sqrt(numInside)) << c.first.back();
    EXPECT_EQ(dt.numberOfPoints(), c.first.size());
    EXPECT_VALID(dt);
  }
}

TEST(Vault, DuplicatesLeaveNoVertexOrRecordBehind) {
  // Counted in pool use: a duplicate, single or in a batch, in either state,
  // must not keep a vertex or a record once its insertion has returned.
  Dt2* pDt2(nullptr);
  Vask_2D dt;
  pDt2 = dt.getImpl();
  VertexVault& vault(pDt2->getVertexVault());

  // Collinear state: single and batch duplicates.
  std::vector<Point2> vLine;
  for (int i = 0; i < 50; ++i) vLine.emplace_back(i, 2 * i);
  std::vector<Point2*> vLineHandles;
  dt.insert(vLine, vLineHandles);
  const size_t lineSlots(pDt2->numberOfVertexSlots());
  for (int r = 0; r < 20; ++r)
    for (size_t i = 0; i < vLine.size(); ++i) EXPECT_EQ(dt.insert(vLine[i]), vLineHandles[i]);
  EXPECT_EQ(pDt2->numberOfVertexSlots(), lineSlots);
  std::vector<Point2*> vAgain;
  dt.insert(vLine, vAgain);
  EXPECT_EQ(vAgain, vLineHandles);
  dt.insert(vLine, vAgain);
  EXPECT_EQ(vAgain, vLineHandles);
  EXPECT_LE(pDt2->numberOfVertexSlots(), lineSlots + vLine.size());
  EXPECT_EQ(dt.numberOfPoints(), vLine.size());

  // Full-dimensional state.
  const std::vector<Point2> vPoints(vask_test::randomPoints(2000, 17));
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  const size_t slots(pDt2->numberOfVertexSlots()), records(vault.numberOfRecordsTaken());
  EXPECT_EQ(slots, records);
  for (int r = 0; r < 5; ++r)
    for (size_t i = 0; i < vPoints.size(); i += 7) EXPECT_EQ(dt.insert(vPoints[i]), vHandles[i]);
  EXPECT_EQ(pDt2->numberOfVertexSlots(), slots);
  for (int r = 0; r < 3; ++r) {
    dt.insert(vPoints, vAgain);
    EXPECT_EQ(vAgain, vHandles);
    std::vector<double> vCoords;
    for (const Point2& p : vPoints) vCoords.insert(vCoords.end(), {p.x(), p.y()});
    std::vector<Point2*> vArrayHandles(vPoints.size());
    dt.insert(static_cast<int>(vPoints.size()), vCoords.data(), vArrayHandles.data());
    EXPECT_EQ(vArrayHandles, vHandles);
  }
  // The first duplicate batch took its vertices; every later one reused them.
  EXPECT_LE(pDt2->numberOfVertexSlots(), slots + vPoints.size());
  EXPECT_EQ(pDt2->numberOfVertexSlots(), vault.numberOfRecordsTaken());
  EXPECT_EQ(dt.numberOfPoints(), vLine.size() + vPoints.size());
  EXPECT_VALID(dt);

  // New points take the waiting pairs before the pools grow.
  const size_t slotsBefore(pDt2->numberOfVertexSlots());
  const size_t numFree(vault.numberOfFreeRecords());
  ASSERT_GT(numFree, 100u);
  std::vector<Point2> vNew(vask_test::randomPoints(100, 99));
  for (Point2& p : vNew) p = Point2(p.x() + 2.0, p.y());
  for (size_t i = 0; i < 50; ++i) dt.insert(vNew[i]);
  dt.insert(std::vector<Point2>(vNew.begin() + 50, vNew.end()));
  EXPECT_EQ(pDt2->numberOfVertexSlots(), slotsBefore);
  EXPECT_EQ(vault.numberOfFreeRecords(), numFree - 100);
  EXPECT_EQ(dt.numberOfPoints(), vLine.size() + vPoints.size() + vNew.size());
  EXPECT_VALID(dt);
  // Reused vertices behave as any other: they can be found and removed.
  std::vector<Point2*> vAll;
  dt.getVertexPointers(vAll);
  for (size_t i = 0; i < vAll.size(); i += 3) dt.remove(vAll[i]);
  EXPECT_VALID(dt);
}
