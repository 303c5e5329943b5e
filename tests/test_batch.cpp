// Batch insertion: vectors with and without handles, coordinate arrays,
// degenerate and adversarial point sets, duplicates, the fake-box path of
// several workers, fast mode, progress messages.
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <set>

using namespace KIRO_VASK2D;
using vask_test::validate;

namespace {

// Triangles of points in general position: 2 n - 2 - h, h counted on the
// hull of the input, computed independently.
unsigned expectedTriangles(Vask_2D& dt) {
  std::vector<Point2*> vHull;
  dt.getConvexHull(true, vHull);
  return 2 * dt.numberOfPoints() - 2 - static_cast<unsigned>(vHull.size());
}

} // namespace

TEST(Batch, MillionUniformPointsFormAValidDelaunayTriangulation) {
  const std::vector<Point2> vPoints(vask_test::randomPoints(1000000, 2024));
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  ASSERT_EQ(vHandles.size(), vPoints.size());
  EXPECT_EQ(dt.numberOfPoints(), 1000000u);
  EXPECT_EQ(dt.numberOfTriangles(), expectedTriangles(dt));
  for (size_t i = 0; i < vPoints.size(); i += 997) EXPECT_EQ(*vHandles[i], vPoints[i]);
  // The independent check samples the empty-circle test; the library's own
  // check tests every edge.
  const vask_test::Validation v(validate(dt, true, 300000));
  EXPECT_TRUE(v.ok) << v.firstError;
  EXPECT_TRUE(dt.checkValidity(true, "million"));
}

TEST(Batch, GridOfAMillionCocircularCellsIsValid) {
  std::vector<Point2> vPoints(vask_test::gridPoints(1000));
  std::mt19937 gen(3);
  std::shuffle(vPoints.begin(), vPoints.end(), gen);
  Vask_2D dt;
  dt.insert(vPoints);
  EXPECT_EQ(dt.numberOfPoints(), 1000000u);
  EXPECT_EQ(dt.numberOfTriangles(), 2u * 999u * 999u);
  const vask_test::Validation v(validate(dt, true, 100000));
  EXPECT_TRUE(v.ok) << v.firstError;
  EXPECT_TRUE(dt.checkValidity(true, "grid"));
}

TEST(Batch, SmallGridsAreFullyCheckedInEveryOrder) {
  std::vector<Point2> vPoints(vask_test::gridPoints(30));
  for (unsigned seed = 0; seed < 4; ++seed) {
    std::mt19937 gen(seed);
    if (seed > 0) std::shuffle(vPoints.begin(), vPoints.end(), gen);
    Vask_2D dt;
    dt.insert(vPoints);
    EXPECT_VALID(dt);
    EXPECT_EQ(dt.numberOfTriangles(), 2u * 29u * 29u);
  }
}

TEST(Batch, PointsOnACircleAndItsCentre) {
  for (size_t n : {8u, 100u, 5000u}) {
    std::vector<Point2> vPoints(vask_test::circlePoints(n, 0.25, -3.0, 7.0));
    Vask_2D dt;
    dt.insert(vPoints);
    EXPECT_VALID(dt);
    dt.insert(Point2(0.25, -3.0));
    EXPECT_VALID(dt);
  }
  // Exactly cocircular: the axis points and the diagonal points of a
  // Pythagorean circle x^2 + y^2 = 25.
  std::vector<Point2> vExact = {{5, 0}, {0, 5}, {-5, 0}, {0, -5}, {3, 4}, {4, 3}, {-3, 4}, {-4, 3},
                                {3, -4}, {4, -3}, {-3, -4}, {-4, -3}};
  Vask_2D dt;
  dt.insert(vExact);
  EXPECT_VALID(dt);
  EXPECT_EQ(dt.numberOfTriangles(), 10u);
}

