#pragma once
#include "Triangle2.h"
#include "Vask2DApi.h"
#include <iosfwd>

namespace KIRO_VASK2D {

/** A directed edge seen from a triangle: the edge opposite corner index,
 * from corner index+1 to corner index+2, with the triangle on its left. The
 * same undirected edge seen from the neighbour is a different Edge2. It is a
 * view, valid only while the triangle lives. */
class VASK2D_API Edge2 {
public:
  Edge2() : pT(nullptr), oppIdx(-1) {}
  Edge2(Triangle2* pT_, int oppIdx_) : pT(pT_), oppIdx(oppIdx_) {}
  Edge2(const Edge2&) = default;
  Edge2& operator=(const Edge2&) = default;

  Triangle2* getTriangle() const { return pT; }
  int getIndex() const { return oppIdx; }
  Point2* getSrc() const { return pT->getCorner(incIndexBy1(oppIdx)); }
  Point2* getTrg() const { return pT->getCorner(incIndexBy2(oppIdx)); }
  void getPoints(Point2*& pSrc, Point2*& pTrg) const {
    pSrc = getSrc();
    pTrg = getTrg();
  }
  /** The SQUARED length: callers only compare such values, so no root is taken. */
  double getLength2D() const { return sqDistance2D(*getSrc(), *getTrg()); }
  /** t0/i0 are this edge; t1 is the neighbour across it and i1 the index of t0
   * in t1, or -1 when the edge lies on the hull (t1 null). */
  void getTriangles(Triangle2*& pT0, Triangle2*& pT1, int& idx0, int& idx1) const {
    pT0 = pT;
    idx0 = oppIdx;
    pT1 = pT->getOppositeTriangle(oppIdx);
    idx1 = pT1 != nullptr ? pT1->getIntraTriangleIndex(pT) : -1;
  }

  bool operator==(const Edge2& e) const { return pT == e.pT && oppIdx == e.oppIdx; }
  bool operator!=(const Edge2& e) const { return !(*this == e); }
  bool operator<(const Edge2& e) const { return pT < e.pT || (pT == e.pT && oppIdx < e.oppIdx); }

private:
  Triangle2* pT;
  int oppIdx;
};

VASK2D_API std::ostream& operator<<(std::ostream& stream, const Edge2& edge);

} // namespace KIRO_VASK2D
