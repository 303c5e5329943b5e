#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "support/Log.h"
#include "support/ProgressPublisher.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <iostream>
#include <map>
#include <new>

namespace KIRO_VASK2D {

ConstraintMgr::ConstraintMgr(Dt2* pDt2_) : pDt2(pDt2_), numInLastBlock(SEGMENTS_PER_BLOCK), bLastApplyCut(false) {}

ConstraintMgr::~ConstraintMgr() {
  for (ConstraintGraph2* pCG : vConstraintGraphs) delete pCG;
  for (size_t b = 0; b < vBlocks.size(); ++b) {
    const size_t num(b + 1 == vBlocks.size() ? numInLastBlock : SEGMENTS_PER_BLOCK);
    for (size_t i = 0; i < num; ++i) vBlocks[b][i].~ConstraintSegment2();
    ::operator delete(static_cast<void*>(vBlocks[b]));
  }
}

ConstraintSegment2* ConstraintMgr::newSegment(Point2* p0, Point2* p1, ConstraintInsertionStrategy cis) {
  if (numInLastBlock == SEGMENTS_PER_BLOCK) {
    vBlocks.push_back(static_cast<ConstraintSegment2*>(::operator new(SEGMENTS_PER_BLOCK * sizeof(ConstraintSegment2))));
    numInLastBlock = 0;
  }
  ConstraintSegment2* pCSeg(new (vBlocks.back() + numInLastBlock) ConstraintSegment2(p0, p1, cis));
  ++numInLastBlock;
  return pCSeg;
}

ConstraintSegment2* ConstraintMgr::addConstraintSegment(Point2* p0, Point2* p1, ConstraintInsertionStrategy cis) {
  if (p1 < p0) std::swap(p0, p1);
  VASK_ASSERT(p0 < p1);
  ConstraintSegment2** ppFound(tSegments.find(std::make_pair(p0, p1)));
  if (ppFound != nullptr) return *ppFound;
  tVertices.insert(p0);
  tVertices.insert(p1);
  ConstraintSegment2* pCSeg(newSegment(p0, p1, cis));
  const bool bOK(tSegments.insert(pCSeg));
  VASK_ASSERT(bOK);
  manageHash(pCSeg);
  return pCSeg;
}

void ConstraintMgr::updateConstraintSegment(ConstraintSegment2* pParentCSeg, ConstraintSegment2* pCSeg0,
                                            ConstraintSegment2* pCSeg1) {
  VASK_ASSERT(!pParentCSeg->isAlive());
  VASK_ASSERT(pCSeg0 != pCSeg1);
  const std::pair<Point2*, Point2*> key0(pCSeg0->getSrc(), pCSeg0->getTrg());
  const std::pair<Point2*, Point2*> key1(pCSeg1->getSrc(), pCSeg1->getTrg());
  VASK_ASSERT(key0.first < key0.second);
  VASK_ASSERT(key1.first < key1.second);
  const bool bNew0(tSegments.insert(pCSeg0));
  const bool bNew1(tSegments.insert(pCSeg1));
  if (bNew0 && bNew1) {
    manageHash(pCSeg0);
    manageHash(pCSeg1);
    tVertices.insert(key0.first);
    tVertices.insert(key0.second);
    tVertices.insert(key1.first);
    tVertices.insert(key1.second);
  }
}

void ConstraintMgr::manageHash(ConstraintSegment2* pCSeg) {
  if (vHashBits.empty()) {
    // Records, not a count of the active vertices: this is asked on every
    // query while the filter is missing, so it must cost nothing.
    if (pDt2->getVertexVault().numberOfRecords() < MIN_VERTICES_FOR_FILTER) return;
    vHashBits.assign(HASH_BITS / 64, 0);
    tVertices.forEach([this](Point2* pVtx) {
      VASK_ASSERT(vertexHash(pVtx) < HASH_BITS);
      setBit(pVtx);
    });
  }
  if (pCSeg != nullptr) {
    setBit(pCSeg->getSrc());
    setBit(pCSeg->getTrg());
  }
}

bool ConstraintMgr::isConstraintByLookup(Point2* p0, Point2* p1) const {
  if (p1 < p0) std::swap(p0, p1);
  ConstraintSegment2* const* ppFound(tSegments.find(std::make_pair(p0, p1)));
  return ppFound != nullptr && (*ppFound)->isAlive();
}

ConstraintSegment2* ConstraintMgr::findSegment(Point2* p0, Point2* p1) const {
  if (p1 < p0) std::swap(p0, p1);
  ConstraintSegment2* const* ppFound(tSegments.find(std::make_pair(p0, p1)));
  return ppFound != nullptr ? *ppFound : nullptr;
}

ConstraintSegment2* ConstraintMgr::getConstraintSegment(Point2* p0, Point2* p1) const {
  ConstraintSegment2* pCSeg(findSegment(p0, p1));
  return pCSeg != nullptr && pCSeg->isAlive() ? pCSeg : nullptr;
}

// The table has no order; listings are sorted by identity pair on demand,
// which is rare next to the lookups.
void ConstraintMgr::sortedSegments(bool bAliveOnly, std::vector<ConstraintSegment2*>& vOut) const {
  const size_t first(vOut.size());
  tSegments.forEach([&](ConstraintSegment2* pCSeg) {
    if (!bAliveOnly || pCSeg->isAlive()) vOut.push_back(pCSeg);
  });
  std::sort(vOut.begin() + static_cast<std::ptrdiff_t>(first), vOut.end(),
            [](const ConstraintSegment2* a, const ConstraintSegment2* b) { return *a < *b; });
}

void ConstraintMgr::getAliveConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const {
  sortedSegments(true, vOut);
}

void ConstraintMgr::getAliveAndDeadConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const {
  sortedSegments(false, vOut);
}

size_t ConstraintMgr::memoryBytes() const {
  return tSegments.memoryBytes() + tVertices.memoryBytes() + vHashBits.capacity() * sizeof(uint64_t) +
         vBlocks.size() * SEGMENTS_PER_BLOCK * sizeof(ConstraintSegment2) +
         vBlocks.capacity() * sizeof(ConstraintSegment2*);
}

// ---------------------------------------------------------------------------
// Creation

ConstraintGraph2* ConstraintMgr::createConstraint(std::vector<std::pair<Point2*, Point2*> >& vPairs,
                                                  ConstraintInsertionStrategy cis, bool bApply) {
  ProgressPublisher& progress(pDt2->getProgress());
  const size_t n(vPairs.size());
  const size_t step(std::max<size_t>(1, n / 100));
  progress.start("establish constraints", static_cast<unsigned>(3 * n));
  std::vector<ConstraintSegment2*> vCSeg;
  vCSeg.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    if (i % step == 0) progress.advance(static_cast<unsigned>(step));
    const std::pair<Point2*, Point2*>& pp(vPairs[i]);
    if (pp.first == pp.second) {
      logWarning("ConstraingMgr::createConstraint",
                 "(0) Identical source and endpoint, a constraint segment has been skipped.");
      if (pp.first != nullptr) std::cout << *pp.first << " <-> " << *pp.second << std::endl;
      continue;
    }
    vCSeg.push_back(addConstraintSegment(pp.first, pp.second, cis));
  }
  ConstraintGraph2* pCG(new ConstraintGraph2(pDt2, vCSeg, cis));
  vConstraintGraphs.push_back(pCG);
  if (bApply) {
    for (size_t i = 0; i < vCSeg.size(); ++i) {
      if (i % step == 0) progress.advance(static_cast<unsigned>(2 * step));
      SuspendedProgress quiet(progress);
      apply(vCSeg[i]);
    }
  }
  progress.finish();
  return pCG;
}

