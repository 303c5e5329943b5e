#pragma once
// The pieces of the mesh fuzzer: cases of operations on one triangulation,
// their adversarial point families, their replay against a model with the
// independent checker after every step, and their text form.
#include "Point2.h"
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace vask_fuzz {

enum class OpKind {
  Insert,        // insert(Point2)
  Batch,         // insert(vector<Point2>)
  BatchHandles,  // insert(vector<Point2>, vector<Point2*>&)
  Array,         // insert(int, double*, Point2**)
  Remove,        // remove() of the live vertex at the point
  RemoveDead,    // remove() of the handle of an already removed vertex at the point
  RemoveNull,    // remove(nullptr)
  RemoveForeign, // remove() of another triangulation's vertex
  Locate,        // locate(Point2)
  Fast,          // setFastMode(arg != 0)
  Cpu,           // setNumCPU(arg)
  Constraint,    // createConstraint(segments of the point pairs); arg: bit 0 constrained, bit 1 oriented
  Apply,         // applyConstraintsAndZones()
  Split,         // the alive segment whose midpoint is nearest the point: arg 0 insertAndSplit at its
                 // midpoint, 1 at its end (refused), 2 splitAndRemovePrev at its midpoint
  SplitDead,     // insertAndSplit on the dead segment whose midpoint is nearest the point (throws)
  MakeDelaunay,  // makeDelaunay(0) of graph number arg (modulo the number of graphs)
  ZoneTriangles, // createZone(the triangles whose barycentre lies in the box of the (one or two) points)
  Peel,          // peelOffIf of zone number arg / 4 (inside zones, triangle zones, global) with a predicate on
                 // the side of the point: bit 0 y instead of x, bit 1 greater instead of less
  UnifyGrid      // unifyGrid(0) of the whole mesh
};

struct Op {
  OpKind kind = OpKind::Insert;
  std::vector<KIRO_VASK2D::Point2> vPoints; // one point for the single-point kinds
  int arg = 0;
};

struct Case {
  std::string family;
  std::uint64_t seed = 0;
  std::vector<Op> vOps;
  std::size_t numPoints() const;
};

/** The names of the point families, in a fixed order. */
const std::vector<std::string>& familyNames();
/** About n points of the named family. */
std::vector<KIRO_VASK2D::Point2> generateFamily(const std::string& family, std::size_t n, std::mt19937_64& rng);
/** A random sequence of operations on points of the family; the seed fixes it. */
/** constraintRate is the share of cases that mix constraint operations in. */
Case generateCase(const std::string& family, std::uint64_t seed, std::size_t maxPoints,
                  double constraintRate = 0.5);

/** What a replay found: ok, or the step and the first error. */
struct Outcome {
  bool ok = true;
  std::size_t step = 0;   // index of the failing operation
  std::string kind;       // error class, stable under shrinking
  std::string message;    // kind plus detail
  std::size_t numSteps = 0;
  // The constraint checker's worst deviations and counts over the run.
  double maxCrossingUlps = 0.0, maxCrossingRootUlps = 0.0, maxMidpointUlps = 0.0;
  std::size_t numCrossings = 0, numConformingNonDelaunay = 0, numShortPiecesMissing = 0;
  std::size_t numBatches = 0;         // batch operations run (vector, with handles, array)
  std::size_t numThreadedBatches = 0; // ... of which the multi-threaded inserter took a range
};

/** Replays the case on a fresh triangulation and checks the mesh and the
 * bookkeeping after every operation. Stops at the first failure; a
 * VaskException or other exception is a failure too. onStep, if given, is
 * called after each checked step; onLibrary, if given, with true before
 * each operation and false after it, so that a caller can time the library
 * apart from the checks. With bCheckLastOnly the exact checks run after the
 * last operation only (a quick look at a long case). */
Outcome runCase(const Case& c, const std::function<void(std::size_t)>& onStep = nullptr,
                const std::function<void(bool)>& onLibrary = nullptr, bool bCheckLastOnly = false);

/** The text form: comment lines start with '#', then one operation a line. */
std::string toText(const Case& c, const std::vector<std::string>& vComments);
bool fromText(const std::string& text, Case& c, std::string& error);
bool readCaseFile(const std::string& path, Case& c, std::string& error);

const char* opName(OpKind kind);
const std::vector<OpKind>& allOpKinds();

} // namespace vask_fuzz
