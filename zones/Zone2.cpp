#include "Zone2.h"
#include "Color.h"
#include "ConstraintGraph2.h"
#include "ConstraintSegment2.h"
#include "Visualizer2.h"
#include "core/Dt2.h"
#include "kernel/RoundingModeGuard.h"
#include "support/Histogram.h"
#include "support/Log.h"
#include "support/ProgressPublisher.h"
#include "support/VaskAssert.h"
#include "zones/ZoneAlgebra.h"
#include "zones/ZoneFlood.h"
#include <algorithm>
#include <cmath>
#include <functional>
#include <unordered_set>
#include <iostream>
#include <sstream>

namespace KIRO_VASK2D {

namespace {
const char* const ZONE_PROGRESS_NAME = "ZoneProgress";
}

Zone2::Zone2(Dt2* pDt2_, ZoneLocation zoneLoc_)
    : pDt2(pDt2_), pZoneProgress(new ProgressPublisher(ZONE_PROGRESS_NAME)), zoneLoc(zoneLoc_) {
  VASK_ASSERT(zoneLoc == ZL_GLOBAL || zoneLoc == ZL_RESULT_UNION || zoneLoc == ZL_RESULT_INTERSECTION ||
              zoneLoc == ZL_RESULT_DIFFERENCE || zoneLoc == ZL_RESULT_SYM_DIFFERENCE);
}

Zone2::Zone2(Dt2* pDt2_, ZoneLocation zoneLoc_, ConstraintGraph2* pConstraintGraph)
    : pDt2(pDt2_), pZoneProgress(nullptr), zoneLoc(zoneLoc_) {
  const char* const tag("Zone2::Zone2(..)");
  bool bOk(true);
  if (pConstraintGraph == nullptr) {
    logWarning(tag, "The ConstraintGraph is NULL");
    bOk = false;
  } else if (!pConstraintGraph->isOriented()) {
    logWarning(tag, "The ConstraintGraph is not oriented");
    bOk = false;
  }
  if (zoneLoc != ZL_INSIDE && zoneLoc != ZL_OUTSIDE && zoneLoc != ZL_BOUNDED) {
    std::ostringstream oss;
    oss << "zoneLoc=" << static_cast<int>(zoneLoc);
    logWarning(tag, oss.str());
    logWarning(tag, "The ZoneLocation for this constructor can only be one of ZL_INSIDE, ZL_OUTSIDE, ZL_BOUNDED");
    bOk = false;
  }
  VASK_ASSERT(bOk);
  vConstraintGraphs.push_back(pConstraintGraph);
  pZoneProgress = new ProgressPublisher(ZONE_PROGRESS_NAME);
}

Zone2::Zone2(Dt2* pDt2_, ZoneLocation zoneLoc_, const std::vector<ConstraintGraph2*>& vConstraintGraphs_)
    : pDt2(pDt2_), pZoneProgress(nullptr), zoneLoc(zoneLoc_), vConstraintGraphs(vConstraintGraphs_) {
  const char* const tag("Zone2::Zone2(..)");
  bool bOk(true);
  if (vConstraintGraphs.empty()) {
    logWarning(tag, "vConstraintGraphs is empty");
    bOk = false;
  }
  for (ConstraintGraph2* pCG : vConstraintGraphs)
    if (pCG == nullptr || !pCG->isOriented()) {
      logWarning(tag, "One of the ConstraintGraphs is not oriented!");
      bOk = false;
      break;
    }
  if (zoneLoc != ZL_INSIDE && zoneLoc != ZL_OUTSIDE) {
    logWarning(tag, "ZoneLocation for this constructor must be ZL_INSIDE or ZL_OUTSIDE!");
    bOk = false;
  }
  VASK_ASSERT(bOk);
  pZoneProgress = new ProgressPublisher(ZONE_PROGRESS_NAME);
}

Zone2::Zone2(Dt2* pDt2_, const std::vector<ConstraintGraph2*>& vConstraintGraphs_, ZoneLocation zoneLoc_,
             std::vector<Point2>& vStartPoints_)
    : pDt2(pDt2_), pZoneProgress(nullptr), zoneLoc(zoneLoc_), vConstraintGraphs(vConstraintGraphs_),
      vStartPoints(vStartPoints_) {
  // Seeds are kept as coordinates, not vertices: they stay meaningful
  // whatever happens to the vertices around them.
  VASK_ASSERT(zoneLoc == ZL_GROW);
  pZoneProgress = new ProgressPublisher(ZONE_PROGRESS_NAME);
}

Zone2::Zone2(const Zone2& other)
    : pDt2(other.pDt2), pZoneProgress(new ProgressPublisher(ZONE_PROGRESS_NAME)), zoneLoc(other.zoneLoc),
      vConstraintGraphs(other.vConstraintGraphs), vStartPoints(other.vStartPoints), vInputZones(other.vInputZones) {}

// The recipe is copied; the progress publisher and its subscribers stay.
Zone2& Zone2::operator=(const Zone2& other) {
  if (this == &other) return *this;
  pDt2 = other.pDt2;
  zoneLoc = other.zoneLoc;
  vConstraintGraphs = other.vConstraintGraphs;
  vStartPoints = other.vStartPoints;
  vInputZones = other.vInputZones;
  return *this;
}

Zone2::~Zone2() { delete pZoneProgress; }

// ---------------------------------------------------------------------------
// The recipe

void Zone2::getTriangles(std::vector<Triangle2*>& vTrianglesOut) const {
  if (!pDt2->hasArea()) {
    logWarning("Zone2::getTriangles()", "The triangulation has no area yet");
    return;
  }
  if (zoneLoc >= ZL_RESULT_UNION && zoneLoc <= ZL_RESULT_SYM_DIFFERENCE) {
    // Nobody reads the result's marks here: its inputs keep their own.
    ZoneAlgebra algebra(pDt2);
    algebra.evaluate(this, vTrianglesOut, nullptr);
    return;
  }
  ZoneFlood flood(pDt2);
  collectTriangles(vTrianglesOut, &flood);
}

void Zone2::initWorkspace(bool bInside, ZoneFlood& flood, std::vector<Triangle2*>& vWorkspace) const {
  if (zoneLoc != ZL_INSIDE && zoneLoc != ZL_OUTSIDE && zoneLoc != ZL_BOUNDED) {
    logWarning("Zone2::initWorkspace", "Wrong zoneLocation");
    VASK_ASSERT(false);
  }
  VASK_ASSERT(!vConstraintGraphs.empty());
  const size_t numMissing(
      flood.addFences(vConstraintGraphs, bInside ? ZoneFlood::SEED_LEFT : ZoneFlood::SEED_RIGHT, vWorkspace));
  if (numMissing > 0) {
    std::ostringstream oss;
    oss << numMissing << " fence segment(s) of the zone are no edges of the mesh, the zone may leak across them"
        << " - have you called Vask_2D::applyConstraintsAndZones()?";
    logWarning("Zone2::getTriangles()", oss.str());
  }
}

// The flood object keeps the membership marks, so callers that need to know
// which triangles are in the zone (borders, drawing) pass their own.
void Zone2::collectTriangles(std::vector<Triangle2*>& vOut, ZoneFlood* pFlood) const {
  NearestRounding rounding; // the host may have left another mode
  std::vector<Triangle2*> vWorkspace;
  switch (zoneLoc) {
    case ZL_GLOBAL: {
      Triangle2* pT(pDt2->getOneTriangle());
      VASK_ASSERT(pT != NULL);
      vWorkspace.push_back(pT);
      pFlood->flood(vWorkspace, vOut);
      return;
    }
    case ZL_INSIDE:
    case ZL_BOUNDED:
      initWorkspace(true, *pFlood, vWorkspace);
      if (vWorkspace.empty()) {
        // An ordinary outcome of use (say, the fence isn't applied yet).
        logWarning("Zone2::getTriangles()",
                   "An inside zone is empty - have you called Vask_2D::applyConstraintsAndZones()?");
        return;
      }
      pFlood->flood(vWorkspace, vOut);
      return;
    case ZL_OUTSIDE:
      initWorkspace(false, *pFlood, vWorkspace);
      pFlood->flood(vWorkspace, vOut);
      return;
    case ZL_GROW:
      pDt2->growZoneArea(vConstraintGraphs, vStartPoints, vOut, pFlood);
      return;
    case ZL_RESULT_UNION:
    case ZL_RESULT_INTERSECTION:
    case ZL_RESULT_DIFFERENCE:
    case ZL_RESULT_SYM_DIFFERENCE: {
      ZoneAlgebra algebra(pDt2);
      algebra.evaluate(this, vOut, pFlood);
      return;
    }
    default:
      logWarning("Zone2::getTriangles()", "unknown zoneLoc value");
      VASK_ASSERT(false);
  }
}

unsigned int Zone2::getNumberOfTriangles() const {
  std::vector<Triangle2*> vT;
  getTriangles(vT);
  return static_cast<unsigned int>(vT.size());
}

void Zone2::getVertices(std::vector<Point2*>& vVerticesOut) const {
  std::vector<Triangle2*> vT;
  getTriangles(vT);
  std::vector<Point2*> vV;
  vV.reserve(3 * vT.size());
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) vV.push_back(pT->getCorner(i));
  std::sort(vV.begin(), vV.end());
  vV.erase(std::unique(vV.begin(), vV.end()), vV.end());
  vVerticesOut.insert(vVerticesOut.end(), vV.begin(), vV.end());
}

