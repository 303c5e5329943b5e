// Insertion order and start of the walk: batch insertion of data whose
// Hilbert key is coarse (one far outlier, tight clusters far apart), and
// single insertion in sorted, curve and collinear order, by Vask2D and CGAL
// on the same points in the same run.
//
// Batch: Vask_2D::insert(vector) against Delaunay_triangulation_2<Epick>::
// insert(begin, end), which sorts spatially itself. Single: Vask_2D::insert
// (Point2) point by point against CGAL's insert(p, hint) with the face of
// the last inserted vertex as the hint, which is what a CGAL user in such an
// order would write. Each measurement runs in a forked child; the time is
// the CPU time of the inserting thread (the machine is shared, and wall
// time there measures the neighbours), best of several runs; the memory is
// the growth of the child's peak resident size, the input not counted.
//
// Usage: bench_order [--quick] [--reps N] [--out FILE.md] [--only TEXT]
// (--only runs the cases whose name contains TEXT)
#include "BenchCommon.h"
#include "Vask_2D.h"
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

typedef CGAL::Exact_predicates_inexact_constructions_kernel K;
typedef CGAL::Delaunay_triangulation_2<K> CgalDt;

enum Shape { UNIFORM, OUTLIER, CLUSTERS, PARABOLA, COLLINEAR, TWO_LINES, FAR_REMOVED };

struct Case {
  std::string name;
  Shape shape;
  std::size_t n;
  double far; // the outlier's coordinate
  bool bSingle;
};

void makeInput(const Case& c, std::vector<std::pair<double, double> >& v) {
  std::mt19937_64 gen(20260117);
  std::uniform_real_distribution<double> d(0.0, 1.0);
  v.clear();
  v.reserve(c.n + 1);
  switch (c.shape) {
  case UNIFORM:
  case FAR_REMOVED:
    for (std::size_t i = 0; i < c.n; ++i) {
      const double x(d(gen));
      v.emplace_back(x, d(gen));
    }
    break;
  case OUTLIER:
    for (std::size_t i = 0; i < c.n; ++i) {
      const double x(d(gen));
      v.emplace_back(x, d(gen));
    }
    v.emplace_back(c.far, c.far);
    break;
  case CLUSTERS: // clusters of 1000 points, 1e-6 wide, spread over a 1e6 square
    for (std::size_t i = 0; i < c.n; i += 1000) {
      const double cx(1e6 * d(gen)), cy(1e6 * d(gen));
      for (std::size_t k = i; k < std::min(c.n, i + 1000); ++k) {
        const double x(cx + 1e-6 * d(gen));
        v.emplace_back(x, cy + 1e-6 * d(gen));
      }
    }
    break;
  case PARABOLA:
    for (std::size_t i = 0; i < c.n; ++i) v.emplace_back(double(i), double(i) * double(i));
    break;
  case COLLINEAR:
    for (std::size_t i = 0; i < c.n; ++i) v.emplace_back(double(i), 0.5 * double(i));
    break;
  case TWO_LINES:
    for (std::size_t i = 0; i < c.n; ++i) v.emplace_back(double(i / 2), (i % 2) ? 1.0 : 0.0);
    break;
  }
}

double threadSeconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

struct Result {
  double seconds = 0.0;
  long peakKB = 0;
  unsigned long long numVertices = 0;
  unsigned long long numTriangles = 0;
};

Result measureVask(const Case& c) {
  std::vector<std::pair<double, double> > vCoords;
  makeInput(c, vCoords);
  std::vector<KIRO_VASK2D::Point2> vPoints;
  vPoints.reserve(vCoords.size());
  for (const auto& xy : vCoords) vPoints.emplace_back(xy.first, xy.second);
  Result r;
  const long base(vask_bench::readVmHWMkB());
  KIRO_VASK2D::Vask_2D dt;
  if (c.shape == FAR_REMOVED) dt.remove(dt.insert(KIRO_VASK2D::Point2(1e12, 1e12)));
  const double t0(threadSeconds());
  if (c.bSingle) {
    for (const KIRO_VASK2D::Point2& p : vPoints) dt.insert(p);
  } else {
    dt.insert(vPoints);
  }
  r.seconds = threadSeconds() - t0;
  r.numVertices = dt.numberOfPoints();
  r.numTriangles = dt.numberOfTriangles();
  r.peakKB = vask_bench::readVmHWMkB() - base;
  return r;
}

