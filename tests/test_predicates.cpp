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

/** Checks all six orders of the triple, and the free forms, against one
 * exact evaluation; the object's bound is raised first, as the
 * triangulation does. */
void expectExactOrientation(KiroTest& kiroTest, const Triple& t) {
  const Orientation2 expected(orientationOfSign(exactOrientationSign(t.a, t.b, t.c)));
  kiroTest.setStaticBound(&t.a, &t.b, &t.c);
  const Orientation2 aGot[8] = {kiroTest.getOrientation2(&t.a, &t.b, &t.c),
                                kiroTest.getOrientation2(&t.b, &t.c, &t.a),
                                kiroTest.getOrientation2(&t.c, &t.a, &t.b),
                                reversed(kiroTest.getOrientation2(&t.b, &t.a, &t.c)),
                                reversed(kiroTest.getOrientation2(&t.a, &t.c, &t.b)),
                                reversed(kiroTest.getOrientation2(&t.c, &t.b, &t.a)),
                                getOrientation2_mt(&t.a, &t.b, &t.c), getOrientation2(&t.a, &t.b, &t.c)};
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

/** A near-collinear triple of one of the scale families above. */
bool familyTriple(std::mt19937_64& gen, Triple& t) {
  const Family& f(aFamily[gen() % (sizeof(aFamily) / sizeof(aFamily[0]))]);
  const int exp(std::uniform_int_distribution<int>(f.minExp, f.maxExp)(gen));
  t = nearCollinear(gen, exp, familyOffset(gen, f), familyOffset(gen, f));
  return isFinitePoint(t.a) && isFinitePoint(t.b) && isFinitePoint(t.c);
}

/** A near-cocircular quadruple of one of the scale families above. */
bool familyQuad(std::mt19937_64& gen, Quad& q) {
  const Family& f(aFamily[gen() % (sizeof(aFamily) / sizeof(aFamily[0]))]);
  const int exp(std::uniform_int_distribution<int>(f.minExp, f.maxExp)(gen));
  return nearCocircular(gen, familyOffset(gen, f), familyOffset(gen, f), std::ldexp(uniform(gen, 0.5, 1.0), exp), q);
}

int uniformInt(std::mt19937_64& gen, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen); }

/** Puts a, b, c counter-clockwise; false when they are collinear. */
bool makeCcw(Quad& q) {
  const int ori(exactOrientationSign(q.a, q.b, q.c));
  if (ori < 0) std::swap(q.b, q.c);
  return ori != 0;
}

// Generators of adversarial triples and quadruples. Each yields false to skip
// a draw. Families marked exact-zero lie on a line (circle) exactly; families
// marked without-rationals must be settled before the rational stage.
struct TripleFamily {
  const char* name;
  std::function<bool(std::mt19937_64&, Triple&)> draw;
  bool bExactZero, bWithoutRationals;
};
struct QuadFamily {
  const char* name;
  std::function<bool(std::mt19937_64&, Quad&)> draw;
  bool bExactZero, bWithoutRationals;
};

