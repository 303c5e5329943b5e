#include "helpers/ConstraintChecker.h"
#include "Vask_2D.h"
#include "helpers/ExactOracle.h"
#include "helpers/TestHelpers.h"
#include "core/Dt2.h"
#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

using KIRO_VASK2D::ConstraintGraph2;
using KIRO_VASK2D::ConstraintSegment2;
using KIRO_VASK2D::Point2;
using KIRO_VASK2D::Triangle2;

namespace vask_test {

void ConstraintCheck::fail(const std::string& kind, const std::string& detail) {
  if (ok) {
    firstKind = kind;
    firstError = detail.empty() ? kind : kind + ": " + detail;
  }
  ok = false;
  ++numErrors;
}

std::string ConstraintCheck::summary() const {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "triangles %zu, roots %zu, leaves %zu, constraint edges %zu, chain vertices %zu, exact splits %zu, "
                "crossings %zu (worst %.3g ulps from the split segment, %.3g from the roots), midpoints %zu (worst "
                "%.3g ulps), placed %zu, conforming edges not Delaunay %zu, short pieces missing %zu",
                numTriangles, numRoots, numLeaves, numConstraintEdges, numChainVertices, numExactSplits,
                numCrossingVertices, maxCrossingUlps, maxCrossingRootUlps, numMidpointSplits, maxMidpointUlps,
                numPlacedSplits, numConformingNonDelaunay, numShortPiecesMissing);
  return buf;
}

namespace {

typedef std::pair<const Point2*, const Point2*> Pair;
Pair ordered(const Point2* a, const Point2* b) { return a < b ? Pair(a, b) : Pair(b, a); }
struct PairHash {
  std::size_t operator()(const Pair& p) const {
    return std::hash<const void*>()(p.first) * 31u + std::hash<const void*>()(p.second);
  }
};
typedef std::unordered_map<Pair, std::pair<const Triangle2*, int>, PairHash> EdgeMap;

std::string str(const Point2& p) {
  char buf[80];
  std::snprintf(buf, sizeof buf, "(%.17g, %.17g)", p.x(), p.y());
  return buf;
}

double maxAbs(std::initializer_list<const Point2*> l) {
  double m(0.0);
  for (const Point2* p : l) m = std::max(m, p->getMaxAbs());
  return m;
}

// Distance of v from the line of a and b in ulps of the largest coordinate
// of the three.
double deviationUlps(const Point2& a, const Point2& b, const Point2& v) {
  return lineDeviation(a, b, v, ulpOf(maxAbs({&a, &b, &v})));
}

// The state of one check.
struct Checker {
  KIRO_VASK2D::Vask_2D& dt;
  const ConstraintCheckOptions& options;
  ConstraintCheck result;
  EdgeMap mEdges;
  std::unordered_set<Pair, PairHash> sAlive;
  std::unordered_set<const Point2*> sVertices;
  std::vector<const ConstraintSegment2*> vRoots;
  // The roots whose chains pass through (or end at) a vertex.
  std::unordered_map<const Point2*, std::vector<const ConstraintSegment2*> > mRootsAt;
  std::unordered_set<Pair, PairHash> sGraphLeaves;

  Checker(KIRO_VASK2D::Vask_2D& dt_, const ConstraintCheckOptions& options_) : dt(dt_), options(options_) {}

