#pragma once
#include "Bbox2.h"
#include "Circle2.h"
#include "Color.h"
#include "Edge2.h"
#include "Label.h"
#include "Point2.h"
#include "Segment2.h"
#include "Triangle2.h"
#include "Vask2DApi.h"
#include <fstream>
#include <utility>
#include <vector>

namespace KIRO_VASK2D {

class ConstraintSegment2;

/** Draws points, segments, edges, circles, triangles and labels to a
 * single-page PostScript file.
 *
 * The constructor creates the file; objects are collected in memory because
 * the scale of the page depends on the extent of all of them, and writeFile
 * writes the page and closes the file. The drawing keeps its aspect ratio and
 * fills a square of 480 points whose lower left corner stands at (50, 200)
 * on an A4 page. Triangles are drawn first, then segments, circles, points
 * and labels on top, whatever the order of adding.
 *
 * Objects are copied when added: later changes of a mesh do not reach the
 * drawing. Objects with a non-finite coordinate and null pointers are
 * skipped with a warning. Adding to a closed visualiser is a broken
 * invariant (VaskException). A Visualizer2 belongs to one thread. */
class VASK2D_API Visualizer2 {
public:
  /** Prints "Visualizer2:: Writing <filename>" and creates the file at once.
   * A file that can't be created is reported on the error stream as
   * "<filename> can't be opened"; writeFile then returns false. */
  explicit Visualizer2(const char* filename);
  /** Completes the file if writeFile has not been called. */
  ~Visualizer2();
  Visualizer2(const Visualizer2&) = delete;
  Visualizer2& operator=(const Visualizer2&) = delete;

  void addObject(const Point2& p, const Color& c);
  /** A segment whose colour has bFill gets a cross at each end point. */
  void addObject(const Segment2& seg, const Color& c);
  /** Stored as the segment between the end points of the edge. */
  void addObject(const Edge2& edge, const Color& c);
  void addObject(const Circle2& circle, const Color& c);
  /** Stores copies of the corners; a triangle with a null corner is skipped. */
  void addObject(const Triangle2& t, const Color& c);
  void addObject(const Label& label, const Color& c);

  void addObject(const std::vector<Point2>& vPoints_, const Color& c);
  void addObject(const std::vector<Point2*>& vPoints_, const Color& c);
  void addObject(const std::vector<Segment2>& vSegments_, const Color& c);
  void addObject(const std::vector<Edge2>& vEdges, const Color& c);
  /** Each segment as it stands now, between its two end points. */
  void addObject(const std::vector<ConstraintSegment2*>& vCSegs, const Color& c);
  void addObject(const std::vector<Triangle2>& vTriangles_, const Color& c);
  void addObject(const std::vector<Triangle2*>& vTriangles_, const Color& c);

  /** A line of the text block at the top right of the page. At most ten
   * lines are kept, and each is cut to 120 characters in the file. */
  void addHeaderLine(const char* s);

  /** Writes the page and closes the file. True when the complete page has
   * been written; false when the file could not be created or written, and
   * after an earlier call (which is logged and has no effect). */
  bool writeFile();

private:
  struct Impl;
  void computeBbox();
  double toPageX(double x) const;
  double toPageY(double y) const;
  double toPageLength(double len) const;
  void writeHead();
  void writeHeaderBlock();
  void changeColor(const Color& c);
  void prepareColor(const Color& c);
  void finishObject();
  void writeSegment(const Segment2& seg);
  void writeTriangle(const Triangle2& t);
  void writeCircle(const Circle2& circle);
  void writeCross(const Point2& p, double size);
  void writeLabel(const Label& label);

  Impl* pImpl; // the file name, the header lines and the scale of the page
  std::ofstream outFile;
  std::vector<std::pair<Segment2, Color> > vSegments;
  std::vector<std::pair<Circle2, Color> > vCircles;
  std::vector<std::pair<Point2, Color> > vPoints;
  std::vector<std::pair<Triangle2, Color> > vTriangles;
  std::vector<std::pair<Label, Color> > vLabels;
  int numObjects;
  Bbox2 bbox;
  bool bFill;
  Color currentColor;
  bool bFileClosed;
};

} // namespace KIRO_VASK2D
