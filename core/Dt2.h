#pragma once
#include "Bbox2.h"
#include "ConstraintSegment2.h"
#include "Edge2.h"
#include "Segment2.h"
#include "MsgBase.h"
#include "Point2.h"
#include "Triangle2.h"
#include "Zone2.h"
#include "core/EdgeLegality.h"
#include "core/InserterMT.h"
#include "core/MeshRewiring.h"
#include "core/PoolIndex.h"
#include "core/VertexVault.h"
#include "kernel/KiroTest.h"
#include "kiro_tools/HC2.h"
#include "kiro_tools/SimplePool.h"
#include "support/ProgressPublisher.h"
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace KIRO_VASK2D {

class Visualizer2;
class ConstraintMgr;
class ConstraintGraph2;
class ConstraintSegment2;
class ZoneFlood;

/** The Delaunay triangulation behind Vask_2D. It owns every vertex and
 * triangle (pools), the vertex vault, the exact predicates and the Hilbert
 * key. There is no ghost vertex and no permanent super-triangle: the convex
 * hull is the set of edges whose neighbour is null.
 *
 * Invariants between public calls:
 * - corners stand counter-clockwise; neighbour i lies across the edge from
 *   corner i+1 to corner i+2; links are written in pairs;
 * - every vertex of the mesh points at one of its triangles;
 * - vCheckT is empty; every entry it ever holds has the new vertex at
 *   corner 0, and its edge 0 is the edge still to be tested;
 * - numberOfTriangles() = numAllT - vDeadT.size(), where numAllT counts
 *   every triangle ever taken from the pool. The pool itself is the list of
 *   all triangles: its blocks hold them in order of allocation, and a dead
 *   one has no corners. (No separate vector of all triangles: at two per
 *   vertex it would cost 16 bytes per vertex.) */
/** Where a walk ended (locateConflictTriangle). A hull result is the index
 * of the hull edge of the final triangle that p sees or lies on. */
enum LocateResult {
  LR_INSIDE = -1,   // p lies in the triangle: strictly inside, or on the inner edge edgeIdx
  LR_HULL_EDGE0 = 0, // p lies beyond or on hull edge 0, 1 or 2 of the triangle
  LR_HULL_EDGE1 = 1,
  LR_HULL_EDGE2 = 2,
  LR_VERTEX = 4     // p equals a corner of the triangle
};
inline bool isHullResult(LocateResult r) { return r >= LR_HULL_EDGE0 && r <= LR_HULL_EDGE2; }

class Dt2 {
public:
  explicit Dt2(unsigned numPoints);
  ~Dt2();
  Dt2(const Dt2&) = delete;
  Dt2& operator=(const Dt2&) = delete;

  // -------------------------------------------------------------------------
  // Frame (Dt2.cpp): the triangle supply, elementary rewiring and the one
  // edge-legality decision
  Triangle2* createTriangle(Point2* p0, Point2* p1, Point2* p2);
  void flip(Triangle2* pT, int ith) { flipEdge(pT, ith); }
  void linkPair(Triangle2* pT, int i, Triangle2* pN, int j) { KIRO_VASK2D::linkPair(pT, i, pN, j); }
  bool canBeFlipped(Triangle2* pT, int ith);
  /** Whether edge i of pT must flip: see mustFlipEdge. Removal and
   * bfsFlipIncident pass bHonourFastMode false: they are always exact. */
  bool mustFlip(Triangle2* pT, int i, bool bHonourFastMode) {
    return mustFlipEdge(kiroTest, bFastMode && bHonourFastMode, pT, i,
                        [this](const Triangle2* pE, int k) { return isConstraintEdge(pE, k); });
  }
  /** Whether edge i of pT carries an alive constraint segment. Without a
   * constraint registry no edge does, at the cost of one compare. Asked on
   * the calling thread only: the workers of a batch don't ask. */
  bool isConstraintEdge(const Triangle2* pT, int i) const {
    return pConstraintMgr != nullptr && isConstraintEdgeInMgr(pT, i);
  }
  /** Called where the new vertex pVtx splits edge (p0, p1) of the mesh: an
   * alive constraint segment over that edge is split at pVtx too. */
  void onEdgeSplit(Point2* p0, Point2* p1, Point2* pVtx) {
    if (pConstraintMgr != nullptr) splitConstraintAt(p0, p1, pVtx);
  }
  /** The vertex is or was an end point of a constraint segment. */
  bool isConstraintVertex(Point2* pVtx) const;

  /** The constraint registry, made on first use (Dt2_constraints.cpp). */
  ConstraintMgr* getConstraintMgr();
  bool hasConstraintMgr() const { return pConstraintMgr != nullptr; }

  // -------------------------------------------------------------------------
  // Constraints (Dt2_constraints.cpp: creation, application, queries;
  // Dt2_enforcement.cpp: the two roads that make a segment an edge)

  /** Segments by coordinates; null with a warning for an empty vector. A
   * segment with a NaN or infinite end point is skipped with a warning. */
  ConstraintGraph2* createConstraint(std::vector<Segment2>& vSegments, ConstraintInsertionStrategy cis,
                                     bool bOrientedSegments);
  /** Segments over existing vertices, in the given order and direction. */
  ConstraintGraph2* createConstraint(std::vector<Edge2>& vEdges, ConstraintInsertionStrategy cis);
  void applyConstraintsAndZones();
  bool isConstraint(Point2* p0, Point2* p1) const;
  bool isConstraint(Point2* pVtx) const { return isConstraintVertex(pVtx); }
  bool isConstraint(Triangle2* pT, int ith) const { return isConstraintEdge(pT, ith); }
  ConstraintSegment2* getConstraintSegment(Point2* p0, Point2* p1) const;
  void getAliveConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const;
  void getAliveAndDeadConstraintSegments(std::vector<ConstraintSegment2*>& vOut) const;
  /** Counts the alive segments that stand (or not) as edges; used by
   * checkValidity, which also draws the missing ones. */
  void countConstraintEdges(size_t& numContained, std::vector<ConstraintSegment2*>& vMissing) const;
  /** Whether an edge joins the two vertices; no allocation. */
  bool isEdgeOfMesh(Point2* p0, Point2* p1) const;

  /** The constrained road: pInitialCSeg and every leaf it or a crossing
   * produces stand in the mesh when it returns. */
  void newCDT_applyOneCS(ConstraintSegment2* pInitialCSeg);
  /** One step of the conforming road: finds the edge, or splits once. */
  void insertSegmentConformingDelaunay(ConstraintSegment2* pCSeg);
  /** Suspends pCSeg and restores the empty-circle property across its edge
   * as far as other constraints permit. */
  void killAndUnestablishConstraintSegment(ConstraintSegment2* pCSeg);
  /** The edge (p0, p1), if it stands, is no constraint any more: it and
   * every edge its flips create become locally Delaunay. */
  void sweepFormerConstraintEdge(Point2* p0, Point2* p1);

  // -------------------------------------------------------------------------
  // Zones (zones/Dt2_zones.cpp). Every creator returns null with a warning
  // for input it can't turn into a zone; a zone made here belongs to this
  // triangulation until deleteZone or the destructor.

  /** ZL_GLOBAL without a graph; ZL_INSIDE, ZL_OUTSIDE, ZL_BOUNDED with an
   * oriented graph of this triangulation. */
  Zone2* createZone(ConstraintGraph2* pConstraintGraph, ZoneLocation zoneLoc);
  /** ZL_GROW from one start point, fenced by the graphs (oriented or not). */
  Zone2* createZone(const std::vector<ConstraintGraph2*>& vConstraintGraphs, ZoneLocation zoneLoc,
                    const Point2& startPoint);
  /** ZL_INSIDE or ZL_OUTSIDE of several oriented graphs. */
  Zone2* createZone(const std::vector<ConstraintGraph2*>& vConstraintGraphs, ZoneLocation zoneLoc);
  /** ZL_BOUNDED over edges that have the region on their left. */
  Zone2* createZone(std::vector<Edge2>& vEdges, ZoneLocation zoneLoc);
  /** A zone that reproduces the given triangles through later changes: their
   * border becomes a constraint graph, one start point per component. */
  Zone2* createZone(std::vector<Triangle2*>& vTriangles);
  /** A result zone of the set operations over the two inputs (which the
   * caller has checked: not null, of this triangulation). */
  Zone2* createResultZone(ZoneLocation zoneLoc, Zone2* pZone0, Zone2* pZone1);
  /** Deletes a zone of this triangulation; refuses an unknown zone and one
   * that a result zone still reads. */
  void deleteZone(Zone2* pZone);
  bool hasZone(const Zone2* pZone) const { return sZones.count(const_cast<Zone2*>(pZone)) != 0; }
  size_t numberOfZones() const { return sZones.size(); }
  /** Appends the triangles reachable from each start point without
   * crossing an alive segment of the graphs; each triangle once. */
  void growZoneArea(const std::vector<ConstraintGraph2*>& vConstraintGraphs, const std::vector<Point2>& vStartPoints,
                    std::vector<Triangle2*>& vOut);
  /** The same with the caller's flood, whose marks then tell membership. */
  void growZoneArea(const std::vector<ConstraintGraph2*>& vConstraintGraphs, const std::vector<Point2>& vStartPoints,
                    std::vector<Triangle2*>& vOut, ZoneFlood* pFlood);
  void growZoneArea(const std::vector<ConstraintGraph2*>& vConstraintGraphs, const Point2& startPoint,
                    std::vector<Triangle2*>& vOut) {
    growZoneArea(vConstraintGraphs, std::vector<Point2>(1, startPoint), vOut);
  }

  // -------------------------------------------------------------------------
  // Single-point insertion (Dt2_insert.cpp)
  /** pNear, if given, is a vertex of the mesh near p where the walk starts
   * (a segment's end for a split on it). */
  Point2* insert(const Point2& p, const Point2* pNear = nullptr);
  Triangle2* insertVertex(Point2* pVtx, Triangle2* pStart);
  /** The second half of insertVertex: pT, state and edgeIdx come from
   * locateConflictTriangle for pVtx's coordinates. */
  Triangle2* insertLocated(Point2* pVtx, Triangle2* pT, LocateResult state, int edgeIdx);
  LocateResult locateConflictTriangle(const Point2& p, Triangle2*& pT, int& edgeIdx);
  /** The straight walk from corner 0 of pT, then the classification of
   * locateConflictTriangle: for walks that took too many steps. */
  LocateResult locateStraight(const Point2& p, Triangle2*& pT, int& edgeIdx);
  /** A visibility walk longer than this hands over to the straight walk; in
   * a Delaunay mesh walks this long are rare and the straight walk is no
   * slower there. */
  static const unsigned MAX_VISIBILITY_STEPS = 2000;
  Triangle2* triangulateCoplanarOrDuplicate(Point2* pVtx, Triangle2* pT, LocateResult state);
  Triangle2* initVCheckT13(Triangle2* pT, Point2* pVtx);
  Triangle2* initVCheckT24(Triangle2* pT, Point2* pVtx, int ith);
  Triangle2* insertVertexCH(Point2* pVtx, Triangle2* pT, int ith);
  void bfsFlipIncident(Point2* pVtx);
  /** Flips (exactly, constraint edges exempt) until every listed edge and
   * every edge a flip creates is locally Delaunay; empties vWork. */
  void flipUntilDelaunay(std::vector<std::pair<Triangle2*, int> >& vWork);
  bool createFullDimTriangle(size_t numPreExistingVtx);

  // -------------------------------------------------------------------------
  // Batch insertion (Dt2_batch.cpp)
  void insertVector(const std::vector<Point2>& vInputPoints, std::vector<Point2*>* pVHandles);
  void insert(int numPoints, double* aCoordinates, Point2** aHandles);
  void insertToVVault(const std::vector<Point2>& vInputPoints, std::vector<Point2*>* pVHandles);
  void triangulateRange(VtxRecIt first, VtxRecIt last, Triangle2* pStart);
  void triangulateRec(VtxRecIt first, VtxRecIt last, Triangle2* pLast);
  void getFreshTriangles(unsigned num, std::vector<Triangle2*>& vFreshTriangles);
  void returnFreshTriangles(std::vector<Triangle2*>& vTriangles);
  /** Figures of the last range that went to the multi-threaded inserter. */
  const InserterMTStats& getLastMTStats() const { return lastMTStats; }
  /** Ranges that went to the multi-threaded inserter so far. */
  size_t getNumThreadedRanges() const { return numThreadedRanges; }

  // -------------------------------------------------------------------------
  // Vertex removal (Dt2_removal.cpp)

  /** Takes a vertex out of the triangulation by flips only: no triangle is
   * allocated. Refuses (warning, no change) a null pointer and a vertex that
   * is not an active vertex of this triangulation (removed before, a
   * duplicate's handle, another triangulation's vertex). Removing the last
   * triangle's corner returns to the collinear state; in the collinear
   * state the point just leaves the vault. Every other handle stays valid. */
  void remove(Point2* pVtx);
  /** Removal of a hull vertex from the mesh; the fake box corners leave this
   * way, without a vault record (bUpdateVault false). */
  void removeHullVertex(Point2* pVtx, bool bUpdateVault);
  /** Lowers the degree of pVtx by one when the ear (a, b, q) at pT can be cut
   * off: see the contract of cutEar. Returns the triangle that continues
   * the fan of pVtx, or null when there is no ear at pT. */
  Triangle2* removeEar(Point2* pVtx, Triangle2* pT);
  /** Position of pVtx among the vertices this triangulation's pool handed
   * out; false for any other pointer, which is never dereferenced. */
  bool getVertexPoolIndex(const Point2* pVtx, size_t& index) const;
  /** The vertices taken out by remove, in order of removal. */
  const std::vector<Point2*>& getRemovedVertices() const { return vRemovedVertices; }

  // -------------------------------------------------------------------------
  // Queries and validation (Dt2_queries.cpp)
  Triangle2* locate(const Point2& p);
  Triangle2* getAdjacentTriangle(Point2* p0, Point2* p1) const;
  void getIncidentTriangles(Point2* pVtx, std::vector<Triangle2*>& vIncT) const;
  void getIncidentVertices(Point2* pVtx, std::vector<Point2*>& vIncV) const;
  void getConvexHull(bool bAllVertices, std::vector<Point2*>& vConvexHullPoints);
  void getConvexHullEdges(std::vector<std::pair<Triangle2*, int> >& vConvexHull) const;
  bool isAdjacent(Point2* p0, Point2* p1) const;
  Point2* findVertex(const Point2& p) const { return vertexVault.findActive(p); }
  Triangle2* getOneTriangle() const { return vertexVault.getOneValidTriangle(); }
  bool isDegenerate(Triangle2* pT);
  Bbox2 computeBoundingBox() const { return vertexVault.getBbox(); }
  bool checkValidity(bool bCheckEmptyCircle, const std::string& name);
  /** Prints the line of alive, contained and missing constraint segments
   * and draws the missing ones. */
  void checkConstraintEdges(const std::string& name) const;
  void statistics(const std::string& name) const;
  double measureTriangulationTime(const std::vector<Point2>& vPoints) const;
  /** Writes the whole triangulation to a one-page PostScript file. */
  void show(const char* filename, bool bWithConstraints) const;
  /** Adds every edge once to pVis, without closing it; without area it
   * logs a warning and adds nothing. */
  void show(Visualizer2* pVis, bool bWithConstraints) const;

  // -------------------------------------------------------------------------
  // Counts and settings (Dt2.cpp)
  bool hasArea() const { return *pBFullDimensional; }
  unsigned numberOfTriangles() const;
  unsigned numberOfPoints() const { return vertexVault.numberOfPoints(); }
  void getTrianglePointers(std::vector<Triangle2*>& vAllTriangles) const;
  void getVertexPointers(std::vector<Point2*>& vAllPoints) const { vertexVault.getVertices(vAllPoints); }
  void setFastMode(bool bFast) { bFastMode = bFast; }
  bool isFastMode() const { return bFastMode; }
  int setNumCPU(int numCPU_);
  int getNumCPU() const { return numCPU; }
  void setName(const std::string& name_) { name = name_; }
  const std::string& getName() const { return name; }
  void setDev(const std::string& key, int iVal, double dVal) { mDevValues[key] = std::make_pair(iVal, dVal); }
  bool getDev(const std::string& key, int& iVal, double& dVal) const;
  void subscribe(MsgType msgType, MsgBase* pReceiver) { progress.subscribe(msgType, pReceiver); }
  ProgressPublisher& getProgress() { return progress; }
  void unsubscribe(MsgType msgType, MsgBase* pReceiver) { progress.unsubscribe(msgType, pReceiver); }

  // Access for the vault, the chunks and tests
  KiroTest& getKiroTest() { return kiroTest; }
  /** The triangles in their blocks, dead ones included (no corners). */
  const SimplePool<Triangle2>& getTrianglePool() const { return trianglePool; }
  VertexVault& getVertexVault() { return vertexVault; }
  const Bbox2& getBbox() const { return bbox; }
  Point2* newVertex() { return vertexPool.get(); }
  /** Vertices ever taken from the vertex pool: alive, removed, or waiting
   * for reuse after a duplicate. */
  size_t numberOfVertexSlots() const;
  /** Hilbert index of a position; positions outside the curve's box fall
   * into its border cells, so any point gets a valid (maybe poor) index. */
  uint32_t getHilbertIndex(double x, double y) const { return hc2.getKey(x, y); }

private:
  // Frame
  bool addToBox(const Point2& p);
  void growBox();
  void resetHilbertKey();
  void resetHilbertKey(const Bbox2& box);
  void refitHilbertKey();
  // Insertion
  Triangle2* walkStart(const Point2& p, uint32_t idx);
  bool cachedHullEdge(Point2* pPivot, bool bLeft, Triangle2*& pT, int& cross) const;
  void clearHullCache();
  LocateResult hullStep(const Point2& p, Triangle2*& pT, int e);
  void walkHull(Triangle2* pT, int ith, const Point2* p, bool bLeft, std::vector<std::pair<Triangle2*, int> >& vOut);
  // Removal
  void flipSweep(std::vector<Triangle2*>& vStart);
  bool isVertexOfThis(Point2* pVtx, size_t& poolIndex) const;
  void removeInnerVertex(Point2* pVtx);
  void mergeDegree3(Point2* pVtx, Triangle2* pT);
  bool collectUmbrella(Point2* pVtx);
  bool isUmbrellaTriangle(const Triangle2* pT) const;
  void removalFlipSweep();
  void sweepEdge(Triangle2* pT, int k);
  void watchDogFailed(Point2* pVtx);

  std::mutex mtxFreshGet;
  std::mutex mtxFreshReturn;
  int numCPU;
  std::map<std::string, std::pair<int, double> > mDevValues;
  std::vector<Point2*> vRemovedVertices;
  HC2 hc2;
  VertexVault vertexVault;
  bool* pBFullDimensional;
  KiroTest kiroTest;
  Bbox2 bbox;
  SimplePool<Triangle2> trianglePool;
  SimplePool<Point2> vertexPool;
  mutable PoolIndex<Point2> vertexPoolIndex;
  std::vector<Triangle2*> vDeadT;
  size_t numAllT;
  std::vector<Triangle2*> vCheckT;
  // The vertex of the last single insertion: in sorted or curve order the
  // next point is close to it whatever the Hilbert key says. Null while it
  // may be stale (collinear state, after a removal).
  Point2* pLastVertex;
  // A removal happened: the data may have shrunk away from the key's box.
  bool bKeyMayBeLoose;
  // Hull triangles found by long pivots around a hull vertex, by direction
  // and by vertex (direct-mapped): a hull vertex of high degree, as at the
  // hub of a fan, is passed by every insertion beyond the hull next to it.
  // An entry is only a guess, checked before use.
  struct HullCacheEntry {
    Point2* pVtx;
    Triangle2* pT;
  };
  static const size_t HULL_CACHE_SIZE = 64;
  HullCacheEntry aHullCache[2][HULL_CACHE_SIZE];
  std::vector<std::pair<Triangle2*, int> > vHullL, vHullR;   // visible hull edges of insertVertexCH
  std::vector<Triangle2*> vCandidates, vNextCandidates;      // rounds of its flip sweep
  std::vector<Triangle2*> vUmbrellaT;                         // the fan of the vertex being removed
  std::vector<Triangle2*> vEarT;                              // its ears, in the order of cutting
  std::vector<Triangle2*> vRemainingT;                        // its last three triangles
  std::vector<std::pair<Triangle2*, int> > vSweepE, vSweepNextE; // rounds of the removal's flip sweep
  std::vector<Triangle2*> vSweepNextT; // next round of flipSweep (hull removal, restoreDelaunay)
  bool bFastMode;
  ConstraintMgr* pConstraintMgr; // null until the first constraint
  std::set<Zone2*> sZones;       // owned
  Zone2* addZone(Zone2* pZone);
  bool isOwnGraph(ConstraintGraph2* pCG, const char* tag);
  bool isOnFence(const ZoneFlood& flood, Triangle2* pT, const Point2& p);
  void deleteConstraintMgr();
  bool isConstraintEdgeInMgr(const Triangle2* pT, int i) const;
  void splitConstraintAt(Point2* p0, Point2* p1, Point2* pVtx);
  // Enforcement (Dt2_enforcement.cpp)
  typedef std::pair<Triangle2*, int> PolyEdge; // the edge of T opposite corner i
  void newCDT_insertOrSplit(ConstraintSegment2* pCSeg, std::vector<ConstraintSegment2*>& vWorkStack);
  Point2* newCDT_traverseCZ(ConstraintSegment2* pCSeg, std::vector<std::pair<Point2, ConstraintSegment2*> >& vPairIspCS);
  Triangle2* retriangulatePolygon(std::vector<PolyEdge>& vPolygon, std::vector<Triangle2*>& vNewT);
  void restoreDelaunay(std::vector<Triangle2*>& vT);
  void applyOneLeaf(ConstraintSegment2* pCSeg, std::vector<ConstraintSegment2*>& vWorkStack);
  // Working sets of the constrained road, kept to avoid allocation per segment
  std::vector<PolyEdge> vPolyLeft, vPolyRight;
  std::vector<Triangle2*> vCrossedT, vCdtNewT;
  std::vector<std::pair<Triangle2*, int> > vKillWork;
  Point2 crossingOfConstraints(ConstraintSegment2* pCSeg, ConstraintSegment2* pOther);
  /** Set only while triangles are cut in; insertion then flips nothing but
   * zero-area triangles at the hull. */
  bool bSuppressFlips;
  std::string name;
  ProgressPublisher progress;
  InserterMTStats lastMTStats;
  size_t numThreadedRanges;
};

} // namespace KIRO_VASK2D
