// What the interactive library never does, read from its sources: it runs on the host's one thread
// (no threads, locks or atomic values of its own), reports failure by result rather than by
// exception, and writes nothing to the standard streams except through the debug codes.

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

// The text with comments, string literals and character literals blanked out (line breaks kept),
// so that words inside them do not count.
std::string codeOnly(const std::string& text) {
  std::string out = text;
  enum { Code, Line, Block, String, Char } state = Code;
  for (std::size_t i = 0; i < out.size(); ++i) {
    const char c = text[i];
    const char next = i + 1 < text.size() ? text[i + 1] : '\0';
    switch (state) {
      case Code:
        if (c == '/' && next == '/') state = Line;
        else if (c == '/' && next == '*') state = Block;
        else if (c == '"') state = String;
        else if (c == '\'' && !(i > 0 && std::isxdigit(static_cast<unsigned char>(text[i - 1])))) state = Char;
        else continue;
        out[i] = ' ';
        break;
      case Line:
        if (c == '\n') state = Code;
        else out[i] = ' ';
        break;
      case Block:
        if (c == '*' && next == '/') {
          out[i] = out[i + 1] = ' ';
          ++i;
          state = Code;
        } else if (c != '\n') {
          out[i] = ' ';
        }
        break;
      case String:
      case Char:
        if (c == '\\') {
          out[i] = ' ';
          if (i + 1 < out.size() && next != '\n') out[++i] = ' ';
        } else {
          if (c == (state == String ? '"' : '\'')) state = Code;
          if (c != '\n') out[i] = ' ';
        }
        break;
    }
  }
  return out;
}

bool isWordChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// Words and includes the library must not use, each found as a whole word.
const std::vector<std::string>& forbidden() {
  static const std::vector<std::string> words = {
      // threads, locks, atomic values
      "std::thread", "std::jthread", "std::async", "std::mutex", "std::recursive_mutex", "std::shared_mutex",
      "std::lock_guard", "std::unique_lock", "std::scoped_lock", "std::condition_variable", "std::atomic",
      "std::atomic_flag", "pthread_create", "thread_local", "<thread>", "<mutex>", "<atomic>", "<future>",
      "<shared_mutex>", "<condition_variable>", "<pthread.h>",
      // exceptions
      "throw", "try", "catch",
      // output past the debug codes
      "std::cout", "std::cerr", "std::clog", "printf", "std::printf", "puts", "std::puts", "fputs", "std::fputs",
      "fprintf", "std::fprintf", "<iostream>"};
  return words;
}

bool isCFunction(const std::string& word) {
  const std::string bare = word.starts_with("std::") ? word.substr(5) : word;
  return bare == "printf" || bare == "puts" || bare == "fputs" || bare == "fprintf";
}

// "file:line: word" for every forbidden word in the code of `text`.
std::vector<std::string> forbiddenUses(const std::string& name, const std::string& text) {
  std::vector<std::string> found;
  std::istringstream lines(codeOnly(text));
  std::istringstream original(text);
  std::string line;
  std::string originalLine;
  for (int number = 1; std::getline(lines, line); ++number) {
    std::getline(original, originalLine);
    // Includes keep their header name, which the blanking above leaves alone (angle brackets).
    for (const std::string& word : forbidden()) {
      for (std::size_t at = line.find(word); at != std::string::npos; at = line.find(word, at + 1)) {
        const bool startsWord = at == 0 || !isWordChar(line[at - 1]) || word.front() == '<';
        const std::size_t end = at + word.size();
        const bool endsWord = end >= line.size() || !isWordChar(line[end]) || word.back() == '>';
        // "std::thread" is not "ruUtil::std::thread"-like text ending a longer qualified name
        const bool unqualified = word.find("::") != std::string::npos || at < 2 || line.compare(at - 2, 2, "::") != 0;
        // The C output functions count when called: format(printf, ...) in an attribute is no output.
        const bool call = !isCFunction(word) || line.find_first_not_of(' ', end) == line.find('(', end);
        if (startsWord && endsWord && unqualified && call) {
          found.push_back(name + ":" + std::to_string(number) + ": " + word);
          break;
        }
      }
    }
  }
  return found;
}

