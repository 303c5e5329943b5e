// Exactness of the orientation and in-circle predicates, checked against an
// independent rational evaluation on near-degenerate input of every scale,
// and the behaviour around them: bound bookkeeping, rounding modes,
// non-finite and null input, diagnostics, threads.
#include "Predicates2.h"
#include "VaskException.h"
#include "helpers/ExactOracle.h"
#include "helpers/TestHelpers.h"
#include "kernel/KiroTest.h"
#include "kernel/tools.h"
#include <gtest/gtest.h>
#include <algorithm>
#include <cfenv>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <thread>
#include <vector>

using namespace KIRO_VASK2D;
using vask_test::exactIncircleSign;
using vask_test::exactOrientationSign;
using vask_test::INF;
using vask_test::NaN;
using vask_test::randomMagnitude;
using vask_test::uniform;
using vask_test::ulpShift;

namespace {

Orientation2 orientationOfSign(int sign) {
  return sign > 0 ? ORIENTATION2_CCW : (sign < 0 ? ORIENTATION2_CW : ORIENTATION2_COLLINEAR);
}
CircleState2 circleStateOfSign(int sign) {
  return sign > 0 ? CINC2_INCIRCLE : (sign < 0 ? CINC2_OUTCIRCLE : CINC2_ZERO);
}
Orientation2 reversed(Orientation2 ori) {
  return ori == ORIENTATION2_CCW ? ORIENTATION2_CW : (ori == ORIENTATION2_CW ? ORIENTATION2_CCW : ori);
}

struct Triple {
  Point2 a, b, c;
};
struct Quad {
  Point2 a, b, c, d; // a, b, c counter-clockwise; d the query
};

int smallShift(std::mt19937_64& gen) { return std::uniform_int_distribution<int>(-3, 3)(gen); }
bool isFinitePoint(const Point2& p) { return std::isfinite(p.x()) && std::isfinite(p.y()); }

/** Three points: two random ones at scale 2^exp around (offX, offY), the third on
 * their line (rounded) and then moved by up to 3 ulps per coordinate. */
Triple nearCollinear(std::mt19937_64& gen, int exp, double offX, double offY) {
  const double s(std::ldexp(1.0, exp));
  const Point2 p0(offX + s * uniform(gen, -1, 1), offY + s * uniform(gen, -1, 1));
  const Point2 p1(offX + s * uniform(gen, -1, 1), offY + s * uniform(gen, -1, 1));
  const double t(uniform(gen, -1.0, 2.0));
  Point2 p2(p0.x() + t * (p1.x() - p0.x()), p0.y() + t * (p1.y() - p0.y()));
  p2.change(ulpShift(p2.x(), smallShift(gen)), ulpShift(p2.y(), smallShift(gen)));
  switch (gen() % 3) { // the nearly collinear point in each position
  case 0:
    return {p0, p1, p2};
  case 1:
    return {p2, p0, p1};
  default:
    return {p1, p2, p0};
  }
}

/** Counter-clockwise triangle on a circle and a query on it, all rounded and
 * the query (or a corner) moved by a few ulps. False if rounding left no proper triangle. */
bool nearCocircular(std::mt19937_64& gen, double centerX, double centerY, double radius, Quad& quad) {
  double aAngle[3] = {uniform(gen, 0, 6.283185307179586), uniform(gen, 0, 6.283185307179586),
                      uniform(gen, 0, 6.283185307179586)};
  std::sort(aAngle, aAngle + 3);
  auto onCircle = [&](double angle) {
    return Point2(centerX + radius * std::cos(angle), centerY + radius * std::sin(angle));
  };
  quad = {onCircle(aAngle[0]), onCircle(aAngle[1]), onCircle(aAngle[2]), onCircle(uniform(gen, 0, 6.283185307179586))};
  Point2& moved(gen() % 4 == 0 ? quad.a : quad.d);
  moved.change(ulpShift(moved.x(), smallShift(gen)), ulpShift(moved.y(), smallShift(gen)));
  if (!isFinitePoint(quad.a) || !isFinitePoint(quad.b) || !isFinitePoint(quad.c) || !isFinitePoint(quad.d))
    return false;
  const int ori(exactOrientationSign(quad.a, quad.b, quad.c));
  if (ori == 0) return false;
  if (ori < 0) std::swap(quad.b, quad.c);
  return true;
}

/** Checks all six orders of the triple against one exact evaluation; the
 * object's bound is raised first, as the triangulation does. */
void expectExactOrientation(KiroTest& kiroTest, const Triple& t) {
  const Orientation2 expected(orientationOfSign(exactOrientationSign(t.a, t.b, t.c)));
  kiroTest.setStaticBound(&t.a, &t.b, &t.c);
  const Orientation2 aGot[6] = {kiroTest.getOrientation2(&t.a, &t.b, &t.c),
                                kiroTest.getOrientation2(&t.b, &t.c, &t.a),
                                kiroTest.getOrientation2(&t.c, &t.a, &t.b),
                                reversed(kiroTest.getOrientation2(&t.b, &t.a, &t.c)),
                                reversed(kiroTest.getOrientation2(&t.a, &t.c, &t.b)),
                                reversed(kiroTest.getOrientation2(&t.c, &t.b, &t.a))};
  for (Orientation2 got : aGot)
    ASSERT_EQ(expected, got) << std::hexfloat << t.a.x() << " " << t.a.y() << ", " << t.b.x() << " " << t.b.y()
                             << ", " << t.c.x() << " " << t.c.y();
}

void expectExactIncircle(KiroTest& kiroTest, Quad& q) {
  const CircleState2 expected(circleStateOfSign(exactIncircleSign(q.a, q.b, q.c, q.d)));
  // Every rotation of the corners describes the same circle.
  Triangle2 aTriangle[3] = {Triangle2(&q.a, &q.b, &q.c), Triangle2(&q.b, &q.c, &q.a), Triangle2(&q.c, &q.a, &q.b)};
  for (const Triangle2& t : aTriangle) {
    const int cheap(kiroTest.circleInc3stateCheap(&t, &q.d));
    const CircleState2 got(kiroTest.circleInc3state(&t, &q.d));
    ASSERT_EQ(expected, got) << std::hexfloat << q.a.x() << " " << q.a.y() << ", " << q.b.x() << " " << q.b.y()
                             << ", " << q.c.x() << " " << q.c.y() << ", " << q.d.x() << " " << q.d.y();
    ASSERT_TRUE(cheap == 0 || cheap == expected) << "the filter contradicts the exact result";
  }
}

// Families of near-degenerate input: scale exponents and offsets.
struct Family {
  const char* name;
  int minExp, maxExp; // scale of the point cloud
  int offsetExp;      // magnitude of its offset from the origin; below -2000: none
};
const Family aFamily[] = {
    {"unit", -4, 4, -3000},
    {"large offset 1e150", 440, 480, 498},
    {"wide 1e-300..1e150", -996, 498, -3000},
    {"tiny 1e-160", -540, -520, -3000},
    {"products near the subnormal range", -519, -505, -3000},
    {"lifts near the subnormal range", -262, -250, -3000},
    {"tiny 1e-300", -1000, -990, -3000},
    {"subnormal", -1074, -1023, -3000},
    {"near the largest double", 1015, 1021, -3000},
    {"small cloud far out", -20, 10, 60},
    {"small offset tiny cloud", -560, -500, -480},
};

double familyOffset(std::mt19937_64& gen, const Family& f) {
  return f.offsetExp < -2000 ? 0.0 : randomMagnitude(gen, f.offsetExp - 1, f.offsetExp);
}

void runOrientationFamilies(KiroTest& kiroTest, unsigned seed, int perFamily) {
  std::mt19937_64 gen(seed);
  for (const Family& f : aFamily) {
    SCOPED_TRACE(f.name);
    for (int i = 0; i < perFamily; ++i) {
      const int exp(std::uniform_int_distribution<int>(f.minExp, f.maxExp)(gen));
      const Triple t(nearCollinear(gen, exp, familyOffset(gen, f), familyOffset(gen, f)));
      if (!isFinitePoint(t.a) || !isFinitePoint(t.b) || !isFinitePoint(t.c)) continue;
      expectExactOrientation(kiroTest, t);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

void runIncircleFamilies(KiroTest& kiroTest, unsigned seed, int perFamily) {
  std::mt19937_64 gen(seed);
  for (const Family& f : aFamily) {
    SCOPED_TRACE(f.name);
    for (int i = 0; i < perFamily; ++i) {
      const int exp(std::uniform_int_distribution<int>(f.minExp, f.maxExp)(gen));
      Quad q;
      if (!nearCocircular(gen, familyOffset(gen, f), familyOffset(gen, f), std::ldexp(uniform(gen, 0.5, 1.0), exp), q))
        continue;
      expectExactIncircle(kiroTest, q);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

} // namespace

// ---------------------------------------------------------------------------
// Exactness on near-degenerate input

TEST(OrientationExactness, AgreesWithRationalsOnNearCollinearPointsOfEveryScale) {
  KiroTest kiroTest;
  runOrientationFamilies(kiroTest, 1, 8000); // 9 families x 8000 x 6 orders
}

TEST(OrientationExactness, AgreesWithRationalsOnMixedMagnitudes) {
  // Every coordinate with its own exponent; and points on a line through
  // the origin whose coordinates span 1e-300 to 1e150.
  KiroTest kiroTest;
  std::mt19937_64 gen(2);
  for (int i = 0; i < 20000; ++i) {
    Triple t{Point2(randomMagnitude(gen, -1000, 500), randomMagnitude(gen, -1000, 500)),
             Point2(randomMagnitude(gen, -1000, 500), randomMagnitude(gen, -1000, 500)),
             Point2(randomMagnitude(gen, -1000, 500), randomMagnitude(gen, -1000, 500))};
    expectExactOrientation(kiroTest, t);
    const double slope(randomMagnitude(gen, -30, 30));
    const double x0(randomMagnitude(gen, -997, 498)), x1(randomMagnitude(gen, -997, 498));
    Triple line{Point2(0.0, 0.0), Point2(x0, ulpShift(x0 * slope, smallShift(gen))),
                Point2(x1, ulpShift(x1 * slope, smallShift(gen)))};
    if (isFinitePoint(line.b) && isFinitePoint(line.c)) expectExactOrientation(kiroTest, line);
    if (HasFatalFailure()) return;
  }
}

TEST(OrientationExactness, ExactlyCollinearGridPointsAreCollinear) {
  KiroTest kiroTest;
  std::mt19937_64 gen(3);
  for (int i = 0; i < 10000; ++i) {
    const int exp(std::uniform_int_distribution<int>(-1000, 900)(gen));
    const double s(std::ldexp(1.0, exp));
    const double x0(std::uniform_int_distribution<int>(-1000, 1000)(gen) * s);
    const double y0(std::uniform_int_distribution<int>(-1000, 1000)(gen) * s);
    const double dx(std::uniform_int_distribution<int>(-50, 50)(gen) * s);
    const double dy(std::uniform_int_distribution<int>(-50, 50)(gen) * s);
    const int k1(std::uniform_int_distribution<int>(-20, 20)(gen)), k2(std::uniform_int_distribution<int>(-20, 20)(gen));
    const Triple t{Point2(x0, y0), Point2(x0 + k1 * dx, y0 + k1 * dy), Point2(x0 + k2 * dx, y0 + k2 * dy)};
    ASSERT_EQ(0, exactOrientationSign(t.a, t.b, t.c));
    expectExactOrientation(kiroTest, t);
    if (HasFatalFailure()) return;
  }
}

TEST(OrientationExactness, CollinearPointsWithExactProductsNeedNoRationals) {
  // Small integers: every difference and product is exact, and the
  // expansion stage settles collinearity without GMP.
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1000.0);
  int numCollinear(0);
  for (int k = -20; k <= 20; ++k) {
    const Point2 a(0, 0), b(3, 7), c(3 * k, 7 * k);
    if (k == 0 || k == 1) continue;
    numCollinear += kiroTest.getOrientation2(&a, &b, &c) == ORIENTATION2_COLLINEAR;
  }
  EXPECT_EQ(39, numCollinear);
  EXPECT_EQ(0u, kiroTest.getCounters().orientExact);
}

TEST(IncircleExactness, AgreesWithRationalsOnNearCocircularPointsOfEveryScale) {
  KiroTest kiroTest;
  runIncircleFamilies(kiroTest, 4, 8000); // 9 families x 8000 x 3 rotations
}

TEST(IncircleExactness, AgreesWithRationalsOnMixedMagnitudes) {
  KiroTest kiroTest;
  std::mt19937_64 gen(5);
  int numTested(0);
  while (numTested < 20000) {
    Quad q{Point2(randomMagnitude(gen, -600, 250), randomMagnitude(gen, -600, 250)),
           Point2(randomMagnitude(gen, -600, 250), randomMagnitude(gen, -600, 250)),
           Point2(randomMagnitude(gen, -600, 250), randomMagnitude(gen, -600, 250)),
           Point2(randomMagnitude(gen, -600, 250), randomMagnitude(gen, -600, 250))};
    const int ori(exactOrientationSign(q.a, q.b, q.c));
    if (ori == 0) continue;
    if (ori < 0) std::swap(q.b, q.c);
    expectExactIncircle(kiroTest, q);
    if (HasFatalFailure()) return;
    ++numTested;
  }
}

TEST(OrientationExactness, CollinearPointsWithInexactDifferencesAreCollinearWithoutRationals) {
  // Points on y = s x with s a signed power of two or 3, at mixed magnitudes:
  // the differences round, so only the full expansion proves the zero.
  KiroTest kiroTest;
  std::mt19937_64 gen(31);
  for (int i = 0; i < 20000; ++i) {
    const double aSlope[4] = {1.0, -0.5, 3.0, 0x1p-20};
    const double slope(aSlope[gen() % 4]);
    double aX[3];
    for (double& x : aX) x = std::ldexp(std::floor(uniform(gen, -0x1p40, 0x1p40)), std::uniform_int_distribution<int>(-100, 20)(gen));
    const Triple t{Point2(aX[0], slope * aX[0]), Point2(aX[1], slope * aX[1]), Point2(aX[2], slope * aX[2])};
    ASSERT_EQ(0, exactOrientationSign(t.a, t.b, t.c));
    expectExactOrientation(kiroTest, t);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(kiroTest.getCounters().orientFull, 0u);
  EXPECT_EQ(0u, kiroTest.getCounters().orientExact);
}

TEST(IncircleExactness, IsoscelesTrapezoidsWithInexactDifferencesAreCocircularWithoutRationals) {
  // (-a, h1), (a, h1), (b, h2), (-b, h2) lie on one circle for all a, b, h1,
  // h2; with a and b of unlike magnitudes the differences round, and only
  // the full expansion proves the zero. Axes and signs are mixed in.
  KiroTest kiroTest;
  std::mt19937_64 gen(32);
  int numTested(0);
  for (int i = 0; i < 20000; ++i) {
    const double a(randomMagnitude(gen, -60, 10)), b(randomMagnitude(gen, -60, 10));
    const double h1(std::copysign(randomMagnitude(gen, -60, 10), uniform(gen, -1, 1)));
    const double h2(std::copysign(randomMagnitude(gen, -60, 10), uniform(gen, -1, 1)));
    Point2 aP[4] = {Point2(-a, h1), Point2(a, h1), Point2(b, h2), Point2(-b, h2)};
    if (gen() % 2)
      for (Point2& p : aP) p.change(p.y(), p.x());
    std::shuffle(aP, aP + 4, gen);
    Quad q{aP[0], aP[1], aP[2], aP[3]};
    const int ori(exactOrientationSign(q.a, q.b, q.c));
    if (ori == 0) continue;
    if (ori < 0) std::swap(q.b, q.c);
    ASSERT_EQ(0, exactIncircleSign(q.a, q.b, q.c, q.d));
    expectExactIncircle(kiroTest, q);
    if (HasFatalFailure()) return;
    ++numTested;
  }
  EXPECT_GT(numTested, 15000);
  EXPECT_GT(kiroTest.getCounters().incircleFull, 0u);
  EXPECT_EQ(0u, kiroTest.getCounters().incircleExact);
}

TEST(IncircleExactness, CocircularIntegerAndScaledGridsNeedNoRationals) {
  // The cells of an integer grid and of the same grid scaled by 1/999 (not
  // exact): every in-circle test of a cell corner against the other three,
  // and of points two cells away, is exact without the rationals.
  for (bool bScaled : {false, true}) {
    KiroTest kiroTest;
    auto coord = [&](int i) { return bScaled ? i / 999.0 : double(i); };
    std::mt19937_64 gen(33);
    for (int n = 0; n < 20000; ++n) {
      const int i(std::uniform_int_distribution<int>(0, 996)(gen)), j(std::uniform_int_distribution<int>(0, 996)(gen));
      const int di(std::uniform_int_distribution<int>(1, 2)(gen)), dj(std::uniform_int_distribution<int>(1, 2)(gen));
      Quad q{Point2(coord(i), coord(j)), Point2(coord(i + di), coord(j)), Point2(coord(i + di), coord(j + dj)),
             Point2(coord(i + std::uniform_int_distribution<int>(0, 2)(gen)), coord(j + std::uniform_int_distribution<int>(0, 2)(gen)))};
      if (gen() % 2) std::swap(q.a, q.d); // not always the rectangle shortcut
      if (exactOrientationSign(q.a, q.b, q.c) == 0) continue;
      if (exactOrientationSign(q.a, q.b, q.c) < 0) std::swap(q.b, q.c);
      expectExactIncircle(kiroTest, q);
      if (HasFatalFailure()) return;
    }
    EXPECT_EQ(0u, kiroTest.getCounters().incircleExact);
  }
}

TEST(IncircleExactness, PythagoreanCocircularPointsAreOnTheCircle) {
  // (+-3,+-4), (+-4,+-3), (+-5,0), (0,+-5) lie exactly on the circle of radius 5;
  // scaled by a power of two and moved by a representable offset they stay on it.
  const double aX[12] = {3, 4, 5, 4, 3, 0, -3, -4, -5, -4, -3, 0};
  const double aY[12] = {4, 3, 0, -3, -4, -5, -4, -3, 0, 3, 4, 5};
  KiroTest kiroTest;
  std::mt19937_64 gen(6);
  for (int i = 0; i < 20000; ++i) {
    const int exp(std::uniform_int_distribution<int>(-1060, 1000)(gen));
    const double s(std::ldexp(1.0, exp));
    const double offX(std::uniform_int_distribution<int>(-100, 100)(gen) * s);
    const double offY(std::uniform_int_distribution<int>(-100, 100)(gen) * s);
    int aIdx[4];
    for (int& idx : aIdx) idx = std::uniform_int_distribution<int>(0, 11)(gen);
    std::sort(aIdx, aIdx + 3);
    if (aIdx[0] == aIdx[1] || aIdx[1] == aIdx[2]) continue;
    Quad q{Point2(offX + aX[aIdx[0]] * s, offY + aY[aIdx[0]] * s), Point2(offX + aX[aIdx[1]] * s, offY + aY[aIdx[1]] * s),
           Point2(offX + aX[aIdx[2]] * s, offY + aY[aIdx[2]] * s), Point2(offX + aX[aIdx[3]] * s, offY + aY[aIdx[3]] * s)};
    if (!isFinitePoint(q.a) || !isFinitePoint(q.b) || !isFinitePoint(q.c) || !isFinitePoint(q.d)) continue;
    ASSERT_EQ(0, exactIncircleSign(q.a, q.b, q.c, q.d));
    expectExactIncircle(kiroTest, q);
    if (HasFatalFailure()) return;
  }
}

TEST(IncircleExactness, TinyCoordinatesWhoseProductsUnderflowAreDecidedExactly) {
  // The lifts and cross products of these quadruples fall below 2^-1022 or to
  // zero; the filter must not trust them.
  KiroTest kiroTest;
  std::mt19937_64 gen(7);
  for (int i = 0; i < 20000; ++i) {
    const int exp(std::uniform_int_distribution<int>(-1074, -250)(gen));
    Quad q{Point2(std::ldexp(uniform(gen, -1, 1), exp), std::ldexp(uniform(gen, -1, 1), exp)),
           Point2(std::ldexp(uniform(gen, -1, 1), exp), std::ldexp(uniform(gen, -1, 1), exp)),
           Point2(std::ldexp(uniform(gen, -1, 1), exp), std::ldexp(uniform(gen, -1, 1), exp)),
           Point2(std::ldexp(uniform(gen, -1, 1), exp), std::ldexp(uniform(gen, -1, 1), exp))};
    if (gen() % 2) q.a = Point2(randomMagnitude(gen, 0, 400), randomMagnitude(gen, 0, 400)); // one far corner
    const int ori(exactOrientationSign(q.a, q.b, q.c));
    if (ori == 0) continue;
    if (ori < 0) std::swap(q.b, q.c);
    expectExactIncircle(kiroTest, q);
    if (HasFatalFailure()) return;
  }
}

TEST(IncircleExactness, SpecialConfigurations) {
  KiroTest kiroTest;
  const double big(std::ldexp(1.0, 1020));
  const double tiny(std::ldexp(1.0, -1074));
  std::vector<Quad> vQuad = {
      {Point2(0, 0), Point2(1, 0), Point2(1, 1), Point2(0.5, 0.5)},          // centre
      {Point2(0, 0), Point2(1, 0), Point2(0, 1), Point2(1, 1)},              // rectangle corner
      {Point2(0, 0), Point2(1, 0), Point2(0, 1), Point2(0, 0)},              // a corner itself
      {Point2(-big, -big), Point2(big, -big), Point2(big, big), Point2(-big, big)},
      {Point2(-big, -big), Point2(big, -big), Point2(big, big), Point2(0, 0)},
      {Point2(0, 0), Point2(tiny, 0), Point2(0, tiny), Point2(tiny, tiny)},
      {Point2(0, 0), Point2(2 * tiny, 0), Point2(0, 2 * tiny), Point2(tiny, tiny)},
      {Point2(-1e300, 0), Point2(1e-300, -1e-300), Point2(1e300, 1e300), Point2(0, 1e-300)},
  };
  for (Quad& q : vQuad) {
    expectExactIncircle(kiroTest, q);
    if (HasFatalFailure()) return;
  }
}

// ---------------------------------------------------------------------------
// Filter: answers, counters, constants

TEST(OrientationFilter, DecidesOrdinaryRandomInputWithoutTheExactStages) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1.0);
  const std::vector<Point2> vPoint(vask_test::randomPoints(30001, 8));
  int numCalls(0);
  for (std::size_t i = 0; i + 2 < vPoint.size(); ++i, ++numCalls) {
    const Orientation2 got(kiroTest.getOrientation2(&vPoint[i], &vPoint[i + 1], &vPoint[i + 2]));
    ASSERT_EQ(orientationOfSign(exactOrientationSign(vPoint[i], vPoint[i + 1], vPoint[i + 2])), got);
  }
  EXPECT_LE(kiroTest.getCounters().orientSlow, 3u) << "of " << numCalls;
  EXPECT_EQ(0u, kiroTest.getCounters().orientExact);
}

TEST(IncircleFilter, DecidesOrdinaryRandomInputWithoutTheExactStage) {
  KiroTest kiroTest;
  std::vector<Point2> vPoint(vask_test::randomPoints(40000, 9));
  int numCalls(0);
  for (std::size_t i = 0; i + 3 < vPoint.size(); i += 4) {
    Point2 &a(vPoint[i]), &b(vPoint[i + 1]), &c(vPoint[i + 2]), &d(vPoint[i + 3]);
    const int ori(exactOrientationSign(a, b, c));
    if (ori == 0) continue;
    Triangle2 t(&a, ori > 0 ? &b : &c, ori > 0 ? &c : &b);
    ASSERT_EQ(circleStateOfSign(exactIncircleSign(*t.getCorner(0), *t.getCorner(1), *t.getCorner(2), d)),
              kiroTest.circleInc3state(&t, &d));
    ++numCalls;
  }
  EXPECT_LE(kiroTest.getCounters().incircleSlow, 3u) << "of " << numCalls;
}

TEST(OrientationFilter, NearDegenerateInputReachesTheRationalsOnlyRarely) {
  // The interval stage settles most of what the filter leaves.
  KiroTest kiroTest;
  std::mt19937_64 gen(10);
  int numCalls(0);
  for (int i = 0; i < 20000; ++i) {
    const Triple t(nearCollinear(gen, 0, 0.0, 0.0));
    kiroTest.setStaticBound(&t.a, &t.b, &t.c);
    kiroTest.getOrientation2(&t.a, &t.b, &t.c);
    ++numCalls;
  }
  const KiroTest::Counters& counters(kiroTest.getCounters());
  EXPECT_GT(counters.orientSlow, 0u);
  EXPECT_LT(counters.orientExact, counters.orientSlow);
}

TEST(FilterConstants, StaticBoundFactorIsThreeUlpsOfTheDeterminantChain) {
  // c = 2 (ulp(2) + ulp(4)/2) + ulp(8)/2 = 3 * 2^-50 = 24 u with u = 2^-53.
  EXPECT_EQ(2.0 * (getUlp(2.0) + getUlp(4.0) * 0.5) + getUlp(8.0) * 0.5, KiroTest::staticBoundFactor);
  EXPECT_EQ(2.6645352591003757e-15, KiroTest::staticBoundFactor);
  EXPECT_EQ(24.0 * std::ldexp(1.0, -53), KiroTest::staticBoundFactor);
  // The floor must exceed the absolute error of subnormal products, 2^-1071.
  EXPECT_GE(KiroTest::underflowFloor, std::ldexp(1.0, -1071));
  // The in-circle margin covers the directed-rounding error 2 * (10u + 96u^2).
  const double u(std::ldexp(1.0, -53));
  EXPECT_GT(3.33e-15, 2.0 * (10.0 + 96.0 * u) * u);
}

// ---------------------------------------------------------------------------
// Static bound bookkeeping

TEST(FilterConstants, ExpansionStageBoundsAreTheirExactFormulas) {
  // Each bound is a small polynomial in epsilon = 2^-53; recomputed here in
  // rationals, every constant must be that value exactly (none rounds).
  auto exact = [](long c0, long c1, int power) { // (c0 + c1 eps) eps^power
    mpq_t eps, v, t;
    mpq_inits(eps, v, t, nullptr);
    mpq_set_d(eps, 0x1p-53);
    mpq_set_si(v, c1, 1);
    mpq_mul(v, v, eps);
    mpq_set_si(t, c0, 1);
    mpq_add(v, v, t);
    for (int i = 0; i < power; ++i) mpq_mul(v, v, eps);
    const double d(mpq_get_d(v));
    mpq_set_d(t, d);
    const bool bExact(mpq_equal(t, v) != 0);
    mpq_clears(eps, v, t, nullptr);
    return bExact ? d : -1.0;
  };
  EXPECT_EQ(0x1p-53, KiroTest::epsilon);
  EXPECT_EQ(exact(3, 8, 1), KiroTest::resultErrBound);
  EXPECT_EQ(exact(2, 12, 1), KiroTest::ccwErrBoundB);
  EXPECT_EQ(exact(9, 64, 2), KiroTest::ccwErrBoundC);
  EXPECT_EQ(exact(4, 48, 1), KiroTest::iccErrBoundB);
  EXPECT_EQ(exact(44, 576, 2), KiroTest::iccErrBoundC);
  EXPECT_EQ(exact(64, 0, 2), KiroTest::iccErrBoundDD);
}

TEST(StaticBound, GrowsByAMarginOfTenAndNeverShrinks) {
  KiroTest kiroTest;
  EXPECT_EQ(0.0, kiroTest.getStaticBound());
  EXPECT_EQ(0.0, kiroTest.getMaxCoord());
  kiroTest.setStaticBound_MT(100.0);
  EXPECT_EQ(1000.0, kiroTest.getMaxCoord());
  EXPECT_EQ(2.6645352591003757e-15 * 1000000, kiroTest.getStaticBound());
  kiroTest.setStaticBound_MT(50.0);
  EXPECT_EQ(1000.0, kiroTest.getMaxCoord());
  EXPECT_EQ(2.6645352591003757e-15 * 1000000, kiroTest.getStaticBound());
  kiroTest.setStaticBound_MT(2000.0);
  EXPECT_EQ(20000.0, kiroTest.getMaxCoord());
}

TEST(StaticBound, ValueNearTheLargestDoubleIsKeptAndSwitchesTheFilterOff) {
  KiroTest kiroTest;
  const double m(DBL_MAX / 5.0);
  kiroTest.setStaticBound_MT(m);
  EXPECT_EQ(m, kiroTest.getMaxCoord());
  EXPECT_TRUE(std::isinf(kiroTest.getStaticBound())); // products of differences may overflow
  const Point2 a(-m, -m), b(m, -m), c(m, m);
  EXPECT_EQ(ORIENTATION2_CCW, kiroTest.getOrientation2(&a, &b, &c));
  EXPECT_EQ(ORIENTATION2_CW, kiroTest.getOrientation2(&a, &c, &b));
}

TEST(StaticBound, TinyCoordinatesGetTheUnderflowFloor) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1e-200);
  EXPECT_EQ(KiroTest::underflowFloor, kiroTest.getStaticBound());
  kiroTest.setStaticBound_MT(0.0);
  EXPECT_GE(kiroTest.getStaticBound(), KiroTest::underflowFloor);
}

TEST(StaticBound, NaNBreaksTheAssertionWhileNegativeAndInfiniteValuesChangeNothing) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(-1.0);
  EXPECT_EQ(0.0, kiroTest.getMaxCoord());
  testing::internal::CaptureStdout();
  EXPECT_THROW(kiroTest.setStaticBound_MT(NaN), VaskException);
  EXPECT_NE(std::string::npos, testing::internal::GetCapturedStdout().find("Condition [ maxCoord>=0 failed ]"));
  kiroTest.setStaticBound_MT(1.0);
  kiroTest.setStaticBound_MT(INF);
  EXPECT_EQ(10.0, kiroTest.getMaxCoord());
  const Point2 a(0, 0), b(1, 0), c(0, 1), d(INF, 1);
  kiroTest.updateStaticBound(&d);
  EXPECT_EQ(10.0, kiroTest.getMaxCoord());
  kiroTest.resetCounters();
  EXPECT_EQ(ORIENTATION2_CCW, kiroTest.getOrientation2(&a, &b, &c));
  EXPECT_EQ(0u, kiroTest.getCounters().orientSlow) << "the filter still decides";
}

TEST(StaticBound, PointsBeyondTheBoundAreReportedAndStillDecidedExactly) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1.0);
  const Point2 a(0, 0), b(1e6, 1e6), c(2e6, ulpShift(2e6, 1));
  testing::internal::CaptureStdout();
  const Orientation2 got(kiroTest.getOrientation2(&a, &b, &c));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(ORIENTATION2_CCW, got);
  EXPECT_NE(std::string::npos, out.find("Static bound: 2.66453525910038e-13"));
  EXPECT_NE(std::string::npos, out.find("max p0: 0"));
  EXPECT_NE(std::string::npos, out.find("max p1: 1000000"));
  EXPECT_NE(std::string::npos, out.find("max p2: 2000000"));
  EXPECT_NE(std::string::npos, out.find("KiroTest::getOrientation2, WARNING: Recompute the static bound!"));
  // A point that is only far, not near-degenerate, is decided as well.
  const Point2 far(1e200, -1e200);
  testing::internal::CaptureStdout();
  EXPECT_EQ(ORIENTATION2_CW, kiroTest.getOrientation2(&a, &b, &far));
  testing::internal::GetCapturedStdout();
}

