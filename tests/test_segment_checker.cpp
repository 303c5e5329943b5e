// The segment checker against a brute-force oracle built from the meaning
// of each class: the exact intersection of the two closed segments in
// rationals, then which end points it is. Every pair, every intersector
// list and every illegal set of adversarial families must agree, and the
// points and common parts must be exact.
#include "SegmentChecker.h"
#include "VaskException.h"
#include "helpers/ExactOracle.h"
#include "helpers/PsRender.h"
#include "kernel/KiroTest.h"
#include "kernel/SegmentIntersection.h"
#include <cfenv>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <gmpxx.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

// ---------------------------------------------------------------- oracle

struct QPoint {
  mpq_class x, y;
};
QPoint toQ(const Point2& p) { return QPoint{mpq_class(p.x()), mpq_class(p.y())}; }
mpq_class cross(const QPoint& a, const QPoint& b) { return a.x * b.y - a.y * b.x; }
mpq_class dot(const QPoint& a, const QPoint& b) { return a.x * b.x + a.y * b.y; }
QPoint minus(const QPoint& a, const QPoint& b) { return QPoint{a.x - b.x, a.y - b.y}; }
QPoint along(const QPoint& p, const QPoint& d, const mpq_class& t) { return QPoint{p.x + t * d.x, p.y + t * d.y}; }
bool isZero(const QPoint& d) { return sgn(d.x) == 0 && sgn(d.y) == 0; }

/** The exact intersection of two closed segments (a point segment is a point). */
struct Meeting {
  SegmentIntersectionType sit = SIT_NONE;
  QPoint point;          // the single common point (SIT_POINT, SIT_ENDPOINT)
  QPoint partFrom, partTo; // the common part along the first segment (SIT_SEGMENT)
  bool bEndOfOne = false;  // the single point is an end point of a segment
};

/** A single common point at parameter t of segment a (direction da) and u of b. */
Meeting singlePoint(const QPoint& pa, const QPoint& da, const mpq_class& t, bool bEndOfA, bool bEndOfB) {
  Meeting m;
  m.point = along(pa, da, t);
  m.bEndOfOne = bEndOfA || bEndOfB;
  m.sit = (bEndOfA && bEndOfB) ? SIT_ENDPOINT : SIT_POINT;
  return m;
}

Meeting oracle(const Segment2& s0, const Segment2& s1) {
  const QPoint p1(toQ(s0.getSrc())), p2(toQ(s0.getTrg())), p3(toQ(s1.getSrc())), p4(toQ(s1.getTrg()));
  const QPoint d1(minus(p2, p1)), d2(minus(p4, p3));
  Meeting none;
  if (isZero(d1) && isZero(d2)) {
    if (p1.x == p3.x && p1.y == p3.y) return singlePoint(p1, d1, 0, true, true);
    return none;
  }
  if (isZero(d1) || isZero(d2)) {
    // A point q against a segment a + t da: on it when collinear with t in [0, 1].
    const QPoint &q(isZero(d1) ? p1 : p3), &a(isZero(d1) ? p3 : p1), &da(isZero(d1) ? d2 : d1);
    if (sgn(cross(minus(q, a), da)) != 0) return none;
    const mpq_class t(dot(minus(q, a), da) / dot(da, da));
    if (t < 0 || t > 1) return none;
    return singlePoint(a, da, t, true, t == 0 || t == 1);
  }
  const mpq_class denom(cross(d1, d2));
  const QPoint p13(minus(p3, p1));
  if (sgn(denom) != 0) {
    const mpq_class t(cross(p13, d2) / denom), u(cross(p13, d1) / denom);
    if (t < 0 || t > 1 || u < 0 || u > 1) return none;
    return singlePoint(p1, d1, t, t == 0 || t == 1, u == 0 || u == 1);
  }
  if (sgn(cross(p13, d1)) != 0) return none; // parallel lines
  // One line: the parameters of the second segment's ends along the first.
  const mpq_class len(dot(d1, d1));
  const mpq_class t3(dot(p13, d1) / len), t4(dot(minus(p4, p1), d1) / len);
  const mpq_class lo(std::max(mpq_class(0), std::min(t3, t4))), hi(std::min(mpq_class(1), std::max(t3, t4)));
  if (lo > hi) return none;
  if (lo == hi) return singlePoint(p1, d1, lo, lo == 0 || lo == 1, lo == t3 || lo == t4);
  Meeting m;
  m.sit = SIT_SEGMENT;
  m.partFrom = along(p1, d1, lo);
  m.partTo = along(p1, d1, hi);
  return m;
}

