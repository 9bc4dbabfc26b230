// `printprep replay`: a recorded session played through the dispatcher and the real tools on a
// manual clock, a frame written after each interaction, then a report of the selection and of
// each part's placement. Nothing depends on the wall clock, so two runs give the same frames.

#include "host/commands.h"
#include "host/scene.h"
#include "host/session.h"
#include "host/tools.h"
#include "host/view.h"

#include "platform/base/clock.h"
#include "platform/datamodel/attributes.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace printprep {

namespace {

struct ReplayOptions {
  std::string session;
  std::vector<std::string> models;
  std::string output = "replay-out";
};

std::string partNames(const Scene& scene, const std::vector<int>& parts) {
  if (parts.empty()) return "none";
  std::string out;
  for (int index : parts) {
    if (!out.empty()) out += ", ";
    out += scene.parts()[index].file + " (part " + std::to_string(index) + ")";
  }
  return out;
}

const char* frameKind(const voEV::Event& event) {
  switch (event.getType()) {
    case voEV::MouseButtonRelease: return "release";
    case voEV::KeyPress: return static_cast<const voEV::KeyEvent&>(event).isRepeat() ? nullptr : "key";
    case voEV::Wheel: return "wheel";
    default: return nullptr;
  }
}

std::string describe(const voEV::Event& event) {
  if (const auto* key = dynamic_cast<const voEV::KeyEvent*>(&event)) {
    const std::string modifiers = voEV::modifiersAsString(key->getModifierMask()).c_str();
    return std::string("key ") + (modifiers.empty() ? "" : modifiers + "+") + voEV::asString(key->getKeyCode()).c_str();
  }
  if (const auto* wheel = dynamic_cast<const voEV::WheelEvent*>(&event))
    return std::string("wheel ") + std::to_string(wheel->getDelta()) + " at " + wheel->getPosition().asString().c_str();
  return std::string("release at ") + voEV::position(event).asString().c_str();
}

int runReplay(const ReplayOptions& options) {
  Session session;
  std::string error;
  if (!readSession(options.session, session, error)) {
    std::fprintf(stderr, "printprep replay: %s\n", error.c_str());
    return 1;
  }
  std::vector<std::string> models = options.models;
  if (models.empty())
    for (const std::string& model : session.models) models.push_back(sessionModelPath(options.session, model));
  if (models.empty()) {
    std::fprintf(stderr, "printprep replay: %s: no models (none in the session, none given)\n", options.session.c_str());
    return 1;
  }

  // The manual clock is current before anything that reads time is made.
  ruOS::ManualClock clock(0.0);
  ruOS::setClock(&clock);
  struct RestoreClock {
    ~RestoreClock() { ruOS::setClock(nullptr); }
  } restore;

  Scene scene(ruLinear::Vector(session.printer[0], session.printer[1], session.printer[2]));
  if (!scene.load(models, error)) {
    std::fprintf(stderr, "printprep replay: %s\n", error.c_str());
    return 1;
  }
  std::unique_ptr<View> view = View::create(scene, error);
  if (!view) {
    std::fprintf(stderr, "printprep replay: %s\n", error.c_str());
    return 1;
  }
  std::error_code code;
  std::filesystem::create_directories(options.output, code);
  if (code || !std::filesystem::is_directory(options.output)) {
    std::fprintf(stderr, "printprep replay: %s: cannot create the folder\n", options.output.c_str());
    return 1;
  }

  const int width = session.width, height = session.height;
  std::printf("printprep replay: %s, %zu events, %dx%d, %zu parts\n", options.session.c_str(), session.events.size(),
              width, height, scene.parts().size());
  int status = 0;
  {
    Workbench bench(scene, *view, width, height);
    std::vector<std::string> actions;
    ruRTB::SignalClient client;
    bench.sigAction.addCallback([&actions](const std::string& what) { actions.push_back(what); }, client);
    int frame = 0;
    std::vector<std::string> lines;
    auto shoot = [&](const std::string& kind, const std::string& what) {
      char name[64];
      std::snprintf(name, sizeof name, "%02d_%s.png", frame++, kind.c_str());
      bench.prepareFrame();
      const std::string path = (std::filesystem::path(options.output) / name).string();
      if (!view->renderPng(width, height, path, error)) return false;
      std::string line = std::string("  ") + name;
      line.resize(std::max<std::size_t>(line.size() + 1, 18), ' ');
      line += what;
      for (const std::string& action : actions) line += "; " + action;
      line += "; selected: " + partNames(scene, bench.selectedParts());
      if (!bench.hoveredParts().empty()) line += "; hovered: " + partNames(scene, bench.hoveredParts());
      actions.clear();
      lines.push_back(line);
      return true;
    };
    bool ok = shoot("start", "before any input");
    for (std::size_t i = 0; ok && i < session.events.size(); ++i) {
      const SessionEntry& entry = session.events[i];
      bench.advance(entry.time, &clock);
      bench.dispatch(*entry.event);
      if (const char* kind = frameKind(*entry.event)) ok = shoot(kind, describe(*entry.event));
    }
    // Whatever the gestures still wait for comes due.
    if (ok) bench.advance(clock.now() + 2.0, &clock);
    if (!ok) {
      std::fprintf(stderr, "printprep replay: %s\n", error.c_str());
      status = 1;
    } else {
      std::printf("Frames\n");
      for (const std::string& line : lines) std::printf("%s\n", line.c_str());
      std::printf("Selection: %s\n", partNames(scene, bench.selectedParts()).c_str());
      std::printf("Parts\n");
      for (std::size_t i = 0; i < scene.parts().size(); ++i) {
        const ruLinear::Vector t =
            scene.parts()[i].object->findAttribute<voDMD::Transform>()->getObjToWorld().getTranslation();
        // Where the middle of the part's box shows: the viewport pixel (y up) a session would use.
        ruLinear::Point2 pixel(-1, -1);
        bench.camera().project(scene.partsBox(static_cast<int>(i)).getMiddle(), pixel);
        std::printf("  %zu %s at (%.3f, %.3f, %.3f), middle at pixel (%d, %d)\n", i, scene.parts()[i].file.c_str(),
                    t.getX(), t.getY(), t.getZ(), static_cast<int>(std::floor(pixel.x)),
                    static_cast<int>(std::floor(pixel.y)));
      }
      const ruLinear::Point eye = bench.camera().getEyeLocation(), target = bench.camera().getTarget();
      std::printf("Camera: eye (%.3f, %.3f, %.3f) looking at (%.3f, %.3f, %.3f)\n", eye.x, eye.y, eye.z, target.x,
                  target.y, target.z);
      if (bench.cutAway().on) {
        std::printf("Cut-away: on at %.3f mm\n", bench.cutAway().z);
      } else {
        std::printf("Cut-away: off\n");
      }
      std::printf("Frames written to %s\n", options.output.c_str());
    }
  }
  return status;
}

}  // namespace

