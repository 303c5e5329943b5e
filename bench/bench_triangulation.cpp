// Delaunay triangulation of the same points by Vask2D (vector insertion)
// and CGAL's Delaunay_triangulation_2 (Exact_predicates_inexact_constructions
// kernel, range insertion), single-threaded, in the same run.
//
// Every build runs in a forked child: the child makes the points, reads its
// peak resident size (VmHWM) as the baseline, builds, reads VmHWM again and
// reports time and peak - baseline through a pipe. So the two libraries
// never share a heap and the input is not counted for either. The time is
// the best of several runs; the memory is that of the first.
//
// Usage: bench_triangulation [--quick | --grids] [--reps N] [--out FILE.md]
#include "BenchCommon.h"
#include "Vask_2D.h"
#include "core/Dt2.h"
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#ifndef VASK2D_BENCH_RESULTS
#define VASK2D_BENCH_RESULTS "triangulation.md"
#endif

namespace {

typedef CGAL::Exact_predicates_inexact_constructions_kernel K;
typedef CGAL::Delaunay_triangulation_2<K> CgalDt;

struct Case {
  std::string name;
  std::string kind;
  std::size_t n;
};


struct Result {
  double seconds = 0.0;
  double peakMiB = 0.0;
  unsigned long long numTriangles = 0;
  // Predicate calls per input point that went past the filter to the
  // expansion stages, and that reached the rationals (the filters count no
  // calls, so there is no share of all calls).
  double expansionPerPoint = 0.0;
  double gmpPerPoint = 0.0;
};

// One build of a case by one library, run inside a forked child.
Result measure(const Case& c, bool bVask) {
  Result r;
  const std::vector<std::pair<double, double> > coords(vask_bench::makeCoordinates(c.kind, c.n));
  if (bVask) {
    std::vector<KIRO_VASK2D::Point2> vPoints;
    vPoints.reserve(coords.size());
    for (const auto& xy : coords) vPoints.emplace_back(xy.first, xy.second);
    const long base(vask_bench::readVmHWMkB());
    const auto t0(std::chrono::steady_clock::now());
    KIRO_VASK2D::Vask_2D dt;
    dt.insert(vPoints);
    const auto t1(std::chrono::steady_clock::now());
    r.seconds = std::chrono::duration<double>(t1 - t0).count();
    r.peakMiB = (vask_bench::readVmHWMkB() - base) / 1024.0;
    r.numTriangles = dt.numberOfTriangles();
    const KIRO_VASK2D::KiroTest::Counters& cnt(dt.getImpl()->getKiroTest().getCounters());
    const double numPoints(static_cast<double>(c.n));
    r.gmpPerPoint = (cnt.orientExact + cnt.incircleExact) / numPoints;
    r.expansionPerPoint = (cnt.orientExpansion + cnt.incircleExpansion) / numPoints;
  } else {
    std::vector<K::Point_2> vPoints;
    vPoints.reserve(coords.size());
    for (const auto& xy : coords) vPoints.emplace_back(xy.first, xy.second);
    const long base(vask_bench::readVmHWMkB());
    const auto t0(std::chrono::steady_clock::now());
    CgalDt dt;
    dt.insert(vPoints.begin(), vPoints.end());
    const auto t1(std::chrono::steady_clock::now());
    r.seconds = std::chrono::duration<double>(t1 - t0).count();
    r.peakMiB = (vask_bench::readVmHWMkB() - base) / 1024.0;
    r.numTriangles = dt.number_of_faces();
  }
  return r;
}

Result runInChild(const Case& c, bool bVask) {
  return vask_bench::runInChild<Result>(c.name, bVask, [&c, bVask] { return measure(c, bVask); });
}

Result best(const Case& c, bool bVask, int reps) {
  Result first(runInChild(c, bVask));
  for (int i = 1; i < reps; ++i) first.seconds = std::min(first.seconds, runInChild(c, bVask).seconds);
  return first;
}

} // namespace

int main(int argc, char** argv) {
  const vask_bench::BenchArgs args(vask_bench::parseArgs(argc, argv));
  const bool bQuick(args.bQuick);
  const int reps(args.reps);
  const std::string outFile(args.outFile.empty() ? std::string(VASK2D_BENCH_RESULTS) : args.outFile);
  std::vector<Case> vCases = {{"uniform 100k", "uniform", 100000},
                              {"uniform 1M", "uniform", 1000000},
                              {"uniform 4M", "uniform", 4000000},
                              {"grid 1000x1000", "grid", 1000000},
                              {"grid in [0,1]", "scaled grid", 1000000},
                              {"clustered 1M", "clustered", 1000000}};
  if (bQuick) vCases = {{"uniform 100k", "uniform", 100000}, {"uniform 1M", "uniform", 1000000}};
  // --grids: the two grids and uniform 1M, the cases the predicates' exact stages decide.
  for (int i = 1; i < argc; ++i)
    if (std::string(argv[i]) == "--grids")
      vCases = {{"uniform 1M", "uniform", 1000000},
                {"grid 1000x1000", "grid", 1000000},
                {"grid in [0,1]", "scaled grid", 1000000}};

  std::ostringstream machine;
  machine << vask_bench::machineAndCompiler() << "Peers: CGAL " << CGAL_VERSION_STR << " Delaunay_triangulation_2<Epick>, range insertion\n"
          << "Single thread; time = best of " << reps << " runs; peak = VmHWM growth of a forked child\n";
  std::cout << machine.str() << std::endl;

  std::ostringstream table;
  table << "| case | Vask2D s | CGAL s | time ratio | Vask2D MiB | CGAL MiB | memory ratio |\n"
        << "|---|---:|---:|---:|---:|---:|---:|\n";
  std::cout << std::left << std::setw(16) << "case" << std::right << std::setw(10) << "Vask s" << std::setw(10)
            << "CGAL s" << std::setw(8) << "ratio" << std::setw(11) << "Vask MiB" << std::setw(11) << "CGAL MiB"
            << std::setw(8) << "ratio" << std::setw(14) << "triangles" << std::setw(14) << "expansion/pt" << std::setw(10) << "GMP/pt"
            << std::endl;
  for (const Case& c : vCases) {
    const Result v(best(c, true, reps));
    const Result g(best(c, false, reps));
    std::cout << std::left << std::setw(16) << c.name << std::right << std::fixed << std::setprecision(3)
              << std::setw(10) << v.seconds << std::setw(10) << g.seconds << std::setw(8) << v.seconds / g.seconds
              << std::setprecision(1) << std::setw(11) << v.peakMiB << std::setw(11) << g.peakMiB
              << std::setprecision(3) << std::setw(8) << v.peakMiB / g.peakMiB << std::setw(14) << v.numTriangles
              << std::setprecision(4) << std::setw(14) << v.expansionPerPoint << std::setw(10) << v.gmpPerPoint
              << std::endl;
    if (v.numTriangles != g.numTriangles)
      std::cout << "  note: CGAL reports " << g.numTriangles << " finite faces" << std::endl;
    table << "| " << c.name << " | " << std::fixed << std::setprecision(3) << v.seconds << " | " << g.seconds << " | "
          << v.seconds / g.seconds << " | " << std::setprecision(1) << v.peakMiB << " | " << g.peakMiB << " | "
          << std::setprecision(3) << v.peakMiB / g.peakMiB << " |\n";
  }
  return vask_bench::writeMarkdown(outFile, table.str(), machine.str()) ? 0 : 1;
}
