// Constraint segments, their split trees and the graphs over them: random
// split sequences with shared segments and opposite directions checked
// against the tree's invariants after every step, refused splits that change
// nothing, the polygon test, and the registry's answers.
#include "Vask_2D.h"
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>
#include <utility>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

typedef std::pair<Point2*, Point2*> PP;

// Vertices of a triangulation (with area) at the given positions, in order.
std::vector<Point2*> insertAll(Dt2& dt, const std::vector<Point2>& vPoints) {
  std::vector<Point2*> vHandles;
  for (const Point2& p : vPoints) vHandles.push_back(dt.insert(p));
  return vHandles;
}

Point2* startOf(const ConstraintGraph2& cg, ConstraintSegment2* pCSeg) {
  return cg.isReverse(pCSeg) ? pCSeg->getTrg() : pCSeg->getSrc();
}
Point2* endOf(const ConstraintGraph2& cg, ConstraintSegment2* pCSeg) {
  return cg.isReverse(pCSeg) ? pCSeg->getSrc() : pCSeg->getTrg();
}

// The invariants of a graph over split trees, from outside: its alive chain
// runs, root by root, from each root's start to its end in the graph's
// direction without a gap; its leaves are exactly the tree leaves; every
// leaf is a constraint for the graph and the registry, every dead pair none.
::testing::AssertionResult chainHolds(const ConstraintGraph2& cg, ConstraintMgr& mgr) {
  std::vector<ConstraintSegment2*> vRoots, vChain;
  cg.getOriginalConstraintSegments(vRoots);
  const_cast<ConstraintGraph2&>(cg).getAliveConstraintChain(vChain);
  size_t k(0);
  for (ConstraintSegment2* pRoot : vRoots) {
    std::vector<ConstraintSegment2*> vLeaves;
    if (pRoot->isAlive()) vLeaves.push_back(pRoot);
    else pRoot->getChildrenRec(vLeaves);
    Point2* pAt(startOf(cg, pRoot));
    for (size_t i = 0; i < vLeaves.size(); ++i, ++k) {
      if (k >= vChain.size()) return ::testing::AssertionFailure() << "chain too short";
      ConstraintSegment2* pLeaf(vChain[k]);
      if (!pLeaf->isAlive()) return ::testing::AssertionFailure() << "dead leaf in chain";
      if (startOf(cg, pLeaf) != pAt) return ::testing::AssertionFailure() << "gap in chain at leaf " << k;
      if (std::find(vLeaves.begin(), vLeaves.end(), pLeaf) == vLeaves.end())
        return ::testing::AssertionFailure() << "chain leaf not below its root";
      if (!cg.isConstraint(pLeaf->getTrg(), pLeaf->getSrc()) || !mgr.isConstraint(pLeaf->getTrg(), pLeaf->getSrc()))
        return ::testing::AssertionFailure() << "leaf is no constraint";
      pAt = endOf(cg, pLeaf);
    }
    if (pAt != endOf(cg, pRoot)) return ::testing::AssertionFailure() << "chain does not end at root's end";
  }
  if (k != vChain.size()) return ::testing::AssertionFailure() << "chain too long";
  std::vector<ConstraintSegment2*> vAll;
  mgr.getAliveAndDeadConstraintSegments(vAll);
  for (ConstraintSegment2* pCSeg : vAll) {
    if (pCSeg->isAlive() != mgr.isConstraint(pCSeg->getSrc(), pCSeg->getTrg()))
      return ::testing::AssertionFailure() << "registry disagrees on " << *pCSeg;
    if (pCSeg->isAlive() != (mgr.getConstraintSegment(pCSeg->getTrg(), pCSeg->getSrc()) == pCSeg))
      return ::testing::AssertionFailure() << "getConstraintSegment disagrees";
  }
  return ::testing::AssertionSuccess();
}

// Everything a refused split must leave unchanged.
struct TreeSnapshot {
  std::vector<ConstraintSegment2*> vAll, vAlive;
  std::vector<unsigned> vOwners;
  explicit TreeSnapshot(ConstraintMgr& mgr) {
    mgr.getAliveAndDeadConstraintSegments(vAll);
    mgr.getAliveConstraintSegments(vAlive);
    for (ConstraintSegment2* p : vAll) vOwners.push_back(p->getNumberOfOwners());
  }
  bool operator==(const TreeSnapshot& o) const { return vAll == o.vAll && vAlive == o.vAlive && vOwners == o.vOwners; }
};

} // namespace

