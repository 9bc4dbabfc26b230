#include "datamodelgui/events/event.h"

#include "datamodelgui/events/touch.h"
#include "platform/support/plist.h"
#include "tests/datamodelgui/events/debug_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace voEV;

namespace {

ru::Reference<MouseEvent> mouse(EventType type, int button, int mask, Point at, double time = 1.0) {
  return MouseEvent::create(type, button, mask, 0, 1, at, time);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Names

TEST(EventNames, ScrenTouchIsTheNameOfEightAndTheCorrectedSpellingIsNotFound) {
  EXPECT_EQ(asString(ScrenTouch), "ScrenTouch");
  EventType type = MouseMove;
  EXPECT_TRUE(eventType("ScrenTouch", type));
  EXPECT_EQ(type, ScrenTouch);
  type = MouseMove;
  EXPECT_FALSE(eventType("ScreenTouch", type));
  EXPECT_EQ(type, None);
}

TEST(EventNames, KeyGIsNamedInLowerCaseAndTheCapitalisedNameLeavesTheOutputAlone) {
  EXPECT_EQ(asString(KeyCode(18)), "keyG");
  KeyCode key = KeyF5;
  EXPECT_FALSE(getKeyCode("KeyG", key));
  EXPECT_EQ(key, KeyF5);
  EXPECT_TRUE(getKeyCode("keyG", key));
  EXPECT_EQ(key, KeyG);
}

TEST(EventNames, PressTouchIsFoundByItsLookupNameButNotByItsDisplayNameAndDragPenIsNotFound) {
  InteractionType type = ClickMouseInteraction;
  EXPECT_TRUE(interactionType("PressTouch", type));
  EXPECT_EQ(type, PressTouchInteraction);
  EXPECT_EQ(asString(PressTouchInteraction), "PressTouchInteraction");
  type = ClickMouseInteraction;
  EXPECT_FALSE(interactionType(asString(PressTouchInteraction), type));
  EXPECT_EQ(type, UndecidedInteraction);
  type = ClickMouseInteraction;
  EXPECT_FALSE(interactionType("DragPen", type));
  EXPECT_EQ(type, UndecidedInteraction);
}

TEST(EventNames, EmptyMasksGiveEmptyTextsAndShiftWithAltJoinWithOneComma) {
  EXPECT_EQ(buttonsAsString(0), "");
  EXPECT_EQ(modifiersAsString(0), "");
  EXPECT_EQ(modifiersAsString(5), "Shift,Alt");
  EXPECT_EQ(modifiersAsString(15), "Shift,Ctrl,Alt,Meta");
  EXPECT_EQ(buttonsAsString(7), "ButtonLeft,ButtonRight,ButtonMiddle");
  EXPECT_EQ(buttonsAsString(6), "ButtonRight,ButtonMiddle");
}

TEST(EventNames, EveryEventTypeHasItsNameAndIsFoundByIt) {
  const std::vector<std::string> names = {"None",       "MouseButtonPress", "MouseButtonRelease", "MouseMove",
                                          "MouseMotion", "Wheel",           "KeyPress",           "KeyRelease",
                                          "ScrenTouch",  "MouseHover",      "PenDown",            "PenMove",
                                          "PenUp",       "PenHover"};
  for (int i = 0; i < 14; ++i) {
    EXPECT_EQ(asString(EventType(i)), names[i]);
    EventType found = None;
    EXPECT_TRUE(eventType(names[i].c_str(), found));
    EXPECT_EQ(found, i);
  }
}

TEST(EventNames, InteractionDisplayAndLookupTablesDifferWhereTheyShould) {
  const std::vector<std::string> display = {
      "Undecided",   "ClickMouse",   "DragMouse",   "PressMouse", "TapTouch",   "DragTouch",
      "DblTapTouch", "DblDragTouch", "PressTouchInteraction", "DblPressTouchInteraction", "TrplTapTouchInteraction",
      "MouseMotion", "MouseHover",   "Keyboard",    "DragPen",    "PressPen",   "TapPen"};
  const std::vector<std::string> lookup = {"Undecided",  "ClickMouse",   "DragMouse",     "PressMouse",  "TapTouch",
                                           "DragTouch",  "DblTapTouch",  "DblDragTouch",  "PressTouch",
                                           "DblPressTouch", "TrplTapTouch", "MouseMotion", "MouseHover", "Keyboard"};
  for (int i = 0; i < 17; ++i) EXPECT_EQ(asString(InteractionType(i)), display[i]) << i;
  for (int i = 0; i < 14; ++i) {
    InteractionType found = TapPenInteraction;
    EXPECT_TRUE(interactionType(lookup[i].c_str(), found)) << lookup[i];
    EXPECT_EQ(found, i);
  }
  for (const char* pen : {"DragPen", "PressPen", "TapPen"}) {
    InteractionType found = ClickMouseInteraction;
    EXPECT_FALSE(interactionType(pen, found));
    EXPECT_EQ(found, UndecidedInteraction);
  }
}

TEST(EventNames, AllSixtyKeyNamesRoundTripInTheirOrder) {
  std::vector<std::string> expected = {"KeyNone", "KeyEscape", "KeyTab",  "KeyBackspace", "KeyDelete", "KeyReturn",
                                       "KeyLeft", "KeyUp",     "KeyRight", "KeyDown",     "KeyHome",   "KeySpace"};
  for (char c = 'A'; c <= 'Z'; ++c) expected.push_back(c == 'G' ? "keyG" : std::string("Key") + c);
  for (char c = '0'; c <= '9'; ++c) expected.push_back(std::string("Key") + c);
  for (int f = 1; f <= 12; ++f) expected.push_back("KeyF" + std::to_string(f));
  ASSERT_EQ(expected.size(), 60u);
  for (int i = 0; i < 60; ++i) {
    EXPECT_EQ(asString(KeyCode(i)), expected[i]);
    KeyCode key = KeyNone;
    EXPECT_TRUE(getKeyCode(expected[i].c_str(), key));
    EXPECT_EQ(key, i);
  }
  EXPECT_EQ(KeySpace, 11);
  EXPECT_EQ(KeyZ, 37);
  EXPECT_EQ(Key9, 47);
  EXPECT_EQ(KeyF12, 59);
}

TEST(EventNames, ValuesOutsideTheTablesHaveAnEmptyName) {
  EXPECT_EQ(asString(EventType(14)), "");
  EXPECT_EQ(asString(EventType(-1)), "");
  EXPECT_EQ(asString(InteractionType(17)), "");
  EXPECT_EQ(asString(InteractionType(-3)), "");
  EXPECT_EQ(asString(KeyCode(60)), "");
  EXPECT_EQ(asString(KeyCode(-1)), "");
  EXPECT_EQ(asString(TouchPhase(5)), "");
}

struct MapToMouseCase {
  InteractionType from;
  InteractionType to;
};

class MapToMouse : public ::testing::TestWithParam<MapToMouseCase> {};

TEST_P(MapToMouse, MapsTouchAndPenToTheirMouseCounterpartsOnly) {
  EXPECT_EQ(mapToMouse(GetParam().from), GetParam().to);
}

INSTANTIATE_TEST_SUITE_P(
    Interactions, MapToMouse,
    ::testing::Values(MapToMouseCase{TapTouchInteraction, ClickMouseInteraction},
                      MapToMouseCase{TapPenInteraction, ClickMouseInteraction},
                      MapToMouseCase{DragTouchInteraction, DragMouseInteraction},
                      MapToMouseCase{DragPenInteraction, DragMouseInteraction},
                      MapToMouseCase{PressTouchInteraction, PressMouseInteraction},
                      MapToMouseCase{PressPenInteraction, PressMouseInteraction},
                      MapToMouseCase{DblTapTouchInteraction, DblTapTouchInteraction},
                      MapToMouseCase{DblDragTouchInteraction, DblDragTouchInteraction},
                      MapToMouseCase{DblPressTouchInteraction, DblPressTouchInteraction},
                      MapToMouseCase{TrplTapTouchInteraction, TrplTapTouchInteraction},
                      MapToMouseCase{KeyboardInteraction, KeyboardInteraction},
                      MapToMouseCase{ClickMouseInteraction, ClickMouseInteraction}),
    [](const auto& testInfo) { return std::string(asString(testInfo.param.from).c_str()); });

// ---------------------------------------------------------------------------------------------
// Point and position

TEST(EventPoint, Point2IsTruncatedTowardZero) {
  const Point p(ruLinear::Point2(-1.9, 2.9));
  EXPECT_EQ(p.x, -1);
  EXPECT_EQ(p.y, 2);
  EXPECT_EQ(p.asString(), "(-1,2)");
  EXPECT_EQ(Point(), Point(0, 0));
  EXPECT_NE(Point(1, 0), Point(0, 1));
  EXPECT_EQ(Point(3, -4).asPoint2(), ruLinear::Point2(3.0, -4.0));
}

TEST(EventPosition, AHoverEventIsAtTheOriginAlthoughItCarriesAPosition) {
  EXPECT_EQ(position(*mouse(MouseHover, 0, 0, Point(30, 40))), Point(0, 0));
  EXPECT_EQ(position(*mouse(MouseMotion, 0, 0, Point(30, 40))), Point(30, 40));
  EXPECT_EQ(position(*mouse(MouseButtonPress, 1, 1, Point(5, 6))), Point(5, 6));
  EXPECT_EQ(position(*WheelEvent::create(Wheel, 0, 0, Point(7, 8), 1)), Point(0, 0));
  EXPECT_EQ(position(PenEvent(PenDown, Point(9, 9), 0.0, 0.5f, false)), Point(0, 0));
  TouchMap touches;
  touches[7] = new Touch(7, Point(70, 70), Point(70, 70), 1, TouchBegan, 0.0);
  touches[3] = new Touch(3, Point(30, 31), Point(30, 31), 1, TouchBegan, 0.0);
  EXPECT_EQ(position(TouchEvent(touches)), Point(30, 31));
}

// ---------------------------------------------------------------------------------------------
// Mouse predicates

TEST(MouseEventPredicates, APressWithAnotherButtonAlreadyHeldIsNotAFirstPress) {
  EXPECT_FALSE(mouse(MouseButtonPress, ButtonRight, ButtonLeft | ButtonRight, Point())->isFirstButtonPress());
  EXPECT_TRUE(mouse(MouseButtonPress, ButtonRight, ButtonRight, Point())->isFirstButtonPress());
  EXPECT_TRUE(mouse(MouseButtonPress, ButtonRight, ButtonRight, Point())->isFirstButtonPress(ButtonRight));
  EXPECT_FALSE(mouse(MouseButtonPress, ButtonRight, ButtonRight, Point())->isFirstButtonPress(ButtonLeft));
  EXPECT_FALSE(mouse(MouseButtonRelease, ButtonLeft, ButtonLeft, Point())->isFirstButtonPress());
}

TEST(MouseEventPredicates, OnlyAReleaseLeavingNoButtonIsALastRelease) {
  EXPECT_TRUE(mouse(MouseButtonRelease, ButtonLeft, 0, Point())->isLastButtonRelease());
  EXPECT_TRUE(mouse(MouseButtonRelease, ButtonLeft, 0, Point())->isLastButtonRelease(ButtonLeft));
  EXPECT_FALSE(mouse(MouseButtonRelease, ButtonLeft, 0, Point())->isLastButtonRelease(ButtonMiddle));
  EXPECT_FALSE(mouse(MouseButtonRelease, ButtonLeft, ButtonRight, Point())->isLastButtonRelease());
  EXPECT_FALSE(mouse(MouseButtonPress, ButtonLeft, 0, Point())->isLastButtonRelease());
}

// ---------------------------------------------------------------------------------------------
// Clone and interaction end

TEST(EventClone, ACloneCopiesEveryFieldAndStartsWithItsOwnCount) {
  auto key = KeyEvent::create(KeyPress, KeyQ, true, 3, "q", "kana", 2, 1);
  ru::Reference<Event> held = key;
  ru::Reference<Event> copy = key->clone();
  EXPECT_NE(copy.get(), key.get());
  EXPECT_EQ(copy->refCount(), 1);
  auto* k = dynamic_cast<KeyEvent*>(copy.get());
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(k->getType(), KeyPress);
  EXPECT_EQ(k->getKeyCode(), KeyQ);
  EXPECT_TRUE(k->isRepeat());
  EXPECT_EQ(k->getModifierMask(), 3);
  EXPECT_EQ(k->getString(), "q");
  EXPECT_EQ(k->getInternString(), "kana");
  EXPECT_EQ(k->getCursorPos(), 2);
  EXPECT_EQ(k->getAnchorPos(), 1);

  auto m = MouseEvent::create(MouseMove, 2, 3, 4, 5, Point(6, 7), 8.5);
  auto mc = ru::dynamicCast<MouseEvent>(m->clone());
  ASSERT_TRUE(mc);
  EXPECT_EQ(mc->getButton(), 2);
  EXPECT_EQ(mc->getButtonMask(), 3);
  EXPECT_EQ(mc->getModifierMask(), 4);
  EXPECT_EQ(mc->getClickCount(), 5);
  EXPECT_EQ(mc->getPosition(), Point(6, 7));
  EXPECT_EQ(mc->getTimestamp(), 8.5);

  auto w = ru::dynamicCast<WheelEvent>(WheelEvent::create(Wheel, 1, 2, Point(3, 4), -5)->clone());
  ASSERT_TRUE(w);
  EXPECT_EQ(w->getButtonMask(), 1);
  EXPECT_EQ(w->getModifierMask(), 2);
  EXPECT_EQ(w->getPosition(), Point(3, 4));
  EXPECT_EQ(w->getDelta(), -5);
}

TEST(EventClone, KeyCreateDefaultsStringsToEmptyAndPositionsToZero) {
  auto key = KeyEvent::create(KeyRelease, KeyA, false, 0);
  EXPECT_TRUE(key->getString().empty());
  EXPECT_TRUE(key->getInternString().empty());
  EXPECT_EQ(key->getCursorPos(), 0);
  EXPECT_EQ(key->getAnchorPos(), 0);
  auto withText = KeyEvent::create(KeyPress, KeyB, false, 1, "B", "");
  EXPECT_EQ(withText->getString(), "B");
  EXPECT_EQ(withText->getCursorPos(), 0);
}

TEST(EventClone, APenCloneSharesItsHistoryByReference) {
  ru::vector<HistoricalPenEvent> samples = {{Point(1, 2), 0.5, 0.25f}, {Point(3, 4), 0.75, 0.5f}};
  ru::Reference<HistoricalPenData> history(new HistoricalPenData(samples));
  EXPECT_TRUE(samples.empty());
  ru::Reference<Event> pen(new PenEvent(PenMove, Point(5, 6), 1.0, 0.75f, true, history));
  auto copy = ru::dynamicCast<PenEvent>(pen->clone());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->getHistoricalData().get(), history.get());
  EXPECT_EQ(copy->getHistoricalData()->getNumEvents(), 2);
  EXPECT_EQ(copy->getHistoricalData()->getEvents()[1].position, Point(3, 4));
  EXPECT_EQ(copy->getPressure(), 0.75f);
  EXPECT_TRUE(copy->isErase());
}

TEST(EventInteractionEnd, MouseWheelAndKeyEventsHaveNoClosingEvent) {
  EXPECT_FALSE(mouse(MouseButtonPress, 1, 1, Point())->createInteractionEnd());
  EXPECT_FALSE(WheelEvent::create(Wheel, 0, 0, Point(), 1)->createInteractionEnd());
  EXPECT_FALSE(KeyEvent::create(KeyPress, KeyA, false, 0)->createInteractionEnd());
}

TEST(EventInteractionEnd, PenDownAndMoveCloseWithAPenUpAtTheSamePlaceAndTime) {
  for (EventType type : {PenDown, PenMove}) {
    ru::vector<HistoricalPenEvent> samples = {{Point(1, 1), 0.1, 0.1f}};
    ru::Reference<Event> pen(new PenEvent(type, Point(10, 20), 3.25, 0.5f, true,
                                          ru::Reference<HistoricalPenData>(new HistoricalPenData(samples))));
    auto end = ru::dynamicCast<PenEvent>(pen->createInteractionEnd());
    ASSERT_TRUE(end);
    EXPECT_EQ(end->getType(), PenUp);
    EXPECT_EQ(end->getPosition(), Point(10, 20));
    EXPECT_EQ(end->getTimestamp(), 3.25);
    EXPECT_EQ(end->getPressure(), 0.5f);
    EXPECT_TRUE(end->isErase());
    EXPECT_FALSE(end->getHistoricalData());
  }
  for (EventType type : {PenUp, PenHover}) {
    ru::Reference<Event> pen(new PenEvent(type, Point(10, 20), 3.25, 0.5f, false));
    EXPECT_FALSE(pen->createInteractionEnd());
  }
}

// ---------------------------------------------------------------------------------------------
// Pen as mouse, MapEvent

struct PenAsMouseCase {
  EventType pen;
  EventType mouse;
  int buttonMask;
};

class PenAsMouse : public ::testing::TestWithParam<PenAsMouseCase> {};

TEST_P(PenAsMouse, GivesButtonOneWithThePensPlaceAndTime) {
  PenEvent pen(GetParam().pen, Point(11, 12), 2.5, 0.3f, false);
  auto m = pen.asMouseEvent();
  EXPECT_EQ(m->getType(), GetParam().mouse);
  EXPECT_EQ(m->getButtonMask(), GetParam().buttonMask);
  EXPECT_EQ(m->getButton(), 1);
  EXPECT_EQ(m->getModifierMask(), 0);
  EXPECT_EQ(m->getClickCount(), 0);
  EXPECT_EQ(m->getPosition(), Point(11, 12));
  EXPECT_EQ(m->getTimestamp(), 2.5);
}

INSTANTIATE_TEST_SUITE_P(PenTypes, PenAsMouse,
                         ::testing::Values(PenAsMouseCase{PenDown, MouseButtonPress, 1},
                                           PenAsMouseCase{PenMove, MouseMove, 1},
                                           PenAsMouseCase{PenUp, MouseButtonRelease, 0},
                                           PenAsMouseCase{PenHover, MouseMotion, 0},
                                           PenAsMouseCase{KeyPress, MouseMove, 0}),
                         [](const auto& testInfo) { return std::string(asString(testInfo.param.pen).c_str()); });

TEST(MapEventForms, NativeFormIsTheSourceAndMouseFormIsMadeOnceAndKept) {
  ru::Reference<Event> pen(new PenEvent(PenDown, Point(4, 5), 1.0, 1.0f, false));
  MapEvent map(*pen, TapPenInteraction);
  EXPECT_EQ(&map.event(false), pen.get());
  EXPECT_EQ(map.type(false), TapPenInteraction);
  EXPECT_EQ(map.type(true), ClickMouseInteraction);
  const Event& first = map.event(true);
  EXPECT_EQ(first.getType(), MouseButtonPress);
  EXPECT_EQ(&map.event(true), &first);
  EXPECT_EQ(position(first), Point(4, 5));
}

TEST(MapEventForms, PenHoverAndMouseEventsAreReturnedAsTheyAre) {
  ru::Reference<Event> hover(new PenEvent(PenHover, Point(4, 5), 1.0, 0.0f, false));
  MapEvent map(*hover, DragPenInteraction);
  EXPECT_EQ(&map.event(true), hover.get());
  auto press = mouse(MouseButtonPress, 1, 1, Point(1, 1));
  MapEvent mouseMap(*press, ClickMouseInteraction);
  EXPECT_EQ(&mouseMap.event(true), press.get());
}

TEST(MapEventForms, ATouchIsSeenAsItsLowestFingerInMouseForm) {
  TouchMap touches;
  touches[2] = new Touch(2, Point(20, 20), Point(20, 20), 3, TouchEnded, 4.0);
  touches[9] = new Touch(9, Point(90, 90), Point(90, 90), 1, TouchMoved, 4.0);
  ru::Reference<Event> touch(new TouchEvent(touches));
  MapEvent map(*touch, DblTapTouchInteraction);
  auto* m = dynamic_cast<const MouseEvent*>(&map.event(true));
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->getType(), MouseButtonRelease);
  EXPECT_EQ(m->getPosition(), Point(20, 20));
  EXPECT_EQ(m->getClickCount(), 3);
  EXPECT_EQ(map.type(true), DblTapTouchInteraction);
}

