#pragma once
#include "Point2.h"
#include "Vask2DApi.h"
#include <iosfwd>

namespace KIRO_VASK2D {

/** An unordered pair of vertices: the constructor puts the smaller pointer
 * first, so (a,b) and (b,a) are the same value. Used as a key for edges
 * independent of the triangles, which change with every flip. */
class VASK2D_API VertexPair2 {
public:
  VertexPair2() : pFirst(nullptr), pSecond(nullptr) {}
  VertexPair2(Point2* p0, Point2* p1) : pFirst(p0 < p1 ? p0 : p1), pSecond(p0 < p1 ? p1 : p0) {}
  VertexPair2(const VertexPair2&) = default;
  VertexPair2& operator=(const VertexPair2&) = default;

  Point2* getFirst() const { return pFirst; }
  Point2* getSecond() const { return pSecond; }
  double getSqLen2D() const { return sqDistance2D(*pFirst, *pSecond); }

  bool operator==(const VertexPair2& other) const { return pFirst == other.pFirst && pSecond == other.pSecond; }
  bool operator!=(const VertexPair2& other) const { return !(*this == other); }
  bool operator<(const VertexPair2& other) const {
    return pFirst < other.pFirst || (pFirst == other.pFirst && pSecond < other.pSecond);
  }

private:
  Point2* pFirst;
  Point2* pSecond;
};

VASK2D_API std::ostream& operator<<(std::ostream& stream, const VertexPair2& pair);

} // namespace KIRO_VASK2D
