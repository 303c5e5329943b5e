// Constrained and conforming Delaunay triangulation of the same points and
// segments by Vask2D (createConstraint) and CGAL's
// Constrained_Delaunay_triangulation_2 with Exact_intersections_tag, in the
// same run:
//
//   crossing   10^6 uniform points, then 10,000 segments of length 0.02 whose
//              end points are new; about 13,000 crossings become vertices.
//   sine       10^6 uniform points, then 200 sine polylines of 500 vertices
//              that never meet (99,800 segments).
//   conforming the sine input, made conforming: Vask2D's
//              CIS_CONFORMING_DELAUNAY and applyConstraintsAndZones against
//              CGAL's make_conforming_Delaunay_2; Steiner points compared.
//
// CGAL gets the points by range, then the segments by range as the distinct
// end points and pairs of indices into them: its fastest form where
// polylines share their ends (about 20% less constraint time than pairs of
// points on the sine input), and one without Segment_2, on whose ranges 5.5
// crashes with Epeck. Its goal row is Epick, whose crossings are rounded
// doubles like Vask2D's; the Epeck row (exact crossings) is run for
// reference, CGAL alone. Vask2D is driven through its public API; only the
// byte count of the constraint registry comes from inside.
//
// Each build runs in a forked child (peak resident size above the input,
// which is made before the baseline), the libraries taking turns; the time
// is the CPU time of the child, best of the runs, the memory that of the
// best run. The counts must match what the input implies: vertices = points
// + distinct end points + crossings, constraint edges = segments + 2
// crossings.
//
// Usage: bench_constraints [--quick] [--reps N] [--out FILE.md] [--profile CASE]

// Without NDEBUG, CGAL 5.5 warns at every crossing of an Exact_intersections_tag
// triangulation that Constrained_triangulation_plus_2 would be faster.
#define CGAL_NO_CDT_2_WARNING
#include "BenchCommon.h"
#include "Vask_2D.h"
#include "constraints/ConstraintMgr.h"
#include "core/Dt2.h"
#include <CGAL/Constrained_Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_exact_constructions_kernel.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Triangulation_conformer_2.h>
#include <array>
#include <iomanip>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#ifndef VASK2D_BENCH_RESULTS
#define VASK2D_BENCH_RESULTS "bench_constraints.md"
#endif