  void checkMesh() {
    std::vector<ConstraintSegment2*> vAlive;
    dt.getAliveConstraintSegments(vAlive);
    result.numLeaves = vAlive.size();
    for (const ConstraintSegment2* p : vAlive) {
      if (!p->isAlive()) result.fail("getAliveConstraintSegments lists a segment that is not alive");
      sAlive.insert(ordered(p->getSrc(), p->getTrg()));
    }
    ValidateOptions vo;
    vo.bEmptyCircle = options.bEmptyCircle;
    vo.bTolerateNearCocircular = options.bTolerateNearCocircular;
    vo.isConstraint = [this](const Point2* a, const Point2* b) { return sAlive.count(ordered(a, b)) != 0; };
    const Validation v(validate(dt, vo));
    result.numEmptyCircleTests = v.numEmptyCircleTests;
    if (!v.ok) result.fail("mesh: " + v.firstError, std::to_string(v.numErrors) + " errors");
    std::vector<Triangle2*> vT;
    dt.getTrianglePointers(vT);
    result.numTriangles = vT.size();
    std::vector<Point2*> vV;
    dt.getVertexPointers(vV);
    sVertices.insert(vV.begin(), vV.end());
    for (Triangle2* pT : vT)
      for (int i = 0; i < 3; ++i) {
        Point2* a(pT->getCorner((i + 1) % 3));
        Point2* b(pT->getCorner((i + 2) % 3));
        const bool bAlive(sAlive.count(ordered(a, b)) != 0);
        if (dt.isConstraint(a, b) != bAlive || dt.isConstraint(b, a) != bAlive || dt.isConstraint(pT, i) != bAlive)
          result.fail("isConstraint disagrees with the alive segments on an edge", str(*a) + " " + str(*b));
        if (mEdges.insert(std::make_pair(ordered(a, b), std::make_pair(pT, i))).second && bAlive)
          ++result.numConstraintEdges;
      }
  }

  // Every alive piece is an edge (conforming ones when required, short
  // ones excepted); conforming edges are counted when not Delaunay.
  void checkPieces() {
    std::vector<ConstraintSegment2*> vAlive;
    dt.getAliveConstraintSegments(vAlive);
    // The library halves a conforming piece while it is wider than an ulp
    // of the largest coordinate its predicates were prepared for, which
    // can exceed every vertex (the first insertions' bounding box).
    double maxCoord(dt.getImpl()->getKiroTest().getMaxCoord());
    for (const Point2* p : sVertices) maxCoord = std::max(maxCoord, p->getMaxAbs());
    const double shortLimit(SHORT_PIECE_ULPS * ulpOf(maxCoord));
    for (const ConstraintSegment2* p : vAlive) {
      const bool bConforming(p->getCIS() == KIRO_VASK2D::CIS_CONFORMING_DELAUNAY);
      const EdgeMap::const_iterator it(mEdges.find(ordered(p->getSrc(), p->getTrg())));
      if (it == mEdges.end()) {
        if (!dt.hasArea()) continue;
        if (!bConforming && options.bRequireConstrainedEdges)
          result.fail("alive constrained segment is no edge", str(*p->getSrc()) + " " + str(*p->getTrg()));
        if (bConforming && options.bRequireConformingEdges) {
          if (std::fabs(p->getSrc()->x() - p->getTrg()->x()) <= shortLimit &&
              std::fabs(p->getSrc()->y() - p->getTrg()->y()) <= shortLimit)
            ++result.numShortPiecesMissing;
          else
            result.fail("alive conforming segment is no edge after applying", str(*p->getSrc()) + " " +
                        str(*p->getTrg()));
        }
        continue;
      }
      const Triangle2* pT(it->second.first);
      const int i(it->second.second);
      const Triangle2* pN(pT->getOppositeTriangle(i));
      if (!bConforming || pN == nullptr) continue;
      const Point2* pFar(nullptr);
      for (int j = 0; j < 3; ++j)
        if (pN->getOppositeTriangle(j) == pT) pFar = pN->getCorner(j);
      if (pFar != nullptr &&
          exactInCircle(*pT->getCorner(0), *pT->getCorner(1), *pT->getCorner(2), *pFar) > 0)
        ++result.numConformingNonDelaunay;
    }
  }

