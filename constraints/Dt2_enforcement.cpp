// The two roads that make an alive constraint segment an edge of the mesh.
//
// Constrained: the triangles the segment crosses are taken out, the two
// pseudo-polygons beside it are triangulated anew, and flips restore the
// empty-circle property everywhere but across constraint edges. Division
// happens only at vertices exactly on the segment and at crossings with
// other constraints; one call finishes every leaf.
//
// Conforming: ordinary insertion only. One step finds the edge, splits at a
// vertex exactly on the segment next to its source, or inserts the
// midpoint; the apply loop repeats the steps until every piece stands.
//
// Whether an edge is a constraint is asked of the registry every time: the
// moment a segment is alive its edge can't flip, and a suspended segment's
// edge flips like any other. Both roads rely on that.
#include "ConstraintGraph2.h"
#include "ConstraintSegment2.h"
#include "TriangleAroundVertexIterator.h"
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "kernel/SegmentIntersection.h"
#include "kernel/tools.h"
#include "freeFunctions.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cmath>

namespace KIRO_VASK2D {

// ---------------------------------------------------------------------------
// The constrained road

void Dt2::newCDT_applyOneCS(ConstraintSegment2* pInitialCSeg) {
  VASK_ASSERT(pInitialCSeg->getCIS() == CIS_CONSTRAINED_DELAUNAY);
  VASK_ASSERT(pInitialCSeg->isAlive());
  if (*pInitialCSeg->getSrc() == *pInitialCSeg->getTrg()) {
    logWarning("Dt2::newCDT_applyOneCS()", "Degenerate constraint, return");
    return;
  }
  std::vector<ConstraintSegment2*> vWorkStack(1, pInitialCSeg);
  while (!vWorkStack.empty()) {
    ConstraintSegment2* pCSeg(vWorkStack.back());
    vWorkStack.pop_back();
    if (!pCSeg->isAlive()) {
      appendLeavesByPosition(pCSeg, vWorkStack, true);
      continue;
    }
    if (*pCSeg->getSrc() == *pCSeg->getTrg()) {
      logWarning("Dt2::newCDT_applyOneCS()", "Degenerate constraint (2), return");
      continue;
    }
    applyOneLeaf(pCSeg, vWorkStack);
  }
}

// A leaf on the work stack can have the other strategy: children are shared
// between graphs, and a crossed conforming segment is divided like any other.
// Each goes its own road; a conforming leaf does one step here, and the apply
// loop completes it.
void Dt2::applyOneLeaf(ConstraintSegment2* pCSeg, std::vector<ConstraintSegment2*>& vWorkStack) {
  switch (pCSeg->getCIS()) {
  case CIS_CONSTRAINED_DELAUNAY:
    newCDT_insertOrSplit(pCSeg, vWorkStack);
    return;
  case CIS_CONFORMING_DELAUNAY:
    insertSegmentConformingDelaunay(pCSeg);
    return;
  }
  logError("Dt2::applyOneLeaf()", "Unknown CIS");
  VASK_ASSERT(false);
}

void Dt2::newCDT_insertOrSplit(ConstraintSegment2* pCSeg, std::vector<ConstraintSegment2*>& vWorkStack) {
  std::vector<std::pair<Point2, ConstraintSegment2*> > vPairIspCS;
  Point2* pExistingVertex(newCDT_traverseCZ(pCSeg, vPairIspCS));
  if (pExistingVertex == nullptr && vPairIspCS.empty()) return; // it stands
  if (pExistingVertex != nullptr) {
    VASK_ASSERT(vPairIspCS.empty());
    VASK_ASSERT(pExistingVertex != pCSeg->getSrc());
    VASK_ASSERT(pExistingVertex != pCSeg->getTrg());
    pCSeg->split_combinatorialOnly(pExistingVertex);
    appendLeavesByPosition(pCSeg, vWorkStack, true);
    return;
  }
  VASK_ASSERT(vPairIspCS.size() == 1);
  const Point2 splitPoint(vPairIspCS[0].first);
  ConstraintSegment2* pCrossingCSeg(vPairIspCS[0].second);
  Point2* a(pCrossingCSeg->getSrc());
  Point2* b(pCrossingCSeg->getTrg());
  VASK_ASSERT(splitPoint != *a && splitPoint != *b);
  // The crossing goes in while the crossed segment still stands: insertion
  // never flips its edge, and splits it by itself when the rounded crossing
  // lies exactly on it. Otherwise the crossing lands within a unit in the
  // last place of the edge, mostly in a triangle beside it, and the tree is
  // split here. The crossed edge, no longer a constraint, is then the one
  // edge whose legality changed: a flip sweep from it restores the
  // constrained empty-circle property.
  // pCSeg stands nowhere yet but is suspended all the same: flips around the
  // new vertex may make its edge, which must not become a protected edge
  // that the split below would leave unprotected and perhaps illegal.
  const bool bSplitSelf(splitPoint != *pCSeg->getSrc() && splitPoint != *pCSeg->getTrg());
  if (bSplitSelf) pCSeg->setDead();
  pLastVertex = a; // a close start for the insertion's walk
  Point2* pNew(insert(splitPoint));
  VASK_ASSERT(pNew != NULL);
  if (pCrossingCSeg->isAlive()) pCrossingCSeg->split_combinatorialOnly(pNew);
  sweepFormerConstraintEdge(a, b);
  // The rounded crossing may stand a little off both lines: the halves are
  // established afresh, not assumed.
  appendLeavesByPosition(pCrossingCSeg, vWorkStack, true);
  if (bSplitSelf) {
    pCSeg->setAlive();
    pCSeg->split_combinatorialOnly(pNew);
    appendLeavesByPosition(pCSeg, vWorkStack, true);
  } else {
    VASK_ASSERT(pCSeg->isAlive());
    vWorkStack.push_back(pCSeg);
  }
}

// The walk along pStart -> pStop. Every triangle it enters is crossed by the
// open segment, so each corner of a crossed edge lies strictly on one side:
// the left chain (lLeft) and the right chain (lRight) of the hole collect the
// outer edges of the crossed triangles on either side. An entry (T, i) is the
// edge of T opposite corner i, running from corner i+1 to corner i+2 with T
// on its left: the right chain runs from pStart to pStop, the left one from
// pStop's end back to pStart once reversed.
Point2* Dt2::newCDT_traverseCZ(ConstraintSegment2* pCSeg,
                               std::vector<std::pair<Point2, ConstraintSegment2*> >& vPairIspCS) {
  vPairIspCS.clear();
  // From the lower end by position: which crossing comes first must not
  // depend on where the two vertices lie in memory.
  Point2* pStart(pCSeg->getSrc());
  Point2* pStop(pCSeg->getTrg());
  if (*pStop < *pStart) std::swap(pStart, pStop);
  VASK_ASSERT(pStart->getIncidentTriangle() != NULL);
  VASK_ASSERT(pStop->getIncidentTriangle() != NULL);
  if (*pStart == *pStop) {
    logWarning("Dt2::newCDT_traverseCZ()", "degenerate constraint segment, nothing to do");
    return nullptr;
  }
  // The first triangle: the one whose angle at pStart holds the direction
  // to pStop strictly, unless the edge exists or a neighbour of pStart lies
  // on the segment.
  Triangle2* pT(nullptr);
  int ici(-1);
  TriangleAroundVertexIterator start(pStart), it(pStart);
  do {
    Triangle2* pCand(*it);
    ++it;
    if (pCand == nullptr) continue;
    const int i(pCand->getIntraTriangleIndex(pStart));
    Point2* p1(pCand->getCorner(incIndexBy1(i)));
    Point2* p2(pCand->getCorner(incIndexBy2(i)));
    if (p1 == pStop || p2 == pStop) return nullptr;
    const Orientation2 ori1(kiroTest.getOrientation2(pStart, pStop, p1));
    const Orientation2 ori2(kiroTest.getOrientation2(pStart, pStop, p2));
    VASK_ASSERT(ori1 != ORIENTATION2_COLLINEAR || ori2 != ORIENTATION2_COLLINEAR);
    if (ori1 == ORIENTATION2_COLLINEAR && ori2 == ORIENTATION2_CCW) return p1;
    if (ori2 == ORIENTATION2_COLLINEAR && ori1 == ORIENTATION2_CW) return p2;
    if (ori1 == ORIENTATION2_CW && ori2 == ORIENTATION2_CCW) {
      pT = pCand;
      ici = i;
      break;
    }
  } while (it != start);
  VASK_ASSERT(pT != NULL && "first crossed triangle");

  vPolyLeft.clear();
  vPolyRight.clear();
  vCrossedT.clear();
  vPolyLeft.emplace_back(pT, incIndexBy1(ici));
  vPolyRight.emplace_back(pT, incIndexBy2(ici));
  vCrossedT.push_back(pT);
  int cross(ici);
  for (;;) {
    Triangle2* pNextT(pT->getOppositeTriangle(cross));
    VASK_ASSERT(pNextT != NULL);
    vCrossedT.push_back(pNextT);
    const int nextIci(pNextT->getIntraTriangleIndex(pT));
    if (isConstraintEdge(pT, cross)) {
      // Corner nextIci+1 of pNextT lies left of the segment, nextIci+2 right.
      Point2* a(pNextT->getCorner(incIndexBy1(nextIci)));
      Point2* b(pNextT->getCorner(incIndexBy2(nextIci)));
      ConstraintSegment2* pCrossConstraintSegment(getConstraintMgr()->getConstraintSegment(a, b));
      VASK_ASSERT(pCrossConstraintSegment != NULL);
      const Point2 pos(crossingOfConstraints(pCSeg, pCrossConstraintSegment));
      if (pos == *a) return a;
      if (pos == *b) return b;
      if (!approxHasOn(*pStart, *pStop, pos) || !approxHasOn(*a, *b, pos))
        logWarning("Dt2::treatConstraintZone()", "intersection point of two constraints has bad numerica accuracy!");
      vPairIspCS.emplace_back(pos, pCrossConstraintSegment);
      return nullptr;
    }
    Point2* pOpp(pNextT->getCorner(nextIci));
    const Orientation2 o(kiroTest.getOrientation2(pStart, pStop, pOpp));
    if (o == ORIENTATION2_COLLINEAR) {
      if (pOpp != pStop) return pOpp;
      vPolyLeft.emplace_back(pNextT, incIndexBy2(nextIci));
      vPolyRight.emplace_back(pNextT, incIndexBy1(nextIci));
      break;
    }
    if (o == ORIENTATION2_CCW) {
      vPolyLeft.emplace_back(pNextT, incIndexBy2(nextIci));
      cross = incIndexBy1(nextIci);
    } else {
      vPolyRight.emplace_back(pNextT, incIndexBy1(nextIci));
      cross = incIndexBy2(nextIci);
    }
    pT = pNextT;
  }

  // Both sides anew; their last triangles meet along the segment (edge 1).
  vCdtNewT.clear();
  Triangle2* pRightT(retriangulatePolygon(vPolyRight, vCdtNewT));
  std::reverse(vPolyLeft.begin(), vPolyLeft.end());
  Triangle2* pLeftT(retriangulatePolygon(vPolyLeft, vCdtNewT));
  linkPair(pRightT, 1, pLeftT, 1);
  // Every corner of a crossed triangle is a corner of a new one, which
  // points it at a live triangle; the crossed ones can go. Dead triangles
  // have no corners (the pool's listing relies on that).
  for (Triangle2* pDead : vCrossedT) {
    pDead->clearProperties();
    vDeadT.push_back(pDead);
  }
  restoreDelaunay(vCdtNewT);
  return nullptr;
}

// Where two constraint pieces cross. Pieces of split segments stand a
// little off their user's line (every crossing vertex is rounded), so
// rounding alone can make pieces cross again, and each new rounded vertex
// could breed more: a bundle of nearly collinear constraints would never
// settle. Two rules keep the number of crossing vertices bounded by the
// number of pairs of user segments:
// - when the two roots cross properly, the crossing is the crossing of the
//   root lines, so every later crossing of pieces of the same two roots
//   lands on the same position, which is the same vertex;
// - otherwise (the roots cross only by rounding, or that position lies off
//   the pieces) the pieces are split at an existing vertex: the end point of
//   one piece that lies within the other's span, a few units in the last
//   place from its line, and nearest to their crossing. A new vertex is made
//   only when no such end point exists.
Point2 Dt2::crossingOfConstraints(ConstraintSegment2* pCSeg, ConstraintSegment2* pOther) {
  // Each piece's ends by position: the computations below round, and their
  // results must not depend on which end the addresses made the source.
  const Point2 *pP0(pCSeg->getSrc()), *pP1(pCSeg->getTrg()), *pQ0(pOther->getSrc()), *pQ1(pOther->getTrg());
  if (*pP1 < *pP0) std::swap(pP0, pP1);
  if (*pQ1 < *pQ0) std::swap(pQ0, pQ1);
  const Point2 &p0(*pP0), &p1(*pP1), &q0(*pQ0), &q1(*pQ1);
  // "Next to a piece": foot inside it (strictly inside along the root is
  // decided exactly by isAhead below; rounding puts a foot next to an end at
  // t = 0 or 1, and rejecting those lets crossings of pieces ending a
  // subnormal apart breed new vertices one after the other), at most one unit in the
  // last place (at the largest coordinate of the piece and the point, by
  // getUlp, so one or two true units) from its line, up to the rounding of
  // r, which adds about one more near an end of the piece. A tighter bound
  // makes more new vertices, and rounded new vertices breed crossings.
  auto isNextTo = [](const Point2& a, const Point2& b, const Point2& c, double& t) {
    double r(0.0);
    if (!getRelativePlacement(a, b, c, t, r) || !(t >= 0.0 && t <= 1.0)) return false;
    const double tolerance(getUlp(std::max(std::max(a.getMaxAbs(), b.getMaxAbs()), c.getMaxAbs())));
    // r is relative to the length; the length, in units of the larger
    // difference s, is at most sqrt(2), so r * s * sqrt(2) bounds the distance.
    const double s(std::max(std::fabs(b.x() - a.x()), std::fabs(b.y() - a.y())));
    return r * 1.4142135623730951 <= tolerance / s;
  };
  // A split vertex must advance strictly along the piece's root (exactly):
  // the chain of a root runs forward, and a piece nearly perpendicular to
  // its root (near tiny coordinates) leaves no room between its ends.
  auto isAhead = [this](const ConstraintSegment2* pPiece, const Point2& pos) {
    const ConstraintSegment2* pRoot(pPiece->getRoot());
    const int s0(kiroTest.getDotSign_MT(pPiece->getSrc(), &pos, pRoot->getSrc(), pRoot->getTrg()));
    const int s1(kiroTest.getDotSign_MT(&pos, pPiece->getTrg(), pRoot->getSrc(), pRoot->getTrg()));
    return s0 != 0 && s0 == s1;
  };
  const ConstraintSegment2* pRoot0(pCSeg->getRoot());
  const ConstraintSegment2* pRoot1(pOther->getRoot());
  const Point2 *pR0(pRoot0->getSrc()), *pR1(pRoot0->getTrg()), *pS0(pRoot1->getSrc()), *pS1(pRoot1->getTrg());
  if (*pR1 < *pR0) std::swap(pR0, pR1);
  if (*pS1 < *pS0) std::swap(pS0, pS1);
  const Point2 &r0(*pR0), &r1(*pR1), &s0(*pS0), &s1(*pS1);
  const Orientation2 o0(kiroTest.getOrientation2(&r0, &r1, &s0)), o1(kiroTest.getOrientation2(&r0, &r1, &s1));
  const Orientation2 o2(kiroTest.getOrientation2(&s0, &s1, &r0)), o3(kiroTest.getOrientation2(&s0, &s1, &r1));
  const bool bRootsCross(o0 != ORIENTATION2_COLLINEAR && o1 != ORIENTATION2_COLLINEAR && o0 != o1 &&
                         o2 != ORIENTATION2_COLLINEAR && o3 != ORIENTATION2_COLLINEAR && o2 != o3);
  double t(0.0);
  if (bRootsCross) {
    const Point2 pos(getProperCrossing(kiroTest, r0, r1, s0, s1));
    if (isNextTo(p0, p1, pos, t) && isNextTo(q0, q1, pos, t) && isAhead(pCSeg, pos) && isAhead(pOther, pos))
      return pos;
  }
  const Point2 crossing(getProperCrossing(kiroTest, p0, p1, q0, q1));
  // Of the end points next to the other piece and ahead on it, the one
  // nearest the pieces' crossing, measured along the pieces.
  const Point2* pBest(nullptr);
  double bestDist(0.0);
  double tCross0(0.0), tCross1(0.0), r(0.0);
  const bool bPlaced0(getRelativePlacement(p0, p1, crossing, tCross0, r));
  const bool bPlaced1(getRelativePlacement(q0, q1, crossing, tCross1, r));
  auto consider = [&](const Point2& end, double tEndOnOwn, const ConstraintSegment2* pOn, const Point2& a,
                      const Point2& b, double tCrossOnOwn, bool bPlaced) {
    if (!bPlaced || !isNextTo(a, b, end, t) || !isAhead(pOn, end)) return;
    const double dist(std::fabs(tEndOnOwn - tCrossOnOwn));
    if (pBest == nullptr || dist < bestDist) {
      pBest = &end;
      bestDist = dist;
    }
  };
  consider(p0, 0.0, pOther, q0, q1, tCross0, bPlaced0);
  consider(p1, 1.0, pOther, q0, q1, tCross0, bPlaced0);
  consider(q0, 0.0, pCSeg, p0, p1, tCross1, bPlaced1);
  consider(q1, 1.0, pCSeg, p0, p1, tCross1, bPlaced1);
  return pBest != nullptr ? *pBest : crossing;
}

// Ear cutting on a pseudo-polygon. The crossed triangles serve as
// placeholders: an entry's triangle holds, in the slot of its edge, the
// neighbour outside the hole (null at the hull), and when an ear (p0, p1,
// p2) is cut over entries b0 = p0p1 and b1 = p1p2, b0's placeholder takes
// p2 as its corner (no incident pointer is written: the placeholder dies)
// and the ear as its outer neighbour, so b0 now stands for p0p2. A cut
// removes one entry; the polygon is edge-visible from the segment, so some
// pair of neighbouring entries always forms an ear, and one entry remains,
// whose last ear has edge 1 on the segment.
Triangle2* Dt2::retriangulatePolygon(std::vector<PolyEdge>& vPolygon, std::vector<Triangle2*>& vNewT) {
  VASK_ASSERT(vPolygon.size() > 1);
  Triangle2* pLastNew(nullptr);
  size_t numEntries(vPolygon.size());
  while (numEntries > 1) {
    // One sweep as a stack: each entry is pushed, and ears are cut at the
    // top as long as there are any.
    size_t top(0); // vPolygon[0..top] is the stack
    bool bCut(false);
    for (size_t k = 1; k < numEntries; ++k) {
      vPolygon[++top] = vPolygon[k];
      while (top >= 1) {
        PolyEdge& b0(vPolygon[top - 1]);
        const PolyEdge& b1(vPolygon[top]);
        Triangle2* pT0(b0.first);
        Triangle2* pT1(b1.first);
        Point2* p0(pT0->getCorner(incIndexBy1(b0.second)));
        Point2* p1(pT0->getCorner(incIndexBy2(b0.second)));
        Point2* p2(pT1->getCorner(incIndexBy2(b1.second)));
        VASK_ASSERT(p1 == pT1->getCorner(incIndexBy1(b1.second)));
        if (kiroTest.getOrientation2(p0, p1, p2) != ORIENTATION2_CCW) break;
        const OuterLink opp0(readOuter(pT0, b0.second));
        const OuterLink opp1(readOuter(pT1, b1.second));
        Triangle2* pNew(createTriangle(p0, p1, p2));
        vNewT.push_back(pNew);
        pNew->setOppTriangle(2, opp0.pT);
        relink(opp0, pNew);
        pNew->setOppTriangle(0, opp1.pT);
        relink(opp1, pNew);
        pT0->setVertexPointer(incIndexBy2(b0.second), p2);
        linkPair(pT0, b0.second, pNew, 1);
        pLastNew = pNew;
        bCut = true;
        --top;
      }
    }
    numEntries = top + 1;
    // An edge-visible polygon always has an ear; none means a broken chain.
    VASK_ASSERT(bCut || numEntries == 1);
  }
  return pLastNew;
}

// The same rounds as after a removal: every edge of the listed triangles,
// a flipped pair tried again in the next round.
void Dt2::restoreDelaunay(std::vector<Triangle2*>& vT) { flipSweep(vT); }

void Dt2::killAndUnestablishConstraintSegment(ConstraintSegment2* pCSeg) {
  pCSeg->setDead();
  sweepFormerConstraintEdge(pCSeg->getSrc(), pCSeg->getTrg());
}

// The edge (p0, p1), if it stands, is no constraint any more: it and every
// edge its flips create are made locally Delaunay, as far as other
// constraints permit. Other edges keep their state: local legality depends
// only on the two triangles at an edge.
void Dt2::sweepFormerConstraintEdge(Point2* p0, Point2* p1) {
  if (p0->getIncidentTriangle() == nullptr || p1->getIncidentTriangle() == nullptr) return;
  Triangle2* pT(getAdjacentTriangle(p0, p1));
  if (pT == nullptr) pT = getAdjacentTriangle(p1, p0);
  if (pT == nullptr) return;
  // p0 at corner k and p1 at k+1, or the other way round: the edge is
  // opposite the third corner either way.
  const int i(3 - pT->getIntraTriangleIndex(p0) - pT->getIntraTriangleIndex(p1));
  Triangle2* pN(pT->getOppositeTriangle(i));
  if (pN == nullptr) return;
  vKillWork.clear();
  vKillWork.emplace_back(pT, i);
  vKillWork.emplace_back(pN, pN->getIntraTriangleIndex(pT));
  flipUntilDelaunay(vKillWork);
}

// ---------------------------------------------------------------------------
// The conforming road

void Dt2::insertSegmentConformingDelaunay(ConstraintSegment2* pCSeg) {
  VASK_ASSERT(pCSeg->getCIS() == CIS_CONFORMING_DELAUNAY);
  VASK_ASSERT(pCSeg->isAlive());
  // From the lower end by position, as on the constrained road.
  Point2* pSrc(pCSeg->getSrc());
  Point2* pTrg(pCSeg->getTrg());
  if (*pTrg < *pSrc) std::swap(pSrc, pTrg);
  if (isEdgeOfMesh(pSrc, pTrg)) return; // it stands
  TriangleAroundVertexIterator start(pSrc), it(pSrc);
  // At most one neighbour of the source lies strictly inside the segment: a
  // second one on the same ray would stand behind the first, and no edge
  // passes through a vertex.
  do {
    const Triangle2* pT(*it);
    ++it;
    if (pT == nullptr) continue;
    // Both far corners: at a hull vertex one neighbour is corner i+2 only.
    const int i(pT->getIntraTriangleIndex(pSrc));
    for (Point2* p : {pT->getCorner(incIndexBy1(i)), pT->getCorner(incIndexBy2(i))}) {
      if (kiroTest.getOrientation2(pSrc, pTrg, p) == ORIENTATION2_COLLINEAR && strictlyBetween(*pSrc, *pTrg, *p)) {
        pCSeg->split_combinatorialOnly(p);
        return;
      }
    }
  } while (it != start);
  // The width test: below one unit in the last place at the largest
  // coordinate no double lies between the ends, and a midpoint that rounds
  // to an end can't divide the segment either.
  const double eps(getUlp(kiroTest.getMaxCoord()));
  const Point2 mid(centerWithShift(*pSrc, *pTrg));
  if ((std::fabs(pSrc->x() - pTrg->x()) < eps && std::fabs(pSrc->y() - pTrg->y()) < eps) || mid == *pSrc ||
      mid == *pTrg) {
    logWarning("Dt2::insertSegmentConformingDelaunay()",
               "Double precision arithmetic does not allow to split a segment further, giving up. Incorrect result!");
    return;
  }
  // An edge of another constraint under the midpoint is split by the
  // insertion itself; this segment has no edge yet and stays alive.
  // The pieces appear as edges only where the flips are exact: fast mode
  // would keep near-cocircular edges across them and halve for ever.
  const bool bWasFast(bFastMode);
  bFastMode = false;
  pLastVertex = pSrc;
  Point2* pSplitPoint(insert(mid));
  bFastMode = bWasFast;
  VASK_ASSERT(pSplitPoint != pCSeg->getSrc());
  pCSeg->split_combinatorialOnly(pSplitPoint);
}

} // namespace KIRO_VASK2D
