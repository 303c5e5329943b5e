#pragma once
#include "MsgBase.h"
#include "Point2.h"
#include "Segment2.h"
#include "Vask2DApi.h"
#include <cstddef>
#include <utility>
#include <vector>

namespace KIRO_VASK2D {

/** How two closed segments meet. */
enum SegmentIntersectionType {
  SIT_UNINITIALIZED = 0, ///< not classified (or not classifiable: null, NaN or infinite input)
  SIT_NONE = 1,          ///< no common point
  SIT_SEGMENT = 2,       ///< a common part of positive length, or the same segment object
  SIT_POINT = 3,         ///< one common point, an end point of at most one of them
  SIT_ENDPOINT = 4       ///< one common point, an end point of both
};

class SegmentCheckerImpl;

/** Exact intersection report for a soup of segments.
 *
 * The caller keeps its Segment2 objects alive as long as the checker. Every
 * class is exact for all finite coordinates; intersection points are end
 * points where the meeting point is one, otherwise each coordinate is one of
 * the two doubles next to the exact value. A null, NaN or infinite segment
 * keeps its position but is never reported as intersecting; a pointer given
 * twice is indexed once. The first query builds a spatial index over all
 * segments, after which the set is fixed. Not for concurrent use. */
class VASK2D_API SegmentChecker {
public:
  /** An empty checker, still usable for classifying pairs of segments. */
  SegmentChecker();
  explicit SegmentChecker(const std::vector<Segment2*>& vSegments);
  /** Frees the index, not the segments. */
  ~SegmentChecker();
  SegmentChecker(const SegmentChecker&) = delete;
  SegmentChecker& operator=(const SegmentChecker&) = delete;

  size_t getNumberOfSegments() const;
  /** The segment at position i, as given; i out of range breaks the assertion. */
  Segment2* getSegment(unsigned i) const;
  /** The first position of pSeg; -1 with the warning "No such segment" for an unknown pointer. */
  int getIndex(Segment2* pSeg) const;

  /** The exact class of a pair; SIT_UNINITIALIZED with a warning for a null,
   * NaN or infinite segment. */
  SegmentIntersectionType getIntersectionType(const Segment2* pSeg0, const Segment2* pSeg1);
  /** The enumerator's name, "UNKNOWN SIT" for any other value. */
  static const char* getIntersectionTypeString(SegmentIntersectionType sit);

  /** Appends every indexed segment other than pSeg itself that meets pSeg,
   * with its class; SIT_ENDPOINT partners only with bAlsoEndPointIntersections.
   * pSeg may lie outside the set. Order: along the index's space-filling
   * curve, equal keys by position, the same in every run. */
  void getIntersectors(Segment2* pSeg, bool bAlsoEndPointIntersections,
                       std::vector<std::pair<Segment2*, SegmentIntersectionType> >& vIntersectors);
  /** Appends, once each and in position order, every segment that meets
   * another one of the set (end point contacts only with the flag). */
  void getIllegalSegments(bool bAlsoEndPointIntersections, std::vector<Segment2*>& vIllegalSegments);

  /** The meeting point of a SIT_POINT or SIT_ENDPOINT pair. An end point
   * that lies on the other segment comes back exactly; a crossing has each
   * coordinate faithfully rounded. When sit is not the pair's class, a
   * warning and out stays as it was. */
  void getIntersectionPoint(SegmentIntersectionType sit, const Segment2& seg0, const Segment2& seg1, Point2& out);
  /** The common part of a SIT_SEGMENT pair, directed like seg0; its end
   * points are end points of the input. Another class: a warning, out stays. */
  void getIntersectionSegment(const Segment2& seg0, const Segment2& seg1, Segment2& out);

  /** PostScript drawing of all segments. */
  void showSegments(const char* name) const;
  /** PostScript drawing of the legal segments in black and the illegal ones in red. */
  void showIllegalSegments(bool bAlsoEndPointIntersections, const char* name);

  /** Progress of getIllegalSegments, titled "getIllegalSegments". */
  void subscribe(MsgType msgType, MsgBase* pReceiver);
  void unsubscribe(MsgType msgType, MsgBase* pReceiver);

private:
  void addSegments(const std::vector<Segment2*>& vSegments);
  SegmentCheckerImpl* pImpl;
};

} // namespace KIRO_VASK2D
