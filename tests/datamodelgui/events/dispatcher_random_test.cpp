// Long random mixes of mouse, wheel, motion, hover and key input with random time steps and random
// gesture lists, dispatched to a few clients, with the delivery rules checked after every step.
#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/touchgesture.h"

#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace voEV;

namespace {

struct Model;

// A client that reports every call to the model, which checks it.
class CheckingClient : public Client {
public:
  CheckingClient(Dispatcher& dispatcher, Model& model, int id, bool eavesdrops, double acceptance, bool takesPlain,
                 std::mt19937& random, bool multiTouch = false)
      : Client(dispatcher, multiTouch, false),
        model_(model),
        id_(id),
        eavesdrops_(eavesdrops),
        acceptance_(acceptance),
        takesPlain_(takesPlain),
        random_(random) {}

  bool wantsInteraction(InteractionType, const Event&) override;
  void interactionStarted(InteractionType, const Event&) override;
  void interaction(InteractionType, const Event&) override;
  void interactionFinished(InteractionType, const Event&) override;
  bool mouseMotion(const MouseEvent&) override { return takesPlain_; }
  bool mouseHover(const MouseEvent&) override { return takesPlain_; }
  bool keyState(const KeyEvent&) override { return takesPlain_; }
  bool wheel(const WheelEvent&) override { return takesPlain_; }

  using Client::lockFocus;
  using Client::unlockFocus;
  int id() const noexcept { return id_; }

private:
  bool eavesdropping() const override { return eavesdrops_; }

  Model& model_;
  int id_;
  bool eavesdrops_;
  double acceptance_;
  bool takesPlain_;
  std::mt19937& random_;
};

// What the clients have been told so far, and the rules it must keep.
struct Model {
  Dispatcher* dispatcher = nullptr;
  CheckingClient* open = nullptr;  // the client inside an interaction: started, not yet finished
  bool restartAllowed = false;     // a tick recognised an interaction since the last start
  std::vector<std::string> errors;
  int starts = 0, progress = 0, finishes = 0, eavesdropped = 0, restarts = 0;

  void fail(const std::string& what) {
    if (errors.size() < 20) errors.push_back(what);
  }

