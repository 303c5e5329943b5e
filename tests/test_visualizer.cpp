// The PostScript visualiser: colours, labels, the file it writes, and the
// picture that Ghostscript makes of it.
#include "Color.h"
#include "Label.h"
#include "VaskException.h"
#include "Vask_2D.h"
#include "Visualizer2.h"
#include "core/Dt2.h"
#include "helpers/ExactOracle.h"
#include "helpers/PsRender.h"
#include "helpers/TestHelpers.h"
#include <gtest/gtest.h>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <string>

using namespace KIRO_VASK2D;
using vask_test::PageBox;
using vask_test::PageImage;

namespace {

// Where the scale rule puts a drawing: a square of 480 points with its lower
// left corner at (50, 200). The title lines start at 692 (the frame of the
// header block), so ink below 688 belongs to the drawing.
const double LEFT(50.0), BOTTOM(200.0), SIZE(480.0), DRAWING_TOP(688.0);
// Rendering at 144 dpi gives pixels of half a point; the tolerance covers a
// pixel of rounding on each side and half of a line width of up to 1 point.
const int DPI(144);
const double TOL(1.5);

std::string writeDrawing(const std::string& name, const std::function<void(Visualizer2&)>& fill) {
  Visualizer2 vis(name.c_str());
  fill(vis);
  EXPECT_TRUE(vis.writeFile());
  return vask_test::readTextFile(name);
}

std::size_t countOf(const std::string& text, const std::string& what) {
  std::size_t num(0);
  for (std::size_t pos = text.find(what); pos != std::string::npos; pos = text.find(what, pos + what.size())) ++num;
  return num;
}

/** The part of the file after the page head (which ends with the y range). */
std::string bodyOf(const std::string& file) {
  const std::size_t pos(file.find("(y-Range: ["));
  if (pos == std::string::npos) return std::string();
  return file.substr(file.find('\n', pos) + 1);
}

#define SKIP_WITHOUT_GHOSTSCRIPT()                                             \
  if (!vask_test::ghostscriptAvailable()) GTEST_SKIP() << "gs is not installed"

PageImage renderOrFail(const std::string& name) {
  PageImage image;
  std::string error;
  EXPECT_TRUE(vask_test::renderPostScript(name, DPI, image, error)) << error;
  return image;
}

void expectBoxNear(const PageBox& box, double minX, double minY, double maxX, double maxY, double tol) {
  ASSERT_FALSE(box.bEmpty) << "the drawing is blank";
  EXPECT_NEAR(box.minX, minX, tol);
  EXPECT_NEAR(box.minY, minY, tol);
  EXPECT_NEAR(box.maxX, maxX, tol);
  EXPECT_NEAR(box.maxY, maxY, tol);
}

} // namespace

// ---------------------------------------------------------------- Color

TEST(Color, NamedColoursCarryTheirComponentsAndUnknownNamesGiveBlack) {
  struct Case {
    Colorname name;
    Color expected;
  };
  for (const Case& c : {Case{CRED, Color(1.0, 0.0, 0.0, 0.5, true)}, Case{CPINK, Color(1.0f, 0.4f, 0.7f, 0.5, true)},
                        Case{CDARKBROWN, Color(0.545f, 0.271f, 0.074f, 0.5, true)},
                        Case{CWHITE, Color(1.0, 1.0, 1.0, 0.5, true)}, Case{CLAWNGREEN, Color(0.49, 0.99, 0.0, 0.5, true)}})
    EXPECT_EQ(Color(c.name, 0.5f, true), c.expected) << int(c.name);
  EXPECT_EQ(Color(), Color(CBLACK, 0.1f, false));
  EXPECT_EQ(Color(), Color(0.0, 0.0, 0.0, 0.1, false));
  testing::internal::CaptureStdout();
  const Color unknown(static_cast<Colorname>(17), 2.0f, true);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(unknown, Color(0.0, 0.0, 0.0, 2.0, true));
  EXPECT_NE(out.find("Color::Color"), std::string::npos) << out;
  EXPECT_NE(out.find("Colorname unknown, returning black"), std::string::npos) << out;
}

