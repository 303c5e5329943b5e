// Bulk insertion on several threads: the same mesh as on one thread for
// points in general position, duplicates settled to their first occurrence,
// chunks that stay inside their extended boxes, and failures that reach the
// caller. Random sequences of threaded batches on degenerate families are
// the mesh fuzzer's (tests/fuzz).
#include "VaskException.h"
#include "Vask_2D.h"
#include "core/Chunk.h"
#include "core/Dt2.h"
#include "core/InserterMT.h"
#include "helpers/TestHelpers.h"
#include <algorithm>
#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <random>
#include <thread>

using namespace KIRO_VASK2D;

namespace {

// Points on three lines of slopes that doubles can't hold, evenly spaced,
// some moved by one or two ulps, shuffled.
std::vector<Point2> nearCollinearLines(size_t numPerLine, unsigned seed) {
  std::mt19937 gen(seed);
  std::vector<Point2> v;
  const double aSlope[3] = {1.0 / 3.0, -2.0 / 7.0, 0.1};
  for (int l = 0; l < 3; ++l) {
    for (size_t i = 0; i < numPerLine; ++i) {
      const double x(-15.0 + 30.0 * double(i) / double(numPerLine));
      double y(aSlope[l] * x + l);
      for (unsigned k = gen() % 3; k > 0; --k) y = std::nextafter(y, (gen() & 1) ? 1e9 : -1e9);
      v.emplace_back(x, y);
    }
  }
  std::shuffle(v.begin(), v.end(), gen);
  return v;
}

// Tight clusters of 1e-6 spread over a square of 1e6, and a few points at
// the far ends of the double range.
std::vector<Point2> mixedScales(size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<Point2> v;
  for (size_t c = 0; c < 40; ++c) {
    const double cx(1e6 * unit(gen)), cy(1e6 * unit(gen));
    for (size_t i = 0; i < n / 40; ++i) v.emplace_back(cx + 1e-6 * unit(gen), cy + 1e-6 * unit(gen));
  }
  return v;
}

// Inserts vPoints with numCPU workers; checks the mesh with the independent
// validator, handles in input order and duplicates settled to one vertex.
void insertAndCheck(const std::vector<Point2>& vPoints, int numCPU, const std::string& name, Vask_2D& dt) {
  EXPECT_EQ(dt.setNumCPU(numCPU), numCPU);
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  const vask_test::Validation v(vask_test::validate(dt));
  EXPECT_TRUE(v.ok) << name << " with " << numCPU << " threads: " << v.firstError << " (" << v.numErrors << ")";
  ASSERT_EQ(vHandles.size(), vPoints.size());
  std::map<Point2, Point2*> mFirst;
  for (size_t i = 0; i < vPoints.size(); ++i) {
    ASSERT_NE(vHandles[i], nullptr);
    EXPECT_EQ(*vHandles[i], vPoints[i]);
    EXPECT_NE(vHandles[i]->getIncidentTriangle(), nullptr);
    std::pair<std::map<Point2, Point2*>::iterator, bool> res(mFirst.insert(std::make_pair(vPoints[i], vHandles[i])));
    if (!res.second) EXPECT_EQ(vHandles[i], res.first->second) << name << ": a duplicate got its own vertex";
  }
  EXPECT_EQ(dt.numberOfPoints(), mFirst.size()) << name;
}

} // namespace

