// The PostScript visualiser: colours, labels, the file it writes, and the
// picture that Ghostscript makes of it.
#include "Color.h"
#include "Label.h"
#include "VaskException.h"
#include "Vask_2D.h"
#include "Visualizer2.h"
#include "core/Dt2.h"
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

TEST(Color, NamedColoursCarryTheirComponentsWidthAndFill) {
  const Color red(CRED, 0.5f, true);
  EXPECT_EQ(red.r, 1.0f);
  EXPECT_EQ(red.g, 0.0f);
  EXPECT_EQ(red.b, 0.0f);
  EXPECT_EQ(red.width, 0.5f);
  EXPECT_TRUE(red.bFill);
  const Color pink(CPINK, 1.0f, false);
  EXPECT_EQ(pink.r, 1.0f);
  EXPECT_EQ(pink.g, 0.4f);
  EXPECT_EQ(pink.b, 0.7f);
  const Color brown(CDARKBROWN, 1.0f, false);
  EXPECT_EQ(brown.r, 0.545f);
  EXPECT_EQ(brown.g, 0.271f);
  EXPECT_EQ(brown.b, 0.074f);
  const Color white(CWHITE, 1.0f, false);
  EXPECT_EQ(white.r + white.g + white.b, 3.0f);
  EXPECT_EQ(Color(CLAWNGREEN, 1.0f, false), Color(0.49, 0.99, 0.0, 1.0, false));
}

TEST(Color, DefaultIsThinBlackWithoutFill) {
  const Color c;
  EXPECT_EQ(c, Color(0.0, 0.0, 0.0, 0.1, false));
  EXPECT_EQ(c, Color(CBLACK, 0.1f, false));
}

TEST(Color, UnknownNameLogsAndGivesBlack) {
  testing::internal::CaptureStdout();
  const Color c(static_cast<Colorname>(17), 2.0f, true);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(c, Color(0.0, 0.0, 0.0, 2.0, true));
  EXPECT_NE(out.find("Color::Color"), std::string::npos) << out;
  EXPECT_NE(out.find("Colorname unknown, returning black"), std::string::npos) << out;
}

TEST(Color, OrderIsByComponentsThenWidthThenFill) {
  EXPECT_LT(Color(0.1, 0.9, 0.9, 9, true), Color(0.2, 0.0, 0.0, 0, false));
  EXPECT_LT(Color(0.5, 0.1, 0.9, 9, true), Color(0.5, 0.2, 0.0, 0, false));
  EXPECT_LT(Color(0.5, 0.5, 0.1, 9, true), Color(0.5, 0.5, 0.2, 0, false));
  EXPECT_LT(Color(0.5, 0.5, 0.5, 1, true), Color(0.5, 0.5, 0.5, 2, false));
  EXPECT_LT(Color(0.5, 0.5, 0.5, 1, false), Color(0.5, 0.5, 0.5, 1, true));
  EXPECT_FALSE(Color(0.5, 0.5, 0.5, 1, true) < Color(0.5, 0.5, 0.5, 1, true));
  EXPECT_NE(Color(0.5, 0.5, 0.5, 1, false), Color(0.5, 0.5, 0.5, 1, true));
}

TEST(Color, NextColorNameCyclesAndNeverGivesRedYellowOrWhite) {
  Color::currentColorName = 0;
  for (int round = 0; round < 3; ++round) {
    for (int expected = 1; expected <= 14; ++expected) {
      EXPECT_EQ(static_cast<int>(Color::getNextColorName()), expected) << "round " << round;
    }
  }
  Color::currentColorName = 0;
}

// ---------------------------------------------------------------- Label

