#pragma once

#include "datamodelgui/export.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/base/strings.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/text.h"
#include "platform/resources/resources.h"

namespace ruGeom {
class Camera;
}

namespace voGR {
class DashedShader;
}

// Small on-screen aids of tools and helpers: billboards (images and text that face the camera and
// keep their size in pixels), images lying on a plane, and dashed lines. All are sized by one rule:
// at the depth of a point, one local unit is one pixel.
namespace voDMG {

// Which image an affordance shows.
enum AffordanceState : int { AffordanceDefault = 0, AffordanceHighlight = 1, AffordanceSelected = 2 };
// Corner puts the anchor at the image's corner (moved by half its size); any other value centres
// the image on the anchor.
enum AffordanceAlignment : int { AffordanceCentred = 0, AffordanceCorner = 1 };

// World units per pixel at `point` for `camera`.
DMGUI_API double getScreenSpaceScale(const ruGeom::Camera& camera, const ruLinear::Point& point);
// The same with the camera of the call context (1.0 without one).
DMGUI_API double getScreenSpaceScale(const ruLinear::Point& point);
// The world ray through a viewport point of the call context's camera (a default line without one).
DMGUI_API ruLinear::Line getWorldSpaceRay(const ruLinear::Point2& viewportPosition);
// Emits `image` as a billboard at `position`, moved by `offset` pixels on the screen. Leaves the
// space at 0.
DMGUI_API void drawBillboard(voGR::Draw& draw, const voRES::ImageKey& image, const ruLinear::Point& position,
                             const ruLinear::Vector& offset);

// Emits `text` as a billboard at `position` (taken through the Draw's transform): one local unit a
// pixel, facing the camera, placed by `layout` against the anchor. Leaves the space at 0.
DMGUI_API void drawText(voGR::Draw& draw, const ruString::IString& text, const ruLinear::Point& position,
                        const voGR::Font& font, voGR::TextLayout layout);

// An image with "default", "highlight" and "selected" states, from the call context's loader.
class DMGUI_API ImageAffordance : public ru::ReferenceCount {
public:
  explicit ImageAffordance(const ruString::CString& name);
  ImageAffordance(const ImageAffordance& other);
  ImageAffordance& operator=(const ImageAffordance& other);

  // An unknown state keeps the current image; a state without an image shows the default one.
  void setState(AffordanceState state);
  void setState(int state) { setState(static_cast<AffordanceState>(state)); }
  const voRES::ImageKey& getCurrentImage() const noexcept { return currentImage_; }
  const voRES::ImageKey& getDefaultImage() const noexcept { return defaultImage_; }

protected:
  ~ImageAffordance() override;

  voRES::ImageKey currentImage_;
  voRES::ImageKey defaultImage_;
  voRES::ImageKey highlightImage_;
  voRES::ImageKey selectedImage_;
};

// A billboard image anchored at a world point.
class DMGUI_API ImageAtPoint : public ImageAffordance {
public:
  ImageAtPoint(const ruString::CString& name, AffordanceAlignment alignment);
  // The alignment by its value, as scripts give it.
  ImageAtPoint(const ruString::CString& name, int alignment)
      : ImageAtPoint(name, static_cast<AffordanceAlignment>(alignment)) {}
  ImageAtPoint(const ImageAtPoint& other);
  ImageAtPoint& operator=(const ImageAtPoint& other);

  void setWorldPosition(const ruLinear::Point& position) noexcept { worldPosition_ = position; }
  void setScreenOffset(double x, double y) noexcept { screenOffsetX_ = x, screenOffsetY_ = y; }
  // The offset in pixels drawBillboard gets: the screen offset, plus half the image with the
  // corner alignment.
  ruLinear::Vector getOffset() const;
  void draw(voGR::Draw& draw);

protected:
  ~ImageAtPoint() override;

private:
  AffordanceAlignment alignment_;
  double screenOffsetX_ = 0.0;
  double screenOffsetY_ = 0.0;
  ruLinear::Point worldPosition_;
};

// An image lying on a plane (it does not turn to the camera), sized in pixels, lifted along the
// plane's normal by a fraction of its distance to the eye and drawn in x-ray.
class DMGUI_API ImageOnPlane : public ImageAffordance {
public:
  ImageOnPlane(const ruString::CString& name, int label, const ruLinear::Point2& position, double normalOffset);
  ImageOnPlane(const ruString::CString& name, int label, double x, double y, double normalOffset);
  ImageOnPlane(const ImageOnPlane& other);
  ImageOnPlane& operator=(const ImageOnPlane& other);

  void setPlane(const ruLinear::ParamPlane& plane) noexcept { plane_ = plane; }
  void setPosition(const ruLinear::Point2& position) noexcept { position_ = position; }
  void setRotate(double degrees);
  double getRotation() const noexcept { return rotation_; }
  ruLinear::Point origin() const { return plane_.getOrigin(); }
  void draw(voGR::Draw& draw);
  void draw(voGR::Draw& draw, const ruLinear::ParamPlane& carrier);

protected:
  ~ImageOnPlane() override;

private:
  int label_;
  ruLinear::ParamPlane plane_;
  ruLinear::Point2 position_;
  double normalOffset_;
  double rotation_ = 0.0;
};

// A dashed line 600 pixels long at the depth of its point. Once its pattern origin is locked the
// dashes stay put in the world while the line's point slides along it.
class DMGUI_API DashedLine : public ru::ReferenceCount {
public:
  DashedLine();
  DashedLine(const DashedLine& other);
  DashedLine& operator=(const DashedLine& other);

  void setLine(const ruLinear::Line& line) noexcept { line_ = line; }
  void lockPatternOrigin(const ruLinear::Point& origin) noexcept { patternOrigin_ = origin, patternLocked_ = true; }
  void draw(voGR::Draw& draw);
  const ru::Reference<voGR::DashedShader>& getShader() const noexcept { return shader_; }

protected:
  ~DashedLine() override;

private:
  ruLinear::Line line_;
  ruLinear::Point patternOrigin_;
  bool patternLocked_ = false;
  ru::Reference<voGR::DashedShader> shader_;
};

// Places a billboard: rotates local coordinates into the camera's frame, scales one local unit to
// one pixel at the anchor's depth, and moves it to the anchor plus a screen offset. It follows the
// call context's camera through its change signal, so a camera move needs no re-emission;
// evaluate() is a copy.
class DMGUI_API BillboardTransformer : public voGR::Transformer {
public:
  BillboardTransformer(const ruLinear::Point& position, const ruLinear::Vector& screenOffset);
  ruLinear::AffineMatrix evaluate() const override { return matrix_; }
  void onCameraChange(ruGeom::Camera* camera);

protected:
  ~BillboardTransformer() override;

private:
  ruRTB::SignalClient client_;
  ruLinear::Point position_;
  ruLinear::Vector screenOffset_;
  ruLinear::AffineMatrix matrix_;
};

}  // namespace voDMG
