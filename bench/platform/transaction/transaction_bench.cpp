#include "platform/transaction/transaction.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

class Item : public voTXN::Object {
public:
  explicit Item(voTXN::Manager* manager) : Object(manager) {}
  void setValue(int value) {
    txnWillWrite();
    value_ = value;
  }
  void onTransact(voTXN::Serializer& serializer) override {
    serializer.beginScope(this, 0);
    Object::onTransact(serializer);
    serializer.field(value_);
    serializer.endScope();
  }

private:
  int value_ = 0;
};

// A transacted object made, edited in the open transaction and destroyed, while the undo stack
// holds state(0) transactions of ten records each (objects that stay alive). The cost of the death
// must not follow the length of the history.
void BM_ObjectDeathWithALongHistory(benchmark::State& state) {
  voTXN::Manager manager;
  std::vector<std::unique_ptr<Item>> kept;
  for (int i = 0; i < 10; ++i) kept.push_back(std::make_unique<Item>(&manager));
  for (long t = 0; t < state.range(0); ++t) {
    manager.begin("Edit");
    for (auto& item : kept) item->setValue(static_cast<int>(t));
    manager.commit();
  }
  manager.begin("Short-lived objects");
  for (auto _ : state) {
    Item item(&manager);
    item.setValue(1);
  }
  manager.abort();
  state.counters["records"] = static_cast<double>(10 * state.range(0));
}
BENCHMARK(BM_ObjectDeathWithALongHistory)->Arg(100)->Arg(10000)->Arg(100000)->Unit(benchmark::kNanosecond);

} // namespace
