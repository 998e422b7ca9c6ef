// The link to a management endpoint, against round trips of the same bytes by blocking calls. Both
// sides bound their waits, number their requests and check the number of the answer.
#include <ace/Log_Msg.h>
#include <qovpub/qov_long_socket.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/stopwatch.h"
#include "bench/table.h"
#include "bench/table_server.h"
#ifdef QOV_BENCH_SNMP
#include "bench/snmp_agent.h"
#endif

namespace {

using Message = TableServer::Message;

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

Message tableRow() {
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

/// What the other side of an exchange does with the content of its messages.
enum class Content { kIsBytes, kIsCoded };

/// Median of one exchange to that of one round trip of the same bytes.
void exchange(benchmark::State& state, int processors, Content content) {
  if (!useProcessors(state, processors)) {
    return;
  }
  TableServer server({tableRow()});
  RawClient raw(server.port());
  Link link(server.port());
  CT7QPackageV3 package;
  fillRow(package.addRecord(1), 1000);
  package[0].addEnum(MAX_TAG_VALUE, 0);
  CT7QPackageV3 theirPackage(package);
  Message request = server.answers()[0];
  Message answer(request.size());
  const auto roundTrip = [&] {
    if (content == Content::kIsCoded) {
      theirPackage.encode(request.data(), static_cast<unsigned int>(request.size()));
      theirPackage.clear();
    }
    raw.roundTrip(request, answer);
    if (content == Content::kIsCoded) {
      theirPackage.decode(answer.data(), static_cast<unsigned int>(answer.size()));
    }
  };
  constexpr int kBatch = 200;
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    state.SetIterationTime(sample([&] { check(link.sendMsg(&package)); }, kBatch, ours));
    sample(roundTrip, kBatch, theirs);
  }
  reportCost(state, ours, theirs);
}

// So few that most walks are not interrupted by what else the machine does.
constexpr std::size_t kRows = 50;

/// A table of kRows rows and the end mark.
std::vector<Message> table() {
  std::vector<Message> answers(kRows, tableRow());
  answers.push_back(endMark());
  return answers;
}

/// Reads the whole table and returns the seconds that took.
double walkSeconds(CQOVLongSocket& link) {
  CT7QPackageV3 package;
  package.addRecord(1);
  const Stopwatch watch;
  check(link.sendGetNextMsgV3(&package));
  const double seconds = watch.seconds();
  check(package.count() == kRows + 1 ? 0 : 1);
  return seconds;
}

/// The same messages by blocking calls.
double rawSeconds(RawClient& raw, std::vector<Message>& answers) {
  CT7QPackageV3 package;
  package.addRecord(1);
  Message first = encoded(package);
  const Stopwatch watch;
  Message* request = &first;
  for (Message& answer : answers) {
    raw.roundTrip(*request, answer);
    request = &answer;
  }
  return watch.seconds();
}

/// Rows that a walk reads in the time of one round trip.
void walk(benchmark::State& state, int processors) {
  if (!useProcessors(state, processors)) {
    return;
  }
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
  reportRate(state, ours, theirs);
}

#ifdef QOV_BENCH_SNMP
/// Rows that a walk reads while a daemon that is installed answers GETNEXT for one value.
void walkAgainstSnmp(benchmark::State& state) {
  if (!useProcessors(state, 1)) {
    return;
  }
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
    const Stopwatch watch;
    const int values = agent.walk();
    theirs.push_back(watch.seconds() / values);
  }
  reportRate(state, ours, theirs);
}
#endif

}  // namespace

int main(int argc, char** argv) {
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  row("exchange, against a raw round trip, one CPU", "<= 1.03", exchange, 1, Content::kIsBytes);
  row("exchange, against a raw round trip, two CPUs", "", exchange, 2, Content::kIsBytes);
  row("exchange, against a raw round trip and the codec, one CPU", "", exchange, 1,
      Content::kIsCoded);
  row("walk, rows per raw trip, one CPU", ">= 0.92", walk, 1);
  row("walk, rows per raw trip, two CPUs", "", walk, 2);
#ifdef QOV_BENCH_SNMP
  row("walk, rows per GETNEXT, one CPU", "", walkAgainstSnmp);
#endif
  return runTable(argc, argv);
}
