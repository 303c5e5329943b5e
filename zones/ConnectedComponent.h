#pragma once
// Edge-connected sets of triangles and their borders. A component is simple
// when its border is one closed ring that touches no vertex twice, the form
// a region needs to become one polygon. Internal: nothing here is exported.
#include "Edge2.h"
#include <vector>

namespace KIRO_VASK2D {

class Point2;
class Triangle2;

/** Divides the triangles into edge-connected lists (neighbours inside the
 * list), appended to vOut. Each triangle lands in exactly one list, a
 * duplicate in the input once. */
void getConnectedComponents(const std::vector<Triangle2*>& vT, std::vector<std::vector<Triangle2*> >& vOut);

class ConnectedComponent {
public:
  /** pAxisFlag steers where a component with several borders is cut (x or
   * y, flipped on each such cut); the caller owns it, so cuts alternate
   * within one partitioning and nothing is shared between callers. Null: a
   * flag of this component. */
  explicit ConnectedComponent(const std::vector<Triangle2*>& vT, bool* pAxisFlag = nullptr);
  ConnectedComponent(const ConnectedComponent&) = delete;
  ConnectedComponent& operator=(const ConnectedComponent&) = delete;

  unsigned int size() const { return static_cast<unsigned int>(vComponentT.size()); }
  const std::vector<Triangle2*>& getTriangles() const { return vComponentT; }
  /** The first closed ring of the border, in ring order, as Edge2s with the
   * component on their left (the whole border for a simple component);
   * valid after splitIntoSimple. */
  void getSortedBorder(std::vector<Edge2>& vOut) const { vOut = vSortedBorder; }
  /** False when the component is simple. Otherwise appends smaller pieces
   * that together hold each triangle once and returns true: a component
   * with several borders is cut along an axis line through a vertex of its
   * first ring, one whose border passes a vertex twice (a pinch) deals the
   * triangles at each pinch out to different pieces. */
  bool splitIntoSimple(std::vector<std::vector<Triangle2*> >& vOut);

private:
  void computeBorder();
  void sortBorders(std::vector<Point2*>& vPinchVertices, Point2*& pSplitVertex);
  void splitAtAxis(Point2* pSplitVertex, std::vector<std::vector<Triangle2*> >& vOut);
  void dealOutAtPinches(const std::vector<Point2*>& vPinchVertices, std::vector<std::vector<Triangle2*> >& vOut);

  std::vector<Triangle2*> vComponentT;
  std::vector<Edge2> vBorderEdges;
  std::vector<Edge2> vSortedBorder;
  bool bOwnAxisFlag;
  bool* pAxisFlag;
};

} // namespace KIRO_VASK2D
