// Fleets of light agents in one process, each with what the module qovmqtt is made of, at a broker
// of their own, against as many bare clients of libmosquitto.
//
//   fleet_bench [agents]...
//
// The program prints rows as bench/table does; README.md says more.
#include <ace/Log_Msg.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/fleet_clients.h"
#include "bench/stopwatch.h"
#include "tests/support/agent_root.h"
#include "tests/support/answering_modules.h"
#include "tests/support/mqtt_broker.h"

namespace {

using Clients = std::vector<std::unique_ptr<FleetClient>>;
using Make = std::function<std::unique_ptr<FleetClient>(Fleet&, int node)>;

bool isShort() {
  return std::getenv("QOV_BENCH_SHORT") != nullptr;
}

/// As a module's event of one record looks in JSON.
const std::string kEvent =
    R"({"head":{"version":3,"type":3,"sn":1,"spid":7,"smid":40,"rpid":7,"rmid":251,"opc":4097},)"
    R"("records":[{"cmd":1,"cells":[{"tag":1,"type":"unsigned","value":4711},)"
    R"({"tag":2,"type":"string","value":"enp0s31f6"}]}]})";
const std::string kRequest = R"({"head":{"type":1,"opc":1},"records":[]})";

void printRow(const std::string& what, std::vector<double> rounds, const char* wanted = "") {
  std::sort(rounds.begin(), rounds.end());
  std::printf("| %s | %.3g (%.3g to %.3g) | %s |\n", what.c_str(), rounds[rounds.size() / 2],
              rounds.front(), rounds.back(), wanted);
  std::fflush(stdout);
}

// Events on their way: so few that none is dropped, so many that nobody runs dry. Storing takes
// them in batches.
constexpr std::uint64_t kWindow = 1000;
constexpr std::uint64_t kStoredWindow = 8000;

/// Of bare clients with libmosquitto's own threads: each has three descriptors, and those threads
/// know 1024.
constexpr int kMostOwnThreads = 300;

constexpr double kMicro = 1e6;

/// Of what this process has in memory.
double kilobytes() {
  double pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  constexpr double kKilobyte = 1024;
  return pages * static_cast<double>(::sysconf(_SC_PAGESIZE)) / kKilobyte;
}

/// How events went.
struct Speed {
  double perSecond;
  double microseconds;  ///< of the processors, for each, without the broker's
};

/// A fleet that has come online.
class RunningFleet {
 public:
  RunningFleet(const std::string& name, int port, int size, const Make& make) {
    fleet_.name = name;
    fleet_.port = port;
    const double before = kilobytes();
    const Stopwatch watch;
    for (int node = 1; node <= size; ++node) {
      clients_.push_back(make(fleet_, node));
    }
    fleet_.online.waitFor(clients_.size());
    seconds_ = watch.seconds();
    kilobytesEach_ = (kilobytes() - before) / size;
  }

  /// From the first client's start on.
  double secondsUntilOnline() const { return seconds_; }
  double kilobytesEach() const { return kilobytesEach_; }
  const Fleet& fleet() const { return fleet_; }

  /// Each client by turns sends one, until there are `events`, and the broker has taken all.
  Speed speedOf(int events, std::uint64_t window) {
    window = std::max<std::uint64_t>(window, 16 * clients_.size());
    const std::uint64_t before = fleet_.acknowledged.count();
    const Stopwatch watch;
    const Stopwatch processors(CLOCK_PROCESS_CPUTIME_ID);
    for (int i = 0; i < events; ++i) {
      if (sent_ - before >= window && fleet_.acknowledged.count() + window <= sent_) {
        fleet_.acknowledged.waitFor(sent_ - window / 2);
      }
      clients_[sent_++ % clients_.size()]->publish(kEvent);
    }
    fleet_.acknowledged.waitFor(sent_);
    return {events / watch.seconds(), kMicro * processors.seconds() / events};
  }