// The end points go in by one batch, sorted and without duplicates, and
// each segment finds its vertices by a binary search in that same sorted
// list: no lookup through the vault, whose unsorted tail would make this
// quadratic.
ConstraintGraph2* ConstraintMgr::createConstraint(std::vector<Segment2>& vSegments, ConstraintInsertionStrategy cis) {
  if (vSegments.empty()) return nullptr;
  std::vector<Point2> vPoints;
  vPoints.reserve(2 * vSegments.size());
  for (const Segment2& seg : vSegments) {
    vPoints.push_back(seg.getSrc());
    vPoints.push_back(seg.getTrg());
  }
  std::sort(vPoints.begin(), vPoints.end());
  vPoints.erase(std::unique(vPoints.begin(), vPoints.end()), vPoints.end());
  std::vector<Point2*> vHandles;
  {
    SuspendedProgress quiet(pDt2->getProgress());
    pDt2->insertVector(vPoints, &vHandles);
  }
  VASK_ASSERT(vPoints.size() == vHandles.size());
  auto handleOf = [&](const Point2& p) {
    return vHandles[static_cast<size_t>(std::lower_bound(vPoints.begin(), vPoints.end(), p) - vPoints.begin())];
  };
  std::vector<std::pair<Point2*, Point2*> > vPairs;
  vPairs.reserve(vSegments.size());
  for (const Segment2& seg : vSegments) {
    Point2* pHandle0(handleOf(seg.getSrc()));
    Point2* pHandle1(handleOf(seg.getTrg()));
    VASK_ASSERT(pHandle0 != NULL && pHandle1 != NULL);
    vPairs.emplace_back(pHandle0, pHandle1);
  }
  // The sorted copies of the end points aren't needed while the segments
  // are established: give their memory back before the peak.
  std::vector<Point2>().swap(vPoints);
  std::vector<Point2*>().swap(vHandles);
  return createConstraint(vPairs, cis, true);
}