TEST(Color, OrderIsByComponentsThenWidthThenFillAndNextNameCycles) {
  EXPECT_LT(Color(0.1, 0.9, 0.9, 9, true), Color(0.2, 0.0, 0.0, 0, false));
  EXPECT_LT(Color(0.5, 0.1, 0.9, 9, true), Color(0.5, 0.2, 0.0, 0, false));
  EXPECT_LT(Color(0.5, 0.5, 0.1, 9, true), Color(0.5, 0.5, 0.2, 0, false));
  EXPECT_LT(Color(0.5, 0.5, 0.5, 1, true), Color(0.5, 0.5, 0.5, 2, false));
  EXPECT_LT(Color(0.5, 0.5, 0.5, 1, false), Color(0.5, 0.5, 0.5, 1, true));
  EXPECT_FALSE(Color(0.5, 0.5, 0.5, 1, true) < Color(0.5, 0.5, 0.5, 1, true));
  // The cycle of names never gives red, yellow or white.
  Color::currentColorName = 0;
  for (int round = 0; round < 3; ++round)
    for (int expected = 1; expected <= 14; ++expected)
      EXPECT_EQ(static_cast<int>(Color::getNextColorName()), expected) << "round " << round;
  Color::currentColorName = 0;
}

// ---------------------------------------------------------------- Label

TEST(Label, CopiesOwnTheirText) {
  char buffer[] = "first";
  Label* pOriginal(new Label(Point2(1, 2), buffer, true, 12));
  buffer[0] = 'X';
  Label copy(*pOriginal), assigned(Point2(0, 0), "other", false, 8);
  assigned = *pOriginal;
  assigned = assigned;
  delete pOriginal;
  for (const Label* pLabel : {&copy, &assigned}) {
    EXPECT_STREQ(pLabel->getCS(), "first");
    EXPECT_TRUE(pLabel->position == Point2(1, 2) && pLabel->bWithMark && pLabel->fontSize == 12);
  }
  EXPECT_STREQ(Label(Point2(0, 0), nullptr, false, 8).getCS(), "");
}

// ---------------------------------------------------------------- the file

namespace {
// A drawing and what its file must say: texts anywhere in the file, texts
// it must not contain, and how often texts occur in the body below the head.
struct FileCase {
  const char* name;
  std::function<void(Visualizer2&)> fill;
  std::vector<std::string> vContains, vAbsent;
  std::vector<std::pair<std::string, std::size_t>> vBodyCounts;
  std::vector<std::pair<std::string, std::size_t>> vOutCounts; // texts on the console
};

Segment2 seg(double x0, double y0, double x1, double y1) { return Segment2(Point2(x0, y0), Point2(x1, y1)); }
} // namespace

