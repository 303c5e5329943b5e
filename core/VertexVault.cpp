#include "core/VertexVault.h"
#include "TriangleAroundVertexIterator.h"
#include "core/Dt2.h"
#include "core/PoolIndex.h"
#include "kiro_tools/HC2.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cstring>
#include <cfloat>
#include <cmath>
#include <iostream>
#include <new>
#include <set>
#include <sstream>
#include <thread>

namespace KIRO_VASK2D {

namespace {

// Cuts [0, n) into one piece per worker, each floor(n / workers) + 1 long
// with the last one ending at n, and runs f(begin, end) for each piece on its
// own thread. All threads are joined before the call returns.
template <class F> void runPieces(int numWorkers, size_t n, F f) {
  const size_t piece(n / static_cast<size_t>(numWorkers) + 1);
  std::vector<std::thread> vThreads;
  for (size_t begin = 0; begin < n; begin += piece) vThreads.emplace_back(f, begin, std::min(n, begin + piece));
  for (std::thread& t : vThreads) t.join();
}

// LSD radix sort of (key << 32 | payload) words by their 30-bit key: three
// passes of 10 bits over bits 32..61. Linear time, stable, one scratch array.
void radixSortKeys(uint64_t* aData, size_t n) {
  if (n < 2) return;
  std::vector<uint64_t> vScratch(n);
  uint64_t* pSrc(aData);
  uint64_t* pDst(vScratch.data());
  for (int shift = 32; shift < 62; shift += 10) {
    size_t aCount[1025] = {0};
    for (size_t i = 0; i < n; ++i) ++aCount[((pSrc[i] >> shift) & 1023) + 1];
    for (int b = 0; b < 1024; ++b) aCount[b + 1] += aCount[b];
    for (size_t i = 0; i < n; ++i) pDst[aCount[(pSrc[i] >> shift) & 1023]++] = pSrc[i];
    std::swap(pSrc, pDst);
  }
  // Three passes leave the result in the scratch array.
  std::copy(pSrc, pSrc + n, aData);
}

bool recordLess(const IdxVtxAct* a, const IdxVtxAct* b) { return *a < *b; }

// Orders every run of equal keys in the sorted (key << 32 | position) pairs
// along a Hilbert curve over the run's own bounds, and so on recursively.
// The key's box must hold all the data, so one far point (or clusters far
// apart) can put most points into one cell; inserted in arbitrary order
// they would make every walk long. A run's records keep their key: only
// their order changes, and records with equal keys stand in no defined
// order anyway. A run whose points all fall into one cell of their own box
// consists of equal points (or of a range no cell size can split) and ends
// the recursion, so each level works on fewer points than the last.
template <class XY> void orderEqualKeyRuns(uint64_t* aPairs, size_t n, XY xy) {
  const size_t MIN_RUN(8);
  for (size_t begin = 0; begin < n;) {
    const uint64_t key(aPairs[begin] >> 32);
    size_t end(begin + 1);
    while (end < n && (aPairs[end] >> 32) == key) ++end;
    if (end - begin >= MIN_RUN) {
      uint64_t* aRun(aPairs + begin);
      const size_t m(end - begin);
      double minX(DBL_MAX), minY(DBL_MAX), maxX(-DBL_MAX), maxY(-DBL_MAX);
      for (size_t i = 0; i < m; ++i) {
        double x, y;
        xy(static_cast<uint32_t>(aRun[i]), x, y);
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
      }
      // Square cells: the curve's locality needs equal steps in both axes.
      const double range(std::max(maxX - minX, maxY - minY));
      if (range > 0.0) {
        const HC2 curve(minX, minY, minX + range, minY + range, 30);
        uint32_t firstSub(0);
        bool bSplit(false);
        for (size_t i = 0; i < m; ++i) {
          double x, y;
          const uint32_t pos(static_cast<uint32_t>(aRun[i]));
          xy(pos, x, y);
          const uint32_t sub(curve.getKey(x, y));
          if (i == 0) firstSub = sub;
          bSplit = bSplit || sub != firstSub;
          aRun[i] = (uint64_t(sub) << 32) | pos;
        }
        if (bSplit) {
          if (m >= 256) {
            radixSortKeys(aRun, m);
          } else {
            std::sort(aRun, aRun + m);
          }
          orderEqualKeyRuns(aRun, m, xy);
        }
        for (size_t i = 0; i < m; ++i) aRun[i] = (key << 32) | (aRun[i] & 0xffffffffu);
      }
    }
    begin = end;
  }
}

// The pivot of a range: the mean key of about 100 items sampled with stride
// length/100 - 1 from its start; with stride 0 the first item's key.
template <class T, class Key> double estimatePivot(T* aData, size_t n, Key key) {
  const size_t stride(n / 100 > 0 ? n / 100 - 1 : 0);
  if (stride == 0) return static_cast<double>(key(aData[0]));
  double sum(0.0);
  size_t num(0);
  for (size_t i = 0; i < n && num < 100; i += stride, ++num) sum += static_cast<double>(key(aData[i]));
  return sum / static_cast<double>(num);
}

// Splits [begin, end) four ways around estimated pivots (whole range, then
// each half) so that the four parts can be sorted independently.
template <class T, class Key> void splitFourWays(T* aData, size_t n, Key key, size_t aBounds[5]) {
  const double pivot(estimatePivot(aData, n, key));
  T* pMid(std::partition(aData, aData + n, [&](const T& v) { return static_cast<double>(key(v)) < pivot; }));
  const size_t mid(pMid - aData);
  aBounds[0] = 0;
  aBounds[2] = mid;
  aBounds[4] = n;
  for (int h = 0; h < 2; ++h) {
    T* pBegin(aData + aBounds[2 * h]);
    const size_t len(aBounds[2 * h + 2] - aBounds[2 * h]);
    if (len == 0) {
      aBounds[2 * h + 1] = aBounds[2 * h];
      continue;
    }
    const double p(estimatePivot(pBegin, len, key));
    T* pSplit(std::partition(pBegin, pBegin + len, [&](const T& v) { return static_cast<double>(key(v)) < p; }));
    aBounds[2 * h + 1] = aBounds[2 * h] + (pSplit - pBegin);
  }
}

} // namespace

VertexVault::VertexVault(Dt2* pDt2_)
    : bFullDimensional(false), numSorted(0), pDt2(pDt2_), numRemoved(0), numActive(0), numLineHash(0),
      numLineHashed(0), bLineIndexValid(false), pLineA(nullptr), pLineB(nullptr), pLexMin(nullptr), pLexMax(nullptr),
      bKeysStale(false) {
  recordPool.init(3, -1);
}

VertexVault::~VertexVault() {
  for (Point2* pCorner : vFakeBoxHandles) delete pCorner;
}

IdxVtxAct* VertexVault::newRecord(uint32_t idx, Point2* pVtx) {
  IdxVtxAct* pRec(recordPool.get());
  pRec->idx = idx;
  pRec->bActive = true;
  pRec->pVtx = pVtx;
  return pRec;
}

void VertexVault::addVertex(uint32_t idx, Point2* pVtx) {
  VASK_ASSERT(pVtx != NULL);
  vIdxVtxAct.push_back(newRecord(idx, pVtx));
  ++numActive;
  dropLineIndex();
}

// A vertex and a record taken together: a reused pair comes from one
// duplicate, a fresh pair from the two pools at the same position, which
// keeps the record findable from the vertex's pool position.
void VertexVault::takeVertexAndRecord(Point2*& pVtx, IdxVtxAct*& pRec) {
  if (!vFreeRecords.empty()) {
    pRec = vFreeRecords.back();
    vFreeRecords.pop_back();
    pVtx = pRec->pVtx;
    return;
  }
  pVtx = pDt2->newVertex();
  pRec = recordPool.get();
}

Point2* VertexVault::addNewVertex(const Point2& p, uint32_t idx) {
  Point2* pVtx(nullptr);
  IdxVtxAct* pRec(nullptr);
  takeVertexAndRecord(pVtx, pRec);
  pVtx = new (pVtx) Point2(p);
  pRec->idx = idx;
  pRec->bActive = true;
  pRec->pVtx = pVtx;
  vIdxVtxAct.push_back(pRec);
  ++numActive;
  if (bLineIndexValid) noteLineVertex(pVtx);
  return pVtx;
}

// The record of a duplicate that has been settled (inactive, its handles
// replaced): it and its vertex wait for the next new vertex. The caller
// takes the record out of vIdxVtxAct.
void VertexVault::releaseDuplicate(IdxVtxAct* pRec) {
  pRec->bActive = false;
  pRec->pVtx->setIncidentTriangle(nullptr);
  vFreeRecords.push_back(pRec);
}

size_t VertexVault::numberOfRecordsTaken() const {
  size_t num(0);
  for (int i = 0; i < recordPool.getNumContainers(); ++i) {
    int numUsed(0);
    recordPool.getContainer(i, numUsed);
    num += static_cast<size_t>(numUsed);
  }
  return num;
}

// ---------------------------------------------------------------------------
// The collinear state

namespace {

size_t coordinateHash(const Point2& p) {
  // -0.0 == 0.0 as coordinates, so both hash as +0.
  const double x(p.x() == 0.0 ? 0.0 : p.x()), y(p.y() == 0.0 ? 0.0 : p.y());
  uint64_t bx, by;
  std::memcpy(&bx, &x, sizeof(bx));
  std::memcpy(&by, &y, sizeof(by));
  // Coordinates often differ in their high bits only (small integers):
  // the finaliser of MurmurHash3 brings every bit down to the slot bits.
  uint64_t h(bx ^ ((by << 31) | (by >> 33)) ^ (by * 0x9e3779b97f4a7c15ull));
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ull;
  h ^= h >> 33;
  return static_cast<size_t>(h);
}

} // namespace

void VertexVault::hashInsertGrow() {
  std::vector<LineSlot> vOld;
  vOld.swap(vLineHash);
  vLineHash.assign(std::max<size_t>(64, 2 * vOld.size()), LineSlot{nullptr, 0});
  numLineHash = 0;
  const size_t mask(vLineHash.size() - 1);
  for (const LineSlot& old : vOld) {
    if (old.pVtx == nullptr) continue;
    size_t slot(old.hash & mask);
    while (vLineHash[slot].pVtx != nullptr) slot = (slot + 1) & mask;
    vLineHash[slot] = old;
    ++numLineHash;
  }
}

void VertexVault::hashInsert(Point2* pVtx) {
  if (2 * (numLineHash + 1) > vLineHash.size()) hashInsertGrow();
  const size_t mask(vLineHash.size() - 1);
  const size_t hash(coordinateHash(*pVtx));
  size_t slot(hash & mask);
  while (vLineHash[slot].pVtx != nullptr) slot = (slot + 1) & mask;
  vLineHash[slot] = LineSlot{pVtx, hash};
  ++numLineHash;
}

// The hash starts empty: every record is pending until the first probe.
void VertexVault::buildLineIndex() {
  dropLineIndex();
  bLineIndexValid = true;
  numLineHashed = 0;
  for (IdxVtxAct* pRec : vIdxVtxAct)
    if (pRec->bActive) noteLineVertex(pRec->pVtx);
}

// The first two distinct vertices span the line; the lexicographic extremes
// bound the vertices, so a point beyond them is none of them.
void VertexVault::noteLineVertex(Point2* pVtx) {
  if (pLineA == nullptr) {
    pLineA = pVtx;
  } else if (pLineB == nullptr && *pVtx != *pLineA) {
    pLineB = pVtx;
  }
  if (pLexMin == nullptr || *pVtx < *pLexMin) pLexMin = pVtx;
  if (pLexMax == nullptr || *pLexMax < *pVtx) pLexMax = pVtx;
}

void VertexVault::hashPending() {
  for (; numLineHashed < vIdxVtxAct.size(); ++numLineHashed)
    if (vIdxVtxAct[numLineHashed]->bActive) hashInsert(vIdxVtxAct[numLineHashed]->pVtx);
}

// The hashed vertex at p, or null; slot is then the empty slot where the
// probe ended. The hash must have slots.
Point2* VertexVault::probeLineHash(const Point2& p, size_t hash, size_t& slot) const {
  const size_t mask(vLineHash.size() - 1);
  for (slot = hash & mask; vLineHash[slot].pVtx != nullptr; slot = (slot + 1) & mask)
    if (vLineHash[slot].hash == hash && *vLineHash[slot].pVtx == p) return vLineHash[slot].pVtx;
  return nullptr;
}

void VertexVault::dropLineIndex() {
  if (!bLineIndexValid) return;
  bLineIndexValid = false;
  std::vector<LineSlot>().swap(vLineHash);
  numLineHash = 0;
  numLineHashed = 0;
  pLineA = pLineB = pLexMin = pLexMax = nullptr;
}

Point2* VertexVault::findOrAddCollinear(const Point2& p, uint32_t idx, bool& bLeavesLine) {
  VASK_ASSERT(!bFullDimensional);
  if (!bLineIndexValid) buildLineIndex();
  const bool bBeyond(pLexMin == nullptr || p < *pLexMin || *pLexMax < p);
  size_t slot(0), hash(0);
  if (!bBeyond) {
    hashPending();
    // Grow before the probe, so that the empty slot it ends at stays free.
    if (2 * (numLineHash + 1) > vLineHash.size()) hashInsertGrow();
    hash = coordinateHash(p);
    if (Point2* pFound = probeLineHash(p, hash, slot)) {
      bLeavesLine = false;
      return pFound;
    }
  }
  bLeavesLine = pLineA != nullptr && pLineB != nullptr &&
                pDt2->getKiroTest().getOrientation2(pLineA, pLineB, &p) != ORIENTATION2_COLLINEAR;
  Point2* pVtx(addNewVertex(p, idx));
  if (!bBeyond) {
    // Every record was hashed before this one: it takes the probed slot.
    vLineHash[slot] = LineSlot{pVtx, hash};
    ++numLineHash;
    numLineHashed = vIdxVtxAct.size();
  }
  return pVtx;
}

Point2* VertexVault::findCollinearDuplicate(const Point2& p) {
  VASK_ASSERT(!bFullDimensional);
  if (!bLineIndexValid) buildLineIndex();
  hashPending();
  if (vLineHash.empty()) return nullptr;
  size_t slot(0);
  return probeLineHash(p, coordinateHash(p), slot);
}

bool VertexVault::leavesLine(const Point2* pNew) {
  VASK_ASSERT(!bFullDimensional);
  if (!bLineIndexValid) buildLineIndex();
  if (pLineA == nullptr || pLineB == nullptr) return false;
  return pDt2->getKiroTest().getOrientation2(pLineA, pLineB, pNew) != ORIENTATION2_COLLINEAR;
}

// Sorts (key << 32 | input position) words by key, equal keys in input
// order. More than three workers and many items: four ranges split by
// pivots, sorted on four threads.
void VertexVault::sortPairs(std::vector<uint64_t>& vPairs) const {
  const size_t n(vPairs.size());
  if (pDt2->getNumCPU() > 3 && n >= 10000) {
    size_t aBounds[5];
    splitFourWays(vPairs.data(), n, [](uint64_t v) { return v >> 32; }, aBounds);
    std::vector<std::thread> vThreads;
    for (int q = 0; q < 4; ++q)
      vThreads.emplace_back(radixSortKeys, vPairs.data() + aBounds[q], aBounds[q + 1] - aBounds[q]);
    for (std::thread& t : vThreads) t.join();
    // The partitions do not keep the input order: equal keys get it back,
    // so that equal points stand in input order as after the stable sort
    // (the settling of duplicates relies on it).
    for (size_t begin = 0, end = 0; begin < n; begin = end) {
      for (end = begin + 1; end < n && (vPairs[end] >> 32) == (vPairs[begin] >> 32);) ++end;
      if (end - begin > 1) std::sort(vPairs.begin() + begin, vPairs.begin() + end);
    }
    return;
  }
  radixSortKeys(vPairs.data(), n);
}

void VertexVault::sortRecords(VtxRecIt first, VtxRecIt last) const {
  const size_t n(last - first);
  if (pDt2->getNumCPU() > 3 && n >= 10000) {
    size_t aBounds[5];
    IdxVtxAct** aData(&*first);
    splitFourWays(aData, n, [](const IdxVtxAct* p) { return p->idx; }, aBounds);
    std::vector<std::thread> vThreads;
    for (int q = 0; q < 4; ++q)
      vThreads.emplace_back([=]() { std::sort(aData + aBounds[q], aData + aBounds[q + 1], recordLess); });
    for (std::thread& t : vThreads) t.join();
    return;
  }
  if (n < 256 || n > 0xffffffffu || !std::all_of(first, last, [](const IdxVtxAct* p) { return p->bActive; })) {
    std::sort(first, last, recordLess);
    return;
  }
  // Active records only: the order is that of idx. A radix sort of (idx,
  // position) pairs reads each record once instead of at every comparison,
  // and it is stable, so runs of equal idx keep their spatial sub-order.
  std::vector<uint64_t> vPairs(n);
  for (size_t i = 0; i < n; ++i) vPairs[i] = (uint64_t(first[i]->idx) << 32) | uint64_t(i);
  radixSortKeys(vPairs.data(), n);
  std::vector<IdxVtxAct*> vSorted(n);
  for (size_t k = 0; k < n; ++k) vSorted[k] = first[static_cast<uint32_t>(vPairs[k])];
  std::copy(vSorted.begin(), vSorted.end(), first);
}

// Records are appended in curve order while handles stay in input order.
void VertexVault::addVertices(const std::vector<Point2>& vInputPoints, std::vector<Point2*>* pVHandles,
                              size_t& firstPos) {
  dropLineIndex();
  firstPos = vIdxVtxAct.size();
  const size_t n(vInputPoints.size());
  if (pVHandles != nullptr) pVHandles->assign(n, nullptr);
  if (n == 0) return;
  const int numWorkers(pDt2->getNumCPU());
  const bool bParallel(numWorkers > 1 && n >= 1000 && n > 10 * static_cast<size_t>(numWorkers));
  std::vector<uint64_t> vPairs(n);
  auto computeKeys = [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i)
      vPairs[i] = (uint64_t(pDt2->getHilbertIndex(vInputPoints[i].x(), vInputPoints[i].y())) << 32) | uint64_t(i);
  };
  if (bParallel) {
    runPieces(numWorkers, n, computeKeys);
  } else {
    computeKeys(0, n);
  }
  sortPairs(vPairs);
  orderEqualKeyRuns(vPairs.data(), n, [&](uint32_t pos, double& x, double& y) {
    x = vInputPoints[pos].x();
    y = vInputPoints[pos].y();
  });
  vIdxVtxAct.resize(firstPos + n);
  if (!bParallel) {
    // The gather from the input is the one random access of the batch: fetch
    // a few records ahead.
    const size_t AHEAD(16);
    for (size_t k = 0; k < n; ++k) {
      if (k + AHEAD < n) __builtin_prefetch(&vInputPoints[static_cast<uint32_t>(vPairs[k + AHEAD])]);
      const size_t pos(static_cast<uint32_t>(vPairs[k]));
      Point2* pVtx(nullptr);
      IdxVtxAct* pRec(nullptr);
      takeVertexAndRecord(pVtx, pRec);
      pVtx = new (pVtx) Point2(vInputPoints[pos]);
      pRec->idx = static_cast<uint32_t>(vPairs[k] >> 32);
      pRec->bActive = true;
      pRec->pVtx = pVtx;
      vIdxVtxAct[firstPos + k] = pRec;
      if (pVHandles != nullptr) (*pVHandles)[pos] = pVtx;
    }
  } else {
    // Pools are not thread-safe: allocate on this thread, fill on workers.
    // The record holds its vertex's address until the worker constructs it.
    for (size_t k = 0; k < n; ++k) {
      Point2* pVtx(nullptr);
      IdxVtxAct* pRec(nullptr);
      takeVertexAndRecord(pVtx, pRec);
      pRec->pVtx = pVtx;
      vIdxVtxAct[firstPos + k] = pRec;
    }
    runPieces(numWorkers, n, [&](size_t begin, size_t end) {
      for (size_t k = begin; k < end; ++k) {
        const size_t pos(static_cast<uint32_t>(vPairs[k]));
        IdxVtxAct* pRec(vIdxVtxAct[firstPos + k]);
        Point2* pVtx(new (pRec->pVtx) Point2(vInputPoints[pos]));
        pRec->idx = static_cast<uint32_t>(vPairs[k] >> 32);
        pRec->bActive = true;
        pRec->pVtx = pVtx;
        if (pVHandles != nullptr) (*pVHandles)[pos] = pVtx;
      }
    });
  }
  numActive += n;
}

