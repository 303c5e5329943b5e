// The main job of the library, run on an embedded default.
#include <Vask_2D.h>
#include <iostream>

int main() {
  using namespace KIRO_VASK2D;
  std::cout << getVask2DVersion() << std::endl;
  Point2 a(0, 0), b(1, 1.0 / 3.0), c(3, 1);
  std::cout << "orientation of (0,0), (1,1/3), (3,1): " << getString(getOrientation2(&a, &b, &c)) << std::endl;
  return 0;
}
