// Free polygon and edge tools: polylines from points, ordering and orienting
// rings of segments, the exact simple-polygon test, borders and edge sets of
// triangle sets. Lookups go through hash tables or sorted vectors, never
// through searches over the input.
#include "Predicates2.h"
#include "SegmentChecker.h"
#include "freeFunctions.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <cmath>
#include <iostream>
#include <sstream>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace KIRO_VASK2D {

void pointsToPolyline(std::vector<Point2>& vIn, bool bClose, std::vector<Segment2>& vOut) {
  if (vIn.size() < 2) return;
  vOut.reserve(vOut.size() + vIn.size() + 1);
  for (size_t i = 0; i + 1 < vIn.size(); ++i)
    if (vIn[i] != vIn[i + 1]) vOut.push_back(Segment2(vIn[i], vIn[i + 1]));
  if (bClose && vIn.back() != vIn.front()) vOut.push_back(Segment2(vIn.back(), vIn.front()));
}

namespace {

struct RingMessages {
  const char* place;
  const char* notTwoAtConnector; // a connecting point without exactly two segments
  const char* noSuccessor;       // the walk closes before every segment is used
  const char* notAtConnector;    // the next segment does not touch the connector
};

// A hash of the exact coordinates; +0.0 and -0.0 compare equal, so both
// hash as +0.0.
struct PointHash {
  size_t operator()(const Point2& p) const {
    const double x(p.x() == 0.0 ? 0.0 : p.x()), y(p.y() == 0.0 ? 0.0 : p.y());
    return std::hash<double>()(x) * 1000003u ^ std::hash<double>()(y);
  }
};

// Walks the ring that contains the first segment and gives it as a chain in
// vOut. The walk stops when it returns to the first segment's source; the
// ring must then have used every segment, and every point on the way must
// join exactly two segments. vSegments is not changed.
bool walkRing(const std::vector<Segment2>& vSegments, const RingMessages& msg, std::vector<Segment2>& vOut) {
  std::unordered_map<Point2, std::vector<size_t>, PointHash> mEnds;
  mEnds.reserve(2 * vSegments.size());
  for (size_t i = 0; i < vSegments.size(); ++i) {
    mEnds[vSegments[i].getSrc()].push_back(i);
    mEnds[vSegments[i].getTrg()].push_back(i);
  }
  std::vector<bool> vUsed(vSegments.size(), false);
  const Point2 start(vSegments[0].getSrc());
  vOut.push_back(vSegments[0]);
  vUsed[0] = true;
  size_t last(0);
  Point2 connector(vSegments[0].getTrg());
  while (true) {
    const std::vector<size_t>& vAt(mEnds[connector]);
    if (vAt.size() != 2) {
      std::ostringstream oss;
      oss << msg.notTwoAtConnector << " (" << vAt.size() << " segments at " << connector.x() << " " << connector.y()
          << ", Distance=" << std::sqrt(sqDistance2D(connector, start)) << " from the start)";
      logWarning(msg.place, oss.str());
      return false;
    }
    if (connector == start) {
      if (vOut.size() == vSegments.size()) return true;
      logWarning(msg.place, msg.noSuccessor);
      return false;
    }
    const size_t next(vAt[0] == last ? vAt[1] : vAt[0]);
    if (vUsed[next]) {
      logWarning(msg.place, msg.noSuccessor);
      return false;
    }
    Segment2 seg(vSegments[next]);
    if (seg.getSrc() != connector) {
      if (seg.getTrg() != connector) {
        logWarning(msg.place, msg.notAtConnector);
        return false;
      }
      seg.swapSrcTrg();
    }
    vOut.push_back(seg);
    vUsed[next] = true;
    last = next;
    connector = seg.getTrg();
  }
}

const RingMessages sortRingMessages = {"sortRing()", "Not a ring1", "Not a ring2", "Not a ring3"};
const RingMessages sortRingCCWMessages = {"sortRingCCW()", "not a ring 0", "not a ring 1", "Not a ring3"};

} // namespace