void VertexVault::addVertices(unsigned numPoints, const double* aCoordinates, Point2** aHandles, size_t& firstPos) {
  dropLineIndex();
  firstPos = vIdxVtxAct.size();
  const size_t n(numPoints);
  if (n == 0) return;
  std::vector<uint64_t> vPairs(n);
  for (size_t i = 0; i < n; ++i)
    vPairs[i] = (uint64_t(pDt2->getHilbertIndex(aCoordinates[2 * i], aCoordinates[2 * i + 1])) << 32) | uint64_t(i);
  sortPairs(vPairs);
  orderEqualKeyRuns(vPairs.data(), n, [&](uint32_t pos, double& x, double& y) {
    x = aCoordinates[2 * size_t(pos)];
    y = aCoordinates[2 * size_t(pos) + 1];
  });
  vIdxVtxAct.resize(firstPos + n);
  for (size_t k = 0; k < n; ++k) {
    const size_t pos(static_cast<uint32_t>(vPairs[k]));
    Point2* pVtx(nullptr);
    IdxVtxAct* pRec(nullptr);
    takeVertexAndRecord(pVtx, pRec);
    pVtx = new (pVtx) Point2(aCoordinates[2 * pos], aCoordinates[2 * pos + 1]);
    pRec->idx = static_cast<uint32_t>(vPairs[k] >> 32);
    pRec->bActive = true;
    pRec->pVtx = pVtx;
    vIdxVtxAct[firstPos + k] = pRec;
    aHandles[pos] = pVtx;
  }
  numActive += n;
}

