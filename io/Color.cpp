#include "Color.h"
#include "support/Log.h"

namespace KIRO_VASK2D {

unsigned int Color::currentColorName(0);

Color::Color() : r(0.0f), g(0.0f), b(0.0f), width(0.1f), bFill(false) {}

Color::Color(double r_, double g_, double b_, double width_, bool bFill_)
    : r(float(r_)), g(float(g_)), b(float(b_)), width(float(width_)), bFill(bFill_) {}

Color::Color(Colorname c, float width_, bool bFill_) : r(0.0f), g(0.0f), b(0.0f), width(width_), bFill(bFill_) {
  // Rows are indexed by the enumerator's number.
  static const float aRGB[17][3] = {
      {1.0f, 0.0f, 0.0f},       // CRED
      {0.0f, 1.0f, 0.0f},       // CGREEN
      {0.0f, 0.0f, 1.0f},       // CBLUE
      {0.0f, 0.0f, 0.0f},       // CBLACK
      {1.0f, 0.4f, 0.7f},       // CPINK
      {0.3f, 0.3f, 0.3f},       // CGRAY
      {1.0f, 0.627f, 0.0f},     // CORANGE
      {0.0f, 0.749f, 1.0f},     // CLIGHTBLUE
      {0.823f, 0.705f, 0.549f}, // CLIGHTBROWN
      {0.545f, 0.271f, 0.074f}, // CDARKBROWN
      {0.627f, 0.125f, 0.941f}, // CPURPLE
      {0.5f, 0.5f, 0.0f},       // COLIVE
      {0.49f, 0.99f, 0.0f},     // CLAWNGREEN
      {0.6f, 0.98f, 0.6f},      // CPALEGREEN
      {0.0f, 1.0f, 1.0f},       // CCYAN
      {1.0f, 1.0f, 0.0f},       // CYELLOW
      {1.0f, 1.0f, 1.0f}        // CWHITE
  };
  // The value may come from a cast integer, so it is range checked here.
  const int idx(static_cast<int>(c));
  if (idx < 0 || idx > 16) {
    logWarning("Color::Color", "Colorname unknown, returning black");
    return;
  }
  r = aRGB[idx][0];
  g = aRGB[idx][1];
  b = aRGB[idx][2];
}

bool Color::operator<(const Color& other) const {
  if (r != other.r) return r < other.r;
  if (g != other.g) return g < other.g;
  if (b != other.b) return b < other.b;
  if (width != other.width) return width < other.width;
  return !bFill && other.bFill;
}

bool Color::operator==(const Color& other) const {
  return r == other.r && g == other.g && b == other.b && width == other.width && bFill == other.bFill;
}

bool Color::operator!=(const Color& other) const { return !(*this == other); }

Colorname Color::getNextColorName() {
  // After a reduction the counter lies in 0..14, so the increment yields
  // 1..15; 15 is pushed on to 16, which reduces to 1. The cycle is thus
  // 1, 2, ..., 14, 1, ... and CRED, CYELLOW and CWHITE never come out (unless
  // a caller writes the public counter itself).
  ++currentColorName;
  if (currentColorName == 15 || currentColorName == 16) ++currentColorName;
  currentColorName %= 15;
  switch (currentColorName) {
  case 0: return CRED;
  case 1: return CGREEN;
  case 2: return CBLUE;
  case 3: return CBLACK;
  case 4: return CPINK;
  case 5: return CGRAY;
  case 6: return CORANGE;
  case 7: return CLIGHTBLUE;
  case 8: return CLIGHTBROWN;
  case 9: return CDARKBROWN;
  case 10: return CPURPLE;
  case 11: return COLIVE;
  case 12: return CLAWNGREEN;
  case 13: return CPALEGREEN;
  case 14: return CCYAN;
  default:
    logWarning("Color::getNextColorName()", "undefined color index, returning CBLACK");
    return CBLACK;
  }
}

} // namespace KIRO_VASK2D