TEST(VisualizerFile, WritesTheExpectedPostScript) {
  const FileCase aCase[] = {
      {"vis_head.ps", [](Visualizer2& vis) { vis.addObject(seg(0, 0, 2, 1), Color()); },
       {"%!PS-Adobe-1.0\n\t%%Creator: KIRO PostscriptWriter\n\t%%Title: vis_head.ps\n",
        "40\t740\tmoveto\n\t(vis_head.ps)\tshow\n", "(x-Range: [0 - 2] =2)\tshow\n", "(y-Range: [0 - 1] =1)\tshow\n",
        // Source at the lower left corner, target at the right edge, half up.
        "50\t200\tmoveto\n530\t440\tlineto\n", "stroke\nshowpage\n%%Trailer\n"}, {}, {}},
      {"vis_onepoint.ps", [](Visualizer2& vis) { vis.addObject(Point2(3, 4), Color()); },
       // The box grows to the low side; the point is the upper right corner, its cross of size 1.5.
       {"(x-Range: [2 - 3] =1)", "(y-Range: [3 - 4] =1)",
        "528.5\t678.5\tmoveto\n531.5\t681.5\tlineto\n528.5\t681.5\tmoveto\n531.5\t678.5\tlineto\n"}, {}, {}},
      {"vis_empty.ps", [](Visualizer2&) {}, {"(x-Range: [-1 - 0] =1)", "showpage"}, {}, {}},
      {"vis_samecolour.ps",
       [](Visualizer2& vis) {
         for (int i = 0; i < 3; ++i) vis.addObject(seg(i, 0, i, 1), Color(CBLUE, 0.5f, false));
       }, {}, {},
       {{"setrgbcolor", 1}, {"0.5\tsetlinewidth", 1}}},
      {"vis_altcolour.ps",
       [](Visualizer2& vis) {
         vis.addObject(seg(0, 0, 0, 1), Color(CBLUE, 0.5f, false));
         vis.addObject(seg(1, 0, 1, 1), Color(CBLUE, 0.6f, false));
         vis.addObject(seg(2, 0, 2, 1), Color(CBLUE, 0.5f, false));
       }, {}, {}, {{"setrgbcolor", 3}}},
      // One stroke at the colour change, one after objects 31, 62 and 93, and the final one.
      {"vis_paths.ps",
       [](Visualizer2& vis) {
         for (int i = 0; i < 100; ++i) vis.addObject(Point2(i, i % 7), Color());
       }, {}, {}, {{"stroke\n", 5}}},
      {"vis_marks.ps",
       [](Visualizer2& vis) {
         // A filled colour marks each end point once; another colour over a
         // shared point gets its own cross; without fill no marks.
         vis.addObject(seg(0, 0, 1, 0), Color(CBLUE, 2.0f, true));
         vis.addObject(seg(1, 0, 1, 1), Color(CBLUE, 2.0f, true));
         vis.addObject(seg(1, 1, 0, 1), Color(CRED, 0.1f, true));
         vis.addObject(seg(0, 1, 0, 0), Color(CGREEN, 0.1f, false));
       },
       // The blue cross at page (530,200) has size 2 * width; the red one the minimum 1.5.
       {"526\t196\tmoveto\n534\t204\tlineto\n", "528.5\t678.5\tmoveto\n531.5\t681.5\tlineto\n"}, {},
       {{"moveto", 4u + 2u * 5u}}},
      {"vis_filledtri.ps",
       [](Visualizer2& vis) {
         Point2 a(0, 0), b(1, 0), c(0, 1);
         vis.addObject(Triangle2(&a, &b, &c), Color(CRED, 0.5f, true));
       },
       {"closepath\ngsave\n  fill\ngrestore\n  0.3 0.3 .3 setrgbcolor\n0.5\tsetlinewidth\nstroke\n"
        "stroke\n1\t0\t0\tsetrgbcolor\n0.5\tsetlinewidth\n"}, {}, {}},
      {"vis_longheader.ps",
       [](Visualizer2& vis) {
         vis.addObject(Point2(0, 0), Color());
         vis.addHeaderLine(std::string(150, 'a').c_str());
       },
       // Cut to 120 characters; 500 / 120 = 4 is below the minimum size 6.
       {"(" + std::string(120, 'a') + ")\tshow\n", "/Times-Roman findfont 6 scalefont\n"},
       {std::string(121, 'a')}, {}},
      {"vis_label.ps",
       [](Visualizer2& vis) {
         vis.addObject(Point2(0, 0), Color());
         vis.addObject(Point2(20, 20), Color());
         vis.addObject(Label(Point2(5, 5), "ab\ncd", true, 12), Color());
       },
       // 24 points per unit: the label stands at page (170, 320), lines step down by the font size.
       {"/Arial findfont 12 scalefont\n setfont\n170\t320\tmoveto\n(ab)\tshow\nstroke\n"
        "170\t308\tmoveto\n(cd)\tshow\nstroke\n168.5\t318.5\tmoveto\n"}, {}, {}},
      // Label text widens the box by half its length, up to twenty.
      {"vis_labelbox.ps", [](Visualizer2& vis) { vis.addObject(Label(Point2(1, 1), "abcd", false, 10), Color()); },
       {"(x-Range: [1 - 3] =2)"}, {}, {}},
      {"vis_labelbox2.ps",
       [](Visualizer2& vis) { vis.addObject(Label(Point2(1, 1), std::string(50, 'x').c_str(), false, 10), Color()); },
       {"(x-Range: [1 - 11] =10)"}, {}, {}},
      {"vis_escape(1).ps",
       [](Visualizer2& vis) {
         vis.addObject(Label(Point2(0, 0), "f(x) \\ y)", false, 10), Color());
         vis.addHeaderLine("header (open");
       },
       {"(f\\(x\\) \\\\ y\\))\tshow", "(header \\(open)\tshow", "(vis_escape\\(1\\).ps)\tshow"}, {}, {}},
      {"vis_copies.ps",
       [](Visualizer2& vis) {
         // Objects are copied when added: later changes of the vertices don't reach the drawing.
         Point2 a(0, 0), b(4, 0), c(0, 2);
         Triangle2 t(&a, &b, &c);
         vis.addObject(std::vector<Triangle2*>{&t}, Color());
         vis.addObject(std::vector<Point2*>{&b, nullptr}, Color());
         vis.addObject(Edge2(&t, 0), Color(CRED, 1.0f, false));
         a.change(-100, -100);
         b.change(100, 100);
       },
       // Edge 0 runs from corner 1 (4,0) to corner 2 (0,2).
       {"(x-Range: [0 - 4] =4)", "530\t200\tmoveto\n50\t440\tlineto\n"}, {}, {}},
      {"vis_wide.ps",
       [](Visualizer2& vis) {
         // The range overflows in the title; the drawing's coordinates stay finite.
         vis.addObject(seg(-1.7e308, -1e308, 1.7e308, 1e308), Color());
         vis.addObject(Circle2(Point2(0, 0), 1e300), Color());
       },
       {"50\t200\tmoveto\n530\t"},
       {"nan", "\tinf", "inf\t"}, {}},
      {"vis_far.ps", [](Visualizer2& vis) { vis.addObject(Point2(1e20, -1e300), Color()); }, {}, {"inf", "nan", "=0)"}, {}},
      {"vis_nonfinite.ps", // non-finite objects are skipped with a warning each
       [](Visualizer2& vis) {
         vis.addObject(Point2(vask_test::NaN, 0), Color());
         vis.addObject(seg(0, 0, vask_test::INF, 1), Color());
         vis.addObject(Circle2(Point2(0, 0), -1.0), Color());
         vis.addObject(Point2(0, 0), Color());
         vis.addObject(Point2(2, 1), Color());
       },
       {"(x-Range: [0 - 2] =2)"}, {"nan", "inf"}, {}, {{"Visualizer2::addObject()", 3}}},
      {"vis_header.ps", // ten lines: font size 100 / 10 - 2 = 8, step 10, line 0 on top; an eleventh is refused
       [](Visualizer2& vis) {
         vis.addObject(Point2(0, 0), Color());
         for (int i = 0; i < 11; ++i) vis.addHeaderLine(("line " + std::to_string(i)).c_str());
       },
       {"/Times-Roman findfont 8 scalefont\n", "240\t785\tmoveto\n(line 0)\tshow\n",
        "240\t695\tmoveto\n(line 9)\tshow\n", "237\t795\tlineto\n"},
       {"(line 10)"}, {},
       {{"Visualizer2::addHeaderLine()", 1},
        {"skipping text [\"line 10\"], maximum number of header lines reached", 1}}},
  };
  for (const FileCase& c : aCase) {
    SCOPED_TRACE(c.name);
    testing::internal::CaptureStdout();
    const std::string file(writeDrawing(c.name, c.fill));
    const std::string out(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find(std::string("Visualizer2:: Writing ") + c.name + "\n"), std::string::npos) << out;
    for (const std::string& text : c.vContains) EXPECT_NE(file.find(text), std::string::npos) << text << "\n" << file;
    for (const std::string& text : c.vAbsent) EXPECT_EQ(file.find(text), std::string::npos) << text << "\n" << file;
    for (const auto& count : c.vBodyCounts) EXPECT_EQ(countOf(bodyOf(file), count.first), count.second) << count.first;
    for (const auto& count : c.vOutCounts) EXPECT_EQ(countOf(out, count.first), count.second) << count.first << out;
    std::remove(c.name);
  }
}