TEST(Label, CopiesOwnTheirText) {
  char buffer[] = "first";
  Label* pOriginal(new Label(Point2(1, 2), buffer, true, 12));
  buffer[0] = 'X';
  EXPECT_STREQ(pOriginal->getCS(), "first");
  Label copy(*pOriginal);
  Label assigned(Point2(0, 0), "other", false, 8);
  assigned = *pOriginal;
  assigned = assigned;
  delete pOriginal;
  EXPECT_STREQ(copy.getCS(), "first");
  EXPECT_STREQ(assigned.getCS(), "first");
  EXPECT_EQ(assigned.position, Point2(1, 2));
  EXPECT_TRUE(assigned.bWithMark);
  EXPECT_EQ(assigned.fontSize, 12);
  EXPECT_STREQ(Label(Point2(0, 0), nullptr, false, 8).getCS(), "");
}

// ---------------------------------------------------------------- the file

TEST(VisualizerFile, HeadNamesTheFileAndTheRangesAndTheTrailerClosesThePage) {
  testing::internal::CaptureStdout();
  const std::string file(writeDrawing("vis_head.ps", [](Visualizer2& vis) {
    vis.addObject(Segment2(Point2(0, 0), Point2(2, 1)), Color());
  }));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Visualizer2:: Writing vis_head.ps\n"), std::string::npos) << out;
  EXPECT_EQ(file.rfind("%!PS-Adobe-1.0\n\t%%Creator: KIRO PostscriptWriter\n\t%%Title: vis_head.ps\n", 0), 0u);
  EXPECT_NE(file.find("40\t740\tmoveto\n\t(vis_head.ps)\tshow\n"), std::string::npos);
  EXPECT_NE(file.find("(x-Range: [0 - 2] =2)\tshow\n"), std::string::npos);
  EXPECT_NE(file.find("(y-Range: [0 - 1] =1)\tshow\n"), std::string::npos);
  // Source at the lower left corner, target at the right edge, half up.
  EXPECT_NE(file.find("50\t200\tmoveto\n530\t440\tlineto\n"), std::string::npos);
  const std::string trailer("stroke\nshowpage\n%%Trailer\n");
  ASSERT_GE(file.size(), trailer.size());
  EXPECT_EQ(file.substr(file.size() - trailer.size()), trailer);
  std::remove("vis_head.ps");
}

TEST(VisualizerFile, SinglePointBoxGrowsToTheLowSide) {
  const std::string file(writeDrawing("vis_onepoint.ps", [](Visualizer2& vis) {
    vis.addObject(Point2(3, 4), Color());
  }));
  EXPECT_NE(file.find("(x-Range: [2 - 3] =1)"), std::string::npos) << file;
  EXPECT_NE(file.find("(y-Range: [3 - 4] =1)"), std::string::npos) << file;
  // The point is the upper right corner of the square; its cross has size 1.5.
  EXPECT_NE(file.find("528.5\t678.5\tmoveto\n531.5\t681.5\tlineto\n528.5\t681.5\tmoveto\n531.5\t678.5\tlineto\n"),
            std::string::npos)
      << file;
  std::remove("vis_onepoint.ps");
}

TEST(VisualizerFile, EmptyDrawingStillMakesAPage) {
  const std::string file(writeDrawing("vis_empty.ps", [](Visualizer2&) {}));
  EXPECT_NE(file.find("(x-Range: [-1 - 0] =1)"), std::string::npos) << file;
  EXPECT_NE(file.find("showpage"), std::string::npos);
  std::remove("vis_empty.ps");
}

