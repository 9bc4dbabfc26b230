#pragma once

// Small mesh files written by the tests, in every format the importer reads: the unit box as a
// triangle soup (STL) or indexed (OBJ, PLY, 3MF).

#include "platform/geometry/construct.h"
#include "platform/geometry/mesh.h"

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace meshfiles {

using ruLinear::Point;
using ruGeom::CompactMesh;

// The unit cube as a triangle soup: every triangle with its own three corners.
struct Soup {
  std::vector<Point> corners;  // three a triangle, counter-clockwise from outside
};

inline Soup cubeSoup() {
  CompactMesh cube;
  constructCuboid(ruLinear::Range3d(Point(0, 0, 0), Point(1, 2, 3)), cube);
  Soup soup;
  for (int i = 0; i < cube.getNumTriangles() * 3; ++i) soup.corners.push_back(cube.getVertices()[cube.getTriangles()[i]].asPoint());
  return soup;
}

inline std::string asciiStl(const Soup& soup) {
  std::ostringstream text;
  text << "solid cube\n";
  for (std::size_t i = 0; i < soup.corners.size(); i += 3) {
    text << "  facet normal 0 0 0\n    outer loop\n";
    for (int c = 0; c < 3; ++c) {
      const Point& p = soup.corners[i + c];
      text << "      vertex " << p.x << " " << p.y << " " << p.z << "\n";
    }
    text << "    endloop\n  endfacet\n";
  }
  text << "endsolid cube\n";
  return text.str();
}

inline std::string binaryStl(const Soup& soup, const char* header = "test") {
  std::string bytes(80, '\0');
  std::memcpy(bytes.data(), header, std::strlen(header));
  const std::uint32_t count = static_cast<std::uint32_t>(soup.corners.size() / 3);
  bytes.append(reinterpret_cast<const char*>(&count), 4);
  for (std::size_t i = 0; i < soup.corners.size(); i += 3) {
    float facet[12] = {0, 0, 0};
    for (int c = 0; c < 3; ++c) {
      facet[3 + 3 * c] = static_cast<float>(soup.corners[i + c].x);
      facet[4 + 3 * c] = static_cast<float>(soup.corners[i + c].y);
      facet[5 + 3 * c] = static_cast<float>(soup.corners[i + c].z);
    }
    bytes.append(reinterpret_cast<const char*>(facet), sizeof facet);
    bytes.append(2, '\0');
  }
  return bytes;
}

// An indexed cube: 8 corners and 12 triangles, for the indexed formats.
struct Indexed {
  std::vector<Point> vertices;
  std::vector<std::uint32_t> triangles;
};

inline Indexed cubeIndexed() {
  Indexed mesh;
  for (int i = 0; i < 8; ++i) mesh.vertices.push_back(Point(i & 1, (i >> 1) & 1, (i >> 2) & 1));
  // Quads counter-clockwise from outside, split in two.
  const std::uint32_t quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  for (const auto& q : quads) {
    mesh.triangles.insert(mesh.triangles.end(), {q[0], q[1], q[2], q[0], q[2], q[3]});
  }
  return mesh;
}

inline std::string obj(const Indexed& mesh) {
  std::ostringstream text;
  text << "# cube\no cube\n";
  for (const Point& p : mesh.vertices) text << "v " << p.x << " " << p.y << " " << p.z << "\n";
  for (std::size_t i = 0; i < mesh.triangles.size(); i += 3) {
    text << "f " << mesh.triangles[i] + 1 << " " << mesh.triangles[i + 1] + 1 << " " << mesh.triangles[i + 2] + 1 << "\n";
  }
  return text.str();
}

inline std::string ply(const Indexed& mesh) {
  std::ostringstream text;
  text << "ply\nformat ascii 1.0\nelement vertex " << mesh.vertices.size()
       << "\nproperty float x\nproperty float y\nproperty float z\nelement face " << mesh.triangles.size() / 3
       << "\nproperty list uchar int vertex_indices\nend_header\n";
  for (const Point& p : mesh.vertices) text << p.x << " " << p.y << " " << p.z << "\n";
  for (std::size_t i = 0; i < mesh.triangles.size(); i += 3) {
    text << "3 " << mesh.triangles[i] << " " << mesh.triangles[i + 1] << " " << mesh.triangles[i + 2] << "\n";
  }
  return text.str();
}

// The same as a binary PLY, little- or big-endian: float coordinates, uchar counts, int indices.
inline std::string plyBinary(const Indexed& mesh, bool little) {
  std::ostringstream header;
  header << "ply\nformat " << (little ? "binary_little_endian" : "binary_big_endian") << " 1.0\nelement vertex "
         << mesh.vertices.size() << "\nproperty float x\nproperty float y\nproperty float z\nelement face "
         << mesh.triangles.size() / 3 << "\nproperty list uchar int vertex_indices\nend_header\n";
  std::string bytes = header.str();
  auto put = [&](std::uint32_t word) {
    for (int k = 0; k < 4; ++k) bytes += static_cast<char>((word >> (8 * (little ? k : 3 - k))) & 0xFF);
  };
  for (const Point& p : mesh.vertices) {
    for (double c : {p.x, p.y, p.z}) {
      const float value = static_cast<float>(c);
      std::uint32_t word;
      std::memcpy(&word, &value, 4);
      put(word);
    }
  }
  for (std::size_t i = 0; i < mesh.triangles.size(); i += 3) {
    bytes += '\3';
    for (int c = 0; c < 3; ++c) put(mesh.triangles[i + c]);
  }
  return bytes;
}

inline std::uint32_t crc32(const std::string& data) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (unsigned char byte : data) {
    crc ^= byte;
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

inline void put16(std::string& out, std::uint16_t v) { out.append(reinterpret_cast<const char*>(&v), 2); }
inline void put32(std::string& out, std::uint32_t v) { out.append(reinterpret_cast<const char*>(&v), 4); }

// Raw deflate (no zlib header), as zip archives hold it.
inline std::string deflateRaw(const std::string& data) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, static_cast<uLong>(data.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// A zip archive of the entries, stored as they are or deflated.
inline std::string zipArchive(const std::vector<std::pair<std::string, std::string>>& entries, bool deflated) {
  std::string out, central;
  const std::uint16_t method = deflated ? 8 : 0;
  for (const auto& [name, data] : entries) {
    const std::uint32_t offset = static_cast<std::uint32_t>(out.size());
    const std::uint32_t crc = crc32(data);
    const std::string packed = deflated ? deflateRaw(data) : data;
    put32(out, 0x04034b50u);
    put16(out, 20), put16(out, 0), put16(out, method), put16(out, 0), put16(out, 0x21);
    put32(out, crc), put32(out, static_cast<std::uint32_t>(packed.size())), put32(out, static_cast<std::uint32_t>(data.size()));
    put16(out, static_cast<std::uint16_t>(name.size())), put16(out, 0);
    out += name;
    out += packed;
    put32(central, 0x02014b50u);
    put16(central, 20), put16(central, 20), put16(central, 0), put16(central, method), put16(central, 0), put16(central, 0x21);
    put32(central, crc), put32(central, static_cast<std::uint32_t>(packed.size())),
        put32(central, static_cast<std::uint32_t>(data.size()));
    put16(central, static_cast<std::uint16_t>(name.size())), put16(central, 0), put16(central, 0);
    put16(central, 0), put16(central, 0), put32(central, 0), put32(central, offset);
    central += name;
  }
  const std::uint32_t centralOffset = static_cast<std::uint32_t>(out.size());
  out += central;
  put32(out, 0x06054b50u);
  put16(out, 0), put16(out, 0);
  put16(out, static_cast<std::uint16_t>(entries.size())), put16(out, static_cast<std::uint16_t>(entries.size()));
  put32(out, static_cast<std::uint32_t>(central.size())), put32(out, centralOffset);
  put16(out, 0);
  return out;
}

inline std::string storedZip(const std::vector<std::pair<std::string, std::string>>& entries) {
  return zipArchive(entries, false);
}

// The 3D model part of a 3MF package.
inline std::string threeMfModel(const Indexed& mesh) {
  std::ostringstream model;
  model << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<model unit=\"millimeter\" xml:lang=\"en-US\" "
           "xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\">\n"
        << " <resources>\n  <object id=\"1\" type=\"model\">\n   <mesh>\n    <vertices>\n";
  for (const Point& p : mesh.vertices) model << "     <vertex x=\"" << p.x << "\" y=\"" << p.y << "\" z=\"" << p.z << "\" />\n";
  model << "    </vertices>\n    <triangles>\n";
  for (std::size_t i = 0; i < mesh.triangles.size(); i += 3) {
    model << "     <triangle v1=\"" << mesh.triangles[i] << "\" v2=\"" << mesh.triangles[i + 1] << "\" v3=\""
          << mesh.triangles[i + 2] << "\" />\n";
  }
  model << "    </triangles>\n   </mesh>\n  </object>\n </resources>\n <build>\n  <item objectid=\"1\" />\n </build>\n</model>\n";
  return model.str();
}

// The package relationships of a 3MF file: its 3D model is /3D/3dmodel.model.
inline std::string threeMfRelationships() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
         "<Relationship Target=\"/3D/3dmodel.model\" Id=\"rel0\" "
         "Type=\"http://schemas.microsoft.com/3dmanufacturing/2013/01/3dmodel\" />"
         "</Relationships>\n";
}

// A 3MF package (a zip archive, stored or deflated) around the model part `model`.
inline std::string threeMfPackage(const std::string& model, bool deflated = false,
                                  const std::string& rels = threeMfRelationships()) {
  const std::string types =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\" />"
      "<Default Extension=\"model\" ContentType=\"application/vnd.ms-package.3dmanufacturing-3dmodel+xml\" />"
      "</Types>\n";
  return zipArchive({{"[Content_Types].xml", types}, {"_rels/.rels", rels}, {"3D/3dmodel.model", model}}, deflated);
}

inline std::string threeMf(const Indexed& mesh, bool deflated = false) {
  return threeMfPackage(threeMfModel(mesh), deflated);
}

}  // namespace meshfiles
