#include "kernel/tools.h"
#include "Predicates2.h"
#include "freeFunctions.h"
#include "kernel/KiroTest.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iostream>
#include <sstream>

namespace KIRO_VASK2D {

bool approxHasOn(const Point2& a, const Point2& b, const Point2& p) {
  if (p == a || p == b) return true;
  const double sqLen(sqDistance2D(a, b));
  return sqLen >= sqDistance2D(a, p) && sqLen >= sqDistance2D(p, b);
}

double getUlp(double v) {
  // ldexp(2^-52, ceil(log2|v|)), with the exponent taken from frexp: the
  // quotient log(v)/log(2) is off by one ulp for many powers of two (2^29,
  // 2^31, ...), and its ceiling then one binade too high.
  v = std::fabs(v);
  if (std::isnan(v)) return v;
  if (std::isinf(v)) return HUGE_VAL;
  if (v == 0.0) return std::ldexp(1.0, -1074);
  int exponent(0);
  const double mantissa(std::frexp(v, &exponent)); // v = mantissa * 2^exponent, 0.5 <= mantissa < 1
  const int ceilLog2(mantissa == 0.5 ? exponent - 1 : exponent);
  // No double is finer than 2^-1074, the spacing of the subnormals.
  return ceilLog2 - 52 < -1074 ? std::ldexp(1.0, -1074) : std::ldexp(2.220446049250313e-16, ceilLog2);
}

namespace {
/** Nearest of the four end points to (x, y); ties go to the earliest. */
const Point2& nearestEndPoint(const Point2* aEnd[4], double x, double y) {
  const Point2 target(x, y);
  int best(0);
  double bestDist(sqDistance2D(*aEnd[0], target));
  for (int i = 1; i < 4; ++i) {
    const double dist(sqDistance2D(*aEnd[i], target));
    if (dist < bestDist) {
      bestDist = dist;
      best = i;
    }
  }
  return *aEnd[best];
}

/** (y1 - y0) / (x1 - x0), or 100000.0 for a segment whose x extent is not above 1e-50. */
double getSlope(double x0, double y0, double x1, double y1) {
  if (std::fabs(x1 - x0) > 1e-50) return (y1 - y0) / (x1 - x0);
  return 100000.0;
}
} // namespace

void getIntersectionCoordsNoRounding(const Point2& p0, const Point2& p1, const Point2& p2, const Point2& p3, double& x,
                                     double& y) {
  static KiroTest kiroTest;
  kiroTest.updateStaticBound(&p0);
  kiroTest.updateStaticBound(&p1);
  kiroTest.updateStaticBound(&p2);
  kiroTest.updateStaticBound(&p3);
  if (kiroTest.getOrientation2(&p0, &p1, &p2) == ORIENTATION2_COLLINEAR &&
      kiroTest.getOrientation2(&p0, &p1, &p3) == ORIENTATION2_COLLINEAR)
    logWarning("getIntersectionCoordsNoRounding()", "has been called for collinear segments");

  // A shared end point is the answer as it stands.
  if (p0 == p2 || p0 == p3) {
    p0.xy(x, y);
    return;
  }
  if (p1 == p2 || p1 == p3) {
    p1.xy(x, y);
    return;
  }

  // Coordinates relative to the centre of the box keep the products of the
  // double formula small and so its cancellation harmless.
  const double minX(std::min(std::min(p0.x(), p1.x()), std::min(p2.x(), p3.x())));
  const double maxX(std::max(std::max(p0.x(), p1.x()), std::max(p2.x(), p3.x())));
  const double minY(std::min(std::min(p0.y(), p1.y()), std::min(p2.y(), p3.y())));
  const double maxY(std::max(std::max(p0.y(), p1.y()), std::max(p2.y(), p3.y())));
  const double shiftX(minX + (maxX - minX) * 0.5), shiftY(minY + (maxY - minY) * 0.5);
  const double x0(p0.x() - shiftX), y0(p0.y() - shiftY), x1(p1.x() - shiftX), y1(p1.y() - shiftY);
  const double x2(p2.x() - shiftX), y2(p2.y() - shiftY), x3(p3.x() - shiftX), y3(p3.y() - shiftY);

  // Nearly vertical pairs and nearly parallel pairs are ill-conditioned for
  // the double formula; they go to the rationals directly.
  const double slope1(getSlope(x0, y0, x1, y1)), slope2(getSlope(x2, y2, x3, y3));
  const bool bIllConditioned(std::isinf(slope1) || std::isinf(slope2) ||
                             (std::fabs(slope1) > 1000.0 && std::fabs(slope2) > 1000.0) ||
                             0.01 > std::fabs(slope1 - slope2));
  if (!bIllConditioned) {
    const double d1(x0 * y1 - y0 * x1), d2(x2 * y3 - y2 * x3);
    const double numX(d1 * (x2 - x3) - d2 * (x0 - x1)), numY(d1 * (y2 - y3) - d2 * (y0 - y1));
    const double denom((x0 - x1) * (y2 - y3) - (y0 - y1) * (x2 - x3));
    if (denom != 0.0) {
      x = numX / denom + shiftX;
      y = numY / denom + shiftY;
      const Point2 candidate(x, y);
      if (approxHasOn(p0, p1, candidate) && approxHasOn(p2, p3, candidate)) return;
    }
  }

  kiroTest.getIntersectionCoords_gmp_MT(&p0, &p1, &p2, &p3, x, y);
  const Point2 exact(x, y);
  if (!approxHasOn(p0, p1, exact) || !approxHasOn(p2, p3, exact)) {
    // The lines meet just beyond an end point, by the rounding of the result.
    const Point2* aEnd[4] = {&p0, &p1, &p2, &p3};
    nearestEndPoint(aEnd, x, y).xy(x, y);
  }
}

void getIntersectionCoordsNoRounding(const Point2& p0, const Point2& p1, const Point2& p2, const Point2& p3,
                                     Point2& out) {
  double x(0.0), y(0.0);
  getIntersectionCoordsNoRounding(p0, p1, p2, p3, x, y);
  out.change(x, y);
}

Point2 getFootPoint(const Point2& p0, const Point2& p1, const Point2& q) {
  VASK_ASSERT(p1!=p0);
  const Vector2 dir(p1 - p0);
  const double length(dir.length());
  if (length == 0.0) {
    logWarning("getFootPoint()", "p0==p1, invalid parameters");
    return Point2(-999.0, -999.0);
  }
  const Vector2 unit(dir / length);
  const double t((q.x() - p0.x()) * unit.x() + (q.y() - p0.y()) * unit.y());
  return p0 + unit * t;
}

double getPointLineDistance2D(const Point2& p0, const Point2& p1, const Point2& q) {
  if (p0 == p1) {
    logWarning("getPointLineDistance2D(..)", "p0==p1");
    return std::sqrt(sqDistance2D(p0, q));
  }
  return std::sqrt(sqDistance2D(getFootPoint(p0, p1, q), q));
}

double getBetterX(const Point2& a, const Point2& b, const Point2& p, double range) {
  double xMin(p.x() - range), xMax(p.x() + range), currentX(p.x());
  const Point2 pMin(xMin, p.y()), pMax(xMax, p.y());
  const Orientation2 oriMin(getOrientation2(&a, &b, &pMin));
  const Orientation2 oriMax(getOrientation2(&a, &b, &pMax));
  if (oriMin == ORIENTATION2_COLLINEAR || oriMin == oriMax) return currentX;
  // Invariant: xMin lies on the side oriMin of the line and xMax does not.
  // Each round halves the bracket, so the loop ends after at most about
  // 2100 rounds, when no double lies strictly between the two ends.
  for (int searchCtr = 0;; ++searchCtr) {
    const double halfRange((xMax - xMin) / 2.0);
    const double middle(xMin + halfRange);
    if (!(xMin < xMax) || middle == xMin || middle == xMax) {
      if (!(xMin < xMax) || !(currentX >= xMin && currentX <= xMax)) {
        std::ostringstream oss;
        oss.precision(17);
        oss << "searchCtr=" << searchCtr << "\nxMax=" << xMax << "\nxMin=" << xMin << "\nxMax>xMin:" << (xMax > xMin)
            << "\nxMax<xMin:" << (xMax < xMin) << "\ncurrentX>xMin:" << (currentX > xMin)
            << "\ncurrentX<xMax:" << (currentX < xMax) << "\ncurrentX=" << currentX
            << "\nxMax-currentX=" << (xMax - currentX) << "\nhalfRange=" << halfRange
            << "\nxMax-xMin=" << (xMax - xMin) << "\nreturning currentX\n";
        logWarning("tools.cpp, getBetterX()", "unexpected behavior, observe!");
        std::cout << oss.str();
      }
      return currentX;
    }
    currentX = middle;
    const Point2 current(currentX, p.y());
    const Orientation2 ori(getOrientation2(&a, &b, &current));
    if (ori == ORIENTATION2_COLLINEAR) return currentX;
    if (ori == oriMin)
      xMin = currentX;
    else
      xMax = currentX;
  }
}

double getBetterY(const Point2& a, const Point2& b, const Point2& p, double range) {
  const Point2 swappedA(a.y(), a.x()), swappedB(b.y(), b.x()), swappedP(p.y(), p.x());
  return getBetterX(swappedA, swappedB, swappedP, range);
}

namespace {
double midValue(double a, double b) {
  const double sum(a + b);
  return std::isinf(sum) ? a * 0.5 + b * 0.5 : sum * 0.5; // no overflow near the largest double
}
} // namespace

Point2 centerWithShift(const Point2& a, const Point2& b) {
  const Point2 center(midValue(a.x(), b.x()), midValue(a.y(), b.y()));
  const double dx(std::fabs(a.x() - b.x())), dy(std::fabs(a.y() - b.y()));
  const double rangeX(std::min(dx / 100.0, 0.001)), rangeY(std::min(dy / 100.0, 0.001));
  if (dy > dx) {
    const double x(getBetterX(a, b, center, rangeX));
    const double y(getBetterY(a, b, Point2(x, center.y()), rangeY));
    return Point2(x, y);
  }
  const double y(getBetterY(a, b, center, rangeY));
  const double x(getBetterX(a, b, Point2(center.x(), y), rangeX));
  return Point2(x, y);
}

namespace {
/** Both vectors must have about unit length; otherwise the message and VaskException. */
void checkUnitLengths(const Vector2& v0, const Vector2& v1, const char* caller) {
  const double len0(v0.length()), len1(v1.length());
  // Written so that a NaN length fails as well.
  const bool bUnitLengths(std::fabs(len0 - 1.0) <= 0.1 && std::fabs(len1 - 1.0) <= 0.1);
  if (!bUnitLengths)
    std::cout << caller << " has been called for vectors with length!=1.0:\n"
              << "  Lengths are: len0=" << len0 << "   len1=" << len1 << std::endl;
  VASK_ASSERT(bUnitLengths);
}

double getLimitedDot(const Vector2& v0, const Vector2& v1) {
  const double dot(v0 * v1);
  return std::max(-1.0, std::min(1.0, dot));
}
} // namespace

double getAngleDegree(const Vector2& v0, const Vector2& v1) {
  checkUnitLengths(v0, v1, "getAngleDegree");
  return std::acos(getLimitedDot(v0, v1)) * 57.295779513;
}

double getCosPhi(const Vector2& v0, const Vector2& v1) {
  checkUnitLengths(v0, v1, "getCosPhi");
  return getLimitedDot(v0, v1);
}

bool getRelativePlacement(const Point2& p0, const Point2& p1, const Point2& c, double& t, double& r) {
  const double ex(p1.x() - p0.x()), ey(p1.y() - p0.y());
  const double s(std::max(std::fabs(ex), std::fabs(ey)));
  if (!(s > 0.0) || !std::isfinite(s)) return false;
  const double ux(ex / s), uy(ey / s), cx((c.x() - p0.x()) / s), cy((c.y() - p0.y()) / s);
  if (!std::isfinite(cx) || !std::isfinite(cy) || std::fabs(cx) > 1e150 || std::fabs(cy) > 1e150) return false;
  const double len2(ux * ux + uy * uy); // in [1, 2]
  t = (cx * ux + cy * uy) / len2;
  r = std::fabs(cx * uy - cy * ux) / len2;
  return true;
}

} // namespace KIRO_VASK2D
