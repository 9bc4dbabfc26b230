#include "platform/geometry/meshio.h"

#include <assimp/DefaultLogger.hpp>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

namespace ruGeom {

namespace {

using ruString::CString;

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

void setError(CString* error, const CString& path, const CString& what) {
  if (error) *error = CString::format("mesh file '%s': %s", path.c_str(), what.c_str());
}

bool endsWith(const std::string& text, const char* suffix) {
  const std::size_t n = std::strlen(suffix);
  if (text.size() < n) return false;
  for (std::size_t i = 0; i < n; ++i) {
    if (std::tolower(static_cast<unsigned char>(text[text.size() - n + i])) != suffix[i]) return false;
  }
  return true;
}

// Whole-file bytes for the text checks; false when the file cannot be read.
bool readAll(std::FILE* file, long size, std::string& bytes) {
  bytes.resize(static_cast<std::size_t>(size));
  std::fseek(file, 0, SEEK_SET);
  return std::fread(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

// A binary STL may start with "solid" too; text has no control bytes besides white space.
bool looksLikeText(std::FILE* file, long size) {
  unsigned char chunk[512];
  std::fseek(file, 0, SEEK_SET);
  const std::size_t n = std::fread(chunk, 1, static_cast<std::size_t>(std::min<long>(size, sizeof chunk)), file);
  for (std::size_t i = 0; i < n; ++i) {
    if (chunk[i] < 32 && !std::isspace(chunk[i])) return false;
  }
  return true;
}

// Splits text into white-space separated words, counting lines, for the text format checks.
class Words {
public:
  explicit Words(const std::string& text) : text_(text) {}
  // The next word; false at the end of the text.
  bool next(std::string& word) {
    skipSpace();
    if (pos_ >= text_.size()) return false;
    wordLine_ = line_;
    const std::size_t begin = pos_;
    while (pos_ < text_.size() && !std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    word.assign(text_, begin, pos_ - begin);
    return true;
  }
  // Skips to the start of the next line (the rest of this one is a name).
  void skipLine() {
    while (pos_ < text_.size() && text_[pos_] != '\n') ++pos_;
  }
  // True when only white space is left.
  bool atEnd() {
    skipSpace();
    return pos_ >= text_.size();
  }
  // The line of the last word read, from 1.
  int line() const noexcept { return wordLine_; }

private:
  void skipSpace() {
    while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) {
      if (text_[pos_] == '\n') ++line_;
      ++pos_;
    }
  }
  const std::string& text_;
  std::size_t pos_ = 0;
  int line_ = 1;
  int wordLine_ = 1;
};

bool isNumber(const std::string& word) {
  if (word.empty()) return false;
  char* end = nullptr;
  const double value = std::strtod(word.c_str(), &end);
  return end && *end == '\0' && std::isfinite(value);
}

// The importer accepts an ASCII STL that stops in the middle of a facet, or has no endsolid, and
// keeps the facets before the cut; so the whole text is checked here first: one or more solids
// of complete facets (facet normal x y z, outer loop, three vertices, endloop, endfacet), each
// closed by endsolid.
bool checkAsciiStl(std::FILE* file, long size, CString& what) {
  std::string text;
  if (!readAll(file, size, text)) {
    what = "cannot read the file";
    return false;
  }
  Words words(text);
  std::string word;
  int facet = 0;
  bool inFacet = false;
  // Reports a word that is not the one expected: the end of the text means a cut, anything else
  // a malformed file.
  auto unexpected = [&](const char* expected) {
    if (words.atEnd()) {
      what = inFacet ? CString::format("truncated ASCII STL (facet %d incomplete)", facet)
                     : CString("truncated ASCII STL (no endsolid)");
    } else {
      what = CString::format("malformed ASCII STL (line %d: expected %s, found '%s')", words.line(), expected,
                             word.c_str());
    }
    return false;
  };
  auto expect = [&](const char* keyword) { return words.next(word) && word == keyword; };
  // Normals are not kept, and some writers give degenerate facets "nan" ones: any number will do.
  auto numbers = [&](int count, bool finite) {
    for (int i = 0; i < count; ++i) {
      if (!words.next(word)) return false;
      char* end = nullptr;
      const double value = std::strtod(word.c_str(), &end);
      if (word.empty() || *end != '\0' || (finite && !std::isfinite(value))) return false;
    }
    return true;
  };
  // The caller saw "solid" at the start; the name may follow without a space.
  words.next(word);
  words.skipLine();
  for (;;) {
    if (!words.next(word)) return unexpected("'facet' or 'endsolid'");
    if (word == "endsolid") {
      words.skipLine();
      if (words.atEnd()) return true;
      // Another solid may follow.
      if (!expect("solid")) return unexpected("'solid' or the end of the file");
      words.skipLine();
      continue;
    }
    if (word != "facet") return unexpected("'facet' or 'endsolid'");
    ++facet;
    inFacet = true;
    if (!expect("normal")) return unexpected("'normal'");
    if (!numbers(3, false)) return unexpected("three numbers for the normal");
    if (!expect("outer")) return unexpected("'outer loop'");
    if (!expect("loop")) return unexpected("'outer loop'");
    for (int corner = 0; corner < 3; ++corner) {
      if (!expect("vertex")) return unexpected("'vertex'");
      if (!numbers(3, true)) return unexpected("three numbers for the vertex");
    }
    if (!expect("endloop")) return unexpected("'endloop'");
    if (!expect("endfacet")) return unexpected("'endfacet'");
    inFacet = false;
  }
}

// The importer turns an OBJ face of fewer than three corners into a point or a line, which the
// import then drops without a word; a file cut in the middle of a face line looks just like
// that. Such faces, and vertices without three coordinates, make the file malformed.
bool checkObj(std::FILE* file, long size, CString& what) {
  std::string text;
  if (!readAll(file, size, text)) {
    what = "cannot read the file";
    return false;
  }
  // Plain pointer scanning: a large OBJ has millions of lines.
  const char* p = text.c_str();
  const char* const stop = p + text.size();
  auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; };
  auto nextItem = [&](std::string& item) {
    while (p < stop && isBlank(*p)) ++p;
    const char* begin = p;
    while (p < stop && *p != '\n' && !isBlank(*p)) ++p;
    item.assign(begin, p);
    return !item.empty();
  };
  std::string keyword, item;
  for (int lineNumber = 1; p < stop; ++lineNumber) {
    nextItem(keyword);
    if (keyword == "f") {
      int corners = 0;
      while (nextItem(item)) {
        char* rest = nullptr;
        std::strtol(item.c_str(), &rest, 10);
        if (rest == item.c_str() || (*rest != '\0' && *rest != '/')) {
          what = CString::format("malformed OBJ (line %d: face corner '%s' is not a vertex index)", lineNumber,
                                 item.c_str());
          return false;
        }
        ++corners;
      }
      if (corners < 3) {
        what = CString::format("malformed OBJ (line %d: a face needs at least 3 vertices, it has %d)", lineNumber,
                               corners);
        return false;
      }
    } else if (keyword == "v") {
      for (int i = 0; i < 3; ++i) {
        if (!nextItem(item) || !isNumber(item)) {
          what = CString::format("malformed OBJ (line %d: a vertex needs three coordinates)", lineNumber);
          return false;
        }
      }
    }
    while (p < stop && *p != '\n') ++p;  // the rest of the line
    ++p;
  }
  return true;
}

// A binary STL states its facet count; check it against the size before the importer reads, so a
// truncated file is an error and not a short or garbled mesh.
bool checkStl(std::FILE* file, long size, CString& what) {
  if (size < 15) {
    what = "file too small to be an STL file";
    return false;
  }
  char start[6] = {0};
  std::fseek(file, 0, SEEK_SET);
  if (std::fread(start, 1, 5, file) != 5) {
    what = "cannot read the header";
    return false;
  }
  std::uint32_t count = 0;
  if (size >= 84) {
    std::fseek(file, 80, SEEK_SET);
    unsigned char c[4];
    if (std::fread(c, 1, 4, file) != 4) {
      what = "cannot read the facet count";
      return false;
    }
    count = c[0] | (c[1] << 8) | (c[2] << 16) | (static_cast<std::uint32_t>(c[3]) << 24);
    const long expected = 84 + 50 * static_cast<long>(count);
    if (expected == size) return true;  // binary, whatever its header says
  }
  if (std::strncmp(start, "solid", 5) == 0 && looksLikeText(file, size)) return checkAsciiStl(file, size, what);
  if (size < 84) {
    what = "truncated binary STL (shorter than its 84-byte header)";
  } else {
    what = CString::format("truncated or malformed binary STL: %u facets need %ld bytes, the file has %ld",
                           count, 84 + 50 * static_cast<long>(count), size);
  }
  return false;
}

int plyScalarSize(const std::string& type) {
  if (type == "char" || type == "uchar" || type == "int8" || type == "uint8") return 1;
  if (type == "short" || type == "ushort" || type == "int16" || type == "uint16") return 2;
  if (type == "int" || type == "uint" || type == "float" || type == "int32" || type == "uint32" || type == "float32") return 4;
  if (type == "double" || type == "float64") return 8;
  return 0;
}

// Walks a PLY file's header and body to check that every element the header announces is there.
// The importer does not stop on a short body (it can read forever), so a truncated file must be
// caught before it.
bool checkPly(std::FILE* file, long size, CString& what) {
  std::vector<char> bytes(static_cast<std::size_t>(size));
  std::fseek(file, 0, SEEK_SET);
  if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
    what = "cannot read the file";
    return false;
  }
  struct Property {
    int size = 0;       // scalar size, or the size of a list's items
    int countSize = 0;  // non-zero for a list: size of its count
  };
  struct Element {
    long long count = 0;
    std::vector<Property> properties;
  };
  std::vector<Element> elements;
  std::size_t pos = 0;
  auto nextLine = [&](std::string& line) {
    if (pos >= bytes.size()) return false;
    std::size_t end = pos;
    while (end < bytes.size() && bytes[end] != '\n') ++end;
    line.assign(bytes.data() + pos, end - pos);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    pos = end + 1;
    return true;
  };
  std::string line, format;
  if (!nextLine(line) || line != "ply") {
    what = "not a PLY file (it does not start with 'ply')";
    return false;
  }
  bool ended = false;
  while (nextLine(line)) {
    std::istringstream words(line);
    std::string keyword;
    words >> keyword;
    if (keyword == "format") {
      words >> format;
    } else if (keyword == "element") {
      std::string name;
      Element element;
      if (!(words >> name >> element.count) || element.count < 0) {
        what = CString::format("malformed PLY header line '%s'", line.c_str());
        return false;
      }
      elements.push_back(element);
    } else if (keyword == "property") {
      std::string type;
      words >> type;
      Property property;
      if (type == "list") {
        std::string countType, itemType;
        words >> countType >> itemType;
        property.countSize = plyScalarSize(countType);
        property.size = plyScalarSize(itemType);
      } else {
        property.size = plyScalarSize(type);
      }
      if (elements.empty() || property.size == 0 || (type == "list" && property.countSize == 0)) {
        what = CString::format("malformed PLY header line '%s'", line.c_str());
        return false;
      }
      elements.back().properties.push_back(property);
    } else if (keyword == "end_header") {
      ended = true;
      break;
    }
  }
  if (!ended) {
    what = "truncated PLY header (no end_header)";
    return false;
  }
  const bool ascii = format == "ascii";
  const bool little = format == "binary_little_endian";
  if (!ascii && !little && format != "binary_big_endian") {
    what = CString::format("unknown PLY format '%s'", format.c_str());
    return false;
  }
  auto readToken = [&](double& value) {
    while (pos < bytes.size() && std::isspace(static_cast<unsigned char>(bytes[pos]))) ++pos;
    if (pos >= bytes.size()) return false;
    char* end = nullptr;
    std::string token;
    while (pos < bytes.size() && !std::isspace(static_cast<unsigned char>(bytes[pos]))) token += bytes[pos++];
    value = std::strtod(token.c_str(), &end);
    return end && *end == '\0';
  };
  auto readCount = [&](int countSize, double& value) {
    if (ascii) return readToken(value);
    if (pos + countSize > bytes.size()) return false;
    std::uint64_t raw = 0;
    for (int i = 0; i < countSize; ++i) {
      const std::uint64_t byte = static_cast<unsigned char>(bytes[pos + (little ? i : countSize - 1 - i)]);
      raw |= byte << (8 * i);
    }
    pos += countSize;
    value = static_cast<double>(raw);
    return true;
  };
  for (const Element& element : elements) {
    for (long long i = 0; i < element.count; ++i) {
      for (const Property& property : element.properties) {
        double value = 0;
        long long items = 1;
        if (property.countSize) {
          if (!readCount(property.countSize, value) || value < 0) {
            what = "truncated or malformed PLY data";
            return false;
          }
          items = static_cast<long long>(value);
        }
        if (ascii) {
          for (long long k = 0; k < items; ++k) {
            if (!readToken(value)) {
              what = "truncated or malformed PLY data";
              return false;
            }
          }
        } else {
          const std::size_t need = static_cast<std::size_t>(items) * property.size;
          if (need > bytes.size() - pos) {
            what = "truncated PLY data";
            return false;
          }
          pos += need;
        }
      }
    }
  }
  return true;
}

struct KeyHash {
  std::size_t operator()(const MeshVertex& v) const noexcept {
    std::uint32_t bits[3];
    std::memcpy(bits, &v, sizeof bits);
    std::uint64_t h = bits[0] * 0x9E3779B97F4A7C15ull;
    h ^= bits[1] + 0x7F4A7C159E3779B9ull + (h << 6) + (h >> 2);
    h ^= bits[2] * 0xC2B2AE3D27D4EB4Full + (h << 6) + (h >> 2);
    return static_cast<std::size_t>(h ^ (h >> 29));
  }
};

}  // namespace

bool importMesh(const CString& path, CompactMesh& mesh, CString* error) {
  mesh.clear();
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    setError(error, path, CString::format("cannot open (%s)", std::strerror(errno)));
    return false;
  }
  if (std::fseek(file.get(), 0, SEEK_END) != 0) {
    setError(error, path, "cannot read (not a regular file)");
    return false;
  }
  const long size = std::ftell(file.get());
  if (size <= 0) {
    setError(error, path, size == 0 ? CString("the file is empty") : CString("cannot read (not a regular file)"));
    return false;
  }
  const std::string& name = path.str();
  const bool stl = endsWith(name, ".stl");
  if (!stl && !endsWith(name, ".obj") && !endsWith(name, ".3mf") && !endsWith(name, ".ply")) {
    setError(error, path, "unsupported file type (expected .stl, .obj, .3mf or .ply)");
    return false;
  }
  const bool objFile = endsWith(name, ".obj");
  if (stl || objFile || endsWith(name, ".ply")) {
    CString what;
    const bool ok = stl ? checkStl(file.get(), size, what)
                        : objFile ? checkObj(file.get(), size, what) : checkPly(file.get(), size, what);
    if (!ok) {
      setError(error, path, what);
      return false;
    }
  }
  file.reset();

