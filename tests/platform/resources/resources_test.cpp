#include "platform/resources/resources.h"

#include "platform/image/png.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

using namespace voRES;

namespace {

ru::Reference<ruImage::Image> image(int w, int h) {
  return ru::Reference<ruImage::Image>(new ruImage::TypedImage<ruImage::Byte4>(w, h));
}

// A one-row image `value` pixels wide; counts its generations.
class StripeGenerator : public ImageGenerator1<int> {
public:
  explicit StripeGenerator(int width, int* generations = nullptr) : ImageGenerator1<int>(width), generations_(generations) {}
  bool hasPredeterminedSize(const ImageKeys&) const override { return true; }
  std::int64_t getPredeterminedSize(const ImageKeys&) const override { return std::int64_t(value) * 4; }

private:
  ru::Reference<ruImage::Image> onGenerate(const ImageKeys&) const override {
    if (generations_) ++*generations_;
    return image(value, 1);
  }
  int* generations_;
};

class OtherGenerator : public ImageGenerator1<int> {
public:
  explicit OtherGenerator(int v) : ImageGenerator1<int>(v) {}

private:
  ru::Reference<ruImage::Image> onGenerate(const ImageKeys&) const override { return nullptr; }
};

// A scratch folder removed at the end.
struct Folder {
  std::filesystem::path path = std::filesystem::temp_directory_path() / ("resources_test_" + std::to_string(::getpid()));
  Folder() { std::filesystem::create_directories(path); }
  ~Folder() { std::filesystem::remove_all(path); }
};

} // namespace

TEST(Resources, RegisteredImagesAreFoundByExactNameAndState) {
  Loader loader;
  loader.addImage("DMG//ModelingPlane", image(64, 32));
  loader.addImage("DMG/Mark", "highlight", image(8, 8));
  const ImageKey plane = loader.createImageKey("DMG//ModelingPlane", 0);
  ASSERT_TRUE(plane.valid());
  EXPECT_EQ(ImageKeyAccessor(plane).xSize(), 64);
  EXPECT_EQ(ImageKeyAccessor(plane).ySize(), 32);
  EXPECT_FALSE(loader.createImageKey("DMG/ModelingPlane", 0).valid());
  EXPECT_TRUE(loader.createImageKey("DMG/Mark", "highlight", 0).valid());
  EXPECT_FALSE(loader.createImageKey("DMG/Mark", "selected", 0).valid());
  EXPECT_FALSE(loader.createImageKey("DMG/Mark", 0).valid());
  EXPECT_TRUE(loader.createImageKey("DMG//ModelingPlane", 0) == plane);
}

TEST(Resources, AnInvalidKeyReadsAsNoPixels) {
  const ImageKeyAccessor accessor{ImageKey()};
  EXPECT_EQ(accessor.xSize(), 0);
  EXPECT_EQ(accessor.ySize(), 0);
  EXPECT_EQ(accessor.image(), nullptr);
}

TEST(Resources, FilesUnderResourceFoldersAreFoundByTheirEncodedNames) {
  Folder folder;
  EXPECT_EQ(Loader::fileName("DMG//AxisX_Billboard"), "DMG%2F%2FAxisX_Billboard.png");
  EXPECT_EQ(Loader::fileName("DMG/Snap", "selected"), "DMG%2FSnap@selected.png");
  ASSERT_TRUE(ruImage::writePng(*image(5, 3), (folder.path / Loader::fileName("DMG//AxisX_Billboard").c_str()).string().c_str()));
  ASSERT_TRUE(ruImage::writePng(*image(2, 2), (folder.path / Loader::fileName("DMG/Snap", "selected").c_str()).string().c_str()));
  Loader loader;
  loader.addResourceFolder(folder.path.string().c_str());
  const ImageKey axis = loader.createImageKey("DMG//AxisX_Billboard", 0);
  ASSERT_TRUE(axis.valid());
  EXPECT_EQ(ImageKeyAccessor(axis).xSize(), 5);
  EXPECT_FALSE(loader.createImageKey("DMG/AxisX_Billboard", 0).valid());
  EXPECT_EQ(ImageKeyAccessor(loader.createImageKey("DMG/Snap", "selected", 0)).ySize(), 2);
  // Memory first, then folders.
  loader.addImage("DMG//AxisX_Billboard", image(9, 9));
  EXPECT_EQ(ImageKeyAccessor(loader.createImageKey("DMG//AxisX_Billboard", 0)).xSize(), 9);
}

TEST(Resources, AnUnreadableFileGivesAKeyWithNoImageAndSaysWhy) {
  Folder folder;
  std::ofstream(folder.path / "Broken.png") << "not a png";
  Loader loader;
  loader.addResourceFolder(folder.path.string().c_str());
  const ImageKey key = loader.createImageKey("Broken", 0);
  ASSERT_TRUE(key.valid());
  EXPECT_EQ(ImageKeyAccessor(key).xSize(), 0);
  EXPECT_NE(key->error().find("Broken.png"), ruString::CString::npos) << key->error().c_str();
}

