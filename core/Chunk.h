#pragma once
#include "Bbox2.h"
#include "Point2.h"
#include "Triangle2.h"
#include "core/VertexVault.h"
#include "kernel/KiroTest.h"
#include <memory>
#include <vector>

namespace KIRO_VASK2D {

class Dt2;

/** A contiguous run of vault records that one worker inserts into a
 * triangulation surrounded by the fake box, together with the extended box
 * that its insertions can't leave (the argument is written above
 * determineExtBox in Chunk.cpp). A chunk has its own predicates, flip stack
 * and supply of fresh triangles, so that chunks with disjoint extended boxes
 * can run at the same time. Every point lies strictly inside the fake box:
 * the chunk has no hull cases, and ignores constraint edges.
 *
 * Records that are inactive when the chunk runs are skipped: the inserter
 * puts its sample into the mesh first and hides those records meanwhile. */
class Chunk {
public:
  enum State { CS_WAITING = 0, CS_RUNNING = 1, CS_FINISHED = 2 };

  Chunk(Dt2* pDt2, const Bbox2* pDataBox, unsigned chunkId, std::vector<IdxVtxAct*>* pVIdxVtxAct, unsigned startIdx,
        unsigned stopIdx);
  Chunk(const Chunk&) = delete;
  Chunk& operator=(const Chunk&) = delete;

  /** Run before any thread changes the mesh (it only reads it, so chunks may
   * prepare in parallel): finds the start vertex and the box of everything
   * an insertion of this chunk may read or write. */
  void determineExtBox();
  /** Inserts the chunk's whole range and hands the unused fresh triangles
   * back. determineExtBox must have run on the mesh as it was before the
   * first chunk started. */
  void triangulate();
  /** The recursive midpoint order over [first, last); each walk starts at
   * the vertex pFrom, which lies in the chunk's box and in the mesh. */
  void localTriangulateRec(VtxRecIt first, VtxRecIt last, Point2* pFrom);
  /** Inserts the vertex of *it by a walk from pFrom; afterwards pFrom is
   * the inserted vertex, or for a duplicate the equal vertex of the mesh.
   * Returns a triangle incident to pFrom. */
  Triangle2* localInsertVertex(VtxRecIt it, Point2*& pFrom);
  /** A straight walk from the vertex pFrom to p: -1 when p lies in pT
   * (on its edge edgeIdx, or strictly inside when edgeIdx is -1), 4 when p
   * equals a corner of pT. */
  int locateInsideConflictT(const Point2& p, Point2* pFrom, Triangle2*& pT, int& edgeIdx);

  unsigned getChunkId() const { return chunkId; }
  unsigned getState() const { return state; }
  void setState(State s) { state = s; }
  unsigned size() const { return stopIdx - startIdx; }
  const Bbox2& getBox() const { return box; }
  const Bbox2& getExtBox() const { return extBox; }
  Triangle2* getStartTriangle() const { return pStartVtx != nullptr ? pStartVtx->getIncidentTriangle() : nullptr; }
  Point2* getStartVertex() const { return pStartVtx; }
  const std::vector<Triangle2*>& getBorderTriangles() const { return vBorderT; }
  /** Whether the extended box is the whole plane: some circle of the
   * surrounding mesh had no reliable centre, and the chunk then runs alone. */
  bool isUnbounded() const { return bUnbounded; }

private:
  Triangle2* localCreateTriangle(Point2* p0, Point2* p1, Point2* p2);
  Triangle2* localInitVCheckT13(Triangle2* pT, Point2* pVtx);
  bool circleReachesSide(const std::vector<Point2>& vCorners, const Triangle2* pT) const;
  void extendByCircle(const Triangle2* pT, double& minX, double& minY, double& maxX, double& maxY);
  Point2* findMeshVertexNear() const;
  bool isFakeCorner(const Point2* pVtx) const;
  KiroTest& predicates();
  void releasePredicates() { pKiroTest.reset(); }
  /** Debug builds: the triangle has at least minCorners corners in the
   * extended box (see the argument above determineExtBox). */
  void checkOwned(const Triangle2* pT, int minCorners) const;

  unsigned state;
  Dt2* pDt2;
  const Bbox2* pDataBox;
  unsigned chunkId;
  std::vector<IdxVtxAct*>* pVIdxVtxAct;
  unsigned startIdx;
  unsigned stopIdx;
  Bbox2 box;
  Bbox2 extBox;
  std::vector<Triangle2*> vBorderT;
  std::vector<Triangle2*> vLocalCheckT;
  // Its own predicates, alive while the chunk prepares or runs: a chunk
  // that waits costs no predicate scratch space.
  std::unique_ptr<KiroTest> pKiroTest;
  double staticBound;
  bool bFirstFresh;
  std::vector<Triangle2*> vFreshTriangles;
  Point2* pStartVtx;
  bool bFastMode;
  bool bUnbounded;
  bool bOwnershipReady; // checkOwned is armed once the extended box exists
};

} // namespace KIRO_VASK2D