  // Each root's leaves: one chain from getSrc() to getTrg(), strictly
  // forward along the root, through live vertices.
  void checkChain(const ConstraintSegment2* pRoot) {
    std::vector<ConstraintSegment2*> vLeaves;
    if (pRoot->isAlive()) vLeaves.push_back(const_cast<ConstraintSegment2*>(pRoot));
    else pRoot->getChildrenRec(vLeaves);
    std::multimap<const Point2*, const ConstraintSegment2*> mAt;
    for (const ConstraintSegment2* p : vLeaves) {
      if (!p->isAlive()) result.fail("getChildrenRec returned a leaf that is not alive");
      sGraphLeaves.insert(ordered(p->getSrc(), p->getTrg()));
      mAt.insert(std::make_pair(p->getSrc(), p));
      mAt.insert(std::make_pair(p->getTrg(), p));
    }
    const Point2* a(pRoot->getSrc());
    const Point2* b(pRoot->getTrg());
    std::unordered_set<const ConstraintSegment2*> sUsed;
    const Point2* pAt(a);
    mRootsAt[a].push_back(pRoot);
    while (pAt != b) {
      const ConstraintSegment2* pNext(nullptr);
      int numOpen(0);
      for (auto range = mAt.equal_range(pAt); range.first != range.second; ++range.first)
        if (!sUsed.count(range.first->second)) {
          pNext = range.first->second;
          ++numOpen;
        }
      if (numOpen != 1) {
        result.fail(numOpen == 0 ? "chain of a root breaks off" : "chain of a root branches",
                    "at " + str(*pAt) + " on the root " + str(*a) + " " + str(*b));
        return;
      }
      sUsed.insert(pNext);
      const Point2* pTo(pNext->getSrc() == pAt ? pNext->getTrg() : pNext->getSrc());
      // Forward, or back by no more than the crossing bound: a piece shared
      // by two roots of nearly one line advances along the root that split
      // it, and along the other it may step back within rounding (a vertex
      // a subnormal beside that root's end).
      const double stepLimit(CROSSING_ULPS * ulpOf(maxAbs({a, b, pAt, pTo})));
      const bool bTinyStep(std::fabs(pTo->x() - pAt->x()) <= stepLimit && std::fabs(pTo->y() - pAt->y()) <= stepLimit);
      if (exactDotSign(*a, *b, *pAt, *pTo) <= 0 && !(bTinyStep && *pTo != *pAt))
        result.fail("chain of a root runs backwards", "at " + str(*pTo) + " on the root " + str(*a) + " " + str(*b));
      pAt = pTo;
      mRootsAt[pAt].push_back(pRoot);
      if (pAt != b) ++result.numChainVertices;
      if (dt.hasArea() && !sVertices.count(pAt)) result.fail("chain vertex is no vertex of the mesh", str(*pAt));
      if (!dt.isConstraint(const_cast<Point2*>(pAt))) result.fail("chain vertex not known as a constraint vertex");
    }
    if (sUsed.size() != vLeaves.size()) result.fail("leaves of a root outside its chain");
  }

  // v is on the chain of another root: a crossing, or, where the roots
  // overlap on one line, a vertex of the other chain that stands off the
  // line by rounding (a conforming midpoint, a crossing of a third root).
  bool isCrossing(const Point2* v, const ConstraintSegment2* pRoot) const {
    const auto it(mRootsAt.find(v));
    if (it == mRootsAt.end()) return false;
    for (const ConstraintSegment2* pOther : it->second)
      if (pOther != pRoot) return true;
    return false;
  }

