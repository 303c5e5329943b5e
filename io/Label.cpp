#include "Label.h"
#include <cstring>

namespace KIRO_VASK2D {

namespace {
char* copyText(const char* s) {
  if (s == nullptr) s = "";
  const std::size_t len(std::strlen(s));
  char* pCopy(new char[len + 1]);
  std::memcpy(pCopy, s, len + 1);
  return pCopy;
}
} // namespace

Label::Label(const Point2& p, const char* s, bool bWithMark_, int fontSize_)
    : pText(copyText(s)), position(p), bWithMark(bWithMark_), fontSize(fontSize_) {}

Label::Label(const Label& other)
    : pText(copyText(other.pText)), position(other.position), bWithMark(other.bWithMark), fontSize(other.fontSize) {}

Label& Label::operator=(const Label& other) {
  if (this != &other) {
    // Copy first, so that a failing allocation leaves this label intact.
    char* pCopy(copyText(other.pText));
    delete[] pText;
    pText = pCopy;
    position = other.position;
    bWithMark = other.bWithMark;
    fontSize = other.fontSize;
  }
  return *this;
}

Label::~Label() { delete[] pText; }

const char* Label::getCS() const { return pText; }

} // namespace KIRO_VASK2D
