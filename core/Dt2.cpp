// The triangulation's frame: construction, the growing box and its Hilbert
// key, the supply of triangles, the elementary link and flip, counts and
// settings. The work itself lives in the units by concern: insertion
// (Dt2_insert), batches (Dt2_batch), removal (Dt2_removal), queries and
// validation (Dt2_queries).
#include "core/Dt2.h"
#include "core/PoolIndex.h"
#include "TriangleAroundVertexIterator.h"
#include "support/Histogram.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include "VaskVersion.h"
#include "VertexPair2.h"
#include "Visualizer2.h"
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <new>
#include <set>
#include <sstream>
#include <thread>


namespace KIRO_VASK2D {

namespace {
// Pools take int sizes; a hint beyond this only sizes the first block.
const unsigned MAX_POOL_HINT(1u << 26);
} // namespace


Dt2::Dt2(unsigned numPoints)
    : numCPU(1), hc2(0.0, 0.0, 1.0, 1.0, 30), vertexVault(this),
      pBFullDimensional(&vertexVault.bFullDimensional), bbox(&kiroTest), numAllT(0), pLastVertex(nullptr),
      bKeyMayBeLoose(false), bFastMode(false), pConstraintMgr(nullptr), bSuppressFlips(false),
      progress("Dt2"), numThreadedRanges(0) {
  if (numPoints < 3) numPoints = 3;
  if (numPoints > MAX_POOL_HINT) numPoints = MAX_POOL_HINT;
  vertexPool.init(static_cast<int>(numPoints), -1);
  trianglePool.init(static_cast<int>(2 * numPoints + 10), -1);
  vCheckT.reserve(64);
  clearHullCache();
}

void Dt2::clearHullCache() {
  for (size_t d = 0; d < 2; ++d)
    for (size_t i = 0; i < HULL_CACHE_SIZE; ++i) aHullCache[d][i] = HullCacheEntry{nullptr, nullptr};
}

Dt2::~Dt2() {
  // Zones read the constraint graphs: they go first.
  for (Zone2* pZone : sZones) delete pZone;
  sZones.clear();
  deleteConstraintMgr();
}

// ---------------------------------------------------------------------------
// Box and Hilbert key

bool Dt2::addToBox(const Point2& p) { return bbox.add(p); }

// Doubles the box around its centre so that later points rarely change it,
// raises the static bound of the predicates to the new box and re-keys the
// vault (in the collinear state: marks its keys stale). Bounds are clamped to the finite range so that the box of data near
// the largest double stays finite.
void Dt2::growBox() {
  const double hx(bbox.get_maxX() * 0.5 - bbox.get_minX() * 0.5);
  const double hy(bbox.get_maxY() * 0.5 - bbox.get_minY() * 0.5);
  const double minX(std::max(-DBL_MAX, bbox.get_minX() - hx)), maxX(std::min(DBL_MAX, bbox.get_maxX() + hx));
  const double minY(std::max(-DBL_MAX, bbox.get_minY() - hy)), maxY(std::min(DBL_MAX, bbox.get_maxY() + hy));
  bbox.setMinX(minX);
  bbox.setMaxX(maxX);
  bbox.setMinY(minY);
  bbox.setMaxY(maxY);
  kiroTest.setStaticBound_MT(std::max(std::max(std::fabs(minX), maxX), std::max(std::fabs(minY), maxY)));
  resetHilbertKey();
  // Without triangles the keys serve no walk: they are renewed once, when
  // the triangulation gets area.
  if (*pBFullDimensional) {
    vertexVault.reindex();
  } else {
    vertexVault.markKeysStale();
  }
}

// The curve's box is the doubled box.
void Dt2::resetHilbertKey() { resetHilbertKey(bbox); }

// The curve's box is limited to +-DBL_MAX/2 so that its ranges are finite,
// and given a positive extent in each axis: collinear or single points must
// not leave an axis without cells.
void Dt2::resetHilbertKey(const Bbox2& box) {
  const double lim(DBL_MAX / 2);
  const double minX(std::min(lim, std::max(-lim, box.get_minX())));
  const double minY(std::min(lim, std::max(-lim, box.get_minY())));
  double maxX(std::min(lim, std::max(-lim, box.get_maxX())));
  double maxY(std::min(lim, std::max(-lim, box.get_maxY())));
  // 1e-300 keeps 2^15 cells / range finite (2^15 / 1e-300 < DBL_MAX).
  const double range(std::max(1e-300, std::max(maxX - minX, maxY - minY)));
  if (!(maxX - minX >= 1e-300)) maxX = minX + range;
  if (!(maxY - minY >= 1e-300)) maxY = minY + range;
  hc2.init(minX, minY, maxX, maxY, 30);
}

// The box only grows, but the data can shrink back: a far point inserted and
// removed leaves a box so large that all other vertices share a few key
// cells, and the vault's start triangles become poor. When the vault is
// about to sort anyway, the curve is fitted again to the doubled box of the
// active vertices if the present curve is over 8 times larger, or does not
// hold them. Keys are a locality heuristic only; the box of the predicates
// stays as it is.
void Dt2::refitHilbertKey() {
  // Without a removal the data only grow, and box growth keeps the key fit.
  // After one, the key may be fitted to data that grow again, within the
  // box: so from then on every rebuild checks.
  if (!*pBFullDimensional || !bKeyMayBeLoose) return;
  const Bbox2 tight(vertexVault.getBbox());
  if (!(tight.get_maxX() >= tight.get_minX())) return;
  const double hx(tight.get_maxX() * 0.5 - tight.get_minX() * 0.5);
  const double hy(tight.get_maxY() * 0.5 - tight.get_minY() * 0.5);
  const double tightRange(2 * std::max(hx, hy));
  const double keyRange(std::max(hc2.getRangeX(), hc2.getRangeY()));
  const bool bInside(tight.get_minX() >= hc2.getMinX() && tight.get_maxX() <= hc2.getMaxX() &&
                     tight.get_minY() >= hc2.getMinY() && tight.get_maxY() <= hc2.getMaxY());
  if (bInside && !(keyRange > 8 * tightRange)) return;
  Bbox2 doubled(tight);
  doubled.setMinX(std::max(-DBL_MAX, tight.get_minX() - hx));
  doubled.setMaxX(std::min(DBL_MAX, tight.get_maxX() + hx));
  doubled.setMinY(std::max(-DBL_MAX, tight.get_minY() - hy));
  doubled.setMaxY(std::min(DBL_MAX, tight.get_maxY() + hy));
  resetHilbertKey(doubled);
  vertexVault.reindex();
}

size_t Dt2::numberOfVertexSlots() const {
  size_t num(0);
  for (int i = 0; i < vertexPool.getNumContainers(); ++i) {
    int numUsed(0);
    vertexPool.getContainer(i, numUsed);
    num += static_cast<size_t>(numUsed);
  }
  return num;
}

// ---------------------------------------------------------------------------
// Triangle supply and links

// Contract: the caller sets all three neighbour slots afterwards; a reused
// dead triangle comes with null slots.
Triangle2* Dt2::createTriangle(Point2* p0, Point2* p1, Point2* p2) {
  Triangle2* pT;
  if (vDeadT.empty()) {
    pT = new (trianglePool.get()) Triangle2();
    ++numAllT;
  } else {
    pT = vDeadT.back();
    vDeadT.pop_back();
  }
  pT->setProperties(p0, p1, p2);
  return pT;
}


bool Dt2::canBeFlipped(Triangle2* pT, int ith) {
  Triangle2* pN(pT->getOppositeTriangle(ith));
  if (pN == nullptr || isConstraintEdge(pT, ith)) return false;
  Point2* a(pT->getCorner(ith));
  Point2* b(pT->getCorner(incIndexBy1(ith)));
  Point2* c(pT->getCorner(incIndexBy2(ith)));
  Point2* q(pN->getCorner(pN->getIntraTriangleIndex(pT)));
  return kiroTest.getOrientation2(a, q, b) == ORIENTATION2_CW && kiroTest.getOrientation2(a, q, c) == ORIENTATION2_CCW;
}

// ---------------------------------------------------------------------------
// Counts and settings

unsigned Dt2::numberOfTriangles() const {
  const size_t numDeadT(vDeadT.size());
  VASK_ASSERT(numDeadT <= numAllT);
  return static_cast<unsigned>(numAllT - numDeadT);
}

void Dt2::getTrianglePointers(std::vector<Triangle2*>& vAllTriangles) const {
  vAllTriangles.clear();
  if (!*pBFullDimensional) return;
  vAllTriangles.reserve(numberOfTriangles());
  // Pool order is the order of allocation; dead triangles have no corners.
  for (int b = 0; b < trianglePool.getNumContainers(); ++b) {
    int numUsed(0);
    Triangle2* pBlock(trianglePool.getContainer(b, numUsed));
    for (int i = 0; i < numUsed; ++i)
      if (pBlock[i].getCorner(0) != nullptr) vAllTriangles.push_back(pBlock + i);
  }
}

int Dt2::setNumCPU(int numCPU_) {
  if (numCPU_ > 0) {
    numCPU = numCPU_;
  } else if (numCPU_ < 0) {
    numCPU = 1;
  } else {
    numCPU = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  }
  return numCPU;
}

bool Dt2::getDev(const std::string& key, int& iVal, double& dVal) const {
  std::map<std::string, std::pair<int, double> >::const_iterator it(mDevValues.find(key));
  if (it == mDevValues.end()) return false;
  iVal = it->second.first;
  dVal = it->second.second;
  return true;
}

} // namespace KIRO_VASK2D