  // The split vertices of the tree below pRoot, top down. A piece is
  // "placed" once an end of it is a vertex the caller placed or a
  // conforming midpoint: from there on its split vertices are measured
  // against their pieces only.
  void checkSplits(const ConstraintSegment2* pRoot) {
    struct Item {
      const ConstraintSegment2* pCSeg;
      bool bPlaced;
    };
    std::vector<Item> vStack{{pRoot, false}};
    std::unordered_set<const ConstraintSegment2*> sSeen;
    while (!vStack.empty()) {
      const Item item(vStack.back());
      vStack.pop_back();
      const ConstraintSegment2* s(item.pCSeg);
      if (s->isAlive() || !sSeen.insert(s).second) continue;
      ConstraintSegment2 *pKid0(nullptr), *pKid1(nullptr);
      Point2* v(nullptr);
      s->getChildrenAndSplitPoint(pKid0, pKid1, v);
      if (pKid0 == nullptr || pKid1 == nullptr || v == nullptr) {
        // A suspended segment has no children: only inside an operation.
        result.fail("a segment that is not alive has no children");
        continue;
      }
      const Point2 &p(*s->getSrc()), &q(*s->getTrg());
      bool bPlacedBelow(item.bPlaced || options.sPlacedSplits.count(s) != 0);
      if (exactOrientationSign(p, q, *v) == 0) {
        ++result.numExactSplits;
        if (exactDotSign(p, *v, *v, q) <= 0) result.fail("split vertex on the line but outside the segment", str(*v));
      } else if (options.sPlacedSplits.count(s)) {
        ++result.numPlacedSplits;
      } else if (isCrossing(v, pRoot)) {
        ++result.numCrossingVertices;
        const double d(deviationUlps(p, q, *v));
        result.maxCrossingUlps = std::max(result.maxCrossingUlps, d);
        if (d > CROSSING_ULPS) result.fail("crossing vertex too far off the segment it split", str(*v));
        bPlacedBelow = bPlacedBelow || s->getCIS() == KIRO_VASK2D::CIS_CONFORMING_DELAUNAY;
      } else if (s->getCIS() == KIRO_VASK2D::CIS_CONFORMING_DELAUNAY) {
        ++result.numMidpointSplits;
        const double d(deviationUlps(p, q, *v));
        result.maxMidpointUlps = std::max(result.maxMidpointUlps, d);
        if (d > MIDPOINT_ULPS) result.fail("conforming split vertex too far off its segment", str(*v));
        bPlacedBelow = true;
      } else {
        result.fail("split vertex neither on its segment nor a crossing", str(*v) + " splits " + str(p) + " " +
                    str(q));
      }
      if (!item.bPlaced && !options.sPlacedSplits.count(s)) {
        const double d(deviationUlps(*pRoot->getSrc(), *pRoot->getTrg(), *v));
        if (d > 0.0 && s->getCIS() == KIRO_VASK2D::CIS_CONSTRAINED_DELAUNAY) {
          result.maxCrossingRootUlps = std::max(result.maxCrossingRootUlps, d);
          if (d > CROSSING_ROOT_ULPS)
            result.fail("chain vertex too far off its root's line", str(*v) + " on the root " +
                        str(*pRoot->getSrc()) + " " + str(*pRoot->getTrg()));
        }
      }
      vStack.push_back({pKid0, bPlacedBelow});
      vStack.push_back({pKid1, bPlacedBelow});
    }
  }

  // getPolygonVertices: pairs of alive leaves of this graph in its
  // direction, each root's chain in turn; a polygon closes.
  void checkGraph(const ConstraintGraph2* pCG, const std::vector<ConstraintSegment2*>& vGraphRoots) {
    std::vector<Point2*> vPairs;
    pCG->getPolygonVertices(vPairs);
    if (vPairs.size() % 2 != 0) {
      result.fail("getPolygonVertices returned an odd count");
      return;
    }
    // The graph keeps one direction per segment: a leaf that two of its
    // roots share (collinear overlaps, or near-concurrent crossings that
    // round to the same two vertices) may run against one of them.
    std::vector<ConstraintSegment2*> vAllLeaves;
    for (ConstraintSegment2* pRoot : vGraphRoots) {
      if (pRoot->isAlive()) vAllLeaves.push_back(pRoot);
      else pRoot->getChildrenRec(vAllLeaves);
    }
    const std::size_t numLeaves(vAllLeaves.size());
    std::sort(vAllLeaves.begin(), vAllLeaves.end());
    const bool bShared(std::adjacent_find(vAllLeaves.begin(), vAllLeaves.end()) != vAllLeaves.end());
    for (std::size_t i = 0; i < vPairs.size(); i += 2) {
      Point2 *s(vPairs[i]), *e(vPairs[i + 1]);
      ConstraintSegment2* pLeaf(dt.getConstraintSegment(s, e));
      if (pLeaf == nullptr || !pCG->isConstraint(s, e)) {
        result.fail("getPolygonVertices lists a pair that is no alive segment of the graph");
        return;
      }
      if (pCG->isOriented() && (pCG->isReverse(pLeaf) ? pLeaf->getTrg() : pLeaf->getSrc()) != s)
        result.fail("getPolygonVertices lists a leaf against the graph's direction");
    }
    // With repeated roots the graph's own order is not visible from outside.
    if (vPairs.size() / 2 != numLeaves || bShared) return;
    std::size_t k(0);
    for (ConstraintSegment2* pRoot : vGraphRoots) {
      Point2* pStart(pCG->isReverse(pRoot) ? pRoot->getTrg() : pRoot->getSrc());
      Point2* pEnd(pCG->isReverse(pRoot) ? pRoot->getSrc() : pRoot->getTrg());
      Point2* pAt(pStart);
      while (pAt != pEnd && k < vPairs.size()) {
        if (vPairs[k] != pAt) {
          result.fail("getPolygonVertices does not run root by root in the graph's direction",
                      "pair " + std::to_string(k / 2) + " starts at " + str(*vPairs[k]) + ", the chain of the root " +
                          str(*pStart) + " " + str(*pEnd) + " is at " + str(*pAt));
          return;
        }
        pAt = vPairs[k + 1];
        k += 2;
      }
      if (pAt != pEnd) result.fail("getPolygonVertices ends inside a root's chain");
    }
    // A polygon: the pairs, taken without direction, form one closed walk:
    // every vertex has an even number of sides and all are connected. (An
    // oriented graph keeps the direction the user gave each side, and a ring
    // that touches itself - a vertex exactly on another side splits it -
    // passes a vertex twice.)
    if (pCG->isPolygon() && !vPairs.empty()) {
      std::unordered_map<const Point2*, std::vector<const Point2*> > mAdj;
      for (std::size_t i = 0; i < vPairs.size(); i += 2) {
        mAdj[vPairs[i]].push_back(vPairs[i + 1]);
        mAdj[vPairs[i + 1]].push_back(vPairs[i]);
      }
      bool bEven(true);
      for (const auto& entry : mAdj)
        if (entry.second.size() % 2 != 0) bEven = false;
      if (!bEven) result.fail("a polygon's sides don't close");
      std::unordered_set<const Point2*> sSeen{vPairs[0]};
      std::vector<const Point2*> vStack{vPairs[0]};
      while (!vStack.empty()) {
        const Point2* p(vStack.back());
        vStack.pop_back();
        for (const Point2* q : mAdj[p])
          if (sSeen.insert(q).second) vStack.push_back(q);
      }
      if (sSeen.size() != mAdj.size()) result.fail("a polygon's sides form more than one cycle");
    }
  }
};

} // namespace

