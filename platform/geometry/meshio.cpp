#include "platform/geometry/meshio.h"

#include <assimp/DefaultLogger.hpp>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
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
  long elements = 0;  // faces, lines and points
  for (int lineNumber = 1; p < stop; ++lineNumber) {
    nextItem(keyword);
    if (keyword == "l" || keyword == "p") ++elements;
    if (keyword == "f") {
      ++elements;
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
  // The importer has nothing to give for a file of vertices alone and says so in its own words.
  if (elements == 0) {
    what = "OBJ without faces (nothing to import)";
    return false;
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

// Bytes of a PLY scalar type; 0 for an unknown type.
int plyScalarSize(const std::string& type) {
  if (type == "char" || type == "uchar" || type == "int8" || type == "uint8") return 1;
  if (type == "short" || type == "ushort" || type == "int16" || type == "uint16") return 2;
  if (type == "int" || type == "uint" || type == "float" || type == "int32" || type == "uint32" || type == "float32") return 4;
  if (type == "double" || type == "float64") return 8;
  return 0;
}

bool plyIsFloat(const std::string& type) {
  return type == "float" || type == "float32" || type == "double" || type == "float64";
}

bool plyIsSigned(const std::string& type) {
  return type == "char" || type == "int8" || type == "short" || type == "int16" || type == "int" || type == "int32";
}

// A count written in decimal digits only (no sign, exponent or fraction), at most `limit`.
bool parseCount(const std::string& word, std::uint64_t limit, std::uint64_t& value) {
  if (word.empty() || word.size() > 20) return false;
  value = 0;
  for (char c : word) {
    if (c < '0' || c > '9') return false;
    const std::uint64_t digit = static_cast<std::uint64_t>(c - '0');
    if (digit > limit || value > (limit - digit) / 10) return false;
    value = value * 10 + digit;
  }
  return true;
}

// Reads a PLY file's vertices (x, y, z of the "vertex" element) and faces (the vertex_indices
// lists of the "face" element, polygons split into fans) itself, checking the header and every
// value of the body: assimp's reader trusted the header's counts (an element with a count and no
// properties made it loop for as long as the count said), converted list counts unchecked, and
// misread a binary body whose first byte is a line feed. Every count is bounded by the bytes the
// file has, so reading takes at most one step per byte.
bool readPly(std::FILE* file, long size, std::vector<MeshVertex>& vertices, std::vector<std::uint32_t>& triangles,
             CString& what) {
  std::vector<char> bytes(static_cast<std::size_t>(size));
  std::fseek(file, 0, SEEK_SET);
  if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
    what = "cannot read the file";
    return false;
  }
  struct Property {
    std::string name;
    int size = 0;          // scalar size, or the size of a list's items
    int countSize = 0;     // non-zero for a list: size of its count
    bool countSigned = false;
    bool itemFloat = false;
    bool itemSigned = false;
  };
  struct Element {
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;
  };
  std::vector<Element> elements;
  std::size_t pos = 0;
  int lineNumber = 0;
  auto nextLine = [&](std::string& line) {
    if (pos >= bytes.size()) return false;
    std::size_t end = pos;
    while (end < bytes.size() && bytes[end] != '\n') ++end;
    line.assign(bytes.data() + pos, end - pos);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    pos = end + 1;
    ++lineNumber;
    return true;
  };
  auto malformed = [&](const std::string& line, const char* why) {
    what = CString::format("malformed PLY header (line %d, '%s': %s)", lineNumber, line.c_str(), why);
    return false;
  };
  std::string line, format;
  if (!nextLine(line) || line != "ply") {
    what = "not a PLY file (it does not start with 'ply')";
    return false;
  }
  bool ended = false;
  while (nextLine(line)) {
    // A header cut short ends in a partial line; say so rather than judge the fragment.
    if (pos > bytes.size()) break;
    // The importer ends a header line at a NUL and splits words its own way: only plain text
    // reads the same to both.
    for (char c : line) {
      if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || static_cast<unsigned char>(c) > 0x7E) {
        return malformed("(not shown)", "a byte that is not plain text");
      }
    }
    std::istringstream words(line);
    std::string keyword;
    words >> keyword;
    if (keyword == "format") {
      std::string version;
      if (!format.empty()) return malformed(line, "a second format line");
      if (!(words >> format >> version)) return malformed(line, "expected a format and a version");
      if (format != "ascii" && format != "binary_little_endian" && format != "binary_big_endian") {
        what = CString::format("unknown PLY format '%s'", format.c_str());
        return false;
      }
    } else if (keyword == "element") {
      Element element;
      std::string count, extra;
      if (!(words >> element.name >> count) || (words >> extra)) {
        return malformed(line, "expected an element name and a count");
      }
      // The importer keeps counts in 32 bits.
      if (!parseCount(count, 0xFFFFFFFFu, element.count)) {
        return malformed(line, "the count is not a whole number below 2^32");
      }
      for (const Element& other : elements) {
        if (other.name == element.name) return malformed(line, "an element of that name is already declared");
      }
      elements.push_back(std::move(element));
    } else if (keyword == "property") {
      if (elements.empty()) return malformed(line, "a property before any element");
      std::string type, extra;
      words >> type;
      Property property;
      if (type == "list") {
        std::string countType, itemType;
        words >> countType >> itemType;
        property.countSize = plyScalarSize(countType);
        property.size = plyScalarSize(itemType);
        if (property.countSize == 0 || property.size == 0 || plyIsFloat(countType)) {
          return malformed(line, "a list needs an integer count type and a known item type");
        }
        property.countSigned = plyIsSigned(countType);
        property.itemFloat = plyIsFloat(itemType);
        property.itemSigned = plyIsSigned(itemType);
      } else {
        property.size = plyScalarSize(type);
        if (property.size == 0) return malformed(line, "unknown property type");
        property.itemFloat = plyIsFloat(type);
        property.itemSigned = plyIsSigned(type);
      }
      if (!(words >> property.name) || (words >> extra)) return malformed(line, "expected a property name");
      for (const Property& other : elements.back().properties) {
        if (other.name == property.name) return malformed(line, "a property of that name is already declared");
      }
      elements.back().properties.push_back(std::move(property));
    } else if (keyword == "end_header") {
      ended = true;
      break;
    } else if (keyword != "comment" && keyword != "obj_info" && !keyword.empty()) {
      return malformed(line, "unknown keyword");
    }
  }
  if (!ended) {
    what = "truncated PLY header (no end_header)";
    return false;
  }
  if (format.empty()) {
    what = "malformed PLY header (no format line)";
    return false;
  }
  const bool ascii = format == "ascii";
  const bool little = format == "binary_little_endian";
  pos = std::min(pos, bytes.size());  // end_header may be the last line, without its line feed
  const std::size_t body = bytes.size() - pos;
  std::uint64_t vertexCount = 0;
  for (const Element& element : elements) {
    if (element.name == "vertex") vertexCount = element.count;
    if (element.count > 0 && element.properties.empty()) {
      what = CString::format("malformed PLY header (element '%s' has %llu entries but no properties)",
                             element.name.c_str(), static_cast<unsigned long long>(element.count));
      return false;
    }
    // An entry takes at least one byte a property (a binary scalar or list count, or a digit), so
    // a count beyond what the body can hold is a lie, whatever the entries would hold.
    std::uint64_t entryBytes = 0;
    for (const Property& property : element.properties) {
      entryBytes += ascii ? 1u : static_cast<std::uint64_t>(property.countSize ? property.countSize : property.size);
    }
    if (element.count > body / std::max<std::uint64_t>(entryBytes, 1)) {
      what = CString::format("malformed PLY header (element '%s' claims %llu entries, more than the %zu bytes of "
                             "data can hold)",
                             element.name.c_str(), static_cast<unsigned long long>(element.count), body);
      return false;
    }
  }
  std::string token;
  // The importer reads an ASCII entry as one line, so an entry must be exactly one line: the
  // words are read up to `lineEnd` only.
  std::size_t lineEnd = 0;
  auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; };
  auto readToken = [&]() {
    while (pos < lineEnd && isBlank(bytes[pos])) ++pos;
    token.clear();
    while (pos < lineEnd && !isBlank(bytes[pos])) token += bytes[pos++];
    return !token.empty();
  };
  // Reads one binary integer of `byteCount` bytes; false at the end of the data.
  auto readInteger = [&](int byteCount, bool isSigned, std::int64_t& value) {
    if (static_cast<std::size_t>(byteCount) > bytes.size() - pos) return false;
    std::uint64_t raw = 0;
    for (int i = 0; i < byteCount; ++i) {
      const std::uint64_t byte = static_cast<unsigned char>(bytes[pos + (little ? i : byteCount - 1 - i)]);
      raw |= byte << (8 * i);
    }
    pos += static_cast<std::size_t>(byteCount);
    if (isSigned && byteCount < 8 && (raw >> (8 * byteCount - 1)) != 0) {
      value = static_cast<std::int64_t>(raw) - (std::int64_t(1) << (8 * byteCount));
    } else {
      value = static_cast<std::int64_t>(raw);
    }
    return true;
  };
  auto dataError = [&](const Element& element, std::uint64_t entry, const char* why) {
    what = CString::format("truncated or malformed PLY data (element '%s' entry %llu: %s)", element.name.c_str(),
                           static_cast<unsigned long long>(entry), why);
    return false;
  };
  // Reads one binary scalar of the property's item type as a double; false at the end of the data.
  auto readScalar = [&](const Property& property, double& value) {
    std::int64_t raw = 0;
    if (!readInteger(property.size, property.itemSigned && !property.itemFloat, raw)) return false;
    if (!property.itemFloat) {
      value = static_cast<double>(raw);
    } else if (property.size == 4) {
      const std::uint32_t word = static_cast<std::uint32_t>(raw);
      float f;
      std::memcpy(&f, &word, sizeof f);
      value = f;
    } else {
      const std::uint64_t word = static_cast<std::uint64_t>(raw);
      std::memcpy(&value, &word, sizeof value);
    }
    return true;
  };
  std::vector<std::uint32_t> polygon;
  for (const Element& element : elements) {
    const bool vertexElement = element.name == "vertex";
    const bool faceElement = element.name == "face";
    if (vertexElement) {
      int found = 0;
      for (const Property& property : element.properties) {
        if (!property.countSize && (property.name == "x" || property.name == "y" || property.name == "z")) ++found;
      }
      if (found != 3 && element.count > 0) {
        what = "malformed PLY header (the vertices lack an x, y or z coordinate)";
        return false;
      }
      vertices.reserve(static_cast<std::size_t>(element.count));
    }
    for (std::uint64_t i = 0; i < element.count; ++i) {
      if (ascii) {
        if (pos >= bytes.size()) return dataError(element, i, "the data ends early");
        lineEnd = pos;
        while (lineEnd < bytes.size() && bytes[lineEnd] != '\n') ++lineEnd;
      }
      float corner[3] = {0, 0, 0};
      for (const Property& property : element.properties) {
        const bool corners = faceElement && (property.name == "vertex_indices" || property.name == "vertex_index");
        const int axis = !vertexElement || property.countSize ? -1
                         : property.name == "x"               ? 0
                         : property.name == "y"               ? 1
                         : property.name == "z"               ? 2
                                                              : -1;
        std::uint64_t items = 1;
        if (property.countSize) {
          const std::size_t left = bytes.size() - pos;
          if (ascii) {
            if (!readToken()) return dataError(element, i, "the data ends before a list count");
            if (!parseCount(token, left, items)) return dataError(element, i, "a list count out of range");
          } else {
            std::int64_t count = 0;
            if (!readInteger(property.countSize, property.countSigned, count)) {
              return dataError(element, i, "the data ends before a list count");
            }
            if (count < 0) return dataError(element, i, "a negative list count");
            if (static_cast<std::uint64_t>(count) > (left - property.countSize) / property.size) {
              what = CString::format("truncated PLY data (element '%s' entry %llu: a list of %lld items runs past "
                                     "the end of the file)",
                                     element.name.c_str(), static_cast<unsigned long long>(i),
                                     static_cast<long long>(count));
              return false;
            }
            items = static_cast<std::uint64_t>(count);
          }
        }
        polygon.clear();
        for (std::uint64_t k = 0; k < items; ++k) {
          double value = 0;
          if (ascii) {
            if (!readToken()) return dataError(element, i, "the data ends early");
            char* end = nullptr;
            value = std::strtod(token.c_str(), &end);
            if (!end || *end != '\0') return dataError(element, i, "a value is not a number");
          } else if (!readScalar(property, value)) {
            return dataError(element, i, "the data ends early");
          }
          if (corners) {
            if (!(value >= 0 && value < static_cast<double>(vertexCount) && value == std::floor(value))) {
              return dataError(element, i, "a face names a missing vertex");
            }
            polygon.push_back(static_cast<std::uint32_t>(value));
          } else if (axis >= 0) {
            if (!std::isfinite(value) || std::fabs(value) > static_cast<double>(std::numeric_limits<float>::max())) {
              return dataError(element, i, "a coordinate is not a finite number");
            }
            corner[axis] = static_cast<float>(value);
          }
        }
        // A polygon becomes a fan of triangles; points and lines are ignored.
        for (std::size_t k = 2; k < polygon.size(); ++k) {
          triangles.insert(triangles.end(), {polygon[0], polygon[k - 1], polygon[k]});
        }
      }
      if (vertexElement) vertices.emplace_back(corner[0], corner[1], corner[2]);
      if (ascii) {
        if (readToken()) return dataError(element, i, "more values on its line than its properties");
        pos = lineEnd + 1;
      }
    }
  }
  return true;
}

