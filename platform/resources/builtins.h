#pragma once

#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/image/image.h"
#include "platform/resources/export.h"

// The images the library draws with, made by our own code when a loader is first asked for them:
// the modeling-plane grid, the names of the three axes, and the snap marks. A loader finds them by
// these exact names after its registered images and its resource folders, so a host can replace any
// of them by registering or shipping an image of the same name. Every image is stored top row
// first, as a PNG file is.
namespace voRES {

namespace builtin {
inline constexpr const char modelingPlane[] = "DMG//ModelingPlane";
inline constexpr const char axisXBillboard[] = "DMG//AxisX_Billboard";
inline constexpr const char axisYBillboard[] = "DMG//AxisY_Billboard";
inline constexpr const char axisZBillboard[] = "DMG//AxisZ_Billboard";
inline constexpr const char pointSnapResult[] = "DMG/PointSnapResult";
inline constexpr const char surfaceSnapResult[] = "DMG/SurfaceSnapResult";
inline constexpr const char axisSnapResult[] = "DMG/AxisSnapResult";
inline constexpr const char centerSnapCandidate[] = "DMG/CenterSnapCandidate";
inline constexpr const char centerSnapResult[] = "DMG/CenterSnapResult";

// The state images of the marks.
inline constexpr const char stateDefault[] = "default";
inline constexpr const char stateHighlight[] = "highlight";
inline constexpr const char stateSelected[] = "selected";

// The grid: a square texture of `gridCells` cells a side, each `gridCellPixels` wide, repeating
// seamlessly. A cell edge is a line two pixels wide (the last pixel of one cell and the first of the
// next; the image's own edges carry one pixel each, two once repeated). Every `gridMajorEvery`
// cells the line is a major one, darker and more opaque.
inline constexpr int gridCellPixels = 16;
inline constexpr int gridCells = 16;
inline constexpr int gridMajorEvery = 4;
inline constexpr int gridPixels = gridCellPixels * gridCells;

// The axis names: a letter of DejaVu Sans Bold, centred in a square image, in the colour of its
// axis (red, green, blue) with a dark rim so that it reads on any background.
inline constexpr int axisNamePixels = 24;
inline constexpr int axisNameFontPixels = 18;
}  // namespace builtin

struct BuiltinImage {
  const char* name;
  bool hasStates;  // "default", "highlight" and "selected" exist beside the plain image
  int width;
  int height;
};

// Every built-in image, in a fixed order.
VO_RES_API const ru::vector<BuiltinImage>& builtinImages();

// Whether `name` (in `state`, "" for the plain image) is a built-in image.
VO_RES_API bool isBuiltinImage(const ruString::CString& name, const ruString::CString& state = "");

// Draws a built-in image. Null, with `error` set, for a name or state that is not built in, or when
// the font an image needs is not installed. The plain image of a mark is its "default" state.
VO_RES_API ru::Reference<ruImage::TypedImage<ruImage::Byte4>> drawBuiltinImage(const ruString::CString& name,
                                                                              const ruString::CString& state = "",
                                                                              ruString::CString* error = nullptr);

}  // namespace voRES
