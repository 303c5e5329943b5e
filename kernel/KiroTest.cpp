#include "kernel/KiroTest.h"
#include "kernel/RoundingModeGuard.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cfloat>
#include <climits>
#include <iostream>
#include <sstream>

namespace KIRO_VASK2D {

// Layout of the member rationals. Orientation and in-circle run under
// different mutexes and therefore use disjoint ranges of aPredQ.
namespace {
const int ORIENT_Q(0);  // 6 rationals: aPredQ[0..5]
const int INCIRC_Q(6);  // 32 of the remaining 42: aPredQ[6..37]
const int NUM_PRED_Q(48);
const int NUM_IS_Q(29);

bool isFinite6(double a, double b, double c, double d, double e, double f) {
  // a - a is 0 for finite a and NaN for infinite or NaN a; NaN propagates.
  return (a - a) + (b - b) + (c - c) + (d - d) + (e - e) + (f - f) == 0.0;
}

bool isFinitePoint(const Point2* p) { return std::isfinite(p->x()) && std::isfinite(p->y()); }

/** |a - b| * |c - d| rounded away from zero; call under FE_UPWARD. The
 * differences are taken as larger minus smaller, so they too are rounded
 * away from zero. A zero factor times an overflowed one gives NaN, which
 * no comparison of the interval stage accepts. */
double outwardMagnitude(double a, double b, double c, double d) {
  a = fpBarrier(a);
  b = fpBarrier(b);
  c = fpBarrier(c);
  d = fpBarrier(d);
  const double ab(a > b ? a - b : b - a);
  const double cd(c > d ? c - d : d - c);
  return fpBarrier(ab * cd);
}

/** |(a - b) * (c - d)| rounded toward zero; call under FE_TOWARDZERO, which
 * shrinks both differences and the product and never overflows. */
double inwardMagnitude(double a, double b, double c, double d) {
  a = fpBarrier(a);
  b = fpBarrier(b);
  c = fpBarrier(c);
  d = fpBarrier(d);
  return std::fabs(fpBarrier((a - b) * (c - d)));
}

/** Sign of (x0-x2)*(y1-y2) - (y0-y2)*(x1-x2) where directed rounding proves
 * it: 1 or -1; 2 when the interval is [0, 0], so the determinant is exactly
 * zero (common on grids, where every rounding is exact); 0 when the
 * interval straddles zero or is NaN. The
 * signs of the two products follow from comparisons alone, so each product
 * is bounded by a magnitude rounded outward and one rounded inward. */
int orientationByIntervals(double x0, double y0, double x1, double y1, double x2, double y2) {
  const bool bFirstNeg((x2 > x0) != (y2 > y1));  // (x0-x2)*(y1-y2) < 0
  const bool bSecondNeg((y2 > y0) != (x2 > x1)); // (y0-y2)*(x1-x2) < 0
  // Three mode changes: inward products first, then everything that
  // rounds upward, then the one subtraction that rounds downward.
  RoundingModeGuard guard;
  guard.set(FE_TOWARDZERO);
  const double firstIn(inwardMagnitude(x0, x2, y1, y2));
  const double secondIn(inwardMagnitude(y0, y2, x1, x2));
  guard.set(FE_UPWARD);
  const double firstOut(outwardMagnitude(x0, x2, y1, y2));
  const double secondOut(outwardMagnitude(y0, y2, x1, x2));
  // Upper and lower ends of both products. Inward and outward results are
  // finite or +infinity, so neither difference below can be inf - inf; an
  // outward NaN (zero times an overflowed difference) fails both tests.
  const double firstHi(bFirstNeg ? -firstIn : firstOut), firstLo(bFirstNeg ? -firstOut : firstIn);
  const double secondHi(bSecondNeg ? -secondIn : secondOut), secondLo(bSecondNeg ? -secondOut : secondIn);
  const double upper(fpBarrier(fpBarrier(firstHi) - fpBarrier(secondLo)));
  guard.set(FE_DOWNWARD);
  const double lower(fpBarrier(fpBarrier(firstLo) - fpBarrier(secondHi)));
  if (0.0 > upper) return -1;
  if (lower > 0.0) return 1;
  if (lower == 0.0 && upper == 0.0) return 2; // L <= det <= U
  return 0;
}

/** Loads n finite doubles into the numerators of aQ as integers: every
 * double is a 53-bit integer times a power of two, so dividing all of them
 * by the smallest such power of two (among the non-zero ones) leaves exact
 * integers. The determinants below are homogeneous polynomials in the
 * coordinates: the integer determinant is the rational one times a positive
 * power of two, so it has the same sign, and integer arithmetic needs none
 * of the gcd work of canonical rationals. */
void loadScaledIntegers(const double* aValue, int n, mpq_t* aQ) {
  long aMantissa[8];
  int aExponent[8];
  int minExponent(INT_MAX);
  for (int i = 0; i < n; ++i) {
    aMantissa[i] = 0;
    aExponent[i] = 0;
    if (aValue[i] == 0.0) continue;
    int exponent(0);
    const double fraction(std::frexp(aValue[i], &exponent)); // 0.5 <= |fraction| < 1
    aMantissa[i] = static_cast<long>(std::ldexp(fraction, 53)); // exact: 53 bits
    aExponent[i] = exponent - 53;
    minExponent = std::min(minExponent, aExponent[i]);
  }
  for (int i = 0; i < n; ++i) {
    mpz_ptr z(mpq_numref(aQ[i]));
    mpz_set_si(z, aMantissa[i]);
    if (aMantissa[i] != 0) mpz_mul_2exp(z, z, static_cast<mp_bitcnt_t>(aExponent[i] - minExponent));
  }
}
} // namespace

KiroTest::KiroTest()
    : staticBound(0.0), negStaticBound(-0.0), maxCoord(0.0), filterCoord(0.0), bPredicatesReady(false),
      bIntersectionReady(false) {}

KiroTest::~KiroTest() {
  if (bPredicatesReady)
    for (int i = 0; i < NUM_PRED_Q; ++i) mpq_clear(aPredQ[i]);
  if (bIntersectionReady)
    for (int i = 0; i < NUM_IS_Q; ++i) mpq_clear(aIsQ[i]);
}

void KiroTest::initPredicateRationals() {
  std::call_once(predicatesOnce, [this] {
    for (int i = 0; i < NUM_PRED_Q; ++i) mpq_init(aPredQ[i]);
    bPredicatesReady = true;
  });
}

void KiroTest::initIntersectionRationals() {
  std::call_once(intersectionOnce, [this] {
    for (int i = 0; i < NUM_IS_Q; ++i) mpq_init(aIsQ[i]);
    bIntersectionReady = true;
  });
}

// The static bound of the orientation filter.
//
// Let every coordinate satisfy |c| <= F and let u = 2^-53. In any IEEE
// rounding mode an operation with a normal result has |fl(z) - z| <= 2u |fl(z)|
// (one unit in the last place; half of it in round-to-nearest). A product
// in the subnormal range adds an absolute error of at most 2^-1074; a sum
// or difference in that range is exact.
//
//   differences  dx' = fl(a - b), |dx'| <= 2F, |dx - dx'| <= 2u |dx'|
//   products     P' = fl(dx' * dy'), |P'| <= fl(4F^2) <= 4F^2 (1 + 2u),
//                |dx*dy - P'| <= (6u + 12u^2 + 8u^3) |P'| + 2^-1074 (1 + 5u)
//   determinant  det' = fl(P1' - P2'), |det' - (P1' - P2')| <= 2u |det'|
//
// A verdict det' > T is wrong only if det <= 0, that is if det' does not
// exceed its own error: det' (1 - 2u) <= 48u F^2 (1 + 5u) + 2^-1073 (1 + 5u).
// In round-to-nearest the same chain gives 24u F^2 to first order; this is
// the constant c = 3 * 2^-50 = 24u of the classical bound T = c M^2. The
// filter uses that T but trusts it only for coordinates up to F = 0.7 M:
// then 48u F^2 <= 23.52u M^2 (1 + 4u), safely below c M^2 (1 - 6u), the
// least value T can take after its own roundings; the gap of 2% absorbs
// every O(u^2) term and the doubled error of directed rounding modes, which
// the caller may have set.
//
// Floor. The absolute terms need T >= 2^-1073 (1 + 5u) / (1 - 2u) plus the
// 2 * 2^-1074 that c M^2 loses when it falls into the subnormal range
// itself; any floor of 2^-1071 or more is safe. underflowFloor = 2^-1000
// leaves room for products flushed to zero (2^-1022 each) as well. It
// matters only for M below about 2^-448 (1e-135), where c M^2 no longer
// absorbs it, and there it merely sends determinants below 2^-1000 to the
// interval stage.
//
// Overflow. For M <= 2^510, |products| <= 4 F^2 < 2^1022 and |det'| < 2^1023:
// nothing overflows. Beyond, the bound is +infinity and the filter declines
// everything, so an overflowed det (inf, or NaN from inf - inf) never becomes
// a verdict.
void KiroTest::setStaticBound_MT(double maxCoord) {
  std::lock_guard<std::mutex> lock(mtxBound);
  if (this->maxCoord > maxCoord) return;
  VASK_ASSERT(maxCoord>=0);
  if (std::isinf(maxCoord)) return;
  RoundingModeGuard guard;
  guard.set(FE_TONEAREST);
  double M(maxCoord);
  const double M10(fpBarrier(10.0 * M));
  if (M10 > M && M10 < DBL_MAX) M = M10;
  const double largestFilteredCoord(0x1p510);
  double bound(HUGE_VAL), gate(0.0);
  if (!(M > largestFilteredCoord)) {
    bound = fpBarrier(fpBarrier(staticBoundFactor * M) * M + underflowFloor);
    gate = fpBarrier(0.7 * M);
  }
  // Readers take no lock. Bound before gate before maxCoord: a reader that
  // sees the new gate for a point beyond the old gate must have been
  // ordered after this call by its caller anyway, and for points within the
  // old gate every mix of old and new values is valid, since the bound grows.
  staticBound = bound;
  negStaticBound = -bound;
  filterCoord = gate;
  this->maxCoord = M;
}

namespace {
/** Largest finite absolute coordinate of a point; 0 when it has none. */
double finiteMaxAbs(const Point2* p) {
  const double ax(std::fabs(p->x())), ay(std::fabs(p->y()));
  const double mx(ax <= DBL_MAX ? ax : 0.0), my(ay <= DBL_MAX ? ay : 0.0);
  return mx > my ? mx : my;
}
} // namespace

void KiroTest::setStaticBound(const Point2* p0, const Point2* p1, const Point2* p2) {
  const double m0(finiteMaxAbs(p0)), m1(finiteMaxAbs(p1)), m2(finiteMaxAbs(p2));
  const double m01(m0 > m1 ? m0 : m1);
  const double m(m01 > m2 ? m01 : m2);
  if (m > maxCoord) setStaticBound_MT(m);
}

Orientation2 KiroTest::getOrientation2Slow(const Point2* p0, const Point2* p1, const Point2* p2) {
  const double x0(p0->x()), y0(p0->y()), x1(p1->x()), y1(p1->y()), x2(p2->x()), y2(p2->y());
  if (!isFinite6(x0, y0, x1, y1, x2, y2)) return ORIENTATION2_COLLINEAR;
  ++counters.orientSlow;
  if (p0->getMaxAbs() > maxCoord || p1->getMaxAbs() > maxCoord || p2->getMaxAbs() > maxCoord) {
    std::ostringstream oss;
    oss.precision(15);
    oss << "Static bound: " << staticBound << "\nmax p0: " << p0->getMaxAbs() << "\nmax p1: " << p1->getMaxAbs()
        << "\nmax p2: " << p2->getMaxAbs() << "\n";
    std::cout << oss.str();
    logWarning("KiroTest::getOrientation2", "Recompute the static bound!");
  }
  if ((x0 == x1 && x1 == x2) || (y0 == y1 && y1 == y2)) return ORIENTATION2_COLLINEAR;

  std::lock_guard<std::mutex> lock(mtxOrientation);
  const int sign(orientationByIntervals(x0, y0, x1, y1, x2, y2));
  if (sign == 2) return ORIENTATION2_COLLINEAR;
  if (sign > 0) return ORIENTATION2_CCW;
  if (sign < 0) return ORIENTATION2_CW;

  ++counters.orientExact;
  initPredicateRationals();
  mpq_t* q(aPredQ + ORIENT_Q);
  const double aCoord[6] = {x0, y0, x1, y1, x2, y2};
  loadScaledIntegers(aCoord, 6, q);
  mpz_ptr X0(mpq_numref(q[0])), Y0(mpq_numref(q[1])), X1(mpq_numref(q[2])), Y1(mpq_numref(q[3]));
  mpz_ptr X2(mpq_numref(q[4])), Y2(mpq_numref(q[5]));
  mpz_sub(X0, X0, X2); // x0 - x2
  mpz_sub(Y1, Y1, Y2); // y1 - y2
  mpz_sub(Y0, Y0, Y2); // y0 - y2
  mpz_sub(X1, X1, X2); // x1 - x2
  mpz_mul(X0, X0, Y1);
  mpz_mul(Y0, Y0, X1);
  const int cmp(mpz_cmp(X0, Y0));
  if (cmp > 0) return ORIENTATION2_CCW;
  if (cmp < 0) return ORIENTATION2_CW;
  return ORIENTATION2_COLLINEAR;
}

namespace {
/** The four points are the corners of an axis-parallel rectangle: exactly
 * one corner shares its x with p, exactly one its y, and the other two x
 * values agree, as do the other two y values. Such points are cocircular.
 * (A corner equal to p would count in both, and leave the other two equal:
 * no counter-clockwise triangle has two equal corners.) */
bool isAxisParallelRectangle(const Point2* c0, const Point2* c1, const Point2* c2, const Point2* p) {
  const Point2* aCorner[3] = {c0, c1, c2};
  int numSameX(0), numSameY(0), numOtherX(0), numOtherY(0);
  double aOtherX[3], aOtherY[3];
  for (const Point2* c : aCorner) {
    if (c->x() == p->x())
      ++numSameX;
    else
      aOtherX[numOtherX++] = c->x();
    if (c->y() == p->y())
      ++numSameY;
    else
      aOtherY[numOtherY++] = c->y();
  }
  return numSameX == 1 && numSameY == 1 && aOtherX[0] == aOtherX[1] && aOtherY[0] == aOtherY[1];
}
} // namespace

CircleState2 KiroTest::circleInc3stateExact(const Triangle2* pT, const Point2* p) {
  const Point2* c0(pT->getCorner(0));
  const Point2* c1(pT->getCorner(1));
  const Point2* c2(pT->getCorner(2));
  if (!isFinitePoint(c0) || !isFinitePoint(c1) || !isFinitePoint(c2) || !isFinitePoint(p)) return CINC2_ZERO;
  ++counters.incircleSlow;
  // Grids are the most common degenerate input: their rectangles need no arithmetic and no lock.
  if (isAxisParallelRectangle(c0, c1, c2, p)) return CINC2_ZERO;

  std::lock_guard<std::mutex> lock(mtxIncircle);
  ++counters.incircleExact;
  initPredicateRationals();
  mpq_t* q(aPredQ + INCIRC_Q);
  const double aCoord[8] = {p->x(), p->y(), c0->x(), c0->y(), c1->x(), c1->y(), c2->x(), c2->y()};
  loadScaledIntegers(aCoord, 8, q);
  mpz_ptr aZ[32];
  for (int i = 0; i < 32; ++i) aZ[i] = mpq_numref(q[i]);
  mpz_ptr ax(aZ[8]), ay(aZ[9]), bx(aZ[10]), by(aZ[11]), cx(aZ[12]), cy(aZ[13]);
  mpz_sub(ax, aZ[2], aZ[0]);
  mpz_sub(ay, aZ[3], aZ[1]);
  mpz_sub(bx, aZ[4], aZ[0]);
  mpz_sub(by, aZ[5], aZ[1]);
  mpz_sub(cx, aZ[6], aZ[0]);
  mpz_sub(cy, aZ[7], aZ[1]);
  mpz_ptr sqX(aZ[14]), sqY(aZ[15]), alift(aZ[16]), blift(aZ[17]), clift(aZ[18]);
  mpz_mul(sqX, ax, ax);
  mpz_mul(sqY, ay, ay);
  mpz_add(alift, sqX, sqY);
  mpz_mul(sqX, bx, bx);
  mpz_mul(sqY, by, by);
  mpz_add(blift, sqX, sqY);
  mpz_mul(sqX, cx, cx);
  mpz_mul(sqY, cy, cy);
  mpz_add(clift, sqX, sqY);
  mpz_ptr bxcy(aZ[19]), cxby(aZ[20]), cxay(aZ[21]), axcy(aZ[22]), axby(aZ[23]), bxay(aZ[24]);
  mpz_mul(bxcy, bx, cy);
  mpz_mul(cxby, cx, by);
  mpz_mul(cxay, cx, ay);
  mpz_mul(axcy, ax, cy);
  mpz_mul(axby, ax, by);
  mpz_mul(bxay, bx, ay);
  mpz_ptr subA(aZ[25]), subB(aZ[26]), subC(aZ[27]), termA(aZ[28]), termB(aZ[29]), termC(aZ[30]), det(aZ[31]);
  mpz_sub(subA, bxcy, cxby);
  mpz_sub(subB, cxay, axcy);
  mpz_sub(subC, axby, bxay);
  mpz_mul(termA, subA, alift);
  mpz_mul(termB, subB, blift);
  mpz_mul(termC, subC, clift);
  mpz_add(det, termA, termB);
  mpz_add(det, det, termC);
  const int intResult(mpz_sgn(det));
  if (intResult > 0) return CINC2_INCIRCLE;
  if (intResult < 0) return CINC2_OUTCIRCLE;
  VASK_ASSERT(intResult==0);
  return CINC2_ZERO;
}

IntersectionState2 KiroTest::getIntersectionState(const Point2* a, const Point2* b, const Point2* c,
                                                  const Point2* d) {
  const Orientation2 o1(getOrientation2(a, b, c));
  const Orientation2 o2(getOrientation2(a, b, d));
  if (o1 == ORIENTATION2_COLLINEAR && o2 == ORIENTATION2_COLLINEAR) {
    // Collinear: overlap when an end point of one segment lies within the
    // other, i.e. no farther from either end than the segment is long.
    const double lab(sqDistance2D(*a, *b)), lcd(sqDistance2D(*c, *d));
    const double ac(sqDistance2D(*a, *c)), ad(sqDistance2D(*a, *d));
    const double bc(sqDistance2D(*b, *c)), bd(sqDistance2D(*b, *d));
    if ((lab >= ac && lab >= bc) || (lab >= ad && lab >= bd) || (lcd >= ac && lcd >= ad) ||
        (lcd >= bc && lcd >= bd))
      return IST_COLLINEAR;
    return IST_NOIS;
  }
  if (o1 == o2) return IST_NOIS;
  const Orientation2 o3(getOrientation2(c, d, a));
  const Orientation2 o4(getOrientation2(c, d, b));
  if (o3 == o4) return IST_NOIS;
  return IST_REGULAR;
}

void KiroTest::getIntersectionCoords_gmp_MT(const Point2* a, const Point2* b, const Point2* c, const Point2* d,
                                            double& x, double& y) {
  // mpq_set_d aborts the process on NaN and infinity: such input ends here.
  const bool bFiniteInput(isFinitePoint(a) && isFinitePoint(b) && isFinitePoint(c) && isFinitePoint(d));
  VASK_ASSERT(bFiniteInput);
  std::lock_guard<std::mutex> lock(mtxIntersection);
  initIntersectionRationals();
  mpq_t* q(aIsQ);
  mpq_t &ax(q[0]), &ay(q[1]), &bx(q[2]), &by(q[3]), &cx(q[4]), &cy(q[5]), &dx(q[6]), &dy(q[7]);
  mpq_set_d(ax, a->x());
  mpq_set_d(ay, a->y());
  mpq_set_d(bx, b->x());
  mpq_set_d(by, b->y());
  mpq_set_d(cx, c->x());
  mpq_set_d(cy, c->y());
  mpq_set_d(dx, d->x());
  mpq_set_d(dy, d->y());
  mpq_t &d1(q[8]), &tmp1(q[9]), &d2(q[10]), &tmp2(q[11]);
  mpq_mul(d1, ax, by);
  mpq_mul(tmp1, ay, bx);
  mpq_sub(d1, d1, tmp1);
  mpq_mul(d2, cx, dy);
  mpq_mul(tmp2, cy, dx);
  mpq_sub(d2, d2, tmp2);
  mpq_t &cdX(q[12]), &abX(q[13]), &cdY(q[14]), &abY(q[15]);
  mpq_sub(cdX, cx, dx);
  mpq_sub(abX, ax, bx);
  mpq_sub(cdY, cy, dy);
  mpq_sub(abY, ay, by);
  mpq_t &numX(q[16]), &tmpX(q[17]), &numY(q[18]), &tmpY(q[19]), &denom(q[20]), &tmpD(q[21]);
  mpq_mul(numX, d1, cdX);
  mpq_mul(tmpX, d2, abX);
  mpq_sub(numX, numX, tmpX);
  mpq_mul(numY, d1, cdY);
  mpq_mul(tmpY, d2, abY);
  mpq_sub(numY, numY, tmpY);
  mpq_mul(denom, abX, cdY);
  mpq_mul(tmpD, abY, cdX);
  mpq_sub(denom, denom, tmpD);
  if (mpq_sgn(denom) == 0) {
    logWarning("KiroTest::getIntersectionCoords()", "denom=0 -> parallel segments");
    VASK_ASSERT(false);
  }
  mpq_t &qx(q[22]), &qy(q[23]);
  mpq_div(qx, numX, denom);
  mpq_div(qy, numY, denom);
  x = mpq_get_d(qx);
  y = mpq_get_d(qy);
}

const char* KiroTest::getShortString(Orientation2 ori) {
  switch (ori) {
  case ORIENTATION2_COLLINEAR:
    return "COL";
  case ORIENTATION2_CCW:
    return "CCW";
  case ORIENTATION2_CW:
    return "CW";
  }
  return "unknown, this is a bug";
}

} // namespace KIRO_VASK2D
