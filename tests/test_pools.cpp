// Block pools of mesh elements and Hilbert curve keys.
#include "Point2.h"
#include "Triangle2.h"
#include "VaskException.h"
#include "kiro_tools/HC2.h"
#include "kiro_tools/SimplePool.h"
#include <gtest/gtest.h>
#include <cstdlib>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace KIRO_VASK2D;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

struct Rec24 {
  double a, b, c;
};
struct Rec40 {
  double a[5];
};
struct Huge {
  char bytes[POOL_BLOCK_BYTES + 1];
};

template <typename Pool>
std::vector<int> blockSizes(const Pool& pool) {
  std::vector<int> vSizes;
  for (int i = 0; i + 1 < pool.getNumContainers(); ++i) {
    int numUsed(-1);
    pool.getContainer(i, numUsed);
    vSizes.push_back(numUsed);
  }
  return vSizes;
}

// Draws n elements and returns the capacities of the full blocks.
template <typename Pool>
std::vector<int> drawAndMeasure(Pool& pool, int n) {
  for (int i = 0; i < n; ++i) pool.get();
  return blockSizes(pool);
}

} // namespace

// ---------------------------------------------------------------- SimplePool

TEST(SimplePool, BlocksHalveOnceThenDoubleUpToTenMegabytesOrGrowByTheFixedIncrease) {
  // Each row: first block, fixed increase (-1: automatic), elements drawn,
  // the expected capacities of the first full blocks.
  struct Case {
    int first, increase, numDrawn;
    std::vector<int> vSizes;
  };
  for (const Case& c : {Case{1, -1, 17, {1, 1, 2, 4, 8}}, Case{100, -1, 451, {100, 50, 100, 200}},
                        Case{100, 5, 116, {100, 5, 5, 5}}, Case{1, 416667 + 10, 2, {1}}}) {
    SimplePool<int> pool;
    pool.init(c.first, c.increase);
    EXPECT_EQ(drawAndMeasure(pool, c.numDrawn), c.vSizes) << c.first << " " << c.increase;
  }
  // Automatic growth is capped at ten megabytes per block; a fixed increase is not.
  SimplePool<Rec24> pool;
  pool.init(300000, -1);
  EXPECT_EQ(pool.getIncreaseLimit(), 416666);
  const int n(3000000);
  for (int i = 0; i < n; ++i) pool.get()->a = i;
  int total(0);
  std::vector<int> vSizes;
  for (int i = 0; i < pool.getNumContainers(); ++i) {
    int numUsed(0);
    pool.getContainer(i, numUsed);
    vSizes.push_back(numUsed);
    total += numUsed;
    if (i > 0) EXPECT_LE(numUsed, 416666);
  }
  EXPECT_EQ(total, n);
  EXPECT_EQ(std::vector<int>(vSizes.begin(), vSizes.begin() + 4), (std::vector<int>{300000, 150000, 300000, 416666}));
  SimplePool<Rec40, POOL_BLOCK_BYTES_LARGE> large;
  large.init(3, -1);
  EXPECT_EQ(large.getIncreaseLimit(), 2500000);
  SimplePool<Point2> vertices;
  vertices.init(3, -1);
  EXPECT_EQ(vertices.getIncreaseLimit(), int(10000000 / sizeof(Point2)));
  SimplePool<Huge> huge;
  CaptureStdout();
  huge.init(1, -1);
  EXPECT_EQ(GetCapturedStdout(), "KiroPool::init(..), Warning: increaseLimit=1\n");
  EXPECT_EQ(huge.getIncreaseLimit(), 1);
}

