#pragma once
#include "Point2.h"
#include "Predicates2.h"
#include "Triangle2.h"
#include <cmath>
#include <emmintrin.h>
#include <gmp.h>
#include <mutex>

namespace KIRO_VASK2D {

/** Exact orientation and in-circle predicates: a double-precision filter
 * first; then, for the ordinary exponent range (non-zero coordinates of
 * magnitude 2^-450 to 2^450 for orientation, 2^-200 to 2^200 for in-circle),
 * adaptive floating-point expansions (a small-integer shortcut, a
 * double-double stage, the exact determinant of the rounded differences,
 * and the full expansion); for tiny, huge and subnormal coordinates an
 * interval stage under directed rounding and GMP rationals. The filters are
 * inline because they are the hottest code of the library; everything they
 * cannot decide goes out of line.
 *
 * The orientation filter compares against a static bound that is valid for
 * coordinates up to maxCoord; callers raise it (setStaticBound_MT,
 * updateStaticBound) before they ask about points beyond it. A point beyond
 * maxCoord is still answered exactly, by the slower stages, after a
 * diagnostic on standard output.
 *
 * Domain. Every answer is exact for all finite doubles, subnormals
 * included, in any IEEE rounding mode of the calling thread; the caller's
 * rounding mode is the same after each call. The floating-point
 * environment must keep gradual underflow (no flush-to-zero or
 * denormals-are-zero), which is the default. A NaN or infinite coordinate
 * has no exact answer: such a query yields ORIENTATION2_COLLINEAR or
 * CINC2_ZERO, never reaches the rationals and never loops.
 *
 * Threads. The filters and the expansion stages take no lock (their
 * scratch lives on the stack); the stages beyond them, for coordinates
 * outside the ordinary range, hold the orientation or in-circle mutex while
 * they use the member rationals. The expansion stages need round-to-nearest:
 * they switch to it, through RoundingModeGuard, only when the caller runs in
 * another mode. */
class KiroTest {
public:
  KiroTest();
  ~KiroTest();
  KiroTest(const KiroTest&) = delete;
  KiroTest& operator=(const KiroTest&) = delete;

  /** Exact side of p2 with respect to the directed line p0 p1. */
  Orientation2 getOrientation2(const Point2* p0, const Point2* p1, const Point2* p2) {
    // det = (x0-x2)*(y1-y2) - (y0-y2)*(x1-x2), each operation rounded as in
    // scalar code, on (x, y) register pairs: half the instructions.
    const __m128d c0(_mm_set_pd(p0->y(), p0->x())), c1(_mm_set_pd(p1->y(), p1->x())), c2(_mm_set_pd(p2->y(), p2->x()));
    const __m128d d0(_mm_sub_pd(c0, c2)), d1(_mm_sub_pd(c1, c2));
    const __m128d prod(_mm_mul_pd(d0, _mm_shuffle_pd(d1, d1, 1)));
    const double det(_mm_cvtsd_f64(_mm_sub_sd(prod, _mm_unpackhi_pd(prod, prod))));
    // The bound holds for points within filterCoord (see setStaticBound_MT).
    // An infinite coordinate fails this test; a NaN may slip through the
    // maximum but makes det NaN, so neither is ever decided here.
    if (maxAbsCoord(c0, c1, c2) <= filterCoord) {
      if (det > staticBound) return ORIENTATION2_CCW;
      if (negStaticBound > det) return ORIENTATION2_CW;
    }
    return getOrientation2Slow(p0, p1, p2);
  }
  /** Side of edge ith of pT on which p lies; ORIENTATION2_CCW is the inner side. */
  Orientation2 getOrientation2(const Triangle2* pT, int ith, const Point2* p) {
    return getOrientation2(pT->getCorner(incIndexBy1(ith)), pT->getCorner(incIndexBy2(ith)), p);
  }