// ---------------------------------------------------------------------------
// Documented edge cases

TEST(Orientation, EqualPointsAreCollinearAtEveryMagnitude) {
  KiroTest kiroTest;
  for (double v : {0.0, 1.0, -3.5, 1e-310, DBL_MAX, -DBL_MAX}) {
    const Point2 p(v, -v), q(v, -v), r(v, -v);
    kiroTest.setStaticBound(&p, &q, &r);
    EXPECT_EQ(ORIENTATION2_COLLINEAR, kiroTest.getOrientation2(&p, &q, &r)) << v;
    EXPECT_EQ(ORIENTATION2_COLLINEAR, getOrientation2(&p, &q, &r)) << v;
  }
}

TEST(Orientation, ThirdOfALineWithRoundedMidpointIsNotCollinear) {
  const Point2 a(0, 0), b(1, 1.0 / 3.0), c(3, 1);
  // 1/3 rounds down, so b lies below the line from a to c.
  EXPECT_EQ(ORIENTATION2_CCW, getOrientation2(&a, &b, &c));
  EXPECT_EQ(ORIENTATION2_CW, getOrientation2(&a, &c, &b));
  EXPECT_EQ(ORIENTATION2_CCW, getOrientation2_mt(&a, &b, &c));
}

TEST(Orientation, TriangleEdgeFormTellsTheInnerSide) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(10.0);
  Point2 a(0, 0), b(4, 0), c(0, 4);
  const Triangle2 t(&a, &b, &c);
  const Point2 inside(1, 1), outside(3, 3), onEdge(2, 2);
  EXPECT_EQ(ORIENTATION2_CCW, kiroTest.getOrientation2(&t, 0, &inside));
  EXPECT_EQ(ORIENTATION2_CW, kiroTest.getOrientation2(&t, 0, &outside));
  EXPECT_EQ(ORIENTATION2_COLLINEAR, kiroTest.getOrientation2(&t, 0, &onEdge));
  EXPECT_EQ(ORIENTATION2_CCW, kiroTest.getOrientation2(&t, 1, &inside));
  EXPECT_EQ(ORIENTATION2_CCW, kiroTest.getOrientation2(&t, 2, &inside));
}

