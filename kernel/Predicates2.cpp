#include "Predicates2.h"
#include "kernel/KiroTest.h"
#include "support/VaskAssert.h"

namespace KIRO_VASK2D {

Orientation2 getOrientation2(const Point2* p0, const Point2* p1, const Point2* p2) {
  VASK_ASSERT(p0!=0);
  VASK_ASSERT(p1!=0);
  VASK_ASSERT(p2!=0);
  // Created at the first call, alive until the library is unloaded; its
  // bound only grows, so later calls mostly skip setStaticBound_MT.
  static KiroTest kiroTest;
  kiroTest.setStaticBound(p0, p1, p2);
  return kiroTest.getOrientation2(p0, p1, p2);
}

Orientation2 getOrientation2_mt(const Point2* p0, const Point2* p1, const Point2* p2) {
  VASK_ASSERT(p0!=0);
  VASK_ASSERT(p1!=0);
  VASK_ASSERT(p2!=0);
  KiroTest kiroTest;
  kiroTest.setStaticBound(p0, p1, p2);
  return kiroTest.getOrientation2(p0, p1, p2);
}

const char* getString(Orientation2 ori) {
  switch (ori) {
  case ORIENTATION2_COLLINEAR:
    return "ORIENTATION2_COLLINEAR";
  case ORIENTATION2_CCW:
    return "ORIENTATION2_CCW";
  case ORIENTATION2_CW:
    return "ORIENTATION2_CW";
  }
  return "UNKNOWN";
}

const char* getString(CircleState2 state) {
  switch (state) {
  case CINC2_ZERO:
    return "CINC2_ZERO";
  case CINC2_INCIRCLE:
    return "CINC2_INCIRCLE";
  case CINC2_OUTCIRCLE:
    return "CINC2_OUTCIRCLE";
  }
  return "UNKNOWN";
}

const char* getString(IntersectionState2 state) {
  switch (state) {
  case IST_NOIS:
    return "IST_NOIS";
  case IST_COLLINEAR:
    return "IST_COLLINEAR";
  case IST_REGULAR:
    return "IST_REGULAR";
  }
  return "UNKNOWN";
}

} // namespace KIRO_VASK2D
