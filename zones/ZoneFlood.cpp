#include "zones/ZoneFlood.h"
#include "ConstraintGraph2.h"
#include "ConstraintSegment2.h"
#include "core/Dt2.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <unordered_set>

namespace KIRO_VASK2D {

ZoneFlood::ZoneFlood(Dt2* pDt2_) : pDt2(pDt2_), aFlags(nullptr), numSlots(0), pageMask(0) {
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
  buildPageTable();
  aFlags = static_cast<uint8_t*>(std::calloc(numSlots + 1, 1));
  if (aFlags == nullptr) throw std::bad_alloc();
}

ZoneFlood::~ZoneFlood() { std::free(aFlags); }

// The block that holds addr, found by bisection (the blocks are sorted by
// address); it becomes the first guess of the next lookup.
const ZoneFlood::Block* ZoneFlood::findBlock(uintptr_t addr) const {
  size_t lo(0), hi(vBlocks.size());
  while (lo < hi) {
    const size_t mid((lo + hi) / 2);
    if (vBlocks[mid].begin <= addr) lo = mid + 1;
    else hi = mid;
  }
  if (lo == 0 || addr >= vBlocks[lo - 1].end) return nullptr;
  return &vBlocks[lo - 1];
}

void ZoneFlood::buildPageTable() {
  size_t numPages(0);
  for (const Block& b : vBlocks) numPages += ((b.end - 1) >> PAGE_SHIFT) - (b.begin >> PAGE_SHIFT) + 1;
  size_t size(16);
  while (size < 2 * numPages) size *= 2;
  vPages.assign(size, PageEntry{0, nullptr, false});
  pageMask = size - 1;
  for (const Block& b : vBlocks)
    for (uintptr_t page = b.begin >> PAGE_SHIFT; page <= (b.end - 1) >> PAGE_SHIFT; ++page)
      for (size_t i = hashPage(page);; i = (i + 1) & pageMask) {
        PageEntry& e(vPages[i]);
        if (!e.bUsed) {
          e = PageEntry{page, &b, true};
          break;
        }
        if (e.page == page) {
          e.pBlock = nullptr; // shared by two blocks
          break;
        }
      }
}

void ZoneFlood::foreignTriangle() {
  // A neighbour pointer outside the pool: the mesh is broken.
  VASK_ASSERT(false);
  throw std::logic_error("foreign triangle");
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
  // The stack carries each triangle's flags, so a popped triangle needs no lookup.
  std::vector<std::pair<Triangle2*, uint8_t*> > vStack;
  for (Triangle2* pSeed : vSeeds) {
    if (pSeed == nullptr) continue;
    uint8_t& f(flagsOf(pSeed));
    if (f & VISITED) continue;
    f |= VISITED;
    vStack.emplace_back(pSeed, &f);
    vOut.push_back(pSeed);
  }
  while (!vStack.empty()) {
    Triangle2* pT(vStack.back().first);
    const uint8_t fenceBits(*vStack.back().second);
    vStack.pop_back();
    for (int i = 0; i < 3; ++i) {
      if (fenceBits & (1u << i)) continue;
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp == nullptr) continue;
      uint8_t& f(flagsOf(pOpp));
      if (f & VISITED) continue;
      f |= VISITED;
      // Its neighbours are read when it is popped: start loading them now.
      __builtin_prefetch(pOpp);
      vStack.emplace_back(pOpp, &f);
      vOut.push_back(pOpp);
    }
  }
}

void ZoneFlood::markAll(const std::vector<Triangle2*>& vT) {
  for (Triangle2* pT : vT) flagsOf(pT) |= VISITED;
}

} // namespace KIRO_VASK2D