bool reported(SegmentIntersectionType sit, bool bWithEndPoints) {
  return sit == SIT_SEGMENT || sit == SIT_POINT || (sit == SIT_ENDPOINT && bWithEndPoints);
}

/** v is the exact value or one of the two doubles around it. */
bool isFaithful(double v, const mpq_class& exact) {
  const mpq_class q(v);
  if (q == exact) return true;
  const double toward(q < exact ? std::nextafter(v, HUGE_VAL) : std::nextafter(v, -HUGE_VAL));
  return q < exact ? mpq_class(toward) > exact : mpq_class(toward) < exact;
}

// ---------------------------------------------------------------- families

typedef std::vector<Segment2> Family;

Segment2 seg(double x0, double y0, double x1, double y1) { return Segment2(Point2(x0, y0), Point2(x1, y1)); }

/** Small integer coordinates: collinear chains, T-junctions, shared ends,
 * copies, reversed copies and zero-length segments in great number. Each
 * coordinate becomes offset + scale * integer (exact for the scales used). */
Family integerGrid(std::size_t n, unsigned seed, double scaleX, double scaleY, double offset, bool bSignedZeros) {
  std::mt19937_64 gen(seed);
  std::uniform_int_distribution<int> coord(0, 4);
  Family v;
  auto c = [&](double s) {
    const int k(coord(gen));
    const double value(offset + s * k);
    return (bSignedZeros && value == 0.0 && (gen() & 1)) ? -0.0 : value;
  };
  for (std::size_t i = 0; i < n; ++i) {
    v.push_back(seg(c(scaleX), c(scaleY), c(scaleX), c(scaleY)));
    if (i % 7 == 0) v.push_back(v[gen() % v.size()]);            // a copy
    if (i % 11 == 0) {                                            // a reversed copy
      Segment2 s(v[gen() % v.size()]);
      s.swapSrcTrg();
      v.push_back(s);
    }
  }
  return v;
}

Family randomShort(std::size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  Family v;
  for (std::size_t i = 0; i < n; ++i) {
    const double x(vask_test::uniform(gen, 0, 1)), y(vask_test::uniform(gen, 0, 1));
    v.push_back(seg(x, y, x + vask_test::uniform(gen, -0.2, 0.2), y + vask_test::uniform(gen, -0.2, 0.2)));
  }
  return v;
}

/** A closed outline of a star-shaped polygon and a closed self-crossing one. */
Family polygons(unsigned seed) {
  std::mt19937_64 gen(seed);
  std::vector<Point2> vRing, vTangle;
  for (int i = 0; i < 60; ++i) {
    const double a(2 * M_PI * i / 60), r(vask_test::uniform(gen, 0.5, 1.0));
    vRing.push_back(Point2(r * std::cos(a), r * std::sin(a)));
    vTangle.push_back(Point2(vask_test::uniform(gen, 2, 3), vask_test::uniform(gen, 0, 1)));
  }
  Family v;
  for (std::size_t i = 0; i < vRing.size(); ++i) v.push_back(Segment2(vRing[i], vRing[(i + 1) % vRing.size()]));
  for (std::size_t i = 0; i < vTangle.size(); ++i)
    v.push_back(Segment2(vTangle[i], vTangle[(i + 1) % vTangle.size()]));
  return v;
}

/** Segments through one point: it is the exact midpoint of most, an end point of some. */
Family pencil(unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_int_distribution<int> k(-64, 64);
  const double cx(0.375), cy(-1.25);
  Family v;
  for (int i = 0; i < 120; ++i) {
    const double dx(k(gen) / 64.0), dy(k(gen) / 64.0);
    if (i % 5 == 0)
      v.push_back(seg(cx, cy, cx + dx, cy + dy));
    else
      v.push_back(seg(cx - dx, cy - dy, cx + dx, cy + dy));
  }
  return v;
}

