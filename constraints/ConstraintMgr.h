#pragma once
// The constraint registry of one triangulation: owner of every segment and
// graph, one segment per vertex pair, and the fast answer to "is this edge a
// constraint?" that flips and walks ask all the time.
#include "ConstraintGraph2.h"
#include "ConstraintSegment2.h"
#include "Edge2.h"
#include "Segment2.h"
#include "constraints/FlatTable.h"
#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace KIRO_VASK2D {

class Dt2;

/** Order of segments by the positions of their ends, the lower end first.
 * A segment's direction and its children's order follow vertex addresses;
 * work taken in this order gives the same mesh on every run. */
inline bool isBeforeByPosition(const ConstraintSegment2* a, const ConstraintSegment2* b) {
  const Point2 *a0(a->getSrc()), *a1(a->getTrg()), *b0(b->getSrc()), *b1(b->getTrg());
  if (*a1 < *a0) std::swap(a0, a1);
  if (*b1 < *b0) std::swap(b0, b1);
  if (*a0 < *b0) return true;
  if (*b0 < *a0) return false;
  return *a1 < *b1;
}

/** Appends the alive leaves below pCSeg to vOut, the range sorted by
 * position; with bStack the first by position comes last, to be popped
 * first. */
inline void appendLeavesByPosition(const ConstraintSegment2* pCSeg, std::vector<ConstraintSegment2*>& vOut,
                                   bool bStack) {
  const std::size_t first(vOut.size());
  pCSeg->getChildrenRec(vOut);
  const auto begin(vOut.begin() + static_cast<std::ptrdiff_t>(first));
  if (bStack)
    std::sort(begin, vOut.end(), [](const ConstraintSegment2* a, const ConstraintSegment2* b) {
      return isBeforeByPosition(b, a);
    });
  else std::sort(begin, vOut.end(), isBeforeByPosition);
}

struct SegmentByPairOps {
  typedef std::pair<Point2*, Point2*> Key;
  static Key keyOf(ConstraintSegment2* p) { return Key(p->getSrc(), p->getTrg()); }
  static size_t hash(const Key& k) {
    return mixWord(reinterpret_cast<uintptr_t>(k.first) * 31u + reinterpret_cast<uintptr_t>(k.second));
  }
  static bool isEmpty(ConstraintSegment2* p) { return p == nullptr; }
  static ConstraintSegment2* emptyEntry() { return nullptr; }
};

struct VertexSetOps {
  static Point2* keyOf(Point2* p) { return p; }
  static size_t hash(Point2* p) { return mixWord(reinterpret_cast<uintptr_t>(p)); }
  static bool isEmpty(Point2* p) { return p == nullptr; }
  static Point2* emptyEntry() { return nullptr; }
};

class ConstraintMgr {
public:
  explicit ConstraintMgr(Dt2* pDt2);
  /** Deletes all graphs, then all segments. */
  ~ConstraintMgr();
  ConstraintMgr(const ConstraintMgr&) = delete;
  ConstraintMgr& operator=(const ConstraintMgr&) = delete;

  /** The segment over the pair, in any order; made (alive, no owner) if the
   * pair is new. An existing segment is returned whatever its state, and
   * its strategy stays: a later cis is ignored. Equal pointers throw. */
  ConstraintSegment2* addConstraintSegment(Point2* p0, Point2* p1, ConstraintInsertionStrategy cis);
  /** Registers the children of a split; they normally exist already, which
   * makes this a no-op. */
  void updateConstraintSegment(ConstraintSegment2* pParentCSeg, ConstraintSegment2* pCSeg0,
                               ConstraintSegment2* pCSeg1);