  /** Exact in-circle test of p against the counter-clockwise triangle pT; never 0. */
  CircleState2 circleInc3state(const Triangle2* pT, const Point2* p) {
    const int cheap(circleInc3stateCheap(pT, p));
    if (cheap != 0) return static_cast<CircleState2>(cheap);
    return circleInc3stateExact(pT, p);
  }
  /** The filter alone: CINC2_INCIRCLE, CINC2_OUTCIRCLE or 0 (undecided). */
  int circleInc3stateCheap(const Triangle2* pT, const Point2* p) const {
    const Point2* c0(pT->getCorner(0));
    const Point2* c1(pT->getCorner(1));
    const Point2* c2(pT->getCorner(2));
    const double ax(c0->x() - p->x()), ay(c0->y() - p->y());
    const double bx(c1->x() - p->x()), by(c1->y() - p->y());
    const double cx(c2->x() - p->x()), cy(c2->y() - p->y());
    const double alift(ax * ax + ay * ay), blift(bx * bx + by * by), clift(cx * cx + cy * cy);
    // With every squared difference below 2^506 no term below exceeds 2^1015,
    // so nothing overflows in any rounding mode. The test is needed: rounding
    // down or toward zero turns an overflow into DBL_MAX, not infinity, and
    // the result would look finite. NaN fails it as well.
    const double sumLift(alift + blift + clift);
    if (!(sumLift <= 0x1p506)) return 0;
    const double bxcy(bx * cy), cxby(cx * by), cxay(cx * ay), axcy(ax * cy), axby(ax * by), bxay(bx * ay);
    const double det((bxcy - cxby) * alift + (cxay - axcy) * blift + (axby - bxay) * clift);
    const double perm((std::fabs(bxcy) + std::fabs(cxby)) * alift + (std::fabs(cxay) + std::fabs(axcy)) * blift +
                      (std::fabs(axby) + std::fabs(bxay)) * clift);
    // 3.33e-15 (30 units of u = 2^-53) is a hand-set margin of three times the
    // relative error (10u + 96u^2) * perm of this evaluation order in
    // round-to-nearest; it still covers the doubled first-order error 20u of
    // directed rounding modes. A product in the subnormal range adds an
    // absolute error of up to 2^-1074 that the relative bound misses. Through
    // the lifts and cross terms (each |bx*cy - cx*by| <= (blift + clift) / 2)
    // these add up to less than 4 * 2^-1074 * sumLift + 3 * 2^-1074, which the
    // second term covers 2^70 times over; for ordinary magnitudes it vanishes
    // against the first.
    const double err(3.33e-15 * perm + underflowFloor * (sumLift + 1.0));
    if (det > err) return CINC2_INCIRCLE;
    if (-err > det) return CINC2_OUTCIRCLE;
    return 0;
  }

  /** Makes the orientation filter valid for coordinates up to maxCoord (with
   * a margin of ten); the bound only grows, so a smaller or negative value
   * changes nothing. Thread-safe. NaN breaks the assertion "maxCoord>=0";
   * +infinity is ignored, since no bound covers infinite coordinates and it
   * would only switch the filter off. */
  void setStaticBound_MT(double maxCoord);
  /** Raises the bound to cover the finite coordinates of the three points. */
  void setStaticBound(const Point2* p0, const Point2* p1, const Point2* p2);
  void updateStaticBound(const Point2* p) {
    if (p->getMaxAbs() > maxCoord) setStaticBound_MT(p->getMaxAbs());
  }
  double getStaticBound() const { return staticBound; }
  double getMaxCoord() const { return maxCoord; }
  /** Largest absolute coordinate for which the orientation filter decides. */
  double getFilterCoord() const { return filterCoord; }

  /** 3 * 2^-50: first-order error of the orientation filter for |coordinates| <= M,
   * in units of M^2 (derivation in KiroTest.cpp). */
  static constexpr double staticBoundFactor = 3.0 * 0x1p-50;
  /** Absolute floor of both filter bounds, for products in the subnormal range
   * (derivation in KiroTest.cpp and at circleInc3stateCheap). */
  static constexpr double underflowFloor = 0x1p-1000;

  /** Error bounds of the adaptive expansion stages, in units of the
   * permanents they multiply (derivations in KiroTest.cpp). All are exact
   * doubles. */
  static constexpr double epsilon = 0x1p-53;
  static constexpr double resultErrBound = (3.0 + 8.0 * epsilon) * epsilon;
  static constexpr double ccwErrBoundB = (2.0 + 12.0 * epsilon) * epsilon;
  static constexpr double ccwErrBoundC = (9.0 + 64.0 * epsilon) * epsilon * epsilon;
  static constexpr double iccErrBoundB = (4.0 + 48.0 * epsilon) * epsilon;
  static constexpr double iccErrBoundC = (44.0 + 576.0 * epsilon) * epsilon * epsilon;
  static constexpr double iccErrBoundDD = 64.0 * epsilon * epsilon;

