#pragma once
// Error-free transformations and floating-point expansion arithmetic: the
// exact stage of the predicates for the ordinary exponent range, where no
// rational number is needed.
//
// An expansion is an array of doubles, least significant first, whose exact
// sum is the value it stands for; the components do not overlap, so the sign
// of the value is the sign of its last (largest) non-zero component, and an
// expansion of value zero has no non-zero component at all.
//
// Preconditions of everything here: round-to-nearest (ties to even), doubles
// of 53 bits (SSE2, no x87), no contraction of a * b + c into one fused
// operation (ISO C++ mode, -ffp-contract=off), and no overflow. Under those, TwoSum and
// TwoDiff are exact for all operands, subnormal ones included. TwoProduct is
// exact when the rounding error of the product is itself representable,
// which holds whenever both factors are integer multiples of powers of two
// whose product is at least 2^-1074 (see KiroTest.cpp for how the exponent
// guard of the predicates provides that).
#include <cmath>

namespace KIRO_VASK2D {
namespace expansion {

#define VASK2D_EXPANSION_INLINE inline __attribute__((always_inline))

/** x + y == a + b exactly, x = fl(a + b). */
VASK2D_EXPANSION_INLINE void twoSum(double a, double b, double& x, double& y) {
  x = a + b;
  const double bVirtual(x - a);
  const double aVirtual(x - bVirtual);
  y = (a - aVirtual) + (b - bVirtual);
}

/** x + y == a - b exactly, x = fl(a - b). */
VASK2D_EXPANSION_INLINE void twoDiff(double a, double b, double& x, double& y) {
  x = a - b;
  const double bVirtual(a - x);
  const double aVirtual(x + bVirtual);
  y = (a - aVirtual) + (bVirtual - b);
}

/** The rounding error of x = fl(a - b): a - b - x. */
VASK2D_EXPANSION_INLINE double twoDiffTail(double a, double b, double x) {
  const double bVirtual(a - x);
  const double aVirtual(x + bVirtual);
  return (a - aVirtual) + (bVirtual - b);
}

/** Veltkamp's split: a == hi + lo, both of at most 26 significant bits.
 * Needs |a| < 2^996 so that 134217729 * a does not overflow. */
VASK2D_EXPANSION_INLINE void split(double a, double& hi, double& lo) {
  const double c(134217729.0 * a); // 2^27 + 1
  const double big(c - a);
  hi = c - big;
  lo = a - hi;
}

/** x + y == a * b exactly, x = fl(a * b), when the error is representable.
 * With bFma the error comes from one fused multiply-add (std::fma is exact
 * on every machine; it is one instruction where the caller is compiled for
 * FMA); otherwise from Dekker's product of 26-bit halves, whose partial
 * products are exact. */
template <bool bFma> VASK2D_EXPANSION_INLINE void twoProduct(double a, double b, double& x, double& y) {
  x = a * b;
  if (bFma) {
    y = std::fma(a, b, -x);
  } else {
    double aHi, aLo, bHi, bLo;
    split(a, aHi, aLo);
    split(b, bHi, bLo);
    const double err1(x - aHi * bHi);
    const double err2(err1 - aLo * bHi);
    const double err3(err2 - aHi * bLo);
    y = aLo * bLo - err3;
  }
}

/** (a1 + a0) - (b1 + b0) as an expansion of four components, each pair being
 * non-overlapping with its larger part first in the name. */
inline void twoTwoDiff(double a1, double a0, double b1, double b0, double* h) {
  double i, j, k, l, m, n;
  twoDiff(a0, b0, i, h[0]);
  twoSum(a1, i, j, k);
  twoDiff(k, b1, l, h[1]);
  twoSum(j, l, m, n);
  h[2] = n;
  h[3] = m;
}

/** h = e + f, without zero components; returns the length of h. h must hold
 * elen + flen components and must not alias e or f. (Shewchuk's
 * fast-expansion-sum with zero elimination.) */
inline int sumZeroElim(int elen, const double* e, int flen, const double* f, double* h) {
  if (elen == 0) {
    for (int i = 0; i < flen; ++i) h[i] = f[i];
    return flen;
  }
  if (flen == 0) {
    for (int i = 0; i < elen; ++i) h[i] = e[i];
    return elen;
  }
  double enow(e[0]), fnow(f[0]), q, qNew, hh;
  int eindex(0), findex(0), hindex(0);
  if ((fnow > enow) == (fnow > -enow)) {
    q = enow;
    enow = ++eindex < elen ? e[eindex] : 0.0;
  } else {
    q = fnow;
    fnow = ++findex < flen ? f[findex] : 0.0;
  }
  if (eindex < elen && findex < flen) {
    // Fast-two-sum of the smaller new component onto q: |q| <= |component|.
    if ((fnow > enow) == (fnow > -enow)) {
      qNew = enow + q;
      hh = q - (qNew - enow);
      enow = ++eindex < elen ? e[eindex] : 0.0;
    } else {
      qNew = fnow + q;
      hh = q - (qNew - fnow);
      fnow = ++findex < flen ? f[findex] : 0.0;
    }
    q = qNew;
    if (hh != 0.0) h[hindex++] = hh;
    while (eindex < elen && findex < flen) {
      if ((fnow > enow) == (fnow > -enow)) {
        twoSum(q, enow, qNew, hh);
        enow = ++eindex < elen ? e[eindex] : 0.0;
      } else {
        twoSum(q, fnow, qNew, hh);
        fnow = ++findex < flen ? f[findex] : 0.0;
      }
      q = qNew;
      if (hh != 0.0) h[hindex++] = hh;
    }
  }
  while (eindex < elen) {
    twoSum(q, enow, qNew, hh);
    enow = ++eindex < elen ? e[eindex] : 0.0;
    q = qNew;
    if (hh != 0.0) h[hindex++] = hh;
  }
  while (findex < flen) {
    twoSum(q, fnow, qNew, hh);
    fnow = ++findex < flen ? f[findex] : 0.0;
    q = qNew;
    if (hh != 0.0) h[hindex++] = hh;
  }
  if (q != 0.0 || hindex == 0) h[hindex++] = q;
  return hindex;
}

/** h = e * b, without zero components; h must hold 2 * elen components.
 * (Shewchuk's scale-expansion with zero elimination.) */
template <bool bFma> VASK2D_EXPANSION_INLINE int scaleZeroElim(int elen, const double* e, double b, double* h) {
  if (elen == 0 || b == 0.0) {
    h[0] = 0.0;
    return 1;
  }
  double q, hh, product1, product0, sum;
  twoProduct<bFma>(e[0], b, q, hh);
  int hindex(0);
  if (hh != 0.0) h[hindex++] = hh;
  for (int i = 1; i < elen; ++i) {
    twoProduct<bFma>(e[i], b, product1, product0);
    twoSum(q, product0, sum, hh);
    if (hh != 0.0) h[hindex++] = hh;
    // Fast-two-sum of sum onto product1 suffices: |sum| <= |product1|.
    q = product1 + sum;
    hh = sum - (q - product1);
    if (hh != 0.0) h[hindex++] = hh;
  }
  if (q != 0.0 || hindex == 0) h[hindex++] = q;
  return hindex;
}

/** h = e * f; h and the scratch buffers a and b must each hold
 * 2 * elen * flen components. Returns the length of h. */
template <bool bFma> int productZeroElim(int elen, const double* e, int flen, const double* f, double* h, double* a, double* b) {
  int hlen(0);
  double* pAcc(h);
  double* pOther(a);
  for (int i = 0; i < flen; ++i) {
    if (f[i] == 0.0) continue;
    const int slen(scaleZeroElim<bFma>(elen, e, f[i], b));
    hlen = sumZeroElim(hlen, pAcc, slen, b, pOther);
    double* t(pAcc);
    pAcc = pOther;
    pOther = t;
  }
  if (hlen == 0) {
    h[0] = 0.0;
    return 1;
  }
  if (pAcc != h)
    for (int i = 0; i < hlen; ++i) h[i] = pAcc[i];
  return hlen;
}

/** Sign of the value of an expansion: that of its largest non-zero component. */
inline int sign(int elen, const double* e) {
  for (int i = elen - 1; i >= 0; --i)
    if (e[i] != 0.0) return e[i] > 0.0 ? 1 : -1;
  return 0;
}

/** Approximate value: the components summed from the small end. */
inline double estimate(int elen, const double* e) {
  double q(e[0]);
  for (int i = 1; i < elen; ++i) q += e[i];
  return q;
}

#undef VASK2D_EXPANSION_INLINE

} // namespace expansion
} // namespace KIRO_VASK2D
