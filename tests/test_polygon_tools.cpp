// Polygon and edge tools on exact data: rings in any order and direction,
// exact shoelace areas on integer coordinates, bad rings refused with the
// input unchanged, and border polygons of triangle sets whose signed area is
// the area of the set.
#include "Vask_2D.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

// Twice the signed area of a chain; exact on small integer coordinates.
double twiceSignedArea(const std::vector<Segment2>& vChain) {
  double sum(0.0);
  for (const Segment2& s : vChain) sum += s.getSrc().x() * s.getTrg().y() - s.getTrg().x() * s.getSrc().y();
  return sum;
}

::testing::AssertionResult isClosedChain(const std::vector<Segment2>& vChain) {
  for (size_t i = 0; i < vChain.size(); ++i)
    if (vChain[i].getTrg() != vChain[(i + 1) % vChain.size()].getSrc())
      return ::testing::AssertionFailure() << "gap after segment " << i;
  return ::testing::AssertionSuccess();
}

bool sameUndirectedSet(std::vector<Segment2> a, std::vector<Segment2> b) {
  auto norm = [](std::vector<Segment2>& v) {
    for (Segment2& s : v)
      if (s.getTrg() < s.getSrc()) s.swapSrcTrg();
    std::sort(v.begin(), v.end(), [](const Segment2& s0, const Segment2& s1) {
      return s0.getSrc() < s1.getSrc() || (s0.getSrc() == s1.getSrc() && s0.getTrg() < s1.getTrg());
    });
  };
  norm(a);
  norm(b);
  return a == b;
}

// A star-shaped polygon around the origin on an integer grid: distinct
// angles, counter-clockwise, simple.
std::vector<Point2> randomStarPolygon(std::mt19937& rng, int n) {
  std::vector<double> vAngle;
  std::uniform_real_distribution<double> uni(0.0, 2.0 * M_PI);
  for (int i = 0; i < n; ++i) vAngle.push_back(uni(rng));
  std::sort(vAngle.begin(), vAngle.end());
  std::vector<Point2> vP;
  for (double a : vAngle) {
    const double r(200 + rng() % 800);
    const Point2 p(std::round(r * std::cos(a)), std::round(r * std::sin(a)));
    if (vP.empty() || p != vP.back()) vP.push_back(p);
  }
  return vP;
}

std::vector<Segment2> polyline(std::vector<Point2> vP, bool bClose) {
  std::vector<Segment2> vSeg;
  pointsToPolyline(vP, bClose, vSeg);
  return vSeg;
}

} // namespace

// Rounding to the grid can make a star polygon non-simple, so its
// simplicity is decided independently: the ring of a star polygon with
// distinct angles is simple exactly when every consecutive triangle with the
// origin stands counter-clockwise.
TEST(PolygonTools, ShuffledRingsComeBackChainedAndCounterClockwiseWithTheirArea) {
  std::mt19937 rng(7);
  int numSimple(0);
  for (int round = 0; round < 300; ++round) {
    std::vector<Point2> vP(randomStarPolygon(rng, 3 + static_cast<int>(rng() % 40)));
    if (vP.size() < 3) continue;
    bool bStar(true);
    const Point2 origin(0, 0);
    for (size_t i = 0; i < vP.size(); ++i)
      bStar = bStar && getOrientation2(&origin, &vP[i], &vP[(i + 1) % vP.size()]) == ORIENTATION2_CCW;
    std::vector<Segment2> vRing(polyline(vP, true));
    const double area2(twiceSignedArea(vRing));
    if (round % 2 == 1) std::reverse(vRing.begin(), vRing.end());
    std::shuffle(vRing.begin(), vRing.end(), rng);
    for (Segment2& s : vRing)
      if (rng() % 2) s.swapSrcTrg();
    const std::vector<Segment2> vInput(vRing);

    std::vector<Segment2> vSorted(vInput);
    ASSERT_TRUE(sortRing(vSorted));
    EXPECT_TRUE(isClosedChain(vSorted));
    EXPECT_TRUE(sameUndirectedSet(vSorted, vInput));
    EXPECT_EQ(std::fabs(twiceSignedArea(vSorted)), std::fabs(area2));

    std::vector<Segment2> vCCW(vInput);
    ASSERT_TRUE(sortRingCCW(vCCW));
    EXPECT_TRUE(isClosedChain(vCCW));
    EXPECT_TRUE(sameUndirectedSet(vCCW, vInput));
    if (bStar) {
      ++numSimple;
      EXPECT_EQ(twiceSignedArea(vCCW), area2);
      std::vector<Segment2> vTest(vInput);
      EXPECT_TRUE(isSimplePolygon(vTest));
      EXPECT_TRUE(vTest == vInput);
    }
  }
  EXPECT_GT(numSimple, 100);
}

