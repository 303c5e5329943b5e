// Intersection report of a soup of segments by Vask2D's SegmentChecker and
// CGAL's compute_intersection_points (Surface_sweep_2 with
// Exact_predicates_exact_constructions_kernel), on the same segments in the
// same run.
//
// Vask2D is timed for the construction of the checker plus getIntersectors
// of every segment, and again with getIntersectionPoint for every crossing
// pair; CGAL for one call of compute_intersection_points. Both count the
// crossings: the pairs reported by Vask2D equal CGAL's points on these
// inputs, which have no three segments through one point. Each measurement
// runs in a forked child (no shared heap; peak memory is the growth of its
// resident set after the input is made); times are CPU times, the best of
// --reps runs.
//
// Usage: bench_segment_checker [--quick] [--reps N] [--out FILE.md]
#include "BenchCommon.h"
#include "SegmentChecker.h"
#include <CGAL/Exact_predicates_exact_constructions_kernel.h>
#include <CGAL/Surface_sweep_2_algorithms.h>
#include <algorithm>
#include <ctime>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace KIRO_VASK2D;
typedef CGAL::Exact_predicates_exact_constructions_kernel Epeck;

enum Shape { RANDOM, PARALLEL_DIAGONALS };

struct Case {
  std::string name;
  std::size_t n;
  double crossingsPerSegment; // the length is chosen for about this many crossings per segment
  Shape shape;
  bool bOutlier;              // one more segment at 1e12
};

struct Coords {
  double x0, y0, x1, y1;
};

/** n segments in the unit square with uniform directions. For length L, a
 * pair crosses with probability about 2 L^2 / pi, so n^2 L^2 / pi pairs
 * cross: L = sqrt(pi c / n) gives about c n crossings. */
std::vector<Coords> makeInput(const Case& c) {
  std::mt19937_64 gen(20261123);
  std::uniform_real_distribution<double> d(0.0, 1.0);
  std::vector<Coords> v;
  v.reserve(c.n + 1);
  const double length(std::sqrt(M_PI * c.crossingsPerSegment / double(c.n)));
  for (std::size_t i = 0; i < c.n; ++i) {
    if (c.shape == PARALLEL_DIAGONALS) {
      // Long parallel diagonals: every box overlaps most others, yet nothing crosses.
      const double x(double(i) / double(c.n));
      v.push_back({x, 0.0, x + 1.0, 1.0});
      continue;
    }
    const double x(d(gen)), y(d(gen)), a(2 * M_PI * d(gen));
    v.push_back({x, y, x + length * std::cos(a), y + length * std::sin(a)});
  }
  if (c.bOutlier) v.push_back({1e12, 1e12, 1e12 + 1, 1e12 + 1});
  return v;
}

struct Result {
  double seconds = 0.0;           // Vask: construction + getIntersectors; CGAL: the sweep
  double secondsWithPoints = 0.0; // Vask: the same plus getIntersectionPoint per crossing
  unsigned long long crossings = 0;
  long peakKB = 0;
};

using vask_bench::cpuSeconds;

Result measureVask(const Case& c, int reps) {
  const std::vector<Coords> vCoords(makeInput(c));
  std::vector<Segment2> vSegments;
  vSegments.reserve(vCoords.size());
  for (const Coords& s : vCoords) vSegments.push_back(Segment2(Point2(s.x0, s.y0), Point2(s.x1, s.y1)));
  std::vector<Segment2*> vPointers;
  for (Segment2& s : vSegments) vPointers.push_back(&s);
  const long baseKB(vask_bench::readVmHWMkB());
  Result r;
  r.seconds = r.secondsWithPoints = 1e300;
  std::vector<std::pair<Segment2*, SegmentIntersectionType> > vHits;
  vHits.reserve(1000);
  // Quadratic cases are run once, without the points, which add nothing there.
  const bool bQuadratic(c.shape == PARALLEL_DIAGONALS);
  for (int rep = 0; rep < (bQuadratic ? 1 : 2 * reps); ++rep) {
    const bool bPoints(rep % 2 == 1);
    const double t0(cpuSeconds());
    SegmentChecker checker(vPointers);
    unsigned long long hits(0);
    double sum(0.0);
    for (Segment2* pSeg : vPointers) {
      vHits.clear();
      checker.getIntersectors(pSeg, false, vHits);
      hits += vHits.size();
      if (!bPoints) continue;
      // Each crossing once: the segments lie in one vector, so pointer order is position order.
      for (const auto& hit : vHits) {
        if (hit.first < pSeg || hit.second != SIT_POINT) continue;
        Point2 p;
        checker.getIntersectionPoint(SIT_POINT, *pSeg, *hit.first, p);
        sum += p.x();
      }
    }
    const double t(cpuSeconds() - t0);
    if (sum == 42.4242) std::cout << "";
    (bPoints ? r.secondsWithPoints : r.seconds) = std::min(bPoints ? r.secondsWithPoints : r.seconds, t);
    r.crossings = hits / 2;
  }
  r.peakKB = vask_bench::readVmHWMkB() - baseKB;
  return r;
}

