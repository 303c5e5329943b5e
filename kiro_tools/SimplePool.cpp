#include "kiro_tools/SimplePool.h"
#include <iostream>

namespace KIRO_VASK2D {

// Out of line so that the pool template does not pull <iostream> into every unit.
void printPoolMessage(const char* msg) {
  std::cout << msg << std::endl;
}

} // namespace KIRO_VASK2D
