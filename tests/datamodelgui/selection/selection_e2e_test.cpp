// Hover and click through the whole chain, as a host runs it: events through the test host's
// dispatcher to a tool, the tool's hit tests filling the candidate set, an ObjectSelector changing
// the selection, the document draw re-emitting the changed objects, and the standard surface
// drawing the glow. Also hover at random pixels against a brute-force picking reference, and
// random selector work against a plain model of the set.

#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/selection/selector.h"

#include "../draw/surfacefixture.h"
#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/gesture.h"
#include "platform/support/settings.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using surfacetest::kSize;
using voDMG::DocumentHitTester;
using voDMG::SelectionItem;
using voDMG::SelectionSet;

struct Box {
  std::array<double, 3> lo, hi;
};

// The host side: a test host for input and a document on the standard surface, with every
// per-document object entered in both call tables (the host's, current during dispatch, and the
// surface's, current otherwise).
class SelectionEndToEnd : public surfacetest::SurfaceFixture {
protected:
  SelectionEndToEnd() {
    enter(callInfo);
    enter(host.callInfo());
    documentDraw = new voDMG::DocumentDraw(&doc.document);
    callInfo.set<voDMG::DocumentDraw>(documentDraw);
    host.callInfo().set<voDMG::DocumentDraw>(documentDraw);
    selection = std::make_unique<SelectionSet>();
    candidates = std::make_unique<voDMG::CandidateSet>();
    for (voSupport::CallInfo* table : {&callInfo, &host.callInfo()}) {
      table->set<SelectionSet>(selection.get());
      table->set<voDMG::CandidateSet>(candidates.get());
    }
    selection->sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    candidates->sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
  }
  ~SelectionEndToEnd() {
    client.disconnectAll();
    candidates.reset();
    selection.reset();
    documentDraw->destroy();
  }
  void remakeCandidates(int radius) {
    const int saved = voSupport::getHitTestRadius();
    voSupport::setHitTestRadius(radius);
    candidates = std::make_unique<voDMG::CandidateSet>();
    voSupport::setHitTestRadius(saved);
    for (voSupport::CallInfo* table : {&callInfo, &host.callInfo()}) table->set<voDMG::CandidateSet>(candidates.get());
    candidates->sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
  }
  void enter(voSupport::CallInfo& table) {
    table.set<voGR::DrawSystem>(system.get());
    table.set<voDMD::Document>(&doc.document);
    table.set<voDMD::Camera>(doc.document.camera());
    table.set<voRES::Loader>(&loader);
    table.set<voDMG::DocumentHitTester>(&hitTester);
  }