TEST(VisualizerFile, TrianglesLieBelowSegmentsThenCirclesPointsAndLabels) {
  // Added in the reverse order; each kind has its own colour, so the order of
  // the colour changes is the order of drawing.
  const std::string file(writeDrawing("vis_order.ps", [](Visualizer2& vis) {
    vis.addObject(Label(Point2(0, 0), "text", false, 10), Color(0.5, 0.0, 0.0, 1.0, false));
    vis.addObject(Point2(1, 1), Color(0.4, 0.0, 0.0, 1.0, false));
    vis.addObject(Circle2(Point2(1, 1), 1.0), Color(0.3, 0.0, 0.0, 1.0, false));
    vis.addObject(Segment2(Point2(0, 0), Point2(1, 0)), Color(0.2, 0.0, 0.0, 1.0, false));
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

TEST(VisualizerFile, ColourChangesOnlyWhereTheColourDiffers) {
  const std::string same(writeDrawing("vis_samecolour.ps", [](Visualizer2& vis) {
    for (int i = 0; i < 3; ++i) vis.addObject(Segment2(Point2(i, 0), Point2(i, 1)), Color(CBLUE, 0.5f, false));
  }));
  EXPECT_EQ(countOf(bodyOf(same), "setrgbcolor"), 1u);
  EXPECT_EQ(countOf(bodyOf(same), "0.5\tsetlinewidth"), 1u);
  const std::string alternating(writeDrawing("vis_altcolour.ps", [](Visualizer2& vis) {
    vis.addObject(Segment2(Point2(0, 0), Point2(0, 1)), Color(CBLUE, 0.5f, false));
    vis.addObject(Segment2(Point2(1, 0), Point2(1, 1)), Color(CBLUE, 0.6f, false));
    vis.addObject(Segment2(Point2(2, 0), Point2(2, 1)), Color(CBLUE, 0.5f, false));
  }));
  EXPECT_EQ(countOf(bodyOf(alternating), "setrgbcolor"), 3u);
  std::remove("vis_samecolour.ps");
  std::remove("vis_altcolour.ps");
}

TEST(VisualizerFile, PathsAreStrokedAfterEveryThirtyOneObjects) {
  const std::string file(writeDrawing("vis_paths.ps", [](Visualizer2& vis) {
    for (int i = 0; i < 100; ++i) vis.addObject(Point2(i, i % 7), Color());
  }));
  // One stroke at the colour change, one after objects 31, 62 and 93, and
  // the final one before showpage.
  EXPECT_EQ(countOf(bodyOf(file), "stroke\n"), 5u);
  std::remove("vis_paths.ps");
}

TEST(VisualizerFile, FilledSegmentColourMarksEachEndPointOnce) {
  const std::string file(writeDrawing("vis_marks.ps", [](Visualizer2& vis) {
    // A path of two segments over three points: the shared point gets one cross.
    vis.addObject(Segment2(Point2(0, 0), Point2(1, 0)), Color(CBLUE, 2.0f, true));
    vis.addObject(Segment2(Point2(1, 0), Point2(1, 1)), Color(CBLUE, 2.0f, true));
    // Other colour over a shared point: a cross of its own, of size 1.5.
    vis.addObject(Segment2(Point2(1, 1), Point2(0, 1)), Color(CRED, 0.1f, true));
    // Without fill no marks.
    vis.addObject(Segment2(Point2(0, 1), Point2(0, 0)), Color(CGREEN, 0.1f, false));
  }));
  const std::string body(bodyOf(file));
  // 4 segments with one moveto each, 3 + 2 crosses with two each.
  EXPECT_EQ(countOf(body, "moveto"), 4u + 2u * 5u) << body;
  // The blue cross at (1,0), page (530,200), has size 2 * width = 4.
  EXPECT_NE(body.find("526\t196\tmoveto\n534\t204\tlineto\n"), std::string::npos) << body;
  // The red cross at (1,1), page (530,680), has the minimum size 1.5.
  EXPECT_NE(body.find("528.5\t678.5\tmoveto\n531.5\t681.5\tlineto\n"), std::string::npos) << body;
  std::remove("vis_marks.ps");
}

TEST(VisualizerFile, FilledTriangleGetsAGreyOutlineAndTheColourBack) {
  const std::string file(writeDrawing("vis_filledtri.ps", [](Visualizer2& vis) {
    Point2 a(0, 0), b(1, 0), c(0, 1);
    vis.addObject(Triangle2(&a, &b, &c), Color(CRED, 0.5f, true));
  }));
  const std::string body(bodyOf(file));
  EXPECT_NE(body.find("closepath\ngsave\n  fill\ngrestore\n  0.3 0.3 .3 setrgbcolor\n0.5\tsetlinewidth\nstroke\n"
                      "stroke\n1\t0\t0\tsetrgbcolor\n0.5\tsetlinewidth\n"),
            std::string::npos)
      << body;
  std::remove("vis_filledtri.ps");
}

TEST(VisualizerFile, HeaderBlockStandsTopDownAndRefusesAnEleventhLine) {
  testing::internal::CaptureStdout();
  const std::string file(writeDrawing("vis_header.ps", [](Visualizer2& vis) {
    vis.addObject(Point2(0, 0), Color());
    for (int i = 0; i < 11; ++i) vis.addHeaderLine(("line " + std::to_string(i)).c_str());
  }));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Visualizer2::addHeaderLine()"), std::string::npos) << out;
  EXPECT_NE(out.find("skipping text [\"line 10\"], maximum number of header lines reached"), std::string::npos)
      << out;
  EXPECT_EQ(file.find("(line 10)"), std::string::npos);
  // Ten lines: the font size is 100 / 10 - 2 = 8, the step 10; line 0 on top.
  EXPECT_NE(file.find("/Times-Roman findfont 8 scalefont\n"), std::string::npos);
  EXPECT_NE(file.find("240\t785\tmoveto\n(line 0)\tshow\n"), std::string::npos) << file;
  EXPECT_NE(file.find("240\t695\tmoveto\n(line 9)\tshow\n"), std::string::npos) << file;
  EXPECT_NE(file.find("237\t795\tlineto\n"), std::string::npos);
  std::remove("vis_header.ps");
}

TEST(VisualizerFile, LongHeaderLineIsCutAndShrinksTheFont) {
  const std::string longLine(150, 'a');
  const std::string file(writeDrawing("vis_longheader.ps", [&longLine](Visualizer2& vis) {
    vis.addObject(Point2(0, 0), Color());
    vis.addHeaderLine(longLine.c_str());
  }));
  EXPECT_NE(file.find("(" + std::string(120, 'a') + ")\tshow\n"), std::string::npos);
  EXPECT_EQ(file.find(std::string(121, 'a')), std::string::npos);
  // 500 / 120 = 4 is below the minimum size 6.
  EXPECT_NE(file.find("/Times-Roman findfont 6 scalefont\n"), std::string::npos);
  std::remove("vis_longheader.ps");
}

TEST(VisualizerFile, LabelLinesStepDownByTheFontSize) {
  const std::string file(writeDrawing("vis_label.ps", [](Visualizer2& vis) {
    vis.addObject(Point2(0, 0), Color());
    vis.addObject(Point2(20, 20), Color());
    vis.addObject(Label(Point2(5, 5), "ab\ncd", true, 12), Color());
  }));
  // 24 points per unit: the label stands at page (170, 320).
  const std::string body(bodyOf(file));
  EXPECT_NE(body.find("/Arial findfont 12 scalefont\n setfont\n170\t320\tmoveto\n(ab)\tshow\nstroke\n"
                      "170\t308\tmoveto\n(cd)\tshow\nstroke\n168.5\t318.5\tmoveto\n"),
            std::string::npos)
      << body;
  std::remove("vis_label.ps");
}

TEST(VisualizerFile, LabelTextWidensTheBoxByHalfItsLengthUpToTwenty) {
  const std::string shortText(writeDrawing("vis_labelbox.ps", [](Visualizer2& vis) {
    vis.addObject(Label(Point2(1, 1), "abcd", false, 10), Color());
  }));
  EXPECT_NE(shortText.find("(x-Range: [1 - 3] =2)"), std::string::npos) << shortText;
  const std::string longText(writeDrawing("vis_labelbox.ps", [](Visualizer2& vis) {
    vis.addObject(Label(Point2(1, 1), std::string(50, 'x').c_str(), false, 10), Color());
  }));
  EXPECT_NE(longText.find("(x-Range: [1 - 11] =10)"), std::string::npos) << longText;
  std::remove("vis_labelbox.ps");
}

TEST(VisualizerFile, TextsWithParenthesesAndBackslashesAreEscaped) {
  const std::string file(writeDrawing("vis_escape(1).ps", [](Visualizer2& vis) {
    vis.addObject(Label(Point2(0, 0), "f(x) \\ y)", false, 10), Color());
    vis.addHeaderLine("header (open");
  }));
  EXPECT_NE(file.find("(f\\(x\\) \\\\ y\\))\tshow"), std::string::npos) << file;
  EXPECT_NE(file.find("(header \\(open)\tshow"), std::string::npos) << file;
  EXPECT_NE(file.find("(vis_escape\\(1\\).ps)\tshow"), std::string::npos) << file;
  std::remove("vis_escape(1).ps");
}

TEST(VisualizerFile, ObjectsAreCopiedWhenAdded) {
  const std::string file(writeDrawing("vis_copies.ps", [](Visualizer2& vis) {
    Point2 a(0, 0), b(4, 0), c(0, 2);
    Triangle2 t(&a, &b, &c);
    std::vector<Triangle2*> vT{&t};
    std::vector<Point2*> vP{&b, nullptr};
    vis.addObject(vT, Color());
    vis.addObject(vP, Color());
    vis.addObject(Edge2(&t, 0), Color(CRED, 1.0f, false));
    // Later changes of the vertices don't reach the drawing.
    a.change(-100, -100);
    b.change(100, 100);
  }));
  EXPECT_NE(file.find("(x-Range: [0 - 4] =4)"), std::string::npos) << file;
  // Edge 0 runs from corner 1 (4,0) to corner 2 (0,2).
  EXPECT_NE(bodyOf(file).find("530\t200\tmoveto\n50\t440\tlineto\n"), std::string::npos) << file;
  std::remove("vis_copies.ps");
}

TEST(VisualizerFile, NonFiniteObjectsAreSkippedWithAWarning) {
  const double nan(std::numeric_limits<double>::quiet_NaN());
  const double inf(std::numeric_limits<double>::infinity());
  testing::internal::CaptureStdout();
  const std::string file(writeDrawing("vis_nonfinite.ps", [nan, inf](Visualizer2& vis) {
    vis.addObject(Point2(nan, 0), Color());
    vis.addObject(Segment2(Point2(0, 0), Point2(inf, 1)), Color());
    vis.addObject(Circle2(Point2(0, 0), -1.0), Color());
    vis.addObject(Point2(0, 0), Color());
    vis.addObject(Point2(2, 1), Color());
  }));
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(countOf(out, "Visualizer2::addObject()"), 3u) << out;
  EXPECT_NE(file.find("(x-Range: [0 - 2] =2)"), std::string::npos) << file;
  EXPECT_EQ(file.find("nan"), std::string::npos);
  EXPECT_EQ(file.find("inf"), std::string::npos);
  std::remove("vis_nonfinite.ps");
}

TEST(VisualizerFile, ExtremeCoordinatesGiveFinitePageCoordinates) {
  const std::string wide(writeDrawing("vis_wide.ps", [](Visualizer2& vis) {
    vis.addObject(Segment2(Point2(-1.7e308, -1e308), Point2(1.7e308, 1e308)), Color());
    vis.addObject(Circle2(Point2(0, 0), 1e300), Color());
  }));
  // The range itself overflows and is printed as such in the title; the
  // drawing's coordinates stay finite.
  const std::string body(bodyOf(wide));
  EXPECT_EQ(body.find("inf"), std::string::npos) << body;
  EXPECT_EQ(body.find("nan"), std::string::npos) << body;
  EXPECT_NE(body.find("50\t200\tmoveto\n530\t"), std::string::npos) << body;
  const std::string far(writeDrawing("vis_far.ps", [](Visualizer2& vis) {
    vis.addObject(Point2(1e20, -1e300), Color());
  }));
  EXPECT_EQ(far.find("inf"), std::string::npos) << far;
  EXPECT_EQ(far.find("nan"), std::string::npos) << far;
  EXPECT_EQ(far.find("=0)"), std::string::npos) << far;
  std::remove("vis_wide.ps");
  std::remove("vis_far.ps");
}

TEST(VisualizerLifecycle, DestroyingAnUnfinishedVisualiserCompletesTheFile) {
  testing::internal::CaptureStdout();
  {
    Visualizer2 vis("vis_unfinished.ps");
    vis.addObject(Point2(1, 1), Color());
  }
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Calling Visualizer2::writeFile() to complete an unfinished visualization [vis_unfinished.ps]"),
            std::string::npos)
      << out;
  const std::string file(vask_test::readTextFile("vis_unfinished.ps"));
  EXPECT_NE(file.find("showpage\n%%Trailer\n"), std::string::npos);
  std::remove("vis_unfinished.ps");
}

TEST(VisualizerLifecycle, SecondWriteFileIsALoggedNoOpAndAddingAfterwardsThrows) {
  Visualizer2 vis("vis_closed.ps");
  vis.addObject(Point2(1, 1), Color());
  EXPECT_TRUE(vis.writeFile());
  const std::string before(vask_test::readTextFile("vis_closed.ps"));
  testing::internal::CaptureStdout();
  EXPECT_FALSE(vis.writeFile());
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Visualizer2::writeFile()"), std::string::npos) << out;
  EXPECT_NE(out.find("No effect. File has already been closed"), std::string::npos) << out;
  EXPECT_EQ(vask_test::readTextFile("vis_closed.ps"), before);
  testing::internal::CaptureStdout();
  EXPECT_THROW(vis.addObject(Point2(2, 2), Color()), VaskException);
  EXPECT_THROW(vis.addHeaderLine("late"), VaskException);
  testing::internal::GetCapturedStdout();
  std::remove("vis_closed.ps");
}

TEST(VisualizerLifecycle, UncreatableFileIsReportedWithItsNameAndWritesNothing) {
  const std::string name("no_such_directory_for_vask/picture.ps");
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  {
    Visualizer2 vis(name.c_str());
    vis.addObject(Point2(0, 0), Color());
    vis.addObject(Label(Point2(1, 1), "label", true, 10), Color());
    vis.addHeaderLine("header");
    EXPECT_FALSE(vis.writeFile());
  }
  {
    // Left unfinished: the destructor must cope as well.
    Visualizer2 vis(name.c_str());
    vis.addObject(Point2(0, 0), Color());
  }
  testing::internal::GetCapturedStdout();
  const std::string err(testing::internal::GetCapturedStderr());
  EXPECT_NE(err.find(name + " can't be opened"), std::string::npos) << err;
  EXPECT_EQ(countOf(err, name), 2u) << err;
}

TEST(VisualizerLifecycle, NullFileNameIsAWarningNotACrash) {
  testing::internal::CaptureStdout();
  Visualizer2 vis(nullptr);
  vis.addObject(Point2(0, 0), Color());
  EXPECT_FALSE(vis.writeFile());
  testing::internal::GetCapturedStdout();
}

// ---------------------------------------------------------------- the picture

TEST(VisualizerPicture, SegmentsFillTheWidthByTheScaleRule) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  // An outline of 8 x 4 units: 480 points wide and 240 high.
  writeDrawing("pic_rect.ps", [](Visualizer2& vis) {
    const Point2 a(-3, 2), b(5, 2), c(5, 6), d(-3, 6);
    vis.addObject(std::vector<Segment2>{Segment2(a, b), Segment2(b, c), Segment2(c, d), Segment2(d, a)},
                  Color(CBLACK, 1.0f, false));
  });
  const PageImage image(renderOrFail("pic_rect.ps"));
  expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), LEFT, BOTTOM, LEFT + SIZE, BOTTOM + 240.0, TOL);
  // The title lines above the drawing are on the page too.
  EXPECT_GT(vask_test::countInk(image, 690.0, 842.0), 100u);
  // The inside of the outline stays white.
  EXPECT_FALSE(vask_test::PageImage(image).pixelAtPagePoint(290.0, 320.0)[0] < 230);
  std::remove("pic_rect.ps");
}