ConstraintGraph2* ConstraintMgr::createConstraint(std::vector<Edge2*>& vEdges, ConstraintInsertionStrategy cis,
                                                  bool bApply) {
  std::vector<std::pair<Point2*, Point2*> > vPairs;
  vPairs.reserve(vEdges.size());
  for (Edge2* pEdge : vEdges) {
    Point2 *pSrc(nullptr), *pTrg(nullptr);
    pEdge->getPoints(pSrc, pTrg);
    vPairs.emplace_back(pSrc, pTrg);
  }
  return createConstraint(vPairs, cis, bApply);
}

// Order of insertion matters little here, direction does: each end point
// goes in by itself, and the graph learns which way each segment runs.
// Segments are made only after all points are in, so no end point can split
// a segment of this graph before the graph exists.
ConstraintGraph2* ConstraintMgr::createConstraint_oriented(std::vector<Segment2>& vSegments,
                                                           ConstraintInsertionStrategy cis) {
  if (vSegments.empty()) return nullptr;
  std::vector<std::pair<Point2*, Point2*> > vPairs;
  vPairs.reserve(vSegments.size());
  for (const Segment2& seg : vSegments) {
    Point2* pSrc(pDt2->insert(seg.getSrc()));
    Point2* pTrg(pDt2->insert(seg.getTrg()));
    vPairs.emplace_back(pSrc, pTrg);
  }
  return applyRoots(buildGraphOriented(vPairs, cis, "ConstraingMgr::createConstraint_oriented(vSegments,...)",
                                       "(2) Identical source and endpoint, a constraint segment has been skipped."));
}

ConstraintGraph2* ConstraintMgr::createConstraint(std::vector<Edge2>& vEdges, ConstraintInsertionStrategy cis) {
  std::vector<std::pair<Point2*, Point2*> > vPairs;
  vPairs.reserve(vEdges.size());
  for (const Edge2& edge : vEdges) {
    Point2 *pSrc(nullptr), *pTrg(nullptr);
    edge.getPoints(pSrc, pTrg);
    vPairs.emplace_back(pSrc, pTrg);
  }
  return applyRoots(buildGraphOriented(vPairs, cis, "ConstraingMgr::createConstraint()",
                                       "(1) Identical source and endpoint, a constraint segment has been skipped."));
}

ConstraintGraph2* ConstraintMgr::buildGraphOriented(const std::vector<std::pair<Point2*, Point2*> >& vPairs,
                                                    ConstraintInsertionStrategy cis) {
  return buildGraphOriented(vPairs, cis, "ConstraingMgr::createConstraint_oriented(vSegments,...)",
                            "(2) Identical source and endpoint, a constraint segment has been skipped.");
}

ConstraintGraph2* ConstraintMgr::buildGraphOriented(const std::vector<std::pair<Point2*, Point2*> >& vPairs,
                                                    ConstraintInsertionStrategy cis, const char* tag,
                                                    const char* message) {
  std::vector<ConstraintSegment2*> vCSeg;
  vCSeg.reserve(vPairs.size());
  std::map<std::pair<Point2*, Point2*>, bool> mPPReverse;
  for (const std::pair<Point2*, Point2*>& pp : vPairs) {
    if (pp.first == pp.second) {
      logWarning(tag, message);
      continue;
    }
    Point2* p0(pp.first);
    Point2* p1(pp.second);
    const bool bReverse(p1 < p0);
    if (bReverse) std::swap(p0, p1);
    mPPReverse[std::make_pair(p0, p1)] = bReverse;
    vCSeg.push_back(addConstraintSegment(p0, p1, cis));
  }
  ConstraintGraph2* pCG(new ConstraintGraph2(pDt2, vCSeg, mPPReverse, cis));
  vConstraintGraphs.push_back(pCG);
  return pCG;
}

