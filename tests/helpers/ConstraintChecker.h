#pragma once
// An independent checker of constraint segments in a triangulation: the
// mesh, the split trees and the geometry of every split vertex, decided on
// the tests' exact oracle, never on the library's predicates.
#include "Point2.h"
#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace KIRO_VASK2D {
class Vask_2D;
class ConstraintGraph2;
class ConstraintSegment2;
} // namespace KIRO_VASK2D

namespace vask_test {

// Distances below are measured in ulps: the spacing of doubles at the
// largest absolute coordinate of the points involved (the segment's ends
// and the vertex), see ulpOf.

/** A crossing vertex is the crossing of two lines rounded to the nearest
 * double per coordinate, at most sqrt(2)/2 ulp from both lines of the
 * segments it split, or an end point of one piece taken for the crossing
 * because it lies next to the other: within an ulp of the largest
 * coordinate rounded up to a power of two (up to two ulps), plus the
 * rounding of that test. */
const double CROSSING_ULPS = 3.0;
/** A crossing of pieces whose ends are themselves crossing vertices sits on
 * the pieces' lines, and so up to the pieces' deviation off their roots'
 * lines: the bound from the root lines. */
const double CROSSING_ROOT_ULPS = 4.0;
/** A conforming split vertex is the midpoint moved onto its piece's line as
 * far as doubles permit. */
const double MIDPOINT_ULPS = 2.0;
/** A conforming piece may stay out of the mesh when it is too short to halve
 * (the library warns): both |dx| and |dy| at most this many ulps. */
const double SHORT_PIECE_ULPS = 64.0;

struct ConstraintCheckOptions {
  bool bEmptyCircle = true;
  /** Fast mode left edges behind: see ValidateOptions. */
  bool bTolerateNearCocircular = false;
  /** Alive constrained pieces must be edges: the mesh has area and every
   * graph was created (or applied) while it had area. */
  bool bRequireConstrainedEdges = true;
  /** Alive conforming pieces must be edges: applyConstraintsAndZones ran
   * after the last graph was made and after the mesh last gained area. */
  bool bRequireConformingEdges = false;
  /** The graphs given are all graphs: the registry's alive segments are
   * exactly their leaves. */
  bool bAllGraphs = true;
  /** Segments split at a position the caller chose (insertAndSplit,
   * splitAndRemovePrev, makeDelaunay): their split vertex may lie anywhere,
   * and the pieces below are measured against their own lines only. */
  std::set<const KIRO_VASK2D::ConstraintSegment2*> sPlacedSplits;
};

/** The dead segments of the triangulation: the difference before and after
 * a caller's split names the segments it split (with any crossings the new
 * pieces made on their way). */
std::set<const KIRO_VASK2D::ConstraintSegment2*> deadSegments(KIRO_VASK2D::Vask_2D& dt);
/** Adds to sPlaced the segments dead now that were not dead before. */
void addNewlyDead(KIRO_VASK2D::Vask_2D& dt, const std::set<const KIRO_VASK2D::ConstraintSegment2*>& sDeadBefore,
                  std::set<const KIRO_VASK2D::ConstraintSegment2*>& sPlaced);

struct ConstraintCheck {
  bool ok = true;
  std::string firstKind;  // the class of the first error, without coordinates
  std::string firstError; // kind and detail
  std::size_t numErrors = 0;
  std::size_t numTriangles = 0;
  std::size_t numRoots = 0;
  std::size_t numLeaves = 0;             // alive segments in the registry
  std::size_t numConstraintEdges = 0;    // mesh edges that are alive segments
  std::size_t numChainVertices = 0;      // inner vertices of all root chains
  std::size_t numExactSplits = 0;        // split vertices exactly on their segment
  std::size_t numCrossingVertices = 0;   // split vertices that are crossings
  std::size_t numMidpointSplits = 0;     // conforming split vertices off the line
  std::size_t numPlacedSplits = 0;
  std::size_t numEmptyCircleTests = 0;
  /** Conforming edges that later insertions left non-Delaunay: reported,
   * not a failure. */
  std::size_t numConformingNonDelaunay = 0;
  /** Conforming pieces out of the mesh because they are too short to halve. */
  std::size_t numShortPiecesMissing = 0;
  /** The worst deviations seen, in ulps: crossing vertices from the lines
   * of the segments they split and from their roots' lines; conforming
   * midpoints from their pieces' lines. */
  double maxCrossingUlps = 0.0;
  double maxCrossingRootUlps = 0.0;
  double maxMidpointUlps = 0.0;
  void fail(const std::string& kind, const std::string& detail = std::string());
  /** The counters and worst deviations on one line. */
  std::string summary() const;
};

/** Checks the triangulation and the graphs the caller made:
 * - the mesh is valid (validate()), every edge that is no alive segment is
 *   locally Delaunay, and the library's isConstraint answers (pair and
 *   triangle forms) match the registry's alive segments on every edge;
 * - every alive constrained piece is an edge, and so is every alive
 *   conforming piece when required (short ones reported);
 * - each root's alive leaves form one chain from one end to the other,
 *   monotone along the root, through vertices of the mesh;
 * - each split vertex lies exactly on the segment it split, or is a
 *   crossing vertex (on the chain of a root of another line as well) within
 *   CROSSING_ULPS of that segment's line and CROSSING_ROOT_ULPS of its
 *   root's, or is a conforming midpoint within MIDPOINT_ULPS, or the
 *   segment was split by the caller;
 * - each graph's getPolygonVertices lists its leaves in its direction, root
 *   by root, and a polygon closes. */
ConstraintCheck checkConstraints(KIRO_VASK2D::Vask_2D& dt, const std::vector<KIRO_VASK2D::ConstraintGraph2*>& vGraphs,
                                 const ConstraintCheckOptions& options = ConstraintCheckOptions());

} // namespace vask_test

/** A GoogleTest expectation that checkConstraints passes. */
#define EXPECT_CONSTRAINTS_HOLD(dt, graphs, options)                                          \
  do {                                                                                        \
    const vask_test::ConstraintCheck c_(vask_test::checkConstraints(dt, graphs, options));     \
    EXPECT_TRUE(c_.ok) << c_.firstError << " (" << c_.numErrors << ") " << c_.summary();     \
  } while (0)
