#include "VertexPair2.h"
#include <iostream>

namespace KIRO_VASK2D {

std::ostream& operator<<(std::ostream& stream, const VertexPair2& pair) {
  stream << "VertexPair2 (" << static_cast<const void*>(pair.getFirst()) << ", "
         << static_cast<const void*>(pair.getSecond()) << ")";
  return stream;
}

} // namespace KIRO_VASK2D
