#pragma once
// Free geometric functions of Vask2D for the caller.
#include "Edge2.h"
#include "Point2.h"
#include "Segment2.h"
#include "Triangle2.h"
#include "Vask2DApi.h"
#include "Vector2.h"
#include <vector>

namespace KIRO_VASK2D {

/** The midpoint of a and b, moved onto line ab as closely as the grid of
 * doubles allows (within a hundredth of the extent, and at most 0.001, in
 * each direction). Splitting a segment at this point keeps it straight. */
VASK2D_API Point2 centerWithShift(const Point2& a, const Point2& b);

// ---------------------------------------------------------------------------
// Polygons and edges. The ring functions answer false with a warning on input
// that is no ring, and leave their vector as it stood.

/** Appends a segment for each pair of consecutive points that differ
 * (repeated points vanish), and with bClose the closing segment unless the
 * last point equals the first. Fewer than 2 points add nothing. */
VASK2D_API void pointsToPolyline(std::vector<Point2>& vIn, bool bClose, std::vector<Segment2>& vOut);

/** Orders one closed ring of segments, given in any order and direction,
 * into a chain where each segment starts at the end of the one before. An
 * empty vector is a ring. Several rings, branches and open chains fail. */
VASK2D_API bool sortRing(std::vector<Segment2>& vSegments);

/** sortRing, then the chain runs counter-clockwise. */
VASK2D_API bool sortRingCCW(std::vector<Segment2>& vSegments);

/** One closed ring with area whose segments meet only where consecutive
 * segments share their end point. Zero-length segments are ignored. Exact. */
VASK2D_API bool isSimplePolygon(std::vector<Segment2>& vSegments);

/** Sorts directed edges into closed polygons (each a head-to-tail cycle);
 * edges that close no cycle go to vRemaining. Every input edge lands in
 * exactly one of the two. */
VASK2D_API void edgesToPolygons(std::vector<Edge2>& vIn, std::vector<std::vector<Edge2> >& vPolygons,
                                std::vector<Edge2>& vRemaining);

/** The border of a triangle set: every edge whose neighbour is missing or
 * outside the set, directed so that the set lies on its left. */
VASK2D_API void getBorders(const std::vector<Triangle2*>& vT, std::vector<Segment2>& vOut);

/** The three edges of each triangle in order; inner edges thus twice. */
VASK2D_API void getDirectedEdges(std::vector<Triangle2*>& vT, std::vector<Edge2>& vOut);

/** Each edge of the triangles once: of two directed edges over the same
 * vertex pair, the one from the triangle with the smaller address stays. */
VASK2D_API void getUndirectedEdges(std::vector<Triangle2*>& vT, std::vector<Edge2>& vOut);

/** The vector scaled to length 1; a null vector warns and gives (0, 0). */
VASK2D_API Vector2 normalize(const Vector2& v);

/** The unsigned area of the triangle, by Heron's rule. */
VASK2D_API double getArea2D(Point2* p0, Point2* p1, Point2* p2);

} // namespace KIRO_VASK2D
