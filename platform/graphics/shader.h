#pragma once

#include "platform/base/color.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/graphics/export.h"
#include "platform/resources/resources.h"

#include <vector>

// Shaders: each is a real GLSL 3.30 program. The library supplies the vertex stage (and, for
// lines, a geometry stage that widens them into screen-space quads); a shader supplies the
// fragment function `vec4 shade()` and its uniforms. What a fragment function can read:
//   in vec3 vWorldPos, vNormal; in vec2 vUV; in vec4 vColor; in float vExtra; and vLinePos
//     (world position, world normal, texture coordinates, vertex colour, the shader's per-vertex
//      attribute, distance along a line in pixels, 0 on triangles). Separate varyings rather
//      than a block, so the linker drops those a shader does not read.
//   uniform vec4 uItemColor; uniform vec3 uLightDirection (unit, toward the light: the viewer);
//   uniform vec4 uViewport (x, y, width, height in pixels);
//   vec3 surfaceNormal()  (the normal facing the viewer; flat when the mesh has no normals);
//   vec3 flatNormal()     (the triangle's own normal, from the world position's derivatives);
//   float lambert()       (0.25 + 0.75 * |n . l|: the headlight's diffuse factor).
namespace voGR {

// Clipping planes of a shader, in world coordinates: a plane with normal n through p keeps the
// points x with (x - p) . n >= 0 and removes the rest. At most 8 are used.
class VO_GR_API ClippingPlanes {
public:
  static constexpr int maxPlanes = 8;
  void add(const ruLinear::Plane& plane) { planes_.push_back(plane); }
  void clear() noexcept { planes_.clear(); }
  int size() const noexcept { return static_cast<int>(planes_.size()); }
  const ruLinear::Plane& get(int i) const noexcept { return planes_[i]; }

private:
  std::vector<ruLinear::Plane> planes_;
};

// Sets a shader's uniforms while the program is bound. Made by the renderer.
class VO_GR_API ShaderUniforms {
public:
  virtual ~ShaderUniforms();
  virtual void setFloat(const char* name, float value) = 0;
  virtual void setBool(const char* name, bool value) = 0;
  virtual void setVector3(const char* name, float x, float y, float z) = 0;
  virtual void setColor(const char* name, const ruUtil::Color& color) = 0;
  // Binds the image of `key` as the sampler2D `name`; false (nothing bound) when the key is
  // invalid or its image cannot be read.
  virtual bool setTexture(const char* name, const voRES::ImageKey& key, bool repeat) = 0;
};

// Base of every shader. Reference counted.
class VO_GR_API Shader : public ru::ReferenceCount {
public:
  ~Shader() override;
  ClippingPlanes& clippingPlanes() noexcept { return planes_; }
  const ClippingPlanes& clippingPlanes() const noexcept { return planes_; }

  // The GLSL fragment function (see the top of this file). The text must stay the same for the
  // life of the shader: programs are cached by it.
  const char* getFragmentSource() const { return onFragmentSource(); }
  // Sets the uniforms the fragment function reads.
  void bind(ShaderUniforms& uniforms) const { onBind(uniforms); }
  // The per-vertex float attribute read as `fin.extra`; null for none.
  const char* getExtraAttribute() const { return onExtraAttribute(); }
  // Drawn blended after the opaque items of a pass.
  bool isTransparent() const { return onIsTransparent(); }
  // The line width in pixels when the shader draws lines.
  float getLineWidth() const { return onLineWidth(); }

private:
  virtual const char* onFragmentSource() const = 0;
  virtual void onBind(ShaderUniforms& uniforms) const = 0;
  virtual const char* onExtraAttribute() const;
  virtual bool onIsTransparent() const;
  virtual float onLineWidth() const;

