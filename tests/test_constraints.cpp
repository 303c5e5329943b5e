// Constraints in the mesh, through the facade, judged by the independent
// checker: segment families in both strategies with exact crossing counts
// and an unchanged hull, polygons in both directions, two graphs on one
// vertex pair, later insertions, splits and removals, and bad input.
#include "Vask_2D.h"
#include "helpers/ConstraintChecker.h"
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "helpers/ExactOracle.h"
#include "helpers/TestHelpers.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

typedef std::vector<Segment2> Segments;

double uniform01(std::mt19937_64& rng) { return std::uniform_real_distribution<double>(0.0, 1.0)(rng); }

// Pairs of segments whose interiors cross in one point, decided exactly.
std::size_t exactCrossingCount(const Segments& v) {
  std::size_t n(0);
  for (std::size_t i = 0; i < v.size(); ++i)
    for (std::size_t j = i + 1; j < v.size(); ++j) {
      const Point2 &a(v[i].getSrc()), &b(v[i].getTrg()), &c(v[j].getSrc()), &d(v[j].getTrg());
      n += vask_test::exactOrientationSign(a, b, c) * vask_test::exactOrientationSign(a, b, d) < 0 &&
           vask_test::exactOrientationSign(c, d, a) * vask_test::exactOrientationSign(c, d, b) < 0;
    }
  return n;
}

// The corners of the hull by coordinates: equal sets, equal areas.
std::set<std::pair<double, double> > hullCorners(Vask_2D& dt) {
  std::vector<Point2*> vHull;
  dt.getConvexHull(false, vHull);
  std::set<std::pair<double, double> > s;
  for (const Point2* p : vHull) s.insert(std::make_pair(p->x(), p->y()));
  return s;
}

// A segment family over a pool of mesh points: the segments, and whether
// every crossing is a new vertex of its own (no three segments through one
// point, no crossing on a vertex).
struct Family {
  const char* name;
  std::function<Segments(std::vector<Point2>& vPool, std::mt19937_64& rng)> make;
  bool bGeneralPosition;
};

