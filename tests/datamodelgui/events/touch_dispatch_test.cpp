// Touch and pen input end to end: scripts dispatched through the test host with time advanced in
// between, each delivered once to a client that handles touch itself and once to a mouse-only
// client, which sees the mapped interaction types and the mouse forms of the events.
#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/touchgesture.h"

#include "tests/datamodelgui/events/recording_client.h"
#include "tests/datamodelgui/events/touch_helpers.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace voEV;
using eventstest::Call;
using eventstest::RecordingClient;
using touchtest::finger;
using touchtest::pen;
using touchtest::touches;

namespace {

enum class Gestures { All, DragOnly };

class TouchDispatch : public ::testing::TestWithParam<bool> {
protected:
  void install(Gestures which = Gestures::All) {
    host.broadcaster().addHandler<InstallGesturesMsg>(voSupport::Priority(1, 0), [which](InstallGesturesMsg& message) {
      Parser& parser = message.parser();
      if (which == Gestures::DragOnly) {
        parser.pushBackGesture(new DragTouch);
        return;
      }
      parser.pushBackGesture(new TapTouch);
      parser.pushBackGesture(new DragTouch);
      parser.pushBackGesture(new DblTapTouch);
      parser.pushBackGesture(new TrplTapTouch);
      parser.pushBackGesture(new DblDragTouch);
      parser.pushBackGesture(new PressTouch);
      parser.pushBackGesture(new DblPressTouch);
      parser.pushBackGesture(new TapPen);
      parser.pushBackGesture(new DragPen);
      parser.pushBackGesture(new PressPen);
    });
    host.installGestures();
  }

  bool multiTouch() const { return GetParam(); }

  // The calls that carry an interaction, as "started TapTouchInteraction ScrenTouch".
  std::vector<std::string> interactionCalls() const {
    std::vector<std::string> out;

    for (const Call& call : log) {
      if (call.what == "started" || call.what == "interaction" || call.what == "finished") {
        out.push_back(call.what + " " + asString(call.interaction).str() + " " + asString(call.clone->getType()).str());
      }
    }
    return out;
  }

  // What the client should see for an interaction of `type` carried by events of `eventType`
  // (touch or pen) that a mouse-only client sees as `mouseEvent`.
  std::string expect(const char* what, InteractionType type, EventType native, EventType mouseEvent) const {
    const InteractionType seen = multiTouch() ? type : mapToMouse(type);
    return std::string(what) + " " + asString(seen).str() + " " + asString(multiTouch() ? native : mouseEvent).str();
  }

  void send(const ru::Reference<TouchEvent>& event) { host.dispatch(*event); }
  void send(const ru::Reference<PenEvent>& event) { host.dispatch(*event); }
  double t() const { return host.now(); }

  testhost::TestHost host;
  std::vector<Call> log;
  RecordingClient client{host.dispatcher(), "client", log, GetParam()};
};

const Point a(100, 100), b(200, 100), c(300, 100);

} // namespace

TEST_P(TouchDispatch, OneFingerTapIsATap) {
  install();
  send(touches({finger(1, a, TouchBegan, t())}));
  host.advance(0.1);
  send(touches({finger(1, a, TouchEnded, t())}));
  EXPECT_EQ(interactionCalls(),
            (std::vector<std::string>{expect("started", TapTouchInteraction, ScrenTouch, MouseButtonPress),
                                      expect("finished", TapTouchInteraction, ScrenTouch, MouseButtonRelease)}));
}

TEST_P(TouchDispatch, TwoFingerTapIsADoubleTap) {
  install();
  send(touches({finger(1, a, TouchBegan, t()), finger(2, b, TouchBegan, t())}));
  host.advance(0.1);
  send(touches({finger(1, a, TouchEnded, t()), finger(2, b, TouchEnded, t())}));
  EXPECT_EQ(interactionCalls(),
            (std::vector<std::string>{expect("started", DblTapTouchInteraction, ScrenTouch, MouseButtonPress),
                                      expect("finished", DblTapTouchInteraction, ScrenTouch, MouseButtonRelease)}));
}

TEST_P(TouchDispatch, ThreeFingersLandingInSeparateEventsAreATripleTap) {
  install();
  send(touches({finger(1, a, TouchBegan, t())}));
  host.advance(0.02);
  send(touches({finger(1, a, TouchStationary, t()), finger(2, b, TouchBegan, t())}));
  host.advance(0.02);
  send(touches({finger(1, a, TouchStationary, t()), finger(2, b, TouchStationary, t()), finger(3, c, TouchBegan, t())}));
  host.advance(0.02);
  send(touches({finger(1, a, TouchEnded, t()), finger(2, b, TouchEnded, t()), finger(3, c, TouchEnded, t())}));
  const std::vector<std::string> calls = interactionCalls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.front(), expect("started", TrplTapTouchInteraction, ScrenTouch, MouseButtonPress));
  EXPECT_EQ(calls.back(), expect("finished", TrplTapTouchInteraction, ScrenTouch, MouseButtonRelease));
}

