// Prints metrics with figures and names that are awkward: metrics_sample openmetrics|prometheus
#include <cstdio>
#include <cstring>
#include <exception>

#include "modules/status/metrics.h"
#include "tests/support/this_process.h"

int main(int argc, char** argv) try {
  using namespace qov::status;
  const bool prometheus = argc > 1 && std::strcmp(argv[1], "prometheus") == 0;
  qov::test::thisProcess();
  std::vector<QOVModuleStats> modules(2);
  modules[0].name_ = "quote \" backslash \\ line\nnext \xFF\x1B[m";
  modules[1].moduleId_ = 255;
  modules[1].name_ = "busy";
  modules[1].in_ = ~std::uint64_t{0};
  modules[1].handlingTimes_.fill(3);
  modules[1].handlingSum_ = std::chrono::hours(100000);
  const std::vector<QOVLinkStats> links{{"same:1", true, std::chrono::seconds(1), 2, ""},
                                        {"same:1", false, {}, 0, "why"}};
  const std::string text =
      metricsText(prometheus ? MetricsForm::kPrometheus : MetricsForm::kOpenMetrics, startNow(), {},
                  modules, links);
  std::fputs(text.c_str(), stdout);
  return 0;
} catch (const std::exception& e) {
  std::fputs(e.what(), stderr);
  return 1;
}