const TripleFamily aTripleFamily[] = {
    {"near-collinear at every scale", familyTriple, false, false},
    {"mixed magnitudes",
     [](std::mt19937_64& gen, Triple& t) {
       Point2* aP[3] = {&t.a, &t.b, &t.c};
       for (Point2* p : aP) p->change(randomMagnitude(gen, -1000, 500), randomMagnitude(gen, -1000, 500));
       return true;
     },
     false, false},
    {"line through the origin, 1e-300 to 1e150",
     [](std::mt19937_64& gen, Triple& t) {
       const double slope(randomMagnitude(gen, -30, 30));
       const double x0(randomMagnitude(gen, -997, 498)), x1(randomMagnitude(gen, -997, 498));
       t = {Point2(0.0, 0.0), Point2(x0, ulpShift(x0 * slope, smallShift(gen))),
            Point2(x1, ulpShift(x1 * slope, smallShift(gen)))};
       return isFinitePoint(t.b) && isFinitePoint(t.c);
     },
     false, false},
    {"collinear grid points",
     [](std::mt19937_64& gen, Triple& t) {
       const double s(std::ldexp(1.0, uniformInt(gen, -1000, 900)));
       const double x0(uniformInt(gen, -1000, 1000) * s), y0(uniformInt(gen, -1000, 1000) * s);
       const double dx(uniformInt(gen, -50, 50) * s), dy(uniformInt(gen, -50, 50) * s);
       const int k1(uniformInt(gen, -20, 20)), k2(uniformInt(gen, -20, 20));
       t = {Point2(x0, y0), Point2(x0 + k1 * dx, y0 + k1 * dy), Point2(x0 + k2 * dx, y0 + k2 * dy)};
       return true;
     },
     true, false},
    {"collinear with inexact differences",
     [](std::mt19937_64& gen, Triple& t) {
       // y = s x with s a signed power of two or 3: the differences round,
       // so only the full expansion proves the zero.
       const double aSlope[4] = {1.0, -0.5, 3.0, 0x1p-20};
       const double slope(aSlope[gen() % 4]);
       double aX[3];
       for (double& x : aX) x = std::ldexp(std::floor(uniform(gen, -0x1p40, 0x1p40)), uniformInt(gen, -100, 20));
       t = {Point2(aX[0], slope * aX[0]), Point2(aX[1], slope * aX[1]), Point2(aX[2], slope * aX[2])};
       return true;
     },
     true, true},
    {"equal points, subnormal to the largest double",
     [](std::mt19937_64& gen, Triple& t) {
       const double v(gen() % 4 == 0 ? (gen() % 2 ? DBL_MAX : -DBL_MAX) : randomMagnitude(gen, -1074, 1023));
       t = {Point2(v, -v), Point2(v, -v), Point2(v, -v)};
       return true;
     },
     true, true},
    {"collinear small integers",
     [](std::mt19937_64& gen, Triple& t) {
       const int k(uniformInt(gen, -20, 20));
       t = {Point2(0, 0), Point2(3, 7), Point2(3 * k, 7 * k)};
       return true;
     },
     true, true},
};

const double aPythX[12] = {3, 4, 5, 4, 3, 0, -3, -4, -5, -4, -3, 0};
const double aPythY[12] = {4, 3, 0, -3, -4, -5, -4, -3, 0, 3, 4, 5};

Quad gridCellQuad(std::mt19937_64& gen, double divisor) {
  auto coord = [divisor](int i) { return i / divisor; };
  const int i(uniformInt(gen, 0, 996)), j(uniformInt(gen, 0, 996)), di(uniformInt(gen, 1, 2)), dj(uniformInt(gen, 1, 2));
  Quad q{Point2(coord(i), coord(j)), Point2(coord(i + di), coord(j)), Point2(coord(i + di), coord(j + dj)),
         Point2(coord(i + uniformInt(gen, 0, 2)), coord(j + uniformInt(gen, 0, 2)))};
  if (gen() % 2) std::swap(q.a, q.d); // not always the rectangle shortcut
  return q;
}