// ---------------------------------------------------------------------------
// Duplicates

void VertexVault::registerDup(Point2* pDup, Point2* pExisting) {
  if (pDup == pExisting) return;
  std::lock_guard<std::mutex> lock(mtxDup);
  const bool bInserted(mRedundant2UniqueVtx.insert(std::make_pair(pDup, pExisting)).second);
  VASK_ASSERT(bInserted);
}

Point2* VertexVault::treatOneDupGetHandle(Point2* pDup) {
  VASK_ASSERT(bFullDimensional);
  VASK_ASSERT(mRedundant2UniqueVtx.size() == 1);
  IdxVtxAct* pLastItem(vIdxVtxAct.back());
  VASK_ASSERT(pDup == pLastItem->pVtx);
  --numActive;
  std::map<Point2*, Point2*>::iterator q_it(mRedundant2UniqueVtx.find(pDup));
  VASK_ASSERT(q_it != mRedundant2UniqueVtx.end());
  Point2* pExisting(q_it->second);
  mRedundant2UniqueVtx.clear();
  vIdxVtxAct.pop_back();
  releaseDuplicate(pLastItem);
  return pExisting;
}

void VertexVault::fixHandles(std::vector<Point2*>* pVHandles) const {
  if (pVHandles == nullptr) return;
  size_t numFoundInHandles(0);
  for (std::vector<Point2*>::iterator it = pVHandles->begin(); it != pVHandles->end(); ++it) {
    std::map<Point2*, Point2*>::const_iterator q_it(mRedundant2UniqueVtx.find(*it));
    if (q_it == mRedundant2UniqueVtx.end()) continue;
    Point2* pExistingVtx(q_it->second);
    VASK_ASSERT(**it == *pExistingVtx);
    *it = pExistingVtx;
    ++numFoundInHandles;
  }
  VASK_ASSERT(mRedundant2UniqueVtx.size() == numFoundInHandles);
}

