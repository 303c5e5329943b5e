#pragma once
#include "Point2.h"
#include "Predicates2.h"
#include "Triangle2.h"
#include <cmath>
#include <gmp.h>
#include <mutex>

namespace KIRO_VASK2D {

/** Exact orientation and in-circle predicates: a double-precision filter
 * first, an interval stage under directed rounding second, GMP rationals
 * last. The filters are inline because they are the hottest code of the
 * library; everything they cannot decide goes out of line.
 *
 * The orientation filter compares against a static bound that is valid for
 * coordinates up to maxCoord; callers raise it (setStaticBound_MT,
 * updateStaticBound) before they ask about points beyond it. */
class KiroTest {
public:
  KiroTest();
  ~KiroTest();
  KiroTest(const KiroTest&) = delete;
  KiroTest& operator=(const KiroTest&) = delete;

  Orientation2 getOrientation2(const Point2* p0, const Point2* p1, const Point2* p2) {
    const double det((p0->x() - p2->x()) * (p1->y() - p2->y()) - (p0->y() - p2->y()) * (p1->x() - p2->x()));
    if (det > staticBound) {
      if (withinBound(p0, p1, p2)) return ORIENTATION2_CCW;
    } else if (negStaticBound > det) {
      if (withinBound(p0, p1, p2)) return ORIENTATION2_CW;
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
    const double bxcy(bx * cy), cxby(cx * by), cxay(cx * ay), axcy(ax * cy), axby(ax * by), bxay(bx * ay);
    const double det((bxcy - cxby) * alift + (cxay - axcy) * blift + (axby - bxay) * clift);
    const double perm((std::fabs(bxcy) + std::fabs(cxby)) * alift + (std::fabs(cxay) + std::fabs(axcy)) * blift +
                      (std::fabs(axby) + std::fabs(bxay)) * clift);
    const double err(3.33e-15 * perm);
    if (det > err) return CINC2_INCIRCLE;
    if (-err > det) return CINC2_OUTCIRCLE;
    return 0;
  }

  void setStaticBound_MT(double maxCoord);
  void setStaticBound(const Point2* p0, const Point2* p1, const Point2* p2);
  void updateStaticBound(const Point2* p) {
    if (p->getMaxAbs() > maxCoord) setStaticBound_MT(p->getMaxAbs());
  }
  double getStaticBound() const { return staticBound; }
  double getMaxCoord() const { return maxCoord; }

  IntersectionState2 getIntersectionState(const Point2* a, const Point2* b, const Point2* c, const Point2* d);
  /** Intersection of lines ab and cd in rational arithmetic; the lines must not be parallel. */
  void getIntersectionCoords_gmp_MT(const Point2* a, const Point2* b, const Point2* c, const Point2* d, double& x,
                                    double& y);

  /** Short name of an orientation: "COL", "CCW", "CW". */
  static const char* getShortString(Orientation2 ori);

  /** Counters of the stages, cheap and unsynchronised: diagnostics for benchmarks and tests. */
  struct Counters {
    unsigned long long orientSlow = 0;   // orientation calls that passed the filter
    unsigned long long orientExact = 0;  // ... and reached the rationals
    unsigned long long incircleExact = 0;
  };
  const Counters& getCounters() const { return counters; }
  void resetCounters() { counters = Counters(); }

private:
  bool withinBound(const Point2* p0, const Point2* p1, const Point2* p2) const {
    return p0->getMaxAbs() <= maxCoord && p1->getMaxAbs() <= maxCoord && p2->getMaxAbs() <= maxCoord;
  }
  Orientation2 getOrientation2Slow(const Point2* p0, const Point2* p1, const Point2* p2);
  CircleState2 circleInc3stateExact(const Triangle2* pT, const Point2* p);
  void initPredicateRationals();
  void initIntersectionRationals();

  mpq_t aPredQ[48];   // temporaries of the exact orientation and in-circle stages
  mpq_t aIsQ[29];     // temporaries of the exact line intersection
  double staticBound;
  double negStaticBound;
  double maxCoord;
  bool bPredicatesReady;
  bool bIntersectionReady;
  Counters counters;
  std::mutex mtxBound;
  std::mutex mtxIntersection;
  std::mutex mtxOrientation;
  std::mutex mtxIncircle;
};

} // namespace KIRO_VASK2D
