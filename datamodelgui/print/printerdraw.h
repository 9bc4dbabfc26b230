#pragma once

#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/export.h"
#include "platform/base/linear.h"

#include <vector>

namespace voDMD {
class KLTPrinter;
}

namespace voDMG {

// The drawing of the printer (voDMD::KLTPrinter): the bed grid, twelve bars along the edges of the
// useable volume (red where a mesh oversteps that side) and, for a printer that is not connected,
// a wire box of the total volume. No state: each redraw builds everything from the printer.
// Items are helpers (type 2) and can not be picked.
class DMGUI_API KLTPrinterDraw : public ObjectDraw {
public:
  KLTPrinterDraw(DocumentDraw* documentDraw, voDMD::KLTPrinter* printer);
  ~KLTPrinterDraw() override;

  // The colour of a bar whose side a mesh oversteps, and of the total-volume box.
  static const ruUtil::Color kOversteppedColor;
  static const ruUtil::Color kTotalVolumeColor;

protected:
  void onDraw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
              SelectionIterator hoverBegin, SelectionIterator hoverEnd,
              ru::Reference<voGR::DrawPolicy> policy) override;
};

// The sides of the useable volume that `planes` (from voDMA::kltGetOutOfBedPlanes) name, a bit each:
// -X, +X, -Y, +Y, bottom, top (bit 0 to 5). A +Z plane within 0.01 of `bottom` is the bottom, any
// other +Z plane the top; a -Z plane, or one along no axis, names nothing.
DMGUI_API unsigned kltOversteppedSides(const std::vector<ruLinear::ParamPlane>& planes, double bottom);

// Start-up of the print classes, run by voDMG::initialize: once per broadcaster, installs the
// handlers of RegisterObjectDrawMsg (factories of printers and printable meshes, and the mesh
// policy) and of voDMD::NewDocumentMsg (a fresh mesh policy) at priority (10, 1).
DMGUI_API void initializePrintClasses();

}  // namespace voDMG