TEST(VisualizerPicture, FilledCircleFillsTheSquareInItsColour) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  writeDrawing("pic_circle.ps", [](Visualizer2& vis) { vis.addObject(Circle2(10, 10, 25.0), Color(CBLUE, 0.5f, true)); });
  const PageImage image(renderOrFail("pic_circle.ps"));
  expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), LEFT, BOTTOM, LEFT + SIZE, BOTTOM + SIZE, TOL);
  const unsigned char* pCentre(image.pixelAtPagePoint(LEFT + SIZE / 2, BOTTOM + SIZE / 2));
  EXPECT_LT(pCentre[0], 40);
  EXPECT_LT(pCentre[1], 40);
  EXPECT_GT(pCentre[2], 215);
  // The corner of the square lies outside the circle.
  EXPECT_GT(image.pixelAtPagePoint(LEFT + 10, BOTTOM + 10)[0], 230);
  std::remove("pic_circle.ps");
}

TEST(VisualizerPicture, FilledTriangleIsPaintedBelowItsEdges) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  writeDrawing("pic_triangle.ps", [](Visualizer2& vis) {
    Point2 a(0, 0), b(1, 0), c(0, 1);
    vis.addObject(Segment2(a, c), Color(CBLACK, 0.5f, false));
    vis.addObject(Triangle2(&a, &b, &c), Color(CRED, 0.5f, true));
  });
  const PageImage image(renderOrFail("pic_triangle.ps"));
  expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), LEFT, BOTTOM, LEFT + SIZE, BOTTOM + SIZE, TOL);
  const unsigned char* pInside(image.pixelAtPagePoint(LEFT + SIZE / 4, BOTTOM + SIZE / 4));
  EXPECT_GT(pInside[0], 215);
  EXPECT_LT(pInside[1], 40);
  EXPECT_LT(pInside[2], 40);
  // The black segment on the left side is drawn over the red fill.
  const unsigned char* pEdge(image.pixelAtPagePoint(LEFT + 0.1, BOTTOM + SIZE / 2));
  EXPECT_LT(pEdge[0], 100);
  EXPECT_GT(image.pixelAtPagePoint(LEFT + 0.75 * SIZE, BOTTOM + 0.75 * SIZE)[0], 230);
  std::remove("pic_triangle.ps");
}