TEST_P(TouchDispatch, TwoFingerDragFollowsItsFingersByIdWhateverTheirOrder) {
  install();
  send(touches({finger(7, a, TouchBegan, t())}));
  host.advance(0.02);
  send(touches({finger(7, a, TouchStationary, t()), finger(3, b, TouchBegan, t())}));
  host.advance(0.02);
  send(touches({finger(3, Point(230, 100), TouchMoved, t()), finger(7, Point(130, 100), TouchMoved, t())}));
  host.advance(0.02);
  send(touches({finger(3, Point(260, 100), TouchMoved, t()), finger(7, Point(160, 100), TouchMoved, t())}));
  host.advance(0.02);
  send(touches({finger(3, Point(260, 100), TouchEnded, t()), finger(7, Point(160, 100), TouchEnded, t())}));
  // The whole queue goes, from its first event: the gesture's start index changes nothing in
  // delivery. In mouse form, the event where the second finger (the lower id) lands is a press.
  EXPECT_EQ(interactionCalls(),
            (std::vector<std::string>{expect("started", DblDragTouchInteraction, ScrenTouch, MouseButtonPress),
                                      expect("interaction", DblDragTouchInteraction, ScrenTouch, MouseButtonPress),
                                      expect("interaction", DblDragTouchInteraction, ScrenTouch, MouseMove),
                                      expect("interaction", DblDragTouchInteraction, ScrenTouch, MouseMove),
                                      expect("finished", DblDragTouchInteraction, ScrenTouch, MouseButtonRelease)}));
}

TEST_P(TouchDispatch, AFingerHeldPastThePressIntervalIsAPressOnATick) {
  install();
  send(touches({finger(1, a, TouchBegan, t())}));
  host.advance(0.3);
  // A drag by time already, but a press is still possible: nothing is decided.
  EXPECT_EQ(host.parser().getState(), Parser::InteractionPending);
  host.advance(0.1);
  // Recognised on a tick: the queued events wait for the next event.
  EXPECT_EQ(host.parser().getState(), Parser::InteractionStarted);
  EXPECT_TRUE(interactionCalls().empty());
  send(touches({finger(1, a, TouchEnded, t())}));
  // The tick re-armed the timer, so the lift is no finish: it travels inside the interaction.
  EXPECT_EQ(interactionCalls(),
            (std::vector<std::string>{expect("started", PressTouchInteraction, ScrenTouch, MouseButtonPress),
                                      expect("interaction", PressTouchInteraction, ScrenTouch, MouseButtonRelease)}));
}

TEST_P(TouchDispatch, AFingerHeldStillWithOnlyDragInstalledIsADragOnATick) {
  install(Gestures::DragOnly);
  send(touches({finger(1, a, TouchBegan, t())}));
  host.advance(0.15);
  EXPECT_EQ(host.parser().getState(), Parser::InteractionPending);
  host.advance(0.1);
  EXPECT_EQ(host.parser().getState(), Parser::InteractionStarted);
  EXPECT_TRUE(interactionCalls().empty());
  send(touches({finger(1, Point(150, 100), TouchMoved, t())}));
  send(touches({finger(1, Point(150, 100), TouchEnded, t())}));
  EXPECT_EQ(interactionCalls(),
            (std::vector<std::string>{expect("started", DragTouchInteraction, ScrenTouch, MouseButtonPress),
                                      expect("interaction", DragTouchInteraction, ScrenTouch, MouseMove),
                                      expect("interaction", DragTouchInteraction, ScrenTouch, MouseButtonRelease)}));
}

TEST_P(TouchDispatch, PenTapIsATap) {
  install();
  send(pen(PenDown, a, t()));
  host.advance(0.1);
  send(pen(PenUp, a, t()));
  EXPECT_EQ(interactionCalls(), (std::vector<std::string>{expect("started", TapPenInteraction, PenDown, MouseButtonPress),
                                                          expect("finished", TapPenInteraction, PenUp, MouseButtonRelease)}));
}

TEST_P(TouchDispatch, PenHeldInPlaceIsAPress) {
  install();
  send(pen(PenDown, a, t()));
  host.advance(0.6);
  send(pen(PenMove, a, t(), {{a, t() - 0.3, 0.5f}}));
  host.advance(0.1);
  send(pen(PenUp, a, t()));
  const std::vector<std::string> calls = interactionCalls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.front(), expect("started", PressPenInteraction, PenDown, MouseButtonPress));
  EXPECT_EQ(calls.back(), expect("finished", PressPenInteraction, PenUp, MouseButtonRelease));
}

TEST_P(TouchDispatch, PenDragWithHistoricalSamplesIsADrag) {
  install();
  send(pen(PenDown, a, t()));
  host.advance(0.05);
  send(pen(PenMove, Point(140, 100), t(), {{Point(110, 100), t() - 0.03, 0.5f}, {Point(125, 100), t() - 0.01, 0.5f}}));
  host.advance(0.05);
  send(pen(PenMove, Point(180, 100), t()));
  send(pen(PenUp, Point(180, 100), t()));
  const std::vector<std::string> calls = interactionCalls();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(calls.front(), expect("started", DragPenInteraction, PenDown, MouseButtonPress));
  EXPECT_EQ(calls[1], expect("interaction", DragPenInteraction, PenMove, MouseMove));
  EXPECT_EQ(calls.back(), expect("finished", DragPenInteraction, PenUp, MouseButtonRelease));
}

TEST_P(TouchDispatch, CancellingAPendingTouchEndsItAsATap) {
  install();
  send(touches({finger(1, a, TouchBegan, t())}));
  host.advance(0.05);
  host.dispatcher().cancelInteraction();
  EXPECT_EQ(interactionCalls(),
            (std::vector<std::string>{expect("started", TapTouchInteraction, ScrenTouch, MouseButtonPress),
                                      expect("finished", TapTouchInteraction, ScrenTouch, MouseButtonRelease)}));
}

INSTANTIATE_TEST_SUITE_P(Clients, TouchDispatch, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& testInfo) {
                           return std::string(testInfo.param ? "MultiTouchClient" : "MouseOnlyClient");
                         });
