#pragma once
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** Named colours; the numbers are part of the interface. */
enum Colorname {
  CRED = 0,
  CGREEN = 1,
  CBLUE = 2,
  CBLACK = 3,
  CPINK = 4,
  CGRAY = 5,
  CORANGE = 6,
  CLIGHTBLUE = 7,
  CLIGHTBROWN = 8,
  CDARKBROWN = 9,
  CPURPLE = 10,
  COLIVE = 11,
  CLAWNGREEN = 12,
  CPALEGREEN = 13,
  CCYAN = 14,
  CYELLOW = 15,
  CWHITE = 16
};

/** A drawing colour of Visualizer2: RGB components from 0 to 1, a line width
 * in page points and a fill flag. The fill flag fills triangles and circles,
 * and marks the end points of segments with crosses. */
class VASK2D_API Color {
public:
  /** Black, width 0.1, no fill. */
  Color();
  Color(double r, double g, double b, double width, bool bFill);
  /** The colour of the name; an unknown name logs a warning and gives black. */
  Color(Colorname c, float width, bool bFill);

  /** Orders by r, g, b, width, then bFill (false before true). */
  bool operator<(const Color& other) const;
  bool operator==(const Color& other) const;
  bool operator!=(const Color& other) const;

  /** Steps the process-wide counter currentColorName and returns the next
   * name of the cycle CGREEN, CBLUE, ..., CCYAN, CGREEN, ...; CRED, CYELLOW
   * and CWHITE never come out, so that a sequence of colours stays distinct
   * from red marks and readable on white paper. Not synchronised. */
  static Colorname getNextColorName();

  float r;
  float g;
  float b;
  float width;
  bool bFill;

  /** The counter behind getNextColorName; starts at 0. */
  static unsigned int currentColorName;
};

} // namespace KIRO_VASK2D
