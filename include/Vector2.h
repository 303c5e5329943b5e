#pragma once
#include "Vask2DApi.h"
#include <cmath>
#include <iosfwd>

namespace KIRO_VASK2D {

/** A plain 2D vector. */
class VASK2D_API Vector2 {
public:
  Vector2() : valX(0.0), valY(0.0) {}
  Vector2(double x_, double y_) : valX(x_), valY(y_) {}
  Vector2(const Vector2&) = default;
  Vector2& operator=(const Vector2&) = default;

  void set(double x_, double y_) { valX = x_; valY = y_; }
  double x() const { return valX; }
  double y() const { return valY; }
  double sqLength() const { return valX * valX + valY * valY; }
  double length() const { return std::sqrt(sqLength()); }
  bool isDegenerate() const { return valX == 0.0 && valY == 0.0; }
  double operator*(const Vector2& other) const { return valX * other.valX + valY * other.valY; }
  Vector2 operator*(double f) const { return Vector2(valX * f, valY * f); }
  Vector2 operator/(double f) const { return Vector2(valX / f, valY / f); }
  /** The unit vector that stands to the left of this one; (0,0) for the null vector. */
  Vector2 orthogonalVector() const;

private:
  double valX;
  double valY;
};

inline Vector2 operator*(double f, const Vector2& v) { return v * f; }
inline Vector2 operator+(const Vector2& a, const Vector2& b) { return Vector2(a.x() + b.x(), a.y() + b.y()); }
inline Vector2 operator-(const Vector2& a, const Vector2& b) { return Vector2(a.x() - b.x(), a.y() - b.y()); }
inline Vector2 operator-(const Vector2& a) { return Vector2(-a.x(), -a.y()); }
VASK2D_API std::ostream& operator<<(std::ostream& stream, const Vector2& vec);

} // namespace KIRO_VASK2D
