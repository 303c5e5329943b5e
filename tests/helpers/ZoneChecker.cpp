#include "helpers/ZoneChecker.h"
#include "helpers/Rational.h"
#include "ConstraintGraph2.h"
#include "Triangle2.h"
#include "Vask_2D.h"
#include <gmp.h>
#include <sstream>
#include <map>
#include <numeric>
#include <set>
#include <unordered_map>
#include <unordered_set>

using KIRO_VASK2D::Point2;
using KIRO_VASK2D::Triangle2;

namespace vask_test {
namespace {

typedef Rational Q;

// Sign of the orientation of (u, w, p) with p rational.
int orientation(const Q& ux, const Q& uy, const Q& wx, const Q& wy, const Q& px, const Q& py) {
  return ((wx - ux) * (py - uy) - (wy - uy) * (px - ux)).sign();
}

Q cross(const Point2& a, const Point2& b) { return Q(a.x()) * Q(b.y()) - Q(b.x()) * Q(a.y()); }

} // namespace

void ZoneCheck::fail(const std::string& text) {
  if (ok) firstError = text;
  ok = false;
  ++numErrors;
}

Fence ringFence(const std::vector<Point2>& vRing) {
  Fence fence;
  for (size_t i = 0; i < vRing.size(); ++i) fence.emplace_back(vRing[i], vRing[(i + 1) % vRing.size()]);
  return fence;
}

Fence graphFence(const KIRO_VASK2D::ConstraintGraph2* pCG) {
  std::vector<Point2*> vPairs;
  pCG->getPolygonVertices(vPairs);
  Fence fence;
  for (size_t i = 0; i + 1 < vPairs.size(); i += 2) fence.emplace_back(*vPairs[i], *vPairs[i + 1]);
  return fence;
}

void appendFence(Fence& fence, const Fence& more) { fence.insert(fence.end(), more.begin(), more.end()); }

namespace {
struct QSegment {
  Q ux, uy, wx, wy;
};
std::vector<QSegment> toQ(const Fence& fence) {
  std::vector<QSegment> v;
  v.reserve(fence.size());
  for (const auto& seg : fence)
    v.push_back(QSegment{Q(seg.first.x()), Q(seg.first.y()), Q(seg.second.x()), Q(seg.second.y())});
  return v;
}

// The crossing rule: an upward segment that has the point strictly on its
// left counts +1, a downward one with the point strictly on its right -1;
// half-open in y, so a vertex at the point's height counts once.
int windingQ(const Point2& a, const Point2& b, const Point2& c, const std::vector<QSegment>& vSeg, bool& bOnFence) {
  const Q third(Q::fraction(1, 3));
  const Q px((Q(a.x()) + Q(b.x()) + Q(c.x())) * third);
  const Q py((Q(a.y()) + Q(b.y()) + Q(c.y())) * third);
  bOnFence = false;
  int winding(0);
  for (const QSegment& s : vSeg) {
    const int cu(compare(s.uy, py)), cw(compare(s.wy, py));
    if ((cu > 0 && cw > 0) || (cu < 0 && cw < 0)) continue;
    const int ori(orientation(s.ux, s.uy, s.wx, s.wy, px, py));
    if (ori == 0) {
      // On the line: on the segment when within its box.
      const bool bUFirst(compare(s.ux, s.wx) < 0);
      const Q& loX(bUFirst ? s.ux : s.wx);
      const Q& hiX(bUFirst ? s.wx : s.ux);
      if (compare(px, loX) >= 0 && compare(px, hiX) <= 0) bOnFence = true;
      continue;
    }
    if (cu <= 0 && cw > 0 && ori > 0) ++winding;
    else if (cw <= 0 && cu > 0 && ori < 0) --winding;
  }
  return winding;
}
} // namespace

int centroidWinding(const Point2& a, const Point2& b, const Point2& c, const Fence& fence, bool& bOnFence) {
  return windingQ(a, b, c, toQ(fence), bOnFence);
}

ZoneCheck checkZoneMembership(KIRO_VASK2D::Vask_2D& dt, const std::vector<Triangle2*>& vZone, const Fence& fence,
                              const std::function<bool(int)>& bWanted) {
  ZoneCheck check;
  std::vector<Triangle2*> vAll;
  dt.getTrianglePointers(vAll);
  std::unordered_set<const Triangle2*> sAll(vAll.begin(), vAll.end()), sZone;
  for (const Triangle2* pT : vZone) {
    if (sAll.count(pT) == 0) check.fail("zone triangle is no alive triangle of the mesh");
    if (!sZone.insert(pT).second) check.fail("zone triangle listed twice");
  }
  check.numInZone = sZone.size();
  const std::vector<QSegment> vSeg(toQ(fence));
  for (const Triangle2* pT : vAll) {
    bool bOnFence(false);
    const int w(windingQ(*pT->getCorner(0), *pT->getCorner(1), *pT->getCorner(2), vSeg, bOnFence));
    const bool bIn(sZone.count(pT) != 0);
    std::ostringstream oss;
    oss << "triangle " << *pT->getCorner(0) << " " << *pT->getCorner(1) << " " << *pT->getCorner(2);
    if (bOnFence) check.fail(oss.str() + ": its centroid lies on a fence (the fence is no mesh edge there)");
    else if (bWanted(w) != bIn)
      check.fail(oss.str() + (bIn ? " is in the zone" : " is not in the zone") + " at winding number " +
                 std::to_string(w));
  }
  return check;
}

namespace {
Q doubleAreaQ(const std::vector<Triangle2*>& vZone) {
  Q sum;
  for (const Triangle2* pT : vZone)
    sum = sum + cross(*pT->getCorner(0), *pT->getCorner(1)) + cross(*pT->getCorner(1), *pT->getCorner(2)) +
          cross(*pT->getCorner(2), *pT->getCorner(0));
  return sum;
}
Q fenceAreaQ(const Fence& fence) {
  Q sum;
  for (const auto& seg : fence) sum = sum + cross(seg.first, seg.second);
  return sum;
}
} // namespace

int compareAreaWithFence(const std::vector<Triangle2*>& vZone, const Fence& fence) {
  return compare(doubleAreaQ(vZone), fenceAreaQ(fence));
}
int compareAreaSums(const std::vector<std::vector<Triangle2*> >& vLeft,
                    const std::vector<std::vector<Triangle2*> >& vRight) {
  Q left, right;
  for (const std::vector<Triangle2*>& v : vLeft) left = left + doubleAreaQ(v);
  for (const std::vector<Triangle2*>& v : vRight) right = right + doubleAreaQ(v);
  return compare(left, right);
}
namespace {
double inUnits(const Q& area, double unit) {
  const Q u(unit);
  return (area / u / u).toDouble();
}
} // namespace
double exactDoubleAreaOf(const std::vector<Triangle2*>& vZone, double unit) {
  return inUnits(doubleAreaQ(vZone), unit);
}
double fenceDoubleArea(const Fence& fence, double unit) { return inUnits(fenceAreaQ(fence), unit); }

namespace {
typedef std::pair<Point2*, Point2*> PP;

// The mesh cut into regions along the alive leaves of the graphs (only
// where they are edges): a union-find over the triangles.
struct Regions {
  std::vector<Triangle2*> vAll;
  std::vector<size_t> vParent;
  std::map<PP, size_t> mDirected; // edge from corner i+1 to corner i+2: the triangle on its left
  std::vector<std::vector<Point2*> > vPairsPerGraph;