void VertexVault::treatDupsAndHandles(std::vector<Point2*>* pVHandles) {
  dropLineIndex();
  if (!bFullDimensional) {
    // Nothing was located: duplicates are found by comparing coordinates.
    VASK_ASSERT(mRedundant2UniqueVtx.empty());
    struct CoordLess {
      bool operator()(const Point2* a, const Point2* b) const { return *a < *b; }
    };
    std::set<Point2*, CoordLess> sSeen;
    for (IdxVtxAct* pRec : vIdxVtxAct) {
      if (!pRec->bActive) continue;
      std::pair<std::set<Point2*, CoordLess>::iterator, bool> res(sSeen.insert(pRec->pVtx));
      if (res.second) continue;
      pRec->bActive = false;
      --numActive;
      mRedundant2UniqueVtx[pRec->pVtx] = *res.first;
    }
    if (!mRedundant2UniqueVtx.empty()) {
      fixHandles(pVHandles);
      for (IdxVtxAct* pRec : vIdxVtxAct)
        if (!pRec->bActive && mRedundant2UniqueVtx.count(pRec->pVtx) != 0) releaseDuplicate(pRec);
      mRedundant2UniqueVtx.clear();
      rebuild(false);
    }
    return;
  }
  if (mRedundant2UniqueVtx.empty()) return;
  settleToFirstOccurrence();
  fixHandles(pVHandles);
  size_t numFoundInIdxVtxAct(0);
  for (size_t i = numSorted; i < vIdxVtxAct.size(); ++i) {
    IdxVtxAct* pRec(vIdxVtxAct[i]);
    if (!pRec->bActive || pRec->pVtx->getIncidentTriangle() != nullptr) continue;
    VASK_ASSERT(mRedundant2UniqueVtx.find(vIdxVtxAct[i]->pVtx) != mRedundant2UniqueVtx.end());
    pRec->bActive = false;
    --numActive;
    ++numFoundInIdxVtxAct;
  }
  if (mRedundant2UniqueVtx.size() != numFoundInIdxVtxAct) {
    std::cout << "BUG: mRedundant2UniqueVtx.size()=" << mRedundant2UniqueVtx.size() << std::endl;
    std::cout << "     numFoundInIdxVtxAct=" << numFoundInIdxVtxAct << std::endl;
    VASK_ASSERT(mRedundant2UniqueVtx.size() == numFoundInIdxVtxAct);
  }
  // The settled duplicates leave the tail (which stays in order) for reuse.
  VtxRecIt tailEnd(std::remove_if(vIdxVtxAct.begin() + numSorted, vIdxVtxAct.end(), [this](IdxVtxAct* pRec) {
    if (pRec->bActive || mRedundant2UniqueVtx.count(pRec->pVtx) == 0) return false;
    releaseDuplicate(pRec);
    return true;
  }));
  vIdxVtxAct.erase(tailEnd, vIdxVtxAct.end());
  mRedundant2UniqueVtx.clear();
}

