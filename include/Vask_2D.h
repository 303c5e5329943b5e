// The one include a user of Vask2D needs: it brings every public header.
#pragma once
#include "Vask2DApi.h"
#include "VaskException.h"
#include "VaskVersion.h"
#include "MsgBase.h"
#include "Vector2.h"
#include "Point2.h"
#include "Triangle2.h"
#include "Segment2.h"
#include "Edge2.h"
#include "Circle2.h"
#include "Bbox2.h"
#include "VertexPair2.h"
#include "TriangleAroundVertexIterator.h"
#include "Predicates2.h"
#include "freeFunctions.h"
#include "Color.h"
#include "Label.h"
#include "Visualizer2.h"
#include "SegmentChecker.h"
#include "ConstraintSegment2.h"
#include "ConstraintGraph2.h"
#include "UserPredicateT.h"
#include "Zone2.h"
#include <vector>

namespace KIRO_VASK2D {

/** A Delaunay triangulation, exact for all finite double coordinates.
 *
 * Points go in one at a time, as a vector (with or without handles) or as an
 * array of x y pairs. A Point2* handle stays valid as long as this object; a
 * Triangle2* only until the next change of the mesh. Equal points share the
 * handle of the first one. A point with a NaN or infinite coordinate is
 * refused with a warning and gets a null handle.
 *
 * Without three non-collinear points the triangulation has no triangle: the
 * points wait until a point off their line arrives. Not for use from two
 * threads at once; worker threads exist only inside a batch insertion. */
class VASK2D_API Vask_2D {
public:
  explicit Vask_2D(unsigned int numPoints = 3);
  ~Vask_2D();
  Vask_2D(const Vask_2D&) = delete;
  Vask_2D& operator=(const Vask_2D&) = delete;

  // Insertion
  Point2* insert(const Point2& p);
  void insert(const std::vector<Point2>& vInputPoints);
  void insert(const std::vector<Point2>& vInputPoints, std::vector<Point2*>& vHandles);
  void insert(int numPoints, double* aCoordinates, Point2** aHandles);

  // Removal
  /** Takes the vertex out; its handle must not be used afterwards, every
   * other handle stays valid. A null pointer or a pointer that is not a
   * vertex of this triangulation (already removed, or another
   * triangulation's) is refused with a warning and changes nothing. */
  void remove(Point2* pVtx);

  // Constraints
  /** Makes the segments edges of the mesh and returns their graph, owned by
   * this triangulation. CIS_CONSTRAINED_DELAUNAY forces each segment in as
   * it stands (divided only at crossings with other constraints and at
   * vertices exactly on it); CIS_CONFORMING_DELAUNAY divides it until its
   * pieces are Delaunay edges, which applyConstraintsAndZones completes.
   * With bOrientedSegments each segment keeps its direction in the graph.
   * Segments apply at once when the mesh has area, otherwise later by
   * applyConstraintsAndZones. An empty vector gives null with a warning; a
   * segment with a NaN or infinite end point is skipped with a warning. */
  ConstraintGraph2* createConstraint(std::vector<Segment2>& vSegments, ConstraintInsertionStrategy cis,
                                     bool bOrientedSegments = false);
  /** Establishes every constraint that still waits: those created before
   * the mesh had area, and the pieces of conforming ones. */
  void applyConstraintsAndZones();
  /** Whether an alive constraint segment joins the two vertices. */
  bool isConstraint(Point2* p0, Point2* p1) const;
  /** Whether the vertex is or was an end point of a constraint segment. */
  bool isConstraint(Point2* pVtx) const;
  /** Whether the edge of pT opposite corner ith is a constraint edge. */
  bool isConstraint(Triangle2* pT, int ith) const;
  /** The alive segment between the two vertices, or null. */
  ConstraintSegment2* getConstraintSegment(Point2* p0, Point2* p1) const;
  void getAliveConstraintSegments(std::vector<ConstraintSegment2*>& vAliveConstraintSegments) const;
  void getAliveAndDeadConstraintSegments(std::vector<ConstraintSegment2*>& vAllConstraintSegments) const;

