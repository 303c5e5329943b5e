#pragma once
#include "Vask2DApi.h"

namespace KIRO_VASK2D {

/** Kinds of message; the library sends only MSG_PROGRESS. */
enum MsgType { MSG_PROGRESS = 0 };

/** Receiver of library messages: derive from it and subscribe. */
class VASK2D_API MsgBase {
public:
  MsgBase() {}
  MsgBase(const MsgBase&) {}
  MsgBase& operator=(const MsgBase&) { return *this; }
  virtual ~MsgBase();
  /** For MSG_PROGRESS, value is the fraction done, from 0 to exactly 1.0. */
  virtual void update(MsgType msgType, char const* name, double value) = 0;
};

} // namespace KIRO_VASK2D
