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
// Set operations (second table): two overlapping rectangles, A = [0.05,
// 0.65] x [0.05, 0.95] and B = [0.35, 0.95] x [0.05, 0.95], as two oriented
// graphs over N uniform points; each zone holds about 54% of the mesh, so
// N = 460k gives two zones of about 500k triangles. A query of a result zone
// floods both inputs and combines them; its cost per input triangle should
// not grow with N. CGAL: Constrained_triangulation_plus_2 over the same
// CDT, the same two floods (a constrained edge blocks when one of its
// contexts is the zone's polygon) with a bit per zone in the face info,
// the same combination, then the bits cleared through the lists.
//
// Usage: bench_zones [--quick] [--reps N] [--out FILE.md] [--setops-only]
#include "BenchCommon.h"
#include "Vask_2D.h"
#include <CGAL/Constrained_Delaunay_triangulation_2.h>
#include <CGAL/Constrained_triangulation_plus_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Triangulation_face_base_with_info_2.h>
#include <cstring>
#include <fstream>
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


// ---------------------------------------------------------------------------
// Set operations on two large zones

const int NUM_OPS = 4;
const char* const OP_NAMES[NUM_OPS] = {"union", "intersection", "difference", "symmetric difference"};

struct SetOpResult {
  double seconds;           // sum of the queries below (for the best of turns)
  double floodSeconds;      // one input zone alone, the mean of A and B
  double opSeconds[NUM_OPS];
  long numInput;            // |A| + |B|
  long numResult[NUM_OPS];
};

const double RECT_A[4] = {0.05, 0.05, 0.65, 0.95};
const double RECT_B[4] = {0.35, 0.05, 0.95, 0.95};

std::vector<std::pair<double, double> > rectangle(const double* r) {
  return {{r[0], r[1]}, {r[2], r[1]}, {r[2], r[3]}, {r[0], r[3]}};
}

SetOpResult runVaskSetOps(size_t n) {
  using namespace KIRO_VASK2D;
  const std::vector<std::pair<double, double> > vCoords(vask_bench::makeCoordinates("uniform", n));
  std::vector<Point2> vPoints;
  for (const auto& c : vCoords) vPoints.emplace_back(c.first, c.second);
  Vask_2D dt;
  dt.insert(vPoints);
  Zone2* aZone[2];
  for (int k = 0; k < 2; ++k) {
    const std::vector<std::pair<double, double> > v(rectangle(k == 0 ? RECT_A : RECT_B));
    std::vector<Segment2> vSegments;
    for (size_t i = 0; i < v.size(); ++i)
      vSegments.emplace_back(Point2(v[i].first, v[i].second), Point2(v[(i + 1) % 4].first, v[(i + 1) % 4].second));
    aZone[k] = dt.createZone(dt.createConstraint(vSegments, CIS_CONSTRAINED_DELAUNAY, true), ZL_INSIDE);
  }
  Zone2* aResult[NUM_OPS] = {zoneUnion(aZone[0], aZone[1]), zoneIntersection(aZone[0], aZone[1]),
                             zoneDifference(aZone[0], aZone[1]), zoneSymmetricDifference(aZone[0], aZone[1])};
  SetOpResult r{};
  std::vector<Triangle2*> vT;
  for (int k = 0; k < 2; ++k) {
    r.floodSeconds += 0.5 * bestOfFive([&] {
      vT.clear();
      aZone[k]->getTriangles(vT);
    });
    r.numInput += static_cast<long>(vT.size());
  }
  for (int op = 0; op < NUM_OPS; ++op) {
    r.opSeconds[op] = bestOfFive([&] {
      vT.clear();
      aResult[op]->getTriangles(vT);
    });
    r.numResult[op] = static_cast<long>(vT.size());
    r.seconds += r.opSeconds[op];
  }
  return r;
}

typedef CGAL::Triangulation_face_base_with_info_2<unsigned, K> FbbBits;
typedef CGAL::Constrained_triangulation_face_base_2<K, FbbBits> FbBits;
typedef CGAL::Triangulation_data_structure_2<Vb, FbBits> TdsBits;
typedef CGAL::Constrained_Delaunay_triangulation_2<K, TdsBits, CGAL::Exact_predicates_tag> CDTBits;
typedef CGAL::Constrained_triangulation_plus_2<CDTBits> CDTPlus;

