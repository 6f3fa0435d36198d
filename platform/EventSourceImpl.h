#pragma once
// Template and inline part of EventSource; included at the end of EventSource.h.
#include "platform/EventSource.h"
#include "platform/Exceptions.h"

namespace velmar {

template <class F>
void EventSource::Dispatch(F&& handler) {
  if (detached_) return;
  std::shared_ptr<void> anchor = Anchor();
  std::shared_ptr<void> held = heldOwner_;  // survives a ReleaseOwner() inside the handler
  ++dispatchDepth_;
  RunGuarded(std::forward<F>(handler));
  if (!detached_) RunGuarded([this] { AfterDispatch(); });
  --dispatchDepth_;
  if (dispatchDepth_ == 0 && releasePending_) {
    releasePending_ = false;
    DeleteSoon();
  }
  // The anchors go last: releasing them may destroy the owner, never this object.
}

inline void EventSource::ReleaseFromOwner() {
  Detach();
  if (dispatchDepth_ > 0)
    releasePending_ = true;  // deleted when the outermost handler has returned
  else
    DeleteSoon();
}

inline void EventSource::DeleteSoon() {
  if (QCoreApplication::instance())
    deleteLater();
  else
    delete this;
}

inline void EventSource::HoldOwner() {
  if (!heldOwner_) heldOwner_ = Anchor();
}

inline void EventSource::ReleaseOwner() { heldOwner_.reset(); }

}  // namespace velmar
