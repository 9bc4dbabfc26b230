#include "host/commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>

int main(int argc, char** argv) {
  CLI::App app{"printprep: prepares 3D models for printing (reference host of libDataModelGUI)"};
  app.require_subcommand(1);
  int status = 0;
  printprep::addDemoCommand(app, status);
  printprep::addRenderCommands(app, status);
  printprep::addReplayCommand(app, status);
  printprep::addViewCommand(app, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    // A usage error: one line naming the argument, status 2.
    std::fprintf(stderr, "printprep: %s (see --help)\n", error.what());
    return 2;
  }
  return status;
}
