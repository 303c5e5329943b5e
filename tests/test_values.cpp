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
#include "kernel/KiroTest.h"
#include <gtest/gtest.h>

#include <cmath>
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

// ---------------------------------------------------------------- Point2

TEST(Point2, CopyOfVertexIsFreePointWithSameCustomIndex) {
  Point2 a(1, 2), b(3, 4), c(5, 6);
  Triangle2 t;
  t.setProperties(&a, &b, &c);
  a.setCustomIndex(17);
  ASSERT_EQ(a.getIncidentTriangle(), &t);

  const Point2 copy(a);
  EXPECT_EQ(copy.getIncidentTriangle(), nullptr);
  EXPECT_EQ(copy.getCustomIndex(), 17);
  EXPECT_EQ(copy, a);

  Point2 assigned(9, 9);
  assigned.setIncidentTriangle(&t);
  assigned = a;
  EXPECT_EQ(assigned.getIncidentTriangle(), nullptr);
  EXPECT_EQ(assigned.getCustomIndex(), 17);

  Point2 viaSet;
  viaSet.set(a);
  EXPECT_EQ(viaSet.getIncidentTriangle(), nullptr);
  EXPECT_EQ(viaSet.getCustomIndex(), 17);

  // set(x, y, idx) clears the triangle, change(x, y) keeps it.
  b.set(7, 8, 3);
  EXPECT_EQ(b.getIncidentTriangle(), nullptr);
  EXPECT_EQ(b.getCustomIndex(), 3);
  c.change(10, 11);
  EXPECT_EQ(c.getIncidentTriangle(), &t);
  EXPECT_EQ(c, Point2(10, 11));
}

TEST(Point2, DefaultIsLowestCornerWithoutIndex) {
  const Point2 p;
  EXPECT_EQ(p.x(), -kMax);
  EXPECT_EQ(p.y(), -kMax);
  EXPECT_EQ(p.getCustomIndex(), -1);
  EXPECT_EQ(p.getIncidentTriangle(), nullptr);
  EXPECT_EQ(Point2(-3, 2).getMaxAbs(), 3.0);
}

TEST(Point2, EqualityIgnoresCustomIndexAndNaNIsUnequalToItself) {
  Point2 a(1, 2), b(1, 2);
  a.setCustomIndex(1);
  b.setCustomIndex(2);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  EXPECT_TRUE(Point2(0.0, 0.0) == Point2(-0.0, 0.0));

  const Point2 nanPoint(std::numeric_limits<double>::quiet_NaN(), 1.0);
  EXPECT_FALSE(nanPoint == nanPoint);
  EXPECT_TRUE(nanPoint != nanPoint);
}

TEST(Point2, OrderIsLexicographicAndStrict) {
  EXPECT_TRUE(Point2(0, 5) < Point2(1, 0));
  EXPECT_TRUE(Point2(1, 0) < Point2(1, 1));
  EXPECT_FALSE(Point2(1, 1) < Point2(1, 1));
  EXPECT_FALSE(Point2(1, 1) > Point2(1, 1));
  EXPECT_TRUE(Point2(2, -1) > Point2(1, 9));
  EXPECT_TRUE(Point2(1, 2) > Point2(1, 1));
}

TEST(Point2, ArithmeticWithVectorsAndStreamOutput) {
  const Point2 p(1, 2), q(4, 6);
  const Vector2 v(q - p);
  EXPECT_EQ(v.x(), 3.0);
  EXPECT_EQ(v.y(), 4.0);
  EXPECT_EQ(p + v, q);
  EXPECT_EQ(q - v, p);
  EXPECT_EQ(sqDistance2D(p, q), 25.0);

  const std::string s(toString(Point2(1.5, -2)));
  EXPECT_EQ(s.rfind("Point2 (", 0), 0u) << s;
  EXPECT_NE(s.find("1.5"), std::string::npos) << s;
  EXPECT_NE(s.find("(customIndex=-1"), std::string::npos) << s;
}

// ---------------------------------------------------------------- Vector2

