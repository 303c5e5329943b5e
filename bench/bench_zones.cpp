// Collecting the triangles of a zone, Vask2D against CGAL, in the same run:
//
//   inside  N uniform points and 200 disjoint counter-clockwise polygons of
//           500 vertices (circles on a 15 x 14 raster), one oriented graph:
//           Zone2::getTriangles of its ZL_INSIDE zone against CGAL 5.5's
//           Constrained_Delaunay_triangulation_2 (Epick) with the
//           nesting-level flood mark_domains of CGAL's examples (face info,
//           written here) plus collecting the in-domain faces.
//   grow    the same mesh, a ZL_GROW zone without fences: a flood over the
//           whole mesh, against the same flood over CGAL's faces (face info
//           as the visited flag, neighbours through the face handles).
//
// N is 50k, 200k, 500k and 2M points (about 100k, 400k, 1M and 4M
// triangles; --quick: the first two). The builds are timed apart and
// reported for reference only. Each library runs in a forked child; a
// query is the best of five, the case the best of the runs. The counts
// must agree: a polygon's triangles depend on its vertices and the points
// inside it only.
//
// Usage: bench_zones [--quick] [--reps N] [--out FILE.md]
#include "BenchCommon.h"
#include "Vask_2D.h"
#include <CGAL/Constrained_Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Triangulation_face_base_with_info_2.h>
#include <iomanip>
#include <list>

#ifndef VASK2D_BENCH_RESULTS
#define VASK2D_BENCH_RESULTS "bench_zones.md"
#endif

namespace {

struct FaceInfo {
  int nestingLevel = -1;
  bool inDomain() const { return nestingLevel % 2 == 1; }
};
typedef CGAL::Exact_predicates_inexact_constructions_kernel K;
typedef CGAL::Triangulation_vertex_base_2<K> Vb;
typedef CGAL::Triangulation_face_base_with_info_2<FaceInfo, K> Fbb;
typedef CGAL::Constrained_triangulation_face_base_2<K, Fbb> Fb;
typedef CGAL::Triangulation_data_structure_2<Vb, Fb> Tds;
typedef CGAL::Constrained_Delaunay_triangulation_2<K, Tds, CGAL::Exact_predicates_tag> CDT;

struct Result {
  double seconds;       // the query, best of five
  double buildSeconds;  // points and constraints
  long numTriangles;    // in the query's result
};

const int NUM_POLYGONS = 200;
const int POLYGON_SIZE = 500;

// Circles on a 15 x 14 raster of the unit square, radius well below the spacing.
std::vector<std::vector<std::pair<double, double> > > makePolygons() {
  std::vector<std::vector<std::pair<double, double> > > v;
  const double pi(3.14159265358979323846), r(0.025);
  for (int k = 0; k < NUM_POLYGONS; ++k) {
    const double cx((k % 15 + 0.5) / 15.0), cy((k / 15 + 0.5) / 14.0);
    v.emplace_back();
    for (int i = 0; i < POLYGON_SIZE; ++i)
      v.back().emplace_back(cx + r * std::cos(2 * pi * i / POLYGON_SIZE), cy + r * std::sin(2 * pi * i / POLYGON_SIZE));
  }
  return v;
}

template <class F>
double bestOfFive(F f) {
  double best(1e300);
  for (int i = 0; i < 5; ++i) {
    const double t0(vask_bench::cpuSeconds());
    f();
    best = std::min(best, vask_bench::cpuSeconds() - t0);
  }
  return best;
}

Result runVask(size_t n, bool bGrow) {
  using namespace KIRO_VASK2D;
  const std::vector<std::pair<double, double> > vCoords(vask_bench::makeCoordinates("uniform", n));
  const std::vector<std::vector<std::pair<double, double> > > vPolygons(makePolygons());
  std::vector<Point2> vPoints;
  for (const auto& c : vCoords) vPoints.emplace_back(c.first, c.second);
  std::vector<Segment2> vSegments;
  for (const auto& poly : vPolygons)
    for (size_t i = 0; i < poly.size(); ++i) {
      const auto& a(poly[i]);
      const auto& b(poly[(i + 1) % poly.size()]);
      vSegments.emplace_back(Point2(a.first, a.second), Point2(b.first, b.second));
    }
  const double t0(vask_bench::cpuSeconds());
  Vask_2D dt;
  dt.insert(vPoints);
  ConstraintGraph2* pCG(dt.createConstraint(vSegments, CIS_CONSTRAINED_DELAUNAY, true));
  const double buildSeconds(vask_bench::cpuSeconds() - t0);
  Zone2* pZone(bGrow ? dt.createZone(std::vector<ConstraintGraph2*>(), ZL_GROW, Point2(0.5, 0.5))
                     : dt.createZone(pCG, ZL_INSIDE));
  std::vector<Triangle2*> vT;
  const double seconds(bestOfFive([&] {
    vT.clear();
    pZone->getTriangles(vT);
  }));
  return Result{seconds, buildSeconds, static_cast<long>(vT.size())};
}

// The flood of CGAL's examples: nesting level 0 outside, +1 across each
// constraint, breadth first from the infinite face.
void markDomains(CDT& cdt, CDT::Face_handle start, int index, std::list<CDT::Edge>& border) {
  if (start->info().nestingLevel != -1) return;
  std::list<CDT::Face_handle> queue;
  queue.push_back(start);
  while (!queue.empty()) {
    CDT::Face_handle fh(queue.front());
    queue.pop_front();
    if (fh->info().nestingLevel == -1) {
      fh->info().nestingLevel = index;
      for (int i = 0; i < 3; i++) {
        CDT::Edge e(fh, i);
        CDT::Face_handle n(fh->neighbor(i));
        if (n->info().nestingLevel == -1) {
          if (cdt.is_constrained(e)) border.push_back(e);
          else queue.push_back(n);
        }
      }
    }
  }
}

void markDomains(CDT& cdt) {
  for (CDT::Face_handle f : cdt.all_face_handles()) f->info().nestingLevel = -1;
  std::list<CDT::Edge> border;
  markDomains(cdt, cdt.infinite_face(), 0, border);
  while (!border.empty()) {
    CDT::Edge e(border.front());
    border.pop_front();
    CDT::Face_handle n(e.first->neighbor(e.second));
    if (n->info().nestingLevel == -1) markDomains(cdt, n, e.first->info().nestingLevel + 1, border);
  }
}

Result runCgal(size_t n, bool bGrow) {
  const std::vector<std::pair<double, double> > vCoords(vask_bench::makeCoordinates("uniform", n));
  const std::vector<std::vector<std::pair<double, double> > > vPolygons(makePolygons());
  std::vector<K::Point_2> vPoints;
  for (const auto& c : vCoords) vPoints.emplace_back(c.first, c.second);
  const double t0(vask_bench::cpuSeconds());
  CDT cdt;
  cdt.insert(vPoints.begin(), vPoints.end());
  for (const auto& poly : vPolygons) {
    std::vector<K::Point_2> vRing;
    for (const auto& p : poly) vRing.emplace_back(p.first, p.second);
    cdt.insert_constraint(vRing.begin(), vRing.end(), true);
  }
  const double buildSeconds(vask_bench::cpuSeconds() - t0);
  std::vector<CDT::Face_handle> vFaces;
  double seconds(0.0);
  if (!bGrow) {
    seconds = bestOfFive([&] {
      vFaces.clear();
      markDomains(cdt);
      for (CDT::Face_handle f : cdt.finite_face_handles())
        if (f->info().inDomain()) vFaces.push_back(f);
    });
  } else {
    seconds = bestOfFive([&] {
      vFaces.clear();
      for (CDT::Face_handle f : cdt.all_face_handles()) f->info().nestingLevel = -1;
      CDT::Face_handle start(cdt.locate(K::Point_2(0.5, 0.5)));
      std::vector<CDT::Face_handle> vStack(1, start);
      start->info().nestingLevel = 0;
      vFaces.push_back(start);
      while (!vStack.empty()) {
        CDT::Face_handle f(vStack.back());
        vStack.pop_back();
        for (int i = 0; i < 3; ++i) {
          CDT::Face_handle nb(f->neighbor(i));
          if (cdt.is_infinite(nb) || nb->info().nestingLevel != -1) continue;
          nb->info().nestingLevel = 0;
          vStack.push_back(nb);
          vFaces.push_back(nb);
        }
      }
    });
  }
  return Result{seconds, buildSeconds, static_cast<long>(vFaces.size())};
}

} // namespace

