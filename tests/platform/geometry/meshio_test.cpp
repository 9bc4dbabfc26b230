#include "platform/geometry/meshio.h"

#include "platform/geometry/construct.h"
#include "meshfiles.h"
#include "testmeshes.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using namespace ruGeom;
using ruLinear::Point;
using ruString::CString;
using namespace meshfiles;

namespace {

std::filesystem::path tempFolder() {
  return std::filesystem::temp_directory_path() / ("ru_meshio_" + std::to_string(::getpid()));
}

// Removes the files the tests wrote when the program ends.
struct TempFolderCleanup {
  ~TempFolderCleanup() {
    std::error_code ignored;
    std::filesystem::remove_all(tempFolder(), ignored);
  }
} cleanup;

std::string tempPath(const std::string& name) {
  std::filesystem::create_directories(tempFolder());
  return (tempFolder() / name).string();
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The set of triangles as sets of corner positions, so that meshes compare whatever the vertex
// order; each triangle's corners are rotated to start at the smallest, keeping the winding.
std::multiset<std::vector<float>> triangleSet(const CompactMesh& mesh) {
  std::multiset<std::vector<float>> result;
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    std::vector<std::vector<float>> corners;
    for (int c = 0; c < 3; ++c) {
      const MeshVertex& v = mesh.getVertices()[mesh.getTriangles()[3 * t + c]];
      corners.push_back({v.x, v.y, v.z});
    }
    int first = 0;
    for (int c = 1; c < 3; ++c) if (corners[c] < corners[first]) first = c;
    std::vector<float> key;
    for (int c = 0; c < 3; ++c) key.insert(key.end(), corners[(first + c) % 3].begin(), corners[(first + c) % 3].end());
    result.insert(key);
  }
  return result;
}

CompactMesh fromIndexed(const Indexed& indexed) {
  CompactMesh mesh;
  for (const Point& p : indexed.vertices) mesh.addVertex(p);
  for (std::size_t i = 0; i < indexed.triangles.size(); i += 3) {
    mesh.addTriangle(indexed.triangles[i], indexed.triangles[i + 1], indexed.triangles[i + 2]);
  }
  return mesh;
}

void expectError(const std::string& path, const std::string& what) {
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_EQ(mesh.getNumVertices(), 0);
  EXPECT_EQ(mesh.getNumTriangles(), 0);
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
  EXPECT_NE(error.str().find(what), std::string::npos) << error.c_str();
}

}  // namespace

TEST(MeshImport, BinaryStlWeldsIdenticalVertices) {
  const std::string path = tempPath("cube_binary.stl");
  writeFile(path, binaryStl(cubeSoup()));
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 12);
  EXPECT_EQ(mesh.getNumVertices(), 8);
  EXPECT_EQ(mesh.getBoundingBox().getMax(), Point(1, 2, 3));
}

TEST(MeshImport, BinaryStlWhoseHeaderStartsWithSolidIsStillBinary) {
  const std::string path = tempPath("solid_header.stl");
  writeFile(path, binaryStl(cubeSoup(), "solid but binary"));
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 12);
}

TEST(MeshImport, MinusZeroAndZeroWeldIntoOneVertex) {
  Soup soup;
  soup.corners = {Point(0, 0, 0), Point(1, 0, 0), Point(0, 1, 0), Point(-0.0, -0.0, 0), Point(0, -1, 0), Point(1, 0, -0.0)};
  const std::string path = tempPath("minus_zero.stl");
  writeFile(path, binaryStl(soup));
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 2);
  EXPECT_EQ(mesh.getNumVertices(), 4);
}

TEST(MeshImport, AsciiStlWeldsIdenticalVertices) {
  const std::string path = tempPath("cube_ascii.stl");
  writeFile(path, asciiStl(cubeSoup()));
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 12);
  EXPECT_EQ(mesh.getNumVertices(), 8);
}