  /** Segments by coordinates: the end points go in by one batch insertion
   * (sorted, without duplicates), then the worker with bApply. Finite
   * coordinates required (the facade filters); empty input gives null. */
  ConstraintGraph2* createConstraint(std::vector<Segment2>& vSegments, ConstraintInsertionStrategy cis);
  /** The same keeping each segment's direction; the end points go in one by
   * one. */
  ConstraintGraph2* createConstraint_oriented(std::vector<Segment2>& vSegments, ConstraintInsertionStrategy cis);
  /** Over existing vertices. */
  ConstraintGraph2* createConstraint(std::vector<Edge2*>& vEdges, ConstraintInsertionStrategy cis, bool bApply);
  /** Over existing vertices, keeping the direction of each edge (zone borders). */
  ConstraintGraph2* createConstraint(std::vector<Edge2>& vEdges, ConstraintInsertionStrategy cis);
  /** The worker: a graph over existing vertex pairs (equal vertices skipped
   * with a message, duplicates kept), applied at once with bApply. */
  ConstraintGraph2* createConstraint(std::vector<std::pair<Point2*, Point2*> >& vPairs, ConstraintInsertionStrategy cis,
                                     bool bApply);
  /** A graph over existing vertex pairs that establishes nothing yet. */
  ConstraintGraph2* buildGraph(const std::vector<std::pair<Point2*, Point2*> >& vPairs, ConstraintInsertionStrategy cis) {
    std::vector<std::pair<Point2*, Point2*> > v(vPairs);
    return createConstraint(v, cis, false);
  }
  /** The same with a kept direction: each pair runs from first to second. */
  ConstraintGraph2* buildGraphOriented(const std::vector<std::pair<Point2*, Point2*> >& vPairs,
                                       ConstraintInsertionStrategy cis);
  /** One segment, or the alive leaves below it; nothing without area. */
  void apply(ConstraintSegment2* pCSeg);
  /** Every alive segment until a full pass changes nothing (500 rounds at most). */
  void apply();
  /** Whether the last apply() stopped at its round or vertex limit, with
   * segments left unestablished. */
  bool wasLastApplyCut() const { return bLastApplyCut; }

  /** An alive segment joins the two vertices (either order). */
  bool isConstraint(Point2* p0, Point2* p1) {
    if (tSegments.empty()) return false;
    if (!vHashBits.empty()) {
      if (!hasBit(p0) || !hasBit(p1)) return false;
    } else {
      manageHash(nullptr);
    }
    return isConstraintByLookup(p0, p1);
  }
  /** The vertex is or was an end point of a segment. */
  bool isConstraint(Point2* pVtx) const { return tVertices.find(pVtx) != nullptr; }
  /** The alive segment over the pair, else null. */
  ConstraintSegment2* getConstraintSegment(Point2* p0, Point2* p1) const;
  /** The segment over the pair in any state, else null. */
  ConstraintSegment2* findSegment(Point2* p0, Point2* p1) const;
  /** Append in the order of the identity pairs. */
  void getAliveConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const;
  void getAliveAndDeadConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const;
  bool hasConstraints() const { return !tSegments.empty(); }
  const std::vector<ConstraintGraph2*>& getGraphs() const { return vConstraintGraphs; }
  Dt2* getDt2() const { return pDt2; }
  /** Whether the vertex filter exists (it appears from 10000 vertices on). */
  bool hasVertexFilter() const { return !vHashBits.empty(); }
  /** Bytes of the registry's own containers and segments (no graphs). */
  size_t memoryBytes() const;

private:
  static const unsigned HASH_BITS = 262144;
  static const unsigned MIN_VERTICES_FOR_FILTER = 10000;
  // Vertices come from pools of 32-byte or larger objects: the low 5 bits of
  // their addresses carry nothing.
  static unsigned vertexHash(const Point2* p) { return static_cast<unsigned>((reinterpret_cast<uintptr_t>(p) >> 5) & 0x3ffff); }
  bool hasBit(const Point2* p) const {
    const unsigned h(vertexHash(p));
    return (vHashBits[h >> 6] >> (h & 63)) & 1u;
  }
  void setBit(const Point2* p) {
    const unsigned h(vertexHash(p));
    vHashBits[h >> 6] |= uint64_t(1) << (h & 63);
  }
  void manageHash(ConstraintSegment2* pCSeg);
  bool isConstraintByLookup(Point2* p0, Point2* p1) const;
  ConstraintSegment2* newSegment(Point2* p0, Point2* p1, ConstraintInsertionStrategy cis);
  void sortedSegments(bool bAliveOnly, std::vector<ConstraintSegment2*>& vOut) const;
  ConstraintGraph2* buildGraphOriented(const std::vector<std::pair<Point2*, Point2*> >& vPairs,
                                       ConstraintInsertionStrategy cis, const char* tag, const char* message);
  ConstraintGraph2* applyRoots(ConstraintGraph2* pCG);

  FlatTable<ConstraintSegment2*, std::pair<Point2*, Point2*>, SegmentByPairOps> tSegments; // alive and dead
  FlatTable<Point2*, Point2*, VertexSetOps> tVertices; // all end points
  Dt2* pDt2;
  std::vector<ConstraintGraph2*> vConstraintGraphs;
  std::vector<uint64_t> vHashBits; // empty, or HASH_BITS bits
  // Segments live in blocks of SEGMENTS_PER_BLOCK: no per-object allocation.
  static const size_t SEGMENTS_PER_BLOCK = 1024;
  std::vector<ConstraintSegment2*> vBlocks;
  size_t numInLastBlock;
  bool bLastApplyCut;
};

} // namespace KIRO_VASK2D
