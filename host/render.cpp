// `printprep render`, `printprep thumbnail` and `printprep check`: models from the command line
// loaded onto a printer's bed, drawn off-screen to PNG or reported part by part.

#include "host/commands.h"
#include "host/options.h"
#include "host/report.h"
#include "host/scene.h"
#include "host/view.h"

#include "platform/datamodel/actions.h"
#include "platform/datamodel/print.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace printprep {

namespace {

struct Options {
  std::vector<std::string> models;
  std::string output;
  std::string size;
  std::string view = "iso";
  std::vector<int> select;
  double cut = 0.0;
  bool cutGiven = false;
  bool timings = false;
  std::string printer = "200x200x180";
  int thumbnailSize = 256;
  int part = -1;
  bool json = false;
};

double millisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// "WxH" and "WxDxH" as CLI11 checks: the message names what is wrong.
CLI::Validator sizeValidator(int count, const char* shape) {
  return CLI::Validator(
      [count, shape](std::string& text) -> std::string {
        std::vector<double> values;
        if (!parseSize(text, count, values)) return std::string("expected ") + shape + " of positive numbers, got \"" + text + "\"";
        return std::string();
      },
      shape);
}

bool outputFolderExists(const char* command, const std::string& output) {
  std::string problem = outputFileProblem(output);
  if (problem.empty()) problem = pngNameProblem(output);
  if (problem.empty()) return true;
  std::fprintf(stderr, "printprep %s: %s\n", command, problem.c_str());
  return false;
}

ruLinear::Vector printerVolume(const std::string& text) {
  std::vector<double> values;
  parseSize(text, 3, values);
  return ruLinear::Vector(values[0], values[1], values[2]);
}

// Loads the models onto the bed; prints the one-line error and gives false when a file fails.
bool loadScene(const char* command, Scene& scene, const std::vector<std::string>& models) {
  std::string error;
  if (!scene.load(models, error)) {
    std::fprintf(stderr, "printprep %s: %s\n", command, error.c_str());
    return false;
  }
  return true;
}

int runRender(const Options& options) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<double> size;
  if (!parseSize(options.size.empty() ? "800x600" : options.size, 2, size)) return 2;
  const int width = static_cast<int>(size[0]), height = static_cast<int>(size[1]);
  ViewDirection direction = ViewDirection::Iso;
  parseViewDirection(options.view, direction);
  if (!outputFolderExists("render", options.output)) return 1;

  Scene scene(printerVolume(options.printer));
  if (!loadScene("render", scene, options.models)) return 1;
  for (int index : options.select) {
    if (index < 0 || index >= static_cast<int>(scene.parts().size())) {
      std::fprintf(stderr, "printprep render: --select %d: no such part (parts are numbered 0 to %zu)\n", index,
                   scene.parts().size() - 1);
      return 2;
    }
  }
  const double loaded = millisecondsSince(start);
  int triangles = 0;
  for (const ScenePart& part : scene.parts()) triangles += part.triangles;
  std::printf("Loaded %zu parts, %d triangles, in %.1f ms\n", scene.parts().size(), triangles, loaded);

  std::string error;
  const auto viewStart = std::chrono::steady_clock::now();
  std::unique_ptr<View> view = View::create(scene, error);
  if (!view) {
    std::fprintf(stderr, "printprep render: %s\n", error.c_str());
    return 1;
  }
  view->select(options.select);
  // The bed and the parts together, so that parts off the bed stay in the picture.
  ruLinear::Range3d box = scene.partsBox();
  box.include(scene.useableVolume().getMin());
  box.include(ruLinear::Point(scene.useableVolume().getMax().x, scene.useableVolume().getMax().y,
                              scene.useableVolume().getMin().z));
  view->look(box, direction, width, height);
  if (options.cutGiven) view->setCut(options.cut);
  const auto drawStart = std::chrono::steady_clock::now();
  ru::Reference<ruImage::Image> image = view->render(width, height);
  const double firstFrame = millisecondsSince(drawStart);
  const auto writeStart = std::chrono::steady_clock::now();
  if (!writePngInPlace(image, options.output, error)) {
    std::fprintf(stderr, "printprep render: %s\n", error.c_str());
    return 1;
  }
  const double written = millisecondsSince(writeStart);
  if (options.cutGiven) std::printf("Cut away above z = %g mm, the cut parts closed by caps\n", options.cut);
  const double total = millisecondsSince(start);
  std::printf("Rendered %dx%d (%s view, %zu selected) to %s: first frame %.1f ms, total %.1f ms\n", width, height,
              options.view.c_str(), options.select.size(), options.output.c_str(), firstFrame, total);
  if (options.timings) {
    // The first frame includes building the parts' render meshes and their first upload.
    std::printf("Timings: load %.1f ms, view set-up %.1f ms, first frame %.1f ms, PNG written in %.1f ms, total %.1f ms\n",
                loaded, std::chrono::duration<double, std::milli>(drawStart - viewStart).count(), firstFrame, written,
                total);
  }
  return 0;
}