TEST(MeshImport, ObjPlyAnd3mfGiveTheWrittenTriangles) {
  const Indexed cube = cubeIndexed();
  const auto expected = triangleSet(fromIndexed(cube));
  const std::vector<std::pair<std::string, std::string>> files = {
      {"cube.obj", obj(cube)}, {"cube.ply", ply(cube)}, {"cube.3mf", threeMf(cube)}};
  for (const auto& [name, content] : files) {
    SCOPED_TRACE(name);
    const std::string path = tempPath(name);
    writeFile(path, content);
    CompactMesh mesh;
    CString error;
    ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
    EXPECT_EQ(mesh.getNumVertices(), 8);
    EXPECT_EQ(mesh.getNumTriangles(), 12);
    EXPECT_EQ(triangleSet(mesh), expected);
  }
}

TEST(MeshImport, ObjQuadsAreTriangulatedAndObjectsWeldedTogether) {
  const std::string path = tempPath("two_objects.obj");
  // Two objects sharing an edge, each with its own copies of the shared corners; one quad.
  writeFile(path,
            "o first\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf 1 2 3 4\n"
            "o second\nv 1 0 0\nv 2 0 0\nv 1 1 0\nf 5 6 7\n");
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 3);
  EXPECT_EQ(mesh.getNumVertices(), 5);
}

TEST(MeshImport, ImportReplacesWhatTheMeshHeld) {
  const std::string path = tempPath("replace.obj");
  writeFile(path, obj(cubeIndexed()));
  CompactMesh mesh = ruGeomTest::makeGrid(3, 3);
  mesh.allocAttributes("thickness", 1);
  ASSERT_TRUE(importMesh(path, mesh));
  EXPECT_EQ(mesh.getNumVertices(), 8);
  EXPECT_FALSE(mesh.hasAttributes("thickness"));
  EXPECT_FALSE(mesh.hasNormals());
}

TEST(MeshImport, WrittenBinaryStlReadsBackTheSameTriangles) {
  for (const ruGeomTest::NamedMesh& entry : ruGeomTest::corpus()) {
    SCOPED_TRACE(entry.name);
    if (entry.name == "degenerate") continue;  // degenerate facets are the importer's to drop
    const std::string path = tempPath(entry.name + ".stl");
    CString error;
    ASSERT_TRUE(writeStlBinary(entry.mesh, path, &error)) << error.c_str();
    EXPECT_EQ(std::filesystem::file_size(path), 84u + 50u * entry.mesh.getNumTriangles());
    CompactMesh back;
    ASSERT_TRUE(importMesh(path, back, &error)) << error.c_str();
    EXPECT_EQ(back.getNumTriangles(), entry.mesh.getNumTriangles());
    EXPECT_EQ(back.getNumVertices(), entry.mesh.getNumVertices());
    EXPECT_EQ(triangleSet(back), triangleSet(entry.mesh));
  }
}

TEST(MeshImport, AMissingFileNamesTheFile) { expectError(tempPath("missing.stl"), "cannot open"); }

TEST(MeshImport, AnEmptyFileIsAnError) {
  const std::string path = tempPath("empty.stl");
  writeFile(path, "");
  expectError(path, "empty");
}

TEST(MeshImport, AFolderIsAnError) {
  const std::string path = tempPath("folder.stl");
  std::filesystem::create_directories(path);
  CompactMesh mesh;
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
}

TEST(MeshImport, ATruncatedBinaryStlIsAnError) {
  const std::string path = tempPath("truncated.stl");
  const std::string bytes = binaryStl(cubeSoup());
  writeFile(path, bytes.substr(0, bytes.size() - 30));
  expectError(path, "truncated");
  writeFile(path, bytes.substr(0, 60));
  expectError(path, "truncated");
}

TEST(MeshImport, AMalformedAsciiStlIsAnError) {
  const std::string path = tempPath("malformed_ascii.stl");
  writeFile(path, "solid broken\n  facet normal 0 0 1\n    outer loop\n      vertex 0 0 zero\n");
  CompactMesh mesh;
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
}

// The first four facets of the cube as an ASCII STL.
std::string fourFacetAsciiStl() {
  Soup soup = cubeSoup();
  soup.corners.resize(12);
  return asciiStl(soup);
}

