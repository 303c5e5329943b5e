#pragma once
#include "Bbox2.h"
#include "Edge2.h"
#include "MsgBase.h"
#include "Point2.h"
#include "Segment2.h"
#include "Triangle2.h"
#include "Vask2DApi.h"
#include <vector>

namespace KIRO_VASK2D {

class ConstraintGraph2;
class Dt2;
class ProgressPublisher;
class UserPredicateT;
class Visualizer2;
class ZoneAlgebra;
class ZoneFlood;

/** The kind of region a zone describes. */
enum ZoneLocation {
  ZL_GLOBAL = 0,                // every triangle; no graphs
  ZL_INSIDE = 1,                // to the left of the graphs' direction
  ZL_OUTSIDE = 2,               // to the right of the graphs' direction
  ZL_GROW = 3,                  // flooded from start points up to the graphs' edges
  ZL_RESULT_UNION = 4,          // results of the set operations on two zones
  ZL_RESULT_INTERSECTION = 5,
  ZL_RESULT_DIFFERENCE = 6,
  ZL_RESULT_SYM_DIFFERENCE = 7,
  ZL_BOUNDED = 8                // as ZL_INSIDE, over a graph made of a zone's border
};

/** A region of the triangulation, kept as a recipe and not as triangles: a
 * location, the constraint graphs that fence it and, for ZL_GROW, start
 * points. Every query runs the recipe on the mesh as it stands, so a zone
 * keeps its region through later insertions, flips, splits of its fence
 * segments and removals: the fences are constraint segments, whose alive
 * leaves always stand in the mesh.
 *
 * Sides: an Edge2 of getBoundaryEdges/getBorderEdges has the zone on its
 * left (it is seen from the zone's triangle), while a Segment2 of
 * getBoundarySegments runs the other way and has the zone on its right.
 *
 * Made by Vask_2D::createZone and owned by the triangulation; every query
 * recomputes the triangles, so fetch them once when several results are
 * needed. Queries need the mesh to stay unchanged while they run. A query
 * keeps its working marks to itself: two queries on one zone share no
 * mutable state of the zone (ZL_GROW locates its seeds through the
 * triangulation, which is not for two threads at once). */
class VASK2D_API Zone2 {
public:
  /** ZL_GLOBAL, or a ZL_RESULT kind for the set operations, which set its inputs. */
  Zone2(Dt2* pDt2, ZoneLocation zoneLoc);
  /** ZL_INSIDE, ZL_OUTSIDE or ZL_BOUNDED of one oriented graph. */
  Zone2(Dt2* pDt2, ZoneLocation zoneLoc, ConstraintGraph2* pConstraintGraph);
  /** ZL_INSIDE or ZL_OUTSIDE of several oriented graphs. */
  Zone2(Dt2* pDt2, ZoneLocation zoneLoc, const std::vector<ConstraintGraph2*>& vConstraintGraphs);
  /** ZL_GROW: flooded from each start point, fenced by any of the graphs. */
  Zone2(Dt2* pDt2, const std::vector<ConstraintGraph2*>& vConstraintGraphs, ZoneLocation zoneLoc,
        std::vector<Point2>& vStartPoints);
  /** A copy has the same recipe and a progress publisher of its own. */
  Zone2(const Zone2& other);
  Zone2& operator=(const Zone2& other);
  ~Zone2();

