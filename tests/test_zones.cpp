// Zones judged by the exact checker: every mesh triangle's rational centroid
// against the fences by winding number, areas against the exact shoelace
// sum. Each zone kind must keep its region and area while points come in,
// fence edges are split and inner points leave; plus the queries, the zone
// made from a triangle list, and the refusals of bad input.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include "helpers/ZoneChecker.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace KIRO_VASK2D;
using vask_test::Fence;

namespace {

typedef std::vector<Point2> Ring;

// A configuration drawn in the unit square, mapped by scale and offset (powers
// of two, so dyadic coordinates stay exact at every magnitude).
struct Frame {
  double scale;
  double offset;
  Point2 map(double x, double y) const { return Point2(offset + scale * x, offset + scale * y); }
  Ring map(const std::vector<std::pair<double, double> >& v) const {
    Ring r;
    for (const auto& p : v) r.push_back(map(p.first, p.second));
    return r;
  }
};

// An outer non-convex ring (counter-clockwise), a clockwise hole in it and a
// counter-clockwise island in the hole: winding 1 in the annulus and the
// island, 0 in the hole and outside.
std::vector<Ring> nestedRings(const Frame& f) {
  return {f.map({{0.125, 0.125}, {0.875, 0.125}, {0.875, 0.875}, {0.5, 0.625}, {0.125, 0.875}}),
          f.map({{0.25, 0.25}, {0.25, 0.5}, {0.5, 0.5}, {0.5, 0.25}}),
          f.map({{0.3125, 0.3125}, {0.4375, 0.3125}, {0.4375, 0.4375}, {0.3125, 0.4375}})};
}

std::vector<Segment2> ringSegments(const std::vector<Ring>& vRings) {
  std::vector<Segment2> v;
  for (const Ring& r : vRings)
    for (size_t i = 0; i < r.size(); ++i) v.push_back(Segment2(r[i], r[(i + 1) % r.size()]));
  return v;
}

Fence fenceOf(const std::vector<Ring>& vRings) {
  Fence fence;
  for (const Ring& r : vRings) vask_test::appendFence(fence, vask_test::ringFence(r));
  return fence;
}

enum Family { RANDOM, CLUSTERED, GRID, NEAR_FENCE };

// Points of a family in the unit square, with its corners so that every
// ring lies inside the hull.
std::vector<Point2> familyPoints(Family family, const Frame& f, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<Point2> v{f.map(0, 0), f.map(1, 0), f.map(1, 1), f.map(0, 1)};
  if (family == RANDOM)
    for (int i = 0; i < 400; ++i) v.push_back(f.map(u(rng), u(rng)));
  if (family == CLUSTERED) {
    std::normal_distribution<double> g(0.0, 0.03);
    for (int c = 0; c < 8; ++c) {
      const double cx(u(rng)), cy(u(rng));
      for (int i = 0; i < 50; ++i)
        v.push_back(f.map(std::min(1.0, std::max(0.0, cx + g(rng))), std::min(1.0, std::max(0.0, cy + g(rng)))));
    }
  }
  if (family == NEAR_FENCE) { // on the fences and a few ulps beside them
    const double inf(std::numeric_limits<double>::infinity());
    for (int i = 0; i < 100; ++i) v.push_back(f.map(u(rng), u(rng)));
    for (const Ring& r : nestedRings(f))
      for (size_t e = 0; e < r.size(); ++e)
        for (int k = 1; k < 16; ++k) {
          const Point2 &a(r[e]), &b(r[(e + 1) % r.size()]);
          double x(a.x() + (b.x() - a.x()) * (k / 16.0)), y(a.y() + (b.y() - a.y()) * (k / 16.0));
          double& c(u(rng) < 0.5 ? x : y);
          for (int step = static_cast<int>(u(rng) * 7) - 3; step != 0; step += step > 0 ? -1 : 1)
            c = std::nextafter(c, step > 0 ? inf : -inf);
          v.push_back(Point2(x, y));
        }
  }
  if (family == GRID) // every ring vertex is a grid point, every ring edge runs through grid points
    for (int i = 0; i <= 16; ++i)
      for (int j = 0; j <= 16; ++j) v.push_back(f.map(i / 16.0, j / 16.0));
  return v;
}

std::set<Triangle2*> asSet(const std::vector<Triangle2*>& v) { return std::set<Triangle2*>(v.begin(), v.end()); }

std::vector<Triangle2*> trianglesOf(const Zone2* pZone) {
  std::vector<Triangle2*> v;
  pZone->getTriangles(v);
  return v;
}

bool inside(int w) { return w > 0; }
bool outside(int w) { return w == 0; }

// The checks every step ends with: the mesh is valid; the inside zone is
// winding > 0 of the fence as it stands, with exactly its area; outside is
// winding 0; inside and outside tile the global zone; grow zones seeded in
// the annulus and the island give the inside zone.
void expectZonesHold(Vask_2D& dt, ConstraintGraph2* pCG, Zone2* pIn, Zone2* pOut, Zone2* pAll, Zone2* pGrow,
                     const std::string& step) {
  SCOPED_TRACE(step);
  ASSERT_TRUE(dt.checkValidity(true, "zones"));
  const Fence fence(vask_test::graphFence(pCG));
  const std::vector<Triangle2*> vIn(trianglesOf(pIn)), vOut(trianglesOf(pOut)), vAll(trianglesOf(pAll));
  const vask_test::ZoneCheck in(vask_test::checkZoneMembership(dt, vIn, fence, inside));
  EXPECT_TRUE(in.ok) << in.firstError << " (" << in.numErrors << ")";
  const vask_test::ZoneCheck out(vask_test::checkZoneMembership(dt, vOut, fence, outside));
  EXPECT_TRUE(out.ok) << out.firstError << " (" << out.numErrors << ")";
  EXPECT_EQ(0, vask_test::compareAreaWithFence(vIn, fence));
  EXPECT_EQ(vAll.size(), dt.numberOfTriangles());
  EXPECT_EQ(vIn.size() + vOut.size(), vAll.size());
  std::set<Triangle2*> sUnion(asSet(vIn));
  sUnion.insert(vOut.begin(), vOut.end());
  EXPECT_EQ(asSet(vAll), sUnion);
  EXPECT_EQ(asSet(vIn), asSet(trianglesOf(pGrow)));
}

struct ZoneCase {
  Family family;
  double scale;
  double offset;
  ConstraintInsertionStrategy cis;
};

class ZoneKindsKeepRegion : public testing::TestWithParam<ZoneCase> {};

// Random sequences of insertions, on-edge splits of fence edges (exact
// points on axis-aligned leaves), splits through the segment itself, and
// removals of inner points, with all zone kinds checked after each step.
TEST_P(ZoneKindsKeepRegion, ThroughInsertionsSplitsAndRemovals) {
  const ZoneCase zc(GetParam());
  const Frame frame{zc.scale, zc.offset};
  Vask_2D dt;
  dt.insert(familyPoints(zc.family, frame, 7));
  const std::vector<Ring> vRings(nestedRings(frame));
  std::vector<Segment2> vSegments(ringSegments(vRings));
  ConstraintGraph2* pCG(dt.createConstraint(vSegments, zc.cis, true));
  ASSERT_NE(nullptr, pCG);
  dt.applyConstraintsAndZones();
  Zone2* pIn(dt.createZone(pCG, ZL_INSIDE));
  Zone2* pOut(dt.createZone(pCG, ZL_OUTSIDE));
  Zone2* pAll(dt.createZone(nullptr, ZL_GLOBAL));
  // Seeds lie off every fence. The facade's grow zone has one, in the annulus;
  // the constructor takes several: two in the annulus (the same region) and
  // one in the island, which together give the inside.
  Zone2* pGrow(dt.createZone(std::vector<ConstraintGraph2*>(1, pCG), ZL_GROW, frame.map(0.75, 0.3)));
  ASSERT_TRUE(pIn && pOut && pAll && pGrow);
  std::vector<Point2> vSeeds{frame.map(0.75, 0.3), frame.map(0.7, 0.2), frame.map(0.375, 0.375)};
  Zone2 grow3(dt.getImpl(), std::vector<ConstraintGraph2*>(1, pCG), ZL_GROW, vSeeds);
  const double originalArea(vask_test::fenceDoubleArea(fenceOf(vRings), zc.scale));
  expectZonesHold(dt, pCG, pIn, pOut, pAll, &grow3, "created");
  EXPECT_EQ(0, vask_test::compareAreaWithFence(trianglesOf(pIn), fenceOf(vRings)));

  std::mt19937_64 rng(11 + zc.family);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  bool bRounded(false); // a split by position may round the new vertex off the segment
  for (int step = 0; step < 40; ++step) {
    const int op(static_cast<int>(u(rng) * 4));
    std::vector<ConstraintSegment2*> vChain;
    pCG->getAliveConstraintChain(vChain);
    ConstraintSegment2* pLeaf(vChain[static_cast<size_t>(u(rng) * vChain.size())]);
    const Point2 a(*pLeaf->getSrc()), b(*pLeaf->getTrg());
    const Point2 mid(a.x() * 0.5 + b.x() * 0.5, a.y() * 0.5 + b.y() * 0.5);
    if (op == 0) {
      dt.insert(frame.map(u(rng), u(rng)));
    } else if (op == 1 && (a.x() == b.x() || a.y() == b.y())) {
      dt.insert(mid); // exactly on the leaf: the vertex splits it
    } else if (op == 2) {
      bRounded |= a.x() != b.x() && a.y() != b.y();
      pLeaf->insertAndSplit(mid);
    } else {
      std::vector<Point2*> vVertices;
      dt.getVertexPointers(vVertices);
      Point2* pVtx(vVertices[static_cast<size_t>(u(rng) * vVertices.size())]);
      const Point2 corner0(frame.map(0, 0)), corner1(frame.map(1, 1));
      const bool bFrame((pVtx->x() == corner0.x() || pVtx->x() == corner1.x()) &&
                        (pVtx->y() == corner0.y() || pVtx->y() == corner1.y()));
      if (!dt.isConstraint(pVtx) && !bFrame) dt.remove(pVtx);
    }
    expectZonesHold(dt, pCG, pIn, pOut, pAll, &grow3, "step " + std::to_string(step) + " op " + std::to_string(op));
    const std::set<Triangle2*> sIn(asSet(trianglesOf(pIn))), sGrow(asSet(trianglesOf(pGrow)));
    EXPECT_TRUE(std::includes(sIn.begin(), sIn.end(), sGrow.begin(), sGrow.end()));
    const double area(vask_test::exactDoubleAreaOf(trianglesOf(pIn), zc.scale));
    if (bRounded) EXPECT_NEAR(originalArea, area, 1e-12 * std::fabs(originalArea));
    else EXPECT_EQ(originalArea, area);
    if (testing::Test::HasFailure()) return;
  }
}

// The annulus seed alone gives the annulus: inside minus the island.
TEST(Zones, GrowZoneStopsAtEveryFenceOfItsGraphs) {
  const Frame frame{1.0, 0.0};
  Vask_2D dt;
  dt.insert(familyPoints(RANDOM, frame, 3));
  const std::vector<Ring> vRings(nestedRings(frame));
  std::vector<Segment2> vOuter(ringSegments({vRings[0], vRings[1]})), vIsland(ringSegments({vRings[2]}));
  ConstraintGraph2* pAnnulus(dt.createConstraint(vOuter, CIS_CONSTRAINED_DELAUNAY, true));
  ConstraintGraph2* pIsland(dt.createConstraint(vIsland, CIS_CONSTRAINED_DELAUNAY, true));
  Zone2* pGrow(dt.createZone(pAnnulus, ZL_GROW, Point2(0.75, 0.3)));
  const vask_test::ZoneCheck c(vask_test::checkZoneMembership(dt, trianglesOf(pGrow), vask_test::graphFence(pAnnulus),
                                                              inside));
  EXPECT_TRUE(c.ok) << c.firstError;
  // Another graph's constraints don't fence: the hole's seed floods the island too.
  Zone2* pHole(dt.createZone(pAnnulus, ZL_GROW, Point2(0.26, 0.26)));
  Fence holeFence(vask_test::ringFence(vRings[1]));
  const vask_test::ZoneCheck h2(vask_test::checkZoneMembership(dt, trianglesOf(pHole), holeFence,
                                                               [](int w) { return w != 0; }));
  EXPECT_TRUE(h2.ok) << h2.firstError;
  // Fenced by both graphs, the hole's seed stays between hole and island.
  Zone2* pRing(dt.createZone(std::vector<ConstraintGraph2*>{pAnnulus, pIsland}, ZL_GROW, Point2(0.26, 0.26)));
  Fence both(holeFence);
  vask_test::appendFence(both, vask_test::graphFence(pIsland));
  const vask_test::ZoneCheck r(vask_test::checkZoneMembership(dt, trianglesOf(pRing), both,
                                                              [](int w) { return w == -1; }));
  EXPECT_TRUE(r.ok) << r.firstError;
}

INSTANTIATE_TEST_SUITE_P(
    Families, ZoneKindsKeepRegion,
    testing::Values(ZoneCase{RANDOM, 1.0, 0.0, CIS_CONSTRAINED_DELAUNAY},
                    ZoneCase{CLUSTERED, 1.0, 0.0, CIS_CONSTRAINED_DELAUNAY},
                    ZoneCase{GRID, 16.0, 0.0, CIS_CONSTRAINED_DELAUNAY},
                    ZoneCase{GRID, 16.0, 0.0, CIS_CONFORMING_DELAUNAY},
                    ZoneCase{RANDOM, 1.0, 0.0, CIS_CONFORMING_DELAUNAY},
                    ZoneCase{RANDOM, std::ldexp(1.0, -1000), 0.0, CIS_CONSTRAINED_DELAUNAY},
                    ZoneCase{CLUSTERED, std::ldexp(1.0, 1000), 0.0, CIS_CONSTRAINED_DELAUNAY},
                    ZoneCase{GRID, 16.0, std::ldexp(1.0, 40), CIS_CONSTRAINED_DELAUNAY},
                    ZoneCase{NEAR_FENCE, 1.0, 0.0, CIS_CONSTRAINED_DELAUNAY},
                    ZoneCase{NEAR_FENCE, std::ldexp(1.0, -1000), 0.0, CIS_CONFORMING_DELAUNAY}));

// Two overlapping counter-clockwise squares as two graphs, a third one
// crossing both: the inside of all is winding > 0 of their union, whatever
// the crossings did to the leaves.
TEST(Zones, InsideOfCrossingFencesIsPositiveWinding) {
  Vask_2D dt;
  dt.insert(familyPoints(RANDOM, Frame{1.0, 0.0}, 5));
  std::vector<std::vector<Segment2> > vInputs{
      ringSegments({Ring{Point2(0.1, 0.1), Point2(0.6, 0.1), Point2(0.6, 0.6), Point2(0.1, 0.6)}}),
      ringSegments({Ring{Point2(0.4, 0.3), Point2(0.9, 0.35), Point2(0.85, 0.9), Point2(0.35, 0.8)}}),
      ringSegments({Ring{Point2(0.05, 0.45), Point2(0.95, 0.5), Point2(0.5, 0.55)}})};
  std::vector<ConstraintGraph2*> vGraphs;
  for (auto& v : vInputs) vGraphs.push_back(dt.createConstraint(v, CIS_CONSTRAINED_DELAUNAY, true));
  Zone2* pIn(dt.getImpl()->createZone(vGraphs, ZL_INSIDE));
  ASSERT_NE(nullptr, pIn);
  for (int round = 0; round < 2; ++round) {
    Fence fence;
    for (ConstraintGraph2* pCG : vGraphs) vask_test::appendFence(fence, vask_test::graphFence(pCG));
    const vask_test::ZoneCheck c(vask_test::checkZoneMembership(dt, trianglesOf(pIn), fence, inside));
    EXPECT_TRUE(c.ok) << c.firstError << " (" << c.numErrors << ")";
    EXPECT_TRUE(dt.checkValidity(true, "crossing"));
    dt.insert(vask_test::randomPoints(300, 99 + round));
  }
}

Fence reversed(const Fence& fence) {
  Fence r;
  for (const auto& seg : fence) r.emplace_back(seg.second, seg.first);
  return r;
}

// A zone made from a list of triangles is exactly that list, and keeps the
// region (winding -1 of its fence, which has the zone on its right) through
// insertions and removals. Random subsets give single triangles, holes and
// pieces touching at a vertex; the checkerboard only pieces touching at
// corners.
TEST(Zones, ZoneFromTrianglesKeepsTheirRegion) {
  for (int variant = 0; variant < 3; ++variant) {
    SCOPED_TRACE(variant);
    Vask_2D dt;
    const bool bGrid(variant == 2);
    dt.insert(familyPoints(bGrid ? GRID : RANDOM, Frame{1.0, 0.0}, 21 + variant));
    std::vector<Triangle2*> vAll, vPick;
    dt.getTrianglePointers(vAll);
    std::mt19937_64 rng(5 + variant);
    for (Triangle2* pT : vAll) {
      const Point2 c(pT->getBarycenter());
      const bool bTake(bGrid ? (static_cast<int>(c.x() * 4) + static_cast<int>(c.y() * 4)) % 2 == 0
                             : std::uniform_real_distribution<double>(0, 1)(rng) < (variant == 0 ? 0.3 : 0.7));
      if (bTake) vPick.push_back(pT);
    }
    vPick.push_back(vPick.front()); // a duplicate changes nothing
    Zone2* pZone(dt.createZone(vPick));
    ASSERT_NE(nullptr, pZone);
    EXPECT_EQ(ZL_GROW, pZone->getZoneLocation());
    EXPECT_EQ(asSet(vPick), asSet(trianglesOf(pZone)));
    if (bGrid) EXPECT_EQ(8u, pZone->getStartPoints().size());
    ConstraintGraph2* pCG(pZone->getConstraintGraph());
    ASSERT_NE(nullptr, pCG);
    const double area(vask_test::exactDoubleAreaOf(trianglesOf(pZone)));
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int step = 0; step < 30; ++step) {
      if (step % 3 == 2) {
        std::vector<Point2*> vV;
        dt.getVertexPointers(vV);
        Point2* pVtx(vV[static_cast<size_t>(u(rng) * vV.size())]);
        if (!dt.isConstraint(pVtx) && pVtx->x() > 0 && pVtx->x() < 1 && pVtx->y() > 0 && pVtx->y() < 1) dt.remove(pVtx);
      } else {
        dt.insert(Point2(u(rng), u(rng)));
      }
      ASSERT_TRUE(dt.checkValidity(true, "zone from triangles"));
      const std::vector<Triangle2*> vZone(trianglesOf(pZone));
      const Fence fence(vask_test::graphFence(pCG));
      const vask_test::ZoneCheck c(vask_test::checkZoneMembership(dt, vZone, fence, [](int w) { return w == -1; }));
      ASSERT_TRUE(c.ok) << c.firstError << " (" << c.numErrors << ") at step " << step;
      EXPECT_EQ(0, vask_test::compareAreaWithFence(vZone, reversed(fence)));
      EXPECT_EQ(area, vask_test::exactDoubleAreaOf(vZone));
    }
  }
}

