// Vertex removal
//
// A vertex leaves by flips alone: ears of its fan are cut off until it has
// degree 3 (inner vertex), then its three triangles merge into one; a hull
// vertex's fan is reduced and cut off the hull. No triangle is allocated,
// and a breadth-wise flip sweep over the former fan restores the
// empty-circle property. All scratch lists are members, so a removal in the
// steady state allocates nothing.
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
// Removal of a hull vertex

// Contract: pVtx is a vertex of the mesh on the convex hull. Edges from pVtx
// whose quadrilateral is convex at the far side are flipped away until the
// triangles at pVtx are ears of the hull; these are cut off (they go to
// vDeadT), and a flip sweep makes the rest Delaunay again. With no triangle
// left the triangulation returns to the collinear state.
void Dt2::removeHullVertex(Point2* pVtx, bool bUpdateVault) {
  clearHullCache();
  std::vector<Triangle2*> vFlipped, vFan;
  for (bool bFlipped = true; bFlipped;) {
    bFlipped = false;
    vFan.clear();
    getIncidentTriangles(pVtx, vFan);
    for (Triangle2* pT : vFan) {
      const int i(pT->getIntraTriangleIndex(pVtx));
      Triangle2* pM(pT->getOppositeTriangle(incIndexBy1(i)));
      if (pM == nullptr) continue;
      Point2* a(pT->getCorner(incIndexBy1(i)));
      Point2* b(pT->getCorner(incIndexBy2(i)));
      Point2* c(pM->getCorner(incIndexBy2(pM->getIntraTriangleIndex(pVtx))));
      if (kiroTest.getOrientation2(a, b, c) != ORIENTATION2_CCW) continue;
      flip(pT, incIndexBy1(i));
      vFlipped.push_back(pT);
      bFlipped = true;
      break;
    }
  }
  vFan.clear();
  getIncidentTriangles(pVtx, vFan);
  bool bOuterRemains(false);
  for (Triangle2* pT : vFan) {
    vDeadT.push_back(pT);
    for (int k = 0; k < 3; ++k) {
      Triangle2* pN(pT->getOppositeTriangle(k));
      if (pN == nullptr) continue;
      if (!pN->hasVertex(pVtx)) {
        // The outer triangle keeps the corners of the shared edge alive.
        bOuterRemains = true;
        pN->setOppTriangle(pN->getIntraTriangleIndex(pT), nullptr);
        pT->getCorner(incIndexBy1(k))->setIncidentTriangle(pN);
        pT->getCorner(incIndexBy2(k))->setIncidentTriangle(pN);
      }
      pT->setOppTriangle(k, nullptr);
    }
  }
  if (!bOuterRemains) {
    for (Triangle2* pT : vFan)
      for (int k = 0; k < 3; ++k) pT->getCorner(k)->setIncidentTriangle(nullptr);
    vertexVault.bFullDimensional = false;
  }
  pVtx->setIncidentTriangle(nullptr);
  for (Triangle2* pT : vFan) pT->clearProperties();
  flipSweep(vFlipped);
  if (bUpdateVault) vertexVault.removeVertexRecord(pVtx);
}

// Rounds of exact Delaunay flips over all edges of the listed triangles;
// dead triangles have no neighbours and are passed over.
void Dt2::flipSweep(std::vector<Triangle2*>& vList) {
  std::vector<Triangle2*>& vNext(vSweepNextT);
  while (!vList.empty()) {
    vNext.clear();
    for (Triangle2* pT : vList) {
      for (int k = 0; k < 3; ++k) {
        if (!mustFlip(pT, k, false)) continue;
        Triangle2* pN(pT->getOppositeTriangle(k));
        flipEdge(pT, k);
        vNext.push_back(pT);
        vNext.push_back(pN);
        break;
      }
    }
    vList.swap(vNext);
  }
}


// A stale or foreign pointer is answered without touching its memory: the
// pool test compares addresses only.
bool Dt2::getVertexPoolIndex(const Point2* pVtx, size_t& index) const {
  return vertexPoolIndex.getIndex(vertexPool, pVtx, index);
}

// An active vertex of this triangulation comes from its vertex pool and, in
// the full-dimensional state, has an incident triangle that holds it: a
// removed vertex and a duplicate's vertex have none. In the collinear state
// no vertex has a triangle, and the vault decides.
bool Dt2::isVertexOfThis(Point2* pVtx, size_t& poolIndex) const {
  if (!getVertexPoolIndex(pVtx, poolIndex)) return false;
  if (*pBFullDimensional) {
    const Triangle2* pIncT(pVtx->getIncidentTriangle());
    return pIncT != nullptr && pIncT->hasVertex(pVtx);
  }
  return vertexVault.findActive(*pVtx) == pVtx;
}