// ---------------------------------------------------------------------------
// Application

// Applies the graph's roots in order and returns the graph.
ConstraintGraph2* ConstraintMgr::applyRoots(ConstraintGraph2* pCG) {
  std::vector<ConstraintSegment2*> vCSeg;
  pCG->getOriginalConstraintSegments(vCSeg);
  for (ConstraintSegment2* pCSeg : vCSeg) apply(pCSeg);
  return pCG;
}

void ConstraintMgr::apply(ConstraintSegment2* pCSeg) {
  if (!pDt2->hasArea()) return;
  if (!pCSeg->isAlive()) {
    // A suspended segment (no children) has nothing to apply.
    if (!pCSeg->hasChildren()) return;
    std::vector<ConstraintSegment2*> vLeaves;
    appendLeavesByPosition(pCSeg, vLeaves, false);
    for (ConstraintSegment2* pLeaf : vLeaves)
      if (pLeaf->isAlive()) apply(pLeaf);
    return;
  }
  switch (pCSeg->getCIS()) {
  case CIS_CONFORMING_DELAUNAY:
    pDt2->insertSegmentConformingDelaunay(pCSeg);
    return;
  case CIS_CONSTRAINED_DELAUNAY:
    pDt2->newCDT_applyOneCS(pCSeg);
    return;
  }
  logError("ConstraintMgr::apply()", "Unknown CIS");
  VASK_ASSERT(false);
}

// A segment that needs no more work is found as an edge and left alone, so
// the loop ends with one quiet pass. Conforming segments advance one split
// per round.
void ConstraintMgr::apply() {
  std::vector<ConstraintSegment2*> vCSeg, vNext;
  getAliveConstraintSegments(vCSeg);
  std::sort(vCSeg.begin(), vCSeg.end(), isBeforeByPosition);
  ProgressPublisher& progress(pDt2->getProgress());
  progress.start("apply", static_cast<unsigned>(vCSeg.size()));
  // Conforming segments closer to each other (or to a vertex) than to their
  // own length need vertices in proportion to that ratio: near-parallel
  // neighbours a few units in the last place apart would fill memory long
  // before 500 rounds. The vertices this loop may add are bounded as well,
  // by the user's segments: a bound by the alive pieces would let every
  // repeated call on a set that can't be established add five times as many
  // vertices as the one before.
  size_t numRoots(0);
  std::vector<ConstraintSegment2*> vRoots;
  for (const ConstraintGraph2* pCG : vConstraintGraphs) {
    vRoots.clear();
    pCG->getOriginalConstraintSegments(vRoots);
    numRoots += vRoots.size();
  }
  const size_t maxNewVertices(std::max<size_t>(2000, 4 * numRoots));
  // Vertex slots only grow (the vault's records shrink when it compacts).
  const size_t numVerticesBefore(pDt2->numberOfVertexSlots());
  int iterations(500);
  bool bOutOfBudget(false);
  bLastApplyCut = false;
  for (;;) {
    if (--iterations == 0 || bOutOfBudget) {
      logWarning("ConstraintMgr::apply()", "insufficient numeric accuracy, need to skip last insertions");
      bLastApplyCut = true;
      break;
    }
    bool bDone(true);
    vNext.clear();
    for (ConstraintSegment2* pCSeg : vCSeg) {
      if (pDt2->numberOfVertexSlots() - numVerticesBefore > maxNewVertices) {
        bOutOfBudget = true;
        break;
      }
      progress.advance(1);
      if (!pCSeg->isAlive()) {
        if (!pCSeg->hasChildren()) continue;
        bDone = false;
        pCSeg->getChildrenRec(vNext);
        continue;
      }
      {
        SuspendedProgress quiet(progress);
        apply(pCSeg);
      }
      if (!pCSeg->isAlive()) {
        bDone = false;
        if (pCSeg->hasChildren()) pCSeg->getChildrenRec(vNext);
        progress.extend(4);
      } else if (!pDt2->isEdgeOfMesh(pCSeg->getSrc(), pCSeg->getTrg())) {
        // A standing segment keeps standing: its edge can't flip, and a
        // vertex landing on it splits it into halves that are edges too. So
        // only the ones still missing come round again.
        vNext.push_back(pCSeg);
        progress.extend(1);
      }
    }
    if (bDone) break;
    std::sort(vNext.begin(), vNext.end(), isBeforeByPosition);
    vCSeg.swap(vNext);
  }
  progress.finish();
}

} // namespace KIRO_VASK2D
