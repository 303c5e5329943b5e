// Single-point insertion: the walk that locates a point, the three ways a
// point enters (split a triangle, split an edge, attach to the hull), the
// flip loop that restores the empty-circle property, and the first triangle
// that ends the collinear state.
#include "core/Dt2.h"
#include "core/PoolIndex.h"
#include "core/StraightWalk.h"
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
#include <iostream>
#include <new>
#include <set>
#include <sstream>
#include <thread>

namespace KIRO_VASK2D {

// ---------------------------------------------------------------------------
// Single-point insertion

// Nothing is allocated for a duplicate: in the collinear state a hash of
// the coordinates finds it, otherwise the walk does, before the vertex and
// its record are taken.
Point2* Dt2::insert(const Point2& p, const Point2* pNear) {
  if (addToBox(p)) growBox();
  if (!*pBFullDimensional) {
    pLastVertex = nullptr;
    const size_t numBefore(vertexVault.numberOfRecords());
    bool bLeavesLine(false);
    Point2* pVtx(vertexVault.findOrAddCollinear(p, getHilbertIndex(p.x(), p.y()), bLeavesLine));
    if (vertexVault.numberOfRecords() == numBefore) return pVtx; // a duplicate
    if (bLeavesLine) {
      vertexVault.dropLineIndex();
      createFullDimTriangle(0);
      if (!vertexVault.dupIsClean()) vertexVault.treatDupsAndHandles(nullptr);
      vertexVault.rebuild(true);
      if (pVtx->getIncidentTriangle() != nullptr) pLastVertex = pVtx;
    }
    return pVtx;
  }
  const uint32_t idx(getHilbertIndex(p.x(), p.y()));
  Triangle2* pT(pNear != nullptr && pNear->getIncidentTriangle() != nullptr ? pNear->getIncidentTriangle()
                                                                              : walkStart(p, idx));
  int edgeIdx(-1);
  const LocateResult state(locateConflictTriangle(p, pT, edgeIdx));
  if (state == LR_VERTEX) {
    progress.advance(1);
    for (int i = 0; i < 3; ++i)
      if (*pT->getCorner(i) == p) return pT->getCorner(i);
    VASK_ASSERT(false && "Proxy not found");
  }
  Point2* pVtx(vertexVault.addNewVertex(p, idx));
  progress.advance(1);
  insertLocated(pVtx, pT, state, edgeIdx);
  VASK_ASSERT(pVtx->getIncidentTriangle() != NULL);
  VASK_ASSERT(vertexVault.dupIsClean());
  pLastVertex = pVtx;
  if (vertexVault.isRebuildDue()) refitHilbertKey();
  vertexVault.rebuild(true);
  return pVtx;
}

// The start of a single insertion's walk: of the vault's triangle near the
// point's Hilbert key and the last inserted vertex, the one nearer to p.
// The key finds a close start for points in random order, the last vertex
// for points in sorted or curve order, where the key's candidate may lie
// far behind (new vertices join the vault's sorted part only at a rebuild).
// Distances are compared per axis (the larger difference), which cannot
// overflow to a wrong order.
Triangle2* Dt2::walkStart(const Point2& p, uint32_t idx) {
  Triangle2* pKeyT(vertexVault.getCloseTriangle(idx));
  if (pLastVertex == nullptr) return pKeyT;
  Triangle2* pLastT(pLastVertex->getIncidentTriangle());
  if (pLastT == nullptr) return pKeyT;
  const Point2* pKeyV(pKeyT->getCorner(0));
  const double dKey(std::max(std::fabs(pKeyV->x() - p.x()), std::fabs(pKeyV->y() - p.y())));
  const double dLast(std::max(std::fabs(pLastVertex->x() - p.x()), std::fabs(pLastVertex->y() - p.y())));
  return dLast < dKey ? pLastT : pKeyT;
}

// Contract: pStart is a live triangle; pVtx is not yet in the mesh. Splits
// the triangle or edge that holds pVtx, or attaches it to the hull, then
// restores the empty-circle property by flipping the link edges of pVtx.
// Returns a triangle incident to pVtx (or, for a duplicate, the triangle
// that holds the equal vertex), a good start for the next insertion.
Triangle2* Dt2::insertVertex(Point2* pVtx, Triangle2* pStart) {
  progress.advance(1);
  Triangle2* pCurTriangle(pStart);
  VASK_ASSERT(pCurTriangle != NULL);
  int edgeIdx(-1);
  const LocateResult state(locateConflictTriangle(*pVtx, pCurTriangle, edgeIdx));
  return insertLocated(pVtx, pCurTriangle, state, edgeIdx);
}

Triangle2* Dt2::insertLocated(Point2* pVtx, Triangle2* pCurTriangle, LocateResult state, int edgeIdx) {
  if (state != LR_INSIDE) return triangulateCoplanarOrDuplicate(pVtx, pCurTriangle, state);

  Triangle2* pResult(edgeIdx >= 0 ? initVCheckT24(pCurTriangle, pVtx, edgeIdx) : initVCheckT13(pCurTriangle, pVtx));
  flipLinkEdges(
      vCheckT, [this](Triangle2* pT) { return !bSuppressFlips && mustFlip(pT, 0, true); },
      [](Triangle2* pT) { flipEdge(pT, 0); });
  return pResult;
}

// A visibility walk from pT towards p; the result says where it ended (see
// LocateResult), and edgeIdx names the inner edge that holds p, or -1.
LocateResult Dt2::locateConflictTriangle(const Point2& p, Triangle2*& pT, int& edgeIdx) {
  VASK_ASSERT(pT != 0 && "pStartTriangle!=0");
  int order[3] = {0, 1, 2};
  int i(0);
  unsigned numSteps(0);
  edgeIdx = -1;
  while (i < 3) {
    const int e(order[i]);
    const Orientation2 ori(kiroTest.getOrientation2(pT, e, &p));
    if (ori == ORIENTATION2_CCW) {
      ++i;
      continue;
    }
    if (ori == ORIENTATION2_CW) {
      edgeIdx = -1;
      Triangle2* pNeig(pT->getOppositeTriangle(e));
      if (pNeig == nullptr) return static_cast<LocateResult>(e);
      const int k(pNeig->getIntraTriangleIndex(pT));
      pT = pNeig;
      // The entry edge k is not tested again: p lies strictly inside of it.
      // Alternating the order of the two others keeps the walk from always
      // favouring one side. Outside Delaunay meshes (constraints) a
      // visibility walk can cycle; after enough steps the straight walk,
      // which always ends, takes over.
      if (++numSteps > MAX_VISIBILITY_STEPS) return locateStraight(p, pT, edgeIdx);
      order[0] = k;
      if (i == 1) {
        order[1] = incIndexBy2(k);
        order[2] = incIndexBy1(k);
      } else {
        order[1] = incIndexBy1(k);
        order[2] = incIndexBy2(k);
      }
      i = 1;
      continue;
    }
    if (p == *pT->getCorner(0) || p == *pT->getCorner(1) || p == *pT->getCorner(2)) {
      edgeIdx = -1;
      return LR_VERTEX;
    }
    edgeIdx = e;
    if (pT->getOppositeTriangle(e) != nullptr) {
      ++i;
      continue;
    }
    return hullStep(p, pT, e);
  }
  return LR_INSIDE;
}

// The straight walk ends in a triangle that holds p, where the visibility
// walk classifies p without leaving it, or beyond a hull edge.
LocateResult Dt2::locateStraight(const Point2& p, Triangle2*& pT, int& edgeIdx) {
  const StraightWalkEnd end(walkStraight(kiroTest, p, pT, 0, edgeIdx, [](const Triangle2*) {}));
  if (end == SWE_HULL0 || end == SWE_HULL1 || end == SWE_HULL2) {
    edgeIdx = -1;
    return static_cast<LocateResult>(end);
  }
  return locateConflictTriangle(p, pT, edgeIdx);
}

// p is collinear with the hull edge e of pT and differs from its corners:
// it lies on that edge, or beyond one of its ends on the hull's line.
LocateResult Dt2::hullStep(const Point2& p, Triangle2*& pT, int e) {
  const int a(incIndexBy1(e)), b(incIndexBy2(e));
  const Orientation2 ori1(kiroTest.getOrientation2(pT, a, &p));
  const Orientation2 ori2(kiroTest.getOrientation2(pT, b, &p));
  if (ori1 == ORIENTATION2_CW) {
    VASK_ASSERT(ori2 == ORIENTATION2_CCW);
    if (pT->getOppositeTriangle(a) == nullptr) return static_cast<LocateResult>(a);
    pT = pT->getOppositeTriangle(a);
  } else if (ori2 == ORIENTATION2_CW) {
    VASK_ASSERT(ori1 == ORIENTATION2_CCW);
    if (pT->getOppositeTriangle(b) == nullptr) return static_cast<LocateResult>(b);
    pT = pT->getOppositeTriangle(b);
  } else if (ori1 == ORIENTATION2_CCW && ori2 == ORIENTATION2_CCW) {
    return static_cast<LocateResult>(e);
  }
  // p lies on the hull's supporting line, so this walk ends on a hull edge
  // (results 0, 1, 2) or a vertex (4); the caller's edgeIdx keeps the hull
  // edge.
  int innerEdgeIdx(-1);
  return locateConflictTriangle(p, pT, innerEdgeIdx);
}

Triangle2* Dt2::triangulateCoplanarOrDuplicate(Point2* pVtx, Triangle2* pT, LocateResult state) {
  if (isHullResult(state)) return insertVertexCH(pVtx, pT, state);
  VASK_ASSERT(state == LR_VERTEX && "intState==4");
  for (int i = 0; i < 3; ++i) {
    Point2* pCorner(pT->getCorner(i));
    if (*pCorner == *pVtx) {
      vertexVault.registerDup(pVtx, pCorner);
      return pT;
    }
  }
  logError("triangulateCoplanarOrDuplicate()", "Proxy not found");
  VASK_ASSERT(false);
  return nullptr;
}

// Contract and sketch: splitTriangle13, on the triangulation's own stack and
// triangle supply.
Triangle2* Dt2::initVCheckT13(Triangle2* pT, Point2* pVtx) {
  return splitTriangle13(
      pT, pVtx, [this](Point2* p0, Point2* p1, Point2* p2) { return createTriangle(p0, p1, p2); }, vCheckT);
}

// Contract and sketch: splitEdge24. The split edge B-C of pT (its edge ith)
// gives way to B-p and p-C.
Triangle2* Dt2::initVCheckT24(Triangle2* pT, Point2* pVtx, int ith) {
  onEdgeSplit(pT->getCorner(incIndexBy1(ith)), pT->getCorner(incIndexBy2(ith)), pVtx);
  return splitEdge24(
      pT, pVtx, ith, [this](Point2* p0, Point2* p1, Point2* p2) { return createTriangle(p0, p1, p2); }, vCheckT);
}

// Collects, starting next to the hull edge ith of pT, the further hull
// edges that p sees strictly (orientation CW), pivoting around the hull
// vertex at corner ith+1 (bLeft) or ith+2 (!bLeft). Edges collinear with p
// end the walk: a point on a hull line gets no triangle over that edge.
void Dt2::walkHull(Triangle2* pT, int ith, const Point2* p, bool bLeft,
                   std::vector<std::pair<Triangle2*, int> >& vOut) {
  VASK_ASSERT(pT->getOppositeTriangle(ith) == NULL && "pCurTriangle->getOppositeTriangle(ith)==NULL");
  for (;;) {
    int cross(bLeft ? incIndexBy2(ith) : incIndexBy1(ith));
    if (pT->getOppositeTriangle(cross) != nullptr) {
      Point2* pPivot(pT->getCorner(bLeft ? incIndexBy1(ith) : incIndexBy2(ith)));
      if (!cachedHullEdge(pPivot, bLeft, pT, cross)) {
        size_t numSteps(0);
        while (Triangle2* pNeig = pT->getOppositeTriangle(cross)) {
          ith = pNeig->getIntraTriangleIndex(pT);
          pT = pNeig;
          cross = bLeft ? incIndexBy2(ith) : incIndexBy1(ith);
          ++numSteps;
        }
        if (numSteps > 8) aHullCache[bLeft ? 0 : 1][(reinterpret_cast<uintptr_t>(pPivot) >> 4) % HULL_CACHE_SIZE] =
            HullCacheEntry{pPivot, pT};
      }
    }
    if (kiroTest.getOrientation2(pT, cross, p) != ORIENTATION2_CW) return;
    ith = cross;
    vOut.emplace_back(pT, ith);
  }
}

// The hull edge at pPivot in the pivot's direction, if the cache remembers
// a triangle that (still) has it: pPivot at corner k and a hull edge at
// k+1 (bLeft: pPivot ends the edge) or k+2 (pPivot starts it). Each hull
// vertex has one hull edge of each kind, so any such triangle is the one
// the pivot would reach. Removals clear the cache: their dead triangles
// may keep their corners.
bool Dt2::cachedHullEdge(Point2* pPivot, bool bLeft, Triangle2*& pT, int& cross) const {
  const HullCacheEntry& e(aHullCache[bLeft ? 0 : 1][(reinterpret_cast<uintptr_t>(pPivot) >> 4) % HULL_CACHE_SIZE]);
  if (e.pVtx != pPivot || e.pT == nullptr) return false;
  for (int k = 0; k < 3; ++k) {
    if (e.pT->getCorner(k) != pPivot) continue;
    const int c(bLeft ? incIndexBy1(k) : incIndexBy2(k));
    if (e.pT->getOppositeTriangle(c) != nullptr) return false;
    pT = e.pT;
    cross = c;
    return true;
  }
  return false;
}

// Contract: edge ith of pT is a hull edge that p sees or lies on. New
// triangles (p, end, start) are attached to every hull edge that p sees
// strictly; a point on the hull edge splits it. Then a breadth-wise flip
// sweep restores the empty-circle property. Returns a triangle at p.
Triangle2* Dt2::insertVertexCH(Point2* pVtx, Triangle2* pT, int ith) {
  vHullL.clear();
  vHullR.clear();
  vHullR.emplace_back(pT, ith);
  walkHull(pT, ith, pVtx, true, vHullL);
  walkHull(pT, ith, pVtx, false, vHullR);
  vCandidates.clear();
  Triangle2* pResult(nullptr);
  auto create = [this](Point2* p0, Point2* p1, Point2* p2) { return createTriangle(p0, p1, p2); };
  if (vHullL.empty() && vHullR.size() == 1 && kiroTest.getOrientation2(pT, ith, pVtx) == ORIENTATION2_COLLINEAR) {
    // p splits the hull edge (contract and sketch: splitHullEdge).
    onEdgeSplit(pT->getCorner(incIndexBy1(ith)), pT->getCorner(incIndexBy2(ith)), pVtx);
    Triangle2* pN(splitHullEdge(pT, pVtx, ith, create));
    vCandidates.push_back(pT);
    vCandidates.push_back(pN);
    pResult = pT;
  } else {
    // The visible edges in counter-clockwise hull order: L reversed, then R.
    // New triangle N = (p, end, start) of edge (start -> end); consecutive
    // ones share the edge p-end(i) = p-start(i+1).
    std::reverse(vHullL.begin(), vHullL.end());
    vHullL.insert(vHullL.end(), vHullR.begin(), vHullR.end());
    Triangle2* pPrev(nullptr);
    for (const std::pair<Triangle2*, int>& edge : vHullL) {
      pPrev = attachHullTriangle(pVtx, edge.first, edge.second, pPrev, create);
      vCandidates.push_back(pPrev);
    }
    pResult = pPrev;
    VASK_ASSERT(pResult != NULL && "lastTriangle!=NULL");
  }
  // Rounds of flips over the link edges (edge 0, p at corner 0).
  while (!vCandidates.empty()) {
    vNextCandidates.clear();
    for (Triangle2* pX : vCandidates) {
      Triangle2* pY(pX->getOppositeTriangle(0));
      // While triangles are cut in, only a zero-area triangle at the hull
      // (its link edge collinear with p) still flips.
      if (bSuppressFlips && kiroTest.getOrientation2(pX, 0, pVtx) != ORIENTATION2_COLLINEAR) continue;
      if (!mustFlip(pX, 0, true)) continue;
      flipEdge(pX, 0);
      vNextCandidates.push_back(pX);
      vNextCandidates.push_back(pY);
    }
    vCandidates.swap(vNextCandidates);
  }
  return pResult;
}


// Restores the empty-circle property around a vertex that was placed
// without flips. Always exact, also in fast mode.
void Dt2::bfsFlipIncident(Point2* pVtx) {
  std::vector<std::pair<Triangle2*, int> > vWork;
  std::vector<Triangle2*> vIncT;
  getIncidentTriangles(pVtx, vIncT);
  for (Triangle2* pT : vIncT) {
    const int i(pT->getIntraTriangleIndex(pVtx));
    if (pT->getOppositeTriangle(i) != nullptr) vWork.emplace_back(pT, i);
  }
  flipUntilDelaunay(vWork);
}

// Each entry names an edge by a triangle and the corner opposite; a flip
// keeps both triangles alive, so a stale entry still names some edge of
// the mesh and is simply tested as what it is now. Every edge a flip
// creates around the quadrilateral is pushed, so the loop ends with all
// edges it touched locally Delaunay (constraint edges exempt).
void Dt2::flipUntilDelaunay(std::vector<std::pair<Triangle2*, int> >& vWork) {
  while (!vWork.empty()) {
    Triangle2* pFromT(vWork.back().first);
    const int fromICI(vWork.back().second);
    vWork.pop_back();
    if (!mustFlip(pFromT, fromICI, false)) continue;
    Triangle2* pN(pFromT->getOppositeTriangle(fromICI));
    VASK_ASSERT(canBeFlipped(pFromT, fromICI));
    flipEdge(pFromT, fromICI);
    // After the flip the diagonal is edge 1 of pFromT and edge 2 of pN.
    const int aT[2] = {0, 2}, aN[2] = {0, 1};
    for (int k = 0; k < 2; ++k) {
      if (pFromT->getOppositeTriangle(aT[k]) != nullptr) vWork.emplace_back(pFromT, aT[k]);
      if (pN->getOppositeTriangle(aN[k]) != nullptr) vWork.emplace_back(pN, aN[k]);
    }
  }
}

bool Dt2::createFullDimTriangle(size_t numPreExistingVtx) {
  VASK_ASSERT(!vertexVault.bFullDimensional);
  Point2 *p0(nullptr), *p1(nullptr), *p2(nullptr);
  // Keys left stale by growth without area are renewed before the first
  // scan, so the first triangle and the order of insertion follow the
  // present curve.
  vertexVault.refreshStaleKeys(numPreExistingVtx);
  if (!vertexVault.getThreeInitialPoints(p0, p1, p2)) return false;
  vertexVault.bFullDimensional = true;
  Triangle2* pT(createTriangle(p0, p1, p2));
  pT->setOppTriangle(0, nullptr);
  pT->setOppTriangle(1, nullptr);
  pT->setOppTriangle(2, nullptr);
  VtxRecIt startIt, stopIt;
  vertexVault.getRange(0, startIt, stopIt);
  VASK_ASSERT(numPreExistingVtx <= (size_t)distance(startIt, stopIt));
  // The three corners are in the ranges too: they are found as corners and
  // registerDup ignores a vertex that equals itself.
  VtxRecIt splitIt(startIt + numPreExistingVtx);
  if (startIt != splitIt) triangulateRange(startIt, splitIt, pT);
  if (splitIt != stopIt) triangulateRange(splitIt, stopIt, p0->getIncidentTriangle());
  return true;
}

} // namespace KIRO_VASK2D
