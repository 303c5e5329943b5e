#include "core/Dt2.h"
#include "core/PoolIndex.h"
#include "core/SplitOps.h"
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

namespace {
// Pools take int sizes; a hint beyond this only sizes the first block.
const unsigned MAX_POOL_HINT(1u << 26);

// A triangle whose circle holds the far corner of its neighbour.
struct EmptyCircleFailure {
  Triangle2* pT;
  Triangle2* pNeig;
  Point2* pIntruder;
};

// The drawing "badEmptyCircle.ps" of checkValidity: the mesh, each failing
// triangle filled red and its neighbour orange, the intruding vertex as a
// blue cross and, where it does not dwarf the mesh, the triangle's circle.
void drawEmptyCircleFailures(const Dt2& dt, const std::vector<EmptyCircleFailure>& vFailures,
                             const std::string& name) {
  Visualizer2 vis("badEmptyCircle.ps");
  std::ostringstream title;
  title << "checkValidity(" << name << "): " << vFailures.size() << " empty-circle failures";
  vis.addHeaderLine(title.str().c_str());
  vis.addHeaderLine("red: triangle, orange: its neighbour, blue: the circle and the vertex inside");
  // A near-degenerate triangle has a huge circle, which would shrink the
  // mesh to a dot: circles larger than the mesh itself are left out.
  const double maxRadius(dt.computeBoundingBox().getMaxRange());
  for (const EmptyCircleFailure& failure : vFailures) {
    vis.addObject(*failure.pT, Color(CRED, 0.01f, true));
    vis.addObject(*failure.pNeig, Color(CORANGE, 0.01f, true));
    vis.addObject(*failure.pIntruder, Color(CBLUE, 0.5f, false));
    const std::pair<Point2, bool> centre(failure.pT->getDual());
    const double sqRadius(sqDistance2D(centre.first, *failure.pT->getCorner(0)));
    if (std::isfinite(sqRadius) && std::sqrt(sqRadius) <= maxRadius)
      vis.addObject(Circle2(centre.first, sqRadius), Color(CBLUE, 0.5f, false));
  }
  dt.show(&vis, true);
  vis.writeFile();
}
} // namespace

Dt2::Dt2(unsigned numPoints)
    : numCPU(1), hc2(0.0, 0.0, 1.0, 1.0, 30), vertexVault(this),
      pBFullDimensional(&vertexVault.bFullDimensional), bbox(&kiroTest), numAllT(0), bFastMode(false),
      progress("Dt2") {
  if (numPoints < 3) numPoints = 3;
  if (numPoints > MAX_POOL_HINT) numPoints = MAX_POOL_HINT;
  vertexPool.init(static_cast<int>(numPoints), -1);
  trianglePool.init(static_cast<int>(2 * numPoints + 10), -1);
  vCheckT.reserve(64);
}

Dt2::~Dt2() {}

// ---------------------------------------------------------------------------
// Box and Hilbert key

bool Dt2::addToBox(const Point2& p) { return bbox.add(p); }

// Doubles the box around its centre so that later points rarely change it,
// raises the static bound of the predicates to the new box and re-keys the
// vault. Bounds are clamped to the finite range so that the box of data near
// the largest double stays finite.
void Dt2::growBox() {
  const double hx(bbox.get_maxX() * 0.5 - bbox.get_minX() * 0.5);
  const double hy(bbox.get_maxY() * 0.5 - bbox.get_minY() * 0.5);
  const double minX(std::max(-DBL_MAX, bbox.get_minX() - hx)), maxX(std::min(DBL_MAX, bbox.get_maxX() + hx));
  const double minY(std::max(-DBL_MAX, bbox.get_minY() - hy)), maxY(std::min(DBL_MAX, bbox.get_maxY() + hy));
  bbox.setMinX(minX);
  bbox.setMaxX(maxX);
  bbox.setMinY(minY);
  bbox.setMaxY(maxY);
  kiroTest.setStaticBound_MT(std::max(std::max(std::fabs(minX), maxX), std::max(std::fabs(minY), maxY)));
  resetHilbertKey();
  vertexVault.reindex();
}

// The curve's box is the doubled box, limited to +-DBL_MAX/2 so that its
// ranges are finite, and given a positive extent in each axis: collinear or
// single points must not leave an axis without cells.
void Dt2::resetHilbertKey() {
  const double lim(DBL_MAX / 2);
  const double minX(std::min(lim, std::max(-lim, bbox.get_minX())));
  const double minY(std::min(lim, std::max(-lim, bbox.get_minY())));
  double maxX(std::min(lim, std::max(-lim, bbox.get_maxX())));
  double maxY(std::min(lim, std::max(-lim, bbox.get_maxY())));
  // 1e-300 keeps 2^15 cells / range finite (2^15 / 1e-300 < DBL_MAX).
  const double range(std::max(1e-300, std::max(maxX - minX, maxY - minY)));
  if (!(maxX - minX >= 1e-300)) maxX = minX + range;
  if (!(maxY - minY >= 1e-300)) maxY = minY + range;
  hc2.init(minX, minY, maxX, maxY, 30);
}

// ---------------------------------------------------------------------------
// Single-point insertion

