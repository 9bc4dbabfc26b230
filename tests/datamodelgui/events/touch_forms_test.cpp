// The touch branches of the event layer: position, the mouse form, the debug dump and the
// property-list form of touch events, and what bad touch input gives.
#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/event.h"
#include "datamodelgui/events/touch.h"
#include "datamodelgui/events/touchgesture.h"

#include "platform/support/plist.h"
#include "tests/datamodelgui/events/debug_capture.h"
#include "tests/datamodelgui/events/recording_client.h"
#include "tests/datamodelgui/events/touch_helpers.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace touchtest;

TEST(TouchForms, PositionOfATouchEventIsThatOfItsLowestFinger) {
  const auto event = touches({finger(4, Point(40, 4), TouchMoved, 1.0), finger(2, Point(20, 2), TouchMoved, 1.0)});
  EXPECT_EQ(position(*event), Point(20, 2));
}

TEST(TouchForms, MapEventGivesTheLowestFingersMouseForm) {
  const auto event = touches({finger(4, Point(40, 4), TouchMoved, 1.0), finger(2, Point(20, 2), TouchBegan, 1.0)});
  MapEvent map(*event, TapTouchInteraction);
  EXPECT_EQ(map.type(true), ClickMouseInteraction);
  EXPECT_EQ(map.type(false), TapTouchInteraction);
  const auto& mouse = dynamic_cast<const MouseEvent&>(map.event(true));
  EXPECT_EQ(mouse.getType(), MouseButtonPress);
  EXPECT_EQ(mouse.getPosition(), Point(20, 2));
  EXPECT_EQ(&map.event(false), event.get());
}

TEST(TouchForms, PrintWritesTheTouchLinesInIdOrder) {
  ru::vector<HistoricalTouch> samples{{1, Point(1, 1), 0.5}};
  const auto event = touches({finger(2, Point(20, 2), TouchMoved, 1.5, Point(19, 2)), finger(1, Point(10, 1), TouchBegan, 1.25)},
                             new HistoricalTouchData(1, samples));
  eventstest::DebugCapture capture;
  print(*event);
  const auto texts = capture.texts();
  auto pointer = [&](int id) {
    char text[64];
    std::snprintf(text, sizeof text, "  Touch(%p):", static_cast<const void*>(event->find(id).get()));
    return std::string(text);
  };
  const std::vector<std::string> expected{"TouchEvent:\n",
                                          "  historical events: 1\n",
                                          pointer(1),
                                          "  id: 1",
                                          "  phase: TouchBegan",
                                          "  pos: " + Point(10, 1).asString().str(),
                                          "  prevPos: " + Point(10, 1).asString().str(),
                                          "  tapCount: 1",
                                          "  timestamp: 1.250000\n",
                                          pointer(2),
                                          "  id: 2",
                                          "  phase: TouchMoved",
                                          "  pos: " + Point(20, 2).asString().str(),
                                          "  prevPos: " + Point(19, 2).asString().str(),
                                          "  tapCount: 1",
                                          "  timestamp: 1.500000\n"};
  EXPECT_EQ(texts, expected);
  for (const auto& record : capture.records) EXPECT_EQ(record.code, voSupport::DebugEvents);
}

TEST(TouchForms, PropertyListFormKeepsTheTouchesButNotTheHistoryOrTheLogicalMark) {
  ru::vector<HistoricalTouch> samples{{1, Point(1, 1), 0.5}};
  const auto event = touches({finger(1, Point(10, 1), TouchBegan, 1.25), finger(3, Point(30, 3), TouchMoved, 1.5, Point(29, 3))},
                             new HistoricalTouchData(1, samples));
  event->setLogicalInteractionStart();
  const ru::Reference<voPLST::Item> plist = asPList(*event);
  ASSERT_TRUE(plist);
  const voPLST::Dictionary* dictionary = plist->asDictionary();
  ASSERT_NE(dictionary, nullptr);
  EXPECT_EQ(dictionary->size(), 2u);
  EXPECT_TRUE(dictionary->contains("type"));
  EXPECT_TRUE(dictionary->contains("touches"));
  const ru::Reference<Event> back = asEvent(plist);
  ASSERT_TRUE(back);
  const auto* touchBack = dynamic_cast<const TouchEvent*>(back.get());
  ASSERT_NE(touchBack, nullptr);
  EXPECT_FALSE(touchBack->getHistoricalData());
  EXPECT_FALSE(touchBack->isLogicalInteractionStart());
  ASSERT_EQ(touchBack->getTouches().size(), 2u);
  EXPECT_FALSE(*touchBack->find(3) != *event->find(3));
  EXPECT_FALSE(*touchBack->find(1) != *event->find(1));
}

