#pragma once
#include <string>

namespace KIRO_VASK2D {

// One console format for all messages, printed to standard output.
void logWarning(const std::string& tag, const std::string& msg);
void logError(const std::string& tag, const std::string& msg);
void logInfo(const std::string& tag, const std::string& msg);
/** Prints the line and appends it to "VASK_LOG.txt" in the current directory. */
void logToFile(const std::string& line);

} // namespace KIRO_VASK2D
