#include "datamodelgui/events/event.h"

#include "datamodelgui/events/touch.h"
#include "platform/support/plist.h"
#include "tests/fuzzing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace voEV;

namespace {

// One event of each kind that has a property-list form.
std::vector<ru::Reference<voPLST::Item>> sampleRecords() {
  std::vector<ru::Reference<voPLST::Item>> records;
  records.push_back(asPList(*MouseEvent::create(MouseButtonPress, 1, 1, 2, 1, Point(10, 20), 1.0)));
  records.push_back(asPList(*WheelEvent::create(Wheel, 0, 4, Point(3, 4), 2)));
  records.push_back(asPList(PenEvent(PenDown, Point(5, 6), 2.5, 0.75f, true)));
  TouchMap touches;
  touches[1] = new Touch(1, Point(40, 41), Point(39, 40), 1, TouchMoved, 1.5);
  touches[7] = new Touch(7, Point(-3, 9), Point(-3, 9), 2, TouchBegan, 1.5);
  records.push_back(asPList(TouchEvent(touches)));
  return records;
}

// Values of every kind, including numbers no field can hold.
ru::Reference<voPLST::Item> hostileItem(fuzz::Random& random) {
  const double inf = std::numeric_limits<double>::infinity();
  const double numbers[] = {1e300, -1e300, std::nan(""), inf, -inf, 2147483648.0, -2147483649.0, 0.5, -1, 4e38, 1e-320};
  switch (random.below(6)) {
    case 0:
    case 1: return ru::Reference<voPLST::Item>(new voPLST::Double(numbers[random.below(std::size(numbers))]));
    case 2: return ru::Reference<voPLST::Item>(new voPLST::String("1"));
    case 3: return ru::Reference<voPLST::Item>(new voPLST::Boolean(true));
    case 4: {
      ru::Reference<voPLST::Array> array(new voPLST::Array);
      for (std::size_t i = random.below(4); i > 0; --i) array->appendDouble(numbers[random.below(std::size(numbers))]);
      return array;
    }
    default: return ru::Reference<voPLST::Item>(new voPLST::Dictionary);
  }
}

// Every place in the tree that holds an item: (dictionary, key) or (array, index).
struct Slot {
  voPLST::Dictionary* dictionary = nullptr;
  ruString::CString key;
  voPLST::Array* array = nullptr;
  std::size_t index = 0;
};

void collectSlots(voPLST::Item& item, std::vector<Slot>& slots) {
  if (voPLST::Dictionary* dictionary = item.asDictionary()) {
    for (const auto& [key, child] : *dictionary) {
      slots.push_back(Slot{dictionary, key, nullptr, 0});
      collectSlots(*child, slots);
    }
  } else if (voPLST::Array* array = item.asArray()) {
    for (std::size_t i = 0; i < array->size(); ++i) {
      slots.push_back(Slot{nullptr, {}, array, i});
      collectSlots(*array->at(i), slots);
    }
  }
}

// One to three slots replaced by hostile values or removed.
ru::Reference<voPLST::Item> mutateRecord(const voPLST::Item& record, std::uint64_t seed, int index, std::string& name) {
  fuzz::Random random(seed * 1000003u + static_cast<std::uint64_t>(index));
  ru::Reference<voPLST::Item> copy = record.clone();
  const int edits = 1 + static_cast<int>(random.below(3));
  for (int e = 0; e < edits; ++e) {
    std::vector<Slot> slots;
    collectSlots(*copy, slots);
    if (slots.empty()) break;
    const Slot& slot = slots[random.below(slots.size())];
    const bool remove = random.below(5) == 0;
    ru::Reference<voPLST::Item> value = remove ? nullptr : hostileItem(random);
    const std::string what = remove ? "removed" : voPLST::toJSON(*value).str();
    if (slot.dictionary) {
      name += " " + slot.key.str() + ":" + what;
      slot.dictionary->set(slot.key, value);  // null removes
    } else if (remove) {
      name += " [" + std::to_string(slot.index) + "]:removed";
      slot.array->remove(slot.index);
    } else {
      name += " [" + std::to_string(slot.index) + "]:" + what;
      slot.array->set(slot.index, value);
    }
  }
  return copy;
}

}  // namespace

// Whatever the record, reading gives an event or null; an event read writes a record that reads
// back to an event writing the same record.
TEST(EventPropertyListFuzz, EveryMutatedRecordGivesNullOrAnEventThatRoundTrips) {
  const std::vector<ru::Reference<voPLST::Item>> records = sampleRecords();
  for (const auto& record : records) ASSERT_TRUE(record && asEvent(record));
  fuzz::Watchdog watchdog(10.0);
  int events = 0;
  const int cases = 6000;
  for (int index = 0; index < cases; ++index) {
    const voPLST::Item& record = *records[(index / 8) % records.size()];
    std::string caseName = "event case " + std::to_string(index);
    ru::Reference<voPLST::Item> item;
    if ((index / 32) % 2 == 0) {
      // Through the JSON text, as a recording on disk would be.
      const fuzz::Mutation mutation = fuzz::mutate(voPLST::toJSON(record).str(), 41, index, "{\"touches\":[");
      caseName += " (" + mutation.name + ")";
      item = voPLST::fromJSON(mutation.bytes);
    } else {
      std::string edits;
      item = mutateRecord(record, 42, index, edits);
      caseName += " (" + edits + ")";
    }
    watchdog.begin(caseName);
    ru::Reference<Event> event = asEvent(item);
    if (event) {
      ++events;
      ru::Reference<voPLST::Item> written = asPList(*event);
      ASSERT_TRUE(written) << caseName;
      ru::Reference<Event> again = asEvent(written);
      ASSERT_TRUE(again) << caseName << ": " << voPLST::toJSON(*written).c_str();
      ru::Reference<voPLST::Item> rewritten = asPList(*again);
      ASSERT_TRUE(rewritten) << caseName;
      EXPECT_TRUE(rewritten->equals(*written))
          << caseName << ": " << voPLST::toJSON(*written).c_str() << " then " << voPLST::toJSON(*rewritten).c_str();
    }
    watchdog.end();
    if (::testing::Test::HasFailure()) break;
  }
  ::testing::Test::RecordProperty("events", events);
}