// The queries agree with each other and with the fence: the border of an
// inside zone is its fence, in the fence's direction; segments run the
// other way; vertices are the corners, sorted and unique; every kind
// converts to a bounded zone of the same triangles.
TEST(Zones, QueriesAndBoundedZonesAgreeWithTheFence) {
  const Frame frame{16.0, 0.0};
  Vask_2D dt;
  dt.insert(familyPoints(GRID, frame, 1));
  const std::vector<Ring> vRings(nestedRings(frame));
  std::vector<Segment2> vSegments(ringSegments(vRings));
  ConstraintGraph2* pCG(dt.createConstraint(vSegments, CIS_CONSTRAINED_DELAUNAY, true));
  Zone2* pIn(dt.createZone(pCG, ZL_INSIDE));
  const std::vector<Triangle2*> vIn(trianglesOf(pIn));
  EXPECT_EQ(vIn.size(), pIn->getNumberOfTriangles());
  EXPECT_EQ(pCG, pIn->getConstraintGraph());
  EXPECT_EQ(1u, pIn->numberOfConstraintGraphs());
  EXPECT_EQ(dt.getImpl(), pIn->getDelaunayTriangulation());
  EXPECT_NEAR(vask_test::exactDoubleAreaOf(vIn) / 2, pIn->getArea2D(), 1e-12);

  std::vector<Edge2> vBorder, vBorder2;
  pIn->getBoundaryEdges(vBorder);
  pIn->getBorderEdges(vBorder2);
  EXPECT_EQ(vBorder, vBorder2);
  std::set<std::pair<Point2*, Point2*> > sBorder, sFence;
  for (const Edge2& e : vBorder) sBorder.insert(std::make_pair(e.getSrc(), e.getTrg()));
  std::vector<Point2*> vPairs;
  pCG->getPolygonVertices(vPairs);
  for (size_t i = 0; i < vPairs.size(); i += 2) sFence.insert(std::make_pair(vPairs[i], vPairs[i + 1]));
  EXPECT_EQ(sFence, sBorder);
  EXPECT_EQ(vBorder.size(), sBorder.size());
  std::vector<Segment2> vBorderSegments;
  pIn->getBoundarySegments(vBorderSegments);
  ASSERT_EQ(vBorder.size(), vBorderSegments.size());
  for (size_t i = 0; i < vBorder.size(); ++i) {
    EXPECT_EQ(*vBorder[i].getTrg(), vBorderSegments[i].getSrc());
    EXPECT_EQ(*vBorder[i].getSrc(), vBorderSegments[i].getTrg());
  }

  std::vector<Point2*> vVertices, vCorners;
  pIn->getVertices(vVertices);
  for (Triangle2* pT : vIn)
    for (int i = 0; i < 3; ++i) vCorners.push_back(pT->getCorner(i));
  std::sort(vCorners.begin(), vCorners.end());
  vCorners.erase(std::unique(vCorners.begin(), vCorners.end()), vCorners.end());
  EXPECT_EQ(vCorners, vVertices);
  const Bbox2 box(pIn->getBoundingBox());
  EXPECT_EQ(2.0, box.get_minX());
  EXPECT_EQ(2.0, box.get_minY());
  EXPECT_EQ(14.0, box.get_maxX());
  EXPECT_EQ(14.0, box.get_maxY());

  EXPECT_EQ(pIn, pIn->convertToBoundedZone());
  Zone2* pOut(dt.createZone(pCG, ZL_OUTSIDE));
  Zone2* pAll(dt.createZone(nullptr, ZL_GLOBAL));
  Zone2* pGrow(dt.createZone(pCG, ZL_GROW, frame.map(0.75, 0.3)));
  for (Zone2* pZone : {pOut, pAll, pGrow}) {
    Zone2* pBounded(pZone->convertToBoundedZone());
    ASSERT_NE(nullptr, pBounded);
    EXPECT_NE(pZone, pBounded);
    EXPECT_EQ(ZL_BOUNDED, pBounded->getZoneLocation());
    EXPECT_EQ(asSet(trianglesOf(pZone)), asSet(trianglesOf(pBounded)));
  }
  // A copy has the recipe and gives the same triangles.
  Zone2 copy(*pGrow);
  EXPECT_EQ(asSet(trianglesOf(pGrow)), asSet(trianglesOf(&copy)));
  copy = *pIn;
  EXPECT_EQ(ZL_INSIDE, copy.getZoneLocation());
  EXPECT_EQ(asSet(vIn), asSet(trianglesOf(&copy)));
}