/** Overlapping chains on exact lines, with random double positions along them. */
Family collinearChains(unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_int_distribution<int> k(-40, 40);
  Family v;
  for (int i = 0; i < 80; ++i) {
    const double a(k(gen)), b(k(gen));
    v.push_back(seg(a, 3 * a + 1, b, 3 * b + 1)); // y = 3x + 1, exact for small integers
    const double s(vask_test::uniform(gen, -1, 1)), t(vask_test::uniform(gen, -1, 1));
    v.push_back(seg(s, s, t, t)); // the diagonal, exact for any doubles
    v.push_back(seg(s, -2 * s, t, -2 * t));
  }
  return v;
}

/** Segments one ulp off a line (across) and one ulp beyond or before an end (along). */
Family ulpOffsets(unsigned seed) {
  std::mt19937_64 gen(seed);
  Family v;
  for (int i = 0; i < 40; ++i) {
    const double a(vask_test::uniform(gen, 0.1, 1)), b(vask_test::uniform(gen, 1, 3));
    v.push_back(seg(a, a, b, b));
    const double m(vask_test::uniform(gen, a, b));
    const int steps(int(gen() % 5) - 2);
    v.push_back(seg(m, vask_test::ulpShift(m, steps), m + 1, m - 1));        // across, near the middle
    v.push_back(seg(vask_test::ulpShift(b, steps), vask_test::ulpShift(b, steps), b + 1, b + 1)); // along
    v.push_back(seg(b, vask_test::ulpShift(b, steps), b + 1, b));               // at the end, off by ulps
    // Near-collinear: three-point chains with a middle point moved by an ulp.
    v.push_back(seg(a, 2 * a, vask_test::ulpShift(m, steps), 2 * m));
  }
  return v;
}

/** T-junctions on horizontal lines, with stems ending on, before and after the line. */
Family tJunctions(unsigned seed) {
  std::mt19937_64 gen(seed);
  Family v;
  for (int row = 0; row < 5; ++row) v.push_back(seg(0, row, 10, row));
  for (int i = 0; i < 100; ++i) {
    const double x(double(gen() % 41) / 4), row(double(gen() % 5));
    const double end(i % 3 == 0 ? row : vask_test::ulpShift(row, int(gen() % 3) - 1));
    v.push_back(seg(x, end, x + vask_test::uniform(gen, -1, 1), row + 0.5));
  }
  return v;
}

/** Segments of magnitude 1e300 next to ones of magnitude 1e-300 and subnormals. */
Family mixedMagnitudes(unsigned seed) {
  Family v(integerGrid(60, seed, std::ldexp(1.0, 996), std::ldexp(1.0, 996), 0, false));
  const Family vTiny(integerGrid(60, seed + 1, std::ldexp(1.0, -996), std::ldexp(1.0, -1074), 0, false));
  v.insert(v.end(), vTiny.begin(), vTiny.end());
  std::mt19937_64 gen(seed);
  for (int i = 0; i < 40; ++i)
    v.push_back(seg(vask_test::randomMagnitude(gen, -1074, 1023), vask_test::randomMagnitude(gen, -1074, 1023),
                    vask_test::randomMagnitude(gen, -1074, 1023), vask_test::randomMagnitude(gen, -1074, 1023)));
  return v;
}

struct NamedFamily {
  std::string name;
  Family segments;
};

std::vector<NamedFamily> allFamilies() {
  std::vector<NamedFamily> v;
  v.push_back({"random", randomShort(250, 1)});
  v.push_back({"integer grid", integerGrid(150, 2, 1, 1, 0, false)});
  v.push_back({"grid near 1e300", integerGrid(150, 3, std::ldexp(1.0, 996), std::ldexp(1.0, 996), 0, false)});
  v.push_back({"grid near 1e-300", integerGrid(150, 4, std::ldexp(1.0, -996), std::ldexp(1.0, -996), 0, false)});
  v.push_back({"subnormal grid", integerGrid(150, 5, std::ldexp(1.0, -1074), std::ldexp(1.0, -1074), 0, false)});
  v.push_back({"grid at 2^60", integerGrid(150, 6, 256, 256, std::ldexp(1.0, 60), false)});
  v.push_back({"signed zeros", integerGrid(150, 7, 1, 1, -2, true)});
  v.push_back({"polygon outlines", polygons(8)});
  v.push_back({"through one point", pencil(9)});
  v.push_back({"collinear chains", collinearChains(10)});
  v.push_back({"ulp offsets", ulpOffsets(11)});
  v.push_back({"T-junctions", tJunctions(12)});
  v.push_back({"mixed magnitudes", mixedMagnitudes(13)});
  return v;
}