Point2* Dt2::insert(const Point2& p) {
  if (addToBox(p)) growBox();
  if (!*pBFullDimensional) {
    Point2* pExisting(vertexVault.findActive(p));
    if (pExisting != nullptr) return pExisting;
    Point2* pVtx(new (newVertex()) Point2(p));
    vertexVault.addVertex(getHilbertIndex(p.x(), p.y()), pVtx);
    createFullDimTriangle(0);
    if (!vertexVault.dupIsClean()) vertexVault.treatDupsAndHandles(nullptr);
    return pVtx;
  }
  Point2* pVtx(new (newVertex()) Point2(p));
  const uint32_t idx(getHilbertIndex(p.x(), p.y()));
  vertexVault.addVertex(idx, pVtx);
  insertVertex(pVtx, vertexVault.getCloseTriangle(idx));
  if (!vertexVault.dupIsClean()) return vertexVault.treatOneDupGetHandle(pVtx);
  VASK_ASSERT(pVtx->getIncidentTriangle() != NULL);
  vertexVault.rebuild(true);
  return pVtx;
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
  const int state(locateConflictTriangle(*pVtx, pCurTriangle, edgeIdx));
  if (state >= 0) return triangulateCoplanarOrDuplicate(pVtx, pCurTriangle, state);

  Triangle2* pResult(edgeIdx >= 0 ? initVCheckT24(pCurTriangle, pVtx, edgeIdx) : initVCheckT13(pCurTriangle, pVtx));
  flipLinkEdges(
      vCheckT,
      // An edge that carries a constraint segment is never flipped; that
      // test belongs in this predicate, after the in-circle test.
      [this, pVtx](Triangle2*, Triangle2* pNeig) { return flipTest(pNeig, pVtx) == CINC2_INCIRCLE; },
      [this](Triangle2* pT) { flip(pT, 0); });
  return pResult;
}

// A visibility walk from pT towards p. Results: -1 p lies in pT (strictly
// inside when edgeIdx is -1, else on the inner edge edgeIdx); 0, 1, 2 p lies
// on or beyond the hull edge of that index; 4 p equals a corner of pT.
int Dt2::locateConflictTriangle(const Point2& p, Triangle2*& pT, int& edgeIdx) {
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
      if (pNeig == nullptr) return e;
      const int k(pNeig->getIntraTriangleIndex(pT));
      pT = pNeig;
      // The entry edge k is not tested again: p lies strictly inside of it.
      // Alternating the order of the two others keeps the walk from always
      // favouring one side; after 1000 steps a random order breaks any cycle.
      if (++numSteps <= 1000) {
        order[0] = k;
        if (i == 1) {
          order[1] = incIndexBy2(k);
          order[2] = incIndexBy1(k);
        } else {
          order[1] = incIndexBy1(k);
          order[2] = incIndexBy2(k);
        }
        i = 1;
      } else {
        order[0] = rand() % 3;
        order[1] = incIndexBy1(order[0]);
        order[2] = incIndexBy2(order[0]);
        i = 0;
      }
      continue;
    }
    if (p == *pT->getCorner(0) || p == *pT->getCorner(1) || p == *pT->getCorner(2)) {
      edgeIdx = -1;
      return 4;
    }
    edgeIdx = e;
    if (pT->getOppositeTriangle(e) != nullptr) {
      ++i;
      continue;
    }
    return hullStep(p, pT, e);
  }
  return -1;
}

// p is collinear with the hull edge e of pT and differs from its corners:
// it lies on that edge, or beyond one of its ends on the hull's line.
int Dt2::hullStep(const Point2& p, Triangle2*& pT, int e) {
  const int a(incIndexBy1(e)), b(incIndexBy2(e));
  const Orientation2 ori1(kiroTest.getOrientation2(pT, a, &p));
  const Orientation2 ori2(kiroTest.getOrientation2(pT, b, &p));
  if (ori1 == ORIENTATION2_CW) {
    VASK_ASSERT(ori2 == ORIENTATION2_CCW);
    if (pT->getOppositeTriangle(a) == nullptr) return a;
    pT = pT->getOppositeTriangle(a);
  } else if (ori2 == ORIENTATION2_CW) {
    VASK_ASSERT(ori1 == ORIENTATION2_CCW);
    if (pT->getOppositeTriangle(b) == nullptr) return b;
    pT = pT->getOppositeTriangle(b);
  } else if (ori1 == ORIENTATION2_CCW && ori2 == ORIENTATION2_CCW) {
    return e;
  }
  // p lies on the hull's supporting line, so this walk ends on a hull edge
  // (results 0, 1, 2) or a vertex (4); the caller's edgeIdx keeps the hull
  // edge.
  int innerEdgeIdx(-1);
  return locateConflictTriangle(p, pT, innerEdgeIdx);
}

