#pragma once

// Checks of numeric options whose messages say what was expected and what was given. CLI11's own
// range check reads a word as a number out of range ("Value abc not in range 64 to 4096") and
// prints unbounded limits with all their digits.

#include <CLI/CLI.hpp>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace printprep {

// A whole number from `low` to `high`; a negative `high` leaves it unbounded above.
inline CLI::Validator wholeNumberValidator(int low, int high, const char* what) {
  return CLI::Validator(
      [low, high, what](std::string& text) -> std::string {
        char* stop = nullptr;
        errno = 0;
        const long value = std::strtol(text.c_str(), &stop, 10);
        if (text.empty() || errno != 0 || stop != text.c_str() + text.size() || value < low ||
            (high >= 0 && value > high)) {
          const std::string range = high >= 0 ? " from " + std::to_string(low) + " to " + std::to_string(high)
                                              : " of " + std::to_string(low) + " or more";
          return std::string("expected ") + what + range + ", got \"" + text + "\"";
        }
        return std::string();
      },
      high >= 0 ? "INT in [" + std::to_string(low) + " - " + std::to_string(high) + "]"
                : "INT >= " + std::to_string(low),
      "whole number");
}

inline std::string rangeText(double low, double high) {
  char text[96];
  std::snprintf(text, sizeof text, "FLOAT in [%g - %g]", low, high);
  return text;
}

// A number from `low` to `high`.
inline CLI::Validator numberValidator(double low, double high, const char* what) {
  return CLI::Validator(
      [low, high, what](std::string& text) -> std::string {
        char* stop = nullptr;
        errno = 0;
        const double value = std::strtod(text.c_str(), &stop);
        if (text.empty() || errno != 0 || stop != text.c_str() + text.size() || !std::isfinite(value) ||
            value < low || value > high) {
          char range[96];
          std::snprintf(range, sizeof range, " from %g to %g", low, high);
          return std::string("expected ") + what + range + ", got \"" + text + "\"";
        }
        return std::string();
      },
      rangeText(low, high), "number");
}

// What keeps `path` from being written as a file, checked before any work starts so that a
// mistyped path fails at once (not after a drawing or a whole session): empty when nothing does.
inline std::string outputFileProblem(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::error_code code;
  if (std::filesystem::is_directory(path, code)) return path + ": is a folder, not a file";
  if (folder.empty() || std::filesystem::is_directory(folder, code)) return std::string();
  return path + ": the folder " + folder.string() + " does not exist";
}

// What keeps `path` from being a PNG image's name: empty when it ends in ".png" (any case) or has
// no extension. A picture written as PNG under another format's name would open wrongly or not at all.
inline std::string pngNameProblem(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension.empty() || extension == ".png") return std::string();
  return path + ": images are written as PNG; name the file with .png";
}

}  // namespace printprep
