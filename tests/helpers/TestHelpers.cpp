#include "helpers/TestHelpers.h"
#include "Vask_2D.h"
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <gmp.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <unordered_map>

using KIRO_VASK2D::Point2;
using KIRO_VASK2D::Triangle2;

namespace vask_test {

std::string captured(const std::function<void()>& f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

bool says(const std::string& out, const std::string& tag, const std::string& text) {
  return out.find(tag + ", WARNING: " + text) != std::string::npos;
}

std::vector<Point2> randomPoints(std::size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> dist(0.0, 1.0);
  std::vector<Point2> points;
  points.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const double x(dist(gen));
    points.emplace_back(x, dist(gen));
  }
  return points;
}

std::vector<Point2> gridPoints(int side) {
  std::vector<Point2> points;
  points.reserve(static_cast<std::size_t>(side) * side);
  for (int i = 0; i < side; ++i)
    for (int j = 0; j < side; ++j) points.emplace_back(i, j);
  return points;
}

std::vector<Point2> circlePoints(std::size_t n, double cx, double cy, double r) {
  std::vector<Point2> points;
  for (std::size_t i = 0; i < n; ++i) {
    const double a(2.0 * M_PI * static_cast<double>(i) / static_cast<double>(n));
    points.emplace_back(cx + r * std::cos(a), cy + r * std::sin(a));
  }
  return points;
}

namespace {

// Rationals of the exact stage, kept for the life of the thread.
struct Rationals {
  mpq_t q[24];
  Rationals() {
    for (mpq_t& v : q) mpq_init(v);
  }
  ~Rationals() {
    for (mpq_t& v : q) mpq_clear(v);
  }
};
Rationals& rationals() {
  static thread_local Rationals r;
  return r;
}

const double EPS(DBL_EPSILON / 2);                  // 2^-53, unit roundoff
const double CCW_BOUND((3.0 + 16.0 * EPS) * EPS);   // Shewchuk, orient2d filter
const double ICC_BOUND((10.0 + 96.0 * EPS) * EPS);  // Shewchuk, incircle filter

// The filters are used only where every difference is 0 or of a magnitude
// whose products (and, for the in-circle test, triple products) stay normal
// and finite; elsewhere the rationals decide.
bool inRange(double d, double lim) {
  const double a(std::fabs(d));
  return a == 0.0 || (a >= 1.0 / lim && a <= lim);
}

int orientationGmp(const Point2& a, const Point2& b, const Point2& c) {
  mpq_t* q(rationals().q);
  mpq_set_d(q[0], a.x()); mpq_set_d(q[1], a.y());
  mpq_set_d(q[2], b.x()); mpq_set_d(q[3], b.y());
  mpq_set_d(q[4], c.x()); mpq_set_d(q[5], c.y());
  mpq_sub(q[6], q[2], q[0]); mpq_sub(q[7], q[5], q[1]); mpq_mul(q[8], q[6], q[7]);
  mpq_sub(q[6], q[3], q[1]); mpq_sub(q[7], q[4], q[0]); mpq_mul(q[9], q[6], q[7]);
  const int s(mpq_cmp(q[8], q[9]));
  return s > 0 ? 1 : (s < 0 ? -1 : 0);
}

int inCircleGmp(const Point2& a, const Point2& b, const Point2& c, const Point2& d) {
  mpq_t* q(rationals().q);
  const Point2* pts[3] = {&a, &b, &c};
  mpq_set_d(q[20], d.x());
  mpq_set_d(q[21], d.y());
  for (int i = 0; i < 3; ++i) {
    mpq_set_d(q[3 * i], pts[i]->x());
    mpq_sub(q[3 * i], q[3 * i], q[20]);
    mpq_set_d(q[3 * i + 1], pts[i]->y());
    mpq_sub(q[3 * i + 1], q[3 * i + 1], q[21]);
    mpq_mul(q[3 * i + 2], q[3 * i], q[3 * i]);
    mpq_mul(q[10], q[3 * i + 1], q[3 * i + 1]);
    mpq_add(q[3 * i + 2], q[3 * i + 2], q[10]);
  }
  mpq_set_ui(q[11], 0, 1);
  for (int i = 0; i < 3; ++i) {
    const int j((i + 1) % 3), k((i + 2) % 3);
    mpq_mul(q[12], q[3 * j], q[3 * k + 1]);
    mpq_mul(q[13], q[3 * k], q[3 * j + 1]);
    mpq_sub(q[12], q[12], q[13]);
    mpq_mul(q[12], q[12], q[3 * i + 2]);
    mpq_add(q[11], q[11], q[12]);
  }
  return mpq_sgn(q[11]);
}

} // namespace

// A double filter with Shewchuk's error bounds where no under- or overflow
// can occur; the rationals decide everything else.
int exactOrientation(const Point2& a, const Point2& b, const Point2& c) {
  const double d0(b.x() - a.x()), d1(c.y() - a.y()), d2(b.y() - a.y()), d3(c.x() - a.x());
  const double l(d0 * d1), r(d2 * d3);
  const double det(l - r), sum(std::fabs(l) + std::fabs(r));
  if (inRange(d0, 1e150) && inRange(d1, 1e150) && inRange(d2, 1e150) && inRange(d3, 1e150)) {
    if (det > CCW_BOUND * sum) return 1;
    if (-det > CCW_BOUND * sum) return -1;
  }
  return orientationGmp(a, b, c);
}

int exactInCircle(const Point2& a, const Point2& b, const Point2& c, const Point2& d) {
  const double adx(a.x() - d.x()), ady(a.y() - d.y()), bdx(b.x() - d.x()), bdy(b.y() - d.y());
  const double cdx(c.x() - d.x()), cdy(c.y() - d.y());
  const double alift(adx * adx + ady * ady), blift(bdx * bdx + bdy * bdy), clift(cdx * cdx + cdy * cdy);
  const double det(alift * (bdx * cdy - cdx * bdy) + blift * (cdx * ady - adx * cdy) + clift * (adx * bdy - bdx * ady));
  const double perm(alift * (std::fabs(bdx * cdy) + std::fabs(cdx * bdy)) +
                    blift * (std::fabs(cdx * ady) + std::fabs(adx * cdy)) +
                    clift * (std::fabs(adx * bdy) + std::fabs(bdx * ady)));
  if (inRange(adx, 1e70) && inRange(ady, 1e70) && inRange(bdx, 1e70) && inRange(bdy, 1e70) && inRange(cdx, 1e70) &&
      inRange(cdy, 1e70)) {
    if (det > ICC_BOUND * perm) return 1;
    if (-det > ICC_BOUND * perm) return -1;
  }
  return inCircleGmp(a, b, c, d);
}

void Validation::fail(const std::string& text) {
  if (ok) firstError = text;
  ok = false;
  ++numErrors;
}

namespace {

struct PointLess {
  bool operator()(const Point2* a, const Point2* b) const { return *a < *b; }
};

// Andrew's monotone chain with exact orientation; collinear points dropped.
std::vector<const Point2*> convexHull(std::vector<const Point2*> vPts) {
  std::sort(vPts.begin(), vPts.end(), PointLess());
  vPts.erase(std::unique(vPts.begin(), vPts.end(), [](const Point2* a, const Point2* b) { return *a == *b; }),
             vPts.end());
  if (vPts.size() < 3) return vPts;
  std::vector<const Point2*> vHull(2 * vPts.size());
  std::size_t k(0);
  for (std::size_t i = 0; i < vPts.size(); ++i) {
    while (k >= 2 && exactOrientation(*vHull[k - 2], *vHull[k - 1], *vPts[i]) <= 0) --k;
    vHull[k++] = vPts[i];
  }
  for (std::size_t i = vPts.size() - 1, t = k + 1; i-- > 0;) {
    while (k >= t && exactOrientation(*vHull[k - 2], *vHull[k - 1], *vPts[i]) <= 0) --k;
    vHull[k++] = vPts[i];
  }
  vHull.resize(k - 1);
  return vHull;
}

// Exact sums of products of doubles without rationals: a double is an
// integer times 2^e with e >= -1126 (53-bit integers; subnormals included),
// so a product is an integer times a power of two no finer than 2^-2252,
// and a sum of products is kept as that integer. No gcd, unlike mpq.
const int AREA_SCALE_BITS = 2252;

void addScaledProduct(mpz_t acc, mpz_t tmp, double a, double b, bool bSubtract) {
  if (a == 0.0 || b == 0.0) return;
  int ea(0), eb(0);
  const long long ia(static_cast<long long>(std::ldexp(std::frexp(a, &ea), 53)));
  const long long ib(static_cast<long long>(std::ldexp(std::frexp(b, &eb), 53)));
  const __int128 prod(static_cast<__int128>(ia) * ib);
  const unsigned __int128 mag(prod < 0 ? -static_cast<unsigned __int128>(prod) : static_cast<unsigned __int128>(prod));
  mpz_set_ui(tmp, static_cast<unsigned long>(mag >> 64));
  mpz_mul_2exp(tmp, tmp, 64);
  mpz_add_ui(tmp, tmp, static_cast<unsigned long>(mag));
  mpz_mul_2exp(tmp, tmp, static_cast<mp_bitcnt_t>(ea + eb - 106 + AREA_SCALE_BITS));
  if ((prod < 0) != bSubtract) mpz_sub(acc, acc, tmp);
  else mpz_add(acc, acc, tmp);
}

// Adds twice the signed area of a polygon, times 2^AREA_SCALE_BITS, to acc.
void addPolygonArea2(const std::vector<const Point2*>& vPoly, mpz_t acc, mpz_t tmp) {
  for (std::size_t i = 0; i < vPoly.size(); ++i) {
    const Point2* p(vPoly[i]);
    const Point2* q(vPoly[(i + 1) % vPoly.size()]);
    addScaledProduct(acc, tmp, p->x(), q->y(), false);
    addScaledProduct(acc, tmp, q->x(), p->y(), true);
  }
}

// Without triangles the points wait for one off their line: they must be
// collinear, and distinct.
Validation validateCollinear(const std::vector<Point2*>& vVertices) {
  Validation v;
  v.numVertices = vVertices.size();
  std::vector<const Point2*> vSorted(vVertices.begin(), vVertices.end());
  for (const Point2* p : vSorted)
    if (p == nullptr) {
      v.fail("null vertex");
      return v;
    }
  std::sort(vSorted.begin(), vSorted.end(), PointLess());
  for (std::size_t i = 1; i < vSorted.size(); ++i)
    if (*vSorted[i - 1] == *vSorted[i]) v.fail("two vertices at the same place");
  if (vSorted.size() < 3) return v;
  const Point2* a(vSorted.front());
  const Point2* b(vSorted.back());
  for (const Point2* p : vSorted)
    if (exactOrientation(*a, *b, *p) != 0) {
      v.fail("no triangles, but the vertices are not collinear");
      break;
    }
  return v;
}

// The in-circle determinant of a, b, c, d computed in doubles relative to
// the point ref (one of the four) is certain: larger in magnitude than its
// rounding error, and free of over- and underflow.
bool certainInDoubles(const Point2* const q[4], int ref) {
  double dx[3], dy[3];
  for (int i = 0, k = 0; i < 4; ++i) {
    if (i == ref) continue;
    dx[k] = q[i]->x() - q[ref]->x();
    dy[k] = q[i]->y() - q[ref]->y();
    if (!inRange(dx[k], 1e70) || !inRange(dy[k], 1e70)) return false;
    ++k;
  }
  double det(0.0), perm(0.0);
  for (int i = 0; i < 3; ++i) {
    const int j((i + 1) % 3), k((i + 2) % 3);
    const double lift(dx[i] * dx[i] + dy[i] * dy[i]);
    det += lift * (dx[j] * dy[k] - dx[k] * dy[j]);
    perm += lift * (std::fabs(dx[j] * dy[k]) + std::fabs(dx[k] * dy[j]));
  }
  return std::fabs(det) > 1e-13 * perm;
}

// d lies inside the circle through a, b, c by more than a double
// evaluation can see, from whichever of the four points it is computed:
// fast mode's flip loop may leave anything less unflipped.
bool clearlyInCircle(const Point2& a, const Point2& b, const Point2& c, const Point2& d) {
  const Point2* q[4] = {&a, &b, &c, &d};
  for (int ref = 0; ref < 4; ++ref)
    if (!certainInDoubles(q, ref)) return false;
  return true;
}

} // namespace

Validation validate(const std::vector<Triangle2*>& vT, const std::vector<Point2*>& vVertices, bool bEmptyCircle,
                    std::size_t maxEmptyCircleTests) {
  ValidateOptions options;
  options.bEmptyCircle = bEmptyCircle;
  options.maxEmptyCircleTests = maxEmptyCircleTests;
  return validate(vT, vVertices, options);
}

Validation validate(const std::vector<Triangle2*>& vT, const std::vector<Point2*>& vVertices,
                    const ValidateOptions& options) {
  const bool bEmptyCircle(options.bEmptyCircle);
  const std::size_t maxEmptyCircleTests(options.maxEmptyCircleTests);
  if (vT.empty()) return validateCollinear(vVertices);
  Validation v;
  v.numTriangles = vT.size();
  std::unordered_map<const Triangle2*, int> mAlive;
  mAlive.reserve(vT.size() * 2);
  for (const Triangle2* pT : vT) mAlive[pT] = 1;
  std::set<const Point2*> sCorners;
  std::unordered_map<const Point2*, const Point2*> mNextOnHull;
  std::size_t numInnerEdges(0);
  for (const Triangle2* pT : vT) {
    const Point2* c[3] = {pT->getCorner(0), pT->getCorner(1), pT->getCorner(2)};
    if (!c[0] || !c[1] || !c[2] || c[0] == c[1] || c[1] == c[2] || c[0] == c[2]) {
      v.fail("triangle with missing or repeated corners");
      continue;
    }
    if (exactOrientation(*c[0], *c[1], *c[2]) != 1) v.fail("triangle not counter-clockwise");
    for (int i = 0; i < 3; ++i) {
      sCorners.insert(c[i]);
      const Triangle2* pN(pT->getOppositeTriangle(i));
      const Point2* p1(c[(i + 1) % 3]);
      const Point2* p2(c[(i + 2) % 3]);
      if (pN == nullptr) {
        if (mNextOnHull.count(p1)) v.fail("hull vertex with two outgoing hull edges");
        mNextOnHull[p1] = p2;
        continue;
      }
      ++numInnerEdges;
      if (!mAlive.count(pN)) {
        v.fail("neighbour is not a live triangle");
        continue;
      }
      int back(-1), numBack(0);
      for (int j = 0; j < 3; ++j)
        if (pN->getOppositeTriangle(j) == pT) {
          back = j;
          ++numBack;
        }
      if (numBack != 1 || pN->getCorner((back + 1) % 3) != p2 || pN->getCorner((back + 2) % 3) != p1)
        v.fail("neighbours not symmetric over the shared edge");
    }
  }
  v.numVertices = sCorners.size();
  v.numHullVertices = mNextOnHull.size();
  if (!vVertices.empty() && sCorners.size() != vVertices.size()) v.fail("corners differ from the vertex list");
  for (const Point2* pVtx : vVertices) {
    if (!sCorners.count(pVtx)) {
      v.fail("vertex is no corner of any triangle");
      continue;
    }
    const Triangle2* pInc(pVtx->getIncidentTriangle());
    if (pInc == nullptr || !mAlive.count(pInc) || !pInc->hasVertex(pVtx)) v.fail("bad incident triangle pointer");
  }
  if (v.ok && !vT.empty() && vT.size() != 2 * v.numVertices - 2 - v.numHullVertices)
    v.fail("triangle count differs from 2n - 2 - h");
  if (!v.ok || vT.empty()) return v;

  // The boundary: one loop, convex at every vertex.
  std::vector<const Point2*> vLoop;
  const Point2* pStart(mNextOnHull.begin()->first);
  const Point2* pCur(pStart);
  do {
    vLoop.push_back(pCur);
    std::unordered_map<const Point2*, const Point2*>::const_iterator it(mNextOnHull.find(pCur));
    if (it == mNextOnHull.end() || vLoop.size() > mNextOnHull.size()) {
      v.fail("boundary is not a closed loop");
      return v;
    }
    pCur = it->second;
  } while (pCur != pStart);
  if (vLoop.size() != mNextOnHull.size()) v.fail("boundary has more than one loop");
  for (std::size_t i = 0; i < vLoop.size(); ++i)
    if (exactOrientation(*vLoop[i], *vLoop[(i + 1) % vLoop.size()], *vLoop[(i + 2) % vLoop.size()]) < 0)
      v.fail("boundary is not convex");

  // Areas: the boundary loop against the hull of the vertices, exactly (two
  // polygons of hull size: a rounded sum cancels to noise when the points
  // are nearly collinear); the triangles against the loop, exactly for small
  // meshes, as a compensated long double sum with a relative tolerance for
  // large ones (the exact sum of millions of rationals takes too long).
  std::vector<const Point2*> vAll(sCorners.begin(), sCorners.end());
  for (const Point2* pVtx : vVertices) vAll.push_back(pVtx);
  const std::vector<const Point2*> vHull(convexHull(vAll));
  mpz_t sum, area, tmp;
  mpz_init(sum); mpz_init(area); mpz_init(tmp);
  addPolygonArea2(vLoop, area, tmp);
  addPolygonArea2(vHull, sum, tmp);
  if (mpz_cmp(sum, area) != 0) v.fail("boundary area differs from the convex hull's area");
  if (vT.size() <= 100000) {
    mpz_set_ui(sum, 0);
    std::vector<const Point2*> vTri(3);
    for (const Triangle2* pT : vT) {
      for (int i = 0; i < 3; ++i) vTri[i] = pT->getCorner(i);
      addPolygonArea2(vTri, sum, tmp);
    }
    if (mpz_cmp(sum, area) != 0) v.fail("triangle areas differ from the boundary's area");
  } else {
    // Each polygon's terms relative to its first corner: products of small
    // differences, so nearly collinear points don't cancel the sum to noise.
    // magnitude bounds the rounding of the products.
    long double magnitude(0.0L);
    auto area2 = [&magnitude](const std::vector<const Point2*>& vPoly) {
      long double s(0.0L);
      const long double x0(vPoly[0]->x()), y0(vPoly[0]->y());
      for (std::size_t i = 1; i + 1 < vPoly.size(); ++i) {
        const long double ax(vPoly[i]->x() - x0), ay(vPoly[i]->y() - y0);
        const long double bx(vPoly[i + 1]->x() - x0), by(vPoly[i + 1]->y() - y0);
        s += ax * by - bx * ay;
        magnitude += std::fabs(ax * by) + std::fabs(bx * ay);
      }
      return s;
    };
    long double triangles(0.0L), scale(0.0L);
    std::vector<const Point2*> vTri(3);
    for (const Triangle2* pT : vT) {
      for (int i = 0; i < 3; ++i) vTri[i] = pT->getCorner(i);
      const long double a(area2(vTri));
      triangles += a;
      scale += std::fabs(a);
    }
    const long double loop(area2(vLoop));
    if (std::fabs(triangles - loop) > 1e-9L * scale + 1e-15L * magnitude)
      v.fail("triangle areas differ from the boundary's area");
  }
  mpz_clear(sum); mpz_clear(area); mpz_clear(tmp);

  if (bEmptyCircle) {
    const std::size_t stride(numInnerEdges <= maxEmptyCircleTests ? 1 : numInnerEdges / maxEmptyCircleTests + 1);
    std::size_t edgeNo(0);
    for (const Triangle2* pT : vT) {
      for (int i = 0; i < 3; ++i) {
        const Triangle2* pN(pT->getOppositeTriangle(i));
        if (pN == nullptr || (edgeNo++ % stride) != 0) continue;
        if (options.isConstraint && options.isConstraint(pT->getCorner((i + 1) % 3), pT->getCorner((i + 2) % 3)))
          continue;
        const Point2* pFar(pN->getCorner(0));
        for (int j = 0; j < 3; ++j)
          if (pN->getOppositeTriangle(j) == pT) pFar = pN->getCorner(j);
        ++v.numEmptyCircleTests;
        const Point2 &a(*pT->getCorner(0)), &b(*pT->getCorner(1)), &c(*pT->getCorner(2));
        if (exactInCircle(a, b, c, *pFar) > 0 && (!options.bTolerateNearCocircular || clearlyInCircle(a, b, c, *pFar)))
          v.fail("empty-circle property violated");
      }
    }
  }
  return v;
}

Validation validate(KIRO_VASK2D::Vask_2D& dt, bool bEmptyCircle, std::size_t maxEmptyCircleTests) {
  ValidateOptions options;
  options.bEmptyCircle = bEmptyCircle;
  options.maxEmptyCircleTests = maxEmptyCircleTests;
  return validate(dt, options);
}

Validation validate(KIRO_VASK2D::Vask_2D& dt, const ValidateOptions& options) {
  std::vector<Triangle2*> vT;
  std::vector<Point2*> vVertices;
  dt.getTrianglePointers(vT);
  dt.getVertexPointers(vVertices);
  Validation v(validate(vT, vVertices, options));
  if (vT.empty() && dt.hasArea()) v.fail("no triangles, but the triangulation says it has area");
  if (!vT.empty() && !dt.hasArea()) v.fail("triangles, but the triangulation says it has no area");
  if (vT.size() != dt.numberOfTriangles()) v.fail("numberOfTriangles differs from the triangle list");
  if (vVertices.size() != dt.numberOfPoints()) v.fail("numberOfPoints differs from the vertex list");
  return v;
}

CanonicalTriangle canonicalTriangle(const Point2& a, const Point2& b, const Point2& c) {
  const Point2* aCorner[3] = {&a, &b, &c};
  int s(0);
  for (int i = 1; i < 3; ++i)
    if (*aCorner[i] < *aCorner[s]) s = i;
  CanonicalTriangle t;
  for (int k = 0; k < 3; ++k) {
    t[2 * k] = aCorner[(s + k) % 3]->x();
    t[2 * k + 1] = aCorner[(s + k) % 3]->y();
  }
  return t;
}

std::vector<CanonicalTriangle> canonicalTriangles(KIRO_VASK2D::Vask_2D& dt) {
  std::vector<Triangle2*> vT;
  dt.getTrianglePointers(vT);
  std::vector<CanonicalTriangle> vOut;
  for (const Triangle2* pT : vT) vOut.push_back(canonicalTriangle(*pT->getCorner(0), *pT->getCorner(1), *pT->getCorner(2)));
  std::sort(vOut.begin(), vOut.end());
  return vOut;
}

} // namespace vask_test