bool sortRing(std::vector<Segment2>& vSegments) {
  if (vSegments.empty()) return true;
  std::vector<Segment2> vChain;
  vChain.reserve(vSegments.size());
  if (!walkRing(vSegments, sortRingMessages, vChain)) return false;
  vSegments.swap(vChain);
  return true;
}

// The direction of a chain: the turn at its lexicographically smallest
// vertex. That vertex is convex in every simple ring, so its exact turn is
// the ring's own, whatever rounding the shoelace sum would suffer. A
// collinear turn there means the ring folds back on itself; then the sign of
// the shoelace sum (taken relative to that vertex) decides.
bool sortRingCCW(std::vector<Segment2>& vSegments) {
  if (vSegments.empty()) return true;
  std::vector<Segment2> vChain;
  vChain.reserve(vSegments.size());
  if (!walkRing(vSegments, sortRingCCWMessages, vChain)) return false;
  size_t iMin(0);
  for (size_t i = 1; i < vChain.size(); ++i)
    if (vChain[i].getTrg() < vChain[iMin].getTrg()) iMin = i;
  const Point2 minPoint(vChain[iMin].getTrg());
  const Point2 prev(vChain[iMin].getSrc());
  const Point2 next(vChain[(iMin + 1) % vChain.size()].getTrg());
  VASK_ASSERT(vChain[(iMin + 1) % vChain.size()].getSrc() == minPoint);
  bool bCCW(false);
  const Orientation2 ori(getOrientation2(&prev, &minPoint, &next));
  if (ori != ORIENTATION2_COLLINEAR) {
    bCCW = ori == ORIENTATION2_CCW;
  } else {
    long double twiceArea(0.0L);
    for (const Segment2& seg : vChain) {
      const long double ax(static_cast<long double>(seg.getSrc().x()) - minPoint.x());
      const long double ay(static_cast<long double>(seg.getSrc().y()) - minPoint.y());
      const long double bx(static_cast<long double>(seg.getTrg().x()) - minPoint.x());
      const long double by(static_cast<long double>(seg.getTrg().y()) - minPoint.y());
      twiceArea += ax * by - ay * bx;
    }
    bCCW = twiceArea >= 0.0L;
  }
  if (!bCCW) {
    std::reverse(vChain.begin(), vChain.end());
    for (Segment2& seg : vChain) seg.swapSrcTrg();
  }
  vSegments.swap(vChain);
  return true;
}

bool isSimplePolygon(std::vector<Segment2>& vSegments) {
  std::vector<Segment2> vSeg;
  vSeg.reserve(vSegments.size());
  for (const Segment2& seg : vSegments)
    if (seg.getSrc() != seg.getTrg()) vSeg.push_back(seg);
  if (vSeg.empty()) {
    logWarning("isSimplePolygon()", "no segment of positive length");
    return false;
  }
  // Each point exactly twice: the segments form closed chains of distinct
  // vertices, one or several.
  std::vector<Point2> vEnds;
  vEnds.reserve(2 * vSeg.size());
  for (const Segment2& seg : vSeg) {
    vEnds.push_back(seg.getSrc());
    vEnds.push_back(seg.getTrg());
  }
  std::sort(vEnds.begin(), vEnds.end());
  for (size_t i = 0; i < vEnds.size(); i += 2)
    if (vEnds[i] != vEnds[i + 1] || (i + 2 < vEnds.size() && vEnds[i + 1] == vEnds[i + 2])) {
      logWarning("isSimplePolygon()", "not a closed chain of distinct vertices");
      return false;
    }
  // One ring: the walk from the first segment uses all of them.
  std::vector<Segment2> vChain;
  const RingMessages msg = {"isSimplePolygon()", "not one ring", "not one ring", "not one ring"};
  if (!walkRing(vSeg, msg, vChain)) return false;
  // Area: some vertex lies off the line of the first segment.
  const Point2 a(vChain[0].getSrc()), b(vChain[0].getTrg());
  bool bArea(false);
  for (const Segment2& seg : vChain) {
    const Point2 c(seg.getTrg());
    if (getOrientation2(&a, &b, &c) != ORIENTATION2_COLLINEAR) {
      bArea = true;
      break;
    }
  }
  if (!bArea) return false;
  // Simple: no two segments meet except ring neighbours at their common end
  // point (an SIT_ENDPOINT contact, which is left out). With each point used
  // exactly twice, any other contact is a crossing, a touch or an overlap.
  std::vector<Segment2*> vPtr;
  vPtr.reserve(vChain.size());
  for (Segment2& seg : vChain) vPtr.push_back(&seg);
  SegmentChecker checker(vPtr);
  std::vector<Segment2*> vIllegal;
  checker.getIllegalSegments(false, vIllegal);
  return vIllegal.empty();
}

