#include "Bbox2.h"
#include "kernel/KiroTest.h"
#include "support/Log.h"
#include <algorithm>
#include <cmath>
#include <iostream>

namespace KIRO_VASK2D {

void Bbox2::treatPointForInvalidBox(const Point2& p) {
  // A bound that still holds its sentinel takes the coordinate; one that
  // does not (bounds copied by operator+ onto a box without flag) is
  // extended, so the point is inside afterwards in either case. NaN never
  // replaces a bound.
  if (minX > p.x()) minX = p.x();
  if (p.x() > maxX) maxX = p.x();
  if (minY > p.y()) minY = p.y();
  if (p.y() > maxY) maxY = p.y();
  bValid = true;
}

bool Bbox2::add(unsigned n, const double* coords) {
  if (n == 0) return false;
  // The first pair touches all four bounds, without the else of the valid
  // case: after it minX <= maxX and minY <= maxY hold, even on an empty box.
  bool bChanged(false);
  const double x0(coords[0]), y0(coords[1]);
  if (minX > x0) {
    minX = x0;
    bChanged = true;
  }
  if (x0 > maxX) {
    maxX = x0;
    bChanged = true;
  }
  if (minY > y0) {
    minY = y0;
    bChanged = true;
  }
  if (y0 > maxY) {
    maxY = y0;
    bChanged = true;
  }
  const double* pEnd(coords + 2 * static_cast<std::size_t>(n));
  for (const double* pc = coords; pc != pEnd; pc += 2)
    if (treatCoordsForValidBox(pc[0], pc[1])) bChanged = true;
  bValid = true;
  return bChanged;
}

bool Bbox2::add(std::vector<Point2>::const_iterator first, std::vector<Point2>::const_iterator last) {
  bool bChanged(false);
  for (; first != last; ++first)
    if (add(*first)) bChanged = true;
  return bChanged;
}

bool Bbox2::add(std::vector<Point2*>::const_iterator first, std::vector<Point2*>::const_iterator last) {
  bool bChanged(false);
  for (; first != last; ++first)
    if (add(**first)) bChanged = true;
  return bChanged;
}

Bbox2 Bbox2::operator+(const Bbox2& other) {
  if (!other.isValid()) {
    logWarning("Box2::operator+()", "trying to add an invalid Bbox2");
    return *this;
  }
  if (!isValid()) {
    // The flag stays as it is: the bounds are taken over, but flag-based
    // tests (isInBox, doIntersect) wait for the next add.
    minX = other.minX;
    minY = other.minY;
    maxX = other.maxX;
    maxY = other.maxY;
    return *this;
  }
  minX = std::min(minX, other.minX);
  minY = std::min(minY, other.minY);
  maxX = std::max(maxX, other.maxX);
  maxY = std::max(maxY, other.maxY);
  return *this;
}

void Bbox2::setMinX(double v) {
  minX = v;
  if (maxX >= minX && maxY >= minY) bValid = true;
}
void Bbox2::setMinY(double v) {
  minY = v;
  if (maxX >= minX && maxY >= minY) bValid = true;
}
void Bbox2::setMaxX(double v) {
  maxX = v;
  if (maxX >= minX && maxY >= minY) bValid = true;
}
void Bbox2::setMaxY(double v) {
  maxY = v;
  if (maxX >= minX && maxY >= minY) bValid = true;
}

double Bbox2::getMaxRange() const {
  return std::max(getRangeX(), getRangeY());
}
double Bbox2::getMinCoord() const {
  return std::min(minX, minY);
}
double Bbox2::getMaxCoord() const {
  return std::max(maxX, maxY);
}

Point2 Bbox2::computeCenter() const {
  if (!isValid()) logWarning("Bbox2::computeCenter()", "Bbox2 is invalid");
  // Halving first cannot overflow, unlike minX + maxX near the double limit.
  return Point2(minX * 0.5 + maxX * 0.5, minY * 0.5 + maxY * 0.5);
}

bool Bbox2::isInBox(const Point2& p) const {
  return bValid && minX <= p.x() && p.x() <= maxX && minY <= p.y() && p.y() <= maxY;
}

bool Bbox2::doIntersect(const Bbox2& other) const {
  if (!bValid || !other.bValid) {
    logWarning("Bbox2::doIntersect()", "bbox invalid");
    return false;
  }
  return !(other.minX > maxX || minX > other.maxX || other.minY > maxY || minY > other.maxY);
}

void Bbox2::getCorners(std::vector<Point2>& vCorners) const {
  vCorners.emplace_back(minX, minY);
  vCorners.emplace_back(maxX, minY);
  vCorners.emplace_back(maxX, maxY);
  vCorners.emplace_back(minX, maxY);
}

void Bbox2::getOffsetCorners(double offset, std::vector<Point2>& vCorners) const {
  vCorners.emplace_back(minX - offset, minY - offset);
  vCorners.emplace_back(maxX + offset, minY - offset);
  vCorners.emplace_back(maxX + offset, maxY + offset);
  vCorners.emplace_back(minX - offset, maxY + offset);
}

void Bbox2::doubleTheBox() {
  // An empty box has no range to double; its sentinels must stay intact.
  if (!isValid()) return;
  const double halfX(getRangeX() / 2.0), halfY(getRangeY() / 2.0);
  minX -= halfX;
  maxX += halfX;
  minY -= halfY;
  maxY += halfY;
  reportExtent();
}

void Bbox2::enlargeRanges(double factor) {
  if (!isValid()) return;
  const double rangeX(getRangeX()), rangeY(getRangeY());
  const double dx((rangeX * factor - rangeX) / 2.0), dy((rangeY * factor - rangeY) / 2.0);
  minX -= dx;
  maxX += dx;
  minY -= dy;
  maxY += dy;
  reportExtent();
}

void Bbox2::inflateIfDegenerate(double val) {
  if (!bValid) return;
  if (minX == maxX) maxX += val;
  if (minY == maxY) maxY += val;
}

void Bbox2::reportExtent() {
  if (pKiroTest == nullptr) return;
  const double maxAbs(std::max(std::max(std::fabs(minX), std::fabs(maxX)), std::max(std::fabs(minY), std::fabs(maxY))));
  pKiroTest->setStaticBound_MT(maxAbs);
}

std::ostream& operator<<(std::ostream& stream, const Bbox2& box) {
  stream << "Bbox2: xRange=(" << box.get_minX() << ", " << box.get_maxX() << "), yRange=(" << box.get_minY() << ", "
         << box.get_maxY() << ")";
  if (!box.isValid()) stream << " (empty)";
  return stream;
}

} // namespace KIRO_VASK2D
