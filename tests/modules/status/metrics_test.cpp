// What metrics tell. metrics_form sees to the form as a whole.
#include "modules/status/metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_version.h>
#include <unistd.h>

#include "tests/support/this_process.h"

namespace qov::status {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class StatusMetrics : public ::testing::Test {
 protected:
  StatusMetrics() {
    test::thisProcess();
    CProcInfo::getProcName(process_);
    modules_[0].moduleId_ = 7;
    modules_[0].name_ = "m";
  }

  std::string text(MetricsForm form = MetricsForm::kOpenMetrics) {
    return metricsText(form, startNow(), clients_, modules_, links_);
  }
  /// A line of the module's, or with other labels.
  std::string sample(const std::string& name, const std::string& value,
                     const std::string& more = "",
                     const std::string& labels = R"(module="m",module_id="7")") {
    return "\n" + name + "{process=\"" + process_ + "\"" + (labels.empty() ? "" : "," + labels) +
           more + "} " + value + "\n";
  }
  std::string bucket(const std::string& border, int count) {
    return sample("qov_module_handling_seconds_bucket", std::to_string(count),
                  ",le=\"" + border + "\"");
  }

  std::string process_;
  std::vector<QOVModuleStats> modules_{1};
  std::vector<QOVLinkStats> links_;
  ClientCounts clients_;
};

TEST_F(StatusMetrics, TellWhichProcessItIs) {
  EXPECT_THAT(text(), HasSubstr("# TYPE qov_agent info\nqov_agent_info{process=\"" + process_ +
                                "\",version=\"" + QOV_Version() + "\",number=\"7\",pid=\"" +
                                std::to_string(::getpid()) + "\"} 1\n"));
}

TEST_F(StatusMetrics, CountersAndTheInfoAreDescribedAsTheirReaderTakesThem) {
  const std::string prometheus = text(MetricsForm::kPrometheus);
  EXPECT_THAT(prometheus, HasSubstr("# TYPE qov_agent_info gauge\nqov_agent_info{"));
  EXPECT_THAT(prometheus, HasSubstr("# TYPE qov_module_passed_on_messages_total counter\n"));
  EXPECT_THAT(text(), HasSubstr("# TYPE qov_module_passed_on_messages counter\n"));
  EXPECT_THAT(prometheus, HasSubstr(sample("qov_module_passed_on_messages_total", "0")));
  EXPECT_THAT(text(), HasSubstr(sample("qov_module_passed_on_messages_total", "0")));
}

TEST_F(StatusMetrics, TellWhatAModuleCounts) {
  QOVModuleStats& module = modules_[0];
  module.in_ = 18446744073709551615u;
  module.refused_ = 3;
  module.dropped_[static_cast<std::size_t>(QOVDropReason::kNoRoom)] = 4;
  module.busy_ = 2;
  module.oldestPending_ = std::chrono::milliseconds(61250);
  const std::string all = text();
  for (const std::string& line :
       {sample("qov_module_delivered_messages_total", "18446744073709551615"),
        sample("qov_module_refused_messages_total", "3"),
        sample("qov_module_dropped_messages_total", "4", ",reason=\"noRoom\""),
        sample("qov_module_dropped_messages_total", "0", ",reason=\"stopped\""),
        sample("qov_module_room_bytes", "16384"), sample("qov_module_busy_workers", "2"),
        sample("qov_module_oldest_pending_seconds", "61.25"),
        sample("qov_module_longest_handling_seconds", "0.0")}) {
    EXPECT_THAT(all, HasSubstr(line));
  }
}

TEST_F(StatusMetrics, SortTimesOfHandlingByBorders) {
  QOVModuleStats& module = modules_[0];
  module.handlingTimes_[0] = 1;   // nothing
  module.handlingTimes_[10] = 2;  // just below 1024 ns
  module.handlingTimes_[11] = 4;
  module.handlingTimes_[36] = 8;
  module.handlingTimes_[37] = 16;  // beyond the last border
  module.handlingSum_ = std::chrono::nanoseconds(1500000001);
  const std::string all = text();
  for (const std::string& line :
       {bucket("0.000001024", 3), bucket("0.000004096", 7), bucket("17.179869184", 7),
        bucket("68.719476736", 15), bucket("+Inf", 31),
        sample("qov_module_handling_seconds_count", "31"),
        sample("qov_module_handling_seconds_sum", "1.500000001")}) {
    EXPECT_THAT(all, HasSubstr(line));
  }
}

TEST_F(StatusMetrics, KeepLinksToOneEndpointApart) {
  links_ = {{"e:1", true, std::chrono::seconds(2), 1, ""}, {"e:1", false, {}, 5, "refused"}};
  const std::string all = text();
  const auto link = [&](const std::string& name, const std::string& value, const char* place) {
    return sample(name, value, "", std::string("link=\"") + place + R"(",endpoint="e:1")");
  };
  for (const std::string& line :
       {link("qov_link_connected", "1", "1"), link("qov_link_connected", "0", "2"),
        link("qov_link_state_age_seconds", "2.0", "1"),
        link("qov_link_connections_total", "5", "2")}) {
    EXPECT_THAT(all, HasSubstr(line));
  }
}

TEST_F(StatusMetrics, TellOfTheClients) {
  clients_.accepted = 5;
  clients_.tooSlow = 2;
  EXPECT_THAT(text(), HasSubstr(sample("qov_status_accepted_connections_total", "5", "", "")));
  EXPECT_THAT(text(), HasSubstr(sample("qov_status_ended_connections_total", "2", "",
                                       "reason=\"tooSlow\"")));
}

TEST_F(StatusMetrics, NamesAreWrittenSoThatTheyCanBeRead) {
  modules_[0].name_ = "a\\b\"c\nd\te\x7F\xC3\xA9";
  EXPECT_THAT(text(), HasSubstr(R"(,module="a\\b\"c\nd?e???",module_id="7"})"));
}

TEST_F(StatusMetrics, TimesAreSecondsWithoutZerosBehind) {
  using namespace std::chrono_literals;
  EXPECT_EQ(valueOf(0ns), "0.0");
  EXPECT_EQ(valueOf(1ns), "0.000000001");
  EXPECT_EQ(valueOf(999999999ns), "0.999999999");
  EXPECT_EQ(valueOf(1s), "1.0");
  EXPECT_EQ(valueOf(1700000000s + 20ms), "1700000000.02");
}

TEST_F(StatusMetrics, OfNoModuleAndNoLinkAreDescribedAllTheSame) {
  modules_.clear();
  EXPECT_THAT(text(), HasSubstr("# TYPE qov_module_workers gauge\n# HELP"));
  EXPECT_THAT(text(), Not(HasSubstr("qov_module_workers{")));
}

}  // namespace
}  // namespace qov::status
