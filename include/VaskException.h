#pragma once
#include "Vask2DApi.h"
#include <exception>

namespace KIRO_VASK2D {

/** Thrown when an invariant of the library is broken. The triangulation is
 * then in an undefined state; nothing inside the library catches it. */
class VASK2D_API VaskException : public std::exception {
public:
  // Out of line, so that the vtable and typeinfo live in the library only and
  // a host's catch clause matches the library's throw.
  ~VaskException() override;
  const char* what() const noexcept override;
};

} // namespace KIRO_VASK2D
