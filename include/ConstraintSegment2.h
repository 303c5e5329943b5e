#pragma once
#include "Point2.h"
#include "Vask2DApi.h"
#include <cstdint>
#include <iosfwd>
#include <vector>

namespace KIRO_VASK2D {

class ConstraintGraph2;
class ConstraintMgr;
class Dt2;

/** How a constraint is put into the mesh. */
enum ConstraintInsertionStrategy {
  /** Split until every piece is a Delaunay edge by itself; no edge is forced. */
  CIS_CONFORMING_DELAUNAY = 0,
  /** Forced into the mesh as it stands; divided only at constraint crossings
   * and at vertices exactly on it. */
  CIS_CONSTRAINED_DELAUNAY = 1
};

/** One straight constraint edge between two vertices of a triangulation.
 *
 * A segment is never shortened nor deleted while its triangulation lives.
 * When it must be divided it dies and gets exactly two children, from its
 * end points to the split vertex, so every segment a user entered is the root
 * of a binary tree whose alive leaves are the constraint edges of the mesh.
 * Children are shared: the triangulation holds one segment per vertex pair,
 * so a child may exist before the split that asks for it, and may already be
 * dead. Every walker descends into dead children.
 *
 * getSrc() < getTrg() as pointer values: the direction of a segment means
 * nothing; the direction a user gave is kept by the owning graph.
 *
 * Memory belongs to the triangulation; nobody else deletes a segment. */
class VASK2D_API ConstraintSegment2 {
public:
  ConstraintSegment2(const ConstraintSegment2&) = delete;
  ConstraintSegment2& operator=(const ConstraintSegment2&) = delete;
  ~ConstraintSegment2();

  Point2* getSrc() const { return p0; }
  Point2* getTrg() const { return p1; }
  /** True for a segment that is (or is to become) an edge of the mesh: not
   * suspended and never split. */
  bool isAlive() const { return bAlive && aChildren[0] == nullptr; }
  /** Order by the identity pair (getSrc(), getTrg()) as pointer values. */
  bool operator<(const ConstraintSegment2& other) const {
    return p0 < other.p0 || (p0 == other.p0 && p1 < other.p1);
  }
  ConstraintInsertionStrategy getCIS() const { return static_cast<ConstraintInsertionStrategy>(cis); }

  /** Splits the tree at the existing vertex pSplit without touching the
   * mesh: the two children (getSrc(), pSplit) and (getTrg(), pSplit) are
   * found or made, inherit every owner, and each owning graph records their
   * direction. Throws VaskException, changing nothing, for a null pSplit, an
   * end point, a segment that is not alive (dead or suspended) or one that
   * no graph owns yet. Returns true. */
  bool split_combinatorialOnly(Point2* pSplit);

  /** Splits with geometry: the point goes into the mesh (snapped to a
   * vertex already there), the segment dies with two children that are
   * established at once, and flips restore the empty-circle property around
   * the vertex. A position that snaps to an end point, or whose foot on the
   * segment's line is not strictly between the ends, warns and returns null
   * with nothing changed. Throws VaskException for a segment that is not
   * alive or has no owner. */
  Point2* insertAndSplit(const Point2& splitPos);
  /** insertAndSplit, then the mesher's inner vertices too close to the new
   * vertex leave again. False when the split didn't happen. */
  bool splitAndRemovePrev(const Point2& splitPos);

  /** Appends every alive descendant, left to right in child order (child 0
   * touches getSrc()). This is not a chain in the user's direction; the
   * graph gives that. Throws on a segment without children. */
  void getChildrenRec(std::vector<ConstraintSegment2*>& vOut) const;
  /** The two direct children and their common vertex. On an alive segment
   * it warns and leaves the outputs unchanged. */
  void getChildrenAndSplitPoint(ConstraintSegment2*& pChild0, ConstraintSegment2*& pChild1,
                                Point2*& pSplitPoint) const;

  unsigned int getNumberOfOwners() const;
  /** A value kept for mesh generation; the largest double until set. */
  void setAdjacentArea(double area) { adjacentArea = area; }
  double getAdjacentArea() const { return adjacentArea; }

  /** The owning graphs in pointer order (appended to vOut). */
  void getOwners(std::vector<ConstraintGraph2*>& vOut) const;
  /** Write the alive flag and nothing else, for the triangulation's own
   * constraint code: suspension while the mesh changes under the segment
   * (a suspended segment is no constraint and can't be split), and its end. */
  void setAlive() { bAlive = true; }
  void setDead() { bAlive = false; }
  /** Number of the segment in the order of construction (debug output only). */
  uint32_t getLabel() const { return label; }

private:
  friend class ConstraintMgr;
  friend class ConstraintGraph2;
  friend class Dt2;
  friend VASK2D_API std::ostream& operator<<(std::ostream& stream, const ConstraintSegment2& cseg);

  ConstraintSegment2(Point2* p0_, Point2* p1_, ConstraintInsertionStrategy cis_);
  /** Adds pOwner here and, below a dead segment, to the whole subtree. */
  void addOwnerRecursive(ConstraintGraph2* pOwner);
  /** False when pOwner was there already. */
  bool addOwner(ConstraintGraph2* pOwner);
  ConstraintGraph2* getFirstOwner() const;
  bool hasOwners() const { return pOwner0 != nullptr; }
  bool hasChildren() const { return aChildren[0] != nullptr; }
  /** The user's segment this one descends from: itself for a root, the
   * root of the parent for a child made by a split (a child that existed
   * already keeps its own). Crossings are computed on root lines. */
  ConstraintSegment2* getRoot() const { return pRoot; }
  // 72 bytes on a 64-bit platform. The owner set is one inline pointer for
  // the usual single owner and a sorted heap vector from the second on; the
  // two children are inline (both null or both set).
  uint32_t label;
  uint8_t cis;
  bool bAlive;
  ConstraintGraph2* pOwner0;                      // smallest owner, or null
  std::vector<ConstraintGraph2*>* pMoreOwners;    // the others, sorted; null while there are none
  Point2* p0;
  Point2* p1;
  ConstraintSegment2* aChildren[2];
  ConstraintSegment2* pRoot;
  double adjacentArea;
};

/** One debug line: label, state, end points and length. */
VASK2D_API std::ostream& operator<<(std::ostream& stream, const ConstraintSegment2& cseg);

} // namespace KIRO_VASK2D
