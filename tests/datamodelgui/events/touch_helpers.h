#pragma once

// Builders of touch and pen input for the touch tests.

#include "datamodelgui/events/event.h"
#include "datamodelgui/events/touch.h"

#include <initializer_list>

namespace touchtest {

using namespace voEV;

inline ru::Reference<Touch> finger(int id, Point at, TouchPhase phase, double time, Point before) {
  return ru::Reference<Touch>(new Touch(id, at, before, 1, phase, time));
}
inline ru::Reference<Touch> finger(int id, Point at, TouchPhase phase, double time) {
  return finger(id, at, phase, time, at);
}

inline ru::Reference<TouchEvent> touches(std::initializer_list<ru::Reference<Touch>> list,
                                         ru::Reference<HistoricalTouchData> history = nullptr) {
  TouchMap map;
  for (const auto& t : list) map[t->getID()] = t;
  return ru::Reference<TouchEvent>(new TouchEvent(map, history));
}

inline ru::Reference<PenEvent> pen(EventType type, Point at, double time,
                                   std::initializer_list<HistoricalPenEvent> history = {}) {
  ru::Reference<HistoricalPenData> data;
  if (history.size() > 0) {
    ru::vector<HistoricalPenEvent> samples(history);
    data = new HistoricalPenData(samples);
  }
  return ru::Reference<PenEvent>(new PenEvent(type, at, time, 0.5f, false, data));
}

inline EventList queue(std::initializer_list<ru::Reference<Event>> events) { return EventList(events); }

} // namespace touchtest