TEST(Orientation, ThreadSafeFormAgreesWithTheSharedOne) {
  std::mt19937_64 gen(11);
  for (int i = 0; i < 2000; ++i) {
    const Triple t(nearCollinear(gen, std::uniform_int_distribution<int>(-600, 400)(gen), 0.0, 0.0));
    ASSERT_EQ(getOrientation2(&t.a, &t.b, &t.c), getOrientation2_mt(&t.a, &t.b, &t.c));
    ASSERT_EQ(orientationOfSign(exactOrientationSign(t.a, t.b, t.c)), getOrientation2_mt(&t.a, &t.b, &t.c));
  }
}

TEST(Incircle, RectangleIsCocircularByTheShortcutInEveryOrder) {
  KiroTest kiroTest;
  Point2 aCorner[3] = {Point2(0, 0), Point2(1, 0), Point2(1, 1)};
  const Point2 query(0, 1);
  int aOrder[3] = {0, 1, 2};
  do {
    Triangle2 t(&aCorner[aOrder[0]], &aCorner[aOrder[1]], &aCorner[aOrder[2]]);
    EXPECT_EQ(CINC2_ZERO, kiroTest.circleInc3state(&t, &query));
  } while (std::next_permutation(aOrder, aOrder + 3));
  EXPECT_EQ(6u, kiroTest.getCounters().incircleSlow);
  EXPECT_EQ(0u, kiroTest.getCounters().incircleExact) << "no arithmetic for rectangles";
}

