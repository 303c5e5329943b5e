#include "helpers/TestHelpers.h"

namespace vask_test {

std::vector<KIRO_VASK2D::Point2> randomPoints(std::size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> dist(0.0, 1.0);
  std::vector<KIRO_VASK2D::Point2> points;
  points.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const double x(dist(gen));
    points.emplace_back(x, dist(gen));
  }
  return points;
}

} // namespace vask_test
