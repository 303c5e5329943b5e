#pragma once
#include "MsgBase.h"
#include <map>
#include <string>
#include <vector>

namespace KIRO_VASK2D {

/** Sends progress fractions to subscribed receivers. At most about 100
 * messages per run, exactly one of them 1.0; nothing at all when nobody
 * listens, so advance() is cheap enough to call per vertex.
 *
 * A child's fraction is added to its parent's, and a child that reports
 * makes its parents report too. A parent counts as a listener of its
 * children. Publishers unlink from their relatives when destroyed. */
class ProgressPublisher {
public:
  explicit ProgressPublisher(const std::string& sourceName = "");
  ~ProgressPublisher();
  ProgressPublisher(const ProgressPublisher&) = delete;
  ProgressPublisher& operator=(const ProgressPublisher&) = delete;

  /** A receiver is held once per type, however often it subscribes; the
   * publisher does not own it. */
  void subscribe(MsgType msgType, MsgBase* pReceiver);
  /** An unknown pair is ignored. */
  void unsubscribe(MsgType msgType, MsgBase* pReceiver);
  void addChild(ProgressPublisher* pChild);
  void removeChild(ProgressPublisher* pChild);
  /** Opens a run of total units; a running one simply begins again. */
  void start(const std::string& title, unsigned total);
  /** Adds units to the total of the running run. */
  void extend(unsigned units);
  void advance(unsigned units) {
    if (bDisabled || (mSubscribers.empty() && vParents.empty())) return;
    advanceListened(units);
  }
  /** Closes the run; sends 1.0 unless it was sent already. */
  void finish();
  /** A disabled publisher ignores start, advance and finish. */
  void setDisabled(bool bDisabled_) { bDisabled = bDisabled_; }
  bool isDisabled() const { return bDisabled; }
  bool hasSubscribers() const { return !mSubscribers.empty(); }
  const std::string& getSourceName() const { return sourceName; }

private:
  bool isListened() const;
  void advanceListened(unsigned units);
  double getFraction() const;
  void send(double fraction);

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

/** Silences a progress publisher for a nested piece of work whose steps
 * the outer phase counts itself; the previous state comes back on exit. */
class SuspendedProgress {
public:
  explicit SuspendedProgress(ProgressPublisher& progress_) : progress(progress_), bWasDisabled(progress_.isDisabled()) {
    progress.setDisabled(true);
  }
  ~SuspendedProgress() { progress.setDisabled(bWasDisabled); }
  SuspendedProgress(const SuspendedProgress&) = delete;
  SuspendedProgress& operator=(const SuspendedProgress&) = delete;

private:
  ProgressPublisher& progress;
  bool bWasDisabled;
};

} // namespace KIRO_VASK2D
