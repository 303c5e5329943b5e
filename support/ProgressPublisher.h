#pragma once
#include "MsgBase.h"
#include <map>
#include <string>
#include <vector>

namespace KIRO_VASK2D {

/** Sends progress fractions to subscribed receivers. At most about 100
 * messages per run, exactly one of them 1.0; nothing at all when nobody
 * listens, so advance() is cheap enough to call per vertex. */
class ProgressPublisher {
public:
  explicit ProgressPublisher(const std::string& sourceName = "");
  void subscribe(MsgType msgType, MsgBase* pReceiver);
  void unsubscribe(MsgType msgType, MsgBase* pReceiver);
  void addChild(ProgressPublisher* pChild);
  void start(const std::string& title, unsigned total);
  void advance(unsigned units) {
    if (bDisabled || (mSubscribers.empty() && vParents.empty())) return;
    advanceListened(units);
  }
  void finish();
  void setDisabled(bool bDisabled_) { bDisabled = bDisabled_; }
  bool hasSubscribers() const { return !mSubscribers.empty(); }

private:
  void advanceListened(unsigned units);
  double getFraction() const;

  std::vector<ProgressPublisher*> vChildren;
  std::vector<ProgressPublisher*> vParents;
  std::multimap<MsgType, MsgBase*> mSubscribers;
  unsigned total;
  unsigned done;
  unsigned step;
  std::string title;
  bool bFinished;
  bool bDisabled;
  std::string sourceName;
};

} // namespace KIRO_VASK2D