// Points on a line, a long root shared by a forward and a backward graph and
// a third graph made later over a pair that is already split. Random splits
// at vertices between a leaf's ends; every graph keeps a gapless chain in
// its own direction, and shared children carry all owners.
TEST(ConstraintSegments, RandomSplitsKeepEveryGraphAGaplessChainInItsDirection) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 rng(seed);
    Dt2 dt(3);
    const int n(40);
    std::vector<Point2> vPos;
    for (int i = 0; i <= n; ++i) vPos.push_back(Point2(i, 0.5 * i));
    vPos.push_back(Point2(3.0, 100.0)); // gives the mesh area
    std::vector<Point2*> vV(insertAll(dt, vPos));
    ConstraintMgr& mgr(*dt.getConstraintMgr());
    std::map<Point2*, int> mIndex;
    for (int i = 0; i <= n; ++i) mIndex[vV[i]] = i;

    ConstraintGraph2* pForward(mgr.buildGraphOriented({PP(vV[0], vV[n])}, CIS_CONSTRAINED_DELAUNAY));
    ConstraintGraph2* pBackward(mgr.buildGraphOriented({PP(vV[n], vV[0])}, CIS_CONFORMING_DELAUNAY));
    ConstraintSegment2* pRoot(mgr.getConstraintSegment(vV[0], vV[n]));
    ASSERT_NE(pRoot, nullptr);
    EXPECT_EQ(pRoot->getNumberOfOwners(), 2u);
    EXPECT_EQ(pRoot->getCIS(), CIS_CONSTRAINED_DELAUNAY); // the first strategy stays
    EXPECT_NE(pForward->isReverse(pRoot), pBackward->isReverse(pRoot));
    ConstraintGraph2* pLate(nullptr);
    std::vector<ConstraintGraph2*> vGraphs{pForward, pBackward};

    for (int step = 0; step < 30; ++step) {
      std::vector<ConstraintSegment2*> vAlive;
      mgr.getAliveConstraintSegments(vAlive);
      std::vector<ConstraintSegment2*> vSplittable;
      for (ConstraintSegment2* p : vAlive)
        if (std::abs(mIndex[p->getSrc()] - mIndex[p->getTrg()]) > 1 && p->getNumberOfOwners() > 0) vSplittable.push_back(p);
      if (vSplittable.empty()) break;
      ConstraintSegment2* pCSeg(vSplittable[rng() % vSplittable.size()]);
      const int a(std::min(mIndex[pCSeg->getSrc()], mIndex[pCSeg->getTrg()]));
      const int b(std::max(mIndex[pCSeg->getSrc()], mIndex[pCSeg->getTrg()]));
      Point2* pSplit(vV[a + 1 + static_cast<int>(rng() % (b - a - 1))]);
      const unsigned numOwners(pCSeg->getNumberOfOwners());
      ASSERT_TRUE(pCSeg->split_combinatorialOnly(pSplit));
      EXPECT_FALSE(pCSeg->isAlive());
      ConstraintSegment2 *pKid0(nullptr), *pKid1(nullptr);
      Point2* pCommon(nullptr);
      pCSeg->getChildrenAndSplitPoint(pKid0, pKid1, pCommon);
      EXPECT_EQ(pCommon, pSplit);
      EXPECT_TRUE(pKid0->getSrc() == pCSeg->getSrc() || pKid0->getTrg() == pCSeg->getSrc());
      EXPECT_GE(pKid0->getNumberOfOwners(), numOwners);
      if (step == 10) {
        // A graph over a pair that may be split already sees only its leaves.
        pLate = mgr.buildGraph({PP(vV[n], pSplit)}, CIS_CONSTRAINED_DELAUNAY);
        vGraphs.push_back(pLate);
      }
      for (ConstraintGraph2* pCG : vGraphs) ASSERT_TRUE(chainHolds(*pCG, mgr)) << "seed " << seed << " step " << step;
    }
    // The forward and backward chains are the same leaves in opposite order.
    std::vector<ConstraintSegment2*> vF, vB;
    pForward->getAliveConstraintChain(vF);
    pBackward->getAliveConstraintChain(vB);
    std::reverse(vB.begin(), vB.end());
    EXPECT_EQ(vF, vB);
    std::vector<ConstraintSegment2*> vLeaves;
    if (!pRoot->isAlive()) {
      pRoot->getChildrenRec(vLeaves);
      for (ConstraintSegment2* p : vLeaves) EXPECT_EQ(p->getNumberOfOwners(), 2u + (pLate != nullptr && pLate->hasEntry(p)));
    }
  }
}

