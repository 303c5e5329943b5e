#include "Visualizer2.h"
#include "ConstraintSegment2.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>

namespace KIRO_VASK2D {

namespace {

// Page geometry in PostScript points (1/72 inch) on an A4 page of 595 x 842:
// the drawing fills a square of DRAW_SIZE whose lower left corner is at
// (PAGE_OFFSET_X, PAGE_OFFSET_Y); the title lines stand above it, at 705 and
// higher, and the header block ends at 692 below.
const double DRAW_SIZE(480.0);
const double PAGE_OFFSET_X(50.0);
const double PAGE_OFFSET_Y(200.0);
// Crosses of points and label marks, in page points.
const double POINT_CROSS_SIZE(1.5);
// New path after this many objects, which keeps paths short for old printers.
const int MAX_OBJECTS_PER_PATH(30);
const std::size_t MAX_HEADER_LINES(10);
const std::size_t MAX_HEADER_LINE_LENGTH(120);
// A label's extent along x in the caller's units: half its length, at most 20.
const std::size_t MAX_LABEL_EXTENT_CHARS(20);

/** A text inside a PostScript string literal "(...)": backslash and both
 * parentheses are escaped so that any text leaves the page intact, and line
 * breaks would end the literal's line in the file, so they become blanks. */
std::string psString(const std::string& s) {
  std::string out;
  out.reserve(s.size());
  for (char ch : s) {
    if (ch == '(' || ch == ')' || ch == '\\') out.push_back('\\');
    if (ch == '\n' || ch == '\r') ch = ' ';
    out.push_back(ch);
  }
  return out;
}

/** A text inside a DSC comment line must not break the line. */
std::string commentText(const std::string& s) {
  std::string out(s);
  std::replace(out.begin(), out.end(), '\n', ' ');
  std::replace(out.begin(), out.end(), '\r', ' ');
  return out;
}

bool isFinitePoint(const Point2& p) { return std::isfinite(p.x()) && std::isfinite(p.y()); }

void warnSkipped(const char* what) {
  logWarning("Visualizer2::addObject()", std::string(what) + ", object skipped");
}

} // namespace

struct Visualizer2::Impl {
  std::string filename;
  std::vector<std::string> vHeaderLines;
  // Corner copies of the stored triangles; a deque keeps their addresses
  // stable while it grows, so the triangles in vTriangles may point at them.
  std::deque<Point2> dqCorners;
  bool bOpenFailed = false;
  // The scale of the page, set by computeBbox.
  double minX = 0.0;
  double minY = 0.0;
  double maxRange = 1.0;
  // When maxRange * DRAW_SIZE overflows, lengths are scaled from halves.
  bool bDirectScale = true;
};

Visualizer2::Visualizer2(const char* filename)
    : pImpl(new Impl),
      numObjects(0),
      bFill(false),
      // No real colour has a negative component: the first object always
      // writes its colour.
      currentColor(-1.0, -1.0, 1.0, -1.0, false),
      bFileClosed(false) {
  if (filename == nullptr) {
    logWarning("Visualizer2::Visualizer2()", "filename==NULL, nothing can be written");
    pImpl->bOpenFailed = true;
    return;
  }
  pImpl->filename = filename;
  std::cout << "Visualizer2:: Writing " << filename << std::endl;
  outFile.open(filename, std::ios::out | std::ios::trunc);
  if (!outFile.is_open()) {
    pImpl->bOpenFailed = true;
    std::cerr << filename << " can't be opened" << std::endl;
    return;
  }
  // PostScript needs '.' as the decimal point whatever the host's locale is.
  outFile.imbue(std::locale::classic());
}

Visualizer2::~Visualizer2() {
  if (!bFileClosed) {
    std::cout << "Calling Visualizer2::writeFile() to complete an unfinished visualization [" << pImpl->filename
              << "]" << std::endl;
    writeFile();
  }
  delete pImpl;
}

void Visualizer2::addObject(const Point2& p, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  if (!isFinitePoint(p)) return warnSkipped("point with a non-finite coordinate");
  vPoints.push_back(std::make_pair(p, c));
}

void Visualizer2::addObject(const Segment2& seg, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  if (!isFinitePoint(seg.getSrc()) || !isFinitePoint(seg.getTrg()))
    return warnSkipped("segment with a non-finite coordinate");
  vSegments.push_back(std::make_pair(seg, c));
}

void Visualizer2::addObject(const Edge2& edge, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  const int idx(edge.getIndex());
  if (edge.getTriangle() == nullptr || idx < 0 || idx > 2) return warnSkipped("edge without a triangle or index");
  Point2* pSrc(edge.getSrc());
  Point2* pTrg(edge.getTrg());
  if (pSrc == nullptr || pTrg == nullptr) return warnSkipped("edge of a triangle with a null corner");
  addObject(Segment2(*pSrc, *pTrg), c);
}

void Visualizer2::addObject(const Circle2& circle, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  const double sqRadius(circle.getSqRadius());
  if (!isFinitePoint(circle.getCenter()) || !std::isfinite(sqRadius) || sqRadius < 0.0)
    return warnSkipped("circle with a non-finite centre or an invalid radius");
  vCircles.push_back(std::make_pair(circle, c));
}

void Visualizer2::addObject(const Triangle2& t, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  Point2* pCorners[3] = {t.getCorner(0), t.getCorner(1), t.getCorner(2)};
  for (Point2* pCorner : pCorners) {
    if (pCorner == nullptr) return warnSkipped("triangle with a null corner");
    if (!isFinitePoint(*pCorner)) return warnSkipped("triangle with a non-finite coordinate");
  }
  Point2* pCopies[3];
  for (int i = 0; i < 3; ++i) {
    pImpl->dqCorners.push_back(*pCorners[i]);
    pCopies[i] = &pImpl->dqCorners.back();
  }
  vTriangles.push_back(std::make_pair(Triangle2(pCopies[0], pCopies[1], pCopies[2]), c));
}

void Visualizer2::addObject(const Label& label, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  if (!isFinitePoint(label.position)) return warnSkipped("label with a non-finite position");
  vLabels.push_back(std::make_pair(label, c));
}

void Visualizer2::addObject(const std::vector<Point2>& vPoints_, const Color& c) {
  for (const Point2& p : vPoints_) addObject(p, c);
}

void Visualizer2::addObject(const std::vector<Point2*>& vPoints_, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  for (const Point2* pP : vPoints_) {
    if (pP == nullptr) {
      warnSkipped("null point");
      continue;
    }
    addObject(*pP, c);
  }
}

void Visualizer2::addObject(const std::vector<Segment2>& vSegments_, const Color& c) {
  for (const Segment2& seg : vSegments_) addObject(seg, c);
}

void Visualizer2::addObject(const std::vector<Edge2>& vEdges, const Color& c) {
  for (const Edge2& edge : vEdges) addObject(edge, c);
}

void Visualizer2::addObject(const std::vector<ConstraintSegment2*>& vCSegs, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  for (const ConstraintSegment2* pCSeg : vCSegs) {
    if (pCSeg == nullptr) {
      warnSkipped("null constraint segment");
      continue;
    }
    addObject(Segment2(*pCSeg->getSrc(), *pCSeg->getTrg()), c);
  }
}

void Visualizer2::addObject(const std::vector<Triangle2>& vTriangles_, const Color& c) {
  for (const Triangle2& t : vTriangles_) addObject(t, c);
}

void Visualizer2::addObject(const std::vector<Triangle2*>& vTriangles_, const Color& c) {
  VASK_ASSERT(!bFileClosed);
  for (const Triangle2* pT : vTriangles_) {
    if (pT == nullptr) {
      warnSkipped("null triangle");
      continue;
    }
    addObject(*pT, c);
  }
}

void Visualizer2::addHeaderLine(const char* s) {
  VASK_ASSERT(!bFileClosed);
  if (s == nullptr) {
    logWarning("Visualizer2::addHeaderLine()", "line==NULL, skipped");
    return;
  }
  if (pImpl->vHeaderLines.size() >= MAX_HEADER_LINES) {
    logWarning("Visualizer2::addHeaderLine()",
            std::string("skipping text [\"") + s + "\"], maximum number of header lines reached");
    return;
  }
  pImpl->vHeaderLines.push_back(s);
}

bool Visualizer2::writeFile() {
  if (bFileClosed) {
    logWarning("Visualizer2::writeFile()", "No effect. File has already been closed");
    return false;
  }
  bFileClosed = true;
  if (pImpl->bOpenFailed) return false;

  computeBbox();
  writeHead();

  for (const std::pair<Triangle2, Color>& tc : vTriangles) {
    prepareColor(tc.second);
    writeTriangle(tc.first);
    finishObject();
  }

  // End point marks of segments whose colour has bFill: a point shared by
  // several such segments of the same colour gets one cross.
  std::vector<std::pair<Point2, Color> > vEndMarks;
  for (const std::pair<Segment2, Color>& sc : vSegments) {
    prepareColor(sc.second);
    writeSegment(sc.first);
    finishObject();
    if (sc.second.bFill) {
      vEndMarks.push_back(std::make_pair(sc.first.getSrc(), sc.second));
      vEndMarks.push_back(std::make_pair(sc.first.getTrg(), sc.second));
    }
  }
  std::sort(vEndMarks.begin(), vEndMarks.end());
  vEndMarks.erase(std::unique(vEndMarks.begin(), vEndMarks.end()), vEndMarks.end());
  for (const std::pair<Point2, Color>& pc : vEndMarks) {
    prepareColor(pc.second);
    writeCross(pc.first, std::max(2.0 * double(pc.second.width), POINT_CROSS_SIZE));
    finishObject();
  }

  for (const std::pair<Circle2, Color>& cc : vCircles) {
    prepareColor(cc.second);
    writeCircle(cc.first);
    finishObject();
  }
  for (const std::pair<Point2, Color>& pc : vPoints) {
    prepareColor(pc.second);
    writeCross(pc.first, POINT_CROSS_SIZE);
    finishObject();
  }
  for (const std::pair<Label, Color>& lc : vLabels) {
    prepareColor(lc.second);
    writeLabel(lc.first);
    finishObject();
  }
  outFile << "stroke\nshowpage\n%%Trailer\n";
  outFile.close();

  // The drawing is on the page now; the collected objects are not needed
  // any more, since a closed visualiser takes none.
  std::vector<std::pair<Segment2, Color> >().swap(vSegments);
  std::vector<std::pair<Circle2, Color> >().swap(vCircles);
  std::vector<std::pair<Point2, Color> >().swap(vPoints);
  std::vector<std::pair<Triangle2, Color> >().swap(vTriangles);
  std::vector<std::pair<Label, Color> >().swap(vLabels);
  std::deque<Point2>().swap(pImpl->dqCorners);

  if (outFile.fail()) {
    std::cerr << pImpl->filename << " can't be written" << std::endl;
    return false;
  }
  return true;
}

void Visualizer2::computeBbox() {
  Bbox2 box;
  for (const std::pair<Segment2, Color>& sc : vSegments) {
    box.add(sc.first.getSrc());
    box.add(sc.first.getTrg());
  }
  for (const std::pair<Circle2, Color>& cc : vCircles) {
    const Point2 c(cc.first.getCenter());
    const double r(std::sqrt(cc.first.getSqRadius()));
    box.add(Point2(c.x() - r, c.y() - r));
    box.add(Point2(c.x() + r, c.y() + r));
  }
  for (const std::pair<Point2, Color>& pc : vPoints) box.add(pc.first);
  for (const std::pair<Triangle2, Color>& tc : vTriangles) {
    for (int i = 0; i < 3; ++i) box.add(*tc.first.getCorner(i));
  }
  for (const std::pair<Label, Color>& lc : vLabels) {
    const Point2& pos(lc.first.position);
    const std::size_t len(std::min(std::strlen(lc.first.getCS()), MAX_LABEL_EXTENT_CHARS));
    box.add(pos);
    box.add(Point2(pos.x() + 0.5 * double(len), pos.y()));
  }
  // An empty page still gets a scale: it shows the origin.
  if (!box.isValid()) box.add(Point2(0.0, 0.0));

  // A flat box grows on its low side: the first addition already gives it
  // a range, so the second one only acts where x - 1 == x, that is for
  // |x| >= 2^53, where neither addition helps. There a relative step of
  // 2^-30 |x| (far above one ulp) moves the low side, or the high side when
  // the low one would overflow.
  const double relStep(1.0 / 1073741824.0);
  if (box.getRangeX() == 0.0) box.add(Point2(box.get_minX() - 1.0, box.get_minY()));
  if (box.getRangeX() == 0.0) box.add(Point2(box.get_minX() + 1.0, box.get_minY()));
  if (box.getRangeX() == 0.0) {
    const double step(std::fabs(box.get_minX()) * relStep);
    const double lowX(box.get_minX() - step);
    box.add(Point2(std::isfinite(lowX) ? lowX : box.get_minX() + step, box.get_minY()));
  }
  if (box.getRangeY() == 0.0) box.add(Point2(box.get_minX(), box.get_minY() - 1.0));
  if (box.getRangeY() == 0.0) box.add(Point2(box.get_minX(), box.get_minY() + 1.0));
  if (box.getRangeY() == 0.0) {
    const double step(std::fabs(box.get_minY()) * relStep);
    const double lowY(box.get_minY() - step);
    box.add(Point2(box.get_minX(), std::isfinite(lowY) ? lowY : box.get_minY() + step));
  }
  bbox = box;

  pImpl->minX = bbox.get_minX();
  pImpl->minY = bbox.get_minY();
  // The ranges of finite bounds overflow only beyond 1.8e308; from there on,
  // and wherever range * 480 overflows, lengths are measured in halves,
  // which are exact and cannot overflow.
  const double rangeX(bbox.get_maxX() - bbox.get_minX());
  const double rangeY(bbox.get_maxY() - bbox.get_minY());
  const double maxRange(rangeX > rangeY ? rangeX : rangeY);
  pImpl->bDirectScale = std::isfinite(maxRange * DRAW_SIZE);
  if (pImpl->bDirectScale) {
    pImpl->maxRange = maxRange;
  } else {
    const double halfX(0.5 * bbox.get_maxX() - 0.5 * bbox.get_minX());
    const double halfY(0.5 * bbox.get_maxY() - 0.5 * bbox.get_minY());
    pImpl->maxRange = halfX > halfY ? halfX : halfY;
  }
}

// A length L of the caller's coordinates is L * 480 / M on the page, with M
// the larger range of the box.
double Visualizer2::toPageLength(double len) const {
  if (pImpl->bDirectScale) return len * DRAW_SIZE / pImpl->maxRange;
  return (0.5 * len / pImpl->maxRange) * DRAW_SIZE;
}

double Visualizer2::toPageX(double x) const {
  if (pImpl->bDirectScale) return toPageLength(x - pImpl->minX) + PAGE_OFFSET_X;
  return (0.5 * x - 0.5 * pImpl->minX) / pImpl->maxRange * DRAW_SIZE + PAGE_OFFSET_X;
}

double Visualizer2::toPageY(double y) const {
  if (pImpl->bDirectScale) return toPageLength(y - pImpl->minY) + PAGE_OFFSET_Y;
  return (0.5 * y - 0.5 * pImpl->minY) / pImpl->maxRange * DRAW_SIZE + PAGE_OFFSET_Y;
}

void Visualizer2::writeHead() {
  const std::string& name(pImpl->filename);
  outFile << "%!PS-Adobe-1.0\n\t%%Creator: KIRO PostscriptWriter\n\t%%Title: " << commentText(name) << "\n"
          << "\t%%CreationDate: "
          << "none" << std::endl;
  outFile << "\t%%DocumentMedia: A4 595 842 0 () ()\n\t%%Orientation: Portrait\n\t%%Pages: 1\t%%DocumentFonts: "
             "Times-Roman Helvetica\n\t%%EndComments\n\t%%BeginProlog\n\t%%EndProlog\n\t%%Page: Kiro "
             "PostscriptWriter 1\n"
          << 0.05 << "\tsetlinewidth\n\t0\t0\t0\tsetrgbcolor\n\t/Times-Roman findfont 17 scalefont\n\tsetfont\n";
  outFile << "40\t740\tmoveto\n\t(" << psString(name) << ")\tshow\n";
  outFile << "0.4\t0.4\t0.4\tsetrgbcolor\n\t/Times-Roman findfont 10 scalefont\n\tsetfont\n";
  outFile << "40\t725\tmoveto\n(Kiro Vask 2D, exact Delaunay triangulation and mesh generation)\tshow\n";
  outFile << "0.0\t0.0\t0.0\tsetrgbcolor\n\t/Times-Roman findfont 10 scalefont\n\tsetfont\n";
  outFile << "40\t705\tmoveto\n"
          << "(x-Range: [" << bbox.get_minX() << " - " << bbox.get_maxX() << "] =" << bbox.getRangeX() << ")\tshow"
          << std::endl;
  outFile << "40\t695\tmoveto\n"
          << "(y-Range: [" << bbox.get_minY() << " - " << bbox.get_maxY() << "] =" << bbox.getRangeY() << ")\tshow"
          << std::endl;
  if (!pImpl->vHeaderLines.empty()) writeHeaderBlock();
}

void Visualizer2::writeHeaderBlock() {
  const std::vector<std::string>& vLines(pImpl->vHeaderLines);
  const int n(static_cast<int>(vLines.size()));
  std::size_t longest(0);
  for (const std::string& line : vLines) longest = std::max(longest, line.size());
  longest = std::min(longest, MAX_HEADER_LINE_LENGTH);

  // The block sits right of x = 240 and above y = 695, below the page top:
  // the size is limited by the width (500 points per longest line) and by
  // the height (100 points for all n lines), but it stays readable (6).
  int fontSize(12);
  if (longest != 0) fontSize = std::min(fontSize, int(500 / longest));
  fontSize = std::min(fontSize, 100 / n - 2);
  fontSize = std::max(fontSize, 6);
  const int lineStep(fontSize + 2);
  const int baseHeight(695);

  outFile << "0.0\t0.0\t0.0\tsetrgbcolor\n\t/Times-Roman findfont " << fontSize << " scalefont\n\tsetfont\n";
  for (int i = 0; i < n; ++i) {
    const std::string line(vLines[i].substr(0, MAX_HEADER_LINE_LENGTH));
    if (i >= int(MAX_HEADER_LINES)) {
      std::cout << "Visualizer2::writeHeader(), no space for line " << line << " - skipped!" << std::endl;
      continue;
    }
    const int y((n - i - 1) * lineStep + baseHeight);
    outFile << "240\t" << y << "\tmoveto\n(" << psString(line) << ")\tshow\n";
  }
  outFile << "237\t692\tmoveto" << std::endl;
  outFile << "237\t" << n * lineStep + baseHeight << "\tlineto" << std::endl;
  outFile << "237\t692\tmoveto" << std::endl;
  outFile << "570\t692\tlineto" << std::endl;
  outFile << "570\t692\tlineto" << std::endl;
}

void Visualizer2::changeColor(const Color& c) {
  outFile << "stroke" << std::endl;
  outFile << c.r << "\t" << c.g << "\t" << c.b << "\tsetrgbcolor" << std::endl;
  outFile << c.width << "\tsetlinewidth" << std::endl;
  bFill = c.bFill;
  currentColor = c;
}

void Visualizer2::prepareColor(const Color& c) {
  if (c != currentColor) changeColor(c);
}

void Visualizer2::finishObject() {
  ++numObjects;
  if (numObjects > MAX_OBJECTS_PER_PATH) {
    numObjects = 0;
    outFile << "stroke" << std::endl;
  }
}

void Visualizer2::writeSegment(const Segment2& seg) {
  const Point2 src(seg.getSrc()), trg(seg.getTrg());
  outFile << toPageX(src.x()) << "\t" << toPageY(src.y()) << "\tmoveto\n";
  outFile << toPageX(trg.x()) << "\t" << toPageY(trg.y()) << "\tlineto\n";
}

void Visualizer2::writeTriangle(const Triangle2& t) {
  const Point2* p0(t.getCorner(0));
  const Point2* p1(t.getCorner(1));
  const Point2* p2(t.getCorner(2));
  outFile << toPageX(p0->x()) << "\t" << toPageY(p0->y()) << "\tmoveto\n";
  outFile << toPageX(p1->x()) << "\t" << toPageY(p1->y()) << "\tlineto\n";
  outFile << toPageX(p2->x()) << "\t" << toPageY(p2->y()) << "\tlineto\n";
  outFile << "closepath\n";
  if (!bFill) {
    outFile << "stroke\n";
    return;
  }
  outFile << "gsave\n  fill\ngrestore\n";
  // Filled triangles get a grey outline; the colour change afterwards
  // restores what the outline replaced, so that the next object of the same
  // colour needs no change.
  if (currentColor.width != 0.0f) {
    outFile << "  0.3 0.3 .3 setrgbcolor\n" << currentColor.width << "\tsetlinewidth\nstroke\n";
  }
  const Color restore(currentColor);
  changeColor(restore);
}

void Visualizer2::writeCircle(const Circle2& circle) {
  const Point2 center(circle.getCenter());
  const double x(toPageX(center.x())), y(toPageY(center.y()));
  const double r(toPageLength(std::sqrt(circle.getSqRadius())));
  outFile << x + r << "\t" << y << "\tmoveto\n";
  outFile << x << "\t" << y << "\t" << r << "\t0\t360\tarc\n";
  if (currentColor.bFill) outFile << "gsave\n  fill\ngrestore\n";
  outFile << "stroke\n";
}

void Visualizer2::writeCross(const Point2& p, double size) {
  const double x(toPageX(p.x())), y(toPageY(p.y()));
  outFile << x - size << "\t" << y - size << "\tmoveto\n";
  outFile << x + size << "\t" << y + size << "\tlineto\n";
  outFile << x - size << "\t" << y + size << "\tmoveto\n";
  outFile << x + size << "\t" << y - size << "\tlineto\n";
}

void Visualizer2::writeLabel(const Label& label) {
  const double x(toPageX(label.position.x())), y(toPageY(label.position.y()));
  outFile << "/Arial findfont " << label.fontSize << " scalefont\n setfont\n";
  std::istringstream text(label.getCS());
  std::string line;
  int k(0);
  while (std::getline(text, line, '\n')) {
    outFile << x << "\t" << y - double(label.fontSize) * k << "\tmoveto\n";
    outFile << "(" << psString(line) << ")\tshow\n";
    outFile << "stroke\n";
    ++k;
  }
  if (label.bWithMark) writeCross(label.position, POINT_CROSS_SIZE);
}

} // namespace KIRO_VASK2D
