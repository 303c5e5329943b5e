// Value types of the kernel: copy semantics, equality, orderings, boxes and
// the walk around a vertex.
#include "Bbox2.h"
#include "Edge2.h"
#include "Point2.h"
#include "Predicates2.h"
#include "Segment2.h"
#include "Triangle2.h"
#include "TriangleAroundVertexIterator.h"
#include "VaskException.h"
#include "Vector2.h"
#include "VertexPair2.h"
#include "helpers/TestHelpers.h"
#include "kernel/KiroTest.h"
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <sstream>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

const double kMax(1.7976931348623157e308);

template <class T> std::string toString(const T& value) {
  std::ostringstream oss;
  oss << value;
  return oss.str();
}

} // namespace

// ---------------------------------------------------------------- points, vectors, segments, pairs

TEST(Point2, CopiesDropTheTriangleAndKeepTheCustomIndex) {
  Point2 a(1, 2), b(3, 4), c(5, 6);
  Triangle2 t;
  t.setProperties(&a, &b, &c);
  a.setCustomIndex(17);
  ASSERT_EQ(a.getIncidentTriangle(), &t);
  Point2 assigned(9, 9), viaSet;
  assigned.setIncidentTriangle(&t);
  assigned = a;
  viaSet.set(a);
  for (const Point2& copy : {Point2(a), assigned, viaSet, Segment2(a, b).getSrc()}) {
    EXPECT_EQ(copy.getIncidentTriangle(), nullptr);
    EXPECT_EQ(copy.getCustomIndex(), 17);
    EXPECT_EQ(copy, a);
  }
  // set(x, y, idx) clears the triangle, change(x, y) keeps it.
  b.set(7, 8, 3);
  EXPECT_EQ(b.getIncidentTriangle(), nullptr);
  EXPECT_EQ(b.getCustomIndex(), 3);
  c.change(10, 11);
  EXPECT_EQ(c.getIncidentTriangle(), &t);
  EXPECT_EQ(c, Point2(10, 11));
  const Point2 def;
  EXPECT_TRUE(def.x() == -kMax && def.y() == -kMax && def.getCustomIndex() == -1);
}

TEST(ValueTypes, EqualityIgnoresIndicesAndOrdersAreStrict) {
  Point2 a(1, 2), b(1, 2);
  a.setCustomIndex(1);
  b.setCustomIndex(2);
  EXPECT_TRUE(a == b && !(a != b));
  EXPECT_TRUE(Point2(0.0, 0.0) == Point2(-0.0, 0.0));
  const Point2 nanPoint(std::numeric_limits<double>::quiet_NaN(), 1.0);
  EXPECT_TRUE(!(nanPoint == nanPoint) && nanPoint != nanPoint);
  // Points: lexicographic, strict.
  struct Case {
    Point2 p, q;
    bool bLess, bGreater;
  };
  for (const Case& c : {Case{Point2(0, 5), Point2(1, 0), true, false}, Case{Point2(1, 0), Point2(1, 1), true, false},
                        Case{Point2(1, 1), Point2(1, 1), false, false}, Case{Point2(2, -1), Point2(1, 9), false, true},
                        Case{Point2(1, 2), Point2(1, 1), false, true}}) {
    EXPECT_EQ(c.p < c.q, c.bLess) << c.p << c.q;
    EXPECT_EQ(c.p > c.q, c.bGreater) << c.p << c.q;
  }
  // Segments: reversed ones are equal, but ordered by source, then target.
  const Segment2 ab(Point2(0, 0), Point2(1, 1)), ba(Point2(1, 1), Point2(0, 0));
  const Func_compareSegment less;
  EXPECT_TRUE(ab == ba && less(&ab, &ba) && !less(&ba, &ab) && !less(&ab, &ab));
  EXPECT_EQ((std::set<const Segment2*, Func_compareSegment>{&ab, &ba}.size()), 2u);
  const Segment2 s0(Point2(0, 0), Point2(5, 5)), s1(Point2(0, 0), Point2(6, 0)), s2(Point2(0, 1), Point2(-9, -9));
  EXPECT_TRUE(less(&s0, &s1) && !less(&s1, &s0)); // same source, target (5,5) < (6,0)
  EXPECT_TRUE(less(&s1, &s2) && !less(&s2, &s0)); // source (0,0) < (0,1) whatever the targets
  Segment2 swapped(ab);
  swapped.swapSrcTrg();
  EXPECT_TRUE(swapped.getSrc() == ab.getTrg() && swapped.getTrg() == ab.getSrc());
  // Vertex pairs: unordered, the smaller pointer first, usable as keys.
  Point2 pts[3] = {Point2(0, 0), Point2(3, 4), Point2(1, 1)};
  const VertexPair2 p01(&pts[0], &pts[1]), p10(&pts[1], &pts[0]);
  EXPECT_TRUE(p01 == p10 && !(p01 < p10));
  EXPECT_TRUE(p10.getFirst() == &pts[0] && p10.getSecond() == &pts[1]);
  EXPECT_EQ(p10.getSqLen2D(), 25.0);
  EXPECT_EQ((std::set<VertexPair2>{p01, p10, VertexPair2(&pts[2], &pts[1]), VertexPair2(&pts[1], &pts[2])}.size()), 2u);
  EXPECT_TRUE(VertexPair2(&pts[0], &pts[2]) < VertexPair2(&pts[1], &pts[2]));
}

