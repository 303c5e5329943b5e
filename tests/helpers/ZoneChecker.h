#pragma once
// An independent judge of zones: membership of every mesh triangle decided
// by the exact winding number of its rational centroid about the fences,
// and areas compared exactly with the shoelace formula. Nothing here uses
// the library's predicates or its flood.
#include "Point2.h"
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace KIRO_VASK2D {
class Vask_2D;
class Triangle2;
class ConstraintGraph2;
} // namespace KIRO_VASK2D

namespace vask_test {

/** Directed fence segments; their union need not be ordered into rings. */
typedef std::vector<std::pair<KIRO_VASK2D::Point2, KIRO_VASK2D::Point2> > Fence;

/** A closed ring through the points, in their order. */
Fence ringFence(const std::vector<KIRO_VASK2D::Point2>& vRing);
/** The alive leaves of a graph in its direction: the fence as it stands now. */
Fence graphFence(const KIRO_VASK2D::ConstraintGraph2* pCG);
void appendFence(Fence& fence, const Fence& more);

/** Winding number of the exact centroid of (a, b, c) about the fence; sets
 * bOnFence when the centroid lies on a fence segment. */
int centroidWinding(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                    const Fence& fence, bool& bOnFence);

struct ZoneCheck {
  bool ok = true;
  std::string firstError;
  std::size_t numErrors = 0;
  std::size_t numInZone = 0;
  void fail(const std::string& text);
};

/** Every triangle of the mesh lies in vZone exactly when bWanted holds for
 * its centroid's winding number; vZone holds alive triangles of dt, each
 * once. */
ZoneCheck checkZoneMembership(KIRO_VASK2D::Vask_2D& dt, const std::vector<KIRO_VASK2D::Triangle2*>& vZone,
                              const Fence& fence, const std::function<bool(int)>& bWanted);

/** The triangles a fenced zone must have, found independently of the
 * library's flood: the mesh is cut into regions along the alive leaves of
 * the graphs (only where they are mesh edges), and a region belongs to the
 * zone when a leaf has it on the wanted side (left for inside, right for
 * outside; for inside, a leaf its graph passes twice shows no side). */
std::vector<KIRO_VASK2D::Triangle2*> expectedFencedZone(KIRO_VASK2D::Vask_2D& dt,
                                                        const std::vector<KIRO_VASK2D::ConstraintGraph2*>& vGraphs,
                                                        bool bInside);

/** The same for a grown zone: the regions (cut by every alive leaf of the
 * graphs) whose triangles hold a seed strictly inside. False, leaving vOut,
 * when a seed lies on an edge or outside the mesh: then the side is not the
 * oracle's to decide. */
bool expectedGrowZone(KIRO_VASK2D::Vask_2D& dt, const std::vector<KIRO_VASK2D::ConstraintGraph2*>& vGraphs,
                      const std::vector<KIRO_VASK2D::Point2>& vSeeds, std::vector<KIRO_VASK2D::Triangle2*>& vOut);

/** Exact comparison of twice the area of the triangles with the shoelace
 * sum of the fence (twice the winding-weighted area): -1, 0, 1. */
int compareAreaWithFence(const std::vector<KIRO_VASK2D::Triangle2*>& vZone, const Fence& fence);
/** Exact comparison of the total area of the lists on the left with that
 * of the lists on the right: -1, 0, 1. */
int compareAreaSums(const std::vector<std::vector<KIRO_VASK2D::Triangle2*> >& vLeft,
                    const std::vector<std::vector<KIRO_VASK2D::Triangle2*> >& vRight);
/** Twice the exact area of the triangles in units of unit^2, rounded once. */
double exactDoubleAreaOf(const std::vector<KIRO_VASK2D::Triangle2*>& vZone, double unit = 1.0);
/** The shoelace sum of the fence (twice the winding-weighted area) in units
 * of unit^2, rounded once. */
double fenceDoubleArea(const Fence& fence, double unit = 1.0);

} // namespace vask_test
