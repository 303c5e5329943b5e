// The static box tree: every query equals a brute-force scan of all boxes,
// results come in a fixed order, and one far object does not destroy the
// locality of the rest.
#include "VaskException.h"
#include "helpers/ExactOracle.h"
#include "kiro_locate2/RTree.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

using KIRO_LOCATE2::RTree;
using KIRO_LOCATE2::RTreeLeaf;

namespace {
struct Box {
  double minX, minY, maxX, maxY;
};

bool meets(const Box& q, const Box& b) {
  return q.maxX >= b.minX && q.maxY >= b.minY && b.maxX >= q.minX && b.maxY >= q.minY;
}

/** Boxes of several kinds at once: ordinary, points, flat ones, identical
 * copies, touching neighbours on a grid and a few far away. */
std::vector<Box> mixedBoxes(std::size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::vector<Box> vBoxes;
  for (std::size_t i = 0; i < n; ++i) {
    const double x(vask_test::uniform(gen, 0.0, 1.0)), y(vask_test::uniform(gen, 0.0, 1.0));
    const double w(vask_test::uniform(gen, 0.0, 0.05)), h(vask_test::uniform(gen, 0.0, 0.05));
    switch (i % 6) {
    case 0: vBoxes.push_back({x, y, x + w, y + h}); break;
    case 1: vBoxes.push_back({x, y, x, y}); break;                           // a point
    case 2: vBoxes.push_back({x, y, x + w, y}); break;                       // horizontal
    case 3: vBoxes.push_back(vBoxes[i / 2]); break;                          // a copy
    case 4: vBoxes.push_back({double(i % 17) / 16, double(i % 13) / 12, double(i % 17 + 1) / 16,
                              double(i % 13 + 1) / 12}); break;               // touching grid cells
    default: vBoxes.push_back({x * 1e9, y * -1e9, x * 1e9 + w, y * -1e9 + h}); break; // far away
    }
  }
  return vBoxes;
}

std::vector<uint32_t> queryIndices(RTree& tree, const Box& q) {
  std::vector<const RTreeLeaf*> vOut;
  tree.query(q.minX, q.minY, q.maxX, q.maxY, vOut);
  std::vector<uint32_t> vIdx;
  for (const RTreeLeaf* pLeaf : vOut) vIdx.push_back(pLeaf->objectIndex);
  return vIdx;
}
} // namespace

TEST(RTree, QueriesEqualBruteForceScanInCurveOrder) {
  for (std::size_t n : {0u, 1u, 2u, 3u, 17u, 1000u, 20000u}) {
    const std::vector<Box> vBoxes(mixedBoxes(n, 7 + unsigned(n)));
    RTree tree;
    for (std::size_t i = 0; i < n; ++i)
      tree.addObject(const_cast<Box*>(&vBoxes[i]), vBoxes[i].minX, vBoxes[i].minY, vBoxes[i].maxX, vBoxes[i].maxY);
    // Queries: every tenth object's own box (touching counts), random boxes, points and the whole extent.
    std::vector<Box> vQueries;
    for (std::size_t i = 0; i < n; i += 10) vQueries.push_back(vBoxes[i]);
    std::mt19937_64 gen(n);
    for (int i = 0; i < 200; ++i) {
      const double x(vask_test::uniform(gen, -0.1, 1.1)), y(vask_test::uniform(gen, -0.1, 1.1));
      vQueries.push_back({x, y, x + vask_test::uniform(gen, 0.0, 0.2), y + vask_test::uniform(gen, 0.0, 0.2)});
      vQueries.push_back({x, y, x, y});
    }
    vQueries.push_back({-1e300, -1e300, 1e300, 1e300});
    for (const Box& q : vQueries) {
      const std::vector<uint32_t> vGot(queryIndices(tree, q));
      std::vector<uint32_t> vSorted(vGot), vExpected;
      std::sort(vSorted.begin(), vSorted.end());
      for (std::size_t i = 0; i < n; ++i)
        if (meets(q, vBoxes[i])) vExpected.push_back(uint32_t(i));
      ASSERT_EQ(vSorted, vExpected) << "n=" << n;
      ASSERT_TRUE(std::adjacent_find(vSorted.begin(), vSorted.end()) == vSorted.end()) << "an object twice";
    }
    // The result follows the leaves' curve order; equal keys keep the order of addition.
    const std::vector<RTreeLeaf>& vLeaves(tree.getLeaves());
    ASSERT_EQ(vLeaves.size(), n);
    for (std::size_t k = 1; k < vLeaves.size(); ++k)
      if (vLeaves[k].key == vLeaves[k - 1].key)
        EXPECT_LT(vLeaves[k - 1].objectIndex, vLeaves[k].objectIndex);
    std::vector<std::size_t> vRank(n);
    for (std::size_t k = 0; k < n; ++k) vRank[vLeaves[k].objectIndex] = k;
    for (const Box& q : vQueries) {
      const std::vector<uint32_t> vGot(queryIndices(tree, q));
      for (std::size_t k = 1; k < vGot.size(); ++k) ASSERT_LT(vRank[vGot[k - 1]], vRank[vGot[k]]);
    }
  }
}

