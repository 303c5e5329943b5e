#include "helpers/ExactOracle.h"
#include "helpers/Rational.h"
#include <cmath>
#include <gmp.h>

namespace vask_test {
typedef Rational Q;

int exactOrientationSign(const KIRO_VASK2D::Point2& p0, const KIRO_VASK2D::Point2& p1, const KIRO_VASK2D::Point2& p2) {
  // Translated to p0 rather than to p2, unlike the library.
  const Q x0(p0.x()), y0(p0.y());
  const Q det((Q(p1.x()) - x0) * (Q(p2.y()) - y0) - (Q(p1.y()) - y0) * (Q(p2.x()) - x0));
  return det.sign();
}

int exactIncircleSign(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                      const KIRO_VASK2D::Point2& d) {
  const Q dx(d.x()), dy(d.y());
  const Q ax(Q(a.x()) - dx), ay(Q(a.y()) - dy), bx(Q(b.x()) - dx), by(Q(b.y()) - dy), cx(Q(c.x()) - dx),
      cy(Q(c.y()) - dy);
  const Q al(ax * ax + ay * ay), bl(bx * bx + by * by), cl(cx * cx + cy * cy);
  // Rule of Sarrus on the rows (x, y, lift).
  const Q det(ax * by * cl + ay * bl * cx + al * bx * cy - al * by * cx - ay * bx * cl - ax * bl * cy);
  return det.sign();
}

bool exactLineIntersection(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                           const KIRO_VASK2D::Point2& d, double& x, double& y) {
  // a + t (b - a) with t = ((c - a) x (d - c)) / ((b - a) x (d - c)).
  const Q ax(a.x()), ay(a.y());
  const Q rx(Q(b.x()) - ax), ry(Q(b.y()) - ay), sx(Q(d.x()) - Q(c.x())), sy(Q(d.y()) - Q(c.y()));
  const Q denom(rx * sy - ry * sx);
  if (denom.sign() == 0) return false;
  const Q t(((Q(c.x()) - ax) * sy - (Q(c.y()) - ay) * sx) / denom);
  x = (ax + t * rx).toDouble();
  y = (ay + t * ry).toDouble();
  return true;
}

int compareLineDistance(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& p,
                        const KIRO_VASK2D::Point2& q) {
  const Q ax(a.x()), ay(a.y()), rx(Q(b.x()) - ax), ry(Q(b.y()) - ay);
  const Q dp((rx * (Q(p.y()) - ay) - ry * (Q(p.x()) - ax)).abs());
  const Q dq((rx * (Q(q.y()) - ay) - ry * (Q(q.x()) - ax)).abs());
  const int cmp(compare(dp, dq));
  return cmp < 0 ? -1 : (cmp > 0 ? 1 : 0);
}

bool exactCircumcentre(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                       KIRO_VASK2D::Point2& out) {
  const Q ax(a.x()), ay(a.y()), bx(b.x()), by(b.y()), cx(c.x()), cy(c.y());
  const Q d(Q(2.0) * (ax * (by - cy) + bx * (cy - ay) + cx * (ay - by)));
  if (d.sign() == 0) return false;
  const Q sa(ax * ax + ay * ay), sb(bx * bx + by * by), sc(cx * cx + cy * cy);
  const Q ux((sa * (by - cy) + sb * (cy - ay) + sc * (ay - by)) / d);
  const Q uy((sa * (cx - bx) + sb * (ax - cx) + sc * (bx - ax)) / d);
  out = KIRO_VASK2D::Point2(ux.toDouble(), uy.toDouble());
  return true;
}

double exactDoubleArea(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c) {
  const Q ax(a.x()), ay(a.y()), bx(b.x()), by(b.y()), cx(c.x()), cy(c.y());
  return ((bx - ax) * (cy - ay) - (by - ay) * (cx - ax)).toDouble();
}

double lineDeviation(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& p,
                     double unit) {
  const Q ax(a.x()), ay(a.y()), rx(Q(b.x()) - ax), ry(Q(b.y()) - ay), u(unit);
  const Q cross(rx * (Q(p.y()) - ay) - ry * (Q(p.x()) - ax));
  if (cross.sign() == 0) return 0.0;
  // (cross / |ab|)^2 / unit^2, one rounding.
  return std::sqrt((cross * cross / ((rx * rx + ry * ry) * u * u)).toDouble());
}

int exactDotSign(const KIRO_VASK2D::Point2& a, const KIRO_VASK2D::Point2& b, const KIRO_VASK2D::Point2& c,
                 const KIRO_VASK2D::Point2& d) {
  const Q dot((Q(b.x()) - Q(a.x())) * (Q(d.x()) - Q(c.x())) + (Q(b.y()) - Q(a.y())) * (Q(d.y()) - Q(c.y())));
  return dot.sign();
}

double ulpOf(double v) {
  const double a(std::fabs(v));
  if (!std::isfinite(a)) return HUGE_VAL;
  const double up(std::nextafter(a, HUGE_VAL));
  return std::isfinite(up) ? up - a : a - std::nextafter(a, 0.0);
}

double ulpShift(double v, int steps) {
  const double target(steps > 0 ? HUGE_VAL : -HUGE_VAL);
  for (int i = 0; i < std::abs(steps); ++i) v = std::nextafter(v, target);
  return v;
}

double randomMagnitude(std::mt19937_64& gen, int minExp, int maxExp) {
  std::uniform_int_distribution<int> expDist(minExp, maxExp);
  std::uniform_real_distribution<double> mantissa(1.0, 2.0);
  const double v(std::ldexp(mantissa(gen), expDist(gen)));
  return (gen() & 1) ? -v : v;
}

} // namespace vask_test