const QuadFamily aQuadFamily[] = {
    {"near-cocircular at every scale", familyQuad, false, false},
    {"mixed magnitudes",
     [](std::mt19937_64& gen, Quad& q) {
       Point2* aP[4] = {&q.a, &q.b, &q.c, &q.d};
       for (Point2* p : aP) p->change(randomMagnitude(gen, -600, 250), randomMagnitude(gen, -600, 250));
       return makeCcw(q);
     },
     false, false},
    {"isosceles trapezoids with inexact differences",
     [](std::mt19937_64& gen, Quad& q) {
       // (-a, h1), (a, h1), (b, h2), (-b, h2) are cocircular for all a, b, h1, h2.
       const double a(randomMagnitude(gen, -60, 10)), b(randomMagnitude(gen, -60, 10));
       const double h1(std::copysign(randomMagnitude(gen, -60, 10), uniform(gen, -1, 1)));
       const double h2(std::copysign(randomMagnitude(gen, -60, 10), uniform(gen, -1, 1)));
       Point2 aP[4] = {Point2(-a, h1), Point2(a, h1), Point2(b, h2), Point2(-b, h2)};
       if (gen() % 2)
         for (Point2& p : aP) p.change(p.y(), p.x());
       std::shuffle(aP, aP + 4, gen);
       q = {aP[0], aP[1], aP[2], aP[3]};
       return makeCcw(q);
     },
     true, true},
    {"integer grid cells",
     [](std::mt19937_64& gen, Quad& q) {
       q = gridCellQuad(gen, 1.0);
       return makeCcw(q);
     },
     false, true},
    {"grid cells scaled by 1/999",
     [](std::mt19937_64& gen, Quad& q) {
       q = gridCellQuad(gen, 999.0);
       return makeCcw(q);
     },
     false, true},
    {"pythagorean points on a circle of radius 5",
     [](std::mt19937_64& gen, Quad& q) {
       // Scaled by a power of two and moved by a representable offset they stay on it.
       const double s(std::ldexp(1.0, uniformInt(gen, -1060, 1000)));
       const double offX(uniformInt(gen, -100, 100) * s), offY(uniformInt(gen, -100, 100) * s);
       int aIdx[4];
       for (int& idx : aIdx) idx = uniformInt(gen, 0, 11);
       std::sort(aIdx, aIdx + 3);
       if (aIdx[0] == aIdx[1] || aIdx[1] == aIdx[2]) return false;
       Point2 aP[4];
       for (int k = 0; k < 4; ++k) aP[k] = Point2(offX + aPythX[aIdx[k]] * s, offY + aPythY[aIdx[k]] * s);
       q = {aP[0], aP[1], aP[2], aP[3]};
       return isFinitePoint(q.a) && isFinitePoint(q.b) && isFinitePoint(q.c) && isFinitePoint(q.d);
     },
     true, false},
    {"tiny coordinates whose products underflow",
     [](std::mt19937_64& gen, Quad& q) {
       const int exp(uniformInt(gen, -1074, -250));
       Point2* aP[4] = {&q.a, &q.b, &q.c, &q.d};
       for (Point2* p : aP) p->change(std::ldexp(uniform(gen, -1, 1), exp), std::ldexp(uniform(gen, -1, 1), exp));
       if (gen() % 2) q.a = Point2(randomMagnitude(gen, 0, 400), randomMagnitude(gen, 0, 400)); // one far corner
       return makeCcw(q);
     },
     false, false},
    {"special configurations",
     [](std::mt19937_64& gen, Quad& q) {
       const double big(std::ldexp(1.0, 1020)), tiny(std::ldexp(1.0, -1074));
       const Quad aSpecial[] = {
           {Point2(0, 0), Point2(1, 0), Point2(1, 1), Point2(0.5, 0.5)}, // centre
           {Point2(0, 0), Point2(1, 0), Point2(0, 1), Point2(1, 1)},     // rectangle corner
           {Point2(0, 0), Point2(1, 0), Point2(0, 1), Point2(0, 0)},     // a corner itself
           {Point2(-big, -big), Point2(big, -big), Point2(big, big), Point2(-big, big)},
           {Point2(-big, -big), Point2(big, -big), Point2(big, big), Point2(0, 0)},
           {Point2(0, 0), Point2(tiny, 0), Point2(0, tiny), Point2(tiny, tiny)},
           {Point2(0, 0), Point2(2 * tiny, 0), Point2(0, 2 * tiny), Point2(tiny, tiny)},
           {Point2(-1e300, 0), Point2(1e-300, -1e-300), Point2(1e300, 1e300), Point2(0, 1e-300)},
           {Point2(5, 0), Point2(3, 4), Point2(-4, 3), Point2(0, -5)}, // cocircular, no rectangle
       };
       q = aSpecial[gen() % (sizeof(aSpecial) / sizeof(aSpecial[0]))];
       return makeCcw(q);
     },
     false, false},
};

/** Runs check in the given rounding mode and expects the mode unchanged
 * afterwards: the predicates must answer exactly in every mode the caller
 * has set, and leave it as it was. */
template <class Check> void inRoundingMode(int mode, Check check) {
  ASSERT_EQ(0, std::fesetround(mode));
  check();
  const int after(std::fegetround());
  std::fesetround(FE_TONEAREST);
  ASSERT_EQ(mode, after) << "the caller's rounding mode was not restored";
}
const int aMode[4] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};

} // namespace