TEST(MeshImport, AnAsciiStlCutInTheMiddleOfAFacetNamesTheIncompleteFacet) {
  const std::string path = tempPath("cut_ascii.stl");
  const std::string text = fourFacetAsciiStl();
  std::size_t third = 0;
  for (int i = 0; i < 3; ++i) third = text.find("facet normal", third + 1);
  ASSERT_NE(third, std::string::npos);
  // Cut inside the second vertex of the third facet.
  const std::size_t cut = text.find("vertex", text.find("vertex", third) + 1) + 9;
  writeFile(path, text.substr(0, cut));
  expectError(path, "truncated ASCII STL (facet 3 incomplete)");
}

TEST(MeshImport, AnAsciiStlWithoutEndsolidIsAnError) {
  const std::string path = tempPath("no_endsolid.stl");
  const std::string text = fourFacetAsciiStl();
  writeFile(path, text.substr(0, text.find("endsolid")));
  expectError(path, "truncated ASCII STL (no endsolid)");
}

TEST(MeshImport, AnAsciiStlWithAKeywordOutOfPlaceNamesTheLine) {
  const std::string path = tempPath("misspelt_ascii.stl");
  std::string text = fourFacetAsciiStl();
  // Line 1 is "solid cube"; each facet takes 7 lines, so the second facet's endloop is line 14.
  const std::size_t second = text.find("endloop", text.find("endloop") + 1);
  text.replace(second, 7, "endlop");
  writeFile(path, text);
  expectError(path, "malformed ASCII STL (line 14: expected 'endloop', found 'endlop')");
}

TEST(MeshImport, AnAsciiStlOfSeveralSolidsImportsThemAll) {
  const std::string path = tempPath("two_solids.stl");
  writeFile(path, asciiStl(cubeSoup()) + fourFacetAsciiStl());
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 16);
}

TEST(MeshImport, AnObjCutInTheMiddleOfAFaceLineIsAnError) {
  const std::string path = tempPath("cut_face.obj");
  const std::string text = obj(cubeIndexed());
  const std::size_t last = text.rfind("\nf ") + 1;
  // "f a b c" cut after its second corner.
  std::size_t cut = last;
  for (int i = 0; i < 3; ++i) cut = text.find(' ', cut + 1);
  writeFile(path, text.substr(0, cut));
  expectError(path, "malformed OBJ (line 22: a face needs at least 3 vertices, it has 2)");
}

TEST(MeshImport, AnObjOfVerticesWithoutFacesIsAnError) {
  const std::string path = tempPath("vertices_only.obj");
  writeFile(path, "# three corners, no face\nv 0 0 0\nv 1 0 0\nv 0 1 0\n");
  expectError(path, "OBJ without faces (nothing to import)");
}

TEST(MeshImport, AnObjFaceCornerThatIsNotANumberIsAnError) {
  const std::string path = tempPath("word_face.obj");
  writeFile(path, "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 three\n");
  expectError(path, "malformed OBJ (line 4: face corner 'three' is not a vertex index)");
}

TEST(MeshImport, AnObjVertexWithoutThreeCoordinatesIsAnError) {
  const std::string path = tempPath("short_vertex.obj");
  writeFile(path, "v 0 0 0\nv 1 0\nv 0 1 0\nf 1 2 3\n");
  expectError(path, "malformed OBJ (line 2: a vertex needs three coordinates)");
}

TEST(MeshImport, AnObjWithoutFacesIsAnError) {
  const std::string path = tempPath("nofaces.obj");
  writeFile(path, "# nothing but points\nv 0 0 0\nv 1 0 0\n");
  CompactMesh mesh;
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
}

TEST(MeshImport, AnObjFaceNamingAMissingVertexIsAnError) {
  const std::string path = tempPath("badindex.obj");
  writeFile(path, "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\n");
  CompactMesh mesh;
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
}

TEST(MeshImport, ATruncatedPlyIsAnError) {
  const std::string path = tempPath("truncated.ply");
  const std::string text = ply(cubeIndexed());
  writeFile(path, text.substr(0, text.size() - 12));
  expectError(path, "truncated or malformed PLY data");
  writeFile(path, text.substr(0, 40));
  expectError(path, "no end_header");
}

TEST(MeshImport, APlyWithAShortBinaryBodyIsAnError) {
  const std::string path = tempPath("short_binary.ply");
  std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                      "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  bytes.append(3 * 12, '\0');
  bytes += '\3';
  bytes.append(8, '\0');  // two of the three indices
  writeFile(path, bytes);
  expectError(path, "truncated PLY data");
}

