#pragma once

// Running printprep from a test as a user runs it: its exit status and what it printed, each test
// case in a folder of its own.

#include <filesystem>
#include <string>

namespace programrun {

struct Outcome {
  int status = -1;  // the exit status, -1 when it did not exit normally
  std::string out;
  std::string err;
};

// The current test case's own folder under PRINTPREP_TEST_DIR/`area`: ctest runs the cases as
// parallel processes, and two cases writing the same file would feed each other half-written files.
std::filesystem::path caseFolder(const std::string& area);

// printprep with `arguments` (shell words), no display, its output kept in `folder`/`name`.out and
// .err; the sanitizer options are those of ./run test.
Outcome run(const std::string& arguments, const std::filesystem::path& folder, const std::string& name);

std::string slurp(const std::filesystem::path& path);
// Writes `bytes` to `path`, making its folders.
void write(const std::filesystem::path& path, const std::string& bytes);

}  // namespace programrun