TEST(VisualizerPicture, SinglePointSitsAtTheUpperRightCornerOfTheSquare) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  writeDrawing("pic_point.ps", [](Visualizer2& vis) { vis.addObject(Point2(3, 4), Color(CBLACK, 0.5f, false)); });
  const PageImage image(renderOrFail("pic_point.ps"));
  // The cross of size 1.5 around (530, 680), with half its line width.
  expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), 528.5, 678.5, 531.5, 681.5, TOL);
  std::remove("pic_point.ps");
}

TEST(VisualizerPicture, FlatDrawingGrowsToTheLowSide) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  // Height 0: the box takes one unit below, so the segment lies on its top,
  // 10 units are 480 points and one unit 48.
  writeDrawing("pic_flat.ps", [](Visualizer2& vis) {
    vis.addObject(Segment2(Point2(0, 5), Point2(10, 5)), Color(CBLACK, 1.0f, false));
  });
  const PageImage image(renderOrFail("pic_flat.ps"));
  expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), LEFT, BOTTOM + 47.5, LEFT + SIZE, BOTTOM + 48.5, TOL);
  std::remove("pic_flat.ps");
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

TEST(VisualizerPicture, ExtremeCoordinatesStillRender) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  writeDrawing("pic_extreme.ps", [](Visualizer2& vis) {
    vis.addObject(Segment2(Point2(-1.7e308, -1.7e308), Point2(1.7e308, 1.7e308)), Color(CBLACK, 1.0f, false));
  });
  const PageImage image(renderOrFail("pic_extreme.ps"));
  expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), LEFT, BOTTOM, LEFT + SIZE, BOTTOM + SIZE, TOL);
  std::remove("pic_extreme.ps");
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