TEST(ValueTypes, StreamOutputBeginsWithTheTypeName) {
  const std::pair<std::string, std::string> aCase[] = {
      {toString(Point2(1.5, -2)), "Point2 ("},
      {toString(Vector2(1, 2)), "Vector2: "},
      {toString(Segment2(Point2(0, 0), Point2(1, 1))), "Segment2 ("},
  };
  for (const auto& c : aCase)
    EXPECT_EQ(c.first.rfind(c.second, 0), 0u) << c.first;
  EXPECT_NE(aCase[0].first.find("(customIndex=-1"), std::string::npos) << aCase[0].first;
}

TEST(Vector2, OrthogonalVectorIsUnitAndStandsToTheLeftAtAnyScale) {
  EXPECT_EQ(Vector2(0, 0).orthogonalVector().x(), 0.0);
  EXPECT_EQ(Vector2(0, 0).orthogonalVector().y(), 0.0);
  std::mt19937_64 gen(7);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> expo(-300, 300);
  const Point2 origin(0, 0);
  for (int i = 0; i < 2000; ++i) {
    const int e(expo(gen));
    const Vector2 v(i < 4 ? Vector2(i % 2, 1 - i % 2) * (i < 2 ? 1.0 : -5.0)
                          : Vector2(std::ldexp(mant(gen), e), std::ldexp(mant(gen), e + (i % 7) - 3)));
    if (v.isDegenerate()) continue;
    const Vector2 w(v.orthogonalVector());
    EXPECT_NEAR(w.length(), 1.0, 1e-15);
    const Point2 tip(v.x(), v.y()), tipW(w.x(), w.y());
    EXPECT_EQ(getOrientation2(&origin, &tip, &tipW), ORIENTATION2_CCW);
    EXPECT_NEAR((v / v.length()) * w, 0.0, 4e-16);
  }
  EXPECT_FALSE(Vector2(0, 1e-320).isDegenerate());
}

// ---------------------------------------------------------------- Edge2

namespace {
// Two triangles over the diagonal (0,0)-(2,2) of a square of side 2:
//
//   d(0,2) ---- c(2,2)
//     |  tU   /   |
//     |     /     |
//     |   /   tL  |
//   a(0,0) ---- b(2,0)
//
// tL = (a,b,c), tU = (a,c,d); tL's neighbour 1 (across c-a) is tU, tU's
// neighbour 2 (across a-c) is tL.
struct TwoTriangles {
  Point2 a{0, 0}, b{2, 0}, c{2, 2}, d{0, 2};
  Triangle2 tL, tU;
  TwoTriangles() {
    tL.setPropertiesAndOppT(&a, &b, &c, nullptr, &tU, nullptr);
    tU.setPropertiesAndOppT(&a, &c, &d, nullptr, nullptr, &tL);
  }
};
} // namespace

