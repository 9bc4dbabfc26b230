#include "datamodelgui/events/dispatcher.h"
#include "platform/support/debug.h"
#include "tests/testhost/testhost.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

using namespace voEV;

// A tool that follows the drag, as a move tool would.
class DragTool : public Client {
public:
  explicit DragTool(Dispatcher& dispatcher) : Client(dispatcher, false, false) {}
  bool wantsInteraction(InteractionType, const Event&) override { return true; }
  void interactionStarted(InteractionType, const Event&) override { ++starts; }
  void interaction(InteractionType, const Event& event) override { sum += position(event).x; }
  void interactionFinished(InteractionType, const Event&) override { ++finishes; }
  long sum = 0;
  int starts = 0;
  int finishes = 0;
};

constexpr int dragLength = 100000;

// One drag per iteration: a press, 100,000 MouseMove events through Dispatcher::dispatch to one
// client, and the release. The debug log is off. Reported per MouseMove event.
void BM_DispatchMouseDrag(benchmark::State& state) {
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugEvents, false);
  testhost::TestHost host;
  host.parser().pushBackGesture(new ClickMouse);
  host.parser().pushBackGesture(new DragMouse);
  host.parser().pushBackGesture(new PressMouse);
  DragTool tool(host.dispatcher());
  // The host's records, made once: building them is the host's cost, not the dispatcher's.
  std::vector<ru::Reference<MouseEvent>> moves;
  moves.reserve(dragLength);
  for (int i = 0; i < dragLength; ++i) {
    moves.push_back(MouseEvent::create(MouseMove, 0, ButtonLeft, 0, 0, Point(20 + i % 1000, 300 + i % 7), i * 0.001));
  }
  auto press = MouseEvent::create(MouseButtonPress, ButtonLeft, ButtonLeft, 0, 1, Point(0, 300), 0.0);
  auto release = MouseEvent::create(MouseButtonRelease, ButtonLeft, 0, 0, 1, Point(0, 300), 100.0);
  Dispatcher& dispatcher = host.dispatcher();
  for (auto _ : state) {
    dispatcher.dispatch(*press);
    for (const auto& move : moves) dispatcher.dispatch(*move);
    dispatcher.dispatch(*release);
  }
  benchmark::DoNotOptimize(tool.sum);
  if (tool.starts != tool.finishes || tool.starts != static_cast<int>(state.iterations())) {
    state.SkipWithError("the drags were not delivered whole");
  }
  state.SetItemsProcessed(state.iterations() * dragLength);
  // Seconds per MouseMove event, printed with an SI prefix ("110n" is 110 nanoseconds).
  state.counters["time_per_event"] = benchmark::Counter(static_cast<double>(state.iterations()) * dragLength,
                                                        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_DispatchMouseDrag)->Unit(benchmark::kMillisecond);

}  // namespace