// ---------------------------------------------------------------------------
// Exactness against the rational oracle, in every rounding mode

TEST(OrientationExactness, AgreesWithRationalsOnEveryNearDegenerateFamily) {
  for (const TripleFamily& family : aTripleFamily) {
    SCOPED_TRACE(family.name);
    KiroTest kiroTest;
    std::mt19937_64 gen(1);
    const int numDraws(&family == aTripleFamily ? 80000 : 20000); // the scale families share the first
    for (int i = 0; i < numDraws; ++i) {
      Triple t;
      if (!family.draw(gen, t)) continue;
      if (family.bExactZero) ASSERT_EQ(0, exactOrientationSign(t.a, t.b, t.c));
      inRoundingMode(aMode[i % 4], [&] { expectExactOrientation(kiroTest, t); });
      if (HasFatalFailure()) return;
    }
    if (family.bWithoutRationals) EXPECT_EQ(0u, kiroTest.getCounters().orientExact);
  }
}

TEST(IncircleExactness, AgreesWithRationalsOnEveryNearDegenerateFamily) {
  for (const QuadFamily& family : aQuadFamily) {
    SCOPED_TRACE(family.name);
    KiroTest kiroTest;
    std::mt19937_64 gen(4);
    int numTested(0);
    const int numDraws(&family == aQuadFamily ? 80000 : 20000); // the scale families share the first
    for (int i = 0; i < numDraws; ++i) {
      Quad q;
      if (!family.draw(gen, q)) continue;
      if (family.bExactZero) ASSERT_EQ(0, exactIncircleSign(q.a, q.b, q.c, q.d));
      inRoundingMode(aMode[i % 4], [&] { expectExactIncircle(kiroTest, q); });
      if (HasFatalFailure()) return;
      ++numTested;
    }
    EXPECT_GT(numTested, 10000);
    if (family.bWithoutRationals) EXPECT_EQ(0u, kiroTest.getCounters().incircleExact);
  }
}

// ---------------------------------------------------------------------------
// Filter: stages, counters, constants

TEST(Filter, DecidesOrdinaryRandomInputWithoutTheExactStages) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1.0);
  std::vector<Point2> vPoint(vask_test::randomPoints(40000, 8));
  for (std::size_t i = 0; i + 3 < vPoint.size(); i += 4) {
    Point2 &a(vPoint[i]), &b(vPoint[i + 1]), &c(vPoint[i + 2]), &d(vPoint[i + 3]);
    const int ori(exactOrientationSign(a, b, c));
    ASSERT_EQ(orientationOfSign(ori), kiroTest.getOrientation2(&a, &b, &c));
    if (ori == 0) continue;
    Triangle2 t(&a, ori > 0 ? &b : &c, ori > 0 ? &c : &b);
    ASSERT_EQ(circleStateOfSign(exactIncircleSign(*t.getCorner(0), *t.getCorner(1), *t.getCorner(2), d)),
              kiroTest.circleInc3state(&t, &d));
  }
  EXPECT_LE(kiroTest.getCounters().orientSlow, 3u);
  EXPECT_LE(kiroTest.getCounters().incircleSlow, 3u);
  EXPECT_EQ(0u, kiroTest.getCounters().orientExact);
}

TEST(Filter, RectangleShortcutAndCheapTestOnTheCircle) {
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
  // A cocircular non-rectangle is settled by the expansion stage.
  KiroTest other;
  Point2 a(5, 0), b(3, 4), c(-4, 3);
  const Triangle2 t(&a, &b, &c);
  const Point2 centre(0, 0), onCircle(0, -5), farOut(100, 100);
  EXPECT_EQ(CINC2_ZERO, other.circleInc3state(&t, &onCircle));
  EXPECT_EQ(1u, other.getCounters().incircleExpansion);
  EXPECT_EQ(0u, other.getCounters().incircleExact);
  EXPECT_EQ(CINC2_INCIRCLE, other.circleInc3stateCheap(&t, &centre));
  EXPECT_EQ(CINC2_OUTCIRCLE, other.circleInc3stateCheap(&t, &farOut));
  EXPECT_EQ(0, other.circleInc3stateCheap(&t, &onCircle));
}

