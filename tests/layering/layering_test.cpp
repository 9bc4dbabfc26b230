#include "tests/layering/layering.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace fs = std::filesystem;
using layering::Manifest;
using layering::Violation;

namespace {

// The repository itself: what the build declared, checked against every include.
TEST(Layering, EveryLibraryIncludesOnlyThePublicHeadersOfLibrariesBelowItThatItLinks) {
  Manifest manifest;
  std::string error;
  ASSERT_TRUE(layering::readManifest(DMGUI_LAYER_MANIFEST, manifest, error)) << error;
  // Each library folder that exists was declared with its headers; else the check would see nothing.
  for (const layering::Layer& layer : layering::layers()) {
    if (layer.target.empty() || !fs::is_directory(fs::path(DMGUI_SOURCE_DIR) / layer.folder)) continue;
    ASSERT_EQ(manifest.count(layer.target), 1u) << layer.folder << " has no library in the manifest";
    EXPECT_EQ(manifest[layer.target].folder, layer.folder);
    EXPECT_FALSE(manifest[layer.target].publicHeaders.empty()) << layer.name;
  }
  EXPECT_EQ(manifest["DataModel"].publicDependencies.count("Geometry"), 1u);
  EXPECT_EQ(manifest["Base"].publicHeaders.count("platform/base/reference.h"), 1u);

  for (const Violation& violation : layering::check(DMGUI_SOURCE_DIR, manifest)) {
    ADD_FAILURE() << layering::describe(violation);
  }
}

// A small tree of real files laid out like the repository, under the test's temporary folder.
class LayeringTree : public ::testing::Test {
protected:
  void SetUp() override {
    root_ = fs::path(::testing::TempDir()) /
            ("layering_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(root_);
    fs::create_directories(root_);
    // Base < Support < Image < Geometry < Transaction < Resources < DataModel, as the build has them.
    declare("Base", "platform/base", {"platform/base/reference.h"}, {});
    declare("Support", "platform/support", {"platform/support/callinfo.h"}, {"Base"});
    declare("Image", "platform/image", {"platform/image/image.h"}, {"Base"});
    declare("Geometry", "platform/geometry", {"platform/geometry/mesh.h"}, {"Base"});
    declare("Transaction", "platform/transaction", {"platform/transaction/transaction.h"}, {"Base"});
    declare("Resources", "platform/resources", {"platform/resources/resources.h"}, {"Base", "Support", "Image"});
    declare("DataModel", "platform/datamodel", {"platform/datamodel/print.h"},
            {"Support", "Transaction", "Geometry", "Resources"});
    for (const auto& [target, library] : manifest_) {
      for (const std::string& header : library.publicHeaders) write(header, "#pragma once\n");
    }
    write("platform/support/internal.h", "#pragma once\n");
    write("platform/datamodel/editscope.h", "#pragma once\n");
    write("tests/testhost/testhost.h", "#pragma once\n");
  }
  void TearDown() override { fs::remove_all(root_); }

  void declare(const std::string& target, const std::string& folder, std::set<std::string> headers,
               std::set<std::string> dependencies, std::set<std::string> privateDependencies = {}) {
    manifest_[target] = {folder, std::move(headers), std::move(dependencies), std::move(privateDependencies)};
  }
  void write(const std::string& relative, const std::string& text) {
    fs::create_directories((root_ / relative).parent_path());
    std::ofstream(root_ / relative) << text;
  }
  std::vector<Violation> check() const { return layering::check(root_, manifest_); }

  fs::path root_;
  Manifest manifest_;
};

TEST_F(LayeringTree, PublicHeadersOfLinkedLibrariesBelowAndOwnInternalHeadersPass) {
  write("platform/datamodel/print.cpp",
        "#include \"platform/datamodel/print.h\"\n#include \"platform/datamodel/editscope.h\"\n"
        "#include \"editscope.h\"\n#include \"platform/geometry/mesh.h\"\n"
        "#include \"platform/image/image.h\"\n#include <vector>\n#include \"gtest/gtest.h\"\n");
  write("host/main.cpp", "#include \"platform/datamodel/print.h\"\n#include \"platform/base/reference.h\"\n");
  const auto violations = check();
  EXPECT_TRUE(violations.empty()) << layering::describe(violations.front());
}

TEST_F(LayeringTree, IncludeOfALibraryAboveIsReportedWithFileLineAndInclude) {
  write("platform/geometry/mesh.cpp",
        "#include \"platform/geometry/mesh.h\"\n\n#include \"platform/datamodel/print.h\"\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].file, "platform/geometry/mesh.cpp");
  EXPECT_EQ(violations[0].line, 3);
  EXPECT_EQ(violations[0].include, "platform/datamodel/print.h");
  EXPECT_EQ(layering::describe(violations[0]),
            "platform/geometry/mesh.cpp:3: #include \"platform/datamodel/print.h\": libGeometry includes "
            "libDataModel, which is above it");
}

TEST_F(LayeringTree, IncludeOfALibraryBelowThatIsNotLinkedIsReported) {
  // Transaction links only Base; Image is below it in the table but not one of its libraries.
  write("platform/transaction/transaction.cpp", "#include <cstdio>\n#include <platform/image/image.h>\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].line, 2);
  EXPECT_NE(violations[0].reason.find("does not link"), std::string::npos) << violations[0].reason;
}

TEST_F(LayeringTree, PublicLinksArePassedOnAndPrivateOnesAreNot) {
  // Image keeps its use of Support to itself; Resources links Image publicly, DataModel links
  // Resources: DataModel may use Image's headers but not, through Image, Support's.
  declare("Image", "platform/image", {"platform/image/image.h"}, {"Base"}, {"Support"});
  declare("Transaction", "platform/transaction", {"platform/transaction/transaction.h"}, {"Image"});
  write("platform/transaction/transaction.cpp",
        "#include \"platform/image/image.h\"\n#include \"platform/base/reference.h\"\n"
        "#include \"platform/support/callinfo.h\"\n");
  write("platform/image/image.cpp", "#include \"platform/support/callinfo.h\"\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].file, "platform/transaction/transaction.cpp");
  EXPECT_EQ(violations[0].line, 3);
  EXPECT_NE(violations[0].reason.find("libTransaction includes libSupport, which it does not link"), std::string::npos)
      << violations[0].reason;
}

TEST_F(LayeringTree, InternalHeaderOfAnotherLibraryIsReported) {
  write("platform/resources/resources.cpp", "#include \"platform/support/internal.h\"\n");
  write("host/main.cpp", "#include \"platform/datamodel/editscope.h\"\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 2u);
  EXPECT_EQ(violations[0].file, "platform/resources/resources.cpp");
  EXPECT_NE(violations[0].reason.find("internal header of libSupport"), std::string::npos);
  EXPECT_EQ(violations[1].file, "host/main.cpp");
  EXPECT_NE(violations[1].reason.find("internal header of libDataModel"), std::string::npos);
}

TEST_F(LayeringTree, TestCodeIsNeverIncludedByALibrary) {
  write("platform/support/callinfo.cpp", "#include \"tests/testhost/testhost.h\"\n");
  write("platform/base/reference.cpp", "  #  include \"bench/helpers.h\"\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 2u);
  EXPECT_EQ(violations[0].file, "platform/base/reference.cpp");
  EXPECT_EQ(violations[1].file, "platform/support/callinfo.cpp");
}

TEST_F(LayeringTree, RelativeIncludesAreResolvedLikeTheCompilerDoes) {
  write("platform/base/strings.cpp", "#include \"../support/callinfo.h\"\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].include, "../support/callinfo.h");
  EXPECT_NE(violations[0].reason.find("libSupport, which is above it"), std::string::npos);
}

TEST_F(LayeringTree, CommentedOutIncludesDoNotCount) {
  write("platform/base/strings.cpp",
        "// #include \"platform/datamodel/print.h\"\n/*\n#include \"platform/datamodel/print.h\"\n*/\n"
        "/* one line */ int x;\n#include \"platform/support/callinfo.h\"\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_EQ(violations[0].line, 6);
}

TEST_F(LayeringTree, FoldersThatAppearLaterAreCheckedByTheirPlaceInTheTable) {
  // No library is declared for these folders yet; the table still places them.
  write("platform/graphics/draw.cpp",
        "#include \"platform/datamodel/print.h\"\n#include \"datamodelgui/events/event.h\"\n");
  write("platform/reflection/lua.cpp", "#include \"platform/graphics/draw.h\"\n#include \"host/viewer.h\"\n");
  const auto violations = check();
  ASSERT_EQ(violations.size(), 2u);
  EXPECT_EQ(violations[0].file, "platform/graphics/draw.cpp");
  EXPECT_EQ(violations[0].line, 2);
  EXPECT_NE(violations[0].reason.find("libGraphics includes libDataModelGUI"), std::string::npos);
  EXPECT_EQ(violations[1].file, "platform/reflection/lua.cpp");
  EXPECT_EQ(violations[1].line, 2);
  EXPECT_NE(violations[1].reason.find("includes the host"), std::string::npos);
}

TEST_F(LayeringTree, LinksUpTheTableAndLibrariesWithoutAPlaceAreReported) {
  manifest_["Geometry"].privateDependencies.insert("DataModel");
  declare("Extras", "platform/extras", {"platform/extras/extras.h"}, {"Base"});
  const auto violations = check();
  ASSERT_EQ(violations.size(), 2u);
  EXPECT_EQ(layering::describe(violations[0]), "CMakeLists: library Extras in platform/extras has no place in the layer table");
  EXPECT_EQ(layering::describe(violations[1]),
            "platform/geometry/CMakeLists.txt: libGeometry links DataModel, which is not below it");
}

TEST(LayeringManifest, MalformedLinesAreErrorsThatNameTheLine) {
  const fs::path file = fs::path(::testing::TempDir()) / "layering_manifest.txt";
  std::ofstream(file) << "library Base platform/base\nheader Base\n";
  Manifest manifest;
  std::string error;
  EXPECT_FALSE(layering::readManifest(file, manifest, error));
  EXPECT_NE(error.find("layering_manifest.txt:2: malformed line"), std::string::npos) << error;
  EXPECT_FALSE(layering::readManifest(file.string() + ".missing", manifest, error));
  fs::remove(file);
}

}  // namespace
