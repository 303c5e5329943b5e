#pragma once
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** Result of the orientation test. */
enum Orientation2 { ORIENTATION2_COLLINEAR = 0, ORIENTATION2_CCW = 1, ORIENTATION2_CW = 2 };

/** Result of the in-circle test. 0 means undecided and only the cheap test returns it. */
enum CircleState2 { CINC2_ZERO = 1, CINC2_INCIRCLE = 2, CINC2_OUTCIRCLE = 3 };

/** Result of the quick segment intersection test. */
enum IntersectionState2 { IST_NOIS = 0, IST_COLLINEAR = 1, IST_REGULAR = 2 };

/** Exact orientation of (p0, p1, p2) for any finite coordinates, subnormal
 * or near the largest double, in any rounding mode of the caller, which is
 * left unchanged. Uses one shared predicates object: not for concurrent
 * use. A NaN or infinite coordinate is outside the exact promise and yields
 * ORIENTATION2_COLLINEAR at once. A null argument throws VaskException. */
VASK2D_API Orientation2 getOrientation2(const Point2* p0, const Point2* p1, const Point2* p2);
/** The same test with a predicates object of its own per call: safe on many
 * threads, at the cost of one construction and bound computation per call. */
VASK2D_API Orientation2 getOrientation2_mt(const Point2* p0, const Point2* p1, const Point2* p2);

/** The enumerator's name, e.g. "ORIENTATION2_CCW"; "UNKNOWN" for other values. */
VASK2D_API const char* getString(Orientation2 ori);
VASK2D_API const char* getString(CircleState2 state);
VASK2D_API const char* getString(IntersectionState2 state);

} // namespace KIRO_VASK2D