std::vector<Segment2*> pointersTo(Family& v) {
  std::vector<Segment2*> vp;
  for (Segment2& s : v) vp.push_back(&s);
  return vp;
}

typedef std::pair<Segment2*, SegmentIntersectionType> Hit;

void expectExactMeeting(SegmentChecker& checker, const Segment2& s0, const Segment2& s1, const Meeting& m,
                        const std::string& where) {
  if (m.sit == SIT_POINT || m.sit == SIT_ENDPOINT) {
    Point2 out(-7, -7);
    checker.getIntersectionPoint(m.sit, s0, s1, out);
    if (m.bEndOfOne) {
      EXPECT_TRUE(mpq_class(out.x()) == m.point.x && mpq_class(out.y()) == m.point.y)
          << where << ": an end point must come back exactly, got " << out;
    } else {
      EXPECT_TRUE(isFaithful(out.x(), m.point.x) && isFaithful(out.y(), m.point.y))
          << where << ": crossing not faithfully rounded, got " << out;
    }
  } else if (m.sit == SIT_SEGMENT) {
    Segment2 out(Point2(-7, -7), Point2(-7, -7));
    checker.getIntersectionSegment(s0, s1, out);
    EXPECT_TRUE(mpq_class(out.getSrc().x()) == m.partFrom.x && mpq_class(out.getSrc().y()) == m.partFrom.y &&
                mpq_class(out.getTrg().x()) == m.partTo.x && mpq_class(out.getTrg().y()) == m.partTo.y)
        << where << ": common part " << out;
  }
}

} // namespace

TEST(SegmentChecker, AgreesWithExactOracleOnEveryPairOfAdversarialFamilies) {
  for (NamedFamily& family : allFamilies()) {
    Family& v(family.segments);
    const std::vector<Segment2*> vp(pointersTo(v));
    SegmentChecker checker(vp);
    ASSERT_EQ(checker.getNumberOfSegments(), v.size());
    std::vector<std::vector<Meeting> > vMeet(v.size(), std::vector<Meeting>(v.size()));
    for (std::size_t i = 0; i < v.size(); ++i)
      for (std::size_t j = 0; j < v.size(); ++j) {
        if (i == j) continue;
        const Meeting& m(vMeet[i][j] = oracle(v[i], v[j]));
        const std::string where(family.name + " pair " + std::to_string(i) + "," + std::to_string(j));
        ASSERT_EQ(checker.getIntersectionType(vp[i], vp[j]), m.sit)
            << where << ": " << v[i] << " / " << v[j];
        expectExactMeeting(checker, v[i], v[j], m, where);
      }
    EXPECT_EQ(checker.getIntersectionType(vp[0], vp[0]), SIT_SEGMENT);
    for (bool bWithEnd : {false, true}) {
      std::vector<Segment2*> vExpectedIllegal;
      for (std::size_t i = 0; i < v.size(); ++i) {
        std::vector<Hit> vGot, vExpected;
        checker.getIntersectors(vp[i], bWithEnd, vGot);
        for (std::size_t j = 0; j < v.size(); ++j)
          if (j != i && reported(vMeet[i][j].sit, bWithEnd)) vExpected.push_back(Hit(vp[j], vMeet[i][j].sit));
        if (!vExpected.empty()) vExpectedIllegal.push_back(vp[i]);
        std::sort(vGot.begin(), vGot.end());
        std::sort(vExpected.begin(), vExpected.end());
        ASSERT_EQ(vGot, vExpected) << family.name << " intersectors of " << i << " with end points " << bWithEnd;
      }
      std::vector<Segment2*> vIllegal;
      checker.getIllegalSegments(bWithEnd, vIllegal);
      std::sort(vIllegal.begin(), vIllegal.end());
      std::sort(vExpectedIllegal.begin(), vExpectedIllegal.end());
      EXPECT_EQ(vIllegal, vExpectedIllegal) << family.name << " illegal segments, with end points " << bWithEnd;
    }
  }
}