TEST(Edge2, EndPointsTrianglesOnBothSidesAndOrderByTriangleThenIndex) {
  TwoTriangles m;
  // Each row: an edge, its ends, its squared length and the triangle and
  // index on its other side (none: the hull).
  struct Case {
    Edge2 e;
    Point2 *pSrc, *pTrg;
    double sqLen;
    Triangle2* pOther;
    int otherIdx;
  };
  for (const Case& c :
       {Case{Edge2(&m.tL, 2), &m.a, &m.b, 4.0, nullptr, -1}, Case{Edge2(&m.tL, 1), &m.c, &m.a, 8.0, &m.tU, 2},
        Case{Edge2(&m.tU, 2), &m.a, &m.c, 8.0, &m.tL, 1}}) {
    EXPECT_TRUE(c.e.getSrc() == c.pSrc && c.e.getTrg() == c.pTrg && c.e.getLength2D() == c.sqLen);
    Triangle2 *t0(nullptr), *t1(&m.tU);
    int i0(9), i1(9);
    c.e.getTriangles(t0, t1, i0, i1);
    EXPECT_TRUE(t0 == c.e.getTriangle() && i0 == c.e.getIndex() && t1 == c.pOther && i1 == c.otherIdx);
  }
  // The twins are different edges; equality and order use the triangle, then the index.
  EXPECT_NE(Edge2(&m.tL, 1), Edge2(&m.tU, 2));
  EXPECT_TRUE(Edge2(&m.tL, 1) == Edge2(&m.tL, 1) && Edge2(&m.tL, 1) != Edge2(&m.tL, 2));
  EXPECT_TRUE(Edge2(&m.tL, 0) < Edge2(&m.tL, 1));
  Triangle2* pLow(&m.tL < &m.tU ? &m.tL : &m.tU);
  Triangle2* pHigh(&m.tL < &m.tU ? &m.tU : &m.tL);
  EXPECT_TRUE(Edge2(pLow, 2) < Edge2(pHigh, 0) && !(Edge2(pHigh, 0) < Edge2(pLow, 2)));
  // Index searches by corner, neighbour and edge in either direction.
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.c), 2);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.tU), 1);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.b, &m.a), 2);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.c, &m.b), 0);
  EXPECT_TRUE(m.tL.hasVertex(Point2(2, 0)) && !m.tL.hasVertex(&m.d)); // by coordinates and by pointer
}

#ifdef NDEBUG
TEST(Triangle2, FailedSearchesYieldFallbacksInReleaseBuild) {
  TwoTriangles m;
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.d), 0);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.tL), 0);
  testing::internal::CaptureStdout();
  const int idx(m.tL.getIntraTriangleIndex(&m.a, &m.d));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(idx, -1);
  EXPECT_EQ(out.rfind("BUG: Triangle2::getIntraTriangleIndex failed for", 0), 0u) << out;
}
#endif

TEST(Triangle2, CheckedPredecessorRejectsIndicesOutsideRange) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(incIndexBy2Checked(i), (i + 2) % 3);
    EXPECT_EQ(incIndexBy2(incIndexBy1(i)), i);
  }
  testing::internal::CaptureStdout();
  EXPECT_THROW(incIndexBy2Checked(3), VaskException);
  EXPECT_THROW(incIndexBy2Checked(-1), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("num>=0 && num<3"), std::string::npos) << out;
}

// ---------------------------------------------------------------- Bbox2

TEST(Bbox2, EveryAddFormAgreesAndReportsChangesOnly) {
  Bbox2 empty;
  double coords[2] = {1, 1};
  std::vector<Point2> none;
  EXPECT_FALSE(empty.add(0u, coords) || empty.add(none.cbegin(), none.cend()));
  EXPECT_FALSE(empty.isValid() || empty.isInBox(Point2(0, 0)));
  EXPECT_TRUE(empty.get_minX() == kMax && empty.get_maxY() == -kMax);
  Bbox2 box;
  // true only when the box changes: inside and on the corner it does not.
  for (const std::pair<Point2, bool>& c :
       {std::make_pair(Point2(1, 2), true), std::make_pair(Point2(3, -1), true), std::make_pair(Point2(2, 0), false),
        std::make_pair(Point2(3, 2), false), std::make_pair(Point2(0, 0.5), true)})
    EXPECT_EQ(box.add(c.first), c.second) << c.first;
  double minX, maxX, minY, maxY;
  box.getBounds(minX, maxX, minY, maxY);
  EXPECT_EQ(std::vector<double>({minX, maxX, minY, maxY}), std::vector<double>({0, 3, -1, 2}));
  std::vector<Point2> vPoints(vask_test::randomPoints(200, 3));
  std::vector<Point2*> vPointers;
  std::vector<double> vCoords;
  for (Point2& p : vPoints) {
    p = Point2(2e6 * p.x() - 1e6, 2e6 * p.y() - 1e6);
    vPointers.push_back(&p);
    vCoords.insert(vCoords.end(), {p.x(), p.y()});
  }
  Bbox2 one, byValue, byPointer, byArray;
  for (const Point2& p : vPoints)
    one.add(p);
  EXPECT_TRUE(byValue.add(vPoints.cbegin(), vPoints.cend()));
  EXPECT_TRUE(byPointer.add(vPointers.cbegin(), vPointers.cend()));
  EXPECT_TRUE(byArray.add(static_cast<unsigned>(vPoints.size()), vCoords.data()));
  for (const Bbox2* pBox : {&byValue, &byPointer, &byArray})
    EXPECT_TRUE(pBox->getMinPoint() == one.getMinPoint() && pBox->getMaxPoint() == one.getMaxPoint());
  for (const Point2& p : vPoints)
    EXPECT_TRUE(byArray.isInBox(p));
  EXPECT_FALSE(byArray.add(static_cast<unsigned>(vPoints.size()), vCoords.data()));
  EXPECT_FALSE(byValue.add(vPoints.cbegin(), vPoints.cend()));
}