  /// Of one request at a time, to each client by turns.
  double secondsOfRequest(Asker& asker, int requests) const {
    std::vector<double> seconds;
    for (int i = 0; i < requests; ++i) {
      const int node = 1 + i % static_cast<int>(clients_.size());
      seconds.push_back(asker.ask(fleet_, node, kRequest));
    }
    return medianOf(seconds);
  }

 private:
  Fleet fleet_;
  Clients clients_;
  std::uint64_t sent_ = 0;
  double seconds_ = 0;
  double kilobytesEach_ = 0;
};

/// The rounds of one fleet's events.
class Rounds {
 public:
  explicit Rounds(std::string title) : title_(std::move(title)) {}

  void add(const Speed& speed) {
    perSecond_.push_back(speed.perSecond);
    microseconds_.push_back(speed.microseconds);
  }
  void print() const {
    printRow(title_ + ": events per second", perSecond_);
    printRow(title_ + ": microseconds of the processors for an event", microseconds_);
  }
  /// Round by round.
  void printAgainst(const Rounds& bare, const std::string& bareTitle, const char* wanted) const {
    std::vector<double> ratios;
    std::vector<double> costs;
    for (std::size_t i = 0; i < perSecond_.size(); ++i) {
      ratios.push_back(perSecond_[i] / bare.perSecond_[i]);
      costs.push_back(microseconds_[i] / bare.microseconds_[i]);
    }
    printRow(title_ + ": events per second, against " + bareTitle, ratios, wanted);
    printRow(title_ + ": processors' time, against " + bareTitle, costs);
  }

 private:
  const std::string title_;
  std::vector<double> perSecond_;
  std::vector<double> microseconds_;
};

/// All that is measured with fleets of one size.
class Measurement {
 public:
  explicit Measurement(int size)
      : size_(size),
        bareTitle_(size > kMostOwnThreads ? "bare clients with poll()" : "bare clients"),
        title_("fleet of " + std::to_string(size) + ": "),
        rounds_(isShort() ? 1 : 9),
        events_(isShort() ? 10 * size : std::max(20000, 20 * size)),
        requests_(isShort() ? 2 : 200) {
    root_.writeConfig(5);
    ::setenv("QOV_ROOT", root_.path().c_str(), 1);
    ACE_Log_Msg::instance()->priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
    modules_ = std::make_unique<AnsweringModules>(root_);
    task_ = std::make_unique<CQOV_Task>(modules_->first());
  }

  void run() {
    measureRunning();
    measureStarts();
  }

 private:
  std::string outbox(int node) const {
    return (root_.path() / "data" / (std::to_string(node) + ".outbox")).string();
  }

  Make makeBare() const {
    return [polls = size_ > kMostOwnThreads](Fleet& fleet, int node) {
      return makeBareClient(fleet, node, polls);
    };
  }

  void measureRunning() {
    Asker asker(broker_.port());
    RunningFleet bare("bare", broker_.port(), size_, makeBare());
    RunningFleet agents("agent", broker_.port(), size_, [this](Fleet& fleet, int node) {
      return makeAgent(fleet, node, "", task_.get());
    });
    RunningFleet stored("stored", broker_.port(), size_, [this](Fleet& fleet, int node) {
      return makeAgent(fleet, node, outbox(node), nullptr);
    });
    const double kilobytesBefore = kilobytes();
    measureEvents(bare, agents, stored);
    printRow(title_ + "KiB of memory of a bare client", {bare.kilobytesEach()});
    printRow(title_ + "KiB of memory of an agent", {agents.kilobytesEach()});
    printRow(title_ + "KiB of memory of an agent with an outbox", {stored.kilobytesEach()});
    printRow(title_ + "KiB more of the three together after all events",
             {(kilobytes() - kilobytesBefore) / size_});
    measureRequests(asker, bare, agents);
  }

