#include "ConstraintSegment2.h"
#include "ConstraintGraph2.h"
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "kernel/RoundingModeGuard.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>

namespace KIRO_VASK2D {

namespace {
// The running number of segments: process-wide and unsynchronised; nothing
// depends on it but debug output.
uint32_t labelCounter(0);
} // namespace

ConstraintSegment2::ConstraintSegment2(Point2* p0_, Point2* p1_, ConstraintInsertionStrategy cis_)
    : label(labelCounter++), cis(static_cast<uint8_t>(cis_)), bAlive(true), pOwner0(nullptr),
      pMoreOwners(nullptr), p0(p0_), p1(p1_), pRoot(this), adjacentArea(std::numeric_limits<double>::max()) {
  VASK_ASSERT(p0 < p1);
  aChildren[0] = aChildren[1] = nullptr;
}

ConstraintSegment2::~ConstraintSegment2() { delete pMoreOwners; }

unsigned int ConstraintSegment2::getNumberOfOwners() const {
  if (pOwner0 == nullptr) return 0;
  return 1u + (pMoreOwners != nullptr ? static_cast<unsigned>(pMoreOwners->size()) : 0u);
}

void ConstraintSegment2::getOwners(std::vector<ConstraintGraph2*>& vOut) const {
  if (pOwner0 == nullptr) return;
  vOut.push_back(pOwner0);
  if (pMoreOwners != nullptr) vOut.insert(vOut.end(), pMoreOwners->begin(), pMoreOwners->end());
}

ConstraintGraph2* ConstraintSegment2::getFirstOwner() const { return pOwner0; }

void ConstraintSegment2::addOwnerRecursive(ConstraintGraph2* pOwner) {
  // An explicit stack: a tree split along one side again and again is as
  // deep as it has leaves.
  std::vector<ConstraintSegment2*> vStack(1, this);
  while (!vStack.empty()) {
    ConstraintSegment2* pCSeg(vStack.back());
    vStack.pop_back();
    // Owners pass down the tree: a segment that has pOwner already has it
    // in its whole subtree, which is not walked again.
    if (!pCSeg->addOwner(pOwner) || pCSeg->isAlive()) continue;
    ConstraintSegment2* pKid0(pCSeg->aChildren[0]);
    ConstraintSegment2* pKid1(pCSeg->aChildren[1]);
    VASK_ASSERT(pKid0 != 0 && pKid1 != 0);
    vStack.push_back(pKid1);
    vStack.push_back(pKid0);
  }
}

// The owner set stays sorted: pOwner0 is the smallest, pMoreOwners the rest.
bool ConstraintSegment2::addOwner(ConstraintGraph2* pOwner) {
  if (pOwner0 == nullptr) {
    pOwner0 = pOwner;
    return true;
  }
  if (pOwner == pOwner0) return false;
  if (pMoreOwners == nullptr) pMoreOwners = new std::vector<ConstraintGraph2*>();
  std::vector<ConstraintGraph2*>& v(*pMoreOwners);
  if (std::find(v.begin(), v.end(), pOwner) != v.end()) return false;
  ConstraintGraph2* pLarger(pOwner);
  if (pOwner < pOwner0) std::swap(pLarger, pOwner0);
  v.insert(std::lower_bound(v.begin(), v.end(), pLarger), pLarger);
  return true;
}

bool ConstraintSegment2::split_combinatorialOnly(Point2* pSplit) {
  // Every check comes before the first change: a refused split leaves the
  // tree, the owners and the registry as they were.
  VASK_ASSERT(pSplit != 0);
  VASK_ASSERT(isAlive());
  VASK_ASSERT(p0 != pSplit && p1 != pSplit);
  VASK_ASSERT(hasOwners());
  ConstraintMgr* pMgr(getFirstOwner()->getDt2()->getConstraintMgr());
  ConstraintSegment2* pKid0(pMgr->addConstraintSegment(p0, pSplit, getCIS()));
  ConstraintSegment2* pKid1(pMgr->addConstraintSegment(p1, pSplit, getCIS()));
  aChildren[0] = pKid0;
  aChildren[1] = pKid1;
  // A child made just now (no owner yet) descends from this segment's root;
  // a shared child that existed already keeps the root it has.
  if (!pKid0->hasOwners()) pKid0->pRoot = pRoot;
  if (!pKid1->hasOwners()) pKid1->pRoot = pRoot;

  std::vector<ConstraintGraph2*> vOwners;
  getOwners(vOwners);
  for (ConstraintGraph2* pOwner : vOwners) {
    pKid0->addOwnerRecursive(pOwner);
    pKid1->addOwnerRecursive(pOwner);
  }
  for (size_t i = 0; i < vOwners.size(); ++i) vOwners[i]->updateSplittedConstraintSegment(this, i == 0);
  return true;
}

Point2* ConstraintSegment2::insertAndSplit(const Point2& splitPos) {
  NearestRounding rounding;
  VASK_ASSERT(bAlive);
  VASK_ASSERT(aChildren[0] == nullptr && "vChildren.empty()");
  VASK_ASSERT(hasOwners() && "!sOwners.empty()");
  Dt2* pOwnerDt(getFirstOwner()->getDt2());
  VASK_ASSERT(pOwnerDt != 0);
  if (!std::isfinite(splitPos.x()) || !std::isfinite(splitPos.y())) {
    logWarning("ConstraintSegment2::insertAndSplit", "non-finite split position, nothing changed");
    return nullptr;
  }
  // The chain of the root must run forward: a vertex whose foot lies on or
  // beyond an end (a rounded midpoint of a segment one subnormal long, a
  // caller's stray point) would fold the chain back on itself.
  if (splitPos != *p0 && splitPos != *p1) {
    KiroTest& predicates(pOwnerDt->getKiroTest());
    if (predicates.getDotSign_MT(p0, &splitPos, p0, p1) <= 0 || predicates.getDotSign_MT(&splitPos, p1, p0, p1) <= 0) {
      logWarning("ConstraintSegment2::insertAndSplit",
                 "The split position does not lie between the ends of the segment, nothing changed");
      return nullptr;
    }
  }
  // Suspended while the vertex goes in: the edge counts as no constraint,
  // so insertion neither splits this segment by itself nor refuses to flip
  // its edge.
  bAlive = false;
  Point2* pSplit(pOwnerDt->insert(splitPos, p0));
  VASK_ASSERT(pSplit != 0);
  if (pSplit == p0 || pSplit == p1) {
    logWarning("ConstraintSegment2::insertAndSplit", "Trying to split a Constraint segment at one of its endpoints");
    bAlive = true;
    return nullptr;
  }
  bAlive = true;
  split_combinatorialOnly(pSplit);
  // The old edge may still stand, no longer protected and perhaps not
  // Delaunay: it is swept before anything else is inserted, since an
  // insertion's flips only look at the edges around its own vertex.
  pOwnerDt->sweepFormerConstraintEdge(p0, p1);
  // Each half goes its own road; a half that existed already and is dead
  // gives its alive leaves.
  ConstraintMgr* pMgr(pOwnerDt->getConstraintMgr());
  ConstraintSegment2* pKid0(aChildren[0]);
  ConstraintSegment2* pKid1(aChildren[1]);
  if (isBeforeByPosition(pKid1, pKid0)) std::swap(pKid0, pKid1);
  pMgr->apply(pKid0);
  pMgr->apply(pKid1);
  pOwnerDt->bfsFlipIncident(pSplit);
  return pSplit;
}

// The mesher's inner-vertex bookkeeping comes with mesh generation; until
// then there are no inner vertices to take out again.
bool ConstraintSegment2::splitAndRemovePrev(const Point2& splitPos) {
  Point2* pSplit(insertAndSplit(splitPos));
  if (pSplit == nullptr) return false;
  VASK_ASSERT(hasOwners() && "!sOwners.empty()");
  return true;
}

void ConstraintSegment2::getChildrenRec(std::vector<ConstraintSegment2*>& vOut) const {
  VASK_ASSERT(aChildren[0] != nullptr && aChildren[1] != nullptr);
  // An explicit stack, as a tree split along one side again and again is as
  // deep as it has leaves. Child 1 goes on first, so child 0 comes out first.
  std::vector<ConstraintSegment2*> vStack{aChildren[1], aChildren[0]};
  while (!vStack.empty()) {
    ConstraintSegment2* pCSeg(vStack.back());
    vStack.pop_back();
    if (pCSeg->isAlive()) {
      vOut.push_back(pCSeg);
      continue;
    }
    // A suspended segment has no children and must never be walked.
    VASK_ASSERT(pCSeg->aChildren[0] != nullptr && pCSeg->aChildren[1] != nullptr);
    vStack.push_back(pCSeg->aChildren[1]);
    vStack.push_back(pCSeg->aChildren[0]);
  }
}

void ConstraintSegment2::getChildrenAndSplitPoint(ConstraintSegment2*& pChild0, ConstraintSegment2*& pChild1,
                                                  Point2*& pSplitPoint) const {
  if (isAlive()) {
    logWarning("ConstraintSegment2::getChildrenAndSplitPoint()", "*this is still alive!");
    return;
  }
  VASK_ASSERT(aChildren[0] != nullptr && aChildren[1] != nullptr);
  pChild0 = aChildren[0];
  pChild1 = aChildren[1];
  Point2* pSplit(nullptr);
  if (pChild0->getTrg() == pChild1->getSrc() || pChild0->getTrg() == pChild1->getTrg()) pSplit = pChild0->getTrg();
  else if (pChild0->getSrc() == pChild1->getSrc() || pChild0->getSrc() == pChild1->getTrg()) pSplit = pChild0->getSrc();
  pSplitPoint = pSplit;
  VASK_ASSERT(pSplitPoint != NULL);
}

std::ostream& operator<<(std::ostream& stream, const ConstraintSegment2& cseg) {
  stream << "ConstraintSegment2 label" << cseg.label << " ";
  if (cseg.isAlive()) stream << "[alive]";
  else stream << "[DEAD, numChildren=" << (cseg.aChildren[0] != nullptr ? 2 : 0) << "]";
  const Point2& a(*cseg.p0);
  const Point2& b(*cseg.p1);
  stream << " " << a << " - " << b << " length=" << std::sqrt(sqDistance2D(a, b));
  return stream;
}

} // namespace KIRO_VASK2D
