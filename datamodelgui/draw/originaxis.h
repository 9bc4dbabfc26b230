#pragma once

#include "datamodelgui/export.h"
#include "platform/resources/resources.h"

namespace voDMG {

// The three coordinate axes at the world origin as thin cylinders of unit length (x red, y green,
// z blue) drawn in x-ray, with the axis names as billboards at their tips. The host owns it and
// calls draw when it wants the axes refreshed; each draw replaces the former items. Needs the
// call info's draw system and resource loader at construction.
class DMGUI_API OriginAxisDraw {
public:
  OriginAxisDraw();
  // A copy shares the id (and frees it too: keep one of them alive at a time).
  OriginAxisDraw(const OriginAxisDraw& other);
  OriginAxisDraw& operator=(const OriginAxisDraw& other);
  ~OriginAxisDraw();

  void draw();
  int getID() const noexcept { return id_; }
  // Takes effect at the next draw.
  void setWantAxesName(bool want) noexcept { wantAxesName_ = want; }

private:
  voRES::ImageKey imageX_;
  voRES::ImageKey imageY_;
  voRES::ImageKey imageZ_;
  int id_ = -1;
  bool wantAxesName_ = true;
};

}  // namespace voDMG