// Which of two equal points of one batch enters the mesh first depends on
// the order of insertion (midpoints first, a sample first, chunks on
// threads), not on the input order; yet a duplicate is settled to its first
// occurrence. Equal points stand in the tail in input order (the key sort
// breaks ties by input position, batches follow each other), so the first
// record of a group in the tail is its first occurrence. Where that is a
// duplicate, it takes the place of the mesh vertex, which is an equal point:
// corners are renamed, no geometry changes. A mesh vertex older than the
// tail is the first occurrence and stays.
void VertexVault::settleToFirstOccurrence() {
  struct Group {
    Point2* pFirst;     // first member of the group met in the tail
    bool bMeshInTail;   // the mesh vertex itself was met in the tail
  };
  std::map<Point2*, Group> mGroups; // by mesh vertex
  for (const std::pair<Point2* const, Point2*>& dup : mRedundant2UniqueVtx)
    mGroups.emplace(dup.second, Group{nullptr, false});
  for (size_t i = numSorted; i < vIdxVtxAct.size(); ++i) {
    IdxVtxAct* pRec(vIdxVtxAct[i]);
    if (!pRec->bActive) continue;
    const std::map<Point2*, Point2*>::const_iterator dupIt(mRedundant2UniqueVtx.find(pRec->pVtx));
    const std::map<Point2*, Group>::iterator groupIt(
        mGroups.find(dupIt != mRedundant2UniqueVtx.end() ? dupIt->second : pRec->pVtx));
    if (groupIt == mGroups.end()) continue;
    if (groupIt->second.pFirst == nullptr) groupIt->second.pFirst = pRec->pVtx;
    if (pRec->pVtx == groupIt->first) groupIt->second.bMeshInTail = true;
  }
  std::vector<Triangle2*> vIncT;
  std::vector<std::pair<Point2*, Point2*> > vSwapped; // (old mesh vertex, first occurrence)
  for (const std::pair<Point2* const, Group>& group : mGroups) {
    Point2* pMesh(group.first);
    Point2* pFirst(group.second.pFirst);
    if (!group.second.bMeshInTail || pFirst == pMesh) continue;
    // A vertex that a constraint segment holds (it landed on a constraint
    // edge and split it) keeps its place: the registry knows it by address.
    if (pDt2->isConstraintVertex(pMesh)) continue;
    vIncT.clear();
    pDt2->getIncidentTriangles(pMesh, vIncT);
    VASK_ASSERT(!vIncT.empty());
    for (Triangle2* pT : vIncT) pT->setVertexPointer(pT->getIntraTriangleIndex(pMesh), pFirst);
    pFirst->setIncidentTriangle(pMesh->getIncidentTriangle());
    pMesh->setIncidentTriangle(nullptr);
    vSwapped.emplace_back(pMesh, pFirst);
  }
  if (vSwapped.empty()) return;
  // Each swapped group's duplicates, the old mesh vertex among them, map to
  // pFirst; a group whose mesh vertex stayed keeps its mapping.
  for (std::pair<Point2* const, Point2*>& dup : mRedundant2UniqueVtx) {
    const Group& group(mGroups.find(dup.second)->second);
    if (group.bMeshInTail && dup.second->getIncidentTriangle() == nullptr) dup.second = group.pFirst;
  }
  for (const std::pair<Point2*, Point2*>& swapped : vSwapped) {
    mRedundant2UniqueVtx.erase(swapped.second);
    mRedundant2UniqueVtx[swapped.first] = swapped.second;
  }
}

void VertexVault::replaceDuplicateVertexHandlesFullDim(std::vector<Point2*>& vHandles) {
  bool bRebuilt(false);
  size_t numReplaced(0);
  for (Point2*& pHandle : vHandles) {
    if (pHandle == nullptr || pHandle->getIncidentTriangle() != nullptr) continue;
    if (!bRebuilt) {
      rebuild(false);
      bRebuilt = true;
    }
    IdxVtxAct tmp;
    tmp.idx = pDt2->getHilbertIndex(pHandle->x(), pHandle->y());
    tmp.bActive = true;
    tmp.pVtx = pHandle;
    std::vector<IdxVtxAct*>::iterator q_it(
        std::lower_bound(vIdxVtxAct.begin(), vIdxVtxAct.end(), &tmp, recordLess));
    VASK_ASSERT(q_it != vIdxVtxAct.end());
    IdxVtxAct* pItem(nullptr);
    for (; q_it != vIdxVtxAct.end() && (*q_it)->idx == tmp.idx; ++q_it) {
      if (*(*q_it)->pVtx == *pHandle) {
        pItem = *q_it;
        break;
      }
    }
    VASK_ASSERT(pItem != NULL && pItem->pVtx != NULL);
    VASK_ASSERT(pItem->bActive);
    pHandle = pItem->pVtx;
    ++numReplaced;
  }
  if (numReplaced > 500 && numReplaced > 0.2 * vHandles.size())
    logWarning("Vask_2D", "possible slow down due to massive duplicate vertex insertion");
}

// ---------------------------------------------------------------------------
// Finding