TEST(ConstraintSegments, RefusedSplitsThrowAndChangeNothing) {
  Dt2 dt(3);
  std::vector<Point2*> vV(insertAll(dt, {Point2(0, 0), Point2(1, 0), Point2(2, 0), Point2(3, 0), Point2(0, 5)}));
  ConstraintMgr& mgr(*dt.getConstraintMgr());
  ConstraintGraph2* pCG(mgr.buildGraph({PP(vV[0], vV[3])}, CIS_CONSTRAINED_DELAUNAY));
  ConstraintSegment2* pRoot(mgr.getConstraintSegment(vV[0], vV[3]));
  ASSERT_TRUE(pRoot->split_combinatorialOnly(vV[1]));

  const TreeSnapshot before(mgr);
  EXPECT_THROW(pRoot->split_combinatorialOnly(vV[2]), VaskException); // dead
  ConstraintSegment2* pLeaf(mgr.getConstraintSegment(vV[1], vV[3]));
  ASSERT_NE(pLeaf, nullptr);
  EXPECT_THROW(pLeaf->split_combinatorialOnly(nullptr), VaskException);
  EXPECT_THROW(pLeaf->split_combinatorialOnly(vV[3]), VaskException); // an end point
  pLeaf->setDead(); // suspended: no constraint, and no split either
  EXPECT_FALSE(pLeaf->isAlive());
  EXPECT_FALSE(mgr.isConstraint(vV[1], vV[3]));
  EXPECT_THROW(pLeaf->split_combinatorialOnly(vV[2]), VaskException);
  pLeaf->setAlive();
  ConstraintSegment2* pOrphan(mgr.addConstraintSegment(vV[2], vV[4], CIS_CONSTRAINED_DELAUNAY));
  const TreeSnapshot withOrphan(mgr);
  EXPECT_THROW(pOrphan->split_combinatorialOnly(vV[1]), VaskException); // no owner yet
  EXPECT_TRUE(TreeSnapshot(mgr) == withOrphan);
  EXPECT_EQ(before.vAll.size() + 1, withOrphan.vAll.size());
  EXPECT_THROW(mgr.addConstraintSegment(vV[2], vV[2], CIS_CONSTRAINED_DELAUNAY), VaskException);
  EXPECT_TRUE(chainHolds(*pCG, mgr));

  // Asking for the children of an alive segment warns and leaves the outputs.
  ConstraintSegment2 *pKid0(nullptr), *pKid1(nullptr);
  Point2* pSplit(nullptr);
  pLeaf->getChildrenAndSplitPoint(pKid0, pKid1, pSplit);
  EXPECT_EQ(pKid0, nullptr);
  EXPECT_EQ(pSplit, nullptr);
  std::vector<ConstraintSegment2*> vNone;
  EXPECT_THROW(pLeaf->getChildrenRec(vNone), VaskException);
  EXPECT_EQ(pLeaf->getAdjacentArea(), 1.7976931348623157e308);
  std::ostringstream oss;
  oss << *pLeaf << "\n" << *pRoot;
  EXPECT_NE(oss.str().find("[alive]"), std::string::npos);
  EXPECT_NE(oss.str().find("[DEAD, numChildren=2]"), std::string::npos);
}

// A shared child that was split before the split that asks for it: the
// parent's leaves come from below the dead child, left to right.
TEST(ConstraintSegments, ExistingDeadChildIsDescendedInto) {
  Dt2 dt(3);
  std::vector<Point2*> vV(insertAll(dt, {Point2(0, 0), Point2(1, 0), Point2(2, 0), Point2(3, 0), Point2(0, 5)}));
  ConstraintMgr& mgr(*dt.getConstraintMgr());
  mgr.buildGraph({PP(vV[0], vV[2])}, CIS_CONSTRAINED_DELAUNAY);
  ConstraintSegment2* pShort(mgr.getConstraintSegment(vV[0], vV[2]));
  pShort->split_combinatorialOnly(vV[1]);
  ConstraintGraph2* pLong(mgr.buildGraph({PP(vV[3], vV[0])}, CIS_CONSTRAINED_DELAUNAY));
  ConstraintSegment2* pRoot(mgr.getConstraintSegment(vV[0], vV[3]));
  pRoot->split_combinatorialOnly(vV[2]);
  std::vector<ConstraintSegment2*> vLeaves;
  pRoot->getChildrenRec(vLeaves);
  ConstraintSegment2* p01(mgr.getConstraintSegment(vV[0], vV[1]));
  ConstraintSegment2* p12(mgr.getConstraintSegment(vV[1], vV[2]));
  ConstraintSegment2* p23(mgr.getConstraintSegment(vV[2], vV[3]));
  // Child order, not chain order: child 0 touches the parent's getSrc(),
  // at the root and below the dead child (v0, v2) alike.
  std::vector<ConstraintSegment2*> vExpected;
  ConstraintSegment2* p02(pShort);
  if (p02->getSrc() == vV[0]) {
    if (pRoot->getSrc() == vV[0]) vExpected = {p01, p12, p23};
    else vExpected = {p23, p01, p12};
  } else {
    if (pRoot->getSrc() == vV[0]) vExpected = {p12, p01, p23};
    else vExpected = {p23, p12, p01};
  }
  EXPECT_EQ(vLeaves, vExpected);
  EXPECT_EQ(p01->getNumberOfOwners(), 2u);
  EXPECT_EQ(p12->getNumberOfOwners(), 2u);
  EXPECT_EQ(p23->getNumberOfOwners(), 1u);
  EXPECT_FALSE(pLong->isConstraint(vV[0], vV[2]));
  EXPECT_TRUE(pLong->isConstraint(vV[1], vV[0]));
  EXPECT_TRUE(chainHolds(*pLong, mgr));
}

