#pragma once
// Positions of elements in a SimplePool, counted over its blocks in order of
// allocation: the n-th element the pool handed out has position n. The
// triangulation takes a vertex and its vault record from their pools in
// lockstep, so the positions map a vertex to its record without a search.
#include "kiro_tools/SimplePool.h"
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KIRO_VASK2D {

/** A table of a pool's blocks (first address, first position, size) for
 * lookups in both directions. It catches up with the pool on each lookup
 * when the pool has opened a block since; the used part of the last block
 * is read from the pool each time. The search starts at the last block: the
 * blocks double up to their byte limit, so the last few hold most
 * elements. A pool whose blocks get killed is not for this table. */
template <typename T, int B = POOL_BLOCK_BYTES> class PoolIndex {
public:
  /** The position of p among the elements handed out by the pool; false
   * when p is not one of them. Compares addresses only and never
   * dereferences p. */
  bool getIndex(const SimplePool<T, B>& pool, const T* p, size_t& index) {
    catchUp(pool);
    const uintptr_t addr(reinterpret_cast<uintptr_t>(p));
    for (size_t i = vBlocks.size(); i-- > 0;) {
      const Block& block(vBlocks[i]);
      if (addr < block.begin) continue;
      const uintptr_t offset(addr - block.begin);
      if (offset >= numUsed(pool, i) * sizeof(T)) continue;
      if (offset % sizeof(T) != 0) return false;
      index = block.first + offset / sizeof(T);
      return true;
    }
    return false;
  }
  /** The element handed out at position index, or null when there is none. */
  T* getElement(const SimplePool<T, B>& pool, size_t index) {
    catchUp(pool);
    for (size_t i = vBlocks.size(); i-- > 0;) {
      const Block& block(vBlocks[i]);
      if (index < block.first) continue;
      if (index - block.first >= numUsed(pool, i)) return nullptr;
      return reinterpret_cast<T*>(block.begin) + (index - block.first);
    }
    return nullptr;
  }

private:
  struct Block {
    uintptr_t begin;
    size_t first;
    size_t numFull; // the number of elements of a block before the last
  };
  size_t numUsed(const SimplePool<T, B>& pool, size_t i) const {
    if (i + 1 < vBlocks.size()) return vBlocks[i].numFull;
    int used(0);
    pool.getContainer(static_cast<int>(i), used);
    return static_cast<size_t>(used);
  }
  // Blocks before the last are full: their used count no longer changes.
  void catchUp(const SimplePool<T, B>& pool) {
    const size_t numBlocks(static_cast<size_t>(pool.getNumContainers()));
    if (numBlocks == vBlocks.size()) return;
    vBlocks.clear();
    size_t first(0);
    for (size_t i = 0; i < numBlocks; ++i) {
      int used(0);
      T* pBlock(pool.getContainer(static_cast<int>(i), used));
      vBlocks.push_back(Block{reinterpret_cast<uintptr_t>(pBlock), first, static_cast<size_t>(used)});
      first += static_cast<size_t>(used);
    }
  }
  std::vector<Block> vBlocks;
};

} // namespace KIRO_VASK2D