size_t VertexVault::bisect(uint32_t idx) const {
  size_t lo(0), hi(numSorted - 1);
  while (lo != hi) {
    const size_t mid((lo + hi) / 2);
    if (idx <= vIdxVtxAct[mid]->idx) {
      hi = mid;
    } else {
      lo = (lo == mid) ? mid + 1 : mid;
    }
  }
  return lo;
}

// The incident triangle of the active record nearest to pos: forward in the
// sorted part, backward, then the tail by the smallest difference of keys.
Triangle2* VertexVault::nearestTriangleAround(size_t pos) const {
  for (size_t i = pos; i < numSorted; ++i) {
    const IdxVtxAct* pRec(vIdxVtxAct[i]);
    if (pRec->bActive && pRec->pVtx->getIncidentTriangle() != nullptr) return pRec->pVtx->getIncidentTriangle();
  }
  for (size_t i = std::min(pos, numSorted); i-- > 0;) {
    const IdxVtxAct* pRec(vIdxVtxAct[i]);
    if (pRec->bActive && pRec->pVtx->getIncidentTriangle() != nullptr) return pRec->pVtx->getIncidentTriangle();
  }
  const uint32_t idx(pos < vIdxVtxAct.size() ? vIdxVtxAct[pos]->idx : 0);
  Triangle2* pBest(nullptr);
  uint32_t bestDiff(0);
  for (size_t i = numSorted; i < vIdxVtxAct.size(); ++i) {
    const IdxVtxAct* pRec(vIdxVtxAct[i]);
    if (!pRec->bActive || pRec->pVtx->getIncidentTriangle() == nullptr) continue;
    const uint32_t diff(pRec->idx > idx ? pRec->idx - idx : idx - pRec->idx);
    if (pBest == nullptr || diff < bestDiff) {
      pBest = pRec->pVtx->getIncidentTriangle();
      bestDiff = diff;
    }
  }
  if (pBest == nullptr && !vFakeBoxHandles.empty()) pBest = vFakeBoxHandles[0]->getIncidentTriangle();
  return pBest;
}

Triangle2* VertexVault::getCloseTriangle(uint32_t idx) {
  VASK_ASSERT(bFullDimensional);
  // A box raised around data without area is the whole mesh at first; in a
  // mesh of unsorted vertices its corners are still on their way in.
  if (numSorted == 0 && !vFakeBoxHandles.empty() && vFakeBoxHandles[0]->getIncidentTriangle() != nullptr) {
    Point2* pFakeCorner(vFakeBoxHandles[0]);
    VASK_ASSERT(pFakeCorner != 0);
    Triangle2* pFakeT(pFakeCorner->getIncidentTriangle());
    VASK_ASSERT(pFakeT != 0);
    return pFakeT;
  }
  VASK_ASSERT(!vIdxVtxAct.empty());
  const size_t pos(numSorted > 0 ? bisect(idx) : 0);
  const IdxVtxAct* pRec(vIdxVtxAct[pos]);
  if (pRec->bActive && pRec->pVtx->getIncidentTriangle() != nullptr) return pRec->pVtx->getIncidentTriangle();
  Triangle2* pT(nearestTriangleAround(pos));
  if (pT == nullptr) {
    logError("VertexVault::getCloseTriangle()", "HUH BUG, getCloT() failed");
    VASK_ASSERT(pT != 0);
  }
  return pT;
}

bool VertexVault::getThreeInitialPoints(Point2*& p0, Point2*& p1, Point2*& p2) {
  VASK_ASSERT(!vIdxVtxAct.empty());
  VASK_ASSERT(!bFullDimensional);
  p0 = p1 = p2 = nullptr;
  if (vIdxVtxAct.size() < 3) return false;
  KiroTest& kiroTest(pDt2->getKiroTest());
  for (IdxVtxAct* pRec : vIdxVtxAct) {
    if (!pRec->bActive) continue;
    if (p0 == nullptr) {
      p0 = pRec->pVtx;
    } else if (p1 == nullptr) {
      if (*pRec->pVtx != *p0) p1 = pRec->pVtx;
    } else if (kiroTest.getOrientation2(p0, p1, pRec->pVtx) != ORIENTATION2_COLLINEAR) {
      p2 = pRec->pVtx;
      break;
    }
  }
  if (p2 == nullptr) return false;
  if (kiroTest.getOrientation2(p0, p1, p2) == ORIENTATION2_CW) std::swap(p1, p2);
  VASK_ASSERT(kiroTest.getOrientation2(p0, p1, p2) == ORIENTATION2_CCW);
  return true;
}

Triangle2* VertexVault::getOneValidTriangle() const {
  if (!bFullDimensional) {
    logWarning("getOneValidTriangle()", "Triangulation is not 2D, returning NULL");
    return nullptr;
  }
  for (const IdxVtxAct* pRec : vIdxVtxAct) {
    if (!pRec->bActive) continue;
    Triangle2* pIncT(pRec->pVtx->getIncidentTriangle());
    VASK_ASSERT(pIncT != NULL);
    return pIncT;
  }
  logWarning("getOneValidTriangle()", "No valid triangle found");
  return nullptr;
}

void VertexVault::getRange(size_t pos, VtxRecIt& first, VtxRecIt& last) {
  first = vIdxVtxAct.begin() + pos;
  last = vIdxVtxAct.end();
}

void VertexVault::getRange(size_t pos, VtxRecConstIt& first, VtxRecConstIt& last) const {
  first = vIdxVtxAct.begin() + pos;
  last = vIdxVtxAct.end();
}

// Different points may share an idx: both look around equal keys, then fall
// back to a backward scan over all records, which covers the unsorted tail
// (and, while the keys are stale, is the only search).
size_t VertexVault::getIdxOfActiveVtx(const Point2* pQuery) const {
  if (numSorted > 0 && !bKeysStale) {
    const uint32_t idx(pDt2->getHilbertIndex(pQuery->x(), pQuery->y()));
    const size_t pos(bisect(idx));
    for (size_t i = pos + 1; i-- > 0 && vIdxVtxAct[i]->idx == idx;)
      if (vIdxVtxAct[i]->pVtx == pQuery && vIdxVtxAct[i]->bActive) return i;
    for (size_t i = pos; i < numSorted && vIdxVtxAct[i]->idx == idx; ++i)
      if (vIdxVtxAct[i]->pVtx == pQuery && vIdxVtxAct[i]->bActive) return i;
  }
  for (size_t i = vIdxVtxAct.size(); i-- > 0;)
    if (vIdxVtxAct[i]->pVtx == pQuery && vIdxVtxAct[i]->bActive) return i;
  logError("VertexVault::getIdxOfActiveVtx", "pQuery not found");
  VASK_ASSERT(false);
  return 0x7fffffff;
}

