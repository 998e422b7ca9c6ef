#include "bench/table.h"

#include <malloc.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <utility>

#include "bench/stopwatch.h"

namespace {

struct Row {
  std::string path;
  std::string wanted;
  Round round;
};

std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

class RowReporter : public benchmark::BenchmarkReporter {
 public:
  explicit RowReporter(const Row& row) : row_(row) {}

  bool ReportContext(const Context& /*context*/) override { return true; }

  /// All rounds come together, and their aggregates in a call of their own.
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<double> ratios;
    for (const Run& run : runs) {
      if (run.error_occurred) {
        print(run.error_message);
        return;
      }
      if (run.run_type == Run::RT_Iteration) {
        ratios.push_back(run.counters.at("ratio"));
      }
    }
    if (!ratios.empty()) {
      print(medianAndSpread(ratios));
    }
  }

 private:
  static std::string medianAndSpread(std::vector<double>& ratios) {
    std::sort(ratios.begin(), ratios.end());
    char text[64];
    std::snprintf(text, sizeof text, "%.2f (%.2f to %.2f)", ratios[ratios.size() / 2],
                  ratios.front(), ratios.back());
    return text;
  }

  void print(const std::string& result) const {
    std::printf("| %s | %s | %s |\n", row_.path.c_str(), result.c_str(), row_.wanted.c_str());
  }

  const Row& row_;
};

[[noreturn]] void run(const Row& row) {
  benchmark::RegisterBenchmark(row.path.c_str(), row.round)->UseManualTime();
  RowReporter reporter(row);
  benchmark::RunSpecifiedBenchmarks(&reporter, "all");
  std::exit(EXIT_SUCCESS);
}

bool runInChild(const Row& row) {
  const pid_t child = fork();
  if (child == 0) {
    run(row);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

cpu_set_t allowedProcessors() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  ::sched_getaffinity(0, sizeof processors, &processors);
  return processors;
}

}  // namespace

void addRow(const std::string& path, const std::string& wanted, Round round) {
  rows().push_back({path, wanted, std::move(round)});
}

void addAgentRow(const std::string& path, const std::string& wanted, Round round) {
  addRow(path + ", agent's allocator", wanted, [round = std::move(round)](benchmark::State& state) {
    mallopt(M_MMAP_THRESHOLD, 1024);
    mallopt(M_MXFAST, 0);
    round(state);
  });
}

bool useProcessors(benchmark::State& state, int count) {
  const cpu_set_t allowed = allowedProcessors();
  cpu_set_t chosen;
  CPU_ZERO(&chosen);
  for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&chosen) < count; ++i) {
    if (CPU_ISSET(i, &allowed)) {
      CPU_SET(i, &chosen);
    }
  }
  if (CPU_COUNT(&chosen) < count || ::sched_setaffinity(0, sizeof chosen, &chosen) != 0) {
    state.SkipWithError("too few processors");
    return false;
  }
  return true;
}

void reportCost(benchmark::State& state, std::vector<double>& ours, std::vector<double>& theirs) {
  const double our = medianOf(ours);
  const double their = medianOf(theirs);
  state.counters["ours_us"] = our * 1e6;
  state.counters["theirs_us"] = their * 1e6;
  state.counters["ratio"] = our / their;
}

void reportRate(benchmark::State& state, std::vector<double>& ours, std::vector<double>& theirs) {
  reportCost(state, ours, theirs);
  state.counters["ratio"] = 1 / state.counters["ratio"];
}

int runTable(int argc, char** argv) {
  // In front of the caller's, which count more.
  char repetitions[] = "--benchmark_repetitions=9";
  char minTime[] = "--benchmark_min_time=0.1";
  std::vector<char*> arguments{argv[0], repetitions, minTime};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return EXIT_FAILURE;
  }
  const std::regex filter(benchmark::GetBenchmarkFilter());
  bool done = true;
  for (const Row& row : rows()) {
    done = (!std::regex_search(row.path, filter) || runInChild(row)) && done;
  }
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