  // Zones: regions kept as recipes (fences and start points), so that they
  // keep their meaning through later insertions, splits and removals. The
  // triangulation owns them. Every creator refuses bad input with a warning
  // and returns null; with bVerbose it then says so once more.

  /** ZL_GLOBAL with a null graph: the whole mesh. ZL_INSIDE (ZL_OUTSIDE):
   * the triangles left (right) of an oriented graph, flooded up to the
   * graph's edges. ZL_BOUNDED: as ZL_INSIDE. */
  Zone2* createZone(ConstraintGraph2* pConstraintGraph, ZoneLocation zoneLoc, bool bVerbose = true);
  /** ZL_GROW: the triangles reachable from startPoint without crossing an
   * edge of the graph. */
  Zone2* createZone(ConstraintGraph2* pConstraintGraph, ZoneLocation zoneLoc, const Point2& startPoint,
                    bool bVerbose = true);
  /** ZL_GROW fenced by several graphs, oriented or not. */
  Zone2* createZone(const std::vector<ConstraintGraph2*>& vConstraintGraphs, ZoneLocation zoneLoc,
                    const Point2& startPoint, bool bVerbose = true);
  /** A zone that reproduces the given triangles and, like every zone, keeps
   * that region through later changes: their border becomes a constraint
   * graph and each edge-connected component gets a start point. */
  Zone2* createZone(std::vector<Triangle2*>& vTriangles, bool bVerbose = true);
  /** Deletes a zone of this triangulation. An unknown pointer, and a zone
   * that a result zone still reads, are refused with a warning. */
  void deleteZone(Zone2* pZone);

  // Counts and settings
  unsigned int numberOfPoints() const;
  unsigned int numberOfTriangles() const;
  void getTrianglePointers(std::vector<Triangle2*>& vAllTriangles) const;
  void getVertexPointers(std::vector<Point2*>& vAllPoints) const;
  void setFastMode(bool bFast);
  /** Worker threads of bulk insertion: numCPU >= 1 sets the count, 0 the
   * number of processors the system reports (at least 1), a negative value
   * 1. Returns the count in force. With more than one, batches of 1000 points
   * or more are inserted by that many threads (at most one per chunk of
   * work), all joined before the call returns. */
  int setNumCPU(int numCPU);
  /** The same as setNumCPU(0): bulk insertion uses every processor. */
  void enableMultithreading();

  // Queries and validation
  bool hasArea() const;
  bool is2D() const;
  Triangle2* locate(const Point2& p);
  Triangle2* getAdjacentTriangle(Point2* p0, Point2* p1) const;
  void getConvexHull(bool bAllVertices, std::vector<Point2*>& vConvexHullPoints);
  void getIncidentTriangles(Point2* pVtx, std::vector<Triangle2*>& vIncT) const;
  void getIncidentVertices(Point2* pVtx, std::vector<Point2*>& vIncV) const;
  Bbox2 computeBoundingBox() const;
  bool checkValidity(bool bCheckEmptyCircle, char const* name);
  void statistics(char const* name) const;
  double measureTriangulationTime(std::vector<Point2>& vPoints) const;
  Orientation2 getOrientation(const Point2& p0, const Point2& p1, const Point2& p2) const;

  // Drawing
  /** Writes the triangulation to a one-page PostScript file: its extent
   * fills a square of 480 points, every edge is drawn once. */
  void show(char const* filename, bool bWithConstraints);
  /** Adds the triangulation to a visualiser that stays open, so that the
   * caller can draw more on top and then call writeFile. */
  void show(Visualizer2* pVis, bool bWithConstraints);

  // Messages, progress and developer access
  void subscribe(MsgType msgType, MsgBase* pReceiver);
  void unsubscribe(MsgType msgType, MsgBase* pReceiver);
  void setName(char const* name);
  char const* getName() const;
  void setDev(char const* name, int iVal, double dVal);
  void internal(int a, int b, char const* text);
  Dt2* getImpl();

protected:
  void initVask(unsigned int numPoints);

private:
  Dt2* pImpl;
};

} // namespace KIRO_VASK2D