int runThumbnail(const Options& options) {
  const auto start = std::chrono::steady_clock::now();
  if (!outputFolderExists("thumbnail", options.output)) return 1;
  Scene scene(printerVolume(options.printer));
  if (!loadScene("thumbnail", scene, options.models)) return 1;
  if (options.part >= static_cast<int>(scene.parts().size())) {
    std::fprintf(stderr, "printprep thumbnail: --part %d: no such part (parts are numbered 0 to %zu)\n", options.part,
                 scene.parts().size() - 1);
    return 2;
  }
  std::string error;
  std::unique_ptr<View> view = View::create(scene, error);
  if (!view) {
    std::fprintf(stderr, "printprep thumbnail: %s\n", error.c_str());
    return 1;
  }
  const int size = options.thumbnailSize;
  if (!view->thumbnailPng(options.part, size, options.output, error)) {
    std::fprintf(stderr, "printprep thumbnail: %s\n", error.c_str());
    return 1;
  }
  const std::string what = options.part >= 0 ? scene.parts()[options.part].file : std::string("the bed");
  std::printf("Thumbnail of %s, %dx%d, to %s in %.1f ms\n", what.c_str(), size, size, options.output.c_str(),
              millisecondsSince(start));
  return 0;
}

int runCheck(const Options& options) {
  Scene scene(printerVolume(options.printer));
  if (!loadScene("check", scene, options.models)) return 1;
  voDMA::analysePendingThickness();
  const std::vector<PartState> states = partStates(scene);
  if (options.json) {
    std::printf("%s\n", statesJson(scene, states).c_str());
  } else {
    std::printf("%s", statesTable(scene, states).c_str());
  }
  return 0;
}

void addModels(CLI::App* command, Options& options) {
  command->add_option("MODEL", options.models, "STL, OBJ, 3MF or PLY files, placed side by side on the bed")
      ->required();
  command->add_option("--printer", options.printer, "Printer volume WxDxH in mm")
      ->capture_default_str()
      ->check(sizeValidator(3, "WxDxH"));
}

}  // namespace

void addRenderCommands(CLI::App& app, int& status) {
  auto options = std::make_shared<Options>();

  CLI::App* render = app.add_subcommand("render", "Load models onto the printer's bed and render the view to a PNG image");
  addModels(render, *options);
  render->add_option("-o,--output", options->output, "PNG file to write")->required();
  render->add_option("--size", options->size, "Image size WxH in pixels (default 800x600)")->check(sizeValidator(2, "WxH"));
  render->add_option("--view", options->view, "Direction of the view")
      ->capture_default_str()
      ->check(CLI::IsMember({"iso", "top", "front", "side"}));
  render->add_option("--select", options->select, "Indices of parts to select (they glow), from 0");
  render->add_option("--cut", options->cut,
                     "Cut the parts away above this height in mm (from the bed), showing their insides closed by "
                     "caps");
  render->add_flag("--timings", options->timings,
                   "Print how long loading, setting up the view, the first frame and writing the PNG took");
  render->callback([options, &status, render] {
    options->cutGiven = render->count("--cut") > 0;
    status = runRender(*options);
  });

  CLI::App* thumbnail = app.add_subcommand("thumbnail", "Render a square thumbnail of one part, or of the whole bed with the printer, on a transparent background");
  addModels(thumbnail, *options);
  thumbnail->add_option("-o,--output", options->output, "PNG file to write")->required();
  thumbnail->add_option("--size", options->thumbnailSize, "Edge of the image in pixels")
      ->capture_default_str()
      ->check(wholeNumberValidator(16, 4096, "a whole number of pixels"));
  thumbnail->add_option("--part", options->part, "Index of the part to show alone, from 0 (default: the whole bed)")
      ->check(wholeNumberValidator(0, -1, "a part index"));
  thumbnail->callback([options, &status] { status = runThumbnail(*options); });

  CLI::App* check = app.add_subcommand(
      "check", "Load models onto the bed and report each part: out of bounds, needs repair, thin walls");
  addModels(check, *options);
  check->add_flag("--json", options->json, "Print the report as JSON");
  check->callback([options, &status] { status = runCheck(*options); });
}

}  // namespace printprep
