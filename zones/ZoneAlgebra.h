#pragma once
// The evaluation of a result zone for one query. The recipe is a graph of
// zones: a result reads two inputs, which may be results again, and one zone
// may be read many times (zoneUnion(r, r), or a result reused at several
// depths). Each zone of the graph is evaluated once per query, into a list
// and a mark per triangle slot, so every membership test is one byte read
// and a set operation costs its two input lists, with no sort and no
// search. Everything lives in this object, made per query.
#include <cstddef>
#include <memory>
#include <unordered_map>
#include <vector>

namespace KIRO_VASK2D {

class Dt2;
class Triangle2;
class Zone2;
class ZoneFlood;

class ZoneAlgebra {
public:
  explicit ZoneAlgebra(Dt2* pDt2);
  ~ZoneAlgebra();
  ZoneAlgebra(const ZoneAlgebra&) = delete;
  ZoneAlgebra& operator=(const ZoneAlgebra&) = delete;

  /** Appends the triangles of the result zone pRoot to vOut, each once, and
   * marks them in pRootMarks unless it is null. A recipe that reads itself (possible only by
   * assigning a result to one of its own inputs) gives nothing, with a
   * warning. */
  void evaluate(const Zone2* pRoot, std::vector<Triangle2*>& vOut, ZoneFlood* pRootMarks);

private:
  struct Node {
    const Zone2* pZone;
    std::unique_ptr<ZoneFlood> pOwnMarks; // null for the root, which uses the caller's
    ZoneFlood* pMarks;                    // null only for a root whose caller needs no marks
    std::vector<Triangle2*> vT;
    size_t numReadersLeft; // readers not yet evaluated: at 0 the list and marks go
    bool bExpanded;
    bool bDone;
  };
  size_t nodeOf(const Zone2* pZone);
  bool buildOrder(const Zone2* pRoot, std::vector<size_t>& vOrder);
  void combine(Node& node, Node& in0, const Node& in1);
  void release(Node& node);

  Dt2* pDt2;
  std::vector<Node> vNodes;
  std::unordered_map<const Zone2*, size_t> mNodeOf;
};

} // namespace KIRO_VASK2D
