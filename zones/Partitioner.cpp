#include "zones/Partitioner.h"
#include "support/VaskAssert.h"
#include "zones/ConnectedComponent.h"
#include <unordered_set>

namespace KIRO_VASK2D {

// A queue of components: each either is simple and is finished, or splits
// into strictly smaller pieces that join the queue, so the loop ends.
Partitioner::Partitioner(const std::vector<Triangle2*>& vT_) : bAxisFlag(false) {
  std::unordered_set<const Triangle2*> sSeen(vT_.size());
  for (Triangle2* pT : vT_)
    if (sSeen.insert(pT).second) vT.push_back(pT);
  std::vector<std::vector<Triangle2*> > vvT;
  getConnectedComponents(vT, vvT);
  std::vector<ConnectedComponent*> vQueue;
  for (const std::vector<Triangle2*>& v : vvT) vQueue.push_back(new ConnectedComponent(v, &bAxisFlag));
  for (size_t head = 0; head < vQueue.size(); ++head) {
    ConnectedComponent* pCC(vQueue[head]);
    vQueue[head] = nullptr;
    vvT.clear();
    if (!pCC->splitIntoSimple(vvT)) {
      vCC.push_back(pCC);
      continue;
    }
    VASK_ASSERT(!vvT.empty());
    delete pCC;
    for (const std::vector<Triangle2*>& v : vvT)
      if (!v.empty()) vQueue.push_back(new ConnectedComponent(v, &bAxisFlag));
  }
  size_t splitSiz(0);
  const size_t orgSiz(vT.size());
  for (ConnectedComponent* pCC : vCC) splitSiz += pCC->size();
  VASK_ASSERT(splitSiz==orgSiz);
}

Partitioner::~Partitioner() {
  for (ConnectedComponent* pCC : vCC) delete pCC;
}

ConnectedComponent* Partitioner::getComponent(size_t i) const {
  VASK_ASSERT(i<vCC.size());
  return vCC[i];
}

} // namespace KIRO_VASK2D