TEST(MapEventForms, AnEventThatNobodyCountsIsNotDeletedByTheWrapper) {
  PenEvent onStack(PenMove, Point(1, 2), 0.0, 0.1f, false);
  {
    MapEvent map(onStack, DragPenInteraction);
    EXPECT_EQ(map.event(true).getType(), MouseMove);
  }
  EXPECT_EQ(onStack.refCount(), 0);
  EXPECT_EQ(onStack.getPosition(), Point(1, 2));
}

// ---------------------------------------------------------------------------------------------
// print

TEST(EventPrint, AMouseEventPrintsItsLinesUnderCodeForty) {
  eventstest::DebugCapture capture;
  print(*MouseEvent::create(MouseButtonPress, ButtonRight, ButtonLeft | ButtonRight, 5, 2, Point(3, -4), 1.0));
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"MouseEvent:", "  type: MouseButtonPress",
                                                        "  button: ButtonRight", "  buttons: ButtonLeft,ButtonRight",
                                                        "  modifiers: Shift,Alt", "  clickCount: 2",
                                                        "  pos: (3,-4)\n"}));
  for (const auto& record : capture.records) EXPECT_EQ(record.code, 40);
}

TEST(EventPrint, AKeyEventPrintsItsLinesAndARepeatPrintsNothing) {
  eventstest::DebugCapture capture;
  print(*KeyEvent::create(KeyRelease, KeyG, false, 2));
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"KeyEvent:", "  type: KeyRelease", "  key: keyG",
                                                        "  repeat: false", "  modifiers: Ctrl\n"}));
  capture.clear();
  print(*KeyEvent::create(KeyPress, KeyG, true, 0));
  EXPECT_TRUE(capture.records.empty());
}