TEST(Filter, ConstantsAreTheirExactFormulas) {
  // c = 2 (ulp(2) + ulp(4)/2) + ulp(8)/2 = 3 * 2^-50 = 24 u with u = 2^-53.
  EXPECT_EQ(2.0 * (getUlp(2.0) + getUlp(4.0) * 0.5) + getUlp(8.0) * 0.5, KiroTest::staticBoundFactor);
  EXPECT_EQ(2.6645352591003757e-15, KiroTest::staticBoundFactor);
  // The floor must exceed the absolute error of subnormal products, 2^-1071.
  EXPECT_GE(KiroTest::underflowFloor, std::ldexp(1.0, -1071));
  // The in-circle margin covers the directed-rounding error 2 * (10u + 96u^2).
  const double u(std::ldexp(1.0, -53));
  EXPECT_GT(3.33e-15, 2.0 * (10.0 + 96.0 * u) * u);
  // Each expansion bound is a small polynomial in epsilon = 2^-53; recomputed
  // in rationals, every constant must be that value exactly (none rounds).
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

TEST(StaticBound, GrowsByAMarginOfTenNeverShrinksAndHasAFloor) {
  KiroTest kiroTest;
  EXPECT_EQ(0.0, kiroTest.getStaticBound());
  EXPECT_EQ(0.0, kiroTest.getMaxCoord());
  kiroTest.setStaticBound_MT(100.0);
  EXPECT_EQ(1000.0, kiroTest.getMaxCoord());
  EXPECT_EQ(2.6645352591003757e-15 * 1000000, kiroTest.getStaticBound());
  for (double ignored : {50.0, -1.0, INF}) {
    kiroTest.setStaticBound_MT(ignored);
    EXPECT_EQ(1000.0, kiroTest.getMaxCoord()) << ignored;
    EXPECT_EQ(2.6645352591003757e-15 * 1000000, kiroTest.getStaticBound()) << ignored;
  }
  const Point2 a(0, 0), b(1, 0), c(0, 1), d(INF, 1);
  kiroTest.updateStaticBound(&d);
  EXPECT_EQ(1000.0, kiroTest.getMaxCoord());
  kiroTest.resetCounters();
  EXPECT_EQ(ORIENTATION2_CCW, kiroTest.getOrientation2(&a, &b, &c));
  EXPECT_EQ(0u, kiroTest.getCounters().orientSlow) << "the filter still decides";
  kiroTest.setStaticBound_MT(2000.0);
  EXPECT_EQ(20000.0, kiroTest.getMaxCoord());
  testing::internal::CaptureStdout();
  EXPECT_THROW(kiroTest.setStaticBound_MT(NaN), VaskException);
  EXPECT_NE(std::string::npos, testing::internal::GetCapturedStdout().find("Condition [ maxCoord>=0 failed ]"));
  // Tiny coordinates get the underflow floor.
  KiroTest tiny;
  tiny.setStaticBound_MT(1e-200);
  EXPECT_EQ(KiroTest::underflowFloor, tiny.getStaticBound());
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

TEST(StaticBound, PointsBeyondTheBoundAreReportedAndStillDecidedExactly) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1.0);
  const Point2 a(0, 0), b(1e6, 1e6), c(2e6, ulpShift(2e6, 1));
  testing::internal::CaptureStdout();
  const Orientation2 got(kiroTest.getOrientation2(&a, &b, &c));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(ORIENTATION2_CCW, got);
  for (const char* text : {"Static bound: 2.66453525910038e-13", "max p0: 0", "max p1: 1000000", "max p2: 2000000",
                           "KiroTest::getOrientation2, WARNING: Recompute the static bound!"})
    EXPECT_NE(std::string::npos, out.find(text)) << text;
  // A point that is only far, not near-degenerate, is decided as well.
  const Point2 far(1e200, -1e200);
  testing::internal::CaptureStdout();
  EXPECT_EQ(ORIENTATION2_CW, kiroTest.getOrientation2(&a, &b, &far));
  testing::internal::GetCapturedStdout();
}

// ---------------------------------------------------------------------------
// Faults of use

