#include "zones/ZoneAlgebra.h"
#include "Zone2.h"
#include "support/Log.h"
#include "support/VaskAssert.h"
#include "zones/ZoneFlood.h"
#include <utility>

namespace KIRO_VASK2D {

namespace {
bool isResult(ZoneLocation loc) { return loc >= ZL_RESULT_UNION && loc <= ZL_RESULT_SYM_DIFFERENCE; }
} // namespace

ZoneAlgebra::ZoneAlgebra(Dt2* pDt2_) : pDt2(pDt2_) {}

ZoneAlgebra::~ZoneAlgebra() {}

size_t ZoneAlgebra::nodeOf(const Zone2* pZone) {
  const auto it(mNodeOf.find(pZone));
  if (it != mNodeOf.end()) return it->second;
  vNodes.push_back(Node{pZone, nullptr, nullptr, std::vector<Triangle2*>(), 0, false, false});
  mNodeOf.emplace(pZone, vNodes.size() - 1);
  return vNodes.size() - 1;
}

// Depth first without recursion (results may nest deeply): a node is
// expanded when it first reaches the top of the stack and done when it
// reaches the top again, after all its inputs. A node expanded but not done
// is an ancestor of the node being expanded, so meeting one as an input is
// a cycle. vOrder lists every node after its inputs.
bool ZoneAlgebra::buildOrder(const Zone2* pRoot, std::vector<size_t>& vOrder) {
  std::vector<size_t> vStack(1, nodeOf(pRoot));
  while (!vStack.empty()) {
    const size_t k(vStack.back());
    if (vNodes[k].bDone) {
      vStack.pop_back();
      continue;
    }
    if (vNodes[k].bExpanded) {
      vNodes[k].bDone = true;
      vOrder.push_back(k);
      vStack.pop_back();
      continue;
    }
    vNodes[k].bExpanded = true;
    const Zone2* pZone(vNodes[k].pZone);
    if (!isResult(pZone->getZoneLocation())) continue;
    const std::vector<Zone2*>& vInputZones(pZone->getInputZones());
    VASK_ASSERT(vInputZones.size()==2);
    for (const Zone2* pInput : vInputZones) {
      const size_t j(nodeOf(pInput)); // may move vNodes: index again below
      ++vNodes[j].numReadersLeft;
      if (vNodes[j].bExpanded && !vNodes[j].bDone) return false;
      if (!vNodes[j].bDone) vStack.push_back(j);
    }
  }
  return true;
}

void ZoneAlgebra::evaluate(const Zone2* pRoot, std::vector<Triangle2*>& vOut, ZoneFlood* pRootMarks) {
  std::vector<size_t> vOrder;
  if (!buildOrder(pRoot, vOrder)) {
    logWarning("Zone2::getTriangles()", "The zone reads itself through its input zones, no triangles");
    return;
  }
  for (size_t k : vOrder) {
    Node& node(vNodes[k]);
    if (node.pZone == pRoot) {
      node.pMarks = pRootMarks;
    } else {
      node.pOwnMarks.reset(new ZoneFlood(pDt2));
      node.pMarks = node.pOwnMarks.get();
    }
    if (!isResult(node.pZone->getZoneLocation())) {
      node.pZone->collectTriangles(node.vT, node.pMarks);
      continue;
    }
    Node& in0(vNodes[mNodeOf.at(node.pZone->getInputZones()[0])]);
    Node& in1(vNodes[mNodeOf.at(node.pZone->getInputZones()[1])]);
    combine(node, in0, in1);
    if (--in0.numReadersLeft == 0) release(in0);
    if (--in1.numReadersLeft == 0) release(in1);
  }
  Node& root(vNodes[mNodeOf.at(pRoot)]);
  if (vOut.empty()) vOut.swap(root.vT);
  else vOut.insert(vOut.end(), root.vT.begin(), root.vT.end());
}

// Both inputs hold each triangle once, so every output does too.
void ZoneAlgebra::combine(Node& node, Node& in0, const Node& in1) {
  std::vector<Triangle2*>& vT(node.vT);
  const ZoneFlood& marks0(*in0.pMarks);
  const ZoneFlood& marks1(*in1.pMarks);
  switch (node.pZone->getZoneLocation()) {
    case ZL_RESULT_UNION:
      // The first list, moved when this is its last reader (its marks stay).
      if (in0.numReadersLeft == 1 && &in0 != &in1) vT.swap(in0.vT);
      else vT = in0.vT;
      vT.reserve(vT.size() + in1.vT.size());
      for (Triangle2* pT : in1.vT)
        if (!marks0.isVisited(pT)) vT.push_back(pT);
      break;
    case ZL_RESULT_INTERSECTION: {
      // Walk the shorter list, test against the other's marks.
      const bool bFirstShorter(in0.vT.size() <= in1.vT.size());
      const std::vector<Triangle2*>& vWalk(bFirstShorter ? in0.vT : in1.vT);
      const ZoneFlood& other(bFirstShorter ? marks1 : marks0);
      for (Triangle2* pT : vWalk)
        if (other.isVisited(pT)) vT.push_back(pT);
      break;
    }
    case ZL_RESULT_DIFFERENCE:
      for (Triangle2* pT : in0.vT)
        if (!marks1.isVisited(pT)) vT.push_back(pT);
      break;
    case ZL_RESULT_SYM_DIFFERENCE:
      for (Triangle2* pT : in0.vT)
        if (!marks1.isVisited(pT)) vT.push_back(pT);
      for (Triangle2* pT : in1.vT)
        if (!marks0.isVisited(pT)) vT.push_back(pT);
      break;
    default:
      logWarning("Zone2::getTriangles_RESULT", "Unexpected value");
      VASK_ASSERT(false);
  }
  if (node.pMarks != nullptr) node.pMarks->markAll(vT);
}

void ZoneAlgebra::release(Node& node) {
  std::vector<Triangle2*>().swap(node.vT);
  node.pOwnMarks.reset();
  node.pMarks = nullptr;
}

} // namespace KIRO_VASK2D
