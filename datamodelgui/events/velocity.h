#pragma once

#include "datamodelgui/events/event.h"
#include "datamodelgui/export.h"
#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/base/signal.h"

namespace voEV {

class Client;
class Dispatcher;

// How fast a dragged coordinate moves, and where it would come to rest under constant deceleration
// (an inertial flick). The estimate is the mean velocity over the last three samples at most, read
// after smooth() or end(). A copyable value.
class DMGUI_API Velocity1d {
public:
  // `deceleration` in inches per second squared; kept in pixels (times the display's DPI).
  explicit Velocity1d(double deceleration = 36.0);

  // Drops every sample, keeps this one, and zeroes the estimate. Position in pixels, time in
  // seconds.
  void start(double position, double time);
  // Adds a sample; one at the same position less than 0.1 s after the newest is ignored, so a
  // finger resting a moment adds nothing while one resting longer slows the estimate down.
  void update(double position, double time);
  // update(), then smooth().
  void end(double position, double time);
  // The estimate becomes the newest sample minus the oldest.
  void smooth();
  // Pixels per second: change of position over change of time; 0 when no time passed.
  double value() const;
  // The time (seconds) until rest and the position of rest (pixels) under the deceleration.
  void extrapolate(double& time, double& position) const;

  // x: change of position over the window; y: change of time over it.
  const ruLinear::Vector2& getDelta() const noexcept { return delta_; }
  // Samples oldest first: x the position, y the time; at most 3.
  const ru::list<ruLinear::Point2>& getSamples() const noexcept { return samples_; }
  // Pixels per second squared.
  double getDeceleration() const noexcept { return deceleration_; }

private:
  ruLinear::Vector2 delta_;
  ru::list<ruLinear::Point2> samples_;
  double deceleration_;
};

// Velocity1d in x and y.
class DMGUI_API Velocity2d {
public:
  explicit Velocity2d(double deceleration = 36.0);

  // Starts the x estimator twice, with the point's x and then its y, and leaves the y estimator as
  // it is. Kept as it stands on purpose: the x estimator's first sample is the y coordinate until
  // the window has moved past it.
  void start(const Point& point, double time);
  void update(const Point& point, double time);
  // update(), then smooth both.
  void end(const Point& point, double time);
  // Speed: the length of the two velocities.
  double value() const;
  // x into `time` and `position.x`, then y into `time` and `position.y`: `time` ends as y's.
  void extrapolate(double& time, ruLinear::Point2& position) const;

  const Velocity1d& getX() const noexcept { return x_; }
  const Velocity1d& getY() const noexcept { return y_; }

private:
  void smooth();
  Velocity1d x_;
  Velocity1d y_;
};

// Turns the dispatcher's reports of which client took each event into a change notification.
class DMGUI_API Tracker {
public:
  explicit Tracker(Dispatcher& dispatcher);
  Tracker(const Tracker&) = delete;
  Tracker& operator=(const Tracker&) = delete;

  // The client that took the latest event, null when nobody did.
  Client* getClient() const noexcept { return client_; }

  // When the client that takes events changes, with the new one (null included).
  ruRTB::SignalArg<Client*> sigClientChanged;

private:
  void onClient(Client* client);
  ruRTB::SignalClient signalClient_;
  Client* client_ = nullptr;
};

} // namespace voEV