TEST(EventPrint, AWheelEventPrintsModifiersBeforeButtons) {
  eventstest::DebugCapture capture;
  print(*WheelEvent::create(Wheel, ButtonMiddle, ModifierMeta, Point(1, 2), -3));
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"WheelEvent:", "  type: Wheel", "  modifiers: Meta",
                                                        "  buttons: ButtonMiddle", "  pos: (1,2)", "  delta: -3\n"}));
}

TEST(EventPrint, APenEventPrintsItsHistoryBeforeItsOwnFields) {
  eventstest::DebugCapture capture;
  ru::vector<HistoricalPenEvent> samples = {{Point(1, 2), 0.5, 0.25f}};
  PenEvent pen(PenMove, Point(5, 6), 1.5, 0.75f, true, ru::Reference<HistoricalPenData>(new HistoricalPenData(samples)));
  print(pen);
  EXPECT_EQ(capture.texts(),
            (std::vector<std::string>{"PenEvent:", "  historical events: 1\n", "     0", "       pos: (1,2)",
                                      "       timestamp: 0.500000", "       pressure: 0.250000", "  type: PenMove",
                                      "  pos: (5,6)", "  timestamp: 1.500000", "  pressure: 0.750000",
                                      "  erase: true"}));
}

TEST(EventPrint, ATouchEventPrintsEachTouchInIdOrder) {
  eventstest::DebugCapture capture;
  TouchMap touches;
  touches[5] = new Touch(5, Point(50, 51), Point(49, 50), 1, TouchMoved, 2.0);
  touches[1] = new Touch(1, Point(10, 11), Point(10, 11), 2, TouchBegan, 2.0);
  TouchEvent event(touches);
  print(event);
  const auto texts = capture.texts();
  ASSERT_EQ(texts.size(), 15u);
  EXPECT_EQ(texts[0], "TouchEvent:\n");
  EXPECT_EQ(texts[1].rfind("  Touch(", 0), 0u);
  EXPECT_EQ(texts[2], "  id: 1");
  EXPECT_EQ(texts[3], "  phase: TouchBegan");
  EXPECT_EQ(texts[4], "  pos: (10,11)");
  EXPECT_EQ(texts[5], "  prevPos: (10,11)");
  EXPECT_EQ(texts[6], "  tapCount: 2");
  EXPECT_EQ(texts[7], "  timestamp: 2.000000\n");
  EXPECT_EQ(texts[9], "  id: 5");
  EXPECT_EQ(texts[10], "  phase: TouchMoved");
  EXPECT_EQ(texts[12], "  prevPos: (49,50)");
}