  voDMD::Object* addBox(const Box& box) {
    boxes.push_back(box);
    voDMD::Object* object = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(box.lo[0], box.lo[1], box.lo[2]),
                                                              ruLinear::Point(box.hi[0], box.hi[1], box.hi[2])));
    objects.push_back(object);
    return object;
  }
  ruLinear::Point2 viewportOf(const ruLinear::Point& world) const {
    ruLinear::Point2 out;
    doc.document.camera()->get().project(world, out);
    return out;
  }
  // The screen (y down) pixel of a viewport point, and back.
  static voEV::Point screenOf(const ruLinear::Point2& viewport) {
    return voEV::Point(static_cast<int>(std::floor(viewport.x)), kSize - 1 - static_cast<int>(std::floor(viewport.y)));
  }
  static ruLinear::Point2 viewportOf(const voEV::Point& screen) {
    return ruLinear::Point2(screen.x + 0.5, kSize - 1 - screen.y + 0.5);
  }
  // The brute-force reference: the box whose surface the ray through `viewport` meets first.
  int nearestBox(const ruLinear::Point2& viewport) const {
    const ruLinear::Line ray = doc.document.camera()->get().getWorldSpaceRay(viewport);
    int best = -1;
    double bestT = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      double t0 = 0.0, t1 = std::numeric_limits<double>::infinity();
      bool hit = true;
      for (int axis = 0; axis < 3 && hit; ++axis) {
        const double o = ray.getPoint()[axis], d = ray.getDirection()[axis];
        if (std::abs(d) < 1e-15) {
          hit = o >= boxes[i].lo[axis] && o <= boxes[i].hi[axis];
          continue;
        }
        double a = (boxes[i].lo[axis] - o) / d, b = (boxes[i].hi[axis] - o) / d;
        if (a > b) std::swap(a, b);
        t0 = std::max(t0, a);
        t1 = std::min(t1, b);
        hit = t0 <= t1;
      }
      if (hit && t0 < bestT) bestT = t0, best = static_cast<int>(i);
    }
    return best;
  }
  ruImage::TypedImage<ruImage::Byte4> shot(const std::string& name) {
    documentDraw->draw();
    ru::Reference<ruImage::Image> image = surface->renderFrame(frameParameters(kSize, kSize, false));
    EXPECT_TRUE(image);
    ruImage::TypedImage<ruImage::Byte4> out = *dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get());
    voGR::test::writeFrame(out, name);
    return out;
  }
  // The screen box of a box's corners, in viewport pixels.
  void screenBox(const Box& box, double& x0, double& y0, double& x1, double& y1) const {
    x0 = y0 = std::numeric_limits<double>::infinity();
    x1 = y1 = -x0;
    for (int corner = 0; corner < 8; ++corner) {
      const ruLinear::Point2 p = viewportOf(ruLinear::Point(corner & 1 ? box.hi[0] : box.lo[0],
                                                             corner & 2 ? box.hi[1] : box.lo[1],
                                                             corner & 4 ? box.hi[2] : box.lo[2]));
      x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    }
  }

  testhost::TestHost host;
  voDMG::DocumentHitTester hitTester;
  voDMG::DocumentDraw* documentDraw = nullptr;
  std::unique_ptr<SelectionSet> selection;
  std::unique_ptr<voDMG::CandidateSet> candidates;
  std::vector<Box> boxes;
  std::vector<voDMD::Object*> objects;
  ruRTB::SignalClient client;
};

// The host's selection tool: hover runs a hit test; a click adds the candidates' objects.
class SelectTool : public voEV::Client {
public:
  SelectTool(voEV::Dispatcher& dispatcher, std::vector<std::string>& log)
      : Client(dispatcher, false, false), log_(log) {}

  bool wantsInteraction(voEV::InteractionType, const voEV::Event& event) override {
    return event.getType() == voEV::MouseButtonPress;
  }
  void interactionStarted(voEV::InteractionType, const voEV::Event&) override { log_.push_back("started"); }
  void interaction(voEV::InteractionType, const voEV::Event&) override {}
  void interactionFinished(voEV::InteractionType, const voEV::Event& event) override {
    log_.push_back("finished");
    const auto& mouse = static_cast<const voEV::MouseEvent&>(event);
    hitTester().hitTest(SelectionEndToEnd_viewport(mouse.getPosition()), DocumentHitTester::Button);
    ru::vector<voDMD::Object*> objects;
    voDMG::ObjectSelection(*voSupport::ci().find<voDMG::CandidateSet>()).objects(objects);
    {
      voDMG::ObjectSelector selector;
      selector.add(objects);
      log_.push_back("selector ends");
    }
  }
  bool mouseHover(const voEV::MouseEvent& event) override {
    hitTester().hitTest(SelectionEndToEnd_viewport(event.getPosition()), DocumentHitTester::Move);
    return true;
  }

private:
  static DocumentHitTester& hitTester() { return *voSupport::ci().find<DocumentHitTester>(); }
  static ruLinear::Point2 SelectionEndToEnd_viewport(const voEV::Point& screen) {
    return ruLinear::Point2(screen.x + 0.5, kSize - 1 - screen.y + 0.5);
  }
  std::vector<std::string>& log_;
};

