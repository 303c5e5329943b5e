// Removal of half of the vertices of a Delaunay triangulation by Vask2D
// (Vask_2D::remove) and CGAL (Delaunay_triangulation_2<Epick>::remove), on
// the same points, the same vertices and in the same order, in the same run.
//
// Every measurement runs in a forked child, so the two libraries never
// share a heap. The child makes the points, builds the triangulation
// (untimed), then times the removals alone. The time is the best of several
// runs. The child also checks the result: the number of vertices and
// triangles left.
//
// Usage: bench_removal [--quick] [--reps N] [--out FILE.md]
#include "BenchCommon.h"
#include "Vask_2D.h"
#include "core/Dt2.h"
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Triangulation_vertex_base_with_info_2.h>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

typedef CGAL::Exact_predicates_inexact_constructions_kernel K;
typedef CGAL::Triangulation_vertex_base_with_info_2<std::size_t, K> Vb;
typedef CGAL::Triangulation_data_structure_2<Vb> Tds;
typedef CGAL::Delaunay_triangulation_2<K, Tds> CgalDt;

struct Case {
  std::string name;
  std::size_t n;
  double fraction; // share of the vertices removed
};

// Uniform random points in the unit square, and the removal order: a fixed
// random subset of the indices in a fixed random order.
void makeInput(const Case& c, std::vector<std::pair<double, double> >& vCoords, std::vector<std::size_t>& vOrder) {
  std::mt19937_64 gen(20240611);
  std::uniform_real_distribution<double> d(0.0, 1.0);
  vCoords.clear();
  vCoords.reserve(c.n);
  for (std::size_t i = 0; i < c.n; ++i) {
    const double x(d(gen));
    vCoords.emplace_back(x, d(gen));
  }
  vOrder.resize(c.n);
  for (std::size_t i = 0; i < c.n; ++i) vOrder[i] = i;
  std::shuffle(vOrder.begin(), vOrder.end(), gen);
  vOrder.resize(static_cast<std::size_t>(c.fraction * c.n));
}

struct Result {
  double seconds = 0.0;
  double buildSeconds = 0.0;
  unsigned long long numVertices = 0;
  unsigned long long numTriangles = 0;
};

Result measureVask(const Case& c) {
  std::vector<std::pair<double, double> > vCoords;
  std::vector<std::size_t> vOrder;
  makeInput(c, vCoords, vOrder);
  std::vector<KIRO_VASK2D::Point2> vPoints;
  vPoints.reserve(vCoords.size());
  for (const auto& xy : vCoords) vPoints.emplace_back(xy.first, xy.second);
  Result r;
  const auto t0(std::chrono::steady_clock::now());
  KIRO_VASK2D::Vask_2D dt;
  std::vector<KIRO_VASK2D::Point2*> vHandles;
  dt.insert(vPoints, vHandles);
  const auto t1(std::chrono::steady_clock::now());
  for (std::size_t i : vOrder) dt.remove(vHandles[i]);
  const auto t2(std::chrono::steady_clock::now());
  r.buildSeconds = std::chrono::duration<double>(t1 - t0).count();
  r.seconds = std::chrono::duration<double>(t2 - t1).count();
  r.numVertices = dt.numberOfPoints();
  r.numTriangles = dt.numberOfTriangles();
  return r;
}

