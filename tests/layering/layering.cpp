#include "tests/layering/layering.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace layering {

namespace fs = std::filesystem;

const std::vector<Layer>& layers() {
  static const std::vector<Layer> table = {
      {"platform/base", "libBase", "Base"},
      {"platform/support", "libSupport", "Support"},
      {"platform/image", "libImage", "Image"},
      {"platform/geometry", "libGeometry", "Geometry"},
      {"platform/transaction", "libTransaction", "Transaction"},
      {"platform/resources", "libResources", "Resources"},
      {"platform/datamodel", "libDataModel", "DataModel"},
      {"platform/graphics", "libGraphics", "Graphics"},
      {"platform/reflection", "libReflection", "Reflection"},
      {"datamodelgui", "libDataModelGUI", "DataModelGUI"},
      {"host", "the host", ""},
  };
  return table;
}

bool readManifest(const fs::path& file, Manifest& manifest, std::string& error) {
  std::ifstream in(file);
  if (!in) {
    error = "cannot read " + file.string();
    return false;
  }
  std::string text;
  int number = 0;
  while (std::getline(in, text)) {
    ++number;
    if (text.empty()) continue;
    std::istringstream words(text);
    std::string kind, target, value, extra;
    if (!(words >> kind >> target >> value) || (words >> extra)) {
      error = file.string() + ":" + std::to_string(number) + ": malformed line \"" + text + "\"";
      return false;
    }
    Library& library = manifest[target];
    if (kind == "library") {
      library.folder = value;
    } else if (kind == "public") {
      library.publicDependencies.insert(value);
    } else if (kind == "private") {
      library.privateDependencies.insert(value);
    } else if (kind == "header") {
      library.publicHeaders.insert(value);
    } else {
      error = file.string() + ":" + std::to_string(number) + ": unknown kind \"" + kind + "\"";
      return false;
    }
  }
  return true;
}

namespace {

// Index of the layer holding `path` (relative to the root), or -1.
int layerOf(const std::string& path) {
  const auto& table = layers();
  for (std::size_t i = 0; i < table.size(); ++i) {
    const std::string& folder = table[i].folder;
    if (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 && path[folder.size()] == '/') {
      return static_cast<int>(i);
    }
  }
  return -1;
}

bool startsWith(const std::string& path, const std::string& folder) {
  return path.compare(0, folder.size(), folder) == 0;
}

// The libraries whose headers a target may use: those it links, and those they link publicly, on
// down (a private link is not passed on, as in CMake).
std::set<std::string> reachable(const Manifest& manifest, const std::string& target) {
  std::set<std::string> seen;
  std::vector<std::string> open;
  auto own = manifest.find(target);
  if (own == manifest.end()) return seen;
  for (const auto* direct : {&own->second.publicDependencies, &own->second.privateDependencies}) {
    for (const std::string& dependency : *direct) {
      if (seen.insert(dependency).second) open.push_back(dependency);
    }
  }
  while (!open.empty()) {
    const std::string next = open.back();
    open.pop_back();
    auto found = manifest.find(next);
    if (found == manifest.end()) continue;
    for (const std::string& dependency : found->second.publicDependencies) {
      if (seen.insert(dependency).second) open.push_back(dependency);
    }
  }
  return seen;
}

int layerOfTarget(const std::string& target) {
  const auto& table = layers();
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (!table[i].target.empty() && table[i].target == target) return static_cast<int>(i);
  }
  return -1;
}

bool isSource(const fs::path& path) {
  static const std::set<std::string> extensions = {".h", ".hpp", ".hh", ".inl", ".ipp", ".c", ".cc", ".cpp", ".cxx"};
  return extensions.count(path.extension().string()) != 0;
}

// Where an include lands, relative to the root: next to the including file when it exists there
// (what the compiler does for quoted includes), else from the root. Empty when it is outside.
std::string resolve(const fs::path& root, const std::string& fileRelative, const std::string& include, bool quoted) {
  if (quoted) {
    const fs::path sibling = (fs::path(fileRelative).parent_path() / include).lexically_normal();
    std::error_code ignored;
    if (fs::is_regular_file(root / sibling, ignored)) return sibling.generic_string();
  }
  const fs::path fromRoot = fs::path(include).lexically_normal();
  const std::string text = fromRoot.generic_string();
  if (text.empty() || fromRoot.is_absolute() || startsWith(text, "..")) return {};
  return text;
}

