// "qovctl agent top" in a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "tests/modules/status/scripted_agent.h"
#include "tests/modules/status/tmux.h"
#include "tests/support/process_end.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// The second module's name holds what a terminal would act on.
constexpr const char* kModules = R"([
    {"id": 10, "name": "inventory", "state": "idle", "queue": {"blocks": 0}, "workers": 3,
     "busy": 0, "dropped": {}, "timedOut": 0, "pending": {"count": 0}, "handled": {"count": %}},
    {"id": 20, "name": "coll\u00e9ct\u001b[31m", "state": "busy", "queue": {"blocks": 12},
     "workers": 1, "busy": 1, "dropped": {"noRoom": 3}, "timedOut": 1,
     "pending": {"count": 1, "oldest": 61}, "handled": {"count": 7}}])";

constexpr const char* kPending = R"({"modules": [], "circles": [],
    "requests": [{"module": 20, "operation": 7, "receiver": {"module": 10}, "waiting": 61}],
    "handlers": []})";

constexpr const char* kSlow = R"({"modules": [], "handlers": [
    {"module": 20, "operation": 7, "continuation": false, "count": 7, "mean": 0.5, "median": 0.5,
     "percentile99": 0.75, "longest": 0.75}]})";

/// An agent that is up for two days and handles ten messages in two seconds of its own time, which
/// go by with each answer.
class SteadyAgent {
 public:
  std::string operator()(const std::string& request) {
    if (request.find("pending") != std::string::npos) {
      return inLine(kPending);
    }
    return inLine(request.find("slow") != std::string::npos ? kSlow : status());
  }

 private:
  std::string status() {
    ++asked_;
    std::string modules = kModules;
    modules.replace(modules.find('%'), 1, std::to_string(asked_ * 10));
    return R"({"process": "devagent", "pid": 4711, "version": "1.0.0", "uptime": )" +
           std::to_string(172800 + asked_ * 2) +
           R"(, "log": {"level": 2}, "links": [{"endpoint": "mmt:19001", "connected": true,
               "since": 172800, "connections": 1, "lastError": ""}], "modules": )" +
           modules + "}";
  }

  static std::string inLine(std::string json) {
    for (char& byte : json) {
      byte = byte == '\n' ? ' ' : byte;
    }
    return json;
  }

  int asked_ = 0;
};

constexpr const char* kTop = "devagent  pid 4711  version 1.0.0  up 2d 0h  log level 2\n";

class TopInATerminal : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Tmux::isInstalled()) {
      GTEST_SKIP() << "no tmux; install it with: apt-get install tmux";
    }
  }

  /// Has the shell run top.
  void start(const std::string& command = "sh ./try", const std::string& variables = "") {
    writeFile(tmux.folder().path() / "try",
              "stty -g >modes\n"
              "echo $$ >pid\n"
              "echo the terminal was here\n" +
                  variables + " exec '" QOVCTL "' agent --timeout 3600 --socket '" + socket_ +
                  "' top --interval 0.1\n");
    writeFile(tmux.folder().path() / "after",
              "echo it ended with $?\n"
              "stty -g | cmp - modes && echo its modes are the same\n");
    enter(command);
  }

  void enter(const std::string& line) {
    tmux.type(line);
    tmux.press("Enter");
  }

  void starts() {
    start();
    ASSERT_TRUE(tmux.shows(kTop)) << tmux.screen();
  }

  /// The process of top.
  pid_t pid() const { return std::stoi(readFile(tmux.folder().path() / "pid")); }

  void comesToShow(const std::string& screen) {
    EXPECT_TRUE(waitUntil([&] { return tmux.screen() == screen; })) << tmux.screen();
  }

  /// The shell has the terminal again, with the modes that it had before.
  void hasEndedWith(int status) {
    ASSERT_TRUE(tmux.shows("\n$\n")) << tmux.screen();
    enter(". ./after");
    EXPECT_TRUE(
        tmux.shows("it ended with " + std::to_string(status) + "\nits modes are the same\n"))
        << tmux.screen();
    EXPECT_EQ(tmux.tell("#{alternate_on} #{cursor_flag}"), "0 1\n");
  }

  void hasLeftTheTerminalAsItWas() {
    hasEndedWith(0);
    EXPECT_THAT(tmux.screen(), HasSubstr("$ sh ./try\nthe terminal was here\n"));
    EXPECT_THAT(tmux.screen(), Not(HasSubstr(kTop)));
  }

  const TemporaryDirectory agentsFolder_;
  const std::string socket_ = agentsFolder_.file("agent");
  ScriptedAgent agent{socket_, SteadyAgent()};
  Tmux tmux{80, 24};
};