TEST(EventPrint, NothingIsPrintedWhenCodeFortyIsOff) {
  std::vector<std::string> seen;
  voSupport::Debug::getInstance().setSink([&](int, const char*, const char* text) { seen.push_back(text); });
  print(*MouseEvent::create(MouseMove, 0, 1, 0, 0, Point(), 0.0));
  voSupport::Debug::getInstance().setSink({});
  EXPECT_TRUE(seen.empty());
}

// ---------------------------------------------------------------------------------------------
// Property lists

namespace {

ru::Reference<voPLST::Dictionary> dictionaryOf(const Event& event) {
  ru::Reference<voPLST::Item> item = asPList(event);
  return ru::Reference<voPLST::Dictionary>(item ? item->asDictionary() : nullptr);
}

ru::Reference<voPLST::Dictionary> mouseDictionary() {
  return dictionaryOf(*MouseEvent::create(MouseButtonRelease, 2, 1, 4, 2, Point(-7, 8), 12.75));
}

}  // namespace

TEST(EventPropertyList, AMouseEventWritesItsSevenKeysAndReadsBackWithItsTimeTruncated) {
  auto dictionary = mouseDictionary();
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->size(), 7u);
  EXPECT_EQ(voPLST::toJSON(*dictionary),
            R"({"button":2.0,"buttonMask":1.0,"clickCount":2.0,"modifierMask":4.0,"position":[-7.0,8.0],"timestamp":12.75,"type":2.0})");
  auto back = ru::dynamicCast<MouseEvent>(asEvent(dictionary));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->getType(), MouseButtonRelease);
  EXPECT_EQ(back->getButton(), 2);
  EXPECT_EQ(back->getButtonMask(), 1);
  EXPECT_EQ(back->getModifierMask(), 4);
  EXPECT_EQ(back->getClickCount(), 2);
  EXPECT_EQ(back->getPosition(), Point(-7, 8));
  EXPECT_EQ(back->getTimestamp(), 12.0);
}