TEST(Vector2, OrthogonalVectorOfAxesAndNullVector) {
  const Vector2 z(Vector2(0, 0).orthogonalVector());
  EXPECT_EQ(z.x(), 0.0);
  EXPECT_EQ(z.y(), 0.0);
  const Vector2 ox(Vector2(1, 0).orthogonalVector());
  EXPECT_EQ(ox.x(), 0.0);
  EXPECT_EQ(ox.y(), 1.0);
  const Vector2 oy(Vector2(0, 1).orthogonalVector());
  EXPECT_EQ(oy.x(), -1.0);
  EXPECT_EQ(oy.y(), 0.0);
  const Vector2 oneg(Vector2(-5, 0).orthogonalVector());
  EXPECT_EQ(oneg.x(), 0.0);
  EXPECT_EQ(oneg.y(), -1.0);
}

TEST(Vector2, OrthogonalVectorIsUnitAndStandsToTheLeftAtAnyScale) {
  std::mt19937_64 gen(7);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> expo(-300, 300);
  const Point2 origin(0, 0);
  for (int i = 0; i < 2000; ++i) {
    const int e(expo(gen));
    const Vector2 v(std::ldexp(mant(gen), e), std::ldexp(mant(gen), e + (i % 7) - 3));
    if (v.isDegenerate()) continue;
    const Vector2 w(v.orthogonalVector());
    EXPECT_NEAR(w.length(), 1.0, 1e-15);
    const Point2 tip(v.x(), v.y()), tipW(w.x(), w.y());
    EXPECT_EQ(getOrientation2(&origin, &tip, &tipW), ORIENTATION2_CCW);
    const Vector2 unitV(v / v.length());
    EXPECT_NEAR(unitV * w, 0.0, 4e-16);
  }
}

TEST(Vector2, BasicOperationsAndStreamOutput) {
  const Vector2 a(3, 4), b(1, -2);
  EXPECT_EQ(a.sqLength(), 25.0);
  EXPECT_EQ(a.length(), 5.0);
  EXPECT_EQ(a * b, -5.0);
  EXPECT_EQ((a + b).x(), 4.0);
  EXPECT_EQ((a - b).y(), 6.0);
  EXPECT_EQ((-a).x(), -3.0);
  EXPECT_EQ((2.0 * a).y(), 8.0);
  EXPECT_EQ((a / 2.0).x(), 1.5);
  EXPECT_TRUE(Vector2().isDegenerate());
  EXPECT_FALSE(Vector2(0, 1e-320).isDegenerate());
  EXPECT_EQ(toString(Vector2(1, 2)).rfind("Vector2: ", 0), 0u);
}

// ---------------------------------------------------------------- Segment2

TEST(Segment2, ReversedSegmentsAreEqualButOrderedByTheComparator) {
  const Point2 a(0, 0), b(1, 1);
  const Segment2 ab(a, b), ba(b, a);
  EXPECT_TRUE(ab == ba);

  const Func_compareSegment less;
  EXPECT_TRUE(less(&ab, &ba));
  EXPECT_FALSE(less(&ba, &ab));
  EXPECT_FALSE(less(&ab, &ab));

  std::set<const Segment2*, Func_compareSegment> segments;
  segments.insert(&ab);
  segments.insert(&ba);
  EXPECT_EQ(segments.size(), 2u);
  EXPECT_EQ(*segments.begin(), &ab);
}

TEST(Segment2, ComparatorDecidesBySourceThenTarget) {
  const Func_compareSegment less;
  const Segment2 s0(Point2(0, 0), Point2(5, 5)), s1(Point2(0, 0), Point2(6, 0)), s2(Point2(0, 1), Point2(-9, -9));
  EXPECT_TRUE(less(&s0, &s1)); // same source, target (5,5) < (6,0)
  EXPECT_FALSE(less(&s1, &s0));
  EXPECT_TRUE(less(&s1, &s2)); // source (0,0) < (0,1) whatever the targets
  EXPECT_FALSE(less(&s2, &s0));
}

