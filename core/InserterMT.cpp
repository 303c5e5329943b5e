// Multi-threaded insertion of a range of vault records: the sample on the
// calling thread, then chunks on workers that never share a region.
#include "core/InserterMT.h"
#include "core/Chunk.h"
#include "core/Dt2.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>

namespace KIRO_VASK2D {

namespace {

// Threads beyond the number of chunks would find nothing to do; beyond this
// limit they only add switching. It caps what runs, not what setNumCPU stores.
const int MAX_WORKER_THREADS(256);

double secondsSince(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Processor time of the process, all threads together.
double cpuSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

} // namespace

InserterMT::InserterMT(Dt2* pDt2_, VtxRecIt first, VtxRecIt last, int numThreads_)
    : pDt2(pDt2_), pVRecords(&pDt2_->getVertexVault().getRecords()), numThreads(std::max(1, numThreads_)),
      bAbort(false), failChunkId(-1) {
  firstIdx = static_cast<size_t>(first - pVRecords->begin());
  lastIdx = static_cast<size_t>(last - pVRecords->begin());
  VASK_ASSERT(firstIdx <= lastIdx && lastIdx <= pVRecords->size());
}

InserterMT::~InserterMT() {
  for (Chunk* pChunk : vAllChunks) delete pChunk;
}

void InserterMT::cutIntoChunks(size_t n, size_t numChunks, std::vector<std::pair<size_t, size_t> >& vPieces) {
  vPieces.clear();
  if (n == 0) return;
  numChunks = std::max<size_t>(1, std::min(numChunks, n));
  const size_t chunkSize(n / numChunks);
  const size_t tailLimit(chunkSize / 3);
  for (size_t i = 0;; ++i) {
    const size_t start(i * chunkSize);
    size_t end(std::min(n, (i + 1) * chunkSize));
    const size_t rest(n - end);
    if (rest < 1000 && rest <= tailLimit) end = n;
    vPieces.push_back(std::make_pair(start, end));
    if (end == n) break;
  }
}

void InserterMT::go(Triangle2* pStart) {
  const std::chrono::steady_clock::time_point tStart(std::chrono::steady_clock::now());
  const double cpuStart(cpuSeconds());
  std::vector<IdxVtxAct*>& vRecords(*pVRecords);
  const size_t count(lastIdx - firstIdx);
  stats = InserterMTStats();
  stats.numVertices = count;
  if (count == 0) return;
  VASK_ASSERT(pDt2->getVertexVault().hasFakeBox());

  // 1. An evenly spaced sample: behind every slice of sliceSize records one.
  const size_t numChunks(std::max<size_t>(1, static_cast<size_t>(2.0 * std::sqrt(static_cast<double>(count)))));
  const size_t numSlices(std::max<size_t>(1, std::min(5 * numChunks, count / 2)));
  const size_t sliceSize(std::max<size_t>(1, count / numSlices));
  std::vector<IdxVtxAct*> vSparseVtx;
  vSparseVtx.reserve(count / sliceSize + 1);
  size_t numDense(0);
  for (size_t pos = firstIdx; pos < lastIdx;) {
    const size_t end(std::min(lastIdx, pos + sliceSize));
    numDense += end - pos;
    pos = end;
    if (pos < lastIdx) vSparseVtx.push_back(vRecords[pos++]);
  }
  VASK_ASSERT(numDense + vSparseVtx.size() == count);
  stats.numSample = vSparseVtx.size();

  // 2. The sample goes in on this thread by the ordinary path. Its records
  // are hidden from the chunks meanwhile: they are in the mesh already, or
  // duplicates already registered.
  if (!vSparseVtx.empty()) pDt2->triangulateRec(vSparseVtx.begin(), vSparseVtx.end(), pStart);
  std::vector<IdxVtxAct*> vHidden;
  vHidden.reserve(vSparseVtx.size());
  for (IdxVtxAct* pRec : vSparseVtx) {
    if (!pRec->bActive) continue;
    pRec->bActive = false;
    vHidden.push_back(pRec);
  }
  stats.secondsSample = secondsSince(tStart);
  const double cpuPrepareStart(cpuSeconds());
  stats.cpuSample = cpuPrepareStart - cpuStart;

  // 3. Chunks over the range, each with its own predicates, prepared in parallel.
  const std::chrono::steady_clock::time_point tPrepare(std::chrono::steady_clock::now());
  std::vector<std::pair<size_t, size_t> > vPieces;
  cutIntoChunks(count, numChunks, vPieces);
  vAllChunks.reserve(vPieces.size());
  for (size_t i = 0; i < vPieces.size(); ++i)
    vAllChunks.push_back(new Chunk(pDt2, &pDt2->getBbox(), static_cast<unsigned>(i), pVRecords,
                                   static_cast<unsigned>(firstIdx + vPieces[i].first),
                                   static_cast<unsigned>(firstIdx + vPieces[i].second)));
  const int numWorkers(static_cast<int>(
      std::min<size_t>(std::min<size_t>(static_cast<size_t>(numThreads), vAllChunks.size()), MAX_WORKER_THREADS)));
  stats.numChunks = vAllChunks.size();
  stats.numThreads = numWorkers;
  mtCtrl.run(vAllChunks, numWorkers, [](Chunk* pChunk) { pChunk->determineExtBox(); });
  for (Chunk* pChunk : vAllChunks)
    if (pChunk->isUnbounded()) ++stats.numUnboundedChunks;
  stats.secondsPrepare = secondsSince(tPrepare);
  const double cpuWorkStart(cpuSeconds());
  stats.cpuPrepare = cpuWorkStart - cpuPrepareStart;

  // 4. The workers. A developer value lets tests make one chunk fail as a
  // broken invariant would.
  double unused(0.0);
  if (!pDt2->getDev("InserterMT.failChunk", failChunkId, unused)) failChunkId = -1;
  lWaiting.assign(vAllChunks.begin(), vAllChunks.end());
  const std::chrono::steady_clock::time_point tWork(std::chrono::steady_clock::now());
  startWork(numWorkers);
  stats.secondsWork = secondsSince(tWork);
  stats.cpuWork = cpuSeconds() - cpuWorkStart;
  if (pFirstError) std::rethrow_exception(pFirstError);

  // 5. Hand-over on this thread: the fresh triangles came back as each chunk
  // ended; the hidden sample records count again, and the chunks go.
  const std::chrono::steady_clock::time_point tHandOver(std::chrono::steady_clock::now());
  VASK_ASSERT(lFinished.size() == vAllChunks.size());
  for (IdxVtxAct* pRec : vHidden) pRec->bActive = true;
  for (Chunk* pChunk : lFinished) delete pChunk;
  lFinished.clear();
  vAllChunks.clear();
  stats.secondsHandOver = secondsSince(tHandOver);
}

void InserterMT::startWork(int numThreads_) {
  if (lWaiting.empty()) return;
  auto work = [this]() { workerLoop(); };
  mtCtrl.startAndJoin(numThreads_, work);
}

Chunk* InserterMT::getNextChunk() {
  for (std::list<Chunk*>::iterator it = lWaiting.begin(); it != lWaiting.end(); ++it) {
    Chunk* pCandidate(*it);
    bool bFree(true);
    for (Chunk* pRunning : lRunning) {
      if (pCandidate->getExtBox().doIntersect(pRunning->getExtBox())) {
        bFree = false;
        break;
      }
    }
    if (!bFree) continue;
    lWaiting.erase(it);
    lRunning.push_back(pCandidate);
    pCandidate->setState(Chunk::CS_RUNNING);
    return pCandidate;
  }
  return nullptr;
}

// Takes free chunks until none waits. Where every waiting chunk meets a
// running one, the worker sleeps until some chunk finishes: only a finished
// chunk can free a region, so no wake-up is missed and no core spins. A
// failure stops the others from taking chunks; the first one is thrown
// again by go after the joins.
void InserterMT::workerLoop() {
  double secondsWaiting(0.0), secondsBusy(0.0);
  for (;;) {
    Chunk* pChunk(nullptr);
    {
      std::unique_lock<std::mutex> lock(mtx);
      for (;;) {
        if (bAbort) break;
        pChunk = getNextChunk();
        if (pChunk != nullptr || lWaiting.empty()) break;
        const std::chrono::steady_clock::time_point t0(std::chrono::steady_clock::now());
        cvChunkDone.wait(lock);
        secondsWaiting += secondsSince(t0);
      }
    }
    if (pChunk == nullptr) break;
    const std::chrono::steady_clock::time_point t0(std::chrono::steady_clock::now());
    try {
      VASK_ASSERT(static_cast<int>(pChunk->getChunkId()) != failChunkId);
      pChunk->triangulate();
    } catch (...) {
      std::lock_guard<std::mutex> lock(mtx);
      if (!pFirstError) pFirstError = std::current_exception();
      bAbort = true;
      lRunning.remove(pChunk);
      lFinished.push_back(pChunk);
      cvChunkDone.notify_all();
      break;
    }
    secondsBusy += secondsSince(t0);
    {
      std::lock_guard<std::mutex> lock(mtx);
      pChunk->setState(Chunk::CS_FINISHED);
      lRunning.remove(pChunk);
      lFinished.push_back(pChunk);
    }
    cvChunkDone.notify_all();
  }
  std::lock_guard<std::mutex> lock(mtx);
  stats.secondsWaiting += secondsWaiting;
  stats.secondsBusy += secondsBusy;
}

} // namespace KIRO_VASK2D
