#include "platform/graphics/shader.h"

namespace voGR {

ShaderUniforms::~ShaderUniforms() = default;
Shader::~Shader() = default;
const char* Shader::onExtraAttribute() const { return nullptr; }
bool Shader::onIsTransparent() const { return false; }
float Shader::onLineWidth() const { return 1.0f; }

// Each fragment function below follows the prelude the renderer puts before it (see shader.h).

const char* LambertShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
vec4 shade() { return vec4(uColor.rgb * lambert(), uColor.a); }
)";
}
void LambertShader::onBind(ShaderUniforms& u) const { u.setColor("uColor", color); }

const char* UVTextureShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
uniform vec4 uBackColor;
uniform bool uHasTexture;
uniform sampler2D uTexture;
vec4 shade() {
  vec4 c = gl_FrontFacing ? uColor : uBackColor;
  if (uHasTexture) c *= texture(uTexture, vUV);
  return c;
}
)";
}
void UVTextureShader::onBind(ShaderUniforms& u) const {
  u.setColor("uColor", color);
  u.setColor("uBackColor", backColor);
  // An unreadable texture leaves the colour alone (uHasTexture false).
  const bool textured = u.setTexture("uTexture", texture.getImageKey(), texture.getRepeat());
  u.setBool("uHasTexture", textured);
}

const char* VertexColorShader::onFragmentSource() const {
  return R"(
vec4 shade() { return vColor; }
)";
}
void VertexColorShader::onBind(ShaderUniforms&) const {}

const char* SolidColorShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
vec4 shade() { return uColor; }
)";
}
void SolidColorShader::onBind(ShaderUniforms& u) const { u.setColor("uColor", color); }

const char* DashedShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
uniform float uPatternOffset;
vec4 shade() {
  float phase = vLinePos + uPatternOffset * 600.0;
  if (mod(phase, 16.0) >= 8.0) discard;
  return uColor;
}
)";
}
void DashedShader::onBind(ShaderUniforms& u) const {
  u.setColor("uColor", color);
  u.setFloat("uPatternOffset", patternOffset);
}

const char* LineShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
vec4 shade() { return uColor; }
)";
}
void LineShader::onBind(ShaderUniforms& u) const { u.setColor("uColor", color); }

const char* KLTFacetedShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
vec4 shade() {
  float diffuse = 0.25 + 0.75 * abs(dot(flatNormal(), uLightDirection));
  return vec4(uColor.rgb * diffuse, uColor.a);
}
)";
}
void KLTFacetedShader::onBind(ShaderUniforms& u) const { u.setColor("uColor", color); }

const char* KLTThicknessShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
uniform vec4 uThinColor;
uniform float uMinimumThickness;
vec4 shade() {
  bool thin = vExtra >= 0.0 && vExtra < uMinimumThickness;
  vec4 c = thin ? uThinColor : uColor;
  float diffuse = 0.25 + 0.75 * abs(dot(flatNormal(), uLightDirection));
  return vec4(c.rgb * diffuse, c.a);
}
)";
}
void KLTThicknessShader::onBind(ShaderUniforms& u) const {
  u.setColor("uColor", color);
  u.setColor("uThinColor", thinColor);
  u.setFloat("uMinimumThickness", minimumThickness);
}

const char* KLTPrinterBedShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor;
vec4 shade() { return vec4(uColor.rgb * lambert(), uColor.a); }
)";
}
void KLTPrinterBedShader::onBind(ShaderUniforms& u) const { u.setColor("uColor", color); }

const char* RadialGradientColorShader::onFragmentSource() const {
  return R"(
uniform vec4 uColor0;
uniform vec4 uColor1;
uniform vec4 uColor2;
uniform vec3 uPositions;
vec4 shade() {
  vec2 centre = uViewport.xy + 0.5 * uViewport.zw;
  float t = length(gl_FragCoord.xy - centre) / max(1.0, 0.5 * length(uViewport.zw));
  if (t <= uPositions.x) return uColor0;
  if (t <= uPositions.y) return mix(uColor0, uColor1, (t - uPositions.x) / max(1e-6, uPositions.y - uPositions.x));
  if (t <= uPositions.z) return mix(uColor1, uColor2, (t - uPositions.y) / max(1e-6, uPositions.z - uPositions.y));
  return uColor2;
}
)";
}
void RadialGradientColorShader::onBind(ShaderUniforms& u) const {
  u.setColor("uColor0", color0);
  u.setColor("uColor1", color1);
  u.setColor("uColor2", color2);
  u.setVector3("uPositions", position0, position1, position2);
}

}  // namespace voGR
