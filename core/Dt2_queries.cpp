// Read-only operations: locate, adjacency, the hull, checkValidity with its
// drawings, statistics, and the drawing of the whole mesh.
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
// A triangle whose circle holds the far corner of its neighbour.
struct EmptyCircleFailure {
  Triangle2* pT;
  Triangle2* pNeig;
  Point2* pIntruder;
};

// The drawing "badEmptyCircle.ps" of checkValidity: the mesh, each failing
// triangle filled red and its neighbour orange, the intruding vertex as a
// blue cross and, where it does not dwarf the mesh, the triangle's circle.
void drawEmptyCircleFailures(const Dt2& dt, const std::vector<EmptyCircleFailure>& vFailures,
                             const std::string& name) {
  Visualizer2 vis("badEmptyCircle.ps");
  std::ostringstream title;
  title << "checkValidity(" << name << "): " << vFailures.size() << " empty-circle failures";
  vis.addHeaderLine(title.str().c_str());
  vis.addHeaderLine("red: triangle, orange: its neighbour, blue: the circle and the vertex inside");
  // A near-degenerate triangle has a huge circle, which would shrink the
  // mesh to a dot: circles larger than the mesh itself are left out.
  const double maxRadius(dt.computeBoundingBox().getMaxRange());
  for (const EmptyCircleFailure& failure : vFailures) {
    vis.addObject(*failure.pT, Color(CRED, 0.01f, true));
    vis.addObject(*failure.pNeig, Color(CORANGE, 0.01f, true));
    vis.addObject(*failure.pIntruder, Color(CBLUE, 0.5f, false));
    const std::pair<Point2, bool> centre(failure.pT->getDual());
    const double sqRadius(sqDistance2D(centre.first, *failure.pT->getCorner(0)));
    if (std::isfinite(sqRadius) && std::sqrt(sqRadius) <= maxRadius)
      vis.addObject(Circle2(centre.first, sqRadius), Color(CBLUE, 0.5f, false));
  }
  dt.show(&vis, true);
  vis.writeFile();
}
} // namespace

// ---------------------------------------------------------------------------
// Queries

Triangle2* Dt2::locate(const Point2& p) {
  if (!*pBFullDimensional) return nullptr;
  // Queries may lie far outside the data: raise the bound before walking.
  kiroTest.updateStaticBound(&p);
  const Point2 query(p);
  Triangle2* pT(vertexVault.getCloseTriangle(getHilbertIndex(query.x(), query.y())));
  int edgeIdx(-1);
  const int state(locateConflictTriangle(query, pT, edgeIdx));
  if (state == -1 || state == 4) return pT;
  if (kiroTest.getOrientation2(pT, state, &query) == ORIENTATION2_CW) return nullptr;
  return pT;
}

Triangle2* Dt2::getAdjacentTriangle(Point2* p0, Point2* p1) const {
  VASK_ASSERT(p0 != 0);
  VASK_ASSERT(p1 != 0);
  VASK_ASSERT(p0 != p1);
  if (p0->getIncidentTriangle() == nullptr) return nullptr;
  TriangleAroundVertexIterator start(p0), it(p0);
  do {
    Triangle2* pT(*it);
    if (pT != nullptr && pT->getCorner(incIndexBy1(pT->getIntraTriangleIndex(p0))) == p1) return pT;
    ++it;
  } while (it != start);
  return nullptr;
}

void Dt2::getIncidentTriangles(Point2* pVtx, std::vector<Triangle2*>& vIncT) const {
  if (pVtx == nullptr || pVtx->getIncidentTriangle() == nullptr) return;
  TriangleAroundVertexIterator start(pVtx), it(pVtx);
  do {
    if (*it != nullptr) vIncT.push_back(*it);
    ++it;
  } while (it != start);
}

void Dt2::getIncidentVertices(Point2* pVtx, std::vector<Point2*>& vIncV) const {
  std::vector<Triangle2*> vIncT;
  getIncidentTriangles(pVtx, vIncT);
  std::vector<Point2*> vCorners;
  for (Triangle2* pT : vIncT)
    for (int i = 0; i < 3; ++i)
      if (pT->getCorner(i) != pVtx) vCorners.push_back(pT->getCorner(i));
  std::sort(vCorners.begin(), vCorners.end());
  vCorners.erase(std::unique(vCorners.begin(), vCorners.end()), vCorners.end());
  vIncV.insert(vIncV.end(), vCorners.begin(), vCorners.end());
}