TEST(Bbox2, PlusGrowsTheLeftBoxAndInvalidBoxesWarnWithoutStopping) {
  Bbox2 a, b, empty, fresh;
  a.add(Point2(0, 0));
  a.add(Point2(1, 1));
  b.add(Point2(-2, 0.5));
  b.add(Point2(0.5, 3));
  const Bbox2 sum(a + b);
  EXPECT_TRUE(a.getMinPoint() == Point2(-2, 0) && a.getMaxPoint() == Point2(1, 3));
  EXPECT_EQ(sum.getMaxPoint(), a.getMaxPoint());
  EXPECT_EQ(b.getMinPoint(), Point2(-2, 0.5)); // right operand untouched
  // Onto an invalid left box the bounds are copied but not the flag: flag
  // based tests stay false until the next add.
  fresh + b;
  EXPECT_TRUE(fresh.getMinPoint() == b.getMinPoint() && fresh.getMaxPoint() == b.getMaxPoint());
  EXPECT_FALSE(fresh.isInBox(Point2(0, 1)));
  // Each warning with its place; none stops the call.
  const std::pair<std::function<void()>, std::pair<const char*, const char*>> aCase[] = {
      {[&] { a + empty; }, {"trying to add an invalid Bbox2", "Box2::operator+()"}},
      {[&] { EXPECT_FALSE(fresh.doIntersect(b)); }, {"bbox invalid", "Bbox2::doIntersect()"}},
      {[&] { Bbox2().computeCenter(); }, {"Bbox2 is invalid", "Bbox2::computeCenter()"}},
  };
  for (const auto& c : aCase) {
    testing::internal::CaptureStdout();
    c.first();
    const std::string out(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find(c.second.first), std::string::npos) << out;
    EXPECT_NE(out.find(c.second.second), std::string::npos) << out;
  }
  EXPECT_EQ(a.getMaxPoint(), Point2(1, 3));
  // The next add sets the flag and keeps the copied bounds as well as the point.
  EXPECT_TRUE(fresh.add(Point2(5, 0)));
  EXPECT_TRUE(fresh.getMinPoint() == Point2(-2, 0) && fresh.getMaxPoint() == Point2(5, 3));
  EXPECT_TRUE(fresh.isInBox(Point2(0, 1)) && fresh.doIntersect(b));
}

TEST(Bbox2, MeasuresCornersCenterAndClosedInclusion) {
  Bbox2 box;
  box.add(Point2(-1, 2));
  box.add(Point2(3, 3));
  EXPECT_EQ(
      std::vector<double>({box.getRangeX(), box.getRangeY(), box.getMaxRange(), box.getMinCoord(), box.getMaxCoord()}),
      std::vector<double>({4, 1, 4, -1, 3}));
  EXPECT_EQ(box.computeCenter(), Point2(1, 2.5));
  std::vector<Point2> vCorners(1, Point2(9, 9));
  box.getCorners(vCorners); // appended
  EXPECT_EQ(vCorners, (std::vector<Point2>{Point2(9, 9), Point2(-1, 2), Point2(3, 2), Point2(3, 3), Point2(-1, 3)}));
  std::vector<Point2> vOffset;
  box.getOffsetCorners(0.5, vOffset);
  ASSERT_EQ(vOffset.size(), 4u);
  EXPECT_TRUE(vOffset[0] == Point2(-1.5, 1.5) && vOffset[2] == Point2(3.5, 3.5));
  Bbox2 huge;
  huge.add(Point2(1e308, 1e308));
  huge.add(Point2(1.7e308, 1.7e308));
  EXPECT_EQ(huge.computeCenter(), Point2(1.35e308, 1.35e308));
  Bbox2 a, b, c;
  a.add(Point2(0, 0));
  a.add(Point2(1, 1));
  b.add(Point2(1, 1)); // touches a at a corner
  b.add(Point2(2, 2));
  c.add(Point2(1.5, -1));
  c.add(Point2(3, 0.5));
  EXPECT_TRUE(a.isInBox(Point2(1, 0)) && a.isInBox(Point2(0.5, 1)));
  EXPECT_FALSE(a.isInBox(Point2(1, 1.0000001)));
  EXPECT_TRUE(a.doIntersect(b) && b.doIntersect(a));
  EXPECT_FALSE(a.doIntersect(c) || c.doIntersect(a));
  EXPECT_FALSE(b.doIntersect(c)); // x overlaps, y does not
}

