#pragma once
#include "Point2.h"
#include "Triangle2.h"
#include "kernel/KiroTest.h"

namespace KIRO_VASK2D {

/* The one decision whether an edge of the mesh must flip; every flip loop of
   insertion, removal and the chunks asks it. Edge i of pT, with N across it
   and p the corner of pT opposite the edge:

   - a hull edge (no N) never flips;
   - the edge flips only when p lies strictly inside the circle of N. A point
     exactly on the circle keeps the edge: cocircular sets keep the diagonal
     they have, so no flip loop can cycle between equally good diagonals;
   - in fast mode the double filter alone decides, and where it can't the
     edge stays (a near-cocircular edge may then be non-Delaunay). Not so
     for a zero-area pT: it comes from a point on an edge and must go, so
     the exact test decides there;
   - a constraint edge never flips. It is asked last: the in-circle filter
     is cheaper than the lookup of a segment, and most edges fail it.

   The in-circle test is symmetric across an edge of two counter-clockwise
   triangles, so asking N's circle about p is the same as asking pT's circle
   about N's far corner. */
template <class IsConstraint>
inline bool mustFlipEdge(KiroTest& kiroTest, bool bFastMode, Triangle2* pT, int i, IsConstraint isConstraint) {
  const Triangle2* pN(pT->getOppositeTriangle(i));
  if (pN == nullptr) return false;
  const Point2* p(pT->getCorner(i));
  if (bFastMode) {
    const int cheap(kiroTest.circleInc3stateCheap(pN, p));
    if (cheap == 0) {
      if (kiroTest.getOrientation2(pT->getCorner(0), pT->getCorner(1), pT->getCorner(2)) != ORIENTATION2_COLLINEAR)
        return false;
      if (kiroTest.circleInc3state(pN, p) != CINC2_INCIRCLE) return false;
    } else if (static_cast<CircleState2>(cheap) != CINC2_INCIRCLE) {
      return false;
    }
  } else if (kiroTest.circleInc3state(pN, p) != CINC2_INCIRCLE) {
    return false;
  }
  return !isConstraint(pT, i);
}

} // namespace KIRO_VASK2D