TEST(VisualizerFile, TrianglesLieBelowSegmentsThenCirclesPointsAndLabels) {
  // Added in the reverse order; each kind has its own colour, so the order of
  // the colour changes is the order of drawing.
  const std::string file(writeDrawing("vis_order.ps", [](Visualizer2& vis) {
    vis.addObject(Label(Point2(0, 0), "text", false, 10), Color(0.5, 0.0, 0.0, 1.0, false));
    vis.addObject(Point2(1, 1), Color(0.4, 0.0, 0.0, 1.0, false));
    vis.addObject(Circle2(Point2(1, 1), 1.0), Color(0.3, 0.0, 0.0, 1.0, false));
    vis.addObject(seg(0, 0, 1, 0), Color(0.2, 0.0, 0.0, 1.0, false));
    Point2 a(0, 0), b(1, 0), c(0, 1);
    vis.addObject(Triangle2(&a, &b, &c), Color(0.1, 0.0, 0.0, 1.0, false));
  }));
  const std::string body(bodyOf(file));
  std::size_t last(0);
  for (const char* colour : {"0.1\t0\t0\tsetrgbcolor", "0.2\t0\t0\tsetrgbcolor", "0.3\t0\t0\tsetrgbcolor",
                             "0.4\t0\t0\tsetrgbcolor", "0.5\t0\t0\tsetrgbcolor"}) {
    const std::size_t pos(body.find(colour));
    ASSERT_NE(pos, std::string::npos) << colour << "\n" << body;
    EXPECT_GT(pos, last) << colour;
    last = pos;
  }
  EXPECT_LT(body.find("closepath"), body.find("0.2\t0\t0\tsetrgbcolor"));
  EXPECT_GT(body.find("360\tarc"), body.find("0.3\t0\t0\tsetrgbcolor"));
  EXPECT_GT(body.find("(text)\tshow"), body.find("0.5\t0\t0\tsetrgbcolor"));
  std::remove("vis_order.ps");
}

