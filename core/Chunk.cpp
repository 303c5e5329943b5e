#include "core/Chunk.h"
#include "core/StraightWalk.h"
#include "TriangleAroundVertexIterator.h"
#include "core/Dt2.h"
#include "core/EdgeLegality.h"
#include "core/MeshRewiring.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cfloat>
#include <cmath>

namespace KIRO_VASK2D {

Chunk::Chunk(Dt2* pDt2_, const Bbox2* pDataBox_, unsigned chunkId_, std::vector<IdxVtxAct*>* pVIdxVtxAct_,
             unsigned startIdx_, unsigned stopIdx_)
    : state(CS_WAITING), pDt2(pDt2_), pDataBox(pDataBox_), chunkId(chunkId_), pVIdxVtxAct(pVIdxVtxAct_),
      startIdx(startIdx_), stopIdx(stopIdx_), bFirstFresh(true), pStartVtx(nullptr), bFastMode(pDt2_->isFastMode()),
      bUnbounded(false), bOwnershipReady(false) {
  // The fake corners lie within 1% of the data's box; the triangulation's
  // own bound covers them in any case.
  const double maxAbs(std::max(std::fabs(pDataBox->getMaxCoord()), std::fabs(pDataBox->getMinCoord())));
  staticBound = std::max(1.01 * maxAbs, pDt2->getKiroTest().getMaxCoord());
}

KiroTest& Chunk::predicates() {
  if (!pKiroTest) {
    pKiroTest.reset(new KiroTest);
    pKiroTest->setStaticBound_MT(staticBound);
  }
  return *pKiroTest;
}

bool Chunk::isFakeCorner(const Point2* pVtx) const {
  const VertexVault& vault(pDt2->getVertexVault());
  if (!vault.hasFakeBox()) return false;
  for (size_t i = 0; i < 4; ++i)
    if (vault.getFakeBoxCorner(i) == pVtx) return true;
  return false;
}

void Chunk::checkOwned(const Triangle2* pT, int minCorners) const {
#ifdef VASK2D_DEBUG_BUILD
  if (!bOwnershipReady || bUnbounded || pT == nullptr) return;
  int numInside(0);
  for (int i = 0; i < 3; ++i)
    if (extBox.isInBox(*pT->getCorner(i))) ++numInside;
  VASK_ASSERT(numInside >= minCorners && "a chunk touched a triangle outside its extended box");
#else
  (void)pT;
  (void)minCorners;
#endif
}

namespace {

/* A disk that holds the circumdisk of pT, computed in doubles with its own
   error bound; false where the bound is not small against the radius (a
   near-flat triangle, or coordinates out of range), and the caller then
   has to assume the worst. Each worker computes its own: no shared state.

   With b = B - A and c = C - A (each off by one rounding, relative u =
   2^-53), the centre is A + (cy |b|^2 - by |c|^2, bx |c|^2 - cx |b|^2) / 2d,
   d = bx cy - by cx. Coordinates are first scaled by a power of two to the
   unit range (exact), so that squares neither underflow nor overflow. The
   relative error of d is below 4u kappa + u, kappa = (|bx cy| + |by cx|) /
   |d|, and that of each numerator term below 6u; so each centre coordinate
   is off by less than 8u (kappa + 1) (|offset| + (|terms|) / |2d|), which
   the bound below doubles. The radius is the distance to A plus that
   error, and the sum with A adds u |centre|. */
bool enclosingDisk(const Triangle2* pT, double& cx, double& cy, double& radius) {
  const Point2& A(*pT->getCorner(0));
  const Point2& B(*pT->getCorner(1));
  const Point2& C(*pT->getCorner(2));
  double bx(B.x() - A.x()), by(B.y() - A.y()), qx(C.x() - A.x()), qy(C.y() - A.y());
  const double maxAbs(std::max(std::max(std::fabs(bx), std::fabs(by)), std::max(std::fabs(qx), std::fabs(qy))));
  if (!(maxAbs > 0.0) || !std::isfinite(maxAbs)) return false;
  int exponent(0);
  std::frexp(maxAbs, &exponent);
  bx = std::ldexp(bx, -exponent);
  by = std::ldexp(by, -exponent);
  qx = std::ldexp(qx, -exponent);
  qy = std::ldexp(qy, -exponent);
  const double det(bx * qy - by * qx);
  const double perm(std::fabs(bx * qy) + std::fabs(by * qx));
  if (!(std::fabs(det) > 0.0)) return false;
  const double kappa(perm / std::fabs(det));
  const double lb(bx * bx + by * by), lc(qx * qx + qy * qy);
  const double ox((qy * lb - by * lc) / (2.0 * det));
  const double oy((bx * lc - qx * lb) / (2.0 * det));
  const double terms((std::fabs(qy) * lb + std::fabs(by) * lc + std::fabs(bx) * lc + std::fabs(qx) * lb) /
                     std::fabs(2.0 * det));
  const double offset(std::sqrt(ox * ox + oy * oy));
  const double err(16.0 * DBL_EPSILON * (kappa + 1.0) * (offset + terms));
  // A centre that is not good to a thousandth of the radius is no use.
  if (!(err < 1e-3 * offset)) return false;
  cx = A.x() + std::ldexp(ox, exponent);
  cy = A.y() + std::ldexp(oy, exponent);
  const double r(std::ldexp(offset + 2.0 * err, exponent));
  radius = r + 2.0 * DBL_EPSILON * (std::fabs(cx) + std::fabs(cy) + r);
  return std::isfinite(cx) && std::isfinite(cy) && std::isfinite(radius);
}

} // namespace

// Whether the closed circumdisk of pT, its squared radius widened by 5% for
// rounding, meets one of the four sides of the box with these corners
// (counter-clockwise). A circle without a reliable centre counts as
// reaching it: the answer must err on the safe side.
bool Chunk::circleReachesSide(const std::vector<Point2>& vCorners, const Triangle2* pT) const {
  double cx(0.0), cy(0.0), radius(0.0);
  if (!enclosingDisk(pT, cx, cy, radius)) return true;
  const Point2 center(cx, cy);
  const double limit(radius * radius * 1.05);
  for (size_t i = 0; i < vCorners.size(); ++i) {
    const Point2& p0(vCorners[i]);
    const Point2& p1(vCorners[(i + 1) % vCorners.size()]);
    const bool bVertical(p0.x() == p1.x());
    if (!bVertical) VASK_ASSERT(p0.y() == p1.y());
    const double dLine(bVertical ? center.x() - p0.x() : center.y() - p0.y());
    if (dLine * dLine > limit) continue;
    if (sqDistance2D(center, p0) <= limit || sqDistance2D(center, p1) <= limit) return true;
    if (bVertical) {
      if (center.y() >= std::min(p0.y(), p1.y()) && center.y() <= std::max(p0.y(), p1.y())) return true;
    } else if (center.x() >= std::min(p0.x(), p1.x()) && center.x() <= std::max(p0.x(), p1.x())) {
      return true;
    }
  }
  return false;
}

// Adds the circumdisk of pT to the rectangle; a circle without a reliable
// centre makes the extended box the whole plane.
void Chunk::extendByCircle(const Triangle2* pT, double& minX, double& minY, double& maxX, double& maxY) {
  double cx(0.0), cy(0.0), radius(0.0);
  if (!enclosingDisk(pT, cx, cy, radius)) {
    bUnbounded = true;
    return;
  }
  minX = std::min(minX, cx - radius);
  minY = std::min(minY, cy - radius);
  maxX = std::max(maxX, cx + radius);
  maxY = std::max(maxY, cy + radius);
}

// A vertex of the mesh near the chunk's records along the curve: a record
// of the range that is in the mesh already (a sample vertex), else the
// nearest such record before or behind the range, else a fake corner.
Point2* Chunk::findMeshVertexNear() const {
  const std::vector<IdxVtxAct*>& vRecords(*pVIdxVtxAct);
  for (unsigned i = startIdx; i < stopIdx; ++i)
    if (vRecords[i]->pVtx->getIncidentTriangle() != nullptr) return vRecords[i]->pVtx;
  for (size_t lo = startIdx, hi = stopIdx; lo > 0 || hi < vRecords.size();) {
    if (lo > 0 && vRecords[--lo]->pVtx->getIncidentTriangle() != nullptr) return vRecords[lo]->pVtx;
    if (hi < vRecords.size() && vRecords[hi++]->pVtx->getIncidentTriangle() != nullptr) return vRecords[hi - 1]->pVtx;
  }
  const VertexVault& vault(pDt2->getVertexVault());
  VASK_ASSERT(vault.hasFakeBox());
  return vault.getFakeBoxCorner(0);
}

/* Why chunks with disjoint extended boxes never touch the same triangle.

   Let S be the vertex set of the mesh when the first chunk starts (the fake
   corners included, so its convex hull R holds every point), B the closed
   box of a chunk's records and start vertex, and C(B) the triangles of
   DT(S) whose closed circumdisk meets B. The extended box X holds B, the
   circumdisks of C(B) and those of every triangle around a corner of a
   triangle of C(B). (A disk inside B needs no listing; every other disk
   that meets B crosses a side of B, and the triangles whose disks meet a
   side form a connected set, since each point of the side has a connected
   star of conflicting triangles: the flood fill below finds them all.)

   Claim. Let S' contain S, with all points in R, and let T be a triangle
   of DT(S') whose closed circumdisk D meets B. Then the corners of T lie
   in X.
   Proof. D's interior holds no point of S'. Grow D about its centre until
   its circle meets a point s1 of S, then move the centre away from s1
   along the ray from s1, keeping s1 on the circle, until the circle meets
   a second point s2 of S (the disks of this growth are nested; the circle
   stays in R's reach since s1 is not an extreme point of R unless D lies
   outside R). The final open disk M holds D, is empty of S and has s1 and
   s2 on its circle, so s1-s2 is an edge of DT(S), with the triangles t1
   and t2 on its two sides. All empty circles through s1 and s2 form a
   pencil between the circles of t1 and t2; on the side of t1 they grow
   towards the circle of t1, on the other side towards the circle of t2, so
   M lies in the union of the two closed circumdisks. D meets B, so one of
   them, say t1, has a disk that meets B: t1 lies in C(B), and t2 shares the
   corners s1 and s2 with it. Both disks lie in X, and so do T's corners,
   which lie on D's circle. (On a cocircular cell, s1-s2 may be a diagonal
   that this triangulation does not have; then M's circle passes through
   three points of S and is the circle of a triangle of C(B).)

   Use. When a chunk inserts a point p of B, it touches: the triangles of
   its straight walk, which meet the segment from its start vertex (in B)
   to p, hence B; the triangles whose circle holds p, which it rewrites;
   and across their edges the neighbours, whose back slot it rewrites and
   whose corners it reads. The claim puts all corners of the first two
   kinds into X, and two corners of each neighbour. A triangle with two
   corners in X and two in X' shares a corner with both, so X and X' meet.
   Hence the triangles two running chunks with disjoint boxes touch are
   disjoint, vertices included, and by induction over the steps of the
   concurrent run every step sees a mesh that equals, on what it touches,
   a Delaunay triangulation of S plus the points inserted so far, as the
   claim requires. A finished chunk's changes reach the next chunk that
   meets its box through the inserter's mutex.

   Rounding. Centres and radii are computed in doubles with an error bound
   that enlarges each disk (enclosingDisk); circles without a reliable
   centre make X the whole plane (the chunk then runs alone), the side test
   widens the squared radius by 5%, and X gets a margin of 1% of its size
   and a few units of the last place. Fast mode leaves edges whose
   in-circle determinant is below the filter's error bound, which moves a
   circle by far less than that margin. Debug builds check every triangle
   the chunk touches against X (checkOwned). */
void Chunk::determineExtBox() {
  std::vector<IdxVtxAct*>& vRecords(*pVIdxVtxAct);
  VASK_ASSERT(startIdx < stopIdx);
  for (unsigned i = startIdx; i < stopIdx; ++i) box.add(*vRecords[i]->pVtx);
  // The start vertex: a vertex of the range already in the mesh, or the
  // nearest real corner of the triangle that holds the first record.
  pStartVtx = nullptr;
  for (unsigned i = startIdx; i < stopIdx && pStartVtx == nullptr; ++i)
    if (vRecords[i]->pVtx->getIncidentTriangle() != nullptr) pStartVtx = vRecords[i]->pVtx;
  if (pStartVtx == nullptr) {
    const Point2& first(*vRecords[startIdx]->pVtx);
    Triangle2* pT(nullptr);
    int edgeIdx(-1);
    locateInsideConflictT(first, findMeshVertexNear(), pT, edgeIdx);
    VASK_ASSERT(pT != 0 && "pLastT!=0");
    double bestDist(DBL_MAX);
    for (int k = 0; k < 3; ++k) {
      Point2* pCorner(pT->getCorner(k));
      if (isFakeCorner(pCorner)) continue;
      const double dist(sqDistance2D(*pCorner, first));
      if (pStartVtx == nullptr || dist < bestDist) {
        pStartVtx = pCorner;
        bestDist = dist;
      }
    }
    // With data inside, no triangle has three fake corners.
    VASK_ASSERT(pStartVtx != NULL);
    box.add(*pStartVtx);
  }
  // A flat box gets a small extent, far inside the fake box: 1e-6 of the
  // data's extent in the flat axis, which the fake box exceeds by 1%. (One
  // extent for both axes put the corners of a flat chunk of very
  // anisotropic data outside the fake box.) An axis without any data
  // extent takes the other axis' share, as the fake box does; data without
  // any extent keeps a point box, which the side tests handle as it is.
  const double maxRange(pDataBox->getMaxRange());
  if (maxRange > 0.0) {
    const double rangeX(pDataBox->get_maxX() - pDataBox->get_minX());
    const double rangeY(pDataBox->get_maxY() - pDataBox->get_minY());
    if (box.get_minX() == box.get_maxX()) box.setMaxX(box.get_maxX() + 1e-6 * (rangeX > 0.0 ? rangeX : maxRange));
    if (box.get_minY() == box.get_maxY()) box.setMaxY(box.get_maxY() + 1e-6 * (rangeY > 0.0 ? rangeY : maxRange));
  }
  extBox = box;
  // The triangles whose circles meet a side of the box: one flood fill
  // from the triangles at the four corners (the set of each side is
  // connected, and the sets of two sides share the triangle at their corner).
  std::vector<Point2> vCorners;
  box.getCorners(vCorners);
  // The sets are small (tens of triangles): plain vectors beat hashing here.
  std::vector<const Triangle2*> vVisited;
  std::vector<Triangle2*> vQueue;
  for (int i = 0; i < 4; ++i) {
    Triangle2* pSideStartT(nullptr);
    int edgeIdx(-1);
    locateInsideConflictT(vCorners[i], pStartVtx, pSideStartT, edgeIdx);
    VASK_ASSERT(pSideStartT != 0 && "pStartT!=0");
    if (std::find(vVisited.begin(), vVisited.end(), pSideStartT) != vVisited.end()) continue;
    vVisited.push_back(pSideStartT);
    vQueue.push_back(pSideStartT);
  }
  while (!vQueue.empty()) {
    Triangle2* pT(vQueue.back());
    vQueue.pop_back();
    vBorderT.push_back(pT);
    for (int k = 0; k < 3; ++k) {
      Triangle2* pN(pT->getOppositeTriangle(k));
      if (pN == nullptr || std::find(vVisited.begin(), vVisited.end(), pN) != vVisited.end()) continue;
      vVisited.push_back(pN);
      if (circleReachesSide(vCorners, pN)) vQueue.push_back(pN);
    }
  }
  // Their circles, and those of every triangle around one of their corners
  // (which includes their neighbours).
  std::vector<Point2*> vVertices;
  vVertices.reserve(3 * vBorderT.size());
  for (Triangle2* pT : vBorderT)
    for (int k = 0; k < 3; ++k) vVertices.push_back(pT->getCorner(k));
  std::sort(vVertices.begin(), vVertices.end());
  vVertices.erase(std::unique(vVertices.begin(), vVertices.end()), vVertices.end());
  std::vector<const Triangle2*> vRing;
  for (Point2* pVtx : vVertices) {
    TriangleAroundVertexIterator start(pVtx), it(pVtx);
    do {
      if (*it != nullptr) vRing.push_back(*it);
      ++it;
    } while (it != start);
  }
  std::sort(vRing.begin(), vRing.end());
  vRing.erase(std::unique(vRing.begin(), vRing.end()), vRing.end());
  double minX(DBL_MAX), minY(DBL_MAX), maxX(-DBL_MAX), maxY(-DBL_MAX);
  for (const Triangle2* pT : vRing) extendByCircle(pT, minX, minY, maxX, maxY);
  if (bUnbounded) {
    extBox.add(Point2(-DBL_MAX, -DBL_MAX));
    extBox.add(Point2(DBL_MAX, DBL_MAX));
  } else if (minX <= maxX && minY <= maxY) {
    extBox.add(Point2(minX, minY));
    extBox.add(Point2(maxX, maxY));
    // 1% of the size, and at least 16 units of the last place of the
    // largest coordinate for the rounding of centres and radii.
    const double ulps(16.0 * DBL_EPSILON * std::max(extBox.getMaxCoord(), -extBox.getMinCoord()));
    const double xMargin(std::max(0.01 * extBox.getRangeX(), ulps));
    const double yMargin(std::max(0.01 * extBox.getRangeY(), ulps));
    extBox.add(Point2(extBox.get_minX() - xMargin, extBox.get_minY() - yMargin));
    extBox.add(Point2(extBox.get_maxX() + xMargin, extBox.get_maxY() + yMargin));
  }
  bOwnershipReady = true;
  releasePredicates();
}

void Chunk::triangulate() {
  VASK_ASSERT(pStartVtx != NULL);
  VtxRecIt begin(pVIdxVtxAct->begin());
  std::vector<Triangle2*>().swap(vBorderT);
  vLocalCheckT.reserve(64);
  localTriangulateRec(begin + startIdx, begin + stopIdx, pStartVtx);
  pDt2->returnFreshTriangles(vFreshTriangles);
  std::vector<Triangle2*>().swap(vFreshTriangles);
  std::vector<Triangle2*>().swap(vLocalCheckT);
  releasePredicates();
}

// The recursion of triangulateRec with a smaller leaf; a vertex instead of a
// triangle carries the start from one insertion to the next.
void Chunk::localTriangulateRec(VtxRecIt first, VtxRecIt last, Point2* pFrom) {
  for (;;) {
    const ptrdiff_t n(last - first);
    if (n <= 10) {
      for (; first != last; ++first) {
        if (!(*first)->bActive) continue;
        Triangle2* pLast(localInsertVertex(first, pFrom));
        VASK_ASSERT(pLast != NULL && "lastTriangle!=NULL");
      }
      return;
    }
    VtxRecIt mid(first + n / 2);
    if ((*mid)->bActive) {
      Triangle2* pLast(localInsertVertex(mid, pFrom));
      VASK_ASSERT(pLast != NULL && "lastTriangle!=NULL");
    }
    // pFrom is now the middle's vertex or its equal: both halves start there.
    localTriangulateRec(first, mid, pFrom);
    Point2* pMidVtx((*mid)->pVtx);
    if (pMidVtx->getIncidentTriangle() != nullptr) pFrom = pMidVtx;
    first = mid + 1;
  }
}

Triangle2* Chunk::localInsertVertex(VtxRecIt it, Point2*& pFrom) {
  VASK_ASSERT(pFrom != NULL && pFrom->getIncidentTriangle() != NULL);
  Point2* pVtx((*it)->pVtx);
  Triangle2* pCurTriangle(nullptr);
  int edgeIdx(-1);
  const int state(locateInsideConflictT(*pVtx, pFrom, pCurTriangle, edgeIdx));
  if (state == 4) {
    for (int i = 0; i < 3; ++i) {
      Point2* pCorner(pCurTriangle->getCorner(i));
      if (*pCorner == *pVtx) {
        pDt2->getVertexVault().registerDup(pVtx, pCorner);
        pFrom = pCorner;
        return pCurTriangle;
      }
    }
    VASK_ASSERT(false);
  }
  // A point on an edge also gets a 1-to-3 split: its zero-area triangle is
  // flipped away first thing, since the far triangle's circle holds every
  // inner point of the edge strictly.
  checkOwned(pCurTriangle, 3);
  for (int k = 0; k < 3; ++k) checkOwned(pCurTriangle->getOppositeTriangle(k), 2);
  Triangle2* pResult(localInitVCheckT13(pCurTriangle, pVtx));
  // A chunk ignores constraint edges, as its class contract says.
  flipLinkEdges(
      vLocalCheckT,
      [this](Triangle2* pT) {
        checkOwned(pT->getOppositeTriangle(0), 2);
        return mustFlipEdge(predicates(), bFastMode, pT, 0, [](const Triangle2*, int) { return false; });
      },
      [this](Triangle2* pT) {
        Triangle2* pN(pT->getOppositeTriangle(0));
        checkOwned(pN, 3);
        for (int k = 0; k < 3; ++k) checkOwned(pN->getOppositeTriangle(k), 2);
        flipEdge(pT, 0);
      });
  pFrom = pVtx;
  return pResult;
}

// The straight walk stays inside the chunk's extended box: every triangle
// it visits meets the segment from pFrom to p, both in the box (checkOwned
// asserts it), and the fake box around the mesh leaves no hull to walk out of.
int Chunk::locateInsideConflictT(const Point2& p, Point2* pFrom, Triangle2*& pT, int& edgeIdx) {
  VASK_ASSERT(pFrom != 0 && "pStartTriangle!=0");
  pT = pFrom->getIncidentTriangle();
  VASK_ASSERT(pT != NULL);
  const StraightWalkEnd end(walkStraight(predicates(), p, pT, pT->getIntraTriangleIndex(pFrom), edgeIdx,
                                         [this](const Triangle2* pVisited) { checkOwned(pVisited, 3); }));
  VASK_ASSERT((end == SWE_INSIDE || end == SWE_VERTEX) && "tmpTriangle!=0");
  return end == SWE_VERTEX ? 4 : -1;
}

Triangle2* Chunk::localCreateTriangle(Point2* p0, Point2* p1, Point2* p2) {
  if (vFreshTriangles.empty()) {
    pDt2->getFreshTriangles(bFirstFresh ? 2 * (stopIdx - startIdx) + 2 : 20, vFreshTriangles);
    bFirstFresh = false;
  }
  Triangle2* pT(vFreshTriangles.back());
  vFreshTriangles.pop_back();
  pT->setProperties(p0, p1, p2);
  return pT;
}

// Contract and sketch: splitTriangle13, on the chunk's own stack and
// triangle supply.
Triangle2* Chunk::localInitVCheckT13(Triangle2* pT, Point2* pVtx) {
  return splitTriangle13(
      pT, pVtx, [this](Point2* p0, Point2* p1, Point2* p2) { return localCreateTriangle(p0, p1, p2); }, vLocalCheckT);
}

} // namespace KIRO_VASK2D
