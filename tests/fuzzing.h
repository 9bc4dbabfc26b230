#pragma once

// Deterministic mutations of small valid inputs for the importers' robustness tests, and a
// watchdog that names a case that hangs. Header only: each test program that fuzzes includes it.
//
// The same seed and case index always give the same bytes (no std:: distributions, whose output
// differs between standard libraries), so a failing case can be replayed by its name alone.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fuzz {

// SplitMix64: small, fast and the same everywhere.
class Random {
public:
  explicit Random(std::uint64_t seed) noexcept : state_(seed) {}
  std::uint64_t next() noexcept {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // A number in [0, n); 0 when n is 0.
  std::size_t below(std::size_t n) noexcept { return n ? static_cast<std::size_t>(next() % n) : 0; }

private:
  std::uint64_t state_;
};

struct Mutation {
  std::string bytes;
  std::string name;  // what was done, to name the case
};

// Added to every seed: 0 unless FUZZ_SEED is set in the environment, for a longer search by hand
// (the tests as they run are deterministic).
inline std::uint64_t seedOffset() {
  static const std::uint64_t offset = [] {
    const char* text = std::getenv("FUZZ_SEED");
    return text ? std::strtoull(text, nullptr, 10) : 0ull;
  }();
  return offset;
}

// Numbers that break careless readers: past 32 and 64 bits, negative, not finite, exponents.
inline const std::vector<std::string>& hostileNumbers() {
  static const std::vector<std::string> numbers = {
      "4294967295", "4294967296", "18446744073709551616", "1e300", "-1", "-2147483649", "nan", "inf",
      "0",          "3000000000", "99999999999999999999", "1e-320", "-0", "2147483648"};
  return numbers;
}

// Mutation `index` of `original` under `seed`. Kinds, in turn: a truncation, one to four flipped
// bytes, inserted random bytes, a deleted span, a duplicated span, a decimal number replaced by a
// hostile one (text) or a 32-bit word set to a hostile count (binary), and `opener` repeated
// 1000 to 1000 + maxRepeat times at a random place (deep nesting, for formats that nest; for the
// others a long run of junk).
inline Mutation mutate(const std::string& original, std::uint64_t seed, int index, const std::string& opener = "[",
                       std::size_t maxRepeat = 20000) {
  Random random((seed + seedOffset()) * 0x100000001B3ull + static_cast<std::uint64_t>(index));
  Mutation m{original, ""};
  std::string& b = m.bytes;
  const std::size_t size = b.size();
  char text[160];
  switch (index % 8) {
    case 0: {
      const std::size_t at = random.below(size);
      b.resize(at);
      std::snprintf(text, sizeof text, "truncated to %zu bytes", at);
      break;
    }
    case 1: {
      const int flips = 1 + static_cast<int>(random.below(4));
      std::string where;
      for (int i = 0; i < flips && size; ++i) {
        const std::size_t at = random.below(size);
        b[at] = static_cast<char>(b[at] ^ static_cast<char>(1 + random.below(255)));
        where += (where.empty() ? "" : ",") + std::to_string(at);
      }
      std::snprintf(text, sizeof text, "bytes flipped at %s", where.c_str());
      break;
    }
    case 2: {
      const std::size_t at = random.below(size + 1);
      const std::size_t count = 1 + random.below(16);
      std::string junk;
      for (std::size_t i = 0; i < count; ++i) junk += static_cast<char>(random.below(256));
      b.insert(at, junk);
      std::snprintf(text, sizeof text, "%zu random bytes inserted at %zu", count, at);
      break;
    }
    case 3: {
      const std::size_t at = random.below(size);
      const std::size_t count = 1 + random.below(std::max<std::size_t>(size / 8, 1));
      b.erase(at, count);
      std::snprintf(text, sizeof text, "%zu bytes deleted at %zu", count, at);
      break;
    }
    case 4: {
      const std::size_t at = random.below(size);
      const std::size_t count = 1 + random.below(std::max<std::size_t>(size / 4, 1));
      const std::string span = b.substr(at, count);
      const std::size_t to = random.below(size + 1);
      b.insert(to, span);
      std::snprintf(text, sizeof text, "%zu bytes from %zu copied to %zu", span.size(), at, to);
      break;
    }
    case 5: {
      // The starts of the runs of decimal digits.
      std::vector<std::size_t> numbers;
      for (std::size_t i = 0; i < size; ++i) {
        const bool digit = b[i] >= '0' && b[i] <= '9';
        if (digit && (i == 0 || !(b[i - 1] >= '0' && b[i - 1] <= '9'))) numbers.push_back(i);
      }
      const std::string& number = hostileNumbers()[random.below(hostileNumbers().size())];
      if (numbers.empty() || random.below(3) == 0) {
        // A binary count: a little-endian 32-bit word.
        static const std::uint32_t words[] = {0xFFFFFFFFu, 0x7FFFFFFFu, 0x80000000u, 0x10000000u, 0u};
        const std::uint32_t word = words[random.below(5)];
        const std::size_t at = random.below(size >= 4 ? size - 3 : 1);
        for (int k = 0; k < 4 && at + k < size; ++k) b[at + k] = static_cast<char>((word >> (8 * k)) & 0xFF);
        std::snprintf(text, sizeof text, "word 0x%08x written at %zu", word, at);
      } else {
        const std::size_t at = numbers[random.below(numbers.size())];
        std::size_t end = at;
        while (end < size && b[end] >= '0' && b[end] <= '9') ++end;
        b.replace(at, end - at, number);
        std::snprintf(text, sizeof text, "number at %zu replaced by %s", at, number.c_str());
      }
      break;
    }
    case 6: {
      const std::size_t at = random.below(size + 1);
      const std::size_t count = 1000 + random.below(maxRepeat);
      std::string run;
      run.reserve(count * opener.size());
      for (std::size_t i = 0; i < count; ++i) run += opener;
      b.insert(at, run);
      std::snprintf(text, sizeof text, "'%s' repeated %zu times at %zu", opener.c_str(), count, at);
      break;
    }
    default: {
      // Two kinds at once: a flip and a truncation near the end.
      const std::size_t at = random.below(size);
      if (size) b[at] = static_cast<char>(b[at] ^ static_cast<char>(1 + random.below(255)));
      const std::size_t keep = size - random.below(std::min<std::size_t>(size, 32) + 1);
      b.resize(std::min(b.size(), keep));
      std::snprintf(text, sizeof text, "byte flipped at %zu and cut to %zu bytes", at, b.size());
      break;
    }
  }
  m.name = text;
  return m;
}

// Fails the test program, naming the case, when one case runs longer than `seconds`: a case that
// hangs cannot be stopped from inside, so the watchdog reports it and ends the process. This
// detects hangs; it measures no speed (the bound is far above any honest case's time).
class Watchdog {
public:
  explicit Watchdog(double seconds) : limit_(seconds), thread_([this] { run(); }) {}
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // With FUZZ_TRACE set in the environment each case is named on stderr as it starts, so a
  // case that crashes the process is the last one printed.
  void begin(const std::string& name) {
    if (trace_) std::fprintf(stderr, "fuzz case: %s\n", name.c_str());
    std::lock_guard<std::mutex> lock(mutex_);
    name_ = name;
    started_ = std::chrono::steady_clock::now();
    running_ = true;
  }
  void end() {
    std::lock_guard<std::mutex> lock(mutex_);
    running_ = false;
  }

private:
  void run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_) {
      wake_.wait_for(lock, std::chrono::milliseconds(100));
      if (running_ && std::chrono::steady_clock::now() - started_ > std::chrono::duration<double>(limit_)) {
        std::fprintf(stderr, "\nFUZZ CASE HUNG: '%s' ran for more than %g seconds\n", name_.c_str(), limit_);
        std::fflush(stderr);
        std::_Exit(3);
      }
    }
  }

  double limit_;
  bool trace_ = std::getenv("FUZZ_TRACE") != nullptr;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::string name_;
  std::chrono::steady_clock::time_point started_;
  bool running_ = false;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace fuzz
