// The fuzzer's zone operations and checks: zones of every oriented graph,
// of the whole mesh and of triangle lists, set operations over them and
// peeled zones, each against an oracle that knows nothing of the library's
// flood or algebra, after every step; and grid diagonals turned by flips.
#include "fuzz/FuzzReplay.h"
#include "helpers/ExactOracle.h"
#include "helpers/ZoneChecker.h"
#include "UserPredicateT.h"
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

using KIRO_VASK2D::ConstraintGraph2;
using KIRO_VASK2D::ConstraintSegment2;
using KIRO_VASK2D::Point2;
using KIRO_VASK2D::Triangle2;
using KIRO_VASK2D::Zone2;

namespace vask_fuzz {
namespace detail {

namespace {

// Whether the triangle may have no double strictly inside: narrower than
// two units in the last place of its coordinates (the library then may
// find no seed and warns), or, for a box of few doubles, none inside.
bool mayHaveNoInnerDouble(const KIRO_VASK2D::Triangle2* pT) {
  const Point2 &a(*pT->getCorner(0)), &b(*pT->getCorner(1)), &c(*pT->getCorner(2));
  const double doubleArea(std::fabs(vask_test::exactDoubleArea(a, b, c)));
  if (doubleArea < std::numeric_limits<double>::min()) return true;
  double maxLen(0.0), maxCoord(0.0);
  for (const Point2* p : {&a, &b, &c}) maxCoord = std::max({maxCoord, std::fabs(p->x()), std::fabs(p->y())});
  for (int i = 0; i < 3; ++i) maxLen = std::max(maxLen, std::sqrt(pT->getSquaredEdgeLength2D(i)));
  if (doubleArea / maxLen < 2.0 * vask_test::ulpOf(maxCoord)) return true;
  const double inf(std::numeric_limits<double>::infinity());
  const double x0(std::min({a.x(), b.x(), c.x()})), x1(std::max({a.x(), b.x(), c.x()}));
  const double y0(std::min({a.y(), b.y(), c.y()})), y1(std::max({a.y(), b.y(), c.y()}));
  int numX(0);
  for (double x = x0; x <= x1; x = std::nextafter(x, inf))
    if (++numX > 64) return false;
  for (double x = x0; x <= x1; x = std::nextafter(x, inf)) {
    int numY(0);
    for (double y = y0; y <= y1; y = std::nextafter(y, inf)) {
      if (++numY > 64) return false;
      const Point2 p(x, y);
      if (vask_test::exactOrientationSign(a, b, p) > 0 && vask_test::exactOrientationSign(b, c, p) > 0 &&
          vask_test::exactOrientationSign(c, a, p) > 0)
        return false;
    }
  }
  return true;
}

} // namespace

void adoptZoneOfTriangles(Replay& r, const std::vector<KIRO_VASK2D::Triangle2*>& vPick, KIRO_VASK2D::Zone2* pZone,
                          const std::string& what);

// A zone made of the triangles whose barycentre lies in the box: at once
// exactly those triangles; its border becomes a graph like any other.
void zoneTriangles(Replay& r, const Op& op) {
  if (!r.dt.hasArea()) return;
  const Point2& a(op.vPoints.front()); // shrinking may leave one point: a box of no extent
  const Point2& b(op.vPoints.back());
  std::vector<KIRO_VASK2D::Triangle2*> vAll, vPick;
  r.dt.getTrianglePointers(vAll);
  for (KIRO_VASK2D::Triangle2* pT : vAll) {
    const Point2 c(pT->getBarycenter());
    if (c.x() >= std::min(a.x(), b.x()) && c.x() <= std::max(a.x(), b.x()) && c.y() >= std::min(a.y(), b.y()) &&
        c.y() <= std::max(a.y(), b.y()))
      vPick.push_back(pT);
  }
  if (vPick.empty()) return;
  adoptZoneOfTriangles(r, vPick, r.dt.createZone(vPick, false), "a zone made of triangles");
}

// The zone must hold exactly the triangles; its graph and the zone join
// those checked after every step.
void adoptZoneOfTriangles(Replay& r, const std::vector<KIRO_VASK2D::Triangle2*>& vPick, KIRO_VASK2D::Zone2* pZone,
                          const std::string& what) {
  // A border edge over the ends of a segment split before can't be fenced
  // (the library warns): the zone may then hold more than the triangles.
  const std::set<KIRO_VASK2D::Triangle2*> sPickSet(vPick.begin(), vPick.end());
  bool bOverSplitSegment(false);
  if (r.dt.getImpl()->hasConstraintMgr())
    for (KIRO_VASK2D::Triangle2* pT : vPick)
      for (int i = 0; i < 3; ++i) {
        if (pT->getOppositeTriangle(i) != nullptr && sPickSet.count(pT->getOppositeTriangle(i))) continue;
        ConstraintSegment2* pOld(r.dt.getImpl()->getConstraintMgr()->findSegment(pT->getCorner((i + 1) % 3),
                                                                                pT->getCorner((i + 2) % 3)));
        bOverSplitSegment |= pOld != nullptr && !pOld->isAlive();
      }
  if (pZone == nullptr || pZone->getConstraintGraph() == nullptr) {
    r.fail("zone: no zone for " + what);
    return;
  }
  std::vector<KIRO_VASK2D::Triangle2*> vGot;
  pZone->getTriangles(vGot);
  // A piece gets lost only where no double lies strictly inside any of its
  // triangles (the library warns).
  const std::set<KIRO_VASK2D::Triangle2*> sGot(vGot.begin(), vGot.end()), sPick(vPick.begin(), vPick.end());
  bool bOk(sGot.size() == vGot.size());
  if (!bOverSplitSegment)
    for (KIRO_VASK2D::Triangle2* pT : sGot) bOk &= sPick.count(pT) != 0;
  for (KIRO_VASK2D::Triangle2* pT : sPick)
    if (!sGot.count(pT))
      bOk &= mayHaveNoInnerDouble(pT);
  if (!bOk)
    r.fail("zone: " + what + " is not those triangles",
           std::to_string(vGot.size()) + " triangles instead of " + std::to_string(vPick.size()));
  r.vGraphs.push_back(pZone->getConstraintGraph());
  r.vTriangleZones.push_back(pZone);
}


namespace {

typedef std::set<Triangle2*> TSet;

// Peels triangles whose barycentre lies left of (arg bit 0: below) the
// point, or with arg bit 1 right of (above) it.
struct SideOf : public KIRO_VASK2D::UserPredicateT {
  Point2 p;
  int arg;
  SideOf(const Point2& p_, int arg_) : p(p_), arg(arg_) {}
  bool operator()(const Triangle2* pT) override {
    const Point2 c(pT->getBarycenter());
    const double u((arg & 1) ? c.y() : c.x()), v((arg & 1) ? p.y() : p.x());
    return (arg & 2) ? u > v : u < v;
  }
};

// What peeling must take, found without order: a triangle goes when the
// predicate holds for it and it lies at the border or next to one that
// goes, so the taken set is the flood over accepted triangles from the
// accepted border ones.
TSet expectedPeeled(const std::vector<Triangle2*>& vZone, KIRO_VASK2D::UserPredicateT& pred) {
  const TSet sZone(vZone.begin(), vZone.end());
  TSet sTaken;
  std::vector<Triangle2*> vStack;
  for (Triangle2* pT : vZone) {
    bool bBorder(false);
    for (int i = 0; i < 3; ++i) bBorder |= pT->getOppositeTriangle(i) == nullptr || !sZone.count(pT->getOppositeTriangle(i));
    if (bBorder && pred(pT) && sTaken.insert(pT).second) vStack.push_back(pT);
  }
  while (!vStack.empty()) {
    Triangle2* pT(vStack.back());
    vStack.pop_back();
    for (int i = 0; i < 3; ++i) {
      Triangle2* pN(pT->getOppositeTriangle(i));
      if (pN != nullptr && sZone.count(pN) && !sTaken.count(pN) && pred(pN)) {
        sTaken.insert(pN);
        vStack.push_back(pN);
      }
    }
  }
  return sTaken;
}

} // namespace

void peel(Replay& r, const Op& op) {
  if (!r.dt.hasArea()) return;
  std::vector<Zone2*> vCandidates;
  for (Zone2* pZone : r.vInsideZones)
    if (pZone != nullptr) vCandidates.push_back(pZone);
  vCandidates.insert(vCandidates.end(), r.vTriangleZones.begin(), r.vTriangleZones.end());
  if (r.pGlobalZone != nullptr) vCandidates.push_back(r.pGlobalZone);
  if (vCandidates.empty()) return;
  Zone2* pInput(vCandidates[static_cast<std::size_t>(op.arg >> 2) % vCandidates.size()]);
  std::vector<Triangle2*> vInput;
  pInput->getTriangles(vInput);
  SideOf pred(op.vPoints.front(), op.arg);
  const TSet sTaken(expectedPeeled(vInput, pred));
  std::vector<Triangle2*> vKept;
  for (Triangle2* pT : vInput)
    if (!sTaken.count(pT)) vKept.push_back(pT);
  Zone2* pPeeled(KIRO_VASK2D::peelOffIf(pInput, &pred, false));
  if (vInput.empty() || vKept.empty()) {
    if (pPeeled != nullptr) r.fail("zone: peeling everything (or nothing) gave a zone");
    return;
  }
  adoptZoneOfTriangles(r, vKept, pPeeled, "a peeled zone");
}

// Flips only between cocircular cells: the mesh stays Delaunay, which the
// check after the step confirms, and keeps its triangle count.
void unifyGrid(Replay& r) {
  if (!r.dt.hasArea()) return;
  if (r.pGlobalZone == nullptr) r.pGlobalZone = r.dt.createZone(nullptr, KIRO_VASK2D::ZL_GLOBAL, false);
  const unsigned numBefore(r.dt.numberOfTriangles());
  r.pGlobalZone->unifyGrid(0.0);
  if (r.dt.numberOfTriangles() != numBefore) r.fail("unifyGrid changed the number of triangles");
}

namespace {

// The expected triangles of a result zone from those of its inputs, by
// plain set algebra; each zone of the recipe once.
const TSet& expectedResult(const Zone2* pZone, std::map<const Zone2*, TSet>& mExpected) {
  const auto it(mExpected.find(pZone));
  if (it != mExpected.end()) return it->second;
  const TSet& a(expectedResult(pZone->getInputZones()[0], mExpected));
  const TSet& b(expectedResult(pZone->getInputZones()[1], mExpected));
  TSet s;
  switch (pZone->getZoneLocation()) {
  case KIRO_VASK2D::ZL_RESULT_UNION:
    s = a;
    s.insert(b.begin(), b.end());
    break;
  case KIRO_VASK2D::ZL_RESULT_INTERSECTION:
    for (Triangle2* pT : a)
      if (b.count(pT)) s.insert(pT);
    break;
  case KIRO_VASK2D::ZL_RESULT_DIFFERENCE:
    for (Triangle2* pT : a)
      if (!b.count(pT)) s.insert(pT);
    break;
  default:
    for (Triangle2* pT : a)
      if (!b.count(pT)) s.insert(pT);
    for (Triangle2* pT : b)
      if (!a.count(pT)) s.insert(pT);
  }
  return mExpected[pZone] = s;
}

// For each new inside zone: set operations with its outside, with the zone
// before it and with the whole mesh, one of them over the last result, so
// that results nest. Bounded, to keep the checks cheap.
void addResultZones(Replay& r, std::size_t g) {
  Zone2* pIn(r.vInsideZones[g]);
  if (pIn == nullptr || r.pGlobalZone == nullptr || r.vResultZones.size() >= 24) return;
  Zone2* pPrev(r.pGlobalZone);
  for (std::size_t k = g; k-- > 0;)
    if (r.vInsideZones[k] != nullptr) {
      pPrev = r.vInsideZones[k];
      break;
    }
  Zone2* pLast(r.vResultZones.empty() ? pPrev : r.vResultZones.back());
  for (Zone2* pR : {KIRO_VASK2D::zoneUnion(pIn, r.vOutsideZones[g]), KIRO_VASK2D::zoneIntersection(pIn, pPrev),
                    KIRO_VASK2D::zoneDifference(r.pGlobalZone, pIn), KIRO_VASK2D::zoneSymmetricDifference(pIn, pPrev),
                    KIRO_VASK2D::zoneSymmetricDifference(pLast, pIn)}) {
    if (pR == nullptr) r.fail("zone: a set operation gave no zone");
    else r.vResultZones.push_back(pR);
  }
}

} // namespace

void checkZones(Replay& r) {
  if (!r.dt.hasArea()) return;
  using KIRO_VASK2D::Zone2;
  if (r.pGlobalZone == nullptr) r.pGlobalZone = r.dt.createZone(nullptr, KIRO_VASK2D::ZL_GLOBAL, false);
  while (r.vInsideZones.size() < r.vGraphs.size()) {
    ConstraintGraph2* pCG(r.vGraphs[r.vInsideZones.size()]);
    const bool bOriented(pCG->isOriented());
    r.vInsideZones.push_back(bOriented ? r.dt.createZone(pCG, KIRO_VASK2D::ZL_INSIDE, false) : nullptr);
    r.vOutsideZones.push_back(bOriented ? r.dt.createZone(pCG, KIRO_VASK2D::ZL_OUTSIDE, false) : nullptr);
    if (bOriented && (r.vInsideZones.back() == nullptr || r.vOutsideZones.back() == nullptr))
      r.fail("zone: no zone for an oriented graph");
    addResultZones(r, r.vInsideZones.size() - 1);
  }
  std::map<const Zone2*, TSet> mExpected;
  auto expectSame = [&](Zone2* pZone, std::vector<KIRO_VASK2D::Triangle2*> vExpected, const char* what) {
    std::vector<KIRO_VASK2D::Triangle2*> vGot;
    pZone->getTriangles(vGot);
    const std::set<KIRO_VASK2D::Triangle2*> sGot(vGot.begin(), vGot.end()), sExpected(vExpected.begin(), vExpected.end());
    if (sGot.size() != vGot.size()) r.fail(std::string("zone: a triangle twice in the ") + what + " zone");
    else if (sGot != sExpected)
      r.fail(std::string("zone: wrong ") + what + " region",
             std::to_string(vGot.size()) + " triangles instead of " + std::to_string(vExpected.size()));
  };
  if (r.pGlobalZone != nullptr) {
    std::vector<KIRO_VASK2D::Triangle2*> vAll;
    r.dt.getTrianglePointers(vAll);
    expectSame(r.pGlobalZone, vAll, "global");
    mExpected[r.pGlobalZone] = TSet(vAll.begin(), vAll.end());
  }
  for (Zone2* pZone : r.vTriangleZones) {
    std::vector<ConstraintGraph2*> vGraphs;
    pZone->getConstraintGraphs(vGraphs);
    std::vector<KIRO_VASK2D::Triangle2*> vExpected;
    if (vask_test::expectedGrowZone(r.dt, vGraphs, pZone->getStartPoints(), vExpected))
      expectSame(pZone, vExpected, "triangle-list");
  }
  for (std::size_t g = 0; g < r.vInsideZones.size() && r.outcome.ok; ++g) {
    if (r.vInsideZones[g] == nullptr) continue;
    const std::vector<ConstraintGraph2*> vOne(1, r.vGraphs[g]);
    const std::vector<Triangle2*> vIn(vask_test::expectedFencedZone(r.dt, vOne, true));
    const std::vector<Triangle2*> vOut(vask_test::expectedFencedZone(r.dt, vOne, false));
    expectSame(r.vInsideZones[g], vIn, "inside");
    expectSame(r.vOutsideZones[g], vOut, "outside");
    mExpected[r.vInsideZones[g]] = TSet(vIn.begin(), vIn.end());
    mExpected[r.vOutsideZones[g]] = TSet(vOut.begin(), vOut.end());
  }
  for (std::size_t k = 0; k < r.vResultZones.size() && r.outcome.ok; ++k) {
    const TSet& s(expectedResult(r.vResultZones[k], mExpected));
    expectSame(r.vResultZones[k], std::vector<Triangle2*>(s.begin(), s.end()), "set-operation");
  }
}

} // namespace detail
} // namespace vask_fuzz
