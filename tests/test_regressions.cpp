// Every case the fuzzer shrank, replayed with the checker after each step:
// tests/data/fuzz_*.txt, one named test per file. A file whose comments say
// "status: open" records a defect not yet fixed; it is reported as skipped
// until the line goes. A file that says "check: last" is checked after its
// last step only: long cases about the library's speed, where exact checks
// after each of hundreds of steps would take minutes.
#include "fuzz/FuzzCase.h"
#include "helpers/TestHelpers.h"
#include "Triangle2.h"
#include <cmath>
#include <algorithm>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::vector<std::string> fuzzFiles() {
  std::vector<std::string> v;
  if (DIR* d = opendir(VASK2D_TEST_DATA_DIR)) {
    while (dirent* e = readdir(d)) {
      const std::string name(e->d_name);
      if (name.size() > 9 && name.compare(0, 5, "fuzz_") == 0 && name.compare(name.size() - 4, 4, ".txt") == 0)
        v.push_back(name);
    }
    closedir(d);
  }
  std::sort(v.begin(), v.end());
  return v;
}

class FuzzRegression : public ::testing::TestWithParam<std::string> {};

TEST_P(FuzzRegression, StaysValidAfterEveryStep) {
  const std::string path(std::string(VASK2D_TEST_DATA_DIR) + "/" + GetParam());
  vask_fuzz::Case c;
  std::string error;
  ASSERT_TRUE(vask_fuzz::readCaseFile(path, c, error)) << error;
  ASSERT_FALSE(c.vOps.empty()) << path << " holds no operation";
  std::ifstream in(path);
  std::string line;
  bool bCheckLastOnly(false);
  while (std::getline(in, line)) {
    if (line.rfind("#", 0) != 0) continue;
    if (line.find("status: open") != std::string::npos) GTEST_SKIP() << "open defect: " << line;
    bCheckLastOnly = bCheckLastOnly || line.find("check: last") != std::string::npos;
  }
  const vask_fuzz::Outcome o(vask_fuzz::runCase(c, nullptr, nullptr, bCheckLastOnly));
  EXPECT_TRUE(o.ok) << GetParam() << ", operation " << o.step + 1 << " of " << c.vOps.size() << ": " << o.message;
}

std::string testName(const ::testing::TestParamInfo<std::string>& info) {
  std::string s(info.param.substr(5, info.param.size() - 9));
  for (char& ch : s)
    if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
  return s;
}

INSTANTIATE_TEST_SUITE_P(Shrunk, FuzzRegression, ::testing::ValuesIn(fuzzFiles()), testName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FuzzRegression);

// The text form round-trips every coordinate exactly, signed zeros and
// non-finite values included, and a generated case survives it.
TEST(FuzzCaseText, RoundTripsExactly) {
  for (const std::string& family : vask_fuzz::familyNames()) {
    const vask_fuzz::Case c(vask_fuzz::generateCase(family, 7, 40));
    vask_fuzz::Case back;
    std::string error;
    ASSERT_TRUE(vask_fuzz::fromText(vask_fuzz::toText(c, {"a comment"}), back, error)) << error;
    ASSERT_EQ(c.vOps.size(), back.vOps.size()) << family;
    for (std::size_t i = 0; i < c.vOps.size(); ++i) {
      ASSERT_EQ(c.vOps[i].kind, back.vOps[i].kind);
      ASSERT_EQ(c.vOps[i].arg, back.vOps[i].arg);
      ASSERT_EQ(c.vOps[i].vPoints.size(), back.vOps[i].vPoints.size());
      for (std::size_t j = 0; j < c.vOps[i].vPoints.size(); ++j) {
        const KIRO_VASK2D::Point2 &p(c.vOps[i].vPoints[j]), &q(back.vOps[i].vPoints[j]);
        for (int k = 0; k < 2; ++k) {
          const double a(k ? p.y() : p.x()), b(k ? q.y() : q.x());
          EXPECT_TRUE((std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b)));
        }
      }
    }
  }
  vask_fuzz::Case bad;
  std::string error;
  EXPECT_FALSE(vask_fuzz::fromText("insert 1\n", bad, error));
  EXPECT_FALSE(vask_fuzz::fromText("twist 1 2\n", bad, error));
  EXPECT_FALSE(vask_fuzz::fromText("insert 1 x\n", bad, error));
  EXPECT_FALSE(vask_fuzz::fromText("constraint 1 0 0 1 1 2 2\n", bad, error)); // half a segment
  EXPECT_FALSE(vask_fuzz::fromText("split 0\n", bad, error));
  EXPECT_TRUE(vask_fuzz::fromText("constraint 3\napply\nmakedelaunay 2\nsplitdead 0.5 0.5\n", bad, error)) << error;
}

// The checker itself, on hand-made meshes: without triangles it wants
// collinear, distinct vertices; a constraint edge is exempt from the
// empty-circle test; the tolerance for fast mode lets near-cocircular
// quadrilaterals pass but not clearly bad ones.
TEST(IndependentValidator, JudgesCollinearStatesConstraintsAndNearCocircularEdges) {
  using KIRO_VASK2D::Point2;
  using KIRO_VASK2D::Triangle2;
  Point2 a(0, 0), b(1, 1.0 / 3), c(3, 1), d(0.5, 7);
  EXPECT_TRUE(vask_test::validate({}, {&a, &b}, vask_test::ValidateOptions()).ok);
  Point2 onLine(6, 2);
  EXPECT_TRUE(vask_test::validate({}, {&a, &c, &onLine}, vask_test::ValidateOptions()).ok);
  EXPECT_FALSE(vask_test::validate({}, {&a, &b, &c}, vask_test::ValidateOptions()).ok); // b is off by rounding
  Point2 aCopy(-0.0, 0.0);
  EXPECT_FALSE(vask_test::validate({}, {&a, &aCopy}, vask_test::ValidateOptions()).ok);

  // Two triangles over the diagonal p0 p2 of a quadrilateral; q3 far inside
  // or on the circle of the first.
  auto check = [](Point2 q3, const vask_test::ValidateOptions& options) {
    Point2 q0(0, 0), q1(2, 0), q2(2, 2);
    Triangle2 t0(&q0, &q1, &q2), t1(&q0, &q2, &q3);
    t0.setOppTriangle(1, &t1);
    t1.setOppTriangle(2, &t0);
    q0.setIncidentTriangle(&t0);
    q1.setIncidentTriangle(&t0);
    q2.setIncidentTriangle(&t0);
    q3.setIncidentTriangle(&t1);
    return vask_test::validate({&t0, &t1}, {&q0, &q1, &q2, &q3}, options).ok;
  };
  vask_test::ValidateOptions strict, exempt, tolerant;
  exempt.isConstraint = [](const Point2* p, const Point2* q) {
    return (*p == Point2(0, 0) && *q == Point2(2, 2)) || (*q == Point2(0, 0) && *p == Point2(2, 2));
  };
  tolerant.bTolerateNearCocircular = true;
  EXPECT_TRUE(check(Point2(0, 2), strict));                // cocircular
  EXPECT_FALSE(check(Point2(0.5, 1.5), strict));           // clearly inside
  EXPECT_TRUE(check(Point2(0.5, 1.5), exempt));
  EXPECT_FALSE(check(Point2(0.5, 1.5), tolerant));
  const Point2 justInside(1e-17, 2); // inside by about 2e-17 in the squared distance
  EXPECT_FALSE(check(justInside, strict));
  EXPECT_TRUE(check(justInside, tolerant));
}

} // namespace
