#pragma once
// Position lookup of segment pointers: an open-addressing hash table of
// positions into the caller's vector. A map of a million pointers would
// cost a node allocation per entry; this is one flat array of ints.
#include <cstdint>
#include <vector>

namespace KIRO_VASK2D {

class Segment2;

class PointerIndex {
public:
  PointerIndex() : mask(0), numEntries(0) {}

  /** Position of pSeg in vSegments, -1 when it is not held. */
  int find(const Segment2* pSeg, const std::vector<Segment2*>& vSegments) const {
    if (vSlots.empty()) return -1;
    for (size_t slot = hash(pSeg) & mask;; slot = (slot + 1) & mask) {
      const int pos(vSlots[slot]);
      if (pos < 0) return -1;
      if (vSegments[size_t(pos)] == pSeg) return pos;
    }
  }
  /** Registers position pos of vSegments unless its pointer is held already;
   * returns the position held for that pointer (the first one). */
  int insert(int pos, const std::vector<Segment2*>& vSegments) {
    // At most half full: probe runs stay short.
    if (2 * (numEntries + 1) > vSlots.size()) grow(vSegments);
    const Segment2* pSeg(vSegments[size_t(pos)]);
    for (size_t slot = hash(pSeg) & mask;; slot = (slot + 1) & mask) {
      const int held(vSlots[slot]);
      if (held < 0) {
        vSlots[slot] = pos;
        ++numEntries;
        return pos;
      }
      if (vSegments[size_t(held)] == pSeg) return held;
    }
  }
  /** Makes room for n entries in total without regrowing. */
  void reserve(size_t n, const std::vector<Segment2*>& vSegments) {
    while (2 * n > vSlots.size()) grow(vSegments);
  }

private:
  static size_t hash(const Segment2* p) {
    // Fibonacci hashing of the address; the high bits mix best, so they are
    // folded down before the mask.
    const uint64_t h(uint64_t(reinterpret_cast<uintptr_t>(p)) * 0x9E3779B97F4A7C15ull);
    return size_t(h ^ (h >> 32));
  }
  void grow(const std::vector<Segment2*>& vSegments) {
    std::vector<int> vOld;
    vOld.swap(vSlots);
    vSlots.assign(vOld.empty() ? 16 : 2 * vOld.size(), -1);
    mask = vSlots.size() - 1;
    for (int pos : vOld) {
      if (pos < 0) continue;
      size_t slot(hash(vSegments[size_t(pos)]) & mask);
      while (vSlots[slot] >= 0) slot = (slot + 1) & mask;
      vSlots[slot] = pos;
    }
  }

  std::vector<int> vSlots; // a position, or -1 for a free slot; a power of two in size
  size_t mask;
  size_t numEntries;
};

} // namespace KIRO_VASK2D