bool Dt2::isAdjacent(Point2* p0, Point2* p1) const {
  std::vector<Triangle2*> vIncT;
  getIncidentTriangles(p0, vIncT);
  for (Triangle2* pT : vIncT)
    if (pT->hasVertex(p1)) return true;
  return false;
}

bool Dt2::isDegenerate(Triangle2* pT) {
  return kiroTest.getOrientation2(pT->getCorner(0), pT->getCorner(1), pT->getCorner(2)) == ORIENTATION2_COLLINEAR;
}

// From the hull vertex pVtx of pT, crosses the edges around pVtx until the
// hull edge that starts at pVtx; returns that triangle, its edge in ith.
static Triangle2* nextHullEdge(Triangle2* pT, Point2* pVtx, int& ith) {
  int axisIdx(pT->getIntraTriangleIndex(pVtx));
  while (Triangle2* pNeig = pT->getOppositeTriangle(incIndexBy2(axisIdx))) {
    pT = pNeig;
    axisIdx = pT->getIntraTriangleIndex(pVtx);
  }
  VASK_ASSERT(pT->getOppositeTriangle(incIndexBy2(axisIdx)) == 0);
  ith = incIndexBy2(axisIdx);
  return pT;
}

void Dt2::getConvexHull(bool bAllVertices, std::vector<Point2*>& vConvexHullPoints) {
  if (!*pBFullDimensional) {
    logWarning("Dt2::getConvexHull()", "the triangulation has no area yet");
    return;
  }
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  Triangle2* pStartT(nullptr);
  Point2* pStartVtx(nullptr);
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i)
      if (pT->getOppositeTriangle(i) == nullptr) {
        pStartT = pT;
        pStartVtx = pT->getCorner(incIndexBy2(i));
      }
  VASK_ASSERT(pStartT != 0);
  VASK_ASSERT(pStartVtx != 0);
  std::vector<Point2*> vHull;
  vHull.push_back(pStartVtx);
  Triangle2* pT(pStartT);
  Point2* pVtx(pStartVtx);
  for (;;) {
    int ith;
    pT = nextHullEdge(pT, pVtx, ith);
    pVtx = pT->getCorner(incIndexBy2(ith));
    if (pVtx == pStartVtx) break;
    vHull.push_back(pVtx);
  }
  VASK_ASSERT(!vHull.empty());
  std::vector<Point2*>::iterator minIt(vHull.begin());
  for (std::vector<Point2*>::iterator it = vHull.begin(); it != vHull.end(); ++it)
    if (**it < **minIt) minIt = it;
  std::rotate(vHull.begin(), minIt, vHull.end());
  if (bAllVertices) {
    vConvexHullPoints.insert(vConvexHullPoints.end(), vHull.begin(), vHull.end());
    return;
  }
  // The first vertex (smallest x, then y) is a true corner. A vertex is kept
  // when it is not collinear with the last kept one and its successor.
  std::vector<Point2*> vSimplified(1, vHull[0]);
  const size_t m(vHull.size());
  for (size_t j = 1; j <= m; ++j) {
    Point2* pCand(vHull[j % m]);
    if (kiroTest.getOrientation2(vSimplified.back(), pCand, vHull[(j + 1) % m]) != ORIENTATION2_COLLINEAR)
      vSimplified.push_back(pCand);
  }
  VASK_ASSERT(vSimplified[0] == vSimplified.back());
  vSimplified.pop_back();
  vConvexHullPoints.insert(vConvexHullPoints.end(), vSimplified.begin(), vSimplified.end());
}