TEST(EventPropertyList, AWheelSharesTheMouseFormAndReadsBackAsAMouseRecordOfTypeWheel) {
  auto dictionary = dictionaryOf(*WheelEvent::create(Wheel, 4, 1, Point(3, 4), 2));
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->size(), 7u);
  EXPECT_EQ(dictionary->findValue("type")->toDouble(), 5.0);
  EXPECT_EQ(dictionary->findValue("button")->toDouble(), 0.0);
  EXPECT_EQ(dictionary->findValue("buttonMask")->toDouble(), 4.0);
  EXPECT_EQ(dictionary->findValue("modifierMask")->toDouble(), 1.0);
  EXPECT_EQ(dictionary->findValue("clickCount")->toDouble(), 0.0);
  EXPECT_EQ(dictionary->findValue("timestamp")->toDouble(), 0.0);
  auto back = ru::dynamicCast<MouseEvent>(asEvent(dictionary));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->getType(), Wheel);
  EXPECT_EQ(back->getButtonMask(), 4);
  EXPECT_EQ(back->getPosition(), Point(3, 4));
}

TEST(EventPropertyList, APenEventKeepsTheFractionsOfItsTimeAndPressure) {
  PenEvent pen(PenUp, Point(1, 2), 3.75, 0.5f, true);
  auto dictionary = dictionaryOf(pen);
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->size(), 5u);
  auto back = ru::dynamicCast<PenEvent>(asEvent(dictionary));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->getType(), PenUp);
  EXPECT_EQ(back->getPosition(), Point(1, 2));
  EXPECT_EQ(back->getTimestamp(), 3.75);
  EXPECT_EQ(back->getPressure(), 0.5f);
  EXPECT_TRUE(back->isErase());
}