TEST(SimplePool, BlocksHandOutConsecutiveElementsNeverMovedAndKilledBlocksReadEmpty) {
  SimplePool<int> pool;
  pool.init(4, -1);
  int numUsed(-1);
  const int* pFirst(pool.getContainer(0, numUsed));
  EXPECT_EQ(numUsed, 0);
  EXPECT_TRUE(pool.isSingleBlock());
  std::vector<int*> vElements;
  for (int i = 0; i < 5; ++i) {
    vElements.push_back(pool.get());
    *vElements.back() = i;
  }
  ASSERT_EQ(pool.getNumContainers(), 2);
  EXPECT_FALSE(pool.isSingleBlock());
  EXPECT_EQ(pool.getContainer(0, numUsed), pFirst);
  EXPECT_EQ(numUsed, 4);
  int* pSecond(pool.getContainer(1, numUsed));
  EXPECT_EQ(numUsed, 1);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(vElements[i], pFirst + i);
  EXPECT_EQ(vElements[4], pSecond);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(*vElements[i], i);
  EXPECT_THROW(pool.getContainer(2, numUsed), VaskException);
  // Killing the current block makes the next get() open a new one.
  pool.kill(0);
  EXPECT_EQ(pool.getContainer(0, numUsed), nullptr);
  EXPECT_EQ(numUsed, 0);
  pool.kill(1);
  EXPECT_EQ(pool.getContainer(1, numUsed), nullptr);
  *pool.get() = 7;
  ASSERT_EQ(pool.getNumContainers(), 3);
  EXPECT_NE(pool.getContainer(2, numUsed), nullptr);
  EXPECT_EQ(numUsed, 1);
}

TEST(SimplePool, MisuseFailsTheAssertion) {
  SimplePool<int> never;
  CaptureStdout();
  EXPECT_THROW(never.get(), VaskException);
  std::string out(GetCapturedStdout());
  EXPECT_NE(out.find("Condition [ initialized failed ]"), std::string::npos);

  SimplePool<int> twice;
  twice.init(1, -1);
  CaptureStdout();
  EXPECT_THROW(twice.init(1, -1), VaskException);
  out = GetCapturedStdout();
  EXPECT_EQ(out.find("SimplePool::init(..), ERROR: This pool is already initialized\n"), 0u);
  EXPECT_NE(out.find("Condition [ false failed ]"), std::string::npos);

  CaptureStdout();
  EXPECT_THROW(twice.kill(1), VaskException);
  EXPECT_THROW(twice.kill(-1), VaskException);
  twice.kill(0);
  EXPECT_THROW(twice.kill(0), VaskException);
  out = GetCapturedStdout();
  EXPECT_NE(out.find("Condition [ killIndex<vContainers.size() failed ]"), std::string::npos);
  EXPECT_NE(out.find("Condition [ vContainers[killIndex]!=NULL failed ]"), std::string::npos);
}

// ---------------------------------------------------------------- Hilbert keys

TEST(HilbertKey, ConsecutiveKeysAreNeighbouringCells) {
  // 10 bits: a 32 x 32 grid; the curve visits every cell once, each step to
  // an edge neighbour.
  const int cells(32);
  HC2 hc(0.0, 0.0, 1.0, 1.0, 10);
  ASSERT_EQ(hc.getCells(), cells);
  std::vector<int> vCellOfKey(cells * cells, -1);
  for (int i = 0; i < cells; ++i) {
    for (int j = 0; j < cells; ++j) {
      const uint32_t key(hc.getKey((i + 0.5) / cells, (j + 0.5) / cells));
      ASSERT_LT(key, uint32_t(cells * cells));
      EXPECT_EQ(vCellOfKey[key], -1);
      vCellOfKey[key] = i * cells + j;
    }
  }
  for (int k = 1; k < cells * cells; ++k) {
    const int a(vCellOfKey[k - 1]), b(vCellOfKey[k]);
    EXPECT_EQ(std::abs(a / cells - b / cells) + std::abs(a % cells - b % cells), 1) << "key " << k;
  }
}

TEST(HilbertKey, FourLevelStepsAgreeWithTheLevelByLevelCurve) {
  std::mt19937_64 gen(11);
  std::uniform_real_distribution<double> dist(-0.1, 1.1);
  for (int numBits = 2; numBits <= 32; numBits += 2) {
    HC2 hc(0.0, 0.0, 1.0, 1.0, numBits);
    for (int i = 0; i < 2000; ++i) {
      const double x(dist(gen)), y(dist(gen));
      ASSERT_EQ(hc.getKey(x, y), hc.getKeyByLevels(x, y)) << numBits << " bits at " << x << " " << y;
    }
    EXPECT_EQ(hc.getKey(0.0, 0.0), 0u);
    if (numBits < 32) {
      EXPECT_LT(hc.getKey(0.999, 0.999), uint32_t(1) << numBits);
    }
  }
}