TEST(TriangulationPicture, ShowDrawsEveryEdgeOnceInThinBlack) {
  Vask_2D dt;
  dt.insert(pointsInWideBox(500, 7));
  testing::internal::CaptureStdout();
  dt.show("tri_edges.ps", true);
  testing::internal::GetCapturedStdout();
  const std::string body(bodyOf(vask_test::readTextFile("tri_edges.ps")));
  EXPECT_EQ(countOf(body, "lineto"), numberOfEdges(dt));
  EXPECT_EQ(countOf(body, "setrgbcolor"), 1u);
  EXPECT_NE(body.find("0\t0\t0\tsetrgbcolor\n0.01\tsetlinewidth\n"), std::string::npos);
  std::remove("tri_edges.ps");
}

TEST(TriangulationPicture, ShowIntoAnOpenVisualiserLeavesItOpen) {
  Vask_2D dt;
  dt.insert(pointsInWideBox(50, 8));
  testing::internal::CaptureStdout();
  Visualizer2 vis("tri_open.ps");
  dt.show(&vis, false);
  vis.addObject(Point2(120, 25), Color(CRED, 0.5f, false));
  vis.addHeaderLine("mesh and one more point");
  EXPECT_TRUE(vis.writeFile());
  dt.show(static_cast<Visualizer2*>(nullptr), true);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Vask_2D::show()"), std::string::npos) << out;
  const std::string file(vask_test::readTextFile("tri_open.ps"));
  EXPECT_NE(file.find("(x-Range: [0 - 120] =120)"), std::string::npos);
  // The edges, the two strokes of the point's cross, three of the frame of
  // the header block.
  EXPECT_EQ(countOf(bodyOf(file), "lineto"), numberOfEdges(dt) + 2u + 3u);
  EXPECT_NE(file.find("(mesh and one more point)"), std::string::npos);
  std::remove("tri_open.ps");
}

