// Batch insertion: vectors with and without handles, coordinate arrays,
// single insertion and several workers compared on degenerate and
// adversarial point sets, duplicates, fast mode, progress messages.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <map>

using namespace KIRO_VASK2D;
using vask_test::canonicalTriangles;
using vask_test::validate;

namespace {

enum Way { VECTOR, ARRAY, SINGLE, WORKERS };

/** Inserts the batches one after the other in one way; every handle must
 * hold its input point, equal points must share the handle of their first
 * occurrence across batches, and with area every handle has a triangle. */
::testing::AssertionResult insertBatches(Vask_2D& dt, const std::vector<std::vector<Point2>>& vBatches, Way way) {
  if (way == WORKERS) dt.setNumCPU(4);
  std::map<Point2, Point2*> mFirst;
  std::vector<Point2*> vAll;
  for (const std::vector<Point2>& vPoints : vBatches) {
    std::vector<Point2*> vHandles(vPoints.size(), nullptr);
    if (way == VECTOR || way == WORKERS) {
      dt.insert(vPoints, vHandles);
    } else if (way == ARRAY) {
      std::vector<double> vCoords;
      for (const Point2& p : vPoints)
        vCoords.insert(vCoords.end(), {p.x(), p.y()});
      dt.insert(static_cast<int>(vPoints.size()), vCoords.data(), vHandles.data());
    } else {
      for (std::size_t i = 0; i < vPoints.size(); ++i)
        vHandles[i] = dt.insert(vPoints[i]);
    }
    if (vHandles.size() != vPoints.size()) return ::testing::AssertionFailure() << "handle count";
    for (std::size_t i = 0; i < vPoints.size(); ++i) {
      if (vHandles[i] == nullptr || !(*vHandles[i] == vPoints[i]))
        return ::testing::AssertionFailure() << "handle " << i << " does not hold its point";
      Point2*& pFirst(mFirst[vPoints[i]]);
      if (pFirst == nullptr) pFirst = vHandles[i];
      if (pFirst != vHandles[i]) return ::testing::AssertionFailure() << "duplicate " << i << " got its own vertex";
    }
    vAll.insert(vAll.end(), vHandles.begin(), vHandles.end());
  }
  if (dt.numberOfPoints() != mFirst.size()) return ::testing::AssertionFailure() << "number of points";
  if (dt.hasArea())
    for (Point2* p : vAll)
      if (p->getIncidentTriangle() == nullptr || !p->getIncidentTriangle()->hasVertex(p))
        return ::testing::AssertionFailure() << "handle without its triangle";
  const vask_test::Validation v(validate(dt));
  if (!v.ok) return ::testing::AssertionFailure() << v.firstError << " (" << v.numErrors << ")";
  return ::testing::AssertionSuccess();
}

std::vector<Point2> scaled(const std::vector<Point2>& v, double sx, double sy, double dx = 0.0, double dy = 0.0) {
  std::vector<Point2> vOut;
  for (const Point2& p : v)
    vOut.emplace_back(sx * p.x() + dx, sy * p.y() + dy);
  return vOut;
}

std::vector<Point2> shuffled(std::vector<Point2> v, unsigned seed) {
  std::mt19937 gen(seed);
  std::shuffle(v.begin(), v.end(), gen);
  return v;
}

std::vector<Point2> joined(std::vector<Point2> a, const std::vector<Point2>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct Family {
  std::string name;
  std::vector<std::vector<Point2>> vBatches;
  bool bUnique; // general position: one Delaunay triangulation, whatever the order
};

std::vector<Family> families() {
  std::vector<Family> v;
  // Below and around the sizes where the batch switches from single insertion to the curve order.
  for (std::size_t n : {1u, 2u, 3u, 5u, 15u, 16u, 17u, 31u, 32u})
    for (unsigned seed = 0; seed < 12; ++seed)
      v.push_back({"random " + std::to_string(n), {vask_test::randomPoints(n, seed)}, true});
  const std::vector<Point2> vRandom(vask_test::randomPoints(20000, 77));
  v.push_back({"random, then more and half again",
               {vRandom,
                joined(vask_test::randomPoints(5000, 7), std::vector<Point2>(vRandom.begin(), vRandom.begin() + 2500))},
               true});
  v.push_back({"every point twice, then once more", {shuffled(joined(vRandom, vRandom), 1), vRandom}, true});
  v.push_back({"then three far points that double the box",
               {vask_test::randomPoints(5000, 8), {Point2(1e40, 1e40), Point2(-3e45, 2.0), Point2(0.5, -7e60)}},
               true});
  v.push_back({"grid 30, every cell cocircular", {shuffled(vask_test::gridPoints(30), 3)}, false});
  for (std::size_t n : {8u, 100u, 5000u})
    v.push_back({"circle and its centre", {vask_test::circlePoints(n, 0.25, -3.0, 7.0), {Point2(0.25, -3.0)}}, false});
  v.push_back(
      {"pythagorean circle, exactly cocircular",
       {{{5, 0}, {0, 5}, {-5, 0}, {0, -5}, {3, 4}, {4, 3}, {-3, 4}, {-4, 3}, {3, -4}, {4, -3}, {-3, -4}, {-4, -3}}},
       false});
  std::vector<Point2> vLine, vLineTwice;
  for (int i = 0; i < 2000; ++i)
    vLine.emplace_back(0.5 * i, 7.0 - 0.25 * i);
  for (int i = 0; i < 100; ++i)
    vLineTwice.emplace_back(i % 10, 2 * (i % 10));
  v.push_back({"collinear batch, then one point off the line", {vLine, {Point2(3.0, 3.0)}}, false});
  v.push_back({"collinear batch, then a batch off the line", {vLine, {Point2(3.0, 3.0), Point2(-1.0, 100.0)}}, false});
  v.push_back({"collinear duplicates, then a point off", {vLineTwice, {Point2(0, 1)}}, false});
  v.push_back({"collinear only", {scaled(vLine, 2, 0)}, false});
  v.push_back({"one point", {{Point2(2, 3)}}, false});
  v.push_back({"all equal", {std::vector<Point2>(2000, Point2(1e-150, -1e-150))}, false});
  std::vector<Point2> vUlp;
  for (int i = 0; i < 40; ++i)
    for (int j = 0; j < 40; ++j)
      vUlp.emplace_back(1.0 + i * 2.220446049250313e-16, 3.0 + j * 4.440892098500626e-16);
  v.push_back({"grid one ulp apart and a cloud",
               {joined(vUlp, scaled(vask_test::randomPoints(300, 3), 1e-13, 1e-13, 1.0, 3.0))},
               false});
  for (double scale : {1e150, 1e-150})
    v.push_back({"random and grid at an extreme magnitude",
                 {joined(scaled(vask_test::randomPoints(4000, 4), scale, scale, 0, -0.5 * scale),
                         scaled(vask_test::gridPoints(20), scale, scale, 2 * scale, 2 * scale))},
                 false});
  // All in one cell beside four far points: the workers' boxes all meet.
  v.push_back({"one tiny cell and four far corners",
               {joined(scaled(vask_test::randomPoints(20000, 41), 1e-9, 1e-9, 5.0, 5.0),
                       {Point2(-1e6, -1e6), Point2(1e6, -1e6), Point2(1e6, 1e6), Point2(-1e6, 1e6)})},
               false});
  std::vector<Point2> vGrid(vask_test::gridPoints(40));
  v.push_back({"grid with its first 100 points again",
               {joined(vGrid, std::vector<Point2>(vGrid.begin(), vGrid.begin() + 100))},
               false});
  return v;
}

} // namespace

TEST(Batch, MillionPointsFormAValidDelaunayTriangulation) {
  std::vector<Point2> vGrid(shuffled(vask_test::gridPoints(1000), 3));
  for (const std::vector<Point2>& vPoints : {vask_test::randomPoints(1000000, 2024), vGrid}) {
    Vask_2D dt;
    std::vector<Point2*> vHandles;
    dt.insert(vPoints, vHandles);
    ASSERT_EQ(vHandles.size(), vPoints.size());
    EXPECT_EQ(dt.numberOfPoints(), 1000000u);
    for (size_t i = 0; i < vPoints.size(); i += 997)
      EXPECT_EQ(*vHandles[i], vPoints[i]);
    // The independent check samples the empty-circle test (and counts
    // 2n - 2 - h triangles); the library's own check tests every edge.
    const vask_test::Validation v(validate(dt, true, 200000));
    EXPECT_TRUE(v.ok) << v.firstError;
    EXPECT_TRUE(dt.checkValidity(true, "million"));
  }
}

// Every family goes in as vectors with handles, as coordinate arrays, point
// by point and through four workers: each result is a valid Delaunay
// triangulation with the right handles; the array form gives exactly the
// vector form's triangles, and on points in general position so do single
// insertion and the workers.
TEST(Batch, EveryWayOfInsertingGivesTheSameValidMeshOnAdversarialFamilies) {
  for (const Family& family : families()) {
    SCOPED_TRACE(family.name);
    Vask_2D vec, arr, single, workers;
    testing::internal::CaptureStdout(); // massive duplicates are reported
    ASSERT_TRUE(insertBatches(vec, family.vBatches, VECTOR));
    ASSERT_TRUE(insertBatches(arr, family.vBatches, ARRAY));
    ASSERT_TRUE(insertBatches(single, family.vBatches, SINGLE));
    ASSERT_TRUE(insertBatches(workers, family.vBatches, WORKERS));
    testing::internal::GetCapturedStdout();
    const std::vector<vask_test::CanonicalTriangle> vExpected(canonicalTriangles(vec));
    EXPECT_EQ(canonicalTriangles(arr), vExpected);
    if (family.bUnique) {
      EXPECT_EQ(canonicalTriangles(single), vExpected);
      EXPECT_EQ(canonicalTriangles(workers), vExpected);
    }
  }
}

TEST(Batch, NonFinitePointsGetNullHandlesAndTheRestGoesIn) {
  const double nan(std::numeric_limits<double>::quiet_NaN()), inf(std::numeric_limits<double>::infinity());
  std::vector<Point2> vPoints(vask_test::randomPoints(3000, 31));
  vPoints[3] = Point2(nan, 0.5);
  vPoints[2000] = Point2(0.5, inf);
  vPoints.emplace_back(-inf, nan);
  std::vector<Point2> vFinite;
  for (std::size_t i = 0; i < vPoints.size(); ++i)
    if (i != 3 && i != 2000 && i + 1 != vPoints.size()) vFinite.push_back(vPoints[i]);
  Vask_2D reference;
  reference.insert(vFinite);
  for (Way way : {VECTOR, ARRAY, WORKERS}) {
    SCOPED_TRACE(way);
    Vask_2D dt;
    if (way == WORKERS) dt.setNumCPU(4);
    std::vector<Point2*> vHandles(vPoints.size(), nullptr);
    std::vector<double> vCoords;
    for (const Point2& p : vPoints)
      vCoords.insert(vCoords.end(), {p.x(), p.y()});
    testing::internal::CaptureStdout();
    if (way == ARRAY)
      dt.insert(static_cast<int>(vPoints.size()), vCoords.data(), vHandles.data());
    else
      dt.insert(vPoints, vHandles);
    const std::string out(testing::internal::GetCapturedStdout());
    if (way == VECTOR) EXPECT_NE(out.find("[Vask2D-Message] Vask_2D::insert(vector), WARNING: "), std::string::npos);
    ASSERT_EQ(vHandles.size(), vPoints.size());
    for (std::size_t i = 0; i < vPoints.size(); ++i) {
      if (i == 3 || i == 2000 || i + 1 == vPoints.size())
        EXPECT_EQ(vHandles[i], nullptr) << i;
      else
        EXPECT_EQ(*vHandles[i], vPoints[i]) << i;
    }
    EXPECT_EQ(canonicalTriangles(dt), canonicalTriangles(reference));
  }
  Vask_2D noHandles;
  testing::internal::CaptureStdout();
  noHandles.insert(vPoints);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(noHandles.numberOfPoints(), vFinite.size());
}

TEST(Batch, EmptyInputChangesNothing) {
  Vask_2D dt;
  std::vector<Point2> vEmpty;
  std::vector<Point2*> vHandles(3, nullptr);
  dt.insert(vEmpty, vHandles);
  dt.insert(vEmpty);
  EXPECT_TRUE(vHandles.empty());
  dt.insert(vask_test::randomPoints(10, 1));
  const std::vector<vask_test::CanonicalTriangle> vBefore(canonicalTriangles(dt));
  double coords[2] = {5, 5};
  dt.insert(0, coords, vHandles.data());
  dt.insert(vEmpty);
  EXPECT_EQ(dt.numberOfPoints(), 10u);
  EXPECT_EQ(canonicalTriangles(dt), vBefore);
}

TEST(Batch, FastModeGivesAValidTriangulation) {
  const std::vector<Point2> vPoints(vask_test::randomPoints(50000, 91));
  Vask_2D exact, fast;
  fast.setFastMode(true);
  exact.insert(vPoints);
  fast.insert(vPoints);
  EXPECT_VALID(fast);
  EXPECT_EQ(canonicalTriangles(fast), canonicalTriangles(exact));
  // Cocircular input: fast mode leaves such cells unflipped, which is valid.
  Vask_2D fastGrid;
  fastGrid.setFastMode(true);
  fastGrid.insert(shuffled(vask_test::gridPoints(60), 5));
  EXPECT_VALID(fastGrid);
  // Near-cocircular input: validity holds; an empty-circle difference may
  // only appear where the exact test says "on the circle" or nearly so.
  Vask_2D fastCircle;
  fastCircle.setFastMode(true);
  fastCircle.insert(vask_test::circlePoints(2000, 0.1, 0.2, 3.0));
  EXPECT_TRUE(fastCircle.checkValidity(false, "fast circle"));
  EXPECT_TRUE(validate(fastCircle, false).ok);
}

namespace {
struct ProgressRecorder : public MsgBase {
  std::vector<double> vValues;
  std::vector<std::string> vNames;
  void update(MsgType msgType, char const* name, double value) override {
    EXPECT_EQ(msgType, MSG_PROGRESS);
    vValues.push_back(value);
    vNames.push_back(name);
  }
};
} // namespace

TEST(Batch, ProgressReachesSubscribersOncePerRunAndEndsAtOne) {
  ProgressRecorder rec;
  Vask_2D dt;
  dt.subscribe(MSG_PROGRESS, &rec);
  dt.subscribe(MSG_PROGRESS, &rec); // subscribing twice changes nothing
  std::vector<Point2> vPoints(vask_test::randomPoints(100000, 1));
  vPoints.insert(vPoints.end(), vPoints.begin(), vPoints.begin() + 5000); // duplicates fall short of the total
  dt.insert(vPoints);
  ASSERT_FALSE(rec.vValues.empty());
  EXPECT_EQ(rec.vNames.front(), "insert vertices");
  EXPECT_LE(rec.vValues.size(), 102u);
  EXPECT_EQ(std::count(rec.vValues.begin(), rec.vValues.end(), 1.0), 1);
  EXPECT_EQ(rec.vValues.back(), 1.0);
  EXPECT_TRUE(std::is_sorted(rec.vValues.begin(), rec.vValues.end()));
  // Single insertions and empty batches send nothing.
  rec.vValues.clear();
  dt.insert(Point2(0.5, 0.25));
  dt.insert(std::vector<Point2>());
  EXPECT_TRUE(rec.vValues.empty());
  // The array form runs under its own title.
  std::vector<double> vCoords;
  for (const Point2& p : vask_test::randomPoints(5000, 2))
    vCoords.insert(vCoords.end(), {p.x() + 2, p.y()});
  std::vector<Point2*> vHandles(5000);
  rec.vNames.clear();
  dt.insert(5000, vCoords.data(), vHandles.data());
  EXPECT_EQ(rec.vNames.front(), "insert");
  EXPECT_EQ(rec.vValues.back(), 1.0);
  rec.vValues.clear();
  dt.unsubscribe(MSG_PROGRESS, &rec);
  dt.unsubscribe(MSG_PROGRESS, &rec); // unknown now: ignored
  dt.insert(vask_test::randomPoints(3000, 3));
  EXPECT_TRUE(rec.vValues.empty());
}
