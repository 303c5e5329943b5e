// Zones made from other zones: the four set operations, nested results,
// peeling and the grid diagonals. Inputs are judged by the exact winding
// oracle, results by plain set algebra over the inputs' triangles and by
// exact areas, after every change of the mesh.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include "helpers/ZoneChecker.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

typedef std::set<Triangle2*> TSet;

std::vector<Triangle2*> trianglesOf(const Zone2* pZone) {
  std::vector<Triangle2*> v;
  pZone->getTriangles(v);
  return v;
}

TSet setOf(const Zone2* pZone) {
  const std::vector<Triangle2*> v(trianglesOf(pZone));
  return TSet(v.begin(), v.end());
}

TSet unite(const TSet& a, const TSet& b) {
  TSet r(a);
  r.insert(b.begin(), b.end());
  return r;
}
TSet intersect(const TSet& a, const TSet& b) {
  TSet r;
  for (Triangle2* pT : a)
    if (b.count(pT)) r.insert(pT);
  return r;
}
TSet subtract(const TSet& a, const TSet& b) {
  TSet r;
  for (Triangle2* pT : a)
    if (!b.count(pT)) r.insert(pT);
  return r;
}
TSet symmetric(const TSet& a, const TSet& b) { return unite(subtract(a, b), subtract(b, a)); }

std::vector<Segment2> ring(const std::vector<Point2>& v) {
  std::vector<Segment2> s;
  for (size_t i = 0; i < v.size(); ++i) s.push_back(Segment2(v[i], v[(i + 1) % v.size()]));
  return s;
}

using vask_test::captured;
using vask_test::says;

// Two overlapping counter-clockwise polygons in the unit square mapped by
// scale; the second is not convex, so the intersection has two pieces.
struct TwoPolygons {
  Vask_2D dt;
  ConstraintGraph2* pA = nullptr;
  ConstraintGraph2* pB = nullptr;
  double scale;
  explicit TwoPolygons(double scale_, bool bGrid, unsigned seed) : scale(scale_) {
    std::vector<Point2> v;
    if (bGrid)
      for (int i = 0; i <= 16; ++i)
        for (int j = 0; j <= 16; ++j) v.push_back(map(i / 16.0, j / 16.0));
    else
      for (const Point2& p : vask_test::randomPoints(300, seed)) v.push_back(map(p.x(), p.y()));
    v.push_back(map(0, 0));
    v.push_back(map(1, 0));
    v.push_back(map(1, 1));
    v.push_back(map(0, 1));
    dt.insert(v);
    std::vector<Segment2> a(ring({map(0.125, 0.125), map(0.625, 0.125), map(0.625, 0.625), map(0.125, 0.625)}));
    std::vector<Segment2> b(ring({map(0.375, 0.25), map(0.875, 0.25), map(0.875, 0.875), map(0.5, 0.5),
                                  map(0.25, 0.875)}));
    pA = dt.createConstraint(a, CIS_CONSTRAINED_DELAUNAY, true);
    pB = dt.createConstraint(b, CIS_CONSTRAINED_DELAUNAY, true);
  }
  Point2 map(double x, double y) const { return Point2(scale * x, scale * y); }
};

class SetOperations : public testing::TestWithParam<int> {};

