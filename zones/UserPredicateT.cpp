#include "UserPredicateT.h"

namespace KIRO_VASK2D {

// Out of line, so that the vtable and type information live in the library.
UserPredicateT::~UserPredicateT() {}

} // namespace KIRO_VASK2D