// Parses `#include "x"` or `#include <x>` (spaces allowed around the hash); false for any other line.
bool parseInclude(const std::string& line, std::string& path, bool& quoted) {
  std::size_t at = line.find_first_not_of(" \t");
  if (at == std::string::npos || line[at] != '#') return false;
  at = line.find_first_not_of(" \t", at + 1);
  if (at == std::string::npos || line.compare(at, 7, "include") != 0) return false;
  at = line.find_first_not_of(" \t", at + 7);
  if (at == std::string::npos || (line[at] != '"' && line[at] != '<')) return false;
  quoted = line[at] == '"';
  const std::size_t end = line.find(quoted ? '"' : '>', at + 1);
  if (end == std::string::npos || end == at + 1) return false;
  path = line.substr(at + 1, end - at - 1);
  return true;
}

void checkFile(const fs::path& root, const std::string& relative, int own, const Manifest& manifest,
               std::vector<Violation>& violations) {
  const auto& table = layers();
  const Layer& layer = table[static_cast<std::size_t>(own)];
  const bool ownRegistered = !layer.target.empty() && manifest.count(layer.target) != 0;
  const std::set<std::string> allowed = ownRegistered ? reachable(manifest, layer.target) : std::set<std::string>{};

  std::ifstream in(root / relative);
  std::string text;
  int number = 0;
  bool inComment = false;
  while (std::getline(in, text)) {
    ++number;
    // Skip what block comments hide; an include inside one does not count.
    if (inComment) {
      const auto end = text.find("*/");
      if (end == std::string::npos) continue;
      inComment = false;
      text = text.substr(end + 2);
    }
    std::string include;
    bool quoted = false;
    if (!parseInclude(text, include, quoted)) {
      const auto open = text.rfind("/*");
      if (open != std::string::npos && text.find("*/", open + 2) == std::string::npos) inComment = true;
      continue;
    }
    const std::string target = resolve(root, relative, include, quoted);
    if (target.empty()) continue;
    auto report = [&](const std::string& reason) {
      violations.push_back({relative, number, include, reason});
    };
    if (startsWith(target, "tests/") || startsWith(target, "bench/")) {
      report(layer.name + " includes test or benchmark code (" + target + ")");
      continue;
    }
    const int other = layerOf(target);
    if (other < 0 || other == own) continue;
    const Layer& included = table[static_cast<std::size_t>(other)];
    if (other > own) {
      report(layer.name + " includes " + included.name + ", which is above it");
      continue;
    }
    const auto library = manifest.find(included.target);
    if (ownRegistered && allowed.count(included.target) == 0) {
      report(layer.name + " includes " + included.name + ", which it does not link in CMake");
      continue;
    }
    if (library != manifest.end() && library->second.publicHeaders.count(target) == 0) {
      report(layer.name + " includes " + target + ", an internal header of " + included.name +
             " (not in its HEADERS)");
    }
  }
}

}  // namespace

std::vector<Violation> check(const fs::path& root, const Manifest& manifest) {
  std::vector<Violation> violations;
  const auto& table = layers();

  // The declared links must point down the table too, and every library must have its place.
  for (const auto& [target, library] : manifest) {
    const int own = layerOfTarget(target);
    if (own < 0) {
      violations.push_back({"CMakeLists", 0, target, "library " + target + " in " + library.folder +
                                                         " has no place in the layer table"});
      continue;
    }
    std::set<std::string> links = library.publicDependencies;
    links.insert(library.privateDependencies.begin(), library.privateDependencies.end());
    for (const std::string& dependency : links) {
      const int other = layerOfTarget(dependency);
      if (other >= own) {
        violations.push_back({library.folder + "/CMakeLists.txt", 0, dependency,
                              table[static_cast<std::size_t>(own)].name + " links " + dependency +
                                  ", which is not below it"});
      }
    }
  }

  for (std::size_t i = 0; i < table.size(); ++i) {
    const fs::path folder = root / table[i].folder;
    std::error_code error;
    if (!fs::is_directory(folder, error)) continue;
    std::vector<std::string> files;
    for (auto it = fs::recursive_directory_iterator(folder, error); !error && it != fs::recursive_directory_iterator();
         it.increment(error)) {
      if (it->is_regular_file() && isSource(it->path())) {
        files.push_back(it->path().lexically_relative(root).generic_string());
      }
    }
    std::sort(files.begin(), files.end());
    for (const std::string& file : files) checkFile(root, file, static_cast<int>(i), manifest, violations);
  }
  return violations;
}

std::string describe(const Violation& violation) {
  if (violation.line == 0) return violation.file + ": " + violation.reason;
  return violation.file + ":" + std::to_string(violation.line) + ": #include \"" + violation.include +
         "\": " + violation.reason;
}

}  // namespace layering
