#pragma once
// Free geometric functions of Vask2D for the caller.
#include "Point2.h"
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** The midpoint of a and b, moved onto line ab as closely as the grid of
 * doubles allows (within a hundredth of the extent, and at most 0.001, in
 * each direction). Splitting a segment at this point keeps it straight. */
VASK2D_API Point2 centerWithShift(const Point2& a, const Point2& b);

} // namespace KIRO_VASK2D
