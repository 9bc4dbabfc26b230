#pragma once

#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmanager.h"
#include "platform/support/debug.h"
#include "tests/datamodelgui/snap/projector_fixture.h"

#include <string>
#include <vector>

namespace snaptest {

// The host of a snapping tool: the projector host (camera looking down -z from (0, 0, 10) at a
// 256 pixel viewport, modeling planes, transactions) plus the snap manager.
struct SnapHost : projectortest::Host {
  voDMG::SnapManager manager;
  SnapHost() { info.set(&manager); }

  // The viewport position of a world point (it is in front of the eye in every test).
  ruLinear::Point2 pixel(const ruLinear::Point& world) const {
    ruLinear::Point2 out;
    camera().project(world, out);
    return out;
  }
};

// A host's own point item: any priority, a free point result, no document object.
class HostPoint : public voDMG::PointSnapItem {
public:
  HostPoint(voDMG::SnapPriority priority, const ruLinear::Point& position) : PointSnapItem(priority, position) {}
  using PointSnapItem::position;
  int endSnaps = 0;

private:
  ru::Reference<voDMG::SnapResult> onSnap(const ruLinear::Point2&) const override {
    return ru::Reference<voDMG::SnapResult>(new voDMG::FreePointSnapResult(position()));
  }
  void onEndSnap() override { ++endSnaps; }
  voDMG::SelectionItem getCreator() const override { return voDMG::SelectionItem(); }
};

// Records what the snap channel prints while alive, and switches the channel on.
struct SnapLog {
  struct Line {
    std::string function;
    std::string text;
  };
  std::vector<Line> lines;
  SnapLog() {
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugSnap, true);
    voSupport::Debug::getInstance().setSink([this](int code, const char* function, const char* text) {
      if (code == voSupport::DebugSnap) lines.push_back({function ? function : "", text});
    });
  }
  ~SnapLog() {
    voSupport::Debug::getInstance().setSink({});
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugSnap, false);
  }
  bool has(const std::string& text) const {
    for (const auto& line : lines)
      if (line.text == text) return true;
    return false;
  }
  bool hasPrefix(const std::string& prefix) const {
    for (const auto& line : lines)
      if (line.text.rfind(prefix, 0) == 0) return true;
    return false;
  }
};

inline ru::Reference<voDMG::SnapItemFactory> fixed(ru::Reference<voDMG::SnapItem> item) {
  return ru::Reference<voDMG::SnapItemFactory>(new voDMG::FixedSnapItemFactory(std::move(item)));
}

}  // namespace snaptest