TEST(MeshImport, ABinaryPlyReadsItsTriangle) {
  const std::string path = tempPath("binary.ply");
  std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                      "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  const float corners[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  bytes.append(reinterpret_cast<const char*>(corners), sizeof corners);
  bytes += '\3';
  const std::int32_t indices[3] = {0, 1, 2};
  bytes.append(reinterpret_cast<const char*>(indices), sizeof indices);
  writeFile(path, bytes);
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 1);
  EXPECT_EQ(mesh.getNumVertices(), 3);
}

TEST(MeshImport, APlyHeaderWithoutItsEndIsAnError) {
  const std::string path = tempPath("noend.ply");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 3\n");
  expectError(path, "no end_header");
}

TEST(MeshImport, APlyElementWithACountButNoPropertiesIsAnError) {
  const std::string path = tempPath("no_properties.ply");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 3000000000\nelement face 0\nend_header\n\n");
  expectError(path, "element 'vertex' has 3000000000 entries but no properties");
}

TEST(MeshImport, APlyElementCountBeyondTheFileSizeIsAnError) {
  const std::string path = tempPath("huge_count.ply");
  writeFile(path, "ply\nformat binary_little_endian 1.0\nelement vertex 100000000\nproperty float x\n"
                  "property float y\nproperty float z\nend_header\n" + std::string(24, '\0'));
  expectError(path, "claims 100000000 entries, more than the 24 bytes of data can hold");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 99999999999999999999999\nproperty float x\nend_header\n0\n");
  expectError(path, "the count is not a whole number below 2^32");
}

// Counts that do not fit an integer must be refused before any conversion (the sanitizer stops
// the program on an out-of-range conversion).
TEST(MeshImport, APlyListCountOutOfRangeIsAnError) {
  const std::string path = tempPath("list_count.ply");
  const char* header = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                       "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
                       "0 0 0\n1 0 0\n0 1 0\n";
  for (const char* count : {"1e300", "18446744073709551616", "-1", "3.5", "nan"}) {
    SCOPED_TRACE(count);
    writeFile(path, std::string(header) + count + " 0 1 2\n");
    expectError(path, "a list count out of range");
  }
  std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                      "property float z\nelement face 1\nproperty list uint int vertex_indices\nend_header\n";
  bytes.append(3 * 12, '\0');
  const std::uint32_t count = 0xFFFFFFFFu;
  bytes.append(reinterpret_cast<const char*>(&count), 4);
  bytes.append(12, '\0');
  writeFile(path, bytes);
  expectError(path, "a list of 4294967295 items runs past the end of the file");
}

TEST(MeshImport, APlyFaceNamingAMissingVertexIsAnError) {
  const std::string path = tempPath("missing_vertex.ply");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
                  "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 7\n");
  expectError(path, "a face names a missing vertex");
  std::string bytes = "ply\nformat binary_big_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                      "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  bytes.append(3 * 12, '\0');
  bytes += '\3';
  for (std::uint32_t index : {0u, 1u, 0xFFFFFFFEu}) {  // the last is -2 as a signed int
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>((index >> shift) & 0xFF);
  }
  writeFile(path, bytes);
  expectError(path, "a face names a missing vertex");
}

// The importer reads an ASCII entry as one line: an entry spread over two lines made it build
// faces from the wrong numbers and crash.
TEST(MeshImport, AnAsciiPlyEntryIsExactlyOneLine) {
  const std::string path = tempPath("entry_lines.ply");
  const std::string header = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                             "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  writeFile(path, header + "0 0 0\n1 0\n0\n0 1 0\n3 0 1 2\n");
  expectError(path, "element 'vertex' entry 1: the data ends early");
  writeFile(path, header + "0 0 0 1\n1 0 0\n0 1 0\n3 0 1 2\n");
  expectError(path, "element 'vertex' entry 0: more values on its line than its properties");
  writeFile(path, header + "0 0 0\r\n1 0 0\r\n0 1 0\r\n3 0 1 2\r\n");
  CompactMesh mesh;
  CString error;
  EXPECT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
}

