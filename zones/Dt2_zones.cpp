// Creation and deletion of zones, and the flood from start points.
#include "ConstraintGraph2.h"
#include "ConstraintSegment2.h"
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include "support/Log.h"
#include "TriangleAroundVertexIterator.h"
#include "support/VaskAssert.h"
#include "zones/ZoneFlood.h"
#include <cmath>
#include <limits>
#include <iostream>
#include <sstream>

namespace KIRO_VASK2D {

Zone2* Dt2::addZone(Zone2* pZone) {
  sZones.insert(pZone);
  return pZone;
}

// A graph is usable when it is one of this triangulation's: graphs of
// another triangulation have their own vertices and would fence nothing here.
bool Dt2::isOwnGraph(ConstraintGraph2* pCG, const char* tag) {
  if (pCG == nullptr) {
    logWarning(tag, "One of the constraint graphs is NULL, returning NULL");
    return false;
  }
  if (pCG->getDt2() != this) {
    logWarning(tag, "The constraint graph belongs to another triangulation, returning NULL");
    return false;
  }
  return true;
}

Zone2* Dt2::createZone(ConstraintGraph2* pConstraintGraph, ZoneLocation zoneLoc) {
  const char* const tag("Dt2::createZone()");
  if (!hasArea()) {
    logWarning("Dt2::createZone", "The triangulation has no area yet. Returning NULL");
    return nullptr;
  }
  const int loc(static_cast<int>(zoneLoc));
  if (loc < ZL_GLOBAL || loc > ZL_BOUNDED) {
    std::ostringstream oss;
    oss << "zoneLoc=" << loc << " is no ZoneLocation. Returning NULL";
    logWarning(tag, oss.str());
    return nullptr;
  }
  if (zoneLoc >= ZL_RESULT_UNION && zoneLoc <= ZL_RESULT_SYM_DIFFERENCE) {
    logWarning(tag, "A ZL_RESULT zone comes from zoneUnion, zoneIntersection, zoneDifference or "
                    "zoneSymmetricDifference, not from createZone. Returning NULL");
    return nullptr;
  }
  if (zoneLoc == ZL_GLOBAL) {
    if (pConstraintGraph != nullptr) {
      logWarning(tag, "ZL_GLOBAL takes no constraint graph (pConstraintGraph!=NULL). Returning NULL");
      return nullptr;
    }
    return addZone(new Zone2(this, ZL_GLOBAL));
  }
  if (zoneLoc == ZL_GROW) {
    logWarning(tag, "ZL_GROW needs a start point: use the version of createZone with a startPoint. Returning NULL");
    return nullptr;
  }
  if (pConstraintGraph == nullptr) {
    logWarning("Dt::createZone()", "pConstraintGraph==NULL, but zoneLoc!=ZL_GLOBAL or ZL_RESULT. Returning NULL");
    return nullptr;
  }
  if (!isOwnGraph(pConstraintGraph, tag)) return nullptr;
  if (!pConstraintGraph->isOriented()) {
    logWarning(tag, "The constraint graph is not oriented, returning NULL");
    return nullptr;
  }
  return addZone(new Zone2(this, zoneLoc, pConstraintGraph));
}

Zone2* Dt2::createZone(const std::vector<ConstraintGraph2*>& vConstraintGraphs, ZoneLocation zoneLoc,
                       const Point2& startPoint) {
  const char* const tag("Dt2::createZone()");
  if (!hasArea()) {
    logWarning("Dt2::createZone", "The triangulation has no area yet. Returning NULL");
    return nullptr;
  }
  if (zoneLoc != ZL_GROW) {
    logWarning(tag, "This overloaded version of createZone accepts only ZL_GROW as zoneLocation. Returning NULL");
    return nullptr;
  }
  for (ConstraintGraph2* pCG : vConstraintGraphs)
    if (!isOwnGraph(pCG, tag)) return nullptr;
  if (!std::isfinite(startPoint.x()) || !std::isfinite(startPoint.y())) {
    logWarning(tag, "The start point has a NaN or infinite coordinate. Returning NULL");
    return nullptr;
  }
  std::vector<Point2> vStartPoints(1, Point2(startPoint.x(), startPoint.y()));
  return addZone(new Zone2(this, vConstraintGraphs, ZL_GROW, vStartPoints));
}

Zone2* Dt2::createZone(const std::vector<ConstraintGraph2*>& vConstraintGraphs, ZoneLocation zoneLoc) {
  const char* const tag("Dt2::createZone()");
  if (zoneLoc != ZL_INSIDE && zoneLoc != ZL_OUTSIDE) {
    logWarning(tag, "This overloaded version of createZone accepts only ZL_INSIDE and ZL_OUTSIDE as zoneLocation. "
                    "Returning NULL");
    return nullptr;
  }
  if (vConstraintGraphs.empty()) {
    logWarning(tag, "vConstraintGraphs is empty. Returning NULL");
    return nullptr;
  }
  for (ConstraintGraph2* pCG : vConstraintGraphs) {
    if (!isOwnGraph(pCG, tag)) return nullptr;
    if (!pCG->isOriented()) {
      logWarning(tag, "The constraint graph is not oriented, returning NULL");
      return nullptr;
    }
  }
  return addZone(new Zone2(this, zoneLoc, vConstraintGraphs));
}

Zone2* Dt2::createZone(std::vector<Edge2>& vEdges, ZoneLocation zoneLoc) {
  const char* const tag("Dt2::createZone()");
  if (zoneLoc != ZL_BOUNDED) {
    logWarning(tag, "This overloaded version of createZone accepts only ZL_BOUNDED as zoneLocation. Returning NULL");
    return nullptr;
  }
  ConstraintGraph2* pCG(createConstraint(vEdges, CIS_CONSTRAINED_DELAUNAY));
  if (pCG == nullptr) return nullptr;
  if (!pCG->isOriented()) {
    logWarning(tag, "The constraint graph is not oriented, returning NULL");
    return nullptr;
  }
  return addZone(new Zone2(this, ZL_BOUNDED, pCG));
}

Zone2* Dt2::createResultZone(ZoneLocation zoneLoc, Zone2* pZone0, Zone2* pZone1) {
  if (!hasArea()) {
    logWarning("Dt2::createZone", "The triangulation has no area yet. Returning NULL");
    return nullptr;
  }
  Zone2* pZone(new Zone2(this, zoneLoc));
  pZone->vInputZones.push_back(pZone0);
  pZone->vInputZones.push_back(pZone1);
  return addZone(pZone);
}

void Dt2::deleteZone(Zone2* pZone) {
  if (pZone == nullptr || sZones.count(pZone) == 0) {
    logWarning("Dt2::deleteZone(..)", "trying to delete a non-existing zone");
    return;
  }
  for (Zone2* pOther : sZones)
    for (Zone2* pInput : pOther->getInputZones())
      if (pInput == pZone) {
        logWarning("Dt2::deleteZone(..)", "A result zone reads this zone: delete the result zone first. Not deleted");
        return;
      }
  sZones.erase(pZone);
  delete pZone;
}

void Dt2::growZoneArea(const std::vector<ConstraintGraph2*>& vConstraintGraphs, const std::vector<Point2>& vStartPoints,
                       std::vector<Triangle2*>& vOut) {
  if (!hasArea()) return;
  ZoneFlood flood(this);
  growZoneArea(vConstraintGraphs, vStartPoints, vOut, &flood);
}

// On a fence the located triangle decides the side, and a later vertex on
// that fence edge can decide it otherwise. pT contains p (closed).
bool Dt2::isOnFence(const ZoneFlood& flood, Triangle2* pT, const Point2& p) {
  for (int i = 0; i < 3; ++i) {
    Point2* pCorner(pT->getCorner(i));
    if (pCorner->x() == p.x() && pCorner->y() == p.y()) {
      // At a vertex: on a fence when a fence edge ends there.
      TriangleAroundVertexIterator start(pCorner), it(pCorner);
      do {
        Triangle2* pU(*it);
        if (pU != nullptr) {
          const int j(pU->getIntraTriangleIndex(pCorner));
          if (flood.isFence(pU, incIndexBy1(j)) || flood.isFence(pU, incIndexBy2(j))) return true;
        }
        ++it;
      } while (it != start);
      return false;
    }
  }
  for (int i = 0; i < 3; ++i)
    if (flood.isFence(pT, i) && kiroTest.getOrientation2(pT, i, &p) == ORIENTATION2_COLLINEAR) return true;
  return false;
}

// One flood object for all start points: a triangle reached from an earlier
// one is not visited again, so overlapping seeds add nothing twice.
void Dt2::growZoneArea(const std::vector<ConstraintGraph2*>& vConstraintGraphs, const std::vector<Point2>& vStartPoints,
                       std::vector<Triangle2*>& vOut, ZoneFlood* pFlood) {
  if (!hasArea()) return;
  std::vector<Triangle2*> vNoSeeds;
  const size_t numMissing(pFlood->addFences(vConstraintGraphs, ZoneFlood::SEED_NONE, vNoSeeds));
  if (numMissing > 0) {
    std::ostringstream oss;
    oss << numMissing << " fence segment(s) of the zone are no edges of the mesh, the zone may leak across them"
        << " - have you called Vask_2D::applyConstraintsAndZones()?";
    logWarning("Dt2::growZoneArea()", oss.str());
  }
  std::vector<Triangle2*> vSeed(1, nullptr);
  for (const Point2& seed : vStartPoints) {
    Triangle2* pStartT(locate(seed));
    if (pStartT == nullptr) {
      logWarning("growZoneArea()", "pVtx is outside the convex hull of the triangulation, no triangles returned");
      continue;
    }
    if (isOnFence(*pFlood, pStartT, seed)) {
      std::ostringstream oss;
      oss << "The start point " << seed.x() << " " << seed.y()
          << " lies on a fence: the zone grows to one side of it, and later insertions may change the side";
      logWarning("Dt2::growZoneArea()", oss.str());
    }
    vSeed[0] = pStartT;
    pFlood->flood(vSeed, vOut);
  }
}

} // namespace KIRO_VASK2D