double Zone2::getArea2D() const {
  std::vector<Triangle2*> vT;
  getTriangles(vT);
  double area(0.0);
  for (Triangle2* pT : vT) area += pT->getArea2D();
  return area;
}

Bbox2 Zone2::getBoundingBox() const {
  std::vector<Triangle2*> vT;
  getTriangles(vT);
  Bbox2 box;
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) box.add(*pT->getCorner(i));
  return box;
}

bool Zone2::collectMarked(const char* tag, ZoneFlood& marks, std::vector<Triangle2*>& vT) const {
  if (!pDt2->hasArea()) {
    logWarning(tag, "The triangulation has no area yet");
    return false;
  }
  collectTriangles(vT, &marks);
  return true;
}

void Zone2::collectBorder(std::vector<Edge2>& vEdges) const {
  ZoneFlood flood(pDt2);
  std::vector<Triangle2*> vT;
  if (!collectMarked("Zone2::getTriangles()", flood, vT)) return;
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) {
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp == nullptr || !flood.isVisited(pOpp)) vEdges.push_back(Edge2(pT, i));
    }
}

void Zone2::getBoundaryEdges(std::vector<Edge2>& vEdges) const { collectBorder(vEdges); }

void Zone2::getBorderEdges(std::vector<Edge2>& vEdges) const { collectBorder(vEdges); }