// Pixels that differ between two frames.
struct Difference {
  int inside = 0;   // within the margin around the object's screen box
  int outside = 0;  // anywhere else
};
Difference difference(const ruImage::TypedImage<ruImage::Byte4>& a, const ruImage::TypedImage<ruImage::Byte4>& b,
                      double x0, double y0, double x1, double y1, double margin) {
  Difference out;
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      if (surfacetest::rgbNear(a.pixel(x, y), b.pixel(x, y), 3)) continue;
      const bool near = x >= x0 - margin && x <= x1 + margin && y >= y0 - margin && y <= y1 + margin;
      ++(near ? out.inside : out.outside);
    }
  }
  return out;
}

class SelectionEndToEndGLTest : public ::testing::Test, public SelectionEndToEnd {};

TEST_F(SelectionEndToEndGLTest, OneClickStepByStep) {
  ASSERT_TRUE(system);
  host.broadcaster().addHandler<voEV::InstallGesturesMsg>(voSupport::Priority(1, 0), [](voEV::InstallGesturesMsg& message) {
    message.parser().pushBackGesture(new voEV::ClickMouse);
    message.parser().pushBackGesture(new voEV::DragMouse);
  });
  host.installGestures();
  std::vector<std::string> log;
  SelectTool tool(host.dispatcher(), log);

  addBox({{-3.0, -0.8, -0.8}, {-1.4, 0.8, 0.8}});
  voDMD::Object* middle = addBox({{-0.8, -0.8, -0.8}, {0.8, 0.8, 0.8}});
  addBox({{1.4, -0.8, -0.8}, {3.0, 0.8, 0.8}});
  const auto plain = shot("selection_e2e_0_plain");
  double x0, y0, x1, y1;
  screenBox(boxes[1], x0, y0, x1, y1);

  selection->sigModified.addCallback([&](SelectionSet*) { log.push_back("modified"); }, client);
  selection->sigModified2.addCallback([&](SelectionSet*) { log.push_back("modified2"); }, client);
  selection->sigMembershipChanged.addCallback(
      [&](const ru::set<SelectionItem>& items) {
        log.push_back("membership " + std::to_string(items.size()) +
                      (items.size() == 1 && items.begin()->getObject() == middle ? " middle" : ""));
      },
      client);

  // Hover over the middle object: it becomes the candidate and glows, alone.
  const voEV::Point over = screenOf(viewportOf(ruLinear::Point(0.2, 0.1, 0.8)));
  host.dispatch(*voEV::MouseEvent::create(voEV::MouseHover, 0, 0, 0, 0, over, host.now()));
  ASSERT_EQ(candidates->items().size(), 1u);
  EXPECT_EQ(candidates->items().begin()->getObject(), middle);
  EXPECT_TRUE(selection->empty());
  const Difference hovered = difference(plain, shot("selection_e2e_1_hover"), x0, y0, x1, y1, 16);
  EXPECT_GT(hovered.inside, 100);
  EXPECT_EQ(hovered.outside, 0);

  // Press and release at the same place within 0.3 seconds: a click.
  host.dispatch(*voEV::MouseEvent::create(voEV::MouseButtonPress, voEV::ButtonLeft, voEV::ButtonLeft, 0, 1, over,
                                           host.now()));
  host.advance(0.1);
  host.dispatch(*voEV::MouseEvent::create(voEV::MouseButtonRelease, voEV::ButtonLeft, 0, 0, 1, over, host.now()));
  // The set reports when the selector's scope closes, in the set's order.
  EXPECT_EQ(log, (std::vector<std::string>{"started", "finished", "selector ends", "modified", "modified2",
                                           "membership 1 middle"}));
  ASSERT_EQ(selection->items().size(), 1u);
  EXPECT_EQ(selection->items().begin()->getObject(), middle);

  // The cursor leaves; the selected object still glows, in its selected colour, and nothing else.
  host.dispatch(*voEV::MouseEvent::create(voEV::MouseHover, 0, 0, 0, 0, voEV::Point(2, 2), host.now()));
  EXPECT_TRUE(candidates->empty());
  const auto selectedFrame = shot("selection_e2e_2_selected");
  const Difference selected = difference(plain, selectedFrame, x0, y0, x1, y1, 16);
  EXPECT_GT(selected.inside, 100);
  EXPECT_EQ(selected.outside, 0);
  // The glow reaches beyond the object's own pixels.
  int halo = 0;
  for (int y = 0; y < kSize; ++y)
    for (int x = 0; x < kSize; ++x) {
      const bool object = x >= x0 && x <= x1 && y >= y0 && y <= y1;
      if (!object && !surfacetest::rgbNear(plain.pixel(x, y), selectedFrame.pixel(x, y), 3)) ++halo;
    }
  EXPECT_GT(halo, 20);
  voDMG::ObjectDraw* draw = documentDraw->getDraw(middle);
  EXPECT_EQ(draw->getDrawData(draw)->getItems().front()->getColor(), voDMG::MeshDraw::kSelectedColor.toColor());
}