TEST(SegmentChecker, ListedPairsHaveTheirClassInEveryOrderAndDirection) {
  std::ifstream in(VASK2D_TEST_DATA_DIR "/segment_pairs.txt");
  ASSERT_TRUE(in.good());
  SegmentChecker checker; // the default checker classifies too
  int numCases(0);
  for (std::string line; std::getline(in, line);) {
    line = line.substr(0, line.find('#'));
    std::istringstream fields(line);
    std::string aText[9];
    int numFields(0);
    while (numFields < 9 && fields >> aText[numFields]) ++numFields;
    if (numFields == 0) continue;
    ASSERT_EQ(numFields, 9) << line;
    double c[8];
    for (int i = 0; i < 8; ++i) c[i] = std::strtod(aText[i].c_str(), nullptr);
    SegmentIntersectionType expected(SIT_UNINITIALIZED);
    for (int sit = SIT_UNINITIALIZED; sit <= SIT_ENDPOINT; ++sit)
      if (aText[8] == SegmentChecker::getIntersectionTypeString(SegmentIntersectionType(sit)))
        expected = SegmentIntersectionType(sit);
    ASSERT_NE(expected, SIT_UNINITIALIZED) << line;
    Segment2 a(seg(c[0], c[1], c[2], c[3])), b(seg(c[4], c[5], c[6], c[7]));
    for (int variant = 0; variant < 8; ++variant) {
      Segment2 s0(variant & 1 ? b : a), s1(variant & 1 ? a : b);
      if (variant & 2) s0.swapSrcTrg();
      if (variant & 4) s1.swapSrcTrg();
      EXPECT_EQ(checker.getIntersectionType(&s0, &s1), expected) << line << " variant " << variant;
      EXPECT_EQ(oracle(s0, s1).sit, expected) << "the oracle disagrees with the file: " << line;
      expectExactMeeting(checker, s0, s1, oracle(s0, s1), line);
    }
    ++numCases;
  }
  EXPECT_GE(numCases, 20);
}

TEST(SegmentChecker, ResultsRepeatAndFollowOneOrder) {
  Family v(randomShort(3000, 21));
  const std::vector<Segment2*> vp(pointersTo(v));
  std::vector<std::vector<Hit> > vFirst;
  for (int run = 0; run < 2; ++run) {
    SegmentChecker checker(vp);
    for (std::size_t i = 0; i < v.size(); i += 7) {
      std::vector<Hit> vGot;
      checker.getIntersectors(vp[i], true, vGot);
      if (run == 0)
        vFirst.push_back(vGot);
      else
        ASSERT_EQ(vGot, vFirst[i / 7]);
    }
    std::vector<Segment2*> vIllegal;
    checker.getIllegalSegments(true, vIllegal);
    // Position order, each once.
    for (std::size_t k = 1; k < vIllegal.size(); ++k)
      ASSERT_LT(checker.getIndex(vIllegal[k - 1]), checker.getIndex(vIllegal[k]));
  }
}

TEST(SegmentChecker, IntersectorsOfForeignSegment) {
  Family v{seg(0, 0, 2, 2), seg(0, 2, 2, 0), seg(3, 0, 3, 3)};
  const std::vector<Segment2*> vp(pointersTo(v));
  SegmentChecker checker(vp);
  Segment2 foreign(seg(1, 1, 3, 1)); // from the crossing point to the vertical one
  std::vector<Hit> vGot;
  checker.getIntersectors(&foreign, true, vGot);
  std::sort(vGot.begin(), vGot.end());
  std::vector<Hit> vExpected{Hit(vp[0], SIT_POINT), Hit(vp[1], SIT_POINT), Hit(vp[2], SIT_POINT)};
  std::sort(vExpected.begin(), vExpected.end());
  EXPECT_EQ(vGot, vExpected);
  Segment2 far(seg(1e200, 1e200, 2e200, 1e200)); // raises the private bound; the set still answers exactly
  vGot.clear();
  checker.getIntersectors(&far, true, vGot);
  EXPECT_TRUE(vGot.empty());
  EXPECT_EQ(checker.getIntersectionType(vp[0], vp[1]), SIT_POINT);
}