  void started(CheckingClient* client) {
    ++starts;
    if (client != dispatcher->focus()) fail("interactionStarted to a client that is not the focus");
    if (open) {
      // Only a tick that recognised the interaction again may start it anew.
      if (!restartAllowed) fail("a second interactionStarted without interactionFinished");
      ++restarts;
    }
    restartAllowed = false;
    open = client;
  }
  void interaction(CheckingClient* client) {
    if (client == open) {
      ++progress;
      return;
    }
    // Eavesdroppers are served before the focus, so in a start batch they hear of it first.
    if (!dispatcher->focus()) fail("interaction with nobody holding the focus");
    if (client == dispatcher->focus()) fail("interaction to the focus outside its interaction");
    if (!client->isEavesdropping()) fail("interaction to a client that neither holds it nor eavesdrops");
    ++eavesdropped;
  }
  void finished(CheckingClient* client) {
    ++finishes;
    if (client != open) fail("interactionFinished to a client that did not start it");
    if (client != dispatcher->focus()) fail("interactionFinished to a client that is not the focus");
    open = nullptr;
  }
};

bool CheckingClient::wantsInteraction(InteractionType, const Event&) {
  return std::uniform_real_distribution<double>(0.0, 1.0)(random_) < acceptance_;
}
void CheckingClient::interactionStarted(InteractionType, const Event&) { model_.started(this); }
void CheckingClient::interaction(InteractionType, const Event&) { model_.interaction(this); }
void CheckingClient::interactionFinished(InteractionType, const Event&) { model_.finished(this); }

// The user at the keyboard and mouse: what is held, and where the pointer is.
struct User {
  int buttons = 0;
  ru::vector<KeyCode> keys;
  Point at{300, 300};
  // Fingers on the screen by id, and the pen.
  std::map<int, Point> fingers;
  int nextFinger = 1;
  bool penDown = false;
  Point penAt{200, 200};
};

// One random touch event from the fingers on the screen: maybe a finger lands, maybe one lifts or is
// cancelled, the others move a little or stay; sometimes with samples in between or a logical start.
ru::Reference<TouchEvent> randomTouch(User& user, double time, std::mt19937& random) {
  auto chance = [&](double p) { return std::uniform_real_distribution<double>(0.0, 1.0)(random) < p; };
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
  TouchMap touches;
  const int landing = (user.fingers.size() < 4 && (user.fingers.empty() || chance(0.3))) ? user.nextFinger++ : 0;
  const int lifting = (!user.fingers.empty() && chance(0.3)) ? std::next(user.fingers.begin(), pick(int(user.fingers.size())))->first : 0;
  const bool cancel = chance(0.1);
  for (auto& [id, at] : user.fingers) {
    const Point before = at;
    TouchPhase phase = TouchStationary;
    if (chance(0.5)) {
      const int reach = chance(0.5) ? 2 : 40;
      at = Point(at.x + pick(2 * reach + 1) - reach, at.y + pick(2 * reach + 1) - reach);
      phase = TouchMoved;
    }
    if (id == lifting) phase = cancel ? TouchCancelled : TouchEnded;
    touches[id] = new Touch(id, at, before, 1, phase, time);
  }
  if (landing) {
    const Point at(100 + pick(400), 100 + pick(400));
    touches[landing] = new Touch(landing, at, at, 1, TouchBegan, time);
    user.fingers[landing] = at;
  }
  ru::Reference<HistoricalTouchData> history;
  if (chance(0.2) && !touches.empty()) {
    const int samples = 1 + pick(3);
    ru::vector<HistoricalTouch> records;
    for (int s = 0; s < samples; ++s) {
      for (const auto& [id, touch] : touches) {
        // Now and then a sample misses a finger, as some platforms report them.
        if (chance(0.05)) continue;
        records.push_back({id, touch->getPosition(), time - 0.01 * (samples - s)});
      }
    }
    if (!records.empty()) history = new HistoricalTouchData(samples, records);
  }
  ru::Reference<TouchEvent> event(new TouchEvent(touches, history));
  if (chance(0.05)) event->setLogicalInteractionStart();
  if (lifting) user.fingers.erase(lifting);
  return event;
}

ru::Reference<PenEvent> randomPen(User& user, double time, std::mt19937& random) {
  auto chance = [&](double p) { return std::uniform_real_distribution<double>(0.0, 1.0)(random) < p; };
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
  ru::Reference<HistoricalPenData> history;
  if (chance(0.3)) {
    ru::vector<HistoricalPenEvent> samples;
    const int n = pick(4);  // possibly none at all
    for (int s = 0; s < n; ++s) {
      samples.push_back({Point(user.penAt.x + pick(11) - 5, user.penAt.y + pick(11) - 5), time - 0.01 * (n - s), 0.5f});
    }
    history = new HistoricalPenData(samples);
  }
  EventType type = PenMove;
  if (!user.penDown) {
    type = chance(0.2) ? PenHover : PenDown;
  } else if (chance(0.3)) {
    type = PenUp;
  }
  if (type == PenMove || chance(0.2)) {
    const int reach = chance(0.5) ? 2 : 30;
    user.penAt = Point(user.penAt.x + pick(2 * reach + 1) - reach, user.penAt.y + pick(2 * reach + 1) - reach);
  }
  if (type == PenDown) user.penDown = true;
  if (type == PenUp) user.penDown = false;
  return ru::Reference<PenEvent>(new PenEvent(type, user.penAt, time, 0.5f, false, history));
}

const KeyCode keyPool[] = {KeyA, KeyC, KeyEscape, KeySpace, KeyF1};
// Modifier masks of the random keys; Ctrl alone starts interactions without a finish and has a
// scripted test of its own.
const int modifierPool[] = {0, ModifierShift, ModifierAlt, ModifierCtrl | ModifierShift, ModifierMeta};

struct RunTotals {
  int steps = 0, starts = 0, progress = 0, finishes = 0, eavesdropped = 0, restarts = 0;
};

void runSession(std::mt19937& random, int steps, RunTotals& totals, std::vector<std::string>& errors,
                bool touchAndPen = false) {
  auto chance = [&](double p) { return std::uniform_real_distribution<double>(0.0, 1.0)(random) < p; };
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };

  testhost::TestHost host;
  Model model;
  model.dispatcher = &host.dispatcher();