TEST(Incircle, CocircularNonRectangleNeedsNoRationals) {
  KiroTest kiroTest;
  Point2 a(5, 0), b(3, 4), c(-4, 3);
  const Point2 d(0, -5);
  const Triangle2 t(&a, &b, &c);
  EXPECT_EQ(CINC2_ZERO, kiroTest.circleInc3state(&t, &d));
  EXPECT_EQ(1u, kiroTest.getCounters().incircleExpansion);
  EXPECT_EQ(0u, kiroTest.getCounters().incircleExact);
}

TEST(Incircle, CheapTestDecidesFarInsideAndDefersOnTheCircle) {
  KiroTest kiroTest;
  Point2 a(5, 0), b(3, 4), c(-4, 3);
  const Triangle2 t(&a, &b, &c);
  const Point2 centre(0, 0), onCircle(0, -5), farOut(100, 100);
  EXPECT_EQ(CINC2_INCIRCLE, kiroTest.circleInc3stateCheap(&t, &centre));
  EXPECT_EQ(CINC2_OUTCIRCLE, kiroTest.circleInc3stateCheap(&t, &farOut));
  EXPECT_EQ(0, kiroTest.circleInc3stateCheap(&t, &onCircle));
}

// ---------------------------------------------------------------------------
// Rounding modes

