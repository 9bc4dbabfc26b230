#include "platform/resources/builtins.h"
#include "platform/resources/font.h"
#include "platform/resources/resources.h"

#include <benchmark/benchmark.h>

// Text and built-in images: what a label costs per frame, and what the first use of a font or an
// image costs once.

namespace {

const char* const label = "Bracket 12 - 34.5 x 20.0 x 8.25 mm";

void BM_FontCreate(benchmark::State& state) {
  for (auto _ : state) {
    ru::Reference<voRES::Font> font = voRES::Font::createDefault(static_cast<int>(state.range(0)));
    benchmark::DoNotOptimize(font.get());
  }
}
BENCHMARK(BM_FontCreate)->Arg(16)->Arg(48)->Unit(benchmark::kMillisecond);

// A label of cached glyphs, as a billboard redraw lays it out.
void BM_LayoutLabel(benchmark::State& state) {
  ru::Reference<voRES::Font> font = voRES::Font::createDefault(16);
  voRES::TextLayoutOptions options;
  options.align = voRES::TextAlign::Centre;
  options.anchor = voRES::TextAnchor::Centre;
  for (auto _ : state) {
    voRES::TextGeometry geometry = font->layout(label, options);
    benchmark::DoNotOptimize(geometry.quads.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(std::char_traits<char>::length(label)));
}
BENCHMARK(BM_LayoutLabel)->Unit(benchmark::kMicrosecond);

// A page of text, 2,000 characters in 40 lines.
void BM_LayoutPage(benchmark::State& state) {
  ru::Reference<voRES::Font> font = voRES::Font::createDefault(14);
  std::string page;
  for (int line = 0; line < 40; ++line) page += "The quick brown fox jumps over the lazy dog, twelve AVAW Ty!\n";
  for (auto _ : state) {
    voRES::TextGeometry geometry = font->layout(page);
    benchmark::DoNotOptimize(geometry.quads.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(page.size()));
}
BENCHMARK(BM_LayoutPage)->Unit(benchmark::kMicrosecond);

void BM_RenderLabelImage(benchmark::State& state) {
  ru::Reference<voRES::Font> font = voRES::Font::createDefault(16);
  for (auto _ : state) {
    auto image = font->renderText(label, {}, ruImage::Byte4(255, 255, 255, 255));
    benchmark::DoNotOptimize(image.get());
  }
}
BENCHMARK(BM_RenderLabelImage)->Unit(benchmark::kMicrosecond);

// Every built-in image and state drawn from nothing, as a fresh loader does on first use.
void BM_DrawAllBuiltinImages(benchmark::State& state) {
  for (auto _ : state) {
    for (const voRES::BuiltinImage& image : voRES::builtinImages()) {
      benchmark::DoNotOptimize(voRES::drawBuiltinImage(image.name).get());
      if (!image.hasStates) continue;
      for (const char* s : {"default", "highlight", "selected"}) benchmark::DoNotOptimize(voRES::drawBuiltinImage(image.name, s).get());
    }
  }
}
BENCHMARK(BM_DrawAllBuiltinImages)->Unit(benchmark::kMillisecond);

// A cached built-in key, as every frame asks for it.
void BM_CachedBuiltinKey(benchmark::State& state) {
  voRES::Loader loader;
  loader.createImageKey("DMG/PointSnapResult", "highlight", 0);
  for (auto _ : state) {
    voRES::ImageKey key = loader.createImageKey("DMG/PointSnapResult", "highlight", 0);
    benchmark::DoNotOptimize(key.get());
  }
}
BENCHMARK(BM_CachedBuiltinKey);

}  // namespace