TEST(VisualizerLifecycle, UnfinishedFilesAreCompletedAndClosedOnesStayAsTheyAre) {
  testing::internal::CaptureStdout();
  {
    Visualizer2 vis("vis_unfinished.ps");
    vis.addObject(Point2(1, 1), Color());
  }
  std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Calling Visualizer2::writeFile() to complete an unfinished visualization [vis_unfinished.ps]"),
            std::string::npos)
      << out;
  EXPECT_NE(vask_test::readTextFile("vis_unfinished.ps").find("showpage\n%%Trailer\n"), std::string::npos);
  // A second writeFile is a logged no-op; adding afterwards breaks the assertion.
  Visualizer2 vis("vis_unfinished.ps");
  vis.addObject(Point2(1, 1), Color());
  EXPECT_TRUE(vis.writeFile());
  const std::string before(vask_test::readTextFile("vis_unfinished.ps"));
  testing::internal::CaptureStdout();
  EXPECT_FALSE(vis.writeFile());
  EXPECT_THROW(vis.addObject(Point2(2, 2), Color()), VaskException);
  EXPECT_THROW(vis.addHeaderLine("late"), VaskException);
  out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Visualizer2::writeFile()"), std::string::npos) << out;
  EXPECT_NE(out.find("No effect. File has already been closed"), std::string::npos) << out;
  EXPECT_EQ(vask_test::readTextFile("vis_unfinished.ps"), before);
  std::remove("vis_unfinished.ps");
}

TEST(VisualizerLifecycle, UncreatableOrNullFileIsReportedAndWritesNothing) {
  const std::string name("no_such_directory_for_vask/picture.ps");
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  // Written explicitly, left to the destructor, and without a name (a warning, not a crash).
  for (int k = 0; k < 3; ++k) {
    Visualizer2 vis(k < 2 ? name.c_str() : nullptr);
    vis.addObject(Point2(0, 0), Color());
    vis.addObject(Label(Point2(1, 1), "label", true, 10), Color());
    vis.addHeaderLine("header");
    if (k != 1) EXPECT_FALSE(vis.writeFile());
  }
  testing::internal::GetCapturedStdout();
  const std::string err(testing::internal::GetCapturedStderr());
  EXPECT_NE(err.find(name + " can't be opened"), std::string::npos) << err;
  EXPECT_EQ(countOf(err, name), 2u) << err;
}

// ---------------------------------------------------------------- the picture

