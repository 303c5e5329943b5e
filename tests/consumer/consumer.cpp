// A user of the installed library: one include, no GMP headers.
#include <Vask_2D.h>
#include <iostream>
#include <vector>

int main() {
  using namespace KIRO_VASK2D;
  Point2 a(0, 0), b(1, 0), c(0, 1);
  if (getOrientation2(&a, &b, &c) != ORIENTATION2_CCW) return 1;
  // A small triangulation through the facade: a square with its centre.
  std::vector<Point2> points{{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0.5, 0.5}};
  Vask_2D dt;
  std::vector<Point2*> handles;
  dt.insert(points, handles);
  if (handles.size() != points.size() || dt.numberOfTriangles() != 4) return 1;
  if (dt.locate(Point2(0.25, 0.5)) == nullptr) return 1;
  if (!dt.checkValidity(true, "consumer")) return 1;
  std::cout << getVask2DVersion() << ": consumer ok" << std::endl;
  return 0;
}
