#pragma once
// A straight walk along the segment from a vertex to a point: it turns
// around the start vertex to the triangle whose corner angle holds the point,
// then crosses exactly the edges that the segment crosses. Where the segment
// runs through a vertex, the walk starts again from that vertex. Every
// triangle it visits meets the segment, and it ends without a step limit or
// random choice on any valid triangulation, Delaunay or not: the segment
// meets finitely many triangles and each step moves forward along it. All
// decisions are exact orientations.
//
// At a triangle entered across edge k, with q its far corner, A = corner
// k+1 lies left of the direction of travel and B = corner k+2 right of it:
//
//                 q
//                / \          q left of the line: it leaves across edge k+1 (B-q)
//               /   \         q right of the line: across edge k+2 (q-A)
//              A-----B        q on the line: through q
//                 ^
//                 | from the start vertex

#include "Triangle2.h"
#include "kernel/KiroTest.h"
#include "support/VaskAssert.h"

namespace KIRO_VASK2D {

/** Where a straight walk ended. */
enum StraightWalkEnd {
  SWE_HULL0 = 0, // p lies strictly outside hull edge 0, 1 or 2 of pT
  SWE_HULL1 = 1,
  SWE_HULL2 = 2,
  SWE_INSIDE = 3, // p lies in the closed triangle pT (edgeIdx: the edge holding p, or -1)
  SWE_VERTEX = 4  // p is a corner of pT
};

/** Walks from corner startIdx of pT towards p; pT is updated as it goes.
 * visit(pT) is called for every triangle entered (a chunk checks its box
 * there). */
template <class Visit>
StraightWalkEnd walkStraight(KiroTest& predicates, const Point2& p, Triangle2*& pT, int startIdx, int& edgeIdx,
                             Visit visit) {
  edgeIdx = -1;
  Triangle2* pCur(pT);
  Point2* v(pCur->getCorner(startIdx));
  for (;;) {
    pT = pCur;
    if (p == *v) return SWE_VERTEX;
    // Turn around v until p lies in the closed angle (a, v, b). Around an
    // inner vertex the angles cover the plane; at a hull vertex p may lie in
    // the outer angle, beyond the hull edge that the turn meets.
    int i(pCur->getIntraTriangleIndex(v));
    Orientation2 oa(ORIENTATION2_COLLINEAR), ob(ORIENTATION2_COLLINEAR);
    for (;;) {
      visit(pCur);
      const Point2* a(pCur->getCorner(incIndexBy1(i)));
      const Point2* b(pCur->getCorner(incIndexBy2(i)));
      ob = predicates.getOrientation2(v, b, &p);
      int across(-1);
      if (ob == ORIENTATION2_CCW) {
        across = incIndexBy1(i); // the edge v-b: turn counter-clockwise
      } else {
        oa = predicates.getOrientation2(v, a, &p);
        if (oa == ORIENTATION2_CW) across = incIndexBy2(i); // the edge v-a: turn clockwise
      }
      if (across < 0) break;
      Triangle2* pNeig(pCur->getOppositeTriangle(across));
      if (pNeig == nullptr) {
        pT = pCur;
        return static_cast<StraightWalkEnd>(across);
      }
      pCur = pNeig;
      i = pCur->getIntraTriangleIndex(v);
    }
    pT = pCur;
    const Orientation2 oFar(predicates.getOrientation2(pCur, i, &p));
    // p on the ray from v through a (oa collinear, ob clockwise) or through b.
    if (oa == ORIENTATION2_COLLINEAR || ob == ORIENTATION2_COLLINEAR) {
      const bool bRayA(oa == ORIENTATION2_COLLINEAR);
      if (oFar == ORIENTATION2_CCW) {
        edgeIdx = bRayA ? incIndexBy2(i) : incIndexBy1(i); // between v and the corner
        return SWE_INSIDE;
      }
      if (oFar == ORIENTATION2_COLLINEAR) return SWE_VERTEX; // p is that corner
      v = pCur->getCorner(bRayA ? incIndexBy1(i) : incIndexBy2(i));
      continue;
    }
    if (oFar == ORIENTATION2_CCW) return SWE_INSIDE;
    if (oFar == ORIENTATION2_COLLINEAR) {
      edgeIdx = i;
      return SWE_INSIDE;
    }
    // The segment leaves across the edge a-b, strictly between a and b.
    int exitIdx(i);
    bool bRestart(false);
    while (!bRestart) {
      Triangle2* pNeig(pCur->getOppositeTriangle(exitIdx));
      if (pNeig == nullptr) return static_cast<StraightWalkEnd>(exitIdx);
      const int k(pNeig->getIntraTriangleIndex(pCur));
      pCur = pNeig;
      pT = pCur;
      visit(pCur);
      Point2* q(pCur->getCorner(k));
      const Orientation2 oq(predicates.getOrientation2(v, &p, q));
      if (oq == ORIENTATION2_COLLINEAR) {
        const Orientation2 o1(predicates.getOrientation2(pCur, incIndexBy1(k), &p));
        if (o1 == ORIENTATION2_CCW) return SWE_INSIDE;        // before q: strictly inside
        if (o1 == ORIENTATION2_COLLINEAR) return SWE_VERTEX;  // p is q
        v = q;                                                // beyond q: start again there
        bRestart = true;
        continue;
      }
      exitIdx = (oq == ORIENTATION2_CCW) ? incIndexBy1(k) : incIndexBy2(k);
      const Orientation2 o(predicates.getOrientation2(pCur, exitIdx, &p));
      if (o == ORIENTATION2_CCW) return SWE_INSIDE;
      if (o == ORIENTATION2_COLLINEAR) {
        edgeIdx = exitIdx;
        return SWE_INSIDE;
      }
    }
  }
}

} // namespace KIRO_VASK2D