TEST(VisualizerPicture, DrawingsLandWhereTheScaleRulePutsThem) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  // A drawing, the box its ink must fill, and page points whose colour is
  // known (-1: any value of that channel).
  struct Probe {
    double x, y;
    int minR, maxR, minG, maxG, minB, maxB;
  };
  struct Case {
    const char* name;
    std::function<void(Visualizer2&)> fill;
    double minX, minY, maxX, maxY;
    std::vector<Probe> vProbes;
  };
  const Probe white{0, 0, 230, 255, 0, 255, 0, 255};
  auto at = [](Probe p, double x, double y) {
    p.x = x;
    p.y = y;
    return p;
  };
  const Case aCase[] = {
      {"pic_rect.ps", // an outline of 8 x 4 units: 480 points wide and 240 high, white inside
       [](Visualizer2& vis) {
         const Point2 a(-3, 2), b(5, 2), c(5, 6), d(-3, 6);
         vis.addObject(std::vector<Segment2>{Segment2(a, b), Segment2(b, c), Segment2(c, d), Segment2(d, a)},
                       Color(CBLACK, 1.0f, false));
       },
       LEFT, BOTTOM, LEFT + SIZE, BOTTOM + 240.0, {at(white, 290.0, 320.0)}},
      {"pic_circle.ps", [](Visualizer2& vis) { vis.addObject(Circle2(10, 10, 25.0), Color(CBLUE, 0.5f, true)); },
       LEFT, BOTTOM, LEFT + SIZE, BOTTOM + SIZE,
       {{LEFT + SIZE / 2, BOTTOM + SIZE / 2, 0, 40, 0, 40, 215, 255}, at(white, LEFT + 10, BOTTOM + 10)}},
      {"pic_triangle.ps", // the fill lies below the black segment on its left side
       [](Visualizer2& vis) {
         Point2 a(0, 0), b(1, 0), c(0, 1);
         vis.addObject(Segment2(a, c), Color(CBLACK, 0.5f, false));
         vis.addObject(Triangle2(&a, &b, &c), Color(CRED, 0.5f, true));
       },
       LEFT, BOTTOM, LEFT + SIZE, BOTTOM + SIZE,
       {{LEFT + SIZE / 4, BOTTOM + SIZE / 4, 215, 255, 0, 40, 0, 40}, {LEFT + 0.1, BOTTOM + SIZE / 2, 0, 100, 0, 255, 0, 255},
        at(white, LEFT + 0.75 * SIZE, BOTTOM + 0.75 * SIZE)}},
      // A single point sits at the upper right corner: its cross of size 1.5 around (530, 680).
      {"pic_point.ps", [](Visualizer2& vis) { vis.addObject(Point2(3, 4), Color(CBLACK, 0.5f, false)); }, 528.5, 678.5,
       531.5, 681.5, {}},
      // Height 0: the box takes one unit below; 10 units are 480 points.
      {"pic_flat.ps", [](Visualizer2& vis) { vis.addObject(seg(0, 5, 10, 5), Color(CBLACK, 1.0f, false)); }, LEFT,
       BOTTOM + 47.5, LEFT + SIZE, BOTTOM + 48.5, {}},
      {"pic_extreme.ps",
       [](Visualizer2& vis) { vis.addObject(seg(-1.7e308, -1.7e308, 1.7e308, 1.7e308), Color(CBLACK, 1.0f, false)); },
       LEFT, BOTTOM, LEFT + SIZE, BOTTOM + SIZE, {}},
  };
  for (const Case& c : aCase) {
    SCOPED_TRACE(c.name);
    testing::internal::CaptureStdout();
    writeDrawing(c.name, c.fill);
    testing::internal::GetCapturedStdout();
    const PageImage image(renderOrFail(c.name));
    expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), c.minX, c.minY, c.maxX, c.maxY, TOL);
    // The title lines above the drawing are on the page too.
    EXPECT_GT(vask_test::countInk(image, 690.0, 842.0), 100u);
    for (const Probe& p : c.vProbes) {
      const unsigned char* pPixel(image.pixelAtPagePoint(p.x, p.y));
      EXPECT_TRUE(pPixel[0] >= p.minR && pPixel[0] <= p.maxR && pPixel[1] >= p.minG && pPixel[1] <= p.maxG &&
                  pPixel[2] >= p.minB && pPixel[2] <= p.maxB)
          << "at " << p.x << " " << p.y << ": " << int(pPixel[0]) << " " << int(pPixel[1]) << " " << int(pPixel[2]);
    }
    std::remove(c.name);
  }
}

TEST(VisualizerPicture, LabelsAndHeaderLinesAreReadableInk) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  writeDrawing("pic_text.ps", [](Visualizer2& vis) {
    vis.addObject(Point2(0, 0), Color());
    vis.addObject(Point2(40, 40), Color());
    vis.addObject(Label(Point2(10, 10), "Label (with) \\ odd\nsecond line", false, 20), Color(CBLUE, 1.0f, false));
    vis.addHeaderLine("header line (1)");
    vis.addHeaderLine("header line 2");
  });
  const PageImage image(renderOrFail("pic_text.ps"));
  // 12 points per unit: the label starts at page (170, 320), its second line
  // stands 20 points lower.
  const PageBox labelBox(vask_test::inkBox(image, 280.0, 350.0));
  ASSERT_FALSE(labelBox.bEmpty);
  EXPECT_NEAR(labelBox.minX, 170.0, 3.0);
  EXPECT_GT(labelBox.maxX, 250.0);
  EXPECT_LT(labelBox.minY, 302.0);
  EXPECT_GT(labelBox.maxY, 330.0);
  // The header block stands right of x = 237, above y = 692.
  const PageBox headerBox(vask_test::inkBox(image, 692.5, 842.0));
  ASSERT_FALSE(headerBox.bEmpty);
  EXPECT_GT(headerBox.maxX, 300.0);
  std::remove("pic_text.ps");
}

// ---------------------------------------------------------------- the triangulation

