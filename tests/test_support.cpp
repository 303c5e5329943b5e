// Failure reporting, console messages, progress and version/timing tools.
#include "MsgBase.h"
#include "VaskException.h"
#include "VaskVersion.h"
#include "support/Log.h"
#include "support/ProgressPublisher.h"
#include "support/VaskAssert.h"
#include <gtest/gtest.h>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace KIRO_VASK2D {
namespace probe {
int failingLine(0);
struct Mesh {
  int numberOfTriangles(int n) const {
    failingLine = __LINE__; VASK_ASSERT(n == 2);
    return n;
  }
};
} // namespace probe
} // namespace KIRO_VASK2D

using namespace KIRO_VASK2D;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const char* const EXCEPTION_TEXT =
    "\n  VASK EXCEPTION due to a bug _or_ wrong usage of Vask. If you think it is a \n"
    "  bug then please report this incident and it will be fixed quickly";

std::string readFile(const std::string& path) {
  std::ifstream file(path);
  std::stringstream ss;
  ss << file.rdbuf();
  return ss.str();
}

// Runs the test body in a fresh directory, so that VASK_LOG.txt is private to it.
class InTempDir : public testing::Test {
protected:
  void SetUp() override {
    char tmpl[] = "/tmp/vask_support_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir = tmpl;
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof(cwd)), nullptr);
    oldDir = cwd;
    ASSERT_EQ(chdir(dir.c_str()), 0);
  }
  void TearDown() override {
    ASSERT_EQ(chdir(oldDir.c_str()), 0);
    std::remove((dir + "/VASK_LOG.txt").c_str());
    rmdir(dir.c_str());
  }
  std::string dir, oldDir;
};

} // namespace

// ---------------------------------------------------------------- assertions

TEST(VaskException, WhatReturnsFixedText) {
  VaskException e;
  EXPECT_STREQ(e.what(), EXCEPTION_TEXT);
  const std::exception& base(e);
  EXPECT_STREQ(base.what(), EXCEPTION_TEXT);
}

using Assertion = InTempDir;

TEST_F(Assertion, ViolatedConditionPrintsSequenceAndThrows) {
  probe::Mesh mesh;
  EXPECT_EQ(mesh.numberOfTriangles(2), 2);
  CaptureStdout();
  EXPECT_THROW(mesh.numberOfTriangles(3), VaskException);
  const std::string out(GetCapturedStdout());
  const std::string expected("\n      [Vask2D-Message] * Vask, , ERROR: Condition [ n == 2 failed ]\n\n"
                             "* Vask, Condition [ n == 2 failed ]\n"
                             "  test_support.cpp:" + std::to_string(probe::failingLine) + "\n\n"
                             "  Function: KIRO_VASK2D::probe::Mesh::numberOfTriangles()\n");
  EXPECT_EQ(out, expected);
  EXPECT_EQ(readFile("VASK_LOG.txt"), "* Vask, Condition [ n == 2 failed ]\n");
}

TEST_F(Assertion, LogFileCollectsEveryFailure) {
  probe::Mesh mesh;
  CaptureStdout();
  for (int i = 0; i < 2; ++i) EXPECT_THROW(mesh.numberOfTriangles(i), VaskException);
  GetCapturedStdout();
  EXPECT_EQ(readFile("VASK_LOG.txt"), "* Vask, Condition [ n == 2 failed ]\n* Vask, Condition [ n == 2 failed ]\n");
}

