#include "programrun.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace programrun {

namespace fs = std::filesystem;

namespace {

// LeakSanitizer's tracking of dynamic TLS guesses a block's extent from a header it expects before
// blocks that lie 16 bytes past a page start; the blocks of the OpenGL driver, loaded at run time,
// sometimes lie there without one, and the leak check at exit then crashes ("Tracer caught signal
// 11"), depending only on where the heap happens to put them. With the tracking off the blocks are
// still found through the thread's own TLS, so every leak is still reported. ./run test sets it
// too; this keeps the tests right when run on their own.
void childSanitizerOptions() {
  static const bool done = [] {
    const char* current = std::getenv("LSAN_OPTIONS");
    std::string options = current ? current : "";
    if (options.find("intercept_tls_get_addr") == std::string::npos)
      options += (options.empty() ? "" : ":") + std::string("intercept_tls_get_addr=0");
    return setenv("LSAN_OPTIONS", options.c_str(), 1) == 0;
  }();
  (void)done;
}

}  // namespace

fs::path caseFolder(const std::string& area) {
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  const std::string name = test ? std::string(test->test_suite_name()) + "." + test->name() : "shared";
  return fs::path(PRINTPREP_TEST_DIR) / area / name;
}

Outcome run(const std::string& arguments, const fs::path& folder, const std::string& name) {
  childSanitizerOptions();
  fs::create_directories(folder);
  const fs::path out = folder / (name + ".out"), err = folder / (name + ".err");
  // No window ever opens from these tests: the viewer's own test runs it under Xvfb.
  const std::string command = std::string("env -u DISPLAY -u WAYLAND_DISPLAY ") + PRINTPREP + " " + arguments +
                              " > " + out.string() + " 2> " + err.string();
  const int raw = std::system(command.c_str());
  Outcome result;
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  result.out = slurp(out);
  result.err = slurp(err);
  return result;
}

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void write(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace programrun
