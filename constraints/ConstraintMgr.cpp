#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <iostream>
#include <map>
#include <new>

namespace KIRO_VASK2D {

ConstraintMgr::ConstraintMgr(Dt2* pDt2_) : pDt2(pDt2_), numInLastBlock(SEGMENTS_PER_BLOCK) {}

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
    if (pDt2->numberOfPoints() < MIN_VERTICES_FOR_FILTER) return;
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

ConstraintGraph2* ConstraintMgr::buildGraph(const std::vector<std::pair<Point2*, Point2*> >& vPairs,
                                            ConstraintInsertionStrategy cis) {
  std::vector<ConstraintSegment2*> vCSeg;
  vCSeg.reserve(vPairs.size());
  for (const std::pair<Point2*, Point2*>& pp : vPairs) {
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
  return pCG;
}

ConstraintGraph2* ConstraintMgr::buildGraphOriented(const std::vector<std::pair<Point2*, Point2*> >& vPairs,
                                                    ConstraintInsertionStrategy cis) {
  std::vector<ConstraintSegment2*> vCSeg;
  vCSeg.reserve(vPairs.size());
  std::map<std::pair<Point2*, Point2*>, bool> mPPReverse;
  for (const std::pair<Point2*, Point2*>& pp : vPairs) {
    if (pp.first == pp.second) {
      logWarning("ConstraingMgr::createConstraint_oriented(vSegments,...)",
                 "(2) Identical source and endpoint, a constraint segment has been skipped.");
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

} // namespace KIRO_VASK2D
