#include "kernel/KiroTest.h"
#include "kernel/Expansion.h"
#include "kernel/RoundingModeGuard.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cfloat>
#include <climits>
#include <cstdint>
#include <cstring>
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

// ---------------------------------------------------------------------------
// The expansion stages: exact answers without rationals for the ordinary
// exponent range.
//
// Range. Let every non-zero coordinate satisfy 2^lo <= |c| < 2^hi. Every
// coordinate is then an integer multiple of g = 2^(lo-52), and so are the
// differences, their rounded values and their rounding errors (a rounded
// value is a multiple of its own ulp, which is at least g when rounding
// happened). A product of degree k of such numbers, any rounded value of it
// and any rounding error of it are multiples of g^k. With g^k >= 2^-1074
// (in-circle: k = 4 and lo = -200, g^4 = 2^-1008; orientation: k = 2 and
// lo = -450, g^2 = 2^-1004) no non-zero intermediate value is smaller than
// the least normal double, so nothing underflows: every rounding error is
// relative and representable, TwoProduct is exact, and the relative error
// bounds below hold. With hi = 200 (in-circle: differences < 2^201, lifts
// < 2^403, terms < 2^807) and hi = 450 (orientation: products < 2^902)
// nothing overflows, and Veltkamp's split (|a| < 2^996) is safe.
//
// An error bound E that is itself computed in that range may underflow
// (epsilon^2 times a tiny permanent), but then the exact bound is below g^k
// while every error it bounds is a multiple of g^k: that error is zero, and
// any verdict of the stage is right.
//
// Error bounds, epsilon = 2^-53 (round-to-nearest), after Shewchuk's
// adaptive predicates (1997):
//
// Orientation. With acx = fl(x0 - x2) and its tail acxt (x0 - x2 = acx +
// acxt, |acxt| <= epsilon |acx|), likewise acy, bcx, bcy, the determinant is
// D = B + (acx bcyt + acxt bcy - acy bcxt - acyt bcx) + (acxt bcyt - acyt bcxt)
// where B = acx bcy - acy bcx is held exactly by a four-component expansion.
//  - Stage B: the estimate of B (its components summed) errs by at most
//    epsilon |B| (the expansion is non-overlapping and summed from the small
//    end); the dropped terms are at most (2 epsilon + epsilon^2) S, with S =
//    |acx bcy| + |acy bcx|; detsum = fl(|fl(acx bcy)| + |fl(acy bcx)|) >= S
//    (1 - epsilon)^2. Together, and with the rounding of the product
//    ccwErrBoundB * detsum, a verdict |estimate| >= (2 + 12 epsilon) epsilon
//    detsum is safe: resultErrBound absorbs epsilon |B| relative to the
//    estimate, 12 epsilon^2 the second-order terms.
//  - Stage C adds the first-order tail terms in floating point; what stays
//    out is the second-order term (<= epsilon^2 S) and the rounding of the
//    correction (<= (2 epsilon + O(epsilon^2)) (2 epsilon S)), in all at most
//    (9 + 64 epsilon) epsilon^2 detsum, plus the rounding of the final sum,
//    (3 + 8 epsilon) epsilon |det|.
//  - Stage D sums all terms exactly in expansions: no bound.
// In-circle. Likewise with six differences and their tails, B the exact
// determinant of the rounded differences (an expansion of up to 96
// components) and permanent P = (|bdx cdy| + |cdx bdy|) alift + ... as in
// the filter. Dropping all tails changes each factor by a relative epsilon,
// and the degree-4 terms by at most (4 epsilon + 6 epsilon^2 + ...) of P:
// iccErrBoundB = (4 + 48 epsilon) epsilon. Stage C keeps the first-order
// tail terms; second-order ones (at most 6 epsilon^2 P in size, times a
// small constant for the lifts' factor 2) and the roundings of the first
// order correction (each of about 8 operations, relative epsilon on terms of
// size up to 4 epsilon P) stay below (44 + 576 epsilon) epsilon^2 P, plus
// resultErrBound |det| for the final sum. Stage D is exact.
// In-circle stage DD, tried before B is formed: B in double-double. Per
// term, with u = epsilon and rounded differences x, y and cross pair p, q:
// L = x^2 + y^2 is held as l1 + l0 (l1, e = TwoSum of the rounded squares,
// l0 = fl(fl(s0 + r0) + e)), off by at most u^2 L1 + 2u^2 L1 (1 + O(u)) with
// L1 = fl(x^2) + fl(y^2) <= L (1 + u); so |L - l1 - l0| <= 3.01 u^2 L and
// |l0| <= 2.01 u L. Likewise the cross term K = p - q as k1 + k0 with
// |K - k1 - k0| <= 3.01 u^2 S and |k0| <= 2.01 u S, S = |fl(p)| + |fl(q)|.
// The term L K is taken as TwoProduct(l1, k1) plus fl(fl(l1 k0) + fl(l0 k1)):
// dropped l1 dK, k1 dL and l0 k0 (<= 3.01 + 3.01 + 4.05 u^2 L S), rounded
// l1 k0, l0 k1 and their sum (<= 2.01 + 2.01 + 4.03 u^2 L S) and the tail
// sum with the product's error (<= 5.04 u^2 L S): at most 23.2 u^2 L S. The
// three terms' leading parts are summed by two TwoSums (exact, tails at
// most u P (1 + O(u)) each), the five tails by four additions whose partial
// sums stay below 7.2 u P: another 28.8 u^2 P. As sum L S <= P (1 + 4u) for
// the computed permanent P, B is known within 52.1 u^2 P (1 + O(u)):
// iccErrBoundDD = 64 u^2. The estimate fl(h2 + lo) of that double-double
// then stands where the estimate of B stands in stage C, with the same
// first-order tail terms: stage DD decides with the bound of stage C plus
// iccErrBoundDD P.
// The unit tests recompute each constant exactly from epsilon.
namespace {
namespace expansionStages {
using namespace expansion;

const int ORIENT_LO(-450), ORIENT_HI(450);
const int INCIRCLE_LO(-200), INCIRCLE_HI(200);

/** Every value is zero or 2^lo <= |v| < 2^hi (NaN and infinity fail). */
template <int LO, int HI> bool inRange(const double* aValue, int n) {
  bool bOk(true);
  for (int i = 0; i < n; ++i) {
    std::uint64_t bits;
    std::memcpy(&bits, &aValue[i], sizeof bits);
    const unsigned biasedExp(static_cast<unsigned>(bits >> 52) & 0x7ffu);
    const bool bZero((bits << 1) == 0);
    bOk &= bZero || (biasedExp - static_cast<unsigned>(1023 + LO) < static_cast<unsigned>(HI - LO));
  }
  return bOk;
}

/** The calling thread rounds to nearest (SSE control and status register). */
bool roundsToNearest() { return (_mm_getcsr() & 0x6000u) == 0; }

int signOf(double v) { return v > 0.0 ? 1 : (v < 0.0 ? -1 : 0); }

/** The six differences are integer multiples of one power of two g and
 * smaller than 2^12 g in magnitude (small-integer grids at any scale). Then
 * every product of two is a multiple of g^2 below 2^24 g^2, each cross term
 * and lift one below 2^25 g^2, each product of those below 2^50 g^4, and the
 * determinant below 3 * 2^50 g^4 < 2^52 g^4: every intermediate fits in 53
 * bits, so the plain evaluation is exact, zero included. (Inside the range
 * guard g^4 >= 2^-1074 and nothing overflows.) */
bool areSmallIntegers(double d0, double d1, double d2, double d3, double d4, double d5) {
  const double m(std::max(std::max(std::max(std::fabs(d0), std::fabs(d1)), std::max(std::fabs(d2), std::fabs(d3))),
                          std::max(std::fabs(d4), std::fabs(d5))));
  if (m == 0.0) return true;
  // g = 2^(E - 11) with m < 2^(E + 1); adding c = 1.5 * 2^(E + 41), whose
  // ulp is g, keeps a value of magnitude below 2^(E+1) unchanged exactly when
  // it is a multiple of g.
  std::uint64_t bits;
  std::memcpy(&bits, &m, sizeof bits);
  const std::uint64_t exponentBits((bits >> 52) & 0x7ff);
  if (exponentBits == 0 || exponentBits + 41 >= 0x7ff) return false;
  const std::uint64_t cBits(((exponentBits + 41) << 52) | (std::uint64_t(1) << 51));
  double c;
  std::memcpy(&c, &cBits, sizeof c);
  auto onGrid = [c](double d) { return (d + c) - c == d; };
  return onGrid(d0) && onGrid(d1) && onGrid(d2) && onGrid(d3) && onGrid(d4) && onGrid(d5);
}

/** Sign of the orientation determinant; round-to-nearest, coordinates in range. */
template <bool bFma>
inline __attribute__((always_inline)) int orientationSignT(double x0, double y0, double x1, double y1, double x2, double y2,
                                           KiroTest::Counters& counters) {
  const double acx(x0 - x2), bcx(x1 - x2), acy(y0 - y2), bcy(y1 - y2);
  double detLeft, detLeftTail, detRight, detRightTail;
  twoProduct<bFma>(acx, bcy, detLeft, detLeftTail);
  twoProduct<bFma>(acy, bcx, detRight, detRightTail);
  double aB[4];
  twoTwoDiff(detLeft, detLeftTail, detRight, detRightTail, aB);
  const double acxt(twoDiffTail(x0, x2, acx)), bcxt(twoDiffTail(x1, x2, bcx));
  const double acyt(twoDiffTail(y0, y2, acy)), bcyt(twoDiffTail(y1, y2, bcy));
  // Exact differences (grids, Sterbenz neighbours): B is the determinant.
  if (acxt == 0.0 && bcxt == 0.0 && acyt == 0.0 && bcyt == 0.0) return sign(4, aB);

  double det(estimate(4, aB));
  const double detSum(std::fabs(detLeft) + std::fabs(detRight));
  double errBound(KiroTest::ccwErrBoundB * detSum);
  if (det >= errBound || -det >= errBound) return signOf(det);

  errBound = KiroTest::ccwErrBoundC * detSum + KiroTest::resultErrBound * std::fabs(det);
  det += (acx * bcyt + bcy * acxt) - (acy * bcxt + bcx * acyt);
  if (det >= errBound || -det >= errBound) return signOf(det);

  ++counters.orientFull;
  double s1, s0, t1, t0, aU[4], aC1[8], aC2[12], aD[16];
  twoProduct<bFma>(acxt, bcy, s1, s0);
  twoProduct<bFma>(acyt, bcx, t1, t0);
  twoTwoDiff(s1, s0, t1, t0, aU);
  const int c1Len(sumZeroElim(4, aB, 4, aU, aC1));
  twoProduct<bFma>(acx, bcyt, s1, s0);
  twoProduct<bFma>(acy, bcxt, t1, t0);
  twoTwoDiff(s1, s0, t1, t0, aU);
  const int c2Len(sumZeroElim(c1Len, aC1, 4, aU, aC2));
  twoProduct<bFma>(acxt, bcyt, s1, s0);
  twoProduct<bFma>(acyt, bcxt, t1, t0);
  twoTwoDiff(s1, s0, t1, t0, aU);
  const int dLen(sumZeroElim(c2Len, aC2, 4, aU, aD));
  return sign(dLen, aD);
}

/** Exact (x + xt)^2 + (y + yt)^2 and friends for stage D: each difference
 * is the two-component expansion (tail, rounded value). */
struct Diff {
  double a[2];
  int len;
  Diff(double v, double tail) : len(tail == 0.0 ? 1 : 2) {
    if (len == 1)
      a[0] = v;
    else {
      a[0] = tail;
      a[1] = v;
    }
  }
};

/** h = x1 * y2 - x2 * y1 for two-component differences; h holds 16. */
template <bool bFma> int crossExact(const Diff& x1, const Diff& y2, const Diff& x2, const Diff& y1, double* h) {
  double aP[8], aQ[8], aS1[8], aS2[8];
  const int pLen(productZeroElim<bFma>(x1.len, x1.a, y2.len, y2.a, aP, aS1, aS2));
  const int qLen(productZeroElim<bFma>(x2.len, x2.a, y1.len, y1.a, aQ, aS1, aS2));
  for (int i = 0; i < qLen; ++i) aQ[i] = -aQ[i];
  return sumZeroElim(pLen, aP, qLen, aQ, h);
}

/** h = x^2 + y^2; h holds 16. */
template <bool bFma> int liftExact(const Diff& x, const Diff& y, double* h) {
  double aP[8], aQ[8], aS1[8], aS2[8];
  const int pLen(productZeroElim<bFma>(x.len, x.a, x.len, x.a, aP, aS1, aS2));
  const int qLen(productZeroElim<bFma>(y.len, y.a, y.len, y.a, aQ, aS1, aS2));
  return sumZeroElim(pLen, aP, qLen, aQ, h);
}

/** h = cross * lift; h holds 512. */
template <bool bFma> int termExact(const Diff& x1, const Diff& y2, const Diff& x2, const Diff& y1, const Diff& lx, const Diff& ly,
              double* h) {
  double aCross[16], aLift[16], aS1[512], aS2[512];
  const int crossLen(crossExact<bFma>(x1, y2, x2, y1, aCross));
  const int liftLen(liftExact<bFma>(lx, ly, aLift));
  return productZeroElim<bFma>(crossLen, aCross, liftLen, aLift, h, aS1, aS2);
}

/** Stage D of the in-circle test: the determinant with every tail, exactly. */
template <bool bFma> __attribute__((noinline)) int incircleSignFull(const Diff& adx, const Diff& ady, const Diff& bdx, const Diff& bdy,
                                               const Diff& cdx, const Diff& cdy) {
  double aTermA[512], aTermB[512], aTermC[512], aAB[1024], aFin[1536];
  aAB[0] = 0.0; // (always written by the sum; this keeps the compiler sure of it)
  const int aLen(termExact<bFma>(bdx, cdy, cdx, bdy, adx, ady, aTermA));
  const int bLen(termExact<bFma>(cdx, ady, adx, cdy, bdx, bdy, aTermB));
  const int cLen(termExact<bFma>(adx, bdy, bdx, ady, cdx, cdy, aTermC));
  const int abLen(sumZeroElim(aLen, aTermA, bLen, aTermB, aAB));
  const int finLen(sumZeroElim(abLen, aAB, cLen, aTermC, aFin));
  return sign(finLen, aFin);
}

/** Sign of the in-circle determinant of d against a, b, c; round-to-nearest,
 * coordinates in range. aCoord holds d, a, b, c as (x, y) pairs. */
template <bool bFma>
inline __attribute__((always_inline)) int incircleSignT(const double* aCoord, KiroTest::Counters& counters) {
  const double dx(aCoord[0]), dy(aCoord[1]);
  const double adx(aCoord[2] - dx), ady(aCoord[3] - dy), bdx(aCoord[4] - dx), bdy(aCoord[5] - dy);
  const double cdx(aCoord[6] - dx), cdy(aCoord[7] - dy);
  const double adxt(twoDiffTail(aCoord[2], dx, adx)), adyt(twoDiffTail(aCoord[3], dy, ady));
  const double bdxt(twoDiffTail(aCoord[4], dx, bdx)), bdyt(twoDiffTail(aCoord[5], dy, bdy));
  const double cdxt(twoDiffTail(aCoord[6], dx, cdx)), cdyt(twoDiffTail(aCoord[7], dy, cdy));
  const bool bExactDifferences(adxt == 0.0 && adyt == 0.0 && bdxt == 0.0 && bdyt == 0.0 && cdxt == 0.0 &&
                               cdyt == 0.0);
  if (bExactDifferences && areSmallIntegers(adx, ady, bdx, bdy, cdx, cdy)) {
    // Every product and sum of the determinant is exact: its plain value is the answer.
    const double det((bdx * cdy - cdx * bdy) * (adx * adx + ady * ady) +
                     (cdx * ady - adx * cdy) * (bdx * bdx + bdy * bdy) +
                     (adx * bdy - bdx * ady) * (cdx * cdx + cdy * cdy));
    return signOf(det);
  }

  double bdxcdy1, bdxcdy0, cdxbdy1, cdxbdy0, cdxady1, cdxady0, adxcdy1, adxcdy0, adxbdy1, adxbdy0, bdxady1, bdxady0;
  twoProduct<bFma>(bdx, cdy, bdxcdy1, bdxcdy0);
  twoProduct<bFma>(cdx, bdy, cdxbdy1, cdxbdy0);
  twoProduct<bFma>(cdx, ady, cdxady1, cdxady0);
  twoProduct<bFma>(adx, cdy, adxcdy1, adxcdy0);
  twoProduct<bFma>(adx, bdy, adxbdy1, adxbdy0);
  twoProduct<bFma>(bdx, ady, bdxady1, bdxady0);
  const double alift(adx * adx + ady * ady), blift(bdx * bdx + bdy * bdy), clift(cdx * cdx + cdy * cdy);
  const double permanent((std::fabs(bdxcdy1) + std::fabs(cdxbdy1)) * alift +
                         (std::fabs(cdxady1) + std::fabs(adxcdy1)) * blift +
                         (std::fabs(adxbdy1) + std::fabs(bdxady1)) * clift);
  // The tail terms of first order, as in stage C below; zero for exact differences.
  const double tailTerms(bExactDifferences
                             ? 0.0
                             : ((adx * adx + ady * ady) * ((bdx * cdyt + cdy * bdxt) - (bdy * cdxt + cdx * bdyt)) +
                                2.0 * (adx * adxt + ady * adyt) * (bdx * cdy - bdy * cdx)) +
                                   ((bdx * bdx + bdy * bdy) * ((cdx * adyt + ady * cdxt) - (cdy * adxt + adx * cdyt)) +
                                    2.0 * (bdx * bdxt + bdy * bdyt) * (cdx * ady - cdy * adx)) +
                                   ((cdx * cdx + cdy * cdy) * ((adx * bdyt + bdy * adxt) - (ady * bdxt + bdx * adyt)) +
                                    2.0 * (cdx * cdxt + cdy * cdyt) * (adx * bdy - ady * bdx)));
  {
    // Stage DD: B in double-double instead of exactly, within
    // iccErrBoundDD * permanent; then as stage C.
    double t1, t0;
    double aHi[3], aLo[3];
    const double* aLiftDiff[3][2] = {{&adx, &ady}, {&bdx, &bdy}, {&cdx, &cdy}};
    const double aCross[3][4] = {{bdxcdy1, bdxcdy0, cdxbdy1, cdxbdy0},
                                 {cdxady1, cdxady0, adxcdy1, adxcdy0},
                                 {adxbdy1, adxbdy0, bdxady1, bdxady0}};
    for (int i = 0; i < 3; ++i) {
      const double x(*aLiftDiff[i][0]), y(*aLiftDiff[i][1]);
      double s1, s0, r1, r0, l1, e;
      twoProduct<bFma>(x, x, s1, s0);
      twoProduct<bFma>(y, y, r1, r0);
      twoSum(s1, r1, l1, e);
      const double l0((s0 + r0) + e);
      double k1;
      twoDiff(aCross[i][0], aCross[i][2], k1, e);
      const double k0((aCross[i][1] - aCross[i][3]) + e);
      twoProduct<bFma>(l1, k1, t1, t0);
      aHi[i] = t1;
      aLo[i] = t0 + (l1 * k0 + l0 * k1);
    }
    double h, e1, h2, e2;
    twoSum(aHi[0], aHi[1], h, e1);
    twoSum(h, aHi[2], h2, e2);
    const double lo(((e1 + e2) + (aLo[0] + aLo[1])) + aLo[2]);
    double det(h2 + lo);
    const double errBound((KiroTest::iccErrBoundC + KiroTest::iccErrBoundDD) * permanent +
                          KiroTest::resultErrBound * std::fabs(det));
    det += tailTerms;
    if (det >= errBound || -det >= errBound) return signOf(det);
  }

  double aBC[4], aCA[4], aAB[4];
  twoTwoDiff(bdxcdy1, bdxcdy0, cdxbdy1, cdxbdy0, aBC);
  twoTwoDiff(cdxady1, cdxady0, adxcdy1, adxcdy0, aCA);
  twoTwoDiff(adxbdy1, adxbdy0, bdxady1, bdxady0, aAB);

  // B: the exact determinant of the rounded differences.
  double aX8[8], aX16[16], aY8[8], aY16[16], aDetA[32], aDetB[32], aDetC[32], aSum64[64], aFin[96];
  int xLen(scaleZeroElim<bFma>(scaleZeroElim<bFma>(4, aBC, adx, aX8), aX8, adx, aX16));
  int yLen(scaleZeroElim<bFma>(scaleZeroElim<bFma>(4, aBC, ady, aY8), aY8, ady, aY16));
  const int detALen(sumZeroElim(xLen, aX16, yLen, aY16, aDetA));
  xLen = scaleZeroElim<bFma>(scaleZeroElim<bFma>(4, aCA, bdx, aX8), aX8, bdx, aX16);
  yLen = scaleZeroElim<bFma>(scaleZeroElim<bFma>(4, aCA, bdy, aY8), aY8, bdy, aY16);
  const int detBLen(sumZeroElim(xLen, aX16, yLen, aY16, aDetB));
  xLen = scaleZeroElim<bFma>(scaleZeroElim<bFma>(4, aAB, cdx, aX8), aX8, cdx, aX16);
  yLen = scaleZeroElim<bFma>(scaleZeroElim<bFma>(4, aAB, cdy, aY8), aY8, cdy, aY16);
  const int detCLen(sumZeroElim(xLen, aX16, yLen, aY16, aDetC));
  const int sumLen(sumZeroElim(detALen, aDetA, detBLen, aDetB, aSum64));
  const int finLen(sumZeroElim(sumLen, aSum64, detCLen, aDetC, aFin));

  // Exact differences (Sterbenz neighbours): B is the determinant.
  if (bExactDifferences) return sign(finLen, aFin);

  double det(estimate(finLen, aFin));
  double errBound(KiroTest::iccErrBoundB * permanent);
  if (det >= errBound || -det >= errBound) return signOf(det);

  errBound = KiroTest::iccErrBoundC * permanent + KiroTest::resultErrBound * std::fabs(det);
  det += tailTerms;
  if (det >= errBound || -det >= errBound) return signOf(det);

  ++counters.incircleFull;
  return incircleSignFull<bFma>(Diff(adx, adxt), Diff(ady, adyt), Diff(bdx, bdxt), Diff(bdy, bdyt), Diff(cdx, cdxt),
                          Diff(cdy, cdyt));
}


// One instance of each stage compiled for FMA and one without; the choice
// is made once from the processor's features. noipa keeps each call between
// the rounding-mode changes around it.
__attribute__((noipa)) int orientationSignPlain(double x0, double y0, double x1, double y1, double x2, double y2,
                                                KiroTest::Counters& counters) {
  return orientationSignT<false>(x0, y0, x1, y1, x2, y2, counters);
}
__attribute__((noipa, target("fma"))) int orientationSignFma(double x0, double y0, double x1, double y1, double x2,
                                                             double y2, KiroTest::Counters& counters) {
  return orientationSignT<true>(x0, y0, x1, y1, x2, y2, counters);
}
__attribute__((noipa)) int incircleSignPlain(const double* aCoord, KiroTest::Counters& counters) {
  return incircleSignT<false>(aCoord, counters);
}
__attribute__((noipa, target("fma"))) int incircleSignFma(const double* aCoord, KiroTest::Counters& counters) {
  return incircleSignT<true>(aCoord, counters);
}
bool hasFma() {
  static const bool bFma([] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("fma") != 0;
  }());
  return bFma;
}
int orientationSign(double x0, double y0, double x1, double y1, double x2, double y2, KiroTest::Counters& counters) {
  return hasFma() ? orientationSignFma(x0, y0, x1, y1, x2, y2, counters)
                  : orientationSignPlain(x0, y0, x1, y1, x2, y2, counters);
}
int incircleSign(const double* aCoord, KiroTest::Counters& counters) {
  return hasFma() ? incircleSignFma(aCoord, counters) : incircleSignPlain(aCoord, counters);
}

/** Runs a sign computation in round-to-nearest: directly when the caller's
 * mode is that already, else under a guard that restores the caller's. */
template <class F> int inRoundToNearest(F f) {
  if (roundsToNearest()) return f();
  RoundingModeGuard guard;
  guard.set(FE_TONEAREST);
  return f();
}
} // namespace expansionStages
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

  const double aCoord[6] = {x0, y0, x1, y1, x2, y2};
  if (expansionStages::inRange<expansionStages::ORIENT_LO, expansionStages::ORIENT_HI>(aCoord, 6)) {
    ++counters.orientExpansion;
    const int sign(expansionStages::inRoundToNearest(
        [&] { return expansionStages::orientationSign(x0, y0, x1, y1, x2, y2, counters); }));
    return sign > 0 ? ORIENTATION2_CCW : (sign < 0 ? ORIENTATION2_CW : ORIENTATION2_COLLINEAR);
  }

  return getOrientation2Rational(aCoord);
}

