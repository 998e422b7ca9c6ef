#include <ace/Log_Msg.h>
#include <benchmark/benchmark.h>
#include <qovpub/qov_long_socket.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/table_server.h"
#ifdef QOV_SNMPD
#include "bench/snmp_agent.h"
#endif

namespace {

using Clock = std::chrono::steady_clock;
using Message = TableServer::Message;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double medianOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

class Link : public CQOVLongSocket {
 public:
  explicit Link(std::uint16_t port) : CQOVLongSocket(ACE_INET_Addr(port, "127.0.0.1"), Limits()) {}
};

/// A row as of a table of network interfaces.
void fillRow(CTLVRecordV3& record, std::uint64_t key) {
  record.addUnsigned(4093, key);
  record.addString(1, "enp0s31f6").addBool(2, true).addOctets(3, "\x52\x54\x00\x12\x34\x56", 6);
  record.addUnsigned(4, 1500).addUnsigned(5, 1U << 30).addUnsigned(6, 1U << 29);
}

Message encoded(CT7QPackageV3& package) {
  unsigned char* bytes = nullptr;
  const unsigned int length = package.encode(bytes);
  Message message(bytes, bytes + length);
  delete[] bytes;
  return message;
}

Message row() {
  CT7QPackageV3 package;
  CTLVRecordV3& record = package.addRecord(1);
  fillRow(record, 1000);
  record.addEnum(MAX_TAG_VALUE, 0);
  return encoded(package);
}

Message endMark() {
  CT7QPackageV3 package;
  package.addRecord(1).addEnum(MAX_TAG_VALUE, 1);
  return encoded(package);
}

void check(unsigned int result) {
  if (result != 0) {
    std::fprintf(stderr, "link_bench: result %u\n", result);
    std::exit(1);
  }
}

cpu_set_t allowed() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  ::sched_getaffinity(0, sizeof processors, &processors);
  return processors;
}

/// Errors only in the log, and both sides on one processor or wherever they come to run. On one,
/// a change between two threads is part of each round trip, ours and theirs, which brings the ratio
/// nearer to 1. On several, the ratio also tells where the scheduler has put which thread, and
/// varies from run to run.
void prepare(bool onOneProcessor) {
  static const cpu_set_t all = allowed();
  cpu_set_t chosen = all;
  if (onOneProcessor) {
    CPU_ZERO(&chosen);
    CPU_SET(::sched_getcpu(), &chosen);
  }
  ::sched_setaffinity(0, sizeof chosen, &chosen);

  ACE_Log_Msg::instance()->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
}

/// Runs a benchmark in both ways.
void inBothWays(benchmark::internal::Benchmark* measured) {
  measured->ArgName("one_processor")->Arg(1)->Arg(0);
  measured->UseManualTime()->Unit(benchmark::kMillisecond);
}

void report(benchmark::State& state, std::vector<double>& ours, std::vector<double>& theirs) {
  const double our = medianOf(ours);
  const double their = medianOf(theirs);
  state.counters["ours_us"] = our * 1e6;
  state.counters["theirs_us"] = their * 1e6;
}

/// Appends the duration of each of some calls, and gives that of all.
template <class Call>
double sample(const Call& call, std::vector<double>& seconds) {
  constexpr int kBatch = 200;
  const auto start = Clock::now();
  for (int i = 0; i < kBatch; ++i) {
    const auto begin = Clock::now();
    call();
    seconds.push_back(secondsSince(begin));
  }
  return secondsSince(start);
}

/// Median of one exchange against that of one round trip of the same bytes by blocking calls.
/// Target: at most 1.2, on one processor.
void exchange(benchmark::State& state) {
  prepare(state.range(0) != 0);
  TableServer server({row()});
  RawClient raw(server.port());
  Link link(server.port());
  CT7QPackageV3 package;
  fillRow(package.addRecord(1), 1000);
  package[0].addEnum(MAX_TAG_VALUE, 0);
  const Message request = server.answers()[0];
  Message answer(request.size());
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    state.SetIterationTime(sample([&] { check(link.sendMsg(&package)); }, ours));
    sample([&] { raw.roundTrip(request, answer); }, theirs);
  }
  report(state, ours, theirs);
  state.counters["ratio"] = state.counters["ours_us"] / state.counters["theirs_us"];
}
BENCHMARK(exchange)->Apply(inBothWays);

// So few that most walks are not interrupted by what else the machine does.
constexpr std::size_t kRows = 50;

/// A table of kRows rows and the end mark.
std::vector<Message> table() {
  std::vector<Message> answers(kRows, row());
  answers.push_back(endMark());
  return answers;
}

/// Reads the whole table and returns the seconds that took.
double walkSeconds(CQOVLongSocket& link) {
  CT7QPackageV3 package;
  package.addRecord(1);
  const auto start = Clock::now();
  check(link.sendGetNextMsgV3(&package));
  const double seconds = secondsSince(start);
  check(package.count() == kRows + 1 ? 0 : 1);
  return seconds;
}

/// The same messages by blocking calls.
double rawSeconds(const RawClient& raw, std::vector<Message>& answers) {
  CT7QPackageV3 package;
  package.addRecord(1);
  const Message first = encoded(package);
  const auto start = Clock::now();
  const Message* request = &first;
  for (Message& answer : answers) {
    raw.roundTrip(*request, answer);
    request = &answer;
  }
  return secondsSince(start);
}

/// Rows that a walk reads in the time of one round trip of the same bytes by blocking calls.
/// Target: at least 0.8, on one processor.
void walk(benchmark::State& state) {
  prepare(state.range(0) != 0);
  TableServer server(table());
  RawClient raw(server.port());
  Link link(server.port());
  std::vector<Message> answers = server.answers();
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    const double seconds = walkSeconds(link);
    state.SetIterationTime(seconds);
    ours.push_back(seconds / kRows);
    theirs.push_back(rawSeconds(raw, answers) / (kRows + 1));
  }
  report(state, ours, theirs);
  state.counters["rows_per_s"] = 1e6 / state.counters["ours_us"];
  state.counters["rows_per_trip"] = state.counters["theirs_us"] / state.counters["ours_us"];
}
BENCHMARK(walk)->Apply(inBothWays);

#ifdef QOV_SNMPD
/// Rows per second of a walk against values per second of GETNEXT over a daemon that is installed.
void walkAgainstSnmp(benchmark::State& state) {
  prepare(true);
  const SnmpAgent agent;
  if (!agent.answers()) {
    state.SkipWithError("snmpd does not answer");
    return;
  }
  TableServer server(table());
  Link link(server.port());
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    const double seconds = walkSeconds(link);
    state.SetIterationTime(seconds);
    ours.push_back(seconds / kRows);
    const auto start = Clock::now();
    const int values = agent.walk();
    theirs.push_back(secondsSince(start) / values);
  }
  report(state, ours, theirs);
  state.counters["rows_per_s"] = 1e6 / state.counters["ours_us"];
  state.counters["snmp_per_s"] = 1e6 / state.counters["theirs_us"];
}
BENCHMARK(walkAgainstSnmp)->UseManualTime()->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