int main(int argc, char** argv) {
  const vask_bench::BenchArgs args(vask_bench::parseArgs(argc, argv));
  std::vector<size_t> vSizes{50000, 200000, 500000, 2000000};
  if (args.bQuick) vSizes.resize(2);
  std::ostringstream body;
  body << "# Zone triangles: Vask2D getTriangles against CGAL\n\n"
       << vask_bench::machineAndCompiler() << "\n"
       << "| case | points | triangles | Vask2D ns/triangle | CGAL ns/triangle | ratio | builds s (Vask2D / CGAL) |\n"
       << "|---|---|---|---|---|---|---|\n";
  bool bCountsAgree(true);
  for (int grow = 0; grow < 2; ++grow)
    for (size_t n : vSizes) {
      const std::string name(std::string(grow ? "grow" : "inside") + " " + std::to_string(n));
      Result v{}, g{};
      vask_bench::bestOfTurns(name, args.reps, [&] { return runVask(n, grow != 0); },
                              [&] { return runCgal(n, grow != 0); }, v, g);
      const double nsV(1e9 * v.seconds / std::max(1L, v.numTriangles));
      const double nsG(1e9 * g.seconds / std::max(1L, g.numTriangles));
      std::ostringstream row;
      row << "| " << (grow ? "grow, whole mesh" : "inside, 200 polygons") << " | " << n << " | " << v.numTriangles
          << (v.numTriangles == g.numTriangles ? "" : " (CGAL " + std::to_string(g.numTriangles) + ")") << " | "
          << std::fixed << std::setprecision(1) << nsV << " | " << nsG << " | " << std::setprecision(2)
          << nsV / nsG << " | " << v.buildSeconds << " / " << g.buildSeconds << " |\n";
      std::cout << row.str() << std::flush;
      body << row.str();
      bCountsAgree &= v.numTriangles == g.numTriangles;
    }
  const std::string notes(
      "Times are CPU seconds of forked children, a query the best of five, a case the best of the runs.\n"
      "ratio = Vask2D / CGAL; below 1 Vask2D is faster. CGAL: Epick, Exact_predicates_tag, mark_domains of its "
      "examples plus collecting the in-domain faces; grow: the same flood over the faces.\n" +
      std::string(bCountsAgree ? "The triangle counts agree in every case." : "THE TRIANGLE COUNTS DISAGREE."));
  vask_bench::writeMarkdown(args.outFile.empty() ? std::string(VASK2D_BENCH_RESULTS) : args.outFile, body.str(),
                            notes);
  return bCountsAgree ? 0 : 1;
}