TEST(MeshImport, PlyFacesOfFewerThanThreeCornersAreIgnoredAndPolygonsSplit) {
  const std::string path = tempPath("small_face.ply");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
                  "element face 3\nproperty list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n"
                  "4 0 1 2 3\n0\n2 0 1\n");
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(mesh.getNumTriangles(), 2);
  EXPECT_EQ(mesh.getNumVertices(), 4);
}

// The first byte of a binary body may be a line feed (the low byte of a coordinate): it is data.
TEST(MeshImport, ABinaryPlyWhoseDataStartsWithALineFeedReadsItsTriangle) {
  const std::string path = tempPath("line_feed.ply");
  for (std::uint32_t low : {0x0Au, 0x0Du, 0x20u}) {
    SCOPED_TRACE(low);
    std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                        "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
    const std::uint32_t x = 0x3F800000u | low;  // just above 1
    float corners[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    std::memcpy(&corners[0], &x, 4);
    bytes.append(reinterpret_cast<const char*>(corners), sizeof corners);
    bytes += '\3';
    const std::int32_t indices[3] = {0, 1, 2};
    bytes.append(reinterpret_cast<const char*>(indices), sizeof indices);
    writeFile(path, bytes);
    CompactMesh mesh;
    CString error;
    ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
    ASSERT_EQ(mesh.getNumTriangles(), 1);
    ASSERT_EQ(mesh.getNumVertices(), 3);
    EXPECT_EQ(mesh.getVertices()[mesh.getTriangles()[0]].x, corners[0]);
    EXPECT_EQ(mesh.getVertices()[mesh.getTriangles()[1]].x, 1.0f);
    EXPECT_EQ(mesh.getVertices()[mesh.getTriangles()[2]].y, 1.0f);
  }
}

TEST(MeshImport, PlyVerticesWithoutThreeCoordinatesAreAnError) {
  const std::string path = tempPath("no_z.ply");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                  "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0\n1 0\n0 1\n3 0 1 2\n");
  expectError(path, "the vertices lack an x, y or z coordinate");
}

TEST(MeshImport, APlyHeaderLineThatMakesNoSenseNamesTheLine) {
  const std::string path = tempPath("bad_header.ply");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 3\nproperty floot x\nend_header\n0\n1\n2\n");
  expectError(path, "line 4, 'property floot x': unknown property type");
  writeFile(path, "ply\nformat ascii 1.0\nproperty float x\nend_header\n");
  expectError(path, "a property before any element");
  writeFile(path, "ply\nformat ascii 1.0\nelement vertex 1\nproperty list float int i\nend_header\n1 0\n");
  expectError(path, "a list needs an integer count type");
  // The importer ends a line at a NUL: a header must be plain text to read the same to both.
  writeFile(path, std::string("ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\0y\nend_header\n0\n1\n2\n",
                              74));
  expectError(path, "line 4, '(not shown)': a byte that is not plain text");
}

TEST(MeshImport, A3mfThatIsNotAZipIsAnError) {
  const std::string path = tempPath("notzip.3mf");
  writeFile(path, "this is not a zip archive at all");
  CompactMesh mesh;
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
}

TEST(MeshImport, ATruncated3mfIsAnError) {
  const std::string path = tempPath("truncated.3mf");
  const std::string bytes = threeMf(cubeIndexed());
  writeFile(path, bytes.substr(0, bytes.size() / 2));
  CompactMesh mesh;
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
}

// The importer's zip reader stops the program on a checksum mismatch: the archive is checked first.
TEST(MeshImport, A3mfWhoseEntryChecksumIsWrongIsAnErrorNotAnAbort) {
  const std::string path = tempPath("bad_crc.3mf");
  std::string bytes = threeMf(cubeIndexed());
  const std::size_t model = bytes.find("<vertex x=");
  ASSERT_NE(model, std::string::npos);
  bytes[model + 12] = bytes[model + 12] == '1' ? '0' : '1';  // a coordinate digit: still good XML
  writeFile(path, bytes);
  expectError(path, "checksum mismatch");
}

TEST(MeshImport, ADeflated3mfGivesTheWrittenTriangles) {
  const std::string path = tempPath("deflated.3mf");
  const std::string bytes = threeMf(cubeIndexed(), true);
  ASSERT_LT(bytes.size(), threeMf(cubeIndexed()).size());
  writeFile(path, bytes);
  CompactMesh mesh;
  CString error;
  ASSERT_TRUE(importMesh(path, mesh, &error)) << error.c_str();
  EXPECT_EQ(triangleSet(mesh), triangleSet(fromIndexed(cubeIndexed())));
}