// The faces reachable from the seed without crossing an edge of the
// constraint id, marked with bit.
void floodCgal(CDTPlus& cdt, CDTPlus::Constraint_id id, const K::Point_2& seed, unsigned bit,
               std::vector<CDTPlus::Face_handle>& vOut) {
  CDTPlus::Face_handle start(cdt.locate(seed));
  start->info() |= bit;
  vOut.push_back(start);
  std::vector<CDTPlus::Face_handle> vStack(1, start);
  while (!vStack.empty()) {
    CDTPlus::Face_handle f(vStack.back());
    vStack.pop_back();
    for (int i = 0; i < 3; ++i) {
      CDTPlus::Face_handle nb(f->neighbor(i));
      if (cdt.is_infinite(nb) || (nb->info() & bit)) continue;
      if (cdt.is_constrained(CDTPlus::Edge(f, i))) {
        bool bFence(false);
        const CDTPlus::Vertex_handle va(f->vertex(cdt.cw(i))), vb(f->vertex(cdt.ccw(i)));
        for (auto it = cdt.contexts_begin(va, vb); it != cdt.contexts_end(va, vb) && !bFence; ++it) {
          auto ctx(*it);
          bFence = ctx.id() == id;
        }
        if (bFence) continue;
      }
      nb->info() |= bit;
      vStack.push_back(nb);
      vOut.push_back(nb);
    }
  }
}

SetOpResult runCgalSetOps(size_t n) {
  const std::vector<std::pair<double, double> > vCoords(vask_bench::makeCoordinates("uniform", n));
  std::vector<K::Point_2> vPoints;
  for (const auto& c : vCoords) vPoints.emplace_back(c.first, c.second);
  CDTPlus cdt;
  cdt.insert(vPoints.begin(), vPoints.end());
  CDTPlus::Constraint_id aId[2];
  for (int k = 0; k < 2; ++k) {
    std::vector<K::Point_2> vRing;
    for (const auto& p : rectangle(k == 0 ? RECT_A : RECT_B)) vRing.emplace_back(p.first, p.second);
    aId[k] = cdt.insert_constraint(vRing.begin(), vRing.end(), true);
  }
  for (CDTPlus::Face_handle f : cdt.all_face_handles()) f->info() = 0;
  const K::Point_2 aSeed[2] = {K::Point_2(0.1, 0.5), K::Point_2(0.9, 0.5)};
  std::vector<CDTPlus::Face_handle> vA, vB, vOut;
  auto clearBits = [&] {
    for (CDTPlus::Face_handle f : vA) f->info() = 0;
    for (CDTPlus::Face_handle f : vB) f->info() = 0;
    vA.clear();
    vB.clear();
  };
  SetOpResult r{};
  for (int k = 0; k < 2; ++k) {
    r.floodSeconds += 0.5 * bestOfFive([&] {
      clearBits();
      floodCgal(cdt, aId[k], aSeed[k], 1u, vA);
    });
    r.numInput += static_cast<long>(vA.size());
  }
  for (int op = 0; op < NUM_OPS; ++op) {
    r.opSeconds[op] = bestOfFive([&] {
      clearBits();
      vOut.clear();
      floodCgal(cdt, aId[0], aSeed[0], 1u, vA);
      floodCgal(cdt, aId[1], aSeed[1], 2u, vB);
      if (op == 0) {
        vOut = vA;
        for (CDTPlus::Face_handle f : vB)
          if (!(f->info() & 1u)) vOut.push_back(f);
      } else if (op == 1) {
        for (CDTPlus::Face_handle f : vA)
          if (f->info() & 2u) vOut.push_back(f);
      } else {
        for (CDTPlus::Face_handle f : vA)
          if (!(f->info() & 2u)) vOut.push_back(f);
        if (op == 3)
          for (CDTPlus::Face_handle f : vB)
            if (!(f->info() & 1u)) vOut.push_back(f);
      }
    });
    r.numResult[op] = static_cast<long>(vOut.size());
    r.seconds += r.opSeconds[op];
  }
  return r;
}