TEST(TouchForms, ATouchDictionaryWithAMissingKeyGivesNoEvent) {
  const auto event = touches({finger(1, Point(10, 1), TouchBegan, 1.25)});
  for (const char* key : {"id", "position", "prevPosition", "tapCount", "phase", "timestamp"}) {
    ru::Reference<voPLST::Item> plist = asPList(*event);
    voPLST::Dictionary* dictionary = const_cast<voPLST::Dictionary*>(plist->asDictionary());
    voPLST::Array* list = const_cast<voPLST::Array*>(dictionary->find("touches")->asArray());
    const_cast<voPLST::Dictionary*>(list->at(0)->asDictionary())->remove(key);
    EXPECT_FALSE(asEvent(plist)) << key;
  }
  ru::Reference<voPLST::Dictionary> noTouches(new voPLST::Dictionary);
  noTouches->setDouble("type", ScrenTouch);
  EXPECT_FALSE(asEvent(noTouches));
}

TEST(TouchForms, AnUnknownPhaseHasNoNameAndCountsAsAMovingFinger) {
  const auto touch = finger(1, Point(5, 5), TouchPhase(7), 1.0);
  EXPECT_EQ(asString(touch->getPhase()), "");
  EXPECT_FALSE(touch->isDone());
  EXPECT_EQ(touch->asMouseEvent()->getType(), MouseMove);
  TouchState state;
  EXPECT_TRUE(state.event(*touches({touch})));
  EXPECT_FALSE(state.isInteractionStart());
  EXPECT_FALSE(state.isInteractionEnd());
}

TEST(TouchForms, TouchEventsWithNoTouchesPassThroughTheDispatcherHarmlessly) {
  testhost::TestHost host;
  std::vector<eventstest::Call> log;
  eventstest::RecordingClient client(host.dispatcher(), "client", log, true);
  host.parser().pushBackGesture(new TapTouch);
  host.parser().pushBackGesture(new DragTouch);
  host.parser().pushBackGesture(new DblDragTouch);
  host.parser().pushBackGesture(new PressTouch);
  host.dispatch(*touches({}));
  host.advance(0.5);
  host.dispatch(*touches({}));
  host.dispatcher().cancelInteraction();
  host.advance(0.5);
  // An event with no touches counts as a start (and fails every gesture), so it opens tracked input
  // that is ignored up to the next event that ends a touch interaction: the first tap goes to close
  // it, and input works again from the next one.
  auto tap = [&] {
    host.dispatch(*touches({finger(1, Point(10, 10), TouchBegan, host.now())}));
    host.advance(0.05);
    host.dispatch(*touches({finger(1, Point(10, 10), TouchEnded, host.now())}));
    host.advance(0.5);
  };
  auto interactions = [&] {
    std::vector<std::string> out;
    for (const auto& call : log) {
      if (call.what == "started" || call.what == "finished") out.push_back(call.what + " " + asString(call.interaction).str());
    }
    return out;
  };
  tap();
  EXPECT_TRUE(interactions().empty());
  tap();
  EXPECT_EQ(interactions(), (std::vector<std::string>{"started TapTouch", "finished TapTouch"}));
}

TEST(TouchForms, HistoryWithNoEventsIsRefusedRatherThanDividedByZero) {
  ru::vector<HistoricalTouch> samples{{1, Point(1, 1), 0.5}};
  const HistoricalTouchData history(0, samples);
  EXPECT_EQ(history.getNumEvents(), 0);
  EXPECT_EQ(history.getNumTouches(), 0);
  EXPECT_EQ(samples.size(), 1u);  // refused: the caller keeps its samples
}