TEST(PolygonTools, BadRingsAreRefusedAndLeftUnchanged) {
  const Point2 a(0, 0), b(4, 0), c(4, 4), d(0, 4), e(10, 0), f(14, 0), g(14, 4), m(2, 0), h(2, -3);
  std::vector<std::vector<Segment2> > vBad{
      {Segment2(a, b), Segment2(b, c), Segment2(c, a), Segment2(e, f), Segment2(f, g), Segment2(g, e)}, // two rings
      {Segment2(a, b), Segment2(b, c), Segment2(c, d)},                                               // open
      {Segment2(a, b), Segment2(b, c), Segment2(c, a), Segment2(b, e)},                               // a branch
      {Segment2(a, b), Segment2(b, c), Segment2(c, a), Segment2(a, d), Segment2(d, h), Segment2(h, a)}, // two rings at a
  };
  for (const std::vector<Segment2>& vInput : vBad) {
    std::vector<Segment2> v0(vInput), v1(vInput), v2(vInput);
    EXPECT_FALSE(sortRing(v0));
    EXPECT_FALSE(sortRingCCW(v1));
    EXPECT_FALSE(isSimplePolygon(v2));
    EXPECT_TRUE(v0 == vInput && v1 == vInput && v2 == vInput);
  }
  std::vector<Segment2> vEmpty;
  EXPECT_TRUE(sortRing(vEmpty));
  EXPECT_FALSE(isSimplePolygon(vEmpty));

  // Rings that are no simple polygon: a bow-tie, a collinear there-and-back,
  // a vertex touching another edge, a fold back over an edge, a square
  // with a hanging segment.
  std::vector<std::vector<Segment2> > vNotSimple{
      polyline({a, b, d, c}, true), polyline({a, m, b}, true), polyline({a, b, c, m, d}, true),
      polyline({a, b, m, c}, true), {Segment2(a, b), Segment2(b, c), Segment2(c, d), Segment2(d, a), Segment2(c, g)}};
  for (std::vector<Segment2>& v : vNotSimple) EXPECT_FALSE(isSimplePolygon(v));
  std::vector<Segment2> vSquare(polyline({a, b, c, d}, true));
  std::vector<Segment2> vWithZero(vSquare);
  vWithZero.push_back(Segment2(c, c)); // zero length: ignored
  EXPECT_TRUE(isSimplePolygon(vSquare));
  EXPECT_TRUE(isSimplePolygon(vWithZero));
  // Nearly degenerate: a sliver one ulp off the line is a simple polygon.
  const Point2 tip(2, std::nextafter(0.0, 1.0));
  std::vector<Segment2> vSliver(polyline({a, b, tip}, true));
  EXPECT_TRUE(isSimplePolygon(vSliver));
  std::vector<Segment2> vFlat(polyline({a, b, Point2(2, 0)}, true));
  EXPECT_FALSE(isSimplePolygon(vFlat));

  // A clockwise square comes back counter-clockwise.
  std::vector<Segment2> vCW(polyline({a, d, c, b}, true));
  ASSERT_TRUE(sortRingCCW(vCW));
  EXPECT_EQ(twiceSignedArea(vCW), 32.0);
}

TEST(PolygonTools, PolylinesDropRepeatedPointsAndCloseOnRequest) {
  const Point2 a(0, 0), b(1, 2);
  std::vector<Segment2> vOut(polyline({a, a, b}, true));
  ASSERT_EQ(vOut.size(), 2u);
  EXPECT_TRUE(vOut[0].getSrc() == a && vOut[0].getTrg() == b);
  EXPECT_TRUE(vOut[1].getSrc() == b && vOut[1].getTrg() == a);
  EXPECT_EQ(polyline({a, b, a}, true).size(), 2u);
  EXPECT_EQ(polyline({a}, true).size(), 0u);
  EXPECT_EQ(polyline({a, b}, false).size(), 1u);
  Point2 p0(0, 0), p1(3, 0), p2(0, 4);
  EXPECT_EQ(getArea2D(&p0, &p1, &p2), 6.0);
  const Vector2 unit(normalize(Vector2(3, 4)));
  EXPECT_DOUBLE_EQ(unit.x(), 0.6);
  EXPECT_DOUBLE_EQ(unit.y(), 0.8);
  const Vector2 zero(normalize(Vector2(0, 0)));
  EXPECT_TRUE(zero.x() == 0.0 && zero.y() == 0.0);
}