const std::vector<Family>& families() {
  static const std::vector<Family> v = {
      {"random crossings",
       [](std::vector<Point2>&, std::mt19937_64& rng) {
         Segments s;
         for (int i = 0; i < 25; ++i) {
           const Point2 a(uniform01(rng), uniform01(rng));
           s.emplace_back(a, Point2(uniform01(rng), uniform01(rng)));
         }
         return s;
       },
       true},
      {"long-segment grid",
       [](std::vector<Point2>&, std::mt19937_64& rng) {
         Segments s;
         for (int i = 0; i < 8; ++i) {
           const double x(uniform01(rng)), y(uniform01(rng));
           s.emplace_back(Point2(x, -0.25), Point2(x, 1.25));
           s.emplace_back(Point2(-0.25, y), Point2(1.25, y));
         }
         return s;
       },
       true},
      {"fan through a vertex",
       [](std::vector<Point2>& vPool, std::mt19937_64& rng) {
         // 0.5 - t and 0.5 + t are exact for t in [0, 0.5): every segment
         // runs exactly through the vertex (0.5, 0.5).
         vPool.emplace_back(0.5, 0.5);
         Segments s;
         for (int i = 0; i < 10; ++i) {
           const double tx(uniform01(rng) / 2), ty(uniform01(rng) / 2);
           s.emplace_back(Point2(0.5 - tx, 0.5 - ty), Point2(0.5 + tx, 0.5 + ty));
         }
         return s;
       },
       false},
      {"fan through a point that is no vertex",
       [](std::vector<Point2>&, std::mt19937_64& rng) {
         Segments s;
         for (int i = 0; i < 10; ++i) {
           const double a(uniform01(rng) * M_PI);
           s.emplace_back(Point2(0.3 + 0.4 * std::cos(a), 0.3 + 0.4 * std::sin(a)),
                          Point2(0.3 - 0.4 * std::cos(a), 0.3 - 0.4 * std::sin(a)));
         }
         return s;
       },
       false},
      {"steep near-parallel pairs",
       [](std::vector<Point2>&, std::mt19937_64& rng) {
         Segments s;
         for (int i = 0; i < 6; ++i) {
           const double x(0.1 + 0.8 * uniform01(rng)), y0(0.2 * uniform01(rng)), y1(0.8 + 0.2 * uniform01(rng));
           s.emplace_back(Point2(x, y0), Point2(vask_test::ulpShift(x, 3), y1));
           s.emplace_back(Point2(vask_test::ulpShift(x, 2), y0), Point2(vask_test::ulpShift(x, 1), y1));
         }
         return s;
       },
       true},
      {"collinear overlaps",
       [](std::vector<Point2>&, std::mt19937_64& rng) {
         // On y = x / 2 + 1/8 with x a multiple of 1/64: exact.
         Segments s;
         for (int i = 0; i < 8; ++i) {
           const double x0((rng() % 64) / 64.0), x1((rng() % 64) / 64.0);
           if (x0 != x1) s.emplace_back(Point2(x0, x0 / 2 + 0.125), Point2(x1, x1 / 2 + 0.125));
         }
         s.emplace_back(Point2(0.0, 1.0), Point2(1.0, 0.0)); // crosses them all once
         return s;
       },
       false},
      {"through vertices",
       [](std::vector<Point2>& vPool, std::mt19937_64&) {
         for (int k = 1; k < 16; ++k) vPool.emplace_back(k / 16.0, k / 64.0);
         return Segments{Segment2(Point2(0, 0), Point2(1, 0.25)), Segment2(Point2(0.25, 0.0625), Point2(0.75, 0.1875))};
       },
       true},
      {"along the hull",
       [](std::vector<Point2>& vPool, std::mt19937_64&) {
         for (const Point2& p : {Point2(-1, -1), Point2(2, -1), Point2(2, 2), Point2(-1, 2), Point2(0.5, -1)})
           vPool.push_back(p);
         return Segments{Segment2(Point2(-1, -1), Point2(2, -1)), Segment2(Point2(2, -1), Point2(2, 2)),
                         Segment2(Point2(2, 2), Point2(-1, 2)), Segment2(Point2(-1, 2), Point2(-1, -1)),
                         Segment2(Point2(-1, -1), Point2(2, 2))};
       },
       true}};
  return v;
}

} // namespace

