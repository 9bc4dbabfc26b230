#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

// Include layering of the repository. Every target makes the repository root a public include
// folder, so the compiler lets any library include any other's headers; this checks what it cannot:
// a library includes only itself and the libraries below it that it links in CMake, only their
// public headers, and nothing of the tests or benchmarks.
namespace layering {

// One layer: a folder, its name in reports and its CMake target (empty for the host program).
struct Layer {
  std::string folder;  // relative to the repository root, no trailing slash
  std::string name;    // "libGeometry"
  std::string target;  // "Geometry"
};

// The layers from the bottom up; a layer may only depend on layers before it.
const std::vector<Layer>& layers();

// What CMake declares of each library (dmgui_add_library): keyed by target name.
struct Library {
  std::string folder;
  std::set<std::string> publicHeaders;  // relative to the repository root
  std::set<std::string> publicDependencies;   // direct, target names; passed on to those linking it
  std::set<std::string> privateDependencies;  // direct, target names; for its own use only
};
using Manifest = std::map<std::string, Library>;

// Reads the manifest the build writes ("library T folder", "public T U", "private T U" and
// "header T path" lines).
// False (with `error` set) when the file cannot be read or a line is malformed.
bool readManifest(const std::filesystem::path& file, Manifest& manifest, std::string& error);

struct Violation {
  std::string file;  // relative to the root; "CMakeLists" for a dependency declared upwards
  int line = 0;
  std::string include;
  std::string reason;
};

// Checks every source and header under each layer folder that exists below `root`; folders of
// layers that do not exist yet are skipped and checked once they appear.
std::vector<Violation> check(const std::filesystem::path& root, const Manifest& manifest);

// "platform/datamodel/print.cpp:12: #include "host/demo.h": <reason>"
std::string describe(const Violation& violation);

}  // namespace layering