namespace {

/** Random points in [0,100] x [0,50] with the four corners of that box. */
std::vector<Point2> pointsInWideBox(std::size_t n, unsigned seed) {
  std::vector<Point2> vPoints;
  for (const Point2& p : vask_test::randomPoints(n, seed)) vPoints.emplace_back(100.0 * p.x(), 50.0 * p.y());
  vPoints.emplace_back(0.0, 0.0);
  vPoints.emplace_back(100.0, 0.0);
  vPoints.emplace_back(100.0, 50.0);
  vPoints.emplace_back(0.0, 50.0);
  return vPoints;
}

/** Runs a test in a directory of its own, for files with fixed names that
 * other tests running at the same time may write as well. */
class ScopedWorkDir {
public:
  explicit ScopedWorkDir(const std::string& dir_) : dir(dir_) {
    char buffer[4096];
    if (getcwd(buffer, sizeof(buffer)) != nullptr) oldDir = buffer;
    mkdir(dir.c_str(), 0755);
    bEntered = chdir(dir.c_str()) == 0;
  }
  ~ScopedWorkDir() {
    if (bEntered && chdir(oldDir.c_str()) != 0) std::perror("chdir");
    rmdir(dir.c_str()); // only when the test left it empty
  }
  bool entered() const { return bEntered; }

private:
  std::string dir;
  std::string oldDir;
  bool bEntered = false;
};

std::size_t countRedPixels(const PageImage& image) {
  std::size_t numRed(0);
  for (int row = 0; row < image.height; ++row)
    for (int col = 0; col < image.width; ++col) {
      const unsigned char* p(image.pixel(col, row));
      numRed += (p[0] > 200 && p[1] < 60 && p[2] < 60) ? 1 : 0;
    }
  return numRed;
}

std::size_t numberOfEdges(Vask_2D& dt) {
  std::vector<Triangle2*> vT;
  dt.getTrianglePointers(vT);
  std::set<std::pair<Point2*, Point2*> > sEdges;
  for (Triangle2* pT : vT) {
    for (int i = 0; i < 3; ++i) {
      Point2* a(pT->getCorner(incIndexBy1(i)));
      Point2* b(pT->getCorner(incIndexBy2(i)));
      sEdges.insert(a < b ? std::make_pair(a, b) : std::make_pair(b, a));
    }
  }
  return sEdges.size();
}

} // namespace

TEST(TriangulationPicture, ShowDrawsEveryEdgeOnceInThinBlackAcrossThePageWidth) {
  Vask_2D dt, small, line;
  dt.insert(pointsInWideBox(3000, 9));
  small.insert(pointsInWideBox(50, 8));
  line.insert(std::vector<Point2>{Point2(0, 0), Point2(1, 1), Point2(2, 2)});
  testing::internal::CaptureStdout();
  dt.show("tri_edges.ps", true);
  // Into an open visualiser, which stays open for more.
  Visualizer2 vis("tri_open.ps");
  small.show(&vis, false);
  vis.addObject(Point2(120, 25), Color(CRED, 0.5f, false));
  vis.addHeaderLine("mesh and one more point");
  EXPECT_TRUE(vis.writeFile());
  small.show(static_cast<Visualizer2*>(nullptr), true);
  line.show("tri_noarea.ps", true); // a warning and an empty page
  const std::string out(testing::internal::GetCapturedStdout());
  for (const char* text : {"Vask_2D::show()", "Dt2::show()", "The triangulation is has no area, no visualization"})
    EXPECT_NE(out.find(text), std::string::npos) << text << "\n" << out;
  const std::string body(bodyOf(vask_test::readTextFile("tri_edges.ps")));
  EXPECT_EQ(countOf(body, "lineto"), numberOfEdges(dt));
  EXPECT_EQ(countOf(body, "setrgbcolor"), 1u);
  EXPECT_NE(body.find("0\t0\t0\tsetrgbcolor\n0.01\tsetlinewidth\n"), std::string::npos);
  const std::string open(vask_test::readTextFile("tri_open.ps"));
  EXPECT_NE(open.find("(x-Range: [0 - 120] =120)"), std::string::npos);
  // The edges, the two strokes of the point's cross, three of the frame of the header block.
  EXPECT_EQ(countOf(bodyOf(open), "lineto"), numberOfEdges(small) + 2u + 3u);
  EXPECT_NE(open.find("(mesh and one more point)"), std::string::npos);
  const std::string empty(vask_test::readTextFile("tri_noarea.ps"));
  EXPECT_NE(empty.find("showpage"), std::string::npos);
  EXPECT_EQ(countOf(bodyOf(empty), "lineto"), 0u);
  if (vask_test::ghostscriptAvailable()) {
    const PageImage image(renderOrFail("tri_edges.ps"));
    // 100 x 50 units: 480 points wide and 240 high, densely inked inside.
    expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), LEFT, BOTTOM, LEFT + SIZE, BOTTOM + 240.0, TOL);
    const std::size_t numInside(vask_test::countInk(image, BOTTOM + 10.0, BOTTOM + 230.0));
    const std::size_t numPixels(std::size_t(SIZE * (220.0) * (DPI / 72.0) * (DPI / 72.0)));
    EXPECT_GT(numInside, numPixels / 5) << numInside << " of " << numPixels;
  }
  for (const char* name : {"tri_edges.ps", "tri_open.ps", "tri_noarea.ps"})
    std::remove(name);
}

