#pragma once

// Private to libGraphics: how items know the worlds holding them.

#include "platform/graphics/draw.h"
#include "platform/graphics/pickindex.h"
#include "platform/graphics/world.h"

#include <list>

namespace voGR {

struct DrawItem::Membership {
  World* world;
  std::list<ru::Reference<DrawItem>>::iterator position;
  // The item's slot in the world's pick index, -1 for none.
  int pickSlot = -1;
};

// The index of the pickable items of a database (see PickIndex).
PickIndex& pickIndexOf(const Database& database);

// Removes the item from every world holding it.
void detachFromWorlds(DrawItem& item);

}  // namespace voGR
