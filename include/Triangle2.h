#pragma once
#include "Point2.h"
#include "Vask2DApi.h"
#include <cassert>
#include <iosfwd>
#include <utility>

namespace KIRO_VASK2D {

/** Successor of a corner index, cyclically. */
inline int incIndexBy1(int num) { return num == 2 ? 0 : num + 1; }
/** Predecessor of a corner index, cyclically; 0 <= num < 3. */
VASK2D_API int incIndexBy2Checked(int num);
inline int incIndexBy2(int num) {
#ifndef NDEBUG
  return incIndexBy2Checked(num);
#else
  return num == 0 ? 2 : num - 1;
#endif
}

/** The mesh element: three counter-clockwise corners and three neighbours.
 * Neighbour i lies across the edge from corner i+1 to corner i+2 and is null
 * on the hull. Triangles carry no other state; a dead triangle has all six
 * pointers null. */
class VASK2D_API Triangle2 {
public:
  Triangle2() : aVertexPointer{nullptr, nullptr, nullptr}, aOppTriangles{nullptr, nullptr, nullptr} {}
  Triangle2(Point2* p0, Point2* p1, Point2* p2)
      : aVertexPointer{p0, p1, p2}, aOppTriangles{nullptr, nullptr, nullptr} {}

  Point2* getCorner(int ith) const {
    assert(checkRange(ith));
    return aVertexPointer[ith];
  }
  Triangle2* getOppositeTriangle(int ith) const {
    assert(checkRange(ith));
    return aOppTriangles[ith];
  }
  void setOppTriangle(int ith, Triangle2* pTriangle) {
    assert(checkRange(ith));
    aOppTriangles[ith] = pTriangle;
  }
  void setVertexPointer(int ith, Point2* pVtx) { aVertexPointer[ith] = pVtx; }

  /** Sets the corners and makes this triangle the incident triangle of all three. */
  void setProperties(Point2* pI, Point2* pJ, Point2* pK) {
    assert(pI != nullptr && pJ != nullptr && pK != nullptr);
    aVertexPointer[0] = pI;
    aVertexPointer[1] = pJ;
    aVertexPointer[2] = pK;
    pI->setIncidentTriangle(this);
    pJ->setIncidentTriangle(this);
    pK->setIncidentTriangle(this);
  }
  void setPropertiesAndOppT(Point2* pI, Point2* pJ, Point2* pK, Triangle2* pNeig0, Triangle2* pNeig1,
                            Triangle2* pNeig2) {
    setProperties(pI, pJ, pK);
    aOppTriangles[0] = pNeig0;
    aOppTriangles[1] = pNeig1;
    aOppTriangles[2] = pNeig2;
  }
  void clearProperties() {
    aVertexPointer[0] = aVertexPointer[1] = aVertexPointer[2] = nullptr;
    aOppTriangles[0] = aOppTriangles[1] = aOppTriangles[2] = nullptr;
  }

  /** Index of a corner; the corner must exist. */
  int getIntraTriangleIndex(const Point2* p) const {
    if (aVertexPointer[0] == p) return 0;
    if (aVertexPointer[1] == p) return 1;
    if (aVertexPointer[2] == p) return 2;
    return failedIndexSearch((aVertexPointer[1] == p ? 1 : 0) + 2 * (aVertexPointer[2] == p ? 1 : 0));
  }
  /** Index under which a neighbour is stored; the neighbour must exist. */
  int getIntraTriangleIndex(const Triangle2* pT) const {
    if (aOppTriangles[0] == pT) return 0;
    if (aOppTriangles[1] == pT) return 1;
    if (aOppTriangles[2] == pT) return 2;
    return failedIndexSearch((aOppTriangles[1] == pT ? 1 : 0) + 2 * (aOppTriangles[2] == pT ? 1 : 0));
  }
  /** The index i whose edge (corners i+1, i+2) joins p and q in either direction; -1 if none. */
  int getIntraTriangleIndex(const Point2* p, const Point2* q) const;

  bool hasVertex(const Point2* p) const {
    return aVertexPointer[0] == p || aVertexPointer[1] == p || aVertexPointer[2] == p;
  }
  bool hasVertex(const Point2& p) const;

  // Metric operations (plain floating point, not exact)
  double getArea2D() const;
  Point2 getBarycenter() const;
  double getInteriorAngle2D(int ith) const;
  double getSquaredEdgeLength2D(int ith) const;
  double getSquaredEdgeLength(int ith) const;
  double getMaxSqEdgeLen2D() const;
  int getMaxIndex() const;
  int getMinIndex() const;
  bool hasOnEdge(int ith, const Point2& p) const;
  /** The circumcentre and whether it passed the accuracy test. */
  std::pair<Point2, bool> getDual() const;

protected:
  double computeArea(double l0, double l1, double l2) const;
  bool getCC_strategy1(double offX, double offY, Point2& result) const;
  void getCC_strategy2(int maxIdx, double offX, double offY, Point2& result) const;
  bool isAccurateCC(int maxIdx, const Point2& cc) const;
  void getCommonOffset(double& offX, double& offY) const;

private:
  static bool checkRange(int ith) { return ith >= 0 && ith < 3; }
  /** Reports a failed corner or neighbour search (assertion "false"). */
  static int failedIndexSearch(int fallback);

  Point2* aVertexPointer[3];
  Triangle2* aOppTriangles[3];
};

VASK2D_API std::ostream& operator<<(std::ostream& stream, const Triangle2& triangle);

} // namespace KIRO_VASK2D