namespace {

typedef CGAL::Exact_predicates_inexact_constructions_kernel Epick;
typedef CGAL::Exact_predicates_exact_constructions_kernel Epeck;
template <class K>
using CgalCdt = CGAL::Constrained_Delaunay_triangulation_2<K, CGAL::Default, CGAL::Exact_intersections_tag>;
typedef std::array<double, 4> SegmentXY; // x0 y0 x1 y1

enum InputKind { IK_CROSSING, IK_SINE };

struct Case {
  std::string name;
  InputKind kind;
  bool bConforming;
  std::size_t numPoints;
};

struct Input {
  std::vector<std::pair<double, double> > vPoints;
  std::vector<SegmentXY> vSegments;
  // The distinct end points in order of appearance, and each segment as a
  // pair of indices into them: CGAL's fastest range form for shared ends.
  std::vector<std::pair<double, double> > vEndpoints;
  std::vector<std::pair<std::size_t, std::size_t> > vEndIndices;
};

// Segments of one length, from a uniform start in a random direction; a
// segment whose end leaves the unit square is drawn again, so that every
// segment lies inside the point cloud.
std::vector<SegmentXY> makeCrossingSegments(std::size_t n, double length) {
  std::mt19937_64 gen(20240611);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
  std::vector<SegmentXY> v;
  v.reserve(n);
  while (v.size() < n) {
    const double x(u(gen));
    const double y(u(gen));
    const double t(angle(gen));
    const double x1(x + length * std::cos(t));
    const double y1(y + length * std::sin(t));
    if (x1 < 0.0 || x1 > 1.0 || y1 < 0.0 || y1 > 1.0) continue;
    v.push_back(SegmentXY{{x, y, x1, y1}});
  }
  return v;
}

// numLines polylines y = c_k + a sin(2 pi periods x), sampled at the same x
// for every line: two of them differ by the constant c_k - c_j everywhere,
// so their chains never meet.
std::vector<SegmentXY> makeSinePolylines(int numLines, int numVertices) {
  const int periods(5);
  const double amplitude(0.03);
  std::vector<SegmentXY> v;
  v.reserve(std::size_t(numLines) * (numVertices - 1));
  for (int k = 0; k < numLines; ++k) {
    const double offset(0.05 + 0.9 * (k + 0.5) / numLines);
    double xPrev(0.0), yPrev(0.0);
    for (int i = 0; i < numVertices; ++i) {
      const double x(0.01 + 0.98 * i / (numVertices - 1));
      const double y(offset + amplitude * std::sin(2.0 * M_PI * periods * x));
      if (i > 0) v.push_back(SegmentXY{{xPrev, yPrev, x, y}});
      xPrev = x;
      yPrev = y;
    }
  }
  return v;
}

Input makeInput(const Case& c) {
  Input in;
  in.vPoints = vask_bench::makeCoordinates("uniform", c.numPoints);
  in.vSegments = c.kind == IK_CROSSING ? makeCrossingSegments(c.numPoints >= 1000000 ? 10000 : 2000, 0.02)
                                       : makeSinePolylines(c.numPoints >= 1000000 ? 200 : 40, 500);
  std::map<std::pair<double, double>, std::size_t> mIndex;
  const auto indexOf([&in, &mIndex](double x, double y) {
    const auto it_new(mIndex.insert(std::make_pair(std::make_pair(x, y), in.vEndpoints.size())));
    if (it_new.second) in.vEndpoints.push_back(std::make_pair(x, y));
    return it_new.first->second;
  });
  for (const SegmentXY& s : in.vSegments) {
    const std::size_t i0(indexOf(s[0], s[1]));
    in.vEndIndices.push_back(std::make_pair(i0, indexOf(s[2], s[3])));
  }
  return in;
}

// Proper crossings of the segments by exact predicates (Epick's orientation
// is exact), over a grid of buckets: the count both libraries must reach.
std::size_t countCrossings(const std::vector<SegmentXY>& vSegments) {
  typedef Epick::Segment_2 S;
  typedef Epick::Point_2 P;
  const int side(64);
  std::vector<std::vector<unsigned> > vBuckets(side * side);
  std::vector<S> vS;
  for (const SegmentXY& s : vSegments) vS.push_back(S(P(s[0], s[1]), P(s[2], s[3])));
  const auto cell([side](double d) { return std::min(side - 1, std::max(0, int(d * side))); });
  for (unsigned i = 0; i < vS.size(); ++i) {
    const CGAL::Bbox_2 b(vS[i].bbox());
    for (int cx = cell(b.xmin()); cx <= cell(b.xmax()); ++cx)
      for (int cy = cell(b.ymin()); cy <= cell(b.ymax()); ++cy) vBuckets[cx * side + cy].push_back(i);
  }
  std::set<std::pair<unsigned, unsigned> > sPairs;
  for (const std::vector<unsigned>& vB : vBuckets)
    for (std::size_t i = 0; i < vB.size(); ++i)
      for (std::size_t j = i + 1; j < vB.size(); ++j) {
        const S& a(vS[vB[i]]);
        const S& b(vS[vB[j]]);
        if (!CGAL::do_overlap(a.bbox(), b.bbox()) || !CGAL::do_intersect(a, b)) continue;
        sPairs.insert(std::make_pair(std::min(vB[i], vB[j]), std::max(vB[i], vB[j])));
      }
  return sPairs.size();
}

struct Result {
  double seconds = 0.0;            // points, constraints and, when asked, conforming
  double secondsConstraints = 0.0; // the constraint part of it
  double peakMiB = 0.0;
  unsigned long long numVertices = 0;
  unsigned long long numConstraintEdges = 0;
  unsigned long long numMissingEdges = 0; // alive segments that are no mesh edge (Vask2D)
  // Where Vask2D's constraint bytes go
  unsigned long long numSegments = 0; // alive and dead
  double segmentMiB = 0.0;
  double registryMiB = 0.0;        // the registry's tables beside the segments
  double graphMiB = 0.0;           // the graph's roots and direction table
  double peakConstraintsMiB = 0.0; // peak growth over the constraint part
};

Result measureVask(const Case& c) {
  using namespace KIRO_VASK2D;
  const Input in(makeInput(c));
  std::vector<Point2> vPoints;
  vPoints.reserve(in.vPoints.size());
  for (const auto& xy : in.vPoints) vPoints.emplace_back(xy.first, xy.second);
  std::vector<Segment2> vSegments;
  vSegments.reserve(in.vSegments.size());
  for (const SegmentXY& s : in.vSegments) vSegments.emplace_back(Point2(s[0], s[1]), Point2(s[2], s[3]));
  Result r;
  const long base(vask_bench::readVmHWMkB());
  const double t0(vask_bench::cpuSeconds());
  Vask_2D dt;
  dt.insert(vPoints);
  const long afterPoints(vask_bench::readVmHWMkB());
  const double t1(vask_bench::cpuSeconds());
  ConstraintGraph2* pGraph(
      dt.createConstraint(vSegments, c.bConforming ? CIS_CONFORMING_DELAUNAY : CIS_CONSTRAINED_DELAUNAY));
  if (c.bConforming) dt.applyConstraintsAndZones();
  const double t2(vask_bench::cpuSeconds());
  r.peakConstraintsMiB = (vask_bench::readVmHWMkB() - afterPoints) / 1024.0;
  r.seconds = t2 - t0;
  r.secondsConstraints = t2 - t1;
  r.peakMiB = (vask_bench::readVmHWMkB() - base) / 1024.0;
  r.numVertices = dt.numberOfPoints();
  std::vector<ConstraintSegment2*> vAlive;
  dt.getAliveConstraintSegments(vAlive);
  r.numConstraintEdges = vAlive.size();
  for (ConstraintSegment2* pCSeg : vAlive)
    if (dt.getAdjacentTriangle(pCSeg->getSrc(), pCSeg->getTrg()) == nullptr &&
        dt.getAdjacentTriangle(pCSeg->getTrg(), pCSeg->getSrc()) == nullptr)
      ++r.numMissingEdges;
  std::vector<ConstraintSegment2*> vAll;
  dt.getAliveAndDeadConstraintSegments(vAll);
  r.numSegments = vAll.size();
  r.segmentMiB = vAll.size() * sizeof(ConstraintSegment2) / (1024.0 * 1024.0);
  // memoryBytes counts the segments' blocks with the tables.
  r.registryMiB = dt.getImpl()->getConstraintMgr()->memoryBytes() / (1024.0 * 1024.0) - r.segmentMiB;
  r.graphMiB = pGraph->memoryBytes() / (1024.0 * 1024.0);
  return r;
}

template <class K>
Result measureCgal(const Case& c) {
  typedef CgalCdt<K> Cdt;
  typedef typename K::Point_2 P;
  const Input in(makeInput(c));
  std::vector<P> vPoints;
  vPoints.reserve(in.vPoints.size());
  for (const auto& xy : in.vPoints) vPoints.emplace_back(xy.first, xy.second);
  std::vector<P> vEndpoints;
  vEndpoints.reserve(in.vEndpoints.size());
  for (const auto& xy : in.vEndpoints) vEndpoints.emplace_back(xy.first, xy.second);
  Result r;
  const long base(vask_bench::readVmHWMkB());
  const double t0(vask_bench::cpuSeconds());
  Cdt cdt;
  cdt.insert(vPoints.begin(), vPoints.end());
  const double t1(vask_bench::cpuSeconds());
  cdt.insert_constraints(vEndpoints.begin(), vEndpoints.end(), in.vEndIndices.begin(), in.vEndIndices.end());
  if (c.bConforming) CGAL::make_conforming_Delaunay_2(cdt);
  const double t2(vask_bench::cpuSeconds());
  r.seconds = t2 - t0;
  r.secondsConstraints = t2 - t1;
  r.peakMiB = (vask_bench::readVmHWMkB() - base) / 1024.0;
  r.numVertices = cdt.number_of_vertices();
  for (auto e = cdt.finite_edges_begin(); e != cdt.finite_edges_end(); ++e)
    if (cdt.is_constrained(*e)) ++r.numConstraintEdges;
  return r;
}

std::string fixed(double d, int digits) {
  std::ostringstream s;
  s << std::fixed << std::setprecision(digits) << d;
  return s.str();
}

// What the input implies, and one row of the counts table per library.
struct Expected {
  unsigned long long numInputVertices; // points and distinct end points
  unsigned long long numCrossings;
  unsigned long long numSegments;
  bool bConforming;
  bool matches(const Result& r) const {
    if (r.numMissingEdges != 0) return false;
    // Conforming: the Steiner points are each library's own choice.
    if (bConforming) return r.numVertices >= numInputVertices && r.numConstraintEdges >= numSegments;
    return r.numVertices == numInputVertices + numCrossings && r.numConstraintEdges == numSegments + 2 * numCrossings;
  }
};

std::string countsRow(const std::string& caseName, const std::string& library, const Expected& e, const Result& r) {
  std::ostringstream s;
  s << "| " << caseName << " | " << library << " | " << r.numVertices << " | "
    << static_cast<long long>(r.numVertices - e.numInputVertices) << " | " << r.numConstraintEdges << " | "
    << (e.matches(r) ? "yes" : "NO") << " |\n";
  return s.str();
}

} // namespace