using vask_test::captured;
using vask_test::says;

// Fenced zones at the limits: an outside that is empty stays silent; an
// open chain encloses nothing, so its inside is everything; an inside with
// no triangle on its left reports and gives nothing; a seed outside the
// hull reports and gives nothing; a seed on a fence warns.
TEST(Zones, LimitsOfFencedZones) {
  Vask_2D dt;
  dt.insert(familyPoints(RANDOM, Frame{1.0, 0.0}, 2));
  std::vector<Segment2> vHull(ringSegments({Ring{Point2(0, 0), Point2(1, 0), Point2(1, 1), Point2(0, 1)}}));
  ConstraintGraph2* pHull(dt.createConstraint(vHull, CIS_CONSTRAINED_DELAUNAY, true));
  Zone2* pOut(dt.createZone(pHull, ZL_OUTSIDE));
  std::vector<Triangle2*> v;
  std::string out(captured([&] { pOut->getTriangles(v); }));
  EXPECT_TRUE(v.empty());
  EXPECT_EQ(std::string::npos, out.find("WARNING"));

  std::vector<Segment2> vClockwise(ringSegments({Ring{Point2(0, 0), Point2(0, 1), Point2(1, 1), Point2(1, 0)}}));
  ConstraintGraph2* pCW(dt.createConstraint(vClockwise, CIS_CONSTRAINED_DELAUNAY, true));
  Zone2* pEmpty(dt.createZone(pCW, ZL_INSIDE));
  ASSERT_NE(nullptr, pEmpty);
  out = captured([&] { pEmpty->getTriangles(v); });
  EXPECT_TRUE(v.empty());
  EXPECT_TRUE(says(out, "Zone2::getTriangles()",
                   "An inside zone is empty - have you called Vask_2D::applyConstraintsAndZones()?"))
      << out;

  std::vector<Segment2> vChain{Segment2(Point2(0.2, 0.2), Point2(0.5, 0.7)), Segment2(Point2(0.5, 0.7), Point2(0.8, 0.3))};
  ConstraintGraph2* pChain(dt.createConstraint(vChain, CIS_CONSTRAINED_DELAUNAY, true));
  Zone2* pLeft(dt.createZone(pChain, ZL_INSIDE));
  ASSERT_NE(nullptr, pLeft);
  EXPECT_EQ(dt.numberOfTriangles(), pLeft->getNumberOfTriangles());

  Zone2* pFar(dt.createZone(pChain, ZL_GROW, Point2(5.0, 5.0)));
  ASSERT_NE(nullptr, pFar);
  v.clear();
  out = captured([&] { pFar->getTriangles(v); });
  EXPECT_TRUE(v.empty());
  EXPECT_TRUE(says(out, "growZoneArea()", "pVtx is outside the convex hull of the triangulation, no triangles returned"));

  Zone2* pOnFence(dt.createZone(pChain, ZL_GROW, Point2(0.5, 0.7)));
  out = captured([&] { pOnFence->getTriangles(v); });
  EXPECT_TRUE(says(out, "Dt2::growZoneArea()", "The start point 0.5 0.7 lies on a fence")) << out;
}

