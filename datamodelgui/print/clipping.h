#pragma once

#include "datamodelgui/export.h"
#include "platform/base/containers.h"
#include "platform/base/linear.h"

namespace voDMG {

// One cut-away plane of the print view: it clips what lies on the side its normal points to.
// A selection-only plane clips the selected meshes alone.
struct ClippingPlane {
  ruLinear::Plane plane;
  bool selectionOnly = false;
};

using ClippingPlaneList = ru::vector<ClippingPlane>;

// What a print surface offers the mesh drawing: its list of cut-away planes. The print mesh policy
// finds the document surface of the call info and asks it through this interface.
class DMGUI_API ClippingPlaneSource {
public:
  virtual ~ClippingPlaneSource();
  // A copy of the list, in order.
  virtual ClippingPlaneList planes() const = 0;
};

// The planes of the document surface of voSupport::ci(); empty when it has none to offer.
DMGUI_API ClippingPlaneList currentClippingPlanes();

}  // namespace voDMG
