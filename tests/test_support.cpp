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
#include <functional>
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

using Assertion = InTempDir;

TEST_F(Assertion, ViolatedConditionPrintsSequenceLogsAndThrows) {
  VaskException e;
  EXPECT_STREQ(static_cast<const std::exception&>(e).what(), EXCEPTION_TEXT);
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
  // The log file collects every failure.
  CaptureStdout();
  EXPECT_THROW(mesh.numberOfTriangles(0), VaskException);
  GetCapturedStdout();
  EXPECT_EQ(readFile("VASK_LOG.txt"), "* Vask, Condition [ n == 2 failed ]\n* Vask, Condition [ n == 2 failed ]\n");
}

TEST(QualifiedFunctionName, StripsReturnTypeParametersQualifiersAndBindings) {
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
      // Template scopes stay, bindings go.
      {"T* KIRO_VASK2D::SimplePool<T, N>::get() [with T = int; int N = 3]", "KIRO_VASK2D::SimplePool<T, N>::get"},
      {"std::map<int, std::vector<T> > KIRO_VASK2D::SimplePool<T, N>::m(const std::map<int, int>&) [with T = int]",
       "KIRO_VASK2D::SimplePool<T, N>::m"},
      {"T KIRO_VASK2D::tf(T) [with T = std::__cxx11::basic_string<char>]", "KIRO_VASK2D::tf"},
      {"std::vector<std::pair<int, int> > KIRO_VASK2D::f2(const std::map<int, int>&)", "KIRO_VASK2D::f2"},
      {"void (* KIRO_VASK2D::fp())(int)", "KIRO_VASK2D::fp"},
      {"KIRO_VASK2D::Dt2::lam()::<lambda(int)>", "KIRO_VASK2D::Dt2::lam::<lambda>"},
      // Operators.
      {"bool KIRO_VASK2D::Dt2::operator<(const KIRO_VASK2D::Dt2&) const", "KIRO_VASK2D::Dt2::operator<"},
      {"bool KIRO_VASK2D::Dt2::operator<<(int)", "KIRO_VASK2D::Dt2::operator<<"},
      {"bool KIRO_VASK2D::Dt2::operator>>(int)", "KIRO_VASK2D::Dt2::operator>>"},
      {"void KIRO_VASK2D::Dt2::operator()(int)", "KIRO_VASK2D::Dt2::operator()"},
      {"KIRO_VASK2D::Dt2* KIRO_VASK2D::Dt2::operator->()", "KIRO_VASK2D::Dt2::operator->"},
      {"int& KIRO_VASK2D::Dt2::operator[](int)", "KIRO_VASK2D::Dt2::operator[]"},
      {"KIRO_VASK2D::Dt2::operator const char*() const", "KIRO_VASK2D::Dt2::operator const char*"},
      {"static void* KIRO_VASK2D::Dt2::operator new(size_t)", "KIRO_VASK2D::Dt2::operator new"},
      {"bool KIRO_VASK2D::operator==(const KIRO_VASK2D::Edge2&, const KIRO_VASK2D::Edge2&)", "KIRO_VASK2D::operator=="},
      // Odd text survives.
      {"", ""},
      {"((", "(("},
      {")", ")"},
      {nullptr, ""},
  };
  char buffer[256];
  for (const auto& c : cases) EXPECT_STREQ(qualifiedFunctionName(c.first, buffer, sizeof(buffer)), c.second) << c.first;
  char small[8];
  EXPECT_STREQ(qualifiedFunctionName("int KIRO_VASK2D::Dt2::f()", small, sizeof(small)), "KIRO_VA");
}

// ---------------------------------------------------------------- log lines

using LogFile = InTempDir;