TEST(Resources, EqualGeneratorsShareOneKeyAndGenerateOnce) {
  Loader loader;
  int generations = 0;
  const ImageKey a = loader.createImageKey(new StripeGenerator(16, &generations), {}, 0);
  const ImageKey b = loader.createImageKey(new StripeGenerator(16, &generations), {}, 0);
  const ImageKey c = loader.createImageKey(new StripeGenerator(32, &generations), {}, 0);
  const ImageKey d = loader.createImageKey(new OtherGenerator(16), {}, 0);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a == c);
  EXPECT_FALSE(a == d);
  EXPECT_EQ(generations, 0);  // nothing is generated before it is asked for
  EXPECT_EQ(ImageKeyAccessor(a).xSize(), 16);
  EXPECT_EQ(ImageKeyAccessor(b).xSize(), 16);
  EXPECT_EQ(generations, 1);
  EXPECT_EQ(ImageKeyAccessor(d).xSize(), 0);
  EXPECT_FALSE(d->error().empty());
  EXPECT_FALSE(loader.createImageKey(ru::Reference<ImageGenerator>(), {}, 0).valid());
  EXPECT_EQ(loader.numCachedKeys(), 3u);
}

TEST(Resources, OneParameterGeneratorsCompareAndHashByValue) {
  const ru::Reference<StripeGenerator> small(new StripeGenerator(-3)), large(new StripeGenerator(7));
  EXPECT_EQ(small->compare(large.get()), -1);  // the other's value is the greater
  EXPECT_EQ(large->compare(small.get()), 1);
  EXPECT_EQ(small->compare(ru::Reference<StripeGenerator>(new StripeGenerator(-3)).get()), 0);
  const std::uint64_t expected =
      ru::Hasher().add(small->getTypeHash()).add(static_cast<std::uint64_t>(std::int64_t(-3))).value();
  EXPECT_EQ(small->hash(), expected);
  EXPECT_NE(small->getTypeHash(), ru::Reference<OtherGenerator>(new OtherGenerator(1))->getTypeHash());
  EXPECT_TRUE(small->hasPredeterminedSize({}));
  EXPECT_EQ(large->getPredeterminedSize({}), 28);
}

TEST(Resources, AGeneratorWithoutInputsGivesItsKeyFromTheGeneratorAndFlagsAlone) {
  Loader loader;
  int generations = 0;
  const ru::Reference<StripeGenerator> first(new StripeGenerator(6, &generations));
  const ImageKey a = loader.createImageKey(first, 0);
  const ImageKey b = loader.createImageKey(ru::Reference<StripeGenerator>(new StripeGenerator(6, &generations)), 0);
  ASSERT_TRUE(a.valid());
  EXPECT_EQ(a, b);
  EXPECT_EQ(a, loader.createImageKey(first, {}, 0));  // the same entry as with an empty input list
  EXPECT_NE(a, loader.createImageKey(ru::Reference<StripeGenerator>(new StripeGenerator(7)), 0));
  EXPECT_EQ(ImageKeyAccessor(a).xSize(), 6);
  EXPECT_EQ(ImageKeyAccessor(b).ySize(), 1);
  EXPECT_EQ(generations, 1);
  EXPECT_FALSE(loader.createImageKey(ru::Reference<ImageGenerator>(), 0).valid());
  EXPECT_FALSE(loader.createImageKey("DMG//Missing", 0).valid());  // a name still picks the named form
}

// Callers holding a generator ask its hooks by name, through the template or through the base.
TEST(Resources, GeneratorHooksAnswerDirectlyByTheirNames) {
  int generations = 0;
  const StripeGenerator narrow(2, &generations), wide(5, &generations);
  const ImageGenerator1<int>& asTemplate = narrow;
  EXPECT_EQ(asTemplate.onCompare(&wide), -1);
  EXPECT_EQ(static_cast<const ImageGenerator1<int>&>(wide).onCompare(&narrow), 1);
  EXPECT_EQ(asTemplate.onCompare(&narrow), 0);
  const std::uint64_t expected =
      ru::Hasher().add(narrow.getTypeHash()).add(static_cast<std::uint64_t>(std::int64_t(2))).value();
  EXPECT_EQ(asTemplate.onHash(), expected);
  const ImageGenerator& asBase = wide;
  EXPECT_EQ(asBase.onHash(), wide.hash());
  const ru::Reference<ruImage::Image> made = asBase.onGenerate({});
  ASSERT_TRUE(made);
  EXPECT_EQ(made->xSize(), 5);
  EXPECT_EQ(made->ySize(), 1);
  EXPECT_EQ(generations, 1);
}

TEST(Resources, ExternalResourcesHoldTheirBytes) {
  ru::Reference<ExternalResource> block(new ExternalResource(64 * 4));
  EXPECT_EQ(block->size(), 256u);
  block->data()[255] = 7;
  EXPECT_EQ(block->data()[0], 0);
}