TEST_F(SelectionEndToEndGLTest, HoverAtRandomPixelsMatchesABruteForcePickingReference) {
  ASSERT_TRUE(system);
  // Overlapping boxes at several depths.
  std::mt19937 random(20261123);
  std::uniform_real_distribution<double> centre(-2.5, 2.5), depth(-2.0, 2.0), half(0.3, 1.2);
  for (int i = 0; i < 8; ++i) {
    const double cx = centre(random), cy = centre(random), cz = depth(random), h = half(random);
    addBox({{cx - h, cy - h * 0.8, cz - h}, {cx + h, cy + h * 0.8, cz + h}});
  }
  documentDraw->draw();
  // One pixel, no disc: the answer is the object under the ray. The radius is read when the set
  // is made, so the host's set is made anew under that setting.
  remakeCandidates(0);
  std::uniform_int_distribution<int> pixel(0, kSize - 1);
  int compared = 0, hits = 0;
  for (int i = 0; i < 600; ++i) {
    const ruLinear::Point2 p(pixel(random) + 0.5, pixel(random) + 0.5);
    const int expected = nearestBox(p);
    // Skip pixels on an outline, where the answer depends on how the edge is rasterised.
    bool stable = true;
    for (const auto& offset : {std::pair{1.0, 0.0}, std::pair{-1.0, 0.0}, std::pair{0.0, 1.0}, std::pair{0.0, -1.0}})
      stable = stable && nearestBox(ruLinear::Point2(p.x + offset.first, p.y + offset.second)) == expected;
    if (!stable) continue;
    hitTester.hitTest(p, DocumentHitTester::Move);
    ++compared;
    if (expected < 0) {
      EXPECT_TRUE(candidates->empty()) << "at " << p.x << ", " << p.y;
    } else {
      ++hits;
      ASSERT_EQ(candidates->items().size(), 1u) << "at " << p.x << ", " << p.y;
      EXPECT_EQ(candidates->items().begin()->getObject(), objects[expected]) << "at " << p.x << ", " << p.y;
    }
  }
  EXPECT_GT(compared, 450);
  EXPECT_GT(hits, 100);
}