TEST(Segment2, CopiesDropTrianglesAndSwapExchangesEnds) {
  Point2 a(0, 0), b(3, 0), c(0, 4);
  Triangle2 t;
  t.setProperties(&a, &b, &c);
  Segment2 seg(b, c);
  EXPECT_EQ(seg.getSrc().getIncidentTriangle(), nullptr);
  EXPECT_EQ(seg.getSqLen2D(), 25.0);
  seg.swapSrcTrg();
  EXPECT_EQ(seg.getSrc(), c);
  EXPECT_EQ(seg.getTrg(), b);
  EXPECT_EQ(toString(seg).rfind("Segment2 (", 0), 0u);
  const Segment2 def;
  EXPECT_EQ(def.getSrc(), Point2());
}

// ---------------------------------------------------------------- VertexPair2

TEST(VertexPair2, IsUnorderedAndUsableAsKey) {
  Point2 pts[3] = {Point2(0, 0), Point2(3, 4), Point2(1, 1)};
  const VertexPair2 p01(&pts[0], &pts[1]), p10(&pts[1], &pts[0]);
  EXPECT_TRUE(p01 == p10);
  EXPECT_EQ(p10.getFirst(), &pts[0]);
  EXPECT_EQ(p10.getSecond(), &pts[1]);
  EXPECT_EQ(p10.getSqLen2D(), 25.0);

  std::set<VertexPair2> pairs{p01, p10, VertexPair2(&pts[2], &pts[1]), VertexPair2(&pts[1], &pts[2])};
  EXPECT_EQ(pairs.size(), 2u);
  EXPECT_TRUE(VertexPair2(&pts[0], &pts[2]) < VertexPair2(&pts[1], &pts[2]));
  EXPECT_FALSE(p01 < p10);

  VertexPair2 assigned;
  EXPECT_EQ(assigned.getFirst(), nullptr);
  assigned = p10;
  EXPECT_TRUE(assigned == p01);
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

TEST(Edge2, EndPointsLengthAndTrianglesOnBothSides) {
  TwoTriangles m;
  const Edge2 bottom(&m.tL, 2); // opposite c: from a to b
  EXPECT_EQ(bottom.getSrc(), &m.a);
  EXPECT_EQ(bottom.getTrg(), &m.b);
  EXPECT_EQ(bottom.getLength2D(), 4.0); // length 2, squared
  Point2 *pSrc(nullptr), *pTrg(nullptr);
  bottom.getPoints(pSrc, pTrg);
  EXPECT_EQ(pSrc, &m.a);
  EXPECT_EQ(pTrg, &m.b);

  Triangle2 *t0(nullptr), *t1(&m.tU);
  int i0(9), i1(9);
  bottom.getTriangles(t0, t1, i0, i1);
  EXPECT_EQ(t0, &m.tL);
  EXPECT_EQ(i0, 2);
  EXPECT_EQ(t1, nullptr);
  EXPECT_EQ(i1, -1);

  const Edge2 diagonal(&m.tL, 1); // from c to a, tU on the other side
  EXPECT_EQ(diagonal.getLength2D(), 8.0);
  diagonal.getTriangles(t0, t1, i0, i1);
  EXPECT_EQ(t0, &m.tL);
  EXPECT_EQ(t1, &m.tU);
  EXPECT_EQ(i1, 2);
  // The same undirected edge seen from the other side is reversed and different.
  const Edge2 twin(t1, i1);
  EXPECT_EQ(twin.getSrc(), diagonal.getTrg());
  EXPECT_EQ(twin.getTrg(), diagonal.getSrc());
  EXPECT_NE(twin, diagonal);
}

TEST(Edge2, EqualityAndOrderUseTriangleThenIndex) {
  TwoTriangles m;
  const Edge2 def;
  EXPECT_EQ(def.getTriangle(), nullptr);
  EXPECT_EQ(def.getIndex(), -1);
  EXPECT_EQ(Edge2(&m.tL, 1), Edge2(&m.tL, 1));
  EXPECT_NE(Edge2(&m.tL, 1), Edge2(&m.tL, 2));
  EXPECT_TRUE(Edge2(&m.tL, 0) < Edge2(&m.tL, 1));
  Triangle2* pLow(&m.tL < &m.tU ? &m.tL : &m.tU);
  Triangle2* pHigh(&m.tL < &m.tU ? &m.tU : &m.tL);
  EXPECT_TRUE(Edge2(pLow, 2) < Edge2(pHigh, 0));
  EXPECT_FALSE(Edge2(pHigh, 0) < Edge2(pLow, 2));
}

// ---------------------------------------------------------------- Triangle2 indices

TEST(Triangle2, IndexSearchesByCornerNeighbourAndEdge) {
  TwoTriangles m;
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.c), 2);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.tU), 1);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.a, &m.b), 2);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.b, &m.a), 2);
  EXPECT_EQ(m.tL.getIntraTriangleIndex(&m.c, &m.b), 0);
  EXPECT_EQ(m.tU.getIntraTriangleIndex(&m.a, &m.c), 2);
  EXPECT_TRUE(m.tL.hasVertex(&m.b));
  EXPECT_FALSE(m.tL.hasVertex(&m.d));
  EXPECT_TRUE(m.tL.hasVertex(Point2(2, 0))); // by coordinates
  EXPECT_FALSE(m.tL.hasVertex(Point2(0, 2)));
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
  EXPECT_EQ(incIndexBy2Checked(0), 2);
  EXPECT_EQ(incIndexBy2Checked(1), 0);
  EXPECT_EQ(incIndexBy2Checked(2), 1);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(incIndexBy2(incIndexBy1(i)), i);
    EXPECT_EQ(incIndexBy2(i), incIndexBy1(incIndexBy1(i)));
  }
  testing::internal::CaptureStdout();
  EXPECT_THROW(incIndexBy2Checked(3), VaskException);
  EXPECT_THROW(incIndexBy2Checked(-1), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("num>=0 && num<3"), std::string::npos) << out;
}

