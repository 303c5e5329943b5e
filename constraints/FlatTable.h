#pragma once
// An open-addressing hash table with linear probing, for the registries of
// constraint segments. Entries are single words (pointers, or pointers with a
// tag bit), so a table costs about 8 / 0.6 bytes per entry, where an ordered
// tree costs a 48-byte node plus the allocator's header. Entries are never
// erased: segments and graphs only accumulate while a triangulation lives.
//
// Ops supplies:   static Key keyOf(Entry), static size_t hash(Key),
//                 static bool isEmpty(Entry), static Entry emptyEntry().
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KIRO_VASK2D {

/** Mixes a pointer-sized value into a well-spread hash (Fibonacci hashing of
 * the word after dropping the always-zero alignment bits). */
inline size_t mixWord(uintptr_t w) {
  uint64_t x(static_cast<uint64_t>(w) >> 3);
  x ^= x >> 29;
  x *= 0x9E3779B97F4A7C15ull;
  return static_cast<size_t>(x ^ (x >> 32));
}

template <typename Entry, typename Key, typename Ops>
class FlatTable {
public:
  FlatTable() : numUsed(0) {}

  size_t size() const { return numUsed; }
  bool empty() const { return numUsed == 0; }

  /** The slot that holds key, or null. */
  Entry* find(const Key& key) {
    if (numUsed == 0) return nullptr;
    const size_t mask(vSlots.size() - 1);
    for (size_t i = Ops::hash(key) & mask;; i = (i + 1) & mask) {
      Entry& e(vSlots[i]);
      if (Ops::isEmpty(e)) return nullptr;
      if (Ops::keyOf(e) == key) return &e;
    }
  }
  const Entry* find(const Key& key) const { return const_cast<FlatTable*>(this)->find(key); }

  /** Adds the entry unless its key is present; true when added. */
  bool insert(const Entry& entry) {
    if (10 * (numUsed + 1) > 7 * vSlots.size()) grow();
    if (placeNew(vSlots, entry)) {
      ++numUsed;
      return true;
    }
    return false;
  }

  template <typename F>
  void forEach(F f) const {
    for (const Entry& e : vSlots)
      if (!Ops::isEmpty(e)) f(e);
  }

  void clear() {
    std::vector<Entry>().swap(vSlots);
    numUsed = 0;
  }

  /** Bytes held by the slot array. */
  size_t memoryBytes() const { return vSlots.capacity() * sizeof(Entry); }

private:
  static bool placeNew(std::vector<Entry>& vTarget, const Entry& entry) {
    const size_t mask(vTarget.size() - 1);
    const Key key(Ops::keyOf(entry));
    for (size_t i = Ops::hash(key) & mask;; i = (i + 1) & mask) {
      Entry& e(vTarget[i]);
      if (Ops::isEmpty(e)) {
        e = entry;
        return true;
      }
      if (Ops::keyOf(e) == key) return false;
    }
  }
  // The load stays at most 0.7, so a probe sequence always meets an empty slot.
  void grow() {
    std::vector<Entry> vNew(vSlots.empty() ? 16 : 2 * vSlots.size(), Ops::emptyEntry());
    for (const Entry& e : vSlots)
      if (!Ops::isEmpty(e)) placeNew(vNew, e);
    vSlots.swap(vNew);
  }

  std::vector<Entry> vSlots; // size is zero or a power of two
  size_t numUsed;
};

} // namespace KIRO_VASK2D