void getDirectedEdges(std::vector<Triangle2*>& vT, std::vector<Edge2>& vOut) {
  vOut.reserve(vOut.size() + 3 * vT.size());
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) vOut.push_back(Edge2(pT, i));
}

void getUndirectedEdges(std::vector<Triangle2*>& vT, std::vector<Edge2>& vOut) {
  std::vector<Edge2> vDirected;
  getDirectedEdges(vT, vDirected);
  typedef std::pair<Point2*, Point2*> Key;
  auto keyOf = [](const Edge2& e) {
    Point2* a(e.getSrc());
    Point2* b(e.getTrg());
    return a < b ? Key(a, b) : Key(b, a);
  };
  std::sort(vDirected.begin(), vDirected.end(), [&](const Edge2& e0, const Edge2& e1) {
    const Key k0(keyOf(e0)), k1(keyOf(e1));
    return k0 < k1 || (k0 == k1 && e0 < e1);
  });
  for (size_t i = 0; i < vDirected.size(); ++i)
    if (i == 0 || keyOf(vDirected[i]) != keyOf(vDirected[i - 1])) vOut.push_back(vDirected[i]);
}

void getBorders(const std::vector<Triangle2*>& vT, std::vector<Segment2>& vOut) {
  const std::unordered_set<const Triangle2*> sT(vT.begin(), vT.end());
  for (Triangle2* pT : vT)
    for (int i = 0; i < 3; ++i) {
      Triangle2* pN(pT->getOppositeTriangle(i));
      if (pN == nullptr || sT.count(pN) == 0)
        vOut.push_back(Segment2(*pT->getCorner(incIndexBy1(i)), *pT->getCorner(incIndexBy2(i))));
    }
}

