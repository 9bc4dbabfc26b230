#include "platform/base/signal.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Recorder : ruRTB::SignalClient {
  std::vector<std::string> calls;
  void onInt(int value) { calls.push_back("int " + std::to_string(value)); }
  void onVoid() { calls.push_back("void"); }
  void onPair(int a, const std::string& b) { calls.push_back(std::to_string(a) + b); }
};

// Owner of a signal, so that a slot can delete the owner during the emission.
struct Owner {
  ruRTB::SignalArg<int> sig;
};

}  // namespace

TEST(Signal, CallsConnectionsOldestFirstWithTheArguments) {
  ruRTB::Signal2Args<int, const std::string&> signal;
  Recorder a, b;
  signal.connect(&a, &Recorder::onPair, a);
  signal.connect(&b, &Recorder::onPair, b);
  std::vector<int> order;
  signal.addCallback([&](int, const std::string&) { order.push_back(1); });
  signal.addCallback([&](int, const std::string&) { order.push_back(2); });
  signal.emit(4, "x");
  signal(5, "y");
  EXPECT_EQ(a.calls, (std::vector<std::string>{"4x", "5y"}));
  EXPECT_EQ(b.calls, (std::vector<std::string>{"4x", "5y"}));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 1, 2}));
}

TEST(Signal, SlotMayIgnoreTheArguments) {
  ruRTB::SignalArg<int> signal;
  Recorder recorder;
  signal.connect(&recorder, &Recorder::onVoid, recorder);
  signal.emit(3);
  EXPECT_EQ(recorder.calls, std::vector<std::string>{"void"});
}

TEST(Signal, ReferenceArgumentsPassThroughUnchanged) {
  ruRTB::SignalArg<std::vector<int>&> signal;
  signal.addCallback([](std::vector<int>& v) { v.push_back(1); });
  std::vector<int> value;
  signal.emit(value);
  EXPECT_EQ(value.size(), 1u);
}

TEST(Signal, CountsConnectionsAndTellsIfConnected) {
  ruRTB::SignalVoid signal;
  EXPECT_FALSE(signal.isConnected());
  EXPECT_EQ(signal.numConnections(), 0);
  Recorder recorder;
  ruRTB::Connection* first = signal.connect(&recorder, &Recorder::onVoid, recorder);
  signal.connect(&recorder, &Recorder::onVoid, recorder);  // no de-duplication
  EXPECT_EQ(signal.numConnections(), 2);
  EXPECT_TRUE(signal.isConnected());
  signal.disconnect(first);
  EXPECT_EQ(signal.numConnections(), 1);
  signal.emit();
  EXPECT_EQ(recorder.calls.size(), 1u);
}

TEST(Signal, DisconnectByClientEndsOnlyThatClientsConnections) {
  ruRTB::SignalVoid signal;
  Recorder a, b;
  signal.connect(&a, &Recorder::onVoid, a);
  signal.connect(&b, &Recorder::onVoid, b);
  signal.connect(&a, &Recorder::onVoid, a);
  signal.disconnect(a);
  EXPECT_EQ(signal.numConnections(), 1);
  signal.emit();
  EXPECT_TRUE(a.calls.empty());
  EXPECT_EQ(b.calls.size(), 1u);
  EXPECT_EQ(a.numConnections(), 0);
  EXPECT_EQ(b.numConnections(), 1);
}

TEST(Signal, ForeignConnectionHandleIsIgnored) {
  ruRTB::SignalVoid one, two;
  Recorder recorder;
  ruRTB::Connection* connection = one.connect(&recorder, &Recorder::onVoid, recorder);
  two.disconnect(connection);
  two.disconnect(static_cast<ruRTB::Connection*>(nullptr));
  EXPECT_EQ(one.numConnections(), 1);
}

TEST(Signal, SlotDisconnectingItselfIsNotCalledAgain) {
  ruRTB::SignalVoid signal;
  int calls = 0;
  ruRTB::Connection* self = nullptr;
  self = signal.addCallback([&] {
    ++calls;
    signal.disconnect(self);
  });
  int after = 0;
  signal.addCallback([&] { ++after; });
  signal.emit();
  signal.emit();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(after, 2);
}