  Regions(KIRO_VASK2D::Vask_2D& dt, const std::vector<KIRO_VASK2D::ConstraintGraph2*>& vGraphs) {
    dt.getTrianglePointers(vAll);
    std::unordered_map<const Triangle2*, size_t> mIndex;
    for (size_t k = 0; k < vAll.size(); ++k) {
      mIndex[vAll[k]] = k;
      for (int i = 0; i < 3; ++i) mDirected[PP(vAll[k]->getCorner((i + 1) % 3), vAll[k]->getCorner((i + 2) % 3))] = k;
    }
    std::set<PP> sFence;
    for (const KIRO_VASK2D::ConstraintGraph2* pCG : vGraphs) {
      vPairsPerGraph.emplace_back();
      pCG->getPolygonVertices(vPairsPerGraph.back());
      const std::vector<Point2*>& v(vPairsPerGraph.back());
      for (size_t i = 0; i + 1 < v.size(); i += 2) sFence.insert(undirected(v[i], v[i + 1]));
    }
    vParent.resize(vAll.size());
    std::iota(vParent.begin(), vParent.end(), 0);
    for (size_t k = 0; k < vAll.size(); ++k)
      for (int i = 0; i < 3; ++i) {
        const Triangle2* pN(vAll[k]->getOppositeTriangle(i));
        if (pN == nullptr) continue;
        if (sFence.count(undirected(vAll[k]->getCorner((i + 1) % 3), vAll[k]->getCorner((i + 2) % 3)))) continue;
        vParent[root(k)] = root(mIndex.at(pN));
      }
  }
  static PP undirected(Point2* a, Point2* b) { return PP(std::min(a, b), std::max(a, b)); }
  size_t root(size_t k) {
    while (vParent[k] != k) k = vParent[k] = vParent[vParent[k]];
    return k;
  }
  std::vector<Triangle2*> members(const std::set<size_t>& sRoots) {
    std::vector<Triangle2*> vOut;
    for (size_t k = 0; k < vAll.size(); ++k)
      if (sRoots.count(root(k))) vOut.push_back(vAll[k]);
    return vOut;
  }
};

int exactSign(const Point2& a, const Point2& b, const Point2& p) {
  return orientation(Q(a.x()), Q(a.y()), Q(b.x()), Q(b.y()), Q(p.x()), Q(p.y()));
}
} // namespace

std::vector<Triangle2*> expectedFencedZone(KIRO_VASK2D::Vask_2D& dt,
                                          const std::vector<KIRO_VASK2D::ConstraintGraph2*>& vGraphs, bool bInside) {
  Regions regions(dt, vGraphs);
  std::set<size_t> sSeedRoots;
  for (const std::vector<Point2*>& v : regions.vPairsPerGraph) {
    std::map<PP, int> mCount;
    for (size_t i = 0; i + 1 < v.size(); i += 2) ++mCount[Regions::undirected(v[i], v[i + 1])];
    for (size_t i = 0; i + 1 < v.size(); i += 2) {
      if (bInside && mCount[Regions::undirected(v[i], v[i + 1])] > 1) continue;
      const PP wanted(bInside ? PP(v[i], v[i + 1]) : PP(v[i + 1], v[i]));
      const auto it(regions.mDirected.find(wanted));
      if (it != regions.mDirected.end()) sSeedRoots.insert(regions.root(it->second));
    }
  }
  return regions.members(sSeedRoots);
}

bool expectedGrowZone(KIRO_VASK2D::Vask_2D& dt, const std::vector<KIRO_VASK2D::ConstraintGraph2*>& vGraphs,
                      const std::vector<Point2>& vSeeds, std::vector<Triangle2*>& vOut) {
  Regions regions(dt, vGraphs);
  std::set<size_t> sSeedRoots;
  for (const Point2& seed : vSeeds) {
    bool bFound(false);
    for (size_t k = 0; k < regions.vAll.size() && !bFound; ++k) {
      const Triangle2* pT(regions.vAll[k]);
      const Point2 &a(*pT->getCorner(0)), &b(*pT->getCorner(1)), &c(*pT->getCorner(2));
      if (seed.x() < std::min({a.x(), b.x(), c.x()}) || seed.x() > std::max({a.x(), b.x(), c.x()}) ||
          seed.y() < std::min({a.y(), b.y(), c.y()}) || seed.y() > std::max({a.y(), b.y(), c.y()}))
        continue;
      const int s0(exactSign(b, c, seed)), s1(exactSign(c, a, seed)), s2(exactSign(a, b, seed));
      if (s0 < 0 || s1 < 0 || s2 < 0) continue;
      if (s0 == 0 || s1 == 0 || s2 == 0) return false; // on an edge: the side is the library's choice
      sSeedRoots.insert(regions.root(k));
      bFound = true;
    }
    if (!bFound) return false;
  }
  vOut = regions.members(sSeedRoots);
  return true;
}

} // namespace vask_test
