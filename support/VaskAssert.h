#pragma once
// The assertion style of the library: a violated invariant is logged, written
// to VASK_LOG.txt and thrown as VaskException. The reporter is out of line
// and [[noreturn]] so that a check on a hot path costs one compare.

namespace KIRO_VASK2D {

[[noreturn]] void vaskAssertFailed(const char* cond, const char* file, int line, const char* prettyFunction);

/** "KIRO_VASK2D::Dt2::numberOfTriangles" from a __PRETTY_FUNCTION__ text. */
const char* qualifiedFunctionName(const char* prettyFunction, char* buffer, unsigned bufferSize);

} // namespace KIRO_VASK2D

#define VASK_ASSERT(cond)                                                                  \
  do {                                                                                     \
    if (__builtin_expect(!(cond), 0))                                                      \
      ::KIRO_VASK2D::vaskAssertFailed(#cond, __FILE__, __LINE__, __PRETTY_FUNCTION__);     \
  } while (0)
