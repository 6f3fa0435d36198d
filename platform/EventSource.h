#pragma once
// Base of every object that delivers events from the event loop (sockets, timers).
//
// Lifetime rules:
// - Such objects are held by std::shared_ptr made with MakeEventSource(): when the last
//   reference goes, the object stops delivering events at once and is destroyed later by
//   the event loop, so releasing it from inside one of its own handlers is safe.
// - An event source may name an anchor (its owner). The anchor is held for the whole of
//   each event dispatch, so an owner cannot vanish under a running handler, and a source
//   may hold it for longer (a socket holds it while its connection is open).
#include <QObject>
#include <QCoreApplication>
#include <memory>

namespace velmar {

class EventSource : public QObject {
public:
  EventSource() = default;
  ~EventSource() override = default;
  EventSource(const EventSource&) = delete;
  EventSource& operator=(const EventSource&) = delete;

  // Stops all further event delivery; called when the last reference is released.
  virtual void Detach() { detached_ = true; }
  bool Detached() const { return detached_; }

  // What MakeEventSource's deleter does: stop delivering, and free the object from the event
  // loop once none of its handlers is running. (Qt would run a plain deleteLater in any
  // event processing shallower than where it was called: a yield in an outer handler of
  // this very object, with the object still in use below it.)
  void ReleaseFromOwner();

protected:
  // The owner to keep alive while this source delivers an event. Empty: none.
  virtual std::shared_ptr<void> Anchor() { return {}; }

  // Runs one event handler: holds the anchor, stops exceptions at the boundary, and
  // counts the nesting so that a source knows whether it is inside its own handler.
  template <class F>
  void Dispatch(F&& handler);

  bool InsideHandler() const { return dispatchDepth_ > 0; }

  // Runs after each handler has returned (the source is still alive then).
  virtual void AfterDispatch() {}

  // Holds the anchor until ReleaseOwner(); released at the end of the current dispatch
  // when called from inside one.
  void HoldOwner();
  void ReleaseOwner();

private:
  void DeleteSoon();

  bool detached_ = false;
  bool releasePending_ = false;
  int dispatchDepth_ = 0;
  std::shared_ptr<void> heldOwner_;
};

template <class T, class... Args>
std::shared_ptr<T> MakeEventSource(Args&&... args) {
  return std::shared_ptr<T>(new T(std::forward<Args>(args)...), [](T* source) { source->ReleaseFromOwner(); });
}

}  // namespace velmar

#include "platform/EventSourceImpl.h"