TEST(Signal, SlotDisconnectingALaterSlotStopsItInTheSameEmission) {
  ruRTB::SignalVoid signal;
  ruRTB::Connection* later = nullptr;
  int laterCalls = 0;
  signal.addCallback([&] { signal.disconnect(later); });
  later = signal.addCallback([&] { ++laterCalls; });
  signal.emit();
  EXPECT_EQ(laterCalls, 0);
  EXPECT_EQ(signal.numConnections(), 1);
}

TEST(Signal, SlotDisconnectingAnEarlierSlotLetsTheRestRun) {
  ruRTB::SignalVoid signal;
  ruRTB::Connection* earlier = nullptr;
  std::vector<int> calls;
  earlier = signal.addCallback([&] { calls.push_back(1); });
  signal.addCallback([&] {
    calls.push_back(2);
    signal.disconnect(earlier);
    earlier = nullptr;  // the handle ends with its connection
  });
  signal.addCallback([&] { calls.push_back(3); });
  signal.emit();
  signal.emit();
  EXPECT_EQ(calls, (std::vector<int>{1, 2, 3, 2, 3}));
}

TEST(Signal, SlotConnectedDuringAnEmissionIsCalledFromTheNextOne) {
  ruRTB::SignalVoid signal;
  int added = 0;
  bool connectedOnce = false;
  signal.addCallback([&] {
    if (!connectedOnce) {
      connectedOnce = true;
      signal.addCallback([&] { ++added; });
    }
  });
  signal.emit();
  EXPECT_EQ(added, 0);
  signal.emit();
  EXPECT_EQ(added, 1);
}

TEST(Signal, NestedEmissionCallsEverySlotAgain) {
  ruRTB::SignalArg<int> signal;
  std::vector<std::string> calls;
  signal.addCallback([&](int depth) {
    calls.push_back("a" + std::to_string(depth));
    if (depth == 0) signal.emit(1);
  });
  signal.addCallback([&](int depth) { calls.push_back("b" + std::to_string(depth)); });
  signal.emit(0);
  EXPECT_EQ(calls, (std::vector<std::string>{"a0", "a1", "b1", "b0"}));
}

TEST(Signal, NestedEmissionSeesASlotConnectedByTheOuterOne) {
  ruRTB::SignalArg<int> signal;
  int late = 0;
  signal.addCallback([&](int depth) {
    if (depth == 0) {
      signal.addCallback([&](int) { ++late; });
      signal.emit(1);
    }
  });
  signal.emit(0);
  EXPECT_EQ(late, 1);  // called by the inner emission only
}

TEST(Signal, SlotDeletingTheSignalsOwnerEndsTheEmissionSafely) {
  auto* owner = new Owner;
  int later = 0;
  owner->sig.addCallback([&](int) { delete owner; });
  owner->sig.addCallback([&](int) { ++later; });
  owner->sig.emit(1);
  EXPECT_EQ(later, 0);
}

TEST(Signal, SlotDeletingTheOwnerDuringANestedEmissionEndsBoth) {
  auto* owner = new Owner;
  std::vector<int> calls;
  owner->sig.addCallback([&](int depth) {
    calls.push_back(depth);
    if (depth == 0) {
      owner->sig.emit(1);
    } else {
      delete owner;
    }
  });
  owner->sig.addCallback([&](int depth) { calls.push_back(10 + depth); });
  owner->sig.emit(0);
  EXPECT_EQ(calls, (std::vector<int>{0, 1}));
}

TEST(Signal, ClientDyingWhileConnectedEndsItsConnections) {
  ruRTB::SignalVoid signal;
  {
    Recorder recorder;
    signal.connect(&recorder, &Recorder::onVoid, recorder);
    EXPECT_EQ(signal.numConnections(), 1);
  }
  EXPECT_EQ(signal.numConnections(), 0);
  signal.emit();  // must not reach the dead client
}

TEST(Signal, ClientDyingDuringTheEmissionIsNotCalledAfterwards) {
  ruRTB::SignalVoid signal;
  auto victim = std::make_unique<Recorder>();
  signal.addCallback([&] { victim.reset(); });
  signal.connect(victim.get(), &Recorder::onVoid, *victim);
  signal.emit();
  EXPECT_EQ(signal.numConnections(), 1);
}

