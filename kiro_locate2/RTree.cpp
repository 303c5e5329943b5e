#include "kiro_locate2/RTree.h"
#include "kiro_tools/HC2.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

namespace KIRO_LOCATE2 {

using KIRO_VASK2D::GSS_HC2;

namespace {
/** Bits of a key: 15 levels of the curve, 32768 cells per axis. */
const int KEY_BITS = 30;
/** Runs of equal keys up to this length stay as they are: they fill a few
 * lowest-level nodes at most, and keying them again would cost more than it saves. */
const size_t RUN_LIMIT = 8;

/** Sorts entries (key << 32 | object index) by key, stably, so that equal
 * keys keep their order. Small ranges by comparison (the index only breaks
 * ties the same way), large ones by three passes of 10 bits over the 30-bit key. */
void sortByKey(uint64_t* aEntry, size_t n, std::vector<uint64_t>& vTmp) {
  if (n < 512) {
    std::sort(aEntry, aEntry + n);
    return;
  }
  vTmp.resize(std::max(vTmp.size(), n));
  uint64_t *pFrom(aEntry), *pTo(vTmp.data());
  for (int shift = 32; shift < 32 + KEY_BITS; shift += 10) {
    size_t count[1025] = {0};
    for (size_t i = 0; i < n; ++i) ++count[((pFrom[i] >> shift) & 1023u) + 1];
    for (int b = 0; b < 1024; ++b) count[b + 1] += count[b];
    for (size_t i = 0; i < n; ++i) pTo[count[(pFrom[i] >> shift) & 1023u]++] = pFrom[i];
    std::swap(pFrom, pTo);
  }
  // Three passes end in the scratch buffer.
  std::copy(pFrom, pFrom + n, aEntry);
}
} // namespace

RTree::RTree()
    : xmin(DBL_MAX), ymin(DBL_MAX), xmax(-DBL_MAX), ymax(-DBL_MAX), bBuilt(false), numLevels(0), numBoxTests(0) {}

void RTree::addObject(void* pObject, double xmin_, double ymin_, double xmax_, double ymax_, uint32_t tag) {
  VASK_ASSERT(!bBuilt);
  VASK_ASSERT(xmin_<=xmax_);
  VASK_ASSERT(ymin_<=ymax_);
  const RTreeLeaf leaf = {pObject, xmin_, ymin_, xmax_, ymax_, uint32_t(vLeaves.size()), 0u, tag};
  vLeaves.push_back(leaf);
  xmin = std::min(xmin, xmin_);
  ymin = std::min(ymin, ymin_);
  xmax = std::max(xmax, xmax_);
  ymax = std::max(ymax, ymax_);
}

void RTree::query(double qMinX, double qMinY, double qMaxX, double qMaxY, std::vector<const RTreeLeaf*>& vOut) {
  visit(qMinX, qMinY, qMaxX, qMaxY, [&vOut](const RTreeLeaf* pLeaf) { vOut.push_back(pLeaf); });
}

void RTree::build() {
  if (bBuilt) return;
  bBuilt = true;
  if (vLeaves.empty()) return;
  VASK_ASSERT(vLeaves.size()<0x7fffffff);
  sortByKeys();
  buildLevels();
}

void RTree::sortByKeys() {
  const size_t n(vLeaves.size());
  // Key positions are the box centres halved, 0.25 * min + 0.25 * max: the
  // distance of any two of them is at most DBL_MAX, so no extent overflows,
  // and the halving loses nothing but subnormal detail, which only the
  // locality of the curve would use.
  std::vector<double> vCentre(2 * n);
  for (size_t i = 0; i < n; ++i) {
    vCentre[2 * i] = 0.25 * vLeaves[i].xmin + 0.25 * vLeaves[i].xmax;
    vCentre[2 * i + 1] = 0.25 * vLeaves[i].ymin + 0.25 * vLeaves[i].ymax;
  }
  std::vector<uint64_t> vEntry(n), vTmp;
  for (size_t i = 0; i < n; ++i) vEntry[i] = uint64_t(i);

  // The whole set is the first run. A run whose centres differ gets two
  // different keys at least (its extreme centres fall into the first and the
  // last cell of an axis), so every round splits it; and since a sub-run
  // lies within one cell, each round shrinks the extent by 2^15, which ends
  // the rounds after at most about 140 levels for any doubles.
  std::vector<std::pair<size_t, size_t> > vRuns(1, std::make_pair(size_t(0), n));
  GSS_HC2 curve(0.0, 0.0, 1.0, 1.0, KEY_BITS);
  while (!vRuns.empty()) {
    const size_t begin(vRuns.back().first), end(vRuns.back().second);
    vRuns.pop_back();
    double minX(DBL_MAX), minY(DBL_MAX), maxX(-DBL_MAX), maxY(-DBL_MAX);
    for (size_t k = begin; k < end; ++k) {
      const size_t i(size_t(vEntry[k] & 0xffffffffu));
      minX = std::min(minX, vCentre[2 * i]);
      maxX = std::max(maxX, vCentre[2 * i]);
      minY = std::min(minY, vCentre[2 * i + 1]);
      maxY = std::max(maxY, vCentre[2 * i + 1]);
    }
    if (minX == maxX && minY == maxY) continue;
    curve.init(minX, minY, maxX, maxY, KEY_BITS);
    for (size_t k = begin; k < end; ++k) {
      const uint64_t i(vEntry[k] & 0xffffffffu);
      vEntry[k] = uint64_t(curve.getKey(vCentre[2 * i], vCentre[2 * i + 1])) << 32 | i;
    }
    sortByKey(&vEntry[begin], end - begin, vTmp);
    for (size_t k = begin; k < end;) {
      size_t runEnd(k + 1);
      while (runEnd < end && (vEntry[runEnd] >> 32) == (vEntry[k] >> 32)) ++runEnd;
      // A round that leaves the run whole (centres that are not numbers, say)
      // would only repeat itself.
      if (runEnd - k > RUN_LIMIT && !(k == begin && runEnd == end)) vRuns.push_back(std::make_pair(k, runEnd));
      k = runEnd;
    }
  }

  std::vector<RTreeLeaf> vSorted(n);
  for (size_t k = 0; k < n; ++k) {
    vSorted[k] = vLeaves[size_t(vEntry[k] & 0xffffffffu)];
    vSorted[k].key = uint32_t(vEntry[k] >> 32);
  }
  vLeaves.swap(vSorted);
}

namespace {
/** The largest float not above v (v finite or infinite, never NaN), in any rounding mode. */
float floatDown(double v) {
  const float f(static_cast<float>(v));
  return double(f) > v ? std::nextafter(f, -HUGE_VALF) : f;
}
/** The smallest float not below v. */
float floatUp(double v) {
  const float f(static_cast<float>(v));
  return double(f) < v ? std::nextafter(f, HUGE_VALF) : f;
}
} // namespace

void RTree::buildLevels() {
  const std::size_t n(vLeaves.size());
  // n/2 lowest nodes, then an eighth of each level above: fewer than 0.6 n + 12 in all.
  vNodeBoxes.reserve(n / 2 + n / 14 + 2 * MAX_LEVELS);
  aLevelOffset[0] = 0;
  for (std::size_t start = 0; start < n; start += 2) {
    const std::size_t end(std::min(start + 2, n));
    double minX(DBL_MAX), minY(DBL_MAX), maxX(-DBL_MAX), maxY(-DBL_MAX);
    for (std::size_t i = start; i < end; ++i) {
      minX = std::min(minX, vLeaves[i].xmin);
      minY = std::min(minY, vLeaves[i].ymin);
      maxX = std::max(maxX, vLeaves[i].xmax);
      maxY = std::max(maxY, vLeaves[i].ymax);
    }
    const NodeBox box = {floatDown(minX), floatDown(minY), floatUp(maxX), floatUp(maxY)};
    vNodeBoxes.push_back(box);
  }
  aLevelSize[0] = vNodeBoxes.size();
  numLevels = 1;
  while (aLevelSize[numLevels - 1] > 1) {
    VASK_ASSERT(numLevels<MAX_LEVELS);
    const std::size_t below(aLevelOffset[numLevels - 1]), belowSize(aLevelSize[numLevels - 1]);
    aLevelOffset[numLevels] = vNodeBoxes.size();
    for (std::size_t first = 0; first < belowSize; first += 8) {
      // Unions of float boxes are exact: no further widening.
      NodeBox box(vNodeBoxes[below + first]);
      for (std::size_t c = first + 1; c < std::min(first + 8, belowSize); ++c) {
        const NodeBox& child(vNodeBoxes[below + c]);
        box.minX = std::min(box.minX, child.minX);
        box.minY = std::min(box.minY, child.minY);
        box.maxX = std::max(box.maxX, child.maxX);
        box.maxY = std::max(box.maxY, child.maxY);
      }
      vNodeBoxes.push_back(box);
    }
    aLevelSize[numLevels] = vNodeBoxes.size() - aLevelOffset[numLevels];
    ++numLevels;
  }
}

} // namespace KIRO_LOCATE2