// Each family over random points, in both strategies: the checker holds
// (conforming pieces all stand after applying), a constrained set makes
// exactly one new vertex per crossing where the crossings are in general
// position and none elsewhere, and the hull never changes.
TEST(ConstraintFamilies, StandInBothStrategiesWithExactCrossingsAndTheHullUnchanged) {
  double worstCrossing(0.0), worstRoot(0.0), worstMidpoint(0.0);
  for (const Family& family : families())
    for (const ConstraintInsertionStrategy cis : {CIS_CONSTRAINED_DELAUNAY, CIS_CONFORMING_DELAUNAY})
      for (unsigned seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE(std::string(family.name) + (cis ? ", constrained" : ", conforming") + ", seed " +
                     std::to_string(seed));
        std::mt19937_64 rng(seed + 1000); // not the pool's sequence
        std::vector<Point2> vPool(vask_test::randomPoints(150, seed));
        Segments vSeg(family.make(vPool, rng));
        Vask_2D dt;
        dt.insert(vPool);
        std::vector<Point2> vEnds;
        for (const Segment2& s : vSeg) {
          vEnds.push_back(s.getSrc());
          vEnds.push_back(s.getTrg());
        }
        dt.insert(vEnds);
        const unsigned numBefore(dt.numberOfPoints());
        const std::set<std::pair<double, double> > hullBefore(hullCorners(dt));
        Segments vInput(vSeg);
        ConstraintGraph2* pCG(dt.createConstraint(vInput, cis));
        ASSERT_NE(pCG, nullptr);
        if (cis == CIS_CONSTRAINED_DELAUNAY) {
          // Constrained: standing as the call returns, before any apply.
          EXPECT_CONSTRAINTS_HOLD(dt, std::vector<ConstraintGraph2*>{pCG}, vask_test::ConstraintCheckOptions());
          const std::size_t numCrossings(exactCrossingCount(vSeg));
          if (family.bGeneralPosition) EXPECT_EQ(dt.numberOfPoints() - numBefore, numCrossings);
          else EXPECT_LE(dt.numberOfPoints() - numBefore, numCrossings);
        }
        dt.applyConstraintsAndZones();
        vask_test::ConstraintCheckOptions options;
        // A conforming run cut at its vertex limit (with its warning) leaves
        // pieces out by design; everything else must stand.
        options.bRequireConformingEdges = !dt.getImpl()->getConstraintMgr()->wasLastApplyCut();
        const vask_test::ConstraintCheck c(vask_test::checkConstraints(dt, {pCG}, options));
        EXPECT_TRUE(c.ok) << c.firstError << "; " << c.summary();
        EXPECT_EQ(hullCorners(dt), hullBefore);
        worstCrossing = std::max(worstCrossing, c.maxCrossingUlps);
        worstRoot = std::max(worstRoot, c.maxCrossingRootUlps);
        worstMidpoint = std::max(worstMidpoint, c.maxMidpointUlps);
      }
  std::printf("[ constraints ] worst crossing %.3g ulps (segment), %.3g ulps (root); worst midpoint %.3g ulps\n",
              worstCrossing, worstRoot, worstMidpoint);
}

namespace {

struct PolygonCase {
  std::string name;
  std::vector<Point2> vRing;
};

std::vector<PolygonCase> readPolygons() {
  std::vector<PolygonCase> v;
  std::ifstream in(std::string(VASK2D_TEST_DATA_DIR) + "/constraint_polygons.txt");
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream ls(line);
    PolygonCase pc;
    ls >> pc.name;
    double x, y;
    while (ls >> x >> y) pc.vRing.emplace_back(x, y);
    v.push_back(pc);
  }
  return v;
}

bool counterClockwise(const std::vector<Point2>& vRing) {
  long double area(0.0L);
  for (std::size_t i = 0; i < vRing.size(); ++i) {
    const Point2 &p(vRing[i]), &q(vRing[(i + 1) % vRing.size()]);
    area += static_cast<long double>(p.x()) * q.y() - static_cast<long double>(q.x()) * p.y();
  }
  return area > 0;
}

} // namespace