Orientation2 KiroTest::getOrientation2Rational(const double* aCoord) {
  // Tiny, huge and subnormal coordinates: intervals, then rationals.
  const double x0(aCoord[0]), y0(aCoord[1]), x1(aCoord[2]), y1(aCoord[3]), x2(aCoord[4]), y2(aCoord[5]);
  std::lock_guard<std::mutex> lock(mtxOrientation);
  const int sign(orientationByIntervals(x0, y0, x1, y1, x2, y2));
  if (sign == 2) return ORIENTATION2_COLLINEAR;
  if (sign > 0) return ORIENTATION2_CCW;
  if (sign < 0) return ORIENTATION2_CW;

  ++counters.orientExact;
  initPredicateRationals();
  mpq_t* q(aPredQ + ORIENT_Q);
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

  const double aCoord[8] = {p->x(), p->y(), c0->x(), c0->y(), c1->x(), c1->y(), c2->x(), c2->y()};
  if (expansionStages::inRange<expansionStages::INCIRCLE_LO, expansionStages::INCIRCLE_HI>(aCoord, 8)) {
    ++counters.incircleExpansion;
    const int sign(expansionStages::inRoundToNearest([&] { return expansionStages::incircleSign(aCoord, counters); }));
    return sign > 0 ? CINC2_INCIRCLE : (sign < 0 ? CINC2_OUTCIRCLE : CINC2_ZERO);
  }

  return circleInc3stateRational(aCoord);
}

