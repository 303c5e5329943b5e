#pragma once
// Block allocator of the mesh elements. Elements are handed out in order and
// never freed one by one, so get() is a counter increment on its fast path;
// the triangulation recycles dead elements through its own lists.
#include "support/VaskAssert.h"
#include <cstddef>
#include <cstdlib>
#include <vector>

namespace KIRO_VASK2D {

/** Largest block of the triangulation's own pools, in bytes. */
constexpr int POOL_BLOCK_BYTES = 10000000;
/** Largest block of the pools of the spatial trees and the quad mesher. */
constexpr int POOL_BLOCK_BYTES_LARGE = 100000000;

/** Prints one pool message on its own line to standard output. */
void printPoolMessage(const char* msg);

/** Raw memory for elements of type T in blocks of growing size. The pool
 * neither constructs, moves nor destroys elements: callers construct in
 * place, and pointers stay valid for the pool's life. */
template <typename T, int MAX_BLOCK_BYTES = POOL_BLOCK_BYTES>
class SimplePool {
public:
  SimplePool()
      : pCurrent(nullptr), currentIndex(-1), currentSize(0), initialSize(0), increase(-1), initialized(false),
        bSingleBlock(true), increaseLimit(0) {}
  ~SimplePool() {
    for (T* pBlock : vContainers) std::free(pBlock);
  }
  SimplePool(const SimplePool&) = delete;
  SimplePool& operator=(const SimplePool&) = delete;

  /** Must be called once. A negative increase selects automatic growth: the
   * second block is half the first (the first is the caller's guess), every
   * further one doubles, capped at getIncreaseLimit(). A positive increase
   * is the size of every further block, not capped. */
  void init(int initialSize_, int increase_);

  /** A fresh, unconstructed element. Before init() currentSize is 0, so the
   * uninitialised case costs nothing here and is caught on the slow path. */
  T* get() {
    if (++currentIndex < currentSize) return pCurrent + currentIndex;
    return getFromNewBlock();
  }

  /** Allocates a block of n elements and makes it current; a negative n
   * derives the size from the last block. Used by init() and get(). */
  void alloc(int n);

  int getNumContainers() const { return int(vContainers.size()); }
  /** Block i and its number of used elements: the capacity, except for the
   * current block (used so far) and a killed one (null, 0). */
  T* getContainer(int i, int& numUsed) const;
  /** Frees block killIndex; its elements must no longer be referenced. */
  void kill(int killIndex_);

  int getIncreaseLimit() const { return increaseLimit; }
  bool isInitialized() const { return initialized; }
  /** True while all elements ever handed out lie in the first block. */
  bool isSingleBlock() const { return bSingleBlock; }

  /** MAX_BLOCK_BYTES / sizeof(T), rounded down; may be 0 for huge types. */
  static constexpr int rawIncreaseLimit() { return int(std::size_t(MAX_BLOCK_BYTES) / sizeof(T)); }

private:
  T* getFromNewBlock();

  std::vector<T*> vContainers;
  std::vector<int> vSizes;
  T* pCurrent;
  int currentIndex;
  int currentSize;
  int initialSize;
  int increase;
  bool initialized;
  bool bSingleBlock;
  int increaseLimit;
};

template <typename T, int MAX_BLOCK_BYTES>
void SimplePool<T, MAX_BLOCK_BYTES>::init(int initialSize_, int increase_) {
  if (initialized) {
    printPoolMessage("SimplePool::init(..), ERROR: This pool is already initialized");
    VASK_ASSERT(false);
  }
  VASK_ASSERT(initialSize_>0);
  // A fixed increase of 0 would hand out elements of empty blocks.
  VASK_ASSERT(increase_!=0);
  increaseLimit = rawIncreaseLimit();
  if (increaseLimit == 0) {
    increaseLimit = 1;
    printPoolMessage("KiroPool::init(..), Warning: increaseLimit=1");
  }
  initialSize = initialSize_;
  increase = increase_;
  alloc(initialSize);
  initialized = true;
}

template <typename T, int MAX_BLOCK_BYTES>
void SimplePool<T, MAX_BLOCK_BYTES>::alloc(int n) {
  if (n < 0) {
    VASK_ASSERT(!vSizes.empty());
    VASK_ASSERT(vSizes.back()>0);
    const long long last(vSizes.back());
    long long next(vSizes.size() == 1 ? last / 2 : last * 2);
    if (next == 0) next = last;
    n = int(next < increaseLimit ? next : increaseLimit);
  }
  T* pBlock(static_cast<T*>(std::malloc(std::size_t(n) * sizeof(T))));
  if (pBlock == nullptr) {
    printPoolMessage("SimplePool::alloc(..), ERROR: Out of memory");
    VASK_ASSERT(false);
  }
  // vSizes and vContainers grow together so that their indices always agree.
  vSizes.push_back(n);
  vContainers.push_back(pBlock);
  pCurrent = pBlock;
  currentIndex = -1;
  currentSize = n;
}

template <typename T, int MAX_BLOCK_BYTES>
T* SimplePool<T, MAX_BLOCK_BYTES>::getFromNewBlock() {
  VASK_ASSERT(initialized);
  alloc(increase);
  currentIndex = 0;
  bSingleBlock = false;
  return pCurrent;
}

template <typename T, int MAX_BLOCK_BYTES>
T* SimplePool<T, MAX_BLOCK_BYTES>::getContainer(int i, int& numUsed) const {
  VASK_ASSERT(i>=0 && i<getNumContainers());
  T* pBlock(vContainers[i]);
  if (pBlock == nullptr) numUsed = 0;
  else if (i + 1 == getNumContainers()) numUsed = currentIndex + 1;
  else numUsed = vSizes[i];
  return pBlock;
}

template <typename T, int MAX_BLOCK_BYTES>
void SimplePool<T, MAX_BLOCK_BYTES>::kill(int killIndex_) {
  // Unsigned, so that a negative index fails the range check as well.
  const std::size_t killIndex(static_cast<std::size_t>(killIndex_));
  VASK_ASSERT(killIndex<vContainers.size());
  VASK_ASSERT(vContainers[killIndex]!=NULL);
  std::free(vContainers[killIndex]);
  vContainers[killIndex] = nullptr;
  if (killIndex + 1 == vContainers.size()) {
    // The current block is gone: the next get() opens a new one.
    pCurrent = nullptr;
    currentIndex = -1;
    currentSize = 0;
  }
}

} // namespace KIRO_VASK2D