// Polygons from tests/data in both directions: a plain graph runs
// counter-clockwise from the leftmost, lowest vertex; an oriented one keeps
// the direction given; both are oriented polygons, their vertex chain stays
// closed when a crossing segment splits them, and the checker holds.
TEST(ConstraintPolygons, PlainRunCounterClockwiseFromLeftmostLowestAndOrientedKeepTheirDirection) {
  const std::vector<PolygonCase> vCases(readPolygons());
  ASSERT_GE(vCases.size(), 5u);
  for (const PolygonCase& pc : vCases)
    for (const bool bReverse : {false, true})
      for (const bool bOriented : {false, true})
        for (const ConstraintInsertionStrategy cis : {CIS_CONSTRAINED_DELAUNAY, CIS_CONFORMING_DELAUNAY}) {
          SCOPED_TRACE(pc.name + (bReverse ? " reversed" : "") + (bOriented ? " oriented" : " plain") +
                       (cis ? " constrained" : " conforming"));
          std::vector<Point2> vRing(pc.vRing);
          if (bReverse) std::reverse(vRing.begin(), vRing.end());
          Vask_2D dt;
          dt.insert(vRing);
          Segments vSeg;
          for (std::size_t i = 0; i < vRing.size(); ++i) vSeg.emplace_back(vRing[i], vRing[(i + 1) % vRing.size()]);
          ConstraintGraph2* pCG(dt.createConstraint(vSeg, cis, bOriented));
          ASSERT_NE(pCG, nullptr);
          EXPECT_TRUE(pCG->isPolygon());
          EXPECT_TRUE(pCG->isOriented());
          // The expected ring: the given one, or counter-clockwise from the
          // leftmost, lowest vertex.
          std::vector<Point2> vExpected(vRing);
          if (!bOriented) {
            if (!counterClockwise(vExpected)) std::reverse(vExpected.begin(), vExpected.end());
            std::rotate(vExpected.begin(), std::min_element(vExpected.begin(), vExpected.end()), vExpected.end());
          }
          std::vector<Point2*> vPairs;
          pCG->getPolygonVertices(vPairs);
          ASSERT_EQ(vPairs.size(), 2 * vRing.size());
          if (bOriented) {
            // Each side in the direction given (the sides' order is the graph's).
            std::set<std::pair<Point2, Point2> > sGiven, sGot;
            for (std::size_t i = 0; i < vRing.size(); ++i) {
              sGiven.insert(std::make_pair(vRing[i], vRing[(i + 1) % vRing.size()]));
              sGot.insert(std::make_pair(*vPairs[2 * i], *vPairs[2 * i + 1]));
            }
            EXPECT_EQ(sGot, sGiven);
          } else {
            for (std::size_t i = 0; i < vRing.size(); ++i) {
              EXPECT_EQ(*vPairs[2 * i], vExpected[i]) << "vertex " << i;
              EXPECT_EQ(*vPairs[2 * i + 1], vExpected[(i + 1) % vRing.size()]) << "vertex " << i;
            }
          }
          // A segment across the polygon splits two of its sides.
          double x0(HUGE_VAL), x1(-HUGE_VAL), y0(HUGE_VAL), y1(-HUGE_VAL);
          for (const Point2& p : vRing) {
            x0 = std::min(x0, p.x()), x1 = std::max(x1, p.x()), y0 = std::min(y0, p.y()), y1 = std::max(y1, p.y());
          }
          Segments vCross{Segment2(Point2(x0 - (x1 - x0) / 4, y0 / 3 + y1 / 1.5), Point2(x1 + (x1 - x0) / 4, y0 / 1.7 + y1 / 2.3))};
          ConstraintGraph2* pCross(dt.createConstraint(vCross, CIS_CONSTRAINED_DELAUNAY));
          dt.applyConstraintsAndZones();
          vask_test::ConstraintCheckOptions options;
          options.bRequireConformingEdges = true;
          EXPECT_CONSTRAINTS_HOLD(dt, (std::vector<ConstraintGraph2*>{pCG, pCross}), options);
          vPairs.clear();
          pCG->getPolygonVertices(vPairs);
          EXPECT_GT(vPairs.size(), 2 * vRing.size());
        }
}

