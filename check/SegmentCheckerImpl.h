#pragma once
// The record behind a SegmentChecker handle.
#include "SegmentChecker.h"
#include "check/PointerIndex.h"
#include "kernel/KiroTest.h"
#include "kiro_locate2/RTree.h"
#include "support/ProgressPublisher.h"
#include <memory>
#include <vector>

namespace KIRO_VASK2D {

class SegmentCheckerImpl {
public:
  SegmentCheckerImpl() {}
  SegmentCheckerImpl(const SegmentCheckerImpl&) = delete;
  SegmentCheckerImpl& operator=(const SegmentCheckerImpl&) = delete;

  /** The boxes of the finite segments, each pointer once; built at the first query. */
  KIRO_LOCATE2::RTree tree;
  /** Private predicates; the static bound covers every indexed segment and
   * grows for foreign segments as they are asked about. */
  KiroTest predicates;
  /** The caller's segments in the caller's order, not owned. */
  std::vector<Segment2*> vSegments;
  /** Pointer to first position, for every pointer given (null and non-finite included). */
  PointerIndex index;
  /** Created by the first subscribe. */
  std::unique_ptr<ProgressPublisher> pPublisher;
};

} // namespace KIRO_VASK2D
