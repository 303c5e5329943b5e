#pragma once
#include "Point2.h"
#include "Triangle2.h"
#include "support/VaskAssert.h"
#include <vector>

namespace KIRO_VASK2D {

// The rewiring of the mesh, without geometry: every function here takes
// corners and neighbours as they are and calls no predicate; its caller has
// checked the geometric precondition that the contract names. Triangles are
// written with setProperties, which points all three corners at the
// triangle, so incident pointers need no separate upkeep.
//
// The one rule that every function keeps: all back indices are read before
// any slot is written. An outer triangle can border two of the triangles
// being rewritten (at a corner of degree 3); once one of its slots points at
// a new triangle, a search by pointer finds the wrong slot. OuterLink holds
// a neighbour together with its back index, read up front, and relink is
// the only way an outer back slot is written.

/** The neighbour across edge i of pT and the slot in which it points back. */
struct OuterLink {
  Triangle2* pT;
  int backIdx;
};

inline OuterLink readOuter(const Triangle2* pT, int i) {
  Triangle2* pN(pT->getOppositeTriangle(i));
  return OuterLink{pN, pN != nullptr ? pN->getIntraTriangleIndex(pT) : -1};
}

/** Points the outer neighbour (if any) back at pNew. */
inline void relink(const OuterLink& outer, Triangle2* pNew) {
  if (outer.pT != nullptr) outer.pT->setOppTriangle(outer.backIdx, pNew);
}

/** Writes the three neighbour slots of a triangle that create() just made. */
inline void setNeighbours(Triangle2* pT, Triangle2* pN0, Triangle2* pN1, Triangle2* pN2) {
  pT->setOppTriangle(0, pN0);
  pT->setOppTriangle(1, pN1);
  pT->setOppTriangle(2, pN2);
}

/** Links slot i of pT and slot j of pN to each other. */
inline void linkPair(Triangle2* pT, int i, Triangle2* pN, int j) {
  VASK_ASSERT(pN != NULL && "toTriangle!=NULL");
  pT->setOppTriangle(i, pN);
  pN->setOppTriangle(j, pT);
}

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
inline Triangle2* splitTriangle13(Triangle2* pT, Point2* pVtx, CreateTriangle create, std::vector<Triangle2*>& vStack) {
  VASK_ASSERT(vStack.empty());
  Point2* a(pT->getCorner(0));
  Point2* b(pT->getCorner(1));
  Point2* c(pT->getCorner(2));
  const OuterLink na(readOuter(pT, 0)), nb(readOuter(pT, 1));
  Triangle2* pNc(pT->getOppositeTriangle(2));
  Triangle2* pN1(create(pVtx, b, c));
  Triangle2* pN2(create(pVtx, c, a));
  pT->setPropertiesAndOppT(pVtx, a, b, pNc, pN1, pN2);
  setNeighbours(pN1, na.pT, pN2, pT);
  setNeighbours(pN2, nb.pT, pT, pN1);
  relink(na, pN1);
  relink(nb, pN2);
  if (pNc != nullptr) vStack.push_back(pT);
  if (na.pT != nullptr) vStack.push_back(pN1);
  if (nb.pT != nullptr) vStack.push_back(pN2);
  return pT;
}

/* Contract: p lies on the inner edge ith of pT, strictly between its ends;
   vStack is empty. The two triangles at the edge become four, all with p at
   corner 0; those with an outer neighbour are pushed in the order T, N, N1,
   N2. Returns T.

              A                         A
            /   \                     / | \
       Ti1 /  T  \ Ti2           T   /  |  \  N      T = (p,C,A), N = (p,A,B)
          C-------B      ->         C---p---B
       Nj2 \  N  / Nj1           N2  \  |  /  N1     N1 = (p,B,D), N2 = (p,D,C)
            \   /                     \ | /
              D                         D
*/
template <class CreateTriangle>
inline Triangle2* splitEdge24(Triangle2* pT, Point2* pVtx, int ith, CreateTriangle create,
                              std::vector<Triangle2*>& vStack) {
  VASK_ASSERT(vStack.empty());
  Triangle2* pN(pT->getOppositeTriangle(ith));
  VASK_ASSERT(pN != 0 && "pNeigA!=0");
  const int i1(incIndexBy1(ith)), i2(incIndexBy2(ith));
  const int j(pN->getIntraTriangleIndex(pT));
  Point2* A(pT->getCorner(ith));
  Point2* B(pT->getCorner(i1));
  Point2* C(pT->getCorner(i2));
  Point2* D(pN->getCorner(j));
  Triangle2* pTi1(pT->getOppositeTriangle(i1));
  const OuterLink ti2(readOuter(pT, i2)), nj1(readOuter(pN, incIndexBy1(j))), nj2(readOuter(pN, incIndexBy2(j)));
  Triangle2* pN1(create(pVtx, B, D));
  Triangle2* pN2(create(pVtx, D, C));
  pT->setPropertiesAndOppT(pVtx, C, A, pTi1, pN, pN2);
  pN->setPropertiesAndOppT(pVtx, A, B, ti2.pT, pN1, pT);
  setNeighbours(pN1, nj1.pT, pN2, pN);
  setNeighbours(pN2, nj2.pT, pT, pN1);
  relink(ti2, pN);
  relink(nj1, pN1);
  relink(nj2, pN2);
  if (pTi1 != nullptr) vStack.push_back(pT);
  if (ti2.pT != nullptr) vStack.push_back(pN);
  if (nj1.pT != nullptr) vStack.push_back(pN1);
  if (nj2.pT != nullptr) vStack.push_back(pN2);
  return pT;
}

/* Contract: edge ith of pT is a hull edge and p lies on it, strictly between
   its ends. pT becomes (p,A,B) and the new triangle N = (p,C,A); both have p
   at corner 0 and keep their hull edge in slot 1 (T) and 2 (N). Returns N.

              A                A
             / \     ->       /|\          T = (p,A,B), N = (p,C,A)
            B---C            B-p-C
*/
template <class CreateTriangle>
inline Triangle2* splitHullEdge(Triangle2* pT, Point2* pVtx, int ith, CreateTriangle create) {
  Point2* A(pT->getCorner(ith));
  Point2* B(pT->getCorner(incIndexBy1(ith)));
  Point2* C(pT->getCorner(incIndexBy2(ith)));
  const OuterLink opp1(readOuter(pT, incIndexBy1(ith)));
  Triangle2* pOpp2(pT->getOppositeTriangle(incIndexBy2(ith)));
  Triangle2* pN(create(pVtx, C, A));
  pT->setPropertiesAndOppT(pVtx, A, B, pOpp2, nullptr, pN);
  setNeighbours(pN, opp1.pT, pT, nullptr);
  relink(opp1, pN);
  return pN;
}

/* Contract: edge ki of pTi is a hull edge that p sees strictly; pPrev is the
   triangle attached to the previous visible hull edge (counter-clockwise) or
   null. The new triangle N = (p, end, start) over the edge (start -> end)
   shares p-start with pPrev, whose end is N's start. Returns N, with p at
   corner 0.

            p                      N = (p, e, s): slot 0 = Ti (across s-e),
          / | \                    slot 1 = pPrev (across s-p),
     Prev/  N  \ next              slot 2 = the next one (across p-e)
        s-------e
           Ti
*/
template <class CreateTriangle>
inline Triangle2* attachHullTriangle(Point2* pVtx, Triangle2* pTi, int ki, Triangle2* pPrev, CreateTriangle create) {
  Triangle2* pN(create(pVtx, pTi->getCorner(incIndexBy2(ki)), pTi->getCorner(incIndexBy1(ki))));
  pN->setOppTriangle(1, nullptr);
  pN->setOppTriangle(2, nullptr);
  linkPair(pN, 0, pTi, ki);
  if (pPrev != nullptr) linkPair(pPrev, 2, pN, 1);
  return pN;
}

/* Contract: edge ith of pT has a neighbour and the quadrilateral is convex
   (the caller's Delaunay or convexity test implies it). With a = T[i],
   b = T[i+1], c = T[i-1], N across the edge b-c and q = N[j] its far corner:

              c                          c
         Ti1 /|\ N(j-1)              Ti1 / \ N(j-1)
            / | \                       / N \
           a T|N q         ->          a-----q       T = (a,b,q), N = (a,q,c)
            \ | /                       \ T /
         Ti2 \|/ N(j+1)              Ti2 \ / N(j+1)
              b                          b

   Only two outer neighbours change owner: the one across b-q and the one
   across c-a. The others keep pointing at the same triangle object. After
   the flip the new diagonal a-q is edge 1 of T and edge 2 of N. */
inline void flipEdge(Triangle2* pT, int ith) {
  const int i1(incIndexBy1(ith)), i2(incIndexBy2(ith));
  Triangle2* pN(pT->getOppositeTriangle(ith));
  const int j(pN->getIntraTriangleIndex(pT));
  Point2* a(pT->getCorner(ith));
  Point2* b(pT->getCorner(i1));
  Point2* c(pT->getCorner(i2));
  Point2* q(pN->getCorner(j));
  const OuterLink ti1(readOuter(pT, i1)), nj1(readOuter(pN, incIndexBy1(j)));
  Triangle2* pTi2(pT->getOppositeTriangle(i2));
  Triangle2* pNj2(pN->getOppositeTriangle(incIndexBy2(j)));
  pT->setPropertiesAndOppT(a, b, q, nj1.pT, pN, pTi2);
  pN->setPropertiesAndOppT(a, q, c, pNj2, ti1.pT, pT);
  relink(nj1, pT);
  relink(ti1, pN);
}

/* Contract: pT holds v at index i; pN lies across edge e = i+1 of pT and its
   far corner q makes (a, b, q) a proper counter-clockwise ear that does not
   overlap v. The edge v-b is flipped into a-q: pT becomes the ear (a, b, q),
   which no longer touches v, and pN becomes (a, q, v), which continues the
   fan of v.

                q                          q
       Nj2     / \    Nj1         Nj2     /|\    Nj1
              / N \                      / | \
             v-----b       ->           v N| T b      T = (a,b,q)
              \ T /                      \ | /        N = (a,q,v)
       Te1     \ /    Ti          Te1     \|/    Ti
                a                          a
*/
inline void cutEar(Point2* pVtx, Triangle2* pT, int i, Triangle2* pN) {
  const int e(incIndexBy1(i));
  const int j(pN->getIntraTriangleIndex(pT));
  Point2* a(pT->getCorner(e));
  Point2* b(pT->getCorner(incIndexBy2(i)));
  Point2* q(pN->getCorner(j));
  const OuterLink nj1(readOuter(pN, incIndexBy1(j))), te1(readOuter(pT, incIndexBy1(e)));
  Triangle2* pNj2(pN->getOppositeTriangle(incIndexBy2(j)));
  Triangle2* pTi(pT->getOppositeTriangle(i));
  pT->setPropertiesAndOppT(a, b, q, nj1.pT, pN, pTi);
  pN->setPropertiesAndOppT(a, q, pVtx, pNj2, te1.pT, pT);
  relink(nj1, pT);
  relink(te1, pN);
}

/* Contract: v has exactly the three triangles vFan[0..2], counter-clockwise,
   and lies inside or on an edge of the triangle of its ring corners r0, r1,
   r2. T0 becomes (r0, r1, r2) with the three outer neighbours; T1 and T2
   lose their properties and are appended to vDead.

              r2                           r2
         O2  /|\  O1                  O2  / \  O1     T0 = (r0, r1, r2);
            / | \                        /   \        slot 0 = O1 (r1-r2),
           /T2|T1\          ->          / T0  \       slot 1 = O2 (r2-r0),
          /  _v_  \                    /       \      slot 2 = O0 (r0-r1)
         r0---T0--r1                  r0-------r1
              O0                           O0
*/
inline void mergeFan3(Point2* pVtx, Triangle2* const* vFan, std::vector<Triangle2*>& vDead) {
  Point2* aRing[3];
  OuterLink aOuter[3];
  for (int k = 0; k < 3; ++k) {
    const int i(vFan[k]->getIntraTriangleIndex(pVtx));
    aRing[k] = vFan[k]->getCorner(incIndexBy1(i));
    aOuter[k] = readOuter(vFan[k], i);
  }
  Triangle2* pT0(vFan[0]);
  pT0->setPropertiesAndOppT(aRing[0], aRing[1], aRing[2], aOuter[1].pT, aOuter[2].pT, aOuter[0].pT);
  for (int k = 1; k < 3; ++k) {
    relink(aOuter[k], pT0);
    vFan[k]->clearProperties();
    vDead.push_back(vFan[k]);
  }
}

/* Contract: every triangle on vStack has the new vertex at corner 0, and its
   edge 0 (the link edge) is still to be tested; bMustFlip(pT) says whether
   that edge must go (false for a hull edge), and flip(pT) flips edge 0 of
   pT. Empties vStack.

   A flip replaces T and N by two triangles that again have the new vertex at
   corner 0, so T stays on the stack and N is pushed: both new link edges get
   tested. */
template <class MustFlip, class Flip>
inline void flipLinkEdges(std::vector<Triangle2*>& vStack, MustFlip bMustFlip, Flip flip) {
  while (!vStack.empty()) {
    Triangle2* pT(vStack.back());
    if (!bMustFlip(pT)) {
      vStack.pop_back();
      continue;
    }
    Triangle2* pNeig(pT->getOppositeTriangle(0));
    flip(pT);
    vStack.push_back(pNeig);
  }
}

} // namespace KIRO_VASK2D
