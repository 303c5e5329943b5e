#include "fuzz/FuzzCase.h"
#include "fuzz/FuzzReplay.h"
#include "Vask_2D.h"
#include "core/Dt2.h"
#include "helpers/TestHelpers.h"
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>

using KIRO_VASK2D::Point2;
using KIRO_VASK2D::Triangle2;
using KIRO_VASK2D::Vask_2D;

namespace vask_fuzz {

namespace {

using namespace detail;


const double NON_REPRESENTABLE[] = {0.1, 1.0 / 3.0, 0.7, 2.0 / 7.0, 1.1, 0.01, 3.0 / 11.0};
double nonRepresentable(Rng& rng) {
  const double v(NON_REPRESENTABLE[uniformInt(rng, 0, 6)]);
  return chance(rng, 0.5) ? v : -v;
}

// Points on two or three lines of slopes that no double represents, evenly
// spaced, some moved by one or two ulps.
std::vector<Point2> onLines(std::size_t n, Rng& rng) {
  std::vector<Point2> v;
  const int numLines(uniformInt(rng, 2, 3));
  const std::size_t perLine(std::max<std::size_t>(2, n / numLines));
  for (int l = 0; l < numLines; ++l) {
    const double slope(chance(rng, 0.2) ? std::sqrt(2.0) : nonRepresentable(rng) * uniformInt(rng, 1, 40));
    const double x0(uniform(rng, -20.0, 20.0)), y0(uniform(rng, -20.0, 20.0));
    const double dx(chance(rng, 0.5) ? 0.01 : 1.0 / uniformInt(rng, 3, 30));
    for (std::size_t i = 0; i < perLine; ++i) {
      const double x(x0 + static_cast<double>(i) * dx);
      double px(x), py(y0 + slope * (x - x0));
      if (chance(rng, 0.15)) px = nudge(px, uniformInt(rng, -2, 2));
      if (chance(rng, 0.15)) py = nudge(py, uniformInt(rng, -2, 2));
      v.emplace_back(px, py);
    }
  }
  return v;
}

// An integer grid, plain, scaled by a factor no double represents, or
// rotated by an angle whose sine and cosine are rounded.
std::vector<Point2> grid(std::size_t n, Rng& rng) {
  const int side(std::max(2, static_cast<int>(std::sqrt(static_cast<double>(n)))));
  const int variant(uniformInt(rng, 0, 3));
  const double scale(variant == 1 ? nonRepresentable(rng) * std::pow(10.0, uniformInt(rng, -8, 8)) : 1.0);
  const double angle(uniform(rng, 0.0, 2.0 * M_PI)), c(std::cos(angle)), s(std::sin(angle));
  const double ox(variant == 3 ? uniform(rng, -1e3, 1e3) : 0.0), oy(variant == 3 ? uniform(rng, -1e3, 1e3) : 0.0);
  std::vector<Point2> v;
  for (int i = 0; i < side; ++i)
    for (int j = 0; j < side; ++j) {
      const double x(i), y(j);
      if (variant == 0) v.emplace_back(x, y);
      else if (variant == 1) v.emplace_back(x * scale, y * scale);
      else if (variant == 2) v.emplace_back(c * x - s * y, s * x + c * y);
      else v.emplace_back(ox + x * 0.1, oy + y * 0.1);
    }
  return v;
}

// Integer points exactly on circles with many such points (5, 25, 65, 325,
// 1105, 5525 are sums of two squares in many ways), possibly concentric
// and scaled by powers of two; or points on a circle, rounded.
std::vector<Point2> cocircular(std::size_t n, Rng& rng) {
  std::vector<Point2> v;
  if (chance(rng, 0.3)) {
    const double cx(uniform(rng, -10, 10)), cy(uniform(rng, -10, 10)), r(uniform(rng, 1e-3, 1e3));
    for (std::size_t i = 0; i < n; ++i) {
      const double a(2.0 * M_PI * static_cast<double>(i) / static_cast<double>(n));
      v.emplace_back(cx + r * std::cos(a), cy + r * std::sin(a));
    }
    if (chance(rng, 0.5)) v.emplace_back(cx, cy);
    return v;
  }
  static const long RADII[] = {5, 25, 65, 325, 1105, 5525};
  const int numCircles(uniformInt(rng, 1, 3));
  const long cx(uniformInt(rng, -50, 50)), cy(uniformInt(rng, -50, 50));
  const double unit(std::ldexp(1.0, uniformInt(rng, -30, 30)));
  for (int k = 0; k < numCircles; ++k) {
    const long r(RADII[uniformInt(rng, 0, 5)]);
    for (long a = 0; a <= r; ++a) {
      const long b2(r * r - a * a);
      const long b(std::lround(std::sqrt(static_cast<double>(b2))));
      if (b * b != b2) continue;
      const long sx[] = {1, -1, 1, -1}, sy[] = {1, 1, -1, -1};
      for (int q = 0; q < 4; ++q) v.emplace_back((cx + sx[q] * a) * unit, (cy + sy[q] * b) * unit);
    }
  }
  std::sort(v.begin(), v.end());
  v.erase(std::unique(v.begin(), v.end()), v.end());
  std::shuffle(v.begin(), v.end(), rng);
  if (v.size() > n) v.resize(std::max<std::size_t>(n, 8));
  return v;
}

// A few tight clusters: centres spread out, points a few ulps or a tiny
// relative distance from them.
std::vector<Point2> clusters(std::size_t n, Rng& rng) {
  std::vector<Point2> v;
  const int numClusters(uniformInt(rng, 1, 4));
  const double spread(std::pow(10.0, uniformInt(rng, -3, 6)));
  for (int k = 0; k < numClusters; ++k) {
    const double cx(uniform(rng, -spread, spread)), cy(uniform(rng, -spread, spread));
    const bool bUlps(chance(rng, 0.5));
    const double rad(std::fabs(cx) * std::pow(10.0, uniformInt(rng, -15, -8)) + 1e-300);
    for (std::size_t i = 0; i < n / numClusters + 1; ++i) {
      if (bUlps) v.emplace_back(nudge(cx, uniformInt(rng, -2, 2) * uniformInt(rng, 0, 3)),
                                nudge(cy, uniformInt(rng, -2, 2) * uniformInt(rng, 0, 3)));
      else v.emplace_back(cx + uniform(rng, -rad, rad), cy + uniform(rng, -rad, rad));
    }
  }
  return v;
}

// A handful of points, each many times.
std::vector<Point2> duplicates(std::size_t n, Rng& rng) {
  std::vector<Point2> vDistinct;
  const int m(uniformInt(rng, 2, 8));
  const bool bCollinear(chance(rng, 0.3));
  for (int i = 0; i < m; ++i) {
    const double x(uniform(rng, -1, 1));
    vDistinct.emplace_back(x, bCollinear ? 0.1 * x : uniform(rng, -1, 1));
  }
  std::vector<Point2> v;
  for (std::size_t i = 0; i < n; ++i) v.push_back(vDistinct[uniformInt(rng, 0, m - 1)]);
  return v;
}

// Coordinates near 1e-300, 1e-150, 1e150 or 1e300, one scale or mixed in
// one set, up to the largest double.
std::vector<Point2> magnitudes(std::size_t n, Rng& rng) {
  static const double SCALES[] = {1e-300, 1e-150, 1e150, 1e300, 1.7e308};
  const int mode(uniformInt(rng, 0, 5)); // 0..4 one scale, 5 mixed
  std::vector<Point2> v;
  for (std::size_t i = 0; i < n; ++i) {
    const double sx(SCALES[mode == 5 ? uniformInt(rng, 0, 4) : mode]);
    const double sy(mode == 5 && chance(rng, 0.5) ? SCALES[uniformInt(rng, 0, 4)] : sx);
    const double lim(sx > 1e308 ? 1.0 : 9.9);
    const double limY(sy > 1e308 ? 1.0 : 9.9);
    v.emplace_back(uniform(rng, -lim, lim) * sx, uniform(rng, -limY, limY) * sy);
  }
  return v;
}

// Subnormal coordinates: small multiples of the smallest double, with
// zeros and the smallest normals among them.
std::vector<Point2> subnormals(std::size_t n, Rng& rng) {
  const double tiny(std::numeric_limits<double>::denorm_min());
  std::vector<Point2> v;
  for (std::size_t i = 0; i < n; ++i) {
    auto coord = [&]() {
      const int k(uniformInt(rng, 0, 9));
      if (k == 0) return 0.0;
      if (k == 1) return (chance(rng, 0.5) ? 1 : -1) * DBL_MIN;
      if (k == 2) return uniform(rng, -1, 1) * DBL_MIN;
      return uniformInt(rng, -40, 40) * tiny;
    };
    const double x(coord());
    v.emplace_back(x, coord());
  }
  return v;
}

// Coordinates from a small set with both zeros.
std::vector<Point2> signedZeros(std::size_t n, Rng& rng) {
  static const double VALUES[] = {0.0, -0.0, 1.0, -1.0, 0.5, -2.0, 1e-300, -1e-300, 4.9e-324};
  std::vector<Point2> v;
  for (std::size_t i = 0; i < n; ++i) v.emplace_back(VALUES[uniformInt(rng, 0, 8)], VALUES[uniformInt(rng, 0, 8)]);
  return v;
}

std::vector<Point2> uniformSquare(std::size_t n, Rng& rng) {
  std::vector<Point2> v;
  for (std::size_t i = 0; i < n; ++i) {
    const double x(uniform(rng, 0, 1));
    v.emplace_back(x, uniform(rng, 0, 1));
  }
  return v;
}



} // namespace

std::size_t Case::numPoints() const {
  std::size_t n(0);
  for (const Op& op : vOps) n += op.vPoints.size();
  return n;
}

const std::vector<std::string>& familyNames() {
  static const std::vector<std::string> v = {"lines",      "grid",       "cocircular", "clusters", "duplicates",
                                             "magnitudes", "subnormals", "signedzeros", "uniform"};
  return v;
}

std::vector<Point2> generateFamily(const std::string& family, std::size_t n, Rng& rng) {
  std::vector<Point2> v;
  if (family == "lines") v = onLines(n, rng);
  else if (family == "grid") v = grid(n, rng);
  else if (family == "cocircular") v = cocircular(n, rng);
  else if (family == "clusters") v = clusters(n, rng);
  else if (family == "duplicates") v = duplicates(n, rng);
  else if (family == "magnitudes") v = magnitudes(n, rng);
  else if (family == "subnormals") v = subnormals(n, rng);
  else if (family == "signedzeros") v = signedZeros(n, rng);
  else v = uniformSquare(n, rng);
  std::shuffle(v.begin(), v.end(), rng);
  return v;
}

Case generateCase(const std::string& family, std::uint64_t seed, std::size_t maxPoints, double constraintRate) {
  Rng rng(seed);
  Case c;
  c.family = family;
  c.seed = seed;
  // A large case has batches big enough for the threads (ranges of 1000
  // records and more) under several CPUs; its runs of single insertions and
  // removals stay short, so that checking after every step stays cheap.
  const bool bLarge(chance(rng, 0.3));
  const std::size_t n(bLarge ? static_cast<std::size_t>(uniformInt(rng, 1200, 2400))
                             : static_cast<std::size_t>(uniformInt(rng, 3, static_cast<int>(std::max<std::size_t>(4, maxPoints)))));
  std::vector<Point2> vPool(generateFamily(family, n, rng));
  if (vPool.empty()) vPool.emplace_back(0.0, 0.0);
  // The model: which points are live, which were removed.
  std::set<Key> sLive, sDead;
  std::size_t next(0); // the next pool point not yet offered
  const double badRate(chance(rng, 0.2) ? 0.05 : 0.0);
  auto pick = [&]() -> Point2 {
    if (badRate > 0 && chance(rng, badRate)) return badPoint(rng);
    if (next < vPool.size() && chance(rng, 0.8)) return vPool[next++];
    return vPool[uniformInt(rng, 0, static_cast<int>(vPool.size()) - 1)];
  };
  auto add = [&](const Point2& p) {
    if (!isFinite(p)) return;
    sLive.insert(keyOf(p));
    sDead.erase(keyOf(p));
  };
  auto pickLive = [&]() {
    std::set<Key>::const_iterator it(sLive.begin());
    std::advance(it, uniformInt(rng, 0, static_cast<int>(sLive.size()) - 1));
    return Point2(it->first, it->second);
  };
  if (bLarge || chance(rng, 0.3)) {
    Op cpu;
    cpu.kind = OpKind::Cpu;
    cpu.arg = uniformInt(rng, 2, 8);
    c.vOps.push_back(cpu);
  }
  // Large cases stay without constraints: constraints keep batches on one
  // thread anyway, and the exact constraint check after every step of a
  // case of thousands of points would eat the time per case.
  const bool bConstraints(chance(rng, constraintRate) && !bLarge);
  std::vector<Point2> vSegEnds; // the ends of every segment asked for, in pairs
  const int numOps(uniformInt(rng, 1, bConstraints ? 40 : 30));
  for (int k = 0; k < numOps; ++k) {
    if (bConstraints && (k == 0 || chance(rng, 0.35))) {
      Op op;
      const int w(k == 0 ? 0 : uniformInt(rng, 0, 99));
      if (w < 45) {
        op.kind = OpKind::Constraint;
        op.arg = (chance(rng, 0.6) ? 1 : 0) | (chance(rng, 0.25) ? 2 : 0);
        op.vPoints = constraintSet(vPool, rng);
        for (std::size_t i = 0; i + 1 < op.vPoints.size(); i += 2) {
          if (!isFinite(op.vPoints[i]) || !isFinite(op.vPoints[i + 1])) continue;
          add(op.vPoints[i]);
          add(op.vPoints[i + 1]);
          vSegEnds.push_back(op.vPoints[i]);
          vSegEnds.push_back(op.vPoints[i + 1]);
        }
      } else if (w < 57) {
        op.kind = OpKind::Apply;
      } else if (w < 85 && !vSegEnds.empty()) {
        // A point on (or next to) a segment asked for: an insertion that
        // lands on a constraint edge, or the choice of a segment to split.
        const std::size_t i(2 * static_cast<std::size_t>(uniformInt(rng, 0, static_cast<int>(vSegEnds.size() / 2) - 1)));
        static const double T[] = {0.5, 0.25, 0.75, 0.125};
        const Point2 p(along(vSegEnds[i], vSegEnds[i + 1], T[uniformInt(rng, 0, 3)]));
        const int how(uniformInt(rng, 0, 9));
        if (how < 5) {
          op.kind = OpKind::Insert;
          add(p);
        } else if (how < 9) {
          op.kind = OpKind::Split;
          op.arg = how == 8 ? uniformInt(rng, 1, 2) : 0;
        } else {
          op.kind = OpKind::SplitDead;
        }
        op.vPoints.push_back(p);
      } else if (w < 92) {
        op.kind = OpKind::MakeDelaunay;
        op.arg = uniformInt(rng, 0, 7);
      } else if (w >= 98) {
        op.kind = OpKind::UnifyGrid;
      } else if (!vPool.empty()) {
        // Zones of triangle lists, or (one in three) peeled zones.
        const std::size_t numPool(vPool.size());
        auto anyPoolPoint = [&]() { return vPool[static_cast<std::size_t>(uniformInt(rng, 0, static_cast<int>(numPool) - 1))]; };
        op.kind = w < 95 ? OpKind::ZoneTriangles : OpKind::Peel;
        if (op.kind == OpKind::Peel) op.arg = uniformInt(rng, 0, 63);
        op.vPoints.push_back(anyPoolPoint());
        if (op.kind == OpKind::ZoneTriangles) op.vPoints.push_back(anyPoolPoint());
      } else {
        continue;
      }
      c.vOps.push_back(op);
      continue;
    }
    const int w(uniformInt(rng, 0, 99));
    Op op;
    if (w < 30) { // a run of single insertions
      const int run(!bLarge && chance(rng, 0.3) ? static_cast<int>(vPool.size()) : uniformInt(rng, 1, 8));
      for (int i = 0; i < run; ++i) {
        Op ins;
        ins.kind = OpKind::Insert;
        ins.vPoints.push_back(pick());
        add(ins.vPoints.back());
        c.vOps.push_back(ins);
      }
      continue;
    } else if (w < 50) { // a batch in one of three forms
      const int form(uniformInt(rng, 0, 2));
      op.kind = form == 0 ? OpKind::Batch : (form == 1 ? OpKind::BatchHandles : OpKind::Array);
      const std::size_t m(chance(rng, bLarge ? 0.8 : 0.5) ? vPool.size()
                                                          : static_cast<std::size_t>(uniformInt(rng, 1, 20)));
      for (std::size_t i = 0; i < m; ++i) op.vPoints.push_back(pick());
      for (const Point2& p : op.vPoints) add(p);
    } else if (w < 72) { // a run of removals
      if (sLive.empty()) continue;
      const int run(!bLarge && chance(rng, 0.2) ? static_cast<int>(sLive.size()) : uniformInt(rng, 1, 5));
      for (int i = 0; i < run && !sLive.empty(); ++i) {
        Op rem;
        rem.kind = OpKind::Remove;
        rem.vPoints.push_back(pickLive());
        sLive.erase(keyOf(rem.vPoints[0]));
        sDead.insert(keyOf(rem.vPoints[0]));
        c.vOps.push_back(rem);
      }
      continue;
    } else if (w < 75) {
      if (sDead.empty()) continue;
      std::set<Key>::const_iterator it(sDead.begin());
      std::advance(it, uniformInt(rng, 0, static_cast<int>(sDead.size()) - 1));
      op.kind = OpKind::RemoveDead;
      op.vPoints.emplace_back(it->first, it->second);
    } else if (w < 77) {
      op.kind = OpKind::RemoveNull;
    } else if (w < 79) {
      op.kind = OpKind::RemoveForeign;
    } else if (w < 89) {
      op.kind = OpKind::Locate;
      const int how(uniformInt(rng, 0, 3));
      if (how == 0 && !sLive.empty()) op.vPoints.push_back(pickLive());
      else if (how == 1 && sLive.size() >= 2) { // the midpoint of two vertices: often on an edge
        const Point2 a(pickLive()), b(pickLive());
        op.vPoints.emplace_back(a.x() / 2 + b.x() / 2, a.y() / 2 + b.y() / 2);
      } else if (how == 2) op.vPoints.push_back(badRate > 0 && chance(rng, 0.3) ? badPoint(rng) : vPool[0]);
      else op.vPoints.push_back(vPool[uniformInt(rng, 0, static_cast<int>(vPool.size()) - 1)]);
    } else if (w < 94) {
      op.kind = OpKind::Fast;
      op.arg = chance(rng, 0.5) ? 1 : 0;
    } else {
      op.kind = OpKind::Cpu;
      op.arg = chance(rng, bLarge ? 0.2 : 0.5) ? 1 : uniformInt(rng, 2, 8);
    }
    c.vOps.push_back(op);
  }
  return c;
}

namespace {

// A returned handle for the point p: at p, and the one every equal point has.
void checkHandle(Replay& r, const Point2& p, Point2* h) {
  if (!isFinite(p)) {
    if (h != nullptr) r.fail("handle for a refused point", str(p));
    return;
  }
  if (h == nullptr) {
    r.fail("null handle for a finite point", str(p));
    return;
  }
  if (!(h->x() == p.x() && h->y() == p.y())) {
    r.fail("handle not at the point asked for", str(p) + " got " + str(*h));
    return;
  }
  Point2*& known(r.mLive[keyOf(p)]);
  if (known != nullptr && known != h) r.fail("equal points got different handles", str(p));
  known = h;
}

// The bookkeeping: the live vertices are the model's, at their handles.
void checkModel(Replay& r) {
  std::vector<Point2*> vV;
  r.dt.getVertexPointers(vV);
  std::map<Key, Point2*> mLib;
  for (Point2* p : vV) {
    if (p == nullptr) {
      r.fail("null vertex in the vertex list");
      return;
    }
    if (!mLib.insert(std::make_pair(keyOf(*p), p)).second) r.fail("two live vertices at one place", str(*p));
  }
  if (r.dt.numberOfPoints() != r.mLive.size())
    r.fail("numberOfPoints differs from the model",
           std::to_string(r.dt.numberOfPoints()) + " vs " + std::to_string(r.mLive.size()));
  for (std::map<Key, Point2*>::iterator it = r.mLive.begin(); it != r.mLive.end(); ++it) {
    std::map<Key, Point2*>::const_iterator lib(mLib.find(it->first));
    if (lib == mLib.end()) {
      r.fail("a live point is missing", str(Point2(it->first.first, it->first.second)));
      return;
    }
    if (it->second == nullptr) it->second = lib->second;
    else if (it->second != lib->second) r.fail("the handle of a live vertex changed", str(*lib->second));
  }
  if (mLib.size() != r.mLive.size()) r.fail("a point is live that the model does not know");
}

// locate: a triangle that holds the point, or null exactly when the point
// lies outside every triangle.
void checkLocate(Replay& r, const Point2& p, Triangle2* pT) {
  if (!isFinite(p)) {
    if (pT != nullptr) r.fail("locate answered a non-finite point");
    return;
  }
  std::vector<Triangle2*> vT;
  r.dt.getTrianglePointers(vT);
  auto holds = [&](const Triangle2* t) {
    for (int i = 0; i < 3; ++i)
      if (vask_test::exactOrientation(*t->getCorner(i), *t->getCorner((i + 1) % 3), p) < 0) return false;
    return true;
  };
  if (pT != nullptr) {
    if (std::find(vT.begin(), vT.end(), pT) == vT.end()) r.fail("locate returned a dead triangle", str(p));
    else if (!holds(pT)) r.fail("locate returned a triangle that does not hold the point", str(p));
    return;
  }
  for (const Triangle2* t : vT)
    if (holds(t)) {
      r.fail("locate found nothing for a point in the mesh", str(p));
      return;
    }
}

void apply(Replay& r, const Op& op) {
  const bool bRefusable(op.kind == OpKind::RemoveDead || op.kind == OpKind::RemoveNull ||
                        op.kind == OpKind::RemoveForeign || op.kind == OpKind::Locate ||
                        op.kind == OpKind::Fast || op.kind == OpKind::Cpu ||
                        (op.kind == OpKind::Insert && !isFinite(op.vPoints[0])));
  Snapshot before;
  if (bRefusable) before = snapshot(r.dt);
  const bool bBatch(op.kind == OpKind::Batch || op.kind == OpKind::BatchHandles || op.kind == OpKind::Array);
  const std::size_t numThreadedBefore(r.dt.getImpl()->getNumThreadedRanges());
  switch (op.kind) {
  case OpKind::Insert: {
    Point2* h(r.dt.insert(op.vPoints[0]));
    checkHandle(r, op.vPoints[0], h);
    break;
  }
  case OpKind::Batch:
    r.dt.insert(op.vPoints);
    for (const Point2& p : op.vPoints)
      if (isFinite(p)) r.mLive.insert(std::make_pair(keyOf(p), static_cast<Point2*>(nullptr)));
    break;
  case OpKind::BatchHandles: {
    std::vector<Point2*> vH;
    r.dt.insert(op.vPoints, vH);
    if (vH.size() != op.vPoints.size()) {
      r.fail("handle vector size differs from the input");
      break;
    }
    for (std::size_t i = 0; i < vH.size(); ++i) checkHandle(r, op.vPoints[i], vH[i]);
    break;
  }
  case OpKind::Array: {
    std::vector<double> vXY;
    for (const Point2& p : op.vPoints) {
      vXY.push_back(p.x());
      vXY.push_back(p.y());
    }
    std::vector<Point2*> vH(op.vPoints.size(), reinterpret_cast<Point2*>(&r)); // a poisoned fill
    r.dt.insert(static_cast<int>(op.vPoints.size()), vXY.data(), vH.data());
    for (std::size_t i = 0; i < vH.size(); ++i) checkHandle(r, op.vPoints[i], vH[i]);
    break;
  }
  case OpKind::Remove: {
    std::map<Key, Point2*>::iterator it(r.mLive.find(keyOf(op.vPoints[0])));
    if (it == r.mLive.end()) return; // its insertion was shrunk away
    Point2* h(it->second);
    if (h != nullptr && r.dt.isConstraint(h)) {
      removeConstraintVertex(r, h);
      break;
    }
    r.mLive.erase(it);
    r.mDead[keyOf(op.vPoints[0])] = h;
    r.dt.remove(h);
    break;
  }
  case OpKind::RemoveDead: {
    std::map<Key, Point2*>::const_iterator it(r.mDead.find(keyOf(op.vPoints[0])));
    if (it == r.mDead.end()) return;
    for (std::map<Key, Point2*>::const_iterator l = r.mLive.begin(); l != r.mLive.end(); ++l)
      if (l->second == it->second) return; // the object serves a live vertex again
    r.dt.remove(it->second);
    break;
  }
  case OpKind::RemoveNull:
    r.dt.remove(nullptr);
    break;
  case OpKind::RemoveForeign:
    r.dt.remove(r.pForeign);
    if (r.foreign.numberOfPoints() != 1) r.fail("removal from another triangulation changed it");
    break;
  case OpKind::Locate:
    checkLocate(r, op.vPoints[0], r.dt.locate(op.vPoints[0]));
    break;
  case OpKind::Fast:
    r.dt.setFastMode(op.arg != 0);
    r.bFast = op.arg != 0;
    break;
  case OpKind::Constraint:
  case OpKind::Apply:
  case OpKind::Split:
  case OpKind::SplitDead:
  case OpKind::MakeDelaunay:
  case OpKind::ZoneTriangles:
  case OpKind::Peel:
  case OpKind::UnifyGrid:
    applyConstraintOp(r, op);
    break;
  case OpKind::Cpu: {
    const int got(r.dt.setNumCPU(op.arg));
    if (got != std::max(1, op.arg)) r.fail("setNumCPU returned another count", std::to_string(got));
    break;
  }
  }
  if (bBatch) {
    ++r.outcome.numBatches;
    if (r.dt.getImpl()->getNumThreadedRanges() != numThreadedBefore) ++r.outcome.numThreadedBatches;
  }
  // Constraint operations insert points too (ends, crossings, midpoints).
  if (r.bFast && (op.kind == OpKind::Insert || op.kind == OpKind::Batch || op.kind == OpKind::BatchHandles ||
                  op.kind == OpKind::Array || op.kind == OpKind::Constraint || op.kind == OpKind::Apply ||
                  op.kind == OpKind::Split || op.kind == OpKind::MakeDelaunay))
    r.bFastLeftovers = true;
  if (r.dt.numberOfTriangles() == 0) r.bFastLeftovers = false;
  if (bRefusable) {
    const Snapshot after(snapshot(r.dt));
    if (after.vT != before.vT || after.vV != before.vV) r.fail("a refused operation changed the mesh");
  }
}

} // namespace

Outcome runCase(const Case& c, const std::function<void(std::size_t)>& onStep,
                const std::function<void(bool)>& onLibrary, bool bCheckLastOnly) {
  Replay r;
  r.pForeign = r.foreign.insert(Point2(0.25, 0.5));
  for (std::size_t i = 0; i < c.vOps.size(); ++i) {
    r.outcome.step = i;
    try {
      if (onLibrary) onLibrary(true);
      apply(r, c.vOps[i]);
      if (onLibrary) onLibrary(false);
      if (r.outcome.ok) checkModel(r);
      if (r.outcome.ok && (!bCheckLastOnly || i + 1 == c.vOps.size())) checkStep(r);
    } catch (const KIRO_VASK2D::VaskException& e) {
      r.fail("VaskException", e.what());
    } catch (const std::exception& e) {
      r.fail("exception", e.what());
    }
    r.outcome.numSteps = i + 1;
    if (!r.outcome.ok) return r.outcome;
    if (onStep) onStep(i);
  }
  return r.outcome;
}

namespace {
// The text form of each kind: its name, whether a number follows, and how
// many points it takes (an even count for constraint segments).
const struct {
  OpKind kind;
  const char* name;
  bool bArg;
  std::size_t minPoints, maxPoints;
  bool bPairs;
} OP_SPECS[] = {{OpKind::Insert, "insert", false, 1, 1, false},
                {OpKind::Batch, "batch", false, 1, SIZE_MAX, false},
                {OpKind::BatchHandles, "batchh", false, 1, SIZE_MAX, false},
                {OpKind::Array, "array", false, 1, SIZE_MAX, false},
                {OpKind::Remove, "remove", false, 1, 1, false},
                {OpKind::RemoveDead, "removedead", false, 1, 1, false},
                {OpKind::RemoveNull, "removenull", false, 0, 0, false},
                {OpKind::RemoveForeign, "removeforeign", false, 0, 0, false},
                {OpKind::Locate, "locate", false, 1, 1, false},
                {OpKind::Fast, "fast", true, 0, 0, false},
                {OpKind::Cpu, "cpu", true, 0, 0, false},
                {OpKind::Constraint, "constraint", true, 0, SIZE_MAX, true},
                {OpKind::Apply, "apply", false, 0, 0, false},
                {OpKind::Split, "split", true, 1, 1, false},
                {OpKind::SplitDead, "splitdead", false, 1, 1, false},
                {OpKind::MakeDelaunay, "makedelaunay", true, 0, 0, false},
                {OpKind::ZoneTriangles, "zonetriangles", false, 1, 2, false},
                {OpKind::Peel, "peel", true, 1, 1, false},
                {OpKind::UnifyGrid, "unifygrid", false, 0, 0, false}};
bool hasArg(OpKind k) {
  for (const auto& e : OP_SPECS)
    if (e.kind == k) return e.bArg;
  return false;
}
} // namespace

const char* opName(OpKind kind) {
  for (const auto& e : OP_SPECS)
    if (e.kind == kind) return e.name;
  return "?";
}

const std::vector<OpKind>& allOpKinds() {
  static std::vector<OpKind> v;
  if (v.empty())
    for (const auto& e : OP_SPECS) v.push_back(e.kind);
  return v;
}

std::string toText(const Case& c, const std::vector<std::string>& vComments) {
  std::ostringstream oss;
  for (const std::string& s : vComments) oss << "# " << s << '\n';
  oss << "family " << c.family << '\n' << "seed " << c.seed << '\n';
  char buf[64];
  for (const Op& op : c.vOps) {
    oss << opName(op.kind);
    if (hasArg(op.kind)) oss << ' ' << op.arg;
    for (const Point2& p : op.vPoints) {
      std::snprintf(buf, sizeof buf, " %.17g %.17g", p.x(), p.y());
      oss << buf;
    }
    oss << '\n';
  }
  return oss.str();
}

bool fromText(const std::string& text, Case& c, std::string& error) {
  c = Case();
  std::istringstream in(text);
  std::string line;
  int lineNo(0);
  while (std::getline(in, line)) {
    ++lineNo;
    std::istringstream ls(line);
    std::string word;
    if (!(ls >> word) || word[0] == '#') continue;
    if (word == "family") {
      ls >> c.family;
      continue;
    }
    if (word == "seed") {
      ls >> c.seed;
      continue;
    }
    Op op;
    const auto* pSpec(&OP_SPECS[0]);
    bool bKnown(false);
    for (const auto& e : OP_SPECS)
      if (word == e.name) {
        op.kind = e.kind;
        pSpec = &e;
        bKnown = true;
      }
    if (!bKnown) {
      error = "line " + std::to_string(lineNo) + ": unknown operation " + word;
      return false;
    }
    if (hasArg(op.kind) && !(ls >> op.arg)) {
      error = "line " + std::to_string(lineNo) + ": " + word + " needs a number";
      return false;
    }
    std::vector<double> vXY;
    std::string tok;
    while (ls >> tok) {
      char* end(nullptr);
      const double d(std::strtod(tok.c_str(), &end));
      if (end == tok.c_str() || *end != '\0') {
        error = "line " + std::to_string(lineNo) + ": not a number: " + tok;
        return false;
      }
      vXY.push_back(d);
    }
    const std::size_t numPoints(vXY.size() / 2);
    if (vXY.size() % 2 != 0 || numPoints < pSpec->minPoints || numPoints > pSpec->maxPoints ||
        (pSpec->bPairs && numPoints % 2 != 0)) {
      error = "line " + std::to_string(lineNo) + ": wrong number of coordinates for " + word;
      return false;
    }
    for (std::size_t i = 0; i < vXY.size(); i += 2) op.vPoints.emplace_back(vXY[i], vXY[i + 1]);
    c.vOps.push_back(op);
  }
  return true;
}

bool readCaseFile(const std::string& path, Case& c, std::string& error) {
  std::ifstream in(path);
  if (!in) {
    error = path + ": cannot open";
    return false;
  }
  std::stringstream ss;
  ss << in.rdbuf();
  return fromText(ss.str(), c, error);
}

} // namespace vask_fuzz