// A triangle subset of a real mesh on an integer grid: its borders form
// closed polygons whose signed areas add up to the area of the set, exactly.
TEST(PolygonTools, BordersOfTriangleSetsCloseIntoPolygonsOfTheSetsArea) {
  std::mt19937 rng(11);
  for (int round = 0; round < 20; ++round) {
    Vask_2D dt;
    std::vector<Point2> vP;
    for (int i = 0; i < 400; ++i) vP.push_back(Point2(static_cast<double>(rng() % 64), static_cast<double>(rng() % 64)));
    dt.insert(vP);
    std::vector<Triangle2*> vAll, vSet;
    dt.getTrianglePointers(vAll);
    for (Triangle2* pT : vAll)
      if (rng() % 3 != 0) vSet.push_back(pT);
    double twiceSetArea(0.0);
    for (Triangle2* pT : vSet) {
      const Point2 &p0(*pT->getCorner(0)), &p1(*pT->getCorner(1)), &p2(*pT->getCorner(2));
      twiceSetArea += (p1.x() - p0.x()) * (p2.y() - p0.y()) - (p1.y() - p0.y()) * (p2.x() - p0.x());
    }

    std::vector<Edge2> vDirected, vUndirected;
    getDirectedEdges(vAll, vDirected);
    getUndirectedEdges(vAll, vUndirected);
    EXPECT_EQ(vDirected.size(), 3 * vAll.size());
    size_t numHull(0);
    for (const Edge2& e : vDirected) numHull += e.getTriangle()->getOppositeTriangle(e.getIndex()) == nullptr;
    EXPECT_EQ(vUndirected.size(), (3 * vAll.size() + numHull) / 2);

    std::vector<Segment2> vBorder;
    getBorders(vSet, vBorder);
    std::vector<Edge2> vBorderEdges;
    for (const Edge2& e : vDirected) {
      Triangle2* pN(e.getTriangle()->getOppositeTriangle(e.getIndex()));
      const bool bIn(std::find(vSet.begin(), vSet.end(), e.getTriangle()) != vSet.end());
      const bool bNIn(pN != nullptr && std::find(vSet.begin(), vSet.end(), pN) != vSet.end());
      if (bIn && !bNIn) vBorderEdges.push_back(e);
    }
    ASSERT_EQ(vBorder.size(), vBorderEdges.size());
    EXPECT_EQ(twiceSignedArea(vBorder), twiceSetArea);

    std::vector<std::vector<Edge2> > vPolygons;
    std::vector<Edge2> vRemaining;
    std::shuffle(vBorderEdges.begin(), vBorderEdges.end(), rng);
    edgesToPolygons(vBorderEdges, vPolygons, vRemaining);
    EXPECT_TRUE(vRemaining.empty());
    double twicePolygonArea(0.0);
    size_t numEdges(0);
    for (const std::vector<Edge2>& vPoly : vPolygons) {
      std::vector<Segment2> vChain;
      for (const Edge2& e : vPoly) vChain.push_back(Segment2(*e.getSrc(), *e.getTrg()));
      EXPECT_TRUE(isClosedChain(vChain));
      // Simple cycles: no vertex twice.
      std::vector<Point2*> vSrc;
      for (const Edge2& e : vPoly) vSrc.push_back(e.getSrc());
      std::sort(vSrc.begin(), vSrc.end());
      EXPECT_TRUE(std::adjacent_find(vSrc.begin(), vSrc.end()) == vSrc.end());
      twicePolygonArea += twiceSignedArea(vChain);
      numEdges += vPoly.size();
    }
    EXPECT_EQ(numEdges, vBorderEdges.size());
    EXPECT_EQ(twicePolygonArea, twiceSetArea);

    // Without one border edge its cycle can't close: every edge still lands
    // in exactly one place, and the polygons stay closed.
    if (!vBorderEdges.empty()) {
      vBorderEdges.pop_back();
      vPolygons.clear();
      vRemaining.clear();
      edgesToPolygons(vBorderEdges, vPolygons, vRemaining);
      size_t numPlaced(vRemaining.size());
      for (const std::vector<Edge2>& vPoly : vPolygons) numPlaced += vPoly.size();
      EXPECT_EQ(numPlaced, vBorderEdges.size());
      EXPECT_FALSE(vRemaining.empty());
    }
  }
}