  /** Quick test of segments ab and cd: IST_NOIS, IST_COLLINEAR (collinear and
   * overlapping or touching) or IST_REGULAR (crossing; a touching end point counts). */
  IntersectionState2 getIntersectionState(const Point2* a, const Point2* b, const Point2* c, const Point2* d);
  /** Intersection of lines ab and cd in rational arithmetic, each coordinate
   * truncated to a double (within one unit of the last place), or rounded to
   * the nearest double with bRoundToNearest. Parallel lines and non-finite
   * coordinates are errors of the caller: a warning or the assertion
   * message, then VaskException. Thread-safe. */
  void getIntersectionCoords_gmp_MT(const Point2* a, const Point2* b, const Point2* c, const Point2* d, double& x,
                                    double& y, bool bRoundToNearest = false);

  /** Sign of the dot product (b - a) . (d - c), exact; non-finite
   * coordinates are errors of the caller (VaskException). Thread-safe. */
  int getDotSign_MT(const Point2* a, const Point2* b, const Point2* c, const Point2* d);

  /** Short name of an orientation: "COL", "CCW", "CW". */
  static const char* getShortString(Orientation2 ori);

  /** Counters of the stages past the filters, cheap and unsynchronised:
   * diagnostics for benchmarks and tests. Each count includes the calls of
   * the later ones. The filters count nothing: a store per call in the
   * hottest code of insertion cost about 2% of a batch. */
  struct Counters {
    unsigned long long orientSlow = 0;       // orientation calls the filter did not decide (finite input)
    unsigned long long orientExpansion = 0;  // ... that went to the expansion stages (ordinary exponent range)
    unsigned long long orientFull = 0;       // ... that needed the full expansion with the difference tails
    unsigned long long orientExact = 0;      // ... that reached the rationals (outside the ordinary range,
                                             //     and undecided by the interval stage)
    unsigned long long incircleSlow = 0;     // in-circle calls (circleInc3state) the filter did not decide
    unsigned long long incircleExpansion = 0; // ... no axis-parallel rectangle, ordinary exponent range
    unsigned long long incircleFull = 0;     // ... that needed the full expansion with the difference tails
    unsigned long long incircleExact = 0;    // ... that reached the rationals (outside the ordinary range)
  };
  const Counters& getCounters() const { return counters; }
  void resetCounters() { counters = Counters(); }

private:
  /** Largest absolute value of the six coordinates in three (x, y) pairs. */
  static double maxAbsCoord(__m128d c0, __m128d c1, __m128d c2) {
    const __m128d absMask(_mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffffLL)));
    const __m128d m(_mm_max_pd(_mm_max_pd(_mm_and_pd(c0, absMask), _mm_and_pd(c1, absMask)), _mm_and_pd(c2, absMask)));
    return _mm_cvtsd_f64(_mm_max_sd(m, _mm_unpackhi_pd(m, m)));
  }
  Orientation2 getOrientation2Slow(const Point2* p0, const Point2* p1, const Point2* p2);
  CircleState2 circleInc3stateExact(const Triangle2* pT, const Point2* p);
  /** The stages for coordinates outside the ordinary range, under the
   * mutexes; out of line so that the common paths stay lean. aCoord holds
   * x0 y0 x1 y1 x2 y2, or the query and then the three corners. */
  __attribute__((noinline)) Orientation2 getOrientation2Rational(const double* aCoord);
  __attribute__((noinline)) CircleState2 circleInc3stateRational(const double* aCoord);
  void initPredicateRationals();
  void initIntersectionRationals();
  static double nearestDouble(const mpq_t value, mpq_t tmp0, mpq_t tmp1);

  mpq_t aPredQ[48];   // temporaries of the exact orientation and in-circle stages (their
                      // numerators serve as integers, see loadScaledIntegers)
  mpq_t aIsQ[29];     // temporaries of the exact line intersection
  double staticBound;
  double negStaticBound;
  double maxCoord;
  double filterCoord; // 0.7 * maxCoord: the filter's own limit, see setStaticBound_MT
  bool bPredicatesReady;
  bool bIntersectionReady;
  std::once_flag predicatesOnce;   // the orientation and in-circle stages hold different
  std::once_flag intersectionOnce; // mutexes, so the first initialisation is made once here
  Counters counters;
  std::mutex mtxBound;
  std::mutex mtxIntersection;
  std::mutex mtxOrientation;
  std::mutex mtxIncircle;
};

} // namespace KIRO_VASK2D
