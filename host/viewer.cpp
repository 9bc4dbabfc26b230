// `printprep view`: the interactive window. GLFW gives the window, its OpenGL context and its
// input; the library's draw system adopts the context and draws the view into it. Window input is
// turned into the input layer's event records (positions converted to viewport pixels, y up, at
// the framebuffer's scale) and dispatched to the tools; the clock is the steady clock, timers fire
// and schedulers run from the loop. With --record every dispatched event is written to a session
// that `printprep replay` plays back.

#include "host/commands.h"
#include "host/options.h"
#include "host/scene.h"
#include "host/session.h"
#include "host/tools.h"
#include "host/view.h"

#include "platform/base/clock.h"
#include "platform/image/image.h"
#include "platform/image/png.h"

#include <CLI/CLI.hpp>
#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace printprep {

namespace {

struct ViewOptions {
  std::vector<std::string> models;
  std::string printer = "100x100x100";
  std::string size = "1024x768";
  std::string record;
  std::string screenshot;
  double exitAfter = 0.0;
  bool timings = false;
};

// The OpenGL calls the host itself makes (the library draws; the host reads its frame back).
using ReadPixels = void (*)(int, int, int, int, unsigned, unsigned, void*);
using Finish = void (*)();
constexpr unsigned kRGBA = 0x1908, kUnsignedByte = 0x1401;

voEV::KeyCode keyCode(int key) {
  if (key >= GLFW_KEY_A && key <= GLFW_KEY_Z) return static_cast<voEV::KeyCode>(voEV::KeyA + (key - GLFW_KEY_A));
  if (key >= GLFW_KEY_0 && key <= GLFW_KEY_9) return static_cast<voEV::KeyCode>(voEV::Key0 + (key - GLFW_KEY_0));
  if (key >= GLFW_KEY_F1 && key <= GLFW_KEY_F12) return static_cast<voEV::KeyCode>(voEV::KeyF1 + (key - GLFW_KEY_F1));
  switch (key) {
    case GLFW_KEY_ESCAPE: return voEV::KeyEscape;
    case GLFW_KEY_TAB: return voEV::KeyTab;
    case GLFW_KEY_BACKSPACE: return voEV::KeyBackspace;
    case GLFW_KEY_DELETE: return voEV::KeyDelete;
    case GLFW_KEY_ENTER: return voEV::KeyReturn;
    case GLFW_KEY_LEFT: return voEV::KeyLeft;
    case GLFW_KEY_UP: return voEV::KeyUp;
    case GLFW_KEY_RIGHT: return voEV::KeyRight;
    case GLFW_KEY_DOWN: return voEV::KeyDown;
    case GLFW_KEY_HOME: return voEV::KeyHome;
    case GLFW_KEY_SPACE: return voEV::KeySpace;
    default: return voEV::KeyNone;
  }
}

int modifierMask(int mods) {
  return ((mods & GLFW_MOD_SHIFT) ? voEV::ModifierShift : 0) | ((mods & GLFW_MOD_CONTROL) ? voEV::ModifierCtrl : 0) |
         ((mods & GLFW_MOD_ALT) ? voEV::ModifierAlt : 0) | ((mods & GLFW_MOD_SUPER) ? voEV::ModifierMeta : 0);
}

// Everything the window's callbacks reach.
struct Viewer {
  GLFWwindow* window = nullptr;
  Workbench* bench = nullptr;
  double start = 0.0;  // steady clock at the first frame
  int buttons = 0;
  int modifiers = 0;
  voEV::Point cursor;
  double wheelRest = 0.0;
  bool redraw = true;
  bool hovering = false;  // the last input was a hover over the window
  bool screenshotWanted = false;
  bool quit = false;
  Session* recording = nullptr;
  double inputMs = 0.0;  // time spent in dispatch since the last frame (hit tests, snapping, tools)
  std::vector<double> hoverInputs;  // time of each hover's dispatch (its hit test), ms