TEST(Batch, CollinearBatchThenOnePointOffTheLine) {
  std::vector<Point2> vLine;
  for (int i = 0; i < 2000; ++i) vLine.emplace_back(0.5 * i, 7.0 - 0.25 * i);
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  dt.insert(vLine, vHandles);
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_EQ(dt.numberOfPoints(), 2000u);
  EXPECT_FALSE(dt.hasArea());
  Point2* pOff(dt.insert(Point2(3.0, 3.0)));
  ASSERT_NE(pOff, nullptr);
  EXPECT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfPoints(), 2001u);
  EXPECT_EQ(dt.numberOfTriangles(), 1999u);
  EXPECT_VALID(dt);
  for (Point2* p : vHandles) EXPECT_NE(p->getIncidentTriangle(), nullptr);
  // The same with a second batch bringing the point off the line.
  Vask_2D dt2;
  dt2.insert(vLine);
  std::vector<Point2> vMore = {Point2(3.0, 3.0), Point2(-1.0, 100.0)};
  dt2.insert(vMore);
  EXPECT_VALID(dt2);
  EXPECT_EQ(dt2.numberOfPoints(), 2002u);
}

TEST(Batch, EveryPointTwiceGivesEqualHandlesAndTheSameTriangles) {
  const std::vector<Point2> vOnce(vask_test::randomPoints(20000, 77));
  std::vector<Point2> vTwice(vOnce);
  vTwice.insert(vTwice.end(), vOnce.begin(), vOnce.end());
  std::mt19937 gen(1);
  std::shuffle(vTwice.begin(), vTwice.end(), gen);
  Vask_2D once, twice;
  once.insert(vOnce);
  std::vector<Point2*> vHandles;
  twice.insert(vTwice, vHandles);
  ASSERT_EQ(vHandles.size(), vTwice.size());
  EXPECT_EQ(twice.numberOfPoints(), once.numberOfPoints());
  EXPECT_EQ(twice.numberOfTriangles(), once.numberOfTriangles());
  EXPECT_EQ(vask_test::canonicalTriangles(twice), vask_test::canonicalTriangles(once));
  EXPECT_VALID(twice);
  std::map<std::pair<double, double>, Point2*> mSeen;
  for (size_t i = 0; i < vTwice.size(); ++i) {
    ASSERT_NE(vHandles[i], nullptr);
    EXPECT_EQ(*vHandles[i], vTwice[i]);
    EXPECT_NE(vHandles[i]->getIncidentTriangle(), nullptr);
    Point2*& pFirst(mSeen[std::make_pair(vTwice[i].x(), vTwice[i].y())]);
    if (pFirst == nullptr) pFirst = vHandles[i];
    EXPECT_EQ(vHandles[i], pFirst);
  }
  // A second batch of the same points returns the existing handles.
  std::vector<Point2*> vAgain;
  twice.insert(vOnce, vAgain);
  for (size_t i = 0; i < vOnce.size(); ++i) EXPECT_EQ(vAgain[i], mSeen[std::make_pair(vOnce[i].x(), vOnce[i].y())]);
  EXPECT_EQ(twice.numberOfPoints(), once.numberOfPoints());
}

TEST(Batch, DuplicatesInACollinearBatchLeaveOnlyTheFirstActive) {
  std::vector<Point2> vPoints;
  for (int i = 0; i < 100; ++i) vPoints.emplace_back(i % 10, 2 * (i % 10));
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  EXPECT_EQ(dt.numberOfPoints(), 10u);
  for (size_t i = 10; i < vPoints.size(); ++i) EXPECT_EQ(vHandles[i], vHandles[i % 10]);
  dt.insert(Point2(0, 1));
  EXPECT_EQ(dt.numberOfPoints(), 11u);
  EXPECT_VALID(dt);
}

TEST(Batch, PointsOneUlpApartAndExtremeMagnitudes) {
  std::vector<Point2> vUlp;
  for (int i = 0; i < 40; ++i)
    for (int j = 0; j < 40; ++j) vUlp.emplace_back(1.0 + i * 2.220446049250313e-16, 3.0 + j * 4.440892098500626e-16);
  for (const Point2& p : vask_test::randomPoints(300, 3)) vUlp.emplace_back(1.0 + p.x() * 1e-13, 3.0 + p.y() * 1e-13);
  Vask_2D dt;
  dt.insert(vUlp);
  EXPECT_VALID(dt);
  std::set<std::pair<double, double> > sDistinct;
  for (const Point2& p : vUlp) sDistinct.insert(std::make_pair(p.x(), p.y()));
  EXPECT_EQ(dt.numberOfPoints(), sDistinct.size());
  for (double scale : {1e150, 1e-150}) {
    std::vector<Point2> vPoints;
    for (const Point2& p : vask_test::randomPoints(4000, 4)) vPoints.emplace_back(p.x() * scale, (p.y() - 0.5) * scale);
    for (int i = 0; i < 20; ++i)
      for (int j = 0; j < 20; ++j) vPoints.emplace_back((2.0 + i) * scale, (2.0 + j) * scale);
    Vask_2D big;
    big.insert(vPoints);
    const vask_test::Validation v(validate(big));
    EXPECT_TRUE(v.ok) << scale << ": " << v.firstError;
    EXPECT_TRUE(big.checkValidity(true, "magnitude"));
  }
}