// Two oriented graphs over one vertex pair, in opposite directions and with
// different strategies, share one segment: the first strategy stays, each
// graph keeps its direction, and an insertion on the edge splits it for
// both, the halves owned by both.
TEST(ConstraintSharing, TwoGraphsOnOneVertexPairShareTheSplitAndKeepTheirDirections) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(50, 3));
  const Point2 a(0.125, 0.25), b(0.875, 0.75);
  Segments v1{Segment2(a, b)}, v2{Segment2(b, a)};
  ConstraintGraph2* pAB(dt.createConstraint(v1, CIS_CONSTRAINED_DELAUNAY, true));
  ConstraintGraph2* pBA(dt.createConstraint(v2, CIS_CONFORMING_DELAUNAY, true));
  ASSERT_NE(pAB, nullptr);
  ASSERT_NE(pBA, nullptr);
  std::vector<ConstraintSegment2*> vRootsAB, vRootsBA;
  pAB->getOriginalConstraintSegments(vRootsAB);
  pBA->getOriginalConstraintSegments(vRootsBA);
  ASSERT_EQ(vRootsAB.size(), 1u);
  ASSERT_EQ(vRootsAB, vRootsBA);
  ConstraintSegment2* pRoot(vRootsAB[0]);
  EXPECT_EQ(pRoot->getNumberOfOwners(), 2u);
  EXPECT_EQ(pRoot->getCIS(), CIS_CONSTRAINED_DELAUNAY);
  EXPECT_NE(pAB->isReverse(pRoot), pBA->isReverse(pRoot));

  const Point2 m(0.5, 0.5); // exactly on the segment
  Point2* pM(dt.insert(m));
  EXPECT_FALSE(pRoot->isAlive());
  std::vector<ConstraintSegment2*> vLeaves;
  pRoot->getChildrenRec(vLeaves);
  ASSERT_EQ(vLeaves.size(), 2u);
  for (ConstraintSegment2* p : vLeaves) EXPECT_EQ(p->getNumberOfOwners(), 2u);
  std::vector<Point2*> vPairsAB, vPairsBA;
  pAB->getPolygonVertices(vPairsAB);
  pBA->getPolygonVertices(vPairsBA);
  ASSERT_EQ(vPairsAB.size(), 4u);
  ASSERT_EQ(vPairsBA.size(), 4u);
  EXPECT_EQ(*vPairsAB[0], a);
  EXPECT_EQ(vPairsAB[1], pM);
  EXPECT_EQ(*vPairsAB[3], b);
  EXPECT_EQ(*vPairsBA[0], b);
  EXPECT_EQ(vPairsBA[1], pM);
  EXPECT_EQ(*vPairsBA[3], a);
  EXPECT_TRUE(dt.isConstraint(vPairsAB[0], pM) && dt.isConstraint(pM, vPairsAB[3]));
  EXPECT_CONSTRAINTS_HOLD(dt, (std::vector<ConstraintGraph2*>{pAB, pBA}), vask_test::ConstraintCheckOptions());
}