TEST(Multithreading, GeneralPositionGivesTheSameTrianglesForEveryThreadCount) {
  const std::vector<Point2> vPoints(vask_test::randomPoints(60000, 2026));
  const std::vector<Point2> vMore(vask_test::randomPoints(30000, 7));
  Vask_2D one;
  one.insert(vPoints);
  one.insert(vMore);
  const std::vector<vask_test::CanonicalTriangle> vExpected(vask_test::canonicalTriangles(one));
  for (int numCPU : {2, 3, 4, 8}) {
    Vask_2D dt;
    insertAndCheck(vPoints, numCPU, "uniform", dt);
    const InserterMTStats& stats(dt.getImpl()->getLastMTStats());
    EXPECT_EQ(stats.numVertices, vPoints.size());
    EXPECT_GT(stats.numChunks, 100u);
    EXPECT_EQ(stats.numThreads, numCPU);
    // A second batch into the mesh, through the coordinate array.
    std::vector<double> vCoords;
    for (const Point2& p : vMore) vCoords.insert(vCoords.end(), {p.x(), p.y()});
    std::vector<Point2*> vArrayHandles(vMore.size());
    dt.insert(static_cast<int>(vMore.size()), vCoords.data(), vArrayHandles.data());
    for (size_t i = 0; i < vMore.size(); ++i) EXPECT_EQ(*vArrayHandles[i], vMore[i]);
    EXPECT_EQ(vask_test::canonicalTriangles(dt), vExpected) << numCPU << " threads";
  }
}

// Many duplicates, within each batch and across two batches: every handle
// leads to the vertex of the first occurrence of its point in input order
// (the custom index tells which input made a vertex), whatever the number
// of threads and whichever copy the mesh took first.
TEST(Multithreading, DuplicatesSettleToTheirFirstOccurrenceForEveryThreadCount) {
  std::mt19937 gen(31);
  std::uniform_int_distribution<int> cell(0, 149);
  std::vector<std::vector<Point2> > vFamilies(3);
  for (int i = 0; i < 30000; ++i) {
    const int x(cell(gen)), y(cell(gen));
    vFamilies[0].emplace_back(x, y);
    vFamilies[1].emplace_back(x * 0.1, y * 0.3);
    vFamilies[2].emplace_back(1e-3 * (x / 7), 1e3 * y); // runs of equal points
  }
  for (std::vector<Point2>& vPoints : vFamilies) {
    for (size_t i = 0; i < vPoints.size(); ++i) vPoints[i].setCustomIndex(static_cast<int>(i));
    const size_t numFirst(vPoints.size() / 2);
    std::map<Point2, int> mFirst;
    for (const Point2& p : vPoints) mFirst.insert(std::make_pair(p, p.getCustomIndex()));
    for (int numCPU : {1, 2, 3, 4, 8}) {
      Vask_2D dt;
      dt.setNumCPU(numCPU);
      std::vector<Point2*> vFirstHandles, vSecondHandles;
      dt.insert(std::vector<Point2>(vPoints.begin(), vPoints.begin() + numFirst), vFirstHandles);
      dt.insert(std::vector<Point2>(vPoints.begin() + numFirst, vPoints.end()), vSecondHandles);
      vFirstHandles.insert(vFirstHandles.end(), vSecondHandles.begin(), vSecondHandles.end());
      ASSERT_EQ(vFirstHandles.size(), vPoints.size());
      size_t numLater(0);
      for (size_t i = 0; i < vPoints.size(); ++i)
        if (vFirstHandles[i]->getCustomIndex() != mFirst[vPoints[i]]) ++numLater;
      EXPECT_EQ(numLater, 0u) << numCPU << " threads";
      EXPECT_EQ(dt.numberOfPoints(), mFirst.size());
      EXPECT_VALID(dt);
    }
  }
}

