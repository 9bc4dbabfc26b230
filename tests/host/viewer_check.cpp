// Pixel checks for the viewer's test under Xvfb (viewer_xvfb.sh), on PNG files it wrote:
//   viewer_check glow BEFORE AFTER X Y   the selection's glow around viewport pixel (X, Y), y up:
//                                          many changed pixels near it, some of them grey before
//                                          and strongly coloured after (the halo), none far from it
//   viewer_check same A B                two frames of the same scene agree (at most 1% differ)
// Prints what it found and exits 0 when the check holds, 1 when not, 2 for bad arguments.

#include "platform/image/png.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using Image = ru::Reference<ruImage::TypedImage<ruImage::Byte4>>;

Image load(const char* path) {
  ruString::CString error;
  Image image = ruImage::readPng(path, &error);
  if (!image) std::fprintf(stderr, "viewer_check: %s\n", error.c_str());
  return image;
}

// How far a pixel is from grey.
int saturation(const ruImage::Byte4& p) { return std::max({p.r, p.g, p.b}) - std::min({p.r, p.g, p.b}); }

int difference(const ruImage::Byte4& a, const ruImage::Byte4& b) {
  return std::abs(a.r - b.r) + std::abs(a.g - b.g) + std::abs(a.b - b.b);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (!((mode == "glow" && argc == 6) || (mode == "same" && argc == 4))) {
    std::fprintf(stderr, "usage: viewer_check glow BEFORE AFTER X Y | same A B\n");
    return 2;
  }
  Image a = load(argv[2]), b = load(argv[3]);
  if (!a || !b) return 1;
  if (a->xSize() != b->xSize() || a->ySize() != b->ySize()) {
    std::printf("sizes differ: %dx%d and %dx%d\n", a->xSize(), a->ySize(), b->xSize(), b->ySize());
    return 1;
  }
  const int width = a->xSize(), height = a->ySize();
  if (mode == "same") {
    int changed = 0;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) changed += difference(a->pixel(x, y), b->pixel(x, y)) > 24;
    std::printf("%d of %d pixels differ\n", changed, width * height);
    return changed * 100 <= width * height ? 0 : 1;
  }
  const int px = std::atoi(argv[4]), py = std::atoi(argv[5]);
  const int radius = 45;
  int near = 0, halo = 0, far = 0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      if (difference(a->pixel(x, y), b->pixel(x, y)) <= 12) continue;
      const int dx = x - px, dy = (height - 1 - y) - py;
      if (dx * dx + dy * dy > radius * radius) {
        ++far;
        continue;
      }
      ++near;
      halo += saturation(a->pixel(x, y)) <= 20 && saturation(b->pixel(x, y)) > 60;
    }
  std::printf("changed near (%d, %d): %d (%d a coloured halo over grey), elsewhere: %d\n", px, py, near, halo, far);
  return near > 150 && halo > 40 && far == 0 ? 0 : 1;
}