TEST(Bbox2, GrowingKeepsTheCenterAndRaisesThePredicatesBound) {
  // Each row: a box, the growth, the box after it and the largest absolute
  // coordinate the predicates object must then know about.
  struct Case {
    Point2 lo, hi;
    double factor; // 0: doubleTheBox
    Point2 loAfter, hiAfter;
    double bound;
  };
  KiroTest kiroTest;
  for (const Case& c : {Case{Point2(-10, 0), Point2(1, 1), 0, Point2(-15.5, -0.5), Point2(6.5, 1.5), 15.5},
                        Case{Point2(1e12, 2e12), Point2(3e12, 4e12), 0, Point2(0, 1e12), Point2(4e12, 5e12), 5e12},
                        Case{Point2(0, 0), Point2(4, 2), 3.0, Point2(-4, -2), Point2(8, 4), 5e12}}) {
    Bbox2 box(&kiroTest);
    box.add(c.lo);
    box.add(c.hi);
    if (c.factor == 0)
      box.doubleTheBox();
    else
      box.enlargeRanges(c.factor);
    EXPECT_EQ(box.getMinPoint(), c.loAfter);
    EXPECT_EQ(box.getMaxPoint(), c.hiAfter);
    KiroTest reference;
    reference.setStaticBound_MT(c.bound); // the bound only grows
    EXPECT_EQ(kiroTest.getMaxCoord(), reference.getMaxCoord());
    EXPECT_EQ(kiroTest.getStaticBound(), reference.getStaticBound());
  }
  // Degenerate boxes grow on the maximum side only; a proper one not at all.
  for (const Case& c : {Case{Point2(2, 3), Point2(2, 3), 0.5, Point2(2, 3), Point2(2.5, 3.5), 0},
                        Case{Point2(0, 1), Point2(4, 1), 2, Point2(0, 1), Point2(4, 3), 0},
                        Case{Point2(0, 1), Point2(4, 2), 2, Point2(0, 1), Point2(4, 2), 0}}) {
    Bbox2 box;
    box.add(c.lo);
    box.add(c.hi);
    box.inflateIfDegenerate(c.factor);
    EXPECT_TRUE(box.getMinPoint() == c.loAfter && box.getMaxPoint() == c.hiAfter) << c.hi;
  }
  KiroTest fresh, reference;
  Bbox2 enlarged(&fresh);
  enlarged.add(Point2(0, 0));
  enlarged.add(Point2(4, 2));
  enlarged.enlargeRanges(3.0);
  reference.setStaticBound_MT(8.0);
  EXPECT_EQ(fresh.getMaxCoord(), reference.getMaxCoord());
  // Without a predicates object and on an empty box doubling is harmless.
  Bbox2 detached, empty(&kiroTest);
  detached.add(Point2(0, 0));
  detached.add(Point2(2, 2));
  detached.doubleTheBox();
  EXPECT_EQ(detached.getMinPoint(), Point2(-1, -1));
  empty.doubleTheBox();
  empty.inflateIfDegenerate(1);
  EXPECT_FALSE(empty.isValid());
}

// ---------------------------------------------------------------- TriangleAroundVertexIterator