// ---------------------------------------------------------------- Bbox2

TEST(Bbox2, EmptyBoxAndAddingNothing) {
  Bbox2 box;
  EXPECT_FALSE(box.isValid());
  EXPECT_EQ(box.get_minX(), kMax);
  EXPECT_EQ(box.get_maxY(), -kMax);
  double coords[2] = {1, 1};
  EXPECT_FALSE(box.add(0u, coords));
  EXPECT_FALSE(box.isValid());
  std::vector<Point2> none;
  EXPECT_FALSE(box.add(none.cbegin(), none.cend()));
  EXPECT_FALSE(box.isValid());
  EXPECT_FALSE(box.isInBox(Point2(0, 0)));
}

TEST(Bbox2, AddReportsChangesOnly) {
  Bbox2 box;
  EXPECT_TRUE(box.add(Point2(1, 2)));
  EXPECT_TRUE(box.isValid());
  EXPECT_EQ(box.getMinPoint(), Point2(1, 2));
  EXPECT_EQ(box.getMaxPoint(), Point2(1, 2));
  EXPECT_TRUE(box.add(Point2(3, -1)));
  EXPECT_FALSE(box.add(Point2(2, 0)));  // inside
  EXPECT_FALSE(box.add(Point2(3, 2)));  // on the corner
  EXPECT_TRUE(box.add(Point2(0, 0.5))); // extends minX only
  double minX, maxX, minY, maxY;
  box.getBounds(minX, maxX, minY, maxY);
  EXPECT_EQ(minX, 0.0);
  EXPECT_EQ(maxX, 3.0);
  EXPECT_EQ(minY, -1.0);
  EXPECT_EQ(maxY, 2.0);
}