TEST(Signal, SignalDyingFirstDetachesFromItsClients) {
  Recorder recorder;
  {
    ruRTB::SignalVoid signal;
    signal.connect(&recorder, &Recorder::onVoid, recorder);
    EXPECT_EQ(recorder.numConnections(), 1);
  }
  EXPECT_EQ(recorder.numConnections(), 0);
}

TEST(Signal, CopiesCarryNoConnections) {
  ruRTB::SignalVoid signal;
  Recorder recorder;
  signal.connect(&recorder, &Recorder::onVoid, recorder);
  ruRTB::SignalVoid copy(signal);
  EXPECT_EQ(copy.numConnections(), 0);
  ruRTB::SignalVoid assigned;
  assigned.connect(&recorder, &Recorder::onVoid, recorder);
  assigned = signal;
  EXPECT_EQ(assigned.numConnections(), 1);  // assignment keeps the target's own
  Recorder clientCopy(recorder);
  EXPECT_EQ(clientCopy.numConnections(), 0);
}

TEST(Signal, CallableIsDestroyedWhenItsConnectionEnds) {
  auto token = std::make_shared<int>(0);
  ruRTB::SignalVoid signal;
  ruRTB::Connection* connection = signal.addCallback([token] {});
  EXPECT_EQ(token.use_count(), 2);
  signal.disconnect(connection);
  EXPECT_EQ(token.use_count(), 1);
  {
    Recorder client;
    signal.addCallback([token] {}, client);
    EXPECT_EQ(token.use_count(), 2);
  }
  EXPECT_EQ(token.use_count(), 1);
}

TEST(Signal, CallableEndingItselfIsDestroyedAfterItReturns) {
  auto token = std::make_shared<int>(0);
  ruRTB::SignalVoid signal;
  ruRTB::Connection* self = nullptr;
  long countDuring = 0;
  self = signal.addCallback([&, token] {
    signal.disconnect(self);
    countDuring = token.use_count();  // still alive here
  });
  signal.emit();
  EXPECT_EQ(countDuring, 2);
  EXPECT_EQ(token.use_count(), 1);
}

TEST(Signal, ExceptionPassesThroughAndLeavesTheSignalUsable) {
  ruRTB::SignalVoid signal;
  ruRTB::Connection* thrower = nullptr;
  int calls = 0;
  thrower = signal.addCallback([&] {
    signal.disconnect(thrower);
    throw std::runtime_error("boom");
  });
  signal.addCallback([&] { ++calls; });
  EXPECT_THROW(signal.emit(), std::runtime_error);
  signal.emit();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(signal.numConnections(), 1);
}

TEST(Signal, EmissionFromADestructorReachesTheSlots) {
  struct Dying {
    ruRTB::SignalArg<Dying*> sigDestroying;
    ~Dying() { sigDestroying.emit(this); }
  };
  Dying* seen = nullptr;
  auto* dying = new Dying;
  dying->sigDestroying.addCallback([&](Dying* d) { seen = d; });
  delete dying;
  EXPECT_EQ(seen, dying);
}

TEST(Signal, DisconnectAllFromAClientInsideAnEmission) {
  ruRTB::SignalVoid signal;
  Recorder a;
  int calls = 0;
  signal.addCallback([&] { a.disconnectAll(); });
  signal.connect(&a, &Recorder::onVoid, a);
  signal.addCallback([&] { ++calls; });
  signal.emit();
  EXPECT_TRUE(a.calls.empty());
  EXPECT_EQ(calls, 1);
}

TEST(Signal, DeletingACallableThatOwnsAnotherConnectionIsSafe) {
  // The second callable holds a client; ending its connection destroys that client, which ends a
  // third connection of the same signal.
  ruRTB::SignalVoid signal;
  auto client = std::make_shared<Recorder>();
  ruRTB::Connection* second = signal.addCallback([client] {});
  signal.connect(client.get(), &Recorder::onVoid, *client);
  client.reset();
  EXPECT_EQ(signal.numConnections(), 2);
  signal.disconnect(second);
  EXPECT_EQ(signal.numConnections(), 0);
}