namespace {
// A fan of n triangles around a centre at the origin, corners on the unit
// circle at angles k * sweep / n. Triangle k is (centre, ring k, ring k+1):
// its neighbour 1 (across ring k+1 - centre) is triangle k+1, its neighbour 2
// (across centre - ring k) is triangle k-1, and neighbour 0 is the hull. A
// sweep of 360 degrees closes the fan, and the centre is an inner vertex.
struct Fan {
  Point2 centre{0, 0};
  std::vector<Point2> vRing;
  std::vector<Triangle2> vT;
  Fan(int n, double sweepDegrees) : vRing(n + 1), vT(n) {
    const bool bClosed(sweepDegrees == 360.0);
    for (int k = 0; k <= n; ++k) {
      const double phi(sweepDegrees * k / n * M_PI / 180.0);
      vRing[k] = Point2(std::cos(phi), std::sin(phi));
    }
    for (int k = 0; k < n; ++k) {
      Point2* pNext(bClosed && k + 1 == n ? &vRing[0] : &vRing[k + 1]);
      Triangle2* pCCW(k + 1 < n ? &vT[k + 1] : (bClosed ? &vT[0] : nullptr));
      Triangle2* pCW(k > 0 ? &vT[k - 1] : (bClosed ? &vT[n - 1] : nullptr));
      vT[k].setPropertiesAndOppT(&centre, &vRing[k], pNext, nullptr, pCCW, pCW);
    }
  }
  int indexOf(const Triangle2* pT) const { return pT == nullptr ? -1 : static_cast<int>(pT - vT.data()); }
};
} // namespace

TEST(TriangleAroundVertexIterator, WalksTheFanBothWaysWithNullAtTheHull) {
  // Each row: a fan, the vertex and the start triangle (-1: the vertex's
  // own), the triangles seen stepping forward and stepping backward.
  struct Case {
    const char* name;
    int n;
    double sweep;
    int vertex; // -1: the centre, else ring index
    int start;
    std::vector<int> vForward, vBackward;
  };
  const Case aCase[] = {
      {"inner vertex", 6, 360.0, -1, 2, {2, 3, 4, 5, 0, 1, 2, 3, 4, 5, 0, 1}, {2, 1, 0, 5, 4, 3, 2, 1, 0, 5, 4, 3}},
      {"hull vertex", 4, 180.0, -1, 1, {1, 2, 3, -1, 0, 1, 2, 3, -1, 0, 1}, {1, 0, -1, 3, 2, 1, 0, -1, 3, 2, 1}},
      {"ring vertex of a closed fan", 5, 360.0, 2, 1, {1, -1, 2, 1, -1, 2}, {1, 2, -1, 1, 2, -1}},
      {"vertex of a single triangle", 4, 180.0, 0, 0, {0, -1, 0, -1, 0}, {0, -1, 0, -1, 0}},
  };
  for (const Case& c : aCase) {
    SCOPED_TRACE(c.name);
    Fan fan(c.n, c.sweep);
    Point2* pVtx(c.vertex < 0 ? &fan.centre : &fan.vRing[c.vertex]);
    pVtx->setIncidentTriangle(&fan.vT[c.start]);
    TriangleAroundVertexIterator forward(pVtx), backward(pVtx, &fan.vT[c.start]);
    const TriangleAroundVertexIterator start(forward);
    std::vector<int> vForward, vBackward;
    for (std::size_t i = 0; i < c.vForward.size(); ++i, ++forward) vForward.push_back(fan.indexOf(*forward));
    for (std::size_t i = 0; i < c.vBackward.size(); ++i, --backward) vBackward.push_back(fan.indexOf(*backward));
    EXPECT_EQ(vForward, c.vForward);
    EXPECT_EQ(vBackward, c.vBackward);
    EXPECT_EQ(fan.indexOf(start.previewNextTriangle()), c.vForward[1]); // preview does not move
  }
}

TEST(TriangleAroundVertexIterator, EqualityIgnoresSavedTriangleAndBadStartsThrow) {
  Fan fan(4, 180.0);
  TriangleAroundVertexIterator a(&fan.centre, &fan.vT[1]), b(&fan.centre, &fan.vT[2]);
  --b; // now on triangle 1 with triangle 2 saved
  EXPECT_TRUE(a == b && *a == &fan.vT[1]);
  EXPECT_TRUE(a.previewNextTriangle() == &fan.vT[2] && a.previewPrevTriangle() == &fan.vT[0]);
  TriangleAroundVertexIterator other(&fan.vRing[1], &fan.vT[1]);
  EXPECT_TRUE(a != other); // same triangle, other vertex
  other = a;
  EXPECT_TRUE(other == a);
  const Point2 lonely(1, 1);
  testing::internal::CaptureStdout();
  EXPECT_THROW(TriangleAroundVertexIterator it(&lonely), VaskException);
  EXPECT_THROW(TriangleAroundVertexIterator it(&fan.centre, nullptr), VaskException);
  TriangleAroundVertexIterator it(&fan.centre, &fan.vT[3]);
  ++it; // off the end: null
  EXPECT_THROW(TriangleAroundVertexIterator copy(it), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("pTr!=NULL"), std::string::npos) << out;
}