  // A random gesture list, in a random order.
  std::vector<ru::Reference<Gesture>> gestures;
  if (chance(0.85)) gestures.push_back(new ClickMouse);
  if (chance(0.85)) gestures.push_back(new DragMouse);
  if (chance(0.7)) gestures.push_back(new PressMouse);
  if (chance(0.7)) gestures.push_back(new KeyClick({KeyC, KeyEscape, KeySpace}));
  if (touchAndPen) {
    gestures.push_back(new TapTouch);
    gestures.push_back(new DragTouch);
    gestures.push_back(new DblTapTouch);
    gestures.push_back(new TrplTapTouch);
    gestures.push_back(new DblDragTouch);
    gestures.push_back(new PressTouch);
    gestures.push_back(new DblPressTouch);
    gestures.push_back(new TapPen);
    gestures.push_back(new DragPen);
    gestures.push_back(new PressPen);
  }
  std::shuffle(gestures.begin(), gestures.end(), random);
  for (const auto& gesture : gestures) host.parser().pushBackGesture(gesture);

  // A few clients: some eavesdrop, some refuse, some take plain events.
  std::vector<std::unique_ptr<CheckingClient>> clients;
  const int count = 1 + pick(4);
  for (int i = 0; i < count; ++i) {
    const double acceptance = chance(0.3) ? 0.0 : (chance(0.5) ? 1.0 : 0.5);
    clients.push_back(std::make_unique<CheckingClient>(host.dispatcher(), model, i, chance(0.4), acceptance,
                                                       chance(0.5), random, touchAndPen && chance(0.5)));
  }

  User user;
  bool locked = false;
  for (int step = 0; step < steps; ++step) {
    ++totals.steps;
    const double time = host.now();
    const int what = pick(100);
    if (touchAndPen && chance(0.45)) {
      const int kind = pick(10);
      if (kind < 6) {
        host.dispatch(*randomTouch(user, time, random));
      } else if (kind < 9) {
        host.dispatch(*randomPen(user, time, random));
      } else {
        // The host closes whatever pen or touch interaction runs (a window losing focus, say).
        host.dispatcher().cancelInteraction();
        user.fingers.clear();
        user.penDown = false;
      }
    } else if (what < 14) {
      // Press a button not held, here or a little away.
      const int button = 1 << pick(3);
      if (!(user.buttons & button)) {
        if (chance(0.3)) user.at = Point(user.at.x + pick(21) - 10, user.at.y + pick(21) - 10);
        user.buttons |= button;
        host.dispatch(*MouseEvent::create(MouseButtonPress, button, user.buttons, 0, 1, user.at, time));
      }
    } else if (what < 28) {
      // Release a held button, sometimes after moving.
      if (user.buttons) {
        int button = 1;
        while (!(user.buttons & button)) button <<= 1;
        if (chance(0.3)) user.at = Point(user.at.x + pick(41) - 20, user.at.y + pick(41) - 20);
        user.buttons &= ~button;
        host.dispatch(*MouseEvent::create(MouseButtonRelease, button, user.buttons, 0, 1, user.at, time));
      }
    } else if (what < 46) {
      // Move, small or large.
      const int reach = chance(0.5) ? 3 : 60;
      user.at = Point(user.at.x + pick(2 * reach + 1) - reach, user.at.y + pick(2 * reach + 1) - reach);
      host.dispatch(*MouseEvent::create(MouseMove, 0, user.buttons, 0, 0, user.at, time));
    } else if (what < 52) {
      host.dispatch(*MouseEvent::create(MouseMotion, 0, 0, 0, 0, user.at, time));
    } else if (what < 56) {
      host.dispatch(*MouseEvent::create(MouseHover, 0, 0, 0, 0, user.at, time));
    } else if (what < 60) {
      host.dispatch(*WheelEvent::create(Wheel, user.buttons, 0, user.at, pick(5) - 2));
    } else if (what < 68) {
      const KeyCode key = keyPool[pick(5)];
      const int modifiers = modifierPool[pick(5)];
      const bool held = std::find(user.keys.begin(), user.keys.end(), key) != user.keys.end();
      // A held key repeats; a free one goes down.
      if (!held) user.keys.push_back(key);
      host.dispatch(*KeyEvent::create(KeyPress, key, held, modifiers));
    } else if (what < 76) {
      if (!user.keys.empty()) {
        const std::size_t index = static_cast<std::size_t>(pick(static_cast<int>(user.keys.size())));
        const KeyCode key = user.keys[index];
        user.keys.erase(user.keys.begin() + static_cast<long>(index));
        host.dispatch(*KeyEvent::create(KeyRelease, key, false, 0));
      }
    } else if (what < 78) {
      // Lock or unlock the focus, only while nothing is going on.
      const auto state = host.parser().getState();
      const bool idle = !model.open && (state == Parser::InteractionPending || state == Parser::InteractionIgnored) &&
                        host.parser().queuedEvents().empty();
      if (idle) {
        if (locked) {
          clients[static_cast<std::size_t>(pick(count))]->unlockFocus(true);
          locked = false;
        } else {
          clients[static_cast<std::size_t>(pick(count))]->lockFocus();
          locked = true;
        }
      }
    } else {
      host.advance(std::uniform_real_distribution<double>(0.0, chance(0.2) ? 1.5 : 0.12)(random));
      // A tick that recognises an interaction makes the next event a start batch again.
      if (host.parser().getState() == Parser::InteractionStarted) model.restartAllowed = true;
    }

    // Between interactions nobody holds the focus, unless it is locked.
    if (!model.open && !host.dispatcher().isFocusLocked() && host.dispatcher().focus()) {
      model.fail("the focus is set between interactions");
    }
    if (!model.errors.empty()) break;
  }
  totals.starts += model.starts;
  totals.progress += model.progress;
  totals.finishes += model.finishes;
  totals.eavesdropped += model.eavesdropped;
  totals.restarts += model.restarts;
  for (const auto& error : model.errors) errors.push_back(error);
}

