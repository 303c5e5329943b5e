// The main job of the library on an embedded default: one million random
// points are triangulated on every core of the machine, then 10,000 short
// constraint segments that cross each other are forced into the mesh. The
// result is validated (every constraint an edge, the empty-circle property
// of every other edge) and described. A triangulation of the first 3000
// points with crossing constraints is drawn to "vask2d_demo.ps".
//
// Usage: vask2d_demo [numPoints]
#include <Vask_2D.h>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

using namespace KIRO_VASK2D;

namespace {

// Draws a progress bar on one console line.
class ProgressBar : public MsgBase {
public:
  void update(MsgType msgType, char const* name, double value) override {
    if (msgType != MSG_PROGRESS) return;
    const int width(40), filled(static_cast<int>(value * width + 0.5));
    std::cout << "\r  " << name << " [" << std::string(filled, '#') << std::string(width - filled, ' ') << "] "
              << static_cast<int>(value * 100.0 + 0.5) << "%" << std::flush;
    if (value >= 1.0) std::cout << std::endl;
  }
};

// Segments of the given length at random places and in random directions
// inside the square 0..100.
std::vector<Segment2> randomSegments(std::mt19937_64& gen, long num, double length) {
  std::uniform_real_distribution<double> place(length, 100.0 - length), angle(0.0, 6.283185307179586);
  std::vector<Segment2> vSegments;
  for (long i = 0; i < num; ++i) {
    const double x(place(gen)), y(place(gen)), a(angle(gen));
    vSegments.emplace_back(Point2(x, y), Point2(x + length * std::cos(a), y + length * std::sin(a)));
  }
  return vSegments;
}

} // namespace

int main(int argc, char** argv) {
  long numPoints(1000000);
  if (argc > 1) {
    numPoints = std::atol(argv[1]);
    if (numPoints < 1) {
      std::cerr << "usage: " << argv[0] << " [numPoints]" << std::endl;
      return 2;
    }
  }
  std::cout << getVask2DVersion() << std::endl;
  std::cout << "Generating " << numPoints << " random points" << std::endl;
  std::mt19937_64 gen(12345);
  std::uniform_real_distribution<double> dist(0.0, 100.0);
  std::vector<Point2> vPoints;
  vPoints.reserve(static_cast<size_t>(numPoints));
  for (long i = 0; i < numPoints; ++i) {
    const double x(dist(gen));
    vPoints.emplace_back(x, dist(gen));
  }

  Vask_2D dt;
  // 0: as many threads as the system reports processors; the count in force comes back.
  const int numThreads(dt.setNumCPU(0));
  std::cout << "Inserting on " << numThreads << (numThreads == 1 ? " thread" : " threads")
            << " (every processor the system reports)" << std::endl;
  ProgressBar bar;
  dt.subscribe(MSG_PROGRESS, &bar);
  const auto t0(std::chrono::steady_clock::now());
  dt.insert(vPoints);
  const double seconds(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
  dt.unsubscribe(MSG_PROGRESS, &bar);

  std::cout << "Triangulated " << dt.numberOfPoints() << " points into " << dt.numberOfTriangles()
            << " triangles in " << seconds << " s" << std::endl;

  // Short segments in random directions: their crossings become vertices.
  const std::vector<Segment2> vSegments(randomSegments(gen, numPoints / 100, 2.0));
  std::vector<Segment2> vConstraintInput(vSegments);
  const unsigned numBefore(dt.numberOfPoints());
  const auto t1(std::chrono::steady_clock::now());
  dt.createConstraint(vConstraintInput, CIS_CONSTRAINED_DELAUNAY);
  const double cSeconds(std::chrono::duration<double>(std::chrono::steady_clock::now() - t1).count());
  std::vector<ConstraintSegment2*> vAlive;
  dt.getAliveConstraintSegments(vAlive);
  std::cout << "Forced " << vSegments.size() << " constraint segments into the mesh in " << cSeconds << " s: "
            << (dt.numberOfPoints() - numBefore) << " new vertices (end points and crossings), " << vAlive.size()
            << " constraint edges" << std::endl;
  const bool bValid(dt.checkValidity(true, "demo"));
  dt.statistics("demo");
  std::cout << "\nResult: " << (bValid ? "valid constrained Delaunay triangulation" : "INVALID triangulation") << ", "
            << numPoints << " points, " << seconds << " s on " << numThreads
            << (numThreads == 1 ? " thread" : " threads") << std::endl;

  // A picture to look at: a million points would only make a black page, so
  // the first few thousand points get a triangulation of their own.
  const size_t numPicturePoints(std::min<size_t>(vPoints.size(), 3000));
  Vask_2D smallDt;
  smallDt.insert(std::vector<Point2>(vPoints.begin(), vPoints.begin() + numPicturePoints));
  std::vector<Segment2> vPictureSegments(randomSegments(gen, 25, 25.0));
  smallDt.createConstraint(vPictureSegments, CIS_CONSTRAINED_DELAUNAY);
  const char* pictureName("vask2d_demo.ps");
  smallDt.show(pictureName, true);
  std::cout << "Wrote a picture of the triangulation of the first " << numPicturePoints
            << " points with 25 crossing constraints in red (" << smallDt.numberOfTriangles() << " triangles) to "
            << pictureName << std::endl;
  return bValid ? 0 : 1;
}
