#pragma once

namespace CLI {
class App;
}

// The subcommands of printprep. Each adds itself to the command line and, when chosen, runs and
// stores its exit status in `status` (0 on success).
namespace printprep {

// `printprep demo`: writes a few small models, imports them onto a printer's bed and reports what
// the print analyses find.
void addDemoCommand(CLI::App& app, int& status);

// `printprep render`, `thumbnail` and `check`: models loaded onto the bed, drawn to PNG or reported.
void addRenderCommands(CLI::App& app, int& status);

// `printprep replay`: a recorded input session played through the tools, frames and a report.
void addReplayCommand(CLI::App& app, int& status);

// `printprep view`: the interactive window.
void addViewCommand(CLI::App& app, int& status);

// A `script` command (Lua) joins here, registered the same way: addScriptCommand(app, status) in
// a host/script.cpp of its own, running a script against a Scene, its View and a Workbench (the
// tools and the clock) as replay does with a session.

}  // namespace printprep