  Assimp::Importer importer;
  // Only what we keep: positions and faces.
  importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS | aiComponent_TANGENTS_AND_BITANGENTS |
                                                          aiComponent_COLORS | aiComponent_TEXCOORDS |
                                                          aiComponent_BONEWEIGHTS | aiComponent_ANIMATIONS |
                                                          aiComponent_TEXTURES | aiComponent_LIGHTS |
                                                          aiComponent_CAMERAS | aiComponent_MATERIALS);
  importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
  const aiScene* scene = nullptr;
  try {
    scene = importer.ReadFile(path.c_str(), aiProcess_Triangulate | aiProcess_RemoveComponent |
                                                aiProcess_SortByPType | aiProcess_PreTransformVertices);
  } catch (const std::exception& e) {
    setError(error, path, CString::format("malformed file (%s)", e.what()));
    return false;
  } catch (...) {
    setError(error, path, "malformed file");
    return false;
  }
  if (!scene) {
    const char* reason = importer.GetErrorString();
    setError(error, path, CString::format("malformed or unreadable file (%s)", reason && *reason ? reason : "unknown reason"));
    return false;
  }
  if (scene->mFlags & AI_SCENE_FLAGS_INCOMPLETE) {
    setError(error, path, "incomplete or malformed file");
    return false;
  }
  std::size_t totalFaces = 0, totalVertices = 0;
  for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
    const aiMesh* part = scene->mMeshes[m];
    if (!(part->mPrimitiveTypes & aiPrimitiveType_TRIANGLE)) continue;
    totalFaces += part->mNumFaces;
    totalVertices += part->mNumVertices;
  }
  std::vector<std::uint32_t> triangles;
  triangles.reserve(totalFaces * 3);
  std::vector<MeshVertex> vertices;
  vertices.reserve(totalVertices / 4 + 16);
  std::unordered_map<MeshVertex, std::uint32_t, KeyHash> weld;
  weld.reserve(totalVertices / 4 + 16);
  std::vector<std::uint32_t> remap;
  for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
    const aiMesh* part = scene->mMeshes[m];
    if (!(part->mPrimitiveTypes & aiPrimitiveType_TRIANGLE)) continue;
    remap.resize(part->mNumVertices);
    for (unsigned i = 0; i < part->mNumVertices; ++i) {
      const aiVector3D& p = part->mVertices[i];
      if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
        setError(error, path, CString::format("malformed file (vertex %u is not a finite number)", i));
        return false;
      }
      // +0.0f folds -0 into 0 so that the two weld.
      const MeshVertex v(p.x + 0.0f, p.y + 0.0f, p.z + 0.0f);
      auto [it, inserted] = weld.try_emplace(v, static_cast<std::uint32_t>(vertices.size()));
      if (inserted) vertices.push_back(v);
      remap[i] = it->second;
    }
    for (unsigned f = 0; f < part->mNumFaces; ++f) {
      const aiFace& face = part->mFaces[f];
      if (face.mNumIndices != 3) continue;
      bool ok = true;
      for (int c = 0; c < 3; ++c) ok = ok && face.mIndices[c] < part->mNumVertices;
      if (!ok) {
        setError(error, path, CString::format("malformed file (face %u names a missing vertex)", f));
        return false;
      }
      for (int c = 0; c < 3; ++c) triangles.push_back(remap[face.mIndices[c]]);
    }
  }
  if (triangles.empty()) {
    setError(error, path, "the file holds no triangles");
    return false;
  }
  mesh.setNumVertices(static_cast<int>(vertices.size()));
  std::memcpy(mesh.editVertices(), vertices.data(), vertices.size() * sizeof(MeshVertex));
  mesh.setNumTriangles(static_cast<int>(triangles.size() / 3));
  std::memcpy(mesh.editTriangles(), triangles.data(), triangles.size() * sizeof(std::uint32_t));
  return true;
}