TEST(QualifiedFunctionName, StripsReturnTypeParametersAndQualifiers) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"int main()", "main"},
      {"int KIRO_VASK2D::Dt2::numberOfTriangles() const", "KIRO_VASK2D::Dt2::numberOfTriangles"},
      {"KIRO_VASK2D::Dt2::Dt2()", "KIRO_VASK2D::Dt2::Dt2"},
      {"KIRO_VASK2D::Dt2::~Dt2()", "KIRO_VASK2D::Dt2::~Dt2"},
      {"static void KIRO_VASK2D::Dt2::s()", "KIRO_VASK2D::Dt2::s"},
      {"virtual void KIRO_VASK2D::Dt2::v()", "KIRO_VASK2D::Dt2::v"},
      {"long long unsigned int KIRO_VASK2D::ull()", "KIRO_VASK2D::ull"},
      {"void KIRO_VASK2D::{anonymous}::anon(int)", "KIRO_VASK2D::{anonymous}::anon"},
      {"void KIRO_VASK2D::Zone2::f(std::function<void(int)>) const &&", "KIRO_VASK2D::Zone2::f"},
  };
  char buffer[256];
  for (const auto& c : cases) EXPECT_STREQ(qualifiedFunctionName(c.first, buffer, sizeof(buffer)), c.second) << c.first;
}

TEST(QualifiedFunctionName, KeepsTemplateScopesAndDropsBindings) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"T* KIRO_VASK2D::SimplePool<T, N>::get() [with T = int; int N = 3]", "KIRO_VASK2D::SimplePool<T, N>::get"},
      {"std::map<int, std::vector<T> > KIRO_VASK2D::SimplePool<T, N>::m(const std::map<int, int>&) [with T = int]",
       "KIRO_VASK2D::SimplePool<T, N>::m"},
      {"T KIRO_VASK2D::tf(T) [with T = std::__cxx11::basic_string<char>]", "KIRO_VASK2D::tf"},
      {"std::vector<std::pair<int, int> > KIRO_VASK2D::f2(const std::map<int, int>&)", "KIRO_VASK2D::f2"},
      {"void (* KIRO_VASK2D::fp())(int)", "KIRO_VASK2D::fp"},
      {"KIRO_VASK2D::Dt2::lam()::<lambda(int)>", "KIRO_VASK2D::Dt2::lam::<lambda>"},
  };
  char buffer[256];
  for (const auto& c : cases) EXPECT_STREQ(qualifiedFunctionName(c.first, buffer, sizeof(buffer)), c.second) << c.first;
}

TEST(QualifiedFunctionName, HandlesOperators) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"bool KIRO_VASK2D::Dt2::operator<(const KIRO_VASK2D::Dt2&) const", "KIRO_VASK2D::Dt2::operator<"},
      {"bool KIRO_VASK2D::Dt2::operator<<(int)", "KIRO_VASK2D::Dt2::operator<<"},
      {"bool KIRO_VASK2D::Dt2::operator>>(int)", "KIRO_VASK2D::Dt2::operator>>"},
      {"void KIRO_VASK2D::Dt2::operator()(int)", "KIRO_VASK2D::Dt2::operator()"},
      {"KIRO_VASK2D::Dt2* KIRO_VASK2D::Dt2::operator->()", "KIRO_VASK2D::Dt2::operator->"},
      {"int& KIRO_VASK2D::Dt2::operator[](int)", "KIRO_VASK2D::Dt2::operator[]"},
      {"KIRO_VASK2D::Dt2::operator const char*() const", "KIRO_VASK2D::Dt2::operator const char*"},
      {"static void* KIRO_VASK2D::Dt2::operator new(size_t)", "KIRO_VASK2D::Dt2::operator new"},
      {"bool KIRO_VASK2D::operator==(const KIRO_VASK2D::Edge2&, const KIRO_VASK2D::Edge2&)", "KIRO_VASK2D::operator=="},
  };
  char buffer[256];
  for (const auto& c : cases) EXPECT_STREQ(qualifiedFunctionName(c.first, buffer, sizeof(buffer)), c.second) << c.first;
}

TEST(QualifiedFunctionName, TruncatesToBufferAndSurvivesOddText) {
  char small[8];
  EXPECT_STREQ(qualifiedFunctionName("int KIRO_VASK2D::Dt2::f()", small, sizeof(small)), "KIRO_VA");
  char buffer[64];
  EXPECT_STREQ(qualifiedFunctionName("", buffer, sizeof(buffer)), "");
  EXPECT_STREQ(qualifiedFunctionName("((", buffer, sizeof(buffer)), "((");
  EXPECT_STREQ(qualifiedFunctionName(")", buffer, sizeof(buffer)), ")");
  EXPECT_STREQ(qualifiedFunctionName(nullptr, buffer, sizeof(buffer)), "");
}

