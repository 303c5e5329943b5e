#pragma once
// The flood behind every zone query. All state lives in this object, made
// per query: a flag byte per triangle slot of the pool (visited, and which
// edges are fences), so the visited and fence tests cost no search and no
// hashing, and two queries never share scratch.
#include "Triangle2.h"
#include "kiro_tools/SimplePool.h"
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KIRO_VASK2D {

class ConstraintGraph2;
class Dt2;

class ZoneFlood {
public:
  /** Which side of a directed fence leaf yields start triangles. */
  enum SeedSide { SEED_NONE, SEED_LEFT, SEED_RIGHT };

  explicit ZoneFlood(Dt2* pDt2);
  ~ZoneFlood();
  ZoneFlood(const ZoneFlood&) = delete;
  ZoneFlood& operator=(const ZoneFlood&) = delete;

  /** Makes the alive leaves of the graphs walls, on both of their sides.
   * With a seed side, the triangle on that side of each leaf (in the
   * graph's direction) is appended to vSeeds; on the left, a leaf the graph
   * passes twice (a slit: once each way) has the region on both sides and
   * gives none. Returns the number of
   * leaves that are no edge of the mesh (they don't fence). */
  size_t addFences(const std::vector<ConstraintGraph2*>& vGraphs, SeedSide side, std::vector<Triangle2*>& vSeeds);
  /** Floods from the seeds without crossing a wall and appends every
   * triangle reached, each once over all calls of this object. */
  void flood(const std::vector<Triangle2*>& vSeeds, std::vector<Triangle2*>& vOut);
  /** Makes edge ith of pT a wall as seen from pT. */
  void addWall(Triangle2* pT, int ith) { flagsOf(pT) |= static_cast<uint8_t>(1u << ith); }
  /** Marks triangles as members without flooding (a zone given as a list). */
  void markAll(const std::vector<Triangle2*>& vT);
  /** Takes the member mark off pT again (a triangle peeled off). */
  void unmark(const Triangle2* pT) { flagsOf(pT) &= static_cast<uint8_t>(~VISITED); }

  bool isVisited(const Triangle2* pT) const { return (flagsOf(pT) & VISITED) != 0; }
  bool isFence(const Triangle2* pT, int ith) const { return (flagsOf(pT) & (1u << ith)) != 0; }
  /** Whether pT is a slot of this triangulation's pool. */
  bool isOwnSlot(const Triangle2* pT) const {
    size_t idx;
    return indexOf(pT, idx);
  }

private:
  enum : uint8_t { VISITED = 8 };
  struct Block {
    uintptr_t begin;
    uintptr_t end;
    size_t first;
  };
  // Inline: the flood asks for every neighbour it meets.
  bool indexOf(const Triangle2* pT, size_t& idx) const {
    const uintptr_t addr(reinterpret_cast<uintptr_t>(pT));
    const Block* pBlock(blockOfPage(addr >> PAGE_SHIFT));
    if (pBlock == nullptr || addr < pBlock->begin || addr >= pBlock->end) {
      pBlock = findBlock(addr);
      if (pBlock == nullptr) return false;
    }
    const uintptr_t offset(addr - pBlock->begin);
    if (offset % sizeof(Triangle2) != 0) return false;
    idx = pBlock->first + offset / sizeof(Triangle2);
    return true;
  }
  const Block* findBlock(uintptr_t addr) const;
  // Pages of 1 MB map to the block that covers them, in a small hash table:
  // one probe finds the block of nearly every triangle. A page shared by
  // two blocks (small early ones) maps to none and takes the bisection.
  static const int PAGE_SHIFT = 20;
  struct PageEntry {
    uintptr_t page;
    const Block* pBlock; // null: empty slot, or a page of several blocks
    bool bUsed;
  };
  const Block* blockOfPage(uintptr_t page) const {
    for (size_t i = hashPage(page);; i = (i + 1) & pageMask) {
      const PageEntry& e(vPages[i]);
      if (!e.bUsed) return nullptr;
      if (e.page == page) return e.pBlock;
    }
  }
  size_t hashPage(uintptr_t page) const {
    return static_cast<size_t>((static_cast<uint64_t>(page) * 0x9E3779B97F4A7C15ull) >> 32) & pageMask;
  }
  void buildPageTable();
  uint8_t& flagsOf(const Triangle2* pT) {
    size_t idx(0);
    if (!indexOf(pT, idx)) foreignTriangle();
    return aFlags[idx];
  }
  [[noreturn]] static void foreignTriangle();
  uint8_t flagsOf(const Triangle2* pT) const { return const_cast<ZoneFlood*>(this)->flagsOf(pT); }
  void markFence(Triangle2* pT, Point2* pA, Point2* pB);

  Dt2* pDt2;
  std::vector<Block> vBlocks; // sorted by address
  uint8_t* aFlags;            // zero pages from calloc: untouched slots cost nothing
  size_t numSlots;
  std::vector<PageEntry> vPages; // a power of two, at most half full
  size_t pageMask;
};

} // namespace KIRO_VASK2D