Triangle2* Dt2::triangulateCoplanarOrDuplicate(Point2* pVtx, Triangle2* pT, int state) {
  if (state < 4) return insertVertexCH(pVtx, pT, state);
  VASK_ASSERT(state == 4 && "intState==4");
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

// Contract: the caller sets all three neighbour slots afterwards; a reused
// dead triangle comes with null slots.
Triangle2* Dt2::createTriangle(Point2* p0, Point2* p1, Point2* p2) {
  Triangle2* pT;
  if (vDeadT.empty()) {
    pT = new (trianglePool.get()) Triangle2();
    ++numAllT;
  } else {
    pT = vDeadT.back();
    vDeadT.pop_back();
  }
  pT->setProperties(p0, p1, p2);
  return pT;
}

void Dt2::linkPair(Triangle2* pT, int i, Triangle2* pN, int j) {
  VASK_ASSERT(pN != NULL && "toTriangle!=NULL");
  pT->setOppTriangle(i, pN);
  pN->setOppTriangle(j, pT);
}

// Contract and sketch: splitTriangle13, on the triangulation's own stack and
// triangle supply.
Triangle2* Dt2::initVCheckT13(Triangle2* pT, Point2* pVtx) {
  return splitTriangle13(
      pT, pVtx, [this](Point2* p0, Point2* p1, Point2* p2) { return createTriangle(p0, p1, p2); }, vCheckT);
}

/* Contract: p lies on the inner edge ith of pT, strictly between its ends;
   vCheckT is empty. The two triangles at the edge become four, all with p at
   corner 0; those with an outer neighbour are pushed in the order T, N, N1, N2.

              A                         A
            /   \                     / | \
       Ti1 /  T  \ Ti2           T   /  |  \  N      T = (p,C,A), N = (p,A,B)
          C-------B      ->         C---p---B
       Nj2 \  N  / Nj1           N2  \  |  /  N1     N1 = (p,B,D), N2 = (p,D,C)
            \   /                     \ | /
              D                         D
*/
Triangle2* Dt2::initVCheckT24(Triangle2* pT, Point2* pVtx, int ith) {
  VASK_ASSERT(vCheckT.empty());
  Triangle2* pN(pT->getOppositeTriangle(ith));
  VASK_ASSERT(pN != 0 && "pNeigA!=0");
  const int i1(incIndexBy1(ith)), i2(incIndexBy2(ith));
  const int j(pN->getIntraTriangleIndex(pT)), j1(incIndexBy1(j)), j2(incIndexBy2(j));
  Point2* A(pT->getCorner(ith));
  Point2* B(pT->getCorner(i1));
  Point2* C(pT->getCorner(i2));
  Point2* D(pN->getCorner(j));
  Triangle2* pTi1(pT->getOppositeTriangle(i1));
  Triangle2* pTi2(pT->getOppositeTriangle(i2));
  Triangle2* pNj1(pN->getOppositeTriangle(j1));
  Triangle2* pNj2(pN->getOppositeTriangle(j2));
  // Back indices are read before any slot is written: one outer triangle
  // may border both T and N (B or C of degree 3), and once one of its slots
  // is relinked a later search by pointer would find the wrong one.
  const int kTi2(pTi2 != nullptr ? pTi2->getIntraTriangleIndex(pT) : -1);
  const int kNj1(pNj1 != nullptr ? pNj1->getIntraTriangleIndex(pN) : -1);
  const int kNj2(pNj2 != nullptr ? pNj2->getIntraTriangleIndex(pN) : -1);
  Triangle2* pN1(createTriangle(pVtx, B, D));
  Triangle2* pN2(createTriangle(pVtx, D, C));
  pT->setPropertiesAndOppT(pVtx, C, A, pTi1, pN, pN2);
  pN->setPropertiesAndOppT(pVtx, A, B, pTi2, pN1, pT);
  pN1->setOppTriangle(0, pNj1);
  pN1->setOppTriangle(1, pN2);
  pN1->setOppTriangle(2, pN);
  pN2->setOppTriangle(0, pNj2);
  pN2->setOppTriangle(1, pT);
  pN2->setOppTriangle(2, pN1);
  if (pTi2 != nullptr) pTi2->setOppTriangle(kTi2, pN);
  if (pNj1 != nullptr) pNj1->setOppTriangle(kNj1, pN1);
  if (pNj2 != nullptr) pNj2->setOppTriangle(kNj2, pN2);
  if (pTi1 != nullptr) vCheckT.push_back(pT);
  if (pTi2 != nullptr) vCheckT.push_back(pN);
  if (pNj1 != nullptr) vCheckT.push_back(pN1);
  if (pNj2 != nullptr) vCheckT.push_back(pN2);
  // A constraint segment over the edge B-C is split at p here.
  return pT;
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
    while (Triangle2* pNeig = pT->getOppositeTriangle(cross)) {
      ith = pNeig->getIntraTriangleIndex(pT);
      pT = pNeig;
      cross = bLeft ? incIndexBy2(ith) : incIndexBy1(ith);
    }
    if (kiroTest.getOrientation2(pT, cross, p) != ORIENTATION2_CW) return;
    ith = cross;
    vOut.emplace_back(pT, ith);
  }
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
  if (vHullL.empty() && vHullR.size() == 1 && kiroTest.getOrientation2(pT, ith, pVtx) == ORIENTATION2_COLLINEAR) {
    // p splits the hull edge B-C:   A            A
    //                              / \    ->    /|\      (T = p,A,B;
    //                             B---C        B-p-C      N = p,C,A)
    Point2* A(pT->getCorner(ith));
    Point2* B(pT->getCorner(incIndexBy1(ith)));
    Point2* C(pT->getCorner(incIndexBy2(ith)));
    Triangle2* pOpp1(pT->getOppositeTriangle(incIndexBy1(ith)));
    Triangle2* pOpp2(pT->getOppositeTriangle(incIndexBy2(ith)));
    // A constraint segment over the edge B-C is split at p here.
    Triangle2* pN(createTriangle(pVtx, C, A));
    pT->setPropertiesAndOppT(pVtx, A, B, pOpp2, nullptr, pN);
    pN->setOppTriangle(0, pOpp1);
    pN->setOppTriangle(1, pT);
    pN->setOppTriangle(2, nullptr);
    if (pOpp1 != nullptr) pOpp1->setOppTriangle(pOpp1->getIntraTriangleIndex(pT), pN);
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
      Triangle2* pTi(edge.first);
      const int ki(edge.second);
      Triangle2* pN(createTriangle(pVtx, pTi->getCorner(incIndexBy2(ki)), pTi->getCorner(incIndexBy1(ki))));
      pN->setOppTriangle(1, nullptr);
      pN->setOppTriangle(2, nullptr);
      linkPair(pN, 0, pTi, ki);
      if (pPrev != nullptr) linkPair(pPrev, 2, pN, 1);
      vCandidates.push_back(pN);
      pPrev = pN;
    }
    pResult = pPrev;
    VASK_ASSERT(pResult != NULL && "lastTriangle!=NULL");
  }
  // Rounds of flips over the link edges (edge 0, p at corner 0).
  while (!vCandidates.empty()) {
    vNextCandidates.clear();
    for (Triangle2* pX : vCandidates) {
      Triangle2* pY(pX->getOppositeTriangle(0));
      if (pY == nullptr) continue;
      // The constraint test of edge 0 belongs here.
      if (flipTest(pY, pVtx) != CINC2_INCIRCLE) continue;
      flip(pX, 0);
      vNextCandidates.push_back(pX);
      vNextCandidates.push_back(pY);
    }
    vCandidates.swap(vNextCandidates);
  }
  return pResult;
}

