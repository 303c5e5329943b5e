#include "ConstraintGraph2.h"
#include "Predicates2.h"
#include "Segment2.h"
#include "Visualizer2.h"
#include "constraints/ConstraintMgr.h"
#include "constraints/FlatTable.h"
#include "core/Dt2.h"
#include "kernel/RoundingModeGuard.h"
#include "kernel/tools.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <iostream>
#include <unordered_map>

namespace KIRO_VASK2D {

// The direction flag of a segment rides in the low bit of its address
// (segments are at least 8-byte aligned): 8 bytes per entry instead of a tree
// node. The table holds roots and every descendant, alive or dead.
struct DirectionOps {
  static ConstraintSegment2* keyOf(uintptr_t e) { return reinterpret_cast<ConstraintSegment2*>(e & ~uintptr_t(1)); }
  static size_t hash(ConstraintSegment2* p) { return mixWord(reinterpret_cast<uintptr_t>(p)); }
  static bool isEmpty(uintptr_t e) { return e == 0; }
  static uintptr_t emptyEntry() { return 0; }
};

struct GraphTables {
  FlatTable<uintptr_t, ConstraintSegment2*, DirectionOps> tReverse;
  std::unordered_map<Point2*, unsigned> mSplitPointNum; // split vertices only: few
};

ConstraintGraph2::ConstraintGraph2(Dt2* pDt2_, std::vector<ConstraintSegment2*>& vCSeg,
                                   ConstraintInsertionStrategy cis_)
    : pDt2(pDt2_), pKiroPredicates(&pDt2_->getKiroTest()), cis(cis_), bIsPolygon(false), bIsOriented(false),
      bUserDirections(false), pTables(new GraphTables) {
  commonOpening(vCSeg);
  if (bIsPolygon) {
    // A polygon always has a direction: counter-clockwise.
    bIsOriented = true;
    return;
  }
  // No direction: every root runs in pointer order. Descendants that exist
  // already (shared, split earlier) get flags consistent with their root, so
  // that the alive chain of each root stays a path.
  vCSegParents = vCSeg;
  for (ConstraintSegment2* pCSeg : vCSeg) setReverse(pCSeg, false);
  setDirectionsRecursive(vCSeg);
}

ConstraintGraph2::ConstraintGraph2(Dt2* pDt2_, std::vector<ConstraintSegment2*>& vCSeg,
                                   std::map<std::pair<Point2*, Point2*>, bool> mPPReverse,
                                   ConstraintInsertionStrategy cis_)
    : pDt2(pDt2_), pKiroPredicates(&pDt2_->getKiroTest()), cis(cis_), bIsPolygon(false), bIsOriented(true),
      bUserDirections(true), pTables(new GraphTables) {
  commonOpening(vCSeg);
  if (!bIsPolygon) vCSegParents.clear();
  pTables->tReverse.clear();
  // A polygon keeps its counter-clockwise order, but the flags are the user's.
  for (ConstraintSegment2* pCSeg : vCSeg) {
    if (!bIsPolygon) vCSegParents.push_back(pCSeg);
    std::map<std::pair<Point2*, Point2*>, bool>::const_iterator q_it(
        mPPReverse.find(std::make_pair(pCSeg->getSrc(), pCSeg->getTrg())));
    VASK_ASSERT(q_it != mPPReverse.end());
    setReverse(pCSeg, q_it->second);
  }
  setDirectionsRecursive(vCSeg);
}

ConstraintGraph2::~ConstraintGraph2() { delete pTables; }

void ConstraintGraph2::commonOpening(std::vector<ConstraintSegment2*>& vCSeg) {
  for (ConstraintSegment2* pCSeg : vCSeg) pCSeg->addOwnerRecursive(this);
  // Pointer-distinct pairs are all the registry makes, so this only drops
  // segments that a caller built by hand; it stays as a guard.
  size_t numKept(0);
  for (ConstraintSegment2* pCSeg : vCSeg) {
    if (pCSeg->getSrc() == pCSeg->getTrg()) {
      logWarning("ConstraintGraph2::ConstraintGraph2()", "Ignoring a degenerate constraint segment");
      continue;
    }
    vCSeg[numKept++] = pCSeg;
  }
  vCSeg.resize(numKept);
  bIsPolygon = checkAndSortPolygon(vCSeg);
  if (bIsPolygon) {
    setDirectionsRecursive(vCSeg);
  } else {
    vCSegParents.clear();
    pTables->tReverse.clear();
  }
}

size_t ConstraintGraph2::memoryBytes() const {
  // A node of the split-point map holds the next pointer and the value, and
  // malloc adds one word: about four words each.
  const size_t nodeBytes(sizeof(void*) + sizeof(std::pair<Point2* const, unsigned>) + sizeof(void*));
  return sizeof(*this) + sizeof(GraphTables) + vCSegParents.capacity() * sizeof(ConstraintSegment2*) +
         pTables->tReverse.memoryBytes() + pTables->mSplitPointNum.bucket_count() * sizeof(void*) +
         pTables->mSplitPointNum.size() * nodeBytes;
}

void ConstraintGraph2::setReverse(ConstraintSegment2* pCSeg, bool bReverse) {
  const uintptr_t entry(reinterpret_cast<uintptr_t>(pCSeg) | (bReverse ? 1u : 0u));
  uintptr_t* pSlot(pTables->tReverse.find(pCSeg));
  if (pSlot != nullptr) *pSlot = entry;
  else pTables->tReverse.insert(entry);
}

bool ConstraintGraph2::hasEntry(const ConstraintSegment2* pCSeg) const {
  return pTables->tReverse.find(const_cast<ConstraintSegment2*>(pCSeg)) != nullptr;
}

bool ConstraintGraph2::isReverse(ConstraintSegment2* pCSeg) const {
  const uintptr_t* q_it(pTables->tReverse.find(pCSeg));
  VASK_ASSERT(q_it != nullptr);
  return (*q_it & 1u) != 0;
}

bool ConstraintGraph2::isConstraint(Point2* p0, Point2* p1) const {
  ConstraintSegment2* pCSeg(pDt2->getConstraintMgr()->findSegment(p0, p1));
  return pCSeg != nullptr && pCSeg->isAlive() && hasEntry(pCSeg);
}

bool ConstraintGraph2::isConstraint(ConstraintSegment2* pCSeg) const { return pCSeg->isAlive() && hasEntry(pCSeg); }

unsigned ConstraintGraph2::getSplitPointCount(Point2* pVtx) const {
  std::unordered_map<Point2*, unsigned>::const_iterator it(pTables->mSplitPointNum.find(pVtx));
  return it == pTables->mSplitPointNum.end() ? 0u : it->second;
}

// The polygon test. The tour starts at the leftmost, lowest vertex and takes
// the edge that makes the turn there counter-clockwise; at that vertex the
// turn of a simple ring is the ring's own, so the whole ring runs
// counter-clockwise. Self-intersection is not tested.
bool ConstraintGraph2::checkAndSortPolygon(const std::vector<ConstraintSegment2*>& vCSeg) {
  if (vCSeg.size() < 3) return false;
  Point2* pStart(nullptr);
  for (ConstraintSegment2* pCSeg : vCSeg)
    for (Point2* p : {pCSeg->getSrc(), pCSeg->getTrg()})
      if (pStart == nullptr || *p < *pStart) pStart = p;
  // Most inputs that are no polygon fail at the lowest vertex already (an
  // open chain ends there): a scan settles that without the map, which costs
  // a node per end point.
  size_t numAtStart(0);
  for (ConstraintSegment2* pCSeg : vCSeg)
    if (pCSeg->getSrc() == pStart || pCSeg->getTrg() == pStart) ++numAtStart;
  if (numAtStart != 2) return false;
  std::unordered_multimap<Point2*, ConstraintSegment2*> mmVtx2Seg;
  mmVtx2Seg.reserve(2 * vCSeg.size());
  for (ConstraintSegment2* pCSeg : vCSeg) {
    mmVtx2Seg.emplace(pCSeg->getSrc(), pCSeg);
    mmVtx2Seg.emplace(pCSeg->getTrg(), pCSeg);
  }
  // Exactly two segments at a vertex, else no simple cycle passes there.
  auto twoSegmentsAt = [&](Point2* p, ConstraintSegment2*& pA, ConstraintSegment2*& pB) {
    if (mmVtx2Seg.count(p) != 2) return false;
    auto range(mmVtx2Seg.equal_range(p));
    pA = range.first->second;
    pB = (++range.first)->second;
    return true;
  };
  auto otherEnd = [](ConstraintSegment2* pCSeg, Point2* p) {
    return pCSeg->getSrc() == p ? pCSeg->getTrg() : pCSeg->getSrc();
  };
  ConstraintSegment2* pSeg0(nullptr);
  ConstraintSegment2* pSeg1(nullptr);
  if (!twoSegmentsAt(pStart, pSeg0, pSeg1)) return false;
  Point2* pCandidate0(otherEnd(pSeg0, pStart));
  Point2* pCandidate1(otherEnd(pSeg1, pStart));
  const Orientation2 ori(getOrientation2(pStart, pCandidate0, pCandidate1));
  if (ori == ORIENTATION2_COLLINEAR) return false;
  ConstraintSegment2* pFirst(ori == ORIENTATION2_CCW ? pSeg0 : pSeg1);
  Point2* pSecond(ori == ORIENTATION2_CCW ? pCandidate0 : pCandidate1);
  vCSegParents.clear();
  vCSegParents.push_back(pFirst);
  setReverse(pFirst, pSecond == pFirst->getSrc());
  while (true) {
    ConstraintSegment2* pLast(vCSegParents.back());
    Point2* pConnector(isReverse(pLast) ? pLast->getSrc() : pLast->getTrg());
    if (pConnector == pStart) return vCSegParents.size() == vCSeg.size();
    ConstraintSegment2* pA(nullptr);
    ConstraintSegment2* pB(nullptr);
    if (!twoSegmentsAt(pConnector, pA, pB)) return false;
    ConstraintSegment2* pNext(pA == pLast ? pB : pA);
    if (pA != pLast && pB != pLast) {
      logWarning("ConstraintGraph2::checkAndSortPolygon()", "Impossible case1!");
      VASK_ASSERT(false);
    }
    if (pNext == pLast) {
      logWarning("ConstraintGraph2::checkAndSortPolygon()", "Impossible case2!");
      VASK_ASSERT(false);
    }
    // Every vertex on the way has degree 2, so the tour stays on one cycle;
    // a cycle longer than the input is impossible.
    if (vCSegParents.size() >= vCSeg.size()) {
      logWarning("ConstraintGraph2::checkAndSortPolygon()", "Impossible case3!");
      VASK_ASSERT(false);
    }
    vCSegParents.push_back(pNext);
    setReverse(pNext, pConnector != pNext->getSrc());
  }
}

void ConstraintGraph2::getDirectChildren(ConstraintSegment2* pCSeg, ConstraintSegment2*& pChild0,
                                         ConstraintSegment2*& pChild1) const {
  pChild0 = pChild1 = nullptr;
  if (pCSeg->isAlive()) return;
  Point2* pS(pCSeg->getSrc());
  Point2* pE(pCSeg->getTrg());
  if (isReverse(pCSeg)) std::swap(pS, pE);
  pChild0 = pCSeg->aChildren[0];
  pChild1 = pCSeg->aChildren[1];
  VASK_ASSERT(pChild0 != nullptr && pChild1 != nullptr);
  if (pChild1->getSrc() == pS || pChild1->getTrg() == pS) std::swap(pChild0, pChild1);
  VASK_ASSERT(pChild0->getSrc() == pS || pChild0->getTrg() == pS);
  VASK_ASSERT(pChild1->getSrc() == pE || pChild1->getTrg() == pE);
}

void ConstraintGraph2::setDirectionsRecursive(const std::vector<ConstraintSegment2*>& vCSeg) {
  std::vector<ConstraintSegment2*> vStack(vCSeg);
  while (!vStack.empty()) {
    ConstraintSegment2* pParent(vStack.back());
    vStack.pop_back();
    // Alive and suspended segments have no children to direct.
    if (pParent->aChildren[0] == nullptr) continue;
    VASK_ASSERT(hasEntry(pParent));
    const bool bParentReverse(isReverse(pParent));
    ConstraintSegment2* pChild0(nullptr);
    ConstraintSegment2* pChild1(nullptr);
    getDirectChildren(pParent, pChild0, pChild1);
    vStack.push_back(pChild0);
    vStack.push_back(pChild1);
    for (ConstraintSegment2* pChild : {pChild0, pChild1}) {
      const bool bSamePointerDirection(pChild->getSrc() == pParent->getSrc() || pChild->getTrg() == pParent->getTrg());
      setReverse(pChild, bSamePointerDirection ? bParentReverse : !bParentReverse);
    }
    // In the graph's direction: child 0 starts at the parent's start, child 1
    // ends at the parent's end, and they meet in between.
    Point2* pParentStart(bParentReverse ? pParent->getTrg() : pParent->getSrc());
    Point2* pParentEnd(bParentReverse ? pParent->getSrc() : pParent->getTrg());
    const bool bRev0(isReverse(pChild0)), bRev1(isReverse(pChild1));
    VASK_ASSERT((bRev0 ? pChild0->getTrg() : pChild0->getSrc()) == pParentStart);
    VASK_ASSERT((bRev1 ? pChild1->getSrc() : pChild1->getTrg()) == pParentEnd);
    VASK_ASSERT((bRev0 ? pChild0->getSrc() : pChild0->getTrg()) == (bRev1 ? pChild1->getTrg() : pChild1->getSrc()));
  }
}

void ConstraintGraph2::updateSplittedConstraintSegment(ConstraintSegment2* pParentCSeg, bool bUpdateMgr) {
  VASK_ASSERT(!pParentCSeg->isAlive());
  VASK_ASSERT(hasEntry(pParentCSeg));
  setDirectionsRecursive(std::vector<ConstraintSegment2*>(1, pParentCSeg));
  ConstraintSegment2* pChild0(nullptr);
  ConstraintSegment2* pChild1(nullptr);
  Point2* pSplit(nullptr);
  pParentCSeg->getChildrenAndSplitPoint(pChild0, pChild1, pSplit);
  VASK_ASSERT(pSplit != 0);
  ++pTables->mSplitPointNum[pSplit];
  if (bUpdateMgr) pDt2->getConstraintMgr()->updateConstraintSegment(pParentCSeg, pChild0, pChild1);
}

void ConstraintGraph2::getOriginalConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const {
  auto byPair = [](const ConstraintSegment2* a, const ConstraintSegment2* b) { return *a < *b; };
  vOut = vCSegParents;
  std::sort(vOut.begin(), vOut.end(), byPair);
  vOut.erase(std::unique(vOut.begin(), vOut.end()), vOut.end());
  if (vOut.size() == vCSegParents.size()) vOut = vCSegParents;
}

void ConstraintGraph2::getChildConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const {
  vOut.clear();
  for (ConstraintSegment2* pCSeg : vCSegParents) {
    if (pCSeg->isAlive()) vOut.push_back(pCSeg);
    else if (pCSeg->aChildren[0] != nullptr) pCSeg->getChildrenRec(vOut);
  }
  std::sort(vOut.begin(), vOut.end(), [](const ConstraintSegment2* a, const ConstraintSegment2* b) { return *a < *b; });
  vOut.erase(std::unique(vOut.begin(), vOut.end()), vOut.end());
}

void ConstraintGraph2::getAliveConstraintChain(std::vector<ConstraintSegment2*>& vOut) const {
  vOut.clear();
  // Depth first in the graph's direction: child 0 (at the start) before child 1.
  std::vector<ConstraintSegment2*> vStack;
  for (ConstraintSegment2* pRoot : vCSegParents) {
    vStack.push_back(pRoot);
    while (!vStack.empty()) {
      ConstraintSegment2* pCSeg(vStack.back());
      vStack.pop_back();
      if (pCSeg->aChildren[0] == nullptr) {
        vOut.push_back(pCSeg);
        continue;
      }
      ConstraintSegment2* pChild0(nullptr);
      ConstraintSegment2* pChild1(nullptr);
      getDirectChildren(pCSeg, pChild0, pChild1);
      vStack.push_back(pChild1);
      vStack.push_back(pChild0);
    }
  }
  // With the user's directions a side may run against the tour, and its
  // pieces then come in its own direction: the chain need not connect.
  if (bIsPolygon && !bUserDirections) checkPolygonChain(vOut);
}

// A closed chain is expected; pairs at vertices that split segments more than
// once may legitimately differ (a crossing vertex seen from two sides), and
// splits that bend a segment onto a nearby corner (makeDelaunay) can leave
// pieces shared with other graphs in an order of their own. So the check
// reports and goes on; it never throws.
void ConstraintGraph2::checkPolygonChain(const std::vector<ConstraintSegment2*>& vChain) const {
  for (size_t i = 0; i < vChain.size(); ++i) {
    ConstraintSegment2* pA(vChain[i]);
    ConstraintSegment2* pB(vChain[(i + 1) % vChain.size()]);
    const bool bRevA(isReverse(pA)), bRevB(isReverse(pB));
    Point2* pEndA(bRevA ? pA->getSrc() : pA->getTrg());
    Point2* pStartB(bRevB ? pB->getTrg() : pB->getSrc());
    if (getSplitPointCount(pA->getSrc()) > 1 || getSplitPointCount(pA->getTrg()) > 1 ||
        getSplitPointCount(pB->getSrc()) > 1 || getSplitPointCount(pB->getTrg()) > 1)
      continue;
    if (pEndA != pStartB) {
      std::cout << "VASK DEBUG MODE: Discovered a potential problem" << std::endl;
      std::cout << "vAliveCSeg.size()=" << vChain.size() << std::endl;
      std::cout << "vCSegParents.size()=" << vCSegParents.size() << std::endl;
      std::cout << "\n\n This does not need to be a bug but is unexpected. Please report this incident "
                   "(and use the release version as a temporary workaround)"
                << std::endl;
    }
  }
}

void ConstraintGraph2::getPolygonVertices(std::vector<Point2*>& vOut) const {
  std::vector<ConstraintSegment2*> vChain;
  getAliveConstraintChain(vChain);
  for (ConstraintSegment2* pCSeg : vChain) {
    VASK_ASSERT(pCSeg->isAlive());
    if (!hasEntry(pCSeg)) {
      std::cout << "BUG in ConstraintGraph2::getPolygonVertices" << std::endl;
      std::cout << "ownerCG=" << this << std::endl;
      std::cout << "For constraint segment pCSeg: " << *pCSeg << std::endl;
      VASK_ASSERT(hasEntry(pCSeg));
    }
    if (isReverse(pCSeg)) {
      vOut.push_back(pCSeg->getTrg());
      vOut.push_back(pCSeg->getSrc());
    } else {
      vOut.push_back(pCSeg->getSrc());
      vOut.push_back(pCSeg->getTrg());
    }
  }
}

// A split point near an opposite corner is moved onto that corner (or its
// foot on the segment), so that refinement doesn't leave a sliver between
// the corner and a midpoint a hair away. Distances are measured relative to
// the segment's length, which keeps the rules the same at every scale, and
// a corner is taken only when its foot lies strictly inside the segment, by
// a margin far above the rounding of t: a split there can't fold the
// constraint back over itself.
bool ConstraintGraph2::makeDelaunay(double minLength) {
  NearestRounding rounding;
  bool bAllOK(true);
  const double sqMin(minLength * minLength);
  const double tMargin(1e-9);
  KiroTest& kiroTest(pDt2->getKiroTest());
  // Segments a distance d apart along a stretch of length L need about L/d
  // pieces to stand Delaunay: without a minimum length, nearly parallel
  // segments 1e-300 apart would never be done. The splits are bounded by
  // the mesh and the segments (a segment through a point cloud needs about
  // as many pieces as it passes points).
  std::vector<ConstraintSegment2*> vWork;
  getChildConstraintSegments(vWork);
  const size_t maxSplits(std::max<size_t>(4096, pDt2->numberOfPoints() + 16 * vWork.size()));
  size_t numSplits(0);
  for (;;) {
    bool bChanged(false);
    getChildConstraintSegments(vWork);
    while (!vWork.empty()) {
      ConstraintSegment2* pCSeg(vWork.back());
      vWork.pop_back();
      if (pCSeg == nullptr) continue;
      if (!pCSeg->isAlive()) {
        if (pCSeg->hasChildren()) pCSeg->getChildrenRec(vWork);
        continue;
      }
      Point2* p0(pCSeg->getSrc());
      Point2* p1(pCSeg->getTrg());
      Triangle2* pT0(pDt2->getAdjacentTriangle(p0, p1));
      Triangle2* pT1(pDt2->getAdjacentTriangle(p1, p0));
      if (pT0 == nullptr || pT1 == nullptr) continue;
      Point2* pOpp0(pT0->getCorner(3 - pT0->getIntraTriangleIndex(p0) - pT0->getIntraTriangleIndex(p1)));
      Point2* pOpp1(pT1->getCorner(3 - pT1->getIntraTriangleIndex(p0) - pT1->getIntraTriangleIndex(p1)));
      if (kiroTest.circleInc3state(pT0, pOpp1) != CINC2_INCIRCLE) continue;
      if (sqMin > sqDistance2D(*p0, *p1)) {
        bAllOK = false;
        continue;
      }
      // Halves scaled before the sum: no overflow near the largest doubles.
      Point2 splitPos(p0->x() * 0.5 + p1->x() * 0.5, p0->y() * 0.5 + p1->y() * 0.5);
      for (Point2* pC : {pOpp0, pOpp1}) {
        // In the lens (no farther from either end than the ends from each
        // other) with its foot strictly inside the segment.
        double t(0.0), r(0.0);
        if (!getRelativePlacement(*p0, *p1, *pC, t, r)) continue;
        if (!(t > tMargin && t < 1.0 - tMargin) || t * t + r * r > 1.0 || (1.0 - t) * (1.0 - t) + r * r > 1.0) continue;
        // A corner almost on the line is taken too, unless its foot is so
        // close to an end that the split would kink the chain backwards.
        if ((0.001 > r && 0.01 > r / t && 0.01 > r / (1.0 - t)) || (1e-6 > r && r < t && r < 1.0 - t)) {
          splitPos = *pC;
          break;
        }
        if (0.01 > r) splitPos = Point2(p0->x() + t * (p1->x() - p0->x()), p0->y() + t * (p1->y() - p0->y()));
      }
      if (numSplits == maxSplits) {
        logWarning("ConstraintGraph2::makeDelaunay()",
                   "split limit reached, some segments stay non-Delaunay (segments nearly touching need a minLength)");
        return false;
      }
      if (pCSeg->insertAndSplit(splitPos) != nullptr) {
        ++numSplits;
        bChanged = true;
        VASK_ASSERT(!pCSeg->isAlive());
        vWork.insert(vWork.end(), pCSeg->aChildren, pCSeg->aChildren + 2);
      }
    }
    if (!bChanged) return bAllOK;
  }
}

void ConstraintGraph2::show(const char* filename) const {
  Visualizer2 vis(filename);
  show(&vis, Color(1.0, 0.0, 0.0, 0.5, false));
  vis.writeFile();
}

void ConstraintGraph2::show(Visualizer2* pVis, const Color& color) const {
  std::vector<Point2*> vPoints;
  getPolygonVertices(vPoints);
  for (size_t i = 0; i + 1 < vPoints.size(); i += 2) pVis->addObject(Segment2(*vPoints[i], *vPoints[i + 1]), color);
}

} // namespace KIRO_VASK2D
