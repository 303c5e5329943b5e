#include "SegmentChecker.h"
#include "Color.h"
#include "Visualizer2.h"
#include "check/SegmentCheckerImpl.h"
#include "kernel/SegmentIntersection.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <sstream>

namespace KIRO_VASK2D {

namespace {
/** A list of positions for a warning, cut after 20 of them. */
std::string positionList(const std::vector<size_t>& vPositions) {
  std::ostringstream oss;
  for (size_t i = 0; i < vPositions.size() && i < 20; ++i) oss << (i == 0 ? "" : ", ") << vPositions[i];
  if (vPositions.size() > 20) oss << ", ... (" << vPositions.size() << " in all)";
  return oss.str();
}

void raiseBound(KiroTest& kiroTest, const Segment2& seg) {
  const Point2 src(seg.getSrc()), trg(seg.getTrg());
  kiroTest.updateStaticBound(&src);
  kiroTest.updateStaticBound(&trg);
}

/** Closed-segment box of a finite segment. */
void getBox(const Segment2& seg, double& minX, double& minY, double& maxX, double& maxY) {
  const Point2 src(seg.getSrc()), trg(seg.getTrg());
  minX = std::min(src.x(), trg.x());
  maxX = std::max(src.x(), trg.x());
  minY = std::min(src.y(), trg.y());
  maxY = std::max(src.y(), trg.y());
}

/** Tag of a segment in the tree: set when its end points are the lower left
 * and upper right corners of its box, clear for the other diagonal. */
const uint32_t TAG_RISING = 1u;

uint32_t diagonalTag(const Segment2& seg) {
  const Point2 src(seg.getSrc()), trg(seg.getTrg());
  return (src.x() <= trg.x()) == (src.y() <= trg.y()) ? TAG_RISING : 0u;
}

/** The end points of an indexed segment, read from its leaf: the class of a
 * pair does not depend on the direction of a segment, and the leaf is in
 * the cache already, unlike the caller's segment. */
void leafEndPoints(const KIRO_LOCATE2::RTreeLeaf& leaf, Point2& a, Point2& b) {
  a.change(leaf.xmin, (leaf.tag & TAG_RISING) != 0 ? leaf.ymin : leaf.ymax);
  b.change(leaf.xmax, (leaf.tag & TAG_RISING) != 0 ? leaf.ymax : leaf.ymin);
}

bool isReported(SegmentIntersectionType sit, bool bAlsoEndPointIntersections) {
  switch (sit) {
  case SIT_NONE:
    return false;
  case SIT_SEGMENT:
  case SIT_POINT:
    return true;
  case SIT_ENDPOINT:
    return bAlsoEndPointIntersections;
  default:
    break;
  }
  // Classification of two finite segments never yields anything else.
  logError("SegmentChecker", "impossible case");
  VASK_ASSERT(false);
}
} // namespace

SegmentChecker::SegmentChecker() : pImpl(new SegmentCheckerImpl) {}

SegmentChecker::SegmentChecker(const std::vector<Segment2*>& vSegments) : pImpl(new SegmentCheckerImpl) {
  addSegments(vSegments);
}

SegmentChecker::~SegmentChecker() { delete pImpl; }

void SegmentChecker::addSegments(const std::vector<Segment2*>& vNewSegments) {
  // Only the constructor adds: the index is open until the first query.
  VASK_ASSERT(!pImpl->tree.isBuilt());
  std::vector<Segment2*>& vSegments(pImpl->vSegments);
  const size_t base(vSegments.size());
  vSegments.insert(vSegments.end(), vNewSegments.begin(), vNewSegments.end());
  pImpl->index.reserve(vSegments.size(), vSegments);
  std::vector<size_t> vBad, vRepeated;
  double maxAbs(0.0);
  for (size_t pos = base; pos < vSegments.size(); ++pos) {
    Segment2* pSeg(vSegments[pos]);
    const int first(pImpl->index.insert(int(pos), vSegments));
    if (pSeg == nullptr || !isFiniteSegment(*pSeg)) {
      vBad.push_back(pos);
      continue;
    }
    if (first != int(pos)) {
      vRepeated.push_back(pos);
      continue;
    }
    double minX, minY, maxX, maxY;
    getBox(*pSeg, minX, minY, maxX, maxY);
    pImpl->tree.addObject(pSeg, minX, minY, maxX, maxY, diagonalTag(*pSeg));
    maxAbs = std::max(maxAbs, std::max(std::max(-minX, maxX), std::max(-minY, maxY)));
  }
  // One raise for the whole set keeps the lock of the bound out of the queries.
  pImpl->predicates.setStaticBound_MT(maxAbs);
  if (!vBad.empty())
    logWarning("SegmentChecker::addSegments()",
               "null, NaN or infinite segments keep their positions but are not indexed, positions: " +
                   positionList(vBad));
  if (!vRepeated.empty())
    logWarning("SegmentChecker::addSegments()",
               "segments given more than once are indexed once, under their first position; repeated at positions: " +
                   positionList(vRepeated));
}

size_t SegmentChecker::getNumberOfSegments() const { return pImpl->vSegments.size(); }

Segment2* SegmentChecker::getSegment(unsigned i) const {
  VASK_ASSERT(i<pImpl->vSegments.size());
  return pImpl->vSegments[i];
}

int SegmentChecker::getIndex(Segment2* pSeg) const {
  const int pos(pImpl->index.find(pSeg, pImpl->vSegments));
  if (pos < 0) logWarning("SegmentChecker::getIndex()", "No such segment");
  return pos;
}

SegmentIntersectionType SegmentChecker::getIntersectionType(const Segment2* pSeg0, const Segment2* pSeg1) {
  if (pSeg0 == nullptr || pSeg1 == nullptr || !isFiniteSegment(*pSeg0) || !isFiniteSegment(*pSeg1)) {
    logWarning("SegmentChecker::getIntersectionType()", "null, NaN or infinite segment: SIT_UNINITIALIZED");
    return SIT_UNINITIALIZED;
  }
  if (pSeg0 == pSeg1) return SIT_SEGMENT;
  raiseBound(pImpl->predicates, *pSeg0);
  raiseBound(pImpl->predicates, *pSeg1);
  return classifySegmentPair(pImpl->predicates, pSeg0->getSrc(), pSeg0->getTrg(), pSeg1->getSrc(), pSeg1->getTrg());
}

const char* SegmentChecker::getIntersectionTypeString(SegmentIntersectionType sit) {
  switch (sit) {
  case SIT_UNINITIALIZED:
    return "SIT_UNINITIALIZED";
  case SIT_NONE:
    return "SIT_NONE";
  case SIT_SEGMENT:
    return "SIT_SEGMENT";
  case SIT_POINT:
    return "SIT_POINT";
  case SIT_ENDPOINT:
    return "SIT_ENDPOINT";
  }
  return "UNKNOWN SIT";
}

void SegmentChecker::getIntersectors(Segment2* pSeg, bool bAlsoEndPointIntersections,
                                     std::vector<std::pair<Segment2*, SegmentIntersectionType> >& vIntersectors) {
  if (pSeg == nullptr || !isFiniteSegment(*pSeg)) {
    logWarning("SegmentChecker::getIntersectors()", "null, NaN or infinite segment: no result");
    return;
  }
  KiroTest& predicates(pImpl->predicates);
  raiseBound(predicates, *pSeg);
  const Point2 src(pSeg->getSrc()), trg(pSeg->getTrg());
  double minX, minY, maxX, maxY;
  getBox(*pSeg, minX, minY, maxX, maxY);
  Point2 otherA, otherB;
  pImpl->tree.visit(minX, minY, maxX, maxY, [&](const KIRO_LOCATE2::RTreeLeaf* pLeaf) {
    Segment2* pOther(static_cast<Segment2*>(pLeaf->pObject));
    if (pOther == pSeg) return;
    leafEndPoints(*pLeaf, otherA, otherB);
    const SegmentIntersectionType sit(classifySegmentPair(predicates, src, trg, otherA, otherB));
    if (isReported(sit, bAlsoEndPointIntersections)) vIntersectors.push_back(std::make_pair(pOther, sit));
  });
}

void SegmentChecker::getIllegalSegments(bool bAlsoEndPointIntersections, std::vector<Segment2*>& vIllegalSegments) {
  KIRO_LOCATE2::RTree& tree(pImpl->tree);
  KiroTest& predicates(pImpl->predicates);
  tree.build();
  const std::vector<KIRO_LOCATE2::RTreeLeaf>& vLeaves(tree.getLeaves());
  // Marks by the number of the addObject call, which follows the positions.
  std::vector<char> vIllegal(vLeaves.size(), 0);
  ProgressPublisher* pPublisher(pImpl->pPublisher.get());
  if (pPublisher != nullptr) pPublisher->start("getIllegalSegments", unsigned(vLeaves.size()));
  // Curve order: consecutive queries look at neighbouring space, which keeps
  // the tree's nodes in the cache.
  for (const KIRO_LOCATE2::RTreeLeaf& leaf : vLeaves) {
    if (pPublisher != nullptr) pPublisher->advance(1);
    // A marked segment is settled; its unmarked partners find it in their own query.
    if (vIllegal[leaf.objectIndex] != 0) continue;
    Point2 src, trg, otherA, otherB;
    leafEndPoints(leaf, src, trg);
    tree.visit(leaf.xmin, leaf.ymin, leaf.xmax, leaf.ymax, [&](const KIRO_LOCATE2::RTreeLeaf* pOtherLeaf) {
      if (pOtherLeaf == &leaf) return;
      leafEndPoints(*pOtherLeaf, otherA, otherB);
      const SegmentIntersectionType sit(classifySegmentPair(predicates, src, trg, otherA, otherB));
      if (!isReported(sit, bAlsoEndPointIntersections)) return;
      vIllegal[leaf.objectIndex] = 1;
      vIllegal[pOtherLeaf->objectIndex] = 1;
    });
  }
  if (pPublisher != nullptr) pPublisher->finish();
  // Objects were added in position order, so the object number orders by position.
  std::vector<Segment2*> vByObject(vLeaves.size(), nullptr);
  for (const KIRO_LOCATE2::RTreeLeaf& leaf : vLeaves)
    if (vIllegal[leaf.objectIndex] != 0) vByObject[leaf.objectIndex] = static_cast<Segment2*>(leaf.pObject);
  for (Segment2* pSeg : vByObject)
    if (pSeg != nullptr) vIllegalSegments.push_back(pSeg);
}

void SegmentChecker::getIntersectionPoint(SegmentIntersectionType sit, const Segment2& seg0, const Segment2& seg1,
                                          Point2& out) {
  const char* tag("SegmentChecker::getIntersectionPoint()");
  if (sit != SIT_POINT && sit != SIT_ENDPOINT) {
    logWarning(tag, "wrong SegmentIntersectionType provided");
    return;
  }
  const SegmentIntersectionType actual(getIntersectionType(&seg0, &seg1));
  if (actual == SIT_UNINITIALIZED) return;
  if (actual != sit) {
    logWarning(tag, std::string(getIntersectionTypeString(sit)) +
                        " is a wrong SegmentIntersectionType for the preset segments");
    return;
  }
  const Point2 p1(seg0.getSrc()), p2(seg0.getTrg()), p3(seg1.getSrc()), p4(seg1.getTrg());
  if (sit == SIT_ENDPOINT) {
    // The class guarantees a common end point.
    const Point2& common((p1 == p3 || p1 == p4) ? p1 : p2);
    out.change(common.x(), common.y());
    return;
  }
  const Point2 meeting(getSinglePointOfCrossing(pImpl->predicates, p1, p2, p3, p4));
  out.change(meeting.x(), meeting.y());
}

void SegmentChecker::getIntersectionSegment(const Segment2& seg0, const Segment2& seg1, Segment2& out) {
  const char* tag("SegmentChecker::getIntersectionPoint()");
  const SegmentIntersectionType actual(getIntersectionType(&seg0, &seg1));
  if (actual == SIT_UNINITIALIZED) return;
  if (actual != SIT_SEGMENT) {
    logWarning(tag, std::string("segments seem to be non-collinear or share no part of positive length (") +
                        getIntersectionTypeString(actual) + ")");
    return;
  }
  // On a common line each end of the common part is an input end point,
  // and along the line both coordinates are monotone: the overlap of the x
  // ranges and of the y ranges give its ends without arithmetic.
  const Point2 p1(seg0.getSrc()), p2(seg0.getTrg()), p3(seg1.getSrc()), p4(seg1.getTrg());
  double lowX(std::max(std::min(p1.x(), p2.x()), std::min(p3.x(), p4.x())));
  double highX(std::min(std::max(p1.x(), p2.x()), std::max(p3.x(), p4.x())));
  double lowY(std::max(std::min(p1.y(), p2.y()), std::min(p3.y(), p4.y())));
  double highY(std::min(std::max(p1.y(), p2.y()), std::max(p3.y(), p4.y())));
  // The result runs in the direction of seg0.
  if (p1.x() > p2.x()) std::swap(lowX, highX);
  if (p1.y() > p2.y()) std::swap(lowY, highY);
  out = Segment2(Point2(lowX, lowY), Point2(highX, highY));
}

void SegmentChecker::showSegments(const char* name) const {
  Visualizer2 vis(name);
  std::ostringstream header;
  header << "SegmentChecker::showSegments(), numSegments=" << pImpl->vSegments.size();
  vis.addHeaderLine(header.str().c_str());
  for (const Segment2* pSeg : pImpl->vSegments)
    if (pSeg != nullptr && isFiniteSegment(*pSeg)) vis.addObject(*pSeg, Color(CBLACK, 0.1f, false));
  vis.writeFile();
}

void SegmentChecker::showIllegalSegments(bool bAlsoEndPointIntersections, const char* name) {
  std::vector<Segment2*> vIllegal;
  getIllegalSegments(bAlsoEndPointIntersections, vIllegal);
  std::vector<const Segment2*> vSorted(vIllegal.begin(), vIllegal.end());
  std::sort(vSorted.begin(), vSorted.end());
  Visualizer2 vis(name);
  const size_t numIndexed(pImpl->tree.getNumObjects());
  std::ostringstream numbers, legal, illegal;
  numbers << "Number of segments: " << pImpl->vSegments.size();
  legal << "Legal segments: " << numIndexed - vIllegal.size();
  illegal << "Illegal segments: " << vIllegal.size();
  vis.addHeaderLine(numbers.str().c_str());
  vis.addHeaderLine(legal.str().c_str());
  vis.addHeaderLine(illegal.str().c_str());
  for (const KIRO_LOCATE2::RTreeLeaf& leaf : pImpl->tree.getLeaves()) {
    const Segment2* pSeg(static_cast<const Segment2*>(leaf.pObject));
    if (!std::binary_search(vSorted.begin(), vSorted.end(), pSeg)) vis.addObject(*pSeg, Color(CBLACK, 0.1f, false));
  }
  // Illegal ones on top, with their end points marked.
  for (const Segment2* pSeg : vIllegal) vis.addObject(*pSeg, Color(CRED, 0.3f, true));
  vis.writeFile();
}

void SegmentChecker::subscribe(MsgType msgType, MsgBase* pReceiver) {
  if (!pImpl->pPublisher) pImpl->pPublisher.reset(new ProgressPublisher("SEGCHECK"));
  pImpl->pPublisher->subscribe(msgType, pReceiver);
}

void SegmentChecker::unsubscribe(MsgType msgType, MsgBase* pReceiver) {
  if (!pImpl->pPublisher) {
    logWarning("SegmentChecker::unsubscribe()", "No publisher present");
    return;
  }
  pImpl->pPublisher->unsubscribe(msgType, pReceiver);
}

} // namespace KIRO_VASK2D