Point2* VertexVault::findActive(const Point2& q) const {
  if (numSorted > 0 && !bKeysStale) {
    const uint32_t idx(pDt2->getHilbertIndex(q.x(), q.y()));
    const size_t pos(bisect(idx));
    for (size_t i = pos + 1; i-- > 0 && vIdxVtxAct[i]->idx == idx;)
      if (vIdxVtxAct[i]->bActive && *vIdxVtxAct[i]->pVtx == q) return vIdxVtxAct[i]->pVtx;
    for (size_t i = pos; i < numSorted && vIdxVtxAct[i]->idx == idx; ++i)
      if (vIdxVtxAct[i]->bActive && *vIdxVtxAct[i]->pVtx == q) return vIdxVtxAct[i]->pVtx;
  }
  for (size_t i = vIdxVtxAct.size(); i-- > 0;)
    if (vIdxVtxAct[i]->bActive && *vIdxVtxAct[i]->pVtx == q) return vIdxVtxAct[i]->pVtx;
  return nullptr;
}

void VertexVault::getVertices(std::vector<Point2*>& vVertices) const {
  vVertices.clear();
  vVertices.reserve(numActive);
  for (const IdxVtxAct* pRec : vIdxVtxAct)
    if (pRec->bActive) vVertices.push_back(pRec->pVtx);
}

Bbox2 VertexVault::getBbox() const {
  Bbox2 box;
  for (const IdxVtxAct* pIdxVtxAct : vIdxVtxAct) {
    if (pIdxVtxAct->bActive) {
      box.add(*pIdxVtxAct->pVtx);
    } else {
      VASK_ASSERT(pIdxVtxAct->pVtx->getIncidentTriangle() == NULL);
    }
  }
  return box;
}

unsigned VertexVault::numberOfPoints() const {
  unsigned num(0);
  for (const IdxVtxAct* pRec : vIdxVtxAct)
    if (pRec->bActive) ++num;
  return num;
}

// ---------------------------------------------------------------------------
// Order

bool VertexVault::isRebuildDue() const {
  const bool bGrown(vIdxVtxAct.size() > 1.35 * numSorted);
  const bool bThinned(numRemoved > 0.5 * numSorted && numRemoved >= 1001);
  return bGrown || bThinned;
}

void VertexVault::rebuild(bool bLazy) {
  if (bLazy && !isRebuildDue()) return;
  numRemoved = 0;
  dropLineIndex();
  // Inactive records sort behind all active ones and are then cut off: drop
  // them first, keeping the order of the rest, so that a single batch that
  // was appended in curve order needs no sort at all.
  vIdxVtxAct.erase(std::remove_if(vIdxVtxAct.begin(), vIdxVtxAct.end(),
                                  [](const IdxVtxAct* pRec) { return !pRec->bActive; }),
                   vIdxVtxAct.end());
  if (!std::is_sorted(vIdxVtxAct.begin(), vIdxVtxAct.end(), recordLess)) {
    // Commonly two sorted runs: the old sorted part and one new batch.
    VtxRecIt split(std::is_sorted_until(vIdxVtxAct.begin(), vIdxVtxAct.end(), recordLess));
    if (std::is_sorted(split, vIdxVtxAct.end(), recordLess)) {
      std::inplace_merge(vIdxVtxAct.begin(), split, vIdxVtxAct.end(), recordLess);
    } else {
      sortRecords(vIdxVtxAct.begin(), vIdxVtxAct.end());
    }
  }
  numSorted = vIdxVtxAct.size();
  numActive = numSorted;
}

// New keys for all records, then the rebuild: in one pass over the records,
// which also drops the inactive ones and collects the pairs for the radix
// sort (the box grows often when points arrive in sorted order).
void VertexVault::reindex() {
  bKeysStale = false;
  dropLineIndex();
  const size_t n(vIdxVtxAct.size());
  if ((pDt2->getNumCPU() > 3 && n >= 10000) || n > 0xffffffffu) {
    for (IdxVtxAct* pRec : vIdxVtxAct) pRec->idx = pDt2->getHilbertIndex(pRec->pVtx->x(), pRec->pVtx->y());
    rebuild(false);
    return;
  }
  std::vector<uint64_t> vPairs;
  vPairs.reserve(n);
  size_t numKept(0);
  for (size_t i = 0; i < n; ++i) {
    IdxVtxAct* pRec(vIdxVtxAct[i]);
    pRec->idx = pDt2->getHilbertIndex(pRec->pVtx->x(), pRec->pVtx->y());
    if (!pRec->bActive) continue;
    vPairs.push_back((uint64_t(pRec->idx) << 32) | uint64_t(numKept));
    vIdxVtxAct[numKept++] = pRec;
  }
  vIdxVtxAct.resize(numKept);
  radixSortKeys(vPairs.data(), numKept);
  std::vector<IdxVtxAct*> vSorted(numKept);
  for (size_t k = 0; k < numKept; ++k) vSorted[k] = vIdxVtxAct[static_cast<uint32_t>(vPairs[k])];
  vIdxVtxAct.swap(vSorted);
  numRemoved = 0;
  numSorted = numActive = numKept;
}

void VertexVault::refreshStaleKeys(size_t splitPos) {
  if (!bKeysStale) return;
  bKeysStale = false;
  dropLineIndex();
  for (IdxVtxAct* pRec : vIdxVtxAct) pRec->idx = pDt2->getHilbertIndex(pRec->pVtx->x(), pRec->pVtx->y());
  const VtxRecIt split(vIdxVtxAct.begin() + static_cast<std::ptrdiff_t>(splitPos));
  if (!std::is_sorted(vIdxVtxAct.begin(), split, recordLess)) sortRecords(vIdxVtxAct.begin(), split);
  if (!std::is_sorted(split, vIdxVtxAct.end(), recordLess)) sortRecords(split, vIdxVtxAct.end());
  // As a re-keying at the growth would have left it: the records before the
  // split are the sorted part, a batch behind it is the tail that the
  // settling of its duplicates scans.
  numSorted = splitPos;
}

