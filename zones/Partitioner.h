#pragma once
// Cuts a triangle set into simple pieces: edge-connected, each with one
// closed border that touches no vertex twice, so that each border is a
// polygon. Internal.
#include <cstddef>
#include <vector>

namespace KIRO_VASK2D {

class ConnectedComponent;
class Triangle2;

class Partitioner {
public:
  /** Does all the work. A triangle listed twice counts once. */
  explicit Partitioner(const std::vector<Triangle2*>& vT);
  ~Partitioner();
  Partitioner(const Partitioner&) = delete;
  Partitioner& operator=(const Partitioner&) = delete;

  size_t size() const { return vCC.size(); }
  ConnectedComponent* getComponent(size_t i) const;

private:
  std::vector<Triangle2*> vT;
  std::vector<ConnectedComponent*> vCC; // owned; all simple
  bool bAxisFlag;                       // alternates the cut axis within this partitioning
};

} // namespace KIRO_VASK2D
