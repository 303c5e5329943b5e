#pragma once
// The fuzzer's internals shared by its units: random helpers, point keys,
// the state of a replay and mesh snapshots.
#include "Vask_2D.h"
#include "fuzz/FuzzCase.h"
#include "helpers/TestHelpers.h"
#include <cstdio>
#include <random>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vask_fuzz {
namespace detail {

typedef std::mt19937_64 Rng;

inline double uniform(Rng& rng, double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
inline int uniformInt(Rng& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
inline bool chance(Rng& rng, double p) { return uniform(rng, 0.0, 1.0) < p; }

/** v moved by k ulps. */
inline double nudge(double v, int k) {
  for (; k > 0; --k) v = std::nextafter(v, std::numeric_limits<double>::infinity());
  for (; k < 0; ++k) v = std::nextafter(v, -std::numeric_limits<double>::infinity());
  return v;
}

/** A point with a NaN or infinite coordinate. */
inline KIRO_VASK2D::Point2 badPoint(Rng& rng) {
  const double bad[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                        -std::numeric_limits<double>::infinity()};
  const double b(bad[uniformInt(rng, 0, 2)]);
  const int k(uniformInt(rng, 0, 2));
  return KIRO_VASK2D::Point2(k == 1 ? 0.5 : b, k == 0 ? 0.5 : b);
}

typedef std::pair<double, double> Key;
/** Equal points share one key; -0 and +0 are equal. */
inline Key keyOf(const KIRO_VASK2D::Point2& p) { return Key(p.x() + 0.0, p.y() + 0.0); }
inline bool isFinite(const KIRO_VASK2D::Point2& p) { return std::isfinite(p.x()) && std::isfinite(p.y()); }

// The state of the replay: the triangulation, a foreign one, and the model.
struct Replay {
  KIRO_VASK2D::Vask_2D dt;
  KIRO_VASK2D::Vask_2D foreign;
  KIRO_VASK2D::Point2* pForeign = nullptr;
  std::map<Key, KIRO_VASK2D::Point2*> mLive; // a null handle: the vertex exists, its handle is not known yet
  std::map<Key, KIRO_VASK2D::Point2*> mDead;
  bool bFast = false;
  // Fast mode inserted something. Its flip loops keep an edge whose
  // in-circle test doubles cannot decide, and later insertions and
  // removals, which assume a Delaunay mesh, may then leave edges that are
  // clearly not Delaunay: the mesh must stay valid, but the empty-circle
  // test is off until the mesh is empty again.
  bool bFastLeftovers = false;
  // Constraints: the graphs made; whether some segment may be out of the
  // mesh because it was made (or the mesh lost its area) without area and
  // nothing applied it since; whether conforming pieces may wait for
  // applyConstraintsAndZones; the segments split where the case chose.
  std::vector<KIRO_VASK2D::ConstraintGraph2*> vGraphs;
  bool bPending = false;
  bool bConformingDirty = false;
  std::set<const KIRO_VASK2D::ConstraintSegment2*> sPlaced;
  // Zones made once the mesh has area and kept through every later step:
  // inside and outside of each oriented graph (null for the others, by the
  // graph's position), and the whole mesh.
  std::vector<KIRO_VASK2D::Zone2*> vInsideZones, vOutsideZones;
  KIRO_VASK2D::Zone2* pGlobalZone = nullptr;
  std::vector<KIRO_VASK2D::Zone2*> vTriangleZones; // made of triangle lists (or peeled), grown from their seeds
  std::vector<KIRO_VASK2D::Zone2*> vResultZones;   // set operations over the inside, outside and global zones
  Outcome outcome;

  void fail(const std::string& kind, const std::string& detail = std::string()) {
    if (!outcome.ok) return;
    outcome.ok = false;
    outcome.kind = kind;
    outcome.message = detail.empty() ? kind : kind + " (" + detail + ")";
    for (char& ch : outcome.message)
      if (ch == '\n' || ch == '\r') ch = ' ';
    while (outcome.message.find("  ") != std::string::npos) outcome.message.erase(outcome.message.find("  "), 1);
  }
};

inline std::string str(const KIRO_VASK2D::Point2& p) {
  char buf[80];
  std::snprintf(buf, sizeof buf, "%.17g %.17g", p.x(), p.y());
  return buf;
}

struct Snapshot {
  std::vector<vask_test::CanonicalTriangle> vT;
  std::vector<KIRO_VASK2D::Point2*> vV;
};
inline Snapshot snapshot(KIRO_VASK2D::Vask_2D& dt) {
  Snapshot s;
  s.vT = vask_test::canonicalTriangles(dt);
  dt.getVertexPointers(s.vV);
  std::sort(s.vV.begin(), s.vV.end());
  return s;
}


/** A set of constraint segments over the pool, as pairs of end points. */
std::vector<KIRO_VASK2D::Point2> constraintSet(const std::vector<KIRO_VASK2D::Point2>& vPool, Rng& rng);
/** a + t (b - a), rounded: on the line exactly only when nothing rounds. */
KIRO_VASK2D::Point2 along(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, double t);
/** Replays a constraint or zone operation (Constraint, Apply, Split, SplitDead, MakeDelaunay, ZoneTriangles, Peel, UnifyGrid). */
void applyConstraintOp(Replay& r, const Op& op);
/** Removal of a vertex that is or was an end of a constraint segment: refused, nothing changes. */
void removeConstraintVertex(Replay& r, KIRO_VASK2D::Point2* pVtx);
/** After a constraint operation: vertices the library made are known to the model, and each is a constraint vertex. */
void adoptNewVertices(Replay& r);
/** A zone of the triangles in the box of the op's points. */
void zoneTriangles(Replay& r, const Op& op);
/** peelOffIf of a zone with a predicate on the side of the op's point. */
void peel(Replay& r, const Op& op);
/** unifyGrid(0) of the whole mesh. */
void unifyGrid(Replay& r);
/** The zones against the independent region oracle. */
void checkZones(Replay& r);
/** The whole check after a step: the mesh, the constraints and the zones. */
void checkStep(Replay& r);

} // namespace detail
} // namespace vask_fuzz