// Each addition takes a vertex and a record from their pools in lockstep,
// so the record of the n-th vertex is normally the n-th record: found
// without a search, and checked. Anything else goes through the lookup.
IdxVtxAct* VertexVault::findActiveRecord(const Point2* pVtx) const {
  size_t poolIndex(0);
  if (pDt2->getVertexPoolIndex(pVtx, poolIndex)) {
    IdxVtxAct* pRec(recordPoolIndex.getElement(recordPool, poolIndex));
    if (pRec != nullptr && pRec->pVtx == pVtx && pRec->bActive) return pRec;
  }
  const size_t vertexPos(getIdxOfActiveVtx(pVtx));
  VASK_ASSERT(vIdxVtxAct[vertexPos]->pVtx == pVtx);
  return vIdxVtxAct[vertexPos];
}

void VertexVault::prefetchRecord(size_t vertexPoolIndex) const {
  IdxVtxAct* pRec(recordPoolIndex.getElement(recordPool, vertexPoolIndex));
  if (pRec != nullptr) __builtin_prefetch(pRec, 1);
}

void VertexVault::removeVertexRecord(Point2* pRemovedVertex) {
  VASK_ASSERT(!vIdxVtxAct.empty());
  ++numRemoved;
  dropLineIndex();
  pRemovedVertex->setIncidentTriangle(nullptr);
  IdxVtxAct* pRec(findActiveRecord(pRemovedVertex));
  VASK_ASSERT(pRec->bActive == true);
  pRec->bActive = false;
  --numActive;
  if (!bFullDimensional) rebuild(false);
}

// ---------------------------------------------------------------------------
// Fake box

bool VertexVault::createFakeBox(const Bbox2& box) {
  VASK_ASSERT(vFakeBoxHandles.empty());
  dropLineIndex();
  // Half ranges, halved before the subtraction so that data spread over the
  // whole double range cannot overflow them; the box grows by 1% of each range.
  const double halfX(box.get_maxX() / 2 - box.get_minX() / 2), halfY(box.get_maxY() / 2 - box.get_minY() / 2);
  double dx(halfX * 0.01), dy(halfY * 0.01);
  // Collinear or single-point data give a flat box: give each flat axis the
  // other axis' extent (or the coordinates' magnitude) so the box has area.
  double ext(2.02 * std::max(halfX, halfY));
  if (!(ext > 0.0)) ext = std::max(1e-300, std::max(std::fabs(box.get_minX()), std::fabs(box.get_minY())));
  if (!(dx > 0.0)) dx = ext / 2;
  if (!(dy > 0.0)) dy = ext / 2;
  auto finite = [](double v) { return std::max(-DBL_MAX, std::min(DBL_MAX, v)); };
  double minX(finite(box.get_minX() - dx)), maxX(finite(box.get_maxX() + dx));
  double minY(finite(box.get_minY() - dy)), maxY(finite(box.get_maxY() + dy));
  // The corners must lie strictly outside the data's box, also where the
  // enlargement is below one ulp of the coordinates; data at the largest
  // double leave no room for a finite corner, and then there is no box.
  while (!(minX < box.get_minX()) && minX > -DBL_MAX) minX = std::nextafter(minX, -DBL_MAX);
  while (!(maxX > box.get_maxX()) && maxX < DBL_MAX) maxX = std::nextafter(maxX, DBL_MAX);
  while (!(minY < box.get_minY()) && minY > -DBL_MAX) minY = std::nextafter(minY, -DBL_MAX);
  while (!(maxY > box.get_maxY()) && maxY < DBL_MAX) maxY = std::nextafter(maxY, DBL_MAX);
  if (!(minX < box.get_minX() && maxX > box.get_maxX() && minY < box.get_minY() && maxY > box.get_maxY()))
    return false;
  KiroTest& kiroTest(pDt2->getKiroTest());
  const Point2 aCorners[4] = {Point2(minX, minY), Point2(maxX, minY), Point2(maxX, maxY), Point2(minX, maxY)};
  for (const Point2& corner : aCorners) {
    vFakeBoxHandles.push_back(new Point2(corner));
    kiroTest.updateStaticBound(vFakeBoxHandles.back());
  }
  if (!bFullDimensional) {
    refreshStaleKeys(vIdxVtxAct.size());
    bFullDimensional = true;
    Triangle2* pT0(pDt2->createTriangle(vFakeBoxHandles[0], vFakeBoxHandles[1], vFakeBoxHandles[2]));
    Triangle2* pT1(pDt2->createTriangle(vFakeBoxHandles[0], vFakeBoxHandles[2], vFakeBoxHandles[3]));
    for (int i = 0; i < 3; ++i) {
      pT0->setOppTriangle(i, nullptr);
      pT1->setOppTriangle(i, nullptr);
    }
    pDt2->linkPair(pT0, 1, pT1, 2);
    return true;
  }
  for (Point2* pCorner : vFakeBoxHandles) {
    const uint32_t idx(pDt2->getHilbertIndex(pCorner->x(), pCorner->y()));
    pDt2->insertVertex(pCorner, getCloseTriangle(idx));
  }
  return true;
}

Point2* VertexVault::getFakeBoxCorner(size_t i) const {
  VASK_ASSERT(vFakeBoxHandles.size() > i);
  return vFakeBoxHandles[i];
}

void VertexVault::removeFakeBox() {
  VASK_ASSERT(vFakeBoxHandles.size() == 4);
  for (size_t i = 0; i < 4; ++i) {
    Point2* pCorner(getFakeBoxCorner(i));
    // A corner can lose its last triangle before its turn when the data
    // inside the box has no area.
    if (pCorner->getIncidentTriangle() != nullptr) pDt2->removeHullVertex(pCorner, false);
  }
  for (Point2* pCorner : vFakeBoxHandles) delete pCorner;
  vFakeBoxHandles.clear();
}

void VertexVault::assignCustomIndices() {
  int customIndex(0);
  for (IdxVtxAct* pRec : vIdxVtxAct)
    if (pRec->bActive) pRec->pVtx->setCustomIndex(customIndex++);
}

void VertexVault::checkVault() const {
  logInfo("", "VertexVault::checkVault(): This is a debug check");
  for (const IdxVtxAct* pRec : vIdxVtxAct) {
    VASK_ASSERT(pRec->pVtx != NULL);
    if (bFullDimensional && pRec->bActive && pRec->pVtx->getIncidentTriangle() == nullptr) {
      std::ostringstream oss;
      oss << "pVtx without triangle: " << *pRec->pVtx;
      logError("VertexVault::checkVault()", oss.str());
    }
  }
  logInfo("", "VertexVault::checkVault() survived");
}

} // namespace KIRO_VASK2D
