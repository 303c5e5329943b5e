#pragma once
// One GMP rational with a lifetime and the arithmetic the exact oracles
// need: a test's independent truth, slow and simple.
#include <gmp.h>

namespace vask_test {

class Rational {
public:
  Rational() { mpq_init(value); }
  explicit Rational(double d) {
    mpq_init(value);
    mpq_set_d(value, d);
  }
  Rational(const Rational& other) {
    mpq_init(value);
    mpq_set(value, other.value);
  }
  Rational& operator=(const Rational& other) {
    mpq_set(value, other.value);
    return *this;
  }
  ~Rational() { mpq_clear(value); }
  friend Rational operator+(const Rational& a, const Rational& b) {
    Rational r;
    mpq_add(r.value, a.value, b.value);
    return r;
  }
  friend Rational operator-(const Rational& a, const Rational& b) {
    Rational r;
    mpq_sub(r.value, a.value, b.value);
    return r;
  }
  friend Rational operator*(const Rational& a, const Rational& b) {
    Rational r;
    mpq_mul(r.value, a.value, b.value);
    return r;
  }
  friend Rational operator/(const Rational& a, const Rational& b) {
    Rational r;
    mpq_div(r.value, a.value, b.value);
    return r;
  }
  /** The fraction num / den. */
  static Rational fraction(unsigned long num, unsigned long den) {
    Rational r;
    mpq_set_ui(r.value, num, den);
    mpq_canonicalize(r.value);
    return r;
  }
  int sign() const { return mpq_sgn(value); }
  double toDouble() const { return mpq_get_d(value); }
  Rational abs() const {
    Rational r;
    mpq_abs(r.value, value);
    return r;
  }
  friend int compare(const Rational& a, const Rational& b) { return mpq_cmp(a.value, b.value); }

private:
  mpq_t value;
};

} // namespace vask_test
