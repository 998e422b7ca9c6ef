#include "bench/table.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "bench/stopwatch.h"

namespace {

using Run = benchmark::BenchmarkReporter::Run;

class TableReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

  /// All rounds of one row come together, and their aggregates in a call of their own.
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<double> ratios;
    for (const Run& run : runs) {
      if (run.error_occurred) {
        print(run, run.error_message);
        return;
      }
      if (run.run_type == Run::RT_Iteration) {
        ratios.push_back(run.counters.at("ratio"));
      }
    }
    if (!ratios.empty()) {
      print(runs.front(), medianAndSpread(ratios));
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

  static void print(const Run& run, const std::string& result) {
    std::printf("| %s | %s | %s |\n", run.run_name.function_name.c_str(), result.c_str(),
                run.report_label.c_str());
    std::fflush(stdout);
  }
};

}  // namespace

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
  char minTime[] = "--benchmark_min_time=0.2";
  std::vector<char*> arguments{argv[0], repetitions, minTime};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return EXIT_FAILURE;
  }
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return EXIT_SUCCESS;
}

int runTableWithBothAllocators(int argc, char** argv, void (*rows)(const std::string& behindPath)) {
  // The allocator's settings cannot be taken back.
  const pid_t child = fork();
  if (child == 0) {
    rows("");
    return runTable(argc, argv);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
    return EXIT_FAILURE;
  }
  mallopt(M_MMAP_THRESHOLD, 1024);
  mallopt(M_MXFAST, 0);
  rows(", agent's allocator");
  return runTable(argc, argv);
}