  void measureStarts() {
    std::vector<double> ours;
    std::vector<double> theirs;
    std::vector<double> ratios;
    for (int i = 0; i < std::min(rounds_, 5); ++i) {
      theirs.push_back(
          RunningFleet("bare", broker_.port(), size_, makeBare()).secondsUntilOnline());
      ours.push_back(RunningFleet("agent", broker_.port(), size_, [](Fleet& fleet, int node) {
                       return makeAgent(fleet, node, "", nullptr);
                     }).secondsUntilOnline());
      ratios.push_back(ours.back() / theirs.back());
    }
    printRow(title_ + "seconds until all are online", ours);
    printRow(title_ + "the same of " + bareTitle_, theirs);
    printRow(title_ + "until all are online, against " + bareTitle_, ratios);
  }

  void measureEvents(RunningFleet& bare, RunningFleet& agents, RunningFleet& stored) const {
    Rounds theirs(title_ + bareTitle_);
    Rounds without(title_ + "without outbox");
    Rounds with(title_ + "with outbox");
    for (int i = 0; i < rounds_; ++i) {
      theirs.add(bare.speedOf(events_, kWindow));
      without.add(agents.speedOf(events_, kWindow));
      with.add(stored.speedOf(events_, kStoredWindow));
    }
    for (const Rounds* const rounds : {&theirs, &without, &with}) {
      rounds->print();
    }
    without.printAgainst(theirs, bareTitle_, ">= 0.9");
    with.printAgainst(theirs, bareTitle_, ">= 0.6");
  }

  void measureRequests(Asker& asker, const RunningFleet& bare, const RunningFleet& agents) const {
    agents.secondsOfRequest(asker, size_);
    bare.secondsOfRequest(asker, size_);
    std::vector<double> theirs;
    std::vector<double> ours;
    std::vector<double> ratios;
    for (int i = 0; i < rounds_; ++i) {
      theirs.push_back(kMicro * bare.secondsOfRequest(asker, requests_));
      ours.push_back(kMicro * agents.secondsOfRequest(asker, requests_));
      ratios.push_back(ours.back() / theirs.back());
    }
    printRow(title_ + "microseconds of a request", ours);
    printRow(title_ + "microseconds of a bare request", theirs);
    printRow(title_ + "request, against a bare one", ratios);
  }

  const int size_;
  const std::string bareTitle_;
  const std::string title_;
  const int rounds_;
  const int events_;
  const int requests_;
  const AgentRoot root_{std::filesystem::read_symlink("/proc/self/exe").stem()};
  // Without it each answer waits for a delayed acknowledgement of TCP, 40 ms, ours and theirs.
  const qov::test::MqttBroker broker_{qov::test::MqttBroker::Security::kNone,
                                      "set_tcp_nodelay true\n"};
  std::unique_ptr<AnsweringModules> modules_;
  std::unique_ptr<CQOV_Task> task_;
};

/// In a process of its own: the memory that one size leaves behind does not count for the next.
bool measureInChild(int size) {
  const pid_t child = ::fork();
  if (child == 0) {
    Measurement(size).run();
    std::exit(EXIT_SUCCESS);
  }
  int status = 0;
  return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

/// For the broker, too, which has this limit from here.
void allowManyFiles() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
  if (const std::string why = qov::test::MqttBroker::whyNot(); !why.empty()) {
    std::printf("| fleets | %s | |\n", why.c_str());
    return EXIT_SUCCESS;
  }
  allowManyFiles();
  std::vector<int> sizes;
  for (int i = 1; i < argc; ++i) {
    sizes.push_back(std::atoi(argv[i]));
    if (sizes.back() <= 0) {
      std::fprintf(stderr, "fleet_bench [agents]...\n");
      return EXIT_FAILURE;
    }
  }
  if (sizes.empty()) {
    sizes = {1, 10, 100, 1000};
  }
  bool done = true;
  for (const int size : sizes) {
    done = measureInChild(size) && done;
  }
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
