#pragma once
#include "Bbox2.h"
#include "Point2.h"
#include "Triangle2.h"
#include "core/VertexVault.h"
#include "kernel/KiroTest.h"
#include <vector>

namespace KIRO_VASK2D {

class Dt2;

/** A contiguous run of vault records that one worker inserts into a
 * triangulation surrounded by the fake box, together with the extended box
 * that its insertions can't leave. A chunk has its own predicates, flip stack
 * and supply of fresh triangles, so that chunks with disjoint extended boxes
 * can run at the same time. Every point lies strictly inside the fake box:
 * the chunk has no hull cases, and ignores constraint edges. */
class Chunk {
public:
  Chunk(Dt2* pDt2, const Bbox2* pDataBox, unsigned chunkId, std::vector<IdxVtxAct*>* pVIdxVtxAct, unsigned startIdx,
        unsigned stopIdx);
  Chunk(const Chunk&) = delete;
  Chunk& operator=(const Chunk&) = delete;

  /** Run before any thread touches the mesh: finds the box of everything an
   * insertion of this chunk may change, and the start triangle. */
  void determineExtBox();
  void localTriangulateRec(VtxRecIt first, VtxRecIt last, Triangle2* pStart);
  Triangle2* localInsertVertex(VtxRecIt it, Triangle2* pCurTriangle);
  int locateInsideConflictT(const Point2& p, Triangle2*& pT, int& edgeIdx);
  /** Inserts the chunk's whole range from the start triangle and hands the
   * unused fresh triangles back. */
  void triangulate();

  unsigned getChunkId() const { return chunkId; }
  const Bbox2& getBox() const { return box; }
  const Bbox2& getExtBox() const { return extBox; }
  Triangle2* getStartTriangle() const { return pStartT; }
  const std::vector<Triangle2*>& getBorderTriangles() const { return vBorderT; }

private:
  Triangle2* localCreateTriangle(Point2* p0, Point2* p1, Point2* p2);
  Triangle2* localInitVCheckT13(Triangle2* pT, Point2* pVtx);
  bool circleReachesSide(const Point2& p0, const Point2& p1, const Triangle2* pT) const;
  void extendByCircle(const Triangle2* pT, double& minX, double& minY, double& maxX, double& maxY) const;

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
  KiroTest kiroTest;
  bool bFirstFresh;
  std::vector<Triangle2*> vFreshTriangles;
  Triangle2* pStartT;
  bool bFastMode;
};

} // namespace KIRO_VASK2D