TEST(ConstraintGraphs, PolygonsRunCounterClockwiseFromTheLeftmostLowestVertex) {
  Dt2 dt(3);
  //   3 ---- 2
  //   |      |     4 is a second ring's corner, 5 and 6 lie on the line 0-1
  //   0 ---- 1
  std::vector<Point2*> vV(insertAll(dt, {Point2(0, 0), Point2(4, 0), Point2(4, 4), Point2(0, 4), Point2(6, 6),
                                         Point2(1, 0), Point2(2, 0), Point2(8, 6), Point2(7, 8)}));
  ConstraintMgr& mgr(*dt.getConstraintMgr());
  // Clockwise input in scrambled order.
  ConstraintGraph2* pCW(mgr.buildGraph({PP(vV[2], vV[1]), PP(vV[0], vV[3]), PP(vV[1], vV[0]), PP(vV[3], vV[2])},
                                       CIS_CONSTRAINED_DELAUNAY));
  ASSERT_TRUE(pCW->isPolygon());
  EXPECT_TRUE(pCW->isOriented());
  std::vector<Point2*> vRing;
  pCW->getPolygonVertices(vRing);
  std::vector<Point2*> vExpected{vV[0], vV[1], vV[1], vV[2], vV[2], vV[3], vV[3], vV[0]};
  EXPECT_EQ(vRing, vExpected);

  // A split keeps a closed chain with the split vertex between the halves.
  mgr.getConstraintSegment(vV[0], vV[1])->split_combinatorialOnly(vV[5]);
  mgr.getConstraintSegment(vV[5], vV[1])->split_combinatorialOnly(vV[6]);
  vRing.clear();
  pCW->getPolygonVertices(vRing);
  vExpected = {vV[0], vV[5], vV[5], vV[6], vV[6], vV[1], vV[1], vV[2], vV[2], vV[3], vV[3], vV[0]};
  EXPECT_EQ(vRing, vExpected);
  EXPECT_FALSE(pCW->isConstraint(vV[0], vV[1]));
  EXPECT_TRUE(pCW->isConstraint(vV[6], vV[5]));

  // The oriented constructor keeps the user's clockwise flags on a polygon.
  ConstraintGraph2* pOriented(mgr.buildGraphOriented({PP(vV[2], vV[7]), PP(vV[7], vV[8]), PP(vV[8], vV[2])},
                                                     CIS_CONSTRAINED_DELAUNAY));
  ASSERT_TRUE(pOriented->isPolygon());
  ConstraintSegment2* p27(mgr.getConstraintSegment(vV[2], vV[7]));
  EXPECT_EQ(startOf(*pOriented, p27), vV[2]);

  // Not a polygon: two segments, two separate rings, two rings through one
  // vertex, a collinear there-and-back, an open chain.
  std::vector<std::vector<PP> > vBad{
      {PP(vV[0], vV[1]), PP(vV[1], vV[0])},
      {PP(vV[0], vV[1]), PP(vV[1], vV[3]), PP(vV[3], vV[0]), PP(vV[2], vV[7]), PP(vV[7], vV[8]), PP(vV[8], vV[2])},
      {PP(vV[0], vV[1]), PP(vV[1], vV[2]), PP(vV[2], vV[0]), PP(vV[2], vV[7]), PP(vV[7], vV[8]), PP(vV[8], vV[2])},
      {PP(vV[0], vV[5]), PP(vV[5], vV[6]), PP(vV[6], vV[0])},
      {PP(vV[0], vV[1]), PP(vV[1], vV[2]), PP(vV[2], vV[3])}};
  for (const std::vector<PP>& vPairs : vBad) {
    ConstraintGraph2* pCG(mgr.buildGraph(vPairs, CIS_CONSTRAINED_DELAUNAY));
    EXPECT_FALSE(pCG->isPolygon());
    EXPECT_FALSE(pCG->isOriented());
    std::vector<ConstraintSegment2*> vRoots;
    pCG->getOriginalConstraintSegments(vRoots);
    EXPECT_LE(vRoots.size(), vPairs.size());
    if (vRoots.size() == vPairs.size()) EXPECT_TRUE(chainHolds(*pCG, mgr));
  }
}