// Every refusal says what was wrong, returns null and throws nothing.
TEST(Zones, BadInputIsRefusedWithItsMessage) {
  Vask_2D dt, other;
  std::string out(captured([&] { EXPECT_EQ(nullptr, dt.createZone(nullptr, ZL_GLOBAL)); }));
  EXPECT_TRUE(says(out, "Dt2::createZone", "The triangulation has no area yet. Returning NULL"));
  EXPECT_TRUE(says(out, "Vask_2D::createZone(..)", "No zone created, returning NULL (bVerbose==true)"));
  out = captured([&] { EXPECT_EQ(nullptr, dt.createZone(nullptr, ZL_GLOBAL, false)); });
  EXPECT_EQ(std::string::npos, out.find("No zone created"));

  dt.insert(familyPoints(RANDOM, Frame{1.0, 0.0}, 4));
  other.insert(familyPoints(RANDOM, Frame{1.0, 0.0}, 4));
  std::vector<Segment2> vRing(ringSegments({Ring{Point2(0.2, 0.2), Point2(0.8, 0.2), Point2(0.5, 0.8)}}));
  std::vector<Segment2> vOpen{Segment2(Point2(0.1, 0.1), Point2(0.9, 0.2))};
  ConstraintGraph2* pRing(dt.createConstraint(vRing, CIS_CONSTRAINED_DELAUNAY, true));
  ConstraintGraph2* pOpen(dt.createConstraint(vOpen, CIS_CONSTRAINED_DELAUNAY, false));
  ConstraintGraph2* pForeign(other.createConstraint(vRing, CIS_CONSTRAINED_DELAUNAY, true));
  const char* const tag("Dt2::createZone()");
  struct Case {
    std::function<Zone2*()> create;
    std::string tag;
    std::string text;
  };
  const std::vector<Case> vCases{
      {[&] { return dt.createZone(nullptr, ZL_INSIDE); }, "Dt::createZone()",
       "pConstraintGraph==NULL, but zoneLoc!=ZL_GLOBAL or ZL_RESULT. Returning NULL"},
      {[&] { return dt.createZone(pOpen, ZL_INSIDE); }, tag, "The constraint graph is not oriented, returning NULL"},
      {[&] { return dt.createZone(pForeign, ZL_OUTSIDE); }, tag,
       "The constraint graph belongs to another triangulation, returning NULL"},
      {[&] { return dt.createZone(pRing, ZL_GLOBAL); }, tag, "ZL_GLOBAL takes no constraint graph"},
      {[&] { return dt.createZone(pRing, ZL_GROW); }, tag, "ZL_GROW needs a start point"},
      {[&] { return dt.createZone(pRing, ZL_RESULT_UNION); }, tag, "A ZL_RESULT zone comes from zoneUnion"},
      {[&] { return dt.createZone(nullptr, ZL_RESULT_SYM_DIFFERENCE); }, tag, "A ZL_RESULT zone comes from zoneUnion"},
      {[&] { return dt.createZone(pRing, static_cast<ZoneLocation>(42)); }, tag, "zoneLoc=42 is no ZoneLocation"},
      {[&] { return dt.createZone(pRing, ZL_INSIDE, Point2(0.5, 0.4)); }, tag,
       "This overloaded version of createZone accepts only ZL_GROW as zoneLocation. Returning NULL"},
      {[&] { return dt.createZone(nullptr, ZL_GROW, Point2(0.5, 0.4)); }, tag,
       "One of the constraint graphs is NULL, returning NULL"},
      {[&] { return dt.createZone(pForeign, ZL_GROW, Point2(0.5, 0.4)); }, tag,
       "The constraint graph belongs to another triangulation, returning NULL"},
      {[&] { return dt.createZone(pRing, ZL_GROW, Point2(std::nan(""), 0.4)); }, tag,
       "The start point has a NaN or infinite coordinate"},
      {[&] {
         std::vector<Triangle2*> v;
         return dt.createZone(v);
       },
       tag, "vTriangles is empty, returning NULL"},
      {[&] {
         std::vector<Triangle2*> v;
         other.getTrianglePointers(v);
         return dt.createZone(v);
       },
       tag, "vTriangles holds NULL, a dead triangle or a triangle of another triangulation, returning NULL"},
      {[&] {
         std::vector<Triangle2*> v(1, nullptr);
         return dt.createZone(v);
       },
       tag, "vTriangles holds NULL"},
      {[&] { return dt.getImpl()->createZone(std::vector<ConstraintGraph2*>(1, pRing), ZL_GROW); }, tag,
       "This overloaded version of createZone accepts only ZL_INSIDE and ZL_OUTSIDE as zoneLocation. Returning NULL"},
      {[&] { return dt.getImpl()->createZone(std::vector<ConstraintGraph2*>{pRing, pOpen}, ZL_INSIDE); }, tag,
       "The constraint graph is not oriented, returning NULL"},
      {[&] {
         std::vector<Edge2> v;
         return dt.getImpl()->createZone(v, ZL_INSIDE);
       },
       tag, "This overloaded version of createZone accepts only ZL_BOUNDED as zoneLocation. Returning NULL"},
  };
  for (size_t i = 0; i < vCases.size(); ++i) {
    Zone2* pZone(reinterpret_cast<Zone2*>(1));
    out = captured([&] { pZone = vCases[i].create(); });
    EXPECT_EQ(nullptr, pZone) << i;
    EXPECT_TRUE(says(out, vCases[i].tag, vCases[i].text)) << i << ": " << out;
  }
  EXPECT_EQ(0u, dt.getImpl()->numberOfZones());

  Zone2* pZone(dt.createZone(pRing, ZL_INSIDE));
  Zone2* pTwo(dt.getImpl()->createZone(std::vector<ConstraintGraph2*>{pRing, pRing}, ZL_OUTSIDE));
  ASSERT_TRUE(pZone && pTwo);
  out = captured([&] { EXPECT_EQ(nullptr, pTwo->getConstraintGraph()); });
  EXPECT_TRUE(says(out, "Zone2::getConstraintGraph()",
                   "There is more than one constraint graph, use Zone2::getConstraintGraphs() instead. Returning NULL"));
  dt.deleteZone(pZone);
  for (Zone2* pBad : {pZone, static_cast<Zone2*>(nullptr), pTwo + 1}) {
    out = captured([&] { dt.deleteZone(pBad); });
    EXPECT_TRUE(says(out, "Dt2::deleteZone(..)", "trying to delete a non-existing zone"));
  }
  EXPECT_EQ(1u, dt.getImpl()->numberOfZones());
}

