#pragma once
// Shared tools of the tests: generators of adversarial point sets and an
// independent validator of triangulations.
#include "Point2.h"
#include <random>
#include <vector>

namespace vask_test {

/** Uniform random points in [0,1)^2 from a fixed seed. */
std::vector<KIRO_VASK2D::Point2> randomPoints(std::size_t n, unsigned seed);

} // namespace vask_test
