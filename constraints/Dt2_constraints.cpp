// The constraint unit of Dt2: ownership of the registry, the hooks by which
// insertion, flipping and removal honour constraint segments, creation and
// application of constraints, and the queries about them. The two roads
// that make a segment an edge are in Dt2_enforcement.cpp.
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "TriangleAroundVertexIterator.h"
#include "support/Log.h"
#include <algorithm>

namespace KIRO_VASK2D {

ConstraintMgr* Dt2::getConstraintMgr() {
  if (pConstraintMgr == nullptr) pConstraintMgr = new ConstraintMgr(this);
  return pConstraintMgr;
}

void Dt2::deleteConstraintMgr() {
  delete pConstraintMgr;
  pConstraintMgr = nullptr;
}

bool Dt2::isConstraintEdgeInMgr(const Triangle2* pT, int i) const {
  return pConstraintMgr->isConstraint(pT->getCorner(incIndexBy1(i)), pT->getCorner(incIndexBy2(i)));
}

// The vertex lies exactly on the edge (insertion's exact location found it
// there), so it lies exactly on the segment: the tree splits and both halves
// are edges of the mesh as soon as the split of the edge is done. The flip
// loop then keeps them, since each is an alive segment.
void Dt2::splitConstraintAt(Point2* p0, Point2* p1, Point2* pVtx) {
  ConstraintSegment2* pCSeg(pConstraintMgr->getConstraintSegment(p0, p1));
  if (pCSeg != nullptr) pCSeg->split_combinatorialOnly(pVtx);
}

bool Dt2::isConstraintVertex(Point2* pVtx) const {
  return pConstraintMgr != nullptr && pConstraintMgr->isConstraint(pVtx);
}

// ---------------------------------------------------------------------------
// Creation and application

ConstraintGraph2* Dt2::createConstraint(std::vector<Segment2>& vSegments, ConstraintInsertionStrategy cis,
                                        bool bOrientedSegments) {
  if (vSegments.empty()) {
    logWarning("Dt2::createConstraint(..)", "vSegments is empty, returning NULL");
    return nullptr;
  }
  if (bOrientedSegments) return getConstraintMgr()->createConstraint_oriented(vSegments, cis);
  return getConstraintMgr()->createConstraint(vSegments, cis);
}

ConstraintGraph2* Dt2::createConstraint(std::vector<Edge2>& vEdges, ConstraintInsertionStrategy cis) {
  if (vEdges.empty()) {
    logWarning("Dt2::createConstraint(..)", "vEdges is empty, returning NULL");
    return nullptr;
  }
  return getConstraintMgr()->createConstraint(vEdges, cis);
}

void Dt2::applyConstraintsAndZones() {
  if (!hasArea()) {
    logWarning("Dt2::applyConstraintsAndZones()", "The triangulation has no area yet.");
    return;
  }
  if (pConstraintMgr != nullptr) pConstraintMgr->apply();
}

// ---------------------------------------------------------------------------
// Queries

bool Dt2::isConstraint(Point2* p0, Point2* p1) const {
  return pConstraintMgr != nullptr && p0 != nullptr && p1 != nullptr && pConstraintMgr->isConstraint(p0, p1);
}

ConstraintSegment2* Dt2::getConstraintSegment(Point2* p0, Point2* p1) const {
  if (pConstraintMgr == nullptr || p0 == nullptr || p1 == nullptr) return nullptr;
  return pConstraintMgr->getConstraintSegment(p0, p1);
}

void Dt2::getAliveConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const {
  if (pConstraintMgr != nullptr) pConstraintMgr->getAliveConstraintSegments(vOut);
}

void Dt2::getAliveAndDeadConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const {
  if (pConstraintMgr != nullptr) pConstraintMgr->getAliveAndDeadConstraintSegments(vOut);
}

// Around p0 without collecting anything: asked for every segment in every
// round of the apply loop.
bool Dt2::isEdgeOfMesh(Point2* p0, Point2* p1) const {
  if (p0->getIncidentTriangle() == nullptr) return false;
  TriangleAroundVertexIterator start(p0), it(p0);
  do {
    const Triangle2* pT(*it);
    ++it;
    if (pT != nullptr && pT->hasVertex(p1)) return true;
  } while (it != start);
  return false;
}

void Dt2::countConstraintEdges(size_t& numContained, std::vector<ConstraintSegment2*>& vMissing) const {
  numContained = 0;
  std::vector<ConstraintSegment2*> vAlive;
  getAliveConstraintSegments(vAlive);
  for (ConstraintSegment2* pCSeg : vAlive) {
    if (isEdgeOfMesh(pCSeg->getSrc(), pCSeg->getTrg())) ++numContained;
    else vMissing.push_back(pCSeg);
  }
}

} // namespace KIRO_VASK2D