std::set<const ConstraintSegment2*> deadSegments(KIRO_VASK2D::Vask_2D& dt) {
  std::vector<ConstraintSegment2*> vAll;
  dt.getAliveAndDeadConstraintSegments(vAll);
  std::set<const ConstraintSegment2*> s;
  for (const ConstraintSegment2* p : vAll)
    if (!p->isAlive()) s.insert(p);
  return s;
}

void addNewlyDead(KIRO_VASK2D::Vask_2D& dt, const std::set<const ConstraintSegment2*>& sDeadBefore,
                  std::set<const ConstraintSegment2*>& sPlaced) {
  for (const ConstraintSegment2* p : deadSegments(dt))
    if (!sDeadBefore.count(p)) sPlaced.insert(p);
}

ConstraintCheck checkConstraints(KIRO_VASK2D::Vask_2D& dt, const std::vector<ConstraintGraph2*>& vGraphs,
                                 const ConstraintCheckOptions& options) {
  Checker c(dt, options);
  c.checkMesh();
  c.checkPieces();
  std::unordered_set<const ConstraintSegment2*> sRoots;
  std::vector<std::vector<ConstraintSegment2*> > vGraphRoots(vGraphs.size());
  for (std::size_t g = 0; g < vGraphs.size(); ++g) {
    vGraphs[g]->getOriginalConstraintSegments(vGraphRoots[g]);
    for (ConstraintSegment2* p : vGraphRoots[g])
      if (sRoots.insert(p).second) c.vRoots.push_back(p);
  }
  c.result.numRoots = c.vRoots.size();
  for (const ConstraintSegment2* pRoot : c.vRoots) c.checkChain(pRoot);
  for (const ConstraintSegment2* pRoot : c.vRoots) c.checkSplits(pRoot);
  for (std::size_t g = 0; g < vGraphs.size(); ++g) c.checkGraph(vGraphs[g], vGraphRoots[g]);
  for (const Pair& p : c.sGraphLeaves)
    if (!c.sAlive.count(p)) c.result.fail("a leaf of a graph is missing from the alive segments");
  if (options.bAllGraphs && c.sGraphLeaves.size() != c.sAlive.size())
    c.result.fail("alive segments that no graph's root leads to");
  return c.result;
}

} // namespace vask_test