TEST(MeshImport, ADeflated3mfWithCorruptDataIsAnError) {
  const std::string path = tempPath("deflated_corrupt.3mf");
  std::string bytes = threeMf(cubeIndexed(), true);
  // The model is the third entry; its data starts after its local header and name.
  const std::size_t name = bytes.find("3D/3dmodel.model");
  ASSERT_NE(name, std::string::npos);
  const std::size_t data = name + std::strlen("3D/3dmodel.model");
  for (std::size_t i = data + 4; i < data + 12; ++i) bytes[i] = static_cast<char>(bytes[i] ^ 0x5A);
  writeFile(path, bytes);
  CompactMesh mesh;
  CString error;
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find("malformed 3MF archive (entry 2"), std::string::npos) << error.c_str();
  // Cut short inside the deflated data, with the directory left in place.
  bytes = threeMf(cubeIndexed(), true);
  const std::uint32_t shorter = 10;
  std::memcpy(&bytes[name - 30 + 18], &shorter, 4);  // the local header's compressed size
  writeFile(path, bytes);
  EXPECT_FALSE(importMesh(path, mesh, &error));
  EXPECT_NE(error.str().find("its local header disagrees with the directory"), std::string::npos) << error.c_str();
}

// The importer's package reader stops the program when the model part is missing.
TEST(MeshImport, A3mfWhoseRelationshipsNameAMissingModelPartIsAnError) {
  const std::string path = tempPath("missing_part.3mf");
  std::string rels = threeMfRelationships();
  rels.replace(rels.find("3dmodel.model"), 13, "other.model");
  writeFile(path, threeMfPackage(threeMfModel(cubeIndexed()), true, rels));
  expectError(path, "the 3D model part '3D/other.model' is missing");
  rels = threeMfRelationships();
  rels.replace(rels.find("Type="), 5, "Kind=");
  writeFile(path, threeMfPackage(threeMfModel(cubeIndexed()), true, rels));
  expectError(path, "its relationships name no 3D model part");
}

TEST(MeshImport, A3mfWhoseDirectoryPointsOutsideTheFileIsAnError) {
  const std::string path = tempPath("bad_directory.3mf");
  std::string bytes = threeMf(cubeIndexed());
  // The end record's directory offset, 16 bytes into the last 22.
  const std::uint32_t offset = 0x7FFFFFF0u;
  std::memcpy(&bytes[bytes.size() - 22 + 16], &offset, 4);
  writeFile(path, bytes);
  expectError(path, "the central directory lies outside the file");
}

TEST(MeshImport, AnUnsupportedExtensionIsAnError) {
  const std::string path = tempPath("cube.xyz");
  writeFile(path, obj(cubeIndexed()));
  expectError(path, "unsupported file type");
}

TEST(MeshExport, AMeshWithoutTrianglesIsNotWritten) {
  CompactMesh lines;
  constructLineSegment(Point(0, 0, 0), Point(1, 1, 1), lines);
  CString error;
  EXPECT_FALSE(writeStlBinary(lines, tempPath("lines.stl"), &error));
  EXPECT_NE(error.str().find("no triangles"), std::string::npos);
}

TEST(MeshExport, AnUnwritablePathNamesTheFile) {
  CString error;
  EXPECT_FALSE(writeStlBinary(ruGeomTest::makeGrid(1, 1), "/nonexistent/dir/out.stl", &error));
  EXPECT_NE(error.str().find("/nonexistent/dir/out.stl"), std::string::npos);
}

TEST(MeshExport, FacetNormalsFollowTheWinding) {
  CompactMesh square = ruGeomTest::makeGrid(1, 1);
  const std::string path = tempPath("square.stl");
  ASSERT_TRUE(writeStlBinary(square, path));
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_EQ(bytes.size(), 84u + 100u);
  float normal[3];
  std::memcpy(normal, bytes.data() + 84, sizeof normal);
  EXPECT_GT(normal[2], 0.9f);
}
