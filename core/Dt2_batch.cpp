// Batch insertion: a vector or a coordinate array goes into the vault in
// curve order, then into the mesh in a recursive midpoint order; duplicates
// are settled once at the end. The fresh-triangle supply serves workers.
#include "core/Dt2.h"
#include "core/PoolIndex.h"
#include "TriangleAroundVertexIterator.h"
#include "support/Histogram.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include "VaskVersion.h"
#include "VertexPair2.h"
#include "Visualizer2.h"
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <new>
#include <set>
#include <sstream>
#include <thread>


namespace KIRO_VASK2D {

// ---------------------------------------------------------------------------
// Batch insertion

void Dt2::insertVector(const std::vector<Point2>& vInputPoints, std::vector<Point2*>* pVHandles) {
  if (vInputPoints.empty()) return;
  const size_t n(vInputPoints.size());
  VASK_ASSERT(vertexVault.dupIsClean());
  if (bbox.add(vInputPoints.begin(), vInputPoints.end())) growBox();
  const bool bWasFullDim(*pBFullDimensional);
  const bool bFakeBox(numCPU > 1 && vertexVault.createFakeBox(bbox));
  progress.start("insert vertices", static_cast<unsigned>(1.1 * n));
  size_t numPreExistingVtx(0);
  vertexVault.addVertices(vInputPoints, pVHandles, numPreExistingVtx);
  if (pVHandles != nullptr) VASK_ASSERT(vInputPoints.size() == pVHandles->size());
  progress.advance(static_cast<unsigned>(0.1 * n));
  if (!*pBFullDimensional) {
    createFullDimTriangle(numPreExistingVtx);
  } else {
    // A fake box raised on collinear data: the waiting points go in too,
    // and first, so that a new point equal to one of them becomes its
    // duplicate and the caller's handle of the waiting point stays valid.
    VtxRecIt first, last;
    vertexVault.getRange(bWasFullDim ? numPreExistingVtx : 0, first, last);
    const VtxRecIt firstNew(bWasFullDim ? first : first + static_cast<std::ptrdiff_t>(numPreExistingVtx));
    if (first != firstNew) {
      const Point2* pFirst((*first)->pVtx);
      triangulateRange(first, firstNew, vertexVault.getCloseTriangle(getHilbertIndex(pFirst->x(), pFirst->y())));
    }
    if (firstNew != last) {
      const Point2* pFirst((*firstNew)->pVtx);
      triangulateRange(firstNew, last, vertexVault.getCloseTriangle(getHilbertIndex(pFirst->x(), pFirst->y())));
    }
  }
  vertexVault.treatDupsAndHandles(pVHandles);
  VASK_ASSERT(vertexVault.dupIsClean());
  vertexVault.rebuild(true);
  progress.finish();
  if (bFakeBox) vertexVault.removeFakeBox();
}

void Dt2::insert(int numPoints, double* aCoordinates, Point2** aHandles) {
  if (numCPU > 1 && numPoints >= 1000) {
    std::vector<Point2> vPoints;
    vPoints.reserve(static_cast<size_t>(numPoints));
    for (int i = 0; i < numPoints; ++i) vPoints.emplace_back(aCoordinates[2 * i], aCoordinates[2 * i + 1]);
    std::vector<Point2*> vHandles;
    insertVector(vPoints, &vHandles);
    std::copy(vHandles.begin(), vHandles.end(), aHandles);
    return;
  }
  VASK_ASSERT(vertexVault.dupIsClean());
  if (numPoints <= 0) return;
  const unsigned n(static_cast<unsigned>(numPoints));
  progress.start("insert", static_cast<unsigned>(1.1 * n));
  if (bbox.add(n, aCoordinates)) growBox();
  size_t numPreExistingVtx(0);
  vertexVault.addVertices(n, aCoordinates, aHandles, numPreExistingVtx);
  progress.advance(static_cast<unsigned>(0.1 * n));
  if (!*pBFullDimensional) {
    createFullDimTriangle(numPreExistingVtx);
  } else {
    VtxRecIt first, last;
    vertexVault.getRange(numPreExistingVtx, first, last);
    const Point2* pFirst((*first)->pVtx);
    triangulateRange(first, last, vertexVault.getCloseTriangle(getHilbertIndex(pFirst->x(), pFirst->y())));
  }
  std::vector<Point2*> vHandles(aHandles, aHandles + n);
  vertexVault.treatDupsAndHandles(&vHandles);
  std::copy(vHandles.begin(), vHandles.end(), aHandles);
  VASK_ASSERT(vertexVault.dupIsClean());
  vertexVault.rebuild(true);
  progress.finish();
}

void Dt2::insertToVVault(const std::vector<Point2>& vInputPoints, std::vector<Point2*>* pVHandles) {
  VASK_ASSERT(vertexVault.dupIsClean());
  if (bbox.add(vInputPoints.begin(), vInputPoints.end())) growBox();
  size_t numPreExistingVtx(0);
  vertexVault.addVertices(vInputPoints, pVHandles, numPreExistingVtx);
  if (pVHandles != nullptr) VASK_ASSERT(vInputPoints.size() == pVHandles->size());
  vertexVault.treatDupsAndHandles(pVHandles);
  VASK_ASSERT(vertexVault.dupIsClean());
  vertexVault.rebuild(false);
}

// Several workers take ranges of 1000 or more records to the multi-threaded
// inserter, which needs the fake box that insertVector raises for them. Its
// chunks ignore constraint edges: with constraints present every range goes
// in on this thread.
void Dt2::triangulateRange(VtxRecIt first, VtxRecIt last, Triangle2* pStart) {
  if (numCPU > 1 && last - first >= 1000 && !hasConstraintMgr() && vertexVault.hasFakeBox()) {
    InserterMT inserter(this, first, last, numCPU);
    inserter.go(pStart);
    lastMTStats = inserter.getStats();
    ++numThreadedRanges;
    progress.advance(static_cast<unsigned>(lastMTStats.numVertices - lastMTStats.numSample));
    return;
  }
  triangulateRec(first, last, pStart);
}

// Inserts the records of [first, last) in a recursive midpoint order: each
// level fixes the vertex in the middle of its curve interval before its two
// halves, which spreads early insertions and keeps every walk short.
void Dt2::triangulateRec(VtxRecIt first, VtxRecIt last, Triangle2* pLast) {
  for (;;) {
    const ptrdiff_t n(last - first);
    if (n <= 15) {
      for (; first != last; ++first) {
        if (!(*first)->bActive) continue;
        pLast = insertVertex((*first)->pVtx, pLast);
        VASK_ASSERT(pLast != NULL && "lastTriangle!=NULL");
      }
      return;
    }
    VtxRecIt mid(first + n / 2);
    Point2* pMid((*mid)->pVtx);
    if ((*mid)->bActive) {
      pLast = insertVertex(pMid, pLast);
      VASK_ASSERT(pLast != NULL && "lastTriangle!=NULL");
    }
    triangulateRec(first, mid, pLast);
    Triangle2* pIncT(pMid->getIncidentTriangle());
    if (pIncT == nullptr) {
      pIncT = vertexVault.getCloseTriangle(getHilbertIndex(pMid->x(), pMid->y()));
      VASK_ASSERT(pIncT != NULL);
    }
    // The right half as a loop instead of a second recursive call.
    first = mid + 1;
    pLast = pIncT;
  }
}

void Dt2::getFreshTriangles(unsigned num, std::vector<Triangle2*>& vFreshTriangles) {
  std::lock_guard<std::mutex> lock(mtxFreshGet);
  VASK_ASSERT(vFreshTriangles.empty());
  vFreshTriangles.resize(num);
  for (unsigned i = 0; i < num; ++i) vFreshTriangles[i] = new (trianglePool.get()) Triangle2();
  numAllT += num;
}

void Dt2::returnFreshTriangles(std::vector<Triangle2*>& vTriangles) {
  std::lock_guard<std::mutex> lock(mtxFreshReturn);
  vDeadT.insert(vDeadT.end(), vTriangles.begin(), vTriangles.end());
  vTriangles.clear();
}


} // namespace KIRO_VASK2D