// A mesh with crossing constraints of both strategies on a dyadic grid,
// then a long random sequence: insertions exactly on constraint edges
// (which split them) and elsewhere, batches, removals (refused at
// constraint vertices, with nothing changed), splits with insertAndSplit
// and splitAndRemovePrev, and makeDelaunay. The checker holds after every
// step; conforming pieces after applying.
TEST(ConstraintChanges, InsertionsSplitsAndRemovalsKeepEveryConstraintStanding) {
  for (unsigned seed = 1; seed <= 2; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 rng(seed);
    auto grid = [&rng]() { return static_cast<double>(rng() % 257) / 256.0; };
    Vask_2D dt;
    std::vector<Point2> vPool;
    for (int i = 0; i < 120; ++i) vPool.emplace_back(grid(), grid());
    dt.insert(vPool);
    Segments vCon, vConf;
    for (int i = 0; i < 10; ++i) vCon.emplace_back(Point2(grid(), grid()), Point2(grid(), grid()));
    for (int i = 0; i < 6; ++i) vConf.emplace_back(Point2(grid(), grid()), Point2(grid(), grid()));
    std::vector<ConstraintGraph2*> vGraphs{dt.createConstraint(vCon, CIS_CONSTRAINED_DELAUNAY),
                                           dt.createConstraint(vConf, CIS_CONFORMING_DELAUNAY)};
    dt.applyConstraintsAndZones();
    vask_test::ConstraintCheckOptions options;
    options.bRequireConformingEdges = true;
    std::size_t numOnEdge(0), numRefused(0), numSplits(0);
    for (int step = 0; step < 100; ++step) {
      std::vector<ConstraintSegment2*> vAlive;
      dt.getAliveConstraintSegments(vAlive);
      ConstraintSegment2* pLeaf(vAlive[rng() % vAlive.size()]);
      const Point2 mid(pLeaf->getSrc()->x() / 2 + pLeaf->getTrg()->x() / 2,
                       pLeaf->getSrc()->y() / 2 + pLeaf->getTrg()->y() / 2);
      const int what(static_cast<int>(rng() % 10));
      if (what < 3) {
        // A conforming piece too short to halve may be no edge: nothing to split.
        const bool bOnEdge(vask_test::exactOrientationSign(*pLeaf->getSrc(), *pLeaf->getTrg(), mid) == 0 &&
                           dt.getAdjacentTriangle(pLeaf->getSrc(), pLeaf->getTrg()) != nullptr);
        Point2* pNew(dt.insert(mid));
        if (bOnEdge && pNew != pLeaf->getSrc() && pNew != pLeaf->getTrg()) {
          ++numOnEdge;
          EXPECT_FALSE(pLeaf->isAlive());
          EXPECT_TRUE(dt.isConstraint(pLeaf->getSrc(), pNew) && dt.isConstraint(pNew, pLeaf->getTrg()));
        }
      } else if (what < 5) {
        dt.insert(Point2(grid(), grid()));
      } else if (what < 6) {
        std::vector<Point2> vBatch;
        for (int i = 0; i < 30; ++i) vBatch.emplace_back(grid(), grid());
        dt.insert(vBatch);
      } else if (what < 8) {
        std::vector<Point2*> vV;
        dt.getVertexPointers(vV);
        Point2* pVtx(vV[rng() % vV.size()]);
        if (dt.isConstraint(pVtx)) {
          const std::vector<vask_test::CanonicalTriangle> before(vask_test::canonicalTriangles(dt));
          dt.remove(pVtx);
          EXPECT_EQ(vask_test::canonicalTriangles(dt), before) << "removal of a constraint vertex changed the mesh";
          ++numRefused;
        } else {
          dt.remove(pVtx);
        }
      } else {
        // Splits at positions of the caller's (or makeDelaunay's) choosing.
        const std::set<const ConstraintSegment2*> sDeadBefore(vask_test::deadSegments(dt));
        if (what == 9) vGraphs[rng() % 2]->makeDelaunay(1.0 / 64); // pieces down to a grid step
        else if (rng() % 2) numSplits += pLeaf->insertAndSplit(mid) != nullptr;
        else numSplits += pLeaf->splitAndRemovePrev(mid);
        vask_test::addNewlyDead(dt, sDeadBefore, options.sPlacedSplits);
        dt.applyConstraintsAndZones();
      }
      const vask_test::ConstraintCheck c(vask_test::checkConstraints(dt, vGraphs, options));
      ASSERT_TRUE(c.ok) << "step " << step << ": " << c.firstError << "; " << c.summary();
    }
    EXPECT_GT(numOnEdge, 5u);
    EXPECT_GT(numRefused, 0u);
    EXPECT_GT(numSplits, 0u);
  }
}

