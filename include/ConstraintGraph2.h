#pragma once
#include "Color.h"
#include "ConstraintSegment2.h"
#include "Point2.h"
#include "Vask2DApi.h"
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

namespace KIRO_VASK2D {

class Dt2;
class KiroTest;
class Visualizer2;
struct GraphTables;

/** The constraint segments entered in one call, in the order the user sees
 * them. It knows whether they form one closed polygon (then they are kept
 * counter-clockwise from the leftmost, lowest vertex) and, for every segment
 * and every descendant, whether the graph's direction runs against the
 * segment's pointer order. It keeps the roots and walks down to the alive
 * leaves on demand, so it survives any later splitting.
 *
 * Made and owned by the triangulation's constraint registry. */
class VASK2D_API ConstraintGraph2 {
public:
  /** Unoriented input: a polygon is oriented counter-clockwise, anything
   * else has no direction. Segments with equal end points are dropped from
   * vCSeg (in place) with a warning. */
  ConstraintGraph2(Dt2* pDt2, std::vector<ConstraintSegment2*>& vCSeg, ConstraintInsertionStrategy cis);
  /** Oriented input: mPPReverse holds, for each (getSrc(), getTrg()) pair,
   * whether the user's direction runs from getTrg() to getSrc(). */
  ConstraintGraph2(Dt2* pDt2, std::vector<ConstraintSegment2*>& vCSeg,
                   std::map<std::pair<Point2*, Point2*>, bool> mPPReverse, ConstraintInsertionStrategy cis);
  ~ConstraintGraph2();
  ConstraintGraph2(const ConstraintGraph2&) = delete;
  ConstraintGraph2& operator=(const ConstraintGraph2&) = delete;

  bool isPolygon() const { return bIsPolygon; }
  bool isOriented() const { return bIsOriented; }
  ConstraintInsertionStrategy getInsertionStrategy() const { return cis; }
  /** Whether the graph runs from getTrg() to getSrc() of pCSeg; throws for a
   * segment that is neither a root of this graph nor a descendant of one. */
  bool isReverse(ConstraintSegment2* pCSeg) const;
  /** An alive segment of this graph joins the two vertices (either order). */
  bool isConstraint(Point2* p0, Point2* p1) const;
  bool isConstraint(ConstraintSegment2* pCSeg) const;

  /** The roots: in input (or polygon) order without duplicates, else sorted
   * and unique. */
  void getOriginalConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const;
  /** All alive leaves, sorted by identity pair and unique (not chain order). */
  void getChildConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const;
  /** The children of a dead pCSeg in this graph's direction: pChild0 touches
   * its start, pChild1 its end. Both null for an alive segment. */
  void getDirectChildren(ConstraintSegment2* pCSeg, ConstraintSegment2*& pChild0,
                         ConstraintSegment2*& pChild1) const;
  /** Start and end of every alive leaf in chain order and graph direction:
   * a list of pairs, so an inner vertex of a chain appears twice. */
  void getPolygonVertices(std::vector<Point2*>& vOut) const;
  /** Splits alive segments that are not Delaunay edges (their opposite
   * corner lies inside the other triangle's circle) until all are, near
   * corners onto those corners. Segments shorter than minLength stay as they
   * are; true when none had to. The splits are bounded (4096, or the
   * vertices plus 16 per segment): segments nearly touching along a long
   * stretch would need more pieces than memory holds, so past the bound it
   * warns and returns false. */
  bool makeDelaunay(double minLength);
  /** Draws every pair of getPolygonVertices as a red segment into a new
   * PostScript file. */
  void show(const char* filename) const;
  void show(Visualizer2* pVis, const Color& color) const;

  // Used by the constraint code of the triangulation
  Dt2* getDt2() const { return pDt2; }
  /** The alive leaves in the order and direction of the graph (cleared first). */
  void getAliveConstraintChain(std::vector<ConstraintSegment2*>& vOut) const;
  /** Called once per owner after pParentCSeg was split. */
  void updateSplittedConstraintSegment(ConstraintSegment2* pParentCSeg, bool bUpdateMgr);
  /** How often pVtx has divided a segment of this graph. */
  unsigned getSplitPointCount(Point2* pVtx) const;
  /** pCSeg is a root or a descendant of one. */
  bool hasEntry(const ConstraintSegment2* pCSeg) const;
  /** Bytes of this graph: its roots and tables, not the segments (the
   * triangulation owns those); the split-point nodes are estimated. */
  size_t memoryBytes() const;

private:
  void commonOpening(std::vector<ConstraintSegment2*>& vCSeg);
  void setDirectionsRecursive(const std::vector<ConstraintSegment2*>& vCSeg);
  bool checkAndSortPolygon(const std::vector<ConstraintSegment2*>& vCSeg);
  void setReverse(ConstraintSegment2* pCSeg, bool bReverse);
  void checkPolygonChain(const std::vector<ConstraintSegment2*>& vChain) const;

  Dt2* pDt2;
  KiroTest* pKiroPredicates;
  ConstraintInsertionStrategy cis;
  std::vector<ConstraintSegment2*> vCSegParents;
  bool bIsPolygon;
  bool bIsOriented;
  bool bUserDirections; // the flags are the user's (oriented input), not a tour's
  GraphTables* pTables; // direction flags of roots and descendants, split-point counts
};

} // namespace KIRO_VASK2D