int main(int argc, char** argv) {
  const vask_bench::BenchArgs args(vask_bench::parseArgs(argc, argv));
  // --profile CASE: Vask2D's build of one case only, in this process, for
  // a profiler.
  for (int i = 1; i + 1 < argc; ++i)
    if (std::string(argv[i]) == "--profile") {
      for (const Case& c : {Case{"crossing", IK_CROSSING, false, 1000000}, Case{"sine", IK_SINE, false, 1000000},
                            Case{"conforming", IK_SINE, true, 1000000}})
        if (c.name == argv[i + 1]) {
          const Result r(measureVask(c));
          std::cout << c.name << ": " << r.seconds << " s, constraints " << r.secondsConstraints << " s" << std::endl;
          return 0;
        }
      return 2;
    }
  const std::string outFile(args.outFile.empty() ? std::string(VASK2D_BENCH_RESULTS) : args.outFile);
  const std::size_t n(args.bQuick ? 100000 : 1000000);
  const std::vector<Case> vCases = {{"crossing", IK_CROSSING, false, n},
                                    {"sine", IK_SINE, false, n},
                                    {"conforming", IK_SINE, true, n}};

  std::ostringstream machine;
  machine << vask_bench::machineAndCompiler() << "Peers: CGAL " << CGAL_VERSION_STR
          << " Constrained_Delaunay_triangulation_2<K, Default, Exact_intersections_tag>, points then"
             " constraints by range (distinct end points and index pairs); conforming: make_conforming_Delaunay_2\n"
          << "Single thread; time = CPU seconds, best of " << args.reps
          << " alternating runs; peak = VmHWM growth of a forked child, the input not counted\n";
  std::cout << machine.str() << std::endl;

  std::ostringstream table, counts, bytes;
  table << "| case | peer | Vask2D s | CGAL s | time ratio | Vask2D constraints s | CGAL constraints s |"
           " constraints ratio | Vask2D MiB | CGAL MiB | memory ratio |\n"
           "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n";
  counts << "| case | library | vertices | new vertices (crossings, Steiner) | constraint edges | as expected |\n"
            "|---|---|---:|---:|---:|---|\n";
  // The peak growth of the constraint call less the three: the new vertices
  // and triangles, and the working memory of the batch and of the apply loop.
  bytes << "| case | segments (alive+dead) | segments MiB | registry tables MiB | graph MiB |"
           " peak growth of the constraint call MiB | of which mesh and working memory MiB |\n"
           "|---|---:|---:|---:|---:|---:|---:|\n";
  bool bVaskAsExpected(true);
  for (const Case& c : vCases) {
    const Input in(makeInput(c));
    const Expected e{in.vPoints.size() + in.vEndpoints.size(),
                     c.kind == IK_CROSSING ? countCrossings(in.vSegments) : 0, in.vSegments.size(), c.bConforming};
    std::cout << c.name << ": " << in.vPoints.size() << " points, " << in.vSegments.size() << " segments, "
              << in.vEndpoints.size() << " end points, " << e.numCrossings << " crossings" << std::endl;
    Result v, g;
    vask_bench::bestOfTurns(c.name, args.reps, [&c] { return measureVask(c); },
                            [&c] { return measureCgal<Epick>(c); }, v, g);
    std::vector<std::pair<std::string, Result> > vPeers = {{"Epick", g}};
    if (c.kind == IK_CROSSING) {
      // The exact row is for reference: CGAL alone, best of the same number of runs.
      Result x;
      for (int i = 0; i < args.reps; ++i) {
        const Result r(vask_bench::runInChild<Result>(c.name, false, [&c] { return measureCgal<Epeck>(c); }));
        if (i == 0 || r.seconds < x.seconds) x = r;
      }
      vPeers.push_back(std::make_pair(std::string("Epeck"), x));
    }
    if (!c.bConforming)
      counts << "| " << c.name << " | expected | " << e.numInputVertices + e.numCrossings << " | " << e.numCrossings
             << " | " << e.numSegments + 2 * e.numCrossings << " | |\n";
    counts << countsRow(c.name, "Vask2D", e, v);
    bVaskAsExpected = bVaskAsExpected && e.matches(v);
    for (const auto& peer : vPeers) {
      const Result& p(peer.second);
      std::cout << "  vs CGAL " << peer.first << ": Vask2D " << fixed(v.seconds, 3) << " s ("
                << fixed(v.secondsConstraints, 3) << " constraints), CGAL " << fixed(p.seconds, 3) << " s ("
                << fixed(p.secondsConstraints, 3) << "), ratio " << fixed(v.seconds / p.seconds, 3) << "; peak "
                << fixed(v.peakMiB, 1) << " / " << fixed(p.peakMiB, 1) << " MiB, ratio "
                << fixed(v.peakMiB / p.peakMiB, 3) << std::endl;
      table << "| " << c.name << " | " << peer.first << " | " << fixed(v.seconds, 3) << " | " << fixed(p.seconds, 3)
            << " | " << fixed(v.seconds / p.seconds, 3) << " | " << fixed(v.secondsConstraints, 3) << " | "
            << fixed(p.secondsConstraints, 3) << " | " << fixed(v.secondsConstraints / p.secondsConstraints, 3)
            << " | " << fixed(v.peakMiB, 1) << " | " << fixed(p.peakMiB, 1) << " | "
            << fixed(v.peakMiB / p.peakMiB, 3) << " |\n";
      counts << countsRow(c.name, "CGAL " + peer.first, e, p);
    }
    if (v.numMissingEdges != 0)
      std::cout << "  " << v.numMissingEdges << " alive Vask2D segments are no edge of the mesh" << std::endl;
    bytes << "| " << c.name << " | " << v.numSegments << " | " << fixed(v.segmentMiB, 2) << " | "
          << fixed(v.registryMiB, 2) << " | " << fixed(v.graphMiB, 2) << " | " << fixed(v.peakConstraintsMiB, 2)
          << " | " << fixed(v.peakConstraintsMiB - v.segmentMiB - v.registryMiB - v.graphMiB, 2) << " |\n";
  }
  std::cout << "\n" << table.str() << "\n" << counts.str() << "\n" << bytes.str() << std::endl;
  if (!bVaskAsExpected) std::cout << "Vask2D's counts differ from what the input implies (see the table)" << std::endl;
  const std::string body(table.str() + "\n" + counts.str() + "\n" + bytes.str());
  return vask_bench::writeMarkdown(outFile, body, machine.str()) && bVaskAsExpected ? 0 : 1;
}