// ---------------------------------------------------------------- log lines

TEST(Log, LinesHaveTheConsoleFormat) {
  CaptureStdout();
  logWarning("Dt2::insert()", "p is NULL");
  EXPECT_EQ(GetCapturedStdout(), "\n      [Vask2D-Message] Dt2::insert(), WARNING: p is NULL\n\n");
  CaptureStdout();
  logError("Zone2::getTriangles()", "no mesh");
  EXPECT_EQ(GetCapturedStdout(), "\n      [Vask2D-Message] Zone2::getTriangles(), ERROR: no mesh\n\n");
  CaptureStdout();
  logInfo("", "done");
  EXPECT_EQ(GetCapturedStdout(), "\n      [Vask2D-Message] INFO: done\n\n");
  CaptureStdout();
  logInfo("Refiner", "done");
  EXPECT_EQ(GetCapturedStdout(), "\n      Refiner, INFO: done\n\n");
}

using LogFile = InTempDir;

TEST_F(LogFile, AppendsAndNeverTruncates) {
  {
    std::ofstream old("VASK_LOG.txt");
    old << "earlier run\n";
  }
  CaptureStdout();
  logToFile("first");
  logToFile("second");
  EXPECT_EQ(GetCapturedStdout(), "first\nsecond\n");
  EXPECT_EQ(readFile("VASK_LOG.txt"), "earlier run\nfirst\nsecond\n");
}

// ---------------------------------------------------------------- progress

namespace {

struct Recorder : public MsgBase {
  std::vector<std::pair<std::string, double>> vMessages;
  void update(MsgType msgType, char const* name, double value) override {
    EXPECT_EQ(msgType, MSG_PROGRESS);
    vMessages.emplace_back(name, value);
  }
  int countOnes() const {
    int n(0);
    for (const auto& m : vMessages) n += (m.second == 1.0);
    return n;
  }
  bool isMonotone() const {
    for (size_t i = 1; i < vMessages.size(); ++i)
      if (vMessages[i].second < vMessages[i - 1].second) return false;
    return true;
  }
};

// Unsubscribes itself while it is being notified.
struct OneShot : public MsgBase {
  ProgressPublisher* pPublisher = nullptr;
  int numCalls = 0;
  void update(MsgType msgType, char const*, double) override {
    ++numCalls;
    pPublisher->unsubscribe(msgType, this);
  }
};

} // namespace

TEST(Progress, FullRunReportsAtEveryStepAndEndsWithOneExactOne) {
  ProgressPublisher publisher("Dt2");
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("insert", 250); // step 2
  for (int i = 0; i < 250; ++i) publisher.advance(1);
  publisher.finish();
  ASSERT_EQ(rec.vMessages.size(), 125u);
  EXPECT_EQ(rec.vMessages.front(), std::make_pair(std::string("insert"), 2.0 / 250.0));
  EXPECT_EQ(rec.vMessages.back().second, 1.0);
  EXPECT_EQ(rec.countOnes(), 1);
  EXPECT_TRUE(rec.isMonotone());
}

TEST(Progress, ShortCountStillEndsWithOneExactOne) {
  // A batch with duplicates counts fewer units than it announced.
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("insert vertices", 100000);
  for (int i = 0; i < 90000; ++i) publisher.advance(1);
  EXPECT_EQ(rec.countOnes(), 0);
  publisher.finish();
  EXPECT_EQ(rec.countOnes(), 1);
  EXPECT_EQ(rec.vMessages.back().second, 1.0);
  EXPECT_LE(rec.vMessages.size(), 101u);
  EXPECT_TRUE(rec.isMonotone());
  publisher.finish();
  EXPECT_EQ(rec.countOnes(), 1);
}

