// Orientation and in-circle tests of Vask2D against CGAL's
// Exact_predicates_inexact_constructions_kernel, on the same precomputed
// inputs in the same run: random points (the filters' case) and points on
// lines and circles moved by a few ulps (the exact stages' case).
// Prints the machine, the compiler and flags, per-call times, the ratio
// Vask / CGAL and the share of Vask calls that reached GMP.
#include "kernel/KiroTest.h"
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/version.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

using KIRO_VASK2D::KiroTest;
using KIRO_VASK2D::Point2;
using KIRO_VASK2D::Triangle2;
typedef CGAL::Exact_predicates_inexact_constructions_kernel Epick;
typedef Epick::Point_2 CPoint;

#ifndef VASK2D_BENCH_FLAGS
#define VASK2D_BENCH_FLAGS "(not recorded)"
#endif

namespace {

// Small enough for both data sets to stay in the L2 cache: the comparison
// measures the predicates, not the memory system.
const int NUM_CASES(2048);

struct Inputs {
  std::vector<Point2> vPoint;   // four points per case; the in-circle cases are counter-clockwise
  std::vector<CPoint> vCPoint;  // the same coordinates for CGAL
  std::vector<Triangle2> vTriangle;
};

double nudge(double v, int steps) {
  for (int i = 0; i < std::abs(steps); ++i) v = std::nextafter(v, steps > 0 ? HUGE_VAL : -HUGE_VAL);
  return v;
}

void finish(Inputs& in) {
  in.vCPoint.clear();
  for (const Point2& p : in.vPoint) in.vCPoint.emplace_back(p.x(), p.y());
  in.vTriangle.clear();
  for (std::size_t i = 0; i < in.vPoint.size(); i += 4)
    in.vTriangle.emplace_back(&in.vPoint[i], &in.vPoint[i + 1], &in.vPoint[i + 2]);
}

/** Four random points per case, the first three counter-clockwise. */
Inputs makeRandom(unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  Inputs in;
  for (int i = 0; i < NUM_CASES; ++i) {
    Point2 a(dist(gen), dist(gen)), b(dist(gen), dist(gen)), c(dist(gen), dist(gen)), d(dist(gen), dist(gen));
    if (CGAL::orientation(CPoint(a.x(), a.y()), CPoint(b.x(), b.y()), CPoint(c.x(), c.y())) == CGAL::CLOCKWISE)
      std::swap(b, c);
    in.vPoint.insert(in.vPoint.end(), {a, b, c, d});
  }
  finish(in);
  return in;
}

/** Four points of a circle per case, the query moved by up to 3 ulps per
 * coordinate. For bOrientation the query is replaced by a point on the line
 * of the first two, moved in the same way: the orientation cases are
 * (p0, p1, p3). */
Inputs makeNearDegenerate(unsigned seed, bool bOrientation) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0), angle(0.0, 6.283185307179586);
  std::uniform_int_distribution<int> shift(-3, 3);
  Inputs in;
  for (int i = 0; i < NUM_CASES; ++i) {
    double aAngle[3] = {angle(gen), angle(gen), angle(gen)};
    std::sort(aAngle, aAngle + 3);
    const double cx(dist(gen)), cy(dist(gen)), r(0.5 + 0.5 * dist(gen) * dist(gen));
    const Point2 a(cx + r * std::cos(aAngle[0]), cy + r * std::sin(aAngle[0]));
    const Point2 b(cx + r * std::cos(aAngle[1]), cy + r * std::sin(aAngle[1]));
    const Point2 c(cx + r * std::cos(aAngle[2]), cy + r * std::sin(aAngle[2]));
    const double q(angle(gen));
    const Point2 d(nudge(cx + r * std::cos(q), shift(gen)), nudge(cy + r * std::sin(q), shift(gen)));
    in.vPoint.insert(in.vPoint.end(), {a, b, c, d});
  }
  for (int i = 0; bOrientation && i < NUM_CASES; ++i) {
    const Point2 &p0(in.vPoint[4 * i]), &p1(in.vPoint[4 * i + 1]);
    const double t(dist(gen) * 1.5);
    const Point2 onLine(p0.x() + t * (p1.x() - p0.x()), p0.y() + t * (p1.y() - p0.y()));
    in.vPoint[4 * i + 3].change(nudge(onLine.x(), shift(gen)), nudge(onLine.y(), shift(gen)));
  }
  finish(in);
  return in;
}

const Inputs& randomInputs() {
  static const Inputs in(makeRandom(1));
  return in;
}
const Inputs& degenerateOrientationInputs() {
  static const Inputs in(makeNearDegenerate(2, true));
  return in;
}
const Inputs& degenerateCircleInputs() {
  static const Inputs in(makeNearDegenerate(3, false));
  return in;
}

