#include "zones/ConnectedComponent.h"
#include "Point2.h"
#include "Triangle2.h"
#include "support/VaskAssert.h"
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace KIRO_VASK2D {

// Hash sets give each membership test O(1): no sort and no ordered search,
// and the order of the output follows the input, not addresses.
void getConnectedComponents(const std::vector<Triangle2*>& vT, std::vector<std::vector<Triangle2*> >& vOut) {
  const std::unordered_set<const Triangle2*> sIn(vT.begin(), vT.end());
  std::unordered_set<const Triangle2*> sSeen;
  sSeen.reserve(sIn.size());
  std::vector<Triangle2*> vStack;
  for (Triangle2* pStart : vT) {
    if (!sSeen.insert(pStart).second) continue;
    vOut.emplace_back(1, pStart);
    vStack.assign(1, pStart);
    while (!vStack.empty()) {
      Triangle2* pT(vStack.back());
      vStack.pop_back();
      for (int i = 0; i < 3; ++i) {
        Triangle2* pOpp(pT->getOppositeTriangle(i));
        if (pOpp == nullptr || sIn.count(pOpp) == 0 || !sSeen.insert(pOpp).second) continue;
        vOut.back().push_back(pOpp);
        vStack.push_back(pOpp);
      }
    }
  }
}

ConnectedComponent::ConnectedComponent(const std::vector<Triangle2*>& vT, bool* pAxisFlag_)
    : bOwnAxisFlag(false), pAxisFlag(pAxisFlag_ != nullptr ? pAxisFlag_ : &bOwnAxisFlag) {
  std::unordered_set<const Triangle2*> sSeen(vT.size());
  for (Triangle2* pT : vT)
    if (sSeen.insert(pT).second) vComponentT.push_back(pT);
}

void ConnectedComponent::computeBorder() {
  vBorderEdges.clear();
  const std::unordered_set<const Triangle2*> sIn(vComponentT.begin(), vComponentT.end());
  for (Triangle2* pT : vComponentT)
    for (int i = 0; i < 3; ++i) {
      const Triangle2* pOpp(pT->getOppositeTriangle(i));
      if (pOpp == nullptr || sIn.count(pOpp) == 0) vBorderEdges.push_back(Edge2(pT, i));
    }
}

// The border edges run with the component on their left, so at every
// vertex as many leave as arrive. A walk that always takes an unused
// leaving edge can therefore only get stuck where it started; starting at a
// vertex with one leaving edge, it closes exactly when it returns there. At
// a pinch (several leaving edges) any unused one serves. Edges left over
// after the first ring belong to further rings: a hole, or a second piece.
void ConnectedComponent::sortBorders(std::vector<Point2*>& vPinchVertices, Point2*& pSplitVertex) {
  pSplitVertex = nullptr;
  vSortedBorder.clear();
  std::unordered_map<Point2*, std::vector<size_t> > mLeaving;
  mLeaving.reserve(vBorderEdges.size());
  for (size_t k = 0; k < vBorderEdges.size(); ++k) {
    std::vector<size_t>& v(mLeaving[vBorderEdges[k].getSrc()]);
    v.push_back(k);
    if (v.size() == 2) vPinchVertices.push_back(vBorderEdges[k].getSrc());
  }
  if (vBorderEdges.empty()) return;
  size_t start(0);
  while (start < vBorderEdges.size() && mLeaving[vBorderEdges[start].getSrc()].size() > 1) ++start;
  if (start == vBorderEdges.size()) start = 0;
  Point2* pStartVtx(vBorderEdges[start].getSrc());
  VASK_ASSERT(pStartVtx!=0);
  std::vector<bool> vUsed(vBorderEdges.size(), false);
  size_t k(start);
  for (;;) {
    vUsed[k] = true;
    vSortedBorder.push_back(vBorderEdges[k]);
    Point2* pNext(vBorderEdges[k].getTrg());
    if (pNext == pStartVtx) break;
    const std::vector<size_t>& vOut(mLeaving[pNext]);
    const auto it(std::find_if(vOut.begin(), vOut.end(), [&](size_t e) { return !vUsed[e]; }));
    VASK_ASSERT(it != vOut.end());
    k = *it;
  }
  if (vSortedBorder.size() == vBorderEdges.size()) return;
  // A cut through the middle of the ring (its median vertex on the axis in
  // turn) reaches across a hole rather than grazing the ring's end.
  std::vector<Point2*> vRing;
  for (const Edge2& e : vSortedBorder) vRing.push_back(e.getSrc());
  const bool bX(*pAxisFlag);
  std::nth_element(vRing.begin(), vRing.begin() + vRing.size() / 2, vRing.end(), [bX](Point2* a, Point2* b) {
    return bX ? a->x() < b->x() : a->y() < b->y();
  });
  pSplitVertex = vRing[vRing.size() / 2];
}

bool ConnectedComponent::splitIntoSimple(std::vector<std::vector<Triangle2*> >& vOut) {
  computeBorder();
  std::vector<Point2*> vPinchVertices;
  Point2* pSplitVertex(nullptr);
  sortBorders(vPinchVertices, pSplitVertex);
  if (pSplitVertex != nullptr) {
    splitAtAxis(pSplitVertex, vOut);
    return true;
  }
  if (vPinchVertices.empty()) return false;
  dealOutAtPinches(vPinchVertices, vOut);
  return true;
}

// Triangles whose corner 0 lies below (left of) the split vertex form one
// side. Should one side be empty, the list is halved instead, so each piece
// is smaller than the component and the partitioning ends.
void ConnectedComponent::splitAtAxis(Point2* pSplitVertex, std::vector<std::vector<Triangle2*> >& vOut) {
  const bool bX(*pAxisFlag);
  *pAxisFlag = !*pAxisFlag;
  std::vector<Triangle2*> vFirst, vSecond;
  const double split(bX ? pSplitVertex->x() : pSplitVertex->y());
  for (Triangle2* pT : vComponentT) {
    const double c(bX ? pT->getCorner(0)->x() : pT->getCorner(0)->y());
    (c < split ? vFirst : vSecond).push_back(pT);
  }
  if (vFirst.empty() || vSecond.empty()) {
    const size_t mid(vComponentT.size() / 2);
    VASK_ASSERT(mid>0 && mid<vComponentT.size());
    vFirst.assign(vComponentT.begin(), vComponentT.begin() + static_cast<std::ptrdiff_t>(mid));
    vSecond.assign(vComponentT.begin() + static_cast<std::ptrdiff_t>(mid), vComponentT.end());
  }
  getConnectedComponents(vFirst, vOut);
  getConnectedComponents(vSecond, vOut);
}

// Triangles that meet at a pinch go to different pieces: at each pinch in
// turn, its not yet dealt triangles go to pieces 0, 1, 2, ...; the rest
// forms one more piece. A pinch has at least two triangles, so at least
// two pieces are non-empty and each is smaller than the component.
void ConnectedComponent::dealOutAtPinches(const std::vector<Point2*>& vPinchVertices,
                                          std::vector<std::vector<Triangle2*> >& vOut) {
  std::unordered_map<Point2*, std::vector<Triangle2*> > mAtVertex;
  for (Triangle2* pT : vComponentT)
    for (int i = 0; i < 3; ++i) mAtVertex[pT->getCorner(i)].push_back(pT);
  std::unordered_set<const Triangle2*> sAssigned;
  std::vector<std::vector<Triangle2*> > vPieces;
  size_t pushbacks(0);
  for (Point2* pPinch : vPinchVertices) {
    size_t idx(0);
    for (Triangle2* pT : mAtVertex[pPinch]) {
      if (!sAssigned.insert(pT).second) continue;
      if (idx == vPieces.size()) vPieces.emplace_back();
      vPieces[idx++].push_back(pT);
      ++pushbacks;
    }
  }
  vPieces.emplace_back();
  for (Triangle2* pT : vComponentT)
    if (sAssigned.count(pT) == 0) {
      vPieces.back().push_back(pT);
      ++pushbacks;
    }
  VASK_ASSERT(pushbacks==vComponentT.size());
  for (std::vector<Triangle2*>& v : vPieces)
    if (!v.empty()) vOut.push_back(std::move(v));
}

} // namespace KIRO_VASK2D