std::uint32_t readLe32(const unsigned char* p) noexcept {
  return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
std::uint32_t readLe16(const unsigned char* p) noexcept { return p[0] | (p[1] << 8); }

// One element of a strictly read XML text: its name, depth (0 for the root) and attributes.
struct XmlElement {
  std::string name;
  int depth = 0;
  std::vector<std::pair<std::string, std::string>> attributes;
  const std::string* find(const char* key) const {
    for (const auto& [k, v] : attributes) {
      if (k == key) return &v;
    }
    return nullptr;
  }
};

// Reads a small XML text strictly: declarations and comments, elements with quoted attributes
// (no entities, no duplicates), matching end tags, one root, and nothing else. What passes
// here any XML reader sees the same way; anything unusual is refused.
bool readStrictXml(const std::string& text, std::vector<XmlElement>& elements) {
  auto isNameChar = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':' || c == '.' || c == '-';
  };
  auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  std::vector<std::string> open;
  bool rootSeen = false;
  // Control characters, NUL above all (which ends the text for C readers), are refused.
  for (char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 && !isSpace(c)) return false;
  }
  std::size_t p = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;  // a byte order mark
  const std::size_t n = text.size();
  auto readName = [&](std::string& name) {
    const std::size_t begin = p;
    // A name starts with a letter, '_' or ':'.
    if (p >= n || !(std::isalpha(static_cast<unsigned char>(text[p])) || text[p] == '_' || text[p] == ':')) return false;
    while (p < n && isNameChar(text[p])) ++p;
    name.assign(text, begin, p - begin);
    return !name.empty();
  };
  auto skipSpace = [&] {
    while (p < n && isSpace(text[p])) ++p;
  };
  // Attributes up to the end of a tag: "/>" or ">" for an element, "?>" for the declaration.
  // Sets `empty` for "/>".
  auto readAttributes = [&](XmlElement& element, bool declaration, bool& empty) {
    for (;;) {
      const std::size_t before = p;
      skipSpace();
      if (p >= n) return false;
      if (declaration ? text.compare(p, 2, "?>") == 0 : (text[p] == '>' || text.compare(p, 2, "/>") == 0)) break;
      std::string key;
      if (p == before || !readName(key)) return false;  // attributes stand apart
      skipSpace();
      if (p >= n || text[p] != '=') return false;
      ++p;
      skipSpace();
      if (p >= n || (text[p] != '"' && text[p] != '\'')) return false;
      const std::size_t end = text.find(text[p], p + 1);
      if (end == std::string::npos) return false;
      std::string value = text.substr(p + 1, end - p - 1);
      if (value.find_first_of("<&") != std::string::npos || element.find(key.c_str())) return false;
      element.attributes.emplace_back(std::move(key), std::move(value));
      p = end + 1;
    }
    empty = text[p] != '>';
    p += empty ? 2 : 1;
    return true;
  };
  bool started = false;  // anything but white space read
  while (p < n) {
    if (text[p] != '<') {
      if (text[p] == '&' || (open.empty() && !isSpace(text[p]))) return false;
      ++p;
      continue;
    }
    if (text.compare(p, 2, "<?") == 0) {
      // Only the XML declaration, first of all.
      if (started || text.compare(p, 6, "<?xml ") != 0) return false;
      p += 5;
      XmlElement declaration;
      bool empty = false;
      if (!readAttributes(declaration, true, empty)) return false;
    } else if (text.compare(p, 4, "<!--") == 0) {
      const std::size_t end = text.find("--", p + 4);
      if (end == std::string::npos || text.compare(end, 3, "-->") != 0) return false;
      p = end + 3;
    } else if (text.compare(p, 2, "</") == 0) {
      p += 2;
      std::string name;
      if (!readName(name) || open.empty() || open.back() != name) return false;
      skipSpace();
      if (p >= n || text[p] != '>') return false;
      ++p;
      open.pop_back();
    } else {
      ++p;
      XmlElement element;
      if ((open.empty() && rootSeen) || !readName(element.name)) return false;
      element.depth = static_cast<int>(open.size());
      bool empty = false;
      if (!readAttributes(element, false, empty)) return false;
      if (!empty) open.push_back(element.name);
      rootSeen = true;
      elements.push_back(std::move(element));
    }
    started = true;
  }
  return rootSeen && open.empty();
}