/* Contract: edge ith of pT has a neighbour and the quadrilateral is convex
   (the caller's Delaunay or convexity test implies it). Corners of both
   triangles keep valid incident pointers. With a = T[i], b = T[i+1],
   c = T[i-1], N across the edge b-c and q = N[j] its far corner:

              c                          c
         Ti1 /|\ N(j-1)              Ti1 / \ N(j-1)
            / | \                       / N \
           a T|N q         ->          a-----q       T = (a,b,q), N = (a,q,c)
            \ | /                       \ T /
         Ti2 \|/ N(j+1)              Ti2 \ / N(j+1)
              b                          b
*/
void Dt2::flip(Triangle2* pT, int ith) {
  const int i1(incIndexBy1(ith)), i2(incIndexBy2(ith));
  Triangle2* pN(pT->getOppositeTriangle(ith));
  const int j(pN->getIntraTriangleIndex(pT));
  const int j1(incIndexBy1(j)), j2(incIndexBy2(j));
  Point2* a(pT->getCorner(ith));
  Point2* b(pT->getCorner(i1));
  Point2* c(pT->getCorner(i2));
  Point2* q(pN->getCorner(j));
  Triangle2* pTi1(pT->getOppositeTriangle(i1));
  Triangle2* pTi2(pT->getOppositeTriangle(i2));
  Triangle2* pNj1(pN->getOppositeTriangle(j1));
  Triangle2* pNj2(pN->getOppositeTriangle(j2));
  pT->setPropertiesAndOppT(a, b, q, pNj1, pN, pTi2);
  pN->setPropertiesAndOppT(a, q, c, pNj2, pTi1, pT);
  // Only two outer neighbours change owner: the one across b-q and the one
  // across c-a. The others keep pointing at the same triangle object.
  if (pNj1 != nullptr) pNj1->setOppTriangle(pNj1->getIntraTriangleIndex(pN), pT);
  if (pTi1 != nullptr) pTi1->setOppTriangle(pTi1->getIntraTriangleIndex(pT), pN);
}

