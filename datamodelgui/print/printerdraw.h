#pragma once

#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/export.h"

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

// Start-up of the print classes, run by voDMG::initialize: once per broadcaster, installs the
// handlers of RegisterObjectDrawMsg (factories of printers and printable meshes, and the mesh
// policy) and of voDMD::NewDocumentMsg (a fresh mesh policy) at priority (10, 1).
DMGUI_API void initializePrintClasses();

}  // namespace voDMG