// Every chunk, prepared on the mesh before any chunk runs and then run in
// order, writes only triangles with all corners in its extended box and
// relinks only triangles with two corners in it: what makes chunks with
// disjoint boxes safe to run together. Afterwards duplicates and handles are
// settled and the mesh is the one of the ordinary batch.
TEST(Multithreading, ChunksTouchOnlyTrianglesInsideTheirExtendedBoxes) {
  std::vector<std::pair<std::string, std::vector<Point2> > > vFamilies;
  std::vector<Point2> vUniform(vask_test::randomPoints(20000, 31));
  vUniform.insert(vUniform.end(), vUniform.begin() + 1, vUniform.begin() + 300); // duplicates
  vUniform.emplace_back(0.5, 0.5);                                               // and points on edges
  vUniform.emplace_back(0.25, 0.5);
  vFamilies.emplace_back("uniform", vUniform);
  vFamilies.emplace_back("grid", vask_test::gridPoints(120));
  vFamilies.emplace_back("near-collinear lines", nearCollinearLines(4000, 32));
  vFamilies.emplace_back("mixed scales", mixedScales(16000, 33));
  for (const auto& family : vFamilies) {
    Vask_2D dt;
    Dt2* pDt2(dt.getImpl());
    VertexVault& vault(pDt2->getVertexVault());
    const std::vector<Point2>& vAll(family.second);
    // A coarse mesh of every 50th point, then the fake box and the rest.
    std::vector<Point2> vCoarse, vRest;
    for (size_t i = 0; i < vAll.size(); ++i) (i % 50 == 0 ? vCoarse : vRest).push_back(vAll[i]);
    dt.insert(vCoarse);
    vault.createFakeBox(pDt2->getBbox());
    size_t firstPos(0);
    std::vector<Point2*> vHandles;
    vault.addVertices(vRest, &vHandles, firstPos);
    std::vector<IdxVtxAct*>& vRecords(vault.getRecords());
    std::vector<std::pair<size_t, size_t> > vPieces;
    InserterMT::cutIntoChunks(vRecords.size() - firstPos, 40, vPieces);
    std::vector<Chunk*> vChunks;
    for (size_t i = 0; i < vPieces.size(); ++i) {
      vChunks.push_back(new Chunk(pDt2, &pDt2->getBbox(), static_cast<unsigned>(i), &vRecords,
                                  static_cast<unsigned>(firstPos + vPieces[i].first),
                                  static_cast<unsigned>(firstPos + vPieces[i].second)));
      vChunks.back()->determineExtBox();
      const Bbox2 &box(vChunks.back()->getBox()), &ext(vChunks.back()->getExtBox());
      EXPECT_TRUE(ext.get_minX() <= box.get_minX() && ext.get_maxY() >= box.get_maxY());
      EXPECT_NE(vChunks.back()->getStartTriangle(), nullptr);
    }
    size_t numChecked(0);
    for (Chunk* pChunk : vChunks) {
      std::vector<Triangle2*> vBefore;
      pDt2->getTrianglePointers(vBefore);
      std::map<Triangle2*, Triangle2> mSnapshot;
      for (Triangle2* pT : vBefore) mSnapshot.insert(std::make_pair(pT, *pT));
      pChunk->triangulate();
      const Bbox2& ext(pChunk->getExtBox());
      for (const auto& entry : mSnapshot) {
        const Triangle2& old(entry.second);
        const Triangle2& now(*entry.first);
        int numInside(0);
        for (int k = 0; k < 3; ++k) numInside += ext.isInBox(*old.getCorner(k)) ? 1 : 0;
        bool bCornersChanged(false), bLinksChanged(false);
        for (int k = 0; k < 3; ++k) {
          bCornersChanged = bCornersChanged || now.getCorner(k) != old.getCorner(k);
          bLinksChanged = bLinksChanged || now.getOppositeTriangle(k) != old.getOppositeTriangle(k);
        }
        if (bCornersChanged) {
          EXPECT_EQ(numInside, 3) << family.first << ", chunk " << pChunk->getChunkId() << " rewrote " << old;
        } else if (bLinksChanged) {
          EXPECT_GE(numInside, 2) << family.first << ", chunk " << pChunk->getChunkId() << " relinked " << old;
        }
        ++numChecked;
      }
    }
    EXPECT_GT(numChecked, 0u);
    for (Chunk* pChunk : vChunks) delete pChunk;
    vault.treatDupsAndHandles(&vHandles);
    EXPECT_TRUE(vault.dupIsClean());
    vault.rebuild(false);
    vault.removeFakeBox();
    EXPECT_VALID(dt);
    std::map<Point2, Point2*> mFirst;
    for (size_t i = 0; i < vRest.size(); ++i) {
      ASSERT_TRUE(vHandles[i] != nullptr && *vHandles[i] == vRest[i]);
      EXPECT_EQ(mFirst.insert(std::make_pair(vRest[i], vHandles[i])).first->second, vHandles[i]);
    }
    Vask_2D ref;
    ref.insert(vCoarse);
    ref.insert(vRest);
    EXPECT_EQ(dt.numberOfPoints(), ref.numberOfPoints());
    if (family.first == "uniform") EXPECT_EQ(vask_test::canonicalTriangles(dt), vask_test::canonicalTriangles(ref));
  }
}

