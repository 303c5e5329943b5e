// Every case the fuzzer shrank, replayed with the checker after each step:
// tests/data/fuzz_*.txt, one named test per file. A file whose comments say
// "status: open" records a defect not yet fixed; it is reported as skipped
// until the line goes.
#include "fuzz/FuzzCase.h"
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
  while (std::getline(in, line))
    if (line.rfind("#", 0) == 0 && line.find("status: open") != std::string::npos)
      GTEST_SKIP() << "open defect: " << line;
  const vask_fuzz::Outcome o(vask_fuzz::runCase(c));
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
}

} // namespace