namespace {
std::size_t countOf(const std::string& text, const std::string& what) {
  std::size_t count(0);
  for (std::size_t pos = text.find(what); pos != std::string::npos; pos = text.find(what, pos + 1)) ++count;
  return count;
}
} // namespace

TEST(SegmentChecker, BadInputKeepsPositionsWarnsAndNeverCrashes) {
  Family v{seg(0, 0, 2, 2), seg(0, 2, 2, 0), seg(vask_test::NaN, 0, 1, 1), seg(0, 0, vask_test::INF, 1)};
  std::vector<Segment2*> vp{&v[0], nullptr, &v[1], &v[2], &v[3], &v[0]};
  testing::internal::CaptureStdout();
  SegmentChecker checker(vp);
  std::string out(testing::internal::GetCapturedStdout());
  EXPECT_EQ(countOf(out, "WARNING"), 2u) << out;
  EXPECT_NE(out.find("positions: 1, 3, 4"), std::string::npos) << out;
  EXPECT_NE(out.find("positions: 5"), std::string::npos) << out;
  EXPECT_EQ(out.find("Condition"), std::string::npos) << out;

  EXPECT_EQ(checker.getNumberOfSegments(), 6u);
  EXPECT_EQ(checker.getSegment(3), &v[2]);
  EXPECT_EQ(checker.getSegment(1), nullptr);
  EXPECT_EQ(checker.getIndex(&v[2]), 3);
  EXPECT_EQ(checker.getIndex(&v[0]), 0); // given twice: the first position
  EXPECT_THROW(checker.getSegment(6), VaskException);
  Segment2 foreign(seg(5, 5, 6, 6));
  testing::internal::CaptureStdout();
  EXPECT_EQ(checker.getIndex(&foreign), -1);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("No such segment"), std::string::npos);

  testing::internal::CaptureStdout();
  EXPECT_EQ(checker.getIntersectionType(&v[0], &v[2]), SIT_UNINITIALIZED);
  EXPECT_EQ(checker.getIntersectionType(nullptr, &v[0]), SIT_UNINITIALIZED);
  std::vector<Hit> vHits{Hit(nullptr, SIT_NONE)};
  checker.getIntersectors(nullptr, true, vHits);
  checker.getIntersectors(&v[3], true, vHits);
  EXPECT_EQ(vHits.size(), 1u);
  Point2 p(-7, -7);
  checker.getIntersectionPoint(SIT_SEGMENT, v[0], v[1], p);  // a type without a point
  checker.getIntersectionPoint(SIT_ENDPOINT, v[0], v[1], p); // not the pair's class
  checker.getIntersectionPoint(SIT_POINT, v[0], v[2], p);    // NaN
  EXPECT_TRUE(p.x() == -7 && p.y() == -7);
  Segment2 part(seg(-7, -7, -7, -7));
  checker.getIntersectionSegment(v[0], v[1], part); // crossing, not collinear
  EXPECT_TRUE(part == seg(-7, -7, -7, -7));
  checker.unsubscribe(MSG_PROGRESS, nullptr);
  out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(countOf(out, "WARNING"), 9u) << out;
  EXPECT_NE(out.find("wrong SegmentIntersectionType provided"), std::string::npos);
  EXPECT_NE(out.find("SIT_ENDPOINT is a wrong SegmentIntersectionType for the preset segments"), std::string::npos);
  EXPECT_NE(out.find("segments seem to be non-collinear"), std::string::npos);
  EXPECT_NE(out.find("No publisher present"), std::string::npos);

  // Only the two finite segments, each once, are indexed.
  std::vector<Segment2*> vIllegal;
  checker.getIllegalSegments(true, vIllegal);
  std::sort(vIllegal.begin(), vIllegal.end());
  std::vector<Segment2*> vExpected{&v[0], &v[1]};
  std::sort(vExpected.begin(), vExpected.end());
  EXPECT_EQ(vIllegal, vExpected);
  vHits.clear();
  checker.getIntersectors(&v[0], true, vHits);
  EXPECT_EQ(vHits, std::vector<Hit>{Hit(&v[1], SIT_POINT)});

  EXPECT_STREQ(SegmentChecker::getIntersectionTypeString(SIT_ENDPOINT), "SIT_ENDPOINT");
  EXPECT_STREQ(SegmentChecker::getIntersectionTypeString(SegmentIntersectionType(9)), "UNKNOWN SIT");
}

