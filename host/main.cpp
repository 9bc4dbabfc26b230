#include "host/commands.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
  CLI::App app{"printprep: prepares 3D models for printing (reference host of libDataModelGUI)"};
  app.require_subcommand(1);
  int status = 0;
  printprep::addDemoCommand(app, status);
  CLI11_PARSE(app, argc, argv);
  return status;
}
