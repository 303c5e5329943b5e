#include "Triangle2.h"
#include "Predicates2.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include "kernel/tools.h"
#include <cassert>
#include <cmath>
#include <iostream>
#include <limits>
#include <sstream>

namespace KIRO_VASK2D {

namespace {

const double DBL_MAX_VALUE(1.7976931348623157e308);

/** Rounds v to the 24-bit mantissa of a float while keeping the exponent
 * range of a double. A plain cast to float would give infinity above
 * 3.4e38 and lose the offset below 1.2e-38; within the float range the
 * result equals the cast (round to nearest, ties to even). */
double roundToFloatPrecision(double v) {
  if (v == 0.0 || !std::isfinite(v)) return v;
  int exponent(0);
  const double mantissa(std::frexp(v, &exponent)); // 0.5 <= |mantissa| < 1
  return std::ldexp(std::nearbyint(std::ldexp(mantissa, 24)), exponent - 24);
}

/** Unit vector of v; the null vector stays null so that a later length check sees 0. */
Vector2 unitVector(const Vector2& v) {
  const double len(v.length());
  return len > 0.0 ? v / len : Vector2(0.0, 0.0);
}

void printCornerOrNull(std::ostream& stream, const Point2* p) {
  if (p == nullptr)
    stream << "NULL";
  else
    stream << *p;
}

} // namespace

int incIndexBy2Checked(int num) {
  // clang-format off
  VASK_ASSERT(num>=0 && num<3);
  // clang-format on
  return num == 0 ? 2 : num - 1;
}

int Triangle2::failedIndexSearch(int fallback) {
  assert(false);
  return fallback;
}

int Triangle2::getIntraTriangleIndex(const Point2* p, const Point2* q) const {
  for (int i = 0; i < 3; ++i) {
    const Point2* pSrc(aVertexPointer[incIndexBy1(i)]);
    const Point2* pTrg(aVertexPointer[incIndexBy2(i)]);
    if ((pSrc == p && pTrg == q) || (pSrc == q && pTrg == p)) return i;
  }
  std::cout << "BUG: Triangle2::getIntraTriangleIndex failed for" << std::endl;
  printCornerOrNull(std::cout, p);
  std::cout << std::endl;
  printCornerOrNull(std::cout, q);
  std::cout << std::endl << *this << std::endl;
  assert(false);
  return -1;
}

bool Triangle2::hasVertex(const Point2& p) const {
  for (int i = 0; i < 3; ++i)
    if (aVertexPointer[i] != nullptr && *aVertexPointer[i] == p) return true;
  return false;
}

double Triangle2::computeArea(double l0, double l1, double l2) const {
  const double s((l0 + l1 + l2) / 2.0);
  const double sqArea((s - l0) * s * (s - l1) * (s - l2));
  if (std::isnan(sqArea)) {
    logWarning("Triangle2::computeArea()", "invalid value, no area for this triangle");
    std::cout << "ownHalfCircf=" << s << std::endl << "Corners are: " << std::endl;
    for (int i = 0; i < 3; ++i) {
      printCornerOrNull(std::cout, aVertexPointer[i]);
      std::cout << std::endl;
    }
    std::cout << "len0=" << l0 << std::endl << "len1=" << l1 << std::endl << "len2=" << l2 << std::endl;
    VASK_ASSERT(false);
  }
  if (sqArea > 0.0) return std::sqrt(sqArea);
  // A flat triangle rounds to a tiny negative value; only a large one hints at a real fault.
  if (-1.0 > sqArea) {
    std::ostringstream oss;
    oss << "Numeric issue in Triangle::getArea(), sqArea=" << sqArea;
    logWarning("Triangle2::computeArea()", oss.str());
  }
  return 0.0;
}

double Triangle2::getArea2D() const {
  const double l0(std::sqrt(sqDistance2D(*aVertexPointer[0], *aVertexPointer[1])));
  const double l1(std::sqrt(sqDistance2D(*aVertexPointer[1], *aVertexPointer[2])));
  const double l2(std::sqrt(sqDistance2D(*aVertexPointer[2], *aVertexPointer[0])));
  return computeArea(l0, l1, l2);
}

Point2 Triangle2::getBarycenter() const {
  const Point2& p0(*aVertexPointer[0]);
  const Point2& p1(*aVertexPointer[1]);
  const Point2& p2(*aVertexPointer[2]);
  return Point2((p0.x() + p1.x() + p2.x()) / 3.0, (p0.y() + p1.y() + p2.y()) / 3.0);
}

double Triangle2::getInteriorAngle2D(int ith) const {
  const Point2& p(*getCorner(ith));
  const Vector2 v0(unitVector(*aVertexPointer[incIndexBy1(ith)] - p));
  const Vector2 v1(unitVector(*aVertexPointer[incIndexBy2(ith)] - p));
  return getAngleDegree(v0, v1);
}

double Triangle2::getSquaredEdgeLength2D(int ith) const {
  return sqDistance2D(*aVertexPointer[incIndexBy1(ith)], *aVertexPointer[incIndexBy2(ith)]);
}

double Triangle2::getSquaredEdgeLength(int ith) const {
  return getSquaredEdgeLength2D(ith);
}

double Triangle2::getMaxSqEdgeLen2D() const {
  double maxSqLen(-1.0);
  for (int i = 0; i < 3; ++i) {
    const double sqLen(getSquaredEdgeLength2D(i));
    if (sqLen > maxSqLen) maxSqLen = sqLen;
  }
  return maxSqLen;
}

int Triangle2::getMaxIndex() const {
  double maxSqLen(-1.0);
  int maxIdx(-1);
  for (int i = 0; i < 3; ++i) {
    const double sqLen(getSquaredEdgeLength2D(i));
    if (sqLen > maxSqLen) {
      maxSqLen = sqLen;
      maxIdx = i;
    }
  }
  return maxIdx;
}

int Triangle2::getMinIndex() const {
  double minSqLen(DBL_MAX_VALUE);
  int minIdx(-1);
  for (int i = 0; i < 3; ++i) {
    const double sqLen(getSquaredEdgeLength2D(i));
    if (sqLen < minSqLen) {
      minSqLen = sqLen;
      minIdx = i;
    }
  }
  return minIdx;
}

bool Triangle2::hasOnEdge(int ith, const Point2& p) const {
  const Point2* pI(getCorner(ith));
  const Point2* pJ(aVertexPointer[incIndexBy1(ith)]);
  const Point2* pK(aVertexPointer[incIndexBy2(ith)]);
  // On the line through j and k, and not beyond j or k: beyond k the point
  // would lie to the right of k->i, beyond j to the right of i->j.
  return getOrientation2(pJ, pK, &p) == ORIENTATION2_COLLINEAR && getOrientation2(pI, pJ, &p) != ORIENTATION2_CW &&
         getOrientation2(pK, pI, &p) != ORIENTATION2_CW;
}

void Triangle2::getCommonOffset(double& offX, double& offY) const {
  // The midpoint of the smallest and the largest magnitude is close to all
  // three coordinates when they share a magnitude, so the circumcentre
  // formulas work on small differences. With 24 significant bits the offset
  // off = k * 2^(e-24), |off| < 2^e, lies on the grid ulp(x) = 2^(ex-53) of
  // every x with |x| < 2^(e+29); so x - off is exact for x of the same sign
  // from |off|/2 (Sterbenz) up to 2^29 |off| (the difference is then a
  // multiple of ulp(x) and smaller than |x|).
  double minAbsX(DBL_MAX_VALUE), maxAbsX(0.0), minAbsY(DBL_MAX_VALUE), maxAbsY(0.0);
  double xOfMin(0.0), xOfMax(0.0), yOfMin(0.0), yOfMax(0.0);
  for (int i = 0; i < 3; ++i) {
    const double x(aVertexPointer[i]->x()), y(aVertexPointer[i]->y());
    const double ax(std::fabs(x)), ay(std::fabs(y));
    if (ax < minAbsX) {
      minAbsX = ax;
      xOfMin = x;
    }
    if (ax > maxAbsX) {
      maxAbsX = ax;
      xOfMax = x;
    }
    if (ay < minAbsY) {
      minAbsY = ay;
      yOfMin = y;
    }
    if (ay > maxAbsY) {
      maxAbsY = ay;
      yOfMax = y;
    }
  }
  offX = roundToFloatPrecision((xOfMin + xOfMax) / 2.0);
  offY = roundToFloatPrecision((yOfMin + yOfMax) / 2.0);
}

bool Triangle2::getCC_strategy1(double offX, double offY, Point2& result) const {
  const double x0(aVertexPointer[0]->x() - offX), y0(aVertexPointer[0]->y() - offY);
  const double x1(aVertexPointer[1]->x() - offX), y1(aVertexPointer[1]->y() - offY);
  const double x2(aVertexPointer[2]->x() - offX), y2(aVertexPointer[2]->y() - offY);
  const double s0(x0 * x0 + y0 * y0), s1(x1 * x1 + y1 * y1), s2(x2 * x2 + y2 * y2);
  const double d(2.0 * ((x0 * y1 + x1 * y2 + x2 * y0) - (x0 * y2 + x1 * y0 + x2 * y1)));
  if (d == 0.0) return false;
  const double ux((y1 - y2) * s0 + (y2 - y0) * s1 + (y0 - y1) * s2);
  const double uy((x2 - x1) * s0 + (x0 - x2) * s1 + (x1 - x0) * s2);
  result = Point2(ux / d + offX, uy / d + offY);
  return true;
}

void Triangle2::getCC_strategy2(int maxIdx, double offX, double offY, Point2& result) const {
  const Point2* pA(getCorner(maxIdx));
  const Point2* pB(aVertexPointer[incIndexBy1(maxIdx)]);
  const Point2* pC(aVertexPointer[incIndexBy2(maxIdx)]);
  const Point2 a(pA->x() - offX, pA->y() - offY);
  const Point2 b(pB->x() - offX, pB->y() - offY);
  const Point2 c(pC->x() - offX, pC->y() - offY);
  const Point2 m((b.x() + c.x()) / 2.0, (b.y() + c.y()) / 2.0);
  // a lies left of b->c, so w points away from a.
  Vector2 w((b - c).orthogonalVector());
  const double len(w.length());
  double sign, range;
  if (sqDistance2D(m, a) > sqDistance2D(m, b)) {
    // Acute at a: the centre lies between m and a.
    w = -w;
    sign = 1.0;
    range = std::sqrt(sqDistance2D(m, a)) / len;
  } else {
    // Obtuse or right at a: the centre lies beyond the edge. 1e13 bounds the
    // search; a centre farther away is of no use to refinement anyway.
    sign = -1.0;
    range = 10000000000000.0 / len;
  }
  // Along the bisector, diff = |pa|^2 - |pb|^2 changes sign exactly once, at
  // the centre. It is evaluated as |am|^2 - |bm|^2 - 2 (p-m).(a-b), the same
  // value without squaring |p-m|: far out on the bisector of a flat triangle
  // the two squares would agree in all their digits and their difference
  // would round to zero long before the centre is reached.
  const Vector2 dir(w * range);
  const double constTerm(sqDistance2D(a, m) - sqDistance2D(b, m));
  const Vector2 ab(a - b);
  double lo(0.0), hi(1.0), t(0.5);
  while (true) {
    t = (lo + hi) / 2.0;
    if (t == lo || t == hi) break;
    const double diff(constTerm - 2.0 * ((dir * t) * ab));
    if (1e-16 > std::fabs(diff)) break; // settled: below any resolvable value at unit scale
    if (0.0 > sign * diff)
      hi = t;
    else
      lo = t;
  }
  const Point2 p(m + dir * t);
  result = Point2(p.x() + offX, p.y() + offY);
}

bool Triangle2::isAccurateCC(int maxIdx, const Point2& cc) const {
  const Point2* pI(getCorner(maxIdx));
  const Point2* pJ(aVertexPointer[incIndexBy1(maxIdx)]);
  const Point2* pK(aVertexPointer[incIndexBy2(maxIdx)]);
  // The centre may lie beyond the longest edge (obtuse triangle) but never
  // beyond one of the two edges that meet at the corner of the largest angle.
  if (getOrientation2(pK, pI, &cc) == ORIENTATION2_CW || getOrientation2(pI, pJ, &cc) == ORIENTATION2_CW) return false;
  const double di(std::sqrt(sqDistance2D(cc, *pI)));
  const double dj(std::sqrt(sqDistance2D(cc, *pJ)));
  const double dk(std::sqrt(sqDistance2D(cc, *pK)));
  // Each computed distance carries a relative error below 3u (u = 2^-53):
  // the coordinate difference u, squaring it 2u + u, the sum u, so 4u on
  // the square; the root halves that and adds u. A computed difference of
  // two distances is thus off by at most 6u * max(d) plus its own rounding,
  // and the margin 8u * max(d) = 2^-50 * max(d) covers both. The absolute
  // limit 1e-6 is only claimed when it holds with this margin: above ~1e9
  // distances are quantised too coarsely for the limit, and a far point of
  // a flat or collinear triangle would pass with a spread rounded to 0.
  const double maxDist(std::fmax(di, std::fmax(dj, dk)));
  const double margin(8.8817841970012523e-16 * maxDist); // 2^-50 * max(d)
  // Written so that a NaN distance fails the test.
  return 1e-6 > std::fabs(di - dj) + margin && 1e-6 > std::fabs(dj - dk) + margin && 1e-6 > std::fabs(dk - di) + margin;
}

std::pair<Point2, bool> Triangle2::getDual() const {
  double offX(0.0), offY(0.0);
  getCommonOffset(offX, offY);
  const int maxIdx(getMaxIndex());
  if (maxIdx < 0) {
    // Only non-finite corners have no longest edge.
    const double nan(std::numeric_limits<double>::quiet_NaN());
    return std::make_pair(Point2(nan, nan), false);
  }
  Point2 cc1;
  if (getCC_strategy1(offX, offY, cc1) && isAccurateCC(maxIdx, cc1)) return std::make_pair(cc1, true);
  Point2 cc2;
  getCC_strategy2(maxIdx, offX, offY, cc2);
  return std::make_pair(cc2, isAccurateCC(maxIdx, cc2));
}

std::ostream& operator<<(std::ostream& stream, const Triangle2& triangle) {
  stream << "Triangle(" << static_cast<const void*>(&triangle) << "): ";
  const Point2* p0(triangle.getCorner(0));
  const Point2* p1(triangle.getCorner(1));
  const Point2* p2(triangle.getCorner(2));
  if (p0 != nullptr && p1 != nullptr && p2 != nullptr) {
    bool bFinite(true);
    for (const Point2* p : {p0, p1, p2})
      bFinite = bFinite && std::isfinite(p->x()) && std::isfinite(p->y());
    // getArea2D raises on non-finite corners; a diagnostic print must not.
    if (bFinite)
      stream << "area2D=" << triangle.getArea2D();
    else
      stream << "area2D=invalid";
    switch (getOrientation2(p0, p1, p2)) {
    case ORIENTATION2_CCW:
      stream << " CCW";
      break;
    case ORIENTATION2_CW:
      stream << " ATTENTION, CLOCKWISE CORNERS!";
      break;
    default:
      stream << " ATTENTION, COLLINEAR CORNERS";
      break;
    }
  } else {
    stream << "corners not set";
  }
  stream << "\n";
  for (int i = 0; i < 3; ++i) {
    stream << "  ";
    printCornerOrNull(stream, triangle.getCorner(i));
    stream << "\t oppTriangle: " << static_cast<const void*>(triangle.getOppositeTriangle(i)) << "\n";
  }
  return stream;
}

} // namespace KIRO_VASK2D