  double now() const { return ruOS::currentClock().now() - start; }

  // Window coordinates (y down, screen units) to viewport pixels (y up, framebuffer pixels).
  voEV::Point viewportPoint(double x, double y) const {
    int windowWidth = 1, windowHeight = 1, width = 1, height = 1;
    glfwGetWindowSize(window, &windowWidth, &windowHeight);
    glfwGetFramebufferSize(window, &width, &height);
    const double sx = static_cast<double>(width) / std::max(windowWidth, 1);
    const double sy = static_cast<double>(height) / std::max(windowHeight, 1);
    return voEV::Point(static_cast<std::int32_t>(std::floor(x * sx)),
                       height - 1 - static_cast<std::int32_t>(std::floor(y * sy)));
  }

  void send(const ru::Reference<voEV::Event>& event) {
    bench->advance(ruOS::currentClock().now());
    if (recording) recording->events.push_back({now(), event});
    const auto began = std::chrono::steady_clock::now();
    const bool hover = event->getType() == voEV::MouseHover;
    const std::vector<int> hovered = hover ? bench->hoveredParts() : std::vector<int>();
    bench->dispatch(*event);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count();
    inputMs += ms;
    if (hover) hoverInputs.push_back(ms);
    // A hover that leaves the candidates as they were changes nothing on the screen.
    if (!hover || bench->hoveredParts() != hovered) redraw = true;
  }
};

Viewer& viewerOf(GLFWwindow* window) { return *static_cast<Viewer*>(glfwGetWindowUserPointer(window)); }

void onCursor(GLFWwindow* window, double x, double y) {
  Viewer& viewer = viewerOf(window);
  viewer.cursor = viewer.viewportPoint(x, y);
  viewer.hovering = viewer.buttons == 0;
  // With a button held the move belongs to an interaction; without, it is a hover query.
  viewer.send(voEV::MouseEvent::create(viewer.buttons ? voEV::MouseMove : voEV::MouseHover, 0, viewer.buttons,
                                       viewer.modifiers, 0, viewer.cursor, viewer.now()));
}

void onButton(GLFWwindow* window, int button, int action, int mods) {
  Viewer& viewer = viewerOf(window);
  const int mask = button == GLFW_MOUSE_BUTTON_LEFT    ? voEV::ButtonLeft
                   : button == GLFW_MOUSE_BUTTON_RIGHT ? voEV::ButtonRight
                   : button == GLFW_MOUSE_BUTTON_MIDDLE ? voEV::ButtonMiddle
                                                         : 0;
  if (!mask) return;
  viewer.modifiers = modifierMask(mods);
  double x = 0, y = 0;
  glfwGetCursorPos(window, &x, &y);
  viewer.cursor = viewer.viewportPoint(x, y);
  viewer.hovering = false;
  if (action == GLFW_PRESS) {
    viewer.buttons |= mask;
    viewer.send(voEV::MouseEvent::create(voEV::MouseButtonPress, mask, viewer.buttons, viewer.modifiers, 1,
                                         viewer.cursor, viewer.now()));
  } else if (action == GLFW_RELEASE) {
    viewer.buttons &= ~mask;
    viewer.send(voEV::MouseEvent::create(voEV::MouseButtonRelease, mask, viewer.buttons, viewer.modifiers, 1,
                                         viewer.cursor, viewer.now()));
  }
}

void onScroll(GLFWwindow* window, double, double dy) {
  Viewer& viewer = viewerOf(window);
  // Touchpads scroll in fractions: whole steps go out, the rest waits.
  viewer.wheelRest += dy;
  const int steps = static_cast<int>(viewer.wheelRest);
  if (steps == 0) return;
  viewer.wheelRest -= steps;
  viewer.send(voEV::WheelEvent::create(voEV::Wheel, viewer.buttons, viewer.modifiers, viewer.cursor, steps));
}

void onKey(GLFWwindow* window, int key, int, int action, int mods) {
  Viewer& viewer = viewerOf(window);
  viewer.modifiers = modifierMask(mods);
  // The window's own keys, not the tools': F12 takes a screenshot, Ctrl+Q closes.
  if (key == GLFW_KEY_F12 || (key == GLFW_KEY_Q && (mods & GLFW_MOD_CONTROL))) {
    if (action != GLFW_PRESS) return;
    if (key == GLFW_KEY_F12) viewer.screenshotWanted = viewer.redraw = true;
    else viewer.quit = true;
    return;
  }
  const voEV::KeyCode code = keyCode(key);
  if (code == voEV::KeyNone) return;
  viewer.hovering = false;
  const voEV::EventType type = action == GLFW_RELEASE ? voEV::KeyRelease : voEV::KeyPress;
  viewer.send(voEV::KeyEvent::create(type, code, action == GLFW_REPEAT, viewer.modifiers));
}

void onResize(GLFWwindow* window, int width, int height) {
  Viewer& viewer = viewerOf(window);
  if (width > 0 && height > 0) viewer.bench->resize(width, height);
  viewer.redraw = true;
}

// The frame just drawn into the back buffer, top row first, as a PNG; false with the reason.
bool writeScreenshot(int width, int height, const std::string& path, std::string& error) {
  auto readPixels = reinterpret_cast<ReadPixels>(glfwGetProcAddress("glReadPixels"));
  if (!readPixels) {
    error = path + ": cannot read the window's pixels";
    return false;
  }
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = new ruImage::TypedImage<ruImage::Byte4>(width, height);
  readPixels(0, 0, width, height, kRGBA, kUnsignedByte, image->bytes());
  ruImage::imageFlipVertical(*image);
  std::uint8_t* bytes = image->bytes();
  for (std::size_t i = 3; i < image->byteSize(); i += 4) bytes[i] = 255;
  return writePngInPlace(image, path, error);
}

int runView(const ViewOptions& options) {
  std::vector<double> size, volume;
  parseSize(options.size, 2, size);
  parseSize(options.printer, 3, volume);
  // The session and the screenshot are written at the end of a session or at a key press: a path
  // that cannot be written is refused before the window opens, not after the work it would hold.
  for (const std::string* path : {&options.record, &options.screenshot}) {
    std::string problem = path->empty() ? std::string() : outputFileProblem(*path);
    if (problem.empty() && path == &options.screenshot && !path->empty()) problem = pngNameProblem(*path);
    if (!problem.empty()) {
      std::fprintf(stderr, "printprep view: %s\n", problem.c_str());
      return 1;
    }
  }
  Scene scene(ruLinear::Vector(volume[0], volume[1], volume[2]));
  std::string error;
  if (!scene.load(options.models, error)) {
    std::fprintf(stderr, "printprep view: %s\n", error.c_str());
    return 1;
  }
  if (!glfwInit()) {
    const char* reason = nullptr;
    glfwGetError(&reason);
    std::fprintf(stderr, "printprep view: cannot open a window: %s\n", reason ? reason : "no display");
    return 1;
  }
  struct Terminate {
    ~Terminate() { glfwTerminate(); }
  } terminate;
  glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 3);
  glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
  glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
  glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
  // Through EGL, the API the draw system recognises a current context by.
  glfwWindowHint(GLFW_CONTEXT_CREATION_API, GLFW_EGL_CONTEXT_API);
  // A recorded session keeps one viewport size, which replay reproduces.
  glfwWindowHint(GLFW_RESIZABLE, options.record.empty() ? GLFW_TRUE : GLFW_FALSE);
  GLFWwindow* window = glfwCreateWindow(static_cast<int>(size[0]), static_cast<int>(size[1]), "printprep view",
                                        nullptr, nullptr);
  if (!window) {
    const char* reason = nullptr;
    glfwGetError(&reason);
    std::fprintf(stderr, "printprep view: cannot open a window: %s\n", reason ? reason : "unknown reason");
    return 1;
  }
  glfwMakeContextCurrent(window);
  glfwSwapInterval(0);
  int width = 0, height = 0;
  glfwGetFramebufferSize(window, &width, &height);