  ClippingPlanes planes_;
};

// The texture of a shader: an image key. `repeat` true wraps coordinates, false clamps them.
class VO_GR_API Texture2DUniform {
public:
  void setImageKey(const voRES::ImageKey& key, bool repeat) {
    key_ = key;
    repeat_ = repeat;
  }
  const voRES::ImageKey& getImageKey() const noexcept { return key_; }
  bool getRepeat() const noexcept { return repeat_; }

private:
  voRES::ImageKey key_;
  bool repeat_ = false;
};

// Diffuse shading by a headlight: color * lambert().
class VO_GR_API LambertShader : public Shader {
public:
  ruUtil::Color color{0.67f, 0.67f, 0.67f, 1.0f};

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  bool onIsTransparent() const override { return color.a < 1.0f; }
};

// The texture through the texture coordinates, times `color` on front faces and `backColor` on
// back faces. Without a readable texture, the colour alone.
class VO_GR_API UVTextureShader : public Shader {
public:
  Texture2DUniform texture;
  ruUtil::Color color{1, 1, 1, 1};
  ruUtil::Color backColor{1, 1, 1, 1};

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  bool onIsTransparent() const override { return color.a < 1.0f || backColor.a < 1.0f; }
};

// The mesh's vertex colours.
class VO_GR_API VertexColorShader : public Shader {
private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
};

// One flat colour; lines `lineWidth` pixels wide.
class VO_GR_API SolidColorShader : public Shader {
public:
  ruUtil::Color color{1, 1, 1, 1};
  float lineWidth = 1.0f;

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  bool onIsTransparent() const override { return color.a < 1.0f; }
  float onLineWidth() const override { return lineWidth; }
};

// Dashed lines: 8-pixel dashes and 8-pixel gaps along each segment, shifted by `patternOffset`
// in units of a 600-pixel span (0.5 shifts the pattern by 300 pixels).
class VO_GR_API DashedShader : public Shader {
public:
  ruUtil::Color color{0.35f, 0.35f, 0.35f, 1.0f};
  float patternOffset = 0.0f;
  static constexpr float dashPixels = 8.0f;
  static constexpr float spanPixels = 600.0f;

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  bool onIsTransparent() const override { return color.a < 1.0f; }
};

// Lines in one colour.
class VO_GR_API LineShader : public Shader {
public:
  ruUtil::Color color{0, 0, 0, 1};

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  bool onIsTransparent() const override { return color.a < 1.0f; }
};

// Flat shading per triangle (normals from the triangle's plane): color * lambert().
class VO_GR_API KLTFacetedShader : public Shader {
public:
  ruUtil::Color color{0.8f, 0.8f, 0.8f, 1.0f};

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  bool onIsTransparent() const override { return color.a < 1.0f; }
};

// Flat shading in `color`, or in `thinColor` where the per-vertex attribute "thickness" (object
// units) is at least 0 and below `minimumThickness`; negative thickness means not measured.
class VO_GR_API KLTThicknessShader : public Shader {
public:
  ruUtil::Color color{0.8f, 0.8f, 0.8f, 1.0f};
  ruUtil::Color thinColor{1.0f, 0.0f, 0.0f, 1.0f};
  float minimumThickness = 0.0f;

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  const char* onExtraAttribute() const override { return "thickness"; }
  bool onIsTransparent() const override { return color.a < 1.0f; }
};

// The printer's frame bars: color * lambert().
class VO_GR_API KLTPrinterBedShader : public Shader {
public:
  ruUtil::Color color{0.5f, 0.5f, 0.5f, 1.0f};

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
  bool onIsTransparent() const override { return color.a < 1.0f; }
};

// A radial gradient over the viewport: t is the distance of the pixel from the viewport centre
// divided by half the viewport's diagonal (0 at the centre, 1 at the corners); the colour is
// color0 up to position0, blends linearly between successive positions and is color2 beyond
// position2.
class VO_GR_API RadialGradientColorShader : public Shader {
public:
  ruUtil::Color color0{1, 1, 1, 1}, color1{1, 1, 1, 1}, color2{1, 1, 1, 1};
  float position0 = 0.0f, position1 = 0.5f, position2 = 1.0f;

private:
  const char* onFragmentSource() const override;
  void onBind(ShaderUniforms& uniforms) const override;
};

}  // namespace voGR
