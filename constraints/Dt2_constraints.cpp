// The constraint unit of Dt2: ownership of the registry and the hooks by
// which insertion, flipping and removal honour constraint segments.
// Enforcement of segments in the mesh comes here as well.
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"

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

} // namespace KIRO_VASK2D