TEST(Batch, FarPointDoublesTheBoxManyTimesAndKeepsHandles) {
  Vask_2D dt;
  std::vector<Point2> vFirst(vask_test::randomPoints(5000, 8));
  std::vector<Point2*> vHandles;
  dt.insert(vFirst, vHandles);
  std::vector<Point2> vFar = {Point2(1e40, 1e40), Point2(-3e45, 2.0), Point2(0.5, -7e60)};
  std::vector<Point2*> vFarHandles;
  dt.insert(vFar, vFarHandles);
  for (size_t i = 0; i < vFirst.size(); ++i) {
    EXPECT_EQ(*vHandles[i], vFirst[i]);
    EXPECT_NE(vHandles[i]->getIncidentTriangle(), nullptr);
  }
  EXPECT_VALID(dt);
  EXPECT_EQ(dt.numberOfPoints(), 5003u);
}

TEST(Batch, SingleInsertionsInterleavedWithBatches) {
  Vask_2D dt;
  std::vector<Point2> vAll;
  for (unsigned round = 0; round < 6; ++round) {
    std::vector<Point2> vBatch(vask_test::randomPoints(3000, 100 + round));
    for (Point2& p : vBatch) p = Point2(p.x() + round, p.y() * (round + 1));
    dt.insert(vBatch);
    vAll.insert(vAll.end(), vBatch.begin(), vBatch.end());
    for (const Point2& p : vask_test::randomPoints(200, 200 + round)) {
      const Point2 q(p.x() * 8 - 1, p.y() * 9 - 2);
      dt.insert(q);
      vAll.push_back(q);
    }
    const vask_test::Validation v(validate(dt));
    ASSERT_TRUE(v.ok) << "round " << round << ": " << v.firstError;
  }
  EXPECT_EQ(dt.numberOfPoints(), vAll.size());
  // The same points in one batch give the same triangulation.
  Vask_2D one;
  one.insert(vAll);
  EXPECT_EQ(vask_test::canonicalTriangles(one), vask_test::canonicalTriangles(dt));
}

TEST(Batch, FifteenAndSixteenPointsMatchSingleInsertion) {
  for (size_t n : {15u, 16u, 17u, 31u, 32u}) {
    for (unsigned seed = 0; seed < 20; ++seed) {
      const std::vector<Point2> vPoints(vask_test::randomPoints(n, seed));
      Vask_2D batch, single;
      batch.insert(vPoints);
      for (const Point2& p : vPoints) single.insert(p);
      EXPECT_VALID(batch);
      EXPECT_EQ(vask_test::canonicalTriangles(batch), vask_test::canonicalTriangles(single)) << n << " " << seed;
      EXPECT_EQ(batch.numberOfTriangles(), expectedTriangles(batch));
    }
  }
}

TEST(Batch, GeneralPositionCountsAreTwoNMinusTwoMinusH) {
  for (size_t n : {3u, 4u, 10u, 100u, 1000u, 50000u}) {
    Vask_2D dt;
    dt.insert(vask_test::randomPoints(n, 42 + static_cast<unsigned>(n)));
    std::vector<Point2*> vHull;
    dt.getConvexHull(true, vHull);
    EXPECT_EQ(dt.numberOfTriangles(), 2 * n - 2 - vHull.size()) << n;
    EXPECT_VALID(dt);
  }
}

