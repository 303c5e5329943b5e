#include "kiro_tools/SimplePool.h"
#include <cstdint>
#include <cstdlib>
#include <iostream>
#ifdef __linux__
#include <sys/mman.h>
#endif

namespace KIRO_VASK2D {

namespace {
// The huge page of x86-64 and of most 4 KiB-page systems. Where the system's
// size differs, advice on these boundaries is still a valid hint.
const std::uintptr_t HUGE_PAGE_BYTES(std::uintptr_t(2) << 20);
} // namespace

// Out of line so that the pool template does not pull <iostream> into every unit.
void printPoolMessage(const char* msg) {
  std::cout << msg << std::endl;
}

// A block of two huge pages or more starts on a huge page boundary, so that
// every whole 2 MiB of it can be a huge page. The alignment costs address
// space only: untouched memory is not resident.
void* allocPoolBlock(std::size_t numBytes) {
  if (numBytes >= 2 * HUGE_PAGE_BYTES) {
    void* p(nullptr);
    return posix_memalign(&p, HUGE_PAGE_BYTES, numBytes) == 0 ? p : nullptr;
  }
  return std::malloc(numBytes);
}

void adviseHugePages(void* pBegin, void* pEnd) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  const std::uintptr_t lo((reinterpret_cast<std::uintptr_t>(pBegin) + HUGE_PAGE_BYTES - 1) & ~(HUGE_PAGE_BYTES - 1));
  const std::uintptr_t hi(reinterpret_cast<std::uintptr_t>(pEnd) & ~(HUGE_PAGE_BYTES - 1));
  if (lo < hi) madvise(reinterpret_cast<void*>(lo), hi - lo, MADV_HUGEPAGE);
#else
  (void)pBegin;
  (void)pEnd;
#endif
}

} // namespace KIRO_VASK2D