Result measureCgal(const Case& c) {
  std::vector<std::pair<double, double> > vCoords;
  std::vector<std::size_t> vOrder;
  makeInput(c, vCoords, vOrder);
  std::vector<std::pair<K::Point_2, std::size_t> > vPoints;
  vPoints.reserve(vCoords.size());
  for (std::size_t i = 0; i < vCoords.size(); ++i) vPoints.emplace_back(K::Point_2(vCoords[i].first, vCoords[i].second), i);
  Result r;
  const auto t0(std::chrono::steady_clock::now());
  CgalDt dt;
  dt.insert(vPoints.begin(), vPoints.end());
  std::vector<CgalDt::Vertex_handle> vHandles(vCoords.size());
  for (CgalDt::Finite_vertices_iterator v = dt.finite_vertices_begin(); v != dt.finite_vertices_end(); ++v)
    vHandles[v->info()] = v;
  const auto t1(std::chrono::steady_clock::now());
  for (std::size_t i : vOrder) dt.remove(vHandles[i]);
  const auto t2(std::chrono::steady_clock::now());
  r.buildSeconds = std::chrono::duration<double>(t1 - t0).count();
  r.seconds = std::chrono::duration<double>(t2 - t1).count();
  r.numVertices = dt.number_of_vertices();
  r.numTriangles = dt.number_of_faces();
  return r;
}

} // namespace

int main(int argc, char** argv) {
  const vask_bench::BenchArgs args(vask_bench::parseArgs(argc, argv));
  const bool bQuick(args.bQuick);
  const int reps(args.reps);
  std::string outFile(args.outFile);
  if (outFile.empty()) outFile = vask_bench::resultsDir() + "/removal.md";
  std::vector<Case> vCases = {{"uniform 100k, remove 50%", 100000, 0.5},
                              {"uniform 1M, remove 50%", 1000000, 0.5},
                              {"uniform 1M, remove 100%", 1000000, 1.0}};
  if (bQuick) vCases = {{"uniform 100k, remove 50%", 100000, 0.5}, {"uniform 1M, remove 50%", 1000000, 0.5}};

  std::ostringstream machine;
  machine << vask_bench::machineAndCompiler() << "Peer: CGAL " << CGAL_VERSION_STR
          << " Delaunay_triangulation_2<Epick>::remove (vertex base with info for the handles)\n"
          << "Single thread; the same points, vertices and order for both; time of the removals only, best of "
          << reps << " runs, each in a forked child\n";
  std::cout << machine.str() << std::endl;

  std::ostringstream table;
  table << "| case | Vask2D s | CGAL s | time ratio | Vask2D us/vertex | CGAL us/vertex |\n"
        << "|---|---:|---:|---:|---:|---:|\n";
  std::cout << std::left << std::setw(26) << "case" << std::right << std::setw(10) << "Vask s" << std::setw(10)
            << "CGAL s" << std::setw(8) << "ratio" << std::setw(12) << "Vask build" << std::setw(12) << "CGAL build"
            << std::setw(12) << "vertices" << std::setw(12) << "triangles" << std::endl;
  for (const Case& c : vCases) {
    Result v, g;
    vask_bench::bestOfTurns(
        c.name, reps, [&c] { return measureVask(c); }, [&c] { return measureCgal(c); }, v, g);
    const double numRemoved(c.fraction * c.n);
    std::cout << std::left << std::setw(26) << c.name << std::right << std::fixed << std::setprecision(3)
              << std::setw(10) << v.seconds << std::setw(10) << g.seconds << std::setw(8) << v.seconds / g.seconds
              << std::setw(12) << v.buildSeconds << std::setw(12) << g.buildSeconds << std::setw(12)
              << v.numVertices << std::setw(12) << v.numTriangles << std::endl;
    if (v.numVertices != g.numVertices || v.numTriangles != g.numTriangles)
      std::cout << "  MISMATCH: CGAL keeps " << g.numVertices << " vertices, " << g.numTriangles << " triangles"
                << std::endl;
    table << "| " << c.name << " | " << std::fixed << std::setprecision(3) << v.seconds << " | " << g.seconds << " | "
          << v.seconds / g.seconds << " | " << std::setprecision(2) << 1e6 * v.seconds / numRemoved << " | "
          << 1e6 * g.seconds / numRemoved << " |\n";
  }
  std::cout << "\n" << table.str();
  return vask_bench::writeMarkdown(outFile, "# Vertex removal\n\n" + table.str(), machine.str()) ? 0 : 1;
}
