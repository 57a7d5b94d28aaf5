// Runs the registered rows, repetitions interleaved, and prints how the peers compare.
//
// A row is named operation/format/who; every `who` but zelk is a peer of the zelk row with the
// same operation and format.
#ifndef ZELK_BENCH_REPORT_H_
#define ZELK_BENCH_REPORT_H_

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "bench/walk.h"

namespace zelk_bench {

/// Operations per iteration.
inline constexpr std::size_t count = 1024;

/// The rows in the order of their registration, which the table keeps.
inline std::vector<std::string>& row_order() {
  static std::vector<std::string> rows;
  return rows;
}

/// "operation/format" of a full name such as "add/5.10/zelk/min_time:0.010/repeats:7".
inline std::string row_of(const std::string& name) {
  return name.substr(0, name.find('/', name.find('/') + 1));
}

/// The rows that were asked for; the others are not even prepared.
inline std::regex& row_filter() {
  static std::regex filter(".");
  return filter;
}

inline bool wanted(const std::string& name) { return std::regex_search(name, row_filter()); }

/// Registers a row that calls body(i), or body(i, j) on two operands, i and j below count, over and
/// over.
template <typename Setup, typename Body>
void add_row(const std::string& name, Setup setup, Body body) {
  if (!wanted(name)) {
    return;
  }
  row_order().push_back(row_of(name));
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    setup();
    Walk walk(count);
    for (auto _ : state) {
      walk.pass(body);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
  });
}

/// Keeps the least time of each row.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const auto rate = run.counters.find("items_per_second");
      if (run.run_type == Run::RT_Iteration && rate != run.counters.end()) {
        keep(run.benchmark_name(), 1e9 / rate->second.value);
      }
    }
  }

  void print() {
    const auto place = [](const auto& row) {
      return std::find(row_order().begin(), row_order().end(), row.first);
    };
    std::sort(rows.begin(), rows.end(),
              [&](const auto& a, const auto& b) { return place(a) < place(b); });
    std::printf("\n%-26s %9s   peer: its ns, and its time over ours\n", "row", "zelk ns");
    for (auto& [row, whos] : rows) {
      std::sort(whos.begin(), whos.end());
      const auto ours =
          std::find_if(whos.begin(), whos.end(), [](const auto& w) { return w.first == "zelk"; });
      if (ours == whos.end()) {
        continue;
      }
      std::printf("%-26s %9.2f", row.c_str(), ours->second);
      for (const auto& [who, ns] : whos) {
        if (who != "zelk") {
          std::printf("   %s %.2f x%.2f", who.c_str(), ns, ns / ours->second);
        }
      }
      std::printf("\n");
    }
  }

 private:
  void keep(const std::string& name, double ns) {
    const std::string row = row_of(name);
    const std::string who =
        name.substr(row.size() + 1, name.find('/', row.size() + 1) - row.size() - 1);
    auto at = std::find_if(rows.begin(), rows.end(), [&](const auto& r) { return r.first == row; });
    if (at == rows.end()) {
      at = rows.insert(rows.end(), {row, {}});
    }
    auto& whos = at->second;
    const auto known =
        std::find_if(whos.begin(), whos.end(), [&](const auto& w) { return w.first == who; });
    if (known == whos.end()) {
      whos.emplace_back(who, ns);
    } else {
      known->second = std::min(known->second, ns);
    }
  }

  std::vector<std::pair<std::string, std::vector<std::pair<std::string, double>>>> rows;
};

}  // namespace zelk_bench

#endif  // ZELK_BENCH_REPORT_H_