void Dt2::getConvexHullEdges(std::vector<std::pair<Triangle2*, int> >& vConvexHull) const {
  if (!*pBFullDimensional) return;
  Triangle2* pAnyT(getOneTriangle());
  VASK_ASSERT(pAnyT != NULL);
  // March to the hull: an inner vertex always has a neighbour of smaller x.
  Point2* pVtx(pAnyT->getCorner(0));
  Triangle2* pStartStopT(nullptr);
  int startStopIdx(-1);
  std::vector<Triangle2*> vIncT;
  while (pStartStopT == nullptr) {
    VASK_ASSERT(pVtx != NULL);
    vIncT.clear();
    getIncidentTriangles(pVtx, vIncT);
    Point2* pMinVtx(pVtx);
    for (Triangle2* pT : vIncT) {
      for (int i = 0; i < 3; ++i) {
        if (pStartStopT == nullptr && pT->getOppositeTriangle(i) == nullptr) {
          pStartStopT = pT;
          startStopIdx = i;
        }
        if (*pT->getCorner(i) < *pMinVtx) pMinVtx = pT->getCorner(i);
      }
    }
    pVtx = pMinVtx;
  }
  vConvexHull.emplace_back(pStartStopT, startStopIdx);
  VASK_ASSERT(vConvexHull.size() == 1);
  VASK_ASSERT(pStartStopT->getOppositeTriangle(startStopIdx) == NULL);
  Triangle2* pT(pStartStopT);
  int ith(startStopIdx);
  for (;;) {
    pT = nextHullEdge(pT, pT->getCorner(incIndexBy2(ith)), ith);
    if (pT == pStartStopT && ith == startStopIdx) break;
    vConvexHull.emplace_back(pT, ith);
  }
}

// ---------------------------------------------------------------------------
// Validation and statistics

// A missing segment is reported and drawn, but does not make the mesh
// invalid: a conforming segment too short to divide further, or one that
// waits for area, is missing by design.
void Dt2::checkConstraintEdges(const std::string& name_) const {
  size_t numContained(0);
  std::vector<ConstraintSegment2*> vMissing;
  countConstraintEdges(numContained, vMissing);
  std::cout << "\n* ConstraintSegments (alive): " << (numContained + vMissing.size()) << ", contained: " << numContained
            << ", missing: " << vMissing.size() << std::endl;
  if (vMissing.empty()) return;
  const std::string failName("checkValidityFail_" + name_ + ".ps");
  Visualizer2 vis(failName.c_str());
  show(&vis, true);
  for (ConstraintSegment2* pCSeg : vMissing) {
    vis.addObject(Segment2(*pCSeg->getSrc(), *pCSeg->getTrg()), Color(CGREEN, 0.5f, false));
    std::cout << "Not contained: " << *pCSeg << std::endl;
  }
  vis.writeFile();
}

bool Dt2::checkValidity(bool bCheckEmptyCircle, const std::string& name_) {
  if (!*pBFullDimensional) {
    logInfo("checkValidity(" + name_ + ")", "not fulldimensional yet (empty or all points collinear), Returning true");
    return true;
  }
  const std::string tag("Vask_2D::CheckValidity(" + name_ + ")");
  logInfo(tag, "has been started");
  checkConstraintEdges(name_);
  bool bValid(true);
  auto report = [&](const std::string& text, const Triangle2* pT) {
    std::ostringstream oss;
    oss << text << " " << *pT;
    logError(tag, oss.str());
    bValid = false;
  };
  std::vector<EmptyCircleFailure> vBadCircles;
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  for (Triangle2* pT : vT) {
    Point2* a(pT->getCorner(0));
    Point2* b(pT->getCorner(1));
    Point2* c(pT->getCorner(2));
    if (a == nullptr || b == nullptr || c == nullptr || a == b || b == c || a == c) {
      report("Less than three different corners", pT);
      continue;
    }
    if (kiroTest.getOrientation2(a, b, c) != ORIENTATION2_CCW) report("Corners are not counter-clockwise:", pT);
    for (int i = 0; i < 3; ++i) {
      Triangle2* pN(pT->getOppositeTriangle(i));
      if (pN == nullptr) continue;
      int numBack(0), backIdx(-1);
      for (int j = 0; j < 3; ++j)
        if (pN->getOppositeTriangle(j) == pT) {
          ++numBack;
          backIdx = j;
        }
      if (numBack == 0) {
        report("Inconsistent neighborships:", pT);
        continue;
      }
      Point2* p1(pT->getCorner(incIndexBy1(i)));
      Point2* p2(pT->getCorner(incIndexBy2(i)));
      if (numBack != 1 || pN->getCorner(incIndexBy1(backIdx)) != p2 || pN->getCorner(incIndexBy2(backIdx)) != p1) {
        report("Neighbor found but inconsistent intra triangle indices:", pT);
        continue;
      }
      // Edges that carry a constraint segment are exempt from this test.
      if (bCheckEmptyCircle && !isConstraintEdge(pT, i) &&
          kiroTest.circleInc3state(pT, pN->getCorner(backIdx)) == CINC2_INCIRCLE) {
        report("Sphere inclusion test failed ", pT);
        vBadCircles.push_back(EmptyCircleFailure{pT, pN, pN->getCorner(backIdx)});
      }
    }
  }
  std::vector<Point2*> vVertices;
  getVertexPointers(vVertices);
  for (Point2* pVtx : vVertices) {
    Triangle2* pIncT(pVtx->getIncidentTriangle());
    if (pIncT == nullptr || !pIncT->hasVertex(pVtx)) {
      std::ostringstream oss;
      oss << "Vertex without a valid incident triangle: " << *pVtx;
      logError(tag, oss.str());
      bValid = false;
    }
  }
  if (bValid) {
    logInfo(tag, "Valid triangulation");
  } else {
    std::cout << "\ncheckValidity, bug, name=" << name_ << std::endl;
    show("currentState.ps", true);
    if (!vBadCircles.empty()) drawEmptyCircleFailures(*this, vBadCircles, name_);
  }
  return bValid;
}