TEST_F(LogFile, ConsoleLinesHaveTheirFormatAndTheFileIsAppended) {
  const struct {
    void (*log)(const std::string&, const std::string&);
    const char *tag, *text, *expected;
  } aCase[] = {
      {logWarning, "Dt2::insert()", "p is NULL", "\n      [Vask2D-Message] Dt2::insert(), WARNING: p is NULL\n\n"},
      {logError, "Zone2::getTriangles()", "no mesh", "\n      [Vask2D-Message] Zone2::getTriangles(), ERROR: no mesh\n\n"},
      {logInfo, "", "done", "\n      [Vask2D-Message] INFO: done\n\n"},
      {logInfo, "Refiner", "done", "\n      Refiner, INFO: done\n\n"},
  };
  for (const auto& c : aCase) {
    CaptureStdout();
    c.log(c.tag, c.text);
    EXPECT_EQ(GetCapturedStdout(), c.expected);
  }
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

TEST(Progress, RunsReportMonotoneFractionsAndEndWithOneExactOne) {
  // Each row drives a subscribed publisher and names the messages it must
  // have sent: their number, the last value, and how many were exactly 1.
  struct Case {
    const char* name;
    std::function<void(ProgressPublisher&)> drive;
    std::size_t numMessages;
    double last;
    int numOnes;
  };
  const Case aCase[] = {
      {"full run, step 2",
       [](ProgressPublisher& p) {
         p.start("insert", 250);
         for (int i = 0; i < 250; ++i) p.advance(1);
         p.finish();
       },
       125, 1.0, 1},
      {"short count, finished twice", // a batch with duplicates counts fewer units than announced
       [](ProgressPublisher& p) {
         p.start("insert vertices", 100000);
         for (int i = 0; i < 90000; ++i) p.advance(1);
         p.finish();
         p.finish();
       },
       91, 1.0, 1},
      {"overshoot is capped and silences the rest",
       [](ProgressPublisher& p) {
         p.start("insert", 10);
         for (int i = 0; i < 15; ++i) p.advance(1);
         p.finish();
       },
       10, 1.0, 1},
      {"each run has its own one",
       [](ProgressPublisher& p) {
         for (int run = 0; run < 3; ++run) {
           p.start("apply", 0);
           p.advance(1);
           p.finish();
         }
       },
       3, 1.0, 3},
      {"total below a hundred reports every unit",
       [](ProgressPublisher& p) {
         p.start("t", 40);
         for (int i = 1; i <= 3; ++i) p.advance(1);
       },
       3, 3.0 / 40.0, 0},
      {"large advance reports only on step multiples",
       [](ProgressPublisher& p) {
         p.start("insert vertices", 1100); // step 11
         p.advance(100);
         p.advance(10);
       },
       1, 0.1, 0},
      {"finish without start", [](ProgressPublisher& p) {
         p.finish();
         p.advance(1);
       },
       0, 0.0, 0},
      {"disabled publisher ignores all calls",
       [](ProgressPublisher& p) {
         p.start("outer", 10);
         p.setDisabled(true);
         p.start("inner", 10);
         p.advance(5);
         p.finish();
         p.setDisabled(false);
         p.advance(5);
       },
       1, 0.5, 0},
      {"restart begins the run again",
       [](ProgressPublisher& p) {
         p.start("first", 10);
         p.advance(5);
         p.start("second", 4);
         p.advance(1);
       },
       2, 0.25, 0},
      {"extend grows the total",
       [](ProgressPublisher& p) {
         p.start("apply", 2);
         p.advance(1);
         p.extend(2);
         p.advance(1);
       },
       2, 0.5, 0},
  };
  for (const Case& c : aCase) {
    SCOPED_TRACE(c.name);
    ProgressPublisher publisher("Dt2");
    Recorder rec;
    publisher.subscribe(MSG_PROGRESS, &rec);
    c.drive(publisher);
    ASSERT_EQ(rec.vMessages.size(), c.numMessages);
    EXPECT_EQ(rec.countOnes(), c.numOnes);
    if (c.numMessages > 0) EXPECT_EQ(rec.vMessages.back().second, c.last);
    for (std::size_t i = 1; i < rec.vMessages.size(); ++i) // monotone within a run
      if (rec.vMessages[i].first == rec.vMessages[i - 1].first)
        EXPECT_GE(rec.vMessages[i].second, rec.vMessages[i - 1].second) << i;
  }
}

TEST(Progress, SubscriptionsAreSetsAndMayChangeDuringUpdates) {
  ProgressPublisher publisher;
  Recorder rec, other, stranger, late;
  publisher.start("insert", 10); // without subscribers nothing is opened
  publisher.advance(5);
  publisher.subscribe(MSG_PROGRESS, &late);
  publisher.advance(5);
  publisher.finish();
  EXPECT_TRUE(late.vMessages.empty());
  publisher.unsubscribe(MSG_PROGRESS, &late);

  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.subscribe(MSG_PROGRESS, &rec);
  publisher.subscribe(MSG_PROGRESS, &other);
  publisher.unsubscribe(MSG_PROGRESS, &stranger);
  publisher.unsubscribe(MSG_PROGRESS, nullptr);
  OneShot oneShot;
  oneShot.pPublisher = &publisher;
  publisher.subscribe(MSG_PROGRESS, &oneShot);
  publisher.start("t", 4);
  publisher.advance(1);
  publisher.finish();
  EXPECT_EQ(rec.vMessages.size(), 2u); // duplicate subscription: one message per event
  EXPECT_EQ(other.vMessages.size(), 2u);
  EXPECT_EQ(oneShot.numCalls, 1);
  // One unsubscribe removes the receiver completely.
  publisher.unsubscribe(MSG_PROGRESS, &rec);
  publisher.start("t", 4);
  publisher.finish();
  EXPECT_EQ(rec.vMessages.size(), 2u);
  EXPECT_EQ(other.vMessages.size(), 3u);
}

TEST(Progress, ChildFractionsAddToTheParentUntilTheChildIsDestroyed) {
  ProgressPublisher parent("parent");
  Recorder rec;
  parent.subscribe(MSG_PROGRESS, &rec);
  {
    ProgressPublisher child("child");
    parent.addChild(&child);
    parent.start("whole", 100);
    child.start("part", 100); // runs although only its parent listens
    for (int i = 0; i < 50; ++i) child.advance(1);
    ASSERT_EQ(rec.vMessages.size(), 50u);
    EXPECT_EQ(rec.vMessages.back(), std::make_pair(std::string("whole"), 0.5));
    for (int i = 0; i < 50; ++i) parent.advance(1);
    EXPECT_EQ(rec.vMessages.back().second, 1.0);
    parent.finish();
    EXPECT_EQ(rec.countOnes(), 1);
  }
  parent.start("whole", 10);
  parent.advance(1);
  EXPECT_EQ(rec.vMessages.back().second, 0.1);
}

// ---------------------------------------------------------------- timer and version

TEST(Timer, PairsOfCallsFormMeasurementsPerNameAndQuietNamesPrintNothing) {
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
  EXPECT_EQ(timer("[quiet] a"), -1.0);
  EXPECT_EQ(timer("[quiet] b"), -1.0);
  EXPECT_GE(timer("[quiet] a"), 0.0);
  EXPECT_GE(timer("[quiet] b"), 0.0);
  const std::string quiet(GetCapturedStdout());
  EXPECT_EQ(quiet.find("quiet"), std::string::npos) << quiet;
}

TEST(Version, NumbersAndTextAgree) {
  EXPECT_EQ(getMajorVersionNumber(), 1);
  EXPECT_EQ(getMinorVersionNumber(), 86);
  EXPECT_EQ(getRevisionNumber(), 557);
  const std::string expected(std::string("Vask 2D, ") + (isRelease() ? "RELEASE" : "DEBUG") + ", v1.86.557");
  EXPECT_EQ(getVask2DVersion(), expected);
  EXPECT_EQ(getVask2DVersion(), getVask2DVersion());
}
