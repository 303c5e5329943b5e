#pragma once
// A static, bulk-loaded box tree: all objects first, then one build at the
// first query, in Hilbert order, perfectly packed. Internal to the library.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KIRO_LOCATE2 {

/** An object of the tree: the caller's pointer, its box, the number of its
 * addObject call and its Hilbert key. */
struct RTreeLeaf {
  void* pObject;
  double xmin, ymin, xmax, ymax;
  uint32_t objectIndex;
  uint32_t key;
};

/** Boxes with closed comparisons: touching boxes meet. Objects are added
 * first; the first query builds the tree, after which adding breaks the
 * assertion (an object added later would silently be missing).
 *
 * Layout: the leaves in curve order in one array; the lowest level of
 * nodes covers runs of two leaves, every level above groups eight nodes of
 * the level below. Each level lies contiguous in curve order, so a node's
 * children are consecutive and neighbouring nodes cover neighbouring space.
 *
 * Keys. A fixed grid over the whole extent would put almost everything into
 * one cell as soon as one object lies far away, and the tree would lose all
 * locality. So every run of equal keys longer than a few leaves is keyed
 * again over the extent of its own centres, until the keys differ or the
 * centres coincide. Equal keys keep the order of addObject, which makes the
 * tree, and the order of every query result, the same in every run. */
class RTree {
public:
  RTree();
  RTree(const RTree&) = delete;
  RTree& operator=(const RTree&) = delete;

  /** Requires "xmin<=xmax" and "ymin<=ymax" (so no NaN) and a tree not yet built. */
  void addObject(void* pObject, double xmin, double ymin, double xmax, double ymax);

  /** Appends every leaf whose box meets the query box, in curve order;
   * builds the tree first if needed. */
  void query(double qMinX, double qMinY, double qMaxX, double qMaxY, std::vector<const RTreeLeaf*>& vOut);
  /** Calls visitor(const RTreeLeaf*) for the same leaves in the same order, without a result vector. */
  template <class Visitor>
  void visit(double qMinX, double qMinY, double qMaxX, double qMaxY, Visitor&& visitor) {
    if (!bBuilt) build();
    if (vNodes.empty()) return;
    const Box query = {qMinX, qMinY, qMaxX, qMaxY};
    visitNode(int(vNodes.size()) - 1, query, visitor);
  }

  /** Builds the tree now; later calls do nothing. */
  void build();
  bool isBuilt() const { return bBuilt; }
  uint32_t getNumObjects() const { return uint32_t(vLeaves.size()); }
  /** The leaves in curve order; valid after the build. */
  const std::vector<RTreeLeaf>& getLeaves() const { return vLeaves; }
  /** Box tests of all queries so far: the work of the queries, free of timing noise. */
  unsigned long long getNumBoxTests() const { return numBoxTests; }
  /** Number of levels of nodes, 0 for an empty tree. */
  int getNumLevels() const { return numLevels; }

  /** Marker of start and end in nodes above the lowest level. */
  static constexpr int NOT_LOWEST = 0x7fffffff;

private:
  struct Box {
    double minX, minY, maxX, maxY;
  };
  struct Node {
    double minX, minY, maxX, maxY;
    int start, end;        // range of vLeaves at the lowest level, NOT_LOWEST above
    int firstChild, numChildren; // consecutive children in vNodes above the lowest level
    int parent;            // -1 at the root
  };
  template <class B>
  static bool meets(const Box& q, const B& b) {
    return q.maxX >= b.minX && q.maxY >= b.minY && b.maxX >= q.minX && b.maxY >= q.minY;
  }
  static bool meetsLeaf(const Box& q, const RTreeLeaf& l) {
    return q.maxX >= l.xmin && q.maxY >= l.ymin && l.xmax >= q.minX && l.ymax >= q.minY;
  }
  template <class Visitor>
  void visitNode(int nodeIndex, const Box& q, Visitor& visitor) {
    const Node& node(vNodes[std::size_t(nodeIndex)]);
    if (node.start != NOT_LOWEST) {
      numBoxTests += unsigned(node.end - node.start);
      for (int i = node.start; i < node.end; ++i)
        if (meetsLeaf(q, vLeaves[std::size_t(i)])) visitor(&vLeaves[std::size_t(i)]);
      return;
    }
    numBoxTests += unsigned(node.numChildren);
    for (int c = node.firstChild; c < node.firstChild + node.numChildren; ++c)
      if (meets(q, vNodes[std::size_t(c)])) visitNode(c, q, visitor);
  }
  void sortByKeys();
  void buildLevels();

  std::vector<RTreeLeaf> vLeaves; // in addObject order until the build, in curve order after it
  std::vector<Node> vNodes;       // level by level from the lowest; the root is the last node
  double xmin, ymin, xmax, ymax;  // extent of all objects
  bool bBuilt;
  int numLevels;
  unsigned long long numBoxTests;
};

} // namespace KIRO_LOCATE2