Result measureCgal(const Case& c) {
  std::vector<std::pair<double, double> > vCoords;
  makeInput(c, vCoords);
  std::vector<K::Point_2> vPoints;
  vPoints.reserve(vCoords.size());
  for (const auto& xy : vCoords) vPoints.emplace_back(xy.first, xy.second);
  Result r;
  const long base(vask_bench::readVmHWMkB());
  CgalDt dt;
  if (c.shape == FAR_REMOVED) dt.remove(dt.insert(K::Point_2(1e12, 1e12)));
  const double t0(threadSeconds());
  if (c.bSingle) {
    CgalDt::Face_handle hint;
    for (const K::Point_2& p : vPoints) hint = dt.insert(p, hint)->face();
  } else {
    dt.insert(vPoints.begin(), vPoints.end());
  }
  r.seconds = threadSeconds() - t0;
  r.numVertices = dt.number_of_vertices();
  r.numTriangles = dt.dimension() == 2 ? dt.number_of_faces() : 0;
  r.peakKB = vask_bench::readVmHWMkB() - base;
  return r;
}

} // namespace

int main(int argc, char** argv) {
  const vask_bench::BenchArgs args(vask_bench::parseArgs(argc, argv));
  std::string outFile(args.outFile);
  std::string only;
  for (int i = 1; i + 1 < argc; ++i)
    if (std::strcmp(argv[i], "--only") == 0) only = argv[i + 1];
  if (outFile.empty()) outFile = vask_bench::resultsDir() + "/order.md";
  const std::size_t nb(args.bQuick ? 100000 : 200000), ns(args.bQuick ? 50000 : 100000);
  const std::vector<Case> vCases = {
      {"batch uniform " + std::to_string(nb / 1000) + "k", UNIFORM, nb, 0.0, false},
      {"batch same + outlier 1e6", OUTLIER, nb, 1e6, false},
      {"batch same + outlier 1e12", OUTLIER, nb, 1e12, false},
      {"batch same + outlier 1e100", OUTLIER, nb, 1e100, false},
      {"batch same + outlier 1e300", OUTLIER, nb, 1e300, false},
      {"batch clusters 1e-6 in 1e6", CLUSTERS, nb, 0.0, false},
      {"single uniform " + std::to_string(ns / 1000) + "k", UNIFORM, ns, 0.0, true},
      {"single uniform after far point", FAR_REMOVED, ns, 0.0, true},
      {"single parabola " + std::to_string(ns / 1000) + "k", PARABOLA, ns, 0.0, true},
      {"single collinear " + std::to_string(ns / 1000) + "k", COLLINEAR, ns, 0.0, true},
      {"single two lines " + std::to_string(ns / 1000) + "k", TWO_LINES, ns, 0.0, true},
  };

  std::ostringstream machine;
  machine << vask_bench::machineAndCompiler() << "Peer: CGAL " << CGAL_VERSION_STR
          << " Delaunay_triangulation_2<Epick>: insert(begin, end) for batches, insert(p, hint = face of the last "
             "vertex) for single insertion\n"
          << "Single thread; the same points for both; time = CPU time of the inserting thread, best of "
          << args.reps << " runs, each in a forked child; peak = VmHWM growth of the child, input not counted\n";
  std::cout << machine.str() << std::endl;

  std::ostringstream table;
  table << "| case | Vask2D s | CGAL s | time ratio | Vask2D MiB | CGAL MiB |\n"
        << "|---|---:|---:|---:|---:|---:|\n";
  for (const Case& c : vCases) {
    if (!only.empty() && c.name.find(only) == std::string::npos) continue;
    Result v, g;
    vask_bench::bestOfTurns(
        c.name, args.reps, [&c] { return measureVask(c); }, [&c] { return measureCgal(c); }, v, g);
    std::cout << std::left << std::setw(34) << c.name << std::right << std::fixed << std::setprecision(4)
              << std::setw(10) << v.seconds << std::setw(10) << g.seconds << std::setprecision(2) << std::setw(8)
              << v.seconds / g.seconds << std::setw(9) << v.peakKB / 1024.0 << std::setw(9) << g.peakKB / 1024.0
              << std::setw(10) << v.numVertices << std::setw(10) << v.numTriangles << std::endl;
    if (v.numVertices != g.numVertices || v.numTriangles != g.numTriangles)
      std::cout << "  MISMATCH: CGAL has " << g.numVertices << " vertices, " << g.numTriangles << " triangles"
                << std::endl;
    table << "| " << c.name << " | " << std::fixed << std::setprecision(4) << v.seconds << " | " << g.seconds << " | "
          << std::setprecision(2) << v.seconds / g.seconds << " | " << std::setprecision(1) << v.peakKB / 1024.0
          << " | " << g.peakKB / 1024.0 << " |\n";
  }
  std::cout << "\n" << table.str();
  return vask_bench::writeMarkdown(outFile, "# Insertion order\n\n" + table.str(), machine.str()) ? 0 : 1;
}