TEST(EventPropertyList, ATouchEventWritesItsTouchesAndReadsThemBack) {
  TouchMap touches;
  touches[4] = new Touch(4, Point(40, 41), Point(39, 40), 2, TouchMoved, 1.5);
  auto dictionary = dictionaryOf(TouchEvent(touches));
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->size(), 2u);
  auto back = ru::dynamicCast<TouchEvent>(asEvent(dictionary));
  ASSERT_TRUE(back);
  ASSERT_TRUE(back->find(4));
  EXPECT_FALSE(*back->find(4) != *touches[4]);
}

TEST(EventPropertyList, KeyAndHoverEventsHaveNoPropertyListForm) {
  EXPECT_FALSE(asPList(*KeyEvent::create(KeyPress, KeyA, false, 0)));
  EXPECT_FALSE(asPList(*MouseEvent::create(MouseHover, 0, 0, 0, 0, Point(), 0.0)));
  ru::Reference<voPLST::Dictionary> key(new voPLST::Dictionary);
  key->setDouble("type", KeyPress);
  EXPECT_FALSE(asEvent(key));
  key->setDouble("type", MouseHover);
  EXPECT_FALSE(asEvent(key));
}

TEST(EventPropertyList, MissingKeysGiveANullEvent) {
  for (const char* key : {"type", "button", "buttonMask", "modifierMask", "clickCount", "position", "timestamp"}) {
    auto dictionary = mouseDictionary();
    dictionary->remove(key);
    EXPECT_FALSE(asEvent(dictionary)) << key;
  }
  for (const char* key : {"position", "timestamp", "pressure", "erase"}) {
    auto dictionary = dictionaryOf(PenEvent(PenDown, Point(), 0.0, 0.0f, false));
    dictionary->remove(key);
    EXPECT_FALSE(asEvent(dictionary)) << key;
  }
  ru::Reference<voPLST::Dictionary> touch(new voPLST::Dictionary);
  touch->setDouble("type", ScrenTouch);
  EXPECT_FALSE(asEvent(touch));
}

