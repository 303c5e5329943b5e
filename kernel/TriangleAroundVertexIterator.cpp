#include "TriangleAroundVertexIterator.h"
#include "support/VaskAssert.h"
#include <cstddef>

namespace KIRO_VASK2D {

namespace {
enum Direction { DIRECTION_NONE, DIRECTION_CCW, DIRECTION_CW };
}

// The checks below hold in every build: a null start or a broken fan would
// otherwise be dereferenced. They are not on the per-step path.
// clang-format off

TriangleAroundVertexIterator::TriangleAroundVertexIterator(const Point2* pVtx_)
    : pVtx(pVtx_), pTr(NULL), pSavedTr(NULL) {
  VASK_ASSERT(pVtx!=NULL);
  pTr = pSavedTr = pVtx->getIncidentTriangle();
  VASK_ASSERT(pTr!=NULL);
}

TriangleAroundVertexIterator::TriangleAroundVertexIterator(const Point2* pVtx_, Triangle2* pTr_)
    : pVtx(pVtx_), pTr(pTr_), pSavedTr(pTr_) {
  VASK_ASSERT(pTr!=NULL);
}

TriangleAroundVertexIterator::TriangleAroundVertexIterator(const TriangleAroundVertexIterator& other)
    : pVtx(other.pVtx), pTr(other.pTr), pSavedTr(other.pSavedTr) {
  VASK_ASSERT(pTr!=NULL);
}

void TriangleAroundVertexIterator::loop() {
  VASK_ASSERT(pTr==NULL && pSavedTr!=NULL);
  // pSavedTr is the end of the fan where the walk left the mesh. Exactly one
  // of its two edges at the vertex leads back into the fan, unless the fan
  // is this single triangle.
  const int i(pSavedTr->getIntraTriangleIndex(pVtx));
  Direction direction(DIRECTION_NONE);
  if (pSavedTr->getOppositeTriangle(incIndexBy2(i)) != NULL) direction = DIRECTION_CW;
  if (pSavedTr->getOppositeTriangle(incIndexBy1(i)) != NULL) {
    VASK_ASSERT(direction==DIRECTION_NONE);
    direction = DIRECTION_CCW;
  }
  // clang-format on
  pTr = pSavedTr;
  if (direction == DIRECTION_CW) {
    while (pTr != nullptr)
      stepCW();
  } else if (direction == DIRECTION_CCW) {
    while (pTr != nullptr)
      stepCCW();
  }
  // The last step left the mesh at the far end, which pSavedTr now holds.
  pTr = pSavedTr;
}

Triangle2* TriangleAroundVertexIterator::previewNextTriangle() const {
  TriangleAroundVertexIterator tmp(RawState(), *this);
  ++tmp;
  return *tmp;
}

Triangle2* TriangleAroundVertexIterator::previewPrevTriangle() const {
  TriangleAroundVertexIterator tmp(RawState(), *this);
  --tmp;
  return *tmp;
}

} // namespace KIRO_VASK2D