  std::unique_ptr<View> view = View::create(scene, error, true);
  if (!view) {
    glfwDestroyWindow(window);
    std::fprintf(stderr, "printprep view: %s\n", error.c_str());
    return 1;
  }
  Session recording;
  recording.width = width;
  recording.height = height;
  recording.printer = volume;
  for (const std::string& model : options.models)
    recording.models.push_back(options.record.empty()
                                   ? model
                                   : std::filesystem::absolute(model).lexically_normal().string());
  int status = 0;
  std::vector<double> frameTimes, hoverTimes, hoverInputs;
  {
    Workbench bench(scene, *view, width, height);
    Viewer viewer;
    viewer.window = window;
    viewer.bench = &bench;
    viewer.start = ruOS::currentClock().now();
    viewer.recording = options.record.empty() ? nullptr : &recording;
    glfwSetWindowUserPointer(window, &viewer);
    glfwSetCursorPosCallback(window, onCursor);
    glfwSetMouseButtonCallback(window, onButton);
    glfwSetScrollCallback(window, onScroll);
    glfwSetKeyCallback(window, onKey);
    glfwSetFramebufferSizeCallback(window, onResize);
    ruRTB::SignalClient client;
    bench.sigAction.addCallback(
        [&viewer](const std::string& what) {
          viewer.redraw = true;
          std::printf("%.3f s  %s\n", viewer.now(), what.c_str());
          std::fflush(stdout);
        },
        client);
    auto finish = reinterpret_cast<Finish>(glfwGetProcAddress("glFinish"));
    std::printf("printprep view: %zu parts; left drag moves a part (or orbits), right drag orbits, middle or "
                "Shift+left drag pans, wheel zooms, Ctrl+Z / Ctrl+Shift+Z undo and redo, C cut-away, Up/Down "
                "move it, Escape cancels a drag, F12 screenshot, Ctrl+Q quits\n",
                scene.parts().size());
    std::fflush(stdout);
    bool more = true;
    while (!glfwWindowShouldClose(window) && !viewer.quit) {
      const double now = ruOS::currentClock().now();
      if (options.exitAfter > 0.0 && now - viewer.start >= options.exitAfter) break;
      // Sleep until input, the next timer or (while the animation runs) the next frame.
      double wait = 0.25;
      if (const auto due = bench.timers().nextDue()) wait = std::min(wait, std::max(*due - now, 0.0));
      if (more || viewer.redraw || bench.timers().anim().isRunning()) wait = 0.0;
      if (wait > 0.0) {
        glfwWaitEventsTimeout(wait);
      } else {
        glfwPollEvents();
      }
      bench.advance(ruOS::currentClock().now());
      if (!viewer.redraw && !more) continue;
      const auto frameStart = std::chrono::steady_clock::now();
      more = bench.prepareFrame();
      if (!view->drawToWindow()) {
        std::fprintf(stderr, "printprep view: the frame could not be drawn\n");
        status = 1;
        break;
      }
      if (finish) finish();
      // A frame's time: the input it answers (dispatch) and its drawing, until the GPU is done.
      const double drawMs =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - frameStart).count();
      const double ms = drawMs + viewer.inputMs;
      frameTimes.push_back(ms);
      if (viewer.hovering) hoverTimes.push_back(ms);
      if (options.timings)
        std::printf("frame %zu: %.2f ms (input %.2f, draw %.2f)%s\n", frameTimes.size(), ms, viewer.inputMs, drawMs,
                    viewer.hovering ? " hovering" : "");
      viewer.inputMs = 0.0;
      viewer.redraw = false;
      if (viewer.screenshotWanted) {
        viewer.screenshotWanted = false;
        if (options.screenshot.empty()) {
          std::printf("no --screenshot file given\n");
        } else if (!writeScreenshot(width, height, options.screenshot, error)) {
          std::fprintf(stderr, "printprep view: %s\n", error.c_str());
        } else {
          std::printf("screenshot written to %s\n", options.screenshot.c_str());
        }
        std::fflush(stdout);
      }
      glfwSwapBuffers(window);
      glfwGetFramebufferSize(window, &width, &height);
    }
    glfwSetWindowUserPointer(window, nullptr);
    hoverInputs = viewer.hoverInputs;
  }
  view.reset();
  glfwDestroyWindow(window);
  if (!options.record.empty() && !writeSession(options.record, recording, error)) {
    std::fprintf(stderr, "printprep view: %s\n", error.c_str());
    return 1;
  }
  if (!options.record.empty())
    std::printf("Session of %zu events written to %s\n", recording.events.size(), options.record.c_str());
  auto summary = [](const char* what, const std::vector<double>& times, const char* unit) {
    if (times.empty()) return;
    double sum = 0.0, most = 0.0;
    for (double t : times) sum += t, most = std::max(most, t);
    std::printf("%s: %zu %s, mean %.2f ms, max %.2f ms\n", what, times.size(), unit, sum / times.size(), most);
  };
  summary("Frame time", frameTimes, "frames");
  summary("Frame time while hovering", hoverTimes, "frames");
  // A hover that changes no candidate draws no frame; its hit test still counts here.
  summary("Hover input (hit test and candidates)", hoverInputs, "events");
  return status;
}

}  // namespace