// Checks the package relationships: every one naming a 3D model must name, by a plain part name,
// a part the archive holds, for the reader opens the one it picks without checking.
bool checkModelRelationships(const std::string& relationships, const std::vector<std::string>& parts, CString& what) {
  static const char* const modelType = "http://schemas.microsoft.com/3dmanufacturing/2013/01/3dmodel";
  std::vector<XmlElement> elements;
  if (!readStrictXml(relationships, elements) || elements.empty() || elements.front().name != "Relationships") {
    what = "malformed 3MF package (its relationships are not plain, well-formed XML)";
    return false;
  }
  int models = 0;
  for (const XmlElement& element : elements) {
    if (element.name != "Relationship") continue;
    if (element.depth != 1) {
      what = "malformed 3MF package (a relationship outside the relationships list)";
      return false;
    }
    const std::string* type = element.find("Type");
    if (!type || *type != modelType) continue;
    ++models;
    const std::string* id = element.find("Id");
    const std::string* target = element.find("Target");
    if (!id || id->empty() || !target) {
      what = "malformed 3MF package (a 3D model relationship without its Id or Target)";
      return false;
    }
    std::size_t slashes = 0;
    while (slashes < 2 && slashes < target->size() && (*target)[slashes] == '/') ++slashes;
    const std::string part = target->substr(slashes);
    // Only plain part names: the reader's own spelling rules for others are not ours to guess.
    const bool plain =
        !part.empty() &&
        part.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-/") == std::string::npos &&
        part.find("//") == std::string::npos && part.find("./") == std::string::npos && part.front() != '.' &&
        part.front() != '/';
    if (!plain) {
      what = CString::format("malformed 3MF package (unsupported 3D model part name '%s')", target->c_str());
      return false;
    }
    if (std::find(parts.begin(), parts.end(), part) == parts.end()) {
      what = CString::format("malformed 3MF package (the 3D model part '%s' is missing)", part.c_str());
      return false;
    }
  }
  if (models == 0) {
    what = "malformed 3MF package (its relationships name no 3D model part)";
    return false;
  }
  return true;
}