TEST(RoundingMode, CallersModeIsUnchangedAndAnswersStayExactInEveryMode) {
  // The near-degenerate families once more, entered in each rounding mode;
  // after every call on every path the mode is the caller's.
  const int aMode[4] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
  std::mt19937_64 gen(12);
  std::vector<Triple> vTriple;
  std::vector<Quad> vQuad;
  for (const Family& f : aFamily)
    for (int i = 0; i < 600; ++i) {
      const int exp(std::uniform_int_distribution<int>(f.minExp, f.maxExp)(gen));
      const Triple t(nearCollinear(gen, exp, familyOffset(gen, f), familyOffset(gen, f)));
      if (isFinitePoint(t.a) && isFinitePoint(t.b) && isFinitePoint(t.c)) vTriple.push_back(t);
      Quad q;
      if (nearCocircular(gen, familyOffset(gen, f), familyOffset(gen, f), std::ldexp(uniform(gen, 0.5, 1.0), exp), q))
        vQuad.push_back(q);
    }
  std::vector<Orientation2> vExpectedOri;
  std::vector<CircleState2> vExpectedCirc;
  for (const Triple& t : vTriple) vExpectedOri.push_back(orientationOfSign(exactOrientationSign(t.a, t.b, t.c)));
  for (const Quad& q : vQuad) vExpectedCirc.push_back(circleStateOfSign(exactIncircleSign(q.a, q.b, q.c, q.d)));

  for (int mode : aMode) {
    KiroTest kiroTest;
    ASSERT_EQ(0, std::fesetround(mode));
    int numModeLost(0), numWrong(0);
    auto checkMode = [&] { numModeLost += std::fegetround() != mode; };
    for (std::size_t i = 0; i < vTriple.size(); ++i) {
      const Triple& t(vTriple[i]);
      kiroTest.setStaticBound(&t.a, &t.b, &t.c);
      checkMode();
      numWrong += kiroTest.getOrientation2(&t.a, &t.b, &t.c) != vExpectedOri[i];
      checkMode();
      numWrong += getOrientation2(&t.a, &t.b, &t.c) != vExpectedOri[i];
      checkMode();
    }
    for (std::size_t i = 0; i < vQuad.size(); ++i) {
      Quad& q(vQuad[i]);
      const Triangle2 t(&q.a, &q.b, &q.c);
      const int cheap(kiroTest.circleInc3stateCheap(&t, &q.d));
      numWrong += cheap != 0 && cheap != vExpectedCirc[i];
      numWrong += kiroTest.circleInc3state(&t, &q.d) != vExpectedCirc[i];
      checkMode();
    }
    const Point2 a(0, 0), b(1, 1), d(NaN, 1);
    kiroTest.getOrientation2(&a, &b, &d);
    checkMode();
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(0, numModeLost) << "mode " << mode;
    EXPECT_EQ(0, numWrong) << "mode " << mode;
    EXPECT_GT(kiroTest.getCounters().orientSlow, 0u);
    EXPECT_GT(kiroTest.getCounters().orientExact, 0u);
    EXPECT_GT(kiroTest.getCounters().incircleExact, 0u);
  }
}