TEST(Progress, OvershootIsCappedAtOneAndSilencesTheRest) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("insert", 10);
  for (int i = 0; i < 15; ++i) publisher.advance(1);
  publisher.finish();
  EXPECT_EQ(rec.vMessages.size(), 10u);
  EXPECT_EQ(rec.countOnes(), 1);
}

TEST(Progress, EachRunHasItsOwnOne) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  for (int run = 0; run < 3; ++run) {
    publisher.start("apply", 0);
    publisher.advance(1);
    publisher.finish();
  }
  EXPECT_EQ(rec.vMessages.size(), 3u);
  EXPECT_EQ(rec.countOnes(), 3);
  EXPECT_EQ(rec.vMessages.back().first, "apply");
}

TEST(Progress, TotalBelowHundredReportsEveryUnit) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("t", 40);
  for (int i = 1; i <= 3; ++i) publisher.advance(1);
  ASSERT_EQ(rec.vMessages.size(), 3u);
  EXPECT_EQ(rec.vMessages[2].second, 3.0 / 40.0);
}

TEST(Progress, LargeAdvanceReportsOnlyOnStepMultiples) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("insert vertices", 1100); // step 11
  publisher.advance(100);                  // not a multiple of 11
  EXPECT_TRUE(rec.vMessages.empty());
  publisher.advance(10);
  ASSERT_EQ(rec.vMessages.size(), 1u);
  EXPECT_EQ(rec.vMessages[0].second, 0.1);
}

TEST(Progress, WithoutSubscribersNothingHappens) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.start("insert", 10);
  publisher.advance(5);
  // A receiver that arrives after start does not see a run that was never opened.
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.advance(5);
  publisher.finish();
  EXPECT_TRUE(rec.vMessages.empty());
}

TEST(Progress, FinishWithoutStartSendsNothing) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.finish();
  publisher.advance(1);
  EXPECT_TRUE(rec.vMessages.empty());
}

TEST(Progress, DuplicateSubscriptionGivesOneMessagePerEvent) {
  ProgressPublisher publisher;
  Recorder rec, other;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.subscribe(MSG_PROGRESS, &other);
  publisher.start("t", 4);
  publisher.advance(1);
  publisher.finish();
  EXPECT_EQ(rec.vMessages.size(), 2u);
  EXPECT_EQ(other.vMessages.size(), 2u);
  // One unsubscribe removes the receiver completely.
  publisher.unsubscribe(MSG_PROGRESS, &rec);
  publisher.start("t", 4);
  publisher.finish();
  EXPECT_EQ(rec.vMessages.size(), 2u);
  EXPECT_EQ(other.vMessages.size(), 3u);
}

TEST(Progress, UnsubscribingUnknownReceiverHasNoEffect) {
  ProgressPublisher publisher;
  Recorder rec, stranger;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.unsubscribe(MSG_PROGRESS, &stranger);
  publisher.unsubscribe(MSG_PROGRESS, nullptr);
  publisher.start("t", 2);
  publisher.finish();
  EXPECT_EQ(rec.vMessages.size(), 1u);
  EXPECT_TRUE(stranger.vMessages.empty());
}

TEST(Progress, ReceiverMayUnsubscribeItselfDuringUpdate) {
  ProgressPublisher publisher;
  OneShot oneShot;
  oneShot.pPublisher = &publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &oneShot);
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("t", 3);
  for (int i = 0; i < 3; ++i) publisher.advance(1);
  publisher.finish();
  EXPECT_EQ(oneShot.numCalls, 1);
  EXPECT_EQ(rec.vMessages.size(), 3u);
}

TEST(Progress, DisabledPublisherIgnoresAllCalls) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("outer", 10);
  publisher.setDisabled(true);
  publisher.start("inner", 10);
  publisher.advance(5);
  publisher.finish();
  publisher.setDisabled(false);
  EXPECT_TRUE(rec.vMessages.empty());
  publisher.advance(5);
  publisher.finish();
  ASSERT_EQ(rec.vMessages.size(), 2u);
  EXPECT_EQ(rec.vMessages[0], std::make_pair(std::string("outer"), 0.5));
  EXPECT_EQ(rec.vMessages[1].second, 1.0);
}