TEST(Multithreading, ASmallTailJoinsTheLastChunkAndALargerOneStandsAlone) {
  // 1001 chunks of 10000 and a rest of 999 or 1000.
  std::vector<std::pair<size_t, size_t> > vPieces;
  InserterMT::cutIntoChunks(1001 * 10000 + 999, 1001, vPieces);
  ASSERT_EQ(vPieces.size(), 1001u);
  EXPECT_EQ(vPieces.back(), std::make_pair(size_t(10000000), size_t(10010999)));
  InserterMT::cutIntoChunks(1001 * 10000 + 1000, 1001, vPieces);
  ASSERT_EQ(vPieces.size(), 1002u);
  EXPECT_EQ(vPieces[1000], std::make_pair(size_t(10000000), size_t(10010000)));
  EXPECT_EQ(vPieces[1001], std::make_pair(size_t(10010000), size_t(10011000)));
  // A tail above a third of a chunk stands alone even below 1000.
  InserterMT::cutIntoChunks(500 * 900 + 400, 500, vPieces);
  EXPECT_EQ(vPieces.size(), 501u);
  InserterMT::cutIntoChunks(500 * 900 + 300, 500, vPieces);
  EXPECT_EQ(vPieces.size(), 500u);
  // The pieces tile the range.
  for (size_t n : {1u, 999u, 1000u, 12345u}) {
    InserterMT::cutIntoChunks(n, 2 * static_cast<size_t>(std::sqrt(double(n))), vPieces);
    size_t expectedStart(0);
    for (const auto& piece : vPieces) {
      EXPECT_EQ(piece.first, expectedStart);
      EXPECT_LT(piece.first, piece.second);
      expectedStart = piece.second;
    }
    EXPECT_EQ(expectedStart, n);
  }
}

TEST(Multithreading, ThreadCountsOutsideTheUsualRange) {
  Vask_2D dt;
  const int numProcessors(static_cast<int>(std::max(1u, std::thread::hardware_concurrency())));
  EXPECT_EQ(dt.setNumCPU(0), numProcessors);
  EXPECT_EQ(dt.setNumCPU(-7), 1);
  EXPECT_EQ(dt.setNumCPU(INT_MIN), 1);
  dt.enableMultithreading();
  EXPECT_EQ(dt.setNumCPU(0), numProcessors);
  // A huge count is kept; the batch runs no more threads than it has chunks.
  EXPECT_EQ(dt.setNumCPU(INT_MAX), INT_MAX);
  const std::vector<Point2> vPoints(vask_test::randomPoints(5000, 51));
  dt.insert(vPoints);
  const InserterMTStats& stats(dt.getImpl()->getLastMTStats());
  EXPECT_LE(static_cast<size_t>(stats.numThreads), stats.numChunks);
  EXPECT_VALID(dt);
  Vask_2D one;
  one.insert(vPoints);
  EXPECT_EQ(vask_test::canonicalTriangles(dt), vask_test::canonicalTriangles(one));
}

TEST(Multithreading, AFailureOnAWorkerReachesTheCallerAsVaskException) {
  const std::vector<Point2> vPoints(vask_test::randomPoints(20000, 71));
  for (int numCPU : {2, 8}) {
    Vask_2D dt;
    dt.setNumCPU(numCPU);
    dt.setDev("InserterMT.failChunk", 5, 0.0);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_THROW(dt.insert(vPoints), VaskException);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
  }
}