CircleState2 KiroTest::circleInc3stateRational(const double* aCoord) {
  // Tiny, huge and subnormal coordinates: rationals.
  std::lock_guard<std::mutex> lock(mtxIncircle);
  ++counters.incircleExact;
  initPredicateRationals();
  mpq_t* q(aPredQ + INCIRC_Q);
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
                                            double& x, double& y, bool bRoundToNearest) {
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
  if (bRoundToNearest) {
    x = nearestDouble(qx, q[24], q[25]);
    y = nearestDouble(qy, q[24], q[25]);
  } else {
    x = mpq_get_d(qx);
    y = mpq_get_d(qy);
  }
}

// The filter: each difference and product has a relative error of at most
// one unit u = 2^-53 (the factors of the products are rounded differences),
// the sum one more, so |dot' - dot| <= (4u + O(u^2)) (|P1'| + |P2'|); 8u is
// safe in every rounding mode. Below a permanent of 2^-900 a product may
// have lost bits to underflow, and an overflow has no bound: both go to the
// rationals, unless each product has a zero factor (a difference of doubles
// is zero exactly when they are equal).
int KiroTest::getDotSign_MT(const Point2* a, const Point2* b, const Point2* c, const Point2* d) {
  const bool bFiniteInput(isFinitePoint(a) && isFinitePoint(b) && isFinitePoint(c) && isFinitePoint(d));
  VASK_ASSERT(bFiniteInput);
  const double ux(b->x() - a->x()), vx(d->x() - c->x()), uy(b->y() - a->y()), vy(d->y() - c->y());
  const double p1(ux * vx), p2(uy * vy);
  const double perm(std::fabs(p1) + std::fabs(p2)), dot(p1 + p2);
  if (perm < HUGE_VAL && perm > 0x1p-900) {
    const double err(8.0 * epsilon * perm);
    if (dot > err) return 1;
    if (-err > dot) return -1;
  }
  if ((ux == 0.0 || vx == 0.0) && (uy == 0.0 || vy == 0.0)) return 0;
  std::lock_guard<std::mutex> lock(mtxIntersection);
  initIntersectionRationals();
  mpq_t* q(aIsQ);
  // out = (b1 - a1) * (d1 - c1), with q[2] and q[3] as temporaries.
  auto productOfDifferences = [q](mpq_t out, double a1, double b1, double c1, double d1) {
    mpq_set_d(out, b1);
    mpq_set_d(q[2], a1);
    mpq_sub(out, out, q[2]);
    mpq_set_d(q[2], d1);
    mpq_set_d(q[3], c1);
    mpq_sub(q[2], q[2], q[3]);
    mpq_mul(out, out, q[2]);
  };
  productOfDifferences(q[0], a->x(), b->x(), c->x(), d->x());
  productOfDifferences(q[1], a->y(), b->y(), c->y(), d->y());
  mpq_add(q[0], q[0], q[1]);
  return mpq_sgn(q[0]);
}

// mpq_get_d truncates toward zero, so the exact value lies between the
// truncated t and its neighbour u away from zero (or equals t). The nearer
// of the two wins; their midpoint is exact in rationals. A tie goes to the
// even significand, as round-to-nearest does.
double KiroTest::nearestDouble(const mpq_t value, mpq_t tmp0, mpq_t tmp1) {
  const double t(mpq_get_d(value));
  mpq_set_d(tmp0, t);
  const int cmpT(mpq_cmp(value, tmp0));
  if (cmpT == 0) return t;
  const double u(std::nextafter(t, cmpT > 0 ? HUGE_VAL : -HUGE_VAL));
  if (!std::isfinite(u)) return t;
  mpq_set_d(tmp1, u);
  mpq_add(tmp1, tmp1, tmp0);
  mpq_div_2exp(tmp1, tmp1, 1);
  const int cmpMid(mpq_cmp(value, tmp1) * (cmpT > 0 ? 1 : -1));
  if (cmpMid < 0) return t;
  if (cmpMid > 0) return u;
  int expT(0);
  const double mantT(std::frexp(t, &expT));
  const double lastBit(std::ldexp(std::fabs(mantT), 53));
  return std::fmod(lastBit, 2.0) == 0.0 ? t : u;
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
