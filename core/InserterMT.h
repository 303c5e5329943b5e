#pragma once
#include "core/VertexVault.h"
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace KIRO_VASK2D {

class Chunk;
class Dt2;
class Triangle2;

/** Runs a function over a list of work items on a number of threads. The
 * threads take the items in order from a shared counter; all are joined
 * before run returns. An exception on a worker stops the others from taking
 * new items and is thrown again on the calling thread after the joins: a
 * worker thread must never let one escape, which would end the process. */
template <class T> class MTCtrl {
public:
  template <class F> void run(std::vector<T*>& vItems, int numThreads, F f) {
    std::atomic<size_t> next(0);
    std::atomic<bool> bStop(false);
    std::exception_ptr pError;
    std::mutex mtxError;
    auto work = [&]() {
      try {
        for (size_t i = next++; i < vItems.size() && !bStop; i = next++) f(vItems[i]);
      } catch (...) {
        std::lock_guard<std::mutex> lock(mtxError);
        if (!pError) pError = std::current_exception();
        bStop = true;
      }
    };
    startAndJoin(numThreads, work);
    if (pError) std::rethrow_exception(pError);
  }
  /** Runs work() on numThreads threads (the calling thread takes over when
   * the system refuses to start one) and joins them in order of creation. */
  template <class W> void startAndJoin(int numThreads, W& work) {
    vThreads.clear();
    try {
      for (int t = 0; t < numThreads; ++t) vThreads.emplace_back(work);
    } catch (...) {
      // No more threads: the ones that started will do the work.
    }
    if (vThreads.empty()) work();
    for (std::thread& th : vThreads) th.join();
    vThreads.clear();
  }

private:
  std::vector<std::thread> vThreads;
};

/** Figures of the last multi-threaded insertion, for benchmarks and tests. */
struct InserterMTStats {
  size_t numVertices = 0;
  size_t numSample = 0;
  size_t numChunks = 0;
  int numThreads = 0;
  size_t numUnboundedChunks = 0; // chunks whose extended box had to be the whole plane
  double secondsSample = 0.0;    // the sample, inserted on the calling thread
  double secondsPrepare = 0.0;   // chunk construction and extended boxes
  double secondsWork = 0.0;      // from the first worker's start to the last join
  double secondsHandOver = 0.0;  // after the joins: results handed over, chunks freed
  double secondsWaiting = 0.0;   // summed over workers: time spent waiting for a free region
  double secondsBusy = 0.0;      // summed over workers: time spent inserting chunks
  // Processor time of the whole process (all threads) in the same phases:
  // unlike the wall times, it does not depend on what else the machine runs.
  double cpuSample = 0.0;
  double cpuPrepare = 0.0;
  double cpuWork = 0.0;
};

/** Multi-threaded insertion of a range of vault records into a mesh
 * surrounded by the fake box. The range, sorted along the curve, is cut
 * into an evenly spaced sample, which goes in first on the calling thread
 * and gives the mesh its coarse shape, and chunks of the rest. Workers take
 * chunks whose extended boxes meet no running chunk's box, so that no two
 * of them can touch the same triangle or vertex (see Chunk.cpp): the mesh
 * needs no locks. A worker that finds every waiting chunk blocked sleeps on
 * a condition variable until a running chunk finishes. */
class InserterMT {
public:
  InserterMT(Dt2* pDt2, VtxRecIt first, VtxRecIt last, int numThreads);
  ~InserterMT();
  InserterMT(const InserterMT&) = delete;
  InserterMT& operator=(const InserterMT&) = delete;

  /** Inserts the range; pStart is a triangle near its first vertex. */
  void go(Triangle2* pStart);
  /** Runs all waiting chunks to their end on numThreads workers. */
  void startWork(int numThreads);
  const InserterMTStats& getStats() const { return stats; }

  /** The cut of n dense vertices into numChunks pieces of [begin, end):
   * pieces of n / numChunks, and a rest below 1000 that is not above a
   * third of a piece joins the last piece. */
  static void cutIntoChunks(size_t n, size_t numChunks, std::vector<std::pair<size_t, size_t> >& vPieces);

private:
  void workerLoop();
  /** The first waiting chunk whose extended box meets no running chunk's
   * box, moved to the running list; null if none. Call with mtx held. */
  Chunk* getNextChunk();

  Dt2* pDt2;
  std::vector<IdxVtxAct*>* pVRecords;
  size_t firstIdx;
  size_t lastIdx;
  int numThreads;
  std::mutex mtx; // guards the three lists, bAbort and pFirstError
  std::condition_variable cvChunkDone;
  std::list<Chunk*> lWaiting;
  std::list<Chunk*> lRunning;
  std::list<Chunk*> lFinished;
  std::vector<Chunk*> vAllChunks; // owner of every chunk, in order of creation
  std::exception_ptr pFirstError;
  bool bAbort;
  int failChunkId; // a developer value: this chunk fails on purpose (tests)
  MTCtrl<Chunk> mtCtrl;
  InserterMTStats stats;
};

} // namespace KIRO_VASK2D