TEST(TriangulationPicture, ShowWithoutAreaWarnsAndWritesAnEmptyPage) {
  Vask_2D dt;
  dt.insert(std::vector<Point2>{Point2(0, 0), Point2(1, 1), Point2(2, 2)});
  testing::internal::CaptureStdout();
  dt.show("tri_noarea.ps", true);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("Dt2::show()"), std::string::npos) << out;
  EXPECT_NE(out.find("The triangulation is has no area, no visualization"), std::string::npos) << out;
  const std::string file(vask_test::readTextFile("tri_noarea.ps"));
  EXPECT_NE(file.find("showpage"), std::string::npos);
  EXPECT_EQ(countOf(bodyOf(file), "lineto"), 0u);
  std::remove("tri_noarea.ps");
}

TEST(TriangulationPicture, ShowFillsTheWidthOfThePageByTheScaleRule) {
  SKIP_WITHOUT_GHOSTSCRIPT();
  Vask_2D dt;
  dt.insert(pointsInWideBox(3000, 9));
  testing::internal::CaptureStdout();
  dt.show("pic_show.ps", true);
  testing::internal::GetCapturedStdout();
  const PageImage image(renderOrFail("pic_show.ps"));
  // 100 x 50 units: 480 points wide and 240 high.
  expectBoxNear(vask_test::inkBox(image, 0.0, DRAWING_TOP), LEFT, BOTTOM, LEFT + SIZE, BOTTOM + 240.0, TOL);
  // 3000 points make a dense mesh: a good part of the inside is inked.
  const std::size_t numInside(vask_test::countInk(image, BOTTOM + 10.0, BOTTOM + 230.0));
  const std::size_t numPixels(std::size_t(SIZE * (220.0) * (DPI / 72.0) * (DPI / 72.0)));
  EXPECT_GT(numInside, numPixels / 5) << numInside << " of " << numPixels;
  std::remove("pic_show.ps");
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