  ZoneLocation getZoneLocation() const { return zoneLoc; }
  /** Appends the zone's triangles, each once, in no particular order.
   * Pointers are valid until the next change of the mesh. */
  void getTriangles(std::vector<Triangle2*>& vTrianglesOut) const;
  unsigned int getNumberOfTriangles() const;
  /** The corners of the zone's triangles, sorted by pointer, each once (appended). */
  void getVertices(std::vector<Point2*>& vVerticesOut) const;
  /** Sum of the triangle areas. */
  double getArea2D() const;
  /** Of the zone's vertices; an invalid box for an empty zone. */
  Bbox2 getBoundingBox() const;
  /** Every edge of a zone triangle whose neighbour is missing or outside the
   * zone, as Edge2 of the zone triangle: the zone is on its left (appended). */
  void getBoundaryEdges(std::vector<Edge2>& vEdges) const;
  /** The same as getBoundaryEdges. */
  void getBorderEdges(std::vector<Edge2>& vEdges) const;
  /** The border edges as segments from corner i+2 to corner i+1: the zone is
   * on their right (appended). */
  void getBoundarySegments(std::vector<Segment2>& vSegments) const;
  /** The only graph; null without graphs or, with a warning, with several. */
  ConstraintGraph2* getConstraintGraph() const;
  void getConstraintGraphs(std::vector<ConstraintGraph2*>& vConstraintGraphs_) const;
  size_t numberOfConstraintGraphs() const { return vConstraintGraphs.size(); }
  Dt2* getDelaunayTriangulation() const { return pDt2; }
  /** A ZL_BOUNDED zone over the border of this one (the zone itself for
   * ZL_INSIDE); null with a warning when the zone has no triangles. This
   * zone remains. */
  Zone2* convertToBoundedZone();
  void subscribe(MsgType msgType, MsgBase* pReceiver);
  void unsubscribe(MsgType msgType, MsgBase* pReceiver);
  /** Draws the zone into a new PostScript file. */
  void show(const char* filename, bool bShowFull, bool bWithConstraints) const;
  /** Draws the zone's triangles filled, then with bShowFull the whole mesh,
   * else the zone's edges (constraints thick with bWithConstraints). */
  void show(Visualizer2* pVis, bool bShowFull, bool bWithConstraints) const;
  /** Prints the number of triangles and a histogram of interior angles. */
  void statistics(const char* name) const;
  /** Draws the triangles and the alive chains of the graphs into name
   * ("debug.ps" when empty). */
  void debug(const char* name);
  /** Turns the diagonals of grid-like cells so that they rise: an inner,
   * unconstrained longest edge of a zone triangle that falls (or stands
   * vertical) is flipped when the quadrilateral around it is strictly
   * convex and its four corners are cocircular (tolerance <= 0) or its two
   * diagonals differ in length by at most tolerance relative to the longer.
   * With tolerance > 0 the mesh may stop being Delaunay: that is the
   * purpose, and nothing restores it. */
  void unifyGrid(double tolerance);

  // For the triangulation's zone code
  const std::vector<Point2>& getStartPoints() const { return vStartPoints; }
  const std::vector<Zone2*>& getInputZones() const { return vInputZones; }

private:
  friend class Dt2;        // sets the inputs of a result zone
  friend class ZoneAlgebra; // evaluates the inputs of a result zone
  void collectTriangles(std::vector<Triangle2*>& vOut, ZoneFlood* pFlood) const;
  /** collectTriangles with the caller's marks; false, with a warning under
   * tag, when the triangulation has no area. */
  bool collectMarked(const char* tag, ZoneFlood& marks, std::vector<Triangle2*>& vT) const;
  void initWorkspace(bool bInside, ZoneFlood& flood, std::vector<Triangle2*>& vWorkspace) const;
  void collectBorder(std::vector<Edge2>& vEdges) const;

  Dt2* pDt2;
  ProgressPublisher* pZoneProgress;
  ZoneLocation zoneLoc;
  std::vector<ConstraintGraph2*> vConstraintGraphs;
  std::vector<Point2> vStartPoints;
  std::vector<Zone2*> vInputZones;
};

// Set operations on zones of one triangulation. The result is a new zone of
// that triangulation which keeps the operation and its two inputs, not
// triangles: each query evaluates the inputs anew, so the result follows
// them through later changes of the mesh, and results may serve as inputs
// again. The inputs must outlive the result (deleteZone refuses to delete
// an input of a result zone). A null input or zones of two triangulations
// give null with a warning.

/** The triangles of either zone (ZL_RESULT_UNION). */
VASK2D_API Zone2* zoneUnion(Zone2* pZone0, Zone2* pZone1);
/** The triangles of both zones (ZL_RESULT_INTERSECTION). */
VASK2D_API Zone2* zoneIntersection(Zone2* pZone0, Zone2* pZone1);
/** The triangles of pZone0 that are not in pZone1 (ZL_RESULT_DIFFERENCE). */
VASK2D_API Zone2* zoneDifference(Zone2* pZone0, Zone2* pZone1);
/** The triangles of exactly one of the zones (ZL_RESULT_SYM_DIFFERENCE). */
VASK2D_API Zone2* zoneSymmetricDifference(Zone2* pZone0, Zone2* pZone1);

/** Erodes the zone from its border: a triangle at the border (a neighbour
 * missing or outside what remains) for which the predicate says true is
 * removed, which may expose further triangles, until every border triangle
 * is kept. What remains becomes a new ZL_GROW zone whose fence, a new
 * constraint graph, runs along the new border; null when nothing remains,
 * and with a warning when the zone or the predicate is null or the zone is
 * empty. The input zone stays. Only border triangles are asked about, and
 * one may be asked again when a neighbour goes. */
VASK2D_API Zone2* peelOffIf(Zone2* pZone, UserPredicateT* pPredicate, bool bVerbose);

} // namespace KIRO_VASK2D
