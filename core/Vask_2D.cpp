#include "Vask_2D.h"
#include "core/Dt2.h"
#include "Visualizer2.h"
#include "kernel/RoundingModeGuard.h"
#include "support/Log.h"
#include <cfenv>
#include <cmath>
#include <optional>
#include <iostream>
#include <sstream>

namespace KIRO_VASK2D {

namespace {

bool isFinitePoint(double x, double y) { return std::isfinite(x) && std::isfinite(y); }

// NaN and infinity are outside every predicate's promise: such a point is
// turned away here, before it reaches the box, the Hilbert key or the walk.
void warnNonFinite(const char* tag, double x, double y) {
  std::ostringstream oss;
  oss << "Point (" << x << ", " << y << ") has a NaN or infinite coordinate, ignored (null handle)";
  logWarning(tag, oss.str());
}

// Copies the finite points of a batch and remembers their input positions;
// false when all are finite and the input can be used as it is.
bool filterFinite(const std::vector<Point2>& vIn, std::vector<Point2>& vFinite, std::vector<size_t>& vPos) {
  size_t numBad(0);
  for (const Point2& p : vIn)
    if (!isFinitePoint(p.x(), p.y())) ++numBad;
  if (numBad == 0) return false;
  vFinite.reserve(vIn.size() - numBad);
  vPos.reserve(vIn.size() - numBad);
  for (size_t i = 0; i < vIn.size(); ++i) {
    if (isFinitePoint(vIn[i].x(), vIn[i].y())) {
      vFinite.push_back(vIn[i]);
      vPos.push_back(i);
    } else {
      warnNonFinite("Vask_2D::insert(vector)", vIn[i].x(), vIn[i].y());
    }
  }
  return true;
}

} // namespace

Vask_2D::Vask_2D(unsigned int numPoints) : pImpl(nullptr) { initVask(numPoints); }

Vask_2D::~Vask_2D() { delete pImpl; }

void Vask_2D::initVask(unsigned int numPoints) { pImpl = new Dt2(numPoints); }

Point2* Vask_2D::insert(const Point2& p) {
  NearestRounding rounding;
  if (!isFinitePoint(p.x(), p.y())) {
    warnNonFinite("Vask_2D::insert(Point2)", p.x(), p.y());
    return nullptr;
  }
  return pImpl->insert(p);
}

void Vask_2D::insert(const std::vector<Point2>& vInputPoints) {
  NearestRounding rounding;
  std::vector<Point2> vFinite;
  std::vector<size_t> vPos;
  if (filterFinite(vInputPoints, vFinite, vPos)) {
    pImpl->insertVector(vFinite, nullptr);
  } else {
    pImpl->insertVector(vInputPoints, nullptr);
  }
}

void Vask_2D::insert(const std::vector<Point2>& vInputPoints, std::vector<Point2*>& vHandles) {
  NearestRounding rounding;
  std::vector<Point2> vFinite;
  std::vector<size_t> vPos;
  if (!filterFinite(vInputPoints, vFinite, vPos)) {
    pImpl->insertVector(vInputPoints, &vHandles);
    vHandles.resize(vInputPoints.size());
    return;
  }
  std::vector<Point2*> vFiniteHandles;
  pImpl->insertVector(vFinite, &vFiniteHandles);
  vHandles.assign(vInputPoints.size(), nullptr);
  for (size_t k = 0; k < vPos.size() && k < vFiniteHandles.size(); ++k) vHandles[vPos[k]] = vFiniteHandles[k];
}

void Vask_2D::insert(int numPoints, double* aCoordinates, Point2** aHandles) {
  NearestRounding rounding;
  if (numPoints <= 0) return;
  if (aCoordinates == nullptr) {
    logWarning("Vask_2D::insert(int,double*,Point2**)", "coordinates==NULL, nothing inserted");
    return;
  }
  const size_t n(static_cast<size_t>(numPoints));
  std::vector<Point2*> vLocalHandles;
  if (aHandles == nullptr) {
    vLocalHandles.resize(n);
    aHandles = vLocalHandles.data();
  }
  size_t numBad(0);
  for (size_t i = 0; i < n; ++i)
    if (!isFinitePoint(aCoordinates[2 * i], aCoordinates[2 * i + 1])) ++numBad;
  if (numBad == 0) {
    pImpl->insert(numPoints, aCoordinates, aHandles);
    return;
  }
  std::vector<double> vCoords;
  std::vector<size_t> vPos;
  vCoords.reserve(2 * (n - numBad));
  for (size_t i = 0; i < n; ++i) {
    aHandles[i] = nullptr;
    const double x(aCoordinates[2 * i]), y(aCoordinates[2 * i + 1]);
    if (!isFinitePoint(x, y)) {
      warnNonFinite("Vask_2D::insert(int,double*,Point2**)", x, y);
      continue;
    }
    vCoords.push_back(x);
    vCoords.push_back(y);
    vPos.push_back(i);
  }
  std::vector<Point2*> vFiniteHandles(vPos.size());
  if (!vPos.empty()) pImpl->insert(static_cast<int>(vPos.size()), vCoords.data(), vFiniteHandles.data());
  for (size_t k = 0; k < vPos.size(); ++k) aHandles[vPos[k]] = vFiniteHandles[k];
}

void Vask_2D::remove(Point2* pVtx) {
  NearestRounding rounding;
  pImpl->remove(pVtx);
}

// ---------------------------------------------------------------------------
// Constraints

ConstraintGraph2* Vask_2D::createConstraint(std::vector<Segment2>& vSegments, ConstraintInsertionStrategy cis,
                                            bool bOrientedSegments) {
  NearestRounding rounding;
  if (vSegments.empty()) {
    logWarning("Vask_2D::createConstraint()", "You have not supplied any segments. Returning NULL!");
    return nullptr;
  }
  if (cis != CIS_CONFORMING_DELAUNAY && cis != CIS_CONSTRAINED_DELAUNAY) {
    logWarning("Vask_2D::createConstraint()", "Unknown CIS, returning NULL");
    return nullptr;
  }
  // A non-finite end point never reaches the vault: its segment is dropped
  // here, the others go on.
  std::vector<Segment2> vFinite;
  bool bAllFinite(true);
  for (const Segment2& seg : vSegments) {
    const Point2& a(seg.getSrc());
    const Point2& b(seg.getTrg());
    if (isFinitePoint(a.x(), a.y()) && isFinitePoint(b.x(), b.y())) continue;
    bAllFinite = false;
    std::ostringstream oss;
    oss << "Segment " << a << " - " << b << " has a NaN or infinite coordinate, skipped";
    logWarning("Vask_2D::createConstraint()", oss.str());
  }
  if (bAllFinite) return pImpl->createConstraint(vSegments, cis, bOrientedSegments);
  for (const Segment2& seg : vSegments) {
    const Point2& a(seg.getSrc());
    const Point2& b(seg.getTrg());
    if (isFinitePoint(a.x(), a.y()) && isFinitePoint(b.x(), b.y())) vFinite.push_back(seg);
  }
  return pImpl->createConstraint(vFinite, cis, bOrientedSegments);
}

void Vask_2D::applyConstraintsAndZones() {
  NearestRounding rounding;
  if (!pImpl->hasArea()) {
    logWarning("Vask2D::applyConstraintsAndZones()", "The triangulation has no area yet, can't apply the constraints");
    return;
  }
  pImpl->applyConstraintsAndZones();
}

namespace {
Zone2* reportNoZone(Zone2* pZone, bool bVerbose) {
  if (pZone == nullptr && bVerbose)
    logWarning("Vask_2D::createZone(..)", "No zone created, returning NULL (bVerbose==true)");
  return pZone;
}
} // namespace

Zone2* Vask_2D::createZone(ConstraintGraph2* pConstraintGraph, ZoneLocation zoneLoc, bool bVerbose) {
  NearestRounding rounding;
  return reportNoZone(pImpl->createZone(pConstraintGraph, zoneLoc), bVerbose);
}

Zone2* Vask_2D::createZone(ConstraintGraph2* pConstraintGraph, ZoneLocation zoneLoc, const Point2& startPoint,
                           bool bVerbose) {
  NearestRounding rounding;
  return reportNoZone(pImpl->createZone(std::vector<ConstraintGraph2*>(1, pConstraintGraph), zoneLoc, startPoint),
                      bVerbose);
}

Zone2* Vask_2D::createZone(const std::vector<ConstraintGraph2*>& vConstraintGraphs, ZoneLocation zoneLoc,
                           const Point2& startPoint, bool bVerbose) {
  NearestRounding rounding;
  return reportNoZone(pImpl->createZone(vConstraintGraphs, zoneLoc, startPoint), bVerbose);
}

Zone2* Vask_2D::createZone(std::vector<Triangle2*>& vTriangles, bool bVerbose) {
  NearestRounding rounding;
  return reportNoZone(pImpl->createZone(vTriangles), bVerbose);
}

void Vask_2D::deleteZone(Zone2* pZone) { pImpl->deleteZone(pZone); }

bool Vask_2D::isConstraint(Point2* p0, Point2* p1) const { return pImpl->isConstraint(p0, p1); }
bool Vask_2D::isConstraint(Point2* pVtx) const { return pVtx != nullptr && pImpl->isConstraint(pVtx); }
bool Vask_2D::isConstraint(Triangle2* pT, int ith) const {
  if (pT == nullptr || ith < 0 || ith > 2) {
    logWarning("Vask_2D::isConstraint(Triangle2*,int)", "null triangle or index outside 0..2, returning false");
    return false;
  }
  return pImpl->isConstraint(pT, ith);
}
ConstraintSegment2* Vask_2D::getConstraintSegment(Point2* p0, Point2* p1) const {
  return pImpl->getConstraintSegment(p0, p1);
}
void Vask_2D::getAliveConstraintSegments(std::vector<ConstraintSegment2*>& vAliveConstraintSegments) const {
  pImpl->getAliveConstraintSegments(vAliveConstraintSegments);
}
void Vask_2D::getAliveAndDeadConstraintSegments(std::vector<ConstraintSegment2*>& vAllConstraintSegments) const {
  pImpl->getAliveAndDeadConstraintSegments(vAllConstraintSegments);
}

unsigned int Vask_2D::numberOfPoints() const { return pImpl->numberOfPoints(); }
unsigned int Vask_2D::numberOfTriangles() const { return pImpl->numberOfTriangles(); }
void Vask_2D::getTrianglePointers(std::vector<Triangle2*>& vAllTriangles) const {
  pImpl->getTrianglePointers(vAllTriangles);
}
void Vask_2D::getVertexPointers(std::vector<Point2*>& vAllPoints) const { pImpl->getVertexPointers(vAllPoints); }
void Vask_2D::setFastMode(bool bFast) { pImpl->setFastMode(bFast); }
int Vask_2D::setNumCPU(int numCPU) { return pImpl->setNumCPU(numCPU); }

void Vask_2D::enableMultithreading() { pImpl->setNumCPU(0); }

bool Vask_2D::hasArea() const { return pImpl->hasArea(); }
bool Vask_2D::is2D() const { return pImpl->hasArea(); }

Triangle2* Vask_2D::locate(const Point2& p) {
  NearestRounding rounding;
  if (!isFinitePoint(p.x(), p.y())) {
    warnNonFinite("Vask_2D::locate()", p.x(), p.y());
    return nullptr;
  }
  return pImpl->locate(p);
}

Triangle2* Vask_2D::getAdjacentTriangle(Point2* p0, Point2* p1) const { return pImpl->getAdjacentTriangle(p0, p1); }
void Vask_2D::getConvexHull(bool bAllVertices, std::vector<Point2*>& vConvexHullPoints) {
  NearestRounding rounding;
  pImpl->getConvexHull(bAllVertices, vConvexHullPoints);
}
void Vask_2D::getIncidentTriangles(Point2* pVtx, std::vector<Triangle2*>& vIncT) const {
  pImpl->getIncidentTriangles(pVtx, vIncT);
}
void Vask_2D::getIncidentVertices(Point2* pVtx, std::vector<Point2*>& vIncV) const {
  pImpl->getIncidentVertices(pVtx, vIncV);
}
Bbox2 Vask_2D::computeBoundingBox() const {
  NearestRounding rounding;
  return pImpl->computeBoundingBox();
}
bool Vask_2D::checkValidity(bool bCheckEmptyCircle, char const* name) {
  NearestRounding rounding;
  return pImpl->checkValidity(bCheckEmptyCircle, name != nullptr ? name : "");
}
void Vask_2D::show(char const* filename, bool bWithConstraints) {
  NearestRounding rounding;
  pImpl->show(filename, bWithConstraints);
}

void Vask_2D::show(Visualizer2* pVis, bool bWithConstraints) {
  NearestRounding rounding;
  if (pVis == nullptr) {
    logWarning("Vask_2D::show()", "pVis==NULL, no visualization");
    return;
  }
  pImpl->show(pVis, bWithConstraints);
}

void Vask_2D::statistics(char const* name) const {
  NearestRounding rounding;
  pImpl->statistics(name != nullptr ? name : "");
}
double Vask_2D::measureTriangulationTime(std::vector<Point2>& vPoints) const {
  NearestRounding rounding;
  std::vector<Point2> vFinite;
  std::vector<size_t> vPos;
  if (filterFinite(vPoints, vFinite, vPos)) return pImpl->measureTriangulationTime(vFinite);
  return pImpl->measureTriangulationTime(vPoints);
}
Orientation2 Vask_2D::getOrientation(const Point2& p0, const Point2& p1, const Point2& p2) const {
  NearestRounding rounding;
  return getOrientation2(&p0, &p1, &p2);
}

void Vask_2D::subscribe(MsgType msgType, MsgBase* pReceiver) { pImpl->subscribe(msgType, pReceiver); }
void Vask_2D::unsubscribe(MsgType msgType, MsgBase* pReceiver) { pImpl->unsubscribe(msgType, pReceiver); }
void Vask_2D::setName(char const* name) { pImpl->setName(name != nullptr ? name : ""); }
char const* Vask_2D::getName() const { return pImpl->getName().c_str(); }
void Vask_2D::setDev(char const* name, int iVal, double dVal) {
  if (name != nullptr) pImpl->setDev(name, iVal, dVal);
}
void Vask_2D::internal(int a, int b, char const*) {
  if (a == -7 && (b == -2000 || b == -1000)) std::cout << "internal debug is disbled in your version" << std::endl;
}
Dt2* Vask_2D::getImpl() { return pImpl; }

} // namespace KIRO_VASK2D