// Depth-first walk over the edges, head to tail, from the lexicographically
// smallest free vertex. Whenever the path comes back to a vertex that it
// already holds, the loop from there is cut off as a polygon; a vertex
// without a free outgoing edge sends the last edge to vRemaining. So each
// polygon is a closed cycle, each edge is used once, and the work is linear
// after the sort.
void edgesToPolygons(std::vector<Edge2>& vIn, std::vector<std::vector<Edge2> >& vPolygons,
                     std::vector<Edge2>& vRemaining) {
  const size_t siz(vIn.size());
  const size_t numPolygonsBefore(vPolygons.size()), numRemainingBefore(vRemaining.size());
  std::vector<size_t> vOrder(siz);
  for (size_t i = 0; i < siz; ++i) vOrder[i] = i;
  std::sort(vOrder.begin(), vOrder.end(), [&](size_t a, size_t b) {
    const Point2 &pa(*vIn[a].getSrc()), &pb(*vIn[b].getSrc());
    return pa < pb || (pa == pb && a < b);
  });
  std::unordered_map<Point2*, std::vector<size_t> > mOut; // free outgoing edges per vertex
  mOut.reserve(siz);
  for (size_t k = siz; k-- > 0;) mOut[vIn[vOrder[k]].getSrc()].push_back(vOrder[k]);
  auto takeOutgoing = [&](Point2* pVtx, size_t& idx) {
    std::unordered_map<Point2*, std::vector<size_t> >::iterator it(mOut.find(pVtx));
    if (it == mOut.end() || it->second.empty()) return false;
    idx = it->second.back();
    it->second.pop_back();
    return true;
  };
  std::vector<bool> vUsed(siz, false);
  std::vector<size_t> vPath;
  std::unordered_map<Point2*, size_t> mPathPos; // source vertex of each path edge -> its position
  size_t cursor(0);
  while (true) {
    if (vPath.empty()) {
      while (cursor < siz && vUsed[vOrder[cursor]]) ++cursor;
      if (cursor == siz) break;
      const size_t idx(vOrder[cursor]);
      // Take it out of its vertex's free list (it is the last entry there:
      // the lists hold edges in sorted order, reversed).
      Point2* pSrc(vIn[idx].getSrc());
      std::vector<size_t>& vFree(mOut[pSrc]);
      vFree.erase(std::find(vFree.begin(), vFree.end(), idx));
      vUsed[idx] = true;
      mPathPos[pSrc] = 0;
      vPath.push_back(idx);
    }
    Point2* pHead(vIn[vPath.back()].getTrg());
    std::unordered_map<Point2*, size_t>::iterator itPos(mPathPos.find(pHead));
    if (itPos != mPathPos.end()) {
      const size_t from(itPos->second);
      vPolygons.push_back(std::vector<Edge2>());
      for (size_t k = from; k < vPath.size(); ++k) {
        vPolygons.back().push_back(vIn[vPath[k]]);
        mPathPos.erase(vIn[vPath[k]].getSrc());
      }
      vPath.resize(from);
      continue;
    }
    size_t idx(0);
    if (takeOutgoing(pHead, idx)) {
      vUsed[idx] = true;
      mPathPos[pHead] = vPath.size();
      vPath.push_back(idx);
    } else {
      vRemaining.push_back(vIn[vPath.back()]);
      mPathPos.erase(vIn[vPath.back()].getSrc());
      vPath.pop_back();
    }
  }
  size_t sumRet(vRemaining.size() - numRemainingBefore);
  for (size_t k = numPolygonsBefore; k < vPolygons.size(); ++k) sumRet += vPolygons[k].size();
  VASK_ASSERT(siz == sumRet);
}

Vector2 normalize(const Vector2& v) {
  const double len(v.length());
  if (len > 0.0) return Vector2(v.x() / len, v.y() / len);
  std::cout << "warning: normalize(const Vector2& other), Null length vector!" << std::endl;
  return Vector2(0.0, 0.0);
}

namespace {
// Heron's rule on the three side lengths. A flat triangle rounds to a tiny
// negative square; only a large negative value hints at a real fault.
double computeArea(double l0, double l1, double l2) {
  const double s((l0 + l1 + l2) / 2.0);
  const double sqArea((s - l0) * s * (s - l1) * (s - l2));
  if (std::isnan(sqArea)) {
    logWarning("computeArea()", "invalid value, no area for this triangle");
    std::cout << "len0=" << l0 << std::endl << "len1=" << l1 << std::endl << "len2=" << l2 << std::endl;
    VASK_ASSERT(false);
  }
  if (sqArea > 0.0) return std::sqrt(sqArea);
  if (-1.0 > sqArea) {
    std::ostringstream oss;
    oss << "Numeric issue in Triangle::getArea(), sqArea=" << sqArea;
    logWarning("computeArea()", oss.str());
  }
  return 0.0;
}
} // namespace

double getArea2D(Point2* p0, Point2* p1, Point2* p2) {
  return computeArea(std::sqrt(sqDistance2D(*p0, *p1)), std::sqrt(sqDistance2D(*p1, *p2)),
                     std::sqrt(sqDistance2D(*p2, *p0)));
}

} // namespace KIRO_VASK2D
