#include "platform/graphics/text.h"

#include "platform/graphics/shader.h"

#include <algorithm>
#include <cstdint>

namespace voGR {

Font::Font(const ruString::CString& family, int pixelSize, voRES::FontStyle style, ruString::CString* error)
    : face_(voRES::Font::create(family, style, pixelSize, error)) {}

Font Font::defaultFont(int pixelSize, ruString::CString* error) {
  return Font(voRES::Font::createDefault(pixelSize, error));
}

voRES::TextLayoutOptions TextLayout::options() const {
  voRES::TextLayoutOptions o;
  o.align = align;
  o.anchor = anchor;
  o.lineSpacing = lineSpacing;
  o.kerning = kerning;
  return o;
}

namespace {

// The item colour with the glyph coverage (the atlas alpha) multiplied in, drawn blended: the
// default rendering would draw a textured item opaque, filling each quad.
class GlyphShader final : public Shader {
public:
  explicit GlyphShader(const voRES::ImageKey& atlas) : atlas_(atlas) {}

private:
  const char* onFragmentSource() const override {
    return R"(
uniform sampler2D uGlyphs;
vec4 shade() { return uItemColor * texture(uGlyphs, vUV); }
)";
  }
  void onBind(ShaderUniforms& uniforms) const override { uniforms.setTexture("uGlyphs", atlas_, false); }
  bool onIsTransparent() const override { return true; }

  voRES::ImageKey atlas_;
};

}  // namespace

ru::Reference<DrawItem> drawText(Draw& draw, const ruString::IString& text, const Font& font, TextLayout layout) {
  voRES::Font* face = font.getFace();
  if (!face) return nullptr;
  const voRES::TextGeometry geometry = face->layout(text, layout.options());
  if (geometry.quads.empty() || !geometry.atlas.valid()) return nullptr;

  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  const int numQuads = static_cast<int>(geometry.quads.size());
  mesh->setNumVertices(4 * numQuads);
  mesh->setNumTriangles(2 * numQuads);
  ruGeom::MeshVertex* vertices = mesh->editVertices();
  ruGeom::MeshTexCoord* uvs = mesh->editTextureCoordinates();
  std::uint32_t* triangles = mesh->editTriangles();
  for (int i = 0; i < numQuads; ++i) {
    const voRES::GlyphQuad& q = geometry.quads[i];
    // The atlas counts v down from its top row; textures here count it up from the bottom row.
    const float vBottom = 1.0f - q.v0, vTop = 1.0f - q.v1;
    vertices[4 * i + 0] = ruGeom::MeshVertex(q.x0, q.y0, 0.0f);
    vertices[4 * i + 1] = ruGeom::MeshVertex(q.x1, q.y0, 0.0f);
    vertices[4 * i + 2] = ruGeom::MeshVertex(q.x1, q.y1, 0.0f);
    vertices[4 * i + 3] = ruGeom::MeshVertex(q.x0, q.y1, 0.0f);
    uvs[4 * i + 0] = {q.u0, vBottom};
    uvs[4 * i + 1] = {q.u1, vBottom};
    uvs[4 * i + 2] = {q.u1, vTop};
    uvs[4 * i + 3] = {q.u0, vTop};
    const std::uint32_t base = static_cast<std::uint32_t>(4 * i);
    const std::uint32_t corners[6] = {base, base + 1, base + 2, base, base + 2, base + 3};
    std::copy(corners, corners + 6, triangles + 6 * i);
  }

  // Emit with the glyph state, then give the Draw back its own.
  const ru::Reference<Shader> shader = draw.getShader();
  const ru::Reference<Geometry> former = draw.getGeometry();
  const bool hadImage = draw.hasImageKey();
  const voRES::ImageKey image = draw.getImageKey();
  draw.setShader(new GlyphShader(geometry.atlas));
  draw.setImageKey(geometry.atlas);
  draw.setMesh(mesh);
  const ru::Reference<DrawItem> item = draw.emit();
  draw.setShader(shader);
  draw.setGeometry(former);
  if (hadImage) draw.setImageKey(image);
  else draw.clearImageKey();
  return item;
}

}  // namespace voGR
