#pragma once
#include "Vask2DApi.h"
#include "Vector2.h"
#include <cmath>
#include <iosfwd>

namespace KIRO_VASK2D {

/** A coordinate pair; owned by a triangulation it is a vertex that knows one
 * incident triangle. A copy of a vertex is always a free point: the copy
 * operations never carry the triangle pointer over. */
class VASK2D_API Point2 {
public:
  Point2()
      : coordX(-1.7976931348623157e308), coordY(-1.7976931348623157e308), pT(nullptr), customIndex(-1) {}
  Point2(double x_, double y_) : coordX(x_), coordY(y_), pT(nullptr), customIndex(-1) {}
  Point2(const Point2& other) : coordX(other.coordX), coordY(other.coordY), pT(nullptr), customIndex(other.customIndex) {}
  Point2& operator=(const Point2& other) {
    coordX = other.coordX;
    coordY = other.coordY;
    pT = nullptr;
    customIndex = other.customIndex;
    return *this;
  }
  void set(const Point2& other) { *this = other; }
  void set(double x_, double y_, int customIndex_) {
    coordX = x_;
    coordY = y_;
    customIndex = customIndex_;
    pT = nullptr;
  }
  void change(double x_, double y_) {
    coordX = x_;
    coordY = y_;
  }

  double x() const { return coordX; }
  double y() const { return coordY; }
  void xy(double& x_, double& y_) const {
    x_ = coordX;
    y_ = coordY;
  }
  double getMaxAbs() const {
    const double ax(std::fabs(coordX)), ay(std::fabs(coordY));
    return ax > ay ? ax : ay;
  }

  Triangle2* getIncidentTriangle() const { return pT; }
  void setIncidentTriangle(Triangle2* pT_) { pT = pT_; }
  int getCustomIndex() const { return customIndex; }
  void setCustomIndex(int customIndex_) { customIndex = customIndex_; }

  bool operator==(const Point2& p) const { return coordX == p.coordX && coordY == p.coordY; }
  bool operator!=(const Point2& p) const { return !(*this == p); }
  bool operator<(const Point2& p) const { return coordX < p.coordX || (coordX == p.coordX && coordY < p.coordY); }
  bool operator>(const Point2& p) const { return coordX > p.coordX || (coordX == p.coordX && coordY > p.coordY); }

  Point2 operator+(const Vector2& v) const { return Point2(coordX + v.x(), coordY + v.y()); }
  Point2 operator-(const Vector2& v) const { return Point2(coordX - v.x(), coordY - v.y()); }
  Vector2 operator-(const Point2& p) const { return Vector2(coordX - p.coordX, coordY - p.coordY); }

  void print() const;

private:
  double coordX;
  double coordY;
  Triangle2* pT;
  int customIndex;
};

VASK2D_API std::ostream& operator<<(std::ostream& stream, const Point2& pnt);

/** Squared distance of two points. */
inline double sqDistance2D(const Point2& p0, const Point2& p1) {
  const double dx(p0.x() - p1.x()), dy(p0.y() - p1.y());
  return dx * dx + dy * dy;
}

} // namespace KIRO_VASK2D