TEST(Bbox2, AllAddFormsAgreeOnRandomPoints) {
  std::mt19937 gen(3);
  std::uniform_real_distribution<double> dist(-1e6, 1e6);
  std::vector<Point2> vPoints;
  std::vector<Point2*> vPointers;
  std::vector<double> vCoords;
  for (int i = 0; i < 200; ++i)
    vPoints.emplace_back(dist(gen), dist(gen));
  for (Point2& p : vPoints) {
    vPointers.push_back(&p);
    vCoords.push_back(p.x());
    vCoords.push_back(p.y());
  }
  Bbox2 one, byValue, byPointer, byArray;
  for (const Point2& p : vPoints)
    one.add(p);
  EXPECT_TRUE(byValue.add(vPoints.cbegin(), vPoints.cend()));
  EXPECT_TRUE(byPointer.add(vPointers.cbegin(), vPointers.cend()));
  EXPECT_TRUE(byArray.add(static_cast<unsigned>(vPoints.size()), vCoords.data()));
  for (const Bbox2* pBox : {&byValue, &byPointer, &byArray}) {
    EXPECT_EQ(pBox->getMinPoint(), one.getMinPoint());
    EXPECT_EQ(pBox->getMaxPoint(), one.getMaxPoint());
  }
  for (const Point2& p : vPoints)
    EXPECT_TRUE(byArray.isInBox(p));
  // Adding the same data again changes nothing.
  EXPECT_FALSE(byArray.add(static_cast<unsigned>(vPoints.size()), vCoords.data()));
  EXPECT_FALSE(byValue.add(vPoints.cbegin(), vPoints.cend()));
  // A single pair on an empty box gives that point as the box.
  Bbox2 single;
  const double pair[2] = {-4, 7};
  EXPECT_TRUE(single.add(1u, pair));
  EXPECT_EQ(single.getMinPoint(), Point2(-4, 7));
  EXPECT_EQ(single.getMaxPoint(), Point2(-4, 7));
  EXPECT_TRUE(single.isInBox(Point2(-4, 7)));
}

TEST(Bbox2, PlusGrowsTheLeftBoxAndReturnsItsCopy) {
  Bbox2 a, b;
  a.add(Point2(0, 0));
  a.add(Point2(1, 1));
  b.add(Point2(-2, 0.5));
  b.add(Point2(0.5, 3));
  const Bbox2 sum(a + b);
  EXPECT_EQ(a.getMinPoint(), Point2(-2, 0));
  EXPECT_EQ(a.getMaxPoint(), Point2(1, 3));
  EXPECT_EQ(sum.getMinPoint(), a.getMinPoint());
  EXPECT_EQ(sum.getMaxPoint(), a.getMaxPoint());
  EXPECT_EQ(b.getMinPoint(), Point2(-2, 0.5)); // right operand untouched
}

TEST(Bbox2, PlusWithInvalidRightBoxWarnsAndKeepsLeft) {
  Bbox2 a, empty;
  a.add(Point2(0, 0));
  testing::internal::CaptureStdout();
  a + empty;
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("trying to add an invalid Bbox2"), std::string::npos) << out;
  EXPECT_NE(out.find("Box2::operator+()"), std::string::npos) << out;
  EXPECT_EQ(a.getMinPoint(), Point2(0, 0));
  EXPECT_EQ(a.getMaxPoint(), Point2(0, 0));
}

TEST(Bbox2, PlusOntoInvalidLeftCopiesBoundsButNotTheFlag) {
  Bbox2 empty, b;
  b.add(Point2(1, 1));
  b.add(Point2(2, 3));
  empty + b;
  EXPECT_TRUE(empty.isValid());
  EXPECT_EQ(empty.getMinPoint(), Point2(1, 1));
  EXPECT_EQ(empty.getMaxPoint(), Point2(2, 3));
  EXPECT_FALSE(empty.isInBox(Point2(1.5, 2)));
  testing::internal::CaptureStdout();
  EXPECT_FALSE(empty.doIntersect(b));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("bbox invalid"), std::string::npos) << out;

  // The next add sets the flag and keeps the copied bounds as well as the point.
  EXPECT_TRUE(empty.add(Point2(5, 0)));
  EXPECT_EQ(empty.getMinPoint(), Point2(1, 0));
  EXPECT_EQ(empty.getMaxPoint(), Point2(5, 3));
  EXPECT_TRUE(empty.isInBox(Point2(1.5, 2)));
  EXPECT_TRUE(empty.doIntersect(b));
}