void Zone2::getBoundarySegments(std::vector<Segment2>& vSegments) const {
  std::vector<Edge2> vEdges;
  collectBorder(vEdges);
  vSegments.reserve(vSegments.size() + vEdges.size());
  for (const Edge2& e : vEdges)
    vSegments.push_back(Segment2(*e.getTrg(), *e.getSrc()));
}

ConstraintGraph2* Zone2::getConstraintGraph() const {
  if (vConstraintGraphs.empty()) return nullptr;
  if (vConstraintGraphs.size() > 1) {
    logWarning("Zone2::getConstraintGraph()",
               "There is more than one constraint graph, use Zone2::getConstraintGraphs() instead. Returning NULL");
    return nullptr;
  }
  return vConstraintGraphs[0];
}

void Zone2::getConstraintGraphs(std::vector<ConstraintGraph2*>& vConstraintGraphs_) const {
  vConstraintGraphs_.insert(vConstraintGraphs_.end(), vConstraintGraphs.begin(), vConstraintGraphs.end());
}

Zone2* Zone2::convertToBoundedZone() {
  if (zoneLoc == ZL_INSIDE) return this;
  pDt2->applyConstraintsAndZones();
  std::vector<Edge2> vEdges;
  if (pDt2->hasArea()) collectBorder(vEdges);
  if (vEdges.empty()) {
    logWarning("Zone2::convertToBoundedZone()", "No triangles available, returning NULL");
    return nullptr;
  }
  return pDt2->createZone(vEdges, ZL_BOUNDED);
}

void Zone2::subscribe(MsgType msgType, MsgBase* pReceiver) { pZoneProgress->subscribe(msgType, pReceiver); }

void Zone2::unsubscribe(MsgType msgType, MsgBase* pReceiver) { pZoneProgress->unsubscribe(msgType, pReceiver); }

// ---------------------------------------------------------------------------
// Grid diagonals

namespace {

// Whether the edge from p to q falls (x and y change in opposite senses) or
// stands vertical. Comparisons of doubles are exact.
bool fallsOrIsVertical(const Point2& p, const Point2& q) {
  if (p.x() == q.x()) return true;
  return (q.x() > p.x()) != (q.y() > p.y()) && p.y() != q.y();
}

struct PairHash {
  size_t operator()(const std::pair<Point2*, Point2*>& pp) const {
    return std::hash<Point2*>()(pp.first) * 31u + std::hash<Point2*>()(pp.second);
  }
};

std::pair<Point2*, Point2*> unordered(Point2* a, Point2* b) { return a < b ? std::make_pair(a, b) : std::make_pair(b, a); }

} // namespace

