#include "support/ProgressPublisher.h"
#include <algorithm>

namespace KIRO_VASK2D {

// bFinished starts set: no run is open, so a finish() before any start()
// sends nothing.
ProgressPublisher::ProgressPublisher(const std::string& sourceName_)
    : total(0), done(0), step(1), bFinished(true), bDisabled(false), sourceName(sourceName_) {}

void ProgressPublisher::subscribe(MsgType msgType, MsgBase* pReceiver) {
  if (pReceiver == nullptr) return;
  auto range(mSubscribers.equal_range(msgType));
  for (auto it = range.first; it != range.second; ++it)
    if (it->second == pReceiver) return;
  mSubscribers.emplace(msgType, pReceiver);
}

void ProgressPublisher::unsubscribe(MsgType msgType, MsgBase* pReceiver) {
  auto range(mSubscribers.equal_range(msgType));
  for (auto it = range.first; it != range.second; ++it) {
    if (it->second == pReceiver) {
      mSubscribers.erase(it);
      return;
    }
  }
}

void ProgressPublisher::addChild(ProgressPublisher* pChild) {
  if (pChild == nullptr || pChild == this) return;
  if (std::find(vChildren.begin(), vChildren.end(), pChild) != vChildren.end()) return;
  vChildren.push_back(pChild);
  pChild->vParents.push_back(this);
}

void ProgressPublisher::removeChild(ProgressPublisher* pChild) {
  auto it(std::find(vChildren.begin(), vChildren.end(), pChild));
  if (it == vChildren.end()) return;
  vChildren.erase(it);
  auto itParent(std::find(pChild->vParents.begin(), pChild->vParents.end(), this));
  if (itParent != pChild->vParents.end()) pChild->vParents.erase(itParent);
}

ProgressPublisher::~ProgressPublisher() {
  // Unlink both ways so that no publisher keeps a dangling relative.
  while (!vChildren.empty()) removeChild(vChildren.back());
  while (!vParents.empty()) vParents.back()->removeChild(this);
}

// A parent listens to its children as a subscriber would: a child that
// reports only to its parent still runs.
bool ProgressPublisher::isListened() const {
  return !bDisabled && !(mSubscribers.empty() && vParents.empty());
}

void ProgressPublisher::start(const std::string& title_, unsigned total_) {
  if (!isListened()) return;
  total = total_;
  done = 0;
  title = title_;
  // At most about 100 reports per run.
  step = total / 100;
  if (step == 0) step = 1;
  bFinished = false;
}

void ProgressPublisher::extend(unsigned units) {
  if (!isListened() || bFinished) return;
  total += units;
}

double ProgressPublisher::getFraction() const {
  if (bFinished) return 1.0;
  double fraction(total == 0 ? 0.0 : double(done) / double(total));
  for (const ProgressPublisher* pChild : vChildren) fraction += pChild->getFraction();
  return fraction;
}

void ProgressPublisher::advanceListened(unsigned units) {
  if (total == 0 || bFinished) return;
  done += units;
  if (done % step != 0) return;
  for (ProgressPublisher* pParent : vParents) pParent->advance(0);
  double fraction(getFraction());
  if (fraction >= 1.0) {
    fraction = 1.0;
    bFinished = true;
  }
  send(fraction);
}

void ProgressPublisher::finish() {
  if (!isListened()) return;
  done = total;
  if (!bFinished) {
    bFinished = true;
    send(1.0);
  }
  title.clear();
  total = 0;
  done = 0;
}

void ProgressPublisher::send(double fraction) {
  // A copy, because a receiver may unsubscribe from within update().
  std::vector<MsgBase*> vReceivers;
  auto range(mSubscribers.equal_range(MSG_PROGRESS));
  for (auto it = range.first; it != range.second; ++it) vReceivers.push_back(it->second);
  for (MsgBase* pReceiver : vReceivers) pReceiver->update(MSG_PROGRESS, title.c_str(), fraction);
}

} // namespace KIRO_VASK2D
