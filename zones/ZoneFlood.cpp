#include "zones/ZoneFlood.h"
#include "ConstraintGraph2.h"
#include "ConstraintSegment2.h"
#include "core/Dt2.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cstdlib>
#include <new>
#include <unordered_set>

namespace KIRO_VASK2D {

ZoneFlood::ZoneFlood(Dt2* pDt2_) : pDt2(pDt2_), aFlags(nullptr), numSlots(0), lastBlock(0) {
  const SimplePool<Triangle2>& pool(pDt2->getTrianglePool());
  for (int b = 0; b < pool.getNumContainers(); ++b) {
    int numUsed(0);
    Triangle2* pBlock(pool.getContainer(b, numUsed));
    if (pBlock == nullptr || numUsed <= 0) continue;
    const uintptr_t begin(reinterpret_cast<uintptr_t>(pBlock));
    vBlocks.push_back(Block{begin, begin + static_cast<uintptr_t>(numUsed) * sizeof(Triangle2), numSlots});
    numSlots += static_cast<size_t>(numUsed);
  }
  std::sort(vBlocks.begin(), vBlocks.end(), [](const Block& a, const Block& b) { return a.begin < b.begin; });
  aFlags = static_cast<uint8_t*>(std::calloc(numSlots + 1, 1));
  if (aFlags == nullptr) throw std::bad_alloc();
}

ZoneFlood::~ZoneFlood() { std::free(aFlags); }

bool ZoneFlood::indexOf(const Triangle2* pT, size_t& idx) const {
  const uintptr_t addr(reinterpret_cast<uintptr_t>(pT));
  size_t b(lastBlock);
  if (b >= vBlocks.size() || addr < vBlocks[b].begin || addr >= vBlocks[b].end) {
    // The first block that begins beyond addr, then the one before it.
    size_t lo(0), hi(vBlocks.size());
    while (lo < hi) {
      const size_t mid((lo + hi) / 2);
      if (vBlocks[mid].begin <= addr) lo = mid + 1;
      else hi = mid;
    }
    if (lo == 0) return false;
    b = lo - 1;
    if (addr >= vBlocks[b].end) return false;
    lastBlock = b;
  }
  const uintptr_t offset(addr - vBlocks[b].begin);
  if (offset % sizeof(Triangle2) != 0) return false;
  idx = vBlocks[b].first + offset / sizeof(Triangle2);
  return true;
}

uint8_t& ZoneFlood::flagsOf(const Triangle2* pT) {
  size_t idx(0);
  const bool bOwn(indexOf(pT, idx));
  VASK_ASSERT(bOwn);
  return aFlags[idx];
}

// pT has pB right after pA in counter-clockwise order: the edge pA-pB is
// the one opposite the third corner.
void ZoneFlood::markFence(Triangle2* pT, Point2* pA, Point2* pB) {
  const int ia(pT->getIntraTriangleIndex(pA));
  VASK_ASSERT(pT->getCorner(incIndexBy1(ia)) == pB);
  flagsOf(pT) |= static_cast<uint8_t>(1u << incIndexBy2(ia));
}

size_t ZoneFlood::addFences(const std::vector<ConstraintGraph2*>& vGraphs, SeedSide side,
                            std::vector<Triangle2*>& vSeeds) {
  size_t numMissing(0);
  std::vector<ConstraintSegment2*> vChain;
  std::unordered_set<ConstraintSegment2*> sSeen, sTwice;
  for (ConstraintGraph2* pCG : vGraphs) {
    pCG->getAliveConstraintChain(vChain);
    if (side == SEED_LEFT) {
      sSeen.clear();
      sTwice.clear();
      sSeen.reserve(vChain.size());
      for (ConstraintSegment2* pCSeg : vChain)
        if (!sSeen.insert(pCSeg).second) sTwice.insert(pCSeg);
    }
    for (ConstraintSegment2* pCSeg : vChain) {
      // A suspended leaf exists only while the mesh changes under it.
      if (!pCSeg->isAlive()) {
        ++numMissing;
        continue;
      }
      Point2* pA(pCSeg->getSrc());
      Point2* pB(pCSeg->getTrg());
      if (pCG->isReverse(pCSeg)) std::swap(pA, pB);
      Triangle2* pLeft(pDt2->getAdjacentTriangle(pA, pB));
      Triangle2* pRight(pDt2->getAdjacentTriangle(pB, pA));
      if (pLeft == nullptr && pRight == nullptr) {
        ++numMissing;
        continue;
      }
      if (pLeft != nullptr) markFence(pLeft, pA, pB);
      if (pRight != nullptr) markFence(pRight, pB, pA);
      if (side == SEED_NONE || (side == SEED_LEFT && sTwice.count(pCSeg) != 0)) continue;
      Triangle2* pSeed(side == SEED_LEFT ? pLeft : pRight);
      if (pSeed != nullptr) vSeeds.push_back(pSeed);
    }
  }
  return numMissing;
}

void ZoneFlood::flood(const std::vector<Triangle2*>& vSeeds, std::vector<Triangle2*>& vOut) {
  std::vector<Triangle2*> vStack;
  for (Triangle2* pSeed : vSeeds) {
    if (pSeed == nullptr) continue;
    uint8_t& f(flagsOf(pSeed));
    if (f & VISITED) continue;
    f |= VISITED;
    vStack.push_back(pSeed);
    vOut.push_back(pSeed);
  }
  while (!vStack.empty()) {
    Triangle2* pT(vStack.back());
    vStack.pop_back();
    const uint8_t fenceBits(flagsOf(pT));
    for (int i = 0; i < 3; ++i) {
      if (fenceBits & (1u << i)) continue;
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp == nullptr) continue;
      uint8_t& f(flagsOf(pOpp));
      if (f & VISITED) continue;
      f |= VISITED;
      vStack.push_back(pOpp);
      vOut.push_back(pOpp);
    }
  }
}

void ZoneFlood::markAll(const std::vector<Triangle2*>& vT) {
  for (Triangle2* pT : vT) flagsOf(pT) |= VISITED;
}

} // namespace KIRO_VASK2D
