#include "platform/geometry/meshio.h"

#include "meshfiles.h"
#include "tests/fuzzing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>

using namespace ruGeom;
using namespace meshfiles;
using ruString::CString;

namespace {

std::filesystem::path fuzzFolder() {
  return std::filesystem::temp_directory_path() / ("ru_meshio_fuzz_" + std::to_string(::getpid()));
}

struct FolderCleanup {
  ~FolderCleanup() {
    std::error_code ignored;
    std::filesystem::remove_all(fuzzFolder(), ignored);
  }
} cleanup;

std::string fuzzPath(const std::string& name) {
  std::filesystem::create_directories(fuzzFolder());
  return (fuzzFolder() / name).string();
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Enough cases to reach every mutation kind many times over each file, few enough that a suite
// stays within seconds under the sanitizers.
constexpr int casesPerFormat = 640;
// Runs of an opener up to this many more than 1000: enough to stress a reader, few enough that a
// case of thousands of faces stays cheap under the sanitizers.
constexpr std::size_t maxRepeat = 4000;
constexpr double hangSeconds = 10.0;

// One import, judged: either a mesh whose triangles all name its vertices, or a refusal whose
// error names the file; the mesh is empty then. Returns true for a mesh.
bool importAndJudge(const std::string& path, const std::string& caseName) {
  CompactMesh mesh;
  CString error;
  const bool ok = importMesh(path, mesh, &error);
  if (ok) {
    EXPECT_GT(mesh.getNumTriangles(), 0) << caseName;
    const std::uint32_t* triangles = mesh.getTriangles();
    for (int i = 0; i < mesh.getNumTriangles() * 3; ++i) {
      if (triangles[i] >= static_cast<std::uint32_t>(mesh.getNumVertices())) {
        ADD_FAILURE() << caseName << ": triangle " << i / 3 << " names missing vertex " << triangles[i];
        break;
      }
    }
    for (int i = 0; i < mesh.getNumVertices(); ++i) {
      const MeshVertex& v = mesh.getVertices()[i];
      if (!std::isfinite(v.x) || !std::isfinite(v.y) || !std::isfinite(v.z)) {
        ADD_FAILURE() << caseName << ": vertex " << i << " is not finite";
        break;
      }
    }
  } else {
    EXPECT_EQ(mesh.getNumTriangles(), 0) << caseName;
    EXPECT_NE(error.str().find(path), std::string::npos) << caseName << ": " << error.c_str();
    EXPECT_GT(error.str().size(), path.size() + 16) << caseName << ": " << error.c_str();
  }
  return ok;
}

// Runs every mutation of `original`, written through `prepare` (identity for most formats), under
// the watchdog. The unmutated file must import.
void fuzzFormat(const char* format, const std::string& extension, const std::string& original, std::uint64_t seed,
                const std::string& opener, const std::function<std::string(const std::string&)>& prepare = {},
                int cases = casesPerFormat) {
  const std::string path = fuzzPath(std::string(format) + extension);
  writeFile(path, prepare ? prepare(original) : original);
  ASSERT_TRUE(importAndJudge(path, std::string(format) + " original")) << "the unmutated file must import";
  fuzz::Watchdog watchdog(hangSeconds);
  int imported = 0;
  for (int index = 0; index < cases; ++index) {
    const fuzz::Mutation mutation = fuzz::mutate(original, seed, index, opener, maxRepeat);
    const std::string caseName = std::string(format) + " case " + std::to_string(index) + " (" + mutation.name + ")";
    watchdog.begin(caseName);
    writeFile(path, prepare ? prepare(mutation.bytes) : mutation.bytes);
    imported += importAndJudge(path, caseName) ? 1 : 0;
    watchdog.end();
    if (::testing::Test::HasFailure()) return;  // the first failing case is the one to read
  }
  // Not a fixed number: only that the mutations do not all fail at the first check.
  ::testing::Test::RecordProperty(std::string(format) + "_imported", imported);
}

}  // namespace

TEST(MeshImportFuzz, EveryMutationOfAnAsciiStlEndsInAMeshOrAClearError) {
  fuzzFormat("ascii_stl", ".stl", asciiStl(cubeSoup()), 11, "solid x\n");
}

TEST(MeshImportFuzz, EveryMutationOfABinaryStlEndsInAMeshOrAClearError) {
  fuzzFormat("binary_stl", ".stl", binaryStl(cubeSoup()), 12, std::string(50, '\xff'));
}

TEST(MeshImportFuzz, EveryMutationOfAnObjEndsInAMeshOrAClearError) {
  // Fewer cases each: assimp's OBJ reader costs several times the others' per file.
  const int objCases = 400;
  fuzzFormat("obj", ".obj", obj(cubeIndexed()), 13, "f 1 2 3\n", {}, objCases);
  // Quads with texture coordinates and normals, in two groups.
  const std::string quads =
      "o a\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nvt 0 0\nvt 1 0\nvt 1 1\nvn 0 0 1\n"
      "f 1/1/1 2/2/1 3/3/1 4/1/1\ng b\nf -1//1 -2//1 -3//1\nf 5 6 3\n";
  fuzzFormat("obj_quads", ".obj", quads, 23, "f 1/1/1 2/2/1 3/3/1\n", {}, objCases);
}

TEST(MeshImportFuzz, EveryMutationOfAnAsciiPlyEndsInAMeshOrAClearError) {
  fuzzFormat("ascii_ply", ".ply", ply(cubeIndexed()), 14, "element vertex 4294967295\n");
}

TEST(MeshImportFuzz, EveryMutationOfABinaryPlyEndsInAMeshOrAClearError) {
  fuzzFormat("le_ply", ".ply", plyBinary(cubeIndexed(), true), 15, "property list uint int vertex_indices\n");
  fuzzFormat("be_ply", ".ply", plyBinary(cubeIndexed(), false), 16, "\xff\xff\xff\xff");
}

// The model inside a well-formed (deflated) package, so that the mutations reach the XML reader
// instead of stopping at the archive's checksums; then the archive's own bytes.
TEST(MeshImportFuzz, EveryMutationOfA3mfModelEndsInAMeshOrAClearError) {
  fuzzFormat("3mf_model", ".3mf", threeMfModel(cubeIndexed()), 17, "<a>",
             [](const std::string& model) { return threeMfPackage(model, true); });
}

// The package relationships name the model part; the importer stops the program when it is missing.
TEST(MeshImportFuzz, EveryMutationOfA3mfPackageRelationshipsEndsInAMeshOrAClearError) {
  const std::string model = threeMfModel(cubeIndexed());
  fuzzFormat("3mf_rels", ".3mf", threeMfRelationships(), 20, "<Relationship ",
             [&](const std::string& rels) { return threeMfPackage(model, true, rels); });
}

TEST(MeshImportFuzz, EveryMutationOfA3mfArchiveEndsInAMeshOrAClearError) {
  fuzzFormat("3mf_archive", ".3mf", threeMf(cubeIndexed()), 18, "PK\x03\x04");
  fuzzFormat("3mf_deflated", ".3mf", threeMf(cubeIndexed(), true), 19, "PK\x01\x02");
}