TEST(TriangulationPicture, FailedValidityCheckDrawsTheStateAndTheBadCircles) {
  Vask_2D dt;
  dt.insert(pointsInWideBox(200, 10));
  ASSERT_TRUE(dt.checkValidity(true, "before"));
  // Flipping an inner edge of a Delaunay triangulation of points in general
  // position leaves a valid mesh whose new edge fails the empty circle.
  Dt2* pDt(dt.getImpl());
  std::vector<Triangle2*> vT;
  dt.getTrianglePointers(vT);
  bool bFlipped(false);
  for (Triangle2* pT : vT) {
    for (int i = 0; i < 3 && !bFlipped; ++i) {
      if (pDt->canBeFlipped(pT, i)) {
        pDt->flip(pT, i);
        bFlipped = true;
      }
    }
    if (bFlipped) break;
  }
  ASSERT_TRUE(bFlipped);
  // checkValidity writes fixed names into the working directory.
  ScopedWorkDir workDir("vis_checkvalidity");
  ASSERT_TRUE(workDir.entered());
  std::remove("currentState.ps");
  std::remove("badEmptyCircle.ps");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(dt.checkValidity(true, "flipped"));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Visualizer2:: Writing currentState.ps"), std::string::npos) << out;
  EXPECT_NE(out.find("Visualizer2:: Writing badEmptyCircle.ps"), std::string::npos) << out;
  const std::string state(vask_test::readTextFile("currentState.ps"));
  EXPECT_EQ(countOf(bodyOf(state), "lineto"), numberOfEdges(dt));
  const std::string bad(vask_test::readTextFile("badEmptyCircle.ps"));
  // Both triangles of the flipped edge fail, each against the other.
  EXPECT_EQ(countOf(bodyOf(bad), "closepath"), 4u);
  EXPECT_NE(bad.find("2 empty-circle failures"), std::string::npos);
  if (vask_test::ghostscriptAvailable()) {
    const PageImage stateImage(renderOrFail("currentState.ps"));
    expectBoxNear(vask_test::inkBox(stateImage, 0.0, DRAWING_TOP), LEFT, BOTTOM, LEFT + SIZE, BOTTOM + 240.0, TOL);
    EXPECT_GT(countRedPixels(renderOrFail("badEmptyCircle.ps")), 0u);
  }
  std::remove("currentState.ps");
  std::remove("badEmptyCircle.ps");
}

TEST(TriangulationPicture, RemovalWatchDogDrawsTheMeshAndTheVertexInRed) {
  Vask_2D dt;
  std::vector<Point2> vPoints;
  for (int i = 0; i < 7; ++i)
    for (int j = 0; j < 7; ++j) vPoints.emplace_back(i + 0.01 * ((i * 7 + j) % 5), j + 0.013 * ((i * 3 + j) % 7));
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  // Corrupt the ring of an inner vertex: all its neighbours on one spot, so
  // that no ear of its fan is a proper triangle and the ear search gives up.
  Point2* pInner(vHandles[24]);
  std::vector<Point2*> vRing;
  dt.getIncidentVertices(pInner, vRing);
  for (Point2* pRing : vRing) pRing->change(10.0, 10.0);
  ScopedWorkDir workDir("vis_watchdog");
  ASSERT_TRUE(workDir.entered());
  testing::internal::CaptureStdout();
  EXPECT_THROW(dt.remove(pInner), VaskException);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Visualizer2:: Writing watchDogFailed.ps"), std::string::npos) << out;
  EXPECT_NE(out.find("vUmbrellaT.size()="), std::string::npos) << out;
  const std::string body(bodyOf(vask_test::readTextFile("watchDogFailed.ps")));
  EXPECT_GT(countOf(body, "lineto"), 50u);
  EXPECT_NE(body.find("1\t0\t0\tsetrgbcolor"), std::string::npos);
  if (vask_test::ghostscriptAvailable()) EXPECT_GT(countRedPixels(renderOrFail("watchDogFailed.ps")), 0u);
  std::remove("watchDogFailed.ps");
  std::remove("VASK_LOG.txt");
}