namespace KIRO_VASK2D {

namespace {

// p lies strictly inside pT, exactly.
bool isStrictlyInside(KiroTest& kiroTest, Triangle2* pT, const Point2& p) {
  for (int i = 0; i < 3; ++i)
    if (kiroTest.getOrientation2(pT, i, &p) != ORIENTATION2_CCW) return false;
  return true;
}

// A point strictly inside pT: the barycentre, or for a sliver whose rounded
// barycentre falls onto or beyond an edge, one of a few other interior
// combinations of the corners.
bool findInnerPoint(KiroTest& kiroTest, Triangle2* pT, bool bBarycentreOnly, Point2& result) {
  static const double aWeights[][3] = {{0.5, 0.25, 0.25}, {0.25, 0.5, 0.25}, {0.25, 0.25, 0.5},
                                       {0.8, 0.1, 0.1},   {0.1, 0.8, 0.1},   {0.1, 0.1, 0.8}};
  const size_t numTries(bBarycentreOnly ? 1 : 1 + sizeof(aWeights) / sizeof(aWeights[0]));
  const Point2& a(*pT->getCorner(0));
  const Point2& b(*pT->getCorner(1));
  const Point2& c(*pT->getCorner(2));
  for (size_t k = 0; k < numTries; ++k) {
    const Point2 p(k == 0 ? pT->getBarycenter()
                          : Point2(aWeights[k - 1][0] * a.x() + aWeights[k - 1][1] * b.x() + aWeights[k - 1][2] * c.x(),
                                   aWeights[k - 1][0] * a.y() + aWeights[k - 1][1] * b.y() + aWeights[k - 1][2] * c.y()));
    if (isStrictlyInside(kiroTest, pT, p)) {
      result = p;
      return true;
    }
  }
  return false;
}

// For a sliver only a few ulps wide whose rounded inner combinations all
// fall outside: columns (and rows) of the double grid beside each corner
// and spread over the triangle's extent, and in each the doubles a few
// ulps around where the edge lines cross it. Each candidate is decided
// exactly; where the sliver is narrower than the grid, the offsets of the
// lines against it vary from column to column, so some column holds one.
bool findGridPoint(KiroTest& kiroTest, Triangle2* pT, Point2& result) {
  const double inf(std::numeric_limits<double>::infinity());
  auto step = [](double v, int k, double dir) {
    for (; k > 0; --k) v = std::nextafter(v, dir);
    return v;
  };
  auto tryColumn = [&](int axis, double t) {
    for (int e = 0; e < 3; ++e) {
      const Point2& p0(*pT->getCorner(incIndexBy1(e)));
      const Point2& p1(*pT->getCorner(incIndexBy2(e)));
      const double a0(axis == 0 ? p0.x() : p0.y()), a1(axis == 0 ? p1.x() : p1.y());
      const double b0(axis == 0 ? p0.y() : p0.x()), b1(axis == 0 ? p1.y() : p1.x());
      if (a0 == a1) continue;
      const double u(b0 + (t - a0) * (b1 - b0) / (a1 - a0));
      if (!std::isfinite(u)) continue;
      for (int j = -3; j <= 3; ++j) {
        const double uu(step(u, j < 0 ? -j : j, j < 0 ? -inf : inf));
        const Point2 p(axis == 0 ? Point2(t, uu) : Point2(uu, t));
        if (isStrictlyInside(kiroTest, pT, p)) {
          result = p;
          return true;
        }
      }
    }
    return false;
  };
  for (int axis = 0; axis < 2; ++axis) {
    double lo(inf), hi(-inf);
    for (int ic = 0; ic < 3; ++ic) {
      const double a(axis == 0 ? pT->getCorner(ic)->x() : pT->getCorner(ic)->y());
      lo = std::min(lo, a);
      hi = std::max(hi, a);
      for (int k = 1; k <= 8; ++k)
        for (double dir : {inf, -inf})
          if (tryColumn(axis, step(a, k, dir))) return true;
    }
    for (int m = 1; m < 64; ++m)
      if (tryColumn(axis, lo + (hi - lo) * (m / 64.0))) return true;
  }
  return false;
}

// When no point strictly inside a triangle of the component is a double
// (slivers of subnormal height): a vertex of the component that no border
// edge touches and that is no hull vertex, whose triangles all belong to
// the component; else an exact midpoint of an edge inside the component.
// Either seed lies inside the region and stays there, since nothing but
// the border fences it.
bool findInnerSeed(KiroTest& kiroTest, const ZoneFlood& walls, const std::vector<Triangle2*>& vComponent,
                   Point2& result) {
  for (Triangle2* pT : vComponent)
    for (int i = 0; i < 3; ++i) {
      Point2* pVtx(pT->getCorner(i));
      bool bInner(true);
      TriangleAroundVertexIterator start(pVtx), it(pVtx);
      do {
        Triangle2* pU(*it);
        if (pU == nullptr) {
          bInner = false;
          break;
        }
        const int j(pU->getIntraTriangleIndex(pVtx));
        if (walls.isFence(pU, incIndexBy1(j)) || walls.isFence(pU, incIndexBy2(j))) {
          bInner = false;
          break;
        }
        ++it;
      } while (it != start);
      if (bInner) {
        result = Point2(pVtx->x(), pVtx->y());
        return true;
      }
    }
  for (Triangle2* pT : vComponent)
    for (int i = 0; i < 3; ++i) {
      if (pT->getOppositeTriangle(i) == nullptr || walls.isFence(pT, i)) continue;
      const Point2& a(*pT->getCorner(incIndexBy1(i)));
      const Point2& b(*pT->getCorner(incIndexBy2(i)));
      const Point2 m(a.x() * 0.5 + b.x() * 0.5, a.y() * 0.5 + b.y() * 0.5);
      if (m == a || m == b || kiroTest.getOrientation2(&a, &b, &m) != ORIENTATION2_COLLINEAR) continue;
      result = m;
      return true;
    }
  return false;
}

} // namespace

Zone2* Dt2::createZone(std::vector<Triangle2*>& vTriangles) {
  const char* const tag("Dt2::createZone()");
  if (!hasArea()) {
    logWarning("Dt2::createZone", "The triangulation has no area yet. Returning NULL");
    return nullptr;
  }
  if (vTriangles.empty()) {
    logWarning(tag, "vTriangles is empty, returning NULL");
    return nullptr;
  }
  ZoneFlood inputSet(this);
  for (Triangle2* pT : vTriangles)
    if (pT == nullptr || !inputSet.isOwnSlot(pT) || pT->getCorner(0) == nullptr) {
      logWarning(tag, "vTriangles holds NULL, a dead triangle or a triangle of another triangulation, returning NULL");
      return nullptr;
    }
  inputSet.markAll(vTriangles);
  // The border of the set: edges to a triangle outside it or to none. They
  // become walls of the component flood and, from corner i+2 to corner
  // i+1, the fence of the new zone (the set on their right).
  ZoneFlood components(this);
  std::vector<std::pair<Point2*, Point2*> > vBorder;
  for (Triangle2* pT : vTriangles)
    for (int i = 0; i < 3; ++i) {
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp != nullptr && inputSet.isVisited(pOpp)) continue;
      if (components.isFence(pT, i)) continue; // a duplicate in the input
      components.addWall(pT, i);
      vBorder.emplace_back(pT->getCorner(incIndexBy2(i)), pT->getCorner(incIndexBy1(i)));
    }
  std::vector<Point2> vStartPoints;
  std::vector<Triangle2*> vComponent, vSeed(1, nullptr);
  bool bSeedless(false);
  for (Triangle2* pT : vTriangles) {
    if (components.isVisited(pT)) continue;
    vComponent.clear();
    vSeed[0] = pT;
    components.flood(vSeed, vComponent);
    Point2 seed;
    bool bFound(false);
    for (int pass = 0; pass < 2 && !bFound; ++pass)
      for (size_t k = 0; k < vComponent.size() && !bFound; ++k)
        bFound = findInnerPoint(kiroTest, vComponent[k], pass == 0, seed);
    for (size_t k = 0; k < vComponent.size() && !bFound; ++k) bFound = findGridPoint(kiroTest, vComponent[k], seed);
    if (!bFound) bFound = findInnerSeed(kiroTest, components, vComponent, seed);
    if (bFound) {
      vStartPoints.push_back(Point2(seed.x(), seed.y()));
      continue;
    }
    bSeedless = true;
    logWarning(tag, "A connected component of the zone is almost degenerate:");
    for (Triangle2* pBad : vComponent) std::cout << "Unable to handle the triangle " << *pBad << std::endl;
  }
  if (bSeedless)
    logWarning("Dt2::createZone", "An almost degenerate part of the zone has no start point for zone growing!");
  // The border edges stand in the mesh already: establishing them changes
  // nothing. But the registry holds one segment per vertex pair: where a
  // border edge joins the ends of a segment split before (its split vertex
  // rounded off its line, so the old edge stayed), the graph takes that
  // segment, whose pieces don't run along the edge.
  ConstraintMgr* pMgr(getConstraintMgr());
  size_t numSplitBefore(0);
  for (const std::pair<Point2*, Point2*>& pp : vBorder) {
    ConstraintSegment2* pOld(pMgr->findSegment(pp.first, pp.second));
    if (pOld != nullptr && !pOld->isAlive()) ++numSplitBefore;
  }
  if (numSplitBefore > 0) {
    std::ostringstream oss;
    oss << numSplitBefore << " border edge(s) of the triangles join the ends of a constraint segment split before: "
        << "the zone also holds the triangles between such an edge and the pieces of that segment";
    logWarning(tag, oss.str());
  }
  ConstraintGraph2* pCG(pMgr->buildGraphOriented(vBorder, CIS_CONSTRAINED_DELAUNAY));
  std::vector<ConstraintSegment2*> vRoots;
  pCG->getOriginalConstraintSegments(vRoots);
  for (ConstraintSegment2* pCSeg : vRoots) pMgr->apply(pCSeg);
  return addZone(new Zone2(this, std::vector<ConstraintGraph2*>(1, pCG), ZL_GROW, vStartPoints));
}

} // namespace KIRO_VASK2D
