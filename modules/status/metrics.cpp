#include "modules/status/metrics.h"

#include <qovpub/qov_utility.h>
#include <qovpub/qov_version.h>
#include <unistd.h>

#include <array>

namespace qov::status {
namespace {

using std::chrono::nanoseconds;
using Labels = MetricsWriter::Labels;

constexpr MetricType kGauge = MetricType::kGauge;
constexpr MetricType kCounter = MetricType::kCounter;

/// One of which each module or link has a sample.
template <class Stats>
struct Metric {
  MetricFamily family;
  std::string (*value)(const Stats&);
};

using Module = QOVModuleStats;
const std::array<Metric<Module>, 15> kOfModules{{
    {{"qov_module_delivered_messages", kCounter, "messages", "Messages delivered in the module."},
     [](const Module& of) { return valueOf(of.in_); }},
    {{"qov_module_passed_on_messages", kCounter, "messages",
      "Messages passed on to another module."},
     [](const Module& of) { return valueOf(of.out_); }},
    {{"qov_module_refused_messages", kCounter, "messages",
      "Messages refused for want of room; their senders were told."},
     [](const Module& of) { return valueOf(of.refused_); }},
    {{"qov_module_timed_out_requests", kCounter, "requests",
      "Requests of the module that got no response in time."},
     [](const Module& of) { return valueOf(of.timedOut_); }},
    {{"qov_module_waiting_messages", kGauge, "messages", "Messages that wait in the module."},
     [](const Module& of) { return valueOf(of.waiting_); }},
    {{"qov_module_highest_waiting_messages", kGauge, "messages",
      "The most messages that have waited at once."},
     [](const Module& of) { return valueOf(of.highestWaiting_); }},
    {{"qov_module_waiting_bytes", kGauge, "bytes", "Room taken by messages that wait."},
     [](const Module& of) { return valueOf(of.waitingBytes_); }},
    {{"qov_module_highest_waiting_bytes", kGauge, "bytes",
      "The most room taken by messages that waited at once."},
     [](const Module& of) { return valueOf(of.highestWaitingBytes_); }},
    {{"qov_module_room_bytes", kGauge, "bytes", "From so many waiting bytes on it takes no more."},
     [](const Module&) { return valueOf(Module::kRoomBytes); }},
    {{"qov_module_workers", kGauge, "", "Workers in the pool."},
     [](const Module& of) { return valueOf(of.workers_); }},
    {{"qov_module_busy_workers", kGauge, "", "Workers of the pool that are not idle."},
     [](const Module& of) { return valueOf(of.busy_); }},
    {{"qov_module_pending_requests", kGauge, "requests",
      "Requests of the module that wait for their responses."},
     [](const Module& of) { return valueOf(of.pending_); }},
    {{"qov_module_asked_later_requests", kGauge, "requests",
      "Requests of askLater whose continuations have not begun."},
     [](const Module& of) { return valueOf(of.askedLater_); }},
    {{"qov_module_oldest_pending_seconds", kGauge, "seconds",
      "How long the oldest pending request waits; 0 for none."},
     [](const Module& of) { return valueOf(of.oldestPending_); }},
    {{"qov_module_longest_handling_seconds", kGauge, "seconds",
      "The longest that a handler has run, of those that have ended."},
     [](const Module& of) { return valueOf(of.longestHandling_); }},
}};

const MetricFamily kDropped{"qov_module_dropped_messages", kCounter, "messages",
                            "Messages dropped that the module had taken over, by reason."};
const MetricFamily kHandling{"qov_module_handling_seconds", MetricType::kHistogram, "seconds",
                             "How long handlers took, with all that they waited for."};

using Link = QOVLinkStats;
const std::array<Metric<Link>, 3> kOfLinks{{
    {{"qov_link_connected", kGauge, "", "Whether the link is connected: 1 or 0."},
     [](const Link& of) { return valueOf(of.connected_ ? 1 : 0); }},
    {{"qov_link_state_age_seconds", kGauge, "seconds", "For how long it has been so."},
     [](const Link& of) { return valueOf(of.since_); }},
    {{"qov_link_connections", kCounter, "connections", "Connections made."},
     [](const Link& of) { return valueOf(of.connections_); }},
}};

void writeAgent(MetricsWriter& to, const Start& start) {
  to.begin({"qov_agent", MetricType::kInfo, "", "Which process this is."});
  to.sample({{"version", QOV_Version()},
             {"number", std::to_string(QOV_Utility::getProcPID())},
             {"pid", std::to_string(::getpid())}},
            "1");
  to.begin({"qov_agent_start_time_seconds", kGauge, "seconds",
            "When the agent loaded its status module, since 1970."});
  to.sample({}, valueOf(std::chrono::seconds(start.time)));
  to.begin({"qov_agent_uptime_seconds", kGauge, "seconds",
            "How long ago that was; stands still when nobody writes the metrics any more."});
  to.sample({}, valueOf(std::chrono::steady_clock::now() - start.instant));
}

void writeClients(MetricsWriter& to, const ClientCounts& clients) {
  to.begin({"qov_status_accepted_connections", kCounter, "connections",
            "Connections to the status socket that were served."});
  to.sample({}, valueOf(clients.accepted));
  to.begin({"qov_status_ended_connections", kCounter, "connections",
            "Connections that were not served, or not to their ends, by reason."});
  to.sample({{"reason", "refused"}}, valueOf(clients.refused));
  to.sample({{"reason", "tooMany"}}, valueOf(clients.tooMany));
  to.sample({{"reason", "malformed"}}, valueOf(clients.malformed));
  to.sample({{"reason", "tooSlow"}}, valueOf(clients.tooSlow));
  to.sample({{"reason", "cutOff"}}, valueOf(clients.cutOff));
}

void writeDropped(MetricsWriter& to, const Module& module, const std::string& id) {
  for (std::size_t i = 0; i < kDropReasons.size(); ++i) {
    to.sample({{"module", module.name_}, {"module_id", id}, {"reason", kDropReasons[i]}},
              valueOf(module.dropped_[i]));
  }
}

/// The borders are a power of two of nanoseconds each, about 1 us to 69 s, four times the one
/// before. What took just as long as a border counts above it.
void writeHandling(MetricsWriter& to, const Module& module, const std::string& id) {
  constexpr std::size_t kFirst = 10;
  constexpr std::size_t kLast = 36;
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < module.handlingTimes_.size(); ++i) {
    count += module.handlingTimes_[i];
    if (i >= kFirst && i <= kLast && i % 2 == 0) {
      const std::string border = valueOf(nanoseconds(std::int64_t{1} << i));
      to.sample("_bucket", {{"module", module.name_}, {"module_id", id}, {"le", border}},
                valueOf(count));
    }
  }
  to.sample("_bucket", {{"module", module.name_}, {"module_id", id}, {"le", "+Inf"}},
            valueOf(count));
  to.sample("_count", {{"module", module.name_}, {"module_id", id}}, valueOf(count));
  to.sample("_sum", {{"module", module.name_}, {"module_id", id}}, valueOf(module.handlingSum_));
}

void writeModules(MetricsWriter& to, const std::vector<Module>& modules) {
  for (const auto& metric : kOfModules) {
    to.begin(metric.family);
    for (const Module& module : modules) {
      to.sample({{"module", module.name_}, {"module_id", std::to_string(module.moduleId_)}},
                metric.value(module));
    }
  }
  to.begin(kDropped);
  for (const Module& module : modules) {
    writeDropped(to, module, std::to_string(module.moduleId_));
  }
  to.begin(kHandling);
  for (const Module& module : modules) {
    writeHandling(to, module, std::to_string(module.moduleId_));
  }
}

/// Several links may have one endpoint, so that each has its place as a label, too, from 1.
void writeLinks(MetricsWriter& to, const std::vector<Link>& links) {
  for (const auto& metric : kOfLinks) {
    to.begin(metric.family);
    for (std::size_t i = 0; i < links.size(); ++i) {
      to.sample({{"link", std::to_string(i + 1)}, {"endpoint", links[i].endpoint_}},
                metric.value(links[i]));
    }
  }
}

}  // namespace

std::string metricsText(MetricsForm form, const Start& start, const ClientCounts& clients,
                        const std::vector<QOVModuleStats>& modules,
                        const std::vector<QOVLinkStats>& links) {
  MetricsWriter writer(form, QOV_Utility::getProcessName());
  writeAgent(writer, start);
  writeModules(writer, modules);
  writeLinks(writer, links);
  writeClients(writer, clients);
  return writer.finish();
}

Json::Value metricsDocument(const Start& start, const ClientCounts& clients) {
  Json::Value document(Json::objectValue);
  document["metrics"] = metricsText(MetricsForm::kOpenMetrics, start, clients);
  return document;
}

}  // namespace qov::status