// ---------------------------------------------------------------------------
// Faults of use

TEST(NonFiniteInput, OrientationIsCollinearAtOnce) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1.0);
  const Point2 a(0, 0), b(1, 0);
  for (const Point2& bad : {Point2(NaN, 0), Point2(0, NaN), Point2(INF, 1), Point2(1, -INF), Point2(INF, INF)}) {
    EXPECT_EQ(ORIENTATION2_COLLINEAR, kiroTest.getOrientation2(&a, &b, &bad));
    EXPECT_EQ(ORIENTATION2_COLLINEAR, kiroTest.getOrientation2(&bad, &a, &b));
    EXPECT_EQ(ORIENTATION2_COLLINEAR, getOrientation2(&a, &bad, &b));
    EXPECT_EQ(ORIENTATION2_COLLINEAR, getOrientation2_mt(&a, &b, &bad));
  }
  EXPECT_EQ(0u, kiroTest.getCounters().orientExact);
  // The shared object's bound is not poisoned by them.
  const Point2 c(0.5, 1e-9);
  EXPECT_EQ(ORIENTATION2_CCW, getOrientation2(&a, &b, &c));
}

TEST(NonFiniteInput, IncircleIsZeroAtOnce) {
  KiroTest kiroTest;
  Point2 a(0, 0), b(1, 0), c(0, 1);
  const Triangle2 t(&a, &b, &c);
  for (const Point2& bad : {Point2(NaN, 0), Point2(0, NaN), Point2(INF, 1), Point2(1, -INF)}) {
    EXPECT_EQ(0, kiroTest.circleInc3stateCheap(&t, &bad));
    EXPECT_EQ(CINC2_ZERO, kiroTest.circleInc3state(&t, &bad));
    Point2 corner(bad);
    const Triangle2 badT(&corner, &b, &c);
    EXPECT_EQ(CINC2_ZERO, kiroTest.circleInc3state(&badT, &a));
  }
  EXPECT_EQ(0u, kiroTest.getCounters().incircleExact);
}

