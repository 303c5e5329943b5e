#pragma once
#include "Triangle2.h"
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** Walks the fan of triangles around a vertex: ++ counter-clockwise, --
 * clockwise. Around an inner vertex it circles forever. Around a hull vertex
 * a step off the end of the fan yields null (one position of the circle),
 * and the next step in the same direction continues at the other end of the
 * fan, so one full turn over a hull vertex has to skip one null. The
 * triangles must be alive; the iterator does not check them. */
class VASK2D_API TriangleAroundVertexIterator {
public:
  /** Starts at the vertex's incident triangle; a vertex without one raises VaskException. */
  explicit TriangleAroundVertexIterator(const Point2* pVtx);
  /** Starts at pTr_, which must hold pVtx and must not be null. */
  TriangleAroundVertexIterator(const Point2* pVtx, Triangle2* pTr_);
  TriangleAroundVertexIterator(const TriangleAroundVertexIterator& other);
  TriangleAroundVertexIterator& operator=(const TriangleAroundVertexIterator& other) = default;

  /** One step counter-clockwise: across the edge from the vertex to corner i+2. */
  TriangleAroundVertexIterator& operator++() {
    if (pTr == nullptr)
      loop();
    else
      stepCCW();
    return *this;
  }
  /** One step clockwise: across the edge from the vertex to corner i+1. */
  TriangleAroundVertexIterator& operator--() {
    if (pTr == nullptr)
      loop();
    else
      stepCW();
    return *this;
  }
  /** The current triangle; null when the walk stands outside the hull. */
  Triangle2* operator*() const { return pTr; }
  /** Vertex and current triangle decide; the saved triangle does not. */
  bool operator==(const TriangleAroundVertexIterator& other) const { return pVtx == other.pVtx && pTr == other.pTr; }
  bool operator!=(const TriangleAroundVertexIterator& other) const { return !(*this == other); }

  /** What ++ would show, without moving this iterator. */
  Triangle2* previewNextTriangle() const;
  /** What -- would show, without moving this iterator. */
  Triangle2* previewPrevTriangle() const;

private:
  struct RawState {};
  // Copies all three pointers without the non-null check of the copy
  // constructor, so that a preview works from the null position as well.
  TriangleAroundVertexIterator(RawState, const TriangleAroundVertexIterator& other)
      : pVtx(other.pVtx), pTr(other.pTr), pSavedTr(other.pSavedTr) {}

  void stepCCW() {
    const int i(pTr->getIntraTriangleIndex(pVtx));
    pSavedTr = pTr;
    pTr = pTr->getOppositeTriangle(incIndexBy1(i));
  }
  void stepCW() {
    const int i(pTr->getIntraTriangleIndex(pVtx));
    pSavedTr = pTr;
    pTr = pTr->getOppositeTriangle(incIndexBy2(i));
  }
  /** From the null position to the far end of the fan. */
  void loop();

  const Point2* pVtx;
  Triangle2* pTr;
  Triangle2* pSavedTr;
};

} // namespace KIRO_VASK2D
