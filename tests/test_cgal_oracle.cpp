// CGAL's Delaunay triangulation as an oracle: on points in general position
// the Delaunay triangulation is unique, so both must give the same triangles.
#include "Vask_2D.h"
#include "helpers/CgalCanonical.h"
#include "helpers/TestHelpers.h"
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <gtest/gtest.h>

using namespace KIRO_VASK2D;

namespace {

typedef CGAL::Exact_predicates_inexact_constructions_kernel K;
typedef CGAL::Delaunay_triangulation_2<K> CgalDt;

std::vector<vask_test::CanonicalTriangle> cgalTriangles(const std::vector<Point2>& vPoints) {
  std::vector<K::Point_2> vCgal;
  for (const Point2& p : vPoints) vCgal.emplace_back(p.x(), p.y());
  CgalDt dt;
  dt.insert(vCgal.begin(), vCgal.end());
  return vask_test::cgalCanonicalTriangles(dt);
}

} // namespace

TEST(CgalOracle, RandomPointSetsGiveTheSameTrianglesAsCgal) {
  for (size_t n : {3u, 5u, 16u, 100u, 1000u, 20000u}) {
    for (unsigned seed = 0; seed < 5; ++seed) {
      const std::vector<Point2> vPoints(vask_test::randomPoints(n, 1000 + seed));
      Vask_2D batch, single;
      batch.insert(vPoints);
      EXPECT_EQ(vask_test::canonicalTriangles(batch), cgalTriangles(vPoints)) << n << " " << seed;
      if (n <= 1000) {
        for (const Point2& p : vPoints) single.insert(p);
        EXPECT_EQ(vask_test::canonicalTriangles(single), cgalTriangles(vPoints)) << n << " " << seed;
      }
    }
  }
}

TEST(CgalOracle, NearDegenerateClustersGiveTheSameTrianglesAsCgal) {
  // Points a few ulps off a line and off a circle: orientation and in-circle
  // decisions that only exact arithmetic gets right, in general position.
  std::vector<Point2> vPoints;
  std::mt19937_64 gen(4);
  std::uniform_int_distribution<int> ulps(-3, 3);
  for (int i = 0; i < 300; ++i) {
    double y(0.1 * i);
    for (int k = ulps(gen); k != 0; k += (k > 0 ? -1 : 1)) y = std::nextafter(y, k > 0 ? 1e9 : -1e9);
    vPoints.emplace_back(0.1 * i + 1e-9 * (i % 7), y);
  }
  vPoints.emplace_back(5, 20);
  vPoints.emplace_back(20, -3);
  Vask_2D dt;
  dt.insert(vPoints);
  EXPECT_TRUE(vask_test::validate(dt).ok);
  EXPECT_EQ(vask_test::canonicalTriangles(dt), cgalTriangles(vPoints));
}