TEST(Batch, CoordinateArrayWithHandlesInInputOrder) {
  const std::vector<Point2> vPoints(vask_test::randomPoints(3000, 21));
  std::vector<double> vCoords;
  for (const Point2& p : vPoints) {
    vCoords.push_back(p.x());
    vCoords.push_back(p.y());
  }
  vCoords.push_back(vPoints[17].x()); // a duplicate at the end
  vCoords.push_back(vPoints[17].y());
  const int n(static_cast<int>(vCoords.size() / 2));
  std::vector<Point2*> vHandles(n, nullptr);
  Vask_2D dt;
  dt.insert(n, vCoords.data(), vHandles.data());
  for (int i = 0; i < n; ++i) {
    ASSERT_NE(vHandles[i], nullptr);
    EXPECT_EQ(vHandles[i]->x(), vCoords[2 * i]);
    EXPECT_EQ(vHandles[i]->y(), vCoords[2 * i + 1]);
  }
  EXPECT_EQ(vHandles[n - 1], vHandles[17]);
  EXPECT_EQ(dt.numberOfPoints(), 3000u);
  EXPECT_VALID(dt);
  Vask_2D fromVector;
  fromVector.insert(vPoints);
  EXPECT_EQ(vask_test::canonicalTriangles(fromVector), vask_test::canonicalTriangles(dt));
  dt.insert(0, vCoords.data(), vHandles.data()); // nothing happens
  EXPECT_EQ(dt.numberOfPoints(), 3000u);
}

TEST(Batch, NonFinitePointsGetNullHandlesAndTheRestGoesIn) {
  const double nan(std::numeric_limits<double>::quiet_NaN()), inf(std::numeric_limits<double>::infinity());
  std::vector<Point2> vPoints(vask_test::randomPoints(500, 31));
  vPoints[3] = Point2(nan, 0.5);
  vPoints[100] = Point2(0.5, inf);
  vPoints.emplace_back(-inf, nan);
  Vask_2D dt;
  std::vector<Point2*> vHandles;
  testing::internal::CaptureStdout();
  dt.insert(vPoints, vHandles);
  const std::string out(testing::internal::GetCapturedStdout());
  EXPECT_NE(out.find("[Vask2D-Message] Vask_2D::insert(vector), WARNING: "), std::string::npos);
  ASSERT_EQ(vHandles.size(), vPoints.size());
  EXPECT_EQ(vHandles[3], nullptr);
  EXPECT_EQ(vHandles[100], nullptr);
  EXPECT_EQ(vHandles.back(), nullptr);
  EXPECT_EQ(dt.numberOfPoints(), 498u);
  for (size_t i = 0; i + 1 < vPoints.size(); ++i)
    if (i != 3 && i != 100) EXPECT_EQ(*vHandles[i], vPoints[i]);
  EXPECT_VALID(dt);
  // The same in a coordinate array and without handles.
  std::vector<double> vCoords = {0, 0, nan, 1, 1, 0, 0, 1, inf, inf};
  std::vector<Point2*> vArrayHandles(5, nullptr);
  Vask_2D arr;
  testing::internal::CaptureStdout();
  arr.insert(5, vCoords.data(), vArrayHandles.data());
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(vArrayHandles[1], nullptr);
  EXPECT_EQ(vArrayHandles[4], nullptr);
  EXPECT_EQ(arr.numberOfPoints(), 3u);
  Vask_2D noHandles;
  testing::internal::CaptureStdout();
  noHandles.insert(vPoints);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(noHandles.numberOfPoints(), 498u);
}

TEST(Batch, EmptyInputChangesNothing) {
  Vask_2D dt;
  std::vector<Point2> vEmpty;
  std::vector<Point2*> vHandles(3, nullptr);
  dt.insert(vEmpty, vHandles);
  dt.insert(vEmpty);
  EXPECT_TRUE(vHandles.empty());
  EXPECT_EQ(dt.numberOfPoints(), 0u);
}

TEST(Batch, SeveralWorkersTakeTheFakeBoxPathWithTheSameResult) {
  for (size_t n : {5u, 500u, 20000u}) {
    const std::vector<Point2> vPoints(vask_test::randomPoints(n, 61 + static_cast<unsigned>(n)));
    Vask_2D one, four;
    EXPECT_EQ(four.setNumCPU(4), 4);
    one.insert(vPoints);
    std::vector<Point2*> vHandles;
    four.insert(vPoints, vHandles);
    EXPECT_EQ(vask_test::canonicalTriangles(four), vask_test::canonicalTriangles(one)) << n;
    EXPECT_EQ(four.numberOfPoints(), n);
    EXPECT_VALID(four);
    for (size_t i = 0; i < n; ++i) EXPECT_EQ(*vHandles[i], vPoints[i]);
    // A second batch into the existing mesh, also with duplicates.
    std::vector<Point2> vMore(vask_test::randomPoints(n, 7));
    vMore.insert(vMore.end(), vPoints.begin(), vPoints.begin() + n / 2);
    one.insert(vMore);
    four.insert(vMore);
    EXPECT_EQ(vask_test::canonicalTriangles(four), vask_test::canonicalTriangles(one)) << n;
    EXPECT_VALID(four);
  }
}

