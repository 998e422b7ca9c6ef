#include <signal.h>

#include <exception>
#include <iostream>

#include "tools/common/standard_streams.h"
#include "tools/qov-endpoint/live_tables.h"
#include "tools/qov-endpoint/options.h"
#include "tools/qov-endpoint/server.h"
#include "tools/qov-endpoint/standard_error.h"
#include "tools/qov-endpoint/table_file.h"

namespace {

using namespace qov::endpoint;

Tables makeTables(const Options& options) {
  Tables tables;
  if (!options.tables.empty()) {
    loadTables(options.tables, tables);
    return tables;
  }
  tables.addLive(kInterfaces, readInterfaces);
  tables.addLive(kMounts, readMounts);
  tables.addLive(kProcesses, readProcesses);
  return tables;
}

Scenario makeScenario(const Options& options) {
  Scenario scenario;
  if (!options.scenario.empty()) {
    scenario.load(options.scenario);
  }
  for (const std::string& fault : options.faults) {
    scenario.addOption(fault);
  }
  return scenario;
}

int serve(const Options& options, Tables& tables, Scenario& scenario) {
  const Log log(options.level);
  std::unique_ptr<CountsFile> counts = options.counts.empty()
                                           ? std::make_unique<CountsFile>()
                                           : std::make_unique<CountsFile>(options.counts);
  Server server(options.address, tables, scenario, *counts, log);
  std::cout << "listening on " << textOf(server.address()) << std::endl;
  server.run(options.grace);
  return kStopped;
}

/// Runs `body`; what it throws becomes a line on standard error and the exit status.
template <class Body>
int runTelling(int statusOfFailure, Body body) {
  try {
    return body();
  } catch (const std::exception& failure) {
    complain(failure.what());
    return statusOfFailure;
  }
}

int run(int argc, char** argv) {
  int exitStatus = kStopped;
  const std::optional<Options> options = readOptions(argc, argv, exitStatus);
  if (!options) {
    return exitStatus;
  }
  // The codec tells through ACE what it refuses.
  const AceLog codec(options->level != Log::Level::kQuiet);
  Tables tables = makeTables(*options);
  Scenario scenario = makeScenario(*options);
  return runTelling(kFailed, [&] { return serve(*options, tables, scenario); });
}

}  // namespace

int main(int argc, char** argv) {
  qov::tools::keepStandardStreams();
  // A reader of our output that goes away is no reason to end.
  ::signal(SIGPIPE, SIG_IGN);
  return runTelling(kUsage, [&] { return run(argc, argv); });
}