TEST(HilbertKey, KeysStartAtTheMinimumCornerAndUseAllTheirBits) {
  GSS_HC2 gss(-3.0, 2.0, 5.0, 10.0, 30);
  EXPECT_EQ(gss.getKey(-3.0, 2.0), 0u);
  const double cellSize(8.0 / 32768.0); // same cell, same key
  EXPECT_EQ(gss.getKey(1.0 + 0.1 * cellSize, 4.0 + 0.2 * cellSize), gss.getKey(1.0 + 0.9 * cellSize, 4.0 + 0.7 * cellSize));
  EXPECT_NE(gss.getKey(1.0 + 0.5 * cellSize, 4.0), gss.getKey(1.0 + 1.5 * cellSize, 4.0));

  HC2 hc(0.0, 0.0, 1.0, 1.0, 30);
  EXPECT_EQ(hc.getCells(), 32768);
  std::mt19937_64 gen(7);
  std::uniform_real_distribution<double> dist(0.0, 1.0);
  std::set<uint32_t> sTopQuarters;
  for (int i = 0; i < 20000; ++i) {
    const uint32_t key(hc.getKey(dist(gen), dist(gen)));
    ASSERT_LT(key, uint32_t(1) << 30);
    sTopQuarters.insert(key >> 28);
  }
  EXPECT_EQ(sTopQuarters.size(), 4u);
  // The curve of state 0 ends in the corner (max x, min y).
  EXPECT_EQ(hc.getKey(std::nextafter(1.0, 0.0), 0.0), (uint32_t(1) << 30) - 1);
  HC2 full(0.0, 0.0, 1.0, 1.0, 32);
  EXPECT_EQ(full.getCells(), 65536);
  EXPECT_EQ(full.getKey(0.999999, 0.0), 0xFFFFFFFFu);
  // init resets the area.
  HC2 later;
  const uint32_t before(later.getKey(0.75, 0.25));
  later.init(0.0, 0.0, 2.0, 2.0, 30);
  EXPECT_EQ(later.getKey(1.5, 0.5), before);
  EXPECT_NE(later.getKey(0.75, 0.25), before);
}

TEST(HilbertKey, PointsOutsideTheAreaStayInRange) {
  HC2 hc(0.0, 0.0, 1.0, 1.0, 8);
  const double inf(std::numeric_limits<double>::infinity()), nan(std::numeric_limits<double>::quiet_NaN());
  for (double x : {-1e300, -1.0, 1.0, 2.0, 1e300, inf, -inf, nan}) {
    EXPECT_LT(hc.getKey(x, 0.5), 256u);
    EXPECT_LT(hc.getKey(0.5, x), 256u);
  }
  // Far edge and beyond fall into the last cell of the axis.
  EXPECT_EQ(hc.getKey(1.0, 0.0), hc.getKey(0.99, 0.0));
  EXPECT_EQ(hc.getKey(-5.0, -5.0), 0u);
  // A flat area puts every point of that axis into cell 0.
  HC2 flat(0.0, 3.0, 1.0, 3.0, 8);
  EXPECT_EQ(flat.getKey(0.0, 7.0), 0u);
  EXPECT_EQ(flat.getKey(0.3, 3.0), flat.getKey(0.3, -9.0));
}

TEST(HilbertKey, InvalidBitCountThrowsForHC2) {
  for (int numBits : {33, 31, 7, 0, -2}) {
    CaptureStdout();
    EXPECT_THROW(HC2(0.0, 0.0, 1.0, 1.0, numBits), VaskException) << numBits;
    const std::string out(GetCapturedStdout());
    EXPECT_EQ(out.find("\n      [Vask2D-Message] HC2::HC2(..), ERROR: Can't determine Hermite factors\n"), 0u);
  }
}

TEST(HilbertKeyDeathTest, InvalidBitCountEndsTheProcessForGSS_HC2) {
  EXPECT_EXIT(GSS_HC2(0.0, 0.0, 1.0, 1.0, 33), testing::ExitedWithCode(1), "");
  EXPECT_EXIT(GSS_HC2(0.0, 0.0, 1.0, 1.0, 29), testing::ExitedWithCode(1), "");
}
