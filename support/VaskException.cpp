#include "VaskException.h"

namespace KIRO_VASK2D {

VaskException::~VaskException() {}

const char* VaskException::what() const noexcept {
  return "\n  VASK EXCEPTION due to a bug _or_ wrong usage of Vask. If you think it is a \n"
         "  bug then please report this incident and it will be fixed quickly";
}

} // namespace KIRO_VASK2D