void Dt2::statistics(const std::string& name_) const {
  std::cout << "\n\n\n********* MESH STATISTICS (" << name_ << ") **********\n\n";
  std::vector<double> vLimits;
  for (int limit = 10; limit <= 180; limit += 10) vLimits.push_back(limit);
  Histogram histogram("INTERIOR ANGLES", vLimits);
  std::cout << "Number of triangles: " << numberOfTriangles() << std::endl;
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) histogram.add(pT->getInteriorAngle2D(i));
  histogram.print(std::cout);
}

double Dt2::measureTriangulationTime(const std::vector<Point2>& vPoints) const {
  Dt2 localDt2(3);
  timer("[quiet] Delaunay point insertion");
  localDt2.setNumCPU(numCPU);
  localDt2.insertVector(vPoints, nullptr);
  return timer("[quiet] Delaunay point insertion");
}



void Dt2::show(const char* filename, bool bWithConstraints) const {
  Visualizer2 vis(filename);
  show(&vis, bWithConstraints);
  vis.writeFile();
}

void Dt2::show(Visualizer2* pVis, bool bWithConstraints) const {
  if (pVis == nullptr) {
    logWarning("Dt2::show()", "pVis==NULL, no visualization");
    return;
  }
  if (!hasArea()) {
    logWarning("Dt2::show()", "The triangulation is has no area, no visualization");
    return;
  }
  // Each edge once: as the pair of its end points ordered by pointer value,
  // which both of its triangles produce alike.
  std::vector<Triangle2*> vT;
  getTrianglePointers(vT);
  std::vector<VertexPair2> vEdges;
  vEdges.reserve(3 * vT.size());
  for (const Triangle2* pT : vT) {
    for (int i = 0; i < 3; ++i) {
      Point2* p0(pT->getCorner(incIndexBy1(i)));
      Point2* p1(pT->getCorner(incIndexBy2(i)));
      // checkValidity draws broken meshes too: a missing corner is skipped.
      if (p0 != nullptr && p1 != nullptr) vEdges.push_back(VertexPair2(p0, p1));
    }
  }
  std::sort(vEdges.begin(), vEdges.end());
  vEdges.erase(std::unique(vEdges.begin(), vEdges.end()), vEdges.end());
  // Ordinary edges first, constraint edges on top: red and 0.5 wide, or,
  // without bWithConstraints, black and finer than the ordinary ones.
  const Color ordinary(CBLACK, 0.01f, false);
  const Color constraint(bWithConstraints ? Color(CRED, 0.5f, false) : Color(CBLACK, 0.001f, false));
  std::vector<const VertexPair2*> vConstraintEdges;
  for (const VertexPair2& edge : vEdges) {
    if (pConstraintMgr != nullptr && isConstraint(edge.getFirst(), edge.getSecond())) vConstraintEdges.push_back(&edge);
    else pVis->addObject(Segment2(*edge.getFirst(), *edge.getSecond()), ordinary);
  }
  for (const VertexPair2* pEdge : vConstraintEdges)
    pVis->addObject(Segment2(*pEdge->getFirst(), *pEdge->getSecond()), constraint);
}

} // namespace KIRO_VASK2D
