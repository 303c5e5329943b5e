// Round trips of the rewiring primitives: each change of links is undone by
// its inverse, on every triangle or edge of meshes that include vertices of
// degree 3 (where one outer triangle borders two rewritten ones), and the
// mesh must come back triangle for triangle, with valid links in between.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "core/MeshRewiring.h"
#include "helpers/TestHelpers.h"
#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

// Small meshes with integer coordinates, so that edge midpoints are exact.
std::vector<std::vector<Point2>> meshFamilies() {
  std::vector<std::vector<Point2>> vFamilies;
  vFamilies.push_back({Point2(0, 0), Point2(4, 0), Point2(0, 4), Point2(1, 1)}); // a corner of degree 3
  for (unsigned seed = 1; seed <= 6; ++seed) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> coord(0, seed < 4 ? 8 : 1000);
    std::vector<Point2> v;
    for (int i = 0; i < 25; ++i)
      v.emplace_back(coord(gen), coord(gen));
    vFamilies.push_back(v);
  }
  return vFamilies;
}

std::vector<Point2*> verticesOf(Vask_2D& dt) {
  std::vector<Point2*> v;
  dt.getVertexPointers(v);
  return v;
}

// Topology, orientation and tiling of the hull; the empty circle is not
// asked, since a primitive alone does not keep it.
void expectLinksValid(Vask_2D& dt, std::vector<Point2*> vVertices, const std::string& what) {
  std::vector<Triangle2*> vT;
  dt.getTrianglePointers(vT);
  const vask_test::Validation v(vask_test::validate(vT, vVertices, false));
  EXPECT_TRUE(v.ok) << what << ": " << v.firstError;
}

// Runs body(dt, dt2, create, vBefore) on a triangulation of each family and
// checks the mesh at the end; body compares with vBefore after each round trip.
template <class Body> void forEachMesh(Body body) {
  for (const std::vector<Point2>& vPoints : meshFamilies()) {
    Vask_2D dt;
    dt.insert(vPoints);
    Dt2* pDt2(dt.getImpl());
    auto create = [pDt2](Point2* p0, Point2* p1, Point2* p2) { return pDt2->createTriangle(p0, p1, p2); };
    std::vector<Triangle2*> vT;
    dt.getTrianglePointers(vT);
    body(dt, *pDt2, create, vT, vask_test::canonicalTriangles(dt));
    EXPECT_VALID(dt);
  }
}

} // namespace

TEST(Rewiring, FlipTwiceRestoresEveryConvexEdge) {
  forEachMesh([](Vask_2D& dt, Dt2& dt2, auto, const std::vector<Triangle2*>& vT,
                 const std::vector<vask_test::CanonicalTriangle>& vBefore) {
    for (Triangle2* pT : vT) {
      for (int i = 0; i < 3; ++i) {
        if (!dt2.canBeFlipped(pT, i)) continue;
        flipEdge(pT, i);
        expectLinksValid(dt, verticesOf(dt), "after one flip");
        // The new diagonal is edge 1 of pT.
        flipEdge(pT, 1);
        ASSERT_EQ(vask_test::canonicalTriangles(dt), vBefore);
      }
    }
  });
}

TEST(Rewiring, TriangleSplitThenMergeRestoresTheMesh) {
  forEachMesh([](Vask_2D& dt, Dt2& dt2, auto create, const std::vector<Triangle2*>& vT,
                 const std::vector<vask_test::CanonicalTriangle>& vBefore) {
    std::vector<Triangle2*> vStack, vDead;
    for (Triangle2* pT : vT) {
      const Point2 a(*pT->getCorner(0)), b(*pT->getCorner(1)), c(*pT->getCorner(2));
      Point2 p((a.x() + b.x() + c.x()) / 3, (a.y() + b.y() + c.y()) / 3);
      if (vask_test::exactOrientation(a, b, p) <= 0 || vask_test::exactOrientation(b, c, p) <= 0 ||
          vask_test::exactOrientation(c, a, p) <= 0)
        continue;
      splitTriangle13(pT, &p, create, vStack);
      vStack.clear();
      std::vector<Point2*> vVertices(verticesOf(dt));
      vVertices.push_back(&p);
      expectLinksValid(dt, vVertices, "after a 1-to-3 split");
      // pT = (p, a, b) and its fan continues counter-clockwise across edge 1.
      Triangle2* aFan[3] = {pT, pT->getOppositeTriangle(1), pT->getOppositeTriangle(1)->getOppositeTriangle(1)};
      vDead.clear();
      mergeFan3(&p, aFan, vDead);
      dt2.returnFreshTriangles(vDead);
      ASSERT_EQ(vask_test::canonicalTriangles(dt), vBefore);
    }
  });
}

TEST(Rewiring, EdgeSplitThenEarAndMergeRestoresTheMesh) {
  forEachMesh([](Vask_2D& dt, Dt2& dt2, auto create, const std::vector<Triangle2*>& vT,
                 const std::vector<vask_test::CanonicalTriangle>& vBefore) {
    std::vector<Triangle2*> vStack, vDead;
    for (Triangle2* pT : vT) {
      for (int ith = 0; ith < 3; ++ith) {
        if (pT->getOppositeTriangle(ith) == nullptr) continue;
        const Point2* B(pT->getCorner(incIndexBy1(ith)));
        const Point2* C(pT->getCorner(incIndexBy2(ith)));
        Point2 p((B->x() + C->x()) / 2, (B->y() + C->y()) / 2);
        splitEdge24(pT, &p, ith, create, vStack);
        vStack.clear();
        std::vector<Point2*> vVertices(verticesOf(dt));
        vVertices.push_back(&p);
        expectLinksValid(dt, vVertices, "after a 2-to-4 split");
        // pT = (p, C, A): cutting the ear (C, A, B) restores the edge B-C,
        // and the three triangles left at p merge into (B, D, C).
        Triangle2* pN(pT->getOppositeTriangle(1));
        cutEar(&p, pT, 0, pN);
        Triangle2* aFan[3] = {pN, nullptr, nullptr};
        for (int k = 1; k < 3; ++k)
          aFan[k] = aFan[k - 1]->getOppositeTriangle(incIndexBy1(aFan[k - 1]->getIntraTriangleIndex(&p)));
        vDead.clear();
        mergeFan3(&p, aFan, vDead);
        dt2.returnFreshTriangles(vDead);
        ASSERT_EQ(vask_test::canonicalTriangles(dt), vBefore);
      }
    }
  });
}
