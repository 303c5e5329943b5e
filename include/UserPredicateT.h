#pragma once
#include "Triangle2.h"
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** A test on triangles given by the caller, for peelOffIf: derive from it
 * and say, for each triangle asked about, whether it is to go. The call is
 * not const, so a predicate may count or remember what it was asked. */
class VASK2D_API UserPredicateT {
public:
  UserPredicateT() {}
  UserPredicateT(const UserPredicateT&) {}
  UserPredicateT& operator=(const UserPredicateT&) { return *this; }
  virtual ~UserPredicateT();
  virtual bool operator()(const Triangle2* pT) = 0;
};

} // namespace KIRO_VASK2D
