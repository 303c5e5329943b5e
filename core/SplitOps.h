#pragma once
#include "Point2.h"
#include "Triangle2.h"
#include "support/VaskAssert.h"
#include <vector>

namespace KIRO_VASK2D {

// The split and the flip loop of an insertion, shared by the triangulation
// and its chunks. They differ only in where fresh triangles come from, which
// stack they use and how they decide a flip, so these are templates on those
// parts: every call inlines, with no allocation beyond the stack's reserve
// and no virtual or std::function call on the hot path.

/* Contract: p lies strictly inside pT (or on one of its edges, which leaves a
   zero-area triangle for the flip loop to remove); vStack is empty; create
   returns a triangle with the given corners whose neighbour slots this
   function writes. pT becomes three triangles with p at corner 0; those with
   an outer neighbour are pushed. Returns pT = (p,a,b).

              c                       c
             / \                    / | \
        Nb  /   \  Na         N2   /  |  \  N1
           /     \      ->        / N2|N1 \
          a-------b              a----p----b     T = (p,a,b)
             Nc                   T   Nc
*/
template <class CreateTriangle>
inline Triangle2* splitTriangle13(Triangle2* pT, Point2* pVtx, CreateTriangle create,
                                  std::vector<Triangle2*>& vStack) {
  VASK_ASSERT(vStack.empty());
  Point2* a(pT->getCorner(0));
  Point2* b(pT->getCorner(1));
  Point2* c(pT->getCorner(2));
  Triangle2* pNa(pT->getOppositeTriangle(0));
  Triangle2* pNb(pT->getOppositeTriangle(1));
  Triangle2* pNc(pT->getOppositeTriangle(2));
  Triangle2* pN1(create(pVtx, b, c));
  Triangle2* pN2(create(pVtx, c, a));
  pT->setPropertiesAndOppT(pVtx, a, b, pNc, pN1, pN2);
  pN1->setOppTriangle(0, pNa);
  pN1->setOppTriangle(1, pN2);
  pN1->setOppTriangle(2, pT);
  pN2->setOppTriangle(0, pNb);
  pN2->setOppTriangle(1, pT);
  pN2->setOppTriangle(2, pN1);
  if (pNa != nullptr) pNa->setOppTriangle(pNa->getIntraTriangleIndex(pT), pN1);
  if (pNb != nullptr) pNb->setOppTriangle(pNb->getIntraTriangleIndex(pT), pN2);
  if (pNc != nullptr) vStack.push_back(pT);
  if (pNa != nullptr) vStack.push_back(pN1);
  if (pNb != nullptr) vStack.push_back(pN2);
  return pT;
}

/* Contract: every triangle on vStack has the new vertex at corner 0, and its
   edge 0 (the link edge) is still to be tested; bMustFlip(pT, pNeig) says
   whether that edge must go, and flip(pT) flips edge 0 of pT. Empties
   vStack.

   A flip replaces T and N by two triangles that again have the new vertex at
   corner 0, so T stays on the stack and N is pushed: both new link edges get
   tested. A hull edge (no neighbour) is never flipped. */
template <class MustFlip, class Flip>
inline void flipLinkEdges(std::vector<Triangle2*>& vStack, MustFlip bMustFlip, Flip flip) {
  while (!vStack.empty()) {
    Triangle2* pT(vStack.back());
    Triangle2* pNeig(pT->getOppositeTriangle(0));
    if (pNeig == nullptr || !bMustFlip(pT, pNeig)) {
      vStack.pop_back();
      continue;
    }
    flip(pT);
    vStack.push_back(pNeig);
  }
}

} // namespace KIRO_VASK2D