bool Dt2::canBeFlipped(Triangle2* pT, int ith) {
  Triangle2* pN(pT->getOppositeTriangle(ith));
  if (pN == nullptr) return false;
  // A constraint edge can't be flipped either; that test belongs here.
  Point2* a(pT->getCorner(ith));
  Point2* b(pT->getCorner(incIndexBy1(ith)));
  Point2* c(pT->getCorner(incIndexBy2(ith)));
  Point2* q(pN->getCorner(pN->getIntraTriangleIndex(pT)));
  return kiroTest.getOrientation2(a, q, b) == ORIENTATION2_CW && kiroTest.getOrientation2(a, q, c) == ORIENTATION2_CCW;
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
  while (!vWork.empty()) {
    Triangle2* pFromT(vWork.back().first);
    const int fromICI(vWork.back().second);
    vWork.pop_back();
    Triangle2* pN(pFromT->getOppositeTriangle(fromICI));
    if (pN == nullptr) continue;
    Point2* pFar(pN->getCorner(pN->getIntraTriangleIndex(pFromT)));
    if (kiroTest.circleInc3state(pFromT, pFar) != CINC2_INCIRCLE) continue;
    VASK_ASSERT(canBeFlipped(pFromT, fromICI));
    flip(pFromT, fromICI);
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

// ---------------------------------------------------------------------------
// Batch insertion

void Dt2::insertVector(const std::vector<Point2>& vInputPoints, std::vector<Point2*>* pVHandles) {
  if (vInputPoints.empty()) return;
  const size_t n(vInputPoints.size());
  VASK_ASSERT(vertexVault.dupIsClean());
  if (bbox.add(vInputPoints.begin(), vInputPoints.end())) growBox();
  const bool bWasFullDim(*pBFullDimensional);
  const bool bFakeBox(numCPU > 1);
  if (bFakeBox) vertexVault.createFakeBox(bbox);
  progress.start("insert vertices", static_cast<unsigned>(1.1 * n));
  size_t numPreExistingVtx(0);
  vertexVault.addVertices(vInputPoints, pVHandles, numPreExistingVtx);
  if (pVHandles != nullptr) VASK_ASSERT(vInputPoints.size() == pVHandles->size());
  progress.advance(static_cast<unsigned>(0.1 * n));
  if (!*pBFullDimensional) {
    createFullDimTriangle(numPreExistingVtx);
  } else {
    // A fake box raised on collinear data: the waiting points go in too.
    const size_t firstPos(bWasFullDim ? numPreExistingVtx : 0);
    VtxRecIt first, last;
    vertexVault.getRange(firstPos, first, last);
    if (first != last) {
      const Point2* pFirst((*first)->pVtx);
      triangulateRange(first, last, vertexVault.getCloseTriangle(getHilbertIndex(pFirst->x(), pFirst->y())));
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

void Dt2::triangulateRange(VtxRecIt first, VtxRecIt last, Triangle2* pStart) {
  // Several workers would take ranges of 1000 or more records to the
  // multi-threaded inserter; until it exists all ranges go in on this thread.
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

// ---------------------------------------------------------------------------
// Removal of a hull vertex

// Contract: pVtx is a vertex of the mesh on the convex hull. Edges from pVtx
// whose quadrilateral is convex at the far side are flipped away until the
// triangles at pVtx are ears of the hull; these are cut off (they go to
// vDeadT), and a flip sweep makes the rest Delaunay again. With no triangle
// left the triangulation returns to the collinear state.
void Dt2::removeHullVertex(Point2* pVtx, bool bUpdateVault) {
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
  std::vector<Triangle2*> vNext;
  while (!vList.empty()) {
    vNext.clear();
    for (Triangle2* pT : vList) {
      for (int k = 0; k < 3; ++k) {
        Triangle2* pN(pT->getOppositeTriangle(k));
        if (pN == nullptr) continue;
        // The constraint test of this edge belongs here.
        Point2* pFar(pN->getCorner(pN->getIntraTriangleIndex(pT)));
        if (kiroTest.circleInc3state(pT, pFar) != CINC2_INCIRCLE) continue;
        flip(pT, k);
        vNext.push_back(pT);
        vNext.push_back(pN);
        break;
      }
    }
    vList.swap(vNext);
  }
}

// ---------------------------------------------------------------------------
// Queries

Triangle2* Dt2::locate(const Point2& p) {
  if (!*pBFullDimensional) return nullptr;
  // Queries may lie far outside the data: raise the bound before walking.
  kiroTest.updateStaticBound(&p);
  const Point2 query(p);
  Triangle2* pT(vertexVault.getCloseTriangle(getHilbertIndex(query.x(), query.y())));
  int edgeIdx(-1);
  const int state(locateConflictTriangle(query, pT, edgeIdx));
  if (state == -1 || state == 4) return pT;
  if (kiroTest.getOrientation2(pT, state, &query) == ORIENTATION2_CW) return nullptr;
  return pT;
}

Triangle2* Dt2::getAdjacentTriangle(Point2* p0, Point2* p1) const {
  VASK_ASSERT(p0 != 0);
  VASK_ASSERT(p1 != 0);
  VASK_ASSERT(p0 != p1);
  if (p0->getIncidentTriangle() == nullptr) return nullptr;
  TriangleAroundVertexIterator start(p0), it(p0);
  do {
    Triangle2* pT(*it);
    if (pT != nullptr && pT->getCorner(incIndexBy1(pT->getIntraTriangleIndex(p0))) == p1) return pT;
    ++it;
  } while (it != start);
  return nullptr;
}

void Dt2::getIncidentTriangles(Point2* pVtx, std::vector<Triangle2*>& vIncT) const {
  if (pVtx == nullptr || pVtx->getIncidentTriangle() == nullptr) return;
  TriangleAroundVertexIterator start(pVtx), it(pVtx);
  do {
    if (*it != nullptr) vIncT.push_back(*it);
    ++it;
  } while (it != start);
}

void Dt2::getIncidentVertices(Point2* pVtx, std::vector<Point2*>& vIncV) const {
  std::vector<Triangle2*> vIncT;
  getIncidentTriangles(pVtx, vIncT);
  std::vector<Point2*> vCorners;
  for (Triangle2* pT : vIncT)
    for (int i = 0; i < 3; ++i)
      if (pT->getCorner(i) != pVtx) vCorners.push_back(pT->getCorner(i));
  std::sort(vCorners.begin(), vCorners.end());
  vCorners.erase(std::unique(vCorners.begin(), vCorners.end()), vCorners.end());
  vIncV.insert(vIncV.end(), vCorners.begin(), vCorners.end());
}

bool Dt2::isAdjacent(Point2* p0, Point2* p1) const {
  std::vector<Triangle2*> vIncT;
  getIncidentTriangles(p0, vIncT);
  for (Triangle2* pT : vIncT)
    if (pT->hasVertex(p1)) return true;
  return false;
}

bool Dt2::isDegenerate(Triangle2* pT) {
  return kiroTest.getOrientation2(pT->getCorner(0), pT->getCorner(1), pT->getCorner(2)) == ORIENTATION2_COLLINEAR;
}

// From the hull vertex pVtx of pT, crosses the edges around pVtx until the
// hull edge that starts at pVtx; returns that triangle, its edge in ith.
static Triangle2* nextHullEdge(Triangle2* pT, Point2* pVtx, int& ith) {
  int axisIdx(pT->getIntraTriangleIndex(pVtx));
  while (Triangle2* pNeig = pT->getOppositeTriangle(incIndexBy2(axisIdx))) {
    pT = pNeig;
    axisIdx = pT->getIntraTriangleIndex(pVtx);
  }
  VASK_ASSERT(pT->getOppositeTriangle(incIndexBy2(axisIdx)) == 0);
  ith = incIndexBy2(axisIdx);
  return pT;
}

void Dt2::getConvexHull(bool bAllVertices, std::vector<Point2*>& vConvexHullPoints) {
  if (!*pBFullDimensional) {
    logWarning("Dt2::getConvexHull()", "the triangulation has no area yet");
    return;
  }
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  Triangle2* pStartT(nullptr);
  Point2* pStartVtx(nullptr);
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i)
      if (pT->getOppositeTriangle(i) == nullptr) {
        pStartT = pT;
        pStartVtx = pT->getCorner(incIndexBy2(i));
      }
  VASK_ASSERT(pStartT != 0);
  VASK_ASSERT(pStartVtx != 0);
  std::vector<Point2*> vHull;
  vHull.push_back(pStartVtx);
  Triangle2* pT(pStartT);
  Point2* pVtx(pStartVtx);
  for (;;) {
    int ith;
    pT = nextHullEdge(pT, pVtx, ith);
    pVtx = pT->getCorner(incIndexBy2(ith));
    if (pVtx == pStartVtx) break;
    vHull.push_back(pVtx);
  }
  VASK_ASSERT(!vHull.empty());
  std::vector<Point2*>::iterator minIt(vHull.begin());
  for (std::vector<Point2*>::iterator it = vHull.begin(); it != vHull.end(); ++it)
    if (**it < **minIt) minIt = it;
  std::rotate(vHull.begin(), minIt, vHull.end());
  if (bAllVertices) {
    vConvexHullPoints.insert(vConvexHullPoints.end(), vHull.begin(), vHull.end());
    return;
  }
  // The first vertex (smallest x, then y) is a true corner. A vertex is kept
  // when it is not collinear with the last kept one and its successor.
  std::vector<Point2*> vSimplified(1, vHull[0]);
  const size_t m(vHull.size());
  for (size_t j = 1; j <= m; ++j) {
    Point2* pCand(vHull[j % m]);
    if (kiroTest.getOrientation2(vSimplified.back(), pCand, vHull[(j + 1) % m]) != ORIENTATION2_COLLINEAR)
      vSimplified.push_back(pCand);
  }
  VASK_ASSERT(vSimplified[0] == vSimplified.back());
  vSimplified.pop_back();
  vConvexHullPoints.insert(vConvexHullPoints.end(), vSimplified.begin(), vSimplified.end());
}

void Dt2::getConvexHullEdges(std::vector<std::pair<Triangle2*, int> >& vConvexHull) const {
  if (!*pBFullDimensional) return;
  Triangle2* pAnyT(getOneTriangle());
  VASK_ASSERT(pAnyT != NULL);
  // March to the hull: an inner vertex always has a neighbour of smaller x.
  Point2* pVtx(pAnyT->getCorner(0));
  Triangle2* pStartStopT(nullptr);
  int startStopIdx(-1);
  std::vector<Triangle2*> vIncT;
  while (pStartStopT == nullptr) {
    VASK_ASSERT(pVtx != NULL);
    vIncT.clear();
    getIncidentTriangles(pVtx, vIncT);
    Point2* pMinVtx(pVtx);
    for (Triangle2* pT : vIncT) {
      for (int i = 0; i < 3; ++i) {
        if (pStartStopT == nullptr && pT->getOppositeTriangle(i) == nullptr) {
          pStartStopT = pT;
          startStopIdx = i;
        }
        if (*pT->getCorner(i) < *pMinVtx) pMinVtx = pT->getCorner(i);
      }
    }
    pVtx = pMinVtx;
  }
  vConvexHull.emplace_back(pStartStopT, startStopIdx);
  VASK_ASSERT(vConvexHull.size() == 1);
  VASK_ASSERT(pStartStopT->getOppositeTriangle(startStopIdx) == NULL);
  Triangle2* pT(pStartStopT);
  int ith(startStopIdx);
  for (;;) {
    pT = nextHullEdge(pT, pT->getCorner(incIndexBy2(ith)), ith);
    if (pT == pStartStopT && ith == startStopIdx) break;
    vConvexHull.emplace_back(pT, ith);
  }
}

// ---------------------------------------------------------------------------
// Validation and statistics

bool Dt2::checkValidity(bool bCheckEmptyCircle, const std::string& name_) {
  if (!*pBFullDimensional) {
    logInfo("checkValidity(" + name_ + ")", "not fulldimensional yet (empty or all points collinear), Returning true");
    return true;
  }
  const std::string tag("Vask_2D::CheckValidity(" + name_ + ")");
  logInfo(tag, "has been started");
  bool bValid(true);
  auto report = [&](const std::string& text, const Triangle2* pT) {
    std::ostringstream oss;
    oss << text << " " << *pT;
    logError(tag, oss.str());
    bValid = false;
  };
  std::vector<EmptyCircleFailure> vBadCircles;
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  for (Triangle2* pT : vT) {
    Point2* a(pT->getCorner(0));
    Point2* b(pT->getCorner(1));
    Point2* c(pT->getCorner(2));
    if (a == nullptr || b == nullptr || c == nullptr || a == b || b == c || a == c) {
      report("Less than three different corners", pT);
      continue;
    }
    if (kiroTest.getOrientation2(a, b, c) != ORIENTATION2_CCW) report("Corners are not counter-clockwise:", pT);
    for (int i = 0; i < 3; ++i) {
      Triangle2* pN(pT->getOppositeTriangle(i));
      if (pN == nullptr) continue;
      int numBack(0), backIdx(-1);
      for (int j = 0; j < 3; ++j)
        if (pN->getOppositeTriangle(j) == pT) {
          ++numBack;
          backIdx = j;
        }
      if (numBack == 0) {
        report("Inconsistent neighborships:", pT);
        continue;
      }
      Point2* p1(pT->getCorner(incIndexBy1(i)));
      Point2* p2(pT->getCorner(incIndexBy2(i)));
      if (numBack != 1 || pN->getCorner(incIndexBy1(backIdx)) != p2 || pN->getCorner(incIndexBy2(backIdx)) != p1) {
        report("Neighbor found but inconsistent intra triangle indices:", pT);
        continue;
      }
      // Edges that carry a constraint segment are exempt from this test.
      if (bCheckEmptyCircle && kiroTest.circleInc3state(pT, pN->getCorner(backIdx)) == CINC2_INCIRCLE) {
        report("Sphere inclusion test failed ", pT);
        vBadCircles.push_back(EmptyCircleFailure{pT, pN, pN->getCorner(backIdx)});
      }
    }
  }
  std::vector<Point2*> vVertices;
  getVertexPointers(vVertices);
  for (Point2* pVtx : vVertices) {
    Triangle2* pIncT(pVtx->getIncidentTriangle());
    if (pIncT == nullptr || !pIncT->hasVertex(pVtx)) {
      std::ostringstream oss;
      oss << "Vertex without a valid incident triangle: " << *pVtx;
      logError(tag, oss.str());
      bValid = false;
    }
  }
  if (bValid) {
    logInfo(tag, "Valid triangulation");
  } else {
    std::cout << "\ncheckValidity, bug, name=" << name_ << std::endl;
    show("currentState.ps", true);
    if (!vBadCircles.empty()) drawEmptyCircleFailures(*this, vBadCircles, name_);
  }
  return bValid;
}

void Dt2::statistics(const std::string& name_) const {
  std::cout << "\n\n\n********* MESH STATISTICS (" << name_ << ") **********\n\n";
  std::vector<double> vLimits;
  for (int limit = 10; limit <= 180; limit += 10) vLimits.push_back(limit);
  Histogram histogram("INTERIOR ANGLES", vLimits);
  std::cout << "Number of triangles: " << numberOfTriangles() << std::endl;
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) histogram.add(pT->getInteriorAngle2D(i));
  histogram.print(std::cout);
}

double Dt2::measureTriangulationTime(const std::vector<Point2>& vPoints) const {
  Dt2 localDt2(3);
  timer("[quiet] Delaunay point insertion");
  localDt2.setNumCPU(numCPU);
  localDt2.insertVector(vPoints, nullptr);
  return timer("[quiet] Delaunay point insertion");
}

// ---------------------------------------------------------------------------
// Counts and settings

unsigned Dt2::numberOfTriangles() const {
  const size_t numDeadT(vDeadT.size());
  VASK_ASSERT(numDeadT <= numAllT);
  return static_cast<unsigned>(numAllT - numDeadT);
}

void Dt2::getTrianglePointers(std::vector<Triangle2*>& vAllTriangles) const {
  vAllTriangles.clear();
  if (!*pBFullDimensional) return;
  vAllTriangles.reserve(numberOfTriangles());
  // Pool order is the order of allocation; dead triangles have no corners.
  for (int b = 0; b < trianglePool.getNumContainers(); ++b) {
    int numUsed(0);
    Triangle2* pBlock(trianglePool.getContainer(b, numUsed));
    for (int i = 0; i < numUsed; ++i)
      if (pBlock[i].getCorner(0) != nullptr) vAllTriangles.push_back(pBlock + i);
  }
}

int Dt2::setNumCPU(int numCPU_) {
  if (numCPU_ > 0) {
    numCPU = numCPU_;
  } else if (numCPU_ < 0) {
    numCPU = 1;
  } else {
    numCPU = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  }
  return numCPU;
}

bool Dt2::getDev(const std::string& key, int& iVal, double& dVal) const {
  std::map<std::string, std::pair<int, double> >::const_iterator it(mDevValues.find(key));
  if (it == mDevValues.end()) return false;
  iVal = it->second.first;
  dVal = it->second.second;
  return true;
}

void Dt2::show(const char* filename, bool bWithConstraints) const {
  Visualizer2 vis(filename);
  show(&vis, bWithConstraints);
  vis.writeFile();
}

void Dt2::show(Visualizer2* pVis, bool bWithConstraints) const {
  if (pVis == nullptr) {
    logWarning("Dt2::show()", "pVis==NULL, no visualization");
    return;
  }
  if (!hasArea()) {
    logWarning("Dt2::show()", "The triangulation is has no area, no visualization");
    return;
  }
  // Each edge once: as the pair of its end points ordered by pointer value,
  // which both of its triangles produce alike.
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  std::vector<VertexPair2> vEdges;
  vEdges.reserve(3 * vT.size());
  for (const Triangle2* pT : vT) {
    for (int i = 0; i < 3; ++i) {
      Point2* p0(pT->getCorner(incIndexBy1(i)));
      Point2* p1(pT->getCorner(incIndexBy2(i)));
      // checkValidity draws broken meshes too: a missing corner is skipped.
      if (p0 != nullptr && p1 != nullptr) vEdges.push_back(VertexPair2(p0, p1));
    }
  }
  std::sort(vEdges.begin(), vEdges.end());
  vEdges.erase(std::unique(vEdges.begin(), vEdges.end()), vEdges.end());
  // No constraint segment can exist in this triangulation yet, so every edge
  // is an ordinary edge; bWithConstraints only chooses how constraint edges
  // are drawn (red and 0.5 wide, or black and 0.001 wide).
  (void)bWithConstraints;
  const Color ordinary(CBLACK, 0.01f, false);
  for (const VertexPair2& edge : vEdges) pVis->addObject(Segment2(*edge.getFirst(), *edge.getSecond()), ordinary);
}

} // namespace KIRO_VASK2D

// ===========================================================================
// Vertex removal
//
// A vertex leaves by flips alone: ears of its fan are cut off until it has
// degree 3 (inner vertex), then its three triangles merge into one; a hull
// vertex's fan is reduced and cut off the hull. No triangle is allocated,
// and a breadth-wise flip sweep over the former fan restores the
// empty-circle property. All scratch lists are members, so a removal in the
// steady state allocates nothing.
// ===========================================================================

namespace KIRO_VASK2D {

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
  if (pVtx == nullptr) {
    logWarning("Dt2::remove()", "pVtx==NULL, illegal, return.");
    return;
  }
  // A vertex of a constraint segment is refused here, before anything
  // changes: "Illegal: Can't remove a constraint vertex" (tag "Dt2::remove(..)").
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

/* Contract: pT holds pVtx; edge e = i+1 of pT (i the index of pVtx) leads
   to the next triangle pN of the fan, counter-clockwise. When the ring
   corners a, b, q form a proper counter-clockwise ear that does not
   overlap pVtx, the edge pVtx-b is flipped into a-q: pT becomes the ear
   (a, b, q), which no longer touches pVtx, and pN becomes (a, q, pVtx),
   which continues the fan; pN is returned. Otherwise nothing changes and
   the result is null. pVtx may end up on the edge a-q (a, q, pVtx
   collinear): then pN is flat, which is harmless because every triangle
   at pVtx disappears before the removal ends.

                q                          q
       Nj2     / \    Nj1         Nj2     /|\    Nj1
              / N \                      / | \
             v-----b       ->           v N| T b      T = (a,b,q)
              \ T /                      \ | /        N = (a,q,v)
       Te1     \ /    Ti          Te1     \|/    Ti
                a                          a
*/
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
  Triangle2* pNj1(pN->getOppositeTriangle(incIndexBy1(j)));
  Triangle2* pNj2(pN->getOppositeTriangle(incIndexBy2(j)));
  Triangle2* pTi(pT->getOppositeTriangle(i));
  Triangle2* pTe1(pT->getOppositeTriangle(incIndexBy1(e)));
  pT->setPropertiesAndOppT(a, b, q, pNj1, pN, pTi);
  pN->setPropertiesAndOppT(a, q, pVtx, pNj2, pTe1, pT);
  // Only two outer neighbours change owner: the one across b-q and the
  // previous triangle of the fan, across pVtx-a.
  if (pNj1 != nullptr) pNj1->setOppTriangle(pNj1->getIntraTriangleIndex(pN), pT);
  if (pTe1 != nullptr) pTe1->setOppTriangle(pTe1->getIntraTriangleIndex(pT), pN);
  // The refiner, while it runs, hears of pT and pN here.
  return pN;
}

/* Contract: pVtx has exactly the three triangles T0, T1, T2 (T0 = pT, in
   counter-clockwise order), and lies inside or on an edge of the triangle
   of its ring corners r0, r1, r2. T0 becomes (r0, r1, r2) with the three
   outer neighbours; T1 and T2 go to vDeadT.

              r2                           r2
         O2  /|\  O1                  O2  / \  O1     T0 = (r0, r1, r2);
            / | \                        /   \        slot 0 = O1 (r1-r2),
           /T2|T1\          ->          / T0  \       slot 1 = O2 (r2-r0),
          /  _v_  \                    /       \      slot 2 = O0 (r0-r1)
         r0---T0--r1                  r0-------r1
              O0                           O0
*/
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
  Point2* aRing[3];
  Triangle2* aOuter[3];
  int aOuterIdx[3];
  for (int k = 0; k < 3; ++k) {
    Triangle2* pK(vRemainingT[k]);
    const int i(pK->getIntraTriangleIndex(pVtx));
    aRing[k] = pK->getCorner(incIndexBy1(i));
    aOuter[k] = pK->getOppositeTriangle(i);
    aOuterIdx[k] = aOuter[k] != nullptr ? aOuter[k]->getIntraTriangleIndex(pK) : -1;
  }
  Triangle2* pT0(vRemainingT[0]);
  pT0->setPropertiesAndOppT(aRing[0], aRing[1], aRing[2], aOuter[1], aOuter[2], aOuter[0]);
  for (int k = 1; k < 3; ++k) {
    if (aOuter[k] != nullptr) aOuter[k]->setOppTriangle(aOuterIdx[k], pT0);
    vRemainingT[k]->clearProperties();
    vDeadT.push_back(vRemainingT[k]);
  }
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
  Triangle2* pN(pT->getOppositeTriangle(k));
  if (pN == nullptr) return;
  // An edge that carries a constraint segment is never flipped; its test
  // belongs here, before the in-circle test.
  Point2* pFar(pN->getCorner(pN->getIntraTriangleIndex(pT)));
  if (kiroTest.circleInc3state(pT, pFar) != CINC2_INCIRCLE) return;
  // The far corner lies strictly inside the circle, so the quadrilateral is
  // strictly convex and the flip is legal.
  flip(pT, k);
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
