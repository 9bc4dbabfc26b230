#include "platform/base/containers.h"
#include "platform/base/signal.h"

#include <benchmark/benchmark.h>

namespace {

struct Receiver : ruRTB::SignalClient {
  long total = 0;
  void onValue(int value) { total += value; }
};

// Emission to a few member-function slots: the cost every event and frame pays.
void BM_SignalEmitToFourSlots(benchmark::State& state) {
  ruRTB::SignalArg<int> signal;
  Receiver receivers[4];
  for (auto& receiver : receivers) signal.connect(&receiver, &Receiver::onValue, receiver);
  int value = 0;
  for (auto _ : state) signal.emit(++value);
  benchmark::DoNotOptimize(receivers[0].total);
}
BENCHMARK(BM_SignalEmitToFourSlots);

void BM_SignalEmitUnconnected(benchmark::State& state) {
  ruRTB::SignalArg<int> signal;
  int value = 0;
  for (auto _ : state) signal.emit(++value);
  benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_SignalEmitUnconnected);

void BM_SetInsertEraseFromBlocks(benchmark::State& state) {
  for (auto _ : state) {
    ru::set<int> set;
    for (int i = 0; i < 1000; ++i) set.insert((i * 7919) % 1000);
    for (int i = 0; i < 1000; i += 2) set.erase(i);
    benchmark::DoNotOptimize(set.size());
  }
}
BENCHMARK(BM_SetInsertEraseFromBlocks);

}  // namespace
