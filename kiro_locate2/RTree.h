#pragma once
// A static, bulk-loaded box tree: all objects first, then one build at the
// first query, in Hilbert order, perfectly packed. Internal to the library.
#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <vector>

namespace KIRO_LOCATE2 {

/** An object of the tree: the caller's pointer, its box, the number of its
 * addObject call, its Hilbert key and a tag the caller may use freely (it
 * saves the caller a visit to the object for a bit of information). */
struct RTreeLeaf {
  void* pObject;
  double xmin, ymin, xmax, ymax;
  uint32_t objectIndex;
  uint32_t key;
  uint32_t tag;
};

/** Boxes with closed comparisons: touching boxes meet. Objects are added
 * first; the first query builds the tree, after which adding breaks the
 * assertion (an object added later would silently be missing).
 *
 * Layout. The leaves lie in curve order in one array. The lowest level of
 * nodes covers runs of two leaves, every level above groups eight nodes of
 * the level below, so the tree is perfectly packed and implicit: the
 * children of node i of a level are nodes 8i to 8i+7 of the level below
 * (leaves 2i and 2i+1 at the lowest level), and a node is nothing but its
 * box. Node boxes are floats rounded outward: a query tests a node's eight
 * children in two cache lines, and a node box only ever holds more than
 * its doubles, so nothing is missed; leaves are tested on their exact boxes.
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
  void addObject(void* pObject, double xmin, double ymin, double xmax, double ymax, uint32_t tag = 0);

  /** Appends every leaf whose box meets the query box, in curve order;
   * builds the tree first if needed. */
  void query(double qMinX, double qMinY, double qMaxX, double qMaxY, std::vector<const RTreeLeaf*>& vOut);
  /** Calls visitor(const RTreeLeaf*) for the same leaves in the same order, without a result vector. */
  template <class Visitor>
  void visit(double qMinX, double qMinY, double qMaxX, double qMaxY, Visitor&& visitor) {
    if (!bBuilt) build();
    if (vLeaves.empty()) return;
    const Box query = {qMinX, qMinY, qMaxX, qMaxY};
    // The root's own box is not tested.
    visitNode(numLevels - 1, 0, query, visitor);
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

private:
  struct Box {
    double minX, minY, maxX, maxY;
  };
  /** A node's box, widened to floats. */
  struct NodeBox {
    float minX, minY, maxX, maxY;
  };
  static bool meetsNode(const Box& q, const NodeBox& b) {
    return q.maxX >= double(b.minX) && q.maxY >= double(b.minY) && double(b.maxX) >= q.minX &&
           double(b.maxY) >= q.minY;
  }
  static bool meetsLeaf(const Box& q, const RTreeLeaf& l) {
    return q.maxX >= l.xmin && q.maxY >= l.ymin && l.xmax >= q.minX && l.ymax >= q.minY;
  }
  template <class Visitor>
  void visitNode(int level, std::size_t i, const Box& q, Visitor& visitor) {
    if (level == 0) {
      const std::size_t end(std::min(2 * i + 2, vLeaves.size()));
      numBoxTests += end - 2 * i;
      for (std::size_t k = 2 * i; k < end; ++k)
        if (meetsLeaf(q, vLeaves[k])) visitor(&vLeaves[k]);
      return;
    }
    const std::size_t first(8 * i), end(std::min(first + 8, aLevelSize[level - 1]));
    const NodeBox* aBox(&vNodeBoxes[aLevelOffset[level - 1]]);
    numBoxTests += end - first;
    for (std::size_t c = first; c < end; ++c)
      if (meetsNode(q, aBox[c])) visitNode(level - 1, c, q, visitor);
  }
  void sortByKeys();
  void buildLevels();

  /** Levels of a tree of up to 2^31 leaves: 1 + ceil(30 / 3). */
  static constexpr int MAX_LEVELS = 12;

  std::vector<RTreeLeaf> vLeaves;  // in addObject order until the build, in curve order after it
  std::vector<NodeBox> vNodeBoxes; // level by level from the lowest; the root is the last
  std::size_t aLevelOffset[MAX_LEVELS];
  std::size_t aLevelSize[MAX_LEVELS];
  double xmin, ymin, xmax, ymax;   // extent of all objects
  bool bBuilt;
  int numLevels;
  unsigned long long numBoxTests;
};

} // namespace KIRO_LOCATE2