// A flip rewrites both of its triangles in place, so a candidate is kept by
// its end points and found again before it is tried: the edge may have
// gone, or now stand between two other triangle slots. Membership stays
// right through the flips: a flip only happens between two zone triangles,
// and turns them into two triangles over the same quadrilateral.
void Zone2::unifyGrid(double tolerance) {
  ZoneFlood members(pDt2);
  std::vector<Triangle2*> vT;
  if (!collectMarked("Zone2::unifyGrid()", members, vT)) return;
  std::vector<std::pair<Point2*, Point2*> > vCandidates;
  vCandidates.reserve(vT.size());
  for (Triangle2* pT : vT) {
    const int i(pT->getMaxIndex());
    if (i >= 0) vCandidates.emplace_back(pT->getCorner(incIndexBy1(i)), pT->getCorner(incIndexBy2(i)));
  }
  NearestRounding rounding;
  KiroTest& kiroTest(pDt2->getKiroTest());
  std::unordered_set<std::pair<Point2*, Point2*>, PairHash> sDone;
  for (const std::pair<Point2*, Point2*>& pq : vCandidates) {
    Point2* pP(pq.first);
    Point2* pQ(pq.second);
    Triangle2* pT(pDt2->getAdjacentTriangle(pP, pQ));
    if (pT == nullptr) continue; // flipped away
    const int i(incIndexBy2(pT->getIntraTriangleIndex(pP)));
    Triangle2* pU(pT->getOppositeTriangle(i));
    if (pU == nullptr || !fallsOrIsVertical(*pP, *pQ) || sDone.count(unordered(pP, pQ)) != 0) continue;
    if (!members.isVisited(pT) || !members.isVisited(pU) || pDt2->isConstraintEdge(pT, i)) continue;
    Point2* pA(pT->getCorner(i));
    Point2* pD(pU->getCorner(pU->getIntraTriangleIndex(pT)));
    if (tolerance > 0) {
      const double l1(std::hypot(pQ->x() - pP->x(), pQ->y() - pP->y()));
      const double l2(std::hypot(pD->x() - pA->x(), pD->y() - pA->y()));
      if (std::fabs(l1 - l2) > tolerance * std::max(l1, l2)) continue;
    } else if (kiroTest.circleInc3state(pT, pD) != CINC2_ZERO) {
      continue;
    }
    // Strictly convex at the new diagonal: p and q on opposite sides of a-d.
    const Orientation2 oP(kiroTest.getOrientation2(pA, pD, pP)), oQ(kiroTest.getOrientation2(pA, pD, pQ));
    if (oP == ORIENTATION2_COLLINEAR || oQ == ORIENTATION2_COLLINEAR || oP == oQ) continue;
    sDone.insert(unordered(pA, pD));
    pDt2->flip(pT, i);
  }
}

// ---------------------------------------------------------------------------
// Output

void Zone2::show(const char* filename, bool bShowFull, bool bWithConstraints) const {
  Visualizer2 vis(filename);
  show(&vis, bShowFull, bWithConstraints);
  vis.writeFile();
}

void Zone2::show(Visualizer2* pVis, bool bShowFull, bool bWithConstraints) const {
  ZoneFlood flood(pDt2);
  std::vector<Triangle2*> vT;
  if (!collectMarked("Zone2::show()", flood, vT)) return;
  const Color fill(0.94, 0.9, 0.55, 0.01, true);
  for (Triangle2* pT : vT) pVis->addObject(*pT, fill);
  if (bShowFull) {
    pDt2->show(pVis, bWithConstraints);
    return;
  }
  // Each edge once: from the zone triangle with the smaller address, or
  // from the only zone triangle at it.
  const Color constraintColor(CRED, 0.5f, false), edgeColor(CBLACK, 0.001f, false);
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) {
      Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp != nullptr && flood.isVisited(pOpp) && pOpp < pT) continue;
      const bool bConstraint(bWithConstraints && pDt2->isConstraintEdge(pT, i));
      pVis->addObject(Edge2(pT, i), bConstraint ? constraintColor : edgeColor);
    }
}

void Zone2::statistics(const char* name) const {
  std::cout << "\n\n\n********* ZONE STATISTICS (" << (name != nullptr ? name : "") << ") **********\n\n";
  std::vector<double> vLimits;
  for (int limit = 10; limit <= 170; limit += 10) vLimits.push_back(limit);
  Histogram histogram("INTERIOR ANGLES", vLimits);
  std::vector<Triangle2*> vT;
  getTriangles(vT);
  std::cout << "Number of triangles: " << vT.size() << std::endl;
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) histogram.add(pT->getInteriorAngle2D(i));
  histogram.print(std::cout);
}

void Zone2::debug(const char* name) {
  std::cout << "This is Zone2::debug()" << std::endl;
  const std::string filename(name == nullptr || name[0] == 0 ? "debug.ps" : name);
  Visualizer2 vis(filename.c_str());
  std::vector<Triangle2*> vT;
  if (pDt2->hasArea()) getTriangles(vT);
  const Color grey(0.3, 0.3, 0.3, 0.05, false);
  for (Triangle2* pT : vT) vis.addObject(*pT, grey);
  std::vector<ConstraintSegment2*> vChain;
  for (ConstraintGraph2* pCG : vConstraintGraphs) {
    pCG->getAliveConstraintChain(vChain);
    vis.addObject(vChain, Color(CRED, 0.1f, false));
  }
  vis.writeFile();
}

} // namespace KIRO_VASK2D
