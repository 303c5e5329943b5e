// The mesh fuzzer: random operation sequences on adversarial point families,
// each case run in a child process under a time limit, the independent
// checker after every step; a failing case is shrunk and written as a text
// file that the regression test replays.
//
//   vask_fuzz [--seconds S] [--cases N] [--seed S] [--families a,b,..]
//             [--max-points M] [--timeout T] [--out DIR] [--report R]
//             [--shrink-seconds S] [--replay FILE] [--case-seed S --families F]
//             [--constraint-rate R]
//
// --case-seed regenerates the one case a failure report names (its family
// and seed) and shrinks it again.
#include "fuzz/FuzzCase.h"
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <map>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vask_fuzz;
using KIRO_VASK2D::Point2;

namespace {

typedef std::chrono::steady_clock Clock;
double secondsSince(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

struct Options {
  double seconds = 0;      // 0: no time limit
  long cases = -1;         // -1: no case limit
  std::uint64_t seed = 0;
  bool bSeedGiven = false;
  std::vector<std::string> vFamilies;
  std::size_t maxPoints = 120;
  double timeout = 20;     // per case
  double shrinkSeconds = 240;
  double report = 60;
  std::string outDir = ".";
  std::string replay;
  bool bCheckLastOnly = false; // replay: exact checks after the last operation only
  std::uint64_t caseSeed = 0; // with one family: run that one case only
  bool bCaseSeed = false;
  double constraintRate = 0.5; // share of cases with constraint operations
};

// Runs the case in a child process: a crash, an exception or a walk that
// never returns cannot take the fuzzer with it.
// The checks may take this many times the library's time limit.
const double CHECK_TIME_FACTOR = 10.0;

// When the checks use up their time, the steps checked so far passed: the
// child reports them from the signal handler (write and _exit only) and
// the case counts as cut, not failed.
volatile std::size_t g_stepsChecked = 0;
int g_reportFd = -1;

void reportChecksCut(int) {
  char buf[160];
  std::size_t n(0);
  auto put = [&](const char* t) {
    while (*t && n < sizeof buf) buf[n++] = *t++;
  };
  auto putNum = [&](std::size_t v) {
    char d[24];
    int k(0);
    do {
      d[k++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v > 0);
    while (k > 0 && n < sizeof buf) buf[n++] = d[--k];
  };
  const std::size_t steps(g_stepsChecked);
  put("1\n");
  putNum(steps);
  put("\n");
  putNum(steps);
  put("\n0\n0\nchecks cut\nthe checks ran out of time\n0 0 0 0 0 0\n");
  ssize_t done(0);
  while (done < static_cast<ssize_t>(n)) {
    const ssize_t w(write(g_reportFd, buf + done, n - static_cast<std::size_t>(done)));
    if (w <= 0) break;
    done += w;
  }
  _exit(0);
}

Outcome runIsolated(const Case& c, double timeout) {
  int fds[2];
  if (pipe(fds) != 0) {
    perror("pipe");
    std::exit(2);
  }
  std::fflush(stdout);
  const pid_t pid(fork());
  if (pid < 0) {
    perror("fork");
    std::exit(2);
  }
  if (pid == 0) {
    close(fds[0]);
    // The time limit counts processor time, so that a machine busy with
    // other work does not turn a slow case into a hang, and only the
    // library's: a virtual timer runs during the operations and stops
    // during the checks, whose exact arithmetic grows with the mesh at
    // every step. Its signal ends the child. The checks get a generous
    // limit of their own.
    const rlim_t seconds(static_cast<rlim_t>(std::max(1.0, std::ceil(CHECK_TIME_FACTOR * timeout))));
    const rlimit cpu = {seconds, seconds + 1};
    setrlimit(RLIMIT_CPU, &cpu);
    itimerval budget = {};
    budget.it_value.tv_sec = static_cast<time_t>(timeout);
    budget.it_value.tv_usec = static_cast<suseconds_t>((timeout - std::floor(timeout)) * 1e6);
    auto onLibrary = [&budget](bool bStart) {
      if (bStart) {
        if (budget.it_value.tv_sec == 0 && budget.it_value.tv_usec == 0) budget.it_value.tv_usec = 1;
        setitimer(ITIMER_VIRTUAL, &budget, nullptr);
      } else {
        const itimerval stop = {};
        setitimer(ITIMER_VIRTUAL, &stop, &budget);
      }
    };
    // The library's output (warnings for refused input, the text of a
    // failed condition) goes to a scratch file; the condition is kept.
    std::FILE* pOut(std::tmpfile());
    const int devNull(open("/dev/null", O_WRONLY));
    dup2(pOut ? fileno(pOut) : devNull, 1);
    dup2(devNull, 2);
    g_reportFd = fds[1];
    signal(SIGXCPU, reportChecksCut);
    Outcome o(runCase(c, [](std::size_t i) { g_stepsChecked = i + 1; }, onLibrary));
    if (!o.ok && o.kind == "VaskException" && pOut) {
      std::fflush(stdout);
      std::cout.flush();
      std::rewind(pOut);
      char line[1024];
      std::string condition, place;
      while (std::fgets(line, sizeof line, pOut)) {
        std::string s(line);
        while (!s.empty() && (s.back() == '\n' || s.back() == '\r' || s.back() == ' ')) s.pop_back();
        while (!s.empty() && s[0] == ' ') s.erase(0, 1);
        if (s.find("Condition [") != std::string::npos && s.find("[Vask2D-Message]") == std::string::npos && condition.empty()) condition = s;
        else if (!condition.empty() && place.empty() && !s.empty()) place = s;
      }
      if (!condition.empty()) {
        o.kind = "VaskException: " + condition;
        o.message = o.kind + " " + place;
      }
    }
    std::ostringstream oss;
    oss << (o.ok ? 1 : 0) << '\n' << o.step << '\n' << o.numSteps << '\n' << o.numBatches << '\n'
        << o.numThreadedBatches << '\n' << o.kind << '\n' << o.message << '\n';
    oss.precision(17);
    oss << o.maxCrossingUlps << ' ' << o.maxCrossingRootUlps << ' ' << o.maxMidpointUlps << ' ' << o.numCrossings
        << ' ' << o.numConformingNonDelaunay << ' ' << o.numShortPiecesMissing << '\n';
    const std::string s(oss.str());
    ssize_t done(0);
    while (done < static_cast<ssize_t>(s.size())) {
      const ssize_t w(write(fds[1], s.data() + done, s.size() - done));
      if (w <= 0) break;
      done += w;
    }
    _exit(0);
  }
  close(fds[1]);
  std::string text;
  const Clock::time_point t0(Clock::now());
  bool bTimedOut(false);
  const double wallLimit(2.0 * CHECK_TIME_FACTOR * timeout + 10.0); // a child that waits on something
  for (;;) {
    const double left(wallLimit - secondsSince(t0));
    if (left <= 0) {
      bTimedOut = true;
      break;
    }
    pollfd pfd = {fds[0], POLLIN, 0};
    const int rc(poll(&pfd, 1, static_cast<int>(left * 1000) + 1));
    if (rc < 0 && errno == EINTR) continue;
    if (rc == 0) continue;
    char buf[4096];
    const ssize_t n(read(fds[0], buf, sizeof buf));
    if (n <= 0) break;
    text.append(buf, static_cast<std::size_t>(n));
  }
  close(fds[0]);
  if (bTimedOut) kill(pid, SIGKILL);
  int status(0);
  waitpid(pid, &status, 0);
  Outcome o;
  if (bTimedOut || (WIFSIGNALED(status) && WTERMSIG(status) == SIGVTALRM)) {
    o.ok = false;
    o.step = c.vOps.empty() ? 0 : c.vOps.size() - 1;
    o.kind = "timeout";
    char buf[96];
    std::snprintf(buf, sizeof buf, "no answer within %g s of processor time (a walk that never ends?)", timeout);
    o.message = buf;
    return o;
  }
  if (WIFSIGNALED(status)) {
    o.ok = false;
    o.step = c.vOps.empty() ? 0 : c.vOps.size() - 1;
    o.kind = "crash";
    o.message = std::string("crash: ") + strsignal(WTERMSIG(status));
    return o;
  }
  std::istringstream in(text);
  int ok(0);
  if (!(in >> ok >> o.step >> o.numSteps >> o.numBatches >> o.numThreadedBatches)) {
    o.ok = false;
    o.kind = "crash";
    o.step = c.vOps.empty() ? 0 : c.vOps.size() - 1;
    o.message = "child ended without a report, exit status " + std::to_string(WEXITSTATUS(status));
    return o;
  }
  o.ok = ok != 0;
  in.ignore();
  std::getline(in, o.kind);
  std::getline(in, o.message);
  in >> o.maxCrossingUlps >> o.maxCrossingRootUlps >> o.maxMidpointUlps >> o.numCrossings >>
      o.numConformingNonDelaunay >> o.numShortPiecesMissing;
  return o;
}

// Delta debugging on the operations, then on the points of each batch, then
// rounding of coordinates: every reduction is kept when the case still fails
// with the same kind of error.
Case shrink(const Case& original, const Outcome& first, double timeout, double budget, std::size_t& numTrials) {
  const Clock::time_point t0(Clock::now());
  Case best(original);
  // A hang or a crash gives no step: then the whole case is the start.
  const bool bStepKnown(first.kind != "timeout" && first.kind != "crash");
  if (bStepKnown && first.step + 1 < best.vOps.size()) best.vOps.resize(first.step + 1);
  auto stillFails = [&](const Case& c) {
    if (secondsSince(t0) > budget) return false;
    ++numTrials;
    const Outcome o(runIsolated(c, timeout));
    return !o.ok && o.kind == first.kind;
  };
  // Chunks of operations.
  for (std::size_t chunk = std::max<std::size_t>(1, best.vOps.size() / 2);; chunk /= 2) {
    for (std::size_t i = 0; i < best.vOps.size() && best.vOps.size() > 1;) {
      Case t(best);
      t.vOps.erase(t.vOps.begin() + i, t.vOps.begin() + std::min(t.vOps.size(), i + chunk));
      if (!t.vOps.empty() && stillFails(t)) best = t;
      else i += chunk;
    }
    if (chunk <= 1) break;
  }
  // Chunks of the points of each batch; the segments of a constraint
  // operation go in pairs, and may all go.
  for (std::size_t k = 0; k < best.vOps.size(); ++k) {
    const std::size_t unit(best.vOps[k].kind == OpKind::Constraint ? 2 : 1);
    if (best.vOps[k].vPoints.size() < 2 * unit) continue;
    for (std::size_t chunk = std::max<std::size_t>(1, best.vOps[k].vPoints.size() / (2 * unit)) * unit;;
         chunk = chunk / (2 * unit) * unit) {
      for (std::size_t i = 0; i < best.vOps[k].vPoints.size() && best.vOps[k].vPoints.size() > unit;) {
        Case t(best);
        std::vector<Point2>& v(t.vOps[k].vPoints);
        v.erase(v.begin() + i, v.begin() + std::min(v.size(), i + chunk));
        if (!v.empty() && stillFails(t)) best = t;
        else i += chunk;
      }
      if (chunk <= unit) break;
    }
  }
  // A batch of one point as a single insertion.
  for (std::size_t k = 0; k < best.vOps.size(); ++k) {
    if (best.vOps[k].kind != OpKind::Insert && best.vOps[k].vPoints.size() == 1 &&
        (best.vOps[k].kind == OpKind::Batch || best.vOps[k].kind == OpKind::BatchHandles ||
         best.vOps[k].kind == OpKind::Array)) {
      Case t(best);
      t.vOps[k].kind = OpKind::Insert;
      if (stillFails(t)) best = t;
    }
  }
  // Rounded coordinates, fewest digits first; the same change for every
  // occurrence of a value so that removals keep finding their points.
  if (best.numPoints() <= 80) {
    std::map<double, int> mValues;
    for (const Op& op : best.vOps)
      for (const Point2& p : op.vPoints) {
        mValues[p.x()] = 0;
        mValues[p.y()] = 0;
      }
    for (std::map<double, int>::const_iterator it = mValues.begin(); it != mValues.end(); ++it) {
      const double v(it->first);
      if (!std::isfinite(v)) continue;
      for (int digits = 1; digits < 17; ++digits) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.*g", digits, v);
        const double r(std::strtod(buf, nullptr));
        if (r == v) break;
        Case t(best);
        for (Op& op : t.vOps)
          for (Point2& p : op.vPoints) p = Point2(p.x() == v ? r : p.x(), p.y() == v ? r : p.y());
        if (stillFails(t)) {
          best = t;
          break;
        }
      }
    }
  }
  return best;
}

std::string writeFailure(const Options& opt, const Case& c, const Outcome& o, std::size_t numOpsBefore,
                         std::size_t numPointsBefore) {
  mkdir(opt.outDir.c_str(), 0755);
  std::string what;
  for (char ch : o.kind) what += std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  while (what.find("__") != std::string::npos) what.erase(what.find("__"), 1);
  if (what.size() > 40) what.resize(40);
  std::string path;
  for (int n = 1;; ++n) {
    path = opt.outDir + "/fuzz_" + c.family + "_" + std::to_string(n) + ".txt";
    if (access(path.c_str(), F_OK) != 0) break;
  }
  std::vector<std::string> vComments;
  vComments.push_back("family " + c.family + ", seed " + std::to_string(c.seed) + ", shrunk from " +
                      std::to_string(numOpsBefore) + " operations and " + std::to_string(numPointsBefore) +
                      " points");
  vComments.push_back("first error: " + o.message + ", at operation " + std::to_string(o.step + 1));
  std::ofstream out(path);
  out << toText(c, vComments);
  return path;
}

void usage() {
  std::fprintf(stderr, "usage: vask_fuzz [--seconds S] [--cases N] [--seed S] [--families a,b] [--max-points M]\n"
                       "                 [--timeout T] [--out DIR] [--report R] [--shrink-seconds S] [--replay FILE [--check-last]]\n"
                       "                 [--case-seed S --families F] [--constraint-rate R]\n");
  std::exit(2);
}

struct Stats {
  std::map<std::string, long> mCasesPerFamily;
  std::map<std::string, long> mOpsPerKind;
  long cases = 0, ops = 0, failures = 0;
  long checksCut = 0; // cases whose checks ran out of time: passed up to there
  // Constraints: worst deviations in ulps and totals over all cases.
  double maxCrossingUlps = 0, maxCrossingRootUlps = 0, maxMidpointUlps = 0;
  long numCrossings = 0, numConformingNonDelaunay = 0, numShortPiecesMissing = 0;
  long batches = 0, threadedBatches = 0; // batch operations, and those that ran on threads
  std::vector<std::string> vFiles;
  void add(const Outcome& o) {
    maxCrossingUlps = std::max(maxCrossingUlps, o.maxCrossingUlps);
    maxCrossingRootUlps = std::max(maxCrossingRootUlps, o.maxCrossingRootUlps);
    maxMidpointUlps = std::max(maxMidpointUlps, o.maxMidpointUlps);
    numCrossings += static_cast<long>(o.numCrossings);
    numConformingNonDelaunay += static_cast<long>(o.numConformingNonDelaunay);
    numShortPiecesMissing += static_cast<long>(o.numShortPiecesMissing);
  }
  void print(double elapsed) const {
    std::printf("[vask_fuzz] %.0f s: %ld cases, %ld operations (%.0f cases/min, %.0f ops/min), %ld failures, %ld "
                "cases cut by the time of the checks\n",
                elapsed, cases, ops, cases * 60.0 / std::max(elapsed, 1e-9), ops * 60.0 / std::max(elapsed, 1e-9),
                failures, checksCut);
    std::printf("  batches: %ld, on several threads: %ld (%.0f%%)\n", batches, threadedBatches,
                100.0 * threadedBatches / std::max(1L, batches));
    std::printf("  cases per family:");
    for (const auto& e : mCasesPerFamily) std::printf(" %s %ld", e.first.c_str(), e.second);
    std::printf("\n  operations per kind:");
    for (const auto& e : mOpsPerKind) std::printf(" %s %ld", e.first.c_str(), e.second);
    std::printf("\n  constraints: %ld crossing vertices, worst %.3g ulps from the split segment and %.3g from the "
                "roots; conforming midpoints worst %.3g ulps; %ld conforming edges left non-Delaunay; %ld short "
                "conforming pieces out of the mesh\n",
                numCrossings, maxCrossingUlps, maxCrossingRootUlps, maxMidpointUlps, numConformingNonDelaunay,
                numShortPiecesMissing);
    for (const std::string& f : vFiles) std::printf("  failure written: %s\n", f.c_str());
    std::fflush(stdout);
  }
};

} // namespace

int main(int argc, char** argv) {
  Options opt;
  for (int i = 1; i < argc; ++i) {
    const std::string a(argv[i]);
    if (a == "--check-last") {
      opt.bCheckLastOnly = true;
      continue;
    }
    if (i + 1 >= argc) usage();
    const std::string v(argv[++i]);
    if (a == "--seconds") opt.seconds = std::atof(v.c_str());
    else if (a == "--cases") opt.cases = std::atol(v.c_str());
    else if (a == "--seed") {
      opt.seed = std::strtoull(v.c_str(), nullptr, 10);
      opt.bSeedGiven = true;
    } else if (a == "--families") {
      std::istringstream in(v);
      std::string f;
      while (std::getline(in, f, ','))
        if (!f.empty()) opt.vFamilies.push_back(f);
    } else if (a == "--max-points") opt.maxPoints = std::strtoul(v.c_str(), nullptr, 10);
    else if (a == "--timeout") opt.timeout = std::atof(v.c_str());
    else if (a == "--out") opt.outDir = v;
    else if (a == "--report") opt.report = std::atof(v.c_str());
    else if (a == "--shrink-seconds") opt.shrinkSeconds = std::atof(v.c_str());
    else if (a == "--replay") opt.replay = v;
    else if (a == "--constraint-rate") opt.constraintRate = std::atof(v.c_str());
    else if (a == "--case-seed") {
      opt.caseSeed = std::strtoull(v.c_str(), nullptr, 10);
      opt.bCaseSeed = true;
    }
    else usage();
  }
  if (!opt.replay.empty()) {
    Case c;
    std::string error;
    if (!readCaseFile(opt.replay, c, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return 2;
    }
    // Processor time of the operations apart from the checks.
    double libSeconds(0.0);
    timespec t0 = {};
    auto cpuNow = []() {
      timespec t;
      clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
      return t;
    };
    const Outcome o(runCase(c, nullptr, [&](bool bStart) {
      if (bStart) {
        t0 = cpuNow();
      } else {
        const timespec t1(cpuNow());
        libSeconds += static_cast<double>(t1.tv_sec - t0.tv_sec) + 1e-9 * static_cast<double>(t1.tv_nsec - t0.tv_nsec);
      }
    }, opt.bCheckLastOnly));
    std::printf("%s: %s after %zu of %zu operations%s%s (operations %.2f s of processor time)\n", opt.replay.c_str(),
                o.ok ? "valid" : "FAILED", o.numSteps, c.vOps.size(), o.ok ? "" : ": ", o.message.c_str(), libSeconds);
    return o.ok ? 0 : 1;
  }
  if (opt.vFamilies.empty()) opt.vFamilies = familyNames();
  for (const std::string& f : opt.vFamilies) {
    bool bKnown(false);
    for (const std::string& g : familyNames()) bKnown = bKnown || f == g;
    if (!bKnown) {
      std::fprintf(stderr, "unknown family %s\n", f.c_str());
      return 2;
    }
  }
  if (!opt.bSeedGiven)
    opt.seed = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count()) ^ (static_cast<std::uint64_t>(getpid()) << 32);
  if (opt.seconds <= 0 && opt.cases < 0) opt.seconds = 60;
  std::printf("[vask_fuzz] seed %llu, families", static_cast<unsigned long long>(opt.seed));
  for (const std::string& f : opt.vFamilies) std::printf(" %s", f.c_str());
  std::printf(", at most %zu points a case\n", opt.maxPoints);

  Stats stats;
  const Clock::time_point t0(Clock::now());
  double nextReport(opt.report);
  long casesAtReport(-1);
  for (long k = 0; opt.cases < 0 || k < opt.cases; ++k) {
    if (opt.seconds > 0 && secondsSince(t0) >= opt.seconds) break;
    const std::string& family(opt.vFamilies[static_cast<std::size_t>(k) % opt.vFamilies.size()]);
    std::uint64_t z(opt.seed + 0x9E3779B97F4A7C15ULL * static_cast<std::uint64_t>(k + 1)); // splitmix64
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    const Case c(generateCase(family, opt.bCaseSeed ? opt.caseSeed : z ^ (z >> 31), opt.maxPoints,
                                opt.constraintRate));
    if (opt.bCaseSeed) opt.cases = 1;
    // Long cases of slow families (subnormals go to rationals) get time in
    // proportion to their length.
    const double caseTimeout(opt.timeout * std::max(1.0, static_cast<double>(c.vOps.size()) / 300.0));
    const Outcome o(runIsolated(c, caseTimeout));
    ++stats.cases;
    stats.add(o);
    ++stats.mCasesPerFamily[family];
    const bool bCut(o.ok && o.kind == "checks cut");
    if (bCut) ++stats.checksCut;
    const std::size_t numRun(bCut ? o.numSteps : o.ok ? c.vOps.size() : std::min(c.vOps.size(), o.step + 1));
    for (std::size_t i = 0; i < numRun; ++i) ++stats.mOpsPerKind[opName(c.vOps[i].kind)];
    stats.ops += static_cast<long>(numRun);
    stats.batches += static_cast<long>(o.numBatches);
    stats.threadedBatches += static_cast<long>(o.numThreadedBatches);
    if (!o.ok) {
      ++stats.failures;
      std::printf("[vask_fuzz] FAILURE in %s, seed %llu, operation %zu of %zu: %s; shrinking\n", family.c_str(),
                  static_cast<unsigned long long>(c.seed), o.step + 1, c.vOps.size(), o.message.c_str());
      std::fflush(stdout);
      std::size_t numTrials(0);
      const double trialTimeout(o.kind == "timeout" ? std::min(caseTimeout, 5.0) : caseTimeout);
      Case small(shrink(c, o, trialTimeout, opt.shrinkSeconds, numTrials));
      Outcome so(runIsolated(small, caseTimeout));
      if (so.ok) { // a failure that does not repeat: keep the whole case
        small = c;
        so = o;
      }
      const std::string path(writeFailure(opt, small, so, c.vOps.size(), c.numPoints()));
      stats.vFiles.push_back(path);
      std::printf("[vask_fuzz] shrunk in %zu trials to %zu operations and %zu points: %s\n", numTrials,
                  small.vOps.size(), small.numPoints(), path.c_str());
      std::fflush(stdout);
    }
    if (opt.report > 0 && secondsSince(t0) >= nextReport) {
      stats.print(secondsSince(t0));
      casesAtReport = stats.cases;
      while (nextReport <= secondsSince(t0)) nextReport += opt.report;
    }
  }
  if (casesAtReport != stats.cases) stats.print(secondsSince(t0));
  return stats.failures == 0 ? 0 : 1;
}