TEST(FaultsOfUse, NonFiniteInputIsDegenerateAtOnceAndNullInputThrows) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1.0);
  Point2 a(0, 0), b(1, 0), c(0, 1);
  const Triangle2 t(&a, &b, &c);
  const Point2 aBad[] = {Point2(NaN, 0), Point2(0, NaN), Point2(INF, 1), Point2(1, -INF), Point2(INF, INF)};
  for (const Point2& bad : aBad) {
    EXPECT_EQ(ORIENTATION2_COLLINEAR, kiroTest.getOrientation2(&a, &b, &bad));
    EXPECT_EQ(ORIENTATION2_COLLINEAR, kiroTest.getOrientation2(&bad, &a, &b));
    EXPECT_EQ(ORIENTATION2_COLLINEAR, getOrientation2(&a, &bad, &b));
    EXPECT_EQ(ORIENTATION2_COLLINEAR, getOrientation2_mt(&a, &b, &bad));
    EXPECT_EQ(0, kiroTest.circleInc3stateCheap(&t, &bad));
    EXPECT_EQ(CINC2_ZERO, kiroTest.circleInc3state(&t, &bad));
    Point2 corner(bad);
    const Triangle2 badT(&corner, &b, &c);
    EXPECT_EQ(CINC2_ZERO, kiroTest.circleInc3state(&badT, &a));
  }
  EXPECT_EQ(0u, kiroTest.getCounters().orientExact);
  EXPECT_EQ(0u, kiroTest.getCounters().incircleExact);
  inRoundingMode(FE_UPWARD, [&] { kiroTest.getOrientation2(&a, &b, &aBad[0]); });
  // The shared object's bound is not poisoned by them.
  const Point2 near(0.5, 1e-9);
  EXPECT_EQ(ORIENTATION2_CCW, getOrientation2(&a, &b, &near));
  // Null points break the free forms' assertions.
  testing::internal::CaptureStdout();
  EXPECT_THROW(getOrientation2(nullptr, &b, &c), VaskException);
  EXPECT_THROW(getOrientation2(&a, nullptr, &c), VaskException);
  EXPECT_THROW(getOrientation2(&a, &b, nullptr), VaskException);
  EXPECT_THROW(getOrientation2_mt(nullptr, &b, &c), VaskException);
  EXPECT_THROW(getOrientation2_mt(&a, &b, nullptr), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  for (const char* text : {"Condition [ p0!=0 failed ]", "Condition [ p1!=0 failed ]", "Condition [ p2!=0 failed ]"})
    EXPECT_NE(std::string::npos, out.find(text)) << text;
}

TEST(Names, EnumeratorsPrintTheirNamesAndStrangersUnknown) {
  const std::vector<std::pair<const char*, const char*>> vCases = {
      {"ORIENTATION2_COLLINEAR", getString(ORIENTATION2_COLLINEAR)},
      {"ORIENTATION2_CCW", getString(ORIENTATION2_CCW)},
      {"ORIENTATION2_CW", getString(ORIENTATION2_CW)},
      {"UNKNOWN", getString(static_cast<Orientation2>(7))},
      {"CINC2_ZERO", getString(CINC2_ZERO)},
      {"CINC2_INCIRCLE", getString(CINC2_INCIRCLE)},
      {"CINC2_OUTCIRCLE", getString(CINC2_OUTCIRCLE)},
      {"UNKNOWN", getString(static_cast<CircleState2>(0))},
      {"IST_NOIS", getString(IST_NOIS)},
      {"IST_COLLINEAR", getString(IST_COLLINEAR)},
      {"IST_REGULAR", getString(IST_REGULAR)},
      {"UNKNOWN", getString(static_cast<IntersectionState2>(3))},
      {"COL", KiroTest::getShortString(ORIENTATION2_COLLINEAR)},
      {"CCW", KiroTest::getShortString(ORIENTATION2_CCW)},
      {"CW", KiroTest::getShortString(ORIENTATION2_CW)},
      {"unknown, this is a bug", KiroTest::getShortString(static_cast<Orientation2>(-1))},
  };
  for (const auto& c : vCases) EXPECT_STREQ(c.first, c.second);
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
