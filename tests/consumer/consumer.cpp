// A user of the installed library: one include, no GMP headers.
#include <Vask_2D.h>
#include <iostream>

int main() {
  using namespace KIRO_VASK2D;
  Point2 a(0, 0), b(1, 0), c(0, 1);
  if (getOrientation2(&a, &b, &c) != ORIENTATION2_CCW) return 1;
  std::cout << getVask2DVersion() << ": consumer ok" << std::endl;
  return 0;
}
