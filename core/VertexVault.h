#pragma once
#include "Bbox2.h"
#include "Point2.h"
#include "Triangle2.h"
#include "core/PoolIndex.h"
#include "kiro_tools/SimplePool.h"
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace KIRO_VASK2D {

class Dt2;

/** One vertex of the vault: its Hilbert index, whether it counts as a vertex
 * of the triangulation, and the vertex itself (never null in a stored record). */
struct IdxVtxAct {
  uint32_t idx;
  bool bActive;
  Point2* pVtx;

  /** Active records before inactive ones; two active records by idx. Records
   * with equal idx stand in no defined order. */
  bool operator<(const IdxVtxAct& other) const {
    if (!bActive || !other.bActive) return bActive && !other.bActive;
    return idx < other.idx;
  }
};

typedef std::vector<IdxVtxAct*>::iterator VtxRecIt;
typedef std::vector<IdxVtxAct*>::const_iterator VtxRecConstIt;

/** The register of every vertex of a triangulation. Points wait here while
 * the data is collinear; the records, kept sorted along the Hilbert curve,
 * give point location a close start triangle; duplicates found during an
 * insertion are remembered here and settled to the first vertex.
 *
 * Layout: vIdxVtxAct = [sorted part | tail appended since the last rebuild].
 * The tail consists of batches, each sorted by itself. */
class VertexVault {
public:
  explicit VertexVault(Dt2* pDt2);
  ~VertexVault();
  VertexVault(const VertexVault&) = delete;
  VertexVault& operator=(const VertexVault&) = delete;

  // Adding vertices
  void addVertex(uint32_t idx, Point2* pVtx);
  /** A new vertex at p with its record, appended as addVertex does. Vertex
   * and record of an earlier duplicate are reused before the pools grow. */
  Point2* addNewVertex(const Point2& p, uint32_t idx);
  void addVertices(const std::vector<Point2>& vInputPoints, std::vector<Point2*>* pVHandles, size_t& firstPos);
  void addVertices(unsigned numPoints, const double* aCoordinates, Point2** aHandles, size_t& firstPos);

  // Duplicates
  bool dupIsClean() const { return mRedundant2UniqueVtx.empty(); }
  void registerDup(Point2* pDup, Point2* pExisting);
  Point2* treatOneDupGetHandle(Point2* pDup);
  void treatDupsAndHandles(std::vector<Point2*>* pVHandles);
  void replaceDuplicateVertexHandlesFullDim(std::vector<Point2*>& vHandles);

  // The collinear state
  /** The active vertex at p's coordinates, or null; for the collinear state,
   * where nothing can be located. Expected O(1): a hash of the coordinates,
   * built on first use and kept up by addNewVertex. */
  Point2* findCollinearDuplicate(const Point2& p);
  /** The active vertex at p's coordinates, or a new one appended as by
   * addNewVertex; bLeavesLine tells whether a new vertex leaves the line of
   * the others (see leavesLine). A point beyond the lexicographic extremes
   * of the vertices is new without a probe: points that arrive in sorted
   * order never touch the hash. */
  Point2* findOrAddCollinear(const Point2& p, uint32_t idx, bool& bLeavesLine);
  /** The box grew while there is no triangle: the records keep the keys of
   * the old curve until refreshStaleKeys. Without a mesh nothing walks from
   * a key, and lookups by key fall back to a scan; re-keying at every
   * growth would sort the vault once per doubling of sorted input. An
   * empty vault has no keys to go stale: a first batch is keyed after the
   * growth and needs no renewal. */
  void markKeysStale() { bKeysStale = !vIdxVtxAct.empty(); }
  /** New keys for every record if they are stale, then [0, splitPos) and
   * [splitPos, end) sorted each by itself: a batch's waiting points stay
   * ahead of the batch. Called where the triangulation gets area. */
  void refreshStaleKeys(size_t splitPos);
  /** Whether the active vertices, pNew included, span an area. The line
   * through the first two distinct vertices is remembered, so that a point
   * on it costs one orientation test. Collinear state only. */
  bool leavesLine(const Point2* pNew);
  /** Forgets the hash and the line (after any change but addNewVertex, and
   * when the state ends). */
  void dropLineIndex();

  // Finding
  Triangle2* getCloseTriangle(uint32_t idx);
  bool getThreeInitialPoints(Point2*& p0, Point2*& p1, Point2*& p2);
  Triangle2* getOneValidTriangle() const;
  void getRange(size_t pos, VtxRecIt& first, VtxRecIt& last);
  void getRange(size_t pos, VtxRecConstIt& first, VtxRecConstIt& last) const;
  /** All records, for the multi-threaded inserter's chunks. */
  std::vector<IdxVtxAct*>& getRecords() { return vIdxVtxAct; }
  size_t getIdxOfActiveVtx(const Point2* pQuery) const;
  Point2* findActive(const Point2& q) const;
  void getVertices(std::vector<Point2*>& vVertices) const;
  Bbox2 getBbox() const;
  unsigned numberOfPoints() const;
  unsigned numberOfRecords() const { return static_cast<unsigned>(vIdxVtxAct.size()); }
  /** Records ever taken from the record pool (stored, or waiting for reuse). */
  size_t numberOfRecordsTaken() const;
  /** Vertex-record pairs of settled duplicates that wait for reuse. */
  size_t numberOfFreeRecords() const { return vFreeRecords.size(); }
  /** True when the next lazy rebuild will sort. */
  bool isRebuildDue() const;

  // Order
  void rebuild(bool bLazy);
  void reindex();
  void removeVertexRecord(Point2* pRemovedVertex);
  /** Starts loading the record that is taken together with the vertex at
   * this position of the vertex pool: the record removeVertexRecord will
   * normally write. A hint only. */
  void prefetchRecord(size_t vertexPoolIndex) const;

  // The temporary outer corners of the multi-threaded batch
  /** Raises four corners strictly around box; false, and no corners, when
   * the data reach the largest doubles and no finite corner lies beyond. */
  bool createFakeBox(const Bbox2& box);
  Point2* getFakeBoxCorner(size_t i) const;
  void removeFakeBox();
  bool hasFakeBox() const { return !vFakeBoxHandles.empty(); }

  void assignCustomIndices();
  void checkVault() const;

  bool bFullDimensional;

private:
  IdxVtxAct* newRecord(uint32_t idx, Point2* pVtx);
  void takeVertexAndRecord(Point2*& pVtx, IdxVtxAct*& pRec);
  void releaseDuplicate(IdxVtxAct* pRec);
  void buildLineIndex();
  void noteLineVertex(Point2* pVtx);
  void hashPending();
  Point2* probeLineHash(const Point2& p, size_t hash, size_t& slot) const;
  void hashInsert(Point2* pVtx);
  void hashInsertGrow();
  IdxVtxAct* findActiveRecord(const Point2* pVtx) const;
  void sortPairs(std::vector<uint64_t>& vPairs) const;
  void sortRecords(VtxRecIt first, VtxRecIt last) const;
  void fixHandles(std::vector<Point2*>* pVHandles) const;
  void settleToFirstOccurrence();
  size_t bisect(uint32_t idx) const;
  Triangle2* nearestTriangleAround(size_t pos) const;

  std::vector<IdxVtxAct*> vIdxVtxAct;
  size_t numSorted;
  Dt2* pDt2;
  SimplePool<IdxVtxAct> recordPool;
  mutable PoolIndex<IdxVtxAct> recordPoolIndex;
  std::map<Point2*, Point2*> mRedundant2UniqueVtx;
  size_t numRemoved;
  size_t numActive;
  std::vector<Point2*> vFakeBoxHandles;
  std::mutex mtxDup;
  // Records of settled duplicates, each with its vertex, ready for reuse:
  // a duplicate costs nothing that stays.
  std::vector<IdxVtxAct*> vFreeRecords;
  // The collinear state's hash of active vertices (open addressing, null =
  // empty slot) and the line of its first two distinct vertices.
  struct LineSlot {
    Point2* pVtx;
    size_t hash; // of pVtx's coordinates: most probes need not read the vertex
  };
  // The hash holds the active vertices of the records before numLineHashed
  // (records are only appended while the index is valid; any reordering
  // drops it); the later ones were beyond the extremes when they came and
  // are hashed at the next probe.
  std::vector<LineSlot> vLineHash;
  size_t numLineHash;
  size_t numLineHashed;
  bool bLineIndexValid;
  Point2* pLineA;
  Point2* pLineB;
  Point2* pLexMin;
  Point2* pLexMax;
  bool bKeysStale;
};

} // namespace KIRO_VASK2D
