// The free zone operations: set algebra on two zones and peeling.
#include "UserPredicateT.h"
#include "Zone2.h"
#include "core/Dt2.h"
#include "support/Log.h"
#include "zones/ZoneFlood.h"
#include <iostream>

namespace KIRO_VASK2D {

namespace {

// The result is a recipe over the two inputs: no triangle is touched here.
Zone2* combine(Zone2* pZone0, Zone2* pZone1, ZoneLocation zoneLoc, const char* tag) {
  if (pZone0 == nullptr || pZone1 == nullptr) {
    logWarning(tag, "One of the zones is NULL, returning NULL");
    return nullptr;
  }
  if (pZone0->getDelaunayTriangulation() != pZone1->getDelaunayTriangulation()) {
    logWarning(tag, "The zones must belong to the same triangulation! Returning NULL");
    return nullptr;
  }
  return pZone0->getDelaunayTriangulation()->createResultZone(zoneLoc, pZone0, pZone1);
}

// The three others share the union's tag: users match on it.
const char* const OPERATION_TAG = "zoneUnion(...)";

void printZone(const char* title, const std::vector<Triangle2*>& vT) {
  double area(0.0);
  for (Triangle2* pT : vT) area += pT->getArea2D();
  std::cout << title << "\n  numT=" << vT.size() << "\n  area2D=" << area << std::endl;
}

} // namespace

Zone2* zoneUnion(Zone2* pZone0, Zone2* pZone1) {
  return combine(pZone0, pZone1, ZL_RESULT_UNION, "Zone2::zoneUnion(...)");
}

Zone2* zoneIntersection(Zone2* pZone0, Zone2* pZone1) {
  return combine(pZone0, pZone1, ZL_RESULT_INTERSECTION, OPERATION_TAG);
}

Zone2* zoneDifference(Zone2* pZone0, Zone2* pZone1) {
  return combine(pZone0, pZone1, ZL_RESULT_DIFFERENCE, OPERATION_TAG);
}

Zone2* zoneSymmetricDifference(Zone2* pZone0, Zone2* pZone1) {
  return combine(pZone0, pZone1, ZL_RESULT_SYM_DIFFERENCE, OPERATION_TAG);
}

// Membership is a mark per triangle slot, so the border test of a popped
// triangle is three byte reads. A triangle leaves the zone at most once and
// then pushes its remaining neighbours, so the work is linear in the zone
// plus the predicate's calls, and every triangle the predicate keeps at
// the border is asked again only when a neighbour of it goes.
Zone2* peelOffIf(Zone2* pZone, UserPredicateT* pPredicate, bool bVerbose) {
  const char* const tag("peelOffIf()");
  if (pZone == nullptr) {
    logWarning(tag, "Input zone is NULL, returning NULL");
    return nullptr;
  }
  if (pPredicate == nullptr) {
    logWarning(tag, "The predicate is NULL, returning NULL");
    return nullptr;
  }
  Dt2* pDt2(pZone->getDelaunayTriangulation());
  std::vector<Triangle2*> vT;
  pZone->getTriangles(vT);
  if (vT.empty()) {
    logWarning(tag, "Input zone is empty, returning NULL");
    return nullptr;
  }
  if (bVerbose) printZone("\nZone2::peelOffIf(), original Zone:", vT);
  ZoneFlood members(pDt2);
  members.markAll(vT);
  std::vector<Triangle2*> vStack(vT);
  while (!vStack.empty()) {
    Triangle2* pT(vStack.back());
    vStack.pop_back();
    if (!members.isVisited(pT)) continue; // peeled since it was pushed
    bool bBorder(false);
    for (int i = 0; i < 3 && !bBorder; ++i) {
      const Triangle2* pOpp(pT->getOppositeTriangle(i));
      bBorder = pOpp == nullptr || !members.isVisited(pOpp);
    }
    // An inner triangle comes back when a neighbour is peeled.
    if (!bBorder || !(*pPredicate)(pT)) continue;
    members.unmark(pT);
    for (int i = 0; i < 3; ++i) {
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp != nullptr && members.isVisited(pOpp)) vStack.push_back(pOpp);
    }
  }
  std::vector<Triangle2*> vRemaining;
  for (Triangle2* pT : vT)
    if (members.isVisited(pT)) vRemaining.push_back(pT);
  if (bVerbose) printZone("Output Zone:", vRemaining);
  if (vRemaining.empty()) return nullptr;
  return pDt2->createZone(vRemaining);
}

} // namespace KIRO_VASK2D