void addViewCommand(CLI::App& app, int& status) {
  auto options = std::make_shared<ViewOptions>();
  CLI::App* command = app.add_subcommand("view", "Open an interactive window on models placed on the printer's bed");
  command->add_option("MODEL", options->models, "STL, OBJ, 3MF or PLY files, placed side by side on the bed")
      ->required();
  command->add_option("--printer", options->printer, "Printer volume WxDxH in mm")
      ->capture_default_str()
      ->check(CLI::Validator(
          [](std::string& text) {
            std::vector<double> values;
            return parseSize(text, 3, values) ? std::string() : "expected WxDxH of positive numbers, got \"" + text + "\"";
          },
          "WxDxH"));
  command->add_option("--size", options->size, "Window size WxH in pixels")
      ->capture_default_str()
      ->check(CLI::Validator(
          [](std::string& text) {
            std::vector<double> values;
            return parseSize(text, 2, values) && values[0] <= 8192 && values[1] <= 8192
                       ? std::string()
                       : "expected WxH of whole pixels up to 8192, got \"" + text + "\"";
          },
          "WxH"));
  command->add_option("--record", options->record, "Write the session's input to this JSON file for `printprep replay`");
  command->add_option("--screenshot", options->screenshot, "PNG file that F12 writes with the window's frame");
  command->add_option("--exit-after", options->exitAfter, "Close after this many seconds")
      ->check(numberValidator(0.001, 1e9, "a time in seconds"));
  command->add_flag("--timings", options->timings,
                    "Print the time of every frame (the input it answers and its drawing); without it the mean and "
                    "maximum are printed on exit");
  command->footer(
      "Hover highlights a part; click selects (Shift adds, a click on nothing clears); a left drag on a part "
      "moves it over the bed, caught by the other parts' corners, and Escape cancels it; a left drag elsewhere or "
      "a right drag orbits, a middle or Shift+left drag pans, the wheel zooms; Ctrl+Z undoes, Ctrl+Shift+Z or "
      "Ctrl+Y redoes; C shows or hides the cut-away, Up and Down move it; F12 writes the --screenshot file; "
      "Ctrl+Q closes.");
  command->callback([options, &status] { status = runView(*options); });
}

}  // namespace printprep