void Dt2::remove(Point2* pVtx) {
  // The last inserted vertex may be this one, or lose its triangle when the
  // mesh returns to the collinear state.
  pLastVertex = nullptr;
  bKeyMayBeLoose = true;
  clearHullCache();
  if (pVtx == nullptr) {
    logWarning("Dt2::remove()", "pVtx==NULL, illegal, return.");
    return;
  }
  // A vertex of a constraint segment is refused before anything changes:
  // the segments' trees end there. The test reads only the pointer value.
  if (isConstraintVertex(pVtx)) {
    logWarning("Dt2::remove(..)", "Illegal: Can't remove a constraint vertex");
    return;
  }
  vertexVault.rebuild(true);
  size_t poolIndex(0);
  if (!isVertexOfThis(pVtx, poolIndex)) {
    std::ostringstream oss;
    if (getVertexPoolIndex(pVtx, poolIndex)) {
      oss << *pVtx;
    } else {
      oss << "Point2 (" << static_cast<const void*>(pVtx) << ")";
    }
    logWarning("Dt2::remove(..)", "vertex does not belong to the triangulation, return");
    std::cout << "      " << oss.str() << std::endl;
    return;
  }
  if (pVtx->getIncidentTriangle() == nullptr) {
    // The collinear state: the point only leaves the vault.
    vRemovedVertices.push_back(pVtx);
    vertexVault.removeVertexRecord(pVtx);
    return;
  }
  // The record is written last; fetching it now hides its cache miss
  // behind the work on the mesh.
  vertexVault.prefetchRecord(poolIndex);
  if (!collectUmbrella(pVtx)) {
    removeHullVertex(pVtx, true);
    vRemovedVertices.push_back(pVtx);
    // clang-format off
    VASK_ASSERT(pVtx->getIncidentTriangle()==NULL);
    // clang-format on
    return;
  }
  removeInnerVertex(pVtx);
  vRemovedVertices.push_back(pVtx);
  vertexVault.removeVertexRecord(pVtx);
  // clang-format off
  VASK_ASSERT(pVtx->getIncidentTriangle()==NULL);
  // clang-format on
}

// Collects the fan of pVtx into vUmbrellaT (in no particular order); false
// when the fan meets the hull. The walk is a chain of dependent loads, so it
// goes both ways round at once, which halves the chain: the two walks meet
// half-way round an inner vertex, and one of them reaches the hull first
// at a hull vertex. The ring corner and the outer neighbour of each
// triangle are needed by the ear search soon after: fetching them now
// overlaps their cache misses with the walk's.
bool Dt2::collectUmbrella(Point2* pVtx) {
  vUmbrellaT.clear();
  TriangleAroundVertexIterator itCCW(pVtx), itCW(pVtx);
  Triangle2* pT(*itCCW);
  for (;;) {
    const int i(pT->getIntraTriangleIndex(pVtx));
    __builtin_prefetch(pT->getCorner(incIndexBy1(i)));
    __builtin_prefetch(pT->getOppositeTriangle(i));
    vUmbrellaT.push_back(pT);
    if (vUmbrellaT.size() % 2 == 1) {
      ++itCCW;
      pT = *itCCW;
      if (pT == *itCW) return true;
    } else {
      --itCW;
      pT = *itCW;
      if (pT == *itCCW) return true;
    }
    if (pT == nullptr) return false;
  }
}

// Contract: pVtx is an inner vertex whose closed fan vUmbrellaT holds (in
// any order). Afterwards pVtx is in no triangle, its former fan
// holds d-2 live triangles and two dead ones (on vDeadT), and the mesh is
// Delaunay again.
//
// The ear search goes round the fan. With exact predicates the fan of an
// inner vertex of degree above 3 always has an ear, and one trip round the
// fan after each success must find the next: the watch dog counts that trip.
void Dt2::removeInnerVertex(Point2* pVtx) {
  const int size(static_cast<int>(vUmbrellaT.size()));
  Triangle2* pT(vUmbrellaT[0]);
  int numRemoved(0);
  int watchDog(size);
  vEarT.clear();
  while (size - numRemoved > 3) {
    if (--watchDog < 0) watchDogFailed(pVtx);
    Triangle2* pE(removeEar(pVtx, pT));
    if (pE == nullptr) {
      pT = pT->getOppositeTriangle(incIndexBy1(pT->getIntraTriangleIndex(pVtx)));
    } else {
      ++numRemoved;
      watchDog = size + 1 - numRemoved;
      vEarT.push_back(pT);
      pT = pE;
    }
  }
  mergeDegree3(pVtx, pT);
  removalFlipSweep();
}

