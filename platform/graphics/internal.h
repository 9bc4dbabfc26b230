#pragma once

// Private to libGraphics: how items know the worlds holding them.

#include "platform/graphics/draw.h"
#include "platform/graphics/world.h"

#include <list>

namespace voGR {

struct DrawItem::Membership {
  World* world;
  std::list<ru::Reference<DrawItem>>::iterator position;
};

// Removes the item from every world holding it.
void detachFromWorlds(DrawItem& item);

}  // namespace voGR