TEST(EventPropertyList, WronglyTypedValuesGiveANullEvent) {
  auto stringType = mouseDictionary();
  stringType->setString("type", "1");
  EXPECT_FALSE(asEvent(stringType));
  auto boolButton = mouseDictionary();
  boolButton->setBool("button", true);
  EXPECT_FALSE(asEvent(boolButton));
  auto scalarPosition = mouseDictionary();
  scalarPosition->setDouble("position", 3.0);
  EXPECT_FALSE(asEvent(scalarPosition));
  auto shortPosition = mouseDictionary();
  ru::Reference<voPLST::Array> one(new voPLST::Array);
  one->appendDouble(1.0);
  shortPosition->set("position", one);
  EXPECT_FALSE(asEvent(shortPosition));
  auto stringCoordinate = mouseDictionary();
  ru::Reference<voPLST::Array> mixed(new voPLST::Array);
  mixed->appendDouble(1.0);
  mixed->append(new voPLST::String("2"));
  stringCoordinate->set("position", mixed);
  EXPECT_FALSE(asEvent(stringCoordinate));
  auto hugeButton = mouseDictionary();
  hugeButton->setDouble("button", 1e300);
  EXPECT_FALSE(asEvent(hugeButton));
  auto pen = dictionaryOf(PenEvent(PenDown, Point(), 0.0, 0.0f, false));
  pen->setDouble("erase", 1.0);
  EXPECT_FALSE(asEvent(pen));
  ru::Reference<voPLST::Dictionary> touch(new voPLST::Dictionary);
  touch->setDouble("type", ScrenTouch);
  ru::Reference<voPLST::Array> touches(new voPLST::Array);
  touches->appendDouble(1.0);
  touch->set("touches", touches);
  EXPECT_FALSE(asEvent(touch));
  ru::Reference<voPLST::Array> notADictionary(new voPLST::Array);
  EXPECT_FALSE(asEvent(notADictionary));
  EXPECT_FALSE(asEvent(nullptr));
}

TEST(EventPropertyList, UnknownTypeNumbersGiveANullEvent) {
  for (double type : {0.0, 14.0, 99.0, -1.0, 1e12}) {
    auto dictionary = mouseDictionary();
    dictionary->setDouble("type", type);
    EXPECT_FALSE(asEvent(dictionary)) << type;
  }
  auto fractional = mouseDictionary();
  fractional->setDouble("type", 3.9);  // truncated: a move
  auto move = asEvent(fractional);
  ASSERT_TRUE(move);
  EXPECT_EQ(move->getType(), MouseMove);
}

TEST(EventPropertyList, APenPressureAFloatCannotHoldGivesANullEvent) {
  for (double pressure : {1e300, -1e39}) {
    auto dictionary = dictionaryOf(PenEvent(PenDown, Point(), 0.0, 0.5f, false));
    dictionary->setDouble("pressure", pressure);
    EXPECT_FALSE(asEvent(dictionary)) << pressure;
  }
  auto dictionary = dictionaryOf(PenEvent(PenDown, Point(), 0.0, 0.5f, false));
  dictionary->setDouble("pressure", 3e38);
  EXPECT_TRUE(asEvent(dictionary));
}
