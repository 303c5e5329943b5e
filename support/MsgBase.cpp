#include "MsgBase.h"

namespace KIRO_VASK2D {

// Out of line so that the vtable and typeinfo of MsgBase live in the library
// and a receiver derived in the host refers to a single copy of them.
MsgBase::~MsgBase() {}

} // namespace KIRO_VASK2D