namespace {
class Recorder : public MsgBase {
public:
  void update(MsgType, char const* name, double value) override {
    vTitles.push_back(name);
    vValues.push_back(value);
  }
  std::vector<std::string> vTitles;
  std::vector<double> vValues;
};
} // namespace

TEST(SegmentChecker, ProgressOfIllegalSegmentsEndsAtOneExactlyOnce) {
  Family v(randomShort(1000, 41));
  SegmentChecker checker(pointersTo(v));
  Recorder recorder;
  checker.subscribe(MSG_PROGRESS, &recorder);
  checker.subscribe(MSG_PROGRESS, &recorder);
  std::vector<Segment2*> vIllegal;
  checker.getIllegalSegments(false, vIllegal);
  ASSERT_FALSE(recorder.vValues.empty());
  EXPECT_EQ(std::count(recorder.vValues.begin(), recorder.vValues.end(), 1.0), 1);
  EXPECT_TRUE(std::is_sorted(recorder.vValues.begin(), recorder.vValues.end()));
  for (const std::string& title : recorder.vTitles) EXPECT_EQ(title, "getIllegalSegments");
  checker.unsubscribe(MSG_PROGRESS, &recorder);
  recorder.vValues.clear();
  checker.getIllegalSegments(false, vIllegal);
  EXPECT_TRUE(recorder.vValues.empty());
}

TEST(SegmentChecker, DrawingsNameTheCountsAndRender) {
  Family v{seg(0, 0, 2, 2), seg(0, 2, 2, 0), seg(3, 0, 3, 3)};
  SegmentChecker checker(pointersTo(v));
  // PostScript escapes the parentheses of the text.
  checker.showSegments("segcheck_all.ps");
  checker.showIllegalSegments(false, "segcheck_illegal.ps");
  std::ifstream all("segcheck_all.ps"), illegal("segcheck_illegal.ps");
  const std::string allText((std::istreambuf_iterator<char>(all)), std::istreambuf_iterator<char>());
  const std::string illegalText((std::istreambuf_iterator<char>(illegal)), std::istreambuf_iterator<char>());
  EXPECT_NE(allText.find("(SegmentChecker::showSegments\\(\\), numSegments=3)"), std::string::npos);
  EXPECT_NE(illegalText.find("(Number of segments: 3)"), std::string::npos);
  EXPECT_NE(illegalText.find("(Legal segments: 1)"), std::string::npos);
  EXPECT_NE(illegalText.find("(Illegal segments: 2)"), std::string::npos);
  if (!vask_test::ghostscriptAvailable()) GTEST_SKIP() << "gs not installed";
  for (const char* name : {"segcheck_all.ps", "segcheck_illegal.ps"}) {
    vask_test::PageImage image;
    std::string error;
    EXPECT_TRUE(vask_test::renderPostScript(name, 36, image, error)) << error;
  }
}

TEST(SegmentChecker, ErrorBoundConstantsCoverTheirDerivation) {
  const mpq_class eps(mpq_class(1) / (mpz_class(1) << 53));
  // In round-to-nearest: (3 + 16 eps) eps, Shewchuk's bound of a 2x2 determinant of differences.
  EXPECT_GE(mpq_class(SEGMENT_DET_ERR_NEAREST), (3 + 16 * eps) * eps);
  EXPECT_LE(mpq_class(SEGMENT_DET_ERR_NEAREST), (3 + 64 * eps) * eps); // and not much more
  // The relative filter's 2^-50 covers the same bound with the unit 2 eps of the directed modes.
  const mpq_class u(2 * eps);
  EXPECT_GE(mpq_class(std::ldexp(1.0, -50)), (3 + 16 * u) * u);
}