// Bad input: an empty vector gives null; a segment with a NaN or infinite
// end is skipped with a warning and the others stand; a zero-length segment
// is skipped; segments made without area wait for applyConstraintsAndZones;
// a constraint vertex can't be removed; splitting a dead segment throws and
// changes nothing; a split at an end is refused.
TEST(ConstraintBadInput, IsRefusedOrSkippedAndChangesNothingElse) {
  Vask_2D dt;
  Segments vNone;
  testing::internal::CaptureStdout();
  EXPECT_EQ(dt.createConstraint(vNone, CIS_CONSTRAINED_DELAUNAY), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("You have not supplied any segments. Returning NULL!"), std::string::npos);

  // No area: two collinear segments wait.
  Segments vFlat{Segment2(Point2(0, 0), Point2(2, 0)), Segment2(Point2(1, 0), Point2(3, 0))};
  ConstraintGraph2* pFlat(dt.createConstraint(vFlat, CIS_CONSTRAINED_DELAUNAY));
  ASSERT_NE(pFlat, nullptr);
  testing::internal::CaptureStdout();
  dt.applyConstraintsAndZones();
  EXPECT_NE(testing::internal::GetCapturedStdout().find("The triangulation has no area yet, can't apply the constraints"), std::string::npos);
  dt.insert(Point2(1.5, 2));
  vask_test::ConstraintCheckOptions waiting;
  waiting.bRequireConstrainedEdges = false;
  EXPECT_CONSTRAINTS_HOLD(dt, std::vector<ConstraintGraph2*>{pFlat}, waiting);
  dt.applyConstraintsAndZones();
  std::vector<ConstraintGraph2*> vGraphs{pFlat};
  EXPECT_CONSTRAINTS_HOLD(dt, vGraphs, vask_test::ConstraintCheckOptions());
  EXPECT_NE(dt.getConstraintSegment(dt.insert(Point2(1, 0)), dt.insert(Point2(2, 0))), nullptr);

  // Non-finite ends and zero length, among good segments.
  const double NaN(vask_test::NaN), INF(vask_test::INF);
  Segments vMixed{Segment2(Point2(0, 1), Point2(3, 1)), Segment2(Point2(NaN, 1), Point2(2, 3)),
                  Segment2(Point2(0.5, 0.5), Point2(INF, 0)), Segment2(Point2(2.5, 0.5), Point2(2.5, 0.5))};
  const unsigned numBefore(dt.numberOfPoints());
  testing::internal::CaptureStdout();
  ConstraintGraph2* pMixed(dt.createConstraint(vMixed, CIS_CONSTRAINED_DELAUNAY));
  const std::string out(testing::internal::GetCapturedStdout());
  ASSERT_NE(pMixed, nullptr);
  vGraphs.push_back(pMixed);
  EXPECT_NE(out.find("Identical source and endpoint"), std::string::npos) << out;
  std::vector<ConstraintSegment2*> vRoots;
  pMixed->getOriginalConstraintSegments(vRoots);
  EXPECT_EQ(vRoots.size(), 1u);
  // Only the good ends and the zero-length point came in.
  std::vector<Point2*> vV;
  dt.getVertexPointers(vV);
  for (const Point2* p : vV) EXPECT_TRUE(std::isfinite(p->x()) && std::isfinite(p->y()));
  EXPECT_EQ(dt.numberOfPoints(), numBefore + 3);
  EXPECT_CONSTRAINTS_HOLD(dt, vGraphs, vask_test::ConstraintCheckOptions());

  // A constraint vertex stays; a split at an end is refused; a dead segment can't be split.
  Point2* pEnd(dt.insert(Point2(0, 1)));
  const std::vector<vask_test::CanonicalTriangle> before(vask_test::canonicalTriangles(dt));
  const unsigned numPoints(dt.numberOfPoints());
  testing::internal::CaptureStdout();
  dt.remove(pEnd);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Illegal: Can't remove a constraint vertex"), std::string::npos);
  EXPECT_EQ(dt.numberOfPoints(), numPoints);
  std::vector<ConstraintSegment2*> vAlive, vAll;
  dt.getAliveConstraintSegments(vAlive);
  ConstraintSegment2* pLeaf(vAlive.front());
  testing::internal::CaptureStdout();
  EXPECT_EQ(pLeaf->insertAndSplit(*pLeaf->getTrg()), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Trying to split a Constraint segment at one of its endpoints"),
            std::string::npos);
  EXPECT_TRUE(pLeaf->isAlive());
  dt.getAliveAndDeadConstraintSegments(vAll);
  ConstraintSegment2* pDead(nullptr);
  for (ConstraintSegment2* p : vAll)
    if (!p->isAlive()) pDead = p;
  ASSERT_NE(pDead, nullptr);
  const std::size_t numAll(vAll.size()), numAlive(vAlive.size());
  EXPECT_THROW(pDead->insertAndSplit(Point2(pDead->getSrc()->x() / 2 + pDead->getTrg()->x() / 2,
                                            pDead->getSrc()->y() / 2 + pDead->getTrg()->y() / 2)),
               VaskException);
  EXPECT_EQ(vask_test::canonicalTriangles(dt), before);
  EXPECT_EQ(dt.numberOfPoints(), numPoints);
  vAll.clear();
  vAlive.clear();
  dt.getAliveAndDeadConstraintSegments(vAll);
  dt.getAliveConstraintSegments(vAlive);
  EXPECT_EQ(vAll.size(), numAll);
  EXPECT_EQ(vAlive.size(), numAlive);
  EXPECT_CONSTRAINTS_HOLD(dt, vGraphs, vask_test::ConstraintCheckOptions());
}