// The one sanctioned write to standard output: the print surface announces its destruction there,
// which hosts watch for in their logs.
bool allowed(const std::string& use) {
  return use.rfind("datamodelgui/print/kltsurfacedraw.cpp:", 0) == 0 &&
         (use.ends_with(": std::fputs") || use.ends_with(": fputs"));
}

TEST(LibraryHabits, ForbiddenWordsAreFoundInCodeAndNotInCommentsOrTexts) {
  const std::string text =
      "#include <atomic>\n"
      "// std::thread in a comment, try again\n"
      "const char* t = \"throw std::cout\";\n"
      "char q = '\"'; int retry = 0; bool catcher = false;\n"
      "/* std::mutex\n   throw */ void f() { try { g(); } catch (...) {} }\n"
      "void h() { std::cerr << 1; std::atomic<int> n; }\n"
      "int x = 0x1'000; void k() { throw 1; }\n"
      "void line(const char*, ...) __attribute__((format(printf, 1, 2))); void m() { std::printf(\"\"); }\n";
  const std::vector<std::string> uses = forbiddenUses("sample.cpp", text);
  const std::vector<std::string> expected = {"sample.cpp:1: <atomic>", "sample.cpp:6: try", "sample.cpp:6: catch",
                                             "sample.cpp:7: std::atomic", "sample.cpp:7: std::cerr",
                                             "sample.cpp:8: throw", "sample.cpp:9: std::printf"};
  EXPECT_EQ(uses, expected);
}

TEST(LibraryHabits, TheLibraryStartsNoThreadTakesNoLockUsesNoAtomicThrowsNothingAndPrintsOnlyThroughDebugCodes) {
  const fs::path root = fs::path(DMGUI_SOURCE_DIR) / "datamodelgui";
  ASSERT_TRUE(fs::is_directory(root));
  int files = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    const std::string extension = entry.path().extension().string();
    if (!entry.is_regular_file() || (extension != ".cpp" && extension != ".h")) continue;
    ++files;
    std::ifstream in(entry.path());
    std::stringstream text;
    text << in.rdbuf();
    const std::string name = fs::relative(entry.path(), DMGUI_SOURCE_DIR).generic_string();
    for (const std::string& use : forbiddenUses(name, text.str())) {
      if (!allowed(use)) ADD_FAILURE() << use;
    }
  }
  // Every subsystem folder holds sources; an empty walk would pass for the wrong reason.
  EXPECT_GT(files, 20);
}

// The event layer and the document layers do not know each other: the host's tools join them.
TEST(LibraryHabits, TheEventLayerAndTheDocumentLayersIncludeNothingOfEachOther) {
  const fs::path root(DMGUI_SOURCE_DIR);
  const std::vector<std::string> document = {"datamodelgui/draw/", "datamodelgui/selection/", "datamodelgui/snap/",
                                             "datamodelgui/print/"};
  auto check = [&](const std::string& folder, const std::vector<std::string>& unknown) {
    int files = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / folder)) {
      if (!entry.is_regular_file()) continue;
      ++files;
      std::ifstream in(entry.path());
      std::string line;
      for (int number = 1; std::getline(in, line); ++number) {
        if (line.rfind("#include", 0) != 0) continue;
        for (const std::string& other : unknown)
          if (line.find("\"" + other) != std::string::npos)
            ADD_FAILURE() << fs::relative(entry.path(), root).generic_string() << ":" << number << ": " << line;
      }
    }
    EXPECT_GT(files, 0) << folder;
  };
  check("datamodelgui/events", document);
  for (const std::string& folder : document) check(folder, {"datamodelgui/events/"});
}

}  // namespace