// One pass over all cases of a set; the sum keeps the calls alive.
long long passOrientationVask(KiroTest& kiroTest, const Inputs& in) {
  const std::vector<Point2>& v(in.vPoint);
  long long sum(0);
  for (std::size_t i = 0; i < v.size(); i += 4) sum += kiroTest.getOrientation2(&v[i], &v[i + 1], &v[i + 3]);
  return sum;
}
long long passOrientationCgal(const Inputs& in) {
  const std::vector<CPoint>& v(in.vCPoint);
  const Epick::Orientation_2 orientation(Epick().orientation_2_object());
  long long sum(0);
  for (std::size_t i = 0; i < v.size(); i += 4) sum += orientation(v[i], v[i + 1], v[i + 3]);
  return sum;
}
long long passIncircleVask(KiroTest& kiroTest, const Inputs& in) {
  const std::vector<Point2>& v(in.vPoint);
  const std::vector<Triangle2>& vT(in.vTriangle);
  long long sum(0);
  for (std::size_t i = 0; i < vT.size(); ++i) sum += kiroTest.circleInc3state(&vT[i], &v[4 * i + 3]);
  return sum;
}
long long passIncircleCgal(const Inputs& in) {
  const std::vector<CPoint>& v(in.vCPoint);
  const Epick::Side_of_oriented_circle_2 side(Epick().side_of_oriented_circle_2_object());
  long long sum(0);
  for (std::size_t i = 0; i < v.size(); i += 4) sum += side(v[i], v[i + 1], v[i + 2], v[i + 3]);
  return sum;
}

void reportShares(benchmark::State& state, unsigned long long numSlow, unsigned long long numFull,
                  unsigned long long numExact) {
  const double calls(double(state.iterations()) * NUM_CASES);
  state.counters["gmp_share"] = double(numExact) / calls;
  state.counters["full_expansion_share"] = double(numFull) / calls;
  state.counters["slow_share"] = double(numSlow) / calls;
  state.SetItemsProcessed(state.iterations() * NUM_CASES);
}

void BM_Orientation_Vask(benchmark::State& state, const Inputs& in) {
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(2.0);
  for (auto _ : state) benchmark::DoNotOptimize(passOrientationVask(kiroTest, in));
  const KiroTest::Counters& c(kiroTest.getCounters());
  reportShares(state, c.orientSlow, c.orientFull, c.orientExact);
}
void BM_Orientation_CGAL(benchmark::State& state, const Inputs& in) {
  for (auto _ : state) benchmark::DoNotOptimize(passOrientationCgal(in));
  state.SetItemsProcessed(state.iterations() * NUM_CASES);
}
void BM_Incircle_Vask(benchmark::State& state, const Inputs& in) {
  KiroTest kiroTest;
  for (auto _ : state) benchmark::DoNotOptimize(passIncircleVask(kiroTest, in));
  const KiroTest::Counters& c(kiroTest.getCounters());
  reportShares(state, c.incircleSlow, c.incircleFull, c.incircleExact);
}
void BM_Incircle_CGAL(benchmark::State& state, const Inputs& in) {
  for (auto _ : state) benchmark::DoNotOptimize(passIncircleCgal(in));
  state.SetItemsProcessed(state.iterations() * NUM_CASES);
}

/** Both libraries must give the same answers on the benchmark inputs. */
int countDisagreements() {
  int numBad(0);
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(2.0);
  for (const Inputs* pIn : {&randomInputs(), &degenerateOrientationInputs(), &degenerateCircleInputs()}) {
    const Inputs& in(*pIn);
    for (int i = 0; i < NUM_CASES; ++i) {
      const int vask(kiroTest.getOrientation2(&in.vPoint[4 * i], &in.vPoint[4 * i + 1], &in.vPoint[4 * i + 3]));
      const int cgal(CGAL::orientation(in.vCPoint[4 * i], in.vCPoint[4 * i + 1], in.vCPoint[4 * i + 3]));
      numBad += vask != (cgal > 0 ? 1 : (cgal < 0 ? 2 : 0));
      const int vaskC(kiroTest.circleInc3state(&in.vTriangle[i], &in.vPoint[4 * i + 3]));
      const int cgalC(CGAL::side_of_oriented_circle(in.vCPoint[4 * i], in.vCPoint[4 * i + 1], in.vCPoint[4 * i + 2],
                                                     in.vCPoint[4 * i + 3]));
      numBad += vaskC != (cgalC > 0 ? 2 : (cgalC < 0 ? 3 : 1));
    }
  }
  return numBad;
}