// The set-operation table, with a verdict on the agreement of the counts.
std::string setOpsTable(const std::vector<size_t>& vSizes, int reps, bool& bCountsAgree) {
  std::ostringstream body;
  body << "# Zone set operations: two zones of about half the mesh each\n\n"
       << "| points | input triangles (A + B) | operation | result triangles | Vask2D ns/input triangle | "
          "CGAL ns/input triangle | ratio |\n"
       << "|---|---|---|---|---|---|---|\n";
  for (size_t n : vSizes) {
    SetOpResult v{}, g{};
    vask_bench::bestOfTurns("set operations " + std::to_string(n), reps, [&] { return runVaskSetOps(n); },
                            [&] { return runCgalSetOps(n); }, v, g);
    std::ostringstream rows;
    rows << std::fixed;
    const double perV(1e9 / std::max(1L, v.numInput)), perG(1e9 / std::max(1L, g.numInput));
    rows << "| " << n << " | " << v.numInput << " | one input alone (mean of A, B; per its triangle) | - | "
         << std::setprecision(1) << 2 * v.floodSeconds * perV << " | " << 2 * g.floodSeconds * perG << " | "
         << std::setprecision(2) << (v.floodSeconds * perV) / (g.floodSeconds * perG) << " |\n";
    for (int op = 0; op < NUM_OPS; ++op) {
      const bool bAgree(v.numResult[op] == g.numResult[op] && v.numInput == g.numInput);
      bCountsAgree &= bAgree;
      rows << "| " << n << " | " << v.numInput << " | " << OP_NAMES[op] << " | " << v.numResult[op]
           << (bAgree ? "" : " (CGAL " + std::to_string(g.numResult[op]) + ")") << " | " << std::setprecision(1)
           << v.opSeconds[op] * perV << " | " << g.opSeconds[op] * perG << " | " << std::setprecision(2)
           << (v.opSeconds[op] * perV) / (g.opSeconds[op] * perG) << " |\n";
    }
    std::cout << rows.str() << std::flush;
    body << rows.str();
  }
  return body.str();
}

// Replaces the set-operation section of an existing results file (from its
// title to the end), so that the two tables can be run apart.
bool writeSetOpsSection(const std::string& file, const std::string& section) {
  std::ifstream in(file.c_str());
  std::stringstream ss;
  if (in) ss << in.rdbuf();
  std::string text(ss.str());
  const size_t at(text.find("# Zone set operations"));
  if (at != std::string::npos) text.erase(at);
  std::ofstream out(file.c_str());
  if (!out) {
    std::cerr << file << ": can't open for writing" << std::endl;
    return false;
  }
  out << text << (text.empty() || text.back() == '\n' ? "" : "\n") << (text.empty() ? "" : "\n") << section;
  std::cout << "\nwritten: " << file << std::endl;
  return true;
}

} // namespace

int main(int argc, char** argv) {
  const vask_bench::BenchArgs args(vask_bench::parseArgs(argc, argv));
  bool bSetOpsOnly(false);
  for (int i = 1; i < argc; ++i) bSetOpsOnly |= std::strcmp(argv[i], "--setops-only") == 0;
  const std::string outFile(args.outFile.empty() ? std::string(VASK2D_BENCH_RESULTS) : args.outFile);
  std::vector<size_t> vSetOpSizes{50000, 200000, 460000, 1000000};
  if (args.bQuick) vSetOpSizes.resize(2);
  auto runSetOps = [&] {
    bool bAgree(true);
    const std::string table(setOpsTable(vSetOpSizes, args.reps, bAgree));
    const std::string notes(
        "\nTimes are CPU seconds of forked children, a query the best of five, a case the best of the runs; the "
        "machine was busy with other work meanwhile. A set-operation query evaluates both inputs and combines them, "
        "so its cost per input triangle is about that of the floods (the row of one input): the combination walks "
        "the input lists with one-byte membership tests, no sort and no search. Over the sizes the cost per "
        "triangle follows the floods, which rise for both libraries alike as their random accesses leave the "
        "caches.  \n" +
        std::string(bAgree ? "The triangle counts agree in every case.  \n" : "THE TRIANGLE COUNTS DISAGREE.  \n"));
    writeSetOpsSection(outFile, table + notes);
    return bAgree;
  };
  if (bSetOpsOnly) return runSetOps() ? 0 : 1;
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
  vask_bench::writeMarkdown(outFile, body.str(), notes);
  const bool bSetOpsAgree(runSetOps());
  return bCountsAgree && bSetOpsAgree ? 0 : 1;
}
