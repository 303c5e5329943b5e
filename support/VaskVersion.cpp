#include "VaskVersion.h"
#include "support/Log.h"
#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

namespace KIRO_VASK2D {

namespace {
const int MAJOR_VERSION(1);
const int MINOR_VERSION(86);
const int REVISION(557);
#ifdef VASK2D_DEBUG_BUILD
const bool IS_RELEASE(false);
#else
const bool IS_RELEASE(true);
#endif

std::string makeVersionString() {
  std::ostringstream oss;
  oss << "Vask " << "2D" << ", " << (IS_RELEASE ? "RELEASE" : "DEBUG") << ", v" << MAJOR_VERSION << "."
      << MINOR_VERSION << "." << REVISION;
  return oss.str();
}
} // namespace

char const* getVask2DVersion() {
  // Built once; the pointer stays valid for the whole process.
  static const std::string version(makeVersionString());
  return version.c_str();
}

int getMajorVersionNumber() {
  return MAJOR_VERSION;
}

int getMinorVersionNumber() {
  return MINOR_VERSION;
}

int getRevisionNumber() {
  return REVISION;
}

bool isRelease() {
  return IS_RELEASE;
}

double timer(char const* name) {
  using Clock = std::chrono::steady_clock;
  // Lives as long as the process; unprotected, like the measurements it serves.
  static std::map<std::string, Clock::time_point> mStartTimes;
  if (name == nullptr) {
    logWarning("timer()", "name is NULL");
    return -1.0;
  }
  const bool bQuiet(std::strncmp(name, "[quiet]", 7) == 0);
  auto it(mStartTimes.find(name));
  if (it == mStartTimes.end()) {
    mStartTimes.emplace(name, Clock::now());
    if (!bQuiet) std::cout << "...Timer [" << name << "] start" << std::endl;
    return -1.0;
  }
  const double seconds(std::chrono::duration<double>(Clock::now() - it->second).count());
  mStartTimes.erase(it);
  if (!bQuiet) {
    std::ostringstream oss;
    oss.precision(3);
    oss << seconds;
    std::cout << "...Timer [" << name << "] stop, elapsed time: " << oss.str() << " s" << std::endl;
  }
  return seconds;
}

} // namespace KIRO_VASK2D
