// Proves theorems about the library by trying all cases there are: see docs/trust.md.
//
//   prove [name...] [--part k/n] [--bits b]
//
// A name stands for all theorems that start with it. A part is every n-th piece of each, from the
// k-th on; bits are those of the longest of the small formats.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <sstream>
#include <thread>

#include "gtest/gtest.h"
#include "prove/theorem.h"
#include "tests/environment_oracle.h"

using prove::Theorem;

// The pieces of a theorem from `next` on, each `step` after the last.
struct Run {
  const Theorem& t;
  std::atomic<unsigned long> next;
  const unsigned long step;
  const std::string repeat;  // but for the piece
  const unsigned long count = next < t.pieces ? (t.pieces - next - 1) / step + 1 : 0;
  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  std::atomic<unsigned long> cases = 0, done = 0;
  std::atomic<bool> ended = false;
  std::mutex mutex = {};
  std::string failure = {};

  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  void work() {
    for (unsigned long piece = next.fetch_add(step); piece < t.pieces && !ended;
         piece = next.fetch_add(step), ++done) {
      try {
        zelk_test::cases = 0;  // settings that take turns start anew
        t.prove(piece);
        cases += zelk_test::cases;
      } catch (const std::exception& e) {
        const std::lock_guard lock(mutex);
        if (ended.exchange(true)) return;
        failure = std::string(e.what()) + "\nTo repeat: " + repeat + " --part " +
                  std::to_string(piece + 1) + '/' + std::to_string(t.pieces) + '\n';
      }
    }
  }

  // A bar in a terminal, else a line a minute.
  void show_progress() const {
    const bool terminal = isatty(STDERR_FILENO) != 0;
    for (unsigned long ticks = 1; !ended; ++ticks) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      if (ticks % (terminal ? 25 : 3000) != 0 || done == 0) continue;
      const double part = static_cast<double>(done) / static_cast<double>(count);
      const std::string bar(static_cast<std::size_t>(40 * part), '#');
      std::cerr << (terminal ? "\r" : "") << std::left << std::setw(18) << t.name << " ["
                << std::setw(40) << bar << "] " << static_cast<int>(100 * part) << " %, "
                << static_cast<long>(seconds() * (1 - part) / part) << " s left "
                << (terminal ? "" : "\n") << std::flush;
    }
    if (terminal) std::cerr << '\r' << std::string(90, ' ') << '\r';
  }

  // A line for the theorem, and what fails.
  bool holds() {
    std::thread progress([this] { show_progress(); });
    std::vector<std::thread> threads;
    while (threads.size() < std::max(1U, std::thread::hardware_concurrency())) {
      threads.emplace_back([this] { work(); });
    }
    for (std::thread& thread : threads) thread.join();
    ended = true;
    progress.join();
    std::cout << std::left << std::setw(18) << t.name << (failure.empty() ? " holds " : " FAILS ")
              << std::right << std::setw(15) << cases << " cases " << std::setw(7) << std::fixed
              << std::setprecision(1) << seconds() << " s\n"
              << failure << std::flush;
    return failure.empty() && cases > 0;
  }
};

static int usage() {
  std::cerr << "usage: prove [name...] [--part k/n] [--bits b]\n";
  return 2;
}

int main(int argc, char** argv) try {
  GTEST_FLAG_SET(throw_on_failure, true);  // what the oracles of the tests assert is thrown
  delete testing::UnitTest::GetInstance()->listeners().Release(
      testing::UnitTest::GetInstance()->listeners().default_result_printer());
  std::vector<std::string> names;
  unsigned long first = 1, step = 1, bits = 16;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    std::istringstream value(i + 1 < argc ? argv[i + 1] : "");
    char slash = 0;
    const bool takes_value =
        (argument == "--part" && value >> first >> slash >> step && slash == '/') ||
        (argument == "--bits" && value >> bits);
    if (!takes_value && argument.starts_with("--")) return usage();
    if (!takes_value) names.push_back(argument);
    i += static_cast<int>(takes_value);
  }
  if (first < 1 || first > step || bits > 16) return usage();
  std::vector<Theorem> theorems = prove::small(bits);
  for (const auto& more : {prove::half(), prove::widths(), prove::decision()})
    theorems.insert(theorems.end(), more.begin(), more.end());
  if (names.empty()) names.emplace_back();
  for (const std::string& name : names) {
    bool any = false;
    for (const Theorem& t : theorems) {
      Run run{t, first - 1, step, argv[0] + (' ' + t.name) + " --bits " + std::to_string(bits)};
      if (!t.name.starts_with(name) || run.count == 0) continue;
      if (!run.holds()) return 1;
      any = true;
    }
    if (!any) return usage();  // none, or none of its pieces
  }
  return 0;
} catch (const std::exception& e) {  // of values that theorems are made of
  std::cerr << e.what() << '\n';
  return 1;
}