// A 3MF file is a zip archive. The importer's zip reader stops the whole program (an assertion)
// when an entry's checksum does not match, so every entry is read and checked here first: the
// directory within the file, each entry's local header and data within the file, stored or
// deflated data only, and the size and checksum the directory gives. Inflation is bounded by the
// size the directory gives, so a small file cannot make this expand without end. The reader also
// stops the program when the model part the package's relationships name is missing, so that
// part must be there.
bool checkZip(std::FILE* file, long size, CString& what) {
  std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
  std::fseek(file, 0, SEEK_SET);
  if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
    what = "cannot read the file";
    return false;
  }
  const std::size_t n = bytes.size();
  // The end record is the last 22 bytes, unless an archive comment (at most 65535 bytes) follows.
  std::size_t end = n;
  for (std::size_t back = 22; back <= std::min<std::size_t>(n, 22 + 65535); ++back) {
    if (readLe32(&bytes[n - back]) == 0x06054b50u) {
      end = n - back;
      break;
    }
  }
  if (end == n) {
    what = "not a 3MF file (not a zip archive: no end of central directory)";
    return false;
  }
  const unsigned char* record = &bytes[end];
  const std::uint32_t entries = readLe16(record + 10);
  const std::uint64_t directorySize = readLe32(record + 12);
  const std::uint64_t directoryOffset = readLe32(record + 16);
  if (directoryOffset + directorySize > end) {
    what = "malformed 3MF archive (the central directory lies outside the file)";
    return false;
  }
  if (entries == 0) {
    what = "malformed 3MF archive (no entries)";
    return false;
  }
  std::vector<unsigned char> out(1 << 16);
  std::vector<std::string> names;    // of the entries that hold data
  std::string relationships;         // the text of _rels/.rels
  std::size_t at = static_cast<std::size_t>(directoryOffset);
  for (std::uint32_t e = 0; e < entries; ++e) {
    auto bad = [&](const char* why) {
      what = CString::format("malformed 3MF archive (entry %u: %s)", e, why);
      return false;
    };
    if (at + 46 > end || readLe32(&bytes[at]) != 0x02014b50u) return bad("a broken central directory record");
    const unsigned char* central = &bytes[at];
    const std::uint32_t flags = readLe16(central + 8);
    const std::uint32_t method = readLe16(central + 10);
    const std::uint32_t crc = readLe32(central + 16);
    const std::uint64_t packed = readLe32(central + 20);
    const std::uint64_t unpacked = readLe32(central + 24);
    const std::size_t nameLength = readLe16(central + 28);
    const std::size_t extraLength = readLe16(central + 30);
    const std::size_t commentLength = readLe16(central + 32);
    const std::uint64_t local = readLe32(central + 42);
    const std::string entryName(reinterpret_cast<const char*>(central + 46),
                                std::min<std::size_t>(nameLength, end - std::min(end, at + 46)));
    at += 46 + nameLength + extraLength + commentLength;
    if (at > end) return bad("a broken central directory record");
    if (packed == 0xFFFFFFFFu || unpacked == 0xFFFFFFFFu || local == 0xFFFFFFFFu) return bad("zip64 is not supported");
    if (flags & 1) return bad("encrypted");
    if (local + 30 > directoryOffset || readLe32(&bytes[local]) != 0x04034b50u) return bad("a broken local header");
    const unsigned char* header = &bytes[local];
    const std::uint64_t data = local + 30 + readLe16(header + 26) + readLe16(header + 28);
    if (data + packed > directoryOffset) return bad("its data lies outside the file");
    if (readLe16(header + 8) != method || readLe16(header + 26) != nameLength ||
        std::memcmp(header + 30, entryName.data(), std::min<std::size_t>(nameLength, directoryOffset - local - 30)) != 0) {
      return bad("its local header disagrees with the directory");
    }
    // Without a trailing descriptor (flag bit 3) the local header repeats checksum and sizes.
    if (!(flags & 8) && (readLe32(header + 14) != crc || readLe32(header + 18) != packed ||
                         readLe32(header + 22) != unpacked)) {
      return bad("its local header disagrees with the directory");
    }
    const unsigned char* source = &bytes[static_cast<std::size_t>(data)];
    const bool keep = entryName == "_rels/.rels";
    if (keep && unpacked > (1u << 24)) return bad("package relationships larger than 16 MB");
    uLong sum = crc32(0L, Z_NULL, 0);
    std::uint64_t produced = 0;
    if (method == 0) {
      if (packed != unpacked) return bad("stored data whose sizes differ");
      for (std::uint64_t done = 0; done < packed;) {
        const uInt chunk = static_cast<uInt>(std::min<std::uint64_t>(packed - done, 1u << 30));
        sum = crc32(sum, source + done, chunk);
        done += chunk;
      }
      produced = packed;
      if (keep) relationships.assign(reinterpret_cast<const char*>(source), static_cast<std::size_t>(packed));
    } else if (method == 8) {
      // Deflate expands at most 1032 times: a larger stated size is a lie that would cost time here
      // and an allocation of that size in the importer.
      if (unpacked / 1032 > packed + 1) return bad("a stated size its deflated data cannot reach");
      z_stream stream{};
      if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return bad("cannot start inflating");
      stream.next_in = const_cast<Bytef*>(source);
      stream.avail_in = static_cast<uInt>(packed);
      int status = Z_OK;
      while (status == Z_OK) {
        stream.next_out = out.data();
        stream.avail_out = static_cast<uInt>(out.size());
        status = inflate(&stream, Z_NO_FLUSH);
        const std::size_t got = out.size() - stream.avail_out;
        produced += got;
        sum = crc32(sum, out.data(), static_cast<uInt>(got));
        if (produced > unpacked) break;
        if (keep) relationships.append(reinterpret_cast<const char*>(out.data()), got);
        if (status == Z_OK && got == 0 && stream.avail_in == 0) status = Z_BUF_ERROR;  // cut short
      }
      inflateEnd(&stream);
      if (produced > unpacked) return bad("it inflates to more than its stated size");
      if (status != Z_STREAM_END) return bad("corrupt deflated data");
    } else {
      return bad("compressed with a method other than deflate");
    }
    if (produced != unpacked) return bad("its data is not of its stated size");
    if (static_cast<std::uint32_t>(sum) != crc) return bad("checksum mismatch");
    // The reader lists only entries that hold data, by their names up to 256 bytes.
    if (unpacked > 0 && nameLength < 256) names.push_back(entryName);
  }
  return checkModelRelationships(relationships, names, what);
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
  if (endsWith(name, ".ply")) {
    // Read here, not by assimp (see readPly).
    std::vector<MeshVertex> read;
    std::vector<std::uint32_t> triangles;
    CString what;
    if (!readPly(file.get(), size, read, triangles, what)) {
      setError(error, path, what);
      return false;
    }
    if (triangles.empty()) {
      setError(error, path, "the file holds no triangles");
      return false;
    }
    if (triangles.size() / 3 > static_cast<std::size_t>(std::numeric_limits<int>::max()) ||
        read.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
      setError(error, path, "too many triangles or vertices for one mesh");
      return false;
    }
    // Welded as the other formats are.
    std::vector<MeshVertex> vertices;
    std::unordered_map<MeshVertex, std::uint32_t, KeyHash> weld;
    weld.reserve(read.size());
    std::vector<std::uint32_t> remap(read.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
      const MeshVertex v(read[i].x + 0.0f, read[i].y + 0.0f, read[i].z + 0.0f);
      auto [it, inserted] = weld.try_emplace(v, static_cast<std::uint32_t>(vertices.size()));
      if (inserted) vertices.push_back(v);
      remap[i] = it->second;
    }
    for (std::uint32_t& corner : triangles) corner = remap[corner];
    mesh.setNumVertices(static_cast<int>(vertices.size()));
    std::memcpy(mesh.editVertices(), vertices.data(), vertices.size() * sizeof(MeshVertex));
    mesh.setNumTriangles(static_cast<int>(triangles.size() / 3));
    std::memcpy(mesh.editTriangles(), triangles.data(), triangles.size() * sizeof(std::uint32_t));
    return true;
  }
  {
    CString what;
    const bool ok = stl       ? checkStl(file.get(), size, what)
                    : objFile ? checkObj(file.get(), size, what)
                              : checkZip(file.get(), size, what);
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