class RandomInput : public ::testing::TestWithParam<unsigned> {};

}  // namespace

TEST_P(RandomInput, EveryInteractionIsOneStartAnyProgressAndOneFinishToTheFocusAlone) {
  std::mt19937 random(GetParam());
  RunTotals totals;
  std::vector<std::string> errors;
  // Short sessions on fresh hosts: an interaction recognised on a tick never finishes (its timer
  // keeps ticking), so a long session would end up inside one.
  for (int session = 0; session < 400 && errors.empty(); ++session) runSession(random, 100, totals, errors);
  std::ostringstream summary;
  summary << "steps " << totals.steps << ", starts " << totals.starts << ", progress " << totals.progress
          << ", finishes " << totals.finishes << ", eavesdropped " << totals.eavesdropped << ", restarts "
          << totals.restarts;
  EXPECT_TRUE(errors.empty()) << errors.front() << " (" << summary.str() << ")";
  // The mix really exercised the rules.
  EXPECT_EQ(totals.steps, 400 * 100) << summary.str();
  EXPECT_GT(totals.starts, 600) << summary.str();
  EXPECT_GT(totals.finishes, 400) << summary.str();
  EXPECT_GT(totals.progress, 3000) << summary.str();
  EXPECT_GT(totals.eavesdropped, 2000) << summary.str();
  EXPECT_GT(totals.restarts, 0) << summary.str();
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomInput, ::testing::Values(1u, 7u, 42u, 1234u, 98765u, 20261123u));

class RandomTouchAndPenInput : public ::testing::TestWithParam<unsigned> {};

TEST_P(RandomTouchAndPenInput, TouchAndPenMixedWithMouseKeepTheSameDeliveryRules) {
  std::mt19937 random(GetParam());
  RunTotals totals;
  std::vector<std::string> errors;
  for (int session = 0; session < 300 && errors.empty(); ++session) runSession(random, 100, totals, errors, true);
  std::ostringstream summary;
  summary << "steps " << totals.steps << ", starts " << totals.starts << ", progress " << totals.progress
          << ", finishes " << totals.finishes << ", eavesdropped " << totals.eavesdropped << ", restarts "
          << totals.restarts;
  EXPECT_TRUE(errors.empty()) << errors.front() << " (" << summary.str() << ")";
  EXPECT_EQ(totals.steps, 300 * 100) << summary.str();
  // Interactions recognised on a tick never finish (their timer keeps ticking), so touch and pen
  // presses and drags held still end many sessions inside an interaction: fewer finishes than starts.
  EXPECT_GT(totals.starts, 200) << summary.str();
  EXPECT_GT(totals.finishes, 50) << summary.str();
  EXPECT_GT(totals.progress, 3000) << summary.str();
  EXPECT_GT(totals.restarts, 0) << summary.str();
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomTouchAndPenInput, ::testing::Values(3u, 11u, 2024u, 777u));