void addReplayCommand(CLI::App& app, int& status) {
  auto options = std::make_shared<ReplayOptions>();
  CLI::App* replay = app.add_subcommand(
      "replay",
      "Replay a recorded input session (from `printprep view --record`) through the tools, writing a frame "
      "after each click, drag, key and wheel turn, then report the selection and each part's placement");
  replay->add_option("SESSION", options->session,
                     "Session JSON: {\"size\": [W, H], \"printer\": [W, D, H], \"models\": [files relative to the "
                     "session], \"events\": [{\"time\": seconds, \"event\": the event's property list}]}")
      ->required();
  replay->add_option("MODEL", options->models, "Models to load instead of the session's own (same order)");
  replay->add_option("-o,--output", options->output, "Folder for the frames")->capture_default_str();
  replay->footer(
      "Each event is the input layer's property list of the record: mouse presses, releases and moves (types "
      "1 to 4) with \"type\", \"button\", \"buttonMask\", \"modifierMask\", \"clickCount\", \"position\" and "
      "\"timestamp\"; hovers (9) with \"buttonMask\", \"modifierMask\" and \"position\"; wheel turns (5) with "
      "those and \"delta\"; key presses and releases (6, 7) with \"key\" (\"KeyZ\"), \"modifierMask\" and "
      "\"repeat\". Positions are viewport pixels, y up. Model files are relative to the session's folder. A "
      "session that is not JSON, an unknown event type or a missing field stops the replay before anything is "
      "written, with status 1.");
  replay->callback([options, &status] { status = runReplay(*options); });
}

}  // namespace printprep
