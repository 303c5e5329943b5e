#pragma once
// What the benchmarks against CGAL share: their command line, the machine
// and compiler lines they print, the forked child that keeps the two
// libraries off one heap, the peak resident size, and the markdown file.
// Header-only, so that every bench_*.cpp stays one executable.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

#ifndef VASK2D_BENCH_FLAGS
#define VASK2D_BENCH_FLAGS "see CMAKE_CXX_FLAGS of the build"
#endif

namespace vask_bench {

/** The options every benchmark takes: [--quick] [--reps N] [--out FILE.md].
 * outFile stays empty when --out is not given. */
struct BenchArgs {
  bool bQuick = false;
  int reps = 3;
  std::string outFile;
};

inline BenchArgs parseArgs(int argc, char** argv) {
  BenchArgs args;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) args.bQuick = true;
    if (std::strcmp(argv[i], "--reps") == 0 && i + 1 < argc) args.reps = std::max(1, std::atoi(argv[++i]));
    if (std::strcmp(argv[i], "--out") == 0 && i + 1 < argc) args.outFile = argv[++i];
  }
  return args;
}

inline std::string cpuModel() {
  std::ifstream f("/proc/cpuinfo");
  std::string line;
  while (std::getline(f, line))
    if (line.compare(0, 10, "model name") == 0) return line.substr(line.find(':') + 2);
  return "unknown";
}

/** The lines "Machine: ..." and "Compiler: ..." of a result, each ending in a newline. */
inline std::string machineAndCompiler() {
  std::ostringstream s;
  s << "Machine: " << cpuModel() << ", " << sysconf(_SC_NPROCESSORS_ONLN) << " cores\n"
    << "Compiler: g++ " << __VERSION__ << ", flags: " << VASK2D_BENCH_FLAGS << "\n";
  return s.str();
}

/** Peak resident size of this process in kB (VmHWM), -1 where unknown. */
inline long readVmHWMkB() {
  std::ifstream f("/proc/self/status");
  std::string line;
  while (std::getline(f, line))
    if (line.compare(0, 6, "VmHWM:") == 0) return std::atol(line.c_str() + 6);
  return -1;
}

/** CPU time of this process in seconds. The machine is shared: CPU time
 * leaves out the waits for other processes, which wall time would charge to
 * whichever side happened to run at a busy moment. A forked child is one
 * library's process, so all its threads count. */
inline double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

/** Runs measure() in a forked child and returns its Result, which crosses
 * the pipe as raw bytes and so must be trivially copyable. A failed child
 * ends the benchmark with a message naming the case and the library. */
template <class Result, class Measure>
Result runInChild(const std::string& caseName, bool bVask, Measure measure) {
  static_assert(std::is_trivially_copyable<Result>::value, "Result crosses a pipe as bytes");
  int fds[2];
  if (pipe(fds) != 0) std::exit(2);
  const pid_t pid(fork());
  if (pid == 0) {
    close(fds[0]);
    const Result r(measure());
    if (write(fds[1], &r, sizeof(r)) != static_cast<ssize_t>(sizeof(r))) _exit(3);
    close(fds[1]);
    _exit(0);
  }
  close(fds[1]);
  Result r;
  const ssize_t got(read(fds[0], &r, sizeof(r)));
  close(fds[0]);
  int status(0);
  waitpid(pid, &status, 0);
  if (got != static_cast<ssize_t>(sizeof(r)) || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::cerr << "child failed for " << caseName << (bVask ? " (Vask2D)" : " (CGAL)") << std::endl;
    std::exit(1);
  }
  return r;
}

/** Writes body, an empty line and the notes to outFile, the notes with
 * markdown line breaks (two spaces before each newline). False, with a
 * message, where the file can't be opened. */
inline bool writeMarkdown(const std::string& outFile, const std::string& body, const std::string& notes) {
  std::ofstream md(outFile.c_str());
  if (!md) {
    std::cerr << outFile << ": can't open for writing" << std::endl;
    return false;
  }
  md << body << "\n";
  std::istringstream lines(notes);
  for (std::string line; std::getline(lines, line);) md << line << "  \n";
  std::cout << "\nwritten: " << outFile << std::endl;
  return true;
}

/** The coordinates of a benchmark case, made identically in every child and
 * every benchmark: "uniform" in the unit square, "grid" (integers, shuffled),
 * "scaled grid" (the grid in [0,1]), anything else 1000 Gaussian clusters. */
inline std::vector<std::pair<double, double> > makeCoordinates(const std::string& kind, std::size_t n) {
  std::vector<std::pair<double, double> > v;
  v.reserve(n);
  std::mt19937_64 gen(20240607);
  if (kind == "uniform") {
    std::uniform_real_distribution<double> d(0.0, 1.0);
    for (std::size_t i = 0; i < n; ++i) {
      const double x(d(gen));
      v.emplace_back(x, d(gen));
    }
  } else if (kind == "grid" || kind == "scaled grid") {
    // The scaled grid lies in [0,1]: i / (side-1) is not representable, so
    // its cells are only nearly cocircular.
    const int side(static_cast<int>(std::lround(std::sqrt(static_cast<double>(n)))));
    const bool bScaled(kind == "scaled grid");
    for (int i = 0; i < side; ++i)
      for (int j = 0; j < side; ++j)
        if (bScaled)
          v.emplace_back(i / double(side - 1), j / double(side - 1));
        else
          v.emplace_back(i, j);
    std::shuffle(v.begin(), v.end(), gen);
  } else {
    // 1000 Gaussian clusters of spread 0.002 in the unit square.
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::normal_distribution<double> g(0.0, 0.002);
    std::vector<std::pair<double, double> > centers;
    for (int i = 0; i < 1000; ++i) {
      const double x(u(gen));
      centers.emplace_back(x, u(gen));
    }
    for (std::size_t i = 0; i < n; ++i) {
      const std::pair<double, double>& ctr(centers[i % centers.size()]);
      const double x(ctr.first + g(gen));
      v.emplace_back(x, ctr.second + g(gen));
    }
  }
  return v;
}

/** Best of reps by time (the field seconds), the two libraries taking turns
 * in forked children so that a slow phase of the shared machine does not
 * fall on one of them only. */
template <class Result, class MeasureVask, class MeasureCgal>
void bestOfTurns(const std::string& name, int reps, MeasureVask measureVask, MeasureCgal measureCgal, Result& v,
                 Result& g) {
  for (int i = 0; i < reps; ++i) {
    const Result rv(runInChild<Result>(name, true, measureVask));
    const Result rg(runInChild<Result>(name, false, measureCgal));
    if (i == 0 || rv.seconds < v.seconds) v = rv;
    if (i == 0 || rg.seconds < g.seconds) g = rg;
  }
}

/** bench/results beside the benchmark sources (the compiler sees this
 * header's full path), created when missing. */
inline std::string resultsDir() {
  std::string dir(__FILE__);
  const std::size_t slash(dir.rfind('/'));
  dir = slash == std::string::npos ? std::string(".") : dir.substr(0, slash);
  dir += "/results";
  mkdir(dir.c_str(), 0755);
  return dir;
}

} // namespace vask_bench