/** Nanoseconds per call of one pass, the fastest of many. */
template <class Pass> double fastestPass(Pass pass, int numRounds) {
  double best(1e300);
  for (int round = 0; round < numRounds; ++round) {
    const auto start(std::chrono::steady_clock::now());
    benchmark::DoNotOptimize(pass());
    const double ns(std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count());
    best = std::min(best, ns / NUM_CASES);
  }
  return best;
}

/** The summary: Vask and CGAL passes alternate, many times, and each keeps
 * its fastest; on a machine shared with other work this is the most
 * stable estimate of what each costs. */
void printSummary() {
  std::printf("\n%-30s %10s %10s %11s %10s %10s %10s\n", "summary (fastest alternating)", "Vask ns", "CGAL ns",
              "Vask/CGAL", "past filt", "full exp", "Vask GMP");
  struct Case {
    const char* name;
    const Inputs* pIn;
    bool bOrientation;
  };
  const Case aCase[4] = {{"orientation, random", &randomInputs(), true},
                         {"orientation, near-degenerate", &degenerateOrientationInputs(), true},
                         {"in-circle, random", &randomInputs(), false},
                         {"in-circle, near-degenerate", &degenerateCircleInputs(), false}};
  for (const Case& c : aCase) {
    KiroTest kiroTest;
    kiroTest.setStaticBound_MT(2.0);
    const int numRounds(c.pIn == &randomInputs() ? 2000 : 100);
    double vask(1e300), cgal(1e300);
    for (int block = 0; block < 10; ++block) { // alternate in blocks
      if (c.bOrientation) {
        vask = std::min(vask, fastestPass([&] { return passOrientationVask(kiroTest, *c.pIn); }, numRounds / 10));
        cgal = std::min(cgal, fastestPass([&] { return passOrientationCgal(*c.pIn); }, numRounds / 10));
      } else {
        vask = std::min(vask, fastestPass([&] { return passIncircleVask(kiroTest, *c.pIn); }, numRounds / 10));
        cgal = std::min(cgal, fastestPass([&] { return passIncircleCgal(*c.pIn); }, numRounds / 10));
      }
    }
    // The filters count no calls: one more pass, counted, gives the shares.
    kiroTest.resetCounters();
    if (c.bOrientation) {
      passOrientationVask(kiroTest, *c.pIn);
    } else {
      passIncircleVask(kiroTest, *c.pIn);
    }
    const KiroTest::Counters& counters(kiroTest.getCounters());
    const double numCalls(NUM_CASES);
    const double slowShare((c.bOrientation ? counters.orientSlow : counters.incircleSlow) / numCalls);
    const double fullShare((c.bOrientation ? counters.orientFull : counters.incircleFull) / numCalls);
    const double gmpShare((c.bOrientation ? counters.orientExact : counters.incircleExact) / numCalls);
    std::printf("%-30s %10.2f %10.2f %11.3f %9.2f%% %9.2f%% %9.2f%%\n", c.name, vask, cgal, vask / cgal,
                100.0 * slowShare, 100.0 * fullShare, 100.0 * gmpShare);
  }
}

std::string cpuModel() {
  std::ifstream cpuinfo("/proc/cpuinfo");
  std::string line;
  while (std::getline(cpuinfo, line))
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "unknown";
}

} // namespace

BENCHMARK_CAPTURE(BM_Orientation_Vask, random, randomInputs());
BENCHMARK_CAPTURE(BM_Orientation_CGAL, random, randomInputs());
BENCHMARK_CAPTURE(BM_Orientation_Vask, near_degenerate, degenerateOrientationInputs());
BENCHMARK_CAPTURE(BM_Orientation_CGAL, near_degenerate, degenerateOrientationInputs());
BENCHMARK_CAPTURE(BM_Incircle_Vask, random, randomInputs());
BENCHMARK_CAPTURE(BM_Incircle_CGAL, random, randomInputs());
BENCHMARK_CAPTURE(BM_Incircle_Vask, near_degenerate, degenerateCircleInputs());
BENCHMARK_CAPTURE(BM_Incircle_CGAL, near_degenerate, degenerateCircleInputs());

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::printf("machine:  %s\ncompiler: g++ %s\nflags:    %s\nCGAL:     %s\n", cpuModel().c_str(), __VERSION__,
              VASK2D_BENCH_FLAGS, CGAL_VERSION_STR);
  std::printf("cases:    %d per input set; Vask and CGAL disagree on %d\n\n", NUM_CASES, countDisagreements());
  benchmark::RunSpecifiedBenchmarks();
  printSummary();
  benchmark::Shutdown();
  return 0;
}
