#pragma once

// What `printprep check` reports about each part, as a table or as JSON.

#include "host/scene.h"

#include <string>
#include <vector>

namespace printprep {

struct PartState {
  std::string file;
  int triangles = 0;
  ruLinear::Vector size;
  bool outOfBounds = false;
  std::vector<std::string> sidesPassed;  // "-X", "+X", "-Y", "+Y", "bottom", "top"
  bool needsRepair = false;
  std::string problems;  // "healthy" or what is wrong with the mesh
  bool thinWalls = false;
  double thinnestWall = -1.0;  // mm; negative when no opposite wall was found
};

// The state of every part of `scene`; the thickness analysis must have run.
std::vector<PartState> partStates(const Scene& scene);
std::string statesTable(const Scene& scene, const std::vector<PartState>& states);
std::string statesJson(const Scene& scene, const std::vector<PartState>& states);

}  // namespace printprep