TEST(Bbox2, SettersSetTheFlagOnlyForNonEmptyBoxes) {
  Bbox2 box;
  box.setMinX(0);
  box.setMinY(0);
  box.setMaxX(2);
  EXPECT_FALSE(box.isInBox(Point2(1, 0)));
  box.setMaxY(1);
  EXPECT_TRUE(box.isInBox(Point2(1, 0)));
  box.setMaxX(-1); // inverted now; the flag is never cleared here
  EXPECT_EQ(box.get_maxX(), -1.0);
  EXPECT_FALSE(box.isInBox(Point2(1, 0)));

  Bbox2 inverted;
  inverted.setMinX(5);
  inverted.setMaxX(1);
  inverted.setMinY(0);
  inverted.setMaxY(1);
  EXPECT_FALSE(inverted.isInBox(Point2(5, 0)));
}

TEST(Bbox2, MeasuresCornersAndCenter) {
  Bbox2 box;
  box.add(Point2(-1, 2));
  box.add(Point2(3, 3));
  EXPECT_EQ(box.getRangeX(), 4.0);
  EXPECT_EQ(box.getRangeY(), 1.0);
  EXPECT_EQ(box.getMaxRange(), 4.0);
  EXPECT_EQ(box.getMinCoord(), -1.0);
  EXPECT_EQ(box.getMaxCoord(), 3.0);
  EXPECT_EQ(box.computeCenter(), Point2(1, 2.5));

  std::vector<Point2> vCorners(1, Point2(9, 9));
  box.getCorners(vCorners);
  ASSERT_EQ(vCorners.size(), 5u); // appended
  EXPECT_EQ(vCorners[1], Point2(-1, 2));
  EXPECT_EQ(vCorners[2], Point2(3, 2));
  EXPECT_EQ(vCorners[3], Point2(3, 3));
  EXPECT_EQ(vCorners[4], Point2(-1, 3));
  std::vector<Point2> vOffset;
  box.getOffsetCorners(0.5, vOffset);
  ASSERT_EQ(vOffset.size(), 4u);
  EXPECT_EQ(vOffset[0], Point2(-1.5, 1.5));
  EXPECT_EQ(vOffset[2], Point2(3.5, 3.5));

  testing::internal::CaptureStdout();
  Bbox2().computeCenter();
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Bbox2 is invalid"), std::string::npos) << out;

  Bbox2 huge;
  huge.add(Point2(1e308, 1e308));
  huge.add(Point2(1.7e308, 1.7e308));
  EXPECT_EQ(huge.computeCenter(), Point2(1.35e308, 1.35e308));
}

TEST(Bbox2, ClosedInclusionAndIntersection) {
  Bbox2 a, b, c;
  a.add(Point2(0, 0));
  a.add(Point2(1, 1));
  b.add(Point2(1, 1)); // touches a at a corner
  b.add(Point2(2, 2));
  c.add(Point2(1.5, -1));
  c.add(Point2(3, 0.5));
  EXPECT_TRUE(a.isInBox(Point2(1, 0)));
  EXPECT_TRUE(a.isInBox(Point2(0.5, 1)));
  EXPECT_FALSE(a.isInBox(Point2(1, 1.0000001)));
  EXPECT_TRUE(a.doIntersect(b));
  EXPECT_TRUE(b.doIntersect(a));
  EXPECT_FALSE(a.doIntersect(c));
  EXPECT_FALSE(c.doIntersect(a));
  EXPECT_FALSE(b.doIntersect(c)); // x overlaps, y does not
}

TEST(Bbox2, InflateIfDegenerateMovesOnlyTheMaximumSide) {
  Bbox2 point;
  point.add(Point2(2, 3));
  point.inflateIfDegenerate(0.5);
  EXPECT_EQ(point.getMinPoint(), Point2(2, 3));
  EXPECT_EQ(point.getMaxPoint(), Point2(2.5, 3.5));

  Bbox2 flatY;
  flatY.add(Point2(0, 1));
  flatY.add(Point2(4, 1));
  flatY.inflateIfDegenerate(2);
  EXPECT_EQ(flatY.getMaxPoint(), Point2(4, 3));

  Bbox2 empty;
  empty.inflateIfDegenerate(1);
  EXPECT_FALSE(empty.isValid());
}