TEST(Batch, SeveralWorkersOnCollinearAndDegenerateData) {
  std::vector<Point2> vLine;
  for (int i = 0; i < 3000; ++i) vLine.emplace_back(i, 0.0);
  Vask_2D dt;
  dt.setNumCPU(2);
  dt.insert(vLine);
  EXPECT_FALSE(dt.hasArea());
  EXPECT_EQ(dt.numberOfTriangles(), 0u);
  EXPECT_EQ(dt.numberOfPoints(), 3000u);
  std::vector<Point2> vOff = {Point2(5.5, 3.0)};
  dt.insert(vOff);
  EXPECT_TRUE(dt.hasArea());
  EXPECT_EQ(dt.numberOfPoints(), 3001u);
  EXPECT_VALID(dt);
  // One point, and all points equal.
  Vask_2D single;
  single.setNumCPU(3);
  single.insert(std::vector<Point2>(1, Point2(2, 3)));
  EXPECT_EQ(single.numberOfPoints(), 1u);
  EXPECT_FALSE(single.hasArea());
  Vask_2D equal;
  equal.setNumCPU(2);
  std::vector<Point2*> vHandles;
  equal.insert(std::vector<Point2>(2000, Point2(1e-150, -1e-150)), vHandles);
  EXPECT_EQ(equal.numberOfPoints(), 1u);
  for (Point2* p : vHandles) EXPECT_EQ(p, vHandles[0]);
  // A grid with its duplicates through the array form of several workers.
  std::vector<double> vCoords;
  for (const Point2& p : vask_test::gridPoints(40)) {
    vCoords.push_back(p.x());
    vCoords.push_back(p.y());
  }
  vCoords.insert(vCoords.end(), vCoords.begin(), vCoords.begin() + 200);
  const int n(static_cast<int>(vCoords.size() / 2));
  std::vector<Point2*> vArrayHandles(n);
  Vask_2D grid;
  grid.setNumCPU(2);
  grid.insert(n, vCoords.data(), vArrayHandles.data());
  EXPECT_EQ(grid.numberOfPoints(), 1600u);
  for (int i = 1600; i < n; ++i) EXPECT_EQ(vArrayHandles[i], vArrayHandles[i - 1600]);
  EXPECT_VALID(grid);
}

TEST(Batch, FastModeGivesAValidTriangulation) {
  const std::vector<Point2> vPoints(vask_test::randomPoints(50000, 91));
  Vask_2D exact, fast;
  fast.setFastMode(true);
  exact.insert(vPoints);
  fast.insert(vPoints);
  EXPECT_VALID(fast);
  EXPECT_EQ(vask_test::canonicalTriangles(fast), vask_test::canonicalTriangles(exact));
  // Cocircular input: fast mode leaves such cells unflipped, which is valid.
  std::vector<Point2> vGrid(vask_test::gridPoints(60));
  std::mt19937 gen(5);
  std::shuffle(vGrid.begin(), vGrid.end(), gen);
  Vask_2D fastGrid;
  fastGrid.setFastMode(true);
  fastGrid.insert(vGrid);
  EXPECT_VALID(fastGrid);
  EXPECT_EQ(fastGrid.numberOfTriangles(), 2u * 59u * 59u);
  // Near-cocircular input: validity holds; an empty-circle difference may
  // only appear where the exact test says "on the circle" or nearly so.
  std::vector<Point2> vCircle(vask_test::circlePoints(2000, 0.1, 0.2, 3.0));
  Vask_2D fastCircle;
  fastCircle.setFastMode(true);
  fastCircle.insert(vCircle);
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
  for (const Point2& p : vask_test::randomPoints(5000, 2)) {
    vCoords.push_back(p.x() + 2);
    vCoords.push_back(p.y());
  }
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