TEST(SegmentChecker, OperandRelativeFilterIsExactInEveryRoundingModeAndMagnitude) {
  // Points one to three ulps off a line, at magnitudes from subnormal to
  // near the largest double, in all four rounding modes; the predicates
  // object's static bound is raised far above the small points, so the
  // cheap answers come from the relative filter.
  KiroTest kiroTest;
  kiroTest.setStaticBound_MT(1e300);
  std::mt19937_64 gen(51);
  const int aMode[4] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
  for (int exponent : {-1074, -1060, -1000, -500, -20, 0, 30, 500, 1000, 1020}) {
    for (int i = 0; i < 400; ++i) {
      const double s(std::ldexp(1.0, exponent));
      const Point2 a(s * vask_test::uniform(gen, -1, 1), s * vask_test::uniform(gen, -1, 1));
      const Point2 b(s * vask_test::uniform(gen, -1, 1), s * vask_test::uniform(gen, -1, 1));
      const double t(vask_test::uniform(gen, -0.5, 1.5));
      const Point2 c(vask_test::ulpShift(a.x() + t * (b.x() - a.x()), int(gen() % 7) - 3),
                     vask_test::ulpShift(a.y() + t * (b.y() - a.y()), int(gen() % 7) - 3));
      if (!std::isfinite(c.x()) || !std::isfinite(c.y())) continue;
      const int expected(vask_test::exactOrientationSign(a, b, c));
      for (int mode : aMode) {
        std::fesetround(mode);
        const Orientation2 got(orientationFiltered(kiroTest, a, b, c));
        std::fesetround(FE_TONEAREST);
        const int sign(got == ORIENTATION2_CCW ? 1 : got == ORIENTATION2_CW ? -1 : 0);
        ASSERT_EQ(sign, expected) << a << " " << b << " " << c << " mode " << mode << " exponent " << exponent;
      }
    }
  }
}

TEST(SegmentChecker, CrossingPointsAreFaithfullyRoundedAtEveryScale) {
  // Crossings near zero, near powers of two, nearly parallel, long against
  // short, from subnormal to huge magnitudes: each coordinate must be one of
  // the two doubles around the exact value, whichever stage computes it.
  std::mt19937_64 gen(61);
  SegmentChecker checker;
  int numCrossings(0);
  for (int i = 0; i < 30000; ++i) {
    const double scale(std::ldexp(1.0, int(gen() % 1200) - 600 - (i % 10 == 0 ? 470 : 0)));
    const double cx(i % 3 == 0 ? 0.0 : i % 3 == 1 ? scale : scale * vask_test::uniform(gen, -8, 8));
    const double cy(i % 4 == 0 ? 0.0 : scale * vask_test::uniform(gen, -8, 8));
    const double a(vask_test::uniform(gen, 0, M_PI));
    const double b(i % 5 == 0 ? a + std::ldexp(1.0, -int(gen() % 40)) : vask_test::uniform(gen, 0, M_PI));
    const double la(scale * vask_test::uniform(gen, 0.001, 2)), lb(scale * vask_test::uniform(gen, 0.001, 2));
    const double sa(vask_test::uniform(gen, 0.01, 0.99)), sb(vask_test::uniform(gen, 0.01, 0.99));
    const Segment2 s0(seg(cx - sa * la * std::cos(a), cy - sa * la * std::sin(a), cx + (1 - sa) * la * std::cos(a),
                          cy + (1 - sa) * la * std::sin(a)));
    const Segment2 s1(seg(cx - sb * lb * std::cos(b), cy - sb * lb * std::sin(b), cx + (1 - sb) * lb * std::cos(b),
                          cy + (1 - sb) * lb * std::sin(b)));
    if (!std::isfinite(s0.getTrg().x()) || !std::isfinite(s1.getTrg().y())) continue;
    const Meeting m(oracle(s0, s1));
    ASSERT_EQ(checker.getIntersectionType(&s0, &s1), m.sit) << s0 << " / " << s1;
    if (m.sit != SIT_POINT) continue;
    ++numCrossings;
    expectExactMeeting(checker, s0, s1, m, "crossing " + std::to_string(i));
  }
  EXPECT_GT(numCrossings, 20000);
}