TEST_F(TopInATerminal, FollowsItsSizeAndItsKeys) {
  starts();
  comesToShow(std::string(kTop) +
              R"(busy 1/4  queue 12  handled/s 5.0  timed out 1  dropped 3

id  module            state    queue  busy   handled/s  oldest   dropped
10  inventory         idle     0      0/3    5.0        -        -
20  coll??ct\x1b[31m  busy     12     1/1    0          1m 01s   noRoom 3

request  from  thread  to  for      time-out  handled by
7        20    -       10  1m 01s   -         -

slowest  in  count  mean   half within  99% within  longest
7        20  7      500ms  500ms        750ms       750ms

link       state      for      connections  last error
mmt:19001  connected  2d 0h    1            -








q ends  s sorts (now by id)  space asks at once
)");
  tmux.resize(40, 10);
  comesToShow(R"(devagent  pid 4711  version 1.0.0  up 2>
busy 1/4  queue 12  handled/s 5.0  time>

id  module         state    queue  busy>
10  inventory      idle     0      0/3 >
20  coll??ct\x1b>  busy     12     1/1 >

request  from  to  for      handled by
7        20    10  1m 01s   -
q ends  s sorts (now by id)  space asks>
)");
  tmux.resize(100, 20);
  tmux.type("s");
  comesToShow(std::string(kTop) +
              R"(busy 1/4  queue 12  handled/s 5.0  timed out 1  dropped 3

id  module            state    queue  busy   handled/s  pending  oldest   timed out  dropped
20  coll??ct\x1b[31m  busy     12     1/1    0          1        1m 01s   1          noRoom 3
10  inventory         idle     0      0/3    5.0        0        -        0          -

request  from  thread  to  for      time-out  handled by
7        20    -       10  1m 01s   -         -

slowest  in  count  mean   half within  99% within  longest
7        20  7      500ms  500ms        750ms       750ms

link       state      for      connections  last error
mmt:19001  connected  2d 0h    1            -




q ends  s sorts (now by queue)  space asks at once
)");
  tmux.type("q");
  hasLeftTheTerminalAsItWas();
}

TEST_F(TopInATerminal, EndsWithControlC) {
  starts();
  tmux.press("C-c");
  hasLeftTheTerminalAsItWas();
}

TEST_F(TopInATerminal, EndsWithASignal) {
  starts();
  ::kill(pid(), SIGTERM);
  hasLeftTheTerminalAsItWas();
}

TEST_F(TopInATerminal, EndsWithItsTerminal) {
  starts();
  const pid_t top = pid();
  tmux.end();
  // One that nobody has collected yet has none.
  const std::string words = "/proc/" + std::to_string(top) + "/cmdline";
  EXPECT_TRUE(waitUntil([&] { return readFile(words).empty(); }));
}

TEST_F(TopInATerminal, LeavesTheTerminalToTheShellWhileItIsStopped) {
  starts();
  tmux.press("C-z");
  EXPECT_TRUE(tmux.shows("Stopped ")) << tmux.screen();
  EXPECT_EQ(tmux.tell("#{alternate_on} #{cursor_flag}"), "0 1\n");
  tmux.resize(100, 30);
  enter("fg");
  EXPECT_TRUE(tmux.shows("  timed out  dropped\n")) << tmux.screen();
  tmux.type("q");
  hasLeftTheTerminalAsItWas();
}

TEST_F(TopInATerminal, GoesOnWhereNoShellCouldLetItGoOn) {
  start("exec sh ./try");
  ASSERT_TRUE(tmux.shows(kTop)) << tmux.screen();
  tmux.press("C-z");
  tmux.type("s");
  EXPECT_TRUE(tmux.shows("(now by queue)")) << tmux.screen();
}

TEST_F(TopInATerminal, SaysThatTheAgentHasGoneAndFindsItAgain) {
  starts();
  agent.goAway();
  EXPECT_TRUE(tmux.shows("\nold figures, trying again: " + socket_ + ": no connection: No such"))
      << tmux.screen();
  EXPECT_THAT(tmux.screen(), HasSubstr(kTop));
  agent.listen();
  EXPECT_TRUE(tmux.shows("\nq ends ")) << tmux.screen();
  agent.goAway();
  EXPECT_TRUE(tmux.shows("\nold figures")) << tmux.screen();
  tmux.type("q");
  hasLeftTheTerminalAsItWas();
}

// The time-out of an answer is an hour.
TEST_F(TopInATerminal, TakesKeysWhileTheAgentDoesNotAnswer) {
  starts();
  agent.standStill();
  ASSERT_TRUE(waitUntil([&] { return agent.isAskedInVain(); }));
  tmux.type("s");
  EXPECT_TRUE(tmux.shows("(now by queue)")) << tmux.screen();
  tmux.resize(70, 20);
  EXPECT_TRUE(waitUntil([&] {
    const std::string screen = tmux.screen();
    const std::string above = screen.substr(0, screen.find("\nq ends ") + 1);
    return std::count(above.begin(), above.end(), '\n') == 19;
  })) << tmux.screen();
  tmux.type("q");
  hasLeftTheTerminalAsItWas();
}

TEST_F(TopInATerminal, IsNotShownWhereTheAgentIsNotThereToBeginWith) {
  agent.goAway();
  start();
  hasEndedWith(3);
  EXPECT_THAT(tmux.screen(), HasSubstr(": no connection: No such file"));
}

TEST_F(TopInATerminal, RefusesATerminalThatItCannotUse) {
  for (const std::string name : {"dumb", "nothing"}) {
    start("sh ./try", "TERM=" + name);
    EXPECT_TRUE(tmux.shows("qovctl: TERM=" + name + ": no terminal that is known here"))
        << tmux.screen();
    hasEndedWith(2);
    enter("clear");
  }
}

}  // namespace
}  // namespace qov::test
