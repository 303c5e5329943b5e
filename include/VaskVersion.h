#pragma once
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** "Vask 2D, DEBUG, v1.86.557" in a debug build, "Vask 2D, RELEASE, v1.86.557" in a release build. */
VASK2D_API char const* getVask2DVersion();
VASK2D_API int getMajorVersionNumber();
VASK2D_API int getMinorVersionNumber();
VASK2D_API int getRevisionNumber();
/** False in a debug (diagnostic) build, true in a release build. */
VASK2D_API bool isRelease();

/** A pair of calls with the same name forms one measurement: the first
 * returns -1.0, the second the elapsed seconds. A name that starts with
 * "[quiet]" prints nothing. Not for concurrent use. */
VASK2D_API double timer(char const* name);

} // namespace KIRO_VASK2D
