// The constraint unit of Dt2: ownership of the registry. Enforcement of
// segments in the mesh comes here as well.
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

} // namespace KIRO_VASK2D
