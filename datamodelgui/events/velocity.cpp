#include "datamodelgui/events/velocity.h"

#include "datamodelgui/events/dispatcher.h"
#include "platform/support/settings.h"

#include <cmath>

namespace voEV {

Velocity1d::Velocity1d(double deceleration) : deceleration_(deceleration * voSupport::getDisplayDPI()) {}

void Velocity1d::start(double position, double time) {
  samples_.clear();
  samples_.emplace_back(position, time);
  delta_ = ruLinear::Vector2(0.0, 0.0);
}

void Velocity1d::update(double position, double time) {
  // With no sample yet there is nothing to compare with: the sample is taken.
  if (!samples_.empty()) {
    const ruLinear::Point2& last = samples_.back();
    if (position == last.x && time - last.y < 0.1) return;
  }
  samples_.emplace_back(position, time);
  if (samples_.size() > 3) samples_.pop_front();
}

void Velocity1d::end(double position, double time) {
  update(position, time);
  smooth();
}

void Velocity1d::smooth() {
  if (samples_.empty()) return;
  delta_ = samples_.back() - samples_.front();
}

double Velocity1d::value() const { return delta_.y == 0.0 ? 0.0 : delta_.x / delta_.y; }

void Velocity1d::extrapolate(double& time, double& position) const {
  const double last = samples_.empty() ? 0.0 : samples_.back().x;
  if (delta_.x == 0.0) {
    time = 0.0;
    position = last;
    return;
  }
  const double v = value();
  time = std::fabs(v) / deceleration_;
  const double travel = 0.5 * deceleration_ * time * time;
  position = v > 0.0 ? last + travel : last - travel;
}

Velocity2d::Velocity2d(double deceleration) : x_(deceleration), y_(deceleration) {}

void Velocity2d::start(const Point& point, double time) {
  x_.start(point.x, time);
  x_.start(point.y, time);
}

void Velocity2d::update(const Point& point, double time) {
  x_.update(static_cast<double>(point.x), time);
  y_.update(static_cast<double>(point.y), time);
}

void Velocity2d::end(const Point& point, double time) {
  update(point, time);
  smooth();
}

void Velocity2d::smooth() {
  x_.smooth();
  y_.smooth();
}

double Velocity2d::value() const {
  const double vx = x_.value(), vy = y_.value();
  return std::sqrt(vx * vx + vy * vy);
}

void Velocity2d::extrapolate(double& time, ruLinear::Point2& position) const {
  x_.extrapolate(time, position.x);
  y_.extrapolate(time, position.y);
}

Tracker::Tracker(Dispatcher& dispatcher) { dispatcher.sigClient.connect(this, &Tracker::onClient, signalClient_); }

void Tracker::onClient(Client* client) {
  if (client == client_) return;
  client_ = client;
  sigClientChanged.emit(client);
}

} // namespace voEV