TEST(ConstraintRegistry, AnswersBySymmetricPairAndKeepsDeadPairs) {
  Dt2 dt(3);
  std::vector<Point2*> vV(insertAll(dt, {Point2(0, 0), Point2(2, 0), Point2(1, 0), Point2(0, 3)}));
  ConstraintMgr& mgr(*dt.getConstraintMgr());
  EXPECT_FALSE(mgr.hasConstraints());
  EXPECT_FALSE(mgr.isConstraint(vV[0], vV[1]));
  // Identical end points are skipped; the graph keeps the rest.
  ConstraintGraph2* pCG(mgr.buildGraph({PP(vV[1], vV[0]), PP(vV[3], vV[3])}, CIS_CONFORMING_DELAUNAY));
  std::vector<ConstraintSegment2*> vRoots;
  pCG->getOriginalConstraintSegments(vRoots);
  EXPECT_EQ(vRoots.size(), 1u);
  EXPECT_TRUE(mgr.isConstraint(vV[0], vV[1]));
  EXPECT_TRUE(mgr.isConstraint(vV[1], vV[0]));
  EXPECT_TRUE(mgr.isConstraint(vV[1]));
  EXPECT_FALSE(mgr.isConstraint(vV[3]));
  vRoots[0]->split_combinatorialOnly(vV[2]);
  EXPECT_TRUE(mgr.isConstraint(vV[2]));
  EXPECT_EQ(mgr.getConstraintSegment(vV[0], vV[1]), nullptr);
  std::vector<ConstraintSegment2*> vAll, vAlive;
  mgr.getAliveAndDeadConstraintSegments(vAll);
  mgr.getAliveConstraintSegments(vAlive);
  EXPECT_EQ(vAll.size(), 3u);
  EXPECT_EQ(vAlive.size(), 2u);
  EXPECT_TRUE(std::is_sorted(vAll.begin(), vAll.end(), [](ConstraintSegment2* a, ConstraintSegment2* b) { return *a < *b; }));
}

// The vertex filter appears once the mesh is large, complete with the
// segments made before; it never hides a constraint.
TEST(ConstraintRegistry, VertexFilterCreatedLateKnowsEarlierSegments) {
  Dt2 dt(3);
  std::vector<Point2> vPos;
  for (int i = 0; i < 120; ++i)
    for (int j = 0; j < 100; ++j) vPos.push_back(Point2(i, j + 0.001 * i));
  std::vector<Point2*> vSmall(insertAll(dt, std::vector<Point2>(vPos.begin(), vPos.begin() + 200)));
  ConstraintMgr& mgr(*dt.getConstraintMgr());
  std::vector<PP> vPairs;
  for (size_t i = 0; i + 1 < vSmall.size(); i += 2) vPairs.push_back(PP(vSmall[i], vSmall[i + 1]));
  mgr.buildGraph(vPairs, CIS_CONSTRAINED_DELAUNAY);
  EXPECT_FALSE(mgr.hasVertexFilter());
  std::vector<Point2*> vBig;
  dt.insertVector(std::vector<Point2>(vPos.begin() + 200, vPos.end()), &vBig);
  ASSERT_GE(dt.numberOfPoints(), 10000u);
  EXPECT_TRUE(mgr.isConstraint(vPairs[0].second, vPairs[0].first));
  EXPECT_TRUE(mgr.hasVertexFilter());
  for (const PP& pp : vPairs) EXPECT_TRUE(mgr.isConstraint(pp.first, pp.second));
  size_t numFalse(0);
  for (size_t i = 0; i + 1 < vBig.size(); ++i) numFalse += !mgr.isConstraint(vBig[i], vBig[i + 1]);
  EXPECT_EQ(numFalse, vBig.size() - 1);
}
