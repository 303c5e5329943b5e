#pragma once
// Positions of elements in a SimplePool, counted over its blocks in order of
// allocation: the n-th element the pool handed out has position n. The
// triangulation takes a vertex and its vault record from their pools in
// lockstep, so the positions map a vertex to its record without a search.
#include "kiro_tools/SimplePool.h"
#include <cstddef>
#include <cstdint>

namespace KIRO_VASK2D {

/** The position of p among the elements handed out by the pool; false when p
 * is not one of them. Compares addresses only and never dereferences p. The
 * blocks double up to their byte limit, so there are few of them. */
template <typename T, int B> bool getPoolIndex(const SimplePool<T, B>& pool, const T* p, size_t& index) {
  const uintptr_t addr(reinterpret_cast<uintptr_t>(p));
  size_t numBefore(0);
  for (int i = 0; i < pool.getNumContainers(); ++i) {
    int numUsed(0);
    const T* pBlock(pool.getContainer(i, numUsed));
    const uintptr_t first(reinterpret_cast<uintptr_t>(pBlock));
    if (pBlock != nullptr && addr >= first) {
      const uintptr_t offset(addr - first);
      if (offset < static_cast<uintptr_t>(numUsed) * sizeof(T)) {
        if (offset % sizeof(T) != 0) return false;
        index = numBefore + offset / sizeof(T);
        return true;
      }
    }
    numBefore += static_cast<size_t>(numUsed);
  }
  return false;
}

/** The element handed out at position index, or null when there is none. */
template <typename T, int B> T* getPoolElement(const SimplePool<T, B>& pool, size_t index) {
  for (int i = 0; i < pool.getNumContainers(); ++i) {
    int numUsed(0);
    T* pBlock(pool.getContainer(i, numUsed));
    if (index < static_cast<size_t>(numUsed)) return pBlock + index;
    index -= static_cast<size_t>(numUsed);
  }
  return nullptr;
}

} // namespace KIRO_VASK2D