// The drawings are PostScript files; the statistics count the triangles.
TEST(Zones, DrawsAndReportsItsTriangles) {
  Vask_2D dt;
  dt.insert(familyPoints(CLUSTERED, Frame{1.0, 0.0}, 8));
  std::vector<Segment2> vRing(ringSegments(nestedRings(Frame{1.0, 0.0})));
  ConstraintGraph2* pCG(dt.createConstraint(vRing, CIS_CONSTRAINED_DELAUNAY, true));
  Zone2* pIn(dt.createZone(pCG, ZL_INSIDE));
  const std::vector<std::string> vFiles{"zone_show.ps", "zone_show_full.ps", "zone_debug.ps"};
  pIn->show(vFiles[0].c_str(), false, true);
  pIn->show(vFiles[1].c_str(), true, true);
  const std::string out(captured([&] {
    pIn->debug(vFiles[2].c_str());
    pIn->statistics("inside");
  }));
  EXPECT_NE(std::string::npos, out.find("This is Zone2::debug()"));
  EXPECT_NE(std::string::npos, out.find("********* ZONE STATISTICS (inside) **********"));
  EXPECT_NE(std::string::npos, out.find("Number of triangles: " + std::to_string(pIn->getNumberOfTriangles())));
  EXPECT_NE(std::string::npos, out.find("INTERIOR ANGLES"));
  for (const std::string& name : vFiles) {
    std::ifstream in(name);
    std::string first;
    std::getline(in, first);
    EXPECT_EQ(0u, first.find("%!PS")) << name;
    std::remove(name.c_str());
  }
}

} // namespace
