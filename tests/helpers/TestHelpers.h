#pragma once
// Shared tools of the tests: generators of adversarial point sets and an
// independent validator of triangulations.
#include "Point2.h"
#include "Triangle2.h"
#include <array>
#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace KIRO_VASK2D {
class Vask_2D;
}

namespace vask_test {

/** What f prints on standard output (GoogleTest's capture). */
std::string captured(const std::function<void()>& f);
/** Whether out holds the warning text under the tag, in the library's format. */
bool says(const std::string& out, const std::string& tag, const std::string& text);

/** Uniform random points in [0,1)^2 from a fixed seed. */
std::vector<KIRO_VASK2D::Point2> randomPoints(std::size_t n, unsigned seed);
/** A side x side grid with unit spacing from (0,0): every cell is cocircular. */
std::vector<KIRO_VASK2D::Point2> gridPoints(int side);
/** Points on a circle of radius r around (cx, cy), coordinates rounded. */
std::vector<KIRO_VASK2D::Point2> circlePoints(std::size_t n, double cx, double cy, double r);

/** Sign of the orientation of (a, b, c) in exact rational arithmetic:
 * +1 counter-clockwise, -1 clockwise, 0 collinear. */
int exactOrientation(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c);
/** +1 when d lies strictly inside the circle through the counter-clockwise
 * a, b, c, 0 on it, -1 outside; exact. */
int exactInCircle(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                  const KIRO_VASK2D::Point2& d);

struct Validation {
  bool ok = true;
  std::string firstError;
  std::size_t numErrors = 0;
  std::size_t numTriangles = 0;
  std::size_t numVertices = 0;     // distinct corners of the triangles
  std::size_t numHullVertices = 0; // corners on edges without a neighbour
  std::size_t numEmptyCircleTests = 0;
  void fail(const std::string& text);
};

/** Says whether the edge between two vertices is a constraint: such an
 * edge is exempt from the empty-circle test. */
typedef std::function<bool(const KIRO_VASK2D::Point2*, const KIRO_VASK2D::Point2*)> EdgePredicate;

/** What validate() checks beyond topology, orientation and tiling. */
struct ValidateOptions {
  bool bEmptyCircle = true;
  /** Test at most this many inner edges, evenly spread. */
  std::size_t maxEmptyCircleTests = static_cast<std::size_t>(-1);
  /** Count a point inside a neighbour's circumcircle only when it lies
   * inside by more than double rounding can hide: edges that fast mode's
   * flip loop keeps undecided pass (only until a later change builds on
   * them). */
  bool bTolerateNearCocircular = false;
  /** Edges exempt from the empty-circle test; none when empty. */
  EdgePredicate isConstraint;
};

/** Checks, independently of the library's own check: corners distinct and
 * counter-clockwise (exact); neighbours symmetric over the same two corners;
 * triangles = 2 n - 2 - h; each vertex of vVertices a corner and pointing at
 * a triangle that has it; the boundary a single convex loop whose area
 * equals the area of the convex hull of vVertices and the sum of the
 * triangle areas (exact); the empty-circle property on every inner edge, or
 * on an evenly spread sample of at most maxEmptyCircleTests edges. */
Validation validate(const std::vector<KIRO_VASK2D::Triangle2*>& vT, const std::vector<KIRO_VASK2D::Point2*>& vVertices,
                    bool bEmptyCircle, std::size_t maxEmptyCircleTests = static_cast<std::size_t>(-1));
Validation validate(KIRO_VASK2D::Vask_2D& dt, bool bEmptyCircle = true,
                    std::size_t maxEmptyCircleTests = static_cast<std::size_t>(-1));
/** The same checks under options. Without triangles the vertices must be
 * fewer than three or all collinear (exact): the state in which points wait
 * for one off their line. */
Validation validate(const std::vector<KIRO_VASK2D::Triangle2*>& vT, const std::vector<KIRO_VASK2D::Point2*>& vVertices,
                    const ValidateOptions& options);
Validation validate(KIRO_VASK2D::Vask_2D& dt, const ValidateOptions& options);

/** The triangles as coordinate triples, each rotated to start at its
 * smallest corner, sorted: a canonical form for comparing meshes. */
typedef std::array<double, 6> CanonicalTriangle;
/** One triangle, rotated to start at its smallest corner (x, then y). */
CanonicalTriangle canonicalTriangle(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b,
                                    const KIRO_VASK2D::Point2& c);
std::vector<CanonicalTriangle> canonicalTriangles(KIRO_VASK2D::Vask_2D& dt);

} // namespace vask_test

/** A GoogleTest expectation that the whole triangulation dt passes validate(),
 * with the first error and the error count as its message. */
#define EXPECT_VALID(dt)                                                   \
  do {                                                                     \
    const vask_test::Validation v_(vask_test::validate(dt));               \
    EXPECT_TRUE(v_.ok) << v_.firstError << " (" << v_.numErrors << ")";    \
  } while (0)