TEST(Bbox2, DoubleTheBoxKeepsCenterAndReportsLargestAbsoluteCoordinate) {
  KiroTest kiroTest, reference;
  Bbox2 box(&kiroTest);
  box.add(Point2(-10, 0));
  box.add(Point2(1, 1));
  box.doubleTheBox();
  EXPECT_EQ(box.getMinPoint(), Point2(-15.5, -0.5));
  EXPECT_EQ(box.getMaxPoint(), Point2(6.5, 1.5));
  // The largest absolute coordinate is |minX|, not maxCoord.
  reference.setStaticBound_MT(15.5);
  EXPECT_EQ(kiroTest.getMaxCoord(), reference.getMaxCoord());
  EXPECT_EQ(kiroTest.getStaticBound(), reference.getStaticBound());

  // The bound only grows: a box far out raises it again.
  Bbox2 far(&kiroTest);
  far.add(Point2(1e12, 2e12));
  far.add(Point2(3e12, 4e12));
  far.doubleTheBox();
  reference.setStaticBound_MT(5e12);
  EXPECT_EQ(kiroTest.getMaxCoord(), reference.getMaxCoord());

  // Without a predicates object and on an empty box doubling is harmless.
  Bbox2 detached;
  detached.add(Point2(0, 0));
  detached.add(Point2(2, 2));
  detached.doubleTheBox();
  EXPECT_EQ(detached.getMinPoint(), Point2(-1, -1));
  Bbox2 empty(&kiroTest);
  empty.doubleTheBox();
  EXPECT_FALSE(empty.isValid());
}

