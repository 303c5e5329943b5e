#include "support/Log.h"
#include <fstream>
#include <iostream>

namespace KIRO_VASK2D {

namespace {
// Each message goes out in one write, so that messages of worker threads
// interleave as whole lines rather than character by character.
void emit(const std::string& line) {
  std::cout << ("\n" + line + "\n\n") << std::flush;
}
} // namespace

void logWarning(const std::string& tag, const std::string& msg) {
  emit("      [Vask2D-Message] " + tag + ", WARNING: " + msg);
}

void logError(const std::string& tag, const std::string& msg) {
  emit("      [Vask2D-Message] " + tag + ", ERROR: " + msg);
}

void logInfo(const std::string& tag, const std::string& msg) {
  if (tag.empty())
    emit("      [Vask2D-Message] INFO: " + msg);
  else
    emit("      " + tag + ", INFO: " + msg);
}

void logToFile(const std::string& line) {
  std::cout << line << std::endl;
  // Appending only: the file collects the failures of all runs. An
  // unopenable file is not reported, this is already a failure path.
  std::ofstream file("VASK_LOG.txt", std::ios::app);
  if (file) file << line << '\n';
}

} // namespace KIRO_VASK2D