Result measureCgal(const Case& c, int reps) {
  const std::vector<Coords> vCoords(makeInput(c));
  std::vector<Epeck::Segment_2> vSegments;
  vSegments.reserve(vCoords.size());
  for (const Coords& s : vCoords)
    vSegments.push_back(Epeck::Segment_2(Epeck::Point_2(s.x0, s.y0), Epeck::Point_2(s.x1, s.y1)));
  const long baseKB(vask_bench::readVmHWMkB());
  Result r;
  r.seconds = 1e300;
  for (int rep = 0; rep < (c.shape == PARALLEL_DIAGONALS ? 1 : reps); ++rep) {
    std::vector<Epeck::Point_2> vPoints;
    const double t0(cpuSeconds());
    CGAL::compute_intersection_points(vSegments.begin(), vSegments.end(), std::back_inserter(vPoints));
    r.seconds = std::min(r.seconds, cpuSeconds() - t0);
    r.crossings = vPoints.size();
  }
  r.peakKB = vask_bench::readVmHWMkB() - baseKB;
  return r;
}

std::string fixed(double v, int digits) {
  std::ostringstream s;
  s << std::fixed << std::setprecision(digits) << v;
  return s.str();
}

/** A time or ratio with points; a dash where that pass did not run. */
std::string withPoints(double v, int digits) { return v > 1e200 ? "-" : fixed(v, digits); }

} // namespace

int main(int argc, char** argv) {
  const vask_bench::BenchArgs args(vask_bench::parseArgs(argc, argv));
  const std::size_t k(args.bQuick ? 10 : 1);
  const int reps(args.reps);
  std::cout << vask_bench::machineAndCompiler();
  std::ostringstream body;

  // Against CGAL.
  std::vector<Case> vPeer{{"random 100k, ~100k crossings", 100000 / k, 1.0, RANDOM, false},
                          {"short 1M, few crossings", 1000000 / k, 0.01, RANDOM, false},
                          {"parallel diagonals 20k, no crossing", 20000 / k, 0.0, PARALLEL_DIAGONALS, false}};
  body << "| case | crossings | Vask2D s | Vask2D s with points | CGAL s | time ratio | ratio with points | "
          "Vask2D MiB | CGAL MiB |\n|---|---:|---:|---:|---:|---:|---:|---:|---:|\n";
  for (const Case& c : vPeer) {
    const Result v(vask_bench::runInChild<Result>(c.name, true, [&] { return measureVask(c, reps); }));
    const Result g(vask_bench::runInChild<Result>(c.name, false, [&] { return measureCgal(c, reps); }));
    if (v.crossings != g.crossings)
      std::cerr << c.name << ": crossing counts differ, Vask2D " << v.crossings << ", CGAL " << g.crossings << "\n";
    std::ostringstream row;
    row << "| " << c.name << " | " << v.crossings << (v.crossings == g.crossings ? "" : " (CGAL differs)") << " | "
        << fixed(v.seconds, 3) << " | " << withPoints(v.secondsWithPoints, 3) << " | " << fixed(g.seconds, 3) << " | "
        << fixed(v.seconds / g.seconds, 3) << " | " << withPoints(v.secondsWithPoints / g.seconds, 3) << " | "
        << fixed(v.peakKB / 1024.0, 1) << " | " << fixed(g.peakKB / 1024.0, 1) << " |\n";
    std::cout << row.str() << std::flush;
    body << row.str();
  }

  // Scaling with about n crossings.
  body << "\n| case | n | crossings k | Vask2D s | ns per (n+k) log2 n | relative to 10k |\n"
          "|---|---:|---:|---:|---:|---:|\n";
  double first(0.0);
  for (std::size_t n : {std::size_t(10000), std::size_t(100000), std::size_t(1000000)}) {
    const Case c{"random, k ~ n", n / k, 1.0, RANDOM, false};
    const Result v(vask_bench::runInChild<Result>(c.name, true, [&] { return measureVask(c, reps); }));
    const double perUnit(1e9 * v.seconds / ((double(c.n) + double(v.crossings)) * std::log2(double(c.n))));
    if (first == 0.0) first = perUnit;
    std::ostringstream row;
    row << "| " << c.name << " | " << c.n << " | " << v.crossings << " | " << fixed(v.seconds, 3) << " | "
        << fixed(perUnit, 2) << " | " << fixed(perUnit / first, 2) << " |\n";
    std::cout << row.str() << std::flush;
    body << row.str();
  }

  // One far segment must not cost the rest their locality in the index.
  body << "\n| case | n | Vask2D s | relative |\n|---|---:|---:|---:|\n";
  double without(0.0);
  for (bool bOutlier : {false, true}) {
    const Case c{bOutlier ? "short, plus one segment at 1e12" : "short", 200000 / k, 0.01, RANDOM, bOutlier};
    const Result v(vask_bench::runInChild<Result>(c.name, true, [&] { return measureVask(c, reps); }));
    if (!bOutlier) without = v.seconds;
    std::ostringstream row;
    row << "| " << c.name << " | " << c.n << " | " << fixed(v.seconds, 3) << " | " << fixed(v.seconds / without, 2)
        << " |\n";
    std::cout << row.str() << std::flush;
    body << row.str();
  }

  std::ostringstream notes;
  notes << vask_bench::machineAndCompiler()
        << "Peers: CGAL " << CGAL_VERSION_STR
        << " compute_intersection_points (Surface_sweep_2), Exact_predicates_exact_constructions_kernel\n"
        << "Single thread; time = CPU time of the process, best of " << reps << " runs (one for the parallel diagonals); memory = VmHWM growth of a forked child\n"
        << "Vask2D time: SegmentChecker construction + getIntersectors of every segment; with points: "
           "+ getIntersectionPoint per crossing";
  if (!args.outFile.empty()) vask_bench::writeMarkdown(args.outFile, body.str(), notes.str());
#ifdef VASK2D_BENCH_RESULTS
  else if (!args.bQuick)
    vask_bench::writeMarkdown(VASK2D_BENCH_RESULTS, body.str(), notes.str());
#endif
  return 0;
}