TEST(NullInput, FreeOrientationThrows) {
  const Point2 a(0, 0), b(1, 0), c(0, 1);
  testing::internal::CaptureStdout();
  EXPECT_THROW(getOrientation2(nullptr, &b, &c), VaskException);
  EXPECT_THROW(getOrientation2(&a, nullptr, &c), VaskException);
  EXPECT_THROW(getOrientation2(&a, &b, nullptr), VaskException);
  EXPECT_THROW(getOrientation2_mt(nullptr, &b, &c), VaskException);
  EXPECT_THROW(getOrientation2_mt(&a, &b, nullptr), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(std::string::npos, out.find("Condition [ p0!=0 failed ]"));
  EXPECT_NE(std::string::npos, out.find("Condition [ p1!=0 failed ]"));
  EXPECT_NE(std::string::npos, out.find("Condition [ p2!=0 failed ]"));
}

// ---------------------------------------------------------------------------
// Names

TEST(Names, EnumeratorsPrintTheirNamesAndStrangersUnknown) {
  EXPECT_STREQ("ORIENTATION2_COLLINEAR", getString(ORIENTATION2_COLLINEAR));
  EXPECT_STREQ("ORIENTATION2_CCW", getString(ORIENTATION2_CCW));
  EXPECT_STREQ("ORIENTATION2_CW", getString(ORIENTATION2_CW));
  EXPECT_STREQ("UNKNOWN", getString(static_cast<Orientation2>(7)));
  EXPECT_STREQ("CINC2_ZERO", getString(CINC2_ZERO));
  EXPECT_STREQ("CINC2_INCIRCLE", getString(CINC2_INCIRCLE));
  EXPECT_STREQ("CINC2_OUTCIRCLE", getString(CINC2_OUTCIRCLE));
  EXPECT_STREQ("UNKNOWN", getString(static_cast<CircleState2>(0)));
  EXPECT_STREQ("IST_NOIS", getString(IST_NOIS));
  EXPECT_STREQ("IST_COLLINEAR", getString(IST_COLLINEAR));
  EXPECT_STREQ("IST_REGULAR", getString(IST_REGULAR));
  EXPECT_STREQ("UNKNOWN", getString(static_cast<IntersectionState2>(3)));
  EXPECT_STREQ("COL", KiroTest::getShortString(ORIENTATION2_COLLINEAR));
  EXPECT_STREQ("CCW", KiroTest::getShortString(ORIENTATION2_CCW));
  EXPECT_STREQ("CW", KiroTest::getShortString(ORIENTATION2_CW));
  EXPECT_STREQ("unknown, this is a bug", KiroTest::getShortString(static_cast<Orientation2>(-1)));
}

// ---------------------------------------------------------------------------
// Threads

TEST(Threads, SharedObjectGivesExactAnswersFromManyThreads) {
  // Orientation and in-circle exact stages run concurrently on one object,
  // the first of them initialising the shared rationals.
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(16.0);
  std::vector<Triple> vTriple;
  std::vector<Quad> vQuad;
  std::mt19937_64 gen(13);
  while (vTriple.size() < 3000) vTriple.push_back(nearCollinear(gen, 0, 0.0, 0.0));
  while (vQuad.size() < 3000) {
    Quad q;
    if (nearCocircular(gen, 0.5, 0.25, 1.0, q)) vQuad.push_back(q);
  }
  std::vector<int> vOriSign, vCircSign;
  for (const Triple& t : vTriple) vOriSign.push_back(exactOrientationSign(t.a, t.b, t.c));
  for (const Quad& q : vQuad) vCircSign.push_back(exactIncircleSign(q.a, q.b, q.c, q.d));
  std::vector<int> vErrors(4, 0);
  std::vector<std::thread> vThread;
  for (int k = 0; k < 4; ++k)
    vThread.emplace_back([&, k] {
      for (std::size_t i = 0; i < vTriple.size(); ++i) {
        const Triple& t(vTriple[(i + 700 * k) % vTriple.size()]);
        if (kiroTest.getOrientation2(&t.a, &t.b, &t.c) != orientationOfSign(vOriSign[(i + 700 * k) % vTriple.size()]))
          ++vErrors[k];
        Quad& q(vQuad[(i + 500 * k) % vQuad.size()]);
        const Triangle2 tri(&q.a, &q.b, &q.c);
        if (kiroTest.circleInc3state(&tri, &q.d) != circleStateOfSign(vCircSign[(i + 500 * k) % vQuad.size()]))
          ++vErrors[k];
        const Point2 &a(vTriple[i].a), &b(vTriple[i].b), &c(vTriple[i].c);
        if (getOrientation2_mt(&a, &b, &c) != orientationOfSign(vOriSign[i])) ++vErrors[k];
      }
    });
  for (std::thread& th : vThread) th.join();
  for (int errors : vErrors) EXPECT_EQ(0, errors);
}
