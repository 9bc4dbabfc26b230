#pragma once

// Recorded input sessions: what `printprep view --record` writes and `printprep replay` reads.
//
// A session is a JSON object:
//   {"printprep-session": 1, "size": [W, H], "printer": [W, D, H], "models": ["a.stl", ...],
//    "events": [{"time": T, "event": RECORD}, ...]}
// "size" is the viewport in pixels, "printer" the useable volume in mm (default 100 x 100 x 100),
// "models" the files loaded onto the bed, relative to the session file's folder unless absolute,
// "time" seconds from the start, never decreasing. RECORD is the input layer's property-list form
// of the event (voEV::asPList: "type", "button", "buttonMask", "modifierMask", "clickCount",
// "position", "timestamp"), in viewport pixels with y up. The kinds that have no such form are
// written in the same style: a hover (type 9) and a wheel turn (type 5, plus "delta") as the mouse
// form, a key press or release (types 6 and 7) as {"type", "key" (its name, "keyZ"),
// "modifierMask", "repeat"}.

#include "datamodelgui/events/event.h"
#include "platform/base/reference.h"

#include <string>
#include <vector>

namespace voPLST {
class Item;
}

namespace printprep {

struct SessionEntry {
  double time = 0.0;  // seconds from the start of the session
  ru::Reference<voEV::Event> event;
};

struct Session {
  int width = 256;
  int height = 256;
  std::vector<double> printer{100.0, 100.0, 100.0};
  std::vector<std::string> models;  // as written in the file
  std::vector<SessionEntry> events;
};

// The record of `event`; null for a kind a session does not hold (touch and pen).
ru::Reference<voPLST::Item> sessionRecord(const voEV::Event& event);
// The event a record describes; null with what is wrong in `error` ("no \"position\"", ...).
ru::Reference<voEV::Event> sessionEvent(const voPLST::Item& record, std::string& error);

// Reads and checks a whole session; false with "PATH: what is wrong" in `error` (for an event,
// "PATH: event N: ...", N counted from 0).
bool readSession(const std::string& path, Session& session, std::string& error);
// Writes `session` as JSON, through a temporary file renamed into place; false with
// "PATH: what is wrong" in `error`.
bool writeSession(const std::string& path, const Session& session, std::string& error);

// `file` as the session at `sessionPath` names it: relative names are taken from its folder.
std::string sessionModelPath(const std::string& sessionPath, const std::string& file);

}  // namespace printprep
