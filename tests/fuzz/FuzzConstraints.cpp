// The fuzzer's constraint operations: adversarial segment sets over a
// case's points, their replay (creation, application, splits, refused
// splits and removals, makeDelaunay), and the constraint checker after
// every step.
#include "fuzz/FuzzReplay.h"
#include "helpers/ConstraintChecker.h"
#include "helpers/ZoneChecker.h"
#include "helpers/ExactOracle.h"
#include <limits>
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include <algorithm>
#include <cmath>

using KIRO_VASK2D::ConstraintGraph2;
using KIRO_VASK2D::ConstraintSegment2;
using KIRO_VASK2D::Point2;
using KIRO_VASK2D::Segment2;

namespace vask_fuzz {
namespace detail {

namespace {

// A point of the pool at random.
const Point2& anyOf(const std::vector<Point2>& v, Rng& rng) { return v[uniformInt(rng, 0, static_cast<int>(v.size()) - 1)]; }
// q reflected at m: the segment from q to it runs through m (up to rounding).
Point2 beyond(const Point2& q, const Point2& m) { return Point2(m.x() + (m.x() - q.x()), m.y() + (m.y() - q.y())); }

// The convex hull of the pool, counter-clockwise (exact, collinear points dropped).
std::vector<Point2> hullOf(std::vector<Point2> v) {
  std::sort(v.begin(), v.end());
  v.erase(std::unique(v.begin(), v.end()), v.end());
  if (v.size() < 3) return v;
  std::vector<Point2> h(2 * v.size());
  std::size_t k(0);
  for (std::size_t i = 0; i < v.size(); ++i) {
    while (k >= 2 && vask_test::exactOrientation(h[k - 2], h[k - 1], v[i]) <= 0) --k;
    h[k++] = v[i];
  }
  for (std::size_t i = v.size() - 1, t = k + 1; i-- > 0;) {
    while (k >= t && vask_test::exactOrientation(h[k - 2], h[k - 1], v[i]) <= 0) --k;
    h[k++] = v[i];
  }
  h.resize(k - 1);
  return h;
}


} // namespace

Point2 along(const Point2& a, const Point2& b, double t) {
  return Point2(a.x() + t * (b.x() - a.x()), a.y() + t * (b.y() - a.y()));
}

// A set of constraint segments over the pool, as point pairs, of one of the
// adversarial kinds: random crossings, collinear overlaps, segments through
// pool points, fans through a point, near-parallel pairs a few ulps apart
// (some steep), hull edges, a star-shaped polygon in either direction, a
// grid of long segments, and bad input (NaN or infinite ends, zero length,
// nothing at all).
std::vector<Point2> constraintSet(const std::vector<Point2>& vPool, Rng& rng) {
  std::vector<Point2> v;
  auto seg = [&v](const Point2& a, const Point2& b) {
    v.push_back(a);
    v.push_back(b);
  };
  const int kind(uniformInt(rng, 0, 9));
  const int k(uniformInt(rng, 1, 6));
  if (kind == 0) { // random crossings
    for (int i = 0; i < k + 2; ++i) seg(anyOf(vPool, rng), anyOf(vPool, rng));
  } else if (kind == 1) { // collinear overlaps
    const Point2 a(anyOf(vPool, rng)), b(anyOf(vPool, rng));
    static const double T[] = {0.0, 0.25, 0.5, 0.75, 1.0, 1.25, -0.5};
    for (int i = 0; i < k + 1; ++i) seg(along(a, b, T[uniformInt(rng, 0, 6)]), along(a, b, T[uniformInt(rng, 0, 6)]));
  } else if (kind == 2) { // through pool points
    for (int i = 0; i < k; ++i) {
      const Point2 q(anyOf(vPool, rng));
      seg(q, beyond(q, anyOf(vPool, rng)));
    }
  } else if (kind == 3) { // a fan through one point
    const Point2 m(anyOf(vPool, rng));
    for (int i = 0; i < k + 1; ++i) {
      const Point2 q(anyOf(vPool, rng));
      seg(q, beyond(q, m));
    }
  } else if (kind == 4) { // near-parallel pairs, some steep
    for (int i = 0; i < k; ++i) {
      Point2 a(anyOf(vPool, rng)), b(anyOf(vPool, rng));
      if (chance(rng, 0.4)) b = Point2(nudge(a.x(), uniformInt(rng, -2, 2)), b.y());
      seg(a, b);
      seg(Point2(nudge(a.x(), uniformInt(rng, -2, 2)), nudge(a.y(), uniformInt(rng, -2, 2))),
          Point2(nudge(b.x(), uniformInt(rng, -2, 2)), nudge(b.y(), uniformInt(rng, -2, 2))));
    }
  } else if (kind == 5) { // along the hull, with a chord
    const std::vector<Point2> h(hullOf(vPool));
    if (h.size() < 2) return v;
    const int start(uniformInt(rng, 0, static_cast<int>(h.size()) - 1));
    for (int i = 0; i < std::min<int>(k + 1, static_cast<int>(h.size())); ++i)
      seg(h[(start + i) % h.size()], h[(start + i + 1) % h.size()]);
    if (chance(rng, 0.5)) seg(h[start], h[(start + h.size() / 2) % h.size()]);
  } else if (kind == 6) { // a star-shaped polygon around the pool's mean, either direction
    std::vector<Point2> vRing;
    for (int i = 0; i < k + 2; ++i) vRing.push_back(anyOf(vPool, rng));
    double cx(0), cy(0);
    for (const Point2& p : vRing) {
      cx += p.x() / vRing.size();
      cy += p.y() / vRing.size();
    }
    std::sort(vRing.begin(), vRing.end(), [cx, cy](const Point2& a, const Point2& b) {
      return std::atan2(a.y() - cy, a.x() - cx) < std::atan2(b.y() - cy, b.x() - cx);
    });
    vRing.erase(std::unique(vRing.begin(), vRing.end()), vRing.end());
    if (chance(rng, 0.5)) std::reverse(vRing.begin(), vRing.end());
    for (std::size_t i = 0; i < vRing.size(); ++i) seg(vRing[i], vRing[(i + 1) % vRing.size()]);
  } else if (kind == 7) { // long horizontal and vertical segments across the pool's box
    double x0(HUGE_VAL), x1(-HUGE_VAL), y0(HUGE_VAL), y1(-HUGE_VAL);
    for (const Point2& p : vPool) {
      x0 = std::min(x0, p.x()), x1 = std::max(x1, p.x());
      y0 = std::min(y0, p.y()), y1 = std::max(y1, p.y());
    }
    for (int i = 0; i < k; ++i) {
      const Point2 p(anyOf(vPool, rng));
      seg(Point2(x0, p.y()), Point2(x1, p.y()));
      seg(Point2(p.x(), y0), Point2(p.x(), y1));
    }
  } else if (kind == 8) { // bad input among good
    const int bad(uniformInt(rng, 0, 2));
    if (bad == 0) return v;
    seg(anyOf(vPool, rng), anyOf(vPool, rng));
    if (bad == 1) seg(badPoint(rng), anyOf(vPool, rng));
    else {
      const Point2 p(anyOf(vPool, rng));
      seg(p, p);
    }
  } else { // a chain of a few pool points, open
    Point2 a(anyOf(vPool, rng));
    for (int i = 0; i < k; ++i) {
      const Point2 b(anyOf(vPool, rng));
      seg(a, b);
      a = b;
    }
  }
  return v;
}


namespace {

// Halves first: the sum of two large coordinates may overflow.
Point2 midpointOf(const ConstraintSegment2* p) {
  return Point2(p->getSrc()->x() / 2 + p->getTrg()->x() / 2, p->getSrc()->y() / 2 + p->getTrg()->y() / 2);
}

// The segment among vCSeg whose midpoint is nearest p; ties go to the
// smaller midpoint, so that the choice does not depend on addresses.
ConstraintSegment2* nearest(const std::vector<ConstraintSegment2*>& vCSeg, const Point2& p) {
  ConstraintSegment2* pBest(nullptr);
  double best(HUGE_VAL);
  Point2 bestMid;
  for (ConstraintSegment2* pCSeg : vCSeg) {
    const Point2 m(midpointOf(pCSeg));
    const double dx((m.x() - p.x()) / 2), dy((m.y() - p.y()) / 2);
    const double d(dx * dx + dy * dy);
    if (pBest == nullptr || d < best || (d == best && m < bestMid)) {
      pBest = pCSeg;
      best = d;
      bestMid = m;
    }
  }
  return pBest;
}

struct SegmentCounts {
  std::size_t numAll = 0, numAlive = 0;
  explicit SegmentCounts(KIRO_VASK2D::Vask_2D& dt) {
    std::vector<ConstraintSegment2*> v;
    dt.getAliveAndDeadConstraintSegments(v);
    numAll = v.size();
    v.clear();
    dt.getAliveConstraintSegments(v);
    numAlive = v.size();
  }
  bool operator==(const SegmentCounts& o) const { return numAll == o.numAll && numAlive == o.numAlive; }
};

void createConstraint(Replay& r, const Op& op) {
  std::vector<Segment2> vSeg;
  for (std::size_t i = 0; i + 1 < op.vPoints.size(); i += 2) vSeg.emplace_back(op.vPoints[i], op.vPoints[i + 1]);
  const KIRO_VASK2D::ConstraintInsertionStrategy cis((op.arg & 1) ? KIRO_VASK2D::CIS_CONSTRAINED_DELAUNAY
                                                                  : KIRO_VASK2D::CIS_CONFORMING_DELAUNAY);
  const Snapshot before(snapshot(r.dt));
  ConstraintGraph2* pCG(r.dt.createConstraint(vSeg, cis, (op.arg & 2) != 0));
  if (op.vPoints.empty()) {
    if (pCG != nullptr) r.fail("createConstraint of no segment returned a graph");
    const Snapshot after(snapshot(r.dt));
    if (after.vT != before.vT || after.vV != before.vV) r.fail("createConstraint of no segment changed the mesh");
    return;
  }
  if (pCG != nullptr) r.vGraphs.push_back(pCG);
  // A segment with a non-finite end never reaches the vertices.
  for (std::size_t i = 0; i + 1 < op.vPoints.size(); i += 2)
    if (isFinite(op.vPoints[i]) && isFinite(op.vPoints[i + 1])) {
      r.mLive.insert(std::make_pair(keyOf(op.vPoints[i]), static_cast<Point2*>(nullptr)));
      r.mLive.insert(std::make_pair(keyOf(op.vPoints[i + 1]), static_cast<Point2*>(nullptr)));
    }
  if (!r.dt.hasArea()) r.bPending = true;
  r.bConformingDirty = true;
}

void split(Replay& r, const Op& op) {
  if (!r.dt.hasArea()) return;
  std::vector<ConstraintSegment2*> vAlive;
  r.dt.getAliveConstraintSegments(vAlive);
  ConstraintSegment2* pCSeg(nearest(vAlive, op.vPoints[0]));
  if (pCSeg == nullptr) return;
  const Point2 pos(op.arg == 1 ? *pCSeg->getSrc() : midpointOf(pCSeg));
  const Snapshot before(snapshot(r.dt));
  const SegmentCounts countsBefore(r.dt);
  const std::set<const ConstraintSegment2*> sDeadBefore(vask_test::deadSegments(r.dt));
  Point2* pVtx(nullptr);
  if (op.arg == 2) {
    if (pCSeg->splitAndRemovePrev(pos)) {
      ConstraintSegment2 *pKid0(nullptr), *pKid1(nullptr);
      pCSeg->getChildrenAndSplitPoint(pKid0, pKid1, pVtx);
    }
  } else {
    pVtx = pCSeg->insertAndSplit(pos);
  }
  r.bConformingDirty = true;
  if (pVtx == nullptr) {
    // Refused: the position is an end of the segment, or its foot is not
    // strictly between the ends (a halving that underflowed).
    const Point2 &a(*pCSeg->getSrc()), &b(*pCSeg->getTrg());
    if (pos != a && pos != b && vask_test::exactDotSign(a, pos, a, b) > 0 && vask_test::exactDotSign(pos, b, a, b) > 0)
      r.fail("a split between the ends was refused");
    const Snapshot after(snapshot(r.dt));
    if (after.vT != before.vT || after.vV != before.vV || !(SegmentCounts(r.dt) == countsBefore) ||
        !pCSeg->isAlive())
      r.fail("a refused split changed something");
    return;
  }
  if (pCSeg->isAlive()) r.fail("a split segment is still alive");
  if (!(*pVtx == pos)) r.fail("the split vertex is not at the position asked for");
  if (op.arg == 1) r.fail("a split at an end of the segment was not refused");
  vask_test::addNewlyDead(r.dt, sDeadBefore, r.sPlaced);
}

void splitDead(Replay& r, const Op& op) {
  std::vector<ConstraintSegment2*> vAll, vDead;
  r.dt.getAliveAndDeadConstraintSegments(vAll);
  for (ConstraintSegment2* p : vAll)
    if (!p->isAlive()) vDead.push_back(p);
  ConstraintSegment2* pCSeg(nearest(vDead, op.vPoints[0]));
  if (pCSeg == nullptr) return;
  const Snapshot before(snapshot(r.dt));
  const SegmentCounts countsBefore(r.dt);
  bool bThrown(false);
  try {
    pCSeg->insertAndSplit(midpointOf(pCSeg));
  } catch (const KIRO_VASK2D::VaskException&) {
    bThrown = true;
  }
  if (!bThrown) r.fail("splitting a dead segment did not throw");
  const Snapshot after(snapshot(r.dt));
  if (after.vT != before.vT || after.vV != before.vV || !(SegmentCounts(r.dt) == countsBefore))
    r.fail("splitting a dead segment changed something");
}

void makeDelaunay(Replay& r, const Op& op) {
  if (r.vGraphs.empty()) return;
  ConstraintGraph2* pCG(r.vGraphs[static_cast<std::size_t>(op.arg) % r.vGraphs.size()]);
  const std::set<const ConstraintSegment2*> sDeadBefore(vask_test::deadSegments(r.dt));
  pCG->makeDelaunay(0.0);
  // Its splits sit where it chose: at midpoints, foot points or nearby vertices.
  vask_test::addNewlyDead(r.dt, sDeadBefore, r.sPlaced);
  r.bConformingDirty = true;
}

} // namespace

void applyConstraintOp(Replay& r, const Op& op) {
  switch (op.kind) {
  case OpKind::Constraint: createConstraint(r, op); break;
  case OpKind::Apply:
    r.dt.applyConstraintsAndZones();
    // A loop cut at its limits leaves conforming pieces out by design.
    if (r.dt.hasArea()) {
      r.bPending = false;
      r.bConformingDirty = r.dt.getImpl()->hasConstraintMgr() && r.dt.getImpl()->getConstraintMgr()->wasLastApplyCut();
    }
    break;
  case OpKind::Split: split(r, op); break;
  case OpKind::SplitDead: splitDead(r, op); break;
  case OpKind::MakeDelaunay: makeDelaunay(r, op); break;
  case OpKind::ZoneTriangles: zoneTriangles(r, op); break;
  case OpKind::Peel: peel(r, op); break;
  case OpKind::UnifyGrid: unifyGrid(r); break;
  default: break;
  }
  adoptNewVertices(r);
}

void removeConstraintVertex(Replay& r, Point2* pVtx) {
  const Snapshot before(snapshot(r.dt));
  r.dt.remove(pVtx);
  const Snapshot after(snapshot(r.dt));
  if (after.vT != before.vT || after.vV != before.vV) r.fail("removal of a constraint vertex was not refused");
}

void adoptNewVertices(Replay& r) {
  std::vector<Point2*> vV;
  r.dt.getVertexPointers(vV);
  for (Point2* p : vV) {
    if (p == nullptr || r.mLive.count(keyOf(*p))) continue;
    if (!r.dt.isConstraint(p)) r.fail("a constraint operation made a vertex on no constraint", str(*p));
    r.mLive[keyOf(*p)] = p;
  }
}

void checkStep(Replay& r) {
  if (!r.vGraphs.empty() && !r.dt.hasArea()) r.bPending = true;
  vask_test::ConstraintCheckOptions options;
  options.bEmptyCircle = !r.bFastLeftovers;
  options.bRequireConstrainedEdges = !r.bPending;
  options.bRequireConformingEdges = !r.bPending && !r.bConformingDirty;
  options.sPlacedSplits = r.sPlaced;
  const vask_test::ConstraintCheck c(vask_test::checkConstraints(r.dt, r.vGraphs, options));
  if (!c.ok) r.fail(c.firstKind, c.firstError + "; " + std::to_string(c.numErrors) + " errors");
  Outcome& o(r.outcome);
  o.maxCrossingUlps = std::max(o.maxCrossingUlps, c.maxCrossingUlps);
  o.maxCrossingRootUlps = std::max(o.maxCrossingRootUlps, c.maxCrossingRootUlps);
  o.maxMidpointUlps = std::max(o.maxMidpointUlps, c.maxMidpointUlps);
  o.numCrossings = std::max(o.numCrossings, c.numCrossingVertices);
  o.numConformingNonDelaunay = std::max(o.numConformingNonDelaunay, c.numConformingNonDelaunay);
  o.numShortPiecesMissing = std::max(o.numShortPiecesMissing, c.numShortPiecesMissing);
  if (c.ok) checkZones(r);
}

} // namespace detail
} // namespace vask_fuzz
