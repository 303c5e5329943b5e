// Connected components and simple pieces, judged by properties: the pieces
// partition the input exactly, components are edge-connected and apart,
// and every piece of a partitioning has one closed border that passes no
// vertex twice. Inputs: rings around holes, fans meeting at a vertex,
// nested rings and random subsets full of both.
#include "Vask_2D.h"
#include "helpers/TestHelpers.h"
#include "zones/ConnectedComponent.h"
#include "zones/Partitioner.h"
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

typedef std::vector<Triangle2*> TList;

TList pick(Vask_2D& dt, const std::function<bool(const Point2&)>& bTake) {
  TList vAll, v;
  dt.getTrianglePointers(vAll);
  for (Triangle2* pT : vAll)
    if (bTake(pT->getBarycenter())) v.push_back(pT);
  return v;
}

bool inBox(const Point2& c, double x0, double y0, double x1, double y1) {
  return c.x() > x0 && c.x() < x1 && c.y() > y0 && c.y() < y1;
}

// Each triangle of the input in exactly one piece, and nothing else.
void expectPartition(const TList& vInput, const std::vector<TList>& vPieces) {
  std::map<Triangle2*, int> mCount;
  for (const TList& v : vPieces) {
    EXPECT_FALSE(v.empty());
    for (Triangle2* pT : v) ++mCount[pT];
  }
  const std::set<Triangle2*> sInput(vInput.begin(), vInput.end());
  EXPECT_EQ(sInput.size(), mCount.size());
  for (const auto& e : mCount) {
    EXPECT_EQ(1, e.second);
    EXPECT_EQ(1u, sInput.count(e.first));
  }
}

// One closed border passing no vertex twice, checked from the edges alone:
// every border vertex starts exactly one border edge, and the walk along
// them from any edge meets all of them before it closes.
bool isSimple(const TList& v) {
  const std::set<Triangle2*> s(v.begin(), v.end());
  std::map<Point2*, Point2*> mNext;
  for (Triangle2* pT : v)
    for (int i = 0; i < 3; ++i) {
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp != nullptr && s.count(pOpp)) continue;
      if (!mNext.emplace(pT->getCorner((i + 1) % 3), pT->getCorner((i + 2) % 3)).second) return false;
    }
  if (mNext.empty()) return false;
  Point2* pStart(mNext.begin()->first);
  Point2* p(pStart);
  size_t num(0);
  do {
    const auto it(mNext.find(p));
    if (it == mNext.end()) return false;
    p = it->second;
    ++num;
  } while (p != pStart && num <= mNext.size());
  return p == pStart && num == mNext.size();
}

bool isEdgeConnected(const TList& v) {
  const std::set<Triangle2*> s(v.begin(), v.end());
  std::set<Triangle2*> sSeen{v.front()};
  TList vStack{v.front()};
  while (!vStack.empty()) {
    Triangle2* pT(vStack.back());
    vStack.pop_back();
    for (int i = 0; i < 3; ++i) {
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp != nullptr && s.count(pOpp) && sSeen.insert(pOpp).second) vStack.push_back(pOpp);
    }
  }
  return sSeen.size() == s.size();
}

void expectComponentsAndPieces(const TList& vInput, const std::string& what) {
  SCOPED_TRACE(what);
  std::vector<TList> vComponents;
  getConnectedComponents(vInput, vComponents);
  expectPartition(vInput, vComponents);
  std::map<Triangle2*, size_t> mComponentOf;
  for (size_t k = 0; k < vComponents.size(); ++k) {
    EXPECT_TRUE(isEdgeConnected(vComponents[k]));
    for (Triangle2* pT : vComponents[k]) mComponentOf[pT] = k;
  }
  for (const auto& e : mComponentOf)
    for (int i = 0; i < 3; ++i) {
      const auto it(mComponentOf.find(e.first->getOppositeTriangle(i)));
      if (it != mComponentOf.end()) EXPECT_EQ(e.second, it->second) << "neighbours in two components";
    }
  const Partitioner partitioner(vInput);
  std::vector<TList> vPieces;
  for (size_t k = 0; k < partitioner.size(); ++k) {
    ConnectedComponent* pCC(partitioner.getComponent(k));
    vPieces.push_back(pCC->getTriangles());
    EXPECT_TRUE(isSimple(vPieces.back())) << "piece " << k << " of " << partitioner.size();
    std::vector<Edge2> vRing;
    pCC->getSortedBorder(vRing);
    for (size_t i = 0; i < vRing.size(); ++i) EXPECT_EQ(vRing[i].getTrg(), vRing[(i + 1) % vRing.size()].getSrc());
  }
  expectPartition(vInput, vPieces);
}

TEST(Components, PiecesAreSimpleAndPartitionTheInput) {
  Vask_2D grid;
  grid.insert(vask_test::gridPoints(13));
  const TList vRing(pick(grid, [](const Point2& c) { return inBox(c, 2, 2, 10, 10) && !inBox(c, 4, 4, 8, 8); }));
  expectComponentsAndPieces(vRing, "ring around a hole");
  std::vector<TList> vOne;
  EXPECT_TRUE(ConnectedComponent(vRing).splitIntoSimple(vOne));
  const TList vFans(pick(grid, [](const Point2& c) { return inBox(c, 2, 2, 6, 6) || inBox(c, 6, 6, 10, 10); }));
  expectComponentsAndPieces(vFans, "two squares meeting at a vertex");
  const TList vStar(pick(grid, [](const Point2& c) {
    return inBox(c, 3, 3, 6, 6) || inBox(c, 6, 6, 9, 9) || inBox(c, 3, 6, 6, 9) || (inBox(c, 6, 3, 9, 6) && c.x() - 6 > c.y() - 3);
  }));
  expectComponentsAndPieces(vStar, "four fans around a vertex, one pinched");
  const TList vNested(pick(grid, [](const Point2& c) {
    return (inBox(c, 1, 1, 11, 11) && !inBox(c, 3, 3, 9, 9)) || (inBox(c, 4, 4, 8, 8) && !inBox(c, 5, 5, 7, 7));
  }));
  expectComponentsAndPieces(vNested, "a ring inside a ring");

  // A single triangle, and a simple square, need no split.
  TList vAll;
  grid.getTrianglePointers(vAll);
  std::vector<TList> vOut;
  ConnectedComponent single(TList(1, vAll[0]));
  EXPECT_FALSE(single.splitIntoSimple(vOut));
  EXPECT_EQ(1u, single.size());
  std::vector<Edge2> vBorder;
  single.getSortedBorder(vBorder);
  EXPECT_EQ(3u, vBorder.size());
  ConnectedComponent square(pick(grid, [](const Point2& c) { return inBox(c, 2, 2, 6, 6); }));
  EXPECT_FALSE(square.splitIntoSimple(vOut));
  EXPECT_TRUE(vOut.empty());

  // Random subsets of a random mesh: holes, pinches and slivers at once.
  Vask_2D dt;
  dt.insert(vask_test::randomPoints(600, 12));
  TList vRandom;
  dt.getTrianglePointers(vRandom);
  for (unsigned seed = 0; seed < 6; ++seed) {
    std::mt19937_64 rng(seed);
    TList v;
    for (Triangle2* pT : vRandom)
      if (std::uniform_real_distribution<double>(0, 1)(rng) < 0.5 + 0.08 * seed) v.push_back(pT);
    if (seed == 0) v.push_back(v.front()); // a duplicate counts once
    expectComponentsAndPieces(v, "random subset " + std::to_string(seed));
  }
}

} // namespace