// When the ring corners a, b, q at pT (pVtx at index i, the next triangle pN
// of the fan across edge i+1) form a proper counter-clockwise ear that does
// not overlap pVtx, cuts it off (cutEar) and returns pN, which continues the
// fan; otherwise changes nothing and returns null. pVtx may end up on the
// edge a-q (a, q, pVtx collinear): then pN is flat, which is harmless
// because every triangle at pVtx disappears before the removal ends.
Triangle2* Dt2::removeEar(Point2* pVtx, Triangle2* pT) {
  const int i(pT->getIntraTriangleIndex(pVtx));
  const int e(incIndexBy1(i));
  Triangle2* pN(pT->getOppositeTriangle(e));
  if (pN == nullptr) return nullptr;
  const int j(pN->getIntraTriangleIndex(pT));
  Point2* a(pT->getCorner(e));
  Point2* b(pT->getCorner(incIndexBy2(i)));
  Point2* q(pN->getCorner(j));
  if (kiroTest.getOrientation2(a, q, pVtx) == ORIENTATION2_CW) return nullptr;
  if (kiroTest.getOrientation2(a, b, q) != ORIENTATION2_CCW) return nullptr;
  cutEar(pVtx, pT, i, pN);
  // The refiner, while it runs, hears of pT and pN here.
  return pN;
}

// Contract and sketch: mergeFan3, once the fan of pVtx is down to pT and two
// more triangles.
void Dt2::mergeDegree3(Point2* pVtx, Triangle2* pT) {
  // One trip round the fan, stopped after four steps: a fourth triangle or a
  // hull edge would mean the ear loop ended in a broken state.
  vRemainingT.clear();
  Triangle2* pCur(pT);
  do {
    vRemainingT.push_back(pCur);
    pCur = pCur->getOppositeTriangle(incIndexBy1(pCur->getIntraTriangleIndex(pVtx)));
  } while (pCur != pT && pCur != nullptr && vRemainingT.size() < 4);
  // clang-format off
  VASK_ASSERT(vRemainingT.size()==3);
  VASK_ASSERT(pCur==pT);
  // clang-format on
  mergeFan3(pVtx, vRemainingT.data(), vDeadT);
}

// Whether pT (maybe null) is one of the triangles of the former fan; a
// linear search, since a fan has about six triangles and this is asked only
// after a flip.
bool Dt2::isUmbrellaTriangle(const Triangle2* pT) const {
  if (pT == nullptr) return false;
  for (const Triangle2* pU : vUmbrellaT)
    if (pU == pT) return true;
  return false;
}

// Rounds of exact Delaunay flips over the edges inside the former fan. The
// first round tests the inner edges of the fan's new triangulation: each
// ear step made one, the diagonal a-q, which is edge 1 of its ear, and no
// ear changes afterwards. A flip makes its new diagonal legal and can only
// spoil the four outer edges of its quadrilateral; these form the next
// round. An entry whose triangle a later flip of the same round has changed
// may name another edge by now: testing it costs a test and loses nothing,
// because that later flip has listed the edges it touched as well.
//
// Edges between the former fan and the rest are never tested. The outer
// triangle O at such an edge is a Delaunay triangle of the remaining
// points: its circumcircle held no vertex before the removal and holds none
// after it. The in-circle test is symmetric across an edge (the far corner
// of O lies inside the circle of the inner triangle I exactly when the far
// corner of I lies inside the circle of O), so such an edge never needs a
// flip, and O is never changed. The same holds for constrained triangles,
// because a removal changes no constraint and so no visibility.
void Dt2::removalFlipSweep() {
  vSweepNextE.clear();
  for (Triangle2* pT : vEarT) sweepEdge(pT, 1);
  while (!vSweepNextE.empty()) {
    vSweepE.swap(vSweepNextE);
    vSweepNextE.clear();
    for (const std::pair<Triangle2*, int>& edge : vSweepE)
      if (isUmbrellaTriangle(edge.first->getOppositeTriangle(edge.second))) sweepEdge(edge.first, edge.second);
  }
}

// The exact Delaunay test of edge k of pT; on a failure the edge is flipped
// and the outer edges of the quadrilateral go to the next round. A hull
// edge passes.
void Dt2::sweepEdge(Triangle2* pT, int k) {
  if (!mustFlip(pT, k, false)) return;
  // The far corner lies strictly inside the circle, so the quadrilateral is
  // strictly convex and the flip is legal.
  Triangle2* pN(pT->getOppositeTriangle(k));
  flipEdge(pT, k);
  // The refiner, while it runs, hears of pT and pN here.
  // After the flip the diagonal is edge 1 of pT and edge 2 of pN.
  vSweepNextE.emplace_back(pT, 0);
  vSweepNextE.emplace_back(pT, 2);
  vSweepNextE.emplace_back(pN, 0);
  vSweepNextE.emplace_back(pN, 1);
}

// The ear search went once round the fan without success: with exact
// predicates that cannot happen, so the state is broken. The picture shows
// the mesh as the ears left it, with the vertex in red.
void Dt2::watchDogFailed(Point2* pVtx) {
  {
    Visualizer2 vis("watchDogFailed.ps");
    show(&vis, true);
    vis.addObject(*pVtx, Color(CRED, 0.5f, false));
    vis.writeFile();
  }
  std::cout << "vUmbrellaT.size()=" << vUmbrellaT.size() << std::endl;
  std::cout << "  vertex: " << *pVtx << std::endl;
  VASK_ASSERT(false);
}


} // namespace KIRO_VASK2D
