#include "support/VaskAssert.h"
#include "VaskException.h"
#include "support/Log.h"
#include <cstring>
#include <iostream>
#include <string>

namespace KIRO_VASK2D {

namespace {

bool isIdentChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool endsWith(const std::string& s, const char* suffix) {
  const size_t n(std::strlen(suffix));
  return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

// Index of the '(' matching the ')' at close, or npos.
size_t matchingOpen(const std::string& s, size_t close) {
  int depth(0);
  for (size_t i = close + 1; i-- > 0;) {
    if (s[i] == ')') ++depth;
    else if (s[i] == '(' && --depth == 0) return i;
  }
  return std::string::npos;
}

// Removes the cv- and ref-qualifiers that follow a member function's parameters.
void stripTrailingQualifiers(std::string& s) {
  for (bool bChanged = true; bChanged;) {
    bChanged = false;
    while (!s.empty() && s.back() == ' ') s.pop_back();
    for (const char* q : {" const", " volatile", " &&", " &", " noexcept"}) {
      if (endsWith(s, q)) {
        s.erase(s.size() - std::strlen(q));
        bChanged = true;
      }
    }
  }
}

// Start of the operator name in a declarator name such as "A::B::operator<<",
// or npos. The operator is found first because its symbols ('<', '>', '(')
// would otherwise disturb the bracket counting of the qualifier scan.
size_t findOperator(const std::string& name) {
  for (size_t pos = name.rfind("operator"); pos != std::string::npos;
       pos = pos == 0 ? std::string::npos : name.rfind("operator", pos - 1)) {
    const size_t after(pos + 8);
    const bool bStartOk(pos == 0 || name[pos - 1] == ':' || name[pos - 1] == ' ');
    const bool bEndOk(after == name.size() || !isIdentChar(name[after]));
    if (bStartOk && bEndOk) return pos;
  }
  return std::string::npos;
}

std::string extractName(std::string s) {
  const size_t withPos(s.find(" [with "));
  if (withPos != std::string::npos) s.erase(withPos);
  // Inside a lambda the text is "<enclosing function>::<lambda(args)>".
  std::string suffix;
  const size_t lambdaPos(s.find("::<lambda"));
  if (lambdaPos != std::string::npos) {
    s.erase(lambdaPos);
    suffix = "::<lambda>";
  }
  for (int guard = 0; guard < 8; ++guard) {
    stripTrailingQualifiers(s);
    if (s.empty() || s.back() != ')') break;
    const size_t open(matchingOpen(s, s.size() - 1));
    if (open == std::string::npos || open == 0) break;
    std::string head(s.substr(0, open));
    while (!head.empty() && head.back() == ' ') head.pop_back();
    // A function that returns a function pointer: "R (* ns::f(args))(args2)".
    if (!head.empty() && head.back() == ')' && !endsWith(head, "operator()")) {
      const size_t innerOpen(matchingOpen(head, head.size() - 1));
      if (innerOpen == std::string::npos) break;
      s = head.substr(innerOpen + 1, head.size() - innerOpen - 2);
      continue;
    }
    const size_t opPos(findOperator(head));
    const size_t scanFrom(opPos == std::string::npos ? head.size() : opPos);
    // Walk left over the qualified name; spaces inside template arguments
    // ("Pool<T, N>::get") belong to it, a space at bracket depth 0 ends it.
    int depth(0);
    size_t start(scanFrom);
    while (start > 0) {
      const char c(head[start - 1]);
      if (c == '>') ++depth;
      else if (c == '<') --depth;
      else if (depth == 0 && (c == ' ' || c == '*' || c == '&')) break;
      --start;
    }
    return head.substr(start) + suffix;
  }
  return s + suffix;
}

} // namespace

const char* qualifiedFunctionName(const char* prettyFunction, char* buffer, unsigned bufferSize) {
  if (buffer == nullptr || bufferSize == 0) return "";
  const std::string name(prettyFunction == nullptr ? std::string() : extractName(prettyFunction));
  const size_t n(name.size() < bufferSize - 1 ? name.size() : bufferSize - 1);
  std::memcpy(buffer, name.data(), n);
  buffer[n] = '\0';
  return buffer;
}

void vaskAssertFailed(const char* cond, const char* file, int line, const char* prettyFunction) {
  const std::string condition(std::string("Condition [ ") + cond + " failed ]");
  logError("* Vask, ", condition);
  logToFile("* Vask, " + condition);
  // The base name suffices: every class has one source unit of its own name.
  const char* slash(std::strrchr(file, '/'));
  std::cout << "  " << (slash != nullptr ? slash + 1 : file) << ":" << line << "\n" << std::endl;
  char buffer[512];
  std::cout << "  Function: " << qualifiedFunctionName(prettyFunction, buffer, sizeof(buffer)) << "()" << std::endl;
  throw VaskException();
}

} // namespace KIRO_VASK2D