// Results of results, two levels deep, against set algebra on their inputs
// while points come in, fence edges split and inner points leave.
TEST_P(SetOperations, ResultsFollowTheirInputsThroughChanges) {
  const int variant(GetParam());
  TwoPolygons s(variant == 2 ? std::ldexp(1.0, -1000) : 1.0, variant == 1, 3 + variant);
  Vask_2D& dt(s.dt);
  Zone2* pA(dt.createZone(s.pA, ZL_INSIDE));
  Zone2* pB(dt.createZone(s.pB, ZL_INSIDE));
  Zone2* pBo(dt.createZone(s.pB, ZL_OUTSIDE));
  Zone2* pAll(dt.createZone(nullptr, ZL_GLOBAL));
  Zone2* pU(zoneUnion(pA, pB));
  Zone2* pI(zoneIntersection(pA, pB));
  Zone2* pD(zoneDifference(pA, pB));
  Zone2* pS(zoneSymmetricDifference(pA, pB));
  Zone2* pUD(zoneUnion(pU, pD));                         // = U
  Zone2* pSI(zoneSymmetricDifference(pS, pI));           // = U
  Zone2* pNested(zoneDifference(zoneIntersection(pUD, pSI), pD)); // = B
  Zone2* pTiles(zoneUnion(pB, pBo));
  Zone2* pNone(zoneIntersection(pB, pBo));
  ASSERT_TRUE(pU && pI && pD && pS && pUD && pSI && pNested && pTiles && pNone);
  EXPECT_EQ(ZL_RESULT_UNION, pU->getZoneLocation());
  EXPECT_EQ(ZL_RESULT_INTERSECTION, pI->getZoneLocation());
  EXPECT_EQ(ZL_RESULT_DIFFERENCE, pD->getZoneLocation());
  EXPECT_EQ(ZL_RESULT_SYM_DIFFERENCE, pS->getZoneLocation());
  EXPECT_EQ((std::vector<Zone2*>{pA, pB}), pU->getInputZones());

  std::mt19937_64 rng(17 + variant);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int step = 0; step < 30; ++step) {
    SCOPED_TRACE(step);
    ASSERT_TRUE(dt.checkValidity(true, "set operations"));
    const std::vector<Triangle2*> vA(trianglesOf(pA)), vB(trianglesOf(pB));
    for (auto zone : {std::make_pair(&vA, s.pA), std::make_pair(&vB, s.pB)}) {
      const vask_test::ZoneCheck c(vask_test::checkZoneMembership(dt, *zone.first, vask_test::graphFence(zone.second),
                                                                  [](int w) { return w > 0; }));
      ASSERT_TRUE(c.ok) << c.firstError;
    }
    const TSet a(vA.begin(), vA.end()), b(vB.begin(), vB.end());
    const TSet all(setOf(pAll));
    const std::vector<std::pair<Zone2*, TSet> > vExpected{
        {pU, unite(a, b)},   {pI, intersect(a, b)}, {pD, subtract(a, b)},      {pS, symmetric(a, b)},
        {pUD, unite(a, b)},  {pSI, unite(a, b)},    {pNested, b},              {pTiles, all},
        {pNone, TSet()}};
    for (const auto& e : vExpected) {
      const std::vector<Triangle2*> v(trianglesOf(e.first));
      EXPECT_EQ(v.size(), e.second.size()) << "each triangle once";
      EXPECT_EQ(e.second, TSet(v.begin(), v.end()));
    }
    EXPECT_FALSE(intersect(a, b).empty());
    EXPECT_EQ(0, vask_test::compareAreaSums({trianglesOf(pU), trianglesOf(pI)}, {vA, vB}));
    EXPECT_EQ(0, vask_test::compareAreaSums({trianglesOf(pD), trianglesOf(pI)}, {vA}));
    EXPECT_EQ(0, vask_test::compareAreaSums({trianglesOf(pS), trianglesOf(pI)}, {trianglesOf(pU)}));
    if (HasFailure()) return;

    const int op(static_cast<int>(u(rng) * 4));
    ConstraintGraph2* pCG(step % 2 ? s.pA : s.pB);
    std::vector<ConstraintSegment2*> vChain;
    pCG->getAliveConstraintChain(vChain);
    ConstraintSegment2* pLeaf(vChain[static_cast<size_t>(u(rng) * vChain.size())]);
    const Point2 p0(*pLeaf->getSrc()), p1(*pLeaf->getTrg());
    const Point2 mid(p0.x() * 0.5 + p1.x() * 0.5, p0.y() * 0.5 + p1.y() * 0.5);
    if (op == 0) {
      dt.insert(s.map(u(rng), u(rng)));
    } else if (op == 1 && (p0.x() == p1.x() || p0.y() == p1.y())) {
      dt.insert(mid);
    } else if (op == 2 && (p0.x() == p1.x() || p0.y() == p1.y())) {
      pLeaf->insertAndSplit(mid);
    } else {
      std::vector<Point2*> vV;
      dt.getVertexPointers(vV);
      Point2* pVtx(vV[static_cast<size_t>(u(rng) * vV.size())]);
      const bool bCorner((pVtx->x() == 0 || pVtx->x() == s.scale) && (pVtx->y() == 0 || pVtx->y() == s.scale));
      if (!dt.isConstraint(pVtx) && !bCorner) dt.remove(pVtx);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Families, SetOperations, testing::Values(0, 1, 2));

// A result read at many depths is evaluated once per query: thirty levels
// of zoneUnion(r, r) would take 2^30 evaluations otherwise.
TEST(SetOperations, DeepNestingOfOneResultStaysCheap) {
  TwoPolygons s(1.0, false, 5);
  Zone2* pA(s.dt.createZone(s.pA, ZL_INSIDE));
  Zone2* pB(s.dt.createZone(s.pB, ZL_INSIDE));
  const TSet u(unite(setOf(pA), setOf(pB)));
  Zone2* pR(zoneUnion(pA, pB));
  Zone2* pSelf(zoneUnion(pA, pA));
  for (int level = 0; level < 30; ++level) {
    Zone2* pTwice(level % 2 ? zoneUnion(pR, pR) : zoneIntersection(pR, pR));
    pR = zoneUnion(pTwice, zoneIntersection(pTwice, pR));
  }
  const std::vector<Triangle2*> v(trianglesOf(pR));
  EXPECT_EQ(u.size(), v.size());
  EXPECT_EQ(u, TSet(v.begin(), v.end()));
  EXPECT_EQ(setOf(pA), setOf(pSelf));
  EXPECT_EQ(setOf(pA).size(), pSelf->getNumberOfTriangles());
  EXPECT_EQ(0u, zoneSymmetricDifference(pR, pR)->getNumberOfTriangles());
  EXPECT_EQ(0u, zoneDifference(pR, pR)->getNumberOfTriangles());
  // The queries built on getTriangles see the result's membership too.
  std::vector<Edge2> vBorder;
  zoneUnion(pA, pA)->getBorderEdges(vBorder);
  std::vector<Edge2> vBorderA;
  pA->getBorderEdges(vBorderA);
  EXPECT_EQ(std::set<Edge2>(vBorderA.begin(), vBorderA.end()), std::set<Edge2>(vBorder.begin(), vBorder.end()));
}

// Bad input gives null (or nothing) with its message, never an exception.
TEST(SetOperations, BadInputIsRefusedWithItsMessage) {
  TwoPolygons s(1.0, false, 6), other(1.0, false, 7);
  Zone2* pA(s.dt.createZone(s.pA, ZL_INSIDE));
  Zone2* pB(s.dt.createZone(s.pB, ZL_INSIDE));
  Zone2* pForeign(other.dt.createZone(nullptr, ZL_GLOBAL));
  const size_t numZones(s.dt.getImpl()->numberOfZones());
  typedef Zone2* (*Operation)(Zone2*, Zone2*);
  const std::vector<std::pair<Operation, std::string> > vOps{{zoneUnion, "Zone2::zoneUnion(...)"},
                                                             {zoneIntersection, "zoneUnion(...)"},
                                                             {zoneDifference, "zoneUnion(...)"},
                                                             {zoneSymmetricDifference, "zoneUnion(...)"}};
  for (const auto& op : vOps) {
    for (auto inputs : {std::make_pair(pA, static_cast<Zone2*>(nullptr)), std::make_pair(static_cast<Zone2*>(nullptr), pB)}) {
      Zone2* pR(pA);
      const std::string out(captured([&] { pR = op.first(inputs.first, inputs.second); }));
      EXPECT_EQ(nullptr, pR);
      EXPECT_TRUE(says(out, op.second, "One of the zones is NULL, returning NULL")) << out;
    }
    Zone2* pR(pA);
    const std::string out(captured([&] { pR = op.first(pA, pForeign); }));
    EXPECT_EQ(nullptr, pR);
    EXPECT_TRUE(says(out, op.second, "The zones must belong to the same triangulation! Returning NULL")) << out;
  }
  EXPECT_EQ(numZones, s.dt.getImpl()->numberOfZones());

  // An input of a live result can't go; once the result is gone it can.
  Zone2* pU(zoneUnion(pA, pB));
  Zone2* pOuter(zoneDifference(pU, pA));
  std::string out(captured([&] { s.dt.deleteZone(pU); }));
  EXPECT_TRUE(says(out, "Dt2::deleteZone(..)", "A result zone reads this zone")) << out;
  EXPECT_TRUE(s.dt.getImpl()->hasZone(pU));
  s.dt.deleteZone(pOuter);
  s.dt.deleteZone(pU);
  out = captured([&] { s.dt.deleteZone(pA); });
  EXPECT_EQ(std::string::npos, out.find("WARNING"));
  EXPECT_FALSE(s.dt.getImpl()->hasZone(pA));

  // A recipe made to read itself (by assigning a result to its own input)
  // answers nothing, with a warning.
  Zone2* pC(s.dt.createZone(s.pB, ZL_OUTSIDE));
  Zone2* pLoop(zoneIntersection(pC, pB));
  *pC = *pLoop;
  std::vector<Triangle2*> v;
  out = captured([&] { pLoop->getTriangles(v); });
  EXPECT_TRUE(v.empty());
  EXPECT_TRUE(says(out, "Zone2::getTriangles()", "The zone reads itself through its input zones, no triangles"))
      << out;
}

// Tests a property of the triangle alone and counts the calls.
struct LeftOf : public UserPredicateT {
  double x;
  int numCalls = 0;
  explicit LeftOf(double x_) : x(x_) {}
  bool operator()(const Triangle2* pT) override {
    ++numCalls;
    return pT->getBarycenter().x() < x;
  }
};
struct Always : public UserPredicateT {
  bool bAnswer;
  explicit Always(bool b) : bAnswer(b) {}
  bool operator()(const Triangle2*) override { return bAnswer; }
};

bool isBorder(Triangle2* pT, const TSet& zone) {
  for (int i = 0; i < 3; ++i)
    if (pT->getOppositeTriangle(i) == nullptr || !zone.count(pT->getOppositeTriangle(i))) return true;
  return false;
}

// Peeling keeps exactly what no border step reaches: everything it takes
// satisfies the predicate, nothing it keeps at the border does, and what it
// keeps is a zone that follows later insertions like any other.
TEST(Peeling, TakesAcceptedBorderTrianglesUntilNoneIsLeft) {
  TwoPolygons s(1.0, false, 8);
  Zone2* pB(s.dt.createZone(s.pB, ZL_INSIDE));
  const TSet before(setOf(pB));

  Always all(true), none(false);
  std::string out(captured([&] { EXPECT_EQ(nullptr, peelOffIf(pB, &all, true)); }));
  EXPECT_NE(std::string::npos, out.find("Zone2::peelOffIf(), original Zone:")) << out;
  EXPECT_NE(std::string::npos, out.find("numT=" + std::to_string(before.size())));
  EXPECT_NE(std::string::npos, out.find("Output Zone:"));
  Zone2* pSame(peelOffIf(pB, &none, false));
  ASSERT_NE(nullptr, pSame);
  EXPECT_EQ(ZL_GROW, pSame->getZoneLocation());
  EXPECT_EQ(before, setOf(pSame));

  LeftOf left(0.5);
  Zone2* pPeeled(peelOffIf(pB, &left, false));
  ASSERT_NE(nullptr, pPeeled);
  EXPECT_EQ(before, setOf(pB)); // the input stays
  const TSet kept(setOf(pPeeled));
  EXPECT_FALSE(kept.empty());
  EXPECT_LT(kept.size(), before.size());
  for (Triangle2* pT : before) {
    if (!kept.count(pT)) EXPECT_LT(pT->getBarycenter().x(), 0.5);
    else if (isBorder(pT, kept)) EXPECT_GE(pT->getBarycenter().x(), 0.5);
  }
  EXPECT_GE(left.numCalls, static_cast<int>(before.size() - kept.size()));

  // The kept region stays the same region through insertions.
  const std::vector<Triangle2*> vKept(kept.begin(), kept.end());
  const double area(vask_test::exactDoubleAreaOf(vKept));
  s.dt.insert(vask_test::randomPoints(200, 99));
  EXPECT_TRUE(s.dt.checkValidity(true, "peeled"));
  EXPECT_EQ(area, vask_test::exactDoubleAreaOf(trianglesOf(pPeeled)));

  const std::vector<std::pair<std::function<Zone2*()>, std::string> > vBad{
      {[&] { return peelOffIf(nullptr, &left, false); }, "Input zone is NULL, returning NULL"},
      {[&] { return peelOffIf(pB, nullptr, false); }, "The predicate is NULL, returning NULL"},
      {[&] { return peelOffIf(zoneDifference(pB, pB), &left, false); }, "Input zone is empty, returning NULL"}};
  for (const auto& bad : vBad) {
    Zone2* pR(pB);
    out = captured([&] { pR = bad.first(); });
    EXPECT_EQ(nullptr, pR);
    EXPECT_TRUE(says(out, "peelOffIf()", bad.second)) << out;
  }
}

// A falling diagonal of a cell (unit grid, perhaps jittered: both extents
// above a half) between two zone triangles that is no constraint.
int numFallingInnerDiagonals(Vask_2D& dt, const TSet& zone) {
  int num(0);
  for (Triangle2* pT : zone)
    for (int i = 0; i < 3; ++i) {
      Triangle2* pU(pT->getOppositeTriangle(i));
      if (pU == nullptr || !zone.count(pU) || pU < pT || dt.isConstraint(pT, i)) continue;
      const Point2 &p(*pT->getCorner((i + 1) % 3)), &q(*pT->getCorner((i + 2) % 3));
      if (std::fabs(p.x() - q.x()) > 0.5 && std::fabs(p.y() - q.y()) > 0.5 && (q.x() > p.x()) != (q.y() > p.y()))
        ++num;
    }
  return num;
}

// On a cocircular grid with tolerance 0, every inner diagonal ends up
// rising; diagonals on constraints and at the zone's border stay, the zone
// and the Delaunay property too.
TEST(UnifyGrid, CocircularGridDiagonalsAllRise) {
  for (int withFence = 0; withFence < 2; ++withFence) {
    SCOPED_TRACE(withFence);
    Vask_2D dt;
    dt.insert(vask_test::gridPoints(20));
    Zone2* pZone(dt.createZone(nullptr, ZL_GLOBAL));
    ConstraintGraph2* pDiamond(nullptr);
    if (withFence) { // a diamond of constrained diagonals, falling ones included
      std::vector<Segment2> v(ring({Point2(9, 2), Point2(16, 9), Point2(9, 16), Point2(2, 9)}));
      pDiamond = dt.createConstraint(v, CIS_CONSTRAINED_DELAUNAY, true);
      pZone = dt.createZone(pDiamond, ZL_OUTSIDE);
    }
    const TSet before(setOf(pZone));
    ASSERT_GT(numFallingInnerDiagonals(dt, before), 20);
    pZone->unifyGrid(0.0);
    ASSERT_TRUE(dt.checkValidity(true, "unified grid"));
    const TSet after(setOf(pZone));
    EXPECT_EQ(before.size(), after.size());
    EXPECT_EQ(0, numFallingInnerDiagonals(dt, after));
    if (withFence) { // the fence stays, and the inside was not touched
      EXPECT_EQ(0, vask_test::compareAreaWithFence(trianglesOf(dt.createZone(pDiamond, ZL_INSIDE)),
                                                    vask_test::graphFence(pDiamond)));
      EXPECT_GT(numFallingInnerDiagonals(dt, setOf(dt.createZone(pDiamond, ZL_INSIDE))), 0);
    }
  }
}

// A jittered grid is not cocircular: tolerance 0 flips nothing, a tolerance
// above the jitter turns the diagonals and may leave the mesh non-Delaunay,
// but valid, with the same zone area.
TEST(UnifyGrid, ToleranceDecidesOnNearlySquareCells) {
  Vask_2D dt;
  std::mt19937_64 rng(4);
  std::uniform_real_distribution<double> jitter(-0.01, 0.01);
  std::vector<Point2> v;
  for (int i = 0; i < 20; ++i)
    for (int j = 0; j < 20; ++j) v.push_back(Point2(i + jitter(rng), j + jitter(rng)));
  dt.insert(v);
  Zone2* pAll(dt.createZone(nullptr, ZL_GLOBAL));
  const double area(vask_test::exactDoubleAreaOf(trianglesOf(pAll)));
  const int falling(numFallingInnerDiagonals(dt, setOf(pAll)));
  ASSERT_GT(falling, 20);
  pAll->unifyGrid(0.0);
  EXPECT_EQ(falling, numFallingInnerDiagonals(dt, setOf(pAll)));
  pAll->unifyGrid(0.05);
  EXPECT_TRUE(dt.checkValidity(false, "unified jittered grid"));
  EXPECT_EQ(0, numFallingInnerDiagonals(dt, setOf(pAll)));
  EXPECT_EQ(area, vask_test::exactDoubleAreaOf(trianglesOf(pAll)));
}

} // namespace