bool writeStlBinary(const CompactMesh& mesh, const CString& path, CString* error) {
  const int numTriangles = mesh.getNumTriangles();
  if (numTriangles == 0) {
    setError(error, path, "nothing to write: the mesh has no triangles");
    return false;
  }
  const std::uint32_t* tri = mesh.getTriangles();
  const MeshVertex* v = mesh.getVertices();
  for (std::size_t i = 0; i < static_cast<std::size_t>(numTriangles) * 3; ++i) {
    if (tri[i] >= static_cast<std::uint32_t>(mesh.getNumVertices())) {
      setError(error, path, CString::format("cannot write: triangle %zu names missing vertex %u", i / 3, tri[i]));
      return false;
    }
  }
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    setError(error, path, CString::format("cannot open for writing (%s)", std::strerror(errno)));
    return false;
  }
  std::vector<unsigned char> bytes(84 + 50 * static_cast<std::size_t>(numTriangles), 0);
  const char header[] = "binary STL";
  std::memcpy(bytes.data(), header, sizeof header - 1);
  const std::uint32_t count = static_cast<std::uint32_t>(numTriangles);
  std::memcpy(bytes.data() + 80, &count, 4);  // little-endian machines only, as the format
  unsigned char* out = bytes.data() + 84;
  for (int t = 0; t < numTriangles; ++t, out += 50) {
    const MeshVertex& a = v[tri[3 * t]];
    const MeshVertex& b = v[tri[3 * t + 1]];
    const MeshVertex& c = v[tri[3 * t + 2]];
    ruLinear::Vector n = ruLinear::cross(b.asPoint() - a.asPoint(), c.asPoint() - a.asPoint());
    const double length = n.length();
    if (length > 0) n /= length;
    const float facet[12] = {static_cast<float>(n.getX()), static_cast<float>(n.getY()), static_cast<float>(n.getZ()),
                             a.x, a.y, a.z, b.x, b.y, b.z, c.x, c.y, c.z};
    std::memcpy(out, facet, sizeof facet);
  }
  if (std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() || std::fflush(file.get()) != 0) {
    setError(error, path, CString::format("cannot write (%s)", std::strerror(errno)));
    return false;
  }
  return true;
}

}  // namespace ruGeom