// A plain model of a selection: the objects in it.
TEST_F(SelectionEndToEndGLTest, RandomSelectorWorkAgreesWithMembershipSignalsAndTheDrawnState) {
  ASSERT_TRUE(system);
  for (int i = 0; i < 6; ++i) addBox({{-3.0 + i, -0.4, -0.4}, {-2.4 + i, 0.4, 0.4}});
  documentDraw->draw();
  std::mt19937 random(7);
  std::set<voDMD::Object*> model;
  std::set<voDMD::Object*> lastChanged;
  int emissions = 0;
  // Undo reaches back no further than the moves made here.
  const std::size_t movesFrom = doc.manager.undoDepth();
  selection->sigMembershipChanged.addCallback(
      [&](const ru::set<SelectionItem>& items) {
        ++emissions;
        lastChanged.clear();
        for (const SelectionItem& item : items) lastChanged.insert(item.getObject());
      },
      client);
  auto records = [&](voDMD::Object* object) {
    const Box& box = boxes[std::find(objects.begin(), objects.end(), object) - objects.begin()];
    ru::vector<voGR::HitRecord> out;
    voGR::visibilityTest(*system, doc.document.camera()->get(),
                         viewportOf(ruLinear::Point((box.lo[0] + box.hi[0]) / 2, 0.0, box.hi[2])), voGR::HitTestConfig(),
                         out);
    return out;
  };
  for (int step = 0; step < 200; ++step) {
    const std::set<voDMD::Object*> before = model;
    const int emissionsBefore = emissions;
    voDMD::Object* object = objects[random() % objects.size()];
    const int op = static_cast<int>(random() % 7);
    bool expectEmission = true;
    if (op == 0) {
      voDMG::ObjectSelector(*selection).add(object);
      model.insert(object);
    } else if (op == 1) {
      voDMG::RawSelector(*selection).add(records(object));
      model.insert(object);
    } else if (op == 2) {
      voDMG::RawSelector(*selection).remove(records(object));
      expectEmission = model.erase(object) > 0;
    } else if (op == 3) {
      voDMG::RawSelector(*selection).set(records(object));
      model = {object};
    } else if (op == 5) {
      // The document changes underneath: an object moves in a transaction. The set is untouched.
      doc.manager.begin("move");
      ruLinear::AffineMatrix placement;
      placement.translate(ruLinear::Vector(0, 0, 0.1 * static_cast<double>(random() % 5)));
      doc.transformOf(object)->setObjToWorld(placement);
      doc.manager.commit();
      expectEmission = false;
    } else if (op == 6) {
      // And back through undo (only the moves made here).
      if (doc.manager.undoDepth() > movesFrom) {
        EXPECT_TRUE(doc.manager.undo());
      }
      expectEmission = false;
    } else {
      // Two selectors in nested scopes: one emission at the outer end.
      voDMG::ObjectSelector outer(*selection);
      outer.add(object);
      voDMD::Object* other = objects[random() % objects.size()];
      { voDMG::RawSelector(*selection).remove(records(other)); }
      model.insert(object);
      if (other != object) model.erase(other);
      else model.erase(object);
    }
    if (op == 4) {
      // One emission for the whole batch: the add in it always reports.
      EXPECT_EQ(emissions, emissionsBefore + 1) << "step " << step;
    }
    std::set<voDMD::Object*> members;
    for (const SelectionItem& item : selection->items()) members.insert(item.getObject());
    ASSERT_EQ(members, model) << "step " << step;
    if (op == 3) {
      EXPECT_EQ(emissions, emissionsBefore + 1) << "step " << step;
    } else if (op != 4) {
      EXPECT_EQ(emissions, emissionsBefore + (expectEmission ? 1 : 0)) << "step " << step;
    }
    if ((op == 0 || op == 1) || (op == 2 && expectEmission)) {
      EXPECT_EQ(lastChanged, std::set<voDMD::Object*>{object}) << "step " << step;
    }
    if (op == 3) {
      // Clear-then-add lists the former members and the new one.
      std::set<voDMD::Object*> expected = before;
      expected.insert(object);
      EXPECT_EQ(lastChanged, expected) << "step " << step;
    }
    // The drawn state: exactly the members' items are active.
    documentDraw->draw();
    for (voDMD::Object* o : objects) {
      voDMG::ObjectDraw* draw = documentDraw->getDraw(o);
      EXPECT_EQ(draw->getDrawData(draw)->getItems().front()->isActive(), model.count(o) == 1) << "step " << step;
    }
    EXPECT_EQ(surface->selectedWorldNode()->getWorld()->size(), model.size()) << "step " << step;
  }
}

}  // namespace