TEST(RTree, SameInputGivesSameOrderEveryTime) {
  const std::vector<Box> vBoxes(mixedBoxes(5000, 3));
  std::vector<std::vector<uint32_t> > vFirst;
  for (int run = 0; run < 2; ++run) {
    // A fresh copy of the boxes at other addresses: nothing may depend on them.
    const std::vector<Box> vCopy(vBoxes);
    RTree tree;
    for (const Box& b : vCopy) tree.addObject(const_cast<Box*>(&b), b.minX, b.minY, b.maxX, b.maxY);
    for (std::size_t i = 0; i < vCopy.size(); i += 50) {
      const std::vector<uint32_t> vGot(queryIndices(tree, vCopy[i]));
      if (run == 0)
        vFirst.push_back(vGot);
      else
        ASSERT_EQ(vGot, vFirst[i / 50]);
    }
  }
}

TEST(RTree, SmallTreesHaveTheExpectedShape) {
  RTree empty;
  std::vector<const RTreeLeaf*> vOut;
  empty.query(-1e308, -1e308, 1e308, 1e308, vOut);
  EXPECT_TRUE(vOut.empty());
  EXPECT_EQ(empty.getNumLevels(), 0);
  int object(0);
  RTree one;
  one.addObject(&object, 1, 2, 1, 2);
  one.query(1, 2, 1, 2, vOut);
  ASSERT_EQ(vOut.size(), 1u);
  EXPECT_EQ(vOut[0]->pObject, &object);
  EXPECT_EQ(one.getNumLevels(), 1); // a single lowest-level node is the root
  RTree many;
  for (int i = 0; i < 17; ++i) many.addObject(&object, i, 0, i + 0.5, 1);
  many.build();
  EXPECT_EQ(many.getNumLevels(), 3); // 9 pairs, then 2 groups of eight, then the root
}

TEST(RTree, RefusesInvalidBoxesAndObjectsAfterTheBuild) {
  int object(0);
  RTree tree;
  EXPECT_THROW(tree.addObject(&object, 1, 0, 0, 1), KIRO_VASK2D::VaskException);
  EXPECT_THROW(tree.addObject(&object, 0, vask_test::NaN, 1, 1), KIRO_VASK2D::VaskException);
  tree.addObject(&object, 0, 0, 1, 1);
  std::vector<const RTreeLeaf*> vOut;
  tree.query(0, 0, 1, 1, vOut);
  // An object added now would never be found.
  EXPECT_THROW(tree.addObject(&object, 0, 0, 1, 1), KIRO_VASK2D::VaskException);
}

TEST(RTree, FarOutlierKeepsQueryWorkLocal) {
  // With keys over the whole extent, one box at 1e12 puts the other 200000
  // into one cell of 32768 per axis; their order would then be the order of
  // addition, and every query would visit most of the tree.
  const std::size_t n(200000);
  std::mt19937_64 gen(11);
  std::vector<Box> vBoxes;
  for (std::size_t i = 0; i < n; ++i) {
    const double x(vask_test::uniform(gen, 0, 1)), y(vask_test::uniform(gen, 0, 1));
    vBoxes.push_back({x, y, x + 0.002, y + 0.002});
  }
  unsigned long long aWork[2] = {0, 0};
  for (int withOutlier = 0; withOutlier < 2; ++withOutlier) {
    RTree tree;
    for (const Box& b : vBoxes) tree.addObject(const_cast<Box*>(&b), b.minX, b.minY, b.maxX, b.maxY);
    if (withOutlier) tree.addObject(nullptr, 1e12, 1e12, 1e12 + 1, 1e12 + 1);
    std::vector<const RTreeLeaf*> vOut;
    for (const Box& b : vBoxes) {
      vOut.clear();
      tree.query(b.minX, b.minY, b.maxX, b.maxY, vOut);
    }
    aWork[withOutlier] = tree.getNumBoxTests();
  }
  EXPECT_LT(double(aWork[1]), 2.0 * double(aWork[0])) << aWork[0] << " box tests without, " << aWork[1] << " with";
}

TEST(RTree, ExtremeExtentsKeepTheirOrderFinite) {
  // Centres near +-DBL_MAX and in the subnormal range: the extent of the
  // keys must neither overflow nor make the re-keying loop forever.
  std::vector<Box> vBoxes;
  const double big(1.7976931348623157e308), tiny(4.9406564584124654e-324);
  for (int i = 0; i < 100; ++i) {
    vBoxes.push_back({-big, -big, -big / (i + 1), -big / (i + 1)});
    vBoxes.push_back({big / (i + 2), 0, big, 0});
    vBoxes.push_back({tiny * i, -tiny * i, tiny * (i + 1), tiny});
    vBoxes.push_back({0, 0, 0, 0});
  }
  RTree tree;
  for (const Box& b : vBoxes) tree.addObject(const_cast<Box*>(&b), b.minX, b.minY, b.maxX, b.maxY);
  for (const Box& q : vBoxes) {
    std::vector<uint32_t> vGot(queryIndices(tree, q)), vExpected;
    std::sort(vGot.begin(), vGot.end());
    for (std::size_t i = 0; i < vBoxes.size(); ++i)
      if (meets(q, vBoxes[i])) vExpected.push_back(uint32_t(i));
    ASSERT_EQ(vGot, vExpected);
  }
}