TEST(Bbox2, EnlargeRangesScalesAroundCenterAndReports) {
  KiroTest kiroTest, reference;
  Bbox2 box(&kiroTest);
  box.add(Point2(0, 0));
  box.add(Point2(4, 2));
  box.enlargeRanges(3.0);
  EXPECT_EQ(box.getMinPoint(), Point2(-4, -2));
  EXPECT_EQ(box.getMaxPoint(), Point2(8, 4));
  reference.setStaticBound_MT(8.0);
  EXPECT_EQ(kiroTest.getMaxCoord(), reference.getMaxCoord());
  EXPECT_EQ(kiroTest.getStaticBound(), reference.getStaticBound());
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

TEST(TriangleAroundVertexIterator, InnerVertexCirclesWithoutNull) {
  Fan fan(6, 360.0);
  fan.centre.setIncidentTriangle(&fan.vT[2]);
  TriangleAroundVertexIterator it(&fan.centre);
  const TriangleAroundVertexIterator start(it);
  std::vector<int> vSeen;
  for (int i = 0; i < 12; ++i) {
    vSeen.push_back(fan.indexOf(*it));
    ++it;
  }
  EXPECT_EQ(vSeen, (std::vector<int>{2, 3, 4, 5, 0, 1, 2, 3, 4, 5, 0, 1}));
  EXPECT_TRUE(it == start);
  for (int i = 0; i < 6; ++i) {
    --it;
    EXPECT_NE(*it, nullptr);
  }
  EXPECT_EQ(*it, fan.vT.data() + 2);
  EXPECT_EQ(fan.indexOf(it.previewNextTriangle()), 3);
  EXPECT_EQ(fan.indexOf(it.previewPrevTriangle()), 1);
  EXPECT_EQ(fan.indexOf(*it), 2);
}

TEST(TriangleAroundVertexIterator, HullVertexVisitsFanThenNullThenFanFromOtherEnd) {
  Fan fan(4, 180.0);
  TriangleAroundVertexIterator it(&fan.centre, &fan.vT[1]);
  std::vector<int> vForward;
  for (int i = 0; i < 11; ++i) {
    vForward.push_back(fan.indexOf(*it));
    ++it;
  }
  EXPECT_EQ(vForward, (std::vector<int>{1, 2, 3, -1, 0, 1, 2, 3, -1, 0, 1}));

  TriangleAroundVertexIterator back(&fan.centre, &fan.vT[1]);
  std::vector<int> vBackward;
  for (int i = 0; i < 11; ++i) {
    vBackward.push_back(fan.indexOf(*back));
    --back;
  }
  EXPECT_EQ(vBackward, (std::vector<int>{1, 0, -1, 3, 2, 1, 0, -1, 3, 2, 1}));
}

TEST(TriangleAroundVertexIterator, StepsFollowIncreasingAngleAroundTheVertex) {
  // Counter-clockwise means: the barycentres of successive triangles turn left
  // around the vertex.
  Fan fan(7, 360.0);
  for (const Point2* pVtx : {&fan.centre, &fan.vRing[3]}) {
    TriangleAroundVertexIterator it(pVtx);
    for (int i = 0; i < 7; ++i) {
      Triangle2* pT(*it);
      ++it;
      ASSERT_NE(pT, nullptr);
      if (*it == nullptr) break;
      const Point2 b0(pT->getBarycenter()), b1((*it)->getBarycenter());
      EXPECT_EQ(getOrientation2(pVtx, &b0, &b1), ORIENTATION2_CCW);
    }
  }
}

TEST(TriangleAroundVertexIterator, RingVertexOfClosedFanHasTwoTrianglesAndOneNull) {
  Fan fan(5, 360.0);
  TriangleAroundVertexIterator it(&fan.vRing[2]); // in triangles 1 and 2
  std::multiset<int> vSeen;
  for (int i = 0; i < 6; ++i) {
    vSeen.insert(fan.indexOf(*it));
    ++it;
  }
  EXPECT_EQ(vSeen, (std::multiset<int>{-1, -1, 1, 1, 2, 2}));
}

TEST(TriangleAroundVertexIterator, SingleTriangleFanStaysOnItsTriangle) {
  Fan fan(4, 180.0);
  TriangleAroundVertexIterator it(&fan.vRing[0]); // only in triangle 0
  EXPECT_EQ(*it, &fan.vT[0]);
  ++it;
  EXPECT_EQ(*it, nullptr);
  EXPECT_EQ(it.previewNextTriangle(), &fan.vT[0]); // preview works from null too
  ++it;
  EXPECT_EQ(*it, &fan.vT[0]);
  --it;
  EXPECT_EQ(*it, nullptr);
  --it;
  EXPECT_EQ(*it, &fan.vT[0]);
}

TEST(TriangleAroundVertexIterator, EqualityIgnoresSavedTriangleAndPreviewDoesNotMove) {
  Fan fan(4, 180.0);
  TriangleAroundVertexIterator a(&fan.centre, &fan.vT[1]);
  TriangleAroundVertexIterator b(&fan.centre, &fan.vT[2]);
  --b; // now on triangle 1 with triangle 2 saved
  EXPECT_TRUE(a == b);
  EXPECT_EQ(a.previewNextTriangle(), &fan.vT[2]);
  EXPECT_EQ(a.previewPrevTriangle(), &fan.vT[0]);
  EXPECT_EQ(*a, &fan.vT[1]);
  TriangleAroundVertexIterator other(&fan.vRing[1], &fan.vT[1]);
  EXPECT_TRUE(a != other); // same triangle, other vertex
  other = a;
  EXPECT_TRUE(other == a);
}

TEST(TriangleAroundVertexIterator, VertexWithoutTriangleOrNullStartThrows) {
  const Point2 lonely(1, 1);
  Fan fan(3, 90.0);
  testing::internal::CaptureStdout();
  EXPECT_THROW(TriangleAroundVertexIterator it(&lonely), VaskException);
  EXPECT_THROW(TriangleAroundVertexIterator it(&fan.centre, nullptr), VaskException);
  TriangleAroundVertexIterator it(&fan.centre, &fan.vT[2]);
  ++it; // off the end: null
  EXPECT_THROW(TriangleAroundVertexIterator copy(it), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("pTr!=NULL"), std::string::npos) << out;
}
