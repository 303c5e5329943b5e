#pragma once
#include "Point2.h"
#include "Vask2DApi.h"
#include <iosfwd>
#include <vector>

namespace KIRO_VASK2D {

/** Axis-aligned bounding box. An empty box holds the sentinels +max (minima)
 * and -max (maxima). A box that points to a KiroTest (not owned) tells it the
 * largest absolute coordinate after each enlargement, so that the filter of
 * the predicates stays valid for every point inside the box. */
class VASK2D_API Bbox2 {
public:
  explicit Bbox2(KiroTest* pKiroTest_ = nullptr)
      : minX(1.7976931348623157e308), minY(1.7976931348623157e308), maxX(-1.7976931348623157e308),
        maxY(-1.7976931348623157e308), bValid(false), pKiroTest(pKiroTest_) {}

  /** Looks at the bounds, not at the flag: true once minX left its sentinel. */
  bool isValid() const { return minX < 1.7976931348623157e308; }

  /** Extends the box; true when a bound changed (always true on a box without flag). */
  bool add(const Point2& p) {
    if (!bValid) {
      treatPointForInvalidBox(p);
      return true;
    }
    return treatPointForValidBox(p);
  }
  /** n interleaved x,y pairs; true when a bound changed, false for n = 0. */
  bool add(unsigned n, const double* coords);
  bool add(std::vector<Point2>::const_iterator first, std::vector<Point2>::const_iterator last);
  bool add(std::vector<Point2*>::const_iterator first, std::vector<Point2*>::const_iterator last);

  /** Grows this box by other and returns a copy of this box; see the source for invalid boxes. */
  Bbox2 operator+(const Bbox2& other);

  double get_minX() const { return minX; }
  double get_minY() const { return minY; }
  double get_maxX() const { return maxX; }
  double get_maxY() const { return maxY; }
  /** Each setter sets the flag when the box is then non-empty; it never clears it. */
  void setMinX(double v);
  void setMinY(double v);
  void setMaxX(double v);
  void setMaxY(double v);
  /** Mind the order: x bounds first, then y bounds. */
  void getBounds(double& minX_, double& maxX_, double& minY_, double& maxY_) const {
    minX_ = minX;
    maxX_ = maxX;
    minY_ = minY;
    maxY_ = maxY;
  }
  Point2 getMinPoint() const { return Point2(minX, minY); }
  Point2 getMaxPoint() const { return Point2(maxX, maxY); }
  double getRangeX() const { return maxX - minX; }
  double getRangeY() const { return maxY - minY; }
  double getMaxRange() const;
  double getMinCoord() const;
  double getMaxCoord() const;
  /** The midpoint; warns on an empty box and computes it anyway. */
  Point2 computeCenter() const;

  /** Closed test; false for a box without flag. */
  bool isInBox(const Point2& p) const;
  /** Closed test; both boxes must carry the flag, else a warning and false. */
  bool doIntersect(const Bbox2& other) const;
  /** Appends (minX,minY), (maxX,minY), (maxX,maxY), (minX,maxY). */
  void getCorners(std::vector<Point2>& vCorners) const;
  /** The corners moved outward by offset in x and y. */
  void getOffsetCorners(double offset, std::vector<Point2>& vCorners) const;

  /** Doubles both ranges around the centre and reports the new extent. */
  void doubleTheBox();
  /** Multiplies both ranges by factor around the centre and reports the new extent. */
  void enlargeRanges(double factor);
  /** On a flagged box, moves the max side of a zero range by val. */
  void inflateIfDegenerate(double val);

private:
  bool treatPointForValidBox(const Point2& p) { return treatCoordsForValidBox(p.x(), p.y()); }
  // Assumes minX <= maxX and minY <= maxY, so a coordinate can move at most
  // one bound per axis.
  bool treatCoordsForValidBox(double x, double y) {
    bool bChanged(false);
    if (minX > x) {
      minX = x;
      bChanged = true;
    } else if (x > maxX) {
      maxX = x;
      bChanged = true;
    }
    if (minY > y) {
      minY = y;
      bChanged = true;
    } else if (y > maxY) {
      maxY = y;
      bChanged = true;
    }
    return bChanged;
  }
  void treatPointForInvalidBox(const Point2& p);
  /** Tells the predicates object the largest absolute coordinate of the box. */
  void reportExtent();

  double minX;
  double minY;
  double maxX;
  double maxY;
  bool bValid;
  KiroTest* pKiroTest;
};

VASK2D_API std::ostream& operator<<(std::ostream& stream, const Bbox2& box);

} // namespace KIRO_VASK2D
