#pragma once
#include "Point2.h"
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** A text for Visualizer2: position in the caller's coordinates, font size in
 * page points, and an optional cross at the position. The label owns a copy
 * of its text; a "\n" in the text starts a new line below. */
class VASK2D_API Label {
public:
  /** A null text is taken as the empty text. */
  Label(const Point2& p, const char* s, bool bWithMark = false, int fontSize = 8);
  Label(const Label& other);
  Label& operator=(const Label& other);
  ~Label();

  /** The text as a C string; valid as long as the label. */
  const char* getCS() const;

private:
  char* pText;

public:
  Point2 position;
  bool bWithMark;
  int fontSize;
};

} // namespace KIRO_VASK2D
