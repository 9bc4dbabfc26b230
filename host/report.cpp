#include "host/report.h"

#include "platform/datamodel/actions.h"
#include "platform/datamodel/print.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <filesystem>

namespace printprep {

namespace {

std::string problemsOf(const voDMA::MeshHealth& health) {
  if (health.healthy()) return "healthy";
  std::string text;
  auto add = [&text](std::size_t count, const char* what) {
    if (count == 0) return;
    if (!text.empty()) text += ", ";
    text += std::to_string(count) + " " + what;
  };
  add(health.openEdges, "open edges");
  add(health.nonManifoldEdges, "non-manifold edges");
  add(health.inconsistentEdges, "inconsistently oriented edges");
  add(health.degenerateTriangles, "degenerate triangles");
  add(health.duplicateTriangles, "duplicate triangles");
  return text;
}

std::string format(const char* pattern, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, pattern, value);
  return buffer;
}

}  // namespace

std::vector<PartState> partStates(const Scene& scene) {
  static const char* const sideNames[] = {"-X", "+X", "-Y", "+Y", "bottom", "top"};
  std::vector<PartState> states;
  for (int i = 0; i < static_cast<int>(scene.parts().size()); ++i) {
    const ScenePart& part = scene.parts()[i];
    const voDMD::KLTMesh* mesh = part.object->findAttribute<voDMD::KLTMesh>();
    PartState state;
    state.file = part.file;
    state.triangles = part.triangles;
    state.size = scene.partsBox(i).getDiagonal();
    state.outOfBounds = mesh->isOutOfBounds();
    for (unsigned side = 0; side < 6; ++side)
      if (mesh->outOfBoundsFaces() & (1u << side)) state.sidesPassed.push_back(sideNames[side]);
    state.needsRepair = mesh->needsRepair();
    state.problems = problemsOf(voDMA::analyseMeshHealth(*mesh->getMesh()));
    if (!mesh->needsAnalyseThickness()) {
      for (float t : mesh->thickness)
        if (t >= 0.0f && (state.thinnestWall < 0.0 || t < state.thinnestWall)) state.thinnestWall = t;
    }
    state.thinWalls = !voDMA::isPartThick(mesh);
    states.push_back(state);
  }
  return states;
}

std::string statesTable(const Scene& scene, const std::vector<PartState>& states) {
  const ruLinear::Vector volume = scene.useableVolume().getDiagonal();
  std::string out = "Printer " + format("%g", volume.getX()) + " x " + format("%g", volume.getY()) + " x " +
                    format("%g", volume.getZ()) + " mm, walls from " +
                    format("%g", scene.printer()->minimumThickness) + " mm\n";
  char line[512];
  std::snprintf(line, sizeof line, "%-3s %-24s %9s  %-22s %-20s %-30s %s\n", "#", "PART", "TRIANGLES", "SIZE (mm)",
                "BOUNDS", "REPAIR", "WALLS");
  out += line;
  for (std::size_t i = 0; i < states.size(); ++i) {
    const PartState& s = states[i];
    const std::string size = format("%g", s.size.getX()) + " x " + format("%g", s.size.getY()) + " x " +
                             format("%g", s.size.getZ());
    std::string bounds = "inside";
    if (s.outOfBounds) {
      bounds = "OUT:";
      for (const std::string& side : s.sidesPassed) bounds += " " + side;
    }
    const std::string repair = s.needsRepair ? "NEEDS REPAIR: " + s.problems : s.problems;
    std::string walls = s.thinnestWall < 0.0 ? std::string("no opposite wall") : format("%.2f mm", s.thinnestWall);
    walls += s.thinWalls ? " THIN" : " ok";
    std::snprintf(line, sizeof line, "%-3zu %-24s %9d  %-22s %-20s %-30s %s\n", i, std::filesystem::path(s.file).filename().string().c_str(), s.triangles,
                  size.c_str(), bounds.c_str(), repair.c_str(), walls.c_str());
    out += line;
  }
  return out;
}

std::string statesJson(const Scene& scene, const std::vector<PartState>& states) {
  const ruLinear::Vector volume = scene.useableVolume().getDiagonal();
  nlohmann::json parts = nlohmann::json::array();
  for (std::size_t i = 0; i < states.size(); ++i) {
    const PartState& s = states[i];
    nlohmann::json part;
    part["index"] = i;
    part["file"] = s.file;
    part["triangles"] = s.triangles;
    part["size"] = {s.size.getX(), s.size.getY(), s.size.getZ()};
    part["outOfBounds"] = s.outOfBounds;
    part["sidesPassed"] = s.sidesPassed;
    part["needsRepair"] = s.needsRepair;
    part["problems"] = s.problems;
    part["thinWalls"] = s.thinWalls;
    part["minimumThickness"] = s.thinnestWall < 0.0 ? nlohmann::json(nullptr) : nlohmann::json(s.thinnestWall);
    parts.push_back(part);
  }
  nlohmann::json report;
  report["printer"] = {{"volume", {volume.getX(), volume.getY(), volume.getZ()}},
                       {"minimumThickness", scene.printer()->minimumThickness}};
  report["parts"] = parts;
  return report.dump(2);
}

}  // namespace printprep