// Two conforming segments that cross at a point no double holds halve each
// other down to pieces a few ulps long: those give up with the width
// warning, stay out of the mesh, and the mesh stays valid and Delaunay.
TEST(ConstraintBadInput, UlpShortConformingPiecesWarnAndLeaveTheMeshValid) {
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(30, 5));
  Segments vSeg{Segment2(Point2(0.1, 0.1), Point2(0.9, 0.7)), Segment2(Point2(0.1, 0.9), Point2(0.7, 0.2))};
  ConstraintGraph2* pCG(dt.createConstraint(vSeg, CIS_CONFORMING_DELAUNAY));
  ASSERT_NE(pCG, nullptr);
  testing::internal::CaptureStdout();
  dt.applyConstraintsAndZones();
  const std::string out(testing::internal::GetCapturedStdout());
  vask_test::ConstraintCheckOptions options;
  options.bRequireConformingEdges = true;
  const vask_test::ConstraintCheck c(vask_test::checkConstraints(dt, {pCG}, options));
  EXPECT_TRUE(c.ok) << c.firstError << "; " << c.summary();
  EXPECT_GT(c.numShortPiecesMissing, 0u);
  EXPECT_NE(out.find("Double precision arithmetic does not allow to split a segment further"), std::string::npos);
}

// Overlapping conforming segments on a line of non-representable slope can't
// all stand: every apply stops at its vertex budget, which the user's
// segments set. Calling apply again adds at most one more budget, never a
// multiple of what the calls before made.
TEST(ConstraintBadInput, RepeatedAppliesOfAnUnestablishableSetGrowTheMeshLinearly) {
  const double c[] = {-0.85871246092896092, -0.085871246092896092, -0.88834126129409263, -0.088834126129409274,
                      -0.85871246092896092, -0.085871246092896092, 1.9694289767895188,   0.1969428976789519,
                      -0.9052337651358876,  -0.090523376513588771, 2.4219874604113669,   0.24219874604113673,
                      0.55535825793027893,  0.055535825793027897,  -2.2885937474505074,  -0.22885937474505075,
                      0.75837684763773971,  0.075837684763773977,  -2.5688443779095147,  -0.25688443779095149};
  Segments vSeg;
  for (int i = 0; i < 20; i += 4) vSeg.push_back(Segment2(Point2(c[i], c[i + 1]), Point2(c[i + 2], c[i + 3])));
  Vask_2D dt;
  ConstraintGraph2* pCG(dt.createConstraint(vSeg, CIS_CONFORMING_DELAUNAY));
  ASSERT_NE(pCG, nullptr);
  testing::internal::CaptureStdout();
  std::vector<unsigned> vCounts;
  for (int k = 0; k < 4; ++k) {
    dt.applyConstraintsAndZones();
    vCounts.push_back(dt.numberOfPoints());
  }
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("insufficient numeric accuracy"), std::string::npos);
  for (int k = 1; k < 4; ++k) EXPECT_LE(vCounts[k] - vCounts[k - 1], 2100u) << "apply " << k;
  // Standing pieces of a set cut short may be non-Delaunay: their edges hold.
  vask_test::ValidateOptions options;
  options.isConstraint = [&dt](const Point2* a, const Point2* b) {
    return dt.isConstraint(const_cast<Point2*>(a), const_cast<Point2*>(b));
  };
  const vask_test::Validation v(vask_test::validate(dt, options));
  EXPECT_TRUE(v.ok) << v.firstError << ", " << v.numErrors << " errors";
}
