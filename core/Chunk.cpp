#include "core/Chunk.h"
#include "TriangleAroundVertexIterator.h"
#include "core/Dt2.h"
#include "core/EdgeLegality.h"
#include "core/MeshRewiring.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iostream>
#include <set>

namespace KIRO_VASK2D {

Chunk::Chunk(Dt2* pDt2_, const Bbox2* pDataBox_, unsigned chunkId_, std::vector<IdxVtxAct*>* pVIdxVtxAct_,
             unsigned startIdx_, unsigned stopIdx_)
    : pDt2(pDt2_), pDataBox(pDataBox_), chunkId(chunkId_), pVIdxVtxAct(pVIdxVtxAct_), startIdx(startIdx_),
      stopIdx(stopIdx_), bFirstFresh(true), pStartT(nullptr), bFastMode(pDt2_->isFastMode()) {
  // The fake corners lie within 1% of the data's box; the triangulation's
  // own bound covers them in any case.
  const double maxAbs(std::max(std::fabs(pDataBox->getMaxCoord()), std::fabs(pDataBox->getMinCoord())));
  kiroTest.setStaticBound_MT(std::max(1.01 * maxAbs, pDt2->getKiroTest().getMaxCoord()));
  vLocalCheckT.reserve(64);
}

// Whether the circumcircle of pT, widened by 5% of its squared radius,
// reaches the axis-parallel side p0-p1.
bool Chunk::circleReachesSide(const Point2& p0, const Point2& p1, const Triangle2* pT) const {
  const std::pair<Point2, bool> dual(pT->getDual());
  if (!dual.second) return false;
  const Point2& center(dual.first);
  const double limit(sqDistance2D(center, *pT->getCorner(0)) * 1.05);
  const bool bVertical(p0.x() == p1.x());
  if (!bVertical) VASK_ASSERT(p0.y() == p1.y());
  const double dLine(bVertical ? center.x() - p0.x() : center.y() - p0.y());
  if (dLine * dLine > limit) return false;
  if (sqDistance2D(center, p0) <= limit || sqDistance2D(center, p1) <= limit) return true;
  if (bVertical) return center.y() >= std::min(p0.y(), p1.y()) && center.y() <= std::max(p0.y(), p1.y());
  return center.x() >= std::min(p0.x(), p1.x()) && center.x() <= std::max(p0.x(), p1.x());
}

void Chunk::extendByCircle(const Triangle2* pT, double& minX, double& minY, double& maxX, double& maxY) const {
  const std::pair<Point2, bool> dual(pT->getDual());
  if (!dual.second) {
    std::cout << "bad accuracy1, todo" << std::endl;
    return;
  }
  const Point2& center(dual.first);
  const double radius(std::sqrt(sqDistance2D(center, *pT->getCorner(0))));
  minX = std::min(minX, center.x() - radius);
  minY = std::min(minY, center.y() - radius);
  maxX = std::max(maxX, center.x() + radius);
  maxY = std::max(maxY, center.y() + radius);
}

void Chunk::determineExtBox() {
  std::vector<IdxVtxAct*>& vRecords(*pVIdxVtxAct);
  for (unsigned i = startIdx; i < stopIdx; ++i) box.add(*vRecords[i]->pVtx);
  const double inflate(pDataBox->getMaxRange() > 0.0 ? 1e-6 * pDataBox->getMaxRange() : 1.0);
  box.inflateIfDegenerate(inflate);
  extBox = box;
  // Triangles whose circles reach a side of the chunk's box may change when
  // a point of the chunk goes in: collect them by a flood fill per side.
  std::vector<Point2> vCorners;
  box.getCorners(vCorners);
  for (int i = 0; i < 4; ++i) {
    const Point2& p0(vCorners[i]);
    const Point2& p1(vCorners[(i + 1) % 4]);
    Triangle2* pSideStartT(pDt2->locate(p0));
    VASK_ASSERT(pSideStartT != 0 && "pStartT!=0");
    std::set<Triangle2*> sVisited;
    std::vector<Triangle2*> vQueue(1, pSideStartT);
    sVisited.insert(pSideStartT);
    while (!vQueue.empty()) {
      Triangle2* pT(vQueue.back());
      vQueue.pop_back();
      vBorderT.push_back(pT);
      for (int k = 0; k < 3; ++k) {
        Triangle2* pN(pT->getOppositeTriangle(k));
        if (pN == nullptr || sVisited.count(pN) > 0 || !circleReachesSide(p0, p1, pN)) continue;
        sVisited.insert(pN);
        vQueue.push_back(pN);
      }
    }
  }
  std::sort(vBorderT.begin(), vBorderT.end());
  vBorderT.erase(std::unique(vBorderT.begin(), vBorderT.end()), vBorderT.end());
  double minX(DBL_MAX), minY(DBL_MAX), maxX(-DBL_MAX), maxY(-DBL_MAX);
  for (Triangle2* pT : vBorderT) extendByCircle(pT, minX, minY, maxX, maxY);
  std::set<Point2*> sVertices;
  std::set<Triangle2*> sTriangles;
  for (Triangle2* pT : vBorderT) {
    for (int k = 0; k < 3; ++k) {
      Point2* pVtx(pT->getCorner(k));
      if (!sVertices.insert(pVtx).second) continue;
      TriangleAroundVertexIterator start(pVtx), it(pVtx);
      do {
        if (*it != nullptr && sTriangles.insert(*it).second) extendByCircle(*it, minX, minY, maxX, maxY);
        ++it;
      } while (it != start);
    }
  }
  if (minX <= maxX && minY <= maxY) {
    const double xMargin(0.01 * (maxX - minX)), yMargin(0.01 * (maxY - minY));
    extBox.add(Point2(minX - xMargin, minY - yMargin));
    // Both coordinates of the upper corner take the height's margin.
    extBox.add(Point2(maxX + yMargin, maxY + yMargin));
  }
  pStartT = pDt2->locate(*vRecords[startIdx]->pVtx);
  VASK_ASSERT(pStartT != 0 && "pLastT!=0");
}

void Chunk::triangulate() {
  VtxRecIt begin(pVIdxVtxAct->begin());
  if (pStartT == nullptr) pStartT = pDt2->locate(*(*(begin + startIdx))->pVtx);
  localTriangulateRec(begin + startIdx, begin + stopIdx, pStartT);
  pDt2->returnFreshTriangles(vFreshTriangles);
}

void Chunk::localTriangulateRec(VtxRecIt first, VtxRecIt last, Triangle2* pLast) {
  for (;;) {
    const ptrdiff_t n(last - first);
    if (n <= 10) {
      for (; first != last; ++first) {
        if (!(*first)->bActive) continue;
        pLast = localInsertVertex(first, pLast);
        VASK_ASSERT(pLast != NULL && "lastTriangle!=NULL");
      }
      return;
    }
    VtxRecIt mid(first + n / 2);
    if ((*mid)->bActive) {
      pLast = localInsertVertex(mid, pLast);
      VASK_ASSERT(pLast != NULL && "lastTriangle!=NULL");
    }
    Triangle2* pMidResult(pLast);
    localTriangulateRec(first, mid, pLast);
    Triangle2* pIncT((*mid)->pVtx->getIncidentTriangle());
    if (pIncT == nullptr) pIncT = pMidResult;
    VASK_ASSERT(pIncT != NULL);
    first = mid + 1;
    pLast = pIncT;
  }
}

Triangle2* Chunk::localInsertVertex(VtxRecIt it, Triangle2* pCurTriangle) {
  VASK_ASSERT(pCurTriangle != NULL);
  Point2* pVtx((*it)->pVtx);
  int edgeIdx(-1);
  const int state(locateInsideConflictT(*pVtx, pCurTriangle, edgeIdx));
  if (state == 4) {
    for (int i = 0; i < 3; ++i) {
      if (*pCurTriangle->getCorner(i) == *pVtx) {
        pDt2->getVertexVault().registerDup(pVtx, pCurTriangle->getCorner(i));
        return pCurTriangle;
      }
    }
    VASK_ASSERT(false);
  }
  // A point on an edge also gets a 1-to-3 split: its zero-area triangle is
  // flipped away first thing, since the far triangle's circle holds every
  // inner point of the edge strictly.
  Triangle2* pResult(localInitVCheckT13(pCurTriangle, pVtx));
  // A chunk ignores constraint edges, as its class contract says.
  flipLinkEdges(
      vLocalCheckT,
      [this](Triangle2* pT) {
        return mustFlipEdge(kiroTest, bFastMode, pT, 0, [](const Triangle2*, int) { return false; });
      },
      [](Triangle2* pT) { flipEdge(pT, 0); });
  return pResult;
}

// A walk that follows the straight line from the start triangle's corner 0
// to p; the fake box guarantees a neighbour across every edge it crosses.
int Chunk::locateInsideConflictT(const Point2& p, Triangle2*& pT, int& edgeIdx) {
  VASK_ASSERT(pT != 0 && "pStartTriangle!=0");
  const Point2 c0(*pT->getCorner(0));
  const double dx(p.x() - c0.x()), dy(p.y() - c0.y());
  int order[3] = {0, 1, 2};
  int i(0);
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
      VASK_ASSERT(pNeig != 0);
      const int k(pNeig->getIntraTriangleIndex(pT));
      const Point2* q(pNeig->getCorner(k));
      pT = pNeig;
      // q left of the line c0 -> p: the line leaves through the edge from
      // q to the right end of the entry edge, which is edge k+1.
      const bool bLeft(dx * (q->y() - c0.y()) - dy * (q->x() - c0.x()) > 0.0);
      order[0] = k;
      order[1] = bLeft ? incIndexBy1(k) : incIndexBy2(k);
      order[2] = bLeft ? incIndexBy2(k) : incIndexBy1(k);
      i = 1;
      continue;
    }
    if (p == *pT->getCorner(0) || p == *pT->getCorner(1) || p == *pT->getCorner(2)) {
      edgeIdx = -1;
      return 4;
    }
    edgeIdx = e;
    VASK_ASSERT(pT->getOppositeTriangle(e) != 0 && "tmpTriangle!=0");
    ++i;
  }
  return -1;
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