TEST(Progress, RestartBeginsTheRunAgain) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("first", 10);
  publisher.advance(5);
  publisher.start("second", 4);
  publisher.advance(1);
  ASSERT_EQ(rec.vMessages.size(), 2u);
  EXPECT_EQ(rec.vMessages[1], std::make_pair(std::string("second"), 0.25));
}

TEST(Progress, ExtendGrowsTheTotalOfTheRun) {
  ProgressPublisher publisher;
  Recorder rec;
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.start("apply", 2);
  publisher.advance(1);
  publisher.extend(2);
  publisher.advance(1);
  ASSERT_EQ(rec.vMessages.size(), 2u);
  EXPECT_EQ(rec.vMessages[1].second, 0.5);
}

TEST(Progress, ChildFractionsAddToTheParent) {
  ProgressPublisher parent("parent"), child("child");
  parent.addChild(&child);
  Recorder rec;
  parent.subscribe(MSG_PROGRESS, &rec);
  parent.start("whole", 100);
  child.start("part", 100); // runs although only its parent listens
  for (int i = 0; i < 50; ++i) child.advance(1);
  ASSERT_EQ(rec.vMessages.size(), 50u);
  EXPECT_EQ(rec.vMessages.back(), std::make_pair(std::string("whole"), 0.5));
  for (int i = 0; i < 50; ++i) parent.advance(1);
  EXPECT_EQ(rec.vMessages.back().second, 1.0);
  EXPECT_EQ(rec.countOnes(), 1);
  EXPECT_TRUE(rec.isMonotone());
  parent.finish();
  EXPECT_EQ(rec.countOnes(), 1);
}

TEST(Progress, DestroyedChildUnlinksFromParent) {
  ProgressPublisher parent;
  Recorder rec;
  parent.subscribe(MSG_PROGRESS, &rec);
  {
    ProgressPublisher child;
    parent.addChild(&child);
    child.start("part", 10);
    child.advance(5);
  }
  parent.start("whole", 10);
  parent.advance(1);
  EXPECT_EQ(rec.vMessages.back().second, 0.1);
}

// ---------------------------------------------------------------- timer and version

TEST(Timer, PairOfCallsFormsOneMeasurement) {
  CaptureStdout();
  EXPECT_EQ(timer("x"), -1.0);
  const double seconds(timer("x"));
  EXPECT_EQ(timer("x"), -1.0);
  const std::string out(GetCapturedStdout());
  EXPECT_GE(seconds, 0.0);
  std::ostringstream oss;
  oss.precision(3);
  oss << seconds;
  EXPECT_EQ(out, "...Timer [x] start\n...Timer [x] stop, elapsed time: " + oss.str() + " s\n...Timer [x] start\n");
  CaptureStdout();
  EXPECT_GE(timer("x"), 0.0);
  GetCapturedStdout();
}

TEST(Timer, NamesAreIndependentAndQuietNamesPrintNothing) {
  CaptureStdout();
  EXPECT_EQ(timer("[quiet] a"), -1.0);
  EXPECT_EQ(timer("[quiet] b"), -1.0);
  EXPECT_GE(timer("[quiet] a"), 0.0);
  EXPECT_GE(timer("[quiet] b"), 0.0);
  EXPECT_EQ(timer("[quiet] a"), -1.0);
  EXPECT_GE(timer("[quiet] a"), 0.0);
  EXPECT_EQ(GetCapturedStdout(), "");
}

TEST(Version, NumbersAndTextAgree) {
  EXPECT_EQ(getMajorVersionNumber(), 1);
  EXPECT_EQ(getMinorVersionNumber(), 86);
  EXPECT_EQ(getRevisionNumber(), 557);
  const std::string expected(std::string("Vask 2D, ") + (isRelease() ? "RELEASE" : "DEBUG") + ", v1.86.557");
  EXPECT_EQ(getVask2DVersion(), expected);
  EXPECT_EQ(getVask2DVersion(), getVask2DVersion());
}
